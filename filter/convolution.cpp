// Convolution filters: Filter, Kernel and the fixed kernels.
#include "filter/filter_transform.h"

QResult CQELFilterTransform::Filter(IQEL*, int*, int, int, int, IQEL**) { return QEL_E_NOTIMPL; }
QResult CQELFilterTransform::Kernel(IQEL*, short*, int, int, int, IQEL**) { return QEL_E_NOTIMPL; }
QResult CQELFilterTransform::Emboss(IQEL*, IQEL**) { return QEL_E_NOTIMPL; }
QResult CQELFilterTransform::Blur(IQEL*, IQEL**) { return QEL_E_NOTIMPL; }
QResult CQELFilterTransform::Soften(IQEL*, IQEL**) { return QEL_E_NOTIMPL; }
QResult CQELFilterTransform::Sharpen(IQEL*, IQEL**) { return QEL_E_NOTIMPL; }
QResult CQELFilterTransform::GaussianBlur(IQEL*, int, IQEL**) { return QEL_E_NOTIMPL; }
