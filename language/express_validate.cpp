// express_validate.cpp - validation (module "express"): the walk over the postfix list that
// checks an expression and writes down its prepared form (see express_eval.hpp), and the
// per-depth stacks and operand tables that evaluations use.
//
// The walk keeps a stack of what each pending operand is: its index in the operand table,
// what validation knows of its type, and the value itself when it is borrowed (a literal, a
// bound name, a variable), which a described function may look at. Every problem found is
// logged where it is found and the walk goes on, so that one validation names every
// unbound name and every argument of a wrong type; only a list the parser cannot have
// made stops it.
#define QV_MODULE "express"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "core/raise.hpp"
#include "language/express_eval.hpp"
#include "qv/message.h"
#include "qv/qvvar.h"

namespace {

using namespace qv::express;

// Where an unresolved variable's index points until the variable is found.
QV_VALUE_T unresolved_variable{{}, {}, 1, 0, 0, nullptr};

// The per-depth tables hold this many entries at first (they grow when recursion goes
// deeper).
constexpr int32_t kInitialDepths = 50;

struct ProgramDeleter {
    void operator()(Program *program) const {
        program->~Program();
        std::free(program);
    }
};
using ProgramHolder = std::unique_ptr<Program, ProgramDeleter>;

ProgramHolder new_program() {
    void *block = QV_MALLOC(sizeof(Program));
    return ProgramHolder(block != nullptr ? new (block) Program : nullptr);
}

// A value a described handler sets, freed however the description ends.
struct Described {
    QV_VALUE_T value{};
    Described() = default;
    Described(const Described &) = delete;
    ~Described() { FreeValue_L(&value); }
};

StaticType type_of_value(const QV_VALUE_T &value) {
    if (value.is_null != 0 && value.descriptor.type == 0) return {{}, true};
    return {{value.descriptor.type, value.descriptor.precision, value.descriptor.scale, 0}, false};
}

// The call frame of a function-call item, made on its first validation: an argument
// pointer per argument, and a wrapper value per argument when a position wraps arrays.
EXP_CALL_FRAME_T *frame_of(EXP_ITEM_T &item, bool wraps) {
    const auto count = static_cast<std::size_t>(item.argument_count);
    if (item.frame == nullptr) {
        auto *frame = static_cast<EXP_CALL_FRAME_T *>(QV_CALLOC(sizeof(EXP_CALL_FRAME_T)));
        if (frame == nullptr) return nullptr;
        item.frame = frame;
        if (count > 0 && (frame->arguments = static_cast<QV_VALUE_T **>(
                              QV_CALLOC(count * sizeof(QV_VALUE_T *)))) == nullptr)
            return nullptr;
    }
    EXP_CALL_FRAME_T *frame = item.frame;
    if (wraps && count > 0 && frame->argument_slots == nullptr &&
        (frame->argument_slots =
             static_cast<QV_VALUE_T *>(QV_CALLOC(count * sizeof(QV_VALUE_T)))) == nullptr)
        return nullptr;
    frame->function = item.function;
    frame->argument_count = item.argument_count;
    frame->mode = QV_MODE_EVALUATE;
    return frame;
}

class Compiler {
  public:
    Compiler(EXPRESSION_T &expression, Program &program)
        : expression_(expression), program_(program) {
        const auto items = static_cast<std::size_t>(std::max(expression.item_count, 1));
        program.steps.reserve(2 * items);
        program.lists.reserve(items); // lists and calls never move once they are pointed at
        program.calls.reserve(items);
        program.sources.reserve(2 * items);
    }

    // Walks the list; false when a problem was found (each one logged).
    bool compile() {
        void *data = nullptr;
        uint32_t position = 0;
        for (QV_LIST_T *p = NextListItem_L(expression_.items, &data); p != nullptr;
             p = NextListItem_L(p, &data)) {
            auto &next = *static_cast<EXP_ITEM_T *>(data);
            position = next.position;
            if (!item(next)) return false;
        }
        if (stack_.size() != 1) {
            problem(QV_MSG_EXPRESSION_MALFORMED, {position});
            return false;
        }
        program_.result = stack_.back().index;
        return problems_ == 0;
    }
    int32_t slots() const { return slots_; }
    StaticType result_type() const { return stack_.back().type; }

  private:
    struct Entry {
        int32_t index;
        StaticType type;
        QV_VALUE_T *value;     // the operand itself when it is borrowed
        bool literal = false;  // a literal: the same value on every evaluation
        bool variable = false; // a variable: handed over as it is at an ARRAY position
    };

    bool item(EXP_ITEM_T &item) {
        switch (item.kind) {
            case EXP_ITEM_LITERAL:
                push_borrowed(item, &item.value, type_of_value(item.value));
                stack_.back().literal = true;
                break;
            case EXP_ITEM_NAME: name(item); break;
            case EXP_ITEM_VARIABLE: variable(item); break;
            case EXP_ITEM_OPERATOR: return operation(item);
            case EXP_ITEM_FUNCTION:
                if (!call(item)) return false;
                break;
            default: return malformed(item);
        }
        if (item.negate != 0) negation(item);
        return true;
    }

    void push_borrowed(EXP_ITEM_T &item, QV_VALUE_T *value, const StaticType &type) {
        item.slot = static_cast<int32_t>(program_.sources.size());
        program_.sources.push_back({value, -1});
        stack_.push_back({item.slot, type, value});
    }

    int32_t computed() {
        program_.sources.push_back({nullptr, slots_++});
        return static_cast<int32_t>(program_.sources.size() - 1);
    }

    Step &add_step(Executor run, EXP_ITEM_T &item, int32_t out) {
        Step step;
        step.run = run;
        step.out = out;
        step.item = &item;
        program_.steps.push_back(step);
        return program_.steps.back();
    }

    // A name passed where a function takes a pointer stands for itself.
    void name(EXP_ITEM_T &item) {
        if (item.value.descriptor.type == QV_TYPE_POINTER) {
            push_borrowed(item, &item.value, type_of_value(item.value));
            return;
        }
        if (item.bound == nullptr) {
            problem(QV_MSG_NAME_NOT_BOUND, {item.display, item.position});
            push_borrowed(item, &unresolved_variable, {});
            return;
        }
        const QV_DATATYPE_T &d = item.bound->descriptor;
        push_borrowed(item, item.bound, {{d.type, d.precision, d.scale, 0}, false});
    }

    // A variable found now is borrowed from here on; one that does not exist yet is looked
    // up by a step of its own on every evaluation until it is found.
    void variable(EXP_ITEM_T &item) {
        item.variable = item.name_count > 0 ? FindVariable_L(item.names[0], 0) : nullptr;
        if (item.variable != nullptr) {
            const QV_DATATYPE_T &d = item.variable->value.descriptor;
            push_borrowed(item, &item.variable->value, {{d.type, d.precision, d.scale, 0}, false});
            stack_.back().variable = true;
            return;
        }
        push_borrowed(item, &unresolved_variable, {});
        stack_.back().value = nullptr;
        stack_.back().variable = true;
        add_step(resolve_variable, item, item.slot);
    }

    void negation(EXP_ITEM_T &item) {
        Entry &operand = stack_.back();
        const int32_t out = computed();
        Step &step = add_step(operator_executor(EXP_OP_NEGATE, operand.type, {}), item, out);
        step.a = operand.index;
        operand = {out, operand.type, nullptr};
    }

    bool operation(EXP_ITEM_T &item) {
        if (item.op == nullptr) return malformed(item);
        const int32_t code = item.op->code;
        std::size_t needed = static_cast<std::size_t>(item.op->operands);
        const bool listed = code == EXP_OP_IN || code == EXP_OP_NOT_IN;
        if (listed) needed = 1 + static_cast<std::size_t>(std::max(item.argument_count, 0));
        const Executor run =
            needed <= stack_.size() && needed > 0
                ? operator_executor(code, stack_[stack_.size() - needed].type,
                                    needed > 1 ? stack_[stack_.size() - needed + 1].type
                                               : StaticType{})
                : nullptr;
        if (run == nullptr || (listed && item.argument_count < 1)) return malformed(item);
        const std::size_t first = stack_.size() - needed;
        const StaticType type = operator_type(code, stack_[first].type,
                                              needed > 1 ? stack_[first + 1].type : StaticType{});
        const int32_t out = computed();
        Step &step = add_step(run, item, out);
        step.a = stack_[first].index;
        if (listed) {
            step.count = static_cast<int32_t>(needed - 1);
            step.list = program_.lists.data() + program_.lists.size();
            for (std::size_t i = first + 1; i < stack_.size(); ++i)
                program_.lists.push_back(stack_[i].index);
        } else {
            if (needed > 1) step.b = stack_[first + 1].index;
            if (needed > 2) step.c = stack_[first + 2].index;
        }
        if ((code == EXP_OP_LIKE || code == EXP_OP_NOT_LIKE) && stack_[first + 1].literal)
            if (const Executor matcher = like_executor(code, *stack_[first + 1].value, step.c))
                step.run = matcher;
        stack_.resize(first);
        stack_.push_back({out, type, nullptr});
        item.slot = out;
        return true;
    }

    bool call(EXP_ITEM_T &item) {
        const ExpFunction *record = item.function;
        const int32_t count = item.argument_count;
        if (record == nullptr || count < 0 || static_cast<std::size_t>(count) > stack_.size())
            return malformed(item);
        const std::size_t first = stack_.size() - static_cast<std::size_t>(count);
        EXP_USER_FUNCTION_T *user = nullptr;
        bool callable = true;
        if (record->handler == nullptr) {
            user = record->category == QV_CATEGORY_USER ? find_user_function(record) : nullptr;
            if (user == nullptr) {
                problem(QV_MSG_FUNCTION_NOT_CALLABLE, {record->name, item.position});
                callable = false;
            }
        }
        bool wraps = false;
        uint64_t unwrapped = 0;
        for (int32_t i = 0; i < count; ++i) {
            const Entry &entry = stack_[first + static_cast<std::size_t>(i)];
            const bool array_position = check_argument(item, i, entry.type);
            if (array_position && entry.variable && i < 64)
                unwrapped |= uint64_t{1} << i;
            else
                wraps |= array_position;
        }
        EXP_CALL_FRAME_T *frame = frame_of(item, wraps);
        if (frame == nullptr) return false; // raised
        StaticType type;
        if (user != nullptr)
            type = user_result_type(*record);
        else if (callable)
            type = describe(item, *frame, first);
        const int32_t out = computed();
        program_.calls.push_back({frame, user, wraps, type.desc, unwrapped});
        Step &step = add_step(call_executor(*record, program_.calls.back(), count), item, out);
        step.count = count;
        step.list = program_.lists.data() + program_.lists.size();
        for (std::size_t i = first; i < stack_.size(); ++i)
            program_.lists.push_back(stack_[i].index);
        step.call = &program_.calls.back();
        stack_.resize(first);
        stack_.push_back({out, type, nullptr});
        item.slot = out;
        return true;
    }

    // Checks argument `index` against its position's mask; true when the position wraps
    // values that are not arrays.
    bool check_argument(const EXP_ITEM_T &item, int32_t index, const StaticType &type) {
        const uint32_t mask = argument_flags(*item.function, index);
        const uint32_t given = type.desc.type;
        if (mask == QV_TYPE_ARRAY) return true;
        if (type.null_literal || given == 0 || mask == 0 || (given & mask) != 0) return false;
        qv::HeapText given_name(DataTypeName_L(given)), taken(DataTypeName_L(mask));
        problem(QV_MSG_ARGUMENT_TYPE,
                {item.function->name, index + 1, item.position, given_name.get(), taken.get()});
        return false;
    }

    static StaticType user_result_type(const ExpFunction &record) {
        QV_DATATYPE_T type{record.result_type, 0, 0, 0};
        if (record.result_type == 0 || MakeRealDataType_L(&type, 1) == nullptr) return {};
        return {type, false};
    }

    // Calls the handler in describe mode with the arguments (borrowed values as they are,
    // computed ones as NULL values of their type) and returns the type it sets.
    StaticType describe(const EXP_ITEM_T &item, EXP_CALL_FRAME_T &frame, std::size_t first) {
        const int32_t count = item.argument_count;
        qv::Vector<QV_VALUE_T> models(static_cast<std::size_t>(count));
        for (int32_t i = 0; i < count; ++i) {
            const Entry &entry = stack_[first + static_cast<std::size_t>(i)];
            QV_VALUE_T &model = models[static_cast<std::size_t>(i)];
            model.is_null = 1;
            model.descriptor = entry.type.desc;
            const bool wrapped = argument_flags(*item.function, i) == QV_TYPE_ARRAY &&
                                 (entry.type.desc.type & wrapped_types) != 0;
            if (wrapped) model.descriptor = {QV_TYPE_ARRAY, 0, 0, 0};
            frame.arguments[i] = entry.value != nullptr && !wrapped ? entry.value : &model;
        }
        Described result;
        frame.mode = QV_MODE_DESCRIBE;
        const int32_t called = CallFunction_L(&result.value, &frame);
        frame.mode = QV_MODE_EVALUATE;
        if (called != 0) {
            problem(QV_MSG_FUNCTION_NOT_CALLABLE, {item.function->name, item.position});
            return {};
        }
        const QV_DATATYPE_T &d = result.value.descriptor;
        return {{d.type, d.precision, d.scale, 0}, false};
    }

    bool malformed(const EXP_ITEM_T &item) {
        problem(QV_MSG_EXPRESSION_MALFORMED, {item.position});
        return false;
    }

    void problem(uint32_t number, std::initializer_list<PWParam> parameters) {
        ++problems_;
        if (ErrorsSuppressed_L() != 0) return;
        PWMessage message(number, MESSAGE_SEVERITY_ERROR);
        for (const PWParam &parameter : parameters) message << parameter;
        LogMessage_L(&message);
    }

    EXPRESSION_T &expression_;
    Program &program_;
    qv::Vector<Entry> stack_;
    int32_t slots_ = 0;
    int32_t problems_ = 0;
};

// Replaces the per-depth tables by tables of `count` entries, the new entries empty.
bool grow_tables(EXPRESSION_T &expression, int32_t count) {
    const auto size = static_cast<std::size_t>(count);
    qv::HeapArray<QV_VALUE_T *> stacks(
        static_cast<QV_VALUE_T **>(QV_CALLOC(size * sizeof(QV_VALUE_T *))));
    if (stacks == nullptr) return false;
    qv::HeapArray<QV_VALUE_T **> operands(
        static_cast<QV_VALUE_T ***>(QV_CALLOC(size * sizeof(QV_VALUE_T **))));
    if (operands == nullptr) return false;
    std::copy_n(expression.stacks, expression.stack_count, stacks.get());
    std::copy_n(expression.operands, expression.stack_count, operands.get());
    std::free(expression.stacks);
    std::free(expression.operands);
    expression.stacks = stacks.release();
    expression.operands = operands.release();
    expression.stack_count = count;
    return true;
}

// Validates a parsed expression; see Validate_Expression_L.
bool validate(EXPRESSION_T &expression) {
    free_program(&expression);
    ProgramHolder program = new_program();
    if (program == nullptr) return false;
    Compiler compiler(expression, *program);
    if (!compiler.compile()) {
        if (ErrorsSuppressed_L() == 0) {
            PWMessage message(QV_MSG_VALIDATION_FAILED, MESSAGE_SEVERITY_ERROR);
            LogMessage_L(&message);
        }
        QV_RAISE(GENERAL_ERROR);
        return false;
    }
    const StaticType type = compiler.result_type();
    if (expression.result_declared == 0)
        expression.result_type = type.null_literal ? QV_DATATYPE_T{} : type.desc;
    // A computed value that needs no conversion is written into the result by its step.
    Source &last = program->sources[static_cast<std::size_t>(program->result)];
    program->bound = result_bound(expression.result_type, expression.result_declared != 0);
    if (last.slot >= 0 && !type.null_literal && fits_result(type.desc, program->bound)) {
        last.borrowed = &expression.result;
        program->writes_result = true;
    }
    expression.stack_size = compiler.slots();
    expression.operand_count = static_cast<int32_t>(program->sources.size());
    expression.prepared = program.release();
    if (!grow_tables(expression, std::clamp(recursion_limit, 1, kInitialDepths)) ||
        !prepare_depth(&expression, 0))
        return false;
    expression.validated = 1;
    return true;
}

} // namespace

namespace qv::express {

void free_program(EXPRESSION_T *expression) {
    for (int32_t d = 0; d < expression->stack_count; ++d) {
        if (QV_VALUE_T *stack = expression->stacks[d]) {
            for (int32_t i = 0; i < expression->stack_size; ++i) FreeValue_L(&stack[i]);
            std::free(stack);
        }
        std::free(expression->operands[d]);
    }
    std::free(expression->stacks);
    std::free(expression->operands);
    expression->stacks = nullptr;
    expression->operands = nullptr;
    expression->stack_count = expression->stack_size = expression->operand_count = 0;
    if (Program *program = program_of(expression)) ProgramDeleter()(program);
    expression->prepared = nullptr;
    expression->validated = 0;
}

bool prepare_depth(EXPRESSION_T *expression, int32_t depth) {
    if (depth >= expression->stack_count &&
        !grow_tables(*expression, std::max(depth + 1, 2 * expression->stack_count)))
        return false;
    if (expression->operands[depth] != nullptr) return true;
    const auto slots = static_cast<std::size_t>(expression->stack_size);
    const auto count = static_cast<std::size_t>(expression->operand_count);
    qv::HeapArray<QV_VALUE_T> stack(
        slots > 0 ? static_cast<QV_VALUE_T *>(QV_CALLOC(slots * sizeof(QV_VALUE_T))) : nullptr);
    if (slots > 0 && stack == nullptr) return false;
    qv::HeapArray<QV_VALUE_T *> operands(
        static_cast<QV_VALUE_T **>(QV_MALLOC(count * sizeof(QV_VALUE_T *))));
    if (operands == nullptr) return false;
    const Program &program = *program_of(expression);
    for (std::size_t i = 0; i < count; ++i) {
        const Source &source = program.sources[i];
        operands[i] = source.borrowed != nullptr ? source.borrowed
                                                 : &stack[static_cast<std::size_t>(source.slot)];
    }
    expression->stacks[depth] = stack.release();
    expression->operands[depth] = operands.release();
    return true;
}

void repoint_operand(EXPRESSION_T *expression, int32_t index, QV_VALUE_T *value) {
    program_of(expression)->sources[static_cast<std::size_t>(index)].borrowed = value;
    for (int32_t d = 0; d < expression->stack_count; ++d)
        if (expression->operands[d] != nullptr) expression->operands[d][index] = value;
}

} // namespace qv::express

extern "C" {

QV_API int32_t Validate_Expression_L(EXPRESSION_T *expression) {
    if (expression == nullptr || expression->depth > 0) return 0;
    if (expression->item_count == 0) {
        const int32_t mask = EXP_MASK_EXPRESSION | EXP_MASK_CONDITION | EXP_MASK_PLACEHOLDER;
        if (expression->text == nullptr || Parse_Expression_L(expression, mask, nullptr, 0) != 1)
            return 0;
    }
    int32_t valid = 0;
    qv::guarded("Validate_Expression_L", QV_MODULE, __LINE__,
                [&] { valid = QV_C_ENTRY([&] { return validate(*expression) ? 1 : 0; }); });
    return valid;
}

} // extern "C"
