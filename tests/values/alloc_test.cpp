// Allocation failures: every allocation of the main operations fails in turn; each raises
// ALLOC_FAILURE and leaves nothing behind (the sanitizer build checks for leaks); the run
// without a failure gives the right value. Without a status context the operations return
// their "nothing" result.
#include "capture.hpp"
#include "values.hpp"

namespace {

using namespace qvtest;

Value sample_array() {
    std::vector<Value> inner;
    inner.push_back(bytes({1, 2}));
    inner.push_back(text("inner"));
    std::vector<Value> outer;
    outer.push_back(text("x", Latin1Encoding_L()));
    outer.push_back(array(std::move(inner)));
    outer.push_back(integer(3));
    return array(std::move(outer));
}

void expect_alloc_failures(const char *what, qv::FunctionRef<void()> body) {
    std::vector<const char *> raised = fail_each_allocation(body);
    EXPECT_FALSE(raised.empty()) << what << " allocates";
    for (const char *symbol : raised) EXPECT_EQ(symbol, ALLOC_FAILURE) << what;
}

TEST(AllocationFailure, MainOperationsRaiseAndLeakNothing) {
    const Value nested = sample_array();
    const Value word = text("M\xFCnchen", Latin1Encoding_L()), hex = text("DEADBEEF");
    const Value amount = integer(-1234567), when = text("2009-04-30 12:00:00 +05:30");
    expect_alloc_failures("INTEGER to CHAR", [&] {
        Value dest(QV_TYPE_CHAR);
        ConvertValue_L(&dest, &amount, 0, 0);
        EXPECT_EQ(shown(dest), "-1234567");
    });
    expect_alloc_failures("CHAR to CLOB", [&] {
        Value dest(QV_TYPE_CLOB);
        ConvertValue_L(&dest, &word, 0, 0);
        EXPECT_EQ(dest.payload.string.encoding, Latin1Encoding_L());
    });
    expect_alloc_failures("CHAR to BINARY", [&] {
        Value dest(QV_TYPE_BINARY);
        ConvertValue_L(&dest, &hex, 0, 0);
        EXPECT_EQ(dest.payload.binary.length, 4u);
    });
    expect_alloc_failures("CHAR to DATE WITH TIME ZONE", [&] {
        Value dest(QV_TYPE_DATE_TZ);
        ConvertValue_L(&dest, &when, 0, 0);
        EXPECT_EQ(dest.payload.date.zone, 530);
    });
    expect_alloc_failures("ARRAY into ARRAY", [&] {
        Value dest(QV_TYPE_ARRAY);
        ConvertValue_L(&dest, &nested, 0, 0);
        EXPECT_TRUE(IsSameValue_L(&dest, &nested));
    });
    expect_alloc_failures("INTEGER into ARRAY", [&] {
        Value dest(QV_TYPE_ARRAY);
        ConvertValue_L(&dest, &word, 0, 0);
        EXPECT_EQ(ArrayValueCount_L(&dest), 1);
    });
    expect_alloc_failures("CopyValue_L", [&] {
        Value dest = text("replaced");
        CopyValue_L(&dest, &nested);
        EXPECT_EQ(shown(dest), "('x', (0102, 'inner'), 3)");
    });
    expect_alloc_failures("ValueToChar_L of an array", [&] {
        EXPECT_EQ(take(ValueToChar_L(&nested)), "('x', (0102, 'inner'), 3)");
    });
    expect_alloc_failures("ValueToHex_L",
                          [&] { EXPECT_EQ(take(ValueToHex_L(&word)), "4DFC6E6368656E"); });
    expect_alloc_failures("ValueToString_L", [&] {
        QV_STRING_T out{};
        ValueToString_L(&amount, &out);
        EXPECT_STREQ(out.text, "-1234567");
        FreeString_SL(&out);
    });
    expect_alloc_failures("ConcatValue_L across encodings", [&] {
        Value dest = text("caf", Latin1Encoding_L()), accent = text("\xC3\xA9");
        ConcatValue_L(&dest, &accent);
        EXPECT_STREQ(dest.payload.string.text, "caf\xE9");
    });
    expect_alloc_failures("AppendArrayValue_L", [&] {
        Value dest;
        for (int i = 0; i < 3; ++i) AppendArrayValue_L(&dest, &nested);
        EXPECT_EQ(ArrayValueCount_L(&dest), 3);
    });
    expect_alloc_failures("IncrementValue_L of a text", [&] {
        Value counter = text("41");
        IncrementValue_L(&counter);
        EXPECT_EQ(shown(counter), "42");
    });
}

// With no status context open, a failed allocation reports and returns: the destination is
// left NULL (or the function gives its nothing) and nothing leaks.
TEST(AllocationFailure, WithoutAContextTheResultIsNothing) {
    const Value nested = sample_array(), amount = integer(7);
    for (int n = 0; n < 3; ++n) {
        Value dest(QV_TYPE_ARRAY), text_dest(QV_TYPE_CHAR);
        TestFailAllocation_L(n);
        ConvertValue_L(&dest, &nested, 0, 0);
        TestFailAllocation_L(-1);
        EXPECT_TRUE(dest.is_null || IsSameValue_L(&dest, &nested));
        TestFailAllocation_L(0);
        EXPECT_EQ(ConvertValue_L(&text_dest, &amount, 0, 0), QV_CONVERT_OK);
        TestFailAllocation_L(-1);
        EXPECT_TRUE(text_dest.is_null);
    }
    TestFailAllocation_L(0);
    EXPECT_EQ(ValueToChar_L(&amount), nullptr);
    Value grown = integer(1);
    TestFailAllocation_L(0);
    EXPECT_EQ(ModifyArray_L(&grown, 2), -1);
    TestFailAllocation_L(-1);
    EXPECT_EQ(ArrayValueCount_L(&grown), 0);
}

} // namespace
