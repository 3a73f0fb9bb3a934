// commands.cpp - `qv eval`, `qv check` and `qv functions`, and what the commands share (see
// commands.hpp).
#include "commands.hpp"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>

#include "arguments.hpp"
#include "catalog.hpp"
#include "fields.hpp"
#include "library.hpp"
#include "script.hpp"

namespace qvtool {
namespace {

using Expression = std::unique_ptr<EXPRESSION_T, ExpressionDeleter>;

// The --bind values, owned.
struct Bindings {
    std::vector<Binding> given;
    std::vector<std::unique_ptr<HeldValue>> values;
};

std::string make_bindings(const std::vector<std::string> &texts, Bindings &bindings) {
    for (const std::string &text : texts) {
        Binding binding;
        if (std::string error = parse_binding("--bind", text, binding); !error.empty())
            return error;
        auto value = std::make_unique<HeldValue>();
        if (std::string error = make_value(binding.type, binding.value, value->value);
            !error.empty())
            return "--bind '" + text + "': " + error;
        bindings.given.push_back(std::move(binding));
        bindings.values.push_back(std::move(value));
    }
    return "";
}

// The name an item is bound by: its parts joined by ".".
std::string item_name(const EXP_ITEM_T &item) {
    std::string name;
    for (int32_t i = 0; i < item.name_count; ++i)
        name += (i > 0 ? "." : "") + std::string(item.names[i]);
    return name;
}

template <class Visit>
void for_each_item(const EXPRESSION_T &expression, Visit visit) {
    void *data = nullptr;
    for (QV_LIST_T *p = NextListItem_L(expression.items, &data); p; p = NextListItem_L(p, &data))
        visit(*static_cast<EXP_ITEM_T *>(data));
}

// Parses and validates inside a status context; prints the problems. False when it failed.
bool compile(EXPRESSION_T *expression, const std::function<void()> &bind) {
    int code = 0;
    const Outcome outcome = guarded(
        "qv",
        [&] {
            if (parse_expression(expression) != 1) return false;
            bind();
            return validate_expression(expression) == 1;
        },
        code);
    if (outcome == Outcome::Done) return true;
    if (!report_problems(stderr, expression->text != nullptr ? expression->text : ""))
        std::fputs("qv: there is nothing to evaluate\n", stderr);
    return false;
}

void print_result(const QV_VALUE_T &result, bool typed) {
    if (typed) std::printf("%s\t", type_text(result.descriptor).c_str());
    std::printf("%s\n", value_text(result).c_str());
}

} // namespace

int usage_error(const std::string &text) {
    std::fprintf(stderr, "qv: %s\n", text.c_str());
    return STATUS_USAGE;
}

bool read_text(const std::string &path, std::string &text, std::string &error) {
    std::ostringstream buffer;
    if (path == "-") {
        buffer << std::cin.rdbuf();
    } else {
        std::ifstream file(path, std::ios::binary);
        if (!file) {
            error = "cannot read '" + path + "': " + std::strerror(errno);
            return false;
        }
        buffer << file.rdbuf();
        if (file.bad()) {
            error = "cannot read '" + path + "': " + std::strerror(errno);
            return false;
        }
    }
    text = buffer.str();
    return true;
}

std::string set_variables(const std::vector<std::string> &vars) {
    for (const std::string &text : vars) {
        Binding binding;
        if (std::string error = parse_binding("--var", text, binding); !error.empty()) return error;
        HeldValue value;
        if (std::string error = make_value(binding.type, binding.value, value.value);
            !error.empty())
            return "--var '" + text + "': " + error;
        const QV_DATATYPE_T &type = value.value.descriptor;
        if (CreateVariable_L(GetGlobalVariables_L(), binding.name.c_str(), type.type,
                             type.precision, type.scale, &value.value) == nullptr)
            return "--var '" + text + "': the variable cannot be made";
    }
    return "";
}

int eval_command(const EvalArguments &a) {
    Library library;
    Bindings bindings;
    std::string error = make_bindings(a.binds, bindings);
    if (error.empty()) error = set_variables(a.vars);
    if (!error.empty()) return usage_error(error);
    Expression expression(New_Expression_L(a.expression.c_str()));
    const bool valid = compile(expression.get(), [&] {
        for (std::size_t i = 0; i < bindings.given.size(); ++i)
            if (BindExpressionName_L(expression.get(), bindings.given[i].name.c_str(),
                                     &bindings.values[i]->value) == 0)
                std::fprintf(stderr, "qv: warning: --bind %s: the expression has no name %s\n",
                             bindings.given[i].name.c_str(), bindings.given[i].name.c_str());
    });
    if (!valid) return STATUS_USAGE;
    int code = 0;
    switch (guarded(
        "qv eval", [&] { return Solve_Expression_L(expression.get()) == 0; }, code)) {
        case Outcome::Done:
            report_problems(stderr, expression->text); // warnings
            print_result(expression->result, a.typed);
            return 0;
        case Outcome::Exited: return code;
        default: report_problems(stderr, expression->text); return STATUS_FAILED;
    }
}

int check_command(const CheckArguments &a) {
    std::string text = a.text, error;
    if (!a.file.empty() && !read_text(a.file, text, error)) return usage_error(error);
    Library library;
    if (a.script) return check_script(text, a.explain);
    Expression expression(New_Expression_L(text.c_str()));
    HeldValue any; // every name reads as a NULL of no type: all but the names is checked
    any.value.is_null = 1;
    std::vector<std::string> names;
    const bool valid = compile(expression.get(), [&] {
        for_each_item(*expression, [&](EXP_ITEM_T &item) {
            if (item.kind != EXP_ITEM_NAME || item.bound != nullptr) return;
            names.push_back(item_name(item));
            BindExpressionName_L(expression.get(), names.back().c_str(), &any.value);
        });
    });
    if (a.explain && expression->item_count > 0) {
        char *items = ExplainExpression_L(expression.get());
        std::fputs(items != nullptr ? items : "", stdout);
        std::free(items);
    }
    if (!valid) return STATUS_USAGE;
    std::printf("valid expression, result %s\n", type_text(expression->result_type).c_str());
    if (!names.empty()) {
        std::string list;
        for (const std::string &name : names) list += (list.empty() ? "" : ", ") + name;
        std::printf("names (values of any type): %s\n", list.c_str());
    }
    return 0;
}

int functions_command(const std::string &name) {
    Library library;
    if (name.empty()) {
        list_functions(stdout);
        return 0;
    }
    const ExpFunction *function = find_function(name);
    if (function == nullptr) return usage_error("there is no function named '" + name + "'");
    describe_function(stdout, *function);
    return 0;
}

} // namespace qvtool
