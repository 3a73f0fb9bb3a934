// encoding.cpp - the encoding service over ICU: encoding descriptors, conversion between
// encodings, code-point iteration, UTF-8 helpers and code-point classes.
//
// Descriptors are made on first use, one per ICU converter name, and never freed: a
// lookup by any alias ICU knows returns the same pointer. The cache is guarded by a mutex;
// the conversion converters are cached per thread (a converter carries state).
//
// Invalid input never fails a call: ICU's substitution callbacks put the target's
// substitution character for every invalid or unmappable sequence. The hand-written
// decoders (UTF-8, UTF-16, UTF-32) follow ICU's rule for how much one U+FFFD covers (the
// longest prefix of a well-formed sequence, at least one unit), so iterating a text and
// converting it give the same code points. A conversion between an encoding and itself,
// and of all-ASCII text between ASCII-compatible encodings, copies the bytes as they are
// (invalid bytes included).
#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <unordered_map>
#include <utility>

#include <unicode/ucnv.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include "core/raise.hpp"
#include "qv/encoding.h"

static_assert(std::is_standard_layout_v<QV_ENCODING_T> &&
              std::is_trivially_copyable_v<QV_ENCODING_T>);
static_assert(std::is_standard_layout_v<QV_CODEPOINT_ITER_T>);

namespace {

constexpr int32_t replacement_character = 0xFFFD;
constexpr int32_t max_code_point = 0x10FFFF;
constexpr bool little_endian = std::endian::native == std::endian::little;
constexpr const char *utf16_platform_name = little_endian ? "UTF-16LE" : "UTF-16BE";
constexpr const char *utf32_platform_name = little_endian ? "UTF-32LE" : "UTF-32BE";

// ---------------------------------------------------------------------------------------
// Descriptors
// ---------------------------------------------------------------------------------------

// A descriptor and the storage of its names; made once, never moved or freed.
struct DescriptorHolder {
    std::string name;
    std::string icu_name;
    QV_ENCODING_T descriptor{};
};

struct DescriptorCache {
    std::mutex lock;
    // By ICU converter name, and by every name a caller has looked up.
    std::unordered_map<std::string, std::unique_ptr<DescriptorHolder>> by_icu_name;
    std::unordered_map<std::string, const QV_ENCODING_T *> by_requested_name;
};

DescriptorCache &descriptor_cache() {
    // Deliberately never destroyed: descriptors must outlive every static that holds one.
    static auto *cache = new DescriptorCache;
    return *cache;
}

struct ConverterCloser {
    void operator()(UConverter *converter) const { ucnv_close(converter); }
};
using ConverterPtr = std::unique_ptr<UConverter, ConverterCloser>;

ConverterPtr open_converter(const char *name) {
    UErrorCode status = U_ZERO_ERROR;
    ConverterPtr converter(ucnv_open(name, &status));
    if (U_FAILURE(status)) return nullptr;
    return converter;
}

// The name callers know the encoding by: its MIME name, else its IANA name, else ICU's.
std::string preferred_name(const char *icu_name) {
    for (const char *standard : {"MIME", "IANA"}) {
        UErrorCode status = U_ZERO_ERROR;
        const char *name = ucnv_getStandardName(icu_name, standard, &status);
        if (U_SUCCESS(status) && name != nullptr) return name;
    }
    return icu_name;
}

int32_t terminator_width_of(UConverterType type) {
    switch (type) {
        case UCNV_UTF16_BigEndian:
        case UCNV_UTF16_LittleEndian:
        case UCNV_UTF16: return 2;
        case UCNV_UTF32_BigEndian:
        case UCNV_UTF32_LittleEndian:
        case UCNV_UTF32: return 4;
        default: return 1;
    }
}

// ICU's maximum is per UTF-16 unit; a supplementary character may take more (4 bytes in
// UTF-8 and UTF-16, 6 in CESU-8), so measure one (not for UTF-16 and UTF-32 themselves, whose
// byte-order mark would count).
int32_t max_bytes_per_code_point(UConverter *converter) {
    if (terminator_width_of(ucnv_getType(converter)) > 1) return 4;
    int32_t most = ucnv_getMaxCharSize(converter);
    const UChar supplementary[2] = {0xD800, 0xDC00};
    char bytes[32];
    UErrorCode status = U_ZERO_ERROR;
    ucnv_setFromUCallBack(converter, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    int32_t length = ucnv_fromUChars(converter, bytes, sizeof bytes, supplementary, 2, &status);
    if (U_SUCCESS(status) && length > most) most = length;
    return most;
}

// True when the bytes 0x00-0x7F decode as those code points and encode back to themselves,
// one byte each, in one run (so shift states and escape bytes disqualify an encoding).
bool ascii_round_trips(UConverter *converter) {
    if (ucnv_getMinCharSize(converter) != 1) return false;
    char bytes[128];
    UChar units[128];
    for (int i = 0; i < 128; ++i) {
        bytes[i] = static_cast<char>(i);
        units[i] = static_cast<UChar>(i);
    }
    UChar decoded[256];
    UErrorCode status = U_ZERO_ERROR;
    int32_t count = ucnv_toUChars(converter, decoded, 256, bytes, 128, &status);
    if (U_FAILURE(status) || count != 128 || std::memcmp(decoded, units, sizeof units) != 0)
        return false;
    char encoded[512];
    count = ucnv_fromUChars(converter, encoded, sizeof encoded, units, 128, &status);
    return U_SUCCESS(status) && count == 128 && std::memcmp(encoded, bytes, 128) == 0;
}

std::unique_ptr<DescriptorHolder> make_descriptor(const char *icu_name, UConverter *converter) {
    auto holder = std::make_unique<DescriptorHolder>();
    holder->icu_name = icu_name;
    holder->name = preferred_name(icu_name);
    QV_ENCODING_T &d = holder->descriptor;
    d.name = holder->name.c_str();
    d.icu_name = holder->icu_name.c_str();
    d.min_bytes = ucnv_getMinCharSize(converter);
    d.max_bytes = max_bytes_per_code_point(converter);
    d.terminator_width = terminator_width_of(ucnv_getType(converter));
    d.ascii_compatible = ascii_round_trips(converter) ? 1 : 0;
    d.utf8_direct = (holder->icu_name == "UTF-8" || holder->icu_name == "US-ASCII") ? 1 : 0;
    return holder;
}

// Looks up or makes the descriptor for `name`; null when ICU cannot open it.
const QV_ENCODING_T *lookup_descriptor(const char *name) {
    DescriptorCache &cache = descriptor_cache();
    std::lock_guard guard(cache.lock);
    if (auto found = cache.by_requested_name.find(name); found != cache.by_requested_name.end())
        return found->second;
    ConverterPtr converter = open_converter(name);
    if (!converter) return nullptr;
    UErrorCode status = U_ZERO_ERROR;
    const char *icu_name = ucnv_getName(converter.get(), &status);
    if (U_FAILURE(status) || icu_name == nullptr) return nullptr;
    auto &slot = cache.by_icu_name[icu_name];
    if (!slot) slot = make_descriptor(icu_name, converter.get());
    const QV_ENCODING_T *descriptor = &slot->descriptor;
    cache.by_requested_name.emplace(name, descriptor);
    return descriptor;
}

const QV_ENCODING_T *or_platform(const QV_ENCODING_T *encoding) {
    return encoding != nullptr ? encoding : PlatformEncoding_L();
}

// What the hand-written paths know how to read without ICU.
enum class Kind { other, utf8, ascii, latin1, utf16le, utf16be, utf32le, utf32be };

Kind kind_of(const QV_ENCODING_T *encoding) {
    if (encoding == UTF8Encoding_L()) return Kind::utf8;
    struct Entry {
        const char *icu_name;
        Kind kind;
    };
    static constexpr Entry kinds[] = {
        {"UTF-8", Kind::utf8},       {"US-ASCII", Kind::ascii},   {"ISO-8859-1", Kind::latin1},
        {"UTF-16LE", Kind::utf16le}, {"UTF-16BE", Kind::utf16be}, {"UTF-32LE", Kind::utf32le},
        {"UTF-32BE", Kind::utf32be},
    };
    if (encoding->icu_name == nullptr) return Kind::other;
    for (const Entry &entry : kinds)
        if (std::strcmp(entry.icu_name, encoding->icu_name) == 0) return entry.kind;
    return Kind::other;
}

// ---------------------------------------------------------------------------------------
// Conversion
// ---------------------------------------------------------------------------------------

// Converters for conversion, one per encoding per thread, reset before each use. The name
// is checked on every hit, so a caller's own descriptor reused at the same address for
// another encoding cannot pick up a stale converter.
struct CachedConverter {
    std::string icu_name;
    ConverterPtr converter;
};

UConverter *cached_converter(const QV_ENCODING_T *encoding) {
    thread_local std::unordered_map<const QV_ENCODING_T *, CachedConverter> converters;
    if (encoding->icu_name == nullptr) return nullptr;
    CachedConverter &slot = converters[encoding];
    if (!slot.converter || slot.icu_name != encoding->icu_name) {
        slot.converter = open_converter(encoding->icu_name);
        slot.icu_name = encoding->icu_name;
    }
    return slot.converter.get();
}

// Byte length of a text ended by `width` zero bytes on a `width` boundary.
int32_t terminated_length(const char *text, int32_t width) {
    if (width == 1) return static_cast<int32_t>(std::strlen(text));
    int32_t length = 0;
    for (;; length += width) {
        bool zero = true;
        for (int32_t i = 0; i < width && zero; ++i) zero = text[length + i] == 0;
        if (zero) return length;
    }
}

bool all_ascii(const char *text, int32_t length) {
    return IsASCIIString_L(text, length) != 0;
}

// Where converted bytes go: a caller's fixed buffer, or a heap buffer that grows.
struct Output {
    char *bytes = nullptr;
    int32_t capacity = 0; // bytes usable for text, terminator room excluded
    bool growable = false;
};

enum class Outcome { done, too_small, failed };

bool grow(Output &output) {
    int64_t wanted = static_cast<int64_t>(output.capacity) * 2 + 16;
    if (wanted > INT32_MAX / 2) return false;
    auto *bigger = static_cast<char *>(QV_REALLOC(output.bytes, static_cast<size_t>(wanted) + 4));
    if (bigger == nullptr) return false;
    output.bytes = bigger;
    output.capacity = static_cast<int32_t>(wanted);
    return true;
}

// Converts through ICU, pivoting via UTF-16; *written receives the bytes produced.
Outcome convert_with_icu(const QV_ENCODING_T *from, const char *text, int32_t length,
                         const QV_ENCODING_T *to, Output &output, int32_t *written) {
    UConverter *source_converter = cached_converter(from);
    UConverter *target_converter = cached_converter(to);
    if (source_converter == nullptr || target_converter == nullptr) return Outcome::failed;
    UChar pivot[1024];
    UChar *pivot_source = pivot;
    UChar *pivot_target = pivot;
    const char *source = text;
    char *target = output.bytes;
    UBool reset = true;
    for (;;) {
        UErrorCode status = U_ZERO_ERROR;
        ucnv_convertEx(target_converter, source_converter, &target, output.bytes + output.capacity,
                       &source, text + length, pivot, &pivot_source, &pivot_target, pivot + 1024,
                       reset, true, &status);
        reset = false;
        *written = static_cast<int32_t>(target - output.bytes);
        if (status != U_BUFFER_OVERFLOW_ERROR) {
            return U_FAILURE(status) ? Outcome::failed : Outcome::done;
        }
        if (!output.growable) return Outcome::too_small;
        if (!grow(output)) return Outcome::failed;
        target = output.bytes + *written;
    }
}

// Converts into `output`, taking the fast paths where the bytes can stay as they are.
Outcome convert_into(const QV_ENCODING_T *from, const char *text, int32_t length,
                     const QV_ENCODING_T *to, Output &output, int32_t *written) {
    bool same_bytes = from == to || (from->ascii_compatible && to->ascii_compatible &&
                                     from->min_bytes == 1 && all_ascii(text, length));
    if (same_bytes) {
        if (length > output.capacity) return Outcome::too_small;
        if (length > 0) std::memcpy(output.bytes, text, static_cast<size_t>(length));
        *written = length;
        return Outcome::done;
    }
    return convert_with_icu(from, text, length, to, output, written);
}

void terminate(char *at, int32_t width) {
    std::memset(at, 0, static_cast<size_t>(width));
}

// First guess at the converted size: the worst case (each source character becomes the
// target's widest), but no more than twice the source, which covers the common cases;
// the rest grow.
int32_t initial_capacity(int32_t length, const QV_ENCODING_T *from, const QV_ENCODING_T *to) {
    int64_t characters = length / (from->min_bytes > 0 ? from->min_bytes : 1) + 1;
    int64_t bytes = characters * (to->max_bytes > 0 ? to->max_bytes : 4) + 16;
    bytes = std::min<int64_t>(bytes, 2 * static_cast<int64_t>(length) + 16);
    return bytes > INT32_MAX / 2 ? INT32_MAX / 2 : static_cast<int32_t>(bytes);
}

// Frees a growable output unless released: a raise from a growing realloc unwinds through
// here.
struct OutputGuard {
    Output &output;
    ~OutputGuard() { std::free(output.bytes); }
    char *release() { return std::exchange(output.bytes, nullptr); }
};

// ---------------------------------------------------------------------------------------
// Hand-written decoders
// ---------------------------------------------------------------------------------------

constexpr std::array<uint8_t, 256> make_trail_bytes() {
    std::array<uint8_t, 256> table{};
    for (int b = 0xC2; b <= 0xDF; ++b) table[b] = 1;
    for (int b = 0xE0; b <= 0xEF; ++b) table[b] = 2;
    for (int b = 0xF0; b <= 0xF4; ++b) table[b] = 3;
    return table;
}
constexpr std::array<uint8_t, 256> trail_bytes = make_trail_bytes();
static_assert(trail_bytes[0x41] == 0 && trail_bytes[0x80] == 0 && trail_bytes[0xC1] == 0 &&
              trail_bytes[0xC2] == 1 && trail_bytes[0xF4] == 3 && trail_bytes[0xF5] == 0);

// The range the second byte of a sequence must fall in, which rules out overlong forms,
// surrogates and values beyond U+10FFFF; the later trail bytes are 0x80-0xBF.
constexpr bool second_byte_fits(uint8_t lead, uint8_t second) {
    switch (lead) {
        case 0xE0: return second >= 0xA0 && second <= 0xBF;
        case 0xED: return second >= 0x80 && second <= 0x9F;
        case 0xF0: return second >= 0x90 && second <= 0xBF;
        case 0xF4: return second >= 0x80 && second <= 0x8F;
        default: return second >= 0x80 && second <= 0xBF;
    }
}

// Decodes one UTF-8 character from bytes [p, p+length), length >= 1.
int32_t decode_utf8(const uint8_t *p, int32_t length, int32_t *code_point) {
    uint8_t lead = p[0];
    if (lead < 0x80) {
        *code_point = lead;
        return 1;
    }
    int32_t trail = trail_bytes[lead];
    *code_point = replacement_character;
    if (trail == 0) return 1;
    if (length < 2 || !second_byte_fits(lead, p[1])) return 1;
    int32_t value = lead & (0x3F >> trail);
    int32_t used = 1;
    for (; used <= trail; ++used) {
        if (used >= length || (p[used] & 0xC0) != 0x80) return used; // a truncated sequence
        value = (value << 6) | (p[used] & 0x3F);
    }
    *code_point = value;
    return used;
}

uint32_t read_unit(const uint8_t *p, int32_t width, bool little) {
    uint32_t value = 0;
    for (int32_t i = 0; i < width; ++i) {
        uint32_t byte = p[little ? i : width - 1 - i];
        value |= byte << (8 * i);
    }
    return value;
}

// Decodes one UTF-16 character; a lone surrogate or a final odd byte gives U+FFFD.
int32_t decode_utf16(const uint8_t *p, int32_t length, bool little, int32_t *code_point) {
    *code_point = replacement_character;
    if (length < 2) return length;
    uint32_t unit = read_unit(p, 2, little);
    if (!U16_IS_SURROGATE(unit)) {
        *code_point = static_cast<int32_t>(unit);
        return 2;
    }
    if (U16_IS_TRAIL(unit)) return 2;
    if (length < 4) return length; // a lead surrogate cut off by the end, with what follows
    uint32_t trail = read_unit(p + 2, 2, little);
    if (!U16_IS_TRAIL(trail)) return 2;
    *code_point = U16_GET_SUPPLEMENTARY(unit, trail);
    return 4;
}

// Decodes one UTF-32 character; surrogates, values past U+10FFFF and a short tail give
// U+FFFD.
int32_t decode_utf32(const uint8_t *p, int32_t length, bool little, int32_t *code_point) {
    *code_point = replacement_character;
    if (length < 4) return length;
    uint32_t unit = read_unit(p, 4, little);
    if (unit <= max_code_point && !U_IS_SURROGATE(unit)) *code_point = static_cast<int32_t>(unit);
    return 4;
}

int32_t encode_utf8(int32_t c, uint8_t *out) {
    if (c < 0x80) {
        out[0] = static_cast<uint8_t>(c);
        return 1;
    }
    if (c < 0x800) {
        out[0] = static_cast<uint8_t>(0xC0 | (c >> 6));
        out[1] = static_cast<uint8_t>(0x80 | (c & 0x3F));
        return 2;
    }
    if (c < 0x10000) {
        out[0] = static_cast<uint8_t>(0xE0 | (c >> 12));
        out[1] = static_cast<uint8_t>(0x80 | ((c >> 6) & 0x3F));
        out[2] = static_cast<uint8_t>(0x80 | (c & 0x3F));
        return 3;
    }
    out[0] = static_cast<uint8_t>(0xF0 | (c >> 18));
    out[1] = static_cast<uint8_t>(0x80 | ((c >> 12) & 0x3F));
    out[2] = static_cast<uint8_t>(0x80 | ((c >> 6) & 0x3F));
    out[3] = static_cast<uint8_t>(0x80 | (c & 0x3F));
    return 4;
}

void write_unit(uint32_t value, int32_t width, bool little, uint8_t *out) {
    for (int32_t i = 0; i < width; ++i)
        out[little ? i : width - 1 - i] = static_cast<uint8_t>(value >> (8 * i));
}

int32_t encode_utf16(int32_t c, bool little, uint8_t *out) {
    if (c < 0x10000) {
        write_unit(static_cast<uint32_t>(c), 2, little, out);
        return 2;
    }
    write_unit(U16_LEAD(c), 2, little, out);
    write_unit(U16_TRAIL(c), 2, little, out + 2);
    return 4;
}

int32_t encode_utf32(int32_t c, bool little, uint8_t *out) {
    write_unit(static_cast<uint32_t>(c), 4, little, out);
    return 4;
}

int32_t encode_single_byte(int32_t c, int32_t limit, uint8_t *out) {
    if (c >= limit) return -1;
    out[0] = static_cast<uint8_t>(c);
    return 1;
}

// Encodes through ICU, refusing unmappable code points instead of substituting.
int32_t encode_with_icu(const QV_ENCODING_T *encoding, int32_t c, uint8_t *out, int32_t room) {
    UConverter *converter = cached_converter(encoding);
    if (converter == nullptr) return -1;
    UErrorCode status = U_ZERO_ERROR;
    ucnv_setFromUCallBack(converter, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    UChar units[2];
    int32_t count = 0;
    U16_APPEND_UNSAFE(units, count, c);
    int32_t length =
        ucnv_fromUChars(converter, reinterpret_cast<char *>(out), room, units, count, &status);
    UErrorCode restore = U_ZERO_ERROR;
    ucnv_setFromUCallBack(converter, UCNV_FROM_U_CALLBACK_SUBSTITUTE, nullptr, nullptr, nullptr,
                          &restore);
    if (U_FAILURE(status) || length > room) return -1;
    return length;
}

bool valid_code_point(int32_t c) {
    return c >= 0 && c <= max_code_point && !U_IS_SURROGATE(c);
}

// One side of a case-insensitive comparison: the full case folding of a UTF-8 text, one
// code point at a time, without allocating.
class FoldedCodePoints {
  public:
    explicit FoldedCodePoints(const char *text)
        : text_(reinterpret_cast<const uint8_t *>(text)), left_(std::strlen(text)) {}

    // The next folded code point, or -1 at the end.
    int32_t next() {
        if (index_ < count_) return take();
        if (left_ == 0) return -1;
        int32_t c;
        int32_t used = decode_utf8(text_, static_cast<int32_t>(left_ > 8 ? 8 : left_), &c);
        text_ += used;
        left_ -= static_cast<size_t>(used);
        if (c < 0x80) return (c >= 'A' && c <= 'Z') ? c + ('a' - 'A') : c;
        UChar source[2];
        int32_t source_length = 0;
        U16_APPEND_UNSAFE(source, source_length, c);
        UErrorCode status = U_ZERO_ERROR;
        count_ = u_strFoldCase(folded_, folded_capacity, source, source_length, U_FOLD_CASE_DEFAULT,
                               &status);
        if (U_FAILURE(status)) return c;
        index_ = 0;
        return take();
    }

  private:
    int32_t take() {
        UChar32 c;
        U16_NEXT(folded_, index_, count_, c);
        return c;
    }

    static constexpr int32_t folded_capacity = 8;
    const uint8_t *text_;
    size_t left_;
    UChar folded_[folded_capacity] = {};
    int32_t index_ = 0;
    int32_t count_ = 0;
};

} // namespace

// ---------------------------------------------------------------------------------------
// Exported: descriptors
// ---------------------------------------------------------------------------------------

extern "C" const QV_ENCODING_T *LookupEncoding_L(const char *name) {
    if (name == nullptr || name[0] == '\0') return nullptr;
    try {
        return lookup_descriptor(name);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

extern "C" const QV_ENCODING_T *UTF8Encoding_L(void) {
    static const QV_ENCODING_T *encoding = LookupEncoding_L("UTF-8");
    return encoding;
}
extern "C" const QV_ENCODING_T *PlatformEncoding_L(void) {
    return UTF8Encoding_L();
}
extern "C" const QV_ENCODING_T *ASCIIEncoding_L(void) {
    static const QV_ENCODING_T *encoding = LookupEncoding_L("US-ASCII");
    return encoding;
}
extern "C" const QV_ENCODING_T *Latin1Encoding_L(void) {
    static const QV_ENCODING_T *encoding = LookupEncoding_L("ISO-8859-1");
    return encoding;
}
extern "C" const QV_ENCODING_T *UTF16Encoding_L(void) {
    static const QV_ENCODING_T *encoding = LookupEncoding_L(utf16_platform_name);
    return encoding;
}
extern "C" const QV_ENCODING_T *UTF32Encoding_L(void) {
    static const QV_ENCODING_T *encoding = LookupEncoding_L(utf32_platform_name);
    return encoding;
}

// ---------------------------------------------------------------------------------------
// Exported: conversion
// ---------------------------------------------------------------------------------------

// Converts to a heap text. Returns 0, or -1 for bad arguments or a converter ICU refuses
// (nothing is left allocated then). Raises ALLOC_FAILURE through the allocation helpers;
// without a status context it then returns -1 with *out null.
extern "C" int32_t ConvertEncoding_L(const QV_ENCODING_T *from, const char *text, int32_t length,
                                     const QV_ENCODING_T *to, char **out, int32_t *out_length) {
    if (out == nullptr) return -1;
    *out = nullptr;
    if (text == nullptr || length < -1) return -1;
    from = or_platform(from);
    to = or_platform(to);
    if (length < 0) length = terminated_length(text, from->terminator_width);
    Output output;
    output.capacity = from == to ? length : initial_capacity(length, from, to);
    output.growable = true;
    output.bytes = static_cast<char *>(QV_MALLOC(static_cast<size_t>(output.capacity) + 4));
    if (output.bytes == nullptr) return -1;
    OutputGuard guard{output};
    int32_t written = 0;
    if (convert_into(from, text, length, to, output, &written) != Outcome::done) return -1;
    terminate(output.bytes + written, 4);
    *out = guard.release();
    if (out_length != nullptr) *out_length = written;
    return 0;
}

extern "C" int32_t ConvertEncodingNoAlloc_L(const QV_ENCODING_T *from, const char *text,
                                            int32_t length, const QV_ENCODING_T *to, char *buffer,
                                            int32_t capacity) {
    if (text == nullptr || buffer == nullptr || capacity < 0 || length < -1) return -1;
    from = or_platform(from);
    to = or_platform(to);
    if (length < 0) length = terminated_length(text, from->terminator_width);
    int32_t width = to->terminator_width;
    if (capacity < width) return -2;
    Output output;
    output.bytes = buffer;
    output.capacity = capacity - width;
    int32_t written = 0;
    switch (convert_into(from, text, length, to, output, &written)) {
        case Outcome::done: terminate(buffer + written, width); return written;
        case Outcome::too_small: terminate(buffer, width); return -2;
        case Outcome::failed: terminate(buffer, width); return -1;
    }
    return -1;
}

// ---------------------------------------------------------------------------------------
// Exported: iteration
// ---------------------------------------------------------------------------------------

extern "C" int32_t CodePointIterInit_L(QV_CODEPOINT_ITER_T *iter, const QV_ENCODING_T *encoding,
                                       const char *text, int32_t length) {
    if (iter == nullptr) return -1;
    encoding = or_platform(encoding);
    iter->encoding = encoding;
    iter->converter = nullptr;
    if (text == nullptr || length < -1)
        length = 0;
    else if (length < 0)
        length = terminated_length(text, encoding->terminator_width);
    iter->position = text;
    iter->end = text == nullptr ? nullptr : text + length;
    if (kind_of(encoding) != Kind::other) return 0;
    ConverterPtr converter =
        encoding->icu_name != nullptr ? open_converter(encoding->icu_name) : nullptr;
    if (!converter) {
        iter->position = iter->end;
        return -1;
    }
    iter->converter = converter.release();
    return 0;
}

extern "C" int32_t NextCodePoint_L(QV_CODEPOINT_ITER_T *iter) {
    if (iter == nullptr || iter->position == nullptr || iter->position >= iter->end) return -1;
    auto *p = reinterpret_cast<const uint8_t *>(iter->position);
    auto left = static_cast<int32_t>(iter->end - iter->position);
    int32_t c = replacement_character;
    int32_t used = 1;
    switch (kind_of(iter->encoding)) {
        case Kind::utf8: used = decode_utf8(p, left, &c); break;
        case Kind::ascii: c = p[0] < 0x80 ? p[0] : replacement_character; break;
        case Kind::latin1: c = p[0]; break;
        case Kind::utf16le: used = decode_utf16(p, left, true, &c); break;
        case Kind::utf16be: used = decode_utf16(p, left, false, &c); break;
        case Kind::utf32le: used = decode_utf32(p, left, true, &c); break;
        case Kind::utf32be: used = decode_utf32(p, left, false, &c); break;
        case Kind::other: {
            if (iter->converter == nullptr) return -1;
            UErrorCode status = U_ZERO_ERROR;
            c = ucnv_getNextUChar(static_cast<UConverter *>(iter->converter), &iter->position,
                                  iter->end, &status);
            if (status == U_INDEX_OUTOFBOUNDS_ERROR) return -1;
            if (U_FAILURE(status)) {
                iter->position = iter->end;
                return replacement_character;
            }
            return c;
        }
    }
    iter->position += used;
    return c;
}

extern "C" void CodePointIterEnd_L(QV_CODEPOINT_ITER_T *iter) {
    if (iter == nullptr) return;
    if (iter->converter != nullptr) ucnv_close(static_cast<UConverter *>(iter->converter));
    iter->converter = nullptr;
    iter->position = iter->end;
}

extern "C" int32_t EncodeCodePoint_L(const QV_ENCODING_T *encoding, int32_t code_point,
                                     char *buffer, int32_t capacity) {
    if (buffer == nullptr || capacity <= 0 || !valid_code_point(code_point)) return -1;
    encoding = or_platform(encoding);
    uint8_t bytes[16];
    int32_t length = -1;
    switch (kind_of(encoding)) {
        case Kind::utf8: length = encode_utf8(code_point, bytes); break;
        case Kind::ascii: length = encode_single_byte(code_point, 0x80, bytes); break;
        case Kind::latin1: length = encode_single_byte(code_point, 0x100, bytes); break;
        case Kind::utf16le: length = encode_utf16(code_point, true, bytes); break;
        case Kind::utf16be: length = encode_utf16(code_point, false, bytes); break;
        case Kind::utf32le: length = encode_utf32(code_point, true, bytes); break;
        case Kind::utf32be: length = encode_utf32(code_point, false, bytes); break;
        case Kind::other:
            length = encode_with_icu(encoding, code_point, bytes, sizeof bytes);
            break;
    }
    if (length < 0 || length > capacity) return -1;
    std::memcpy(buffer, bytes, static_cast<size_t>(length));
    return length;
}

// ---------------------------------------------------------------------------------------
// Exported: UTF-8 helpers
// ---------------------------------------------------------------------------------------

extern "C" const uint8_t UTF8TrailBytes_L[256] = {
#define QV_ROW(base)                                                                               \
    trail_bytes[base + 0], trail_bytes[base + 1], trail_bytes[base + 2], trail_bytes[base + 3],    \
        trail_bytes[base + 4], trail_bytes[base + 5], trail_bytes[base + 6],                       \
        trail_bytes[base + 7], trail_bytes[base + 8], trail_bytes[base + 9],                       \
        trail_bytes[base + 10], trail_bytes[base + 11], trail_bytes[base + 12],                    \
        trail_bytes[base + 13], trail_bytes[base + 14], trail_bytes[base + 15]
    QV_ROW(0x00), QV_ROW(0x10), QV_ROW(0x20), QV_ROW(0x30), QV_ROW(0x40), QV_ROW(0x50),
    QV_ROW(0x60), QV_ROW(0x70), QV_ROW(0x80), QV_ROW(0x90), QV_ROW(0xA0), QV_ROW(0xB0),
    QV_ROW(0xC0), QV_ROW(0xD0), QV_ROW(0xE0), QV_ROW(0xF0),
#undef QV_ROW
};

extern "C" int32_t DecodeUTF8_L(const char *text, int32_t length, int32_t *code_point) {
    int32_t ignored;
    if (code_point == nullptr) code_point = &ignored;
    if (text == nullptr || length <= 0) {
        *code_point = -1;
        return 0;
    }
    return decode_utf8(reinterpret_cast<const uint8_t *>(text), length, code_point);
}

// Counts what DecodeUTF8_L would step over, so an invalid sequence counts once per U+FFFD.
extern "C" int32_t StrlenUTF8_L(const char *text) {
    if (text == nullptr) return 0;
    auto *p = reinterpret_cast<const uint8_t *>(text);
    size_t left = std::strlen(text);
    int32_t count = 0;
    while (left > 0) {
        if (left >= 8) {
            uint64_t word;
            std::memcpy(&word, p, 8);
            if ((word & 0x8080808080808080ULL) == 0) {
                p += 8, left -= 8, count += 8;
                continue;
            }
        }
        int32_t c;
        int32_t used =
            *p < 0x80 ? 1 : decode_utf8(p, left > 4 ? 4 : static_cast<int32_t>(left), &c);
        p += used;
        left -= static_cast<size_t>(used);
        ++count;
    }
    return count;
}

extern "C" int32_t StricmpUTF8_L(const char *left, const char *right) {
    if (left == nullptr || right == nullptr) return (left != nullptr) - (right != nullptr);
    FoldedCodePoints a(left), b(right);
    for (;;) {
        int32_t ca = a.next();
        int32_t cb = b.next();
        if (ca != cb) return ca < cb ? -1 : 1;
        if (ca < 0) return 0;
    }
}

extern "C" uint8_t IsASCIIString_L(const char *text, int32_t length) {
    if (text == nullptr) return 1;
    if (length < 0) length = static_cast<int32_t>(std::strlen(text));
    auto *p = reinterpret_cast<const uint8_t *>(text);
    const uint8_t *end = p + length;
    uint64_t high = 0;
    for (; end - p >= 32; p += 32) {
        uint64_t words[4];
        std::memcpy(words, p, 32);
        high |= words[0] | words[1] | words[2] | words[3];
        if (high & 0x8080808080808080ULL) return 0;
    }
    for (; end - p >= 8; p += 8) {
        uint64_t word;
        std::memcpy(&word, p, 8);
        high |= word;
    }
    uint8_t tail = 0;
    for (; p < end; ++p) tail |= *p;
    return ((high & 0x8080808080808080ULL) == 0 && tail < 0x80) ? 1 : 0;
}

// ---------------------------------------------------------------------------------------
// Exported: code-point classes (white space is the Unicode White_Space property)
// ---------------------------------------------------------------------------------------

extern "C" uint8_t IsSpaceCodePoint_L(int32_t c) {
    return valid_code_point(c) && u_isUWhiteSpace(c);
}
extern "C" uint8_t IsDigitCodePoint_L(int32_t c) {
    return valid_code_point(c) && u_isdigit(c);
}
extern "C" uint8_t IsAlphaCodePoint_L(int32_t c) {
    return valid_code_point(c) && u_isalpha(c);
}
extern "C" uint8_t IsAlnumCodePoint_L(int32_t c) {
    return valid_code_point(c) && u_isalnum(c);
}
extern "C" uint8_t IsUpperCodePoint_L(int32_t c) {
    return valid_code_point(c) && u_isupper(c);
}
extern "C" uint8_t IsLowerCodePoint_L(int32_t c) {
    return valid_code_point(c) && u_islower(c);
}
extern "C" int32_t ToUpperCodePoint_L(int32_t c) {
    return valid_code_point(c) ? u_toupper(c) : c;
}
extern "C" int32_t ToLowerCodePoint_L(int32_t c) {
    return valid_code_point(c) ? u_tolower(c) : c;
}
