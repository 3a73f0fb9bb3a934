// alloc_test.cpp - the allocation table: registering owners, freeing one or all, the
// table's limit of 1024 entries, and the formatter's work text as one of its owners.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "core/raise.hpp"
#include "qv/alloc.h"

namespace {

constexpr int table_size = 1024;

class AllocTable : public testing::Test {
  protected:
    void SetUp() override { Free_Alloc_Ptrs_L(); }
    void TearDown() override { Free_Alloc_Ptrs_L(); }
};

const char *raised_by(void (*body)(void ***), void ***owner) {
    const char *raised = nullptr;
    qv::guarded(
        "alloc_test", "alloc_test", __LINE__, [&] { body(owner); },
        [&](const char *symbol) { raised = symbol; });
    return raised;
}

TEST_F(AllocTable, OwnerPointsAtAnEmptyBlockField) {
    void **owner = nullptr;
    Get_Alloc_Ptr_L(&owner);
    ASSERT_NE(owner, nullptr);
    EXPECT_EQ(*owner, nullptr);
    *owner = std::malloc(16);
    void **second = nullptr;
    Get_Alloc_Ptr_L(&second);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(second, owner);
    Free_Alloc_Ptr_L(&owner); // frees the block (the address sanitizer sees a leak otherwise)
    EXPECT_EQ(owner, nullptr);
    EXPECT_NE(second, nullptr);
}

TEST_F(AllocTable, FreeOfUnknownOwnerOrEmptyTableDoesNothing) {
    void **stranger = reinterpret_cast<void **>(&stranger);
    Free_Alloc_Ptr_L(&stranger);
    EXPECT_EQ(stranger, reinterpret_cast<void **>(&stranger));
    void **owner = nullptr;
    Get_Alloc_Ptr_L(&owner);
    Free_Alloc_Ptr_L(&stranger);
    EXPECT_NE(owner, nullptr);
    Get_Alloc_Ptr_L(nullptr);
    Free_Alloc_Ptr_L(nullptr);
}

TEST_F(AllocTable, FreeAllNullsEveryOwner) {
    void **owners[3] = {};
    for (void **&owner : owners) {
        Get_Alloc_Ptr_L(&owner);
        ASSERT_NE(owner, nullptr);
    }
    *owners[0] = std::malloc(8);
    *owners[2] = strdup("block");
    EXPECT_EQ(Free_Alloc_Ptrs_L(), 0);
    for (void **owner : owners) EXPECT_EQ(owner, nullptr);
    EXPECT_EQ(Free_Alloc_Ptrs_L(), 0);
}

TEST_F(AllocTable, EntryOf1025thRegistrationRaises) {
    static void **owners[table_size + 1];
    for (int i = 0; i < table_size; ++i) Get_Alloc_Ptr_L(&owners[i]);
    const char *raised = raised_by(Get_Alloc_Ptr_L, &owners[table_size]);
    EXPECT_EQ(raised, GENERAL_ERROR);
    EXPECT_STREQ(Exc_GetFile_L(), "alloc");
    EXPECT_EQ(owners[table_size], nullptr);

    // Freeing one entry empties it but does not give it back.
    Free_Alloc_Ptr_L(&owners[0]);
    EXPECT_EQ(raised_by(Get_Alloc_Ptr_L, &owners[table_size]), GENERAL_ERROR);

    EXPECT_EQ(Free_Alloc_Ptrs_L(), 0);
    for (void **owner : owners) EXPECT_EQ(owner, nullptr);
    Get_Alloc_Ptr_L(&owners[0]);
    EXPECT_NE(owners[0], nullptr);
}

// The formatter's work text is an owner too: once the table is emptied it registers again
// on its next use; with the table full it cannot, and the call formats nothing.
TEST_F(AllocTable, FormatterRegistersItsWorkTextAgain) {
    char *out = nullptr;
    Asprintf_L(&out, "%s", "before");
    EXPECT_EQ(Free_Alloc_Ptrs_L(), 0);
    Asprintf_L(&out, "|%d", 1);
    EXPECT_STREQ(out, "before|1");
    std::free(out);
}

TEST_F(AllocTable, FormatterWithFullTable) {
    static void **owners[table_size];
    for (void **&owner : owners) Get_Alloc_Ptr_L(&owner);

    char *out = nullptr;
    const char *raised = nullptr;
    qv::guarded(
        "alloc_test", "alloc_test", __LINE__, [&] { Asprintf_L(&out, "x"); },
        [&](const char *symbol) { raised = symbol; });
    EXPECT_EQ(raised, GENERAL_ERROR);
    EXPECT_EQ(out, nullptr);

    testing::internal::CaptureStderr(); // the raise's report: no context is open
    EXPECT_EQ(Asprintf_L(&out, "x"), nullptr);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(out, nullptr);

    Free_Alloc_Ptrs_L();
    EXPECT_STREQ(Asprintf_L(&out, "x"), "x");
    std::free(out);
}

} // namespace
