// express_script_edit_test.cpp - the maintenance of script texts: ForceCoreScriptResult_L,
// ReplaceInScript_L and UpgradeScript_L, as tables of texts before and after; an upgraded
// script runs as the original did, and upgrading it again changes nothing.
#include "express_script_support.hpp"

namespace qvtest {
namespace {

using Editing = ScriptTest;

struct Rewrite {
    const char *before;
    int32_t result;
    const char *after;
};

TEST_F(Editing, ForceCoreScriptResult) {
    const Rewrite rows[] = {
        {"$price * $qty", 1, "RETURN $price * $qty;"},
        {"Upper(name);", 1, "RETURN Upper(name);"},
        {"  If($a > 1, 'x', 'y')  // a derivation", 1,
         "RETURN If($a > 1, 'x', 'y');  // a derivation"},
        {"$x := 1", 0, "$x := 1"},
        {"F(1); G(2)", 0, "F(1); G(2)"},
        {"RETURN 1", 0, "RETURN 1"},
        {"IF $a THEN Exit(1)", 0, "IF $a THEN Exit(1)"},
        {"", 0, ""},
        {"// a comment only", 0, "// a comment only"},
        {"'open", -1, "'open"},
    };
    for (const Rewrite &row : rows) {
        Script script(row.before);
        EXPECT_EQ(ForceCoreScriptResult_L(script.get()), row.result) << row.before;
        EXPECT_STREQ(script->text, row.after);
    }
    SetVariable_L("a", "21", 0);
    Script derivation("$a * 2");
    ASSERT_EQ(Parse_Script_L(derivation.get(), nullptr, 0), 0) << "not a statement";
    EXPECT_THAT(messages(), ::testing::SizeIs(1));
    EXPECT_EQ(ForceCoreScriptResult_L(derivation.get()), 1);
    EXPECT_EQ(derivation.run(), "42");
    EXPECT_EQ(ForceCoreScriptResult_L(nullptr), -1);
}

TEST_F(Editing, ReplaceInScript) {
    struct Row {
        const char *before;
        const char *from;
        const char *to;
        int32_t result;
        const char *after;
    };
    const Row rows[] = {
        {"$x := $X + {$x}; RETURN 'x $x' // $x", "$x", "$total", 3,
         "$total := $total + $total; RETURN 'x $x' // $x"},
        {"$x := 1", "{$x}", "{$new name}", 1, "{$new name} := 1"},
        {"RETURN price * Price + price2 + $price", "price", "cost", 2,
         "RETURN cost * cost + price2 + $price"},
        {"RETURN Upper('a') & upper", "Upper", "Lower", 2, "RETURN Lower('a') & Lower"},
        {"RETURN orders.total + orders.totals + \"orders\".total", "orders.total", "o.t", 2,
         "RETURN o.t + orders.totals + o.t"},
        {"RETURN 1", "$x", "$y", 0, "RETURN 1"},
        {"RETURN 1", "1 + 2", "$y", -1, "RETURN 1"},
        {"RETURN 1", "$a $b", "$y", -1, "RETURN 1"},
        {"RETURN 1", "", "$y", -1, "RETURN 1"},
        {"RETURN 'open", "x", "y", -1, "RETURN 'open"},
    };
    for (const Row &row : rows) {
        Script script(row.before);
        EXPECT_EQ(ReplaceInScript_L(script.get(), row.from, row.to), row.result) << row.before;
        EXPECT_STREQ(script->text, row.after);
    }
    Script script("$a := 2; RETURN $a * 3");
    EXPECT_EQ(script.run(), "6");
    EXPECT_EQ(ReplaceInScript_L(script.get(), "$a", "$b"), 2);
    EXPECT_EQ(qv::express::state_of(script.get())->program, nullptr) << "parsed again";
    EXPECT_EQ(script.run(), "6");
    EXPECT_EQ(ReplaceInScript_L(script.get(), nullptr, "$y"), -1);
    EXPECT_EQ(ReplaceInScript_L(script.get(), "$b", nullptr), -1);
}

TEST_F(Editing, UpgradeScript) {
    const Rewrite rows[] = {
        {"IF $a THEN $x := 1; ELSE $x := 2", 3,
         "IF $a THEN BEGIN $x := 1 END ELSE BEGIN $x := 2 END"},
        {"IF $a THEN $x := 1 ELSE $x := 2;", 2,
         "IF $a THEN BEGIN $x := 1 END ELSE BEGIN $x := 2 END;"},
        {"WHILE $i < 3 DO $i := $i + 1; RETURN $i", 1,
         "WHILE $i < 3 DO BEGIN $i := $i + 1 END; RETURN $i"},
        {"IF $a THEN IF $b THEN $x := 1; ELSE $x := 2", 4,
         "IF $a THEN BEGIN IF $b THEN BEGIN $x := 1 END ELSE BEGIN $x := 2 END END"},
        {"FOR $i := 1 TO 2 DO IF $i = 2 THEN RETURN $i // last\nELSE $y := 0", 3,
         "FOR $i := 1 TO 2 DO BEGIN IF $i = 2 THEN BEGIN RETURN $i // last\nEND ELSE BEGIN "
         "$y := 0 END END"},
        {"BEGIN IF $a THEN Exit(1) END", 1, "BEGIN IF $a THEN BEGIN Exit(1) END END"},
        {"IF $a THEN BEGIN $x := 1 END; ELSE BEGIN $x := 2 END", 1,
         "IF $a THEN BEGIN $x := 1 END ELSE BEGIN $x := 2 END"},
        {"CASE $a OF 1: $x := 1 END", 0, "CASE $a OF 1: $x := 1 END"},
        {"", 0, ""},
    };
    for (const Rewrite &row : rows) {
        Script script(row.before);
        EXPECT_EQ(UpgradeScript_L(script.get(), nullptr, 0), row.result) << row.before;
        EXPECT_STREQ(script->text, row.after);
        EXPECT_EQ(UpgradeScript_L(script.get(), nullptr, 0), 0) << "again: " << row.after;
    }
    EXPECT_EQ(UpgradeScript_L(nullptr, nullptr, 0), -1);
    Script broken("IF $a THEN");
    expect_raise(GENERAL_ERROR, "express", [&] { UpgradeScript_L(broken.get(), nullptr, 0); });
    EXPECT_STREQ(broken->text, "IF $a THEN");
}

// The upgraded script gives what the original gave, for each value of its inputs.
TEST_F(Editing, UpgradedScriptsRunTheSame) {
    const char *texts[] = {
        "$r := ''; FOR $i := 1 TO $n DO IF Mod($i, 2) = 0 THEN $r := Concat($r, 'e'); ELSE "
        "$r := Concat($r, 'o'); RETURN $r",
        "$r := 0; WHILE $r < $n DO IF $r > 2 THEN $r := $r + 2 ELSE $r := $r + 1; RETURN $r",
        "IF $n > 1 THEN IF $n > 3 THEN RETURN 'big' ELSE RETURN 'middle'; RETURN 'small'",
    };
    for (const char *text : texts) {
        Script original(text), upgraded(text);
        ASSERT_GT(UpgradeScript_L(upgraded.get(), nullptr, 0), 0) << text;
        for (int n = 0; n <= 5; ++n) {
            SetVariable_L("n", std::to_string(n).c_str(), 0);
            EXPECT_EQ(upgraded.run(), original.run()) << upgraded->text << " n=" << n;
        }
    }
}

} // namespace
} // namespace qvtest
