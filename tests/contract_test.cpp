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

template <class Component, class Interface>
Component* Direct(const IID& iid) {
    static SmartPtr<Interface> made = [&] {
        SmartPtr<Interface> component;
        Component::_CreateInstance(nullptr, &iid, component.OutVoid());
        return component;
    }();
    return static_cast<Component*>(made.Get());
}

// One call with `image` null: `other` is a valid image, `result` the output
// pointer (rows named "without" pass a null in another place).
struct Row {
    const char* name;
    QResult expected;
    QResult (*call)(IQEL* image, IQEL* other, IQEL** result);
    bool leavesResult = false;  // the output pointer is left as it was, not cleared
};

unsigned char gTable[256];
int gKernel[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
short gShortKernel[4] = {1, 1, 1, 1};

const Row kRows[] = {
    // Colour: every method, and Lut without its table.
    {"Colorize", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL**) { return Colours()->Colorize(i, 1, 2, 1.0f); }},
    {"Lut", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL**) { return Colours()->Lut(i, gTable); }},
    {"Lut without table", QEL_E_FAIL, [](IQEL*, IQEL* o, IQEL**) { return Colours()->Lut(o, nullptr); }},
    {"Negative", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL**) { return Colours()->Negative(i); }},
    {"GrayScale", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL**) { return Colours()->GrayScale(i); }},
    {"ShiftRGB", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL**) { return Colours()->ShiftRGB(i, 1, 1, 1); }},
    {"Gamma", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL**) { return Colours()->Gamma(i, 2.0f); }},
    {"Light", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL**) { return Colours()->Light(i, 5, 5); }},
    {"SetImageAlpha", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL**) { return Colours()->SetImageAlpha(i, 5, 0); }},
    {"SetImageAlphaTransparency", QEL_E_FAIL,
     [](IQEL* i, IQEL*, IQEL**) { return Colours()->SetImageAlphaTransparency(i, 5, 0); }},
    {"SetImageTransparentPixel", QEL_E_FAIL,
     [](IQEL* i, IQEL*, IQEL**) { return Colours()->SetImageTransparentPixel(i, 0); }},
    {"Threshold", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL**) { return Colours()->Threshold(i, 1); }},
    // Transform: a null source fails; a null result pointer is a pointer error.
    {"Flip", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Transform()->Flip(i, r); }},
    {"Mirror", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Transform()->Mirror(i, r); }},
    {"Rotate", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Transform()->Rotate(i, r, 45, 3, 0, 0); }},
    {"Rotate without result", QEL_E_POINTER,
     [](IQEL*, IQEL* o, IQEL**) { return Transform()->Rotate(o, nullptr, 45, 3, 0, 0); }},
    {"Skew", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Transform()->Skew(i, r, 0, 0, 0, 0, 0, 0); }},
    {"Skew without result", QEL_E_POINTER,
     [](IQEL*, IQEL* o, IQEL**) { return Transform()->Skew(o, nullptr, 0, 0, 0, 0, 0, 0); }},
    {"Resample", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Transform()->Resample(i, r, 4, 4, 3, 0); },
     true},
    {"IncreaseBpp", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Transform()->IncreaseBpp(i, r, 32, 0); }},
    {"RotatePaste", QEL_E_FAIL, [](IQEL* i, IQEL* o, IQEL**) { return Transform()->RotatePaste(i, o, 0.0, 0, 0); }},
    {"RotatePaste without target", QEL_E_POINTER,
     [](IQEL*, IQEL* o, IQEL**) { return Transform()->RotatePaste(o, nullptr, 0.0, 0, 0); }},
    {"FlipBits", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL**) { return Transform()->FlipBits(i); }},
    {"Quad", QEL_E_FAIL,
     [](IQEL* i, IQEL*, IQEL** r) { return Transform()->Quad(i, r, 0, 0, 1, 0, 0, 1, 1, 1, 0, 0, 0); }},
    {"Quad without result", QEL_E_POINTER,
     [](IQEL*, IQEL* o, IQEL**) { return Transform()->Quad(o, nullptr, 0, 0, 1, 0, 0, 1, 1, 1, 0, 0, 0); }},
    {"Transform", QEL_E_FAIL,
     [](IQEL* i, IQEL*, IQEL** r) { return Transform()->Transform(&unmoved, i, r, 0, 0, 0, 0, 0, 0); }},
    {"Transform without transform", QEL_E_INVALIDARG,
     [](IQEL*, IQEL* o, IQEL** r) { return Transform()->Transform(nullptr, o, r, 0, 0, 0, 0, 0, 0); }},
    {"Transform without result", QEL_E_POINTER,
     [](IQEL*, IQEL* o, IQEL**) { return Transform()->Transform(&unmoved, o, nullptr, 0, 0, 0, 0, 0, 0); }},
    {"FlipImageAndBits", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL**) { return Transform()->FlipImageAndBits(i); }},
    {"FillVoids", QEL_E_FAIL,
     [](IQEL* i, IQEL*, IQEL**) {
         return Direct<CQELImageTransform, IQELTransform>(IID_IQELTransform)->FillVoids(i);
     }},
    // Deform.
    {"CircleTransform", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL**) { return Deform()->CircleTransform(i, 0, 0, 1); }},
    // Filters: a null image fails, except the kernel step's invalid argument.
    {"Erode", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Filters()->Erode(i, 3, r); }},
    {"Edge", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Filters()->Edge(i, 3, r); }},
    {"Dilate", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Filters()->Dilate(i, 3, r); }},
    {"Filter", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Filters()->Filter(i, gKernel, 3, 9, 0, r); }},
    {"Contour", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Filters()->Contour(i, r); }},
    {"Jitter", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Filters()->Jitter(i, 3, r); }},
    {"Noise", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Filters()->Noise(i, 10, r); }},
    {"Median", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Filters()->Median(i, 3, r); }},
    {"Emboss", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Filters()->Emboss(i, r); }},
    {"Blur", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Filters()->Blur(i, r); }},
    {"Soften", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Filters()->Soften(i, r); }},
    {"Sharpen", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Filters()->Sharpen(i, r); }},
    {"GaussianBlur", QEL_E_FAIL, [](IQEL* i, IQEL*, IQEL** r) { return Filters()->GaussianBlur(i, 2, r); }},
    {"Kernel", QEL_E_INVALIDARG,
     [](IQEL* i, IQEL*, IQEL** r) {
         return Direct<CQELFilterTransform, IQELFilterTransform>(IID_IQELFilterTransform)
             ->Kernel(i, gShortKernel, 2, 1, 0, r);
     }},
    // Maths: Subtract checks each of its images; CreateDestImage its model and its output.
    {"Subtract without dest", QEL_E_INVALIDARG,
     [](IQEL* i, IQEL* o, IQEL**) { return Maths()->Subtract(i, o, o, 0); }},
    {"Subtract without a", QEL_E_INVALIDARG, [](IQEL* i, IQEL* o, IQEL**) { return Maths()->Subtract(o, i, o, 0); }},
    {"Subtract without b", QEL_E_INVALIDARG, [](IQEL* i, IQEL* o, IQEL**) { return Maths()->Subtract(o, o, i, 0); }},
    {"CreateDestImage without model", QEL_E_INVALIDARG,
     [](IQEL* i, IQEL*, IQEL** r) { return Maths()->CreateDestImage(r, i, 0, 0); }, true},
    {"CreateDestImage without output", QEL_E_POINTER,
     [](IQEL*, IQEL* o, IQEL**) { return Maths()->CreateDestImage(nullptr, o, 0, 0); }},
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
