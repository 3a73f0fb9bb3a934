// catalog.cpp - listing the functions (see catalog.hpp).
#include "catalog.hpp"

#include <qv/datatype.h>
#include <qv/encoding.h>

#include <algorithm>
#include <cstdlib>

namespace qvtool {
namespace {

struct Category {
    int32_t code;
    const char *name;
};
constexpr Category CATEGORIES[] = {
    {QV_CATEGORY_USER, "User-defined"},
    {QV_CATEGORY_NUMERIC, "Numeric"},
    {QV_CATEGORY_STRING, "String"},
    {QV_CATEGORY_DATE, "Date and time"},
    {QV_CATEGORY_CONDITIONAL, "Conditional"},
    {QV_CATEGORY_CONVERSION, "Conversion"},
    {QV_CATEGORY_MISCELLANEOUS, "Miscellaneous"},
};

const char *category_name(int32_t code) {
    for (const Category &category : CATEGORIES)
        if (category.code == code) return category.name;
    return "Other";
}

void add_table(const ExpFunction *table, std::vector<const ExpFunction *> &out) {
    const std::size_t first = out.size();
    for (; table != nullptr && table->name != nullptr; ++table) out.push_back(table);
    std::sort(out.begin() + static_cast<long>(first), out.end(),
              [](const ExpFunction *a, const ExpFunction *b) {
                  return StricmpUTF8_L(a->name, b->name) < 0;
              });
}

const char *usage_of(const ExpFunction &function) {
    return function.usage != nullptr ? function.usage : function.name;
}

std::string type_names(uint32_t mask) {
    char *text = DataTypeName_L(mask);
    std::string out = text != nullptr ? text : "UNKNOWN";
    std::free(text);
    return out;
}

} // namespace

std::vector<const ExpFunction *> all_functions() {
    std::vector<const ExpFunction *> out;
    const EXP_FUNCTION_STRUCT_T *functions = Set_Function_Struct_L(nullptr);
    if (functions != nullptr && functions->current != nullptr)
        add_table(functions->current->records, out);
    add_table(Get_BuiltInFns_L(), out);
    return out;
}

const ExpFunction *find_function(std::string_view name) {
    const std::string wanted(name);
    for (const ExpFunction *function : all_functions())
        if (StricmpUTF8_L(function->name, wanted.c_str()) == 0) return function;
    return nullptr;
}

void list_functions(std::FILE *out) {
    const std::vector<const ExpFunction *> functions = all_functions();
    const char *separator = "";
    for (const Category &category : CATEGORIES) {
        bool heading = false;
        for (const ExpFunction *function : functions) {
            if (function->category != category.code) continue;
            if (!heading) std::fprintf(out, "%s%s\n", separator, category.name);
            heading = true;
            separator = "\n";
            std::fprintf(out, "  %s\n", usage_of(*function));
        }
    }
}

void describe_function(std::FILE *out, const ExpFunction &function) {
    std::fprintf(out, "%s\n", usage_of(function));
    std::string counts = std::to_string(function.min_args);
    if (function.max_args == QV_UNLIMITED_ARGUMENTS)
        counts += " or more";
    else if (function.max_args != function.min_args)
        counts += " to " + std::to_string(function.max_args);
    const std::string result =
        function.result_type != 0 ? type_names(function.result_type) : "the type of its value";
    std::fprintf(out, "  category %s; arguments %s; result %s\n", category_name(function.category),
                 counts.c_str(), result.c_str());
}

} // namespace qvtool
