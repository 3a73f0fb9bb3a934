// The whole built-in table against a copy of the language's own table of built-ins: 111
// rows in table order, each with its name, usage line, function number, category, argument
// counts, result mask, argument masks and repeat flag, and a handler.
//
// The copy below is kept as the language lays the table out: name @ usage @ number @
// category @ minimum..maximum ("any": no limit) @ result @ argument masks. A mask is
// "number" (INTEGER, FLOAT or NUMBER), "string" (CHAR or CLOB), "date" (DATE or DATE WITH
// TIME ZONE), "any" (every type but LIST, POINTER, BINARY and BLOB), "any but array", "as
// argument" (0: the value returned decides) or type names joined by '/'; a trailing "..."
// sets the repeat flag.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "qv/builtin.h"
#include "qv/datatype.h"

namespace {

constexpr std::string_view language_table = R"(
Abs @ Abs( number ) @ 2001 @ 1 @ 1..1 @ number @ number
AddToDate @ AddToDate( date, number | interval ) @ 2002 @ 3 @ 2..2 @ date @ date, INTEGER/FLOAT/NUMBER/INTERVAL DAY TO SECOND/INTERVAL YEAR TO MONTH
Band @ Band( number, min, grain ) @ 2003 @ 1 @ 3..3 @ INTEGER @ number, number, number
Ceil @ Ceil( number ) @ 2004 @ 1 @ 1..1 @ INTEGER @ number
Char @ Char( number ) @ 2005 @ 2 @ 1..1 @ INTEGER @ number
Choose @ Choose( index, outcome1 [, outcome2 ... ] ) @ 2006 @ 4 @ 2..any @ any but array @ number, any ...
Collapse @ Collapse( string ) @ 2015 @ 2 @ 1..1 @ CHAR @ string
Concat @ Concat( value [, value ... ] ) @ 2007 @ 2 @ 1..any @ CHAR @ any ...
ConcatSep @ ConcatSep( string, value [, value ... ] ) @ 2008 @ 2 @ 2..any @ CHAR @ string, any ...
Cos @ Cos( number ) @ 2009 @ 1 @ 1..1 @ FLOAT @ number
CountStr @ CountStr( string, string ) @ 2010 @ 2 @ 2..2 @ CHAR @ string, string
Checksum @ Checksum( value [, value ... ] ) @ 2011 @ 2 @ 1..any @ INTEGER @ any ...
DatetimeNow @ DateTimeNow() @ 2068 @ 0 @ 0..0 @ DATE @
DaysBetween @ DaysBetween( date|interval, date|interval ) @ 2013 @ 3 @ 2..2 @ INTEGER @ DATE/INTERVAL DAY TO SECOND/DATE WITH TIME ZONE, DATE/INTERVAL DAY TO SECOND/DATE WITH TIME ZONE
Delay @ Delay( seconds ) @ 2014 @ 9 @ 1..1 @ BOOLEAN @ number
Exit @ Exit( code ) @ 1001 @ 9 @ 0..1 @ BOOLEAN @ CHAR/INTEGER/FLOAT/BOOLEAN/NUMBER
ExtractStr @ ExtractStr( string, number [,string] ) @ 2016 @ 2 @ 2..3 @ CHAR @ string, number, string
Exp @ Exp( number ) @ 2017 @ 1 @ 1..1 @ FLOAT @ number
FileCheck @ FileCheck( filename {, property} ) @ 2018 @ 9 @ 1..8 @ BOOLEAN @ CHAR ...
FileList @ FileList( filename [, full [, drill]] ) @ 2019 @ 9 @ 1..3 @ CHAR @ CHAR, any, any
FileOpen @ FileOpen( filename [, mode] ) @ 2020 @ 9 @ 1..2 @ INTEGER @ CHAR, CHAR
FileClose @ FileClose( file_no ) @ 2021 @ 9 @ 1..1 @ BOOLEAN @ INTEGER
FileRead @ FileRead( file_no ) @ 2022 @ 9 @ 1..1 @ CHAR @ INTEGER
FileWrite @ FileWrite( file_no[, string ... ] ) @ 2023 @ 9 @ 2..any @ BOOLEAN @ INTEGER, any, any, any, any, any ...
GetFilename @ GetFilename( full_path [, strip] ) @ 2024 @ 9 @ 1..2 @ CHAR @ CHAR, BOOLEAN
GetDirectory @ GetDirectory( full_path ) @ 2025 @ 9 @ 1..1 @ CHAR @ CHAR
FileFullPath @ FileFullPath( full_path ) @ 2026 @ 9 @ 1..1 @ CHAR @ CHAR
FileFromParts @ FileFromParts( directory, filename, extension ) @ 2027 @ 9 @ 3..3 @ CHAR @ CHAR, CHAR, CHAR
Floor @ Floor( number ) @ 2028 @ 1 @ 1..1 @ INTEGER @ number
If @ If( value, TRUE outcome, FALSE outcome ) @ 2029 @ 4 @ 3..3 @ as argument @ any, any, any
IfNull @ IfNull( value, NULL outcome ) @ 2030 @ 4 @ 2..2 @ as argument @ any, any
Initcap @ InitCap( string ) @ 2031 @ 2 @ 1..1 @ CHAR @ string
InStr @ InStr( string, string [, number [, number]] ) @ 2032 @ 2 @ 2..4 @ INTEGER @ string, string, number, number
IsAlpha @ IsAlpha( string ) @ 2033 @ 2 @ 1..1 @ BOOLEAN @ string
IsAlphanumeric @ IsAlphaNumeric( string ) @ 2034 @ 2 @ 1..1 @ BOOLEAN @ string
IsDigit @ IsDigit( string ) @ 2035 @ 2 @ 1..1 @ BOOLEAN @ string
IsFloat @ IsFloat( string ) @ 2036 @ 2 @ 1..1 @ BOOLEAN @ string
IsInteger @ IsInteger( string ) @ 2037 @ 2 @ 1..1 @ BOOLEAN @ string
IsLeapYear @ IsLeapYear( date ) @ 2038 @ 3 @ 1..1 @ BOOLEAN @ date
IsLeapYearDay @ IsLeapYearDay( date ) @ 2039 @ 3 @ 1..1 @ BOOLEAN @ date
IsLower @ IsLower( string ) @ 2040 @ 2 @ 1..1 @ BOOLEAN @ string
IsNumeric @ IsNumeric( string ) @ 2041 @ 2 @ 1..1 @ BOOLEAN @ string
IsUpper @ IsUpper( string ) @ 2042 @ 2 @ 1..1 @ BOOLEAN @ string
IsValidDate @ IsValidDate( string [, format] ) @ 2043 @ 3 @ 1..2 @ BOOLEAN @ CHAR/DATE/CLOB, CHAR
Length @ Length( value ) @ 2044 @ 2 @ 1..1 @ INTEGER @ any but array
Left @ Left( value, number ) @ 2045 @ 2 @ 2..2 @ INTEGER @ CHAR/DATE/CLOB, number
Ln @ Ln( number ) @ 2046 @ 1 @ 1..1 @ FLOAT @ number
Log @ Log( number ) @ 2047 @ 1 @ 1..1 @ FLOAT @ number
LogMsg @ LogMsg( value [, value ... ] ) @ 2048 @ 9 @ 1..any @ BOOLEAN @ any ...
Lower @ Lower( string ) @ 2049 @ 2 @ 1..1 @ CHAR @ string
LPad @ LPad( string, number [, string] ) @ 2050 @ 2 @ 2..3 @ CHAR @ string, number, CHAR
LTrim @ LTrim( string [, string] ) @ 2051 @ 2 @ 1..2 @ CHAR @ string, string
Mod @ Mod( number, number ) @ 2052 @ 1 @ 2..2 @ INTEGER @ number, number
OpSys @ OpSys() @ 2053 @ 9 @ 0..0 @ CHAR @
Power @ Power( number, number ) @ 2054 @ 1 @ 2..2 @ number @ number, number
Rand @ Rand( min, max, grain [, seed] ) @ 2055 @ 1 @ 3..4 @ FLOAT @ number, number, number, number
Replace @ Replace( string, search [, replace ] ) @ 2056 @ 2 @ 2..3 @ CHAR @ string, string, string
Right @ Right( string, number ) @ 2057 @ 2 @ 2..2 @ INTEGER @ CHAR/DATE/CLOB, number
Round @ Round( number [, number] ) @ 2058 @ 1 @ 1..2 @ number @ number, number
RowNum @ RowNum() @ 3004 @ 9 @ 0..0 @ INTEGER @
RPad @ RPad( string, number [, string] ) @ 2059 @ 2 @ 2..3 @ CHAR @ string, number, string
RTrim @ RTrim( string [, string] ) @ 2060 @ 2 @ 1..2 @ CHAR @ string, string
SecondsBetween @ SecondsBetween( date|time|interval, date|time|interval ) @ 2061 @ 3 @ 2..2 @ INTEGER @ DATE/INTERVAL DAY TO SECOND/TIME/TIME WITH TIME ZONE/DATE WITH TIME ZONE, DATE/INTERVAL DAY TO SECOND/TIME/TIME WITH TIME ZONE/DATE WITH TIME ZONE
SendMail @ SendMail( profile, password, subject, text, send to [, copy to [, attachments]] ) @ 2062 @ 9 @ 5..7 @ CHAR @ CHAR, CHAR, CHAR, CHAR, CHAR, CHAR, CHAR
Sign @ Sign( number ) @ 2063 @ 1 @ 1..1 @ INTEGER @ number
Sin @ Sin( number ) @ 2064 @ 1 @ 1..1 @ FLOAT @ number
Soundex @ Soundex( string ) @ 2065 @ 2 @ 1..1 @ CHAR @ string
Sqrt @ Sqrt( number ) @ 2066 @ 1 @ 1..1 @ number @ number
Substr @ SubStr( string, from [, count] ) @ 2067 @ 2 @ 2..3 @ CHAR @ string, number, number
SysDate @ SysDate( [format] ) @ 2068 @ 3 @ 0..1 @ CHAR/DATE @ CHAR
System @ System( command ) @ 2069 @ 9 @ 1..1 @ INTEGER @ CHAR
Tan @ Tan( number ) @ 2070 @ 1 @ 1..1 @ FLOAT @ number
ToChar @ ToChar( value [, date format] ) @ 2071 @ 5 @ 1..2 @ CHAR @ any, CHAR
ToDate @ ToDate( string|integer [, format] ) @ 2072 @ 5 @ 1..2 @ date @ CHAR/INTEGER/DATE/DATE WITH TIME ZONE, CHAR
ToDouble @ ToDouble( value [, scale] ) @ 2073 @ 5 @ 1..2 @ FLOAT @ any, number
ToInteger @ ToInteger( value ) @ 2074 @ 5 @ 1..1 @ INTEGER @ any
Translate @ Translate( string, old [, new] ) @ 2075 @ 2 @ 2..3 @ CHAR @ string, string, string
Trim @ Trim( string [, string] ) @ 2076 @ 2 @ 1..2 @ CHAR @ string, string
Trunc @ Trunc( number [, number] ) @ 2077 @ 1 @ 1..2 @ number @ number, number
Upper @ Upper( string ) @ 2078 @ 2 @ 1..1 @ CHAR @ string
ArrayClear @ ArrayClear( array ) @ 2079 @ 9 @ 1..1 @ INTEGER @ ARRAY
ArraySize @ ArraySize( array ) @ 2080 @ 9 @ 1..1 @ INTEGER @ ARRAY
ArrayItem @ ArrayItem( array, index ) @ 2081 @ 9 @ 2..2 @ as argument @ ARRAY, INTEGER
VariableInfo @ VariableInfo( variable, string ) @ 2082 @ 9 @ 2..2 @ CHAR/INTEGER @ any, CHAR
ArrayDeleteItem @ ArrayDeleteItem( array, index ) @ 2083 @ 9 @ 2..2 @ INTEGER @ ARRAY, INTEGER
I18NString @ I18NString( string, encoding ) @ 2084 @ 2 @ 1..2 @ CHAR @ string, CHAR
I18NConvert @ I18NConvert( string, encoding ) @ 2085 @ 2 @ 1..2 @ CHAR @ string, CHAR
ToNumber @ ToNumber( value, precision, scale ) @ 2086 @ 5 @ 3..3 @ NUMBER @ any, number, number
AddMonthsToDate @ AddMonthsToDate( date, number ) @ 2087 @ 3 @ 2..2 @ date @ date, number
AddYearsToDate @ AddYearsToDate( date, number ) @ 2088 @ 3 @ 2..2 @ date @ date, number
FirstOfMonth @ FirstOfMonth( date ) @ 2089 @ 3 @ 1..1 @ date @ date
LastOfMonth @ LastOfMonth( date ) @ 2090 @ 3 @ 1..1 @ date @ date
ArrayAddItem @ ArrayAddItem( array, value ) @ 2091 @ 9 @ 2..2 @ INTEGER @ ARRAY, any
ArraySearch @ ArraySearch( array, value, sorted ) @ 2092 @ 9 @ 2..3 @ INTEGER @ ARRAY, any but array, BOOLEAN
ArraySort @ ArraySort( array ) @ 2093 @ 9 @ 1..1 @ INTEGER @ ARRAY
ToHex @ ToHex( value ) @ 2094 @ 5 @ 1..1 @ CHAR @ any
ArrayModifyItem @ ArrayModifyItem( array, index, value ) @ 2096 @ 9 @ 3..3 @ INTEGER @ ARRAY, INTEGER, any
AddDaysToInterval @ AddDaysToInterval( interval, number ) @ 2097 @ 3 @ 2..2 @ INTERVAL DAY TO SECOND @ INTERVAL DAY TO SECOND, INTEGER
AddMonthsToInterval @ AddMonthsToInterval( interval, number ) @ 2098 @ 3 @ 2..2 @ INTERVAL YEAR TO MONTH @ INTERVAL YEAR TO MONTH, INTEGER
AddSecondsToInterval @ AddSecondsToInterval( interval, number ) @ 2099 @ 3 @ 2..2 @ INTERVAL DAY TO SECOND @ INTERVAL DAY TO SECOND, number
AddYearsToInterval @ AddYearsToInterval( interval, number ) @ 5000 @ 3 @ 2..2 @ INTERVAL YEAR TO MONTH @ INTERVAL YEAR TO MONTH, INTEGER
IsValidIntervalDS @ IsValidIntervalDS( string|number [, format] ) @ 5001 @ 3 @ 1..2 @ BOOLEAN @ CHAR/INTEGER/FLOAT/NUMBER/INTERVAL DAY TO SECOND, CHAR
IsValidIntervalYM @ IsValidIntervalYM( string|integer [, format] ) @ 5002 @ 3 @ 1..2 @ BOOLEAN @ CHAR/INTEGER/INTERVAL YEAR TO MONTH, CHAR
IsValidTime @ IsValidTime( string|number [, format] ) @ 5003 @ 3 @ 1..2 @ BOOLEAN @ CHAR/INTEGER/FLOAT/NUMBER/TIME/TIME WITH TIME ZONE, CHAR
MonthsBetween @ MonthsBetween( date|interval, date|interval ) @ 5004 @ 3 @ 2..2 @ INTEGER @ DATE/INTERVAL YEAR TO MONTH/DATE WITH TIME ZONE, DATE/INTERVAL YEAR TO MONTH/DATE WITH TIME ZONE
SetTimeZone @ SetTimeZone( time zone, value [, format] ) @ 5005 @ 5 @ 2..3 @ TIME WITH TIME ZONE/DATE WITH TIME ZONE @ CHAR/INTEGER, CHAR/DATE/TIME, CHAR
ToIntervalDS @ ToIntervalDS( value [, format] ) @ 5006 @ 5 @ 1..2 @ INTERVAL DAY TO SECOND @ CHAR/INTEGER/FLOAT/NUMBER/INTERVAL DAY TO SECOND, CHAR
ToIntervalYM @ ToIntervalYM( value [, format] ) @ 5007 @ 5 @ 1..2 @ INTERVAL YEAR TO MONTH @ CHAR/INTEGER/INTERVAL YEAR TO MONTH, CHAR
ToTime @ ToTime( value [, format] ) @ 5008 @ 5 @ 1..2 @ TIME @ CHAR/INTEGER/FLOAT/NUMBER/TIME, CHAR
ToTimeZone @ ToTimeZone( time zone, value [, format] ) @ 5009 @ 5 @ 2..3 @ TIME WITH TIME ZONE/DATE WITH TIME ZONE @ CHAR/INTEGER, CHAR/DATE/CLOB/TIME/TIME WITH TIME ZONE/DATE WITH TIME ZONE, CHAR
UUID @ UUID() @ 3006 @ 9 @ 0..0 @ CHAR @
)";

struct Row {
    std::string name, usage;
    int32_t number = 0, category = 0;
    uint32_t minimum = 0, maximum = 0, result = 0;
    std::vector<uint32_t> arguments;
    bool repeat = false;
};

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
    return text;
}

std::vector<std::string_view> split(std::string_view text, std::string_view separator) {
    std::vector<std::string_view> parts;
    for (std::size_t at = 0;;) {
        const std::size_t end = text.find(separator, at);
        parts.push_back(trimmed(text.substr(at, end - at)));
        if (end == std::string_view::npos) return parts;
        at = end + separator.size();
    }
}

uint32_t type_named(std::string_view name) {
    for (uint32_t code = QV_TYPE_CHAR; code <= QV_TYPE_DATE_TZ; code <<= 1)
        if (const QV_DATATYPE_SPEC_T *spec = GetDataTypeSpec_L(code); spec && spec->name == name)
            return code;
    ADD_FAILURE() << "no type named " << name;
    return 0;
}

uint32_t mask_named(std::string_view text) {
    if (text == "number") return QV_MASK_NUMBER;
    if (text == "string") return QV_MASK_STRING;
    if (text == "date") return QV_MASK_DATE;
    if (text == "any") return QV_MASK_ANY;
    if (text == "any but array") return QV_MASK_ANY_BUT_ARRAY;
    if (text == "as argument") return 0;
    uint32_t mask = 0;
    for (std::string_view name : split(text, "/")) mask |= type_named(name);
    return mask;
}

std::vector<Row> rows_of(std::string_view table) {
    std::vector<Row> rows;
    std::istringstream lines{std::string(table)};
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) continue;
        const std::vector<std::string_view> cells = split(line, "@");
        if (cells.size() < 6) {
            ADD_FAILURE() << "malformed row: " << line;
            continue;
        }
        Row row;
        row.name = cells[0];
        row.usage = cells[1];
        row.number = std::stoi(std::string(cells[2]));
        row.category = std::stoi(std::string(cells[3]));
        const std::vector<std::string_view> counts = split(cells[4], "..");
        row.minimum = static_cast<uint32_t>(std::stoul(std::string(counts[0])));
        row.maximum = counts[1] == "any"
                          ? QV_UNLIMITED_ARGUMENTS
                          : static_cast<uint32_t>(std::stoul(std::string(counts[1])));
        row.result = mask_named(cells[5]);
        if (cells.size() > 6 && !cells[6].empty()) {
            for (std::string_view argument : split(cells[6], ",")) {
                if (argument.size() > 3 && argument.substr(argument.size() - 3) == "...") {
                    row.repeat = true;
                    argument = trimmed(argument.substr(0, argument.size() - 3));
                }
                row.arguments.push_back(mask_named(argument));
            }
        }
        rows.push_back(std::move(row));
    }
    return rows;
}

TEST(BuiltinTable, EveryRowIsTheLanguagesOwnInTableOrder) {
    const std::vector<Row> expected = rows_of(language_table);
    ASSERT_EQ(expected.size(), 111u);
    const ExpFunction *table = Get_BuiltInFns_L();
    std::size_t count = 0;
    while (table[count].name != nullptr) ++count;
    ASSERT_EQ(count, expected.size()) << "rows in the built-in table";
    for (std::size_t i = 0; i < count; ++i) {
        const ExpFunction &row = table[i];
        const Row &want = expected[i];
        SCOPED_TRACE(want.name);
        EXPECT_STREQ(row.name, want.name.c_str());
        EXPECT_STREQ(row.usage, want.usage.c_str());
        EXPECT_EQ(row.number, want.number);
        EXPECT_EQ(row.category, want.category);
        EXPECT_EQ(row.min_args, want.minimum);
        EXPECT_EQ(row.max_args, want.maximum);
        EXPECT_EQ(row.result_type, want.result);
        EXPECT_EQ(row.repeat != 0, want.repeat);
        for (std::size_t a = 0; a < QV_MAX_ARGUMENTS; ++a)
            EXPECT_EQ(row.arg_types[a], a < want.arguments.size() ? want.arguments[a] : 0u)
                << "argument " << a + 1;
        EXPECT_NE(row.handler, nullptr);
        for (const char *text : row.texts) EXPECT_EQ(text, nullptr);
        for (uint32_t word : row.words) EXPECT_EQ(word, 0u);
    }
}

TEST(BuiltinTable, OnlyDatetimeNowAndSysDateShareANumber) {
    const ExpFunction *table = Get_BuiltInFns_L();
    for (const ExpFunction *a = table; a->name != nullptr; ++a)
        for (const ExpFunction *b = a + 1; b->name != nullptr; ++b)
            if (a->number == b->number) {
                EXPECT_TRUE(std::string(a->name) == "DatetimeNow" &&
                            std::string(b->name) == "SysDate")
                    << a->name << " and " << b->name << " share " << a->number;
            }
}

} // namespace
