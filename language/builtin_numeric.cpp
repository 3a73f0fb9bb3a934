// builtin_numeric.cpp - the numeric built-ins (module "builtin"): Abs, Band, Ceil, Floor,
// Sign, Mod, Rand, Round, Trunc and the mathematical functions over the C library.
//
// Arguments of the number types keep their type where the result follows the argument
// (Abs, Round, Trunc); a value of any other type is read as a FLOAT. The mathematical
// functions (Cos, Sin, Tan, Exp, Ln, Log, Sqrt, Power) read their arguments as FLOAT, call
// the C function with errno cleared and give NULL when it sets errno. Ceil and Floor give
// an INTEGER: exact for INTEGER and NUMBER arguments (a double would lose digits past
// 2^53), through ceil and floor for FLOAT; NULL when the whole number passes 64 bits.
#define QV_MODULE "builtin"

#include <cmath>
#include <cstdlib>

#include "language/builtin_shared.hpp"
#include "qv/precise.h"
#include "types/bigint.hpp"
#include "types/precise.hpp"

namespace {

using namespace qv::builtin;
namespace big = qv::big;

// The type a numeric handler works in: the argument's own number type, else FLOAT.
uint32_t number_type(const QV_VALUE_T *value) {
    const uint32_t type = value != nullptr ? value->descriptor.type : 0;
    return type == QV_TYPE_INTEGER || type == QV_TYPE_NUMBER ? type : QV_TYPE_FLOAT;
}

// begin with the argument's type when it is a number type, else FLOAT.
bool begin_number(QV_VALUE_T *result, const EXP_CALL_FRAME_T *frame, const QV_VALUE_T *x) {
    if (x != nullptr && number_type(x) == x->descriptor.type) return begin_like(result, frame, x);
    return begin(result, frame, QV_TYPE_FLOAT);
}

// ---- Abs, Sign -------------------------------------------------------------------------------

// FLOAT: every value not above zero is negated, NaN included, so Abs(0.0) is -0.0 and
// Abs(-0.0) is 0.0, as the language always did. INTEGER: NULL for the one value without a
// 64-bit absolute value.
void absolute(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *x) {
    if (!begin_number(result, frame, x)) return;
    if (!present(x)) return set_null(result);
    switch (number_type(x)) {
        case QV_TYPE_INTEGER: {
            const int64_t v = x->payload.integer;
            if (v == INT64_MIN) return set_null(result);
            return store_integer(result, v < 0 ? -v : v);
        }
        case QV_TYPE_NUMBER:
            if (!qv::precise::is_valid(x)) return set_null(result);
            CopyValue_L(result, x);
            return AbsPrecise_L(result);
        default: {
            double v = 0;
            if (!read_double(x, v)) return set_null(result);
            return store_double(result, v > 0 ? v : -v);
        }
    }
}

void sign(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *x) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    if (!present(x)) return set_null(result);
    switch (number_type(x)) {
        case QV_TYPE_INTEGER:
            return store_integer(result, (x->payload.integer > 0) - (x->payload.integer < 0));
        case QV_TYPE_NUMBER: {
            if (!qv::precise::is_valid(x)) return set_null(result);
            const big::Int &n = x->payload.number;
            return store_integer(result, big::is_zero(n) ? 0 : big::is_negative(n) ? -1 : 1);
        }
        default: {
            double v = 0;
            if (!read_double(x, v) || std::isnan(v)) return set_null(result);
            return store_integer(result, (v > 0) - (v < 0));
        }
    }
}

// ---- Ceil, Floor, Band -----------------------------------------------------------------------

// The whole number at or above (up) or at or below a NUMBER; false past 64 bits.
bool number_whole(const QV_PRECISE_T *x, bool up, int64_t &out) {
    int64_t whole = 0;
    if (!qv::precise::is_valid(x) || PreciseToInteger_L(x, &whole) != 0) return false;
    QV_PRECISE_T cut = *x;
    TruncatePrecise_L(&cut, 0);
    out = whole;
    if (big::compare(cut.payload.number, x->payload.number) == 0) return true;
    const bool negative = big::is_negative(x->payload.number);
    if (up && !negative) return whole != INT64_MAX && (out = whole + 1, true);
    if (!up && negative) return whole != INT64_MIN && (out = whole - 1, true);
    return true;
}

template <bool Up>
void whole(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *x) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    if (!present(x)) return set_null(result);
    int64_t out = 0;
    switch (number_type(x)) {
        case QV_TYPE_INTEGER: return store_integer(result, x->payload.integer);
        case QV_TYPE_NUMBER:
            if (!number_whole(x, Up, out)) return set_null(result);
            return store_integer(result, out);
        default: {
            double v = 0, w = 0;
            if (!read_double(x, v) ||
                !checked_math([v] { return Up ? std::ceil(v) : std::floor(v); }, w) ||
                !whole_to_integer(w, out))
                return set_null(result);
            return store_integer(result, out);
        }
    }
}

// Band( number, min, grain ): the index from 0 of the band of width grain, counted from
// min, that holds the number. NULL below min, for a grain of 0 or less, and when the index
// is not a 64-bit integer (NaN passes the two tests and lands here).
void band(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *number, QV_VALUE_T *min,
          QV_VALUE_T *grain) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    double n = 0, low = 0, width = 0;
    int64_t index = 0;
    if (!read_double(number, n) || !read_double(min, low) || !read_double(grain, width) ||
        n < low || width <= 0 || !whole_to_integer(std::trunc((n - low) / width), index))
        return set_null(result);
    store_integer(result, index);
}

// ---- Mod -------------------------------------------------------------------------------------

// Both as 64-bit integers; the remainder of the truncating division, with the dividend's
// sign. NULL for a divisor of 0; a divisor of -1 gives 0 (INT64_MIN % -1 would trap).
void modulo(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a, QV_VALUE_T *b) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    int64_t x = 0, y = 0;
    if (!read_integer(a, x) || !read_integer(b, y) || y == 0) return set_null(result);
    store_integer(result, y == -1 ? 0 : x % y);
}

// ---- Rand ------------------------------------------------------------------------------------

// Rand( min, max, grain [, seed] ): one of the values min, min + grain, ... up to max, from
// the C library's generator (seeded with srand when a seed is given). The draw r is
// rand() / RAND_MAX, drawn again while it is 1, so 0 <= r < 1; the original platform's
// RAND_MAX was 32767, whose draw this is. NULL for a grain of 0 or less or a range of 0 or
// less.
void random_step(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *min, QV_VALUE_T *max,
                 QV_VALUE_T *grain, QV_VALUE_T *seed) {
    if (!begin(result, frame, QV_TYPE_FLOAT)) return;
    int64_t start = 0;
    if (read_integer(seed, start)) std::srand(static_cast<unsigned>(start));
    double low = 0, high = 0, width = 0;
    if (!read_double(grain, width) || width <= 0 || !read_double(min, low) ||
        !read_double(max, high))
        return set_null(result);
    const double range = high - low;
    if (range <= 0) return set_null(result);
    double r = 0;
    do {
        r = std::rand() / static_cast<double>(RAND_MAX);
    } while (r >= 1.0);
    const double steps = std::trunc(range / width) + 1;
    store_double(result, low + std::trunc(steps * r) * width);
}

// ---- Round, Trunc ----------------------------------------------------------------------------

// An INTEGER rounded half away from zero (cut: toward zero) to 10^-places (places < 0);
// false when the result passes 64 bits. Positive places leave it as it is.
bool round_integer(int64_t x, int64_t places, bool cut, int64_t &out) {
    out = x;
    if (places >= 0) return true;
    if (places < -20) places = -20; // 10^20 already exceeds twice every 64-bit value
    __extension__ using Wide = __int128;
    Wide unit = 1;
    for (int64_t i = 0; i < -places; ++i) unit *= 10;
    Wide kept = x / unit, rest = x % unit;
    if (!cut && 2 * (rest < 0 ? -rest : rest) >= unit) kept += x < 0 ? -1 : 1;
    const Wide rounded = kept * unit;
    if (rounded < INT64_MIN || rounded > INT64_MAX) return false;
    out = static_cast<int64_t>(rounded);
    return true;
}

// The NUMBER x rounded half away from zero at `places` decimals into result, which is
// typed already (its precision one above x's, for the carry); false when it does not fit.
bool round_number(QV_VALUE_T *result, const QV_PRECISE_T *x, int64_t places) {
    if (!qv::precise::is_valid(x)) return false;
    big::Int n = x->payload.number;
    const int64_t drop = x->descriptor.scale - places;
    if (drop > big::kMaxPower) {
        big::set_zero(n);
    } else if (drop > 0) {
        const int d = static_cast<int>(drop);
        big::Int kept = n, back, rest;
        big::divide_power(kept, d);
        back = kept;
        big::multiply_power(back, d);
        big::subtract(rest, n, back);
        big::Int half{}; // 5 x 10^(d - 1)
        for (int i = 0; i < big::kLimbs; ++i) half.limb[i] = big::kPowers[d - 1].limb[i];
        big::limbs::mul_1(half.limb, half.limb, big::kLimbs, 5);
        big::settle(half);
        if (big::compare_magnitude(rest, half) >= 0) {
            big::Int one;
            big::set_int64(one, big::is_negative(n) ? -1 : 1);
            if (!big::add(kept, kept, one)) return false;
        }
        if (!big::multiply_power(kept, d)) return false;
        n = kept;
    }
    if (!big::fits_digits(n, result->descriptor.precision)) return false;
    result->payload.number = n;
    result->is_null = 0;
    return true;
}

// Round( number [, places] ) and Trunc( number [, places] ): places default to 0 and may be
// negative (tens, hundreds ...). INTEGER stays INTEGER (positive places change nothing;
// NULL when rounding passes 64 bits). FLOAT works on the digits it prints (round_double).
// NUMBER: Trunc keeps the argument's type (TruncatePrecise_L); Round gives the argument's
// type with one more digit of precision, up to 77, since rounding may carry into a new
// digit (99.5 rounds to 100), and NULL when 77 digits do not hold it.
template <bool Cut>
void places(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *x, QV_VALUE_T *count) {
    const uint32_t type = number_type(x);
    if (type == QV_TYPE_NUMBER && !Cut) {
        const int32_t p = x->descriptor.precision;
        if (!begin(result, frame, QV_TYPE_NUMBER, p < QV_PRECISE_MAX_PRECISION ? p + 1 : p,
                   x->descriptor.scale))
            return;
    } else if (!begin_number(result, frame, x)) {
        return;
    }
    int64_t n = 0;
    if (!present(x) || !optional_integer(count, 0, n)) return set_null(result);
    switch (type) {
        case QV_TYPE_INTEGER: {
            int64_t out = 0;
            if (!round_integer(x->payload.integer, n, Cut, out)) return set_null(result);
            return store_integer(result, out);
        }
        case QV_TYPE_NUMBER:
            if (!Cut) {
                if (!round_number(result, x, n)) set_null(result);
                return;
            }
            if (!qv::precise::is_valid(x)) return set_null(result);
            CopyValue_L(result, x);
            TruncatePrecise_L(result, clamp32(n));
            return;
        default: {
            double v = 0;
            if (!read_double(x, v)) return set_null(result);
            return store_double(result, round_double(v, n, Cut));
        }
    }
}

// ---- The C mathematical functions ------------------------------------------------------------

template <double (*F)(double)>
void math(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *x) {
    if (!begin(result, frame, QV_TYPE_FLOAT)) return;
    double v = 0, y = 0;
    if (!read_double(x, v) || !checked_math([v] { return F(v); }, y)) return set_null(result);
    store_double(result, y);
}

// Ln and Log: NULL for zero, negative numbers and NaN, without calling.
template <double (*F)(double)>
void logarithm(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *x) {
    if (!begin(result, frame, QV_TYPE_FLOAT)) return;
    double v = 0, y = 0;
    if (!read_double(x, v) || !(v > 0) || !checked_math([v] { return F(v); }, y))
        return set_null(result);
    store_double(result, y);
}

void power(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *base, QV_VALUE_T *exponent) {
    if (!begin(result, frame, QV_TYPE_FLOAT)) return;
    double b = 0, e = 0, y = 0;
    if (!read_double(base, b) || !read_double(exponent, e) ||
        !checked_math([b, e] { return std::pow(b, e); }, y))
        return set_null(result);
    store_double(result, y);
}

double c_cos(double x) {
    return std::cos(x);
}
double c_sin(double x) {
    return std::sin(x);
}
double c_tan(double x) {
    return std::tan(x);
}
double c_exp(double x) {
    return std::exp(x);
}
double c_log(double x) {
    return std::log(x);
}
double c_log10(double x) {
    return std::log10(x);
}
double c_sqrt(double x) {
    return std::sqrt(x);
}

} // namespace

extern "C" {

QV_API void BI_abs(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<absolute>(result, frame, a1);
}
QV_API void BI_band(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2,
                    QV_VALUE_T *a3) {
    run<band>(result, frame, a1, a2, a3);
}
QV_API void BI_ceil(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<whole<true>>(result, frame, a1);
}
QV_API void BI_floor(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<whole<false>>(result, frame, a1);
}
QV_API void BI_sign(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<sign>(result, frame, a1);
}
QV_API void BI_mod(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2) {
    run<modulo>(result, frame, a1, a2);
}
QV_API void BI_rand(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2,
                    QV_VALUE_T *a3, QV_VALUE_T *a4) {
    run<random_step>(result, frame, a1, a2, a3, a4);
}
QV_API void BI_round(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2) {
    run<places<false>>(result, frame, a1, a2);
}
QV_API void BI_trunc(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2) {
    run<places<true>>(result, frame, a1, a2);
}
QV_API void BI_cos(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<math<c_cos>>(result, frame, a1);
}
QV_API void BI_sin(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<math<c_sin>>(result, frame, a1);
}
QV_API void BI_tan(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<math<c_tan>>(result, frame, a1);
}
QV_API void BI_exp(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<math<c_exp>>(result, frame, a1);
}
QV_API void BI_sqrt(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<math<c_sqrt>>(result, frame, a1);
}
QV_API void BI_ln(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<logarithm<c_log>>(result, frame, a1);
}
QV_API void BI_log(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<logarithm<c_log10>>(result, frame, a1);
}
QV_API void BI_power(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1, QV_VALUE_T *a2) {
    run<power>(result, frame, a1, a2);
}

} // extern "C"
