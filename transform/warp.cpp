// Transform and TransformPaste through a caller's ITransform.
#include "transform/image_transform.h"

QResult CQELImageTransform::Transform(ITransform*, IQEL*, IQEL**, int, int, unsigned int, unsigned int, short,
                                      short) {
    return QEL_E_NOTIMPL;
}
QResult CQELImageTransform::TransformPaste(ITransform*, IQEL*, IQEL*, int, int, short, short) {
    return QEL_E_NOTIMPL;
}
