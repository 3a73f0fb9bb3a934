// textutil_fuzz.cpp - the byte routines of textutil.h over arbitrary bytes, each checked
// against a slow model written from its contract: LIKE matching (a table over characters,
// a UTF-8 character being what DecodeUTF8_L steps over, compared by code point), padding,
// trimming, translation, quote recognition and the checksum fold.
//
// Input: a text, a pattern (or set, pad), then an integer and a byte for the routines that
// take them.
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/fuzz.hpp"
#include "qv/encoding.h"
#include "qv/textutil.h"

namespace {

using Chars = std::vector<int32_t>;
using Pieces = std::vector<std::string>;

// Up to the first zero byte: the routines read terminated texts.
std::string terminated(const std::string &bytes) {
    return bytes.substr(0, bytes.find('\0'));
}

// The characters of a text with their bytes: one per byte, or one per UTF-8 character as
// DecodeUTF8_L steps over it (its code point U+FFFD when invalid).
void split(const std::string &s, bool utf8, Chars &code_points, Pieces &pieces) {
    for (size_t at = 0, n; at < s.size(); at += n) {
        int32_t c = static_cast<uint8_t>(s[at]);
        n = 1;
        if (utf8)
            n = static_cast<size_t>(
                DecodeUTF8_L(s.data() + at, static_cast<int32_t>(s.size() - at), &c));
        code_points.push_back(c);
        pieces.push_back(s.substr(at, n));
    }
}

Chars characters(const std::string &s, bool utf8) {
    Chars code_points;
    Pieces pieces;
    split(s, utf8, code_points, pieces);
    return code_points;
}

void check_like(const std::string &text, const std::string &pattern) {
    for (bool utf8 : {false, true}) {
        bool expected = fuzz::model_like(characters(text, utf8), characters(pattern, utf8));
        uint8_t got = utf8 ? Is_Like8_L(text.c_str(), pattern.c_str())
                           : Is_Like_L(text.c_str(), pattern.c_str());
        FUZZ_CHECK(got == expected, "%s(%s, %s) = %d, model %d", utf8 ? "Is_Like8_L" : "Is_Like_L",
                   fuzz::hex(text).c_str(), fuzz::hex(pattern).c_str(), got, expected);
    }
}

std::string take(char *heap_text) {
    std::string out = heap_text != nullptr ? heap_text : "<null>";
    std::free(heap_text);
    return out;
}

void check_pad(const std::string &text, int32_t length, const std::string &pad, bool at_left) {
    length = length % 600; // keep the model quick
    for (bool utf8 : {false, true}) {
        Chars unused;
        Pieces text_pieces, pad_pieces;
        split(text, utf8, unused, text_pieces);
        split(pad.empty() ? " " : pad, utf8, unused, pad_pieces);
        std::string kept, padding;
        for (int32_t i = 0; i < length && i < static_cast<int32_t>(text_pieces.size()); ++i)
            kept += text_pieces[static_cast<size_t>(i)];
        for (int32_t i = 0; i < length - static_cast<int32_t>(text_pieces.size()); ++i)
            padding += pad_pieces[static_cast<size_t>(i) % pad_pieces.size()];
        std::string expected = at_left ? padding + kept : kept + padding;
        std::string got = take(utf8 ? Pad8_L(text.c_str(), length, pad.c_str(), at_left)
                                    : Pad_L(text.c_str(), length, pad.c_str(), at_left));
        FUZZ_CHECK(got == expected, "Pad%s_L(%s, %d, %s) = %s, model %s", utf8 ? "8" : "",
                   fuzz::hex(text).c_str(), length, fuzz::hex(pad).c_str(), fuzz::hex(got).c_str(),
                   fuzz::hex(expected).c_str());
    }
}

void check_trim(const std::string &text, const std::string &set, int32_t where, bool by_set) {
    for (bool utf8 : {false, true}) {
        Chars code_points, set_points;
        Pieces pieces, set_pieces;
        split(text, utf8, code_points, pieces);
        split(set, utf8, set_points, set_pieces);
        auto trimmed = [&](size_t i) {
            if (!by_set) {
                int32_t c = code_points[i];
                return utf8 ? IsSpaceCodePoint_L(c) != 0 : (c == ' ' || (c >= '\t' && c <= '\r'));
            }
            for (const std::string &piece : set_pieces)
                if (piece == pieces[i]) return true;
            return false;
        };
        size_t begin = 0, end = pieces.size();
        if (where & QV_TRIM_LEFT)
            while (begin < end && trimmed(begin)) ++begin;
        if (where & QV_TRIM_RIGHT)
            while (end > begin && trimmed(end - 1)) --end;
        std::string expected;
        for (size_t i = begin; i < end; ++i) expected += pieces[i];
        std::string copy = text;
        const char *chosen = by_set ? set.c_str() : nullptr;
        std::string got =
            utf8 ? TrimUtil8_L(copy.data(), chosen, where) : TrimUtil_L(copy.data(), chosen, where);
        FUZZ_CHECK(got == expected, "TrimUtil%s_L(%s, %s, %d) = %s, model %s", utf8 ? "8" : "",
                   fuzz::hex(text).c_str(), by_set ? fuzz::hex(set).c_str() : "null", where,
                   fuzz::hex(got).c_str(), fuzz::hex(expected).c_str());
    }
}

void check_translate(const std::string &text, const std::string &from, const std::string &to) {
    std::string expected;
    for (char c : text) {
        size_t at = from.find(c);
        if (at == std::string::npos)
            expected += c;
        else if (at < to.size())
            expected += to[at];
    }
    std::string copy = text;
    std::string got = Translate_L(copy.data(), from.c_str(), to.c_str());
    FUZZ_CHECK(got == expected, "Translate_L(%s, %s, %s) = %s, model %s", fuzz::hex(text).c_str(),
               fuzz::hex(from).c_str(), fuzz::hex(to).c_str(), fuzz::hex(got).c_str(),
               fuzz::hex(expected).c_str());
}

void check_quoted(const std::string &text) {
    bool quoted = text.size() >= 2 && text.front() == '\'' && text.back() == '\'';
    int32_t inner = static_cast<int32_t>(text.size());
    if (quoted) {
        inner = 0;
        for (size_t i = 1; i + 1 < text.size() && quoted; ++i, ++inner)
            if (text[i] == '\'') quoted = text[++i] == '\'' && i + 1 < text.size();
        if (!quoted) inner = static_cast<int32_t>(text.size());
    }
    int32_t length = -1;
    uint8_t got = IsQuoted_L(text.c_str(), &length);
    FUZZ_CHECK(got == quoted && length == inner, "IsQuoted_L(%s) = %d %d, model %d %d",
               fuzz::hex(text).c_str(), got, length, quoted, inner);
}

void check_crc(const std::string &bytes, uint32_t previous) {
    uint32_t crc = previous;
    for (unsigned char byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc & 1) ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
    }
    uint32_t got = crc32_L(previous, bytes.data(), bytes.size());
    FUZZ_CHECK(got == ~crc, "crc32_L(%08x, %s) = %08x, model %08x", previous,
               fuzz::hex(bytes).c_str(), got, ~crc);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    const std::string raw_text = input.text(), raw_other = input.text();
    const std::string text = terminated(raw_text), other = terminated(raw_other);
    const int32_t number = input.integer();
    const uint8_t choice = input.byte();
    check_like(text, other);
    check_pad(text, number, other, choice & 1);
    check_trim(text, other, 1 + choice % 3, (choice & 4) != 0);
    check_translate(text, other, terminated(input.text()));
    check_quoted(text);
    check_crc(raw_text, static_cast<uint32_t>(number));
    return 0;
}
