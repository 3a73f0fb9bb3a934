// Feedback classes and selections, output routing and wrapping, the log file's form, log
// file names, debug categories and interrupts.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "core/raise.hpp"
#include "qv/alloc.h"
#include "qv/feedback.h"
#include "qv/platform.h"

namespace {

namespace fs = std::filesystem;

struct Captured {
    std::string out;
    std::string err;
};

void capture(int32_t stream, const char *text, size_t length, void *context) {
    auto *captured = static_cast<Captured *>(context);
    (stream == 2 ? captured->err : captured->out).append(text, length);
}

std::string read_file(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string take(char *heap_text) {
    std::string text = heap_text ? heap_text : "<null>";
    std::free(heap_text);
    return text;
}

class FeedbackTest : public ::testing::Test {
  protected:
    void SetUp() override {
        for (const char *name : {"TRACE_VALUES", "QV_LOG_DIR", "QV_LOG_NAME", "QV_LOG_ENCODING"})
            unsetenv(name);
        setenv("QV_INI", "/nonexistent/qv.ini", 1);
        TerminateFeedback_L();
        SetFeedbackWriter_L(capture, &captured);
        char pattern[] = "/tmp/qv_feedback_XXXXXX";
        directory = mkdtemp(pattern);
    }
    void TearDown() override {
        TerminateFeedback_L();
        for (const char *name :
             {"TRACE_VALUES", "QV_LOG_DIR", "QV_LOG_NAME", "QV_LOG_ENCODING", "QV_INI"})
            unsetenv(name);
        fs::remove_all(directory);
    }
    void trace(const char *selection) {
        setenv("TRACE_VALUES", selection, 1);
        ResetFeedbackSelections_L();
    }
    fs::path open_log(const char *name = "run.log") {
        fs::path path = directory / name;
        EXPECT_EQ(SetFeedbackFile_L(path.c_str(), 0), 0);
        return path;
    }

    Captured captured;
    fs::path directory;
};

// ---- classes and selections ---------------------------------------------------------------

struct StandardCase {
    const char *name;
    int32_t number;
    bool active_by_default;
};

const StandardCase standard_cases[] = {
    {"Error", X_Error_FL, true},        {"Warning", X_Warning_FL, true},
    {"Info", X_Info_FL, true},          {"Info_S", X_InfoS_FL, true},
    {"Progress", X_Progress_FL, false}, {"Detail", X_Detail_FL, false},
    {"Internal", X_Internal_FL, false}, {"User", X_User_FL, false},
    {"Variable", X_Variable_FL, false},
};

TEST_F(FeedbackTest, StandardClassesHaveTheirNumbersAndOnlyAlwaysClassesAreActiveUnselected) {
    for (int32_t i = 0; i < 9; ++i) {
        const StandardCase &c = standard_cases[i];
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.number, i);
        EXPECT_EQ(GetFeedbackClass_L(c.name), i);
        EXPECT_EQ(IsActiveFeedback_L(c.number), c.active_by_default ? 1 : 0);
    }
    EXPECT_EQ(GetFeedbackClass_L("info_s"), X_InfoS_FL);
    EXPECT_EQ(GetFeedbackClass_L("NoSuchClass"), 9);
    EXPECT_EQ(GetFeedbackClass_L(nullptr), 9);
    EXPECT_EQ(Debug_L("HANDLER", "x\n"), -1);
}

TEST_F(FeedbackTest, StarSelectsEveryClassAndEveryDebugCategory) {
    trace(" * ");
    for (const StandardCase &c : standard_cases)
        EXPECT_EQ(IsActiveFeedback_L(c.number), 1) << c.name;
    EXPECT_EQ(Debug_L("AnyCategory", "debug %d\n", 7), 0);
    EXPECT_EQ(captured.out, "debug 7\n");
}

TEST_F(FeedbackTest, SelectionsAreTrimmedAndComparedWithoutCase) {
    trace(" progress ,HANDLER,, user\t");
    EXPECT_EQ(IsActiveFeedback_L(X_Progress_FL), 1);
    EXPECT_EQ(IsActiveFeedback_L(X_User_FL), 1);
    EXPECT_EQ(IsActiveFeedback_L(X_Detail_FL), 0);
    EXPECT_EQ(Debug_L("handler", "h\n"), 0);
    EXPECT_EQ(Debug_L("SQL", "s\n"), -1);
    EXPECT_EQ(Debug_L(nullptr, "n\n"), -1);
    EXPECT_EQ(captured.out, "h\n");

    trace("Detail");
    EXPECT_EQ(IsActiveFeedback_L(X_Progress_FL), 0);
    EXPECT_EQ(IsActiveFeedback_L(X_Detail_FL), 1);
}

TEST_F(FeedbackTest, SqlDebugOutputHasItsOwnCategories) {
    trace("ExecutedSQL");
    EXPECT_EQ(Debug_SQL_L("select 1"), -1);
    EXPECT_EQ(Debug_NativeSQL_L("select 2"), 0);
    EXPECT_EQ(Debug_NativeSQL_L(nullptr), -1);
    trace("sql");
    EXPECT_EQ(Debug_SQL_L("select 3"), 0);
    EXPECT_EQ(captured.out, "select 2\nselect 3\n");
}

TEST_F(FeedbackTest, RegisteringAnExistingNameUpdatesItInPlace) {
    int32_t audit = RegisterFeedbackClass_L("Audit", 4, QV_FEEDBACK_STDOUT);
    EXPECT_EQ(audit, 9);
    EXPECT_EQ(IsActiveFeedback_L(audit), 0);
    Feedback_L(audit, "hidden\n");
    EXPECT_EQ(RegisterFeedbackClass_L("AUDIT", 4, QV_FEEDBACK_ALWAYS | QV_FEEDBACK_STDOUT), audit);
    EXPECT_EQ(GetFeedbackClass_L("audit"), audit);
    EXPECT_EQ(IsActiveFeedback_L(audit), 1);
    Feedback_L(audit, "shown %s\n", "now");
    EXPECT_EQ(captured.out, "shown now\n");

    trace("audit");
    EXPECT_EQ(RegisterFeedbackClass_L("Selected", 4, 0), 10);
    EXPECT_EQ(RegisterFeedbackClass_L("Audit", 4, QV_FEEDBACK_STDOUT), audit);
    EXPECT_EQ(IsActiveFeedback_L(audit), 1);
    EXPECT_EQ(IsActiveFeedback_L(10), 0);

    EXPECT_EQ(RegisterFeedbackClass_L(nullptr, 4, 8), -1);
    EXPECT_EQ(RegisterFeedbackClass_L("", 4, 8), -1);
}

TEST_F(FeedbackTest, TerminateForgetsRegisteredClassesAndRestoresSwitches) {
    RegisterFeedbackClass_L("Audit", 4, QV_FEEDBACK_ALWAYS);
    SetStdFeedback_L(0);
    Set_Feedback_Width_L(3);
    TerminateFeedback_L();
    EXPECT_EQ(GetFeedbackClass_L("Audit"), 9);
    Feedback_L(X_Info_FL, "abcd efgh\n"); // writer was reset too: goes to the real stdout
    EXPECT_EQ(captured.out, "");
    SetFeedbackWriter_L(capture, &captured);
    Feedback_L(X_Info_FL, "abcd efgh\n");
    EXPECT_EQ(captured.out, "abcd efgh\n");
}

// ---- routing and bad input ----------------------------------------------------------------

TEST_F(FeedbackTest, ClassesReachStandardOutputAndErrorByFlagsAndLevel) {
    trace("Progress");
    Feedback_L(X_Info_FL, "info\n");
    Feedback_L(X_InfoS_FL, "info_s\n"); // flag 8 only: log file alone
    Feedback_L(X_Progress_FL, "progress\n");
    ErrFeedback_L("error %d\n", 1); // no log file: standard error
    EXPECT_EQ(captured.out, "info\nprogress\n");
    EXPECT_EQ(captured.err, "error 1\n");

    captured = {};
    SetStdFeedback_L(0);
    Feedback_L(X_Warning_FL, "warning\n");
    ErrFeedback_L("error 2\n");
    EXPECT_EQ(captured.out, "");
    EXPECT_EQ(captured.err, "error 2\n");

    open_log();
    ErrFeedback_L("error 3\n");
    EXPECT_EQ(captured.err, "error 2\n");
}

TEST_F(FeedbackTest, NothingIsWrittenForBadClassesOrEmptyTexts) {
    fs::path log = open_log();
    for (int32_t bad : {-1, 9, 1000, INT32_MIN}) {
        Feedback_L(bad, "bad %d\n", bad);
        Simple_Feedback_L(bad, "bad\n");
        EXPECT_EQ(IsActiveFeedback_L(bad), 0);
    }
    Feedback_L(X_Info_FL, "");
    Feedback_L(X_Info_FL, nullptr);
    Feedback_L(X_Info_FL, "%s", "");
    Simple_Feedback_L(X_Info_FL, nullptr);
    Simple_Feedback_L(X_Info_FL, "");
    Feedback_L(X_Detail_FL, "inactive\n");
    EXPECT_EQ(Debug_L("HANDLER", nullptr), -1);
    EXPECT_EQ(captured.out, "");
    EXPECT_EQ(captured.err, "");
    EXPECT_EQ(read_file(log), "");
}

TEST_F(FeedbackTest, FeedbackFromInsideAWriteIsSkipped) {
    struct Nested {
        Captured captured;
        int calls = 0;
    } nested;
    SetFeedbackWriter_L(
        [](int32_t, const char *text, size_t length, void *context) {
            auto *state = static_cast<Nested *>(context);
            ++state->calls;
            state->captured.out.append(text, length);
            Feedback_L(X_Info_FL, "nested\n");
        },
        &nested);
    Simple_Feedback_L(X_Info_FL, "outer\n");
    EXPECT_EQ(nested.calls, 1);
    EXPECT_EQ(nested.captured.out, "outer\n");
}

// ---- standard output wrapping -------------------------------------------------------------

struct WrapCase {
    int32_t width;
    const char *text;
    const char *expected;
};

const WrapCase wrap_cases[] = {
    {10, "aaaa bbbb cccc\n", "aaaa bbbb\ncccc\n"},
    {5, "abcdefghijkl", "abcde\nfghij\nkl\n"}, // every write ends a line
    {5, "ab cdefgh\n", "ab\ncdefg\nh\n"},
    {4, "abcd efgh", "abcd\nefgh\n"}, // the space just past the width is used
    {4, " abcdef", " abc\ndef\n"},    // a leading space is no break point
    {3, "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9", "\xC3\xA9\xC3\xA9\xC3\xA9\n\xC3\xA9\xC3\xA9\n"},
    {6, "short\nlines stay\n", "short\nlines\nstay\n"},
    {6, "exact!\n", "exact!\n"},
    {0, "width zero means 1024\n", "width zero means 1024\n"},
};

TEST_F(FeedbackTest, StandardOutputIsWrappedAtTheFeedbackWidth) {
    for (const WrapCase &c : wrap_cases) {
        SCOPED_TRACE(c.text);
        captured = {};
        Set_Feedback_Width_L(c.width);
        Simple_Feedback_L(X_Info_FL, c.text);
        EXPECT_EQ(captured.out, c.expected);
    }
}

TEST_F(FeedbackTest, DefaultWidthIs1024AndTheLogFileIsNotWrapped) {
    fs::path log = open_log();
    std::string line(1030, 'x');
    Simple_Feedback_L(X_Info_FL, line.c_str());
    EXPECT_EQ(captured.out, std::string(1024, 'x') + "\n" + std::string(6, 'x') + "\n");
    EXPECT_EQ(read_file(log), line + "\r\n");
    captured = {};
    Set_Feedback_Width_L(-5);
    Simple_Feedback_L(X_Info_FL, std::string(1024, 'y').c_str());
    EXPECT_EQ(captured.out, std::string(1024, 'y') + "\n");
}

// ---- the log file ---------------------------------------------------------------------------

TEST_F(FeedbackTest, LogFileHasPrefixesCrLfLineEndsAndWarningBlocks) {
    trace("Progress");
    fs::path log = open_log();
    Feedback_L(X_Warning_FL, "w0\n"); // first write of the file: no spacing
    Feedback_L(X_Info_FL, "info\n");
    Feedback_L(X_Warning_FL, "w1\n");
    Feedback_L(X_Warning_FL, "w2\r\nw3\n");
    Feedback_L(X_Progress_FL, "step %d\n", 1);
    Debug_L("Progress", "debug\n");
    Feedback_L(X_Warning_FL, "w4\n");
    std::string text = read_file(log);
    std::regex expected("w0\r\ninfo\r\n\r\nw1\r\nw2\r\nw3\r\n"
                        "\\[PROGRESS   - \\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\] step 1\r\n"
                        "debug\r\n\r\nw4\r\n");
    EXPECT_TRUE(std::regex_match(text, expected)) << text;
}

TEST_F(FeedbackTest, LongClassNamesAreCutInThePrefix) {
    int32_t custom =
        RegisterFeedbackClass_L("VeryLongClassName", 4, QV_FEEDBACK_ALWAYS | QV_FEEDBACK_TIMESTAMP);
    fs::path log = open_log();
    Feedback_L(custom, "x");
    EXPECT_TRUE(
        std::regex_match(read_file(log), std::regex("\\[VERYLONGCL - [-0-9: ]{19}\\] x\r\n")));
}

TEST_F(FeedbackTest, LogFileAppendsOrTruncatesAndCloses) {
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
}

TEST_F(FeedbackTest, DefaultLogFileGoesToTheLogDirectoryUnderTheLogName) {
    std::string with_slash = directory.string() + "/";
    setenv("QV_LOG_DIR", with_slash.c_str(), 1);
    ASSERT_EQ(SetDefaultFeedbackFile_L("default.log"), 0);
    Feedback_L(X_InfoS_FL, "d\n");
    EXPECT_EQ(read_file(directory / "default.log"), "d\r\n");

    setenv("QV_LOG_NAME", "renamed.log", 1);
    ASSERT_EQ(SetDefaultFeedbackFile_L("default.log"), 0);
    Feedback_L(X_InfoS_FL, "r\n");
    EXPECT_EQ(take(FeedbackFilePath_L()), (directory / "renamed.log").string());
    EXPECT_EQ(read_file(directory / "renamed.log"), "r\r\n");
}

TEST_F(FeedbackTest, AsciiLogEncodingReplacesOtherCharacters) {
    setenv("QV_LOG_ENCODING", "ascii", 1);
    fs::path log = open_log();
    Simple_Feedback_L(X_InfoS_FL, "caf\xC3\xA9\n");
    EXPECT_EQ(read_file(log), "caf??\r\n");

    setenv("QV_LOG_ENCODING", "EBCDIC", 1);
    log = open_log("other.log");
    Simple_Feedback_L(X_InfoS_FL, "caf\xC3\xA9\n");
    std::string text = read_file(log);
    EXPECT_NE(text.find("Log encoding 'EBCDIC' is not supported"), std::string::npos) << text;
    EXPECT_NE(text.find("caf\xC3\xA9\r\n"), std::string::npos);
}

TEST_F(FeedbackTest, AnUnopenableLogFileIsReportedAndOutputGoesOn) {
    struct BadPath {
        const char *what;
        std::string path;
    };
    const BadPath bad_paths[] = {
        {"missing directory", "/nonexistent/qv/logs/run.log"},
        {"a directory", directory.string()},
    };
    for (const BadPath &bad : bad_paths) {
        SCOPED_TRACE(bad.what);
        captured = {};
        EXPECT_EQ(SetFeedbackFile_L(bad.path.c_str(), 0), -1);
        EXPECT_NE(captured.err.find("Cannot open the log file '" + bad.path + "'"),
                  std::string::npos)
            << captured.err;
        EXPECT_EQ(FeedbackFilePath_L(), nullptr);
        Feedback_L(X_Info_FL, "still here\n");
        EXPECT_EQ(captured.out, "still here\n");
    }
    setenv("QV_LOG_DIR", "/nonexistent/qv/logs", 1);
    EXPECT_EQ(SetDefaultFeedbackFile_L("run.log"), -1);
    EXPECT_EQ(SetFeedbackFile_L(nullptr, 0), -1);
    EXPECT_EQ(SetDefaultFeedbackFile_L(""), -1);
    EXPECT_NE(captured.err.find("No log file name given"), std::string::npos);
}

// ---- log file names -------------------------------------------------------------------------

struct RootCase {
    char kind;
    const char *name;
    int32_t number;
    const char *expected;
};

const RootCase root_cases[] = {
    {'B', "sales", 7, "Build_sales_0007"},
    {'S', "Dim One", 12345, "DimBuild_Dim One_12345"},
    {'J', "a/b\\c:d*e?f\"g<h>i|j", 0, "Job_a_b_c_d_e_f_g_h_i_j_0000"},
    {'x', "tab\there\x7F", -3, "Unknown_tab_here__-003"},
    {'B', "caf\xC3\xA9", 1, "Build_caf\xC3\xA9_0001"},
    {'B', "bad\xC3(\xFF", 1, "Build_bad_(__0001"},
    {'J', nullptr, 1, "Job__0001"},
};

TEST_F(FeedbackTest, LogFileRootsNameKindNameAndNumber) {
    for (const RootCase &c : root_cases) {
        SCOPED_TRACE(c.expected);
        EXPECT_EQ(take(DefaultLogFileRoot_L(c.kind, c.name, c.number, 0, "ignored")), c.expected);
    }
}

TEST_F(FeedbackTest, LogFileRootsMayCarryTheProcessIdAndASuffix) {
    char process[16];
    std::snprintf(process, sizeof process, "%08lx", static_cast<unsigned long>(getpid()));
    EXPECT_EQ(take(DefaultLogFileRoot_L('J', "nightly", 42, 1, "_retry")),
              std::string("Job_nightly_0042_") + process + "_retry");
    EXPECT_EQ(take(DefaultLogFileRoot_L('J', "nightly", 42, 1, nullptr)),
              std::string("Job_nightly_0042_") + process);
}

TEST_F(FeedbackTest, LogFilePathIsInTheLogDirectory) {
    EXPECT_EQ(take(LogFilePath_L('B', "sales", 3)), "Build_sales_0003.log");
    setenv("QV_LOG_DIR", "/var/log/qv//", 1);
    EXPECT_EQ(take(LogFilePath_L('S', "geo/region", 3)),
              "/var/log/qv/DimBuild_geo_region_0003.log");
}

// ---- allocation failures --------------------------------------------------------------------

TEST_F(FeedbackTest, AllocationFailuresDuringSetupAndWritingLeakNothing) {
    fs::path log = directory / "alloc.log";
    for (int32_t n = 0;; ++n) {
        ASSERT_LT(n, 200);
        TerminateFeedback_L();
        setenv("TRACE_VALUES", "Progress,User,HANDLER", 1);
        SetFeedbackWriter_L(capture, &captured);
        captured = {};
        const char *raised = nullptr;
        qv::guarded(
            "alloc_loop", "feedback_test", __LINE__,
            [&] {
                TestFailAllocation_L(n); // armed inside: opening the context allocates too
                InitialiseFeedback_L();
                RegisterFeedbackClass_L("Audit", 4, QV_FEEDBACK_ALWAYS | QV_FEEDBACK_STDOUT);
                SetFeedbackFile_L(log.c_str(), 0);
                Feedback_L(X_Progress_FL, "%s %d\n", "written", n);
                free(LogFilePath_L('B', "name", 1));
            },
            [&](const char *symbol) { raised = symbol; });
        bool failed = TestAllocationFailed_L() != 0;
        TestFailAllocation_L(-1);
        if (!failed) {
            EXPECT_EQ(raised, nullptr);
            EXPECT_EQ(captured.out, "written " + std::to_string(n) + "\n");
            EXPECT_EQ(GetFeedbackClass_L("Audit"), 9);
            break;
        }
        EXPECT_EQ(raised, ALLOC_FAILURE) << "allocation " << n;
    }
}

TEST_F(FeedbackTest, AllocationFailureWithoutAContextWritesNothing) {
    InitialiseFeedback_L();
    TestFailAllocation_L(0);
    Feedback_L(X_Info_FL, "%s\n", "never");
    TestFailAllocation_L(-1);
    EXPECT_EQ(captured.out, "");
    Feedback_L(X_Info_FL, "%s\n", "later");
    EXPECT_EQ(captured.out, "later\n");
}

// ---- interrupts -----------------------------------------------------------------------------

TEST_F(FeedbackTest, AnInterruptIsDeliveredOnceUntilCleared) {
    Set_Interrupt_L();
    EXPECT_EQ(Check_Interrupt_L(0), 0); // interrupts not active yet
    InterruptsActive_L(1);
    std::vector<int32_t> results;
    for (int i = 0; i < 3; ++i) results.push_back(Check_Interrupt_L(0));
    EXPECT_EQ(results, (std::vector<int32_t>{-1, 0, 0}));
    Set_Interrupt_L();
    EXPECT_EQ(Check_Interrupt_L(0), 0);
    Clear_Interrupt_L();
    EXPECT_EQ(Check_Interrupt_L(0), 0);
    Set_Interrupt_L();
    EXPECT_EQ(Check_Interrupt_L(0), -1);
    InterruptsActive_L(0);
    Clear_Interrupt_L();
    Set_Interrupt_L();
    EXPECT_EQ(Check_Interrupt_L(0), 0);
}

TEST_F(FeedbackTest, ARaisedInterruptLandsInTheStatusContextOnce) {
    InterruptsActive_L(1);
    Set_Interrupt_L();
    std::vector<const char *> landed;
    for (int i = 0; i < 2; ++i)
        qv::guarded(
            "interrupt", "feedback_test", __LINE__, [] { Check_Interrupt_L(1); },
            [&](const char *symbol) { landed.push_back(symbol); });
    ASSERT_EQ(landed.size(), 1u);
    EXPECT_EQ(landed[0], INTERRUPT_PROCESS);
    EXPECT_EQ(Exc_GetFile_L(), std::string("feedback"));
}

TEST_F(FeedbackTest, ThePumpAndSignalHandlersMayRequestTheInterrupt) {
    static int pumped = 0;
    pumped = 0;
    InterruptsActive_L(1);
    SetInterruptPump_L([] {
        if (++pumped == 2) Set_Interrupt_L();
    });
    EXPECT_EQ(Check_Interrupt_L(0), 0);
    EXPECT_EQ(Check_Interrupt_L(0), -1);
    EXPECT_EQ(pumped, 2);
    SetInterruptPump_L(nullptr);

    Clear_Interrupt_L();
    auto previous = std::signal(SIGUSR1, [](int) { Set_Interrupt_L(); });
    std::raise(SIGUSR1);
    std::signal(SIGUSR1, previous);
    EXPECT_EQ(Check_Interrupt_L(0), -1);
}

} // namespace
