// containers_bench.cpp - the containers beside the standard ones: 1M list items appended,
// walked and freed beside std::list; BsearchArray_L beside std::lower_bound; 1M
// NewHandle_L/FreeHandle_L pairs beside std::map and std::unordered_map insert/erase;
// appends to item arrays and paged pointer arrays beside std::vector::push_back.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <list>
#include <malloc.h>
#include <map>
#include <random>
#include <unordered_map>
#include <vector>

#include "qv/array.h"
#include "qv/handle.h"
#include "qv/pageptrs.h"
#include "qv/qvlist.h"

namespace {

constexpr int64_t million = 1000000;

// Gives the freed blocks of earlier benchmarks back (glibc), so that each structure below is
// built from a heap in the same state and its nodes lie in allocation order.
void settle_heap() {
    malloc_trim(0);
}

// ---- Lists: append 1M items and free them; walk 1M items -------------------------------

void BM_List_AppendFree(benchmark::State &state) {
    QV_LIST_T *head = Allocate_List_L();
    for (auto _ : state) {
        for (int64_t i = 0; i < million; ++i) Append_List_Item_L(head, &i, sizeof i);
        Free_List_L(head);
    }
    Deallocate_List_L(&head);
    state.SetItemsProcessed(state.iterations() * million);
}
BENCHMARK(BM_List_AppendFree)->Unit(benchmark::kMillisecond);

void BM_StdList_AppendFree(benchmark::State &state) {
    for (auto _ : state) {
        std::list<int64_t> list;
        for (int64_t i = 0; i < million; ++i) list.push_back(i);
        benchmark::DoNotOptimize(list);
    }
    state.SetItemsProcessed(state.iterations() * million);
}
BENCHMARK(BM_StdList_AppendFree)->Unit(benchmark::kMillisecond);

void BM_List_Walk(benchmark::State &state) {
    settle_heap();
    QV_LIST_T *head = Allocate_List_L();
    for (int64_t i = 0; i < million; ++i) Append_List_Item_L(head, &i, sizeof i);
    for (auto _ : state) {
        int64_t sum = 0;
        void *data;
        for (QV_LIST_T *p = NextListItem_L(head, &data); p; p = NextListItem_L(p, &data))
            sum += *static_cast<int64_t *>(data);
        benchmark::DoNotOptimize(sum);
    }
    Deallocate_List_L(&head);
    state.SetItemsProcessed(state.iterations() * million);
}
BENCHMARK(BM_List_Walk)->Unit(benchmark::kMillisecond);

void BM_StdList_Walk(benchmark::State &state) {
    settle_heap();
    std::list<int64_t> list;
    for (int64_t i = 0; i < million; ++i) list.push_back(i);
    for (auto _ : state) {
        int64_t sum = 0;
        for (int64_t value : list) sum += value;
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * million);
}
BENCHMARK(BM_StdList_Walk)->Unit(benchmark::kMillisecond);

// ---- Binary search over 1M sorted keys ---------------------------------------------------

struct SortedKeys {
    std::vector<int32_t> keys, probes;
    SortedKeys() {
        std::mt19937 random(7);
        keys.resize(million);
        for (auto &key : keys) key = static_cast<int32_t>(random() % (4 * million));
        std::sort(keys.begin(), keys.end());
        probes.resize(4096);
        for (auto &probe : probes) probe = static_cast<int32_t>(random() % (4 * million));
    }
};

int32_t compare_int32(const void *key, const void *item) {
    int32_t a = *static_cast<const int32_t *>(key), b = *static_cast<const int32_t *>(item);
    return (a > b) - (a < b);
}

void BM_BsearchArray_L(benchmark::State &state) {
    SortedKeys data;
    size_t next = 0;
    for (auto _ : state) {
        int32_t position;
        const int32_t &probe = data.probes[next++ & 4095];
        benchmark::DoNotOptimize(BsearchArray_L(data.keys.data(), million, QV_BSEARCH_ANY, &probe,
                                                4, compare_int32, &position));
        benchmark::DoNotOptimize(position);
    }
}
BENCHMARK(BM_BsearchArray_L);

void BM_StdLowerBound(benchmark::State &state) {
    SortedKeys data;
    size_t next = 0;
    for (auto _ : state) {
        int32_t probe = data.probes[next++ & 4095];
        benchmark::DoNotOptimize(std::lower_bound(data.keys.begin(), data.keys.end(), probe));
    }
}
BENCHMARK(BM_StdLowerBound);

// The same search through a comparison function the compiler cannot see into, as the
// library's callers supply one.
void BM_StdLowerBound_ComparisonFunction(benchmark::State &state) {
    SortedKeys data;
    size_t next = 0;
    auto *volatile compare = &compare_int32;
    for (auto _ : state) {
        int32_t probe = data.probes[next++ & 4095];
        benchmark::DoNotOptimize(std::lower_bound(
            data.keys.begin(), data.keys.end(), probe,
            [compare](const int32_t &item, int32_t key) { return compare(&item, &key) < 0; }));
    }
}
BENCHMARK(BM_StdLowerBound_ComparisonFunction);

// ---- 1M handles issued and freed ---------------------------------------------------------

void BM_NewFreeHandle(benchmark::State &state) {
    QV_HANDLE_TABLE_T *table = InitHandles_L();
    int object;
    for (auto _ : state) {
        for (int64_t i = 0; i < million; ++i)
            FreeHandle_L(table, NewHandle_L(table, 1, &object, 0, 0, 0));
    }
    TerminateHandles_L(&table);
    state.SetItemsProcessed(state.iterations() * million);
}
BENCHMARK(BM_NewFreeHandle)->Unit(benchmark::kMillisecond);

struct Entry {
    void *object;
    int32_t type, second, third;
};

template <class Map>
void map_insert_erase(benchmark::State &state) {
    Map entries;
    int object;
    int32_t next = 1;
    for (auto _ : state) {
        for (int64_t i = 0; i < million; ++i) {
            int32_t handle = next++;
            entries.emplace(handle, Entry{&object, 1, 0, 0});
            entries.erase(handle);
        }
    }
    state.SetItemsProcessed(state.iterations() * million);
}
void BM_StdMap_InsertErase(benchmark::State &state) {
    map_insert_erase<std::map<int32_t, Entry>>(state);
}
BENCHMARK(BM_StdMap_InsertErase)->Unit(benchmark::kMillisecond);
void BM_StdUnorderedMap_InsertErase(benchmark::State &state) {
    map_insert_erase<std::unordered_map<int32_t, Entry>>(state);
}
BENCHMARK(BM_StdUnorderedMap_InsertErase)->Unit(benchmark::kMillisecond);

// ---- Appends to item arrays and paged pointer arrays ---------------------------------------

void BM_AddArrayItem_L(benchmark::State &state) {
    for (auto _ : state) {
        void *block = nullptr;
        for (int32_t i = 0; i < million; ++i) AddArrayItem_L(&block, i, sizeof i, &i);
        std::free(block);
    }
    state.SetItemsProcessed(state.iterations() * million);
}
BENCHMARK(BM_AddArrayItem_L)->Unit(benchmark::kMillisecond);

void BM_AppendPtrToPagedPtrs_L(benchmark::State &state) {
    for (auto _ : state) {
        QV_PAGED_PTRS_T *array = NewPagedPtrs_L(0, 0, 0, 0);
        for (int64_t i = 1; i <= million; ++i)
            AppendPtrToPagedPtrs_L(array, reinterpret_cast<void *>(i));
        FreePagedPtrs_L(&array);
    }
    state.SetItemsProcessed(state.iterations() * million);
}
BENCHMARK(BM_AppendPtrToPagedPtrs_L)->Unit(benchmark::kMillisecond);

template <class T>
void vector_push_back(benchmark::State &state) {
    for (auto _ : state) {
        std::vector<T> items;
        for (int64_t i = 1; i <= million; ++i) items.push_back(static_cast<T>(i));
        benchmark::DoNotOptimize(items.data());
    }
    state.SetItemsProcessed(state.iterations() * million);
}
void BM_StdVector_PushBack_int32(benchmark::State &state) {
    vector_push_back<int32_t>(state);
}
BENCHMARK(BM_StdVector_PushBack_int32)->Unit(benchmark::kMillisecond);
void BM_StdVector_PushBack_pointer(benchmark::State &state) {
    vector_push_back<intptr_t>(state);
}
BENCHMARK(BM_StdVector_PushBack_pointer)->Unit(benchmark::kMillisecond);

void BM_NextPagedPtr_L_Walk(benchmark::State &state) {
    QV_PAGED_PTRS_T *array = NewPagedPtrs_L(0, 0, 0, 0);
    for (int64_t i = 1; i <= million; ++i)
        AppendPtrToPagedPtrs_L(array, reinterpret_cast<void *>(i));
    for (auto _ : state) {
        intptr_t sum = 0;
        int32_t at = -1;
        while (void *p = NextPagedPtr_L(array, &at)) sum += reinterpret_cast<intptr_t>(p);
        benchmark::DoNotOptimize(sum);
    }
    FreePagedPtrs_L(&array);
    state.SetItemsProcessed(state.iterations() * million);
}
BENCHMARK(BM_NextPagedPtr_L_Walk)->Unit(benchmark::kMillisecond);

void BM_StdVector_Walk_pointer(benchmark::State &state) {
    std::vector<void *> items;
    for (int64_t i = 1; i <= million; ++i) items.push_back(reinterpret_cast<void *>(i));
    for (auto _ : state) {
        intptr_t sum = 0;
        for (void *p : items) sum += reinterpret_cast<intptr_t>(p);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * million);
}
BENCHMARK(BM_StdVector_Walk_pointer)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
