// Message routing by severity, the message context, reports, transfers, the static text of
// StringMessage_L, the C-library error wrappers and the C building calls.
#include <cerrno>
#include <cstring>

#include "capture.hpp"

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

PWMsgSet &sets = PWMsgSet::Instance();

// Messages of an uncatalogued number, whose text is the fallback naming number and word.
PWMessage plain(const char *word, int32_t severity = MESSAGE_SEVERITY_ERROR) {
    return PWMessage(0x10, severity) << word;
}

std::string text(const char *word) {
    return std::string("Message 0x00000010 has no text: ") + word;
}

void log(int32_t severity, const char *word) {
    LogMessage_L(&(PWMessage(0x10, severity) << word));
}

// A new set of plain messages, one per word, with the given severities (1 debug ... 5 fatal).
uint32_t set_of(std::initializer_list<std::pair<int32_t, const char *>> messages) {
    uint32_t set = 0;
    for (const auto &[severity, word] : messages)
        AddMessage_L(&set, &(PWMessage(0x10, severity) << word));
    return set;
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
    // Rows: severity, what standard output shows, how many messages the context collects.
    const std::tuple<int32_t, std::string, size_t> cases[] = {
        {MESSAGE_SEVERITY_DEBUG, "", 0}, // category "16" not selected
        {MESSAGE_SEVERITY_INFORMATION, text("w") + "\n", 0},
        {MESSAGE_SEVERITY_WARNING, "WARNING - " + text("w") + "\n", 0},
        {MESSAGE_SEVERITY_ERROR, "", 1},
        {MESSAGE_SEVERITY_FATAL, "", 1},
        {9, "", 1}, // unknown severities count as errors
    };
    for (const auto &[severity, printed, collected] : cases) {
        InitMessages_L(&context);
        out.clear();
        log(severity, "w");
        EXPECT_EQ(out, printed) << severity;
        EXPECT_EQ(texts_of(context).size(), collected) << severity;
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
    EXPECT_EQ(sets.SetCount(), 0u);
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
    // With no log file every reported message reaches standard output, whatever its class
    // ("Progress" for information is not even traced); the first one printed takes the "\n".
    const std::string all = "\nMessage 0x00000010 has no text: i\n\n"
                            "Message 0x00000010 has no text: e\n\n"
                            "WARNING - Message 0x00000010 has no text: w\n\n"
                            "Message 0x00000010 has no text: f\n\n";
    const std::string errors = "\nMessage 0x00000010 has no text: e\n\n"
                               "Message 0x00000010 has no text: f\n\n";
    for (const auto &[minimum, expected] :
         {std::pair{MESSAGE_SEVERITY_DEBUG, all}, std::pair{MESSAGE_SEVERITY_ERROR, errors}}) {
        out.clear();
        uint32_t set = set_of({{2, "i"}, {4, "e"}, {3, "w"}, {5, "f"}}), handle = set;
        ReportMessages_L(&set, minimum);
        EXPECT_EQ(out, expected) << minimum;
        EXPECT_EQ(set, 0u);
        EXPECT_FALSE(sets.IsSet(handle));
    }
    // With a log file, information goes only where "Progress" goes (nowhere, untraced, and
    // the "\n" with it), warnings only to the file, errors to the file and standard output.
    TempDirectory directory;
    ASSERT_EQ(SetFeedbackFile_L((directory / "report.log").c_str(), 0), 0);
    out.clear();
    uint32_t set = set_of({{2, "i"}, {3, "w"}, {4, "e"}});
    ReportMessages_L(&set, MESSAGE_SEVERITY_DEBUG);
    EXPECT_EQ(out, "Message 0x00000010 has no text: e\n\n");
    EXPECT_EQ(read_file(directory / "report.log"),
              "WARNING - Message 0x00000010 has no text: w\r\n\r\n"
              "Message 0x00000010 has no text: e\r\n\r\n");
    CloseFeedbackFile_L();

    // Nothing to report: a null variable, no set, a stale handle, an emptied set.
    out.clear();
    ReportMessages_L(nullptr, 1);
    uint32_t stale = 4242, emptied = set_of({{4, "e"}}), receiver = 0, handle = emptied;
    sets.Transfer(emptied, receiver);
    for (uint32_t *variable : {&stale, &emptied}) ReportMessages_L(variable, 1);
    EXPECT_EQ(stale + emptied, 0u);
    EXPECT_FALSE(sets.IsSet(handle));
    EXPECT_EQ(out, "");
}

TEST_F(MessageTest, CheckAndGetMessages) {
    uint32_t set = set_of({{3, "w"}, {5, "f"}});
    sets.Add(set, AuditMessage());
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

    // The third message is no PWMessage: GetMessage_L gives null for it as out of range.
    EXPECT_EQ(texts_of(set), (std::vector<std::string>{text("w"), text("f")}));
    for (int32_t n : {3, -1}) EXPECT_EQ(GetMessage_L(set, n), nullptr) << n;
    EXPECT_EQ(GetMessage_L(set + 1, 0), nullptr);
}

TEST_F(MessageTest, TransferMovesIntoTheContextSet) {
    uint32_t inner = set_of({{5, "a"}});
    TransferMessages_L(&inner); // into an empty context: makes its set
    inner = set_of({{4, "b"}, {4, "c"}});
    uint32_t handle = inner;
    TransferMessages_L(&inner);
    EXPECT_EQ(inner, 0u);
    EXPECT_FALSE(sets.IsSet(handle));
    TransferMessages_L(&context); // the context's own variable: nothing moves or is lost
    EXPECT_EQ(texts_of(context), (std::vector<std::string>{text("a"), text("b"), text("c")}));

    ClearMessageContext_L(); // no context: the set is deleted all the same
    uint32_t orphan = set_of({{4, "o"}});
    handle = orphan;
    TransferMessages_L(&orphan);
    EXPECT_EQ(orphan, 0u);
    EXPECT_FALSE(sets.IsSet(handle));
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
    const std::vector<std::string> expected = {
        "open rows.txt (3) failed with error " + std::to_string(ENOENT) + ": " +
            std::strerror(ENOENT) + ".",
        "write log failed with error " + std::to_string(EACCES) + ": " + std::strerror(EACCES) +
            "."};
    EXPECT_EQ(texts_of(context), expected);
    EXPECT_EQ(GetMessage_L(context, 1)->LibrarySeverity(), MESSAGE_SEVERITY_ERROR);
}

TEST_F(MessageTest, MessagesBuiltFromC) {
    PWMessage *message = NewMessage_L(0x10, MESSAGE_SEVERITY_FATAL);
    ASSERT_NE(message, nullptr);
    MessageAddText_L(message, "SYMBOL");
    MessageAddText_L(message, nullptr);
    MessageAddSigned_L(message, -4);
    MessageAddUnsigned_L(message, 18446744073709551615ULL);
    EXPECT_EQ(MessageNumber_L(message), 0x10u);
    EXPECT_EQ(MessageSeverity_L(message), MESSAGE_SEVERITY_FATAL);
    EXPECT_EQ(message->Text(), text("SYMBOL, <NULL>, -4, 18446744073709551615"));
    FreeMessage_L(message);
    MessageAddText_L(nullptr, "x"); // null messages: nothing happens
    MessageAddSigned_L(nullptr, 1);
    MessageAddUnsigned_L(nullptr, 1);
    FreeMessage_L(nullptr);
    EXPECT_EQ(MessageNumber_L(nullptr) + MessageSeverity_L(nullptr), 0u);
}

} // namespace
