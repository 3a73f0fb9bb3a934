// express_script_bench.cpp - running scripts beside Lua 5.4 in the same program:
//   a counted loop summing 1..1,000,000   FOR $i := 1 TO 1000000 DO $s := $s + $i
//                                          for i = 1, 1000000 do s = s + i end
//   Fibonacci(25), recursive, through a user-defined function / a Lua function.
// Each side is parsed (compiled) once; an iteration is one run (Run_Script_L / lua_pcall).
// The library's runs go through the host's entry point, status context and all.
#include <benchmark/benchmark.h>
#include <lua5.4/lua.hpp>

#include <cstdlib>
#include <string>

#include "qv/builtin.h"
#include "qv/dataval.h"
#include "qv/except.h"
#include "qv/express.h"
#include "qv/qvvar.h"

namespace {

// ---- The library ---------------------------------------------------------------------------

class LibraryScript {
  public:
    LibraryScript(const char *declarations, const char *text) {
        setenv("QV_MAX_RECURSION", "100", 0); // read from the environment, not searched for
        InitialiseVariables_L();
        InitialiseFunctions_L();
        if (declarations != nullptr && Declare_Functions_L(declarations, nullptr, 0) < 1)
            std::abort();
        script_ = New_Script_L(text, "bench", nullptr);
        if (Parse_Script_L(script_, nullptr, 0) != 1 || Validate_Script_L(script_) != 1)
            std::abort();
    }
    ~LibraryScript() {
        Free_Script_L(script_);
        TerminateFunctions_L();
        TerminateAndFreeVariables_L();
    }
    int64_t run() {
        if (Run_Script_L(script_, nullptr) < 0) std::abort();
        return script_->result.payload.integer;
    }

  private:
    EXPRESSION_T *script_ = nullptr;
};

void run_library(benchmark::State &state, const char *declarations, const char *text,
                 int64_t expected) {
    LibraryScript script(declarations, text);
    for (auto _ : state)
        if (script.run() != expected) state.SkipWithError("wrong result");
}

void BM_Script_SumLoop(benchmark::State &state) {
    run_library(state, nullptr, "$s := 0; FOR $i := 1 TO 1000000 DO $s := $s + $i; RETURN $s",
                500000500000);
}
BENCHMARK(BM_Script_SumLoop)->Unit(benchmark::kMillisecond);

void BM_Script_Fibonacci25(benchmark::State &state) {
    run_library(state,
                "FUNCTION Fib($n INTEGER) RETURNS INTEGER BEGIN "
                "IF $n < 2 THEN RETURN $n; RETURN Fib($n - 1) + Fib($n - 2) END",
                "RETURN Fib(25)", 75025);
}
BENCHMARK(BM_Script_Fibonacci25)->Unit(benchmark::kMillisecond);

// ---- Lua 5.4 -------------------------------------------------------------------------------

void run_lua(benchmark::State &state, const char *chunk, int64_t expected) {
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    if (luaL_loadstring(L, chunk) != LUA_OK) std::abort();
    const int function = luaL_ref(L, LUA_REGISTRYINDEX);
    for (auto _ : state) {
        lua_rawgeti(L, LUA_REGISTRYINDEX, function);
        if (lua_pcall(L, 0, 1, 0) != LUA_OK || lua_tointeger(L, -1) != expected)
            state.SkipWithError("Lua failed");
        lua_pop(L, 1);
    }
    lua_close(L);
}

void BM_Lua_SumLoop(benchmark::State &state) {
    run_lua(state, "local s = 0 for i = 1, 1000000 do s = s + i end return s", 500000500000);
}
BENCHMARK(BM_Lua_SumLoop)->Unit(benchmark::kMillisecond);

void BM_Lua_Fibonacci25(benchmark::State &state) {
    run_lua(state,
            "local function fib(n) if n < 2 then return n end return fib(n - 1) + fib(n - 2) "
            "end return fib(25)",
            75025);
}
BENCHMARK(BM_Lua_Fibonacci25)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
