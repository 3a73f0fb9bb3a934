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
 * x 1 5 BETWEEN (argument_count 2). A unary minus before a number literal is folded into
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
 * Ownership. An item owns its name block (names and display; one heap block) when
 * owns_names is set, and its literal's payload as the value says; Free_Expression_L frees
 * them. The function records and tables handed to the parser must outlive the expression.
 * Not thread-safe: Msgbuf8, the parenthesis depth and the recursion limit are process-wide.
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
    int32_t slot;            /* the value-stack slot the item leaves its result in */
    QV_VALUE_T *bound;       /* the value an operand reads (a host's bound value, a
                                variable's or the item's own) */
    void *dispatch;          /* the routine the evaluator resolved for the item */
    EXP_CALL_FRAME_T *frame; /* function call: its per-call state; freed with its
                                `arguments` and `argument_slots` blocks (argument_count
                                values, or the record's maximum when that is larger) by
                                Cleanup_Expression_L */
} EXP_ITEM_T;

/* An expression, or a script: a text, its parsed form, and what evaluation keeps. */
typedef struct EXPRESSION_T {
    char *text;       /* owned UTF-8 copy of the text, trimmed when parsed; or null */
    QV_LIST_T *items; /* EXP_ITEM_T records in postfix order */
    int32_t mask;     /* the context mask it was parsed with */
    int32_t item_count;
    /* The evaluator's: */
    QV_VALUE_T result;         /* the value of the last evaluation */
    QV_DATATYPE_T result_type; /* the type results are converted to */
    int32_t depth;             /* the current evaluation depth */
    int32_t stack_size;        /* the deepest point of the postfix list */
    int32_t stack_count;       /* entries of `stacks` and `borrowed` */
    QV_VALUE_T **stacks;       /* per depth: stack_size values */
    QV_VALUE_T ***borrowed;    /* per depth: stack_size pointers to borrowed values */
    QV_VALUE_T *arguments;     /* the argument values of function calls */
    int32_t argument_capacity;
    uint8_t validated;
    void *prepared; /* the evaluator's own prepared form (freed by its hook) */
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

/* Releases the per-call state of every function-call item (its frame); the items, the
 * text and the record stay. Null does nothing. */
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

QV_EXTERN_C_END

#endif
