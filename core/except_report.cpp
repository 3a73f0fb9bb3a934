// except_report.cpp - texts of the status-context machinery: fatal reports, the raise
// trace, the message of the last raise, and descriptions of operating-system exceptions.
//
// This is the one place where the machinery speaks. Fatal reports are messages written to
// the error feedback class; the raise trace is debug output under the category "HANDLER".
// Both can themselves fail (memory running out raises again, and with no context that
// raise reports again): a report or trace started while another is under way does not go
// through messages and feedback but straight to standard error (reports) or nowhere
// (traces), so a failing report can never recurse without end.
//
// Part of the except module.
#define QV_MODULE "except"
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/except_report.hpp"
#include "core/heap.hpp"
#include "core/raise.hpp"
#include "qv/feedback.h"
#include "qv/message.h"
#include "qv/msgclass.h"

namespace qv {
namespace {

char exception_message[256];
static_assert(sizeof exception_message == 256, "the exception message buffer is 256 bytes");

bool reporting = false;
bool tracing = false;

PWMessage last_raise_message() {
    PWMessage message(QV_MSG_EXCEPTION_RAISED, MESSAGE_SEVERITY_ERROR);
    message << last_raise.symbol << last_raise.file << last_raise.line;
    return message;
}

} // namespace

void report_fatal(const char *text, const char *file, int32_t line) {
    if (reporting) {
        std::fprintf(stderr, "%s ['%s' line %ld]\n", text ? text : "<NULL>", file ? file : "<NULL>",
                     static_cast<long>(line));
        return;
    }
    qv::ScopedFlag guard(reporting);
    PWMessage message(QV_MSG_CONTEXT_FAILURE, MESSAGE_SEVERITY_ERROR);
    message << text << file << line;
    const char *made = StringMessage_L(&message);
    if (*made != '\0')
        ErrFeedback_L("%s", made);
    else // the message text could not be allocated: say it plainly
        ErrFeedback_L("%s ['%s' line %ld]", text, file, static_cast<long>(line));
}

void trace_raise(const char *symbol, const char *file, int32_t line, int32_t mode, int32_t status,
                 const char *status_symbol) {
    if (tracing) return;
    qv::ScopedFlag guard(tracing);
    long at = line;
    if (mode == EXC_RAISE && symbol == STATUS_RAISED)
        Debug_L("HANDLER", "STATUS '%s' (%08ld %08lX) RAISED ['%s' line %ld]\n", status_symbol,
                static_cast<long>(status), static_cast<long>(static_cast<uint32_t>(status)), file,
                at);
    else if (mode == EXC_RAISE)
        Debug_L("HANDLER", "RAISE ('%s') ['%s' line %ld]\n", symbol, file, at);
    else if (mode == EXC_RERAISE)
        Debug_L("HANDLER", "RERAISE('%s') ['%s' line %ld] \n", symbol, file, at);
    else
        Debug_L("HANDLER", "Default reraise ('%s') ['%s' line %ld]\n", symbol, file, at);
}

} // namespace qv

namespace {

struct ExceptionName {
    uint32_t code;
    const char *name;
};

// Searched in order, first match wins; the pair with no name ends it.
constexpr ExceptionName exception_names[] = {
    {0xC0000005, "Access Violation"},
    {0x80000002, "Datatype misalignment"},
    {0x80000003, "Debugging, breakpoint"},
    {0x80000004, "Debugging, single step"},
    {0xC000008C, "Array bounds exceeded"},
    {0xC000008D, "Denormal floating-point operand"},
    {0xC000008E, "Floating-point divide by zero"},
    {0xC000008F, "Inexact floating-point result"},
    {0xC0000090, "Invalid floating-point operation"},
    {0xC0000091, "Floating-point overflow"},
    {0xC0000092, "Floating-point stack overflow or underflow"},
    {0xC0000093, "Floating-point underflow"},
    {0xC0000094, "Integer divide by zero"},
    {0xC0000095, "Integer overflow"},
    {0xC0000096, "Attempt to execute privileged instruction"},
    {0xC0000006, "Page error"},
    {0xC000001D, "Attempt to execute illegal instruction"},
    {0xC0000025, "Attempt to continue beyond exception"},
    {0xC00000FD, "Stack overflow"},
    {0xC0000026, "Invalid disposition"},
    {0x80000001, "Guard page violation"},
    {0xC0000008, "Invalid handle"},
    {0xC000013A, "CTRL-C"},
    {0, nullptr},
};
static_assert(std::size(exception_names) == 24);

constexpr uint32_t access_violation = 0xC0000005;

// Two lines with the longest name and two pointers fit with room to spare.
char exception_text[256];

const char *exception_name(uint32_t code) {
    for (const ExceptionName *entry = exception_names; entry->name != nullptr; ++entry)
        if (entry->code == code) return entry->name;
    return nullptr;
}

} // namespace

extern "C" {

QV_API const char *Exc_Message_L(void) {
    PWMessage message = qv::last_raise_message();
    const char *text = StringMessage_L(&message);
    std::size_t length = strnlen(text, sizeof qv::exception_message - 1);
    std::memcpy(qv::exception_message, text, length);
    qv::exception_message[length] = '\0';
    return qv::exception_message;
}

QV_API void LogExcError_L(void) {
    PWMessage message = qv::last_raise_message();
    LogMessage_L(&message);
}

QV_API void LogExcStatusError_L(void) {
    PWMessage message(QV_MSG_STATUS_RAISED, MESSAGE_SEVERITY_ERROR);
    message << Exc_Status;
    LogMessage_L(&message);
}

QV_API const char *PackageExceptionMessage_L(const QV_EXCEPTION_RECORD_T *record) {
    const char *name = record ? exception_name(record->code) : nullptr;
    if (name == nullptr) {
        std::snprintf(exception_text, sizeof exception_text, "Unknown exception");
        return exception_text;
    }
    int used = std::snprintf(exception_text, sizeof exception_text,
                             "Software Exception 0x%X ( %s )\n", record->code, name);
    if (record->code == access_violation) {
        bool write = record->parameter_count > 0 && record->parameters[0] != 0;
        void *accessed =
            record->parameter_count > 1 ? reinterpret_cast<void *>(record->parameters[1]) : nullptr;
        std::snprintf(exception_text + used, sizeof exception_text - used,
                      "Exception Address %p [%s at %p]\n", record->address,
                      write ? "write" : "read", accessed);
    }
    return exception_text;
}

QV_API int32_t TopLevelExceptionFilter_L(const QV_EXCEPTION_POINTERS_T *pointers) {
    ErrFeedback_L("%s", PackageExceptionMessage_L(pointers ? pointers->exception_record : nullptr));
    return 1;
}

} // extern "C"
