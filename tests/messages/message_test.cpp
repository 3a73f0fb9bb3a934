// Message routing by severity, the message context, reports, transfers, the static text of
// StringMessage_L, the switches, the C-library error wrappers and the C building calls.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

#include "core/raise.hpp"
#include "messages/message.hpp"
#include "qv/alloc.h"
#include "qv/feedback.h"
#include "qv/message.h"
#include "qv/msgclass.h"

namespace {

// A message of another class, as a host's own message type would be.
class AuditMessage : public PWMessageBase {
  public:
    AuditMessage() : PWMessageBase(0x1234, PWSeverity::Error) {}
    const char *ClassName() const override { return "AuditMessage"; }
    std::unique_ptr<PWMessageBase> Clone() const override {
        return std::make_unique<AuditMessage>(*this);
    }
    std::string Text() const override { return "audit"; }
};

// An uncatalogued number: its text is the fallback naming the number and parameters.
constexpr uint32_t plain_number = 0x00000010;

std::string plain_text(const char *word) {
    PWMessage message(plain_number, MESSAGE_SEVERITY_ERROR);
    message << word;
    return message.Text();
}

class MessageTest : public ::testing::Test {
  protected:
    std::string out, err;

    static void capture(int32_t stream, const char *text, size_t length, void *context) {
        auto *test = static_cast<MessageTest *>(context);
        (stream == 2 ? test->err : test->out).append(text, length);
    }

    void SetUp() override {
        unsetenv("TRACE_VALUES");
        InitialiseFeedback_L();
        ResetFeedbackSelections_L();
        SetFeedbackWriter_L(capture, this);
        TerminateMessages_L(nullptr);
        ClearMessageContext_L();
        qv::reset_warning_deferral();
        SetErrorSuppression_L(0);
    }
    void TearDown() override {
        SetFeedbackWriter_L(nullptr, nullptr);
        CloseFeedbackFile_L();
        ClearMessageContext_L();
        TerminateMessages_L(nullptr);
        qv::reset_warning_deferral();
        unsetenv("TRACE_VALUES");
        ResetFeedbackSelections_L();
    }

    static void log(int32_t severity, const char *word) {
        PWMessage message(plain_number, severity);
        message << word;
        LogMessage_L(&message);
    }

    static std::vector<std::string> texts_of(uint32_t handle) {
        std::vector<std::string> texts;
        int32_t count = 0;
        if (CheckMessageHandle_L(handle, &count, nullptr) != 0) return texts;
        for (int32_t i = 0; i < count; ++i) texts.push_back(GetMessage_L(handle, i)->Text());
        return texts;
    }
};

TEST_F(MessageTest, SeverityNames) {
    const struct {
        int32_t severity;
        const char *name;
    } cases[] = {{1, "D"}, {2, "I"}, {3, "W"}, {4, "E"}, {5, "F"},
                 {0, "?"}, {6, "?"}, {9, "?"}, {-1, "?"}};
    for (const auto &c : cases) EXPECT_STREQ(MsgSeverityName_L(c.severity), c.name) << c.severity;
}

TEST_F(MessageTest, MessageContextCalls) {
    uint32_t first = 77, second = 5;
    InitMessages_L(&first);
    EXPECT_EQ(first, 0u);
    EXPECT_EQ(SetMessageContext_L(nullptr), &first); // only reads
    uint32_t *seen = nullptr;
    EXPECT_EQ(GetMessageContext_L(&seen), &seen);
    EXPECT_EQ(seen, &first);
    EXPECT_EQ(SetMessageContext_L(&second), &first);
    EXPECT_EQ(second, 5u); // SetMessageContext_L leaves the variable alone
    GetMessageContext_L(&seen);
    EXPECT_EQ(seen, &second);
    ClearMessageContext_L();
    GetMessageContext_L(&seen);
    EXPECT_EQ(seen, nullptr);
    EXPECT_EQ(GetMessageContext_L(nullptr), nullptr);
}

TEST_F(MessageTest, RoutesEachSeverity) {
    const struct {
        int32_t severity;
        std::string printed; // on standard output
        bool collected;
    } cases[] = {
        {MESSAGE_SEVERITY_DEBUG, "", false}, // category "16" not selected
        {MESSAGE_SEVERITY_INFORMATION, plain_text("w") + "\n", false},
        {MESSAGE_SEVERITY_WARNING, "WARNING - " + plain_text("w") + "\n", false},
        {MESSAGE_SEVERITY_ERROR, "", true},
        {MESSAGE_SEVERITY_FATAL, "", true},
        {9, "", true}, // unknown severities count as errors
    };
    for (const auto &c : cases) {
        uint32_t context = 0;
        InitMessages_L(&context);
        out.clear();
        log(c.severity, "w");
        EXPECT_EQ(out, c.printed) << c.severity;
        EXPECT_EQ(err, "") << c.severity;
        EXPECT_EQ(texts_of(context).size(), c.collected ? 1u : 0u) << c.severity;
        DeleteMessageHandle_L(context);
    }
}

TEST_F(MessageTest, DebugMessagesGoToTheirNumbersCategory) {
    setenv("TRACE_VALUES", "12, 16", 1);
    ResetFeedbackSelections_L();
    log(MESSAGE_SEVERITY_DEBUG, "dbg");
    EXPECT_EQ(out, plain_text("dbg") + "\n");
    out.clear();
    PWMessage other(17, MESSAGE_SEVERITY_DEBUG);
    LogMessage_L(&other);
    EXPECT_EQ(out, "");
}

TEST_F(MessageTest, ErrorsWithoutContextAreDropped) {
    log(MESSAGE_SEVERITY_ERROR, "lost");
    log(MESSAGE_SEVERITY_FATAL, "lost");
    EXPECT_EQ(PWMsgSet::Instance().SetCount(), 0u);
    EXPECT_EQ(out + err, "");
    LogMessage_L(nullptr); // nothing at all
}

TEST_F(MessageTest, DeferredWarningsAreCollectedAndReportedLater) {
    uint32_t context = 0;
    InitMessages_L(&context);
    DeferWarnings_L();
    log(MESSAGE_SEVERITY_WARNING, "careful");
    EXPECT_EQ(out, "");
    ASSERT_EQ(texts_of(context), std::vector<std::string>{plain_text("careful")});
    EXPECT_EQ(GetMessage_L(context, 0)->LibrarySeverity(), MESSAGE_SEVERITY_WARNING);
    log(MESSAGE_SEVERITY_INFORMATION, "still printed");
    EXPECT_EQ(out, plain_text("still printed") + "\n");

    // Warnings are reported to class 3 ("Info_S"), which writes only to the log file.
    auto path = std::filesystem::temp_directory_path() / ("qv_report_" + std::to_string(getpid()));
    ASSERT_EQ(SetFeedbackFile_L(path.c_str(), 0), 0);
    ReportMessages_L(&context, MESSAGE_SEVERITY_DEBUG);
    CloseFeedbackFile_L();
    std::ifstream file(path, std::ios::binary);
    std::stringstream content;
    content << file.rdbuf();
    std::filesystem::remove(path);
    EXPECT_EQ(content.str(), "\r\nWARNING - " + plain_text("careful") + "\r\n\r\n");
    EXPECT_EQ(context, 0u);
}

TEST_F(MessageTest, ReportPrintsByteForByteAndDeletesTheSet) {
    uint32_t set = 0;
    const int32_t severities[] = {MESSAGE_SEVERITY_INFORMATION, MESSAGE_SEVERITY_ERROR,
                                  MESSAGE_SEVERITY_WARNING, MESSAGE_SEVERITY_FATAL};
    const char *words[] = {"i", "e", "w", "f"};
    for (int i = 0; i < 4; ++i) {
        PWMessage message(plain_number, severities[i]);
        message << words[i];
        AddMessage_L(&set, &message);
    }
    uint32_t handle = set;
    // Errors and fatal messages go to class 2 ("Info"), echoed to standard output; the
    // first message printed (the information, to the untraced class 4) takes the "\n".
    ReportMessages_L(&set, MESSAGE_SEVERITY_DEBUG);
    EXPECT_EQ(out, plain_text("e") + "\n\n" + plain_text("f") + "\n\n");
    EXPECT_EQ(set, 0u);
    EXPECT_FALSE(PWMsgSet::Instance().IsSet(handle));
}

TEST_F(MessageTest, ReportWithMinimumFourPrintsErrorsOnlyButDeletesAll) {
    uint32_t set = 0;
    const int32_t severities[] = {MESSAGE_SEVERITY_WARNING, MESSAGE_SEVERITY_ERROR,
                                  MESSAGE_SEVERITY_INFORMATION, MESSAGE_SEVERITY_FATAL};
    const char *words[] = {"w", "e", "i", "f"};
    for (int i = 0; i < 4; ++i) {
        PWMessage message(plain_number, severities[i]);
        message << words[i];
        AddMessage_L(&set, &message);
    }
    uint32_t handle = set;
    ReportMessages_L(&set, MESSAGE_SEVERITY_ERROR);
    EXPECT_EQ(out, "\n" + plain_text("e") + "\n\n" + plain_text("f") + "\n\n");
    EXPECT_EQ(set, 0u);
    EXPECT_FALSE(PWMsgSet::Instance().IsSet(handle));
}

TEST_F(MessageTest, ReportOfNothing) {
    ReportMessages_L(nullptr, 1); // does nothing
    uint32_t none = 0;
    ReportMessages_L(&none, 1);
    EXPECT_EQ(none, 0u);
    uint32_t stale = 4242; // names no set
    ReportMessages_L(&stale, 1);
    EXPECT_EQ(stale, 0u);
    // A set that exists but holds nothing (emptied by a transfer): deleted, zeroed.
    uint32_t emptied = 0, receiver = 0;
    PWMessage message(plain_number, MESSAGE_SEVERITY_ERROR);
    AddMessage_L(&emptied, &message);
    PWMsgSet::Instance().Transfer(emptied, receiver);
    uint32_t handle = emptied;
    ReportMessages_L(&emptied, 1);
    EXPECT_EQ(emptied, 0u);
    EXPECT_FALSE(PWMsgSet::Instance().IsSet(handle));
    EXPECT_EQ(out + err, "");
}

TEST_F(MessageTest, CheckMessageHandle) {
    uint32_t set = 0;
    PWMessage warning(plain_number, MESSAGE_SEVERITY_WARNING);
    PWMessage fatal(plain_number, MESSAGE_SEVERITY_FATAL);
    AddMessage_L(&set, &warning);
    AddMessage_L(&set, &fatal);
    AddMessage_L(&set, &warning);
    int32_t count = -7, worst = -7;
    // With no message context: 0 at once, the count zeroed, nothing else looked at.
    EXPECT_EQ(CheckMessageHandle_L(set, &count, &worst), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(worst, -7);
    uint32_t context = 0;
    InitMessages_L(&context);
    EXPECT_EQ(CheckMessageHandle_L(set, &count, &worst), 0);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(worst, MESSAGE_SEVERITY_FATAL);
    EXPECT_EQ(CheckMessageHandle_L(set, nullptr, nullptr), 0);
    count = 9;
    EXPECT_EQ(CheckMessageHandle_L(set + 1000, &count, &worst), -1);
    EXPECT_EQ(count, 0);
}

TEST_F(MessageTest, GetMessageChecksClassAndRange) {
    uint32_t set = 0;
    PWMessage message(plain_number, MESSAGE_SEVERITY_ERROR);
    message << "first";
    AddMessage_L(&set, &message);
    PWMsgSet::Instance().Add(set, AuditMessage());
    PWMessage *got = GetMessage_L(set, 0);
    ASSERT_NE(got, nullptr);
    EXPECT_NE(got, &message); // the set holds its own copy
    EXPECT_EQ(got->Text(), plain_text("first"));
    EXPECT_EQ(GetMessage_L(set, 1), nullptr); // not a PWMessage
    EXPECT_EQ(GetMessage_L(set, 2), nullptr);
    EXPECT_EQ(GetMessage_L(set, -1), nullptr);
    EXPECT_EQ(GetMessage_L(set + 1, 0), nullptr);
}

TEST_F(MessageTest, TransferMovesIntoTheContextSet) {
    uint32_t context = 0;
    InitMessages_L(&context);
    log(MESSAGE_SEVERITY_ERROR, "outer");
    uint32_t inner = 0;
    for (const char *word : {"a", "b"}) {
        PWMessage message(plain_number, MESSAGE_SEVERITY_ERROR);
        message << word;
        AddMessage_L(&inner, &message);
    }
    uint32_t inner_handle = inner;
    TransferMessages_L(&inner);
    EXPECT_EQ(inner, 0u);
    EXPECT_FALSE(PWMsgSet::Instance().IsSet(inner_handle));
    EXPECT_EQ(texts_of(context),
              (std::vector<std::string>{plain_text("outer"), plain_text("a"), plain_text("b")}));

    // The context's own variable: nothing moves, nothing is lost.
    TransferMessages_L(&context);
    EXPECT_EQ(texts_of(context).size(), 3u);

    // No context: the set is deleted all the same.
    ClearMessageContext_L();
    uint32_t orphan = 0;
    PWMessage message(plain_number, MESSAGE_SEVERITY_ERROR);
    AddMessage_L(&orphan, &message);
    uint32_t orphan_handle = orphan;
    TransferMessages_L(&orphan);
    EXPECT_EQ(orphan, 0u);
    EXPECT_FALSE(PWMsgSet::Instance().IsSet(orphan_handle));
    TransferMessages_L(nullptr);
    TransferMessages_L(&orphan); // 0: nothing
}

TEST_F(MessageTest, TransferIntoAnEmptyContextMakesItsSet) {
    uint32_t context = 0;
    InitMessages_L(&context);
    uint32_t inner = 0;
    PWMessage message(plain_number, MESSAGE_SEVERITY_FATAL);
    AddMessage_L(&inner, &message);
    TransferMessages_L(&inner);
    EXPECT_NE(context, 0u);
    EXPECT_EQ(texts_of(context).size(), 1u);
}

TEST_F(MessageTest, StringMessageKeepsOneTextReplacedPerCall) {
    PWMessage first(QV_MSG_EXCEPTION_RAISED, MESSAGE_SEVERITY_ERROR);
    first << "GENERAL_ERROR"
          << "qvvar" << 12;
    PWMessage second(plain_number, MESSAGE_SEVERITY_ERROR);
    const char *text = StringMessage_L(&first);
    EXPECT_EQ(std::string(text), first.Text());
    EXPECT_NE(std::string(text).find("GENERAL_ERROR"), std::string::npos);
    EXPECT_NE(std::string(text).find("qvvar"), std::string::npos);
    EXPECT_NE(std::string(text).find("12"), std::string::npos);
    EXPECT_EQ(std::string(VAMessage_L(&second)), second.Text());
    EXPECT_STREQ(StringMessage_L(nullptr), "");
}

TEST_F(MessageTest, StringMessageUnderAllocationFailure) {
    PWMessage message(plain_number, MESSAGE_SEVERITY_ERROR);
    message << "x";
    const char *seen = nullptr;
    const char *raised = nullptr;
    int n = 0;
    for (;; ++n) {
        seen = nullptr;
        raised = nullptr;
        qv::guarded(
            "StringMessageTest", "message_test", __LINE__,
            [&] {
                TestFailAllocation_L(n);
                seen = StringMessage_L(&message);
            },
            [&](const char *symbol) { raised = symbol; });
        bool fired = TestAllocationFailed_L() != 0;
        TestFailAllocation_L(-1);
        if (!fired) break;
        EXPECT_EQ(raised, ALLOC_FAILURE);
    }
    EXPECT_EQ(n, 1);
    EXPECT_EQ(std::string(seen), message.Text());
}

TEST_F(MessageTest, Switches) {
    EXPECT_EQ(ErrorsSuppressed_L(), 0);
    EXPECT_EQ(SetErrorSuppression_L(1), 0);
    EXPECT_EQ(ErrorsSuppressed_L(), 1);
    EXPECT_EQ(SetErrorSuppression_L(0), 1);
    EXPECT_EQ(ErrorsSuppressed_L(), 0);
}

TEST_F(MessageTest, CFunctionErrorsBecomeMessages) {
    uint32_t context = 0;
    InitMessages_L(&context);
    CFunctionError_L(ENOENT, "open %s (%d)", "rows.txt", 3);
    errno = EACCES;
    WinLastError("write %s", "log");
    ASSERT_EQ(texts_of(context).size(), 2u);
    const struct {
        const char *what;
        int32_t error_number;
    } expected[] = {{"open rows.txt (3)", ENOENT}, {"write log", EACCES}};
    for (int i = 0; i < 2; ++i) {
        PWMessage *message = GetMessage_L(context, i);
        EXPECT_EQ(message->Number(), QV_MSG_C_FUNCTION_ERROR);
        EXPECT_EQ(message->LibrarySeverity(), MESSAGE_SEVERITY_ERROR);
        const auto &parameters = message->Parameters();
        ASSERT_EQ(parameters.size(), 3u);
        EXPECT_EQ(parameters[0].Text(), expected[i].what);
        EXPECT_EQ(parameters[1].Signed(), expected[i].error_number);
        EXPECT_EQ(parameters[2].Text(), std::strerror(expected[i].error_number));
    }
}

TEST_F(MessageTest, MessagesBuiltFromC) {
    PWMessage *message = NewMessage_L(QV_MSG_EXCEPTION_RAISED, MESSAGE_SEVERITY_FATAL);
    ASSERT_NE(message, nullptr);
    MessageAddText_L(message, "SYMBOL");
    MessageAddText_L(message, nullptr);
    MessageAddSigned_L(message, -4);
    MessageAddUnsigned_L(message, 18446744073709551615ULL);
    EXPECT_EQ(MessageNumber_L(message), QV_MSG_EXCEPTION_RAISED);
    EXPECT_EQ(MessageSeverity_L(message), MESSAGE_SEVERITY_FATAL);
    PWMessage expected(QV_MSG_EXCEPTION_RAISED, MESSAGE_SEVERITY_FATAL);
    expected << "SYMBOL"
             << "<NULL>" << -4 << 18446744073709551615ULL;
    EXPECT_EQ(message->Text(), expected.Text());
    EXPECT_EQ(message->Parameters()[3].Text(), "18446744073709551615");
    FreeMessage_L(message);

    MessageAddText_L(nullptr, "x");
    MessageAddSigned_L(nullptr, 1);
    MessageAddUnsigned_L(nullptr, 1);
    FreeMessage_L(nullptr);
    EXPECT_EQ(MessageNumber_L(nullptr), 0u);
    EXPECT_EQ(MessageSeverity_L(nullptr), 0);
}

} // namespace
