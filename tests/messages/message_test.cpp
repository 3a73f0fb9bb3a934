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

// Messages of an uncatalogued number, whose text is the fallback naming number and word.
PWMessage plain(const char *word, int32_t severity = MESSAGE_SEVERITY_ERROR) {
    PWMessage message(0x10, severity);
    message << word;
    return message;
}

std::string text(const char *word) {
    return std::string("Message 0x00000010 has no text: ") + word;
}

void log(int32_t severity, const char *word) {
    PWMessage message = plain(word, severity);
    LogMessage_L(&message);
}

// A new set of plain messages, one per word, with the given severities.
uint32_t set_of(std::initializer_list<std::pair<int32_t, const char *>> messages) {
    uint32_t set = 0;
    for (const auto &[severity, word] : messages) {
        PWMessage message = plain(word, severity);
        AddMessage_L(&set, &message);
    }
    return set;
}

bool is_set(uint32_t handle) {
    return PWMsgSet::Instance().IsSet(handle);
}

using MessageTest = CaptureTest;

TEST_F(MessageTest, SeverityNamesAndTheMessageContext) {
    std::string names;
    for (int32_t severity = -1; severity <= 6; ++severity) names += MsgSeverityName_L(severity);
    EXPECT_EQ(names, "??DIWEF?");

    uint32_t first = 77, second = 5, *seen = nullptr;
    InitMessages_L(&first);
    EXPECT_EQ(first, 0u);
    EXPECT_EQ(SetMessageContext_L(nullptr), &first); // only reads
    EXPECT_EQ(SetMessageContext_L(&second), &first);
    EXPECT_EQ(second, 5u); // left alone
    EXPECT_EQ(GetMessageContext_L(&seen), &seen);
    EXPECT_EQ(seen, &second);
    ClearMessageContext_L();
    GetMessageContext_L(&seen);
    EXPECT_EQ(seen, nullptr);
}

TEST_F(MessageTest, RoutesEachSeverity) {
    const struct {
        int32_t severity;
        std::string printed; // on standard output
        size_t collected;
    } cases[] = {
        {MESSAGE_SEVERITY_DEBUG, "", 0}, // category "16" not selected
        {MESSAGE_SEVERITY_INFORMATION, text("w") + "\n", 0},
        {MESSAGE_SEVERITY_WARNING, "WARNING - " + text("w") + "\n", 0},
        {MESSAGE_SEVERITY_ERROR, "", 1},
        {MESSAGE_SEVERITY_FATAL, "", 1},
        {9, "", 1}, // unknown severities count as errors
    };
    for (const auto &c : cases) {
        InitMessages_L(&context);
        out.clear();
        log(c.severity, "w");
        EXPECT_EQ(out, c.printed) << c.severity;
        EXPECT_EQ(texts_of(context).size(), c.collected) << c.severity;
        DeleteMessageHandle_L(context);
    }
    trace("12, 16"); // debug messages go to the category named by their number
    out.clear();
    log(MESSAGE_SEVERITY_DEBUG, "dbg");
    PWMessage other(17, MESSAGE_SEVERITY_DEBUG);
    LogMessage_L(&other);
    EXPECT_EQ(out, text("dbg") + "\n");

    ClearMessageContext_L(); // errors without a context are dropped
    log(MESSAGE_SEVERITY_ERROR, "lost");
    log(MESSAGE_SEVERITY_FATAL, "lost");
    LogMessage_L(nullptr);
    EXPECT_EQ(PWMsgSet::Instance().SetCount(), 0u);
    EXPECT_EQ(out + err, text("dbg") + "\n");
}

TEST_F(MessageTest, DeferredWarningsAreCollectedAndReportedLater) {
    DeferWarnings_L();
    log(MESSAGE_SEVERITY_WARNING, "careful");
    log(MESSAGE_SEVERITY_INFORMATION, "still printed");
    EXPECT_EQ(out, text("still printed") + "\n");
    ASSERT_EQ(texts_of(context), std::vector<std::string>{text("careful")});
    EXPECT_EQ(GetMessage_L(context, 0)->LibrarySeverity(), MESSAGE_SEVERITY_WARNING);

    // Warnings are reported to class 3 ("Info_S"), which writes only to the log file.
    TempDirectory directory;
    ASSERT_EQ(SetFeedbackFile_L((directory / "report.log").c_str(), 0), 0);
    ReportMessages_L(&context, MESSAGE_SEVERITY_DEBUG);
    EXPECT_EQ(read_file(directory / "report.log"), "\r\nWARNING - " + text("careful") + "\r\n\r\n");
    EXPECT_EQ(context, 0u);
}

TEST_F(MessageTest, ReportPrintsByteForByteFromTheMinimumAndDeletesTheWholeSet) {
    // Errors and fatal messages go to class 2 ("Info"), echoed to standard output; the
    // first message printed (an information to the untraced class 4) takes the "\n".
    const std::string errors = text("e") + "\n\n" + text("f") + "\n\n";
    for (const auto &[minimum, expected] : {std::pair{MESSAGE_SEVERITY_DEBUG, errors},
                                            std::pair{MESSAGE_SEVERITY_ERROR, "\n" + errors}}) {
        out.clear();
        uint32_t set = set_of({{MESSAGE_SEVERITY_INFORMATION, "i"},
                               {MESSAGE_SEVERITY_ERROR, "e"},
                               {MESSAGE_SEVERITY_WARNING, "w"},
                               {MESSAGE_SEVERITY_FATAL, "f"}});
        uint32_t handle = set;
        ReportMessages_L(&set, minimum);
        EXPECT_EQ(out, expected) << minimum;
        EXPECT_EQ(set, 0u);
        EXPECT_FALSE(is_set(handle));
    }
    // Nothing to report: a null variable, no set, a stale handle, an emptied set.
    ReportMessages_L(nullptr, 1);
    uint32_t none = 0, stale = 4242, emptied = set_of({{4, "e"}}), receiver = 0, handle = emptied;
    PWMsgSet::Instance().Transfer(emptied, receiver);
    for (uint32_t *variable : {&none, &stale, &emptied}) ReportMessages_L(variable, 1);
    EXPECT_EQ(none + stale + emptied, 0u);
    EXPECT_FALSE(is_set(handle));
    EXPECT_EQ(out, "\n" + errors);
}

TEST_F(MessageTest, CheckAndGetMessages) {
    uint32_t set = set_of({{MESSAGE_SEVERITY_WARNING, "w"}, {MESSAGE_SEVERITY_FATAL, "f"}});
    PWMsgSet::Instance().Add(set, AuditMessage());
    int32_t count = -7, worst = -7;
    ClearMessageContext_L(); // with no context: 0 at once, the count zeroed, nothing else
    EXPECT_EQ(CheckMessageHandle_L(set, &count, &worst), 0);
    EXPECT_EQ(std::pair(count, worst), std::pair(0, -7));
    InitMessages_L(&context);
    EXPECT_EQ(CheckMessageHandle_L(set, &count, &worst), 0);
    EXPECT_EQ(std::pair(count, worst), std::pair(3, int32_t{MESSAGE_SEVERITY_FATAL}));
    EXPECT_EQ(CheckMessageHandle_L(set, nullptr, nullptr), 0);
    EXPECT_EQ(CheckMessageHandle_L(set + 1000, &count, &worst), -1);
    EXPECT_EQ(count, 0);

    PWMessage *got = GetMessage_L(set, 1);
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(got->Text(), text("f"));
    for (int32_t n : {2, 3, -1}) EXPECT_EQ(GetMessage_L(set, n), nullptr) << n; // 2: no PWMessage
    EXPECT_EQ(GetMessage_L(set + 1, 0), nullptr);
}

TEST_F(MessageTest, TransferMovesIntoTheContextSet) {
    uint32_t inner = set_of({{MESSAGE_SEVERITY_FATAL, "a"}});
    TransferMessages_L(&inner); // into an empty context: makes its set
    inner = set_of({{MESSAGE_SEVERITY_ERROR, "b"}, {MESSAGE_SEVERITY_ERROR, "c"}});
    uint32_t handle = inner;
    TransferMessages_L(&inner);
    EXPECT_EQ(inner, 0u);
    EXPECT_FALSE(is_set(handle));
    TransferMessages_L(&context); // the context's own variable: nothing moves or is lost
    EXPECT_EQ(texts_of(context), (std::vector<std::string>{text("a"), text("b"), text("c")}));

    ClearMessageContext_L(); // no context: the set is deleted all the same
    uint32_t orphan = set_of({{MESSAGE_SEVERITY_ERROR, "o"}});
    handle = orphan;
    TransferMessages_L(&orphan);
    EXPECT_EQ(orphan, 0u);
    EXPECT_FALSE(is_set(handle));
    TransferMessages_L(nullptr);
    TransferMessages_L(&orphan); // 0: nothing
}

TEST_F(MessageTest, StringMessageKeepsOneTextAndRaisesWhenItCannotCopy) {
    PWMessage first = plain("first"), second = plain("second");
    const char *copy = StringMessage_L(&first);
    EXPECT_EQ(copy, text("first"));
    EXPECT_EQ(VAMessage_L(&second), text("second"));
    EXPECT_STREQ(StringMessage_L(nullptr), "");
    EXPECT_EQ(fail_each_allocation([&] { copy = StringMessage_L(&first); }),
              std::vector<const char *>{ALLOC_FAILURE});
    EXPECT_EQ(copy, text("first"));
}

TEST_F(MessageTest, CFunctionErrorsBecomeMessages) {
    CFunctionError_L(ENOENT, "open %s (%d)", "rows.txt", 3);
    errno = EACCES;
    WinLastError("write %s", "log");
    ASSERT_EQ(texts_of(context).size(), 2u);
    for (const auto &[i, what, error_number] :
         {std::tuple{0, "open rows.txt (3)", ENOENT}, std::tuple{1, "write log", EACCES}}) {
        PWMessage *message = GetMessage_L(context, i);
        EXPECT_EQ(message->Number(), QV_MSG_C_FUNCTION_ERROR);
        EXPECT_EQ(message->LibrarySeverity(), MESSAGE_SEVERITY_ERROR);
        const auto &parameters = message->Parameters();
        ASSERT_EQ(parameters.size(), 3u);
        EXPECT_EQ(parameters[0].Text(), what);
        EXPECT_EQ(parameters[1].Signed(), error_number);
        EXPECT_EQ(parameters[2].Text(), std::strerror(error_number));
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
    MessageAddText_L(nullptr, "x"); // null messages: nothing happens
    MessageAddSigned_L(nullptr, 1);
    MessageAddUnsigned_L(nullptr, 1);
    FreeMessage_L(nullptr);
    EXPECT_EQ(MessageNumber_L(nullptr), 0u);
    EXPECT_EQ(MessageSeverity_L(nullptr), 0);
}

} // namespace
