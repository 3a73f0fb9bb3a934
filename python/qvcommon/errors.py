"""Exceptions of qvcommon: what the library logged when a call failed, as attributes.

Every exception carries ``number`` (the first message's number, e.g. 0xA1B51C57) and
``messages``: the library's messages of the failed call as (number, severity, text) tuples,
severity one of "D", "I", "W", "E", "F". They pickle with their attributes, so a failure on a
Dask worker reaches the client whole.
"""


class QvError(Exception):
    """A call into the library failed; ``str(error)`` is the library's own text."""

    def __init__(self, message, *, number=0, messages=(), exit_code=None, **attributes):
        super().__init__(message)
        self.number = number
        self.messages = list(messages)
        self.exit_code = exit_code
        for name, value in attributes.items():
            setattr(self, name, value)

    def __reduce__(self):
        attributes = dict(self.__dict__)
        return (_rebuild, (type(self), self.args[0] if self.args else "", attributes))


def _rebuild(cls, message, attributes):
    error = cls.__new__(cls)
    Exception.__init__(error, message)
    error.__dict__.update(attributes)
    return error


class ParseError(QvError):
    """A text that does not parse. ``reason`` is the parser's message number (what was
    wrong), ``position`` the character offset in ``text`` where it went wrong
    (``byte_position`` the same in UTF-8 bytes), ``marked`` the text with ">>>" there."""


class ValidationError(QvError):
    """An expression that parsed but cannot be evaluated with what it was given: a name not
    bound to a column or value, an argument of a type its function does not take.
    ``expression`` says which."""


class EvaluationError(QvError):
    """An evaluation the library stopped (a NUMBER beyond 77 digits, Exit, a value that does
    not fit), or a row whose element does not read as its column's type. ``expression``
    names what failed; in derive, ``column`` is the derived column (None for an input column
    or the condition), ``row`` the row's position and ``index`` its label when the input had
    an index."""
