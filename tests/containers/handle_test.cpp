// Handle tables: random issues, frees, duplicates and updates against std::map with owned
// objects freed exactly once (the sanitizer build sees double frees and leaks), numbering
// with reuse, wrap-around and growth past 256000, bad handles, the wrong-type raise,
// allocation failures, and caller arrays of handles against std::vector.
#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <tuple>
#include <vector>

#include "containers.hpp"
#include "qv/handle.h"

namespace {

using qvtest::Random;

struct Table {
    QV_HANDLE_TABLE_T *table = InitHandles_L();
    ~Table() { TerminateHandles_L(&table); }
};

// What an entry should read.
struct Expected {
    int32_t type;
    void *object;
    bool owns;
    std::string data;
};

void expect_entry(QV_HANDLE_TABLE_T *table, int32_t handle, const Expected &want) {
    QV_HANDLE_ENTRY_T *entry = CheckHandle_L(table, handle);
    ASSERT_NE(entry, nullptr) << handle;
    int32_t type, third, second;
    void *object, *data;
    uint32_t size;
    EXPECT_EQ(GetHandleComponents_L(entry, &type, &object, &third, &second), 0);
    EXPECT_EQ(GetHandleUserData_L(entry, &data, &size), 0);
    EXPECT_EQ(std::make_tuple(type, object, third, second, entry->owns_object != 0),
              std::make_tuple(want.type, want.object, -want.type, 2 * want.type, want.owns));
    EXPECT_EQ(std::string(static_cast<char *>(data), size), want.data);
}

TEST(HandleModel, RandomOperationsMatchAMapAndFreeOwnedObjectsOnce) {
    Random random;
    Table t;
    std::map<int32_t, Expected> model;
    for (int step = 0; step < 5000; ++step) {
        auto any = [&] {
            return std::next(model.begin(), random(0, static_cast<int32_t>(model.size()) - 1));
        };
        int32_t type = random(1, 9);
        int op = random(0, model.empty() ? 0 : 5);
        if (op == 0) {
            bool owns = random(0, 1);
            void *object = owns ? std::malloc(4) : &model;
            int32_t handle = NewHandle_L(t.table, type, object, owns, -type, 2 * type);
            ASSERT_EQ(model.count(handle), 0u);
            model[handle] = {type, object, owns, ""};
        } else if (op == 1 || op == 5) {
            auto victim = any();
            FreeHandle_L(t.table, victim->first);
            EXPECT_EQ(CheckHandle_L(t.table, victim->first), nullptr);
            model.erase(victim);
        } else if (op == 2) {
            auto source = any();
            bool transfer = random(0, 1);
            int32_t copy = DuplicateHandle_L(t.table, source->first, transfer);
            Expected duplicate = source->second;
            duplicate.owns = transfer && source->second.owns;
            source->second.owns = source->second.owns && !duplicate.owns;
            model[copy] = duplicate;
        } else if (op == 3) {
            auto target = any();
            std::string data = random(0, 3) ? random.text(20) : "";
            EXPECT_EQ(SetHandleUserData_L(t.table, target->first, data.data(),
                                          static_cast<uint32_t>(data.size())),
                      0);
            target->second.data = data;
        } else if (op == 4) {
            auto target = any();
            void *object = std::malloc(4);
            EXPECT_EQ(UpdateHandle_L(t.table, target->first, type, object, 1, -type, 2 * type), 0);
            target->second = {type, object, true, target->second.data};
        }
        int32_t in_use = -1;
        EXPECT_EQ(HandlesStatus_L(t.table, &in_use), QV_HANDLE_GROWTH);
        ASSERT_EQ(in_use, static_cast<int32_t>(model.size()));
        for (const auto &[handle, want] : model) expect_entry(t.table, handle, want);
    }
    // TerminateHandles_L frees what is left.
}

TEST(HandleNumbering, RisesWrapsToFreedNumbersAndGrowsWhenFull) {
    Table t;
    const int32_t last = QV_HANDLE_GROWTH - 1;
    for (int32_t expected = 1; expected <= last; ++expected)
        ASSERT_EQ(NewHandle_L(t.table, 1, nullptr, 0, 0, 0), expected);
    FreeHandle_L(t.table, 7);
    FreeHandle_L(t.table, 3);
    EXPECT_EQ(NewHandle_L(t.table, 1, nullptr, 0, 0, 0), 3); // wrapped to 1, found 3
    EXPECT_EQ(NewHandle_L(t.table, 1, nullptr, 0, 0, 0), 7);
    EXPECT_EQ(NewHandle_L(t.table, 1, nullptr, 0, 0, 0), QV_HANDLE_GROWTH); // full: grows
    int32_t in_use;
    EXPECT_EQ(HandlesStatus_L(t.table, &in_use), 2 * QV_HANDLE_GROWTH);
    EXPECT_EQ(in_use, QV_HANDLE_GROWTH);
    EXPECT_EQ(t.table->highest, QV_HANDLE_GROWTH);
    EXPECT_EQ(CheckHandle_L(t.table, last)->type, 1); // entries kept across the growth

    FreeHandle_L(t.table, 5);
    EXPECT_EQ(ReuseHandles_L(t.table, 0), 1);
    EXPECT_EQ(NewHandle_L(t.table, 1, nullptr, 0, 0, 0), QV_HANDLE_GROWTH + 1); // keeps rising
    EXPECT_EQ(ReuseHandles_L(t.table, 1), 0);
    EXPECT_EQ(NewHandle_L(t.table, 1, nullptr, 0, 0, 0), 5); // searches from 1 again
    EXPECT_EQ(SizeHandleArray_L(t.table, 600000), 600000);
    EXPECT_EQ(SizeHandleArray_L(t.table, 10), 600000);

    Table rising; // without reuse, a table whose end is reached grows though all are free
    ReuseHandles_L(rising.table, 0);
    for (int32_t i = 1; i < QV_HANDLE_GROWTH; ++i)
        FreeHandle_L(rising.table, NewHandle_L(rising.table, 1, nullptr, 0, 0, 0));
    EXPECT_EQ(NewHandle_L(rising.table, 1, nullptr, 0, 0, 0), QV_HANDLE_GROWTH);
}

TEST(HandleBadInput, InvalidHandlesAndNullTables) {
    Table t;
    int32_t good = NewHandle_L(t.table, 4, nullptr, 0, 0, 0);
    int32_t type = 9;
    void *data = &data;
    for (int32_t handle : {0, -1, INT32_MIN, QV_HANDLE_GROWTH, INT32_MAX, good + 1}) {
        EXPECT_EQ(CheckHandle_L(t.table, handle), nullptr);
        FreeHandle_L(t.table, handle);
        EXPECT_EQ(SetHandleUserData_L(t.table, handle, "x", 1), -1);
        EXPECT_EQ(UpdateHandle_L(t.table, handle, 1, nullptr, 0, 0, 0), -1);
        EXPECT_EQ(DuplicateHandle_L(t.table, handle, 1), 0);
        qvtest::expect_raise(WRONG_HANDLE_TYPE, "handle",
                             [&] { GetHandleObject_L(t.table, handle, 4); });
    }
    qvtest::expect_raise(WRONG_HANDLE_TYPE, "handle", [&] { GetHandleObject_L(t.table, good, 5); });
    EXPECT_EQ(GetHandleObject_L(t.table, good, 4), nullptr);
    EXPECT_EQ(t.table->in_use, 1);
    EXPECT_EQ(GetHandleComponents_L(nullptr, &type, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(type, 0);
    EXPECT_EQ(GetHandleUserData_L(nullptr, &data, nullptr), -1);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(NewHandle_L(nullptr, 1, nullptr, 0, 0, 0), 0);
    EXPECT_EQ(CheckHandle_L(nullptr, good), nullptr);
    EXPECT_EQ(HandlesStatus_L(nullptr, &type), 0);
    EXPECT_EQ(ReuseHandles_L(nullptr, 1), 0);
    EXPECT_EQ(SizeHandleArray_L(nullptr, 5), -1);
    TerminateHandles_L(nullptr);
}

TEST(HandleAllocation, EachFailureRaisesAndLeavesTheTableAsItWas) {
    Table t;
    int32_t source = 0;
    const std::function<void()> operations[] = {
        [&] {
            QV_HANDLE_TABLE_T *other = InitHandles_L();
            TerminateHandles_L(&other);
        },
        [&] { DuplicateHandle_L(t.table, source, 1); },
        [&] { SetHandleUserData_L(t.table, source, "more", 4); },
        [&] { SizeHandleArray_L(t.table, QV_HANDLE_GROWTH + 1); },
        [&] { // a search that finds the table full grows it
            ReuseHandles_L(t.table, 0);
            t.table->next_search = QV_HANDLE_GROWTH;
            NewHandle_L(t.table, 1, nullptr, 0, 0, 0);
        },
    };
    for (const auto &operation : operations) {
        TerminateHandles_L(&t.table);
        t.table = InitHandles_L();
        source = NewHandle_L(t.table, 2, std::malloc(4), 1, -2, 4);
        SetHandleUserData_L(t.table, source, "data", 4);
        void *object = CheckHandle_L(t.table, source)->object;
        auto unchanged = [&] { // before each run: from the second on, what a failure left
            EXPECT_EQ(HandlesStatus_L(t.table, nullptr), QV_HANDLE_GROWTH);
            EXPECT_EQ(t.table->in_use, 1);
            expect_entry(t.table, source, {2, object, true, "data"});
        };
        auto raised = qvtest::fail_each_allocation(operation, unchanged);
        EXPECT_THAT(raised, ::testing::AllOf(::testing::Each(ALLOC_FAILURE),
                                             ::testing::Not(::testing::IsEmpty())));
        EXPECT_STREQ(Exc_GetFile_L(), "handle");
    }
}

TEST(HandleArrays, RandomEditsMatchAVectorAndFreeTheirHandles) {
    Random random;
    Table t;
    QV_HANDLE_ARRAY_T array{};
    std::vector<int32_t> model;
    for (int step = 0; step < 2000; ++step) {
        int32_t handle = random(1, 40), count = static_cast<int32_t>(model.size());
        auto found = std::find(model.begin(), model.end(), handle);
        int32_t index = found == model.end() ? -1 : static_cast<int32_t>(found - model.begin());
        switch (random(0, 3)) {
            case 0:
                EXPECT_EQ(AddHandleToArray_L(&array, handle), count);
                model.push_back(handle);
                break;
            case 1: {
                int32_t at = random(0, count);
                EXPECT_EQ(InsertHandleInArray_L(&array, at, handle), at);
                model.insert(model.begin() + at, handle);
                break;
            }
            case 2:
                EXPECT_EQ(DeleteHandleFromArray_L(&array, handle), index);
                if (index >= 0) model.erase(found);
                break;
            case 3: EXPECT_EQ(FindHandleInArray_L(&array, handle), index); break;
        }
        ASSERT_EQ(std::vector<int32_t>(array.handles, array.handles + array.count), model);
        ASSERT_GE(array.capacity, array.count);
    }
    for (int32_t index : {-1, array.count, INT32_MAX})
        qvtest::expect_raise(ARRAY_FAILURE_L, "handle", [&] { HandleArrayItem_L(&array, index); });
    qvtest::expect_raise(ARRAY_FAILURE_L, "handle", [&] { InsertHandleInArray_L(&array, -1, 1); });
    EXPECT_EQ(HandleArrayItem_L(&array, 0), model[0]);

    QV_HANDLE_ARRAY_T owned{};
    for (int i = 0; i < 3; ++i)
        AddHandleToArray_L(&owned, NewHandle_L(t.table, 1, std::malloc(4), 1, 0, 0));
    EXPECT_EQ(t.table->in_use, 3);
    FreeHandleArray_L(&owned, t.table);
    EXPECT_EQ(t.table->in_use, 0);
    EXPECT_EQ(owned.handles, nullptr);
    FreeHandleArray_L(&array, nullptr);
    EXPECT_EQ(AddHandleToArray_L(nullptr, 1), -1);
    EXPECT_EQ(FindHandleInArray_L(nullptr, 1), -1);
    auto raised = qvtest::fail_each_allocation([&] { AddHandleToArray_L(&array, 1); },
                                               [&] { FreeHandleArray_L(&array, nullptr); });
    EXPECT_THAT(raised, ::testing::ElementsAre(ALLOC_FAILURE));
    FreeHandleArray_L(&array, nullptr);
}

} // namespace
