// The date, time and zone built-ins: day and month arithmetic, differences, leap years and
// Julian days over generated dates against std::chrono (from 1600 on, where both follow the
// Gregorian rule); tables of calls for intervals added to dates, zones, the current time,
// conversions and the validity tests with their default patterns; ToChar and ToDate round
// trips over the readable pattern tokens.
#include <chrono>

#include "builtin2_call.hpp"

namespace {

namespace chr = std::chrono;
using qvtest::call;
using qvtest::date_value;
using qvtest::expect_results;
using qvtest::integer_value;
using qvtest::OwnedValue;
using qvtest::result_of;
using qvtest::text_value;
using qvtest::typed_result_of;

using BuiltinDates = qvtest::LanguageTest;

QV_DATE_T date_of(chr::year_month_day day) {
    QV_DATE_T date{};
    date.year = static_cast<int16_t>(static_cast<int>(day.year()));
    date.month = static_cast<uint8_t>(static_cast<unsigned>(day.month()));
    date.day = static_cast<uint8_t>(static_cast<unsigned>(day.day()));
    return date;
}

chr::year_month_day day_of(const QV_DATE_T &date) {
    return chr::year_month_day{chr::year{date.year}, chr::month{date.month}, chr::day{date.day}};
}

// A day from 1600-01-01 to about 2400.
chr::sys_days random_day(qvtest::Random &random) {
    return chr::sys_days{chr::year{1600} / 1 / 1} + chr::days{random(0, 292000)};
}

// ymd + months with the day cut to the end of a shorter month.
chr::year_month_day add_months_clamped(chr::year_month_day day, int months) {
    const chr::year_month_day moved = day + chr::months{months};
    if (moved.ok()) return moved;
    return chr::year_month_day_last{moved.year(), chr::month_day_last{moved.month()}};
}

chr::year_month_day result_day(const OwnedValue &value) {
    EXPECT_FALSE(value->is_null);
    return day_of(value->payload.date);
}

TEST_F(BuiltinDates, DaysBetweenAndAddToDateAgreeWithChrono) {
    qvtest::Random random;
    for (int i = 0; i < 2000; ++i) {
        const chr::sys_days a = random_day(random), b = random_day(random);
        OwnedValue x = date_value(date_of(a)), y = date_value(date_of(b));
        OwnedValue days = call("DaysBetween", {x.get(), y.get()});
        ASSERT_EQ(days->payload.integer, (a - b).count());
        // Moves that stay from 1600 on, where chrono's calendar is this one.
        const int n = random(-static_cast<int>((a - random_day(random)).count()) / 2, 200000);
        OwnedValue count = integer_value(n);
        ASSERT_EQ(result_day(call("AddToDate", {x.get(), count.get()})),
                  chr::year_month_day{a + chr::days{n}});
    }
}

TEST_F(BuiltinDates, AddingMonthsAndYearsCutsTheDayToTheMonthEnd) {
    qvtest::Random random;
    for (int i = 0; i < 2000; ++i) {
        const chr::year_month_day day{random_day(random)};
        OwnedValue x = date_value(date_of(day));
        const int months = random(-4000, 4000), years = random(-300, 300);
        OwnedValue m = integer_value(months), y = integer_value(years);
        if (static_cast<int>((day + chr::months{months}).year()) < 1600) continue;
        ASSERT_EQ(result_day(call("AddMonthsToDate", {x.get(), m.get()})),
                  add_months_clamped(day, months))
            << static_cast<int>(day.year()) << " + " << months;
        if (static_cast<int>(day.year()) + years < 1600) continue;
        ASSERT_EQ(result_day(call("AddYearsToDate", {x.get(), y.get()})),
                  add_months_clamped(day, 12 * years));
    }
}

// The whole months from b to a as the model counts them: the most n with b + n months (cut
// to the month end) not after a; negative the other way round.
int months_model(chr::year_month_day a, chr::year_month_day b) {
    if (chr::sys_days{a} < chr::sys_days{b}) return -months_model(b, a);
    int n = (static_cast<int>(a.year()) - static_cast<int>(b.year())) * 12 +
            static_cast<int>(static_cast<unsigned>(a.month())) -
            static_cast<int>(static_cast<unsigned>(b.month()));
    while (chr::sys_days{add_months_clamped(b, n)} > chr::sys_days{a}) --n;
    return n;
}

TEST_F(BuiltinDates, MonthsBetweenMonthEndsAndLeapYearsAgreeWithChrono) {
    qvtest::Random random;
    for (int i = 0; i < 2000; ++i) {
        const chr::sys_days a = random_day(random);
        // Near dates half the time, so that the month ends and day orders are met often.
        const chr::sys_days b = i % 2 ? random_day(random) : a + chr::days{random(-70, 70)};
        OwnedValue x = date_value(date_of(a)), y = date_value(date_of(b));
        ASSERT_EQ(call("MonthsBetween", {x.get(), y.get()})->payload.integer,
                  months_model(chr::year_month_day{a}, chr::year_month_day{b}));
        const chr::year_month_day day{a};
        ASSERT_EQ(result_day(call("FirstOfMonth", {x.get()})), day.year() / day.month() / 1);
        const chr::year_month_day last =
            chr::year_month_day_last{day.year(), chr::month_day_last{day.month()}};
        ASSERT_EQ(result_day(call("LastOfMonth", {x.get()})), last);
        ASSERT_EQ(call("IsLeapYear", {x.get()})->payload.boolean, day.year().is_leap() ? 1 : 0);
        ASSERT_EQ(call("IsLeapYearDay", {x.get()})->payload.boolean,
                  day.month() == chr::February && day.day() == chr::day{29} ? 1 : 0);
    }
}

TEST_F(BuiltinDates, JulianDaysFromSixteenHundredAgreeWithChrono) {
    qvtest::Random random;
    constexpr int64_t unix_epoch_julian_day = 2440588;
    for (int i = 0; i < 2000; ++i) {
        const chr::sys_days day = random_day(random);
        OwnedValue julian = integer_value(day.time_since_epoch().count() + unix_epoch_julian_day);
        ASSERT_EQ(result_day(call("ToDate", {julian.get()})), chr::year_month_day{day});
    }
}

TEST_F(BuiltinDates, YearsBeforeSixteenHundredKeepTheFourYearRule) {
    expect_results({
        {"IsLeapYear('1500-03-01')", "TRUE"},
        {"IsLeapYear('1700-03-01')", "FALSE"},
        {"IsLeapYear('2000-03-01')", "TRUE"},
        {"IsLeapYear('-4712-03-01')", "FALSE"},
        {"IsLeapYear('-0004-03-01')", "TRUE"},
        {"AddYearsToDate('1500-02-29', 100)", "1600-02-29 00:00:00.000000000"},
        {"AddYearsToDate('1500-02-29', 200)", "1700-02-28 00:00:00.000000000"},
        {"DaysBetween('1600-01-01', '1599-12-31')", "1"},
        {"ToDate(2305448)", "1600-01-01 00:00:00.000000000"},
    });
}

TEST_F(BuiltinDates, AddToDateTakesDaysFractionsAndIntervals) {
    expect_results({
        {"AddToDate('2024-01-31', 30)", "2024-03-01 00:00:00.000000000"},
        {"AddToDate('2024-01-31', -31)", "2023-12-31 00:00:00.000000000"},
        {"AddToDate('2024-01-31 10:00:00', 0.5)", "2024-01-31 22:00:00.000000000"},
        {"AddToDate('2024-01-31', ToNumber(1.25, 5, 2))", "2024-02-01 06:00:00.000000000"},
        {"AddToDate('2024-01-31', ToIntervalYM('0-1'))", "2024-02-29 00:00:00.000000000"},
        {"AddToDate('2024-01-31', ToIntervalYM('-1-01'))", "2022-12-31 00:00:00.000000000"},
        {"AddToDate('2024-01-31', ToIntervalDS('1 02:03:04.5'))", "2024-02-01 02:03:04.500000000"},
        {"AddToDate('2024-01-31', ToIntervalDS('-0 00:00:01'))", "2024-01-30 23:59:59.000000000"},
        {"AddToDate('2024-01-31', NULL)", "NULL"},
        {"AddToDate(NULL, 1)", "NULL"},
        // Out of the record's years: NULL, not a wrapped year.
        {"AddToDate('32767-12-31', 1)", "NULL"},
        {"AddToDate('-32768-01-01', -1)", "NULL"},
        {"AddToDate('2024-01-31', ToDouble('1e300'))", "NULL"},
        {"AddToDate('2024-01-31', ToDouble('NaN'))", "NULL"},
        {"AddMonthsToDate('32767-12-01', 1)", "NULL"},
        {"AddMonthsToDate('2001-01-31', 13)", "2002-02-28 00:00:00.000000000"},
        {"AddMonthsToDate('2004-03-31', -1)", "2004-02-29 00:00:00.000000000"},
        {"AddMonthsToDate('2004-01-15', -13)", "2002-12-15 00:00:00.000000000"},
        {"AddMonthsToDate('2004-01-15', 1.9)", "2004-02-15 00:00:00.000000000"},
        {"AddYearsToDate('2024-02-29', 1)", "2025-02-28 00:00:00.000000000"},
        {"AddYearsToDate('2024-02-29', 40000)", "NULL"},
    });
    // A zoned date stays zoned and keeps its zone.
    EXPECT_EQ(typed_result_of("AddToDate('2024-03-01 23:00:00 +05:30', 1)"),
              "DATE WITH TIME ZONE 2024-03-02 23:00:00.000000000 +05:30");
    EXPECT_EQ(typed_result_of("LastOfMonth('2024-02-10 08:00:00 -03:30')"),
              "DATE WITH TIME ZONE 2024-02-29 08:00:00.000000000 -03:30");
}

TEST_F(BuiltinDates, DifferencesTakeTwoValuesOfOneKind) {
    expect_results({
        {"DaysBetween('2024-03-01', '2024-01-01')", "60"},
        {"DaysBetween('2024-01-01', '2024-03-01')", "-60"},
        {"DaysBetween('2024-01-02 06:00:00', '2024-01-01 12:00:00')", "0"},
        {"DaysBetween('2024-01-02 00:00:00 +05:00', '2024-01-01 20:00:00 +00:00')", "0"},
        {"DaysBetween(ToIntervalDS('3 12:00:00'), ToIntervalDS('1 00:00:00'))", "2"},
        {"DaysBetween(ToIntervalDS('-3 12:00:00'), ToIntervalDS('0 00:00:00'))", "-3"},
        {"DaysBetween('2024-01-01', ToIntervalDS('1 00:00:00'))", "NULL"},
        {"SecondsBetween('2024-01-01 00:00:10.9', '2024-01-01')", "10"},
        {"SecondsBetween('2024-01-01 00:00:00 +01:00', '2024-01-01 00:00:00 +00:00')", "-3600"},
        {"SecondsBetween(ToTime('10:00:00'), ToTime('09:00:00.5'))", "3599"},
        {"SecondsBetween(ToIntervalDS('1 00:00:00'), ToIntervalDS('0 00:00:01'))", "86399"},
        {"SecondsBetween('2024-01-01', ToTime('09:00:00'))", "NULL"},
        // 65536 years (16384 leap years by the four-year rule, less those of the full rule
        // from 1600 on and -4712), less one day.
        {"SecondsBetween('-32768-01-01', '32767-12-31')", "-2068138483200"},
        {"MonthsBetween('2024-03-31', '2024-02-29')", "1"},
        {"MonthsBetween('2024-02-29', '2024-03-31')", "-1"},
        {"MonthsBetween('2024-03-30', '2024-01-31')", "1"},
        {"MonthsBetween(ToIntervalYM('2-03'), ToIntervalYM('0-05'))", "22"},
        {"MonthsBetween(ToIntervalYM('-1-00'), ToIntervalYM('1-00'))", "-24"},
        {"MonthsBetween('2024-01-01', ToIntervalYM('1-00'))", "NULL"},
        {"MonthsBetween(NULL, '2024-01-01')", "NULL"},
    });
}

TEST_F(BuiltinDates, TheCurrentTimeIsADateOrItsText) {
    QV_DATE_T before{}, after{};
    CurrentTimestamp_L(&before);
    OwnedValue now = qvtest::evaluate("SysDate()");
    OwnedValue also = qvtest::evaluate("DatetimeNow()");
    OwnedValue year = qvtest::evaluate("SysDate('yyyy')");
    OwnedValue plain = qvtest::evaluate("SysDate(NULL)");
    CurrentTimestamp_L(&after);
    for (const OwnedValue *value : {&now, &also}) {
        ASSERT_EQ((*value)->descriptor.type, uint32_t{QV_TYPE_DATE});
        EXPECT_LE(CompareInternalDate_L(&before, &(*value)->payload.date), 0);
        EXPECT_GE(CompareInternalDate_L(&after, &(*value)->payload.date), 0);
        EXPECT_EQ((*value)->payload.date.fraction, 0);
    }
    EXPECT_EQ(year->descriptor.type, uint32_t{QV_TYPE_CHAR});
    EXPECT_EQ(qvtest::text_of(year.get()), std::to_string(after.year));
    char today[16];
    std::snprintf(today, sizeof today, "%04d-%02d-%02d", after.year, after.month, after.day);
    EXPECT_EQ(qvtest::text_of(plain.get()), today);
    EXPECT_EQ(result_of("SysDate('yyyy yyyy')"), "NULL");
    EXPECT_EQ(qvtest::builtin_row("DatetimeNow")->number, qvtest::builtin_row("SysDate")->number);
}

TEST_F(BuiltinDates, ConversionsReadTextNumbersAndDates) {
    expect_results({
        {"ToDate('31/01/2024', 'dd/mm/yyyy')", "2024-01-31 00:00:00.000000000"},
        {"ToDate('2024-01-31T10:20', 'yyyy-mm-dd\"T\"hh24:mi')", "2024-01-31 10:20:00.000000000"},
        {"ToDate(2451545)", "2000-01-01 00:00:00.000000000"},
        {"ToDate(9999999999)", "NULL"},
        {"ToDate(-9999999999)", "NULL"},
        {"ToDate('2024-02-30')", "NULL"},
        {"ToDate('30/02/2024', 'dd/mm/yyyy')", "NULL"},
        {"ToDate('12:00', 'hh24:mi')", "NULL"},
        {"ToDate('31/01/2024', 'dd/mm/yyyy yyyy')", "NULL"},
        {"ToDate('31/01/2024 10:00 +05:30', 'dd/mm/yyyy hh24:mi stzh:tzm')",
         "2024-01-31 10:00:00.000000000"},
        {"ToDate('2024-01-31', NULL)", "2024-01-31 00:00:00.000000000"},
        {"ToDate(NULL)", "NULL"},
        {"ToTime('10:11:12')", "10:11:12.000000000"},
        {"ToTime('10:11:12.25 +05:30')", "10:11:12.250000000"},
        {"ToTime(3661)", "01:01:01.000000000"},
        {"ToTime(ToDouble('0.5'))", "00:00:00.500000000"},
        {"ToTime(86400)", "NULL"},
        {"ToTime('25:00:00')", "NULL"},
        {"ToTime('10h30', 'hh24\"h\"mi')", "10:30:00.000000000"},
        {"ToTime('10h30', 'hh24 hh24')", "NULL"},
    });
    EXPECT_EQ(typed_result_of("ToDate('2024-01-31 10:00:00 +05:30')"),
              "DATE WITH TIME ZONE 2024-01-31 10:00:00.000000000 +05:30");
    EXPECT_EQ(typed_result_of("ToDate('31/01/2024', 'dd/mm/yyyy')"),
              "DATE 2024-01-31 00:00:00.000000000");
}

TEST_F(BuiltinDates, ValidityTestsUseTheirDefaultPatterns) {
    expect_results({
        // Date literals are dates already.
        {"IsValidDate('2024-02-29')", "TRUE"},
        // Text: "syyyy-mm-dd hh:mi:ss.fffffffff stzh:tzm", which may end early.
        {"IsValidDate('2023-02-29')", "FALSE"},
        {"IsValidDate('2024-02-29 10:11:12.5 CEST')", "TRUE"},
        {"IsValidDate('2024-02-29 10:11:12 Mars')", "FALSE"},
        {"IsValidDate('2024-13-01')", "FALSE"},
        {"IsValidDate('yesterday')", "FALSE"},
        {"IsValidDate('31/01/2024', 'dd/mm/yyyy')", "TRUE"},
        {"IsValidDate('31/01/2024', 'mm/dd/yyyy')", "FALSE"},
        {"IsValidDate('31/01/2024', 'dd/mm/yyyy dd')", "NULL"},
        {"IsValidDate(NULL)", "NULL"},
        // "hh:mi:ss.fffffffff stzh:tzm"
        {"IsValidTime('10:11:12')", "TRUE"},
        {"IsValidTime('23:59:59.999999999 -03:30')", "TRUE"},
        {"IsValidTime('24:00:00')", "FALSE"},
        {"IsValidTime('10:60')", "FALSE"},
        {"IsValidTime('10h', 'hh24\"h\"')", "TRUE"},
        {"IsValidTime(ToTime('10:00:00'))", "TRUE"},
        {"IsValidTime(86399)", "TRUE"},
        {"IsValidTime(86400)", "FALSE"},
        {"IsValidTime(-1)", "FALSE"},
    });
}

TEST_F(BuiltinDates, ZonesAreGivenOrMovedTo) {
    SetDefaultTimeZone_L(100);
    expect_results({
        {"SetTimeZone('+05:30', '2024-01-31 10:00:00')", "2024-01-31 10:00:00.000000000 +05:30"},
        {"SetTimeZone(530, '2024-01-31 10:00:00')", "2024-01-31 10:00:00.000000000 +05:30"},
        {"SetTimeZone(-330, '2024-01-31 10:00:00')", "2024-01-31 10:00:00.000000000 -03:30"},
        {"SetTimeZone('cest', ToTime('10:00:00'))", "10:00:00.000000000 +02:00"},
        {"SetTimeZone('UTC', '31.01.2024 10:00', 'dd.mm.yyyy hh24:mi')",
         "2024-01-31 10:00:00.000000000 +00:00"},
        {"SetTimeZone('UTC', '10:05:03')", "10:05:03.000000000 +00:00"},
        {"SetTimeZone('Mars', '2024-01-31')", "NULL"},
        {"SetTimeZone(2400, '2024-01-31')", "NULL"},
        {"SetTimeZone(160, '2024-01-31')", "NULL"},
        {"SetTimeZone(NULL, '2024-01-31')", "NULL"},
        {"SetTimeZone('UTC', 'no date')", "NULL"},
        {"ToTimeZone('+00:00', '2024-01-31 10:00:00 +05:30')",
         "2024-01-31 04:30:00.000000000 +00:00"},
        {"ToTimeZone('-03:30', '2024-01-01 01:00:00 +00:00')",
         "2023-12-31 21:30:00.000000000 -03:30"},
        {"ToTimeZone('EST', SetTimeZone('UTC', '2024-07-01 12:00:00'))",
         "2024-07-01 07:00:00.000000000 -05:00"},
        // No zone of its own: the default zone (+01:00 here).
        {"ToTimeZone('UTC', '2024-01-31 10:00:00')", "2024-01-31 09:00:00.000000000 +00:00"},
        {"ToTimeZone('UTC', ToTime('00:30:00'))", "23:30:00.000000000 +00:00"},
        {"ToTimeZone('+05:00', SetTimeZone('+00:00', ToTime('22:00:00')))",
         "03:00:00.000000000 +05:00"},
        {"ToTimeZone('+14:00', '32767-12-31 23:00:00 +00:00')", "NULL"},
        {"ToTimeZone('Mars', '2024-01-31 10:00:00')", "NULL"},
    });
    EXPECT_EQ(typed_result_of("SetTimeZone('UTC', ToTime('10:00:00'))"),
              "TIME WITH TIME ZONE 10:00:00.000000000 +00:00");
    EXPECT_EQ(typed_result_of("ToTimeZone(0, '2024-01-31 10:00:00 +01:00')"),
              "DATE WITH TIME ZONE 2024-01-31 09:00:00.000000000 +00:00");
    SetDefaultTimeZone_L(GetLocalTimeZone_L());
}

// ---- ToChar and ToDate round trips ----------------------------------------------------------

// What a pattern keeps of a date: the day, the second or the whole.
enum class Keeps { day, second, whole };

struct RoundTrip {
    const char *pattern;
    Keeps keeps;
    int years_around_now; // short years read back as the year nearest this one
};

// Patterns that read back what they print, between them naming every readable token.
constexpr RoundTrip round_trips[] = {
    {"syyyy-mm-dd hh:mi:ss.fffffffff", Keeps::whole, 1000},
    {"yyyy-mm-dd hh24:mi:ss.f", Keeps::second, 1000},
    {"yyyy-mm-dd hh24:mi:ss stzh:tzm", Keeps::second, 1000},
    {"dd month yyyy", Keeps::day, 1000},
    {"Mon dd, yyyy", Keeps::day, 1000},
    {"DD-MMM-YYYY HH12:MI:SS AM", Keeps::second, 1000},
    {"yyyy-mm-dd hh12.mi.ss pm", Keeps::second, 1000},
    {"yyyymmddhh24miss", Keeps::second, 1000},
    {"yyyy ddd sssss", Keeps::second, 1000},
    {"j", Keeps::day, 1000},
    {"iyyy-iw-d", Keeps::day, 1000},
    {"yyyy ww dy", Keeps::day, 1000},
    {"yyyy-mm ddth", Keeps::day, 1000},
    {"q yyyy-m-dd w", Keeps::day, 1000},
    {"yyyy ww Day", Keeps::day, 1000},
    {"dd/mm/yy", Keeps::day, 40},
    {"mm/dd/yyy", Keeps::day, 400},
    {"y-mm-dd", Keeps::day, 4},
    {"iyy-iw-d", Keeps::day, 400},
    {"iy-iw-d", Keeps::day, 40},
    {"i-iw-d", Keeps::day, 4},
};

TEST_F(BuiltinDates, ToCharAndToDateRoundTripEveryReadablePattern) {
    qvtest::Random random;
    QV_DATE_T now{};
    CurrentTimestamp_L(&now);
    for (const RoundTrip &trip : round_trips) {
        OwnedValue pattern = text_value(trip.pattern);
        for (int i = 0; i < 200; ++i) {
            QV_DATE_T date{};
            date.year = static_cast<int16_t>(now.year +
                                             random(-trip.years_around_now, trip.years_around_now));
            date.month = static_cast<uint8_t>(random(1, 12));
            date.day = static_cast<uint8_t>(random(1, DaysInMonth_L(date.month, date.year)));
            date.hour = static_cast<uint8_t>(random(0, 23));
            date.minute = static_cast<uint8_t>(random(0, 59));
            date.second = static_cast<uint8_t>(random(0, 59));
            date.fraction = random(0, 999999999);
            OwnedValue value = date_value(date);
            OwnedValue text = call("ToChar", {value.get(), pattern.get()});
            ASSERT_FALSE(text->is_null) << trip.pattern;
            OwnedValue back = call("ToDate", {text.get(), pattern.get()});
            ASSERT_FALSE(back->is_null) << trip.pattern << ": " << qvtest::text_of(text.get());
            OwnedValue again = call("ToChar", {back.get(), pattern.get()});
            ASSERT_EQ(qvtest::text_of(again.get()), qvtest::text_of(text.get())) << trip.pattern;
            const char *between = trip.keeps == Keeps::day ? "DaysBetween" : "SecondsBetween";
            QV_DATE_T start = date;
            if (trip.keeps == Keeps::day) start.hour = start.minute = start.second = 0;
            OwnedValue expected = date_value(start);
            ASSERT_EQ(call(between, {back.get(), expected.get()})->payload.integer, 0)
                << trip.pattern << ": " << qvtest::text_of(text.get());
            if (trip.keeps == Keeps::whole) {
                ASSERT_EQ(back->payload.date.fraction, date.fraction) << trip.pattern;
            }
        }
    }
}

TEST_F(BuiltinDates, ToCharPrintsDatesTimesAndIntervalsInAFormat) {
    SetDefaultTimeZone_L(-330);
    expect_results({
        {"ToChar('2024-01-05 13:04:05.123456789', 'dd.mm.yyyy hh24:mi:ss.fff')",
         "05.01.2024 13:04:05.123"},
        {"ToChar('2024-01-05', 'DDTH Month')", "05TH January"},
        {"ToChar('2024-01-05', 'Day')", "Friday"},
        {"ToChar('2024-01-05', 'Day dd')", "NULL"}, // the day named twice
        {"ToChar('2024-01-05 13:00:00', 'hh12 am')", "01 pm"},
        {"ToChar('2024-01-05', 'yyyy-mm-dd stzh:tzm')", "2024-01-05 -03:30"},
        {"ToChar('2024-01-05 00:00 +05:30', 'stzh:tzm')", "+05:30"},
        {"ToChar(ToTime('13:04:05'), 'hh24\"h\"mi')", "13h04"},
        {"ToChar(ToIntervalDS('1 02:03:04'), 'dd hh:mi')", "01 02:03"},
        {"ToChar(ToIntervalYM('-2-03'), 'yyyy-mm')", "-0002-03"},
        {"ToChar('2024-01-05', 'yyyy yyyy')", "NULL"},
        {"ToChar(ToIntervalYM('2-03'), 'dd hh')", "NULL"},
        // Other values ignore the format; a NULL format is no format.
        {"ToChar(12, 'yyyy')", "12"},
        {"ToChar('2024-01-05', NULL)", "2024-01-05 00:00:00.000000000"},
    });
    SetDefaultTimeZone_L(GetLocalTimeZone_L());
}

} // namespace
