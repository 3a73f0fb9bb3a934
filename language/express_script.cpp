// express_script.cpp - scripts (module "express"): the script record's state, parsing,
// validation, running and the script lines of the trace; the runner of user-defined
// functions' bodies; the hooks through which the parser's records, the registry and the
// evaluator reach this layer.
//
// Running walks the program's operations with one index (express_script.hpp): no
// recursion however deep the statements nest. What a run changes on the way (the scope
// stack, the nesting count, the trace depth) is undone by owners that a raise unwinds
// through, so a run left by a failure, an interrupt or Exit leaves the process as it was.
// A counted loop keeps its count and end in a slot of the run's own (every activation of a
// recursive function has its own), and gives the variable each count: what the body does
// to the variable cannot change the counting.
#define QV_MODULE "express"

#include "language/express_script.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <new>

#include "core/raise.hpp"
#include "language/builtin.hpp"
#include "qv/feedback.h"
#include "qv/message.h"
#include "qv/qvvar.h"
#include "qv/textutil.h"

namespace qv::express {

ScriptProgram::~ScriptProgram() {
    for (EXPRESSION_T *expression : expressions) Free_Expression_L(expression);
    for (EXP_ITEM_T &item : names) release_item(item);
    for (Label &label : labels) FreeValue_L(&label.value);
}

EXPRESSION_T *ScriptProgram::new_expression() {
    expressions.reserve(expressions.size() + 1); // so that keeping it cannot fail
    EXPRESSION_T *expression = New_Expression_L(nullptr);
    if (expression != nullptr) expressions.push_back(expression);
    return expression;
}

int32_t ScriptProgram::emit(const Op &op) {
    ops.push_back(op);
    return here() - 1;
}

} // namespace qv::express

namespace {

using namespace qv::express;

// ---- Records made in malloc'd blocks ---------------------------------------------------------

template <class T>
struct Destroy {
    void operator()(T *object) const {
        object->~T();
        std::free(object);
    }
};
template <class T>
using Owned = std::unique_ptr<T, Destroy<T>>;

template <class T>
Owned<T> make_owned() {
    void *block = QV_MALLOC(sizeof(T));
    return Owned<T>(block != nullptr ? new (block) T : nullptr);
}

void release_program(ScriptState &state) {
    if (state.program != nullptr) Destroy<ScriptProgram>()(state.program);
    state.program = nullptr;
    state.validated = false;
    state.result_variable = nullptr;
}

// The statements freer: what a script record keeps besides an expression's.
void free_script_parts(EXPRESSION_T *script) {
    if (ScriptState *state = state_of(script)) {
        release_program(*state);
        Destroy<ScriptState>()(state);
        script->statements = nullptr;
    }
    FreeVariableArray_L(script->variables);
    script->variables = script->locals = nullptr;
}

// ---- Variables and values --------------------------------------------------------------------

// Types whose payload is copied as it stands.
constexpr uint32_t kFixedTypes = QV_TYPE_INTEGER | QV_TYPE_FLOAT | QV_TYPE_BOOLEAN | QV_TYPE_DATE |
                                 QV_TYPE_TIME | QV_TYPE_TIME_TZ | QV_TYPE_DATE_TZ |
                                 QV_TYPE_INTERVAL_DS | QV_TYPE_INTERVAL_YM;

// A value into a variable that takes values as they are.
void store(QV_VALUE_T &variable, const QV_VALUE_T &value) {
    if (variable.owns_payload == 0 && (value.descriptor.type & kFixedTypes) != 0) {
        variable.descriptor = value.descriptor;
        variable.payload = value.payload;
        variable.is_null = value.is_null;
        return;
    }
    CopyValue_L(&variable, &value);
}

bool integer_of(const QV_VALUE_T &value, int64_t &out) {
    if (value.is_null != 0) return false;
    if (value.descriptor.type == QV_TYPE_INTEGER) {
        out = value.payload.integer;
        return true;
    }
    return ValueToInteger_L(&value, &out) == QV_VALUE_OK;
}

// The script's text marked at `position`, for messages.
qv::String marked(const EXPRESSION_T &script, uint32_t position) {
    const std::string_view text = script.text != nullptr ? script.text : "";
    const std::size_t at = std::min<std::size_t>(position, text.size());
    qv::String out(text.substr(0, at));
    return out.append(">>>").append(text.substr(at));
}

// ---- Tracing ---------------------------------------------------------------------------------

const char *shown_name(const qv::HeapText &name) {
    return name != nullptr ? name.get() : "";
}

void trace_assignment(const VARIABLE_T &variable) {
    Trace_L(1, trace_depth, "[%U] = ", variable.name);
    trace_value(variable.value, false);
}

void trace_script_end(const ScriptState &state, const QV_VALUE_T &result, int32_t depth) {
    Trace_L(1, depth, "<== %U %U -> ", shown_name(state.name), shown_name(state.owner));
    trace_value(result, (trace_active & EXP_TRACE_DATATYPE) != 0);
}

// ---- Validation ------------------------------------------------------------------------------

StaticType static_type(const QV_VALUE_T &value) {
    if (value.is_null != 0 && value.descriptor.type == 0) return {{}, true};
    return {{value.descriptor.type, value.descriptor.precision, value.descriptor.scale, 0}, false};
}

// Pushes arrays on the scope stack for as long as it lives.
class Scope {
  public:
    Scope() = default;
    Scope(const Scope &) = delete;
    Scope &operator=(const Scope &) = delete;
    ~Scope() {
        for (int32_t i = count_ - 1; i >= 0; --i) PopVariableArray_L(arrays_[i]);
    }
    bool push(VARIABLE_ARRAY_T *array) {
        if (array == nullptr) return true;
        if (PushVariableArray_L(array) == nullptr) return false;
        arrays_[count_++] = array;
        return true;
    }

  private:
    std::array<VARIABLE_ARRAY_T *, 2> arrays_{};
    int32_t count_ = 0;
};

class Validator {
  public:
    Validator(EXPRESSION_T &script, ScriptState &state)
        : script_(script), state_(state), program_(*state.program) {}

    bool run() {
        if (!make_arrays()) return false;
        Scope scope;
        if (state_.function != nullptr) {
            if (!scope.push(script_.locals) || !scope.push(state_.function->parameters))
                return false;
        } else if (!scope.push(script_.variables) || !result_variable()) {
            return false;
        }
        for (Op &op : program_.ops)
            if (!operation(op)) return false;
        if (problems_ > 0) {
            if (ErrorsSuppressed_L() == 0) {
                PWMessage message(QV_MSG_VALIDATION_FAILED, MESSAGE_SEVERITY_ERROR);
                LogMessage_L(&message);
            }
            QV_RAISE(GENERAL_ERROR);
            return false;
        }
        return true;
    }

  private:
    // A script's own array, named after it; a body's locals, named after its function.
    bool make_arrays() {
        EXP_USER_FUNCTION_T *function = state_.function;
        VARIABLE_ARRAY_T *&own = function != nullptr ? function->locals : script_.variables;
        if (own == nullptr &&
            (own = NewVariableArray_L(function != nullptr ? function->id.name
                                                          : state_.name.get())) == nullptr)
            return false;
        script_.locals = own;
        return true;
    }

    bool result_variable() {
        VARIABLE_T *&variable = state_.result_variable;
        variable = FindVariableOnArray_L(script_.variables, QV_SCRIPT_RESULT_VARIABLE);
        if (variable == nullptr)
            variable =
                CreateVariable_L(script_.variables, QV_SCRIPT_RESULT_VARIABLE, 0, 0, 0, nullptr);
        return variable != nullptr;
    }

    bool operation(Op &op) {
        switch (op.kind) {
            case OpKind::assign:
                return target(op) && expression(op.expression) && hint(op, op.expression);
            case OpKind::for_start:
                if (!target(op) || !expression(op.expression) || !expression(op.bound))
                    return false;
                return hint(op, nullptr);
            case OpKind::for_next: return target(op, false);
            case OpKind::case_of: return expression(op.expression) && labels(op);
            case OpKind::return_value:
                op.variable = state_.result_variable;
                return op.expression == nullptr || expression(op.expression);
            case OpKind::call:
            case OpKind::jump_unless: return expression(op.expression);
            case OpKind::jump: return true;
        }
        return true;
    }

    // The variable an operation assigns: found through the scope stack, else made in the
    // script's own array. A read-only one is a problem.
    bool target(Op &op, bool report = true) {
        const EXP_ITEM_T &name = program_.names[static_cast<std::size_t>(op.name)];
        op.variable = FindVariable_L(name.names[0], 0);
        if (op.variable == nullptr && (op.variable = CreateVariable_L(script_.locals, name.names[0],
                                                                      0, 0, 0, nullptr)) == nullptr)
            return false;
        op.convert = !takes_values_as_they_are(*op.variable);
        if (report && op.variable->read_only != 0) problem_read_only(name, op.position);
        return true;
    }

    bool takes_values_as_they_are(const VARIABLE_T &variable) const {
        if (variable.owner == script_.locals) return true;
        const EXP_USER_FUNCTION_T *function = state_.function;
        if (function != nullptr && variable.owner == function->parameters) {
            const VARIABLE_ARRAY_T &parameters = *function->parameters;
            for (int32_t i = 0; i < parameters.count; ++i)
                if (parameters.variables[i] == &variable)
                    return function->parameter_values[i].descriptor.type == 0;
        }
        return variable.value.descriptor.type == 0;
    }

    // A variable the script types as it goes, still NULL and untyped, takes the type the
    // value it is first given will have, so that the expressions reading it are prepared
    // for that type (the evaluator checks the types again as it runs). A CHAR takes no
    // length: the variable would then cut what another script assigns it.
    static bool hint(const Op &op, const EXPRESSION_T *value) {
        QV_VALUE_T &current = op.variable->value;
        if (op.convert || current.is_null == 0 || current.descriptor.type != 0) return true;
        current.descriptor = value != nullptr ? result_bound(value->result_type, false)
                                              : QV_DATATYPE_T{QV_TYPE_INTEGER, 0, 0, 0};
        return true;
    }

    bool expression(EXPRESSION_T *expression) {
        if (Validate_Expression_L(expression) == 1) return true;
        QV_RAISE(GENERAL_ERROR); // an expression under evaluation cannot be validated
        return false;
    }

    bool labels(Op &op) {
        const StaticType selector{op.expression->result_type, false};
        for (int32_t i = 0; i < op.labels; ++i) {
            Label &label = program_.labels[static_cast<std::size_t>(op.first_label + i)];
            label.equal = operator_executor(EXP_OP_EQUAL, selector, static_type(label.value));
        }
        return true;
    }

    void problem_read_only(const EXP_ITEM_T &name, uint32_t position) {
        ++problems_;
        if (ErrorsSuppressed_L() != 0) return;
        PWMessage message(QV_MSG_VARIABLE_READ_ONLY, MESSAGE_SEVERITY_ERROR);
        message << name.display << position << marked(script_, position).c_str();
        LogMessage_L(&message);
    }

    EXPRESSION_T &script_;
    ScriptState &state_;
    ScriptProgram &program_;
    int32_t problems_ = 0;
};

// ---- Running ---------------------------------------------------------------------------------

enum class Outcome { failed, completed, returned };

struct Count {
    int64_t value, end;
};

// The counts of a run's loops: in place for a few, in a block of their own beyond.
class Counts {
  public:
    explicit Counts(int32_t loops) {
        if (loops > static_cast<int32_t>(local_.size()))
            heap_.reset(
                static_cast<Count *>(QV_MALLOC(sizeof(Count) * static_cast<std::size_t>(loops))));
    }
    Count *get() { return heap_ != nullptr ? heap_.get() : local_.data(); }
    bool made(int32_t loops) const {
        return loops <= static_cast<int32_t>(local_.size()) || heap_ != nullptr;
    }

  private:
    std::array<Count, 8> local_;
    qv::HeapArray<Count> heap_;
};

class Runner {
  public:
    Runner(EXPRESSION_T &script, ScriptState &state, Count *counts)
        : script_(script), state_(state), program_(*state.program), counts_(counts) {}

    Outcome run() {
        const Op *const ops = program_.ops.data();
        const int32_t count = program_.here();
        int32_t at = 0;
        while (at < count) {
            const Op &op = ops[at];
            switch (op.kind) {
                case OpKind::assign:
                    if (Solve_Expression_L(op.expression) != 0 ||
                        !assign(op, op.expression->result))
                        return Outcome::failed;
                    ++at;
                    break;
                case OpKind::call:
                    if (Solve_Expression_L(op.expression) != 0) return Outcome::failed;
                    ++at;
                    break;
                case OpKind::jump_unless:
                    if (Solve_Expression_L(op.expression) != 0) return Outcome::failed;
                    at = holds(op.expression->result) ? at + 1 : op.target;
                    break;
                case OpKind::jump:
                    if (op.target <= at && !turn()) return Outcome::failed;
                    at = op.target;
                    break;
                case OpKind::for_start:
                    if (!for_start(op, at)) return Outcome::failed;
                    break;
                case OpKind::for_next:
                    if (!for_next(op, at)) return Outcome::failed;
                    break;
                case OpKind::case_of:
                    if (!select(op, at)) return Outcome::failed;
                    break;
                case OpKind::return_value: return give_back(op);
            }
        }
        return Outcome::completed;
    }

  private:
    // A loop's turn: an interrupt requested ends the run (raised).
    static bool turn() { return Check_Interrupt_L(1) == 0; }

    bool assign(const Op &op, const QV_VALUE_T &value) {
        VARIABLE_T &variable = *op.variable;
        if (variable.read_only != 0) return read_only(op);
        if (!op.convert) {
            store(variable.value, value);
            variable.changed = 1;
        } else if (UpdateVariableValue_L(&variable, &value, 1) == QV_CONVERT_TOO_LONG) {
            qv::HeapText type(DisplayDataType_L(&variable.value.descriptor, 1));
            return QV_EVAL_FAIL(QV_MSG_RESULT_DOES_NOT_FIT, type.get());
        }
        if ((trace_active & EXP_TRACE_VARIABLE) != 0) [[unlikely]]
            trace_assignment(variable);
        return true;
    }

    bool read_only(const Op &op) {
        const EXP_ITEM_T &name = program_.names[static_cast<std::size_t>(op.name)];
        return QV_EVAL_FAIL(QV_MSG_VARIABLE_READ_ONLY, name.display, op.position,
                            marked(script_, op.position).c_str());
    }

    bool count_into(const Op &op, int64_t count) {
        if (!op.convert && op.variable->read_only == 0) {
            put_integer(op.variable->value, count);
            op.variable->changed = 1;
            if ((trace_active & EXP_TRACE_VARIABLE) != 0) [[unlikely]]
                trace_assignment(*op.variable);
            return true;
        }
        QV_VALUE_T value{};
        SetIntegerValue_L(&value, count);
        return assign(op, value);
    }

    bool for_start(const Op &op, int32_t &at) {
        if (Solve_Expression_L(op.expression) != 0 || Solve_Expression_L(op.bound) != 0)
            return false;
        int64_t start = 0, end = 0;
        if (!integer_of(op.expression->result, start) || !integer_of(op.bound->result, end) ||
            (op.downward ? start < end : start > end)) {
            at = op.target;
            return true;
        }
        counts_[op.loop] = {start, end};
        ++at;
        return count_into(op, start);
    }

    bool for_next(const Op &op, int32_t &at) {
        Count &count = counts_[op.loop];
        if (count.value == count.end) {
            ++at;
            return true;
        }
        count.value += op.downward ? -1 : 1;
        at = op.target;
        return count_into(op, count.value) && turn();
    }

    // CASE: the first label "=" the selector, compared by the routine validation chose
    // for the two types.
    bool select(const Op &op, int32_t &at) {
        if (Solve_Expression_L(op.expression) != 0) return false;
        QV_VALUE_T equal{};
        QV_VALUE_T *values[3] = {&equal, &op.expression->result, nullptr};
        Step step;
        step.out = 0;
        step.a = 1;
        step.b = 2;
        at = op.target;
        bool compared = true;
        for (int32_t i = 0; i < op.labels && compared; ++i) {
            const Label &label = program_.labels[static_cast<std::size_t>(op.first_label + i)];
            values[2] = const_cast<QV_VALUE_T *>(&label.value);
            compared = label.equal(step, values);
            if (compared && holds(equal)) {
                at = label.target;
                break;
            }
        }
        FreeValue_L(&equal);
        return compared;
    }

    // RETURN: a script's value goes into RUN_SCRIPT_RETURN, a body's into its result.
    Outcome give_back(const Op &op) {
        if (op.expression == nullptr) return Outcome::returned;
        if (Solve_Expression_L(op.expression) != 0) return Outcome::failed;
        if (state_.function != nullptr)
            std::swap(script_.result, op.expression->result);
        else
            store(op.variable->value, op.expression->result);
        return Outcome::returned;
    }

    EXPRESSION_T &script_;
    ScriptState &state_;
    ScriptProgram &program_;
    Count *counts_;
};

// Runs a validated program with counts of its own.
Outcome run_program(EXPRESSION_T &script, ScriptState &state) {
    Counts counts(state.program->loops);
    if (!counts.made(state.program->loops)) return Outcome::failed;
    ++state.running;
    struct Running {
        ScriptState &state;
        ~Running() { --state.running; }
    } running{state};
    return Runner(script, state, counts.get()).run();
}

// ---- Scripts run by the host --------------------------------------------------------------------

// What a run under way holds: the nesting count, the script's array on the scope stack and
// the trace depth, given back however the run ends.
class ScriptRun {
  public:
    explicit ScriptRun(EXPRESSION_T &script) : array_(script.variables), depth_(trace_depth) {
        ++run_nesting;
        pushed_ = PushVariableArray_L(array_) != nullptr;
    }
    ScriptRun(const ScriptRun &) = delete;
    ScriptRun &operator=(const ScriptRun &) = delete;
    ~ScriptRun() {
        if (pushed_) PopVariableArray_L(array_);
        --run_nesting;
        trace_depth = depth_;
    }
    bool pushed() const { return pushed_; }
    int32_t depth() const { return depth_; }

  private:
    VARIABLE_ARRAY_T *array_;
    int32_t depth_;
    bool pushed_ = false;
};

// `value` into `result` in the script's declared result type, or as it is.
bool into_result(EXPRESSION_T &script, const QV_VALUE_T &value, QV_VALUE_T &result) {
    if (script.result_declared == 0) {
        CopyValue_L(&result, &value);
        return true;
    }
    return qv::express::convert_into_result(result, script.result_type, value);
}

// The script's result: RUN_SCRIPT_RETURN as the run left it.
bool take_result(EXPRESSION_T &script, const ScriptState &state) {
    return into_result(script, state.result_variable->value, script.result);
}

bool prepared(EXPRESSION_T &script, ScriptState &state) {
    if (state.program == nullptr && Parse_Script_L(&script, nullptr, 0) == 0 &&
        state.program == nullptr)
        return false;
    return state.validated || validate_script(script);
}

int32_t run_script(EXPRESSION_T &script) {
    ScriptState *state = ensure_state(&script);
    if (state == nullptr || !prepared(script, *state)) return QV_SCRIPT_FAILED;
    if (run_nesting >= recursion_limit) {
        Msgbuf8[0] = '\0';
        QV_EVAL_FAIL(QV_MSG_RECURSION_LIMIT);
        return QV_SCRIPT_FAILED;
    }
    FreeValue_L(&script.result);
    FreeValue_L(&state->result_variable->value);
    ScriptRun run(script);
    if (!run.pushed()) return QV_SCRIPT_FAILED;
    const bool traced = (trace_active & EXP_TRACE_BASIC) != 0;
    if (traced)
        Trace_L(1, run.depth(), "==> %U %U", shown_name(state->name), shown_name(state->owner));
    ++trace_depth;
    const Outcome outcome = run_program(script, *state);
    if (outcome == Outcome::failed || !take_result(script, *state)) return QV_SCRIPT_FAILED;
    if (traced) trace_script_end(*state, script.result, run.depth());
    return outcome == Outcome::returned ? QV_SCRIPT_RETURNED : QV_SCRIPT_COMPLETED;
}

bool is_exit(const char *raised) {
    return raised == STATUS_RAISED && Exc_Status_Symbol != nullptr &&
           std::strcmp(Exc_Status_Symbol, "exit_code") == 0;
}

// ---- User-defined functions' bodies ---------------------------------------------------------

// The declared type of each parameter, into which its argument is converted.
void convert_parameters(const EXP_USER_FUNCTION_T &function) {
    const VARIABLE_ARRAY_T *parameters = function.parameters;
    if (parameters == nullptr || function.parameter_values == nullptr) return;
    for (int32_t i = 0; i < parameters->count; ++i) {
        const QV_DATATYPE_T &declared = function.parameter_values[i].descriptor;
        QV_VALUE_T &value = parameters->variables[i]->value;
        const QV_DATATYPE_T &given = value.descriptor;
        const bool any_length = declared.type == QV_TYPE_CHAR && declared.precision == 0;
        if (declared.type == 0 ||
            (given.type == declared.type && (any_length || (given.precision == declared.precision &&
                                                            given.scale == declared.scale))))
            continue;
        QV_VALUE_T converted{};
        converted.descriptor = {declared.type, declared.precision, declared.scale, 0};
        ConvertValue_L(&converted, &value, 0, 0);
        FreeValue_L(&value);
        value = converted;
    }
}

const QV_VALUE_T *run_body(EXP_USER_FUNCTION_T *function) {
    EXPRESSION_T *body = function->body;
    ScriptState *state = state_of(body);
    if (state == nullptr || state->program == nullptr) // a body that is an expression
        return Solve_Expression_L(body) == 0 ? &body->result : nullptr;
    if (!state->validated && Validate_Script_L(body) != 1) return nullptr;
    convert_parameters(*function);
    if (const VARIABLE_ARRAY_T *locals = function->locals)
        for (int32_t i = 0; i < locals->count; ++i) FreeValue_L(&locals->variables[i]->value);
    FreeValue_L(&body->result);
    if (run_program(*body, *state) == Outcome::failed) return nullptr;
    const QV_DATATYPE_T &declared = body->result_type, &given = body->result.descriptor;
    if (body->result_declared == 0 ||
        (given.type == declared.type && given.precision == declared.precision &&
         given.scale == declared.scale))
        return &body->result;
    QV_VALUE_T converted{};
    const bool converted_ok = into_result(*body, body->result, converted);
    FreeValue_L(&body->result);
    body->result = converted;
    return converted_ok ? &body->result : nullptr;
}

} // namespace

namespace qv::express {

ScriptState *ensure_state(EXPRESSION_T *script) {
    if (script->statements == nullptr) script->statements = make_owned<ScriptState>().release();
    return state_of(script);
}

void drop_program(EXPRESSION_T *script) {
    if (ScriptState *state = state_of(script)) release_program(*state);
}

void install_script_hooks() {
    install_statements_freer(free_script_parts);
    qv::install_script_freer(Free_Script_L);
    install_body_runner(run_body);
}

Vector<const ExpFunction *> script_tables(const ExpFunction *const *tables, int32_t count) {
    Vector<const ExpFunction *> list;
    if (tables != nullptr && count > 0) list.assign(tables, tables + count);
    int32_t functions = 0;
    if (const ExpFunction *records = Get_FunctionArray(&functions); functions > 0)
        list.push_back(records);
    return list;
}

namespace {

int32_t statements_of(EXPRESSION_T *script, const ExpFunction *const *tables, int32_t count,
                      const StatementOptions &options, ParseBegin begin) {
    recursion_limit = read_recursion_limit();
    const std::string_view text(script->text);
    const Vector<const ExpFunction *> list = script_tables(tables, count);
    Parser parser(text, list.data(), static_cast<int32_t>(list.size()),
                  std::clamp(recursion_limit, 0, EXP_MAX_NESTING));
    Owned<ScriptProgram> program = make_owned<ScriptProgram>();
    if (program == nullptr) return 0;
    uint32_t ended_early = UINT32_MAX;
    if (begin(parser) && parse_statements(parser, *program, options, ended_early)) {
        last_error = {};
        const bool any = !program->ops.empty();
        state_of(script)->program = program.release();
        return any ? 1 : 0;
    }
    if (ended_early == UINT32_MAX && parser.out_of_memory()) return 0; // raised already
    report_failure(text, ended_early != UINT32_MAX ? ended_early : last_error.position,
                   ended_early != UINT32_MAX);
    QV_RAISE(GENERAL_ERROR);
    return 0;
}

} // namespace

int32_t parse_script(EXPRESSION_T *script, const ExpFunction *const *tables, int32_t count,
                     const StatementOptions &options, ParseBegin begin, const char *context) {
    if (script == nullptr) return 0;
    last_error = {};
    ScriptState *state = ensure_state(script);
    if (state == nullptr || state->running > 0) return 0; // not while it runs
    release_program(*state);
    if (script->text != nullptr) TrimUtil8_L(script->text, nullptr, QV_TRIM_BOTH);
    if (script->text == nullptr || script->text[0] == '\0') {
        state->program = make_owned<ScriptProgram>().release(); // a script that does nothing
        return 0;
    }
    int32_t parsed = 0;
    qv::guarded(
        context, QV_MODULE, __LINE__,
        [&] {
            parsed =
                QV_C_ENTRY([&] { return statements_of(script, tables, count, options, begin); });
        },
        [&](const char *raised) {
            if (raised != GENERAL_ERROR) {
                last_error = {};
                set_msgbuf(raised == ALLOC_FAILURE || raised == ZERO_ALLOC_FAILURE
                               ? "not enough memory to parse the script"
                               : "the parse was stopped by a failure");
            }
            QV_RERAISE();
        });
    return parsed;
}

bool validate_script(EXPRESSION_T &script) {
    ScriptState &state = *state_of(&script);
    state.validated = false;
    if (!Validator(script, state).run()) return false;
    state.validated = true;
    return true;
}

} // namespace qv::express

namespace {
[[maybe_unused]] const bool hooks_installed = (qv::express::install_script_hooks(), true);
} // namespace

extern "C" {

QV_API EXPRESSION_T *New_Script_L(const char *text, const char *name, const char *owner) {
    std::unique_ptr<EXPRESSION_T, decltype(&Free_Expression_L)> script(New_Expression_L(text),
                                                                       Free_Expression_L);
    ScriptState *state = script != nullptr ? ensure_state(script.get()) : nullptr;
    if (state == nullptr) return nullptr;
    if (name != nullptr && (state->name = qv::HeapText(QV_STRDUP(name))) == nullptr) return nullptr;
    if (owner != nullptr && (state->owner = qv::HeapText(QV_STRDUP(owner))) == nullptr)
        return nullptr;
    return script.release();
}

QV_API int32_t Parse_Script_L(EXPRESSION_T *script, const ExpFunction *const *tables,
                              int32_t table_count) {
    return parse_script(
        script, tables, table_count, {}, [](Parser &) { return true; }, "Parse_Script_L");
}

QV_API int32_t BindScript_L(EXPRESSION_T *script, const EXP_BINDING_T *bindings, int32_t count) {
    const ScriptState *state = script != nullptr ? state_of(script) : nullptr;
    if (state == nullptr || count < 0 || (bindings == nullptr && count > 0)) return -1;
    int32_t unbound = 0;
    if (state->program != nullptr)
        for (EXPRESSION_T *expression : state->program->expressions)
            unbound += BindExpression_L(expression, bindings, count);
    return unbound;
}

QV_API int32_t Validate_Script_L(EXPRESSION_T *script) {
    if (script == nullptr) return 0;
    int32_t valid = 0;
    qv::guarded("Validate_Script_L", QV_MODULE, __LINE__, [&] {
        valid = QV_C_ENTRY([&] {
            ScriptState *state = ensure_state(script);
            if (state != nullptr && state->running > 0) return state->validated ? 1 : 0;
            return state != nullptr && prepared(*script, *state) ? 1 : 0;
        });
    });
    return valid;
}

QV_API int32_t Run_Script_L(EXPRESSION_T *script, int32_t *exit_code) {
    if (exit_code != nullptr) *exit_code = 0;
    if (script == nullptr) return QV_SCRIPT_FAILED;
    if (Check_Interrupt_L(0) != 0) {
        TraceOff_L();
        return QV_SCRIPT_INTERRUPTED;
    }
    int32_t outcome = QV_SCRIPT_FAILED;
    qv::guarded(
        "run_script", QV_MODULE, __LINE__,
        [&] { outcome = QV_C_ENTRY([&] { return run_script(*script); }); },
        [&](const char *raised) {
            ScriptState *state = state_of(script);
            if (raised == INTERRUPT_PROCESS) {
                TraceOff_L();
                FreeValue_L(&script->result);
                outcome = QV_SCRIPT_INTERRUPTED;
            } else if (is_exit(raised) && state != nullptr && state->result_variable != nullptr &&
                       take_result(*script, *state)) {
                if (exit_code != nullptr) *exit_code = Exc_Status;
                if ((trace_active & EXP_TRACE_BASIC) != 0)
                    trace_script_end(*state, script->result, trace_depth);
                outcome = QV_SCRIPT_EXITED;
            } else {
                FreeValue_L(&script->result);
                QV_RERAISE();
            }
        });
    return outcome;
}

QV_API void Cleanup_Script_L(EXPRESSION_T *script) {
    ScriptState *state = script != nullptr ? state_of(script) : nullptr;
    if (state == nullptr || state->running > 0 || state->program == nullptr) return;
    for (EXPRESSION_T *expression : state->program->expressions) Cleanup_Expression_L(expression);
    state->validated = false;
}

QV_API void Free_Script_L(EXPRESSION_T *script) {
    Free_Expression_L(script);
}

} // extern "C"
