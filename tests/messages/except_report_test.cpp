// What the status-context machinery says, through messages and feedback: the fatal reports
// on the error class (made without memory, plainly when nested), the message of the last
// raise (bounded to 255 bytes), the logged forms, the "HANDLER" trace of every raise, and
// the exception filter.
#include <cstring>
#include <functional>

#include "capture.hpp"
#include "core/except_report.hpp"

namespace {

using namespace qvtest;

const char *const TEST_FAILURE = "TEST_FAILURE";

void raise_in(const char *symbol, const char *file, int32_t line, int32_t mode = EXC_RAISE,
              int32_t status = 0) {
    except_raise(symbol, file, line, mode, status, "exit_code");
}

std::string fatal_text(const char *what, int32_t line) {
    return std::string("Status context failure: ") + what + " (report_test, line " +
           std::to_string(line) + ").\n";
}

using ExceptReportTest = CaptureTest;

TEST_F(ExceptReportTest, FatalReportsAreWrittenOnTheErrorClassNotCollected) {
    const struct {
        const char *what;
        std::function<void()> misuse;
    } cases[] = {
        {"attempting to pop context from empty stack",
         [] { except_end_context("report_test", 77); }},
        {"no context on RAISE/RERAISE", [] { raise_in(TEST_FAILURE, "report_test", 77); }},
        {"no context on RAISE/RERAISE from handler",
         [] {
             qv::guarded(
                 "f", "report_test", 1, [] { raise_in(TEST_FAILURE, "report_test", 1); },
                 [](const char *) { raise_in(TEST_FAILURE, "report_test", 77, EXC_RERAISE); });
         }},
        {"RERAISE outside exception handlers",
         [] { raised_by([] { raise_in(TEST_FAILURE, "report_test", 77, EXC_RERAISE); }); }},
    };
    std::string expected;
    for (const auto &c : cases) {
        c.misuse();
        expected += fatal_text(c.what, 77);
    }
    raised_by([] {}); // nothing raised, nothing said
    EXPECT_EQ(err, expected);
    EXPECT_EQ(out, "");
    EXPECT_EQ(texts_of(context).size(), 0u); // written, not collected

    // Once feedback is set up, a report allocates nothing at all.
    err.clear();
    TestFailAllocation_L(0);
    except_end_context("report_test", 90);
    EXPECT_FALSE(TestAllocationFailed_L());
    TestFailAllocation_L(-1);
    EXPECT_EQ(err, "Status context failure: attempting to pop context from empty stack "
                   "(report_test, line 90).\n");
}

// A report made while another output of the library is under way (here: from inside a
// feedback write), or one that feedback cannot take, is one plain line on standard error.
TEST_F(ExceptReportTest, NestedOrRefusedReportsArePlainLinesOnStandardError) {
    SetFeedbackWriter_L(
        [](int32_t stream, const char *text, size_t length, void *test) {
            write(stream, text, length, test);
            except_end_context("report_test", 91);
        },
        this);
    testing::internal::CaptureStderr();
    Simple_Feedback_L(X_Info_FL, "info\n");
    RegisterFeedbackClass_L("Error", 2, 0); // no longer always active
    except_end_context("report_test", 92);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              fatal_text("attempting to pop context from empty stack", 91) +
                  fatal_text("attempting to pop context from empty stack", 92));
    EXPECT_EQ(out + err, "info\n");
    EXPECT_EQ(qv::speaking_depth(), 0);
}

TEST_F(ExceptReportTest, ExcMessageDescribesTheLastRaiseInAtMost255Bytes) {
    for (std::size_t length : {10, 200, 240, 255, 1000}) {
        std::string file(length, 'f');
        raised_by([&] { raise_in(TEST_FAILURE, file.c_str(), 7); });
        std::string whole = "TEST_FAILURE was raised in " + file + " at line 7.";
        const char *text = Exc_Message_L();
        EXPECT_EQ(std::strlen(text), std::min<std::size_t>(whole.size(), 255)) << length;
        EXPECT_EQ(whole.compare(0, std::strlen(text), text), 0) << length;
        EXPECT_EQ(Exc_Message_L(), text); // one buffer
    }
}

TEST_F(ExceptReportTest, LoggedFormsGoToTheMessageContext) {
    raised_by([] { raise_in(TEST_FAILURE, "express", 55); });
    LogExcError_L();
    raised_by([] { raise_in(STATUS_RAISED, "express", 56, EXC_RAISE, 42); });
    LogExcStatusError_L();
    ASSERT_EQ(texts_of(context).size(), 2u);
    PWMessage *raised = GetMessage_L(context, 0);
    EXPECT_EQ(raised->Number(), QV_MSG_EXCEPTION_RAISED);
    EXPECT_EQ(raised->Text(), "TEST_FAILURE was raised in express at line 55.");
    PWMessage *status = GetMessage_L(context, 1);
    EXPECT_EQ(status->Number(), QV_MSG_STATUS_RAISED);
    EXPECT_EQ(status->Text(), "A failure with status 42 was raised.");
    ASSERT_EQ(status->Parameters().size(), 1u);
    EXPECT_EQ(status->Parameters()[0].Signed(), 42);
    EXPECT_EQ(out + err, "");
}

TEST_F(ExceptReportTest, EveryRaiseIsTracedUnderHandler) {
    raised_by([] { raise_in(TEST_FAILURE, "qvlist", 3); });
    EXPECT_EQ(out, ""); // not selected
    trace("handler");
    raised_by([] { raise_in(TEST_FAILURE, "qvlist", 3); });
    raised_by([] { raise_in(STATUS_RAISED, "qvlist", 3, EXC_RAISE, 42); });
    raised_by([] { raise_in(STATUS_RAISED, "qvlist", 3, EXC_RAISE, -1); });
    raised_by([] {
        qv::guarded(
            "outer", "report_test", 1,
            [] {
                qv::guarded(
                    "inner", "report_test", 2, [] { raise_in(TEST_FAILURE, "qvlist", 4); },
                    [](const char *) { raise_in(TEST_FAILURE, "qvlist", 5, EXC_RERAISE); });
            },
            [](const char *) { raise_in(TEST_FAILURE, "qvlist", 6, 7); });
    });
    EXPECT_EQ(out, "RAISE ('TEST_FAILURE') ['qvlist' line 3]\n"
                   "STATUS 'exit_code' (00000042 0000002A) RAISED ['qvlist' line 3]\n"
                   "STATUS 'exit_code' (-0000001 FFFFFFFF) RAISED ['qvlist' line 3]\n"
                   "RAISE ('TEST_FAILURE') ['qvlist' line 4]\n"
                   "RERAISE('TEST_FAILURE') ['qvlist' line 5] \n"
                   "Default reraise ('TEST_FAILURE') ['qvlist' line 6]\n");
}

TEST_F(ExceptReportTest, ExceptionFilterWritesToTheErrorClass) {
    QV_EXCEPTION_RECORD_T record{};
    record.code = 0xC0000094;
    QV_EXCEPTION_POINTERS_T pointers{&record, nullptr};
    EXPECT_EQ(TopLevelExceptionFilter_L(&pointers), 1);
    EXPECT_EQ(TopLevelExceptionFilter_L(nullptr), 1);
    EXPECT_EQ(err, "Software Exception 0xC0000094 ( Integer divide by zero )\n"
                   "Unknown exception\n"); // a feedback write always ends its line
}

} // namespace
