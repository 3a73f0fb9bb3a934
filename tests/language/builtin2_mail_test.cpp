// SendMail against fake mail programs: one that records its arguments and the message it
// reads, one that refuses, one that never finishes, one that does not exist; the MIME
// message (headers, encoded subject and names, text and attachments) and the results and
// warnings of each failure.
#include <sys/stat.h>

#include <chrono>

#include "builtin2_call.hpp"

namespace {

using qvtest::result_of;
using ::testing::HasSubstr;

class BuiltinMail : public qvtest::LanguageTest {
  protected:
    qvtest::TempDirectory folder;
    std::string dir = folder.path.string();
    std::optional<qvtest::ScopedEnvironment> program;

    // Installs a mail program made of the shell script `body`.
    void use_program(const std::string &body) {
        const std::string path = dir + "/sendmail";
        qvtest::write_file(path, "#!/bin/sh\n" + body);
        ::chmod(path.c_str(), 0700);
        program.emplace("QV_SENDMAIL", path.c_str());
    }
    void use_recorder() {
        use_program("printf '%s\\n' \"$@\" > '" + dir + "/args'\ncat > '" + dir + "/message'\n");
    }
    std::string recorded(const char *name) const { return qvtest::read_file(folder / name); }
};

TEST_F(BuiltinMail, APlainMessageGoesToEveryRecipient) {
    use_recorder();
    EXPECT_EQ(result_of("SendMail('Quillon <runs@example.com>', 'secret', 'Run 12 done', "
                        "'Rows: 3000\nFailed: 0', 'ann@example.com; bob@example.com', "
                        "'cy@example.com')"),
              "OK");
    EXPECT_EQ(recorded("args"), "-i\n--\nann@example.com\nbob@example.com\ncy@example.com\n");
    const std::string message = recorded("message");
    EXPECT_THAT(message, ::testing::StartsWith("From: Quillon <runs@example.com>\n"
                                               "To: ann@example.com, bob@example.com\n"
                                               "Cc: cy@example.com\n"
                                               "Subject: Run 12 done\n"
                                               "Date: "));
    EXPECT_THAT(message, HasSubstr("\nMIME-Version: 1.0\n"
                                   "Content-Type: text/plain; charset=UTF-8\n"
                                   "Content-Transfer-Encoding: 7bit\n\n"
                                   "Rows: 3000\nFailed: 0\n"));
    EXPECT_THAT(message, ::testing::Not(HasSubstr("secret")));
    EXPECT_EQ(out + err, "");
}

TEST_F(BuiltinMail, TextsBeyondAsciiAndAttachmentsAreEncoded) {
    use_recorder();
    qvtest::write_file(folder / "report.txt", "hello\n");
    qvtest::write_file(folder / "Größe.bin", std::string("\0\1\2", 3));
    const std::string call =
        "SendMail('profile', NULL, 'Grüße', 'Schöne Grüße', 'ann@example.com', "
        "NULL, '" +
        dir + "/report.txt;" + dir + "/Größe.bin')";
    EXPECT_EQ(result_of(call), "OK");
    const std::string message = recorded("message");
    EXPECT_THAT(message,
                ::testing::StartsWith("To: ann@example.com\nSubject: =?UTF-8?B?R3LDvMOfZQ==?=\n"));
    EXPECT_THAT(message, HasSubstr("Content-Type: multipart/mixed; boundary=\"=_qv_"));
    // The text ("Schöne Grüße") and the attachments in base64.
    EXPECT_THAT(message, HasSubstr("Content-Transfer-Encoding: base64\n\nU2Now7ZuZSBHcsO8w59l\n"));
    EXPECT_THAT(message, HasSubstr("Content-Type: application/octet-stream; name=\"report.txt\"\n"
                                   "Content-Disposition: attachment; filename=\"report.txt\"\n"
                                   "Content-Transfer-Encoding: base64\n\naGVsbG8K\n"));
    EXPECT_THAT(message, HasSubstr("filename=\"=?UTF-8?B?R3LDtsOfZS5iaW4=?=\"\n"
                                   "Content-Transfer-Encoding: base64\n\nAAEC\n"));
    EXPECT_EQ(std::count(message.begin(), message.end(), '\n') > 10, true);
    EXPECT_THAT(message, ::testing::EndsWith("--\n"));
}

TEST_F(BuiltinMail, HeadersCannotBeInjected) {
    use_recorder();
    EXPECT_EQ(result_of("SendMail('x', '', 'Hi\nBcc: eve@example.com', 'text', "
                        "'ann@example.com\nBcc: eve@example.com')"),
              "OK");
    const std::string message = recorded("message");
    EXPECT_THAT(message, HasSubstr("\nSubject: Hi Bcc: eve@example.com\n"));
    EXPECT_THAT(message, ::testing::StartsWith("To: ann@example.com Bcc: eve@example.com\n"));
    EXPECT_THAT(message, ::testing::Not(HasSubstr("\nBcc:")));
}

TEST_F(BuiltinMail, FailuresAreTheResultAndAWarning) {
    use_program("echo 'no such user: bob' >&2\nexit 67\n");
    const std::string refused = "The mail was not sent: the mail program '" + dir +
                                "/sendmail' ended with exit status 67: no such user: bob";
    EXPECT_EQ(result_of("SendMail('', '', 's', 't', 'bob@example.com')"), refused);
    EXPECT_THAT(out + err, HasSubstr("WARNING - " + refused));

    EXPECT_EQ(result_of("SendMail('', '', 's', 't', ' ; ,')"),
              "The mail was not sent: no recipient in ' ; ,'.");
    EXPECT_EQ(result_of("SendMail('', '', 's', 't', 'a@example.com', '', '" + dir + "/none.pdf')"),
              "The mail was not sent: the attachment '" + dir +
                  "/none.pdf' cannot be read: No such file or directory.");
    EXPECT_EQ(result_of("SendMail('', '', 's', 't', 'a@example.com', '', '" + dir + "')"),
              "The mail was not sent: the attachment '" + dir +
                  "' cannot be read: Is a directory.");
    EXPECT_EQ(result_of("SendMail('', '', 's', 't', NULL)"), "NULL");

    qvtest::ScopedEnvironment missing("QV_SENDMAIL", (dir + "/no/sendmail").c_str());
    EXPECT_EQ(result_of("SendMail('', '', 's', 't', 'a@example.com')"),
              "The mail was not sent: the mail program '" + dir +
                  "/no/sendmail' cannot be run: No such file or directory.");
}

TEST_F(BuiltinMail, AProgramThatStopsReadingOrNeverEndsIsNotWaitedFor) {
    use_program("exit 0\n");
    qvtest::write_file(folder / "big.bin", std::string(4 << 20, 'x'));
    EXPECT_THAT(result_of("SendMail('', '', 's', 't', 'a@example.com', '', '" + dir + "/big.bin')"),
                HasSubstr("ended with exit status 0: it stopped reading the message"));

    use_program("exec sleep 30\n");
    qvtest::ScopedEnvironment timeout("QV_SENDMAIL_TIMEOUT", "1");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(result_of("SendMail('', '', 's', 't', 'a@example.com')"),
              "The mail was not sent: the mail program '" + dir +
                  "/sendmail' did not finish within 1 seconds and was stopped.");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

} // namespace
