#!/bin/sh
# The project's main job (`make run`): qv over the sample data, each command shown before
# its output. usage: examples/run.sh QV (run from anywhere; paths are the project's own)
set -e
qv=$(realpath "${1:?usage: run.sh QV}")
cd "$(dirname "$0")/.."
out=${TMPDIR:-/tmp}/orders_derived.csv
trap 'rm -f "$out"' EXIT

# Shows a command line starting with "qv", then runs it with this build's qv.
show() {
    printf '\n$ %s\n' "$1"
    eval "\"\$qv\" ${1#qv }"
}

echo "== Three columns derived over 3,000 orders; orders of two or more kept (the first ten):"
show "qv derive -e 'total := price * quantity' -e \"month := ToChar(order_date, 'YYYY-MM')\" \\
    -e \"buyer := IfNull(Upper(customer), '(unknown)')\" --where 'quantity >= 2' \\
    -o $out examples/data/orders.csv"
head -n 11 "$out"

echo
echo "== A script with a user-defined function, CASE and a counted loop:"
show "qv run --var orders=12 examples/scripts/discount.qvs"

echo
echo "== One expression with its type:"
show "qv eval --typed --bind price=19.99 --bind quantity=3 'price * quantity'"
