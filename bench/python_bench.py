#!/usr/bin/python3
"""python_bench.py - the Python module's derive beside pandas doing the same work, and the
Dask path on 1 and 2 worker processes, in one run.

  derive E1 `(x + y) * 2.5 - z / 3`     beside pandas column arithmetic and DataFrame.eval
  derive E4 `Concat(Upper(name), '-', SubStr(code, 1, 3))`
                                        beside pandas' string methods (.str.upper, .str.slice)
  qvcommon.dask.derive of E1 and E4 over 8 partitions made on the workers, on a LocalCluster
  of 1 worker process and of 2 (one thread each); the partitions' rows are counted on the
  workers so that only the work is timed, not moving the results to the client.

The median of --repeat runs after one warm-up, over --rows rows (default 1,000,000): CPU
time of the process for derive and pandas (both run on one thread; CPU time stands still on
a machine others share), wall time for the clusters. Run by `make bench` through build-bench/bench/bench_python_bench, which puts
the build's package on PYTHONPATH; Google Benchmark's options are accepted and ignored.
"""

import argparse
import os
import statistics
import time

import numpy as np
import pandas as pd

import qvcommon
import qvcommon.dask

E1 = "(x + y) * 2.5 - z / 3"
E4 = "Concat(Upper(name), '-', SubStr(code, 1, 3))"
NAMES = np.array(["alice", "bob", "Carol", "dave", "Eve", "frank", "Grace", "heidi", "Ivan",
                  "judy", "Mallory", "oscar", "Peggy", "trent", "Victor", "walter", "Zoë", "Åsa"],
                 dtype=object)


def make_frame(rows, seed=1):
    """rows rows of x, y, z (floats), name (18 names, two not ASCII) and code ("ABC1234")."""
    rng = np.random.default_rng(seed)
    letters = np.array(list("ABCDEFGHJKLMNPQRSTUVWXYZ"), dtype=object)
    code = (letters[rng.integers(0, 24, rows)] + letters[rng.integers(0, 24, rows)] +
            letters[rng.integers(0, 24, rows)] + rng.integers(0, 10000, rows).astype(str).astype(object))
    return pd.DataFrame({"x": rng.uniform(0, 100, rows), "y": rng.uniform(0, 100, rows),
                         "z": rng.uniform(-50, 50, rows),
                         "name": NAMES[rng.integers(0, len(NAMES), rows)], "code": code})


def timed(work, repeat, clock=time.perf_counter):
    """The median time of work() by `clock` over repeat runs, after one warm-up."""
    work()
    times = []
    for _ in range(repeat):
        start = clock()
        work()
        times.append(clock() - start)
    return statistics.median(times)


def single_process(rows, repeat):
    frame = make_frame(rows)
    x, y, z = frame["x"], frame["y"], frame["z"]
    cases = [
        ("E1", "qvcommon.derive", lambda: qvcommon.derive(frame, {"r": E1})),
        ("E1", "pandas columns", lambda: (x + y) * 2.5 - z / 3),
        ("E1", "pandas DataFrame.eval", lambda: frame.eval(E1)),
        ("E4", "qvcommon.derive", lambda: qvcommon.derive(frame, {"r": E4})),
        ("E4", "pandas .str methods",
         lambda: frame["name"].str.upper() + "-" + frame["code"].str.slice(0, 3)),
    ]
    results = [(name, who, timed(work, repeat, time.process_time)) for name, who, work in cases]
    print(f"\nderive over {rows:,} rows, CPU time of the process (median of {repeat}):")
    print("| expression | engine | time | ns/row | ratio to pandas |")
    print("|---|---|---|---|---|")
    for name, who, seconds in results:
        peer = next(s for n, w, s in results if n == name and w.startswith("pandas"))
        print(f"| {name} | {who} | {seconds * 1000:.1f} ms | {seconds / rows * 1e9:.0f} | "
              f"{seconds / peer:.2f} |")


def partition(number, rows, run):
    """Partition `number` of run `run` (each run its own graph: Dask would reuse the results
    of a run whose keys it has not yet forgotten)."""
    return make_frame(rows, seed=100 + number)


def cluster_run(workers, rows, partitions, repeat):
    import dask.dataframe as dd
    import distributed
    with distributed.LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                                  dashboard_address=None, silence_logs=40) as cluster, \
            distributed.Client(cluster):
        runs = iter(range(repeat + 1))

        def run():
            frame = dd.from_map(partition, range(partitions), rows=rows // partitions,
                                run=next(runs), meta=make_frame(0))
            derived = qvcommon.dask.derive(frame, {"e1": E1, "e4": E4}, sample=make_frame(100))
            assert derived.map_partitions(len, meta=(None, "int64")).compute().sum() == rows

        return timed(run, repeat)


def dask_scaling(rows, repeat):
    partitions = 8
    one = cluster_run(1, rows, partitions, repeat)
    two = cluster_run(2, rows, partitions, repeat)
    print(f"\nqvcommon.dask.derive of E1 and E4, {rows:,} rows in {partitions} partitions made "
          f"on the workers (median of {repeat}; {os.cpu_count()} cores, load average "
          f"{os.getloadavg()[0]:.1f}):")
    print("| workers | time | speed-up |")
    print("|---|---|---|")
    print(f"| 1 | {one:.2f} s | 1.00 |")
    print(f"| 2 | {two:.2f} s | {one / two:.2f} |")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--rows", type=int, default=1_000_000)
    parser.add_argument("--repeat", type=int, default=5)
    parser.add_argument("--no-dask", action="store_true", help="leave out the cluster runs")
    options, _ = parser.parse_known_args()  # --benchmark_* from make bench
    single_process(options.rows, options.repeat)
    if not options.no_dask:
        dask_scaling(options.rows * 4, max(3, options.repeat // 2))


if __name__ == "__main__":
    main()
