// alloc_test.cpp - the allocation table: registering owners, freeing one or all, the
// table's limit of 1024 entries, and the formatter's work text as one of its owners.
#include <cstdlib>
#include <cstring>

#include "capture.hpp"
#include "core/heap.hpp"
#include "core/raise.hpp"
#include "qv/alloc.h"

namespace {

using qvtest::raised_by;

constexpr int table_size = 1024;
void **owners[table_size + 1];

class AllocTable : public testing::Test {
  protected:
    void SetUp() override { Free_Alloc_Ptrs_L(); }
    void TearDown() override { Free_Alloc_Ptrs_L(); }
    static void fill_table() {
        for (int i = 0; i < table_size; ++i) Get_Alloc_Ptr_L(&owners[i]);
    }
};

TEST_F(AllocTable, RegisterAndFreeOneOrAll) {
    void **first = nullptr, **second = nullptr, **third = nullptr;
    Get_Alloc_Ptr_L(&first);
    Get_Alloc_Ptr_L(&second);
    Get_Alloc_Ptr_L(&third);
    ASSERT_TRUE(first && second && third);
    EXPECT_EQ(*first, nullptr); // the owner points at an empty block field
    EXPECT_NE(first, second);
    *first = std::malloc(16);
    *third = strdup("block"); // the address sanitizer sees a leak unless both are freed
    Free_Alloc_Ptr_L(&first);
    EXPECT_EQ(first, nullptr);
    EXPECT_NE(second, nullptr);

    void **stranger = reinterpret_cast<void **>(&stranger);
    Free_Alloc_Ptr_L(&stranger); // not registered: untouched
    EXPECT_EQ(stranger, reinterpret_cast<void **>(&stranger));
    Get_Alloc_Ptr_L(nullptr);
    Free_Alloc_Ptr_L(nullptr);

    EXPECT_EQ(Free_Alloc_Ptrs_L(), 0);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(third, nullptr);
    EXPECT_EQ(Free_Alloc_Ptrs_L(), 0);
}

TEST_F(AllocTable, EntryOf1025thRegistrationRaises) {
    fill_table();
    owners[table_size] = nullptr;
    EXPECT_EQ(raised_by([] { Get_Alloc_Ptr_L(&owners[table_size]); }), GENERAL_ERROR);
    EXPECT_STREQ(Exc_GetFile_L(), "alloc");
    EXPECT_EQ(owners[table_size], nullptr);

    // Freeing one entry empties it but does not give it back.
    Free_Alloc_Ptr_L(&owners[0]);
    EXPECT_EQ(raised_by([] { Get_Alloc_Ptr_L(&owners[table_size]); }), GENERAL_ERROR);

    EXPECT_EQ(Free_Alloc_Ptrs_L(), 0);
    for (void **owner : owners) EXPECT_EQ(owner, nullptr);
    Get_Alloc_Ptr_L(&owners[0]);
    EXPECT_NE(owners[0], nullptr);
}

// The formatter's work text is an owner too: once the table is emptied it registers again
// on its next use; with the table full it cannot, and the call formats nothing.
TEST_F(AllocTable, FormatterRegistersItsWorkText) {
    char *out = nullptr;
    Asprintf_L(&out, "%s", "before");
    EXPECT_EQ(Free_Alloc_Ptrs_L(), 0);
    Asprintf_L(&out, "|%d", 1);
    EXPECT_EQ(qvtest::take(out), "before|1");

    Free_Alloc_Ptrs_L();
    fill_table();
    out = nullptr;
    EXPECT_EQ(raised_by([&] { Asprintf_L(&out, "x"); }), GENERAL_ERROR);
    EXPECT_EQ(out, nullptr);
    testing::internal::CaptureStderr(); // the raise's report: no context is open
    EXPECT_EQ(Asprintf_L(&out, "x"), nullptr);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(out, nullptr);

    Free_Alloc_Ptrs_L();
    EXPECT_EQ(qvtest::take(Asprintf_L(&out, "x")), "x");
}

} // namespace

namespace {

// Containers allocate through qv::Allocator, which the failure hook sees; an entry point's
// body run under QV_C_ENTRY turns the exhaustion into ALLOC_FAILURE, or into an empty
// result when no context is open.
int32_t container_entry() {
    return QV_C_ENTRY([] {
        qv::Vector<int> numbers(100, 7);
        qv::String text(200, 'x');
        return static_cast<int32_t>(numbers.size() + text.size());
    });
}

TEST(ContainerAllocation, FailuresBecomeAllocFailureRaises) {
    EXPECT_EQ(container_entry(), 300);
    const auto raised = qvtest::fail_each_allocation([] { container_entry(); });
    EXPECT_EQ(raised, std::vector<const char *>(2, ALLOC_FAILURE));
    TestFailAllocation_L(0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(container_entry(), 0);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("no context"), std::string::npos);
    TestFailAllocation_L(-1);
}

} // namespace
