// Orientation: Flip, Mirror, FlipBits, FlipImageAndBits and the quarter turns of Rotate4.
#include "transform/image_transform.h"

QResult CQELImageTransform::Flip(IQEL*, IQEL**) { return QEL_E_NOTIMPL; }
QResult CQELImageTransform::Mirror(IQEL*, IQEL**) { return QEL_E_NOTIMPL; }
QResult CQELImageTransform::FlipBits(IQEL*) { return QEL_E_NOTIMPL; }
QResult CQELImageTransform::FlipImageAndBits(IQEL*) { return QEL_E_NOTIMPL; }
QResult CQELImageTransform::Rotate4(IQEL*, IQELImage*, int) { return QEL_E_NOTIMPL; }
