// express.cpp - expression records and the parser's entry points (module "express").
//
// An entry point trims the text, opens its status context and runs one Parser over the
// text into the record's item list. What a failing parse appended is freed by an owner
// that a raise unwinds through, so the record is left with its text and no items whether
// the failure was reported here (GENERAL_ERROR after the logged message) or raised from
// below (ALLOC_FAILURE).
#define QV_MODULE "express"

#include "qv/express.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>

#include "core/raise.hpp"
#include "language/builtin.hpp"
#include "language/express.hpp"
#include "language/express_eval.hpp"
#include "qv/dataval.h"
#include "qv/message.h"
#include "qv/platform.h"
#include "qv/textutil.h"

static_assert(std::is_standard_layout_v<EXPRESSION_T> &&
              std::is_trivially_copyable_v<EXPRESSION_T>);
static_assert(std::is_standard_layout_v<EXP_ITEM_T> && std::is_trivially_copyable_v<EXP_ITEM_T>);
static_assert(std::is_standard_layout_v<EXP_TOKEN_T> && sizeof(EXP_TOKEN_T) == sizeof(char *) + 16,
              "text, kind, mask, operator code, word");
static_assert(std::is_standard_layout_v<OPERATOR_T> && offsetof(OPERATOR_T, operands) == 12,
              "code, class, precedence, operands");
static_assert(offsetof(EXP_ITEM_T, kind) == 0 && offsetof(EXP_ITEM_T, position) == 4 &&
                  offsetof(EXP_ITEM_T, names) < offsetof(EXP_ITEM_T, display) &&
                  offsetof(EXP_ITEM_T, display) < offsetof(EXP_ITEM_T, negate) &&
                  offsetof(EXP_ITEM_T, negate) < offsetof(EXP_ITEM_T, op) &&
                  offsetof(EXP_ITEM_T, op) < offsetof(EXP_ITEM_T, value) &&
                  offsetof(EXP_ITEM_T, value) < offsetof(EXP_ITEM_T, variable) &&
                  offsetof(EXP_ITEM_T, variable) < offsetof(EXP_ITEM_T, function),
              "kind, position, names, display, flags, operator, value, variable, function");

namespace qv::express {

int32_t recursion_limit = default_recursion_limit;
ParseError last_error;

namespace {
StateFreer statements_freer = nullptr;
} // namespace

void install_statements_freer(StateFreer freer) {
    statements_freer = freer;
}

int32_t read_recursion_limit() {
    HeapText preference(GetPreference_L("QV_MAX_RECURSION"));
    return preference != nullptr ? std::atoi(preference.get()) : default_recursion_limit;
}

void set_msgbuf(const char *text) {
    if (text == nullptr) text = "";
    std::size_t length = std::strlen(text);
    if (length >= QV_MSGBUF8_SIZE) {
        length = QV_MSGBUF8_SIZE - 1;
        while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) --length;
    }
    std::memmove(Msgbuf8, text, length);
    Msgbuf8[length] = '\0';
}

void release_frame(EXP_ITEM_T &item) {
    EXP_CALL_FRAME_T *frame = item.frame;
    if (frame == nullptr) return;
    std::free(frame->arguments);
    if (frame->argument_slots != nullptr) {
        for (int32_t i = 0; i < item.argument_count; ++i) FreeValue_L(&frame->argument_slots[i]);
        std::free(frame->argument_slots);
    }
    std::free(frame);
    item.frame = nullptr;
}

void release_item(EXP_ITEM_T &item) {
    if (item.owns_names != 0) std::free(item.names);
    if (item.value.owns_payload != 0) FreeValue_L(&item.value);
    release_frame(item);
}

void report_failure(std::string_view text, uint32_t position, bool ended_early) {
    const std::size_t at = std::min<std::size_t>(position, text.size());
    std::string marked;
    marked.reserve(text.size() + 3);
    marked.append(text.substr(0, at)).append(">>>").append(text.substr(at));
    PWMessage message(ended_early ? QV_MSG_PARSE_ENDED_EARLY : QV_MSG_PARSE_FAILED,
                      MESSAGE_SEVERITY_ERROR);
    message << position;
    if (ended_early) {
        message << marked;
        last_error = {QV_MSG_PARSE_ENDED_EARLY, position};
        set_msgbuf(VAMessage_L(&message));
    } else {
        message << Msgbuf8 << marked;
    }
    if (ErrorsSuppressed_L() == 0) LogMessage_L(&message);
}

} // namespace qv::express

namespace {

using qv::express::Parser;

// A script is an expression record; until the script layer installs its own freer, the
// registry and the variables free the scripts they hold as expressions.
[[maybe_unused]] const bool script_freer_installed =
    (qv::install_script_freer(Free_Expression_L), true);

void free_items(EXPRESSION_T *expression) {
    void *data = nullptr;
    for (QV_LIST_T *p = NextListItem_L(expression->items, &data); p != nullptr;
         p = NextListItem_L(p, &data))
        qv::express::release_item(*static_cast<EXP_ITEM_T *>(data));
    Free_List_L(expression->items);
    expression->item_count = 0;
}

// What the evaluator keeps: the result and the prepared form with its stacks.
void free_evaluation(EXPRESSION_T *expression) {
    FreeValue_L(&expression->result);
    qv::express::free_program(expression);
}

// The items a parse appends, freed unless the parse completes.
struct AppendedItems {
    EXPRESSION_T *expression;
    bool keep = false;
    explicit AppendedItems(EXPRESSION_T *owner) : expression(owner) {}
    AppendedItems(const AppendedItems &) = delete;
    ~AppendedItems() {
        if (!keep) free_items(expression);
    }
};

int32_t run_parse(EXPRESSION_T *expression, int32_t mask, const ExpFunction *const *tables,
                  int32_t table_count, Parser::Order order) {
    qv::express::recursion_limit = qv::express::read_recursion_limit();
    const int32_t nesting = std::clamp(qv::express::recursion_limit, 0, EXP_MAX_NESTING);
    const std::string_view text(expression->text);
    Parser parser(text, tables, table_count, nesting, order);
    AppendedItems appended{expression};
    const int32_t kind = parser.parse_expression(mask, expression->items);
    if (kind == EXP_TOKEN_END) {
        qv::express::last_error = {};
        if (parser.item_count() == 0) return 0; // blanks and comments only
        appended.keep = true;
        expression->mask = mask;
        expression->item_count = parser.item_count();
        return 1;
    }
    if (kind == 0 && parser.out_of_memory()) return 0; // raised and reported already
    qv::express::report_failure(
        text, kind == 0 ? qv::express::last_error.position : parser.stop_position(), kind != 0);
    QV_RAISE(GENERAL_ERROR);
    return 0;
}

// The entry points' common body: see Parse_Expression_L.
int32_t parse_entry(EXPRESSION_T *expression, int32_t mask, const ExpFunction *const *tables,
                    int32_t table_count, Parser::Order order, const char *context) {
    if (expression == nullptr) return 0;
    qv::express::last_error = {};
    free_evaluation(expression);
    if (expression->items != nullptr)
        free_items(expression);
    else if ((expression->items = Allocate_List_L()) == nullptr)
        return 0;
    if (expression->text == nullptr) return 0;
    TrimUtil8_L(expression->text, nullptr, QV_TRIM_BOTH);
    if (expression->text[0] == '\0') return 0;
    int32_t parsed = 0;
    qv::guarded(
        context, QV_MODULE, __LINE__,
        [&] {
            parsed =
                QV_C_ENTRY([&] { return run_parse(expression, mask, tables, table_count, order); });
        },
        [&](const char *raised) {
            if (raised != GENERAL_ERROR) {
                qv::express::last_error = {};
                qv::express::set_msgbuf(raised == ALLOC_FAILURE || raised == ZERO_ALLOC_FAILURE
                                            ? "not enough memory to parse the expression"
                                            : "the parse was stopped by a failure");
            }
            QV_RERAISE();
        });
    return parsed;
}

// ---- Explaining ------------------------------------------------------------------------

const char *kind_name(int32_t kind) {
    switch (kind) {
        case EXP_ITEM_OPERATOR: return "operator";
        case EXP_ITEM_LITERAL: return "literal";
        case EXP_ITEM_NAME: return "name";
        case EXP_ITEM_FUNCTION: return "call";
        case EXP_ITEM_VARIABLE: return "variable";
        default: return "token";
    }
}

// A literal as the language writes it, and its type.
void append_literal(qv::String &out, const QV_VALUE_T &value) {
    if (value.is_null != 0) {
        out += "NULL";
        return;
    }
    const uint32_t type = value.descriptor.type;
    if (type == QV_TYPE_BOOLEAN) {
        out += value.payload.boolean != 0 ? "TRUE" : "FALSE";
        return;
    }
    qv::HeapText text(ValueToChar_L(&value));
    const bool quoted = (type & (QV_TYPE_CHAR | QV_TYPE_CLOB | QV_TYPE_DATE | QV_TYPE_DATE_TZ |
                                 QV_TYPE_TIME | QV_TYPE_TIME_TZ)) != 0;
    if (quoted) out += '\'';
    for (const char *p = text != nullptr ? text.get() : ""; *p != '\0'; ++p) {
        if (quoted && *p == '\'') out += '\'';
        out += *p;
    }
    if (quoted) out += '\'';
    qv::HeapText declared(DisplayDataType_L(&value.descriptor, 1));
    if (declared != nullptr) (out += "  ") += declared.get();
}

void append_item(qv::String &out, const EXP_ITEM_T &item) {
    char head[32];
    std::snprintf(head, sizeof head, "%6u  %-8s  ", item.position, kind_name(item.kind));
    out += head;
    if (item.negate != 0) out += '-';
    if (item.kind == EXP_ITEM_LITERAL) {
        append_literal(out, item.value);
    } else if (item.display != nullptr) {
        out += item.display;
    }
    char tail[48] = "";
    if (item.kind == EXP_ITEM_FUNCTION)
        std::snprintf(tail, sizeof tail, "  %d argument%s", item.argument_count,
                      item.argument_count == 1 ? "" : "s");
    else if (item.kind == EXP_ITEM_OPERATOR && item.op != nullptr && item.op->operands != 1 &&
             item.argument_count > 0)
        std::snprintf(tail, sizeof tail, "  %d element%s", item.argument_count,
                      item.argument_count == 1 ? "" : "s");
    else if (item.kind == EXP_ITEM_NAME && item.value.descriptor.type == QV_TYPE_POINTER)
        std::snprintf(tail, sizeof tail, "  POINTER");
    (out += tail) += '\n';
}

} // namespace

extern "C" {

QV_API EXPRESSION_T *New_Expression_L(const char *text) {
    std::unique_ptr<EXPRESSION_T, qv::FreeDeleter> expression(
        static_cast<EXPRESSION_T *>(QV_CALLOC(sizeof(EXPRESSION_T))));
    if (expression == nullptr) return nullptr;
    qv::HeapText copy(text != nullptr ? QV_STRDUP(text) : nullptr);
    if (text != nullptr && copy == nullptr) return nullptr;
    if ((expression->items = Allocate_List_L()) == nullptr) return nullptr;
    expression->text = copy.release();
    return expression.release();
}

QV_API int32_t Parse_Expression_L(EXPRESSION_T *expression, int32_t mask,
                                  const ExpFunction *const *tables, int32_t table_count) {
    return parse_entry(expression, mask, tables, table_count, Parser::Order::postfix,
                       "Parse_Expression_L");
}

QV_API int32_t Simple_Parse_Expression_L(EXPRESSION_T *expression, int32_t mask,
                                         const ExpFunction *const *tables, int32_t table_count) {
    return parse_entry(expression, mask, tables, table_count, Parser::Order::text,
                       "Simple_Parse_Expression_L");
}

QV_API void Free_Expression_L(EXPRESSION_T *expression) {
    if (expression == nullptr) return;
    free_evaluation(expression);
    if (expression->statements != nullptr && qv::express::statements_freer != nullptr)
        qv::express::statements_freer(expression);
    if (expression->items != nullptr) free_items(expression);
    Deallocate_List_L(&expression->items);
    std::free(expression->text);
    std::free(expression);
}

QV_API void Cleanup_Expression_L(EXPRESSION_T *expression) {
    if (expression == nullptr || expression->depth > 0) return;
    void *data = nullptr;
    for (QV_LIST_T *p = NextListItem_L(expression->items, &data); p != nullptr;
         p = NextListItem_L(p, &data)) {
        auto *item = static_cast<EXP_ITEM_T *>(data);
        if (item->kind == EXP_ITEM_FUNCTION) qv::express::release_frame(*item);
    }
    qv::express::free_program(expression);
}

QV_API uint32_t GetExpressionError_L(uint32_t *position) {
    if (position != nullptr) *position = qv::express::last_error.position;
    return qv::express::last_error.number;
}

QV_API char *ExplainExpression_L(const EXPRESSION_T *expression) {
    if (expression == nullptr) return nullptr;
    return QV_C_ENTRY([&]() -> char * {
        qv::String out;
        void *data = nullptr;
        for (QV_LIST_T *p = NextListItem_L(expression->items, &data); p != nullptr;
             p = NextListItem_L(p, &data))
            append_item(out, *static_cast<const EXP_ITEM_T *>(data));
        return QV_STRNDUP(out.data(), out.size());
    });
}

} // extern "C"
