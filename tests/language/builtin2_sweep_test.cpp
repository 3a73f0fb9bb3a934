// Every date, time, zone, interval, file and mail built-in called with extreme and NULL
// arguments in each position (of every type, not only those its row accepts), omitted
// arguments, in describe mode, with the result as one of the arguments, and with each
// allocation failing in turn: the result is a value of a type the row allows, or NULL;
// never a crash or a leak (run under make asan).
#include <cmath>
#include <limits>

#include "builtin2_call.hpp"

namespace {

using qvtest::OwnedValue;

// The rows of this half of the table.
constexpr const char *second_half[] = {
    "AddToDate",
    "DatetimeNow",
    "DaysBetween",
    "FileCheck",
    "FileList",
    "FileOpen",
    "FileClose",
    "FileRead",
    "FileWrite",
    "GetFilename",
    "GetDirectory",
    "FileFullPath",
    "FileFromParts",
    "IsLeapYear",
    "IsLeapYearDay",
    "IsValidDate",
    "SecondsBetween",
    "SendMail",
    "SysDate",
    "ToDate",
    "AddMonthsToDate",
    "AddYearsToDate",
    "FirstOfMonth",
    "LastOfMonth",
    "AddDaysToInterval",
    "AddMonthsToInterval",
    "AddSecondsToInterval",
    "AddYearsToInterval",
    "IsValidIntervalDS",
    "IsValidIntervalYM",
    "IsValidTime",
    "MonthsBetween",
    "SetTimeZone",
    "ToIntervalDS",
    "ToIntervalYM",
    "ToTime",
    "ToTimeZone",
    "ToChar",
};
static_assert(std::size(second_half) == 37 + 1); // and ToChar's date branch

// Values at the edges of every type.
std::vector<OwnedValue> extreme_values() {
    std::vector<OwnedValue> v;
    for (int64_t n : {INT64_MIN, INT64_MAX, int64_t{0}, int64_t{-1}, int64_t{2147483648}})
        v.push_back(qvtest::integer_value(n));
    for (double x : {std::nan(""), HUGE_VAL, -HUGE_VAL, 1e308, -1e308, -0.0, 5e-324})
        v.push_back(qvtest::float_value(x));
    OwnedValue big = qvtest::new_value();
    SetValueTypePrecScale_L(big.get(), QV_TYPE_NUMBER, 77, 0);
    StringToBestNumberType_L(std::string(77, '9').c_str(), big.get(), 0, nullptr);
    v.push_back(std::move(big));
    const std::string long_text(1 << 20, 'y');
    for (const char *text : {"", "%s%n%x", "\xff\xfe\xc3", "LOCAL", "READ", "*", "/",
                             "syyyy-mm-dd hh:mi:ss.fffffffff stzh:tzm", long_text.c_str()})
        v.push_back(qvtest::text_value(text));
    v.push_back(qvtest::new_value());
    SetBooleanValue_L(v.back().get(), 1);
    const QV_DATE_T dates[] = {{INT16_MIN, 1, 1, 0, 0, 0, 0, 0},
                               {INT16_MAX, 12, 31, 23, 59, 59, 999999999, 0},
                               {2024, 2, 29, 12, 0, 0, 0, 0},
                               {0, 0, 0, 0, 0, 0, 0, 0},
                               {2024, 13, 40, 99, 99, 99, -1, 9999}};
    for (const QV_DATE_T &d : dates)
        for (uint32_t type : {QV_TYPE_DATE, QV_TYPE_DATE_TZ, QV_TYPE_TIME, QV_TYPE_TIME_TZ}) {
            QV_DATE_T date = d;
            if (type == QV_TYPE_DATE_TZ || type == QV_TYPE_TIME_TZ) date.zone = INT16_MIN;
            v.push_back(qvtest::date_value(date, type));
        }
    v.push_back(qvtest::interval_value(
        QV_INTERVAL_DS_T{1, UINT32_MAX, UINT32_MAX, UINT32_MAX, UINT32_MAX, UINT32_MAX}));
    v.push_back(qvtest::interval_value(QV_INTERVAL_YM_T{0, UINT32_MAX, UINT32_MAX}));
    v.push_back(qvtest::new_value());
    AppendArrayValue_L(v.back().get(), v.front().get());
    for (uint32_t type = QV_TYPE_CHAR; type <= QV_TYPE_DATE_TZ; type <<= 1)
        v.push_back(qvtest::null_value(type));
    return v;
}

// An ordinary argument of the mask's first type.
OwnedValue ordinary(uint32_t mask, const std::string &folder) {
    QV_DATE_T date{2024, 1, 31, 10, 0, 0, 0, 0};
    if (mask & QV_TYPE_DATE) return qvtest::date_value(date);
    if (mask & QV_TYPE_INTERVAL_DS) return qvtest::evaluate("ToIntervalDS('1 02:03:04')");
    if (mask & QV_TYPE_INTERVAL_YM) return qvtest::evaluate("ToIntervalYM('1-02')");
    if (mask & QV_TYPE_CHAR) return qvtest::text_value((folder + "/f.txt").c_str());
    if (mask & QV_TYPE_INTEGER) return qvtest::integer_value(1);
    return qvtest::text_value("x");
}

// The mask of argument position i (0-based): the last listed one repeats.
uint32_t mask_at(const ExpFunction &row, uint32_t i) {
    while (i > 0 && row.arg_types[i] == 0) --i;
    return row.arg_types[i];
}

class BuiltinSweep : public qvtest::LanguageTest {
  protected:
    qvtest::TempDirectory folder;
    qvtest::ScopedEnvironment no_mail{"QV_SENDMAIL", "/nonexistent/sendmail"};

    // The result has a type the row allows (a row typed by its argument: any), or is NULL.
    static void check(const ExpFunction &row, const QV_VALUE_T &result) {
        if (result.is_null) return;
        const uint32_t type = result.descriptor.type;
        EXPECT_TRUE(row.result_type == 0 || (type & row.result_type) != 0 ||
                    std::string(row.name) == "ToChar")
            << row.name << " gave type " << type;
    }
};

TEST_F(BuiltinSweep, ExtremeAndNullArgumentsGiveAValueOrNull) {
    qvtest::write_file(folder / "f.txt", "line\n");
    const std::string dir = folder.path.string();
    const std::vector<OwnedValue> extremes = extreme_values();
    for (const char *name : second_half) {
        const ExpFunction *row = qvtest::builtin_row(name);
        ASSERT_NE(row, nullptr) << name;
        const uint32_t positions = std::min<uint32_t>(row->max_args, 8);
        std::vector<OwnedValue> base;
        for (uint32_t i = 0; i < positions; ++i) base.push_back(ordinary(mask_at(*row, i), dir));
        std::vector<QV_VALUE_T *> arguments;
        for (const OwnedValue &value : base) arguments.push_back(value.get());
        for (int32_t mode : {QV_MODE_EVALUATE, QV_MODE_DESCRIBE})
            for (uint32_t given = row->min_args; given <= positions; ++given) {
                const std::vector<QV_VALUE_T *> first(arguments.begin(), arguments.begin() + given);
                check(*row, *qvtest::call_row(row, first, mode));
            }
        for (uint32_t i = 0; i < positions; ++i) {
            for (const OwnedValue &extreme : extremes) {
                std::vector<QV_VALUE_T *> varied = arguments;
                varied[i] = extreme.get();
                check(*row, *qvtest::call_row(row, varied));
            }
        }
        CloseFunctionFiles_L();
    }
}

TEST_F(BuiltinSweep, AResultThatIsAlsoAnArgumentIsComputedAside) {
    qvtest::write_file(folder / "f.txt", "line\n");
    const std::string dir = folder.path.string();
    for (const char *name : second_half) {
        const ExpFunction *row = qvtest::builtin_row(name);
        if (row->max_args == 0) continue;
        const uint32_t positions = std::min<uint32_t>(row->max_args, 8);
        std::vector<OwnedValue> base;
        for (uint32_t i = 0; i < positions; ++i) base.push_back(ordinary(mask_at(*row, i), dir));
        std::vector<QV_VALUE_T *> arguments;
        for (const OwnedValue &value : base) arguments.push_back(value.get());
        OwnedValue expected = qvtest::call_row(row, arguments);
        EXP_CALL_FRAME_T frame{
            row,    static_cast<int32_t>(positions), arguments.data(), QV_MODE_EVALUATE, nullptr,
            nullptr};
        // FileOpen opens another slot, SysDate reads the clock again: compare the types.
        ASSERT_EQ(CallFunction_L(arguments[0], &frame), 0);
        EXPECT_EQ(arguments[0]->descriptor.type, expected->descriptor.type) << name;
        EXPECT_EQ(arguments[0]->is_null, expected->is_null) << name;
        CloseFunctionFiles_L();
    }
}

TEST_F(BuiltinSweep, AllocationFailuresRaiseAndLeakNothing) {
    const std::string dir = folder.path.string();
    ::mkdir((dir + "/sub").c_str(), 0700);
    qvtest::write_file(folder / "sub/a.csv", "a");
    qvtest::write_file(folder / "b.csv", "b");
    const std::string calls[] = {
        "FileList('" + dir + "/*.csv', TRUE, TRUE)",
        "FileFullPath('" + dir + "/sub/../b.csv')",
        "FileCheck('" + dir + "/b.csv', 'FILE', 'EMPTY')",
        "FileFromParts('" + dir + "', 'b', 'csv')",
        "SendMail('a@b', '', 'Grüße', 'text', 'x@y', '', '" + dir + "/b.csv')",
        "ToChar('2024-01-31', 'Month dd, yyyy \"and a literal of some length\"')",
        "ToTimeZone('UTC', '2024-01-31 10:00:00')",
    };
    for (const std::string &call : calls) {
        const std::vector<const char *> raised = qvtest::fail_each_allocation([&] {
            uint32_t described = 0;
            qvtest::evaluate_by_hand(call, described);
        });
        EXPECT_FALSE(raised.empty()) << call;
        for (const char *symbol : raised) EXPECT_EQ(symbol, ALLOC_FAILURE) << call;
        CloseFunctionFiles_L();
    }
}

} // namespace
