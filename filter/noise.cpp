// Noise and Jitter.
#include "filter/filter_transform.h"

QResult CQELFilterTransform::Noise(IQEL*, int, IQEL**) { return QEL_E_NOTIMPL; }
QResult CQELFilterTransform::Jitter(IQEL*, int, IQEL**) { return QEL_E_NOTIMPL; }
