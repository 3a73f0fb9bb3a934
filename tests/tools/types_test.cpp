// types_test.cpp - the number and date-literal recognisers, the type of one text, a column's
// type over many, and type declarations.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "types.hpp"

namespace {

using namespace qvtool;

std::string shown(const QV_DATATYPE_T &type) {
    return std::to_string(type.type) + "(" + std::to_string(type.precision) + "," +
           std::to_string(type.scale) + ")";
}
std::string shown(std::uint32_t code, int precision = 0, int scale = 0) {
    return shown(QV_DATATYPE_T{code, precision, scale, 0});
}

TEST(Types, NumberTexts) {
    const struct {
        const char *text;
        bool number;
        int integer_digits, scale;
        bool exponent, fits;
    } cases[] = {
        {"42", true, 2, 0, false, true},
        {" -007 ", true, 1, 0, false, true},
        {"+0", true, 0, 0, false, true},
        {"12.50", true, 2, 2, false, false},
        {"-.5", true, 0, 1, false, false},
        {"12.", true, 2, 0, false, false},
        {"1.5e3", true, 1, 1, true, false},
        {"2E-7", true, 1, 0, true, false},
        {"9223372036854775807", true, 19, 0, false, true},
        {"-9223372036854775808", true, 19, 0, false, true},
        {"9223372036854775808", true, 19, 0, false, false},
        {"00000000000000000000001", true, 1, 0, false, true},
        {"", false, 0, 0, false, false},
        {"-", false, 0, 0, false, false},
        {".", false, 0, 0, false, false},
        {"1e", false, 0, 0, false, false},
        {"1.2.3", false, 0, 0, false, false},
        {"12a", false, 0, 0, false, false},
        {"1 2", false, 0, 0, false, false},
        {"0x10", false, 0, 0, false, false},
        {"nan", false, 0, 0, false, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        NumberText number;
        ASSERT_EQ(read_number(c.text, number), c.number);
        if (!c.number) continue;
        EXPECT_EQ(number.integer_digits, c.integer_digits);
        EXPECT_EQ(number.scale, c.scale);
        EXPECT_EQ(number.exponent, c.exponent);
        EXPECT_EQ(number.fits_integer, c.fits);
    }
}

TEST(Types, DateLiterals) {
    for (const char *yes :
         {"2024-03-15", "2024-02-29", "2000-02-29", "1500-02-29", "-0004-02-29", "+2024-12-31",
          "2024-03-15 00:00:00", "2024-03-15 23:59:59.123456789", "2024-03-15 10:20:30.5"})
        EXPECT_TRUE(is_date_literal(yes)) << yes;
    for (const char *no :
         {"", "2024", "2024-3-15", "2024-13-01", "2024-00-10", "2024-04-31", "2023-02-29",
          "1900-02-29", "-4712-02-29", "2024-03-15 24:00:00", "2024-03-15 10:60:00",
          "2024-03-15 10:20", "2024-03-15T10:20:30", "2024-03-15 10:20:30.",
          "2024-03-15 10:20:30.1234567890", "2024-03-15 ", "20240-03-15", "2024/03/15"})
        EXPECT_FALSE(is_date_literal(no)) << no;
}

TEST(Types, OneText) {
    const struct {
        std::string text;
        std::string type;
    } cases[] = {
        {"42", shown(QV_TYPE_INTEGER)},
        {"12.50", shown(QV_TYPE_NUMBER, 4, 2)},
        {"0.05", shown(QV_TYPE_NUMBER, 2, 2)},
        {"0", shown(QV_TYPE_INTEGER)},
        {"0.0", shown(QV_TYPE_NUMBER, 1, 1)},
        {"12345678901234567890", shown(QV_TYPE_NUMBER, 20, 0)},
        {"1.5e3", shown(QV_TYPE_FLOAT)},
        {std::string(70, '1') + "." + std::string(8, '2'), shown(QV_TYPE_FLOAT)},
        {"2024-03-15", shown(QV_TYPE_DATE)},
        {"caf\xC3\xA9", shown(QV_TYPE_CHAR, 4)},
        {"", shown(QV_TYPE_CHAR, 1)},
        {"  ", shown(QV_TYPE_CHAR, 2)},
    };
    for (const auto &c : cases) EXPECT_EQ(shown(infer_type(c.text)), c.type) << c.text;
}

TEST(Types, ColumnWidensOverItsTexts) {
    const struct {
        std::vector<std::string> texts;
        std::string type;
    } cases[] = {
        {{"1", "", "-300"}, shown(QV_TYPE_INTEGER)},
        {{"1", "12345.5", "0.125"}, shown(QV_TYPE_NUMBER, 8, 3)},
        {{"99999999999999999999", "1.5"}, shown(QV_TYPE_NUMBER, 21, 1)},
        {{"1", "2.5", "3e2"}, shown(QV_TYPE_FLOAT)},
        {{std::string(40, '9'), "0." + std::string(40, '1')}, shown(QV_TYPE_FLOAT)},
        {{"2024-01-01", "", "2024-01-02 10:00:00"}, shown(QV_TYPE_DATE)},
        {{"2024-01-01", "17"}, shown(QV_TYPE_CHAR, 10)},
        {{"12", "n/a", "\xC3\xA9t\xC3\xA9"}, shown(QV_TYPE_CHAR, 3)},
        {{"", ""}, shown(QV_TYPE_CHAR, 1)},
        {{std::string(9000, 'x')}, shown(QV_TYPE_CHAR, 8000)},
    };
    for (const auto &c : cases) {
        TypeGuess guess;
        for (const std::string &text : c.texts) guess.add(text);
        EXPECT_EQ(shown(guess.type()), c.type) << ::testing::PrintToString(c.texts);
    }
}

TEST(Types, Declarations) {
    const struct {
        const char *text;
        std::string type, error;
    } cases[] = {
        {"INTEGER", shown(QV_TYPE_INTEGER), ""},
        {" number ( 10 , 2 ) ", shown(QV_TYPE_NUMBER, 10, 2), ""},
        {"Char(20)", shown(QV_TYPE_CHAR, 20), ""},
        {"NUMBER(5,-4)", shown(QV_TYPE_NUMBER, 5, -4), ""},
        {"NUMBER(5,10)", shown(QV_TYPE_NUMBER, 5, 10), ""},
        {"date with time zone", shown(QV_TYPE_DATE_TZ), ""},
        {"FOO", "", "'FOO': unknown type"},
        {"LIST", "", "'LIST': unknown type"},
        {"CHAR", "", "'CHAR': CHAR needs a size, as in CHAR(20)"},
        {"NUMBER", "", "'NUMBER': NUMBER needs a size, as in NUMBER(10,2)"},
        {"INTEGER(4)", "", "'INTEGER(4)': INTEGER takes no size"},
        {"CHAR(10", "", "'CHAR(10': missing ')'"},
        {"CHAR()", "", "'CHAR()': the size is not a whole number"},
        {"CHAR(-1)", "", "'CHAR(-1)': the size is negative"},
        {"NUMBER(78)", "", "'NUMBER(78)': the size of NUMBER is at most 77"},
        {"CHAR(10,2)", "", "'CHAR(10,2)': CHAR takes no scale"},
        {"NUMBER(10,)", "", "'NUMBER(10,)': the scale is not a whole number"},
        {"NUMBER(10,78)", "", "'NUMBER(10,78)': the scale of NUMBER is above -size and at most 77"},
        {"NUMBER(5,-5)", "", "'NUMBER(5,-5)': the scale of NUMBER is above -size and at most 77"},
    };
    for (const auto &c : cases) {
        QV_DATATYPE_T type{1, 2, 3, 4};
        EXPECT_EQ(parse_type(c.text, type), c.error) << c.text;
        EXPECT_EQ(shown(type), c.type.empty() ? shown(0) : c.type) << c.text;
    }
}

} // namespace
