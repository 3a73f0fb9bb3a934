// fields.hpp - reading texts (CSV fields, --bind and --var values) into values of a type.
//
// A FieldReader reads the texts of one column, row after row, into one value record of the
// column's type that expressions are bound to. It never loses data silently: a text that
// does not read as the type, a number with more digits than a NUMBER(p,s) keeps (12.345 in
// NUMBER(5,2)), an INTEGER text with decimals, or a text longer than a CHAR(n) is refused
// with a message, and the value is then NULL. An empty text is NULL; a text of blanks is
// NULL for every type but the text types, which keep it as it is.
//
// Texts are read as the library reads them (ConvertValue_L, StringToBestNumberType_L), with
// two shortcuts for the common forms: plain decimal INTEGER and FLOAT texts are converted
// in place with std::from_chars (correctly rounded, as the library's own reading is), and a
// CHAR(0) value borrows the reader's copy of the text instead of copying it again.
#pragma once

#include <qv/qvcommon.h>

#include <string>
#include <string_view>

namespace qvtool {

class FieldReader {
  public:
    explicit FieldReader(const QV_DATATYPE_T &type);
    ~FieldReader();
    FieldReader(const FieldReader &) = delete;
    FieldReader &operator=(const FieldReader &) = delete;

    // Sets `value` (of the reader's type; it may borrow from the reader until the next
    // read) from `text`. False with `error` set ("'12.5' is not an INTEGER") when refused.
    bool read(std::string_view text, QV_VALUE_T &value, std::string &error);

  private:
    bool read_char(QV_VALUE_T &value, std::string &error);
    bool read_integer(QV_VALUE_T &value);
    bool read_float(QV_VALUE_T &value);
    bool read_number(QV_VALUE_T &value, std::string &error);
    bool convert(QV_VALUE_T &value, std::string &error);
    bool refuse(QV_VALUE_T &value, std::string &error, const char *what);

    QV_DATATYPE_T type_;
    std::string text_;    // the text being read, terminated
    QV_VALUE_T source_{}; // a CHAR borrowing text_
    QV_VALUE_T exact_{};  // a NUMBER text's own digits
};

// A value of `type` (0: inferred from the text, types.hpp) owning its payload, read from
// `text` (empty: NULL). Returns "" or what is wrong.
std::string make_value(const QV_DATATYPE_T &type, std::string_view text, QV_VALUE_T &value);

} // namespace qvtool
