// types.hpp - data types of CSV columns and command-line values: inferred from their text,
// or declared as NUMBER(10,2), CHAR(20), DATE ...
//
// Each text is recognised by the library's own rules: StringToBestNumberType_L says whether
// it is a number and counts its digits, IsInternalDate_L whether it is a date literal. What
// the tool makes of them:
//   empty, or blanks only        NULL: says nothing about the type
//   -12, 42                      INTEGER (what fits in 64 bits)
//   12.50, -.5, 12345678901234567890   NUMBER(digits, decimals) as written
//   1.5e3, 4.2E-7                FLOAT (an exponent; or more than 77 digits)
//   2024-03-15, 2024-03-15 10:20:30.5   DATE (the date literals of the language)
//   2024-03-15 10:20 +05:30      DATE WITH TIME ZONE
//   anything else                CHAR(0): text of any length
// "Decimal as NUMBER": the library's literal rule makes 2.5 in an expression a FLOAT (a
// decimal of at most 15 digits is cheapest as a double), but a field or a --bind value
// written with a point and no exponent is taken as the exact decimal it shows, NUMBER(p,s),
// so that prices and amounts keep their digits (0.1 + 0.2 is 0.3) and sums come out exact.
// A text with an exponent was written by a program that meant a floating-point number.
//
// A column widens over the texts it holds: integers and decimals together are a NUMBER wide
// enough for both; any FLOAT among numbers makes it FLOAT (so does a NUMBER beyond 77
// digits); numbers mixed with dates or text, or dates with and without a zone, make it CHAR;
// a column with no text at all is CHAR. Text columns are CHAR(0), any length, so that a
// longer text after the sample is never cut.
#pragma once

#include <qv/datatype.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace qvtool {

// What one text is.
struct TextKind {
    enum Kind { Empty, Integer, Decimal, Float, Date, DateZone, Text } kind = Empty;
    int digits = 0, scale = 0; // Integer and Decimal: significant digits, decimals
};
TextKind classify(std::string_view text);

// The widest type over the texts added: a column's type from a sample of its fields.
class TypeGuess {
  public:
    void add(std::string_view text);
    QV_DATATYPE_T type() const;

  private:
    unsigned seen_ = 0; // 1 << TextKind::Kind of each kind seen
    int integer_digits_ = 0, scale_ = 0;
};

// The type of one text (a --bind or --var value written without a type); an empty text is
// untyped (type 0), as a NULL literal is.
QV_DATATYPE_T infer_type(std::string_view text);

// Parses a declaration (NAME, NAME(precision) or NAME(precision, scale), names in any case)
// with the library's ParseVariableType_L. CHAR without a length is CHAR(0), any length.
// Returns "" and sets `type`, or a message saying what is wrong (`type` then 0).
std::string parse_type(std::string_view declaration, QV_DATATYPE_T &type);

// Whether a value of the type can be read from a text field (no ARRAY, LIST or POINTER).
bool readable_from_text(std::uint32_t type);

} // namespace qvtool
