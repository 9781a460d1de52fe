#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need, when missing.
set -euo pipefail

packages=(cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev libbenchmark-dev
          libmuparser-dev libboost-math-dev libeigen3-dev python3 python3-mpmath locales clang
          libclang-rt-dev
          python3-dev python3-pybind11 pybind11-dev python3-numpy python3-pytest
          python3-numexpr python3-matplotlib)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $sudo_cmd apt-get update -qq
  $sudo_cmd apt-get install -y -qq "${missing[@]}" >/dev/null
fi

# A locale with a decimal comma, so the tests can prove that numbers are read and
# printed the same whatever locale the host process sets.
if ! locale -a 2>/dev/null | grep -qi '^de_DE.utf-\?8$'; then
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd localedef -i de_DE -f UTF-8 de_DE.UTF-8 || echo "note: could not generate de_DE.UTF-8"
fi
