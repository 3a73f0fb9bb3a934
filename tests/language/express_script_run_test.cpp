// express_script_run_test.cpp - running: the trace file of a small script under each option,
// compared line by line; interrupts requested before a run and during a loop; Exit caught
// as the run's exit code, and the dummy table's Exit that ends nothing; nested runs past the
// recursion limit.
#include "express_script_support.hpp"

namespace qvtest {
namespace {

using Running = ScriptTest;

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(text.substr(start, end - start));
    if (start < text.size()) lines.push_back(text.substr(start));
    return lines;
}

TEST_F(Running, TraceFilePerOption) {
    ASSERT_EQ(Declare_Functions_L("FUNCTION Twice($n INTEGER) RETURNS INTEGER "
                                  "BEGIN $r := $n * 2; RETURN $r END",
                                  nullptr, 0),
              1);
    const std::pair<const char *, std::vector<std::string>> rows[] = {
        {"Basic",
         {"==> Demo suite", "  ==> Twice( 2 )", "  <== Twice -> 4", "<== Demo suite -> 4"}},
        {"Variable",
         {"  [a] = 'X'", "    [r] = 4", "  [b] = 4", "  [i] = 1", "  [c] = 0", "  [i] = 2",
          "  [c] = 0"}},
        {"Builtin", {"  <==> Upper(  ) -> 'X'"}},
        {"Datatype", {""}}, // nothing between the marks
        {"basic, datatype",
         {"==> Demo suite", "  ==> Twice( n INTEGER 2 )", "  <== Twice -> INTEGER 4",
          "<== Demo suite -> INTEGER 4"}},
        {"*",
         {"==> Demo suite", "  <==> Upper( Argument1 CHAR(1) 'x' ) -> CHAR(0) 'X'", "  [a] = 'X'",
          "  ==> Twice( n INTEGER 2 )", "    [r] = 4", "  <== Twice -> INTEGER 4", "  [b] = 4",
          "  [i] = 1", "  [c] = 0", "  [i] = 2", "  [c] = 0", "<== Demo suite -> INTEGER 4"}},
    };
    TempDirectory directory;
    for (const auto &[options, expected] : rows) {
        const std::string path = (directory / "trace.txt").string();
        std::filesystem::remove(path);
        Script script("$a := Upper('x'); $b := Twice(2); FOR $i := 1 TO 2 DO $c := 0; RETURN $b",
                      "Demo");
        ASSERT_EQ(Parse_Script_L(script.get(), nullptr, 0), 1);
        TraceOn_L(path.c_str(), options);
        EXPECT_EQ(script.run(), "4");
        TraceOff_L();
        std::vector<std::string> lines = lines_of(read_file(path));
        ASSERT_GE(lines.size(), 3u) << options;
        EXPECT_EQ(lines.front(), "");
        EXPECT_THAT(lines[1], ::testing::StartsWith("***** START TRACING ")) << options;
        EXPECT_EQ(lines.back(), "***** END TRACE *****");
        lines = std::vector<std::string>(lines.begin() + 2, lines.end() - 1);
        EXPECT_EQ(lines, expected) << options;
    }
}

TEST_F(Running, TraceOfANullAndATextResult) {
    TempDirectory directory;
    const std::string path = (directory / "t.txt").string();
    Script nothing("$v := NULL", "Nothing", nullptr);
    Script text("RETURN 'It''s'", "Text", "owner");
    TraceOn_L(path.c_str(), "Basic,Variable,Datatype");
    EXPECT_EQ(nothing.run(), "<null>");
    EXPECT_EQ(text.run(), "It's");
    TraceOff_L();
    const std::vector<std::string> lines = lines_of(read_file(path));
    EXPECT_EQ(std::vector<std::string>(lines.begin() + 2, lines.end() - 1),
              (std::vector<std::string>{"==> Nothing ", "  [v] = <NULL>",
                                        "<== Nothing  -> UNKNOWN <NULL>", "==> Text owner",
                                        "<== Text owner -> CHAR(4) 'It's'"}));
}

TEST_F(Running, InterruptBeforeARun) {
    TempDirectory directory;
    const std::string path = (directory / "i.txt").string();
    Script script("$ran := 1; RETURN 1");
    ASSERT_EQ(Validate_Script_L(script.get()), 1);
    InterruptsActive_L(1);
    Set_Interrupt_L();
    ASSERT_EQ(TraceOn_L(path.c_str(), "*"), 1);
    int32_t code = -1;
    EXPECT_EQ(Run_Script_L(script.get(), &code), QV_SCRIPT_INTERRUPTED);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(GetTraceOptions_L(), 0u) << "tracing is off";
    EXPECT_THAT(read_file(path), ::testing::EndsWith("***** END TRACE *****\n"));
    EXPECT_EQ(FindVariableOnArray_L(script->variables, "ran")->value.is_null, 1);
    Clear_Interrupt_L();
    EXPECT_EQ(script.run(), "1");
    InterruptsActive_L(0);
}

// An interrupt requested while a loop turns ends the run at the next turn.
int pumped = 0;
void request_after_some_turns() {
    if (++pumped == 50) Set_Interrupt_L();
}

TEST_F(Running, InterruptDuringALoop) {
    InterruptsActive_L(1);
    SetInterruptPump_L(request_after_some_turns);
    pumped = 0;
    Script endless("$i := 0; WHILE TRUE DO $i := $i + 1");
    EXPECT_EQ(endless.run(), "interrupted");
    EXPECT_EQ(text_of(&FindVariableOnArray_L(endless->variables, "i")->value), "49");
    Clear_Interrupt_L();
    pumped = 0;
    Script counted("FOR $i := 1 TO 1000000 DO $x := $i");
    EXPECT_EQ(counted.run(), "interrupted");
    EXPECT_EQ(GetVariableStructure_L(nullptr), 1);
    EXPECT_EQ(qv::express::run_nesting, 0);
    SetInterruptPump_L(nullptr);
    Clear_Interrupt_L();
    InterruptsActive_L(0);
}

TEST_F(Running, ExitIsTheRunsExitCode) {
    const std::pair<const char *, const char *> rows[] = {
        {"$RUN_SCRIPT_RETURN := 'kept'; Exit(3); RETURN 'not reached'", "exit 3"},
        {"FOR $i := 1 TO 10 DO IF $i = 4 THEN Exit($i * 10)", "exit 40"},
        {"Exit()", "exit 0"},
        {"Exit('12')", "exit 12"},
    };
    for (const auto &[text, result] : rows) EXPECT_EQ(Script(text).run(), result) << text;
    Script script("$RUN_SCRIPT_RETURN := 'kept'; Exit(3)");
    int32_t code = 0;
    EXPECT_EQ(Run_Script_L(script.get(), &code), QV_SCRIPT_EXITED);
    EXPECT_EQ(code, 3);
    EXPECT_EQ(text_of(&script->result), "kept");
    // Checked and run against the dummy table, Exit ends nothing.
    const ExpFunction *const dummy[] = {Get_DummyBuiltInFns_L()};
    Script checked("$e := Exit(5); RETURN $e");
    EXPECT_EQ(checked.run(dummy, 1), "TRUE");
    EXPECT_THAT(messages(), ::testing::IsEmpty());
}

// A failing statement: the run fails with its message, raises GENERAL_ERROR from the
// "run_script" context, leaves the result NULL and the process as it was.
TEST_F(Running, FailuresAreRaisedOn) {
    Script script("$a := 1; $b := $missing + 1");
    ASSERT_EQ(Validate_Script_L(script.get()), 1);
    int32_t outcome = 0;
    expect_raise(GENERAL_ERROR, "express", [&] { outcome = Run_Script_L(script.get(), nullptr); });
    EXPECT_THAT(messages(),
                ::testing::ElementsAre("The variable $missing at position 15 does not exist."));
    EXPECT_EQ(script->result.is_null, 1);
    EXPECT_EQ(GetVariableStructure_L(nullptr), 1);
    EXPECT_EQ(qv::express::run_nesting, 0);
    // With no status context open the raise reports and the run returns -1.
    EXPECT_EQ(Run_Script_L(script.get(), nullptr), QV_SCRIPT_FAILED);
}

// Runs nested through a host function count against the recursion limit.
EXPRESSION_T *nested_script = nullptr;
void run_nested(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    SetValueType_L(result, QV_TYPE_INTEGER);
    if (frame->mode != QV_MODE_EVALUATE) return;
    SetIntegerValue_L(result, Run_Script_L(nested_script, nullptr));
}

TEST_F(Running, NestedRunsStopAtTheLimit) {
    static ExpFunction rows[2]{
        host_function("RunAgain", "RunAgain()", QV_EXP_HANDLER(run_nested), QV_TYPE_INTEGER)};
    const ExpFunction *const tables[] = {rows};
    Script script("$depth := IfNull($depth, 0) + 1; RETURN RunAgain()");
    nested_script = script.get();
    ASSERT_EQ(Parse_Script_L(script.get(), tables, 1), 1);
    EXPECT_EQ(script.run(), "failed");
    EXPECT_THAT(messages(), ::testing::Contains("The nesting goes deeper than the recursion limit "
                                                "(QV_MAX_RECURSION) allows."));
    EXPECT_EQ(text_of(&FindVariableOnArray_L(script->variables, "depth")->value), "100");
    EXPECT_EQ(qv::express::run_nesting, 0);
    EXPECT_EQ(GetVariableStructure_L(nullptr), 1);
}

// While a script runs, a host function it calls can neither parse it again, nor declare
// functions while a user-defined function's body runs: both are refused and the run goes on.
int32_t refusals = 0;
void meddle(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    SetValueType_L(result, QV_TYPE_INTEGER);
    if (frame->mode != QV_MODE_EVALUATE) return;
    refusals = (Parse_Script_L(nested_script, nullptr, 0) == 0 ? 1 : 0) +
               (Validate_Script_L(nested_script) == 1 ? 1 : 0) +
               (Declare_Functions_L("FUNCTION G() BEGIN RETURN 1 END", nullptr, 0) == -1 ? 1 : 0);
    SetIntegerValue_L(result, refusals);
}

TEST_F(Running, ParsingAndDeclaringAreRefusedWhileRunning) {
    static ExpFunction rows[2]{
        host_function("Meddle", "Meddle()", QV_EXP_HANDLER(meddle), QV_TYPE_INTEGER)};
    const ExpFunction *const tables[] = {rows};
    ASSERT_EQ(
        Declare_Functions_L("FUNCTION F() RETURNS INTEGER BEGIN RETURN Meddle() END", tables, 1),
        1);
    Script script("FOR $i := 1 TO 2 DO $n := F(); RETURN $n + $i");
    nested_script = script.get();
    EXPECT_EQ(script.run(), "5");
    EXPECT_EQ(refusals, 3);
    int32_t count = 0;
    Get_UserFunctions(&count);
    EXPECT_EQ(count, 1) << "G was not declared";
    EXPECT_EQ(Parse_Script_L(script.get(), nullptr, 0), 1) << "parsed again after the run";
}

} // namespace
} // namespace qvtest
