#!/usr/bin/python3
"""Derives columns over a partitioned CSV data set on a Dask cluster, and checks the result
against the same derivation in one process.

    examples/dask_derive.py                      # a LocalCluster of 2 worker processes
    examples/dask_derive.py --workers 4
    examples/dask_derive.py --scheduler tcp://scheduler:8786 --data /shared/orders

Without --data the example splits examples/data/orders.csv into eight files in a temporary
folder (the data set); on a real cluster --data must name a folder every worker can read.
The check: `qv derive` over the whole data set when the qv tool given by --qv evaluates
expressions, else qvcommon.derive in this process.

Needs the qvcommon package on PYTHONPATH (build/python in a build tree) here and on every
worker.
"""

import argparse
import glob
import os
import pathlib
import subprocess
import sys
import tempfile
from decimal import Decimal

import dask.dataframe as dd
import distributed
import pandas as pd

import qvcommon
import qvcommon.dask

HERE = pathlib.Path(__file__).resolve().parent
EXPRS = {
    "total": "price * quantity",
    "customer_uc": "Upper(customer)",
    "place": "IfNull(city, '(none)')",
    "due": "AddToDate(order_date, 30)",
}
WHERE = "quantity >= 2"
TYPES = {"order_id": "INTEGER", "order_date": "DATE", "price": "NUMBER(6,2)",
         "quantity": "INTEGER"}


def split_csv(source, folder, parts):
    """Writes the rows of source into `parts` CSV files of folder, each with the header."""
    lines = source.read_text(encoding="utf-8").splitlines(keepends=True)
    header, rows = lines[0], lines[1:]
    size = -(-len(rows) // parts)
    for n in range(parts):
        (folder / f"part-{n:02d}.csv").write_text(header + "".join(rows[n * size:(n + 1) * size]),
                                                  encoding="utf-8")


def read_text_columns(files):
    """The CSV files as text columns, an empty field NULL (None), as qv reads them."""
    frame = dd.read_csv(files, dtype=str, keep_default_na=False, na_values=[])
    return frame.map_partitions(lambda part: part.mask(part == "", None))


def reference_by_qv(qv, files):
    """qv derive over the concatenated files, or None when this qv has no expressions."""
    frames = [pd.read_csv(f, dtype=str, keep_default_na=False) for f in files]
    with tempfile.TemporaryDirectory() as scratch:
        whole = pathlib.Path(scratch) / "all.csv"
        pd.concat(frames).to_csv(whole, index=False)
        arguments = [qv, "derive", "--where", WHERE, "-o", str(whole) + ".out"]
        for name, text in EXPRS.items():
            arguments += ["-e", f"{name} := {text}"]
        run = subprocess.run(arguments + [str(whole)], capture_output=True, text=True)
        if run.returncode == 2 and "not available" in run.stderr:
            return None
        if run.returncode != 0:
            sys.exit(f"qv derive failed: {run.stderr.strip()}")
        return pd.read_csv(str(whole) + ".out", dtype=str, keep_default_na=False)


def same_as_qv(derived, tool):
    """Whether qvcommon's frame and qv's CSV hold the same rows (compared as qv writes them)."""
    if len(derived) != len(tool):
        return False
    def number(v):
        return None if v is None or v == "" else Decimal(v)

    def text(v):
        return "" if v is None else str(v)  # qv writes NULL as an empty field

    texts = {"total": number, "customer_uc": text, "place": text}
    return all(list(derived[c].map(f)) == list(tool[c].map(f)) for c, f in texts.items())


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--scheduler", help="address of a running scheduler (tcp://host:8786)")
    parser.add_argument("--workers", type=int, default=2, help="LocalCluster worker processes")
    parser.add_argument("--data", help="folder of CSV files (default: orders.csv split in 8)")
    parser.add_argument("--qv", default=str(HERE.parent / "build" / "tools" / "qv"),
                        help="the qv tool for the check")
    options = parser.parse_args()

    with tempfile.TemporaryDirectory() as scratch:
        folder = pathlib.Path(options.data or scratch)
        if not options.data:
            split_csv(HERE / "data" / "orders.csv", folder, 8)
        files = sorted(glob.glob(str(folder / "*.csv")))
        if options.scheduler:
            client = distributed.Client(options.scheduler)
        else:
            cluster = distributed.LocalCluster(n_workers=options.workers, threads_per_worker=1,
                                               processes=True, dashboard_address=None)
            client = distributed.Client(cluster)
        with client:
            frame = read_text_columns(files)
            derived = qvcommon.dask.derive(frame, EXPRS, where=WHERE, types=TYPES)
            result = derived.compute().reset_index(drop=True)
            workers = len(client.scheduler_info()["workers"])
        print(f"{len(files)} files, {frame.npartitions} partitions, {workers} workers: "
              f"{len(result)} rows derived")
        print(result.head().to_string())

        if os.access(options.qv, os.X_OK) and (tool := reference_by_qv(options.qv, files)) is not None:
            ok, against = same_as_qv(result, tool), "qv derive"
        else:
            whole = read_text_columns(files).compute().reset_index(drop=True)
            single = qvcommon.derive(whole, EXPRS, where=WHERE, types=TYPES).reset_index(drop=True)
            ok, against = result.equals(single), "qvcommon.derive in one process"
        print(f"equal to {against}: {'yes' if ok else 'NO'}")
        return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
