// builtin_table.cpp - the built-in table, the dummy table and the Exit handlers (module
// "builtin").
//
// The built-in table is one constant array of function records in the order the language
// lays them out (alphabetical by name as first laid out, later additions at the end), ended
// by a record whose name is null. Each row is written with qv::rows (builtin_rows.hpp),
// which checks at compile time that counts, masks and the handler's form agree; the handlers
// live in the files of their families and are declared in qv/builtin.h. The tables are made
// on first use and never change.
#define QV_MODULE "builtin"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <span>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "language/builtin.hpp"
#include "language/builtin_rows.hpp"
#include "qv/builtin.h"
#include "qv/dataval.h"
#include "qv/encoding.h"
#include "qv/precise.h"

static_assert(QV_MASK_NUMBER == 134 && QV_MASK_STRING == 1025 && QV_MASK_DATE == 65544 &&
              QV_MASK_ANY == 130975 && QV_MASK_ANY_BUT_ARRAY == 130719);

namespace {

using qv::rows::form_a;

using qv::rows::form_b;

constexpr uint32_t kNumber = QV_MASK_NUMBER;
constexpr uint32_t kString = QV_MASK_STRING;
constexpr uint32_t kAny = QV_MASK_ANY;
constexpr uint32_t kAnyButArray = QV_MASK_ANY_BUT_ARRAY;
constexpr uint32_t kMany = QV_UNLIMITED_ARGUMENTS;
// Exit takes CHAR, INTEGER, FLOAT, BOOLEAN or NUMBER: 151.
constexpr uint32_t exit_code_types =
    QV_TYPE_CHAR | QV_TYPE_INTEGER | QV_TYPE_FLOAT | QV_TYPE_BOOLEAN | QV_TYPE_NUMBER;
static_assert(exit_code_types == 151);
// Left and Right take CHAR, DATE or CLOB: 1033.
constexpr uint32_t kTextOrDate = QV_TYPE_CHAR | QV_TYPE_DATE | QV_TYPE_CLOB;
static_assert(kTextOrDate == 1033);
// VariableInfo gives CHAR or INTEGER: 3.
constexpr uint32_t kCharOrInteger = QV_TYPE_CHAR | QV_TYPE_INTEGER;

// The rows in table order. The masks are the language's own and the parser checks calls
// against them; where a handler's result differs from its row's result mask, the handler's
// type is the one the value has, and the row says why. The rows of the date, time, file
// and mail functions take their places between these.
std::span<const ExpFunction> builtin_rows() {
    static const ExpFunction table[] = {
        form_a<1, 1>("Abs", "Abs( number )", 2001, QV_CATEGORY_NUMERIC, kNumber, {kNumber}, BI_abs),
        form_a<3, 3>("Band", "Band( number, min, grain )", 2003, QV_CATEGORY_NUMERIC,
                     QV_TYPE_INTEGER, {kNumber, kNumber, kNumber}, BI_band),
        form_a<1, 1>("Ceil", "Ceil( number )", 2004, QV_CATEGORY_NUMERIC, QV_TYPE_INTEGER,
                     {kNumber}, BI_ceil),
        // The row says INTEGER; the value is the CHAR of the code point.
        form_a<1, 1>("Char", "Char( number )", 2005, QV_CATEGORY_STRING, QV_TYPE_INTEGER, {kNumber},
                     BI_char),
        form_b<2, kMany>("Choose", "Choose( index, outcome1 [, outcome2 ... ] )", 2006,
                         QV_CATEGORY_CONDITIONAL, kAnyButArray, {kNumber, kAny}, BI_choose),
        form_a<1, 1>("Collapse", "Collapse( string )", 2015, QV_CATEGORY_STRING, QV_TYPE_CHAR,
                     {kString}, BI_collapse),
        form_b<1, kMany>("Concat", "Concat( value [, value ... ] )", 2007, QV_CATEGORY_STRING,
                         QV_TYPE_CHAR, {kAny}, BI_concat),
        form_b<2, kMany>("ConcatSep", "ConcatSep( string, value [, value ... ] )", 2008,
                         QV_CATEGORY_STRING, QV_TYPE_CHAR, {kString, kAny}, BI_concat_sep),
        form_a<1, 1>("Cos", "Cos( number )", 2009, QV_CATEGORY_NUMERIC, QV_TYPE_FLOAT, {kNumber},
                     BI_cos),
        // The row says CHAR; the value is the INTEGER count.
        form_a<2, 2>("CountStr", "CountStr( string, string )", 2010, QV_CATEGORY_STRING,
                     QV_TYPE_CHAR, {kString, kString}, BI_count_str),
        form_b<1, kMany>("Checksum", "Checksum( value [, value ... ] )", 2011, QV_CATEGORY_STRING,
                         QV_TYPE_INTEGER, {kAny}, BI_checksum),
        form_a<1, 1>("Delay", "Delay( seconds )", 2014, QV_CATEGORY_MISCELLANEOUS, QV_TYPE_BOOLEAN,
                     {kNumber}, BI_delay),
        form_a<0, 1>("Exit", "Exit( code )", QV_FUNCTION_EXIT, QV_CATEGORY_MISCELLANEOUS,
                     QV_TYPE_BOOLEAN, {exit_code_types}, BI_exit),
        form_a<2, 3>("ExtractStr", "ExtractStr( string, number [,string] )", 2016,
                     QV_CATEGORY_STRING, QV_TYPE_CHAR, {kString, kNumber, kString}, BI_extract_str),
        form_a<1, 1>("Exp", "Exp( number )", 2017, QV_CATEGORY_NUMERIC, QV_TYPE_FLOAT, {kNumber},
                     BI_exp),
        form_a<1, 1>("Floor", "Floor( number )", 2028, QV_CATEGORY_NUMERIC, QV_TYPE_INTEGER,
                     {kNumber}, BI_floor),
        form_a<3, 3>("If", "If( value, TRUE outcome, FALSE outcome )", 2029,
                     QV_CATEGORY_CONDITIONAL, 0, {kAny, kAny, kAny}, BI_if),
        form_a<2, 2>("IfNull", "IfNull( value, NULL outcome )", 2030, QV_CATEGORY_CONDITIONAL, 0,
                     {kAny, kAny}, BI_if_null),
        form_a<1, 1>("Initcap", "InitCap( string )", 2031, QV_CATEGORY_STRING, QV_TYPE_CHAR,
                     {kString}, BI_initcap),
        form_a<2, 4>("InStr", "InStr( string, string [, number [, number]] )", 2032,
                     QV_CATEGORY_STRING, QV_TYPE_INTEGER, {kString, kString, kNumber, kNumber},
                     BI_in_str),
        form_a<1, 1>("IsAlpha", "IsAlpha( string )", 2033, QV_CATEGORY_STRING, QV_TYPE_BOOLEAN,
                     {kString}, BI_is_alpha),
        form_a<1, 1>("IsAlphanumeric", "IsAlphaNumeric( string )", 2034, QV_CATEGORY_STRING,
                     QV_TYPE_BOOLEAN, {kString}, BI_is_alphanumeric),
        form_a<1, 1>("IsDigit", "IsDigit( string )", 2035, QV_CATEGORY_STRING, QV_TYPE_BOOLEAN,
                     {kString}, BI_is_digit),
        form_a<1, 1>("IsFloat", "IsFloat( string )", 2036, QV_CATEGORY_STRING, QV_TYPE_BOOLEAN,
                     {kString}, BI_is_float),
        form_a<1, 1>("IsInteger", "IsInteger( string )", 2037, QV_CATEGORY_STRING, QV_TYPE_BOOLEAN,
                     {kString}, BI_is_integer),
        form_a<1, 1>("IsLower", "IsLower( string )", 2040, QV_CATEGORY_STRING, QV_TYPE_BOOLEAN,
                     {kString}, BI_is_lower),
        form_a<1, 1>("IsNumeric", "IsNumeric( string )", 2041, QV_CATEGORY_STRING, QV_TYPE_BOOLEAN,
                     {kString}, BI_is_numeric),
        form_a<1, 1>("IsUpper", "IsUpper( string )", 2042, QV_CATEGORY_STRING, QV_TYPE_BOOLEAN,
                     {kString}, BI_is_upper),
        form_a<1, 1>("Length", "Length( value )", 2044, QV_CATEGORY_STRING, QV_TYPE_INTEGER,
                     {kAnyButArray}, BI_length),
        // The row says INTEGER; the value is the CHAR of the first characters.
        form_a<2, 2>("Left", "Left( value, number )", 2045, QV_CATEGORY_STRING, QV_TYPE_INTEGER,
                     {kTextOrDate, kNumber}, BI_left),
        form_a<1, 1>("Ln", "Ln( number )", 2046, QV_CATEGORY_NUMERIC, QV_TYPE_FLOAT, {kNumber},
                     BI_ln),
        form_a<1, 1>("Log", "Log( number )", 2047, QV_CATEGORY_NUMERIC, QV_TYPE_FLOAT, {kNumber},
                     BI_log),
        form_b<1, kMany>("LogMsg", "LogMsg( value [, value ... ] )", 2048,
                         QV_CATEGORY_MISCELLANEOUS, QV_TYPE_BOOLEAN, {kAny}, BI_log_msg),
        form_a<1, 1>("Lower", "Lower( string )", 2049, QV_CATEGORY_STRING, QV_TYPE_CHAR, {kString},
                     BI_lower),
        form_a<2, 3>("LPad", "LPad( string, number [, string] )", 2050, QV_CATEGORY_STRING,
                     QV_TYPE_CHAR, {kString, kNumber, QV_TYPE_CHAR}, BI_lpad),
        form_a<1, 2>("LTrim", "LTrim( string [, string] )", 2051, QV_CATEGORY_STRING, QV_TYPE_CHAR,
                     {kString, kString}, BI_ltrim),
        form_a<2, 2>("Mod", "Mod( number, number )", 2052, QV_CATEGORY_NUMERIC, QV_TYPE_INTEGER,
                     {kNumber, kNumber}, BI_mod),
        form_a("OpSys", "OpSys()", 2053, QV_CATEGORY_MISCELLANEOUS, QV_TYPE_CHAR, BI_op_sys),
        // The value is a FLOAT (pow).
        form_a<2, 2>("Power", "Power( number, number )", 2054, QV_CATEGORY_NUMERIC, kNumber,
                     {kNumber, kNumber}, BI_power),
        form_a<3, 4>("Rand", "Rand( min, max, grain [, seed] )", 2055, QV_CATEGORY_NUMERIC,
                     QV_TYPE_FLOAT, {kNumber, kNumber, kNumber, kNumber}, BI_rand),
        form_a<2, 3>("Replace", "Replace( string, search [, replace ] )", 2056, QV_CATEGORY_STRING,
                     QV_TYPE_CHAR, {kString, kString, kString}, BI_replace),
        // The row says INTEGER; the value is the CHAR of the last characters.
        form_a<2, 2>("Right", "Right( string, number )", 2057, QV_CATEGORY_STRING, QV_TYPE_INTEGER,
                     {kTextOrDate, kNumber}, BI_right),
        // INTEGER, FLOAT and NUMBER each stay themselves; a NUMBER gains a digit for the
        // carry; FLOAT rounds the digits it prints (builtin_numeric.cpp).
        form_a<1, 2>("Round", "Round( number [, number] )", 2058, QV_CATEGORY_NUMERIC, kNumber,
                     {kNumber, kNumber}, BI_round),
        form_a("RowNum", "RowNum()", 3004, QV_CATEGORY_MISCELLANEOUS, QV_TYPE_INTEGER, BI_row_num),
        form_a<2, 3>("RPad", "RPad( string, number [, string] )", 2059, QV_CATEGORY_STRING,
                     QV_TYPE_CHAR, {kString, kNumber, kString}, BI_rpad),
        form_a<1, 2>("RTrim", "RTrim( string [, string] )", 2060, QV_CATEGORY_STRING, QV_TYPE_CHAR,
                     {kString, kString}, BI_rtrim),
        form_a<1, 1>("Sign", "Sign( number )", 2063, QV_CATEGORY_NUMERIC, QV_TYPE_INTEGER,
                     {kNumber}, BI_sign),
        form_a<1, 1>("Sin", "Sin( number )", 2064, QV_CATEGORY_NUMERIC, QV_TYPE_FLOAT, {kNumber},
                     BI_sin),
        form_a<1, 1>("Soundex", "Soundex( string )", 2065, QV_CATEGORY_STRING, QV_TYPE_CHAR,
                     {kString}, BI_soundex),
        // The value is a FLOAT (sqrt).
        form_a<1, 1>("Sqrt", "Sqrt( number )", 2066, QV_CATEGORY_NUMERIC, kNumber, {kNumber},
                     BI_sqrt),
        form_a<2, 3>("Substr", "SubStr( string, from [, count] )", 2067, QV_CATEGORY_STRING,
                     QV_TYPE_CHAR, {kString, kNumber, kNumber}, BI_substr),
        form_a<1, 1>("System", "System( command )", 2069, QV_CATEGORY_MISCELLANEOUS,
                     QV_TYPE_INTEGER, {QV_TYPE_CHAR}, BI_system),
        form_a<1, 1>("Tan", "Tan( number )", 2070, QV_CATEGORY_NUMERIC, QV_TYPE_FLOAT, {kNumber},
                     BI_tan),
        form_a<1, 2>("ToChar", "ToChar( value [, date format] )", 2071, QV_CATEGORY_CONVERSION,
                     QV_TYPE_CHAR, {kAny, QV_TYPE_CHAR}, BI_to_char),
        form_a<1, 2>("ToDouble", "ToDouble( value [, scale] )", 2073, QV_CATEGORY_CONVERSION,
                     QV_TYPE_FLOAT, {kAny, kNumber}, BI_to_double),
        form_a<1, 1>("ToInteger", "ToInteger( value )", 2074, QV_CATEGORY_CONVERSION,
                     QV_TYPE_INTEGER, {kAny}, BI_to_integer),
        form_a<2, 3>("Translate", "Translate( string, old [, new] )", 2075, QV_CATEGORY_STRING,
                     QV_TYPE_CHAR, {kString, kString, kString}, BI_translate),
        form_a<1, 2>("Trim", "Trim( string [, string] )", 2076, QV_CATEGORY_STRING, QV_TYPE_CHAR,
                     {kString, kString}, BI_trim),
        // INTEGER, FLOAT and NUMBER each keep their type (builtin_numeric.cpp).
        form_a<1, 2>("Trunc", "Trunc( number [, number] )", 2077, QV_CATEGORY_NUMERIC, kNumber,
                     {kNumber, kNumber}, BI_trunc),
        form_a<1, 1>("Upper", "Upper( string )", 2078, QV_CATEGORY_STRING, QV_TYPE_CHAR, {kString},
                     BI_upper),
        // The array functions change the array they are handed and give its item count;
        // indexes count from 1; a NULL array is empty (builtin_array.cpp).
        form_a<1, 1>("ArrayClear", "ArrayClear( array )", 2079, QV_CATEGORY_MISCELLANEOUS,
                     QV_TYPE_INTEGER, {QV_TYPE_ARRAY}, BI_array_clear),
        form_a<1, 1>("ArraySize", "ArraySize( array )", 2080, QV_CATEGORY_MISCELLANEOUS,
                     QV_TYPE_INTEGER, {QV_TYPE_ARRAY}, BI_array_size),
        form_a<2, 2>("ArrayItem", "ArrayItem( array, index )", 2081, QV_CATEGORY_MISCELLANEOUS, 0,
                     {QV_TYPE_ARRAY, QV_TYPE_INTEGER}, BI_array_item),
        form_a<2, 2>("VariableInfo", "VariableInfo( variable, string )", 2082,
                     QV_CATEGORY_MISCELLANEOUS, kCharOrInteger, {kAny, QV_TYPE_CHAR},
                     BI_variable_info),
        form_a<2, 2>("ArrayDeleteItem", "ArrayDeleteItem( array, index )", 2083,
                     QV_CATEGORY_MISCELLANEOUS, QV_TYPE_INTEGER, {QV_TYPE_ARRAY, QV_TYPE_INTEGER},
                     BI_array_delete_item),
        form_a<1, 2>("I18NString", "I18NString( string, encoding )", 2084, QV_CATEGORY_STRING,
                     QV_TYPE_CHAR, {kString, QV_TYPE_CHAR}, BI_i18n_string),
        form_a<1, 2>("I18NConvert", "I18NConvert( string, encoding )", 2085, QV_CATEGORY_STRING,
                     QV_TYPE_CHAR, {kString, QV_TYPE_CHAR}, BI_i18n_convert),
        form_a<3, 3>("ToNumber", "ToNumber( value, precision, scale )", 2086,
                     QV_CATEGORY_CONVERSION, QV_TYPE_NUMBER, {kAny, kNumber, kNumber},
                     BI_to_number),
        form_a<2, 2>("ArrayAddItem", "ArrayAddItem( array, value )", 2091,
                     QV_CATEGORY_MISCELLANEOUS, QV_TYPE_INTEGER, {QV_TYPE_ARRAY, kAny},
                     BI_array_add_item),
        form_a<2, 3>("ArraySearch", "ArraySearch( array, value, sorted )", 2092,
                     QV_CATEGORY_MISCELLANEOUS, QV_TYPE_INTEGER,
                     {QV_TYPE_ARRAY, kAnyButArray, QV_TYPE_BOOLEAN}, BI_array_search),
        form_a<1, 1>("ArraySort", "ArraySort( array )", 2093, QV_CATEGORY_MISCELLANEOUS,
                     QV_TYPE_INTEGER, {QV_TYPE_ARRAY}, BI_array_sort),
        // An INTEGER in hexadecimal digits, every other value its bytes (builtin_convert.cpp).
        form_a<1, 1>("ToHex", "ToHex( value )", 2094, QV_CATEGORY_CONVERSION, QV_TYPE_CHAR, {kAny},
                     BI_to_hex),
        form_a<3, 3>("ArrayModifyItem", "ArrayModifyItem( array, index, value )", 2096,
                     QV_CATEGORY_MISCELLANEOUS, QV_TYPE_INTEGER,
                     {QV_TYPE_ARRAY, QV_TYPE_INTEGER, kAny}, BI_array_modify_item),
        form_a("UUID", "UUID()", 3006, QV_CATEGORY_MISCELLANEOUS, QV_TYPE_CHAR, BI_uuid),
        ExpFunction{}, // the terminator
    };
    return table;
}

std::span<const ExpFunction> dummy_rows() {
    static const ExpFunction table[] = {
        form_a<0, 1>("Exit", "Exit( code )", QV_FUNCTION_EXIT, QV_CATEGORY_MISCELLANEOUS,
                     QV_TYPE_BOOLEAN, {QV_MASK_ANY_BUT_ARRAY}, BI_dummy_exit),
        ExpFunction{},
    };
    return table;
}

bool within(std::span<const ExpFunction> table, const ExpFunction *record) {
    std::less<const ExpFunction *> before;
    return !before(record, table.data()) && before(record, table.data() + table.size());
}

int32_t clamped(int64_t code) {
    return static_cast<int32_t>(std::clamp<int64_t>(code, INT32_MIN, INT32_MAX));
}

// The decimal number at the start of a CHAR value's text, as atol reads it.
int32_t code_from_text(const QV_STRING_T &text) {
    if (text.text == nullptr) return 0;
    if (text.encoding == nullptr || text.encoding->ascii_compatible)
        return clamped(std::atol(text.text));
    char *utf8 = nullptr;
    if (ConvertEncoding_L(text.encoding, text.text, -1, UTF8Encoding_L(), &utf8, nullptr) != 0)
        return 0;
    qv::HeapText owned(utf8);
    return owned == nullptr ? 0 : clamped(std::atol(owned.get()));
}

int32_t code_from_number(const QV_VALUE_T &number) {
    int64_t code = 0;
    if (PreciseToInteger_L(&number, &code) == 0) return clamped(code);
    return IsPositivePrecise_L(&number) ? INT32_MAX : INT32_MIN;
}

// The exit code an Exit argument gives.
int32_t exit_code(const QV_VALUE_T *code) {
    if (code == nullptr || code->is_null) return 0;
    switch (code->descriptor.type) {
        case QV_TYPE_INTEGER: return clamped(code->payload.integer);
        case QV_TYPE_FLOAT: {
            double real = code->payload.real;
            if (std::isnan(real)) return 0;
            return static_cast<int32_t>(std::clamp<double>(std::trunc(real), INT32_MIN, INT32_MAX));
        }
        case QV_TYPE_NUMBER: return code_from_number(*code);
        case QV_TYPE_BOOLEAN: return code->payload.boolean != 0;
        case QV_TYPE_CHAR: return code_from_text(code->payload.string);
        default: return 0;
    }
}

// Both Exits: the result is BOOLEAN, and TRUE when evaluating. True when evaluating.
bool exit_result(QV_VALUE_T *result, const EXP_CALL_FRAME_T *frame) {
    SetValueType_L(result, QV_TYPE_BOOLEAN);
    if (frame == nullptr || frame->mode != QV_MODE_EVALUATE) return false;
    result->is_null = 0;
    result->payload.boolean = 1;
    return true;
}

} // namespace

bool qv::is_constant_row(const ExpFunction *record) {
    return within(builtin_rows(), record) || within(dummy_rows(), record);
}

extern "C" {

QV_API const ExpFunction *Get_BuiltInFns_L(void) {
    return builtin_rows().data();
}

QV_API const ExpFunction *Get_DummyBuiltInFns_L(void) {
    return dummy_rows().data();
}

QV_API void BI_exit(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *code) {
    const int32_t status = exit_code(code); // read before the result, which may be the argument
    if (result == nullptr || !exit_result(result, frame)) return;
    except_raise(STATUS_RAISED, QV_MODULE, __LINE__, EXC_RAISE, status, "exit_code");
}

QV_API void BI_dummy_exit(QV_VALUE_T *result, EXP_CALL_FRAME_T *frame, QV_VALUE_T *) {
    if (result != nullptr) exit_result(result, frame);
}

} // extern "C"
