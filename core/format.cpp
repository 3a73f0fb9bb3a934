// format.cpp - the library's own formatted printing (VAsprintf_L, Asprintf_L, Asprintf8_L),
// part of the "alloc" module.
//
// Every call formats into one process-wide work text and then appends that text to the
// caller's heap text *out. The work text is registered in the allocation table (its owner
// is `work_owner`, so *work_owner is the text) and lives until Free_Alloc_Ptrs_L releases
// it; the next call then registers and allocates it again, which is why first use is
// detected by the owner being null. It starts at 512 bytes and only grows: by steps of 512
// for literal characters, to the exact need for a converted item. Once it is big enough, a
// call allocates nothing but the result. Its size is kept within the int range; an item
// that would pass it raises ALLOC_FAILURE.
//
// A conversion is %, flags (- and 0 in any order), a width (digits or *), a precision
// (. then digits or *), a size (the exact text "I64d"; l, or C's ll, j, z, t, h, hh) and a
// conversion character; see alloc.h for the set. Digit strings are clamped to INT_MAX rather than
// overflowing. Integer digits are written here; %p and %f go through snprintf.
//
// When an allocation fails and no status context is open, the raise returns here and the
// call is abandoned: *out is left exactly as it was and returned. Nothing built before the
// raise is used afterwards.
//
// %S prints a counted string (strings/) through the conversion that floor installs
// (core/format.hpp); core itself includes nothing above it.
#define QV_MODULE "alloc"
#include <bit>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "core/append.hpp"
#include "core/format.hpp"
#include "core/raise.hpp"
#include "qv/alloc.h"

namespace qv {
namespace {

constexpr std::size_t work_initial_capacity = 512;
constexpr std::size_t work_growth_step = 512;
constexpr std::size_t work_size_limit = INT_MAX;
constexpr std::size_t scratch_size = 1024;

void **work_owner = nullptr;   // registered in the allocation table; *work_owner is the text
std::size_t work_capacity = 0; // bytes allocated at *work_owner
char scratch[scratch_size];    // the texts of %p and %f

constexpr char null_text[] = "<NULL>";
constexpr char lower_hex_digits[] = "0123456789abcdef";
constexpr char upper_hex_digits[] = "0123456789ABCDEF";

// "00" "01" ... "99": decimal digits are produced two at a time.
constexpr auto decimal_pairs = [] {
    struct Pairs {
        char text[200];
    } pairs{};
    for (int i = 0; i < 100; ++i) {
        pairs.text[2 * i] = static_cast<char>('0' + i / 10);
        pairs.text[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

// The size prefix of an integer conversion: which argument type it reads, as C's printf
// does ("I64d" reads a long long). Only l changes %f: it reads a double.
enum class Size : uint8_t { none, hh, h, l, ll, j, z, t };

// Flags, width, precision and size of one conversion.
struct Spec {
    int width = 0;      // never negative
    int precision = -1; // -1: none given
    bool left = false;
    bool zero_fill = false;
    Size size = Size::none;
};

bool print_nothing(const QV_STRING_T &, PrintableText &printable) {
    printable.text = "";
    return true;
}

CountedTextHook counted_text = print_nothing;

// Writes the digits of `value` so that they end just before `end`; returns where they
// begin. `end` must have 22 bytes of room before it.
char *decimal_digits(uint64_t value, char *end) {
    while (value >= 100) {
        const unsigned pair = static_cast<unsigned>(value % 100) * 2;
        value /= 100;
        *--end = decimal_pairs.text[pair + 1];
        *--end = decimal_pairs.text[pair];
    }
    if (value >= 10) {
        const unsigned pair = static_cast<unsigned>(value) * 2;
        *--end = decimal_pairs.text[pair + 1];
        *--end = decimal_pairs.text[pair];
    } else {
        *--end = static_cast<char>('0' + value);
    }
    return end;
}

// The number of decimal digits of `value` (1 for 0).
std::size_t decimal_count(uint64_t value) {
    std::size_t count = 1;
    for (; value >= 10000; value /= 10000) count += 4;
    return count + (value >= 10) + (value >= 100) + (value >= 1000);
}

// The number of digits in base 8 or 16 (`shift` 3 or 4) of `value` (1 for 0).
std::size_t power_of_two_count(uint64_t value, unsigned shift) {
    const auto bits = static_cast<std::size_t>(std::bit_width(value));
    return bits == 0 ? 1 : (bits + shift - 1) / shift;
}

// Digits in base 8 or 16 (`shift` 3 or 4), written as decimal_digits does.
char *power_of_two_digits(uint64_t value, unsigned shift, const char *digits, char *end) {
    const uint64_t mask = (uint64_t{1} << shift) - 1;
    do {
        *--end = digits[value & mask];
        value >>= shift;
    } while (value != 0);
    return end;
}

// Reads decimal digits at `at`, moving past them; the value is clamped to INT_MAX.
int read_count(const char *&at) {
    int64_t value = 0;
    for (; *at >= '0' && *at <= '9'; ++at) {
        value = value * 10 + (*at - '0');
        if (value > INT_MAX) value = INT_MAX;
    }
    return static_cast<int>(value);
}

// The next '%' or the terminator. Literal runs between conversions are mostly a few bytes
// ("|", ", "), which a byte loop finds sooner than a call.
const char *find_percent(const char *at) {
    for (int i = 0; i < 16; ++i, ++at)
        if (*at == '%' || *at == '\0') return at;
#ifdef __GLIBC__
    return ::strchrnul(at, '%');
#else
    while (*at != '\0' && *at != '%') ++at;
    return at;
#endif
}

// Copies n bytes. Most runs of a format (literal text between conversions, digits, short
// texts) are a few bytes, which overlapping word moves copy sooner than a call.
inline void copy_bytes(char *to, const char *from, std::size_t n) {
    auto move = [&](auto word, std::size_t at) {
        std::memcpy(&word, from + at, sizeof word);
        std::memcpy(to + at, &word, sizeof word);
    };
    if (n >= 8 && n <= 16) {
        move(uint64_t{}, 0), move(uint64_t{}, n - 8);
    } else if (n >= 4 && n < 8) {
        move(uint32_t{}, 0), move(uint32_t{}, n - 4);
    } else if (n > 16) {
        std::memcpy(to, from, n);
    } else if (n > 0) {
        to[0] = from[0];
        to[n - 1] = from[n - 1];
        if (n == 3) to[1] = from[1];
    }
}

float float_from_bits(unsigned int bits) {
    static_assert(sizeof(float) == sizeof(uint32_t));
    const auto bits32 = static_cast<uint32_t>(bits);
    float value;
    std::memcpy(&value, &bits32, sizeof value);
    return value;
}

// The work text of one call: a local view of the registered buffer. Capacity changes are
// written back to the registration as soon as they happen, so a raise leaves it sound.
class WorkText {
  public:
    // Binds to the registered buffer, registering and allocating it on first use. False
    // when that failed and the raise returned.
    bool bind() {
        if (work_owner == nullptr) {
            Get_Alloc_Ptr_L(&work_owner);
            if (work_owner == nullptr) return false;
        }
        if (*work_owner == nullptr) {
            void *block = QV_CALLOC(work_initial_capacity);
            if (block == nullptr) return false;
            *work_owner = block;
            work_capacity = work_initial_capacity;
        }
        data_ = static_cast<char *>(*work_owner);
        capacity_ = work_capacity;
        length_ = 0;
        data_[0] = '\0';
        return true;
    }

    bool append_literal(const char *text, std::size_t count) {
        const std::size_t need = length_ + count + 1;
        if (need > capacity_ && !grow_for_literal(need)) return false;
        copy_bytes(data_ + length_, text, count);
        length_ += count;
        return true;
    }

    bool append_char(char c) {
        if (length_ + 2 > capacity_ && !grow_for_literal(length_ + 2)) return false;
        data_[length_++] = c;
        return true;
    }

    // Makes room for an item of `size` bytes in a field of spec.width, writes its space
    // padding and returns where the item's bytes go; null when growing failed.
    char *place_item(std::size_t size, const Spec &spec) {
        const std::size_t field = size > static_cast<std::size_t>(spec.width) ? size : spec.width;
        const std::size_t need = length_ + field + 1;
        if (need > capacity_ && !grow_for_item(need)) return nullptr;
        char *at = data_ + length_;
        length_ += field;
        const std::size_t padding = field - size;
        if (padding == 0) return at;
        if (!spec.left) {
            std::memset(at, ' ', padding);
            at += padding;
        } else {
            std::memset(at + size, ' ', padding);
        }
        return at;
    }

    bool append_item(const char *text, std::size_t size, const Spec &spec) {
        char *at = place_item(size, spec);
        if (at == nullptr) return false;
        copy_bytes(at, text, size);
        return true;
    }

    // Ensures `extra` more bytes and a terminator fit, growing to exactly that need.
    bool reserve_item(std::size_t extra) {
        const std::size_t need = length_ + extra + 1;
        return need <= capacity_ || grow_for_item(need);
    }

    char *end() { return data_ + length_; }
    void advance(std::size_t count) { length_ += count; }
    std::size_t length() const { return length_; }
    const char *data() const { return data_; }

  private:
    bool grow_for_literal(std::size_t need) {
        if (need > work_size_limit) {
            QV_RAISE(ALLOC_FAILURE);
            return false;
        }
        const std::size_t steps = (need - capacity_ + work_growth_step - 1) / work_growth_step;
        const std::size_t capacity = capacity_ + steps * work_growth_step;
        return adopt(QV_REALLOC(data_, capacity), capacity);
    }

    bool grow_for_item(std::size_t need) {
        if (need > work_size_limit) {
            QV_RAISE(ALLOC_FAILURE);
            return false;
        }
        return adopt(QV_REALLOC(data_, need), need);
    }

    bool adopt(void *block, std::size_t capacity) {
        if (block == nullptr) return false;
        *work_owner = block;
        work_capacity = capacity;
        data_ = static_cast<char *>(block);
        capacity_ = capacity;
        return true;
    }

    char *data_ = nullptr;
    std::size_t length_ = 0;
    std::size_t capacity_ = 0;
};

// The formatting of one call: the work text, the argument list and where the result ends
// (a %c of byte 0 ends it early, as the result is a terminated text).
class Formatter {
  public:
    // Reads the arguments from the caller's list, which it leaves used up.
    explicit Formatter(va_list &arguments) : arguments_(arguments) {}
    Formatter(const Formatter &) = delete;
    Formatter &operator=(const Formatter &) = delete;

    // Formats `format` into the work text. False when an allocation failed and the raise
    // returned.
    bool run(const char *format) {
        if (!work_.bind()) return false;
        const char *at = format;
        for (;;) {
            const char *percent = find_percent(at);
            if (percent != at && !work_.append_literal(at, percent - at)) return false;
            if (*percent == '\0') break;
            at = convert(percent + 1);
            if (at == nullptr) return false;
        }
        if (result_length_ > work_.length()) result_length_ = work_.length();
        return true;
    }

    const char *result() const { return work_.data(); }
    std::size_t result_length() const { return result_length_; }

  private:
    // Reads one conversion after its % and appends it; returns where the format goes on,
    // or null when an allocation failed.
    const char *convert(const char *at) {
        Spec spec;
        at = read_spec(at, spec);
        const char conversion = *at;
        if (conversion == '\0') return at;
        if (!dispatch(conversion, spec)) return nullptr;
        return at + 1;
    }

    const char *read_spec(const char *at, Spec &spec) {
        for (;; ++at) {
            if (*at == '-')
                spec.left = true;
            else if (*at == '0')
                spec.zero_fill = true;
            else
                break;
        }
        if (*at == '*') {
            ++at;
            const int width = va_arg(arguments_, int);
            if (width < 0) spec.left = true;
            spec.width = width >= 0 ? width : (width == INT_MIN ? INT_MAX : -width);
        } else {
            spec.width = read_count(at);
        }
        if (*at == '.') {
            ++at;
            if (*at == '*') {
                ++at;
                const int precision = va_arg(arguments_, int);
                spec.precision = precision >= 0 ? precision : -1;
            } else {
                spec.precision = read_count(at);
            }
        }
        at = read_size(at, spec);
        if (spec.left) spec.zero_fill = false;
        return at;
    }

    static const char *read_size(const char *at, Spec &spec) {
        switch (*at) {
            case 'I':
                if (std::strncmp(at, "I64d", 4) != 0) return at;
                spec.size = Size::ll;
                return at + 3;
            case 'l': return doubled(at, 'l', Size::l, Size::ll, spec);
            case 'h': return doubled(at, 'h', Size::h, Size::hh, spec);
            case 'j': spec.size = Size::j; return at + 1;
            case 'z': spec.size = Size::z; return at + 1;
            case 't': spec.size = Size::t; return at + 1;
            default: return at;
        }
    }

    // One letter gives `single`, the same letter twice `twice`.
    static const char *doubled(const char *at, char letter, Size single, Size twice, Spec &spec) {
        const bool two = at[1] == letter;
        spec.size = two ? twice : single;
        return at + (two ? 2 : 1);
    }

    bool dispatch(char conversion, const Spec &spec) {
        switch (conversion) {
            case 'd':
            case 'i': return put_signed(spec);
            case 'u': return put_unsigned(read_unsigned(spec.size), spec, 10, nullptr);
            case 'o': return put_unsigned(read_unsigned(spec.size), spec, 3, lower_hex_digits);
            case 'x': return put_unsigned(read_unsigned(spec.size), spec, 4, lower_hex_digits);
            case 'X': return put_unsigned(read_unsigned(spec.size), spec, 4, upper_hex_digits);
            case 'c': return put_char(spec);
            case 's':
            case 'U': return put_text(va_arg(arguments_, const char *), spec);
            case 'S': return put_counted_string(spec);
            case 'p': return put_pointer();
            case 'f': return put_float(spec);
            default: return work_.append_char(conversion);
        }
    }

    // The argument of d or i, by its size (a promoted short or char is cut back as C does).
    int64_t read_signed(Size size) {
        switch (size) {
            case Size::hh: return static_cast<signed char>(va_arg(arguments_, int));
            case Size::h: return static_cast<short>(va_arg(arguments_, int));
            case Size::l: return va_arg(arguments_, long);
            case Size::ll: return va_arg(arguments_, long long);
            case Size::j: return va_arg(arguments_, intmax_t);
            case Size::z: return va_arg(arguments_, std::make_signed_t<std::size_t>);
            case Size::t: return va_arg(arguments_, std::ptrdiff_t);
            case Size::none: break;
        }
        return va_arg(arguments_, int);
    }

    // The argument of u, o, x or X, by its size.
    uint64_t read_unsigned(Size size) {
        switch (size) {
            case Size::hh: return static_cast<unsigned char>(va_arg(arguments_, unsigned int));
            case Size::h: return static_cast<unsigned short>(va_arg(arguments_, unsigned int));
            case Size::l: return va_arg(arguments_, unsigned long);
            case Size::ll: return va_arg(arguments_, unsigned long long);
            case Size::j: return va_arg(arguments_, uintmax_t);
            case Size::z: return va_arg(arguments_, std::size_t);
            case Size::t: return va_arg(arguments_, std::make_unsigned_t<std::ptrdiff_t>);
            case Size::none: break;
        }
        return va_arg(arguments_, unsigned int);
    }

    bool put_signed(const Spec &spec) {
        const int64_t value = read_signed(spec.size);
        const bool negative = value < 0;
        // Negating in unsigned arithmetic keeps the most negative value exact.
        const uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(value) : value;
        return put_integer(magnitude, negative, spec, 10, nullptr);
    }

    bool put_unsigned(uint64_t value, const Spec &spec, unsigned shift, const char *digits) {
        return put_integer(value, false, spec, shift, digits);
    }

    // Sign, zeros up to the minimum digit count, then the digits. `shift` 10 means decimal,
    // otherwise the bits per digit of `digits`.
    bool put_integer(uint64_t magnitude, bool negative, const Spec &spec, unsigned shift,
                     const char *digits) {
        const std::size_t count =
            shift == 10 ? decimal_count(magnitude) : power_of_two_count(magnitude, shift);
        std::size_t minimum = 1;
        if (spec.precision >= 0)
            minimum = spec.precision;
        else if (spec.zero_fill && spec.width > static_cast<int>(negative))
            minimum = spec.width - static_cast<int>(negative);
        const std::size_t zeros = minimum > count ? minimum - count : 0;
        char *at = work_.place_item(negative + zeros + count, spec);
        if (at == nullptr) return false;
        if (negative) *at++ = '-';
        if (zeros != 0) std::memset(at, '0', zeros);
        // Written in place: copying digits just written would wait for the writes.
        char *end = at + zeros + count;
        if (shift == 10)
            decimal_digits(magnitude, end);
        else
            power_of_two_digits(magnitude, shift, digits, end);
        return true;
    }

    // A byte 0 ends the result where it lands, after any padding before it.
    bool put_char(const Spec &spec) {
        const char c = static_cast<char>(va_arg(arguments_, int));
        char *at = work_.place_item(1, spec);
        if (at == nullptr) return false;
        *at = c;
        const auto ends_at = static_cast<std::size_t>(at - work_.data());
        if (c == '\0' && result_length_ > ends_at) result_length_ = ends_at;
        return true;
    }

    bool put_text(const char *text, const Spec &spec) {
        if (text == nullptr) text = null_text;
        const std::size_t size =
            spec.precision >= 0 ? strnlen(text, spec.precision) : std::strlen(text);
        return work_.append_item(text, size, spec);
    }

    // A null counted string takes the next argument as a plain text instead. A conversion
    // that ran out of memory with no context open abandons the call.
    bool put_counted_string(const Spec &spec) {
        const auto *string = va_arg(arguments_, const QV_STRING_T *);
        if (string == nullptr) return put_text(va_arg(arguments_, const char *), spec);
        PrintableText printable;
        if (!counted_text(*string, printable)) return false;
        return put_text(printable.text, spec);
    }

    bool put_pointer() {
        const int size = std::snprintf(scratch, scratch_size, "%p", va_arg(arguments_, void *));
        if (size <= 0) return true;
        return work_.append_item(scratch, static_cast<std::size_t>(size), Spec{});
    }

    // Equivalent to snprintf with "%" + flags - and 0 + width + "." precision + "lf". The
    // width is reserved first, so an impossible width raises before anything is formatted.
    bool put_float(const Spec &spec) {
        const double value = spec.size == Size::l
                                 ? va_arg(arguments_, double)
                                 : float_from_bits(va_arg(arguments_, unsigned int));
        if (!work_.reserve_item(spec.width)) return false;
        const int precision = spec.precision >= 0 ? spec.precision : 6;
        if (std::isfinite(value)) {
            // std::to_chars writes the digits printf's %f writes (both exact, rounded to the
            // nearest with ties to even); a text too long for the scratch area goes below.
            const auto [end, error] = std::to_chars(scratch, scratch + scratch_size, value,
                                                    std::chars_format::fixed, precision);
            if (error == std::errc{}) return put_number(scratch, end - scratch, spec);
        }
        return put_float_through_c(value, spec);
    }

    // Sign and digits in a field: zero-fill puts its zeros between the sign and the digits.
    bool put_number(const char *text, std::size_t size, const Spec &spec) {
        if (!spec.zero_fill || size >= static_cast<std::size_t>(spec.width))
            return work_.append_item(text, size, spec);
        char *at = work_.place_item(spec.width, Spec{});
        if (at == nullptr) return false;
        const bool sign = *text == '-';
        if (sign) *at++ = *text++, --size;
        const std::size_t zeros = spec.width - sign - size;
        std::memset(at, '0', zeros);
        std::memcpy(at + zeros, text, size);
        return true;
    }

    bool put_float_through_c(double value, const Spec &spec) {
        const char *format = spec.left ? "%-*.*lf" : spec.zero_fill ? "%0*.*lf" : "%*.*lf";
        const int size =
            std::snprintf(scratch, scratch_size, format, spec.width, spec.precision, value);
        if (size < 0) return true; // a text beyond the int range prints nothing
        const auto length = static_cast<std::size_t>(size);
        if (length < scratch_size) return work_.append_item(scratch, length, Spec{});
        if (!work_.reserve_item(length)) return false;
        std::snprintf(work_.end(), length + 1, format, spec.width, spec.precision, value);
        work_.advance(length);
        return true;
    }

    WorkText work_;
    va_list &arguments_;
    std::size_t result_length_ = SIZE_MAX;
};

// Appends `size` bytes of `text` to the heap text *out (making it when null). False when
// the allocation failed and the raise returned; *out is then unchanged. A text appended to
// is grown by half again at least (core/append.hpp), so a caller that builds a text one call
// at a time does not reallocate each time.
bool append_result(char **out, const char *text, std::size_t size) {
    if (*out == nullptr) {
        auto *fresh = static_cast<char *>(QV_MALLOC(size + 1));
        if (fresh == nullptr) return false;
        std::memcpy(fresh, text, size);
        fresh[size] = '\0';
        *out = fresh;
        return true;
    }
    std::size_t old_size = 0;
    char *grown = prepare_append(*out, size, &old_size, QV_MODULE, __LINE__);
    if (grown == nullptr) return false;
    copy_bytes(grown + old_size, text, size);
    grown[old_size + size] = '\0';
    *out = grown;
    return true;
}

// Formats and appends to *out; see VAsprintf_L. The list is used up.
char *format_append(char **out, const char *format, va_list &arguments) {
    if (out == nullptr) return nullptr;
    if (format == nullptr) return *out;
    Formatter formatter(arguments);
    if (!formatter.run(format)) return *out;
    append_result(out, formatter.result(), formatter.result_length());
    return *out;
}

// A copy of a caller's argument list, ended on every way out.
struct ArgumentsCopy {
    explicit ArgumentsCopy(va_list arguments) { va_copy(list, arguments); }
    ~ArgumentsCopy() { va_end(list); }
    ArgumentsCopy(const ArgumentsCopy &) = delete;
    ArgumentsCopy &operator=(const ArgumentsCopy &) = delete;
    va_list list;
};

} // namespace

void install_counted_text_hook(CountedTextHook hook) {
    counted_text = hook != nullptr ? hook : print_nothing;
}

} // namespace qv

extern "C" {

QV_API char *VAsprintf_L(char **out, const char *format, va_list arguments) {
    qv::ArgumentsCopy copy(arguments);
    return qv::format_append(out, format, copy.list);
}

// The variadic entries read their own list (no copy to make).
QV_API char *Asprintf_L(char **out, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char *result = qv::format_append(out, format, arguments);
    va_end(arguments);
    return result;
}

QV_API char *Asprintf8_L(char **out, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char *result = qv::format_append(out, format, arguments);
    va_end(arguments);
    return result;
}

} // extern "C"
