// precise.cpp - exact decimal numbers: constructors, the rules for the precision and scale
// of results, arithmetic, comparison, truncation, power, square root and the conversions
// to and from doubles and 64-bit integers.
//
// A NUMBER(p, s) record holds the unscaled integer N of its value N x 10^-s in the
// accumulator of its payload (the engine of bigint.hpp: sign and a 256-bit magnitude).
// An operation writes its result once, straight into the result's accumulator (reading
// each operand limb before writing it, so a result may be one of its operands), and ends
// in `finish`, which rescales to the result's scale (truncating toward zero) and refuses a
// value of more than p digits. A failed operation leaves the result's descriptor set and
// its value zero. The rare paths (rescaling, aligning scales, shedding digits of wide
// products) are kept out of line so that the common ones stay short.
//
// The module spans precise.cpp, precise_text.cpp, precise_binary.cpp and the engine
// bigint.cpp; all report as "precise".
#define QV_MODULE "precise"
#include "types/precise.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace qv {

namespace {
ValueToNumberConverter value_to_number = nullptr;
} // namespace

void install_value_to_number_converter(ValueToNumberConverter converter) {
    value_to_number = converter;
}

namespace precise {

using big::Int;

namespace {

// 10^k as doubles, each literal the double nearest the power.
constexpr std::array<double, kMaxPrecision + 1> kDoublePowers = {
    1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
    1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22, 1e23, 1e24, 1e25, 1e26, 1e27, 1e28, 1e29, 1e30, 1e31,
    1e32, 1e33, 1e34, 1e35, 1e36, 1e37, 1e38, 1e39, 1e40, 1e41, 1e42, 1e43, 1e44, 1e45, 1e46, 1e47,
    1e48, 1e49, 1e50, 1e51, 1e52, 1e53, 1e54, 1e55, 1e56, 1e57, 1e58, 1e59, 1e60, 1e61, 1e62, 1e63,
    1e64, 1e65, 1e66, 1e67, 1e68, 1e69, 1e70, 1e71, 1e72, 1e73, 1e74, 1e75, 1e76, 1e77};

// The power of ten that removes at least n 16-bit words from any number it divides:
// the least e with 10^e >= 2^(16 n). A product sheds at most 8 words per operand.
constexpr int kMaxShedWords = 8;
consteval std::array<int, kMaxShedWords + 1> make_shed_powers() {
    std::array<int, kMaxShedWords + 1> powers{};
    for (int n = 0; n <= kMaxShedWords; ++n) {
        int e = 0;
        while (big::kPowers[e].bits <= 16 * n) ++e;
        powers[n] = e;
    }
    return powers;
}
constexpr std::array<int, kMaxShedWords + 1> kShedPowers = make_shed_powers();
static_assert(kShedPowers[1] == 5 && kShedPowers[8] == 39);

const Int &accumulator(const QV_PRECISE_T *record) {
    return record->payload.number;
}
NumberType type_of(const QV_PRECISE_T *record) {
    return {record->descriptor.precision, record->descriptor.scale};
}

// NewPrecise_L's limits: 1 <= p <= 77 (else 77), 0 <= s <= p.
NumberType limited(int32_t precision, int32_t scale) {
    if (precision < 1 || precision > kMaxPrecision) precision = kMaxPrecision;
    return {precision, std::clamp(scale, 0, precision)};
}

} // namespace

int32_t finish_rescaled(QV_PRECISE_T *record, int32_t shift, NumberType type) {
    if (!big::scale_by(record->payload.number, shift)) return fail(record, type);
    return finish(record, type.scale, type);
}

// ---------------------------------------------------------------------------------------
// Result types
// ---------------------------------------------------------------------------------------

namespace {

// The precision and scale of `a op b`.
NumberType result_type(NumberType a, NumberType b, char op) {
    int32_t s = std::max(a.scale, b.scale);
    int32_t i1 = a.precision - a.scale, i2 = b.precision - b.scale;
    if (s != 0 || op == '/') {
        int32_t i;
        switch (op) {
            case '*': i = i1 + i2; break;
            case '+':
            case '-': i = std::max(i1, i2) + 1; break;
            case '/':
                i = i1 + b.scale;
                s = 16;
                break;
            default: i = std::max(i1, i2);
        }
        i = std::min(i, kMaxPrecision);
        if (i + s > kMaxPrecision) s = kMaxPrecision - i;
        return {i + s, s};
    }
    int32_t p1 = a.precision, p2 = b.precision;
    if (p1 >= 20 || p2 >= 20) return {std::max(p1, p2), 0};
    int32_t p = op == '*'                ? p1 + p2
                : op == '+' || op == '-' ? std::max(p1, p2) + 1
                                         : std::max(p1, p2);
    return {std::min(p, 19), 0};
}

// ---------------------------------------------------------------------------------------
// The four operations, on valid operands, into a result of the given type
// ---------------------------------------------------------------------------------------

// The sum of operands of different scales: the one of the smaller scale is scaled up.
[[gnu::noinline]] int32_t add_aligned(QV_PRECISE_T *result, const QV_PRECISE_T *a,
                                      const QV_PRECISE_T *b, bool b_negative, NumberType type) {
    const int32_t sa = a->descriptor.scale, sb = b->descriptor.scale;
    Int x = accumulator(a), y = accumulator(b);
    bool fits = (sa < sb ? big::multiply_power(x, sb - sa) : big::multiply_power(y, sa - sb)) &&
                big::add_signed(result->payload.number, x, y, b_negative);
    if (!fits) return fail(result, type);
    return finish(result, std::max(sa, sb), type);
}

int32_t add_numbers(QV_PRECISE_T *result, const QV_PRECISE_T *a, const QV_PRECISE_T *b,
                    bool subtract, NumberType type) {
    const bool b_negative = big::is_negative(accumulator(b)) != subtract;
    if (a->descriptor.scale != b->descriptor.scale)
        return add_aligned(result, a, b, b_negative, type);
    if (!big::add_signed(result->payload.number, accumulator(a), accumulator(b), b_negative))
        return fail(result, type);
    return finish(result, a->descriptor.scale, type);
}

// Divides the operand by the power of ten that sheds `words` 16-bit words.
void shed(Int &value, int64_t &scale, int words) {
    if (words <= 0) return;
    int e = kShedPowers[std::min(words, kMaxShedWords)];
    big::divide_power(value, e);
    scale -= e;
}

// The product of operands too wide for one 256-bit product: each keeps its share of 16
// words, dropping its lowest digits.
[[gnu::noinline]] int32_t multiply_shed(QV_PRECISE_T *result, const QV_PRECISE_T *a,
                                        const QV_PRECISE_T *b, NumberType type) {
    Int x = accumulator(a), y = accumulator(b);
    int64_t sx = a->descriptor.scale, sy = b->descriptor.scale;
    const int w1 = big::words16(x), w2 = big::words16(y);
    shed(x, sx, w1 - 16 * w1 / (w1 + w2));
    shed(y, sy, w2 - 16 * w2 / (w1 + w2));
    if (!big::multiply(result->payload.number, x, y)) return fail(result, type);
    return finish(result, sx + sy, type);
}

int32_t multiply_numbers(QV_PRECISE_T *result, const QV_PRECISE_T *a, const QV_PRECISE_T *b,
                         NumberType type) {
    const Int &x = accumulator(a), &y = accumulator(b);
    if (big::words16(x) + big::words16(y) >= 17 && !big::is_zero(x) && !big::is_zero(y))
        return multiply_shed(result, a, b, type);
    if (!big::multiply(result->payload.number, x, y)) return fail(result, type);
    return finish(result, int64_t{a->descriptor.scale} + b->descriptor.scale, type);
}

int32_t divide_numbers(QV_PRECISE_T *result, const QV_PRECISE_T *a, const QV_PRECISE_T *b,
                       NumberType type) {
    const Int &divisor = accumulator(b);
    if (big::is_zero(accumulator(a)) || big::is_zero(divisor)) return store(result, Int{}, 0, type);
    const int32_t p1 = a->descriptor.precision;
    const int32_t k = std::max(0, std::min(kMaxPrecision - p1, type.precision - p1 + 1));
    Int x = accumulator(a);
    if (!big::multiply_power(x, k)) return fail(result, type);
    big::divide(result->payload.number, x, divisor);
    return finish(result, int64_t{a->descriptor.scale} + k - b->descriptor.scale, type);
}

int32_t calculate(QV_PRECISE_T *result, const QV_PRECISE_T *a, const QV_PRECISE_T *b, char op) {
    NumberType type = result_type(type_of(a), type_of(b), op);
    switch (op) {
        case '+': return add_numbers(result, a, b, false, type);
        case '-': return add_numbers(result, a, b, true, type);
        case '*': return multiply_numbers(result, a, b, type);
        case '/': return divide_numbers(result, a, b, type);
        default: return fail(result, type);
    }
}

} // namespace

// ---------------------------------------------------------------------------------------
// Reading values of other types as NUMBER
// ---------------------------------------------------------------------------------------

const QV_PRECISE_T *as_number(const QV_VALUE_T *value, QV_PRECISE_T &scratch) {
    if (value == nullptr) return nullptr;
    if (value->descriptor.type == QV_TYPE_NUMBER) return is_valid(value) ? value : nullptr;
    std::memset(&scratch, 0, sizeof scratch);
    int32_t status;
    switch (value->descriptor.type) {
        case QV_TYPE_INTEGER:
            status = IntegerToPrecise_L(&scratch, value->payload.integer, 0);
            break;
        case QV_TYPE_FLOAT: status = DoubleToPrecise_L(&scratch, value->payload.real); break;
        default: status = value_to_number != nullptr && value_to_number(value, &scratch) ? 0 : -1;
    }
    return status == 0 && is_valid(&scratch) ? &scratch : nullptr;
}

} // namespace precise
} // namespace qv

using namespace qv::precise;
namespace big = qv::big;

// ---------------------------------------------------------------------------------------
// Constructors and sign
// ---------------------------------------------------------------------------------------

extern "C" int32_t NewPrecise_L(QV_PRECISE_T *record, int32_t precision, int32_t scale) {
    if (record == nullptr) return -1;
    std::memset(record, 0, offsetof(QV_VALUE_T, eval_flags));
    NumberType type = limited(precision, scale);
    record->descriptor = {QV_TYPE_NUMBER, type.precision, type.scale, 0};
    return 0;
}

extern "C" int32_t NewMaxPrecise_L(QV_PRECISE_T *record) {
    return NewPrecise_L(record, 0, 0);
}

extern "C" int32_t NewLargestPrecise_L(QV_PRECISE_T *record, const QV_PRECISE_T *a,
                                       const QV_PRECISE_T *b) {
    if (a == nullptr || b == nullptr) return -1;
    const QV_DATATYPE_T &x = a->descriptor, &y = b->descriptor;
    int32_t integer = std::max(x.precision - x.scale, y.precision - y.scale);
    int32_t scale = std::max(x.scale, y.scale);
    return NewPrecise_L(record, integer + scale, scale);
}

extern "C" void ZeroPrecise_L(QV_PRECISE_T *record) {
    if (record != nullptr) big::set_zero(record->payload.number);
}

extern "C" uint8_t IsZeroPrecise_L(const QV_PRECISE_T *record) {
    return record != nullptr && big::is_zero(record->payload.number);
}

extern "C" uint8_t IsPositivePrecise_L(const QV_PRECISE_T *record) {
    return record != nullptr && !big::is_zero(record->payload.number) &&
           !record->payload.number.negative;
}

extern "C" void AbsPrecise_L(QV_PRECISE_T *record) {
    if (record != nullptr) record->payload.number.negative = 0;
}

extern "C" void ReversePreciseSign_L(QV_PRECISE_T *record) {
    if (record == nullptr) return;
    QV_ACCUMULATOR_T &number = record->payload.number;
    number.negative = !number.negative && !big::is_zero(number);
}

// ---------------------------------------------------------------------------------------
// Doubles and integers
// ---------------------------------------------------------------------------------------

namespace {

// A record that already has a NUMBER precision keeps it; true when it has one.
bool has_precision(const QV_PRECISE_T *record) {
    return record->descriptor.type == QV_TYPE_NUMBER && record->descriptor.precision != 0;
}

// The double rounded half away from zero to an integer.
double round_half_away(double value) {
    double whole = std::trunc(value);
    if (std::fabs(value - whole) >= 0.5) whole += std::copysign(1.0, value);
    return whole;
}

} // namespace

extern "C" int32_t DoubleToPrecise_L(QV_PRECISE_T *record, double value) {
    if (record == nullptr || !std::isfinite(value)) return -1;
    int32_t digits, decimals;
    StringFromDouble_L(value, &digits, &decimals);
    if (has_precision(record)) {
        if (!is_valid(record)) return -1;
        const QV_DATATYPE_T &d = record->descriptor;
        if (d.precision - d.scale < digits - decimals) return fail(record, type_of(record));
    } else {
        NewPrecise_L(record, digits, decimals);
    }
    NumberType type = type_of(record);
    int32_t used = std::min(decimals, type.scale);
    Int number;
    if (!big::load_double(number, round_half_away(value * kDoublePowers[used])))
        return fail(record, type);
    return store(record, number, used, type);
}

extern "C" int32_t IntegerToPrecise_L(QV_PRECISE_T *record, int64_t value, int32_t scale) {
    if (record == nullptr) return -1;
    if (!has_precision(record)) NewPrecise_L(record, 19, 0);
    if (!is_valid(record)) return -1;
    Int number;
    big::set_int64(number, value);
    return store(record, number, scale, type_of(record));
}

extern "C" int32_t PreciseToDouble_L(const QV_PRECISE_T *record, double *value) {
    if (!is_valid(record) || value == nullptr) return -1;
    *value = big::to_double(accumulator(record)) / kDoublePowers[record->descriptor.scale];
    return 0;
}

extern "C" int32_t PreciseToScaledInteger_L(const QV_PRECISE_T *record, int32_t scale,
                                            int64_t *value) {
    if (!is_valid(record) || value == nullptr) return -1;
    Int number = accumulator(record);
    int64_t shift = int64_t{scale} - record->descriptor.scale;
    if (!big::scale_by(number, clamp_shift(shift)) || !big::to_int64(number, *value)) return -1;
    return 0;
}

extern "C" int32_t PreciseToInteger_L(const QV_PRECISE_T *record, int64_t *value) {
    return PreciseToScaledInteger_L(record, 0, value);
}

// ---------------------------------------------------------------------------------------
// Arithmetic
// ---------------------------------------------------------------------------------------

// The entry points type the result and go straight to their operation.
extern "C" int32_t AddPrecise_L(QV_PRECISE_T *result, const QV_PRECISE_T *a,
                                const QV_PRECISE_T *b) {
    if (result == nullptr || !is_valid(a) || !is_valid(b)) return -1;
    return add_numbers(result, a, b, false, result_type(type_of(a), type_of(b), '+'));
}

extern "C" int32_t SubtractPrecise_L(QV_PRECISE_T *result, const QV_PRECISE_T *a,
                                     const QV_PRECISE_T *b) {
    if (result == nullptr || !is_valid(a) || !is_valid(b)) return -1;
    return add_numbers(result, a, b, true, result_type(type_of(a), type_of(b), '-'));
}

extern "C" int32_t MultiplyPrecise_L(QV_PRECISE_T *result, const QV_PRECISE_T *a,
                                     const QV_PRECISE_T *b) {
    if (result == nullptr || !is_valid(a) || !is_valid(b)) return -1;
    return multiply_numbers(result, a, b, result_type(type_of(a), type_of(b), '*'));
}

extern "C" int32_t DividePrecise_L(QV_PRECISE_T *result, const QV_PRECISE_T *a,
                                   const QV_PRECISE_T *b) {
    if (result == nullptr || !is_valid(a) || !is_valid(b)) return -1;
    return divide_numbers(result, a, b, result_type(type_of(a), type_of(b), '/'));
}

extern "C" int32_t PreciseCalculate_L(const QV_VALUE_T *left, char op, const QV_VALUE_T *right,
                                      QV_PRECISE_T *result, uint8_t compute) {
    if (result == nullptr) return -1;
    QV_PRECISE_T left_number, right_number;
    const QV_PRECISE_T *a = as_number(left, left_number);
    const QV_PRECISE_T *b = as_number(right, right_number);
    if (a == nullptr || b == nullptr) return -1;
    if (!compute) {
        NumberType type = result_type(type_of(a), type_of(b), op);
        result->descriptor = {QV_TYPE_NUMBER, type.precision, type.scale, 0};
        return 0;
    }
    return calculate(result, a, b, op);
}

extern "C" int32_t AddToPrecise_L(QV_PRECISE_T *target, const QV_PRECISE_T *addend) {
    if (!is_valid(target) || !is_valid(addend)) return -1;
    Int sum = accumulator(addend);
    if (!big::scale_by(sum, target->descriptor.scale - addend->descriptor.scale) ||
        !big::add(sum, sum, accumulator(target)) ||
        !big::fits_digits(sum, target->descriptor.precision))
        return -1;
    target->payload.number = sum;
    return 0;
}

extern "C" int32_t ConvertPrecise_L(QV_PRECISE_T *target, const QV_PRECISE_T *source) {
    if (!is_valid(target) || !is_valid(source)) return -1;
    return store(target, accumulator(source), source->descriptor.scale, type_of(target));
}

extern "C" int32_t TruncatePrecise_L(QV_PRECISE_T *record, int32_t places) {
    if (!is_valid(record)) return -1;
    int64_t drop = int64_t{record->descriptor.scale} - places;
    if (drop <= 0) return 0;
    Int &number = record->payload.number;
    if (drop > big::kMaxPower) {
        big::set_zero(number);
        return 0;
    }
    big::divide_power(number, static_cast<int>(drop));
    big::multiply_power(number, static_cast<int>(drop)); // never more than it was
    return 0;
}

// ---------------------------------------------------------------------------------------
// Comparison
// ---------------------------------------------------------------------------------------

namespace {

// -1, 0, 1 as a is below, equal to or above b when their scales differ.
[[gnu::noinline]] int compare_scaled(const QV_PRECISE_T *a, const QV_PRECISE_T *b) {
    const int32_t sx = a->descriptor.scale, sy = b->descriptor.scale;
    Int x = accumulator(a), y = accumulator(b);
    bool x_negative = big::is_negative(x), y_negative = big::is_negative(y);
    if (x_negative != y_negative) return x_negative ? -1 : 1;
    // Bring both to the larger scale; a magnitude that overflows is the larger one.
    int magnitude;
    if (sx < sy)
        magnitude = big::multiply_power(x, sy - sx) ? big::compare_magnitude(x, y) : 1;
    else
        magnitude = big::multiply_power(y, sx - sy) ? big::compare_magnitude(x, y) : -1;
    return x_negative ? -magnitude : magnitude;
}

struct Relation {
    std::string_view text;
    bool below, equal, above; // when the relation holds
};
constexpr Relation kRelations[] = {
    {"==", false, true, false}, {"!=", true, false, true}, {"<", true, false, false},
    {">", false, false, true},  {"<=", true, true, false}, {">=", false, true, true},
};

} // namespace

namespace {

// Whether the relation named by `op` holds for the order; -2 for an unknown operator.
[[gnu::noinline]] int32_t holds(const char *op, int order) {
    for (const Relation &relation : kRelations)
        if (relation.text == op)
            return order < 0 ? relation.below : order == 0 ? relation.equal : relation.above;
    return -2;
}

} // namespace

extern "C" int32_t PreciseCompare_L(const QV_PRECISE_T *a, const char *op, const QV_PRECISE_T *b) {
    if (!is_valid(a) || !is_valid(b)) return -2;
    int order = a->descriptor.scale == b->descriptor.scale
                    ? big::compare(accumulator(a), accumulator(b))
                    : compare_scaled(a, b);
    return op == nullptr ? order : holds(op, order);
}

// ---------------------------------------------------------------------------------------
// Power and square root
// ---------------------------------------------------------------------------------------

extern "C" int32_t PowerPrecise_L(QV_PRECISE_T *result, const QV_PRECISE_T *base, int32_t n) {
    if (result == nullptr || !is_valid(base)) return -1;
    const int32_t scale = base->descriptor.scale;
    NumberType type = limited(kMaxPrecision, scale);
    Int raw;
    if (n < 0 || !big::power(raw, accumulator(base), static_cast<uint32_t>(n)))
        return fail(result, type);
    // The raw power carries scale n x s.
    return store(result, raw, int64_t{n} * scale, type);
}

extern "C" int32_t SqrtPrecise_L(QV_PRECISE_T *result, const QV_PRECISE_T *x) {
    if (result == nullptr || !is_valid(x)) return -1;
    const Int &number = accumulator(x);
    const int32_t w = big::words16(number), s = x->descriptor.scale;
    NumberType type = limited(kMaxPrecision, (s + kMaxPrecision - w) / 2 - 1);
    if (number.negative && !big::is_zero(number)) return fail(result, type);
    if (big::is_zero(number)) return store(result, Int{}, 0, type);
    // Work at 77 digits: scale by 10^t, t + s even, so the root has scale (s + t) / 2.
    int32_t t = kMaxPrecision - w;
    t -= (s + t) & 1;
    big::Limb wide[2 * big::kLimbs] = {};
    const big::Power &power = big::kPowers[t];
    const int n = big::width(number);
    for (int i = 0; i < power.used; ++i)
        wide[n + i] = big::limbs::addmul_1(wide + i, number.limb, n, power.limb[i]);
    big::Limb root[big::kLimbs + 1] = {};
    big::square_root(root, wide, n + power.used);
    Int value{};
    std::memcpy(value.limb, root, sizeof value.limb);
    big::settle(value);
    return store(result, value, (s + t) / 2, type);
}
