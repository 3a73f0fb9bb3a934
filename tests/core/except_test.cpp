// Status contexts: landing, nesting, re-raising, reports, depth bookkeeping, and the
// unwinding of C++ frames between a raise and its opener.
#include <gtest/gtest.h>

#include <csetjmp>
#include <stdexcept>
#include <string>

#include "core/raise.hpp"
#include "qv/alloc.h"
#include "qv/except.h"

namespace {

const char *const PRIVATE_FAILURE = "PRIVATE_FAILURE";

struct Counted {
    static inline int alive = 0;
    static inline int destroyed = 0;
    Counted() { ++alive; }
    ~Counted() {
        --alive;
        ++destroyed;
    }
};

class ExceptTest : public ::testing::Test {
  protected:
    void SetUp() override {
        Counted::alive = Counted::destroyed = 0;
        ASSERT_EQ(Exc_Sp, nullptr);
    }
    void TearDown() override {
        while (Exc_Sp != nullptr) except_end_context("test", __LINE__);
        EXPECT_EQ(qv::context_depth(), 0);
    }
};

__attribute__((noinline)) void raise_from_depth(int levels, const char *symbol, int line) {
    Counted guard;
    if (levels == 0)
        except_raise(symbol, "deep", line, 0, 0, nullptr);
    else
        raise_from_depth(levels - 1, symbol, line);
}

// The raw protocol, written the way a host writes it. Returns the symbol that landed. The
// opener's own frame is not unwound by a raise: `in_opener` is destroyed once, on return.
__attribute__((noinline)) const char *catch_raw(void (*body)()) {
    Counted in_opener;
    const char *volatile landed = nullptr;
    except_start_context("catch_raw", "except_test", __LINE__);
    if (setjmp(Exc_Sp->jump_state) == 0)
        body();
    else
        landed = Exc_Raised_;
    Exc_Sp->in_handler = 1;
    except_end_context("except_test", __LINE__);
    return landed;
}

TEST_F(ExceptTest, RaiseLandsInHandlerAfterRunningDestructorsOnce) {
    const char *landed = catch_raw([] { raise_from_depth(5, GENERAL_ERROR, 4242); });
    EXPECT_EQ(landed, GENERAL_ERROR);
    EXPECT_STREQ(Exc_GetFile_L(), "deep");
    EXPECT_EQ(Exc_GetLine_L(), 4242);
    EXPECT_EQ(Exc_Status_Symbol, nullptr);
    EXPECT_EQ(Counted::destroyed, 6 + 1);
    EXPECT_EQ(Counted::alive, 0);
    // Symbols are compared by identity, never by text.
    static const char other_general[] = "GENERAL_ERROR";
    EXPECT_EQ(catch_raw([] { raise_from_depth(0, other_general, 1); }), other_general);
}

TEST_F(ExceptTest, GuardedHelperUnwindsObjectsMadeInItsBody) {
    const char *seen = nullptr;
    bool completed = qv::guarded(
        "guarded", "except_test", __LINE__,
        [&] {
            Counted in_body;
            std::string text(100, 'x'); // a heap block that must not leak
            raise_from_depth(2, PRIVATE_FAILURE, 7);
        },
        [&](const char *raised) { seen = raised; });
    EXPECT_FALSE(completed);
    EXPECT_EQ(seen, PRIVATE_FAILURE);
    EXPECT_EQ(Counted::destroyed, 4);
    EXPECT_EQ(Counted::alive, 0);
    EXPECT_EQ(Exc_Sp, nullptr);
    EXPECT_TRUE(qv::guarded(
        "guarded", "except_test", __LINE__, [] {}, [&](const char *) { seen = nullptr; }));
    EXPECT_EQ(seen, PRIVATE_FAILURE); // a body that completes skips the handler
}

TEST_F(ExceptTest, NestedReraiseCarriesFirstLocationOutward) {
    const char *outer_seen = nullptr;
    int depth_in_outer_handler = -1;
    qv::guarded(
        "outer", "except_test", __LINE__,
        [&] {
            Counted between;
            qv::guarded(
                "inner", "except_test", __LINE__, [] { raise_from_depth(1, PRIVATE_FAILURE, 77); },
                [](const char *) {
                    except_raise(Exc_Raised_, "inner_handler", 99, 1, 0, nullptr);
                });
            ADD_FAILURE() << "re-raise returned";
        },
        [&](const char *raised) {
            outer_seen = raised;
            depth_in_outer_handler = qv::context_depth();
        });
    EXPECT_EQ(outer_seen, PRIVATE_FAILURE);
    EXPECT_EQ(depth_in_outer_handler, 1);
    EXPECT_STREQ(Exc_GetFile_L(), "deep");
    EXPECT_EQ(Exc_GetLine_L(), 77);
    EXPECT_EQ(Counted::alive, 0);
    EXPECT_EQ(Counted::destroyed, 3);
}

TEST_F(ExceptTest, NewSymbolFromHandlerKeepsFirstLocation) {
    const char *outer_seen = nullptr;
    qv::guarded(
        "outer", "except_test", __LINE__,
        [&] {
            qv::guarded(
                "inner", "except_test", __LINE__, [] { raise_from_depth(0, PRIVATE_FAILURE, 5); },
                [](const char *) { except_raise(GENERAL_ERROR, "handler", 6, 0, 0, nullptr); });
        },
        [&](const char *raised) { outer_seen = raised; });
    EXPECT_EQ(outer_seen, GENERAL_ERROR);
    EXPECT_EQ(Exc_Raised_, GENERAL_ERROR);
    EXPECT_STREQ(Exc_GetFile_L(), "deep");
    EXPECT_EQ(Exc_GetLine_L(), 5);
}

TEST_F(ExceptTest, ReraiseFromOnlyHandlerReportsAndReturns) {
    bool returned = false;
    qv::guarded(
        "only", "except_test", __LINE__, [] { raise_from_depth(0, PRIVATE_FAILURE, 1); },
        [&](const char *) {
            except_raise(Exc_Raised_, "except_test", __LINE__, 1, 0, nullptr);
            returned = true;
            EXPECT_EQ(qv::context_depth(), 1);
        });
    EXPECT_TRUE(returned);
    EXPECT_EQ(Exc_Sp, nullptr);
}

TEST_F(ExceptTest, RaiseWithoutContextReturnsToRaiser) {
    Exc_Raised_ = nullptr;
    except_raise(GENERAL_ERROR, "nowhere", 3, 0, 0, nullptr);
    EXPECT_EQ(Exc_Raised_, nullptr); // nothing jumped
    EXPECT_EQ(qv::context_depth(), 0);
}

// Outside a handler, a re-raise (mode 1) only reports; a default re-raise jumps like a raise.
TEST_F(ExceptTest, ReraiseModesFromABody) {
    const char *seen = nullptr;
    qv::guarded(
        "body", "except_test", __LINE__,
        [] {
            except_raise(PRIVATE_FAILURE, "body", 12, 1, 0, nullptr);
            EXPECT_EQ(qv::context_depth(), 1);
            EXPECT_EQ(Exc_GetLine_L(), 12); // the first-level details are still recorded
            except_raise(GENERAL_ERROR, "body", 13, 2, 0, nullptr);
            ADD_FAILURE() << "default re-raise returned";
        },
        [&](const char *raised) { seen = raised; });
    EXPECT_EQ(seen, GENERAL_ERROR);
}

TEST_F(ExceptTest, StatusRaiseCarriesNumberAndName) {
    qv::guarded(
        "exit", "except_test", __LINE__,
        [] { except_raise(STATUS_RAISED, "script", 9, 0, 3, "exit_code"); }, [](const char *) {});
    EXPECT_EQ(Exc_Raised_, STATUS_RAISED);
    EXPECT_EQ(Exc_Status, 3);
    EXPECT_STREQ(Exc_Status_Symbol, "exit_code");
    qv::guarded(
        "plain", "except_test", __LINE__, [] { QV_RAISE(GENERAL_ERROR); }, [](const char *) {});
    EXPECT_EQ(Exc_Status, 0);
    EXPECT_EQ(Exc_Status_Symbol, nullptr);
}

TEST_F(ExceptTest, DepthFollowsOpensAndPops) {
    for (int i = 1; i <= 5; ++i) {
        except_start_context("f", "except_test", i);
        EXPECT_EQ(qv::context_depth(), i);
    }
    exc_context *top = Exc_Sp;
    EXPECT_EQ(top->line, 5);
    EXPECT_STREQ(top->function_name, "f");
    EXPECT_EQ(top->in_handler, 0);
    for (int i = 4; i >= 0; --i) {
        except_end_context("except_test", 100);
        EXPECT_EQ(qv::context_depth(), i);
    }
    except_end_context("except_test", 101); // empty stack: reported, nothing else
    EXPECT_EQ(qv::context_depth(), 0);
    EXPECT_EQ(Exc_Sp, nullptr);
}

TEST_F(ExceptTest, ContextThatCannotBeAllocatedPushesNothing) {
    TestFailAllocation_L(0);
    EXPECT_EQ(except_start_context("f", "except_test", 1), nullptr);
    TestFailAllocation_L(-1);
    EXPECT_EQ(Exc_Sp, nullptr);
    EXPECT_EQ(qv::context_depth(), 0);
    volatile int ran = 0; // the convenience form still runs its body, unprotected
    TestFailAllocation_L(0);
    QV_TRY("f", "except_test") {
        ran = 1;
    }
    QV_HANDLER {
        ran = 2;
    }
    QV_END_TRY("except_test");
    TestFailAllocation_L(-1);
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(qv::context_depth(), 0);
}

TEST_F(ExceptTest, RaiseFromDestructorDuringUnwindLandsInItsOwnContext) {
    struct RaisesInside {
        const char **seen;
        ~RaisesInside() {
            qv::guarded(
                "dtor", "except_test", __LINE__, [] { QV_RAISE(GENERAL_ERROR); },
                [this](const char *raised) { *seen = raised; });
        }
    };
    const char *inner = nullptr;
    const char *outer = nullptr;
    qv::guarded(
        "outer", "except_test", __LINE__,
        [&] {
            RaisesInside r{&inner};
            raise_from_depth(1, PRIVATE_FAILURE, 1);
        },
        [&](const char *raised) { outer = raised; });
    EXPECT_EQ(inner, GENERAL_ERROR);
    EXPECT_EQ(outer, PRIVATE_FAILURE);
    EXPECT_STREQ(Exc_GetFile_L(), "deep"); // the landing raise's details, not the destructor's
    EXPECT_EQ(Counted::alive, 0);
}

// A host function whose catch (...) swallows whatever passes. The raise is not lost: when
// the catch block ends it lands in its opener, and the frames between the catch and the
// opener are skipped (their destructors do not run), as with the plain jump.
__attribute__((noinline)) void swallow_all(bool &caught) {
    try {
        raise_from_depth(2, PRIVATE_FAILURE, 21);
    } catch (...) {
        caught = true;
    }
    ADD_FAILURE() << "the raise was lost in catch (...)";
}

TEST_F(ExceptTest, RaiseSwallowedByACatchAllStillLandsInItsOpener) {
    bool caught = false;
    const char *seen = nullptr;
    qv::guarded(
        "opener", "except_test", __LINE__,
        [&] {
            Counted skipped;
            swallow_all(caught);
        },
        [&](const char *raised) { seen = raised; });
    EXPECT_TRUE(caught);
    EXPECT_EQ(seen, PRIVATE_FAILURE);
    EXPECT_EQ(Exc_GetLine_L(), 21);
    EXPECT_EQ(Counted::destroyed, 3); // the raiser's frames, up to the catch
    EXPECT_EQ(Counted::alive, 1);     // `skipped`, between the catch and the opener
    EXPECT_EQ(Exc_Sp, nullptr);
    EXPECT_EQ(catch_raw([] { raise_from_depth(0, GENERAL_ERROR, 1); }), GENERAL_ERROR);
}

// A C++ exception that leaves a protected body (or its handler) passes on to the host, and
// the helper's context is closed on the way: the next raise still finds the right context.
TEST_F(ExceptTest, CppExceptionLeavingAGuardedBodyClosesItsContext) {
    auto throws = [] { throw std::runtime_error("host error"); };
    auto guarded_throw = [&] { qv::guarded("thrower", "except_test", __LINE__, throws); };
    EXPECT_THROW(qv::guarded("outer", "except_test", __LINE__, guarded_throw), std::runtime_error);
    EXPECT_THROW(qv::guarded(
                     "handler", "except_test", __LINE__, [] { QV_RAISE(GENERAL_ERROR); },
                     [&](const char *) { throws(); }),
                 std::runtime_error);
    EXPECT_EQ(Exc_Sp, nullptr);
    EXPECT_EQ(qv::context_depth(), 0);
    EXPECT_EQ(catch_raw([] { raise_from_depth(0, GENERAL_ERROR, 1); }), GENERAL_ERROR);
}

struct ExceptionCase {
    uint32_t code;
    const char *expected;
};

// Every code of the table but 0xC0000005 (whose second line is checked below), then codes
// the table does not hold.
TEST(PackageExceptionMessage, NamesEveryCodeOfTheTable) {
    const ExceptionCase cases[] = {
        {0x80000002, "Software Exception 0x80000002 ( Datatype misalignment )\n"},
        {0x80000003, "Software Exception 0x80000003 ( Debugging, breakpoint )\n"},
        {0x80000004, "Software Exception 0x80000004 ( Debugging, single step )\n"},
        {0xC000008C, "Software Exception 0xC000008C ( Array bounds exceeded )\n"},
        {0xC000008D, "Software Exception 0xC000008D ( Denormal floating-point operand )\n"},
        {0xC000008E, "Software Exception 0xC000008E ( Floating-point divide by zero )\n"},
        {0xC000008F, "Software Exception 0xC000008F ( Inexact floating-point result )\n"},
        {0xC0000090, "Software Exception 0xC0000090 ( Invalid floating-point operation )\n"},
        {0xC0000091, "Software Exception 0xC0000091 ( Floating-point overflow )\n"},
        {0xC0000092,
         "Software Exception 0xC0000092 ( Floating-point stack overflow or underflow )\n"},
        {0xC0000093, "Software Exception 0xC0000093 ( Floating-point underflow )\n"},
        {0xC0000094, "Software Exception 0xC0000094 ( Integer divide by zero )\n"},
        {0xC0000095, "Software Exception 0xC0000095 ( Integer overflow )\n"},
        {0xC0000096,
         "Software Exception 0xC0000096 ( Attempt to execute privileged instruction )\n"},
        {0xC0000006, "Software Exception 0xC0000006 ( Page error )\n"},
        {0xC000001D, "Software Exception 0xC000001D ( Attempt to execute illegal instruction )\n"},
        {0xC0000025, "Software Exception 0xC0000025 ( Attempt to continue beyond exception )\n"},
        {0xC00000FD, "Software Exception 0xC00000FD ( Stack overflow )\n"},
        {0xC0000026, "Software Exception 0xC0000026 ( Invalid disposition )\n"},
        {0x80000001, "Software Exception 0x80000001 ( Guard page violation )\n"},
        {0xC0000008, "Software Exception 0xC0000008 ( Invalid handle )\n"},
        {0xC000013A, "Software Exception 0xC000013A ( CTRL-C )\n"},
        {0x12345678, "Unknown exception"},
        {0, "Unknown exception"},
    };
    static_assert(std::size(cases) == 22 + 2);
    for (const auto &c : cases) {
        QV_EXCEPTION_RECORD_T record{};
        record.code = c.code;
        EXPECT_STREQ(PackageExceptionMessage_L(&record), c.expected) << std::hex << c.code;
    }
    EXPECT_STREQ(PackageExceptionMessage_L(nullptr), "Unknown exception");
}

TEST(PackageExceptionMessage, AccessViolationAddsSecondLine) {
    QV_EXCEPTION_RECORD_T record{};
    record.code = 0xC0000005;
    record.address = reinterpret_cast<void *>(0x1000);
    record.parameter_count = 2;
    record.parameters[0] = 1;
    record.parameters[1] = 0x2000;
    char expected[200];
    std::snprintf(
        expected, sizeof expected,
        "Software Exception 0xC0000005 ( Access Violation )\nException Address %p [write at %p]\n",
        record.address, reinterpret_cast<void *>(0x2000));
    EXPECT_STREQ(PackageExceptionMessage_L(&record), expected);
    record.parameters[0] = 0;
    EXPECT_NE(std::string(PackageExceptionMessage_L(&record)).find("[read at"), std::string::npos);
}

} // namespace
