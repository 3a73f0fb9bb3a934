// The calling contract: the dispatcher calls form-A handlers of every maximum count 0..16
// with every number of given arguments (the rest null, whatever the frame holds past them),
// form-B handlers with the frame, and refuses frames it cannot call; Exit and the dummy
// Exit; the rules every row of the built-in table keeps.
#include <array>
#include <cstring>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "language.hpp"
#include "qv/encoding.h"
#include "qv/precise.h"

namespace {

using qvtest::LanguageTest;
using qvtest::raised_by;
using qvtest::Value;

using CallTest = LanguageTest;

// What the last handler called received.
struct Seen {
    int calls = 0;
    QV_VALUE_T *result = nullptr;
    EXP_CALL_FRAME_T *frame = nullptr;
    std::vector<QV_VALUE_T *> arguments;
} seen;

template <std::size_t>
using Pointer = QV_VALUE_T *;

// A form-A handler of N argument positions that records what it got.
template <class Positions>
struct Recorder;
template <std::size_t... Position>
struct Recorder<std::index_sequence<Position...>> {
    static void handler(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, Pointer<Position>... given) {
        seen = {seen.calls + 1, result, frame, {given...}};
    }
};

template <std::size_t... N>
constexpr std::array<EXP_HANDLER_T, sizeof...(N)> recorders(std::index_sequence<N...>) {
    return {reinterpret_cast<EXP_HANDLER_T>(&Recorder<std::make_index_sequence<N>>::handler)...};
}
const auto form_a_recorders = recorders(std::make_index_sequence<QV_MAX_ARGUMENTS + 1>{});

void form_b_recorder(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    seen = {seen.calls + 1, result, frame, {}};
}

ExpFunction record_of(uint32_t maximum, EXP_HANDLER_T handler, uint8_t repeat = 0) {
    ExpFunction record{};
    record.name = "F";
    record.max_args = maximum;
    record.handler = handler;
    record.repeat = repeat;
    return record;
}

TEST(Dispatcher, FormAGetsEveryGivenArgumentThenNullsUpToItsMaximum) {
    std::array<QV_VALUE_T, QV_MAX_ARGUMENTS> values{};
    QV_VALUE_T poison{};
    QV_VALUE_T result{};
    for (uint32_t maximum = 0; maximum <= QV_MAX_ARGUMENTS; ++maximum) {
        ExpFunction record = record_of(maximum, form_a_recorders[maximum]);
        for (uint32_t count = 0; count <= maximum; ++count) {
            // The frame's array holds the given arguments and then stale pointers.
            std::array<QV_VALUE_T *, QV_MAX_ARGUMENTS> given;
            given.fill(&poison);
            for (uint32_t i = 0; i < count; ++i) given[i] = &values[i];
            EXP_CALL_FRAME_T frame{&record,      static_cast<int32_t>(count),
                                   given.data(), QV_MODE_EVALUATE,
                                   nullptr,      nullptr};
            const int calls = seen.calls;
            ASSERT_EQ(CallFunction_L(&result, &frame), 0);
            ASSERT_EQ(seen.calls, calls + 1);
            EXPECT_EQ(seen.result, &result);
            EXPECT_EQ(seen.frame, &frame);
            ASSERT_EQ(seen.arguments.size(), maximum);
            for (uint32_t i = 0; i < maximum; ++i)
                EXPECT_EQ(seen.arguments[i], i < count ? &values[i] : nullptr)
                    << "maximum " << maximum << ", count " << count << ", position " << i;
        }
    }
}

TEST(Dispatcher, FormBGetsTheResultAndTheFrameWhateverTheCount) {
    QV_VALUE_T result{}, value{};
    QV_VALUE_T *given[20] = {};
    std::fill(std::begin(given), std::end(given), &value);
    for (uint32_t maximum : {0u, 1u, 16u, 17u, QV_UNLIMITED_ARGUMENTS}) {
        ExpFunction record =
            record_of(maximum, reinterpret_cast<EXP_HANDLER_T>(form_b_recorder), 1);
        EXP_CALL_FRAME_T frame{&record, 20, given, QV_MODE_DESCRIBE, nullptr, nullptr};
        ASSERT_EQ(CallFunction_L(&result, &frame), 0);
        EXPECT_EQ(seen.result, &result);
        EXPECT_EQ(seen.frame, &frame);
        EXPECT_EQ(seen.frame->mode, QV_MODE_DESCRIBE);
    }
}

TEST(Dispatcher, RefusesFramesItCannotCall) {
    QV_VALUE_T result{}, value{};
    QV_VALUE_T *given[QV_MAX_ARGUMENTS + 1] = {&value, &value, &value};
    ExpFunction two = record_of(2, form_a_recorders[2]);
    ExpFunction seventeen = record_of(17, form_a_recorders[16]);
    ExpFunction unlimited = record_of(QV_UNLIMITED_ARGUMENTS, form_a_recorders[16]);
    ExpFunction no_handler = record_of(1, nullptr);
    struct Case {
        const char *what;
        QV_VALUE_T *result;
        const ExpFunction *record;
        int32_t count;
        QV_VALUE_T **arguments;
        bool frame;
    };
    const Case cases[] = {
        {"null result", nullptr, &two, 0, given, true},
        {"null frame", &result, &two, 0, given, false},
        {"null record", &result, nullptr, 0, given, true},
        {"no handler (a user-defined function)", &result, &no_handler, 1, given, true},
        {"form A above 16", &result, &seventeen, 1, given, true},
        {"form A without limit", &result, &unlimited, 1, given, true},
        {"more arguments than the maximum", &result, &two, 3, given, true},
        {"a count of INT32_MAX", &result, &two, INT32_MAX, given, true},
        {"a count without arguments", &result, &two, 1, nullptr, true},
    };
    for (const Case &c : cases) {
        EXP_CALL_FRAME_T frame{c.record, c.count, c.arguments, QV_MODE_EVALUATE, nullptr, nullptr};
        const int calls = seen.calls;
        EXPECT_EQ(CallFunction_L(c.result, c.frame ? &frame : nullptr), -1) << c.what;
        EXPECT_EQ(seen.calls, calls) << c.what;
    }
    // A negative count gives nothing, and no arguments are needed for none.
    for (int32_t count : {-1, INT32_MIN, 0}) {
        EXP_CALL_FRAME_T frame{&two, count, nullptr, QV_MODE_EVALUATE, nullptr, nullptr};
        EXPECT_EQ(CallFunction_L(&result, &frame), 0) << count;
        EXPECT_EQ(seen.arguments, (std::vector<QV_VALUE_T *>{nullptr, nullptr})) << count;
    }
}

// ---- Exit ---------------------------------------------------------------------------------

const ExpFunction *exit_row(const ExpFunction *table) {
    for (; table->name != nullptr; ++table)
        if (std::strcmp(table->name, "Exit") == 0) return table;
    return nullptr;
}

// Calls Exit of `table` with `argument` (null: omitted). The status raised, or null.
const char *call_exit(const ExpFunction *table, QV_VALUE_T *argument, QV_VALUE_T *result,
                      int32_t mode = QV_MODE_EVALUATE) {
    QV_VALUE_T *given[] = {argument};
    EXP_CALL_FRAME_T frame{exit_row(table), argument == nullptr ? 0 : 1, given, mode, nullptr,
                           nullptr};
    return raised_by([&] { EXPECT_EQ(CallFunction_L(result, &frame), 0); });
}

TEST_F(CallTest, ExitRaisesTheCodeItsArgumentGives) {
    struct Case {
        std::string what;
        void (*make)(QV_VALUE_T *);
        int32_t code;
    };
    const Case cases[] = {
        {"omitted", nullptr, 0},
        {"NULL", [](QV_VALUE_T *v) { FreeValue_L(SetValueType_L(v, QV_TYPE_INTEGER)); }, 0},
        {"INTEGER", [](QV_VALUE_T *v) { SetIntegerValue_L(v, 7); }, 7},
        {"INTEGER past 32 bits", [](QV_VALUE_T *v) { SetIntegerValue_L(v, INT64_MIN); }, INT32_MIN},
        {"FLOAT cut", [](QV_VALUE_T *v) { SetFloatValue_L(v, -3.9); }, -3},
        {"FLOAT huge", [](QV_VALUE_T *v) { SetFloatValue_L(v, 1e300); }, INT32_MAX},
        {"FLOAT NaN", [](QV_VALUE_T *v) { SetFloatValue_L(v, std::nan("")); }, 0},
        {"NUMBER cut",
         [](QV_VALUE_T *v) {
             SetValueTypePrecScale_L(v, QV_TYPE_NUMBER, 30, 2);
             StringToBestNumberType_L("12.75", v, 0, nullptr);
         },
         12},
        {"NUMBER beyond 64 bits",
         [](QV_VALUE_T *v) {
             SetValueTypePrecScale_L(v, QV_TYPE_NUMBER, 40, 0);
             StringToBestNumberType_L("-123456789012345678901234567890", v, 0, nullptr);
         },
         INT32_MIN},
        {"CHAR read by atol", [](QV_VALUE_T *v) { SetTextValue_L(v, " 42abc", nullptr); }, 42},
        {"CHAR not a number", [](QV_VALUE_T *v) { SetTextValue_L(v, "abc", nullptr); }, 0},
        {"CHAR in UTF-16",
         [](QV_VALUE_T *v) {
             const char16_t text[] = u"-15";
             SetTextValue_L(v, reinterpret_cast<const char *>(text), UTF16Encoding_L());
         },
         -15},
        {"BOOLEAN", [](QV_VALUE_T *v) { SetBooleanValue_L(v, 1); }, 1},
    };
    for (const Case &c : cases) {
        Value argument, result;
        if (c.make != nullptr) c.make(argument.get());
        Exc_Status = -999;
        EXPECT_EQ(call_exit(Get_BuiltInFns_L(), c.make ? argument.get() : nullptr, result.get()),
                  STATUS_RAISED)
            << c.what;
        EXPECT_EQ(Exc_Status, c.code) << c.what;
        EXPECT_STREQ(Exc_Status_Symbol, "exit_code") << c.what;
        EXPECT_EQ(result->descriptor.type, QV_TYPE_BOOLEAN) << c.what;
        EXPECT_EQ(result->is_null, 0) << c.what;
        EXPECT_EQ(result->payload.boolean, 1) << c.what;
    }
}

TEST_F(CallTest, DescribedOrDummyExitSetsItsResultAndEndsNothing) {
    Value code;
    SetIntegerValue_L(code.get(), 3);
    Value described;
    SetTextValue_L(described.get(), "an owned text to be freed", nullptr);
    EXPECT_EQ(call_exit(Get_BuiltInFns_L(), code.get(), described.get(), QV_MODE_DESCRIBE),
              nullptr);
    EXPECT_EQ(described->descriptor.type, QV_TYPE_BOOLEAN);
    for (QV_VALUE_T *argument : {code.get(), static_cast<QV_VALUE_T *>(nullptr)}) {
        Value result;
        EXPECT_EQ(call_exit(Get_DummyBuiltInFns_L(), argument, result.get()), nullptr);
        EXPECT_EQ(result->descriptor.type, QV_TYPE_BOOLEAN);
        EXPECT_EQ(result->is_null, 0);
        EXPECT_EQ(result->payload.boolean, 1);
    }
    EXPECT_EQ(call_exit(Get_BuiltInFns_L(), code.get(), code.get()), STATUS_RAISED);
    EXPECT_EQ(Exc_Status, 3) << "the argument is read before the result, its alias, is set";
    BI_exit(nullptr, nullptr, nullptr); // nothing to set, nothing raised
    Value result;
    BI_exit(result.get(), nullptr, code.get()); // no frame: described
    EXPECT_EQ(result->descriptor.type, QV_TYPE_BOOLEAN);
}

// ---- The tables ---------------------------------------------------------------------------

bool all_zero(const ExpFunction &record) {
    static const ExpFunction zero{};
    return std::memcmp(&record, &zero, sizeof zero) == 0;
}

// The rules every row keeps, whichever rows the table holds.
TEST(BuiltInTable, EveryRowIsWellFormedAndTheTableEndsWithAZeroRow) {
    const ExpFunction *row = Get_BuiltInFns_L();
    std::set<std::string> names;
    std::set<int32_t> numbers;
    for (; row->name != nullptr; ++row) {
        const std::string name = row->name;
        SCOPED_TRACE(name);
        std::string lowered = name;
        for (char &c : lowered) c = static_cast<char>(std::tolower(c));
        EXPECT_TRUE(names.insert(lowered).second) << "names are unique without case";
        EXPECT_TRUE(numbers.insert(row->number).second || row->number == 2068);
        const int32_t n = row->number;
        EXPECT_TRUE(n == QV_FUNCTION_EXIT || (n >= 2001 && n <= 2099) || n == 3004 || n == 3006 ||
                    (n >= 5000 && n <= 5009));
        ASSERT_NE(row->usage, nullptr);
        EXPECT_EQ(strncasecmp(row->usage, row->name, name.size()), 0) << row->usage;
        EXPECT_EQ(row->usage[name.size()], '(') << row->usage;
        EXPECT_NE(row->handler, nullptr);
        EXPECT_LE(row->min_args, row->max_args);
        const uint32_t positions = row->repeat ? QV_MAX_ARGUMENTS : row->max_args;
        if (!row->repeat) {
            EXPECT_LE(row->max_args, uint32_t{QV_MAX_ARGUMENTS});
        }
        for (uint32_t i = 0; i < QV_MAX_ARGUMENTS; ++i) {
            if (i >= positions) {
                EXPECT_EQ(row->arg_types[i], 0u) << "position " << i + 1;
            } else if (!row->repeat) {
                EXPECT_NE(row->arg_types[i], 0u) << "position " << i + 1;
            }
        }
        if (row->repeat) {
            EXPECT_NE(row->arg_types[0], 0u);
        }
        for (char *text : row->texts) EXPECT_EQ(text, nullptr);
        for (uint32_t word : row->words) EXPECT_EQ(word, 0u);
    }
    EXPECT_TRUE(all_zero(*row));
    EXPECT_TRUE(names.contains("exit"));
}

TEST(BuiltInTable, ExitAndTheDummyTableAreAsLaidOut) {
    const ExpFunction *exit = exit_row(Get_BuiltInFns_L());
    ASSERT_NE(exit, nullptr);
    const ExpFunction *dummy = Get_DummyBuiltInFns_L();
    ASSERT_EQ(dummy, exit_row(dummy)) << "the dummy table's one row";
    EXPECT_TRUE(all_zero(dummy[1]));
    EXPECT_EQ(exit->handler, reinterpret_cast<EXP_HANDLER_T>(BI_exit));
    EXPECT_EQ(dummy->handler, reinterpret_cast<EXP_HANDLER_T>(BI_dummy_exit));
    EXPECT_EQ(exit->arg_types[0], 151u);
    EXPECT_EQ(dummy->arg_types[0], uint32_t{QV_MASK_ANY_BUT_ARRAY});
    // Otherwise the two rows are the same.
    for (const ExpFunction *row : {exit, dummy}) {
        EXPECT_STREQ(row->usage, "Exit( code )");
        EXPECT_EQ(row->number, 1001);
        EXPECT_EQ(row->category, QV_CATEGORY_MISCELLANEOUS);
        EXPECT_EQ(row->max_args, 1u);
        EXPECT_EQ(row->min_args, 0u);
        EXPECT_EQ(row->result_type, uint32_t{QV_TYPE_BOOLEAN});
        EXPECT_EQ(row->repeat, 0);
        for (uint32_t i = 1; i < QV_MAX_ARGUMENTS; ++i) EXPECT_EQ(row->arg_types[i], 0u);
    }
}

} // namespace
