// dataval_compare.cpp - order, equality and checksums of values, and the arithmetic on one
// value (IncrementValue_L, DecrementValue_L).
//
// Order is by family: two values compare when their types belong to one family (numbers,
// texts, bytes, dates, times, BOOLEAN, each interval type, arrays); numbers compare exactly
// across INTEGER, FLOAT and NUMBER (a FLOAT meets a NUMBER as its 15-digit decimal, the
// reading exact-decimal arithmetic gives it). Equality reads the second value as the first
// one's type and compares exactly; texts by code point where order collates.
//
// The checksum fold is crc32_L per value: no inversion on entry, inverted on exit. A value
// whose bytes come in pieces is folded as one run, by carrying the un-inverted state from
// piece to piece: crc32_L(p, AB) = crc32_L(~crc32_L(p, A), B).
//
// Part of the dataval module.
#define QV_MODULE "dataval"
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <utility>

#include "core/raise.hpp"
#include "qv/date.h"
#include "qv/interval.h"
#include "qv/message.h"
#include "qv/msgclass.h"
#include "qv/qvstrlib.h"
#include "types/precise.hpp"
#include "values/dataval.hpp"

namespace qv::values {

namespace {

template <class T>
int sign_of(T difference) {
    return (difference > 0) - (difference < 0);
}

int compare_reals(double x, double y) {
    if (std::isnan(x) || std::isnan(y)) return std::isnan(x) - std::isnan(y);
    return (x > y) - (x < y);
}

// An integer against a double, exactly.
int compare_integer_real(int64_t i, double d) {
    if (std::isnan(d) || d >= 0x1p63) return -1;
    if (d < -0x1p63) return 1;
    const double whole = std::trunc(d);
    const auto integral = static_cast<int64_t>(whole);
    if (i != integral) return i < integral ? -1 : 1;
    return (d < whole) - (d > whole);
}

// A double against an exact decimal, the double read as its 15-digit decimal.
int compare_real_number(double d, const QV_PRECISE_T &n) {
    if (std::isnan(d)) return 1;
    QV_PRECISE_T x{};
    if (!std::isfinite(d) || DoubleToPrecise_L(&x, d) != 0) return d > 0 ? 1 : -1;
    return PreciseCompare_L(&x, nullptr, &n);
}

int compare_integer_number(int64_t i, const QV_PRECISE_T &n) {
    QV_PRECISE_T x;
    NewPrecise_L(&x, 19, 0);
    IntegerToPrecise_L(&x, i, 0);
    return PreciseCompare_L(&x, nullptr, &n);
}

bool is_number(const QV_VALUE_T &value) {
    return is_one_of(type_of(value), QV_TYPE_INTEGER | QV_TYPE_FLOAT) || precise::is_valid(&value);
}

// The family a type compares within; 0 when it compares with nothing.
uint32_t family_of(const QV_VALUE_T &value) {
    switch (type_of(value)) {
        case QV_TYPE_INTEGER:
        case QV_TYPE_FLOAT: return kNumberTypes;
        case QV_TYPE_NUMBER: return precise::is_valid(&value) ? kNumberTypes : 0;
        case QV_TYPE_CHAR:
        case QV_TYPE_CLOB: return kTextTypes;
        case QV_TYPE_BINARY:
        case QV_TYPE_BLOB: return kByteTypes;
        case QV_TYPE_DATE:
        case QV_TYPE_DATE_TZ: return kDateTypes;
        case QV_TYPE_TIME:
        case QV_TYPE_TIME_TZ: return kTimeTypes;
        case QV_TYPE_BOOLEAN:
        case QV_TYPE_INTERVAL_DS:
        case QV_TYPE_INTERVAL_YM:
        case QV_TYPE_ARRAY: return type_of(value);
        default: return 0;
    }
}

// The text of a text value for the string comparisons (a file that cannot be read is empty).
QV_STRING_T text_of(const QV_VALUE_T &value, TextForm &form) {
    if (!form.make(value)) return {const_cast<char *>(""), nullptr};
    return {const_cast<char *>(form.data()), form.encoding()};
}

// Both in-memory texts in one encoding with the same bytes.
bool same_bytes(const QV_VALUE_T &a, const QV_VALUE_T &b) {
    std::string_view x, y;
    return a.payload.string.encoding == b.payload.string.encoding && own_text(a, x) &&
           own_text(b, y) && x == y;
}

int compare_texts(const QV_VALUE_T &a, const QV_VALUE_T &b) {
    if (same_bytes(a, b)) return 0;
    TextForm fa, fb;
    QV_STRING_T x = text_of(a, fa), y = text_of(b, fb);
    return Strcoll_SL(&x, &y);
}

int compare_bytes(const QV_VALUE_T &a, const QV_VALUE_T &b) {
    ByteForm x, y;
    x.make(a);
    y.make(b);
    const uint32_t common = std::min(x.size(), y.size());
    const int order = common > 0 ? std::memcmp(x.data(), y.data(), common) : 0;
    return order != 0 ? sign_of(order) : sign_of(int64_t{x.size()} - int64_t{y.size()});
}

// Logs why a pair cannot be compared and raises GENERAL_ERROR.
void refuse(const QV_VALUE_T &a, const QV_VALUE_T &b) {
    PWMessage message(QV_MSG_VALUES_NOT_COMPARABLE, MESSAGE_SEVERITY_ERROR);
    message << GetDataTypeSpec_L(type_of(a))->name << GetDataTypeSpec_L(type_of(b))->name;
    LogMessage_L(&message);
    QV_RAISE(GENERAL_ERROR);
}

int compare_values(const QV_VALUE_T *a, const QV_VALUE_T *b);

int compare_arrays(const QV_VALUE_T &a, const QV_VALUE_T &b) {
    const int64_t na = array_count(a), nb = array_count(b);
    for (int64_t i = 1; i <= std::min(na, nb); ++i)
        if (int order = compare_values(&a.payload.array[i], &b.payload.array[i])) return order;
    return sign_of(na - nb);
}

int compare_values(const QV_VALUE_T *a, const QV_VALUE_T *b) {
    if (is_null(a) || is_null(b)) return is_null(b) - is_null(a);
    if (type_of(*a) == type_of(*b)) { // the common case, straight to the comparison
        if (type_of(*a) == QV_TYPE_INTEGER)
            return (a->payload.integer > b->payload.integer) -
                   (a->payload.integer < b->payload.integer);
        if (type_of(*a) == QV_TYPE_NUMBER && precise::is_valid(a) && precise::is_valid(b))
            return PreciseCompare_L(a, nullptr, b);
        if (type_of(*a) == QV_TYPE_CHAR) return compare_texts(*a, *b);
    }
    const uint32_t family = family_of(*a);
    if (family == 0 || family != family_of(*b)) {
        refuse(*a, *b);
        return 0;
    }
    switch (family) {
        case kNumberTypes: return compare_numbers(*a, *b);
        case kTextTypes: return compare_texts(*a, *b);
        case kByteTypes: return compare_bytes(*a, *b);
        case kDateTypes:
        case kTimeTypes: return sign_of(CompareInternalDate_L(&a->payload.date, &b->payload.date));
        case QV_TYPE_BOOLEAN: return (a->payload.boolean != 0) - (b->payload.boolean != 0);
        case QV_TYPE_INTERVAL_DS:
            return sign_of(
                CompareInternalInterval_L(&a->payload.interval_ds, &b->payload.interval_ds));
        case QV_TYPE_INTERVAL_YM:
            return sign_of(
                CompareInternalIntervalYM_L(&a->payload.interval_ym, &b->payload.interval_ym));
        default: return compare_arrays(*a, *b);
    }
}

// ---- Equality ----------------------------------------------------------------------------

bool same_value(const QV_VALUE_T &a, const QV_VALUE_T &b);

bool same_texts(const QV_VALUE_T &a, const QV_VALUE_T &b) {
    if (is_one_of(type_of(b), kTextTypes) && same_bytes(a, b)) return true;
    TextForm fa, fb;
    if (!fa.make(a) || !fb.make(b)) return false;
    QV_STRING_T x = {const_cast<char *>(fa.data()), fa.encoding()};
    QV_STRING_T y = {const_cast<char *>(fb.data()), fb.encoding()};
    return Strcmp_SL(&x, &y) == 0;
}

bool same_bytes_of(const QV_VALUE_T &a, const QV_VALUE_T &b) {
    ByteForm x, y;
    return x.make(a) && y.make(b) && x.size() == y.size() &&
           (x.size() == 0 || std::memcmp(x.data(), y.data(), x.size()) == 0);
}

bool same_numbers(const QV_VALUE_T &a, const QV_VALUE_T &b) {
    if (is_number(b)) return compare_numbers(a, b) == 0;
    QV_PRECISE_T number{};
    return ValueToNumber_L(&b, &number) == QV_VALUE_OK && compare_numbers(a, number) == 0;
}

bool same_dates(const QV_VALUE_T &a, const QV_VALUE_T &b) {
    QV_DATE_T date{};
    const bool read = is_one_of(type_of(a), kDateTypes) ? ValueToDateTime_L(&b, &date) == 0
                                                        : ValueToTime_L(&b, &date) == 0;
    if (!is_one_of(type_of(a), kZoneTypes)) date.zone = 0;
    return read && CompareInternalDate_L(&a.payload.date, &date) == 0;
}

bool same_arrays(const QV_VALUE_T &a, const QV_VALUE_T &b) {
    if (type_of(b) != QV_TYPE_ARRAY || array_count(a) != array_count(b)) return false;
    for (int64_t i = 1; i <= array_count(a); ++i)
        if (!IsSameValue_L(&a.payload.array[i], &b.payload.array[i])) return false;
    return true;
}

bool same_value(const QV_VALUE_T &a, const QV_VALUE_T &b) {
    switch (type_of(a)) {
        case QV_TYPE_INTEGER:
        case QV_TYPE_FLOAT:
        case QV_TYPE_NUMBER: return is_number(a) && same_numbers(a, b);
        case QV_TYPE_CHAR:
        case QV_TYPE_CLOB: return same_texts(a, b);
        case QV_TYPE_BINARY:
        case QV_TYPE_BLOB: return same_bytes_of(a, b);
        case QV_TYPE_DATE:
        case QV_TYPE_DATE_TZ:
        case QV_TYPE_TIME:
        case QV_TYPE_TIME_TZ: return same_dates(a, b);
        case QV_TYPE_BOOLEAN: {
            uint8_t truth = 0;
            return ValueToBoolean_L(&b, &truth) == 0 && truth == (a.payload.boolean != 0);
        }
        case QV_TYPE_INTERVAL_DS: {
            QV_INTERVAL_DS_T interval{};
            return ValueToInterval_L(&b, &interval) == 0 &&
                   CompareInternalInterval_L(&a.payload.interval_ds, &interval) == 0;
        }
        case QV_TYPE_INTERVAL_YM: {
            QV_INTERVAL_YM_T interval{};
            return ValueToIntervalYM_L(&b, &interval) == 0 &&
                   CompareInternalIntervalYM_L(&a.payload.interval_ym, &interval) == 0;
        }
        case QV_TYPE_ARRAY: return same_arrays(a, b);
        default:
            return type_of(a) == type_of(b) &&
                   std::memcmp(&a.payload, &b.payload, sizeof a.payload) == 0;
    }
}

// ---- Checksums -------------------------------------------------------------------------

constexpr char kNullMarker[] = "~&%NULL%&~";

// Where a BINARY or BLOB value's folded bytes start: its payload's byte-pointer field.
constexpr std::size_t kPointerField = offsetof(QV_VALUE_T, payload) +
                                      offsetof(QV_PAYLOAD_T, binary) +
                                      offsetof(decltype(QV_PAYLOAD_T::binary), bytes);
constexpr std::size_t kImageSize = sizeof(QV_VALUE_T) - kPointerField;

// The record's bytes from the pointer field to its end, the union's inactive bytes and the
// padding read as 0.
void record_image(const QV_VALUE_T &value, uint8_t (&image)[kImageSize]) {
    std::memset(image, 0, kImageSize);
    auto place = [&](std::size_t offset, const void *field, std::size_t size) {
        std::memcpy(image + offset - kPointerField, field, size);
    };
    place(kPointerField, &value.payload.binary.bytes, sizeof value.payload.binary.bytes);
    place(offsetof(QV_VALUE_T, is_null), &value.is_null, 1);
    place(offsetof(QV_VALUE_T, owns_payload), &value.owns_payload, 1);
    place(offsetof(QV_VALUE_T, eval_flags), &value.eval_flags, 1);
    place(offsetof(QV_VALUE_T, eval_data), &value.eval_data, sizeof value.eval_data);
}

// Folds the record image followed by zeros, `length` bytes in all, as one run.
uint32_t fold_record(const QV_VALUE_T &value, std::size_t length, uint32_t checksum) {
    static constexpr uint8_t kZeros[4096] = {};
    uint8_t image[kImageSize];
    record_image(value, image);
    const uint8_t *piece = image;
    std::size_t size = std::min(length, kImageSize);
    while (length > size) {
        checksum = ~crc32_L(checksum, piece, size);
        length -= size;
        piece = kZeros;
        size = std::min(length, sizeof kZeros);
    }
    return crc32_L(checksum, piece, size);
}

template <class Integer>
uint32_t fold_little_endian(Integer value, uint32_t checksum) {
    uint8_t bytes[sizeof value];
    for (std::size_t i = 0; i < sizeof value; ++i)
        bytes[i] = static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * i));
    return crc32_L(checksum, bytes, sizeof bytes);
}

uint32_t fold_number(const QV_ACCUMULATOR_T &number, uint32_t checksum) {
    uint8_t bytes[QV_ACCUMULATOR_BYTES];
    for (std::size_t limb = 0; limb < 4; ++limb)
        for (std::size_t i = 0; i < 8; ++i)
            bytes[8 * limb + i] = static_cast<uint8_t>(number.limb[limb] >> (8 * i));
    bytes[32] = number.negative;
    bytes[33] = number.used;
    return crc32_L(checksum, bytes, sizeof bytes);
}

uint32_t fold_value(const QV_VALUE_T *value, uint32_t checksum) {
    if (is_null(value)) return crc32_L(checksum, kNullMarker, sizeof kNullMarker - 1);
    const QV_VALUE_T &v = *value;
    switch (type_of(v)) {
        case QV_TYPE_BOOLEAN: return crc32_L(checksum, &v.payload.boolean, 1);
        case QV_TYPE_INTEGER: return fold_little_endian(v.payload.integer, checksum);
        case QV_TYPE_FLOAT: {
            uint64_t bits;
            std::memcpy(&bits, &v.payload.real, sizeof bits);
            return fold_little_endian(bits, checksum);
        }
        case QV_TYPE_NUMBER: return fold_number(v.payload.number, checksum);
        case QV_TYPE_ARRAY:
            for (int64_t i = 1; i <= array_count(v); ++i)
                checksum = fold_value(&v.payload.array[i], checksum);
            return checksum;
        case QV_TYPE_CHAR:
        case QV_TYPE_CLOB: {
            if (in_file(v)) {
                const char *name = file_name(v);
                return crc32_L(checksum, name, name != nullptr ? StrlenUTF8_L(name) : 0);
            }
            TextForm form;
            if (!form.make_utf8(v)) return checksum;
            return crc32_L(checksum, form.data(), form.size());
        }
        case QV_TYPE_BINARY:
        case QV_TYPE_BLOB: {
            const std::size_t length =
                in_file(v) ? static_cast<std::size_t>(std::max(StrlenUTF8_L(file_name(v)), 0))
                           : v.payload.binary.length;
            return fold_record(v, length, checksum);
        }
        default: {
            char text[kFixedTextSize];
            const int length = print_fixed(v, text);
            return length < 0 ? checksum
                              : crc32_L(checksum, text, static_cast<std::size_t>(length));
        }
    }
}

// ---- One-value arithmetic --------------------------------------------------------------

// A text value becomes the decimal text of `number`, in its own encoding.
bool set_integer_text(QV_VALUE_T &value, int64_t number) {
    char digits[24];
    const auto length =
        static_cast<std::size_t>(std::to_chars(digits, digits + 23, number).ptr - digits);
    digits[length] = '\0';
    const QV_ENCODING_T *encoding = value.payload.string.encoding;
    char *text = nullptr;
    if (is_utf8(encoding)) {
        text = QV_STRNDUP(digits, length);
    } else if (ConvertEncoding_L(nullptr, digits, static_cast<int32_t>(length), encoding, &text,
                                 nullptr) != 0) {
        return false;
    }
    if (text == nullptr) return false;
    const uint32_t flags = value.descriptor.extra;
    release_payload(value);
    value.descriptor.extra = flags;
    value.payload.string = {text, encoding};
    value.owns_payload = 1;
    if (value.descriptor.precision > 0 && std::cmp_greater(length, value.descriptor.precision))
        value.descriptor.precision = static_cast<int32_t>(length);
    return true;
}

int32_t step_value(QV_VALUE_T *value, int64_t step) {
    if (is_null(value)) return -1;
    QV_VALUE_T &v = *value;
    switch (type_of(v)) {
        case QV_TYPE_INTEGER: {
            int64_t sum = 0;
            if (__builtin_add_overflow(v.payload.integer, step, &sum)) return -1;
            v.payload.integer = sum;
            return 0;
        }
        case QV_TYPE_FLOAT: v.payload.real += static_cast<double>(step); return 0;
        case QV_TYPE_NUMBER: {
            QV_PRECISE_T one, sum = v;
            NewPrecise_L(&one, 1, 0);
            IntegerToPrecise_L(&one, step, 0);
            if (AddToPrecise_L(&sum, &one) != 0) return -1;
            v.payload.number = sum.payload.number;
            return 0;
        }
        case QV_TYPE_CHAR:
        case QV_TYPE_CLOB: {
            TextForm form;
            if (in_file(v) || !form.make_utf8(v)) return -1;
            std::string_view text = trimmed(form.view());
            const bool negative = !text.empty() && text[0] == '-';
            if (!text.empty() && (text[0] == '-' || text[0] == '+')) text.remove_prefix(1);
            uint64_t magnitude = 0;
            auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), magnitude);
            if (text.empty() || error != std::errc() || end != text.data() + text.size() ||
                magnitude > uint64_t{INT64_MAX} + negative)
                return -1;
            auto number = static_cast<int64_t>(negative ? 0 - magnitude : magnitude);
            if (__builtin_add_overflow(number, step, &number)) return -1;
            return set_integer_text(v, number) ? 0 : -1;
        }
        case QV_TYPE_DATE:
        case QV_TYPE_DATE_TZ: return AddDaysToInternalDate_L(&v.payload.date, step, nullptr);
        default: return -1;
    }
}

} // namespace

int compare_numbers(const QV_VALUE_T &a, const QV_VALUE_T &b) {
    const uint32_t ta = type_of(a), tb = type_of(b);
    if (ta == QV_TYPE_INTEGER && tb == QV_TYPE_INTEGER)
        return (a.payload.integer > b.payload.integer) - (a.payload.integer < b.payload.integer);
    if (ta == QV_TYPE_NUMBER && tb == QV_TYPE_NUMBER) return PreciseCompare_L(&a, nullptr, &b);
    if (ta == QV_TYPE_FLOAT && tb == QV_TYPE_FLOAT)
        return compare_reals(a.payload.real, b.payload.real);
    if (ta == QV_TYPE_INTEGER)
        return tb == QV_TYPE_FLOAT ? compare_integer_real(a.payload.integer, b.payload.real)
                                   : compare_integer_number(a.payload.integer, b);
    if (tb == QV_TYPE_INTEGER) return -compare_numbers(b, a);
    // A FLOAT and a NUMBER.
    return ta == QV_TYPE_FLOAT ? compare_real_number(a.payload.real, b)
                               : -compare_real_number(b.payload.real, a);
}

} // namespace qv::values

using namespace qv::values;

extern "C" {

QV_API int32_t CompareValue_L(const QV_VALUE_T *a, const QV_VALUE_T *b) {
    return QV_C_ENTRY(([&] { return compare_values(a, b); }));
}

QV_API uint8_t IsSameValue_L(const QV_VALUE_T *a, const QV_VALUE_T *b) {
    if (a == nullptr || b == nullptr) return 0;
    if (a->is_null || b->is_null) return a->is_null && b->is_null;
    if (in_file(*a) || in_file(*b)) return 0;
    return QV_C_ENTRY(([&]() -> uint8_t { return same_value(*a, *b); }));
}

QV_API uint32_t ChecksumValue_L(const QV_VALUE_T *value, uint32_t *checksum) {
    if (checksum == nullptr) return 0;
    uint32_t folded = *checksum;
    QV_C_ENTRY(([&] { folded = fold_value(value, *checksum); }));
    return *checksum = folded;
}

QV_API int32_t IncrementValue_L(QV_VALUE_T *value) {
    return QV_C_ENTRY(([&] { return step_value(value, 1); }));
}

QV_API int32_t DecrementValue_L(QV_VALUE_T *value) {
    return QV_C_ENTRY(([&] { return step_value(value, -1); }));
}

} // extern "C"
