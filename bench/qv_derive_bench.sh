#!/bin/sh
# qv_derive_bench.sh - `qv derive` over the 1,000,000-row benchmark CSV, each derivation beside
# the same one in gawk and in Miller, timed by hyperfine in one run; then the resident memory
# of `qv derive` over a 1 GB input (the benchmark file repeated), measured by GNU time.
#
# usage: bench/qv_derive_bench.sh BENCH_BUILD_DIR   (make bench runs it)
# Writes the hyperfine tables to BENCH_BUILD_DIR/bench/qv_derive_*.md. Skips (status 0) with a
# message when qv, hyperfine, gawk or mlr is missing.
set -e
build=$(realpath "${1:?usage: qv_derive_bench.sh BENCH_BUILD_DIR}")
here=$(dirname "$(realpath "$0")")
qv=$build/tools/qv
csv=$build/bench/qv_derive_1m.csv
runs=${QV_BENCH_RUNS:-5}
export LC_ALL=C.UTF-8 # gawk's toupper of accented names

for tool in "$qv" hyperfine gawk mlr; do
    if ! command -v "$tool" >/dev/null; then
        echo "qv_derive_bench: $tool is missing; skipped"
        exit 0
    fi
done
[ -s "$csv" ] || python3 "$here/../examples/data/make_bench_csv.py" "$csv"

# The text in single quotes for the shell.
quoted() {
    printf "'%s'" "$(printf '%s' "$1" | sed "s/'/'\\\\''/g")"
}

# name | qv expression | gawk program (fields $1..$8: x y z i name code d a) | Miller
bench() {
    name=$1
    hyperfine --warmup 1 --runs "$runs" --style basic \
        --export-markdown "$build/bench/qv_derive_$name.md" \
        -n "qv $name" "$qv derive -e $(quoted "e := $2") $csv" \
        -n "gawk $name" "gawk -F, -v OFS=, $(quoted "NR == 1 { print \$0, \"e\"; next } { $3 }") $csv" \
        -n "mlr $name" "mlr --icsv --ocsv put $(quoted "\$e = $4") $csv"
}

bench E1 '(x + y) * 2.5 - z / 3' \
    'print $0, ($1 + $2) * 2.5 - $3 / 3' \
    '($x + $y) * 2.5 - $z / 3'
bench E2 'If(x > 50, x * 2, y / 2)' \
    'print $0, ($1 > 50 ? $1 * 2 : $2 / 2)' \
    '$x > 50 ? $x * 2 : $y / 2'
bench E4 "Concat(Upper(name), '-', SubStr(code, 1, 3))" \
    'print $0, toupper($5) "-" substr($6, 1, 3)' \
    'toupper($name) . "-" . substr1($code, 1, 3)'
bench E6 'AddToDate(d, 30)' \
    'split($7, p, "-"); print $0, strftime("%Y-%m-%d", mktime(p[1] " " p[2] " " p[3] " 0 0 0", 1) + 2592000, 1)' \
    'strftime(strptime($d, "%Y-%m-%d") + 2592000, "%Y-%m-%d")'

# Resident memory over a 1 GB input: the benchmark rows repeated (removed afterwards).
big=$build/bench/qv_derive_1g.csv
trap 'rm -f "$big"' EXIT
cp "$csv" "$big"
while [ "$(stat -c %s "$big")" -lt 1073741824 ]; do tail -n +2 "$csv" >>"$big"; done
echo "qv derive E1 over $(($(stat -c %s "$big") / 1048576)) MiB:"
/usr/bin/time -f "  %e s, maximum resident set %M KiB" \
    "$qv" derive -e 'e := (x + y) * 2.5 - z / 3' "$big" >/dev/null
