"""qvcommon.dask.derive on a LocalCluster of worker processes, against the single-process
derive."""

import os
from decimal import Decimal

import pandas as pd
import pytest

import qvcommon
import qvcommon.dask
from conftest import ORDER_TYPES
from qvcommon import EvaluationError, ValidationError
from test_derive import ORDER_EXPRS, ORDER_WHERE

dd = pytest.importorskip("dask.dataframe")
distributed = pytest.importorskip("distributed")


@pytest.fixture(scope="module")
def client():
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                  dashboard_address=None, silence_logs=40) as cluster, \
            distributed.Client(cluster) as client:
        yield client


def test_partitions_on_two_workers_equal_one_process(orders, client):
    frame = dd.from_pandas(orders, npartitions=8)
    assert frame.npartitions == 8
    derived = qvcommon.dask.derive(frame, ORDER_EXPRS, where=ORDER_WHERE, types=ORDER_TYPES)
    expected = qvcommon.derive(orders, ORDER_EXPRS, where=ORDER_WHERE, types=ORDER_TYPES)
    assert list(derived.columns) == list(expected.columns)
    assert dict(derived.dtypes) == dict(expected.dtypes)
    computed = derived.compute()
    pd.testing.assert_frame_equal(computed, expected)
    # both workers took part
    assert len({w for w in client.run(os.getpid).values()}) == 2


def test_bad_expressions_fail_before_any_work_is_sent(orders, client):
    frame = dd.from_pandas(orders, npartitions=8)
    with pytest.raises(ValidationError, match="The name nosuch at position 0 is not bound"):
        qvcommon.dask.derive(frame, {"x": "nosuch + 1"})


def test_a_row_failing_on_a_worker_names_partition_row_and_index(client):
    values = [Decimal(n) for n in range(80)]
    values[45] = Decimal("9" * 77)
    frame = dd.from_pandas(pd.DataFrame({"p": values}, index=range(1000, 1080)), npartitions=8)
    derived = qvcommon.dask.derive(frame, {"q": "p + 1"})
    with pytest.raises(EvaluationError) as caught:
        derived.compute()
    error = caught.value
    assert str(error).startswith("partition 4: derive column 'q' := p + 1 failed at row 5 "
                                 "(index 1045): The result of + at position 2 does not fit")
    assert (error.partition, error.row, error.index) == (4, 5, 1045)
    nulled = qvcommon.dask.derive(frame, {"q": "p + 1"}, on_error="null").compute()
    assert nulled["q"].isna().sum() == 1 and nulled["q"][1046] == Decimal(47)
