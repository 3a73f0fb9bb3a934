"""derive(): expressions evaluated over columns, the rows walked by the library in C++.

The columns are handed to the extension as NumPy arrays of six kinds (int64, float64, bool,
datetime64 and timedelta64 as int64 nanoseconds, object), each with an optional mask of
NULLs; the results come back the same way and are made into NumPy arrays or DataFrame
columns here.
"""

import warnings
from collections.abc import Mapping

import numpy as np

from . import _qvcommon

_ON_ERROR = ("raise", "null", "skip")


def derive(columns, exprs, where=None, *, types=None, on_error="raise", include_input=False):
    """Evaluates each expression of ``exprs`` (a mapping of new column names to expression
    texts) over the rows of ``columns`` and returns the derived columns.

    ``columns`` is a pandas DataFrame or a mapping of column names to NumPy arrays or lists,
    all of one length. A column's type in the language follows its data: integers INTEGER,
    floats FLOAT (NaN is NULL, as pandas writes missing numbers), bool BOOLEAN, datetime64
    DATE, timedelta64 INTERVAL DAY TO SECOND, and object columns by their elements (str
    CHAR, Decimal NUMBER wide enough for every element, datetime DATE ..., None NULL).
    ``types`` declares a column's type instead ({"price": "NUMBER(10,2)"}); its elements are
    converted into it, and one that does not read as the type fails its row. A bare "NUMBER"
    or "CHAR" takes its size from the data.

    ``where`` is a condition: only the rows where it is TRUE are kept.

    ``on_error`` says what a failing row does: "raise" (EvaluationError naming the
    expression and the row), "null" (NULL for what failed; a failing condition drops the
    row), "skip" (the row is dropped). Failed rows under "null" and "skip" are counted in a
    RuntimeWarning.

    Returns, for a DataFrame, a DataFrame of the derived columns with the kept rows' index
    (INTEGER as Int64, BOOLEAN as boolean, FLOAT float64, DATE datetime64[ns], INTERVAL DAY
    TO SECOND timedelta64[ns], other types objects: str, Decimal, datetime with tzinfo ...);
    for a mapping, a dict of NumPy arrays (NULL is None in object arrays, NaN or NaT in the
    others; an INTEGER or BOOLEAN column with NULLs becomes an object array). With
    ``include_input`` the input columns come first, a derived column replacing an input
    column of the same name.
    """
    if not isinstance(exprs, Mapping):
        raise TypeError("exprs must be a mapping of column names to expression texts")
    if on_error not in _ON_ERROR:
        raise ValueError(f"on_error must be one of {', '.join(_ON_ERROR)}, not {on_error!r}")
    frame = _pandas_frame(columns)
    if frame is not None:
        names = [str(name) for name in frame.columns]
        data = [frame.iloc[:, n] for n in range(frame.shape[1])]
        labels = frame.index
    elif isinstance(columns, Mapping):
        names = [str(name) for name in columns]
        data = list(columns.values())
        labels = None
    else:
        raise TypeError("columns must be a pandas DataFrame or a mapping of names to arrays")
    prepared = [(name, *_column(name, values)) for name, values in zip(names, data)]
    result = _qvcommon._derive(prepared, [(str(k), str(v)) for k, v in exprs.items()], where,
                               dict(types or {}), on_error, labels)
    if result["failure_count"]:
        row, what, text = result["failures"][0]
        warnings.warn(f"derive: {result['failure_count']} row(s) failed (on_error="
                      f"{on_error!r}); the first, row {row}: {what}: {text}",
                      RuntimeWarning, stacklevel=2)
    kept = result["kept"]
    if frame is not None:
        return _frame_result(frame, result["columns"], kept, include_input)
    return _mapping_result(columns, result["columns"], kept, include_input)


def column_types(columns, types=None):
    """The type in the language of each column of ``columns`` (as derive reads them, with the
    declared ``types``), as a dict of declarations: {"price": "NUMBER(6,2)", ...}."""
    frame = _pandas_frame(columns)
    items = frame.items() if frame is not None else columns.items()
    prepared = [(str(name), *_column(str(name), values)) for name, values in items]
    exprs = [(name, f'"{name}"') for name, *_ in prepared]
    result = _qvcommon._derive(prepared, exprs, None, dict(types or {}), "raise", None)
    return {name: declared for name, _kind, _data, _mask, declared in result["columns"]}


def _pandas_frame(columns):
    """columns when it is a DataFrame (pandas is imported only when one may be)."""
    if type(columns).__module__.startswith("pandas") or hasattr(columns, "iloc"):
        import pandas
        if isinstance(columns, pandas.DataFrame):
            return columns
    return None


def _column(name, values):
    """(kind, data, mask) of one input column."""
    mask = None
    if hasattr(values, "dtype") and hasattr(values, "isna"):  # a pandas Series
        values, mask = _series_values(values)
    elif isinstance(values, np.ndarray):
        pass
    else:
        listed = list(values)
        values = np.empty(len(listed), dtype=object)
        values[:] = listed
    if values.ndim != 1:
        raise ValueError(f"column {name!r} has {values.ndim} dimensions; columns have one")
    kind = values.dtype.kind
    if kind in "iu":
        if kind == "u" and values.dtype.itemsize == 8 and len(values) and \
                values.max() > np.iinfo(np.int64).max:
            return "object", values.astype(object), mask
        return "int64", np.ascontiguousarray(values, dtype=np.int64), mask
    if kind == "f":
        return "float64", np.ascontiguousarray(values, dtype=np.float64), mask
    if kind == "b":
        return "bool", np.ascontiguousarray(values, dtype=np.bool_), mask
    if kind == "M":
        if values.dtype != np.dtype("datetime64[ns]"):
            return "object", values.astype("datetime64[us]").astype(object), mask
        return "datetime64", np.ascontiguousarray(values).view(np.int64), mask
    if kind == "m":
        if values.dtype != np.dtype("timedelta64[ns]"):
            return "object", values.astype("timedelta64[us]").astype(object), mask
        return "timedelta64", np.ascontiguousarray(values).view(np.int64), mask
    if kind in "USO":
        return "object", np.ascontiguousarray(values, dtype=object), mask
    raise TypeError(f"column {name!r}: NumPy's {values.dtype} has no type in the expression "
                    f"language")


def _series_values(series):
    """The NumPy data of a Series and its NULL mask (None when the data shows NULLs itself)."""
    import pandas
    dtype = series.dtype
    if isinstance(dtype, pandas.api.extensions.ExtensionDtype):
        mask = series.isna().to_numpy()
        if dtype.kind in "iub":  # Int64, UInt8 ..., boolean: the values beside a mask
            fill = False if dtype.kind == "b" else 0
            base = np.bool_ if dtype.kind == "b" else np.float64 if dtype.kind == "f" else None
            data = series.to_numpy(dtype=base or dtype.numpy_dtype, na_value=fill)
            return data, mask if mask.any() else None
        if dtype.kind == "f":
            return series.to_numpy(dtype=np.float64, na_value=np.nan), None
        return series.to_numpy(dtype=object, na_value=None), None
    return series.to_numpy(), None


def _frame_result(frame, columns, kept, include_input):
    import pandas
    index = frame.index if kept is None else frame.index[kept]
    data = {}
    for name, kind, values, mask, _type in columns:
        if kind == "int64":
            values = pandas.arrays.IntegerArray(values, _mask(mask, len(values)))
        elif kind == "bool":
            values = pandas.arrays.BooleanArray(values, _mask(mask, len(values)))
        elif kind == "datetime64":
            values = values.view("datetime64[ns]")
        elif kind == "timedelta64":
            values = values.view("timedelta64[ns]")
        data[name] = values
    derived = pandas.DataFrame(data, index=index)
    if not include_input:
        return derived
    base = frame if kept is None else frame.iloc[kept]
    base = base.drop(columns=[c for c in base.columns if str(c) in data])
    return pandas.concat([base, derived], axis=1)


def _mapping_result(columns, results, kept, include_input):
    out = {}
    if include_input:
        for name, values in columns.items():
            if kept is None:
                out[str(name)] = values
            elif isinstance(values, np.ndarray):
                out[str(name)] = values[kept]
            else:
                listed = list(values)
                out[str(name)] = [listed[i] for i in kept]
    for name, kind, values, mask, _type in results:
        if kind == "datetime64":
            values = values.view("datetime64[ns]")
        elif kind == "timedelta64":
            values = values.view("timedelta64[ns]")
        elif kind in ("int64", "bool") and mask is not None:
            values = values.astype(object)
            values[mask] = None
        out.pop(name, None)
        out[name] = values
    return out


def _mask(mask, length):
    return np.zeros(length, dtype=np.bool_) if mask is None else mask
