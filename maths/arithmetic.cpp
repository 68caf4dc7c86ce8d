// Add, Subtract and AddScale.
#include "maths/maths.h"

QResult CQELMaths::Add(IQELImage*, IQEL*, IQEL*, float) { return QEL_E_NOTIMPL; }
QResult CQELMaths::Subtract(IQEL*, IQEL*, IQEL*, int) { return QEL_E_NOTIMPL; }
QResult CQELMaths::AddScale(IQEL*, IQEL*, IQEL*, IQEL*, float, float, float) { return QEL_E_NOTIMPL; }
