// The module's binary interface: slot positions of every interface operation,
// interface identifiers derived from names, and the two exports with the
// object base exactly as a host uses them through dlopen.
#include <gtest/gtest.h>

#include <cstring>

#include "module/iids.h"
#include "qel/qel.h"
#include "support/test_image.h"

namespace {

using qeltest::TestHost;

// In the Itanium C++ ABI a pointer to a virtual member function holds 1 + the
// byte offset of its vtable slot. Hosts call by position, so a reordered
// declaration breaks them although everything still compiles.
template <class Method>
int SlotOf(Method method) {
    static_assert(sizeof(Method) == 2 * sizeof(uintptr_t), "pointer to member function layout");
    uintptr_t words[2];
    std::memcpy(words, &method, sizeof(words));
    EXPECT_EQ(words[0] % sizeof(void*), 1u) << "not a virtual function";
    return static_cast<int>((words[0] - 1) / sizeof(void*));
}
// The methods hold consecutive slots from `first`.
template <class... Methods>
void ExpectSlots(int first, Methods... methods) {
    for (int slot : {SlotOf(methods)...}) EXPECT_EQ(slot, first++);
}

TEST(InterfaceSlots, EveryOperationAHostOrTheModuleCalls) {
    using C = IQELColorTransform;
    using T = IQELTransform;
    using F = IQELFilterTransform;
    using M = IQELMaths;
    ExpectSlots(0, &IUnknown::QueryInterface, &IUnknown::AddRef, &IUnknown::Release, &IObjectInfo::GetName);
    ExpectSlots(3, &C::Colorize, &C::Lut, &C::Negative, &C::GrayScale, &C::ShiftRGB, &C::Gamma, &C::Light,
                &C::SetImageAlpha, &C::SetImageAlphaTransparency, &C::SetImageTransparentPixel,
                &C::Threshold);
    ExpectSlots(3, &T::Flip, &T::Mirror, &T::Rotate, &T::Skew, &T::Resample, &T::IncreaseBpp, &T::RotatePaste,
                &T::FlipBits, &T::Quad, &T::Transform, &T::TransformPaste, &T::FlipImageAndBits);
    ExpectSlots(3, &IQELDeform::CircleTransform);
    ExpectSlots(3, &F::Erode, &F::Edge, &F::Dilate, &F::Filter, &F::Contour, &F::Jitter, &F::Noise,
                &F::Median, &F::Emboss, &F::Blur, &F::Soften, &F::Sharpen, &F::GaussianBlur);
    ExpectSlots(3, &M::Equal, &M::Copy, &M::AddScale, &M::Scale, &M::Subtract, &M::CreateDestImage, &M::Add,
                &M::Scale8);
    ExpectSlots(3, &IQEL::GetSize, &IQEL::GetFormat, &IQEL::GetBits, &IQEL::Create);
    ExpectSlots(8, &IQELImage::Assign, &IQELImageDIB::Fill);
    ExpectSlots(4, &IQELImagePalette::GetPalette);
    ExpectSlots(3, &ITransform::TransformPoint);
    ExpectSlots(4, &IComponentCollection::GetItem, &IComponentCollection::FindItem);
    ExpectSlots(16, &IComponentCollection::CreateComponent);
    ExpectSlots(5, &IComponentString::CreateInstance, &IComponentString::SetPart);
    ExpectSlots(5, &ICreatableString::AppendChars);
}

TEST(IIDOfc, FiveBitLettersCodesForOtherCharactersAndTheWideFour) {
    // Letters are 1 to 26, five bits each, the first in the lowest bits: "ABC"
    // is 1 | 2 << 5 | 3 << 10 = 0x0C41. '0' is 28, '3' is 31, other characters
    // 27; '4' is 32, six bits wide, so 'A' after it sets the same bit.
    const std::pair<const char*, uint32_t> firstWords[] = {
        {"", 0},        {"A", 1},  {"AB", 0x41}, {"ABC", 0x0C41}, {"Z", 0x1A},  {"_", 0x1B},   {"9", 0x1B},
        {"\xC3", 0x1B}, {"0", 28}, {"3", 31},    {"4", 0x20},     {"4A", 0x20}, {"B4", 0x0402}};
    for (const auto& c : firstWords)
        EXPECT_EQ(__IIDOfc(c.first), (IID{{c.second, 0, 0, 0}})) << '"' << c.first << '"';
    // 25 letters fill 125 bits: the top three stay clear, case is folded and later letters do not count.
    const IID zs = {{0xB5AD6B5A, 0xAD6B5AD6, 0x6B5AD6B5, 0x1AD6B5AD}};
    for (const char* name :
         {"ZZZZZZZZZZZZZZZZZZZZZZZZZ", "ZZZZZZZZZZZZZZZZZZZZZZZZZA", "zzzzzzzzzzzzzzzzzzzzzzzzz"})
        EXPECT_EQ(__IIDOfc(name), zs) << name;
    // IUnknown's identifier is the conventional one, not made from its name.
    EXPECT_EQ(IID_IUnknown, (IID{{0, 0, 0xC0, 0x46000000}}));
}

QResult Lookup(const wchar_t* text, uint64_t length, QELCreateInstanceFn* out) {
    return TestHost().ModuleCreateFunction()(tagREFString{length, text}, out);
}

TEST(CreateFunction, MatchesTheExactCaseSensitiveNameByTheLow32BitsOfItsLength) {
    QELCreateInstanceFn maths = nullptr;
    ASSERT_EQ(Lookup(L"QELMaths", 8, &maths), QEL_OK);
    QELCreateInstanceFn untouched = reinterpret_cast<QELCreateInstanceFn>(0x1234);
    const std::pair<const wchar_t*, uint64_t> misses[] = {
        {L"QELMaths", 7}, {L"QELMathsX", 9}, {L"QELMath", 7}, {L"qelmaths", 8},
        {L"QELMATHS", 8}, {L"", 0},          {nullptr, 0}};
    for (const auto& miss : misses) EXPECT_EQ(Lookup(miss.first, miss.second, &untouched), QEL_E_FAIL);
    EXPECT_EQ(untouched, reinterpret_cast<QELCreateInstanceFn>(0x1234)) << "*out written on failure";
    QELCreateInstanceFn wide = nullptr;
    EXPECT_EQ(Lookup(L"QELMaths", (uint64_t{1} << 32) + 8, &wide), QEL_OK);
    EXPECT_EQ(wide, maths);
}

struct Component {
    const wchar_t* name;
    const IID* own;
    const IID* foreign;
};
const Component kComponents[] = {
    {L"QELFilterTransform", &qel::iid::IQELFilterTransform, &qel::iid::IQELMaths},
    {L"QELDeform", &qel::iid::IQELDeform, &qel::iid::IQELTransform},
    {L"QELTransform", &qel::iid::IQELTransform, &qel::iid::IQELDeform},
    {L"QELMaths", &qel::iid::IQELMaths, &qel::iid::IQELColorTransform},
    {L"QELColorTransform", &qel::iid::IQELColorTransform, &qel::iid::IQELMaths},
};

TEST(CreateInstance, EachComponentAnswersItsOwnInterfacesWithOneIdentityCountedReferencesAndItsName) {
    for (const Component& component : kComponents) {
        QELCreateInstanceFn create = nullptr;
        ASSERT_EQ(TestHost().ModuleCreateFunction()(qel::REF(component.name), &create), QEL_OK);
        for (const IID* iid : {&qel::iid::IUnknown, &qel::iid::IObjectInfo, component.own}) {
            IUnknown* object = nullptr;
            ASSERT_EQ(create(nullptr, iid, reinterpret_cast<void**>(&object)), QEL_OK);
            EXPECT_EQ(object->AddRef(), 2u);
            EXPECT_EQ(object->Release(), 1u);
            EXPECT_EQ(object->Release(), 0u);
        }
        for (const IID* iid : {component.foreign, &qel::iid::IQELImage, &QEL_IID_NULL}) {
            void* object = reinterpret_cast<void*>(0x1);
            EXPECT_EQ(create(nullptr, iid, &object), QEL_E_NOINTERFACE);
            EXPECT_EQ(object, nullptr);
        }
        // IUnknown through either pointer is the one primary pointer, neither of the two.
        SmartPtr<IUnknown> own;
        ASSERT_EQ(create(nullptr, component.own, own.OutVoid()), QEL_OK);
        SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(own.Get(), qel::iid::IObjectInfo);
        SmartPtr<IUnknown> primary = QueryAs<IUnknown>(info.Get(), qel::iid::IUnknown);
        EXPECT_EQ(QueryAs<IUnknown>(own.Get(), qel::iid::IUnknown).Get(), primary.Get());
        EXPECT_NE(static_cast<void*>(primary.Get()), static_cast<void*>(info.Get()));
        EXPECT_NE(primary.Get(), own.Get());
        EXPECT_EQ(QueryAs<IUnknown>(info.Get(), *component.own).Get(), own.Get());
        void* foreign = reinterpret_cast<void*>(0x1);
        EXPECT_EQ(own->QueryInterface(*component.foreign, &foreign), QEL_E_NOINTERFACE);
        EXPECT_EQ(foreign, nullptr);
        EXPECT_EQ(qeltest::RefCountOf(own.Get()), 3u) << "own, info and primary";
        for (int index : {0, 7, -3}) {
            tagREFString name{};
            EXPECT_EQ(info->GetName(index, &name), QEL_OK);
            EXPECT_EQ(std::wstring(name.text, name.length), std::wstring(component.name));
        }
    }
}

}  // namespace
