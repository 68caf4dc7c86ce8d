// CQELColorTransform: per-pixel tone, colour and alpha operations, in place.
#pragma once

#include "module/object.h"
#include "qel/components.h"

class CQELColorTransform final : public CObject<CQELColorTransform>,
                                 public IObjectInfoImpl<CQELColorTransform>,
                                 public IQELColorTransform {
    QEL_COMPONENT_IUNKNOWN(CQELColorTransform)

public:
    using OwnInterface = IQELColorTransform;
    static const IID& OwnInterfaceId() { return IID_IQELColorTransform; }

    QResult Colorize(IQEL* image, unsigned char hue, unsigned char saturation,
                     float blend) override;                                // colorize.cpp
    QResult Lut(IQEL* image, unsigned char* table) override;               // tone.cpp
    QResult Negative(IQEL* image) override;                                // tone.cpp
    QResult GrayScale(IQEL* image) override;                               // tone.cpp
    QResult ShiftRGB(IQEL* image, int red, int green, int blue) override;  // tone.cpp
    QResult Gamma(IQEL* image, float gamma) override;                      // tone.cpp
    QResult Light(IQEL* image, int brightness, int contrast) override;     // tone.cpp
    QResult SetImageAlpha(IQEL* image, int alpha, int unused) override;    // alpha.cpp
    QResult SetImageAlphaTransparency(IQEL* image, int alpha, unsigned int keyColour) override;  // alpha.cpp
    QResult SetImageTransparentPixel(IQEL* image, unsigned int keyColour) override;              // alpha.cpp
    QResult Threshold(IQEL* image, int level) override;                                          // tone.cpp
};
