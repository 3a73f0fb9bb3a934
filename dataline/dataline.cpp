// dataline.cpp - name characters and identifiers (module "dataline").
//
// ASCII code points are classified by a table; others ask the string layer's code-point
// classes. Identifiers are read as spans of the text, so the expression tokenizer reads them
// without copying and copies each name once, into the block its item keeps.
#include "dataline/dataline.hpp"

#include <array>
#include <cstdlib>
#include <cstring>

#include "core/heap.hpp"
#include "core/raise.hpp"

namespace {

enum : uint8_t { letter = 1, digit = 2, underscore = 4, at_sign = 8, colon = 16 };

constexpr std::array<uint8_t, 128> ascii_classes = [] {
    std::array<uint8_t, 128> classes{};
    for (int c = 'a'; c <= 'z'; ++c) classes[c] = classes[c - 'a' + 'A'] = letter;
    for (int c = '0'; c <= '9'; ++c) classes[c] = digit;
    classes['_'] = underscore;
    classes['@'] = at_sign;
    classes[':'] = colon;
    return classes;
}();

// The ASCII characters that may start / continue a name of the class.
constexpr uint8_t start_set(int32_t name_class) {
    return name_class == QV_NAME_CLASS_EXPRESSION ? letter | underscore | at_sign
                                                  : letter | underscore;
}
constexpr uint8_t continue_set(int32_t name_class) {
    return name_class == QV_NAME_CLASS_EXPRESSION ? letter | digit | underscore | at_sign | colon
                                                  : letter | digit | underscore;
}

} // namespace

namespace qv::dataline {

bool may_start(int32_t code_point, int32_t name_class) {
    if (code_point < 0) return false;
    if (code_point < 0x80) return (ascii_classes[code_point] & start_set(name_class)) != 0;
    return IsAlphaCodePoint_L(code_point) != 0;
}

bool may_continue(int32_t code_point, int32_t name_class) {
    if (code_point < 0) return false;
    if (code_point < 0x80) return (ascii_classes[code_point] & continue_set(name_class)) != 0;
    return IsAlnumCodePoint_L(code_point) != 0;
}

std::size_t bare_part_end(std::string_view text, std::size_t at, int32_t name_class) {
    const uint8_t ascii = continue_set(name_class);
    while (at < text.size()) {
        const auto byte = static_cast<unsigned char>(text[at]);
        if (byte < 0x80) {
            if ((ascii_classes[byte] & ascii) == 0) break;
            if (byte == ':' && at + 1 < text.size() && text[at + 1] == '=') break;
            ++at;
            continue;
        }
        const CodePoint c = code_point_at(text, at);
        if (!may_continue(c.value, name_class)) break;
        at += c.size;
    }
    return at;
}

Identifier read_part(std::string_view text, std::size_t at, int32_t name_class, NamePart &part) {
    part = NamePart{};
    if (at >= text.size()) return {QV_NAME_NONE, at};
    if (text[at] != '"') {
        const CodePoint first = code_point_at(text, at);
        if (!may_start(first.value, name_class)) return {QV_NAME_NONE, at};
        part.begin = at;
        part.end = bare_part_end(text, at + first.size, name_class);
        return {1, part.end};
    }
    if (!closed_part(text, at + 1, '"', part)) return {QV_NAME_UNCLOSED_QUOTE, at};
    if (part.end == part.begin) return {QV_NAME_EMPTY_PART, at};
    return {1, part.end + 1};
}

bool closed_part(std::string_view text, std::size_t begin, char quote, NamePart &part) {
    part = NamePart{};
    part.quoted = true;
    part.quote = quote;
    part.begin = begin;
    for (std::size_t p = begin;;) {
        const std::size_t close = text.find(quote, p);
        if (close == std::string_view::npos) return false;
        if (close + 1 < text.size() && text[close + 1] == quote) {
            ++part.doubled;
            p = close + 2;
            continue;
        }
        part.end = close;
        return true;
    }
}

char *copy_part(std::string_view text, const NamePart &part, char *out) {
    if (part.doubled == 0) {
        std::memcpy(out, text.data() + part.begin, part.end - part.begin);
        return out + (part.end - part.begin);
    }
    for (std::size_t p = part.begin; p < part.end; ++p) {
        *out++ = text[p];
        if (text[p] == part.quote) ++p; // the second of a doubled quote
    }
    return out;
}

char **name_block(std::string_view text, std::span<const NamePart> parts, std::size_t extra,
                  char **extra_at, const char *module, int line) {
    std::size_t bytes = parts.size() * sizeof(char *) + extra;
    for (const NamePart &part : parts) bytes += part.size() + 1;
    auto **block = static_cast<char **>(checked_malloc(bytes, module, line));
    if (block == nullptr) return nullptr;
    char *out = reinterpret_cast<char *>(block + parts.size());
    for (std::size_t i = 0; i < parts.size(); ++i) {
        block[i] = out;
        out = copy_part(text, parts[i], out);
        *out++ = '\0';
    }
    if (extra_at != nullptr) *extra_at = out;
    return block;
}

} // namespace qv::dataline

extern "C" {

QV_API uint8_t IsValidNameChar_L(int32_t code_point, int32_t name_class) {
    return qv::dataline::may_start(code_point, name_class) ? 1 : 0;
}

QV_API uint8_t IsValidNameCodePoint_L(int32_t code_point, int32_t name_class) {
    return qv::dataline::may_continue(code_point, name_class) ? 1 : 0;
}

QV_API int32_t ParseIdentifier_L(const char *text, int32_t name_class, char ***parts,
                                 int32_t *part_count) {
    if (text == nullptr) return QV_NAME_NONE;
    return QV_C_ENTRY([&]() -> int32_t {
        const std::string_view whole(text);
        qv::Vector<qv::dataline::NamePart> read;
        const qv::dataline::Identifier identifier = qv::dataline::read_identifier(
            whole, 0, name_class,
            [&](const qv::dataline::NamePart &part) { read.push_back(part); });
        if (identifier.status <= 0) return identifier.status;
        if (identifier.end > INT32_MAX) return QV_NAME_NONE;
        if (parts != nullptr) {
            char **block = qv::dataline::name_block(whole, read, 0, nullptr, QV_MODULE, __LINE__);
            if (block == nullptr) return QV_NAME_NONE;
            *parts = block;
        }
        if (part_count != nullptr) *part_count = static_cast<int32_t>(read.size());
        return static_cast<int32_t>(identifier.end);
    });
}

} // extern "C"
