// The interval built-ins: the arithmetic and its sign rules as tables, sums checked against
// the differences over generated intervals, conversions and the validity tests with their
// default patterns.
#include "builtin2_call.hpp"

namespace {

using qvtest::call;
using qvtest::expect_results;
using qvtest::integer_value;
using qvtest::OwnedValue;

using BuiltinIntervals = qvtest::LanguageTest;

TEST_F(BuiltinIntervals, DaysAndYearsMoveOneFieldAndGiveTheOthersTheNewSign) {
    expect_results({
        {"AddDaysToInterval(ToIntervalDS('-0 05:00:00'), 1)", "1 05:00:00.000000000"},
        {"AddDaysToInterval(ToIntervalDS('1 05:00:00'), -2)", "-1 05:00:00.000000000"},
        {"AddDaysToInterval(ToIntervalDS('-2 00:00:01'), 2)", "0 00:00:01.000000000"},
        {"AddDaysToInterval(ToIntervalDS('4294967295 00:00:00'), 0)",
         "4294967295 00:00:00.000000000"},
        {"AddDaysToInterval(ToIntervalDS('4294967295 00:00:00'), 1)", "NULL"},
        {"AddDaysToInterval(ToIntervalDS('-4294967295 00:00:00'), -1)", "NULL"},
        {"AddDaysToInterval(ToIntervalDS('0 00:00:00'), 9223372036854775807)", "NULL"},
        {"AddDaysToInterval(ToIntervalDS('1 00:00:00'), NULL)", "NULL"},
        {"AddDaysToInterval(NULL, 1)", "NULL"},
        {"AddYearsToInterval(ToIntervalYM('-0-06'), 1)", "1-06"},
        {"AddYearsToInterval(ToIntervalYM('2-06'), -3)", "-1-06"},
        {"AddYearsToInterval(ToIntervalYM('4294967295-00'), -1)", "4294967294-00"},
        {"AddYearsToInterval(ToIntervalYM('4294967295-00'), 1)", "NULL"},
    });
}

TEST_F(BuiltinIntervals, MonthsAndSecondsRenormaliseTheWholeInterval) {
    expect_results({
        {"AddMonthsToInterval(ToIntervalYM('1-11'), 3)", "2-02"},
        {"AddMonthsToInterval(ToIntervalYM('1-00'), -24)", "-1-00"},
        {"AddMonthsToInterval(ToIntervalYM('0-06'), -6)", "0-00"},
        {"AddMonthsToInterval(ToIntervalYM('-0-06'), 18)", "1-00"},
        {"AddMonthsToInterval(ToIntervalYM('4294967295-11'), 1)", "NULL"},
        {"AddMonthsToInterval(ToIntervalYM('0-00'), -9223372036854775807)", "NULL"},
        {"AddSecondsToInterval(ToIntervalDS('0 00:00:59'), 1)", "0 00:01:00.000000000"},
        {"AddSecondsToInterval(ToIntervalDS('0 00:00:01'), -2.5)", "-0 00:00:01.500000000"},
        {"AddSecondsToInterval(ToIntervalDS('-1 00:00:00'), 86400)", "0 00:00:00.000000000"},
        {"AddSecondsToInterval(ToIntervalDS('0 00:00:00'), ToNumber(0.000000001, 10, 9))",
         "0 00:00:00.000000001"},
        {"AddSecondsToInterval(ToIntervalDS('1 00:00:00'), ToDouble('Infinity'))", "NULL"},
        {"AddSecondsToInterval(ToIntervalDS('1 00:00:00'), ToDouble('1e300'))", "NULL"},
    });
}

TEST_F(BuiltinIntervals, SumsAgreeWithDifferences) {
    qvtest::Random random;
    for (int i = 0; i < 2000; ++i) {
        QV_INTERVAL_YM_T ym{static_cast<uint8_t>(random(0, 1)),
                            static_cast<uint32_t>(random(0, 5000)),
                            static_cast<uint32_t>(random(0, 11))};
        OwnedValue a = qvtest::interval_value(ym);
        const int months = random(-100000, 100000);
        OwnedValue n = integer_value(months);
        OwnedValue sum = call("AddMonthsToInterval", {a.get(), n.get()});
        ASSERT_EQ(call("MonthsBetween", {sum.get(), a.get()})->payload.integer, months);
        // Years move the years alone: the signed years change by the count.
        OwnedValue years = call("AddYearsToInterval", {a.get(), n.get()});
        const int64_t before = ym.negative ? -int64_t{ym.years} : ym.years;
        const QV_INTERVAL_YM_T &after = years->payload.interval_ym;
        ASSERT_EQ(after.negative ? -int64_t{after.years} : int64_t{after.years}, before + months);
        ASSERT_EQ(after.months, ym.months);

        QV_INTERVAL_DS_T ds{
            static_cast<uint8_t>(random(0, 1)),   static_cast<uint32_t>(random(0, 40000)),
            static_cast<uint32_t>(random(0, 23)), static_cast<uint32_t>(random(0, 59)),
            static_cast<uint32_t>(random(0, 59)), static_cast<uint32_t>(random(0, 999999999))};
        OwnedValue b = qvtest::interval_value(ds);
        const int seconds = random(-1000000000, 1000000000);
        OwnedValue s = integer_value(seconds);
        OwnedValue moved = call("AddSecondsToInterval", {b.get(), s.get()});
        OwnedValue back = call("SecondsBetween", {moved.get(), b.get()});
        ASSERT_LE(std::llabs(back->payload.integer - seconds), 1) << seconds;
        const int days = random(-40000, 40000);
        OwnedValue d = integer_value(days);
        OwnedValue later = call("AddDaysToInterval", {b.get(), d.get()});
        const QV_INTERVAL_DS_T &out = later->payload.interval_ds;
        ASSERT_EQ(out.negative ? -int64_t{out.days} : int64_t{out.days},
                  (ds.negative ? -int64_t{ds.days} : int64_t{ds.days}) + days);
        ASSERT_EQ(out.hours * 3600 + out.minutes * 60 + out.seconds,
                  ds.hours * 3600 + ds.minutes * 60 + ds.seconds);
    }
}

TEST_F(BuiltinIntervals, ConversionsReadTextAndCounts) {
    expect_results({
        {"ToIntervalDS(90061)", "1 01:01:01.000000000"},
        {"ToIntervalDS(-0.5)", "-0 00:00:00.500000000"},
        {"ToIntervalDS('1 02:03:04')", "1 02:03:04.000000000"},
        {"ToIntervalDS('+000000001 02:03:04.000000000')", "1 02:03:04.000000000"},
        {"ToIntervalDS('-3 00:00:00.25')", "-3 00:00:00.250000000"},
        {"ToIntervalDS('3d 4h', 'dd\"d\" hh\"h\"')", "3 04:00:00.000000000"},
        {"ToIntervalDS('3d', 'yyyy')", "NULL"},
        {"ToIntervalDS('3d', 'dd dd')", "NULL"},
        {"ToIntervalDS('1 25:00:00')", "NULL"},
        {"ToIntervalDS('soon')", "NULL"},
        {"ToIntervalDS(ToIntervalDS('2 00:00:00'), 'yyyy')", "2 00:00:00.000000000"},
        {"ToIntervalYM(14)", "1-02"},
        {"ToIntervalYM(-14)", "-1-02"},
        {"ToIntervalYM('-1-02')", "-1-02"},
        {"ToIntervalYM('+000000001-02')", "1-02"},
        {"ToIntervalYM('2 years 3', 'y\" years \"m')", "2-03"},
        {"ToIntervalYM('2-12')", "NULL"},
        {"ToIntervalYM(NULL)", "NULL"},
    });
}

TEST_F(BuiltinIntervals, ValidityTestsUseTheirDefaultPatterns) {
    expect_results({
        // "sddd hh:mi:ss"
        {"IsValidIntervalDS('1 02:03:04')", "TRUE"},
        {"IsValidIntervalDS('-12 23:59:59')", "TRUE"},
        {"IsValidIntervalDS('1 24:00:00')", "FALSE"},
        {"IsValidIntervalDS('1 02:60:00')", "FALSE"},
        {"IsValidIntervalDS('two days')", "FALSE"},
        {"IsValidIntervalDS(12.5)", "TRUE"},
        {"IsValidIntervalDS(ToIntervalDS(1))", "TRUE"},
        {"IsValidIntervalDS('3d', 'dd\"d\"')", "TRUE"},
        {"IsValidIntervalDS('3d', 'yyyy')", "NULL"},
        {"IsValidIntervalDS(NULL)", "NULL"},
        // "syyyyyyyyy-mm"
        {"IsValidIntervalYM('2-11')", "TRUE"},
        {"IsValidIntervalYM('-2-11')", "TRUE"},
        {"IsValidIntervalYM('2-12')", "FALSE"},
        {"IsValidIntervalYM(-5)", "TRUE"},
        {"IsValidIntervalYM('2y', 'y\"y\"')", "TRUE"},
        {"IsValidIntervalYM('2-11', 'dd')", "NULL"},
    });
}

} // namespace
