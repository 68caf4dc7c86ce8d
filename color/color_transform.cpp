// The colour component's identity.
#include "color/color_transform.h"

const tagREFString CQELColorTransform::m_ObjectName = MakeREFString(L"QELColorTransform");
