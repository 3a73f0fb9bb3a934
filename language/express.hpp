// express.hpp - the inside of module "express" shared by its files and by the layers built on
// the parser (the evaluator, scripts): the tokenizer and the operator-precedence parser as a
// class, the failure record, the process-wide state, and the hooks through which those
// layers free what they keep in an expression record.
//
// One Parser reads one text. A script's statement parser takes tokens from it with
// next_token (and looks ahead with peek_row) and hands each expression to
// parse_expression, which appends the items to a list and tells which token ended the
// expression. A failure leaves its message text in Msgbuf8 and its number and position in
// last_error; every reading member then returns 0 (or null), and the caller stops. The
// members may throw std::bad_alloc (operator stack, message texts) and raise ALLOC_FAILURE:
// run them under QV_C_ENTRY, as the entry points do.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>

#include "core/heap.hpp"
#include "dataline/dataline.hpp"
#include "qv/express.h"
#include "qv/msgclass.h"

namespace qv::express {

// The recursion limit of evaluation: the preference QV_MAX_RECURSION as the last parse
// read it.
inline constexpr int32_t default_recursion_limit = 100;
extern int32_t recursion_limit;
// The preference QV_MAX_RECURSION (its atoi value), or the default when it is not set.
int32_t read_recursion_limit();

// The last parse failure: its message number (0 for a number that did not convert, and
// for memory running out) and byte position.
struct ParseError {
    uint32_t number = 0;
    uint32_t position = 0;
};
extern ParseError last_error;

// Writes a message's text into Msgbuf8, cut at a character boundary when too long.
void set_msgbuf(const char *text);

// The operator-table row of a code (null for none); the token-table row of NULL; a unary
// minus folded into a number literal (false for another literal).
const OPERATOR_T *operator_row(int32_t code);
const EXP_TOKEN_T *null_row();
bool negate_literal(QV_VALUE_T &value);

// The type mask of argument `index` (0-based) of `record`: a repeating record's last listed
// mask stands for every argument past the listed ones.
uint32_t argument_flags(const ExpFunction &record, int32_t index);
// Whether two names are the same without regard to case (bytewise over ASCII, by full case
// folding as soon as either leaves it): function names, and names bound to values.
bool same_name(const char *name, const char *candidate);

// Frees what an item owns: its name block, its literal's payload, its call frame.
void release_item(EXP_ITEM_T &item);
// Frees the per-call state of a function-call item (see EXP_ITEM_T::frame). The prepared
// form that points at it must be freed too (free_program of express_eval.hpp).
void release_frame(EXP_ITEM_T &item);

// What the script layer keeps in a record (`statements` and the script's variable arrays)
// is freed through the hook it installs; Free_Expression_L calls it with the record.
using StateFreer = void (*)(EXPRESSION_T *expression);
void install_statements_freer(StateFreer freer);

// A token read from the text: its kind and the item it made, which the token owns until
// the parser hands it to the item list.
struct Token {
    int32_t kind = 0;
    EXP_ITEM_T item{};
    Token() = default;
    Token(const Token &) = delete;
    Token &operator=(const Token &) = delete;
    ~Token() { release_item(item); }
    void clear() {
        release_item(item);
        item = EXP_ITEM_T{};
        kind = 0;
    }
};

// The next token-table row in the text and where it stands, without reading it.
struct Peek {
    const EXP_TOKEN_T *row = nullptr;
    std::size_t at = 0;  // the row's first byte (or where the next token starts)
    std::size_t end = 0; // after it
};

class Parser {
  public:
    // Postfix: operators after their operands (the parsed form). Text: every item where its
    // token stands (Simple_Parse_Expression_L).
    enum class Order { postfix, text };

    // `text` must outlive the parser. `tables` as Parse_Expression_L takes them; the built-in
    // table is searched after them. `nesting_limit`: how deep parentheses and calls may
    // nest. Resets the process-wide parenthesis depth.
    Parser(std::string_view text, const ExpFunction *const *tables, int32_t table_count,
           int32_t nesting_limit, Order order = Order::postfix);

    // ---- Tokens (express_token.cpp)
    // Reads the next token under `mask` into `token` (cleared first); returns its kind, or
    // 0 after a failure.
    int32_t next_token(int32_t mask, Token &token);
    // The row of the token table (or of the loop keywords, in script context) that the
    // next token would match under `mask`; row null when none would.
    Peek peek_row(int32_t mask);
    // Reads the row that peek_row found, as next_token would.
    void take_row(const Peek &peek);
    std::size_t position() const { return at_; }

    // ---- Expressions (express_parse.cpp)
    // Parses one expression under `mask`, appending its items to `items`; returns the kind
    // of the token that ended it (read; it stood at stop_position()), or 0 after a failure.
    // An expression that holds nothing ends at once: items are then appended only when
    // item_count() grew.
    int32_t parse_expression(int32_t mask, QV_LIST_T *items);
    uint32_t stop_position() const { return stop_; }
    // Parses the call of the function `name` (a name token just read, followed by "("):
    // appends its arguments' items and its own to `items` and stops after its ")" (a
    // script's call statement). False after a failure.
    bool parse_call(Token &name, int32_t mask, QV_LIST_T *items);
    int32_t item_count() const { return item_count_; }

    // Records a failure (see the top of the file) and returns 0.
    int32_t fail(uint32_t number, std::size_t position,
                 std::initializer_list<PWParam> parameters = {});
    // True when the last failure was memory running out (already raised and reported).
    bool out_of_memory() const { return out_of_memory_; }

  private:
    // Tokens
    void skip_blanks();
    Peek match_row(int32_t mask, std::size_t at) const;
    int32_t row_token(const EXP_TOKEN_T *row, std::size_t end, Token &token);
    int32_t quoted_literal(Token &token);
    int32_t identifier(Token &token);
    int32_t variable(Token &token, bool braces);
    int32_t number(Token &token);
    bool name_item(EXP_ITEM_T &item, std::span<const dataline::NamePart> parts);
    bool allocation_failed();

    // Expressions
    enum class Step { failed, operand_due, operand_done };
    int32_t parse_level(int32_t mask, int32_t nesting);
    Step operand(Token &token, int32_t mask, int32_t nesting, std::size_t base);
    Step binary(Token &token, int32_t mask, std::size_t base);
    bool unary_minus(Token &token, int32_t mask, int32_t nesting, std::size_t base);
    bool call(Token &name, int32_t mask, int32_t nesting, bool negate);
    bool subexpression(int32_t mask, int32_t nesting);
    bool in_list(int32_t mask);
    bool between(int32_t mask);
    bool simple_operand(int32_t mask);
    const ExpFunction *find_function(const EXP_ITEM_T &name);
    bool push(int32_t code, uint32_t position, const char *const *text, std::size_t base,
              bool prefix);
    bool pop_above(std::size_t base);
    EXP_ITEM_T *emit(EXP_ITEM_T &item);
    EXP_ITEM_T *emit_operator(int32_t code, uint32_t position, const char *const *text,
                              int32_t count);
    bool emit_null(uint32_t position);
    void set_count(int32_t count);

    std::string_view text_;
    std::size_t at_ = 0;
    const ExpFunction *const *tables_;
    int32_t table_count_;
    int32_t nesting_limit_;
    Order order_;
    QV_LIST_T *items_ = nullptr;
    EXP_ITEM_T *last_ = nullptr;    // the item appended last
    EXP_ITEM_T *counted_ = nullptr; // text order: the IN or BETWEEN item being read
    int32_t item_count_ = 0;
    uint32_t stop_ = 0;
    bool out_of_memory_ = false;
};

// Logs why a parse of `text` failed (QV_MSG_PARSE_FAILED with Msgbuf8's reason, or
// QV_MSG_PARSE_ENDED_EARLY when `ended_early`) with the text marked at `position`, unless
// errors are suppressed. Scripts report their statement failures the same way.
void report_failure(std::string_view text, uint32_t position, bool ended_early);

} // namespace qv::express
