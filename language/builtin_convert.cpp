// builtin_convert.cpp - the conversion built-ins (module "builtin"): ToChar, ToDouble,
// ToInteger, ToNumber and ToHex, over the value conversions of qv/dataval.h. A value that
// does not convert (text that is not a number, a number beyond the target) gives NULL.
#define QV_MODULE "builtin"

#include <charconv>

#include "language/builtin_shared.hpp"
#include "qv/precise.h"

namespace {

using namespace qv::builtin;

// ToChar( value [, date format] ): the value's text form (ValueToString_L), in the value's
// encoding for text and UTF-8 otherwise. The format applies to date and time values only,
// and is read by the date half of the built-ins; other values ignore it.
void to_char(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *value, QV_VALUE_T *) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    QV_STRING_T text{};
    if (!present(value) || ValueToString_L(value, &text) != QV_VALUE_OK) return set_null(result);
    store_text(result, text);
}

// ToDouble( value [, places] ): a FLOAT, rounded to `places` decimals when given (as Round
// rounds a FLOAT).
void to_double(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *value, QV_VALUE_T *places) {
    if (!begin(result, frame, QV_TYPE_FLOAT)) return;
    double x = 0;
    int64_t n = 0;
    if (!read_double(value, x)) return set_null(result);
    if (!present(places)) return store_double(result, x);
    if (!read_integer(places, n)) return set_null(result);
    store_double(result, round_double(x, n, false));
}

void to_integer(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *value) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    int64_t n = 0;
    if (!read_integer(value, n)) return set_null(result);
    store_integer(result, n);
}

// ToNumber( value, precision, scale ): NUMBER(precision, scale), the value cut to the scale
// (ValueToNumber_L). Described, the type takes the precision and scale when the arguments
// hold them already (literals), else NUMBER without a precision. NULL for a precision
// outside 1..77, a scale outside 0..precision, or a value with too many integer digits.
void to_number(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *value,
               QV_VALUE_T *precision, QV_VALUE_T *scale) {
    int64_t p = 0, s = 0;
    const bool sized = read_integer(precision, p) && read_integer(scale, s) && p >= 1 &&
                       p <= QV_PRECISE_MAX_PRECISION && s >= 0 && s <= p;
    if (!begin(result, frame, QV_TYPE_NUMBER, sized ? static_cast<int32_t>(p) : 0,
               sized ? static_cast<int32_t>(s) : 0))
        return;
    if (!sized || !present(value) || ValueToNumber_L(value, result) != QV_VALUE_OK)
        return set_null(result);
}

// ToHex( value ): hexadecimal text in capitals. An INTEGER is written as a number, without
// leading zeros, a negative one in 64-bit two's complement (255 is "FF", -1 is 16 "F"s), as
// users of a hexadecimal function expect of a number; every other value gives its bytes as
// ValueToHex_L writes them (BINARY and BLOB their bytes, text the bytes of its encoding,
// other types the bytes of their text form). NULL when there are no bytes.
void to_hex(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *value) {
    if (!begin(result, frame, QV_TYPE_CHAR)) return;
    if (!present(value)) return set_null(result);
    if (value->descriptor.type == QV_TYPE_INTEGER) {
        char digits[17];
        char *end =
            std::to_chars(digits, digits + 16, static_cast<uint64_t>(value->payload.integer), 16)
                .ptr;
        for (char *c = digits; c < end; ++c)
            if (*c >= 'a') *c = static_cast<char>(*c - 'a' + 'A');
        return store_text_copy(result, {digits, static_cast<std::size_t>(end - digits)}, nullptr);
    }
    store_text(result, QV_STRING_T{ValueToHex_L(value), nullptr});
}

} // namespace

extern "C" {

QV_API void BI_to_char(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                       QV_VALUE_T *a2) {
    run<to_char>(result, frame, a1, a2);
}
QV_API void BI_to_double(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                         QV_VALUE_T *a2) {
    run<to_double>(result, frame, a1, a2);
}
QV_API void BI_to_integer(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<to_integer>(result, frame, a1);
}
QV_API void BI_to_number(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                         QV_VALUE_T *a2, QV_VALUE_T *a3) {
    run<to_number>(result, frame, a1, a2, a3);
}
QV_API void BI_to_hex(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<to_hex>(result, frame, a1);
}

} // extern "C"
