// express_script_edit.cpp - maintenance of script texts (module "express"):
// ForceCoreScriptResult_L, ReplaceInScript_L and UpgradeScript_L (qv/express.h says what
// each rewrites).
//
// Each works on the text token by token, through the tokenizer that parsing uses, so that
// quoted texts, double-quoted names and comments are never mistaken for what they spell.
// A rewrite is a list of edits (insert a text, or remove bytes, at a position) applied in
// one pass; the new text replaces the script's, and its parsed form is dropped.
#define QV_MODULE "express"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "core/raise.hpp"
#include "language/express_script.hpp"
#include "qv/message.h"

namespace {

using namespace qv::express;

constexpr int32_t edit_mask = script_mask | EXP_MASK_COMMA | EXP_MASK_PLACEHOLDER;

struct Edit {
    std::size_t position;
    int32_t order; // among edits at one position, the lower first
    std::size_t erase = 0;
    const char *insert = "";
};

// The text with the edits made.
qv::String edited(std::string_view text, qv::Vector<Edit> &edits) {
    std::stable_sort(edits.begin(), edits.end(), [](const Edit &a, const Edit &b) {
        return a.position != b.position ? a.position < b.position : a.order < b.order;
    });
    qv::String out;
    std::size_t done = 0;
    for (const Edit &edit : edits) {
        out.append(text.substr(done, edit.position - done)).append(edit.insert);
        done = edit.position + edit.erase;
    }
    out.append(text.substr(std::min(done, text.size())));
    return out;
}

// Replaces the script's text, dropping its parsed form. False after an allocation failure.
bool replace_text(EXPRESSION_T *script, const qv::String &text) {
    char *copy = QV_STRNDUP(text.data(), text.size());
    if (copy == nullptr) return false;
    std::free(script->text);
    script->text = copy;
    drop_program(script);
    return true;
}

// Calls `each` with every token of the text and the position after it; false when the
// text cannot be read as tokens (or `each` says stop).
template <class Each>
bool for_each_token(std::string_view text, Each &&each) {
    Parser parser(text, nullptr, 0, EXP_MAX_NESTING);
    Token token;
    for (;;) {
        const int32_t kind = parser.next_token(edit_mask, token);
        if (kind == 0) return false;
        if (kind == EXP_TOKEN_END) return true;
        if (!each(token, parser.position())) return false;
    }
}

// ---- ForceCoreScriptResult_L ---------------------------------------------------------------

// Where the expression a text holds starts and ends (its first and last tokens; `ended`
// when a ";" follows it). 1 when the text is one expression, 0 when it is statements or
// holds no token, -1 when it does not read as tokens.
struct Expression {
    std::size_t start = 0, end = 0;
    bool ended = false;
};

int32_t one_expression(std::string_view text, Expression &found) {
    bool statements = false, any = false;
    const bool read = for_each_token(text, [&](const Token &token, std::size_t end) {
        const bool keyword = token.kind >= EXP_TOKEN_IF && token.kind != EXP_TOKEN_SEMICOLON;
        if (found.ended || keyword) { // a token after ";", a statement keyword, ":=", ":"
            statements = true;
            return false;
        }
        if (!any) found.start = token.item.position;
        any = true;
        if (token.kind == EXP_TOKEN_SEMICOLON)
            found.ended = true;
        else
            found.end = end;
        return true;
    });
    if (statements) return 0;
    if (!read) return -1;
    return any && found.end > found.start ? 1 : 0;
}

int32_t force_result(EXPRESSION_T *script) {
    const std::string_view text(script->text);
    Expression found;
    const int32_t one = one_expression(text, found);
    if (one != 1) return one;
    qv::String rewritten("RETURN ");
    rewritten.append(text.substr(found.start, found.end - found.start));
    if (!found.ended) rewritten.append(";");
    rewritten.append(text.substr(found.end));
    return replace_text(script, rewritten) ? 1 : -1;
}

// ---- ReplaceInScript_L ---------------------------------------------------------------------

// True when the two items name the same variable, or the same name part by part.
bool same_reference(const EXP_ITEM_T &a, const EXP_ITEM_T &b) {
    if (a.kind != b.kind || a.name_count != b.name_count) return false;
    for (int32_t i = 0; i < a.name_count; ++i)
        if (!same_name(a.names[i], b.names[i])) return false;
    return true;
}

// The one variable or name `from` spells, into `wanted`; false for anything else.
bool reference_of(const char *from, Token &wanted) {
    int32_t tokens = 0;
    const bool read = for_each_token(from, [&](Token &token, std::size_t) {
        if (++tokens > 1 || (token.kind != EXP_TOKEN_VARIABLE && token.kind != EXP_TOKEN_NAME))
            return false;
        std::swap(wanted.item, token.item);
        wanted.kind = token.kind;
        return true;
    });
    return read && tokens == 1;
}

int32_t replace(EXPRESSION_T *script, const char *from, const char *to) {
    Token wanted;
    if (!reference_of(from, wanted)) return -1;
    const std::string_view text(script->text);
    qv::Vector<Edit> edits;
    const bool read = for_each_token(text, [&](const Token &token, std::size_t end) {
        if (token.kind == wanted.kind && same_reference(token.item, wanted.item))
            edits.push_back({token.item.position, 0, end - token.item.position, to});
        return true;
    });
    if (!read) return -1;
    if (edits.empty()) return 0;
    return replace_text(script, edited(text, edits)) ? static_cast<int32_t>(edits.size()) : -1;
}

// ---- UpgradeScript_L -----------------------------------------------------------------------

int32_t upgrade(EXPRESSION_T *script, const ExpFunction *const *tables, int32_t count) {
    qv::Vector<Branch> branches;
    qv::Vector<uint32_t> dropped;
    StatementOptions options;
    options.branches = &branches;
    options.dropped = &dropped;
    parse_script(
        script, tables, count, options, [](Parser &) { return true; }, "UpgradeScript_L");
    if (state_of(script)->program == nullptr) return -1;
    const std::string_view text(script->text);
    qv::Vector<Edit> edits;
    for (const Branch &branch : branches) {
        if (branch.block) continue;
        edits.push_back({branch.start, 0, 0, "BEGIN "});
        // END before the token that ended the statement, a blank on either side where
        // there is none.
        const bool blank_before =
            branch.end > 0 && std::isspace(static_cast<unsigned char>(text[branch.end - 1]));
        const bool closing = branch.end >= text.size() || text[branch.end] == ';';
        edits.push_back(
            {branch.end, -branch.depth, 0,
             closing ? (blank_before ? "END" : " END") : (blank_before ? "END " : " END ")});
    }
    for (uint32_t semicolon : dropped) edits.push_back({semicolon, 1, 1, ""});
    if (edits.empty()) return 0;
    const auto changes = static_cast<int32_t>(dropped.size() + (edits.size() - dropped.size()) / 2);
    return replace_text(script, edited(text, edits)) ? changes : -1;
}

// The common frame of the three: null checks, and a status context of their own.
template <class Body>
int32_t maintain(EXPRESSION_T *script, const char *context, Body &&body) {
    if (script == nullptr || script->text == nullptr) return -1;
    int32_t result = -1;
    qv::guarded(context, QV_MODULE, __LINE__, [&] { result = QV_C_ENTRY(body); });
    return result;
}

} // namespace

extern "C" {

QV_API int32_t ForceCoreScriptResult_L(EXPRESSION_T *script) {
    return maintain(script, "ForceCoreScriptResult_L", [&] { return force_result(script); });
}

QV_API int32_t ReplaceInScript_L(EXPRESSION_T *script, const char *from, const char *to) {
    if (from == nullptr || to == nullptr) return -1;
    return maintain(script, "ReplaceInScript_L", [&] { return replace(script, from, to); });
}

QV_API int32_t UpgradeScript_L(EXPRESSION_T *script, const ExpFunction *const *tables,
                               int32_t table_count) {
    return maintain(script, "UpgradeScript_L",
                    [&] { return upgrade(script, tables, table_count); });
}

} // extern "C"
