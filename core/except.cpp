// except.cpp - the status-context stack and the raise.
//
// Contexts are heap records linked through `previous`, the top at Exc_Sp. A raise that
// finds a context to land in first unwinds the frames between itself and the opener with
// a forced unwind, so the destructors of C++ objects in those frames run, and then
// longjmps into the opener. The unwinder's stop function recognises the opener by the
// call frame address that except_start_context recorded (the opener's stack pointer at
// that call): every frame the body runs in lies below it. Where no unwind
// information exists (or the unwinder gives up) the raise falls back to a plain longjmp.
//
// To C++ the forced unwind is a foreign exception: a host's catch (...) on the way enters
// its handler, and if that handler ends without rethrowing, the C++ runtime ends the unwind
// by calling the exception object's cleanup. The cleanup completes the raise: it lands in
// the opener from there, skipping the frames between the catch and the opener as the plain
// longjmp does, so a raise is never lost.
//
// The reports a raise writes (fatal texts, the "HANDLER" trace) go through the observer of
// except_report.hpp.
#include <cstdlib>
#include <cstring>
#include <new>
#include <unwind.h>

#include "core/except_report.hpp"
#include "core/raise.hpp"

extern "C" {
const char *const ALLOC_FAILURE = "ALLOC_FAILURE";
const char *const ZERO_ALLOC_FAILURE = "ZERO_ALLOC_FAILURE";
const char *const GENERAL_ERROR = "GENERAL_ERROR";
const char *const LIST_FAILURE_L = "LIST_FAILURE_L";
const char *const ARRAY_FAILURE_L = "ARRAY_FAILURE_L";
const char *const QV_OVERFLOW = "QV_OVERFLOW";
const char *const INTERRUPT_PROCESS = "INTERRUPT_PROCESS";
const char *const STATUS_RAISED = "STATUS_RAISED";
const char *const WRONG_HANDLE_TYPE = "WRONG_HANDLE_TYPE";
const char *const ZRK_MESSAGE_FAILURE = "ZRK_MESSAGE_FAILURE";
const char *const ZRK_MESSAGE_SET_FAILURE = "ZRK_MESSAGE_SET_FAILURE";

exc_context *Exc_Sp = nullptr;
const char *Exc_Raised_ = nullptr;
int32_t Exc_Status = 0;
const char *Exc_Status_Symbol = nullptr;
}

namespace qv {
namespace {

int32_t depth = 0;

} // namespace

LastRaise last_raise;

int32_t context_depth() {
    return depth;
}

namespace {

// The exception object of one forced unwind. It lives on the heap: the unwinder runs
// cleanups in frames above the raiser, whose calls overwrite the raiser's stack.
// It also keeps what the raise recorded, since a destructor run on the way may raise and
// catch on its own and overwrite the globals before this raise lands.
struct ForcedUnwind {
    _Unwind_Exception header;
    exc_context *target;
    const char *symbol;
    LastRaise details;
    int32_t status;
    const char *status_symbol;
};

constexpr _Unwind_Exception_Class unwind_class = 0x5156434d52414953ULL; // "QVCMRAIS"

[[noreturn]] void land(exc_context *target) {
    longjmp(target->jump_state, 1);
}

// Lands the raise an unwind carries: restores what the raise recorded, frees the exception
// object and jumps to the opener.
[[noreturn]] void finish(ForcedUnwind *unwind) {
    exc_context *target = unwind->target;
    Exc_Raised_ = unwind->symbol;
    last_raise = unwind->details;
    Exc_Status = unwind->status;
    Exc_Status_Symbol = unwind->status_symbol;
    delete unwind;
    land(target);
}

// Called by the C++ runtime when a catch (...) ended the unwind without rethrowing.
void swallowed(_Unwind_Reason_Code, _Unwind_Exception *exception) {
    finish(reinterpret_cast<ForcedUnwind *>(exception));
}

// Called by the unwinder before each frame is unwound, with a context whose CFA is that of
// the frame's callee: the frame's stack pointer at the call it is in. The marker is the
// opener's stack pointer at its call of except_start_context; every frame below the opener
// called from lower down, so the first frame whose call lies at or above the marker is the
// opener's. Stop before it (or at the end of unwind information) and jump: the opener's
// own objects are not destroyed.
_Unwind_Reason_Code stop_at_opener(int, _Unwind_Action actions, _Unwind_Exception_Class,
                                   _Unwind_Exception *, _Unwind_Context *context, void *parameter) {
    auto *unwind = static_cast<ForcedUnwind *>(parameter);
    exc_context *target = unwind->target;
    bool at_opener = (actions & _UA_END_OF_STACK) != 0 ||
                     _Unwind_GetCFA(context) >= reinterpret_cast<uintptr_t>(target->frame_marker);
    if (!at_opener) return _URC_NO_REASON;
    finish(unwind);
}

[[noreturn]] void jump_to(exc_context *target) {
    auto *unwind = new (std::nothrow) ForcedUnwind{};
    if (unwind == nullptr || target->frame_marker == nullptr) land(target);
    unwind->header.exception_class = unwind_class;
    unwind->header.exception_cleanup = swallowed;
    unwind->target = target;
    unwind->symbol = Exc_Raised_;
    unwind->details = last_raise;
    unwind->status = Exc_Status;
    unwind->status_symbol = Exc_Status_Symbol;
    _Unwind_ForcedUnwind(&unwind->header, stop_at_opener, unwind);
    // The unwinder could not walk the stack at all: jump without unwinding.
    delete unwind;
    land(target);
}

// Records of closed contexts kept for the next ones to open, so that a protected call costs
// no trip to the heap; linked through `previous`, at most `spare_limit` of them.
exc_context *spare_contexts = nullptr;
int spare_count = 0;
constexpr int spare_limit = 16;

// A zeroed context record: a spare one, or a new one (null when calloc failed).
exc_context *new_context() {
    exc_context *context = spare_contexts;
    if (context == nullptr) return static_cast<exc_context *>(std::calloc(1, sizeof(exc_context)));
    spare_contexts = context->previous;
    --spare_count;
    std::memset(static_cast<void *>(context), 0, sizeof(exc_context));
    return context;
}

void free_context(exc_context *context) {
    if (context == nullptr) return;
    if (spare_count == spare_limit) {
        std::free(context);
        return;
    }
    context->previous = spare_contexts;
    spare_contexts = context;
    ++spare_count;
}

void pop_context() {
    exc_context *top = Exc_Sp;
    Exc_Sp = top->previous;
    free_context(top);
    --depth;
}

void record_first_level_raise(const char *symbol, const char *file, int32_t line, int32_t status,
                              const char *status_symbol) {
    last_raise.context_function = Exc_Sp->function_name;
    last_raise.context_line = Exc_Sp->line;
    Exc_Status = status;
    last_raise.file = file;
    last_raise.symbol = symbol;
    last_raise.line = line;
    Exc_Status_Symbol = status_symbol;
}

} // namespace
} // namespace qv

extern "C" {

// Not inlined: the address recorded is where the caller's frame is, as seen from here.
QV_API __attribute__((noinline)) exc_context *
except_start_context(const char *function_name, const char *source_file, int32_t line) {
    exc_context *context = qv::new_context();
    if (context == nullptr || qv::allocation_should_fail()) {
        qv::free_context(context);
        qv::report_fatal("alloc failed", source_file, line);
        return nullptr;
    }
    context->function_name = function_name;
    context->line = line;
    context->source_file = source_file;
    context->in_handler = 0;
    context->frame_marker = __builtin_dwarf_cfa();
    context->previous = Exc_Sp;
    Exc_Sp = context;
    ++qv::depth;
    return context;
}

QV_API void except_end_context(const char *source_file, int32_t line) {
    if (Exc_Sp == nullptr) {
        qv::report_fatal("attempting to pop context from empty stack", source_file, line);
        return;
    }
    qv::pop_context();
}

QV_API void except_raise(const char *symbol, const char *source_file, int32_t line, int32_t mode,
                         int32_t status, const char *status_symbol) {
    qv::trace_raise(symbol, source_file, line, mode, status, status_symbol);
    if (Exc_Sp == nullptr) {
        qv::report_fatal("no context on RAISE/RERAISE", source_file, line);
        return;
    }
    if (Exc_Sp->in_handler) {
        if (Exc_Sp->previous == nullptr) {
            qv::report_fatal("no context on RAISE/RERAISE from handler", source_file, line);
            return;
        }
        qv::pop_context();
        Exc_Raised_ = symbol;
        qv::jump_to(Exc_Sp);
    }
    qv::record_first_level_raise(symbol, source_file, line, status, status_symbol);
    if (mode == EXC_RERAISE) {
        qv::report_fatal("RERAISE outside exception handlers", source_file, line);
        return;
    }
    Exc_Raised_ = symbol;
    qv::jump_to(Exc_Sp);
}

QV_API const char *Exc_GetFile_L(void) {
    return qv::last_raise.file;
}

QV_API int32_t Exc_GetLine_L(void) {
    return qv::last_raise.line;
}

} // extern "C"

namespace qv {
namespace {

// Closes the context opened just before it on every way out of its scope, also when a C++
// exception leaves the body or the handler. A raise from the handler has popped the context
// already: then the top is another context (or the depth is lower) and nothing is done.
class OpenContext {
  public:
    OpenContext(const char *file, int line)
        : context_(Exc_Sp), depth_(depth), file_(file), line_(line) {}
    OpenContext(const OpenContext &) = delete;
    OpenContext &operator=(const OpenContext &) = delete;
    ~OpenContext() {
        if (Exc_Sp == context_ && depth == depth_) except_end_context(file_, line_);
    }

  private:
    exc_context *context_;
    int32_t depth_;
    const char *file_;
    int line_;
};

} // namespace

// Runs the body in this frame's callee so the opener (this function) is never unwound;
// `raised` is volatile because the landing longjmp restores registers.
bool guarded(const char *function, const char *file, int line, FunctionRef<void()> body,
             FunctionRef<void(const char *raised)> handler) {
    if (except_start_context(function, file, line) == nullptr) {
        body();
        return true;
    }
    OpenContext open(file, line);
    volatile bool raised = false;
    if (setjmp(Exc_Sp->jump_state) == 0)
        body();
    else
        raised = true;
    Exc_Sp->in_handler = 1;
    if (raised) handler(Exc_Raised_);
    return !raised;
}

} // namespace qv
