// dataval.hpp - what the files of the dataval module share: type families, the release of
// a value's payload, array blocks, the text form of a value (borrowed or printed), and the
// reading of a value as a number.
//
// The module spans dataval.cpp (the record, copies, arrays), dataval_text.cpp (text forms),
// dataval_convert.cpp (ConvertValue_L and the conversions to one type) and
// dataval_compare.cpp (order, equality, checksums, one-value arithmetic); all report as
// "dataval".
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "core/heap.hpp"
#include "qv/dataval.h"
#include "qv/precise.h"

namespace qv::values {

// ---- Type families ------------------------------------------------------------------------

constexpr uint32_t kTextTypes = QV_TYPE_CHAR | QV_TYPE_CLOB;
constexpr uint32_t kByteTypes = QV_TYPE_BINARY | QV_TYPE_BLOB;
constexpr uint32_t kNumberTypes = QV_TYPE_INTEGER | QV_TYPE_FLOAT | QV_TYPE_NUMBER;
constexpr uint32_t kDateTypes = QV_TYPE_DATE | QV_TYPE_DATE_TZ;
constexpr uint32_t kTimeTypes = QV_TYPE_TIME | QV_TYPE_TIME_TZ;
constexpr uint32_t kZoneTypes = QV_TYPE_DATE_TZ | QV_TYPE_TIME_TZ;

// True when `type` is exactly one of the codes in `family` (a mask is none of them).
constexpr bool is_one_of(uint32_t type, uint32_t family) {
    return type != 0 && (type & (type - 1)) == 0 && (type & family) != 0;
}

inline uint32_t type_of(const QV_VALUE_T &value) {
    return value.descriptor.type;
}
// A value whose content lives in the file its payload names.
inline bool in_file(const QV_VALUE_T &value) {
    return (value.descriptor.extra & QV_VALUE_IN_FILE) != 0 &&
           is_one_of(type_of(value), QV_TYPE_CLOB | QV_TYPE_BLOB);
}
// The name of the file behind a file-backed value: a CLOB's text, a BLOB's byte pointer.
inline char *file_name(const QV_VALUE_T &value) {
    return type_of(value) == QV_TYPE_CLOB ? value.payload.string.text
                                          : reinterpret_cast<char *>(value.payload.binary.bytes);
}
inline bool is_null(const QV_VALUE_T *value) {
    return value == nullptr || value->is_null != 0;
}

// Frees what the value owns (file, text, bytes, array block with its elements), then zeroes
// the payload and owns_payload and clears QV_VALUE_IN_FILE. is_null and the evaluator's
// fields stay.
void release_payload(QV_VALUE_T &value);
// release_payload, then the value is NULL of the same type.
void make_null(QV_VALUE_T &value);

// A value record that frees what it owns when it goes, also when a raise passes.
class HeldValue {
  public:
    HeldValue() : value_{} {}
    // Takes over what `source` owns (source then only borrows it): the stand-in for a source
    // that would go with the destination it is converted into.
    explicit HeldValue(const QV_VALUE_T &source) : value_(source) {
        const_cast<QV_VALUE_T &>(source).owns_payload = 0;
    }
    HeldValue(const HeldValue &) = delete;
    HeldValue &operator=(const HeldValue &) = delete;
    ~HeldValue() { release_payload(value_); }
    QV_VALUE_T &operator*() { return value_; }
    QV_VALUE_T *operator->() { return &value_; }
    // Hands the record over; nothing is left to free.
    QV_VALUE_T take() {
        QV_VALUE_T value = value_;
        value_ = {};
        return value;
    }

  private:
    QV_VALUE_T value_;
};

// dest becomes a deep copy of src (dest must own nothing). False after an allocation failure
// whose raise returned; dest is then NULL.
bool copy_value(QV_VALUE_T &dest, const QV_VALUE_T &src);
// True when `part` lies in the array blocks that the ARRAY `whole` owns, at any depth.
bool in_blocks_of(const QV_VALUE_T &whole, const QV_VALUE_T *part);
// True when `part` is `whole` or lies in its array blocks.
inline bool contains(const QV_VALUE_T &whole, const QV_VALUE_T *part) {
    return &whole == part || (whole.descriptor.type == QV_TYPE_ARRAY && in_blocks_of(whole, part));
}

// ---- Arrays ----------------------------------------------------------------------------

// The block of an ARRAY value (null for none), and its element count.
inline QV_VALUE_T *array_block(const QV_VALUE_T &value) {
    return type_of(value) == QV_TYPE_ARRAY ? value.payload.array : nullptr;
}
inline int64_t array_count(const QV_VALUE_T &value) {
    const QV_VALUE_T *block = array_block(value);
    return block != nullptr && !value.is_null && block->payload.integer > 0 ? block->payload.integer
                                                                            : 0;
}
// Makes the value an owned, non-NULL ARRAY of `count` elements (new ones NULL and untyped).
// False after an allocation failure whose raise returned (the value unchanged).
bool resize_array(QV_VALUE_T &value, int64_t count);

// ---- Files -------------------------------------------------------------------------------

// The whole content of the file `path` as a heap block with a zero terminator of `zeros`
// bytes; false when it cannot be read.
bool read_whole_file(const char *path, HeapText &content, std::size_t &size, std::size_t zeros);

// ---- Text forms ----------------------------------------------------------------------------

// Bytes of the terminator of texts in `encoding` (null: the platform's UTF-8).
inline std::size_t terminator_width(const QV_ENCODING_T *encoding) {
    return encoding != nullptr ? static_cast<std::size_t>(encoding->terminator_width) : 1;
}
// True when text in `encoding` can be read as UTF-8 bytes.
inline bool is_utf8(const QV_ENCODING_T *encoding) {
    return encoding == nullptr || encoding->utf8_direct;
}

// Room for the text form of every type of a fixed size: a FLOAT prints up to 340 characters.
constexpr std::size_t kFixedTextSize = 400;

// Prints the text form of a non-NULL INTEGER, FLOAT, NUMBER, BOOLEAN, date, time or interval
// value into `out` (kFixedTextSize bytes, terminated). Returns the length, or -1 for another
// type or an invalid NUMBER.
int print_fixed(const QV_VALUE_T &value, char *out);

// The text form of a value: borrowed from a text value, or printed into a buffer of its own.
// Its encoding is the value's for CHAR and CLOB, else null (UTF-8).
class TextForm {
  public:
    TextForm() = default;
    TextForm(const TextForm &) = delete;
    TextForm &operator=(const TextForm &) = delete;

    // False for a NULL value or one without a text form (a file that cannot be read, a
    // LIST); may raise ALLOC_FAILURE.
    bool make(const QV_VALUE_T &value);
    // As make, converted to UTF-8 when the value's text is in another encoding.
    bool make_utf8(const QV_VALUE_T &value);

    std::string_view view() const { return {data_, size_}; }
    const char *data() const { return data_; }
    std::size_t size() const { return size_; }
    const QV_ENCODING_T *encoding() const { return encoding_; }
    // A heap text of the form ended by its encoding's terminator (taken over when the form
    // owns one already); null after an allocation failure whose raise returned.
    char *detach();

  private:
    void own(HeapText text, std::size_t size, const QV_ENCODING_T *encoding);
    bool to_utf8();

    char fixed_[kFixedTextSize];
    HeapText owned_;
    std::size_t owned_capacity_ = 0; // bytes of owned_, terminator included
    const char *data_ = nullptr;
    std::size_t size_ = 0;
    const QV_ENCODING_T *encoding_ = nullptr;
};

// The bytes the block of dest's own in-memory text holds (0 when dest owns no such text).
std::size_t text_room(const QV_VALUE_T &dest);
// dest (typed CHAR or CLOB) holds the pieces joined and ended by the terminator of
// `encoding`: in dest's own block when that has room (malloc_usable_size) and holds none of
// the pieces, else in a new block. False (dest NULL) after an allocation failure whose raise
// returned.
bool join_text_into(QV_VALUE_T &dest, std::span<const std::string_view> pieces,
                    const QV_ENCODING_T *encoding);
// join_text_into of one piece.
bool copy_text_into(QV_VALUE_T &dest, std::string_view text, const QV_ENCODING_T *encoding);

// The value's own text when it is an in-memory CHAR or CLOB (a null text reads as empty).
bool own_text(const QV_VALUE_T &value, std::string_view &text);

// The bytes of a value: borrowed from an in-memory BINARY or BLOB, read from a file-backed
// BLOB's file, or decoded from the hexadecimal digits of a text value.
class ByteForm {
  public:
    // False for a NULL value, an unreadable file, a text that is not hexadecimal digits, or
    // another type; may raise ALLOC_FAILURE.
    bool make(const QV_VALUE_T &value);
    const uint8_t *data() const { return data_; }
    uint32_t size() const { return size_; }
    // A heap copy of the bytes (taken over when the form owns them); null for no bytes or
    // after an allocation failure whose raise returned.
    uint8_t *detach();

  private:
    HeapArray<uint8_t> owned_;
    const uint8_t *data_ = nullptr;
    uint32_t size_ = 0;
};

// Reads hexadecimal digit pairs (blanks around them ignored) into a heap block; false when
// the text holds anything else or an odd count of digits. An empty text gives no block.
bool decode_hex(std::string_view text, HeapArray<uint8_t> &bytes, uint32_t &length);
// Writes `length` bytes as "%02X" pairs into out (2 * length bytes, not terminated).
void encode_hex(const uint8_t *bytes, std::size_t length, char *out);

// The text without the blanks around it.
std::string_view trimmed(std::string_view text);

// ---- Numbers -------------------------------------------------------------------------

// A value read as a number: an integer with a decimal scale (integer x 10^-scale), a double,
// or an exact decimal (`exact` points at the value itself or at `scratch`).
struct Reading {
    enum class Kind { kNone, kTooLarge, kInteger, kReal, kExact } kind = Kind::kNone;
    int64_t integer = 0;
    int32_t scale = 0;
    double real = 0;
    const QV_PRECISE_T *exact = nullptr;
    QV_PRECISE_T scratch;
};
// Reads a non-NULL value as a number. Texts are read as exact decimals, or as doubles when
// `prefer_real` (the correctly rounded reading of a FLOAT target).
void read_number(const QV_VALUE_T &value, bool prefer_real, Reading &reading);
// The reading as an exact decimal (NUMBER of its own precision) in `out`; false when it has
// none (the kinds kNone and kTooLarge, and doubles beyond 77 digits or not finite).
bool reading_to_number(const Reading &reading, QV_PRECISE_T &out);

// -1, 0, 1: the order of two non-NULL values of the number types, exact across types and
// scales; NaN above every number and equal to NaN.
int compare_numbers(const QV_VALUE_T &a, const QV_VALUE_T &b);

} // namespace qv::values
