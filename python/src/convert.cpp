// convert.cpp - the mapping between Python objects and value records, both ways.
//
//   Python                          value
//   None (pandas.NA, NaT too)       NULL (untyped, as the literal NULL)
//   bool                            BOOLEAN
//   int                             INTEGER; NUMBER(digits, 0) beyond 64 bits (77 digits)
//   float                           FLOAT
//   decimal.Decimal                 NUMBER(digits, decimals), exactly (77 digits at most)
//   str                             CHAR (UTF-8; lone surrogates of "surrogateescape" are the
//                                   bytes they stand for, so invalid UTF-8 goes both ways)
//   bytes, bytearray, memoryview    BINARY
//   datetime.datetime               DATE; DATE WITH TIME ZONE when aware (whole minutes)
//   datetime.date                   DATE at midnight
//   datetime.time                   TIME; TIME WITH TIME ZONE when aware
//   datetime.timedelta              INTERVAL DAY TO SECOND
//   qvcommon.IntervalYM             INTERVAL YEAR TO MONTH
//   list, tuple                     ARRAY (elements mapped one by one)
//   qvcommon.Typed(value, type)     the value converted into the declared type
// Back to Python the same table read from the right; CLOB gives str and BLOB bytes. Python's
// datetime holds microseconds: the nanoseconds of a date, time or interval are cut to
// microseconds (derive's datetime64[ns] columns keep them). A date outside Python's years
// 1..9999 is a ValueError.
//
// The datetime C API's table is per file (its header says so), hence every use of it here.
#include "qvpy.hpp"

#include <datetime.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_map>

namespace qvpy {

namespace {

py::object decimal_type, interval_ym_type, typed_type;
std::unordered_map<int, py::object> zones; // timezone objects by offset in minutes

[[noreturn]] void value_error(const std::string &text) {
    throw py::value_error(text);
}

// ---- Into values -------------------------------------------------------------------------

// The plain decimal text of a Decimal ("-12.50"; format "f" never writes an exponent) and
// its digits: integer digits without leading zeros, and decimals.
void set_decimal(py::handle object, QV_VALUE_T *value, const char *what) {
    py::object formatted =
        py::reinterpret_steal<py::object>(PyObject_Format(object.ptr(), py::str("f").ptr()));
    if (!formatted) throw py::error_already_set();
    const std::string text = py::str(formatted);
    std::size_t i = text[0] == '-' ? 1 : 0;
    const std::size_t point = text.find('.');
    if (text.find_first_not_of("0123456789.", i) != std::string::npos)
        value_error(std::string(what) + ": the Decimal " + text + " has no NUMBER value");
    const std::size_t integer_end = point == std::string::npos ? text.size() : point;
    while (i < integer_end && text[i] == '0') ++i;
    const int32_t scale = point == std::string::npos ? 0 : int32_t(text.size() - point - 1);
    const int32_t digits = int32_t(integer_end - i) + scale;
    if (digits > QV_PRECISE_MAX_PRECISION || scale > QV_PRECISE_MAX_PRECISION)
        value_error(std::string(what) + ": the Decimal " + text + " has more than 77 digits");
    FreeValue_L(value);
    NewPrecise_L(value, std::max(digits, 1), scale);
    if (StringToPrecise_L(value, text.c_str()) != 0)
        value_error(std::string(what) + ": the Decimal " + text + " does not read as a NUMBER");
}

void set_big_integer(py::handle object, QV_VALUE_T *value, const char *what) {
    const std::string text = py::str(object);
    const std::size_t digits = text.size() - (text[0] == '-');
    if (digits > QV_PRECISE_MAX_PRECISION)
        value_error(std::string(what) + ": the integer " + text + " has more than 77 digits");
    FreeValue_L(value);
    NewPrecise_L(value, int32_t(digits), 0);
    StringToPrecise_L(value, text.c_str());
}

// hours x 100 + minutes, signed, from a tzinfo's offset; 0 offset when it gives none.
int16_t zone_of(py::handle offset, const char *what) {
    if (offset.is_none()) return 0;
    const int64_t seconds = int64_t(PyDateTime_DELTA_GET_DAYS(offset.ptr())) * 86400 +
                            PyDateTime_DELTA_GET_SECONDS(offset.ptr());
    if (seconds % 60 != 0 || PyDateTime_DELTA_GET_MICROSECONDS(offset.ptr()) != 0)
        value_error(std::string(what) + ": a time zone offset must be whole minutes");
    const int64_t minutes = std::llabs(seconds / 60);
    return int16_t((seconds < 0 ? -1 : 1) * (minutes / 60 * 100 + minutes % 60));
}

void set_date(QV_VALUE_T *value, uint32_t type, const QV_DATE_T &date) {
    SetDateValue_L(value, type, &date);
}

void set_datetime(py::handle object, QV_VALUE_T *value, const char *what) {
    PyObject *o = object.ptr();
    QV_DATE_T date{};
    date.year = int16_t(PyDateTime_GET_YEAR(o));
    date.month = uint8_t(PyDateTime_GET_MONTH(o));
    date.day = uint8_t(PyDateTime_GET_DAY(o));
    uint32_t type = QV_TYPE_DATE;
    if (PyDateTime_Check(o)) {
        date.hour = uint8_t(PyDateTime_DATE_GET_HOUR(o));
        date.minute = uint8_t(PyDateTime_DATE_GET_MINUTE(o));
        date.second = uint8_t(PyDateTime_DATE_GET_SECOND(o));
        date.fraction = PyDateTime_DATE_GET_MICROSECOND(o) * 1000;
        if (!PyDateTime_CheckExact(o) && py::hasattr(object, "nanosecond")) // pandas.Timestamp
            date.fraction += object.attr("nanosecond").cast<int32_t>();
        if (PyDateTime_DATE_GET_TZINFO(o) != Py_None) {
            type = QV_TYPE_DATE_TZ;
            date.zone = zone_of(object.attr("utcoffset")(), what);
        }
    }
    set_date(value, type, date);
}

void set_time(py::handle object, QV_VALUE_T *value, const char *what) {
    PyObject *o = object.ptr();
    QV_DATE_T date{};
    date.hour = uint8_t(PyDateTime_TIME_GET_HOUR(o));
    date.minute = uint8_t(PyDateTime_TIME_GET_MINUTE(o));
    date.second = uint8_t(PyDateTime_TIME_GET_SECOND(o));
    date.fraction = PyDateTime_TIME_GET_MICROSECOND(o) * 1000;
    uint32_t type = QV_TYPE_TIME;
    if (PyDateTime_TIME_GET_TZINFO(o) != Py_None) {
        py::object offset = object.attr("utcoffset")();
        if (!offset.is_none()) {
            type = QV_TYPE_TIME_TZ;
            date.zone = zone_of(offset, what);
        }
    }
    set_date(value, type, date);
}

void set_interval(QV_VALUE_T *value, int128 microseconds) {
    QV_INTERVAL_DS_T interval{};
    interval.negative = microseconds < 0;
    int128 magnitude = microseconds < 0 ? -microseconds : microseconds;
    const int128 day = int128(86400) * 1000000;
    interval.days = uint32_t(magnitude / day);
    int64_t rest = int64_t(magnitude % day);
    interval.fraction = uint32_t(rest % 1000000) * 1000;
    rest /= 1000000;
    interval.seconds = uint32_t(rest % 60);
    interval.minutes = uint32_t(rest / 60 % 60);
    interval.hours = uint32_t(rest / 3600);
    FreeValue_L(value);
    SetValueType_L(value, QV_TYPE_INTERVAL_DS);
    value->payload.interval_ds = interval;
    value->is_null = 0;
}

void set_timedelta(py::handle object, QV_VALUE_T *value) {
    PyObject *o = object.ptr();
    set_interval(value,
                 (int128(PyDateTime_DELTA_GET_DAYS(o)) * 86400 + PyDateTime_DELTA_GET_SECONDS(o)) *
                         1000000 +
                     PyDateTime_DELTA_GET_MICROSECONDS(o));
}

void set_interval_ym(py::handle object, QV_VALUE_T *value) {
    const int64_t months = object.attr("total_months").cast<int64_t>();
    QV_INTERVAL_YM_T interval{};
    interval.negative = months < 0;
    const uint64_t magnitude = months < 0 ? 0 - uint64_t(months) : uint64_t(months);
    if (magnitude / 12 > UINT32_MAX) value_error("an IntervalYM of more than 2**32 years");
    interval.years = uint32_t(magnitude / 12);
    interval.months = uint32_t(magnitude % 12);
    FreeValue_L(value);
    SetValueType_L(value, QV_TYPE_INTERVAL_YM);
    value->payload.interval_ym = interval;
    value->is_null = 0;
}

void set_text(py::handle object, QV_VALUE_T *value, const char *what) {
    std::string scratch;
    Py_ssize_t length = 0;
    const char *text = utf8_of(object.ptr(), &length, scratch);
    if (std::strlen(text) != std::size_t(length))
        value_error(std::string(what) + ": a text holding a NUL character");
    SetTextValue_L(value, text, nullptr);
    value->descriptor.precision = text_length(std::size_t(PyUnicode_GET_LENGTH(object.ptr())));
}

void set_bytes(py::handle object, QV_VALUE_T *value, const char *what) {
    py::buffer_info buffer = py::buffer(py::reinterpret_borrow<py::object>(object)).request();
    const std::size_t size = std::size_t(buffer.size * buffer.itemsize);
    if (size > UINT32_MAX) value_error(std::string(what) + ": more than 4 GiB of bytes");
    SetBinaryValue_L(value, buffer.ptr, uint32_t(size));
}

void set_array(py::handle object, QV_VALUE_T *value, const char *what) {
    py::sequence items = py::reinterpret_borrow<py::sequence>(object);
    const std::size_t count = items.size();
    FreeValue_L(value);
    if (ModifyArray_L(value, int64_t(count)) != 0)
        value_error(std::string(what) + ": too many elements for an ARRAY");
    value->is_null = 0;
    for (std::size_t i = 0; i < count; ++i)
        to_value(items[i], ArrayValueItem_L(value, int64_t(i)), what);
}

void set_typed(py::handle object, QV_VALUE_T *value, const char *what) {
    bool open_number = false;
    const std::string declared = py::str(object.attr("type"));
    const QV_DATATYPE_T type = parse_type(declared, &open_number, what);
    QV_VALUE_T given{};
    to_value(object.attr("value"), &given, what);
    FreeValue_L(value);
    SetValue_L(value, &type);
    if (open_number) value->descriptor.precision = value->descriptor.scale = 0;
    value->is_null = 1;
    const int32_t result = given.descriptor.type == 0 && given.is_null
                               ? QV_CONVERT_OK
                               : ConvertValue_L(value, &given, 0, 0);
    const bool lost = !given.is_null && value->is_null;
    FreeValue_L(&given);
    if (result == QV_CONVERT_TRUNCATED)
        value_error(std::string(what) + ": the text is longer than " + declared);
    if (result == QV_CONVERT_TOO_LONG)
        value_error(std::string(what) + ": does not fit " + declared);
    if (lost)
        value_error(std::string(what) + ": " + std::string(py::repr(object.attr("value"))) +
                    " does not read as " + declared);
}

bool is_numpy_scalar(py::handle object) {
    PyTypeObject *type = Py_TYPE(object.ptr());
    py::object module = py::getattr(reinterpret_cast<PyObject *>(type), "__module__", py::none());
    return !module.is_none() && std::string(py::str(module)) == "numpy";
}

// ---- Out of values -----------------------------------------------------------------------

py::object timezone_of(int16_t zone) {
    const int minutes = (zone < 0 ? -1 : 1) * (std::abs(zone) / 100 * 60 + std::abs(zone) % 100);
    auto found = zones.find(minutes);
    if (found != zones.end()) return found->second;
    py::object offset = py::reinterpret_steal<py::object>(PyDelta_FromDSU(0, minutes * 60, 0));
    py::object zone_object = py::reinterpret_steal<py::object>(PyTimeZone_FromOffset(offset.ptr()));
    if (!zone_object) throw py::error_already_set();
    zones.emplace(minutes, zone_object);
    return zone_object;
}

py::object number_object(const QV_VALUE_T &value) {
    char text[QV_PRECISE_MAX_PRECISION + 8];
    if (PreciseToSizedString_L(&value, text, sizeof text, nullptr) < 0)
        throw py::value_error("a NUMBER value that is not valid");
    // The text drops trailing decimal zeros; the Decimal keeps the value's scale.
    std::string digits = text;
    const int32_t scale = value.descriptor.scale;
    if (scale > 0) {
        std::size_t point = digits.find('.');
        if (point == std::string::npos) {
            digits += '.';
            point = digits.size() - 1;
        }
        digits.append(std::size_t(scale) - (digits.size() - point - 1), '0');
    }
    return decimal_type(digits);
}

py::object interval_object(const QV_INTERVAL_DS_T &interval) {
    const int sign = interval.negative ? -1 : 1;
    PyObject *delta = PyDelta_FromDSU(
        sign * int(interval.days),
        sign * int(interval.hours * 3600 + interval.minutes * 60 + interval.seconds),
        sign * int(interval.fraction / 1000));
    if (delta == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::object>(delta);
}

py::object text_object(const QV_VALUE_T &value) {
    const QV_STRING_T &string = value.payload.string;
    const bool utf8 = string.encoding == nullptr || string.encoding == UTF8Encoding_L() ||
                      string.encoding == ASCIIEncoding_L();
    if (utf8 && (value.descriptor.extra & QV_VALUE_IN_FILE) == 0) {
        const char *text = string.text != nullptr ? string.text : "";
        return py::reinterpret_steal<py::object>(str_from_utf8(text, std::strlen(text)));
    }
    char *text = ValueToChar_L(&value);
    if (text == nullptr) return py::none();
    py::object result = py::reinterpret_steal<py::object>(str_from_utf8(text, std::strlen(text)));
    std::free(text);
    return result;
}

py::object bytes_object(const QV_VALUE_T &value) {
    if ((value.descriptor.extra & QV_VALUE_IN_FILE) == 0)
        return py::bytes(reinterpret_cast<const char *>(value.payload.binary.bytes),
                         value.payload.binary.bytes ? value.payload.binary.length : 0);
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    ValueToBinary_L(&value, &bytes, &length);
    py::bytes result(reinterpret_cast<const char *>(bytes), bytes ? length : 0);
    std::free(bytes);
    return result;
}

} // namespace

// ---- Shared helpers ---------------------------------------------------------------------------

int32_t text_length(std::size_t characters) {
    return int32_t(std::clamp<std::size_t>(characters, 1, INT32_MAX));
}

const char *utf8_of(PyObject *text, Py_ssize_t *length, std::string &scratch) {
    const char *utf8 = PyUnicode_AsUTF8AndSize(text, length);
    if (utf8 != nullptr) return utf8;
    PyErr_Clear(); // lone surrogates: the bytes "surrogateescape" decoded them from
    py::object bytes = py::reinterpret_steal<py::object>(
        PyUnicode_AsEncodedString(text, "utf-8", "surrogateescape"));
    if (!bytes) throw py::error_already_set();
    scratch.assign(PyBytes_AS_STRING(bytes.ptr()), std::size_t(PyBytes_GET_SIZE(bytes.ptr())));
    *length = Py_ssize_t(scratch.size());
    return scratch.c_str();
}

PyObject *str_from_utf8(const char *text, std::size_t length) {
    PyObject *result = PyUnicode_DecodeUTF8(text, Py_ssize_t(length), "surrogateescape");
    if (result == nullptr) throw py::error_already_set();
    return result;
}

bool is_missing(py::handle object) {
    if (object.is_none()) return true;
    if (PyFloat_Check(object.ptr())) return std::isnan(PyFloat_AS_DOUBLE(object.ptr()));
    const std::string_view name = Py_TYPE(object.ptr())->tp_name;
    return name.ends_with("NAType") || name.ends_with("NaTType");
}

Kind kind_of(py::handle object) {
    PyObject *o = object.ptr();
    if (is_missing(object)) return Kind::Missing;
    if (PyUnicode_Check(o)) return Kind::Text;
    if (PyBool_Check(o)) return Kind::Boolean;
    if (PyLong_Check(o)) return Kind::Integer;
    if (PyFloat_Check(o)) return Kind::Float;
    if (py::isinstance(object, decimal_type)) return Kind::Decimal;
    if (PyDateTime_Check(o))
        return PyDateTime_DATE_GET_TZINFO(o) != Py_None ? Kind::DateTimeZoned : Kind::DateTime;
    if (PyDate_Check(o)) return Kind::Date;
    if (PyTime_Check(o))
        return PyDateTime_TIME_GET_TZINFO(o) != Py_None ? Kind::TimeZoned : Kind::Time;
    if (PyDelta_Check(o)) return Kind::Delta;
    if (PyBytes_Check(o) || PyByteArray_Check(o) || PyMemoryView_Check(o)) return Kind::Bytes;
    if (py::isinstance(object, interval_ym_type)) return Kind::IntervalYM;
    if (py::isinstance(object, typed_type)) return Kind::Typed;
    if (PyList_Check(o) || PyTuple_Check(o)) return Kind::Array;
    return Kind::Other;
}

const char *kind_name(Kind kind) {
    static const char *const names[] = {
        "missing",        "str",   "bool", "int",        "float",     "Decimal", "datetime",
        "aware datetime", "date",  "time", "aware time", "timedelta", "bytes",   "IntervalYM",
        "list",           "Typed", "other"};
    return names[static_cast<int>(kind)];
}

void number_digits(py::handle object, int32_t *integer_digits, int32_t *scale) {
    std::string text;
    if (PyLong_Check(object.ptr())) {
        text = py::str(object);
    } else {
        py::object formatted =
            py::reinterpret_steal<py::object>(PyObject_Format(object.ptr(), py::str("f").ptr()));
        if (!formatted) throw py::error_already_set();
        text = py::str(formatted);
    }
    std::size_t i = text[0] == '-' ? 1 : 0;
    const std::size_t point = std::min(text.find('.'), text.size());
    while (i < point && text[i] == '0') ++i;
    *integer_digits = int32_t(point - i);
    *scale = point < text.size() ? int32_t(text.size() - point - 1) : 0;
}

std::string type_text(const QV_DATATYPE_T &type) {
    if (type.type == 0) return "";
    char *text = DisplayDataType_L(&type, 1);
    std::string result = text != nullptr ? text : "";
    std::free(text);
    return result;
}

QV_DATATYPE_T parse_type(const std::string &text, bool *open_number, const char *what) {
    QV_DATATYPE_T type{};
    const int32_t code = ParseVariableType_L(text.c_str(), &type);
    const uint32_t named = code == QV_PARSE_TYPE_SIZE_MISSING ? DataType_L(text.c_str()) : 0;
    *open_number = named == QV_TYPE_NUMBER;
    if (*open_number)
        SetDataType_L(&type, QV_TYPE_NUMBER, QV_PRECISE_MAX_PRECISION, 0);
    else if (named == QV_TYPE_CHAR)
        SetDataType_L(&type, QV_TYPE_CHAR, 0, 0); // any length
    else if (code != QV_PARSE_TYPE_OK || type.type == 0)
        value_error(std::string(what) + ": '" + text + "' is not a data type" +
                    (code == QV_PARSE_TYPE_SIZE_MISSING ? " (it needs a size)" : ""));
    return type;
}

py::object make_datetime(const QV_DATE_T &date, bool zoned) {
    if (date.year < 1 || date.year > 9999) {
        char text[64];
        std::snprintf(text, sizeof text, "%+05d-%02d-%02d", date.year, date.month, date.day);
        value_error(std::string("the date ") + text +
                    " is outside the years 1 to 9999 of Python's datetime");
    }
    py::object zone = zoned ? timezone_of(date.zone) : py::none();
    PyObject *result = PyDateTimeAPI->DateTime_FromDateAndTime(
        date.year, date.month, date.day, date.hour, date.minute, date.second, date.fraction / 1000,
        zone.ptr(), PyDateTimeAPI->DateTimeType);
    if (result == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::object>(result);
}

py::object make_time(const QV_DATE_T &date, bool zoned) {
    py::object zone = zoned ? timezone_of(date.zone) : py::none();
    PyObject *result =
        PyDateTimeAPI->Time_FromTime(date.hour, date.minute, date.second, date.fraction / 1000,
                                     zone.ptr(), PyDateTimeAPI->TimeType);
    if (result == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::object>(result);
}

void to_value(py::handle object, QV_VALUE_T *value, const char *what) {
    PyObject *o = object.ptr();
    if (object.is_none() || (!PyFloat_Check(o) && is_missing(object))) {
        FreeValue_L(value);
        SetValueType_L(value, 0);
        value->is_null = 1;
    } else if (PyBool_Check(o)) {
        SetBooleanValue_L(value, o == Py_True);
    } else if (PyLong_Check(o)) {
        int overflow = 0;
        const long long integer = PyLong_AsLongLongAndOverflow(o, &overflow);
        if (overflow != 0)
            set_big_integer(object, value, what);
        else
            SetIntegerValue_L(value, integer);
    } else if (PyFloat_Check(o)) {
        SetFloatValue_L(value, PyFloat_AS_DOUBLE(o));
    } else if (PyUnicode_Check(o)) {
        set_text(object, value, what);
    } else if (py::isinstance(object, decimal_type)) {
        set_decimal(object, value, what);
    } else if (PyDate_Check(o)) { // datetime.datetime is a date too
        set_datetime(object, value, what);
    } else if (PyTime_Check(o)) {
        set_time(object, value, what);
    } else if (PyDelta_Check(o)) {
        set_timedelta(object, value);
    } else if (PyBytes_Check(o) || PyByteArray_Check(o) || PyMemoryView_Check(o)) {
        set_bytes(object, value, what);
    } else if (py::isinstance(object, interval_ym_type)) {
        set_interval_ym(object, value);
    } else if (py::isinstance(object, typed_type)) {
        set_typed(object, value, what);
    } else if (PyList_Check(o) || PyTuple_Check(o)) {
        set_array(object, value, what);
    } else if (is_numpy_scalar(object)) {
        const std::string kind = py::str(object.attr("dtype").attr("kind"));
        if (kind == "M" || kind == "m") // datetime64, timedelta64: through microseconds
            to_value(object.attr("astype")(kind == "M" ? "datetime64[us]" : "timedelta64[us]")
                         .attr("item")(),
                     value, what);
        else
            to_value(object.attr("item")(), value, what);
    } else {
        throw py::type_error(std::string(what) + ": a " + Py_TYPE(o)->tp_name +
                             " has no value in the expression language");
    }
}

py::object to_python(const QV_VALUE_T &value) {
    if (value.is_null) return py::none();
    switch (value.descriptor.type) {
        case QV_TYPE_CHAR:
        case QV_TYPE_CLOB: return text_object(value);
        case QV_TYPE_INTEGER: return py::int_(value.payload.integer);
        case QV_TYPE_FLOAT: return py::float_(value.payload.real);
        case QV_TYPE_BOOLEAN: return py::bool_(value.payload.boolean != 0);
        case QV_TYPE_NUMBER: return number_object(value);
        case QV_TYPE_BINARY:
        case QV_TYPE_BLOB: return bytes_object(value);
        case QV_TYPE_DATE:
        case QV_TYPE_DATE_TZ:
            return make_datetime(value.payload.date, value.descriptor.type == QV_TYPE_DATE_TZ);
        case QV_TYPE_TIME:
        case QV_TYPE_TIME_TZ:
            return make_time(value.payload.date, value.descriptor.type == QV_TYPE_TIME_TZ);
        case QV_TYPE_INTERVAL_DS: return interval_object(value.payload.interval_ds);
        case QV_TYPE_INTERVAL_YM: {
            const QV_INTERVAL_YM_T &i = value.payload.interval_ym;
            const int64_t months = int64_t(i.years) * 12 + i.months;
            return interval_ym_type(0, i.negative ? -months : months);
        }
        case QV_TYPE_ARRAY: {
            const int64_t count = ArrayValueCount_L(&value);
            py::list items(count);
            for (int64_t n = 0; n < count; ++n)
                items[std::size_t(n)] = to_python(*ArrayValueItem_L(&value, n));
            return items;
        }
        default: {
            char *name = DataTypeName_L(value.descriptor.type);
            std::string text =
                std::string("a value of type ") + (name ? name : "UNKNOWN") + " has no Python form";
            std::free(name);
            throw py::type_error(text);
        }
    }
}

void initialise_conversions() {
    PyDateTime_IMPORT;
    if (PyDateTimeAPI == nullptr) throw py::error_already_set();
    decimal_type = py::module_::import("decimal").attr("Decimal");
    py::module_ values = py::module_::import("qvcommon.values");
    interval_ym_type = values.attr("IntervalYM");
    typed_type = values.attr("Typed");
    // The cached objects go with the interpreter, not with the process.
    py::module_::import("atexit").attr("register")(py::cpp_function([] {
        zones.clear();
        decimal_type = interval_ym_type = typed_type = py::object();
    }));
}

} // namespace qvpy
