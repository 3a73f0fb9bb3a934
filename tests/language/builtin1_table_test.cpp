// The rows of the first half of the built-in table as the language lays them out: usage
// text, number, category, counts, result mask and argument masks, in table order; the
// types the handlers describe.
#include <cstring>
#include <string>
#include <vector>

#include "builtin1_adapter.hpp"

namespace {

struct Row {
    const char *name;
    const char *usage;
    int32_t number;
    int32_t category;
    uint32_t min, max;
    uint32_t result;
    std::vector<uint32_t> masks;
    bool repeat;
};

constexpr uint32_t N = 134, S = 1025, ANY = 130975, ANB = 130719, MANY = 0xFFFFFFFFu;

// The language's own table, numbers as it writes them.
const Row rows[] = {
    {"Abs", "Abs( number )", 2001, 1, 1, 1, N, {N}, false},
    {"Band", "Band( number, min, grain )", 2003, 1, 3, 3, 2, {N, N, N}, false},
    {"Ceil", "Ceil( number )", 2004, 1, 1, 1, 2, {N}, false},
    {"Char", "Char( number )", 2005, 2, 1, 1, 2, {N}, false},
    {"Choose",
     "Choose( index, outcome1 [, outcome2 ... ] )",
     2006,
     4,
     2,
     MANY,
     ANB,
     {N, ANY},
     true},
    {"Collapse", "Collapse( string )", 2015, 2, 1, 1, 1, {S}, false},
    {"Concat", "Concat( value [, value ... ] )", 2007, 2, 1, MANY, 1, {ANY}, true},
    {"ConcatSep", "ConcatSep( string, value [, value ... ] )", 2008, 2, 2, MANY, 1, {S, ANY}, true},
    {"Cos", "Cos( number )", 2009, 1, 1, 1, 4, {N}, false},
    {"CountStr", "CountStr( string, string )", 2010, 2, 2, 2, 1, {S, S}, false},
    {"Checksum", "Checksum( value [, value ... ] )", 2011, 2, 1, MANY, 2, {ANY}, true},
    {"Delay", "Delay( seconds )", 2014, 9, 1, 1, 16, {N}, false},
    {"Exit", "Exit( code )", 1001, 9, 0, 1, 16, {151}, false},
    {"ExtractStr", "ExtractStr( string, number [,string] )", 2016, 2, 2, 3, 1, {S, N, S}, false},
    {"Exp", "Exp( number )", 2017, 1, 1, 1, 4, {N}, false},
    {"Floor", "Floor( number )", 2028, 1, 1, 1, 2, {N}, false},
    {"If", "If( value, TRUE outcome, FALSE outcome )", 2029, 4, 3, 3, 0, {ANY, ANY, ANY}, false},
    {"IfNull", "IfNull( value, NULL outcome )", 2030, 4, 2, 2, 0, {ANY, ANY}, false},
    {"Initcap", "InitCap( string )", 2031, 2, 1, 1, 1, {S}, false},
    {"InStr",
     "InStr( string, string [, number [, number]] )",
     2032,
     2,
     2,
     4,
     2,
     {S, S, N, N},
     false},
    {"IsAlpha", "IsAlpha( string )", 2033, 2, 1, 1, 16, {S}, false},
    {"IsAlphanumeric", "IsAlphaNumeric( string )", 2034, 2, 1, 1, 16, {S}, false},
    {"IsDigit", "IsDigit( string )", 2035, 2, 1, 1, 16, {S}, false},
    {"IsFloat", "IsFloat( string )", 2036, 2, 1, 1, 16, {S}, false},
    {"IsInteger", "IsInteger( string )", 2037, 2, 1, 1, 16, {S}, false},
    {"IsLower", "IsLower( string )", 2040, 2, 1, 1, 16, {S}, false},
    {"IsNumeric", "IsNumeric( string )", 2041, 2, 1, 1, 16, {S}, false},
    {"IsUpper", "IsUpper( string )", 2042, 2, 1, 1, 16, {S}, false},
    {"Length", "Length( value )", 2044, 2, 1, 1, 2, {ANB}, false},
    {"Left", "Left( value, number )", 2045, 2, 2, 2, 2, {1033, N}, false},
    {"Ln", "Ln( number )", 2046, 1, 1, 1, 4, {N}, false},
    {"Log", "Log( number )", 2047, 1, 1, 1, 4, {N}, false},
    {"LogMsg", "LogMsg( value [, value ... ] )", 2048, 9, 1, MANY, 16, {ANY}, true},
    {"Lower", "Lower( string )", 2049, 2, 1, 1, 1, {S}, false},
    {"LPad", "LPad( string, number [, string] )", 2050, 2, 2, 3, 1, {S, N, 1}, false},
    {"LTrim", "LTrim( string [, string] )", 2051, 2, 1, 2, 1, {S, S}, false},
    {"Mod", "Mod( number, number )", 2052, 1, 2, 2, 2, {N, N}, false},
    {"OpSys", "OpSys()", 2053, 9, 0, 0, 1, {}, false},
    {"Power", "Power( number, number )", 2054, 1, 2, 2, N, {N, N}, false},
    {"Rand", "Rand( min, max, grain [, seed] )", 2055, 1, 3, 4, 4, {N, N, N, N}, false},
    {"Replace", "Replace( string, search [, replace ] )", 2056, 2, 2, 3, 1, {S, S, S}, false},
    {"Right", "Right( string, number )", 2057, 2, 2, 2, 2, {1033, N}, false},
    {"Round", "Round( number [, number] )", 2058, 1, 1, 2, N, {N, N}, false},
    {"RowNum", "RowNum()", 3004, 9, 0, 0, 2, {}, false},
    {"RPad", "RPad( string, number [, string] )", 2059, 2, 2, 3, 1, {S, N, S}, false},
    {"RTrim", "RTrim( string [, string] )", 2060, 2, 1, 2, 1, {S, S}, false},
    {"Sign", "Sign( number )", 2063, 1, 1, 1, 2, {N}, false},
    {"Sin", "Sin( number )", 2064, 1, 1, 1, 4, {N}, false},
    {"Soundex", "Soundex( string )", 2065, 2, 1, 1, 1, {S}, false},
    {"Sqrt", "Sqrt( number )", 2066, 1, 1, 1, N, {N}, false},
    {"Substr", "SubStr( string, from [, count] )", 2067, 2, 2, 3, 1, {S, N, N}, false},
    {"System", "System( command )", 2069, 9, 1, 1, 2, {1}, false},
    {"Tan", "Tan( number )", 2070, 1, 1, 1, 4, {N}, false},
    {"ToChar", "ToChar( value [, date format] )", 2071, 5, 1, 2, 1, {ANY, 1}, false},
    {"ToDouble", "ToDouble( value [, scale] )", 2073, 5, 1, 2, 4, {ANY, N}, false},
    {"ToInteger", "ToInteger( value )", 2074, 5, 1, 1, 2, {ANY}, false},
    {"Translate", "Translate( string, old [, new] )", 2075, 2, 2, 3, 1, {S, S, S}, false},
    {"Trim", "Trim( string [, string] )", 2076, 2, 1, 2, 1, {S, S}, false},
    {"Trunc", "Trunc( number [, number] )", 2077, 1, 1, 2, N, {N, N}, false},
    {"Upper", "Upper( string )", 2078, 2, 1, 1, 1, {S}, false},
    {"ArrayClear", "ArrayClear( array )", 2079, 9, 1, 1, 2, {256}, false},
    {"ArraySize", "ArraySize( array )", 2080, 9, 1, 1, 2, {256}, false},
    {"ArrayItem", "ArrayItem( array, index )", 2081, 9, 2, 2, 0, {256, 2}, false},
    {"VariableInfo", "VariableInfo( variable, string )", 2082, 9, 2, 2, 3, {ANY, 1}, false},
    {"ArrayDeleteItem", "ArrayDeleteItem( array, index )", 2083, 9, 2, 2, 2, {256, 2}, false},
    {"I18NString", "I18NString( string, encoding )", 2084, 2, 1, 2, 1, {S, 1}, false},
    {"I18NConvert", "I18NConvert( string, encoding )", 2085, 2, 1, 2, 1, {S, 1}, false},
    {"ToNumber", "ToNumber( value, precision, scale )", 2086, 5, 3, 3, 128, {ANY, N, N}, false},
    {"ArrayAddItem", "ArrayAddItem( array, value )", 2091, 9, 2, 2, 2, {256, ANY}, false},
    {"ArraySearch", "ArraySearch( array, value, sorted )", 2092, 9, 2, 3, 2, {256, ANB, 16}, false},
    {"ArraySort", "ArraySort( array )", 2093, 9, 1, 1, 2, {256}, false},
    {"ToHex", "ToHex( value )", 2094, 5, 1, 1, 1, {ANY}, false},
    {"ArrayModifyItem",
     "ArrayModifyItem( array, index, value )",
     2096,
     9,
     3,
     3,
     2,
     {256, 2, ANY},
     false},
    {"UUID", "UUID()", 3006, 9, 0, 0, 1, {}, false},
};

TEST(BuiltInRows, TheFirstHalfIsLaidOutInTableOrder) {
    std::vector<const ExpFunction *> table;
    for (const ExpFunction *row = Get_BuiltInFns_L(); row->name != nullptr; ++row)
        table.push_back(row);
    // The rows of this half appear in this order (the other half's rows may stand between).
    std::size_t at = 0;
    for (const Row &want : rows) {
        SCOPED_TRACE(want.name);
        while (at < table.size() && std::strcmp(table[at]->name, want.name) != 0) ++at;
        ASSERT_LT(at, table.size()) << "missing or out of order";
        const ExpFunction &got = *table[at];
        EXPECT_STREQ(got.usage, want.usage);
        EXPECT_EQ(got.number, want.number);
        EXPECT_EQ(got.category, want.category);
        EXPECT_EQ(got.min_args, want.min);
        EXPECT_EQ(got.max_args, want.max);
        EXPECT_EQ(got.result_type, want.result);
        EXPECT_EQ(got.repeat != 0, want.repeat);
        for (std::size_t i = 0; i < QV_MAX_ARGUMENTS; ++i)
            EXPECT_EQ(got.arg_types[i], i < want.masks.size() ? want.masks[i] : 0u) << i + 1;
    }
}

// Described with typed NULL arguments of the first type of each mask, every handler sets a
// type within its row's result mask, except the rows whose value is typed by an argument
// (mask 0) and the four whose rows and values disagree on purpose.
TEST(BuiltInRows, DescribedTypesFallWithinTheResultMasks) {
    const std::vector<std::string> differ = {"Char", "CountStr", "Left", "Right"};
    for (const Row &want : rows) {
        if (want.result == 0 || std::string(want.name) == "Exit") continue;
        SCOPED_TRACE(want.name);
        const ExpFunction *row = Get_BuiltInFns_L();
        while (std::strcmp(row->name, want.name) != 0) ++row;
        std::vector<qvtest::builtin1::Owned> arguments(want.masks.size());
        std::vector<QV_VALUE_T *> pointers;
        for (std::size_t i = 0; i < want.masks.size(); ++i) {
            const uint32_t mask = want.masks[i];
            SetValueType_L(&arguments[i].value, mask & -mask); // its lowest type
            FreeValue_L(&arguments[i].value);
            pointers.push_back(&arguments[i].value);
        }
        qvtest::builtin1::Owned result;
        EXP_CALL_FRAME_T frame{row,
                               static_cast<int32_t>(pointers.size()),
                               pointers.data(),
                               QV_MODE_DESCRIBE,
                               nullptr,
                               nullptr};
        ASSERT_EQ(CallFunction_L(&result.value, &frame), 0);
        const uint32_t type = result.value.descriptor.type;
        EXPECT_NE(type, 0u);
        const bool inside = (type & want.result) == type;
        EXPECT_EQ(inside, std::find(differ.begin(), differ.end(), want.name) == differ.end())
            << type;
    }
}

} // namespace
