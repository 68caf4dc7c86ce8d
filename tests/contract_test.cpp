// The argument contract of every method of the five components: a null image,
// table, transform or result pointer gives its result code, leaves the other
// image's bytes alone and hands back no image. The maths methods that assume
// their images (Equal, Copy, AddScale, Scale, Add, Scale8) are not called so.
#include <gtest/gtest.h>

#include "filter/filter_transform.h"
#include "support/component_test.h"
#include "transform/image_transform.h"

namespace {

using namespace qeltest;

// A caller's transform that leaves every point where it is.
PointMap unmoved([](double&, double&) {});

// One call with the image under test `i` null, beside a valid image `o`;
// some rows pass the null in another place. A row is named by its call.
struct Row {
    const char* call;
    QResult expected;
    QResult (*run)(IQEL* image, IQEL* other, IQEL** result);
    bool leavesResult = false;  // the output pointer is left as it was, not cleared
};

// A row's call of the image under test `i`, the valid image `o` and the output pointer `r`.
#define CALL(call) [](IQEL* i, IQEL* o, IQEL** r) -> QResult { return (void)i, (void)o, (void)r, call; }
#define ROW(expected, call, ...) \
    Row { #call, expected, CALL(call), __VA_ARGS__ }

unsigned char gTable[256];
int gKernel[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
short gShortKernel[4] = {1, 1, 1, 1};

const Row kRows[] = {
    // Colour: every method, and Lut without its table.
    ROW(QEL_E_FAIL, Colours()->Colorize(i, 1, 2, 1.0f)),
    ROW(QEL_E_FAIL, Colours()->Lut(i, gTable)),
    ROW(QEL_E_FAIL, Colours()->Lut(o, nullptr)),
    ROW(QEL_E_FAIL, Colours()->Negative(i)),
    ROW(QEL_E_FAIL, Colours()->GrayScale(i)),
    ROW(QEL_E_FAIL, Colours()->ShiftRGB(i, 1, 1, 1)),
    ROW(QEL_E_FAIL, Colours()->Gamma(i, 2.0f)),
    ROW(QEL_E_FAIL, Colours()->Light(i, 5, 5)),
    ROW(QEL_E_FAIL, Colours()->SetImageAlpha(i, 5, 0)),
    ROW(QEL_E_FAIL, Colours()->SetImageAlphaTransparency(i, 5, 0)),
    ROW(QEL_E_FAIL, Colours()->SetImageTransparentPixel(i, 0)),
    ROW(QEL_E_FAIL, Colours()->Threshold(i, 1)),
    // Transform: a null source fails; a null result pointer is a pointer error.
    ROW(QEL_E_FAIL, Transform()->Flip(i, r)),
    ROW(QEL_E_FAIL, Transform()->Mirror(i, r)),
    ROW(QEL_E_FAIL, Transform()->Rotate(i, r, 45, 3, 0, 0)),
    ROW(QEL_E_POINTER, Transform()->Rotate(o, nullptr, 45, 3, 0, 0)),
    ROW(QEL_E_FAIL, Transform()->Skew(i, r, 0, 0, 0, 0, 0, 0)),
    ROW(QEL_E_POINTER, Transform()->Skew(o, nullptr, 0, 0, 0, 0, 0, 0)),
    ROW(QEL_E_FAIL, Transform()->Resample(i, r, 4, 4, 3, 0), true),
    ROW(QEL_E_FAIL, Transform()->IncreaseBpp(i, r, 32, 0)),
    ROW(QEL_E_FAIL, Transform()->RotatePaste(i, o, 0.0, 0, 0)),
    ROW(QEL_E_POINTER, Transform()->RotatePaste(o, nullptr, 0.0, 0, 0)),
    ROW(QEL_E_FAIL, Transform()->FlipBits(i)),
    ROW(QEL_E_FAIL, Transform()->Quad(i, r, 0, 0, 1, 0, 0, 1, 1, 1, 0, 0, 0)),
    ROW(QEL_E_POINTER, Transform()->Quad(o, nullptr, 0, 0, 1, 0, 0, 1, 1, 1, 0, 0, 0)),
    ROW(QEL_E_FAIL, Transform()->Transform(&unmoved, i, r, 0, 0, 0, 0, 0, 0)),
    ROW(QEL_E_INVALIDARG, Transform()->Transform(nullptr, o, r, 0, 0, 0, 0, 0, 0)),
    ROW(QEL_E_POINTER, Transform()->Transform(&unmoved, o, nullptr, 0, 0, 0, 0, 0, 0)),
    ROW(QEL_E_FAIL, Transform()->FlipImageAndBits(i)),
    ROW(QEL_E_FAIL, TransformClass()->FillVoids(i)),
    // Deform.
    ROW(QEL_E_FAIL, Deform()->CircleTransform(i, 0, 0, 1)),
    // Filters: a null image fails, except the kernel step's invalid argument.
    ROW(QEL_E_FAIL, Filters()->Erode(i, 3, r)),
    ROW(QEL_E_FAIL, Filters()->Edge(i, 3, r)),
    ROW(QEL_E_FAIL, Filters()->Dilate(i, 3, r)),
    ROW(QEL_E_FAIL, Filters()->Filter(i, gKernel, 3, 9, 0, r)),
    ROW(QEL_E_FAIL, Filters()->Contour(i, r)),
    ROW(QEL_E_FAIL, Filters()->Jitter(i, 3, r)),
    ROW(QEL_E_FAIL, Filters()->Noise(i, 10, r)),
    ROW(QEL_E_FAIL, Filters()->Median(i, 3, r)),
    ROW(QEL_E_FAIL, Filters()->Emboss(i, r)),
    ROW(QEL_E_FAIL, Filters()->Blur(i, r)),
    ROW(QEL_E_FAIL, Filters()->Soften(i, r)),
    ROW(QEL_E_FAIL, Filters()->Sharpen(i, r)),
    ROW(QEL_E_FAIL, Filters()->GaussianBlur(i, 2, r)),
    ROW(QEL_E_INVALIDARG, FilterClass()->Kernel(i, gShortKernel, 2, 1, 0, r)),
    // Maths: Subtract checks each of its images; CreateDestImage its model and its output.
    ROW(QEL_E_INVALIDARG, Maths()->Subtract(i, o, o, 0)),
    ROW(QEL_E_INVALIDARG, Maths()->Subtract(o, i, o, 0)),
    ROW(QEL_E_INVALIDARG, Maths()->Subtract(o, o, i, 0)),
    ROW(QEL_E_INVALIDARG, Maths()->CreateDestImage(r, i, 0, 0), true),
    ROW(QEL_E_POINTER, Maths()->CreateDestImage(nullptr, o, 0, 0)),
};

TEST(Contract, NullArgumentsGiveTheirCodeAndTouchNothing) {
    for (const Row& row : kRows) {
        auto other = Random(5, 3, 24, 9, 3);
        const Bytes before = other->Snapshot();
        IQEL* const unset = reinterpret_cast<IQEL*>(0x1);
        IQEL* result = unset;
        EXPECT_EQ(row.run(nullptr, other.Get(), &result), row.expected) << row.call;
        // No image comes back: the pointer is cleared, or left alone where that is the rule.
        if (row.leavesResult)
            EXPECT_EQ(result, unset) << row.call;
        else
            EXPECT_TRUE(result == unset || result == nullptr) << row.call;
        EXPECT_EQ(other->Snapshot(), before) << row.call;
        EXPECT_EQ(RefCountOf(other.Get()), 1u) << row.call;
    }
}

}  // namespace
