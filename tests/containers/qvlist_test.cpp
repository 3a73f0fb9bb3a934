// Lists: random edits against std::list, sorted inserts and searches against a sorted
// vector, the relinking sort on every shape of data (and under a comparison that raises
// or lies), misuse, and allocation failures.
#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>
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
    // The position `steps` links after the head: item steps-1, or the head for 0 and count+1.
    QV_LIST_T *at(size_t steps) const {
        QV_LIST_T *position = head;
        for (; steps > 0; --steps) position = position->next;
        return position;
    }
};

std::string text_of(const void *data, uint32_t size) {
    return {static_cast<const char *>(data), size};
}
std::string text_of(const QV_LIST_T *item) {
    return text_of(QV_LIST_DATA(item), item->size);
}
std::string checked_text_of(QV_LIST_T *item) {
    void *data;
    uint32_t size;
    Get_List_Item_L(item, &data, &size);
    return text_of(data, size);
}

// The texts of a list walked forwards; checks that the backward walk and count agree.
std::vector<std::string> texts(QV_LIST_T *head) {
    std::vector<std::string> forward, backward;
    void *data;
    for (QV_LIST_T *p = NextListItem_L(head, &data); p; p = NextListItem_L(p, &data))
        forward.push_back(text_of(data, p->size));
    for (QV_LIST_T *p = PreviousListItem_L(head, &data); p; p = PreviousListItem_L(p, &data))
        backward.insert(backward.begin(), text_of(data, p->size));
    EXPECT_EQ(forward, backward);
    EXPECT_EQ(head->count, static_cast<int32_t>(forward.size()));
    return forward;
}

// A std::string key against an item's data.
int32_t equals_text(const void *key, const void *data, void *) {
    return static_cast<const std::string *>(key)->compare(text_of(QV_LIST_ITEM(data)));
}

// Records of the sorted tests: a key to order by and a serial that tells equal keys apart.
struct Keyed {
    int32_t key, serial;
    bool operator==(const Keyed &) const = default;
};
int32_t by_key(const void *l, const void *r, void *) {
    return qvtest::order_of(l, r);
}
const Keyed &keyed(const void *data) {
    return *static_cast<const Keyed *>(data);
}

std::vector<Keyed> keyed_items(QV_LIST_T *head) {
    std::vector<Keyed> items;
    for (QV_LIST_T *p = head->next; p != head; p = p->next) items.push_back(keyed(QV_LIST_DATA(p)));
    return items;
}

TEST(ListModel, RandomEditsMatchStdList) {
    Random random;
    List list;
    std::list<std::string> model;
    for (int step = 0; step < 4000; ++step) {
        int32_t size = static_cast<int32_t>(model.size());
        int32_t k = random(0, std::max(size - 1, 0)), op = random(0, size == 0 ? 1 : 6);
        if (op == 6) op = 2; // deletes as often as inserts, so the list stays short
        std::string text = random.text(12);
        auto uk = static_cast<size_t>(k);
        switch (op) {
            case 0:
                Append_List_Item_L(list.head, text.data(), text.size());
                model.push_back(text);
                break;
            case 1: { // before item k, or at the end
                int32_t place = random(0, size);
                void *data =
                    Insert_List_Item_L(list.head, list.at(place + 1), text.data(), text.size());
                EXPECT_EQ(text_of(data, text.size()), text);
                model.insert(std::next(model.begin(), place), text);
                break;
            }
            case 2: {
                int32_t mode = random(0, 2);
                QV_LIST_T *expected = mode == 1   ? list.at(uk + 2)
                                      : mode == 2 ? list.at(uk)
                                                  : nullptr;
                EXPECT_EQ(Delete_List_Item_L(list.head, list.at(uk + 1), mode), expected);
                model.erase(std::next(model.begin(), k));
                break;
            }
            case 3: { // new data from the item's own bytes, often of another size
                QV_LIST_T *item = list.at(uk + 1);
                std::string was = checked_text_of(item);
                uint32_t length =
                    static_cast<uint32_t>(random(1, static_cast<int32_t>(was.size())));
                void *data = Update_List_Item_L(item, QV_LIST_DATA(item), length);
                *std::next(model.begin(), k) = was.substr(0, length);
                EXPECT_EQ(text_of(data, length), was.substr(0, length));
                break;
            }
            case 4: {
                int32_t to = random(0, size);
                Change_List_Position_L(list.at(uk + 1), list.at(static_cast<size_t>(to) + 1));
                auto from = std::next(model.begin(), k);
                model.splice(std::next(model.begin(), to), model, from);
                break;
            }
            case 5: {
                auto first = std::find(model.begin(), model.end(), text);
                QV_LIST_T *found = Find_List_Item_L(list.head, &text, equals_text, nullptr);
                EXPECT_EQ(
                    found,
                    first == model.end()
                        ? nullptr
                        : list.at(static_cast<size_t>(std::distance(model.begin(), first)) + 1));
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
        Keyed item{random(0, 200), serial};
        auto after = std::upper_bound(model.begin(), model.end(), item,
                                      [](auto &a, auto &b) { return a.key < b.key; });
        bool duplicates = random(0, 1) == 1,
             equal = after != model.begin() && after[-1].key == item.key;
        calls = 0;
        void *data =
            Insert_Sorted_List_Item_L(list.head, &item, sizeof item, counting, duplicates, &calls);
        if (!duplicates && equal) {
            EXPECT_EQ(keyed(data), after[-1]); // the last equal item
        } else {
            EXPECT_EQ(keyed(data), item);
            if (after == model.end()) {
                EXPECT_LE(calls, 1); // appending in order: one comparison
            }
            model.insert(after, item);
        }
        Keyed key{random(-1, 201), 0};
        QV_LIST_T *position = nullptr;
        QV_LIST_T *found = Bsearch_List_L(list.head, &key, by_key, nullptr, &position);
        auto first = std::lower_bound(model.begin(), model.end(), key,
                                      [](auto &a, auto &b) { return a.key < b.key; });
        EXPECT_EQ(position, list.at(static_cast<size_t>(first - model.begin()) + 1));
        EXPECT_EQ(found, first != model.end() && first->key == key.key ? position : nullptr);
        if (!model.empty() && random(0, 3) == 0) {
            size_t victim = static_cast<size_t>(random(0, static_cast<int32_t>(model.size()) - 1));
            Delete_List_Item_L(list.head, list.at(victim + 1), 0);
            model.erase(model.begin() + static_cast<ptrdiff_t>(victim));
        }
        ASSERT_EQ(keyed_items(list.head), model) << serial;
    }
}

// Fills a list with `count` records of a shape; every record's serial is its first place.
void fill(List &list, const std::string &shape, int32_t count, Random &random) {
    for (int32_t i = 0; i < count; ++i) {
        int32_t key = shape == "sorted"     ? i
                      : shape == "reversed" ? count - i
                      : shape == "equal"    ? 7
                      : shape == "sawtooth" ? i % 5
                                            : random(0, count / 3);
        Keyed item{key, i};
        Append_List_Item_L(list.head, &item, sizeof item);
    }
}

// Each data pointer of the list and the record it holds.
std::map<void *, Keyed> data_of(QV_LIST_T *head) {
    std::map<void *, Keyed> data;
    for (QV_LIST_T *p = head->next; p != head; p = p->next)
        data[QV_LIST_DATA(p)] = keyed(QV_LIST_DATA(p));
    return data;
}

TEST(ListSort, EveryShapeSortsByRelinkingWithDataIntact) {
    Random random;
    for (const char *shape : {"sorted", "reversed", "equal", "sawtooth", "random"}) {
        for (int32_t count : {0, 1, 2, 3, 8, 9, 10, 100, 2000}) {
            List list;
            fill(list, shape, count, random);
            auto before = data_of(list.head);
            Qsort_List_L(list.head, by_key, nullptr);
            auto items = keyed_items(list.head);
            EXPECT_TRUE(std::is_sorted(items.begin(), items.end(),
                                       [](auto &a, auto &b) { return a.key < b.key; }))
                << shape << count;
            EXPECT_EQ(data_of(list.head), before) << shape << count; // same blocks, same bytes
            EXPECT_EQ(texts(list.head).size(), static_cast<size_t>(count));
        }
    }
}

TEST(ListSort, PartSortLeavesTheRestInPlace) {
    Random random;
    List list;
    fill(list, "random", 60, random);
    auto items = keyed_items(list.head);
    Qsort_Part_List_L(list.at(11), list.at(40), by_key, nullptr);
    auto sorted = keyed_items(list.head);
    std::sort(items.begin() + 10, items.begin() + 40,
              [](auto &a, auto &b) { return a.key < b.key; });
    for (size_t i = 0; i < items.size(); ++i) EXPECT_EQ(sorted[i].key, items[i].key) << i;
    EXPECT_TRUE(std::equal(items.begin(), items.begin() + 10, sorted.begin()));
    EXPECT_TRUE(std::equal(items.begin() + 40, items.end(), sorted.begin() + 40));
}

const char *const STOP = "STOP";

TEST(ListSort, AComparisonThatRaisesOrLiesLeavesAWholeList) {
    Random random;
    for (int32_t limit : {0, 1, 7, 60, 900, -1}) {
        List list;
        fill(list, "random", 500, random);
        auto before = data_of(list.head);
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
        EXPECT_EQ(texts(list.head).size(), 500u);
        EXPECT_EQ(data_of(list.head), before) << limit;
    }
}

TEST(ListWalk, EndsAndDeletionNeighbours) {
    List list;
    void *data = &data;
    EXPECT_EQ(NextListItem_L(list.head, &data), nullptr);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(PreviousListItem_L(list.head, nullptr), nullptr);
    EXPECT_EQ(NextListItem_L(nullptr, &data), nullptr);
    for (const char *text : {"a", "bb", "ccc"})
        Append_List_Item_L(list.head, text, std::strlen(text));
    QV_LIST_T *first = list.at(1), *last = list.at(3);
    EXPECT_EQ(Delete_List_Item_L(list.head, last, QV_LIST_RETURN_NEXT), list.head);
    EXPECT_EQ(checked_text_of(NextListItem_L(list.head, nullptr)),
              "a"); // walks again from the start
    EXPECT_EQ(Delete_List_Item_L(list.head, first, QV_LIST_RETURN_PREVIOUS), list.head);
    EXPECT_EQ(texts(list.head), std::vector<std::string>{"bb"});
    EXPECT_EQ(FindListItemByRef_L(list.head, QV_LIST_DATA(list.at(1))), list.at(1));
    EXPECT_EQ(FindListItemByRef_L(list.head, "bb"), nullptr);
    EXPECT_EQ(text_of(Append_List_Item_L(list.head, nullptr, 3), 3), std::string(3, '\0'));
}

TEST(ListCopy, DataAndPointersIntoItemArrays) {
    List list;
    for (const char *text : {"ab", "cdef", "g"})
        Append_List_Item_L(list.head, text, std::strlen(text));
    void *block = &block;
    ASSERT_EQ(Copy_List_To_Array_L(list.head, &block, 3), 3);
    EXPECT_EQ(std::string(static_cast<char *>(block), 9), std::string("ab\0cdeg\0\0", 9));
    std::free(block);
    void **pointers;
    ASSERT_EQ(Copy_List_Items_To_Array_L(list.head, &pointers), 3);
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(pointers[i], QV_LIST_DATA(list.at(i + 1)));
    std::free(pointers);
    List empty;
    EXPECT_EQ(Copy_List_To_Array_L(empty.head, &block, 4), 0);
    EXPECT_EQ(block, nullptr);
}

TEST(ListMisuse, WrongKindNullAndZeroSizeRaiseAndChangeNothing) {
    List list;
    Append_List_Item_L(list.head, "x", 1);
    Append_List_Item_L(list.head, "y", 1);
    QV_LIST_T *item = list.at(1), *last = list.at(2), *head = list.head, *null = nullptr;
    void *data;
    const std::pair<const char *, std::function<void()>> cases[] = {
        {LIST_FAILURE_L, [&] { Free_List_L(item); }},
        {LIST_FAILURE_L, [&] { Deallocate_List_L(&item); }},
        {LIST_FAILURE_L, [&] { Append_List_Item_L(item, "z", 1); }},
        {LIST_FAILURE_L, [&] { Append_List_Item_L(nullptr, "z", 1); }},
        {LIST_FAILURE_L, [&] { Delete_List_Item_L(head, head, 1); }},
        {LIST_FAILURE_L, [&] { Delete_List_Item_L(item, last, 1); }},
        {LIST_FAILURE_L, [&] { Delete_List_Item_L(head, null, 1); }},
        {LIST_FAILURE_L, [&] { Get_List_Item_L(head, &data, nullptr); }},
        {LIST_FAILURE_L, [&] { Update_List_Item_L(head, "z", 1); }},
        {LIST_FAILURE_L, [&] { Change_List_Position_L(head, item); }},
        {LIST_FAILURE_L, [&] { Qsort_List_L(item, by_key, nullptr); }},
        {LIST_FAILURE_L, [&] { Qsort_Part_List_L(last, item, by_key, nullptr); }},
        {LIST_FAILURE_L, [&] { Qsort_Part_List_L(head, item, by_key, nullptr); }},
        {LIST_FAILURE_L, [&] { Insert_Sorted_List_Item_L(head, "z", 1, nullptr, 1, nullptr); }},
        {LIST_FAILURE_L, [&] { Insert_Sorted_List_Item_L(head, nullptr, 1, by_key, 1, nullptr); }},
        {LIST_FAILURE_L, [&] { Bsearch_List_L(item, "z", by_key, nullptr, nullptr); }},
        {LIST_FAILURE_L, [&] { Get_List_Item_L(nullptr, &data, nullptr); }},
        {LIST_FAILURE_L, [&] { FindListItemByRef_L(nullptr, "z"); }},
        {LIST_FAILURE_L, [&] { Copy_List_Items_To_Array_L(item, nullptr); }},
        {ZERO_ALLOC_FAILURE, [&] { Append_List_Item_L(head, "z", 0); }},
        {ZERO_ALLOC_FAILURE, [&] { Update_List_Item_L(item, "z", 0); }},
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
        // Called before each run: after the first, it sees what a failed run left.
        auto unchanged = [&] {
            EXPECT_EQ(texts(list.head), std::vector<std::string>{"kept"});
            std::free(block);
            block = nullptr;
        };
        auto raised = qvtest::fail_each_allocation(operation, unchanged);
        EXPECT_THAT(raised, ::testing::ElementsAre(ALLOC_FAILURE));
        EXPECT_STREQ(Exc_GetFile_L(), "qvlist");
    }
    std::free(block);
}

} // namespace
