"""derive() over columns and DataFrames, checked row by row against plain Python."""

import datetime as dt
import subprocess
from decimal import Decimal

import numpy as np
import pandas as pd
import pytest

import qvcommon
from conftest import ORDER_TYPES, ORDERS
from qvcommon import EvaluationError, ValidationError

ORDER_EXPRS = {
    "total": "price * quantity",
    "name": "Upper(customer)",
    "due": "AddToDate(order_date, quantity)",
    "place": "IfNull(city, '?')",
}
ORDER_WHERE = "quantity > 2"


def upper(text):
    """Upper as the library maps it: character by character (ß stays ß)."""
    return "".join(c if len(c.upper()) > 1 else c.upper() for c in text)


def order_reference(orders):
    """ORDER_EXPRS and ORDER_WHERE over orders.csv, in Python."""
    rows = {}
    for label, row in orders.iterrows():
        if row.quantity is None or int(row.quantity) <= 2:
            continue
        rows[label] = {
            "total": None if row.price is None else Decimal(row.price) * int(row.quantity),
            "name": None if row.customer is None else upper(row.customer),
            "due": None if row.order_date is None else
            dt.datetime.fromisoformat(row.order_date) + dt.timedelta(days=int(row.quantity)),
            "place": row.city if row.city is not None else "?",
        }
    return pd.DataFrame.from_dict(rows, orient="index")


def test_derive_over_a_dataframe_equals_python(orders):
    result = qvcommon.derive(orders, ORDER_EXPRS, where=ORDER_WHERE, types=ORDER_TYPES)
    expected = order_reference(orders)
    assert list(result.index) == list(expected.index)
    for column in ORDER_EXPRS:
        assert list(result[column]) == list(expected[column]), column
    assert str(result["due"].dtype) == "datetime64[ns]" and result["total"].dtype == object


def test_derive_equals_the_qv_tool(orders, qv_tool, tmp_path):
    out = tmp_path / "derived.csv"
    arguments = [str(qv_tool), "derive", "--where", ORDER_WHERE, "-o", str(out)]
    for name in ("total", "name", "place"):
        arguments += ["-e", f"{name} := {ORDER_EXPRS[name]}"]
    run = subprocess.run(arguments + [str(ORDERS)], capture_output=True, text=True)
    if run.returncode == 2 and "not available" in run.stderr:
        pytest.skip("this qv has no expression language yet")
    assert run.returncode == 0, run.stderr
    tool = pd.read_csv(out, dtype=str, keep_default_na=False)
    ours = qvcommon.derive(orders, ORDER_EXPRS, where=ORDER_WHERE, types=ORDER_TYPES,
                           include_input=True)
    assert len(tool) == len(ours)
    # qv writes NULL as an empty field
    assert [Decimal(v) if v else None for v in tool["total"]] == list(ours["total"])
    for column in ("name", "place"):
        assert list(tool[column]) == ["" if v is None else v for v in ours[column]]


def test_e1_and_e4_equal_numpy_and_python():
    rng = np.random.default_rng(5)
    n = 20_000
    names = np.array(["alice", "Zoë", "Åsa", "bob", "漢字", ""], dtype=object)
    columns = {
        "x": rng.uniform(0, 100, n), "y": rng.uniform(0, 100, n), "z": rng.uniform(-50, 50, n),
        "name": names[rng.integers(0, len(names), n)],
        "code": np.array([f"C{i:05d}" for i in range(n)], dtype=object),
    }
    result = qvcommon.derive(columns, {"e1": "(x + y) * 2.5 - z / 3",
                                       "e4": "Concat(Upper(name), '-', SubStr(code, 1, 3))"})
    x, y, z = columns["x"], columns["y"], columns["z"]
    assert np.array_equal(result["e1"], (x + y) * 2.5 - z / 3)
    assert list(result["e4"]) == [upper(a) + "-" + b[:3] for a, b in zip(columns["name"], columns["code"])]


NAT = np.datetime64("NaT")
# (input column, expression, expected output as a list, output dtype)
COLUMN_KINDS = [
    (np.array([1, -2, 2**61]), "c * 2", [2, -4, 2**62], "int64"),
    (np.array([1.5, np.nan, -0.0]), "c * 2", [3.0, None, -0.0], "float64"),
    (np.array([True, False, True]), "NOT c", [False, True, False], "bool"),
    (np.array(["2024-02-28T12:00", "NaT", "1677-09-22"], dtype="datetime64[ns]"),
     "AddToDate(c, 1)", [np.datetime64("2024-02-29T12:00"), NAT, np.datetime64("1677-09-23")],
     "datetime64[ns]"),
    (np.array([10**9, -1, 86400 * 10**9], dtype="timedelta64[ns]"), "c",
     list(np.array([10**9, -1, 86400 * 10**9], dtype="timedelta64[ns]")), "timedelta64[ns]"),
    ([Decimal("1.25"), None, 7], "c * 2", [Decimal("2.50"), None, Decimal("14.00")], "object"),
    (["a", None, "bé"], "Upper(c)", ["A", None, "BÉ"], "object"),
    ([dt.date(2024, 1, 31), None, dt.datetime(2024, 3, 1, 5)], "AddMonthsToDate(c, 1)",
     [np.datetime64("2024-02-29"), NAT, np.datetime64("2024-04-01T05:00")], "datetime64[ns]"),
    ([1, None, 3], "c + 1", [2, None, 4], "object"),  # INTEGER with NULLs: objects
    # beyond datetime64[ns] and timedelta64[ns]: Python objects
    ([dt.datetime(2500, 1, 1), None], "c", [dt.datetime(2500, 1, 1), None], "object"),
    ([dt.timedelta(days=-200_000), None], "c", [dt.timedelta(days=-200_000), None], "object"),
    ([None, None, None], "IfNull(c, 'none')", ["none"] * 3, "object"),
]


@pytest.mark.parametrize("column, expression, expected, dtype", COLUMN_KINDS,
                         ids=[c[1] + " " + c[3] for c in COLUMN_KINDS])
def test_each_column_kind_reads_and_writes(column, expression, expected, dtype):
    result = qvcommon.derive({"c": column}, {"r": expression})["r"]
    assert str(result.dtype) == dtype
    for got, want in zip(result, expected):
        if isinstance(want, np.datetime64) and np.isnat(want):
            assert np.isnat(got)
        elif want is None and dtype == "float64":
            assert np.isnan(got)
        else:
            assert got == want and (want is not None or got is None)


def test_pandas_extension_columns_keep_their_nulls():
    frame = pd.DataFrame({"n": pd.array([1, None, 3], dtype="Int64"),
                          "b": pd.array([True, None, False], dtype="boolean"),
                          "s": pd.array(["x", None, "z"], dtype="string")},
                         index=["a", "b", "c"])
    result = qvcommon.derive(frame, {"n2": "n * 10", "nb": "NOT b", "s2": "Concat(s, '!')"},
                             include_input=True)
    assert list(result.columns) == ["n", "b", "s", "n2", "nb", "s2"]
    assert str(result["n2"].dtype) == "Int64" and str(result["nb"].dtype) == "boolean"
    assert result["n2"].tolist() == [10, pd.NA, 30] and result["nb"].tolist() == [False, pd.NA, True]
    assert result["s2"].tolist() == ["x!", "!", "z!"]
    assert qvcommon.column_types(frame) == {"n": "INTEGER", "b": "BOOLEAN", "s": "CHAR(1)"}


def test_declared_types_convert_text_columns():
    columns = {"p": ["1.5", "2", None], "d": ["2024-01-01", "2024-12-31", "2023-06-15"]}
    result = qvcommon.derive(columns, {"p2": "p * 2", "y": "d"},
                             types={"p": "NUMBER(6,2)", "d": "DATE"})
    assert list(result["p2"]) == [Decimal("3.00"), Decimal("4.00"), None]
    assert result["y"][1] == np.datetime64("2024-12-31")
    with pytest.raises(EvaluationError, match=r"column 'p' failed at row 0: 'x' does not read as NUMBER\(6,2\)"):
        qvcommon.derive({"p": ["x"]}, {"q": "p"}, types={"p": "NUMBER(6,2)"})
    with pytest.raises(KeyError, match="types names the column 'nosuch'"):
        qvcommon.derive(columns, {"q": "p"}, types={"nosuch": "INTEGER"})


def test_bad_columns_and_expressions_fail_before_the_first_row():
    cases = [
        ({"a": [1, 2], "b": [1]}, {"c": "a"}, ValueError,
         "columns differ in length: 'a' has 2 rows, 'b' 1"),
        ({"a": [1, 2]}, {"c": "nosuch + a"}, ValidationError,
         "derive column 'c' := nosuch \\+ a \\(columns: a\\): The name nosuch at position 0 is not bound"),
        ({"a": [1.5]}, {"c": "Upper(a)"}, ValidationError,
         "Argument 1 of Upper at position 0 is FLOAT, but Upper takes CHAR or CLOB there."),
        ({"a": ["x", 1]}, {"c": "a"}, TypeError, "column 'a' mixes str \\(row 0\\) and int \\(row 1\\)"),
        ({"a": [object()]}, {"c": "a"}, TypeError, "column 'a' holds objects that have no value"),
        ({"a": np.zeros((2, 2))}, {"c": "a"}, ValueError, "column 'a' has 2 dimensions"),
        ({"a": np.array([1 + 2j])}, {"c": "a"}, TypeError, "complex128 has no type"),
        ({"a": [1]}, {"c": "a +* 1"}, qvcommon.ParseError, "derive column 'c' := a \\+\\* 1: The expression cannot be parsed"),
        ({"a": [1]}, ["a"], TypeError, "exprs must be a mapping"),
    ]
    for columns, exprs, error, text in cases:
        with pytest.raises(error, match=text):
            qvcommon.derive(columns, exprs)


def test_a_failing_row_follows_on_error():
    big = Decimal("9" * 77)
    frame = pd.DataFrame({"p": [Decimal(1), big, Decimal(3)], "q": [1, 2, 3]}, index=[10, 20, 30])
    exprs = {"r": "p + 1", "s": "q * 2"}
    with pytest.raises(EvaluationError) as caught:
        qvcommon.derive(frame, exprs)
    error = caught.value
    assert str(error).startswith("derive column 'r' := p + 1 failed at row 1 (index 20): The "
                                 "result of + at position 2 does not fit a NUMBER of 77 digits.")
    assert (error.row, error.index, error.column) == (1, 20, "r")
    with pytest.warns(RuntimeWarning, match=r"1 row\(s\) failed \(on_error='null'\); the first, row 1"):
        nulled = qvcommon.derive(frame, exprs, on_error="null")
    assert nulled["r"].tolist() == [Decimal(2), None, Decimal(4)] and nulled["s"].tolist() == [2, 4, 6]
    with pytest.warns(RuntimeWarning):
        skipped = qvcommon.derive(frame, exprs, on_error="skip")
    assert list(skipped.index) == [10, 30] and skipped["s"].tolist() == [2, 6]
    with pytest.raises(ValueError, match="on_error must be one of raise, null, skip"):
        qvcommon.derive(frame, exprs, on_error="ignore")


def test_where_keeps_rows_and_a_mapping_gets_arrays():
    columns = {"a": np.arange(10), "t": [f"t{i}" for i in range(10)]}
    result = qvcommon.derive(columns, {"b": "a * a"}, where="Mod(a, 3) = 0 AND a > 0",
                             include_input=True)
    assert result["a"].tolist() == [3, 6, 9] and result["t"] == ["t3", "t6", "t9"]
    assert result["b"].tolist() == [9, 36, 81]
    assert qvcommon.derive({"a": []}, {"b": "a + 1"})["b"].tolist() == []


@pytest.mark.filterwarnings("ignore::RuntimeWarning")
def test_threads_take_turns_in_the_library():
    """A logging handler that lets other threads run (a sleep releases the GIL) while the
    library is inside a row, and rows that raise: every thread gets its own results and
    logs its own rows."""
    import logging
    import threading
    import time

    class Yielding(logging.Handler):
        def emit(self, record):
            logged.append((threading.get_ident(), record.getMessage()))
            time.sleep(1e-4)

    logger = logging.getLogger("qvcommon")
    handler, level = Yielding(), logger.level
    logger.addHandler(handler)
    logger.setLevel(logging.INFO)
    results, errors, logged, start = {}, [], [], threading.Barrier(4)
    rows = 1000

    def work(n):
        try:
            columns = {"a": np.arange(rows) + n * 10000,
                       "p": [Decimal("9" * 77) if i % 50 == n else Decimal(i) for i in range(rows)]}
            start.wait()
            results[n] = qvcommon.derive(columns, {"b": "If(LogMsg(a), a * 2, 0)", "c": "p + 1"},
                                         on_error="null")
        except Exception as error:  # reported below
            errors.append(error)

    try:
        threads = [threading.Thread(target=work, args=(n,)) for n in range(4)]
        for t in threads:
            t.start()
        for t in threads:
            t.join()
    finally:
        logger.removeHandler(handler)
        logger.setLevel(level)
    assert not errors
    for n in range(4):
        assert results[n]["b"].tolist() == [(a + n * 10000) * 2 for a in range(rows)]
        assert results[n]["c"].tolist() == [None if i % 50 == n else i + 1 for i in range(rows)]
    by_thread = {}
    for thread, text in logged:
        by_thread.setdefault(thread, []).append(text)
    assert sorted(by_thread.values()) == [[str(a + n * 10000) for a in range(rows)] for n in range(4)]
