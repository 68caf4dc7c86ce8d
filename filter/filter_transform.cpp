// The filter component's identity.
#include "filter/filter_transform.h"

const tagREFString CQELFilterTransform::m_ObjectName = MakeREFString(L"QELFilterTransform");
