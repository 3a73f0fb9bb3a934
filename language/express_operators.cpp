// express_operators.cpp - the operators of the expression language (module "express"): one
// general rule per operator, which takes values of any type, and beside it routines for
// the operand types that matter for speed (INTEGER, FLOAT, NUMBER, BOOLEAN, CHAR), chosen
// at validation. A chosen routine checks the operands' types and NULL flags again (a bound
// record may hold another type on a later row) and passes anything it does not expect to
// the general rule, so both always agree.
//
// The rules are those at the top of qv/express.h. Comparisons go through one three-way
// comparison (`order`) that knows the families of types; IN and BETWEEN use it too.
#define QV_MODULE "express"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "core/raise.hpp"
#include "language/express_eval.hpp"
#include "qv/date.h"
#include "qv/message.h"
#include "qv/precise.h"
#include "qv/qvstrlib.h"
#include "values/dataval.hpp"

namespace {

using namespace qv::express;
using qv::values::is_one_of;

constexpr uint32_t kStrings = QV_TYPE_CHAR | QV_TYPE_CLOB;

// ---- Reading operands ----------------------------------------------------------------------

// A value as a double: numbers directly, other types through their conversion.
bool read_real(const QV_VALUE_T &value, double &out) {
    switch (value.descriptor.type) {
        case QV_TYPE_FLOAT: out = value.payload.real; return true;
        case QV_TYPE_INTEGER: out = static_cast<double>(value.payload.integer); return true;
        default: return ValueToDouble_L(&value, &out) == QV_VALUE_OK;
    }
}

void put_truth(QV_VALUE_T &out, Truth truth) {
    if (truth == Truth::unknown)
        put_null(out, QV_TYPE_BOOLEAN);
    else
        put_boolean(out, truth == Truth::yes);
}

Truth negated(Truth truth) {
    return truth == Truth::unknown ? truth : truth == Truth::yes ? Truth::no : Truth::yes;
}

// The text of a value as a counted string: a CHAR's or in-memory CLOB's own, else its text
// form printed into `form`. False for a value without a text form.
bool text_of(const QV_VALUE_T &value, qv::values::TextForm &form, QV_STRING_T &text) {
    if (is_one_of(value.descriptor.type, kStrings) && !qv::values::in_file(value)) {
        text = value.payload.string;
        return true;
    }
    if (!form.make(value)) return false;
    text = {const_cast<char *>(form.data()), form.encoding()};
    return true;
}

// ---- Order -----------------------------------------------------------------------------

constexpr int kUnordered = 2; // a side is NULL, or the pair does not compare

int sign(int64_t left, int64_t right) {
    return (left > right) - (left < right);
}

int order_reals(double left, double right) {
    if (left < right) return -1;
    if (left > right) return 1;
    return left == right ? 0 : kUnordered; // NaN
}

// A value as an exact decimal for a comparison with a NUMBER.
bool read_precise(const QV_VALUE_T &value, QV_PRECISE_T &out) {
    switch (value.descriptor.type) {
        case QV_TYPE_NUMBER: out = value; return true;
        case QV_TYPE_INTEGER: return IntegerToPrecise_L(&out, value.payload.integer, 0) == 0;
        case QV_TYPE_FLOAT:
            return std::isfinite(value.payload.real) &&
                   DoubleToPrecise_L(&out, value.payload.real) == 0;
        default: return ValueToNumber_L(&value, &out) == QV_VALUE_OK;
    }
}

// The family a type compares within through CompareValue_L, or 0.
uint32_t family_of(uint32_t type) {
    for (uint32_t family :
         {QV_TYPE_DATE | QV_TYPE_DATE_TZ, QV_TYPE_TIME | QV_TYPE_TIME_TZ, QV_TYPE_INTERVAL_DS,
          QV_TYPE_INTERVAL_YM, QV_TYPE_BOOLEAN, QV_TYPE_BINARY | QV_TYPE_BLOB, QV_TYPE_ARRAY})
        if (is_one_of(type, family)) return family;
    return 0;
}

int order_texts(const QV_VALUE_T &left, const QV_VALUE_T &right) {
    qv::values::TextForm left_form, right_form;
    QV_STRING_T a{}, b{};
    if (!text_of(left, left_form, a) || !text_of(right, right_form, b)) return kUnordered;
    const int32_t c = Strcomp_SL(&a, &b, -1, 1);
    return (c > 0) - (c < 0);
}

// -1, 0 or 1 as left is below, equal to or above right; kUnordered when either is NULL or
// they do not compare.
int order(const QV_VALUE_T &left, const QV_VALUE_T &right) {
    if (left.is_null != 0 || right.is_null != 0) return kUnordered;
    const uint32_t lt = left.descriptor.type, rt = right.descriptor.type;
    if (is_one_of(lt, kStrings) || is_one_of(rt, kStrings)) return order_texts(left, right);
    if (lt == QV_TYPE_INTEGER && rt == QV_TYPE_INTEGER)
        return sign(left.payload.integer, right.payload.integer);
    if (lt == QV_TYPE_DATE && rt == QV_TYPE_DATE) {
        const int32_t c = CompareInternalDate_L(&left.payload.date, &right.payload.date);
        return (c > 0) - (c < 0);
    }
    if (lt == QV_TYPE_NUMBER || rt == QV_TYPE_NUMBER) {
        QV_PRECISE_T a{}, b{};
        if (!read_precise(left, a) || !read_precise(right, b)) return kUnordered;
        const int32_t c = PreciseCompare_L(&a, nullptr, &b);
        return c == -2 ? kUnordered : c;
    }
    if (const uint32_t family = family_of(lt); family != 0 && family == family_of(rt))
        return CompareValue_L(&left, &right);
    double a = 0, b = 0;
    if (!read_real(left, a) || !read_real(right, b)) return kUnordered;
    return order_reals(a, b);
}

// ---- Arithmetic --------------------------------------------------------------------------

struct Add {
    static constexpr char symbol = '+';
    static int64_t integer(int64_t a, int64_t b) {
        return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
    }
    static double real(double a, double b) { return a + b; }
};
struct Subtract {
    static constexpr char symbol = '-';
    static int64_t integer(int64_t a, int64_t b) {
        return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
    }
    static double real(double a, double b) { return a - b; }
};
struct Multiply {
    static constexpr char symbol = '*';
    static int64_t integer(int64_t a, int64_t b) {
        return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
    }
    static double real(double a, double b) { return a * b; }
};

// The type of a NULL result: the left operand's when it is not NULL, else the right one's,
// else `fallback`.
const QV_DATATYPE_T &null_type(const QV_VALUE_T &left, const QV_VALUE_T &right,
                               const QV_DATATYPE_T &fallback) {
    if (left.is_null == 0) return left.descriptor;
    if (right.is_null == 0) return right.descriptor;
    return fallback;
}
constexpr QV_DATATYPE_T kIntegerType{QV_TYPE_INTEGER, 0, 0, 0};
constexpr QV_DATATYPE_T kFloatType{QV_TYPE_FLOAT, 0, 0, 0};

bool is_zero(const QV_VALUE_T &value) {
    switch (value.descriptor.type) {
        case QV_TYPE_NUMBER: return IsZeroPrecise_L(&value) != 0;
        case QV_TYPE_INTEGER: return value.payload.integer == 0;
        default: return value.payload.real == 0;
    }
}

// An INTEGER as the NUMBER(19, 0) it is: every 64-bit integer has at most 19 digits.
void integer_as_number(int64_t integer, QV_PRECISE_T &number) {
    number = {};
    number.descriptor = {QV_TYPE_NUMBER, 19, 0, 0};
    const uint64_t magnitude =
        integer < 0 ? 0 - static_cast<uint64_t>(integer) : static_cast<uint64_t>(integer);
    number.payload.number.limb[0] = magnitude;
    number.payload.number.used = magnitude != 0 ? 1 : 0;
    number.payload.number.negative = integer < 0 ? 1 : 0;
}

// left op right of two NUMBER values (PreciseCalculate_L); a division by zero gives NULL of
// the quotient's type, a result beyond 77 digits fails.
bool calculate(char symbol, const Step &step, const QV_VALUE_T &left, const QV_VALUE_T &right,
               QV_VALUE_T &out) {
    release(out);
    if (symbol == '/' && is_zero(right)) {
        PreciseCalculate_L(&left, symbol, &right, &out, 0);
        out.is_null = 1;
        return true;
    }
    if (PreciseCalculate_L(&left, symbol, &right, &out, 1) != 0) {
        put_null(out, QV_TYPE_NUMBER);
        return QV_EVAL_FAIL(QV_MSG_NUMBER_OVERFLOW, step.item->op->text, step.item->position);
    }
    out.is_null = 0;
    return true;
}

// A NUMBER operation on operands of any type: an INTEGER is the NUMBER it is, a FLOAT is
// read by PreciseCalculate_L (NULL when it is not finite), other types are read as NUMBER
// (NULL when one does not read).
bool precise(char symbol, const Step &step, const QV_VALUE_T &left, const QV_VALUE_T &right,
             QV_VALUE_T &out) {
    QV_VALUE_T read[2] = {};
    const QV_VALUE_T *sides[2] = {&left, &right};
    for (int i = 0; i < 2; ++i) {
        const QV_VALUE_T &side = *sides[i];
        switch (side.descriptor.type) {
            case QV_TYPE_NUMBER: continue;
            case QV_TYPE_INTEGER: integer_as_number(side.payload.integer, read[i]); break;
            case QV_TYPE_FLOAT:
                if (std::isfinite(side.payload.real)) continue;
                put_null(out, QV_TYPE_NUMBER);
                return true;
            default:
                if (ValueToNumber_L(&side, &read[i]) != QV_VALUE_OK) {
                    put_null(out, QV_TYPE_NUMBER);
                    return true;
                }
        }
        sides[i] = &read[i];
    }
    return calculate(symbol, step, *sides[0], *sides[1], out);
}

// + - * of any operands. The general rules stay out of line, so that the routines for
// known types that hand over to them stay small.
template <class Op>
[[gnu::noinline]] bool arithmetic(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &left = *values[step.a], &right = *values[step.b];
    QV_VALUE_T &out = *values[step.out];
    if (left.is_null != 0 || right.is_null != 0) {
        put_null(out, null_type(left, right, kIntegerType));
        return true;
    }
    const uint32_t lt = left.descriptor.type, rt = right.descriptor.type;
    if (lt == QV_TYPE_NUMBER || rt == QV_TYPE_NUMBER)
        return precise(Op::symbol, step, left, right, out);
    if (lt == QV_TYPE_INTEGER && rt == QV_TYPE_INTEGER) {
        put_integer(out, Op::integer(left.payload.integer, right.payload.integer));
        return true;
    }
    double a = 0, b = 0;
    if (read_real(left, a) && read_real(right, b))
        put_real(out, Op::real(a, b));
    else
        put_null(out, QV_TYPE_FLOAT);
    return true;
}

// An INTEGER by an INTEGER: exact quotients stay INTEGER.
void divide_integers(int64_t a, int64_t b, QV_VALUE_T &out) {
    if (b == 0) return put_null(out, QV_TYPE_INTEGER);
    if (b == -1) return put_integer(out, Subtract::integer(0, a)); // INT64_MIN / -1 wraps
    if (a % b == 0) return put_integer(out, a / b);
    put_real(out, static_cast<double>(a) / static_cast<double>(b));
}

void divide_reals(double a, double b, QV_VALUE_T &out) {
    if (b == 0) return put_null(out, QV_TYPE_FLOAT);
    put_real(out, a / b);
}

[[gnu::noinline]] bool divide(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &left = *values[step.a], &right = *values[step.b];
    QV_VALUE_T &out = *values[step.out];
    if (left.is_null != 0 || right.is_null != 0) {
        put_null(out, null_type(left, right, kFloatType));
        return true;
    }
    const uint32_t lt = left.descriptor.type, rt = right.descriptor.type;
    if (lt == QV_TYPE_NUMBER || rt == QV_TYPE_NUMBER) return precise('/', step, left, right, out);
    if (lt == QV_TYPE_INTEGER && rt == QV_TYPE_INTEGER) {
        divide_integers(left.payload.integer, right.payload.integer, out);
        return true;
    }
    double a = 0, b = 0;
    if (read_real(left, a) && read_real(right, b))
        divide_reals(a, b, out);
    else
        put_null(out, QV_TYPE_FLOAT);
    return true;
}

// Operand readers of the chosen routines: the type they expect and how they read it.
struct Integer {
    static constexpr uint32_t type = QV_TYPE_INTEGER;
    static int64_t get(const QV_VALUE_T &value) { return value.payload.integer; }
};
struct Real {
    static constexpr uint32_t type = QV_TYPE_FLOAT;
    static double get(const QV_VALUE_T &value) { return value.payload.real; }
};
struct IntegerAsReal {
    static constexpr uint32_t type = QV_TYPE_INTEGER;
    static double get(const QV_VALUE_T &value) {
        return static_cast<double>(value.payload.integer);
    }
};

template <class L, class R>
bool expected(const QV_VALUE_T &left, const QV_VALUE_T &right) {
    return left.descriptor.type == L::type && right.descriptor.type == R::type &&
           (left.is_null | right.is_null) == 0;
}

template <class Op>
bool integer_arithmetic(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &left = *values[step.a], &right = *values[step.b];
    if (!expected<Integer, Integer>(left, right)) [[unlikely]]
        return arithmetic<Op>(step, values);
    put_integer(*values[step.out], Op::integer(Integer::get(left), Integer::get(right)));
    return true;
}

template <class Op, class L, class R>
bool real_arithmetic(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &left = *values[step.a], &right = *values[step.b];
    if (!expected<L, R>(left, right)) [[unlikely]]
        return arithmetic<Op>(step, values);
    put_real(*values[step.out], Op::real(L::get(left), R::get(right)));
    return true;
}

// NUMBER with NUMBER or INTEGER, neither NULL.
bool exact_pair(const QV_VALUE_T &left, const QV_VALUE_T &right) {
    const uint32_t lt = left.descriptor.type, rt = right.descriptor.type;
    return ((lt | rt) == QV_TYPE_NUMBER || (lt | rt) == (QV_TYPE_NUMBER | QV_TYPE_INTEGER)) &&
           (left.is_null | right.is_null) == 0;
}

template <char Symbol>
bool exact_arithmetic(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &left = *values[step.a], &right = *values[step.b];
    if (!exact_pair(left, right)) [[unlikely]]
        return Symbol == '/'   ? divide(step, values)
               : Symbol == '+' ? arithmetic<Add>(step, values)
               : Symbol == '-' ? arithmetic<Subtract>(step, values)
                               : arithmetic<Multiply>(step, values);
    QV_PRECISE_T integer;
    const QV_VALUE_T *a = &left, *b = &right;
    if (left.descriptor.type == QV_TYPE_INTEGER) {
        integer_as_number(left.payload.integer, integer);
        a = &integer;
    } else if (right.descriptor.type == QV_TYPE_INTEGER) {
        integer_as_number(right.payload.integer, integer);
        b = &integer;
    }
    return calculate(Symbol, step, *a, *b, *values[step.out]);
}

bool integer_division(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &left = *values[step.a], &right = *values[step.b];
    if (!expected<Integer, Integer>(left, right)) [[unlikely]]
        return divide(step, values);
    divide_integers(left.payload.integer, right.payload.integer, *values[step.out]);
    return true;
}

template <class L, class R>
bool real_division(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &left = *values[step.a], &right = *values[step.b];
    if (!expected<L, R>(left, right)) [[unlikely]]
        return divide(step, values);
    divide_reals(L::get(left), R::get(right), *values[step.out]);
    return true;
}

bool negate(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &operand = *values[step.a];
    QV_VALUE_T &out = *values[step.out];
    if (operand.is_null != 0) {
        put_null(out, operand.descriptor);
        return true;
    }
    switch (operand.descriptor.type) {
        case QV_TYPE_FLOAT: put_real(out, -operand.payload.real); return true;
        case QV_TYPE_INTEGER:
            put_integer(out, Subtract::integer(0, operand.payload.integer));
            return true;
        case QV_TYPE_NUMBER:
            release(out);
            out = operand;
            out.owns_payload = 0;
            ReversePreciseSign_L(&out);
            return true;
        default: CopyValue_L(&out, &operand); return true;
    }
}

// ---- Comparisons -------------------------------------------------------------------------

// A comparison: its outcome from a three-way order, and straight from two numbers.
struct Equal {
    static bool holds(int c) { return c == 0; }
    template <class T>
    static bool test(T a, T b) {
        return a == b;
    }
};
struct NotEqual {
    static bool holds(int c) { return c != 0; }
    template <class T>
    static bool test(T a, T b) {
        return a != b;
    }
};
struct Less {
    static bool holds(int c) { return c < 0; }
    template <class T>
    static bool test(T a, T b) {
        return a < b;
    }
};
struct Greater {
    static bool holds(int c) { return c > 0; }
    template <class T>
    static bool test(T a, T b) {
        return a > b;
    }
};
struct LessEqual {
    static bool holds(int c) { return c <= 0; }
    template <class T>
    static bool test(T a, T b) {
        return a <= b;
    }
};
struct GreaterEqual {
    static bool holds(int c) { return c >= 0; }
    template <class T>
    static bool test(T a, T b) {
        return a >= b;
    }
};

void put_order(QV_VALUE_T &out, int c, bool (*holds)(int)) {
    if (c == kUnordered)
        put_null(out, QV_TYPE_BOOLEAN);
    else
        put_boolean(out, holds(c));
}

template <class Op>
[[gnu::noinline]] bool compare(const Step &step, QV_VALUE_T *const *values) {
    put_order(*values[step.out], order(*values[step.a], *values[step.b]), Op::holds);
    return true;
}

// Two numbers compared without a branch on the outcome; NaN (which orders with nothing)
// goes to the general rule.
template <class Op, class L, class R>
bool compare_numbers(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &left = *values[step.a], &right = *values[step.b];
    if (!expected<L, R>(left, right)) [[unlikely]]
        return compare<Op>(step, values);
    const auto a = L::get(left);
    const auto b = R::get(right);
    if constexpr (!std::is_same_v<L, Integer>)
        if (a != a || b != b) [[unlikely]]
            return compare<Op>(step, values);
    put_boolean(*values[step.out], Op::test(a, b));
    return true;
}

template <class Op>
bool compare_texts(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &left = *values[step.a], &right = *values[step.b];
    const uint32_t ef = QV_VALUE_IN_FILE;
    if (left.descriptor.type != QV_TYPE_CHAR || right.descriptor.type != QV_TYPE_CHAR ||
        (left.is_null | right.is_null) != 0 ||
        ((left.descriptor.extra | right.descriptor.extra) & ef)) [[unlikely]]
        return compare<Op>(step, values);
    const int32_t c = Strcomp_SL(&left.payload.string, &right.payload.string, -1, 1);
    put_boolean(*values[step.out], Op::holds((c > 0) - (c < 0)));
    return true;
}

template <bool Negated>
[[gnu::noinline]] bool like(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &left = *values[step.a], &right = *values[step.b];
    QV_VALUE_T &out = *values[step.out];
    if (left.is_null != 0) {
        put_null(out, QV_TYPE_BOOLEAN);
        return true;
    }
    qv::values::TextForm left_form, right_form;
    QV_STRING_T text{}, pattern{};
    if (!text_of(left, left_form, text)) {
        put_null(out, QV_TYPE_BOOLEAN);
        return true;
    }
    const bool has_pattern = right.is_null == 0 && text_of(right, right_form, pattern);
    const bool matches = Is_Like_SL(&text, has_pattern ? &pattern : nullptr) != 0;
    put_boolean(out, matches != Negated);
    return true;
}

// LIKE with a constant pattern of ASCII characters without wildcards, followed by one "%"
// (step.c: the length before it) or by nothing (step.c -1: the whole text), on a text
// whose bytes below 0x80 are ASCII: a comparison of bytes.
template <bool Negated>
bool like_prefix(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &left = *values[step.a];
    const QV_ENCODING_T *encoding = left.payload.string.encoding;
    if (left.descriptor.type != QV_TYPE_CHAR || left.is_null != 0 ||
        (left.descriptor.extra & QV_VALUE_IN_FILE) != 0 ||
        (encoding != nullptr && encoding->ascii_compatible == 0)) [[unlikely]]
        return like<Negated>(step, values);
    const char *text = left.payload.string.text != nullptr ? left.payload.string.text : "";
    const char *pattern = values[step.b]->payload.string.text;
    const bool matches = step.c < 0
                             ? std::strcmp(text, pattern) == 0
                             : std::strncmp(text, pattern, static_cast<std::size_t>(step.c)) == 0;
    put_boolean(*values[step.out], matches != Negated);
    return true;
}

template <bool Negated>
bool is_null(const Step &step, QV_VALUE_T *const *values) {
    put_boolean(*values[step.out], (values[step.a]->is_null != 0) != Negated);
    return true;
}

template <bool Negated>
bool in_list(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &left = *values[step.a];
    QV_VALUE_T &out = *values[step.out];
    if (left.is_null != 0) {
        put_null(out, QV_TYPE_BOOLEAN);
        return true;
    }
    bool found = false;
    for (int32_t i = 0; i < step.count && !found; ++i)
        found = order(left, *values[step.list[i]]) == 0;
    put_boolean(out, found != Negated);
    return true;
}

Truth both(Truth a, Truth b) {
    if (a == Truth::no || b == Truth::no) return Truth::no;
    return a == Truth::unknown || b == Truth::unknown ? Truth::unknown : Truth::yes;
}
Truth either(Truth a, Truth b) {
    if (a == Truth::yes || b == Truth::yes) return Truth::yes;
    return a == Truth::unknown || b == Truth::unknown ? Truth::unknown : Truth::no;
}

Truth at_most(int c) {
    return c == kUnordered ? Truth::unknown : c <= 0 ? Truth::yes : Truth::no;
}

template <bool Negated>
bool between(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &value = *values[step.a];
    QV_VALUE_T &out = *values[step.out];
    if (value.is_null != 0) {
        put_null(out, QV_TYPE_BOOLEAN);
        return true;
    }
    const Truth inside =
        both(at_most(order(*values[step.b], value)), at_most(order(value, *values[step.c])));
    put_truth(out, Negated ? negated(inside) : inside);
    return true;
}

// ---- Logic ---------------------------------------------------------------------------------

bool logical_not(const Step &step, QV_VALUE_T *const *values) {
    put_truth(*values[step.out], negated(truth_of(*values[step.a])));
    return true;
}

template <Truth (*Combine)(Truth, Truth)>
[[gnu::noinline]] bool logical(const Step &step, QV_VALUE_T *const *values) {
    put_truth(*values[step.out], Combine(truth_of(*values[step.a]), truth_of(*values[step.b])));
    return true;
}

// AND (or OR) of two BOOLEAN values that are not NULL.
template <bool Both>
bool logical_booleans(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T &left = *values[step.a], &right = *values[step.b];
    if (left.descriptor.type != QV_TYPE_BOOLEAN || right.descriptor.type != QV_TYPE_BOOLEAN ||
        (left.is_null | right.is_null) != 0) [[unlikely]]
        return Both ? logical<both>(step, values) : logical<either>(step, values);
    const bool a = left.payload.boolean != 0, b = right.payload.boolean != 0;
    put_boolean(*values[step.out], Both ? a & b : a | b);
    return true;
}

// ---- Arrays --------------------------------------------------------------------------------

// The elements a value gives to "&": a non-NULL ARRAY its elements, anything else itself.
int64_t contribution(const QV_VALUE_T &value) {
    return value.descriptor.type == QV_TYPE_ARRAY && value.is_null == 0 ? ArrayValueCount_L(&value)
                                                                        : 1;
}

bool join_arrays(const Step &step, QV_VALUE_T *const *values) {
    const QV_VALUE_T *sides[2] = {values[step.a], values[step.b]};
    QV_VALUE_T &out = *values[step.out];
    const int64_t count = contribution(*sides[0]) + contribution(*sides[1]);
    if (count > INT32_MAX) {
        QV_RAISE(ALLOC_FAILURE);
        return false;
    }
    if (ModifyArray_L(&out, count) != 0) return false; // raised
    int64_t at = 0;
    for (const QV_VALUE_T *side : sides) {
        if (side->descriptor.type != QV_TYPE_ARRAY || side->is_null != 0) {
            CopyValue_L(ArrayValueItem_L(&out, at++), side);
            continue;
        }
        for (int64_t i = 0, n = ArrayValueCount_L(side); i < n; ++i)
            CopyValue_L(ArrayValueItem_L(&out, at++), ArrayValueItem_L(side, i));
    }
    return true;
}

// ---- Choosing ------------------------------------------------------------------------------

enum class Kind { other, integer, real, number, text, truth };

Kind kind_of(const StaticType &type) {
    if (type.null_literal) return Kind::other;
    switch (type.desc.type) {
        case QV_TYPE_INTEGER: return Kind::integer;
        case QV_TYPE_FLOAT: return Kind::real;
        case QV_TYPE_NUMBER: return Kind::number;
        case QV_TYPE_CHAR: return Kind::text;
        case QV_TYPE_BOOLEAN: return Kind::truth;
        default: return Kind::other;
    }
}

// NUMBER with NUMBER or INTEGER.
bool exact_kinds(Kind l, Kind r) {
    return (l == Kind::number && (r == Kind::number || r == Kind::integer)) ||
           (l == Kind::integer && r == Kind::number);
}

template <class Op>
Executor arithmetic_for(Kind l, Kind r) {
    if (exact_kinds(l, r)) return exact_arithmetic<Op::symbol>;
    if (l == Kind::integer && r == Kind::integer) return integer_arithmetic<Op>;
    if (l == Kind::real && r == Kind::real) return real_arithmetic<Op, Real, Real>;
    if (l == Kind::real && r == Kind::integer) return real_arithmetic<Op, Real, IntegerAsReal>;
    if (l == Kind::integer && r == Kind::real) return real_arithmetic<Op, IntegerAsReal, Real>;
    return arithmetic<Op>;
}

Executor division_for(Kind l, Kind r) {
    if (exact_kinds(l, r)) return exact_arithmetic<'/'>;
    if (l == Kind::integer && r == Kind::integer) return integer_division;
    if (l == Kind::real && r == Kind::real) return real_division<Real, Real>;
    if (l == Kind::real && r == Kind::integer) return real_division<Real, IntegerAsReal>;
    if (l == Kind::integer && r == Kind::real) return real_division<IntegerAsReal, Real>;
    return divide;
}

template <class Op>
Executor comparison_for(Kind l, Kind r) {
    if (l == Kind::integer && r == Kind::integer) return compare_numbers<Op, Integer, Integer>;
    if (l == Kind::real && r == Kind::real) return compare_numbers<Op, Real, Real>;
    if (l == Kind::real && r == Kind::integer) return compare_numbers<Op, Real, IntegerAsReal>;
    if (l == Kind::integer && r == Kind::real) return compare_numbers<Op, IntegerAsReal, Real>;
    if (l == Kind::text && r == Kind::text) return compare_texts<Op>;
    return compare<Op>;
}

// The type of + - * /: see the rules at the top of qv/express.h.
StaticType arithmetic_type(int32_t code, const StaticType &left, const StaticType &right) {
    const uint32_t fallback = code == EXP_OP_DIVIDE ? QV_TYPE_FLOAT : QV_TYPE_INTEGER;
    if (left.null_literal && right.null_literal) return {{fallback, 0, 0, 0}, false};
    if (left.null_literal) return {right.desc, false};
    if (right.null_literal) return {left.desc, false};
    const uint32_t lt = left.desc.type, rt = right.desc.type;
    if (lt == 0 || rt == 0) return {};
    if (lt == QV_TYPE_NUMBER || rt == QV_TYPE_NUMBER) {
        const auto exact = [](uint32_t t) { return t == QV_TYPE_NUMBER || t == QV_TYPE_INTEGER; };
        if (!exact(lt) || !exact(rt)) return {}; // the other side's digits decide
        QV_VALUE_T a{}, b{}, result{};
        a.descriptor = left.desc;
        b.descriptor = right.desc;
        static constexpr char symbols[] = {'+', '-', '*', '/'};
        if (PreciseCalculate_L(&a, symbols[code - EXP_OP_ADD], &b, &result, 0) != 0) return {};
        return {{QV_TYPE_NUMBER, result.descriptor.precision, result.descriptor.scale, 0}, false};
    }
    if (lt == QV_TYPE_INTEGER && rt == QV_TYPE_INTEGER)
        return code == EXP_OP_DIVIDE ? StaticType{} : StaticType{kIntegerType, false};
    return {kFloatType, false};
}

} // namespace

namespace qv::express {

Executor operator_executor(int32_t code, const StaticType &left, const StaticType &right) {
    const Kind l = kind_of(left), r = kind_of(right);
    switch (code) {
        case EXP_OP_NEGATE: return negate;
        case EXP_OP_ARRAY: return join_arrays;
        case EXP_OP_ADD: return arithmetic_for<Add>(l, r);
        case EXP_OP_SUBTRACT: return arithmetic_for<Subtract>(l, r);
        case EXP_OP_MULTIPLY: return arithmetic_for<Multiply>(l, r);
        case EXP_OP_DIVIDE: return division_for(l, r);
        case EXP_OP_EQUAL: return comparison_for<Equal>(l, r);
        case EXP_OP_NOT_EQUAL: return comparison_for<NotEqual>(l, r);
        case EXP_OP_LESS: return comparison_for<Less>(l, r);
        case EXP_OP_GREATER: return comparison_for<Greater>(l, r);
        case EXP_OP_LESS_EQUAL: return comparison_for<LessEqual>(l, r);
        case EXP_OP_GREATER_EQUAL: return comparison_for<GreaterEqual>(l, r);
        case EXP_OP_LIKE: return like<false>;
        case EXP_OP_NOT_LIKE: return like<true>;
        case EXP_OP_IS: return is_null<false>;
        case EXP_OP_IS_NOT: return is_null<true>;
        case EXP_OP_IN: return in_list<false>;
        case EXP_OP_NOT_IN: return in_list<true>;
        case EXP_OP_BETWEEN: return between<false>;
        case EXP_OP_NOT_BETWEEN: return between<true>;
        case EXP_OP_NOT: return logical_not;
        case EXP_OP_AND:
            return l == Kind::truth && r == Kind::truth ? logical_booleans<true> : logical<both>;
        case EXP_OP_OR:
            return l == Kind::truth && r == Kind::truth ? logical_booleans<false> : logical<either>;
        default: return nullptr;
    }
}

Executor like_executor(int32_t code, const QV_VALUE_T &pattern, int32_t &prefix) {
    if (pattern.descriptor.type != QV_TYPE_CHAR || pattern.is_null != 0 ||
        pattern.payload.string.text == nullptr)
        return nullptr;
    const std::string_view text = pattern.payload.string.text;
    const std::size_t wild = text.find_first_of("%_\\");
    const bool exact = wild == std::string_view::npos;
    if (!exact && wild + 1 != text.size()) return nullptr; // not one final "%"
    if (!exact && text[wild] != '%') return nullptr;
    for (const char c : text)
        if (static_cast<unsigned char>(c) >= 0x80) return nullptr;
    prefix = exact ? -1 : static_cast<int32_t>(wild);
    return code == EXP_OP_LIKE ? like_prefix<false> : like_prefix<true>;
}

StaticType operator_type(int32_t code, const StaticType &left, const StaticType &right) {
    switch (code) {
        case EXP_OP_NEGATE: return left;
        case EXP_OP_ADD:
        case EXP_OP_SUBTRACT:
        case EXP_OP_MULTIPLY:
        case EXP_OP_DIVIDE: return arithmetic_type(code, left, right);
        case EXP_OP_ARRAY: return {{QV_TYPE_ARRAY, 0, 0, 0}, false};
        default: return {{QV_TYPE_BOOLEAN, 0, 0, 0}, false};
    }
}

} // namespace qv::express
