// encoding.cpp - the encoding service over ICU: encoding descriptors, conversion between
// encodings, code-point iteration, the UTF-8 helpers and code-point classes.
//
// Descriptors are made on first use, one per ICU converter name, and never freed: a
// lookup by any alias ICU knows returns the same pointer. The cache is guarded by a mutex.
// Each descriptor of a single-byte encoding carries the code point of each of its bytes.
// The converters used for conversion are cached per thread (a converter carries state), a
// few at a time, the least recently used giving way.
//
// Invalid input never fails a call: every invalid or unmappable sequence becomes the
// target's substitution character (ICU's own substituting callback skips unmappable
// default-ignorable characters, so conversion installs one that does not). UTF-8, UTF-16,
// UTF-32, ASCII and Latin-1 are read inline with the decoders of utf.hpp, other encodings
// through ICU; iterating a text and converting it give the same code points. A conversion
// between an encoding and itself, and of all-ASCII text between ASCII-compatible
// encodings, copies the bytes as they are (invalid bytes included).
//
// The generic "UTF-16" and "UTF-32" read a leading byte-order mark as the byte order of the
// text (not as a character) and otherwise the platform's order; texts written in them are
// in the platform's order without a mark, so texts the library builds never carry one.
#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

#include <unicode/ucnv.h>
#include <unicode/ucnv_cb.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "qv/encoding.h"
#include "strings/encoding.hpp"
#include "strings/utf.hpp"

static_assert(std::is_standard_layout_v<QV_ENCODING_T> &&
              std::is_trivially_copyable_v<QV_ENCODING_T>);
static_assert(std::is_standard_layout_v<QV_CODEPOINT_ITER_T>);

namespace {

using qv::utf::replacement;
constexpr bool little_endian = std::endian::native == std::endian::little;

// ---------------------------------------------------------------------------------------
// Descriptors
// ---------------------------------------------------------------------------------------

// A descriptor and the storage of its names, in a node of the cache that never moves.
struct DescriptorHolder {
    qv::String name;
    qv::String icu_name;
    QV_ENCODING_T descriptor{};
    bool stateful = false;
    bool has_byte_table = false;
    qv::SingleByteTable byte_table{};
};

struct DescriptorCache {
    std::mutex lock;
    // By ICU converter name, and by every name a caller has looked up.
    qv::Map<qv::String, DescriptorHolder> by_icu_name;
    qv::Map<qv::String, const QV_ENCODING_T *> by_requested_name;
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
const char *preferred_name(const char *icu_name) {
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

// The code point of each byte alone, -1 where the byte is no character.
void fill_byte_table(UConverter *converter, qv::SingleByteTable &table) {
    UErrorCode status = U_ZERO_ERROR;
    ucnv_setToUCallBack(converter, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
    for (int b = 0; b < 256; ++b) {
        const char byte = static_cast<char>(b);
        UChar units[4];
        status = U_ZERO_ERROR;
        int32_t count = ucnv_toUChars(converter, units, 4, &byte, 1, &status);
        bool one = U_SUCCESS(status) && count == 1 && !U16_IS_SURROGATE(units[0]);
        table.code_points[b] = one ? units[0] : -1;
    }
    table.every_byte_a_character = std::find(table.code_points.begin(), table.code_points.end(),
                                             -1) == table.code_points.end();
}

// Encodings whose bytes mean different characters after a shift or escape sequence.
bool is_stateful(UConverterType type) {
    switch (type) {
        case UCNV_EBCDIC_STATEFUL:
        case UCNV_ISO_2022:
        case UCNV_HZ:
        case UCNV_SCSU:
        case UCNV_ISCII:
        case UCNV_UTF7:
        case UCNV_BOCU1:
        case UCNV_IMAP_MAILBOX:
        case UCNV_COMPOUND_TEXT: return true;
        default: return type >= UCNV_LMBCS_1 && type <= UCNV_LMBCS_LAST;
    }
}

void make_descriptor(DescriptorHolder &holder, UConverter *converter) {
    QV_ENCODING_T &d = holder.descriptor;
    d.name = holder.name.c_str();
    d.icu_name = holder.icu_name.c_str();
    d.min_bytes = ucnv_getMinCharSize(converter);
    d.max_bytes = max_bytes_per_code_point(converter);
    d.terminator_width = terminator_width_of(ucnv_getType(converter));
    d.ascii_compatible = ascii_round_trips(converter) ? 1 : 0;
    d.utf8_direct = (holder.icu_name == "UTF-8" || holder.icu_name == "US-ASCII") ? 1 : 0;
    holder.stateful = is_stateful(ucnv_getType(converter));
    holder.has_byte_table = d.min_bytes == 1 && d.max_bytes == 1 && d.terminator_width == 1;
    if (holder.has_byte_table) fill_byte_table(converter, holder.byte_table);
}

// Looks up or makes the descriptor for `name`; null when ICU cannot open it. Throws
// std::bad_alloc when the cache cannot grow (nothing half made is left in it).
const QV_ENCODING_T *lookup_descriptor(const char *name) {
    DescriptorCache &cache = descriptor_cache();
    std::lock_guard guard(cache.lock);
    if (auto found = cache.by_requested_name.find(std::string_view(name));
        found != cache.by_requested_name.end())
        return found->second;
    ConverterPtr converter = open_converter(name);
    if (!converter) return nullptr;
    UErrorCode status = U_ZERO_ERROR;
    const char *icu_name = ucnv_getName(converter.get(), &status);
    if (U_FAILURE(status) || icu_name == nullptr) return nullptr;
    auto found = cache.by_icu_name.find(std::string_view(icu_name));
    if (found == cache.by_icu_name.end()) {
        DescriptorHolder made{qv::String(preferred_name(icu_name)), qv::String(icu_name)};
        found = cache.by_icu_name.emplace(icu_name, std::move(made)).first;
        make_descriptor(found->second, converter.get());
    }
    const QV_ENCODING_T *descriptor = &found->second.descriptor;
    cache.by_requested_name.emplace(name, descriptor);
    return descriptor;
}

// The holder of a descriptor with the same ICU name, or null.
const DescriptorHolder *holder_of(const QV_ENCODING_T *encoding) {
    if (encoding == nullptr || encoding->icu_name == nullptr) return nullptr;
    DescriptorCache &cache = descriptor_cache();
    std::lock_guard guard(cache.lock);
    auto found = cache.by_icu_name.find(std::string_view(encoding->icu_name));
    return found != cache.by_icu_name.end() ? &found->second : nullptr;
}

// A well-known descriptor, looked up until a lookup succeeds (a first one may fail for
// want of memory).
const QV_ENCODING_T *well_known(std::atomic<const QV_ENCODING_T *> &slot, const char *name) {
    const QV_ENCODING_T *encoding = slot.load(std::memory_order_acquire);
    if (encoding == nullptr) {
        encoding = LookupEncoding_L(name);
        slot.store(encoding, std::memory_order_release);
    }
    return encoding;
}

const QV_ENCODING_T *or_platform(const QV_ENCODING_T *encoding) {
    return encoding != nullptr ? encoding : PlatformEncoding_L();
}

// What the hand-written paths know how to read without ICU, and the generic forms with a
// byte-order mark.
enum class Kind { other, utf8, ascii, latin1, utf16le, utf16be, utf32le, utf32be, utf16, utf32 };

Kind kind_of(const QV_ENCODING_T *encoding) {
    if (encoding == UTF8Encoding_L()) return Kind::utf8;
    struct Entry {
        const char *icu_name;
        Kind kind;
    };
    static constexpr Entry kinds[] = {
        {"UTF-8", Kind::utf8},       {"US-ASCII", Kind::ascii},   {"ISO-8859-1", Kind::latin1},
        {"UTF-16LE", Kind::utf16le}, {"UTF-16BE", Kind::utf16be}, {"UTF-32LE", Kind::utf32le},
        {"UTF-32BE", Kind::utf32be}, {"UTF-16", Kind::utf16},     {"UTF-32", Kind::utf32},
    };
    const char *name = encoding->icu_name;
    if (name == nullptr) return Kind::other;
    for (const Entry &entry : kinds)
        if (std::strcmp(entry.icu_name, name) == 0) return entry.kind;
    // "UTF-16,version=1" and the like: the generic forms with another default.
    if (std::strncmp(name, "UTF-16,", 7) == 0) return Kind::utf16;
    if (std::strncmp(name, "UTF-32,", 7) == 0) return Kind::utf32;
    return Kind::other;
}

// Encodings the iterator reads through ICU (a generic marked one only when its ordered
// descriptor could not be made).
bool read_through_icu(Kind kind) {
    return kind == Kind::other || kind == Kind::utf16 || kind == Kind::utf32;
}

// ---------------------------------------------------------------------------------------
// Byte-order marks
// ---------------------------------------------------------------------------------------

// UTF-16 (width 2) or UTF-32 (width 4) in the given byte order.
const QV_ENCODING_T *ordered(int32_t width, bool little) {
    static std::atomic<const QV_ENCODING_T *> slots[2][2];
    static constexpr const char *names[2][2] = {{"UTF-16BE", "UTF-16LE"}, {"UTF-32BE", "UTF-32LE"}};
    return well_known(slots[width == 4][little], names[width == 4][little]);
}

// The byte-order marks of UTF-16 (width 2) and UTF-32 (width 4), big- and little-endian.
constexpr char byte_order_marks[2][2][4] = {{{'\xFE', '\xFF'}, {'\xFF', '\xFE'}},
                                            {{0, 0, '\xFE', '\xFF'}, {'\xFF', '\xFE', 0, 0}}};

const char *mark_of(int32_t width, bool little) {
    return byte_order_marks[width == 4][little];
}

// The order of the mark that `text` starts with: 1 little-endian, 0 big-endian, -1 none.
int mark_order(const char *text, int32_t length, int32_t width) {
    for (bool little : {false, true})
        if (length >= width && std::memcmp(text, mark_of(width, little), width) == 0) return little;
    return -1;
}

// A text to read: in a generic marked encoding, the mark chooses the byte order and is
// skipped. `encoding` is null when the ordered descriptor could not be made.
struct Source {
    const QV_ENCODING_T *encoding;
    const char *text;
    int32_t length;
};

Source resolve_source(const QV_ENCODING_T *encoding, const char *text, int32_t length) {
    const Kind kind = kind_of(encoding);
    if (kind != Kind::utf16 && kind != Kind::utf32) return {encoding, text, length};
    const int32_t width = kind == Kind::utf16 ? 2 : 4;
    const int order = mark_order(text, length, width);
    if (order < 0) return {ordered(width, little_endian), text, length};
    return {ordered(width, order == 1), text + width, length - width};
}

const QV_ENCODING_T *resolve_target(const QV_ENCODING_T *encoding) {
    switch (kind_of(encoding)) {
        case Kind::utf16: return ordered(2, little_endian);
        case Kind::utf32: return ordered(4, little_endian);
        default: return encoding;
    }
}

// ---------------------------------------------------------------------------------------
// Conversion
// ---------------------------------------------------------------------------------------

// Writes the target's substitution character for every unassigned character, default-
// ignorable ones included. A lone surrogate (which a source such as UTF-7 or CESU-8 may
// hold) is written as U+FFFD, as reading the source gives it, so a Unicode target holds
// U+FFFD and others their substitution character.
void substitute_every_unmappable(const void *, UConverterFromUnicodeArgs *arguments, const UChar *,
                                 int32_t, UChar32 code_point, UConverterCallbackReason reason,
                                 UErrorCode *status) {
    if (reason > UCNV_IRREGULAR) return; // reset, close, clone
    *status = U_ZERO_ERROR;
    if (reason == UCNV_ILLEGAL && U_IS_SURROGATE(code_point)) {
        static const UChar replacement_unit = 0xFFFD;
        const UChar *source = &replacement_unit;
        ucnv_cbFromUWriteUChars(arguments, &source, source + 1, 0, status);
        return;
    }
    ucnv_cbFromUWriteSub(arguments, 0, status);
}

void substitute_always(UConverter *converter) {
    UErrorCode status = U_ZERO_ERROR;
    ucnv_setFromUCallBack(converter, substitute_every_unmappable, nullptr, nullptr, nullptr,
                          &status);
}

// The converters of this thread, the least recently used given up first. A slot is matched
// by descriptor and by ICU name, so a caller's own descriptor reused at the same address
// for another encoding cannot pick up a stale converter.
class ConverterCache {
  public:
    ConverterCache() = default;
    ConverterCache(const ConverterCache &) = delete;
    ConverterCache &operator=(const ConverterCache &) = delete;
    ~ConverterCache() {
        for (Slot &slot : slots_) ucnv_close(slot.converter);
    }

    // The converter for `encoding`; null when ICU cannot open one.
    UConverter *get(const QV_ENCODING_T *encoding) {
        const char *name = encoding->icu_name;
        if (name == nullptr || std::strlen(name) >= sizeof slots_[0].icu_name) return nullptr;
        Slot *slot = &slots_[0];
        for (Slot &s : slots_) {
            if (s.converter != nullptr && s.encoding == encoding &&
                std::strcmp(s.icu_name, name) == 0) {
                slot = &s;
                break;
            }
            if (s.last_use < slot->last_use) slot = &s;
        }
        if (slot->encoding != encoding || std::strcmp(slot->icu_name, name) != 0 ||
            slot->converter == nullptr) {
            ucnv_close(std::exchange(slot->converter, nullptr));
            slot->converter = open_converter(name).release();
            if (slot->converter == nullptr) return nullptr;
            substitute_always(slot->converter);
            slot->encoding = encoding;
            std::strcpy(slot->icu_name, name);
        }
        slot->last_use = ++clock_;
        return slot->converter;
    }

  private:
    struct Slot {
        const QV_ENCODING_T *encoding = nullptr;
        char icu_name[UCNV_MAX_CONVERTER_NAME_LENGTH] = {};
        UConverter *converter = nullptr;
        uint64_t last_use = 0;
    };
    Slot slots_[8];
    uint64_t clock_ = 0;
};

UConverter *cached_converter(const QV_ENCODING_T *encoding) {
    thread_local ConverterCache cache;
    return cache.get(encoding);
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

enum class Outcome { done, too_small, failed };

// Where converted bytes go: the caller's buffer, or a heap text that grows. `room` never
// counts the terminator, for which four bytes are always kept free.
class Sink {
  public:
    Sink(char *buffer, int32_t room) : bytes_(buffer), room_(room) {}
    explicit Sink(int32_t initial_room)
        : owned_(static_cast<char *>(QV_MALLOC(static_cast<size_t>(initial_room) + 4))),
          bytes_(owned_.get()), room_(initial_room) {}

    bool ready() const { return bytes_ != nullptr; }
    int32_t size() const { return size_; }
    char *data() const { return bytes_; }
    char *release() { return owned_.release(); }

    // Appends n bytes; false when a fixed buffer is too small or the heap text cannot grow
    // (ALLOC_FAILURE raised then).
    bool put(const char *bytes, int32_t n) {
        if (n > room_ - size_ && !grow(n)) return false;
        if (n > 0) std::memcpy(bytes_ + size_, bytes, static_cast<size_t>(n));
        size_ += n;
        return true;
    }
    // Moves what was put n bytes on and puts `bytes` in front; false as put.
    bool put_in_front(const char *bytes, int32_t n) {
        if (n > room_ - size_ && !grow(n)) return false;
        std::memmove(bytes_ + n, bytes_, static_cast<size_t>(size_));
        std::memcpy(bytes_, bytes, static_cast<size_t>(n));
        size_ += n;
        return true;
    }
    bool fixed() const { return !owned_; }
    Outcome failure() const { return fixed() ? Outcome::too_small : Outcome::failed; }

  private:
    bool grow(int32_t more) {
        if (!owned_) return false;
        const int64_t wanted = std::max<int64_t>(2LL * room_, int64_t{size_} + more) + 16;
        if (wanted > INT32_MAX / 2) {
            QV_RAISE(ALLOC_FAILURE);
            return false;
        }
        auto *bigger =
            static_cast<char *>(QV_REALLOC(owned_.get(), static_cast<size_t>(wanted) + 4));
        if (bigger == nullptr) return false;
        (void)owned_.release();
        owned_.reset(bigger);
        bytes_ = bigger;
        room_ = static_cast<int32_t>(wanted);
        return true;
    }

    qv::HeapText owned_;
    char *bytes_;
    int32_t room_;
    int32_t size_ = 0;
};

// Converts through ICU, pivoting via UTF-16, a chunk at a time: the sink learns the exact
// size, so a buffer that the result fills exactly is big enough.
Outcome convert_with_icu(const QV_ENCODING_T *from, const char *text, int32_t length,
                         const QV_ENCODING_T *to, Sink &sink) {
    UConverter *source_converter = cached_converter(from);
    UConverter *target_converter = cached_converter(to);
    if (source_converter == nullptr || target_converter == nullptr) return Outcome::failed;
    UChar pivot[1024];
    UChar *pivot_source = pivot, *pivot_target = pivot;
    char chunk[2048];
    const char *source = text;
    for (UBool reset = true;; reset = false) {
        UErrorCode status = U_ZERO_ERROR;
        char *target = chunk;
        ucnv_convertEx(target_converter, source_converter, &target, chunk + sizeof chunk, &source,
                       text + length, pivot, &pivot_source, &pivot_target, pivot + 1024, reset,
                       true, &status);
        if (!sink.put(chunk, static_cast<int32_t>(target - chunk)))
            return sink.fixed() ? Outcome::too_small : Outcome::failed;
        if (status != U_BUFFER_OVERFLOW_ERROR)
            return U_FAILURE(status) ? Outcome::failed : Outcome::done;
    }
}

// A text written in a generic marked encoding whose first character would read as a mark
// (U+FEFF, or U+FFFE in UTF-16) gets the platform's mark in front of it, so that the
// character reads back. False when there is no room.
bool keep_leading_character(Sink &sink, int32_t width) {
    if (mark_order(sink.data(), sink.size(), width) < 0) return true;
    return sink.put_in_front(mark_of(width, little_endian), width);
}

// Converts into `sink`, taking the fast path where the bytes can stay as they are.
Outcome convert_into(const QV_ENCODING_T *from, const char *text, int32_t length,
                     const QV_ENCODING_T *to, Sink &sink) {
    const Source source = resolve_source(from, text, length);
    const QV_ENCODING_T *target = resolve_target(to);
    if (source.encoding == nullptr || target == nullptr) return Outcome::failed;
    const bool same_bytes = source.encoding == target ||
                            (source.encoding->ascii_compatible && target->ascii_compatible &&
                             qv::utf::all_ascii(source.text, static_cast<size_t>(source.length)));
    Outcome outcome = Outcome::done;
    if (same_bytes)
        outcome = sink.put(source.text, source.length) ? Outcome::done : sink.failure();
    else
        outcome = convert_with_icu(source.encoding, source.text, source.length, target, sink);
    if (outcome != Outcome::done || target == to) return outcome;
    return keep_leading_character(sink, target->terminator_width) ? outcome : sink.failure();
}

// First guess at the converted size: the worst case (each source character becomes the
// target's widest), but no more than twice the source, which covers the common cases;
// the rest grow.
int32_t initial_room(int32_t length, const QV_ENCODING_T *from, const QV_ENCODING_T *to) {
    if (from == to) return length;
    int64_t characters = length / (from->min_bytes > 0 ? from->min_bytes : 1) + 1;
    int64_t bytes = characters * (to->max_bytes > 0 ? to->max_bytes : 4) + 16;
    bytes = std::min<int64_t>(bytes, 2 * static_cast<int64_t>(length) + 16);
    return bytes > INT32_MAX / 2 ? INT32_MAX / 2 : static_cast<int32_t>(bytes);
}

// The heap text of a conversion, or false (nothing allocated) when it failed.
bool convert_to_heap(const QV_ENCODING_T *from, const char *text, int32_t length,
                     const QV_ENCODING_T *to, char **out, int32_t *out_length) {
    if (length < 0) length = terminated_length(text, from->terminator_width);
    Sink sink(initial_room(length, from, to));
    if (!sink.ready() || convert_into(from, text, length, to, sink) != Outcome::done) return false;
    std::memset(sink.data() + sink.size(), 0, 4);
    if (out_length != nullptr) *out_length = sink.size();
    *out = sink.release();
    return true;
}

// ---------------------------------------------------------------------------------------
// Encoding one code point
// ---------------------------------------------------------------------------------------

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
    substitute_always(converter);
    if (U_FAILURE(status) || length > room) return -1;
    return length;
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
        int32_t c = 0;
        int32_t used =
            qv::utf::decode_utf8(text_, static_cast<int32_t>(std::min<size_t>(left_, 4)), c);
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

namespace qv {

const SingleByteTable *single_byte_table(const QV_ENCODING_T *encoding) {
    const DescriptorHolder *holder = holder_of(encoding);
    return holder != nullptr && holder->has_byte_table ? &holder->byte_table : nullptr;
}

bool bytes_concatenate(const QV_ENCODING_T *encoding) {
    switch (kind_of(encoding)) {
        case Kind::utf16:
        case Kind::utf32: return false;
        case Kind::other: break;
        default: return true;
    }
    const DescriptorHolder *holder = holder_of(encoding);
    return holder == nullptr || !holder->stateful;
}

} // namespace qv

// ---------------------------------------------------------------------------------------
// Exported: descriptors
// ---------------------------------------------------------------------------------------

extern "C" const QV_ENCODING_T *LookupEncoding_L(const char *name) {
    if (name == nullptr || name[0] == '\0') return nullptr;
    return QV_C_ENTRY([&] { return lookup_descriptor(name); });
}

extern "C" const QV_ENCODING_T *UTF8Encoding_L(void) {
    static std::atomic<const QV_ENCODING_T *> encoding{nullptr};
    return well_known(encoding, "UTF-8");
}
extern "C" const QV_ENCODING_T *PlatformEncoding_L(void) {
    return UTF8Encoding_L();
}
extern "C" const QV_ENCODING_T *ASCIIEncoding_L(void) {
    static std::atomic<const QV_ENCODING_T *> encoding{nullptr};
    return well_known(encoding, "US-ASCII");
}
extern "C" const QV_ENCODING_T *Latin1Encoding_L(void) {
    static std::atomic<const QV_ENCODING_T *> encoding{nullptr};
    return well_known(encoding, "ISO-8859-1");
}
extern "C" const QV_ENCODING_T *UTF16Encoding_L(void) {
    return ordered(2, little_endian);
}
extern "C" const QV_ENCODING_T *UTF32Encoding_L(void) {
    return ordered(4, little_endian);
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
    return convert_to_heap(or_platform(from), text, length, or_platform(to), out, out_length) ? 0
                                                                                              : -1;
}

extern "C" int32_t ConvertEncodingNoAlloc_L(const QV_ENCODING_T *from, const char *text,
                                            int32_t length, const QV_ENCODING_T *to, char *buffer,
                                            int32_t capacity) {
    if (text == nullptr || buffer == nullptr || capacity < 0 || length < -1) return -1;
    from = or_platform(from);
    to = or_platform(to);
    if (length < 0) length = terminated_length(text, from->terminator_width);
    const int32_t width = to->terminator_width;
    if (capacity < width) return -2;
    Sink sink(buffer, capacity - width);
    switch (convert_into(from, text, length, to, sink)) {
        case Outcome::done: std::memset(buffer + sink.size(), 0, width); return sink.size();
        case Outcome::too_small: std::memset(buffer, 0, width); return -2;
        case Outcome::failed: std::memset(buffer, 0, width); return -1;
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
    iter->converter = nullptr;
    if (text == nullptr || length < -1)
        length = 0;
    else if (length < 0)
        length = terminated_length(text, encoding->terminator_width);
    iter->encoding = encoding;
    iter->position = text;
    iter->end = text == nullptr ? nullptr : text + length;
    if (text != nullptr) {
        const Source source = resolve_source(encoding, text, length);
        if (source.encoding != nullptr) {
            iter->encoding = source.encoding;
            iter->position = source.text;
        }
    }
    if (!read_through_icu(kind_of(iter->encoding))) return 0;
    ConverterPtr converter =
        iter->encoding->icu_name != nullptr ? open_converter(iter->encoding->icu_name) : nullptr;
    if (!converter) {
        iter->position = iter->end;
        return -1;
    }
    iter->converter = converter.release();
    return 0;
}

namespace {

// Through ICU: a converter may hold a character back (looking ahead for a trail surrogate,
// or bits of an unfinished sequence), so it is asked once more at the end of the bytes.
// Lone surrogates read as U+FFFD, as conversion writes them.
int32_t next_through_icu(QV_CODEPOINT_ITER_T *iter) {
    if (iter->converter == nullptr) return -1;
    UErrorCode status = U_ZERO_ERROR;
    UChar32 c = ucnv_getNextUChar(static_cast<UConverter *>(iter->converter), &iter->position,
                                  iter->end, &status);
    if (status == U_INDEX_OUTOFBOUNDS_ERROR) return -1;
    if (U_FAILURE(status)) {
        iter->position = iter->end;
        return replacement;
    }
    return qv::utf::is_scalar(c) ? c : replacement;
}

} // namespace

extern "C" int32_t NextCodePoint_L(QV_CODEPOINT_ITER_T *iter) {
    if (iter == nullptr || iter->position == nullptr) return -1;
    const Kind kind = kind_of(iter->encoding);
    if (read_through_icu(kind)) return next_through_icu(iter);
    if (iter->position >= iter->end) return -1;
    auto *p = reinterpret_cast<const uint8_t *>(iter->position);
    auto left = static_cast<int32_t>(iter->end - iter->position);
    int32_t c = replacement;
    int32_t used = 1;
    switch (kind) {
        case Kind::utf8: used = qv::utf::decode_utf8(p, left, c); break;
        case Kind::ascii: c = p[0] < 0x80 ? p[0] : replacement; break;
        case Kind::latin1: c = p[0]; break;
        case Kind::utf16le: used = qv::utf::decode_utf16<true>(p, left, c); break;
        case Kind::utf16be: used = qv::utf::decode_utf16<false>(p, left, c); break;
        case Kind::utf32le: used = qv::utf::decode_utf32<true>(p, left, c); break;
        case Kind::utf32be: used = qv::utf::decode_utf32<false>(p, left, c); break;
        default: break;
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
    if (buffer == nullptr || capacity <= 0 || !qv::utf::is_scalar(code_point)) return -1;
    const QV_ENCODING_T *given = or_platform(encoding);
    encoding = resolve_target(given);
    uint8_t bytes[16];
    int32_t length = -1;
    switch (kind_of(encoding)) {
        case Kind::utf8: length = qv::utf::encode_utf8(code_point, bytes); break;
        case Kind::ascii: length = encode_single_byte(code_point, 0x80, bytes); break;
        case Kind::latin1: length = encode_single_byte(code_point, 0x100, bytes); break;
        case Kind::utf16le: length = qv::utf::encode_utf16<true>(code_point, bytes); break;
        case Kind::utf16be: length = qv::utf::encode_utf16<false>(code_point, bytes); break;
        case Kind::utf32le: length = qv::utf::encode_utf32<true>(code_point, bytes); break;
        case Kind::utf32be: length = qv::utf::encode_utf32<false>(code_point, bytes); break;
        default: length = encode_with_icu(encoding, code_point, bytes, sizeof bytes); break;
    }
    if (length < 0) return -1;
    // In a generic marked encoding, a character that would read as a mark gets one before it.
    const int32_t width = encoding->terminator_width;
    const char *text = reinterpret_cast<const char *>(bytes);
    const int32_t mark = encoding != given && mark_order(text, length, width) >= 0 ? width : 0;
    if (mark + length > capacity) return -1;
    std::memcpy(buffer, mark_of(width, little_endian), static_cast<size_t>(mark));
    std::memcpy(buffer + mark, bytes, static_cast<size_t>(length));
    return mark + length;
}

// ---------------------------------------------------------------------------------------
// Exported: UTF-8 helpers
// ---------------------------------------------------------------------------------------

extern "C" const uint8_t UTF8TrailBytes_L[256] = {
#define QV_ROW(base)                                                                               \
    qv::utf::trail_bytes[base + 0], qv::utf::trail_bytes[base + 1],                                \
        qv::utf::trail_bytes[base + 2], qv::utf::trail_bytes[base + 3],                            \
        qv::utf::trail_bytes[base + 4], qv::utf::trail_bytes[base + 5],                            \
        qv::utf::trail_bytes[base + 6], qv::utf::trail_bytes[base + 7],                            \
        qv::utf::trail_bytes[base + 8], qv::utf::trail_bytes[base + 9],                            \
        qv::utf::trail_bytes[base + 10], qv::utf::trail_bytes[base + 11],                          \
        qv::utf::trail_bytes[base + 12], qv::utf::trail_bytes[base + 13],                          \
        qv::utf::trail_bytes[base + 14], qv::utf::trail_bytes[base + 15]
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
    return qv::utf::decode_utf8(text, length, *code_point);
}

// Counts what DecodeUTF8_L would step over, so an invalid sequence counts once per U+FFFD.
extern "C" int32_t StrlenUTF8_L(const char *text) {
    if (text == nullptr) return 0;
    size_t bytes = std::strlen(text);
    return qv::utf::count_utf8(text, bytes > INT32_MAX ? INT32_MAX : static_cast<int32_t>(bytes));
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
    size_t n = length < 0 ? std::strlen(text) : static_cast<size_t>(length);
    return qv::utf::all_ascii(text, n) ? 1 : 0;
}

// ---------------------------------------------------------------------------------------
// Exported: code-point classes (white space is the Unicode White_Space property)
// ---------------------------------------------------------------------------------------

extern "C" uint8_t IsSpaceCodePoint_L(int32_t c) {
    return qv::utf::is_scalar(c) && u_isUWhiteSpace(c);
}
extern "C" uint8_t IsDigitCodePoint_L(int32_t c) {
    return qv::utf::is_scalar(c) && u_isdigit(c);
}
extern "C" uint8_t IsAlphaCodePoint_L(int32_t c) {
    return qv::utf::is_scalar(c) && u_isalpha(c);
}
extern "C" uint8_t IsAlnumCodePoint_L(int32_t c) {
    return qv::utf::is_scalar(c) && u_isalnum(c);
}
extern "C" uint8_t IsUpperCodePoint_L(int32_t c) {
    return qv::utf::is_scalar(c) && u_isupper(c);
}
extern "C" uint8_t IsLowerCodePoint_L(int32_t c) {
    return qv::utf::is_scalar(c) && u_islower(c);
}
extern "C" int32_t ToUpperCodePoint_L(int32_t c) {
    return qv::utf::is_scalar(c) ? u_toupper(c) : c;
}
extern "C" int32_t ToLowerCodePoint_L(int32_t c) {
    return qv::utf::is_scalar(c) ? u_tolower(c) : c;
}

namespace {

// The common descriptors are made when the library is loaded, so that no member has to make
// one (and find memory short) in the middle of its work.
[[maybe_unused]] const bool common_descriptors_made = [] {
    for (bool little : {false, true}) ordered(2, little), ordered(4, little);
    return UTF8Encoding_L() && ASCIIEncoding_L() && Latin1Encoding_L();
}();

} // namespace
