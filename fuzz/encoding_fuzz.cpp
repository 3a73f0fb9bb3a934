// encoding_fuzz.cpp - conversion between encodings over arbitrary bytes: UTF-8, Latin-1,
// UTF-16 (both orders and the generic form with its byte-order mark), UTF-32, ASCII and
// multibyte and stateful encodings read through ICU.
//
// Checks: conversion succeeds and ends in the target's terminator; a buffer exactly as big
// as the heap result takes it and one byte less is too small; iterating the source gives the
// code points that converting it to UTF-32 gives; converting to a Unicode encoding keeps
// them; converting to a legacy encoding keeps one character per character (an unmappable
// one becomes the substitution character); one code point encodes to bytes that read back
// as it, and CodePointToString_SL makes a one-character string exactly when it does.
//
// Input: a byte choosing the source encoding, one choosing the target, then the text.
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz.hpp"
#include "qv/qvstrlib.h"

namespace {

struct Named {
    const char *name;
    bool unicode; // holds every code point
};

constexpr Named encodings[] = {
    {"UTF-8", true},   {"ISO-8859-1", false}, {"UTF-16LE", true},      {"UTF-16BE", true},
    {"UTF-16", true},  {"UTF-32LE", true},    {"UTF-32", true},        {"US-ASCII", false},
    {"GB18030", true}, {"Shift_JIS", false},  {"ISO-2022-JP", false},  {"UTF-7", true},
    {"CESU-8", true},  {"Big5", false},       {"windows-1252", false}, {"ISO-8859-3", false},
    {"EUC-JP", false}, {"IBM037", false},
};

using Points = std::vector<int32_t>;

std::string convert(const QV_ENCODING_T *from, const std::string &text, const QV_ENCODING_T *to) {
    char *out = nullptr;
    int32_t length = -1;
    int32_t result =
        ConvertEncoding_L(from, text.data(), static_cast<int32_t>(text.size()), to, &out, &length);
    FUZZ_CHECK(result == 0 && out != nullptr && length >= 0, "ConvertEncoding_L(%s, %s, %s) = %d",
               from->name, fuzz::hex(text).c_str(), to->name, result);
    for (int32_t i = 0; i < to->terminator_width; ++i)
        FUZZ_CHECK(out[length + i] == 0, "%s to %s: no terminator", from->name, to->name);
    std::string converted(out, static_cast<size_t>(length));
    std::free(out);
    return converted;
}

// The code points of a text as converting it reads them: converted to UTF-8 (a UTF-8 text
// is copied as it is), then decoded.
Points code_points_of(const QV_ENCODING_T *from, const std::string &text) {
    const std::string utf8 = convert(from, text, UTF8Encoding_L());
    Points points;
    for (size_t at = 0; at < utf8.size();) {
        int32_t c = 0;
        at += static_cast<size_t>(
            DecodeUTF8_L(utf8.data() + at, static_cast<int32_t>(utf8.size() - at), &c));
        points.push_back(c);
    }
    return points;
}

Points iterated(const QV_ENCODING_T *from, const std::string &text) {
    QV_CODEPOINT_ITER_T iter;
    FUZZ_CHECK(CodePointIterInit_L(&iter, from, text.data(), static_cast<int32_t>(text.size())) ==
                   0,
               "CodePointIterInit_L(%s) failed", from->name);
    Points points;
    const char *before = iter.position;
    for (int32_t c; (c = NextCodePoint_L(&iter)) >= 0 && points.size() <= text.size() * 2 + 8;) {
        points.push_back(c);
        FUZZ_CHECK(iter.position >= before && iter.position <= text.data() + text.size(),
                   "%s iteration stepped outside its text", from->name);
        before = iter.position;
    }
    CodePointIterEnd_L(&iter);
    return points;
}

std::string show(const Points &points) {
    std::string out;
    char item[16];
    for (int32_t c : points) {
        std::snprintf(item, sizeof item, "%X ", static_cast<unsigned>(c));
        out += item;
    }
    return out;
}

void check_exact_buffer(const QV_ENCODING_T *from, const std::string &text, const QV_ENCODING_T *to,
                        const std::string &heap) {
    const int32_t width = to->terminator_width;
    const auto room = static_cast<int32_t>(heap.size()) + width;
    std::vector<char> buffer(heap.size() + 8, 'x');
    const auto length = static_cast<int32_t>(text.size());
    int32_t got = ConvertEncodingNoAlloc_L(from, text.data(), length, to, buffer.data(), room);
    FUZZ_CHECK(got == static_cast<int32_t>(heap.size()) &&
                   std::memcmp(buffer.data(), heap.data(), heap.size()) == 0,
               "ConvertEncodingNoAlloc_L(%s, %s, %s, %d) = %d, heap conversion %zu bytes",
               from->name, fuzz::hex(text).c_str(), to->name, room, got, heap.size());
    got = ConvertEncodingNoAlloc_L(from, text.data(), length, to, buffer.data(), room - 1);
    FUZZ_CHECK(got == -2, "ConvertEncodingNoAlloc_L(%s to %s) in %d bytes = %d, expected -2",
               from->name, to->name, room - 1, got);
}

// One code point: its bytes read back as it, and the one-character string exists exactly
// when it can be encoded (never for U+0000).
void check_code_point(const QV_ENCODING_T *to, int32_t c) {
    char bytes[16];
    int32_t n = EncodeCodePoint_L(to, c, bytes, sizeof bytes);
    if (n > 0) {
        Points back = code_points_of(to, std::string(bytes, static_cast<size_t>(n)));
        FUZZ_CHECK(back == Points{c}, "EncodeCodePoint_L(%s, %X) reads back as %s", to->name,
                   static_cast<unsigned>(c), show(back).c_str());
    }
    QV_STRING_T s;
    bool made = CodePointToString_SL(&s, c, to) != nullptr;
    FUZZ_CHECK(made == (n > 0 && c != 0), "CodePointToString_SL(%X, %s) %s, encoded in %d bytes",
               static_cast<unsigned>(c), to->name, made ? "made" : "null", n);
    if (made) {
        FUZZ_CHECK(Strlen_SL(&s) == 1, "CodePointToString_SL(%X, %s) has %d characters",
                   static_cast<unsigned>(c), to->name, Strlen_SL(&s));
        FreeString_SL(&s);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    const Named &source = encodings[input.choose(std::size(encodings))];
    const Named &target = encodings[input.choose(std::size(encodings))];
    const std::string text = input.rest();
    const QV_ENCODING_T *from = LookupEncoding_L(source.name), *to = LookupEncoding_L(target.name);
    FUZZ_CHECK(from != nullptr && to != nullptr, "no descriptor for %s or %s", source.name,
               target.name);

    const Points points = code_points_of(from, text);
    const Points walked = iterated(from, text);
    FUZZ_CHECK(walked == points, "%s bytes %s: conversion gives [%s], iteration [%s]", from->name,
               fuzz::hex(text).c_str(), show(points).c_str(), show(walked).c_str());

    const std::string converted = convert(from, text, to);
    check_exact_buffer(from, text, to, converted);
    const Points kept = code_points_of(to, converted);
    if (target.unicode)
        FUZZ_CHECK(kept == points, "%s to %s of %s: [%s] became [%s]", from->name, to->name,
                   fuzz::hex(text).c_str(), show(points).c_str(), show(kept).c_str());
    else
        FUZZ_CHECK(kept.size() == points.size(), "%s to %s of %s: %zu characters became %zu",
                   from->name, to->name, fuzz::hex(text).c_str(), points.size(), kept.size());
    for (size_t i = 0; i < points.size() && i < 4; ++i) check_code_point(to, points[i]);
    return 0;
}
