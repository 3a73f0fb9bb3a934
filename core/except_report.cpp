// except_report.cpp - what the status-context machinery says at the ground floor: the
// observer that higher floors install, the speaking depth that keeps reports from recurring
// (see except_report.hpp), the plain form of a fatal report, and the texts that describe
// operating-system exceptions.
//
// The plain report is built in a static buffer reserved at load, so reporting the failure
// of an allocation needs no memory; it is written with one fwrite to standard error.
//
// Part of the except module.
#define QV_MODULE "except"
#include <cstdint>
#include <cstdio>
#include <iterator>

#include "core/except_report.hpp"
#include "core/raise.hpp"

namespace qv {
namespace {

int32_t depth = 0;

void no_trace(const char *, const char *, int32_t, int32_t, int32_t, const char *) {}

constexpr ReportObserver default_observer{write_plain_fatal, no_trace};
ReportObserver observer = default_observer;

char plain_report[1024];

const char *shown(const char *text) {
    return text != nullptr ? text : "<NULL>";
}

} // namespace

SpeakingScope::SpeakingScope() noexcept : outermost_(depth++ == 0) {}

SpeakingScope::~SpeakingScope() {
    --depth;
}

int32_t speaking_depth() {
    return depth;
}

void install_report_observer(const ReportObserver &installed) {
    observer.fatal = installed.fatal ? installed.fatal : default_observer.fatal;
    observer.trace = installed.trace ? installed.trace : default_observer.trace;
}

void write_plain_fatal(const char *text, const char *file, int32_t line) {
    int length = std::snprintf(plain_report, sizeof plain_report,
                               "Status context failure: %s (%s, line %ld).\n", shown(text),
                               shown(file), static_cast<long>(line));
    if (length < 0) return;
    if (static_cast<std::size_t>(length) >= sizeof plain_report) {
        length = sizeof plain_report - 1;
        plain_report[length - 1] = '\n'; // cut short, still one line
    }
    std::fwrite(plain_report, 1, static_cast<std::size_t>(length), stderr);
    std::fflush(stderr);
}

void report_fatal(const char *text, const char *file, int32_t line) {
    SpeakingScope scope;
    if (scope.outermost())
        observer.fatal(text, file, line);
    else
        write_plain_fatal(text, file, line);
}

void trace_raise(const char *symbol, const char *file, int32_t line, int32_t mode, int32_t status,
                 const char *status_symbol) {
    SpeakingScope scope;
    if (scope.outermost()) observer.trace(symbol, file, line, mode, status, status_symbol);
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

} // extern "C"
