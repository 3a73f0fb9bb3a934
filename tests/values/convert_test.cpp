// Conversions: the matrix of every source type into every target type, NULL sources,
// untyped destinations, CHAR truncation, BINARY length, arrays, share mode (borrowing
// without double frees, never changing a borrowed text), text read as each type, and the
// digits of doubles.
#include <cmath>
#include <cstdio>

#include "capture.hpp"
#include "values.hpp"

namespace {

using namespace qvtest;

constexpr uint32_t kTargets[] = {
    QV_TYPE_CHAR, QV_TYPE_INTEGER, QV_TYPE_FLOAT,       QV_TYPE_NUMBER,      QV_TYPE_BOOLEAN,
    QV_TYPE_DATE, QV_TYPE_DATE_TZ, QV_TYPE_TIME,        QV_TYPE_TIME_TZ,     QV_TYPE_BINARY,
    QV_TYPE_CLOB, QV_TYPE_BLOB,    QV_TYPE_INTERVAL_DS, QV_TYPE_INTERVAL_YM, QV_TYPE_ARRAY};
constexpr int kTargetCount = std::size(kTargets);

// One value of each type, in the order of the matrix rows.
std::vector<Value> one_of_each() {
    std::vector<Value> v;
    v.push_back(text("42"));
    v.push_back(integer(42));
    v.push_back(real(2.5));
    v.push_back(number("12.50", 5, 2));
    v.push_back(date(QV_TYPE_DATE, date_of(2009, 4, 30, 12, 34, 56, 500000000)));
    v.push_back(date(QV_TYPE_DATE_TZ, date_of(2009, 4, 30, 12, 34, 56, 0, 530)));
    v.push_back(date(QV_TYPE_TIME, date_of(0, 0, 0, 12, 34, 56)));
    v.push_back(date(QV_TYPE_TIME_TZ, date_of(0, 0, 0, 12, 34, 56, 0, -330)));
    v.push_back(boolean(true));
    v.push_back(bytes({0xDE, 0xAD}));
    v.push_back(as_type(text("abc"), QV_TYPE_CLOB));
    v.push_back(as_type(bytes({0x01}), QV_TYPE_BLOB));
    v.push_back(interval(false, 1, 2, 3, 4));
    v.push_back(interval_ym(false, 1, 2));
    std::vector<Value> elements;
    elements.push_back(integer(1));
    elements.push_back(text("a"));
    v.push_back(array(std::move(elements)));
    return v;
}

// Row: a source; columns: the text form of the converted value in the order of kTargets.
// Dates from numbers are Julian days of the library's calendar (day 0 is -4712-01-10 there,
// as the four-year rule runs on to 1600).
const char *const kMatrix[][kTargetCount] = {
    {"42", "42", "42", "42", "TRUE", "0042-01-01 00:00:00.000000000",
     "0042-01-01 00:00:00.000000000 +00:00", "NULL", "NULL", "42", "42", "42",
     "42 00:00:00.000000000", "42-00", "('42')"},
    {"42", "42", "42", "42", "TRUE", "-4712-02-21 00:00:00.000000000",
     "-4712-02-21 00:00:00.000000000 +00:00", "00:00:42.000000000", "00:00:42.000000000 +00:00",
     "NULL", "42", "NULL", "0 00:00:42.000000000", "3-06", "(42)"},
    {"2.5", "2", "2.5", "2.5", "TRUE", "-4712-01-12 12:00:00.000000000",
     "-4712-01-12 12:00:00.000000000 +00:00", "00:00:02.500000000", "00:00:02.500000000 +00:00",
     "NULL", "2.5", "NULL", "0 00:00:02.500000000", "0-02", "(2.5)"},
    {"12.5", "12", "12.5", "12.5", "TRUE", "-4712-01-22 12:00:00.000000000",
     "-4712-01-22 12:00:00.000000000 +00:00", "00:00:12.500000000", "00:00:12.500000000 +00:00",
     "NULL", "12.5", "NULL", "0 00:00:12.500000000", "1-00", "(12.5)"},
    {"2009-04-30 12:34:56.500000000", "2454952", "2454952.52426505", "2454952.52426505", "NULL",
     "2009-04-30 12:34:56.500000000", "2009-04-30 12:34:56.500000000 +00:00", "12:34:56.500000000",
     "12:34:56.500000000 +00:00", "NULL", "2009-04-30 12:34:56.500000000", "NULL", "NULL", "NULL",
     "(2009-04-30 12:34:56.500000000)"},
    {"2009-04-30 12:34:56.000000000 +05:30", "2454952", "2454952.52425926", "2454952.52425926",
     "NULL", "2009-04-30 12:34:56.000000000", "2009-04-30 12:34:56.000000000 +05:30",
     "12:34:56.000000000", "12:34:56.000000000 +05:30", "NULL",
     "2009-04-30 12:34:56.000000000 +05:30", "NULL", "NULL", "NULL",
     "(2009-04-30 12:34:56.000000000 +05:30)"},
    {"12:34:56.000000000", "45296", "45296", "45296", "NULL", "NULL", "NULL", "12:34:56.000000000",
     "12:34:56.000000000 +00:00", "NULL", "12:34:56.000000000", "NULL", "NULL", "NULL",
     "(12:34:56.000000000)"},
    {"12:34:56.000000000 -03:30", "45296", "45296", "45296", "NULL", "NULL", "NULL",
     "12:34:56.000000000", "12:34:56.000000000 -03:30", "NULL", "12:34:56.000000000 -03:30", "NULL",
     "NULL", "NULL", "(12:34:56.000000000 -03:30)"},
    {"TRUE", "1", "1", "1", "TRUE", "NULL", "NULL", "NULL", "NULL", "NULL", "TRUE", "NULL", "NULL",
     "NULL", "(TRUE)"},
    {"DEAD", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "DEAD", "DEAD", "DEAD",
     "NULL", "NULL", "(DEAD)"},
    {"abc", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "abc", "NULL",
     "NULL", "NULL", "('abc')"},
    {"01", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "01", "01", "01", "NULL",
     "NULL", "(01)"},
    {"1 02:03:04.000000000", "93784", "93784", "93784", "NULL", "NULL", "NULL", "NULL", "NULL",
     "NULL", "1 02:03:04.000000000", "NULL", "1 02:03:04.000000000", "NULL",
     "(1 02:03:04.000000000)"},
    {"1-02", "14", "14", "14", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "1-02", "NULL",
     "NULL", "1-02", "(1-02)"},
    {"(1, 'a')", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "NULL", "(1, 'a')",
     "NULL", "NULL", "NULL", "(1, 'a')"},
};

TEST(Convert, EveryTypeIntoEveryType) {
    std::vector<Value> sources = one_of_each();
    ASSERT_EQ(sources.size(), std::size(kMatrix));
    for (std::size_t row = 0; row < sources.size(); ++row) {
        const char *name = GetDataTypeSpec_L(sources[row].descriptor.type)->name;
        for (int column = 0; column < kTargetCount; ++column) {
            for (uint8_t share : {0, 1}) {
                Value dest(kTargets[column]);
                EXPECT_EQ(ConvertValue_L(&dest, &sources[row], share, 0), QV_CONVERT_OK);
                EXPECT_EQ(shown(dest), kMatrix[row][column])
                    << name << " into " << GetDataTypeSpec_L(kTargets[column])->name;
                EXPECT_EQ(dest.descriptor.type, kTargets[column]);
            }
        }
    }
}

TEST(Convert, NullSourcesGiveNullDestinations) {
    std::vector<Value> sources = one_of_each();
    for (Value &source : sources) FreeValue_L(&source);
    for (uint32_t target : kTargets) {
        for (const QV_VALUE_T *source : {static_cast<const QV_VALUE_T *>(nullptr),
                                         static_cast<const QV_VALUE_T *>(&sources[0])}) {
            Value dest = text("owned text, freed");
            SetValueTypePrecScale_L(&dest, target, 7, 0);
            dest.is_null = 0;
            EXPECT_EQ(ConvertValue_L(&dest, source, 1, 0), QV_CONVERT_OK);
            EXPECT_TRUE(dest.is_null);
            EXPECT_EQ(dest.descriptor.type, target);
            EXPECT_EQ(dest.descriptor.precision, 7);
        }
        for (const Value &source : sources) {
            Value dest(target, 7);
            dest.is_null = 0;
            EXPECT_EQ(ConvertValue_L(&dest, &source, 0, 0), QV_CONVERT_OK);
            EXPECT_TRUE(dest.is_null);
        }
    }
    EXPECT_EQ(ConvertValue_L(nullptr, &sources[0], 0, 0), QV_CONVERT_OK);
}

TEST(Convert, UntypedDestinationsCopyTheSourceType) {
    std::vector<Value> sources = one_of_each();
    for (const Value &source : sources) {
        Value dest;
        EXPECT_EQ(ConvertValue_L(&dest, &source, 0, 0), QV_CONVERT_OK);
        EXPECT_EQ(dest.descriptor.type, source.descriptor.type);
        EXPECT_EQ(dest.descriptor.precision, source.descriptor.precision);
        EXPECT_EQ(dest.descriptor.scale, source.descriptor.scale);
        EXPECT_EQ(shown(dest), shown(source));
        EXPECT_TRUE(IsSameValue_L(&dest, &source)) << shown(source);
    }
    // LIST, POINTER and masks hold no value here: the destination is left alone.
    for (uint32_t type : {QV_TYPE_LIST, QV_TYPE_POINTER, QV_TYPE_CHAR | QV_TYPE_INTEGER}) {
        Value dest(type);
        dest.payload.integer = 77;
        EXPECT_EQ(ConvertValue_L(&dest, &sources[1], 0, 0), QV_CONVERT_OK);
        EXPECT_EQ(dest.payload.integer, 77);
        EXPECT_TRUE(dest.is_null);
    }
}

TEST(Convert, CharactersAreCutToTheLength) {
    const struct {
        const char *text;
        const QV_ENCODING_T *encoding;
        int32_t length;
        int32_t result;
        const char *cut;
    } cases[] = {
        {"abcdef", nullptr, 3, QV_CONVERT_TRUNCATED, "abc"},
        {"abc", nullptr, 3, QV_CONVERT_OK, "abc"},
        {"abc", nullptr, 0, QV_CONVERT_OK, "abc"}, // no length: no limit
        {"\xC3\xA4\xC3\xB6\xC3\xBC", nullptr, 2, QV_CONVERT_TRUNCATED, "\xC3\xA4\xC3\xB6"},
        {"\xC3\xA4\xC3\xB6", nullptr, 2, QV_CONVERT_OK, "\xC3\xA4\xC3\xB6"},
        {"\xE4\xF6\xFC", Latin1Encoding_L(), 1, QV_CONVERT_TRUNCATED, "\xC3\xA4"},
    };
    for (const auto &c : cases) {
        for (uint8_t share : {0, 1}) {
            Value source = text(c.text, c.encoding);
            const std::string before = shown(source);
            Value dest(QV_TYPE_CHAR, c.length), whole(QV_TYPE_CHAR, c.length);
            EXPECT_EQ(ConvertValue_L(&dest, &source, share, 0), c.result) << c.text;
            EXPECT_EQ(shown(dest), c.cut);
            EXPECT_EQ(ConvertValue_L(&whole, &source, share, 1), c.result);
            EXPECT_EQ(shown(whole), before) << "no_truncate keeps the text whole";
            EXPECT_EQ(shown(source), before) << "the source is never changed";
            if (share) {
                EXPECT_EQ(dest.owns_payload, c.result == QV_CONVERT_TRUNCATED)
                    << "a borrowed text that must be cut is copied first";
                EXPECT_EQ(whole.payload.string.text, source.payload.string.text);
            }
        }
    }
    Value numbers(QV_TYPE_CHAR, 4), pi = real(3.14159);
    EXPECT_EQ(ConvertValue_L(&numbers, &pi, 0, 0), QV_CONVERT_TRUNCATED);
    EXPECT_EQ(shown(numbers), "3.14");
}

TEST(Convert, BinaryLongerThanTheDestinationIsNull) {
    Value ten = bytes({1, 2, 3});
    ten.descriptor.precision = 10; // declared BINARY(10), 3 bytes
    for (uint8_t share : {0, 1}) {
        Value eight(QV_TYPE_BINARY, 8);
        EXPECT_EQ(ConvertValue_L(&eight, &ten, share, 0), QV_CONVERT_TOO_LONG);
        EXPECT_TRUE(eight.is_null);
        Value two(QV_TYPE_BINARY, 2), three(QV_TYPE_BINARY, 3), any(QV_TYPE_BINARY);
        Value hex = text("0102030405");
        EXPECT_EQ(ConvertValue_L(&two, &hex, share, 0), QV_CONVERT_TOO_LONG);
        EXPECT_EQ(ConvertValue_L(&three, &ten, share, 0), QV_CONVERT_TOO_LONG);
        EXPECT_EQ(ConvertValue_L(&any, &ten, share, 0), QV_CONVERT_OK);
        EXPECT_EQ(shown(any), "010203");
    }
    Value empty = bytes({}), dest(QV_TYPE_BINARY, 4), blob(QV_TYPE_BLOB);
    empty.descriptor.precision = 0;
    EXPECT_EQ(ConvertValue_L(&dest, &empty, 0, 0), QV_CONVERT_OK);
    EXPECT_TRUE(dest.is_null) << "no bytes: NULL";
    EXPECT_EQ(ConvertValue_L(&blob, &empty, 0, 0), QV_CONVERT_OK);
    EXPECT_TRUE(blob.is_null);
}

TEST(Convert, NumbersThatDoNotFitAreNullAndReported) {
    struct {
        Value source;
        Value dest;
        int32_t result;
        const char *shown;
    } cases[] = {
        {text("123.456"), Value(QV_TYPE_NUMBER, 5, 2), QV_CONVERT_OK, "123.45"},
        {text("1234.5"), Value(QV_TYPE_NUMBER, 5, 2), QV_CONVERT_TOO_LONG, "NULL"},
        {real(1e30), Value(QV_TYPE_INTEGER), QV_CONVERT_TOO_LONG, "NULL"},
        {real(-0x1p63), Value(QV_TYPE_INTEGER), QV_CONVERT_OK, "-9223372036854775808"},
        {text("99999999999999999999"), Value(QV_TYPE_INTEGER), QV_CONVERT_TOO_LONG, "NULL"},
        {text("1e400"), Value(QV_TYPE_FLOAT), QV_CONVERT_TOO_LONG, "NULL"},
        {text("-1e-400"), Value(QV_TYPE_FLOAT), QV_CONVERT_OK, "-0"},
        {real(NAN), Value(QV_TYPE_NUMBER), QV_CONVERT_OK, "NULL"},
        {real(1e100), Value(QV_TYPE_NUMBER), QV_CONVERT_TOO_LONG, "NULL"},
        {integer(INT64_MIN), Value(QV_TYPE_NUMBER, 18), QV_CONVERT_TOO_LONG, "NULL"},
        {integer(INT64_MIN), Value(QV_TYPE_NUMBER), QV_CONVERT_OK, "-9223372036854775808"},
    };
    for (auto &c : cases) {
        EXPECT_EQ(ConvertValue_L(&c.dest, &c.source, 0, 0), c.result) << shown(c.source);
        EXPECT_EQ(shown(c.dest), c.shown) << shown(c.source);
    }
}

// Text read as each type: blanks around it ignored, NULL where it does not read.
TEST(Convert, TextReadAsEachType) {
    const struct {
        const char *text;
        uint32_t type;
        const char *shown;
    } cases[] = {
        {" -12 ", QV_TYPE_INTEGER, "-12"},
        {"+7", QV_TYPE_INTEGER, "7"},
        {"12.9", QV_TYPE_INTEGER, "12"},
        {"-1.5e3", QV_TYPE_INTEGER, "-1500"},
        {"9223372036854775807", QV_TYPE_INTEGER, "9223372036854775807"},
        {"12a", QV_TYPE_INTEGER, "NULL"},
        {"", QV_TYPE_INTEGER, "NULL"},
        {"   ", QV_TYPE_NUMBER, "NULL"},
        {"\xFF\xFE", QV_TYPE_INTEGER, "NULL"},
        {"0.1", QV_TYPE_FLOAT, "0.1"},
        {" +2.5e-1 ", QV_TYPE_FLOAT, "0.25"},
        {"-Infinity", QV_TYPE_FLOAT, "-Infinity"},
        {"nan", QV_TYPE_FLOAT, "NaN"},
        {"1,5", QV_TYPE_FLOAT, "NULL"},
        {"0.30000000000000000000000000000000000001", QV_TYPE_NUMBER,
         "0.30000000000000000000000000000000000001"},
        {"-0.000", QV_TYPE_NUMBER, "0"},
        {"yes", QV_TYPE_BOOLEAN, "TRUE"},
        {" Off ", QV_TYPE_BOOLEAN, "FALSE"},
        {"0.0", QV_TYPE_BOOLEAN, "FALSE"},
        {"-3", QV_TYPE_BOOLEAN, "TRUE"},
        {"maybe", QV_TYPE_BOOLEAN, "NULL"},
        {"2009-04-30", QV_TYPE_DATE, "2009-04-30 00:00:00.000000000"},
        {" 2009-04-30T23:59:59.123 +05:30 ", QV_TYPE_DATE_TZ,
         "2009-04-30 23:59:59.123000000 +05:30"},
        {"2009-04-30 10:00:00 CEST", QV_TYPE_DATE_TZ, "2009-04-30 10:00:00.000000000 +02:00"},
        {"2009-02-29", QV_TYPE_DATE, "NULL"},
        {"not a date", QV_TYPE_DATE, "NULL"},
        {"23:15", QV_TYPE_TIME, "23:15:00.000000000"},
        {"23:15:01.5 -03:30", QV_TYPE_TIME_TZ, "23:15:01.500000000 -03:30"},
        {"2009-04-30 08:09:10", QV_TYPE_TIME, "08:09:10.000000000"},
        {"24:00", QV_TYPE_TIME, "NULL"},
        {"-3 04:05:06.7", QV_TYPE_INTERVAL_DS, "-3 04:05:06.700000000"},
        {"+000000001 02:03:04.000000000", QV_TYPE_INTERVAL_DS, "1 02:03:04.000000000"},
        {"1 25:00:00", QV_TYPE_INTERVAL_DS, "NULL"},
        {"-2-11", QV_TYPE_INTERVAL_YM, "-2-11"},
        {"2-12", QV_TYPE_INTERVAL_YM, "NULL"},
        {" deadBEEF ", QV_TYPE_BINARY, "DEADBEEF"},
        {"ABC", QV_TYPE_BINARY, "NULL"},
        {"0x12", QV_TYPE_BLOB, "NULL"},
    };
    for (const auto &c : cases) {
        Value source = text(c.text), dest(c.type);
        EXPECT_EQ(ConvertValue_L(&dest, &source, 0, 0), QV_CONVERT_OK) << c.text;
        EXPECT_EQ(shown(dest), c.shown) << c.text << " as " << GetDataTypeSpec_L(c.type)->name;
    }
}

TEST(Convert, TextInOtherEncodings) {
    const char16_t utf16[] = u" 12 ";
    Value latin = text("\xE4 12", Latin1Encoding_L());
    Value spaced = text(reinterpret_cast<const char *>(utf16), UTF16Encoding_L());
    Value number(QV_TYPE_INTEGER), from_utf16(QV_TYPE_INTEGER), clob(QV_TYPE_CLOB);
    EXPECT_EQ(shown(latin), "\xC3\xA4 12");
    ConvertValue_L(&number, &latin, 0, 0);
    EXPECT_TRUE(number.is_null);
    ConvertValue_L(&from_utf16, &spaced, 0, 0);
    EXPECT_EQ(shown(from_utf16), "12");
    ConvertValue_L(&clob, &latin, 0, 0);
    EXPECT_EQ(clob.payload.string.encoding, Latin1Encoding_L()) << "a copy keeps its encoding";
    EXPECT_EQ(clob.descriptor.precision, 4) << "a CLOB's length is in characters";
}

// Share mode borrows texts, bytes and array elements; freeing borrower and owner in either
// order frees each block once (the sanitizer build checks it).
TEST(Convert, ShareModeBorrows) {
    Value owner_text = text("borrowed"), owner_bytes = bytes({1, 2, 3});
    Value clob = as_type(owner_text, QV_TYPE_CLOB), blob = as_type(owner_bytes, QV_TYPE_BLOB);
    const struct {
        const QV_VALUE_T *source;
        uint32_t target;
        uint32_t flags_kept;
    } cases[] = {
        {&owner_text, QV_TYPE_CHAR, 0x3},    {&owner_text, QV_TYPE_CLOB, 0x21},
        {&clob, QV_TYPE_CHAR, 0x3},          {&clob, QV_TYPE_CLOB, 0x21},
        {&owner_bytes, QV_TYPE_BINARY, 0x2}, {&owner_bytes, QV_TYPE_BLOB, 0x20},
        {&blob, QV_TYPE_BINARY, 0x2},        {&blob, QV_TYPE_BLOB, 0x20},
    };
    for (const auto &c : cases) {
        const_cast<QV_VALUE_T *>(c.source)->descriptor.extra = 0x3;
        auto *borrower = new Value(c.target);
        borrower->descriptor.extra = 0x40; // not a payload flag: kept
        EXPECT_EQ(ConvertValue_L(borrower, c.source, 1, 0), QV_CONVERT_OK);
        EXPECT_EQ(borrower->owns_payload, 0);
        EXPECT_EQ(std::memcmp(&borrower->payload, &c.source->payload, sizeof borrower->payload), 0);
        EXPECT_EQ(borrower->descriptor.extra, 0x40 | (0x3 & c.flags_kept));
        EXPECT_EQ(shown(*borrower), shown(*c.source));
        delete borrower; // frees nothing of the owner's
        EXPECT_EQ(shown(*c.source),
                  c.source == &owner_text || c.source == &clob ? "borrowed" : "010203");
    }
    // Without share the destination gets a copy of its own.
    Value copy(QV_TYPE_CHAR);
    ConvertValue_L(&copy, &owner_text, 0, 0);
    EXPECT_TRUE(copy.owns_payload);
    EXPECT_NE(copy.payload.string.text, owner_text.payload.string.text);
}

TEST(Convert, ArraysWrapAndShareTheirElements) {
    Value five = integer(5), wrapped(QV_TYPE_ARRAY);
    EXPECT_EQ(ConvertValue_L(&wrapped, &five, 0, 0), QV_CONVERT_OK);
    ASSERT_EQ(ArrayValueCount_L(&wrapped), 1);
    EXPECT_EQ(ArrayValueItem_L(&wrapped, 0)->payload.integer, 5);

    std::vector<Value> elements;
    elements.push_back(text("x"));
    elements.push_back(integer(1));
    Value source = array(std::move(elements));
    Value same_count = array([] {
        std::vector<Value> e;
        e.push_back(text("old"));
        e.push_back(text("old too"));
        return e;
    }());
    EXPECT_EQ(ConvertValue_L(&same_count, &source, 1, 0), QV_CONVERT_OK);
    EXPECT_EQ(shown(same_count), "('x', 1)");
    EXPECT_EQ(ArrayValueItem_L(&same_count, 0)->owns_payload, 0) << "elements borrowed";
    EXPECT_EQ(ArrayValueItem_L(&same_count, 0)->payload.string.text,
              ArrayValueItem_L(&source, 0)->payload.string.text);

    Value other_count = array([] {
        std::vector<Value> e;
        e.push_back(integer(9));
        return e;
    }());
    EXPECT_EQ(ConvertValue_L(&other_count, &source, 1, 0), QV_CONVERT_OK);
    EXPECT_EQ(shown(other_count), "('x', 1)");
    EXPECT_TRUE(ArrayValueItem_L(&other_count, 0)->owns_payload) << "counts differ: deep copy";
}

TEST(Convert, DestinationMayBeTheSourceOrHoldIt) {
    Value self = text("abcdef");
    self.descriptor.precision = 3;
    EXPECT_EQ(ConvertValue_L(&self, &self, 1, 0), QV_CONVERT_TRUNCATED);
    EXPECT_EQ(shown(self), "abc");
    EXPECT_TRUE(self.owns_payload);

    Value holder = array([] {
        std::vector<Value> e;
        e.push_back(array([] {
            std::vector<Value> inner;
            inner.push_back(text("deep"));
            return inner;
        }()));
        e.push_back(integer(2));
        return e;
    }());
    QV_VALUE_T *nested = ArrayValueItem_L(ArrayValueItem_L(&holder, 0), 0);
    EXPECT_EQ(ConvertValue_L(&holder, nested, 1, 0), QV_CONVERT_OK);
    EXPECT_EQ(shown(holder), "('deep')");
    Value element_holder = array([] {
        std::vector<Value> e;
        e.push_back(text("first"));
        return e;
    }());
    CopyValue_L(&element_holder, ArrayValueItem_L(&element_holder, 0));
    EXPECT_EQ(shown(element_holder), "first");
}

// The conversions to one type leave their output alone when they give nothing.
TEST(Convert, ConversionsToOneType) {
    Value seven = text(" 7.9 "), hex = text("00ff"), nothing(QV_TYPE_INTEGER);
    int64_t i = -1;
    uint8_t *block = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(ValueToInteger_L(&nothing, &i), QV_VALUE_NONE);
    EXPECT_EQ(ValueToInteger_L(&hex, &i), QV_VALUE_NONE);
    EXPECT_EQ(i, -1);
    EXPECT_EQ(ValueToInteger_L(&seven, nullptr), QV_VALUE_NONE);
    EXPECT_EQ(ValueToBinary_L(&hex, &block, &length), QV_VALUE_OK);
    ASSERT_EQ(length, 2u);
    EXPECT_EQ(block[1], 0xFF);
    std::free(block);
    QV_STRING_T string{};
    EXPECT_EQ(ValueToString_L(&seven, &string), QV_VALUE_OK);
    EXPECT_STREQ(string.text, " 7.9 ");
    FreeString_SL(&string);
    EXPECT_EQ(ValueToString_L(&nothing, &string), QV_VALUE_NONE);
    // ValueToCLOB_L and ValueToBLOB_L make their destination of the type.
    Value clob = integer(3), blob = integer(3);
    EXPECT_EQ(ValueToCLOB_L(&clob, &hex, 0), QV_CONVERT_OK);
    EXPECT_EQ(clob.descriptor.type, QV_TYPE_CLOB);
    EXPECT_EQ(ValueToBLOB_L(&blob, &hex, 0), QV_CONVERT_OK);
    EXPECT_EQ(shown(blob), "00FF");
}

// ValueToNumber_L: exact, into a sized NUMBER or the source's own; 77 digits.
TEST(Convert, ValuesAsExactNumbers) {
    const char *seventy_seven =
        "12345678901234567890123456789012345678901234567890123456789012345678901234567";
    const struct {
        Value source;
        int32_t precision, scale;
        int32_t result;
        const char *shown;
    } cases[] = {
        {text(seventy_seven), 0, 0, QV_VALUE_OK, seventy_seven},
        {text(seventy_seven), 77, 0, QV_VALUE_OK, seventy_seven},
        {text("0.1"), 3, 2, QV_VALUE_OK, "0.1"},
        {real(0.1), 0, 0, QV_VALUE_OK, "0.1"},
        {real(2.5), 5, 0, QV_VALUE_OK, "3"}, // half away from zero
        {integer(-42), 0, 0, QV_VALUE_OK, "-42"},
        {boolean(true), 0, 0, QV_VALUE_OK, "1"},
        {interval(true, 0, 0, 0, 1, 500000000), 0, 0, QV_VALUE_OK, "-1.5"},
        {text("abc"), 5, 0, QV_VALUE_NONE, "NULL"},
        {text("100"), 2, 0, QV_VALUE_TOO_LARGE, "NULL"},
        {bytes({1}), 0, 0, QV_VALUE_NONE, "NULL"},
    };
    for (const auto &c : cases) {
        Value out(QV_TYPE_NUMBER, c.precision, c.scale);
        EXPECT_EQ(ValueToNumber_L(&c.source, &out), c.result) << shown(c.source);
        EXPECT_EQ(shown(out), c.shown) << shown(c.source);
        EXPECT_EQ(out.descriptor.type, QV_TYPE_NUMBER);
    }
    Value self = text("12.5");
    EXPECT_EQ(ValueToNumber_L(&self, &self), QV_VALUE_OK) << "number may be the value";
    EXPECT_EQ(self.descriptor.type, QV_TYPE_NUMBER);
    EXPECT_EQ(shown(self), "12.5");
    EXPECT_EQ(ValueToNumber_L(&self, nullptr), QV_VALUE_NONE);
}

// Exact decimals read values of every type through the values module: packed and zoned
// fields, and arithmetic on text operands.
TEST(Convert, PackedAndZonedFieldsOfAnyValue) {
    Value amount = text("123.45"), minus = integer(-7);
    uint8_t packed[3] = {}, zoned[3] = {};
    EXPECT_EQ(ValueToBCD_L(&amount, packed, 5, 2), 0);
    EXPECT_EQ(packed[0], 0x12);
    EXPECT_EQ(packed[2], 0x5C);
    EXPECT_EQ(ValueToZoned_L(&minus, zoned, 3, 0), 0);
    EXPECT_EQ(zoned[2], 0xD7);
    Value back;
    EXPECT_EQ(BCDToValue_L(&back, packed, 5, 2), 0);
    EXPECT_EQ(shown(back), "123.45");
    Value word = text("many");
    EXPECT_EQ(ValueToBCD_L(&word, packed, 5, 2), -1);
    Value sum, three = text("3");
    EXPECT_EQ(PreciseCalculate_L(&amount, '+', &three, &sum, 1), 0);
    EXPECT_EQ(shown(sum), "126.45");
}

TEST(Convert, DoublesAsDecimalText) {
    const struct {
        double value;
        const char *text;
        int32_t digits, decimals;
    } cases[] = {
        {0.1, "0.1", 1, 1},
        {1e21, "1000000000000000000000", 22, 0},
        {123456789012345678.0, "123456789012345680", 18, 0},
        {-0.0, "-0", 1, 0},
        {2.5, "2.5", 2, 1},
        {-1234.5678, "-1234.5678", 8, 4},
        {1.0 / 3, "0.333333333333333", 15, 15},
    };
    for (const auto &c : cases) {
        int32_t digits = -1, decimals = -1;
        EXPECT_STREQ(StringFromDouble_L(c.value, &digits, &decimals), c.text);
        EXPECT_EQ(digits, c.digits) << c.text;
        EXPECT_EQ(decimals, c.decimals) << c.text;
        Value v = real(c.value);
        EXPECT_EQ(shown(v), c.text) << "the FLOAT text form";
    }
    int32_t digits = 0, decimals = 0;
    const std::string tiny = StringFromDouble_L(5e-324, &digits, &decimals);
    EXPECT_EQ(tiny, "0." + std::string(323, '0') + "494065645841247");
    EXPECT_EQ(digits, 338);
    EXPECT_EQ(decimals, 338);
}

} // namespace
