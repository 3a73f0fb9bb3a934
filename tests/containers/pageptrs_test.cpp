// Paged pointer arrays: random adds, appends and deletes against std::map (position to
// pointer) with every slot's address checked to stay put, the memory figure, ownership of
// the pointed blocks, null arrays, and allocation failures.
#include <algorithm>
#include <functional>
#include <map>
#include <vector>

#include "containers.hpp"
#include "qv/pageptrs.h"

namespace {

using qvtest::Random;

struct Paged {
    QV_PAGED_PTRS_T *array;
    explicit Paged(int32_t per_page, uint16_t flags = 0)
        : array(NewPagedPtrs_L(2, 3, per_page, flags)) {}
    ~Paged() { FreePagedPtrs_L(&array); }
};

// Position -> pointer, walked both ways through the array.
std::map<int32_t, void *> walked(const QV_PAGED_PTRS_T *array) {
    std::map<int32_t, void *> forward, backward;
    int32_t at = -1;
    while (void *p = NextPagedPtr_L(array, &at)) forward[at] = p;
    EXPECT_EQ(at, -1);
    while (void *p = PreviousPagedPtr_L(array, &at)) backward[at] = p;
    EXPECT_EQ(forward, backward);
    return forward;
}

void *pointer(intptr_t n) {
    return reinterpret_cast<void *>(n * 16);
}

TEST(PagedModel, RandomAddsAppendsAndDeletesMatchAMapAndNeverMoveSlots) {
    Random random;
    for (int32_t per_page : {1, 3, 64}) {
        Paged paged(per_page);
        std::map<int32_t, void *> model;
        std::map<int32_t, void **> addresses; // where each stored pointer was first seen
        for (intptr_t step = 1; step < 2000; ++step) {
            int32_t end = model.empty() ? 0 : model.rbegin()->first + 1;
            int32_t op = random(0, model.size() > 100 ? 3 : 1);
            if (op == 0) {
                int32_t lowest = 0;
                while (model.count(lowest)) ++lowest;
                ASSERT_EQ(AddPtrToPagedPtrs_L(paged.array, pointer(step)), lowest);
                model[lowest] = pointer(step);
            } else if (op == 1) {
                ASSERT_EQ(AppendPtrToPagedPtrs_L(paged.array, pointer(step)), end);
                model[end] = pointer(step);
            } else if (op == 2) {
                int32_t at = random(-1, end);
                auto found = model.find(at);
                EXPECT_EQ(DeleteFromPagedPtrs_L(paged.array, at),
                          found == model.end() ? nullptr : found->second);
                model.erase(at);
                addresses.erase(at);
            } else {
                auto victim =
                    std::next(model.begin(), random(0, static_cast<int32_t>(model.size()) - 1));
                EXPECT_EQ(FindPagedPtrByItem_L(paged.array, victim->second), victim->first);
                EXPECT_EQ(DeleteFromPagedPtrsByPtr_L(paged.array, victim->second), victim->first);
                addresses.erase(victim->first);
                model.erase(victim);
            }
            ASSERT_EQ(walked(paged.array), model) << step;
            ASSERT_EQ(paged.array->count, static_cast<int32_t>(model.size()));
            int32_t at = -1;
            while (void **slot = NextPagedPtrAddress_L(paged.array, &at)) {
                auto [seen, fresh] = addresses.emplace(at, slot);
                ASSERT_TRUE(fresh || seen->second == slot) << "slot " << at << " moved";
            }
        }
        EXPECT_EQ(FindPagedPtrByItem_L(paged.array, pointer(-1)), -1);
        EXPECT_EQ(DeleteFromPagedPtrsByPtr_L(paged.array, pointer(-1)), -1);
    }
}

TEST(PagedSizing, DefaultsLimitsAndTheMemoryFigure) {
    QV_PAGED_PTRS_T *array = NewPagedPtrs_L(0, -1, 0, 0x8001);
    EXPECT_EQ(array->items_per_page, 1024);
    EXPECT_EQ(array->page_bytes, 8192);
    EXPECT_EQ(array->first_table, 256);
    EXPECT_EQ(array->table_step, 256);
    EXPECT_EQ(array->flags, 0x8001);
    EXPECT_EQ(PagedPtrsMem_L(array), static_cast<int64_t>(sizeof(QV_PAGED_PTRS_T)));
    FreePagedPtrs_L(&array);
    EXPECT_EQ(array, nullptr);
    EXPECT_EQ(PagedPtrsMem_L(nullptr), 0);

    Paged big(INT32_MAX);
    EXPECT_EQ(big.array->items_per_page, QV_PAGED_MAX_ITEMS_PER_PAGE);
    // Two table entries at first, three more at a time; pages of 4 pointers.
    Paged paged(4);
    const std::pair<int32_t, int32_t> pages_and_entries[] = {
        {1, 2}, {2, 2}, {3, 5}, {5, 5}, {6, 8}};
    for (auto [pages, entries] : pages_and_entries) {
        while (paged.array->pages < pages) AppendPtrToPagedPtrs_L(paged.array, pointer(1));
        EXPECT_EQ(paged.array->table_entries, entries);
        EXPECT_EQ(PagedPtrsMem_L(paged.array),
                  (32 + 8) * pages + 8 * entries + static_cast<int64_t>(sizeof(QV_PAGED_PTRS_T)));
    }
    ClearPagedPtrs_L(paged.array); // pages stay for reuse
    EXPECT_EQ(paged.array->pages, 6);
    EXPECT_EQ(paged.array->count, 0);
    EXPECT_EQ(AppendPtrToPagedPtrs_L(paged.array, pointer(2)), 0);
}

TEST(PagedOwnership, OwnedBlocksAreFreedOnClearAndFreeAndDeletesHandThemBack) {
    Paged owning(2, QV_PAGED_FREE_POINTERS);
    for (int i = 0; i < 5; ++i) AddPtrToPagedPtrs_L(owning.array, std::malloc(8));
    std::free(DeleteFromPagedPtrs_L(owning.array, 1)); // handed back: ours to free
    ClearPagedPtrs_L(owning.array);                    // the sanitizer sees any leak
    for (int i = 0; i < 3; ++i) AppendPtrToPagedPtrs_L(owning.array, std::malloc(8));
    // FreePagedPtrs_L at the end of scope frees the last three.
}

TEST(PagedBadInput, NullArraysNullPointersAndPositionsOutOfRange) {
    int32_t at = 5;
    EXPECT_EQ(NextPagedPtr_L(nullptr, &at), nullptr);
    EXPECT_EQ(at, -1);
    EXPECT_EQ(AddPtrToPagedPtrs_L(nullptr, pointer(1)), -1);
    EXPECT_EQ(AppendPtrToPagedPtrs_L(nullptr, pointer(1)), -1);
    EXPECT_EQ(DeleteFromPagedPtrs_L(nullptr, 0), nullptr);
    EXPECT_EQ(FindPagedPtrByItem_L(nullptr, pointer(1)), -1);
    ClearPagedPtrs_L(nullptr);
    FreePagedPtrs_L(nullptr);
    Paged paged(3);
    EXPECT_EQ(AddPtrToPagedPtrs_L(paged.array, nullptr), -1);
    AppendPtrToPagedPtrs_L(paged.array, pointer(1));
    for (int32_t position : {-1, 1, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(DeleteFromPagedPtrs_L(paged.array, position), nullptr);
        EXPECT_EQ(PagedPtrAt_L(paged.array, position), nullptr);
        at = position;
        EXPECT_EQ(NextPagedPtr_L(paged.array, &at), position < 0 ? pointer(1) : nullptr);
    }
    EXPECT_EQ(NextPagedPtr_L(paged.array, nullptr), nullptr);
    EXPECT_EQ(PagedPtrAt_L(paged.array, 0), pointer(1));
}

TEST(PagedAllocation, EachFailureRaisesAndLeavesTheArrayWhole) {
    Paged paged(2);
    auto refill = [&] {
        EXPECT_EQ(paged.array->count, static_cast<int32_t>(walked(paged.array).size()));
        ClearPagedPtrs_L(paged.array);
        for (intptr_t i = 1; i <= 4; ++i) AppendPtrToPagedPtrs_L(paged.array, pointer(i));
    };
    // The fifth pointer needs a page and a larger page table.
    auto raised = qvtest::fail_each_allocation(
        [&] {
            for (intptr_t i = 5; i <= 8; ++i) AppendPtrToPagedPtrs_L(paged.array, pointer(i));
        },
        refill);
    EXPECT_THAT(raised, ::testing::Each(ALLOC_FAILURE));
    EXPECT_FALSE(raised.empty());
    EXPECT_STREQ(Exc_GetFile_L(), "pageptrs");
    EXPECT_THAT(qvtest::fail_each_allocation([] {
                    QV_PAGED_PTRS_T *array = NewPagedPtrs_L(1, 1, 1, 0);
                    FreePagedPtrs_L(&array);
                }),
                ::testing::ElementsAre(ALLOC_FAILURE));
}

} // namespace
