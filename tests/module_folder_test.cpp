// Where a host looks for the module: the build tree beside the program, an
// installation relative to it, the installation it was built against, or the
// folder the user names in QEL_MODULE_DIR; and which folder a failed load
// names when none holds the module.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "qel/host.h"

namespace {

// A throwaway tree: bin/ (the program's folder), bin/_binLIN64,
// lib/qelimaging and opt/qel, each made to hold the module on demand.
class ModuleFolderTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/qel-module-folder-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root_ = pattern;
        for (const char* folder : {"/bin", "/bin/_binLIN64", "/lib", "/lib/qelimaging", "/opt", "/opt/qel"})
            ASSERT_EQ(mkdir((root_ + folder).c_str(), 0700), 0);
    }
    void TearDown() override {
        for (const char* file : {"/bin/_binLIN64/QELImaging.so", "/lib/qelimaging/QELImaging.so",
                                 "/opt/qel/QELImaging.so"})
            std::remove((root_ + file).c_str());
        for (const char* folder : {"/bin/_binLIN64", "/bin", "/lib/qelimaging", "/lib", "/opt/qel", "/opt", ""})
            rmdir((root_ + folder).c_str());
    }
    void PutModule(const std::string& folder) {
        FILE* file = std::fopen((root_ + folder + "/QELImaging.so").c_str(), "w");
        ASSERT_NE(file, nullptr);
        std::fclose(file);
    }
    std::string Choose(const char* chosen, const char* relative, const char* installed) {
        return qel::ChooseModuleFolder(chosen, root_ + "/bin", relative, installed);
    }
    std::string root_;
};

TEST_F(ModuleFolderTest, BuildTreeBesideTheProgramComesFirst) {
    PutModule("/bin/_binLIN64");
    PutModule("/lib/qelimaging");
    PutModule("/opt/qel");
    const std::string installed = root_ + "/opt/qel";
    EXPECT_EQ(Choose(nullptr, "../lib/qelimaging", installed.c_str()), root_ + "/bin/_binLIN64");
    EXPECT_EQ(Choose("", "../lib/qelimaging", installed.c_str()), root_ + "/bin/_binLIN64");
}

TEST_F(ModuleFolderTest, InstalledProgramFindsTheModuleRelativeToItself) {
    PutModule("/lib/qelimaging");
    PutModule("/opt/qel");
    const std::string installed = root_ + "/opt/qel";
    EXPECT_EQ(Choose(nullptr, "../lib/qelimaging", installed.c_str()), root_ + "/bin/../lib/qelimaging");
    // A relative folder without the module is passed over.
    EXPECT_EQ(Choose(nullptr, "../lib/other", installed.c_str()), installed);
}

TEST_F(ModuleFolderTest, HostBuiltAgainstAnInstallationUsesItsFolder) {
    PutModule("/opt/qel");
    const std::string installed = root_ + "/opt/qel";
    EXPECT_EQ(Choose(nullptr, nullptr, installed.c_str()), installed);
    EXPECT_EQ(Choose(nullptr, "", installed.c_str()), installed);
}

TEST_F(ModuleFolderTest, FolderNamedByTheUserWinsEvenWithoutTheModule) {
    PutModule("/bin/_binLIN64");
    EXPECT_EQ(Choose("/nowhere/qel", "../lib/qelimaging", nullptr), "/nowhere/qel");
}

TEST_F(ModuleFolderTest, FailedSearchNamesTheInstalledFolderElseTheBuildTree) {
    EXPECT_EQ(Choose(nullptr, "../lib/qelimaging", "/usr/lib/qelimaging"), "/usr/lib/qelimaging");
    EXPECT_EQ(Choose(nullptr, "../lib/qelimaging", nullptr), root_ + "/bin/_binLIN64");
    EXPECT_EQ(Choose(nullptr, nullptr, ""), root_ + "/bin/_binLIN64");
}

TEST(FindModuleFolder, ReadsQelModuleDirFromTheEnvironment) {
    ASSERT_EQ(setenv("QEL_MODULE_DIR", "/somewhere/qelimaging", 1), 0);
    EXPECT_EQ(qel::FindModuleFolder(), "/somewhere/qelimaging");
    ASSERT_EQ(unsetenv("QEL_MODULE_DIR"), 0);
    EXPECT_EQ(qel::FindModuleFolder(), qel::DefaultModuleFolder());
}

}  // namespace
