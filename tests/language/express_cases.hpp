// express_cases.hpp - what the expression-parser suites share: a host table of functions
// with the shapes the parser cares about, a one-line rendering of a parsed item list, and
// the outcome of parsing a text as one comparable string.
//
// Rendering, one word per item, separated by blanks:
//   names and variables   as displayed ("-" before a negated one, ":ptr" after a name
//                         passed as a pointer)
//   literals              NULL, TRUE, FALSE, 'text' (quotes doubled), d'date', and
//                         numbers as their text with "f" after a FLOAT and "n" after a
//                         NUMBER
//   operators             as written, "neg" for the unary minus, "/n" after IN and
//                         BETWEEN with their element count
//   calls                 name/argument count ("-" before a negated one)
#pragma once

#include <algorithm>
#include <string>

#include "capture.hpp"
#include "language/builtin_rows.hpp"
#include "qv/builtin.h"
#include "qv/dataval.h"
#include "qv/express.h"

namespace qvtest {

constexpr int32_t plain = EXP_MASK_EXPRESSION;
constexpr int32_t condition = EXP_MASK_EXPRESSION | EXP_MASK_CONDITION;
constexpr int32_t script = EXP_MASK_EXPRESSION | EXP_MASK_CONDITION | EXP_MASK_SCRIPT;

// Functions as a host table declares them; the parser never calls a handler.
inline ExpFunction host_row(const char *name, uint32_t minimum, uint32_t maximum,
                            std::initializer_list<uint32_t> masks, uint8_t repeat = 0) {
    ExpFunction row = qv::rows::row(name, name, 9000, QV_CATEGORY_MISCELLANEOUS, minimum, maximum,
                                    QV_TYPE_CHAR, repeat, nullptr);
    std::copy(masks.begin(), masks.end(), row.arg_types);
    return row;
}

inline const ExpFunction host_functions[] = {
    host_row("F", 0, QV_UNLIMITED_ARGUMENTS, {QV_MASK_ANY}, 1), // any number of anything
    host_row("G", 1, 2, {QV_MASK_NUMBER, QV_MASK_NUMBER}),      // 1 or 2 numbers
    host_row("If", 3, 3, {QV_MASK_ANY, QV_MASK_ANY, QV_MASK_ANY}),
    host_row("Upper", 1, 1, {QV_MASK_STRING}),
    host_row("Info", 2, 2, {QV_TYPE_POINTER, QV_MASK_STRING}), // a name passed as a pointer
    host_row("Test", 1, 1, {QV_TYPE_BOOLEAN}),                 // a condition
    host_row("Db.Lookup", 1, 1, {QV_MASK_ANY}),                // a dotted name
    host_row("Straße", 1, 1, {QV_MASK_ANY}),
    host_row("Exit", 0, 0, {}), // hides the built-in Exit
    ExpFunction{},
};
inline const ExpFunction *const host_tables[] = {host_functions};

inline std::string render_literal(const QV_VALUE_T &value) {
    if (value.is_null) return "NULL";
    switch (value.descriptor.type) {
        case QV_TYPE_BOOLEAN: return value.payload.boolean ? "TRUE" : "FALSE";
        case QV_TYPE_CHAR: {
            std::string out = "'";
            for (const char *p = value.payload.string.text; *p != '\0'; ++p)
                out += *p == '\'' ? std::string("''") : std::string(1, *p);
            return out + "'";
        }
        case QV_TYPE_DATE:
        case QV_TYPE_DATE_TZ: return "d'" + take(ValueToChar_L(&value)) + "'";
        case QV_TYPE_FLOAT: return take(ValueToChar_L(&value)) + "f";
        case QV_TYPE_NUMBER: return take(ValueToChar_L(&value)) + "n";
        default: return take(ValueToChar_L(&value));
    }
}

inline std::string render(const EXP_ITEM_T &item) {
    const std::string sign = item.negate ? "-" : "";
    switch (item.kind) {
        case EXP_ITEM_LITERAL: return render_literal(item.value);
        case EXP_ITEM_NAME:
            return sign + item.display +
                   (item.value.descriptor.type == QV_TYPE_POINTER ? ":ptr" : "");
        case EXP_ITEM_VARIABLE: return sign + item.display;
        case EXP_ITEM_FUNCTION:
            return sign + item.display + "/" + std::to_string(item.argument_count);
        case EXP_ITEM_OPERATOR:
            if (item.op->code == EXP_OP_NEGATE) return "neg";
            if (item.op->operands != 1 && item.argument_count > 0)
                return std::string(item.display) + "/" + std::to_string(item.argument_count);
            return item.display;
        default: return "?kind" + std::to_string(item.kind);
    }
}

inline std::string render(const EXPRESSION_T *expression) {
    std::string out;
    void *data = nullptr;
    for (QV_LIST_T *p = NextListItem_L(expression->items, &data); p != nullptr;
         p = NextListItem_L(p, &data))
        out += (out.empty() ? "" : " ") + render(*static_cast<const EXP_ITEM_T *>(data));
    return out;
}

inline std::string hex(uint32_t number) {
    char text[16];
    std::snprintf(text, sizeof text, "%08X", number);
    return text;
}

// What parsing `text` under `mask` gives: the rendered items; "nothing" when it returned 0
// without a failure; "error <number>@<position>" after a failure.
inline std::string outcome(const std::string &text, int32_t mask = condition,
                           bool text_order = false) {
    EXPRESSION_T *expression = New_Expression_L(text.c_str());
    int32_t parsed = 0;
    const char *raised = raised_by([&] {
        parsed = (text_order ? Simple_Parse_Expression_L : Parse_Expression_L)(expression, mask,
                                                                               host_tables, 1);
    });
    std::string result;
    if (raised != nullptr) {
        uint32_t position = 0;
        const uint32_t number = GetExpressionError_L(&position);
        result = std::string(raised == GENERAL_ERROR ? "error " : raised) + hex(number) + "@" +
                 std::to_string(position);
    } else {
        result = parsed ? render(expression) : "nothing";
    }
    Free_Expression_L(expression);
    return result;
}

inline std::string error(uint32_t number, uint32_t position) {
    return "error " + hex(number) + "@" + std::to_string(position);
}

} // namespace qvtest
