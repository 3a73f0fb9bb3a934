// qvvar.cpp - variables, variable arrays and the scope stack (module "qvvar").
//
// A variable array's block of pointers grows by one per insertion and never shrinks; a
// variable taken out moves the later ones down. The scope stack is a block of `capacity`
// array pointers of which `count` are in use, grown by QV_SCOPE_GROWTH. The global array is
// remembered apart from the stack, so SetVariable_L finds it wherever it stands.
//
// A variable under construction is owned by a std::unique_ptr whose deleter frees whatever
// has been filled in, so a raise (or a failed step) anywhere in its making leaves nothing.
#include "qv/qvvar.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <type_traits>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "language/blocks.hpp"
#include "language/builtin.hpp"
#include "platform/registry.hpp"
#include "qv/alloc.h"
#include "qv/dataval.h"
#include "qv/date.h"
#include "qv/encoding.h"
#include "qv/express.h"
#include "qv/feedback.h"
#include "qv/message.h"
#include "qv/platform.h"
#include "qv/precise.h"

static_assert(std::is_standard_layout_v<VARIABLE_T> && std::is_trivially_copyable_v<VARIABLE_T>);
static_assert(std::is_standard_layout_v<VARIABLE_ARRAY_T> &&
              std::is_trivially_copyable_v<VARIABLE_ARRAY_T>);
static_assert(std::is_standard_layout_v<QV_ID_T> && std::is_trivially_copyable_v<QV_ID_T>);
static_assert(offsetof(VARIABLE_T, owner) == 0 &&
                  offsetof(VARIABLE_T, name) < offsetof(VARIABLE_T, value) &&
                  offsetof(VARIABLE_T, value) < offsetof(VARIABLE_T, read_only) &&
                  offsetof(VARIABLE_T, merged) == offsetof(VARIABLE_T, read_only) + 4 &&
                  offsetof(VARIABLE_T, expression) < offsetof(VARIABLE_T, script) &&
                  offsetof(VARIABLE_T, script) < offsetof(VARIABLE_T, message_handle),
              "owner, name, value, five flags, expression, script, message handle");

namespace {

VARIABLE_ARRAY_T *global_array = nullptr;

struct ScopeStack {
    VARIABLE_ARRAY_T **arrays = nullptr;
    int32_t count = 0;
    int32_t capacity = 0;
} scopes;

// Frees what a variable owns and the variable; its owner is not touched.
void free_variable(VARIABLE_T *variable) {
    std::free(variable->name);
    std::free(variable->expression);
    qv::free_script(variable->script);
    FreeValue_L(&variable->value);
    if (variable->message_handle != 0) DeleteMessageHandle_L(variable->message_handle);
    std::free(variable);
}

struct VariableDeleter {
    void operator()(VARIABLE_T *variable) const { free_variable(variable); }
};
using Variable = std::unique_ptr<VARIABLE_T, VariableDeleter>;

// Frees the value when it goes.
struct ValueHolder {
    QV_VALUE_T value{};
    ValueHolder() = default;
    ValueHolder(const ValueHolder &) = delete;
    ValueHolder &operator=(const ValueHolder &) = delete;
    ~ValueHolder() { FreeValue_L(&value); }
};

// A zero-filled variable named `name`; null after a raise.
Variable new_variable(const char *name) {
    Variable variable(static_cast<VARIABLE_T *>(QV_CALLOC(sizeof(VARIABLE_T))));
    if (variable == nullptr) return nullptr;
    variable->name = QV_STRDUP(name);
    if (variable->name == nullptr) return nullptr;
    return variable;
}

// Takes the variable out of its owner's block.
void detach(VARIABLE_T *variable) {
    VARIABLE_ARRAY_T *owner = variable->owner;
    if (owner == nullptr) return;
    variable->owner = nullptr;
    VARIABLE_T **begin = owner->variables, **end = begin + owner->count;
    VARIABLE_T **place = std::find(begin, end, variable);
    if (place == end) return;
    qv::remove_element(begin, owner->count, static_cast<int32_t>(place - begin));
    --owner->count;
}

// Removes every place of `array` on the scope stack.
void take_off_stack(const VARIABLE_ARRAY_T *array) {
    VARIABLE_ARRAY_T **end = std::remove(scopes.arrays, scopes.arrays + scopes.count, array);
    scopes.count = static_cast<int32_t>(end - scopes.arrays);
}

bool same_name(const VARIABLE_T *variable, const char *name) {
    return StricmpUTF8_L(variable->name, name) == 0;
}

// The literal `text` as an expression writes it, into `value` (see SetVariable_L).
void read_literal(const char *text, QV_VALUE_T *value) {
    std::string_view literal(text);
    if (literal.size() >= 2 && literal.front() == '\'' && literal.back() == '\'') {
        qv::String inner(literal.substr(1, literal.size() - 2));
        for (std::size_t quote = inner.find("''"); quote != qv::String::npos;
             quote = inner.find("''", quote + 1))
            inner.erase(quote, 1);
        SetTextValue_L(value, inner.c_str(), nullptr);
        return;
    }
    if (StricmpUTF8_L(text, "NULL") == 0) {
        FreeValue_L(value); // an untyped NULL
        return;
    }
    if (StricmpUTF8_L(text, "TRUE") == 0 || StricmpUTF8_L(text, "FALSE") == 0) {
        SetBooleanValue_L(value, StricmpUTF8_L(text, "TRUE") == 0);
        return;
    }
    QV_DATE_T date{};
    uint8_t parts = 0;
    if (IsInternalDate_L(text, &date, &parts)) {
        SetDateValue_L(value, parts & QV_DATE_LITERAL_ZONE ? QV_TYPE_DATE_TZ : QV_TYPE_DATE, &date);
        return;
    }
    // A failed recognition must not leave its reason in the library's last-error text.
    char last_error[QV_MSGBUF8_SIZE];
    std::memcpy(last_error, Msgbuf8, sizeof last_error);
    if (!literal.empty() && StringToBestNumberType_L(text, value, 0, nullptr) == 0) return;
    std::memcpy(Msgbuf8, last_error, sizeof last_error);
    SetTextValue_L(value, text, nullptr);
}

bool is_text(const QV_VALUE_T &value) {
    return value.descriptor.type == QV_TYPE_CHAR || value.descriptor.type == QV_TYPE_CLOB;
}

using ArrayOwner = std::unique_ptr<VARIABLE_ARRAY_T, decltype(&FreeVariableArray_L)>;

} // namespace

extern "C" {

// ---- The module and the scope stack -------------------------------------------------------

QV_API void InitialiseVariables_L(void) {
    if (global_array != nullptr) return;
    ArrayOwner global(NewVariableArray_L("Global"), FreeVariableArray_L);
    if (global == nullptr || PushVariableArray_L(global.get()) == nullptr) return;
    global_array = global.release();
}

QV_API void TerminateVariables_L(void) {
    FreeVariableArray_L(global_array); // also takes it off the stack and forgets it
    std::free(scopes.arrays);
    scopes = ScopeStack{};
}

QV_API void TerminateAndFreeVariables_L(void) {
    while (scopes.count > 0) FreeVariableArray_L(scopes.arrays[scopes.count - 1]);
    TerminateVariables_L();
}

QV_API VARIABLE_ARRAY_T *GetGlobalVariables_L(void) {
    return global_array;
}

QV_API VARIABLE_ARRAY_T *PushVariableArray_L(VARIABLE_ARRAY_T *array) {
    if (array == nullptr) return nullptr;
    if (scopes.count == scopes.capacity) {
        VARIABLE_ARRAY_T **grown = QV_GROW(scopes.arrays, scopes.capacity, QV_SCOPE_GROWTH);
        if (grown == nullptr) return nullptr;
        scopes.arrays = grown;
        scopes.capacity += QV_SCOPE_GROWTH;
    }
    scopes.arrays[scopes.count++] = array;
    return array;
}

QV_API void PopVariableArray_L(VARIABLE_ARRAY_T *array) {
    if (array == nullptr) return;
    for (int32_t place = scopes.count - 1; place >= 0; --place) {
        if (scopes.arrays[place] != array) continue;
        qv::remove_element(scopes.arrays, scopes.count, place);
        --scopes.count;
        return;
    }
}

QV_API int32_t GetVariableStructure_L(VARIABLE_ARRAY_T ***arrays) {
    if (arrays != nullptr) *arrays = scopes.arrays;
    return scopes.count;
}

// ---- Arrays and variables -------------------------------------------------------------------

QV_API VARIABLE_ARRAY_T *NewVariableArray_L(const char *name) {
    qv::HeapArray<VARIABLE_ARRAY_T> array(
        static_cast<VARIABLE_ARRAY_T *>(QV_CALLOC(sizeof(VARIABLE_ARRAY_T))));
    if (array == nullptr) return nullptr;
    if (name != nullptr && (array[0].name = QV_STRDUP(name)) == nullptr) return nullptr;
    return array.release();
}

QV_API void FreeVariableArray_L(VARIABLE_ARRAY_T *array) {
    if (array == nullptr) return;
    take_off_stack(array);
    if (array == global_array) global_array = nullptr;
    for (int32_t i = 0; i < array->count; ++i) free_variable(array->variables[i]);
    std::free(array->variables);
    std::free(array->name);
    std::free(array);
}

QV_API VARIABLE_T *AddVariable_L(VARIABLE_ARRAY_T *array, VARIABLE_T *variable) {
    if (array == nullptr || variable == nullptr) return nullptr;
    if (variable->owner == array) return variable;
    VARIABLE_T **grown = QV_GROW(array->variables, array->count, 1);
    if (grown == nullptr) return nullptr;
    array->variables = grown;
    detach(variable);
    grown[array->count++] = variable;
    variable->owner = array;
    return variable;
}

QV_API VARIABLE_T *CreateVariable_L(VARIABLE_ARRAY_T *array, const char *name, uint32_t type,
                                    int32_t precision, int32_t scale, const QV_VALUE_T *initial) {
    if (name == nullptr) return nullptr;
    Variable variable = new_variable(name);
    if (variable == nullptr) return nullptr;
    if (type == 0 && initial != nullptr) { // the initial value's type, also when it is NULL
        type = initial->descriptor.type;
        precision = initial->descriptor.precision;
        scale = initial->descriptor.scale;
    }
    SetValueTypePrecScale_L(&variable->value, type, precision, scale);
    FreeValue_L(&variable->value); // a NULL of the type
    if (initial != nullptr) ConvertValue_L(&variable->value, initial, 0, 0);
    if (array != nullptr && AddVariable_L(array, variable.get()) == nullptr) return nullptr;
    return variable.release();
}

QV_API void FreeVariable_L(VARIABLE_T *variable) {
    if (variable == nullptr) return;
    detach(variable);
    free_variable(variable);
}

QV_API VARIABLE_T *FindVariableOnArray_L(const VARIABLE_ARRAY_T *array, const char *name) {
    if (array == nullptr || name == nullptr) return nullptr;
    for (int32_t i = 0; i < array->count; ++i)
        if (same_name(array->variables[i], name)) return array->variables[i];
    return nullptr;
}

QV_API VARIABLE_T *FindVariableOnArrays_L(VARIABLE_ARRAY_T *const *arrays, int32_t count,
                                          const char *name) {
    if (arrays == nullptr) return nullptr;
    for (int32_t i = count - 1; i >= 0; --i)
        if (VARIABLE_T *found = FindVariableOnArray_L(arrays[i], name)) return found;
    return nullptr;
}

QV_API VARIABLE_T *FindVariable_L(const char *name, uint32_t options) {
    if (name == nullptr) return nullptr;
    const bool global_first = (options & QV_FIND_GLOBAL_FIRST) != 0 && global_array != nullptr;
    if (global_first)
        if (VARIABLE_T *found = FindVariableOnArray_L(global_array, name)) return found;
    for (int32_t i = scopes.count - 1; i >= 0; --i) {
        if (global_first && scopes.arrays[i] == global_array) continue;
        if (VARIABLE_T *found = FindVariableOnArray_L(scopes.arrays[i], name)) return found;
    }
    return nullptr;
}

QV_API int32_t DeleteVariableFromArrays_L(VARIABLE_ARRAY_T *const *arrays, int32_t count,
                                          const char *name) {
    if (name == nullptr) return 0;
    if (arrays == nullptr) {
        arrays = scopes.arrays;
        count = scopes.count;
    }
    int32_t freed = 0;
    for (int32_t i = count - 1; i >= 0; --i)
        while (VARIABLE_T *variable = FindVariableOnArray_L(arrays[i], name)) {
            FreeVariable_L(variable);
            ++freed;
        }
    return freed;
}

// ---- Values -------------------------------------------------------------------------------

QV_API QV_VALUE_T *GetVariableValue_L(VARIABLE_T *variable) {
    return variable == nullptr ? nullptr : &variable->value;
}

QV_API int32_t UpdateVariableValue_L(VARIABLE_T *variable, const QV_VALUE_T *value,
                                     uint8_t changed) {
    if (variable == nullptr) return -1;
    if (changed != 0) variable->changed = changed;
    return ConvertValue_L(&variable->value, value, 0, 0);
}

QV_API VARIABLE_T *SetVariable_L(const char *name, const char *value, uint8_t as_text) {
    if (name == nullptr) return nullptr;
    return QV_C_ENTRY([&]() -> VARIABLE_T * {
        ValueHolder literal;
        if (value == nullptr)
            SetValueType_L(&literal.value, QV_TYPE_CHAR);
        else if (as_text)
            SetTextValue_L(&literal.value, value, nullptr);
        else
            read_literal(value, &literal.value);
        if (VARIABLE_T *variable = FindVariable_L(name, 0)) {
            if (!variable->read_only) ConvertValue_L(&variable->value, &literal.value, 0, 0);
            return variable;
        }
        InitialiseVariables_L();
        if (global_array == nullptr) return nullptr;
        return CreateVariable_L(global_array, name, 0, 0, 0, &literal.value);
    });
}

QV_API VARIABLE_T *GetVariable_L(const char *name, uint32_t options) {
    if (VARIABLE_T *variable = FindVariable_L(name, options)) return variable;
    if (name == nullptr) return nullptr;
    qv::HeapText preference(GetExternalPreference_L(name));
    if (preference == nullptr) return nullptr;
    char *text = nullptr;
    qv::HeapText quoted(Asprintf_L(&text, "'%U'", preference.get()));
    if (quoted == nullptr) return nullptr;
    return SetVariable_L(name, quoted.get(), 0);
}

// ---- Variables defined by expressions -----------------------------------------------------

namespace {

// The variable's expression, parsed once with the current user functions, evaluated into
// it. -1 when it cannot be parsed or evaluated (a failure raised, or nothing to parse).
int32_t update_from_expression(VARIABLE_T &variable) {
    if (variable.script == nullptr) {
        std::unique_ptr<EXPRESSION_T, decltype(&Free_Expression_L)> script(
            New_Expression_L(variable.expression), Free_Expression_L);
        if (script == nullptr) return -1;
        int32_t count = 0;
        const ExpFunction *const tables[] = {Get_FunctionArray(&count)};
        const int32_t mask = EXP_MASK_EXPRESSION | EXP_MASK_CONDITION;
        if (Parse_Expression_L(script.get(), mask, tables, tables[0] != nullptr ? 1 : 0) != 1)
            return -1;
        variable.script = script.release();
    }
    if (Solve_Expression_L(variable.script) != 0) return -1;
    return UpdateVariableValue_L(&variable, &variable.script->result, 1) == QV_CONVERT_TOO_LONG ? -1
                                                                                                : 0;
}

// Replaces the variable's expression by a copy of `text` and drops its parsed form.
bool set_expression(VARIABLE_T &variable, const char *text) {
    char *copy = text != nullptr ? QV_STRDUP(text) : nullptr;
    if (text != nullptr && copy == nullptr) return false;
    std::free(variable.expression);
    variable.expression = copy;
    qv::free_script(variable.script);
    variable.script = nullptr;
    return true;
}

} // namespace

QV_API int32_t UpdateVariableFromExpression_L(VARIABLE_T *variable) {
    if (variable == nullptr || variable->expression == nullptr) return -1;
    int32_t result = -1;
    qv::guarded(
        "UpdateVariableFromExpression_L", QV_MODULE, __LINE__,
        [&] { result = QV_C_ENTRY([&] { return update_from_expression(*variable); }); },
        [&](const char *raised) {
            result = -1;
            if (raised != GENERAL_ERROR) QV_RERAISE();
        });
    return result;
}

QV_API VARIABLE_T *CreateVariableFromExpression_L(VARIABLE_ARRAY_T *array, const char *name,
                                                  uint32_t type, int32_t precision, int32_t scale,
                                                  const char *text, uint8_t evaluate) {
    if (name == nullptr) return nullptr;
    if (evaluate == 0) {
        Variable made(CreateVariable_L(nullptr, name, type, precision, scale, nullptr));
        if (made == nullptr || !set_expression(*made, text)) return nullptr;
        if (array != nullptr && AddVariable_L(array, made.get()) == nullptr) return nullptr;
        return made.release();
    }
    VARIABLE_T *found =
        array != nullptr ? FindVariableOnArray_L(array, name) : FindVariable_L(name, 0);
    if (found != nullptr)
        return set_expression(*found, text) && UpdateVariableFromExpression_L(found) == 0 ? found
                                                                                          : nullptr;
    Variable made(CreateVariable_L(nullptr, name, type, precision, scale, nullptr));
    if (made == nullptr || !set_expression(*made, text) ||
        UpdateVariableFromExpression_L(made.get()) != 0)
        return nullptr;
    if (array == nullptr) {
        InitialiseVariables_L();
        array = GetGlobalVariables_L();
    }
    if (AddVariable_L(array, made.get()) == nullptr) return nullptr;
    return made.release();
}

// ---- Copies and change merging --------------------------------------------------------------

QV_API VARIABLE_T *DuplicateVariable_L(VARIABLE_ARRAY_T *to, const VARIABLE_T *variable) {
    if (variable == nullptr) return nullptr;
    Variable copy = new_variable(variable->name);
    if (copy == nullptr) return nullptr;
    copy->read_only = variable->read_only;
    copy->selected = variable->selected;
    copy->changed = variable->changed;
    copy->saved_change = variable->saved_change;
    copy->merged = variable->merged;
    if (variable->expression != nullptr &&
        (copy->expression = QV_STRDUP(variable->expression)) == nullptr)
        return nullptr;
    CopyValue_L(&copy->value, &variable->value);
    if (to != nullptr && AddVariable_L(to, copy.get()) == nullptr) return nullptr;
    return copy.release();
}

QV_API VARIABLE_T *DuplicateVariableByName_L(VARIABLE_ARRAY_T *to, const VARIABLE_ARRAY_T *from,
                                             const char *name) {
    const VARIABLE_T *variable = FindVariableOnArray_L(from, name);
    return variable == nullptr ? nullptr : DuplicateVariable_L(to, variable);
}

QV_API int32_t DuplicateVariableArray_L(VARIABLE_ARRAY_T *to, const VARIABLE_ARRAY_T *from,
                                        uint8_t selected_only) {
    if (to == nullptr || from == nullptr) return 0;
    const int32_t count = from->count; // `to` may be `from`: copy only what was there
    int32_t copied = 0;
    for (int32_t i = 0; i < count; ++i) {
        if (selected_only && !from->variables[i]->selected) continue;
        if (DuplicateVariable_L(to, from->variables[i]) == nullptr) return -1;
        ++copied;
    }
    return copied;
}

QV_API void SaveVariableArrayChanges_L(VARIABLE_ARRAY_T *array) {
    if (array == nullptr) return;
    for (int32_t i = 0; i < array->count; ++i) {
        array->variables[i]->saved_change = array->variables[i]->changed;
        array->variables[i]->changed = 0;
    }
}

QV_API void ResetVariableArrayChanges_L(VARIABLE_ARRAY_T *array) {
    if (array == nullptr) return;
    for (int32_t i = 0; i < array->count; ++i) {
        array->variables[i]->merged = 0;
        array->variables[i]->saved_change = 0;
    }
}

QV_API int32_t CopyVariableArrayChanges_L(VARIABLE_ARRAY_T *to, const VARIABLE_ARRAY_T *from) {
    if (to == nullptr || from == nullptr) return 0;
    const int32_t count = from->count;
    for (int32_t i = 0; i < count; ++i) {
        const VARIABLE_T *source = from->variables[i];
        VARIABLE_T *target = FindVariableOnArray_L(to, source->name);
        if (target == nullptr) {
            if (DuplicateVariable_L(to, source) == nullptr) return -1;
        } else if (source->changed) {
            UpdateVariableValue_L(target, &source->value, 1);
            target->merged = 1;
        } else if (!target->merged && source->saved_change) {
            UpdateVariableValue_L(target, &source->value, 0);
        }
    }
    return 0;
}

// ---- Reports --------------------------------------------------------------------------------

QV_API void ReportVariable_L(const VARIABLE_T *variable) {
    if (variable == nullptr || !IsActiveFeedback_L(X_Variable_FL)) return;
    const VARIABLE_ARRAY_T *owner = variable->owner;
    const bool named = owner != nullptr && owner->name != nullptr;
    qv::HeapText text(ValueToChar_L(&variable->value));
    const bool quoted = text != nullptr && is_text(variable->value);
    Feedback_L(X_Variable_FL, quoted ? "%s%s%U = '%U'" : "%s%s%U = %U", named ? owner->name : "",
               named ? "." : "", variable->name, text.get());
}

QV_API void ReportAllVariables_L(uint8_t global_only) {
    const int32_t arrays = global_only && scopes.count > 1 ? 1 : scopes.count;
    for (int32_t a = 0; a < arrays; ++a) {
        const VARIABLE_ARRAY_T *array = scopes.arrays[a];
        for (int32_t i = 0; i < array->count; ++i) ReportVariable_L(array->variables[i]);
    }
}

// ---- Identifiers ----------------------------------------------------------------------------

QV_API QV_ID_T *SetID_L(QV_ID_T *id, const char *name, const char *second, const char *third) {
    if (id == nullptr) return nullptr;
    FreeID_L(id);
    // Emptied again unless all three are copied, also when a raise passes.
    std::unique_ptr<QV_ID_T, decltype(&FreeID_L)> partial(id, FreeID_L);
    auto copy = [](const char *text, char *&part) {
        return text == nullptr || (part = QV_STRDUP(text)) != nullptr;
    };
    if (!copy(name, id->name) || !copy(second, id->second) || !copy(third, id->third))
        return nullptr;
    return partial.release();
}

QV_API void FreeID_L(QV_ID_T *id) {
    if (id == nullptr) return;
    std::free(id->name);
    std::free(id->second);
    std::free(id->third);
    *id = QV_ID_T{};
}

// ---- The registry-like store --------------------------------------------------------------

QV_API char *Get_Registry_L(uintptr_t root_key, const char *key_path, const char *value_name) {
    if (key_path == nullptr) return nullptr;
    return QV_C_ENTRY([&]() -> char * {
        const char *root = qv::registry_root_name(root_key);
        if (root == nullptr) return nullptr;
        qv::RegistryValue found =
            qv::read_registry_value(root, key_path, value_name == nullptr ? "" : value_name);
        switch (found.outcome) {
            case qv::RegistryOutcome::text:
                if (found.text.size() >= qv::registry_buffer_size) return nullptr;
                return QV_STRNDUP(found.text.data(), found.text.size());
            case qv::RegistryOutcome::other: return QV_STRDUP(QV_REGISTRY_EXISTS);
            default: return nullptr;
        }
    });
}

} // extern "C"
