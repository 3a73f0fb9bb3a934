// builtin_array.cpp - the array built-ins and VariableInfo (module "builtin").
//
// An array function works on the ARRAY value it is handed, in place: ArrayAddItem,
// ArrayDeleteItem, ArrayModifyItem, ArrayClear and ArraySort change that value, and the
// change is seen by whoever owns it (the evaluator hands a variable's own value to change
// the variable). Decisions, as users of arrays in such a language expect them:
// - Indexes count from 1. An index outside 1..count gives NULL and changes nothing.
// - A NULL array is an empty one: an array variable starts out NULL, and ArrayAddItem must
//   be able to fill it. A value that is not an array counts as an array of that one value
//   (the evaluator wraps such arguments the same way).
// - The functions that change an array return its item count afterwards; ArraySize the
//   count; ArrayItem a copy of the item; ArraySearch the index of the first match.
// - Items may be NULL (ArrayAddItem of a NULL appends a NULL item).
// - Order (ArraySort, and ArraySearch on a sorted array): NULL items first, then by type
//   code (INTEGER before FLOAT before NUMBER ...), then within a type as CompareValue_L
//   orders values (texts by collation); arrays element by element. The sort is stable.
#define QV_MODULE "builtin"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <span>

#include "language/builtin_shared.hpp"

namespace {

using namespace qv::builtin;
namespace values = qv::values;

// ---- Reading arrays --------------------------------------------------------------------------

// Items of a value read as an array: an ARRAY's elements, one for another present value,
// none for NULL or an untyped value.
std::span<QV_VALUE_T> items_of(const QV_VALUE_T *value) {
    if (!present(value) || value->descriptor.type == 0) return {};
    if (value->descriptor.type != QV_TYPE_ARRAY) return {const_cast<QV_VALUE_T *>(value), 1};
    QV_VALUE_T *block = value->payload.array;
    return {block == nullptr ? nullptr : block + 1,
            static_cast<std::size_t>(values::array_count(*value))};
}

// Makes the value an ARRAY in place (NULL or untyped: empty; another value: an array
// holding it); false after an allocation failure.
bool make_array(QV_VALUE_T *value) {
    if (value->descriptor.type == QV_TYPE_ARRAY && !value->is_null) return true;
    if (value->is_null || value->descriptor.type == 0) return ModifyArray_L(value, 0) == 0;
    values::HeldValue item;
    CopyValue_L(&*item, value);
    return ModifyArray_L(value, 0) == 0 && AppendArrayValue_L(value, &*item) == 0;
}

// The 1-based index argument as a 0-based position within `count`; false outside.
bool position_in(const QV_VALUE_T *index, std::size_t count, std::size_t &position) {
    int64_t n = 0;
    if (!read_integer(index, n) || n < 1 || static_cast<uint64_t>(n) > count) return false;
    position = static_cast<std::size_t>(n - 1);
    return true;
}

// ---- Order -----------------------------------------------------------------------------------

constexpr uint32_t kComparable = QV_TYPE_CHAR | QV_TYPE_INTEGER | QV_TYPE_FLOAT | QV_TYPE_DATE |
                                 QV_TYPE_BOOLEAN | QV_TYPE_NUMBER | QV_TYPE_BINARY | QV_TYPE_CLOB |
                                 QV_TYPE_BLOB | QV_TYPE_INTERVAL_DS | QV_TYPE_INTERVAL_YM |
                                 QV_TYPE_TIME | QV_TYPE_TIME_TZ | QV_TYPE_DATE_TZ;

// -1, 0, 1: the order of two items (see the header). Never raises: only values of one
// type that CompareValue_L compares reach it.
int item_order(const QV_VALUE_T &a, const QV_VALUE_T &b) {
    if (a.is_null || b.is_null) return (b.is_null != 0) - (a.is_null != 0);
    const uint32_t ta = a.descriptor.type, tb = b.descriptor.type;
    if (ta != tb) return ta < tb ? -1 : 1;
    if (ta == QV_TYPE_ARRAY) {
        std::span<QV_VALUE_T> x = items_of(&a), y = items_of(&b);
        for (std::size_t i = 0; i < x.size() && i < y.size(); ++i)
            if (int order = item_order(x[i], y[i]); order != 0) return order;
        return (x.size() > y.size()) - (x.size() < y.size());
    }
    if (!values::is_one_of(ta, kComparable)) return 0;
    return CompareValue_L(&a, &b);
}

// ---- The handlers ----------------------------------------------------------------------------

void array_size(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *array) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    store_integer(result, static_cast<int64_t>(items_of(array).size()));
}

void array_clear(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *array) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    if (array == nullptr || ModifyArray_L(array, 0) != 0) return set_null(result);
    store_integer(result, 0);
}

// ArrayItem( array, index ): typed as the item (described: the item at a known index, else
// the first item; untyped for an empty array).
void array_item(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *array, QV_VALUE_T *index) {
    std::span<QV_VALUE_T> items = items_of(array);
    std::size_t at = 0;
    const bool found = position_in(index, items.size(), at);
    if (!evaluating(frame)) {
        begin_like(result, frame, found ? &items[at] : items.empty() ? nullptr : &items[0]);
        return;
    }
    if (!found) return set_null(result);
    CopyValue_L(result, &items[at]);
}

void array_add_item(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *array,
                    QV_VALUE_T *item) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    if (array == nullptr || item == nullptr) return set_null(result);
    values::HeldValue copy; // the item may be the array or one of its elements
    CopyValue_L(&*copy, item);
    if (!make_array(array) || AppendArrayValue_L(array, &*copy) != 0) return set_null(result);
    store_integer(result, ArrayValueCount_L(array));
}

void array_delete_item(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *array,
                       QV_VALUE_T *index) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    std::size_t at = 0;
    if (!position_in(index, items_of(array).size(), at) || !make_array(array) ||
        DeleteArrayValue_L(array, static_cast<int64_t>(at)) != 0)
        return set_null(result);
    store_integer(result, ArrayValueCount_L(array));
}

void array_modify_item(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *array,
                       QV_VALUE_T *index, QV_VALUE_T *item) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    std::size_t at = 0;
    if (item == nullptr || !position_in(index, items_of(array).size(), at) || !make_array(array))
        return set_null(result);
    values::HeldValue copy; // the item may be the array or one of its elements
    CopyValue_L(&*copy, item);
    QV_VALUE_T *slot = ArrayValueItem_L(array, static_cast<int64_t>(at));
    FreeValue_L(slot);
    const QV_VALUE_T taken = copy.take();
    slot->descriptor = taken.descriptor;
    slot->payload = taken.payload;
    slot->is_null = taken.is_null;
    slot->owns_payload = taken.owns_payload;
    store_integer(result, ArrayValueCount_L(array));
}

void array_sort(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *array) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    if (array == nullptr || !make_array(array)) return set_null(result);
    std::span<QV_VALUE_T> items = items_of(array);
    std::stable_sort(items.begin(), items.end(),
                     [](const QV_VALUE_T &a, const QV_VALUE_T &b) { return item_order(a, b) < 0; });
    store_integer(result, static_cast<int64_t>(items.size()));
}

// ArraySearch( array, value [, sorted] ): the index of the first item of the value's type
// that IsSameValue_L finds equal to it. When sorted is TRUE the array is taken to be in the
// order ArraySort gives and searched by halving, then walked back to the first of the
// equal items. NULL for a NULL value or when nothing matches.
void array_search(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *array, QV_VALUE_T *value,
                  QV_VALUE_T *sorted) {
    if (!begin(result, frame, QV_TYPE_INTEGER)) return;
    if (!present(value)) return set_null(result);
    std::span<QV_VALUE_T> items = items_of(array);
    auto matches = [value](const QV_VALUE_T &item) {
        return item.descriptor.type == value->descriptor.type && IsSameValue_L(value, &item);
    };
    const bool halving = optional_truth(sorted, false);
    auto it = items.begin();
    if (halving)
        it = std::lower_bound(items.begin(), items.end(), *value,
                              [](const QV_VALUE_T &item, const QV_VALUE_T &wanted) {
                                  return item_order(item, wanted) < 0;
                              });
    for (; it != items.end(); ++it) {
        if (matches(*it)) return store_integer(result, it - items.begin() + 1);
        if (halving && item_order(*it, *value) != 0) break; // past the run of equal items
    }
    set_null(result);
}

// ---- VariableInfo ----------------------------------------------------------------------------

enum class Property { kNone, kDataType, kPrecision, kScale };

Property property_named(const QV_VALUE_T *name) {
    values::TextForm form;
    if (!present(name) || !form.make_utf8(*name)) return Property::kNone;
    const std::string_view word = values::trimmed(form.view());
    auto is = [word](std::string_view known) {
        return word.size() == known.size() &&
               strncasecmp(word.data(), known.data(), word.size()) == 0;
    };
    if (is("DATATYPE")) return Property::kDataType;
    if (is("PRECISION")) return Property::kPrecision;
    if (is("SCALE")) return Property::kScale;
    return Property::kNone;
}

// VariableInfo( variable, property ): of the variable's declared type, "DATATYPE" its name
// (CHAR), "PRECISION" and "SCALE" their numbers (INTEGER); the property is read without
// case. It looks at the type alone, so a NULL variable answers too. NULL for another
// property; described with an unknown property, CHAR.
void variable_info(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *variable,
                   QV_VALUE_T *name) {
    const Property property = property_named(name);
    const bool text = property == Property::kDataType || property == Property::kNone;
    if (!begin(result, frame, text ? QV_TYPE_CHAR : QV_TYPE_INTEGER)) return;
    if (variable == nullptr || property == Property::kNone) return set_null(result);
    const QV_DATATYPE_T &type = variable->descriptor;
    switch (property) {
        case Property::kDataType: {
            const char *type_name = GetDataTypeSpec_L(type.type)->name;
            return store_text_copy(result, type_name, nullptr);
        }
        case Property::kPrecision: return store_integer(result, type.precision);
        default: return store_integer(result, type.scale);
    }
}

} // namespace

extern "C" {

QV_API void BI_array_clear(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<array_clear>(result, frame, a1);
}
QV_API void BI_array_size(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<array_size>(result, frame, a1);
}
QV_API void BI_array_item(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                          QV_VALUE_T *a2) {
    run<array_item>(result, frame, a1, a2);
}
QV_API void BI_variable_info(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                             QV_VALUE_T *a2) {
    run<variable_info>(result, frame, a1, a2);
}
QV_API void BI_array_delete_item(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                                 QV_VALUE_T *a2) {
    run<array_delete_item>(result, frame, a1, a2);
}
QV_API void BI_array_add_item(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                              QV_VALUE_T *a2) {
    run<array_add_item>(result, frame, a1, a2);
}
QV_API void BI_array_search(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                            QV_VALUE_T *a2, QV_VALUE_T *a3) {
    run<array_search>(result, frame, a1, a2, a3);
}
QV_API void BI_array_sort(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1) {
    run<array_sort>(result, frame, a1);
}
QV_API void BI_array_modify_item(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *a1,
                                 QV_VALUE_T *a2, QV_VALUE_T *a3) {
    run<array_modify_item>(result, frame, a1, a2, a3);
}

} // extern "C"
