// types_test.cpp - texts as the library's recognisers sort them, the type of one text, a column's
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

const char *kind_name(TextKind::Kind kind) {
    static const char *const names[] = {"Empty", "Integer",  "Decimal", "Float",
                                        "Date",  "DateZone", "Text"};
    return names[kind];
}

// What the library's recognisers make of single texts, as the tool sorts them.
TEST(Types, TextKinds) {
    const struct {
        const char *text;
        TextKind::Kind kind;
        int digits, scale;
    } cases[] = {
        {"42", TextKind::Integer, 2, 0},
        {" -007 ", TextKind::Integer, 1, 0},
        {"+0", TextKind::Integer, 1, 0},
        {"12.50", TextKind::Decimal, 4, 2},
        {"-.5", TextKind::Decimal, 1, 1},
        {"9223372036854775807", TextKind::Integer, 19, 0},
        {"9223372036854775808", TextKind::Decimal, 19, 0},
        {"1.5e3", TextKind::Float, 0, 0},
        {"2E-7", TextKind::Float, 0, 0},
        {"", TextKind::Empty, 0, 0},
        {"   ", TextKind::Empty, 0, 0},
        {"-", TextKind::Text, 0, 0},
        {"1.2.3", TextKind::Text, 0, 0},
        {"12a", TextKind::Text, 0, 0},
        {"0x10", TextKind::Text, 0, 0},
        {"nan", TextKind::Text, 0, 0},
        {"2024-03-15", TextKind::Date, 0, 0},
        {"2024-03-15 10:20:30.5", TextKind::Date, 0, 0},
        {"2024-03-15 10:20 +05:30", TextKind::DateZone, 0, 0},
        {"2023-02-29", TextKind::Text, 0, 0},
        {"2024/03/15", TextKind::Text, 0, 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        const TextKind kind = classify(c.text);
        EXPECT_STREQ(kind_name(kind.kind), kind_name(c.kind));
        EXPECT_EQ(kind.digits, c.digits);
        EXPECT_EQ(kind.scale, c.scale);
    }
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
        {"2024-03-15 10:20 +05:30", shown(QV_TYPE_DATE_TZ)},
        {"caf\xC3\xA9", shown(QV_TYPE_CHAR)},
        {"", shown(0)},
        {"  ", shown(0)},
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
        {{"2024-01-01", "17"}, shown(QV_TYPE_CHAR)},
        {{"2024-01-01", "2024-01-01 10:00 +01:00"}, shown(QV_TYPE_CHAR)},
        {{"12", "n/a", "\xC3\xA9t\xC3\xA9"}, shown(QV_TYPE_CHAR)},
        {{"", ""}, shown(QV_TYPE_CHAR)},
        {{std::string(9000, 'x')}, shown(QV_TYPE_CHAR)},
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
        {"CHAR", shown(QV_TYPE_CHAR), ""},
        {"NUMBER", "", "'NUMBER': NUMBER needs a size, as in NUMBER(10,2)"},
        {"INTEGER(4)", "", "'INTEGER(4)': INTEGER takes no size"},
        {"CHAR(10", "", "'CHAR(10': missing ')'"},
        {"CHAR()", "", "'CHAR()': the size is not a whole number"},
        {"CHAR(-1)", "", "'CHAR(-1)': the size of CHAR is out of range"},
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
