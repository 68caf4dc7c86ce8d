// Where a host looks for the module: the build tree beside the program, an
// installation relative to it, the installation it was built against, or the
// folder the user names in QEL_MODULE_DIR; and which folder a failed load
// names when none holds the module.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>

#include "qel/host.h"

namespace {

// Folders of the throwaway tree that may hold the module; bin/ is the program's.
enum : int { kBuildTree = 1, kRelative = 2, kInstalled = 4 };
const char* const kFolders[] = {"/bin/_binLIN64", "/lib/qelimaging", "/opt/qel"};

TEST(ModuleFolder, ChoosesTheFirstFolderHoldingTheModuleInOrder) {
    char pattern[] = "/tmp/qel-module-folder-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const std::string root = pattern;
    for (const char* folder : {"/bin", "/bin/_binLIN64", "/lib", "/lib/qelimaging", "/opt", "/opt/qel"})
        ASSERT_EQ(mkdir((root + folder).c_str(), 0700), 0);
    // A leading '~' in a row stands for the tree's root.
    auto At = [&](const char* path) { return path[0] == '~' ? root + (path + 1) : std::string(path); };
    struct Case {
        int modules;
        const char *chosen, *relative, *installed, *expected;
    };
    const Case cases[] = {
        {kBuildTree | kRelative | kInstalled, nullptr, "../lib/qelimaging", "~/opt/qel", "~/bin/_binLIN64"},
        {kBuildTree | kRelative | kInstalled, "", "../lib/qelimaging", "~/opt/qel", "~/bin/_binLIN64"},
        {kRelative | kInstalled, nullptr, "../lib/qelimaging", "~/opt/qel", "~/bin/../lib/qelimaging"},
        // A relative folder without the module is passed over.
        {kRelative | kInstalled, nullptr, "../lib/other", "~/opt/qel", "~/opt/qel"},
        {kInstalled, nullptr, nullptr, "~/opt/qel", "~/opt/qel"},
        {kInstalled, nullptr, "", "~/opt/qel", "~/opt/qel"},
        // The folder the user names wins even without the module.
        {kBuildTree, "/nowhere/qel", "../lib/qelimaging", nullptr, "/nowhere/qel"},
        // A failed search names the installed folder, else the build tree.
        {0, nullptr, "../lib/qelimaging", "/usr/lib/qelimaging", "/usr/lib/qelimaging"},
        {0, nullptr, "../lib/qelimaging", nullptr, "~/bin/_binLIN64"},
        {0, nullptr, nullptr, "", "~/bin/_binLIN64"},
    };
    for (size_t row = 0; row < std::size(cases); ++row) {
        const Case& c = cases[row];
        for (int folder = 0; folder < 3; ++folder) {
            const std::string module = root + kFolders[folder] + "/QELImaging.so";
            std::remove(module.c_str());
            if ((c.modules & 1 << folder) != 0) std::fclose(std::fopen(module.c_str(), "w"));
        }
        const std::string installed = c.installed != nullptr ? At(c.installed) : "";
        EXPECT_EQ(qel::ChooseModuleFolder(c.chosen, root + "/bin", c.relative,
                                          c.installed != nullptr ? installed.c_str() : nullptr),
                  At(c.expected))
            << "row " << row;
    }
    std::system(("rm -rf '" + root + "'").c_str());
}

TEST(FindModuleFolder, ReadsQelModuleDirFromTheEnvironment) {
    ASSERT_EQ(setenv("QEL_MODULE_DIR", "/somewhere/qelimaging", 1), 0);
    EXPECT_EQ(qel::FindModuleFolder(), "/somewhere/qelimaging");
    ASSERT_EQ(unsetenv("QEL_MODULE_DIR"), 0);
    EXPECT_EQ(qel::FindModuleFolder(), qel::DefaultModuleFolder());
}

}  // namespace
