// builtin.cpp - the function registry (module "builtin"): the function struct and its stack
// of function arrays, user-defined functions, libraries and the open-file table.
//
// Every block of the registry is a plain malloc'd array that grows by exactly one element
// per insertion (realloc to the new size, the new element zero-filled) and never shrinks; a
// removal moves the later elements down inside it. So removing never allocates, and after
// any failure the arrays still hold exactly their counts (a block may be one element
// larger). A function array's record block holds function_count + 1 records, the last all
// zero, once a function has been declared; before that it may be null.
#include "qv/builtin.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "language/blocks.hpp"
#include "language/builtin.hpp"
#include "qv/dataval.h"
#include "qv/qvvar.h"

static_assert(std::is_standard_layout_v<ExpFunction> && std::is_trivially_copyable_v<ExpFunction>);
static_assert(std::is_standard_layout_v<EXP_CALL_FRAME_T> &&
              std::is_trivially_copyable_v<EXP_CALL_FRAME_T>);
static_assert(std::is_standard_layout_v<EXP_USER_FUNCTION_T> &&
              std::is_trivially_copyable_v<EXP_USER_FUNCTION_T>);
static_assert(std::is_standard_layout_v<EXP_FUNCTION_ARRAY_T> &&
              std::is_trivially_copyable_v<EXP_FUNCTION_ARRAY_T>);
static_assert(std::is_standard_layout_v<EXP_FUNCTION_STRUCT_T> &&
              std::is_trivially_copyable_v<EXP_FUNCTION_STRUCT_T>);
static_assert(std::is_standard_layout_v<EXP_LIBRARY_T> &&
              std::is_trivially_copyable_v<EXP_LIBRARY_T>);
// The function record: 32-bit fields as laid out first, pointers of the platform's width.
static_assert(sizeof(ExpFunction{}.arg_types) == 16 * sizeof(uint32_t));
static_assert(sizeof(void *) != 8 ||
                  (offsetof(ExpFunction, number) == 16 && offsetof(ExpFunction, handler) == 24 &&
                   offsetof(ExpFunction, category) == 32 && offsetof(ExpFunction, max_args) == 36 &&
                   offsetof(ExpFunction, min_args) == 40 &&
                   offsetof(ExpFunction, result_type) == 44 &&
                   offsetof(ExpFunction, arg_types) == 48 && offsetof(ExpFunction, repeat) == 112 &&
                   offsetof(ExpFunction, texts) == 120 && offsetof(ExpFunction, words) == 168 &&
                   sizeof(ExpFunction) == 184),
              "name, usage, number, handler, category, maximum, minimum, result, 16 masks, "
              "repeat, six texts, three words");
static_assert(offsetof(EXP_CALL_FRAME_T, function) == 0 &&
                  offsetof(EXP_CALL_FRAME_T, argument_count) <
                      offsetof(EXP_CALL_FRAME_T, arguments) &&
                  offsetof(EXP_CALL_FRAME_T, arguments) < offsetof(EXP_CALL_FRAME_T, mode) &&
                  offsetof(EXP_CALL_FRAME_T, mode) < offsetof(EXP_CALL_FRAME_T, argument_slots),
              "record, count, arguments, mode, then the evaluator's fields");

namespace {

EXP_FUNCTION_STRUCT_T default_struct{};
EXP_FUNCTION_STRUCT_T *installed = &default_struct;
qv::ScriptFreer script_freer = nullptr;

// Points every user function of `array` at its record again.
void repoint(EXP_FUNCTION_ARRAY_T *array) {
    for (int32_t i = 0; i < array->function_count; ++i)
        array->functions[i]->record = &array->records[i];
}

// AddFunctionToArrays: appends `function` and a zero record before the zero terminator.
bool add_function_to_arrays(EXP_FUNCTION_ARRAY_T *array, EXP_USER_FUNCTION_T *function) {
    const int32_t count = array->function_count;
    EXP_USER_FUNCTION_T **functions = QV_GROW(array->functions, count, 1);
    if (functions == nullptr) return false;
    array->functions = functions;
    // A null block has no terminator yet: room for the new record and the terminator.
    const int32_t records = array->records == nullptr ? 0 : count + 1;
    ExpFunction *grown = QV_GROW(array->records, records, count + 2 - records);
    if (grown == nullptr) return false;
    array->records = grown;
    array->records[count] = ExpFunction{};
    functions[count] = function;
    array->function_count = count + 1;
    repoint(array);
    return true;
}

// RemoveFunctionFromArrays: false (and nothing changes) when `function` is not in `array`.
// The search runs from the end, so that emptying an array from the end costs no moves.
bool remove_function_from_arrays(EXP_FUNCTION_ARRAY_T *array, EXP_USER_FUNCTION_T *function) {
    if (array == nullptr) return false;
    const int32_t count = array->function_count;
    int32_t index = count - 1;
    while (index >= 0 && array->functions[index] != function) --index;
    if (index < 0) return false;
    qv::remove_element(array->functions, count, index);
    qv::remove_element(array->records, count + 1, index); // the terminator moves down too
    array->function_count = count - 1;
    repoint(array);
    return true;
}

// The array of the stack that holds `function`, searched from the top; null when none.
EXP_FUNCTION_ARRAY_T *array_holding(const EXP_USER_FUNCTION_T *function) {
    for (int32_t level = installed->depth - 1; level >= 0; --level) {
        EXP_FUNCTION_ARRAY_T *array = installed->stack[level];
        if (array == nullptr) continue;
        const auto *begin = array->functions, *end = begin + array->function_count;
        if (std::find(begin, end, function) != end) return array;
    }
    return nullptr;
}

void free_extras(EXP_USER_FUNCTION_T *function) {
    for (int32_t i = 0; i < function->extra_count; ++i) {
        if (function->extras[i] == nullptr) continue;
        std::free(function->extras[i]->owned);
        std::free(function->extras[i]);
    }
    std::free(function->extras);
    function->extras = nullptr;
    function->extra_count = 0;
}

// Frees what a user function owns, in the registry's order, and takes it out of `array`.
void free_user_function(EXP_USER_FUNCTION_T *function, EXP_FUNCTION_ARRAY_T *array) {
    if (function->parameter_values != nullptr) {
        const int32_t count = function->parameters == nullptr ? 0 : function->parameters->count;
        for (int32_t i = 0; i < count; ++i) FreeValue_L(&function->parameter_values[i]);
        std::free(function->parameter_values);
    }
    FreeVariableArray_L(function->parameters);
    FreeVariableArray_L(function->locals);
    free_extras(function);
    std::free(function->text2[0]);
    std::free(function->text2[1]);
    std::free(function->text1);
    std::free(function->text3);
    FreeExpFunction(function->record);
    qv::free_script(function->body);
    FreeID_L(&function->id);
    remove_function_from_arrays(array, function);
    std::free(function);
}

// Frees the user functions (from the last) and the libraries of `array`, and its blocks.
void clear_array(EXP_FUNCTION_ARRAY_T *array) {
    while (array->function_count > 0)
        free_user_function(array->functions[array->function_count - 1], array);
    std::free(array->functions);
    array->functions = nullptr;
    for (int32_t i = 0; i < array->library_count; ++i) {
        EXP_LIBRARY_T *library = array->libraries[i];
        if (library == nullptr) continue;
        UnloadLib(library->module); // a refused unload leaves nothing to do here
        std::free(library->name);
        std::free(library);
    }
    std::free(array->libraries);
    array->libraries = nullptr;
    array->library_count = 0;
    std::free(array->records);
    array->records = nullptr;
}

// The current array, pushing the bottom one when there is none; null after a raise.
EXP_FUNCTION_ARRAY_T *current_array() {
    if (installed->current == nullptr) InitialiseFunctions_L();
    return installed->current;
}

// Frees the script of every user function of the current array.
void free_scripts() {
    EXP_FUNCTION_ARRAY_T *array = installed->current;
    if (array == nullptr) return;
    for (int32_t i = 0; i < array->function_count; ++i) {
        EXPRESSION_T *script = array->functions[i]->body;
        array->functions[i]->body = nullptr;
        qv::free_script(script);
    }
}

// A user function under construction: freed with what it holds unless released.
struct PartialFunction {
    void operator()(EXP_USER_FUNCTION_T *function) const {
        FreeVariableArray_L(function->parameters);
        FreeID_L(&function->id);
        std::free(function);
    }
};

} // namespace

void qv::install_script_freer(ScriptFreer freer) {
    script_freer = freer;
}

void qv::free_script(EXPRESSION_T *script) {
    if (script != nullptr && script_freer != nullptr) script_freer(script);
}

// ---- The open-file table ----------------------------------------------------------------

int32_t qv::add_open_file(std::FILE *file) {
    EXP_FUNCTION_STRUCT_T *owner = installed;
    const int32_t count = owner->open_file_count;
    int32_t slot = 0;
    while (slot < count && owner->open_files[slot] != nullptr) ++slot;
    if (slot == count) {
        std::FILE **files = QV_GROW(owner->open_files, count, 1);
        if (files == nullptr) return 0;
        owner->open_files = files;
        owner->open_file_count = count + 1;
    }
    owner->open_files[slot] = file;
    return slot + 1;
}

std::FILE *qv::open_file(int32_t number) {
    if (number < 1 || number > installed->open_file_count) return nullptr;
    return installed->open_files[number - 1];
}

bool qv::close_open_file(int32_t number) {
    std::FILE *file = open_file(number);
    if (file == nullptr) return false;
    installed->open_files[number - 1] = nullptr;
    std::fclose(file);
    return true;
}

extern "C" {

// ---- The function struct and its stack ---------------------------------------------------

QV_API EXP_FUNCTION_STRUCT_T *Set_Function_Struct_L(EXP_FUNCTION_STRUCT_T *functions) {
    EXP_FUNCTION_STRUCT_T *previous = installed;
    if (functions != nullptr) installed = functions;
    return previous;
}

QV_API void InitialiseFunctions_L(void) {
    if (installed->current == nullptr) PushFunctionArray_L();
}

QV_API int32_t PushFunctionArray_L(void) {
    qv::HeapArray<EXP_FUNCTION_ARRAY_T> array(
        static_cast<EXP_FUNCTION_ARRAY_T *>(QV_CALLOC(sizeof(EXP_FUNCTION_ARRAY_T))));
    if (array == nullptr) return 0;
    EXP_FUNCTION_ARRAY_T **stack = QV_GROW(installed->stack, installed->depth, 1);
    if (stack == nullptr) return 0;
    installed->stack = stack;
    installed->current = stack[installed->depth] = array.release();
    return ++installed->depth;
}

QV_API EXP_FUNCTION_ARRAY_T *PopFunctionArray_L(void) {
    if (installed->depth <= 1) return nullptr;
    EXP_FUNCTION_ARRAY_T *top = installed->stack[--installed->depth];
    installed->stack[installed->depth] = nullptr;
    installed->current = installed->stack[installed->depth - 1];
    return top;
}

QV_API void FreeFunctionArray_L(EXP_FUNCTION_ARRAY_T *array) {
    EXP_FUNCTION_ARRAY_T **stack_end = installed->stack + installed->depth;
    if (array == nullptr || std::find(installed->stack, stack_end, array) != stack_end) return;
    clear_array(array); // nothing left when the caller cleared it before popping
    std::free(array);
}

QV_API ExpFunction *Get_FunctionArray(int32_t *count) {
    EXP_FUNCTION_ARRAY_T *array = installed->current;
    if (count != nullptr) *count = array == nullptr ? 0 : array->function_count;
    return array == nullptr ? nullptr : array->records;
}

QV_API EXP_USER_FUNCTION_T **Get_UserFunctions(int32_t *count) {
    EXP_FUNCTION_ARRAY_T *array = installed->current;
    if (count != nullptr) *count = array == nullptr ? 0 : array->function_count;
    return array == nullptr ? nullptr : array->functions;
}

QV_API EXP_LIBRARY_T **Get_LibraryList(int32_t *count) {
    EXP_FUNCTION_ARRAY_T *array = installed->current;
    if (count != nullptr) *count = array == nullptr ? 0 : array->library_count;
    return array == nullptr ? nullptr : array->libraries;
}

// ---- Libraries and user-defined functions --------------------------------------------------

QV_API EXP_LIBRARY_T *AddNewLibrary(EXP_LIBRARY_T *library) {
    if (library == nullptr) return nullptr;
    EXP_FUNCTION_ARRAY_T *array = current_array();
    if (array == nullptr) return nullptr;
    EXP_LIBRARY_T **libraries = QV_GROW(array->libraries, array->library_count, 1);
    if (libraries == nullptr) return nullptr;
    array->libraries = libraries;
    libraries[array->library_count++] = library;
    return library;
}

QV_API EXP_USER_FUNCTION_T *NewFunction(const char *name, const char *second, const char *third,
                                        uint8_t flag) {
    EXP_FUNCTION_ARRAY_T *array = current_array();
    if (array == nullptr) return nullptr;
    if (installed->validated) {
        free_scripts();
        installed->validated = 0;
    }
    std::unique_ptr<EXP_USER_FUNCTION_T, PartialFunction> function(
        static_cast<EXP_USER_FUNCTION_T *>(QV_CALLOC(sizeof(EXP_USER_FUNCTION_T))));
    if (function == nullptr || SetID_L(&function->id, name, second, third) == nullptr)
        return nullptr;
    function->flag = flag;
    function->parameters = NewVariableArray_L(name);
    if (function->parameters == nullptr || !add_function_to_arrays(array, function.get()))
        return nullptr;
    return function.release();
}

QV_API void FreeFunction(EXP_USER_FUNCTION_T *function) {
    if (function != nullptr) free_user_function(function, array_holding(function));
}

QV_API void FreeExpFunction(ExpFunction *record) {
    if (record == nullptr || qv::is_constant_row(record)) return;
    std::free(const_cast<char *>(record->name));
    std::free(const_cast<char *>(record->usage));
    record->name = record->usage = nullptr;
    for (char *&text : record->texts) {
        std::free(text);
        text = nullptr;
    }
}

QV_API int32_t FreeFunctionScripts(void) {
    int32_t result = 0;
    qv::guarded(
        "FreeFunctionScripts", QV_MODULE, __LINE__, [] { free_scripts(); },
        [&](const char *raised) {
            result = -1;
            if (raised != GENERAL_ERROR) QV_RERAISE();
        });
    return result;
}

QV_API void SetValidatedFunctions_L(void) {
    installed->validated = 1;
}

QV_API void Clear_Functions(void) {
    if (installed->current != nullptr) clear_array(installed->current);
}

QV_API void CloseFunctionFiles_L(void) {
    for (int32_t i = 0; i < installed->open_file_count; ++i)
        if (installed->open_files[i] != nullptr) std::fclose(installed->open_files[i]);
    std::free(installed->open_files);
    installed->open_files = nullptr;
    installed->open_file_count = 0;
}

QV_API void TerminateFunctions_L(void) {
    CloseFunctionFiles_L();
    while (installed->depth > 0) {
        EXP_FUNCTION_ARRAY_T *array = installed->stack[--installed->depth];
        if (array == nullptr) continue;
        clear_array(array);
        std::free(array);
    }
    std::free(installed->stack);
    installed->stack = nullptr;
    installed->current = nullptr;
    installed->validated = 0;
    installed = &default_struct;
}

// ---- Libraries ------------------------------------------------------------------------------

QV_API void *LoadLib(const char *path) {
    if (path == nullptr) return nullptr;
    return QV_C_ENTRY([&]() -> void * {
        qv::String file(path);
        std::replace(file.begin(), file.end(), '\\', '/');
        return dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    });
}

QV_API void *GetFuncAddr(void *module, const char *entry) {
    if (module == nullptr || entry == nullptr) return nullptr;
    return dlsym(module, entry);
}

QV_API int32_t UnloadLib(void *module) {
    if (module == nullptr) return 0;
    return dlclose(module) == 0 ? 0 : 1;
}

} // extern "C"
