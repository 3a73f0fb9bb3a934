// format_fuzz.cpp - the library's formatter on format strings drawn from its grammar, each
// with arguments of the types its conversions read.
//
// An input makes up to eight calls appending to one result. Each call formats literal
// text, one conversion and more literal text: flags from "-0", a width (digits or "*"), a
// precision (digits, "*" or none) and one of the conversions of alloc.h. Where the
// library's conversion is the C library's (d i u o x X with or without "l", I64d as "lld",
// c, s and U, S as "s" of the text in UTF-8, f of a float's bits and lf), the appended
// text must be what vsnprintf writes; otherwise (p, "%%" and unknown conversions) the
// result is held to its documented shape. The result is the concatenation of all calls.
//
// Input: per call, a byte choosing the conversion and its flags, two integers for width and
// precision, a value (eight bytes, or a text), and two literal texts.
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <string>

#include "fuzz/fuzz.hpp"
#include "qv/alloc.h"
#include "qv/encoding.h"
#include "qv/qvstring.h"

namespace {

enum class Kind {
    int_value,
    long_value,
    long_long,
    float_bits,
    double_value,
    text,
    counted,
    pointer,
    none
};

struct Conversion {
    const char *library; // size and conversion as the library reads them
    const char *c;       // the same for vsnprintf; null when the C library differs
    Kind kind;
};

constexpr Conversion conversions[] = {
    {"d", "d", Kind::int_value},      {"i", "i", Kind::int_value},
    {"u", "u", Kind::int_value},      {"o", "o", Kind::int_value},
    {"x", "x", Kind::int_value},      {"X", "X", Kind::int_value},
    {"ld", "ld", Kind::long_value},   {"lu", "lu", Kind::long_value},
    {"lx", "lx", Kind::long_value},   {"lo", "lo", Kind::long_value},
    {"I64d", "lld", Kind::long_long}, {"c", "c", Kind::int_value},
    {"s", "s", Kind::text},           {"U", "s", Kind::text},
    {"S", "s", Kind::counted},        {"f", "f", Kind::float_bits},
    {"lf", "f", Kind::double_value},  {"p", nullptr, Kind::pointer},
    {"%", nullptr, Kind::none},       {"q", nullptr, Kind::none},
    {"+", nullptr, Kind::none},
};

constexpr const char *counted_encodings[] = {"UTF-8", "ISO-8859-1", "UTF-16LE", "GB18030",
                                             "UTF-16"};

// Formats with the library, appending to *out; `stars` width and precision arguments come
// first.
template <class Value>
void library_format(char **out, const char *format, int stars, const int *star, Value value) {
    if (stars == 0) Asprintf_L(out, format, value);
    if (stars == 1) Asprintf_L(out, format, star[0], value);
    if (stars == 2) Asprintf_L(out, format, star[0], star[1], value);
}

std::string c_vformat(const char *format, ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

template <class Value>
std::string c_format(const char *format, int stars, const int *star, Value value) {
    if (stars == 1) return c_vformat(format, star[0], value);
    if (stars == 2) return c_vformat(format, star[0], star[1], value);
    return c_vformat(format, value);
}

int64_t eight_bytes(fuzz::Input &input) {
    uint64_t value = 0;
    for (int i = 0; i < 8; ++i) value = value << 8 | input.byte();
    return static_cast<int64_t>(value);
}

// One call: its format, the C format when comparable, and what it must append.
struct Call {
    std::string format, c_format_text;
    bool comparable = true;
    int stars = 0;
    int star[2] = {0, 0};
};

// Flags, width and precision from the input; stars are kept within what vsnprintf's buffer
// holds.
std::string spec(fuzz::Input &input, uint8_t choice, Call &call, bool no_stars) {
    std::string text;
    if (choice & 1) text += '-';
    if (choice & 2) text += '0';
    if ((choice & 7) == 7) std::swap(text[0], text[1]); // "0-" as well as "-0"
    int32_t width = input.integer(), precision = input.integer();
    switch (no_stars ? 0 : (choice >> 3) % 3) {
        case 1: text += std::to_string(std::abs(width % 120)); break;
        case 2: text += '*', call.star[call.stars++] = width % 120; break;
        default: break;
    }
    switch (no_stars ? 0 : (choice >> 5) % 4) {
        case 1: text += '.' + std::to_string(std::abs(precision % 60)); break;
        case 2: text += ".*", call.star[call.stars++] = precision % 60; break;
        case 3: text += '.'; break;
        default: break;
    }
    return text;
}

// True when the precision given is zero ("." alone, ".0", or a "*" of 0).
bool zero_precision(const Call &call, const std::string &flags_and_sizes) {
    size_t dot = flags_and_sizes.find('.');
    if (dot == std::string::npos) return false;
    std::string digits = flags_and_sizes.substr(dot + 1);
    if (digits == "*") return call.star[call.stars - 1] == 0;
    return digits.empty() || std::stoi(digits) == 0;
}

// Runs one call; returns what it appended.
std::string run_call(fuzz::Input &input, char **out) {
    const uint8_t pick = input.byte(), choice = input.byte();
    const Conversion &conversion = conversions[pick % std::size(conversions)];
    const std::string before = input.text(), after = input.text();
    auto literal = [](const std::string &raw) {
        std::string text;
        for (char c : raw)
            if (c != '%' && c != '\0') text += c;
        return text;
    };
    Call call;
    const std::string modifiers = spec(input, choice, call, conversion.kind == Kind::none);
    const std::string head = literal(before), tail = literal(after);
    call.format = head + "%" + modifiers + conversion.library + tail;
    if (conversion.c != nullptr) call.c_format_text = head + "%" + modifiers + conversion.c + tail;
    const bool zero_flag = (choice & 2) != 0;
    const size_t was = *out != nullptr ? std::strlen(*out) : 0;
    std::string expected;
    const int64_t bits = eight_bytes(input);
    const char *format = call.format.c_str(), *c_format_text = call.c_format_text.c_str();
    switch (conversion.kind) {
        case Kind::int_value: {
            int value = static_cast<int>(bits);
            if (conversion.library[0] == 'c' && (value & 0xFF) == 0) value |= 'A';
            library_format(out, format, call.stars, call.star, value);
            expected = c_format(c_format_text, call.stars, call.star, value);
            call.comparable = !(conversion.library[0] == 'c' && zero_flag) &&
                              !(value == 0 && zero_precision(call, modifiers));
            break;
        }
        case Kind::long_value:
        case Kind::long_long: {
            long long value = bits;
            if (conversion.kind == Kind::long_value)
                library_format(out, format, call.stars, call.star, static_cast<long>(value));
            else
                library_format(out, format, call.stars, call.star, value);
            expected = c_format(c_format_text, call.stars, call.star, value);
            call.comparable = !(value == 0 && zero_precision(call, modifiers));
            break;
        }
        case Kind::float_bits: {
            auto raw = static_cast<unsigned int>(bits);
            float value;
            std::memcpy(&value, &raw, sizeof value);
            library_format(out, format, call.stars, call.star, raw);
            expected = c_format(c_format_text, call.stars, call.star, static_cast<double>(value));
            break;
        }
        case Kind::double_value: {
            double value;
            std::memcpy(&value, &bits, sizeof value);
            library_format(out, format, call.stars, call.star, value);
            expected = c_format(c_format_text, call.stars, call.star, value);
            break;
        }
        case Kind::text: {
            const std::string text = literal(input.text());
            const char *value = (bits & 7) == 0 ? nullptr : text.c_str();
            library_format(out, format, call.stars, call.star, value);
            expected = c_format(c_format_text, call.stars, call.star, value ? value : "<NULL>");
            call.comparable = !zero_flag;
            break;
        }
        case Kind::counted: {
            const std::string bytes = input.text() + std::string(4, '\0');
            QV_STRING_T counted{const_cast<char *>(bytes.data()),
                                LookupEncoding_L(counted_encodings[bits & 3])};
            char *utf8 = nullptr;
            ConvertEncoding_L(counted.encoding, counted.text, -1, UTF8Encoding_L(), &utf8, nullptr);
            library_format(out, format, call.stars, call.star, &counted);
            expected = c_format(c_format_text, call.stars, call.star, utf8 ? utf8 : "");
            std::free(utf8);
            call.comparable = !zero_flag;
            break;
        }
        case Kind::pointer: {
            library_format(out, format, call.stars, call.star,
                           reinterpret_cast<const void *>(static_cast<uintptr_t>(bits)));
            expected = c_vformat(("%s%p" + tail).c_str(), head.c_str(),
                                 reinterpret_cast<const void *>(static_cast<uintptr_t>(bits)));
            break;
        }
        case Kind::none: {
            Asprintf_L(out, format);
            expected = head + conversion.library + tail;
            break;
        }
    }
    const std::string appended = *out != nullptr ? std::string(*out + was) : std::string();
    if (call.comparable)
        FUZZ_CHECK(appended == expected, "Asprintf_L(\"%s\") appended \"%s\", expected \"%s\"",
                   fuzz::hex(call.format).c_str(), fuzz::hex(appended).c_str(),
                   fuzz::hex(expected).c_str());
    return appended;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    char *out = nullptr;
    std::string whole;
    const char *raised = fuzz::protected_run([&] {
        for (int call = 0; call < 8 && !input.empty(); ++call) whole += run_call(input, &out);
    });
    FUZZ_CHECK(raised == nullptr, "the formatter raised %s", raised);
    FUZZ_CHECK(whole == (out != nullptr ? out : ""),
               "the calls appended \"%s\" in all, result \"%s\"", fuzz::hex(whole).c_str(),
               fuzz::hex(out != nullptr ? out : "").c_str());
    std::free(out);
    return 0;
}
