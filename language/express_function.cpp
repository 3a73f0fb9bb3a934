// express_function.cpp - user-defined functions declared in the script language (module
// "express"): the declaration reader, the registry's records filled from a declaration,
// and the parsing and validation of every body of the current function array.
//
// A text of declarations is read twice. The first reading takes each header (name,
// parameters and their types, the result type) and skips its body by counting BEGIN and
// CASE against END, so that every function of the text is known before any body is
// parsed: bodies may call each other in any order. Each function then gets its user-
// function record (NewFunction) with its function record, and keeps the text of its whole
// declaration; its body is parsed from that text, the header read again and passed over.
// Because a declaration moves the function records that call items point at, every body
// of the array is parsed again after each declaration, then all are validated.
#define QV_MODULE "express"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/raise.hpp"
#include "language/builtin.hpp"
#include "language/express_script.hpp"
#include "qv/datatype.h"
#include "qv/message.h"

namespace {

using namespace qv::express;

constexpr int32_t declaration_mask = script_mask | EXP_MASK_COMMA;

// The types an argument may have, by the parameter's declared type.
struct Accepted {
    uint32_t type;
    uint32_t mask;
};
constexpr Accepted accepted_types[] = {
    {0, QV_MASK_ANY},
    {QV_TYPE_INTEGER, QV_MASK_NUMBER},
    {QV_TYPE_FLOAT, QV_MASK_NUMBER},
    {QV_TYPE_NUMBER, QV_MASK_NUMBER},
    {QV_TYPE_CHAR, QV_MASK_ANY_BUT_ARRAY},
    {QV_TYPE_CLOB, QV_MASK_ANY_BUT_ARRAY},
    {QV_TYPE_DATE, QV_MASK_DATE | QV_TYPE_CHAR},
    {QV_TYPE_DATE_TZ, QV_MASK_DATE | QV_TYPE_CHAR},
    {QV_TYPE_TIME, QV_TYPE_TIME | QV_TYPE_TIME_TZ | QV_TYPE_CHAR},
    {QV_TYPE_TIME_TZ, QV_TYPE_TIME | QV_TYPE_TIME_TZ | QV_TYPE_CHAR},
    {QV_TYPE_BINARY, QV_TYPE_BINARY | QV_TYPE_BLOB},
    {QV_TYPE_BLOB, QV_TYPE_BINARY | QV_TYPE_BLOB},
};

uint32_t accepted_mask(uint32_t type) {
    for (const Accepted &row : accepted_types)
        if (row.type == type) return row.mask;
    return type; // BOOLEAN, ARRAY, the intervals: their own type
}

struct Parameter {
    qv::String name; // without "$"
    qv::String shown;
    QV_DATATYPE_T type{};
};

struct Header {
    qv::String name;
    uint32_t position = 0;
    qv::Vector<Parameter> parameters;
    QV_DATATYPE_T result{};
    qv::String result_shown;
    std::size_t start = 0, end = 0; // the declaration: FUNCTION to its END
};

// Reads declarations from a parser. Every failure is recorded in the parser.
class DeclarationReader {
  public:
    DeclarationReader(Parser &parser, std::string_view text) : parser_(parser), text_(text) {}

    // FUNCTION name ( parameters ) [RETURNS type], leaving the parser before BEGIN.
    bool header(Header &out) {
        Token token;
        if (next(token) != EXP_TOKEN_NAME || !spelt(token, "FUNCTION"))
            return expected(token, "FUNCTION");
        out.start = token.item.position;
        if (next(token) != EXP_TOKEN_NAME || token.item.name_count != 1)
            return expected(token, "the function's name");
        out.name = token.item.names[0];
        out.position = token.item.position;
        if (!take(EXP_TOKEN_OPEN, "'('") || !parameters(out)) return false;
        const Peek after = parser_.peek_row(declaration_mask);
        if (after.row == nullptr) { // a name: RETURNS
            if (next(token) != EXP_TOKEN_NAME || !spelt(token, "RETURNS"))
                return expected(token, "RETURNS or BEGIN");
            if (!type(out.result, out.result_shown)) return false;
        }
        const Peek begin = parser_.peek_row(declaration_mask);
        if (begin.row == nullptr || begin.row->kind != EXP_TOKEN_BEGIN)
            return parser_.fail(QV_MSG_DECLARATION_EXPECTED, begin.at, {"BEGIN"}) != 0;
        return true;
    }

    // BEGIN ... END, its statements passed over; `end` receives the position after END.
    bool skip_body(std::size_t &end) {
        Token token;
        int32_t open = 0;
        uint32_t opened_at = 0;
        do {
            const int32_t kind = next(token);
            if (kind == 0) return false;
            if (kind == EXP_TOKEN_END)
                return parser_.fail(QV_MSG_END_EXPECTED, token.item.position, {opened_at}) != 0;
            if (kind == EXP_TOKEN_BEGIN || kind == EXP_TOKEN_CASE) {
                if (open++ == 0) opened_at = token.item.position;
            } else if (kind == EXP_TOKEN_END_KEYWORD) {
                --open;
            }
        } while (open > 0);
        end = parser_.position();
        return true;
    }

    // Declarations to the end of the text, optionally separated by ";".
    bool declarations(qv::Vector<Header> &out) {
        for (;;) {
            Peek peek = parser_.peek_row(declaration_mask);
            while (peek.row != nullptr && peek.row->kind == EXP_TOKEN_SEMICOLON) {
                parser_.take_row(peek);
                peek = parser_.peek_row(declaration_mask);
            }
            if (peek.at >= text_.size()) return !out.empty() || expected_at(peek.at, "FUNCTION");
            Header &read = out.emplace_back();
            if (!header(read) || !skip_body(read.end)) return false;
        }
    }

  private:
    bool parameters(Header &out) {
        const Peek close = parser_.peek_row(declaration_mask);
        if (close.row != nullptr && close.row->kind == EXP_TOKEN_CLOSE) {
            parser_.take_row(close);
            return true;
        }
        Token token;
        for (;;) {
            if (next(token) != EXP_TOKEN_VARIABLE) return expected(token, "a parameter ($name)");
            const char *name = token.item.names[0];
            if (std::any_of(out.parameters.begin(), out.parameters.end(),
                            [&](const Parameter &p) { return same_name(p.name.c_str(), name); }))
                return parser_.fail(QV_MSG_PARAMETER_REPEATED, token.item.position,
                                    {token.item.display}) != 0;
            if (out.parameters.size() == QV_MAX_ARGUMENTS)
                return parser_.fail(QV_MSG_TOO_MANY_PARAMETERS, out.position, {out.name.c_str()}) !=
                       0;
            Parameter &parameter = out.parameters.emplace_back();
            parameter.name = name;
            parameter.shown = token.item.display;
            if (word_next()) {
                qv::String type_shown;
                if (!type(parameter.type, type_shown)) return false;
                parameter.shown.append(" ").append(type_shown);
            }
            const int32_t kind = next(token);
            if (kind == EXP_TOKEN_CLOSE) return true;
            if (kind != EXP_TOKEN_COMMA) return expected(token, "',' or ')'");
        }
    }

    // A data type: its words (DATE WITH TIME ZONE), then "(precision [, scale])" if given.
    bool type(QV_DATATYPE_T &out, qv::String &shown) {
        Token token;
        qv::String written;
        uint32_t at = 0;
        for (;;) {
            const int32_t kind = next(token);
            if ((kind != EXP_TOKEN_NAME || token.item.name_count != 1) && kind != EXP_TOKEN_TO)
                return written.empty()
                           ? expected(token, "a data type")
                           : parser_.fail(QV_MSG_TYPE_UNKNOWN, at, {written.c_str()}) != 0;
            if (written.empty()) at = token.item.position;
            (written.empty() ? written : written.append(" ")).append(token.item.names[0]);
            if (word_next()) continue;
            const Peek after = parser_.peek_row(declaration_mask);
            if (after.row != nullptr && after.row->kind == EXP_TOKEN_OPEN && !size(written))
                return false;
            break;
        }
        const int32_t result = ParseVariableType_L(written.c_str(), &out);
        if (result == QV_PARSE_TYPE_SIZE_MISSING && DataType_L(written.c_str()) == QV_TYPE_CHAR) {
            out = {QV_TYPE_CHAR, 0, 0, 0}; // any length
            shown = "CHAR";
            return true;
        }
        if (result != QV_PARSE_TYPE_OK || out.type == 0)
            return parser_.fail(QV_MSG_TYPE_UNKNOWN, at, {written.c_str()}) != 0;
        qv::HeapText display(DisplayDataType_L(&out, 1));
        shown = display != nullptr ? display.get() : written.c_str();
        return true;
    }

    // "(" ... ")" after a type's name, appended to `written` as it stands.
    bool size(qv::String &written) {
        Token token;
        const std::size_t open = parser_.position();
        next(token); // "("
        for (int32_t kind; (kind = next(token)) != EXP_TOKEN_CLOSE;) {
            if (kind == 0) return false;
            if (kind == EXP_TOKEN_END) return expected(token, "')'");
        }
        written.append(text_.substr(open, parser_.position() - open));
        return true;
    }

    // True when the next token is a word of a type's name: a bare name, or TO (INTERVAL DAY
    // TO SECOND), which the script mask reads as a keyword.
    bool word_next() {
        const Peek after = parser_.peek_row(declaration_mask);
        if (after.row != nullptr) return after.row->kind == EXP_TOKEN_TO;
        const char c = after.at < text_.size() ? text_[after.at] : '\0';
        return (c | 0x20) >= 'a' && (c | 0x20) <= 'z';
    }

    bool take(int32_t kind, const char *what) {
        Token token;
        const int32_t read = next(token);
        return read == kind || (read != 0 && expected(token, what));
    }

    bool expected(const Token &token, const char *what) {
        return token.kind != 0 && expected_at(token.item.position, what);
    }
    bool expected_at(std::size_t position, const char *what) {
        return parser_.fail(QV_MSG_DECLARATION_EXPECTED, position, {what}) != 0;
    }

    static bool spelt(const Token &token, const char *word) {
        return token.item.name_count == 1 && std::strcmp(token.item.names[0], word) == 0;
    }

    int32_t next(Token &token) { return parser_.next_token(declaration_mask, token); }

    Parser &parser_;
    std::string_view text_;
};

// True when no two headers, and no header and a function of the current array, share a
// name.
bool unique(Parser &parser, const qv::Vector<Header> &headers) {
    int32_t count = 0;
    EXP_USER_FUNCTION_T **functions = Get_UserFunctions(&count);
    for (std::size_t i = 0; i < headers.size(); ++i) {
        const char *name = headers[i].name.c_str();
        const bool taken =
            std::any_of(headers.begin(), headers.begin() + static_cast<std::ptrdiff_t>(i),
                        [&](const Header &h) { return same_name(h.name.c_str(), name); }) ||
            std::any_of(functions, functions + count, [&](const EXP_USER_FUNCTION_T *f) {
                return f->id.name != nullptr && same_name(f->id.name, name);
            });
        if (taken) return parser.fail(QV_MSG_FUNCTION_REPEATED, headers[i].position, {name}) != 0;
    }
    return true;
}

// ---- The registry's records --------------------------------------------------------------------

char *copy(const qv::String &text) {
    return QV_STRNDUP(text.data(), text.size());
}

qv::String usage_of(const Header &header, const qv::String &parameters) {
    qv::String usage(header.name);
    usage.append(parameters.empty() ? "()" : "( ").append(parameters);
    if (!parameters.empty()) usage.append(" )");
    if (header.result.type != 0) usage.append(" RETURNS ").append(header.result_shown);
    return usage;
}

// The host tables a function was declared with, kept in its one extra block.
bool keep_tables(EXP_USER_FUNCTION_T &function, const ExpFunction *const *tables, int32_t count) {
    if (tables == nullptr || count <= 0) return true;
    function.extras = static_cast<EXP_EXTRA_T **>(QV_CALLOC(sizeof(EXP_EXTRA_T *)));
    if (function.extras == nullptr) return false;
    function.extras[0] = static_cast<EXP_EXTRA_T *>(QV_CALLOC(sizeof(EXP_EXTRA_T)));
    if (function.extras[0] == nullptr) return false;
    function.extra_count = 1;
    const auto size = static_cast<std::size_t>(count) + 1;
    auto *list = static_cast<const ExpFunction **>(QV_CALLOC(size * sizeof(ExpFunction *)));
    if (list == nullptr) return false;
    std::copy_n(tables, count, list);
    function.extras[0]->owned = list;
    return true;
}

// The tables a function's body is parsed with: a null-ended list, or none.
const ExpFunction *const *kept_tables(const EXP_USER_FUNCTION_T &function, int32_t &count) {
    count = 0;
    if (function.extra_count < 1 || function.extras[0] == nullptr) return nullptr;
    const auto *list = static_cast<const ExpFunction *const *>(function.extras[0]->owned);
    while (list[count] != nullptr) ++count;
    return list;
}

bool fill_parameters(EXP_USER_FUNCTION_T &function, const Header &header) {
    const std::size_t count = header.parameters.size();
    if (count > 0 && (function.parameter_values = static_cast<QV_VALUE_T *>(
                          QV_CALLOC(count * sizeof(QV_VALUE_T)))) == nullptr)
        return false;
    for (std::size_t i = 0; i < count; ++i) {
        const Parameter &parameter = header.parameters[i];
        const QV_DATATYPE_T &type = parameter.type;
        function.parameter_values[i].descriptor = type;
        function.parameter_values[i].is_null = 1;
        if (CreateVariable_L(function.parameters, parameter.name.c_str(), type.type, type.precision,
                             type.scale, nullptr) == nullptr)
            return false;
    }
    return (function.locals = NewVariableArray_L(header.name.c_str())) != nullptr;
}

bool fill_record(ExpFunction &record, const Header &header, const qv::String &parameters) {
    const auto count = static_cast<uint32_t>(header.parameters.size());
    record.category = QV_CATEGORY_USER;
    record.max_args = record.min_args = count;
    record.result_type = header.result.type;
    for (uint32_t i = 0; i < count; ++i)
        record.arg_types[i] = accepted_mask(header.parameters[i].type.type);
    record.name = copy(header.name);
    if (record.name == nullptr) return false;
    record.usage = copy(usage_of(header, parameters));
    return record.usage != nullptr;
}

// Declares one function from its header; `text` is the text of declarations. Null after an
// allocation failure (raised), nothing kept.
EXP_USER_FUNCTION_T *declare(const Header &header, std::string_view text,
                             const ExpFunction *const *tables, int32_t count) {
    EXP_USER_FUNCTION_T *function = NewFunction(header.name.c_str(), nullptr, nullptr, 0);
    if (function == nullptr) return nullptr;
    std::unique_ptr<EXP_USER_FUNCTION_T, decltype(&FreeFunction)> held(function, FreeFunction);
    qv::String parameters;
    for (const Parameter &parameter : header.parameters)
        (parameters.empty() ? parameters : parameters.append(", ")).append(parameter.shown);
    if (!fill_record(*function->record, header, parameters) ||
        !fill_parameters(*function, header) || !keep_tables(*function, tables, count))
        return nullptr;
    const std::string_view declaration = text.substr(header.start, header.end - header.start);
    function->text1 = QV_STRNDUP(declaration.data(), declaration.size());
    function->text2[0] = copy(parameters);
    if (function->text1 == nullptr || function->text2[0] == nullptr) return nullptr;
    if (header.result.type != 0 && (function->text2[1] = copy(header.result_shown)) == nullptr)
        return nullptr;
    return held.release();
}

// True while the body of a function of the current array runs: its functions must stay.
bool running_bodies() {
    int32_t count = 0;
    EXP_USER_FUNCTION_T **functions = Get_UserFunctions(&count);
    return std::any_of(functions, functions + count, [](const EXP_USER_FUNCTION_T *function) {
        const ScriptState *state = function->body != nullptr ? state_of(function->body) : nullptr;
        return state != nullptr && state->running > 0;
    });
}

// ---- Bodies -------------------------------------------------------------------------------------

// Parses a function's body from its declaration, whose header gives the body's result
// type; false after a failure (raised).
bool parse_body(EXP_USER_FUNCTION_T &function) {
    EXPRESSION_T *old = function.body;
    function.body = nullptr;
    qv::free_script(old);
    function.body = New_Script_L(function.text1, function.id.name, "FUNCTION");
    if (function.body == nullptr) return false;
    EXPRESSION_T &body = *function.body;
    ScriptState *state = state_of(&body);
    state->function = &function;
    int32_t count = 0;
    const ExpFunction *const *tables = kept_tables(function, count);
    StatementOptions options;
    options.body = true;
    parse_script(
        &body, tables, count, options,
        [&](Parser &parser) {
            Header header;
            if (!DeclarationReader(parser, body.text).header(header)) return false;
            body.result_type = header.result;
            body.result_declared = header.result.type != 0 ? 1 : 0;
            return true;
        },
        "Declare_Functions_L");
    return state->program != nullptr;
}

// Parses and validates the body of every declared function of the current array, then
// marks them validated.
bool prepare_bodies() {
    int32_t count = 0;
    EXP_USER_FUNCTION_T **functions = Get_UserFunctions(&count);
    for (int32_t i = 0; i < count; ++i)
        if (functions[i]->text1 != nullptr && !parse_body(*functions[i])) return false;
    for (int32_t i = 0; i < count; ++i)
        if (functions[i]->text1 != nullptr && Validate_Script_L(functions[i]->body) != 1)
            return false;
    SetValidatedFunctions_L();
    return true;
}

// The headers of a text of declarations, checked against each other and against the
// functions of the current array. False after a failure (reported, raised).
bool read_headers(std::string_view text, qv::Vector<Header> &headers) {
    recursion_limit = read_recursion_limit();
    Parser parser(text, nullptr, 0, std::clamp(recursion_limit, 0, EXP_MAX_NESTING));
    if (DeclarationReader(parser, text).declarations(headers) && unique(parser, headers)) {
        last_error = {};
        return true;
    }
    if (parser.out_of_memory()) return false; // raised already
    report_failure(text, last_error.position, false);
    QV_RAISE(GENERAL_ERROR);
    return false;
}

} // namespace

extern "C" {

QV_API int32_t Declare_Functions_L(const char *text, const ExpFunction *const *tables,
                                   int32_t table_count) {
    if (text == nullptr || running_bodies()) return -1;
    qv::Vector<EXP_USER_FUNCTION_T *> declared;
    int32_t result = -1;
    qv::guarded(
        "Declare_Functions_L", QV_MODULE, __LINE__,
        [&] {
            result = QV_C_ENTRY([&] {
                const std::string_view all(text);
                qv::Vector<Header> headers;
                if (!read_headers(all, headers)) return -1;
                declared.reserve(headers.size());
                for (const Header &header : headers) {
                    EXP_USER_FUNCTION_T *function = declare(header, all, tables, table_count);
                    if (function == nullptr) return -1;
                    declared.push_back(function);
                }
                return prepare_bodies() ? static_cast<int32_t>(headers.size()) : -1;
            });
        },
        [&](const char *) {
            for (EXP_USER_FUNCTION_T *function : declared) FreeFunction(function);
            result = -1;
            const uint8_t suppressed = SetErrorSuppression_L(1);
            qv::guarded(
                "Declare_Functions_L", QV_MODULE, __LINE__, [] { prepare_bodies(); },
                [](const char *) {});
            SetErrorSuppression_L(suppressed);
            QV_RERAISE();
        });
    return result;
}

} // extern "C"
