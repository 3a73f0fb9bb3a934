#!/usr/bin/python3
"""Writes the benchmark CSV of `qv derive`: columns x, y, z (floating-point numbers, written in
exponent form so that they read as FLOAT rather than NUMBER), i (an integer), name, code, d (a
date) and a (an integer, empty on one row in ten). Deterministic: the same rows every time.

Written at bench time into the build folder, never committed.
usage: make_bench_csv.py OUTPUT [ROWS] (default 1,000,000 rows, about 90 MB)
"""
import datetime
import random
import sys

NAMES = ["alice", "bob", "Carol", "dave", "Eve", "frank", "Grace", "heidi", "Ivan", "judy",
         "Mallory", "oscar", "Peggy", "trent", "Victor", "walter", "Zoë", "Åsa"]


def main():
    path = sys.argv[1]
    rows = int(sys.argv[2]) if len(sys.argv) > 2 else 1_000_000
    rng = random.Random(1)
    start = datetime.date(2000, 1, 1).toordinal()
    with open(path, "w", encoding="utf-8", newline="") as f:
        f.write("x,y,z,i,name,code,d,a\n")
        lines = []
        for n in range(rows):
            a = "" if n % 10 == 9 else str(rng.randrange(1000))
            lines.append("%.6e,%.6e,%.6e,%d,%s,%s%04d,%s,%s\n" % (
                rng.uniform(0, 100), rng.uniform(0, 100), rng.uniform(-50, 50),
                rng.randrange(1_000_000), rng.choice(NAMES),
                "".join(rng.choice("ABCDEFGHJKLMNPQRSTUVWXYZ") for _ in range(3)),
                rng.randrange(10000), datetime.date.fromordinal(start + rng.randrange(9000)),
                a))
            if len(lines) == 10000:
                f.writelines(lines)
                lines = []
        f.writelines(lines)


if __name__ == "__main__":
    main()
