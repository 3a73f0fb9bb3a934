// Precedence and associativity over generated expressions, checked against a reference: a
// plain recursive-descent parser of the same grammar (precedence climbing, one function per
// construct) written here from the language's rules, which renders the postfix form the
// parser's items must render to.
//
// The generator derives random texts from the grammar (operands of every kind, every binary
// operator, prefix NOT, runs of minus signs, calls with empty arguments, IN lists, BETWEEN,
// the fused NOT forms, parentheses), separated by random blanks and comments.
#include <random>
#include <string>
#include <vector>

#include "express_cases.hpp"

namespace {

using namespace qvtest;
using Tokens = std::vector<std::string>;

int precedence(const std::string &op) {
    if (op == "*" || op == "/" || op == "&") return 6;
    if (op == "+" || op == "-") return 5;
    if (op == "=" || op == "!=" || op == "<>" || op == "<" || op == ">" || op == "<=" ||
        op == ">=" || op == "IS" || op == "IN" || op == "LIKE" || op == "BETWEEN" || op == "NOT")
        return 4;
    if (op == "AND") return 2;
    if (op == "OR") return 1;
    return 0; // not a binary operator
}

// The reference parser: reads the generated tokens, writes the rendered postfix form.
class Reference {
  public:
    explicit Reference(const Tokens &tokens) : tokens_(tokens) {}
    std::string parse() {
        expression(1);
        return out_;
    }

  private:
    const std::string &peek(std::size_t ahead = 0) const {
        static const std::string end;
        return at_ + ahead < tokens_.size() ? tokens_[at_ + ahead] : end;
    }
    std::string next() { return tokens_[at_++]; }
    void emit(const std::string &word) { out_ += (out_.empty() ? "" : " ") + word; }

    // Operators of precedence >= `lowest` after an operand, each taking the operand before
    // it and an expression of higher precedence after it.
    void expression(int lowest) {
        operand();
        operators(lowest);
    }
    void operators(int lowest) {
        for (;;) {
            const int p = precedence(peek());
            if (p == 0 || p < lowest) return;
            std::string op = next();
            if (op == "NOT") op += " " + next(); // NOT IN, NOT LIKE, NOT BETWEEN
            if (op == "IS" && peek() == "NOT") op += " " + next();
            if (op.ends_with("IN")) {
                next(); // (
                int count = 0;
                do {
                    simple();
                    ++count;
                } while (next() == ",");
                operators(5); // what binds tighter applies to the last element
                emit(op + "/" + std::to_string(count));
            } else if (op.ends_with("BETWEEN")) {
                simple();
                next(); // AND
                simple();
                operators(5);
                emit(op + "/2");
            } else {
                expression(p + 1);
                emit(op);
            }
        }
    }
    void operand() {
        if (peek() == "NOT") {
            next();
            expression(4); // NOT takes everything that binds tighter than it
            emit("NOT");
            return;
        }
        bool odd = false;
        while (peek() == "-") {
            next();
            odd = !odd;
        }
        const std::string token = next();
        if (token == "(") {
            expression(1);
            next(); // )
            if (odd) emit("neg");
        } else if (peek() == "(") {
            next();
            int count = 0;
            if (peek() != ")") {
                for (;;) {
                    if (peek() == "," || peek() == ")")
                        emit("NULL");
                    else
                        expression(1);
                    ++count;
                    if (next() == ")") break;
                }
            } else {
                next();
            }
            emit((odd ? "-" : "") + token + "/" + std::to_string(count));
        } else {
            emit(literal_or_name(token, odd));
        }
    }
    void simple() {
        bool odd = false;
        while (peek() == "-") {
            next();
            odd = !odd;
        }
        emit(literal_or_name(next(), odd));
    }
    static std::string literal_or_name(const std::string &token, bool odd) {
        const bool number = token[0] >= '0' && token[0] <= '9';
        const std::string rendered =
            token.find('.') != std::string::npos && number ? token + "f" : token;
        return (odd ? "-" : "") + rendered;
    }

    const Tokens &tokens_;
    std::size_t at_ = 0;
    std::string out_;
};

// Random texts of the grammar.
class Generator {
  public:
    explicit Generator(uint32_t seed) : random_(seed) {}
    Tokens expression(int depth) {
        Tokens out;
        add_expression(out, depth);
        return out;
    }
    std::string text(const Tokens &tokens) {
        static const char *const blanks[] = {" ", "  ", "\t", "\n", " // note\n"};
        std::string out;
        for (const std::string &token : tokens)
            out += (out.empty() ? "" : blanks[pick(std::size(blanks))]) + token;
        return out;
    }

  private:
    std::size_t pick(std::size_t n) {
        return std::uniform_int_distribution<std::size_t>(0, n - 1)(random_);
    }
    template <std::size_t N>
    const char *one_of(const char *const (&words)[N]) {
        return words[pick(N)];
    }

    void add_expression(Tokens &out, int depth) {
        add_operand(out, depth);
        static const char *const binary[] = {"&", "+", "-",  "*",  "/",   "=",  "!=",   "<>",
                                             "<", ">", "<=", ">=", "AND", "OR", "LIKE", "IS"};
        for (std::size_t n = pick(4); n > 0; --n) {
            switch (pick(8)) {
                case 0: // [NOT] IN list
                    if (pick(2) == 0) out.push_back("NOT");
                    out.insert(out.end(), {"IN", "("});
                    for (std::size_t k = 1 + pick(3); k > 0; --k) {
                        add_simple(out);
                        out.push_back(k > 1 ? "," : ")");
                    }
                    break;
                case 1: // [NOT] BETWEEN
                    if (pick(2) == 0) out.push_back("NOT");
                    out.push_back("BETWEEN");
                    add_simple(out);
                    out.push_back("AND");
                    add_simple(out);
                    break;
                case 2:
                    out.insert(out.end(), {"IS", "NOT"});
                    add_operand(out, depth);
                    break;
                case 3:
                    out.insert(out.end(), {"NOT", "LIKE"});
                    add_operand(out, depth);
                    break;
                default: out.push_back(one_of(binary)); add_operand(out, depth);
            }
        }
    }
    void add_signs(Tokens &out) {
        for (std::size_t n = pick(4) == 0 ? 1 + pick(3) : 0; n > 0; --n) out.push_back("-");
    }
    void add_leaf(Tokens &out, bool signed_ok) {
        static const char *const names[] = {"a", "b", "x1", "\"q r\"", "t.col", "$v", "{$w z}"};
        static const char *const numbers[] = {"7", "42", "1.5", "99"};
        static const char *const others[] = {"'s'", "'It''s'", "NULL", "TRUE", "FALSE"};
        if (signed_ok) add_signs(out);
        const bool signs = !out.empty() && out.back() == "-";
        out.push_back(pick(3) == 0            ? one_of(numbers)
                      : pick(2) == 0 || signs ? one_of(names)
                                              : one_of(others));
    }
    void add_simple(Tokens &out) { add_leaf(out, true); }
    void add_operand(Tokens &out, int depth) {
        switch (depth > 0 ? pick(6) : 0) {
            case 0:
            case 1: add_leaf(out, true); return;
            case 2: // a parenthesis, perhaps negated
                add_signs(out);
                out.push_back("(");
                add_expression(out, depth - 1);
                out.push_back(")");
                return;
            case 3: // a call with 0..3 arguments, some empty
                add_signs(out);
                out.insert(out.end(), {"F", "("});
                for (std::size_t k = pick(4), i = 0; i < k; ++i) {
                    if (pick(5) != 0) add_expression(out, depth - 1);
                    out.push_back(i + 1 < k ? "," : ")");
                }
                if (out.back() == "(") out.push_back(")");
                return;
            case 4:
                out.push_back("NOT");
                add_operand(out, depth - 1);
                return;
            default: add_expression_in_parentheses(out, depth); return;
        }
    }
    void add_expression_in_parentheses(Tokens &out, int depth) {
        out.push_back("(");
        add_expression(out, depth - 1);
        out.push_back(")");
    }

    std::mt19937 random_;
};

using ReferenceTest = CaptureTest;

TEST_F(ReferenceTest, GeneratedExpressionsMatchTheReferenceParser) {
    Generator generate(20240611);
    int compared = 0;
    for (int i = 0; i < 3000; ++i) {
        const Tokens tokens = generate.expression(i % 4);
        const std::string text = generate.text(tokens);
        const std::string expected = Reference(tokens).parse();
        ASSERT_EQ(outcome(text, condition), expected) << text;
        ++compared;
    }
    EXPECT_EQ(compared, 3000);
}

// The reference itself, on the rules it encodes.
TEST(Reference, KnowsTheRules) {
    const std::pair<Tokens, const char *> cases[] = {
        {{"a", "&", "b", "+", "c"}, "a b & c +"},
        {{"a", "-", "b", "-", "c"}, "a b - c -"},
        {{"NOT", "a", "=", "b", "AND", "c"}, "a b = NOT c AND"},
        {{"-", "(", "a", ")", "*", "7"}, "a neg 7 *"},
        {{"x", "NOT", "IN", "(", "-", "7", ",", "b", ")"}, "x -7 b NOT IN/2"},
        {{"F", "(", ",", ")"}, "NULL NULL F/2"},
    };
    for (const auto &[tokens, expected] : cases) EXPECT_EQ(Reference(tokens).parse(), expected);
}

} // namespace
