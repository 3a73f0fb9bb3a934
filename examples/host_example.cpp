// host_example.cpp - a small host of the library, and the project's main job until the
// expression tool exists. It opens a status context, raises from nested calls (an object's
// destructor runs on the way out), lands in the handler, and builds a few formatted texts.
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
    TerminateMessages_L(nullptr);
    UnloadGlossaries_L();
    TerminateFeedback_L();
    Free_Alloc_Ptrs_L();
    return 0;
}
