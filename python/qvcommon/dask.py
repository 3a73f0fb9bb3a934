"""qvcommon.dask: derive() over a Dask DataFrame, one partition at a time on the workers.

    >>> import dask.dataframe as dd, qvcommon.dask
    >>> frame = dd.read_csv("orders-*.csv")
    >>> totals = qvcommon.dask.derive(frame, {"total": "price * quantity"}, where="quantity > 0")
    >>> totals.compute()

Each partition is derived by qvcommon.derive in the worker that holds it. The library keeps
its state per process and is used by one thread at a time, so each worker process imports its
own copy of the module (a cluster of worker processes scales; threads of one worker take
turns). The workers need the same qvcommon package (and libqvcommon) as the client.

The output's schema (Dask's meta) comes from deriving a sample of the first partition once on
the client: that parses and validates the expressions, so an unknown name or a wrong argument
type fails here, before any work is sent out.
"""

import warnings
from collections.abc import Mapping

from . import columns as _columns
from .errors import EvaluationError

_SAMPLE_ROWS = 100


def derive(ddf, exprs, where=None, *, types=None, on_error="raise", include_input=False,
           sample=None):
    """qvcommon.derive over each partition of the Dask DataFrame ``ddf``; returns a Dask
    DataFrame with the derived columns (after the input columns with ``include_input``) and
    ``ddf``'s index and divisions (rows the condition drops leave gaps, not new divisions).

    ``exprs``, ``where``, ``types``, ``on_error`` and ``include_input`` are as for
    qvcommon.derive. ``sample`` is a pandas DataFrame of rows like ``ddf``'s to take the
    output's schema from; by default the first rows of the first partition are read (the
    columns' types in the language follow their data, and Dask's own meta has none for
    object columns). Object columns whose width varies between partitions (ints beyond 18
    digits in some, Decimals of more digits) are best given a type in ``types``, so that
    every partition derives columns of the same dtypes.

    A row that fails on a worker raises EvaluationError at compute time, naming the
    expression, the partition and the row within it, and the row's index label.
    """
    if not isinstance(exprs, Mapping):
        raise TypeError("exprs must be a mapping of column names to expression texts")
    exprs = {str(name): str(text) for name, text in exprs.items()}
    types = dict(types or {})
    if sample is None:
        sample = _first_rows(ddf)
    meta = _columns.derive(sample, exprs, where, types=types, on_error="null",
                           include_input=include_input).iloc[:0]
    return ddf.map_partitions(_derive_partition, exprs, where, types, on_error, include_input,
                              meta=meta, align_dataframes=False)


def _first_rows(ddf):
    """Up to _SAMPLE_ROWS rows of ddf's first partition, or Dask's made-up rows when it is
    empty."""
    with warnings.catch_warnings():  # "insufficient elements" when the partition is short
        warnings.simplefilter("ignore", UserWarning)
        head = ddf.head(_SAMPLE_ROWS, npartitions=1, compute=True)
    return head if len(head) else ddf._meta_nonempty


def _derive_partition(frame, exprs, where, types, on_error, include_input,
                      partition_info=None):
    """One partition, on a worker: qvcommon.derive with the partition's number added to a
    row's failure."""
    try:
        result = _columns.derive(frame, exprs, where, types=types, on_error=on_error,
                                 include_input=include_input)
    except EvaluationError as error:
        if partition_info is not None and getattr(error, "row", None) is not None:
            error.partition = partition_info["number"]
            error.args = (f"partition {error.partition}: {error.args[0]}",) + error.args[1:]
        raise
    return result
