// express_fuzz.cpp - the expression parser over arbitrary bytes, under every context mask,
// and the script layer over the same bytes.
//
// The input is the text itself. It is parsed under each of the 64 combinations of the six
// context bits, in postfix order and in text order, each in a status context of its own.
// Checked every time: a parse raises nothing but GENERAL_ERROR, and then names a message of
// the parser (or 0 for a number that did not convert) at a position inside the text with
// Msgbuf8 filled and no items kept; a successful postfix form is well formed (every operator
// and call finds its operands, one value is left) and holds the same items as the text order;
// the items' positions lie inside the text; the explanation can be made. The counted view
// of the whole input, NUL bytes included, goes through the tokenizer too.
//
// Then the text is a script: its parse fails only with GENERAL_ERROR naming a message of the
// statement or expression parser inside the text, keeping no statements; a script that
// parsed validates or fails with GENERAL_ERROR; upgraded (UpgradeScript_L) it parses again
// (unless the blocks added nest it past the limit) and a second upgrade changes nothing; the
// other rewrites end. And the text is a text of function declarations, declared in a
// function array of its own: GENERAL_ERROR or as many functions as it said. Scripts are never
// run: the built-ins they could call reach the system.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "core/raise.hpp"
#include "language/express.hpp"
#include "language/express_script.hpp"
#include "qv/express.h"
#include "qv/message.h"

namespace {

[[noreturn]] void fuzz_failure(const char *what, const std::string &text, int32_t mask) {
    std::fprintf(stderr, "EXPRESS FUZZ CHECK FAILED: %s (mask %d, %zu bytes)\n", what, mask,
                 text.size());
    std::abort();
}

#define EXPRESS_CHECK(condition, what)                                                             \
    do {                                                                                           \
        if (!(condition)) fuzz_failure(what, text, mask);                                          \
    } while (0)

bool is_parser_message(uint32_t number) {
    switch (number) {
        case 0: // a number that did not convert: Msgbuf8 holds the conversion's reason
        case QV_MSG_FUNCTION_NOT_FOUND:
        case QV_MSG_ARGUMENT_LIST_BROKEN:
        case QV_MSG_TEXT_ENDED_IN_LIST:
        case QV_MSG_TOO_FEW_ARGUMENTS:
        case QV_MSG_TOO_MANY_ARGUMENTS:
        case QV_MSG_OPERAND_OUT_OF_PLACE:
        case QV_MSG_OPERATOR_OUT_OF_PLACE:
        case QV_MSG_KEYWORD_IN_EXPRESSION:
        case QV_MSG_UNEXPECTED_CHARACTER:
        case QV_MSG_UNBALANCED_PARENTHESIS:
        case QV_MSG_NEGATED_NON_NUMBER:
        case QV_MSG_SIMPLE_OPERAND_EXPECTED:
        case QV_MSG_KEYWORD_EXPECTED:
        case QV_MSG_IN_LIST_EXPECTED:
        case QV_MSG_BRACE_NOT_CLOSED:
        case QV_MSG_QUOTE_NOT_CLOSED:
        case QV_MSG_PARSE_ENDED_EARLY:
        case QV_MSG_RECURSION_LIMIT: return true;
        default: return false;
    }
}

bool is_script_message(uint32_t number) {
    switch (number) {
        case QV_MSG_ASSIGNMENT_EXPECTED:
        case QV_MSG_LOOP_MALFORMED:
        case QV_MSG_LOOP_VARIABLE_EXPECTED:
        case QV_MSG_VARIABLE_AS_PROCEDURE:
        case QV_MSG_STATEMENT_NOT_ENDED:
        case QV_MSG_END_EXPECTED:
        case QV_MSG_CASE_BRANCH_EXPECTED:
        case QV_MSG_CASE_COLON_EXPECTED:
        case QV_MSG_CASE_DEFAULT_REPEATED:
        case QV_MSG_STATEMENT_EXPECTED:
        case QV_MSG_RETURN_NOT_ALLOWED:
        case QV_MSG_LOOP_VARIABLE_ASSIGNED:
        case QV_MSG_NOT_ASSIGNABLE:
        case QV_MSG_DECLARATION_EXPECTED:
        case QV_MSG_FUNCTION_REPEATED:
        case QV_MSG_PARAMETER_REPEATED:
        case QV_MSG_TYPE_UNKNOWN:
        case QV_MSG_TOO_MANY_PARAMETERS: return true;
        default: return is_parser_message(number);
    }
}

// Functions of every shape the parser treats apart.
const ExpFunction *const *functions() {
    static ExpFunction rows[5]{};
    static const ExpFunction *const tables[] = {rows};
    if (rows[0].name == nullptr) {
        auto row = [](ExpFunction &r, const char *name, uint32_t low, uint32_t high,
                      uint8_t repeat) {
            r.name = name;
            r.usage = name;
            r.min_args = low;
            r.max_args = high;
            r.repeat = repeat;
        };
        row(rows[0], "F", 0, QV_UNLIMITED_ARGUMENTS, 1);
        rows[0].arg_types[0] = 130975;
        row(rows[1], "G", 1, 2, 0);
        rows[1].arg_types[0] = rows[1].arg_types[1] = 134;
        row(rows[2], "P", 1, 1, 0);
        rows[2].arg_types[0] = 64; // a name passed as a pointer
        row(rows[3], "T", 1, 1, 0);
        rows[3].arg_types[0] = 16; // a condition
    }
    return tables;
}

// The number of values the postfix list leaves, or -1 when an item lacks its operands.
int64_t values_left(const EXPRESSION_T *expression, std::size_t size, bool &inside) {
    int64_t depth = 0;
    void *data = nullptr;
    inside = true;
    for (QV_LIST_T *p = NextListItem_L(expression->items, &data); p != nullptr;
         p = NextListItem_L(p, &data)) {
        const auto *item = static_cast<const EXP_ITEM_T *>(data);
        inside = inside && item->position <= size;
        int64_t taken = 0;
        switch (item->kind) {
            case EXP_ITEM_LITERAL:
            case EXP_ITEM_NAME:
            case EXP_ITEM_VARIABLE: break;
            case EXP_ITEM_FUNCTION:
                if (item->function == nullptr) return -1;
                taken = item->argument_count;
                break;
            case EXP_ITEM_OPERATOR:
                if (item->op == nullptr) return -1;
                taken = item->op->code == EXP_OP_IN || item->op->code == EXP_OP_NOT_IN
                            ? item->argument_count + 1
                            : item->op->operands;
                break;
            default: return -1;
        }
        if (depth < taken) return -1;
        depth += 1 - taken;
    }
    return depth;
}

struct Outcome {
    int32_t parsed = 0;
    const char *raised = nullptr;
    uint32_t number = 0;
    uint32_t position = 0;
    int32_t items = 0;
};

Outcome parse(const std::string &text, int32_t mask, bool text_order) {
    Outcome out;
    EXPRESSION_T *expression = New_Expression_L(text.c_str());
    const std::size_t size = std::string_view(text.c_str()).size();
    qv::guarded(
        "fuzz", "express_fuzz", __LINE__,
        [&] {
            out.parsed = (text_order ? Simple_Parse_Expression_L
                                     : Parse_Expression_L)(expression, mask, functions(), 1);
        },
        [&](const char *raised) { out.raised = raised; });
    out.items = expression->items->count;
    if (out.raised != nullptr) {
        out.number = GetExpressionError_L(&out.position);
        EXPRESS_CHECK(out.raised == GENERAL_ERROR, "a raise other than GENERAL_ERROR");
        EXPRESS_CHECK(is_parser_message(out.number), "a failure without a parser message");
        EXPRESS_CHECK(out.position <= size, "a failure outside the text");
        EXPRESS_CHECK(Msgbuf8[0] != '\0', "a failure without a text in Msgbuf8");
        EXPRESS_CHECK(out.items == 0, "items kept after a failure");
    } else if (out.parsed == 1) {
        bool inside = true;
        const int64_t left = values_left(expression, size, inside);
        EXPRESS_CHECK(inside, "an item outside the text");
        EXPRESS_CHECK(text_order || left == 1, "a postfix form that does not leave one value");
        char *explained = ExplainExpression_L(expression);
        EXPRESS_CHECK(explained != nullptr, "no explanation");
        std::free(explained);
    } else {
        EXPRESS_CHECK(out.items == 0, "items without a parse");
    }
    Free_Expression_L(expression);
    return out;
}

// The tokenizer over the counted bytes, NUL bytes and all: it ends, or fails, in order.
void tokens(const std::string &text, int32_t mask) {
    qv::express::Parser parser(text, functions(), 1, 100);
    qv::express::Token token;
    std::size_t before = 0;
    for (int32_t kind; (kind = parser.next_token(mask, token)) > EXP_TOKEN_END;) {
        EXPRESS_CHECK(parser.position() > before && parser.position() <= text.size(),
                      "a token that does not advance");
        before = parser.position();
    }
}

// Runs `body` in a status context of its own; the symbol it raised, or null.
const char *raised_in(qv::FunctionRef<void()> body) {
    const char *raised = nullptr;
    qv::guarded("fuzz", "express_fuzz", __LINE__, body,
                [&](const char *symbol) { raised = symbol; });
    return raised;
}

bool parsed(const EXPRESSION_T *script) {
    return qv::express::state_of(script)->program != nullptr;
}

void script(const std::string &text) {
    const int32_t mask = -1;
    const std::size_t size = std::string_view(text.c_str()).size();
    EXPRESSION_T *script = New_Script_L(text.c_str(), "fuzz", nullptr);
    const char *raised = raised_in([&] { Parse_Script_L(script, functions(), 1); });
    if (raised != nullptr) {
        uint32_t position = 0;
        EXPRESS_CHECK(raised == GENERAL_ERROR, "a script parse raised other than GENERAL_ERROR");
        EXPRESS_CHECK(is_script_message(GetExpressionError_L(&position)),
                      "a script failure without a parser message");
        EXPRESS_CHECK(position <= size, "a script failure outside the text");
        EXPRESS_CHECK(!parsed(script), "statements kept after a failure");
    } else {
        EXPRESS_CHECK(parsed(script), "no statements after a parse");
        raised = raised_in([&] { Validate_Script_L(script); });
        EXPRESS_CHECK(raised == nullptr || raised == GENERAL_ERROR, "validation raised");
        EXPRESSION_T *copy = New_Script_L(text.c_str(), "fuzz", nullptr);
        int32_t changes = -1;
        raised = raised_in([&] { changes = UpgradeScript_L(copy, functions(), 1); });
        EXPRESS_CHECK(raised == nullptr && changes >= 0, "a script that parsed did not upgrade");
        raised = raised_in([&] { changes = UpgradeScript_L(copy, functions(), 1); });
        EXPRESS_CHECK(raised != nullptr ? GetExpressionError_L(nullptr) == QV_MSG_RECURSION_LIMIT
                                        : changes == 0,
                      "an upgraded script does not parse, or changes when upgraded again");
        Free_Script_L(copy);
    }
    const int32_t forced = ForceCoreScriptResult_L(script);
    EXPRESS_CHECK(forced != 1 || std::strncmp(script->text, "RETURN ", 7) == 0,
                  "a forced result that does not return");
    EXPRESS_CHECK(ReplaceInScript_L(script, "$x", "{$y}") >= -1, "a replacement went wrong");
    Free_Script_L(script);
}

void declarations(const std::string &text) {
    const int32_t mask = -1;
    InitialiseFunctions_L();
    PushFunctionArray_L();
    int32_t declared = 0;
    const char *raised =
        raised_in([&] { declared = Declare_Functions_L(text.c_str(), functions(), 1); });
    int32_t count = 0;
    Get_UserFunctions(&count);
    EXPRESS_CHECK(raised != nullptr ? raised == GENERAL_ERROR && count == 0 : declared == count,
                  "a declaration that failed kept functions, or declared other than it said");
    Clear_Functions();
    FreeFunctionArray_L(PopFunctionArray_L());
}

} // namespace

// The preference is read on every parse: from the environment it costs a lookup, from
// qv.ini a file search, which would dominate the run.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    setenv("QV_MAX_RECURSION", "100", 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    SetErrorSuppression_L(1); // nothing to log to; failures are checked above
    for (int32_t mask = 0; mask < 64; ++mask) {
        const Outcome postfix = parse(text, mask, false);
        const Outcome flat = parse(text, mask, true);
        EXPRESS_CHECK(postfix.parsed == flat.parsed && postfix.raised == flat.raised &&
                          postfix.number == flat.number && postfix.position == flat.position,
                      "text order and postfix order disagree");
        EXPRESS_CHECK(postfix.items == flat.items, "text order holds other items");
        tokens(text, mask);
    }
    script(text);
    declarations(text);
    return 0;
}
