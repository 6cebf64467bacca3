#!/usr/bin/env bash
# Installs what is missing, builds, and runs the whole test suite twice: once in a normal
# build and once with address and undefined-behaviour sanitizers.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh

JOBS=${JOBS:-2}
run_suite() {
  local dir=$1; shift
  echo "==> configuring $dir $*"
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug "$@" >/dev/null
  echo "==> building $dir"
  cmake --build "$dir" -j"$JOBS"
  echo "==> testing $dir"
  (cd "$dir" && ctest --output-on-failure -j"$JOBS" --timeout 300)
}

run_suite build -DSYSSRV_SANITIZE=OFF
run_suite build-asan -DSYSSRV_SANITIZE=ON
echo "==> all tests passed (normal and sanitized)"
