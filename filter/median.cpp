// Median filter.
#include "filter/filter_transform.h"

QResult CQELFilterTransform::Median(IQEL*, int, IQEL**) { return QEL_E_NOTIMPL; }
