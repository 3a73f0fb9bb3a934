"""Python stand-ins for the language's values that Python lacks: the year-month interval,
and a value with a declared type."""


class IntervalYM:
    """An INTERVAL YEAR TO MONTH: a signed number of months, shown as years and months.

    IntervalYM(1, 6) is one year and six months; IntervalYM(months=-18) the same, negative.
    """

    __slots__ = ("total_months",)

    def __init__(self, years=0, months=0):
        self.total_months = int(years) * 12 + int(months)

    @property
    def negative(self):
        return self.total_months < 0

    @property
    def years(self):
        """Whole years of the magnitude."""
        return abs(self.total_months) // 12

    @property
    def months(self):
        """Months of the magnitude beyond the whole years, 0..11."""
        return abs(self.total_months) % 12

    def __eq__(self, other):
        if isinstance(other, IntervalYM):
            return self.total_months == other.total_months
        return NotImplemented

    def __hash__(self):
        return hash(("IntervalYM", self.total_months))

    def __neg__(self):
        return IntervalYM(months=-self.total_months)

    def __repr__(self):
        sign = "-" if self.negative else ""
        return f"IntervalYM({sign}{self.years}, {sign}{self.months})" if self.negative \
            else f"IntervalYM({self.years}, {self.months})"

    def __str__(self):
        """The language's text form: "1-06", "-0-03"."""
        return f"{'-' if self.negative else ''}{self.years}-{self.months:02d}"

    def __reduce__(self):
        return (IntervalYM, (0, self.total_months))


class Typed:
    """A value with a declared type, converted into it as the language converts values:
    Typed("12.5", "NUMBER(10,2)"), Typed(None, "INTEGER") (a NULL INTEGER),
    Typed("2024-03-15", "DATE"). A value that does not read as the type, or does not fit
    it, is a ValueError when it is bound."""

    __slots__ = ("value", "type")

    def __init__(self, value, type):
        self.value = value
        self.type = type

    def __repr__(self):
        return f"Typed({self.value!r}, {self.type!r})"

    def __eq__(self, other):
        return isinstance(other, Typed) and (self.value, self.type) == (other.value, other.type)

    def __hash__(self):
        return hash((self.value, self.type))
