// Data types: the property table and query, names and declarations, the declaration
// parser's result codes, printed widths, mask resolution, and the merging rules (cheapest,
// widening with its writes into the other record, arithmetic results, literals).
#include <cstring>
#include <string>

#include "capture.hpp"
#include "qv/datatype.h"
#include "types/datatype.hpp"

// All four fields (found by argument lookup, so it lives beside the record).
bool operator==(const QV_DATATYPE_T &a, const QV_DATATYPE_T &b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

namespace {

using qvtest::take;

QV_DATATYPE_T type(uint32_t code, int32_t precision = 0, int32_t scale = 0) {
    return {code, precision, scale, 0};
}

// A descriptor as "CODE(p,s)" for messages.
std::string shown(const QV_DATATYPE_T &d) {
    return take(DataTypeName_L(d.type)) + "(" + std::to_string(d.precision) + "," +
           std::to_string(d.scale) + ")";
}

TEST(DataType, PropertyTableAndQuery) {
    const struct {
        uint32_t code;
        int32_t result, precision, scale;
    } queries[] = {
        {QV_TYPE_CHAR, 0, 8000, -1},
        {QV_TYPE_BINARY, 0, 8000, -1},
        {QV_TYPE_NUMBER, 0, 77, 77},
        {QV_TYPE_DATE_TZ, 0, -1, -1},
        {QV_TYPE_ARRAY, 0, -1, -1},
        {QV_TYPE_LIST, -1, -1, -1},
        {QV_TYPE_CLOB, -1, -1, -1},
        {0x3, -1, -1, -1},
        {0, -1, -1, -1},
    };
    for (const auto &q : queries) {
        int32_t precision = 5, scale = 5;
        EXPECT_EQ(DataTypeProperties_L(q.code, &precision, &scale), q.result) << q.code;
        EXPECT_EQ(precision, q.precision) << q.code;
        EXPECT_EQ(scale, q.scale) << q.code;
    }
    EXPECT_EQ(DataTypeProperties_L(QV_TYPE_NUMBER, nullptr, nullptr), 0);
    const QV_DATATYPE_SPEC_T *number = GetDataTypeSpec_L(QV_TYPE_NUMBER);
    EXPECT_STREQ(number->name, "NUMBER");
    EXPECT_EQ(number->max_precision + number->max_scale + number->takes_scale, 155);
    EXPECT_STREQ(GetDataTypeSpec_L(QV_TYPE_CHAR)->name, "CHAR");
    EXPECT_EQ(GetDataTypeSpec_L(QV_TYPE_CHAR)->max_precision, -1) << "8000 lives in the query";
    EXPECT_STREQ(GetDataTypeSpec_L(0x3)->name, "UNKNOWN");
    EXPECT_EQ(GetDataTypeSpec_L(0x3)->code, 0u);

    EXPECT_EQ(DataType_L("number"), QV_TYPE_NUMBER);
    EXPECT_EQ(DataType_L("Date With Time Zone"), QV_TYPE_DATE_TZ);
    EXPECT_EQ(DataType_L("DATE  WITH TIME ZONE"), 0u);
    EXPECT_EQ(DataType_L("LIST"), 0u) << "not declarable";
    EXPECT_EQ(DataType_L("NUMBERS"), 0u);
    EXPECT_EQ(DataType_L(nullptr), 0u);

    QV_DATATYPE_T d = type(QV_TYPE_NUMBER, 10, 2);
    d.extra = 7;
    EXPECT_EQ(SetDataType_L(&d, QV_TYPE_CHAR, 5, 1), &d);
    EXPECT_EQ(d, type(QV_TYPE_CHAR, 5, 1));
    QV_DATATYPE_T copy;
    CopyDataType_L(&copy, &d);
    EXPECT_EQ(copy, d);
    InitDataType_L(&copy);
    EXPECT_EQ(copy, type(0));
    CopyDataType_L(nullptr, &d);
    EXPECT_EQ(SetDataType_L(nullptr, 1, 1, 1), nullptr);
}

TEST(DataType, NamesAndDeclarations) {
    const struct {
        uint32_t mask;
        const char *name;
    } names[] = {{0x3, "CHAR or INTEGER"},
                 {0x7, "CHAR, INTEGER or FLOAT"},
                 {0x80, "NUMBER"},
                 {0x11, "CHAR or BOOLEAN"},
                 {0x90, "NUMBER or BOOLEAN"},
                 {0, "UNKNOWN"},
                 {0x80000000u, "UNKNOWN"},
                 {0x1FFFF,
                  "CHAR, INTEGER, FLOAT, NUMBER, DATE, DATE WITH TIME ZONE, BOOLEAN, ARRAY, LIST, "
                  "POINTER, BINARY, CLOB, BLOB, INTERVAL DAY TO SECOND, INTERVAL YEAR TO MONTH, "
                  "TIME or TIME WITH TIME ZONE"}};
    for (const auto &n : names) EXPECT_EQ(take(DataTypeName_L(n.mask)), n.name);

    const struct {
        QV_DATATYPE_T type;
        const char *with, *without;
    } declarations[] = {
        {type(QV_TYPE_NUMBER, 10, 2), "NUMBER(10,2)", "(10,2)"},
        {type(QV_TYPE_CHAR, 20), "CHAR(20)", "(20)"},
        {type(QV_TYPE_CHAR, 0, 4), "CHAR(0)", "(0)"},
        {type(QV_TYPE_BINARY, 16), "BINARY(16)", "(16)"},
        {type(QV_TYPE_NUMBER, -5, -2147483647 - 1), "NUMBER(-5,-2147483648)", "(-5,-2147483648)"},
        {type(QV_TYPE_DATE, 30), "DATE", "<null>"},
        {type(0x3), "UNKNOWN", "<null>"},
    };
    for (const auto &d : declarations) {
        EXPECT_EQ(take(DisplayDataType_L(&d.type, 1)), d.with);
        EXPECT_EQ(take(DisplayDataType_L(&d.type, 0)), d.without);
    }
    EXPECT_EQ(DisplayDataType_L(nullptr, 1), nullptr);
}

TEST(DataType, ParsesDeclarations) {
    const struct {
        const char *text;
        int32_t result;
        QV_DATATYPE_T parsed;
    } cases[] = {
        {"number ( 10 , 2 )", QV_PARSE_TYPE_OK, type(QV_TYPE_NUMBER, 10, 2)},
        {"\tChar(20)  ", QV_PARSE_TYPE_OK, type(QV_TYPE_CHAR, 20)},
        {"INTEGER", QV_PARSE_TYPE_OK, type(QV_TYPE_INTEGER)},
        {"date with time zone", QV_PARSE_TYPE_OK, type(QV_TYPE_DATE_TZ)},
        {"NUMBER(5,-4)", QV_PARSE_TYPE_OK, type(QV_TYPE_NUMBER, 5, -4)},
        {"NUMBER(5,10)", QV_PARSE_TYPE_OK, type(QV_TYPE_NUMBER, 5, 10)},
        {"NUMBER(77,77)", QV_PARSE_TYPE_OK, type(QV_TYPE_NUMBER, 77, 77)},
        {"BINARY(+8)", QV_PARSE_TYPE_OK, type(QV_TYPE_BINARY, 8)},
        {"CHAR(99999)", QV_PARSE_TYPE_OK, type(QV_TYPE_CHAR, 99999)},
        {"INTEGER(4)", QV_PARSE_TYPE_NO_PRECISION, type(0)},
        {"CHAR(10", QV_PARSE_TYPE_NO_CLOSE, type(0)},
        {"CHAR(", QV_PARSE_TYPE_NO_CLOSE, type(0)},
        {"CHAR()", QV_PARSE_TYPE_BAD_PRECISION, type(0)},
        {"CHAR(ten)", QV_PARSE_TYPE_BAD_PRECISION, type(0)},
        {"CHAR(1.5)", QV_PARSE_TYPE_BAD_PRECISION, type(0)},
        {"NUMBER(78)", QV_PARSE_TYPE_PRECISION_RANGE, type(0)},
        {"CHAR(-1)", QV_PARSE_TYPE_PRECISION_RANGE, type(0)},
        {"CHAR(99999999999999999999)", QV_PARSE_TYPE_PRECISION_RANGE, type(0)},
        {"CHAR(10,2)", QV_PARSE_TYPE_NO_SCALE, type(0)},
        {"NUMBER(10,)", QV_PARSE_TYPE_BAD_SCALE, type(0)},
        {"NUMBER(10,2,3)", QV_PARSE_TYPE_BAD_SCALE, type(0)},
        {"NUMBER(10,78)", QV_PARSE_TYPE_SCALE_RANGE, type(0)},
        {"NUMBER(5,-5)", QV_PARSE_TYPE_SCALE_RANGE, type(0)},
        {"CHAR", QV_PARSE_TYPE_SIZE_MISSING, type(0)},
        {"NUMBER", QV_PARSE_TYPE_SIZE_MISSING, type(0)},
        {"LIST", QV_PARSE_TYPE_OK, type(0)},
        {"FOO(1)", QV_PARSE_TYPE_OK, type(0)},
        {"", QV_PARSE_TYPE_OK, type(0)},
    };
    for (const auto &c : cases) {
        QV_DATATYPE_T parsed = type(QV_TYPE_BLOB, 1, 1);
        EXPECT_EQ(ParseVariableType_L(c.text, &parsed), c.result) << c.text;
        EXPECT_EQ(parsed, c.parsed) << c.text << ": " << shown(parsed);
    }
    EXPECT_EQ(ParseVariableType_L(nullptr, nullptr), 0);
    std::string huge = "CHAR(" + std::string(1 << 20, '1') + ")";
    QV_DATATYPE_T parsed;
    EXPECT_EQ(ParseVariableType_L(huge.c_str(), &parsed), QV_PARSE_TYPE_PRECISION_RANGE);
}

TEST(DataType, WidthsAndResolution) {
    const struct {
        QV_DATATYPE_T type;
        int32_t width;
    } widths[] = {
        {type(QV_TYPE_INTEGER, 2), 6},   {type(QV_TYPE_INTEGER, 4), 11},
        {type(QV_TYPE_INTEGER, 8), 20},  {type(QV_TYPE_INTEGER, 0), 20},
        {type(QV_TYPE_FLOAT, 5), 340},   {type(QV_TYPE_NUMBER, 10, 2), 13},
        {type(QV_TYPE_DATE, 10), 31},    {type(QV_TYPE_DATE, 35), 35},
        {type(QV_TYPE_INTERVAL_YM), 14}, {type(QV_TYPE_TIME, 25), 25},
        {type(QV_TYPE_TIME_TZ), 28},     {type(QV_TYPE_DATE_TZ, 0), 40},
        {type(QV_TYPE_CHAR, 0), 1},      {type(QV_TYPE_BINARY, 16), 16},
        {type(QV_TYPE_BOOLEAN), 1},      {type(0x3, 9), 9},
    };
    for (const auto &w : widths) EXPECT_EQ(DataTypeAsChar_L(&w.type), w.width) << shown(w.type);

    const struct {
        QV_DATATYPE_T mask;
        uint8_t keep_zero;
        QV_DATATYPE_T made;
    } masks[] = {
        {type(0x7, 5, 5), 0, type(QV_TYPE_FLOAT)},
        {type(QV_TYPE_NUMBER | QV_TYPE_FLOAT, 0, 3), 0, type(QV_TYPE_NUMBER, 77, 3)},
        {type(QV_TYPE_NUMBER | QV_TYPE_FLOAT, 0, 3), 1, type(QV_TYPE_NUMBER, 0, 3)},
        {type(QV_TYPE_NUMBER, 99, 90), 0, type(QV_TYPE_NUMBER, 77, 77)},
        {type(QV_TYPE_CHAR, 0), 0, type(QV_TYPE_CHAR, 0)},
        {type(0x1FFFF, 12, 2), 0, type(QV_TYPE_DATE_TZ)},
        {type(QV_TYPE_CHAR | QV_TYPE_BINARY, 12, 2), 0, type(QV_TYPE_BINARY, 12)},
    };
    for (const auto &m : masks) {
        QV_DATATYPE_T d = m.mask;
        EXPECT_EQ(MakeRealDataType_L(&d, m.keep_zero), &d);
        EXPECT_EQ(d, m.made) << shown(m.mask) << " gave " << shown(d);
    }
    QV_DATATYPE_T unknown = type(0x80000000u, 3);
    EXPECT_EQ(MakeRealDataType_L(&unknown, 0), nullptr);
    EXPECT_EQ(unknown, type(0x80000000u, 3));

    QV_DATATYPE_T dest = type(QV_TYPE_NUMBER, 10, 2), char0 = type(QV_TYPE_CHAR), none = type(0, 4);
    EXPECT_FALSE(OverrideDataType_L(&dest, &none));
    EXPECT_EQ(dest, type(QV_TYPE_NUMBER, 10, 2));
    EXPECT_TRUE(OverrideDataType_L(&dest, &char0));
    EXPECT_EQ(dest, type(QV_TYPE_CHAR, 13)) << "CHAR(0) keeps room for the old printed form";
}

TEST(DataType, CheapestTypes) {
    const struct {
        QV_DATATYPE_T from, to;
    } cases[] = {
        {type(QV_TYPE_NUMBER, 9, 0), type(QV_TYPE_INTEGER)},
        {type(QV_TYPE_NUMBER, 18, 0), type(QV_TYPE_INTEGER)},
        {type(QV_TYPE_NUMBER, 12, -2), type(QV_TYPE_INTEGER)},
        {type(QV_TYPE_NUMBER, 19, 0), type(QV_TYPE_NUMBER, 19, 0)},
        {type(QV_TYPE_NUMBER, 16, 2), type(QV_TYPE_NUMBER, 16, 2)},
        {type(QV_TYPE_NUMBER, 15, 2), type(QV_TYPE_FLOAT)},
        {type(QV_TYPE_NUMBER, -1, 0), type(QV_TYPE_NUMBER, -1, 0)},
        {type(QV_TYPE_INTEGER, 4), type(QV_TYPE_INTEGER)},
        {type(QV_TYPE_CHAR, 4), type(QV_TYPE_CHAR, 4)},
    };
    for (const auto &c : cases) {
        QV_DATATYPE_T d = c.from;
        CheapestDataType_L(&d);
        EXPECT_EQ(d, c.to) << shown(c.from) << " gave " << shown(d);
    }
}

TEST(DataType, WideningWritesBestAndSometimesOther) {
    const struct {
        QV_DATATYPE_T best, other;
        uint8_t keep;
        QV_DATATYPE_T best_after, other_after;
    } cases[] = {
        {type(QV_TYPE_INTEGER), type(QV_TYPE_FLOAT), 0, type(QV_TYPE_FLOAT, 25, 6),
         type(QV_TYPE_NUMBER, 25, 6)},
        {type(QV_TYPE_FLOAT), type(QV_TYPE_INTEGER), 0, type(QV_TYPE_NUMBER, 25, 6),
         type(QV_TYPE_INTEGER)},
        {type(QV_TYPE_INTEGER), type(QV_TYPE_FLOAT), 1, type(QV_TYPE_FLOAT), type(QV_TYPE_FLOAT)},
        {type(QV_TYPE_NUMBER, 10, 2), type(QV_TYPE_NUMBER, 5, 4), 0, type(QV_TYPE_NUMBER, 12, 4),
         type(QV_TYPE_NUMBER, 5, 4)},
        {type(QV_TYPE_NUMBER, 77, 0), type(QV_TYPE_NUMBER, 77, 77), 0, type(QV_TYPE_NUMBER, 77, 77),
         type(QV_TYPE_NUMBER, 77, 77)},
        {type(QV_TYPE_INTEGER), type(QV_TYPE_NUMBER, 10, 2), 0, type(QV_TYPE_NUMBER, 21, 2),
         type(QV_TYPE_NUMBER, 21, 2)},
        {type(QV_TYPE_NUMBER, 5, 1), type(QV_TYPE_BOOLEAN), 1, type(QV_TYPE_NUMBER, 5, 1),
         type(QV_TYPE_BOOLEAN)},
        {type(QV_TYPE_BOOLEAN), type(QV_TYPE_INTEGER, 4), 0, type(QV_TYPE_INTEGER, 19),
         type(QV_TYPE_INTEGER, 4)},
        {type(QV_TYPE_CHAR, 5), type(QV_TYPE_CHAR, 9), 0, type(QV_TYPE_CHAR, 9),
         type(QV_TYPE_CHAR, 9)},
        {type(QV_TYPE_DATE), type(QV_TYPE_CHAR, 10), 0, type(QV_TYPE_CHAR, 31),
         type(QV_TYPE_CHAR, 10)},
        {type(QV_TYPE_DATE), type(QV_TYPE_INTEGER), 0, type(QV_TYPE_CHAR, 31),
         type(QV_TYPE_INTEGER)},
        {type(QV_TYPE_CHAR, 5), type(QV_TYPE_FLOAT), 0, type(QV_TYPE_CHAR, 340),
         type(QV_TYPE_FLOAT)},
        {type(QV_TYPE_CHAR, 5), type(QV_TYPE_NUMBER, 10, 2), 0, type(QV_TYPE_CHAR, 13),
         type(QV_TYPE_NUMBER, 10, 2)},
        {type(QV_TYPE_CHAR, 50), type(QV_TYPE_TIME_TZ, 3, 1), 0, type(QV_TYPE_CHAR, 50),
         type(QV_TYPE_TIME_TZ, 28)},
        {type(QV_TYPE_CHAR, 10), type(QV_TYPE_BINARY, 16), 0, type(QV_TYPE_BINARY, 10),
         type(QV_TYPE_BINARY, 16)},
        {type(QV_TYPE_DATE, 3), type(QV_TYPE_TIME, 5), 0, type(QV_TYPE_DATE, 5),
         type(QV_TYPE_TIME, 5)},
        {type(0), type(QV_TYPE_CHAR, 3, 1), 0, type(QV_TYPE_CHAR, 3, 1), type(QV_TYPE_CHAR, 3, 1)},
        {type(QV_TYPE_CHAR, 3), type(0, 9), 0, type(QV_TYPE_CHAR, 3), type(0, 9)},
        {type(QV_TYPE_ARRAY), type(QV_TYPE_CHAR, 3), 0, type(QV_TYPE_ARRAY), type(QV_TYPE_CHAR, 3)},
        {type(QV_TYPE_CHAR, 3), type(0x3), 0, type(QV_TYPE_CHAR, 3), type(0x3)},
    };
    for (const auto &c : cases) {
        QV_DATATYPE_T best = c.best, other = c.other;
        BestDataType_L(&best, &other, c.keep);
        EXPECT_EQ(best, c.best_after)
            << shown(c.best) << " with " << shown(c.other) << " gave " << shown(best);
        EXPECT_EQ(other, c.other_after)
            << shown(c.best) << " with " << shown(c.other) << " left " << shown(other);
    }
    QV_DATATYPE_T best = type(QV_TYPE_CHAR, 3);
    BestDataType_L(&best, nullptr, 0);
    BestDataType_L(nullptr, &best, 0);
    EXPECT_EQ(best, type(QV_TYPE_CHAR, 3));
}

bool recognise_dates(const char *text, uint8_t *flag) {
    if (std::strcmp(text, "2024-01-31") != 0) return false;
    *flag = 3;
    return true;
}

TEST(DataType, LiteralTypes) {
    const struct {
        const char *text;
        QV_DATATYPE_T type;
    } cases[] = {
        {"'abc'", type(QV_TYPE_CHAR, 3)},
        {"'it''s'", type(QV_TYPE_CHAR, 4)},
        {"null", type(QV_TYPE_CHAR, 1)},
        {"42", type(QV_TYPE_INTEGER, 2)},
        {"-1.5", type(QV_TYPE_FLOAT, 2, 1)},
        {"12345678901234567890.5", type(QV_TYPE_NUMBER, 21, 1)},
        {"2024-01-31", type(QV_TYPE_CHAR, 10)},
        {"abc", type(QV_TYPE_CHAR, 3)},
        {"", type(QV_TYPE_CHAR, 0)},
        {"   ", type(QV_TYPE_CHAR, 3)},
        {nullptr, type(QV_TYPE_CHAR, 0)},
    };
    qv::install_date_literal_recognizer(nullptr); // the date module installs one at load
    std::strcpy(Msgbuf8, "kept");
    for (const auto &c : cases) {
        QV_DATATYPE_T d = type(QV_TYPE_BLOB, 9, 9);
        EXPECT_EQ(WhichDataType_L(c.text, &d), &d);
        EXPECT_EQ(d, c.type) << (c.text ? c.text : "(null)") << " gave " << shown(d);
    }
    EXPECT_STREQ(Msgbuf8, "kept") << "typing literals reports no failures";
    qv::install_date_literal_recognizer(recognise_dates);
    QV_DATATYPE_T d;
    WhichDataType_L("2024-01-31", &d);
    QV_DATATYPE_T date = type(QV_TYPE_DATE);
    date.extra = 3;
    EXPECT_EQ(d, date);
    qv::install_date_literal_recognizer(nullptr);
    EXPECT_EQ(WhichDataType_L("1", nullptr), nullptr);
}

TEST(DataType, AllocationFailuresRaiseAndLeakNothing) {
    QV_DATATYPE_T number = type(QV_TYPE_NUMBER, 10, 2), date = type(QV_TYPE_DATE);
    for (auto body : std::initializer_list<std::function<void()>>{
             [] { std::free(DataTypeName_L(0x7)); },
             [] { std::free(DataTypeName_L(0)); },
             [&] { std::free(DisplayDataType_L(&number, 1)); },
             [&] { std::free(DisplayDataType_L(&date, 1)); },
         }) {
        std::vector<const char *> raised = qvtest::fail_each_allocation(body);
        EXPECT_EQ(raised, std::vector<const char *>{ALLOC_FAILURE});
    }
    // Long pieces of a declaration are copied: the copy's failure raises too.
    std::string long_piece = "CHAR(" + std::string(40, '0') + "7)";
    QV_DATATYPE_T parsed;
    for (const char *symbol :
         qvtest::fail_each_allocation([&] { ParseVariableType_L(long_piece.c_str(), &parsed); }))
        EXPECT_EQ(symbol, ALLOC_FAILURE);
    EXPECT_EQ(parsed, type(QV_TYPE_CHAR, 7));
}

} // namespace
