// The geometry components' identities.
#include "transform/image_transform.h"

#include "transform/image_deform.h"

const tagREFString CQELImageTransform::m_ObjectName = MakeREFString(L"QELTransform");
const tagREFString CQELImageDeform::m_ObjectName = MakeREFString(L"QELDeform");
