// format_test.cpp - the library's formatter: checked against the C library's snprintf
// where the two agree, then case by case where it deliberately differs, then appending,
// growth of the work text, bad input and allocation failures.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "core/raise.hpp"
#include "qv/alloc.h"
#include "qv/encoding.h"
#include "qv/qvstring.h"

namespace {

// Formats afresh with the library's formatter.
std::string qv_format(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char *out = nullptr;
    VAsprintf_L(&out, format, arguments);
    va_end(arguments);
    std::string text = out != nullptr ? out : "(null result)";
    std::free(out);
    return text;
}

// The same with the C library.
std::string c_format(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int size = std::vsnprintf(nullptr, 0, format, arguments);
    std::string text(static_cast<std::size_t>(size), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    return text;
}

unsigned int float_bits(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// Runs `body` under a status context; returns the symbol raised, or null.
const char *raised_by(const std::function<void()> &body) {
    const char *raised = nullptr;
    qv::guarded(
        "format_test", "format_test", __LINE__, [&] { body(); },
        [&](const char *symbol) { raised = symbol; });
    return raised;
}

// --- Agreement with the C library ------------------------------------------------------

constexpr const char *int_formats[] = {
    "%d",  "%i",   "%5d",   "%-5d",  "%05d", "%0-5d|", "%.3d", "%8.3d",  "%-8.3d", "%08.3d",
    "%1d", "%12d", "%012d", "%u",    "%10u", "%010u",  "%o",   "%8o",    "%08o",   "%.4o",
    "%x",  "%X",   "%08x",  "%-8X|", "%.6x", "%3x",    "<%d>", "a%db%dc"};
constexpr int int_values[] = {0, 1, -1, 7, 42, -42, 255, 123456, -987654, INT_MAX, INT_MIN};

TEST(FormatAgreesWithC, Integers) {
    for (const char *format : int_formats) {
        for (int value : int_values) {
            EXPECT_EQ(qv_format(format, value, value), c_format(format, value, value))
                << format << " of " << value;
        }
    }
}

constexpr const char *long_formats[] = {"%ld",   "%li",   "%22ld",  "%-22ld|", "%022ld", "%.19ld",
                                        "%lu",   "%25lu", "%lo",    "%lx",     "%lX",    "%020lx",
                                        "%.3lx", "%.1ld", "%-5lu|", "x%ldy"};
constexpr long long_values[] = {0, 1, -1, 4294967296L, -1234567890123L, LONG_MAX, LONG_MIN};

TEST(FormatAgreesWithC, Longs) {
    for (const char *format : long_formats) {
        for (long value : long_values) {
            EXPECT_EQ(qv_format(format, value), c_format(format, value))
                << format << " of " << value;
        }
    }
}

constexpr const char *double_formats[] = {"%lf",      "%.2lf",     "%.0lf", "%10.3lf", "%-10.1lf|",
                                          "%010.2lf", "%0-9.2lf|", "%20lf", "%.12lf",  "%3.1lf"};
constexpr double double_values[] = {0.0,  -0.0,        3.14159, -2.5, 0.125,
                                    1e10, -123456.789, 1e-7,    1e300};

TEST(FormatAgreesWithC, Doubles) {
    for (const char *format : double_formats) {
        for (double value : double_values) {
            EXPECT_EQ(qv_format(format, value), c_format(format, value))
                << format << " of " << value;
        }
    }
    EXPECT_EQ(qv_format("%lf %lf", HUGE_VAL, -HUGE_VAL), c_format("%lf %lf", HUGE_VAL, -HUGE_VAL));
}

constexpr const char *text_formats[] = {"%s",       "%10s",  "%-10s|", "%.2s", "%10.2s",
                                        "%-10.2s|", "%.0s|", "%2s",    "[%s]", "%.20s"};
constexpr const char *text_values[] = {"", "a", "abc", "hello world"};

TEST(FormatAgreesWithC, TextsAndCharacters) {
    for (const char *format : text_formats) {
        for (const char *value : text_values) {
            EXPECT_EQ(qv_format(format, value), c_format(format, value))
                << format << " of \"" << value << '"';
        }
    }
    for (const char *format : {"%c", "%3c", "%-3c|", "%c%c"}) {
        EXPECT_EQ(qv_format(format, 'a', 'Z'), c_format(format, 'a', 'Z')) << format;
    }
    EXPECT_EQ(qv_format("%c", 0x141), "A"); // only the low byte
}

TEST(FormatAgreesWithC, StarWidthsAndPrecisions) {
    EXPECT_EQ(qv_format("%*d|", 6, -42), c_format("%*d|", 6, -42));
    EXPECT_EQ(qv_format("%*d|", -6, -42), c_format("%*d|", -6, -42));
    EXPECT_EQ(qv_format("%0*d|", 6, -42), c_format("%0*d|", 6, -42));
    EXPECT_EQ(qv_format("%.*d", 4, 7), c_format("%.*d", 4, 7));
    EXPECT_EQ(qv_format("%.*d", -3, 7), c_format("%.*d", -3, 7));
    EXPECT_EQ(qv_format("%*.*s|", -6, 2, "abc"), c_format("%*.*s|", -6, 2, "abc"));
    EXPECT_EQ(qv_format("%.*s", -1, "abc"), c_format("%.*s", -1, "abc"));
    EXPECT_EQ(qv_format("%*.*lf", 9, 2, 3.14159), c_format("%*.*lf", 9, 2, 3.14159));
    EXPECT_EQ(qv_format("%%|%5%|%-%"), "%|%|%");
}

TEST(FormatAgreesWithC, PointersIgnoreWidth) {
    int object = 0;
    EXPECT_EQ(qv_format("%p", &object), c_format("%p", static_cast<void *>(&object)));
    EXPECT_EQ(qv_format("%40p|", &object), c_format("%p|", static_cast<void *>(&object)));
    EXPECT_EQ(qv_format("%-40p|", nullptr), c_format("%p|", nullptr));
}

// --- Deliberate differences -------------------------------------------------------------

struct Difference {
    const char *what;
    std::function<std::string()> format;
    const char *expected;
};

constexpr const char *no_text = nullptr;
constexpr const QV_STRING_T *no_string = nullptr;
QV_STRING_T counted_abc{const_cast<char *>("abc"), nullptr};
QV_STRING_T counted_null_text{nullptr, nullptr};
// "h\u00e9" in Latin-1 and in UTF-16: both print in UTF-8.
QV_STRING_T counted_latin1{const_cast<char *>("h\xE9"), Latin1Encoding_L()};
char utf16_text[] = {'h', 0, '\xE9', 0, 0, 0};
QV_STRING_T counted_utf16{utf16_text, UTF16Encoding_L()};

const std::vector<Difference> differences = {
    {"0 with precision 0", [] { return qv_format("%.0d|%.0u|%.0x|%5.0d", 0, 0u, 0u, 0); },
     "0|0|0|    0"},
    {"zero-fill of a text pads with spaces", [] { return qv_format("%05s|%03c", "ab", 'x'); },
     "   ab|  x"},
    {"%f reads a float's bits", [] { return qv_format("%f", float_bits(1.5f)); }, "1.500000"},
    {"%f with flags",
     [] { return qv_format("%08.3f|%-7.1f|", float_bits(-1.5f), float_bits(2.25f)); },
     "-001.500|2.2    |"},
    {"%f then an integer", [] { return qv_format("%.1f %d", float_bits(0.5f), 9); }, "0.5 9"},
    {"I64d most negative", [] { return qv_format("%I64d", static_cast<long long>(INT64_MIN)); },
     "-9223372036854775808"},
    {"I64d most positive", [] { return qv_format("%I64d", static_cast<long long>(INT64_MAX)); },
     "9223372036854775807"},
    {"I64d with zero-fill", [] { return qv_format("%08I64d", -5LL); }, "-0000005"},
    {"I64u is not a size", [] { return qv_format("%I64u %d", 7); }, "I64u 7"},
    {"I64x is not a size", [] { return qv_format("[%5I64x]", 7); }, "[I64x]"},
    {"I64i is not a size", [] { return qv_format("%I64i"); }, "I64i"},
    {"unknown conversions", [] { return qv_format("%q|%5q|%-08.3y|%+d|% d|%#x|%hd", 5); },
     "q|q|y|+d| d|#x|hd"},
    {"ll is l then an unknown l", [] { return qv_format("%lld", 5LL); }, "ld"},
    {"format ending inside a conversion", [] { return qv_format("ab%-5"); }, "ab"},
    {"format ending after %", [] { return qv_format("ab%"); }, "ab"},
    {"null text", [] { return qv_format("%s|%8s|%.3s", no_text, no_text, no_text); },
     "<NULL>|  <NULL>|<NU"},
    {"U is s", [] { return qv_format("%U|%-4U|%U", "ab", "c", no_text); }, "ab|c   |<NULL>"},
    {"counted string",
     [] { return qv_format("%S|%5S|%.2S", &counted_abc, &counted_abc, &counted_abc); },
     "abc|  abc|ab"},
    {"counted strings print in UTF-8",
     [] {
         return qv_format("%S|%S|%4S|%.2S", &counted_latin1, &counted_utf16, &counted_latin1,
                          &counted_utf16);
     },
     "h\xC3\xA9|h\xC3\xA9| h\xC3\xA9|h\xC3"},
    {"counted string with null text", [] { return qv_format("%S", &counted_null_text); }, "<NULL>"},
    {"null counted string takes the next argument",
     [] { return qv_format("%S|%d", no_string, "plain", 3); }, "plain|3"},
    {"null counted string then a null text", [] { return qv_format("%-8S|", no_string, no_text); },
     "<NULL>  |"},
    {"negative * precision is none", [] { return qv_format("%.*s|%.*d", -5, "abc", -1, 0); },
     "abc|0"},
    {"negative * width left-justifies and cancels zero-fill",
     [] { return qv_format("%0*d|%0*x|", -5, 42, -4, 255u); }, "42   |ff  |"},
    {"* precision 0", [] { return qv_format("%.*d|%*.*s|", 0, 0, 3, 0, "abc"); }, "0|   |"},
    {"byte 0 from %c ends the result", [] { return qv_format("a%cb%d", 0, 5); }, "a"},
    {"huge precision digits on a text stop at its end",
     [] { return qv_format("%.99999999999999999999s", "abc"); }, "abc"},
};

TEST(FormatDiffersFromC, Deliberately) {
    for (const Difference &difference : differences)
        EXPECT_EQ(difference.format(), difference.expected) << difference.what;
}

// --- Appending and growth ---------------------------------------------------------------

TEST(FormatAppends, ToTheCallersText) {
    char *out = nullptr;
    char *first = Asprintf_L(&out, "ab");
    EXPECT_EQ(first, out);
    char *second = Asprintf8_L(&out, "%d|%s", 5, "cd");
    EXPECT_EQ(second, out);
    EXPECT_STREQ(out, "ab5|cd");
    Asprintf_L(&out, "");
    EXPECT_STREQ(out, "ab5|cd");
    std::free(out);
}

TEST(FormatAppends, EmptyFormatGivesEmptyText) {
    char *out = nullptr;
    ASSERT_NE(Asprintf_L(&out, ""), nullptr);
    EXPECT_STREQ(out, "");
    std::free(out);
}

TEST(FormatGrows, PastTheFirst512Bytes) {
    const std::string literal(1500, 'x');
    EXPECT_EQ(qv_format(literal.c_str()), literal);
    const std::string mixed = std::string(700, 'y') + "%d" + std::string(700, 'z');
    EXPECT_EQ(qv_format(mixed.c_str(), -3), c_format(mixed.c_str(), -3));
    EXPECT_EQ(qv_format("%-3000s|", "a"), c_format("%-3000s|", "a"));
    EXPECT_EQ(qv_format("%3000d", 1), c_format("%3000d", 1));
    EXPECT_EQ(qv_format("%.2000d", -12), c_format("%.2000d", -12));
    EXPECT_EQ(qv_format("%2000.3lf|", 2.5), c_format("%2000.3lf|", 2.5));
    EXPECT_EQ(qv_format("%.1500lf", 1.0 / 3), c_format("%.1500lf", 1.0 / 3));
    const std::string long_text(5000, 't');
    EXPECT_EQ(qv_format("%s%s", long_text.c_str(), "end"), long_text + "end");
    // After the work text grew, short formats still come out right.
    EXPECT_EQ(qv_format("%d", 8), "8");
}

// Once the work text is big enough, a call allocates only its result.
TEST(FormatGrows, SteadyStateAllocatesOnlyTheResult) {
    const char *format = "%s: row %d of %-20s|%08x";
    std::string warm = qv_format(format, "load", 12, "table", 255u);
    char *out = nullptr;
    const char *raised = raised_by([&] {
        TestFailAllocation_L(1); // the second allocation from now would fail
        Asprintf_L(&out, format, "load", 12, "table", 255u);
    });
    const bool fired = TestAllocationFailed_L() != 0;
    TestFailAllocation_L(-1);
    EXPECT_EQ(raised, nullptr);
    EXPECT_FALSE(fired);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(warm, out);
    std::free(out);
}

// --- Bad input --------------------------------------------------------------------------

TEST(FormatBadInput, NullOutReturnsNull) {
    EXPECT_EQ(Asprintf_L(nullptr, "%d", 1), nullptr);
}

TEST(FormatBadInput, NullFormatAppendsNothing) {
    char *out = nullptr;
    EXPECT_EQ(Asprintf_L(&out, nullptr), nullptr);
    EXPECT_EQ(out, nullptr);
    Asprintf_L(&out, "ab");
    char *before = out;
    EXPECT_EQ(Asprintf_L(&out, nullptr), before);
    EXPECT_STREQ(out, "ab");
    std::free(out);
}

TEST(FormatBadInput, ImpossibleSizesRaiseAllocFailure) {
    struct Case {
        const char *what;
        std::function<void(char **)> format;
    };
    const std::vector<Case> cases = {
        {"width digits past int", [](char **out) { Asprintf_L(out, "%99999999999999999999d", 1); }},
        {"precision digits past int",
         [](char **out) { Asprintf_L(out, "%.99999999999999999999x", 1u); }},
        {"text width INT_MAX", [](char **out) { Asprintf_L(out, "%2147483647s", "a"); }},
        {"* width INT_MIN", [](char **out) { Asprintf_L(out, "%*d", INT_MIN, 1); }},
        {"float width past int", [](char **out) { Asprintf_L(out, "%99999999999lf", 1.0); }},
    };
    for (const Case &c : cases) {
        char *out = nullptr;
        Asprintf_L(&out, "kept");
        const char *raised = raised_by([&] { c.format(&out); });
        EXPECT_EQ(raised, ALLOC_FAILURE) << c.what;
        EXPECT_STREQ(Exc_GetFile_L(), "alloc") << c.what;
        EXPECT_STREQ(out, "kept") << c.what;
        std::free(out);
    }
}

// With no status context open the raise returns; the call is abandoned and *out kept.
TEST(FormatBadInput, WithoutContextLeavesOutUnchanged) {
    ASSERT_EQ(Exc_Sp, nullptr);
    char *out = nullptr;
    Asprintf_L(&out, "kept");
    char *before = out;
    testing::internal::CaptureStderr(); // the raise's report
    char *result = Asprintf_L(&out, "%99999999999999999999d", 1);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(result, before);
    EXPECT_STREQ(out, "kept");
    EXPECT_EQ(qv_format("%d", 4), "4"); // and the formatter still works
    std::free(out);
}

// --- Allocation failures ----------------------------------------------------------------

// Fails the Nth allocation of a call that registers the work text afresh, grows it for
// literal text and for an item, and appends: every failure raises ALLOC_FAILURE from
// "alloc", leaves *out as it was, and leaks nothing.
void check_allocation_failures(const char *initial, int expected_failure_points) {
    const std::string format = std::string(700, '.') + "%-900s|%d";
    const std::string expected =
        std::string(initial ? initial : "") + c_format(format.c_str(), "item", 42);
    int failures = 0;
    for (int n = 0; n < 50; ++n) {
        Free_Alloc_Ptrs_L(); // the work text is registered and allocated again
        char *out = initial ? strdup(initial) : nullptr;
        const char *raised = raised_by([&] {
            TestFailAllocation_L(n);
            Asprintf_L(&out, format.c_str(), "item", 42);
        });
        TestFailAllocation_L(-1);
        if (raised == nullptr) {
            ASSERT_NE(out, nullptr);
            EXPECT_EQ(out, expected);
            std::free(out);
            break;
        }
        ++failures;
        EXPECT_EQ(raised, ALLOC_FAILURE) << "allocation " << n;
        EXPECT_STREQ(Exc_GetFile_L(), "alloc") << "allocation " << n;
        if (initial)
            EXPECT_STREQ(out, initial) << "allocation " << n;
        else
            EXPECT_EQ(out, nullptr) << "allocation " << n;
        std::free(out);
    }
    EXPECT_EQ(failures, expected_failure_points);
}

TEST(FormatAllocationFailure, NewResult) {
    // work text, growth for the dots, exact growth for the item (so the "|" after it grows
    // again), the new result
    check_allocation_failures(nullptr, 5);
}

TEST(FormatAllocationFailure, AppendedResult) {
    // as above, with the caller's text grown at the end
    check_allocation_failures("start:", 5);
}

} // namespace
