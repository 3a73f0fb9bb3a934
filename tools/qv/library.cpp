// library.cpp - starting the library, guarded calls and problem reports (see library.hpp).
#include "library.hpp"

#include <qv/msgclass.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace qvtool {
namespace {

std::uint32_t g_messages = 0; // the message set errors and deferred warnings collect in
std::string g_unlogged;       // a raise that logged nothing, described

// Messages that name a position in the text they are about: which parameter holds it.
struct PositionParameter {
    std::uint32_t number;
    std::size_t parameter;
};
constexpr PositionParameter POSITION_PARAMETERS[] = {
    {QV_MSG_PARSE_ENDED_EARLY, 0},    {QV_MSG_NAME_NOT_BOUND, 1},
    {QV_MSG_ARGUMENT_TYPE, 2},        {QV_MSG_FUNCTION_NOT_CALLABLE, 1},
    {QV_MSG_EXPRESSION_MALFORMED, 0}, {QV_MSG_VARIABLE_NOT_FOUND, 1},
    {QV_MSG_NUMBER_OVERFLOW, 1},
};

int parameter_number(const PWParam &parameter) {
    switch (parameter.GetKind()) {
        case PWParam::Kind::Signed: return static_cast<int>(parameter.Signed());
        case PWParam::Kind::Unsigned: return static_cast<int>(parameter.Unsigned());
        default: return std::atoi(parameter.Text().c_str());
    }
}

// The parse failure by its reason: the parser's own message number, the reason's text and
// the position (the summary message carries position, reason and marked text, in order).
Problem parse_problem(const PWMessage &message) {
    const std::vector<PWParam> &parameters = message.Parameters();
    Problem problem{message.Number(), message.LibrarySeverity(), message.Text(), -1};
    if (parameters.size() < 2) return problem;
    std::uint32_t position = 0;
    const std::uint32_t reason = GetExpressionError_L(&position);
    problem.number = reason != 0 ? reason : message.Number();
    problem.position = parameter_number(parameters[0]);
    problem.text = "at position " + std::to_string(problem.position) + ": " + parameters[1].Text();
    return problem;
}

Problem to_problem(const PWMessage &message) {
    if (message.Number() == QV_MSG_PARSE_FAILED) return parse_problem(message);
    Problem problem{message.Number(), message.LibrarySeverity(), message.Text(), -1};
    const auto *row =
        std::find_if(std::begin(POSITION_PARAMETERS), std::end(POSITION_PARAMETERS),
                     [&](const PositionParameter &p) { return p.number == problem.number; });
    if (row != std::end(POSITION_PARAMETERS) && row->parameter < message.Parameters().size())
        problem.position = parameter_number(message.Parameters()[row->parameter]);
    return problem;
}

bool is_exit(const char *raised) {
    return raised == STATUS_RAISED && Exc_Status_Symbol != nullptr &&
           std::strcmp(Exc_Status_Symbol, "exit_code") == 0;
}

} // namespace

Library::Library() {
    InitMessages_L(&g_messages);
    DeferWarnings_L();
    InitialiseVariables_L();
    InitialiseFunctions_L();
}

Library::~Library() {
    TraceOff_L();
    Clear_Functions();
    TerminateFunctions_L();
    TerminateAndFreeVariables_L();
    DeleteMessageHandle_L(g_messages);
    ClearMessageContext_L();
    TerminateMessages_L(nullptr);
    UnloadGlossaries_L();
    TerminateFeedback_L();
    Free_Alloc_Ptrs_L();
}

Outcome guarded(const char *name, const std::function<bool()> &body, int &exit_code) {
    volatile bool done = false, raised = false, out_of_memory = false;
    if (except_start_context(name, "qv", __LINE__) == nullptr) throw std::bad_alloc();
    if (setjmp(Exc_Sp->jump_state) == 0) {
        try { // a C++ exception must not leave the protected body
            done = body();
        } catch (const std::bad_alloc &) {
            out_of_memory = true;
        }
    } else {
        raised = true;
    }
    Exc_Sp->in_handler = 1;
    const char *symbol = raised ? Exc_Raised_ : nullptr;
    const int status = Exc_Status;
    if (symbol != nullptr && symbol != GENERAL_ERROR && !is_exit(symbol))
        g_unlogged = Exc_Message_L();
    except_end_context("qv", __LINE__);
    if (out_of_memory) throw std::bad_alloc();
    if (symbol != nullptr && is_exit(symbol)) {
        exit_code = status;
        return Outcome::Exited;
    }
    return done && !raised ? Outcome::Done : Outcome::Failed;
}

int32_t parse_expression(EXPRESSION_T *expression) {
    const EXP_FUNCTION_STRUCT_T *functions = Set_Function_Struct_L(nullptr);
    const ExpFunction *user = functions != nullptr && functions->current != nullptr &&
                                      functions->current->function_count > 0
                                  ? functions->current->records
                                  : nullptr;
    return Parse_Expression_L(expression, EXP_MASK_EXPRESSION | EXP_MASK_CONDITION, &user,
                              user != nullptr ? 1 : 0);
}

int32_t validate_expression(EXPRESSION_T *expression) {
    if (Validate_Expression_L(expression) != 1) return 0;
    const QV_DATATYPE_T &type = expression->result_type;
    if (type.type != QV_TYPE_CHAR || type.precision == 0) return 1;
    const QV_DATATYPE_T any_length{QV_TYPE_CHAR, 0, 0, 0};
    SetExpressionResultType_L(expression, &any_length);
    return Validate_Expression_L(expression);
}

std::vector<Problem> take_problems() {
    std::vector<Problem> problems;
    int32_t count = 0;
    CheckMessageHandle_L(g_messages, &count, nullptr);
    for (int32_t i = 0; i < count; ++i)
        if (const PWMessage *message = GetMessage_L(g_messages, i); message != nullptr)
            problems.push_back(to_problem(*message));
    DeleteMessageHandle_L(g_messages);
    g_messages = 0;
    // "not valid" only sums up the reasons logged before it.
    if (problems.size() > 1)
        std::erase_if(problems,
                      [](const Problem &p) { return p.number == QV_MSG_VALIDATION_FAILED; });
    const bool any_error = std::any_of(problems.begin(), problems.end(), [](const Problem &p) {
        return p.severity >= MESSAGE_SEVERITY_ERROR;
    });
    if (!g_unlogged.empty() && !any_error)
        problems.push_back({0, MESSAGE_SEVERITY_ERROR, g_unlogged, -1});
    g_unlogged.clear();
    return problems;
}

std::string marked(std::string_view text, int position) {
    const std::size_t at =
        std::min<std::size_t>(static_cast<std::size_t>(std::max(position, 0)), text.size());
    const std::size_t begin = text.rfind('\n', at == 0 ? 0 : at - 1);
    const std::size_t line_begin = begin == std::string_view::npos || at == 0 ? 0 : begin + 1;
    const std::size_t line_end = std::min(text.find('\n', at), text.size());
    const std::string shown = std::string(text.substr(line_begin, at - line_begin)) + ">>>" +
                              std::string(text.substr(at, line_end - at));
    if (text.find('\n') == std::string_view::npos) return shown;
    const auto line =
        1 + std::count(text.begin(), text.begin() + static_cast<long>(line_begin), '\n');
    return "line " + std::to_string(line) + ": " + shown;
}

void print_problems(std::FILE *out, const std::vector<Problem> &problems, std::string_view text,
                    const std::string &prefix) {
    for (const Problem &problem : problems) {
        const char *kind = problem.severity >= MESSAGE_SEVERITY_ERROR ? "error" : "warning";
        if (problem.number != 0)
            std::fprintf(out, "qv: %s%s 0x%08X: %s\n", prefix.c_str(), kind, problem.number,
                         problem.text.c_str());
        else
            std::fprintf(out, "qv: %s%s: %s\n", prefix.c_str(), kind, problem.text.c_str());
        if (problem.position >= 0 && !text.empty())
            std::fprintf(out, "qv: %s    %s\n", prefix.c_str(),
                         marked(text, problem.position).c_str());
    }
}

bool report_problems(std::FILE *out, std::string_view text, const std::string &prefix) {
    const std::vector<Problem> problems = take_problems();
    print_problems(out, problems, text, prefix);
    return !problems.empty();
}

std::string value_text(const QV_VALUE_T &value) {
    char *text = ValueToChar_L(&value);
    if (text == nullptr) return "NULL";
    std::string out(text);
    std::free(text);
    return out;
}

std::string type_text(const QV_DATATYPE_T &type) {
    char *text = DisplayDataType_L(&type, 1);
    if (text == nullptr) return "UNKNOWN";
    std::string out(text);
    std::free(text);
    return out;
}

} // namespace qvtool
