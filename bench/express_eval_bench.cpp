// express_eval_bench.cpp - per-row evaluation of the expressions E1 to E7, parsed once, each
// beside the same work done by its peers in this binary:
//   qvcommon  the expression parsed and validated once, its names bound to records of the
//             host; per row: the row's fields written into those records (numbers and dates
//             stored, texts pointed at, NUMBER records copied), Solve_Expression_L, the
//             result read from the expression.
//   native    the same computation written in C++ over the row (the floor); texts built
//             into one reused std::string, upper case by bytes (ASCII only).
//   muparser  E1 and E2 (it has no texts, dates or NULLs): variables defined once, Eval per
//             row.
//   Lua 5.4   a compiled chunk `local x, y, z = ...; return ...` kept in the registry; per
//             row: push it and the row's values, lua_pcall, read the result, pop.
//   SQLite    a prepared SELECT with parameters; per row: bind them, sqlite3_step, read the
//             column, sqlite3_reset. LIKE made case-sensitive (PRAGMA case_sensitive_like).
// Neither Lua nor SQLite has exact decimals: for E7 Lua multiplies integer cents, SQLite
// doubles; E6 in Lua normalises a date table with os.time, in SQLite it is date(?, '+30
// days') over text.
#include <benchmark/benchmark.h>
#include <lua5.4/lua.hpp>
#include <muParser.h>
#include <sqlite3.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "qv/dataval.h"
#include "qv/date.h"
#include "qv/express.h"
#include "qv/precise.h"
#include "expressions.hpp"

namespace {

// ---- The rows ----------------------------------------------------------------------------

struct Row {
    double x, y, z;
    std::string name, code, date_text;
    QV_DATE_T d;
    int64_t a;
    bool a_null;
    QV_PRECISE_T price; // NUMBER(10,2)
    int64_t price_cents;
    int64_t qty;
};

constexpr std::size_t kRows = 1024;

const std::vector<Row> &rows() {
    static const std::vector<Row> made = [] {
        const char *names[] = {"alice", "Bob",   "Carol", "dave", "Eve", "frank",
                               "Grace", "heidi", "Ivan",  "Zoë",  "Åsa", "Andrea"};
        std::mt19937 random(7);
        auto uniform = [&](double low, double high) {
            return std::uniform_real_distribution<double>(low, high)(random);
        };
        auto integer = [&](int64_t low, int64_t high) {
            return std::uniform_int_distribution<int64_t>(low, high)(random);
        };
        std::vector<Row> rows(kRows);
        for (std::size_t i = 0; i < kRows; ++i) {
            Row &r = rows[i];
            r.x = uniform(0, 100);
            r.y = uniform(0, 100);
            r.z = uniform(-50, 50);
            r.name = names[integer(0, 11)];
            for (int c = 0; c < 3; ++c) r.code += static_cast<char>('A' + integer(0, 25));
            r.code += std::to_string(integer(1000, 9999));
            r.d = QV_DATE_T{static_cast<int16_t>(integer(2000, 2024)),
                            static_cast<uint8_t>(integer(1, 12)),
                            static_cast<uint8_t>(integer(1, 28)),
                            0,
                            0,
                            0,
                            0,
                            0};
            char text[16];
            std::snprintf(text, sizeof text, "%04d-%02d-%02d", r.d.year, r.d.month, r.d.day);
            r.date_text = text;
            r.a = integer(0, 999);
            r.a_null = i % 10 == 9;
            r.price_cents = integer(1, 999999);
            NewPrecise_L(&r.price, 10, 2);
            IntegerToPrecise_L(&r.price, r.price_cents, 2);
            r.qty = integer(1, 100);
        }
        return rows;
    }();
    return made;
}

// ---- The library ---------------------------------------------------------------------------

// The host's records, one per column.
struct Columns {
    QV_VALUE_T x{}, y{}, z{}, name{}, code{}, d{}, a{}, price{}, qty{};
    Columns() {
        SetFloatValue_L(&x, 0);
        SetFloatValue_L(&y, 0);
        SetFloatValue_L(&z, 0);
        SetTextValue_L(&name, "", nullptr);
        FreeValue_L(&name);
        name.is_null = 0;
        code = name;
        SetDateValue_L(&d, QV_TYPE_DATE, &rows()[0].d);
        SetIntegerValue_L(&a, 0);
        price = rows()[0].price;
        SetIntegerValue_L(&qty, 0);
    }
    // Writes the row's fields into the records; texts are pointed at, not copied.
    void load(const Row &r) {
        x.payload.real = r.x;
        y.payload.real = r.y;
        z.payload.real = r.z;
        name.payload.string.text = const_cast<char *>(r.name.c_str());
        code.payload.string.text = const_cast<char *>(r.code.c_str());
        d.payload.date = r.d;
        a.payload.integer = r.a;
        a.is_null = r.a_null;
        price = r.price;
        qty.payload.integer = r.qty;
    }
};

const auto &texts = bench::row_expressions;

void qvcommon(benchmark::State &state, int which) {
    Columns columns;
    const std::vector<Row> &data = rows();
    columns.load(data[0]);
    EXPRESSION_T *e = New_Expression_L(texts[which]);
    Parse_Expression_L(e, EXP_MASK_EXPRESSION | EXP_MASK_CONDITION, nullptr, 0);
    const EXP_BINDING_T bindings[] = {
        {"x", &columns.x},       {"y", &columns.y},         {"z", &columns.z},
        {"name", &columns.name}, {"code", &columns.code},   {"d", &columns.d},
        {"a", &columns.a},       {"price", &columns.price}, {"qty", &columns.qty},
    };
    if (BindExpression_L(e, bindings, 9) != 0 || Validate_Expression_L(e) != 1) {
        state.SkipWithError("does not validate");
        Free_Expression_L(e);
        return;
    }
    std::size_t i = 0;
    int failed = 0;
    for (auto _ : state) {
        columns.load(data[i++ % kRows]);
        failed += Solve_Expression_L(e);
        benchmark::DoNotOptimize(e->result.payload);
    }
    if (failed != 0) state.SkipWithError("an evaluation failed");
    Free_Expression_L(e);
    FreeValue_L(&columns.x); // the rest own nothing
}

// ---- Native ------------------------------------------------------------------------------

void native(benchmark::State &state, int which) {
    const std::vector<Row> &data = rows();
    std::size_t i = 0;
    std::string text;
    for (auto _ : state) {
        const Row &r = data[i++ % kRows];
        switch (which) {
            case 0: benchmark::DoNotOptimize((r.x + r.y) * 2.5 - r.z / 3); break;
            case 1: benchmark::DoNotOptimize(r.x > 50 ? r.x * 2 : r.y / 2); break;
            case 2: benchmark::DoNotOptimize((r.x > 10 && r.y < 20) || r.name[0] == 'A'); break;
            case 3:
                text.clear();
                for (char c : r.name)
                    text += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
                text += '-';
                text.append(r.code, 0, 3);
                benchmark::DoNotOptimize(text.data());
                break;
            case 4: benchmark::DoNotOptimize((r.a_null ? 0 : r.a) + r.y); break;
            case 5: {
                using namespace std::chrono;
                const year_month_day date{year{r.d.year}, month{r.d.month}, day{r.d.day}};
                const year_month_day later{sys_days{date} + days{30}};
                benchmark::DoNotOptimize(later);
                break;
            }
            default: benchmark::DoNotOptimize(r.price_cents * r.qty);
        }
    }
}

// ---- muparser ------------------------------------------------------------------------------

void muparser(benchmark::State &state, int which) {
    double x = 0, y = 0, z = 0;
    mu::Parser parser;
    parser.DefineVar("x", &x);
    parser.DefineVar("y", &y);
    parser.DefineVar("z", &z);
    parser.SetExpr(which == 0 ? "(x + y) * 2.5 - z / 3" : "x > 50 ? x * 2 : y / 2");
    const std::vector<Row> &data = rows();
    std::size_t i = 0;
    for (auto _ : state) {
        const Row &r = data[i++ % kRows];
        x = r.x;
        y = r.y;
        z = r.z;
        benchmark::DoNotOptimize(parser.Eval());
    }
}

// ---- Lua -----------------------------------------------------------------------------------

const char *const lua_chunks[] = {
    "local x, y, z = ...; return (x + y) * 2.5 - z / 3",
    "local x, y = ...; if x > 50 then return x * 2 else return y / 2 end",
    "local x, y, name = ...; return x > 10 and y < 20 or name:sub(1, 1) == 'A'",
    "local name, code = ...; return string.upper(name) .. '-' .. string.sub(code, 1, 3)",
    "local a, y = ...; return (a or 0) + y",
    "local y, m, d = ...; return os.time{year = y, month = m, day = d + 30, hour = 12}",
    "local cents, qty = ...; return cents * qty",
};

int push_lua_arguments(lua_State *lua, int which, const Row &r) {
    switch (which) {
        case 0:
            lua_pushnumber(lua, r.x), lua_pushnumber(lua, r.y), lua_pushnumber(lua, r.z);
            return 3;
        case 1: lua_pushnumber(lua, r.x), lua_pushnumber(lua, r.y); return 2;
        case 2:
            lua_pushnumber(lua, r.x), lua_pushnumber(lua, r.y), lua_pushstring(lua, r.name.c_str());
            return 3;
        case 3: lua_pushstring(lua, r.name.c_str()), lua_pushstring(lua, r.code.c_str()); return 2;
        case 4:
            if (r.a_null)
                lua_pushnil(lua);
            else
                lua_pushinteger(lua, r.a);
            lua_pushnumber(lua, r.y);
            return 2;
        case 5:
            lua_pushinteger(lua, r.d.year), lua_pushinteger(lua, r.d.month),
                lua_pushinteger(lua, r.d.day);
            return 3;
        default: lua_pushinteger(lua, r.price_cents), lua_pushinteger(lua, r.qty); return 2;
    }
}

void lua(benchmark::State &state, int which) {
    lua_State *lua = luaL_newstate();
    luaL_openlibs(lua);
    if (luaL_loadstring(lua, lua_chunks[which]) != LUA_OK) {
        state.SkipWithError(lua_tostring(lua, -1));
        lua_close(lua);
        return;
    }
    const int chunk = luaL_ref(lua, LUA_REGISTRYINDEX);
    const std::vector<Row> &data = rows();
    std::size_t i = 0;
    int failed = 0;
    for (auto _ : state) {
        const Row &r = data[i++ % kRows];
        lua_rawgeti(lua, LUA_REGISTRYINDEX, chunk);
        const int count = push_lua_arguments(lua, which, r);
        failed += lua_pcall(lua, count, 1, 0) != LUA_OK;
        benchmark::DoNotOptimize(lua_touserdata(lua, -1));
        lua_pop(lua, 1);
    }
    if (failed != 0) state.SkipWithError("a call failed");
    lua_close(lua);
}

// ---- SQLite --------------------------------------------------------------------------------

const char *const selects[] = {
    "SELECT (?1 + ?2) * 2.5 - ?3 / 3",
    "SELECT CASE WHEN ?1 > 50 THEN ?1 * 2 ELSE ?2 / 2 END",
    "SELECT ?1 > 10 AND ?2 < 20 OR ?3 LIKE 'A%'",
    "SELECT upper(?1) || '-' || substr(?2, 1, 3)",
    "SELECT ifnull(?1, 0) + ?2",
    "SELECT date(?1, '+30 days')",
    "SELECT ?1 * ?2",
};

void bind_sqlite(sqlite3_stmt *statement, int which, const Row &r) {
    switch (which) {
        case 0:
            sqlite3_bind_double(statement, 1, r.x);
            sqlite3_bind_double(statement, 2, r.y);
            sqlite3_bind_double(statement, 3, r.z);
            break;
        case 1:
            sqlite3_bind_double(statement, 1, r.x);
            sqlite3_bind_double(statement, 2, r.y);
            break;
        case 2:
            sqlite3_bind_double(statement, 1, r.x);
            sqlite3_bind_double(statement, 2, r.y);
            sqlite3_bind_text(statement, 3, r.name.c_str(), -1, SQLITE_STATIC);
            break;
        case 3:
            sqlite3_bind_text(statement, 1, r.name.c_str(), -1, SQLITE_STATIC);
            sqlite3_bind_text(statement, 2, r.code.c_str(), -1, SQLITE_STATIC);
            break;
        case 4:
            if (r.a_null)
                sqlite3_bind_null(statement, 1);
            else
                sqlite3_bind_int64(statement, 1, r.a);
            sqlite3_bind_double(statement, 2, r.y);
            break;
        case 5: sqlite3_bind_text(statement, 1, r.date_text.c_str(), -1, SQLITE_STATIC); break;
        default:
            sqlite3_bind_double(statement, 1, static_cast<double>(r.price_cents) / 100);
            sqlite3_bind_int64(statement, 2, r.qty);
    }
}

void sqlite(benchmark::State &state, int which) {
    sqlite3 *db = nullptr;
    sqlite3_stmt *statement = nullptr;
    sqlite3_open(":memory:", &db);
    sqlite3_exec(db, "PRAGMA case_sensitive_like = ON", nullptr, nullptr, nullptr);
    if (sqlite3_prepare_v2(db, selects[which], -1, &statement, nullptr) != SQLITE_OK) {
        state.SkipWithError(sqlite3_errmsg(db));
        sqlite3_close(db);
        return;
    }
    const std::vector<Row> &data = rows();
    std::size_t i = 0;
    int failed = 0;
    for (auto _ : state) {
        bind_sqlite(statement, which, data[i++ % kRows]);
        failed += sqlite3_step(statement) != SQLITE_ROW;
        benchmark::DoNotOptimize(sqlite3_column_text(statement, 0));
        sqlite3_reset(statement);
    }
    if (failed != 0) state.SkipWithError("a step failed");
    sqlite3_finalize(statement);
    sqlite3_close(db);
}

// ---- Registration ------------------------------------------------------------------------------

[[maybe_unused]] const bool registered = [] {
    for (int which = 0; which < 7; ++which) {
        const std::string e = "E" + std::to_string(which + 1) + "/";
        benchmark::RegisterBenchmark((e + "qvcommon").c_str(), qvcommon, which);
        benchmark::RegisterBenchmark((e + "native").c_str(), native, which);
        if (which < 2) benchmark::RegisterBenchmark((e + "muparser").c_str(), muparser, which);
        benchmark::RegisterBenchmark((e + "lua").c_str(), lua, which);
        benchmark::RegisterBenchmark((e + "sqlite").c_str(), sqlite, which);
    }
    return true;
}();

} // namespace

BENCHMARK_MAIN();
