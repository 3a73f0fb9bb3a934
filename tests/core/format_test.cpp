// format_test.cpp - the library's formatter: checked against the C library's snprintf
// where the two agree, then case by case where it deliberately differs, then appending,
// growth of the work text, bad input and allocation failures.
#include <bit>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <tuple>

#include "capture.hpp"
#include "qv/alloc.h"
#include "qv/encoding.h"
#include "qv/qvstring.h"

namespace {

using qvtest::raised_by;
using qvtest::take;

// Formats afresh with the library's formatter.
std::string qv_format(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char *out = nullptr;
    VAsprintf_L(&out, format, arguments);
    va_end(arguments);
    return take(out);
}

// The same with the C library (results up to 4 KiB).
std::string c_format(const char *format, ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

#define EXPECT_AGREES(format, ...)                                                                 \
    EXPECT_EQ(qv_format(format, __VA_ARGS__), c_format(format, __VA_ARGS__)) << (format)

// Every format of the list with every value (passed twice, for formats with two items).
template <class Value, std::size_t formats, std::size_t values>
void expect_agreement(const char *const (&format_list)[formats],
                      const Value (&value_list)[values]) {
    for (const char *format : format_list)
        for (Value value : value_list) EXPECT_AGREES(format, value, value) << " of " << value;
}

constexpr const char *int_formats[] = {"%d",   "%i",  "%5d",    "%-5d|", "%05d", "%0-5d|",
                                       "%.3d", "%1d", "%08.3d", "%u",    "%o",   "%08o",
                                       "%.4o", "%x",  "%X",     "%-8X|", "%.6x", "a%db%dc"};
constexpr int int_values[] = {0, 1, -1, 7, -42, 255, INT_MAX, INT_MIN};
constexpr const char *long_formats[] = {"%ld", "%022ld", "%.19ld", "%lu", "%lo", "%lx", "%lX"};
constexpr long long_values[] = {0, -1, 4294967296L, LONG_MAX, LONG_MIN};
// C's other size prefixes, each with values of its own type.
constexpr const char *long_long_formats[] = {"%lld", "%lli", "%llu", "%llo", "%-20llx|", "%llX"};
constexpr long long long_long_values[] = {0, -1, 4294967296LL, LLONG_MAX, LLONG_MIN};
constexpr const char *size_formats[] = {"%zu", "%zx", "%05zX", "%zo"};
constexpr std::size_t size_values[] = {0, 1, SIZE_MAX, std::size_t{1} << 40};
constexpr const char *signed_size_formats[] = {"%zd", "%zi", "%td", "%.3ti"};
constexpr std::ptrdiff_t signed_size_values[] = {0, -1, PTRDIFF_MAX, PTRDIFF_MIN};
constexpr const char *max_formats[] = {"%jd", "%ji", "%08jd"};
constexpr intmax_t max_values[] = {0, -7, INTMAX_MAX, INTMAX_MIN};
constexpr const char *unsigned_max_formats[] = {"%ju", "%jx", "%jo"};
constexpr uintmax_t unsigned_max_values[] = {0, 7, UINTMAX_MAX};
// h and hh cut the promoted int back to short and char.
constexpr const char *short_formats[] = {"%hd",  "%hi",  "%hu",  "%hx",
                                         "%hhd", "%hhu", "%hhX", "%5hho"};
constexpr int short_values[] = {0, -1, 255, 256, 65535, 65536, -32769, INT_MAX};
constexpr const char *double_formats[] = {"%lf",    "%.2lf",    "%.0lf",     "%10.3lf",
                                          "%.12lf", "%010.2lf", "%0-9.2lf|", "%3.1lf"};
constexpr double double_values[] = {0.0, -0.0, 3.14159, -2.5, -123456.789, 1e-7, 1e300};
constexpr const char *text_formats[] = {"%s", "%10s", "%-10s|", "%.2s", "%10.2s", "%.0s|", "%2s"};
constexpr const char *text_values[] = {"", "a", "abc", "hello world"};

TEST(FormatAgreesWithC, OverTables) {
    expect_agreement(int_formats, int_values);
    expect_agreement(long_formats, long_values);
    expect_agreement(long_long_formats, long_long_values);
    expect_agreement(size_formats, size_values);
    expect_agreement(signed_size_formats, signed_size_values);
    expect_agreement(max_formats, max_values);
    expect_agreement(unsigned_max_formats, unsigned_max_values);
    expect_agreement(short_formats, short_values);
    expect_agreement(double_formats, double_values);
    expect_agreement(text_formats, text_values);
    expect_agreement({"%c", "%3c", "%-3c|", "%c%c"}, {'a', 'Z'});
    EXPECT_AGREES("%lf %lf", HUGE_VAL, -HUGE_VAL);
    EXPECT_AGREES("%*d|%*d|%0*d|", 6, -42, -6, -42, 6, -42);
    EXPECT_AGREES("%.*d|%.*d|%*.*lf", 4, 7, -3, 7, 9, 2, 3.14159);
    EXPECT_AGREES("%*.*s|%.*s|%.*s", -6, 2, "abc", -1, "abc", -5, "abc");
    EXPECT_AGREES("%0*d|%0*x|", -5, 42, -4, 255u); // a negative width cancels zero-fill
    // Pointers ignore the width.
    int object = 0;
    EXPECT_EQ(qv_format("%p", &object), c_format("%p", static_cast<void *>(&object)));
    EXPECT_EQ(qv_format("%40p|", &object), c_format("%p|", static_cast<void *>(&object)));
    EXPECT_EQ(qv_format("%-40p|", nullptr), c_format("%p|", nullptr));
}

constexpr const char *no_text = nullptr;
constexpr const QV_STRING_T *no_string = nullptr;
QV_STRING_T counted_abc{const_cast<char *>("abc"), nullptr};
QV_STRING_T counted_null_text{nullptr, nullptr};
// "h\u00e9" in Latin-1 and in UTF-16: both print in UTF-8.
QV_STRING_T counted_latin1{const_cast<char *>("h\xE9"), Latin1Encoding_L()};
char utf16_text[] = {'h', 0, '\xE9', 0, 0, 0};
QV_STRING_T counted_utf16{utf16_text, UTF16Encoding_L()};

TEST(FormatDiffersFromC, Deliberately) {
    // Rows: what differs, the formatter's result, the expected text.
    const std::tuple<const char *, std::string, const char *> differences[] = {
        {"0 with precision 0", qv_format("%.0d|%.0u|%.0x|%5.0d", 0, 0u, 0u, 0), "0|0|0|    0"},
        {"zero-fill of a text pads with spaces", qv_format("%05s|%03c", "ab", 'x'), "   ab|  x"},
        {"%f reads a float's bits",
         qv_format("%f|%08.3f|%-7.1f %d", std::bit_cast<unsigned>(1.5f),
                   std::bit_cast<unsigned>(-1.5f), std::bit_cast<unsigned>(2.25f), 9),
         "1.500000|-001.500|2.2     9"},
        {"I64d", qv_format("%I64d|%I64d|%08I64d", INT64_MIN + 0LL, INT64_MAX + 0LL, -5LL),
         "-9223372036854775808|9223372036854775807|-0000005"},
        {"I64 is a size before d only", qv_format("%I64u|[%5I64x]|%I64i|%d", 7),
         "I64u|[I64x]|I64i|7"},
        {"unknown conversions", qv_format("%q|%5q|%-08.3y|%+d|% d|%#x|%Ld", 5),
         "q|q|y|+d| d|#x|Ld"},
        {"only l makes %f read a double",
         qv_format("%hf|%llf|%zf", std::bit_cast<unsigned>(1.5f), std::bit_cast<unsigned>(2.5f),
                   std::bit_cast<unsigned>(3.5f)),
         "1.500000|2.500000|3.500000"},
        {"%% takes no flags or width", qv_format("%%|%5%|%-%"), "%|%|%"},
        {"format ending inside a conversion", qv_format("ab%-5"), "ab"},
        {"null text; U is s", qv_format("%s|%8s|%.3s|%-4U|", no_text, no_text, no_text, "c"),
         "<NULL>|  <NULL>|<NU|c   |"},
        {"counted strings print in UTF-8",
         qv_format("%5S|%.2S|%S|%S|%4S|%.2S", &counted_abc, &counted_abc, &counted_null_text,
                   &counted_latin1, &counted_latin1, &counted_utf16),
         "  abc|ab|<NULL>|h\xC3\xA9| h\xC3\xA9|h\xC3"},
        {"a null counted string takes the next argument as a text",
         qv_format("%S|%-8S|%d", no_string, "plain", no_string, no_text, 3), "plain|<NULL>  |3"},
        {"* precision 0", qv_format("%.*d|%*.*s|", 0, 0, 3, 0, "abc"), "0|   |"},
        {"byte 0 from %c ends the result, after padding before it",
         qv_format("a%cb%d", 0, 5) + qv_format("b%3cc", 0) + qv_format("c%-3cd", 0), "ab  c"},
        {"huge precision digits on a text stop at its end",
         qv_format("%.99999999999999999999s", "abc"), "abc"},
    };
    for (const auto &[what, got, expected] : differences) EXPECT_EQ(got, expected) << what;
}

TEST(FormatAppends, ToTheCallersTextIgnoringNulls) {
    char *out = nullptr;
    EXPECT_EQ(Asprintf_L(&out, nullptr), nullptr); // a null format appends nothing
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(Asprintf_L(&out, ""), out);
    EXPECT_STREQ(out, ""); // an empty format still gives a text
    Asprintf_L(&out, "ab");
    EXPECT_EQ(Asprintf8_L(&out, "%d|%s", 5, "cd"), out);
    EXPECT_EQ(Asprintf_L(&out, nullptr), out);
    EXPECT_EQ(take(out), "ab5|cd");
    EXPECT_EQ(Asprintf_L(nullptr, "%d", 1), nullptr);
}

// The caller owns *out between two appends: a text cut anywhere is appended to where it
// now ends.
TEST(FormatAppends, ToATextTheCallerCutInTheMiddle) {
    char *out = nullptr;
    for (int i = 0; i < 20; ++i) Asprintf_L(&out, "%02d-", i);
    out[30] = '\0';
    Asprintf_L(&out, "|%s", "tail");
    EXPECT_EQ(take(out), "00-01-02-03-04-05-06-07-08-09-|tail");
}

TEST(FormatGrows, PastTheFirst512Bytes) {
    const std::string literal(1500, 'x');
    EXPECT_EQ(qv_format(literal.c_str()), literal);
    EXPECT_AGREES("%-3000s|", "a");
    EXPECT_AGREES("%.2000d", -12);
    EXPECT_AGREES("%2000.3lf|", 2.5);
    EXPECT_AGREES("%.1500lf", 1.0 / 3);
    const std::string long_text(5000, 't');
    EXPECT_EQ(qv_format("%s%s", long_text.c_str(), "end"), long_text + "end");
    EXPECT_EQ(qv_format("%d", 8), "8"); // after the work text grew, short formats still work
}

// Once the work text is big enough, a call allocates only its result.
TEST(FormatGrows, SteadyStateAllocatesOnlyTheResult) {
    const char *format = "%s: row %d of %-20s|%08x";
    const std::string warm = qv_format(format, "load", 12, "table", 255u);
    char *out = nullptr;
    TestFailAllocation_L(1); // the second allocation from now would fail
    Asprintf_L(&out, format, "load", 12, "table", 255u);
    EXPECT_FALSE(TestAllocationFailed_L());
    TestFailAllocation_L(-1);
    EXPECT_EQ(take(out), warm);
}

// Widths and precisions past the int range (digits clamp to INT_MAX, * INT_MIN) raise
// ALLOC_FAILURE and leave *out as it was, also when no status context catches the raise.
TEST(FormatBadInput, ImpossibleSizesRaiseAllocFailure) {
    char *out = nullptr;
    Asprintf_L(&out, "kept");
    for (auto format : {+[](char **o) { Asprintf_L(o, "%.99999999999999999999d", 1); },
                        +[](char **o) { Asprintf_L(o, "%*d", INT_MIN, 1); },
                        +[](char **o) { Asprintf_L(o, "%99999999999lf", 1.0); }}) {
        EXPECT_EQ(raised_by([&] { format(&out); }), ALLOC_FAILURE);
        EXPECT_STREQ(Exc_GetFile_L(), "alloc");
    }
    testing::internal::CaptureStderr(); // the raise's report
    EXPECT_EQ(Asprintf_L(&out, "%99999999999999999999d", 1), out);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(take(out), "kept");
}

// Fails each allocation of a call that registers the work text afresh, grows it for literal
// text and for an item, and appends: each failure raises ALLOC_FAILURE from "alloc" and
// leaves *out as it was (the sanitizer sees any leak). The failure points: the work text,
// growth for the dots, exact growth for the item (so the "|" after it grows again), and
// the result (new, or the caller's text grown).
TEST(FormatAllocationFailure, NewAndAppendedResult) {
    const std::string format = std::string(700, '.') + "%-900s|%d";
    for (const char *initial : {static_cast<const char *>(nullptr), "start:"}) {
        char *out = nullptr;
        bool failed_before = false;
        auto raised = qvtest::fail_each_allocation(
            [&] { Asprintf_L(&out, format.c_str(), "item", 42); },
            [&] {
                if (failed_before) {
                    EXPECT_STREQ(Exc_GetFile_L(), "alloc");
                    EXPECT_EQ(take(out), initial ? initial : "<null>");
                }
                failed_before = true;
                Free_Alloc_Ptrs_L(); // the work text is registered and allocated again
                out = initial ? strdup(initial) : nullptr;
            });
        EXPECT_EQ(raised, std::vector<const char *>(5, ALLOC_FAILURE))
            << (initial ? initial : "null");
        EXPECT_EQ(take(out), (initial ? initial : "") + c_format(format.c_str(), "item", 42));
    }
}

// A counted string whose conversion runs out of memory with no context open: the raise's
// report formats too, so the call is abandoned and *out left as it was.
TEST(FormatAllocationFailure, CountedStringConversionWithoutContext) {
    char *out = strdup("kept");
    EXPECT_EQ(qv_format("%S", &counted_latin1), "h\xC3\xA9"); // the work text exists
    testing::internal::CaptureStderr();
    TestFailAllocation_L(0); // the converted copy
    EXPECT_EQ(Asprintf_L(&out, "ab%Scd", &counted_latin1), out);
    EXPECT_TRUE(TestAllocationFailed_L());
    TestFailAllocation_L(-1);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::HasSubstr("no context"));
    EXPECT_EQ(take(out), "kept");
}

} // namespace
