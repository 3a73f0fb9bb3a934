// builtin_shared.hpp - the rules every built-in handler keeps, written once (module
// "builtin"; the handlers live in builtin_numeric.cpp, builtin_string.cpp,
// builtin_conditional.cpp, builtin_convert.cpp, builtin_array.cpp and builtin_process.cpp).
//
// A handler is a body run through `run` (form A) or `run_b` (form B), which guard against a
// result that is also an argument: the body then writes a value of its own, moved into the
// result at the end, so that setting the result's type never frees an argument still to be
// read. A body then follows the calling contract in order:
//
//     if (!begin(result, frame, QV_TYPE_INTEGER)) return;     type first; describe: done
//     int64_t n;
//     if (!read_integer(a1, n)) return set_null(result);      NULL or unreadable: NULL
//     store_integer(result, n + 1);
//
// Readers take omitted (null) and NULL arguments as absent; `optional_*` readers give the
// default for them. Numbers are read through the value conversions (FLOAT and NUMBER cut
// toward zero for integers, text read as a number); text through `TextArgument`, which
// borrows a CHAR's or CLOB's own text and prints any other value's text form into itself,
// so reading an argument allocates nothing but for file-backed and converted texts
// (values::TextForm gives the same as UTF-8 bytes, for the handlers that join texts).
// Results: `store_text` takes over a heap text, `store_text_copy` copies one into the
// result's own block when it has room (an empty or missing text makes the result NULL);
// numbers and booleans are written in place; `set_null` frees what the result owns.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "core/raise.hpp"
#include "qv/builtin.h"
#include "qv/dataval.h"
#include "qv/qvstrlib.h"
#include "values/dataval.hpp"

namespace qv::builtin {

// Text results longer than this many bytes (or pads to more characters) are NULL rather
// than built: no expression needs them, and a stray count must not exhaust memory.
inline constexpr std::size_t kMaxResultBytes = std::size_t{1} << 28;
inline constexpr int64_t kMaxPadCharacters = int64_t{1} << 24;

// ---- Calling -------------------------------------------------------------------------------

inline bool evaluating(const EXP_CALL_FRAME_T *frame) {
    return frame != nullptr && frame->mode == QV_MODE_EVALUATE;
}

// Runs `body` with a NULL untyped value of its own as the result, then frees `result` and
// moves that value into it (the evaluator's fields of `result` stay). The value is freed if
// a raise passes.
void run_aside(QV_VALUE_T *result, FunctionRef<void(QV_VALUE_T *aside)> body);

// A form-A handler: Body(result, frame, arguments...) unless result is null.
template <auto Body, class... Arguments>
void run(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, Arguments... arguments) {
    if (result == nullptr) return;
    if (((result == arguments) || ...)) [[unlikely]] {
        run_aside(result, [&](QV_VALUE_T *aside) { Body(aside, frame, arguments...); });
        return;
    }
    Body(result, frame, arguments...);
}

// The arguments of a form-B call (none when the frame has no array).
struct Arguments {
    QV_VALUE_T *const *values = nullptr;
    int32_t count = 0;
    QV_VALUE_T *operator[](int32_t i) const { return i < count ? values[i] : nullptr; }
    const QV_VALUE_T *const *begin() const { return values; }
    const QV_VALUE_T *const *end() const { return values + count; }
};
Arguments arguments_of(const EXP_CALL_FRAME_T *frame);

// A form-B handler: Body(result, frame, arguments) unless result is null.
template <auto Body>
void run_b(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame) {
    if (result == nullptr) return;
    const Arguments given = arguments_of(frame);
    for (const QV_VALUE_T *argument : given)
        if (argument == result) [[unlikely]] {
            run_aside(result, [&](QV_VALUE_T *aside) { Body(aside, frame, given); });
            return;
        }
    Body(result, frame, given);
}

// Step 1 of every handler: the result's type, precision and scale (payload kept when the
// type stays). Returns true when the call evaluates.
inline bool begin(QV_VALUE_T *result, const EXP_CALL_FRAME_T *frame, uint32_t type,
                  int32_t precision = 0, int32_t scale = 0) {
    const QV_DATATYPE_T &d = result->descriptor;
    if (d.type != type || d.precision != precision || d.scale != scale) [[unlikely]]
        SetValueTypePrecScale_L(result, type, precision, scale);
    return evaluating(frame);
}
// begin with the type, precision and scale of `model` (its payload flags not taken); a
// missing model leaves the result untyped.
bool begin_like(QV_VALUE_T *result, const EXP_CALL_FRAME_T *frame, const QV_VALUE_T *model);

// ---- Arguments ---------------------------------------------------------------------------

// An argument with a value: given, not NULL, and typed (a zeroed record holds nothing).
inline bool present(const QV_VALUE_T *value) {
    return value != nullptr && value->is_null == 0 && value->descriptor.type != 0;
}

// A present argument as a 64-bit integer (FLOAT and NUMBER cut toward zero, text read);
// false when absent or when it does not read as one or does not fit.
inline bool read_integer(const QV_VALUE_T *value, int64_t &out) {
    if (!present(value)) return false;
    if (value->descriptor.type == QV_TYPE_INTEGER) {
        out = value->payload.integer;
        return true;
    }
    return ValueToInteger_L(value, &out) == QV_VALUE_OK;
}
// A present argument as a double; false when absent or unreadable.
inline bool read_double(const QV_VALUE_T *value, double &out) {
    if (!present(value)) return false;
    if (value->descriptor.type == QV_TYPE_FLOAT) {
        out = value->payload.real;
        return true;
    }
    return ValueToDouble_L(value, &out) == QV_VALUE_OK;
}
// read_integer, with `fallback` for an omitted or NULL argument.
inline bool optional_integer(const QV_VALUE_T *value, int64_t fallback, int64_t &out) {
    if (!present(value)) {
        out = fallback;
        return true;
    }
    return read_integer(value, out);
}
// A BOOLEAN-like argument's truth; `fallback` when omitted, NULL or unreadable.
bool optional_truth(const QV_VALUE_T *value, bool fallback);

// A count or position for the counted strings, whose arguments are 32-bit.
inline int32_t clamp32(int64_t n) {
    return n < INT32_MIN ? INT32_MIN : n > INT32_MAX ? INT32_MAX : static_cast<int32_t>(n);
}

// The text of an argument as a counted string: a CHAR's or CLOB's own text (a null text
// reads as empty), or the text form of any other value (UTF-8), printed into the reader.
class TextArgument {
  public:
    // False for an absent argument, one without a text form, or (text_only) one that is not
    // CHAR or CLOB. May raise ALLOC_FAILURE (then false).
    bool read(const QV_VALUE_T *value, bool text_only = false);
    const QV_STRING_T *get() const { return &string_; }

  private:
    values::TextForm form_;
    QV_STRING_T string_{};
};

// ---- Results -------------------------------------------------------------------------------

inline void set_null(QV_VALUE_T *result) {
    FreeValue_L(result);
}
inline void store_integer(QV_VALUE_T *result, int64_t value) {
    result->payload.integer = value;
    result->is_null = 0;
}
inline void store_double(QV_VALUE_T *result, double value) {
    result->payload.real = value;
    result->is_null = 0;
}
inline void store_boolean(QV_VALUE_T *result, bool value) {
    result->payload.boolean = value ? 1 : 0;
    result->is_null = 0;
}
// The result (typed CHAR or CLOB already) takes over `text` and its encoding; an empty or
// null text makes it NULL and is freed.
void store_text(QV_VALUE_T *result, QV_STRING_T text);
// The result (typed CHAR or CLOB already) holds a copy of `text` in `encoding`, in the
// result's own block when that has room (a row's result reuses the last row's); an empty
// text makes it NULL.
void store_text_copy(QV_VALUE_T *result, std::string_view text, const QV_ENCODING_T *encoding);
// The result (typed CHAR already) holds the UTF-8 pieces joined, as store_text_copy holds
// one; NULL past kMaxResultBytes.
void store_joined(QV_VALUE_T *result, std::span<const std::string_view> pieces);
// A text result whose text is empty (an edit in place left nothing) becomes NULL.
void null_if_empty(QV_VALUE_T *result);

// Joins UTF-8 pieces into one text, in a buffer of its own while short, then on the heap.
class TextJoiner {
  public:
    TextJoiner() = default;
    TextJoiner(const TextJoiner &) = delete;
    TextJoiner &operator=(const TextJoiner &) = delete;
    // False (and the joiner spent) after an allocation failure or past kMaxResultBytes.
    bool append(std::string_view piece);
    std::string_view view() const { return {data_, size_}; }
    // The result (typed CHAR already) takes a copy of the text in UTF-8; NULL when it is
    // empty or the joiner is spent.
    void store(QV_VALUE_T *result) const;

  private:
    bool grow(std::size_t needed);

    char local_[256];
    HeapText heap_;
    char *data_ = local_;
    std::size_t size_ = 0;
    std::size_t capacity_ = sizeof local_;
    bool spent_ = false;
};

// ---- The C mathematical functions -------------------------------------------------------

// f(x) with errno cleared first; false when f set errno (a domain, pole or range error).
template <class F>
bool checked_math(F f, double &out) {
    errno = 0;
    out = f();
    return errno == 0;
}

// A double as an INTEGER: false for NaN, infinities and values beyond 64 bits.
inline bool whole_to_integer(double whole, int64_t &out) {
    if (!(whole >= -0x1p63 && whole < 0x1p63)) return false;
    out = static_cast<int64_t>(whole);
    return true;
}

// ---- Decimal places -------------------------------------------------------------------------

// `x` rounded half away from zero (`cut`: cut toward zero) at `places` decimals, negative
// places meaning tens, hundreds ... The work is done on the 15 significant digits that the
// value's text form shows, so that Round(2.675, 2) is 2.68 and Trunc(0.29 * 100, 0) is 29,
// as the printed numbers say, and not the neighbours that binary fractions hide. NaN and
// infinities stay; a result of zero is +0.
double round_double(double x, int64_t places, bool cut);

} // namespace qv::builtin
