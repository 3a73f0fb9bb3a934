// Order, equality and checksums: tables of pairs with NULLs, numbers across types and
// scales (77 digits), collated text against exact equality; pairs that cannot be compared;
// the checksum bytes of each type against a bitwise CRC, a pinned row checksum.
#include <cmath>

#include "capture.hpp"
#include "values.hpp"

namespace {

using namespace qvtest;

Value null_of(uint32_t type) {
    return Value(type);
}

std::string digits(char first, int count, char rest) {
    return first + std::string(count - 1, rest);
}

TEST(Order, PairsInOrderAndEquality) {
    const std::string ten_76 = digits('1', 77, '0');          // 10^76, 77 digits
    const std::string half_77 = "0.5" + std::string(76, '0'); // 0.5 at scale 77
    const std::string nines_77 = "0." + std::string(77, '9');
    const struct {
        Value a, b;
        int order;
        bool same;
    } cases[] = {
        {null_of(QV_TYPE_INTEGER), null_of(QV_TYPE_CHAR), 0, true},
        {null_of(QV_TYPE_DATE), integer(1), -1, false},
        {integer(1), null_of(QV_TYPE_INTEGER), 1, false},
        {integer(2), integer(10), -1, false},
        {integer((int64_t{1} << 53) + 1), real(0x1p53), 1, false},
        {integer(3), real(3.0), 0, true},
        {real(3.5), integer(3), 1, false},
        {integer(INT64_MAX), real(0x1p63), -1, false},
        {real(NAN), real(1e308), 1, false},
        {real(NAN), real(NAN), 0, true},
        {real(-INFINITY), integer(INT64_MIN), -1, false},
        {real(-0.0), real(0.0), 0, true},
        {number("1.5", 2, 1), number("1.50", 3, 2), 0, true},
        {number(ten_76.c_str(), 77, 0), number(half_77.c_str(), 77, 77), 1, false},
        {number(nines_77.c_str(), 77, 77), number("1", 1, 0), -1, false},
        {number(("-" + ten_76).c_str(), 77, 0), number(("-" + half_77).c_str(), 77, 77), -1, false},
        {integer(INT64_MAX), number("9223372036854775807.5", 20, 1), -1, false},
        {real(0.1), number("0.1", 1, 1), 0, true},
        {real(1e300), number(ten_76.c_str(), 77, 0), 1, false},
        {real(5e-324), number("0", 1, 0), 0, true}, // the double's 15-digit decimal rounds to 0
        {text("\xC3\xA9"), text("f"), -1, false},   // collated: é before f, not after as bytes
        {text("ab"),
         text("a\x01"
              "b"),
         0, false}, // a control character weighs nothing in collation
        {text("e\xCC\x81"), text("\xC3\xA9"), 0, false}, // e + combining acute against é
        {text("abc"), as_type(text("abc"), QV_TYPE_CLOB), 0, true},
        {text("\xE9", Latin1Encoding_L()), text("\xC3\xA9"), 0, true},
        {text(""), text("a"), -1, false},
        {bytes({1, 2}), bytes({1, 3}), -1, false},
        {bytes({1, 2}), bytes({1, 2, 0}), -1, false},
        {bytes({9}), bytes({1, 2, 3}), 1, false},
        {bytes({1, 2}), as_type(bytes({1, 2}), QV_TYPE_BLOB), 0, true},
        {boolean(false), boolean(true), -1, false},
        {date(QV_TYPE_DATE, date_of(2009, 4, 30)), date(QV_TYPE_DATE, date_of(2009, 5, 1)), -1,
         false},
        {date(QV_TYPE_DATE, date_of(2009, 4, 30, 1)),
         date(QV_TYPE_DATE_TZ, date_of(2009, 4, 30, 1)), 0, true},
        {date(QV_TYPE_DATE_TZ, date_of(2009, 4, 30, 10, 0, 0, 0, 200)),
         date(QV_TYPE_DATE_TZ, date_of(2009, 4, 30, 9)), 1, false}, // fields first, zone last
        {date(QV_TYPE_TIME, date_of(0, 0, 0, 12)), date(QV_TYPE_TIME_TZ, date_of(0, 0, 0, 11)), 1,
         false},
        {interval(true, 1, 0, 0, 0), interval(false, 1, 0, 0, 0), -1, false},
        {interval(true, 0, 0, 0, 0), interval(false, 0, 0, 0, 0), 0, true},
        {interval_ym(false, 1, 2), interval_ym(false, 1, 3), -1, false},
        {array([] {
             std::vector<Value> e;
             e.push_back(integer(1));
             e.push_back(text("a"));
             return e;
         }()),
         array([] {
             std::vector<Value> e;
             e.push_back(integer(1));
             e.push_back(text("b"));
             return e;
         }()),
         -1, false},
        {array([] {
             std::vector<Value> e;
             e.push_back(integer(1));
             return e;
         }()),
         array([] {
             std::vector<Value> e;
             e.push_back(real(1.0));
             e.push_back(null_of(QV_TYPE_CHAR));
             return e;
         }()),
         -1, false},
    };
    for (const auto &c : cases) {
        const std::string pair = shown(c.a) + " / " + shown(c.b);
        EXPECT_EQ(CompareValue_L(&c.a, &c.b), c.order) << pair;
        EXPECT_EQ(CompareValue_L(&c.b, &c.a), -c.order) << pair;
        EXPECT_EQ(IsSameValue_L(&c.a, &c.b), c.same) << pair;
    }
    Value one = integer(1);
    EXPECT_EQ(CompareValue_L(nullptr, nullptr), 0);
    EXPECT_EQ(CompareValue_L(nullptr, &one), -1);
    EXPECT_EQ(CompareValue_L(&one, nullptr), 1);
}

// Equality reads the second value as the first one's type.
TEST(Order, EqualityReadsTheSecondAsTheFirstType) {
    const struct {
        Value a, b;
        bool same;
    } cases[] = {
        {integer(5), text(" 5 "), true},
        {integer(5), text("5.0"), true},
        {text("5"), integer(5), true},
        {text("5.0"), integer(5), false},
        {text("abc"), text("ABC"), false},
        {real(0.5), text("0.5"), true},
        {number("2.50", 3, 2), text("2.5"), true},
        {boolean(true), text("yes"), true},
        {boolean(false), integer(0), true},
        {date(QV_TYPE_DATE, date_of(2009, 4, 30)), text("2009-04-30"), true},
        {date(QV_TYPE_DATE, date_of(2009, 4, 30)),
         date(QV_TYPE_DATE_TZ, date_of(2009, 4, 30, 0, 0, 0, 0, 530)), true},
        {date(QV_TYPE_DATE_TZ, date_of(2009, 4, 30, 0, 0, 0, 0, 530)),
         date(QV_TYPE_DATE, date_of(2009, 4, 30)), false},
        {date(QV_TYPE_TIME, date_of(0, 0, 0, 8, 30)), text("08:30"), true},
        {bytes({0xDE, 0xAD}), text("dead"), true},
        {as_type(bytes({1}), QV_TYPE_BLOB), bytes({1}), true},
        {interval(false, 1, 0, 0, 0), text("1 00:00:00"), true},
        {interval_ym(true, 1, 1), integer(-13), true},
        {array([] {
             std::vector<Value> e;
             e.push_back(integer(1));
             return e;
         }()),
         integer(1), false},
        {integer(1), array([] {
             std::vector<Value> e;
             e.push_back(integer(1));
             return e;
         }()),
         false},
        {integer(1), date(QV_TYPE_DATE, date_of(2009, 4, 30)), false},
    };
    for (const auto &c : cases)
        EXPECT_EQ(IsSameValue_L(&c.a, &c.b), c.same) << shown(c.a) << " / " << shown(c.b);
    Value one = integer(1);
    EXPECT_FALSE(IsSameValue_L(&one, nullptr));
    EXPECT_FALSE(IsSameValue_L(nullptr, nullptr));
}

class Incomparable : public CaptureTest {};

TEST_F(Incomparable, PairsRaiseAfterSayingWhy) {
    const struct {
        Value a, b;
        const char *text;
    } cases[] = {
        {integer(5), text("5"),
         "A value of type INTEGER cannot be compared with a value of type CHAR."},
        {date(QV_TYPE_DATE, date_of(2009, 4, 30)), date(QV_TYPE_TIME, date_of(0, 0, 0, 1)),
         "A value of type DATE cannot be compared with a value of type TIME."},
        {boolean(true), integer(1),
         "A value of type BOOLEAN cannot be compared with a value of type INTEGER."},
        {[] {
             Value list(QV_TYPE_LIST);
             list.is_null = 0;
             return list;
         }(),
         integer(1), "A value of type LIST cannot be compared with a value of type INTEGER."},
        {[] {
             Value broken = integer(1);
             broken.descriptor = {QV_TYPE_NUMBER, 99, 0, 0}; // no valid NUMBER
             return broken;
         }(),
         number("1"), "A value of type NUMBER cannot be compared with a value of type NUMBER."},
    };
    for (const auto &c : cases) {
        ClearMessageContext_L();
        InitMessages_L(&context);
        EXPECT_EQ(raised_by([&] { CompareValue_L(&c.a, &c.b); }), GENERAL_ERROR);
        EXPECT_THAT(texts_of(context), ::testing::ElementsAre(c.text));
    }
    // A NULL side decides before the types are looked at.
    Value null_text(QV_TYPE_CHAR), one = integer(1);
    EXPECT_EQ(raised_by([&] { EXPECT_EQ(CompareValue_L(&null_text, &one), -1); }), nullptr);
}

// ---- Checksums -----------------------------------------------------------------------

// The fold written out bit by bit: no inversion on entry, inverted on exit.
uint32_t reference_fold(uint32_t previous, std::string_view bytes) {
    uint32_t c = previous;
    for (unsigned char b : bytes) {
        c ^= b;
        for (int k = 0; k < 8; ++k) c = (c & 1) != 0 ? (c >> 1) ^ 0xEDB88320u : c >> 1;
    }
    return ~c;
}

std::string little_endian(uint64_t bits) {
    std::string s(8, '\0');
    for (int i = 0; i < 8; ++i) s[i] = static_cast<char>(bits >> (8 * i));
    return s;
}

TEST(Checksum, BytesOfEachType) {
    Value nested = array([] {
        std::vector<Value> e;
        e.push_back(integer(1));
        e.push_back(text("a"));
        return e;
    }());
    std::string number_bytes(34, '\0');
    number_bytes[0] = 15; // 1.5 at scale 1: the accumulator holds 15, one limb used
    number_bytes[33] = 1;
    const struct {
        Value value;
        std::string bytes;
    } cases[] = {
        {null_of(QV_TYPE_CHAR), "~&%NULL%&~"},
        {boolean(true), std::string(1, '\1')},
        {integer(0x0102030405060708), little_endian(0x0102030405060708)},
        {real(1.0), little_endian(0x3FF0000000000000)},
        {number("1.5", 2, 1), number_bytes},
        {text("abc"), "abc"},
        {text("\xE4", Latin1Encoding_L()), "\xC3\xA4"}, // folded as UTF-8
        {text(""), ""},
        {as_type(text("clob"), QV_TYPE_CLOB), "clob"},
        {date(QV_TYPE_DATE_TZ, date_of(2009, 4, 30, 12, 0, 0, 5, -30)),
         "2009-04-30 12:00:00.000000005 -00:30"},
        {date(QV_TYPE_TIME, date_of(0, 0, 0, 23, 59, 59)), "23:59:59.000000000"},
        {interval(true, 0, 5, 0, 0), "-0 05:00:00.000000000"},
        {interval_ym(false, 3, 4), "3-04"},
    };
    for (const auto &c : cases) {
        for (uint32_t start : {0u, 0xFFFFFFFFu, 0x12345678u}) {
            uint32_t checksum = start;
            EXPECT_EQ(ChecksumValue_L(&c.value, &checksum), reference_fold(start, c.bytes))
                << shown(c.value);
            EXPECT_EQ(checksum, reference_fold(start, c.bytes));
        }
    }
    uint32_t checksum = 7;
    EXPECT_EQ(ChecksumValue_L(nullptr, &checksum), reference_fold(7, "~&%NULL%&~"));
    checksum = 7;
    ChecksumValue_L(&nested, &checksum);
    EXPECT_EQ(checksum, reference_fold(reference_fold(7, little_endian(1)), "a"))
        << "an array folds each element in turn";
    Value list(QV_TYPE_LIST);
    list.is_null = 0;
    checksum = 7;
    EXPECT_EQ(ChecksumValue_L(&list, &checksum), 7u) << "no bytes for other types";
    EXPECT_EQ(ChecksumValue_L(&list, nullptr), 0u);
    Value null_text(QV_TYPE_CHAR), empty = text("");
    uint32_t a = 0, b = 0;
    EXPECT_NE(ChecksumValue_L(&null_text, &a), ChecksumValue_L(&empty, &b));
}

// BINARY and BLOB fold the record from the byte-pointer field on: the address, not the
// content.
TEST(Checksum, BinaryFollowsTheAddressOfItsBytes) {
    Value one = bytes({1, 2, 3, 4}), other = bytes({1, 2, 3, 4});
    uint8_t *address = one.payload.binary.bytes;
    std::string pointer(reinterpret_cast<const char *>(&address), sizeof address);
    uint32_t checksum = 0;
    EXPECT_EQ(ChecksumValue_L(&one, &checksum), reference_fold(0, pointer.substr(0, 4)));
    uint32_t first = 0, second = 0;
    ChecksumValue_L(&one, &first);
    one.payload.binary.bytes[0] = 99;
    ChecksumValue_L(&one, &second);
    EXPECT_EQ(first, second) << "the content does not count";
    uint32_t elsewhere = 0;
    EXPECT_NE(ChecksumValue_L(&other, &elsewhere), first) << "the address does";

    // Longer than the record: the rest of the record (padding and the inactive payload
    // bytes as zeros), then zeros.
    std::vector<uint8_t> long_bytes(100, 0xAB);
    Value wide = bytes(long_bytes);
    address = wide.payload.binary.bytes;
    std::string image(reinterpret_cast<const char *>(&address), sizeof address);
    image.resize(offsetof(QV_VALUE_T, is_null) - offsetof(QV_VALUE_T, payload) - 8, '\0');
    image += std::string{'\0', '\1', '\0'}; // is_null, owns_payload, eval_flags
    image.resize(100, '\0');                // padding, eval_data (null), then past the end
    checksum = 5;
    EXPECT_EQ(ChecksumValue_L(&wide, &checksum), reference_fold(5, image));
}

// A row's checksum: each column folded in order from 0. The pinned value guards the stored
// checksums of rows against any change of a text form or byte layout.
TEST(Checksum, RowOfTenColumns) {
    Value row[] = {integer(42),
                   real(2.5),
                   number("-12.345", 10, 3),
                   text("Quillon"),
                   text("M\xFCnchen", Latin1Encoding_L()),
                   boolean(false),
                   date(QV_TYPE_DATE, date_of(2009, 4, 30, 12, 34, 56)),
                   null_of(QV_TYPE_INTEGER),
                   as_type(text("large object"), QV_TYPE_CLOB),
                   interval(false, 1, 2, 3, 4)};
    std::string number_bytes(34, '\0');
    number_bytes[0] = static_cast<char>(12345 & 0xFF);
    number_bytes[1] = static_cast<char>(12345 >> 8);
    number_bytes[32] = 1; // negative
    number_bytes[33] = 1;
    const std::string columns[] = {little_endian(42),
                                   little_endian(0x4004000000000000),
                                   number_bytes,
                                   "Quillon",
                                   "M\xC3\xBCnchen",
                                   std::string(1, '\0'),
                                   "2009-04-30 12:34:56.000000000",
                                   "~&%NULL%&~",
                                   "large object",
                                   "1 02:03:04.000000000"};
    uint32_t checksum = 0, expected = 0;
    for (std::size_t i = 0; i < std::size(row); ++i) {
        ChecksumValue_L(&row[i], &checksum);
        expected = reference_fold(expected, columns[i]);
    }
    EXPECT_EQ(checksum, expected);
    EXPECT_EQ(checksum, 0x51BA1C41u);
}

} // namespace
