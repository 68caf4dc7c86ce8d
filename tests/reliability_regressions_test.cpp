// Regressions found by the randomized stress driver, one test per defect,
// each named after it.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "support/test_image.h"

namespace {

using qeltest::BufferImage;

SmartPtr<IQELTransform> Transform() {
    return qeltest::TestHost().Create<IQELTransform>(L"QELTransform", qel::iid::IQELTransform);
}

SmartPtr<BufferImage> Random(int w, int h, int bpp, unsigned model, uint32_t seed) {
    SmartPtr<BufferImage> image(BufferImage::Make(w, h, bpp, model, 2));
    image->FillRandom(seed);
    return image;
}

// A NaN or infinite angle gave the turned rectangle a size of INT_MIN (a float
// to int conversion of NaN), and its centring overflowed.
TEST(Regression, RotatePasteByNonFiniteAngleDrawsNothing) {
    SmartPtr<BufferImage> source = Random(6, 5, 24, QEL_MODEL_BGR, 1);
    for (const double angle :
         {std::nan(""), std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()}) {
        SmartPtr<BufferImage> target = Random(7, 4, 32, QEL_MODEL_ARGB, 2);
        const std::vector<unsigned char> before = target->Snapshot();
        EXPECT_EQ(Transform()->RotatePaste(source.Get(), target.Get(), angle, 3, 0), QEL_OK) << angle;
        EXPECT_EQ(target->Snapshot(), before) << angle;
    }
}

}  // namespace
