// The function registry: long random sequences of declarations, removals, pushes, pops and
// validations checked against a model after every step (records at their own index, the
// terminator zero, the validated flag cleared by a declaration, scripts freed), everything
// freed by Clear_Functions and TerminateFunctions_L (the sanitizer build sees leaks),
// libraries loaded from a test library, the open-file table, allocation failures and bad
// input.
#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "language.hpp"

namespace {

using qvtest::LanguageTest;
using qvtest::new_script;
using qvtest::raised_by;
using qvtest::scripts_alive;

using RegistryTest = LanguageTest;

char *copy(const std::string &text) {
    return strdup(text.c_str());
}

// Gives a declared function what the script layer would: a record with owned texts, a
// parameter and its value, locals, texts, a script and two extra blocks. `id` marks the
// record so that the test can see it move with its function.
void fill(EXP_USER_FUNCTION_T *function, int32_t id) {
    ExpFunction *record = function->record;
    record->name = copy("f" + std::to_string(id));
    record->usage = copy("f" + std::to_string(id) + "( p )");
    record->number = id;
    record->category = QV_CATEGORY_USER;
    record->texts[0] = copy("first");
    record->texts[5] = copy("last");
    CreateVariable_L(function->parameters, "p", QV_TYPE_CHAR, 0, 0, nullptr);
    function->parameter_values = static_cast<QV_VALUE_T *>(std::calloc(1, sizeof(QV_VALUE_T)));
    SetTextValue_L(&function->parameter_values[0], "argument", nullptr);
    function->locals = NewVariableArray_L("locals");
    CreateVariable_L(function->locals, "l", QV_TYPE_INTEGER, 0, 0, nullptr);
    function->text1 = copy("one");
    function->text2[0] = copy("two");
    function->text2[1] = copy("two'");
    function->text3 = copy("three");
    function->body = new_script();
    function->extra_count = 2;
    function->extras = static_cast<EXP_EXTRA_T **>(std::calloc(2, sizeof(EXP_EXTRA_T *)));
    for (EXP_EXTRA_T *&extra : std::span(function->extras, 2)) {
        extra = static_cast<EXP_EXTRA_T *>(std::malloc(sizeof(EXP_EXTRA_T)));
        extra->owned = std::malloc(8);
    }
}

bool all_zero(const ExpFunction &record) {
    static const ExpFunction zero{};
    return std::memcmp(&record, &zero, sizeof zero) == 0;
}

// One level of the model: the functions of an array and the ids of their records.
using Level = std::vector<std::pair<EXP_USER_FUNCTION_T *, int32_t>>;

void expect_matches(const EXP_FUNCTION_STRUCT_T &functions, const std::vector<Level> &model) {
    ASSERT_EQ(functions.depth, static_cast<int32_t>(model.size()));
    ASSERT_EQ(functions.current, functions.stack[functions.depth - 1]);
    int32_t count = -1;
    ExpFunction *records = Get_FunctionArray(&count);
    EXP_USER_FUNCTION_T **declared = Get_UserFunctions(nullptr);
    const Level &top = model.back();
    ASSERT_EQ(count, static_cast<int32_t>(top.size()));
    for (int32_t i = 0; i < count; ++i) {
        ASSERT_EQ(declared[i], top[i].first) << i;
        ASSERT_EQ(declared[i]->record, &records[i]) << i;
        ASSERT_EQ(records[i].number, top[i].second) << i;
    }
    if (records != nullptr) {
        EXPECT_TRUE(all_zero(records[count])) << "terminator";
    }
}

TEST_F(RegistryTest, RandomSequencesKeepRecordsAtTheirIndexAndTheTerminatorZero) {
    qvtest::Random random;
    InitialiseFunctions_L();
    std::vector<Level> model(1);
    int32_t next_id = 1;
    for (int step = 0; step < 3000; ++step) {
        Level &top = model.back();
        const int op = random(0, 19);
        if (op < 8) { // declare
            const bool was_validated = functions.validated != 0;
            EXP_USER_FUNCTION_T *function = NewFunction("f", "owner", nullptr, 7);
            ASSERT_NE(function, nullptr);
            EXPECT_EQ(functions.validated, 0);
            for (auto &[earlier, id] : top) {
                if (was_validated) {
                    EXPECT_EQ(earlier->body, nullptr) << "script kept";
                }
            }
            EXPECT_STREQ(function->id.second, "owner");
            EXPECT_EQ(function->flag, 7);
            EXPECT_STREQ(function->parameters->name, "f");
            EXPECT_TRUE(all_zero(*function->record));
            fill(function, next_id);
            top.emplace_back(function, next_id++);
        } else if (op < 13 && !top.empty()) { // remove one, from anywhere
            auto victim = top.begin() + random(0, static_cast<int32_t>(top.size()) - 1);
            FreeFunction(victim->first);
            top.erase(victim);
        } else if (op < 15) {
            EXPECT_EQ(PushFunctionArray_L(), static_cast<int32_t>(model.size()) + 1);
            model.emplace_back();
        } else if (op < 17) {
            if (model.size() == 1) {
                EXPECT_EQ(PopFunctionArray_L(), nullptr);
                continue;
            }
            EXP_FUNCTION_ARRAY_T *top_array = functions.current;
            if (random(0, 1) == 0) Clear_Functions(); // else FreeFunctionArray_L clears it
            EXPECT_EQ(PopFunctionArray_L(), top_array);
            FreeFunctionArray_L(top_array);
            model.pop_back();
        } else if (op < 19) { // the script layer checks and prepares every function
            for (auto &[function, id] : top)
                if (function->body == nullptr) function->body = new_script();
            SetValidatedFunctions_L();
            EXPECT_EQ(functions.validated, 1);
        } else {
            EXPECT_EQ(FreeFunctionScripts(), 0);
            for (auto &[function, id] : top) EXPECT_EQ(function->body, nullptr);
        }
        ASSERT_NO_FATAL_FAILURE(expect_matches(functions, model)) << "step " << step;
    }
    Clear_Functions();
    EXPECT_EQ(Get_UserFunctions(nullptr), nullptr);
    EXPECT_EQ(Get_FunctionArray(nullptr), nullptr);
}

TEST_F(RegistryTest, TerminatingFreesEveryLevelAndTwiceDoesNoHarm) {
    InitialiseFunctions_L();
    fill(NewFunction("a", nullptr, nullptr, 0), 1);
    PushFunctionArray_L();
    fill(NewFunction("b", nullptr, nullptr, 0), 2);
    fill(NewFunction("c", nullptr, nullptr, 0), 3);
    ASSERT_NE(qv::add_open_file(std::tmpfile()), 0);
    TerminateFunctions_L();
    EXPECT_EQ(scripts_alive, 0);
    EXPECT_EQ(functions.depth, 0);
    EXPECT_EQ(functions.stack, nullptr);
    EXPECT_EQ(functions.current, nullptr);
    EXPECT_EQ(functions.open_file_count, 0);
    EXPECT_NE(Set_Function_Struct_L(nullptr), &functions) << "the default struct is back";
    TerminateFunctions_L(); // the default struct: no files, no arrays, an empty stack
    Set_Function_Struct_L(&functions);
    TerminateFunctions_L();
    Set_Function_Struct_L(&functions);
    InitialiseFunctions_L(); // starts afresh
    EXPECT_EQ(functions.depth, 1);
}

TEST_F(RegistryTest, TheStructCanBeSwappedAndEachKeepsItsOwnFunctions) {
    InitialiseFunctions_L();
    fill(NewFunction("mine", nullptr, nullptr, 0), 1);
    EXP_FUNCTION_STRUCT_T other{};
    EXPECT_EQ(Set_Function_Struct_L(&other), &functions);
    EXPECT_EQ(Get_UserFunctions(nullptr), nullptr) << "the other struct has no array yet";
    EXP_USER_FUNCTION_T *theirs = NewFunction("theirs", nullptr, nullptr, 0); // pushes its bottom
    fill(theirs, 2);
    EXPECT_EQ(other.depth, 1);
    EXPECT_EQ(Set_Function_Struct_L(nullptr), &other) << "null only reports";
    TerminateFunctions_L();
    EXPECT_NE(Set_Function_Struct_L(&functions), &other) << "terminating put the default back";
    int32_t count = 0;
    EXPECT_EQ(Get_FunctionArray(&count)[0].number, 1);
    EXPECT_EQ(count, 1);
}

TEST_F(RegistryTest, FreeFunctionFindsItsArrayAndLeavesOthersAlone) {
    InitialiseFunctions_L();
    EXP_USER_FUNCTION_T *below = NewFunction("below", nullptr, nullptr, 0);
    fill(below, 1);
    PushFunctionArray_L();
    EXP_USER_FUNCTION_T *above = NewFunction("above", nullptr, nullptr, 0);
    fill(above, 2);
    FreeFunction(below); // in the array below the top
    EXPECT_EQ(functions.stack[0]->function_count, 0);
    EXPECT_EQ(functions.current->function_count, 1);
    EXPECT_TRUE(all_zero(functions.stack[0]->records[0]));

    // A function no array holds is freed without touching the arrays.
    auto *stray = static_cast<EXP_USER_FUNCTION_T *>(std::calloc(1, sizeof(EXP_USER_FUNCTION_T)));
    stray->body = new_script();
    FreeFunction(stray);
    FreeFunction(nullptr);
    EXPECT_EQ(functions.current->function_count, 1);
    EXPECT_EQ(functions.current->functions[0], above);
    EXPECT_EQ(above->record, &functions.current->records[0]);
}

TEST_F(RegistryTest, GettersAndPopsOnEmptyAndBottomStacks) {
    int32_t count = 5;
    EXPECT_EQ(Get_FunctionArray(&count), nullptr);
    EXPECT_EQ(count, 0);
    count = 5;
    EXPECT_EQ(Get_UserFunctions(&count), nullptr);
    EXPECT_EQ(count, 0);
    count = 5;
    EXPECT_EQ(Get_LibraryList(&count), nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(PopFunctionArray_L(), nullptr) << "depth 0";
    Clear_Functions(); // no current array: nothing
    InitialiseFunctions_L();
    InitialiseFunctions_L(); // once only
    EXPECT_EQ(functions.depth, 1);
    EXPECT_EQ(PopFunctionArray_L(), nullptr) << "the bottom array stays";
    EXPECT_EQ(functions.depth, 1);
    FreeFunctionArray_L(functions.current); // still on the stack: left alone
    FreeFunctionArray_L(nullptr);
    EXP_USER_FUNCTION_T *function = NewFunction(nullptr, nullptr, nullptr, 0);
    ASSERT_NE(function, nullptr);
    EXPECT_EQ(function->id.name, nullptr);
    EXPECT_EQ(function->parameters->name, nullptr);
    EXPECT_EQ(Get_FunctionArray(nullptr), function->record);
    EXPECT_EQ(Get_UserFunctions(nullptr)[0], function);
    FreeExpFunction(nullptr);
    const char *first = Get_BuiltInFns_L()->name;
    FreeExpFunction(const_cast<ExpFunction *>(Get_BuiltInFns_L())); // a constant row: untouched
    EXPECT_EQ(Get_BuiltInFns_L()->name, first);
    EXPECT_NE(first, nullptr);
}

TEST_F(RegistryTest, FreeFunctionScriptsReportsAFailureAndPassesOnAllButGeneralError) {
    InitialiseFunctions_L();
    fill(NewFunction("f", nullptr, nullptr, 0), 1);
    static const char *raise_this = nullptr;
    qv::install_script_freer([](EXPRESSION_T *script) {
        qvtest::free_test_script(script);
        except_raise(raise_this, "test", __LINE__, 0, 0, nullptr);
    });
    raise_this = GENERAL_ERROR;
    int32_t result = 0;
    EXPECT_EQ(raised_by([&] { result = FreeFunctionScripts(); }), nullptr);
    EXPECT_EQ(result, -1);
    Get_UserFunctions(nullptr)[0]->body = new_script();
    raise_this = ALLOC_FAILURE;
    EXPECT_EQ(raised_by([] { FreeFunctionScripts(); }), ALLOC_FAILURE);
    qv::install_script_freer(qvtest::free_test_script);
    EXPECT_EQ(FreeFunctionScripts(), 0);
}

TEST_F(RegistryTest, LibrariesLoadFromATestLibraryAndUnloadWhenCleared) {
    EXPECT_EQ(LoadLib(nullptr), nullptr);
    EXPECT_EQ(LoadLib("/no/such/library.so"), nullptr);
    EXPECT_EQ(GetFuncAddr(nullptr, "plugin_function_table"), nullptr);
    EXPECT_EQ(UnloadLib(nullptr), 0);

    std::string backslashed = QV_TEST_PLUGIN;
    std::replace(backslashed.begin(), backslashed.end(), '/', '\\');
    void *module = LoadLib(backslashed.c_str());
    ASSERT_NE(module, nullptr) << dlerror();
    EXPECT_EQ(GetFuncAddr(module, "no_such_entry"), nullptr);
    auto table_of =
        reinterpret_cast<const ExpFunction *(*)()>(GetFuncAddr(module, "plugin_function_table"));
    ASSERT_NE(table_of, nullptr);

    // Its table serves calls like the built-in one.
    const ExpFunction *table = table_of();
    EXPECT_STREQ(table[0].name, "Twice");
    EXPECT_EQ(table[2].name, nullptr);
    qvtest::Value result, x;
    SetIntegerValue_L(x.get(), 21);
    QV_VALUE_T *arguments[] = {x.get(), x.get(), x.get()};
    EXP_CALL_FRAME_T frame{&table[0], 1, arguments, QV_MODE_EVALUATE, nullptr, nullptr};
    EXPECT_EQ(CallFunction_L(result.get(), &frame), 0);
    EXPECT_EQ(result->payload.integer, 42);
    frame = {&table[1], 3, arguments, QV_MODE_EVALUATE, nullptr, nullptr};
    EXPECT_EQ(CallFunction_L(result.get(), &frame), 0);
    EXPECT_EQ(result->payload.integer, 3);

    auto *library = static_cast<EXP_LIBRARY_T *>(std::malloc(sizeof(EXP_LIBRARY_T)));
    *library = {copy(QV_TEST_PLUGIN), module};
    EXPECT_EQ(AddNewLibrary(library), library);
    EXPECT_EQ(AddNewLibrary(nullptr), nullptr);
    int32_t count = 0;
    EXPECT_EQ(Get_LibraryList(&count)[0], library);
    EXPECT_EQ(count, 1);
    Clear_Functions();
    EXPECT_EQ(Get_LibraryList(&count), nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(dlopen(QV_TEST_PLUGIN, RTLD_NOW | RTLD_NOLOAD), nullptr) << "unloaded";
}

TEST_F(RegistryTest, OpenFilesTakeTheLowestFreeNumberAndCloseTogether) {
    EXPECT_EQ(qv::add_open_file(std::tmpfile()), 1);
    EXPECT_EQ(qv::add_open_file(std::tmpfile()), 2);
    EXPECT_EQ(qv::add_open_file(std::tmpfile()), 3);
    EXPECT_TRUE(qv::close_open_file(2));
    EXPECT_FALSE(qv::close_open_file(2)) << "closed already";
    EXPECT_EQ(qv::open_file(2), nullptr);
    EXPECT_EQ(qv::add_open_file(std::tmpfile()), 2);
    EXPECT_EQ(functions.open_file_count, 3);
    for (int32_t number : {0, -1, 4, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(qv::open_file(number), nullptr) << number;
        EXPECT_FALSE(qv::close_open_file(number)) << number;
    }
    std::FILE *third = qv::open_file(3);
    ASSERT_NE(third, nullptr);
    EXPECT_GE(std::fputs("kept", third), 0);
    CloseFunctionFiles_L();
    EXPECT_EQ(functions.open_file_count, 0);
    EXPECT_EQ(functions.open_files, nullptr);
    EXPECT_EQ(qv::open_file(1), nullptr);
}

TEST_F(RegistryTest, AllocationFailuresLeaveTheRegistryAsItWas) {
    InitialiseFunctions_L();
    for (int32_t id = 1; id <= 3; ++id) fill(NewFunction("f", nullptr, nullptr, 0), id);
    std::vector<std::pair<EXP_USER_FUNCTION_T *, int32_t>> level;
    for (int32_t i = 0; i < 3; ++i) level.emplace_back(Get_UserFunctions(nullptr)[i], i + 1);
    EXP_USER_FUNCTION_T *made = nullptr;
    auto raised =
        qvtest::fail_each_allocation([&] { made = NewFunction("name", "second", "third", 1); },
                                     [&] {
                                         made = nullptr;
                                         expect_matches(functions, {level});
                                     });
    EXPECT_EQ(raised.size(), 8u) << "record, three texts, parameter array and name, two blocks";
    EXPECT_THAT(raised, ::testing::Each(ALLOC_FAILURE));
    ASSERT_NE(made, nullptr);
    fill(made, 4);
    level.emplace_back(made, 4);
    expect_matches(functions, {level});

    qvtest::expect_raise(ALLOC_FAILURE, "builtin", [] {
        TestFailAllocation_L(0);
        NewFunction("f", nullptr, nullptr, 0);
    });
    int32_t depth = functions.depth;
    raised = qvtest::fail_each_allocation([] { PushFunctionArray_L(); });
    EXPECT_EQ(raised.size(), 2u);
    EXPECT_EQ(functions.depth, depth + 1);

    auto *library = static_cast<EXP_LIBRARY_T *>(std::calloc(1, sizeof(EXP_LIBRARY_T)));
    qvtest::expect_raise(ALLOC_FAILURE, "builtin", [&] {
        TestFailAllocation_L(0);
        EXPECT_EQ(AddNewLibrary(library), nullptr);
    });
    EXPECT_EQ(AddNewLibrary(library), library);
}

} // namespace
