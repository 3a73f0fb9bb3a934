// The text built-ins as call tables on ASCII, Latin-1 and multibyte UTF-8 text. The
// expected texts come from a model on code points (std::u32string and std:: algorithms,
// ICU's simple case mappings and properties), independent of the counted strings.
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <string>

#include "builtin1_adapter.hpp"
#include "qv/qvstrlib.h"

namespace {

using namespace qvtest::builtin1;
using Strings = qvtest::LanguageTest;

constexpr uint32_t CHAR = QV_TYPE_CHAR, INTEGER = QV_TYPE_INTEGER, BOOLEAN = QV_TYPE_BOOLEAN;

std::u32string decode(const std::string &utf8) {
    icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(utf8);
    std::u32string out(static_cast<std::size_t>(unicode.countChar32()), U'\0');
    UErrorCode status = U_ZERO_ERROR;
    unicode.toUTF32(reinterpret_cast<UChar32 *>(out.data()), static_cast<int32_t>(out.size()),
                    status);
    return out;
}
std::string encode(const std::u32string &text) {
    std::string out;
    icu::UnicodeString::fromUTF32(reinterpret_cast<const UChar32 *>(text.data()),
                                  static_cast<int32_t>(text.size()))
        .toUTF8String(out);
    return out;
}
// An expected text: NULL when empty.
Expected text_or_null(const std::u32string &t) {
    return t.empty() ? null_of(CHAR) : text(encode(t));
}

// The model of a window: 1-based start (0 as 1, negative from the end), count -1 to the end.
std::u32string window(const std::u32string &s, int64_t start, int64_t count) {
    const auto n = static_cast<int64_t>(s.size());
    int64_t begin = start > 0 ? start - 1 : start == 0 ? 0 : n + start;
    int64_t end = count < 0 ? n : begin + count;
    begin = std::clamp<int64_t>(begin, 0, n);
    end = std::clamp<int64_t>(end, begin, n);
    return s.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(end - begin));
}
std::u32string mapped(std::u32string s, UChar32 (*map)(UChar32)) {
    for (char32_t &c : s) c = static_cast<char32_t>(map(static_cast<UChar32>(c)));
    return s;
}
std::u32string initcap(std::u32string s) {
    bool in_word = false;
    for (char32_t &c : s) {
        const auto cp = static_cast<UChar32>(c);
        c = static_cast<char32_t>(in_word ? u_tolower(cp) : u_totitle(cp));
        in_word = u_isalnum(cp);
    }
    return s;
}
// Position of the n-th (overlapping) match from `start`, 0 when none.
int64_t find_nth(const std::u32string &s, const std::u32string &needle, int64_t start, int n) {
    std::size_t at = static_cast<std::size_t>(start - 1);
    for (; at <= s.size(); ++at) {
        at = s.find(needle, at);
        if (at == std::u32string::npos) return 0;
        if (--n == 0) return static_cast<int64_t>(at) + 1;
    }
    return 0;
}
std::u32string replaced(std::u32string s, const std::u32string &from, const std::u32string &to) {
    for (std::size_t at = s.find(from); at != std::u32string::npos; at = s.find(from, at)) {
        s.replace(at, from.size(), to);
        at += to.size();
    }
    return s;
}
std::u32string padded(const std::u32string &s, std::size_t length, const std::u32string &pad,
                      bool left) {
    if (s.size() >= length) return s.substr(0, length);
    std::u32string fill;
    while (fill.size() < length - s.size()) fill += pad[fill.size() % pad.size()];
    return left ? fill + s : s + fill;
}

// One text in each kind of encoding: how a call writes it, and its characters.
struct Sample {
    const char *kind;
    std::string utf8;
    std::string (*written)(const std::string &utf8);
};
const Sample samples[] = {
    {"ASCII", "Hello, bright World of words", [](const std::string &t) { return "'" + t + "'"; }},
    {"Latin-1", "Crème brûlée à la française, ÉTÉ",
     [](const std::string &t) { return "I18NConvert('" + t + "', 'ISO-8859-1')"; }},
    {"UTF-8", "Grüße aus Köln, 世界 😀 καλημέρα ΣΟΦΙΑ",
     [](const std::string &t) { return "'" + t + "'"; }},
};

TEST_F(Strings, EveryTextFunctionAgreesWithTheCodePointModel) {
    for (const Sample &sample : samples) {
        SCOPED_TRACE(sample.kind);
        const std::string t = sample.written(sample.utf8);
        const std::u32string s = decode(sample.utf8);
        const auto n = static_cast<int64_t>(s.size());
        const std::u32string part = s.substr(6, 3), word = s.substr(0, 2);
        const std::string p = "'" + encode(part) + "'", w = "'" + encode(word) + "'";
        auto call = [&](const std::string &f, const std::string &rest = "") {
            return f + "(" + t + rest + ")";
        };
        check_all({
            {call("SubStr", ", 2, 3"), text_or_null(window(s, 2, 3))},
            {call("SubStr", ", -3"), text_or_null(window(s, -3, -1))},
            {call("SubStr", ", 0, 2"), text_or_null(window(s, 0, 2))},
            {call("SubStr", ", 5"), text_or_null(window(s, 5, -1))},
            {call("SubStr", ", 5, NULL"), text_or_null(window(s, 5, -1))},
            {call("SubStr", ", -1000, 4"), text_or_null(window(s, -1000, 4))},
            {call("SubStr", ", 1000"), null_of(CHAR)},
            {call("SubStr", ", 2, -2"), null_of(CHAR)},
            {call("SubStr", ", 2, 9223372036854775807"), text_or_null(window(s, 2, -1))},
            {call("Left", ", 4"), text_or_null(window(s, 1, 4))},
            {call("Right", ", 4"), text_or_null(window(s, -4, -1))},
            {call("Right", ", 100000"), text(sample.utf8)},
            {call("Left", ", 0"), null_of(CHAR)},
            {call("Right", ", -2"), null_of(CHAR)},
            {call("Length"), integer(n)},
            {call("Upper"), text(encode(mapped(s, u_toupper)))},
            {call("Lower"), text(encode(mapped(s, u_tolower)))},
            {call("InitCap"), text(encode(initcap(s)))},
            {call("InStr", ", " + p), integer(find_nth(s, part, 1, 1))},
            {call("InStr", ", " + p + ", 8"), integer(find_nth(s, part, 8, 1))},
            {call("InStr", ", 'o', 1, 2"), integer(find_nth(s, U"o", 1, 2))},
            {call("InStr", ", 'o', NULL, 3"), integer(find_nth(s, U"o", 1, 3))},
            {call("InStr", ", 'zzz'"), integer(0)},
            {call("CountStr", ", 'e'"), integer(std::count(s.begin(), s.end(), U'e'))},
            {call("Replace", ", " + p + ", '<ñ>'"), text_or_null(replaced(s, part, U"<ñ>"))},
            {call("Replace", ", " + w), text_or_null(replaced(s, word, U""))},
            {call("Translate", ", 'eoé', 'EØ'"),
             text_or_null(replaced(replaced(replaced(s, U"e", U"E"), U"o", U"Ø"), U"é", U""))},
            {call("LPad", ", 40, '*-'"), text_or_null(padded(s, 40, U"*-", true))},
            {call("RPad", ", 40, 'ñ'"), text_or_null(padded(s, 40, U"ñ", false))},
            {call("RPad", ", 5"), text_or_null(padded(s, 5, U" ", false))},
            {call("LTrim", ", " + w), text_or_null(s.substr(2))},
            {call("RTrim", ", '" + encode(s.substr(s.size() - 1)) + "'"),
             text_or_null(s.substr(0, s.size() - 1))},
            {call("Trim", ", " + w), text_or_null(s.substr(2))},
            {call("ExtractStr", ", 2, ' '"),
             text_or_null(window(s, 0, -1).substr(s.find(U' ') + 1, s.find(U' ', s.find(U' ') + 1) -
                                                                        s.find(U' ') - 1))},
            {call("ExtractStr", ", 0, ' '"), null_of(CHAR)},
            {call("ExtractStr", ", 100, ' '"), null_of(CHAR)},
        });
        // The result stays in the encoding of the string argument (ASCII grows into UTF-8).
        Outcome upper = evaluate(call("Upper"));
        const QV_ENCODING_T *encoding = upper.value().payload.string.encoding;
        EXPECT_STREQ(encoding != nullptr ? encoding->name : "UTF-8",
                     std::string(sample.kind) == "Latin-1" ? "ISO-8859-1" : "UTF-8");
    }
}

TEST_F(Strings, WhiteSpaceSetsAndEdgesOfTheEditFunctions) {
    check_all({
        {"Trim('  a b  ')", text("a b")},
        {"LTrim('  a b  ')", text("a b  ")},
        {"RTrim('  a b  ')", text("  a b")},
        {"Trim('xxaxx', 'x')", text("a")},
        {"Trim('   ')", null_of(CHAR)},             // nothing left: NULL
        {"Trim('\u3000日本\u3000')", text("日本")}, // Unicode white space
        {"Collapse('  many   inner\t\tgaps  ')", text("many inner gaps")},
        {"LPad('abc', 0)", null_of(CHAR)},
        {"LPad('abc', 2)", text("ab")},
        {"LPad('abc', 9223372036854775807)", null_of(CHAR)}, // beyond any sane text
        {"RPad('', 3, 'x')", text("xxx")}, // '' is a text, only an empty result is NULL
        {"Replace('aaa', 'a', 'bb')", text("bbbbbb")},
        {"Replace('abc', '', 'x')", text("abc")},
        {"Replace('abc', 'abc')", null_of(CHAR)},
        {"Translate('abc', 'abc')", null_of(CHAR)},
        {"Translate('hello', 'lo', 'LO')", text("heLLO")},
        {"ExtractStr('a,,c', 2)", null_of(CHAR)}, // an empty field
        {"ExtractStr('a,,c', 3)", text("c")},
        {"ExtractStr('a::b::c', 2, '::')", text("b")},
        {"ExtractStr(NULL, 0)", null_of(CHAR)},
        {"CountStr('aaaa', 'aa')", integer(2)}, // non-overlapping
        {"CountStr('abc', NULL)", null_of(INTEGER)},
        {"CountStr('abc', '')", integer(0)},
        {"InStr('abcabc', 'bc', -1)", integer(5)}, // backward from the end
        {"InStr('abcabc', 'bc', -1, 2)", integer(2)},
        {"InStr(NULL, 'a')", null_of(INTEGER)},
        {"InStr('abc', 'b', 0)", integer(0)},
        {"Soundex('Robert')", text("R163")},
        {"Soundex('Tymczak')", text("T522")},
        {"Soundex('Pfister')", text("P236")},
        {"Soundex('123')", null_of(CHAR)},
        {"Char(65)", text("A")},
        {"Char(233)", text("é")},
        {"Char(128512)", text("😀")},
        {"Char(0)", null_of(CHAR)},
        {"Char(55296)", null_of(CHAR)}, // a surrogate
        {"Char(1114112)", null_of(CHAR)},
        {"Upper('straße')", text("STRAßE")}, // one code point for one
        {"InitCap('hello wORLD-wide o''neil 3rd')", text("Hello World-Wide O'Neil 3rd")},
        {"Length('')", integer(0)},
        {"Replace('abc', 'b', '→')", text("a→c")}, // ASCII text grows into UTF-8
        {"Replace(I18NConvert('abc', 'ISO-8859-1'), 'b', '→')", text("a\x1A"
                                                                     "c")}, // Latin-1 cannot
        {"Length(12.5)", integer(4)},          // the text form of a number
        {"Length('2009-04-30')", integer(29)}, // a date literal: its timestamp text form
        {"Left('2009-04-30', 4)", text("2009")},
        {"SubStr(12345, 2)", null_of(CHAR)}, // SubStr takes CHAR or CLOB only
        {"Upper(NULL)", null_of(CHAR)},
    });
}

TEST_F(Strings, CharacterTestsAreBooleans) {
    check_all({
        {"IsAlpha('Éléphant')", truth(true)},
        {"IsAlpha('abc1')", truth(false)},
        {"IsAlphaNumeric('abc1')", truth(true)},
        {"IsDigit('0123')", truth(true)},
        {"IsDigit('12a')", truth(false)},
        {"IsDigit('٣٤')", truth(true)}, // Arabic-Indic digits
        {"IsLower('abc 1')", truth(true)},
        {"IsUpper('ÀB')", truth(true)},
        {"IsUpper('Ab')", truth(false)},
        {"IsInteger(' -42 ')", truth(true)},
        {"IsInteger('4.2')", truth(false)},
        {"IsFloat('4.2')", truth(true)},
        {"IsFloat('1e5')", truth(true)},
        {"IsNumeric('1,234.5')", truth(true)},
        {"IsNumeric('abc')", truth(false)},
        {"IsAlpha(NULL)", null_of(BOOLEAN)},
    });
}

TEST_F(Strings, ConcatJoinsTextFormsAndSkipsNulls) {
    check_all({
        {"Concat('a', 1, 2.5, TRUE)", text("a12.5TRUE")},
        {"Concat('x', NULL, 'y')", text("xy")},
        {"Concat(NULL, NULL)", null_of(CHAR)},
        {"Concat(ToNumber('1.50', 5, 2), '|', 1 & 'b')", text("1.5|(1, 'b')")},
        {"Concat(I18NConvert('é', 'ISO-8859-1'), 'ü')", text("éü")}, // joined in UTF-8
        {"ConcatSep('-', 'a', NULL, 'b', 3)", text("a-b-3")},
        {"ConcatSep(NULL, 'a', 'b')", text("ab")},
        {"ConcatSep(', ', NULL)", null_of(CHAR)},
        {"ConcatSep('→', 'α', 'β')", text("α→β")},
    });
    // Checksum folds every value (NULLs too) with ChecksumValue_L from 0.
    qvtest::Value one, text_value, none;
    SetIntegerValue_L(one.get(), 1);
    SetTextValue_L(text_value.get(), "ab", nullptr);
    uint32_t sum = 0;
    ChecksumValue_L(one.get(), &sum);
    ChecksumValue_L(text_value.get(), &sum);
    ChecksumValue_L(nullptr, &sum);
    check({"Checksum(1, 'ab', NULL)", integer(sum)});
}

TEST_F(Strings, EncodingsAreNamedTakenAndConverted) {
    Outcome converted = evaluate("I18NConvert('Grüße', 'UTF-16')");
    ASSERT_FALSE(converted.value().is_null);
    EXPECT_EQ(converted.value().payload.string.encoding, LookupEncoding_L("UTF-16"));
    EXPECT_EQ(qvtest::text_of(&converted.value()), "Grüße");
    EXPECT_EQ(Strlen_SL(&converted.value().payload.string), 5);
    check_all({
        {"Length(I18NConvert('Grüße', 'UTF-16'))", integer(5)},
        {"Upper(I18NConvert('Grüße', 'UTF-16'))", text("GRÜßE")},
        {"I18NString(I18NConvert('é', 'ISO-8859-1'), 'ISO-8859-1')", text("é")},
        {"Length(I18NString('é'))", integer(1)},
        {"I18NString('é', 'ISO-8859-1')", text("Ã©")}, // the two UTF-8 bytes read as Latin-1
        {"I18NString('abc', 'no such encoding')", null_of(CHAR)},
        {"I18NConvert('abc', 'no such encoding')", null_of(CHAR)},
        {"I18NConvert('€', 'ISO-8859-1')", text("\x1A")}, // the substitute byte
    });
}

} // namespace
