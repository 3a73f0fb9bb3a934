/*
 * message.h - numbered messages: where they go when logged, message sets and their
 * reports, the error and warning switches, and the glossaries of numbered texts.
 *
 * A message is a 32-bit number, a severity and ordered parameters; its text comes from the
 * library's compiled-in catalogue with the parameters put into the numbered slots. In C++
 * a message is a PWMessage object (qv/msgclass.h); C hosts build one with NewMessage_L and
 * the MessageAdd..._L calls and free it with FreeMessage_L. Either way the functions here
 * take a pointer to it and never keep it: a message added to a set is copied.
 *
 * Routing (LogMessage_L), by severity (message texts carry no line end; each routed
 * message is written as one line):
 *     debug        Debug_L under the category that is the number in decimal ("%lu"),
 *                  "%s\n"
 *     information  the "Info" feedback class, "%s\n"
 *     warning      the "Warning" feedback class, "WARNING - %s\n"; after DeferWarnings_L
 *                  it is collected like an error instead
 *     error, fatal collected in the set of the message context (a caller's handle
 *                  variable); dropped silently when no context is set
 * A severity outside 1..5 is routed as an error.
 *
 * Message sets live in one process-wide registry and are named by unsigned 32-bit handles;
 * a handle variable holding 0 has no set yet, and adding to it creates one.
 *
 * Glossaries: four tables of texts read from files in the message directory, each on its
 * first use. The directory is the preference QV_MESSAGE_PATH, else <install root>/quillon/
 * message, else the executable's directory; a candidate counts only when "glossary.gls"
 * exists in it. It is found once per process.
 *   glossary.gls, function.gls  lines "<number> <text>"; blank lines and lines starting
 *                               with '#' are skipped; texts are trimmed; lookup by number.
 *                               A line without a text after its number, or whose first
 *                               word is not a decimal number, is skipped with the warning
 *                               QV_MSG_GLOSSARY_LINE_SKIPPED. A missing file logs
 *                               QV_MSG_GLOSSARY_OPEN_FAILED (written to the error
 *                               feedback class when no message context is set) and
 *                               raises GENERAL_ERROR, once: later lookups give null
 *                               without a word until UnloadGlossaries_L.
 *   day.gls, month.gls          one name a line, right-trimmed, in order (Sunday first;
 *                               January first); lookup by 0-based position. A missing
 *                               file is not an error: the names of the process locale
 *                               (qv/date.h) stand in.
 *
 * Texts returned as const char * belong to the library. Not thread-safe: one thread at a
 * time.
 */
#ifndef QV_MESSAGE_H
#define QV_MESSAGE_H

#include <stdarg.h>
#include <stdint.h>

#include "qv_export.h"

/* The message object: a C++ class (qv/msgclass.h), an opaque record to C. */
#ifdef __cplusplus
class PWMessage;
#else
typedef struct PWMessage PWMessage;
#endif

QV_EXTERN_C_BEGIN

/* Severities, in increasing order. */
typedef enum MESSAGE_SEVERITY_E {
    MESSAGE_SEVERITY_DEBUG = 1,
    MESSAGE_SEVERITY_INFORMATION = 2,
    MESSAGE_SEVERITY_WARNING = 3,
    MESSAGE_SEVERITY_ERROR = 4,
    MESSAGE_SEVERITY_FATAL = 5
} MESSAGE_SEVERITY_E;

/* Message numbers the library logs. Each has a text in the catalogue (messages/
 * catalogue.inc); the parameters a text expects are listed in order. */
/* status contexts */
#define QV_MSG_EXCEPTION_RAISED 0x654C446CU /* symbol, source file, line */
#define QV_MSG_CONTEXT_FAILURE 0x654C446DU  /* what failed, source file, line */
#define QV_MSG_STATUS_RAISED 0x654C45ACU    /* numeric status */
#define QV_MSG_C_FUNCTION_ERROR 0x654C846CU /* what was done, error number, system text */
/* glossaries */
#define QV_MSG_GLOSSARY_OPEN_FAILED 0x8DA5062DU  /* file path */
#define QV_MSG_GLOSSARY_LINE_SKIPPED 0x8DA5062EU /* file path, line number, line */
/* date formats */
#define QV_MSG_DATE_FORMAT_REPEATED 0x45E1B1ADU /* format pattern */
/* values */
#define QV_MSG_VALUES_NOT_COMPARABLE 0x7C2E0A01U /* first value's type, second value's type */
/* expression parser */
#define QV_MSG_FUNCTION_NOT_FOUND 0xA1D7164AU      /* function name */
#define QV_MSG_ARGUMENT_LIST_BROKEN 0xA1D7164BU    /* - */
#define QV_MSG_TEXT_ENDED_IN_LIST 0xA1D7164CU      /* - */
#define QV_MSG_TOO_FEW_ARGUMENTS 0xA1D7164DU       /* function display name */
#define QV_MSG_TOO_MANY_ARGUMENTS 0xA1D71684U      /* function display name */
#define QV_MSG_OPERAND_OUT_OF_PLACE 0xA1D71685U    /* - */
#define QV_MSG_OPERATOR_OUT_OF_PLACE 0xA1D71686U   /* - */
#define QV_MSG_KEYWORD_IN_EXPRESSION 0xA1D71687U   /* - */
#define QV_MSG_UNEXPECTED_CHARACTER 0xA1D71688U    /* - */
#define QV_MSG_UNBALANCED_PARENTHESIS 0xA1D71689U  /* - */
#define QV_MSG_NEGATED_NON_NUMBER 0xA1D71647U      /* - */
#define QV_MSG_SIMPLE_OPERAND_EXPECTED 0xA1D71648U /* - */
#define QV_MSG_KEYWORD_EXPECTED 0xA1D71705U        /* keyword */
#define QV_MSG_IN_LIST_EXPECTED 0xA1D71708U        /* - */
#define QV_MSG_BRACE_NOT_CLOSED 0xA1D71709U        /* the closing brace */
#define QV_MSG_QUOTE_NOT_CLOSED 0xA1D7170AU        /* the quote */
#define QV_MSG_PARSE_FAILED 0xA1B51C57U            /* position, error text, marked text */
#define QV_MSG_PARSE_ENDED_EARLY 0xA1B51C58U       /* position, marked text */
/* expression evaluator and scripts */
#define QV_MSG_STACK_EXHAUSTED 0xA1D7170CU        /* - */
#define QV_MSG_RECURSION_LIMIT 0xA1B51C5BU        /* - */
#define QV_MSG_VALIDATION_FAILED 0xA1B51C59U      /* - */
#define QV_MSG_ASSIGNMENT_EXPECTED 0xA1D71704U    /* - */
#define QV_MSG_LOOP_MALFORMED 0xA1D71706U         /* what was expected */
#define QV_MSG_LOOP_VARIABLE_EXPECTED 0xA1D71707U /* - */
#define QV_MSG_VARIABLE_AS_PROCEDURE 0xA1D716CAU  /* - */
#define QV_MSG_STATEMENT_NOT_ENDED 0xA1D716CBU    /* - */
#define QV_MSG_END_EXPECTED 0xA1D716C7U           /* position of the BEGIN or CASE */
#define QV_MSG_CASE_BRANCH_EXPECTED 0xA1D716C8U   /* - */
#define QV_MSG_CASE_COLON_EXPECTED 0xA1D716CCU    /* - */
#define QV_MSG_CASE_DEFAULT_REPEATED 0xA1D716CDU  /* - */
#define QV_MSG_STATEMENT_EXPECTED 0xA1D71744U     /* - */
/* scripts: statements, validation, user-defined functions */
#define QV_MSG_RETURN_NOT_ALLOWED 0xA1B51C80U     /* - */
#define QV_MSG_LOOP_VARIABLE_ASSIGNED 0xA1B51C81U /* variable */
#define QV_MSG_VARIABLE_READ_ONLY 0xA1B51C82U     /* variable, position, marked text */
#define QV_MSG_NOT_ASSIGNABLE 0xA1B51C83U         /* name */
#define QV_MSG_DECLARATION_EXPECTED 0xA1B51C84U   /* what was expected */
#define QV_MSG_FUNCTION_REPEATED 0xA1B51C85U      /* function */
#define QV_MSG_PARAMETER_REPEATED 0xA1B51C86U     /* parameter */
#define QV_MSG_TYPE_UNKNOWN 0xA1B51C87U           /* type as written */
#define QV_MSG_TOO_MANY_PARAMETERS 0xA1B51C88U    /* function */
/* expression evaluator: validation, evaluation, tracing */
#define QV_MSG_NAME_NOT_BOUND 0xA1B51C70U        /* name, position */
#define QV_MSG_ARGUMENT_TYPE 0xA1B51C71U         /* function, argument, position, type, types */
#define QV_MSG_FUNCTION_NOT_CALLABLE 0xA1B51C72U /* function, position */
#define QV_MSG_EXPRESSION_MALFORMED 0xA1B51C73U  /* position */
#define QV_MSG_VARIABLE_NOT_FOUND 0xA1B51C74U    /* variable as written, position */
#define QV_MSG_NUMBER_OVERFLOW 0xA1B51C75U       /* operator, position */
#define QV_MSG_RESULT_DOES_NOT_FIT 0xA1B51C76U   /* the result type */
#define QV_MSG_FUNCTION_WITHOUT_BODY 0xA1B51C77U /* function */
#define QV_MSG_TRACE_FILE_FAILED 0xA1B51C78U     /* path, system text */

/* built-in functions: files and mail (warnings; the function's result is NULL, or for
 * SendMail the message's text) */
#define QV_MSG_FILE_OPEN_FAILED 0xB1F20001U           /* path, mode, system text */
#define QV_MSG_FILE_MODE_UNKNOWN 0xB1F20002U          /* the mode given */
#define QV_MSG_FILE_PROPERTY_UNKNOWN 0xB1F20003U      /* the property given */
#define QV_MSG_MAIL_NO_RECIPIENT 0xB1F20011U          /* the "send to" text */
#define QV_MSG_MAIL_ATTACHMENT_UNREADABLE 0xB1F20012U /* path, system text */
#define QV_MSG_MAIL_PROGRAM_FAILED 0xB1F20013U        /* program, system text */
#define QV_MSG_MAIL_PROGRAM_REFUSED 0xB1F20014U       /* program, exit status, its error output */
#define QV_MSG_MAIL_TIMED_OUT 0xB1F20015U             /* program, seconds */

/* "D", "I", "W", "E", "F" for 1..5; "?" otherwise. */
QV_API const char *MsgSeverityName_L(int32_t severity);

/* Message context: the caller's handle variable that collects errors, fatal messages and
 * deferred warnings. InitMessages_L zeroes *handle_variable and makes it the context.
 * SetMessageContext_L makes `handle_variable` the context and returns the previous one; a
 * null argument only returns the current one. GetMessageContext_L stores the context in
 * *out and returns out. ClearMessageContext_L leaves no context. */
QV_API void InitMessages_L(uint32_t *handle_variable);
QV_API uint32_t *SetMessageContext_L(uint32_t *handle_variable);
QV_API uint32_t **GetMessageContext_L(uint32_t **out);
QV_API void ClearMessageContext_L(void);

/* Routes one message as described above. A null message does nothing. */
QV_API void LogMessage_L(const PWMessage *message);
/* Adds a copy of the message to the set of *handle_variable, creating the set when the
 * variable is 0. Null arguments do nothing. */
QV_API void AddMessage_L(uint32_t *handle_variable, const PWMessage *message);

/* Sets *count_out (when given) to 0; with no message context returns 0 at once. Returns -1
 * when `handle` is not a set, else stores the message count and (when worst_out is given)
 * the worst severity, and returns 0. */
QV_API int32_t CheckMessageHandle_L(uint32_t handle, int32_t *count_out, int32_t *worst_out);
/* The n-th message (from 0) of the set when it is a PWMessage; null when it is another
 * kind of message, n is out of range or the handle is not a set. Owned by the set. */
QV_API PWMessage *GetMessage_L(uint32_t handle, int32_t n);
/* Deletes one set (an unknown handle is ignored) / every set. */
QV_API void DeleteMessageHandle_L(uint32_t handle);
QV_API void TerminateMessages_L(uint32_t *unused);

/* Prints the messages of the set of *handle_variable whose severity is at least
 * `minimum_severity`, each as "%s%s%s\n\n" (a line feed before the first one printed,
 * "WARNING - " before a warning, the text) to feedback class 4 for debug and information,
 * 3 for warnings, 2 for errors and fatal messages; then deletes the whole set and zeroes
 * the variable. With the standard classes and a log file open, errors are also echoed to
 * standard output, warnings go to the log file only and debug and information messages
 * only when "Progress" is traced; with no log file open every printed message goes to
 * standard output (when standard feedback is on). A null argument does nothing. */
QV_API void ReportMessages_L(uint32_t *handle_variable, int32_t minimum_severity);
/* Moves the messages of the set of *handle_variable (when not 0) into the context's set
 * (when a context is set), deletes the set and zeroes the variable. */
QV_API void TransferMessages_L(uint32_t *handle_variable);

/* The full text of the message in UTF-8, in one library-owned heap text that the next
 * call replaces; "" for a null message or when the text cannot be allocated. The two
 * names are the same function. */
QV_API const char *StringMessage_L(const PWMessage *message);
QV_API const char *VAMessage_L(const PWMessage *message);

/* Error suppression (read by callers that would log errors; off at first) and deferred
 * warnings (off at first; once on it stays on). */
QV_API uint8_t SetErrorSuppression_L(uint8_t on);
QV_API uint8_t ErrorsSuppressed_L(void);
QV_API void DeferWarnings_L(void);

/* Logs QV_MSG_C_FUNCTION_ERROR at severity error with the text formatted by Asprintf_L
 * from `format` and the arguments, `errno_value` and strerror(errno_value). */
QV_API void CFunctionError_L(int32_t errno_value, const char *format, ...);
/* The same message with the current errno and its strerror text. */
QV_API void WinLastError(const char *format, ...);

/* Building messages from C. NewMessage_L returns a new message (free it with
 * FreeMessage_L), or null after raising ZRK_MESSAGE_FAILURE when it cannot be made. The
 * MessageAdd..._L calls append one parameter (a null text is shown as "<NULL>"); a null
 * message does nothing. */
QV_API PWMessage *NewMessage_L(uint32_t number, int32_t severity);
QV_API void MessageAddText_L(PWMessage *message, const char *text);
QV_API void MessageAddSigned_L(PWMessage *message, int64_t value);
QV_API void MessageAddUnsigned_L(PWMessage *message, uint64_t value);
QV_API void FreeMessage_L(PWMessage *message);
/* Number and severity (1..5) of a message; 0 for a null message. */
QV_API uint32_t MessageNumber_L(const PWMessage *message);
QV_API int32_t MessageSeverity_L(const PWMessage *message);

/* Glossaries: the text of entry number n of the general / function glossary, or null; the
 * i-th day (0 Sunday .. 6) / month (0 January .. 11) name, or null out of range. */
QV_API const char *Gloss_L(int32_t n);
QV_API const char *FunctionGloss_L(int32_t n);
QV_API const char *DayGloss_L(int32_t i);
QV_API const char *MonthGloss_L(int32_t i);
/* Frees all four glossaries; the next lookup loads them again. */
QV_API void UnloadGlossaries_L(void);

QV_EXTERN_C_END

#endif
