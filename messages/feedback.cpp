// feedback.cpp - feedback classes, trace selections, the log file, debug output and the
// interrupt flag.
//
// Data model. The class table is a vector in registration order; the index is the class
// number. Each entry holds its name (a heap copy, upper-cased), level, flags and whether it
// is active. The trace selections are the trimmed, non-empty items of the comma-separated
// trace setting, kept as heap texts in the order given; "*" sets the all-selected switch
// instead of being stored. A class is active when it has flag 8 or its name is selected.
//
// One text written to a class goes, by the class's flags and level:
//   - to the log file when one is open: the prefix "[%-10.10s - %s] " (flag 32), an empty
//     line first when a flag-64 write follows a write without flag 64, every "\n" written as
//     "\r\n", then a flush;
//   - to standard output when standard feedback is on and the class has flag 16, wrapped at
//     the feedback width (see wrap_lines);
//   - to standard error when the class's level is 2 or lower (errors) and no log file is
//     open, so that errors are never lost.
// Texts are formatted with VAsprintf_L into a tracked heap text that starts at 512 bytes.
// Writing allocates only to wrap a line or to end a text with its line feed, so the
// reports of the status-context machinery (feedback.hpp) are written without memory.
//
// Re-entry follows the one rule of core/except_report.hpp: a write, and the setting up of
// the tables, run inside a SpeakingScope, and the exported entry points write or change
// the tables only at speaking depth 0. So a raise traced or reported from inside the
// formatter, or a host's writer or pump that calls back into feedback, writes nothing
// here and cannot pull the tables from under a write.
//
// Interrupts: the requested flag is a volatile sig_atomic_t so that a signal handler may set
// it; the rest of the state is plain, one thread at a time.
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

#include "core/except_report.hpp"
#include "core/heap.hpp"
#include "core/raise.hpp"
#include "messages/feedback.hpp"
#include "qv/alloc.h"
#include "qv/encoding.h"
#include "qv/feedback.h"
#include "qv/platform.h"
#include "strings/utf.hpp"

// Exported through their declarations in feedback.h.
extern "C" {
const int32_t X_Error_FL = 0;
const int32_t X_Warning_FL = 1;
const int32_t X_Info_FL = 2;
const int32_t X_InfoS_FL = 3;
const int32_t X_Progress_FL = 4;
const int32_t X_Detail_FL = 5;
const int32_t X_Internal_FL = 6;
const int32_t X_User_FL = 7;
const int32_t X_Variable_FL = 8;
}

namespace qv {

// The text of the trace setting "TRACE_VALUES" as a heap text (caller frees), or null when
// it is not set. Read from the preference store until the expression language's variables
// can be asked.
char *trace_values_text() {
    return GetPreference_L("TRACE_VALUES");
}

} // namespace qv

namespace {

struct StandardClass {
    const char *name;
    uint8_t level;
    uint32_t flags;
};

// Registered in this order by InitialiseFeedback_L; the index is the exported X_..._FL.
constexpr StandardClass standard_classes[] = {
    {"Error", 2, 8},     {"Warning", 3, 88},  {"Info", 4, 24},
    {"Info_S", 4, 8},    {"Progress", 4, 48}, {"Detail", 4, 48},
    {"Internal", 4, 48}, {"User", 4, 48},     {"Variable", 4, 48},
};
static_assert(std::size(standard_classes) == 9);

constexpr int32_t default_width = 1024;
constexpr std::size_t output_buffer_start = 512;
constexpr uint8_t error_level = 2;
constexpr int32_t stdout_stream = 1;
constexpr int32_t stderr_stream = 2;

struct FeedbackClass {
    qv::HeapText name;
    uint8_t level;
    uint32_t flags;
    uint8_t active;
};

enum class LastWrite { nothing, plain, block };

struct FeedbackState {
    qv::Vector<FeedbackClass> classes;
    qv::Vector<qv::HeapText> selections;

    bool initialised = false;
    bool all_selected = false;
    bool standard_feedback = true;
    int32_t width = 0;

    qv::File file;
    qv::HeapText file_path;
    bool ascii_file = false;
    LastWrite last_write = LastWrite::nothing;

    QV_FEEDBACK_WRITER_T writer = nullptr;
    void *writer_context = nullptr;

    bool interrupts_active = false;
    bool interrupt_delivered = false;
    void (*pump)() = nullptr;
};

FeedbackState state;
volatile std::sig_atomic_t interrupt_requested = 0;

// Registered output buffer (tracked by the allocation table): *output_owner is the block.
void **output_owner = nullptr;

// True while another output of the library is under way (see the file comment).
bool quiet() {
    return qv::speaking_depth() > 0;
}

int32_t class_count() {
    return static_cast<int32_t>(state.classes.size());
}

// ---- selections -------------------------------------------------------------------------

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

bool same_name(const char *a, const char *b) {
    return strcasecmp(a, b) == 0;
}

// Appends one selection; false when an allocation failed (no context caught it).
bool add_selection(std::string_view item) {
    if (item == "*") {
        state.all_selected = true;
        return true;
    }
    qv::HeapText copy(QV_STRNDUP(item.data(), item.size()));
    if (copy == nullptr) return false;
    state.selections.push_back(std::move(copy));
    return true;
}

void read_selections() {
    state.selections.clear();
    state.all_selected = false;
    qv::HeapText setting(qv::trace_values_text());
    if (setting == nullptr) return;
    std::string_view rest(setting.get());
    while (true) {
        std::size_t comma = rest.find(',');
        std::string_view item = trim(rest.substr(0, comma));
        if (!item.empty() && !add_selection(item)) return;
        if (comma == std::string_view::npos) return;
        rest.remove_prefix(comma + 1);
    }
}

bool is_selected(const char *name) {
    if (state.all_selected) return true;
    if (name == nullptr) return false;
    return std::any_of(
        state.selections.begin(), state.selections.end(),
        [name](const qv::HeapText &selection) { return same_name(selection.get(), name); });
}

uint8_t class_activity(const FeedbackClass &entry) {
    return (entry.flags & QV_FEEDBACK_ALWAYS) != 0 || is_selected(entry.name.get()) ? 1 : 0;
}

// ---- class table ------------------------------------------------------------------------

int32_t find_class(const char *name) {
    for (int32_t i = 0; i < class_count(); ++i)
        if (same_name(state.classes[i].name.get(), name)) return i;
    return class_count();
}

char *upper_copy(const char *name) {
    char *copy = QV_STRDUP(name);
    if (copy == nullptr) return nullptr;
    for (char *c = copy; *c != '\0'; ++c)
        *c = static_cast<char>(std::toupper(static_cast<unsigned char>(*c)));
    return copy;
}

// Registers or updates a class; the initialisation check is the caller's. -1 on failure.
int32_t register_class(const char *name, uint8_t level, uint32_t flags) {
    int32_t number = find_class(name);
    if (number == class_count()) {
        qv::HeapText copy(upper_copy(name));
        if (copy == nullptr) return -1;
        state.classes.push_back(FeedbackClass{std::move(copy), level, flags, 0});
    }
    FeedbackClass &entry = state.classes[number];
    entry.level = level;
    entry.flags = flags;
    entry.active = class_activity(entry);
    return number;
}

const FeedbackClass *class_at(int32_t number) {
    return number >= 0 && number < class_count() ? &state.classes[number] : nullptr;
}

const FeedbackClass *active_class(int32_t number) {
    const FeedbackClass *entry = class_at(number);
    return entry != nullptr && (state.all_selected || entry->active) ? entry : nullptr;
}

// ---- writing ----------------------------------------------------------------------------

void emit(int32_t stream, std::string_view text) {
    if (text.empty()) return;
    if (state.writer != nullptr) {
        state.writer(stream, text.data(), text.size(), state.writer_context);
        return;
    }
    FILE *out = stream == stderr_stream ? stderr : stdout;
    std::fwrite(text.data(), 1, text.size(), out);
    std::fflush(out);
}

bool starts_character(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
}

// Byte offset just past the first `count` UTF-8 characters of `line` (or its size).
std::size_t offset_of_character(std::string_view line, int32_t count) {
    std::size_t offset = 0;
    for (int32_t seen = 0; offset < line.size(); ++offset) {
        if (starts_character(line[offset]) && seen++ == count) break;
    }
    return offset;
}

// Calls `each` with every line of `text` (without its "\n") and whether a "\n" ended it.
template <class Each>
void for_each_line(std::string_view text, Each &&each) {
    while (!text.empty()) {
        std::size_t end = text.find('\n');
        each(text.substr(0, end), end != std::string_view::npos);
        if (end == std::string_view::npos) return;
        text.remove_prefix(end + 1);
    }
}

bool needs_wrapping(std::string_view text, int32_t width) {
    bool longer = false;
    for_each_line(text, [&](std::string_view line, bool) {
        longer = longer || (line.size() > static_cast<std::size_t>(width) &&
                            offset_of_character(line, width) < line.size());
    });
    return longer;
}

// Wrap rule of standard output: each line (text up to a "\n") longer than `width` UTF-8
// characters is broken at the last space among its first width + 1 characters, the space
// itself dropped, so that no piece is longer than width; a piece with no such space (or
// only a leading one) is cut after exactly width characters. Pieces end with "\n"; a text
// that did not end with "\n" does not gain one.
qv::String wrap_lines(std::string_view text, int32_t width) {
    qv::String wrapped;
    wrapped.reserve(text.size() + text.size() / static_cast<std::size_t>(width) + 1);
    for_each_line(text, [&](std::string_view line, bool ended) {
        while (offset_of_character(line, width) < line.size()) {
            std::size_t limit = offset_of_character(line, width + 1);
            std::size_t space = line.substr(0, limit).rfind(' ');
            bool at_space = space != std::string_view::npos && space > 0;
            std::size_t cut = at_space ? space : offset_of_character(line, width);
            wrapped.append(line.substr(0, cut)).push_back('\n');
            line.remove_prefix(at_space ? cut + 1 : cut);
        }
        wrapped.append(line);
        if (ended) wrapped.push_back('\n');
    });
    return wrapped;
}

// Writes the text as the log file stores it: "\n" as "\r\n" (an existing "\r\n" kept), and
// in an ASCII file every byte above 127 as '?'. Runs of bytes that stay are written whole.
void write_file_form(FILE *file, std::string_view text) {
    std::size_t kept = 0; // start of the bytes not yet written
    char previous = '\0';
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool line_end = c == '\n' && previous != '\r';
        const bool masked = state.ascii_file && static_cast<unsigned char>(c) > 127;
        previous = c;
        if (!line_end && !masked) continue;
        std::fwrite(text.data() + kept, 1, i - kept, file);
        std::fputs(line_end ? "\r\n" : "?", file);
        kept = i + 1;
    }
    std::fwrite(text.data() + kept, 1, text.size() - kept, file);
    if (text.back() != '\n') std::fputs(text.back() == '\r' ? "\n" : "\r\n", file);
}

void write_to_file(const FeedbackClass *entry, std::string_view text) {
    FILE *file = state.file.get();
    uint32_t flags = entry ? entry->flags : 0;
    bool block = (flags & QV_FEEDBACK_BLOCK) != 0;
    if (block && state.last_write == LastWrite::plain) std::fputs("\r\n", file);
    if ((flags & QV_FEEDBACK_TIMESTAMP) != 0)
        std::fprintf(file, "[%-10.10s - %s] ", entry->name.get(), Time_L());
    write_file_form(file, text);
    std::fflush(file);
    state.last_write = block ? LastWrite::block : LastWrite::plain;
}

bool echoes(const FeedbackClass *entry) {
    return entry == nullptr || (entry->flags & QV_FEEDBACK_STDOUT) != 0;
}

// Writes one text for a class, or for debug output when `entry` is null; `echo` says
// whether it goes to standard output (when standard feedback is on). Every write is whole
// lines: a text that does not end with a line feed is given one, so that messages written
// with a plain "%s" stand on lines of their own. Debug output is not wrapped.
void write_text(const FeedbackClass *entry, std::string_view text, bool echo) {
    if (text.empty()) return;
    if (state.file != nullptr) write_to_file(entry, text);
    const bool to_output = state.standard_feedback && echo;
    const bool to_error = entry != nullptr && entry->level <= error_level && state.file == nullptr;
    if (!to_output && !to_error) return;
    qv::String ended;
    if (text.back() != '\n') {
        ended.reserve(text.size() + 1);
        ended.append(text).push_back('\n');
        text = ended;
    }
    const int32_t width = state.width > 0 ? state.width : default_width;
    if (to_output && entry != nullptr && needs_wrapping(text, width))
        emit(stdout_stream, wrap_lines(text, width));
    else if (to_output)
        emit(stdout_stream, text);
    if (to_error) emit(stderr_stream, text);
}

void write_text(const FeedbackClass *entry, std::string_view text) {
    write_text(entry, text, echoes(entry));
}

// The output buffer, registered and allocated on first use (again after Free_Alloc_Ptrs_L),
// emptied; null when registration or allocation failed without a context to catch it.
char *empty_output_buffer() {
    if (output_owner == nullptr) {
        Get_Alloc_Ptr_L(&output_owner);
        if (output_owner == nullptr) return nullptr;
    }
    if (*output_owner == nullptr) {
        *output_owner = QV_MALLOC(output_buffer_start);
        if (*output_owner == nullptr) return nullptr;
    }
    char *buffer = static_cast<char *>(*output_owner);
    buffer[0] = '\0';
    return buffer;
}

// Frees the output buffer but keeps its entry in the allocation table, so that repeated
// initialise / terminate cycles do not use up the table.
void release_output_buffer() {
    if (output_owner == nullptr) return;
    std::free(*output_owner);
    *output_owner = nullptr;
}

// Formats into the output buffer and writes; the caller has checked the speaking depth.
void format_and_write(const FeedbackClass *entry, const char *format, va_list arguments) {
    qv::SpeakingScope writing;
    char *text = empty_output_buffer();
    if (text == nullptr) return;
    text = VAsprintf_L(&text, format, arguments);
    if (text == nullptr) return;
    *output_owner = text;
    write_text(entry, text);
}

bool can_write(const char *format) {
    return format != nullptr && *format != '\0' && !quiet();
}

void ensure_initialised() {
    if (!state.initialised) InitialiseFeedback_L();
}

int32_t debug_write(const char *category, const char *format, va_list arguments) {
    ensure_initialised();
    if (!can_write(format) || !is_selected(category)) return -1;
    QV_C_ENTRY([&] { format_and_write(nullptr, format, arguments); });
    return 0;
}

// ---- log file ---------------------------------------------------------------------------

// True for the encodings the log file can be written in as ASCII; reports others.
bool log_encoding_is_ascii() {
    qv::HeapText encoding(GetPreference_L("QV_LOG_ENCODING"));
    const char *name = encoding.get();
    if (name == nullptr || *name == '\0' || same_name(name, "UTF-8") || same_name(name, "UTF8"))
        return false;
    if (same_name(name, "ASCII") || same_name(name, "US-ASCII")) return true;
    ErrFeedback_L("Log encoding '%s' is not supported; the log file is written in UTF-8\n", name);
    return false;
}

// `path` with its file-name part replaced by the preference QV_LOG_NAME when that is set.
qv::String log_file_name(const char *path) {
    qv::HeapText name(GetPreference_L("QV_LOG_NAME"));
    if (name == nullptr || *name == '\0') return path;
    std::string_view full(path);
    std::size_t slash = full.find_last_of("/\\");
    if (slash == std::string_view::npos) return name.get();
    qv::String renamed(full.substr(0, slash + 1));
    return renamed += name.get();
}

qv::String log_directory_path(const char *name) {
    qv::HeapText directory(GetPreference_L("QV_LOG_DIR"));
    qv::String path = directory ? directory.get() : "";
    while (path.size() > 1 && (path.back() == '/' || path.back() == '\\')) path.pop_back();
    if (!path.empty()) path.push_back('/');
    return path += name ? name : "";
}

// Opens the log file as SetFeedbackFile_L describes.
int32_t open_log_file(const char *path, int32_t append) {
    ensure_initialised();
    CloseFeedbackFile_L();
    if (path == nullptr || *path == '\0') {
        ErrFeedback_L("No log file name given; feedback goes to standard output only\n");
        return -1;
    }
    qv::String name = log_file_name(path);
    qv::File file(fopen8_L(name.c_str(), append ? "ab" : "wb")); // closed if a raise passes
    if (file == nullptr) {
        int error = errno;
        ErrFeedback_L("Cannot open the log file '%s': %s; feedback goes to standard output only\n",
                      name.c_str(), std::strerror(error));
        return -1;
    }
    qv::HeapText copy(QV_STRDUP(name.c_str()));
    if (copy == nullptr) return -1;
    state.file = std::move(file);
    state.file_path = std::move(copy);
    state.last_write = LastWrite::nothing;
    state.ascii_file = log_encoding_is_ascii();
    return 0;
}

const char *kind_word(char kind) {
    switch (kind) {
        case 'B': return "Build";
        case 'S': return "DimBuild";
        case 'J': return "Job";
        default: return "Unknown";
    }
}

// The name as it may stand in a file name: control characters (C0, DEL and C1), invalid
// UTF-8 (a '_' per byte) and the characters that paths or shells treat specially become '_'.
std::string printable_name(const char *name) {
    std::string out;
    std::string_view rest(name ? name : "");
    while (!rest.empty()) {
        int32_t c = 0;
        const auto length = static_cast<std::size_t>(qv::utf::decode_utf8(
            rest.data(), static_cast<int32_t>(std::min<std::size_t>(rest.size(), 4)), c, -1));
        if (c < 0) {
            out.push_back('_');
            rest.remove_prefix(1);
            continue;
        }
        const bool control = c < 0x20 || (c >= 0x7F && c <= 0x9F);
        if (control || (c < 0x80 && std::strchr("/\\:*?\"<>|", c) != nullptr))
            out.push_back('_');
        else
            out.append(rest.substr(0, length));
        rest.remove_prefix(length);
    }
    return out;
}

} // namespace

namespace qv {

bool write_report(int32_t feedback_class, std::string_view text) {
    ensure_initialised();
    const FeedbackClass *entry = active_class(feedback_class);
    if (entry == nullptr) return false;
    write_text(entry, text);
    return true;
}

bool debug_selected(const char *category) {
    ensure_initialised();
    return is_selected(category);
}

void write_debug(std::string_view text) {
    write_text(nullptr, text);
}

void write_reported_message(int32_t feedback_class, std::string_view text) {
    ensure_initialised();
    const FeedbackClass *entry = class_at(feedback_class);
    if (entry == nullptr || text.empty() || quiet()) return;
    const bool unseen = state.file == nullptr;
    if (!unseen && active_class(feedback_class) == nullptr) return;
    SpeakingScope writing;
    write_text(entry, text, echoes(entry) || unseen);
}

} // namespace qv

extern "C" {

// ---- classes and selections ---------------------------------------------------------------

QV_API void InitialiseFeedback_L(void) {
    if (state.initialised) return;
    QV_C_ENTRY([] {
        qv::SpeakingScope setting_up; // a failure reported meanwhile is written plainly
        read_selections();
        for (const StandardClass &standard : standard_classes)
            if (register_class(standard.name, standard.level, standard.flags) < 0) return;
        state.initialised = true;
    });
}

QV_API void ResetFeedbackSelections_L(void) {
    if (!state.initialised) {
        InitialiseFeedback_L();
        return;
    }
    if (quiet()) return;
    QV_C_ENTRY([] {
        read_selections();
        for (FeedbackClass &entry : state.classes) entry.active = class_activity(entry);
    });
}

QV_API int32_t RegisterFeedbackClass_L(const char *name, uint8_t level, uint32_t flags) {
    if (name == nullptr || *name == '\0') return -1;
    ensure_initialised();
    if (quiet()) return -1;
    int32_t number = -1;
    QV_C_ENTRY([&] { number = register_class(name, level, flags); });
    return number;
}

QV_API int32_t GetFeedbackClass_L(const char *name) {
    ensure_initialised();
    if (name == nullptr) return class_count();
    return find_class(name);
}

QV_API uint8_t IsActiveFeedback_L(int32_t feedback_class) {
    ensure_initialised();
    return active_class(feedback_class) != nullptr ? 1 : 0;
}

// ---- output -------------------------------------------------------------------------------

QV_API void VFeedback_L(int32_t feedback_class, const char *format, va_list arguments) {
    ensure_initialised();
    const FeedbackClass *entry = active_class(feedback_class);
    if (entry == nullptr || !can_write(format)) return;
    QV_C_ENTRY([&] { format_and_write(entry, format, arguments); });
}

QV_API void Feedback_L(int32_t feedback_class, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    VFeedback_L(feedback_class, format, arguments);
    va_end(arguments);
}

QV_API void Simple_Feedback_L(int32_t feedback_class, const char *text) {
    ensure_initialised();
    const FeedbackClass *entry = active_class(feedback_class);
    if (entry == nullptr || !can_write(text)) return;
    QV_C_ENTRY([&] {
        qv::SpeakingScope writing;
        write_text(entry, text);
    });
}

QV_API void ErrFeedback_L(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    VFeedback_L(X_Error_FL, format, arguments);
    va_end(arguments);
}

QV_API int32_t Debug_L(const char *category, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    int32_t result = debug_write(category, format, arguments);
    va_end(arguments);
    return result;
}

QV_API int32_t Debug_SQL_L(const char *sql_text) {
    return sql_text ? Debug_L("SQL", "%s\n", sql_text) : -1;
}

QV_API int32_t Debug_NativeSQL_L(const char *sql_text) {
    return sql_text ? Debug_L("ExecutedSQL", "%s\n", sql_text) : -1;
}

QV_API void SetStdFeedback_L(uint8_t on) {
    state.standard_feedback = on != 0;
}

QV_API void Set_Feedback_Width_L(int32_t width) {
    state.width = width > 0 ? width : 0;
}

QV_API void SetFeedbackWriter_L(QV_FEEDBACK_WRITER_T writer, void *context) {
    state.writer = writer;
    state.writer_context = writer ? context : nullptr;
}

// ---- log file -----------------------------------------------------------------------------

QV_API int32_t SetFeedbackFile_L(const char *path, int32_t append) {
    int32_t result = -1;
    QV_C_ENTRY([&] { result = open_log_file(path, append); });
    return result;
}

QV_API int32_t SetDefaultFeedbackFile_L(const char *name) {
    if (name == nullptr || *name == '\0') return SetFeedbackFile_L(name, 0);
    int32_t result = -1;
    QV_C_ENTRY([&] { result = open_log_file(log_directory_path(name).c_str(), 0); });
    return result;
}

QV_API void CloseFeedbackFile_L(void) {
    state.file.reset();
    state.file_path.reset();
    state.ascii_file = false;
    state.last_write = LastWrite::nothing;
}

QV_API char *FeedbackFilePath_L(void) {
    return state.file_path ? QV_STRDUP(state.file_path.get()) : nullptr;
}

// Each text is made by one formatter call on a null text, so a failed allocation that no
// context catches gives null rather than a partial text.
QV_API char *DefaultLogFileRoot_L(char kind, const char *name, int32_t number, uint8_t with_process,
                                  const char *suffix) {
    return QV_C_ENTRY([&]() -> char * {
        std::string printable = printable_name(name);
        long wide_number = number;
        char *root = nullptr;
        if (with_process == 0)
            return Asprintf_L(&root, "%s_%U_%04ld", kind_word(kind), printable.c_str(),
                              wide_number);
        return Asprintf_L(&root, "%s_%U_%04ld_%08lx%s", kind_word(kind), printable.c_str(),
                          wide_number, static_cast<unsigned long>(getpid()), suffix ? suffix : "");
    });
}

QV_API char *LogFilePath_L(char kind, const char *name, int32_t number) {
    qv::HeapText root(DefaultLogFileRoot_L(kind, name, number, 0, nullptr));
    if (root == nullptr) return nullptr;
    return QV_C_ENTRY([&]() -> char * {
        qv::String directory = log_directory_path(nullptr);
        char *path = nullptr;
        return Asprintf_L(&path, "%s%U.log", directory.c_str(), root.get());
    });
}

QV_API void TerminateFeedback_L(void) {
    if (quiet()) return;
    CloseFeedbackFile_L();
    release_output_buffer();
    state = FeedbackState{};
    interrupt_requested = 0;
}

// ---- interrupts ---------------------------------------------------------------------------

QV_API void InterruptsActive_L(uint8_t on) {
    state.interrupts_active = on != 0;
}

QV_API void Set_Interrupt_L(void) {
    interrupt_requested = 1;
}

QV_API void Clear_Interrupt_L(void) {
    interrupt_requested = 0;
    state.interrupt_delivered = false;
}

// 0 when inactive, nothing requested or already delivered; -1 on delivery (after raising
// INTERRUPT_PROCESS when `raise` is non-zero and no status context caught it).
QV_API int32_t Check_Interrupt_L(uint8_t raise) {
    if (!state.interrupts_active) return 0;
    if (state.pump != nullptr) state.pump();
    if (interrupt_requested == 0 || state.interrupt_delivered) return 0;
    state.interrupt_delivered = true;
    if (raise != 0) QV_RAISE(INTERRUPT_PROCESS);
    return -1;
}

QV_API void SetInterruptPump_L(void (*pump)(void)) {
    state.pump = pump;
}

} // extern "C"
