// message.cpp - the flat layer over message objects: routing a logged message by its
// severity, the message context that collects errors, reporting and transferring message
// sets, the static text of StringMessage_L, the error-suppression and deferred-warning
// switches, and the wrappers that turn C-library errors into messages.
//
// Module "message", shared with glossary.cpp. Process-wide state, no locks.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "messages/feedback.hpp"
#include "messages/message.hpp"
#include "qv/alloc.h"
#include "qv/feedback.h"
#include "qv/message.h"
#include "qv/msgclass.h"

namespace {

uint32_t *message_context = nullptr;
bool errors_suppressed = false;
bool warnings_deferred = false;
char *string_message = nullptr; // the text StringMessage_L last returned

// Feedback class numbers ReportMessages_L writes to, by severity. Fixed numbers, not looked
// up by name: with the standard registration they are "Progress", "Info_S" and "Info".
// With no log file open a reported message reaches standard output whatever its class.
constexpr int32_t report_class_debug_information = 4;
constexpr int32_t report_class_warning = 3;
constexpr int32_t report_class_error = 2;

int32_t report_class(int32_t severity) {
    if (severity <= MESSAGE_SEVERITY_INFORMATION) return report_class_debug_information;
    if (severity == MESSAGE_SEVERITY_WARNING) return report_class_warning;
    return report_class_error;
}

using qv::HeapText;

void write_debug(const PWMessage &message) {
    char category[24];
    std::snprintf(category, sizeof category, "%lu", static_cast<unsigned long>(message.Number()));
    Debug_L(category, "%s", message.Text().c_str());
}

// Logs QV_MSG_C_FUNCTION_ERROR for an error number with the text made from format/arguments.
void log_function_error(int32_t error_number, const char *format, va_list arguments) {
    char *made = nullptr;
    VAsprintf_L(&made, format, arguments);
    HeapText text(made);
    PWMessage message(QV_MSG_C_FUNCTION_ERROR, MESSAGE_SEVERITY_ERROR);
    message << (text ? text.get() : "") << error_number << std::strerror(error_number);
    LogMessage_L(&message);
}

// Prints the messages of set `handle` from `minimum_severity` on.
void report_set(uint32_t handle, int32_t minimum_severity) {
    PWMsgSet &sets = PWMsgSet::Instance();
    if (!sets.IsSet(handle)) return;
    const char *prefix = "\n";
    uint32_t count = sets.Count(handle);
    for (uint32_t i = 0; i < count; ++i) {
        const PWMessageBase *message = sets.Message(handle, i);
        int32_t severity = message->LibrarySeverity();
        if (severity < minimum_severity) continue;
        qv::String line(prefix);
        line += severity == MESSAGE_SEVERITY_WARNING ? "WARNING - " : "";
        line += std::string_view(message->Text());
        line += "\n\n";
        qv::write_reported_message(report_class(severity), line);
        prefix = "";
    }
}

void route(const PWMessage &message) {
    switch (message.LibrarySeverity()) {
        case MESSAGE_SEVERITY_DEBUG: write_debug(message); return;
        case MESSAGE_SEVERITY_INFORMATION:
            Feedback_L(GetFeedbackClass_L("Info"), "%s", message.Text().c_str());
            return;
        case MESSAGE_SEVERITY_WARNING:
            if (!warnings_deferred) {
                Feedback_L(GetFeedbackClass_L("Warning"), "WARNING - %s", message.Text().c_str());
                return;
            }
            break;
        default: break;
    }
    if (message_context != nullptr) AddMessage_L(message_context, &message);
}

} // namespace

void qv::reset_warning_deferral() {
    warnings_deferred = false;
}

extern "C" {

QV_API const char *MsgSeverityName_L(int32_t severity) {
    constexpr const char *names[] = {"D", "I", "W", "E", "F"};
    static_assert(std::size(names) == MESSAGE_SEVERITY_FATAL);
    if (severity < MESSAGE_SEVERITY_DEBUG || severity > MESSAGE_SEVERITY_FATAL) return "?";
    return names[severity - 1];
}

QV_API void InitMessages_L(uint32_t *handle_variable) {
    if (handle_variable != nullptr) *handle_variable = 0;
    message_context = handle_variable;
}

QV_API uint32_t *SetMessageContext_L(uint32_t *handle_variable) {
    uint32_t *previous = message_context;
    if (handle_variable != nullptr) message_context = handle_variable;
    return previous;
}

QV_API uint32_t **GetMessageContext_L(uint32_t **out) {
    if (out != nullptr) *out = message_context;
    return out;
}

QV_API void ClearMessageContext_L(void) {
    message_context = nullptr;
}

QV_API void LogMessage_L(const PWMessage *message) {
    if (message == nullptr) return;
    QV_C_ENTRY([message] { route(*message); });
}

QV_API void AddMessage_L(uint32_t *handle_variable, const PWMessage *message) {
    if (handle_variable == nullptr || message == nullptr) return;
    PWMsgSet::Instance().Add(*handle_variable, *message);
}

QV_API int32_t CheckMessageHandle_L(uint32_t handle, int32_t *count_out, int32_t *worst_out) {
    if (count_out != nullptr) *count_out = 0;
    if (message_context == nullptr) return 0;
    PWMsgSet &sets = PWMsgSet::Instance();
    if (!sets.IsSet(handle)) return -1;
    if (count_out != nullptr) *count_out = static_cast<int32_t>(sets.Count(handle));
    if (worst_out != nullptr) *worst_out = sets.WorstSeverity(handle);
    return 0;
}

QV_API PWMessage *GetMessage_L(uint32_t handle, int32_t n) {
    PWMsgSet &sets = PWMsgSet::Instance();
    if (n < 0 || !sets.IsSet(handle) || static_cast<uint32_t>(n) >= sets.Count(handle))
        return nullptr;
    PWMessageBase *message = sets.Message(handle, static_cast<uint32_t>(n));
    if (message == nullptr || std::strcmp(message->ClassName(), "PWMessage") != 0) return nullptr;
    return static_cast<PWMessage *>(message);
}

QV_API void DeleteMessageHandle_L(uint32_t handle) {
    PWMsgSet::Instance().Clear(handle);
}

QV_API void TerminateMessages_L(uint32_t *) {
    PWMsgSet::Instance().ClearAll();
}

QV_API void ReportMessages_L(uint32_t *handle_variable, int32_t minimum_severity) {
    if (handle_variable == nullptr) return;
    QV_C_ENTRY([&] { report_set(*handle_variable, minimum_severity); });
    PWMsgSet::Instance().Clear(*handle_variable);
    *handle_variable = 0;
}

QV_API void TransferMessages_L(uint32_t *handle_variable) {
    if (handle_variable == nullptr || *handle_variable == 0) return;
    PWMsgSet &sets = PWMsgSet::Instance();
    uint32_t handle = *handle_variable;
    if (message_context != nullptr && *message_context == handle) return; // already there
    if (message_context != nullptr && sets.IsSet(handle)) sets.Transfer(handle, *message_context);
    sets.Clear(handle);
    *handle_variable = 0;
}

QV_API const char *StringMessage_L(const PWMessage *message) {
    std::free(string_message);
    string_message = nullptr;
    if (message == nullptr) return "";
    string_message = QV_C_ENTRY([message] { return QV_STRDUP(message->Text().c_str()); });
    return string_message != nullptr ? string_message : "";
}

QV_API const char *VAMessage_L(const PWMessage *message) {
    return StringMessage_L(message);
}

QV_API uint8_t SetErrorSuppression_L(uint8_t on) {
    uint8_t previous = errors_suppressed ? 1 : 0;
    errors_suppressed = on != 0;
    return previous;
}

QV_API uint8_t ErrorsSuppressed_L(void) {
    return errors_suppressed ? 1 : 0;
}

QV_API void DeferWarnings_L(void) {
    warnings_deferred = true;
}

QV_API void CFunctionError_L(int32_t errno_value, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    QV_C_ENTRY([&] { log_function_error(errno_value, format, arguments); });
    va_end(arguments);
}

QV_API void WinLastError(const char *format, ...) {
    int32_t error_number = errno;
    va_list arguments;
    va_start(arguments, format);
    QV_C_ENTRY([&] { log_function_error(error_number, format, arguments); });
    va_end(arguments);
}

} // extern "C"
