// types.cpp - recognising texts through the library, column type inference and type
// declarations (see types.hpp).
#include "types.hpp"

#include <qv/date.h>
#include <qv/precise.h>

#include <algorithm>

namespace qvtool {
namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

constexpr unsigned bit(TextKind::Kind kind) {
    return 1u << kind;
}

// The library's reading of `text` as a number into a value of type `target` (0: the type
// it proposes); false when it is not one.
bool read_number(const std::string &text, std::uint32_t target, QV_VALUE_T &value,
                 bool classify_only = true) {
    value = QV_VALUE_T{};
    value.descriptor.type = target;
    return StringToBestNumberType_L(text.c_str(), &value, classify_only ? 1 : 0, nullptr) == 0;
}

TextKind classify_number(const std::string &text) {
    QV_VALUE_T value;
    const bool exponent = text.find_first_of("eE") != std::string::npos;
    if (!read_number(text, 0, value)) {
        // Beyond 77 digits: a number still when a double holds it.
        if (!read_number(text, QV_TYPE_FLOAT, value, false)) return {TextKind::Text};
        return {TextKind::Float};
    }
    if (exponent) return {TextKind::Float};
    const bool integer = value.descriptor.type == QV_TYPE_INTEGER;
    read_number(text, QV_TYPE_NUMBER, value); // a NUMBER without precision takes the digits'
    return {integer ? TextKind::Integer : TextKind::Decimal, value.descriptor.precision,
            value.descriptor.scale};
}

QV_DATATYPE_T make_type(std::uint32_t code, int precision = 0, int scale = 0) {
    return QV_DATATYPE_T{code, precision, scale, 0};
}

std::string upper(std::string_view text) {
    std::string out(text);
    for (char &c : out) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
    return out;
}

// The message for a ParseVariableType_L result.
std::string declaration_error(int32_t code, const std::string &name) {
    switch (code) {
        case QV_PARSE_TYPE_NO_PRECISION: return name + " takes no size";
        case QV_PARSE_TYPE_NO_CLOSE: return "missing ')'";
        case QV_PARSE_TYPE_BAD_PRECISION: return "the size is not a whole number";
        case QV_PARSE_TYPE_PRECISION_RANGE:
            return "the size of " + name +
                   (name == "NUMBER" ? " is at most 77" : " is out of range");
        case QV_PARSE_TYPE_NO_SCALE: return name + " takes no scale";
        case QV_PARSE_TYPE_BAD_SCALE: return "the scale is not a whole number";
        case QV_PARSE_TYPE_SCALE_RANGE:
            return "the scale of " + name + " is above -size and at most 77";
        case QV_PARSE_TYPE_SIZE_MISSING:
            return name + " needs a size, as in " + name + (name == "NUMBER" ? "(10,2)" : "(20)");
        default: return "unknown type";
    }
}

} // namespace

TextKind classify(std::string_view text) {
    text = trim(text);
    if (text.empty()) return {};
    const std::string terminated(text);
    const TextKind number = classify_number(terminated);
    if (number.kind != TextKind::Text) return number;
    std::uint8_t parts = 0;
    if (IsInternalDate_L(terminated.c_str(), nullptr, &parts) == 0) return {TextKind::Text};
    return {(parts & QV_DATE_LITERAL_ZONE) != 0 ? TextKind::DateZone : TextKind::Date};
}

void TypeGuess::add(std::string_view text) {
    const TextKind kind = classify(text);
    seen_ |= bit(kind.kind);
    if (kind.kind == TextKind::Integer || kind.kind == TextKind::Decimal) {
        integer_digits_ = std::max(integer_digits_, kind.digits - kind.scale);
        scale_ = std::max(scale_, kind.scale);
    }
}

QV_DATATYPE_T TypeGuess::type() const {
    constexpr unsigned numbers =
        bit(TextKind::Integer) | bit(TextKind::Decimal) | bit(TextKind::Float);
    const unsigned seen = seen_ & ~bit(TextKind::Empty);
    if (seen == bit(TextKind::Date)) return make_type(QV_TYPE_DATE);
    if (seen == bit(TextKind::DateZone)) return make_type(QV_TYPE_DATE_TZ);
    if (seen == 0 || (seen & ~numbers) != 0) return make_type(QV_TYPE_CHAR);
    if ((seen & bit(TextKind::Float)) != 0) return make_type(QV_TYPE_FLOAT);
    if ((seen & bit(TextKind::Decimal)) == 0) return make_type(QV_TYPE_INTEGER);
    const int precision = integer_digits_ + scale_;
    if (precision > QV_PRECISE_MAX_PRECISION) return make_type(QV_TYPE_FLOAT);
    return make_type(QV_TYPE_NUMBER, std::max(precision, 1), scale_);
}

QV_DATATYPE_T infer_type(std::string_view text) {
    if (trim(text).empty()) return make_type(0);
    TypeGuess guess;
    guess.add(text);
    return guess.type();
}

std::string parse_type(std::string_view declaration, QV_DATATYPE_T &type) {
    type = make_type(0);
    const std::string text(trim(declaration));
    const std::string quoted = "'" + text + "': ";
    const std::string name = upper(trim(text.substr(0, text.find('('))));
    const int32_t code = ParseVariableType_L(text.c_str(), &type);
    if (code == QV_PARSE_TYPE_SIZE_MISSING && DataType_L(text.c_str()) == QV_TYPE_CHAR) {
        type = make_type(QV_TYPE_CHAR);
        return "";
    }
    if (code == QV_PARSE_TYPE_OK && type.type != 0) return "";
    type = make_type(0);
    return quoted + declaration_error(code, name);
}

bool readable_from_text(std::uint32_t type) {
    return type != 0 && (type & (QV_TYPE_ARRAY | QV_TYPE_LIST | QV_TYPE_POINTER)) == 0;
}

} // namespace qvtool
