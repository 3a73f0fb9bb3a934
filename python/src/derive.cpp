// derive.cpp - derive(): expressions evaluated over columns, the loop over the rows in C++.
//
// The package (qvcommon/columns.py) hands over each column as a NumPy array of one of six
// kinds: int64, float64 and bool (each with an optional mask of NULLs), datetime64 and
// timedelta64 as int64 nanoseconds (NaT is NULL), and object. The expressions are parsed
// once; every name they read is bound to one value record per column, whose type comes from
// the column's kind (an object column's from its elements, or from a declared type); the
// expressions are validated once. Then, per row, each column used writes its element into
// its record (a number stored, a text pointed at, never copied), the condition and the
// expressions are solved and their results appended to typed output buffers, which become
// NumPy arrays at the end. No Python code runs per row; object columns read their elements
// through the C API.
//
// Failures. Bad columns (unknown kinds, mixed element types, mismatched lengths) and
// expressions that do not parse or validate raise before the first row. A row that fails
// (an element that does not read as its column's declared type, an evaluation the library
// stops) follows on_error: "raise" raises EvaluationError naming the expression and the
// row, "null" gives NULL for what failed (a failing condition drops the row), "skip" drops
// the row. The rows run inside one status context of the module's, opened again after each
// failure that lands in it.
#include <pybind11/numpy.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <optional>

#include "qvpy.hpp"

namespace qvpy {

namespace {

using std::size_t;

constexpr int64_t kNanosecondsPerDay = 86400LL * 1000000000LL;
constexpr int64_t kNaT = std::numeric_limits<int64_t>::min();

// ---- Calendar arithmetic (days since 1970-01-01, proleptic Gregorian) ------------------------

int64_t days_from_civil(int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = unsigned(y - era * 400);
    const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + int64_t(doe) - 719468;
}

void civil_from_days(int64_t z, QV_DATE_T &date) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = unsigned(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    const unsigned m = mp < 10 ? mp + 3 : mp - 9;
    date.year = int16_t(int64_t(yoe) + era * 400 + (m <= 2));
    date.month = uint8_t(m);
    date.day = uint8_t(doy - (153 * mp + 2) / 5 + 1);
}

int64_t floor_div(int64_t a, int64_t b) {
    return a / b - (a % b != 0 && (a < 0) != (b < 0));
}

// ---- Input columns -------------------------------------------------------------------------

enum class Policy { Raise, Null, Skip };

// One column the expressions read: the record its elements are written into (`natural`),
// and, when a type was declared for it, the record the expressions read instead
// (`declared`, the natural value converted).
class Input {
  public:
    Input(std::string name, size_t rows) : name_(std::move(name)), rows_(rows) {}
    virtual ~Input() {
        FreeValue_L(&natural_);
        FreeValue_L(&declared_);
    }
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;

    // Writes row `row` into the bound record; "" or what is wrong with the element.
    std::string load(size_t row) {
        std::string failure = load_natural(row);
        if (!failure.empty() || !has_declared_) return failure;
        const int32_t result = ConvertValue_L(&declared_, &natural_, 1, 0);
        if (result == QV_CONVERT_TOO_LONG || (!natural_.is_null && declared_.is_null))
            return element_text() + " does not read as " + type_text(declared_.descriptor);
        return "";
    }
    // Declares the type the expressions see (open: the natural type's own size).
    void declare(const QV_DATATYPE_T &type, bool open_number) {
        QV_DATATYPE_T t = type;
        if (open_number) t = open_number_type();
        if (t.type == natural_.descriptor.type && t.precision == natural_.descriptor.precision &&
            t.scale == natural_.descriptor.scale)
            return;
        SetValue_L(&declared_, &t);
        has_declared_ = true;
    }
    QV_VALUE_T *bound() { return has_declared_ ? &declared_ : &natural_; }
    const std::string &name() const { return name_; }

  protected:
    virtual std::string load_natural(size_t row) = 0;
    // The element of the last load, for messages.
    virtual std::string element_text() {
        char *text = ValueToChar_L(&natural_);
        std::string result = text != nullptr ? std::string("'") + text + "'" : "NULL";
        std::free(text);
        return result;
    }

    QV_DATATYPE_T open_number_type() const {
        QV_DATATYPE_T t{};
        const QV_DATATYPE_T &n = natural_.descriptor;
        if (n.type == QV_TYPE_NUMBER) return n;
        if (n.type == QV_TYPE_INTEGER) return *SetDataType_L(&t, QV_TYPE_NUMBER, 19, 0);
        if (n.type == QV_TYPE_BOOLEAN || (n.type == QV_TYPE_CHAR && all_missing_))
            return *SetDataType_L(&t, QV_TYPE_NUMBER, QV_PRECISE_MAX_PRECISION, 0);
        throw py::value_error("column '" + name_ + "': declare NUMBER(precision, scale) for " +
                              "a column of " + type_text(n));
    }

    std::string name_;
    size_t rows_;
    QV_VALUE_T natural_{};
    QV_VALUE_T declared_{};
    bool has_declared_ = false;
    bool all_missing_ = false;
};

// int64, float64, bool: the element stored in the payload.
template <class T>
class NumericInput : public Input {
  public:
    NumericInput(std::string name, py::array_t<T> data, std::optional<py::array_t<bool>> mask)
        : Input(std::move(name), size_t(data.size())), data_(std::move(data)),
          mask_(std::move(mask)) {
        values_ = data_.data();
        nulls_ = mask_ ? mask_->data() : nullptr;
        if constexpr (std::is_same_v<T, int64_t>)
            SetIntegerValue_L(&natural_, 0);
        else if constexpr (std::is_same_v<T, double>)
            SetFloatValue_L(&natural_, 0);
        else
            SetBooleanValue_L(&natural_, 0);
    }

  protected:
    std::string load_natural(size_t row) override {
        const T v = values_[row];
        if constexpr (std::is_same_v<T, int64_t>)
            natural_.payload.integer = v;
        else if constexpr (std::is_same_v<T, double>)
            natural_.payload.real = v;
        else
            natural_.payload.boolean = v ? 1 : 0;
        bool null = nulls_ != nullptr && nulls_[row];
        if constexpr (std::is_same_v<T, double>) null = null || std::isnan(v); // pandas' missing
        natural_.is_null = null;
        return "";
    }

  private:
    py::array_t<T> data_;
    std::optional<py::array_t<bool>> mask_;
    const T *values_ = nullptr;
    const bool *nulls_ = nullptr;
};

// datetime64[ns] and timedelta64[ns] as int64: DATE and INTERVAL DAY TO SECOND.
class TimeInput : public Input {
  public:
    TimeInput(std::string name, py::array_t<int64_t> data, std::optional<py::array_t<bool>> mask,
              bool interval)
        : Input(std::move(name), size_t(data.size())), data_(std::move(data)),
          mask_(std::move(mask)), interval_(interval) {
        SetValueType_L(&natural_, interval ? QV_TYPE_INTERVAL_DS : QV_TYPE_DATE);
    }

  protected:
    std::string load_natural(size_t row) override {
        const int64_t ns = data_.data()[row];
        natural_.is_null = ns == kNaT || (mask_ && mask_->data()[row]);
        if (natural_.is_null) return "";
        const int64_t day = floor_div(ns, kNanosecondsPerDay);
        int64_t rest = ns - day * kNanosecondsPerDay;
        if (interval_) {
            QV_INTERVAL_DS_T &i = natural_.payload.interval_ds;
            const uint64_t magnitude = ns < 0 ? 0 - uint64_t(ns) : uint64_t(ns);
            i.negative = ns < 0;
            i.days = uint32_t(magnitude / kNanosecondsPerDay);
            uint64_t r = magnitude % kNanosecondsPerDay;
            i.fraction = uint32_t(r % 1000000000);
            r /= 1000000000;
            i.seconds = uint32_t(r % 60);
            i.minutes = uint32_t(r / 60 % 60);
            i.hours = uint32_t(r / 3600);
            return "";
        }
        QV_DATE_T &d = natural_.payload.date;
        civil_from_days(day, d);
        d.fraction = int32_t(rest % 1000000000);
        rest /= 1000000000;
        d.second = uint8_t(rest % 60);
        d.minute = uint8_t(rest / 60 % 60);
        d.hour = uint8_t(rest / 3600);
        d.zone = 0;
        return "";
    }

  private:
    py::array_t<int64_t> data_;
    std::optional<py::array_t<bool>> mask_;
    bool interval_;
};

// An object column of str (and missing values): CHAR records pointing at each str's UTF-8.
class TextInput : public Input {
  public:
    // `longest`: the most characters of an element, the column's CHAR length.
    TextInput(std::string name, py::array data, std::size_t longest)
        : Input(std::move(name), size_t(data.size())), data_(std::move(data)) {
        SetTextValue_L(&natural_, "", nullptr);
        FreeValue_L(&natural_); // a NULL CHAR in UTF-8, owning nothing
        natural_.descriptor.precision = text_length(longest);
        elements_ = static_cast<PyObject *const *>(data_.data());
    }
    ~TextInput() override { natural_.payload.string.text = nullptr; }
    void all_missing() { all_missing_ = true; }

  protected:
    std::string load_natural(size_t row) override {
        PyObject *element = elements_[row];
        natural_.payload.string.text = nullptr;
        natural_.is_null = 1;
        if (!PyUnicode_Check(element)) return ""; // a missing value: the scan saw to that
        Py_ssize_t length = 0;
        const char *text = nullptr;
        try {
            text = utf8_of(element, &length, scratch_);
        } catch (const std::exception &e) { // a str with surrogates no UTF-8 can hold
            PyErr_Clear();
            return e.what();
        }
        if (std::strlen(text) != size_t(length)) return "a text holding a NUL character";
        natural_.payload.string.text = const_cast<char *>(text);
        natural_.is_null = 0;
        return "";
    }

  private:
    py::array data_;
    PyObject *const *elements_ = nullptr;
    std::string scratch_;
};

// Any other object column: each element mapped as a scalar (to_value), then converted into
// the column's common type (an int among Decimals into the NUMBER they share).
class ObjectInput : public Input {
  public:
    ObjectInput(std::string name, py::array data, const QV_DATATYPE_T &common)
        : Input(std::move(name), size_t(data.size())), data_(std::move(data)) {
        elements_ = static_cast<PyObject *const *>(data_.data());
        SetValue_L(&natural_, &common);
        natural_.is_null = 1;
    }
    ~ObjectInput() override { FreeValue_L(&element_); }

  protected:
    std::string load_natural(size_t row) override {
        py::handle element(elements_[row]);
        current_ = element;
        try {
            to_value(element, &element_, name_.c_str());
        } catch (const std::exception &e) { // the element's own fault: a row failure
            PyErr_Clear();
            return e.what();
        }
        if (element_.is_null) {
            FreeValue_L(&natural_);
            return "";
        }
        if (ConvertValue_L(&natural_, &element_, 0, 0) != QV_CONVERT_OK || natural_.is_null)
            return element_text() + " does not fit " + type_text(natural_.descriptor);
        return "";
    }
    std::string element_text() override { return py::repr(current_); }

  private:
    py::array data_;
    PyObject *const *elements_ = nullptr;
    QV_VALUE_T element_{};
    py::handle current_;
};

// ---- Deciding an object column's type --------------------------------------------------------

struct Scan {
    Kind kind = Kind::Missing; // the column's kind; Missing when every element is
    int32_t integer_digits = 0, scale = 0;
    std::size_t longest_bytes = 0;
    std::size_t longest_text = 0; // in characters
};

bool is_number(Kind k) {
    return k == Kind::Integer || k == Kind::Decimal || k == Kind::Float;
}

// Numbers widen (int < Decimal < float); datetime and date mix as DATE; other kinds must
// agree. Throws TypeError naming the two kinds and where each was first seen.
Scan scan_objects(const std::string &name, const py::array &data) {
    auto elements = static_cast<PyObject *const *>(data.data());
    Scan scan;
    size_t first_row = 0;
    for (size_t row = 0; row < size_t(data.size()); ++row) {
        py::handle element(elements[row]);
        Kind k = kind_of(element);
        if (k == Kind::Missing) continue;
        if (k == Kind::Integer || k == Kind::Decimal) {
            int32_t digits = 0, scale = 0;
            number_digits(element, &digits, &scale);
            scan.integer_digits = std::max(scan.integer_digits, digits);
            scan.scale = std::max(scan.scale, scale);
        }
        if (k == Kind::Text)
            scan.longest_text =
                std::max(scan.longest_text, std::size_t(PyUnicode_GET_LENGTH(element.ptr())));
        if (k == Kind::Bytes) {
            py::buffer_info b = py::buffer(py::reinterpret_borrow<py::object>(element)).request();
            scan.longest_bytes = std::max(scan.longest_bytes, std::size_t(b.size * b.itemsize));
        }
        if (k == Kind::Date) k = Kind::DateTime;
        if (scan.kind == Kind::Missing) {
            scan.kind = k;
            first_row = row;
        } else if (k != scan.kind) {
            if (is_number(k) && is_number(scan.kind)) {
                if (k == Kind::Float || scan.kind == Kind::Float)
                    scan.kind = Kind::Float;
                else
                    scan.kind = Kind::Decimal;
            } else {
                throw py::type_error("column '" + name + "' mixes " + kind_name(scan.kind) +
                                     " (row " + std::to_string(first_row) + ") and " +
                                     kind_name(k) + " (row " + std::to_string(row) + ")");
            }
        }
    }
    return scan;
}

// The type every element of a scanned column is converted into; type 0 when each element
// keeps its own (arrays, bytes, intervals, booleans ...).
QV_DATATYPE_T common_type(const std::string &name, const Scan &scan) {
    QV_DATATYPE_T t{};
    switch (scan.kind) {
        case Kind::Integer:
            if (scan.integer_digits <= 18) return *SetDataType_L(&t, QV_TYPE_INTEGER, 0, 0);
            [[fallthrough]]; // ints beyond 64 bits: NUMBER
        case Kind::Decimal: {
            const int32_t precision = scan.integer_digits + scan.scale;
            if (precision > QV_PRECISE_MAX_PRECISION)
                throw py::value_error("column '" + name + "': its numbers need " +
                                      std::to_string(precision) + " digits, more than NUMBER's 77");
            return *SetDataType_L(&t, QV_TYPE_NUMBER, std::max(precision, 1), scan.scale);
        }
        case Kind::Float: return *SetDataType_L(&t, QV_TYPE_FLOAT, 0, 0);
        case Kind::DateTime: return *SetDataType_L(&t, QV_TYPE_DATE, 0, 0);
        case Kind::DateTimeZoned: return *SetDataType_L(&t, QV_TYPE_DATE_TZ, 0, 0);
        case Kind::Time: return *SetDataType_L(&t, QV_TYPE_TIME, 0, 0);
        case Kind::TimeZoned: return *SetDataType_L(&t, QV_TYPE_TIME_TZ, 0, 0);
        case Kind::Delta: return *SetDataType_L(&t, QV_TYPE_INTERVAL_DS, 0, 0);
        case Kind::IntervalYM: return *SetDataType_L(&t, QV_TYPE_INTERVAL_YM, 0, 0);
        case Kind::Boolean: return *SetDataType_L(&t, QV_TYPE_BOOLEAN, 0, 0);
        case Kind::Bytes:
            return *SetDataType_L(&t, QV_TYPE_BINARY,
                                  int32_t(std::min<std::size_t>(scan.longest_bytes, INT32_MAX)), 0);
        case Kind::Array: return *SetDataType_L(&t, QV_TYPE_ARRAY, 0, 0);
        case Kind::Other:
            throw py::type_error("column '" + name +
                                 "' holds objects that have no value in the "
                                 "expression language");
        default: return t; // Typed: each keeps its declared type
    }
}

std::unique_ptr<Input> make_input(const std::string &name, const std::string &kind,
                                  const py::object &data, const py::object &mask) {
    std::optional<py::array_t<bool>> nulls;
    if (!mask.is_none()) nulls = mask.cast<py::array_t<bool>>();
    if (kind == "int64")
        return std::make_unique<NumericInput<int64_t>>(name, data.cast<py::array_t<int64_t>>(),
                                                       nulls);
    if (kind == "float64")
        return std::make_unique<NumericInput<double>>(name, data.cast<py::array_t<double>>(),
                                                      nulls);
    if (kind == "bool")
        return std::make_unique<NumericInput<bool>>(name, data.cast<py::array_t<bool>>(), nulls);
    if (kind == "datetime64" || kind == "timedelta64")
        return std::make_unique<TimeInput>(name, data.cast<py::array_t<int64_t>>(), nulls,
                                           kind == "timedelta64");
    if (kind != "object") throw py::type_error("column '" + name + "': unknown kind " + kind);
    py::array objects = data.cast<py::array>();
    const Scan scan = scan_objects(name, objects);
    if (scan.kind == Kind::Text || scan.kind == Kind::Missing) {
        auto text = std::make_unique<TextInput>(name, objects, scan.longest_text);
        if (scan.kind == Kind::Missing) text->all_missing();
        return text;
    }
    return std::make_unique<ObjectInput>(name, objects, common_type(name, scan));
}

// ---- Output columns ------------------------------------------------------------------------

// One derived column: the results appended row by row, NumPy arrays at the end.
class Output {
  public:
    explicit Output(size_t rows) { mask_.reserve(rows); }
    virtual ~Output() = default;
    // Appends the value (NULL or of the column's type); false with `failure` set when it
    // has no Python form.
    bool append(const QV_VALUE_T &value, std::string &failure) {
        mask_.push_back(value.is_null);
        any_null_ = any_null_ || value.is_null;
        return put(value, failure);
    }
    void append_null() {
        static const QV_VALUE_T null = [] {
            QV_VALUE_T v{};
            v.is_null = 1;
            return v;
        }();
        std::string ignored;
        append(null, ignored);
    }
    // (kind, data, mask or None)
    virtual py::tuple finish() = 0;

  protected:
    virtual bool put(const QV_VALUE_T &value, std::string &failure) = 0;
    py::object mask_array() const {
        if (!any_null_) return py::none();
        py::array_t<bool> mask(py::ssize_t(mask_.size()));
        std::copy(mask_.begin(), mask_.end(), mask.mutable_data());
        return mask;
    }
    std::vector<uint8_t> mask_;
    bool any_null_ = false;
};

template <class T>
py::array_t<T> to_array(const std::vector<T> &values) {
    py::array_t<T> array(py::ssize_t(values.size()));
    std::copy(values.begin(), values.end(), array.mutable_data());
    return array;
}

// INTEGER, FLOAT, BOOLEAN: the payload, 0 (NaN for FLOAT) under a NULL.
template <class T>
class NumericOutput : public Output {
  public:
    NumericOutput(size_t rows, const char *kind) : Output(rows), kind_(kind) {
        data_.reserve(rows);
    }
    py::tuple finish() override { return py::make_tuple(kind_, to_array(data_), mask_array()); }

  protected:
    bool put(const QV_VALUE_T &v, std::string &) override {
        if constexpr (std::is_same_v<T, int64_t>)
            data_.push_back(v.is_null ? 0 : v.payload.integer);
        else if constexpr (std::is_same_v<T, double>)
            data_.push_back(v.is_null ? std::nan("") : v.payload.real);
        else
            data_.push_back(!v.is_null && v.payload.boolean != 0);
        return true;
    }

  private:
    std::vector<T> data_;
    const char *kind_;
};

// DATE and INTERVAL DAY TO SECOND: datetime64[ns] or timedelta64[ns] when every value fits
// 64-bit nanoseconds, else Python objects. `Time` names the payload record, reads it from a
// value, gives its nanoseconds (none when they do not fit) and its Python object.
template <class Time>
class TimeOutput : public Output {
  public:
    using Record = typename Time::Record;
    explicit TimeOutput(size_t rows) : Output(rows) { values_.reserve(rows); }
    py::tuple finish() override {
        std::vector<int64_t> ns(values_.size(), kNaT);
        bool fits = true;
        for (size_t n = 0; n < values_.size() && fits; ++n) {
            if (mask_[n]) continue;
            const std::optional<int64_t> value = Time::nanoseconds(values_[n]);
            fits = value.has_value();
            ns[n] = value.value_or(kNaT);
        }
        if (fits) return py::make_tuple(Time::kind, to_array(ns), mask_array());
        py::array objects(py::dtype("O"), py::ssize_t(values_.size()));
        auto slots = static_cast<PyObject **>(objects.mutable_data());
        for (size_t n = 0; n < values_.size(); ++n) {
            py::object o = mask_[n] ? py::none() : Time::object(values_[n]);
            Py_XDECREF(slots[n]);
            slots[n] = o.release().ptr();
        }
        return py::make_tuple("object", objects, mask_array());
    }

  protected:
    bool put(const QV_VALUE_T &v, std::string &) override {
        values_.push_back(v.is_null ? Record{} : Time::record(v));
        return true;
    }

  private:
    std::vector<Record> values_;
};

std::optional<int64_t> fitting(int128 value) {
    if (value <= std::numeric_limits<int64_t>::min() || value > std::numeric_limits<int64_t>::max())
        return std::nullopt; // the lowest is NaT
    return int64_t(value);
}

struct DateTime {
    using Record = QV_DATE_T;
    static constexpr const char *kind = "datetime64";
    static Record record(const QV_VALUE_T &v) { return v.payload.date; }
    static std::optional<int64_t> nanoseconds(const Record &d) {
        return fitting(int128(days_from_civil(d.year, d.month, d.day)) * kNanosecondsPerDay +
                       (int64_t(d.hour) * 3600 + d.minute * 60 + d.second) * 1000000000LL +
                       d.fraction);
    }
    static py::object object(const Record &d) { return make_datetime(d, false); }
};

struct IntervalDS {
    using Record = QV_INTERVAL_DS_T;
    static constexpr const char *kind = "timedelta64";
    static Record record(const QV_VALUE_T &v) { return v.payload.interval_ds; }
    static std::optional<int64_t> nanoseconds(const Record &i) {
        const int128 magnitude =
            (int128(i.days) * 86400 + int64_t(i.hours) * 3600 + i.minutes * 60 + i.seconds) *
                1000000000LL +
            i.fraction;
        return fitting(i.negative ? -magnitude : magnitude);
    }
    static py::object object(const Record &i) {
        QV_VALUE_T v{};
        v.descriptor.type = QV_TYPE_INTERVAL_DS;
        v.payload.interval_ds = i;
        return to_python(v);
    }
};

// Everything else: Python objects (str for CHAR, Decimal for NUMBER ...).
class ObjectOutput : public Output {
  public:
    explicit ObjectOutput(size_t rows) : Output(rows) { objects_.reserve(rows); }
    ~ObjectOutput() override {
        for (PyObject *o : objects_) Py_XDECREF(o);
    }
    py::tuple finish() override {
        py::array array(py::dtype("O"), py::ssize_t(objects_.size()));
        auto slots = static_cast<PyObject **>(array.mutable_data());
        for (size_t n = 0; n < objects_.size(); ++n) {
            Py_XDECREF(slots[n]);
            slots[n] = objects_[n];
        }
        objects_.clear();
        return py::make_tuple("object", array, mask_array());
    }

  protected:
    bool put(const QV_VALUE_T &v, std::string &failure) override {
        if (v.is_null) {
            objects_.push_back(py::none().release().ptr());
            return true;
        }
        try {
            const QV_ENCODING_T *encoding = v.payload.string.encoding;
            const bool plain_text = v.descriptor.type == QV_TYPE_CHAR &&
                                    (encoding == nullptr || encoding == UTF8Encoding_L() ||
                                     encoding == ASCIIEncoding_L());
            const char *text = plain_text && v.payload.string.text ? v.payload.string.text : "";
            objects_.push_back(plain_text ? str_from_utf8(text, std::strlen(text))
                                          : to_python(v).release().ptr());
            return true;
        } catch (const std::exception &e) {
            PyErr_Clear();
            objects_.push_back(py::none().release().ptr());
            mask_.back() = 1;
            any_null_ = true;
            failure = e.what();
            return false;
        }
    }

  private:
    std::vector<PyObject *> objects_;
};

std::unique_ptr<Output> make_output(uint32_t type, size_t rows) {
    switch (type) {
        case QV_TYPE_INTEGER: return std::make_unique<NumericOutput<int64_t>>(rows, "int64");
        case QV_TYPE_FLOAT: return std::make_unique<NumericOutput<double>>(rows, "float64");
        case QV_TYPE_BOOLEAN: return std::make_unique<NumericOutput<bool>>(rows, "bool");
        case QV_TYPE_DATE: return std::make_unique<TimeOutput<DateTime>>(rows);
        case QV_TYPE_INTERVAL_DS: return std::make_unique<TimeOutput<IntervalDS>>(rows);
        default: return std::make_unique<ObjectOutput>(rows);
    }
}

// ---- The program -----------------------------------------------------------------------------

struct Derived {
    std::string name, text;
    ExpressionPtr expression;
    std::unique_ptr<Output> output;
};

// Where the rows are: the row under way and its step, so that a failure landing in the
// status context knows what failed and where to go on.
struct Cursor {
    size_t row = 0;
    int step = kLoad;            // kLoad, kWhere, or the index of the expression being solved
    size_t input = 0;            // the column being loaded
    std::vector<uint8_t> failed; // per expression: failed in this row
    bool any_failed = false;
    static constexpr int kLoad = -2, kWhere = -1;
};

class Program {
  public:
    Program(const py::list &columns, const py::list &exprs, const py::object &where,
            const py::dict &types, const std::string &on_error, py::object labels)
        : labels_(std::move(labels)) {
        policy_ = on_error == "raise"  ? Policy::Raise
                  : on_error == "null" ? Policy::Null
                  : on_error == "skip" ? Policy::Skip
                                       : throw py::value_error("on_error must be 'raise', 'null' "
                                                               "or 'skip', not '" +
                                                               on_error + "'");
        read_columns(columns);
        for (py::handle pair : exprs) {
            auto item = pair.cast<std::pair<std::string, std::string>>();
            Derived d{item.first, item.second, nullptr, nullptr};
            d.expression = parse_expression(d.text, describe(d.name, d.text));
            derived_.push_back(std::move(d));
        }
        if (!where.is_none()) {
            where_text_ = where.cast<std::string>();
            where_ = parse_expression(where_text_, "where " + quote(where_text_));
        }
        bind(types);
        validate();
    }

    py::dict run() {
        Cursor cursor;
        cursor.failed.assign(derived_.size(), 0);
        while (cursor.row < rows_) {
            Outcome outcome = call("derive", [&] { run_rows(cursor); });
            if (stop_) throw_row_failure(cursor, outcome, pending_);
            if (outcome.raised == nullptr) continue; // done, or a row dropped
            // A raise landed: the step under way failed. While appending it cannot be undone.
            if (appending_) policy_ = Policy::Raise;
            const Next next = handle_failure(cursor, messages_text(outcome));
            if (next == Next::Stop) throw_row_failure(cursor, outcome, pending_);
            if (next == Next::Continue && cursor.step == Cursor::kLoad)
                ++cursor.input;
            else if (next == Next::Continue)
                ++cursor.step;
        }
        py::dict result;
        py::list out;
        for (Derived &d : derived_) {
            py::tuple finished = d.output->finish();
            out.append(py::make_tuple(d.name, finished[0], finished[1], finished[2],
                                      type_text(d.expression->result_type)));
        }
        result["columns"] = out;
        result["kept"] = dropped_ ? py::object(to_array(kept_)) : py::none();
        result["failures"] = failures_;
        result["failure_count"] = failure_count_;
        return result;
    }

  private:
    static std::string quote(const std::string &text) {
        return std::string(py::repr(py::str(text)));
    }
    static std::string describe(const std::string &name, const std::string &text) {
        return "derive column '" + name + "' := " + text;
    }

    void read_columns(const py::list &columns) {
        for (py::handle column : columns) {
            py::tuple c = column.cast<py::tuple>();
            ColumnSpec spec{c[0].cast<std::string>(), c[1].cast<std::string>(),
                            py::reinterpret_borrow<py::object>(c[2]),
                            py::reinterpret_borrow<py::object>(c[3])};
            const size_t length = size_t(py::len(spec.data));
            if (!specs_.empty() && length != rows_)
                throw py::value_error("columns differ in length: '" + specs_.front().name +
                                      "' has " + std::to_string(rows_) + " rows, '" + spec.name +
                                      "' " + std::to_string(length));
            rows_ = length;
            specs_.push_back(std::move(spec));
        }
    }

    // Makes an input for each column a name of the expressions reads, binds it everywhere.
    void bind(const py::dict &types) {
        std::vector<EXPRESSION_T *> all;
        for (Derived &d : derived_) all.push_back(d.expression.get());
        if (where_) all.push_back(where_.get());
        for (EXPRESSION_T *e : all)
            for (const std::string &name : expression_names(e)) {
                Input *input = input_for(name, types);
                if (input != nullptr) BindExpressionName_L(e, name.c_str(), input->bound());
            }
        for (auto [name, type] : types) {
            const std::string column = py::str(name);
            bool known = false;
            for (const ColumnSpec &s : specs_) known = known || s.name == column;
            if (!known)
                throw py::key_error("types names the column '" + column + "', which is not there");
        }
    }

    Input *input_for(const std::string &name, const py::dict &types) {
        for (auto &input : inputs_)
            if (StricmpUTF8_L(input->name().c_str(), name.c_str()) == 0) return input.get();
        const ColumnSpec *spec = nullptr;
        for (const ColumnSpec &s : specs_) // the exact name first, then without regard to case
            if (s.name == name) spec = &s;
        for (const ColumnSpec &s : specs_)
            if (spec == nullptr && StricmpUTF8_L(s.name.c_str(), name.c_str()) == 0) spec = &s;
        if (spec == nullptr) return nullptr;
        std::unique_ptr<Input> input = make_input(spec->name, spec->kind, spec->data, spec->mask);
        if (types.contains(spec->name)) {
            bool open_number = false;
            const std::string what = "types['" + spec->name + "']";
            QV_DATATYPE_T type =
                parse_type(py::str(types[py::str(spec->name)]), &open_number, what.c_str());
            input->declare(type, open_number);
        }
        inputs_.push_back(std::move(input));
        return inputs_.back().get();
    }

    void validate() {
        for (Derived &d : derived_) {
            validate_one(d.expression.get(), describe(d.name, d.text));
            d.output = make_output(d.expression->result_type.type, rows_);
        }
        if (where_) validate_one(where_.get(), "where " + quote(where_text_));
    }

    void validate_one(EXPRESSION_T *e, const std::string &context) {
        int32_t valid = 0;
        Outcome outcome = call("derive.validate", [&] { valid = Validate_Expression_L(e); });
        if (outcome.raised == nullptr && valid == 1) return;
        std::string columns;
        for (const ColumnSpec &s : specs_) columns += (columns.empty() ? "" : ", ") + s.name;
        py::dict extra;
        extra["expression"] = context;
        throw_failure(outcome, "ValidationError",
                      context + " (columns: " + (columns.empty() ? "none" : columns) + ")", extra);
    }

    // The rows from the cursor on, inside the status context. Returns when they are done or
    // when a failure stops the run (stop_); a raise lands in the context instead.
    void run_rows(Cursor &c) {
        while (c.row < rows_) {
            SetRowNum_L(int64_t(c.row) + 1);
            if (c.step == Cursor::kLoad) {
                for (; c.input < inputs_.size(); ++c.input) {
                    std::string failure = inputs_[c.input]->load(c.row);
                    if (!failure.empty() && handle_failure(c, failure) != Next::Continue) return;
                }
                c.step = where_ ? Cursor::kWhere : 0;
            }
            if (c.step == Cursor::kWhere) {
                if (Solve_Expression_L(where_.get()) != 0) {
                    handle_failure(c, "the condition could not be evaluated");
                    return;
                }
                if (!holds(where_->result)) {
                    next_row(c, false);
                    continue;
                }
                c.step = 0;
            }
            for (; size_t(c.step) < derived_.size(); ++c.step)
                if (Solve_Expression_L(derived_[size_t(c.step)].expression.get()) != 0 &&
                    handle_failure(c, "the expression could not be evaluated") != Next::Continue)
                    return;
            if (!append_row(c)) return;
        }
    }

    static bool holds(const QV_VALUE_T &value) {
        if (value.is_null) return false;
        if (value.descriptor.type == QV_TYPE_BOOLEAN) return value.payload.boolean != 0;
        uint8_t truth = 0;
        return ValueToBoolean_L(&value, &truth) == QV_VALUE_OK && truth != 0;
    }

    // Appends the row's results; false when a result without a Python form stops the run.
    bool append_row(Cursor &c) {
        appending_ = true;
        for (size_t k = 0; k < derived_.size(); ++k) {
            Derived &d = derived_[k];
            std::string failure;
            if (c.failed[k])
                d.output->append_null();
            else if (!d.output->append(d.expression->result, failure)) {
                c.step = int(k);
                record_failure(c, failure);
                if (policy_ == Policy::Raise) {
                    stop_ = true;
                    pending_ = failure;
                    return false;
                }
            }
        }
        appending_ = false;
        next_row(c, true);
        return true;
    }

    // The positions of the kept rows are listed from the first dropped row on (until then
    // every row is kept).
    void next_row(Cursor &c, bool kept) {
        if (!kept && !dropped_) {
            kept_.resize(c.row);
            std::iota(kept_.begin(), kept_.end(), int64_t(0));
            dropped_ = true;
        } else if (kept && dropped_) {
            kept_.push_back(int64_t(c.row));
        }
        ++c.row;
        c.step = Cursor::kLoad;
        c.input = 0;
        if (c.any_failed) std::fill(c.failed.begin(), c.failed.end(), 0);
        c.any_failed = false;
    }

    enum class Next { Stop, Drop, Continue };

    // A failure at the cursor's step: counted, then by the policy: stop (raise), drop the row
    // (skip, and a failed condition under null), or go on with NULL for what failed (null);
    // the caller then moves past the failed step.
    Next handle_failure(Cursor &c, const std::string &failure) {
        record_failure(c, failure);
        if (policy_ == Policy::Raise) {
            stop_ = true;
            pending_ = failure;
            return Next::Stop;
        }
        if (policy_ == Policy::Skip || c.step == Cursor::kWhere) {
            next_row(c, false);
            return Next::Drop;
        }
        if (c.step == Cursor::kLoad)
            FreeValue_L(inputs_[c.input]->bound()); // NULL this row
        else
            c.failed[size_t(c.step)] = c.any_failed = true;
        return Next::Continue;
    }

    void record_failure(const Cursor &c, const std::string &failure) {
        ++failure_count_;
        if (failures_.size() < 10) failures_.append(py::make_tuple(c.row, step_name(c), failure));
    }

    std::string step_name(const Cursor &c) const {
        if (c.step == Cursor::kLoad) return "column '" + inputs_[c.input]->name() + "'";
        if (c.step == Cursor::kWhere) return "where " + quote(where_text_);
        const Derived &d = derived_[size_t(c.step)];
        return describe(d.name, d.text);
    }

    [[noreturn]] void throw_row_failure(const Cursor &c, const Outcome &outcome,
                                        const std::string &failure) {
        py::object label = py::none();
        std::string where = "row " + std::to_string(c.row);
        if (!labels_.is_none()) {
            label = labels_[py::int_(c.row)];
            where += " (index " + std::string(py::repr(label)) + ")";
        }
        py::dict extra;
        extra["expression"] = step_name(c);
        extra["column"] = c.step >= 0 ? py::object(py::str(derived_[size_t(c.step)].name))
                                      : py::object(py::none());
        extra["row"] = c.row;
        extra["index"] = label;
        Outcome described = outcome;
        if (described.messages.empty() && described.raised == nullptr)
            described.messages.push_back(Message{0, MESSAGE_SEVERITY_ERROR, failure, {}});
        throw_failure(described, "EvaluationError", step_name(c) + " failed at " + where, extra);
    }

    struct ColumnSpec {
        std::string name, kind;
        py::object data, mask;
    };

    py::object labels_;
    Policy policy_ = Policy::Raise;
    std::vector<ColumnSpec> specs_;
    size_t rows_ = 0;
    std::vector<std::unique_ptr<Input>> inputs_;
    std::vector<Derived> derived_;
    std::string where_text_;
    ExpressionPtr where_;
    std::vector<int64_t> kept_;
    bool dropped_ = false, stop_ = false, appending_ = false;
    std::string pending_;
    py::list failures_;
    int64_t failure_count_ = 0;
};

py::dict derive(const py::list &columns, const py::list &exprs, const py::object &where,
                const py::dict &types, const std::string &on_error, const py::object &labels) {
    Program program(columns, exprs, where, types, on_error, labels);
    return program.run();
}

} // namespace

void register_derive(py::module_ &module) {
    module.def("_derive", &derive, py::arg("columns"), py::arg("exprs"), py::arg("where"),
               py::arg("types"), py::arg("on_error"), py::arg("labels"));
}

} // namespace qvpy
