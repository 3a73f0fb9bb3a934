// express_statement.cpp - the statement parser (module "express"): statements read from the
// expression parser's tokens into a script's program of operations (express_script.hpp).
//
// The expression parser reads the token that ends an expression (";", END, ELSE, THEN, DO,
// OF, BEGIN, TO, DOWNTO or the end of the text). So every statement is parsed together
// with the token after it and returns that token's kind: a list of statements goes on
// after ";", a block ends at END, an IF takes an ELSE. Statements that end with a keyword
// of their own (a block's or a CASE's END) read the token after it themselves. A jump's
// target is filled in once the operation it leads to is emitted.
#define QV_MODULE "express"

#include <algorithm>

#include "core/raise.hpp"
#include "language/express_script.hpp"
#include "qv/message.h"

namespace {

using namespace qv::express;

// The tokens that may end a statement.
constexpr bool ends_statement(int32_t kind) {
    return kind == EXP_TOKEN_SEMICOLON || kind == EXP_TOKEN_END_KEYWORD || kind == EXP_TOKEN_ELSE ||
           kind == EXP_TOKEN_END;
}

// CASE labels are read with the comma, which the script mask leaves out.
constexpr int32_t label_mask = script_mask | EXP_MASK_COMMA;

class StatementParser {
  public:
    StatementParser(Parser &parser, ScriptProgram &program, const StatementOptions &options)
        : parser_(parser), program_(program), options_(options),
          limit_(std::clamp(recursion_limit, 0, EXP_MAX_NESTING)) {}

    // The statements to the end of the text; see parse_statements.
    bool script(uint32_t &ended_early) {
        const int32_t kind = list(0, 0);
        if (kind == EXP_TOKEN_END_KEYWORD) ended_early = ending_at_;
        return kind == EXP_TOKEN_END;
    }

  private:
    // ---- Lists and single statements

    // Statements separated by ";" up to END or the end of the text, whichever comes;
    // returns which (read), or 0 after a failure. ELSE where no IF takes it, and any other
    // token after a statement, fail.
    int32_t list(int32_t depth, uint32_t opened_at) {
        Token token;
        for (;;) {
            int32_t kind = next(script_mask, token);
            if (kind == EXP_TOKEN_SEMICOLON) continue;
            if (kind != EXP_TOKEN_END_KEYWORD && kind != EXP_TOKEN_END && kind != 0)
                kind = statement(token, depth);
            else
                ending_at_ = token.item.position;
            switch (kind) {
                case 0: return 0;
                case EXP_TOKEN_SEMICOLON: continue;
                case EXP_TOKEN_END_KEYWORD: return kind;
                case EXP_TOKEN_END:
                    if (depth > 0) return fail(QV_MSG_END_EXPECTED, ending_at_, {opened_at});
                    return kind;
                default: return fail(QV_MSG_STATEMENT_NOT_ENDED, ending_at_);
            }
        }
    }

    // The statement that `first` starts, with the token that ends it (its kind returned,
    // its position in ending_at_); 0 after a failure.
    int32_t statement(Token &first, int32_t depth) {
        if (depth > limit_) return fail(QV_MSG_RECURSION_LIMIT, first.item.position);
        switch (first.kind) {
            case EXP_TOKEN_VARIABLE: return assignment(first);
            case EXP_TOKEN_NAME: return call(first);
            case EXP_TOKEN_IF: return if_statement(depth + 1);
            case EXP_TOKEN_CASE: return case_statement(first.item.position, depth + 1);
            case EXP_TOKEN_WHILE: return while_statement(depth + 1);
            case EXP_TOKEN_FOR: return for_statement(first.item.position, depth + 1);
            case EXP_TOKEN_BEGIN: return block(first.item.position, depth + 1);
            case EXP_TOKEN_RETURN: return return_statement(first.item.position);
            default: return fail(QV_MSG_STATEMENT_EXPECTED, first.item.position);
        }
    }

    // The statement after THEN, ELSE, DO or a CASE branch's ":", which must be there.
    // `governed`: THEN, ELSE or DO (recorded for UpgradeScript_L).
    int32_t branch(int32_t depth, bool governed) {
        Token token;
        const int32_t kind = next(script_mask, token);
        if (kind == 0) return 0;
        if (ends_statement(kind)) return fail(QV_MSG_STATEMENT_EXPECTED, token.item.position);
        const uint32_t start = token.item.position;
        const int32_t ending = statement(token, depth);
        if (ending != 0 && governed && options_.branches != nullptr)
            options_.branches->push_back({start, ending_at_, depth, kind == EXP_TOKEN_BEGIN});
        return ending;
    }

    // After a keyword that closes a statement (END): the token that ends the statement.
    int32_t closed() {
        Token token;
        const int32_t kind = next(script_mask, token);
        ending_at_ = token.item.position;
        if (kind == 0 || ends_statement(kind)) return kind;
        return fail(QV_MSG_STATEMENT_NOT_ENDED, ending_at_);
    }

    // ---- Simple statements

    int32_t assignment(Token &variable) {
        Token token;
        const int32_t kind = next(script_mask, token);
        if (kind == 0) return 0;
        if (kind == EXP_TOKEN_OPEN)
            return fail(QV_MSG_VARIABLE_AS_PROCEDURE, variable.item.position);
        if (kind != EXP_TOKEN_ASSIGN) return fail(QV_MSG_ASSIGNMENT_EXPECTED, token.item.position);
        if (counting(variable.item))
            return fail(QV_MSG_LOOP_VARIABLE_ASSIGNED, variable.item.position,
                        {variable.item.display});
        Op op;
        op.kind = OpKind::assign;
        op.position = variable.item.position;
        const int32_t ending = value(op.expression);
        if (ending == 0) return 0;
        op.name = keep_name(variable.item);
        program_.emit(op);
        return ending;
    }

    // A statement starting with a name: a call.
    int32_t call(Token &name) {
        const Peek next_row = parser_.peek_row(script_mask);
        const int32_t next_kind = next_row.row != nullptr ? next_row.row->kind : 0;
        if (next_kind == EXP_TOKEN_ASSIGN)
            return fail(QV_MSG_NOT_ASSIGNABLE, name.item.position, {name.item.display});
        if (next_kind != EXP_TOKEN_OPEN) return fail(QV_MSG_ASSIGNMENT_EXPECTED, next_row.at);
        Op op;
        op.kind = OpKind::call;
        op.position = name.item.position;
        if ((op.expression = expression_record()) == nullptr) return 0;
        const int32_t before = parser_.item_count();
        if (!parser_.parse_call(name, script_mask, op.expression->items)) return 0;
        op.expression->item_count = parser_.item_count() - before;
        op.expression->mask = script_mask;
        program_.emit(op);
        return closed();
    }

    int32_t return_statement(uint32_t position) {
        Op op;
        op.kind = OpKind::return_value;
        op.position = position;
        EXPRESSION_T *expression = expression_record();
        if (expression == nullptr) return 0;
        const int32_t before = parser_.item_count();
        const int32_t ending = parser_.parse_expression(script_mask, expression->items);
        if (ending == 0) return 0;
        if (parser_.item_count() > before) {
            expression->item_count = parser_.item_count() - before;
            expression->mask = script_mask;
            op.expression = expression;
        } else if (options_.body) {
            return fail(QV_MSG_RETURN_NOT_ALLOWED, position);
        }
        ending_at_ = parser_.stop_position();
        program_.emit(op);
        return ending;
    }

    // ---- Control statements

    int32_t block(uint32_t begin_at, int32_t depth) {
        const int32_t kind = list(depth, begin_at);
        if (kind != EXP_TOKEN_END_KEYWORD) return kind;
        return closed();
    }

    int32_t if_statement(int32_t depth) {
        Op test;
        test.kind = OpKind::jump_unless;
        if (!condition(test.expression, EXP_TOKEN_THEN, "THEN")) return 0;
        const int32_t jump_unless = program_.emit(test);
        int32_t ending = branch(depth, true);
        if (ending == EXP_TOKEN_SEMICOLON) {
            const Peek next_row = parser_.peek_row(script_mask);
            if (next_row.row != nullptr && next_row.row->kind == EXP_TOKEN_ELSE) {
                if (options_.dropped != nullptr) options_.dropped->push_back(ending_at_);
                parser_.take_row(next_row);
                ending = EXP_TOKEN_ELSE;
            }
        }
        if (ending != EXP_TOKEN_ELSE) {
            program_.ops[jump_unless].target = program_.here();
            return ending;
        }
        const int32_t jump = program_.emit(Op{});
        program_.ops[jump_unless].target = program_.here();
        ending = branch(depth, true);
        program_.ops[jump].target = program_.here();
        return ending;
    }

    int32_t while_statement(int32_t depth) {
        const int32_t top = program_.here();
        Op test;
        test.kind = OpKind::jump_unless;
        if (!condition(test.expression, EXP_TOKEN_DO, "DO")) return 0;
        const int32_t jump_unless = program_.emit(test);
        const int32_t ending = branch(depth, true);
        if (ending == 0) return 0;
        Op back;
        back.target = top;
        program_.emit(back);
        program_.ops[jump_unless].target = program_.here();
        return ending;
    }

    int32_t for_statement(uint32_t position, int32_t depth) {
        Token variable, token;
        int32_t kind = next(script_mask, variable);
        if (kind == 0) return 0;
        if (kind != EXP_TOKEN_VARIABLE)
            return fail(QV_MSG_LOOP_VARIABLE_EXPECTED, variable.item.position);
        if (counting(variable.item))
            return fail(QV_MSG_LOOP_VARIABLE_ASSIGNED, variable.item.position,
                        {variable.item.display});
        if ((kind = next(script_mask, token)) == 0) return 0;
        if (kind != EXP_TOKEN_ASSIGN)
            return fail(QV_MSG_LOOP_MALFORMED, token.item.position, {"':='"});
        Op start;
        start.kind = OpKind::for_start;
        start.position = position;
        start.loop = program_.loops++;
        kind = loop_bound(start.expression, "a start value");
        if (kind == 0) return 0;
        if (kind != EXP_TOKEN_TO && kind != EXP_TOKEN_DOWNTO)
            return fail(QV_MSG_KEYWORD_EXPECTED, ending_at_, {"TO/DOWNTO"});
        start.downward = kind == EXP_TOKEN_DOWNTO;
        if ((kind = loop_bound(start.bound, "an end value")) == 0) return 0;
        if (kind != EXP_TOKEN_DO) return fail(QV_MSG_LOOP_MALFORMED, ending_at_, {"DO"});
        start.name = keep_name(variable.item);
        const int32_t first = program_.emit(start);
        loop_names_.push_back(start.name);
        const int32_t ending = branch(depth, true);
        loop_names_.pop_back();
        if (ending == 0) return 0;
        Op step = start;
        step.kind = OpKind::for_next;
        step.expression = step.bound = nullptr;
        step.target = first + 1;
        program_.emit(step);
        program_.ops[first].target = program_.here();
        return ending;
    }

    int32_t case_statement(uint32_t case_at, int32_t depth) {
        Op select;
        select.kind = OpKind::case_of;
        select.position = case_at;
        int32_t kind = value(select.expression);
        if (kind == 0) return 0;
        if (kind != EXP_TOKEN_OF && kind != EXP_TOKEN_BEGIN)
            return fail(QV_MSG_KEYWORD_EXPECTED, ending_at_, {"OF/BEGIN"});
        select.first_label = static_cast<int32_t>(program_.labels.size());
        const int32_t selector = program_.emit(select);
        qv::Vector<int32_t> exits;
        bool defaulted = false;
        Token token;
        for (;;) {
            if ((kind = next(label_mask, token)) == 0) return 0;
            if (kind == EXP_TOKEN_SEMICOLON) continue;
            if (kind == EXP_TOKEN_END_KEYWORD) break;
            if (kind == EXP_TOKEN_END)
                return fail(QV_MSG_END_EXPECTED, token.item.position, {case_at});
            if (defaulted) return fail(QV_MSG_CASE_DEFAULT_REPEATED, token.item.position);
            if (kind == EXP_TOKEN_DEFAULT) {
                defaulted = true;
                if ((kind = next(label_mask, token)) == 0) return 0;
                if (kind != EXP_TOKEN_COLON)
                    return fail(QV_MSG_CASE_COLON_EXPECTED, token.item.position);
                program_.ops[selector].target = program_.here();
            } else if (!labels(token, kind)) {
                return 0;
            }
            const int32_t ending = branch(depth, false);
            if (ending == EXP_TOKEN_END_KEYWORD) {
                break;
            } else if (ending == EXP_TOKEN_END) {
                return fail(QV_MSG_END_EXPECTED, ending_at_, {case_at});
            } else if (ending != EXP_TOKEN_SEMICOLON) {
                return ending == 0 ? 0 : fail(QV_MSG_STATEMENT_NOT_ENDED, ending_at_);
            }
            if (!defaulted) exits.push_back(program_.emit(Op{}));
        }
        Op &selected = program_.ops[selector];
        selected.labels = static_cast<int32_t>(program_.labels.size()) - selected.first_label;
        if (!defaulted) selected.target = program_.here();
        for (int32_t jump : exits) program_.ops[jump].target = program_.here();
        return closed();
    }

    // A branch's values, the first read into `token`, up to its ":"; each target is the
    // operation emitted next.
    bool labels(Token &token, int32_t kind) {
        for (;;) {
            uint32_t sign_at = token.item.position;
            bool negative = false;
            while (kind == EXP_TOKEN_OPERATOR && token.item.op->code == EXP_OP_SUBTRACT) {
                negative = !negative;
                if ((kind = next(label_mask, token)) == 0) return false;
            }
            if (kind != EXP_TOKEN_LITERAL)
                return fail(QV_MSG_CASE_BRANCH_EXPECTED, token.item.position) != 0;
            if (negative && !negate_literal(token.item.value))
                return fail(QV_MSG_NEGATED_NON_NUMBER, sign_at) != 0;
            Label label;
            label.value = token.item.value;
            label.target = program_.here();
            label.position = token.item.position;
            program_.labels.push_back(label);
            token.item.value = QV_VALUE_T{}; // the label owns the literal's payload now
            if ((kind = next(label_mask, token)) == 0) return false;
            if (kind == EXP_TOKEN_COLON) return true;
            if (kind != EXP_TOKEN_COMMA)
                return fail(QV_MSG_CASE_COLON_EXPECTED, token.item.position) != 0;
            if ((kind = next(label_mask, token)) == 0) return false;
        }
    }

    // ---- Expressions

    // An expression that must not be empty; returns the kind that ended it.
    int32_t value(EXPRESSION_T *&expression) {
        if ((expression = expression_record()) == nullptr) return 0;
        const int32_t before = parser_.item_count();
        const int32_t kind = parser_.parse_expression(script_mask, expression->items);
        if (kind == 0) return 0;
        ending_at_ = parser_.stop_position();
        if (parser_.item_count() == before) return fail(QV_MSG_OPERATOR_OUT_OF_PLACE, ending_at_);
        expression->item_count = parser_.item_count() - before;
        expression->mask = script_mask;
        return kind;
    }

    // A condition ended by `keyword`.
    bool condition(EXPRESSION_T *&expression, int32_t keyword, const char *spelt) {
        const int32_t kind = value(expression);
        if (kind == 0) return false;
        return kind == keyword || fail(QV_MSG_KEYWORD_EXPECTED, ending_at_, {spelt}) != 0;
    }

    // A loop's start or end, which must not be empty.
    int32_t loop_bound(EXPRESSION_T *&expression, const char *what) {
        if ((expression = expression_record()) == nullptr) return 0;
        const int32_t before = parser_.item_count();
        const int32_t kind = parser_.parse_expression(script_mask, expression->items);
        if (kind == 0) return 0;
        ending_at_ = parser_.stop_position();
        if (parser_.item_count() == before) return fail(QV_MSG_LOOP_MALFORMED, ending_at_, {what});
        expression->item_count = parser_.item_count() - before;
        expression->mask = script_mask;
        return kind;
    }

    // ---- Helpers

    int32_t next(int32_t mask, Token &token) { return parser_.next_token(mask, token); }

    int32_t fail(uint32_t number, uint32_t position,
                 std::initializer_list<PWParam> parameters = {}) {
        return parser_.fail(number, position, parameters);
    }

    EXPRESSION_T *expression_record() { return program_.new_expression(); }

    // Keeps a variable's item (its names) for the operation that assigns or counts it.
    int32_t keep_name(EXP_ITEM_T &item) {
        program_.names.push_back(item);
        item = EXP_ITEM_T{};
        return static_cast<int32_t>(program_.names.size()) - 1;
    }

    // True when a loop being parsed counts with the variable.
    bool counting(const EXP_ITEM_T &variable) const {
        return std::any_of(loop_names_.begin(), loop_names_.end(), [&](int32_t name) {
            return same_name(program_.names[static_cast<std::size_t>(name)].names[0],
                             variable.names[0]);
        });
    }

    Parser &parser_;
    ScriptProgram &program_;
    const StatementOptions &options_;
    int32_t limit_;
    uint32_t ending_at_ = 0;
    qv::Vector<int32_t> loop_names_;
};

} // namespace

namespace qv::express {

bool parse_statements(Parser &parser, ScriptProgram &program, const StatementOptions &options,
                      uint32_t &ended_early) {
    StatementParser statements(parser, program, options);
    return statements.script(ended_early);
}

} // namespace qv::express
