// Colorize: tint to a hue and saturation with a blend weight.
#include "color/color_transform.h"

QResult CQELColorTransform::Colorize(IQEL*, unsigned char, unsigned char, float) { return QEL_E_NOTIMPL; }
