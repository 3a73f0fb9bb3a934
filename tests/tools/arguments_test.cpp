// arguments_test.cpp - bindings, derivations and delimiters as the commands check them, and
// the progress bar's text.
#include <gtest/gtest.h>

#include <string>

#include "arguments.hpp"
#include "progress.hpp"

namespace {

using namespace qvtool;

TEST(Arguments, Bindings) {
    const struct {
        const char *option, *text;
        std::string error, name, value;
        std::uint32_t type;
        bool typed;
    } cases[] = {
        {"--bind", "x=42", "", "x", "42", QV_TYPE_INTEGER, false},
        {"--bind", "price:NUMBER(10,2)=12.5", "", "price", "12.5", QV_TYPE_NUMBER, true},
        {"--bind", "order.date=2024-03-15", "", "order.date", "2024-03-15", QV_TYPE_DATE, false},
        {"--bind", "s=a=b:c", "", "s", "a=b:c", QV_TYPE_CHAR, false},
        {"--bind", "empty=", "", "empty", "", 0, false}, // NULL, of no type
        {"--var", "$n:FLOAT=1", "", "n", "1", QV_TYPE_FLOAT, true},
        {"--var", " _x =1", "", "_x", "1", QV_TYPE_INTEGER, false},
        {"--bind", "x", "--bind 'x': expected NAME[:TYPE]=VALUE", "", "", 0, false},
        {"--bind", "=1", "--bind '=1': '' is not a name", "", "", 0, false},
        {"--bind", "$x=1", "--bind '$x=1': '$x' is not a name", "", "", 0, false},
        {"--bind", "1x=1", "--bind '1x=1': '1x' is not a name", "", "", 0, false},
        {"--var", "x:NUMBER=1",
         "--var 'x:NUMBER=1': 'NUMBER': NUMBER needs a size, as in NUMBER(10,2)", "", "", 0, false},
        {"--var", "x:=1", "--var 'x:=1': '': unknown type", "", "", 0, false},
    };
    for (const auto &c : cases) {
        Binding binding{};
        EXPECT_EQ(parse_binding(c.option, c.text, binding), c.error) << c.text;
        if (!c.error.empty()) continue;
        EXPECT_EQ(binding.name, c.name) << c.text;
        EXPECT_EQ(binding.value, c.value) << c.text;
        EXPECT_EQ(binding.type.type, c.type) << c.text;
        EXPECT_EQ(binding.typed, c.typed) << c.text;
    }
}

TEST(Arguments, Derivations) {
    Derivation derivation;
    EXPECT_EQ(parse_derivation(" total := price * qty ", derivation), "");
    EXPECT_EQ(derivation.name, "total");
    EXPECT_EQ(derivation.expression, "price * qty");
    EXPECT_EQ(parse_derivation("t:=a:=b", derivation), "");
    EXPECT_EQ(derivation.expression, "a:=b");
    EXPECT_EQ(parse_derivation("total = 1", derivation),
              "-e 'total = 1': expected NAME := EXPRESSION");
    EXPECT_EQ(parse_derivation("total :=  ", derivation),
              "-e 'total :=  ': expected NAME := EXPRESSION");
    EXPECT_EQ(parse_derivation("unit price := 1", derivation),
              "-e 'unit price := 1': 'unit price' is not a name");
}

TEST(Arguments, Delimiters) {
    const struct {
        const char *text;
        char delimiter;
        std::string error;
    } cases[] = {
        {";", ';', ""},
        {"\\t", '\t', ""},
        {"tab", '\t', ""},
        {"\x1f", '\x1f', ""},
        {"", 0, "--delimiter '': the delimiter is one byte"},
        {"ab", 0, "--delimiter 'ab': the delimiter is one byte"},
        {"\xC2\xA7", 0, "--delimiter '\xC2\xA7': the delimiter is one byte"},
        {"\"", 0, "--delimiter: a quote, CR or LF cannot be the delimiter"},
        {"\n", 0, "--delimiter: a quote, CR or LF cannot be the delimiter"},
    };
    for (const auto &c : cases) {
        char delimiter = 0;
        EXPECT_EQ(parse_delimiter(c.text, delimiter), c.error) << c.text;
        EXPECT_EQ(delimiter, c.delimiter) << c.text;
    }
}

TEST(Progress, BarText) {
    EXPECT_EQ(render_progress(0, 274'000'000, 0, 0),
              "[>                       ]   0%  0 B of 274.0 MB  0 rows/s  -:-- left");
    EXPECT_EQ(render_progress(104'900'000, 274'000'000, 1'250'000, 1.0),
              "[=========>              ]  38%  104.9 MB of 274.0 MB  1.25M rows/s  0:02 left");
    EXPECT_EQ(render_progress(1'500, 3'000, 950, 500.0),
              "[============>           ]  50%  1.5 kB of 3.0 kB  2 rows/s  8:20 left");
    EXPECT_EQ(render_progress(1'000'000'000, 4'000'000'000, 12'300, 1200.0),
              "[======>                 ]  25%  1.0 GB of 4.0 GB  10 rows/s  1:00:00 left");
    EXPECT_EQ(render_progress(600, 500, 12'345, 1.0),
              "[========================] 100%  600 B of 500 B  12.3k rows/s  0:00 left");
}

} // namespace
