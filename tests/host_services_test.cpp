// The module's client side of the host services: loading the collections
// module by the folder rule, its failure message and retry, and the two roads
// to a new image. Loader state and the module's caches are process-wide, so
// each case runs in a child process of its own.
#include "module/host_services.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "module/iids.h"
#include "support/forwarding_collection.h"
#include "support/test_image.h"

extern "C" QResult InitializeModule(void* reserved, IComponentCollection* collection);

namespace {

struct ChildResult {
    int exitCode = -1;
    std::string output;
};

// Runs `body` in a forked child with standard output captured; the child's
// exit code is what `body` returns.
ChildResult RunInChild(const std::function<int()>& body) {
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) return {};
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        close(pipeEnds[0]);
        dup2(pipeEnds[1], STDOUT_FILENO);
        const int code = body();
        std::fflush(stdout);
        _exit(code);
    }
    close(pipeEnds[1]);
    ChildResult result;
    char buffer[512];
    ssize_t got;
    while ((got = read(pipeEnds[0], buffer, sizeof(buffer))) > 0)
        result.output.append(buffer, static_cast<size_t>(got));
    close(pipeEnds[0]);
    int status = 0;
    waitpid(child, &status, 0);
    result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

// A fresh, empty working directory, removed with what the test left in it.
class ScratchDirectory {
public:
    ScratchDirectory() {
        char pattern[] = "/tmp/qel-host-XXXXXX";
        const char* made = mkdtemp(pattern);
        path_ = made != nullptr ? made : "";
    }
    ~ScratchDirectory() { std::system(("rm -rf '" + path_ + "'").c_str()); }
    const char* c_str() const { return path_.c_str(); }

private:
    std::string path_;
};

std::string BuildFolder() {
    char path[PATH_MAX];
    return getcwd(path, sizeof(path)) != nullptr ? path : ".";
}

size_t Count(const std::string& text, const std::string& piece) {
    size_t count = 0;
    for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) ++count;
    return count;
}

// A missing module gives one line naming it and the loader's reason each time
// it is asked for; names too long for the path buffer are refused before the
// loader; a module found is asked for the component.
TEST(ModuleCreateFunction, ReportsMissingModulesRetriesAndRefusesNamesBeyondThePathBuffer) {
    const std::string build = BuildFolder();
    const ScratchDirectory scratch;
    const ChildResult result = RunInChild([&] {
        if (chdir(scratch.c_str()) != 0) return 10;
        if (GLOBALComponents() != nullptr) return 11;
        if (GLOBALComponents() != nullptr) return 12;
        // 12 + 248 + 3 + 1 = 264 bytes fits; 249 characters would not.
        for (size_t length : {size_t{248}, size_t{249}, size_t{100000}}) {
            const std::wstring name(length, L'x');
            if (MODULECreateFunction(tagREFString{name.size(), name.c_str()}, qel::REF(L"Anything")) !=
                nullptr)
                return 13;
        }
        // Once the module folder appears, the next call loads it.
        if (symlink((build + "/_binLIN64").c_str(), "_binLIN64") != 0) return 14;
        SmartPtr<IComponentCollection> collection(GLOBALComponents());
        SmartPtr<IComponentCollection> again(GLOBALComponents());
        if (!collection || again.Get() != collection.Get()) return 15;
        QELCreateInstanceFn create =
            MODULECreateFunction(qel::REF(L"CollectionsEx"), qel::REF(L"QELImageDIB"));
        SmartPtr<IQELImage> image;
        if (create == nullptr || create(nullptr, &IID_IQELImage, image.OutVoid()) != QEL_OK || !image)
            return 16;
        // An unknown component gives a null creation function, without a message.
        return MODULECreateFunction(qel::REF(L"CollectionsEx"), qel::REF(L"NoSuchThing")) == nullptr ? 0 : 17;
    });
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(Count(result.output, "Module not available ./_binLIN64/CollectionsEx.so, error "), 2u)
        << result.output;
    EXPECT_EQ(
        Count(result.output, "Module not available ./_binLIN64/" + std::string(248, 'x') + ".so, error"), 1u);
    EXPECT_EQ(Count(result.output, "\n"), 3u) << "one line per failed attempt:\n" << result.output;
    EXPECT_NE(result.output.find("CollectionsEx.so: cannot open shared object file"), std::string::npos)
        << "the loader's own message follows:\n"
        << result.output;
}

TEST(CreateImageDIB, ResolvesTheLocatorOnceOrFindsTheRuntimeByTheFolderRule) {
    IComponentCollection* host = qeltest::TestHost().Collection();
    const ScratchDirectory scratch;
    const ChildResult result = RunInChild([&] {
        // No module folder is in reach, so a load attempt would print its failure.
        if (chdir(scratch.c_str()) != 0) return 9;
        qeltest::ForwardingCollection proxy(host);
        InitializeModule(nullptr, &proxy);
        if (SmartPtr<IComponentCollection>(GLOBALComponents()).Get() != &proxy) return 17;
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
        InitializeModule(nullptr, nullptr);
        return 0;
    });
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(result.output, "") << "the handed-over collection is used without loading anything";
    // With no collection handed over, the runtime is found by the folder rule.
    const ChildResult alone = RunInChild([] {
        SmartPtr<IQELImageDIB> image = NewImageDIB();
        if (!image || image->Create(2, 2, 1, 8, QEL_MODEL_MONO) != QEL_OK) return 10;
        return NewImageThroughCollection() ? 0 : 11;
    });
    EXPECT_EQ(alone.exitCode, 0) << alone.output;
    EXPECT_EQ(alone.output, "");
}

// The string locator made through the folder rule is kept for the life of the
// process: besides the holder's reference it takes one that is never
// released, so the holder's release at exit leaves it alive. The stand-in
// collections module in tests/counting_runtime counts the locator's
// references and records its parts.
TEST(CreateString, FallbackLocatorTookNoReferenceOfItsOwn) {
    const std::string folder = BuildFolder() + "/tests/counting_runtime";
    const ChildResult result = RunInChild([&] {
        if (chdir(folder.c_str()) != 0) return 10;
        SmartPtr<ICreatableString> first(CREFString::CreateString());
        if (!first) return 11;
        void* runtime = dlopen("./_binLIN64/CollectionsEx.so", RTLD_NOW | RTLD_NOLOAD);
        auto references = reinterpret_cast<int (*)()>(dlsym(runtime, "CountingLocatorReferences"));
        auto parts = reinterpret_cast<const wchar_t* (*)()>(dlsym(runtime, "CountingLocatorParts"));
        if (references == nullptr || parts == nullptr) return 12;
        std::printf("after the first string: %d\n", references());
        SmartPtr<ICreatableString> second(CREFString::CreateString());
        std::printf("after the second: %d, parts %ls\n", references(), parts());
        first.Reset();
        second.Reset();
        std::exit(0);  // static destructors run: the holder lets go of its reference
    });
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(result.output,
              "after the first string: 2\nafter the second: 2, parts 4:Collections;1:CreatableString;\n");
}

}  // namespace
