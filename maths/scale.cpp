// Scale and Scale8.
#include "maths/maths.h"

QResult CQELMaths::Scale(IQEL*, IQEL*, IQEL*, float, float) { return QEL_E_NOTIMPL; }
QResult CQELMaths::Scale8(IQELImage*, IQEL*, int, double) { return QEL_E_NOTIMPL; }
