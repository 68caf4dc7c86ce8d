// Destination images and Copy with depth conversion.
#include "maths/maths.h"

QResult CQELMaths::CreateDestImage(IQEL**, IQEL*, int, int) { return QEL_E_NOTIMPL; }
QResult CQELMaths::Copy(IQEL*, IQEL*, IQEL*, int, int) { return QEL_E_NOTIMPL; }
