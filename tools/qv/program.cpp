// program.cpp - the expression program of `qv derive` (see program.hpp).
#include "program.hpp"

#include <algorithm>
#include <new>

#include "arguments.hpp"
#include "fields.hpp"
#include "library.hpp"

namespace qvtool {
namespace {

using Expression = std::unique_ptr<EXPRESSION_T, ExpressionDeleter>;

struct InputColumn {
    std::string name;
    std::unique_ptr<FieldReader> reader;
    QV_VALUE_T value{}; // the record the expressions read
    bool used = false;  // named by an expression
};

// A derivation or the condition.
struct Step {
    std::string label; // "-e total" or "--where"
    std::string name;  // the derived column; "" for the condition
    Expression expression;
    bool condition = false;
    bool reads_derived = false; // names a derived column
    QV_VALUE_T text{};          // the text form of a number, date ...: kept from row to row
    std::string other_text;     // the text form of anything else
};

bool equal_names(const std::string &a, const std::string &b) {
    return StricmpUTF8_L(a.c_str(), b.c_str()) == 0;
}

bool is_true(const QV_VALUE_T &value) {
    return value.is_null == 0 && value.descriptor.type == QV_TYPE_BOOLEAN &&
           value.payload.boolean != 0;
}

bool utf8_text(const QV_VALUE_T &value) {
    const QV_ENCODING_T *encoding = value.payload.string.encoding;
    return value.descriptor.type == QV_TYPE_CHAR && value.payload.string.text != nullptr &&
           (encoding == nullptr || encoding == UTF8Encoding_L() || encoding == ASCIIEncoding_L());
}

// "error 0xA1B51C75: The result ..." for each problem, joined by "; ".
std::string joined(const std::vector<Problem> &problems) {
    std::string text;
    for (const Problem &problem : problems) {
        if (!text.empty()) text += "; ";
        char number[16];
        std::snprintf(number, sizeof number, "0x%08X", problem.number);
        text += (problem.number != 0 ? std::string("error ") + number + ": " : "error: ") +
                problem.text;
    }
    return text.empty() ? "the evaluation failed" : text;
}

class ExpressionProgram : public RowProgram {
  public:
    ExpressionProgram(const DeriveOptions &options, std::FILE *messages)
        : options_(options), messages_(messages) {}
    ~ExpressionProgram() override;
    bool needs_types() const override { return true; }
    std::string prepare(const std::vector<Column> &columns,
                        std::vector<std::string> &output_names) override;
    Verdict apply(std::int64_t row, std::span<const std::string_view> fields,
                  std::vector<std::string_view> &out, std::string &failure) override;
    int exit_code() const override { return exit_code_; }
    bool keeps_input_columns() const override {
        for (std::size_t i = 0; i < columns_.size(); ++i)
            if (sources_[i] != static_cast<int>(i)) return false;
        return true;
    }

  private:
    // Output column j is input column sources_[j] when >= 0, else step -1 - sources_[j].
    std::string add_step(const std::string &label, const std::string &name, const std::string &text,
                         bool condition);
    std::string compile(Step &step, std::size_t derived_before);
    void bind(Step &step, std::size_t derived_before);
    void place_output(std::size_t step, std::vector<std::string> &names);
    bool read_fields(std::span<const std::string_view> fields);
    bool evaluate();
    bool run_steps();
    void fail(const std::string &text);
    std::string_view text_of(Step &step);

    const DeriveOptions &options_;
    std::FILE *messages_;
    std::vector<InputColumn> columns_;
    std::vector<Step> steps_;
    std::vector<std::size_t> order_; // steps in the order they run
    std::vector<int> sources_;
    std::size_t next_ = 0; // the step to run next in this row
    bool dropped_ = false, exited_ = false;
    int exit_code_ = 0;
    std::string *failure_ = nullptr;
};

ExpressionProgram::~ExpressionProgram() {
    for (InputColumn &column : columns_) FreeValue_L(&column.value);
    for (Step &step : steps_) FreeValue_L(&step.text);
}

std::string ExpressionProgram::prepare(const std::vector<Column> &columns,
                                       std::vector<std::string> &output_names) {
    columns_ = std::vector<InputColumn>(columns.size());
    output_names.clear();
    for (std::size_t i = 0; i < columns.size(); ++i) {
        InputColumn &column = columns_[i];
        column.name = columns[i].name;
        column.reader = std::make_unique<FieldReader>(columns[i].type);
        SetValue_L(&column.value, &columns[i].type);
        column.value.is_null = 1;
        output_names.push_back(column.name);
        sources_.push_back(static_cast<int>(i));
    }
    steps_.reserve(options_.derivations.size() + 1); // records are bound: no reallocation
    for (const std::string &text : options_.derivations) {
        Derivation derivation;
        parse_derivation(text, derivation);
        if (std::string error =
                add_step("-e " + derivation.name, derivation.name, derivation.expression, false);
            !error.empty())
            return error;
        place_output(steps_.size() - 1, output_names);
    }
    if (!options_.where.empty())
        if (std::string error = add_step("--where", "", options_.where, true); !error.empty())
            return error;
    // The condition first when it reads no derived column: dropped rows are not derived.
    const bool where_first = !options_.where.empty() && !steps_.back().reads_derived;
    if (where_first) order_.push_back(steps_.size() - 1);
    for (std::size_t k = 0; k < steps_.size(); ++k)
        if (!(where_first && steps_[k].condition)) order_.push_back(k);
    return "";
}

std::string ExpressionProgram::add_step(const std::string &label, const std::string &name,
                                        const std::string &text, bool condition) {
    const std::size_t derived_before = steps_.size();
    Step &step = steps_.emplace_back();
    step.label = label;
    step.name = name;
    step.condition = condition;
    SetValueType_L(&step.text, QV_TYPE_CHAR);
    step.expression.reset(New_Expression_L(text.c_str()));
    if (step.expression == nullptr) throw std::bad_alloc();
    if (std::string error = compile(step, derived_before); !error.empty()) return error;
    EXPRESSION_T &e = *step.expression;
    if (condition) {
        const QV_DATATYPE_T boolean{QV_TYPE_BOOLEAN, 0, 0, 0};
        if (e.result_type.type == 0)
            SetExpressionResultType_L(&e, &boolean);
        else if (e.result_type.type != QV_TYPE_BOOLEAN)
            return "--where: the condition gives " + type_text(e.result_type) + ", not BOOLEAN";
    }
    // The result record is what later expressions read: typed before they are validated.
    SetValue_L(&e.result, &e.result_type);
    e.result.is_null = 1;
    return "";
}

// Parses, binds and validates; "" or the error (the library's problems printed first).
std::string ExpressionProgram::compile(Step &step, std::size_t derived_before) {
    EXPRESSION_T *e = step.expression.get();
    int code = 0;
    const Outcome outcome = guarded(
        "qv derive",
        [&] {
            if (parse_expression(e) != 1) return false;
            bind(step, derived_before);
            return validate_expression(e) == 1;
        },
        code);
    if (outcome == Outcome::Done) return "";
    const std::vector<Problem> problems = take_problems();
    print_problems(messages_, problems, e->text != nullptr ? e->text : "", step.label + ": ");
    if (problems.empty()) return step.label + ": there is nothing to evaluate";
    const bool unbound = std::any_of(problems.begin(), problems.end(), [](const Problem &p) {
        return p.number == QV_MSG_NAME_NOT_BOUND;
    });
    if (!unbound) return step.label + ": not valid";
    std::string names;
    for (const InputColumn &column : columns_) names += (names.empty() ? "" : ", ") + column.name;
    for (std::size_t k = 0; k < derived_before; ++k) names += ", " + steps_[k].name;
    return "the columns are: " + names;
}

// Binds the names to the derived results before this step (the latest first) and to the
// input columns; notes which columns it reads.
void ExpressionProgram::bind(Step &step, std::size_t derived_before) {
    std::vector<EXP_BINDING_T> table;
    for (std::size_t k = derived_before; k-- > 0;)
        if (!steps_[k].condition)
            table.push_back({steps_[k].name.c_str(), &steps_[k].expression->result});
    for (InputColumn &column : columns_) table.push_back({column.name.c_str(), &column.value});
    EXPRESSION_T *e = step.expression.get();
    BindExpression_L(e, table.data(), static_cast<int32_t>(table.size()));
    void *data = nullptr;
    for (QV_LIST_T *p = NextListItem_L(e->items, &data); p; p = NextListItem_L(p, &data)) {
        const EXP_ITEM_T *item = static_cast<const EXP_ITEM_T *>(data);
        if (item->kind != EXP_ITEM_NAME || item->bound == nullptr) continue;
        const auto column =
            std::find_if(columns_.begin(), columns_.end(),
                         [&](const InputColumn &c) { return &c.value == item->bound; });
        if (column != columns_.end())
            column->used = true;
        else
            step.reads_derived = true;
    }
}

// A derived column replaces the output column of its name, or is appended.
void ExpressionProgram::place_output(std::size_t step, std::vector<std::string> &names) {
    const std::string &name = steps_[step].name;
    const int source = -1 - static_cast<int>(step);
    const auto same = std::find_if(names.begin(), names.end(),
                                   [&](const std::string &n) { return equal_names(n, name); });
    if (same == names.end()) {
        names.push_back(name);
        sources_.push_back(source);
        return;
    }
    *same = name;
    sources_[static_cast<std::size_t>(same - names.begin())] = source;
}

Verdict ExpressionProgram::apply(std::int64_t row, std::span<const std::string_view> fields,
                                 std::vector<std::string_view> &out, std::string &failure) {
    SetRowNum_L(row);
    failure_ = &failure;
    if (!read_fields(fields) || !evaluate()) return exited_ ? Verdict::Exit : Verdict::Skip;
    if (dropped_) return Verdict::Drop;
    out.clear();
    for (const int source : sources_)
        out.push_back(source >= 0 ? fields[static_cast<std::size_t>(source)]
                                  : text_of(steps_[static_cast<std::size_t>(-1 - source)]));
    return Verdict::Write;
}

// Reads the fields the expressions name. False when one failed and the row is not to go on.
bool ExpressionProgram::read_fields(std::span<const std::string_view> fields) {
    std::string error;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        InputColumn &column = columns_[i];
        if (!column.used || column.reader->read(fields[i], column.value, error)) continue;
        fail("column " + column.name + ": " + error);
        if (options_.on_error != OnError::Null) return false;
    }
    return true;
}

// Runs the steps under one status context, and again from the step after one that failed.
// False when the row is not to go on (a failure under skip or stop, or Exit).
bool ExpressionProgram::evaluate() {
    next_ = 0;
    dropped_ = false;
    while (next_ < order_.size()) {
        int code = 0;
        const Outcome outcome = guarded(
            "qv derive", [this] { return run_steps(); }, code);
        if (outcome == Outcome::Done) return true;
        Step &step = steps_[order_[next_]];
        if (outcome == Outcome::Exited) {
            fail(step.label + ": Exit(" + std::to_string(code) + ") ends the run");
            exit_code_ = code;
            exited_ = true;
            return false;
        }
        fail(step.label + ": " + joined(take_problems()));
        FreeValue_L(&step.expression->result); // NULL, of its type
        if (options_.on_error != OnError::Null) return false;
        if (step.condition) {
            dropped_ = true;
            return true;
        }
        ++next_;
    }
    return true;
}

bool ExpressionProgram::run_steps() {
    for (; next_ < order_.size(); ++next_) {
        Step &step = steps_[order_[next_]];
        if (Solve_Expression_L(step.expression.get()) != 0) return false;
        if (step.condition && !is_true(step.expression->result)) {
            dropped_ = true;
            return true;
        }
    }
    return true;
}

void ExpressionProgram::fail(const std::string &text) {
    if (!failure_->empty()) *failure_ += "; ";
    *failure_ += text;
}

// The result's text form: a UTF-8 text as it is, a number, date, truth value or interval
// converted into a CHAR record kept from row to row, anything else through ValueToChar_L.
std::string_view ExpressionProgram::text_of(Step &step) {
    const QV_VALUE_T &result = step.expression->result;
    if (result.is_null != 0) return {};
    if (utf8_text(result)) return result.payload.string.text;
    constexpr std::uint32_t converted = QV_TYPE_INTEGER | QV_TYPE_FLOAT | QV_TYPE_NUMBER |
                                        QV_TYPE_DATE | QV_TYPE_DATE_TZ | QV_TYPE_TIME |
                                        QV_TYPE_TIME_TZ | QV_TYPE_BOOLEAN | QV_TYPE_INTERVAL_DS |
                                        QV_TYPE_INTERVAL_YM;
    if ((result.descriptor.type & converted) != 0 &&
        ConvertValue_L(&step.text, &result, 0, 0) == QV_CONVERT_OK && step.text.is_null == 0)
        return step.text.payload.string.text;
    step.other_text = value_text(result);
    return step.other_text;
}

} // namespace

std::unique_ptr<RowProgram> make_expression_program(const DeriveOptions &options,
                                                    std::FILE *messages) {
    return std::make_unique<ExpressionProgram>(options, messages);
}

} // namespace qvtool
