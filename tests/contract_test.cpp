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
struct Unmoved final : ITransform {
    QResult QueryInterface(const IID&, void** object) override {
        *object = nullptr;
        return QEL_E_NOINTERFACE;
    }
    uint32_t AddRef() override { return 2; }
    uint32_t Release() override { return 1; }
    QResult TransformPoint(double*, double*, double*) override { return QEL_OK; }
} unmoved;

// One call with the image under test null, beside a valid image; rows named
// "without" pass the null in another place.
struct Row {
    const char* name;
    QResult expected;
    QResult (*call)(IQEL* image, IQEL* other, IQEL** result);
    bool leavesResult = false;  // the output pointer is left as it was, not cleared
};

// A row's call of the image under test `i`, the valid image `o` and the output pointer `r`.
#define CALL(call) [](IQEL* i, IQEL* o, IQEL** r) -> QResult { return (void)i, (void)o, (void)r, call; }

unsigned char gTable[256];
int gKernel[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
short gShortKernel[4] = {1, 1, 1, 1};

const Row kRows[] = {
    // Colour: every method, and Lut without its table.
    {"Colorize", QEL_E_FAIL, CALL(Colours()->Colorize(i, 1, 2, 1.0f))},
    {"Lut", QEL_E_FAIL, CALL(Colours()->Lut(i, gTable))},
    {"Lut without table", QEL_E_FAIL, CALL(Colours()->Lut(o, nullptr))},
    {"Negative", QEL_E_FAIL, CALL(Colours()->Negative(i))},
    {"GrayScale", QEL_E_FAIL, CALL(Colours()->GrayScale(i))},
    {"ShiftRGB", QEL_E_FAIL, CALL(Colours()->ShiftRGB(i, 1, 1, 1))},
    {"Gamma", QEL_E_FAIL, CALL(Colours()->Gamma(i, 2.0f))},
    {"Light", QEL_E_FAIL, CALL(Colours()->Light(i, 5, 5))},
    {"SetImageAlpha", QEL_E_FAIL, CALL(Colours()->SetImageAlpha(i, 5, 0))},
    {"SetImageAlphaTransparency", QEL_E_FAIL, CALL(Colours()->SetImageAlphaTransparency(i, 5, 0))},
    {"SetImageTransparentPixel", QEL_E_FAIL, CALL(Colours()->SetImageTransparentPixel(i, 0))},
    {"Threshold", QEL_E_FAIL, CALL(Colours()->Threshold(i, 1))},
    // Transform: a null source fails; a null result pointer is a pointer error.
    {"Flip", QEL_E_FAIL, CALL(Transform()->Flip(i, r))},
    {"Mirror", QEL_E_FAIL, CALL(Transform()->Mirror(i, r))},
    {"Rotate", QEL_E_FAIL, CALL(Transform()->Rotate(i, r, 45, 3, 0, 0))},
    {"Rotate without result", QEL_E_POINTER, CALL(Transform()->Rotate(o, nullptr, 45, 3, 0, 0))},
    {"Skew", QEL_E_FAIL, CALL(Transform()->Skew(i, r, 0, 0, 0, 0, 0, 0))},
    {"Skew without result", QEL_E_POINTER, CALL(Transform()->Skew(o, nullptr, 0, 0, 0, 0, 0, 0))},
    {"Resample", QEL_E_FAIL, CALL(Transform()->Resample(i, r, 4, 4, 3, 0)), true},
    {"IncreaseBpp", QEL_E_FAIL, CALL(Transform()->IncreaseBpp(i, r, 32, 0))},
    {"RotatePaste", QEL_E_FAIL, CALL(Transform()->RotatePaste(i, o, 0.0, 0, 0))},
    {"RotatePaste without target", QEL_E_POINTER, CALL(Transform()->RotatePaste(o, nullptr, 0.0, 0, 0))},
    {"FlipBits", QEL_E_FAIL, CALL(Transform()->FlipBits(i))},
    {"Quad", QEL_E_FAIL, CALL(Transform()->Quad(i, r, 0, 0, 1, 0, 0, 1, 1, 1, 0, 0, 0))},
    {"Quad without result", QEL_E_POINTER, CALL(Transform()->Quad(o, nullptr, 0, 0, 1, 0, 0, 1, 1, 1, 0, 0, 0))},
    {"Transform", QEL_E_FAIL, CALL(Transform()->Transform(&unmoved, i, r, 0, 0, 0, 0, 0, 0))},
    {"Transform without transform", QEL_E_INVALIDARG, CALL(Transform()->Transform(nullptr, o, r, 0, 0, 0, 0, 0, 0))},
    {"Transform without result", QEL_E_POINTER, CALL(Transform()->Transform(&unmoved, o, nullptr, 0, 0, 0, 0, 0, 0))},
    {"FlipImageAndBits", QEL_E_FAIL, CALL(Transform()->FlipImageAndBits(i))},
    {"FillVoids", QEL_E_FAIL, CALL(TransformClass()->FillVoids(i))},
    // Deform.
    {"CircleTransform", QEL_E_FAIL, CALL(Deform()->CircleTransform(i, 0, 0, 1))},
    // Filters: a null image fails, except the kernel step's invalid argument.
    {"Erode", QEL_E_FAIL, CALL(Filters()->Erode(i, 3, r))},
    {"Edge", QEL_E_FAIL, CALL(Filters()->Edge(i, 3, r))},
    {"Dilate", QEL_E_FAIL, CALL(Filters()->Dilate(i, 3, r))},
    {"Filter", QEL_E_FAIL, CALL(Filters()->Filter(i, gKernel, 3, 9, 0, r))},
    {"Contour", QEL_E_FAIL, CALL(Filters()->Contour(i, r))},
    {"Jitter", QEL_E_FAIL, CALL(Filters()->Jitter(i, 3, r))},
    {"Noise", QEL_E_FAIL, CALL(Filters()->Noise(i, 10, r))},
    {"Median", QEL_E_FAIL, CALL(Filters()->Median(i, 3, r))},
    {"Emboss", QEL_E_FAIL, CALL(Filters()->Emboss(i, r))},
    {"Blur", QEL_E_FAIL, CALL(Filters()->Blur(i, r))},
    {"Soften", QEL_E_FAIL, CALL(Filters()->Soften(i, r))},
    {"Sharpen", QEL_E_FAIL, CALL(Filters()->Sharpen(i, r))},
    {"GaussianBlur", QEL_E_FAIL, CALL(Filters()->GaussianBlur(i, 2, r))},
    {"Kernel", QEL_E_INVALIDARG, CALL(FilterClass()->Kernel(i, gShortKernel, 2, 1, 0, r))},
    // Maths: Subtract checks each of its images; CreateDestImage its model and its output.
    {"Subtract without dest", QEL_E_INVALIDARG, CALL(Maths()->Subtract(i, o, o, 0))},
    {"Subtract without a", QEL_E_INVALIDARG, CALL(Maths()->Subtract(o, i, o, 0))},
    {"Subtract without b", QEL_E_INVALIDARG, CALL(Maths()->Subtract(o, o, i, 0))},
    {"CreateDestImage without model", QEL_E_INVALIDARG, CALL(Maths()->CreateDestImage(r, i, 0, 0)), true},
    {"CreateDestImage without output", QEL_E_POINTER, CALL(Maths()->CreateDestImage(nullptr, o, 0, 0))},
};

TEST(Contract, NullArgumentsGiveTheirCodeAndTouchNothing) {
    for (const Row& row : kRows) {
        auto other = Random(5, 3, 24, 9, 3);
        const Bytes before = other->Snapshot();
        IQEL* const unset = reinterpret_cast<IQEL*>(0x1);
        IQEL* result = unset;
        EXPECT_EQ(row.call(nullptr, other.Get(), &result), row.expected) << row.name;
        // No image comes back: the pointer is cleared, or left alone where that is the rule.
        if (row.leavesResult)
            EXPECT_EQ(result, unset) << row.name;
        else
            EXPECT_TRUE(result == unset || result == nullptr) << row.name;
        EXPECT_EQ(other->Snapshot(), before) << row.name;
        EXPECT_EQ(other->RefCount(), 1u) << row.name;
    }
}

}  // namespace
