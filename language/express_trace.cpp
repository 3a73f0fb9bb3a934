// express_trace.cpp - the trace file of expressions and scripts (module "express").
//
// The state is process-wide: the option bits, the open trace file, and whether the last
// line written is still open. `trace_active` holds the options while the file is open and
// 0 otherwise, so the evaluator tests one word before a call's trace line. Trace_L starts
// a new line (level 1) only after ending the open one, so the file holds no empty lines
// but those of its start and end marks.
#define QV_MODULE "express"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "core/heap.hpp"
#include "core/raise.hpp"
#include "language/express_eval.hpp"
#include "qv/alloc.h"
#include "qv/message.h"
#include "qv/platform.h"
#include "qv/qvvar.h"
#include "qv/textutil.h"

namespace qv::express {

uint32_t trace_active = 0;
int32_t trace_depth = 0;

} // namespace qv::express

namespace {

using namespace qv::express;

// The option names; the bit of a name is 1 shifted left by its place.
constexpr const char *kOptionNames[] = {"Basic", "Variable", "Builtin", "Datatype"};
static_assert(EXP_TRACE_BASIC == 1u << 0 && EXP_TRACE_VARIABLE == 1u << 1 &&
              EXP_TRACE_BUILTIN == 1u << 2 && EXP_TRACE_DATATYPE == 1u << 3);

struct TraceState {
    uint32_t options = 0;
    qv::File file;
    bool line_open = false;
} state;

void write(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), state.file.get());
}

// The option bit of one trimmed name, 0 for an unknown one.
uint32_t option_bit(std::string_view name) {
    for (std::size_t i = 0; i < std::size(kOptionNames); ++i) {
        const std::string_view known = kOptionNames[i];
        if (known.size() != name.size()) continue;
        bool same = true;
        for (std::size_t c = 0; c < name.size() && same; ++c)
            same = (known[c] | 0x20) == (name[c] | 0x20);
        if (same) return 1u << i;
    }
    return 0;
}

uint32_t parse_options(std::string_view list) {
    uint32_t options = 0;
    while (!list.empty()) {
        const std::size_t comma = list.find(',');
        std::string_view item = list.substr(0, comma);
        list = comma == std::string_view::npos ? std::string_view{} : list.substr(comma + 1);
        while (!item.empty() && (item.front() == ' ' || item.front() == '\t'))
            item.remove_prefix(1);
        while (!item.empty() && (item.back() == ' ' || item.back() == '\t')) item.remove_suffix(1);
        if (item == "*") return EXP_TRACE_ALL;
        options |= option_bit(item);
    }
    return options;
}

// The trace file's path: a bare name goes into the directory of QV_LOG_DIR.
qv::String trace_path(const char *file) {
    if (std::strchr(file, '/') != nullptr || std::strchr(file, '\\') != nullptr) return file;
    qv::HeapText directory(GetPreference_L("QV_LOG_DIR"));
    if (directory == nullptr || directory.get()[0] == '\0') return file;
    qv::String path(directory.get());
    if (path.back() != '/' && path.back() != '\\') path += '/';
    return path += file;
}

// A value as the trace writes it: quote, text, quote ("<NULL>" for NULL, "'" around the
// string types).
struct ShownValue {
    qv::HeapText text;
    const char *quote;
    explicit ShownValue(const QV_VALUE_T &value)
        : text(value.is_null != 0 ? nullptr : ValueToChar_L(&value)),
          quote(text != nullptr && (value.descriptor.type & (QV_TYPE_CHAR | QV_TYPE_CLOB)) != 0
                    ? "'"
                    : "") {}
    const char *shown() const { return text != nullptr ? text.get() : "<NULL>"; }
};

struct ShownType {
    qv::HeapText text;
    explicit ShownType(const QV_DATATYPE_T &type) : text(DisplayDataType_L(&type, 1)) {}
    const char *shown() const { return text != nullptr ? text.get() : ""; }
};

bool show_types() {
    return (trace_active & EXP_TRACE_DATATYPE) != 0;
}

} // namespace

namespace qv::express {

void trace_function_call(const EXP_CALL_FRAME_T &frame, const QV_VALUE_T &result) {
    Trace_L(1, trace_depth, "<==> %U( ", frame.function->name);
    if (show_types())
        for (int32_t i = 0; i < frame.argument_count; ++i) {
            const QV_VALUE_T &argument = *frame.arguments[i];
            const ShownValue value(argument);
            Trace_L(0, 0, "%sArgument%d %s %s%s%s", i > 0 ? ", " : "", i + 1,
                    ShownType(argument.descriptor).shown(), value.quote, value.shown(),
                    value.quote);
        }
    Trace_L(0, 0, " ) -> ");
    trace_value(result, show_types());
}

void trace_user_entry(const EXP_USER_FUNCTION_T &function, const EXP_CALL_FRAME_T &frame,
                      int32_t depth) {
    Trace_L(1, depth, "==> %U( ", frame.function->name);
    const VARIABLE_ARRAY_T *parameters = function.parameters;
    for (int32_t i = 0; i < frame.argument_count; ++i) {
        if (i > 0) Trace_L(0, 0, ", ");
        if (show_types() && parameters != nullptr && i < parameters->count) {
            const VARIABLE_T &parameter = *parameters->variables[i];
            const QV_DATATYPE_T &declared = parameter.value.descriptor;
            const bool text = declared.type == QV_TYPE_CHAR;
            Trace_L(0, 0, "%U %s ", parameter.name, text ? "CHAR" : ShownType(declared).shown());
        }
        const ShownValue value(*frame.arguments[i]);
        Trace_L(0, 0, "%s%s%s", value.quote, value.shown(), value.quote);
    }
    Trace_L(0, 0, " )");
}

void trace_user_return(const EXP_USER_FUNCTION_T &function, const QV_VALUE_T &result,
                       int32_t depth) {
    Trace_L(1, depth, "<== %U -> ", function.record->name);
    trace_value(result, show_types());
}

void trace_value(const QV_VALUE_T &value, bool typed) {
    if (typed) Trace_L(0, 0, "%s ", ShownType(value.descriptor).shown());
    const ShownValue shown(value);
    Trace_L(0, 0, "%s%s%s", shown.quote, shown.shown(), shown.quote);
}

} // namespace qv::express

extern "C" {

QV_API uint32_t SetTraceOptions_L(const char *options) {
    return QV_C_ENTRY([&] {
        state.options = 0;
        trace_active = 0;
        qv::HeapText from_variable;
        if (options == nullptr || options[0] == '\0') {
            const VARIABLE_T *variable = GetVariable_L("EXP_TRACE_VALUES", 0);
            if (variable != nullptr) from_variable.reset(ValueToChar_L(&variable->value));
            options = from_variable.get();
        }
        state.options = options != nullptr ? parse_options(options) : 0;
        if (state.file != nullptr) trace_active = state.options;
        return state.options;
    });
}

QV_API uint32_t GetTraceOptions_L(void) {
    return state.options;
}

QV_API int32_t TraceOn_L(const char *file, const char *options) {
    if (SetTraceOptions_L(options) == 0 || state.file != nullptr || file == nullptr ||
        file[0] == '\0')
        return 0;
    return QV_C_ENTRY([&] {
        const qv::String path = trace_path(file);
        qv::File opened(fopen8_L(path.c_str(), "ab"));
        if (opened == nullptr) {
            const int error = errno;
            PWMessage message(QV_MSG_TRACE_FILE_FAILED, MESSAGE_SEVERITY_WARNING);
            message << path.c_str() << std::strerror(error);
            LogMessage_L(&message);
            return -1;
        }
        state.file = std::move(opened);
        write("\n***** START TRACING ");
        const char *separator = "";
        for (std::size_t i = 0; i < std::size(kOptionNames); ++i)
            if ((state.options & (1u << i)) != 0) {
                write(separator);
                write(kOptionNames[i]);
                separator = ", ";
            }
        write(" *****\n");
        state.line_open = false;
        trace_active = state.options;
        trace_depth = 0;
        return 1;
    });
}

QV_API void TraceOff_L(void) {
    if (state.file != nullptr) {
        write("\n***** END TRACE *****\n");
        state.file.reset();
    }
    state.options = 0;
    trace_active = 0;
    state.line_open = false;
}

QV_API void Trace_L(int32_t level, int32_t depth, const char *format, ...) {
    if (state.file == nullptr || format == nullptr) return;
    if (level == 1) {
        if (state.line_open) write("\n");
        for (int32_t i = 0; i < depth; ++i) write("  ");
        state.line_open = true;
    }
    va_list arguments;
    va_start(arguments, format);
    qv::HeapText text;
    char *out = nullptr;
    text.reset(VAsprintf_L(&out, format, arguments));
    va_end(arguments);
    if (text != nullptr) write(text.get());
    state.line_open = true;
}

} // extern "C"
