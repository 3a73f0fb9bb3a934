/*
 * qvvar.h - variables of the expression language: named values kept in variable arrays, the
 * process-wide scope stack of arrays in force, change tracking for handing results back from
 * a sub-run, and the registry-like store read by Get_Registry_L.
 *
 * A variable (VARIABLE_T) is owned by the array that holds it: freeing the array frees its
 * variables, and FreeVariable_L takes a variable out of its array first. Names are UTF-8
 * and compare without case (StricmpUTF8_L of encoding.h). An array keeps its variables in
 * insertion order in a block that grows by exactly one pointer per insertion.
 *
 * The scope stack is a process-wide array of array pointers, bottom first; lookups walk it
 * from the top, so the innermost array wins. Its capacity starts at 0 and grows by
 * QV_SCOPE_GROWTH entries whenever a push finds it full. InitialiseVariables_L makes the
 * array named "Global" and pushes it, so it is the bottom of the stack; SetVariable_L and
 * GetVariable_L create missing variables there.
 *
 *     InitialiseVariables_L();
 *     VARIABLE_ARRAY_T *locals = NewVariableArray_L("locals");
 *     PushVariableArray_L(locals);
 *     CreateVariable_L(locals, "x", QV_TYPE_INTEGER, 0, 0, NULL);   (NULL INTEGER)
 *     VARIABLE_T *x = FindVariable_L("X", 0);                        (found: any case)
 *     PopVariableArray_L(locals);
 *     FreeVariableArray_L(locals);
 *     TerminateVariables_L();
 *
 * Change tracking, for a sub-run (a called script, a parallel copy of the variables) that
 * hands its results back: setting a variable through UpdateVariableValue_L with `changed`
 * marks it; SaveVariableArrayChanges_L closes a cycle (the mark moves to saved_change);
 * CopyVariableArrayChanges_L merges one array into another: a change of the current cycle
 * always wins and marks the target merged; a change saved from an earlier cycle is taken
 * only while nothing has been merged into the target since ResetVariableArrayChanges_L.
 *
 * Texts returned as char * are heap texts the caller frees with free(). Lookups report
 * absence with null, never by raising. Allocation failures raise ALLOC_FAILURE or
 * ZERO_ALLOC_FAILURE from module "qvvar"; the arrays and the scope stack are then as they
 * were, nothing made so far is kept, and with no status context open the call returns null
 * (or -1, or does nothing). Null arrays, variables and names are accepted everywhere: a
 * call with one does nothing and returns null or 0, unless its comment says otherwise.
 * Not thread-safe: the scope stack and the global array are process-wide and unlocked.
 */
#ifndef QV_QVVAR_H
#define QV_QVVAR_H

#include <stdint.h>

#include "datatype.h"
#include "qv_export.h"

QV_EXTERN_C_BEGIN

/* The parsed form of a script or expression (EXPRESSION_T of the expression module). */
struct EXPRESSION_T;
struct VARIABLE_ARRAY_T;

/* A variable. */
typedef struct VARIABLE_T {
    struct VARIABLE_ARRAY_T *owner; /* the array holding it; null while it is in none */
    char *name;                     /* owned UTF-8 text */
    QV_VALUE_T value;               /* current value; its descriptor is the declared type */
    uint8_t read_only;              /* SetVariable_L leaves the value alone */
    uint8_t selected;               /* copied by DuplicateVariableArray_L(..., 1) */
    uint8_t changed;                /* updated since the last save */
    uint8_t saved_change;           /* the changed flag as it stood at the last save */
    uint8_t merged;                 /* a change was merged into it by CopyVariableArrayChanges_L */
    char *expression;               /* owned: the expression defining its value, or null */
    struct EXPRESSION_T *script;    /* the parsed form of `expression`, or null */
    uint32_t message_handle;        /* a message set (message.h) deleted with it; 0 for none */
} VARIABLE_T;

/* A variable array. */
typedef struct VARIABLE_ARRAY_T {
    char *name;             /* owned; may be null */
    int32_t count;          /* variables held */
    VARIABLE_T **variables; /* owned block of `count` pointers, in insertion order */
} VARIABLE_ARRAY_T;

/* A three-part identifier: a name and two further parts (qualifiers, as the script layer
 * uses them). Each part is an owned text or null. */
typedef struct QV_ID_T {
    char *name;
    char *second;
    char *third;
} QV_ID_T;

#define QV_SCOPE_GROWTH 100
/* Options of FindVariable_L and GetVariable_L. */
#define QV_FIND_GLOBAL_FIRST 0x1u

/* ---- The module and the scope stack ---------------------------------------------------- */

/* Makes the array named "Global", the global array, and pushes it on the scope stack.
 * Nothing when it is already made. */
QV_API void InitialiseVariables_L(void);
/* Ends the module: frees the global array and the scope stack's block; arrays others
 * pushed stay theirs. TerminateAndFreeVariables_L frees every array on the stack as well
 * (each once). Both may be called twice in a row. */
QV_API void TerminateVariables_L(void);
QV_API void TerminateAndFreeVariables_L(void);
/* The global array, or null before InitialiseVariables_L. */
QV_API VARIABLE_ARRAY_T *GetGlobalVariables_L(void);

/* Appends `array` to the scope stack (it becomes the innermost); returns it. A null array
 * is ignored and returned as is. */
QV_API VARIABLE_ARRAY_T *PushVariableArray_L(VARIABLE_ARRAY_T *array);
/* Takes `array` off the scope stack: the top when it is on top, else its highest place,
 * the arrays above it moving down one. Not on the stack, null, or an empty stack:
 * nothing. */
QV_API void PopVariableArray_L(VARIABLE_ARRAY_T *array);
/* The number of arrays on the scope stack; *arrays (when given) receives the stack's
 * block, bottom first, valid until the next push or pop. */
QV_API int32_t GetVariableStructure_L(VARIABLE_ARRAY_T ***arrays);

/* ---- Arrays and variables -------------------------------------------------------------- */

/* A new empty array; `name` is copied (null allowed). */
QV_API VARIABLE_ARRAY_T *NewVariableArray_L(const char *name);
/* Frees every variable and the array. An array still on the scope stack is taken off it
 * first, and the global array stops being global. */
QV_API void FreeVariableArray_L(VARIABLE_ARRAY_T *array);
/* Appends `variable` to `array` and makes the array its owner; a variable held by another
 * array is taken out of it first. Returns the variable (null after an allocation
 * failure, when the variable stays where it was). */
QV_API VARIABLE_T *AddVariable_L(VARIABLE_ARRAY_T *array, VARIABLE_T *variable);
/* A new variable named `name` of the type (type, precision, scale), holding `initial`
 * converted into that type (ConvertValue_L), or NULL when `initial` is null. Type 0 takes
 * the initial value's type. Added to `array` unless it is null; a variable in no array is
 * freed with FreeVariable_L. Null name: null. */
QV_API VARIABLE_T *CreateVariable_L(VARIABLE_ARRAY_T *array, const char *name, uint32_t type,
                                    int32_t precision, int32_t scale, const QV_VALUE_T *initial);
/* Takes the variable out of its owner and frees its name, expression text, script, value
 * and message set, and the variable. */
QV_API void FreeVariable_L(VARIABLE_T *variable);
/* The first variable of that name on the array, in insertion order; null when none. */
QV_API VARIABLE_T *FindVariableOnArray_L(const VARIABLE_ARRAY_T *array, const char *name);
/* Searches arrays[count - 1] down to arrays[0]: the innermost match wins. Null entries
 * are skipped. */
QV_API VARIABLE_T *FindVariableOnArrays_L(VARIABLE_ARRAY_T *const *arrays, int32_t count,
                                          const char *name);
/* Searches the scope stack from the top; with QV_FIND_GLOBAL_FIRST the global array
 * first, then the rest of the stack without it. */
QV_API VARIABLE_T *FindVariable_L(const char *name, uint32_t options);
/* Frees every variable of that name on arrays[count - 1] .. arrays[0] (the scope stack
 * when `arrays` is null), innermost first. Returns how many were freed. */
QV_API int32_t DeleteVariableFromArrays_L(VARIABLE_ARRAY_T *const *arrays, int32_t count,
                                          const char *name);

/* ---- Values ---------------------------------------------------------------------------- */

/* The variable's value record (null for a null variable). */
QV_API QV_VALUE_T *GetVariableValue_L(VARIABLE_T *variable);
/* Converts `value` into the variable's type and stores it (ConvertValue_L; a null value
 * makes it NULL); a non-zero `changed` is stored in the changed flag first. Returns
 * ConvertValue_L's result (0, 1 for a text cut to the declared length, -1), or -1 for a
 * null variable. Read-only variables are changed too: the flag binds SetVariable_L only. */
QV_API int32_t UpdateVariableValue_L(VARIABLE_T *variable, const QV_VALUE_T *value,
                                     uint8_t changed);
/* Sets the variable `name` from the text `value` (null: NULL), found through the scope
 * stack; when there is none it is created on the global array (the module is initialised
 * when needed). With `as_text` the text is the value itself, a CHAR. Without it the text
 * is a literal as an expression writes it: a quoted string ('It''s'), a number, a date
 * ('2009-04-30'), TRUE, FALSE or NULL; other text is taken as it stands. An existing
 * variable keeps its type (the new value is converted into it); a new one takes the
 * literal's type. A read-only variable is left alone and returned. Null name: null. */
QV_API VARIABLE_T *SetVariable_L(const char *name, const char *value, uint8_t as_text);
/* FindVariable_L(name, options); when there is none and the configuration file has a
 * preference of that name (GetExternalPreference_L), a global variable is made from it
 * with SetVariable_L as the quoted text "'<preference>'", a CHAR. The variable or null. */
QV_API VARIABLE_T *GetVariable_L(const char *name, uint32_t options);

/* Variables defined by expressions (qv/express.h). UpdateVariableFromExpression_L parses the
 * variable's defining expression (its `expression` text, kept parsed in `script`; parsed
 * with comparisons allowed and the current function array's user functions) when it is not
 * parsed yet, evaluates it and stores the result (UpdateVariableValue_L, marked changed).
 * Returns 0, or -1 for a null variable or one without an expression; a failure is caught
 * in the status context "UpdateVariableFromExpression_L": -1 is returned, after the
 * failure's messages were logged, and a raise other than GENERAL_ERROR is passed on. */
QV_API int32_t UpdateVariableFromExpression_L(VARIABLE_T *variable);
/* A variable defined by the expression `text`. With `evaluate`: the variable `name` of
 * `array` (of the scope stack when `array` is null) when there is one, else a new one of
 * the type (type, precision, scale; type 0 takes the result's type) on `array` (on the
 * global array when `array` is null); its expression becomes a copy of `text` and it is
 * updated from it; a variable made by this call is freed when that fails (null returned).
 * Without `evaluate`: a new variable, NULL, on `array` (in no array when null), keeping a
 * copy of `text` (none for null). Returns the variable, or null for a null name, a failure
 * or an allocation failure. */
QV_API VARIABLE_T *CreateVariableFromExpression_L(VARIABLE_ARRAY_T *array, const char *name,
                                                  uint32_t type, int32_t precision, int32_t scale,
                                                  const char *text, uint8_t evaluate);

/* ---- Copies and change merging --------------------------------------------------------- */

/* A copy of `variable` (name, value, flags, expression text; not its parsed script or
 * message set) added to `to` (kept in no array when `to` is null). */
QV_API VARIABLE_T *DuplicateVariable_L(VARIABLE_ARRAY_T *to, const VARIABLE_T *variable);
/* DuplicateVariable_L of the variable `name` of `from`; null when `from` has none. */
QV_API VARIABLE_T *DuplicateVariableByName_L(VARIABLE_ARRAY_T *to, const VARIABLE_ARRAY_T *from,
                                             const char *name);
/* Copies every variable of `from` onto `to`, or with `selected_only` those whose selected
 * flag is set. Returns the number copied, or -1 after an allocation failure (the copies
 * made before it stay on `to`). */
QV_API int32_t DuplicateVariableArray_L(VARIABLE_ARRAY_T *to, const VARIABLE_ARRAY_T *from,
                                        uint8_t selected_only);
/* For each variable: saved_change = changed; changed = 0. */
QV_API void SaveVariableArrayChanges_L(VARIABLE_ARRAY_T *array);
/* For each variable: merged = 0; saved_change = 0. */
QV_API void ResetVariableArrayChanges_L(VARIABLE_ARRAY_T *array);
/* For each variable of `from`: when `to` has one of the same name, it is updated from the
 * source (UpdateVariableValue_L) if the source's changed flag is set (target changed = 1,
 * merged = 1), or else if the target is not merged and the source's saved_change flag is
 * set (flags unchanged); when `to` has none, the variable is duplicated onto `to`. Returns
 * 0, or -1 after an allocation failure. */
QV_API int32_t CopyVariableArrayChanges_L(VARIABLE_ARRAY_T *to, const VARIABLE_ARRAY_T *from);

/* ---- Reports --------------------------------------------------------------------------- */

/* Writes one line through the "Variable" feedback class: "%s%U = '%U'" for a CHAR or CLOB
 * value and "%s%U = %U" otherwise, with the prefix, the name and the value's text; the
 * prefix is the owner's name and "." (empty when the owner has no name), and a NULL value
 * is written <NULL>. */
QV_API void ReportVariable_L(const VARIABLE_T *variable);
/* Reports every variable of every array on the scope stack, bottom first; with
 * `global_only`, only those of the bottom array (the global one). */
QV_API void ReportAllVariables_L(uint8_t global_only);

/* ---- Identifiers ----------------------------------------------------------------------- */

/* Replaces the three parts by copies of the texts (null allowed); returns id. On an
 * allocation failure the identifier is left empty. */
QV_API QV_ID_T *SetID_L(QV_ID_T *id, const char *name, const char *second, const char *third);
/* Frees the three parts and nulls them. */
QV_API void FreeID_L(QV_ID_T *id);

/* ---- The registry-like store ----------------------------------------------------------- */

/* Root keys. */
#define QV_HKEY_CLASSES_ROOT ((uintptr_t)0x80000000u)
#define QV_HKEY_CURRENT_USER ((uintptr_t)0x80000001u)
#define QV_HKEY_LOCAL_MACHINE ((uintptr_t)0x80000002u)
#define QV_HKEY_USERS ((uintptr_t)0x80000003u)
#define QV_HKEY_CURRENT_CONFIG ((uintptr_t)0x80000005u)
/* What Get_Registry_L returns for a value that exists but is not text. */
#define QV_REGISTRY_EXISTS "eXiStS"

/* Reads the value `value_name` (null or "": the key's default value) of the key
 * `key_path` ('\' or '/' between its parts) under `root_key`, from the store file (the
 * preference QV_REGISTRY_FILE, else <install root>/quillon/registry.txt; the format is in
 * README). Returns a heap copy of the text of a string value (types sz and expand_sz) of
 * at most 4095 bytes, QV_REGISTRY_EXISTS (also a heap text) for a value of any other
 * type, and null when the store, the key or the value is missing, the root key is not one
 * of the five above, or a string value is longer than 4095 bytes. */
QV_API char *Get_Registry_L(uintptr_t root_key, const char *key_path, const char *value_name);

QV_EXTERN_C_END

#endif
