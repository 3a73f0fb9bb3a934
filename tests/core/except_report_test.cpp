// What the status-context machinery says, now through messages and feedback: the fatal
// reports on the error class, the message of the last raise (bounded to 255 bytes), the
// logged forms, the "HANDLER" trace of every raise, and the exception filter.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "core/raise.hpp"
#include "qv/alloc.h"
#include "qv/except.h"
#include "qv/feedback.h"
#include "qv/message.h"
#include "qv/msgclass.h"

namespace {

const char *const TEST_FAILURE = "TEST_FAILURE";

class ExceptReportTest : public ::testing::Test {
  protected:
    std::string out, err;
    uint32_t context = 0;

    static void capture(int32_t stream, const char *text, size_t length, void *test) {
        auto *self = static_cast<ExceptReportTest *>(test);
        (stream == 2 ? self->err : self->out).append(text, length);
    }

    void SetUp() override {
        unsetenv("TRACE_VALUES");
        InitialiseFeedback_L();
        ResetFeedbackSelections_L();
        SetFeedbackWriter_L(capture, this);
        TerminateMessages_L(nullptr);
        InitMessages_L(&context);
    }
    void TearDown() override {
        SetFeedbackWriter_L(nullptr, nullptr);
        ClearMessageContext_L();
        TerminateMessages_L(nullptr);
        unsetenv("TRACE_VALUES");
        ResetFeedbackSelections_L();
        while (Exc_Sp != nullptr) except_end_context("test", __LINE__);
    }

    static void trace_handler() {
        setenv("TRACE_VALUES", "handler", 1);
        ResetFeedbackSelections_L();
    }

    // Raises `symbol` from file/line inside a context of its own and swallows it.
    static void raise_and_catch(const char *symbol, const char *file, int32_t line) {
        qv::guarded(
            "raise_and_catch", "except_report_test", __LINE__,
            [&] { except_raise(symbol, file, line, 0, 0, nullptr); }, [](const char *) {});
    }

    static std::string fatal_text(const char *what, const char *file, int32_t line) {
        PWMessage message(QV_MSG_CONTEXT_FAILURE, MESSAGE_SEVERITY_ERROR);
        message << what << file << line;
        return message.Text() + "\n";
    }
};

TEST_F(ExceptReportTest, FatalReportsAreMessagesOnTheErrorClass) {
    except_end_context("report_test", 77);
    EXPECT_EQ(err, fatal_text("attempting to pop context from empty stack", "report_test", 77));
    err.clear();
    except_raise(TEST_FAILURE, "report_test", 78, 0, 0, nullptr);
    EXPECT_EQ(err, fatal_text("no context on RAISE/RERAISE", "report_test", 78));
    err.clear();
    qv::guarded(
        "f", "report_test", 1, [] {}, [](const char *) {}); // nothing raised, nothing said
    qv::guarded(
        "f", "report_test", 1, [] { except_raise(TEST_FAILURE, "report_test", 79, 0, 0, nullptr); },
        [](const char *) { except_raise(TEST_FAILURE, "report_test", 80, 1, 0, nullptr); });
    EXPECT_EQ(err, fatal_text("no context on RAISE/RERAISE from handler", "report_test", 80));
    err.clear();
    qv::guarded(
        "f", "report_test", 1,
        [] { except_raise(TEST_FAILURE, "report_test", 81, EXC_RERAISE, 0, nullptr); },
        [](const char *) {});
    EXPECT_EQ(err, fatal_text("RERAISE outside exception handlers", "report_test", 81));
    EXPECT_EQ(out, "");
    int32_t collected = -1;
    CheckMessageHandle_L(context, &collected, nullptr);
    EXPECT_EQ(collected, 0); // written, not collected
}

TEST_F(ExceptReportTest, ReportsUnderAllocationFailureEndAndSaySomething) {
    // Whichever allocation of the report fails, the report ends; once none fails it is whole.
    int n = 0;
    for (;; ++n) {
        err.clear();
        TestFailAllocation_L(n);
        except_end_context("report_test", 90);
        bool fired = TestAllocationFailed_L() != 0;
        TestFailAllocation_L(-1);
        if (!fired) break;
    }
    EXPECT_GT(n, 0);
    EXPECT_EQ(err, fatal_text("attempting to pop context from empty stack", "report_test", 90));
}

TEST_F(ExceptReportTest, ExcMessageDescribesTheLastRaise) {
    raise_and_catch(TEST_FAILURE, "qvvar", 1234);
    PWMessage expected(QV_MSG_EXCEPTION_RAISED, MESSAGE_SEVERITY_ERROR);
    expected << TEST_FAILURE << "qvvar" << 1234;
    EXPECT_EQ(std::string(Exc_Message_L()), expected.Text());
    EXPECT_EQ(Exc_Message_L(), Exc_Message_L()); // one buffer
}

TEST_F(ExceptReportTest, ExcMessageIsBoundedTo255Bytes) {
    const struct { std::size_t file_length; } cases[] = {{10}, {200}, {240}, {255}, {1000}};
    for (const auto &c : cases) {
        std::string file(c.file_length, 'f');
        raise_and_catch(GENERAL_ERROR, file.c_str(), 7);
        PWMessage expected(QV_MSG_EXCEPTION_RAISED, MESSAGE_SEVERITY_ERROR);
        expected << GENERAL_ERROR << file << 7;
        std::string whole = expected.Text();
        const char *text = Exc_Message_L();
        EXPECT_EQ(std::strlen(text), std::min<std::size_t>(whole.size(), 255)) << c.file_length;
        EXPECT_EQ(whole.compare(0, std::strlen(text), text), 0) << c.file_length;
    }
}

TEST_F(ExceptReportTest, LoggedFormsGoToTheMessageContext) {
    raise_and_catch(TEST_FAILURE, "express", 55);
    LogExcError_L();
    qv::guarded(
        "f", "report_test", 1,
        [] { except_raise(STATUS_RAISED, "express", 56, 0, 42, "exit_code"); },
        [](const char *) {});
    LogExcStatusError_L();
    int32_t count = 0;
    ASSERT_EQ(CheckMessageHandle_L(context, &count, nullptr), 0);
    ASSERT_EQ(count, 2);
    PWMessage *raised = GetMessage_L(context, 0);
    EXPECT_EQ(raised->Number(), QV_MSG_EXCEPTION_RAISED);
    ASSERT_EQ(raised->Parameters().size(), 3u);
    EXPECT_EQ(raised->Parameters()[0].Text(), TEST_FAILURE);
    EXPECT_EQ(raised->Parameters()[1].Text(), "express");
    EXPECT_EQ(raised->Parameters()[2].Signed(), 55);
    PWMessage *status = GetMessage_L(context, 1);
    EXPECT_EQ(status->Number(), QV_MSG_STATUS_RAISED);
    ASSERT_EQ(status->Parameters().size(), 1u);
    EXPECT_EQ(status->Parameters()[0].Signed(), 42);
    EXPECT_EQ(out + err, "");
}

TEST_F(ExceptReportTest, EveryRaiseIsTracedUnderHandler) {
    raise_and_catch(TEST_FAILURE, "qvlist", 3);
    EXPECT_EQ(out, ""); // not selected
    trace_handler();
    const struct {
        const char *what;
        int32_t mode;
        const char *symbol;
        int32_t status;
        const char *expected;
    } cases[] = {
        {"raise", EXC_RAISE, TEST_FAILURE, 0, "RAISE ('TEST_FAILURE') ['qvlist' line 3]\n"},
        {"status", EXC_RAISE, STATUS_RAISED, 42,
         "STATUS 'exit_code' (00000042 0000002A) RAISED ['qvlist' line 3]\n"},
        {"negative status", EXC_RAISE, STATUS_RAISED, -1,
         "STATUS 'exit_code' (-0000001 FFFFFFFF) RAISED ['qvlist' line 3]\n"},
    };
    for (const auto &c : cases) {
        out.clear();
        qv::guarded(
            "f", "report_test", 1,
            [&] { except_raise(c.symbol, "qvlist", 3, c.mode, c.status, "exit_code"); },
            [](const char *) {});
        EXPECT_EQ(out, c.expected) << c.what;
    }
    out.clear();
    qv::guarded(
        "outer", "report_test", 1,
        [] {
            qv::guarded(
                "inner", "report_test", 2,
                [] { except_raise(TEST_FAILURE, "qvlist", 4, EXC_RAISE, 0, nullptr); },
                [](const char *) {
                    except_raise(TEST_FAILURE, "qvlist", 5, EXC_RERAISE, 0, nullptr);
                });
        },
        [](const char *) { except_raise(TEST_FAILURE, "qvlist", 6, 7, 0, nullptr); });
    EXPECT_EQ(out, "RAISE ('TEST_FAILURE') ['qvlist' line 4]\n"
                   "RERAISE('TEST_FAILURE') ['qvlist' line 5] \n"
                   "Default reraise ('TEST_FAILURE') ['qvlist' line 6]\n");
}

TEST_F(ExceptReportTest, ExceptionFilterWritesToTheErrorClass) {
    QV_EXCEPTION_RECORD_T record{};
    record.code = 0xC0000094;
    QV_EXCEPTION_POINTERS_T pointers{&record, nullptr};
    EXPECT_EQ(TopLevelExceptionFilter_L(&pointers), 1);
    EXPECT_EQ(err, "Software Exception 0xC0000094 ( Integer divide by zero )\n");
    err.clear();
    EXPECT_EQ(TopLevelExceptionFilter_L(nullptr), 1);
    EXPECT_EQ(err, "Unknown exception\n"); // a feedback write always ends its line
}

} // namespace
