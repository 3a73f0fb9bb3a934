// precise_binary.cpp - exact decimals in binary decimal fields: packed decimal (BCD) and
// zoned decimal, both ways, their text forms and the check of their nibbles.
//
// Packed, precision p: (p + 2) / 2 bytes; the digits right-aligned two per byte, high
// nibble first, then the sign nibble (written 0xC or 0xD). Zoned, precision p: p bytes,
// each zone 0xF and one digit, the last zone the sign (written 0xF or 0xD). Signs read:
// 0xA 0xC 0xE 0xF positive, 0xB 0xD negative. Neither field stores the scale.
//
// Part of the precise module.
#define QV_MODULE "precise"
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "core/raise.hpp"
#include "types/precise.hpp"

using namespace qv::precise;
namespace big = qv::big;

namespace {

constexpr uint8_t kPlus = 0xC, kMinus = 0xD, kZone = 0xF;

int packed_bytes(int32_t precision) {
    return (precision + 2) / 2;
}

bool valid_layout(int32_t precision, int32_t scale) {
    return precision >= 1 && precision <= kMaxPrecision && scale >= 0 && scale <= precision;
}

bool is_negative_sign(int nibble) {
    return nibble == 0xB || nibble == 0xD;
}

// The first byte whose nibbles break the layout, or -1.
int first_bad_packed(const uint8_t *field, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        int high = field[i] >> 4, low = field[i] & 0xF;
        bool last = i == bytes - 1;
        if (high > 9 || (last ? low < 0xA : low > 9)) return i;
    }
    return -1;
}

int first_bad_zoned(const uint8_t *field, int bytes) {
    for (int i = 0; i < bytes; ++i) {
        int zone = field[i] >> 4, digit = field[i] & 0xF;
        bool last = i == bytes - 1;
        if (digit > 9 || (last ? zone < 0xA : zone != kZone)) return i;
    }
    return -1;
}

// Writes `count` digits right-aligned into a packed field of precision p.
void write_packed(uint8_t *field, int32_t precision, const char *digits, int count, bool negative) {
    const int bytes = packed_bytes(precision);
    std::memset(field, 0, bytes);
    int nibble = 2 * bytes - 1 - count; // nibble of the first digit
    for (int i = 0; i < count; ++i, ++nibble) {
        auto digit = static_cast<uint8_t>(digits[i] - '0');
        field[nibble / 2] |= nibble % 2 == 0 ? digit << 4 : digit;
    }
    field[bytes - 1] |= negative ? kMinus : kPlus;
}

void write_zoned(uint8_t *field, int32_t precision, const char *digits, int count, bool negative) {
    std::memset(field, kZone << 4, precision);
    for (int i = 0; i < count; ++i)
        field[precision - count + i] = static_cast<uint8_t>(kZone << 4 | (digits[i] - '0'));
    if (negative)
        field[precision - 1] = static_cast<uint8_t>(kMinus << 4 | (field[precision - 1] & 0xF));
}

// A value read as NUMBER(p, s) into `number`; false when NULL, unreadable or too wide.
bool value_at(const QV_VALUE_T *value, int32_t precision, int32_t scale, QV_PRECISE_T &number) {
    if (value == nullptr || value->is_null || !valid_layout(precision, scale)) return false;
    QV_PRECISE_T scratch;
    const QV_PRECISE_T *source = as_number(value, scratch);
    NewPrecise_L(&number, precision, scale);
    return source != nullptr && ConvertPrecise_L(&number, source) == 0;
}

using Writer = void (*)(uint8_t *, int32_t, const char *, int, bool);

int32_t value_to_field(const QV_VALUE_T *value, uint8_t *field, int32_t precision, int32_t scale,
                       Writer write) {
    QV_PRECISE_T number;
    if (field == nullptr || !value_at(value, precision, scale, number)) return -1;
    char digits[big::kMaxDigits];
    int count = big::magnitude_to_text(number.payload.number, digits);
    if (count == 1 && digits[0] == '0') count = 0;
    write(field, precision, digits, count, number.payload.number.negative);
    return 0;
}

// Makes the number loaded into value's accumulator NUMBER(p, s); NULL with -1 when it was
// not loaded or holds more digits than p (a nonzero leading nibble of an even-precision
// packed field).
int32_t finish_field(QV_VALUE_T *value, bool loaded, int32_t precision, int32_t scale) {
    if (!loaded || finish(value, scale, {precision, scale}) != 0) {
        value->is_null = 1;
        return -1;
    }
    return 0;
}

} // namespace

extern "C" int32_t StringToBCD_L(uint8_t *out, int32_t precision, int32_t scale, const char *text,
                                 const QV_NUMBER_FORMAT_T *format) {
    if (out == nullptr || !valid_layout(precision, scale)) return -1;
    std::memset(out, 0, packed_bytes(precision));
    out[packed_bytes(precision) - 1] = kPlus;
    if (text == nullptr || *text == '\0') return -1;
    const Separator point = decimal_separator(format), group = group_separator(format);
    const char *at = text;
    const bool negative = *at == '-';
    at += negative;
    char digits[kMaxPrecision];
    int integer = 0, fraction = 0;
    bool seen_point = false, seen_digit = false, nonzero = false;
    while (*at != '\0') {
        char c = *at;
        if (c >= '0' && c <= '9') {
            ++at;
            seen_digit = true;
            nonzero |= c != '0';
            if (!seen_point && integer == 0 && c == '0') continue; // a leading zero
            int &count = seen_point ? fraction : integer;
            if (++count + (seen_point ? integer : 0) > precision) return -1;
            digits[integer + fraction - 1] = c;
        } else if (!seen_point && std::strncmp(at, point.text, point.length) == 0) {
            seen_point = true;
            at += point.length;
        } else if (!seen_point && group.length > 0 &&
                   std::strncmp(at, group.text, group.length) == 0) {
            at += group.length;
        } else {
            return -1;
        }
    }
    if (!seen_digit || fraction > scale || integer > precision - scale) return -1;
    std::memset(digits + integer + fraction, '0', scale - fraction); // up to the scale
    write_packed(out, precision, digits, integer + scale, negative && nonzero);
    return 0;
}

extern "C" int32_t BCDToValue_L(QV_VALUE_T *value, const uint8_t *field, int32_t precision,
                                int32_t scale) {
    if (value == nullptr || field == nullptr || !valid_layout(precision, scale)) return -1;
    NewPrecise_L(value, precision, scale);
    bool loaded = big::load_packed(value->payload.number, field, packed_bytes(precision));
    return finish_field(value, loaded, precision, scale);
}

extern "C" int32_t ZonedToValue_L(QV_VALUE_T *value, const uint8_t *field, int32_t precision,
                                  int32_t scale) {
    if (value == nullptr || field == nullptr || !valid_layout(precision, scale)) return -1;
    NewPrecise_L(value, precision, scale);
    char digits[kMaxPrecision];
    for (int i = 0; i < precision; ++i) digits[i] = static_cast<char>('0' + (field[i] & 0xF));
    bool loaded = first_bad_zoned(field, precision) < 0 &&
                  big::load_digits(value->payload.number, digits, precision,
                                   is_negative_sign(field[precision - 1] >> 4));
    return finish_field(value, loaded, precision, scale);
}

extern "C" int32_t ValueToBCD_L(const QV_VALUE_T *value, uint8_t *field, int32_t precision,
                                int32_t scale) {
    return value_to_field(value, field, precision, scale, write_packed);
}

extern "C" int32_t ValueToZoned_L(const QV_VALUE_T *value, uint8_t *field, int32_t precision,
                                  int32_t scale) {
    return value_to_field(value, field, precision, scale, write_zoned);
}

extern "C" char *BCDToString_L(const uint8_t *field, int32_t precision, int32_t scale,
                               const QV_NUMBER_FORMAT_T *format) {
    if (field == nullptr || !valid_layout(precision, scale)) return nullptr;
    big::Int number;
    if (!big::load_packed(number, field, packed_bytes(precision))) return nullptr;
    char digits[big::kMaxDigits];
    int count = big::magnitude_to_text(number, digits);
    Separator point = decimal_separator(format);
    int32_t size = formatted_size(count, scale, point);
    auto *text = static_cast<char *>(QV_MALLOC(size));
    if (text == nullptr) return nullptr;
    format_digits(digits, count, number.negative, scale, point, text, size);
    return text;
}

extern "C" int32_t VerifyBinaryNumber_L(const uint8_t *field, int32_t length, int32_t kind) {
    const char *name = kind == QV_FIELD_PACKED  ? "Packed/BCD"
                       : kind == QV_FIELD_ZONED ? "Zoned"
                                                : nullptr;
    if (name == nullptr) {
        std::snprintf(Msgbuf8, QV_MSGBUF8_SIZE, "unknown kind of binary number field %d", kind);
        return -1;
    }
    if (field == nullptr || length < 1) {
        std::snprintf(Msgbuf8, QV_MSGBUF8_SIZE, "%s field: no bytes to check", name);
        return -1;
    }
    int bad =
        kind == QV_FIELD_PACKED ? first_bad_packed(field, length) : first_bad_zoned(field, length);
    if (bad < 0) return 0;
    std::snprintf(Msgbuf8, QV_MSGBUF8_SIZE, "%s field: invalid byte 0x%02X at position %d", name,
                  field[bad], bad + 1);
    return -1;
}
