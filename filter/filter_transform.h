// CQELFilterTransform: neighbourhood filters producing a new image.
#pragma once

#include "module/object.h"
#include "qel/components.h"

class CQELFilterTransform final : public CObject<CQELFilterTransform>,
                                  public IObjectInfoImpl<CQELFilterTransform>,
                                  public IQELFilterTransform {
    QEL_COMPONENT_IUNKNOWN(CQELFilterTransform)

public:
    using OwnInterface = IQELFilterTransform;
    static const IID& OwnInterfaceId() { return IID_IQELFilterTransform; }

    QResult Erode(IQEL* image, int size, IQEL** result /*out*/) override;   // morphology.cpp
    QResult Edge(IQEL* image, int size, IQEL** result /*out*/) override;    // morphology.cpp
    QResult Dilate(IQEL* image, int size, IQEL** result /*out*/) override;  // morphology.cpp
    QResult Filter(IQEL* image, int* kernel, int size, int divisor, int offset,
                   IQEL** result /*out*/) override;                                // convolution.cpp
    QResult Contour(IQEL* image, IQEL** result /*out*/) override;                  // morphology.cpp
    QResult Jitter(IQEL* image, int amount, IQEL** result /*out*/) override;       // noise.cpp
    QResult Noise(IQEL* image, int amount, IQEL** result /*out*/) override;        // noise.cpp
    QResult Median(IQEL* image, int size, IQEL** result /*out*/) override;         // median.cpp
    QResult Emboss(IQEL* image, IQEL** result /*out*/) override;                   // convolution.cpp
    QResult Blur(IQEL* image, IQEL** result /*out*/) override;                     // convolution.cpp
    QResult Soften(IQEL* image, IQEL** result /*out*/) override;                   // convolution.cpp
    QResult Sharpen(IQEL* image, IQEL** result /*out*/) override;                  // convolution.cpp
    QResult GaussianBlur(IQEL* image, int level, IQEL** result /*out*/) override;  // convolution.cpp

    // Class-only: convolution with 16-bit kernel entries.
    virtual QResult Kernel(IQEL* image, short* kernel, int size, int divisor, int offset,
                           IQEL** result /*out*/);  // convolution.cpp
};
