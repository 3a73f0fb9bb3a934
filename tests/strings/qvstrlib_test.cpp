// qvstrlib_test.cpp - the counted strings: one table of logical cases run in every encoding
// (ASCII, Latin-1, UTF-8, UTF-16, UTF-32, and UTF-8 forced onto the code-point path), the
// results compared after conversion back to UTF-8. A case whose texts an encoding cannot
// hold is skipped for that encoding.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "qv/qvstrlib.h"
#include "strings/counted.hpp"
#include "strings/qvstrlib_internal.hpp"

namespace {

using qvtest::Str;
using qvtest::utf8_of;

// Whether `e` can hold the UTF-8 text; a null one it always can.
bool holds(const QV_ENCODING_T *e, const char *utf8) {
    Str s(utf8, e);
    return utf8 == nullptr || !std::strcmp(utf8, "<null>") || utf8_of(&s) == utf8;
}

using Args = std::vector<QV_STRING_T *>;
struct Case {
    const char *what;
    std::vector<const char *> inputs; // UTF-8; null for a null text
    std::function<std::string(Args &)> run;
    std::string expected;
};

std::string n(int64_t value) {
    return std::to_string(value);
}
// Runs an edit in place and returns "text|result".
std::string edited(QV_STRING_T *s, int64_t result) {
    return utf8_of(s) + "|" + n(result);
}
std::string out_of(QV_STRING_T *out, int64_t result) {
    std::string text = utf8_of(out) + "|" + n(result);
    FreeString_SL(out);
    return text;
}

const std::vector<Case> &cases() {
    static const std::vector<Case> table = {
        // Measurement
        {"Strlen", {"héllo"}, [](Args &a) { return n(Strlen_SL(a[0])); }, "5"},
        {"Strlen emoji", {"a😀b"}, [](Args &a) { return n(Strlen_SL(a[0])); }, "3"},
        {"IsEmpty", {"", "x", nullptr}, [](Args &a) { return n(IsEmpty_SL(a[0])) + n(IsEmpty_SL(a[1])) + n(IsEmpty_SL(a[2])) + n(Strlen_SL(a[2])); }, "1010"},
        {"Astrncpy", {"日本語x"}, [](Args &a) { QV_STRING_T d, e; Astrncpy_SL(&d, a[0], 2); Astrncpy_SL(&e, a[0], 99); return out_of(&d, 0) + "/" + out_of(&e, 0); }, "日本|0/日本語x|0"},
        {"Astrcat", {"né", "ü😀"}, [](Args &a) { return edited(Astrcat_SL(a[0], a[1]), 0); },
         "néü😀|0"},
        {"Astrcat onto null", {nullptr, "ab"},
         [](Args &a) { return edited(Astrcat_SL(a[0], a[1]), 0); }, "ab|0"},
        // Substrings
        {"SubString", {"héllo"}, [](Args &a) { QV_STRING_T o; return out_of(&o, SubString_SL(a[0], 2, 3, &o)); }, "éll|3"},
        {"SubString to end", {"日本語です"}, [](Args &a) { QV_STRING_T o; return out_of(&o, SubString_SL(a[0], 3, -1, &o)); }, "語です|3"},
        {"SubString start 0", {"abc"}, [](Args &a) { QV_STRING_T o; return out_of(&o, SubString_SL(a[0], 0, 2, &o)); }, "ab|2"},
        {"SubString negative", {"a😀bé"}, [](Args &a) { QV_STRING_T o; return out_of(&o, SubString_SL(a[0], -3, 2, &o)); }, "😀b|2"},
        {"SubString before start", {"abcd"}, [](Args &a) { QV_STRING_T o; return out_of(&o, SubString_SL(a[0], -6, 3, &o)); }, "a|1"},
        {"SubString huge", {"abé"}, [](Args &a) { QV_STRING_T o; return out_of(&o, SubString_SL(a[0], INT32_MAX, INT32_MAX, &o)); }, "|0"},
        {"SubString huge length", {"abé"}, [](Args &a) { QV_STRING_T o; return out_of(&o, SubString_SL(a[0], 2, INT32_MAX, &o)); }, "bé|2"},
        {"SubString most negative", {"abé"}, [](Args &a) { QV_STRING_T o; return out_of(&o, SubString_SL(a[0], INT32_MIN, INT32_MAX, &o)); }, "ab|2"},
        {"SubString bad length", {"abé"}, [](Args &a) { QV_STRING_T o; return out_of(&o, SubString_SL(a[0], 1, -2, &o)); }, "<null>|-2"},
        {"SubString null", {nullptr}, [](Args &a) { QV_STRING_T o; return out_of(&o, SubString_SL(a[0], 1, 1, &o)); }, "<null>|-1"},
        {"BytesForChars agrees with SubString", {"a😀日é"}, [](Args &a) {
             QV_STRING_T o;
             SubString_SL(a[0], 1, 3, &o);
             std::string same = n(BytesForChars_SL(a[0], 3) == Bytelen_SL(&o, 0));
             FreeString_SL(&o);
             return same + n(BytesForChars_SL(a[0], 99) == Bytelen_SL(a[0], 0)) +
                    n(BytesForChars_SL(a[0], -1));
         }, "110"},
        {"TruncateString", {"日本語"}, [](Args &a) { return edited(a[0], TruncateString_SL(a[0], 2)); }, "日本|2"},
        {"TruncateString negative", {"éa"}, [](Args &a) { return edited(a[0], TruncateString_SL(a[0], -5)); }, "|0"},
        // Search
        {"Strchr", {"aé😀é"}, [](Args &a) { return n(Strchr_SL(a[0], 0xE9)) + n(Strchr_SL(a[0], 'z')); }, "20"},
        {"Strchr ascii", {"xyz"}, [](Args &a) { return n(Strchr_SL(a[0], 'z')); }, "3"},
        {"InString", {"ababab", "ab"}, [](Args &a) { return n(InString_SL(a[0], a[1], 1, 2)); }, "3"},
        {"InString overlap", {"ééé", "éé"}, [](Args &a) { return n(InString_SL(a[0], a[1], 1, 2)); }, "2"},
        {"InString from start", {"日本日本", "日"}, [](Args &a) { return n(InString_SL(a[0], a[1], 2, 1)); }, "3"},
        {"InString backward", {"abcabc", "bc"}, [](Args &a) { return n(InString_SL(a[0], a[1], -1, 1)) + n(InString_SL(a[0], a[1], -1, 2)) + n(InString_SL(a[0], a[1], -2, 1)); }, "525"},
        {"InString none", {"abc", "é"}, [](Args &a) { return n(InString_SL(a[0], a[1], 1, 1)) + n(InString_SL(a[0], a[1], 0, 1)) + n(InString_SL(a[0], a[1], 1, 0)); }, "000"},
        {"InString huge start", {"abc", "c"}, [](Args &a) { return n(InString_SL(a[0], a[1], INT32_MAX, 1)) + n(InString_SL(a[0], a[1], INT32_MIN, 1)); }, "00"},
        {"InString empty search", {"abc", ""}, [](Args &a) { return n(InString_SL(a[0], a[1], 1, 1)); }, "0"},
        {"CountString", {"aaaa", "aa"}, [](Args &a) { return n(CountString_SL(a[0], a[1])); }, "2"},
        {"CountString multibyte", {"x😀y😀", "😀"}, [](Args &a) { return n(CountString_SL(a[0], a[1])); }, "2"},
        {"ScanForWhiteSpace", {"日本 語"}, [](Args &a) { return n(ScanForWhiteSpace_SL(a[0])); }, "3"},
        {"Strqchr", {"a,\"b,c\",d", nullptr}, [](Args &a) {
             uint8_t r = Strqchr_SL(a[0], a[1], ',');
             std::string first = utf8_of(a[0]) + "/" + utf8_of(a[1]);
             FreeString_SL(a[1]);
             Strqchr_SL(a[0], a[1], ',');
             return first + "/" + n(r) + "/" + utf8_of(a[0]) + "/" + utf8_of(a[1]);
         }, "a/\"b,c\",d/1/a/"},
        {"Strqchr quoted then", {"\"é,x\",ü", nullptr}, [](Args &a) {
             Strqchr_SL(a[0], a[1], ',');
             return utf8_of(a[0]) + "/" + utf8_of(a[1]);
         }, "\"é,x\"/ü"},
        {"Strqchr null", {nullptr, nullptr}, [](Args &a) { return n(Strqchr_SL(a[0], a[1], ',')); }, "0"},
        // Edit
        {"ReplaceString", {"a日b日", "日", "xy"}, [](Args &a) { return edited(a[0], ReplaceString_SL(a[0], a[1], a[2])); }, "axybxy|2"},
        {"ReplaceString remove", {"aéaé", "é", nullptr}, [](Args &a) { return edited(a[0], ReplaceString_SL(a[0], a[1], a[2])); }, "aa|2"},
        {"ReplaceString none", {"abc", "z", "y"}, [](Args &a) { return edited(a[0], ReplaceString_SL(a[0], a[1], a[2])); }, "abc|0"},
        {"ReplaceSubString", {"héllo", "ÉÉ"}, [](Args &a) { return edited(a[0], ReplaceSubString_SL(a[0], 2, 3, a[1])); }, "hÉÉo|4"},
        {"ReplaceSubString append", {"ab", "é"}, [](Args &a) { return edited(a[0], ReplaceSubString_SL(a[0], 9, 1, a[1])); }, "abé|3"},
        {"ReplaceSubString bad", {"ab", "é"}, [](Args &a) { return edited(a[0], ReplaceSubString_SL(a[0], 0, 1, a[1])); }, "ab|-1"},
        {"Translate", {"héllo", "él", "EL"}, [](Args &a) { QV_STRING_T o; return out_of(&o, Translate_SL(a[0], a[1], a[2], &o) > 0); }, "hELLo|1"},
        {"Translate removes", {"a-b_c", "-_", "+"}, [](Args &a) { QV_STRING_T o; return out_of(&o, Translate_SL(a[0], a[1], a[2], &o) > 0); }, "a+bc|1"},
        {"Translate null", {nullptr, "a", "b"}, [](Args &a) { QV_STRING_T o; return out_of(&o, Translate_SL(a[0], a[1], a[2], &o)); }, "<null>|0"},
        {"ExtractString", {"a,é,,日", nullptr}, [](Args &a) {
             std::string r;
             for (int32_t field : {2, 3, 4, 5, 0}) { QV_STRING_T o; r += out_of(&o, ExtractString_SL(a[0], field, a[1], &o)) + "/"; }
             return r;
         }, "é|1/|0/日|1/<null>|-1/<null>|-2/"},
        {"ExtractString separator", {"a::b::c", "::"}, [](Args &a) { QV_STRING_T o; return out_of(&o, ExtractString_SL(a[0], 3, a[1], &o)); }, "c|1"},
        {"RemoveChars", {"h-é-l_lo", "-_"}, [](Args &a) { return edited(a[0], RemoveChars_SL(a[0], a[1])); }, "héllo|5"},
        {"RemoveFirstChar", {"éab"}, [](Args &a) { return edited(a[0], RemoveFirstChar_SL(a[0])); }, "ab|233"},
        {"RemoveLastChar", {"ab😀"}, [](Args &a) { return edited(a[0], RemoveLastChar_SL(a[0])); }, "ab|128512"},
        {"RemoveLastChar empty", {""}, [](Args &a) { return edited(a[0], RemoveLastChar_SL(a[0])); }, "|-1"},
        {"AStripAlNum", {"a-é 1_日!"}, [](Args &a) { QV_STRING_T o; AStripAlNum_SL(&o, a[0]); return out_of(&o, 0); }, "aé1日|0"},
        {"MakePrintable", {"a\tb\x01é"}, [](Args &a) { return edited(a[0], MakePrintable_SL(a[0], '?')); }, "a?b?é|5"},
        {"MakePrintable removes", {"a\tb\x7f"}, [](Args &a) { return edited(a[0], MakePrintable_SL(a[0], -1)); }, "ab|2"},
        {"StripComments", {"x = 'a//b' // note\ny // é"}, [](Args &a) { return edited(a[0], StripComments_SL(a[0])); }, "x = 'a//b' \ny |14"},
        {"Collapse", {"  a \t b\n\né  "}, [](Args &a) { return edited(a[0], Collapse_SL(a[0])); }, "a b é|5"},
        {"TrimUtil both", {"  é x \n", nullptr}, [](Args &a) { return edited(a[0], TrimUtil_SL(a[0], a[1], QV_TRIM_BOTH)); }, "é x|3"},
        {"TrimUtil set", {"xyéyx", "xy"}, [](Args &a) { return edited(a[0], TrimUtil_SL(a[0], a[1], QV_TRIM_RIGHT)); }, "xyé|3"},
        {"TrimUtil multibyte set", {"日a日", "日"}, [](Args &a) { return edited(a[0], TrimUtil_SL(a[0], a[1], QV_TRIM_LEFT)); }, "a日|2"},
        {"Pad left", {"é", "xy"}, [](Args &a) { return edited(a[0], Pad_SL(a[0], 4, a[1], 1)); }, "xyxé|4"},
        {"Pad right", {"日", nullptr}, [](Args &a) { return edited(a[0], Pad_SL(a[0], 3, a[1], 0)); }, "日  |3"},
        {"Pad cuts", {"abcé", "x"}, [](Args &a) { return edited(a[0], Pad_SL(a[0], 2, a[1], 1)); }, "ab|2"},
        {"Pad zero", {"abc", "x"}, [](Args &a) { return edited(a[0], Pad_SL(a[0], -3, a[1], 1)); }, "|0"},
        {"Soundex", {"Robert"}, [](Args &a) { QV_STRING_T o; return out_of(&o, Soundex_SL(a[0], &o)); }, "R163|1"},
        {"Soundex accents", {"Röbert"}, [](Args &a) { QV_STRING_T o; return out_of(&o, Soundex_SL(a[0], &o)); }, "R163|1"},
        {"Soundex null", {nullptr}, [](Args &a) { QV_STRING_T o; return out_of(&o, Soundex_SL(a[0], &o)); }, "<null>|0"},
        {"ToInteger", {" -42 "}, [](Args &a) { int64_t v = 0; int32_t r = ToInteger_SL(a[0], &v); return n(r) + "/" + n(v); }, "0/-42"},
        {"ToInteger limits", {"-9223372036854775808"}, [](Args &a) { int64_t v = 0; int32_t r = ToInteger_SL(a[0], &v); return n(r) + "/" + n(v); }, "0/-9223372036854775808"},
        {"ToInteger overflow or bad", {"9223372036854775808", "12x"}, [](Args &a) { int64_t v = 0; return n(ToInteger_SL(a[0], &v)) + n(ToInteger_SL(a[1], &v)); }, "-2-1"},
        // Case
        {"ToUpper", {"héllo wörld"}, [](Args &a) { return utf8_of(ToUpper_SL(a[0])); }, "HÉLLO WÖRLD"},
        {"ToLower", {"ÀB😀C"}, [](Args &a) { return utf8_of(ToLower_SL(a[0])); }, "àb😀c"},
        {"ToUpper sharp s", {"straße"}, [](Args &a) { return utf8_of(ToUpper_SL(a[0])); }, "STRAßE"},
        {"Initcap", {"hello wORLD o'neil éCOLE 2nd"}, [](Args &a) { return utf8_of(Initcap_SL(a[0])); }, "Hello World O'Neil École 2nd"},
        // Classes
        {"IsAlphaStr", {"abéΩ"}, [](Args &a) { return n(IsAlphaStr_SL(a[0])); }, "1"},
        {"IsAlnum", {"é1日"}, [](Args &a) { return n(IsAlnum_SL(a[0])); }, "1"},
        {"IsDigit", {"0123", "12a"}, [](Args &a) { return n(IsDigit_SL(a[0])) + n(IsDigit_SL(a[1])); }, "10"},
        {"IsDigit empty", {""}, [](Args &a) { return n(IsDigit_SL(a[0])) + n(IsSpaceStr_SL(a[0])) + n(IsAlpha_SL(a[0])); }, "000"},
        {"IsSpace", {" \t\n", " x"}, [](Args &a) { return n(IsSpaceStr_SL(a[0])) + n(IsSpace_SL(a[0])) + n(IsSpaceStr_SL(a[1])) + n(IsSpace_SL(a[1])) + n(IsAlpha_SL(a[1])); }, "11010"},
        {"IsAlpha first", {"é1"}, [](Args &a) { return n(IsAlpha_SL(a[0])) + n(IsAlphaStr_SL(a[0])); }, "10"},
        {"IsLower IsUpper", {"abé 1", "ÀB-1"}, [](Args &a) { return n(IsLower_SL(a[0])) + n(IsUpper_SL(a[0])) + n(IsLower_SL(a[1])) + n(IsUpper_SL(a[1])); }, "1001"},
        {"IsUpper uncased or mixed", {"123", "Ba"}, [](Args &a) { return n(IsLower_SL(a[0])) + n(IsUpper_SL(a[0])) + n(IsLower_SL(a[1])) + n(IsUpper_SL(a[1])); }, "0000"},
        // Numbers (ICU's default locale in the test run uses "." and ",")
        {"IsLocaleInteger", {" -1,234 "}, [](Args &a) { return n(IsLocaleInteger_SL(a[0])) + n(IsLocaleFloat_SL(a[0])) + n(IsLocaleNumeric_SL(a[0])); }, "101"},
        {"IsLocaleFloat", {"+12.5e-3", ".5"}, [](Args &a) { return n(IsLocaleInteger_SL(a[0])) + n(IsLocaleFloat_SL(a[0])) + n(IsLocaleNumeric_SL(a[0])) + n(IsLocaleFloat_SL(a[1])); }, "0111"},
        {"IsLocaleNumeric bad", {"1.2.3", ",12", "-", "1e"}, [](Args &a) { return n(IsLocaleNumeric_SL(a[0])) + n(IsLocaleNumeric_SL(a[1])) + n(IsLocaleNumeric_SL(a[2])) + n(IsLocaleNumeric_SL(a[3])); }, "0000"},
        // Comparison
        {"Strcmp", {"abé", "abz"}, [](Args &a) { return n(Strcmp_SL(a[0], a[1])) + n(Strcmp_SL(a[1], a[0])); }, "1-1"},
        {"Strcmp prefix", {"日本", "日"}, [](Args &a) { return n(Strcmp_SL(a[0], a[1])); }, "1"},
        {"Strcmp null empty", {nullptr, ""}, [](Args &a) { return n(Strcmp_SL(a[0], a[1])); }, "0"},
        {"Strcmp supplementary", {"😀", "\xEF\xBD\xA1"}, [](Args &a) { return n(Strcmp_SL(a[0], a[1])); }, "1"},
        {"Strcomp", {"ÉCOLE", "école"}, [](Args &a) { return n(Strcomp_SL(a[0], a[1], -1, 0)) + n(Strcomp_SL(a[0], a[1], -1, 1) < 0); }, "01"},
        {"Strcomp n", {"abcX", "abcY"}, [](Args &a) { return n(Strcomp_SL(a[0], a[1], 3, 1)) + n(Strcomp_SL(a[0], a[1], 4, 1) < 0); }, "01"},
        {"Strcoll", {"é", "f"}, [](Args &a) { return n(Strcoll_SL(a[0], a[1])) + n(Strcmp_SL(a[0], a[1])); }, "-11"},
        {"Is_Like", {"héllo", "h_l%"}, [](Args &a) { return n(Is_Like_SL(a[0], a[1])); }, "1"},
        {"Is_Like underscore multibyte", {"日本", "__", "_"}, [](Args &a) { return n(Is_Like_SL(a[0], a[1])) + n(Is_Like_SL(a[0], a[2])); }, "10"},
        {"Is_Like empty or null pattern", {"a", "", nullptr}, [](Args &a) { return n(Is_Like_SL(a[0], a[1])) + n(Is_Like_SL(a[0], a[2])); }, "01"},
        {"Is_Like null text", {nullptr, "%"}, [](Args &a) { return n(Is_Like_SL(a[0], a[1])) + n(Is_Like_SL(a[0], nullptr)); }, "11"},
        {"Is_Like escape", {"a%b", "a\\%b"}, [](Args &a) { return n(Is_Like_SL(a[0], a[1])); }, "1"},
        {"CodePointToString", {}, [](Args &) {
             std::string r;
             for (auto [c, e] : {std::pair<int32_t, const QV_ENCODING_T *>{0x1F600, UTF16Encoding_L()}, {0xE9, Latin1Encoding_L()}, {0xD800, nullptr}, {0x65E5, Latin1Encoding_L()}}) {
                 QV_STRING_T o;
                 r += out_of(CodePointToString_SL(&o, c, e), 0);
             }
             return r;
         }, "😀|0é|0<null>|0<null>|0"},
    };
    return table;
}

struct EncodingMode {
    const char *name;
    const QV_ENCODING_T *(*encoding)();
    bool forced;
};

class EveryEncoding : public ::testing::TestWithParam<EncodingMode> {
  protected:
    void SetUp() override { qv::strlib::force_code_point_path = GetParam().forced; }
    void TearDown() override { qv::strlib::force_code_point_path = false; }
};

TEST_P(EveryEncoding, TableOfCases) {
    const QV_ENCODING_T *e = GetParam().encoding();
    int ran = 0;
    for (const Case &c : cases()) {
        auto held = [e](const char *utf8) { return holds(e, utf8); };
        if (!held(c.expected.c_str()) || !std::all_of(c.inputs.begin(), c.inputs.end(), held))
            continue;
        std::deque<Str> owned;
        Args args;
        for (const char *input : c.inputs) args.push_back(&owned.emplace_back(input, e));
        EXPECT_EQ(c.run(args), c.expected) << c.what << " in " << GetParam().name;
        ++ran;
    }
    EXPECT_GT(ran, 20);
}

INSTANTIATE_TEST_SUITE_P(Counted, EveryEncoding,
                         ::testing::Values(EncodingMode{"ASCII", ASCIIEncoding_L, false},
                                           EncodingMode{"Latin1", Latin1Encoding_L, false},
                                           EncodingMode{"UTF8", UTF8Encoding_L, false},
                                           EncodingMode{"UTF16", UTF16Encoding_L, false},
                                           EncodingMode{"UTF32", UTF32Encoding_L, false},
                                           EncodingMode{"UTF8Forced", UTF8Encoding_L, true},
                                           EncodingMode{"Latin1Forced", Latin1Encoding_L, true}),
                         [](const auto &info) { return std::string(info.param.name); });

} // namespace
