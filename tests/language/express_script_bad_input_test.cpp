// express_script_bad_input_test.cpp - scripts a host should not write: thousands of
// statements, blocks nested past the limit, unterminated blocks, invalid UTF-8, a megabyte
// of text; and the allocation-failure sweep over declaring a function, parsing and running
// a script that calls it.
#include "express_script_support.hpp"

namespace qvtest {
namespace {

using BadScripts = ScriptTest;

std::string repeated(const std::string &part, int count) {
    std::string out;
    for (int i = 0; i < count; ++i) out += part;
    return out;
}

TEST_F(BadScripts, TenThousandStatements) {
    const std::string text = "$x := 0;" + repeated("$x := $x + 1;", 10000) + "RETURN $x";
    Script script(text.c_str());
    EXPECT_EQ(script.run(), "10000");
    EXPECT_EQ(qv::express::state_of(script.get())->program->expressions.size(), 10002u);
}

TEST_F(BadScripts, BlocksNestedPastTheLimit) {
    // QV_MAX_RECURSION (100 here) bounds the nesting: the 101st BEGIN fails, the text marked.
    const std::string deep = repeated("BEGIN ", 1000) + "$x := 1" + repeated(" END", 1000);
    EXPECT_EQ(failure_of(deep.c_str()), (Failure{QV_MSG_RECURSION_LIMIT, 606}));
    EXPECT_THAT(messages().back(), ::testing::HasSubstr("BEGIN >>>BEGIN"));
    const std::string ifs = repeated("IF TRUE THEN ", 1000) + "$x := 1";
    EXPECT_EQ(failure_of(ifs.c_str()), (Failure{QV_MSG_RECURSION_LIMIT, 1313}));
    // With the limit raised, a thousand levels parse and run; beyond EXP_MAX_NESTING not.
    ScopedEnvironment limit("QV_MAX_RECURSION", "5000");
    Script script((deep + "; RETURN $x").c_str());
    EXPECT_EQ(script.run(), "1");
    const std::string deeper = repeated("WHILE FALSE DO ", 5000) + "$x := 1";
    EXPECT_EQ(failure_of(deeper.c_str()), (Failure{QV_MSG_RECURSION_LIMIT, 15 * 1001}));
}

TEST_F(BadScripts, UnterminatedAndBrokenTexts) {
    const std::pair<std::string, Failure> rows[] = {
        {repeated("BEGIN ", 50), {QV_MSG_END_EXPECTED, 299}}, // the text is trimmed
        {"CASE 1 OF " + repeated("1: $x := 1; ", 20), {QV_MSG_END_EXPECTED, 249}},
        {"WHILE TRUE DO BEGIN $x := 1;", {QV_MSG_END_EXPECTED, 28}},
        {"\xff := 1", {QV_MSG_UNEXPECTED_CHARACTER, 0}},
        {"$x := 1;\xc3", {QV_MSG_UNEXPECTED_CHARACTER, 8}},
        {std::string("$x := 1;\0 garbage", 17), {0, 0}}, // the text ends at the NUL
        {"END", {QV_MSG_PARSE_ENDED_EARLY, 0}},
        {";;;END", {QV_MSG_PARSE_ENDED_EARLY, 3}},
    };
    for (const auto &[text, expected] : rows) EXPECT_EQ(failure_of(text.c_str()), expected) << text;
    EXPECT_EQ(Script("$s := '\xff\xfe'; RETURN Length($s)").run(), "2") << "kept as written";
}

TEST_F(BadScripts, AMegabyteOfText) {
    std::string text = repeated("$x := IfNull($x, 0) + 1; // counting\n", 28000);
    text += "RETURN $x";
    ASSERT_GT(text.size(), 1000000u);
    EXPECT_EQ(Script(text.c_str()).run(), "28000");
}

// Every allocation of declaring, parsing, validating and running fails in turn: each run
// raises ALLOC_FAILURE, leaves nothing behind (the sanitizer build checks) and the registry,
// scope stack and nesting as they were. An allocation of a status context that fails raises
// nothing: the call goes on without its context, and the run ends with the right result.
TEST_F(BadScripts, AllocationFailureSweep) {
    std::vector<std::string> results;
    const std::vector<const char *> raised = fail_each_allocation(
        [&] {
            Declare_Functions_L("FUNCTION Fact($n INTEGER) RETURNS INTEGER BEGIN "
                                "IF $n <= 1 THEN RETURN 1; RETURN $n * Fact($n - 1) END",
                                nullptr, 0);
            Script script("$r := ''; FOR $i := 1 TO 3 DO $r := Concat($r, Fact($i));"
                          "CASE $r OF '126': RETURN Upper('six') END");
            Parse_Script_L(script.get(), nullptr, 0);
            Run_Script_L(script.get(), nullptr);
            results.push_back(text_of(&script->result));
        },
        [&] {
            Clear_Functions();
            EXPECT_EQ(GetVariableStructure_L(nullptr), 1);
            EXPECT_EQ(qv::express::run_nesting, 0);
            EXPECT_EQ(qv::express::trace_depth, 0);
        });
    EXPECT_GT(raised.size(), 100u);
    const auto unprotected = std::count(raised.begin(), raised.end(), nullptr);
    EXPECT_LT(unprotected, 20);
    EXPECT_EQ(std::count(raised.begin(), raised.end(), ALLOC_FAILURE) + unprotected,
              static_cast<std::ptrdiff_t>(raised.size()));
    EXPECT_EQ(results, std::vector<std::string>(static_cast<std::size_t>(unprotected) + 1, "SIX"));
}

} // namespace
} // namespace qvtest
