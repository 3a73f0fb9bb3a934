// precise.hpp - what the files of the precise module share, and the hook through which the
// values module reads values of other types as NUMBER.
#pragma once

#include <cstdint>

#include "qv/precise.h"
#include "types/bigint.hpp"

namespace qv {

// Reads `source` (of a type other than NUMBER, INTEGER or FLOAT) as a NUMBER into
// `number`, which arrives zeroed and untyped: it takes the source's own NUMBER type.
// Returns false when the source cannot be read as a number.
using ValueToNumberConverter = bool (*)(const QV_VALUE_T *source, QV_PRECISE_T *number);
// Installs the converter (the values module does at initialisation); with none, such
// operands are refused.
void install_value_to_number_converter(ValueToNumberConverter converter);

namespace precise {

inline constexpr int kMaxPrecision = QV_PRECISE_MAX_PRECISION;

struct NumberType {
    int32_t precision;
    int32_t scale;
};

// A NUMBER record with 1 <= p <= 77 and 0 <= s <= p.
inline bool is_valid(const QV_PRECISE_T *record) {
    if (record == nullptr || record->descriptor.type != QV_TYPE_NUMBER) return false;
    auto p = static_cast<uint32_t>(record->descriptor.precision);
    auto s = static_cast<uint32_t>(record->descriptor.scale);
    return p - 1 < kMaxPrecision && s <= p;
}

// Sets the descriptor and zero, the value not NULL; -1 (the failure every operation
// reports).
inline int32_t fail(QV_PRECISE_T *record, NumberType type) {
    record->descriptor = {QV_TYPE_NUMBER, type.precision, type.scale, 0};
    big::set_zero(record->payload.number);
    record->is_null = 0;
    return -1;
}

// A scale shift far enough to empty any accumulator, so that int32 arithmetic on shifts
// cannot overflow.
inline int32_t clamp_shift(int64_t shift) {
    constexpr int64_t limit = 4 * kMaxPrecision;
    return static_cast<int32_t>(shift < -limit ? -limit : shift > limit ? limit : shift);
}

// finish when the value must first be rescaled by 10^shift (shift != 0).
int32_t finish_rescaled(QV_PRECISE_T *record, int32_t shift, NumberType type);

// Makes the record NUMBER(type) with the value in its accumulator, held at `from_scale`,
// rescaled to the type's scale; the value is then not NULL. Returns 0, or -1 (the value
// zero) when it overflows or passes the precision. Works in place, so an operation writes
// its result into the accumulator once.
inline int32_t finish(QV_PRECISE_T *record, int64_t from_scale, NumberType type) {
    if (type.scale != from_scale) [[unlikely]]
        return finish_rescaled(record, clamp_shift(type.scale - from_scale), type);
    if (!big::fits_digits(record->payload.number, type.precision)) [[unlikely]]
        return fail(record, type);
    record->descriptor = {QV_TYPE_NUMBER, type.precision, type.scale, 0};
    record->is_null = 0;
    return 0;
}

// finish with `value` copied into the accumulator first.
inline int32_t store(QV_PRECISE_T *record, const big::Int &value, int64_t from_scale,
                     NumberType type) {
    record->payload.number = value;
    return finish(record, from_scale, type);
}

// Reads any numeric value as a NUMBER: a NUMBER as it is (null when invalid), others
// converted into `scratch`. Null when the value cannot be read.
const QV_PRECISE_T *as_number(const QV_VALUE_T *value, QV_PRECISE_T &scratch);

// Separators of a number format, with the defaults "." and ",".
struct Separator {
    const char *text;
    int32_t length;
};
Separator decimal_separator(const QV_NUMBER_FORMAT_T *format);
Separator group_separator(const QV_NUMBER_FORMAT_T *format);

// Formats `count` digits (no leading zeros, "0" for zero) at `scale` as text into out:
// "-" when negative, "0" before a leading separator, trailing decimal zeros dropped.
// Returns the digits before the separator, or -1 when `size` bytes do not hold the text.
int32_t format_digits(const char *digits, int32_t count, bool negative, int32_t scale,
                      Separator separator, char *out, int32_t size);
// Bytes format_digits needs, terminator included.
int32_t formatted_size(int32_t count, int32_t scale, Separator separator);

// The number recognition of StringToBestNumberType_L; with `report` false nothing is
// written to Msgbuf8.
int32_t recognise_number(const char *text, QV_VALUE_T *value, bool classify_only,
                         const QV_NUMBER_FORMAT_T *format, bool report);

} // namespace precise
} // namespace qv
