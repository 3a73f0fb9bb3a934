// expressions.hpp - the seven expressions E1 to E7 that the parser's and the evaluator's
// benchmarks measure, in their order.
#pragma once

namespace bench {

inline const char *const row_expressions[] = {
    "(x + y) * 2.5 - z / 3",
    "If(x > 50, x * 2, y / 2)",
    "x > 10 AND y < 20 OR name LIKE 'A%'",
    "Concat(Upper(name), '-', SubStr(code, 1, 3))",
    "IfNull(a, 0) + y",
    "AddToDate(d, 30)",
    "price * qty",
};

} // namespace bench
