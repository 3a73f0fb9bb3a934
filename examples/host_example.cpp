// host_example.cpp - a small host of the library, and the project's main job until the
// expression tool exists. It opens a status context, raises from nested calls (an object's
// destructor runs on the way out), lands in the handler, and builds a few formatted texts;
// then it tours the value system: an exact NUMBER beyond a double's digits, a date read from
// text and printed through a pattern, a conversion that truncates, and a row checksum.
#include <qv/qvcommon.h>

#include <cstdio>
#include <cstdlib>

namespace {

const char *const ROW_REJECTED = "ROW_REJECTED";

// Stands for a resource a C++ host holds while the library works.
struct Connection {
    const char *name;
    explicit Connection(const char *n) : name(n) { std::printf("  open %s\n", name); }
    ~Connection() { std::printf("  close %s (destructor ran)\n", name); }
};

void validate_row(int row) {
    if (row == 3) {
        std::printf("  row %d is bad: raising %s\n", row, ROW_REJECTED);
        except_raise(ROW_REJECTED, "host_example", __LINE__, 0, 0, nullptr);
    }
}

__attribute__((noinline)) void load_rows() {
    Connection target("target table");
    for (int row = 1; row <= 5; ++row) {
        validate_row(row);
        std::printf("  row %d loaded\n", row);
    }
}

void run_load() {
    volatile bool failed = false;
    except_start_context("run_load", "host_example", __LINE__);
    if (setjmp(Exc_Sp->jump_state) == 0)
        load_rows();
    else
        failed = true;
    Exc_Sp->in_handler = 1;
    if (failed) {
        std::printf("  handler: caught %s raised in '%s' at line %d\n", Exc_Raised_,
                    Exc_GetFile_L(), Exc_GetLine_L());
        LogExcError_L(); // collected in the message set of the message context
    }
    except_end_context("host_example", __LINE__);
}

// Text in Latin-1, measured and changed by characters, printed in UTF-8.
void show_counted_strings() {
    QV_STRING_T city;
    SetNull_SL(&city);
    AstrcpyE_SL(&city, "M\xFCnchen", LookupEncoding_L("latin1"));
    ToUpper_SL(&city);
    char *text = nullptr;
    Asprintf_L(&text, "%S has %d characters in %d bytes of %s", &city, Strlen_SL(&city),
               Bytelen_SL(&city, 0), city.encoding->name);
    std::printf("  %s\n", text);
    std::free(text);
    FreeString_SL(&city);
}

void show_formatting() {
    char *text = nullptr;
    Asprintf_L(&text, "[%-10.10s] %5d rows, checksum %08X", "Progress", 1234, 0xBEEFu);
    std::printf("  %s\n", text);
    std::free(text);
    text = nullptr;
    Asprintf_L(&text, "%s and %I64d", static_cast<const char *>(nullptr), INT64_MIN);
    std::printf("  %s\n", text);
    std::free(text);
}

// Prints a value's text form after a label.
void show_value(const char *label, const QV_VALUE_T &value) {
    char *text = ValueToChar_L(&value);
    std::printf("  %-28s %s\n", label, text != nullptr ? text : "NULL");
    std::free(text);
}

// Text read into NUMBER(30,9) and multiplied exactly; the same through doubles loses digits.
void show_exact_numbers() {
    QV_VALUE_T price{}, quantity{}, total{};
    QV_VALUE_T price_text{};
    SetTextValue_L(&price_text, "12345678901234567890.123456789", nullptr);
    NewPrecise_L(&price, 30, 9);
    ConvertValue_L(&price, &price_text, 0, 0);
    SetIntegerValue_L(&quantity, 3);
    PreciseCalculate_L(&price, '*', &quantity, &total, 1);
    show_value("price (NUMBER(30,9))", price);
    show_value("price x 3, exact", total);
    double approximate = 0;
    ValueToDouble_L(&price, &approximate);
    QV_VALUE_T as_float{};
    SetFloatValue_L(&as_float, approximate * 3);
    show_value("price x 3, as doubles", as_float);
    FreeValue_L(&price_text);
}

// A DATE read from text, moved to the end of its month and printed through a pattern.
void show_date() {
    QV_VALUE_T text{}, when{};
    SetTextValue_L(&text, "2024-02-10 17:45:00", nullptr);
    when.descriptor.type = QV_TYPE_DATE;
    ConvertValue_L(&when, &text, 0, 0);
    MonthEnds_L(&when, 0);
    char printed[80];
    InternalDateToChar_L(&when.payload.date, "Month ddth, yyyy hh12:mi pm", nullptr, printed,
                         sizeof printed);
    show_value("month end (text form)", when);
    std::printf("  %-28s %s\n", "through a pattern", printed);
    FreeValue_L(&text);
}

// A text converted into CHAR(7): cut, result 1; with no-truncate kept whole, still 1.
void show_truncation() {
    QV_VALUE_T source{}, cut{}, whole{};
    SetTextValue_L(&source, "Quillon data", nullptr);
    SetValueTypePrecScale_L(&cut, QV_TYPE_CHAR, 7, 0);
    SetValueTypePrecScale_L(&whole, QV_TYPE_CHAR, 7, 0);
    int32_t cut_result = ConvertValue_L(&cut, &source, 0, 0);
    int32_t whole_result = ConvertValue_L(&whole, &source, 0, 1);
    std::printf("  CHAR(7) from '%s': '%s' (result %d), no-truncate '%s' (result %d)\n",
                source.payload.string.text, cut.payload.string.text, cut_result,
                whole.payload.string.text, whole_result);
    FreeValue_L(&source);
    FreeValue_L(&cut);
    FreeValue_L(&whole);
}

// The checksum of a row: each column folded in order, starting from 0.
void show_row_checksum() {
    QV_VALUE_T row[4] = {};
    SetIntegerValue_L(&row[0], 1001);
    SetTextValue_L(&row[1], "M\xC3\xBCnchen", nullptr);
    SetFloatValue_L(&row[2], 2.5);
    row[3].descriptor.type = QV_TYPE_DATE;
    row[3].is_null = 1;
    uint32_t checksum = 0;
    for (const QV_VALUE_T &column : row) ChecksumValue_L(&column, &checksum);
    std::printf("  checksum of (1001, 'M\xC3\xBCnchen', 2.5, NULL): %08X\n", checksum);
    for (QV_VALUE_T &column : row) FreeValue_L(&column);
}

} // namespace

int main() {
    uint32_t messages = 0;
    InitMessages_L(&messages);
    std::printf("A raise from nested calls lands in the status context:\n");
    run_load();
    std::printf("The messages collected on the way:");
    ReportMessages_L(&messages, MESSAGE_SEVERITY_DEBUG);
    std::printf("Formatted texts:\n");
    show_formatting();
    std::printf("Counted strings:\n");
    show_counted_strings();
    std::printf("Values:\n");
    show_exact_numbers();
    show_date();
    show_truncation();
    show_row_checksum();
    TerminateMessages_L(nullptr);
    UnloadGlossaries_L();
    TerminateFeedback_L();
    Free_Alloc_Ptrs_L();
    return 0;
}
