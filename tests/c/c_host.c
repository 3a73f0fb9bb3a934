/* A host written in C: opens status contexts with setjmp exactly as the protocol says,
 * raises from nested calls, re-raises outward, formats text and reads a glossary. Exits non-zero on
 * the first check that fails. */
#include <qv/qvcommon.h>

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures = 0;
static int checks = 0;

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        ++checks;                                                                                  \
        if (!(condition)) {                                                                        \
            ++failures;                                                                            \
            fprintf(stderr, "c_host.c:%d: check failed: %s\n", __LINE__, #condition);              \
        }                                                                                          \
    } while (0)

static const char *const MY_FAILURE = "MY_FAILURE";

static void level3(void) {
    except_raise(MY_FAILURE, "c_host", 300, 0, 0, 0);
}
static void level2(void) {
    level3();
}

/* Catches and re-raises what it caught. */
static void middle(void) {
    volatile int landed = 0;
    except_start_context("middle", "c_host", __LINE__);
    if (setjmp(Exc_Sp->jump_state) == 0) {
        level2();
    } else {
        landed = 1;
    }
    Exc_Sp->in_handler = 1;
    if (landed) except_raise(Exc_Raised_, "c_host", __LINE__, 1, 0, 0);
    except_end_context("c_host", __LINE__);
}

static void protocol(void) {
    volatile int landed = 0;
    except_start_context("protocol", "c_host", __LINE__);
    if (setjmp(Exc_Sp->jump_state) == 0) {
        middle();
        CHECK(!"re-raise returned");
    } else {
        landed = 1;
    }
    Exc_Sp->in_handler = 1;
    CHECK(landed);
    CHECK(Exc_Raised_ == MY_FAILURE);
    CHECK(strcmp(Exc_GetFile_L(), "c_host") == 0);
    CHECK(Exc_GetLine_L() == 300);
    except_end_context("c_host", __LINE__);
    CHECK(Exc_Sp == NULL);
}

static void convenience_macros(void) {
    volatile int reached_end = 0;
    volatile int handled = 0;
    QV_TRY("convenience_macros", "c_host") {
        level2();
        reached_end = 1;
    }
    QV_HANDLER {
        handled = Exc_Raised_ == MY_FAILURE;
    }
    QV_END_TRY("c_host");
    CHECK(!reached_end);
    CHECK(handled);
    CHECK(Exc_Sp == NULL);
}

static void formatting(void) {
    char *text = NULL;
    Asprintf_L(&text, "%-5s|%5d|%05x", "ab", -42, 255u);
    CHECK(text != NULL && strcmp(text, "ab   |  -42|000ff") == 0);
    Asprintf_L(&text, " %s", (const char *)NULL);
    CHECK(text != NULL && strcmp(text, "ab   |  -42|000ff <NULL>") == 0);
    free(text);
    text = NULL; /* C's size prefixes, as a C host passes its types */
    Asprintf_L(&text, "%zu|%lld|%hhd|%jx", sizeof(int32_t), -5LL, 300, (uintmax_t)255);
    CHECK(text != NULL && strcmp(text, "4|-5|44|ff") == 0);
    free(text);
}

/* The library of the build tree finds the build tree's message files by itself. */
static void message_files(void) {
    const char *kind = Gloss_L(100);
    CHECK(kind != NULL && strcmp(kind, "Build") == 0);
    UnloadGlossaries_L();
}

int main(void) {
    protocol();
    convenience_macros();
    formatting();
    message_files();
    printf("%d passed, %d failed\n", checks - failures, failures);
    return failures == 0 ? 0 : 1;
}
