"""Failures as Python exceptions carrying the library's own text, and the function list."""

import pickle

import pytest

import qvcommon
from qvcommon import EvaluationError, Expression, ParseError, ValidationError

MSG_PARSE_FAILED = 0xA1B51C57

# (text, position in characters, marked text, the reason's wording)
PARSE_FAILURES = [
    ("1 +* 2", 3, "1 +>>>* 2", "An operand is missing here"),
    ("'é' +* 2", 5, "'é' +>>>* 2", "An operand is missing here"),  # bytes 6, characters 5
    ("Substr(", 7, "Substr(>>>", "The text ends before ')' closes"),
    ("If(1, 2)", 0, ">>>If(1, 2)", "Too few arguments are given to If."),
    ("nosuch(1)", 0, ">>>nosuch(1)", "There is no function named 'nosuch'."),
]


@pytest.mark.parametrize("text, position, marked, reason", PARSE_FAILURES)
def test_parse_errors_carry_number_position_and_marked_text(text, position, marked, reason):
    with pytest.raises(ParseError) as caught:
        Expression(text)
    error = caught.value
    assert error.number == MSG_PARSE_FAILED
    assert error.position == position and error.marked == marked and error.text == text
    assert reason in str(error) and str(error).startswith("The expression cannot be parsed")
    assert error.reason != 0 and error.messages[0][:2] == (MSG_PARSE_FAILED, "E")


def test_an_empty_text_is_a_value_error():
    with pytest.raises(ValueError, match="holds nothing to evaluate"):
        Expression("   ")


def test_unbound_names_and_argument_types_are_validation_errors():
    with pytest.raises(ValidationError, match="The name nosuch at position 0 is not bound") as caught:
        Expression("nosuch + 1").evaluate()
    assert caught.value.expression == "nosuch + 1"
    with pytest.raises(ValidationError, match="Argument 1 of Upper at position 0 is FLOAT, but "
                                              "Upper takes CHAR or CLOB there."):
        Expression("Upper(x)").evaluate(x=1.5)
    with pytest.raises(TypeError, match=r"has no name 'y' \(it reads: x\)"):
        Expression("x + 1").evaluate(y=2)


def test_evaluation_errors_and_exit():
    with pytest.raises(EvaluationError, match="The result of \\+ at position 2 does not fit a "
                                              "NUMBER of 77 digits."):
        Expression("v + 1").evaluate(v=qvcommon.Typed("9" * 77, "NUMBER(77,0)"))
    with pytest.raises(EvaluationError, match=r"Exit\( 3 \) ended the evaluation.") as caught:
        Expression("Exit(3)").evaluate()
    assert caught.value.exit_code == 3
    # the expression is usable after a failure
    assert Expression("1 + 1").evaluate() == 2


def test_errors_pickle_with_their_attributes():
    with pytest.raises(ParseError) as caught:
        Expression("1 +* 2")
    copy = pickle.loads(pickle.dumps(caught.value))
    assert type(copy) is ParseError and str(copy) == str(caught.value)
    assert (copy.position, copy.marked, copy.number) == (3, "1 +>>>* 2", MSG_PARSE_FAILED)


def test_functions_list_usage_lines():
    functions = {f.name: f for f in qvcommon.functions()}
    assert functions["Substr"].usage == "SubStr( string, from [, count] )"
    assert (functions["Substr"].min_args, functions["Substr"].max_args) == (2, 3)
    assert functions["Concat"].max_args is None
    assert all(f.usage for f in functions.values())
    assert len(functions) > 100
