/*
 * feedback.h - feedback classes, the log file, debug output and interrupts.
 *
 * Every text the library shows a user or writes to a log goes through a feedback class: a
 * named channel with a level and flags, held in a process-wide table in registration order
 * (the index is the class number). A class is active when its flag QV_FEEDBACK_ALWAYS is
 * set or when its name is among the trace selections; the selections are the
 * comma-separated names of the trace setting "TRACE_VALUES" (trimmed, compared without
 * case), and "*" selects every class and every debug category.
 *
 * InitialiseFeedback_L registers the nine standard classes, whose numbers are exported as
 * X_Error_FL (0) ... X_Variable_FL (8):
 *
 *     name      level flags         name      level flags
 *     Error       2     8           Detail      4    48
 *     Warning     3    88           Internal    4    48
 *     Info        4    24           User        4    48
 *     Info_S      4     8           Variable    4    48
 *     Progress    4    48
 *
 * Flags: 8 always active; 16 echo to standard output when standard feedback is on;
 * 32 time-stamped prefix "[%-10.10s - %s] " (class name, Time_L) in the log file; 64 block
 * spacing: an empty line in the log file before a write that follows a write of a class
 * without flag 64, so that a run of warnings stands as one block.
 * Level 2 (errors): when no log file is open, the text goes to standard error instead, so
 * that errors are never lost.
 *
 * Output: the log file receives the text with every line feed written as "\r\n", flushed
 * after each write. Standard output receives the text with plain line feeds; lines longer
 * than the feedback width (1024 when unset) are broken at the last space within the width
 * (the space is dropped) or, with no space there, after exactly width characters (UTF-8
 * characters are counted, never split). Standard feedback is on until a host turns it off.
 * A host may capture what would go to standard output and standard error with
 * SetFeedbackWriter_L.
 *
 * Every output entry point initialises the module when needed. Output to an inactive or
 * unknown class, with an empty or null format, or from inside another output of the library
 * (a raise traced while formatting, a writer that calls back into feedback) is silently
 * skipped; so are RegisterFeedbackClass_L (returning -1), ResetFeedbackSelections_L and
 * TerminateFeedback_L when called from inside a feedback write.
 * Allocation failures raise ALLOC_FAILURE / ZERO_ALLOC_FAILURE under "feedback".
 * Not thread-safe: one thread at a time.
 */
#ifndef QV_FEEDBACK_H
#define QV_FEEDBACK_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "qv_export.h"

QV_EXTERN_C_BEGIN

/* Class flags. */
enum {
    QV_FEEDBACK_ALWAYS = 8,     /* active whatever the selections */
    QV_FEEDBACK_STDOUT = 16,    /* echoed to standard output when standard feedback is on */
    QV_FEEDBACK_TIMESTAMP = 32, /* log-file lines prefixed with class name and time */
    QV_FEEDBACK_BLOCK = 64      /* empty log-file line before the first of a run */
};

/* Numbers of the standard classes: 0 to 8 in the order of the table above. */
QV_API extern const int32_t X_Error_FL;
QV_API extern const int32_t X_Warning_FL;
QV_API extern const int32_t X_Info_FL;
QV_API extern const int32_t X_InfoS_FL;
QV_API extern const int32_t X_Progress_FL;
QV_API extern const int32_t X_Detail_FL;
QV_API extern const int32_t X_Internal_FL;
QV_API extern const int32_t X_User_FL;
QV_API extern const int32_t X_Variable_FL;

/* Registers the standard classes and reads the selections; later calls do nothing until
 * TerminateFeedback_L. */
QV_API void InitialiseFeedback_L(void);
/* Rereads "TRACE_VALUES" and recomputes every class's active flag. */
QV_API void ResetFeedbackSelections_L(void);
/* Registers a class (name stored upper-cased) or, when one of that name exists (compared
 * without case), updates its level and flags. Returns the class number, or -1 for a null
 * or empty name or when the table cannot grow (after ALLOC_FAILURE). */
QV_API int32_t RegisterFeedbackClass_L(const char *name, uint8_t level, uint32_t flags);
/* Number of the class of that name (without case); the class count when there is none. */
QV_API int32_t GetFeedbackClass_L(const char *name);
/* 1 when the class exists and is active; 0 otherwise. */
QV_API uint8_t IsActiveFeedback_L(int32_t feedback_class);

/* Formats with the library's formatter (VAsprintf_L) and writes to the class. */
QV_API void Feedback_L(int32_t feedback_class, const char *format, ...);
QV_API void VFeedback_L(int32_t feedback_class, const char *format, va_list arguments);
/* Writes a ready text to the class. */
QV_API void Simple_Feedback_L(int32_t feedback_class, const char *text);
/* Feedback_L on the Error class. */
QV_API void ErrFeedback_L(const char *format, ...);

/* Writes debug output when everything is selected or `category` is among the selections
 * (without case): to the log file and, when standard feedback is on, to standard output,
 * with no prefix and no wrapping. Returns -1 when nothing was written, else 0. */
QV_API int32_t Debug_L(const char *category, const char *format, ...);
/* Writes an SQL text and a line feed under the category "SQL" / "ExecutedSQL". */
QV_API int32_t Debug_SQL_L(const char *sql_text);
QV_API int32_t Debug_NativeSQL_L(const char *sql_text);

/* Standard feedback on (non-zero) or off; on by default. */
QV_API void SetStdFeedback_L(uint8_t on);
/* Line width of standard output; a width <= 0 restores the default 1024. */
QV_API void Set_Feedback_Width_L(int32_t width);

/* Receives what feedback would write to standard output (stream 1) or standard error
 * (stream 2): `length` bytes of `text`, not terminated. A null writer restores stdout and
 * stderr. */
typedef void (*QV_FEEDBACK_WRITER_T)(int32_t stream, const char *text, size_t length,
                                     void *context);
QV_API void SetFeedbackWriter_L(QV_FEEDBACK_WRITER_T writer, void *context);

/* Opens the log file at `path` (closing any open one), appending when `append` is non-zero,
 * else truncating. The preference "QV_LOG_NAME", when set, replaces the file-name part of
 * the path. The file is written in UTF-8; the preference "QV_LOG_ENCODING" may say "ASCII"
 * (non-ASCII bytes written as '?') or "UTF-8"; any other value is reported and UTF-8 used.
 * Returns 0, or -1 when the file cannot be opened: the error is written to standard error
 * and output goes on to standard output only. */
QV_API int32_t SetFeedbackFile_L(const char *path, int32_t append);
/* Opens, truncating, the file `name` in the directory of the preference "QV_LOG_DIR" (the
 * current directory when unset). Returns as SetFeedbackFile_L. */
QV_API int32_t SetDefaultFeedbackFile_L(const char *name);
QV_API void CloseFeedbackFile_L(void);
/* Path of the open log file (a heap copy the caller frees), or null when none is open. */
QV_API char *FeedbackFilePath_L(void);

/* Root of a log-file name: "<kind word>_<name>_<number, 4 digits>", kind 'B' "Build",
 * 'S' "DimBuild", 'J' "Job", anything else "Unknown". The name is made printable: control
 * characters, invalid UTF-8 and the characters / \ : * ? " < > | become '_'; a null name is
 * empty. With `with_process` non-zero, "_<process id, 8 hex digits><suffix>" follows (a
 * null suffix is empty). Returns a heap text the caller frees. */
QV_API char *DefaultLogFileRoot_L(char kind, const char *name, int32_t number, uint8_t with_process,
                                  const char *suffix);
/* "<QV_LOG_DIR>/<root>.log" with the root above (no process part); just "<root>.log" when
 * "QV_LOG_DIR" is unset. Heap text, caller frees. */
QV_API char *LogFilePath_L(char kind, const char *name, int32_t number);

/* Closes the log file, frees the classes and selections, restores every switch. */
QV_API void TerminateFeedback_L(void);

/* Interrupts. Set_Interrupt_L only writes a flag, so a signal handler may call it.
 * Check_Interrupt_L: 0 when interrupts are not active; otherwise it first calls the pump
 * (when one is installed, so that a user interface can request the interrupt), then when
 * an interrupt is requested and not yet delivered marks it delivered and returns -1, or
 * with `raise` non-zero raises INTERRUPT_PROCESS; else 0. Clear_Interrupt_L clears both
 * the request and its delivery. Interrupts are inactive until InterruptsActive_L(1). */
QV_API void InterruptsActive_L(uint8_t on);
QV_API void Set_Interrupt_L(void);
QV_API void Clear_Interrupt_L(void);
QV_API int32_t Check_Interrupt_L(uint8_t raise);
/* Installs the pump Check_Interrupt_L calls first; null removes it. */
QV_API void SetInterruptPump_L(void (*pump)(void));

QV_EXTERN_C_END

#endif
