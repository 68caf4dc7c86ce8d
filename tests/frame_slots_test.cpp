// Slot positions of every interface operation a host or the module calls.
// Hosts call by position, so a reordered declaration is a broken binary
// interface even though everything still compiles.
#include <gtest/gtest.h>

#include <cstring>

#include "qel/qel.h"

namespace {

// In the Itanium C++ ABI a pointer to a virtual member function holds
// 1 + the byte offset of its vtable slot.
template <class Method>
int SlotOf(Method method) {
    static_assert(sizeof(Method) == 2 * sizeof(uintptr_t), "pointer to member function layout");
    uintptr_t words[2];
    std::memcpy(words, &method, sizeof(words));
    EXPECT_EQ(words[0] % sizeof(void*), 1u) << "not a virtual function";
    return static_cast<int>((words[0] - 1) / sizeof(void*));
}

TEST(InterfaceSlots, UnknownAndObjectInfo) {
    EXPECT_EQ(SlotOf(&IUnknown::QueryInterface), 0);
    EXPECT_EQ(SlotOf(&IUnknown::AddRef), 1);
    EXPECT_EQ(SlotOf(&IUnknown::Release), 2);
    EXPECT_EQ(SlotOf(&IObjectInfo::GetName), 3);
}

TEST(InterfaceSlots, ColorTransform) {
    EXPECT_EQ(SlotOf(&IQELColorTransform::Colorize), 3);
    EXPECT_EQ(SlotOf(&IQELColorTransform::Lut), 4);
    EXPECT_EQ(SlotOf(&IQELColorTransform::Negative), 5);
    EXPECT_EQ(SlotOf(&IQELColorTransform::GrayScale), 6);
    EXPECT_EQ(SlotOf(&IQELColorTransform::ShiftRGB), 7);
    EXPECT_EQ(SlotOf(&IQELColorTransform::Gamma), 8);
    EXPECT_EQ(SlotOf(&IQELColorTransform::Light), 9);
    EXPECT_EQ(SlotOf(&IQELColorTransform::SetImageAlpha), 10);
    EXPECT_EQ(SlotOf(&IQELColorTransform::SetImageAlphaTransparency), 11);
    EXPECT_EQ(SlotOf(&IQELColorTransform::SetImageTransparentPixel), 12);
    EXPECT_EQ(SlotOf(&IQELColorTransform::Threshold), 13);
}

TEST(InterfaceSlots, TransformAndDeform) {
    EXPECT_EQ(SlotOf(&IQELTransform::Flip), 3);
    EXPECT_EQ(SlotOf(&IQELTransform::Mirror), 4);
    EXPECT_EQ(SlotOf(&IQELTransform::Rotate), 5);
    EXPECT_EQ(SlotOf(&IQELTransform::Skew), 6);
    EXPECT_EQ(SlotOf(&IQELTransform::Resample), 7);
    EXPECT_EQ(SlotOf(&IQELTransform::IncreaseBpp), 8);
    EXPECT_EQ(SlotOf(&IQELTransform::RotatePaste), 9);
    EXPECT_EQ(SlotOf(&IQELTransform::FlipBits), 10);
    EXPECT_EQ(SlotOf(&IQELTransform::Quad), 11);
    EXPECT_EQ(SlotOf(&IQELTransform::Transform), 12);
    EXPECT_EQ(SlotOf(&IQELTransform::TransformPaste), 13);
    EXPECT_EQ(SlotOf(&IQELTransform::FlipImageAndBits), 14);
    EXPECT_EQ(SlotOf(&IQELDeform::CircleTransform), 3);
}

TEST(InterfaceSlots, FilterTransform) {
    EXPECT_EQ(SlotOf(&IQELFilterTransform::Erode), 3);
    EXPECT_EQ(SlotOf(&IQELFilterTransform::Edge), 4);
    EXPECT_EQ(SlotOf(&IQELFilterTransform::Dilate), 5);
    EXPECT_EQ(SlotOf(&IQELFilterTransform::Filter), 6);
    EXPECT_EQ(SlotOf(&IQELFilterTransform::Contour), 7);
    EXPECT_EQ(SlotOf(&IQELFilterTransform::Jitter), 8);
    EXPECT_EQ(SlotOf(&IQELFilterTransform::Noise), 9);
    EXPECT_EQ(SlotOf(&IQELFilterTransform::Median), 10);
    EXPECT_EQ(SlotOf(&IQELFilterTransform::Emboss), 11);
    EXPECT_EQ(SlotOf(&IQELFilterTransform::Blur), 12);
    EXPECT_EQ(SlotOf(&IQELFilterTransform::Soften), 13);
    EXPECT_EQ(SlotOf(&IQELFilterTransform::Sharpen), 14);
    EXPECT_EQ(SlotOf(&IQELFilterTransform::GaussianBlur), 15);
}

TEST(InterfaceSlots, Maths) {
    EXPECT_EQ(SlotOf(&IQELMaths::Equal), 3);
    EXPECT_EQ(SlotOf(&IQELMaths::Copy), 4);
    EXPECT_EQ(SlotOf(&IQELMaths::AddScale), 5);
    EXPECT_EQ(SlotOf(&IQELMaths::Scale), 6);
    EXPECT_EQ(SlotOf(&IQELMaths::Subtract), 7);
    EXPECT_EQ(SlotOf(&IQELMaths::CreateDestImage), 8);
    EXPECT_EQ(SlotOf(&IQELMaths::Add), 9);
    EXPECT_EQ(SlotOf(&IQELMaths::Scale8), 10);
}

TEST(InterfaceSlots, ImagesCalledByTheModule) {
    EXPECT_EQ(SlotOf(&IQEL::GetSize), 3);
    EXPECT_EQ(SlotOf(&IQEL::GetFormat), 4);
    EXPECT_EQ(SlotOf(&IQEL::GetBits), 5);
    EXPECT_EQ(SlotOf(&IQEL::Create), 6);
    EXPECT_EQ(SlotOf(&IQELImage::Assign), 8);
    EXPECT_EQ(SlotOf(&IQELImageDIB::Fill), 9);
    EXPECT_EQ(SlotOf(&IQELImagePalette::GetPalette), 4);
    EXPECT_EQ(SlotOf(&ITransform::TransformPoint), 3);
}

TEST(InterfaceSlots, HostServicesCalledByTheModule) {
    EXPECT_EQ(SlotOf(&IComponentCollection::GetItem), 4);
    EXPECT_EQ(SlotOf(&IComponentCollection::FindItem), 5);
    EXPECT_EQ(SlotOf(&IComponentCollection::CreateComponent), 16);
    EXPECT_EQ(SlotOf(&IComponentString::CreateInstance), 5);
    EXPECT_EQ(SlotOf(&IComponentString::SetPart), 6);
    EXPECT_EQ(SlotOf(&ICreatableString::AppendChars), 5);
}

}  // namespace
