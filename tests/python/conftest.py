"""Shared fixtures of the qvcommon Python tests: the package from the build tree (CTest sets
PYTHONPATH and QV_BUILD_DIR), the sample orders and the qv tool."""

import os
import pathlib
import sys

import pytest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("QV_BUILD_DIR", SOURCE / "build"))
if str(BUILD / "python") not in sys.path:
    sys.path.insert(0, str(BUILD / "python"))

ORDERS = SOURCE / "examples" / "data" / "orders.csv"
# The column types of orders.csv as the qv tool infers them from its first rows.
ORDER_TYPES = {"order_id": "INTEGER", "order_date": "DATE", "price": "NUMBER(5,2)",
               "quantity": "INTEGER"}


@pytest.fixture(scope="session")
def orders():
    """orders.csv as text columns (empty fields None), the way the qv tool reads it."""
    import pandas
    frame = pandas.read_csv(ORDERS, dtype=str, keep_default_na=False)
    return frame.mask(frame == "", None)


@pytest.fixture(scope="session")
def qv_tool():
    path = BUILD / "tools" / "qv"
    if not path.is_file() or not os.access(path, os.X_OK):
        pytest.skip(f"no qv tool at {path}")
    return path
