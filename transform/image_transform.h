// CQELImageTransform: flips, quarter turns, rotation, resampling, skew, quad,
// coordinate-transform warps, depth increase and void filling.
#pragma once

#include "module/object.h"
#include "qel/components.h"

class CQELImageTransform final : public CObject<CQELImageTransform>,
                                 public IObjectInfoImpl<CQELImageTransform>,
                                 public IQELTransform {
    QEL_COMPONENT_IUNKNOWN(CQELImageTransform)

public:
    using OwnInterface = IQELTransform;
    static const IID& OwnInterfaceId() { return IID_IQELTransform; }

    QResult Flip(IQEL* source, IQEL** result /*out*/) override;    // orientation.cpp
    QResult Mirror(IQEL* source, IQEL** result /*out*/) override;  // orientation.cpp
    QResult Rotate(IQEL* source, IQEL** result /*out*/, int angle, int method, int forceAlpha,
                   int keepSize) override;  // rotate.cpp
    QResult Skew(IQEL* source, IQEL** result /*out*/, float xGain, float yGain, int xPivot, int yPivot,
                 int reserved,
                 int forceAlpha) override;  // skew_quad.cpp
    QResult Resample(IQEL* source, IQEL** result /*out*/, int newWidth, int newHeight, int method,
                     int nearestOnly) override;  // resample.cpp
    QResult IncreaseBpp(IQEL* source, IQEL** result /*out*/, int bitCount,
                        unsigned int colourModel) override;  // depth.cpp
    QResult RotatePaste(IQEL* source, IQEL* target, double angle, int method,
                        int keyColour) override;  // rotate.cpp
    QResult FlipBits(IQEL* image) override;       // orientation.cpp
    QResult Quad(IQEL* source, IQEL** result /*out*/, double x1, double y1, double x2, double y2, double x3,
                 double y3, double x4, double y4, unsigned int newWidth, unsigned int newHeight,
                 short blend) override;  // skew_quad.cpp
    QResult Transform(ITransform* transform, IQEL* source, IQEL** result /*out*/, int xOffset, int yOffset,
                      unsigned int newWidth, unsigned int newHeight, short unused1,
                      short unused2) override;  // warp.cpp
    QResult TransformPaste(ITransform* transform, IQEL* source, IQEL* target, int xOffset, int yOffset,
                           short fillVoids, short unused) override;  // warp.cpp
    QResult FlipImageAndBits(IQEL* image) override;                  // orientation.cpp

    // Class-only operations, reachable inside the module.
    virtual QResult Rotate4(IQEL* source, IQELImage* dest, int angle);  // orientation.cpp
    virtual QResult FillVoids(IQEL* image);                             // fill_voids.cpp
};
