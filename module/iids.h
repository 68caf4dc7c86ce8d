// The module's interface identifiers, computed from their names when the
// library is loaded (see QELMaths.cpp) and read-only afterwards.
#pragma once

#include "qel/iid.h"

extern const IID IID_NULL;
extern const IID IID_IUnknown;

#define QEL_DECLARE_MODULE_IID(name) extern IID IID_##name;
QEL_FOR_EACH_INTERFACE(QEL_DECLARE_MODULE_IID)
#undef QEL_DECLARE_MODULE_IID
