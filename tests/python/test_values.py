"""Values both ways between Python and the library, and arithmetic against Python's own."""

import datetime as dt
import pickle
import random
from decimal import Decimal, localcontext

import pytest

import qvcommon
from qvcommon import Expression, IntervalYM, Typed

UTC_MINUS_0530 = dt.timezone(-dt.timedelta(hours=5, minutes=30))
BIG = Decimal("9" * 77)
SMALL = Decimal("-0." + "0" * 76 + "1")

# (Python value given, the library's type of it, the Python value it comes back as)
ROUND_TRIPS = [
    (None, None, None),
    (True, "BOOLEAN", True),
    (False, "BOOLEAN", False),
    (0, "INTEGER", 0),
    (-(2**63), "INTEGER", -(2**63)),
    (2**63 - 1, "INTEGER", 2**63 - 1),
    (2**63, "NUMBER(19,0)", Decimal(2**63)),
    (-(10**76), "NUMBER(77,0)", Decimal(-(10**76))),
    (1.5, "FLOAT", 1.5),
    (-1e308, "FLOAT", -1e308),
    (Decimal("12.50"), "NUMBER(4,2)", Decimal("12.50")),
    (Decimal("-0.001"), "NUMBER(3,3)", Decimal("-0.001")),
    (BIG, "NUMBER(77,0)", BIG),
    (SMALL, "NUMBER(77,77)", SMALL),
    ("", "CHAR", ""),
    ("Zoë Åsa 漢字 🎉", "CHAR", "Zoë Åsa 漢字 🎉"),
    ("\udcff\udc80", "CHAR", "\udcff\udc80"),  # invalid UTF-8 bytes, kept
    (b"\x00\xffab", "BINARY(4)", b"\x00\xffab"),
    (dt.datetime(2024, 2, 29, 23, 59, 58, 999999), "DATE", dt.datetime(2024, 2, 29, 23, 59, 58, 999999)),
    (dt.datetime(1, 1, 1), "DATE", dt.datetime(1, 1, 1)),
    (dt.date(2020, 3, 1), "DATE", dt.datetime(2020, 3, 1)),
    (dt.datetime(2024, 1, 2, 3, 4, 5, tzinfo=UTC_MINUS_0530), "DATE WITH TIME ZONE",
     dt.datetime(2024, 1, 2, 3, 4, 5, tzinfo=UTC_MINUS_0530)),
    (dt.time(13, 14, 15, 16), "TIME", dt.time(13, 14, 15, 16)),
    (dt.time(1, 2, tzinfo=dt.timezone.utc), "TIME WITH TIME ZONE", dt.time(1, 2, tzinfo=dt.timezone.utc)),
    (dt.timedelta(days=-3, seconds=5, microseconds=7), "INTERVAL DAY TO SECOND",
     dt.timedelta(days=-3, seconds=5, microseconds=7)),
    (dt.timedelta(days=999999), "INTERVAL DAY TO SECOND", dt.timedelta(days=999999)),
    (IntervalYM(-1, -6), "INTERVAL YEAR TO MONTH", IntervalYM(months=-18)),
    (IntervalYM(12345, 11), "INTERVAL YEAR TO MONTH", IntervalYM(12345, 11)),
    ([1, "a", None, [Decimal("2.5")]], "ARRAY", [1, "a", None, [Decimal("2.5")]]),
    (Typed("12.5", "NUMBER(10,2)"), "NUMBER(10,2)", Decimal("12.50")),
    (Typed(None, "INTEGER"), "INTEGER", None),
    (Typed("2024-03-15", "DATE"), "DATE", dt.datetime(2024, 3, 15)),
]


@pytest.mark.parametrize("given, type_name, back", ROUND_TRIPS, ids=repr)
def test_value_round_trip(given, type_name, back):
    expression = Expression("v")
    result = expression.evaluate(v=given)
    assert result == back and type(result) is type(back)
    if type_name is not None:
        assert expression.result_type.startswith(type_name)


def test_nulls_of_each_type_are_none_and_null_in_the_language():
    for given, type_name, _ in ROUND_TRIPS:
        if type_name and type_name != "ARRAY":
            declared = Typed(None, type_name if "(" in type_name else type_name)
            assert Expression("v IS NULL").evaluate(v=declared) is True, type_name
    assert Expression("IfNull(v, 'none')").evaluate(v=None) == "none"


def test_values_that_have_no_form_are_refused_by_name():
    cases = [
        (object(), TypeError, "v: a object has no value in the expression language"),
        (Decimal("1" * 78), ValueError, "has more than 77 digits"),
        (10**77, ValueError, "has more than 77 digits"),
        (Decimal("NaN"), ValueError, "has no NUMBER value"),
        ("a\0b", ValueError, "NUL character"),
        (Typed("abc", "INTEGER"), ValueError, "'abc' does not read as INTEGER"),
        (Typed("1", "NOSUCH"), ValueError, "'NOSUCH' is not a data type"),
        (dt.datetime(2024, 1, 1, tzinfo=dt.timezone(dt.timedelta(seconds=30))), ValueError,
         "whole minutes"),
    ]
    for given, error, text in cases:
        with pytest.raises(error, match=text.replace("(", r"\(")):
            Expression("v").evaluate(v=given)


def test_dates_out_of_pythons_range_raise():
    with pytest.raises(ValueError, match="outside the years 1 to 9999"):
        Expression("AddToDate(v, -1)").evaluate(v=dt.datetime(1, 1, 1))


def test_number_arithmetic_matches_python_decimal_to_77_digits():
    rng = random.Random(7)
    exact = Expression("a * b + c - a")
    divided = Expression("a / 7")
    with localcontext() as context:
        context.prec = 200
        for _ in range(200):
            a = Decimal(rng.randrange(-10**25, 10**25)).scaleb(-rng.randrange(1, 7))
            b = Decimal(rng.randrange(-10**25, 10**25))  # a product keeps the larger scale
            c = Decimal(rng.randrange(-10**60, 10**60)).scaleb(-5)
            assert exact.evaluate(a=a, b=b, c=c) == a * b + c - a
            quotient = divided.evaluate(a=a)
            # the quotient is exact to its last decimal
            assert abs(quotient - a / 7) < Decimal(10) ** quotient.as_tuple().exponent
    assert Expression("v + 0").evaluate(v=BIG) == BIG


def test_whole_number_products_keep_the_integer_rules():
    # NUMBERs of scale 0 multiply into NUMBER(max(p1, p2), 0) from 20 digits on, and into at
    # most 19 digits below: a product beyond that is an overflow, not a wider number.
    with pytest.raises(qvcommon.EvaluationError, match="does not fit a NUMBER of 77 digits"):
        Expression("a * b").evaluate(a=Decimal(10**20), b=Decimal(10**20))
    assert Expression("a * b").evaluate(a=Decimal("1e20") + Decimal("0.0"),
                                        b=Decimal(10**20)) == Decimal(10**40)
    # INTEGER arithmetic wraps in 64-bit two's complement
    assert Expression("11111111111 * 11111111111").evaluate() == (11111111111**2 + 2**63) % 2**64 - 2**63


def test_date_arithmetic_matches_datetime():
    rng = random.Random(3)
    add = Expression("AddToDate(d, n)")
    between = Expression("DaysBetween(d, e)")
    for _ in range(300):
        # from 1583 on: before the Gregorian reform the library counts Julian days
        d = dt.datetime(1583, 1, 1) + dt.timedelta(days=rng.randrange(300_000, 2_700_000),
                                                   seconds=rng.randrange(86400))
        n = rng.randrange(-300_000, 300_000)
        assert add.evaluate(d=d, n=n) == d + dt.timedelta(days=n)
        e = d + dt.timedelta(days=n)
        assert between.evaluate(d=e, e=d) == n


def test_rebinding_a_name_with_another_type_validates_again():
    expression = Expression("Concat(ToChar(v), '!')")
    assert expression.evaluate(v="x") == "x!"
    assert expression.evaluate(v=12) == "12!"
    assert expression.evaluate(v=Decimal("1.50")) == "1.5!"
    assert expression.evaluate(v=None) == "!"
    with pytest.raises(TypeError, match="has no name 'w'"):
        expression.evaluate(v="x", w=1)


def test_numpy_and_pandas_scalars_map_as_their_python_values():
    numpy = pytest.importorskip("numpy")
    pandas = pytest.importorskip("pandas")
    assert Expression("v").evaluate(v=numpy.int32(-5)) == -5
    assert Expression("v").evaluate(v=numpy.float32(0.5)) == 0.5
    assert Expression("v").evaluate(v=numpy.datetime64("2024-05-06T07:08:09")) == dt.datetime(2024, 5, 6, 7, 8, 9)
    assert Expression("v").evaluate(v=pandas.NA) is None
    assert Expression("v").evaluate(v=pandas.NaT) is None
    assert Expression("v").evaluate(v=pandas.Timestamp("2024-01-01 00:00:00.000000001")) == dt.datetime(2024, 1, 1)


def test_variables_hold_values_of_every_type():
    for name, (given, _, back) in zip("abcdefghijklmnop", ROUND_TRIPS[1::2]):
        qvcommon.variables[name] = given
        assert qvcommon.variables[name] == back
        assert Expression(f"${name}").evaluate() == back
    qvcommon.variables["a"] = "now a text"
    assert Expression("$a").evaluate() == "now a text"
    del qvcommon.variables["a"]
    assert "a" not in qvcommon.variables
    with pytest.raises(KeyError):
        del qvcommon.variables["a"]


def test_interval_ym_shows_and_pickles():
    assert str(IntervalYM(months=-3)) == "-0-03"
    assert repr(IntervalYM(1, 6)) == "IntervalYM(1, 6)"
    assert pickle.loads(pickle.dumps(IntervalYM(2, 1))) == IntervalYM(2, 1)
