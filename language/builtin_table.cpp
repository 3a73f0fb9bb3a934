// builtin_table.cpp - the built-in table, the dummy table and the Exit handlers (module
// "builtin").
//
// The built-in table is one constant array of function records in the order the language
// lays them out (alphabetical by name as first laid out, later additions at the end), ended
// by a record whose name is null. Each row is written with qv::rows (builtin_rows.hpp),
// which checks at compile time that counts, masks and the handler's form agree; the handlers
// live in the files of their families and are declared in qv/builtin.h. The tables are made
// on first use and never change.
#define QV_MODULE "builtin"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <span>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "language/builtin.hpp"
#include "language/builtin_rows.hpp"
#include "qv/builtin.h"
#include "qv/dataval.h"
#include "qv/encoding.h"
#include "qv/precise.h"

static_assert(QV_MASK_NUMBER == 134 && QV_MASK_STRING == 1025 && QV_MASK_DATE == 65544 &&
              QV_MASK_ANY == 130975 && QV_MASK_ANY_BUT_ARRAY == 130719);

namespace {

using qv::rows::form_a;

// Exit takes CHAR, INTEGER, FLOAT, BOOLEAN or NUMBER: 151.
constexpr uint32_t exit_code_types =
    QV_TYPE_CHAR | QV_TYPE_INTEGER | QV_TYPE_FLOAT | QV_TYPE_BOOLEAN | QV_TYPE_NUMBER;
static_assert(exit_code_types == 151);

std::span<const ExpFunction> builtin_rows() {
    static const ExpFunction table[] = {
        form_a<0, 1>("Exit", "Exit( code )", QV_FUNCTION_EXIT, QV_CATEGORY_MISCELLANEOUS,
                     QV_TYPE_BOOLEAN, {exit_code_types}, BI_exit),
        ExpFunction{}, // the terminator
    };
    return table;
}

std::span<const ExpFunction> dummy_rows() {
    static const ExpFunction table[] = {
        form_a<0, 1>("Exit", "Exit( code )", QV_FUNCTION_EXIT, QV_CATEGORY_MISCELLANEOUS,
                     QV_TYPE_BOOLEAN, {QV_MASK_ANY_BUT_ARRAY}, BI_dummy_exit),
        ExpFunction{},
    };
    return table;
}

bool within(std::span<const ExpFunction> table, const ExpFunction *record) {
    std::less<const ExpFunction *> before;
    return !before(record, table.data()) && before(record, table.data() + table.size());
}

int32_t clamped(int64_t code) {
    return static_cast<int32_t>(std::clamp<int64_t>(code, INT32_MIN, INT32_MAX));
}

// The decimal number at the start of a CHAR value's text, as atol reads it.
int32_t code_from_text(const QV_STRING_T &text) {
    if (text.text == nullptr) return 0;
    if (text.encoding == nullptr || text.encoding->ascii_compatible)
        return clamped(std::atol(text.text));
    char *utf8 = nullptr;
    if (ConvertEncoding_L(text.encoding, text.text, -1, UTF8Encoding_L(), &utf8, nullptr) != 0)
        return 0;
    qv::HeapText owned(utf8);
    return owned == nullptr ? 0 : clamped(std::atol(owned.get()));
}

int32_t code_from_number(const QV_VALUE_T &number) {
    int64_t code = 0;
    if (PreciseToInteger_L(&number, &code) == 0) return clamped(code);
    return IsPositivePrecise_L(&number) ? INT32_MAX : INT32_MIN;
}

// The exit code an Exit argument gives.
int32_t exit_code(const QV_VALUE_T *code) {
    if (code == nullptr || code->is_null) return 0;
    switch (code->descriptor.type) {
        case QV_TYPE_INTEGER: return clamped(code->payload.integer);
        case QV_TYPE_FLOAT: {
            double real = code->payload.real;
            if (std::isnan(real)) return 0;
            return static_cast<int32_t>(std::clamp<double>(std::trunc(real), INT32_MIN, INT32_MAX));
        }
        case QV_TYPE_NUMBER: return code_from_number(*code);
        case QV_TYPE_BOOLEAN: return code->payload.boolean != 0;
        case QV_TYPE_CHAR: return code_from_text(code->payload.string);
        default: return 0;
    }
}

// Both Exits: the result is BOOLEAN, and TRUE when evaluating. True when evaluating.
bool exit_result(QV_VALUE_T *result, const EXP_CALL_FRAME_T *frame) {
    SetValueType_L(result, QV_TYPE_BOOLEAN);
    if (frame == nullptr || frame->mode != QV_MODE_EVALUATE) return false;
    result->is_null = 0;
    result->payload.boolean = 1;
    return true;
}

} // namespace

bool qv::is_constant_row(const ExpFunction *record) {
    return within(builtin_rows(), record) || within(dummy_rows(), record);
}

extern "C" {

QV_API const ExpFunction *Get_BuiltInFns_L(void) {
    return builtin_rows().data();
}

QV_API const ExpFunction *Get_DummyBuiltInFns_L(void) {
    return dummy_rows().data();
}

QV_API void BI_exit(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *code) {
    const int32_t status = exit_code(code); // read before the result, which may be the argument
    if (result == nullptr || !exit_result(result, frame)) return;
    except_raise(STATUS_RAISED, QV_MODULE, __LINE__, EXC_RAISE, status, "exit_code");
}

QV_API void BI_dummy_exit(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *) {
    if (result != nullptr) exit_result(result, frame);
}

} // extern "C"
