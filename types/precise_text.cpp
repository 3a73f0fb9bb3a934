// precise_text.cpp - exact decimals and text: formatting a NUMBER, the plain decimal text
// of a double, and the recogniser that reads a number from text and chooses the cheapest
// type that holds it (StringToBestNumberType_L).
//
// The recogniser reads the text once into a `Scan` (sign, the runs of integer and fraction
// digits, the exponent), then lays the digits out as the plain decimal they stand for
// (`Digits`: the significant digits, integer part without leading zeros, then every
// decimal), counts them (D digits of which F decimals), proposes a type and stores the
// value. Digits are loaded into the accumulator 19 at a time.
//
// Part of the precise module.
#define QV_MODULE "precise"
#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <optional>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "types/precise.hpp"

namespace qv::precise {

using big::Int;

Separator decimal_separator(const QV_NUMBER_FORMAT_T *format) {
    if (format == nullptr || format->decimal_length < 1 || format->decimal_length > 12)
        return {".", 1};
    return {format->decimal_separator, format->decimal_length};
}

Separator group_separator(const QV_NUMBER_FORMAT_T *format) {
    if (format == nullptr) return {",", 1};
    if (format->group_length < 1 || format->group_length > 12) return {"", 0};
    return {format->group_separator, format->group_length};
}

// ---------------------------------------------------------------------------------------
// Formatting
// ---------------------------------------------------------------------------------------

int32_t formatted_size(int32_t count, int32_t scale, Separator separator) {
    return 1 + std::max(count, scale + 1) + separator.length + 1;
}

int32_t format_digits(const char *digits, int32_t count, bool negative, int32_t scale,
                      Separator separator, char *out, int32_t size) {
    const int32_t integer = count > scale ? count - scale : 0;
    const char *fraction = digits + integer;
    const int32_t fraction_count = count - integer;
    int32_t kept = fraction_count; // fraction digits left once trailing zeros go
    while (kept > 0 && fraction[kept - 1] == '0') --kept;
    const int32_t padding = kept > 0 ? scale - fraction_count : 0; // zeros after the point
    const bool zero = count == 1 && digits[0] == '0';
    const bool sign = negative && !zero;
    const int32_t length =
        sign + std::max(integer, 1) + (kept > 0 ? separator.length + padding + kept : 0);
    if (out == nullptr || length >= size) return -1;
    char *at = out;
    if (sign) *at++ = '-';
    if (integer == 0) {
        *at++ = '0';
    } else {
        std::memcpy(at, digits, integer);
        at += integer;
    }
    if (kept > 0) {
        std::memcpy(at, separator.text, separator.length);
        at += separator.length;
        std::memset(at, '0', padding);
        at += padding;
        std::memcpy(at, fraction, kept);
        at += kept;
    }
    *at = '\0';
    return std::max(integer, 1);
}

// ---------------------------------------------------------------------------------------
// Recognition
// ---------------------------------------------------------------------------------------

namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}
bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

enum class ScanResult { kNumber, kBlank, kInvalid };

// The pieces of a number in text.
struct Scan {
    bool negative = false;
    const char *integer = nullptr; // integer digits as written
    int64_t integer_length = 0;
    const char *fraction = nullptr; // decimals as written
    int64_t fraction_length = 0;
    int64_t exponent = 0;
    const char *begin = nullptr; // the number for the double conversion: from "-" or the
    const char *end = nullptr;   // first digit, up to the end of the exponent
};

// An exponent beyond any number of digits a text can hold, so sums cannot overflow.
constexpr int64_t kExponentLimit = 1'000'000'000;

// The end of the run of digits at `at`, eight bytes at a time while eight remain before
// `end`: a byte is a digit when neither adding 0x46 nor subtracting 0x30 sets its top bit
// (a carry or borrow can only spoil the bytes after the first non-digit).
const char *skip_digits(const char *at, const char *end) {
    while (end - at >= 8) {
        uint64_t bytes;
        std::memcpy(&bytes, at, 8);
        uint64_t other = ((bytes + 0x4646464646464646ull) | (bytes - 0x3030303030303030ull)) &
                         0x8080808080808080ull;
        if (other != 0) return at + std::countr_zero(other) / 8;
        at += 8;
    }
    while (at < end && is_digit(*at)) ++at;
    return at;
}

ScanResult scan_number(const char *text, Separator point, Scan &scan) {
    const char *at = text;
    while (is_blank(*at)) ++at;
    if (*at == '\0') return ScanResult::kBlank;
    const char *end = at + std::strlen(at);
    scan.begin = at;
    if (*at == '-' || *at == '+') {
        scan.negative = *at == '-';
        if (*at++ == '+') scan.begin = at;
    }
    scan.integer = at;
    at = skip_digits(at, end);
    scan.integer_length = at - scan.integer;
    if (end - at >= point.length && std::memcmp(at, point.text, point.length) == 0) {
        at += point.length;
        scan.fraction = at;
        at = skip_digits(at, end);
        scan.fraction_length = at - scan.fraction;
    }
    if (scan.integer_length + scan.fraction_length == 0) return ScanResult::kInvalid;
    if (*at == 'e' || *at == 'E') {
        ++at;
        bool negative = *at == '-';
        if (*at == '-' || *at == '+') ++at;
        if (!is_digit(*at)) return ScanResult::kInvalid;
        int64_t exponent = 0;
        for (; is_digit(*at); ++at)
            exponent = std::min(exponent * 10 + (*at - '0'), kExponentLimit);
        scan.exponent = negative ? -exponent : exponent;
    }
    scan.end = at;
    while (is_blank(*at)) ++at;
    return at == end ? ScanResult::kNumber : ScanResult::kInvalid;
}

// The plain decimal a scan stands for.
struct Digits {
    int64_t count = 0;        // D: integer digits without leading zeros, plus the decimals
    int64_t decimals = 0;     // F
    char text[kMaxPrecision]; // the D digits, when D <= 77
};

// Lays out the digits of `scan`: the digit sequence is integer ++ fraction with the point
// after integer_length + exponent digits, zeros standing beyond either end.
void lay_out(const Scan &scan, Digits &digits) {
    const int64_t total = scan.integer_length + scan.fraction_length;
    const int64_t point = scan.integer_length + scan.exponent;
    const int64_t integer_end = std::max<int64_t>(point, 0);
    auto digit_at = [&](int64_t i) {
        if (i < 0 || i >= total) return '0';
        return i < scan.integer_length ? scan.integer[i] : scan.fraction[i - scan.integer_length];
    };
    int64_t first = 0;
    const int64_t bound = std::min(integer_end, total);
    if (scan.exponent == 0) {
        while (first < bound && scan.integer[first] == '0') ++first;
    } else {
        while (first < bound && digit_at(first) == '0') ++first;
        if (first >= total) first = integer_end; // only zeros before the point
    }
    digits.decimals = std::max<int64_t>(total - point, 0);
    digits.count = integer_end - first + digits.decimals;
    if (digits.count > kMaxPrecision) return;
    char *out = digits.text;
    if (scan.exponent == 0) { // the common case: two runs as written
        std::memcpy(out, scan.integer + first, scan.integer_length - first);
        if (scan.fraction_length > 0)
            std::memcpy(out + scan.integer_length - first, scan.fraction, scan.fraction_length);
        return;
    }
    for (int64_t i = first; i < integer_end; ++i) *out++ = digit_at(i);
    for (int64_t i = point; i < total; ++i) *out++ = digit_at(i);
}

// True when the integer digits are within the 64-bit range.
bool fits_int64(const Digits &digits, bool negative) {
    int64_t integer = digits.count - digits.decimals;
    if (integer != 19) return integer < 19;
    const char *limit = negative ? "9223372036854775808" : "9223372036854775807";
    return std::memcmp(digits.text, limit, 19) <= 0;
}

int64_t integer_part(const Digits &digits, bool negative) {
    uint64_t magnitude = 0;
    for (int64_t i = 0; i < digits.count - digits.decimals; ++i)
        magnitude = magnitude * 10 + static_cast<uint64_t>(digits.text[i] - '0');
    return negative ? static_cast<int64_t>(0 - magnitude) : static_cast<int64_t>(magnitude);
}

// The type StringToBestNumberType_L proposes for the digits.
QV_DATATYPE_T propose(const Digits &digits, bool negative) {
    auto d = static_cast<int32_t>(std::min<int64_t>(digits.count, INT32_MAX));
    auto f = static_cast<int32_t>(std::min<int64_t>(digits.decimals, INT32_MAX));
    if (f > 0) return {d > 15 ? QV_TYPE_NUMBER : QV_TYPE_FLOAT, d, f, 0};
    if (d > 19 || !fits_int64(digits, negative)) return {QV_TYPE_NUMBER, d, 0, 0};
    return {QV_TYPE_INTEGER, d <= 5 ? 2 : d <= 10 ? 4 : 8, 0, 0};
}

enum class Failure { kInvalid, kNotSuitable, kNoPrecision, kNoPrecisionScale, kTooHigh };
constexpr const char *kFailureTexts[] = {
    "invalid number",
    "datatype not suitable for text value",
    "insufficient precision to hold the value",
    "insufficient precision/scale to hold the value",
    "precision of value is too high to be stored",
};

// The double of the scanned text, through the C++ library's correctly rounded reading.
bool read_double(const Scan &scan, Separator point, double &value) {
    String text; // the number with "." as its point
    if (scan.fraction == nullptr) {
        text.assign(scan.begin, scan.end);
    } else {
        text.assign(scan.begin, scan.fraction - point.length);
        text.push_back('.');
        text.append(scan.fraction, scan.end);
    }
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && std::isfinite(value);
}

// Stores the digits into a value whose descriptor is already its target type.
std::optional<Failure> store_value(QV_VALUE_T *value, const Scan &scan, const Digits &digits,
                                   Separator point) {
    switch (value->descriptor.type) {
        case QV_TYPE_INTEGER: value->payload.integer = integer_part(digits, scan.negative); break;
        case QV_TYPE_FLOAT:
            if (!read_double(scan, point, value->payload.real)) return Failure::kNoPrecision;
            break;
        default: {
            // At most 77 digits: they always load, straight into the accumulator.
            big::load_digits(value->payload.number, digits.text, static_cast<int>(digits.count),
                             scan.negative);
            NumberType type{value->descriptor.precision, value->descriptor.scale};
            if (finish(value, digits.decimals, type) != 0) return Failure::kNoPrecisionScale;
        }
    }
    return std::nullopt;
}

// Sets value's descriptor to the type the digits are stored as: the proposal, or the
// caller's fixed target when it can take them.
std::optional<Failure> choose_type(QV_VALUE_T *value, const Digits &digits, bool negative,
                                   bool blank) {
    QV_DATATYPE_T proposal = propose(digits, negative);
    QV_DATATYPE_T &target = value->descriptor;
    const int64_t integer_digits = digits.count - digits.decimals;
    switch (target.type) {
        case 0:
            if (proposal.type == QV_TYPE_NUMBER && digits.count > kMaxPrecision)
                return Failure::kTooHigh;
            target = proposal;
            return std::nullopt;
        case QV_TYPE_INTEGER:
            if (proposal.type == QV_TYPE_NUMBER) return Failure::kNotSuitable;
            return std::nullopt;
        case QV_TYPE_FLOAT: return std::nullopt;
        case QV_TYPE_NUMBER:
            if (target.precision == 0) { // no precision given: the digits' own
                if (digits.count > kMaxPrecision) return Failure::kTooHigh;
                auto d = static_cast<int32_t>(digits.count),
                     f = static_cast<int32_t>(digits.decimals);
                target = {QV_TYPE_NUMBER, std::max(d, 1), f, 0};
                return std::nullopt;
            }
            if (!is_valid(value)) return Failure::kNotSuitable;
            if (!blank && target.precision - target.scale < integer_digits)
                return Failure::kNoPrecision;
            if (digits.count > kMaxPrecision) return Failure::kTooHigh;
            return std::nullopt;
        default: return Failure::kNotSuitable;
    }
}

} // namespace

int32_t recognise_number(const char *text, QV_VALUE_T *value, bool classify_only,
                         const QV_NUMBER_FORMAT_T *format, bool report) {
    auto failed = [report](Failure failure) {
        if (report) {
            std::strncpy(Msgbuf8, kFailureTexts[static_cast<int>(failure)], QV_MSGBUF8_SIZE - 1);
            Msgbuf8[QV_MSGBUF8_SIZE - 1] = '\0';
        }
        return -1;
    };
    if (value == nullptr) return -1;
    if (text == nullptr) return failed(Failure::kInvalid);
    const Separator point = decimal_separator(format);
    Scan scan;
    ScanResult result = scan_number(text, point, scan);
    if (result == ScanResult::kInvalid) return failed(Failure::kInvalid);
    const bool blank = result == ScanResult::kBlank;
    Digits digits;
    if (!blank) lay_out(scan, digits);
    if (auto failure = choose_type(value, digits, scan.negative, blank)) return failed(*failure);
    value->is_null = blank;
    if (blank || classify_only) return 0;
    if (auto failure = store_value(value, scan, digits, point)) return failed(*failure);
    return 0;
}

} // namespace qv::precise

using namespace qv::precise;
namespace big = qv::big;

extern "C" int32_t StringToBestNumberType_L(const char *text, QV_VALUE_T *value,
                                            uint8_t classify_only,
                                            const QV_NUMBER_FORMAT_T *format) {
    return QV_C_ENTRY([&] { return recognise_number(text, value, classify_only, format, true); });
}

extern "C" int32_t StringToPrecise_L(QV_PRECISE_T *record, const char *text) {
    if (record == nullptr) return -1;
    if (record->descriptor.type != QV_TYPE_NUMBER) record->descriptor = {QV_TYPE_NUMBER, 0, 0, 0};
    return StringToBestNumberType_L(text, record, 0, nullptr);
}

// ---------------------------------------------------------------------------------------
// Text out
// ---------------------------------------------------------------------------------------

extern "C" int32_t PreciseToSizedString_L(const QV_PRECISE_T *record, char *buffer, int32_t size,
                                          const QV_NUMBER_FORMAT_T *format) {
    if (!is_valid(record)) return -1;
    char digits[big::kMaxDigits];
    int count = big::magnitude_to_text(record->payload.number, digits);
    return format_digits(digits, count, record->payload.number.negative, record->descriptor.scale,
                         decimal_separator(format), buffer, size);
}

extern "C" char *PreciseToString_L(const QV_PRECISE_T *record, const QV_NUMBER_FORMAT_T *format) {
    if (!is_valid(record)) return nullptr;
    char digits[big::kMaxDigits];
    int count = big::magnitude_to_text(record->payload.number, digits);
    Separator point = decimal_separator(format);
    int32_t size = std::max(record->descriptor.precision + 13,
                            formatted_size(count, record->descriptor.scale, point));
    auto *text = static_cast<char *>(QV_MALLOC(size));
    if (text == nullptr) return nullptr;
    format_digits(digits, count, record->payload.number.negative, record->descriptor.scale, point,
                  text, size);
    return text;
}

// ---------------------------------------------------------------------------------------
// Doubles as plain decimal text
// ---------------------------------------------------------------------------------------

namespace {

// Sign, 309 integer digits of the largest double, or "0." and the 324 zeros and 15
// digits of the smallest, with room to spare.
constexpr int kDoubleTextSize = 400;
char double_text[kDoubleTextSize];

// Places the 15 digits of a "d.dddddddddddddde+x" text around the decimal point.
int write_scientific(char *out, const char *scientific) {
    char mantissa[15];
    const char *at = scientific;
    int count = 0;
    for (; *at != 'e'; ++at)
        if (is_digit(*at)) mantissa[count++] = *at;
    int exponent = std::atoi(at + 1);
    int point = 1 + exponent; // digits before the point
    char *o = out;
    if (point <= 0) {
        *o++ = '0';
        *o++ = '.';
        std::memset(o, '0', -point);
        o += -point;
        std::memcpy(o, mantissa, count);
        o += count;
    } else if (point >= count) {
        std::memcpy(o, mantissa, count);
        o += count;
        std::memset(o, '0', point - count);
        o += point - count;
    } else {
        std::memcpy(o, mantissa, point);
        o += point;
        *o++ = '.';
        std::memcpy(o, mantissa + point, count - point);
        o += count - point;
    }
    return static_cast<int>(o - out);
}

} // namespace

extern "C" const char *StringFromDouble_L(double value, int32_t *digits, int32_t *decimals) {
    int32_t digit_count = 0, decimal_count = 0;
    char *out = double_text;
    if (!std::isfinite(value)) {
        std::strcpy(out, std::isnan(value) ? "NaN" : value < 0 ? "-Infinity" : "Infinity");
    } else {
        if (std::signbit(value)) *out++ = '-';
        double magnitude = std::fabs(value);
        int length;
        if (magnitude == std::trunc(magnitude)) {
            length = static_cast<int>(std::to_chars(out, double_text + kDoubleTextSize - 1,
                                                    magnitude, std::chars_format::fixed, 0)
                                          .ptr -
                                      out);
        } else {
            char scientific[32];
            *std::to_chars(scientific, scientific + sizeof scientific - 1, magnitude,
                           std::chars_format::scientific, 14)
                 .ptr = '\0';
            length = write_scientific(out, scientific);
        }
        const char *point = static_cast<const char *>(std::memchr(out, '.', length));
        if (point != nullptr) {
            while (out[length - 1] == '0') --length;
            if (out[length - 1] == '.') --length;
        }
        out[length] = '\0';
        const char *dot = static_cast<const char *>(std::memchr(out, '.', length));
        int integer = dot != nullptr ? static_cast<int>(dot - out) : length;
        decimal_count = dot != nullptr ? length - integer - 1 : 0;
        if (integer == 1 && out[0] == '0' && decimal_count > 0) integer = 0;
        digit_count = integer + decimal_count;
    }
    if (digits != nullptr) *digits = digit_count;
    if (decimals != nullptr) *decimals = decimal_count;
    return double_text;
}
