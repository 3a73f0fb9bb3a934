// builtin_process.cpp - the built-ins about the running process (module "builtin"): Delay,
// LogMsg, OpSys, RowNum (with SetRowNum_L), System and UUID.
#define QV_MODULE "builtin"

#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

#include "language/builtin_shared.hpp"
#include "qv/encoding.h"
#include "qv/feedback.h"
#include "qv/textutil.h"

namespace {

using namespace qv::builtin;

// The row number the running program stored last (process-wide, as the program is).
int64_t row_number = 0;

void sleep_milliseconds(int64_t milliseconds) {
    timespec wait{static_cast<time_t>(milliseconds / 1000),
                  static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&wait, &wait) != 0 && errno == EINTR) {
    }
}

// Delay( seconds ): sleeps and gives TRUE for a count of 0 or more; the milliseconds are
// seconds x 1000, and 0 when that passes the 32-bit range the sleep took (about 24.8 days).
// A negative count sleeps not at all and gives NULL; so does a count that is not a 64-bit
// integer.
void delay(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *seconds) {
    if (!begin(result, frame, QV_TYPE_BOOLEAN)) return;
    int64_t n = 0;
    if (!read_integer(seconds, n) || n < 0) return set_null(result);
    sleep_milliseconds(n <= INT32_MAX / 1000 ? n * 1000 : 0);
    store_boolean(result, true);
}

// LogMsg( value [, value ... ] ): the text forms joined as Concat joins them, written as one
// line to the Info feedback class when that class is active. TRUE when the line was
// written, FALSE otherwise.
void log_message(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, Arguments given) {
    if (!begin(result, frame, QV_TYPE_BOOLEAN)) return;
    InitialiseFeedback_L();
    if (!IsActiveFeedback_L(X_Info_FL)) return store_boolean(result, false);
    TextJoiner joined;
    for (const QV_VALUE_T *value : given) {
        qv::values::TextForm form;
        if (present(value) && form.make_utf8(*value)) joined.append(form.view());
    }
    // Feedback_L takes a terminated text; a line past kMaxResultBytes is not written.
    if (!joined.append(std::string_view("\0", 1))) return store_boolean(result, false);
    Feedback_L(X_Info_FL, "%s\n", joined.view().data());
    store_boolean(result, true);
}

// OpSys(): "WIN32", the name the language has always given, in ASCII, CHAR(5).
void operating_system(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    constexpr std::string_view kName = "WIN32";
    if (!begin(result, frame, QV_TYPE_CHAR, static_cast<int32_t>(kName.size()))) return;
    store_text_copy(result, kName, ASCIIEncoding_L());
}

void row_num(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    store_integer(result, row_number);
}

// System( command ): runs a CHAR command through the shell (system()) and gives its exit
// status: the command's exit code, 128 + the signal number when a signal ended it, -1 when
// no shell could be started. NULL for a NULL command; an argument of another type is not
// run (NULL).
void run_command(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *command) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    qv::values::TextForm text;
    if (!present(command) || command->descriptor.type != QV_TYPE_CHAR || !text.make_utf8(*command))
        return set_null(result);
    const int status = std::system(text.data());
    if (status == -1) return store_integer(result, -1);
    if (WIFEXITED(status)) return store_integer(result, WEXITSTATUS(status));
    store_integer(result, WIFSIGNALED(status) ? 128 + WTERMSIG(status) : status);
}

// UUID(): a new random UUID, 36 characters in ASCII, CHAR(36).
void uuid(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    constexpr int32_t kLength = 36;
    if (!begin(result, frame, QV_TYPE_CHAR, kLength)) return;
    char text[kLength + 1];
    CreateUUID_L(text);
    store_text_copy(result, {text, kLength}, ASCIIEncoding_L());
}

} // namespace

extern "C" {

QV_API void SetRowNum_L(int64_t row) {
    row_number = row;
}

QV_API void BI_delay(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<delay>(result, frame, a1);
}
QV_API void BI_log_msg(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    run_b<log_message>(result, frame);
}
QV_API void BI_op_sys(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    run<operating_system>(result, frame);
}
QV_API void BI_row_num(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    run<row_num>(result, frame);
}
QV_API void BI_system(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<run_command>(result, frame, a1);
}
QV_API void BI_uuid(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    run<uuid>(result, frame);
}

} // extern "C"
