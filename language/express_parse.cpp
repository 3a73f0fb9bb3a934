// express_parse.cpp - the operator-precedence parser (module "express").
//
// One recursive routine, parse_level, reads one expression: operands go to the output at
// once, binary operators wait on a stack and leave it for the output when an operator of no
// higher precedence arrives (so every binary operator is left-associative) or the
// expression ends. Prefix operators (NOT, and the unary minus before a parenthesis) wait
// without popping anything. A parenthesis and each argument of a call are read by a
// recursive call one nesting level deeper; the right sides of IN and BETWEEN by readers of
// simple operands. In text order (Simple_Parse_Expression_L) every operator and call goes
// to the output where it stands instead, and the stack stays empty.
//
// The operator stack is one block reused by every parse (the parser is not reentrant), so
// a parse allocates nothing but its items.
#define QV_MODULE "express"

#include <cstring>

#include "core/raise.hpp"
#include "language/express.hpp"
#include "qv/encoding.h"
#include "qv/message.h"

namespace {

struct Pending {
    int32_t code;
    int32_t precedence;
    uint32_t position;
    int32_t count;           // IN: list elements; BETWEEN: 2
    const char *const *text; // the operator as written
};

qv::Vector<Pending> &operators() {
    static qv::Vector<Pending> stack;
    return stack;
}

constexpr bool ends_expression(int32_t kind) {
    switch (kind) {
        case EXP_TOKEN_END:
        case EXP_TOKEN_CLOSE:
        case EXP_TOKEN_COMMA:
        case EXP_TOKEN_SEMICOLON:
        case EXP_TOKEN_END_KEYWORD:
        case EXP_TOKEN_THEN:
        case EXP_TOKEN_ELSE:
        case EXP_TOKEN_OF:
        case EXP_TOKEN_BEGIN: // CASE selector BEGIN
        case EXP_TOKEN_DO:
        case EXP_TOKEN_TO:
        case EXP_TOKEN_DOWNTO: return true;
        default: return false;
    }
}

// The other statement keywords, which cannot stand inside an expression.
constexpr bool is_statement_keyword(int32_t kind) {
    switch (kind) {
        case EXP_TOKEN_IF:
        case EXP_TOKEN_CASE:
        case EXP_TOKEN_DEFAULT:
        case EXP_TOKEN_WHILE:
        case EXP_TOKEN_FOR:
        case EXP_TOKEN_ASSIGN:
        case EXP_TOKEN_COLON:
        case EXP_TOKEN_RETURN: return true;
        default: return false;
    }
}

constexpr int32_t not_fused_with(int32_t code) {
    switch (code) {
        case EXP_OP_IN: return EXP_OP_NOT_IN;
        case EXP_OP_LIKE: return EXP_OP_NOT_LIKE;
        case EXP_OP_BETWEEN: return EXP_OP_NOT_BETWEEN;
        default: return 0;
    }
}

int32_t operator_code(const qv::express::Token &token) {
    return token.kind == EXP_TOKEN_OPERATOR ? token.item.op->code : 0;
}

// Function names compare without regard to case: bytewise over ASCII, by full case folding
// as soon as either side leaves it.
bool same_ascii_name(const char *name, bool name_is_ascii, const char *candidate) {
    if (!name_is_ascii) return StricmpUTF8_L(name, candidate) == 0;
    for (const char *a = name, *b = candidate;; ++a, ++b) {
        const auto x = static_cast<unsigned char>(*a), y = static_cast<unsigned char>(*b);
        if (y >= 0x80) return StricmpUTF8_L(name, candidate) == 0;
        const auto lower_x = static_cast<unsigned char>(x >= 'A' && x <= 'Z' ? x | 0x20 : x);
        const auto lower_y = static_cast<unsigned char>(y >= 'A' && y <= 'Z' ? y | 0x20 : y);
        if (lower_x != lower_y) return false;
        if (x == '\0') return true;
    }
}

const ExpFunction *find_in(const ExpFunction *table, const char *name, bool ascii) {
    for (const ExpFunction *row = table; row != nullptr && row->name != nullptr; ++row)
        if (same_ascii_name(name, ascii, row->name)) return row;
    return nullptr;
}

} // namespace

namespace qv::express {

uint32_t argument_flags(const ExpFunction &record, int32_t index) {
    if (record.repeat == 0) return index < QV_MAX_ARGUMENTS ? record.arg_types[index] : 0;
    int32_t listed = QV_MAX_ARGUMENTS;
    while (listed > 0 && record.arg_types[listed - 1] == 0) --listed;
    if (listed == 0) return 0;
    return record.arg_types[index < listed ? index : listed - 1];
}

bool same_name(const char *name, const char *candidate) {
    return same_ascii_name(name, IsASCIIString_L(name, -1) != 0, candidate);
}

int32_t Parser::parse_expression(int32_t mask, QV_LIST_T *items) {
    items_ = items;
    last_ = counted_ = nullptr;
    operators().clear();
    return parse_level(mask, 0);
}

bool Parser::parse_call(Token &name, int32_t mask, QV_LIST_T *items) {
    items_ = items;
    last_ = counted_ = nullptr;
    operators().clear();
    const Peek open = peek_row(mask);
    if (open.row == nullptr || open.row->kind != EXP_TOKEN_OPEN)
        return fail(QV_MSG_ARGUMENT_LIST_BROKEN, open.at) != 0;
    take_row(open);
    return call(name, mask, 0, false);
}

int32_t Parser::parse_level(int32_t mask, int32_t nesting) {
    if (nesting > nesting_limit_) return fail(QV_MSG_RECURSION_LIMIT, at_);
    const std::size_t base = operators().size();
    const int32_t first = item_count_;
    bool operand_due = true;
    Token token;
    for (;;) {
        const int32_t kind = next_token(mask, token);
        if (kind == 0) return 0;
        if (ends_expression(kind)) {
            if (operand_due && (item_count_ > first || operators().size() > base))
                return fail(QV_MSG_OPERATOR_OUT_OF_PLACE, token.item.position);
            if (!pop_above(base)) return 0;
            stop_ = token.item.position;
            return kind;
        }
        if (is_statement_keyword(kind))
            return fail(QV_MSG_KEYWORD_IN_EXPRESSION, token.item.position);
        const Step step =
            operand_due ? operand(token, mask, nesting, base) : binary(token, mask, base);
        if (step == Step::failed) return 0;
        operand_due = step == Step::operand_due;
    }
}

// A token where an operand is due.
Parser::Step Parser::operand(Token &token, int32_t mask, int32_t nesting, std::size_t base) {
    auto done = [](bool ok) { return ok ? Step::operand_done : Step::failed; };
    switch (token.kind) {
        case EXP_TOKEN_LITERAL:
        case EXP_TOKEN_VARIABLE: return done(emit(token.item) != nullptr);
        case EXP_TOKEN_NAME: {
            const Peek next = peek_row(mask);
            if (next.row == nullptr || next.row->kind != EXP_TOKEN_OPEN)
                return done(emit(token.item) != nullptr);
            take_row(next);
            return done(call(token, mask, nesting, false));
        }
        case EXP_TOKEN_OPEN: return done(subexpression(mask, nesting));
        case EXP_TOKEN_OPERATOR:
            if (operator_code(token) == EXP_OP_SUBTRACT)
                return done(unary_minus(token, mask, nesting, base));
            if (operator_code(token) == EXP_OP_NOT)
                return push(EXP_OP_NOT, token.item.position, token.item.names, base, true)
                           ? Step::operand_due
                           : Step::failed;
            fail(QV_MSG_OPERATOR_OUT_OF_PLACE, token.item.position);
            return Step::failed;
        default: fail(QV_MSG_OPERAND_OUT_OF_PLACE, token.item.position); return Step::failed;
    }
}

// A token where an operator is due. NOT must form NOT IN, NOT LIKE or NOT BETWEEN with the
// word after it; IS takes a NOT after it as IS NOT. IN and BETWEEN read their right side.
Parser::Step Parser::binary(Token &token, int32_t mask, std::size_t base) {
    if (token.kind != EXP_TOKEN_OPERATOR) {
        fail(QV_MSG_OPERAND_OUT_OF_PLACE, token.item.position);
        return Step::failed;
    }
    int32_t code = operator_code(token);
    const char *const *text = token.item.names;
    if (code == EXP_OP_NOT || code == EXP_OP_IS) {
        const Peek next = peek_row(mask);
        const int32_t after = next.row != nullptr && next.row->kind == EXP_TOKEN_OPERATOR
                                  ? next.row->operator_code
                                  : 0;
        const int32_t fused = code == EXP_OP_NOT    ? not_fused_with(after)
                              : after == EXP_OP_NOT ? EXP_OP_IS_NOT
                                                    : 0;
        if (code == EXP_OP_NOT && fused == 0) {
            fail(QV_MSG_KEYWORD_EXPECTED, next.at, {"IN, LIKE or BETWEEN"});
            return Step::failed;
        }
        if (fused != 0) {
            take_row(next);
            code = fused;
            text = &operator_row(fused)->text;
        }
    }
    if (!push(code, token.item.position, text, base, false)) return Step::failed;
    switch (code) {
        case EXP_OP_IN:
        case EXP_OP_NOT_IN: return in_list(mask) ? Step::operand_done : Step::failed;
        case EXP_OP_BETWEEN:
        case EXP_OP_NOT_BETWEEN: return between(mask) ? Step::operand_done : Step::failed;
        default: return Step::operand_due;
    }
}

// Any number of "-" signs before an operand: an odd number negates a number literal in
// place, flags any other operand, and puts the unary minus before a parenthesis.
bool Parser::unary_minus(Token &token, int32_t mask, int32_t nesting, std::size_t base) {
    const uint32_t sign_at = token.item.position;
    bool odd = true;
    int32_t kind;
    while ((kind = next_token(mask, token)) == EXP_TOKEN_OPERATOR &&
           operator_code(token) == EXP_OP_SUBTRACT)
        odd = !odd;
    switch (kind) {
        case 0: return false;
        case EXP_TOKEN_LITERAL:
            if (odd && !negate_literal(token.item.value))
                return fail(QV_MSG_NEGATED_NON_NUMBER, sign_at) != 0;
            return emit(token.item) != nullptr;
        case EXP_TOKEN_VARIABLE:
            token.item.negate = odd ? 1 : 0;
            return emit(token.item) != nullptr;
        case EXP_TOKEN_NAME: {
            const Peek next = peek_row(mask);
            if (next.row != nullptr && next.row->kind == EXP_TOKEN_OPEN) {
                take_row(next);
                return call(token, mask, nesting, odd);
            }
            token.item.negate = odd ? 1 : 0;
            return emit(token.item) != nullptr;
        }
        case EXP_TOKEN_OPEN:
            if (odd &&
                !push(EXP_OP_NEGATE, sign_at, &operator_row(EXP_OP_NEGATE)->text, base, true))
                return false;
            return subexpression(mask, nesting);
        default:
            if (is_statement_keyword(kind))
                return fail(QV_MSG_KEYWORD_IN_EXPRESSION, token.item.position) != 0;
            return fail(QV_MSG_OPERATOR_OUT_OF_PLACE, token.item.position) != 0;
    }
}

// A name followed by "(" (already read): the function it names, then its arguments, each
// an expression of its own ended by "," or ")". An empty argument is a NULL literal, except
// that F() has no arguments.
bool Parser::call(Token &name, int32_t mask, int32_t nesting, bool negate) {
    EXP_ITEM_T &item = name.item;
    const ExpFunction *record = find_function(item);
    if (record == nullptr) return false;
    item.kind = EXP_ITEM_FUNCTION;
    item.function = record;
    item.negate = negate ? 1 : 0;
    const uint32_t at = item.position;
    EXP_ITEM_T *placed = nullptr;
    if (order_ == Order::text && (placed = emit(item)) == nullptr) return false;
    int32_t count = 0;
    for (;;) {
        const uint32_t flags = argument_flags(*record, count);
        const int32_t argument_mask = (mask & ~EXP_MASK_SCRIPT) | EXP_MASK_COMMA |
                                      ((flags & QV_TYPE_BOOLEAN) != 0 ? EXP_MASK_CONDITION : 0);
        const int32_t before = item_count_;
        const int32_t kind = parse_level(argument_mask, nesting + 1);
        if (kind == 0) return false;
        if (kind == EXP_TOKEN_END) return fail(QV_MSG_TEXT_ENDED_IN_LIST, stop_) != 0;
        if (kind != EXP_TOKEN_COMMA && kind != EXP_TOKEN_CLOSE)
            return fail(QV_MSG_ARGUMENT_LIST_BROKEN, stop_) != 0;
        if (item_count_ == before) {
            if (kind == EXP_TOKEN_CLOSE && count == 0) break; // F()
            if (!emit_null(stop_)) return false;
        } else if (flags == QV_TYPE_POINTER && item_count_ == before + 1 &&
                   last_->kind == EXP_ITEM_NAME) {
            last_->value.descriptor.type = QV_TYPE_POINTER;
        }
        ++count;
        if (kind == EXP_TOKEN_CLOSE) break;
    }
    if (static_cast<uint32_t>(count) < record->min_args)
        return fail(QV_MSG_TOO_FEW_ARGUMENTS, at, {record->name}) != 0;
    if (record->max_args != QV_UNLIMITED_ARGUMENTS &&
        static_cast<uint32_t>(count) > record->max_args)
        return fail(QV_MSG_TOO_MANY_ARGUMENTS, at, {record->name}) != 0;
    if (placed != nullptr) {
        placed->argument_count = count;
        return true;
    }
    item.argument_count = count;
    return emit(item) != nullptr;
}

// The function a name stands for: its parts joined by "." looked up in the caller's tables
// in order, then in the built-in table. Fails when there is none.
const ExpFunction *Parser::find_function(const EXP_ITEM_T &name) {
    String joined;
    const char *text = name.names[0];
    if (name.name_count > 1) {
        for (int32_t i = 0; i < name.name_count; ++i) {
            if (i > 0) joined += '.';
            joined += name.names[i];
        }
        text = joined.c_str();
    }
    const bool ascii = IsASCIIString_L(text, -1) != 0;
    for (int32_t t = 0; t < table_count_; ++t)
        if (const ExpFunction *row = find_in(tables_[t], text, ascii)) return row;
    if (const ExpFunction *row = find_in(Get_BuiltInFns_L(), text, ascii)) return row;
    fail(QV_MSG_FUNCTION_NOT_FOUND, name.position, {text});
    return nullptr;
}

// "(" outside a call (already read): an expression that must end with ")".
bool Parser::subexpression(int32_t mask, int32_t nesting) {
    const int32_t before = item_count_;
    const int32_t kind = parse_level(mask, nesting + 1);
    if (kind == 0) return false;
    if (kind == EXP_TOKEN_END) return fail(QV_MSG_TEXT_ENDED_IN_LIST, stop_) != 0;
    if (kind != EXP_TOKEN_CLOSE) return fail(QV_MSG_ARGUMENT_LIST_BROKEN, stop_) != 0;
    if (item_count_ == before) return fail(QV_MSG_OPERATOR_OUT_OF_PLACE, stop_) != 0;
    return true;
}

// The list after IN: "(", simple operands separated by ",", ")".
bool Parser::in_list(int32_t mask) {
    const int32_t list_mask = mask | EXP_MASK_COMMA;
    Token token;
    int32_t kind = next_token(list_mask, token);
    if (kind == 0) return false;
    if (kind != EXP_TOKEN_OPEN) return fail(QV_MSG_IN_LIST_EXPECTED, token.item.position) != 0;
    int32_t count = 0;
    for (;;) {
        if (!simple_operand(list_mask)) return false;
        ++count;
        kind = next_token(list_mask, token);
        if (kind == 0) return false;
        if (kind == EXP_TOKEN_CLOSE) break;
        if (kind == EXP_TOKEN_END) return fail(QV_MSG_TEXT_ENDED_IN_LIST, token.item.position) != 0;
        if (kind != EXP_TOKEN_COMMA)
            return fail(QV_MSG_ARGUMENT_LIST_BROKEN, token.item.position) != 0;
    }
    set_count(count);
    return true;
}

// The bounds after BETWEEN: a simple operand, AND, a simple operand.
bool Parser::between(int32_t mask) {
    if (!simple_operand(mask)) return false;
    Token token;
    const int32_t kind = next_token(mask, token);
    if (kind == 0) return false;
    if (operator_code(token) != EXP_OP_AND)
        return fail(QV_MSG_KEYWORD_EXPECTED, token.item.position, {"AND"}) != 0;
    if (!simple_operand(mask)) return false;
    set_count(2);
    return true;
}

// Any number of "-" signs, then one literal, name or variable.
bool Parser::simple_operand(int32_t mask) {
    Token token;
    uint32_t sign_at = 0;
    int32_t signs = 0;
    int32_t kind;
    while ((kind = next_token(mask, token)) == EXP_TOKEN_OPERATOR &&
           operator_code(token) == EXP_OP_SUBTRACT)
        if (signs++ == 0) sign_at = token.item.position;
    if (kind == 0) return false;
    if (kind != EXP_TOKEN_LITERAL && kind != EXP_TOKEN_NAME && kind != EXP_TOKEN_VARIABLE)
        return fail(QV_MSG_SIMPLE_OPERAND_EXPECTED, token.item.position) != 0;
    if (signs % 2 != 0) {
        if (kind != EXP_TOKEN_LITERAL)
            token.item.negate = 1;
        else if (!negate_literal(token.item.value))
            return fail(QV_MSG_NEGATED_NON_NUMBER, sign_at) != 0;
    }
    return emit(token.item) != nullptr;
}

// ---- The output ----------------------------------------------------------------------

// Postfix: a binary operator first sends every waiting operator of no lower precedence to
// the output; a prefix operator sends nothing. Text order: the operator goes out at once.
bool Parser::push(int32_t code, uint32_t position, const char *const *text, std::size_t base,
                  bool prefix) {
    if (order_ == Order::text) {
        counted_ = emit_operator(code, position, text, 0);
        return counted_ != nullptr;
    }
    const int32_t precedence = operator_row(code)->precedence;
    Vector<Pending> &stack = operators();
    if (!prefix)
        while (stack.size() > base && stack.back().precedence >= precedence) {
            const Pending top = stack.back();
            stack.pop_back();
            if (emit_operator(top.code, top.position, top.text, top.count) == nullptr) return false;
        }
    stack.push_back({code, precedence, position, 0, text});
    return true;
}

bool Parser::pop_above(std::size_t base) {
    Vector<Pending> &stack = operators();
    while (stack.size() > base) {
        const Pending top = stack.back();
        stack.pop_back();
        if (emit_operator(top.code, top.position, top.text, top.count) == nullptr) return false;
    }
    return true;
}

void Parser::set_count(int32_t count) {
    if (order_ == Order::text)
        counted_->argument_count = count;
    else
        operators().back().count = count;
}

// Appends a copy of `item` to the list; the list owns what the item owned from then on.
// Null after an allocation failure, the item still the caller's.
EXP_ITEM_T *Parser::emit(EXP_ITEM_T &item) {
    void *data = Append_List_Item_L(items_, &item, sizeof item);
    if (data == nullptr) {
        allocation_failed();
        return nullptr;
    }
    item = EXP_ITEM_T{};
    ++item_count_;
    return last_ = static_cast<EXP_ITEM_T *>(data);
}

EXP_ITEM_T *Parser::emit_operator(int32_t code, uint32_t position, const char *const *text,
                                  int32_t count) {
    EXP_ITEM_T item{};
    item.kind = EXP_ITEM_OPERATOR;
    item.position = position;
    item.names = const_cast<char **>(text); // constant texts: owns_names stays 0
    item.name_count = 1;
    item.display = const_cast<char *>(*text);
    item.op = operator_row(code);
    item.argument_count = count;
    return emit(item);
}

// The NULL that stands for an empty argument.
bool Parser::emit_null(uint32_t position) {
    EXP_ITEM_T item{};
    item.kind = EXP_ITEM_LITERAL;
    item.position = position;
    item.names = const_cast<char **>(&null_row()->text);
    item.name_count = 1;
    item.display = const_cast<char *>(null_row()->text);
    item.constant = 1;
    item.value.is_null = 1;
    return emit(item) != nullptr;
}

} // namespace qv::express
