// The value record: freeing, setting types, deep copies, file-backed large objects, arrays,
// text forms, one-value arithmetic, concatenation, MonthEnds_L, and bad input (inconsistent
// flags, null pointers, invalid UTF-8, counts of -1 and INT32_MAX, 1 MB values).
#include <unistd.h>

#include <fstream>

#include "capture.hpp"
#include "values.hpp"

namespace {

using namespace qvtest;

TEST(Record, FreeingLeavesANullOfTheSameType) {
    Value v = text("abc");
    v.descriptor.precision = 9;
    v.descriptor.extra = 0x3;
    v.eval_flags = 4;
    v.eval_data = &v;
    FreeValue_L(&v);
    EXPECT_TRUE(v.is_null);
    EXPECT_EQ(v.owns_payload, 0);
    EXPECT_EQ(v.payload.string.text, nullptr);
    EXPECT_EQ(v.eval_data, nullptr);
    EXPECT_EQ(v.descriptor.type, QV_TYPE_CHAR);
    EXPECT_EQ(v.descriptor.precision, 9);
    FreeValue_L(&v); // twice is harmless
    FreeValue_L(nullptr);

    // A borrowed payload is not freed; the owner still holds it.
    Value owner = text("owned"), borrower(QV_TYPE_CHAR);
    ConvertValue_L(&borrower, &owner, 1, 0);
    FreeValue_L(&borrower);
    EXPECT_EQ(shown(owner), "owned");

    // The owns byte means nothing for types without memory.
    Value odd = integer(5);
    odd.owns_payload = 1;
    FreeValue_L(&odd);
    EXPECT_TRUE(odd.is_null);
}

TEST(Record, SettingAnotherTypeFreesThePayload) {
    Value v = text("abc");
    SetValueTypePrecScale_L(&v, QV_TYPE_CHAR, 20, 0);
    EXPECT_EQ(shown(v), "abc") << "same type: payload kept";
    EXPECT_EQ(v.descriptor.precision, 20);
    SetValueType_L(&v, QV_TYPE_INTEGER);
    EXPECT_TRUE(v.is_null);
    EXPECT_EQ(v.descriptor.precision, 0);
    QV_DATATYPE_T number = {QV_TYPE_NUMBER, 10, 2, 0};
    SetValue_L(&v, &number);
    EXPECT_EQ(v.descriptor.type, QV_TYPE_NUMBER);
    EXPECT_EQ(v.descriptor.scale, 2);
    SetValue_L(&v, nullptr);
    EXPECT_EQ(v.descriptor.type, 0u);
    EXPECT_EQ(SetValueType_L(nullptr, 1), nullptr);
}

TEST(Record, MakersOwnTheirPayload) {
    Value t = text("x"), n = text(nullptr), b = bytes({7, 8}), none = bytes({});
    EXPECT_TRUE(t.owns_payload && !t.is_null);
    EXPECT_TRUE(n.is_null);
    EXPECT_EQ(b.descriptor.precision, 2);
    EXPECT_EQ(shown(b), "0708");
    EXPECT_EQ(none.payload.binary.bytes, nullptr);
    EXPECT_EQ(shown(none), "");
    Value d;
    SetDateValue_L(&d, QV_TYPE_INTEGER, nullptr);
    EXPECT_TRUE(d.is_null);
    EXPECT_EQ(SetIntegerValue_L(nullptr, 1), nullptr);
}

TEST(Record, CopiesAreDeep) {
    Value nested = array([] {
        std::vector<Value> e;
        e.push_back(text("one"));
        e.push_back(array([] {
            std::vector<Value> inner;
            inner.push_back(bytes({1, 2}));
            inner.push_back(Value(QV_TYPE_DATE));
            return inner;
        }()));
        return e;
    }());
    Value copy = integer(3);
    copy.eval_flags = 9;
    CopyValue_L(&copy, &nested);
    EXPECT_EQ(shown(copy), "('one', (0102, NULL))");
    EXPECT_TRUE(IsSameValue_L(&copy, &nested));
    EXPECT_NE(ArrayValueItem_L(&copy, 0)->payload.string.text,
              ArrayValueItem_L(&nested, 0)->payload.string.text);
    FreeValue_L(&nested);
    EXPECT_EQ(shown(copy), "('one', (0102, NULL))") << "the copy outlives the original";

    Value borrowed(QV_TYPE_CHAR), owner = text("lent"), deep;
    ConvertValue_L(&borrowed, &owner, 1, 0);
    CopyValue_L(&deep, &borrowed);
    EXPECT_TRUE(deep.owns_payload) << "a copy of a borrower owns its copy";
    CopyValue_L(&deep, &deep);
    EXPECT_EQ(shown(deep), "lent");
    CopyValue_L(&deep, nullptr);
    EXPECT_TRUE(deep.is_null);
}

// A file-backed CLOB or BLOB: its file is deleted with an owning value; copies hold the
// content; the checksum folds its name; it is never the same as anything.
TEST(Record, FileBackedLargeObjects) {
    TempDirectory directory;
    const std::string path = (directory / "clob.txt").string();
    write_file(path, "content of the file");
    Value clob(QV_TYPE_CLOB);
    clob.is_null = 0;
    clob.owns_payload = 1;
    clob.descriptor.extra = QV_VALUE_IN_FILE;
    clob.payload.string.text = strdup(path.c_str());

    EXPECT_EQ(shown(clob), "content of the file");
    Value copy, char_copy(QV_TYPE_CHAR, 7), borrowed(QV_TYPE_CLOB), blob(QV_TYPE_BLOB);
    CopyValue_L(&copy, &clob);
    EXPECT_EQ(copy.descriptor.extra & QV_VALUE_IN_FILE, 0u);
    EXPECT_EQ(shown(copy), "content of the file");
    EXPECT_EQ(ConvertValue_L(&char_copy, &clob, 1, 0), QV_CONVERT_TRUNCATED);
    EXPECT_EQ(shown(char_copy), "content");
    EXPECT_EQ(ConvertValue_L(&borrowed, &clob, 1, 0), QV_CONVERT_OK);
    EXPECT_EQ(borrowed.descriptor.extra & QV_VALUE_IN_FILE, QV_VALUE_IN_FILE);
    EXPECT_FALSE(IsSameValue_L(&clob, &copy));
    EXPECT_FALSE(IsSameValue_L(&copy, &clob));
    EXPECT_EQ(CompareValue_L(&clob, &copy), 0) << "ordered by content";
    uint32_t checksum = 0, expected = 0;
    ChecksumValue_L(&clob, &checksum);
    Value name = text(path.c_str());
    ChecksumValue_L(&name, &expected);
    EXPECT_EQ(checksum, expected) << "the name is folded, not the content";

    FreeValue_L(&borrowed);
    EXPECT_EQ(access(path.c_str(), F_OK), 0) << "a borrower leaves the file";
    FreeValue_L(&clob);
    EXPECT_NE(access(path.c_str(), F_OK), 0) << "the owner deletes it";
    EXPECT_EQ(shown(copy), "content of the file");

    // A BLOB of an empty file has no bytes; one whose file is gone has no value.
    write_file(directory / "empty", "");
    const std::string empty_path = (directory / "empty").string();
    Value empty(QV_TYPE_BLOB);
    empty.is_null = 0;
    empty.descriptor.extra = QV_VALUE_IN_FILE;
    empty.payload.binary.bytes =
        reinterpret_cast<uint8_t *>(const_cast<char *>(empty_path.c_str()));
    EXPECT_EQ(shown(empty), "");
    Value gone(QV_TYPE_BLOB);
    gone.is_null = 0;
    gone.descriptor.extra = QV_VALUE_IN_FILE;
    gone.payload.binary.bytes = reinterpret_cast<uint8_t *>(const_cast<char *>(path.c_str()));
    EXPECT_EQ(shown(gone), "NULL");
    EXPECT_EQ(ConvertValue_L(&blob, &gone, 0, 0), QV_CONVERT_OK);
    EXPECT_TRUE(blob.is_null);
}

TEST(Record, ArraysGrowShrinkAndDelete) {
    Value a = integer(1);
    EXPECT_EQ(ModifyArray_L(&a, 3), 0) << "a non-array becomes an empty array first";
    EXPECT_EQ(a.descriptor.type, QV_TYPE_ARRAY);
    EXPECT_EQ(ArrayValueCount_L(&a), 3);
    EXPECT_TRUE(ArrayValueItem_L(&a, 2)->is_null);
    EXPECT_EQ(ArrayValueItem_L(&a, 3), nullptr);
    EXPECT_EQ(ArrayValueItem_L(&a, -1), nullptr);
    SetTextValue_L(ArrayValueItem_L(&a, 2), "kept", nullptr);
    for (int i = 0; i < 1000; ++i) {
        Value item = integer(i);
        ASSERT_EQ(AppendArrayValue_L(&a, &item), 0);
    }
    EXPECT_EQ(ArrayValueCount_L(&a), 1003);
    EXPECT_EQ(ArrayValueItem_L(&a, 1002)->payload.integer, 999);
    EXPECT_EQ(ModifyArray_L(&a, 3), 0);
    EXPECT_EQ(shown(a), "(NULL, NULL, 'kept')");
    EXPECT_EQ(DeleteArrayValue_L(&a, 0), 0);
    EXPECT_EQ(shown(a), "(NULL, 'kept')");
    EXPECT_EQ(DeleteArrayValue_L(&a, 2), -1);
    EXPECT_EQ(AppendArrayValue_L(&a, ArrayValueItem_L(&a, 1)), 0) << "an item of the array";
    EXPECT_EQ(AppendArrayValue_L(&a, &a), 0) << "the array itself, nested";
    EXPECT_EQ(shown(a), "(NULL, 'kept', 'kept', (NULL, 'kept', 'kept'))");
    EXPECT_EQ(AppendArrayValue_L(&a, nullptr), 0);
    EXPECT_EQ(ArrayValueCount_L(&a), 5);
    EXPECT_EQ(ModifyArray_L(&a, 0), 0);
    EXPECT_EQ(shown(a), "()");

    EXPECT_EQ(ModifyArray_L(&a, -1), -1);
    EXPECT_EQ(ModifyArray_L(&a, int64_t{INT32_MAX} + 1), -1);
    EXPECT_EQ(ModifyArray_L(nullptr, 1), -1);
    EXPECT_EQ(AppendArrayValue_L(nullptr, &a), -1);
    EXPECT_EQ(ArrayValueCount_L(nullptr), 0);
    Value blockless(QV_TYPE_ARRAY);
    blockless.is_null = 0;
    EXPECT_EQ(ArrayValueCount_L(&blockless), 0);
    EXPECT_EQ(shown(blockless), "()");

    // An array that borrows its block takes one of its own before it changes.
    Value owner = array([] {
        std::vector<Value> e;
        e.push_back(text("x"));
        e.push_back(text("y"));
        return e;
    }());
    Value lent;
    static_cast<QV_VALUE_T &>(lent) = owner;
    lent.owns_payload = 0;
    ASSERT_EQ(DeleteArrayValue_L(&lent, 0), 0);
    EXPECT_EQ(shown(lent), "('y')");
    EXPECT_EQ(shown(owner), "('x', 'y')");
}

TEST(Record, TextForms) {
    const struct {
        Value value;
        const char *shown;
        const char *hex;
    } cases[] = {
        {integer(INT64_MIN), "-9223372036854775808", "2D39323233333732303336383534373735383038"},
        {boolean(false), "FALSE", "46414C5345"},
        {number("-0.50", 5, 2), "-0.5", "2D302E35"},
        {date(QV_TYPE_DATE, date_of(0, 1, 2)), "+0000-01-02 00:00:00.000000000", nullptr},
        {date(QV_TYPE_DATE, date_of(-44, 3, 15)), "-0044-03-15 00:00:00.000000000", nullptr},
        {date(QV_TYPE_DATE, date_of(12345, 12, 31)), "12345-12-31 00:00:00.000000000", nullptr},
        {date(QV_TYPE_TIME_TZ, date_of(0, 0, 0, 1, 2, 3, 4, -30)), "01:02:03.000000004 -00:30",
         nullptr},
        {date(QV_TYPE_DATE_TZ, date_of(2009, 4, 30, 0, 0, 0, 0, 1400)),
         "2009-04-30 00:00:00.000000000 +14:00", nullptr},
        {interval(true, 0, 5, 0, 0), "-0 05:00:00.000000000", nullptr},
        {interval_ym(true, 2, 11), "-2-11", nullptr},
        {bytes({0x00, 0x7F, 0xFF}), "007FFF", "007FFF"},
        {text("h\xC3\xA9", nullptr), "h\xC3\xA9", "68C3A9"},
        {text("h\xE9", Latin1Encoding_L()), "h\xC3\xA9", "68E9"}, // the bytes as stored
        {array([] {
             std::vector<Value> e;
             e.push_back(text("it's"));
             e.push_back(array({}));
             e.push_back(Value(QV_TYPE_CHAR));
             return e;
         }()),
         "('it''s', (), NULL)", nullptr},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(shown(c.value), c.shown);
        if (c.hex != nullptr) {
            EXPECT_EQ(take(ValueToHex_L(&c.value)), c.hex) << c.shown;
        }
    }
    Value null_bytes(QV_TYPE_BINARY), bad_number = integer(0);
    EXPECT_EQ(ValueToHex_L(&null_bytes), nullptr);
    bad_number.descriptor = {QV_TYPE_NUMBER, 0, 0, 0};
    EXPECT_EQ(shown(bad_number), "NULL") << "an invalid NUMBER has no text";
    // A CHAR value keeps its own encoding in ValueToString_L, the rest are UTF-8.
    Value latin = text("\xE9", Latin1Encoding_L()), one = integer(1);
    QV_STRING_T s;
    ASSERT_EQ(ValueToString_L(&latin, &s), QV_VALUE_OK);
    EXPECT_EQ(s.encoding, Latin1Encoding_L());
    EXPECT_STREQ(s.text, "\xE9");
    FreeString_SL(&s);
    ASSERT_EQ(ValueToString_L(&one, &s), QV_VALUE_OK);
    EXPECT_EQ(s.encoding, nullptr);
    FreeString_SL(&s);
}

TEST(Record, IncrementAndDecrement) {
    struct {
        Value value;
        int step;
        int32_t result;
        const char *shown;
    } cases[] = {
        {integer(41), 1, 0, "42"},
        {integer(INT64_MAX), 1, -1, "9223372036854775807"},
        {integer(INT64_MIN), -1, -1, "-9223372036854775808"},
        {real(0.5), -1, 0, "-0.5"},
        {number("998.5", 4, 1), 1, 0, "999.5"},
        {number("999.5", 4, 1), 1, -1, "999.5"},
        {text(" 41 "), 1, 0, "42"},
        {text("-9223372036854775808"), 1, 0, "-9223372036854775807"},
        {text("9223372036854775807"), 1, -1, "9223372036854775807"},
        {text("4.5"), 1, -1, "4.5"},
        {date(QV_TYPE_DATE, date_of(2004, 2, 28)), 1, 0, "2004-02-29 00:00:00.000000000"},
        {date(QV_TYPE_DATE, date_of(2004, 3, 1)), -1, 0, "2004-02-29 00:00:00.000000000"},
        {boolean(true), 1, -1, "TRUE"},
        {Value(QV_TYPE_INTEGER), 1, -1, "NULL"},
    };
    for (auto &c : cases) {
        EXPECT_EQ(c.step > 0 ? IncrementValue_L(&c.value) : DecrementValue_L(&c.value), c.result)
            << c.shown;
        EXPECT_EQ(shown(c.value), c.shown);
    }
    const char16_t utf16[] = u"9";
    Value wide = text(reinterpret_cast<const char *>(utf16), UTF16Encoding_L());
    wide.descriptor.precision = 1;
    EXPECT_EQ(IncrementValue_L(&wide), 0);
    EXPECT_EQ(wide.payload.string.encoding, UTF16Encoding_L());
    EXPECT_EQ(shown(wide), "10");
    EXPECT_EQ(wide.descriptor.precision, 2) << "a CHAR's length grows with its text";
    EXPECT_EQ(IncrementValue_L(nullptr), -1);
}

TEST(Record, Concatenation) {
    Value left = text("ab"), five = integer(5), none(QV_TYPE_CHAR);
    left.descriptor.precision = 2;
    EXPECT_EQ(ConcatValue_L(&left, &five), 0);
    EXPECT_EQ(shown(left), "ab5");
    EXPECT_EQ(left.descriptor.precision, 3);
    EXPECT_EQ(ConcatValue_L(&left, &left), 0);
    EXPECT_EQ(shown(left), "ab5ab5");
    EXPECT_EQ(ConcatValue_L(&left, &none), 0);
    EXPECT_EQ(shown(left), "ab5ab5") << "NULL counts as empty";
    Value empty(QV_TYPE_CHAR), nothing(QV_TYPE_INTEGER);
    EXPECT_EQ(ConcatValue_L(&empty, &none), 0);
    EXPECT_TRUE(empty.is_null);
    EXPECT_EQ(ConcatValue_L(&nothing, &five), 0);
    EXPECT_EQ(nothing.descriptor.type, QV_TYPE_CHAR);
    EXPECT_EQ(shown(nothing), "5");

    Value latin = text("caf", Latin1Encoding_L()), accent = text("\xC3\xA9");
    EXPECT_EQ(ConcatValue_L(&latin, &accent), 0);
    EXPECT_EQ(latin.payload.string.encoding, Latin1Encoding_L());
    EXPECT_STREQ(latin.payload.string.text, "caf\xE9");
    Value clob = as_type(text("x"), QV_TYPE_CLOB);
    ConcatValue_L(&clob, &five);
    EXPECT_EQ(clob.descriptor.type, QV_TYPE_CLOB);
    EXPECT_EQ(ConcatValue_L(nullptr, &five), -1);
}

TEST(Record, MonthEnds) {
    Value d = date(QV_TYPE_DATE_TZ, date_of(2004, 2, 10, 5, 0, 0, 0, 100));
    EXPECT_EQ(MonthEnds_L(&d, 0), 0);
    EXPECT_EQ(shown(d), "2004-02-29 05:00:00.000000000 +01:00");
    EXPECT_EQ(MonthEnds_L(&d, 1), 0);
    EXPECT_EQ(d.payload.date.day, 1);
    Value y1900 = date(QV_TYPE_DATE, date_of(1900, 2, 3)), time = date(QV_TYPE_TIME, {});
    EXPECT_EQ(MonthEnds_L(&y1900, 0), 0);
    EXPECT_EQ(y1900.payload.date.day, 28);
    Value null_date(QV_TYPE_DATE), one = integer(1), broken = date(QV_TYPE_DATE, date_of(1, 13, 1));
    for (QV_VALUE_T *bad :
         std::initializer_list<QV_VALUE_T *>{&null_date, &one, &time, &broken, nullptr})
        EXPECT_EQ(MonthEnds_L(bad, 0), -1);
}

// Bad input: inconsistent records, invalid UTF-8, 1 MB values.
TEST(Record, BadInputGivesNullsOrCodes) {
    Value no_text(QV_TYPE_CHAR);
    no_text.is_null = 0; // non-NULL, text null: reads as empty
    Value dest(QV_TYPE_INTEGER), clob(QV_TYPE_CLOB);
    EXPECT_EQ(shown(no_text), "");
    EXPECT_EQ(ConvertValue_L(&dest, &no_text, 0, 0), QV_CONVERT_OK);
    EXPECT_TRUE(dest.is_null);
    EXPECT_EQ(ConvertValue_L(&clob, &no_text, 1, 0), QV_CONVERT_OK);
    EXPECT_EQ(clob.descriptor.precision, 0);

    Value invalid = text("\xC3\x28 \xFF");
    uint32_t checksum = 0;
    ChecksumValue_L(&invalid, &checksum);
    Value as_char(QV_TYPE_CHAR, 2);
    EXPECT_EQ(ConvertValue_L(&as_char, &invalid, 0, 0), QV_CONVERT_TRUNCATED);
    for (uint32_t type :
         {QV_TYPE_INTEGER, QV_TYPE_FLOAT, QV_TYPE_NUMBER, QV_TYPE_BOOLEAN, QV_TYPE_DATE,
          QV_TYPE_TIME, QV_TYPE_INTERVAL_DS, QV_TYPE_INTERVAL_YM, QV_TYPE_BINARY}) {
        Value out(type);
        EXPECT_EQ(ConvertValue_L(&out, &invalid, 0, 0), QV_CONVERT_OK);
        EXPECT_TRUE(out.is_null) << GetDataTypeSpec_L(type)->name;
    }

    const std::string megabyte(1 << 20, 'q');
    Value big = text(megabyte.c_str()), cut(QV_TYPE_CHAR, 10), big_bytes;
    EXPECT_EQ(ConvertValue_L(&cut, &big, 1, 0), QV_CONVERT_TRUNCATED);
    EXPECT_EQ(shown(cut), "qqqqqqqqqq");
    ConvertValue_L(&big_bytes, &big, 0, 0);
    SetBinaryValue_L(&big_bytes, megabyte.data(), static_cast<uint32_t>(megabyte.size()));
    EXPECT_EQ(take(ValueToHex_L(&big_bytes)).size(), 2u << 20);
    ChecksumValue_L(&big_bytes, &checksum); // folds the record and a megabyte of zeros
    EXPECT_EQ(CompareValue_L(&big, &big), 0);
}

} // namespace
