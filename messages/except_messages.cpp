// except_messages.cpp - the words of the status-context machinery. Installs, at load, the
// observer through which core reports (core/except_report.hpp): a fatal text becomes
// message QV_MSG_CONTEXT_FAILURE written to the error feedback class, and every raise is
// traced as debug output under the category "HANDLER". Also the routines that turn the
// last raise into a message (Exc_Message_L, LogExcError_L, LogExcStatusError_L) and an
// operating-system exception into feedback (TopLevelExceptionFilter_L).
//
// The fatal report, the trace and Exc_Message_L are composed in static buffers, without
// allocating and without the formatter: they are made when memory has run out, and while
// the formatter's work text may be in use. A fatal report that feedback cannot take (its
// tables cannot be set up, the error class was made inactive) is written plainly instead.
// A long file name can cut the report short: the buffer holds 1023 bytes.
//
// Part of the except module.
#define QV_MODULE "except"
#include <charconv>
#include <cstdio>
#include <span>
#include <string_view>

#include "core/except_report.hpp"
#include "core/raise.hpp"
#include "messages/catalogue.hpp"
#include "messages/feedback.hpp"
#include "qv/feedback.h"
#include "qv/message.h"
#include "qv/msgclass.h"

namespace {

char fatal_text[1024];
char trace_text[1024];
char exception_message[256];
static_assert(sizeof exception_message == 256, "the exception message buffer is 256 bytes");

const char *shown(const char *text) {
    return text != nullptr ? text : "<NULL>";
}

// The text of a message whose parameters are a text, a text and a line number, into
// `buffer`; returns its length.
std::size_t text_and_line(std::span<char> buffer, uint32_t number, const char *first,
                          const char *second, int32_t line) {
    char digits[16];
    const auto written = std::to_chars(digits, digits + sizeof digits, line);
    const std::string_view parameters[] = {shown(first), shown(second),
                                           std::string_view(digits, written.ptr - digits)};
    return qv::message_text(buffer, number, parameters);
}

void write_fatal(const char *what, const char *file, int32_t line) {
    // Room is kept for the line feed that makes the report one whole line.
    std::size_t length = text_and_line(std::span(fatal_text, sizeof fatal_text - 1),
                                       QV_MSG_CONTEXT_FAILURE, what, file, line);
    fatal_text[length++] = '\n';
    bool written = false;
    QV_C_ENTRY([&] { written = qv::write_report(X_Error_FL, {fatal_text, length}); });
    if (!written) qv::write_plain_fatal(what, file, line);
}

void trace(const char *symbol, const char *file, int32_t line, int32_t mode, int32_t status,
           const char *status_symbol) {
    if (!qv::debug_selected("HANDLER")) return;
    const long at = line;
    const char *place = shown(file);
    if (mode == EXC_RAISE && symbol == STATUS_RAISED)
        std::snprintf(trace_text, sizeof trace_text,
                      "STATUS '%s' (%08ld %08lX) RAISED ['%s' line %ld]\n", shown(status_symbol),
                      static_cast<long>(status),
                      static_cast<unsigned long>(static_cast<uint32_t>(status)), place, at);
    else if (mode == EXC_RAISE)
        std::snprintf(trace_text, sizeof trace_text, "RAISE ('%s') ['%s' line %ld]\n",
                      shown(symbol), place, at);
    else if (mode == EXC_RERAISE)
        std::snprintf(trace_text, sizeof trace_text, "RERAISE('%s') ['%s' line %ld] \n",
                      shown(symbol), place, at);
    else
        std::snprintf(trace_text, sizeof trace_text, "Default reraise ('%s') ['%s' line %ld]\n",
                      shown(symbol), place, at);
    QV_C_ENTRY([] { qv::write_debug(trace_text); });
}

[[maybe_unused]] const bool observer_installed =
    (qv::install_report_observer({write_fatal, trace}), true);

PWMessage last_raise_message() {
    PWMessage message(QV_MSG_EXCEPTION_RAISED, MESSAGE_SEVERITY_ERROR);
    message << qv::last_raise.symbol << qv::last_raise.file << qv::last_raise.line;
    return message;
}

} // namespace

extern "C" {

QV_API const char *Exc_Message_L(void) {
    text_and_line(exception_message, QV_MSG_EXCEPTION_RAISED, qv::last_raise.symbol,
                  qv::last_raise.file, qv::last_raise.line);
    return exception_message;
}

QV_API void LogExcError_L(void) {
    QV_C_ENTRY([] {
        PWMessage message = last_raise_message();
        LogMessage_L(&message);
    });
}

QV_API void LogExcStatusError_L(void) {
    QV_C_ENTRY([] {
        PWMessage message(QV_MSG_STATUS_RAISED, MESSAGE_SEVERITY_ERROR);
        message << Exc_Status;
        LogMessage_L(&message);
    });
}

QV_API int32_t TopLevelExceptionFilter_L(const QV_EXCEPTION_POINTERS_T *pointers) {
    Simple_Feedback_L(X_Error_FL,
                      PackageExceptionMessage_L(pointers ? pointers->exception_record : nullptr));
    return 1;
}

} // extern "C"
