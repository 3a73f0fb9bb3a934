// datatype.cpp - data types: the property table of the type codes, naming and printing
// types, parsing declarations such as NUMBER(10,2), printed widths, and the rules that
// merge two types into one that holds both (widening, arithmetic results, literals).
//
// The property table is constant data in a fixed order (name lookup, mask naming and
// mask resolution walk it from the top) ended by the "UNKNOWN" row of code 0. Every
// function takes descriptors by pointer; the value record and the exact-decimal record
// begin with a descriptor, so they are handed in the same way.
//
// Msgbuf8, the library's last-error text buffer, is defined here: the lowest floor that
// writes it.
#include "types/datatype.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>

#include <strings.h>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "qv/datatype.h"
#include "qv/precise.h"
#include "qv/qvstrlib.h"
#include "qv/textutil.h"
#include "types/precise.hpp"

extern "C" {
char Msgbuf8[QV_MSGBUF8_SIZE];
}

// The layouts hosts read.
static_assert(std::is_standard_layout_v<QV_VALUE_T> && std::is_trivially_copyable_v<QV_VALUE_T>);
static_assert(std::is_standard_layout_v<QV_DATATYPE_SPEC_T>);
static_assert(sizeof(QV_DATATYPE_T) == 16, "four 32-bit fields");
static_assert(offsetof(QV_ACCUMULATOR_T, used) + 1 == QV_ACCUMULATOR_BYTES,
              "the accumulator's significant bytes");
static_assert(offsetof(QV_VALUE_T, payload) == 16 && alignof(QV_PAYLOAD_T) == 8 &&
                  sizeof(QV_PAYLOAD_T) == (QV_ACCUMULATOR_BYTES + 7) / 8 * 8,
              "the payload is the accumulator's 34 bytes rounded to its alignment");
static_assert(offsetof(QV_VALUE_T, is_null) == 56 && offsetof(QV_VALUE_T, owns_payload) == 57 &&
              offsetof(QV_VALUE_T, eval_flags) == 58 && offsetof(QV_VALUE_T, eval_data) == 64 &&
              sizeof(QV_VALUE_T) == 72);

namespace {

constexpr int32_t kNone = -1;

constexpr std::array<QV_DATATYPE_SPEC_T, 18> kTypes = {{
    {QV_TYPE_CHAR, "CHAR", 1, 1, 0, 0, kNone, kNone},
    {QV_TYPE_INTEGER, "INTEGER", 1, 0, 0, 0, kNone, kNone},
    {QV_TYPE_FLOAT, "FLOAT", 1, 0, 0, 0, kNone, kNone},
    {QV_TYPE_NUMBER, "NUMBER", 1, 1, 1, 0, 77, 77},
    {QV_TYPE_DATE, "DATE", 1, 0, 0, 0, kNone, kNone},
    {QV_TYPE_DATE_TZ, "DATE WITH TIME ZONE", 1, 0, 0, 0, kNone, kNone},
    {QV_TYPE_BOOLEAN, "BOOLEAN", 1, 0, 0, 0, kNone, kNone},
    {QV_TYPE_ARRAY, "ARRAY", 1, 0, 0, 0, kNone, kNone},
    {QV_TYPE_LIST, "LIST", 0, 0, 0, 0, kNone, kNone},
    {QV_TYPE_POINTER, "POINTER", 0, 0, 0, 0, kNone, kNone},
    {QV_TYPE_BINARY, "BINARY", 1, 1, 0, 0, kNone, kNone},
    {QV_TYPE_CLOB, "CLOB", 1, 0, 0, 0, kNone, kNone},
    {QV_TYPE_BLOB, "BLOB", 1, 0, 0, 0, kNone, kNone},
    {QV_TYPE_INTERVAL_DS, "INTERVAL DAY TO SECOND", 1, 0, 0, 0, kNone, kNone},
    {QV_TYPE_INTERVAL_YM, "INTERVAL YEAR TO MONTH", 1, 0, 0, 0, kNone, kNone},
    {QV_TYPE_TIME, "TIME", 1, 0, 0, 0, kNone, kNone},
    {QV_TYPE_TIME_TZ, "TIME WITH TIME ZONE", 1, 0, 0, 0, kNone, kNone},
    {0, "UNKNOWN", 0, 0, 0, 0, kNone, kNone},
}};
constexpr const QV_DATATYPE_SPEC_T &kUnknown = kTypes.back();
// The rows of real types: every row but the terminator.
constexpr std::span<const QV_DATATYPE_SPEC_T> kRows{kTypes.data(), kTypes.size() - 1};

static_assert(kTypes[3].code == QV_TYPE_NUMBER && kTypes[4].code == QV_TYPE_DATE,
              "NUMBER comes before DATE: mask names follow the table");

qv::DateLiteralRecognizer date_literal_recognizer = nullptr;

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

bool same_name(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

const QV_DATATYPE_SPEC_T *declarable_named(std::string_view name) {
    for (const QV_DATATYPE_SPEC_T &row : kRows)
        if (row.declarable && same_name(name, row.name)) return &row;
    return nullptr;
}

} // namespace

void qv::install_date_literal_recognizer(DateLiteralRecognizer recognizer) {
    date_literal_recognizer = recognizer;
}

// ---------------------------------------------------------------------------------------
// Descriptors and the property table
// ---------------------------------------------------------------------------------------

extern "C" int32_t DataTypeProperties_L(uint32_t code, int32_t *max_precision, int32_t *max_scale) {
    int32_t precision = kNone, scale = kNone, result = 0;
    switch (code) {
        case QV_TYPE_CHAR:
        case QV_TYPE_BINARY: precision = 8000; break;
        case QV_TYPE_NUMBER: precision = scale = 77; break;
        case QV_TYPE_INTEGER:
        case QV_TYPE_FLOAT:
        case QV_TYPE_DATE:
        case QV_TYPE_BOOLEAN:
        case QV_TYPE_ARRAY:
        case QV_TYPE_INTERVAL_DS:
        case QV_TYPE_INTERVAL_YM:
        case QV_TYPE_TIME:
        case QV_TYPE_TIME_TZ:
        case QV_TYPE_DATE_TZ: break;
        default: result = -1;
    }
    if (max_precision != nullptr) *max_precision = precision;
    if (max_scale != nullptr) *max_scale = scale;
    return result;
}

extern "C" void InitDataType_L(QV_DATATYPE_T *desc) {
    if (desc != nullptr) *desc = {};
}

extern "C" QV_DATATYPE_T *SetDataType_L(QV_DATATYPE_T *desc, uint32_t type, int32_t precision,
                                        int32_t scale) {
    if (desc != nullptr) *desc = {type, precision, scale, 0};
    return desc;
}

extern "C" void CopyDataType_L(QV_DATATYPE_T *dest, const QV_DATATYPE_T *src) {
    if (dest != nullptr && src != nullptr) *dest = *src;
}

extern "C" const QV_DATATYPE_SPEC_T *GetDataTypeSpec_L(uint32_t code) {
    for (const QV_DATATYPE_SPEC_T &row : kRows)
        if (row.code == code) return &row;
    return &kUnknown;
}

extern "C" uint32_t DataType_L(const char *name) {
    if (name == nullptr) return 0;
    const QV_DATATYPE_SPEC_T *row = declarable_named(name);
    return row != nullptr ? row->code : 0;
}

// ---------------------------------------------------------------------------------------
// Names and declarations
// ---------------------------------------------------------------------------------------

extern "C" char *DataTypeName_L(uint32_t mask) {
    const QV_DATATYPE_SPEC_T *named[kRows.size()];
    size_t count = 0, length = 0;
    for (const QV_DATATYPE_SPEC_T &row : kRows)
        if ((row.code & mask) != 0) {
            named[count++] = &row;
            length += std::strlen(row.name) + 4; // with ", " or " or "
        }
    if (count == 0) return QV_STRDUP(kUnknown.name);
    auto *text = static_cast<char *>(QV_MALLOC(length + 1));
    if (text == nullptr) return nullptr;
    char *at = text;
    for (size_t i = 0; i < count; ++i) {
        const char *joint = i == 0 ? "" : i + 1 == count ? " or " : ", ";
        at += std::sprintf(at, "%s%s", joint, named[i]->name);
    }
    return text;
}

extern "C" char *DisplayDataType_L(const QV_DATATYPE_T *desc, uint8_t with_name) {
    if (desc == nullptr) return nullptr;
    const QV_DATATYPE_SPEC_T *row = GetDataTypeSpec_L(desc->type);
    if (!row->takes_precision && !row->takes_scale)
        return with_name ? QV_STRDUP(row->name) : nullptr;
    char text[64];
    int length = std::snprintf(text, sizeof text, "%s(", with_name ? row->name : "");
    if (row->takes_precision)
        length += std::snprintf(text + length, sizeof text - length, "%d", desc->precision);
    if (row->takes_scale)
        length += std::snprintf(text + length, sizeof text - length, ",%d", desc->scale);
    std::snprintf(text + length, sizeof text - length, ")");
    return QV_STRDUP(text);
}

namespace {

// A declaration's integer piece: an integer in the user's locale that the ordinary decimal
// conversion reads whole (so no group separators). Empty when it is not one; values past 32
// bits give INT32_MIN or INT32_MAX.
std::optional<int32_t> integer_piece(std::string_view piece) {
    if (piece.empty()) return std::nullopt;
    qv::String text(piece);
    QV_STRING_T counted{text.data(), nullptr};
    char *end = nullptr;
    long long value = std::strtoll(text.c_str(), &end, 10);
    if (!IsLocaleInteger_SL(&counted) || *end != '\0') return std::nullopt;
    return static_cast<int32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

int32_t parse_declaration(std::string_view text, QV_DATATYPE_T *desc) {
    size_t open = text.find('(');
    const QV_DATATYPE_SPEC_T *row = declarable_named(trim(text.substr(0, open)));
    if (row == nullptr) return QV_PARSE_TYPE_OK; // unknown: type 0
    if (open == std::string_view::npos) {
        if (row->takes_precision) return QV_PARSE_TYPE_SIZE_MISSING;
        SetDataType_L(desc, row->code, 0, 0);
        return QV_PARSE_TYPE_OK;
    }
    if (!row->takes_precision) return QV_PARSE_TYPE_NO_PRECISION;
    std::string_view inside = trim(text.substr(open + 1));
    if (inside.empty() || inside.back() != ')') return QV_PARSE_TYPE_NO_CLOSE;
    inside.remove_suffix(1);
    size_t comma = inside.find(',');
    std::optional<int32_t> precision = integer_piece(trim(inside.substr(0, comma)));
    if (!precision) return QV_PARSE_TYPE_BAD_PRECISION;
    if (*precision < 0 || *precision == INT32_MAX ||
        (row->max_precision != kNone && *precision > row->max_precision))
        return QV_PARSE_TYPE_PRECISION_RANGE;
    int32_t scale = 0;
    if (comma != std::string_view::npos) {
        if (!row->takes_scale) return QV_PARSE_TYPE_NO_SCALE;
        std::optional<int32_t> piece = integer_piece(trim(inside.substr(comma + 1)));
        if (!piece) return QV_PARSE_TYPE_BAD_SCALE;
        scale = *piece;
        if ((row->max_scale != kNone && scale > row->max_scale) ||
            (scale < 0 && -int64_t{scale} >= *precision))
            return QV_PARSE_TYPE_SCALE_RANGE;
    }
    SetDataType_L(desc, row->code, *precision, scale);
    return QV_PARSE_TYPE_OK;
}

} // namespace

extern "C" int32_t ParseVariableType_L(const char *text, QV_DATATYPE_T *desc) {
    InitDataType_L(desc);
    if (text == nullptr || desc == nullptr) return QV_PARSE_TYPE_OK;
    return QV_C_ENTRY([&] { return parse_declaration(text, desc); });
}

// ---------------------------------------------------------------------------------------
// Widths and resolution
// ---------------------------------------------------------------------------------------

namespace {

// Printed widths at least these, by type (the rest print their precision).
struct MinimumWidth {
    uint32_t type;
    int32_t width;
};
constexpr MinimumWidth kDateWidths[] = {
    {QV_TYPE_DATE, 31}, {QV_TYPE_INTERVAL_DS, 14}, {QV_TYPE_INTERVAL_YM, 14},
    {QV_TYPE_TIME, 19}, {QV_TYPE_TIME_TZ, 28},     {QV_TYPE_DATE_TZ, 40},
};

// The printed width of the date, time and interval types; 0 for other types.
int32_t date_width(uint32_t type) {
    for (const MinimumWidth &row : kDateWidths)
        if (row.type == type) return row.width;
    return 0;
}

} // namespace

extern "C" int32_t DataTypeAsChar_L(const QV_DATATYPE_T *desc) {
    if (desc == nullptr) return 0;
    const int32_t precision = desc->precision;
    switch (desc->type) {
        case QV_TYPE_INTEGER: return precision == 2 ? 6 : precision == 4 ? 11 : 20;
        case QV_TYPE_FLOAT: return 340;
        case QV_TYPE_NUMBER: return precision + 3;
        default:
            if (int32_t width = date_width(desc->type)) return std::max(precision, width);
            return precision == 0 ? 1 : precision;
    }
}

extern "C" QV_DATATYPE_T *MakeRealDataType_L(QV_DATATYPE_T *desc, uint8_t keep_zero_precision) {
    if (desc == nullptr) return nullptr;
    const QV_DATATYPE_SPEC_T *chosen = nullptr;
    for (const QV_DATATYPE_SPEC_T &row : kRows)
        if ((row.code & desc->type) != 0 && (chosen == nullptr || row.code > chosen->code))
            chosen = &row;
    if (chosen == nullptr) return nullptr;
    auto limit = [](int32_t value, int32_t maximum) {
        return maximum != kNone ? std::min(value, maximum) : value;
    };
    int32_t precision = chosen->takes_precision ? limit(desc->precision, chosen->max_precision) : 0;
    int32_t scale = chosen->takes_scale ? limit(desc->scale, chosen->max_scale) : 0;
    if (!keep_zero_precision && precision == 0 && chosen->max_precision != kNone)
        precision = chosen->max_precision;
    desc->type = chosen->code;
    desc->precision = precision;
    desc->scale = scale;
    return desc;
}

extern "C" uint8_t OverrideDataType_L(QV_DATATYPE_T *dest, const QV_DATATYPE_T *src) {
    if (dest == nullptr || src == nullptr || src->type == 0) return 0;
    int32_t old_width = DataTypeAsChar_L(dest);
    *dest = *src;
    if (dest->type == QV_TYPE_CHAR && dest->precision == 0) dest->precision = old_width;
    return 1;
}

extern "C" void CheapestDataType_L(QV_DATATYPE_T *desc) {
    if (desc == nullptr) return;
    if (desc->type == QV_TYPE_NUMBER) {
        auto precision = static_cast<uint32_t>(desc->precision);
        if (desc->scale <= 0 && precision < 19)
            *desc = {QV_TYPE_INTEGER, precision < 10 ? 4 : 0, 0, desc->extra};
        else if (precision <= 15)
            *desc = {QV_TYPE_FLOAT, 0, 0, desc->extra};
    }
    // Whatever width was chosen above, an INTEGER leaves with the default one.
    if (desc->type == QV_TYPE_INTEGER) desc->precision = 0;
}

// ---------------------------------------------------------------------------------------
// Widening
// ---------------------------------------------------------------------------------------

namespace {

constexpr int kNoRank = -1;

int rank(uint32_t type) {
    switch (type) {
        case QV_TYPE_BOOLEAN: return 1;
        case QV_TYPE_INTEGER: return 2;
        case QV_TYPE_FLOAT: return 3;
        case QV_TYPE_NUMBER: return 4;
        case QV_TYPE_CHAR: return 5;
        case QV_TYPE_BINARY: return 7;
        default: return date_width(type) != 0 ? 6 : kNoRank;
    }
}

// A side's precision and scale as the widening counts them.
struct Size {
    int32_t precision, scale;
};
Size counted(const QV_DATATYPE_T &desc, bool keep_precision) {
    if (!keep_precision) switch (desc.type) {
            case QV_TYPE_FLOAT: return {15, 6};
            case QV_TYPE_INTEGER: return {19, desc.scale};
            case QV_TYPE_BOOLEAN: return {1, desc.scale};
        }
    return {desc.precision, desc.scale};
}

// NUMBER(integer + scale, scale) within the NUMBER limits.
QV_DATATYPE_T number_type(int32_t integer, int32_t scale) {
    QV_PRECISE_T record;
    NewPrecise_L(&record, integer + scale, scale);
    return record.descriptor;
}

// The widening of two numeric types of different ranks.
void widen_numeric(QV_DATATYPE_T *best, QV_DATATYPE_T *winner, Size won, Size lost) {
    int32_t integer = std::max(won.precision - won.scale, lost.precision - lost.scale);
    int32_t scale = std::max(won.scale, lost.scale);
    switch (winner->type) {
        case QV_TYPE_NUMBER:
            *winner = number_type(integer, scale);
            best->precision = winner->precision;
            best->scale = winner->scale;
            break;
        case QV_TYPE_INTEGER: best->precision = won.precision; break;
        case QV_TYPE_FLOAT:
            winner->precision = best->precision = integer + scale;
            winner->scale = best->scale = scale;
            if (winner->precision >= 16) winner->type = QV_TYPE_NUMBER;
            break;
    } // a BOOLEAN cannot win: every other rank is higher
}

// best becomes CHAR long enough for the winner's text and the loser's.
void widen_to_char(QV_DATATYPE_T *best, int32_t length, const QV_DATATYPE_T &loser, Size lost) {
    int32_t least;
    switch (loser.type) {
        case QV_TYPE_FLOAT: least = 340; break;
        case QV_TYPE_INTEGER: least = 20; break;
        case QV_TYPE_NUMBER: least = lost.precision + 3; break;
        default: least = lost.precision;
    }
    best->type = QV_TYPE_CHAR;
    best->precision = std::max(length, least);
    best->scale = 0;
}

} // namespace

extern "C" void BestDataType_L(QV_DATATYPE_T *best, QV_DATATYPE_T *other, uint8_t keep_precision) {
    if (best == nullptr || other == nullptr || other->type == 0) return;
    if (best->type == 0) {
        *best = *other;
        return;
    }
    const int best_rank = rank(best->type), other_rank = rank(other->type);
    if (best_rank == kNoRank || other_rank == kNoRank) return;
    if (best_rank == other_rank) {
        int32_t integer = std::max(best->precision - best->scale, other->precision - other->scale);
        int32_t scale = std::max(best->scale, other->scale);
        if (best->type == QV_TYPE_NUMBER) {
            *best = number_type(integer, scale);
        } else {
            best->precision = integer + scale;
            best->scale = scale;
        }
        return;
    }
    const bool best_wins = best_rank > other_rank;
    QV_DATATYPE_T *winner = best_wins ? best : other;
    const QV_DATATYPE_T loser = best_wins ? *other : *best;
    const Size won = counted(*winner, keep_precision), lost = counted(loser, keep_precision);
    const int top = std::max(best_rank, other_rank);
    best->type = winner->type;
    if (top <= rank(QV_TYPE_NUMBER)) {
        widen_numeric(best, winner, won, lost);
    } else if (top == rank(QV_TYPE_DATE)) {
        winner->precision = date_width(winner->type);
        winner->scale = 0;
        widen_to_char(best, winner->precision, loser, lost);
    } else if (top == rank(QV_TYPE_CHAR)) {
        widen_to_char(best, winner->precision, loser, lost);
    } // BINARY: the type alone
}

extern "C" int32_t BestResultType_L(QV_PRECISE_T *result, QV_VALUE_T *left, QV_VALUE_T *right,
                                    char op) {
    if (result == nullptr || left == nullptr || right == nullptr) return -1;
    MakeRealDataType_L(&left->descriptor, 1);
    MakeRealDataType_L(&right->descriptor, 1);
    const uint32_t a = left->descriptor.type, b = right->descriptor.type;
    if (a != QV_TYPE_NUMBER && b != QV_TYPE_NUMBER) {
        uint32_t type = op == '/' ? QV_TYPE_FLOAT : std::max({QV_TYPE_INTEGER, a, b});
        SetDataType_L(&result->descriptor, type, 0, 0);
        return 0;
    }
    left->is_null = 0;
    right->is_null = 0;
    return PreciseCalculate_L(left, op, right, result, 0);
}

// ---------------------------------------------------------------------------------------
// Literals
// ---------------------------------------------------------------------------------------

extern "C" QV_DATATYPE_T *WhichDataType_L(const char *text, QV_DATATYPE_T *desc) {
    if (desc == nullptr) return nullptr;
    InitDataType_L(desc);
    int32_t length = 0;
    if (IsQuoted_L(text, &length)) return SetDataType_L(desc, QV_TYPE_CHAR, length, 0);
    if (text == nullptr) return SetDataType_L(desc, QV_TYPE_CHAR, 0, 0);
    if (strcasecmp(text, "NULL") == 0) return SetDataType_L(desc, QV_TYPE_CHAR, 1, 0);
    QV_VALUE_T number{};
    if (qv::precise::recognise_number(text, &number, true, nullptr, false) == 0 &&
        !number.is_null) {
        *desc = number.descriptor;
        return desc;
    }
    uint8_t flag = 0;
    if (date_literal_recognizer != nullptr && date_literal_recognizer(text, &flag)) {
        SetDataType_L(desc, QV_TYPE_DATE, 0, 0);
        desc->extra = flag;
        return desc;
    }
    return SetDataType_L(desc, QV_TYPE_CHAR, length, 0);
}
