// fuzz.hpp - what the fuzz targets share: reading a test case out of the fuzzer's bytes,
// failing a check with a readable line, hexadecimal dumps, and running a case under a status
// context of its own.
//
// Every target reads its input front to back with Input: single bytes that choose (an
// encoding, an operation), small integers drawn mostly from edge values, and texts given as
// a length byte followed by that many bytes (fewer when the input ends). Running out of
// input gives zeros and empty texts, so every input is a valid case; the seed corpora in
// fuzz/corpus/<target>/ are written in this form.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "core/raise.hpp"

namespace fuzz {

class Input {
  public:
    Input(const uint8_t *data, size_t size) : data_(data), size_(size) {}

    bool empty() const { return at_ == size_; }
    uint8_t byte() { return at_ < size_ ? data_[at_++] : 0; }
    bool flag() { return (byte() & 1) != 0; }
    // One of n choices (n >= 1).
    size_t choose(size_t n) { return byte() % n; }
    // An integer: mostly small or at an edge, sometimes any 32 bits.
    int32_t integer() {
        static constexpr int32_t edges[] = {0, 1, -1, 2, 3, 5, 8, INT32_MAX, INT32_MIN, -2, 100, 7};
        uint8_t b = byte();
        if (b < 128) return static_cast<int32_t>(b % 24) - 6;
        if (b < 240) return edges[b % std::size(edges)];
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) value = value << 8 | byte();
        return static_cast<int32_t>(value);
    }
    // A text: a length byte, then that many bytes.
    std::string text() {
        size_t n = byte();
        n = n < size_ - at_ ? n : size_ - at_;
        std::string out(reinterpret_cast<const char *>(data_ + at_), n);
        at_ += n;
        return out;
    }
    std::string rest() {
        std::string out(reinterpret_cast<const char *>(data_ + at_), size_ - at_);
        at_ = size_;
        return out;
    }

  private:
    const uint8_t *data_;
    size_t size_;
    size_t at_ = 0;
};

inline std::string hex(std::string_view bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char c : bytes) {
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

// The lines of a file as the library's line reader gives them: split at line feeds (a last
// line without one counts, an empty end does not), each cut at its first zero byte.
inline std::vector<std::string> lines_of(const std::string &bytes) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < bytes.size();) {
        size_t end = bytes.find('\n', at);
        if (end == std::string::npos) end = bytes.size();
        std::string line = bytes.substr(at, end - at);
        lines.push_back(line.substr(0, line.find('\0')));
        at = end + 1;
    }
    return lines;
}

// SQL LIKE over characters (code points), by dynamic programming: matches[i][j] when the
// first i characters of the text match the first j items of the pattern ("%" any run, "_"
// one character, "\" makes the next character literal, a final "\" stands for itself).
inline bool model_like(const std::vector<int32_t> &text, const std::vector<int32_t> &pattern) {
    enum : int32_t { any_run = -1, any_one = -2 };
    std::vector<int32_t> items;
    for (size_t j = 0; j < pattern.size(); ++j) {
        int32_t c = pattern[j];
        items.push_back(c == '%' ? any_run : c == '_' ? any_one : c);
        if (c == '\\' && j + 1 < pattern.size()) items.back() = pattern[++j];
    }
    std::vector<std::vector<char>> matches(text.size() + 1, std::vector<char>(items.size() + 1));
    matches[0][0] = 1;
    for (size_t i = 0; i <= text.size(); ++i)
        for (size_t j = 1; j <= items.size(); ++j) {
            int32_t item = items[j - 1];
            if (item == any_run)
                matches[i][j] = matches[i][j - 1] || (i > 0 && matches[i - 1][j]);
            else if (i > 0)
                matches[i][j] = matches[i - 1][j - 1] && (item == any_one || item == text[i - 1]);
        }
    return matches[text.size()][items.size()];
}

// Reports a failed check and stops, so that libFuzzer keeps the input as a crash.
[[noreturn]] inline void fail(const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::fputs("FUZZ CHECK FAILED: ", stderr);
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
    va_end(arguments);
    std::abort();
}

#define FUZZ_CHECK(condition, ...)                                                                 \
    do {                                                                                           \
        if (!(condition)) ::fuzz::fail(__VA_ARGS__);                                               \
    } while (0)

// Runs `body` under a status context of its own; returns the symbol a raise landed with,
// or null.
inline const char *protected_run(qv::FunctionRef<void()> body) {
    const char *raised = nullptr;
    qv::guarded("fuzz", "fuzz", __LINE__, body, [&](const char *symbol) { raised = symbol; });
    return raised;
}

} // namespace fuzz
