"""Scripts of statements and user-defined functions from Python: values both ways through the
script's variables, how a run ends, and failures with the library's text."""

import datetime as dt
import signal
from decimal import Decimal

import pytest

import qvcommon
from qvcommon import EvaluationError, Expression, ParseError, Script, Typed, ValidationError

MSG_PARSE_FAILED = 0xA1B51C57

LOOP = "$t := 0; FOR $i := 1 TO $n DO $t := $t + $i; RETURN $t"
WHILE = "$s := ''; WHILE Length($s) < $n DO $s := Concat($s, $c); RETURN $s"
IF = "IF $x > 10 THEN RETURN 'big' ELSE IF $x > 5 THEN RETURN 'middle'; RETURN 'small'"
CASE = ("CASE $code OF 1, 2: $k := 'low'; 'x': BEGIN $k := 'mid' END; "
        "DEFAULT: $k := 'any' END; RETURN $k")
EXIT = "$a := 1; IF $a = $stop THEN Exit(4); RETURN 2"

# (script, variables given, result, how the run ended)
RUNS = [
    (LOOP, {"n": 4}, 10, "returned"),
    (LOOP, {"n": 0}, 0, "returned"),  # an empty range runs nothing
    (LOOP, {"n": None}, 0, "returned"),  # nor does a NULL bound
    (WHILE, {"n": 3, "c": "é"}, "ééé", "returned"),
    (IF, {"x": 11}, "big", "returned"),
    (IF, {"x": 6.5}, "middle", "returned"),
    (IF, {"x": 5}, "small", "returned"),
    (IF, {"x": None}, "small", "returned"),  # a NULL condition does not hold
    (CASE, {"code": 2}, "low", "returned"),
    (CASE, {"code": 1.0}, "low", "returned"),  # compared as "=" compares
    (CASE, {"code": "x"}, "mid", "returned"),
    (CASE, {"code": None}, "any", "returned"),  # NULL matches no branch
    (EXIT, {"stop": 1}, None, "exited"),
    (EXIT, {"stop": 0}, 2, "returned"),
    ("$r := $p * $q", {"p": Decimal("2.50"), "q": 3}, None, "completed"),
    ("RETURN $p * $q", {"p": Decimal("2.50"), "q": 3}, Decimal("7.50"), "returned"),
    ("RETURN $x", {"x": None}, None, "returned"),
    ("RETURN $x + 1", {"x": None}, None, "returned"),
    ("RETURN IfNull($x, 'none')", {"x": None}, "none", "returned"),
    ("RETURN $d", {"d": dt.datetime(2024, 2, 29, 12, 30)}, dt.datetime(2024, 2, 29, 12, 30),
     "returned"),
    ("$b := $b + $b; RETURN $b", {"b": Decimal("1" * 76)}, Decimal("2" * 76), "returned"),
    (" ; ;", {"unused": 1}, None, "completed"),  # a script that does nothing
]


@pytest.mark.parametrize("text, variables, result, status", RUNS)
def test_runs_give_the_result_and_how_they_ended(text, variables, result, status):
    script = Script(text)
    value = script.run(**variables)
    assert value == result and type(value) is type(result)
    assert script.status == status
    assert script.exit_code == (4 if status == "exited" else None)


def test_a_text_variable_read_alone_keeps_its_length():
    script = Script("IF $c THEN $k := 'low' ELSE $k := 'other'; RETURN $k")
    assert script.run(c=False) == "other"


def test_variables_keep_their_values_between_runs_and_can_change_type():
    script = Script("$runs := IfNull($runs, 0) + 1; RETURN $x", name="counter")
    assert script.run(x=1) == 1
    assert script.run(x="text") == "text"  # another type: validated again
    assert script.run(x=[1, None]) == [1, None]
    assert script.run(x=Decimal("1.50")) == Decimal("1.50")
    assert script.variables == {"runs": 4, "x": Decimal("1.50")}
    assert script.run(runs=10, x=None) is None
    assert script.variables == {"runs": 11, "x": None}


def test_a_signal_handler_interrupts_an_endless_loop():
    def alarm(signum, frame):
        raise TimeoutError("stop")

    script = Script("$n := 0; WHILE TRUE DO $n := $n + 1")
    previous = signal.signal(signal.SIGALRM, alarm)
    try:
        signal.setitimer(signal.ITIMER_REAL, 0.2)
        with pytest.raises(TimeoutError, match="stop"):
            script.run()
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, previous)
    assert script.status == "interrupted" and script.variables["n"] > 0
    assert Script("RETURN 1").run() == 1  # the next run is not interrupted


def test_given_variables_hide_the_global_ones():
    qvcommon.variables["rate"] = Decimal("0.5")
    try:
        script = Script("RETURN $rate * 10")
        assert script.run() == Decimal("5.0")
        qvcommon.variables["rate"] = 3  # another type: the global is made anew
        assert script.run() == 30
        assert script.run(rate=2) == 20
        assert qvcommon.variables["rate"] == 3
    finally:
        del qvcommon.variables["rate"]


def test_user_defined_functions_from_scripts_and_expressions():
    assert qvcommon.declare(
        "FUNCTION PyFact($n INTEGER) RETURNS INTEGER BEGIN "
        "IF $n <= 1 THEN RETURN 1; RETURN $n * PyFact($n - 1) END") == ["PyFact"]
    script = Script("$t := 0; FOR $i := 1 TO $k DO $t := $t + PyFact($i); RETURN $t")
    expression = Expression("PyFact(n)")
    assert script.run(k=5) == 153 and expression.evaluate(n=5) == 120
    # a later declaration moves the records both call: they parse again
    assert qvcommon.declare("FUNCTION PyHalf($x) BEGIN RETURN $x / 2 END; "
                            "FUNCTION PyStop($c) BEGIN Exit($c); RETURN 0 END") == ["PyHalf", "PyStop"]
    assert script.run(k=3) == 9 and expression.evaluate(n=3) == 6
    assert Script("RETURN PyHalf(PyFact($k))").run(k=4) == 12
    stopped = Script("RETURN PyStop(7)")
    assert stopped.run() is None and (stopped.status, stopped.exit_code) == ("exited", 7)
    usage = {f.name: f.usage for f in qvcommon.functions()}
    assert usage["PyFact"] == "PyFact( $n INTEGER ) RETURNS INTEGER"
    with pytest.raises(ParseError, match="declare: .* A function named PyFact is declared already"):
        qvcommon.declare("FUNCTION PyFact($n) BEGIN RETURN 1 END")
    assert script.run(k=2) == 3  # a failed declaration leaves the functions as they were


# (script, character position, marked text, the reason's wording)
PARSE_FAILURES = [
    ("IF $x > 1; $y := 2", 9, "IF $x > 1>>>; $y := 2", "The keyword THEN was expected here."),
    ("FOR $i := 1 DO $x := 1", 12, "FOR $i := 1 >>>DO $x := 1",
     "The keyword TO/DOWNTO was expected here."),
    ("  WHILE $x DO", 13, "WHILE $x DO>>>", "A statement was expected here"),  # blanks trimmed
    ("$é := 'é' +* 2", 11, "$é := 'é' +>>>* 2", "An operand is missing here"),  # characters
    ("BEGIN $x := 1", 13, "BEGIN $x := 1>>>", "The text ends before END closes the BEGIN"),
    ("$x(1)", 0, ">>>$x(1)", "A variable cannot be called as a procedure."),
]


@pytest.mark.parametrize("text, position, marked, reason", PARSE_FAILURES)
def test_parse_errors_carry_number_position_and_marked_text(text, position, marked, reason):
    with pytest.raises(ParseError) as caught:
        Script(text)
    error = caught.value
    assert error.number == MSG_PARSE_FAILED and error.text == text
    assert str(error).startswith("The expression cannot be parsed at position") and reason in str(error)
    assert (error.position, error.marked) == (position, marked) and error.reason != 0


def test_runtime_and_validation_errors_carry_the_library_text():
    script = Script("$y := $v + 1; RETURN $y", name="adder")
    with pytest.raises(EvaluationError, match=r"script 'adder': The result of \+ at position 9 "
                                              r"does not fit a NUMBER of 77 digits.") as caught:
        script.run(v=Typed("9" * 77, "NUMBER(77,0)"))
    assert caught.value.expression == script.text and script.status == "failed"
    assert script.run(v=1) == 2  # usable after a failure
    with pytest.raises(ValidationError, match="Argument 1 of Upper at position 7 is FLOAT"):
        Script("RETURN Upper($x)").run(x=1.5)
    with pytest.raises(ValidationError, match="The name nosuch at position 7 is not bound"):
        Script("RETURN nosuch").run()
    with pytest.raises(TypeError, match="x"):
        Script("RETURN $x").run(x=object())
    with pytest.raises(ParseError, match="declare"):
        qvcommon.declare("FUNCTION PyBad($a) BEGIN RETURN $a +* 1 END")
