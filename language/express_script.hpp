// express_script.hpp - the inside of the script layer (module "express"): the program a
// script's statements are parsed into, the state a script record keeps, and what the
// statement parser, the runner, the declarations of user-defined functions and the text
// maintenance share.
//
// The program. A script's statements become a flat array of operations run by one loop:
// control statements become conditional and plain jumps to operation indices, so running
// never recurses however deep the statements nest. Every expression of the script is an
// expression record of its own (its text null, its items' positions those of the script's
// text), owned by the program, validated and solved as any expression:
//
//     IF c THEN s1 ELSE s2        jump_unless c -> L1; s1; jump -> L2; L1: s2; L2:
//     WHILE c DO s                L0: jump_unless c -> L1; s; jump -> L0 (back); L1:
//     FOR $i := a TO b DO s       for_start a, b -> L1; L0: s; for_next -> L0; L1:
//     CASE e OF v: s1; DEFAULT: s2 END
//                                 case_of e [v -> L0] default -> L1; L0: s1; jump -> L2;
//                                 L1: s2; L2:
//
// The state. A script record's `statements` points at its ScriptState (made by
// New_Script_L, or by the first parse of a record made otherwise): the script's two names,
// its program once parsed, whether that is validated, and for a function's body the
// function. `variables` is the script's own variable array; `locals` is where assigned
// variables found nowhere are created: `variables` for a script, the function's locals for
// a body. Free_Expression_L frees the state through the hook the script layer installs.
#pragma once

#include <cstdint>
#include <string_view>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "language/express.hpp"
#include "language/express_eval.hpp"
#include "qv/express.h"

namespace qv::express {

enum class OpKind : uint8_t {
    assign,       // variable := expression
    call,         // expression (a call) for its effect
    jump_unless,  // to target unless the expression holds
    jump,         // to target
    for_start,    // counter := expression .. bound; to target when the range is empty
    for_next,     // counter +/- 1 and back to target, unless it reached the bound
    case_of,      // the first label equal to the expression, else to target
    return_value, // ends the run (with the expression's value when there is one)
};

struct Op {
    OpKind kind = OpKind::jump;
    bool downward = false;               // for_start, for_next: DOWNTO
    bool convert = false;                // assign: into the variable's declared type
    int32_t target = 0;                  // the operation jumped to
    EXPRESSION_T *expression = nullptr;  // value, condition, call, start, selector
    EXPRESSION_T *bound = nullptr;       // for_start: the end
    int32_t name = -1;                   // assign, for_*: the variable's item in `names`
    int32_t loop = 0;                    // for_*: the loop's counter
    int32_t first_label = 0, labels = 0; // case_of
    uint32_t position = 0;               // the statement's first byte
    VARIABLE_T *variable = nullptr;      // assign, for_*, return_value: bound by validation
};

// A CASE branch's value and the operation it leads to.
struct Label {
    QV_VALUE_T value{};
    int32_t target = 0;
    uint32_t position = 0;
    Executor equal = nullptr; // chosen by validation for the selector's type
};

class ScriptProgram {
  public:
    ScriptProgram() = default;
    ScriptProgram(const ScriptProgram &) = delete;
    ScriptProgram &operator=(const ScriptProgram &) = delete;
    ~ScriptProgram();

    // A new expression record owned by the program; null after an allocation failure.
    EXPRESSION_T *new_expression();
    int32_t emit(const Op &op); // the new operation's index
    int32_t here() const { return static_cast<int32_t>(ops.size()); }

    Vector<Op> ops;
    Vector<EXP_ITEM_T> names; // the variables assigned or counted, as the parser read them
    Vector<Label> labels;
    Vector<EXPRESSION_T *> expressions;
    int32_t loops = 0;
};

struct ScriptState {
    HeapText name, owner;
    ScriptProgram *program = nullptr; // null until parsed
    bool validated = false;
    int32_t running = 0;                     // runs under way
    VARIABLE_T *result_variable = nullptr;   // RUN_SCRIPT_RETURN, made by validation
    EXP_USER_FUNCTION_T *function = nullptr; // the function whose body this is
};

inline ScriptState *state_of(const EXPRESSION_T *script) {
    return static_cast<ScriptState *>(script->statements);
}
// The script's state, made when the record has none; null after an allocation failure.
ScriptState *ensure_state(EXPRESSION_T *script);
// Frees the program (and the validation it had); the state stays.
void drop_program(EXPRESSION_T *script);
// Installs the freer of script records, the registry's script freer and the runner of
// user-defined functions' bodies (done when the library loads).
void install_script_hooks();

// ---- The statement parser (express_statement.cpp) ------------------------------------------

// The context mask statements and their expressions are read with.
inline constexpr int32_t script_mask =
    EXP_MASK_EXPRESSION | EXP_MASK_SCRIPT | EXP_MASK_CONDITION | EXP_MASK_ASSIGN;

// A statement governed by THEN, ELSE or DO (UpgradeScript_L): where it starts, where the
// token that ended it starts, and how deep it nests; `block` when it is BEGIN ... END.
struct Branch {
    uint32_t start = 0;
    uint32_t end = 0;
    int32_t depth = 0;
    bool block = false;
};

struct StatementOptions {
    bool body = false;                   // a function's body: RETURN needs a value
    Vector<Branch> *branches = nullptr;  // when given, receives every governed statement
    Vector<uint32_t> *dropped = nullptr; // when given, the ";" standing before an ELSE
};

// Parses statements from the parser's position into `program`: to the end of the text, or
// for a body from "BEGIN" (the next token) to its "END", which must end the text but for
// one ";". Returns true when they parsed; false after a failure, recorded in the parser
// (see express.hpp), or when `ended_early` was set to a stray END's position.
bool parse_statements(Parser &parser, ScriptProgram &program, const StatementOptions &options,
                      uint32_t &ended_early);

// ---- Parsing entry (express_script.cpp) ----------------------------------------------------

// The tables a script is parsed with: the caller's, then the current function array's
// records. `tables` may be null when `count` is 0.
Vector<const ExpFunction *> script_tables(const ExpFunction *const *tables, int32_t count);

// Parses `script`'s text, the parser made over it by `begin` when the text is not empty
// (a body's declaration reader reads the header first); reports a failure as
// Parse_Script_L does. Returns 1, 0 (nothing to parse, or a failure raised).
using ParseBegin = FunctionRef<bool(Parser &parser)>;
int32_t parse_script(EXPRESSION_T *script, const ExpFunction *const *tables, int32_t count,
                     const StatementOptions &options, ParseBegin begin, const char *context);

// Validates a parsed script (see Validate_Script_L) inside the caller's status context;
// false after a failure (logged, raised).
bool validate_script(EXPRESSION_T &script);

} // namespace qv::express
