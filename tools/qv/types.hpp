// types.hpp - data types of CSV columns and command-line values: inferred from their text,
// or declared as NUMBER(10,2), CHAR(20), DATE ...
//
// Inference looks at each text through small recognisers (a number, a date literal) and
// widens a column's type over the texts it has seen:
//   empty                        NULL, says nothing about the type
//   -12, 42                      INTEGER (what fits in 64 bits)
//   12.50, -.5, 12345678901234567890   NUMBER(precision, scale): integer digits + scale
//   1.5e3                        FLOAT (an exponent; or more than 77 digits)
//   2024-03-15, 2024-03-15 10:20:30.5   DATE (syyyy-mm-dd, with hh:mi:ss[.fffffffff])
//   anything else                CHAR(longest length in characters)
// A column of integers and decimals is NUMBER wide enough for both; any FLOAT among numbers
// makes it FLOAT; numbers mixed with dates or text make it CHAR; an all-empty column is
// CHAR(1), the type of a NULL literal. Decimals are NUMBER rather than FLOAT so that prices
// and amounts keep their exact digits; a text with an exponent was written by a program that
// meant a floating-point number. Blanks around a number are allowed, as in the language.
//
// The recognisers follow the number and date-literal rules of the expression language and
// are kept apart so that they can give way to the library's own (StringToBestNumberType_L,
// IsInternalDate_L, ParseVariableType_L) once it has them.
#pragma once

#include <qv/datatype.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace qvtool {

// A number as the language writes it: blanks, an optional sign, digits with at most one
// point (at least one digit), an optional exponent, blanks.
struct NumberText {
    int integer_digits = 0; // before the point, leading zeros not counted
    int scale = 0;          // digits after the point
    bool point = false, exponent = false;
    bool fits_integer = false; // no point, no exponent, and within 64 bits
};
bool read_number(std::string_view text, NumberText &number);

// A date literal: syyyy-mm-dd, optionally followed by one blank and hh:mi:ss with up to nine
// digits of fraction; a real calendar day (February 29 by the library's leap-year rules).
bool is_date_literal(std::string_view text);

// The widest type over the texts added: a column's type from a sample of its fields.
class TypeGuess {
  public:
    void add(std::string_view text);
    QV_DATATYPE_T type() const;

  private:
    enum Seen : unsigned { INTEGER = 1, DECIMAL = 2, FLOAT = 4, DATE = 8, TEXT = 16 };
    unsigned seen_ = 0;
    int integer_digits_ = 0, scale_ = 0, longest_ = 0;
};

// The type of one text (a --bind or --var value written without a type).
QV_DATATYPE_T infer_type(std::string_view text);

// Parses a declaration (NAME, NAME(precision) or NAME(precision, scale), names in any case,
// blanks allowed around each part). Returns "" and sets `type`, or a message saying what is
// wrong. CHAR, NUMBER and BINARY need a size.
std::string parse_type(std::string_view declaration, QV_DATATYPE_T &type);

// UTF-8 characters in a text (bytes that do not continue a sequence).
int character_count(std::string_view text);

} // namespace qvtool
