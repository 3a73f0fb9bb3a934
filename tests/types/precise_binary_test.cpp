// Packed (BCD) and zoned decimal fields byte for byte, against fields built here from the
// decimal digits; the signs accepted on reading; bad nibbles; and the nibble check's texts.
#include <cstring>
#include <string>
#include <vector>

#include "tests/types/reference.hpp"

namespace {

using namespace qvtest;
using Bytes = std::vector<uint8_t>;

// The fields of an unscaled value at precision p, built from its decimal digits.
Bytes packed_of(const cpp_int &n, int32_t p) {
    std::string digits = abs(n).str();
    digits = std::string((p + 2) / 2 * 2 - 1 - digits.size(), '0') + digits;
    Bytes field;
    for (size_t i = 0; i < digits.size(); i += 2) {
        int low = i + 1 < digits.size() ? digits[i + 1] - '0' : (n < 0 ? 0xD : 0xC);
        field.push_back(static_cast<uint8_t>((digits[i] - '0') << 4 | low));
    }
    return field;
}
Bytes zoned_of(const cpp_int &n, int32_t p) {
    std::string digits = abs(n).str();
    digits = std::string(p - digits.size(), '0') + digits;
    Bytes field;
    for (char digit : digits) field.push_back(static_cast<uint8_t>(0xF0 | (digit - '0')));
    if (n < 0) field.back() = static_cast<uint8_t>(0xD0 | (field.back() & 0xF));
    return field;
}

TEST(PreciseBinary, FieldsMatchTheirDigitsBothWays) {
    Generator random(31);
    for (int round = 0; round < 3000; ++round) {
        int32_t p = random.uniform(1, 77), s = random.uniform(0, p);
        cpp_int n = random.value_of_digits(p);
        QV_PRECISE_T r = number(p, s, n);
        Bytes packed((p + 2) / 2), zoned(p);
        ASSERT_EQ(ValueToBCD_L(&r, packed.data(), p, s), 0);
        ASSERT_EQ(packed, packed_of(n, p)) << n;
        ASSERT_EQ(ValueToZoned_L(&r, zoned.data(), p, s), 0);
        ASSERT_EQ(zoned, zoned_of(n, p)) << n;
        ASSERT_EQ(VerifyBinaryNumber_L(packed.data(), static_cast<int32_t>(packed.size()),
                                       QV_FIELD_PACKED),
                  0);
        ASSERT_EQ(VerifyBinaryNumber_L(zoned.data(), p, QV_FIELD_ZONED), 0);
        QV_VALUE_T back;
        ASSERT_EQ(BCDToValue_L(&back, packed.data(), p, s), 0);
        ASSERT_EQ(to_cpp(back.payload.number), n);
        ASSERT_EQ(back.descriptor.precision * 100 + back.descriptor.scale, p * 100 + s);
        ASSERT_EQ(ZonedToValue_L(&back, zoned.data(), p, s), 0);
        ASSERT_EQ(to_cpp(back.payload.number), n);
    }
}

TEST(PreciseBinary, TextToPacked) {
    const struct {
        const char *text;
        int32_t p, s;
        Bytes field; // empty: fails
    } cases[] = {
        {"123.45", 5, 2, {0x12, 0x34, 0x5C}},
        {"-7", 4, 0, {0x00, 0x00, 0x7D}},
        {"-0", 3, 0, {0x00, 0x0C}},
        {"-0.00", 3, 2, {0x00, 0x0C}},
        {"1,234.5", 6, 2, {0x01, 0x23, 0x45, 0x0C}},
        {"0001.5", 2, 1, {0x01, 0x5C}},
        {"-.5", 1, 1, {0x5D}},
        {"12.", 2, 0, {0x01, 0x2C}},
        {"123.456", 6, 2, {}},
        {"1234", 5, 2, {}},
        {"1.2,3", 5, 2, {}},
        {"1.2.3", 5, 2, {}},
        {"+5", 3, 0, {}},
        {" 5", 3, 0, {}},
        {"", 3, 0, {}},
        {"-", 3, 0, {}},
        {".", 3, 0, {}},
        {"5", 0, 0, {}},
        {"5", 78, 0, {}},
        {"5", 3, 4, {}},
    };
    for (const auto &c : cases) {
        Bytes field(40, 0xEE);
        int32_t status = StringToBCD_L(field.data(), c.p, c.s, c.text, nullptr);
        ASSERT_EQ(status, c.field.empty() ? -1 : 0) << c.text;
        field.resize(status == 0 ? c.field.size() : 0);
        EXPECT_EQ(field, c.field) << c.text;
    }
    QV_NUMBER_FORMAT_T european{};
    std::memcpy(european.decimal_separator, ",", 1);
    european.decimal_length = 1;
    std::memcpy(european.group_separator, "\xE2\x80\xAF", 3); // a narrow no-break space
    european.group_length = 3;
    uint8_t field[3];
    ASSERT_EQ(StringToBCD_L(field, 5, 2,
                            "1\xE2\x80\xAF"
                            "23,4",
                            &european),
              0);
    EXPECT_EQ(Bytes(field, field + 3), (Bytes{0x12, 0x34, 0x0C}));
    EXPECT_EQ(StringToBCD_L(field, 5, 2, "1.5", &european), -1);
    EXPECT_EQ(StringToBCD_L(nullptr, 5, 2, "1", nullptr), -1);
    EXPECT_EQ(StringToBCD_L(field, 5, 2, nullptr, nullptr), -1);
}

TEST(PreciseBinary, SignsReadAndBadNibbles) {
    for (int sign = 0xA; sign <= 0xF; ++sign) {
        bool negative = sign == 0xB || sign == 0xD;
        const uint8_t packed[] = {0x12, static_cast<uint8_t>(0x30 | sign)};
        const uint8_t zoned[] = {0xF1, 0xF2, static_cast<uint8_t>(sign << 4 | 3)};
        QV_VALUE_T value;
        ASSERT_EQ(BCDToValue_L(&value, packed, 3, 1), 0);
        EXPECT_EQ(text_of(value), negative ? "-12.3" : "12.3") << sign;
        ASSERT_EQ(ZonedToValue_L(&value, zoned, 3, 0), 0);
        EXPECT_EQ(text_of(value), negative ? "-123" : "123") << sign;
        char *text = BCDToString_L(packed, 3, 2, nullptr);
        EXPECT_STREQ(text, negative ? "-1.23" : "1.23");
        std::free(text);
    }
    const struct {
        Bytes field;
        int32_t kind;
        const char *message;
    } bad[] = {
        {{0x1A, 0x2C}, QV_FIELD_PACKED, "Packed/BCD field: invalid byte 0x1A at position 1"},
        {{0x12, 0x39}, QV_FIELD_PACKED, "Packed/BCD field: invalid byte 0x39 at position 2"},
        {{0xA2, 0x3C}, QV_FIELD_PACKED, "Packed/BCD field: invalid byte 0xA2 at position 1"},
        {{0xF1, 0xE2, 0xD3}, QV_FIELD_ZONED, "Zoned field: invalid byte 0xE2 at position 2"},
        {{0xF1, 0xFA, 0xD3}, QV_FIELD_ZONED, "Zoned field: invalid byte 0xFA at position 2"},
        {{0xF1, 0xF2, 0x93}, QV_FIELD_ZONED, "Zoned field: invalid byte 0x93 at position 3"},
        {{}, QV_FIELD_ZONED, "Zoned field: no bytes to check"},
        {{0x1C}, 3, "unknown kind of binary number field 3"},
    };
    for (const auto &c : bad) {
        EXPECT_EQ(
            VerifyBinaryNumber_L(c.field.data(), static_cast<int32_t>(c.field.size()), c.kind), -1);
        EXPECT_STREQ(Msgbuf8, c.message);
        if (c.kind != QV_FIELD_PACKED && c.kind != QV_FIELD_ZONED) continue;
        QV_VALUE_T value;
        int32_t p = c.kind == QV_FIELD_PACKED ? 3 : static_cast<int32_t>(c.field.size());
        if (p == 0) continue;
        auto to_value = c.kind == QV_FIELD_PACKED ? BCDToValue_L : ZonedToValue_L;
        EXPECT_EQ(to_value(&value, c.field.data(), p, 0), -1);
        EXPECT_EQ(value.is_null, 1) << "bad data gives NULL";
        EXPECT_EQ(value.descriptor.type, QV_TYPE_NUMBER);
    }
    // An even precision's leading nibble must be zero: 1234 does not fit NUMBER(2).
    const uint8_t wide[] = {0x12, 0x3C};
    QV_VALUE_T value;
    EXPECT_EQ(BCDToValue_L(&value, wide, 2, 0), -1);
    EXPECT_EQ(value.is_null, 1);
    EXPECT_EQ(BCDToString_L(bad[0].field.data(), 3, 0, nullptr), nullptr);
}

TEST(PreciseBinary, ValuesOfOtherTypesAndRefusals) {
    QV_VALUE_T integer{}, real{};
    SetDataType_L(&integer.descriptor, QV_TYPE_INTEGER, 0, 0);
    integer.payload.integer = -123;
    SetDataType_L(&real.descriptor, QV_TYPE_FLOAT, 0, 0);
    real.payload.real = 12.345;
    uint8_t field[4];
    ASSERT_EQ(ValueToZoned_L(&integer, field, 3, 0), 0);
    EXPECT_EQ(Bytes(field, field + 3), (Bytes{0xF1, 0xF2, 0xD3}));
    ASSERT_EQ(ValueToBCD_L(&real, field, 5, 2), 0);
    EXPECT_EQ(Bytes(field, field + 3), (Bytes{0x01, 0x23, 0x4C})) << "truncated to the scale";
    std::memset(field, 0x77, sizeof field);
    EXPECT_EQ(ValueToBCD_L(&integer, field, 2, 0), -1) << "three digits in NUMBER(2)";
    integer.is_null = 1;
    EXPECT_EQ(ValueToBCD_L(&integer, field, 5, 0), -1);
    EXPECT_EQ(ValueToBCD_L(&real, field, 5, 6), -1) << "scale above precision";
    EXPECT_EQ(field[0], 0x77) << "the field is left alone";
    QV_VALUE_T text{};
    SetDataType_L(&text.descriptor, QV_TYPE_CHAR, 1, 0);
    EXPECT_EQ(ValueToBCD_L(&text, field, 5, 0), -1);
    EXPECT_EQ(BCDToValue_L(nullptr, field, 5, 0), -1);
}

} // namespace
