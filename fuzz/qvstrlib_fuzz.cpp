// qvstrlib_fuzz.cpp - the counted strings over arbitrary bytes in many encodings.
//
// Each input names one member (or a group of measuring members) and runs it twice, once
// as the members choose their path and once with the code-point path forced; the two must
// give the same result and leave the same bytes. On top of that the measurements are held
// to what reading the text gives (lengths, the bytes of n characters, which are a prefix of
// the text), and searches, comparison, LIKE and padding to slow models over the code points
// that converting the texts gives, and appending to the sum of the lengths. Output
// records are sometimes null.
//
// Input: a byte choosing the encoding of the main text, one for the other texts, one
// choosing the member, three texts (their raw bytes, ended here by the encoding's
// terminator), two integers and a byte of flags.
#include <algorithm>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "fuzz/fuzz.hpp"
#include "qv/qvstrlib.h"
#include "strings/encoding.hpp"
#include "strings/qvstrlib_internal.hpp"

namespace {

constexpr const char *encodings[] = {
    "UTF-8",   "US-ASCII",  "ISO-8859-1",  "UTF-16LE", "UTF-32LE",     "UTF-16",
    "GB18030", "Shift_JIS", "ISO-2022-JP", "UTF-7",    "windows-1252", "ISO-8859-3",
    "Big5",    "UTF-16BE",  "CESU-8",      "UTF-32",
};

using Points = std::vector<int32_t>;

// A counted string over given bytes, ended by its encoding's terminator on a unit boundary.
struct Text {
    QV_STRING_T s{nullptr, nullptr};
    Text() = default;
    Text(const std::string &bytes, const QV_ENCODING_T *encoding) {
        s.encoding = encoding;
        s.text = static_cast<char *>(std::calloc(bytes.size() + 8, 1)); // a whole unit of zeros
        std::memcpy(s.text, bytes.data(), bytes.size());
    }
    Text(const Text &) = delete;
    ~Text() { FreeString_SL(&s); }
    QV_STRING_T *get() { return &s; }
};

std::string bytes_of(const QV_STRING_T *s) {
    if (s == nullptr || s->text == nullptr) return "null";
    std::string name = s->encoding != nullptr ? s->encoding->name : "-";
    return name + ":" + fuzz::hex(std::string(s->text, static_cast<size_t>(Bytelen_SL(s, 0))));
}

// The code points of a counted string as converting it reads them: converted to UTF-8 (a
// UTF-8 text is copied as it is), then decoded; a U+0000 inside reads as U+FFFD.
Points points_of(const QV_STRING_T *s) {
    if (s == nullptr || s->text == nullptr) return {};
    char *utf8 = nullptr;
    int32_t bytes = 0;
    const int32_t result =
        ConvertEncoding_L(s->encoding, s->text, Bytelen_SL(s, 0), UTF8Encoding_L(), &utf8, &bytes);
    FUZZ_CHECK(result == 0, "conversion of %s failed", bytes_of(s).c_str());
    Points points;
    for (int32_t at = 0; at < bytes;) {
        int32_t c = 0;
        at += DecodeUTF8_L(utf8 + at, bytes - at, &c);
        points.push_back(c != 0 ? c : 0xFFFD); // a U+0000 cannot stand in a terminated text
    }
    std::free(utf8);
    return points;
}

// True when a text's bytes are what writing its characters gives (no invalid sequence).
bool canonical(const QV_STRING_T *s) {
    char *utf32 = nullptr, *back = nullptr;
    int32_t bytes = 0, length = 0;
    const QV_ENCODING_T *wide = LookupEncoding_L("UTF-32BE");
    ConvertEncoding_L(s->encoding, s->text, Bytelen_SL(s, 0), wide, &utf32, &bytes);
    ConvertEncoding_L(wide, utf32, bytes, s->encoding, &back, &length);
    bool same = length == Bytelen_SL(s, 0) && std::memcmp(back, s->text, length) == 0;
    std::free(utf32);
    std::free(back);
    return same;
}

// The case a member runs on: fresh copies of the texts for each run.
struct Case {
    std::string main, second, third;
    const QV_ENCODING_T *encoding, *other;
    int32_t x, y;
    uint8_t flags;
};

// What a member did: its result and the bytes it left, as one comparable line.
using Member = std::function<std::string(Case &, Text &, Text &, Text &)>;

std::string n(int64_t value) {
    return std::to_string(value);
}

QV_STRING_T *maybe_null(QV_STRING_T *out, const Case &c) {
    return (c.flags & 0x80) != 0 ? nullptr : out;
}

std::string take(QV_STRING_T *out) {
    std::string r = bytes_of(out);
    FreeString_SL(out);
    return r;
}

// The parts of an outcome, joined in order: the elements of a braced list are evaluated left
// to right, so a part may show what the parts before it did.
std::string join(std::initializer_list<std::string> parts) {
    std::string out;
    for (const std::string &part : parts) out += part + "|";
    return out;
}

const Member members[] = {
    [](Case &, Text &s, Text &, Text &) { return n(Strlen_SL(s.get())); },
    [](Case &c, Text &s, Text &, Text &) {
        return join({n(BytesForChars_SL(s.get(), c.x)), n(BytesForChars_SL(s.get(), c.y))});
    },
    [](Case &c, Text &s, Text &, Text &) {
        char buffer[80];
        const int32_t capacity = std::clamp(c.y, -1, 80);
        int32_t r = GetBytesFromChars_SL(s.get(), c.x, buffer, capacity);
        return join({n(r), r >= 0 ? fuzz::hex(std::string(buffer, static_cast<size_t>(r))) : ""});
    },
    [](Case &c, Text &s, Text &, Text &) {
        QV_STRING_T out{nullptr, nullptr};
        return join({bytes_of(Astrncpy_SL(maybe_null(&out, c), s.get(), c.x)), take(&out)});
    },
    [](Case &c, Text &s, Text &, Text &) {
        QV_STRING_T out{nullptr, nullptr};
        return join({n(SubString_SL(s.get(), c.x, c.y, maybe_null(&out, c))), take(&out)});
    },
    [](Case &c, Text &s, Text &t, Text &) {
        return join(
            {n(InString_SL(s.get(), t.get(), c.x, c.y)), n(CountString_SL(s.get(), t.get()))});
    },
    [](Case &, Text &s, Text &t, Text &) {
        return join({n(Strcmp_SL(s.get(), t.get())), n(Strcomp_SL(s.get(), t.get(), -1, 0)),
                     n(Is_Like_SL(s.get(), t.get()))});
    },
    [](Case &c, Text &s, Text &t, Text &) {
        return join({n(Pad_SL(s.get(), c.x % 300, t.get(), c.flags & 1)), bytes_of(s.get())});
    },
    [](Case &c, Text &s, Text &t, Text &u) {
        return join({n(ReplaceSubString_SL(s.get(), c.x, c.y, t.get())), bytes_of(s.get()),
                     n(ReplaceString_SL(u.get(), t.get(), s.get())), bytes_of(u.get())});
    },
    [](Case &c, Text &s, Text &t, Text &u) {
        QV_STRING_T out{nullptr, nullptr};
        const int32_t r = Translate_SL(s.get(), t.get(), u.get(), maybe_null(&out, c));
        return join({n(r == Bytelen_SL(&out, 0)), take(&out)});
    },
    [](Case &c, Text &s, Text &t, Text &) {
        QV_STRING_T out{nullptr, nullptr};
        return join({n(ExtractString_SL(s.get(), c.x, t.get(), maybe_null(&out, c))), take(&out)});
    },
    [](Case &c, Text &s, Text &t, Text &) {
        return join({n(TrimUtil_SL(s.get(), t.get(), c.x)), bytes_of(s.get()),
                     n(RemoveChars_SL(t.get(), s.get())), bytes_of(t.get())});
    },
    [](Case &c, Text &s, Text &, Text &) {
        return join({n(MakePrintable_SL(s.get(), c.x % 0x300)), bytes_of(s.get())});
    },
    [](Case &, Text &s, Text &t, Text &) {
        return join({n(Collapse_SL(s.get())), bytes_of(s.get()), n(StripComments_SL(t.get())),
                     bytes_of(t.get())});
    },
    [](Case &, Text &s, Text &t, Text &) {
        return join({n(RemoveFirstChar_SL(s.get())), n(RemoveLastChar_SL(s.get())),
                     bytes_of(s.get()), n(TruncateString_SL(t.get(), 2)), bytes_of(t.get())});
    },
    [](Case &c, Text &s, Text &, Text &) {
        return join({bytes_of(ToUpper_SL(s.get())), bytes_of(Initcap_SL(s.get())),
                     bytes_of(ToLower_SL(s.get())), n(Strchr_SL(s.get(), c.x % 0x110000))});
    },
    [](Case &c, Text &s, Text &, Text &) {
        QV_STRING_T out{nullptr, nullptr}, stripped{nullptr, nullptr}, rest{nullptr, nullptr};
        return join({n(Soundex_SL(s.get(), maybe_null(&out, c))), take(&out),
                     bytes_of(AStripAlNum_SL(maybe_null(&stripped, c), s.get())), take(&stripped),
                     n(Strqchr_SL(s.get(), maybe_null(&rest, c), ',')), bytes_of(s.get()),
                     take(&rest)});
    },
    [](Case &, Text &s, Text &, Text &) {
        int64_t value = 0;
        return join({n(IsSpaceStr_SL(s.get())), n(IsAlphaStr_SL(s.get())), n(IsAlnum_SL(s.get())),
                     n(IsDigit_SL(s.get())), n(IsLower_SL(s.get())), n(IsUpper_SL(s.get())),
                     n(IsSpace_SL(s.get())), n(IsAlpha_SL(s.get())), n(IsLocaleNumeric_SL(s.get())),
                     n(IsLocaleFloat_SL(s.get())), n(ScanForWhiteSpace_SL(s.get())),
                     n(ToInteger_SL(s.get(), &value)), n(value)});
    },
    [](Case &, Text &s, Text &t, Text &) {
        return join(
            {bytes_of(Astrcat_SL(t.get(), s.get())), bytes_of(Astrcat_SL(s.get(), s.get()))});
    },
};

// ---- Models over code points ------------------------------------------------------------

int32_t model_find(const Points &hay, const Points &needle, int32_t start, int32_t occurrence) {
    const auto n = static_cast<int64_t>(hay.size()), m = static_cast<int64_t>(needle.size());
    if (start == 0 || occurrence < 1 || m == 0) return 0;
    auto at = [&](int64_t i) { return std::equal(needle.begin(), needle.end(), hay.begin() + i); };
    int32_t seen = 0;
    if (start > 0) {
        for (int64_t i = start - 1; i + m <= n; ++i)
            if (at(i) && ++seen == occurrence) return static_cast<int32_t>(i + 1);
        return 0;
    }
    for (int64_t i = std::min(n + start, n - m); i >= 0; --i)
        if (at(i) && ++seen == occurrence) return static_cast<int32_t>(i + 1);
    return 0;
}

// Measuring: the length is what reading gives; the bytes of n characters are a prefix of
// the text that Astrncpy_SL and GetBytesFromChars_SL copy.
void check_measures(Case &c) {
    Text s(c.main, c.encoding);
    const Points points = points_of(s.get());
    const int32_t length = Strlen_SL(s.get()), bytes = Bytelen_SL(s.get(), 0);
    FUZZ_CHECK(length == static_cast<int32_t>(points.size()),
               "Strlen_SL(%s) = %d, conversion reads %zu", bytes_of(s.get()).c_str(), length,
               points.size());
    FUZZ_CHECK(length == 0 || BytesForChars_SL(s.get(), length) == bytes,
               "BytesForChars_SL(%s, all) = %d of %d", bytes_of(s.get()).c_str(),
               BytesForChars_SL(s.get(), length), bytes);
    const int32_t prefix = BytesForChars_SL(s.get(), c.x);
    FUZZ_CHECK(prefix >= 0 && prefix <= bytes, "BytesForChars_SL(%s, %d) = %d",
               bytes_of(s.get()).c_str(), c.x, prefix);
    QV_STRING_T copy;
    Astrncpy_SL(&copy, s.get(), c.x);
    FUZZ_CHECK(Bytelen_SL(&copy, 0) == prefix && std::memcmp(copy.text, s.s.text, prefix) == 0,
               "Astrncpy_SL(%s, %d) = %s", bytes_of(s.get()).c_str(), c.x, bytes_of(&copy).c_str());
    FreeString_SL(&copy);
    char buffer[64];
    const int32_t capacity = std::clamp(c.y, 4, 64);
    const int32_t got = GetBytesFromChars_SL(s.get(), c.x, buffer, capacity);
    FUZZ_CHECK(got >= 0 && got <= prefix && got <= capacity - s.s.encoding->terminator_width,
               "GetBytesFromChars_SL(%s, %d, %d) = %d", bytes_of(s.get()).c_str(), c.x, capacity,
               got);
}

void check_models(Case &c) {
    Text s(c.main, c.encoding), t(c.second, c.other);
    const Points ps = points_of(s.get()), pt = points_of(t.get());
    const int32_t found = InString_SL(s.get(), t.get(), c.x, c.y);
    FUZZ_CHECK(found == model_find(ps, pt, c.x, c.y), "InString_SL(%s, %s, %d, %d) = %d, model %d",
               bytes_of(s.get()).c_str(), bytes_of(t.get()).c_str(), c.x, c.y, found,
               model_find(ps, pt, c.x, c.y));
    const int32_t order = Strcmp_SL(s.get(), t.get());
    const int32_t model = ps < pt ? -1 : ps > pt ? 1 : 0;
    FUZZ_CHECK(order == model, "Strcmp_SL(%s, %s) = %d, model %d", bytes_of(s.get()).c_str(),
               bytes_of(t.get()).c_str(), order, model);
    const bool like = Is_Like_SL(s.get(), t.get()) != 0;
    FUZZ_CHECK(like == fuzz::model_like(ps, pt), "Is_Like_SL(%s, %s) = %d",
               bytes_of(s.get()).c_str(), bytes_of(t.get()).c_str(), like);
    // Appending joins characters; within an encoding whose texts join by their bytes, a text
    // ending in a cut sequence may join with what follows, so only whole texts are held to it.
    Text joined(c.second, c.other);
    const int32_t before = Strlen_SL(joined.get());
    Astrcat_SL(joined.get(), s.get());
    FUZZ_CHECK(Strlen_SL(joined.get()) == before + static_cast<int32_t>(ps.size()) ||
                   (qv::bytes_concatenate(c.other) && !canonical(t.get())),
               "Astrcat_SL(%s, %s) has %d characters", bytes_of(t.get()).c_str(),
               bytes_of(s.get()).c_str(), Strlen_SL(joined.get()));
    const int32_t target = std::clamp(c.x, -5, 200);
    Text padded(c.main, c.encoding);
    const int32_t r = Pad_SL(padded.get(), target, t.get(), c.flags & 1);
    FUZZ_CHECK(r == std::max(target, 0) && Strlen_SL(padded.get()) == r,
               "Pad_SL(%s, %d, %s) = %d, %d characters: %s", bytes_of(s.get()).c_str(), target,
               bytes_of(t.get()).c_str(), r, Strlen_SL(padded.get()),
               bytes_of(padded.get()).c_str());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input(data, size);
    Case c;
    c.encoding = LookupEncoding_L(encodings[input.choose(std::size(encodings))]);
    c.other = LookupEncoding_L(encodings[input.choose(std::size(encodings))]);
    const Member &member = members[input.choose(std::size(members))];
    c.main = input.text();
    c.second = input.text();
    c.third = input.text();
    c.x = input.integer();
    c.y = input.integer();
    c.flags = input.byte();
    if (c.flags & 2) c.other = c.encoding;
    auto run = [&] {
        std::string outcome;
        const char *raised = fuzz::protected_run([&] {
            Text s(c.main, c.encoding), t(c.second, c.other), u(c.third, c.other);
            outcome = member(c, s, t, u);
        });
        return raised != nullptr ? std::string("raised ") + raised : outcome;
    };
    const std::string chosen = run();
    qv::strlib::force_code_point_path = true;
    const std::string forced = run();
    qv::strlib::force_code_point_path = false;
    FUZZ_CHECK(chosen == forced, "paths disagree on %s / %s / %s (%d, %d, %d): %s against %s",
               c.encoding->name, fuzz::hex(c.main).c_str(), fuzz::hex(c.second).c_str(), c.x, c.y,
               c.flags, chosen.c_str(), forced.c_str());
    check_measures(c);
    check_models(c);
    return 0;
}
