// Message routing by severity, the message context, reports, transfers, the static text of
// StringMessage_L, the C-library error wrappers and the C building calls.
#include <cerrno>
#include <cstring>

#include "messages/capture.hpp"

namespace {

using namespace qvtest;

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

PWMessage plain(const char *word, int32_t severity = MESSAGE_SEVERITY_ERROR) {
    PWMessage message(plain_number, severity);
    message << word;
    return message;
}

std::string plain_text(const char *word) {
    return plain(word).Text();
}

class MessageTest : public CaptureTest {
  protected:
    static void log(int32_t severity, const char *word) {
        PWMessage message = plain(word, severity);
        LogMessage_L(&message);
    }
    // A set of plain messages, one per word, with the given severities.
    static uint32_t set_of(std::initializer_list<std::pair<int32_t, const char *>> messages) {
        uint32_t set = 0;
        for (const auto &[severity, word] : messages) {
            PWMessage message = plain(word, severity);
            AddMessage_L(&set, &message);
        }
        return set;
    }
};

TEST_F(MessageTest, SeverityNames) {
    const char *names[] = {"?", "D", "I", "W", "E", "F", "?"};
    for (int32_t severity = 0; severity <= 6; ++severity)
        EXPECT_STREQ(MsgSeverityName_L(severity), names[severity]) << severity;
    EXPECT_STREQ(MsgSeverityName_L(-1), "?");
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
        InitMessages_L(&context);
        out.clear();
        log(c.severity, "w");
        EXPECT_EQ(out, c.printed) << c.severity;
        EXPECT_EQ(texts_of(context).size(), c.collected ? 1u : 0u) << c.severity;
        DeleteMessageHandle_L(context);
    }
    EXPECT_EQ(err, "");
    // Debug messages go to the category named by their number.
    trace("12, 16");
    out.clear();
    log(MESSAGE_SEVERITY_DEBUG, "dbg");
    PWMessage other(17, MESSAGE_SEVERITY_DEBUG);
    LogMessage_L(&other);
    EXPECT_EQ(out, plain_text("dbg") + "\n");
}

TEST_F(MessageTest, ErrorsWithoutContextAreDropped) {
    ClearMessageContext_L();
    log(MESSAGE_SEVERITY_ERROR, "lost");
    log(MESSAGE_SEVERITY_FATAL, "lost");
    LogMessage_L(nullptr);
    EXPECT_EQ(PWMsgSet::Instance().SetCount(), 0u);
    EXPECT_EQ(out + err, "");
}

TEST_F(MessageTest, DeferredWarningsAreCollectedAndReportedLater) {
    DeferWarnings_L();
    log(MESSAGE_SEVERITY_WARNING, "careful");
    EXPECT_EQ(out, "");
    ASSERT_EQ(texts_of(context), std::vector<std::string>{plain_text("careful")});
    EXPECT_EQ(GetMessage_L(context, 0)->LibrarySeverity(), MESSAGE_SEVERITY_WARNING);
    log(MESSAGE_SEVERITY_INFORMATION, "still printed");
    EXPECT_EQ(out, plain_text("still printed") + "\n");

    // Warnings are reported to class 3 ("Info_S"), which writes only to the log file.
    TempDirectory directory;
    ASSERT_EQ(SetFeedbackFile_L((directory / "report.log").c_str(), 0), 0);
    ReportMessages_L(&context, MESSAGE_SEVERITY_DEBUG);
    CloseFeedbackFile_L();
    EXPECT_EQ(read_file(directory / "report.log"),
              "\r\nWARNING - " + plain_text("careful") + "\r\n\r\n");
    EXPECT_EQ(context, 0u);
}

TEST_F(MessageTest, ReportPrintsByteForByteFromTheMinimumAndDeletesTheWholeSet) {
    // Errors and fatal messages go to class 2 ("Info"), echoed to standard output; the
    // first message printed (an information to the untraced class 4) takes the "\n".
    const struct {
        int32_t minimum;
        std::string expected;
    } cases[] = {
        {MESSAGE_SEVERITY_DEBUG, plain_text("e") + "\n\n" + plain_text("f") + "\n\n"},
        {MESSAGE_SEVERITY_ERROR, "\n" + plain_text("e") + "\n\n" + plain_text("f") + "\n\n"},
    };
    for (const auto &c : cases) {
        out.clear();
        uint32_t set = set_of({{MESSAGE_SEVERITY_INFORMATION, "i"},
                               {MESSAGE_SEVERITY_ERROR, "e"},
                               {MESSAGE_SEVERITY_WARNING, "w"},
                               {MESSAGE_SEVERITY_FATAL, "f"}});
        uint32_t handle = set;
        ReportMessages_L(&set, c.minimum);
        EXPECT_EQ(out, c.expected) << c.minimum;
        EXPECT_EQ(set, 0u);
        EXPECT_FALSE(PWMsgSet::Instance().IsSet(handle));
    }
}

TEST_F(MessageTest, ReportOfNothing) {
    ReportMessages_L(nullptr, 1);
    uint32_t none = 0, stale = 4242; // names no set
    ReportMessages_L(&none, 1);
    ReportMessages_L(&stale, 1);
    EXPECT_EQ(none + stale, 0u);
    // A set that exists but holds nothing (emptied by a transfer): deleted, zeroed.
    uint32_t emptied = set_of({{MESSAGE_SEVERITY_ERROR, "e"}}), receiver = 0, handle = emptied;
    PWMsgSet::Instance().Transfer(emptied, receiver);
    ReportMessages_L(&emptied, 1);
    EXPECT_EQ(emptied, 0u);
    EXPECT_FALSE(PWMsgSet::Instance().IsSet(handle));
    EXPECT_EQ(out + err, "");
}

TEST_F(MessageTest, CheckMessageHandle) {
    uint32_t set = set_of({{MESSAGE_SEVERITY_WARNING, "w"},
                           {MESSAGE_SEVERITY_FATAL, "f"},
                           {MESSAGE_SEVERITY_WARNING, "w"}});
    int32_t count = -7, worst = -7;
    // With no message context: 0 at once, the count zeroed, nothing else looked at.
    ClearMessageContext_L();
    EXPECT_EQ(CheckMessageHandle_L(set, &count, &worst), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(worst, -7);
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
    PWMessage message = plain("first");
    uint32_t set = 0;
    AddMessage_L(&set, &message);
    PWMsgSet::Instance().Add(set, AuditMessage());
    PWMessage *got = GetMessage_L(set, 0);
    ASSERT_NE(got, nullptr);
    EXPECT_NE(got, &message); // the set holds its own copy
    EXPECT_EQ(got->Text(), plain_text("first"));
    for (int32_t n : {1, 2, -1}) EXPECT_EQ(GetMessage_L(set, n), nullptr) << n; // 1: no PWMessage
    EXPECT_EQ(GetMessage_L(set + 1, 0), nullptr);
}

TEST_F(MessageTest, TransferMovesIntoTheContextSet) {
    uint32_t inner = set_of({{MESSAGE_SEVERITY_FATAL, "a"}});
    TransferMessages_L(&inner); // into an empty context: makes its set
    EXPECT_EQ(texts_of(context), std::vector<std::string>{plain_text("a")});
    inner = set_of({{MESSAGE_SEVERITY_ERROR, "b"}, {MESSAGE_SEVERITY_ERROR, "c"}});
    uint32_t inner_handle = inner;
    TransferMessages_L(&inner);
    EXPECT_EQ(inner, 0u);
    EXPECT_FALSE(PWMsgSet::Instance().IsSet(inner_handle));
    const std::vector<std::string> all{plain_text("a"), plain_text("b"), plain_text("c")};
    EXPECT_EQ(texts_of(context), all);
    TransferMessages_L(&context); // the context's own variable: nothing moves or is lost
    EXPECT_EQ(texts_of(context), all);

    // No context: the set is deleted all the same.
    ClearMessageContext_L();
    uint32_t orphan = set_of({{MESSAGE_SEVERITY_ERROR, "o"}}), orphan_handle = orphan;
    TransferMessages_L(&orphan);
    EXPECT_EQ(orphan, 0u);
    EXPECT_FALSE(PWMsgSet::Instance().IsSet(orphan_handle));
    TransferMessages_L(nullptr);
    TransferMessages_L(&orphan); // 0: nothing
}

TEST_F(MessageTest, StringMessageKeepsOneTextAndRaisesWhenItCannotCopy) {
    PWMessage first(QV_MSG_EXCEPTION_RAISED, MESSAGE_SEVERITY_ERROR);
    first << "GENERAL_ERROR"
          << "qvvar" << 12;
    const char *text = StringMessage_L(&first);
    EXPECT_EQ(std::string(text), first.Text());
    PWMessage second = plain("x");
    EXPECT_EQ(std::string(VAMessage_L(&second)), second.Text());
    EXPECT_STREQ(StringMessage_L(nullptr), "");

    auto raised = fail_each_allocation([&] { text = StringMessage_L(&first); });
    EXPECT_EQ(raised, std::vector<const char *>{ALLOC_FAILURE});
    EXPECT_EQ(std::string(text), first.Text());
}

TEST_F(MessageTest, CFunctionErrorsBecomeMessages) {
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
