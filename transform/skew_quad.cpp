// Skew and Quad.
#include "transform/image_transform.h"

QResult CQELImageTransform::Skew(IQEL*, IQEL**, float, float, int, int, int, int) { return QEL_E_NOTIMPL; }
QResult CQELImageTransform::Quad(IQEL*, IQEL**, double, double, double, double, double, double, double,
                                 double, unsigned int, unsigned int, short) {
    return QEL_E_NOTIMPL;
}
