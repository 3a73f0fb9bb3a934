// express_bind.cpp - name binding (module "express"): a host points each name of an
// expression at a value record of its own, which evaluations read where it stands.
//
// A name item keeps its binding in `bound`. Once the expression is validated, the item's
// index in the operand table points at the bound record too; binding again to a record of
// the same type repoints that index at every depth, binding to one of another type (or
// unbinding) leaves the expression to be validated again, since its operators were chosen
// for the old type. Placeholders "?" are numbered from 1 in the order of the list, which
// is the order of the text (the postfix form keeps operands in their order).
#define QV_MODULE "express"

#include <cstdlib>
#include <cstring>

#include "core/raise.hpp"
#include "language/express_eval.hpp"

namespace {

using namespace qv::express;

bool is_placeholder(const EXP_ITEM_T &item) {
    return item.kind == EXP_ITEM_NAME && item.name_count == 1 &&
           std::strcmp(item.names[0], "?") == 0;
}

// The placeholder number a binding name gives: "?" 0 (the next one), "?N" N; -1 for a name
// that is not a placeholder's.
int32_t placeholder_number(const char *name) {
    if (name[0] != '?') return -1;
    if (name[1] == '\0') return 0;
    char *end = nullptr;
    const long number = std::strtol(name + 1, &end, 10);
    return *end == '\0' && number > 0 && number <= INT32_MAX ? static_cast<int32_t>(number) : -1;
}

// Whether the item's parts joined by "." are `name`, without regard to case.
bool named(const EXP_ITEM_T &item, const char *name) {
    if (item.name_count == 1) return same_name(item.names[0], name);
    qv::String joined;
    for (int32_t i = 0; i < item.name_count; ++i) {
        if (i > 0) joined += '.';
        joined += item.names[i];
    }
    return same_name(joined.c_str(), name);
}

void bind(EXPRESSION_T &expression, EXP_ITEM_T &item, QV_VALUE_T *value) {
    QV_VALUE_T *was = item.bound;
    item.bound = value;
    if (expression.prepared == nullptr || value == was) return;
    if (expression.validated != 0 && was != nullptr && value != nullptr &&
        value->descriptor.type == was->descriptor.type)
        repoint_operand(&expression, item.slot, value);
    else
        expression.validated = 0;
}

// Calls `visit` with each bindable name item (not a name passed as a pointer) and, for a
// placeholder, its number; stops when `visit` returns false.
template <class Visit>
void for_each_name(EXPRESSION_T &expression, Visit &&visit) {
    int32_t placeholders = 0;
    void *data = nullptr;
    for (QV_LIST_T *p = NextListItem_L(expression.items, &data); p != nullptr;
         p = NextListItem_L(p, &data)) {
        auto &item = *static_cast<EXP_ITEM_T *>(data);
        if (item.kind != EXP_ITEM_NAME || item.value.descriptor.type == QV_TYPE_POINTER) continue;
        if (!visit(item, is_placeholder(item) ? ++placeholders : 0)) return;
    }
}

// The binding for a name item: the first entry naming it, or for placeholder `number` the
// entry "?number" or the number-th entry "?".
const EXP_BINDING_T *binding_for(const EXP_ITEM_T &item, int32_t number,
                                 const EXP_BINDING_T *bindings, int32_t count) {
    int32_t unnumbered = 0;
    for (int32_t i = 0; i < count; ++i) {
        const char *name = bindings[i].name;
        if (name == nullptr) continue;
        if (number == 0) {
            if (named(item, name)) return &bindings[i];
            continue;
        }
        const int32_t given = placeholder_number(name);
        if (given == number || (given == 0 && ++unnumbered == number)) return &bindings[i];
    }
    return nullptr;
}

} // namespace

extern "C" {

QV_API int32_t BindExpression_L(EXPRESSION_T *expression, const EXP_BINDING_T *bindings,
                                int32_t count) {
    if (expression == nullptr || count < 0 || (bindings == nullptr && count > 0)) return -1;
    return QV_C_ENTRY([&] {
        int32_t unbound = 0;
        for_each_name(*expression, [&](EXP_ITEM_T &item, int32_t number) {
            if (const EXP_BINDING_T *binding = binding_for(item, number, bindings, count))
                bind(*expression, item, binding->value);
            if (item.bound == nullptr) ++unbound;
            return true;
        });
        return unbound;
    });
}

QV_API int32_t BindExpressionName_L(EXPRESSION_T *expression, const char *name, QV_VALUE_T *value) {
    if (expression == nullptr || name == nullptr) return -1;
    const int32_t wanted = placeholder_number(name);
    return QV_C_ENTRY([&] {
        int32_t bound = 0;
        for_each_name(*expression, [&](EXP_ITEM_T &item, int32_t number) {
            const bool match = wanted < 0 ? number == 0 && named(item, name)
                                          : number == (wanted == 0 ? 1 : wanted);
            if (match) {
                bind(*expression, item, value);
                ++bound;
            }
            return true;
        });
        return bound;
    });
}

} // extern "C"
