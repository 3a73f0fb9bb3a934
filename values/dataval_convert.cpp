// dataval_convert.cpp - conversion of values: the reading of any value as a number, the
// conversions to one type (ValueToInteger_L ... ValueToIntervalYM_L) and ConvertValue_L,
// which dispatches on the destination's type and decides ownership: a text or byte source
// is borrowed in share mode, copied otherwise; a CHAR result is cut to the destination's
// length (a borrowed text is copied before it is cut, never changed).
//
// Numbers read from text go through the exact-decimal recogniser (no last-error text is
// written) or, for a FLOAT target, through std::from_chars, which rounds correctly. A
// conversion into a CHAR or CLOB reuses the destination's own text block when it is large
// enough, so converting row after row into one value allocates once.
//
// Part of the dataval module.
#define QV_MODULE "dataval"
#include <malloc.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <span>

#include "core/raise.hpp"
#include "qv/date.h"
#include "qv/interval.h"
#include "qv/qvstrlib.h"
#include "types/precise.hpp"
#include "values/dataval.hpp"

namespace qv::values {

namespace {

__extension__ typedef __int128 Int128;
__extension__ typedef unsigned __int128 UInt128;

constexpr int64_t kSecondsPerDay = 86400;
constexpr int64_t kNanosecondsPerSecond = 1000000000;
constexpr int64_t kPowersOfTen[] = {1,      10,      100,      1000,      10000,
                                    100000, 1000000, 10000000, 100000000, 1000000000};
// Every type a value holds here (LIST, POINTER and masks hold none).
constexpr uint32_t kValueTypes = kTextTypes | kByteTypes | kNumberTypes | kDateTypes | kTimeTypes |
                                 QV_TYPE_BOOLEAN | QV_TYPE_ARRAY | QV_TYPE_INTERVAL_DS |
                                 QV_TYPE_INTERVAL_YM;

// ---- Numbers from text -----------------------------------------------------------------------

// Plain decimal integers, the common case, without the recogniser: [+-]digits, at most 18.
bool read_plain_integer(std::string_view text, int64_t &value) {
    const bool negative = !text.empty() && text[0] == '-';
    if (!text.empty() && (text[0] == '-' || text[0] == '+')) text.remove_prefix(1);
    if (text.empty() || text.size() > 18) return false;
    int64_t magnitude = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        magnitude = magnitude * 10 + (c - '0');
    }
    value = negative ? -magnitude : magnitude;
    return true;
}

// The power of ten of the first significant digit of a number's text ("1e-400": -400,
// "0.05": -2), for telling overflow from underflow; INT64_MIN for zero.
int64_t decimal_exponent(std::string_view text) {
    const std::size_t e = std::min(text.find_first_of("eE"), text.size());
    const std::string_view mantissa = text.substr(0, e);
    const std::size_t first = mantissa.find_first_of("123456789");
    if (first == std::string_view::npos) return INT64_MIN;
    const std::size_t point = std::min(mantissa.find('.'), mantissa.size());
    const int64_t power = first < point ? static_cast<int64_t>(point - first - 1)
                                        : -static_cast<int64_t>(first - point);
    std::string_view digits = text.substr(std::min(e + 1, text.size()));
    if (!digits.empty() && digits[0] == '+') digits.remove_prefix(1);
    int64_t exponent = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), exponent);
    return power + std::clamp<int64_t>(exponent, -100000, 100000);
}

void read_real_text(std::string_view text, Reading &reading) {
    if (!text.empty() && text[0] == '+' && text.size() > 1 && text[1] != '-') text.remove_prefix(1);
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (end != text.data() + text.size() || text.empty()) return;
    if (error == std::errc::result_out_of_range) {
        if (decimal_exponent(text) > 0) {
            reading.kind = Reading::Kind::kTooLarge;
            return;
        }
        value = text[0] == '-' ? -0.0 : 0.0;
    } else if (error != std::errc()) {
        return;
    }
    reading.kind = Reading::Kind::kReal;
    reading.real = value;
}

// Reads the terminated text `text` (its trimmed view `view`) as a number.
void read_text_number(const char *text, std::string_view view, bool prefer_real, Reading &reading) {
    if (read_plain_integer(view, reading.integer)) {
        reading.kind = Reading::Kind::kInteger;
        return;
    }
    if (prefer_real) return read_real_text(view, reading);
    std::memset(static_cast<void *>(&reading.scratch), 0, sizeof reading.scratch);
    reading.scratch.descriptor.type = QV_TYPE_NUMBER;
    if (precise::recognise_number(text, &reading.scratch, false, nullptr, false) == 0 &&
        !reading.scratch.is_null) {
        reading.kind = Reading::Kind::kExact;
        reading.exact = &reading.scratch;
    }
}

// A date as its Julian day number, the time of day as the fraction.
void read_date_number(const QV_DATE_T &date, Reading &reading) {
    int32_t julian = 0;
    if (InternalToJulianDate_L(&date, &julian) != 0) return;
    const int64_t seconds = date.hour * 3600 + date.minute * 60 + date.second;
    if (seconds == 0 && date.fraction == 0) {
        reading.kind = Reading::Kind::kInteger;
        reading.integer = julian;
        return;
    }
    reading.kind = Reading::Kind::kReal;
    reading.real = julian + (seconds + date.fraction / 1e9) / kSecondsPerDay;
}

// A day-second interval as nanoseconds (scale 9), or as seconds in a double beyond 64 bits.
void read_interval_number(const QV_INTERVAL_DS_T &interval, Reading &reading) {
    const Int128 seconds = (Int128{interval.days} * 24 + interval.hours) * 3600 +
                           int64_t{interval.minutes} * 60 + interval.seconds;
    Int128 nanoseconds = seconds * kNanosecondsPerSecond + interval.fraction;
    if (interval.negative) nanoseconds = -nanoseconds;
    if (nanoseconds >= INT64_MIN && nanoseconds <= INT64_MAX) {
        reading.kind = Reading::Kind::kInteger;
        reading.integer = static_cast<int64_t>(nanoseconds);
        reading.scale = 9;
    } else {
        reading.kind = Reading::Kind::kReal;
        reading.real = static_cast<double>(nanoseconds) / 1e9;
    }
}

// ---- Texts for the date and interval readers ----------------------------------------------

// The trimmed text form of a text value as a terminated text of its own.
// Reads a text value with `read(trimmed text, out)`: QV_VALUE_OK with *out set, or
// QV_VALUE_NONE (*out unchanged).
template <class Out, class Read>
int32_t read_text_as(const QV_VALUE_T &value, Out *out, Read read) {
    TextForm form;
    if (!form.make_utf8(value)) return QV_VALUE_NONE;
    const String text(trimmed(form.view()));
    Out result{};
    if (!read(text.c_str(), result)) return QV_VALUE_NONE;
    *out = result;
    return QV_VALUE_OK;
}

bool text_to_date(const char *text, QV_DATE_T &out) {
    return IsInternalDate_L(text, &out, nullptr) ||
           CharToInternalDate_L(text, GetInternalDatetimeTZFormat_L(), nullptr, &out) == 0;
}

bool text_to_time(const char *text, QV_DATE_T &out) {
    if (CharToInternalTime_L(text, GetInternalTimeTZFormat_L(), nullptr, &out) == 0) return true;
    if (!IsInternalDate_L(text, &out, nullptr)) return false;
    out.year = 0;
    out.month = out.day = 0;
    return true;
}

bool text_to_interval(const char *text, QV_INTERVAL_DS_T &out) {
    return CharToInternalInterval_L(text, nullptr, nullptr, &out) == 0;
}

bool text_to_interval_ym(const char *text, QV_INTERVAL_YM_T &out) {
    return CharToInternalIntervalYM_L(text, nullptr, nullptr, &out) == 0;
}

// A signed count of nanoseconds as a day-second interval; false beyond 2^32 days.
bool nanoseconds_to_interval(Int128 nanoseconds, QV_INTERVAL_DS_T &out) {
    const bool negative = nanoseconds < 0;
    const UInt128 magnitude = negative ? -nanoseconds : nanoseconds;
    const uint64_t seconds = static_cast<uint64_t>(magnitude / kNanosecondsPerSecond);
    if (seconds / kSecondsPerDay > UINT32_MAX) return false;
    out.negative = negative && magnitude != 0;
    out.days = static_cast<uint32_t>(seconds / kSecondsPerDay);
    out.hours = static_cast<uint32_t>(seconds / 3600 % 24);
    out.minutes = static_cast<uint32_t>(seconds / 60 % 60);
    out.seconds = static_cast<uint32_t>(seconds % 60);
    out.fraction = static_cast<uint32_t>(magnitude % kNanosecondsPerSecond);
    return true;
}

// The number as nanoseconds; false when it has none or does not fit.
bool reading_nanoseconds(const Reading &reading, Int128 &nanoseconds) {
    switch (reading.kind) {
        case Reading::Kind::kInteger:
            nanoseconds = Int128{reading.integer} * kPowersOfTen[9 - reading.scale];
            return true;
        case Reading::Kind::kReal:
            if (!std::isfinite(reading.real) || std::fabs(reading.real) > 4e17) return false;
            nanoseconds = static_cast<Int128>(std::llround(reading.real * 1e9));
            return true;
        case Reading::Kind::kExact: {
            int64_t scaled = 0;
            if (PreciseToScaledInteger_L(reading.exact, 9, &scaled) != 0) return false;
            nanoseconds = scaled;
            return true;
        }
        default: return false;
    }
}

// The reading of a number-typed or text value (dates and the rest give none).
void read_plain_number(const QV_VALUE_T &value, bool prefer_real, Reading &reading) {
    if (is_one_of(type_of(value), kNumberTypes | kTextTypes))
        read_number(value, prefer_real, reading);
}

int32_t status_of(const Reading &reading) {
    return reading.kind == Reading::Kind::kTooLarge ? QV_VALUE_TOO_LARGE : QV_VALUE_NONE;
}

} // namespace

void read_number(const QV_VALUE_T &value, bool prefer_real, Reading &reading) {
    reading.kind = Reading::Kind::kNone;
    reading.scale = 0;
    switch (type_of(value)) {
        case QV_TYPE_INTEGER:
            reading.kind = Reading::Kind::kInteger;
            reading.integer = value.payload.integer;
            return;
        case QV_TYPE_FLOAT:
            reading.kind = Reading::Kind::kReal;
            reading.real = value.payload.real;
            return;
        case QV_TYPE_NUMBER:
            if (!precise::is_valid(&value)) return;
            reading.kind = Reading::Kind::kExact;
            reading.exact = &value;
            return;
        case QV_TYPE_BOOLEAN:
            reading.kind = Reading::Kind::kInteger;
            reading.integer = value.payload.boolean != 0;
            return;
        case QV_TYPE_CHAR:
        case QV_TYPE_CLOB: {
            TextForm form;
            if (form.make_utf8(value))
                read_text_number(form.data(), trimmed(form.view()), prefer_real, reading);
            return;
        }
        case QV_TYPE_DATE:
        case QV_TYPE_DATE_TZ: return read_date_number(value.payload.date, reading);
        case QV_TYPE_TIME:
        case QV_TYPE_TIME_TZ: {
            const QV_DATE_T &time = value.payload.date;
            reading.kind = Reading::Kind::kInteger;
            reading.integer =
                (time.hour * 3600 + time.minute * 60 + time.second) * kNanosecondsPerSecond +
                time.fraction;
            reading.scale = 9;
            return;
        }
        case QV_TYPE_INTERVAL_DS: return read_interval_number(value.payload.interval_ds, reading);
        case QV_TYPE_INTERVAL_YM: {
            const QV_INTERVAL_YM_T &interval = value.payload.interval_ym;
            const int64_t months = int64_t{interval.years} * 12 + interval.months;
            reading.kind = Reading::Kind::kInteger;
            reading.integer = interval.negative ? -months : months;
            return;
        }
        default: return;
    }
}

bool reading_to_number(const Reading &reading, QV_PRECISE_T &out) {
    std::memset(static_cast<void *>(&out), 0, sizeof out);
    switch (reading.kind) {
        case Reading::Kind::kInteger:
            NewPrecise_L(&out, 19, reading.scale);
            return IntegerToPrecise_L(&out, reading.integer, reading.scale) == 0;
        case Reading::Kind::kReal: return DoubleToPrecise_L(&out, reading.real) == 0;
        case Reading::Kind::kExact: out = *reading.exact; return true;
        default: return false;
    }
}

std::size_t text_room(const QV_VALUE_T &dest) {
    const char *text = dest.payload.string.text;
    if (!dest.owns_payload || in_file(dest) || text == nullptr) return 0;
    return malloc_usable_size(const_cast<char *>(text));
}

namespace {

// Whether `text` lies (in part) in the `room` bytes from `block`.
bool lies_in(std::string_view text, const char *block, std::size_t room) {
    const auto at = reinterpret_cast<uintptr_t>(text.data());
    const auto start = reinterpret_cast<uintptr_t>(block);
    return !text.empty() && at < start + room && at + text.size() > start;
}

// dest (a text type) takes over the heap text `block` in place of what it owned; false
// (dest NULL) for a null block, left by an allocation failure whose raise returned.
bool adopt_text(QV_VALUE_T &dest, char *block, const QV_ENCODING_T *encoding) {
    release_payload(dest);
    dest.is_null = block == nullptr;
    if (block == nullptr) return false;
    dest.payload.string = {block, encoding};
    dest.owns_payload = 1;
    return true;
}

// dest (a text type) holds `text` as its own: copied into dest's block when it has room and
// `text` does not lie in it, else in the heap text `detach()` gives. False (dest NULL) after
// an allocation failure whose raise returned.
template <class Detach>
bool store_text(QV_VALUE_T &dest, std::string_view text, const QV_ENCODING_T *encoding,
                Detach detach) {
    const std::size_t zeros = terminator_width(encoding);
    const std::size_t room = text_room(dest);
    char *own = dest.payload.string.text;
    if (room < text.size() + zeros || lies_in(text, own, room))
        return adopt_text(dest, detach(), encoding);
    std::memcpy(own, text.data(), text.size());
    std::memset(own + text.size(), 0, zeros);
    dest.payload.string.encoding = encoding;
    dest.is_null = 0;
    return true;
}

// The pieces one after the other from `out`, then `zeros` zero bytes.
void put_pieces(char *out, std::span<const std::string_view> pieces, std::size_t zeros) {
    for (std::string_view piece : pieces) {
        if (!piece.empty()) std::memcpy(out, piece.data(), piece.size());
        out += piece.size();
    }
    for (std::size_t i = 0; i < zeros; ++i) out[i] = 0;
}

} // namespace

bool join_text_into(QV_VALUE_T &dest, std::span<const std::string_view> pieces,
                    const QV_ENCODING_T *encoding) {
    const std::size_t zeros = terminator_width(encoding);
    std::size_t size = zeros;
    for (std::string_view piece : pieces) size += piece.size();
    const std::size_t room = text_room(dest);
    char *block = room >= size ? dest.payload.string.text : nullptr;
    for (std::string_view piece : pieces)
        if (block != nullptr && lies_in(piece, block, room)) block = nullptr; // a new block
    if (block == nullptr) {
        auto *fresh = static_cast<char *>(QV_MALLOC(size));
        if (fresh != nullptr) put_pieces(fresh, pieces, zeros);
        return adopt_text(dest, fresh, encoding);
    }
    put_pieces(block, pieces, zeros);
    dest.payload.string.encoding = encoding;
    dest.is_null = 0;
    return true;
}

bool copy_text_into(QV_VALUE_T &dest, std::string_view text, const QV_ENCODING_T *encoding) {
    return join_text_into(dest, {&text, 1}, encoding);
}

} // namespace qv::values

using namespace qv::values;

namespace {

// ---- ConvertValue_L by destination type ---------------------------------------------------

// Stores a fixed-size result: the payload on success, else NULL (QV_CONVERT_TOO_LONG when
// the value did not fit).
template <class Store>
int32_t settle(QV_VALUE_T &dest, int32_t status, Store store) {
    dest.is_null = status != QV_VALUE_OK;
    if (status == QV_VALUE_OK) store(dest.payload);
    return status == QV_VALUE_TOO_LARGE ? QV_CONVERT_TOO_LONG : QV_CONVERT_OK;
}

// dest holds the text form of src; false (dest NULL) when src has none.
bool store_text_form(QV_VALUE_T &dest, const QV_VALUE_T &src) {
    char printed[kFixedTextSize];
    const int length = print_fixed(src, printed); // the fixed-size types, without a form
    if (length >= 0)
        return store_text(dest, {printed, static_cast<std::size_t>(length)}, nullptr,
                          [&] { return QV_STRNDUP(printed, length); });
    TextForm form;
    return form.make(src) &&
           store_text(dest, form.view(), form.encoding(), [&] { return form.detach(); });
}

// dest borrows src's payload.
void borrow(QV_VALUE_T &dest, const QV_VALUE_T &src, uint32_t flags) {
    release_payload(dest);
    dest.payload = src.payload;
    dest.owns_payload = 0;
    dest.is_null = 0;
    dest.descriptor.extra = (dest.descriptor.extra & ~0x23u) | (src.descriptor.extra & flags);
}

void set_flags(QV_VALUE_T &dest, uint32_t flags) {
    dest.descriptor.extra = (dest.descriptor.extra & ~0x23u) | flags;
}

// Cuts a CHAR to its length in characters: 1 when it was longer (kept whole with
// no_truncate); a borrowed text is replaced by a copy of its start.
int32_t cut_to_length(QV_VALUE_T &dest, bool no_truncate) {
    const int32_t length = dest.descriptor.precision;
    QV_STRING_T &string = dest.payload.string;
    if (length <= 0 || string.text == nullptr) return QV_CONVERT_OK;
    const std::size_t zeros = terminator_width(string.encoding);
    const std::size_t bytes =
        zeros == 1 ? std::strlen(string.text) : static_cast<std::size_t>(Bytelen_SL(&string, 0));
    const int32_t fewest = string.encoding != nullptr ? string.encoding->min_bytes : 1;
    if (bytes / static_cast<std::size_t>(fewest) <= static_cast<std::size_t>(length))
        return QV_CONVERT_OK;
    const auto cut = static_cast<std::size_t>(BytesForChars_SL(&string, length));
    if (cut >= bytes) return QV_CONVERT_OK;
    if (no_truncate) return QV_CONVERT_TRUNCATED;
    if (!dest.owns_payload) {
        auto *copy = static_cast<char *>(QV_MALLOC(cut + zeros));
        if (copy == nullptr) {
            make_null(dest);
            return QV_CONVERT_TRUNCATED;
        }
        std::memcpy(copy, string.text, cut);
        string.text = copy;
        dest.owns_payload = 1;
    }
    std::memset(string.text + cut, 0, zeros);
    return QV_CONVERT_TRUNCATED;
}

int32_t to_char(QV_VALUE_T &dest, const QV_VALUE_T &src, bool share, bool no_truncate) {
    std::string_view text;
    if (share && own_text(src, text)) {
        borrow(dest, src, 0x3);
    } else {
        if (!store_text_form(dest, src)) {
            make_null(dest);
            return QV_CONVERT_OK;
        }
        set_flags(dest, is_one_of(type_of(src), QV_TYPE_CHAR | QV_TYPE_BINARY)
                            ? src.descriptor.extra & 0x3
                            : 0);
    }
    return cut_to_length(dest, no_truncate);
}

int32_t to_clob(QV_VALUE_T &dest, const QV_VALUE_T &src, bool share) {
    const bool text_source = is_one_of(type_of(src), kTextTypes);
    if (share && text_source) {
        borrow(dest, src, 0x21);
    } else if (text_source) {
        HeldValue copy;
        if (!copy_value(*copy, src) || copy->is_null) {
            make_null(dest);
            return QV_CONVERT_OK;
        }
        release_payload(dest);
        const QV_VALUE_T taken = copy.take();
        dest.payload = taken.payload;
        dest.owns_payload = taken.owns_payload;
        dest.is_null = 0;
        set_flags(dest, taken.descriptor.extra & 0x21);
    } else {
        if (!store_text_form(dest, src)) {
            make_null(dest);
            return QV_CONVERT_OK;
        }
        set_flags(dest, 0);
    }
    dest.descriptor.precision = type_of(src) == QV_TYPE_CLOB ? src.descriptor.precision
                                : in_file(dest)              ? 0
                                                             : Strlen_SL(&dest.payload.string);
    return QV_CONVERT_OK;
}

int32_t to_binary(QV_VALUE_T &dest, const QV_VALUE_T &src, bool share) {
    const int64_t length = dest.descriptor.precision;
    const bool byte_source = is_one_of(type_of(src), kByteTypes);
    if (byte_source && length > 0 && src.descriptor.precision > length) {
        make_null(dest);
        return QV_CONVERT_TOO_LONG;
    }
    if (share && byte_source && !in_file(src)) {
        if (length > 0 && src.payload.binary.length > length) {
            make_null(dest);
            return QV_CONVERT_TOO_LONG;
        }
        borrow(dest, src, 0x2);
        return QV_CONVERT_OK;
    }
    ByteForm form;
    if (!form.make(src) || form.size() == 0) {
        make_null(dest);
        return QV_CONVERT_OK;
    }
    if (length > 0 && form.size() > length) {
        make_null(dest);
        return QV_CONVERT_TOO_LONG;
    }
    uint8_t *bytes = form.detach();
    release_payload(dest);
    dest.is_null = bytes == nullptr;
    dest.payload.binary = {bytes != nullptr ? form.size() : 0, bytes};
    dest.owns_payload = 1;
    set_flags(dest, type_of(src) == QV_TYPE_BINARY ? src.descriptor.extra & 0x2 : 0);
    return QV_CONVERT_OK;
}

int32_t to_blob(QV_VALUE_T &dest, const QV_VALUE_T &src, bool share) {
    if (share && is_one_of(type_of(src), kByteTypes)) {
        borrow(dest, src, 0x20);
        dest.descriptor.precision = src.descriptor.precision;
        return QV_CONVERT_OK;
    }
    ByteForm form;
    uint8_t *bytes = form.make(src) ? form.detach() : nullptr;
    release_payload(dest);
    set_flags(dest, 0);
    dest.is_null = bytes == nullptr;
    dest.payload.binary = {bytes != nullptr ? form.size() : 0, bytes};
    dest.owns_payload = bytes != nullptr;
    return QV_CONVERT_OK;
}

int32_t to_array(QV_VALUE_T &dest, const QV_VALUE_T &src, bool share) {
    if (type_of(src) != QV_TYPE_ARRAY) {
        HeldValue copy;
        if (!copy_value(*copy, src)) return QV_CONVERT_OK;
        make_null(dest);
        if (resize_array(dest, 1)) dest.payload.array[1] = copy.take();
        return QV_CONVERT_OK;
    }
    const int64_t count = array_count(src);
    QV_VALUE_T *block = array_block(dest);
    if (share && !dest.is_null && dest.owns_payload && block != nullptr &&
        array_count(dest) == count) {
        for (int64_t i = 1; i <= count; ++i) {
            release_payload(block[i]);
            block[i] = src.payload.array[i];
            block[i].owns_payload = 0;
        }
        return QV_CONVERT_OK;
    }
    make_null(dest);
    if (!resize_array(dest, count)) return QV_CONVERT_OK;
    for (int64_t i = 1; i <= count; ++i) {
        if (!copy_value(dest.payload.array[i], src.payload.array[i])) {
            make_null(dest);
            break;
        }
    }
    return QV_CONVERT_OK;
}

int32_t convert(QV_VALUE_T &dest, const QV_VALUE_T &src, bool share, bool no_truncate) {
    switch (type_of(dest)) {
        case QV_TYPE_CHAR: return to_char(dest, src, share, no_truncate);
        case QV_TYPE_CLOB: return to_clob(dest, src, share);
        case QV_TYPE_BINARY: return to_binary(dest, src, share);
        case QV_TYPE_BLOB: return to_blob(dest, src, share);
        case QV_TYPE_ARRAY: return to_array(dest, src, share);
        case QV_TYPE_INTEGER: {
            int64_t value = 0;
            return settle(dest, ValueToInteger_L(&src, &value),
                          [&](QV_PAYLOAD_T &payload) { payload.integer = value; });
        }
        case QV_TYPE_FLOAT: {
            double value = 0;
            return settle(dest, ValueToDouble_L(&src, &value),
                          [&](QV_PAYLOAD_T &payload) { payload.real = value; });
        }
        case QV_TYPE_BOOLEAN: {
            uint8_t value = 0;
            return settle(dest, ValueToBoolean_L(&src, &value),
                          [&](QV_PAYLOAD_T &payload) { payload.boolean = value; });
        }
        case QV_TYPE_NUMBER: {
            const int32_t status = ValueToNumber_L(&src, &dest);
            return status == QV_VALUE_TOO_LARGE ? QV_CONVERT_TOO_LONG : QV_CONVERT_OK;
        }
        case QV_TYPE_DATE:
        case QV_TYPE_DATE_TZ:
        case QV_TYPE_TIME:
        case QV_TYPE_TIME_TZ: {
            QV_DATE_T value{};
            const bool date = is_one_of(type_of(dest), kDateTypes);
            const int32_t status =
                date ? ValueToDateTime_L(&src, &value) : ValueToTime_L(&src, &value);
            if (!is_one_of(type_of(dest), kZoneTypes)) value.zone = 0;
            return settle(dest, status, [&](QV_PAYLOAD_T &payload) { payload.date = value; });
        }
        case QV_TYPE_INTERVAL_DS: {
            QV_INTERVAL_DS_T value{};
            return settle(dest, ValueToInterval_L(&src, &value),
                          [&](QV_PAYLOAD_T &payload) { payload.interval_ds = value; });
        }
        case QV_TYPE_INTERVAL_YM: {
            QV_INTERVAL_YM_T value{};
            return settle(dest, ValueToIntervalYM_L(&src, &value),
                          [&](QV_PAYLOAD_T &payload) { payload.interval_ym = value; });
        }
        default: return QV_CONVERT_OK;
    }
}

} // namespace

extern "C" {

QV_API int32_t ConvertValue_L(QV_VALUE_T *dest, const QV_VALUE_T *src, uint8_t share,
                              uint8_t no_truncate) {
    if (dest == nullptr) return QV_CONVERT_OK;
    if (is_null(src)) {
        FreeValue_L(dest);
        return QV_CONVERT_OK;
    }
    if (type_of(*dest) == 0) dest->descriptor = src->descriptor;
    if (!is_one_of(type_of(*dest), kValueTypes)) return QV_CONVERT_OK;
    return QV_C_ENTRY(([&] {
        if (!contains(*dest, src)) return convert(*dest, *src, share != 0, no_truncate != 0);
        // src is dest, or goes with dest's array: convert from a stand-in that owns its
        // payload, without sharing, so that dest keeps nothing of it.
        HeldValue original(*src);
        return convert(*dest, *original, false, no_truncate != 0);
    }));
}

QV_API int32_t ValueToCLOB_L(QV_VALUE_T *dest, const QV_VALUE_T *src, uint8_t share) {
    if (dest == nullptr) return QV_CONVERT_OK;
    if (type_of(*dest) != QV_TYPE_CLOB) SetValueTypePrecScale_L(dest, QV_TYPE_CLOB, 0, 0);
    return ConvertValue_L(dest, src, share, 0);
}

QV_API int32_t ValueToBLOB_L(QV_VALUE_T *dest, const QV_VALUE_T *src, uint8_t share) {
    if (dest == nullptr) return QV_CONVERT_OK;
    if (type_of(*dest) != QV_TYPE_BLOB) SetValueTypePrecScale_L(dest, QV_TYPE_BLOB, 0, 0);
    return ConvertValue_L(dest, src, share, 0);
}

QV_API int32_t ValueToInteger_L(const QV_VALUE_T *value, int64_t *out) {
    if (out == nullptr || is_null(value)) return QV_VALUE_NONE;
    if (type_of(*value) == QV_TYPE_INTEGER) {
        *out = value->payload.integer;
        return QV_VALUE_OK;
    }
    return QV_C_ENTRY(([&] {
        Reading reading;
        read_number(*value, false, reading);
        switch (reading.kind) {
            case Reading::Kind::kInteger:
                *out = reading.integer / kPowersOfTen[reading.scale];
                return QV_VALUE_OK;
            case Reading::Kind::kReal: {
                if (std::isnan(reading.real)) return QV_VALUE_NONE;
                const double whole = std::trunc(reading.real);
                if (!(whole >= -0x1p63 && whole < 0x1p63)) return QV_VALUE_TOO_LARGE;
                *out = static_cast<int64_t>(whole);
                return QV_VALUE_OK;
            }
            case Reading::Kind::kExact:
                return PreciseToInteger_L(reading.exact, out) == 0 ? QV_VALUE_OK
                                                                   : QV_VALUE_TOO_LARGE;
            default: return status_of(reading);
        }
    }));
}

QV_API int32_t ValueToDouble_L(const QV_VALUE_T *value, double *out) {
    if (out == nullptr || is_null(value)) return QV_VALUE_NONE;
    if (type_of(*value) == QV_TYPE_FLOAT) {
        *out = value->payload.real;
        return QV_VALUE_OK;
    }
    return QV_C_ENTRY(([&] {
        Reading reading;
        read_number(*value, true, reading);
        switch (reading.kind) {
            case Reading::Kind::kInteger:
                *out = reading.scale == 0
                           ? static_cast<double>(reading.integer)
                           : static_cast<double>(reading.integer) / kPowersOfTen[reading.scale];
                return QV_VALUE_OK;
            case Reading::Kind::kReal: *out = reading.real; return QV_VALUE_OK;
            case Reading::Kind::kExact:
                return PreciseToDouble_L(reading.exact, out) == 0 ? QV_VALUE_OK : QV_VALUE_NONE;
            default: return status_of(reading);
        }
    }));
}

QV_API int32_t ValueToNumber_L(const QV_VALUE_T *value, QV_PRECISE_T *number) {
    if (number == nullptr) return QV_VALUE_NONE;
    const bool fixed = qv::precise::is_valid(number);
    QV_PRECISE_T result;
    if (fixed)
        NewPrecise_L(&result, number->descriptor.precision, number->descriptor.scale);
    else
        std::memset(static_cast<void *>(&result), 0, sizeof result);
    int32_t status = QV_VALUE_NONE;
    if (!is_null(value)) {
        status = QV_C_ENTRY(([&] {
            std::string_view text;
            // The common case, a text into a sized NUMBER, goes to the recogniser at once.
            if (fixed && type_of(*value) == QV_TYPE_CHAR &&
                is_utf8(value->payload.string.encoding) && own_text(*value, text) &&
                !text.empty() &&
                qv::precise::recognise_number(text.data(), &result, false, nullptr, false) == 0 &&
                !result.is_null)
                return QV_VALUE_OK;
            Reading reading;
            read_number(*value, false, reading);
            if (fixed)
                NewPrecise_L(&result, number->descriptor.precision, number->descriptor.scale);
            if (fixed && reading.kind == Reading::Kind::kReal) { // rounded, not truncated
                if (DoubleToPrecise_L(&result, reading.real) == 0) return QV_VALUE_OK;
                return std::isfinite(reading.real) ? QV_VALUE_TOO_LARGE : QV_VALUE_NONE;
            }
            QV_PRECISE_T exact;
            if (!reading_to_number(reading, exact))
                return reading.kind == Reading::Kind::kReal && std::isfinite(reading.real)
                           ? QV_VALUE_TOO_LARGE
                           : status_of(reading);
            if (!fixed) {
                result = exact;
                return QV_VALUE_OK;
            }
            return ConvertPrecise_L(&result, &exact) == 0 ? QV_VALUE_OK : QV_VALUE_TOO_LARGE;
        }));
    }
    release_payload(*number);
    if (status != QV_VALUE_OK) {
        number->descriptor = {QV_TYPE_NUMBER, fixed ? number->descriptor.precision : 0,
                              fixed ? number->descriptor.scale : 0, 0};
        number->is_null = 1;
        return status;
    }
    number->descriptor = result.descriptor;
    number->payload = result.payload;
    number->is_null = 0;
    return QV_VALUE_OK;
}

QV_API int32_t ValueToBoolean_L(const QV_VALUE_T *value, uint8_t *out) {
    if (out == nullptr || is_null(value)) return QV_VALUE_NONE;
    if (type_of(*value) == QV_TYPE_BOOLEAN) {
        *out = value->payload.boolean != 0;
        return QV_VALUE_OK;
    }
    return QV_C_ENTRY(([&] {
        static constexpr std::string_view kTrue[] = {"TRUE", "T", "YES", "Y", "ON"};
        static constexpr std::string_view kFalse[] = {"FALSE", "F", "NO", "N", "OFF"};
        TextForm form;
        if (is_one_of(type_of(*value), kTextTypes) && form.make_utf8(*value)) {
            const std::string_view word = trimmed(form.view());
            auto is = [word](std::string_view name) {
                return word.size() == name.size() &&
                       strncasecmp(word.data(), name.data(), word.size()) == 0;
            };
            if (std::ranges::any_of(kTrue, is)) return *out = 1, QV_VALUE_OK;
            if (std::ranges::any_of(kFalse, is)) return *out = 0, QV_VALUE_OK;
        }
        Reading reading;
        read_plain_number(*value, false, reading);
        switch (reading.kind) {
            case Reading::Kind::kInteger: *out = reading.integer != 0; return QV_VALUE_OK;
            case Reading::Kind::kReal: *out = reading.real != 0; return QV_VALUE_OK;
            case Reading::Kind::kExact: *out = !IsZeroPrecise_L(reading.exact); return QV_VALUE_OK;
            default: return QV_VALUE_NONE;
        }
    }));
}

QV_API int32_t ValueToBinary_L(const QV_VALUE_T *value, uint8_t **bytes, uint32_t *length) {
    if (bytes == nullptr || length == nullptr || is_null(value)) return QV_VALUE_NONE;
    return QV_C_ENTRY(([&] {
        ByteForm form;
        if (!form.make(*value)) return QV_VALUE_NONE;
        uint8_t *copy = form.detach();
        if (copy == nullptr && form.size() > 0) return QV_VALUE_NONE;
        *bytes = copy;
        *length = form.size();
        return QV_VALUE_OK;
    }));
}

QV_API int32_t ValueToDateTime_L(const QV_VALUE_T *value, QV_DATE_T *out) {
    if (out == nullptr || is_null(value)) return QV_VALUE_NONE;
    if (is_one_of(type_of(*value), kDateTypes)) {
        *out = value->payload.date;
        return QV_VALUE_OK;
    }
    return QV_C_ENTRY(([&] {
        if (is_one_of(type_of(*value), kTextTypes)) return read_text_as(*value, out, text_to_date);
        QV_DATE_T date{};
        Reading reading;
        read_plain_number(*value, true, reading);
        double day = 0;
        if (reading.kind == Reading::Kind::kInteger && reading.scale == 0)
            day = static_cast<double>(reading.integer);
        else if (reading.kind == Reading::Kind::kReal)
            day = reading.real;
        else if (reading.kind != Reading::Kind::kExact ||
                 PreciseToDouble_L(reading.exact, &day) != 0)
            return QV_VALUE_NONE;
        const double whole = std::floor(day);
        if (!(whole >= INT32_MIN && whole <= INT32_MAX) ||
            JulianToInternalDate_L(static_cast<int32_t>(whole), &date) != 0 ||
            AddSecsToInternalDate_L(&date, (day - whole) * kSecondsPerDay, nullptr) != 0)
            return QV_VALUE_NONE;
        *out = date;
        return QV_VALUE_OK;
    }));
}

QV_API int32_t ValueToTime_L(const QV_VALUE_T *value, QV_DATE_T *out) {
    if (out == nullptr || is_null(value)) return QV_VALUE_NONE;
    if (is_one_of(type_of(*value), kDateTypes | kTimeTypes)) {
        *out = value->payload.date;
        out->year = 0;
        out->month = out->day = 0;
        return QV_VALUE_OK;
    }
    return QV_C_ENTRY(([&] {
        if (is_one_of(type_of(*value), kTextTypes)) return read_text_as(*value, out, text_to_time);
        QV_DATE_T time{};
        Reading reading;
        read_plain_number(*value, true, reading);
        Int128 nanoseconds = 0;
        if (!reading_nanoseconds(reading, nanoseconds) || nanoseconds < 0 ||
            nanoseconds >= Int128{kSecondsPerDay} * kNanosecondsPerSecond)
            return QV_VALUE_NONE;
        const auto seconds = static_cast<int64_t>(nanoseconds / kNanosecondsPerSecond);
        time.hour = static_cast<uint8_t>(seconds / 3600);
        time.minute = static_cast<uint8_t>(seconds / 60 % 60);
        time.second = static_cast<uint8_t>(seconds % 60);
        time.fraction = static_cast<int32_t>(nanoseconds % kNanosecondsPerSecond);
        *out = time;
        return QV_VALUE_OK;
    }));
}

QV_API int32_t ValueToInterval_L(const QV_VALUE_T *value, QV_INTERVAL_DS_T *out) {
    if (out == nullptr || is_null(value)) return QV_VALUE_NONE;
    if (type_of(*value) == QV_TYPE_INTERVAL_DS) {
        *out = value->payload.interval_ds;
        return QV_VALUE_OK;
    }
    return QV_C_ENTRY(([&] {
        if (is_one_of(type_of(*value), kTextTypes))
            return read_text_as(*value, out, text_to_interval);
        QV_INTERVAL_DS_T interval{};
        Reading reading;
        read_plain_number(*value, true, reading);
        Int128 nanoseconds = 0;
        if (reading.kind == Reading::Kind::kReal && std::isfinite(reading.real) &&
            std::fabs(reading.real) < 0x1p32 * kSecondsPerDay) {
            if (SecsToInternalInterval_L(reading.real, &interval) != 0) return QV_VALUE_NONE;
        } else if (!reading_nanoseconds(reading, nanoseconds) ||
                   !nanoseconds_to_interval(nanoseconds, interval)) {
            return QV_VALUE_NONE;
        }
        *out = interval;
        return QV_VALUE_OK;
    }));
}

QV_API int32_t ValueToIntervalYM_L(const QV_VALUE_T *value, QV_INTERVAL_YM_T *out) {
    if (out == nullptr || is_null(value)) return QV_VALUE_NONE;
    if (type_of(*value) == QV_TYPE_INTERVAL_YM) {
        *out = value->payload.interval_ym;
        return QV_VALUE_OK;
    }
    return QV_C_ENTRY(([&] {
        if (is_one_of(type_of(*value), kTextTypes))
            return read_text_as(*value, out, text_to_interval_ym);
        QV_INTERVAL_YM_T interval{};
        int64_t months = 0;
        if (!is_one_of(type_of(*value), kNumberTypes) ||
            ValueToInteger_L(value, &months) != QV_VALUE_OK ||
            (months < 0 ? 0 - static_cast<uint64_t>(months) : months) / 12 > UINT32_MAX)
            return QV_VALUE_NONE;
        MonthsToInternalInterval_L(months, &interval);
        *out = interval;
        return QV_VALUE_OK;
    }));
}

} // extern "C"
