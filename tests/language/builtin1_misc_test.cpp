// The conditional, conversion, array and process built-ins as call tables, the described
// types, and a result that is also an argument.
#include <chrono>
#include <regex>

#include "builtin1_adapter.hpp"

namespace {

using namespace qvtest::builtin1;
using Misc = qvtest::LanguageTest;

constexpr uint32_t CHAR = QV_TYPE_CHAR, INTEGER = QV_TYPE_INTEGER, FLOAT = QV_TYPE_FLOAT,
                   NUMBER = QV_TYPE_NUMBER, BOOLEAN = QV_TYPE_BOOLEAN;

TEST_F(Misc, ChooseIfAndIfNullCopyAnArgument) {
    check_all(
        {
            {"Choose(2, 'a', 'b', 'c')", text("b")},
            {"Choose(2.9, 'a', 'b', 'c')", text("b")},
            {"Choose(0, 'a', 'b')", null_of(CHAR)},
            {"Choose(3, 'a', 'b')", null_of(CHAR)},
            {"Choose(2, 'a', NULL)", null_of(CHAR)},
            {"Choose(NULL, 'a')", null_of(CHAR)},
            {"Choose(15, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16)", integer(15)},
            {"Choose(16, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16)",
             null_of(INTEGER)},                 // 15 is the last honoured
            {"Choose(2, 'a', 2.5)", real(2.5)}, // the outcome's own type
            {"If(TRUE, 'yes', 'no')", text("yes")},
            {"If(FALSE, 'yes', 'no')", text("no")},
            {"If(NULL, 'yes', 'no')", text("no")},
            {"If('Y', 1, 2)", integer(1)},
            {"If(0, 1, 2)", integer(2)},
            {"If('maybe', 1, 2)", integer(2)},
            {"If(TRUE, NULL, 2)", null_of(0)},
            {"IfNull(NULL, 5)", integer(5)},
            {"IfNull(3, 5)", integer(3)},
            {"IfNull(Substr(NULL, 1), 'x')", text("x")},
            {"IfNull(Substr(NULL, 1), NULL)", null_of(CHAR)}, // the first argument's type
        },
        true); // described types are checked below
    // Described: If and IfNull widen the two outcomes; Choose takes outcome 1's type.
    EXPECT_EQ(evaluate("IfNull(1, 2.5)").described_type, FLOAT);
    EXPECT_EQ(evaluate("If(TRUE, 1, ToNumber('2.5', 5, 1))").described_type, NUMBER);
    EXPECT_EQ(evaluate("IfNull(NULL, 'x')").described_type, CHAR);
    EXPECT_EQ(evaluate("Choose(2, 'a', 2.5)").described_type, CHAR);
}

TEST_F(Misc, Conversions) {
    check_all({
        {"ToChar(12.5)", text("12.5")},
        {"ToChar(ToNumber('1.50', 5, 2))", text("1.5")},
        {"ToChar(TRUE, 'yyyy')", text("TRUE")}, // the format is for dates
        {"ToChar(1 & 'a')", text("(1, 'a')")},
        {"ToChar(NULL)", null_of(CHAR)},
        {"ToInteger('42')", integer(42)},
        {"ToInteger(-7.9)", integer(-7)},
        {"ToInteger('x')", null_of(INTEGER)},
        {"ToInteger(ToDouble('1e30'))", null_of(INTEGER)},
        {"ToInteger(TRUE)", integer(1)},
        {"ToDouble('1.25')", real(1.25)},
        {"ToDouble(7)", real(7)},
        {"ToDouble('x')", null_of(FLOAT)},
        {"ToNumber('123.456', 10, 2)", is(NUMBER, "123.45")}, // cut to the scale
        {"ToNumber(2.5, 3, 1)", is(NUMBER, "2.5")},
        {"ToNumber('12345', 4, 0)", null_of(NUMBER)}, // too many digits
        {"ToNumber('1', 78, 0)", null_of(NUMBER)},    // no such precision
        {"ToNumber('1', 5, 6)", null_of(NUMBER)},
        {"ToNumber('abc', 5, 0)", null_of(NUMBER)},
        {"ToHex(255)", text("FF")},
        {"ToHex(-1)", text("FFFFFFFFFFFFFFFF")},
        {"ToHex(0)", text("0")},
        {"ToHex('AB')", text("4142")},
        {"ToHex('é')", text("C3A9")},
        {"ToHex(12.5)", text("31322E35")}, // the bytes of its text form
        {"ToHex(NULL)", null_of(CHAR)},
    });
    Outcome sized = evaluate("ToNumber('1.5', 12, 3)");
    EXPECT_EQ(sized.value().descriptor.precision, 12);
    EXPECT_EQ(sized.value().descriptor.scale, 3);
}

TEST_F(Misc, ArraysCountFromOneAndChangeInPlace) {
    check_all({
        {"ArraySize(1 & 2 & 3)", integer(3)},
        {"ArraySize(NULL)", integer(0)},
        {"ArraySize(7)", integer(1)}, // one value is an array of one
        {"ArrayItem(1 & 'b' & 3, 2)", text("b")},
        {"ArrayItem(1 & 2, 3)", null_of(INTEGER)}, // typed as the first item
        {"ArrayItem(1 & 2, 0)", null_of(INTEGER)},
        {"ArrayItem(NULL, 1)", null_of(0)},
        {"ArrayItem(5, 1)", integer(5)},
        {"ArrayClear(1 & 2)", integer(0)},
        {"ArrayAddItem(1 & 2, 'x')", integer(3)},
        {"ArrayAddItem(NULL, 'x')", integer(1)},
        {"ArrayAddItem(1 & 2, NULL)", integer(3)},
        {"ArrayDeleteItem(1 & 2 & 3, 2)", integer(2)},
        {"ArrayDeleteItem(1 & 2 & 3, 4)", null_of(INTEGER)},
        {"ArrayModifyItem(1 & 2, 2, 'z')", integer(2)},
        {"ArrayModifyItem(1 & 2, 9, 'z')", null_of(INTEGER)},
        {"ArraySort(3 & 1 & 2)", integer(3)},
        {"ArraySearch(5 & 6 & 7, 6)", integer(2)},
        {"ArraySearch(5 & 6 & 7, 6.0)", null_of(INTEGER)}, // FLOAT is not INTEGER
        {"ArraySearch(5 & 6 & 7, 9)", null_of(INTEGER)},
        {"ArraySearch(5 & 6 & 7, NULL)", null_of(INTEGER)},
        {"ArraySearch(1 & 2 & 2 & 2 & 3, 2, TRUE)", integer(2)}, // the first of the equal run
        {"ArraySearch('b' & 'a' & 'b', 'b', FALSE)", integer(1)},
        {"VariableInfo(ToNumber('1', 10, 2), 'DATATYPE')", text("NUMBER")},
        {"VariableInfo(ToNumber('1', 10, 2), 'precision')", integer(10)},
        {"VariableInfo(ToNumber('1', 10, 2), 'Scale')", integer(2)},
        {"VariableInfo(Substr(NULL, 1), 'DATATYPE')", text("CHAR")}, // NULL: the type answers
        {"VariableInfo(1, 'COLOUR')", null_of(CHAR)},
    });

    // The changes are made in the array handed over.
    qvtest::Value array, item, index, result;
    for (int64_t n : {30, 10, 20, 10}) {
        SetIntegerValue_L(item.get(), n);
        QV_VALUE_T *arguments[] = {array.get(), item.get()};
        BI_array_add_item(result.get(), nullptr, arguments[0], arguments[1]); // described
        EXP_CALL_FRAME_T frame{nullptr, 2, arguments, QV_MODE_EVALUATE, nullptr, nullptr};
        BI_array_add_item(result.get(), &frame, array.get(), item.get());
    }
    EXPECT_EQ(qvtest::text_of(array.get()), "(30, 10, 20, 10)");
    EXP_CALL_FRAME_T frame{nullptr, 1, nullptr, QV_MODE_EVALUATE, nullptr, nullptr};
    BI_array_sort(result.get(), &frame, array.get());
    EXPECT_EQ(qvtest::text_of(array.get()), "(10, 10, 20, 30)");
    SetIntegerValue_L(item.get(), 10);
    BI_array_search(result.get(), &frame, array.get(), item.get(), nullptr);
    EXPECT_EQ(result->payload.integer, 1);
    SetIntegerValue_L(index.get(), 1);
    BI_array_delete_item(result.get(), &frame, array.get(), index.get());
    SetTextValue_L(item.get(), "x", nullptr);
    BI_array_modify_item(result.get(), &frame, array.get(), index.get(), item.get());
    EXPECT_EQ(qvtest::text_of(array.get()), "('x', 20, 30)");
    // Mixed types sort NULL first, then by type code, then by value.
    check({"ToChar(ArrayItem(1, 1))", text("1")});
    Outcome mixed = evaluate("ArraySort('b' & 2 & NULL & 'a' & 1.5 & 1)");
    EXPECT_EQ(mixed.value().payload.integer, 6);
}

TEST_F(Misc, ProcessFunctions) {
    check_all({
        {"OpSys()", text("WIN32")},
        {"Length(OpSys())", integer(5)},
        {"Delay(0)", truth(true)},
        {"Delay(-1)", null_of(BOOLEAN)},             // sleeps not at all
        {"Delay(9223372036854775807)", truth(true)}, // past 32 bits of milliseconds: 0
        {"Delay(NULL)", null_of(BOOLEAN)},
        {"System('exit 3')", integer(3)},
        {"System('true')", integer(0)},
        {"System(NULL)", null_of(INTEGER)},
        {"System(5)", null_of(INTEGER)}, // only CHAR commands run
        {"LogMsg('a', 1, NULL)", truth(true)},
    });
    Outcome op_sys = evaluate("OpSys()");
    EXPECT_EQ(op_sys.value().descriptor.precision, 5);
    EXPECT_EQ(op_sys.value().payload.string.encoding, ASCIIEncoding_L());
    EXPECT_THAT(out, ::testing::HasSubstr("a1\n"));

    SetRowNum_L(12345678901234);
    check({"RowNum()", integer(12345678901234)});
    SetRowNum_L(0);

    Outcome a = evaluate("UUID()"), b = evaluate("UUID()");
    const std::regex uuid("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    EXPECT_TRUE(std::regex_match(qvtest::text_of(&a.value()), uuid)) << qvtest::text_of(&a.value());
    EXPECT_NE(qvtest::text_of(&a.value()), qvtest::text_of(&b.value()));
    EXPECT_EQ(a.value().descriptor.precision, 36);
    EXPECT_EQ(a.described_type, CHAR);

    const auto start = std::chrono::steady_clock::now();
    check({"Delay(1)", truth(true)});
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(990));
}

// A host may hand a result that is also an argument: the result is computed aside, the
// argument is read whole before the result replaces it.
TEST_F(Misc, AResultThatIsAlsoAnArgument) {
    qvtest::Value v, n;
    SetTextValue_L(v.get(), "hello", nullptr);
    EXP_CALL_FRAME_T frame{nullptr, 1, nullptr, QV_MODE_EVALUATE, nullptr, nullptr};
    BI_upper(v.get(), &frame, v.get());
    EXPECT_EQ(qvtest::text_of(v.get()), "HELLO");
    BI_length(v.get(), &frame, v.get()); // CHAR argument, INTEGER result
    EXPECT_EQ(v->descriptor.type, QV_TYPE_INTEGER);
    EXPECT_EQ(v->payload.integer, 5);
    SetIntegerValue_L(n.get(), 2);
    SetTextValue_L(v.get(), "abcdef", nullptr);
    BI_substr(v.get(), &frame, v.get(), n.get(), n.get());
    EXPECT_EQ(qvtest::text_of(v.get()), "bc");
    QV_VALUE_T *given[] = {v.get(), v.get()};
    EXP_CALL_FRAME_T joined{nullptr, 2, given, QV_MODE_EVALUATE, nullptr, nullptr};
    BI_concat(v.get(), &joined);
    EXPECT_EQ(qvtest::text_of(v.get()), "bcbc");
    BI_if_null(v.get(), &frame, v.get(), n.get());
    EXPECT_EQ(qvtest::text_of(v.get()), "bcbc");
    BI_abs(nullptr, &frame, v.get()); // no result: nothing done
}

} // namespace
