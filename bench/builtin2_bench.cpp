// builtin2_bench.cpp - the date built-ins as an expression calls them (through the
// dispatcher, with values) beside the same work in SQLite's date functions (one prepared
// statement, the date bound as text, stepped and read) and in Lua 5.4's os.date / os.time
// (a Lua function called from C):
//
//   AddToDate( d, 30 )           date(d, '+30 days')                os.time{... day + 30}
//   DaysBetween( a, b )          julianday(a) - julianday(b)        os.difftime / 86400
//   ToChar( d, default pattern ) strftime('%Y-%m-%d %H:%M:%f', d)   os.date('%Y-%m-%d %H:%M:%S')
//   ToDate( text )               julianday(text)                    string.match + os.time
//
// Each loop walks 1024 generated timestamps between 1970 and 2037 (the range os.time takes
// everywhere), so that nothing is worked out once.
#include <benchmark/benchmark.h>
#include <lua5.4/lua.hpp>
#include <sqlite3.h>

#include <cstdio>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "qv/builtin.h"
#include "qv/dataval.h"
#include "qv/date.h"

namespace {

constexpr std::size_t count = 1024;

struct Sample {
    QV_DATE_T date;
    std::string text;      // "yyyy-mm-dd hh:mi:ss"
    std::time_t unix_time; // the same moment read as UTC
};

const std::vector<Sample> &samples() {
    static const std::vector<Sample> made = [] {
        std::vector<Sample> all;
        std::mt19937 random(7);
        for (std::size_t i = 0; i < count; ++i) {
            Sample s{};
            s.date = {static_cast<int16_t>(1970 + random() % 67),
                      static_cast<uint8_t>(1 + random() % 12),
                      static_cast<uint8_t>(1 + random() % 28),
                      static_cast<uint8_t>(random() % 24),
                      static_cast<uint8_t>(random() % 60),
                      static_cast<uint8_t>(random() % 60),
                      0,
                      0};
            char text[32];
            std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", s.date.year,
                          s.date.month, s.date.day, s.date.hour, s.date.minute, s.date.second);
            s.text = text;
            std::tm tm{};
            tm.tm_year = s.date.year - 1900, tm.tm_mon = s.date.month - 1;
            tm.tm_mday = s.date.day, tm.tm_hour = s.date.hour;
            tm.tm_min = s.date.minute, tm.tm_sec = s.date.second;
            s.unix_time = timegm(&tm);
            all.push_back(s);
        }
        return all;
    }();
    return made;
}

// ---- The library: a row of the built-in table called through the dispatcher ------------------

const ExpFunction *row(const char *name) {
    for (const ExpFunction *r = Get_BuiltInFns_L(); r->name != nullptr; ++r)
        if (std::string(r->name) == name) return r;
    return nullptr;
}

struct Call {
    explicit Call(const char *name) { frame.function = row(name); }
    ~Call() {
        FreeValue_L(&result);
        for (QV_VALUE_T &v : values) FreeValue_L(&v);
    }
    // Runs the call with the current arguments.
    void run() {
        frame.argument_count = static_cast<int32_t>(pointers.size());
        frame.arguments = pointers.data();
        frame.mode = QV_MODE_EVALUATE;
        CallFunction_L(&result, &frame);
    }
    void arguments(std::size_t n) {
        values.assign(n, QV_VALUE_T{});
        pointers.clear();
        for (QV_VALUE_T &v : values) pointers.push_back(&v);
    }
    EXP_CALL_FRAME_T frame{};
    QV_VALUE_T result{};
    std::vector<QV_VALUE_T> values;
    std::vector<QV_VALUE_T *> pointers;
};

void BM_AddToDate_Library(benchmark::State &state) {
    Call call("AddToDate");
    call.arguments(2);
    SetIntegerValue_L(&call.values[1], 30);
    std::size_t i = 0;
    for (auto _ : state) {
        SetDateValue_L(&call.values[0], QV_TYPE_DATE, &samples()[i++ % count].date);
        call.run();
        benchmark::DoNotOptimize(call.result.payload.date);
    }
}

void BM_DaysBetween_Library(benchmark::State &state) {
    Call call("DaysBetween");
    call.arguments(2);
    std::size_t i = 0;
    for (auto _ : state) {
        SetDateValue_L(&call.values[0], QV_TYPE_DATE, &samples()[i % count].date);
        SetDateValue_L(&call.values[1], QV_TYPE_DATE, &samples()[(i + 1) % count].date);
        ++i;
        call.run();
        benchmark::DoNotOptimize(call.result.payload.integer);
    }
}

void BM_ToChar_Library(benchmark::State &state) {
    Call call("ToChar");
    call.arguments(2);
    SetTextValue_L(&call.values[1], GetInternalDatetimeFormat_L(), nullptr);
    std::size_t i = 0;
    for (auto _ : state) {
        SetDateValue_L(&call.values[0], QV_TYPE_DATE, &samples()[i++ % count].date);
        call.run();
        benchmark::DoNotOptimize(call.result.payload.string.text);
    }
}

void BM_ToDate_Library(benchmark::State &state) {
    Call call("ToDate");
    call.arguments(state.range(0) ? 2 : 1);
    if (state.range(0)) SetTextValue_L(&call.values[1], "yyyy-mm-dd hh24:mi:ss", nullptr);
    std::vector<QV_VALUE_T> texts(count);
    for (std::size_t k = 0; k < count; ++k)
        SetTextValue_L(&texts[k], samples()[k].text.c_str(), nullptr);
    std::size_t i = 0;
    for (auto _ : state) {
        call.pointers[0] = &texts[i++ % count];
        call.run();
        benchmark::DoNotOptimize(call.result.payload.date);
    }
    state.SetLabel(state.range(0) ? "with a pattern" : "default forms");
    for (QV_VALUE_T &t : texts) FreeValue_L(&t);
}

// ---- SQLite ---------------------------------------------------------------------------------

struct Statement {
    explicit Statement(const char *sql) {
        sqlite3_open(":memory:", &db);
        sqlite3_prepare_v2(db, sql, -1, &statement, nullptr);
    }
    ~Statement() {
        sqlite3_finalize(statement);
        sqlite3_close(db);
    }
    sqlite3 *db = nullptr;
    sqlite3_stmt *statement = nullptr;
};

// Binds the texts, steps once and reads the first column as text or as a double.
template <bool text_result>
void run_sqlite(benchmark::State &state, const char *sql, int texts) {
    Statement s(sql);
    std::size_t i = 0;
    for (auto _ : state) {
        for (int t = 0; t < texts; ++t) {
            const std::string &text = samples()[(i + t) % count].text;
            sqlite3_bind_text(s.statement, t + 1, text.data(), static_cast<int>(text.size()),
                              SQLITE_STATIC);
        }
        ++i;
        sqlite3_step(s.statement);
        if constexpr (text_result)
            benchmark::DoNotOptimize(sqlite3_column_text(s.statement, 0));
        else
            benchmark::DoNotOptimize(sqlite3_column_double(s.statement, 0));
        sqlite3_reset(s.statement);
    }
}

void BM_AddToDate_SQLite(benchmark::State &state) {
    run_sqlite<true>(state, "SELECT date(?1, '+30 days')", 1);
}
void BM_DaysBetween_SQLite(benchmark::State &state) {
    run_sqlite<false>(state, "SELECT julianday(?1) - julianday(?2)", 2);
}
void BM_ToChar_SQLite(benchmark::State &state) {
    run_sqlite<true>(state, "SELECT strftime('%Y-%m-%d %H:%M:%f', ?1)", 1);
}
void BM_ToDate_SQLite(benchmark::State &state) {
    run_sqlite<false>(state, "SELECT julianday(?1)", 1);
}

// ---- Lua ------------------------------------------------------------------------------------

constexpr const char *lua_functions = R"(
function add_days(y, m, d, n)
  return os.date('*t', os.time{year = y, month = m, day = d + n, hour = 12})
end
function days_between(y1, m1, d1, y2, m2, d2)
  return os.difftime(os.time{year = y1, month = m1, day = d1, hour = 12},
                     os.time{year = y2, month = m2, day = d2, hour = 12}) // 86400
end
function to_char(t)
  return os.date('%Y-%m-%d %H:%M:%S', t)
end
function to_date(s)
  local y, m, d, H, M, S = s:match('(%d+)-(%d+)-(%d+) (%d+):(%d+):(%d+)')
  return os.time{year = tonumber(y), month = tonumber(m), day = tonumber(d),
                 hour = tonumber(H), min = tonumber(M), sec = tonumber(S)}
end
)";

struct Lua {
    Lua() {
        luaL_openlibs(state);
        luaL_dostring(state, lua_functions);
    }
    ~Lua() { lua_close(state); }
    void push_date(const QV_DATE_T &d) {
        lua_pushinteger(state, d.year);
        lua_pushinteger(state, d.month);
        lua_pushinteger(state, d.day);
    }
    lua_State *state = luaL_newstate();
};

void BM_AddToDate_Lua(benchmark::State &state) {
    Lua lua;
    std::size_t i = 0;
    for (auto _ : state) {
        lua_getglobal(lua.state, "add_days");
        lua.push_date(samples()[i++ % count].date);
        lua_pushinteger(lua.state, 30);
        lua_call(lua.state, 4, 1);
        lua_pop(lua.state, 1);
    }
}

void BM_DaysBetween_Lua(benchmark::State &state) {
    Lua lua;
    std::size_t i = 0;
    for (auto _ : state) {
        lua_getglobal(lua.state, "days_between");
        lua.push_date(samples()[i % count].date);
        lua.push_date(samples()[(i + 1) % count].date);
        ++i;
        lua_call(lua.state, 6, 1);
        benchmark::DoNotOptimize(lua_tointeger(lua.state, -1));
        lua_pop(lua.state, 1);
    }
}

void BM_ToChar_Lua(benchmark::State &state) {
    Lua lua;
    std::size_t i = 0;
    for (auto _ : state) {
        lua_getglobal(lua.state, "to_char");
        lua_pushinteger(lua.state, samples()[i++ % count].unix_time);
        lua_call(lua.state, 1, 1);
        benchmark::DoNotOptimize(lua_tostring(lua.state, -1));
        lua_pop(lua.state, 1);
    }
}

void BM_ToDate_Lua(benchmark::State &state) {
    Lua lua;
    std::size_t i = 0;
    for (auto _ : state) {
        const std::string &text = samples()[i++ % count].text;
        lua_getglobal(lua.state, "to_date");
        lua_pushlstring(lua.state, text.data(), text.size());
        lua_call(lua.state, 1, 1);
        benchmark::DoNotOptimize(lua_tointeger(lua.state, -1));
        lua_pop(lua.state, 1);
    }
}

} // namespace

BENCHMARK(BM_AddToDate_Library);
BENCHMARK(BM_AddToDate_SQLite);
BENCHMARK(BM_AddToDate_Lua);
BENCHMARK(BM_DaysBetween_Library);
BENCHMARK(BM_DaysBetween_SQLite);
BENCHMARK(BM_DaysBetween_Lua);
BENCHMARK(BM_ToChar_Library);
BENCHMARK(BM_ToChar_SQLite);
BENCHMARK(BM_ToChar_Lua);
BENCHMARK(BM_ToDate_Library)->Arg(0)->Arg(1);
BENCHMARK(BM_ToDate_SQLite);
BENCHMARK(BM_ToDate_Lua);

BENCHMARK_MAIN();
