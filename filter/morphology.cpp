// Morphology, edge and contour filters.
#include "filter/filter_transform.h"

QResult CQELFilterTransform::Erode(IQEL*, int, IQEL**) { return QEL_E_NOTIMPL; }
QResult CQELFilterTransform::Dilate(IQEL*, int, IQEL**) { return QEL_E_NOTIMPL; }
QResult CQELFilterTransform::Edge(IQEL*, int, IQEL**) { return QEL_E_NOTIMPL; }
QResult CQELFilterTransform::Contour(IQEL*, IQEL**) { return QEL_E_NOTIMPL; }
