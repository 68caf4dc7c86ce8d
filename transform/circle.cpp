// CircleTransform: polar deformations about the image centre.
#include "transform/image_deform.h"

QResult CQELImageDeform::CircleTransform(IQEL*, int, int, float) { return QEL_E_NOTIMPL; }
