// Lists: random edits against std::list, sorted inserts and searches against a sorted
// vector, the relinking sort on every shape of data (and under a comparison that raises
// or lies), misuse, and allocation failures.
#include <algorithm>
#include <cstring>
#include <functional>
#include <list>
#include <map>
#include <vector>

#include "containers.hpp"
#include "qv/qvlist.h"

namespace {

using qvtest::Random;

struct List {
    QV_LIST_T *head = Allocate_List_L();
    ~List() { Deallocate_List_L(&head); }
    // The position `steps` links on from the head: item steps-1; the head for 0 and count+1.
    QV_LIST_T *at(size_t steps) const {
        QV_LIST_T *position = head;
        for (; steps > 0; --steps) position = position->next;
        return position;
    }
};

std::string text_of(const void *data, uint32_t size) {
    return {static_cast<const char *>(data), size};
}

// The texts of a list walked forwards; checks the backward walk, the count and the reads.
std::vector<std::string> texts(QV_LIST_T *head) {
    std::vector<std::string> forward, backward;
    void *data, *read;
    uint32_t size;
    for (QV_LIST_T *p = NextListItem_L(head, &data); p; p = NextListItem_L(p, &data)) {
        Get_List_Item_L(p, &read, &size);
        EXPECT_EQ(read, data);
        forward.push_back(text_of(data, size));
    }
    for (QV_LIST_T *p = PreviousListItem_L(head, &data); p; p = PreviousListItem_L(p, &data))
        backward.insert(backward.begin(), text_of(data, p->size));
    EXPECT_EQ(forward, backward);
    EXPECT_EQ(head->count, static_cast<int32_t>(forward.size()));
    return forward;
}

int32_t equals_text(const void *key, const void *data, void *) { // key: a std::string
    return static_cast<const std::string *>(key)->compare(text_of(data, QV_LIST_ITEM(data)->size));
}

// Records of the ordering tests: a key, and a serial that tells equal keys apart.
struct Keyed {
    int32_t key, serial;
    bool operator==(const Keyed &) const = default;
    bool operator<(const Keyed &other) const { return key < other.key; }
};
int32_t by_key(const void *l, const void *r, void *) {
    return qvtest::order_of(l, r);
}
// Each item's data pointer and record, in list order.
std::vector<std::pair<void *, Keyed>> records(QV_LIST_T *head) {
    std::vector<std::pair<void *, Keyed>> items;
    for (QV_LIST_T *p = head->next; p != head; p = p->next)
        items.emplace_back(QV_LIST_DATA(p), *static_cast<Keyed *>(QV_LIST_DATA(p)));
    return items;
}

TEST(ListModel, RandomEditsMatchStdList) {
    Random random;
    List list;
    std::list<std::string> model;
    for (int step = 0; step < 4000; ++step) {
        int32_t size = static_cast<int32_t>(model.size()), k = random(0, std::max(size - 1, 0));
        auto item = std::next(model.begin(), k);
        auto position = static_cast<size_t>(k) + 1;
        std::string text = random.text(12);
        switch (size == 0 ? 0 : random(0, 6)) {
            case 0:
            case 1: { // before a random item, or at the end through the head
                int32_t place = random(0, size);
                void *data = Insert_List_Item_L(list.head, list.at(static_cast<size_t>(place) + 1),
                                                text.data(), text.size());
                EXPECT_EQ(text_of(data, text.size()), text);
                model.insert(std::next(model.begin(), place), text);
                break;
            }
            case 2:
            case 3: {
                int32_t mode = random(0, 2);
                QV_LIST_T *neighbour = mode == 1   ? list.at(position + 1)
                                       : mode == 2 ? list.at(position - 1)
                                                   : nullptr;
                EXPECT_EQ(Delete_List_Item_L(list.head, list.at(position), mode), neighbour);
                model.erase(item);
                break;
            }
            case 4: { // a prefix of the item's own bytes: often a new size
                QV_LIST_T *at = list.at(position);
                auto length = static_cast<uint32_t>(random(1, static_cast<int32_t>(at->size)));
                *item = item->substr(0, length);
                EXPECT_EQ(text_of(Update_List_Item_L(at, QV_LIST_DATA(at), length), length), *item);
                break;
            }
            case 5: {
                int32_t to = random(0, size);
                Change_List_Position_L(list.at(position), list.at(static_cast<size_t>(to) + 1));
                model.splice(std::next(model.begin(), to), model, item);
                break;
            }
            case 6: {
                auto first = std::find(model.begin(), model.end(), text);
                QV_LIST_T *found = first == model.end()
                                       ? nullptr
                                       : list.at(std::distance(model.begin(), first) + 1ul);
                EXPECT_EQ(Find_List_Item_L(list.head, &text, equals_text, nullptr), found);
                EXPECT_EQ(FindListItemByRef_L(list.head, found ? QV_LIST_DATA(found) : "?"), found);
                break;
            }
        }
        ASSERT_EQ(texts(list.head), std::vector<std::string>(model.begin(), model.end())) << step;
    }
}

TEST(ListModel, SortedInsertsAndSearchesMatchASortedVector) {
    Random random;
    List list;
    std::vector<Keyed> model;
    int32_t calls = 0;
    auto counting = [](const void *l, const void *r, void *count) {
        ++*static_cast<int32_t *>(count);
        return qvtest::order_of(l, r);
    };
    for (int32_t serial = 0; serial < 3000; ++serial) {
        Keyed item{random(0, 200), serial}, key{random(-1, 201), 0};
        auto after = std::upper_bound(model.begin(), model.end(), item);
        bool duplicates = random(0, 1), equal = after != model.begin() && after[-1].key == item.key;
        calls = 0;
        void *data =
            Insert_Sorted_List_Item_L(list.head, &item, sizeof item, counting, duplicates, &calls);
        // Without duplicates, an equal item comes back (the last of its equals).
        EXPECT_EQ(*static_cast<Keyed *>(data), !duplicates && equal ? after[-1] : item);
        EXPECT_TRUE(after != model.end() || calls <= 1); // appending in order: one comparison
        if (duplicates || !equal) model.insert(after, item);

        QV_LIST_T *position = nullptr;
        QV_LIST_T *found = Bsearch_List_L(list.head, &key, by_key, nullptr, &position);
        auto first = std::lower_bound(model.begin(), model.end(), key);
        EXPECT_EQ(position, list.at(static_cast<size_t>(first - model.begin()) + 1));
        EXPECT_EQ(found, first != model.end() && first->key == key.key ? position : nullptr);
        if (!model.empty() && random(0, 3) == 0) {
            auto victim = model.begin() + random(0, static_cast<int32_t>(model.size()) - 1);
            Delete_List_Item_L(list.head, list.at(static_cast<size_t>(victim - model.begin()) + 1),
                               0);
            model.erase(victim);
        }
        std::vector<Keyed> now;
        for (auto &[data, record] : records(list.head)) now.push_back(record);
        ASSERT_EQ(now, model) << serial;
    }
}

// A list of `count` records of a shape of keys; each serial is the record's first place.
void fill(List &list, const std::string &shape, int32_t count, Random &random) {
    for (int32_t i = 0; i < count; ++i) {
        Keyed item{shape == "sorted"     ? i
                   : shape == "reversed" ? count - i
                   : shape == "equal"    ? 7
                   : shape == "sawtooth" ? i % 5
                                         : random(0, count / 3),
                   i};
        Append_List_Item_L(list.head, &item, sizeof item);
    }
}

// The same data pointers holding the same records, ordered by key from `first` on.
void expect_sorted_relinked(std::vector<std::pair<void *, Keyed>> before, QV_LIST_T *head,
                            size_t first = 0, size_t end = SIZE_MAX) {
    auto after = records(head);
    end = std::min(end, after.size());
    std::stable_sort(before.begin() + first, before.begin() + end,
                     [](auto &a, auto &b) { return a.second < b.second; });
    for (size_t i = 0; i < after.size(); ++i)
        EXPECT_EQ(after[i].second.key, before[i].second.key) << i;
    std::sort(before.begin(), before.end());
    std::sort(after.begin(), after.end());
    EXPECT_EQ(after, before); // no block moved, no byte changed
}

TEST(ListSort, EveryShapeSortsByRelinkingWithDataIntact) {
    Random random;
    for (const char *shape : {"sorted", "reversed", "equal", "sawtooth", "random"}) {
        for (int32_t count : {0, 1, 2, 3, 8, 9, 10, 100, 2000}) {
            SCOPED_TRACE(std::string(shape) + " " + std::to_string(count));
            List list;
            fill(list, shape, count, random);
            auto before = records(list.head);
            Qsort_List_L(list.head, by_key, nullptr);
            expect_sorted_relinked(before, list.head);
        }
    }
    List list; // items 10 to 39 of 60, the rest left in place
    fill(list, "random", 60, random);
    auto before = records(list.head);
    Qsort_Part_List_L(list.at(11), list.at(40), by_key, nullptr);
    expect_sorted_relinked(before, list.head, 10, 40);
    EXPECT_TRUE(std::equal(before.begin(), before.begin() + 10, records(list.head).begin()));
}

const char *const STOP = "STOP";

TEST(ListSort, AComparisonThatRaisesOrLiesLeavesAWholeList) {
    Random random;
    for (int32_t limit : {0, 1, 7, 60, 900, -1}) {
        List list;
        fill(list, "random", 500, random);
        auto before = records(list.head);
        struct Budget {
            int32_t left;
            Random *random;
        } budget{limit, &random};
        auto compare = [](const void *, const void *, void *context) {
            auto *b = static_cast<Budget *>(context);
            if (b->left >= 0 && b->left-- == 0) except_raise(STOP, "test", __LINE__, 0, 0, nullptr);
            return (*b->random)(-1, 1); // no order at all
        };
        EXPECT_EQ(qvtest::raised_by([&] { Qsort_List_L(list.head, compare, &budget); }),
                  limit >= 0 ? STOP : nullptr);
        auto after = records(list.head);
        EXPECT_EQ(texts(list.head).size(), 500u);
        std::sort(before.begin(), before.end());
        std::sort(after.begin(), after.end());
        EXPECT_EQ(after, before) << limit;
    }
}

TEST(ListEdges, EmptyWalksZeroDataAndCopiesIntoItemArrays) {
    List list;
    void *data = &data, **pointers;
    EXPECT_EQ(NextListItem_L(list.head, &data), nullptr);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(Copy_List_To_Array_L(list.head, &data, 4), 0);
    EXPECT_EQ(PreviousListItem_L(nullptr, nullptr), nullptr);
    for (const char *text : {"ab", "cdef", "g"})
        Append_List_Item_L(list.head, text, std::strlen(text));
    EXPECT_EQ(text_of(Append_List_Item_L(list.head, nullptr, 2), 2), std::string(2, '\0'));
    ASSERT_EQ(Copy_List_To_Array_L(list.head, &data, 3), 4);
    EXPECT_EQ(std::string(static_cast<char *>(data), 12), std::string("ab\0cdeg\0\0\0\0\0", 12));
    std::free(data);
    ASSERT_EQ(Copy_List_Items_To_Array_L(list.head, &pointers), 4);
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(pointers[i], QV_LIST_DATA(list.at(i + 1)));
    std::free(pointers);
}

TEST(ListMisuse, WrongKindNullAndZeroSizeRaiseAndChangeNothing) {
    List list;
    Append_List_Item_L(list.head, "x", 1);
    Append_List_Item_L(list.head, "y", 1);
    QV_LIST_T *item = list.at(1), *last = list.at(2), *head = list.head;
    void *data;
    const std::pair<const char *, std::function<void()>> cases[] = {
        {LIST_FAILURE_L, [&] { Free_List_L(item); }},
        {LIST_FAILURE_L, [&] { Deallocate_List_L(&item); }},
        {LIST_FAILURE_L, [&] { Append_List_Item_L(item, "z", 1); }},
        {LIST_FAILURE_L, [&] { Delete_List_Item_L(head, head, 1); }},
        {LIST_FAILURE_L, [&] { Delete_List_Item_L(item, last, 1); }},
        {LIST_FAILURE_L, [&] { Get_List_Item_L(nullptr, &data, nullptr); }},
        {LIST_FAILURE_L, [&] { Update_List_Item_L(head, "z", 1); }},
        {LIST_FAILURE_L, [&] { Change_List_Position_L(head, item); }},
        {LIST_FAILURE_L, [&] { Qsort_List_L(item, by_key, nullptr); }},
        {LIST_FAILURE_L, [&] { Qsort_Part_List_L(last, item, by_key, nullptr); }},
        {LIST_FAILURE_L, [&] { Qsort_Part_List_L(head, item, by_key, nullptr); }},
        {LIST_FAILURE_L, [&] { Insert_Sorted_List_Item_L(head, "z", 1, nullptr, 1, nullptr); }},
        {LIST_FAILURE_L, [&] { Insert_Sorted_List_Item_L(head, nullptr, 1, by_key, 1, nullptr); }},
        {LIST_FAILURE_L, [&] { Bsearch_List_L(item, "z", by_key, nullptr, nullptr); }},
        {LIST_FAILURE_L, [&] { FindListItemByRef_L(nullptr, "z"); }},
        {ZERO_ALLOC_FAILURE, [&] { Append_List_Item_L(head, "z", 0); }},
        {ZERO_ALLOC_FAILURE, [&] { Copy_List_To_Array_L(head, &data, 0); }},
    };
    for (const auto &[symbol, act] : cases) {
        qvtest::expect_raise(symbol, "qvlist", act);
        ASSERT_EQ(texts(head), (std::vector<std::string>{"x", "y"}));
    }
    EXPECT_EQ(data, nullptr);
    Free_List_L(nullptr);
    Deallocate_List_L(nullptr);
}

TEST(ListAllocation, EachFailureRaisesAndLeavesTheListAsItWas) {
    List list;
    void *block = nullptr;
    Keyed record{1, 2};
    const std::function<void()> operations[] = {
        [&] { Append_List_Item_L(list.head, "new", 3); },
        [&] { Insert_Sorted_List_Item_L(list.head, &record, sizeof record, by_key, 1, nullptr); },
        [&] { Update_List_Item_L(list.at(1), "longer", 6); },
        [&] { Copy_List_To_Array_L(list.head, &block, 8); },
        [&] { Copy_List_Items_To_Array_L(list.head, reinterpret_cast<void ***>(&block)); },
        [&] {
            QV_LIST_T *other = Allocate_List_L();
            Deallocate_List_L(&other);
        },
    };
    for (const auto &operation : operations) {
        Free_List_L(list.head);
        Append_List_Item_L(list.head, "kept", 4);
        auto unchanged = [&] { // before each run: from the second on, what a failure left
            EXPECT_EQ(texts(list.head), std::vector<std::string>{"kept"});
            std::free(block);
            block = nullptr;
        };
        EXPECT_THAT(qvtest::fail_each_allocation(operation, unchanged),
                    ::testing::ElementsAre(ALLOC_FAILURE));
        EXPECT_STREQ(Exc_GetFile_L(), "qvlist");
    }
    std::free(block);
}

} // namespace
