// CQELImageDeform: circular deformations (bulge, pinch, swirl, polar unwrap, folding).
#pragma once

#include "module/object.h"
#include "qel/components.h"

class CQELImageDeform final : public CObject<CQELImageDeform>,
                              public IObjectInfoImpl<CQELImageDeform>,
                              public IQELDeform {
    QEL_COMPONENT_IUNKNOWN(CQELImageDeform)

public:
    using OwnInterface = IQELDeform;
    static const IID& OwnInterfaceId() { return IID_IQELDeform; }

    QResult CircleTransform(IQEL* image, int mode, int withAlpha, float factor) override;  // circle.cpp
};
