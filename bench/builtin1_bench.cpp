// builtin1_bench.cpp - per-call cost of six built-ins beside the same work in Lua 5.4 and
// SQLite, each engine evaluating the call once per row as a host would drive it:
//   library  CallFunction_L on a frame whose argument values are ready (the evaluator's
//            per-row call); the result value is reused, so each call also frees the
//            previous row's text.
//   Lua      a compiled function `function(s) return string.sub(s, 8, 13) end`, its
//            arguments Lua values kept in the registry; per row: push function and
//            arguments, lua_pcall, read the result, pop.
//   SQLite   a prepared "SELECT substr(?1, 8, 6)" with its parameters bound once; per
//            row: sqlite3_step, read the column, sqlite3_reset.
// Lua and SQLite have no exact decimals: their Round works on a double.
#include <benchmark/benchmark.h>
#include <lua5.4/lua.hpp>
#include <sqlite3.h>

#include <cstring>
#include <string>
#include <vector>

#include "qv/builtin.h"
#include "qv/dataval.h"
#include "qv/precise.h"

namespace {

const char kText[] = "Hello, bright World of words";

// ---- The library -------------------------------------------------------------------------

struct LibraryCall {
    std::vector<QV_VALUE_T> values;
    std::vector<QV_VALUE_T *> arguments;
    QV_VALUE_T result{};
    EXP_CALL_FRAME_T frame{};

    LibraryCall(const char *name, std::size_t count) : values(count), arguments(count) {
        const ExpFunction *row = Get_BuiltInFns_L();
        while (std::strcmp(row->name, name) != 0) ++row;
        for (std::size_t i = 0; i < count; ++i) arguments[i] = &values[i];
        frame = {row,    static_cast<int32_t>(count), arguments.data(), QV_MODE_EVALUATE, nullptr,
                 nullptr};
    }
    ~LibraryCall() {
        for (QV_VALUE_T &v : values) FreeValue_L(&v);
        FreeValue_L(&result);
    }
};

void run(benchmark::State &state, LibraryCall &call) {
    for (auto _ : state) {
        CallFunction_L(&call.result, &call.frame);
        benchmark::DoNotOptimize(call.result.payload.integer);
    }
    if (call.result.is_null) state.SkipWithError("NULL result");
}

void text(QV_VALUE_T *v, const char *t) {
    SetTextValue_L(v, t, nullptr);
}

void Library_Substr(benchmark::State &state) {
    LibraryCall call("Substr", 3);
    text(&call.values[0], kText);
    SetIntegerValue_L(&call.values[1], 8);
    SetIntegerValue_L(&call.values[2], 6);
    run(state, call);
}
void Library_Upper(benchmark::State &state) {
    LibraryCall call("Upper", 1);
    text(&call.values[0], kText);
    run(state, call);
}
void Library_Concat3(benchmark::State &state) {
    LibraryCall call("Concat", 3);
    text(&call.values[0], "order ");
    SetIntegerValue_L(&call.values[1], 12345);
    text(&call.values[2], " shipped");
    run(state, call);
}
void Library_Replace(benchmark::State &state) {
    LibraryCall call("Replace", 3);
    text(&call.values[0], kText);
    text(&call.values[1], "o");
    text(&call.values[2], "0");
    run(state, call);
}
void Library_RoundNumber(benchmark::State &state) {
    LibraryCall call("Round", 2);
    SetValueTypePrecScale_L(&call.values[0], QV_TYPE_NUMBER, 12, 4);
    StringToBestNumberType_L("1234.5678", &call.values[0], 0, nullptr);
    SetIntegerValue_L(&call.values[1], 2);
    run(state, call);
}
void Library_Mod(benchmark::State &state) {
    LibraryCall call("Mod", 2);
    SetIntegerValue_L(&call.values[0], 1234567);
    SetIntegerValue_L(&call.values[1], 97);
    run(state, call);
}

// ---- Lua 5.4 -----------------------------------------------------------------------------

struct LuaCall {
    lua_State *L = luaL_newstate();
    int function = LUA_NOREF;
    std::vector<int> arguments;

    // `body` is the text of a function; `setup` pushes the arguments, which are kept.
    LuaCall(const char *body, void (*setup)(lua_State *), int count) {
        luaL_openlibs(L);
        if (luaL_dostring(L, (std::string("return ") + body).c_str()) != LUA_OK) std::abort();
        function = luaL_ref(L, LUA_REGISTRYINDEX);
        setup(L);
        for (int i = 0; i < count; ++i)
            arguments.insert(arguments.begin(), luaL_ref(L, LUA_REGISTRYINDEX));
    }
    ~LuaCall() { lua_close(L); }
};

void run(benchmark::State &state, LuaCall &call) {
    lua_State *L = call.L;
    for (auto _ : state) {
        lua_rawgeti(L, LUA_REGISTRYINDEX, call.function);
        for (int ref : call.arguments) lua_rawgeti(L, LUA_REGISTRYINDEX, ref);
        if (lua_pcall(L, static_cast<int>(call.arguments.size()), 1, 0) != LUA_OK) {
            state.SkipWithError(lua_tostring(L, -1));
            return;
        }
        size_t length = 0;
        if (lua_type(L, -1) == LUA_TSTRING)
            benchmark::DoNotOptimize(lua_tolstring(L, -1, &length));
        else
            benchmark::DoNotOptimize(lua_tonumber(L, -1));
        lua_pop(L, 1);
    }
}

void Lua_Substr(benchmark::State &state) {
    LuaCall call(
        "function(s) return string.sub(s, 8, 13) end",
        [](lua_State *L) { lua_pushstring(L, kText); }, 1);
    run(state, call);
}
void Lua_Upper(benchmark::State &state) {
    LuaCall call(
        "function(s) return string.upper(s) end", [](lua_State *L) { lua_pushstring(L, kText); },
        1);
    run(state, call);
}
void Lua_Concat3(benchmark::State &state) {
    LuaCall call(
        "function(a, b, c) return a .. b .. c end",
        [](lua_State *L) {
            lua_pushstring(L, "order ");
            lua_pushinteger(L, 12345);
            lua_pushstring(L, " shipped");
        },
        3);
    run(state, call);
}
void Lua_Replace(benchmark::State &state) {
    LuaCall call(
        "function(s, a, b) return (string.gsub(s, a, b)) end",
        [](lua_State *L) {
            lua_pushstring(L, kText);
            lua_pushstring(L, "o");
            lua_pushstring(L, "0");
        },
        3);
    run(state, call);
}
void Lua_RoundDouble(benchmark::State &state) {
    LuaCall call(
        "function(x, n) local m = 10.0 ^ n return math.floor(x * m + 0.5) / m end",
        [](lua_State *L) {
            lua_pushnumber(L, 1234.5678);
            lua_pushinteger(L, 2);
        },
        2);
    run(state, call);
}
void Lua_Mod(benchmark::State &state) {
    LuaCall call(
        "function(a, b) return a % b end",
        [](lua_State *L) {
            lua_pushinteger(L, 1234567);
            lua_pushinteger(L, 97);
        },
        2);
    run(state, call);
}

// ---- SQLite --------------------------------------------------------------------------------

struct SqliteCall {
    sqlite3 *db = nullptr;
    sqlite3_stmt *statement = nullptr;
    explicit SqliteCall(const char *sql) {
        sqlite3_open(":memory:", &db);
        if (sqlite3_prepare_v2(db, sql, -1, &statement, nullptr) != SQLITE_OK) std::abort();
    }
    ~SqliteCall() {
        sqlite3_finalize(statement);
        sqlite3_close(db);
    }
};

void run(benchmark::State &state, SqliteCall &call) {
    for (auto _ : state) {
        if (sqlite3_step(call.statement) != SQLITE_ROW) {
            state.SkipWithError("no row");
            return;
        }
        if (sqlite3_column_type(call.statement, 0) == SQLITE_TEXT)
            benchmark::DoNotOptimize(sqlite3_column_text(call.statement, 0));
        else
            benchmark::DoNotOptimize(sqlite3_column_double(call.statement, 0));
        sqlite3_reset(call.statement);
    }
}

void Sqlite_Substr(benchmark::State &state) {
    SqliteCall call("SELECT substr(?1, 8, 6)");
    sqlite3_bind_text(call.statement, 1, kText, -1, SQLITE_STATIC);
    run(state, call);
}
void Sqlite_Upper(benchmark::State &state) {
    SqliteCall call("SELECT upper(?1)");
    sqlite3_bind_text(call.statement, 1, kText, -1, SQLITE_STATIC);
    run(state, call);
}
void Sqlite_Concat3(benchmark::State &state) {
    SqliteCall call("SELECT ?1 || ?2 || ?3");
    sqlite3_bind_text(call.statement, 1, "order ", -1, SQLITE_STATIC);
    sqlite3_bind_int64(call.statement, 2, 12345);
    sqlite3_bind_text(call.statement, 3, " shipped", -1, SQLITE_STATIC);
    run(state, call);
}
void Sqlite_Replace(benchmark::State &state) {
    SqliteCall call("SELECT replace(?1, ?2, ?3)");
    sqlite3_bind_text(call.statement, 1, kText, -1, SQLITE_STATIC);
    sqlite3_bind_text(call.statement, 2, "o", -1, SQLITE_STATIC);
    sqlite3_bind_text(call.statement, 3, "0", -1, SQLITE_STATIC);
    run(state, call);
}
void Sqlite_RoundDouble(benchmark::State &state) {
    SqliteCall call("SELECT round(?1, ?2)");
    sqlite3_bind_double(call.statement, 1, 1234.5678);
    sqlite3_bind_int(call.statement, 2, 2);
    run(state, call);
}
void Sqlite_Mod(benchmark::State &state) {
    SqliteCall call("SELECT ?1 % ?2");
    sqlite3_bind_int64(call.statement, 1, 1234567);
    sqlite3_bind_int64(call.statement, 2, 97);
    run(state, call);
}

} // namespace

BENCHMARK(Library_Substr);
BENCHMARK(Lua_Substr);
BENCHMARK(Sqlite_Substr);
BENCHMARK(Library_Upper);
BENCHMARK(Lua_Upper);
BENCHMARK(Sqlite_Upper);
BENCHMARK(Library_Concat3);
BENCHMARK(Lua_Concat3);
BENCHMARK(Sqlite_Concat3);
BENCHMARK(Library_Replace);
BENCHMARK(Lua_Replace);
BENCHMARK(Sqlite_Replace);
BENCHMARK(Library_RoundNumber);
BENCHMARK(Lua_RoundDouble);
BENCHMARK(Sqlite_RoundDouble);
BENCHMARK(Library_Mod);
BENCHMARK(Lua_Mod);
BENCHMARK(Sqlite_Mod);

BENCHMARK_MAIN();
