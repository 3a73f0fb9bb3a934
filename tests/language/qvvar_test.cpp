// Variables: the scope stack (innermost wins, pops from the middle, growth at the 101st
// push), look-ups, SetVariable_L's literals and read-only rule, GetVariable_L's preference,
// change merging as a table, copies, reports, the registry-like store's three outcomes,
// allocation failures and bad input.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "language.hpp"

namespace {

using qvtest::LanguageTest;
using qvtest::raised_by;
using qvtest::text_of;
using qvtest::Value;

using VariableTest = LanguageTest;

VARIABLE_T *integer_variable(VARIABLE_ARRAY_T *array, const char *name, int64_t number) {
    Value value;
    SetIntegerValue_L(value.get(), number);
    return CreateVariable_L(array, name, QV_TYPE_INTEGER, 0, 0, value.get());
}

std::vector<VARIABLE_ARRAY_T *> stack() {
    VARIABLE_ARRAY_T **arrays = nullptr;
    int32_t count = GetVariableStructure_L(&arrays);
    return {arrays, arrays + count};
}

// ---- The scope stack -----------------------------------------------------------------------

TEST_F(VariableTest, TheInnermostArrayWinsAndGlobalFirstLooksThereFirst) {
    VARIABLE_ARRAY_T *global = GetGlobalVariables_L();
    ASSERT_NE(global, nullptr);
    EXPECT_STREQ(global->name, "Global");
    EXPECT_EQ(stack(), std::vector<VARIABLE_ARRAY_T *>{global});
    VARIABLE_T *outer = integer_variable(global, "x", 1);
    VARIABLE_ARRAY_T *middle = PushVariableArray_L(NewVariableArray_L("middle"));
    VARIABLE_ARRAY_T *inner = PushVariableArray_L(NewVariableArray_L(nullptr));
    VARIABLE_T *shadow = integer_variable(middle, "X", 2);
    EXPECT_EQ(FindVariable_L("x", 0), shadow);
    EXPECT_EQ(FindVariable_L("x", QV_FIND_GLOBAL_FIRST), outer);
    VARIABLE_T *innermost = integer_variable(inner, "x", 3);
    EXPECT_EQ(FindVariable_L("x", 0), innermost);
    VARIABLE_ARRAY_T *arrays[] = {global, middle};
    EXPECT_EQ(FindVariableOnArrays_L(arrays, 2, "x"), shadow);
    EXPECT_EQ(FindVariableOnArrays_L(arrays, 1, "x"), outer);
    EXPECT_EQ(FindVariable_L("y", QV_FIND_GLOBAL_FIRST), nullptr);

    // Names compare without case, also beyond ASCII.
    VARIABLE_T *accented = integer_variable(inner, "Ärger", 4);
    EXPECT_EQ(FindVariable_L("äRGER", 0), accented);
    EXPECT_EQ(FindVariableOnArray_L(inner, "arger"), nullptr);

    // Names that are not valid UTF-8 are found by their bytes.
    VARIABLE_T *invalid = integer_variable(inner, "\xff\xfe", 5);
    EXPECT_EQ(FindVariable_L("\xff\xfe", 0), invalid);

    EXPECT_EQ(DeleteVariableFromArrays_L(nullptr, 0, "X"), 3) << "every x on the stack";
    EXPECT_EQ(FindVariable_L("x", 0), nullptr);
    EXPECT_EQ(global->count, 0);
}

TEST_F(VariableTest, PoppingFromTheMiddleKeepsTheOthersInOrder) {
    VARIABLE_ARRAY_T *global = GetGlobalVariables_L();
    VARIABLE_ARRAY_T *a = PushVariableArray_L(NewVariableArray_L("a"));
    VARIABLE_ARRAY_T *b = PushVariableArray_L(NewVariableArray_L("b"));
    VARIABLE_ARRAY_T *c = PushVariableArray_L(NewVariableArray_L("c"));
    PopVariableArray_L(b);
    EXPECT_EQ(stack(), (std::vector<VARIABLE_ARRAY_T *>{global, a, c}));
    PopVariableArray_L(c);
    EXPECT_EQ(stack(), (std::vector<VARIABLE_ARRAY_T *>{global, a}));
    PopVariableArray_L(b); // not on the stack any more
    PopVariableArray_L(nullptr);
    EXPECT_EQ(PushVariableArray_L(nullptr), nullptr);
    EXPECT_EQ(stack(), (std::vector<VARIABLE_ARRAY_T *>{global, a}));
    FreeVariableArray_L(b);
    FreeVariableArray_L(c);
    FreeVariableArray_L(a); // takes itself off the stack
    EXPECT_EQ(stack(), std::vector<VARIABLE_ARRAY_T *>{global});
}

TEST_F(VariableTest, The101stPushGrowsTheStackAndKeepsEveryEntry) {
    std::vector<VARIABLE_ARRAY_T *> pushed = stack(); // "Global"
    auto push = [&] {
        std::unique_ptr<VARIABLE_ARRAY_T, decltype(&FreeVariableArray_L)> array(
            NewVariableArray_L(std::to_string(pushed.size()).c_str()), FreeVariableArray_L);
        TestFailAllocation_L(0); // only a push that must grow allocates
        const bool done = PushVariableArray_L(array.get()) != nullptr;
        TestFailAllocation_L(-1);
        if (done) pushed.push_back(array.release());
        return done;
    };
    while (pushed.size() < 100) ASSERT_TRUE(push()) << pushed.size();
    EXPECT_EQ(raised_by([&] { EXPECT_FALSE(push()); }), ALLOC_FAILURE) << "the 101st grows";
    EXPECT_EQ(stack(), pushed);
    ASSERT_TRUE(PushVariableArray_L(NewVariableArray_L("100")));
    pushed.push_back(stack().back());
    while (pushed.size() < 200) ASSERT_TRUE(push()) << pushed.size();
    EXPECT_EQ(stack(), pushed);
    EXPECT_EQ(raised_by([&] { EXPECT_FALSE(push()); }), ALLOC_FAILURE) << "the 201st grows";
}

// ---- Setting and getting ------------------------------------------------------------------

TEST_F(VariableTest, SetVariableReadsLiteralsAndCreatesOnGlobal) {
    struct Case {
        const char *text;
        uint8_t as_text;
        uint32_t type;
        const char *value; // text form; "<null>" for NULL
    };
    const Case cases[] = {
        {"'It''s'", 0, QV_TYPE_CHAR, "It's"},
        {"'42'", 0, QV_TYPE_CHAR, "42"},
        {"''", 0, QV_TYPE_CHAR, ""},
        {"42", 0, QV_TYPE_INTEGER, "42"},
        {"-2.5", 0, QV_TYPE_FLOAT, "-2.5"},
        {"123456789012345678901234567890", 0, QV_TYPE_NUMBER, "123456789012345678901234567890"},
        {"true", 0, QV_TYPE_BOOLEAN, "TRUE"},
        {"FALSE", 0, QV_TYPE_BOOLEAN, "FALSE"},
        {"NULL", 0, 0, "<null>"},
        {"2009-04-30", 0, QV_TYPE_DATE, "2009-04-30 00:00:00.000000000"},
        {"2009-04-30 12:00 +05:30", 0, QV_TYPE_DATE_TZ, "2009-04-30 12:00:00.000000000 +05:30"},
        {"12abc", 0, QV_TYPE_CHAR, "12abc"},
        {"", 0, QV_TYPE_CHAR, ""},
        {"42", 1, QV_TYPE_CHAR, "42"},
        {"'quoted'", 1, QV_TYPE_CHAR, "'quoted'"},
        {nullptr, 0, QV_TYPE_CHAR, "<null>"},
    };
    std::strcpy(Msgbuf8, "kept");
    int n = 0;
    for (const Case &c : cases) {
        const std::string name = "v" + std::to_string(n++);
        VARIABLE_T *variable = SetVariable_L(name.c_str(), c.text, c.as_text);
        ASSERT_NE(variable, nullptr) << c.text;
        EXPECT_EQ(variable->owner, GetGlobalVariables_L()) << c.text;
        EXPECT_EQ(variable->value.descriptor.type, c.type) << (c.text ? c.text : "null");
        EXPECT_EQ(text_of(&variable->value), c.value) << (c.text ? c.text : "null");
    }
    EXPECT_STREQ(Msgbuf8, "kept") << "failed recognitions leave the last-error text alone";
    const std::string megabyte(1 << 20, 'm');
    EXPECT_EQ(text_of(&SetVariable_L("big", megabyte.c_str(), 0)->value), megabyte);
    EXPECT_EQ(SetVariable_L(nullptr, "1", 0), nullptr);
}

TEST_F(VariableTest, SetVariableKeepsTheTypeAndRespectsReadOnly) {
    VARIABLE_ARRAY_T *inner = PushVariableArray_L(NewVariableArray_L("inner"));
    VARIABLE_T *count = integer_variable(inner, "count", 1);
    EXPECT_EQ(SetVariable_L("COUNT", "'17'", 0), count) << "found through the stack";
    EXPECT_EQ(count->value.descriptor.type, QV_TYPE_INTEGER);
    EXPECT_EQ(count->value.payload.integer, 17);
    EXPECT_EQ(SetVariable_L("count", "NULL", 0), count);
    EXPECT_TRUE(count->value.is_null);
    count->read_only = 1;
    EXPECT_EQ(SetVariable_L("count", "99", 0), count);
    EXPECT_TRUE(count->value.is_null) << "read-only: unchanged";
    EXPECT_EQ(GetGlobalVariables_L()->count, 0);

    // Without the module, the first set makes it.
    TerminateAndFreeVariables_L();
    EXPECT_EQ(GetGlobalVariables_L(), nullptr);
    VARIABLE_T *made = SetVariable_L("late", "1", 0);
    ASSERT_NE(GetGlobalVariables_L(), nullptr);
    EXPECT_EQ(made->owner, GetGlobalVariables_L());
}

TEST_F(VariableTest, GetVariableFallsBackOnTheConfigurationFileAsAQuotedString) {
    qvtest::TempDirectory directory;
    qvtest::write_file(directory / "qv.ini", "QV_TEST_PATH = 2009-04-30\nQV_TEST_EMPTY =\n");
    qvtest::ScopedEnvironment ini("QV_INI", (directory / "qv.ini").c_str());
    qvtest::ScopedEnvironment environment("QV_TEST_ONLY_HERE", "1"); // the file only counts

    VARIABLE_T *path = GetVariable_L("QV_TEST_PATH", 0);
    ASSERT_NE(path, nullptr);
    EXPECT_EQ(path->owner, GetGlobalVariables_L());
    EXPECT_EQ(path->value.descriptor.type, QV_TYPE_CHAR) << "quoted: text, not a date";
    EXPECT_EQ(text_of(&path->value), "2009-04-30");
    EXPECT_EQ(GetVariable_L("qv_test_path", 0), path) << "found now, not read again";
    VARIABLE_T *empty = GetVariable_L("QV_TEST_EMPTY", 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(text_of(&empty->value), "");
    EXPECT_EQ(GetVariable_L("QV_TEST_ONLY_HERE", 0), nullptr);
    EXPECT_EQ(GetVariable_L("QV_TEST_MISSING", 0), nullptr);
    EXPECT_EQ(GetVariable_L(nullptr, 0), nullptr);
}

TEST_F(VariableTest, UpdateConvertsIntoTheDeclaredTypeAndMarksChanges) {
    VARIABLE_T *cut = CreateVariable_L(GetGlobalVariables_L(), "cut", QV_TYPE_CHAR, 3, 0, nullptr);
    ASSERT_NE(cut, nullptr);
    EXPECT_TRUE(cut->value.is_null);
    Value text;
    SetTextValue_L(text.get(), "abcdef", nullptr);
    EXPECT_EQ(UpdateVariableValue_L(cut, text.get(), 0), QV_CONVERT_TRUNCATED);
    EXPECT_EQ(text_of(GetVariableValue_L(cut)), "abc");
    EXPECT_EQ(cut->changed, 0);
    EXPECT_EQ(UpdateVariableValue_L(cut, nullptr, 1), 0);
    EXPECT_TRUE(cut->value.is_null);
    EXPECT_EQ(cut->changed, 1);
    EXPECT_EQ(UpdateVariableValue_L(nullptr, text.get(), 1), -1);
    EXPECT_EQ(GetVariableValue_L(nullptr), nullptr);

    VARIABLE_T *untyped = CreateVariable_L(nullptr, "free", 0, 0, 0, text.get());
    EXPECT_EQ(untyped->owner, nullptr);
    EXPECT_EQ(untyped->value.descriptor.type, QV_TYPE_CHAR) << "takes the initial value's type";
    EXPECT_EQ(AddVariable_L(GetGlobalVariables_L(), untyped), untyped);
    EXPECT_EQ(AddVariable_L(GetGlobalVariables_L(), untyped), untyped) << "not twice";
    VARIABLE_ARRAY_T *other = PushVariableArray_L(NewVariableArray_L("other"));
    EXPECT_EQ(AddVariable_L(other, untyped), untyped) << "moves";
    EXPECT_EQ(GetGlobalVariables_L()->count, 1);
    EXPECT_EQ(other->count, 1);
    EXPECT_EQ(untyped->owner, other);
    FreeVariable_L(untyped);
    EXPECT_EQ(other->count, 0);
}

// ---- Change merging -----------------------------------------------------------------------

TEST_F(VariableTest, ChangeMergingFollowsTheCurrentCycleWinsRule) {
    struct Case {
        uint8_t source_changed, source_saved, target_merged;
        bool taken;
        uint8_t target_changed, target_merged_after;
    };
    const Case cases[] = {
        // A change of this cycle always wins and marks the target merged.
        {1, 0, 0, true, 1, 1},
        {1, 1, 0, true, 1, 1},
        {1, 0, 1, true, 1, 1},
        {1, 1, 1, true, 1, 1},
        // A saved change only while nothing has been merged in since the reset.
        {0, 1, 0, true, 0, 0},
        {0, 1, 1, false, 0, 1},
        // No change: nothing.
        {0, 0, 0, false, 0, 0},
        {0, 0, 1, false, 0, 1},
    };
    for (const Case &c : cases) {
        VARIABLE_ARRAY_T *from = NewVariableArray_L("from");
        VARIABLE_ARRAY_T *to = NewVariableArray_L("to");
        VARIABLE_T *source = integer_variable(from, "v", 2);
        VARIABLE_T *target = integer_variable(to, "v", 1);
        source->changed = c.source_changed;
        source->saved_change = c.source_saved;
        target->merged = c.target_merged;
        integer_variable(from, "new", 5)->saved_change = 1;
        EXPECT_EQ(CopyVariableArrayChanges_L(to, from), 0);
        const std::string row = std::to_string(c.source_changed) + std::to_string(c.source_saved) +
                                std::to_string(c.target_merged);
        EXPECT_EQ(target->value.payload.integer, c.taken ? 2 : 1) << row;
        EXPECT_EQ(target->changed, c.target_changed) << row;
        EXPECT_EQ(target->merged, c.target_merged_after) << row;
        VARIABLE_T *added = FindVariableOnArray_L(to, "new");
        ASSERT_NE(added, nullptr) << row << ": a variable the target lacks is copied";
        EXPECT_EQ(added->value.payload.integer, 5);
        EXPECT_EQ(added->saved_change, 1);
        FreeVariableArray_L(from);
        FreeVariableArray_L(to);
    }
}

TEST_F(VariableTest, SavingAndResettingMoveTheFlags) {
    VARIABLE_ARRAY_T *array = GetGlobalVariables_L();
    VARIABLE_T *v = integer_variable(array, "v", 1);
    v->changed = 1;
    v->merged = 1;
    SaveVariableArrayChanges_L(array);
    EXPECT_EQ(std::make_tuple(v->changed, v->saved_change, v->merged), std::make_tuple(0, 1, 1));
    SaveVariableArrayChanges_L(array);
    EXPECT_EQ(v->saved_change, 0) << "a cycle without a change";
    v->saved_change = 1;
    ResetVariableArrayChanges_L(array);
    EXPECT_EQ(std::make_tuple(v->changed, v->saved_change, v->merged), std::make_tuple(0, 0, 0));
    SaveVariableArrayChanges_L(nullptr);
    ResetVariableArrayChanges_L(nullptr);
    EXPECT_EQ(CopyVariableArrayChanges_L(nullptr, array), 0);
}

TEST_F(VariableTest, DuplicatesCopyValuesFlagsAndTextButNotTheScript) {
    VARIABLE_ARRAY_T *from = GetGlobalVariables_L();
    VARIABLE_T *picked = SetVariable_L("picked", "text", 1);
    picked->selected = picked->read_only = 1;
    picked->expression = strdup("Upper( 'text' )");
    picked->script = qvtest::new_script();
    SetVariable_L("left", "2", 0);
    VARIABLE_ARRAY_T *to = NewVariableArray_L("to");
    EXPECT_EQ(DuplicateVariableArray_L(to, from, 1), 1);
    ASSERT_EQ(to->count, 1);
    VARIABLE_T *copy = to->variables[0];
    EXPECT_STREQ(copy->name, "picked");
    EXPECT_EQ(text_of(&copy->value), "text");
    EXPECT_NE(copy->value.payload.string.text, picked->value.payload.string.text) << "deep";
    EXPECT_EQ(std::make_tuple(copy->selected, copy->read_only), std::make_tuple(1, 1));
    EXPECT_STREQ(copy->expression, "Upper( 'text' )");
    EXPECT_EQ(copy->script, nullptr);
    EXPECT_EQ(DuplicateVariableArray_L(to, from, 0), 2);
    EXPECT_EQ(DuplicateVariableArray_L(from, from, 0), 2) << "onto itself: what was there";
    EXPECT_EQ(from->count, 4);
    EXPECT_EQ(DuplicateVariableByName_L(to, from, "LEFT")->owner, to);
    EXPECT_EQ(DuplicateVariableByName_L(to, from, "none"), nullptr);
    EXPECT_EQ(to->count, 4);
    FreeVariableArray_L(to);
}

// ---- Reports ------------------------------------------------------------------------------

TEST_F(VariableTest, ReportsQuoteTextsAndNameTheirArray) {
    trace("Variable");
    SetVariable_L("s", "It's", 1);
    SetVariable_L("n", "42", 0);
    SetVariable_L("z", nullptr, 0);
    VARIABLE_ARRAY_T *unnamed = PushVariableArray_L(NewVariableArray_L(nullptr));
    integer_variable(unnamed, "local", -1);
    ReportAllVariables_L(1);
    EXPECT_EQ(out, "Global.s = 'It's'\nGlobal.n = 42\nGlobal.z = <NULL>\n");
    out.clear();
    ReportAllVariables_L(0);
    EXPECT_THAT(out, ::testing::EndsWith("Global.z = <NULL>\nlocal = -1\n"));
    out.clear();
    trace("");
    ReportAllVariables_L(0);
    ReportVariable_L(nullptr);
    EXPECT_EQ(out, "") << "the class is not selected";
}

// ---- Identifiers --------------------------------------------------------------------------

TEST(Identifier, SetReplacesTheCopiesAndFreeEmptiesThem) {
    QV_ID_T id{};
    EXPECT_EQ(SetID_L(&id, "name", nullptr, "third"), &id);
    EXPECT_STREQ(id.name, "name");
    EXPECT_EQ(id.second, nullptr);
    EXPECT_STREQ(id.third, "third");
    EXPECT_EQ(SetID_L(&id, nullptr, "second", nullptr), &id);
    EXPECT_EQ(id.name, nullptr);
    EXPECT_STREQ(id.second, "second");
    EXPECT_EQ(raised_by([&] {
                  TestFailAllocation_L(1);
                  EXPECT_EQ(SetID_L(&id, "a", "b", "c"), nullptr);
              }),
              ALLOC_FAILURE);
    EXPECT_EQ(std::make_tuple(id.name, id.second, id.third),
              std::make_tuple(nullptr, nullptr, nullptr));
    FreeID_L(&id);
    FreeID_L(nullptr);
    EXPECT_EQ(SetID_L(nullptr, "a", "b", "c"), nullptr);
}

// ---- The registry-like store --------------------------------------------------------------

TEST_F(VariableTest, TheRegistryStoreGivesTextExistsOrNull) {
    qvtest::TempDirectory directory;
    qvtest::write_file(directory / "registry.txt",
                       "# settings\r\n"
                       "ignored = sz:before any key\n"
                       "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillon\\Paths]\n"
                       "InstallDir = sz: /opt/quillon \n"
                       "\"Log Dir\" = expand_sz:\"$HOME/a = b\"\n"
                       "Retries = dword:3\n"
                       "@ = sz:default\n"
                       "Long = sz:" +
                           std::string(4095, 'x') +
                           "\n"
                           "TooLong = sz:" +
                           std::string(4096, 'x') +
                           "\n"
                           "[hkcu/Software//Quillon/]\n"
                           "User = SZ:me\n"
                           "Blob = binary:01 02\n"
                           "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quillon\\Paths]\n"
                           "InstallDir = sz:second\n"
                           "Later = sz:found in a reopened key\n");
    qvtest::ScopedEnvironment store("QV_REGISTRY_FILE", (directory / "registry.txt").c_str());
    const uintptr_t machine = QV_HKEY_LOCAL_MACHINE, user = QV_HKEY_CURRENT_USER;
    struct Case {
        uintptr_t root;
        const char *key, *name, *expected; // "<null>" for null
    };
    const std::string long_text(4095, 'x');
    const Case cases[] = {
        {machine, "SOFTWARE\\Quillon\\Paths", "InstallDir", "/opt/quillon"},
        {machine, "software/quillon/paths", "installdir", "/opt/quillon"},
        {machine, "SOFTWARE\\Quillon\\Paths", "Log Dir", "$HOME/a = b"},
        {machine, "SOFTWARE\\Quillon\\Paths", "Retries", QV_REGISTRY_EXISTS},
        {machine, "SOFTWARE\\Quillon\\Paths", nullptr, "default"},
        {machine, "SOFTWARE\\Quillon\\Paths", "", "default"},
        {machine, "SOFTWARE\\Quillon\\Paths", "Long", long_text.c_str()},
        {machine, "SOFTWARE\\Quillon\\Paths", "TooLong", "<null>"},
        {machine, "SOFTWARE\\Quillon\\Paths", "Later", "found in a reopened key"},
        {machine, "SOFTWARE\\Quillon\\Paths", "Missing", "<null>"},
        {machine, "SOFTWARE\\Quillon\\Paths", "ignored", "<null>"},
        {machine, "SOFTWARE\\Quillon", "InstallDir", "<null>"},
        {user, "Software\\Quillon", "User", "me"},
        {user, "Software\\Quillon", "Blob", QV_REGISTRY_EXISTS},
        {machine, "Software\\Quillon", "User", "<null>"},
        {QV_HKEY_USERS, "Software\\Quillon", "User", "<null>"},
        {0x12345678u, "Software\\Quillon", "User", "<null>"},
        {user, nullptr, "User", "<null>"},
    };
    for (const Case &c : cases)
        EXPECT_EQ(qvtest::take(Get_Registry_L(c.root, c.key, c.name)).substr(0, 40),
                  std::string(c.expected).substr(0, 40))
            << (c.key ? c.key : "null") << " " << (c.name ? c.name : "null");

    qvtest::ScopedEnvironment missing("QV_REGISTRY_FILE", (directory / "none.txt").c_str());
    EXPECT_EQ(Get_Registry_L(machine, "SOFTWARE\\Quillon\\Paths", "InstallDir"), nullptr);
}

// ---- Allocation failures and bad input ----------------------------------------------------

TEST_F(VariableTest, AllocationFailuresLeaveArraysAsTheyWere) {
    VARIABLE_ARRAY_T *array = GetGlobalVariables_L();
    Value text;
    SetTextValue_L(text.get(), "a text to copy", nullptr);
    int32_t expected = array->count;
    auto raised = qvtest::fail_each_allocation(
        [&] {
            if (CreateVariable_L(array, "v", QV_TYPE_CHAR, 0, 0, text.get()) != nullptr) ++expected;
        },
        [&] { EXPECT_EQ(array->count, expected); });
    EXPECT_GE(raised.size(), 4u) << "variable, name, text, block";
    EXPECT_THAT(raised, ::testing::Each(ALLOC_FAILURE));
    EXPECT_EQ(array->count, 1);

    raised = qvtest::fail_each_allocation(
        [&] { ASSERT_NE(SetVariable_L("fresh", "'text'", 0), nullptr); },
        [&] {
            DeleteVariableFromArrays_L(nullptr, 0, "fresh");
            EXPECT_EQ(array->count, 1);
        });
    EXPECT_GE(raised.size(), 4u);
    EXPECT_THAT(raised, ::testing::Each(ALLOC_FAILURE));

    VARIABLE_ARRAY_T *to = NewVariableArray_L("to");
    raised = qvtest::fail_each_allocation([&] { DuplicateVariableArray_L(to, array, 0); },
                                          [&] {
                                              for (int32_t i = to->count - 1; i >= 0; --i)
                                                  FreeVariable_L(to->variables[i]);
                                          });
    EXPECT_THAT(raised, ::testing::Each(ALLOC_FAILURE));
    EXPECT_EQ(to->count, array->count);
    FreeVariableArray_L(to);

    qvtest::expect_raise(ALLOC_FAILURE, "qvvar", [] {
        TestFailAllocation_L(0);
        NewVariableArray_L("x");
    });

    TerminateAndFreeVariables_L();
    raised = qvtest::fail_each_allocation(
        [] {
            InitialiseVariables_L();
            EXPECT_NE(GetGlobalVariables_L(), nullptr);
        },
        [] { TerminateVariables_L(); });
    EXPECT_EQ(raised.size(), 3u) << "array, name, stack";
    EXPECT_EQ(GetVariableStructure_L(nullptr), 1);
}

TEST_F(VariableTest, NullArgumentsDoNothing) {
    Value value;
    VARIABLE_ARRAY_T *unnamed = NewVariableArray_L(nullptr);
    EXPECT_EQ(unnamed->name, nullptr);
    FreeVariableArray_L(unnamed);
    FreeVariableArray_L(nullptr);
    EXPECT_EQ(AddVariable_L(nullptr, nullptr), nullptr);
    EXPECT_EQ(AddVariable_L(GetGlobalVariables_L(), nullptr), nullptr);
    EXPECT_EQ(CreateVariable_L(GetGlobalVariables_L(), nullptr, QV_TYPE_CHAR, 0, 0, nullptr),
              nullptr);
    FreeVariable_L(nullptr);
    EXPECT_EQ(FindVariableOnArray_L(nullptr, "x"), nullptr);
    EXPECT_EQ(FindVariableOnArray_L(GetGlobalVariables_L(), nullptr), nullptr);
    EXPECT_EQ(FindVariableOnArrays_L(nullptr, 3, "x"), nullptr);
    EXPECT_EQ(FindVariable_L(nullptr, 0), nullptr);
    EXPECT_EQ(DeleteVariableFromArrays_L(nullptr, 0, nullptr), 0);
    EXPECT_EQ(DuplicateVariable_L(GetGlobalVariables_L(), nullptr), nullptr);
    EXPECT_EQ(DuplicateVariableArray_L(nullptr, GetGlobalVariables_L(), 0), 0);
    EXPECT_EQ(GetVariableStructure_L(nullptr), 1);

    // Terminating twice, and freeing the global array, leave nothing behind.
    FreeVariableArray_L(GetGlobalVariables_L());
    EXPECT_EQ(GetGlobalVariables_L(), nullptr);
    EXPECT_EQ(GetVariableStructure_L(nullptr), 0);
    TerminateVariables_L();
    TerminateVariables_L();
    EXPECT_EQ(GetVariableStructure_L(nullptr), 0);
    EXPECT_EQ(FindVariable_L("x", QV_FIND_GLOBAL_FIRST), nullptr);
    ReportAllVariables_L(1);
}

} // namespace
