// Rotate and RotatePaste by any angle.
#include "transform/image_transform.h"

QResult CQELImageTransform::Rotate(IQEL*, IQEL**, int, int, int, int) { return QEL_E_NOTIMPL; }
QResult CQELImageTransform::RotatePaste(IQEL*, IQEL*, double, int, int) { return QEL_E_NOTIMPL; }
