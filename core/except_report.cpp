// except_report.cpp - texts of the status-context machinery: fatal reports, the raise
// trace, the message of the last raise, and descriptions of operating-system exceptions.
//
// This is the one place where the machinery speaks; until messages and feedback exist it
// writes to standard error.
#define QV_MODULE "except"
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "core/except_report.hpp"
#include "core/raise.hpp"

namespace qv {
namespace {

char exception_message[256];

bool handler_trace_selected() {
    const char *selection = std::getenv("TRACE_VALUES");
    if (selection == nullptr) return false;
    std::string_view list(selection);
    return list.find('*') != std::string_view::npos || list.find("HANDLER") != std::string_view::npos;
}

} // namespace

void report_fatal(const char *text, const char *file, int32_t line) {
    std::fprintf(stderr, "%s ['%s' line %ld]\n", text, file ? file : "<NULL>", static_cast<long>(line));
}

void trace_raise(const char *symbol, const char *file, int32_t line, int32_t mode, int32_t status,
                 const char *status_symbol) {
    if (!handler_trace_selected()) return;
    const char *sym = symbol ? symbol : "<NULL>";
    const char *where = file ? file : "<NULL>";
    long ln = line;
    if (mode == EXC_RAISE && symbol == STATUS_RAISED)
        std::fprintf(stderr, "STATUS '%s' (%08ld %08lX) RAISED ['%s' line %ld]\n",
                     status_symbol ? status_symbol : "<NULL>", static_cast<long>(status),
                     static_cast<unsigned long>(static_cast<uint32_t>(status)), where, ln);
    else if (mode == EXC_RAISE)
        std::fprintf(stderr, "RAISE ('%s') ['%s' line %ld]\n", sym, where, ln);
    else if (mode == EXC_RERAISE)
        std::fprintf(stderr, "RERAISE('%s') ['%s' line %ld] \n", sym, where, ln);
    else
        std::fprintf(stderr, "Default reraise ('%s') ['%s' line %ld]\n", sym, where, ln);
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
    const qv::LastRaise &last = qv::last_raise;
    std::snprintf(qv::exception_message, sizeof qv::exception_message,
                  "Status %s raised in %s at line %ld", last.symbol ? last.symbol : "<NULL>",
                  last.file ? last.file : "<NULL>", static_cast<long>(last.line));
    return qv::exception_message;
}

QV_API void LogExcError_L(void) { std::fprintf(stderr, "%s\n", Exc_Message_L()); }

QV_API void LogExcStatusError_L(void) {
    std::fprintf(stderr, "Status %ld raised\n", static_cast<long>(Exc_Status));
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
                      "Exception Address %p [%s at %p]\n", record->address, write ? "write" : "read",
                      accessed);
    }
    return exception_text;
}

QV_API int32_t TopLevelExceptionFilter_L(const QV_EXCEPTION_POINTERS_T *pointers) {
    std::fprintf(stderr, "%s", PackageExceptionMessage_L(pointers ? pointers->exception_record : nullptr));
    return 1;
}

} // extern "C"
