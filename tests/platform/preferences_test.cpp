// Preferences from the environment and from qv.ini, where qv.ini is found, and the
// installation root.
#include "capture.hpp"
#include "platform/paths.hpp"
#include "qv/platform.h"

namespace {

using namespace qvtest;

const char *const ini_text = "# comment line\r\n; another comment\n[general]\nPLAIN=value\n"
                             "  Spaced\t=  a b  \r\nQUOTED = \"  padded \"\nEMPTY=\n"
                             "#COMMENTED=no\nno equals sign here\n[other]\nplain=second\n"
                             "EQUALS=a=b\nLAST=no line feed";

const struct {
    const char *name;
    const char *expected; // "<null>": not set
} ini_cases[] = {
    {"PLAIN", "value"},
    {"plain", "value"},
    {"SPACED", "a b"},
    {"QUOTED", "  padded "},
    {"EMPTY", ""},
    {"COMMENTED", "<null>"},
    {"#COMMENTED", "<null>"},
    {"general", "<null>"},
    {"no equals sign here", "<null>"},
    {"EQUALS", "a=b"},
    {"LAST", "no line feed"},
    {"MISSING", "<null>"},
};

class PreferencesTest : public ::testing::Test {
  protected:
    TempDirectory directory;
    fs::path ini = directory / "qv.ini";
    ScopedEnvironment qv_ini{"QV_INI", ini.c_str()}, root{"QV_INSTALL_ROOT", nullptr},
        plain{"PLAIN", nullptr};

    void SetUp() override {
        write_file(ini, ini_text);
        for (const auto &c : ini_cases) unsetenv(c.name);
    }
};

TEST_F(PreferencesTest, IniLinesAreReadByTheDocumentedFormat) {
    for (const auto &c : ini_cases) EXPECT_EQ(take(GetPreference_L(c.name)), c.expected) << c.name;
}

TEST_F(PreferencesTest, TheEnvironmentComesBeforeTheFile) {
    setenv("PLAIN", "from environment", 1);
    EXPECT_EQ(take(GetPreference_L("PLAIN")), "from environment");
    EXPECT_EQ(take(GetExternalPreference_L("PLAIN")), "value");
    setenv("PLAIN", "", 1);
    EXPECT_EQ(take(GetPreference_L("PLAIN")), "");
    EXPECT_EQ(GetExternalPreference_L("QV_INI"), nullptr); // environment only
}

TEST_F(PreferencesTest, BadNamesAndMissingFilesGiveNull) {
    EXPECT_EQ(GetPreference_L(nullptr), nullptr);
    EXPECT_EQ(GetPreference_L(""), nullptr);
    EXPECT_EQ(GetExternalPreference_L(nullptr), nullptr);
    EXPECT_EQ(take(GetPreferenceFilePath_L()), ini.string());
    setenv("QV_INI", (directory / "absent.ini").c_str(), 1);
    EXPECT_EQ(GetPreference_L("PLAIN"), nullptr);
    EXPECT_EQ(GetPreferenceFilePath_L(), nullptr);
    setenv("QV_INI", directory.path.c_str(), 1); // a directory, not a file
    EXPECT_EQ(GetPreference_L("PLAIN"), nullptr);
}

// Each allocation of a file read (paths, the line, the copy) fails in turn: ALLOC_FAILURE is
// raised and nothing leaks; the last run reads the value.
TEST_F(PreferencesTest, AllocationFailuresRaiseAllocFailure) {
    char *value = nullptr;
    auto raised = fail_each_allocation([&] { value = GetPreference_L("LAST"); },
                                       [&] {
                                           std::free(value);
                                           value = nullptr;
                                       });
    EXPECT_GT(raised.size(), 3u);
    EXPECT_THAT(raised, ::testing::Each(ALLOC_FAILURE));
    EXPECT_EQ(take(value), "no line feed");
}

TEST_F(PreferencesTest, TheInstallRootAndTheIniFileBesideIt) {
    // The tests link the library statically into a program outside any lib folder.
    EXPECT_EQ(take(GetInstallRoot_L()), QV_INSTALL_DATADIR);
    std::ofstream(ini, std::ios::app) << "\nQV_INSTALL_ROOT=/opt/quillon/share/\n";
    EXPECT_EQ(take(GetInstallRoot_L()), "/opt/quillon/share");

    unsetenv("QV_INI"); // then qv.ini is looked for beside the install root
    fs::create_directories(directory / "share/quillon");
    write_file(directory / "share/quillon/qv.ini", "PLAIN = installed\n");
    setenv("QV_INSTALL_ROOT", (directory.path.string() + "/share/").c_str(), 1);
    EXPECT_EQ(take(GetPreference_L("PLAIN")), "installed");
    EXPECT_EQ(take(GetPreferenceFilePath_L()), (directory / "share/quillon/qv.ini").string());
    EXPECT_EQ(take(GetInstallRoot_L()), (directory / "share").string());
}

TEST(InstallPrefix, LibraryFoldersGiveThePrefixAboveThem) {
    const struct {
        const char *library;
        const char *prefix; // "<none>": not in a library folder
    } cases[] = {
        {"/usr/lib/libqvcommon.so.1", "/usr"},
        {"/opt/q/lib/x86_64-linux-gnu/libqvcommon.so", "/opt/q"},
        {"/opt/q/lib64/libqvcommon.so", "/opt/q"},
        {"/usr/lib/q/lib/libqvcommon.so", "/usr/lib/q"},
        {"/lib/libqvcommon.so", ""},
        {"/work/build/libqvcommon.so", "<none>"},
        {"/work/library/libqvcommon.so", "<none>"},
        {"libqvcommon.so", "<none>"},
        {"", "<none>"},
    };
    for (const auto &c : cases)
        EXPECT_EQ(qv::install_prefix_of(c.library).value_or("<none>"), c.prefix) << c.library;
}

TEST(ExecutableDirectory, IsTheDirectoryOfTheRunningProgram) {
    EXPECT_EQ(take(GetExecutableDirectory_L()),
              fs::canonical("/proc/self/exe").parent_path().string());
}

} // namespace
