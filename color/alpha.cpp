// Alpha and transparency of 32-bit images.
#include "color/color_transform.h"

QResult CQELColorTransform::SetImageAlpha(IQEL*, int, int) { return QEL_E_NOTIMPL; }
QResult CQELColorTransform::SetImageAlphaTransparency(IQEL*, int, unsigned int) { return QEL_E_NOTIMPL; }
QResult CQELColorTransform::SetImageTransparentPixel(IQEL*, unsigned int) { return QEL_E_NOTIMPL; }
