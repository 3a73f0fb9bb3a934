// scan.cpp - the light reading of the language's text (see scan.hpp).
#include "scan.hpp"

#include <algorithm>
#include <iterator>

namespace qvtool {
namespace {

bool word_character(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '@' || static_cast<unsigned char>(c) >= 0x80;
}

// The tokens that matter here, in text order.
class Scanner {
  public:
    enum Kind { End, Word, Open, Close, Semicolon, Assign, Other, Unclosed };
    explicit Scanner(std::string_view text) : text_(text) {}

    // The next token; its text is word() (for Word), its place begin()..end().
    Kind next() {
        skip_blanks_and_comments();
        begin_ = at_;
        if (at_ >= text_.size()) return End;
        const char c = text_[at_];
        if (c == '\'' || c == '"') return skip_quoted(c);
        if (c == '{' && at_ + 1 < text_.size() && text_[at_ + 1] == '$') return skip_quoted('}');
        if (c == '$') { // a variable: its name is no keyword
            ++at_;
            while (at_ < text_.size() && word_character(text_[at_])) ++at_;
            return Other;
        }
        if (word_character(c)) {
            while (at_ < text_.size() && word_character(text_[at_])) ++at_;
            return Word;
        }
        if (text_.compare(at_, 2, ":=") == 0) {
            at_ += 2;
            return Assign;
        }
        ++at_;
        return c == '(' ? Open : c == ')' ? Close : c == ';' ? Semicolon : Other;
    }
    std::string_view word() const { return text_.substr(begin_, at_ - begin_); }
    std::size_t begin() const { return begin_; }
    std::size_t end() const { return at_; }

  private:
    void skip_blanks_and_comments() {
        while (at_ < text_.size()) {
            if (text_.compare(at_, 2, "//") == 0) {
                const std::size_t line_end = text_.find('\n', at_);
                at_ = line_end == std::string_view::npos ? text_.size() : line_end;
            } else if (static_cast<unsigned char>(text_[at_]) <= ' ') {
                ++at_;
            } else {
                return;
            }
        }
    }
    // A text closed by `close`, where a doubled `close` stands for one.
    Kind skip_quoted(char close) {
        at_ += close == '}' ? 2 : 1;
        while (at_ < text_.size()) {
            if (text_[at_++] != close) continue;
            if (at_ < text_.size() && text_[at_] == close) {
                ++at_;
                continue;
            }
            return Other;
        }
        return Unclosed;
    }

    std::string_view text_;
    std::size_t at_ = 0, begin_ = 0;
};

// Block depth kept over words: BEGIN and CASE open (a CASE's own OF or BEGIN does not open
// another), END closes.
struct Blocks {
    int depth = 0;
    bool case_header = false;
    void word(std::string_view word) {
        if (word == "CASE") {
            ++depth;
            case_header = true;
        } else if (word == "OF" || word == "BEGIN") {
            if (!case_header && word == "BEGIN") ++depth;
            case_header = false;
        } else if (word == "END") {
            --depth;
        }
    }
};

void blank(std::string &text, std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i)
        if (text[i] != '\n') text[i] = ' ';
}

} // namespace

Openness openness(std::string_view text) {
    Openness open;
    Blocks blocks;
    Scanner scanner(text);
    for (Scanner::Kind kind; (kind = scanner.next()) != Scanner::End;) {
        if (kind == Scanner::Unclosed) open.quote = true;
        if (kind == Scanner::Open) ++open.parentheses;
        if (kind == Scanner::Close) --open.parentheses;
        if (kind == Scanner::Word) blocks.word(scanner.word());
    }
    open.blocks = blocks.depth;
    return open;
}

bool looks_like_statements(std::string_view text) {
    static constexpr std::string_view keywords[] = {"IF",    "CASE",   "WHILE",   "FOR",
                                                    "BEGIN", "RETURN", "FUNCTION"};
    Scanner scanner(text);
    Scanner::Kind kind = scanner.next();
    if (kind == Scanner::Word &&
        std::find(std::begin(keywords), std::end(keywords), scanner.word()) != std::end(keywords))
        return true;
    for (; kind != Scanner::End; kind = scanner.next())
        if (kind == Scanner::Assign || kind == Scanner::Semicolon) return true;
    return false;
}

std::vector<Statement> top_statements(std::string_view text) {
    static constexpr std::string_view keywords[] = {"FUNCTION", "IF",    "CASE",  "WHILE",
                                                    "FOR",      "BEGIN", "RETURN"};
    std::vector<Statement> statements;
    Scanner scanner(text);
    Blocks blocks;
    int parentheses = 0;
    std::size_t begin = 0, end = 0;       // of the statement being read; end == begin: none yet
    bool assigns = false, closed = false; // closed: its outermost block has just ended
    std::string first;
    auto finish = [&] {
        if (end > begin) {
            const bool keyword =
                std::find(std::begin(keywords), std::end(keywords), first) != std::end(keywords);
            statements.push_back({begin,
                                  keyword   ? first
                                  : assigns ? "assignment"
                                            : "call",
                                  text.substr(begin, end - begin)});
        }
        begin = end = 0;
        assigns = closed = false;
        first.clear();
    };
    for (Scanner::Kind kind; (kind = scanner.next()) != Scanner::End;) {
        const bool word = kind == Scanner::Word;
        if (closed && kind != Scanner::Semicolon && !(word && scanner.word() == "ELSE")) finish();
        closed = false;
        if (kind == Scanner::Semicolon && blocks.depth == 0 && parentheses == 0) {
            finish();
            continue;
        }
        if (end == begin) {
            begin = scanner.begin();
            first = word ? std::string(scanner.word()) : "";
        }
        end = scanner.end();
        parentheses += kind == Scanner::Open ? 1 : kind == Scanner::Close ? -1 : 0;
        assigns = assigns || (kind == Scanner::Assign && blocks.depth == 0);
        if (!word) continue;
        const int depth = blocks.depth;
        blocks.word(scanner.word());
        closed = depth > 0 && blocks.depth == 0;
    }
    finish();
    return statements;
}

ScriptParts split_declarations(std::string_view text) {
    ScriptParts parts{std::string(text), std::string(text), false};
    blank(parts.declarations, 0, text.size());
    Scanner scanner(text);
    Blocks blocks;
    bool statement_start = true;
    std::size_t declaration = std::string_view::npos; // where the one being read began
    bool opened = false;                              // its body's BEGIN was read
    auto take = [&](std::size_t end) {
        parts.declarations.replace(declaration, end - declaration,
                                   text.substr(declaration, end - declaration));
        blank(parts.statements, declaration, end);
        parts.has_declarations = true;
        declaration = std::string_view::npos;
    };
    for (Scanner::Kind kind; (kind = scanner.next()) != Scanner::End;) {
        const bool at_start = statement_start;
        statement_start = kind == Scanner::Semicolon && blocks.depth == 0;
        if (kind != Scanner::Word) continue;
        if (declaration == std::string_view::npos && at_start && blocks.depth == 0 &&
            scanner.word() == "FUNCTION") {
            declaration = scanner.begin();
            opened = false;
            continue;
        }
        blocks.word(scanner.word());
        opened = opened || blocks.depth > 0;
        if (declaration != std::string_view::npos && opened && blocks.depth == 0) {
            take(scanner.end());
            statement_start = true;
        }
    }
    if (declaration != std::string_view::npos) take(text.size());
    return parts;
}

} // namespace qvtool
