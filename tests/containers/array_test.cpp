// Item arrays: random edits against std::vector (inserting items taken from the block
// itself), the binary search against std::lower_bound, misuse, and allocation failures.
#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <vector>

#include "containers.hpp"
#include "qv/array.h"

namespace {

using qvtest::Random;

// Twelve bytes: a key and a payload.
struct Item {
    int32_t key, a, b;
    bool operator==(const Item &) const = default;
};
constexpr uint32_t item_size = sizeof(Item);

int32_t by_key(const void *key, const void *item) {
    return qvtest::order_of(key, item);
}

struct Block {
    Item *items = nullptr;
    int32_t count = 0;
    ~Block() { std::free(items); }
    void **address() { return reinterpret_cast<void **>(&items); }
    std::vector<Item> contents() const { return {items, items + count}; }
};

TEST(ArrayModel, RandomEditsMatchStdVector) {
    Random random;
    Block block;
    std::vector<Item> model;
    for (int step = 0; step < 5000; ++step) {
        int32_t count = block.count, k = random(0, std::max(count - 1, 0));
        Item fresh{random(0, 50), step, -step};
        // Half the inserts copy an item of the block itself, which moves as it grows.
        const Item *source = count > 0 && random(0, 1) ? &block.items[k] : &fresh;
        Item copy = *source;
        switch (random(0, count == 0 ? 1 : 5)) {
            case 0:
                EXPECT_EQ(
                    *static_cast<Item *>(AddArrayItem_L(block.address(), count, item_size, source)),
                    copy);
                model.push_back(copy);
                ++block.count;
                break;
            case 1: {
                int32_t at = random(0, count);
                InsertArrayItem_L(block.address(), count, item_size, source, at);
                model.insert(model.begin() + at, copy);
                ++block.count;
                break;
            }
            case 2:
                block.count = DeleteArrayItemByIndex_L(block.address(), count, item_size, k);
                model.erase(model.begin() + k);
                break;
            case 3: {
                Item wanted = model[static_cast<size_t>(k)];
                block.count = DeleteArrayItem_L(block.address(), count, item_size, &wanted);
                model.erase(std::find(model.begin(), model.end(), wanted));
                break;
            }
            case 4: {
                int32_t to = random(0, count - 1);
                MoveArrayItemByIndex_L(block.items, count, item_size, k, to);
                Item moved = model[static_cast<size_t>(k)];
                model.erase(model.begin() + k);
                model.insert(model.begin() + to, moved);
                break;
            }
            case 5: {
                auto found = std::find_if(model.begin(), model.end(),
                                          [&](auto &i) { return i.key == fresh.key; });
                EXPECT_EQ(FindArrayItemByRef_L(block.items, count, item_size, &fresh, by_key),
                          found == model.end() ? -1 : found - model.begin());
                break;
            }
        }
        ASSERT_EQ(block.contents(), model) << step;
        ASSERT_TRUE(block.count > 0 || block.items == nullptr); // the last delete frees the block
    }
}

TEST(ArrayModel, MovesOfLargeItemsAndFindsByBytes) {
    std::vector<std::array<char, 300>> items(5);
    for (size_t i = 0; i < items.size(); ++i) items[i].fill(static_cast<char>('a' + i));
    MoveArrayItemByIndex_L(items.data(), 5, 300, 0, 3);
    MoveArrayItemByIndex_L(items.data(), 5, 300, 4, 1);
    std::string firsts;
    for (auto &item : items) firsts += item[299];
    EXPECT_EQ(firsts, "becda");
    EXPECT_EQ(FindArrayItemByRef_L(items.data(), 5, 300, items[2].data(), nullptr), 2);
}

TEST(ArrayBsearch, MatchesLowerBoundWithOneComparisonForAppends) {
    Random random;
    static int32_t comparisons;
    auto counting = [](const void *key, const void *item) {
        ++comparisons;
        return qvtest::order_of(key, item);
    };
    for (int32_t count : {0, 1, 2, 3, 7, 64, 1000}) {
        std::vector<int32_t> keys(static_cast<size_t>(count));
        for (auto &key : keys) key = random(0, count / 2); // duplicates
        std::sort(keys.begin(), keys.end());
        for (int32_t key = -1; key <= count / 2 + 1; ++key) {
            int32_t lower = static_cast<int32_t>(std::lower_bound(keys.begin(), keys.end(), key) -
                                                 keys.begin());
            bool present = lower < count && keys[static_cast<size_t>(lower)] == key;
            int32_t position = -7;
            comparisons = 0;
            int32_t any =
                BsearchArray_L(keys.data(), count, QV_BSEARCH_ANY, &key, 4, counting, &position);
            EXPECT_TRUE(count == 0 || key <= keys.back() || comparisons == 1);
            if (present) {
                EXPECT_EQ(keys[static_cast<size_t>(any)], key);
                EXPECT_EQ(position, any);
            } else {
                EXPECT_EQ(any, -1);
                EXPECT_EQ(position, lower) << count << " " << key;
            }
            int32_t first =
                BsearchArray_L(keys.data(), count, QV_BSEARCH_FIRST, &key, 4, counting, &position);
            EXPECT_EQ(first, present ? lower : -1);
            EXPECT_EQ(position, lower);
        }
    }
}

TEST(ArrayEdges, FreshBlocksAndNullItems) {
    void *block = reinterpret_cast<void *>(0x10); // never read with count 0
    int32_t *first = static_cast<int32_t *>(AddArrayItem_L(&block, 0, 4, nullptr));
    EXPECT_EQ(first, block);
    EXPECT_EQ(*first, 0);
    int32_t five = 5;
    InsertArrayItem_L(&block, 1, 4, &five, 0);
    EXPECT_EQ(static_cast<int32_t *>(block)[0], 5);
    EXPECT_EQ(DeleteArrayItem_L(&block, 2, 4, &five), 1);
    EXPECT_EQ(DeleteArrayItem_L(&block, 1, 4, &five), 1); // no match: unchanged
    EXPECT_EQ(DeleteArrayItemByIndex_L(&block, 1, 4, 0), 0);
    EXPECT_EQ(block, nullptr);
}

TEST(ArrayMisuse, IndexesCountsAndSizesRaiseAndChangeNothing) {
    Block block;
    for (int32_t key : {1, 2, 3}) {
        Item item{key, 0, 0};
        AddArrayItem_L(block.address(), block.count++, item_size, &item);
    }
    auto kept = block.contents();
    Item item{9, 9, 9};
    int32_t position = 0;
    const std::pair<const char *, std::function<void()>> cases[] = {
        {ARRAY_FAILURE_L, [&] { InsertArrayItem_L(block.address(), 3, item_size, &item, 4); }},
        {ARRAY_FAILURE_L, [&] { AddArrayItem_L(block.address(), -1, item_size, &item); }},
        {ARRAY_FAILURE_L, [&] { AddArrayItem_L(block.address(), INT32_MAX, item_size, &item); }},
        {ARRAY_FAILURE_L, [&] { DeleteArrayItemByIndex_L(block.address(), 3, item_size, 3); }},
        {ARRAY_FAILURE_L, [&] { DeleteArrayItem_L(nullptr, 3, item_size, &item); }},
        {ARRAY_FAILURE_L, [&] { MoveArrayItemByIndex_L(block.items, 3, item_size, -1, 0); }},
        {ARRAY_FAILURE_L, [&] { MoveArrayItemByIndex_L(nullptr, 3, item_size, 0, 1); }},
        {ARRAY_FAILURE_L,
         [&] { FindArrayItemByRef_L(block.items, -1, item_size, &item, nullptr); }},
        {ARRAY_FAILURE_L,
         [&] { BsearchArray_L(block.items, -1, 0, &item, item_size, by_key, &position); }},
        {ARRAY_FAILURE_L,
         [&] { BsearchArray_L(nullptr, 3, 0, &item, item_size, by_key, &position); }},
        {ARRAY_FAILURE_L,
         [&] { BsearchArray_L(block.items, 3, 0, &item, item_size, nullptr, &position); }},
        {ZERO_ALLOC_FAILURE, [&] { AddArrayItem_L(block.address(), 3, 0, &item); }},
    };
    for (const auto &[symbol, act] : cases) {
        qvtest::expect_raise(symbol, "array", act);
        ASSERT_EQ(block.contents(), kept);
        EXPECT_EQ(position, 0);
    }
}

TEST(ArrayAllocation, EachFailureRaisesAndLeavesTheBlockAsItWas) {
    for (int32_t count : {0, 2}) {
        for (bool insert : {false, true}) {
            Block block;
            auto reset = [&] {
                EXPECT_EQ(block.contents(),
                          std::vector<Item>(static_cast<size_t>(block.count), Item{4, 5, 6}));
                std::free(block.items); // an exact block, with no room to grow into
                block.items = count ? static_cast<Item *>(std::malloc(count * item_size)) : nullptr;
                block.count = count;
                std::fill_n(block.items, count, Item{4, 5, 6});
            };
            Item item{7, 8, 9};
            auto raised = qvtest::fail_each_allocation(
                [&] {
                    insert ? InsertArrayItem_L(block.address(), count, item_size, &item, 0)
                           : AddArrayItem_L(block.address(), count, item_size, &item);
                },
                reset);
            EXPECT_THAT(raised, ::testing::ElementsAre(ALLOC_FAILURE));
            EXPECT_STREQ(Exc_GetFile_L(), "array");
        }
    }
}

} // namespace
