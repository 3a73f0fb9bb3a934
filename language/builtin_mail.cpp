// builtin_mail.cpp - SendMail (module "builtin"): a MIME message handed to a
// sendmail-compatible program.
//
// SendMail( profile, password, subject, text, send to [, copy to [, attachments]] )
//
// The program is the preference QV_SENDMAIL (default /usr/sbin/sendmail; a name without a
// '/' is looked up in PATH), run as `program -i -- recipient ...` with the message on its
// standard input; it is given QV_SENDMAIL_TIMEOUT seconds (default 60) to take the message
// and finish, and is stopped after that. The profile is the sender (a From header) when it
// holds an address (an '@'), and is otherwise left to the program, as is the password,
// which a local mail program does not take. Recipients ("send to", "copy to") are addresses
// separated by ';' or ','; attachments are file names (translated as FileOpen translates
// them) separated by ';'. The message is UTF-8: a subject or file name beyond ASCII is
// encoded for the header, a text beyond ASCII or with long lines is sent in base64, and
// attachments go as application/octet-stream parts.
//
// The result is "OK" once the program took the whole message and ended with status 0.
// Otherwise the result is the text of the warning logged to say why (no recipient, an
// attachment that cannot be read, a program that cannot be run, that ended with another
// status, what it wrote to its error output, or that did not finish in time). A NULL
// "send to" gives NULL; NULL profile, password, subject and text count as empty.
#define QV_MODULE "builtin"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "language/builtin_file.hpp"
#include "qv/message.h"
#include "qv/msgclass.h"
#include "qv/platform.h"

extern char **environ;

namespace {

using namespace qv::builtin;
using qv::String;
using qv::Vector;

constexpr const char *kDefaultProgram = "/usr/sbin/sendmail";
constexpr int kDefaultTimeoutSeconds = 60;
constexpr std::size_t kErrorTextLimit = 500;

// ---- Texts ------------------------------------------------------------------------------------

std::string_view trim(std::string_view text) {
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!text.empty() && blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && blank(text.back())) text.remove_suffix(1);
    return text;
}

// The text with its line ends made blanks, so that it cannot start a header of its own.
String one_line(std::string_view text) {
    String clean(text);
    for (char &c : clean)
        if (c == '\r' || c == '\n') c = ' ';
    return clean;
}

// The non-empty items of a list separated by any of `separators`, trimmed; line ends inside
// an item become blanks (no header can be injected).
Vector<String> split_list(std::string_view list, std::string_view separators) {
    Vector<String> items;
    while (!list.empty()) {
        const std::size_t end = std::min(list.find_first_of(separators), list.size());
        const std::string_view item = trim(list.substr(0, end));
        if (!item.empty()) items.push_back(one_line(item));
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return items;
}

bool is_ascii(std::string_view text) {
    for (unsigned char c : text)
        if (c >= 0x80 || c == 0) return false;
    return true;
}

void append_base64(String &out, std::string_view bytes, std::size_t line_length) {
    static constexpr char digits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::size_t column = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t group = static_cast<uint8_t>(bytes[i]) << 16;
        if (i + 1 < bytes.size()) group |= static_cast<uint8_t>(bytes[i + 1]) << 8;
        if (i + 2 < bytes.size()) group |= static_cast<uint8_t>(bytes[i + 2]);
        const char quad[4] = {digits[group >> 18], digits[(group >> 12) & 63],
                              i + 1 < bytes.size() ? digits[(group >> 6) & 63] : '=',
                              i + 2 < bytes.size() ? digits[group & 63] : '='};
        out.append(quad, 4);
        column += 4;
        if (line_length != 0 && column >= line_length && i + 3 < bytes.size()) {
            out += '\n';
            column = 0;
        }
    }
}

// A header value: as it is when ASCII, else as encoded words of at most 45 bytes each, cut
// between UTF-8 characters.
String header_text(std::string_view text) {
    String clean = one_line(text);
    if (is_ascii(clean)) return clean;
    String out;
    std::string_view rest = clean;
    while (!rest.empty()) {
        std::size_t cut = std::min<std::size_t>(45, rest.size());
        while (cut < rest.size() && cut > 0 && (static_cast<uint8_t>(rest[cut]) & 0xC0) == 0x80)
            --cut;
        if (!out.empty()) out += "\n ";
        out += "=?UTF-8?B?";
        append_base64(out, rest.substr(0, cut), 0);
        out += "?=";
        rest.remove_prefix(cut);
    }
    return out;
}

// A quoted header parameter ("name.txt"), encoded first when it is not ASCII.
String quoted(std::string_view text) {
    String out = "\"";
    for (char c : header_text(text)) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out += '"';
}

String date_header() {
    static constexpr const char *days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char *months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    const long offset = local.tm_gmtoff / 60;
    char text[64];
    std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d %c%02ld%02ld",
                  days[local.tm_wday % 7], local.tm_mday, months[local.tm_mon % 12],
                  local.tm_year + 1900, local.tm_hour, local.tm_min, local.tm_sec,
                  offset < 0 ? '-' : '+', std::labs(offset) / 60, std::labs(offset) % 60);
    return String(text);
}

// True when the text may travel as it is: ASCII, no line longer than 998 bytes.
bool is_seven_bit(std::string_view text) {
    std::size_t line = 0;
    for (char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80 || c == 0) return false;
        line = c == '\n' ? 0 : line + 1;
        if (line > 998) return false;
    }
    return true;
}

// ---- The message ----------------------------------------------------------------------------

struct Attachment {
    String name; // the file's own name, for the header
    String content;
};

struct Mail {
    String sender;
    String subject;
    String text;
    Vector<String> to;
    Vector<String> copy;
    Vector<Attachment> attachments;
};

String joined(const Vector<String> &items) {
    String out;
    for (const String &item : items) {
        if (!out.empty()) out += ", ";
        out += item;
    }
    return out;
}

void append_text_part(String &out, const String &text, std::string_view boundary) {
    String body;
    for (char c : text)
        if (c != '\r') body += c;
    const bool plain =
        is_seven_bit(body) && (boundary.empty() || body.find(boundary) == String::npos);
    out += "Content-Type: text/plain; charset=UTF-8\n";
    out += plain ? "Content-Transfer-Encoding: 7bit\n\n" : "Content-Transfer-Encoding: base64\n\n";
    if (plain)
        out += body;
    else
        append_base64(out, body, 76);
    out += '\n';
}

String compose(const Mail &mail) {
    String out;
    if (!mail.sender.empty()) out += "From: " + mail.sender + "\n";
    out += "To: " + joined(mail.to) + "\n";
    if (!mail.copy.empty()) out += "Cc: " + joined(mail.copy) + "\n";
    out += "Subject: " + header_text(mail.subject) + "\n";
    out += "Date: " + date_header() + "\n";
    out += "MIME-Version: 1.0\n";
    if (mail.attachments.empty()) {
        append_text_part(out, mail.text, {});
        return out;
    }
    char boundary[64];
    std::snprintf(boundary, sizeof boundary, "=_qv_%lx_%lx", static_cast<long>(getpid()),
                  static_cast<long>(std::time(nullptr)));
    out += "Content-Type: multipart/mixed; boundary=\"" + String(boundary) + "\"\n\n";
    out += "This is a message in MIME format.\n";
    out += "--" + String(boundary) + "\n";
    append_text_part(out, mail.text, boundary);
    for (const Attachment &attachment : mail.attachments) {
        out += "--" + String(boundary) + "\n";
        out += "Content-Type: application/octet-stream; name=" + quoted(attachment.name) + "\n";
        out += "Content-Disposition: attachment; filename=" + quoted(attachment.name) + "\n";
        out += "Content-Transfer-Encoding: base64\n\n";
        append_base64(out, attachment.content, 76);
        out += '\n';
    }
    out += "--" + String(boundary) + "--\n";
    return out;
}

// The whole of a file; false with errno set when it cannot be read.
bool read_file(const String &path, String &content) {
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(fopen8_L(path.c_str(), "rbe"),
                                                          std::fclose);
    struct stat status;
    if (file == nullptr) return false;
    if (fstat(fileno(file.get()), &status) == 0 && S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        return false;
    }
    char block[65536];
    std::size_t got = 0;
    while ((got = std::fread(block, 1, sizeof block, file.get())) > 0) content.append(block, got);
    return !std::ferror(file.get());
}

// ---- Running the program ----------------------------------------------------------------------

// Why a sending failed: the message logged, whose text becomes the result.
struct Failure {
    uint32_t number = 0;
    Vector<String> parameters;
};

String preference_or(const char *name, const char *fallback) {
    qv::HeapText value(GetPreference_L(name));
    return value != nullptr && value.get()[0] != '\0' ? String(value.get()) : String(fallback);
}

int timeout_seconds() {
    const String text = preference_or("QV_SENDMAIL_TIMEOUT", "");
    const long seconds = std::strtol(text.c_str(), nullptr, 10);
    return seconds > 0 && seconds <= 86400 ? static_cast<int>(seconds) : kDefaultTimeoutSeconds;
}

struct Descriptor {
    int fd = -1;
    Descriptor() = default;
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { close(); }
    void close() {
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
};

// The program's side of the run: the message still to send and the error text it wrote.
class Run {
  public:
    Run(const String &message, int input, int errors)
        : message_(message), in_(input), err_(errors) {}

    // Sends what the input takes and reads what the error output gives; false once both
    // are done.
    bool step(int wait_ms) {
        pollfd fds[2];
        nfds_t count = 0;
        if (sending()) fds[count++] = {in_, POLLOUT, 0};
        if (err_ >= 0) fds[count++] = {err_, POLLIN, 0};
        if (count == 0) return false;
        if (poll(fds, count, wait_ms) <= 0) return true;
        for (nfds_t i = 0; i < count; ++i) {
            if (fds[i].revents == 0) continue;
            if (fds[i].fd == in_)
                send_some();
            else
                read_some();
        }
        return true;
    }
    // What the error output holds once the program has ended (a process it left behind may
    // keep the output open: what is not there yet is not waited for).
    void drain() {
        while (err_ >= 0 && read_some()) {
        }
    }
    bool sent_all() const { return sent_ == message_.size(); }
    bool sending() const { return in_ >= 0 && !sent_all(); }
    const String &errors() const { return errors_; }
    void stop_sending() {
        if (in_ >= 0) ::close(in_);
        in_ = -1;
    }
    ~Run() {
        stop_sending();
        if (err_ >= 0) ::close(err_);
    }

  private:
    void send_some() {
        const ssize_t n = send(in_, message_.data() + sent_, message_.size() - sent_,
                               MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) sent_ += static_cast<std::size_t>(n);
        if ((n < 0 && errno != EAGAIN && errno != EINTR) || sent_all()) stop_sending();
    }
    // Reads what the error output holds (up to kErrorTextLimit bytes are kept); false when
    // nothing more is there now, or ever (then it is closed).
    bool read_some() {
        char block[512];
        const ssize_t n = read(err_, block, sizeof block);
        if (n > 0) {
            const std::size_t room = kErrorTextLimit - std::min(kErrorTextLimit, errors_.size());
            errors_.append(block, std::min(static_cast<std::size_t>(n), room));
            return true;
        }
        if (n < 0 && (errno == EAGAIN || errno == EINTR)) return errno == EINTR;
        ::close(err_);
        err_ = -1;
        return false;
    }

    const String &message_;
    std::size_t sent_ = 0;
    int in_;
    int err_;
    String errors_;
};

// A spawned program, stopped and waited for if it is left running (when a raise passes).
struct Child {
    pid_t pid = 0;
    bool reaped = true;
    Child() = default;
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    ~Child() {
        if (reaped) return;
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
};

// "exit status 75", "signal 9".
String status_text(int status) {
    char text[32];
    if (WIFSIGNALED(status))
        std::snprintf(text, sizeof text, "signal %d", WTERMSIG(status));
    else
        std::snprintf(text, sizeof text, "exit status %d", WEXITSTATUS(status));
    return String(text);
}

bool spawn(const String &program, const Vector<String> &recipients, int input, int errors,
           pid_t &pid, int &error) {
    Vector<char *> argv;
    argv.push_back(const_cast<char *>(program.c_str()));
    argv.push_back(const_cast<char *>("-i"));
    argv.push_back(const_cast<char *>("--"));
    for (const String &recipient : recipients)
        argv.push_back(const_cast<char *>(recipient.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, 0);
    posix_spawn_file_actions_adddup2(&actions, errors, 1);
    posix_spawn_file_actions_adddup2(&actions, errors, 2);
    const bool search = program.find('/') == String::npos;
    error = (search ? posix_spawnp : posix_spawn)(&pid, program.c_str(), &actions, nullptr,
                                                  argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error == 0;
}

// Hands the message to the program; false with the failure filled in.
bool deliver(const String &message, const Vector<String> &recipients, Failure &failure) {
    const String program = preference_or("QV_SENDMAIL", kDefaultProgram);
    const int timeout = timeout_seconds();
    int in[2], err[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, in) != 0) {
        failure = {QV_MSG_MAIL_PROGRAM_FAILED, {program, String(std::strerror(errno))}};
        return false;
    }
    Descriptor child_in, child_err;
    child_in.fd = in[1];
    if (pipe2(err, O_CLOEXEC) != 0) {
        ::close(in[0]);
        failure = {QV_MSG_MAIL_PROGRAM_FAILED, {program, String(std::strerror(errno))}};
        return false;
    }
    child_err.fd = err[1];
    fcntl(err[0], F_SETFL, O_NONBLOCK);
    Run run(message, in[0], err[0]);
    Child child;
    int error = 0;
    if (!spawn(program, recipients, in[1], err[1], child.pid, error)) {
        failure = {QV_MSG_MAIL_PROGRAM_FAILED, {program, String(std::strerror(error))}};
        return false;
    }
    child.reaped = false;
    child_in.close();
    child_err.close();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeout);
    int status = 0;
    while (!child.reaped || run.sending()) {
        if (!child.reaped) {
            const pid_t done = waitpid(child.pid, &status, WNOHANG);
            child.reaped = done == child.pid || (done < 0 && errno == ECHILD);
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            char seconds[16];
            std::snprintf(seconds, sizeof seconds, "%d", timeout);
            failure = {QV_MSG_MAIL_TIMED_OUT, {program, String(seconds)}};
            return false; // the child is stopped and waited for as it goes
        }
        if (!run.step(20)) usleep(10000);
    }
    run.drain();
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0 && run.sent_all()) return true;
    String said = one_line(trim(run.errors()));
    if (said.empty())
        said = run.sent_all() ? "it wrote no error" : "it stopped reading the message";
    failure = {QV_MSG_MAIL_PROGRAM_REFUSED, {program, status_text(status), said}};
    return false;
}

// ---- The built-in ---------------------------------------------------------------------------

String text_or_empty(const QV_VALUE_T *value) {
    qv::values::TextForm text;
    return utf8_of(value, text) ? String(text.view()) : String();
}

// Fills the mail from the arguments; false with the failure when it cannot be sent.
bool gather(Mail &mail, QV_VALUE_T *profile, QV_VALUE_T *subject, QV_VALUE_T *text, QV_VALUE_T *to,
            QV_VALUE_T *copy, QV_VALUE_T *attachments, Failure &failure) {
    const String sender = text_or_empty(profile);
    if (sender.find('@') != String::npos) mail.sender = one_line(trim(sender));
    mail.subject = text_or_empty(subject);
    mail.text = text_or_empty(text);
    const String to_text = text_or_empty(to);
    mail.to = split_list(to_text, ";,");
    mail.copy = split_list(text_or_empty(copy), ";,");
    if (mail.to.empty() && mail.copy.empty()) {
        failure = {QV_MSG_MAIL_NO_RECIPIENT, {to_text}};
        return false;
    }
    for (const String &name : split_list(text_or_empty(attachments), ";")) {
        Attachment attachment;
        const String path = translate_filename(name);
        if (!read_file(path, attachment.content)) {
            failure = {QV_MSG_MAIL_ATTACHMENT_UNREADABLE, {path, String(std::strerror(errno))}};
            return false;
        }
        const std::size_t slash = path.rfind('/');
        attachment.name = slash == String::npos ? path : path.substr(slash + 1);
        mail.attachments.push_back(std::move(attachment));
    }
    return true;
}

void send_mail(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *profile, QV_VALUE_T *,
               QV_VALUE_T *subject, QV_VALUE_T *text, QV_VALUE_T *to, QV_VALUE_T *copy,
               QV_VALUE_T *attachments) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    if (!present(to)) return set_null(result);
    Mail mail;
    Failure failure;
    if (gather(mail, profile, subject, text, to, copy, attachments, failure)) {
        Vector<String> recipients = mail.to;
        recipients.insert(recipients.end(), mail.copy.begin(), mail.copy.end());
        if (deliver(compose(mail), recipients, failure))
            return store_text_copy(result, "OK", nullptr);
    }
    PWMessage message(failure.number, MESSAGE_SEVERITY_WARNING);
    for (const String &parameter : failure.parameters) message << std::string_view(parameter);
    LogMessage_L(&message);
    const std::string said = message.Text();
    store_text_copy(result, said, nullptr);
}

} // namespace

extern "C" {

QV_API void BI_send_mail(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                         QV_VALUE_T *a2, QV_VALUE_T *a3, QV_VALUE_T *a4, QV_VALUE_T *a5,
                         QV_VALUE_T *a6, QV_VALUE_T *a7) {
    QV_C_ENTRY([&] { run<send_mail>(result, frame, a1, a2, a3, a4, a5, a6, a7); });
}

} // extern "C"
