// bigint.hpp - the big-integer engine beneath exact decimals: a signed integer of at most
// 256 bits held in the 34-byte accumulator of a NUMBER value (QV_ACCUMULATOR_T: four
// 64-bit limbs, least significant first, a sign byte and the count of limbs in use).
//
// Two layers:
// - limb primitives on plain arrays (qv::big::limbs): add, subtract, multiply by one limb,
//   division by one limb, two limbs and many limbs (Knuth's algorithm D with quotient
//   digits estimated through reciprocals of the divisor's top limbs, as Moller and
//   Granlund describe), shifts. Products use 128-bit arithmetic; nothing allocates.
// - the signed accumulator (qv::big::Int): loads, stores, add, subtract, multiply,
//   divide, power, comparisons, scaling by powers of ten and decimal text.
//
// Powers of ten are compile-time tables: 10^0 .. 10^77 as 256-bit magnitudes with their bit
// lengths, and for 10^1 .. 10^19 the normalised divisor and its reciprocal, so scaling down
// by a power of ten multiplies instead of dividing. Every operation dispatches on the real
// width of its operands (the `used` count), so small numbers take one- or two-limb paths.
//
// Results that do not fit 256 bits are reported (false), never wrapped; the target then
// holds no meaningful value and the caller replaces it (exact decimals store zero).
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__)
#include <x86intrin.h>
#endif

#include "qv/datatype.h"

namespace qv::big {

using Limb = uint64_t;
__extension__ typedef unsigned __int128 Wide;
using Int = QV_ACCUMULATOR_T;

inline constexpr int kLimbs = 4;                        // limbs of an accumulator
inline constexpr int kMaxPower = 77;                    // highest tabled power of ten
inline constexpr int kChunkDigits = 19;                 // decimal digits handled per limb in text
inline constexpr Limb kChunk = 10000000000000000000ull; // 10^19

// ---------------------------------------------------------------------------------------
// Limb primitives
// ---------------------------------------------------------------------------------------
namespace limbs {

inline Limb add_carry(Limb a, Limb b, unsigned char &carry) {
#if defined(__x86_64__)
    unsigned long long sum;
    carry = _addcarry_u64(carry, a, b, &sum);
    return sum;
#else
    Wide sum = static_cast<Wide>(a) + b + carry;
    carry = static_cast<unsigned char>(sum >> 64);
    return static_cast<Limb>(sum);
#endif
}

inline Limb sub_borrow(Limb a, Limb b, unsigned char &borrow) {
#if defined(__x86_64__)
    unsigned long long difference;
    borrow = _subborrow_u64(borrow, a, b, &difference);
    return difference;
#else
    Limb difference = a - b - borrow;
    borrow = static_cast<unsigned char>((a < b) || (a - b < borrow));
    return difference;
#endif
}

// r = a + b over n limbs; returns the carry out. r may alias a or b.
inline Limb add_n(Limb *r, const Limb *a, const Limb *b, int n) {
    unsigned char carry = 0;
    for (int i = 0; i < n; ++i) r[i] = add_carry(a[i], b[i], carry);
    return carry;
}

// r = a - b over n limbs; returns the borrow out. r may alias a or b.
inline Limb sub_n(Limb *r, const Limb *a, const Limb *b, int n) {
    unsigned char borrow = 0;
    for (int i = 0; i < n; ++i) r[i] = sub_borrow(a[i], b[i], borrow);
    return borrow;
}

// r = a * m over n limbs; returns the high limb. r may alias a.
inline Limb mul_1(Limb *r, const Limb *a, int n, Limb m) {
    Limb carry = 0;
    for (int i = 0; i < n; ++i) {
        Wide product = static_cast<Wide>(a[i]) * m + carry;
        r[i] = static_cast<Limb>(product);
        carry = static_cast<Limb>(product >> 64);
    }
    return carry;
}

// r += a * m over n limbs; returns the carry limb.
inline Limb addmul_1(Limb *r, const Limb *a, int n, Limb m) {
    Limb carry = 0;
    for (int i = 0; i < n; ++i) {
        Wide product = static_cast<Wide>(a[i]) * m + r[i] + carry;
        r[i] = static_cast<Limb>(product);
        carry = static_cast<Limb>(product >> 64);
    }
    return carry;
}

// r -= a * m over n limbs; returns the borrow limb.
inline Limb submul_1(Limb *r, const Limb *a, int n, Limb m) {
    Limb borrow = 0;
    for (int i = 0; i < n; ++i) {
        Wide product = static_cast<Wide>(a[i]) * m + borrow;
        Limb low = static_cast<Limb>(product);
        borrow = static_cast<Limb>(product >> 64) + (r[i] < low);
        r[i] -= low;
    }
    return borrow;
}

// Three-way comparison of n-limb magnitudes.
inline int compare_n(const Limb *a, const Limb *b, int n) {
    for (int i = n - 1; i >= 0; --i)
        if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
    return 0;
}

// Limbs up to the highest nonzero one.
inline int normalized_size(const Limb *a, int n) {
    while (n > 0 && a[n - 1] == 0) --n;
    return n;
}

// floor((2^128 - 1) / d) - 2^64 for a normalised d (top bit set): the reciprocal that
// turns a division by d into multiplications.
constexpr Limb reciprocal_word(Limb d) {
    return static_cast<Limb>(((static_cast<Wide>(~d) << 64) | ~Limb{0}) / d);
}

// Quotient of (u1, u0) by the normalised d with reciprocal v; u1 < d. Sets r.
constexpr Limb div_2by1(Limb &r, Limb u1, Limb u0, Limb d, Limb v) {
    Wide q = static_cast<Wide>(v) * u1;
    q += (static_cast<Wide>(u1 + 1) << 64) | u0;
    Limb q1 = static_cast<Limb>(q >> 64);
    Limb q0 = static_cast<Limb>(q);
    Limb remainder = u0 - q1 * d;
    if (remainder > q0) {
        --q1;
        remainder += d;
    }
    if (remainder >= d) [[unlikely]] {
        ++q1;
        remainder -= d;
    }
    r = remainder;
    return q1;
}

// A one-limb divisor prepared for division by multiplication.
struct Divisor {
    Limb d;    // the divisor shifted left until its top bit is set
    Limb v;    // reciprocal_word(d)
    int shift; // the shift applied
};

constexpr Divisor make_divisor(Limb d) {
    int shift = std::countl_zero(d);
    Limb normalised = d << shift;
    return {normalised, reciprocal_word(normalised), shift};
}

// The same prepared at run time (one hardware division for the reciprocal).
Divisor make_divisor_at_run_time(Limb d);

// q = a / divisor over n limbs (q may alias a); returns the remainder.
inline Limb divrem_1(Limb *q, const Limb *a, int n, const Divisor &divisor) {
    const int shift = divisor.shift;
    Limb r = 0;
    if (shift == 0) {
        for (int i = n - 1; i >= 0; --i) q[i] = div_2by1(r, r, a[i], divisor.d, divisor.v);
        return r;
    }
    r = a[n - 1] >> (64 - shift);
    for (int i = n - 1; i > 0; --i) {
        Limb u = (a[i] << shift) | (a[i - 1] >> (64 - shift));
        q[i] = div_2by1(r, r, u, divisor.d, divisor.v);
    }
    q[0] = div_2by1(r, r, a[0] << shift, divisor.d, divisor.v);
    return r >> shift;
}

// Quotients of any length: q receives na - nb + 1 limbs, r (when not null) nb limbs.
// a has na limbs, b has nb limbs with b[nb - 1] != 0, na >= nb, na <= kMaxDivideLimbs.
inline constexpr int kMaxDivideLimbs = 8;
void divide(Limb *q, Limb *r, const Limb *a, int na, const Limb *b, int nb);

} // namespace limbs

// ---------------------------------------------------------------------------------------
// Powers of ten
// ---------------------------------------------------------------------------------------

struct Power {
    std::array<Limb, kLimbs> limb;
    int used; // limbs in use
    int bits; // bit length
};

consteval std::array<Power, kMaxPower + 1> make_powers() {
    std::array<Power, kMaxPower + 1> powers{};
    std::array<Limb, kLimbs> value{1, 0, 0, 0};
    for (int k = 0; k <= kMaxPower; ++k) {
        int used = kLimbs;
        while (used > 0 && value[used - 1] == 0) --used;
        int bits = used == 0 ? 0 : 64 * (used - 1) + 64 - std::countl_zero(value[used - 1]);
        powers[k] = {value, used, bits};
        Limb carry = 0;
        for (auto &limb : value) {
            Wide product = static_cast<Wide>(limb) * 10 + carry;
            limb = static_cast<Limb>(product);
            carry = static_cast<Limb>(product >> 64);
        }
    }
    return powers;
}
inline constexpr std::array<Power, kMaxPower + 1> kPowers = make_powers();
static_assert(kPowers[19].limb[0] == kChunk && kPowers[19].used == 1);
static_assert(kPowers[77].used == 4 && kPowers[77].bits == 256, "10^77 needs all 256 bits");

consteval std::array<limbs::Divisor, kChunkDigits + 1> make_power_divisors() {
    std::array<limbs::Divisor, kChunkDigits + 1> divisors{};
    for (int k = 1; k <= kChunkDigits; ++k) divisors[k] = limbs::make_divisor(kPowers[k].limb[0]);
    return divisors;
}
// Reciprocals of 10^1 .. 10^19 (entry 0 unused).
inline constexpr std::array<limbs::Divisor, kChunkDigits + 1> kPowerDivisors =
    make_power_divisors();

// ---------------------------------------------------------------------------------------
// The signed accumulator
// ---------------------------------------------------------------------------------------

// Limbs in use, never above kLimbs (a damaged count cannot send a loop out of bounds).
inline int width(const Int &a) {
    return a.used < kLimbs ? a.used : kLimbs;
}

// Sets `used` from the limbs below `upto` (the limbs above must be zero) and clears the
// sign of zero.
inline void settle(Int &a, int upto = kLimbs) {
    int n = upto;
    while (n > 0 && a.limb[n - 1] == 0) --n;
    a.used = static_cast<uint8_t>(n);
    if (n == 0) a.negative = 0;
}

inline void set_zero(Int &a) {
    std::memset(&a, 0, sizeof a);
}
inline bool is_zero(const Int &a) {
    return width(a) == 0;
}
inline bool is_negative(const Int &a) {
    return a.negative != 0 && width(a) != 0;
}

void set_uint64(Int &a, uint64_t magnitude, bool negative);
void set_int64(Int &a, int64_t value);

// Loads a packed-decimal field of `bytes` bytes (digits then sign nibble); false for a bad
// digit or sign nibble or more than 256 bits.
bool load_packed(Int &a, const uint8_t *field, int bytes);
// Loads the integer part of a double (toward zero); false for NaN, infinities and values
// of 2^256 or more.
bool load_double(Int &a, double value);
// The nearest double.
double to_double(const Int &a);
// The value as int64; false when it does not fit.
bool to_int64(const Int &a, int64_t &value);

// Decimal digits of the magnitude, no sign, no leading zeros ("0" for zero), into out (at
// least kMaxDigits bytes); returns the count. Works in chunks of 19 digits.
inline constexpr int kMaxDigits = 78;
int magnitude_to_text(const Int &a, char *out);
// Loads `count` decimal digits (ASCII '0'..'9') as the magnitude; false when they pass
// 256 bits.
bool load_digits(Int &a, const char *digits, int count, bool negative);

// ---- comparison ------------------------------------------------------------------------

inline int compare_magnitude(const Int &a, const Int &b) {
    int n = width(a), m = width(b);
    if (n != m) return n < m ? -1 : 1;
    return limbs::compare_n(a.limb, b.limb, n);
}

inline int compare(const Int &a, const Int &b) {
    bool a_negative = is_negative(a), b_negative = is_negative(b);
    if (a_negative != b_negative) return a_negative ? -1 : 1;
    int magnitude = compare_magnitude(a, b);
    return a_negative ? -magnitude : magnitude;
}

// -1, 0, 1: |a| against 10^k (k <= kMaxPower).
inline int compare_power(const Int &a, int k) {
    const Power &p = kPowers[k];
    int n = width(a);
    if (n != p.used) return n < p.used ? -1 : 1;
    return limbs::compare_n(a.limb, p.limb.data(), n);
}

// True when |a| < 10^digits: the value fits a precision of `digits`.
inline bool fits_digits(const Int &a, int digits) {
    return compare_power(a, digits) < 0;
}

// ---- add and subtract --------------------------------------------------------------------

// r = a + b where b's sign is given; false on overflow (r then holds garbage). r may alias
// a or b. Works on all four limbs (the unused ones are zero) limb by limb, so that the
// result is written once, in place, without branching on widths.
inline bool add_signed(Int &r, const Int &a, const Int &b, bool b_negative) {
    const bool a_negative = a.negative != 0;
    unsigned char carry = 0;
    if (a_negative == b_negative) {
        for (int i = 0; i < kLimbs; ++i) r.limb[i] = limbs::add_carry(a.limb[i], b.limb[i], carry);
        if (carry != 0) return false;
        r.negative = b_negative;
    } else {
        for (int i = 0; i < kLimbs; ++i) r.limb[i] = limbs::sub_borrow(a.limb[i], b.limb[i], carry);
        r.negative = a_negative;
        if (carry != 0) { // |b| > |a|: negate the difference
            unsigned char borrow = 0;
            for (int i = 0; i < kLimbs; ++i) r.limb[i] = limbs::sub_borrow(0, r.limb[i], borrow);
            r.negative = b_negative;
        }
    }
    const Limb *l = r.limb;
    r.used = static_cast<uint8_t>(l[3] != 0 ? 4 : l[2] != 0 ? 3 : l[1] != 0 ? 2 : l[0] != 0);
    r.negative &= r.used != 0;
    return true;
}

inline bool add(Int &r, const Int &a, const Int &b) {
    return add_signed(r, a, b, b.negative != 0);
}
inline bool subtract(Int &r, const Int &a, const Int &b) {
    return add_signed(r, a, b, b.negative == 0);
}

// ---- multiply ----------------------------------------------------------------------------

bool multiply_wide(Int &r, const Int &a, const Int &b);

// r = a * b; false on overflow. r may alias a or b.
inline bool multiply(Int &r, const Int &a, const Int &b) {
    const int na = width(a), nb = width(b);
    if (na == 0 || nb == 0) {
        set_zero(r);
        return true;
    }
    if (na + nb > kLimbs + 1) return false; // at least 2^(64 (na + nb - 2)) x 2 bits
    if (na > 2 || nb > 2) return multiply_wide(r, a, b);
    // Up to two limbs each: four products (the unused limbs are zero).
    const Limb a0 = a.limb[0], a1 = a.limb[1], b0 = b.limb[0], b1 = b.limb[1];
    const bool negative = (a.negative != 0) != (b.negative != 0);
    Wide p00 = static_cast<Wide>(a0) * b0, p01 = static_cast<Wide>(a0) * b1;
    Wide p10 = static_cast<Wide>(a1) * b0, p11 = static_cast<Wide>(a1) * b1;
    Wide middle = (p00 >> 64) + static_cast<Limb>(p01) + static_cast<Limb>(p10);
    Wide high = (p01 >> 64) + (p10 >> 64) + static_cast<Limb>(p11) + (middle >> 64);
    r.limb[0] = static_cast<Limb>(p00);
    r.limb[1] = static_cast<Limb>(middle);
    r.limb[2] = static_cast<Limb>(high);
    r.limb[3] = static_cast<Limb>(p11 >> 64) + static_cast<Limb>(high >> 64);
    settle(r);
    r.negative = negative && r.used != 0;
    return true;
}

// q = a / b truncated toward zero; b must not be zero. q may alias a or b.
void divide(Int &q, const Int &a, const Int &b);
// r = a^n (n >= 0); false on overflow.
bool power(Int &r, const Int &a, uint32_t n);

// ---- powers of ten -----------------------------------------------------------------------

bool multiply_power_wide(Int &a, int k);
void divide_power_wide(Int &a, int k);

// a *= 10^k (k >= 0); false on overflow.
inline bool multiply_power(Int &a, int k) {
    const int n = width(a);
    if (k == 0 || n == 0) return true;
    if (k > kChunkDigits) return multiply_power_wide(a, k);
    Limb carry = limbs::mul_1(a.limb, a.limb, n, kPowers[k].limb[0]);
    if (carry != 0) {
        if (n == kLimbs) return false;
        a.limb[n] = carry;
        a.used = static_cast<uint8_t>(n + 1);
    }
    return true;
}

// a /= 10^k (k >= 0), truncating toward zero.
inline void divide_power(Int &a, int k) {
    const int n = width(a);
    if (k == 0 || n == 0) return;
    if (k <= kChunkDigits) { // one pass by a tabled reciprocal
        limbs::divrem_1(a.limb, a.limb, n, kPowerDivisors[k]);
        settle(a, n);
    } else if (k > kMaxPower || compare_power(a, k) < 0) {
        set_zero(a);
    } else {
        divide_power_wide(a, k);
    }
}

// a *= 10^k for k >= 0, a /= 10^-k for k < 0.
inline bool scale_by(Int &a, int k) {
    if (k > 0) return multiply_power(a, k);
    if (k < 0) divide_power(a, -k);
    return true;
}

// Significant 16-bit words of the magnitude.
inline int words16(const Int &a) {
    int n = width(a);
    if (n == 0) return 0;
    int bits = 64 * (n - 1) + 64 - std::countl_zero(a.limb[n - 1]);
    return (bits + 15) / 16;
}

// Square root of a magnitude given as `n` limbs (n <= kMaxDivideLimbs), truncated, into
// root (n / 2 + 1 limbs). Newton's iteration from a double estimate, at most 100 rounds.
void square_root(Limb *root, const Limb *a, int n);

} // namespace qv::big
