// express_call.cpp - function calls of the evaluator (module "express"): built-in and host
// functions through the registry's dispatcher, user-defined functions run as their body,
// and variables that did not exist when the expression was validated.
//
// A call hands the handler the frame validation made for the item, with the argument
// pointers pointing at the operand values themselves. A user-defined call is an
// Activation: it checks the stack and the nesting, keeps the values of a running
// activation of the same function aside, pushes the function's arrays on the scope stack,
// and undoes all of it when it ends, also when a raise passes through it.
#define QV_MODULE "express"

#include <pthread.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <utility>

#include "core/raise.hpp"
#include "language/express_eval.hpp"
#include "qv/message.h"
#include "qv/qvvar.h"

namespace qv::express {

int32_t run_nesting = 0;

} // namespace qv::express

namespace {

using namespace qv::express;

// ---- Arguments -----------------------------------------------------------------------------

bool wrap_arguments(const Step &step, EXP_CALL_FRAME_T &frame) {
    for (int32_t i = 0; i < step.count; ++i) {
        QV_VALUE_T *argument = frame.arguments[i];
        if (i < 64 && (step.call->unwrapped >> i & 1) != 0) continue;
        if (argument_flags(*frame.function, i) != QV_TYPE_ARRAY ||
            (argument->descriptor.type & wrapped_types) == 0)
            continue;
        QV_VALUE_T &wrapper = frame.argument_slots[i];
        if (ModifyArray_L(&wrapper, 1) != 0) return false; // raised
        CopyValue_L(ArrayValueItem_L(&wrapper, 0), argument);
        frame.arguments[i] = &wrapper;
    }
    return true;
}

// Points the frame at the arguments; an ARRAY position given another value gets it wrapped
// into a one-element array, kept in the frame's argument slots.
inline bool pass_arguments(const Step &step, QV_VALUE_T *const *values, EXP_CALL_FRAME_T &frame) {
    QV_VALUE_T **arguments = frame.arguments;
    for (int32_t i = 0; i < step.count; ++i) arguments[i] = values[step.list[i]];
    return !step.call->wraps || wrap_arguments(step, frame);
}

// ---- User-defined functions ----------------------------------------------------------------

// The stack guard: the call goes on only while this many pages of the thread's stack are
// left below the current frame.
constexpr std::size_t kGuardPages = 4;

struct StackBounds {
    uintptr_t low = 0; // 0: unknown, no guard
    std::size_t page = 4096;
};

StackBounds read_stack_bounds() {
    StackBounds bounds;
    if (const long page = sysconf(_SC_PAGESIZE); page > 0)
        bounds.page = static_cast<std::size_t>(page);
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return bounds;
    void *address = nullptr;
    std::size_t size = 0;
    if (pthread_attr_getstack(&attributes, &address, &size) == 0)
        bounds.low = reinterpret_cast<uintptr_t>(address);
    pthread_attr_destroy(&attributes);
    return bounds;
}

bool stack_left() {
    thread_local const StackBounds bounds = read_stack_bounds();
    const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    return bounds.low == 0 || here < bounds.low || here - bounds.low >= kGuardPages * bounds.page;
}

const QV_VALUE_T *solve_body(EXP_USER_FUNCTION_T *function) {
    EXPRESSION_T *body = function->body;
    return Solve_Expression_L(body) == 0 ? &body->result : nullptr;
}

BodyRunner body_runner = solve_body;

// Marks a parameter declared without a type, which takes each argument as it is.
constexpr uint8_t kUntypedParameter = 0x1;

// Each argument into its parameter, in order, converted into the parameter's declared type
// (a parameter without one takes a copy); parameters past the arguments become NULL.
void set_parameters(EXP_USER_FUNCTION_T &function, const EXP_CALL_FRAME_T &frame) {
    VARIABLE_ARRAY_T *parameters = function.parameters;
    if (parameters == nullptr) return;
    for (int32_t i = 0; i < parameters->count; ++i) {
        QV_VALUE_T &parameter = parameters->variables[i]->value;
        const QV_VALUE_T *argument = i < frame.argument_count ? frame.arguments[i] : nullptr;
        if (parameter.descriptor.type != 0 && (parameter.eval_flags & kUntypedParameter) == 0) {
            ConvertValue_L(&parameter, argument, 0, 0);
            continue;
        }
        CopyValue_L(&parameter, argument);
        parameter.eval_flags = kUntypedParameter;
    }
}

// Parameters declared without a type become so again when the call ends.
void untype_parameters(VARIABLE_ARRAY_T *parameters) {
    for (int32_t i = 0; parameters != nullptr && i < parameters->count; ++i) {
        QV_VALUE_T &parameter = parameters->variables[i]->value;
        if ((parameter.eval_flags & kUntypedParameter) == 0) continue;
        FreeValue_L(&parameter);
        parameter.descriptor = {};
        parameter.eval_flags = 0;
    }
}

// One call of a user-defined function, from entry to exit.
class Activation {
  public:
    explicit Activation(EXP_USER_FUNCTION_T &function)
        : function_(function), outer_(innermost_), depth_(trace_depth) {
        innermost_ = this;
        ++run_nesting;
        ++trace_depth;
    }
    Activation(const Activation &) = delete;
    Activation &operator=(const Activation &) = delete;
    ~Activation() {
        if (pushed_parameters_) PopVariableArray_L(function_.parameters);
        if (pushed_locals_) PopVariableArray_L(function_.locals);
        untype_parameters(function_.parameters);
        put_back(function_.parameters, saved_parameters_);
        put_back(function_.locals, saved_locals_);
        innermost_ = outer_;
        --run_nesting;
        trace_depth = depth_;
    }

    // Keeps a running activation's values aside and pushes the locals (when there are
    // any) and the parameters. False after an allocation failure (raised).
    bool enter() {
        if (running_already() && (!keep_aside(function_.parameters, saved_parameters_) ||
                                  !keep_aside(function_.locals, saved_locals_)))
            return false;
        VARIABLE_ARRAY_T *locals = function_.locals;
        if (locals != nullptr && locals->count > 0) {
            if (PushVariableArray_L(locals) == nullptr) return false;
            pushed_locals_ = true;
        }
        if (function_.parameters != nullptr) {
            if (PushVariableArray_L(function_.parameters) == nullptr) return false;
            pushed_parameters_ = true;
        }
        return true;
    }
    int32_t depth() const { return depth_; }

  private:
    bool running_already() const {
        for (const Activation *a = outer_; a != nullptr; a = a->outer_)
            if (&a->function_ == &function_) return true;
        return false;
    }
    static bool keep_aside(const VARIABLE_ARRAY_T *array, VARIABLE_ARRAY_T *&saved) {
        if (array == nullptr || array->count == 0) return true;
        saved = NewVariableArray_L(nullptr);
        return saved != nullptr && DuplicateVariableArray_L(saved, array, 0) == array->count;
    }
    static void put_back(VARIABLE_ARRAY_T *array, VARIABLE_ARRAY_T *saved) {
        if (saved == nullptr) return;
        for (int32_t i = 0; i < array->count && i < saved->count; ++i)
            std::swap(array->variables[i]->value, saved->variables[i]->value);
        FreeVariableArray_L(saved);
    }

    static inline Activation *innermost_ = nullptr;
    EXP_USER_FUNCTION_T &function_;
    Activation *outer_;
    int32_t depth_;
    VARIABLE_ARRAY_T *saved_parameters_ = nullptr;
    VARIABLE_ARRAY_T *saved_locals_ = nullptr;
    bool pushed_locals_ = false;
    bool pushed_parameters_ = false;
};

} // namespace

namespace qv::express {

void install_body_runner(BodyRunner runner) {
    body_runner = runner != nullptr ? runner : solve_body;
}

namespace {

// ---- If and IfNull without the dispatcher --------------------------------------------------
//
// Their arguments are computed like any call's (every argument is evaluated, also the
// branch not taken); the step then does what their handlers do: the result is a copy of the
// chosen argument, or NULL of `model`'s type when the chosen one has no value. While
// built-in calls are traced they go through call_function, which writes the trace line.

void copy_chosen(QV_VALUE_T &out, const QV_VALUE_T &chosen, const QV_VALUE_T &model) {
    const uint32_t type = chosen.descriptor.type;
    if (chosen.is_null != 0 || type == 0) {
        const QV_DATATYPE_T &d = model.descriptor;
        SetValueTypePrecScale_L(&out, d.type, d.precision, d.scale);
        FreeValue_L(&out);
        return;
    }
    if (out.owns_payload == 0 && (type & fixed_types) != 0 && (type & (type - 1)) == 0) {
        out = chosen; // what CopyValue_L does for a value without memory
        out.owns_payload = 0;
        return;
    }
    CopyValue_L(&out, &chosen);
}

// If as a choosing step: the outcome its handler would copy (a NULL or unreadable condition
// does not hold), copied without the dispatcher. The condition indexes the outcome, so that
// the choice needs no branch on it.
bool select_if(const Step &step, QV_VALUE_T *const *values) {
    if ((trace_active & EXP_TRACE_BUILTIN) != 0) [[unlikely]]
        return call_function(step, values);
    const QV_VALUE_T &chosen =
        *values[step.list[2 - static_cast<int32_t>(holds(*values[step.list[0]]))]];
    copy_chosen(*values[step.out], chosen, chosen);
    return true;
}

bool select_if_null(const Step &step, QV_VALUE_T *const *values) {
    if ((trace_active & EXP_TRACE_BUILTIN) != 0) [[unlikely]]
        return call_function(step, values);
    const QV_VALUE_T &value = *values[step.list[0]];
    const bool present = value.is_null == 0 && value.descriptor.type != 0;
    copy_chosen(*values[step.out], present ? value : *values[step.list[1]], value);
    return true;
}

} // namespace

Executor call_executor(const ExpFunction &record, const CallSite &site, int32_t count) {
    if (site.user != nullptr) return call_user_function;
    if (site.wraps) return call_function;
    if (record.handler == QV_EXP_HANDLER(BI_if) && count == 3) return select_if;
    if (record.handler == QV_EXP_HANDLER(BI_if_null) && count == 2) return select_if_null;
    return call_function;
}

bool call_function(const Step &step, QV_VALUE_T *const *values) {
    EXP_CALL_FRAME_T &frame = *step.call->frame;
    if (!pass_arguments(step, values, frame)) [[unlikely]]
        return false;
    QV_VALUE_T &out = *values[step.out];
    if (CallFunction_L(&out, &frame) != 0) [[unlikely]]
        return QV_EVAL_FAIL(QV_MSG_FUNCTION_NOT_CALLABLE, frame.function->name,
                            step.item->position);
    if ((trace_active & EXP_TRACE_BUILTIN) != 0) [[unlikely]]
        trace_function_call(frame, out);
    return true;
}

bool call_user_function(const Step &step, QV_VALUE_T *const *values) {
    const CallSite &site = *step.call;
    EXP_CALL_FRAME_T &frame = *site.frame;
    EXP_USER_FUNCTION_T &function = *site.user;
    if (!pass_arguments(step, values, frame)) return false;
    if (!stack_left()) {
        Msgbuf8[0] = '\0';
        return QV_EVAL_FAIL(QV_MSG_STACK_EXHAUSTED);
    }
    if (run_nesting >= recursion_limit) {
        Msgbuf8[0] = '\0';
        return QV_EVAL_FAIL(QV_MSG_RECURSION_LIMIT);
    }
    if (function.body == nullptr)
        return QV_EVAL_FAIL(QV_MSG_FUNCTION_WITHOUT_BODY, frame.function->name);
    Activation activation(function);
    if (!activation.enter()) return false;
    const bool traced = (trace_active & EXP_TRACE_BASIC) != 0;
    if (traced) trace_user_entry(function, frame, activation.depth());
    set_parameters(function, frame);
    const QV_VALUE_T *value = body_runner(&function);
    if (value == nullptr) return false;
    QV_VALUE_T &out = *values[step.out];
    if (!convert_into_result(out, site.user_type, *value)) return false;
    if (traced) trace_user_return(function, out, activation.depth());
    return true;
}

bool resolve_variable(const Step &step, QV_VALUE_T *const *values) {
    EXP_ITEM_T &item = *step.item;
    if (item.variable == nullptr && (item.variable = FindVariable_L(item.names[0], 0)) == nullptr)
        [[unlikely]]
        return QV_EVAL_FAIL(QV_MSG_VARIABLE_NOT_FOUND, item.display, item.position);
    const_cast<QV_VALUE_T **>(values)[step.out] = &item.variable->value;
    return true;
}

EXP_USER_FUNCTION_T *find_user_function(const ExpFunction *record) {
    const EXP_FUNCTION_STRUCT_T *functions = Set_Function_Struct_L(nullptr);
    for (int32_t d = functions->depth - 1; d >= 0; --d) {
        const EXP_FUNCTION_ARRAY_T *array = functions->stack[d];
        for (int32_t i = 0; array != nullptr && i < array->function_count; ++i)
            if (array->functions[i]->record == record) return array->functions[i];
    }
    return nullptr;
}

} // namespace qv::express
