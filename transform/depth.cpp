// IncreaseBpp: conversion to a deeper pixel format.
#include "transform/image_transform.h"

QResult CQELImageTransform::IncreaseBpp(IQEL*, IQEL**, int, unsigned int) { return QEL_E_NOTIMPL; }
