#!/usr/bin/env bash
# Builds what lawcalc and the Python module need (release) and runs the main examples.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target lawcalc _lawutil -- -j"$(nproc)" >/dev/null
set -x
build/release/lawcalc "SIN(X)^2+COS(X)^2" --at 0.3 --derivative --simplify
build/release/lawcalc "VEC(COS(X),SIN(X),X/10)" --table 0 6.2832 9
build/release/lawcalc "X^3-X" --roots -2 2 --max -1 0 --plot -2 2 build/release/x3.svg
PYTHONPATH=build/release/python /usr/bin/python3 examples/tour.py build/release/tour.png
