// The module's client side of the host services: loading the collections
// module by the folder rule, its failure message and retry, and the two roads
// to a new image. Loader state and the module's caches are process-wide, so
// each case runs in a child process of its own, as a death test.
#include "module/host_services.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "module/iids.h"
#include "support/forwarding_collection.h"
#include "support/test_image.h"

extern "C" QResult InitializeModule(void* reserved, IComponentCollection* collection);

namespace {

// Runs `body` as a death test's child, with standard output joined to the
// stream the test's pattern checks, and exits with the code it returns.
[[noreturn]] void ExitWith(const std::function<int()>& body) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    const int code = body();
    std::fflush(stdout);
    _exit(code);
}

// A missing module gives one line naming it and the loader's reason each time
// it is asked for; names too long for the path buffer are refused before the
// loader; a module found is asked for the component.
TEST(ModuleCreateFunction, ReportsMissingModulesRetriesAndRefusesNamesBeyondThePathBuffer) {
    const std::string build = std::filesystem::current_path();
    EXPECT_EXIT(
        ExitWith([&] {
            // The root holds no module folder.
            if (chdir("/") != 0) return 10;
            if (GLOBALComponents() != nullptr) return 11;
            if (GLOBALComponents() != nullptr) return 12;
            // 12 + 248 + 3 + 1 = 264 bytes fits; 249 characters would not.
            for (size_t length : {size_t{248}, size_t{249}, size_t{100000}}) {
                const std::wstring name(length, L'x');
                if (MODULECreateFunction(tagREFString{name.size(), name.c_str()}, qel::REF(L"Anything")) !=
                    nullptr)
                    return 13;
            }
            // Once a module folder is in reach, the next call loads it.
            if (chdir(build.c_str()) != 0) return 14;
            SmartPtr<IComponentCollection> collection(GLOBALComponents());
            SmartPtr<IComponentCollection> again(GLOBALComponents());
            if (!collection || again.Get() != collection.Get()) return 15;
            QELCreateInstanceFn create =
                MODULECreateFunction(qel::REF(L"CollectionsEx"), qel::REF(L"QELImageDIB"));
            SmartPtr<IQELImage> image;
            if (create == nullptr || create(nullptr, &IID_IQELImage, image.OutVoid()) != QEL_OK || !image)
                return 16;
            // An unknown component gives a null creation function, without a message.
            return MODULECreateFunction(qel::REF(L"CollectionsEx"), qel::REF(L"NoSuchThing")) == nullptr ? 0
                                                                                                         : 17;
        }),
        ::testing::ExitedWithCode(0),
        // One line per failed attempt, with the loader's own message; only the name that fits
        // reaches the loader.
        "^(Module not available \\./_binLIN64/CollectionsEx\\.so, error [^\n]*CollectionsEx\\.so: "
        "cannot open shared object file[^\n]*\n){2}"
        "Module not available \\./_binLIN64/x{248}\\.so, error [^\n]*\n$");
}

// The collection handed over is held once, however often it is handed over,
// until another or none takes its place.
TEST(CreateImageDIB, HoldsTheCollectionHandedOverResolvesTheLocatorOnceElseUsesTheFolderRule) {
    IComponentCollection* host = qeltest::TestHost().Collection();
    EXPECT_EXIT(ExitWith([&] {
                    // No module folder is in reach, so a load attempt would print its failure.
                    if (chdir("/") != 0) return 9;
                    qeltest::ForwardingCollection proxy(host), other;
                    InitializeModule(nullptr, &proxy);
                    InitializeModule(nullptr, &proxy);
                    if (proxy.refs != 2 || SmartPtr<IComponentCollection>(GLOBALComponents()).Get() != &proxy)
                        return 17;
                    SmartPtr<IQELImageDIB> first = NewImageDIB();
                    SmartPtr<IQELImageDIB> second = NewImageDIB();
                    SmartPtr<IQELImageDIB> third = NewImageDIB();
                    if (!first || !second || !third) return 10;
                    if (first.Get() == second.Get() || second.Get() == third.Get()) return 11;
                    if (proxy.findItemCalls != 1) return 12;
                    if (qeltest::RefCountOf(first.Get()) != 1) return 13;
                    // The string locator came from the collection (a null interface id asks for it).
                    if (proxy.createComponentCalls != 1) return 14;
                    SmartPtr<IQELImage> viaCollection = NewImageThroughCollection();
                    if (!viaCollection || proxy.createComponentCalls != 2) return 15;
                    if (viaCollection->Create(3, 2, 1, 24, QEL_MODEL_BGR) != QEL_OK) return 16;
                    InitializeModule(nullptr, &other);
                    if (proxy.refs != 1 || other.refs != 2) return 18;
                    InitializeModule(nullptr, nullptr);
                    return other.refs == 1 ? 0 : 19;
                }),
                ::testing::ExitedWithCode(0), "^$");
    // With no collection handed over, the runtime is found by the folder rule.
    EXPECT_EXIT(ExitWith([] {
                    SmartPtr<IQELImageDIB> image = NewImageDIB();
                    if (!image || image->Create(2, 2, 1, 8, QEL_MODEL_MONO) != QEL_OK) return 10;
                    return NewImageThroughCollection() ? 0 : 11;
                }),
                ::testing::ExitedWithCode(0), "^$");
}

// The string locator made through the folder rule is kept for the life of the
// process: besides the holder's reference it takes one that is never
// released, so the holder's release at exit leaves it alive. The stand-in
// collections module in tests/doubles/counting_runtime.cpp counts the
// locator's references and records its parts.
TEST(CreateString, FallbackLocatorTookNoReferenceOfItsOwn) {
    const std::string folder = std::filesystem::current_path() / "tests/counting_runtime";
    EXPECT_EXIT(
        ExitWith([&] {
            if (chdir(folder.c_str()) != 0) return 10;
            // The stand-in makes no strings: only the locator's references matter here.
            CREFString::CreateString();
            void* runtime = dlopen("./_binLIN64/CollectionsEx.so", RTLD_NOW | RTLD_NOLOAD);
            auto references = reinterpret_cast<int (*)()>(dlsym(runtime, "CountingLocatorReferences"));
            auto parts = reinterpret_cast<const wchar_t* (*)()>(dlsym(runtime, "CountingLocatorParts"));
            if (references == nullptr || parts == nullptr) return 12;
            std::printf("after the first string: %d\n", references());
            CREFString::CreateString();
            std::printf("after the second: %d, parts %ls\n", references(), parts());
            std::exit(0);  // static destructors run: the holder lets go of its reference
        }),
        ::testing::ExitedWithCode(0),
        "^after the first string: 2\nafter the second: 2, parts 4:Collections;1:CreatableString;\n$");
}

}  // namespace
