// Glossaries: the shipped files, the numbered and the positional loaders with their
// rules, missing files, the search for the message directory, and allocation failures.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <unistd.h>

#include <unicode/locid.h>

#include "core/raise.hpp"
#include "messages/message.hpp"
#include "qv/alloc.h"
#include "qv/date.h"
#include "qv/feedback.h"
#include "qv/message.h"
#include "qv/msgclass.h"
#include "qv/platform.h"

namespace {

namespace fs = std::filesystem;

// Sets an environment variable for the life of the object, then restores it.
class ScopedEnvironment {
  public:
    ScopedEnvironment(const char *name, const char *value) : name_(name) {
        if (const char *old = std::getenv(name)) old_ = old;
        if (value != nullptr)
            setenv(name, value, 1);
        else
            unsetenv(name);
    }
    ~ScopedEnvironment() {
        if (old_)
            setenv(name_, old_->c_str(), 1);
        else
            unsetenv(name_);
    }

  private:
    const char *name_;
    std::optional<std::string> old_;
};

class GlossaryTest : public ::testing::Test {
  protected:
    fs::path folder;
    std::string out, err;
    uint32_t context = 0;
    std::optional<ScopedEnvironment> message_path;

    static void capture(int32_t stream, const char *text, size_t length, void *test) {
        auto *self = static_cast<GlossaryTest *>(test);
        (stream == 2 ? self->err : self->out).append(text, length);
    }

    void SetUp() override {
        folder = fs::temp_directory_path() /
                 ("qv_glossary_" + std::to_string(getpid()) + "_" +
                  ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(folder);
        write("glossary.gls", "1 one\n");
        message_path.emplace("QV_MESSAGE_PATH", folder.c_str());
        reload();
        SetFeedbackWriter_L(capture, this);
        TerminateMessages_L(nullptr);
        InitMessages_L(&context);
    }
    void TearDown() override {
        SetFeedbackWriter_L(nullptr, nullptr);
        ClearMessageContext_L();
        TerminateMessages_L(nullptr);
        message_path.reset();
        reload();
        fs::remove_all(folder);
    }

    void write(const char *name, const std::string &content) {
        std::ofstream(folder / name, std::ios::binary) << content;
    }
    static void reload() {
        UnloadGlossaries_L();
        qv::forget_message_directory();
    }
    int32_t collected() {
        int32_t count = 0;
        CheckMessageHandle_L(context, &count, nullptr);
        return count;
    }
};

fs::path shipped_folder() {
    return fs::path(__FILE__).parent_path().parent_path().parent_path() / "data/message";
}

TEST_F(GlossaryTest, ShippedFiles) {
    ScopedEnvironment shipped("QV_MESSAGE_PATH", shipped_folder().c_str());
    reload();
    EXPECT_STREQ(Gloss_L(1), "Numeric");
    EXPECT_STREQ(FunctionGloss_L(2001), "Abs( number )");
    const char *days[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                          "Thursday", "Friday", "Saturday"};
    for (int i = 0; i < 7; ++i) EXPECT_STREQ(DayGloss_L(i), days[i]);
    EXPECT_STREQ(MonthGloss_L(0), "January");
    EXPECT_STREQ(MonthGloss_L(11), "December");
    EXPECT_EQ(DayGloss_L(7), nullptr);
    EXPECT_EQ(DayGloss_L(-1), nullptr);
    EXPECT_EQ(MonthGloss_L(12), nullptr);
    EXPECT_EQ(collected(), 0);
    EXPECT_EQ(out + err, "");
}

TEST_F(GlossaryTest, NumberedFileRules) {
    write("glossary.gls", "# comment line\n"
                          "\n"
                          "   \t \n"
                          "30 thirty\n"
                          "  7\t  seven  days  \r\n"
                          "   # indented comment\n"
                          "-3 minus three\n"
                          "+4 plus four\n"
                          "7 second seven\n"
                          "10 ten # not a comment");
    const struct {
        int32_t number;
        const char *text;
    } cases[] = {{30, "thirty"},
                 {7, "seven  days"},
                 {-3, "minus three"},
                 {4, "plus four"},
                 {10, "ten # not a comment"}};
    for (const auto &c : cases) EXPECT_STREQ(Gloss_L(c.number), c.text) << c.number;
    for (int32_t missing : {0, 1, 5, 31, -4}) EXPECT_EQ(Gloss_L(missing), nullptr) << missing;
    EXPECT_EQ(collected(), 0);
}

TEST_F(GlossaryTest, MalformedLinesAreSkippedWithAWarning) {
    write("function.gls", "1 good\n"
                          "12\n"
                          "abc text\n"
                          "99999999999 too big\n"
                          "5x five\n"
                          "2 also good\n");
    EXPECT_STREQ(FunctionGloss_L(1), "good");
    EXPECT_STREQ(FunctionGloss_L(2), "also good");
    EXPECT_EQ(FunctionGloss_L(12), nullptr);
    EXPECT_EQ(FunctionGloss_L(5), nullptr);
    std::string path = (folder / "function.gls").string();
    for (const auto &[line, text] :
         {std::pair{2, "12"}, {3, "abc text"}, {4, "99999999999 too big"}, {5, "5x five"}}) {
        PWMessage warning(QV_MSG_GLOSSARY_LINE_SKIPPED, MESSAGE_SEVERITY_WARNING);
        warning << path << line << text;
        EXPECT_NE(out.find("WARNING - " + warning.Text() + "\n"), std::string::npos) << text;
    }
}

TEST_F(GlossaryTest, MissingNumberedFileLogsAndRaisesGeneralError) {
    const char *raised = nullptr;
    const char *text = "unset";
    qv::guarded(
        "GlossaryTest", "glossary_test", __LINE__, [&] { text = FunctionGloss_L(1); },
        [&](const char *symbol) { raised = symbol; });
    EXPECT_EQ(raised, GENERAL_ERROR);
    EXPECT_STREQ(text, "unset");
    ASSERT_EQ(collected(), 1);
    PWMessage *message = GetMessage_L(context, 0);
    EXPECT_EQ(message->Number(), QV_MSG_GLOSSARY_OPEN_FAILED);
    EXPECT_EQ(message->LibrarySeverity(), MESSAGE_SEVERITY_ERROR);
    ASSERT_EQ(message->Parameters().size(), 1u);
    EXPECT_EQ(message->Parameters()[0].Text(), (folder / "function.gls").string());

    // With no status context the raise reports and returns; the lookup gives null, and the
    // next lookup tries the file again.
    EXPECT_EQ(FunctionGloss_L(1), nullptr);
    EXPECT_EQ(collected(), 2);
    EXPECT_NE(err.find("no context on RAISE/RERAISE"), std::string::npos);
    write("function.gls", "1 now here\n");
    EXPECT_STREQ(FunctionGloss_L(1), "now here");
}

TEST_F(GlossaryTest, MissingDateFilesFallBackToLocaleNamesSilently) {
    for (int i = 0; i < 7; ++i) EXPECT_STREQ(DayGloss_L(i), GetDay_L(i)) << i;
    for (int i = 0; i < 12; ++i) EXPECT_STREQ(MonthGloss_L(i), GetMonth_L(i)) << i;
    EXPECT_EQ(DayGloss_L(7), nullptr);
    EXPECT_EQ(MonthGloss_L(12), nullptr);
    EXPECT_EQ(collected(), 0);
    EXPECT_EQ(out + err, "");
}

TEST_F(GlossaryTest, DateFileLinesInOrderRightTrimmed) {
    write("day.gls", "  Dimanche  \t\r\n# Lundi\n\nMercredi\n"); // short: the rest from the locale
    write("month.gls", "1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n12\n13\n14\n");
    EXPECT_STREQ(DayGloss_L(0), "  Dimanche");
    EXPECT_STREQ(DayGloss_L(1), "# Lundi"); // no comments in date files
    EXPECT_STREQ(DayGloss_L(2), "");
    EXPECT_STREQ(DayGloss_L(3), "Mercredi");
    EXPECT_STREQ(DayGloss_L(4), GetDay_L(4));
    EXPECT_STREQ(DayGloss_L(6), GetDay_L(6));
    EXPECT_EQ(DayGloss_L(7), nullptr);
    EXPECT_STREQ(MonthGloss_L(11), "12");
    EXPECT_EQ(MonthGloss_L(12), nullptr); // lines past the twelfth are ignored
}

TEST_F(GlossaryTest, UnloadThenReloadReadsTheFilesAgain) {
    EXPECT_STREQ(Gloss_L(1), "one");
    write("glossary.gls", "1 uno\n");
    EXPECT_STREQ(Gloss_L(1), "one"); // kept until unloaded
    UnloadGlossaries_L();
    EXPECT_STREQ(Gloss_L(1), "uno");
}

TEST_F(GlossaryTest, DirectorySearchOrder) {
    fs::path root = folder / "root";
    fs::create_directories(root / "quillon/message");
    std::ofstream(root / "quillon/message/glossary.gls") << "1 installed\n";
    fs::path bare = folder / "bare"; // a folder without glossary.gls
    fs::create_directories(bare);
    char *executable = GetExecutableDirectory_L();
    ASSERT_NE(executable, nullptr);
    std::string executable_directory = executable;
    std::free(executable);

    const struct {
        const char *name;
        std::string message_path;
        std::string install_root;
        std::string expected;
    } cases[] = {
        {"preference first", folder.string(), root.string(), folder.string()},
        {"preference without glossary", bare.string(), root.string(),
         (root / "quillon/message").string()},
        {"no preference", "", root.string(), (root / "quillon/message").string()},
        {"nothing found", bare.string(), bare.string(), executable_directory},
    };
    for (const auto &c : cases) {
        ScopedEnvironment path("QV_MESSAGE_PATH",
                               c.message_path.empty() ? nullptr : c.message_path.c_str());
        ScopedEnvironment install("QV_INSTALL_ROOT", c.install_root.c_str());
        reload();
        EXPECT_EQ(qv::message_directory(), c.expected) << c.name;
    }
    // Found once: a changed preference is not seen until the directory is forgotten.
    ScopedEnvironment path("QV_MESSAGE_PATH", folder.c_str());
    reload();
    EXPECT_STREQ(Gloss_L(1), "one");
    ScopedEnvironment other("QV_MESSAGE_PATH", (root / "quillon/message").c_str());
    UnloadGlossaries_L();
    EXPECT_STREQ(Gloss_L(1), "one");
}

TEST_F(GlossaryTest, AllocationFailuresRaiseAndLeaveNothingBehind) {
    write("glossary.gls", "# header\n3 three\n1 one\n2 two\n");
    write("day.gls", "D0\nD1\n");
    for (auto lookup : {+[] { return Gloss_L(2); }, +[] { return DayGloss_L(1); }}) {
        const char *text = nullptr;
        int n = 0;
        for (;; ++n) {
            UnloadGlossaries_L();
            const char *raised = nullptr;
            text = nullptr;
            qv::guarded(
                "GlossaryTest", "glossary_test", __LINE__,
                [&] {
                    TestFailAllocation_L(n);
                    text = lookup();
                },
                [&](const char *symbol) { raised = symbol; });
            bool fired = TestAllocationFailed_L() != 0;
            TestFailAllocation_L(-1);
            if (!fired) break;
            EXPECT_TRUE(raised == ALLOC_FAILURE || raised == ZERO_ALLOC_FAILURE) << n;
        }
        EXPECT_GT(n, 2);
        ASSERT_NE(text, nullptr);
    }
    EXPECT_STREQ(Gloss_L(2), "two");
    EXPECT_STREQ(DayGloss_L(1), "D1");
}

TEST(DateNames, LocaleNamesAndRanges) {
    for (int32_t bad : {-1, 7}) {
        EXPECT_EQ(GetDay_L(bad), nullptr) << bad;
        EXPECT_EQ(GetShortDay_L(bad), nullptr) << bad;
    }
    for (int32_t bad : {-1, 12}) {
        EXPECT_EQ(GetMonth_L(bad), nullptr) << bad;
        EXPECT_EQ(GetShortMonth_L(bad), nullptr) << bad;
    }
    for (int32_t i = 0; i < 12; ++i) {
        EXPECT_STRNE(GetMonth_L(i), "") << i;
        EXPECT_STRNE(GetShortMonth_L(i), "") << i;
    }
    if (std::string(icu::Locale::getDefault().getLanguage()) != "en") GTEST_SKIP();
    EXPECT_STREQ(GetDay_L(0), "Sunday");
    EXPECT_STREQ(GetDay_L(6), "Saturday");
    EXPECT_STREQ(GetShortDay_L(1), "Mon");
    EXPECT_STREQ(GetMonth_L(0), "January");
    EXPECT_STREQ(GetShortMonth_L(11), "Dec");
    EXPECT_STREQ(GetAM_L(), "AM");
    EXPECT_STREQ(GetPM_L(), "PM");
}

} // namespace
