// CQELMaths: pixel arithmetic between images.
#pragma once

#include "module/object.h"
#include "qel/components.h"

class CQELMaths final : public CObject<CQELMaths>, public IObjectInfoImpl<CQELMaths>, public IQELMaths {
    QEL_COMPONENT_IUNKNOWN(CQELMaths)

public:
    using OwnInterface = IQELMaths;
    static const IID& OwnInterfaceId() { return IID_IQELMaths; }

    QResult Equal(IQEL* image, IQEL* mask, int value) override;                 // equal.cpp
    QResult Copy(IQEL* dest, IQEL* source, IQEL* mask, int x, int y) override;  // copy.cpp
    QResult AddScale(IQEL* dest, IQEL* a, IQEL* b, IQEL* mask, float factorA, float factorB,
                     float offset) override;  // arithmetic.cpp
    QResult Scale(IQEL* dest, IQEL* source, IQEL* mask, float factor, float offset) override;  // scale.cpp
    QResult Subtract(IQEL* dest, IQEL* a, IQEL* b, int flags) override;  // arithmetic.cpp
    QResult CreateDestImage(IQEL** dest, IQEL* model, int bitCount, int colourModel) override;  // copy.cpp
    QResult Add(IQELImage* dest, IQEL* a, IQEL* b, float divisor) override;             // arithmetic.cpp
    QResult Scale8(IQELImage* dest, IQEL* source, int offset, double factor) override;  // scale.cpp
};
