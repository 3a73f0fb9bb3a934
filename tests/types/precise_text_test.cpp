// Exact decimals as text: formatting, round trips through both separators, the number
// recogniser's classification, storing and failure texts, and doubles as plain text.
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "capture.hpp"
#include "tests/types/reference.hpp"

namespace {

using namespace qvtest;

QV_NUMBER_FORMAT_T format_of(const char *decimal, const char *group) {
    QV_NUMBER_FORMAT_T format{};
    format.decimal_length = static_cast<int32_t>(std::strlen(decimal));
    format.group_length = static_cast<int32_t>(std::strlen(group));
    std::memcpy(format.decimal_separator, decimal, format.decimal_length);
    std::memcpy(format.group_separator, group, format.group_length);
    return format;
}

TEST(PreciseText, Formatting) {
    const struct {
        int32_t p, s;
        const char *unscaled, *text;
    } cases[] = {
        {5, 2, "150", "1.5"},
        {5, 2, "200", "2"},
        {5, 2, "5", "0.05"},
        {5, 2, "-5", "-0.05"},
        {5, 2, "0", "0"},
        {3, 3, "-100", "-0.1"},
        {9, 0, "-123456789", "-123456789"},
        {77, 77, "1",
         "0.00000000000000000000000000000000000000000000000000000000000000000000000000001"},
        {77, 0, "-99999999999999999999999999999999999999999999999999999999999999999999999999999",
         "-99999999999999999999999999999999999999999999999999999999999999999999999999999"},
    };
    for (const auto &c : cases) {
        QV_PRECISE_T r = number(c.p, c.s, cpp_int(c.unscaled));
        EXPECT_EQ(text_of(r), c.text);
        char buffer[100];
        int32_t integer = PreciseToSizedString_L(&r, buffer, sizeof buffer, nullptr);
        EXPECT_EQ(integer, static_cast<int32_t>(std::strcspn(c.text, ".")) - (c.text[0] == '-'));
        size_t length = std::strlen(c.text);
        EXPECT_EQ(PreciseToSizedString_L(&r, buffer, static_cast<int32_t>(length), nullptr), -1)
            << "no room for the terminator";
        EXPECT_GE(PreciseToSizedString_L(&r, buffer, static_cast<int32_t>(length + 1), nullptr), 0);
        EXPECT_STREQ(buffer, c.text);
    }
    QV_NUMBER_FORMAT_T comma = format_of(",", "."), long_point = format_of("<point>", "");
    QV_PRECISE_T r = number(5, 3, -1250);
    char *text = PreciseToString_L(&r, &comma);
    EXPECT_STREQ(text, "-1,25");
    std::free(text);
    r = number(77, 77, 5);
    text = PreciseToString_L(&r, &long_point);
    EXPECT_EQ(std::string(text), "0<point>" + std::string(76, '0') + "5") << "longer than p + 13";
    std::free(text);
}

TEST(PreciseText, RoundTripsThroughText) {
    Generator random(21);
    const QV_NUMBER_FORMAT_T formats[] = {format_of(".", ","), format_of(",", "."),
                                          format_of("\xC2\xB7", " ")};
    for (int round = 0; round < 3000; ++round) {
        int32_t p = random.uniform(1, 77), s = random.uniform(0, p);
        QV_PRECISE_T r = number(p, s, random.value_of_digits(p));
        const QV_NUMBER_FORMAT_T &format = formats[round % 3];
        char *text = PreciseToString_L(&r, &format);
        ASSERT_NE(text, nullptr);
        QV_PRECISE_T back;
        NewPrecise_L(&back, p, s);
        ASSERT_EQ(StringToBestNumberType_L(text, &back, 0, &format), 0) << text << " " << Msgbuf8;
        ASSERT_EQ(to_cpp(back.payload.number), to_cpp(r.payload.number)) << text;
        uint8_t packed[39], again[39];
        ASSERT_EQ(StringToBCD_L(packed, p, s, text, &format), 0) << text;
        ASSERT_EQ(ValueToBCD_L(&r, again, p, s), 0);
        ASSERT_EQ(std::memcmp(packed, again, (p + 2) / 2), 0) << text;
        std::free(text);
    }
}

// ---- the recogniser -----------------------------------------------------------------

struct Classified {
    const char *text;
    uint32_t type;
    int32_t precision, scale;
};

TEST(PreciseText, ClassifiesNumbers) {
    const Classified cases[] = {
        {"12345", QV_TYPE_INTEGER, 2, 0},
        {"123456", QV_TYPE_INTEGER, 4, 0},
        {"12345678901", QV_TYPE_INTEGER, 8, 0},
        {"12345678901234567890", QV_TYPE_NUMBER, 20, 0},
        {"9223372036854775807", QV_TYPE_INTEGER, 8, 0},
        {"9223372036854775808", QV_TYPE_NUMBER, 19, 0},
        {"-9223372036854775808", QV_TYPE_INTEGER, 8, 0},
        {"1.5", QV_TYPE_FLOAT, 2, 1},
        {"1234567890123456.5", QV_TYPE_NUMBER, 17, 1},
        {"12345678901234.5", QV_TYPE_FLOAT, 15, 1},
        {"  +007.250  ", QV_TYPE_FLOAT, 4, 3},
        {"-.5", QV_TYPE_FLOAT, 1, 1},
        {"5.", QV_TYPE_INTEGER, 2, 0},
        {"0", QV_TYPE_INTEGER, 2, 0},
        {"0.000", QV_TYPE_FLOAT, 3, 3},
        {"1.5e3", QV_TYPE_INTEGER, 2, 0},
        {"15E-3", QV_TYPE_FLOAT, 3, 3},
        {"1e19", QV_TYPE_NUMBER, 20, 0},
        {"0e999999999999", QV_TYPE_INTEGER, 2, 0},
        {"\t2.5e+1 ", QV_TYPE_INTEGER, 2, 0},
    };
    for (const Classified &c : cases) {
        QV_VALUE_T value{};
        ASSERT_EQ(StringToBestNumberType_L(c.text, &value, 1, nullptr), 0)
            << c.text << " " << Msgbuf8;
        EXPECT_EQ(value.descriptor.type, c.type) << c.text;
        EXPECT_EQ(value.descriptor.precision, c.precision) << c.text;
        EXPECT_EQ(value.descriptor.scale, c.scale) << c.text;
        EXPECT_EQ(value.is_null, 0) << c.text;
    }
    for (const char *blank : {"", "   ", "\t"}) {
        QV_VALUE_T value{};
        value.descriptor.type = QV_TYPE_NUMBER;
        ASSERT_EQ(StringToBestNumberType_L(blank, &value, 0, nullptr), 0);
        EXPECT_EQ(value.is_null, 1) << "a text without a number is a NULL";
    }
}

TEST(PreciseText, StoresIntoEachTarget) {
    QV_VALUE_T value{};
    ASSERT_EQ(StringToBestNumberType_L("-1234567", &value, 0, nullptr), 0);
    EXPECT_EQ(value.payload.integer, -1234567);
    value = {};
    ASSERT_EQ(StringToBestNumberType_L("2.5e-3", &value, 0, nullptr), 0);
    EXPECT_EQ(value.payload.real, 0.0025);
    value = {};
    SetDataType_L(&value.descriptor, QV_TYPE_FLOAT, 0, 0);
    QV_NUMBER_FORMAT_T comma = format_of(",", "");
    ASSERT_EQ(StringToBestNumberType_L("-1,25e2", &value, 0, &comma), 0);
    EXPECT_EQ(value.payload.real, -125.0);
    ASSERT_EQ(StringToBestNumberType_L("1e100", &value, 0, nullptr), 0) << "FLOAT takes any size";
    EXPECT_EQ(value.payload.real, 1e100);
    value = {};
    SetDataType_L(&value.descriptor, QV_TYPE_INTEGER, 8, 0);
    ASSERT_EQ(StringToBestNumberType_L("-42.9", &value, 0, nullptr), 0);
    EXPECT_EQ(value.payload.integer, -42) << "the fraction is dropped";
    QV_PRECISE_T number;
    NewPrecise_L(&number, 6, 2);
    ASSERT_EQ(StringToBestNumberType_L("1234.5678", &number, 0, nullptr), 0);
    EXPECT_EQ(text_of(number), "1234.56") << "truncated to the target's scale";
    QV_PRECISE_T untyped{};
    ASSERT_EQ(StringToPrecise_L(&untyped, "-000.0100"), 0);
    EXPECT_EQ(untyped.descriptor.precision, 4);
    EXPECT_EQ(untyped.descriptor.scale, 4);
    EXPECT_EQ(text_of(untyped), "-0.01");
    untyped = {};
    ASSERT_EQ(StringToPrecise_L(&untyped, "0"), 0);
    EXPECT_EQ(untyped.descriptor.precision, 1) << "a NUMBER holds at least one digit";
}

TEST(PreciseText, FailureTextsGoToTheLastErrorBuffer) {
    static const std::string sevens(78, '7');
    const struct {
        const char *text;
        uint32_t type;
        int32_t precision, scale;
        const char *failure;
    } cases[] = {
        {"12a", 0, 0, 0, "invalid number"},
        {"1.2.3", 0, 0, 0, "invalid number"},
        {"--1", 0, 0, 0, "invalid number"},
        {".", 0, 0, 0, "invalid number"},
        {"1e", 0, 0, 0, "invalid number"},
        {"1 2", 0, 0, 0, "invalid number"},
        {"1,5", 0, 0, 0, "invalid number"},
        {"12345678901234567890", QV_TYPE_INTEGER, 0, 0, "datatype not suitable for text value"},
        {"5", QV_TYPE_CHAR, 10, 0, "datatype not suitable for text value"},
        {"5", QV_TYPE_NUMBER, 90, 0, "datatype not suitable for text value"},
        {"123.4", QV_TYPE_NUMBER, 4, 2, "insufficient precision to hold the value"},
        {"1e400", QV_TYPE_FLOAT, 0, 0, "insufficient precision to hold the value"},
        {"1e77", 0, 0, 0, "precision of value is too high to be stored"},
        {"0.1e-77", QV_TYPE_NUMBER, 0, 0, "precision of value is too high to be stored"},
        {sevens.c_str(), QV_TYPE_NUMBER, 0, 0, "precision of value is too high to be stored"},
    };
    for (const auto &c : cases) {
        QV_VALUE_T value{};
        SetDataType_L(&value.descriptor, c.type, c.precision, c.scale);
        std::strcpy(Msgbuf8, "untouched");
        EXPECT_EQ(StringToBestNumberType_L(c.text, &value, 0, nullptr), -1) << c.text;
        EXPECT_STREQ(Msgbuf8, c.failure) << c.text;
    }
    QV_VALUE_T value{};
    EXPECT_EQ(StringToBestNumberType_L(nullptr, &value, 0, nullptr), -1);
    EXPECT_STREQ(Msgbuf8, "invalid number");
    EXPECT_EQ(StringToBestNumberType_L("1", nullptr, 0, nullptr), -1);
}

TEST(PreciseText, BadInputNeverCrashes) {
    // A megabyte of digits, of zeros before one digit, of blanks; an exponent of 30 digits.
    std::string digits(1 << 20, '9'), zeros = std::string(1 << 20, '0') + "1", blanks(1 << 20, ' ');
    QV_VALUE_T value{};
    EXPECT_EQ(StringToBestNumberType_L(digits.c_str(), &value, 0, nullptr), -1);
    value = {};
    ASSERT_EQ(StringToBestNumberType_L(zeros.c_str(), &value, 0, nullptr), 0);
    EXPECT_EQ(value.payload.integer, 1);
    value = {};
    ASSERT_EQ(StringToBestNumberType_L(blanks.c_str(), &value, 0, nullptr), 0);
    EXPECT_EQ(value.is_null, 1);
    value = {};
    EXPECT_EQ(StringToBestNumberType_L("1e999999999999999999999999999999", &value, 1, nullptr), -1);
    value = {};
    ASSERT_EQ(StringToBestNumberType_L("1e-999999999999999999999999999999", &value, 1, nullptr),
              -1);
    QV_PRECISE_T r = number(5, 2, 1);
    EXPECT_EQ(PreciseToSizedString_L(&r, nullptr, 100, nullptr), -1);
    EXPECT_EQ(PreciseToSizedString_L(&r, digits.data(), -1, nullptr), -1);
    EXPECT_EQ(PreciseToSizedString_L(nullptr, digits.data(), 100, nullptr), -1);
}

TEST(PreciseText, DoublesAsPlainText) {
    static const std::string tiny = "0." + std::string(299, '0') + "15";
    const struct {
        double value;
        const char *text;
        int32_t digits, decimals;
    } cases[] = {
        {0.1, "0.1", 1, 1},
        {123.45, "123.45", 5, 2},
        {-2.5, "-2.5", 2, 1},
        {1e-5, "0.00001", 5, 5},
        {1.0 / 3, "0.333333333333333", 15, 15},
        {-2.0 / 3, "-0.666666666666667", 15, 15},
        {1234567.891, "1234567.891", 10, 3},
        {123456789012345.67, "123456789012346", 15, 0},
        {1e20, "100000000000000000000", 21, 0},
        {0.0, "0", 1, 0},
        {-0.0, "-0", 1, 0},
        {9007199254740993.0, "9007199254740992", 16, 0},
        {1.5e-300, tiny.c_str(), 301, 301},
        {NAN, "NaN", 0, 0},
        {-INFINITY, "-Infinity", 0, 0},
    };
    for (const auto &c : cases) {
        int32_t digits = -1, decimals = -1;
        EXPECT_STREQ(StringFromDouble_L(c.value, &digits, &decimals), c.text);
        EXPECT_EQ(digits, c.digits) << c.text;
        EXPECT_EQ(decimals, c.decimals) << c.text;
    }
    EXPECT_EQ(std::strlen(StringFromDouble_L(-1.7976931348623157e308, nullptr, nullptr)), 310u);
}

TEST(PreciseText, AllocationFailuresRaiseAndLeakNothing) {
    QV_PRECISE_T r = number(20, 5, -123456789);
    uint8_t packed[3] = {0x12, 0x34, 0x5C};
    QV_VALUE_T value{};
    for (auto body : std::initializer_list<std::function<void()>>{
             [&] { std::free(PreciseToString_L(&r, nullptr)); },
             [&] { std::free(BCDToString_L(packed, 5, 2, nullptr)); },
             [&] { // the double is read from a copy of the text
                 SetDataType_L(&value.descriptor, QV_TYPE_FLOAT, 0, 0);
                 StringToBestNumberType_L("1.2500000000000000000000", &value, 0, nullptr);
             },
         }) {
        std::vector<const char *> raised = fail_each_allocation(body);
        EXPECT_EQ(raised.size(), 1u);
        for (const char *symbol : raised) EXPECT_EQ(symbol, ALLOC_FAILURE);
    }
    // With no context open, the raise reports and the call gives null.
    TestFailAllocation_L(0);
    EXPECT_EQ(PreciseToString_L(&r, nullptr), nullptr);
    TestFailAllocation_L(-1);
}

} // namespace
