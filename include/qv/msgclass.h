/*
 * msgclass.h - the exported message classes: PWParam (one parameter), PWMessageBase and
 * PWMessage (a numbered message with a severity and ordered parameters) and PWMsgSet (the
 * process-wide registry of message sets). C++ only; C hosts use the functions of
 * qv/message.h, and this header compiles to nothing in C. It compiles as C++11 and later;
 * the std::string_view constructor of PWParam is there from C++17 on.
 *
 * Severities come in two scales. The library's (MESSAGE_SEVERITY_E, 1 debug .. 5 fatal)
 * is what callers pass and read; the catalogue's (PWSeverity, Fatal 0 .. Debug 4) is what
 * a message holds and what catalogue rows carry. PWMessageBase converts both ways; a
 * library severity outside 1..5 becomes Error.
 *
 * Text: the catalogue text of the number with "%1", "%2" ... replaced by the parameters
 * in order ("%%" is one "%"; a slot with no parameter stays as written). A number the
 * catalogue does not know gives "Message 0x<number, 8 hex digits> has no text" followed
 * by ": " and the parameters separated by ", " when there are any. Text parameters are
 * UTF-8; integers are written in decimal; a null text parameter is "<NULL>".
 *
 * PWMsgSet holds message sets by unsigned 32-bit handles (never 0). The set failures
 * (counting, reading or transferring a handle that names no set, or memory running out
 * while adding) raise ZRK_MESSAGE_SET_FAILURE and then return 0 / null / nothing.
 * Not thread-safe: one thread at a time.
 */
#ifndef QV_MSGCLASS_H
#define QV_MSGCLASS_H

#include "message.h"

#ifdef __cplusplus

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>
#if __cplusplus >= 201703L
#include <string_view>
#endif

/* The catalogue's severity scale. */
enum class PWSeverity : int32_t { Fatal = 0, Error = 1, Warning = 2, Information = 3, Debug = 4 };

/* One message parameter: a text, a signed or an unsigned integer. */
class QV_API PWParam {
  public:
    enum class Kind { Text, Signed, Unsigned };

    PWParam(const char *text);
#if __cplusplus >= 201703L
    PWParam(std::string_view text);
#endif
    PWParam(const std::string &text);
    PWParam(char character);
    /* Any integer type but bool and char (a char is a one-character text). */
    template <class Integer, typename std::enable_if<std::is_integral<Integer>::value &&
                                                         !std::is_same<Integer, bool>::value &&
                                                         !std::is_same<Integer, char>::value,
                                                     int>::type = 0>
    PWParam(Integer value)
        : kind_(std::is_signed<Integer>::value ? Kind::Signed : Kind::Unsigned),
          signed_(std::is_signed<Integer>::value ? static_cast<int64_t>(value) : 0),
          unsigned_(std::is_signed<Integer>::value ? 0 : static_cast<uint64_t>(value)) {}

    Kind GetKind() const {
        return kind_;
    }
    /* The parameter as it appears in a message text. */
    std::string Text() const;
    int64_t Signed() const {
        return signed_;
    }
    uint64_t Unsigned() const {
        return unsigned_;
    }

  private:
    Kind kind_ = Kind::Text;
    std::string text_;
    int64_t signed_ = 0;
    uint64_t unsigned_ = 0;
};

/* What every message in a set is: a number, a severity, a text, a class name. */
class QV_API PWMessageBase {
  public:
    PWMessageBase(uint32_t number, PWSeverity severity) : number_(number), severity_(severity) {}
    virtual ~PWMessageBase();

    /* Name of the most derived class, e.g. "PWMessage". */
    virtual const char *ClassName() const = 0;
    virtual std::unique_ptr<PWMessageBase> Clone() const = 0;
    /* Full text in UTF-8. */
    virtual std::string Text() const = 0;

    uint32_t Number() const { return number_; }
    PWSeverity Severity() const { return severity_; }
    /* The severity on the library's scale, 1..5. */
    int32_t LibrarySeverity() const { return ToLibrarySeverity(severity_); }

    static PWSeverity ToCatalogueSeverity(int32_t library_severity);
    static int32_t ToLibrarySeverity(PWSeverity severity);

  private:
    uint32_t number_;
    PWSeverity severity_;
};

/* A catalogued message with ordered parameters. */
class QV_API PWMessage : public PWMessageBase {
  public:
    /* With the severity the catalogue gives the number (Error when it has no entry). */
    explicit PWMessage(uint32_t number);
    PWMessage(uint32_t number, PWSeverity severity) : PWMessageBase(number, severity) {}
    /* `severity` on the library's scale (MESSAGE_SEVERITY_E). */
    PWMessage(uint32_t number, int32_t severity)
        : PWMessageBase(number, ToCatalogueSeverity(severity)) {}

    /* Appends one parameter. */
    PWMessage &operator<<(const PWParam &parameter);

    const std::vector<PWParam> &Parameters() const { return parameters_; }
    const char *ClassName() const override;
    std::unique_ptr<PWMessageBase> Clone() const override;
    std::string Text() const override;

  private:
    std::vector<PWParam> parameters_;
};

/* The process-wide registry of message sets. */
class QV_API PWMsgSet {
  public:
    static PWMsgSet &Instance();

    PWMsgSet(const PWMsgSet &) = delete;
    PWMsgSet &operator=(const PWMsgSet &) = delete;

    bool IsSet(uint32_t handle) const;
    /* Number of messages; raises when `handle` names no set. */
    uint32_t Count(uint32_t handle) const;
    /* Highest library severity among the messages, 0 for an empty set; raises when
     * `handle` names no set. */
    int32_t WorstSeverity(uint32_t handle) const;
    /* The n-th message (from 0), owned by the set; raises when `handle` names no set or n
     * is out of range. */
    PWMessageBase *Message(uint32_t handle, uint32_t n) const;
    /* Adds a copy of `message` to the set of `handle`; when `handle` is 0 or names no set,
     * a new set is made and its handle stored in `handle`. */
    void Add(uint32_t &handle, const PWMessageBase &message);
    /* Moves every message of set `from` to the end of the set of `to` (made as in Add);
     * `from` stays, empty. Moving a set into itself changes nothing. Raises when `from`
     * names no set. */
    void Transfer(uint32_t from, uint32_t &to);
    /* Deletes one set (an unknown handle is ignored) / all sets. */
    void Clear(uint32_t handle);
    void ClearAll();
    /* Number of sets held. */
    std::size_t SetCount() const;

  private:
    PWMsgSet();
    ~PWMsgSet();
    struct Registry;
    std::unique_ptr<Registry> registry_;
};

#endif /* __cplusplus */

#endif
