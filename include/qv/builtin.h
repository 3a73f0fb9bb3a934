/*
 * builtin.h - the function registry of the expression language: function records, the
 * built-in and dummy tables, the calling contract and its dispatcher, user-defined functions
 * kept in a stack of function arrays, loaded libraries, and the table of files that the file
 * functions open.
 *
 * Function record (ExpFunction). One layout serves the rows of the built-in table, the rows
 * of a host's own tables and the records made for user-defined functions: script name,
 * usage line, function number, handler, category, maximum and minimum argument counts
 * (maximum QV_UNLIMITED_ARGUMENTS: no upper limit), result type mask (0: the type of the
 * value returned decides), one type mask per argument position 1..16, the repeat flag (the
 * last position's mask applies to every further argument, and the handler is called in form
 * B), six owned texts and three words. In the constant tables the texts are null and the
 * words 0; a user-defined function's record owns its name, usage and texts
 * (FreeExpFunction), and its handler is null: the evaluator runs its script instead.
 * A table is an array of records ended by one whose name is null.
 *
 * The calling contract. The evaluator calls a handler with a call frame it owns: the record,
 * the number of arguments given, the argument pointers in order, and the mode
 * (QV_MODE_EVALUATE; anything else describes: the handler only sets the result's type).
 *   Form A (repeat flag clear):  handler(result, frame, argument 1, ..., argument N), N the
 *       record's maximum count (0..16); a position the call did not give gets a null
 *       pointer, read as an omitted argument.
 *   Form B (repeat flag set):    handler(result, frame); the handler reads the count and the
 *       arguments from the frame.
 * CallFunction_L dispatches on the record; it pads the argument list with null pointers up
 * to the maximum count, so a frame may hold only the arguments given.
 *
 * Every handler does, in order: set the result's type (SetValueTypePrecScale_L of dataval.h;
 * a result typed by an argument takes that argument's type), whatever the mode; return
 * unless the mode is QV_MODE_EVALUATE; give a NULL result (is_null set) when an argument it
 * needs is a null pointer or a NULL value; compute the result into the result value. It
 * returns nothing: failures that must stop the evaluation are raised (except.h) after
 * logging a message.
 *
 * Host functions. A host adds native functions by handing the parser (Parse_Expression_L of
 * express.h) an array of pointers to its own tables, searched in order before the built-in
 * table. A table in C:
 *
 *     static void twice(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *x) {
 *         SetValueType_L(result, QV_TYPE_INTEGER);             (form A, maximum 1)
 *         if (frame->mode != QV_MODE_EVALUATE) return;         (describe: type only)
 *         if (x == NULL || x->is_null) { FreeValue_L(result); return; }   (NULL in, NULL out)
 *         result->is_null = 0;
 *         result->payload.integer = 2 * x->payload.integer;
 *     }
 *     static void count_given(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
 *         SetValueType_L(result, QV_TYPE_INTEGER);             (form B: reads the frame)
 *         if (frame->mode != QV_MODE_EVALUATE) return;
 *         result->is_null = 0;
 *         result->payload.integer = frame->argument_count;
 *     }
 *     static const ExpFunction host_functions[] = {
 *         {.name = "Twice", .usage = "Twice( integer )", .number = 9001,
 *          .handler = QV_EXP_HANDLER(twice), .category = QV_CATEGORY_NUMERIC,
 *          .max_args = 1, .min_args = 1, .result_type = QV_TYPE_INTEGER,
 *          .arg_types = {QV_TYPE_INTEGER}},
 *         {.name = "CountGiven", .usage = "CountGiven( value [, value ... ] )",
 *          .number = 9002, .handler = QV_EXP_HANDLER(count_given),
 *          .category = QV_CATEGORY_MISCELLANEOUS, .max_args = QV_UNLIMITED_ARGUMENTS,
 *          .min_args = 0, .result_type = QV_TYPE_INTEGER, .arg_types = {QV_MASK_ANY},
 *          .repeat = 1},
 *         {0}                                                  (the terminator)
 *     };
 *     const ExpFunction *tables[] = {host_functions};
 *     Parse_Expression_L(expression, mask, tables, 1);
 *
 * The maximum count of a form-A row must be 0..16 and equal the handler's argument count;
 * a row with more positions, or with no limit, sets the repeat flag and is form B. Function
 * numbers 1001 to 5999 are the built-ins'; hosts use others. The table and its texts must
 * outlive every expression parsed with it.
 *
 * The registry. All state hangs off one function struct (EXP_FUNCTION_STRUCT_T), reached
 * through a process-wide pointer that starts at a static default struct; a host that keeps
 * independent sets of user functions (one per thread of work, one per run) installs its own,
 * zero-filled, with Set_Function_Struct_L. The struct holds a stack of function arrays
 * (lookups see only the top one, the current array), whether the user functions' scripts
 * were validated, and the open-file table. A function array holds the loaded libraries, the
 * user functions in declaration order, and their function records: one per user function
 * plus an all-zero terminator, so it is searched like the built-in table; record i belongs
 * to user function i, whose `record` field points at it. Every array grows by exactly one
 * element per insertion, and after each insertion and removal every user function's
 * `record` is pointed at its record again (the block may have moved).
 *
 *     InitialiseFunctions_L();                      (pushes the bottom array)
 *     EXP_USER_FUNCTION_T *f = NewFunction("Area", NULL, NULL, 0);
 *     ... the script layer fills f and *f->record ...
 *     Clear_Functions();                            (frees every user function and library)
 *     TerminateFunctions_L();
 *
 * Bad input: null structs, arrays, records, names and out-arguments are accepted and give
 * null, 0 or nothing; popping the bottom array does nothing; freeing a function that is not
 * registered frees it without touching the arrays. Allocation failures raise ALLOC_FAILURE
 * or ZERO_ALLOC_FAILURE from module "builtin"; the registry is then as it was and, with no
 * status context open, the call returns null, 0 or -1.
 * Not thread-safe: one function struct is used by one thread at a time; the constant tables
 * may be shared freely.
 */
#ifndef QV_BUILTIN_H
#define QV_BUILTIN_H

#include <stdint.h>
#include <stdio.h>

#include "datatype.h"
#include "qv_export.h"
#include "qvvar.h"

QV_EXTERN_C_BEGIN

/* Type masks that recur in the tables. */
#define QV_MASK_NUMBER (QV_TYPE_INTEGER | QV_TYPE_FLOAT | QV_TYPE_NUMBER) /* 134 */
#define QV_MASK_STRING (QV_TYPE_CHAR | QV_TYPE_CLOB)                      /* 1025 */
#define QV_MASK_DATE (QV_TYPE_DATE | QV_TYPE_DATE_TZ)                     /* 65544 */
/* Any value: every type but LIST and POINTER, 130975. */
#define QV_MASK_ANY                                                                                \
    (QV_TYPE_CHAR | QV_TYPE_INTEGER | QV_TYPE_FLOAT | QV_TYPE_DATE | QV_TYPE_BOOLEAN |             \
     QV_TYPE_NUMBER | QV_TYPE_ARRAY | QV_TYPE_BINARY | QV_TYPE_CLOB | QV_TYPE_BLOB |               \
     QV_TYPE_INTERVAL_DS | QV_TYPE_INTERVAL_YM | QV_TYPE_TIME | QV_TYPE_TIME_TZ | QV_TYPE_DATE_TZ)
#define QV_MASK_ANY_BUT_ARRAY (QV_MASK_ANY & ~QV_TYPE_ARRAY) /* 130719 */

/* Categories. */
#define QV_CATEGORY_NUMERIC 1
#define QV_CATEGORY_STRING 2
#define QV_CATEGORY_DATE 3
#define QV_CATEGORY_CONDITIONAL 4
#define QV_CATEGORY_CONVERSION 5
#define QV_CATEGORY_USER 7 /* user-defined: run as a script, no handler */
#define QV_CATEGORY_MISCELLANEOUS 9

#define QV_MAX_ARGUMENTS 16
#define QV_UNLIMITED_ARGUMENTS 0xFFFFFFFFu
/* Call modes. */
#define QV_MODE_DESCRIBE 0
#define QV_MODE_EVALUATE 1
/* Function numbers named by the library. */
#define QV_FUNCTION_EXIT 1001

struct EXP_CALL_FRAME_T;

/* A handler as a record stores it: call it only through its own form (see above). */
typedef void (*EXP_HANDLER_T)(void);
typedef void (*EXP_FORM_B_HANDLER_T)(QV_VALUE_T *result, struct EXP_CALL_FRAME_T *frame);
#define QV_EXP_HANDLER(function) ((EXP_HANDLER_T)(function))

/* The function record. */
typedef struct ExpFunction {
    const char *name;      /* script name; owned by a user-defined function's record */
    const char *usage;     /* usage line; likewise */
    int32_t number;        /* function number */
    EXP_HANDLER_T handler; /* null for a user-defined function */
    int32_t category;      /* QV_CATEGORY_... */
    uint32_t max_args;     /* QV_UNLIMITED_ARGUMENTS: no limit */
    uint32_t min_args;     /* fewest arguments */
    uint32_t result_type;  /* type mask; 0: as the value returned */
    uint32_t arg_types[QV_MAX_ARGUMENTS]; /* type mask of argument positions 1..16 */
    uint8_t repeat;                       /* the last mask repeats; form B */
    char *texts[6];    /* owned texts of a user-defined function, set by the script layer */
    uint32_t words[3]; /* the script layer's; 0 in the constant tables */
} ExpFunction;

/* The call frame, owned by the caller of a handler. */
typedef struct EXP_CALL_FRAME_T {
    const ExpFunction *function;
    int32_t argument_count; /* arguments given in this call */
    QV_VALUE_T **arguments; /* argument_count pointers, in order */
    int32_t mode;           /* QV_MODE_EVALUATE, or describe */
    /* The evaluator's: */
    QV_VALUE_T *argument_slots; /* a user-defined function's argument values (maximum count),
                                   allocated at its first call */
    void *evaluator;
} EXP_CALL_FRAME_T;

/* A loaded library: both fields owned once the record is handed to AddNewLibrary. */
typedef struct EXP_LIBRARY_T {
    char *name;   /* malloc'd */
    void *module; /* from LoadLib; unloaded when the function array is cleared */
} EXP_LIBRARY_T;

/* A small block a user-defined function owns, its first field an owned pointer. */
typedef struct EXP_EXTRA_T {
    void *owned;
} EXP_EXTRA_T;

/* A user-defined function. */
typedef struct EXP_USER_FUNCTION_T {
    QV_ID_T id;                   /* name and two further parts (SetID_L) */
    uint8_t flag;                 /* given to NewFunction, kept as it is */
    VARIABLE_ARRAY_T *parameters; /* named after the function */
    QV_VALUE_T *parameter_values; /* owned: one value per parameter, or null */
    VARIABLE_ARRAY_T *locals;     /* or null */
    char *text1;                  /* owned texts of the script layer */
    struct EXPRESSION_T *body;    /* the function's script, or null */
    char *text2[2];               /* owned texts */
    ExpFunction *record;          /* its record in the current function array */
    char *text3;                  /* an owned text */
    int32_t extra_count;          /* blocks in extras */
    EXP_EXTRA_T **extras;         /* owned: extra_count owned blocks */
} EXP_USER_FUNCTION_T;

/* One level of user-defined functions and libraries. */
typedef struct EXP_FUNCTION_ARRAY_T {
    EXP_LIBRARY_T **libraries;
    int32_t library_count;
    EXP_USER_FUNCTION_T **functions; /* in declaration order */
    int32_t function_count;
    ExpFunction *records; /* function_count records and the all-zero terminator */
} EXP_FUNCTION_ARRAY_T;

/* The registry's root. A zero-filled struct is a fresh one. */
typedef struct EXP_FUNCTION_STRUCT_T {
    uint8_t validated;             /* the user functions' scripts are checked and prepared */
    int32_t depth;                 /* function arrays on the stack */
    EXP_FUNCTION_ARRAY_T **stack;  /* depth arrays, bottom first */
    EXP_FUNCTION_ARRAY_T *current; /* the top one; null before the first push */
    int32_t open_file_count;
    FILE **open_files; /* open_file_count streams; a closed file's slot is null */
} EXP_FUNCTION_STRUCT_T;

/* ---- The constant tables and the calling contract -------------------------------------- */

/* The built-in table, ended by a record whose name is null. */
QV_API const ExpFunction *Get_BuiltInFns_L(void);
/* The one-row table whose Exit returns TRUE and ends nothing, for scripts that are only
 * checked or run where they must not end the run. */
QV_API const ExpFunction *Get_DummyBuiltInFns_L(void);

/* Calls frame->function's handler in its form with `result` and `frame` (see above).
 * Returns 0 after the call; -1 without calling anything for a null result, frame or
 * record, a record without a handler, a form-A record whose maximum count is above 16, or
 * a frame giving more arguments than that maximum or a null argument array with a count
 * above 0. Raises whatever the handler raises. */
QV_API int32_t CallFunction_L(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame);

/* Exit( code ): sets the result's type to BOOLEAN; evaluating, the result is TRUE and the
 * status STATUS_RAISED is raised with the exit code and "exit_code" as the status symbol
 * (Exc_Status, Exc_Status_Symbol of except.h). The code: an INTEGER as it is, a FLOAT or
 * NUMBER cut to an integer, a BOOLEAN 0 or 1, a CHAR read as a decimal number by atol;
 * 0 for an omitted or NULL argument or another type; limited to the int32_t range. */
QV_API void BI_exit(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *code);
/* The dummy table's Exit: the same result, never raises. */
QV_API void BI_dummy_exit(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *code);

/* ---- Built-in handlers: numbers, text, conditions, conversions, arrays, process -------
 * One handler per row of the built-in table, in the calling contract above (form A with
 * the row's maximum count of argument pointers, form B for the rows with the repeat flag).
 * What each computes is written beside its row in the table and in the handler's file; the
 * rules they share: the result's type is set first whatever the mode; a NULL or omitted
 * required argument gives a NULL result (an optional argument given as NULL counts as
 * omitted); bad or out-of-range values give NULL, never a failure; a text result owns its
 * text and an empty one is NULL; a result that is also one of the arguments is computed
 * aside and then stored. */
#define QV_BI_A1(name) QV_API void name(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1)
#define QV_BI_A2(name)                                                                             \
    QV_API void name(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2)
#define QV_BI_A3(name)                                                                             \
    QV_API void name(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2,  \
                     QV_VALUE_T *a3)
#define QV_BI_A4(name)                                                                             \
    QV_API void name(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2,  \
                     QV_VALUE_T *a3, QV_VALUE_T *a4)
#define QV_BI_A0(name) QV_API void name(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame)
#define QV_BI_B(name) QV_API void name(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame)

/* Numbers */
QV_BI_A1(BI_abs);
QV_BI_A3(BI_band);
QV_BI_A1(BI_ceil);
QV_BI_A1(BI_cos);
QV_BI_A1(BI_exp);
QV_BI_A1(BI_floor);
QV_BI_A1(BI_ln);
QV_BI_A1(BI_log);
QV_BI_A2(BI_mod);
QV_BI_A2(BI_power);
QV_BI_A4(BI_rand);
QV_BI_A2(BI_round);
QV_BI_A1(BI_sign);
QV_BI_A1(BI_sin);
QV_BI_A1(BI_sqrt);
QV_BI_A1(BI_tan);
QV_BI_A2(BI_trunc);
/* Text */
QV_BI_A1(BI_char);
QV_BI_A1(BI_collapse);
QV_BI_B(BI_concat);
QV_BI_B(BI_concat_sep);
QV_BI_A2(BI_count_str);
QV_BI_B(BI_checksum);
QV_BI_A3(BI_extract_str);
QV_BI_A1(BI_initcap);
QV_BI_A4(BI_in_str);
QV_BI_A1(BI_is_alpha);
QV_BI_A1(BI_is_alphanumeric);
QV_BI_A1(BI_is_digit);
QV_BI_A1(BI_is_float);
QV_BI_A1(BI_is_integer);
QV_BI_A1(BI_is_lower);
QV_BI_A1(BI_is_numeric);
QV_BI_A1(BI_is_upper);
QV_BI_A1(BI_length);
QV_BI_A2(BI_left);
QV_BI_A1(BI_lower);
QV_BI_A3(BI_lpad);
QV_BI_A2(BI_ltrim);
QV_BI_A3(BI_replace);
QV_BI_A2(BI_right);
QV_BI_A3(BI_rpad);
QV_BI_A2(BI_rtrim);
QV_BI_A1(BI_soundex);
QV_BI_A3(BI_substr);
QV_BI_A3(BI_translate);
QV_BI_A2(BI_trim);
QV_BI_A1(BI_upper);
QV_BI_A2(BI_i18n_string);
QV_BI_A2(BI_i18n_convert);
/* Conditions */
QV_BI_B(BI_choose);
QV_BI_A3(BI_if);
QV_BI_A2(BI_if_null);
/* Conversions */
QV_BI_A2(BI_to_char);
QV_BI_A2(BI_to_double);
QV_BI_A1(BI_to_integer);
QV_BI_A3(BI_to_number);
QV_BI_A1(BI_to_hex);
/* Arrays and variables */
QV_BI_A1(BI_array_clear);
QV_BI_A1(BI_array_size);
QV_BI_A2(BI_array_item);
QV_BI_A2(BI_variable_info);
QV_BI_A2(BI_array_delete_item);
QV_BI_A2(BI_array_add_item);
QV_BI_A3(BI_array_search);
QV_BI_A1(BI_array_sort);
QV_BI_A3(BI_array_modify_item);
/* Process */
QV_BI_A1(BI_delay);
QV_BI_B(BI_log_msg);
QV_BI_A0(BI_op_sys);
QV_BI_A0(BI_row_num);
QV_BI_A1(BI_system);
QV_BI_A0(BI_uuid);

#undef QV_BI_A0
#undef QV_BI_A1
#undef QV_BI_A2
#undef QV_BI_A3
#undef QV_BI_A4
#undef QV_BI_B

/* Stores the row number that RowNum() returns (process-wide; 0 until first set). */
QV_API void SetRowNum_L(int64_t row);

/* ---- The function struct and its stack of function arrays ------------------------------ */

/* Installs `functions` as the function struct unless it is null; returns the struct that
 * was installed before (with null: the one installed now). */
QV_API EXP_FUNCTION_STRUCT_T *Set_Function_Struct_L(EXP_FUNCTION_STRUCT_T *functions);
/* Pushes the bottom function array when there is no current one. */
QV_API void InitialiseFunctions_L(void);
/* Pushes a new empty function array and makes it current; returns the new depth (0 after
 * an allocation failure). */
QV_API int32_t PushFunctionArray_L(void);
/* Takes the top array off the stack and makes the one below current; returns the removed
 * array, which the caller clears and frees. At depth 1 or 0: null, nothing changes. */
QV_API EXP_FUNCTION_ARRAY_T *PopFunctionArray_L(void);
/* Frees a function array taken off the stack. The caller clears it (Clear_Functions)
 * before popping it; whatever it still holds is freed as Clear_Functions would. An array
 * still on the stack is left alone. */
QV_API void FreeFunctionArray_L(EXP_FUNCTION_ARRAY_T *array);

/* The current array's function records (function_count records and the terminator), user
 * functions and libraries; *count (when given) receives the number of each (the terminator
 * not counted). Null and 0 when there is no current array. */
QV_API ExpFunction *Get_FunctionArray(int32_t *count);
QV_API EXP_USER_FUNCTION_T **Get_UserFunctions(int32_t *count);
QV_API EXP_LIBRARY_T **Get_LibraryList(int32_t *count);

/* Appends a malloc'd library record (and so its name and module) to the current array,
 * which owns it from then on; returns it (null for null, or after an allocation failure,
 * when the caller keeps it). The bottom array is pushed first when there is none. */
QV_API EXP_LIBRARY_T *AddNewLibrary(EXP_LIBRARY_T *library);

/* Declares a user-defined function in the current array (pushing the bottom one when there
 * is none): when the scripts were validated, every user function's script is freed and the
 * validated flag cleared; a zero-filled record gets its identifier from the three texts
 * (null allowed), the flag, and a parameter array named after the function; its function
 * record and the terminator after it are zero. Returns it, or null after an allocation
 * failure (nothing is kept). */
QV_API EXP_USER_FUNCTION_T *NewFunction(const char *name, const char *second, const char *third,
                                        uint8_t flag);
/* Frees everything the function owns (parameter values, parameter and local arrays, extra
 * blocks, texts, its record's owned fields, script, identifier), takes it out of the
 * current array's arrays when it is there, and frees it. */
QV_API void FreeFunction(EXP_USER_FUNCTION_T *function);
/* Frees the record's name, usage and six texts, each when present, and nulls them; the
 * record itself stays. The rows of the constant tables are left alone. */
QV_API void FreeExpFunction(ExpFunction *record);
/* Frees the script of every user function of the current array, in a status context of its
 * own ("FreeFunctionScripts"). Returns 0, or -1 after a failure, which is raised on unless
 * it is GENERAL_ERROR. */
QV_API int32_t FreeFunctionScripts(void);
/* Marks the user functions' scripts as checked and prepared. */
QV_API void SetValidatedFunctions_L(void);
/* Empties the current array: frees every user function, unloads and frees every library,
 * frees the blocks. Nothing when there is no current array. */
QV_API void Clear_Functions(void);
/* Closes every file of the open-file table and frees the table. */
QV_API void CloseFunctionFiles_L(void);
/* Closes the files, clears and frees every function array on the stack and the stack, and
 * installs the static default struct again. Harmless when repeated. */
QV_API void TerminateFunctions_L(void);

/* ---- Libraries ------------------------------------------------------------------------- */

/* Loads the library at the UTF-8 path (dlopen); null on failure (dlerror() tells why). */
QV_API void *LoadLib(const char *path);
/* The address of `entry` in the library; null for a null module or a missing entry. */
QV_API void *GetFuncAddr(void *module, const char *entry);
/* Unloads the library: 0 (also for null), or a non-zero code when the system refuses. */
QV_API int32_t UnloadLib(void *module);

QV_EXTERN_C_END

#endif
