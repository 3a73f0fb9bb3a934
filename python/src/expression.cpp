// expression.cpp - Expression(text).evaluate(...), the built-in functions' list and the
// global variables, for the Python module.
//
// An Expression parses its text once and keeps one value record per name it has been given:
// evaluate converts each keyword argument (positional ones are the placeholders "?") into
// its record and binds it, so that a name given a value of the same type again costs only
// the conversion; a name given a value of another type is bound anew and the expression
// validated again. Names the expression reads but the call does not give are left unbound,
// which validation reports.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>

#include "qvpy.hpp"

namespace qvpy {

uint64_t variable_epoch = 0;
uint64_t function_epoch = 0;

bool same_type(const QV_DATATYPE_T &a, const QV_DATATYPE_T &b) {
    return a.type == b.type && a.precision == b.precision && a.scale == b.scale;
}

std::string quoted(const std::string &text) {
    py::object repr =
        py::repr(py::reinterpret_steal<py::object>(str_from_utf8(text.data(), text.size())));
    return std::string(py::str(repr));
}

std::size_t trimmed_lead(std::string_view text, const EXPRESSION_T *parsed) {
    const char *trimmed = parsed != nullptr && parsed->text != nullptr ? parsed->text : "";
    const std::size_t lead = *trimmed ? text.find(trimmed) : 0;
    return lead == std::string_view::npos ? 0 : lead;
}

namespace {

const int32_t kMask = EXP_MASK_EXPRESSION | EXP_MASK_CONDITION | EXP_MASK_PLACEHOLDER;

class Expression {
  public:
    explicit Expression(const std::string &text) : text_(text) {
        expression_ = parse_expression(text, "");
        functions_ = function_epoch;
    }
    ~Expression() {
        for (auto &[name, value] : values_) FreeValue_L(value.get());
    }
    Expression(const Expression &) = delete;
    Expression &operator=(const Expression &) = delete;

    py::object evaluate(const py::args &args, const py::kwargs &kwargs) {
        if (functions_ != function_epoch) parse_again();
        int32_t solved = -1;
        py::object result;
        Outcome outcome = call("Expression.evaluate", [&] {
            std::map<std::string, py::handle> given;
            for (std::size_t n = 0; n < args.size(); ++n)
                given["?" + std::to_string(n + 1)] = args[n];
            for (auto [name, value] : kwargs) given[py::str(name)] = value;
            bind(given);
            if (epoch_ != variable_epoch) Cleanup_Expression_L(expression_.get());
            epoch_ = variable_epoch;
            solved = Solve_Expression_L(expression_.get());
            if (solved == 0) result = to_python(expression_->result);
        });
        if (outcome.raised != nullptr || solved != 0)
            throw_failure(outcome, expression_->validated ? "EvaluationError" : "ValidationError",
                          "expression " + quoted(text_), expression_context());
        return result;
    }

    std::string result_type() const {
        return expression_->validated ? type_text(expression_->result_type) : "";
    }
    std::vector<std::string> names() const { return expression_names(expression_.get()); }
    std::string explain() const {
        std::string text;
        call("Expression.explain", [&] {
            char *items = ExplainExpression_L(expression_.get());
            if (items != nullptr) text = items;
            std::free(items);
        });
        return text;
    }
    const std::string &text() const { return text_; }

  private:
    // Parses the text again after a declaration of functions; the names are bound anew.
    void parse_again() {
        expression_ = parse_expression(text_, "");
        functions_ = function_epoch;
        for (auto &[name, value] : values_) FreeValue_L(value.get());
        values_.clear();
    }

    // Converts each given value into its record; binds the records that are new or changed
    // type, unbinds the names no longer given. Throws TypeError for a name the expression
    // does not hold.
    void bind(const std::map<std::string, py::handle> &given) {
        EXPRESSION_T *e = expression_.get();
        for (auto it = values_.begin(); it != values_.end();) {
            if (given.count(it->first) != 0) {
                ++it;
                continue;
            }
            BindExpressionName_L(e, it->first.c_str(), nullptr);
            FreeValue_L(it->second.get());
            it = values_.erase(it);
        }
        for (const auto &[name, object] : given) {
            auto &slot = values_[name];
            const bool fresh = slot == nullptr;
            if (fresh) slot = std::make_unique<QV_VALUE_T>();
            const QV_DATATYPE_T before = slot->descriptor;
            to_value(object, slot.get(), name.c_str());
            if (!fresh && same_type(before, slot->descriptor)) continue;
            if (BindExpressionName_L(e, name.c_str(), slot.get()) == 0) {
                FreeValue_L(slot.get());
                values_.erase(name);
                throw py::type_error("expression " + quoted(text_) + " has no name '" + name +
                                     "' (it reads: " + joined(names()) + ")");
            }
            Cleanup_Expression_L(e); // a new type: validate again
        }
    }

    static std::string joined(const std::vector<std::string> &names) {
        std::string text;
        for (const std::string &name : names) text += (text.empty() ? "" : ", ") + name;
        return text.empty() ? "no names" : text;
    }

    py::dict expression_context() const {
        py::dict extra;
        extra["expression"] = text_;
        return extra;
    }

    std::string text_;
    ExpressionPtr expression_;
    std::map<std::string, std::unique_ptr<QV_VALUE_T>> values_;
    uint64_t epoch_ = 0;
    uint64_t functions_ = 0;
};

// ---- Built-in and user-defined functions ----------------------------------------------------

const char *category_name(int32_t category) {
    switch (category) {
        case QV_CATEGORY_NUMERIC: return "numeric";
        case QV_CATEGORY_STRING: return "string";
        case QV_CATEGORY_DATE: return "date";
        case QV_CATEGORY_CONDITIONAL: return "conditional";
        case QV_CATEGORY_CONVERSION: return "conversion";
        case QV_CATEGORY_USER: return "user";
        default: return "miscellaneous";
    }
}

py::tuple function_row(const ExpFunction &f) {
    char *types = f.result_type != 0 ? DataTypeName_L(f.result_type) : nullptr;
    py::object result_types = types != nullptr ? py::object(py::str(types)) : py::none();
    std::free(types);
    py::object maximum = py::none();
    if (f.max_args != QV_UNLIMITED_ARGUMENTS) maximum = py::int_(f.max_args);
    return py::make_tuple(f.name, f.usage != nullptr ? f.usage : "", category_name(f.category),
                          f.min_args, maximum, result_types, f.number);
}

py::list functions() {
    py::list rows;
    call("functions", [&] {
        int32_t count = 0;
        const ExpFunction *user = Get_FunctionArray(&count);
        for (int32_t n = 0; n < count; ++n) rows.append(function_row(user[n]));
        for (const ExpFunction *f = Get_BuiltInFns_L(); f->name != nullptr; ++f)
            rows.append(function_row(*f));
    });
    return rows;
}

// ---- Global variables ------------------------------------------------------------------------

VARIABLE_T *global_variable(const std::string &name) {
    return FindVariableOnArray_L(GetGlobalVariables_L(), name.c_str());
}

py::object get_variable(const std::string &name) {
    py::object value;
    bool found = false;
    call("get_variable", [&] {
        VARIABLE_T *variable = FindVariable_L(name.c_str(), 0);
        found = variable != nullptr;
        if (found) value = to_python(*GetVariableValue_L(variable));
    });
    if (!found) throw py::key_error(name);
    return value;
}

void set_variable(const std::string &name, py::handle object) {
    Outcome outcome = call("set_variable", [&] {
        QV_VALUE_T value{};
        struct Free {
            QV_VALUE_T *v;
            ~Free() { FreeValue_L(v); }
        } free_value{&value};
        to_value(object, &value, name.c_str());
        VARIABLE_T *variable = global_variable(name);
        if (variable != nullptr && same_type(variable->value.descriptor, value.descriptor)) {
            UpdateVariableValue_L(variable, &value, 1);
            return;
        }
        if (variable != nullptr) { // a value of another type: the variable is made anew
            FreeVariable_L(variable);
            ++variable_epoch;
        }
        CreateVariable_L(GetGlobalVariables_L(), name.c_str(), 0, 0, 0, &value);
    });
    if (outcome.raised != nullptr) throw_failure(outcome, "QvError", "variable " + name);
}

void delete_variable(const std::string &name) {
    VARIABLE_ARRAY_T *global = GetGlobalVariables_L();
    int32_t deleted = 0;
    call("delete_variable",
         [&] { deleted = DeleteVariableFromArrays_L(&global, 1, name.c_str()); });
    if (deleted == 0) throw py::key_error(name);
    ++variable_epoch;
}

std::vector<std::string> variable_names() {
    std::vector<std::string> names;
    const VARIABLE_ARRAY_T *global = GetGlobalVariables_L();
    for (int32_t n = 0; global != nullptr && n < global->count; ++n)
        names.emplace_back(global->variables[n]->name);
    return names;
}

} // namespace

ExpressionPtr parse_expression(const std::string &text, const std::string &context) {
    ExpressionPtr expression;
    int32_t parsed = 0;
    Outcome outcome = call("parse_expression", [&] {
        expression.reset(New_Expression_L(text.c_str()));
        // the user-defined functions first (declare), then the built-ins
        const ExpFunction *const user[] = {Get_FunctionArray(nullptr)};
        parsed = Parse_Expression_L(expression.get(), kMask, user[0] != nullptr ? user : nullptr,
                                    user[0] != nullptr ? 1 : 0);
    });
    if (outcome.raised != nullptr)
        throw_parse_error(outcome, text, trimmed_lead(text, expression.get()), context);
    if (parsed != 1)
        throw py::value_error((context.empty() ? "" : context + ": ") +
                              "the expression text holds nothing to evaluate");
    return expression;
}

std::vector<std::string> expression_names(const EXPRESSION_T *expression) {
    std::vector<std::string> names;
    void *data = nullptr;
    for (QV_LIST_T *p = NextListItem_L(expression->items, &data); p != nullptr;
         p = NextListItem_L(p, &data)) {
        const auto *item = static_cast<const EXP_ITEM_T *>(data);
        if (item->kind != EXP_ITEM_NAME || item->names == nullptr) continue;
        std::string name;
        for (int32_t n = 0; n < item->name_count; ++n)
            name += (n ? "." : "") + std::string(item->names[n]);
        if (name != "?" && std::find(names.begin(), names.end(), name) == names.end())
            names.push_back(name);
    }
    return names;
}

void register_expression(py::module_ &module) {
    py::class_<Expression>(module, "Expression", R"(An expression of the language, parsed once.

Expression(text) parses the text (comparisons and "?" placeholders allowed) or raises
ParseError. evaluate(*args, **names) binds each keyword to the name it spells and each
positional argument to the next "?", evaluates and returns the value as a Python object.)")
        .def(py::init<const std::string &>(), py::arg("text"))
        .def("evaluate", &Expression::evaluate,
             "Evaluates with the names bound to the given values; returns the result.")
        .def_property_readonly("text", &Expression::text)
        .def_property_readonly("names", &Expression::names,
                               "The names (columns, fields) the expression reads, in order.")
        .def_property_readonly("result_type", &Expression::result_type,
                               "The type of the last evaluation's result ('' before one, or "
                               "when it varies from one evaluation to the next).")
        .def("explain", &Expression::explain, "The parsed items, one line each.")
        .def("__repr__",
             [](const Expression &e) { return "Expression(" + quoted(e.text()) + ")"; });
    module.def("_functions", &functions);
    module.def("_get_variable", &get_variable);
    module.def("_set_variable", &set_variable);
    module.def("_delete_variable", &delete_variable);
    module.def("_variable_names", &variable_names);
}

} // namespace qvpy
