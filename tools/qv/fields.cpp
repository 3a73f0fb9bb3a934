// fields.cpp - reading texts into typed values (see fields.hpp).
#include "fields.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "library.hpp"
#include "types.hpp"

namespace qvtool {
namespace {

constexpr std::size_t SHOWN_TEXT = 40;

bool is_blank(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c == ' ' || c == '\t'; });
}

int character_count(std::string_view text) {
    return static_cast<int>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

std::string shown(std::string_view text) {
    if (text.size() <= SHOWN_TEXT) return "'" + std::string(text) + "'";
    std::size_t cut = SHOWN_TEXT; // not inside a UTF-8 sequence
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
    return "'" + std::string(text.substr(0, cut)) + "...'";
}

void set_null(QV_VALUE_T &value) {
    if (value.owns_payload != 0) FreeValue_L(&value);
    value.is_null = 1;
}

} // namespace

FieldReader::FieldReader(const QV_DATATYPE_T &type) : type_(type) {
    source_.descriptor.type = QV_TYPE_CHAR;
    source_.payload.string.encoding = UTF8Encoding_L();
}

FieldReader::~FieldReader() {
    FreeValue_L(&exact_);
}

bool FieldReader::read(std::string_view text, QV_VALUE_T &value, std::string &error) {
    if (text.empty()) {
        set_null(value);
        return true;
    }
    text_.assign(text);
    switch (type_.type) {
        case QV_TYPE_CHAR: return read_char(value, error);
        case QV_TYPE_INTEGER: return read_integer(value) || refuse(value, error, "is not a");
        case QV_TYPE_FLOAT: return read_float(value) || convert(value, error);
        case QV_TYPE_NUMBER: return read_number(value, error);
        default: return convert(value, error);
    }
}

bool FieldReader::read_char(QV_VALUE_T &value, std::string &error) {
    if (type_.precision > 0 && character_count(text_) > type_.precision)
        return refuse(value, error, "is longer than");
    if (value.owns_payload != 0) FreeValue_L(&value);
    value.payload.string.text = text_.data();
    value.payload.string.encoding = UTF8Encoding_L();
    value.is_null = 0;
    return true;
}

// A whole number in 64 bits: -123 directly; other forms (blanks, "+", an exponent that
// makes a whole number: 1.5e3) through the library, which must propose an INTEGER.
bool FieldReader::read_integer(QV_VALUE_T &value) {
    const char *end = text_.data() + text_.size();
    std::int64_t integer = 0;
    const auto [stop, code] = std::from_chars(text_.data(), end, integer);
    if (code == std::errc() && stop == end) {
        value.payload.integer = integer;
        value.is_null = 0;
        return true;
    }
    QV_VALUE_T proposal{};
    if (StringToBestNumberType_L(text_.c_str(), &proposal, 1, nullptr) != 0) return false;
    if (proposal.is_null != 0) {
        set_null(value);
        return true;
    }
    return proposal.descriptor.type == QV_TYPE_INTEGER &&
           StringToBestNumberType_L(text_.c_str(), &value, 0, nullptr) == 0;
}

// A double in the plain forms (digits, point, exponent); the rest goes to ConvertValue_L.
bool FieldReader::read_float(QV_VALUE_T &value) {
    const char first = text_[0];
    if (!(first == '-' || first == '.' || (first >= '0' && first <= '9'))) return false;
    const char *end = text_.data() + text_.size();
    double real = 0;
    const auto [stop, code] = std::from_chars(text_.data(), end, real);
    if (code != std::errc() || stop != end || !std::isfinite(real)) return false;
    value.payload.real = real;
    value.is_null = 0;
    return true;
}

// The text's own digits first (NUMBER without precision takes them all), then into the
// column's NUMBER(p,s), which must keep them: equal before and after.
bool FieldReader::read_number(QV_VALUE_T &value, std::string &error) {
    exact_.descriptor = QV_DATATYPE_T{QV_TYPE_NUMBER, 0, 0, 0};
    if (StringToBestNumberType_L(text_.c_str(), &exact_, 0, nullptr) != 0)
        return refuse(value, error, "is not a");
    if (exact_.is_null != 0) {
        set_null(value);
        return true;
    }
    if (ConvertValue_L(&value, &exact_, 0, 0) != QV_CONVERT_OK || value.is_null != 0 ||
        PreciseCompare_L(&value, "==", &exact_) != 1)
        return refuse(value, error, "does not fit");
    return true;
}

bool FieldReader::convert(QV_VALUE_T &value, std::string &error) {
    source_.payload.string.text = text_.data();
    source_.is_null = 0;
    const int32_t result = ConvertValue_L(&value, &source_, type_.type == QV_TYPE_CLOB, 0);
    if (result == QV_CONVERT_TOO_LONG) return refuse(value, error, "does not fit");
    if (result == QV_CONVERT_TRUNCATED) return refuse(value, error, "is longer than");
    if (value.is_null != 0 && !is_blank(text_)) return refuse(value, error, "is not a");
    return true;
}

// "'abc' is not a DATE", "'12.345' does not fit NUMBER(5,2)"; "is not a" becomes "is not an"
// before a vowel.
bool FieldReader::refuse(QV_VALUE_T &value, std::string &error, const char *what) {
    set_null(value);
    const std::string type = type_text(type_);
    std::string verb = what;
    if (verb.ends_with(" a") && std::string_view("AEIOU").find(type[0]) != std::string_view::npos)
        verb += "n";
    error = shown(text_) + " " + verb + " " + type;
    return false;
}

std::string make_value(const QV_DATATYPE_T &type, std::string_view text, QV_VALUE_T &value) {
    const QV_DATATYPE_T settled = type.type != 0 ? type : infer_type(text);
    FreeValue_L(&value);
    value = QV_VALUE_T{};
    value.is_null = 1;
    if (settled.type == 0) return "";
    if (!readable_from_text(settled.type)) return "a value cannot be read as " + type_text(settled);
    HeldValue read;
    SetValue_L(&read.value, &settled);
    FieldReader reader(settled);
    std::string error;
    if (!reader.read(text, read.value, error)) return error;
    CopyValue_L(&value, &read.value);
    return "";
}

} // namespace qvtool
