// Resample to a new size.
#include "transform/image_transform.h"

QResult CQELImageTransform::Resample(IQEL*, IQEL**, int, int, int, int) { return QEL_E_NOTIMPL; }
