// Equal: constant fill under an optional mask.
#include "maths/maths.h"

QResult CQELMaths::Equal(IQEL*, IQEL*, int) { return QEL_E_NOTIMPL; }
