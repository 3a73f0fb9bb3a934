// dataval_text.cpp - text forms of values: the printers of the fixed-size types, the text
// form of any value (borrowed from a text value or printed), byte forms and hexadecimal
// text, ValueToString_L, ValueToChar_L, ValueToHex_L and ConcatValue_L.
//
// Fixed-size types print into a buffer on the stack (kFixedTextSize bytes: the longest, a
// FLOAT, takes 341 characters); only texts, bytes and arrays need heap memory.
//
// Part of the dataval module.
#define QV_MODULE "dataval"
#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>

#include "core/raise.hpp"
#include "qv/date.h"
#include "qv/encoding.h"
#include "qv/interval.h"
#include "qv/qvstrlib.h"
#include "values/dataval.hpp"

namespace qv::values {

namespace {

constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// `value` with at least `width` digits (zeros in front), "-" before a negative one.
char *put_padded(char *out, int64_t value, int width) {
    if (value >= 0 && value < 100 && width == 2) {
        std::memcpy(out, &kDigitPairs[2 * value], 2);
        return out + 2;
    }
    uint64_t magnitude = value < 0 ? 0 - static_cast<uint64_t>(value) : value;
    if (value < 0) *out++ = '-';
    char digits[20];
    int count =
        static_cast<int>(std::to_chars(digits, digits + sizeof digits, magnitude).ptr - digits);
    for (; count < width; --width) *out++ = '0';
    std::memcpy(out, digits, count);
    return out + count;
}

// The year as the default date patterns print it: "%04d" when positive, else "%+05d".
char *put_year(char *out, int32_t year) {
    if (year > 0) return put_padded(out, year, 4);
    *out++ = year == 0 ? '+' : '-';
    return put_padded(out, year < 0 ? -int64_t{year} : 0, 4);
}

char *put_date(char *out, const QV_DATE_T &date) {
    out = put_year(out, date.year);
    *out++ = '-';
    out = put_padded(out, date.month, 2);
    *out++ = '-';
    return put_padded(out, date.day, 2);
}

char *put_time(char *out, const QV_DATE_T &date) {
    out = put_padded(out, date.hour, 2);
    *out++ = ':';
    out = put_padded(out, date.minute, 2);
    *out++ = ':';
    out = put_padded(out, date.second, 2);
    *out++ = '.';
    return put_padded(out, date.fraction, 9);
}

// " +05:30": the zone's hours with their sign, then its minutes.
char *put_zone(char *out, int16_t zone) {
    *out++ = ' ';
    *out++ = zone < 0 ? '-' : '+';
    const int32_t magnitude = zone < 0 ? -int32_t{zone} : zone;
    out = put_padded(out, magnitude / 100, 2);
    *out++ = ':';
    return put_padded(out, magnitude % 100, 2);
}

int print_date(const QV_VALUE_T &value, char *out) {
    const QV_DATE_T &date = value.payload.date;
    char *end = out;
    if (is_one_of(type_of(value), kDateTypes)) {
        end = put_date(end, date);
        *end++ = ' ';
    }
    end = put_time(end, date);
    if (is_one_of(type_of(value), kZoneTypes)) end = put_zone(end, date.zone);
    *end = '\0';
    return static_cast<int>(end - out);
}

int print_copy(const char *text, char *out) {
    const std::size_t length = std::strlen(text);
    std::memcpy(out, text, length + 1);
    return static_cast<int>(length);
}

constexpr std::string_view kBlanks = " \t\n\r\v\f";

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// A text quoted for the text form of an array: in quotes, its quotes doubled.
void append_quoted(String &out, std::string_view text) {
    out += '\'';
    for (char c : text) {
        if (c == '\'') out += '\'';
        out += c;
    }
    out += '\'';
}

// "(1, 'a', NULL)".
void print_array(const QV_VALUE_T &value, String &out) {
    out += '(';
    for (int64_t i = 0; i < array_count(value); ++i) {
        const QV_VALUE_T &element = value.payload.array[i + 1];
        if (i > 0) out += ", ";
        TextForm form;
        if (element.is_null || !form.make_utf8(element))
            out += "NULL";
        else if (is_one_of(type_of(element), kTextTypes))
            append_quoted(out, form.view());
        else
            out += form.view();
    }
    out += ')';
}

// Texts in `a` read the same in `b` (null and the UTF-8 descriptor are one encoding).
bool same_encoding(const QV_ENCODING_T *a, const QV_ENCODING_T *b) {
    const QV_ENCODING_T *utf8 = UTF8Encoding_L();
    return (a == nullptr ? utf8 : a) == (b == nullptr ? utf8 : b);
}

// A heap copy of `size` bytes with `zeros` zero bytes after them; null after an allocation
// failure whose raise returned.
HeapText heap_copy(const char *data, std::size_t size, std::size_t zeros) {
    HeapText copy(static_cast<char *>(QV_MALLOC(size + zeros)));
    if (copy != nullptr) {
        if (size > 0) std::memcpy(copy.get(), data, size);
        std::memset(copy.get() + size, 0, zeros);
    }
    return copy;
}

} // namespace

int print_fixed(const QV_VALUE_T &value, char *out) {
    switch (type_of(value)) {
        case QV_TYPE_INTEGER: {
            char *end = std::to_chars(out, out + kFixedTextSize - 1, value.payload.integer).ptr;
            *end = '\0';
            return static_cast<int>(end - out);
        }
        case QV_TYPE_FLOAT:
            return print_copy(StringFromDouble_L(value.payload.real, nullptr, nullptr), out);
        case QV_TYPE_NUMBER:
            if (PreciseToSizedString_L(&value, out, kFixedTextSize, nullptr) < 0) return -1;
            return static_cast<int>(std::strlen(out));
        case QV_TYPE_BOOLEAN: return print_copy(value.payload.boolean ? "TRUE" : "FALSE", out);
        case QV_TYPE_DATE:
        case QV_TYPE_DATE_TZ:
        case QV_TYPE_TIME:
        case QV_TYPE_TIME_TZ: return print_date(value, out);
        case QV_TYPE_INTERVAL_DS:
            return InternalIntervalToChar_L(&value.payload.interval_ds, nullptr, nullptr, out,
                                            kFixedTextSize);
        case QV_TYPE_INTERVAL_YM:
            return InternalIntervalYMToChar_L(&value.payload.interval_ym, nullptr, nullptr, out,
                                              kFixedTextSize);
        default: return -1;
    }
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool own_text(const QV_VALUE_T &value, std::string_view &text) {
    if (!is_one_of(type_of(value), kTextTypes) || in_file(value)) return false;
    const QV_STRING_T &string = value.payload.string;
    if (string.text == nullptr) {
        text = {};
        return true;
    }
    const std::size_t size = terminator_width(string.encoding) == 1
                                 ? std::strlen(string.text)
                                 : static_cast<std::size_t>(Bytelen_SL(&string, 0));
    text = {string.text, size};
    return true;
}

bool decode_hex(std::string_view text, HeapArray<uint8_t> &bytes, uint32_t &length) {
    text = trimmed(text);
    if (text.size() % 2 != 0 || text.size() / 2 > UINT32_MAX) return false;
    for (char c : text)
        if (hex_digit(c) < 0) return false;
    length = static_cast<uint32_t>(text.size() / 2);
    if (length == 0) {
        bytes.reset();
        return true;
    }
    bytes.reset(static_cast<uint8_t *>(QV_MALLOC(length)));
    if (bytes == nullptr) return false;
    for (uint32_t i = 0; i < length; ++i)
        bytes[i] = static_cast<uint8_t>(hex_digit(text[2 * i]) << 4 | hex_digit(text[2 * i + 1]));
    return true;
}

void encode_hex(const uint8_t *bytes, std::size_t length, char *out) {
    constexpr char kHex[] = "0123456789ABCDEF";
    for (std::size_t i = 0; i < length; ++i) {
        *out++ = kHex[bytes[i] >> 4];
        *out++ = kHex[bytes[i] & 0xF];
    }
}

// ---- TextForm ------------------------------------------------------------------------------

void TextForm::own(HeapText text, std::size_t size, const QV_ENCODING_T *encoding) {
    owned_ = std::move(text);
    data_ = owned_.get();
    size_ = size;
    encoding_ = encoding;
}

bool TextForm::make(const QV_VALUE_T &value) {
    if (value.is_null) return false;
    encoding_ = nullptr;
    std::string_view text;
    if (own_text(value, text)) {
        data_ = text.empty() ? "" : text.data();
        size_ = text.size();
        encoding_ = value.payload.string.encoding;
        return true;
    }
    if (in_file(value) && type_of(value) == QV_TYPE_CLOB) {
        const QV_ENCODING_T *encoding = value.payload.string.encoding;
        HeapText content;
        std::size_t size = 0;
        if (!read_whole_file(file_name(value), content, size, terminator_width(encoding)))
            return false;
        own(std::move(content), size, encoding);
        return true;
    }
    if (is_one_of(type_of(value), kByteTypes)) {
        ByteForm bytes;
        if (!bytes.make(value)) return false;
        HeapText hex(static_cast<char *>(QV_MALLOC(2 * std::size_t{bytes.size()} + 1)));
        if (hex == nullptr) return false;
        encode_hex(bytes.data(), bytes.size(), hex.get());
        hex.get()[2 * std::size_t{bytes.size()}] = '\0';
        own(std::move(hex), 2 * std::size_t{bytes.size()}, nullptr);
        return true;
    }
    if (type_of(value) == QV_TYPE_ARRAY) {
        String text_form;
        print_array(value, text_form);
        HeapText copy = heap_copy(text_form.data(), text_form.size(), 1);
        if (copy == nullptr) return false;
        own(std::move(copy), text_form.size(), nullptr);
        return true;
    }
    const int length = print_fixed(value, fixed_);
    if (length < 0) return false;
    data_ = fixed_;
    size_ = static_cast<std::size_t>(length);
    return true;
}

bool TextForm::to_utf8() {
    if (is_utf8(encoding_)) return true;
    char *converted = nullptr;
    int32_t length = 0;
    if (ConvertEncoding_L(encoding_, data_, static_cast<int32_t>(size_), UTF8Encoding_L(),
                          &converted, &length) != 0 ||
        converted == nullptr)
        return false;
    own(HeapText(converted), static_cast<std::size_t>(length), nullptr);
    return true;
}

bool TextForm::make_utf8(const QV_VALUE_T &value) {
    return make(value) && to_utf8();
}

char *TextForm::detach() {
    if (owned_ != nullptr && data_ == owned_.get()) {
        data_ = nullptr;
        return owned_.release();
    }
    return heap_copy(data_, size_, terminator_width(encoding_)).release();
}

// ---- ByteForm ------------------------------------------------------------------------------

bool ByteForm::make(const QV_VALUE_T &value) {
    if (value.is_null) return false;
    if (in_file(value) && type_of(value) == QV_TYPE_BLOB) {
        HeapText content;
        std::size_t size = 0;
        if (!read_whole_file(file_name(value), content, size, 1)) return false;
        owned_.reset(reinterpret_cast<uint8_t *>(content.release()));
        data_ = owned_.get();
        size_ = static_cast<uint32_t>(size);
        return true;
    }
    if (is_one_of(type_of(value), kByteTypes)) {
        data_ = value.payload.binary.bytes;
        size_ = data_ != nullptr ? value.payload.binary.length : 0;
        return true;
    }
    TextForm text;
    if (!is_one_of(type_of(value), kTextTypes) || !text.make_utf8(value) ||
        !decode_hex(text.view(), owned_, size_))
        return false;
    data_ = owned_.get();
    return true;
}

uint8_t *ByteForm::detach() {
    if (size_ == 0) return nullptr;
    if (owned_ != nullptr && data_ == owned_.get()) return owned_.release();
    auto *copy = static_cast<uint8_t *>(QV_MALLOC(size_));
    if (copy != nullptr) std::memcpy(copy, data_, size_);
    return copy;
}

} // namespace qv::values

using namespace qv::values;
using qv::HeapText;

extern "C" {

QV_API int32_t ValueToString_L(const QV_VALUE_T *value, QV_STRING_T *out) {
    if (out == nullptr || is_null(value)) return QV_VALUE_NONE;
    return QV_C_ENTRY(([&] {
        TextForm form;
        if (!form.make(*value)) return QV_VALUE_NONE;
        const QV_ENCODING_T *encoding = form.encoding();
        char *text = form.detach();
        if (text == nullptr) return QV_VALUE_NONE;
        *out = {text, encoding};
        return QV_VALUE_OK;
    }));
}

QV_API char *ValueToChar_L(const QV_VALUE_T *value) {
    if (is_null(value)) return nullptr;
    return QV_C_ENTRY(([&]() -> char * {
        TextForm form;
        return form.make_utf8(*value) ? form.detach() : nullptr;
    }));
}

QV_API char *ValueToHex_L(const QV_VALUE_T *value) {
    if (is_null(value)) return nullptr;
    return QV_C_ENTRY(([&]() -> char * {
        ByteForm bytes;
        TextForm text;
        const uint8_t *data;
        std::size_t size;
        if (is_one_of(type_of(*value), kByteTypes)) {
            if (!bytes.make(*value)) return nullptr;
            data = bytes.data();
            size = bytes.size();
        } else {
            if (!text.make(*value)) return nullptr;
            data = reinterpret_cast<const uint8_t *>(text.data());
            size = text.size();
        }
        auto *hex = static_cast<char *>(QV_MALLOC(2 * size + 1));
        if (hex == nullptr) return nullptr;
        encode_hex(data, size, hex);
        hex[2 * size] = '\0';
        return hex;
    }));
}

QV_API int32_t ConcatValue_L(QV_VALUE_T *dest, const QV_VALUE_T *src) {
    if (dest == nullptr) return -1;
    return QV_C_ENTRY(([&] {
        const uint32_t type = type_of(*dest) == QV_TYPE_CLOB ? QV_TYPE_CLOB : QV_TYPE_CHAR;
        const int32_t length = dest->descriptor.precision;
        TextForm left, right;
        const bool has_left = left.make(*dest);
        const bool has_right = !is_null(src) && right.make(*src);
        if (!has_left && !has_right) {
            make_null(*dest);
            dest->descriptor = {type, length, 0, 0};
            return 0;
        }
        const QV_ENCODING_T *encoding = has_left ? left.encoding() : nullptr;
        std::string_view tail = right.view();
        HeapText converted;
        if (has_right && !same_encoding(right.encoding(), encoding)) {
            char *text = nullptr;
            int32_t bytes = 0;
            if (ConvertEncoding_L(right.encoding(), right.data(),
                                  static_cast<int32_t>(right.size()), encoding, &text, &bytes) != 0)
                return -1;
            converted.reset(text);
            tail = {text, static_cast<std::size_t>(bytes)};
        }
        const std::size_t size = left.size() + tail.size();
        HeapText joined =
            heap_copy(left.data(), left.size(), tail.size() + terminator_width(encoding));
        if (joined == nullptr) return -1;
        if (!tail.empty()) std::memcpy(joined.get() + left.size(), tail.data(), tail.size());
        make_null(*dest);
        dest->descriptor = {type, length, 0, 0};
        dest->payload.string = {joined.release(), encoding};
        dest->owns_payload = 1;
        dest->is_null = 0;
        if (length > 0 && std::cmp_greater(size, length))
            dest->descriptor.precision = std::max(length, Strlen_SL(&dest->payload.string));
        return 0;
    }));
}

} // extern "C"
