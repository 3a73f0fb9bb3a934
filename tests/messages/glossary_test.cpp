// Glossaries: the shipped files, the numbered and the positional loaders with their rules,
// missing files, the search for the message directory, and allocation failures.
#include <unicode/locid.h>

#include "capture.hpp"
#include "qv/date.h"
#include "qv/platform.h"

namespace {

using namespace qvtest;
using ::testing::AnyOf;
using ::testing::Each;
using ::testing::Eq;

// Glossaries read from a directory of the test's own, holding glossary.gls "1 one".
class GlossaryTest : public CaptureTest {
  protected:
    TempDirectory folder;
    std::optional<ScopedEnvironment> message_path;

    void SetUp() override {
        CaptureTest::SetUp();
        write("glossary.gls", "1 one\n");
        message_path.emplace("QV_MESSAGE_PATH", folder.path.c_str());
        reload();
    }
    void TearDown() override {
        message_path.reset();
        reload();
        CaptureTest::TearDown();
    }
    void write(const char *name, const std::string &content) { write_file(folder / name, content); }
    static void reload() {
        UnloadGlossaries_L();
        qv::forget_message_directory();
    }
};

// The texts `lookup` gives for each number, "<null>" for none, each ended by "|".
std::string texts(const char *(*lookup)(int32_t), std::initializer_list<int32_t> numbers) {
    std::string all;
    for (int32_t n : numbers) all += std::string(lookup(n) ? lookup(n) : "<null>") + "|";
    return all;
}

TEST_F(GlossaryTest, ShippedFiles) {
    fs::path shipped =
        fs::path(__FILE__).parent_path().parent_path().parent_path() / "data/message";
    message_path.emplace("QV_MESSAGE_PATH", shipped.c_str());
    reload();
    EXPECT_EQ(texts(Gloss_L, {1}) + texts(FunctionGloss_L, {2001}), "Numeric|Abs( number )|");
    EXPECT_EQ(texts(DayGloss_L, {0, 6, 7, -1}), "Sunday|Saturday|<null>|<null>|");
    EXPECT_EQ(texts(MonthGloss_L, {11, 12}), "December|<null>|");
    EXPECT_EQ(texts_of(context).size() + out.size() + err.size(), 0u);
}

TEST_F(GlossaryTest, NumberedFileRulesAndMalformedLines) {
    write("glossary.gls", "# comment line\n\n   \t \n30 thirty\n  7\t  seven  days  \r\n"
                          "   # indented comment\n-3 minus three\n+4 plus four\n7 second seven\n"
                          "10 ten # not a comment\n12\nabc text\n99999999999 too big\n5x five\n+-5 "
                          "minus five\n2 two");
    EXPECT_EQ(texts(Gloss_L, {30, 7, -3, 4, 10, 2}),
              "thirty|seven  days|minus three|plus four|ten # not a comment|two|");
    EXPECT_EQ(texts(Gloss_L, {0, 1, 5, 12, 31, -4, -5}),
              "<null>|<null>|<null>|<null>|<null>|<null>|<null>|");
    EXPECT_EQ(texts_of(context).size(), 0u);
    const std::string path = (folder / "glossary.gls").string();
    EXPECT_EQ(out, "WARNING - Line 11 of the glossary file '" + path +
                       "' was skipped: a number and a text were expected, not '12'.\n"
                       "WARNING - Line 12 of the glossary file '" +
                       path +
                       "' was skipped: a number and a text were expected, not 'abc text'.\n"
                       "WARNING - Line 13 of the glossary file '" +
                       path +
                       "' was skipped: a number and a text were expected, not '99999999999 "
                       "too big'.\n"
                       "WARNING - Line 14 of the glossary file '" +
                       path +
                       "' was skipped: a number and a text were expected, not '5x five'.\n"
                       "WARNING - Line 15 of the glossary file '" +
                       path +
                       "' was skipped: a number and a text were expected, not '+-5 minus five'.\n");
}

TEST_F(GlossaryTest, MissingNumberedFileIsReportedOnceUntilUnloaded) {
    const char *text = "unset";
    EXPECT_EQ(raised_by([&] { text = FunctionGloss_L(1); }), GENERAL_ERROR);
    EXPECT_STREQ(text, "unset");
    const std::string missing =
        "The glossary file '" + (folder / "function.gls").string() + "' cannot be opened.";
    ASSERT_EQ(texts_of(context), std::vector<std::string>{missing});
    EXPECT_EQ(GetMessage_L(context, 0)->Number(), 0x8DA5062Du);
    EXPECT_EQ(GetMessage_L(context, 0)->LibrarySeverity(), MESSAGE_SEVERITY_ERROR);

    // Remembered: later lookups give null without a message or a raise, even once the file
    // is there, until the glossaries are unloaded.
    write("function.gls", "1 now here\n");
    EXPECT_EQ(raised_by([&] { text = FunctionGloss_L(1); }), nullptr);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(texts_of(context).size(), 1u);
    UnloadGlossaries_L();
    EXPECT_STREQ(FunctionGloss_L(1), "now here");

    // With neither a message context nor a status context, the message goes to the error
    // class, once, before the report of the raise that nothing caught.
    fs::remove(folder / "function.gls");
    UnloadGlossaries_L();
    ClearMessageContext_L();
    for (int i = 0; i < 3; ++i) EXPECT_EQ(FunctionGloss_L(1), nullptr);
    const std::string report =
        "Status context failure: no context on RAISE/RERAISE (message, line ";
    EXPECT_EQ(err.rfind(missing + "\n" + report, 0), 0u) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 2) << err;
}

TEST_F(GlossaryTest, DateFilesFallBackToLocaleNamesSilently) {
    for (int i = 0; i < 7; ++i) EXPECT_STREQ(DayGloss_L(i), GetDay_L(i)) << i;
    for (int i = 0; i < 12; ++i) EXPECT_STREQ(MonthGloss_L(i), GetMonth_L(i)) << i;
    EXPECT_EQ(DayGloss_L(7), nullptr);
    EXPECT_EQ(texts_of(context).size() + out.size() + err.size(), 0u);

    reload();
    write("day.gls", "  Dimanche  \t\r\n# Lundi\n\nMercredi\n"); // short: the rest from the locale
    write("month.gls", "1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n12\n13\n14\n");
    const char *days[] = {
        "  Dimanche", "# Lundi",   "",         "Mercredi",
        GetDay_L(4),  GetDay_L(5), GetDay_L(6)}; // right-trimmed, no comments, in order
    for (int i = 0; i < 7; ++i) EXPECT_STREQ(DayGloss_L(i), days[i]) << i;
    EXPECT_STREQ(MonthGloss_L(11), "12");
    EXPECT_EQ(MonthGloss_L(12), nullptr); // lines past the twelfth are ignored
}

TEST_F(GlossaryTest, DirectorySearchOrder) {
    fs::path root = folder / "root", installed = root / "quillon/message", bare = folder / "bare";
    fs::create_directories(installed);
    fs::create_directories(bare); // a folder without glossary.gls
    write_file(installed / "glossary.gls", "1 installed\n");
    std::string executable_directory = take(GetExecutableDirectory_L());
    // Rows: what, QV_MESSAGE_PATH, QV_INSTALL_ROOT, the directory found.
    const std::tuple<const char *, fs::path, fs::path, fs::path> cases[] = {
        {"preference first", folder.path, root, folder.path},
        {"preference without glossary", bare, root, installed},
        {"no preference", "", root, installed},
        {"nothing found", bare, bare, executable_directory},
    };
    for (const auto &[what, preference, install_root, expected] : cases) {
        message_path.emplace("QV_MESSAGE_PATH", preference.empty() ? nullptr : preference.c_str());
        ScopedEnvironment install("QV_INSTALL_ROOT", install_root.c_str());
        reload();
        EXPECT_EQ(std::string_view(qv::message_directory()), expected.string()) << what;
    }
    // Texts are kept until unloaded; the directory is found once, so a changed preference
    // is not seen until it is forgotten.
    message_path.emplace("QV_MESSAGE_PATH", folder.path.c_str());
    reload();
    EXPECT_STREQ(Gloss_L(1), "one");
    write("glossary.gls", "1 uno\n");
    message_path.emplace("QV_MESSAGE_PATH", installed.c_str());
    EXPECT_STREQ(Gloss_L(1), "one");
    UnloadGlossaries_L();
    EXPECT_STREQ(Gloss_L(1), "uno");
}

TEST_F(GlossaryTest, AllocationFailuresRaiseAndLeaveNothingBehind) {
    write("glossary.gls", "# header\n3 three\n1 one\n2 two\n");
    write("day.gls", "D0\nD1\n");
    for (auto lookup : {+[] { return Gloss_L(2); }, +[] { return DayGloss_L(1); }}) {
        const char *text = nullptr; // set only by the whole run
        auto raised = fail_each_allocation([&] { text = lookup(); }, [] { UnloadGlossaries_L(); });
        EXPECT_GT(raised.size(), 2u);
        EXPECT_THAT(raised, Each(AnyOf(Eq(ALLOC_FAILURE), Eq(ZERO_ALLOC_FAILURE))));
        EXPECT_NE(text, nullptr);
    }
    EXPECT_STREQ(Gloss_L(2), "two");
    EXPECT_STREQ(DayGloss_L(1), "D1");
}

TEST(DateNames, LocaleNamesAndRanges) {
    for (int32_t bad : {-1, 7}) EXPECT_TRUE(!GetDay_L(bad) && !GetShortDay_L(bad)) << bad;
    for (int32_t bad : {-1, 12}) EXPECT_TRUE(!GetMonth_L(bad) && !GetShortMonth_L(bad)) << bad;
    for (int32_t i = 0; i < 12; ++i) EXPECT_TRUE(*GetMonth_L(i) && *GetShortMonth_L(i)) << i;
    if (std::string(icu::Locale::getDefault().getLanguage()) != "en") GTEST_SKIP();
    EXPECT_STREQ(GetDay_L(0), "Sunday");
    EXPECT_STREQ(GetShortDay_L(1), "Mon");
    EXPECT_STREQ(GetMonth_L(0), "January");
    EXPECT_STREQ(GetShortMonth_L(11), "Dec");
    EXPECT_STREQ(GetAM_L(), "AM");
    EXPECT_STREQ(GetPM_L(), "PM");
}

} // namespace
