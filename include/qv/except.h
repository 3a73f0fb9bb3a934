/*
 * except.h - status contexts: how every failure in the library travels.
 *
 * A function that wants to catch failures opens a status context, saves its jump state
 * with setjmp, runs its protected body and, when a raise lands, runs its handler:
 *
 *     except_start_context("MyFunction", "myfile", __LINE__);
 *     if (setjmp(Exc_Sp->jump_state) == 0) {
 *         ... body; failures call except_raise(SYMBOL, "myfile", __LINE__, 0, 0, 0) ...
 *     }
 *     Exc_Sp->in_handler = 1;
 *     if (Exc_Raised_ was set by a landing raise) {
 *         ... handler: compare Exc_Raised_ with the symbols it knows; swallow, log with
 *         Exc_Message_L(), or pass on with except_raise(Exc_Raised_, "myfile", __LINE__, 1, 0, 0)
 *     }
 *     except_end_context("myfile", __LINE__);
 *
 * The context record lives on the heap; the stack of them is Exc_Sp. A raise with an open
 * context unwinds the frames between the raiser and the opener (so C++ destructors in them
 * run exactly once) and then longjmps to the opener. The opener's own frame is not unwound,
 * and locals of the opener that the body changes and the handler reads must be volatile.
 * A raise with no context does not jump: it writes a fatal report and returns to the raiser.
 *
 * C++ hosts. To C++ a raise on its way is a foreign exception:
 *   - It must not pass through a noexcept function (the program would terminate).
 *   - A catch (...) on the way runs its block; if the block ends without rethrowing
 *     ("throw;"), the raise is not lost: it lands in its opener from there, and the frames
 *     between the catch and the opener are skipped (their destructors do not run). Rethrow
 *     to let them run.
 *   - A C++ exception must not leave a protected body between setjmp and
 *     except_end_context: the context would stay on the stack with a dead jump state, and
 *     the next raise would jump into it. Catch it inside the body, or close the context from
 *     a destructor that pops it when Exc_Sp is still the context it opened (the library's
 *     own protected-body helper does so).
 *
 * Bad input: except_end_context on an empty stack writes a fatal report and does nothing
 * else; a null symbol may be raised and is compared by identity like any other.
 * Not thread-safe: one thread at a time.
 */
#ifndef QV_EXCEPT_H
#define QV_EXCEPT_H

#include <setjmp.h>
#include <stdint.h>

#include "qv_export.h"

QV_EXTERN_C_BEGIN

/* One status context, one frame of the context stack. */
typedef struct exc_context {
    jmp_buf jump_state;        /* filled by the opener's setjmp */
    const char *function_name; /* the function that opened the context */
    int32_t line;              /* line at which it was opened */
    const char *source_file;   /* source file (module) name, without directory */
    uint8_t in_handler;        /* 0 while the body runs, 1 while the handler runs */
    struct exc_context *previous;
    void *frame_marker; /* private: where the opener's frame begins, for the unwinder */
} exc_context;

/* Status symbols: compared by pointer identity, their value is their own name. */
QV_API extern const char *const ALLOC_FAILURE;
QV_API extern const char *const ZERO_ALLOC_FAILURE;
QV_API extern const char *const GENERAL_ERROR;
QV_API extern const char *const LIST_FAILURE_L;
QV_API extern const char *const ARRAY_FAILURE_L;
QV_API extern const char *const QV_OVERFLOW;
QV_API extern const char *const INTERRUPT_PROCESS;
QV_API extern const char *const STATUS_RAISED;
QV_API extern const char *const WRONG_HANDLE_TYPE;
QV_API extern const char *const ZRK_MESSAGE_FAILURE;
QV_API extern const char *const ZRK_MESSAGE_SET_FAILURE;

/* Top of the context stack; null when no context is open. */
QV_API extern exc_context *Exc_Sp;
/* The symbol of the raise that last jumped (also raises from handlers). */
QV_API extern const char *Exc_Raised_;
/* Numeric status and its name given with the last first-level raise of STATUS_RAISED. */
QV_API extern int32_t Exc_Status;
QV_API extern const char *Exc_Status_Symbol;

/* Raise modes. */
enum { EXC_RAISE = 0, EXC_RERAISE = 1, EXC_DEFAULT_RERAISE = 2 };

/* Opens a context and pushes it; the caller then calls setjmp(Exc_Sp->jump_state).
 * Returns the record, or null (nothing pushed, "alloc failed" reported) when it cannot
 * be allocated. Never inlined: it records where the caller's frame is. */
QV_API exc_context *except_start_context(const char *function_name, const char *source_file,
                                         int32_t line);
/* Pops and frees the top context; on an empty stack reports and returns. */
QV_API void except_end_context(const char *source_file, int32_t line);
/* Raises `symbol`; mode 0 raise, 1 re-raise, other default re-raise. Returns only when it
 * cannot jump (no context, re-raise outside a handler), after a fatal report. */
QV_API void except_raise(const char *symbol, const char *source_file, int32_t line, int32_t mode,
                         int32_t status, const char *status_symbol);

/* Source file and line of the last first-level raise. */
QV_API const char *Exc_GetFile_L(void);
QV_API int32_t Exc_GetLine_L(void);
/* Text of the last raise's message, at most 255 bytes, in a buffer each call overwrites. */
QV_API const char *Exc_Message_L(void);
QV_API void LogExcError_L(void);
QV_API void LogExcStatusError_L(void);

/* An operating-system exception, in the shape the exception texts read. A host may map
 * POSIX signals onto the codes (SIGSEGV 0xC0000005, SIGFPE 0xC0000094 ...). */
#define QV_EXCEPTION_MAXIMUM_PARAMETERS 15
typedef struct QV_EXCEPTION_RECORD_T {
    uint32_t code;
    uint32_t flags;
    struct QV_EXCEPTION_RECORD_T *next_record;
    void *address;
    uint32_t parameter_count;
    uintptr_t parameters[QV_EXCEPTION_MAXIMUM_PARAMETERS];
} QV_EXCEPTION_RECORD_T;

typedef struct QV_EXCEPTION_POINTERS_T {
    QV_EXCEPTION_RECORD_T *exception_record;
    void *context_record;
} QV_EXCEPTION_POINTERS_T;

/* Text describing the exception, in one static buffer; "Unknown exception" for codes not
 * in the table, or for a null record. */
QV_API const char *PackageExceptionMessage_L(const QV_EXCEPTION_RECORD_T *record);
/* Writes that text through the error feedback class and returns 1. */
QV_API int32_t TopLevelExceptionFilter_L(const QV_EXCEPTION_POINTERS_T *pointers);

/* Convenience for C hosts, over the raw protocol above:
 *
 *     QV_TRY("MyFunction", "myfile") { body } QV_HANDLER { handler } QV_END_TRY("myfile");
 *
 * Inside the handler, Exc_Raised_ names what landed. The body must not `return` (leave it
 * with a raise or by falling off its end). When the context cannot be allocated ("alloc
 * failed" reported), the body still runs, unprotected: a raise in it goes to the next
 * outer context. */
#define QV_TRY(function_name, source_file)                                                         \
    do {                                                                                           \
        volatile int qv_try_raised_ = 0;                                                           \
        const int qv_try_open_ =                                                                   \
            except_start_context((function_name), (source_file), __LINE__) != 0;                   \
        if (qv_try_open_) {                                                                        \
            if (setjmp(Exc_Sp->jump_state) != 0) qv_try_raised_ = 1;                               \
        }                                                                                          \
        if (!qv_try_raised_) {
#define QV_HANDLER                                                                                 \
    }                                                                                              \
    if (qv_try_open_) Exc_Sp->in_handler = 1;                                                      \
    if (qv_try_raised_) {
#define QV_END_TRY(source_file)                                                                    \
    }                                                                                              \
    if (qv_try_open_) except_end_context((source_file), __LINE__);                                 \
    }                                                                                              \
    while (0)

QV_EXTERN_C_END

#endif
