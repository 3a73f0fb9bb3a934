// types.cpp - recognisers, column type inference and type declarations (see types.hpp).
#include "types.hpp"

#include <algorithm>
#include <array>
#include <charconv>

namespace qvtool {
namespace {

constexpr int NUMBER_MAX_PRECISION = 77;
constexpr int CHAR_MAX_LENGTH = 8000;

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

// Digits starting at text[i], at most `most`; advances i. The count read.
int skip_digits(std::string_view text, std::size_t &i, std::size_t most = SIZE_MAX) {
    const std::size_t from = i;
    while (i < text.size() && i - from < most && is_digit(text[i])) ++i;
    return static_cast<int>(i - from);
}

// Whether `digits` (significant, no leading zeros) fit in a 64-bit integer.
bool fits_int64(std::string_view digits, bool negative) {
    constexpr std::string_view largest = "9223372036854775807";
    if (digits.size() != largest.size()) return digits.size() < largest.size();
    return negative ? digits <= "9223372036854775808" : digits <= largest;
}

// Exactly `count` digits at text[i] as a number; advances i. -1 when they are not there.
int fixed_number(std::string_view text, std::size_t &i, int count) {
    const std::size_t from = i;
    if (skip_digits(text, i, static_cast<std::size_t>(count)) != count) return -1;
    int value = 0;
    for (std::size_t k = from; k < i; ++k) value = value * 10 + (text[k] - '0');
    return value;
}

int days_in_month(int month, int year) {
    static constexpr std::array<int, 13> days = {0, 31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month != 2) return days[month];
    const bool leap =
        year % 4 == 0 && year != -4712 && (year < 1600 || year % 100 != 0 || year % 400 == 0);
    return leap ? 29 : 28;
}

bool is_time_of_day(std::string_view text, std::size_t i) {
    const int hour = fixed_number(text, i, 2);
    if (hour < 0 || hour > 23 || i >= text.size() || text[i++] != ':') return false;
    const int minute = fixed_number(text, i, 2);
    if (minute < 0 || minute > 59 || i >= text.size() || text[i++] != ':') return false;
    const int second = fixed_number(text, i, 2);
    if (second < 0 || second > 59) return false;
    if (i < text.size() && text[i] == '.') {
        ++i;
        const int fraction = skip_digits(text, i, 9);
        if (fraction == 0) return false;
    }
    return i == text.size();
}

// The declarable types and what their declarations take.
struct TypeName {
    std::string_view name;
    std::uint32_t code;
    bool sized, scaled;
};
constexpr TypeName TYPE_NAMES[] = {
    {"CHAR", QV_TYPE_CHAR, true, false},
    {"INTEGER", QV_TYPE_INTEGER, false, false},
    {"FLOAT", QV_TYPE_FLOAT, false, false},
    {"NUMBER", QV_TYPE_NUMBER, true, true},
    {"DATE", QV_TYPE_DATE, false, false},
    {"DATE WITH TIME ZONE", QV_TYPE_DATE_TZ, false, false},
    {"BOOLEAN", QV_TYPE_BOOLEAN, false, false},
    {"ARRAY", QV_TYPE_ARRAY, false, false},
    {"BINARY", QV_TYPE_BINARY, true, false},
    {"CLOB", QV_TYPE_CLOB, false, false},
    {"BLOB", QV_TYPE_BLOB, false, false},
    {"INTERVAL DAY TO SECOND", QV_TYPE_INTERVAL_DS, false, false},
    {"INTERVAL YEAR TO MONTH", QV_TYPE_INTERVAL_YM, false, false},
    {"TIME", QV_TYPE_TIME, false, false},
    {"TIME WITH TIME ZONE", QV_TYPE_TIME_TZ, false, false},
};

const TypeName *find_type_name(std::string_view name) {
    const auto same = [name](const TypeName &row) {
        return std::equal(name.begin(), name.end(), row.name.begin(), row.name.end(),
                          [](char a, char b) { return (a >= 'a' && a <= 'z' ? a - 32 : a) == b; });
    };
    const auto *row = std::find_if(std::begin(TYPE_NAMES), std::end(TYPE_NAMES), same);
    return row == std::end(TYPE_NAMES) ? nullptr : row;
}

bool whole_number(std::string_view text, int &value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return !text.empty() && error == std::errc() && end == text.data() + text.size();
}

QV_DATATYPE_T make_type(std::uint32_t code, int precision = 0, int scale = 0) {
    return QV_DATATYPE_T{code, precision, scale, 0};
}

} // namespace

bool read_number(std::string_view text, NumberText &number) {
    number = {};
    std::size_t i = 0;
    while (i < text.size() && is_blank(text[i])) ++i;
    const bool negative = i < text.size() && text[i] == '-';
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) ++i;
    while (i < text.size() && text[i] == '0') ++i;
    const std::size_t significant = i;
    number.integer_digits = skip_digits(text, i);
    const std::string_view integer = text.substr(significant, i - significant);
    bool any_digit = i > 0 && is_digit(text[i - 1]);
    if (i < text.size() && text[i] == '.') {
        number.point = true;
        ++i;
        number.scale = skip_digits(text, i);
        any_digit = any_digit || number.scale > 0;
    }
    if (!any_digit) return false;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        if (i < text.size() && (text[i] == '-' || text[i] == '+')) ++i;
        if (skip_digits(text, i) == 0) return false;
        number.exponent = true;
    }
    while (i < text.size() && is_blank(text[i])) ++i;
    if (i != text.size()) return false;
    number.fits_integer = !number.point && !number.exponent && fits_int64(integer, negative);
    return true;
}

bool is_date_literal(std::string_view text) {
    const bool signed_year = !text.empty() && (text[0] == '-' || text[0] == '+');
    std::size_t i = signed_year ? 1 : 0;
    int year = fixed_number(text, i, 4);
    if (year < 0 || i >= text.size() || text[i++] != '-') return false;
    if (text[0] == '-') year = -year;
    const int month = fixed_number(text, i, 2);
    if (month < 1 || month > 12 || i >= text.size() || text[i++] != '-') return false;
    const int day = fixed_number(text, i, 2);
    if (day < 1 || day > days_in_month(month, year)) return false;
    if (i == text.size()) return true;
    return text[i] == ' ' && is_time_of_day(text, i + 1);
}

void TypeGuess::add(std::string_view text) {
    if (text.empty()) return;
    longest_ = std::max(longest_, character_count(text));
    NumberText number;
    if (!read_number(text, number)) {
        seen_ |= is_date_literal(text) ? DATE : TEXT;
    } else if (number.exponent || number.integer_digits + number.scale > NUMBER_MAX_PRECISION) {
        seen_ |= FLOAT;
    } else {
        seen_ |= number.fits_integer ? INTEGER : DECIMAL;
        integer_digits_ = std::max(integer_digits_, number.integer_digits);
        scale_ = std::max(scale_, number.scale);
    }
}

QV_DATATYPE_T TypeGuess::type() const {
    constexpr unsigned numbers = INTEGER | DECIMAL | FLOAT;
    if (seen_ == 0) return make_type(QV_TYPE_CHAR, 1);
    if (seen_ == DATE) return make_type(QV_TYPE_DATE);
    if ((seen_ & ~numbers) != 0)
        return make_type(QV_TYPE_CHAR, std::min(std::max(longest_, 1), CHAR_MAX_LENGTH));
    if ((seen_ & FLOAT) != 0) return make_type(QV_TYPE_FLOAT);
    if ((seen_ & DECIMAL) == 0) return make_type(QV_TYPE_INTEGER);
    const int precision = integer_digits_ + scale_;
    if (precision > NUMBER_MAX_PRECISION) return make_type(QV_TYPE_FLOAT);
    return make_type(QV_TYPE_NUMBER, std::max(precision, 1), scale_);
}

QV_DATATYPE_T infer_type(std::string_view text) {
    TypeGuess guess;
    guess.add(text);
    return guess.type();
}

std::string parse_type(std::string_view declaration, QV_DATATYPE_T &type) {
    type = make_type(0);
    declaration = trim(declaration);
    const std::string quoted = std::string(1, '\'').append(declaration).append("': ");
    const std::size_t open = declaration.find('(');
    const TypeName *row = find_type_name(trim(declaration.substr(0, open)));
    if (row == nullptr) return quoted + "unknown type";
    const std::string name(row->name);
    if (open == std::string_view::npos) {
        if (row->sized)
            return quoted + name + " needs a size, as in " + name +
                   (row->scaled ? "(10,2)" : "(20)");
        type = make_type(row->code);
        return "";
    }
    if (!row->sized) return quoted + name + " takes no size";
    std::string_view inside = declaration.substr(open + 1);
    if (inside.empty() || inside.back() != ')') return quoted + "missing ')'";
    inside.remove_suffix(1);
    const std::size_t comma = inside.find(',');
    int precision = 0, scale = 0;
    if (!whole_number(trim(inside.substr(0, comma)), precision))
        return quoted + "the size is not a whole number";
    if (precision < 0) return quoted + "the size is negative";
    if (row->scaled && precision > NUMBER_MAX_PRECISION)
        return quoted + "the size of " + name + " is at most 77";
    if (comma != std::string_view::npos) {
        if (!row->scaled) return quoted + name + " takes no scale";
        if (!whole_number(trim(inside.substr(comma + 1)), scale))
            return quoted + "the scale is not a whole number";
        if (scale > NUMBER_MAX_PRECISION || (scale < 0 && -scale >= precision))
            return quoted + "the scale of " + name + " is above -size and at most 77";
    }
    type = make_type(row->code, precision, scale);
    return "";
}

int character_count(std::string_view text) {
    return static_cast<int>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

} // namespace qvtool
