// Preferences from the environment and from qv.ini, where qv.ini is found, and the
// installation root.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/paths.hpp"
#include "qv/platform.h"

namespace {

namespace fs = std::filesystem;

std::string take(char *heap_text) {
    std::string text = heap_text ? heap_text : "<null>";
    std::free(heap_text);
    return text;
}

const char *const ini_text = "# comment line\r\n"
                             "; another comment\n"
                             "[general]\n"
                             "PLAIN=value\n"
                             "  Spaced\t=  a b  \r\n"
                             "QUOTED = \"  padded \"\n"
                             "EMPTY=\n"
                             "#COMMENTED=no\n"
                             "no equals sign here\n"
                             "[other]\n"
                             "plain=second\n"
                             "EQUALS=a=b\n"
                             "LAST=no line feed";

struct IniCase {
    const char *name;
    const char *expected; // null: not set
};

const IniCase ini_cases[] = {
    {"PLAIN", "value"},
    {"plain", "value"},
    {"SPACED", "a b"},
    {"QUOTED", "  padded "},
    {"EMPTY", ""},
    {"COMMENTED", nullptr},
    {"#COMMENTED", nullptr},
    {"no equals sign here", nullptr},
    {"general", nullptr},
    {"EQUALS", "a=b"},
    {"LAST", "no line feed"},
    {"MISSING", nullptr},
};

class PreferencesTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/qv_prefs_XXXXXX";
        directory = mkdtemp(pattern);
        ini = directory / "qv.ini";
        std::ofstream(ini, std::ios::binary) << ini_text;
        setenv("QV_INI", ini.c_str(), 1);
        for (const IniCase &c : ini_cases) unsetenv(c.name);
        unsetenv("QV_INSTALL_ROOT");
    }
    void TearDown() override {
        unsetenv("QV_INI");
        unsetenv("QV_INSTALL_ROOT");
        unsetenv("PLAIN");
        fs::remove_all(directory);
    }
    fs::path directory;
    fs::path ini;
};

TEST_F(PreferencesTest, IniLinesAreReadByTheDocumentedFormat) {
    for (const IniCase &c : ini_cases) {
        SCOPED_TRACE(c.name);
        char *value = GetPreference_L(c.name);
        if (c.expected == nullptr) {
            EXPECT_EQ(value, nullptr);
        } else {
            EXPECT_EQ(take(value), c.expected);
            continue;
        }
        std::free(value);
    }
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
    setenv("QV_INI", directory.c_str(), 1); // a directory, not a file
    EXPECT_EQ(GetPreference_L("PLAIN"), nullptr);
}

TEST_F(PreferencesTest, WithoutQvIniTheFileBesideTheInstallRootIsUsed) {
    unsetenv("QV_INI");
    fs::create_directories(directory / "share" / "quillon");
    std::ofstream(directory / "share" / "quillon" / "qv.ini") << "PLAIN = installed\n";
    std::string root = (directory / "share").string() + "/";
    setenv("QV_INSTALL_ROOT", root.c_str(), 1);
    EXPECT_EQ(take(GetPreference_L("PLAIN")), "installed");
    EXPECT_EQ(take(GetPreferenceFilePath_L()),
              (directory / "share" / "quillon" / "qv.ini").string());
    EXPECT_EQ(take(GetInstallRoot_L()), (directory / "share").string());
}

TEST_F(PreferencesTest, TheInstallRootMayComeFromTheIniFile) {
    std::ofstream(ini, std::ios::app) << "\nQV_INSTALL_ROOT=/opt/quillon/share/\n";
    EXPECT_EQ(take(GetInstallRoot_L()), "/opt/quillon/share");
}

TEST_F(PreferencesTest, WithoutAPreferenceTheInstallRootIsTheConfiguredDataDirectory) {
    // The tests link the library statically into a program outside any lib folder.
    EXPECT_EQ(take(GetInstallRoot_L()), QV_INSTALL_DATADIR);
}

struct PrefixCase {
    const char *library;
    const char *prefix; // null: not in a library folder
};

const PrefixCase prefix_cases[] = {
    {"/usr/lib/libqvcommon.so.1", "/usr"},
    {"/opt/q/lib/x86_64-linux-gnu/libqvcommon.so", "/opt/q"},
    {"/opt/q/lib64/libqvcommon.so", "/opt/q"},
    {"/usr/lib/q/lib/libqvcommon.so", "/usr/lib/q"},
    {"/lib/libqvcommon.so", ""},
    {"/work/build/libqvcommon.so", nullptr},
    {"/work/library/libqvcommon.so", nullptr},
    {"libqvcommon.so", nullptr},
    {"", nullptr},
};

TEST(InstallPrefix, LibraryFoldersGiveThePrefixAboveThem) {
    for (const PrefixCase &c : prefix_cases) {
        SCOPED_TRACE(c.library);
        std::optional<std::string> prefix = qv::install_prefix_of(c.library);
        if (c.prefix == nullptr)
            EXPECT_FALSE(prefix.has_value());
        else
            EXPECT_EQ(prefix.value_or("<none>"), c.prefix);
    }
}

TEST(ExecutableDirectory, IsTheDirectoryOfTheRunningProgram) {
    std::string expected = fs::canonical("/proc/self/exe").parent_path().string();
    EXPECT_EQ(take(GetExecutableDirectory_L()), expected);
}

} // namespace
