// dataval.cpp - the value record: freeing, setting types, making values, deep copies, array
// values, files behind large objects, MonthEnds_L; and the hook through which exact decimals
// read values of every type.
//
// A value owns memory only for CHAR and CLOB (a counted string), BINARY and BLOB (a byte
// block) and ARRAY (a block of records: a header whose payload.integer is the count, then
// the elements). For every other type the owns-payload byte means nothing and frees nothing.
// Array blocks grow in place while malloc left room at their end (malloc_usable_size), else
// to twice their size, so appending costs amortised O(1) without a stored capacity.
//
// Part of the dataval module.
#define QV_MODULE "dataval"
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "core/raise.hpp"
#include "qv/date.h"
#include "qv/platform.h"
#include "qv/qvstrlib.h"
#include "types/precise.hpp"
#include "values/dataval.hpp"

namespace qv::values {

namespace {

constexpr int64_t kMaxArrayCount = INT32_MAX;

void delete_file(char *path) {
    std::replace(path, path + std::strlen(path), '\\', '/');
    std::remove(path);
}

void free_array_block(QV_VALUE_T *block) {
    if (block == nullptr) return;
    for (int64_t i = 1; i <= block->payload.integer; ++i) FreeValue_L(&block[i]);
    std::free(block);
}

// Makes a NULL untyped record of each of `count` records.
void clear_records(QV_VALUE_T *records, int64_t count) {
    std::memset(static_cast<void *>(records), 0, static_cast<std::size_t>(count) * sizeof *records);
    for (int64_t i = 0; i < count; ++i) records[i].is_null = 1;
}

// dest (a bitwise copy of src) takes the content of src's file into memory, the flag
// dropped; NULL when the file cannot be read.
void copy_file_content(QV_VALUE_T &dest, const QV_VALUE_T &src) {
    const bool text = type_of(src) == QV_TYPE_CLOB;
    const QV_ENCODING_T *encoding = text ? src.payload.string.encoding : nullptr;
    std::memset(static_cast<void *>(&dest.payload), 0, sizeof dest.payload);
    dest.descriptor.extra &= ~QV_VALUE_IN_FILE;
    HeapText content;
    std::size_t size = 0;
    if (!read_whole_file(file_name(src), content, size, terminator_width(encoding))) {
        dest.is_null = 1;
        return;
    }
    if (text)
        dest.payload.string = {content.release(), encoding};
    else if (size > 0)
        dest.payload.binary = {static_cast<uint32_t>(size),
                               reinterpret_cast<uint8_t *>(content.release())};
    dest.owns_payload = 1;
}

// dest (a bitwise copy of src) gets its own copy of src's memory payload.
bool copy_memory(QV_VALUE_T &dest, const QV_VALUE_T &src) {
    if (in_file(src)) {
        copy_file_content(dest, src);
        return true;
    }
    switch (type_of(src)) {
        case QV_TYPE_CHAR:
        case QV_TYPE_CLOB: {
            if (src.payload.string.text == nullptr) return true;
            std::size_t bytes = static_cast<std::size_t>(Bytelen_SL(&src.payload.string, 1));
            auto *text = static_cast<char *>(QV_MALLOC(bytes));
            if (text == nullptr) return false;
            std::memcpy(text, src.payload.string.text, bytes);
            dest.payload.string.text = text;
            break;
        }
        case QV_TYPE_BINARY:
        case QV_TYPE_BLOB: {
            const uint32_t length = src.payload.binary.length;
            if (length == 0 || src.payload.binary.bytes == nullptr) {
                dest.payload.binary = {0, nullptr};
                return true;
            }
            auto *bytes = static_cast<uint8_t *>(QV_MALLOC(length));
            if (bytes == nullptr) return false;
            std::memcpy(bytes, src.payload.binary.bytes, length);
            dest.payload.binary.bytes = bytes;
            break;
        }
        case QV_TYPE_ARRAY: {
            dest.payload.array = nullptr;
            const int64_t count = array_count(src);
            if (!resize_array(dest, count)) return false;
            for (int64_t i = 1; i <= count; ++i)
                if (!copy_value(dest.payload.array[i], src.payload.array[i])) return false;
            return true;
        }
        default: return true;
    }
    dest.owns_payload = 1;
    return true;
}

bool holds_memory(const QV_VALUE_T &value) {
    return is_one_of(type_of(value), kTextTypes | kByteTypes | QV_TYPE_ARRAY);
}

} // namespace

void release_payload(QV_VALUE_T &value) {
    if (value.owns_payload) {
        if (in_file(value)) {
            if (char *name = file_name(value)) delete_file(name);
            std::free(file_name(value));
        } else {
            switch (type_of(value)) {
                case QV_TYPE_CHAR:
                case QV_TYPE_CLOB: std::free(value.payload.string.text); break;
                case QV_TYPE_BINARY:
                case QV_TYPE_BLOB: std::free(value.payload.binary.bytes); break;
                case QV_TYPE_ARRAY: free_array_block(value.payload.array); break;
                default: break;
            }
        }
    }
    std::memset(static_cast<void *>(&value.payload), 0, sizeof value.payload);
    value.owns_payload = 0;
    value.descriptor.extra &= ~QV_VALUE_IN_FILE;
}

void make_null(QV_VALUE_T &value) {
    release_payload(value);
    value.is_null = 1;
}

bool copy_value(QV_VALUE_T &dest, const QV_VALUE_T &src) {
    dest = src;
    dest.owns_payload = 0;
    if (src.is_null || !holds_memory(src)) return true;
    if (copy_memory(dest, src)) return true;
    make_null(dest);
    return false;
}

bool in_blocks_of(const QV_VALUE_T &whole, const QV_VALUE_T *part) {
    const QV_VALUE_T *block = array_block(whole);
    if (block == nullptr || !whole.owns_payload) return false;
    const int64_t count = array_count(whole);
    if (part > block && part <= block + count) return true;
    for (int64_t i = 1; i <= count; ++i)
        if (type_of(block[i]) == QV_TYPE_ARRAY && in_blocks_of(block[i], part)) return true;
    return false;
}

bool resize_array(QV_VALUE_T &value, int64_t count) {
    if (type_of(value) != QV_TYPE_ARRAY || value.is_null) {
        make_null(value);
        value.descriptor = {QV_TYPE_ARRAY, 0, 0, 0};
    }
    QV_VALUE_T *block = value.payload.array;
    if (block != nullptr && !value.owns_payload) {
        // A borrowed block: take a block of our own that borrows the elements.
        const int64_t kept = std::min(array_count(value), count);
        auto *own = static_cast<QV_VALUE_T *>(QV_MALLOC((kept + 1) * sizeof(QV_VALUE_T)));
        if (own == nullptr) return false;
        std::memcpy(static_cast<void *>(own), block, (kept + 1) * sizeof(QV_VALUE_T));
        for (int64_t i = 1; i <= kept; ++i) own[i].owns_payload = 0;
        own->payload.integer = kept;
        value.payload.array = block = own;
        value.owns_payload = 1;
    }
    const int64_t old = block != nullptr ? std::max<int64_t>(block->payload.integer, 0) : 0;
    for (int64_t i = count + 1; i <= old; ++i) FreeValue_L(&block[i]);
    const std::size_t needed = static_cast<std::size_t>(count + 1) * sizeof(QV_VALUE_T);
    if (block == nullptr || malloc_usable_size(block) < needed) {
        std::size_t size =
            block == nullptr ? needed : std::max(needed, 2 * malloc_usable_size(block));
        auto *grown = static_cast<QV_VALUE_T *>(QV_REALLOC(block, size));
        if (grown == nullptr) {
            if (block == nullptr) value.is_null = 1;
            return false;
        }
        if (block == nullptr) clear_records(grown, 1);
        block = grown;
        value.payload.array = block;
    }
    if (count > old) clear_records(block + old + 1, count - old);
    block->descriptor = {QV_TYPE_INTEGER, 0, 0, 0};
    block->is_null = 0;
    block->payload.integer = count;
    value.owns_payload = 1;
    value.is_null = 0;
    return true;
}

bool read_whole_file(const char *path, HeapText &content, std::size_t &size, std::size_t zeros) {
    if (path == nullptr) return false;
    File file(fopen8_L(path, "rb"));
    if (file == nullptr || std::fseek(file.get(), 0, SEEK_END) != 0) return false;
    const long length = std::ftell(file.get());
    if (length < 0 || static_cast<unsigned long>(length) > UINT32_MAX - 8 ||
        std::fseek(file.get(), 0, SEEK_SET) != 0)
        return false;
    size = static_cast<std::size_t>(length);
    content.reset(static_cast<char *>(QV_MALLOC(size + zeros)));
    if (content == nullptr || std::fread(content.get(), 1, size, file.get()) != size) {
        content.reset();
        return false;
    }
    std::memset(content.get() + size, 0, zeros);
    return true;
}

namespace {

// Exact decimals read values of types they do not know through the value conversions.
bool read_as_number(const QV_VALUE_T *source, QV_PRECISE_T *number) {
    return ValueToNumber_L(source, number) == QV_VALUE_OK;
}

[[maybe_unused]] const bool installed =
    (qv::install_value_to_number_converter(read_as_number), true);

// The makers' common start: the value freed and typed, not NULL, owning its payload.
QV_VALUE_T *start(QV_VALUE_T *value, uint32_t type, int32_t precision) {
    if (value == nullptr) return nullptr;
    FreeValue_L(value);
    value->descriptor = {type, precision, 0, 0};
    value->is_null = 0;
    value->owns_payload = 1;
    return value;
}

} // namespace

} // namespace qv::values

using namespace qv::values;

extern "C" {

QV_API void FreeValue_L(QV_VALUE_T *value) {
    if (value == nullptr) return;
    make_null(*value);
    value->eval_flags = 0;
    value->eval_data = nullptr;
}

QV_API QV_VALUE_T *SetValueTypePrecScale_L(QV_VALUE_T *value, uint32_t type, int32_t precision,
                                           int32_t scale) {
    if (value == nullptr) return nullptr;
    if (type != type_of(*value)) make_null(*value);
    value->descriptor.type = type;
    value->descriptor.precision = precision;
    value->descriptor.scale = scale;
    return value;
}

QV_API QV_VALUE_T *SetValueType_L(QV_VALUE_T *value, uint32_t type) {
    return SetValueTypePrecScale_L(value, type, 0, 0);
}

QV_API QV_VALUE_T *SetValue_L(QV_VALUE_T *value, const QV_DATATYPE_T *desc) {
    return desc != nullptr
               ? SetValueTypePrecScale_L(value, desc->type, desc->precision, desc->scale)
               : SetValueTypePrecScale_L(value, 0, 0, 0);
}

QV_API QV_VALUE_T *SetTextValue_L(QV_VALUE_T *value, const char *text,
                                  const QV_ENCODING_T *encoding) {
    if (start(value, QV_TYPE_CHAR, 0) == nullptr) return nullptr;
    if (text == nullptr) {
        make_null(*value);
        return value;
    }
    const QV_STRING_T borrowed = {const_cast<char *>(text), encoding};
    const auto bytes = static_cast<std::size_t>(Bytelen_SL(&borrowed, 1));
    auto *copy = static_cast<char *>(QV_MALLOC(bytes));
    if (copy == nullptr) {
        make_null(*value);
        return value;
    }
    std::memcpy(copy, text, bytes);
    value->payload.string = {copy, encoding};
    return value;
}

QV_API QV_VALUE_T *SetIntegerValue_L(QV_VALUE_T *value, int64_t integer) {
    if (start(value, QV_TYPE_INTEGER, 0) != nullptr) value->payload.integer = integer;
    return value;
}

QV_API QV_VALUE_T *SetFloatValue_L(QV_VALUE_T *value, double real) {
    if (start(value, QV_TYPE_FLOAT, 0) != nullptr) value->payload.real = real;
    return value;
}

QV_API QV_VALUE_T *SetBooleanValue_L(QV_VALUE_T *value, uint8_t truth) {
    if (start(value, QV_TYPE_BOOLEAN, 0) != nullptr) value->payload.boolean = truth != 0;
    return value;
}

QV_API QV_VALUE_T *SetBinaryValue_L(QV_VALUE_T *value, const void *bytes, uint32_t length) {
    if (start(value, QV_TYPE_BINARY, static_cast<int32_t>(std::min<uint32_t>(length, INT32_MAX))) ==
        nullptr)
        return nullptr;
    if (length == 0 || bytes == nullptr) return value;
    auto *copy = static_cast<uint8_t *>(QV_MALLOC(length));
    if (copy == nullptr) {
        make_null(*value);
        return value;
    }
    std::memcpy(copy, bytes, length);
    value->payload.binary = {length, copy};
    return value;
}

QV_API QV_VALUE_T *SetDateValue_L(QV_VALUE_T *value, uint32_t type, const QV_DATE_T *date) {
    if (start(value, type, 0) == nullptr) return nullptr;
    if (date == nullptr || !is_one_of(type, kDateTypes | kTimeTypes))
        value->is_null = 1;
    else
        value->payload.date = *date;
    return value;
}

QV_API QV_VALUE_T *CopyValue_L(QV_VALUE_T *dest, const QV_VALUE_T *src) {
    if (dest == nullptr || dest == src) return dest;
    if (src == nullptr) {
        FreeValue_L(dest);
        return dest;
    }
    if (contains(*dest, src)) { // src would go with dest's block: copy from a stand-in
        HeldValue original(*src);
        FreeValue_L(dest);
        copy_value(*dest, *original);
        return dest;
    }
    FreeValue_L(dest);
    copy_value(*dest, *src);
    return dest;
}

QV_API int64_t ArrayValueCount_L(const QV_VALUE_T *value) {
    return value != nullptr ? array_count(*value) : 0;
}

QV_API QV_VALUE_T *ArrayValueItem_L(const QV_VALUE_T *value, int64_t index) {
    if (value == nullptr || index < 0 || index >= array_count(*value)) return nullptr;
    return &value->payload.array[index + 1];
}

QV_API int32_t ModifyArray_L(QV_VALUE_T *value, int64_t count) {
    if (value == nullptr || count < 0 || count > kMaxArrayCount) return -1;
    return resize_array(*value, count) ? 0 : -1;
}

QV_API int32_t AppendArrayValue_L(QV_VALUE_T *value, const QV_VALUE_T *item) {
    if (value == nullptr) return -1;
    const int64_t count = array_count(*value);
    if (count >= kMaxArrayCount) return -1;
    HeldValue copy;
    if (item == nullptr)
        copy->is_null = 1;
    else if (!copy_value(*copy, *item)) // first: item may be in the block that moves
        return -1;
    if (!resize_array(*value, count + 1)) return -1;
    value->payload.array[count + 1] = copy.take();
    return 0;
}

QV_API int32_t DeleteArrayValue_L(QV_VALUE_T *value, int64_t index) {
    if (value == nullptr || index < 0 || index >= array_count(*value)) return -1;
    if (!value->owns_payload && !resize_array(*value, array_count(*value))) return -1;
    QV_VALUE_T *block = value->payload.array;
    const int64_t count = block->payload.integer;
    FreeValue_L(&block[index + 1]);
    std::memmove(static_cast<void *>(&block[index + 1]), &block[index + 2],
                 static_cast<std::size_t>(count - index - 1) * sizeof(QV_VALUE_T));
    block->payload.integer = count - 1;
    return 0;
}

QV_API int32_t MonthEnds_L(QV_VALUE_T *value, uint8_t first) {
    if (is_null(value) || !is_one_of(type_of(*value), kDateTypes)) return -1;
    QV_DATE_T &date = value->payload.date;
    if (date.month < 1 || date.month > 12) return -1;
    date.day = static_cast<uint8_t>(first ? 1 : DaysInMonth_L(date.month, date.year));
    return 0;
}

} // extern "C"
