#!/usr/bin/env bash
# Builds what the tour needs (release) and runs it.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target law_tour -- -j"$(nproc)" >/dev/null
build/release/law_tour
