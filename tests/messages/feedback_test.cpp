// Feedback classes and selections, output routing and wrapping, the log file's form, log
// file names, allocation failures and interrupts.
#include <unistd.h>

#include <regex>

#include "capture.hpp"

namespace {

using namespace qvtest;
using ::testing::Each;
using ::testing::Eq;

class FeedbackTest : public CaptureTest {
  protected:
    ScopedEnvironment no_ini{"QV_INI", "/nonexistent/qv.ini"};
    ScopedEnvironment no_dir{"QV_LOG_DIR", nullptr}, no_name{"QV_LOG_NAME", nullptr},
        no_encoding{"QV_LOG_ENCODING", nullptr};
    TempDirectory directory;

    fs::path open_log(const char *name = "run.log") {
        fs::path path = directory / name;
        EXPECT_EQ(SetFeedbackFile_L(path.c_str(), 0), 0);
        return path;
    }
};

// '1' or '0' for each class number from 0 to 10: whether it is active.
std::string activity() {
    std::string active;
    for (int32_t number = 0; number <= 10; ++number)
        active += IsActiveFeedback_L(number) ? '1' : '0';
    return active;
}

TEST_F(FeedbackTest, StandardClassesAndSelections) {
    const char *names[] = {"Error",    "Warning", "Info",     "info_s",      "Progress", "Detail",
                           "Internal", "User",    "Variable", "NoSuchClass", nullptr};
    const int32_t numbers[] = {
        X_Error_FL, X_Warning_FL,  X_Info_FL, X_InfoS_FL, X_Progress_FL, X_Detail_FL, X_Internal_FL,
        X_User_FL,  X_Variable_FL, 9,         9};
    for (int i = 0; i < 11; ++i) EXPECT_EQ(GetFeedbackClass_L(names[i]), numbers[i]) << i;
    EXPECT_EQ(activity(), "11110000000"); // TRACE_VALUES unset: the always-active classes
    EXPECT_EQ(Debug_L("HANDLER", "x\n"), -1);
    trace(" * ");
    EXPECT_EQ(activity(), "11111111100");
    EXPECT_EQ(Debug_L("AnyCategory", "debug %d\n", 7), 0);
    trace(" progress ,HANDLER,, user\t"); // trimmed, compared without case
    EXPECT_EQ(activity(), "11111001000");
    EXPECT_EQ(Debug_L("handler", "h\n"), 0);
    EXPECT_EQ(Debug_L("SQL", "s\n"), -1);
    EXPECT_EQ(Debug_L(nullptr, "n\n"), -1);
    trace("ExecutedSQL"); // the SQL texts have categories of their own
    EXPECT_EQ(activity(), "11110000000");
    EXPECT_EQ(Debug_SQL_L("select 1"), -1);
    EXPECT_EQ(Debug_NativeSQL_L("select 2"), 0);
    EXPECT_EQ(Debug_NativeSQL_L(nullptr), -1);
    trace("sql");
    EXPECT_EQ(Debug_SQL_L("select 3"), 0);
    EXPECT_EQ(out, "debug 7\nh\nselect 2\nselect 3\n");
}

TEST_F(FeedbackTest, RegisteringUpdatesAnExistingNameAndTerminateForgetsIt) {
    int32_t audit = RegisterFeedbackClass_L("Audit", 4, QV_FEEDBACK_STDOUT);
    EXPECT_EQ(audit, 9);
    Feedback_L(audit, "hidden\n");
    EXPECT_EQ(RegisterFeedbackClass_L("AUDIT", 4, QV_FEEDBACK_ALWAYS | QV_FEEDBACK_STDOUT), audit);
    Feedback_L(audit, "shown %s\n", "now");
    EXPECT_EQ(out, "shown now\n");
    trace("audit");
    EXPECT_EQ(RegisterFeedbackClass_L("Selected", 4, 0), 10);
    EXPECT_EQ(RegisterFeedbackClass_L("Audit", 4, QV_FEEDBACK_STDOUT), audit);
    EXPECT_EQ(activity(), "11110000010");
    EXPECT_EQ(RegisterFeedbackClass_L(nullptr, 4, 8), -1);
    EXPECT_EQ(RegisterFeedbackClass_L("", 4, 8), -1);

    SetStdFeedback_L(0);
    Set_Feedback_Width_L(3);
    TerminateFeedback_L();
    EXPECT_EQ(activity(), "11110000000"); // "Audit" is forgotten though still selected
    out.clear();
    Feedback_L(X_Info_FL, "abcd efgh\n"); // the writer was reset too: to the real stdout
    EXPECT_EQ(out, "");
    SetFeedbackWriter_L(write, this);
    Feedback_L(X_Info_FL, "abcd efgh\n"); // standard output and width are back
    EXPECT_EQ(out, "abcd efgh\n");
}

TEST_F(FeedbackTest, ClassesReachOutputByFlagsAndLevelAndBadOrEmptyWritesNothing) {
    trace("Progress");
    Feedback_L(X_Info_FL, "info\n");
    Feedback_L(X_InfoS_FL, "info_s\n"); // log file alone
    Feedback_L(X_Progress_FL, "progress\n");
    ErrFeedback_L("error %d\n", 1); // no log file: standard error
    SetStdFeedback_L(0);
    Feedback_L(X_Warning_FL, "warning\n");
    ErrFeedback_L("error 2\n");
    fs::path log = open_log();
    ErrFeedback_L("error 3\n");
    EXPECT_EQ(out, "info\nprogress\n");
    EXPECT_EQ(err, "error 1\nerror 2\n");

    // Nothing is written for bad classes, empty texts, or from inside a write.
    out.clear();
    SetStdFeedback_L(1);
    for (int32_t bad : {-1, 9}) {
        Feedback_L(bad, "bad %d\n", bad);
        Simple_Feedback_L(bad, "bad\n");
        EXPECT_EQ(IsActiveFeedback_L(bad), 0);
    }
    for (const char *empty : {"", static_cast<const char *>(nullptr)}) {
        Feedback_L(X_Info_FL, empty);
        Simple_Feedback_L(X_Info_FL, empty);
    }
    Feedback_L(X_Info_FL, "%s", "");
    Feedback_L(X_Detail_FL, "inactive\n");
    EXPECT_EQ(Debug_L("HANDLER", nullptr), -1);
    EXPECT_EQ(out + err + read_file(log), "error 1\nerror 2\nerror 3\r\n");

    SetFeedbackWriter_L(
        [](int32_t stream, const char *text, size_t length, void *test) {
            write(stream, text, length, test);
            Feedback_L(X_Info_FL, "nested\n");
        },
        this);
    Simple_Feedback_L(X_Info_FL, "outer\n");
    EXPECT_EQ(out, "outer\n");
}

TEST_F(FeedbackTest, StandardOutputIsWrappedAtTheFeedbackWidthTheLogFileNot) {
    const std::string x1030(1030, 'x');
    const std::tuple<int32_t, std::string, std::string> cases[] = {
        // width, text, output
        {10, "aaaa bbbb cccc\n", "aaaa bbbb\ncccc\n"},
        {5, "abcdefghijkl", "abcde\nfghij\nkl\n"}, // every write ends a line
        {4, "abcd efgh", "abcd\nefgh\n"},          // the space just past the width is used
        {4, " abcdef", " abc\ndef\n"},             // a leading space is no break point
        {3, "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9",
         "\xC3\xA9\xC3\xA9\xC3\xA9\n\xC3\xA9\xC3\xA9\n"},
        {6, "short\nlines stay\nexact!\n", "short\nlines\nstay\nexact!\n"},
        {-5, x1030, std::string(1024, 'x') + "\nxxxxxx\n"}, // 0 and below: 1024
    };
    fs::path log = open_log();
    for (const auto &[width, text, expected] : cases) {
        out.clear();
        Set_Feedback_Width_L(width);
        Simple_Feedback_L(X_Info_FL, text.c_str());
        EXPECT_EQ(out, expected) << width << ": " << text.substr(0, 20);
    }
    std::string text = read_file(log);
    EXPECT_EQ(text.find("aaaa bbbb cccc\r\n"), 0u) << text;
    EXPECT_NE(text.find("\n" + x1030 + "\r\n"), std::string::npos);
}

TEST_F(FeedbackTest, LogFileHasPrefixesCrLfLineEndsAndWarningBlocks) {
    trace("Progress");
    int32_t custom =
        RegisterFeedbackClass_L("VeryLongClassName", 4, QV_FEEDBACK_ALWAYS | QV_FEEDBACK_TIMESTAMP);
    fs::path log = open_log();
    Feedback_L(X_Warning_FL, "w0\n"); // first write of the file: no spacing
    Feedback_L(X_Info_FL, "info\n");
    Feedback_L(X_Warning_FL, "w1\n");
    Feedback_L(X_Warning_FL, "w2\r\nw3\n");
    Feedback_L(X_Progress_FL, "step %d\n", 1);
    Debug_L("Progress", "debug\n");
    Feedback_L(X_Warning_FL, "w4\n");
    Feedback_L(custom, "x");
    std::string text = read_file(log);
    const char *stamp = R"( - \d{4}-\d\d-\d\d \d\d:\d\d:\d\d\] )";
    std::regex expected(std::string("w0\r\ninfo\r\n\r\nw1\r\nw2\r\nw3\r\n"
                                    "\\[PROGRESS  ") +
                        stamp + "step 1\r\ndebug\r\n\r\nw4\r\n\\[VERYLONGCL" + stamp + "x\r\n");
    EXPECT_TRUE(std::regex_match(text, expected)) << text;
}

TEST_F(FeedbackTest, LogFileAppendsTruncatesClosesAndTakesItsNameAndEncoding) {
    fs::path log = open_log();
    Feedback_L(X_InfoS_FL, "one\n");
    EXPECT_EQ(take(FeedbackFilePath_L()), log.string());
    ASSERT_EQ(SetFeedbackFile_L(log.c_str(), 1), 0);
    Feedback_L(X_InfoS_FL, "two\n");
    CloseFeedbackFile_L();
    EXPECT_EQ(FeedbackFilePath_L(), nullptr);
    Feedback_L(X_InfoS_FL, "lost\n");
    EXPECT_EQ(read_file(log), "one\r\ntwo\r\n");
    open_log();
    EXPECT_EQ(read_file(log), "");

    ScopedEnvironment dir("QV_LOG_DIR", (directory.path.string() + "/").c_str());
    ASSERT_EQ(SetDefaultFeedbackFile_L("default.log"), 0);
    Feedback_L(X_InfoS_FL, "d\n");
    EXPECT_EQ(read_file(directory / "default.log"), "d\r\n");
    ScopedEnvironment name("QV_LOG_NAME", "renamed.log"), ascii("QV_LOG_ENCODING", "ascii");
    ASSERT_EQ(SetDefaultFeedbackFile_L("default.log"), 0);
    Simple_Feedback_L(X_InfoS_FL, "caf\xC3\xA9\n");
    EXPECT_EQ(take(FeedbackFilePath_L()), (directory / "renamed.log").string());
    EXPECT_EQ(read_file(directory / "renamed.log"), "caf??\r\n");
    ScopedEnvironment ebcdic("QV_LOG_ENCODING", "EBCDIC"); // reported, then UTF-8
    open_log();
    Simple_Feedback_L(X_InfoS_FL, "caf\xC3\xA9\n");
    std::string text = read_file(directory / "renamed.log");
    EXPECT_NE(text.find("Log encoding 'EBCDIC' is not supported"), std::string::npos) << text;
    EXPECT_NE(text.find("caf\xC3\xA9\r\n"), std::string::npos);
}

TEST_F(FeedbackTest, AnUnopenableLogFileIsReportedAndOutputGoesOn) {
    const std::string bad = "/nonexistent/qv/logs/run.log";
    EXPECT_EQ(SetFeedbackFile_L(bad.c_str(), 0), -1);
    EXPECT_NE(err.find("Cannot open the log file '" + bad + "'"), std::string::npos) << err;
    EXPECT_EQ(FeedbackFilePath_L(), nullptr);
    Feedback_L(X_Info_FL, "still here\n");
    EXPECT_EQ(out, "still here\n");
    ScopedEnvironment dir("QV_LOG_DIR", "/nonexistent/qv/logs");
    EXPECT_EQ(SetDefaultFeedbackFile_L("run.log"), -1);
    EXPECT_EQ(SetFeedbackFile_L(nullptr, 0), -1);
    EXPECT_EQ(SetDefaultFeedbackFile_L(""), -1);
    EXPECT_NE(err.find("No log file name given"), std::string::npos);
}

TEST_F(FeedbackTest, LogFileRootsAndPaths) {
    auto root = [](char kind, const char *name, int32_t number, uint8_t with_process = 0,
                   const char *suffix = "ignored") {
        return take(DefaultLogFileRoot_L(kind, name, number, with_process, suffix));
    };
    EXPECT_EQ(root('S', "Dim One", 12345), "DimBuild_Dim One_12345");
    EXPECT_EQ(root('J', "a/b\\c:d*e?f\"g<h>i|j", 0), "Job_a_b_c_d_e_f_g_h_i_j_0000");
    EXPECT_EQ(root('x', "tab\there\x7F", -3), "Unknown_tab_here__-003");
    EXPECT_EQ(root('J',
                   "a\xC2\x85"
                   "b",
                   1),
              "Job_a_b_0001"); // a C1 control (NEL)
    EXPECT_EQ(root('B', "caf\xC3\xA9", 1), "Build_caf\xC3\xA9_0001");
    EXPECT_EQ(root('B', "bad\xC3(\xFF", 1), "Build_bad_(__0001");
    EXPECT_EQ(root('J', nullptr, 1), "Job__0001");
    char process[16];
    std::snprintf(process, sizeof process, "_%08lx", static_cast<unsigned long>(getpid()));
    EXPECT_EQ(root('J', "nightly", 42, 1, "_retry"),
              std::string("Job_nightly_0042") + process + "_retry");
    EXPECT_EQ(root('J', "nightly", 42, 1, nullptr), std::string("Job_nightly_0042") + process);
    EXPECT_EQ(take(LogFilePath_L('B', "sales", 3)), "Build_sales_0003.log");
    ScopedEnvironment dir("QV_LOG_DIR", "/var/log/qv//");
    EXPECT_EQ(take(LogFilePath_L('S', "geo/region", 3)),
              "/var/log/qv/DimBuild_geo_region_0003.log");
}

TEST_F(FeedbackTest, AllocationFailuresRaiseAndLeakNothing) {
    fs::path log = directory / "alloc.log";
    ScopedEnvironment traced("TRACE_VALUES", "Progress,User,HANDLER");
    auto raised = fail_each_allocation(
        [&] {
            InitialiseFeedback_L();
            RegisterFeedbackClass_L("Audit", 4, QV_FEEDBACK_ALWAYS | QV_FEEDBACK_STDOUT);
            SetFeedbackFile_L(log.c_str(), 0);
            Feedback_L(X_Progress_FL, "%s\n", "written");
            Feedback_L(X_Info_FL, "%s", "wrapped at five"); // wrapped at 7, given its line feed
            free(LogFilePath_L('B', "name", 1));
        },
        [&] {
            TerminateFeedback_L();
            SetFeedbackWriter_L(write, this);
            Set_Feedback_Width_L(7);
            out.clear();
        });
    EXPECT_THAT(raised, Each(Eq(ALLOC_FAILURE)));
    EXPECT_GT(raised.size(), 5u);
    EXPECT_EQ(out, "written\nwrapped\nat five\n");
    EXPECT_EQ(IsActiveFeedback_L(9), 1); // "Audit"

    // With no context the failed write is simply left out.
    TestFailAllocation_L(0);
    Feedback_L(X_Info_FL, "%s\n", "never");
    TestFailAllocation_L(-1);
    Feedback_L(X_Info_FL, "%s\n", "later");
    EXPECT_EQ(out, "written\nwrapped\nat five\nlater\n");
}

TEST_F(FeedbackTest, AnInterruptIsDeliveredOnceUntilCleared) {
    std::string seen; // per check: 'X' delivered, '.' not
    auto check = [&] { seen += Check_Interrupt_L(0) == -1 ? 'X' : '.'; };
    Set_Interrupt_L();
    check(); // interrupts not active yet
    InterruptsActive_L(1);
    check();
    Set_Interrupt_L();
    check(); // set again but not cleared: already delivered
    Clear_Interrupt_L();
    SetInterruptPump_L([] { Set_Interrupt_L(); }); // the pump runs before each check
    check();
    check();
    EXPECT_EQ(seen, ".X.X.");

    SetInterruptPump_L(nullptr);
    Clear_Interrupt_L();
    Set_Interrupt_L();
    EXPECT_EQ(raised_by([] { Check_Interrupt_L(1); }), INTERRUPT_PROCESS);
    EXPECT_EQ(raised_by([] { Check_Interrupt_L(1); }), nullptr);
}

} // namespace
