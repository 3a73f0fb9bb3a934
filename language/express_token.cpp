// express_token.cpp - the token and operator tables and the tokenizer (module "express").
//
// The tokenizer reads one token at a time from a UTF-8 text, in this order: blanks and
// "//" comments are skipped; then a quoted literal ('...'), a double-quoted name, a braced
// variable ({$...}), a variable ($name), a row of the token table (tried in its order; in
// script context then the loop keywords), the placeholder "?", a name, a number; anything
// else is an unexpected character. The table is searched through a per-byte index of the
// rows a text's first byte can start, which keeps the rows' order. A token fills a parse
// item: literals carry their value, names their parts in one heap block, operators their
// row of the operator table; keywords and punctuation point at the table's own texts.
#define QV_MODULE "express"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "core/raise.hpp"
#include "dataline/dataline.hpp"
#include "language/express.hpp"
#include "qv/date.h"
#include "qv/dataval.h"
#include "qv/encoding.h"
#include "qv/message.h"
#include "qv/precise.h"
#include "qv/qvstrlib.h"

namespace {

using qv::dataline::NamePart;

// Tried in this order; the first row whose text matches wins.
constexpr EXP_TOKEN_T token_table[] = {
    {"NULL", EXP_TOKEN_LITERAL, 1, 0, 1},
    {"TRUE", EXP_TOKEN_LITERAL, 1, 0, 1},
    {"FALSE", EXP_TOKEN_LITERAL, 1, 0, 1},
    {"(", EXP_TOKEN_OPEN, 1, 0, 0},
    {")", EXP_TOKEN_CLOSE, 1, 0, 0},
    {",", EXP_TOKEN_COMMA, 8, 0, 0},
    {";", EXP_TOKEN_SEMICOLON, 1, 0, 0},
    {"&", EXP_TOKEN_OPERATOR, 1, EXP_OP_ARRAY, 0},
    {"+", EXP_TOKEN_OPERATOR, 1, EXP_OP_ADD, 0},
    {"-", EXP_TOKEN_OPERATOR, 1, EXP_OP_SUBTRACT, 0},
    {"*", EXP_TOKEN_OPERATOR, 1, EXP_OP_MULTIPLY, 0},
    {"/", EXP_TOKEN_OPERATOR, 1, EXP_OP_DIVIDE, 0},
    {"=", EXP_TOKEN_OPERATOR, 4, EXP_OP_EQUAL, 0},
    {"!=", EXP_TOKEN_OPERATOR, 4, EXP_OP_NOT_EQUAL, 0},
    {">=", EXP_TOKEN_OPERATOR, 4, EXP_OP_GREATER_EQUAL, 0},
    {">", EXP_TOKEN_OPERATOR, 4, EXP_OP_GREATER, 0},
    {"<>", EXP_TOKEN_OPERATOR, 4, EXP_OP_NOT_EQUAL, 0},
    {"<=", EXP_TOKEN_OPERATOR, 4, EXP_OP_LESS_EQUAL, 0},
    {"<", EXP_TOKEN_OPERATOR, 4, EXP_OP_LESS, 0},
    {"IS", EXP_TOKEN_OPERATOR, 4, EXP_OP_IS, 1},
    {"IN", EXP_TOKEN_OPERATOR, 4, EXP_OP_IN, 1},
    {"BETWEEN", EXP_TOKEN_OPERATOR, 4, EXP_OP_BETWEEN, 1},
    {"LIKE", EXP_TOKEN_OPERATOR, 4, EXP_OP_LIKE, 1},
    {"NOT", EXP_TOKEN_OPERATOR, 4, EXP_OP_NOT, 1},
    {"AND", EXP_TOKEN_OPERATOR, 4, EXP_OP_AND, 1},
    {"OR", EXP_TOKEN_OPERATOR, 4, EXP_OP_OR, 1},
    {"IF", EXP_TOKEN_IF, 2, 0, 1},
    {"THEN", EXP_TOKEN_THEN, 2, 0, 1},
    {"ELSE", EXP_TOKEN_ELSE, 2, 0, 1},
    {"CASE", EXP_TOKEN_CASE, 2, 0, 1},
    {"OF", EXP_TOKEN_OF, 2, 0, 1},
    {"DEFAULT", EXP_TOKEN_DEFAULT, 2, 0, 1},
    {"WHILE", EXP_TOKEN_WHILE, 2, 0, 1},
    {"DO", EXP_TOKEN_DO, 2, 0, 1},
    {"RETURN", EXP_TOKEN_RETURN, 2, 0, 1},
    {"BEGIN", EXP_TOKEN_BEGIN, 2, 0, 1},
    {"END", EXP_TOKEN_END_KEYWORD, 2, 0, 1},
    {":=", EXP_TOKEN_ASSIGN, 34, 0, 0},
    {":", EXP_TOKEN_COLON, 2, 0, 0},
    {nullptr, 0, 0, 0, 0},
};
constexpr std::size_t token_rows = std::size(token_table) - 1;
static_assert(token_rows == 39);

constexpr bool same_text(const char *a, const char *b) {
    while (*a != '\0' && *a == *b) ++a, ++b;
    return *a == *b;
}
constexpr std::size_t row_of(const char *text) {
    std::size_t i = 0;
    while (i < token_rows && !same_text(token_table[i].text, text)) ++i;
    return i;
}
// A longer spelling must be tried before its prefix.
static_assert(row_of(">=") < row_of(">") && row_of("<>") < row_of("<") &&
              row_of("<=") < row_of("<") && row_of(":=") < row_of(":") &&
              row_of("!=") < token_rows);
static_assert(row_of("NULL") == 0 && row_of("TRUE") == 1 && row_of("FALSE") == 2 &&
              row_of(":") == 38);

// The counted loop's keywords, recognised in script context only, after the table.
constexpr EXP_TOKEN_T loop_table[] = {
    {"FOR", EXP_TOKEN_FOR, EXP_MASK_SCRIPT, 0, 1},
    {"TO", EXP_TOKEN_TO, EXP_MASK_SCRIPT, 0, 1},
    {"DOWNTO", EXP_TOKEN_DOWNTO, EXP_MASK_SCRIPT, 0, 1},
};

// The operator table, found by code.
constexpr OPERATOR_T operator_table[] = {
    {EXP_OP_NEGATE, EXP_CLASS_ARITHMETIC, 7, 1, "-"},
    {EXP_OP_MULTIPLY, EXP_CLASS_ARITHMETIC, 6, 2, "*"},
    {EXP_OP_DIVIDE, EXP_CLASS_ARITHMETIC, 6, 2, "/"},
    {EXP_OP_ARRAY, EXP_CLASS_LIST, 6, 2, "&"},
    {EXP_OP_ADD, EXP_CLASS_ARITHMETIC, 5, 2, "+"},
    {EXP_OP_SUBTRACT, EXP_CLASS_ARITHMETIC, 5, 2, "-"},
    {EXP_OP_EQUAL, EXP_CLASS_COMPARISON, 4, 2, "="},
    {EXP_OP_NOT_EQUAL, EXP_CLASS_COMPARISON, 4, 2, "!="},
    {EXP_OP_GREATER_EQUAL, EXP_CLASS_COMPARISON, 4, 2, ">="},
    {EXP_OP_GREATER, EXP_CLASS_COMPARISON, 4, 2, ">"},
    {EXP_OP_LESS_EQUAL, EXP_CLASS_COMPARISON, 4, 2, "<="},
    {EXP_OP_LESS, EXP_CLASS_COMPARISON, 4, 2, "<"},
    {EXP_OP_IS, EXP_CLASS_COMPARISON, 4, 2, "IS"},
    {EXP_OP_IS_NOT, EXP_CLASS_COMPARISON, 4, 2, "IS NOT"},
    {EXP_OP_IN, EXP_CLASS_COMPARISON, 4, 2, "IN"},
    {EXP_OP_NOT_IN, EXP_CLASS_COMPARISON, 4, 2, "NOT IN"},
    {EXP_OP_LIKE, EXP_CLASS_COMPARISON, 4, 2, "LIKE"},
    {EXP_OP_NOT_LIKE, EXP_CLASS_COMPARISON, 4, 2, "NOT LIKE"},
    {EXP_OP_BETWEEN, EXP_CLASS_COMPARISON, 4, 3, "BETWEEN"},
    {EXP_OP_NOT_BETWEEN, EXP_CLASS_COMPARISON, 4, 3, "NOT BETWEEN"},
    {EXP_OP_NOT, EXP_CLASS_LOGICAL, 3, 1, "NOT"},
    {EXP_OP_AND, EXP_CLASS_LOGICAL, 2, 2, "AND"},
    {EXP_OP_OR, EXP_CLASS_LOGICAL, 1, 2, "OR"},
};
constexpr int32_t highest_operator = EXP_OP_OR;
constexpr auto operator_index = [] {
    std::array<const OPERATOR_T *, highest_operator + 1> index{};
    for (const OPERATOR_T &row : operator_table) index[row.code] = &row;
    return index;
}();
static_assert(std::size(operator_table) == highest_operator);

constexpr std::size_t length_of(const char *text) {
    std::size_t n = 0;
    while (text[n] != '\0') ++n;
    return n;
}

template <std::size_t N>
constexpr auto lengths_of(const EXP_TOKEN_T (&rows)[N]) {
    std::array<uint8_t, N> lengths{};
    for (std::size_t i = 0; i < N; ++i)
        lengths[i] = rows[i].text != nullptr ? static_cast<uint8_t>(length_of(rows[i].text)) : 0;
    return lengths;
}
constexpr auto token_lengths = lengths_of(token_table);
constexpr auto loop_lengths = lengths_of(loop_table);

// For each first byte, the rows (indices into token_table, in table order) whose text
// starts with it.
constexpr std::size_t bucket_size = 3;
constexpr auto row_buckets = [] {
    std::array<std::array<int8_t, bucket_size>, 256> buckets{};
    for (auto &bucket : buckets) bucket.fill(-1);
    auto add = [&](unsigned char byte, std::size_t row) {
        std::size_t slot = 0;
        while (buckets[byte][slot] >= 0) ++slot; // overflow fails the constant evaluation
        buckets[byte][slot] = static_cast<int8_t>(row);
    };
    for (std::size_t row = 0; row < token_rows; ++row)
        add(static_cast<unsigned char>(token_table[row].text[0]), row);
    return buckets;
}();

constexpr bool is_ascii_blank(unsigned char byte) {
    return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

constexpr bool is_ascii_alnum(unsigned char byte) {
    return (byte >= '0' && byte <= '9') || ((byte | 0x20) >= 'a' && (byte | 0x20) <= 'z');
}

// True when the code point at text[at] would continue a word: a letter, digit, "_" or "@".
bool continues_word(std::string_view text, std::size_t at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte < 0x80) return is_ascii_alnum(byte) || byte == '_' || byte == '@';
    return IsAlnumCodePoint_L(qv::dataline::code_point_at(text, at).value) != 0;
}

// True when `row` (of `length` bytes) is spelt at text[at], a word not followed by what
// would continue it. Spellings match exactly: IF is a keyword, If a function name.
bool spelt_at(const EXP_TOKEN_T &row, std::size_t length, std::string_view text, std::size_t at) {
    if (text.size() - at < length || std::memcmp(text.data() + at, row.text, length) != 0)
        return false;
    return row.word == 0 || at + length == text.size() || !continues_word(text, at + length);
}

// A word of either table, which a name spelt the same must be quoted to differ from.
bool is_reserved_word(std::string_view part) {
    if (part.size() < 2 || part.size() > 7 ||
        !std::all_of(part.begin(), part.end(), [](char c) { return c >= 'A' && c <= 'Z'; }))
        return false;
    auto spelt = [&](const EXP_TOKEN_T &row, std::size_t length) {
        return row.word != 0 && length == part.size() &&
               std::memcmp(row.text, part.data(), length) == 0;
    };
    for (std::size_t row = 0; row < token_rows; ++row)
        if (spelt(token_table[row], token_lengths[row])) return true;
    for (std::size_t row = 0; row < std::size(loop_table); ++row)
        if (spelt(loop_table[row], loop_lengths[row])) return true;
    return false;
}

// A part of a name must be quoted when written back unless it reads back as a bare part.
bool needs_quotes(std::string_view text, const NamePart &part) {
    if (part.doubled != 0) return true;
    const std::string_view bytes = text.substr(part.begin, part.end - part.begin);
    if (!part.quoted) return is_reserved_word(bytes); // it was read bare
    if (!qv::dataline::may_start(qv::dataline::code_point_at(bytes, 0).value,
                                 QV_NAME_CLASS_EXPRESSION))
        return true;
    return qv::dataline::bare_part_end(bytes, 0, QV_NAME_CLASS_EXPRESSION) != bytes.size() ||
           is_reserved_word(bytes);
}

constexpr const char *placeholder_text = "?";

int32_t parenthesis_depth = 0;

} // namespace

namespace qv::express {

const OPERATOR_T *operator_row(int32_t code) {
    return code >= 0 && code <= highest_operator ? operator_index[code] : nullptr;
}

const EXP_TOKEN_T *null_row() {
    return &token_table[0];
}

bool negate_literal(QV_VALUE_T &value) {
    switch (value.descriptor.type) {
        case QV_TYPE_INTEGER: // two's complement, as the evaluator negates
            value.payload.integer =
                static_cast<int64_t>(uint64_t{0} - static_cast<uint64_t>(value.payload.integer));
            return true;
        case QV_TYPE_FLOAT: value.payload.real = -value.payload.real; return true;
        case QV_TYPE_NUMBER: ReversePreciseSign_L(&value); return true;
        default: return false;
    }
}

Parser::Parser(std::string_view text, const ExpFunction *const *tables, int32_t table_count,
               int32_t nesting_limit, Order order)
    : text_(text), tables_(tables), table_count_(tables != nullptr ? table_count : 0),
      nesting_limit_(nesting_limit), order_(order) {
    parenthesis_depth = 0;
}

int32_t Parser::fail(uint32_t number, std::size_t position,
                     std::initializer_list<PWParam> parameters) {
    out_of_memory_ = false;
    last_error = {number, static_cast<uint32_t>(position)};
    PWMessage message(number, MESSAGE_SEVERITY_ERROR);
    for (const PWParam &parameter : parameters) message << parameter;
    set_msgbuf(VAMessage_L(&message));
    return 0;
}

bool Parser::allocation_failed() {
    out_of_memory_ = true;
    last_error = {};
    set_msgbuf("not enough memory to parse the expression");
    return false;
}

void Parser::skip_blanks() {
    for (;;) {
        while (at_ < text_.size()) {
            const auto byte = static_cast<unsigned char>(text_[at_]);
            if (byte < 0x80) {
                if (!is_ascii_blank(byte)) break;
                ++at_;
                continue;
            }
            const dataline::CodePoint c = dataline::code_point_at(text_, at_);
            if (IsSpaceCodePoint_L(c.value) == 0) break;
            at_ += c.size;
        }
        if (text_.size() - at_ < 2 || text_[at_] != '/' || text_[at_ + 1] != '/') return;
        const std::size_t line_end = text_.find('\n', at_ + 2);
        at_ = line_end == std::string_view::npos ? text_.size() : line_end + 1;
    }
}

Peek Parser::match_row(int32_t mask, std::size_t at) const {
    for (const int8_t index : row_buckets[static_cast<unsigned char>(text_[at])]) {
        if (index < 0) break;
        const EXP_TOKEN_T &row = token_table[index];
        if ((row.mask & mask) != 0 && spelt_at(row, token_lengths[index], text_, at))
            return {&row, at, at + token_lengths[index]};
    }
    if ((mask & EXP_MASK_SCRIPT) != 0)
        for (std::size_t index = 0; index < std::size(loop_table); ++index)
            if (spelt_at(loop_table[index], loop_lengths[index], text_, at))
                return {&loop_table[index], at, at + loop_lengths[index]};
    return {nullptr, at, at};
}

Peek Parser::peek_row(int32_t mask) {
    const std::size_t was = at_;
    skip_blanks();
    const Peek peek = at_ < text_.size() ? match_row(mask, at_) : Peek{nullptr, at_, at_};
    at_ = was;
    return peek;
}

void Parser::take_row(const Peek &peek) {
    Token ignored;
    ignored.item.position = static_cast<uint32_t>(peek.at);
    row_token(peek.row, peek.end, ignored);
}

// Makes `token` the token of a table row that ends at `end`.
int32_t Parser::row_token(const EXP_TOKEN_T *row, std::size_t end, Token &token) {
    at_ = end;
    EXP_ITEM_T &item = token.item;
    item.names = const_cast<char **>(&row->text); // constant texts: owns_names stays 0
    item.name_count = 1;
    item.display = const_cast<char *>(row->text);
    switch (row->kind) {
        case EXP_TOKEN_LITERAL:
            item.kind = EXP_ITEM_LITERAL;
            item.constant = 1;
            if (row == &token_table[0]) {
                item.value.is_null = 1;
            } else {
                item.value.descriptor.type = QV_TYPE_BOOLEAN;
                item.value.payload.boolean = row == &token_table[1] ? 1 : 0;
            }
            break;
        case EXP_TOKEN_OPEN: ++parenthesis_depth; break;
        case EXP_TOKEN_CLOSE:
            if (--parenthesis_depth < 0) return fail(QV_MSG_UNBALANCED_PARENTHESIS, item.position);
            break;
        case EXP_TOKEN_OPERATOR:
            item.kind = EXP_ITEM_OPERATOR;
            item.op = operator_row(row->operator_code);
            break;
        default: break;
    }
    return token.kind = row->kind;
}

int32_t Parser::next_token(int32_t mask, Token &token) {
    token.clear();
    skip_blanks();
    token.item.position = static_cast<uint32_t>(at_);
    if (at_ >= text_.size()) return token.kind = EXP_TOKEN_END;
    const char first = text_[at_];
    if (first == '\'') return quoted_literal(token);
    if (first == '"') return identifier(token);
    if (first == '{' && at_ + 1 < text_.size() && text_[at_ + 1] == '$')
        return variable(token, true);
    if (first == '$') return variable(token, false);
    if (const Peek row = match_row(mask, at_); row.row != nullptr)
        return row_token(row.row, row.end, token);
    if (first == '?' && (mask & EXP_MASK_PLACEHOLDER) != 0) {
        ++at_;
        token.item.kind = EXP_ITEM_NAME;
        token.item.names = const_cast<char **>(&placeholder_text);
        token.item.name_count = 1;
        token.item.display = const_cast<char *>(placeholder_text);
        return token.kind = EXP_TOKEN_NAME;
    }
    const int32_t c = dataline::code_point_at(text_, at_).value;
    if (dataline::may_start(c, QV_NAME_CLASS_EXPRESSION)) return identifier(token);
    if ((first >= '0' && first <= '9') || first == '.') return number(token);
    return fail(QV_MSG_UNEXPECTED_CHARACTER, at_);
}

// '...' with '' for a quote: a date when the text is a date literal, else a CHAR.
int32_t Parser::quoted_literal(Token &token) {
    NamePart body;
    if (!dataline::closed_part(text_, at_ + 1, '\'', body))
        return fail(QV_MSG_QUOTE_NOT_CLOSED, at_, {"'"});
    const std::size_t size = body.size();
    auto *text = static_cast<char *>(QV_MALLOC(size + 1));
    if (text == nullptr) return allocation_failed();
    *dataline::copy_part(text_, body, text) = '\0';
    at_ = body.end + 1;
    EXP_ITEM_T &item = token.item;
    item.kind = EXP_ITEM_LITERAL;
    item.constant = 1;
    QV_DATE_T date{};
    uint8_t parts = 0;
    const char lead = text[0];
    if (((lead >= '0' && lead <= '9') || lead == '+' || lead == '-') &&
        IsInternalDate_L(text, &date, &parts) != 0) {
        std::free(text);
        const uint32_t type = (parts & QV_DATE_LITERAL_ZONE) != 0 ? QV_TYPE_DATE_TZ : QV_TYPE_DATE;
        SetDateValue_L(&item.value, type, &date);
        return token.kind = EXP_TOKEN_LITERAL;
    }
    QV_VALUE_T &value = item.value;
    value.descriptor.type = QV_TYPE_CHAR;
    value.payload.string.text = text;
    value.payload.string.encoding = IsASCIIString_L(text, static_cast<int32_t>(size)) != 0
                                        ? ASCIIEncoding_L()
                                        : UTF8Encoding_L();
    value.owns_payload = 1;
    value.descriptor.precision = Strlen_SL(&value.payload.string);
    return token.kind = EXP_TOKEN_LITERAL;
}

// Gives `item` its name block: the parts, then (when the name is not one bare part written
// as it reads) its display text. `parts` holds the parts of a name read from the text.
bool Parser::name_item(EXP_ITEM_T &item, std::span<const NamePart> parts) {
    std::size_t display = 0;
    bool plain = parts.size() == 1 && !needs_quotes(text_, parts[0]);
    if (!plain) {
        display = parts.size(); // the dots, and the terminator
        for (const NamePart &part : parts)
            display += needs_quotes(text_, part) ? part.end - part.begin + 2 : part.size();
    }
    char *extra = nullptr;
    char **block = dataline::name_block(text_, parts, display, &extra, QV_MODULE, __LINE__);
    if (block == nullptr) return allocation_failed();
    item.names = block;
    item.name_count = static_cast<int32_t>(parts.size());
    item.owns_names = 1;
    if (plain) {
        item.display = block[0];
        return true;
    }
    item.display = extra;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) *extra++ = '.';
        const NamePart &part = parts[i];
        if (!needs_quotes(text_, part)) {
            extra = dataline::copy_part(text_, part, extra);
            continue;
        }
        *extra++ = '"'; // the bytes between the quotes as written: quotes stay doubled
        std::memcpy(extra, text_.data() + part.begin, part.end - part.begin);
        extra += part.end - part.begin;
        *extra++ = '"';
    }
    *extra = '\0';
    return true;
}

int32_t Parser::identifier(Token &token) {
    NamePart few[8];
    Vector<NamePart> many;
    std::size_t count = 0;
    const dataline::Identifier read =
        dataline::read_identifier(text_, at_, QV_NAME_CLASS_EXPRESSION, [&](const NamePart &part) {
            if (count < std::size(few)) {
                few[count++] = part;
                return;
            }
            if (many.empty()) many.assign(few, few + count);
            many.push_back(part);
            ++count;
        });
    if (read.status == QV_NAME_UNCLOSED_QUOTE)
        return fail(QV_MSG_QUOTE_NOT_CLOSED, read.end, {"\""});
    if (read.status <= 0) return fail(QV_MSG_UNEXPECTED_CHARACTER, read.end);
    at_ = read.end;
    token.item.kind = EXP_ITEM_NAME;
    const std::span<const NamePart> parts =
        many.empty() ? std::span<const NamePart>(few, count) : std::span<const NamePart>(many);
    if (!name_item(token.item, parts)) return 0;
    return token.kind = EXP_TOKEN_NAME;
}

// $name (the longest run of name characters, a ":" before "=" left for ":=") or {$name}
// ("}}" for a "}"). The display is the reference as written.
int32_t Parser::variable(Token &token, bool braces) {
    const std::size_t start = at_;
    NamePart name;
    std::size_t end;
    if (braces) {
        if (!dataline::closed_part(text_, at_ + 2, '}', name))
            return fail(QV_MSG_BRACE_NOT_CLOSED, start, {"}"});
        end = name.end + 1;
    } else {
        name.begin = at_ + 1;
        name.end = end = dataline::bare_part_end(text_, name.begin, QV_NAME_CLASS_EXPRESSION);
    }
    if (name.size() == 0) return fail(QV_MSG_UNEXPECTED_CHARACTER, start);
    char *display = nullptr;
    char **block = dataline::name_block(text_, std::span<const NamePart>(&name, 1), end - start + 1,
                                        &display, QV_MODULE, __LINE__);
    if (block == nullptr) return allocation_failed();
    std::memcpy(display, text_.data() + start, end - start);
    display[end - start] = '\0';
    EXP_ITEM_T &item = token.item;
    item.kind = EXP_ITEM_VARIABLE;
    item.names = block;
    item.name_count = 1;
    item.display = display;
    item.owns_names = 1;
    item.braces = braces ? 1 : 0;
    at_ = end;
    return token.kind = EXP_TOKEN_VARIABLE;
}

// The longest numeric prefix: digits, a decimal point and digits, an exponent with at least
// one digit; converted to the cheapest exact type.
int32_t Parser::number(Token &token) {
    auto digits = [&](std::size_t p) {
        while (p < text_.size() && text_[p] >= '0' && text_[p] <= '9') ++p;
        return p;
    };
    std::size_t end = digits(at_);
    if (end < text_.size() && text_[end] == '.') end = digits(end + 1);
    if (end < text_.size() && (text_[end] == 'e' || text_[end] == 'E')) {
        std::size_t p = end + 1;
        if (p < text_.size() && (text_[p] == '+' || text_[p] == '-')) ++p;
        if (p < text_.size() && text_[p] >= '0' && text_[p] <= '9') end = digits(p);
    }
    const std::string_view spelt = text_.substr(at_, end - at_);
    char few[96];
    String many;
    const char *terminated = few;
    if (spelt.size() < sizeof few) {
        std::memcpy(few, spelt.data(), spelt.size());
        few[spelt.size()] = '\0';
    } else {
        many.assign(spelt);
        terminated = many.c_str();
    }
    EXP_ITEM_T &item = token.item;
    if (StringToBestNumberType_L(terminated, &item.value, 0, nullptr) != 0) {
        last_error = {0, static_cast<uint32_t>(at_)}; // Msgbuf8 holds the conversion's reason
        out_of_memory_ = false;
        return 0;
    }
    item.kind = EXP_ITEM_LITERAL;
    item.constant = 1;
    at_ = end;
    return token.kind = EXP_TOKEN_LITERAL;
}

} // namespace qv::express

extern "C" {

QV_API const EXP_TOKEN_T *Get_Tokens_L(void) {
    return token_table;
}

QV_API const OPERATOR_T *Get_Operator_L(int32_t code) {
    return qv::express::operator_row(code);
}

} // extern "C"
