// counted.hpp - counted strings for the tests: made from UTF-8 in any encoding, freed at
// the end of their scope, and read back as UTF-8.
#pragma once

#include <cstdlib>
#include <string>

#include "qv/qvstrlib.h"

namespace qvtest {

// A counted string made from UTF-8 in `encoding`; a null text stays null.
struct Str {
    QV_STRING_T s{nullptr, nullptr};
    Str() = default;
    Str(const char *utf8, const QV_ENCODING_T *encoding) {
        s.encoding = encoding;
        if (utf8 != nullptr)
            ConvertEncoding_L(UTF8Encoding_L(), utf8, -1, encoding, &s.text, nullptr);
    }
    // From bytes that may hold anything, invalid UTF-8 included.
    Str(const std::string &utf8, const QV_ENCODING_T *encoding) {
        s.encoding = encoding;
        ConvertEncoding_L(UTF8Encoding_L(), utf8.c_str(), static_cast<int32_t>(utf8.size()),
                          encoding, &s.text, nullptr);
    }
    Str(const Str &) = delete;
    ~Str() { FreeString_SL(&s); }
    QV_STRING_T *operator&() { return &s; }
};

// The text of a counted string in UTF-8; "<null>" for a null one.
inline std::string utf8_of(const QV_STRING_T *s) {
    if (s == nullptr || s->text == nullptr) return "<null>";
    char *out = nullptr;
    ConvertEncoding_L(s->encoding, s->text, -1, UTF8Encoding_L(), &out, nullptr);
    std::string text = out != nullptr ? out : "<fail>";
    std::free(out);
    return text;
}

} // namespace qvtest
