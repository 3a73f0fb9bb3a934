// bigint.cpp - the big-integer engine beneath exact decimals: division, the wide paths of
// multiplication and scaling, power, loads and stores, decimal text, doubles and square
// roots. The short hot paths are inline in bigint.hpp.
//
// Part of the precise module.
#define QV_MODULE "precise"
#include "types/bigint.hpp"

#include <cmath>
#include <limits>

namespace qv::big {

namespace limbs {
namespace {

// reciprocal_word at run time: one hardware division where there is one.
Limb runtime_reciprocal(Limb d) {
#if defined(__x86_64__)
    Limb quotient, remainder;
    asm("divq %4" : "=a"(quotient), "=d"(remainder) : "a"(~Limb{0}), "d"(~d), "rm"(d));
    return quotient;
#else
    return reciprocal_word(d);
#endif
}

// The reciprocal of the normalised two-limb divisor (d1, d0) for div_3by2.
Limb reciprocal_3by2(Limb d1, Limb d0) {
    Limb v = runtime_reciprocal(d1);
    Limb p = d1 * v + d0;
    if (p < d0) {
        --v;
        if (p >= d1) {
            --v;
            p -= d1;
        }
        p -= d1;
    }
    Wide t = static_cast<Wide>(v) * d0;
    Limb t1 = static_cast<Limb>(t >> 64), t0 = static_cast<Limb>(t);
    p += t1;
    if (p < t1) {
        --v;
        if (p >= d1 && (p > d1 || t0 >= d0)) --v;
    }
    return v;
}

// Quotient of (u2, u1, u0) by the normalised (d1, d0), where (u2, u1) < (d1, d0); sets the
// remainder (r1, r0).
inline Limb div_3by2(Limb &r1, Limb &r0, Limb u2, Limb u1, Limb u0, Limb d1, Limb d0, Limb v) {
    const Wide d = (static_cast<Wide>(d1) << 64) | d0;
    Wide q = static_cast<Wide>(v) * u2 + ((static_cast<Wide>(u2) << 64) | u1);
    Limb q1 = static_cast<Limb>(q >> 64), q0 = static_cast<Limb>(q);
    Limb high = u1 - q1 * d1;
    Wide r = ((static_cast<Wide>(high) << 64) | u0) - d - static_cast<Wide>(d0) * q1;
    ++q1;
    if (static_cast<Limb>(r >> 64) >= q0) {
        --q1;
        r += d;
    }
    if (r >= d) [[unlikely]] {
        ++q1;
        r -= d;
    }
    r1 = static_cast<Limb>(r >> 64);
    r0 = static_cast<Limb>(r);
    return q1;
}

// out = a << shift over n limbs, with the bits shifted out in out[n]; 0 <= shift < 64.
void shift_left(Limb *out, const Limb *a, int n, int shift) {
    if (shift == 0) {
        std::memcpy(out, a, sizeof(Limb) * n);
        out[n] = 0;
        return;
    }
    out[n] = a[n - 1] >> (64 - shift);
    for (int i = n - 1; i > 0; --i) out[i] = (a[i] << shift) | (a[i - 1] >> (64 - shift));
    out[0] = a[0] << shift;
}

// out = a >> shift over n limbs; 0 <= shift < 64.
void shift_right(Limb *out, const Limb *a, int n, int shift) {
    if (shift == 0) {
        std::memcpy(out, a, sizeof(Limb) * n);
        return;
    }
    for (int i = 0; i < n - 1; ++i) out[i] = (a[i] >> shift) | (a[i + 1] << (64 - shift));
    out[n - 1] = a[n - 1] >> shift;
}

// Two-limb divisor: (numerator has na + 1 limbs, normalised, top limb below d1).
void divide_by_2(Limb *q, Limb *numerator, int na, Limb d1, Limb d0) {
    Limb v = reciprocal_3by2(d1, d0);
    Limb r1 = numerator[na], r0 = numerator[na - 1];
    for (int i = na - 2; i >= 0; --i) q[i] = div_3by2(r1, r0, r1, r0, numerator[i], d1, d0, v);
    numerator[1] = r1;
    numerator[0] = r0;
}

// Knuth's algorithm D for divisors of three limbs or more, quotient digits estimated from
// the top three numerator limbs by div_3by2 (at most one too large, then added back).
// numerator has na + 1 limbs (normalised with d); the remainder is left in its low nb limbs.
void divide_by_many(Limb *q, Limb *numerator, int na, const Limb *d, int nb) {
    const Limb d1 = d[nb - 1], d0 = d[nb - 2];
    const Limb v = reciprocal_3by2(d1, d0);
    for (int j = na - nb; j >= 0; --j) {
        Limb *window = numerator + j; // nb + 1 limbs
        Limb n2 = window[nb], n1 = window[nb - 1], n0 = window[nb - 2];
        Limb digit;
        if (n2 == d1 && n1 == d0) [[unlikely]] {
            // The digit is exactly B - 1: the window is below B x d, and subtracting
            // (B - 1) x d leaves it at least d minus less than B^(nb - 1).
            digit = ~Limb{0};
            submul_1(window, d, nb, digit);
            window[nb] = 0;
        } else {
            Limb r1, r0;
            digit = div_3by2(r1, r0, n2, n1, n0, d1, d0, v);
            Limb borrow = submul_1(window, d, nb - 2, digit);
            Limb borrow0 = r0 < borrow;
            r0 -= borrow;
            Limb borrow1 = r1 < borrow0;
            r1 -= borrow0;
            window[nb - 2] = r0;
            window[nb - 1] = r1;
            window[nb] = 0;
            if (borrow1 != 0) [[unlikely]] {
                add_n(window, window, d, nb);
                --digit;
            }
        }
        q[j] = digit;
    }
}

} // namespace

void divide(Limb *q, Limb *r, const Limb *a, int na, const Limb *b, int nb) {
    if (nb == 1) {
        Limb remainder = divrem_1(q, a, na, make_divisor_at_run_time(b[0]));
        if (r != nullptr) r[0] = remainder;
        return;
    }
    const int shift = std::countl_zero(b[nb - 1]);
    Limb divisor[kMaxDivideLimbs + 1], numerator[kMaxDivideLimbs + 1];
    shift_left(numerator, a, na, shift);
    shift_left(divisor, b, nb, shift); // nothing shifts out of the top limb
    if (nb == 2)
        divide_by_2(q, numerator, na, divisor[1], divisor[0]);
    else
        divide_by_many(q, numerator, na, divisor, nb);
    if (r != nullptr) shift_right(r, numerator, nb, shift);
}

Divisor make_divisor_at_run_time(Limb d) {
    int shift = std::countl_zero(d);
    Limb normalised = d << shift;
    return {normalised, runtime_reciprocal(normalised), shift};
}

} // namespace limbs

// ---------------------------------------------------------------------------------------
// Loads and stores
// ---------------------------------------------------------------------------------------

void set_uint64(Int &a, uint64_t magnitude, bool negative) {
    set_zero(a);
    a.limb[0] = magnitude;
    a.used = magnitude != 0;
    a.negative = negative && magnitude != 0;
}

void set_int64(Int &a, int64_t value) {
    uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : value;
    set_uint64(a, magnitude, value < 0);
}

bool to_int64(const Int &a, int64_t &value) {
    int n = width(a);
    if (n > 1) return false;
    uint64_t magnitude = n == 0 ? 0 : a.limb[0];
    uint64_t limit = static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + a.negative;
    if (magnitude > limit) return false;
    value = a.negative ? static_cast<int64_t>(0 - magnitude) : static_cast<int64_t>(magnitude);
    return true;
}

bool load_double(Int &a, double value) {
    set_zero(a);
    if (!std::isfinite(value)) return false;
    double magnitude = std::trunc(std::fabs(value));
    if (magnitude < 1) return true;
    int exponent;
    double fraction = std::frexp(magnitude, &exponent); // magnitude = fraction * 2^exponent
    if (exponent > 64 * kLimbs) return false;
    // 53 significant bits as an integer, then shifted into place.
    auto mantissa = static_cast<Limb>(std::ldexp(fraction, 53));
    int shift = exponent - 53;
    if (shift <= 0) {
        a.limb[0] = mantissa >> -shift;
    } else {
        int limb = shift / 64, bits = shift % 64;
        a.limb[limb] = mantissa << bits;
        if (bits != 0 && limb + 1 < kLimbs) a.limb[limb + 1] = mantissa >> (64 - bits);
    }
    settle(a);
    a.negative = value < 0 && a.used != 0;
    return true;
}

double to_double(const Int &a) {
    int n = width(a);
    if (n == 0) return 0.0;
    double magnitude;
    if (n == 1) {
        magnitude = static_cast<double>(a.limb[0]);
    } else {
        // The top 64 bits with every lower bit folded into the last one, so the one
        // rounding of the conversion is correct.
        int lead = std::countl_zero(a.limb[n - 1]);
        Limb top = a.limb[n - 1] << lead;
        Limb below = a.limb[n - 2];
        if (lead != 0) top |= below >> (64 - lead);
        Limb rest = lead != 0 ? below << lead : below;
        for (int i = n - 3; i >= 0; --i) rest |= a.limb[i];
        top |= rest != 0;
        magnitude = std::ldexp(static_cast<double>(top), 64 * (n - 1) - lead);
    }
    return a.negative ? -magnitude : magnitude;
}

bool load_packed(Int &a, const uint8_t *field, int bytes) {
    char digits[2 * 64];
    if (bytes < 1 || 2 * bytes - 1 > static_cast<int>(sizeof digits)) return false;
    int count = 0;
    for (int i = 0; i < bytes; ++i) {
        int high = field[i] >> 4, low = field[i] & 0xF;
        if (high > 9) return false;
        digits[count++] = static_cast<char>('0' + high);
        if (i + 1 < bytes) {
            if (low > 9) return false;
            digits[count++] = static_cast<char>('0' + low);
        }
    }
    int sign = field[bytes - 1] & 0xF;
    if (sign < 0xA) return false;
    return load_digits(a, digits, count, sign == 0xB || sign == 0xD);
}

// ---------------------------------------------------------------------------------------
// Decimal text
// ---------------------------------------------------------------------------------------

namespace {

// Eight ASCII digits read at once (the digits are known to be '0'..'9').
inline uint32_t parse_eight(const char *text) {
    uint64_t v;
    std::memcpy(&v, text, 8);
    v -= 0x3030303030303030ull;
    v = v * 10 + (v >> 8);
    v = (((v & 0x000000FF000000FFull) * (100 + (1000000ull << 32))) +
         (((v >> 16) & 0x000000FF000000FFull) * (1 + (10000ull << 32)))) >>
        32;
    return static_cast<uint32_t>(v);
}

// Up to 19 ASCII digits as a number.
inline Limb parse_chunk(const char *text, int count) {
    Limb value = 0;
    while (count >= 8) {
        value = value * 100000000u + parse_eight(text);
        text += 8;
        count -= 8;
    }
    while (count-- > 0) value = value * 10 + static_cast<Limb>(*text++ - '0');
    return value;
}

constexpr char kDigitPairs[] = "00010203040506070809101112131415161718192021222324252627282930"
                               "31323334353637383940414243444546474849505152535455565758596061"
                               "62636465666768697071727374757677787980818283848586878889909192"
                               "93949596979899";

inline void write_four(char *out, uint32_t value) {
    std::memcpy(out, kDigitPairs + 2 * (value / 100), 2);
    std::memcpy(out + 2, kDigitPairs + 2 * (value % 100), 2);
}
inline void write_eight(char *out, uint32_t value) {
    write_four(out, value / 10000);
    write_four(out + 4, value % 10000);
}

// A chunk below 10^19 as exactly 19 digits, leading zeros included.
inline void write_chunk(char *out, Limb chunk) {
    auto top = static_cast<uint32_t>(chunk / 10000000000000000ull); // below 1000
    Limb rest = chunk % 10000000000000000ull;
    out[0] = static_cast<char>('0' + top / 100);
    std::memcpy(out + 1, kDigitPairs + 2 * (top % 100), 2);
    write_eight(out + 3, static_cast<uint32_t>(rest / 100000000));
    write_eight(out + 11, static_cast<uint32_t>(rest % 100000000));
}

// A chunk without leading zeros; returns the count ("0" for zero).
inline int write_leading_chunk(char *out, Limb chunk) {
    char buffer[kChunkDigits];
    write_chunk(buffer, chunk);
    int skip = 0;
    while (skip < kChunkDigits - 1 && buffer[skip] == '0') ++skip;
    std::memcpy(out, buffer + skip, kChunkDigits - skip);
    return kChunkDigits - skip;
}

} // namespace

int magnitude_to_text(const Int &a, char *out) {
    Limb magnitude[kLimbs];
    int n = width(a);
    std::memcpy(magnitude, a.limb, sizeof magnitude);
    Limb chunks[5];
    int count = 0;
    while (n > 1 || (n == 1 && magnitude[0] >= kChunk)) {
        chunks[count++] = limbs::divrem_1(magnitude, magnitude, n, kPowerDivisors[kChunkDigits]);
        n = limbs::normalized_size(magnitude, n);
    }
    int length = write_leading_chunk(out, n == 0 ? 0 : magnitude[0]);
    while (count > 0) {
        write_chunk(out + length, chunks[--count]);
        length += kChunkDigits;
    }
    return length;
}

bool load_digits(Int &a, const char *digits, int count, bool negative) {
    set_zero(a);
    while (count > 0 && *digits == '0') {
        ++digits;
        --count;
    }
    if (count > kMaxDigits) return false;
    int first = count % kChunkDigits;
    if (first == 0 && count > 0) first = kChunkDigits;
    a.limb[0] = parse_chunk(digits, first);
    int n = 1;
    for (int at = first; at < count; at += kChunkDigits) {
        Limb carry = limbs::mul_1(a.limb, a.limb, n, kChunk);
        Limb chunk = parse_chunk(digits + at, kChunkDigits);
        unsigned char add = 0;
        a.limb[0] = limbs::add_carry(a.limb[0], chunk, add);
        for (int i = 1; i < n && add; ++i) a.limb[i] = limbs::add_carry(a.limb[i], 0, add);
        carry += add;
        if (carry != 0) {
            if (n == kLimbs) return false;
            a.limb[n++] = carry;
        }
    }
    settle(a, n);
    a.negative = negative && a.used != 0;
    return true;
}

// ---------------------------------------------------------------------------------------
// Arithmetic
// ---------------------------------------------------------------------------------------

bool multiply_wide(Int &r, const Int &a, const Int &b) {
    const int na = width(a), nb = width(b);
    const Int &wide = na >= nb ? a : b, &narrow = na >= nb ? b : a;
    const int nw = na >= nb ? na : nb, nn = na >= nb ? nb : na;
    Limb product[2 * kLimbs] = {};
    product[nw] = limbs::mul_1(product, wide.limb, nw, narrow.limb[0]);
    for (int i = 1; i < nn; ++i)
        product[nw + i] = limbs::addmul_1(product + i, wide.limb, nw, narrow.limb[i]);
    if (product[kLimbs] != 0) return false;
    std::memcpy(r.limb, product, sizeof r.limb);
    r.negative = a.negative != b.negative;
    settle(r);
    return true;
}

void divide(Int &q, const Int &a, const Int &b) {
    const int na = width(a), nb = width(b);
    const bool negative = a.negative != b.negative;
    Limb quotient[kLimbs] = {};
    if (nb != 0 && na >= nb) limbs::divide(quotient, nullptr, a.limb, na, b.limb, nb);
    std::memcpy(q.limb, quotient, sizeof quotient);
    q.negative = negative;
    settle(q);
}

bool power(Int &r, const Int &a, uint32_t n) {
    Int result, base = a;
    set_uint64(result, 1, false);
    base.negative = 0;
    const bool negative = a.negative && (n & 1) != 0;
    while (n != 0) {
        if ((n & 1) != 0 && !multiply(result, result, base)) return false;
        n >>= 1;
        if (n != 0 && !multiply(base, base, base)) return false;
    }
    r = result;
    r.negative = negative && r.used != 0;
    return true;
}

bool multiply_power_wide(Int &a, int k) {
    int n = width(a);
    while (k > 0) {
        int step = k < kChunkDigits ? k : kChunkDigits;
        Limb carry = limbs::mul_1(a.limb, a.limb, n, kPowers[step].limb[0]);
        if (carry != 0) {
            if (n == kLimbs) return false;
            a.limb[n++] = carry;
        }
        k -= step;
    }
    a.used = static_cast<uint8_t>(n);
    return true;
}

void divide_power_wide(Int &a, int k) {
    int n = width(a);
    while (k > 0) {
        int step = k < kChunkDigits ? k : kChunkDigits;
        limbs::divrem_1(a.limb, a.limb, n, kPowerDivisors[step]);
        n = limbs::normalized_size(a.limb, n);
        k -= step;
    }
    settle(a, n);
}

// ---------------------------------------------------------------------------------------
// Square root
// ---------------------------------------------------------------------------------------

namespace {

constexpr int kRootLimbs = limbs::kMaxDivideLimbs;

// A first estimate from the double square root of the leading bits; never zero.
void estimate_root(Limb *root, const Limb *a, int n) {
    std::memset(root, 0, sizeof(Limb) * kRootLimbs);
    int bits = 64 * (n - 1) + 64 - std::countl_zero(a[n - 1]);
    int drop = bits > 64 ? bits - 64 : 0;
    drop += drop & 1; // an even shift halves exactly
    Limb top;
    if (drop == 0) {
        top = a[0];
    } else {
        int limb = drop / 64, shift = drop % 64;
        top = a[limb] >> shift;
        if (shift != 0 && limb + 1 < n) top |= a[limb + 1] << (64 - shift);
    }
    auto estimate = static_cast<Limb>(std::sqrt(static_cast<double>(top)));
    if (estimate == 0) estimate = 1;
    int shift = drop / 2; // root of 2^drop
    root[shift / 64] = estimate << (shift % 64);
    if (shift % 64 != 0 && shift / 64 + 1 < kRootLimbs)
        root[shift / 64 + 1] = estimate >> (64 - shift % 64);
}

// next = (y + a / y) / 2; returns its size.
int newton_step(Limb *next, const Limb *y, int ny, const Limb *a, int n) {
    Limb quotient[kRootLimbs + 1] = {};
    if (n >= ny) limbs::divide(quotient, nullptr, a, n, y, ny);
    Limb sum[kRootLimbs + 1] = {};
    std::memcpy(sum, y, sizeof(Limb) * ny);
    limbs::add_n(sum, sum, quotient, kRootLimbs);
    limbs::shift_right(next, sum, kRootLimbs, 1);
    return limbs::normalized_size(next, kRootLimbs);
}

} // namespace

void square_root(Limb *root, const Limb *a, int n) {
    n = limbs::normalized_size(a, n);
    std::memset(root, 0, sizeof(Limb) * (n / 2 + 1));
    if (n == 0) return;
    Limb y[kRootLimbs], next[kRootLimbs];
    estimate_root(y, a, n);
    // One step from any estimate lands at or above the root; from there the iteration
    // decreases until it stops at the truncated root.
    int ny = newton_step(y, y, limbs::normalized_size(y, kRootLimbs), a, n);
    for (int round = 0; round < 100; ++round) {
        int nn = newton_step(next, y, ny, a, n);
        if (nn > ny || (nn == ny && limbs::compare_n(next, y, ny) >= 0)) break;
        std::memcpy(y, next, sizeof y);
        ny = nn;
    }
    std::memcpy(root, y, sizeof(Limb) * (n / 2 + 1));
}

} // namespace qv::big
