// The module's entry points and object base, exercised through dlopen and
// the two exports exactly as a host uses them.
#include <gtest/gtest.h>

#include "support/forwarding_collection.h"
#include "support/test_image.h"

namespace {

using qeltest::TestHost;

QResult Lookup(const wchar_t* text, uint64_t length, QELCreateInstanceFn* out) {
    return TestHost().ModuleCreateFunction()(tagREFString{length, text}, out);
}

TEST(CreateFunction, MatchesExactLengthOnly) {
    QELCreateInstanceFn create = nullptr;
    EXPECT_EQ(Lookup(L"QELMaths", 8, &create), QEL_OK);
    EXPECT_NE(create, nullptr);

    // The same text with one character fewer or one more does not match.
    QELCreateInstanceFn untouched = reinterpret_cast<QELCreateInstanceFn>(0x1234);
    EXPECT_EQ(Lookup(L"QELMaths", 7, &untouched), QEL_E_FAIL);
    EXPECT_EQ(Lookup(L"QELMathsX", 9, &untouched), QEL_E_FAIL);
    EXPECT_EQ(Lookup(L"QELMath", 7, &untouched), QEL_E_FAIL);
    EXPECT_EQ(untouched, reinterpret_cast<QELCreateInstanceFn>(0x1234)) << "*out written on failure";
}

TEST(CreateFunction, IsCaseSensitiveAndRejectsEmptyNames) {
    QELCreateInstanceFn create = nullptr;
    EXPECT_EQ(Lookup(L"qelmaths", 8, &create), QEL_E_FAIL);
    EXPECT_EQ(Lookup(L"QELMATHS", 8, &create), QEL_E_FAIL);
    EXPECT_EQ(Lookup(L"", 0, &create), QEL_E_FAIL);
    EXPECT_EQ(Lookup(nullptr, 0, &create), QEL_E_FAIL);
    // Only the low 32 bits of the length count: 2^32 + 8 is length 8.
    EXPECT_EQ(Lookup(L"QELMaths", (uint64_t{1} << 32) + 8, &create), QEL_OK);
    EXPECT_EQ(create, [] {
        QELCreateInstanceFn maths = nullptr;
        Lookup(L"QELMaths", 8, &maths);
        return maths;
    }());
}

TEST(CreateFunction, ResolvesEveryComponentToItsOwnCreator) {
    const wchar_t* const names[] = {L"QELFilterTransform", L"QELDeform", L"QELTransform", L"QELMaths",
                                    L"QELColorTransform"};
    QELCreateInstanceFn seen[5] = {};
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(TestHost().ModuleCreateFunction()(qel::REF(names[i]), &seen[i]), QEL_OK) << i;
        for (int j = 0; j < i; ++j) EXPECT_NE(seen[i], seen[j]);
    }
}

struct ComponentCase {
    const wchar_t* name;
    const IID* own;
    const IID* foreign;
};

const ComponentCase kComponents[] = {
    {L"QELFilterTransform", &qel::iid::IQELFilterTransform, &qel::iid::IQELMaths},
    {L"QELDeform", &qel::iid::IQELDeform, &qel::iid::IQELTransform},
    {L"QELTransform", &qel::iid::IQELTransform, &qel::iid::IQELDeform},
    {L"QELMaths", &qel::iid::IQELMaths, &qel::iid::IQELColorTransform},
    {L"QELColorTransform", &qel::iid::IQELColorTransform, &qel::iid::IQELMaths},
};

QELCreateInstanceFn CreatorOf(const wchar_t* name) {
    QELCreateInstanceFn create = nullptr;
    TestHost().ModuleCreateFunction()(qel::REF(name), &create);
    return create;
}

TEST(CreateInstance, AnswersUnknownObjectInfoAndOwnInterfaceWithOneReference) {
    for (const ComponentCase& component : kComponents) {
        for (const IID* iid : {&qel::iid::IUnknown, &qel::iid::IObjectInfo, component.own}) {
            IUnknown* object = nullptr;
            ASSERT_EQ(CreatorOf(component.name)(nullptr, iid, reinterpret_cast<void**>(&object)), QEL_OK);
            ASSERT_NE(object, nullptr);
            EXPECT_EQ(object->AddRef(), 2u);
            EXPECT_EQ(object->Release(), 1u);
            EXPECT_EQ(object->Release(), 0u);
        }
    }
}

TEST(CreateInstance, RefusesOtherInterfacesWithNullOutput) {
    for (const ComponentCase& component : kComponents) {
        for (const IID* iid : {component.foreign, &qel::iid::IQELImage, &QEL_IID_NULL}) {
            void* object = reinterpret_cast<void*>(0x1);
            EXPECT_EQ(CreatorOf(component.name)(nullptr, iid, &object), QEL_E_NOINTERFACE);
            EXPECT_EQ(object, nullptr);
        }
    }
}

TEST(QueryInterface, CountsAndIdentityAcrossInterfacePointers) {
    SmartPtr<IQELColorTransform> colour =
        TestHost().Create<IQELColorTransform>(L"QELColorTransform", qel::iid::IQELColorTransform);
    ASSERT_TRUE(colour);
    SmartPtr<IObjectInfo> info = QueryAs<IObjectInfo>(colour.Get(), qel::iid::IObjectInfo);
    ASSERT_TRUE(info);
    EXPECT_EQ(qeltest::RefCountOf(colour.Get()), 2u);

    // IUnknown through the IObjectInfo pointer is the primary pointer, not
    // the IObjectInfo pointer itself.
    SmartPtr<IUnknown> primary = QueryAs<IUnknown>(info.Get(), qel::iid::IUnknown);
    SmartPtr<IUnknown> primaryAgain = QueryAs<IUnknown>(colour.Get(), qel::iid::IUnknown);
    EXPECT_EQ(primary.Get(), primaryAgain.Get());
    EXPECT_NE(static_cast<void*>(primary.Get()), static_cast<void*>(info.Get()));
    EXPECT_NE(static_cast<void*>(primary.Get()), static_cast<void*>(colour.Get()));
    EXPECT_EQ(qeltest::RefCountOf(colour.Get()), 4u);

    // Asking the own interface through IObjectInfo returns the same own pointer.
    SmartPtr<IQELColorTransform> own = QueryAs<IQELColorTransform>(info.Get(), qel::iid::IQELColorTransform);
    EXPECT_EQ(own.Get(), colour.Get());

    void* foreign = reinterpret_cast<void*>(0x1);
    EXPECT_EQ(colour->QueryInterface(qel::iid::IQELMaths, &foreign), QEL_E_NOINTERFACE);
    EXPECT_EQ(foreign, nullptr);
    EXPECT_EQ(qeltest::RefCountOf(colour.Get()), 5u);
}

TEST(GetName, ReturnsTheStaticObjectNameForAnyIndex) {
    for (const ComponentCase& component : kComponents) {
        SmartPtr<IObjectInfo> info = TestHost().Create<IObjectInfo>(component.name, qel::iid::IObjectInfo);
        ASSERT_TRUE(info);
        for (int index : {0, 7, -3}) {
            tagREFString name{};
            EXPECT_EQ(info->GetName(index, &name), QEL_OK);
            EXPECT_EQ(std::wstring(name.text, name.length), std::wstring(component.name));
        }
    }
    SmartPtr<IObjectInfo> deform = TestHost().Create<IObjectInfo>(L"QELDeform", qel::iid::IObjectInfo);
    tagREFString name{};
    deform->GetName(0, &name);
    EXPECT_EQ(name.length, 9u);
}

TEST(InitializeModule, KeepsExactlyOneReferenceToTheCollection) {
    QELInitializeModuleFn initialize = TestHost().ModuleInitialize();
    qeltest::ForwardingCollection collection;
    EXPECT_EQ(initialize(nullptr, &collection), QEL_OK);
    EXPECT_EQ(collection.refs, 2);
    EXPECT_EQ(initialize(nullptr, &collection), QEL_OK);
    EXPECT_EQ(collection.refs, 2) << "handing the same collection over twice must not leak or drop";

    qeltest::ForwardingCollection other;
    EXPECT_EQ(initialize(reinterpret_cast<void*>(0xdead), &other), QEL_OK);
    EXPECT_EQ(collection.refs, 1);
    EXPECT_EQ(other.refs, 2);
    EXPECT_EQ(initialize(nullptr, nullptr), QEL_OK);
    EXPECT_EQ(other.refs, 1);

    // Give the module its real collection back for the other tests.
    initialize(nullptr, TestHost().Collection());
}

}  // namespace
