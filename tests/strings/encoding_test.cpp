// encoding_test.cpp - the encoding service: lookups, conversions checked against ICU
// directly, iteration, the UTF-8 helpers and the code-point classes.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <unicode/ucnv.h>
#include <unicode/utf8.h>

#include "capture.hpp"
#include "qv/encoding.h"

namespace {

using Points = std::vector<int32_t>;

// "Zoë € 𝄞": one-, two-, three- and four-byte characters.
const std::string sample_utf8 = "Zo\xC3\xAB \xE2\x82\xAC \xF0\x9D\x84\x9E";
const Points sample_code_points = {'Z', 'o', 0xEB, ' ', 0x20AC, ' ', 0x1D11E};

// Bytes with embedded zeros: "\x00\x41"_b.
std::string operator""_b(const char *bytes, size_t length) {
    return std::string(bytes, length);
}

// Converts with ICU's own one-shot API: the reference for conversions.
std::string icu_convert(const char *to, const char *from, const std::string &text) {
    UErrorCode status = U_ZERO_ERROR;
    std::string out(text.size() * 4 + 16, '\0');
    int32_t length = ucnv_convert(to, from, out.data(), static_cast<int32_t>(out.size()),
                                  text.data(), static_cast<int32_t>(text.size()), &status);
    EXPECT_TRUE(U_SUCCESS(status)) << u_errorName(status);
    out.resize(static_cast<size_t>(length));
    return out;
}

// Converts with the service, checking that the result ends in a terminator as wide as the
// target's.
std::string convert(const QV_ENCODING_T *from, const std::string &text, const QV_ENCODING_T *to) {
    char *out = nullptr;
    int32_t length = -5;
    const auto size = static_cast<int32_t>(text.size());
    EXPECT_EQ(ConvertEncoding_L(from, text.data(), size, to, &out, &length), 0);
    if (out == nullptr) return "<null>";
    std::string result(out, static_cast<size_t>(length));
    for (int32_t i = 0; i < (to ? to->terminator_width : 1); ++i) EXPECT_EQ(out[length + i], 0);
    std::free(out);
    return result;
}

// The code points the iterator gives for `text` (`length` bytes; -2: all of them). It reads an
// exact-size heap copy, so the address sanitizer sees any read past the end.
Points code_points(const QV_ENCODING_T *encoding, const std::string &text, int32_t length = -2) {
    QV_CODEPOINT_ITER_T iter;
    const std::vector<char> heap(text.begin(), text.end());
    if (length == -2) length = static_cast<int32_t>(text.size());
    EXPECT_EQ(CodePointIterInit_L(&iter, encoding, heap.data(), length), 0);
    Points result;
    for (int32_t c; (c = NextCodePoint_L(&iter)) >= 0;) result.push_back(c);
    CodePointIterEnd_L(&iter);
    CodePointIterEnd_L(&iter); // safe twice
    return result;
}

// The code points ICU decodes from `text`, through UTF-32.
Points icu_code_points(const char *encoding, const std::string &text) {
    std::string utf32 = icu_convert("UTF-32LE", encoding, text);
    Points result(utf32.size() / 4);
    std::memcpy(result.data(), utf32.data(), utf32.size());
    return result;
}

int sign(int32_t value) {
    return (value > 0) - (value < 0);
}

} // namespace

TEST(EncodingLookup, NamesAliasesAndDescriptors) {
    EXPECT_EQ(LookupEncoding_L("Utf8"), UTF8Encoding_L());
    EXPECT_EQ(LookupEncoding_L("UTF16_PlatformEndian"), UTF16Encoding_L());
    EXPECT_EQ(LookupEncoding_L("windows-1252"), LookupEncoding_L("cp1252"));
    for (const char *unknown : {"no-such", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(LookupEncoding_L(unknown), nullptr) << unknown;

    // The fields are measured from ICU's converters. Rows: descriptor, name, fewest and most
    // bytes per character, terminator width, ASCII-compatible, handled as UTF-8 directly.
    const std::tuple<const QV_ENCODING_T *, const char *, int32_t, int32_t, int32_t, int, int>
        fields[] = {
            {UTF8Encoding_L(), "UTF-8", 1, 4, 1, 1, 1},
            {ASCIIEncoding_L(), "US-ASCII", 1, 1, 1, 1, 1},
            {Latin1Encoding_L(), "ISO-8859-1", 1, 1, 1, 1, 0},
            {UTF16Encoding_L(), "UTF-16LE", 2, 4, 2, 0, 0},
            {UTF32Encoding_L(), "UTF-32LE", 4, 4, 4, 0, 0},
            {LookupEncoding_L("Shift_JIS"), "Shift_JIS", 1, 2, 1, 0, 0}, // 0x5C is the yen sign
            {LookupEncoding_L("GB18030"), "GB18030", 1, 4, 1, 1, 0},
            {LookupEncoding_L("ebcdic-cp-us"), "IBM037", 1, 1, 1, 0, 0},
        };
    for (const auto &[e, name, min_bytes, max_bytes, width, ascii, direct] : fields) {
        ASSERT_NE(e, nullptr) << name;
        EXPECT_STREQ(e->name, name);
        EXPECT_EQ(std::tuple(e->min_bytes, e->max_bytes, e->terminator_width,
                             int{e->ascii_compatible}, int{e->utf8_direct}),
                  std::tuple(min_bytes, max_bytes, width, ascii, direct))
            << name;
    }
}

TEST(EncodingConvert, RoundTripsAgreeWithIcu) {
    const char *names[] = {"UTF-8", "ISO-8859-1", "UTF-16LE", "UTF-32LE", "UTF-16BE", "GB18030"};
    // Latin-1 cannot hold the euro sign or the clef, so it gets a text it can hold.
    const std::string latin_text = "Zo\xC3\xAB caf\xC3\xA9 \xC3\x86";
    for (const char *from : names) {
        for (const char *to : names) {
            bool latin = !std::strcmp(from, "ISO-8859-1") || !std::strcmp(to, "ISO-8859-1");
            const std::string &utf8 = latin ? latin_text : sample_utf8;
            std::string converted = convert(LookupEncoding_L(from),
                                            icu_convert(from, "UTF-8", utf8), LookupEncoding_L(to));
            EXPECT_EQ(converted, icu_convert(to, "UTF-8", utf8)) << from << "->" << to;
            EXPECT_EQ(convert(LookupEncoding_L(to), converted, UTF8Encoding_L()), utf8);
        }
    }
    // Latin-1 bytes above 0x7F double in UTF-8, and UTF-8 to UTF-32 more than doubles.
    const std::string latin(5000, '\xE9');
    const std::string utf8 = convert(Latin1Encoding_L(), latin, UTF8Encoding_L());
    EXPECT_EQ(utf8.size(), 10000u);
    EXPECT_EQ(convert(UTF8Encoding_L(), std::string(3000, 'a'), UTF32Encoding_L()).size(), 12000u);
    EXPECT_EQ(convert(UTF8Encoding_L(), utf8, Latin1Encoding_L()), latin);
}

TEST(EncodingConvert, TerminatedSourcesNullDescriptorsAndBadArguments) {
    // -1 reads up to the source's own terminator, which is two zero bytes in UTF-16.
    std::string utf16 = icu_convert("UTF-16LE", "UTF-8", "A\xC4\x80") + "\0\0B"_b;
    char *out = nullptr;
    int32_t length = 0;
    ASSERT_EQ(ConvertEncoding_L(UTF16Encoding_L(), utf16.data(), -1, nullptr, &out, &length), 0);
    EXPECT_EQ(std::string(out, static_cast<size_t>(length)), "A\xC4\x80");
    std::free(out);
    // Null descriptors are the platform encoding, so this is a copy.
    ASSERT_EQ(ConvertEncoding_L(nullptr, "plain", -1, nullptr, &out, nullptr), 0);
    EXPECT_EQ(qvtest::take(out), "plain");
    ASSERT_EQ(ConvertEncoding_L(nullptr, "", 0, UTF32Encoding_L(), &out, &length), 0);
    EXPECT_EQ(length, 0);
    std::free(out);
    out = reinterpret_cast<char *>(1);
    EXPECT_EQ(ConvertEncoding_L(nullptr, nullptr, 3, nullptr, &out, nullptr), -1);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(ConvertEncoding_L(nullptr, "x", 1, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(ConvertEncoding_L(nullptr, "x", -2, nullptr, &out, nullptr), -1);
    char buffer[8];
    EXPECT_EQ(ConvertEncodingNoAlloc_L(nullptr, nullptr, 1, nullptr, buffer, 8), -1);
    EXPECT_EQ(ConvertEncodingNoAlloc_L(nullptr, "x", 1, nullptr, nullptr, 8), -1);
    EXPECT_EQ(ConvertEncodingNoAlloc_L(nullptr, "x", 1, nullptr, buffer, -1), -1);
}

TEST(EncodingConvert, InvalidAndUnmappableAreSubstituted) {
    using Encoding = const QV_ENCODING_T *;
    const QV_ENCODING_T *utf8 = UTF8Encoding_L(), *latin1 = Latin1Encoding_L(),
                        *utf16 = UTF16Encoding_L(), *ascii = ASCIIEncoding_L();
    const std::tuple<Encoding, std::string, Encoding, std::string> cases[] = {
        // A stray trail byte (copied as it is within one encoding), an overlong form, a
        // surrogate, a truncated end, unmappable characters.
        {utf8, "a\x80z", utf8, "a\x80z"},
        {utf8, "\xC0\xAF", utf16, "\xFD\xFF\xFD\xFF"_b},
        {utf8, "\xED\xA0\x80", latin1, "\x1A\x1A\x1A"},
        {utf8, "x\xE2\x82", utf16, "x\0\xFD\xFF"_b},
        {latin1, "\xE9", ascii, "\x1A"},
        {ascii, "a\xE9", utf8, "a\xEF\xBF\xBD"},
        {utf16, "\x00\xD8\x61\x00\x00\xDC"_b, utf8, "\xEF\xBF\xBD\x61\xEF\xBF\xBD"},
        // Unmappable default-ignorable characters are substituted too (not dropped).
        {utf8,
         "a\xEF\xBB\xBF"
         "b\xE2\x80\x8B"
         "c\xEF\xBF\xBF"
         "d",
         LookupEncoding_L("Big5"), "a?b?c?d"},
        {utf16, "\x6A\x20"_b, LookupEncoding_L("ISO-2022-JP"), "\x1A"},
        // A byte that is no character of a single-byte encoding.
        {LookupEncoding_L("ISO-8859-3"), "x\xA5", utf8, "x\xEF\xBF\xBD"},
    };
    for (const auto &[from, text, to, expected] : cases)
        EXPECT_EQ(convert(from, text, to), expected) << text;
}

// "é€" is 5 bytes of UTF-8 and 4 of UTF-16, and the terminator needs room too. Rows: text,
// target, capacity, result, the bytes the buffer then starts with.
TEST(EncodingConvert, NoAllocFitsOrSaysTooSmall) {
    const char *text = "\xC3\xA9\xE2\x82\xAC";
    const std::tuple<const char *, const QV_ENCODING_T *, int32_t, int32_t, std::string> cases[] = {
        {text, UTF8Encoding_L(), 6, 5, "\xC3\xA9\xE2\x82\xAC\0"_b},
        {text, UTF8Encoding_L(), 5, -2, "\0"_b},
        {text, UTF16Encoding_L(), 6, 4, "\xE9\x00\xAC\x20\x00\x00"_b},
        {text, UTF16Encoding_L(), 1, -2, "x"},       // no room for the terminator: nothing written
        {"abcd", Latin1Encoding_L(), 4, -2, "\0"_b}, // the ASCII fast path checks room too
        {"abcd", Latin1Encoding_L(), 5, 4, "abcd\0"_b},
    };
    for (const auto &[source, to, capacity, result, start] : cases) {
        char buffer[16];
        std::memset(buffer, 'x', sizeof buffer);
        EXPECT_EQ(ConvertEncodingNoAlloc_L(nullptr, source, -1, to, buffer, capacity), result);
        EXPECT_EQ(std::string(buffer, start.size()), start) << to->name << " " << capacity;
    }
}

// A buffer just big enough for what the heap conversion gives is big enough, one byte less is
// too small; ISO-2022-JP's shift sequences and substitutions pass through ICU's overflow
// buffer.
TEST(EncodingConvert, NoAllocFitsExactlySizedBuffers) {
    const std::tuple<const char *, std::string, const char *> cases[] = {
        {"UTF-16LE", "jef "_b, "ISO-2022-JP"},
        {"UTF-8",
         "a\xE6\x97\xA5\xE6\x9C\xAC"
         "b\xEF\xBB\xBF",
         "ISO-2022-JP"},
        {"UTF-8", std::string(3000, 'x') + "\xE6\x97\xA5", "ISO-2022-JP"},
        {"UTF-8", "Zo\xC3\xAB \xE2\x82\xAC", "UTF-7"},
        {"UTF-8", "Zo\xC3\xAB", "UTF-16"},
        {"GB18030", "\xFF\x81\x30", "UTF-8"},
    };
    for (const auto &[from, text, to] : cases) {
        const QV_ENCODING_T *source = LookupEncoding_L(from), *target = LookupEncoding_L(to);
        const std::string heap = convert(source, text, target);
        const auto size = static_cast<int32_t>(heap.size());
        std::vector<char> buffer(heap.size() + 8);
        const auto length = static_cast<int32_t>(text.size());
        const int32_t room = size + target->terminator_width;
        EXPECT_EQ(
            ConvertEncodingNoAlloc_L(source, text.data(), length, target, buffer.data(), room),
            size)
            << from << " to " << to;
        EXPECT_EQ(std::string(buffer.data(), heap.size()), heap) << from << " to " << to;
        EXPECT_EQ(
            ConvertEncodingNoAlloc_L(source, text.data(), length, target, buffer.data(), room - 1),
            -2)
            << from << " to " << to;
    }
}

TEST(EncodingConvert, AllocationFailureRaisesAndLeavesNothing) {
    // Latin-1 to UTF-32 takes four times the bytes: the first allocation, then one growth.
    const std::string latin(3000, '\xE9');
    char *out = nullptr;
    EXPECT_EQ(qvtest::fail_each_allocation([&] {
                  ConvertEncoding_L(Latin1Encoding_L(), latin.data(), 3000, UTF32Encoding_L(), &out,
                                    nullptr);
              }),
              std::vector<const char *>(2, ALLOC_FAILURE));
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(std::string(out, 4), "\xE9\x00\x00\x00"_b);
    std::free(out);
    // Without a status context the failure only reports: the call returns -1 and null.
    TestFailAllocation_L(0);
    out = reinterpret_cast<char *>(1);
    EXPECT_EQ(ConvertEncoding_L(nullptr, "abc", 3, nullptr, &out, nullptr), -1);
    EXPECT_EQ(out, nullptr);
    TestFailAllocation_L(-1);
}

TEST(EncodingIterate, EachEncodingYieldsTheCodePoints) {
    for (const char *name :
         {"UTF-8", "UTF-16LE", "UTF-16BE", "UTF-32LE", "UTF-32BE", "GB18030", "UTF-16", "UTF-7"}) {
        std::string text = icu_convert(name, "UTF-8", sample_utf8);
        EXPECT_EQ(code_points(LookupEncoding_L(name), text), sample_code_points) << name;
    }
    EXPECT_EQ(code_points(Latin1Encoding_L(), "a\xE9\xFF"), (Points{'a', 0xE9, 0xFF}));
    EXPECT_EQ(code_points(ASCIIEncoding_L(), "a\xE9"), (Points{'a', 0xFFFD}));
    EXPECT_EQ(code_points(nullptr, "ab"), (Points{'a', 'b'}));
    // -1 stops at the terminator of the encoding's width.
    const std::string utf16 = "a\x00\x00\x01\x00\x00"_b;
    EXPECT_EQ(code_points(UTF16Encoding_L(), utf16), (Points{'a', 0x100, 0}));
    EXPECT_EQ(code_points(UTF16Encoding_L(), utf16, -1), (Points{'a', 0x100}));

    EXPECT_EQ(CodePointIterInit_L(nullptr, nullptr, "a", 1), -1);
    QV_CODEPOINT_ITER_T iter; // a null text is empty
    ASSERT_EQ(CodePointIterInit_L(&iter, nullptr, nullptr, 5), 0);
    EXPECT_EQ(NextCodePoint_L(&iter), -1);
    CodePointIterEnd_L(&iter);
    EXPECT_EQ(NextCodePoint_L(nullptr), -1);
    CodePointIterEnd_L(nullptr);
}

// Malformed input of each hand-decoded encoding: the iterator gives the same U+FFFDs as
// ICU's converter (one for the longest start of a well-formed sequence: a stray byte, an
// overlong form, a surrogate, a sequence cut short by a non-trail byte or by the end), so
// counting by iteration and by conversion agree.
TEST(EncodingIterate, InvalidInputMatchesIcuDecoding) {
    const std::pair<const char *, std::string> cases[] = {
        {"UTF-8", "a\x80\xBFz\xC0\x80\xC1\xBF\xE0\x80\x80\xE0\xA0z\xED\xA0\x80\xED\x9F\xBF"
                  "\xF0\x8F\xBF\xBF\xF4\x90\x80\x80\xF5\xF8\xFF\xF0\x9D\x84z\xE0\xA0"},
        {"UTF-16LE", "\x00\xDC\x00\xD8\x61\x00\x00\xD8"_b},
        {"UTF-16LE", "\x61\x00\x62"_b},
        {"UTF-16LE", "\x61\x00\x00\xD8\x62"_b},
        {"UTF-16BE", "\xD8\x00\xDC\x00\xDC\x00"_b},
        {"UTF-32LE", "\x00\xD8\x00\x00\x00\x00\x11\x00\x61\x00\x00\x00\x62"_b},
        // Through ICU: a lone surrogate, a character held back while looking for a trail
        // surrogate, bits left over at the end.
        {"CESU-8", "\xED\xA0\x80"
                   "A"},
        {"CESU-8", "\x00\xDC\xED\xA0\x80\x41"_b},
        {"UTF-7", "+2AA-A"},
        {"UTF-7", "+cesu8e"},
        {"UTF-7", "+usu"},
        {"GB18030", "\xFF\x81\x30\x81"},
    };
    for (const auto &[name, text] : cases)
        EXPECT_EQ(code_points(LookupEncoding_L(name), text), icu_code_points(name, text)) << name;
}

// The generic UTF-16 and UTF-32 read a byte-order mark as the text's order (not as a
// character), else the platform's order; what is written in them carries no mark.
TEST(EncodingIterate, ByteOrderMarks) {
    const std::pair<const char *, std::string> cases[] = {
        {"UTF-16", "\xFF\xFE\x61\x00\x00\xD8"_b},
        {"UTF-16", "\xFE\xFF\x00\x61\xD8\x00"_b},
        {"UTF-16", "\x61\x00\x00\xD8"_b},
        {"UTF-32", "\x00\x00\xFE\xFF\x00\x00\x00\x61"_b},
        {"UTF-32", "\xFF\xFE\x00\x00\x61\x00\x00\x00"_b},
    };
    for (const auto &[name, text] : cases) {
        const QV_ENCODING_T *e = LookupEncoding_L(name);
        EXPECT_EQ(code_points(e, text)[0], 'a') << name << " " << text.size();
        EXPECT_EQ(convert(e, text, UTF8Encoding_L()).substr(0, 1), "a") << name;
        EXPECT_EQ(convert(UTF8Encoding_L(), "a", e),
                  convert(UTF8Encoding_L(), "a",
                          !std::strcmp(name, "UTF-16") ? UTF16Encoding_L() : UTF32Encoding_L()));
    }
    // A first character that would read as a mark (U+FEFF, U+FFFE) gets one before it.
    char buffer[8];
    const QV_ENCODING_T *utf16 = LookupEncoding_L("UTF-16");
    EXPECT_EQ(EncodeCodePoint_L(utf16, 'x', buffer, sizeof buffer), 2);
    for (int32_t c : {0xFEFF, 0xFFFE}) {
        ASSERT_EQ(EncodeCodePoint_L(utf16, c, buffer, sizeof buffer), 4) << std::hex << c;
        EXPECT_EQ(code_points(utf16, std::string(buffer, 4)), Points{c});
        EXPECT_EQ(EncodeCodePoint_L(utf16, c, buffer, 3), -1);
    }
}

TEST(EncodingEncode, CodePointsInEachEncoding) {
    // Rows: encoding, code point, its bytes (empty: it cannot be encoded).
    const QV_ENCODING_T *utf8 = UTF8Encoding_L(), *cp1252 = LookupEncoding_L("windows-1252");
    const std::tuple<const QV_ENCODING_T *, int32_t, std::string> cases[] = {
        {utf8, 0xD800, ""},
        {utf8, 0x110000, ""},
        {Latin1Encoding_L(), 0xFF, "\xFF"},
        {Latin1Encoding_L(), 0x100, ""},
        {ASCIIEncoding_L(), 0x80, ""},
        {UTF16Encoding_L(), 0x1D11E, "\x34\xD8\x1E\xDD"_b},
        {LookupEncoding_L("UTF-16BE"), 0x20AC, "\x20\xAC"_b},
        {UTF32Encoding_L(), 0x20AC, "\xAC\x20\x00\x00"_b},
        {LookupEncoding_L("UTF-32BE"), 0x41, "\x00\x00\x00\x41"_b},
        {cp1252, 0x20AC, "\x80"},
        {cp1252, 0x3042, ""},
    };
    char buffer[8];
    for (const auto &[encoding, code_point, expected] : cases) {
        int32_t length = EncodeCodePoint_L(encoding, code_point, buffer, sizeof buffer);
        ASSERT_EQ(length, expected.empty() ? -1 : static_cast<int32_t>(expected.size()))
            << std::hex << code_point;
        EXPECT_EQ(std::string(buffer, expected.size()), expected);
        // One byte less does not fit.
        EXPECT_EQ(EncodeCodePoint_L(encoding, code_point, buffer, std::max(length - 1, 0)), -1);
    }
    EXPECT_EQ(EncodeCodePoint_L(nullptr, 'a', nullptr, 4), -1);
    EXPECT_EQ(EncodeCodePoint_L(nullptr, 0xE9, buffer, 4), 2); // platform: UTF-8
}

// Every scalar value, encoded by ICU as the reference, decodes back and encodes alike.
TEST(EncodingUtf8, DecodeAndEncodeEveryCodePoint) {
    for (int32_t c = 0; c <= 0x10FFFF; c = c == 0xD7FF ? 0xE000 : c + 1) {
        char bytes[4], encoded[4];
        int32_t size = 0, decoded = -1;
        U8_APPEND_UNSAFE(bytes, size, c);
        ASSERT_EQ(DecodeUTF8_L(bytes, size, &decoded), size) << std::hex << c;
        ASSERT_EQ(decoded, c);
        ASSERT_EQ(UTF8TrailBytes_L[static_cast<uint8_t>(bytes[0])], size - 1) << std::hex << c;
        ASSERT_EQ(EncodeCodePoint_L(UTF8Encoding_L(), c, encoded, 4), size) << std::hex << c;
        ASSERT_EQ(std::memcmp(encoded, bytes, static_cast<size_t>(size)), 0) << std::hex << c;
    }
    for (int lead : {0x80, 0xBF, 0xC0, 0xC1, 0xF5, 0xFF}) EXPECT_EQ(UTF8TrailBytes_L[lead], 0);
    // Invalid input is the iterator's test, against ICU; here the length limits.
    int32_t code_point = 0;
    EXPECT_EQ(DecodeUTF8_L("abc", 0, &code_point), 0);
    EXPECT_EQ(DecodeUTF8_L("abc", -1, &code_point), 0);
    EXPECT_EQ(DecodeUTF8_L(nullptr, 3, &code_point), 0);
    // A length shorter than the sequence stops the decoder there.
    EXPECT_EQ(DecodeUTF8_L("\xE2\x82\xAC", 2, &code_point), 2);
    EXPECT_EQ(code_point, 0xFFFD);
}

TEST(EncodingUtf8, StrlenAndStricmp) {
    // Texts long enough to cross the 8-byte steps; each stray trail byte, and each
    // truncated sequence, is one U+FFFD.
    const std::pair<const char *, int32_t> lengths[] = {
        {"", 0},
        {"abcdefghijklmnopq", 17},
        {"abcdefg\xE2\x82\xAC!bcdefgh\xF0\x9D\x84\x9E", 17},
        {"\x80\x80", 2},
        {"abcdefgh\xE2\x82", 9},
        {sample_utf8.c_str(), static_cast<int32_t>(sample_code_points.size())}};
    for (const auto &[text, characters] : lengths)
        EXPECT_EQ(StrlenUTF8_L(text), characters) << text;
    EXPECT_EQ(StrlenUTF8_L(nullptr), 0);

    // Full folding (ß is ss; Σ and σ), then comparison by code point, not UTF-16 order.
    const std::tuple<const char *, const char *, int> comparisons[] = {
        {"Stra\xC3\x9Fx", "STRASSX", 0},
        {"\xC3\x89t\xC3\xA9", "\xC3\xA9T\xC3\x89", 0},
        {"\xCE\xA3", "\xCF\x83", 0},
        {"", "", 0},
        {"abc", "abd", -1},
        {"ab", "abc", -1},
        {"\xEF\xBF\xBF", "\xF0\x90\x80\x80", -1}};
    for (const auto &[left, right, order] : comparisons) {
        EXPECT_EQ(sign(StricmpUTF8_L(left, right)), order) << left << " " << right;
        EXPECT_EQ(sign(StricmpUTF8_L(right, left)), -order) << left << " " << right;
    }
    EXPECT_LT(StricmpUTF8_L(nullptr, ""), 0);
    EXPECT_GT(StricmpUTF8_L("", nullptr), 0);
    EXPECT_EQ(StricmpUTF8_L(nullptr, nullptr), 0);
}

TEST(EncodingUtf8, IsAsciiAtEveryPosition) {
    // A high byte at each position of texts of many lengths, so every word and tail
    // boundary of the scan is crossed.
    for (int32_t length = 0; length <= 70; ++length) {
        std::vector<char> text(static_cast<size_t>(length), 'a');
        EXPECT_EQ(IsASCIIString_L(text.data(), length), 1) << length;
        for (int32_t at = 0; at < length; ++at) {
            text[static_cast<size_t>(at)] = '\x80';
            EXPECT_EQ(IsASCIIString_L(text.data(), length), 0) << length << " " << at;
            // Outside the given length it does not count.
            EXPECT_EQ(IsASCIIString_L(text.data(), at), 1) << length << " " << at;
            text[static_cast<size_t>(at)] = 'a';
        }
    }
    EXPECT_EQ(IsASCIIString_L("caf\xC3\xA9", -1), 0);
    EXPECT_EQ(IsASCIIString_L(nullptr, 5), 1);
}

// Rows: code point; white space, digit, letter, upper case, lower case; its upper and lower
// case.
TEST(EncodingClasses, FollowIcuProperties) {
    const std::tuple<int32_t, bool, bool, bool, bool, bool, int32_t, int32_t> cases[] = {
        {' ', true, false, false, false, false, ' ', ' '},
        {0x1F, false, false, false, false, false, 0x1F, 0x1F},      // unit separator: not space
        {0xA0, true, false, false, false, false, 0xA0, 0xA0},       // no-break space
        {0x0663, false, true, false, false, false, 0x0663, 0x0663}, // Arabic-Indic three
        {'a', false, false, true, false, true, 'A', 'a'},
        {0xC9, false, false, true, true, false, 0xC9, 0xE9},
        {0x4E2D, false, false, true, false, false, 0x4E2D, 0x4E2D},
        {-5, false, false, false, false, false, -5, -5},
        {0x110000, false, false, false, false, false, 0x110000, 0x110000},
    };
    for (const auto &[c, space, digit, alpha, upper, lower, upper_case, lower_case] : cases) {
        EXPECT_EQ(std::tuple(IsSpaceCodePoint_L(c), IsDigitCodePoint_L(c), IsAlphaCodePoint_L(c),
                             IsAlnumCodePoint_L(c), IsUpperCodePoint_L(c), IsLowerCodePoint_L(c)),
                  std::tuple(space, digit, alpha, alpha || digit, upper, lower))
            << std::hex << c;
        EXPECT_EQ(ToUpperCodePoint_L(c), upper_case) << std::hex << c;
        EXPECT_EQ(ToLowerCodePoint_L(c), lower_case) << std::hex << c;
    }
}
