// FillVoids: fill the empty pixels left by forward mapping.
#include "transform/image_transform.h"

QResult CQELImageTransform::FillVoids(IQEL*) { return QEL_E_NOTIMPL; }
