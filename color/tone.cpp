// Tone and lookup operations: Lut, Light, Gamma, Negative, ShiftRGB, GrayScale, Threshold.
#include "color/color_transform.h"

QResult CQELColorTransform::Lut(IQEL*, unsigned char*) { return QEL_E_NOTIMPL; }
QResult CQELColorTransform::Light(IQEL*, int, int) { return QEL_E_NOTIMPL; }
QResult CQELColorTransform::Gamma(IQEL*, float) { return QEL_E_NOTIMPL; }
QResult CQELColorTransform::Negative(IQEL*) { return QEL_E_NOTIMPL; }
QResult CQELColorTransform::ShiftRGB(IQEL*, int, int, int) { return QEL_E_NOTIMPL; }
QResult CQELColorTransform::GrayScale(IQEL*) { return QEL_E_NOTIMPL; }
QResult CQELColorTransform::Threshold(IQEL*, int) { return QEL_E_NOTIMPL; }
