/*
 * express.h - expressions: the record of an expression, its parsed form (a list of items
 * in postfix order), the token and operator tables of the language, and parsing.
 *
 * The language. An expression is a formula such as
 *     If( $x > 10, Upper( name ), 'none' )
 * made of literals (NULL, TRUE, FALSE, numbers, 'quoted text' with '' for a quote, and
 * quoted dates such as '2009-04-30 12:00'), names of columns or fields (price,
 * orders.total, "Unit Price"), variables ($x or {$any text}, "}}" for a "}" in the braced
 * form), function calls (a name followed by "(": looked up without regard to case, first in
 * the caller's tables, then in the built-in table of qv/builtin.h), parentheses, and
 * operators, from the tightest binding to the loosest:
 *     unary -                          (folded into a number literal; an operand's flag)
 *     *  /  &                          ("&" builds arrays)
 *     +  -
 *     =  !=  <>  <  >  <=  >=  IS [NOT]  [NOT] IN (list)  [NOT] LIKE  [NOT] BETWEEN a AND b
 *     NOT
 *     AND
 *     OR
 * Binary operators are left-associative: a - b - c is (a - b) - c, and a & b + c is
 * (a & b) + c. The right side of IN is a parenthesised list and the bounds of BETWEEN are
 * simple operands: each one literal, name or variable after any number of "-" signs. Words
 * (NULL, AND, IS, IF ...) are spelt in capitals and match only as whole words: ANDROID,
 * null and If are names (If the function, IF the statement keyword). A name spelt like a
 * word is written in double quotes ("AND"). "//" starts a comment that runs to the end of
 * the line. White space is Unicode White_Space; texts are UTF-8.
 *
 * Contexts. The caller's mask says which tokens the text may hold (EXP_MASK_...): plain
 * expressions need EXP_MASK_EXPRESSION, conditions add EXP_MASK_CONDITION (comparisons,
 * AND, OR, NOT, IS, IN, LIKE, BETWEEN; without it AND is a name), scripts add
 * EXP_MASK_SCRIPT (the statement keywords IF, THEN ... END, and the counted loop's FOR, TO,
 * DOWNTO), EXP_MASK_ASSIGN allows ":=", EXP_MASK_PLACEHOLDER makes "?" a name. The comma
 * is allowed inside argument lists and IN lists only (the parser adds EXP_MASK_COMMA
 * there); the arguments of a function whose argument mask includes BOOLEAN are parsed as
 * conditions.
 *
 * The parsed form. Parse_Expression_L fills the expression's `items` list (qv/qvlist.h)
 * with EXP_ITEM_T records in postfix order: operands first, then the operator or call that
 * takes them. For example  (x + y) * 2.5 - z / 3  gives
 *     x  y  +  2.5  *  z  3  /  -
 * and  F(a, , 1)  gives  a  NULL  1  F  (an empty argument is a NULL literal; F() has
 * none). A function-call item follows its arguments and says how many there are. IN and
 * BETWEEN follow their left operand and their list elements or bounds: x IN (1, 2, 3)
 * gives  x 1 2 3 IN  with the IN item's argument_count 3; x BETWEEN 1 AND 5 gives
 * x 1 5 BETWEEN (argument_count 2); an operator binding more tightly than BETWEEN after
 * the upper bound (or the IN list) applies to that bound: x BETWEEN 1 AND n * 2 gives
 * x 1 n 2 * BETWEEN. A unary minus before a number literal is folded into
 * it (-5 is the INTEGER -5), before another operand it sets the operand's `negate` flag,
 * and before a parenthesis it is the operator EXP_OP_NEGATE. Walk the items with
 * NextListItem_L:
 *     void *data;
 *     for (QV_LIST_T *p = NextListItem_L(e->items, &data); p; p = NextListItem_L(p, &data)) {
 *         const EXP_ITEM_T *item = data; ...
 *     }
 * or have them described as text with ExplainExpression_L.
 *
 * Failures. A text that does not parse leaves its reason in Msgbuf8 (qv/datatype.h), logs
 * QV_MSG_PARSE_FAILED (qv/message.h) with the byte position, the reason and the text
 * marked with ">>>" at the position, and raises GENERAL_ERROR from module "express"; a
 * text that ends early (a stray ";" or ",", a statement keyword where the expression
 * should go on) logs QV_MSG_PARSE_ENDED_EARLY instead. The reasons are the QV_MSG_ numbers
 * of the parser (qv/message.h); GetExpressionError_L gives the number and position of the
 * last one. Nesting of parentheses and calls deeper than the recursion limit (the
 * preference QV_MAX_RECURSION, default 100, at most EXP_MAX_NESTING) fails with
 * QV_MSG_RECURSION_LIMIT. Allocation failures raise ALLOC_FAILURE (Msgbuf8 then says so);
 * with no status context open a failing call returns 0 after the raise has reported.
 * Whatever a failing parse built is freed; the expression keeps its text and no items.
 *
 * Evaluation. A host parses an expression once, binds each name it holds to a value record
 * of its own, validates it, and then evaluates it once per row after updating those records:
 *
 *     QV_VALUE_T price = {0}, qty = {0};                      (the host's records)
 *     EXPRESSION_T *e = New_Expression_L("price * qty");
 *     Parse_Expression_L(e, EXP_MASK_EXPRESSION | EXP_MASK_CONDITION, NULL, 0);
 *     EXP_BINDING_T names[] = {{"price", &price}, {"qty", &qty}};
 *     SetValueTypePrecScale_L(&price, QV_TYPE_NUMBER, 10, 2);  (typed before validating)
 *     SetValueType_L(&qty, QV_TYPE_INTEGER);
 *     BindExpression_L(e, names, 2);
 *     if (Validate_Expression_L(e) == 1)
 *         for (each row) {
 *             ... store the row's values in price and qty ...
 *             if (Solve_Expression_L(e) == 0) use(&e->result);   (NUMBER(29,2) here)
 *         }
 *     Free_Expression_L(e);
 *
 * Binding: a name (item kind EXP_ITEM_NAME) is bound by its parts joined by "." without
 * quotes (orders.total, Unit Price for "Unit Price"), compared without regard to case; the
 * placeholders "?" are numbered in text order and bound as "?1", "?2" ..., or in a binding
 * table by entries named "?", which take the placeholders in order. The evaluator reads a
 * bound record where it stands, on every evaluation, and never changes or copies it: the
 * record must outlive the expression or be bound anew. Binding a name again to a record of
 * the same type takes effect at once; to a record of another type, at the next validation
 * (Solve_Expression_L validates again by itself). Variables ($x) are looked up in the scope
 * stack (qv/qvvar.h) when the expression is validated, or at their first evaluation when
 * they did not exist then, and stay bound to that variable until the next validation: an
 * expression must be validated again after a variable it reads was freed.
 *
 * Validation (Validate_Expression_L, also run by Solve_Expression_L the first time) checks
 * that every name is bound, describes every function call to its handler (QV_MODE_DESCRIBE)
 * to learn its type and checks each argument's type against the function's mask, chooses
 * for each operator the routine for the types of its operands, and sizes the value stack.
 * The type of the value the postfix list leaves is the result type, unless the host
 * declared one (SetExpressionResultType_L); every result is converted into it
 * (ConvertValue_L). A result type of 0 (an operand of unknown type, or INTEGER / INTEGER,
 * which is an INTEGER when exact and a FLOAT otherwise) keeps each result's own type. A
 * CHAR length that validation finds (If and IfNull widen their branches' lengths, Choose
 * takes its first outcome's) describes the result and never cuts it: only a declared
 * length does.
 *
 * The operators, with L and R the left and right operands:
 *   - (unary)    the operand negated: NUMBER, FLOAT, INTEGER (two's complement, so the
 *                most negative INTEGER stays as it is); other types unchanged; NULL stays
 *   + - *        NULL when either side is NULL, typed as L when L is not NULL, else as R
 *                when R is not NULL, else INTEGER; NUMBER when either side is a NUMBER
 *                (PreciseCalculate_L rules of qv/precise.h); INTEGER when both are, with
 *                64-bit two's-complement wrapping on overflow; otherwise FLOAT of both sides
 *                read as numbers (NULL when one does not read as a number)
 *   /            as above, but NULL / NULL is a NULL FLOAT; INTEGER / INTEGER is an INTEGER
 *                when the division is exact, else a FLOAT
 *   = != <> < > <= >=  BOOLEAN, NULL when either side is NULL. Two strings (CHAR, CLOB)
 *                compare by code point, case-sensitively; a string and another type compare
 *                as the other side's text form; a NUMBER with a number exactly; INTEGER and
 *                FLOAT as doubles; two dates, times, intervals, booleans, byte strings or
 *                arrays of one family as CompareValue_L orders them; other pairs as doubles,
 *                NULL when a side does not read as a number
 *   [NOT] LIKE   BOOLEAN, NULL when L is NULL; L's text against the pattern R (qv/qvstrlib.h:
 *                "%", "_", "\" escape); a NULL pattern matches everything
 *   IS [NOT]     BOOLEAN, never NULL: whether L is NULL (IS NULL is the usual form)
 *   [NOT] IN     BOOLEAN, NULL when L is NULL; whether L equals (as "=") an element
 *   [NOT] BETWEEN a AND b   BOOLEAN, NULL when L is NULL; a <= L AND L <= b as three-valued
 *                logic (so NULL when a bound is NULL and the other comparison holds)
 *   NOT AND OR   three-valued: NOT NULL is NULL; FALSE AND NULL is FALSE, TRUE AND NULL is
 *                NULL; TRUE OR NULL is TRUE, FALSE OR NULL is NULL. Both sides are always
 *                evaluated. Operands that are not BOOLEAN are read as truth values
 *                (ValueToBoolean_L); one that does not read as one counts as NULL
 *   &            an ARRAY: the elements of L and then of R, where a (non-NULL) ARRAY gives
 *                its elements and any other value, NULL included, gives itself
 * Division by zero gives NULL of the type the division would have had (as Mod does). A
 * function call hands the handler the argument values themselves, not copies: handlers
 * change no argument but a variable given at an ARRAY position. An argument position whose
 * mask is exactly ARRAY gets a one-element ARRAY holding a value of another type, unless the
 * argument is a variable: the handler then gets the variable's own value, which the array
 * functions change (ArrayAddItem($a, x) adds to $a, whatever $a held).
 *
 * Failures of evaluation. Solve_Expression_L returns 0, or -1 with the result NULL. An
 * evaluation that cannot go on logs a message and raises GENERAL_ERROR from module
 * "express" (with no status context open, the raise reports and -1 is returned): a NUMBER
 * result beyond 77 digits (QV_MSG_NUMBER_OVERFLOW), a result that does not fit the
 * declared result type (QV_MSG_RESULT_DOES_NOT_FIT), a variable that does not exist
 * (QV_MSG_VARIABLE_NOT_FOUND), stack exhausted before a user-defined function
 * (QV_MSG_STACK_EXHAUSTED) or calls nested beyond the recursion limit
 * (QV_MSG_RECURSION_LIMIT), and whatever a handler raises. Data that does not read as the
 * type an operator needs gives NULL, never a failure. No status context is opened per
 * evaluation, and evaluating a validated expression of numbers and truth values allocates
 * nothing.
 *
 * User-defined functions (category QV_CATEGORY_USER of qv/builtin.h; the record found in
 * the current function array) run their body: each call checks that four pages of stack
 * are left and that calls are nested no deeper than the recursion limit, pushes the
 * function's local variables (when it has any) and its parameters on the scope stack,
 * copies each argument into its parameter (CopyValue_L), runs the body and converts its
 * result into the record's result type. When the function is already running (recursion),
 * the values of the running activation are kept aside for the time of the call and put
 * back after it, so that every activation has its own parameters and locals. The body is
 * a script; until the script layer runs scripts, a body is an expression whose value is
 * the function's result.
 *
 * Tracing. TraceOn_L opens a trace file (a bare name is placed in the directory of the
 * preference QV_LOG_DIR) and selects what is written with a list of option names:
 * "Basic" (calls of user-defined functions and scripts), "Variable" (assignments),
 * "Builtin" (calls of built-in and host functions), "Datatype" (types beside values), or
 * "*" for all. Lines are indented by two spaces per level of user-defined calls:
 *     <==> Upper( Argument1 CHAR(5) 'alice' ) -> CHAR(0) 'ALICE'     (Builtin, Datatype)
 *     ==> Fact( n INTEGER 3 )                                         (Basic, Datatype)
 *     <== Fact -> INTEGER 6
 * Texts are quoted, NULL is written <NULL>. With tracing off an evaluation pays one test
 * per function call.
 *
 * Ownership. An item owns its name block (names and display; one heap block) when
 * owns_names is set, and its literal's payload as the value says; Free_Expression_L frees
 * them. The function records and tables handed to the parser must outlive the expression.
 * Not thread-safe: Msgbuf8, the parenthesis depth, the recursion limit, the nesting of
 * user-defined calls and the trace state are process-wide; an expression is evaluated by one
 * thread at a time.
 */
#ifndef QV_EXPRESS_H
#define QV_EXPRESS_H

#include <stdint.h>

#include "builtin.h"
#include "datatype.h"
#include "qv_export.h"
#include "qvlist.h"
#include "qvvar.h"

QV_EXTERN_C_BEGIN

/* ---- Named constants ------------------------------------------------------------------- */

/* Item kinds. */
#define EXP_ITEM_OPERATOR 1
#define EXP_ITEM_LITERAL 2
#define EXP_ITEM_NAME 3     /* a column or field name, or the placeholder "?" */
#define EXP_ITEM_FUNCTION 4 /* a function call */
#define EXP_ITEM_VARIABLE 6 /* $name or {$name} */

/* Token kinds the tokenizer returns (0 is a failure). */
#define EXP_TOKEN_END 1
#define EXP_TOKEN_OPEN 2  /* ( */
#define EXP_TOKEN_CLOSE 3 /* ) */
#define EXP_TOKEN_COMMA 4
#define EXP_TOKEN_LITERAL 5
#define EXP_TOKEN_OPERATOR 6
#define EXP_TOKEN_NAME 7
#define EXP_TOKEN_VARIABLE 8
#define EXP_TOKEN_IF 9
#define EXP_TOKEN_THEN 10
#define EXP_TOKEN_ELSE 11
#define EXP_TOKEN_CASE 12
#define EXP_TOKEN_OF 13
#define EXP_TOKEN_DEFAULT 14
#define EXP_TOKEN_WHILE 15
#define EXP_TOKEN_DO 16
#define EXP_TOKEN_FOR 17 /* the counted loop's head */
#define EXP_TOKEN_TO 18  /* its directions, reported together as "TO/DOWNTO" */
#define EXP_TOKEN_DOWNTO 19
#define EXP_TOKEN_SEMICOLON 20
#define EXP_TOKEN_BEGIN 21
#define EXP_TOKEN_END_KEYWORD 22 /* END */
#define EXP_TOKEN_ASSIGN 23      /* := */
#define EXP_TOKEN_COLON 24
#define EXP_TOKEN_RETURN 25

/* Context-mask bits. */
#define EXP_MASK_EXPRESSION 1
#define EXP_MASK_SCRIPT 2
#define EXP_MASK_CONDITION 4
#define EXP_MASK_COMMA 8
#define EXP_MASK_PLACEHOLDER 16
#define EXP_MASK_ASSIGN 32

/* Operator codes. */
#define EXP_OP_NEGATE 1
#define EXP_OP_ARRAY 2 /* & */
#define EXP_OP_ADD 3
#define EXP_OP_SUBTRACT 4
#define EXP_OP_MULTIPLY 5
#define EXP_OP_DIVIDE 6
#define EXP_OP_EQUAL 7
#define EXP_OP_NOT_EQUAL 8 /* != and <> */
#define EXP_OP_LESS 9
#define EXP_OP_GREATER 10
#define EXP_OP_LESS_EQUAL 11
#define EXP_OP_GREATER_EQUAL 12
#define EXP_OP_LIKE 13
#define EXP_OP_IS 14
#define EXP_OP_IN 15
#define EXP_OP_BETWEEN 16
#define EXP_OP_NOT_LIKE 17
#define EXP_OP_IS_NOT 18
#define EXP_OP_NOT_IN 19
#define EXP_OP_NOT_BETWEEN 20
#define EXP_OP_NOT 21
#define EXP_OP_AND 22
#define EXP_OP_OR 23

/* Operator classes. */
#define EXP_CLASS_ARITHMETIC 1
#define EXP_CLASS_COMPARISON 2
#define EXP_CLASS_LOGICAL 3
#define EXP_CLASS_LIST 4

/* The most levels of parentheses and calls a text may nest, whatever QV_MAX_RECURSION
 * says: the parser recurses once per level. */
#define EXP_MAX_NESTING 1000

/* ---- The tables ------------------------------------------------------------------------ */

/* A row of the token table: a spelling, the token kind it gives, the context bits under
 * which it is recognised, its operator code (operators), and whether it is a word (which
 * must not be followed by a letter, digit, "_" or "@"). */
typedef struct EXP_TOKEN_T {
    const char *text; /* null in the row that ends the table */
    int32_t kind;
    int32_t mask;
    int32_t operator_code;
    int32_t word;
} EXP_TOKEN_T;

/* A row of the operator table. */
typedef struct OPERATOR_T {
    int32_t code;       /* EXP_OP_... */
    int32_t op_class;   /* EXP_CLASS_... */
    int32_t precedence; /* 1 (OR) .. 7 (unary minus); higher binds tighter */
    int32_t operands;   /* 1, 2, or 3 for BETWEEN */
    const char *text;   /* as written: "+", "NOT IN", "-" for the unary minus */
} OPERATOR_T;

/* The token table: 39 rows in the order they are tried (the first whose text matches
 * wins, so ">=" stands before ">"), then a row whose text is null. The counted loop's
 * keywords are not in it: FOR, TO and DOWNTO are recognised in script context only, after
 * the table. */
QV_API const EXP_TOKEN_T *Get_Tokens_L(void);
/* The operator-table row of an operator code; null for a code that has none. */
QV_API const OPERATOR_T *Get_Operator_L(int32_t code);

/* ---- The records ----------------------------------------------------------------------- */

/* One item of the parsed form. */
typedef struct EXP_ITEM_T {
    int32_t kind;      /* EXP_ITEM_...; 0 for a keyword or punctuation token */
    uint32_t position; /* byte offset of the item's first byte in the expression's text */
    char **names;      /* name parts: a name's dotted parts, a variable's name, a function's
                          name; an operator's or keyword's text; null for numbers and texts */
    int32_t name_count;
    char *display;               /* the name written back: "$x", {$a b}, a."b c" */
    uint8_t negate;              /* a unary minus stood before this operand */
    uint8_t braces;              /* variable written {$name} */
    uint8_t constant;            /* literal: its value is fixed */
    uint8_t owns_names;          /* names and display are one heap block owned by the item (free
                                    `names`); otherwise they point at constant texts */
    const OPERATOR_T *op;        /* operator: its row */
    QV_VALUE_T value;            /* literal: the value (is_null for NULL); name: type 0, or POINTER
                                    when the argument it stands for takes a pointer */
    VARIABLE_T *variable;        /* variable reference: null until the evaluator binds it */
    const ExpFunction *function; /* function call: the record it resolved to */
    int32_t argument_count;      /* function call: arguments given; IN, NOT IN: list
                                    elements; BETWEEN, NOT BETWEEN: 2 */
    /* The evaluator's, zero after parsing: */
    int32_t slot;            /* the item's place in the evaluation's operand table */
    QV_VALUE_T *bound;       /* name: the host's value bound to it (BindExpression_L) */
    EXP_CALL_FRAME_T *frame; /* function call: its call frame, made by validation; freed with
                                its `arguments` (argument_count pointers) and
                                `argument_slots` (argument_count values, or null) blocks by
                                Cleanup_Expression_L */
} EXP_ITEM_T;

/* An expression, or a script: a text, its parsed form, and what evaluation keeps. */
typedef struct EXPRESSION_T {
    char *text;       /* owned UTF-8 copy of the text, trimmed when parsed; or null */
    QV_LIST_T *items; /* EXP_ITEM_T records in postfix order */
    int32_t mask;     /* the context mask it was parsed with */
    int32_t item_count;
    /* The evaluator's: */
    QV_VALUE_T result;         /* the value of the last evaluation (NULL after a failure);
                                  overwritten by the next one */
    QV_DATATYPE_T result_type; /* the type results are converted to; type 0: each result
                                  keeps its own */
    int32_t depth;             /* evaluations of this expression under way (recursion) */
    int32_t stack_size;        /* computed values per depth: one per operator and call */
    int32_t operand_count;     /* values an evaluation reads: one per operand and result */
    int32_t stack_count;       /* entries of `stacks` and `operands` */
    QV_VALUE_T **stacks;       /* per depth: stack_size computed values, or null until an
                                  evaluation reaches that depth */
    QV_VALUE_T ***operands;    /* per depth: operand_count pointers, each to a borrowed value
                                  (a literal's, a bound name's, a variable's) or to a computed
                                  value of that depth's stack */
    uint8_t validated;         /* validated since the last parse, binding or cleanup */
    uint8_t result_declared;   /* result_type was declared by SetExpressionResultType_L */
    void *prepared;            /* the evaluator's prepared form */
    /* The script layer's: */
    VARIABLE_ARRAY_T *variables;
    VARIABLE_ARRAY_T *locals;
    void *statements; /* the parsed statements (freed by its hook) */
} EXPRESSION_T;

/* ---- Entry points ---------------------------------------------------------------------- */

/* A new expression holding a copy of `text` (null: no text) and an empty item list.
 * Raises ALLOC_FAILURE (null when it returns). */
QV_API EXPRESSION_T *New_Expression_L(const char *text);

/* Parses the expression's text, trimmed in place first, under `mask` (EXP_MASK_...),
 * with the functions of `tables` (an array of `table_count` pointers to tables ended by a
 * record whose name is null, searched in order) and then the built-in table. Any earlier
 * parsed form is freed first. Reads the preference QV_MAX_RECURSION (default 100), which
 * also becomes the evaluator's recursion limit. Returns 1 when the text parsed; 0 without
 * a failure when the expression or its text is null or the text holds nothing but blanks
 * and comments; 0 after a failure (see the top), which raises GENERAL_ERROR or
 * ALLOC_FAILURE first. Runs in a status context of its own, "Parse_Expression_L". */
QV_API int32_t Parse_Expression_L(EXPRESSION_T *expression, int32_t mask,
                                  const ExpFunction *const *tables, int32_t table_count);

/* As Parse_Expression_L, with the same checks and failures, but the items are left in
 * the order their tokens stand in the text: each operand, each operator (IN and BETWEEN
 * before their elements, NOT IN as one item, the unary minus as EXP_OP_NEGATE where it is
 * not folded), and each function call before its arguments (its argument_count is known
 * all the same); parentheses and commas give no items. For callers that need to know which
 * names, variables and functions a text mentions. Status context
 * "Simple_Parse_Expression_L". */
QV_API int32_t Simple_Parse_Expression_L(EXPRESSION_T *expression, int32_t mask,
                                         const ExpFunction *const *tables, int32_t table_count);

/* Frees the items (with what they own and the evaluator's per-call state), what the
 * evaluator and the script layer keep, the list, the text and the record. Null does
 * nothing. */
QV_API void Free_Expression_L(EXPRESSION_T *expression);

/* Releases the per-call state of every function-call item (its frame) and what validation
 * prepared (the next evaluation validates again); the items, their bindings, the result,
 * the text and the record stay. Null does nothing. */
QV_API void Cleanup_Expression_L(EXPRESSION_T *expression);

/* The message number (a QV_MSG_ of qv/message.h) of the last parse failure, 0 when the
 * last parse succeeded or failed for want of memory, or when a number did not convert
 * (Msgbuf8 then holds the reason); *position (when given) receives its byte offset. */
QV_API uint32_t GetExpressionError_L(uint32_t *position);

/* The parsed items in order, one line each, as a heap text (free it); for tools that show
 * what a text parsed to. Each line is the item's byte position, its kind and what it holds:
 *     "     0  name      price\n"
 *     "     8  literal   2.5  FLOAT\n"
 *     "     6  operator  *\n"
 *     "     0  call      Upper  1 argument\n"
 * Names and calls show their display text ("-" before a negated one, "POINTER" after a
 * name passed as a pointer), variables "$x" or "{$x}", literals their value as the
 * language writes it ('It''s', 12, NULL, TRUE, '2009-04-30 00:00:00.000000000') and its
 * type, IN and BETWEEN their element count. "" for an expression with no items; null for a
 * null expression or after an allocation failure (ALLOC_FAILURE raised). */
QV_API char *ExplainExpression_L(const EXPRESSION_T *expression);

/* ---- Evaluation ------------------------------------------------------------------------ */

/* A name and the host's value record it is bound to. */
typedef struct EXP_BINDING_T {
    const char *name; /* dotted parts joined by "." ("orders.total"); "?" or "?N" for a
                         placeholder */
    QV_VALUE_T *value;
} EXP_BINDING_T;

/* Binds every name of the expression that one of the `count` bindings names (the first that
 * matches wins; see the top for names and placeholders); names no binding matches keep what
 * they were bound to. A binding with a null value unbinds. Returns the number of name items
 * left unbound, or -1 for a null expression or table with a count above 0, or a negative
 * count. */
QV_API int32_t BindExpression_L(EXPRESSION_T *expression, const EXP_BINDING_T *bindings,
                                int32_t count);
/* Binds every item named `name` ("?N": the N-th placeholder; "?" the first) to `value` (null
 * unbinds). Returns the number of items bound, 0 when the expression has no such name, -1
 * for a null expression or name. */
QV_API int32_t BindExpressionName_L(EXPRESSION_T *expression, const char *name, QV_VALUE_T *value);

/* Declares the type every result is converted into (precision and scale count: a NUMBER(10,2)
 * result is rescaled, a CHAR(5) one cut); a null type or type 0 returns to the type that
 * validation finds. Returns 0, or -1 for a null expression. */
QV_API int32_t SetExpressionResultType_L(EXPRESSION_T *expression, const QV_DATATYPE_T *type);

/* Validates the parsed expression (see the top); parses it first, with EXP_MASK_EXPRESSION,
 * EXP_MASK_CONDITION and EXP_MASK_PLACEHOLDER and no host tables, when it has a text and no
 * items. Returns 1 when it can be evaluated. Otherwise returns 0 after logging what is
 * wrong, each problem in a message of its own (QV_MSG_NAME_NOT_BOUND naming the name and
 * its position; QV_MSG_ARGUMENT_TYPE naming the function, the argument's number, its
 * position, its type and the types the function takes; QV_MSG_FUNCTION_NOT_CALLABLE;
 * QV_MSG_EXPRESSION_MALFORMED for items the parser cannot have made), then
 * QV_MSG_VALIDATION_FAILED, and raising GENERAL_ERROR; or after the parse failed (see
 * Parse_Expression_L); or for a null expression or one with nothing to evaluate, without a
 * message. Allocation failures raise ALLOC_FAILURE and leave the expression not
 * validated. Runs in a status context of its own, "Validate_Expression_L". */
QV_API int32_t Validate_Expression_L(EXPRESSION_T *expression);

/* Evaluates the expression into its `result`, validating it first when it is not validated
 * (and parsing it when it has a text and no items). Returns 0, or -1 with the result NULL
 * (see "Failures of evaluation" at the top); a null expression, an empty one or one that
 * does not validate returns -1. May be called from inside its own evaluation (a recursive
 * user-defined function): each level of depth has its own stack. */
QV_API int32_t Solve_Expression_L(EXPRESSION_T *expression);

/* ---- Tracing --------------------------------------------------------------------------- */

#define EXP_TRACE_BASIC 0x1u
#define EXP_TRACE_VARIABLE 0x2u
#define EXP_TRACE_BUILTIN 0x4u
#define EXP_TRACE_DATATYPE 0x8u
#define EXP_TRACE_ALL 0xFFFFu

/* Sets the trace options from a list of option names separated by ",", blanks around them
 * ignored, names compared without case; "*" selects all (EXP_TRACE_ALL) and ends the list;
 * unknown names are ignored. A null or empty list takes the text value of the variable
 * EXP_TRACE_VALUES (none when there is no such variable). Returns the options set. */
QV_API uint32_t SetTraceOptions_L(const char *options);
/* The options set, whether or not a trace file is open. */
QV_API uint32_t GetTraceOptions_L(void);
/* Sets the options (SetTraceOptions_L); then, when an option is set, no trace file is open
 * and `file` is neither null nor empty, opens `file` for appending (a name without a
 * directory goes into the directory of the preference QV_LOG_DIR, when set) and writes
 * "\n***** START TRACING ", the names of the options set joined by ", ", " *****\n". Returns 1 when
 * this call opened the file, 0 when it did nothing more than set the options, -1 when the file
 * cannot be opened (QV_MSG_TRACE_FILE_FAILED logged as a warning; tracing stays off). */
QV_API int32_t TraceOn_L(const char *file, const char *options);
/* Writes "\n***** END TRACE *****\n" and closes the trace file when one is open, and clears
 * the options. */
QV_API void TraceOff_L(void);
/* Writes to the trace file, when one is open: level 1 starts a new line indented by two
 * spaces per `depth`, level 0 continues the line; the text is formatted by the library's
 * formatter (qv/alloc.h: %U for UTF-8 text, "<NULL>" for null). */
QV_API void Trace_L(int32_t level, int32_t depth, const char *format, ...);

/* ---- Scripts -----------------------------------------------------------------------------
 *
 * A script is a sequence of statements, separated by ";", whose expressions are those of
 * the top of this file (conditions allowed everywhere):
 *
 *     $total := 0;                                   assignment: a variable, ":=", a value
 *     LogMsg('start');                               call statement: a function called for
 *                                                    its effect, its value dropped
 *     IF $qty > 10 THEN $rate := 0.9 ELSE $rate := 1;
 *     CASE $code OF                                  (or CASE $code BEGIN)
 *         1, 2: $kind := 'low';                      values: literals, "-" before numbers
 *         'x': BEGIN $kind := 'other'; $n := 0 END;
 *         DEFAULT: $kind := 'unknown'                at most one DEFAULT, the last branch
 *     END;
 *     WHILE $n < 10 DO $n := $n + 1;
 *     FOR $i := 1 TO $n DO $total := $total + $i;    also DOWNTO; the bounds are read once
 *     BEGIN $a := 1; $b := 2 END;                    a block
 *     RETURN $total                                  ends the script with that value
 *
 * Words are capitals, as in expressions. Empty statements (";;") are allowed in a
 * list, but the statement after THEN, ELSE, DO or a CASE branch's ":" must be there. A ";"
 * before ELSE is accepted (IF c THEN s1; ELSE s2), and ELSE goes with the nearest IF.
 * Statements and blocks nest as deep as the recursion limit (QV_MAX_RECURSION, default 100,
 * at most EXP_MAX_NESTING).
 *
 * CASE compares the selector with each branch's values in order, as "=" does (1 and 1.0 are
 * equal, a NULL matches nothing), and runs the first branch that matches, else the DEFAULT
 * branch, else nothing. The counted loop reads its bounds once, as INTEGERs (a NULL bound
 * or an empty range runs the body not at all), counts by 1 up (TO) or down (DOWNTO) and
 * gives the variable each count as an INTEGER; after the loop the variable holds the last
 * count. The loop variable cannot be assigned inside the loop, nor count an inner loop.
 * A condition holds when it is TRUE; FALSE and NULL do not hold (a value of another type
 * is read as a truth value, ValueToBoolean_L).
 *
 * Variables. A script's own variable array (`variables`, named after the script) is pushed
 * on the scope stack while it is validated and run. A variable is found as in expressions,
 * innermost first; an assigned variable found nowhere is created in the script's array, and
 * keeps its value from one run to the next. Variables the script made take each value as
 * it is (any type); a variable declared with a type elsewhere (a global, a host's) takes
 * the value converted into its type (UpdateVariableValue_L, changed flag set). A read-only
 * variable cannot be assigned. The variable RUN_SCRIPT_RETURN of the script's array holds
 * the script's result: it is NULL when a run starts, RETURN value sets it and ends the run,
 * an assignment to it sets it and goes on; whatever it holds when the run ends becomes the
 * script's `result` (converted into the type SetExpressionResultType_L declared, if any).
 *
 *     EXPRESSION_T *s = New_Script_L("FOR $i := 1 TO 10 DO $s := IfNull($s, 0) + $i;"
 *                                    "RETURN $s", "Sum", "demo");
 *     int32_t code = 0;
 *     if (Parse_Script_L(s, NULL, 0) == 1 && Run_Script_L(s, &code) >= 0)
 *         ... s->result is the INTEGER 55 ...
 *     Free_Script_L(s);
 *
 * Running. Run_Script_L first asks Check_Interrupt_L: after an interrupt request it turns
 * tracing off and returns QV_SCRIPT_INTERRUPTED without running. It then runs in the status
 * context "run_script": a run nested deeper than the recursion limit (script runs and
 * user-defined calls together) fails with QV_MSG_RECURSION_LIMIT; loops ask for interrupts
 * at every turn (an interrupt ends the run with QV_SCRIPT_INTERRUPTED, tracing off); Exit(
 * code ) ends the run with QV_SCRIPT_EXITED and the code; a statement that fails has logged
 * its message, and GENERAL_ERROR (or what the failure raised) is raised on from the
 * context, the script's result NULL. With the trace option "Basic" a run writes
 *     ==> Sum demo                  (the script's two names)
 *     <== Sum demo -> 55            ("Datatype" adds the type: -> INTEGER 55)
 * and the lines of its calls indented between; with "Variable" every assignment (a loop's
 * counting too) writes  [name] = value  ('text' quoted, <NULL> for NULL).
 *
 * Failures of parsing are reported as those of Parse_Expression_L: QV_MSG_PARSE_FAILED with
 * the reason (a QV_MSG_ of the statement parser, GetExpressionError_L), the position and
 * the text marked with ">>>"; a stray END at the top, QV_MSG_PARSE_ENDED_EARLY. Validation
 * problems are logged each with its position, then QV_MSG_VALIDATION_FAILED.
 */

/* Results of Run_Script_L. */
#define QV_SCRIPT_FAILED (-1)
#define QV_SCRIPT_COMPLETED 0   /* ran to its end */
#define QV_SCRIPT_RETURNED 1    /* ended by RETURN */
#define QV_SCRIPT_INTERRUPTED 2 /* an interrupt was requested; tracing is off */
#define QV_SCRIPT_EXITED 3      /* ended by Exit( code ) */
/* The variable holding a script's result. */
#define QV_SCRIPT_RESULT_VARIABLE "RUN_SCRIPT_RETURN"

/* A new script holding a copy of `text` (null: none) and its two names, written by the
 * trace (null: none); its variable array is made when it is first validated. Raises
 * ALLOC_FAILURE (null when it returns). */
QV_API EXPRESSION_T *New_Script_L(const char *text, const char *name, const char *owner);
/* Parses the script's text (trimmed in place) into statements, the functions looked up in
 * `tables` (as Parse_Expression_L takes them), then in the current function array's
 * user-defined functions, then in the built-in table. Any earlier parsed form is freed; the
 * script's variables stay. Returns 1 when the text parsed; 0 when the script or its text is
 * null, or the text holds nothing but blanks, comments and ";" (a script that does nothing);
 * 0 after a failure, raised as GENERAL_ERROR or ALLOC_FAILURE (see above); 0 without doing
 * anything while the script runs (a host function it calls cannot parse it again). A record
 * made by New_Expression_L may be parsed as a script. Status context "Parse_Script_L". */
QV_API int32_t Parse_Script_L(EXPRESSION_T *script, const ExpFunction *const *tables,
                              int32_t table_count);
/* BindExpression_L for every expression of the parsed script; returns the number of name
 * items left unbound in all of them, or -1 as BindExpression_L does. */
QV_API int32_t BindScript_L(EXPRESSION_T *script, const EXP_BINDING_T *bindings, int32_t count);
/* Validates the parsed script (parsing it first, without host tables, when it has a text
 * but no parsed form): makes its variable array, finds or creates every assigned variable,
 * validates every expression (Validate_Expression_L) and prepares the CASE comparisons.
 * Returns 1 when it can be run; 0 after logging what is wrong (QV_MSG_VARIABLE_READ_ONLY,
 * the evaluator's messages, then QV_MSG_VALIDATION_FAILED) and raising GENERAL_ERROR, or
 * for a null script. While the script runs it only says (1 or 0) whether the script is
 * validated. Status context "Validate_Script_L". */
QV_API int32_t Validate_Script_L(EXPRESSION_T *script);
/* Runs the script (validating it first when needed) and returns a QV_SCRIPT_ code; the
 * script's result is in its `result`. `exit_code` (may be null) receives Exit's code, 0
 * otherwise. QV_SCRIPT_FAILED for a null script or after a failure (raised, see above). */
QV_API int32_t Run_Script_L(EXPRESSION_T *script, int32_t *exit_code);
/* Releases what validation prepared for every expression of the script (their call frames
 * and prepared forms): the next run validates again. The parsed statements, the variables,
 * the result and the text stay. Null, or a script that is running, is left alone. */
QV_API void Cleanup_Script_L(EXPRESSION_T *script);
/* Frees the script: its statements and expressions, its variable array (taken off the
 * scope stack first), its result, text and record. Null does nothing. Free_Expression_L
 * does the same for a script. */
QV_API void Free_Script_L(EXPRESSION_T *script);

/* Maintenance of script texts. Each rewrites the script's `text` and frees its parsed form
 * (the script must be parsed again; its variables stay); each returns -1 for a null script
 * or text and leaves the text as it was when it returns -1 or 0.
 *
 * ForceCoreScriptResult_L: a text that is one expression (a derivation such as
 * "$price * $qty" or "Upper(name)": no statement keyword, no ":=", no ";" but a last one)
 * becomes a script that hands its value back: "RETURN <text>;". Returns 1 when it rewrote
 * the text, 0 when the text is statements already (or empty); -1 when the text cannot be
 * read as tokens (an unterminated quote ...).
 *
 * ReplaceInScript_L: renames, token by token, every variable or every name that `from`
 * spells: "$x" or "{$x}" a variable (either form matches), anything else a name (dotted
 * parts, a double-quoted part) of a column, field or function; names compare without
 * regard to case; quoted texts and comments are left alone. Each occurrence is replaced by
 * `to`, written as it is given. Returns the number of replacements; -1 when `from` is not
 * one variable or name, or the text cannot be read as tokens.
 *
 * UpgradeScript_L: makes every statement governed by THEN, ELSE or DO a block: a statement
 * that is not BEGIN ... END gets "BEGIN " before it and " END" after it, and the ";" that
 * stood between a THEN branch and its ELSE is dropped, so
 *     IF $a THEN $x := 1; ELSE $x := 2
 * becomes
 *     IF $a THEN BEGIN $x := 1 END ELSE BEGIN $x := 2 END
 * The upgraded script runs as the original did; upgrading again changes nothing. Returns
 * the number of changes (statements made blocks, ";" dropped); -1 when the text does not
 * parse as a script (the failure logged and raised as by Parse_Script_L, with the tables
 * given). */
QV_API int32_t ForceCoreScriptResult_L(EXPRESSION_T *script);
QV_API int32_t ReplaceInScript_L(EXPRESSION_T *script, const char *from, const char *to);
QV_API int32_t UpgradeScript_L(EXPRESSION_T *script, const ExpFunction *const *tables,
                               int32_t table_count);

/* ---- User-defined functions --------------------------------------------------------------
 *
 * A text of declarations holds one or more functions, each
 *
 *     FUNCTION Name( $a NUMBER(10,2), $b CHAR, $c ) RETURNS NUMBER(12,2)
 *     BEGIN
 *         statements, with RETURN value;
 *     END
 *
 * optionally separated by ";". FUNCTION and RETURNS are written in capitals. A parameter
 * is a variable name, optionally followed by a declarable data type (qv/datatype.h: CHAR,
 * CHAR(20), NUMBER(10,2), DATE WITH TIME ZONE ...; CHAR without a length takes any length);
 * "( )" declares none, at most 16. RETURNS and its type may be left out: the result then
 * keeps the type of the value returned. The body is a block of statements as in a script;
 * a bare RETURN is not allowed there (a function hands back a value), and a body that ends
 * without RETURN gives NULL.
 *
 * A call passes every argument (as many as there are parameters); an argument is converted
 * into its parameter's declared type (a parameter without a type takes it as it is). The
 * type an argument may have at a call: a number for INTEGER, FLOAT and NUMBER parameters;
 * any value but an array for CHAR and CLOB; BOOLEAN; a date (or a text) for the date and
 * time types; an ARRAY (another value arrives as a one-element array); any value for a
 * parameter without a type. Variables the body assigns that are not parameters are the
 * function's locals, NULL at the start of every call. Every call (recursive ones too) has
 * its own parameters and locals; calls nest as deep as the recursion limit and the stack
 * allow (QV_MSG_RECURSION_LIMIT, QV_MSG_STACK_EXHAUSTED). A function body sees the
 * variables of the scope stack as it stood when the body was validated (globals, the
 * host's arrays), besides its own.
 *
 * Each function becomes a user-defined function of the current function array (NewFunction
 * of qv/builtin.h) with a function record that expressions and scripts call like a
 * built-in: its name and usage ("Name( $a NUMBER(10,2), $b CHAR, $c ) RETURNS
 * NUMBER(12,2)"), number 0, category QV_CATEGORY_USER, both argument counts the number of
 * parameters, the result type's code (0 without RETURNS) and each parameter's type mask as
 * above. The user-function record keeps in `text1` the declaration's text (FUNCTION to END)
 * from which its body is parsed, in `text2` the parameter list and the result type as
 * declared, its parameters' declared types as NULL values in `parameter_values`, and in
 * one extra block (extras[0]->owned) a copy of the table list it was declared with (the
 * tables themselves are the host's and must outlive the functions). Its `body` is a script
 * (New_Script_L) named after the function.
 */

/* Declares the functions of `text` in the current function array (pushing the bottom one
 * when there is none), then parses the body of every user-defined function of that array
 * (those declared before too: a declaration moves the function records, so every body is
 * parsed again), with `tables`, the array's user-defined functions and the built-in table
 * (functions may call each other in any order, themselves included), validates every body
 * and marks the functions validated (SetValidatedFunctions_L). Returns the number of
 * functions declared, or -1 after a failure: the functions of `text` are then removed, the
 * earlier ones prepared again, and the failure logged (as by Parse_Script_L, or by
 * validation; QV_MSG_FUNCTION_REPEATED for a name the array has already) and raised. A name
 * may repeat a built-in's, which calls then reach instead. Scripts and expressions parsed
 * before that call user-defined functions must be parsed again after a declaration. While a
 * user-defined function of the array runs, -1 without doing anything. Status context
 * "Declare_Functions_L". */
QV_API int32_t Declare_Functions_L(const char *text, const ExpFunction *const *tables,
                                   int32_t table_count);

QV_EXTERN_C_END

#endif
