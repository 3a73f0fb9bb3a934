// express_eval_trace_test.cpp - tracing: the option list, the trace file (its place, its
// start and end marks, not reopened while open), Trace_L's lines and indentation, and the
// lines of built-in and user-defined calls for each set of options.
#include "express_eval_support.hpp"

namespace qvtest {
namespace {

class EvalTrace : public EvalTest {
  protected:
    TempDirectory directory;
    ScopedEnvironment log_dir{"QV_LOG_DIR", directory.path.c_str()};

    void SetUp() override {
        EvalTest::SetUp();
        InitialiseFunctions_L();
    }
    std::string trace() { return read_file(directory / "trace.txt"); }
};

TEST_F(EvalTrace, Options) {
    EXPECT_EQ(SetTraceOptions_L("basic, Datatype"), EXP_TRACE_BASIC | EXP_TRACE_DATATYPE);
    EXPECT_EQ(SetTraceOptions_L(" BUILTIN ,nonsense,,variable "),
              EXP_TRACE_BUILTIN | EXP_TRACE_VARIABLE);
    EXPECT_EQ(SetTraceOptions_L("Basic, *, nonsense"), EXP_TRACE_ALL);
    EXPECT_EQ(SetTraceOptions_L("nonsense"), 0u);
    EXPECT_EQ(SetTraceOptions_L(nullptr), 0u);
    SetVariable_L("EXP_TRACE_VALUES", "Builtin", 1); // an empty list reads the variable
    EXPECT_EQ(SetTraceOptions_L(""), EXP_TRACE_BUILTIN);
    EXPECT_EQ(GetTraceOptions_L(), EXP_TRACE_BUILTIN);
    // No option set: no file.
    EXPECT_EQ(TraceOn_L("trace.txt", "nonsense"), 0);
    EXPECT_FALSE(fs::exists(directory / "trace.txt"));
    TraceOff_L();
    EXPECT_EQ(GetTraceOptions_L(), 0u);
}

// A bare name goes into QV_LOG_DIR; a second TraceOn_L sets the options but does not reopen;
// TraceOff_L closes with its mark; Trace_L indents by depth and continues lines.
TEST_F(EvalTrace, TheFile) {
    EXPECT_EQ(TraceOn_L("trace.txt", "Basic, Builtin"), 1);
    EXPECT_EQ(TraceOn_L((directory / "other.txt").c_str(), "Datatype"), 0);
    EXPECT_FALSE(fs::exists(directory / "other.txt"));
    EXPECT_EQ(GetTraceOptions_L(), EXP_TRACE_DATATYPE);
    Trace_L(1, 0, "first %d", 1);
    Trace_L(0, 0, " and %U", "more");
    Trace_L(1, 2, "second %s", nullptr);
    Trace_L(1, 1, nullptr);
    TraceOff_L();
    Trace_L(1, 0, "not written");
    EXPECT_EQ(trace(), "\n***** START TRACING Basic, Builtin *****\n"
                       "first 1 and more\n"
                       "    second <NULL>\n"
                       "***** END TRACE *****\n");
    // Appended to when opened again; a file that cannot be opened is a warning.
    EXPECT_EQ(TraceOn_L("trace.txt", "*"), 1);
    TraceOff_L();
    EXPECT_THAT(trace(), ::testing::EndsWith(
                             "\n***** START TRACING Basic, Variable, Builtin, Datatype *****\n"
                             "\n***** END TRACE *****\n"));
    EXPECT_EQ(TraceOn_L((directory / "missing/trace.txt").c_str(), "Basic"), -1);
    EXPECT_THAT(out + err, ::testing::HasSubstr("WARNING - The trace file '" +
                                                (directory / "missing/trace.txt").string() +
                                                "' cannot be opened: No such file or directory."));
}

// The lines of one run of Quad(Half(2)) (Quad's body calls Twice) and of Given('a', NULL).
TEST_F(EvalTrace, CallLinesForEachOption) {
    EXP_USER_FUNCTION_T *twice = declare("Twice", QV_TYPE_INTEGER);
    EXP_USER_FUNCTION_T *quad = declare("Quad", QV_TYPE_INTEGER);
    int32_t count = 0;
    const ExpFunction *const tables[] = {eval_functions, Get_FunctionArray(&count)};
    twice->body = New_Expression_L("$n * 2");
    quad->body = New_Expression_L("Twice($n) * 2");
    ASSERT_EQ(Parse_Expression_L(twice->body, kMask, tables, 2), 1);
    ASSERT_EQ(Parse_Expression_L(quad->body, kMask, tables, 2), 1);
    Expression numbers("Quad(Half(2))", tables, 2), texts("Given('a', NULL)", tables, 2);
    struct Row {
        const char *options;
        const char *lines; // between the start and end marks
    };
    const Row rows[] = {
        {"Basic", "==> Quad( 1 )\n"
                  "  ==> Twice( 1 )\n"
                  "  <== Twice -> 2\n"
                  "<== Quad -> 4"},
        {"Builtin", "<==> Half(  ) -> 1\n"
                    "<==> Given(  ) -> '1.1.0'"},
        {"Builtin, Datatype", "<==> Half( Argument1 INTEGER 2 ) -> FLOAT 1\n"
                              "<==> Given( Argument1 CHAR(1) 'a', Argument2 UNKNOWN <NULL> ) -> "
                              "CHAR(0) '1.1.0'"},
        {"Basic, Datatype", "==> Quad( n INTEGER 1 )\n"
                            "  ==> Twice( n INTEGER 1 )\n"
                            "  <== Twice -> INTEGER 2\n"
                            "<== Quad -> INTEGER 4"},
        {"Variable", ""},
    };
    for (const Row &row : rows) {
        fs::remove(directory / "trace.txt");
        ASSERT_EQ(TraceOn_L("trace.txt", row.options), 1) << row.options;
        EXPECT_EQ(numbers.solve(), "4");
        EXPECT_EQ(texts.solve(), "1.1.0");
        TraceOff_L();
        const std::string header = std::string("\n***** START TRACING ") + row.options + " *****\n";
        const std::string lines = row.lines;
        EXPECT_EQ(trace(), header + lines + "\n***** END TRACE *****\n") << row.options;
    }
    EXPECT_EQ(qv::express::trace_depth, 0);
}

// If and IfNull, which choose without the dispatcher, still write their call lines.
TEST_F(EvalTrace, ChoosingCallsAreTraced) {
    Expression e("IfNull(NULL, If(FALSE, 1, 'two'))");
    ASSERT_EQ(TraceOn_L("trace.txt", "Builtin, Datatype"), 1);
    EXPECT_EQ(e.solve(), "two");
    TraceOff_L();
    EXPECT_EQ(trace(), "\n***** START TRACING Builtin, Datatype *****\n"
                       "<==> If( Argument1 BOOLEAN FALSE, Argument2 INTEGER 1, Argument3 CHAR(3) "
                       "'two' ) -> CHAR(3) 'two'\n"
                       "<==> IfNull( Argument1 UNKNOWN <NULL>, Argument2 CHAR(3) 'two' ) -> "
                       "CHAR(3) 'two'\n***** END TRACE *****\n");
}

} // namespace
} // namespace qvtest
