// The maths kernels' view of a test image's first plane.
#pragma once

#include "maths/maths_kernels.h"
#include "support/test_image.h"

namespace qeltest {

inline MathsPlane PlaneOf(BufferImage* image) {
    ImageInfo info;
    ReadSize(image, &info);
    ReadFormat(image, &info);
    return GetPlane(image, 0, info);
}

}  // namespace qeltest
