#!/usr/bin/env bash
# Builds and runs every test: the release build, the AddressSanitizer+UBSan build, and
# the ThreadSanitizer build of the concurrency tests.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
jobs=$(nproc)

run_preset() {
  local preset=$1; shift
  echo "=== $preset"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -- -j"$jobs" "$@"
  ctest --preset "$preset" -j"$jobs"
}

# The release tests include the Python module's pytest suite (ctest's python_test, run
# with /usr/bin/python3).
run_preset release
run_preset asan-ubsan
# ThreadSanitizer runs the tests labelled "concurrency".
echo "=== tsan"
cmake --preset tsan >/dev/null
cmake --build --preset tsan --target concurrency_test -- -j"$jobs"
ctest --preset tsan -j"$jobs"
