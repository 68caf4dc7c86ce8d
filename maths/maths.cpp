// The maths component's identity.
#include "maths/maths.h"

const tagREFString CQELMaths::m_ObjectName = MakeREFString(L"QELMaths");
