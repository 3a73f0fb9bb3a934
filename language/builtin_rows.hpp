// builtin_rows.hpp - how a row of the built-in table is written: one call per function,
// checked when it is compiled.
//
//     qv::rows::form_a<1, 3>("Substr", "SubStr( string, from [, count] )", 2067,
//                            QV_CATEGORY_STRING, QV_TYPE_CHAR,
//                            {QV_MASK_STRING, QV_MASK_NUMBER, QV_MASK_NUMBER}, BI_substr),
//     qv::rows::form_b<1, QV_UNLIMITED_ARGUMENTS>("Concat", "Concat( value [, value ... ] )",
//                            2007, QV_CATEGORY_STRING, QV_TYPE_CHAR, {QV_MASK_ANY}, BI_concat),
//
// The template arguments are the minimum and maximum argument counts. A form-A row lists one
// mask per position up to the maximum (0..16) and takes a handler with exactly that many
// argument pointers after the result and the frame; a form-B row sets the repeat flag, lists
// 1..16 masks (the last one repeats) and takes a handler of the result and the frame. Any
// other combination does not compile. The six texts and three words stay zero.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "qv/builtin.h"

namespace qv::rows {

template <class... Arguments>
using FormA = void (*)(QV_VALUE_T *, EXP_CALL_FRAME_T *, Arguments...);

// The fields every row has; the masks are filled in by the callers below.
inline ExpFunction row(const char *name, const char *usage, int32_t number, int32_t category,
                       uint32_t minimum, uint32_t maximum, uint32_t result, uint8_t repeat,
                       EXP_HANDLER_T handler) {
    ExpFunction record{};
    record.name = name;
    record.usage = usage;
    record.number = number;
    record.handler = handler;
    record.category = category;
    record.max_args = maximum;
    record.min_args = minimum;
    record.result_type = result;
    record.repeat = repeat;
    return record;
}

template <std::size_t Masks>
ExpFunction with_masks(ExpFunction record, const uint32_t (&masks)[Masks]) {
    static_assert(Masks <= QV_MAX_ARGUMENTS, "at most 16 argument positions");
    for (std::size_t i = 0; i < Masks; ++i) record.arg_types[i] = masks[i];
    return record;
}

// A form-A row of Minimum..Maximum arguments.
template <uint32_t Minimum, uint32_t Maximum, std::size_t Masks, class... Arguments>
ExpFunction form_a(const char *name, const char *usage, int32_t number, int32_t category,
                   uint32_t result, const uint32_t (&masks)[Masks], FormA<Arguments...> handler) {
    static_assert(Minimum <= Maximum && Maximum <= QV_MAX_ARGUMENTS);
    static_assert(Masks == Maximum, "one mask per argument position");
    static_assert(sizeof...(Arguments) == Maximum, "the handler takes one pointer per position");
    static_assert((std::is_same_v<Arguments, QV_VALUE_T *> && ...));
    return with_masks(row(name, usage, number, category, Minimum, Maximum, result, 0,
                          reinterpret_cast<EXP_HANDLER_T>(handler)),
                      masks);
}

// A form-A row without arguments.
inline ExpFunction form_a(const char *name, const char *usage, int32_t number, int32_t category,
                          uint32_t result, FormA<> handler) {
    return row(name, usage, number, category, 0, 0, result, 0,
               reinterpret_cast<EXP_HANDLER_T>(handler));
}

// A form-B row of Minimum..Maximum arguments (Maximum may be QV_UNLIMITED_ARGUMENTS).
template <uint32_t Minimum, uint32_t Maximum, std::size_t Masks>
ExpFunction form_b(const char *name, const char *usage, int32_t number, int32_t category,
                   uint32_t result, const uint32_t (&masks)[Masks], EXP_FORM_B_HANDLER_T handler) {
    static_assert(Minimum <= Maximum && Masks >= 1 && Masks <= Maximum);
    return with_masks(row(name, usage, number, category, Minimum, Maximum, result, 1,
                          reinterpret_cast<EXP_HANDLER_T>(handler)),
                      masks);
}

} // namespace qv::rows
