// raise.hpp - the library's internal side of status contexts and allocation.
//
// QV_RAISE raises a status symbol with this file's module name and line. The module name
// is the source file's name without directory and extension (the build passes it as
// QV_MODULE_NAME); a file that belongs to a larger module defines QV_MODULE before
// including this header.
//
// The allocation helpers raise ZERO_ALLOC_FAILURE for a zero size and ALLOC_FAILURE for a
// null result. When no status context is open the raise only reports, and the helper then
// returns null: callers must bail out with a defined result rather than use it.
//
// qv::guarded runs a protected body in a frame of its own, so that a raise unwinds every
// C++ object the body made, then runs the handler with the context marked in-handler.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "qv/except.h"

#ifndef QV_MODULE
#ifdef QV_MODULE_NAME
#define QV_MODULE QV_MODULE_NAME
#else
#define QV_MODULE "qvcommon"
#endif
#endif

#define QV_RAISE(symbol) except_raise((symbol), QV_MODULE, __LINE__, 0, 0, nullptr)
#define QV_RERAISE() except_raise(Exc_Raised_, QV_MODULE, __LINE__, 1, 0, nullptr)

#define QV_MALLOC(size) ::qv::checked_malloc((size), QV_MODULE, __LINE__)
#define QV_CALLOC(size) ::qv::checked_calloc((size), QV_MODULE, __LINE__)
#define QV_REALLOC(block, size) ::qv::checked_realloc((block), (size), QV_MODULE, __LINE__)
#define QV_STRDUP(text) ::qv::checked_strdup((text), QV_MODULE, __LINE__)
#define QV_STRNDUP(text, length) ::qv::checked_strndup((text), (length), QV_MODULE, __LINE__)

// The body of an exported entry point that may allocate through standard containers:
//     return QV_C_ENTRY([&] { ... return result; });
// std::bad_alloc or std::length_error leaving the body becomes an ALLOC_FAILURE raise from
// this module and line; when no context is open the raise returns and the entry returns a
// value-initialised result (null, 0). QV_C_ENTRY_RAISING names another symbol to raise
// (the message classes raise their own).
#define QV_C_ENTRY(body) ::qv::c_entry(ALLOC_FAILURE, QV_MODULE, __LINE__, body)
#define QV_C_ENTRY_RAISING(symbol, body) ::qv::c_entry((symbol), QV_MODULE, __LINE__, body)

namespace qv {

// malloc / zero-filled malloc / realloc / string copies that raise on failure.
void *checked_malloc(std::size_t size, const char *module, int line);
void *checked_calloc(std::size_t size, const char *module, int line);
void *checked_realloc(void *block, std::size_t size, const char *module, int line);
char *checked_strdup(const char *text, const char *module, int line);
char *checked_strndup(const char *text, std::size_t length, const char *module, int line);

// True when the test hook says this allocation must fail (counts the allocation).
bool allocation_should_fail();

// Runs an entry point's body; see QV_C_ENTRY. The raise happens after the catch has ended,
// so the forced unwind never passes through an active handler.
template <class Body>
auto c_entry(const char *symbol, const char *module, int line, Body &&body)
    -> std::invoke_result_t<Body &> {
    using Result = std::invoke_result_t<Body &>;
    try {
        return body();
    } catch (const std::bad_alloc &) {
    } catch (const std::length_error &) {
    }
    except_raise(symbol, module, line, 0, 0, nullptr);
    if constexpr (!std::is_void_v<Result>) return Result{};
}

// Number of contexts on the stack.
int32_t context_depth();

// A type-erased reference to a callable, cheap to pass to a non-template function.
template <class Signature>
class FunctionRef;

template <class Result, class... Args>
class FunctionRef<Result(Args...)> {
  public:
    template <class Callable>
    requires(!std::is_same_v<std::remove_cvref_t<Callable>, FunctionRef>)
        FunctionRef(Callable &&callable) // NOLINT: implicit on purpose
        : object_(const_cast<void *>(static_cast<const void *>(&callable))),
          thunk_([](void *object, Args... args) -> Result {
              return (*static_cast<std::remove_reference_t<Callable> *>(object))(
                  std::forward<Args>(args)...);
          }) {}
    Result operator()(Args... args) const { return thunk_(object_, std::forward<Args>(args)...); }

  private:
    void *object_;
    Result (*thunk_)(void *, Args...);
};

// Runs `body` under a new status context opened as (function, file, line). When a raise
// lands, runs `handler` with the raised symbol while the context is in handler (a raise
// from the handler passes outward), then closes the context. Returns true when the body
// completed without a raise.
bool guarded(const char *function, const char *file, int line, FunctionRef<void()> body,
             FunctionRef<void(const char *raised)> handler);

// As guarded, with a handler that frees nothing and passes every raise on.
inline bool guarded(const char *function, const char *file, int line, FunctionRef<void()> body) {
    return guarded(function, file, line, body, [file](const char *) {
        except_raise(Exc_Raised_, file, __LINE__, 1, 0, nullptr);
    });
}

} // namespace qv
