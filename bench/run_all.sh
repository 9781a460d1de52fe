#!/bin/sh
# Runs every benchmark, keeps their JSON output and prints the tables (bench/ratios.py).
#
#   bench/run_all.sh [benchmark flags]       e.g. --benchmark_repetitions=3
#
# BUILD names the build directory (default build/release); the JSON files go to
# $BUILD/bench/results.  Build first:
#   cmake --preset release && cmake --build --preset release -j2
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=${BUILD:-build/release}
out=$build/bench/results
mkdir -p "$out"
echo "uptime: $(uptime)" >&2
for b in law_bench derivative_bench vector_bench parse_bench sweep_bench; do
    echo "running $b" >&2
    "$build/bench/$b" --benchmark_format=json "$@" > "$out/$b.json"
done
python3 "$here/ratios.py" "$out/law_bench.json" "$out/derivative_bench.json" \
    "$out/vector_bench.json" "$out/parse_bench.json"
