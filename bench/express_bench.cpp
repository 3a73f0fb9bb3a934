// express_bench.cpp - parse time of the expressions E1 to E7 that hosts evaluate per row,
// at three depths: the entry point Parse_Expression_L as a host calls it (status context,
// the QV_MAX_RECURSION preference read, trimming, freeing the previous items), the parser
// alone writing into a list (and the list freed), and the tokenizer alone (the floor: reading
// the text, making the literals and name blocks, freeing them). The entry point is measured
// with the preference set in the environment, as a host that sets it has it, and once
// without (looked up in qv.ini every time).
//
// The functions the expressions call are declared in a host table with the rows' counts and
// masks, so that lookups, condition arguments and counts cost what they will.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "language/builtin_rows.hpp"
#include "language/express.hpp"
#include "qv/express.h"
#include "qv/qvlist.h"
#include "expressions.hpp"

namespace {

ExpFunction row(const char *name, uint32_t minimum, uint32_t maximum,
                std::initializer_list<uint32_t> masks, uint8_t repeat = 0) {
    ExpFunction r = qv::rows::row(name, name, 9000, QV_CATEGORY_MISCELLANEOUS, minimum, maximum,
                                  QV_TYPE_CHAR, repeat, nullptr);
    std::copy(masks.begin(), masks.end(), r.arg_types);
    return r;
}

const ExpFunction functions[] = {
    row("AddToDate", 2, 2,
        {QV_MASK_DATE, QV_MASK_NUMBER | QV_TYPE_INTERVAL_DS | QV_TYPE_INTERVAL_YM}),
    row("Concat", 1, QV_UNLIMITED_ARGUMENTS, {QV_MASK_ANY}, 1),
    row("If", 3, 3, {QV_MASK_ANY, QV_MASK_ANY, QV_MASK_ANY}),
    row("IfNull", 2, 2, {QV_MASK_ANY, QV_MASK_ANY}),
    row("Substr", 2, 3, {QV_MASK_STRING, QV_MASK_NUMBER, QV_MASK_NUMBER}),
    row("Upper", 1, 1, {QV_MASK_STRING}),
    ExpFunction{},
};
const ExpFunction *const tables[] = {functions};

const auto &expressions = bench::row_expressions;
constexpr int32_t mask = EXP_MASK_EXPRESSION | EXP_MASK_CONDITION;

void label(benchmark::State &state) {
    char name[8];
    std::snprintf(name, sizeof name, "E%d", static_cast<int>(state.range(0) + 1));
    state.SetLabel(name);
}

void BM_Parse_Expression_L(benchmark::State &state) {
    setenv("QV_MAX_RECURSION", "100", 1);
    EXPRESSION_T *expression = New_Expression_L(expressions[state.range(0)]);
    for (auto _ : state) benchmark::DoNotOptimize(Parse_Expression_L(expression, mask, tables, 1));
    Free_Expression_L(expression);
    unsetenv("QV_MAX_RECURSION");
    label(state);
}
BENCHMARK(BM_Parse_Expression_L)->DenseRange(0, 6);

void BM_Parse_Expression_L_PreferenceInFile(benchmark::State &state) {
    unsetenv("QV_MAX_RECURSION");
    EXPRESSION_T *expression = New_Expression_L(expressions[state.range(0)]);
    for (auto _ : state) benchmark::DoNotOptimize(Parse_Expression_L(expression, mask, tables, 1));
    Free_Expression_L(expression);
    label(state);
}
BENCHMARK(BM_Parse_Expression_L_PreferenceInFile)->Arg(0);

void free_items(QV_LIST_T *items) {
    void *data = nullptr;
    for (QV_LIST_T *p = NextListItem_L(items, &data); p != nullptr; p = NextListItem_L(p, &data))
        qv::express::release_item(*static_cast<EXP_ITEM_T *>(data));
    Free_List_L(items);
}

void BM_Parser(benchmark::State &state) {
    const std::string_view text = expressions[state.range(0)];
    QV_LIST_T *items = Allocate_List_L();
    for (auto _ : state) {
        qv::express::Parser parser(text, tables, 1, 100);
        benchmark::DoNotOptimize(parser.parse_expression(mask, items));
        free_items(items);
    }
    Deallocate_List_L(&items);
    label(state);
}
BENCHMARK(BM_Parser)->DenseRange(0, 6);

void BM_Tokens(benchmark::State &state) {
    const std::string_view text = expressions[state.range(0)];
    for (auto _ : state) {
        qv::express::Parser parser(text, tables, 1, 100);
        qv::express::Token token;
        while (parser.next_token(mask | EXP_MASK_COMMA, token) > EXP_TOKEN_END) {
        }
    }
    label(state);
}
BENCHMARK(BM_Tokens)->DenseRange(0, 6);

} // namespace

BENCHMARK_MAIN();
