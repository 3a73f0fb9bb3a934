"""qvcommon: the expression language of the qvcommon library, from Python.

    >>> import qvcommon
    >>> qvcommon.Expression("Concat(Upper(name), '!')").evaluate(name="ada")
    'ADA!'
    >>> qvcommon.Expression("price * qty").evaluate(price=Decimal("2.50"), qty=3)
    Decimal('7.50')
    >>> qvcommon.derive(frame, {"total": "price * qty"}, where="qty > 0")
    >>> qvcommon.Script("$t := 0; FOR $i := 1 TO $n DO $t := $t + $i; RETURN $t").run(n=4)
    10

Values map to Python types both ways (see qvcommon.values and the README): NULL is None,
NUMBER decimal.Decimal (exactly, up to 77 digits), INTEGER int, FLOAT float, CHAR str,
BINARY bytes, BOOLEAN bool, DATE datetime.datetime, TIME datetime.time (aware ones for the
zone types), INTERVAL DAY TO SECOND datetime.timedelta, INTERVAL YEAR TO MONTH IntervalYM,
ARRAY list. Failures raise the exceptions of qvcommon.errors.

qvcommon.dask (imported on its own: it needs Dask) runs derive over a Dask DataFrame.

The library's state (variables, user-defined functions) belongs to the process; calls from
several threads take turns. Dask workers are processes, each with its own library.
"""

from collections import namedtuple
from collections.abc import MutableMapping

from .errors import EvaluationError, ParseError, QvError, ValidationError
from .values import IntervalYM, Typed
from . import _qvcommon
from ._qvcommon import Expression, Script, declare
from .columns import column_types, derive

__all__ = ["Expression", "Script", "declare", "derive", "column_types", "functions", "variables",
           "IntervalYM", "Typed", "QvError", "ParseError", "ValidationError",
           "EvaluationError", "Function"]

Function = namedtuple("Function", "name usage category min_args max_args result_types number")
Function.__doc__ = """A function an expression may call: its name, usage line ("SubStr( string,
start [, length] )"), category, fewest and most arguments (max_args None: no limit), the
types it may return ("CHAR or CLOB"; None when the value decides) and its number."""


def functions():
    """Every function an expression may call: the user-defined ones first, then the
    built-ins, as Function tuples."""
    return [Function(*row) for row in _qvcommon._functions()]


class _Variables(MutableMapping):
    """The global variables of the language ($name in expressions), by name. Setting one
    gives it the value's type; a value of another type replaces the variable."""

    def __getitem__(self, name):
        return _qvcommon._get_variable(name)

    def __setitem__(self, name, value):
        _qvcommon._set_variable(name, value)

    def __delitem__(self, name):
        _qvcommon._delete_variable(name)

    def __iter__(self):
        return iter(_qvcommon._variable_names())

    def __len__(self):
        return len(_qvcommon._variable_names())

    def __repr__(self):
        return f"variables({dict(self)!r})"


variables = _Variables()
