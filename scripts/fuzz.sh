#!/usr/bin/env bash
# Builds the fuzz targets of tests/fuzz with clang, libFuzzer and the address and
# undefined-behaviour sanitizers (build-fuzz/), then fuzzes each target in turn for
# SECONDS (default 60) and prints per target: executions, executions per second, coverage,
# corpus size and crashes. Exits non-zero when any target crashed.
#
#   scripts/fuzz.sh [SECONDS]
#
# Environment:
#   TARGETS  space-separated target names (default: every tests/fuzz/fuzz_*.cpp)
#   RUNS     stop a target after this many executions even before SECONDS (default: none)
#   MERGE=1  add the inputs that found new coverage to tests/fuzz/corpus/<target>/
#   NICE     niceness of the fuzzing processes (default 19: the machine stays usable)
#   JOBS     build parallelism (default 2)
#
# Findings (crash-*, leak-*, timeout-*, oom-*) land in build-fuzz/findings/<target>/;
# docs/fuzzing.md says how to turn one into a regression input.
set -euo pipefail
cd "$(dirname "$0")/.."

SECS=${1:-60}
JOBS=${JOBS:-2}
NICE=${NICE:-19}
# Absolute: the targets change their working directory into their sandbox.
BUILD=$PWD/build-fuzz

# The build's packages, Debian's clang, and the compiler runtime of that version, which
# holds libFuzzer and the sanitizers.
scripts/deps.sh
scripts/deps.sh clang
CLANG_MAJOR=$(clang --version | sed -n 's/.*clang version \([0-9]*\).*/\1/p' | head -1)
scripts/deps.sh "libclang-rt-${CLANG_MAJOR}-dev"

FLAGS="-g -O1 -fno-omit-frame-pointer -fsanitize=fuzzer-no-link,address,undefined"
FLAGS+=" -fno-sanitize-recover=undefined"
echo "==> fuzz: configuring $BUILD (clang $CLANG_MAJOR)"
cmake -S . -B "$BUILD" -DCMAKE_BUILD_TYPE=None -DSYSSRV_FUZZ=ON \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_C_FLAGS="$FLAGS" -DCMAKE_CXX_FLAGS="$FLAGS" \
  -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" >/dev/null

if [[ -n "${TARGETS:-}" ]]; then
  read -r -a targets <<<"$TARGETS"
else
  targets=()
  for src in tests/fuzz/fuzz_*.cpp; do
    name=$(basename "$src" .cpp)
    targets+=("${name#fuzz_}")
  done
fi

echo "==> fuzz: building ${targets[*]}"
cmake --build "$BUILD" -j"$JOBS" --target "${targets[@]/#/fuzz_}"

export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}

results=()
failed=0
for t in "${targets[@]}"; do
  seeds=$PWD/tests/fuzz/corpus/$t
  work=$BUILD/corpus/$t
  findings=$BUILD/findings/$t
  log=$BUILD/logs/$t.log
  mkdir -p "$seeds" "$work" "$findings" "$(dirname "$log")"
  args=(-max_total_time="$SECS" -max_len=8192 -timeout=30 -print_final_stats=1
        -artifact_prefix="$findings/")
  [[ -n "${RUNS:-}" ]] && args+=(-runs="$RUNS")
  echo "==> fuzz: $t for up to ${SECS} s${RUNS:+ or $RUNS runs}"
  status=0
  nice -n "$NICE" "$BUILD/tests/fuzz/fuzz_$t" "${args[@]}" "$work" "$seeds" >"$log" 2>&1 || status=$?

  # A target that died early has no final figures; it shows "?".
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
  cov=$( (grep -o 'cov: [0-9]*' "$log" || true) | tail -1 | cut -d' ' -f2)
  feat=$( (grep -o 'ft: [0-9]*' "$log" || true) | tail -1 | cut -d' ' -f2)
  corp=$(find "$work" -type f | wc -l)
  crashes=$(find "$findings" -type f \( -name 'crash-*' -o -name 'leak-*' -o -name 'timeout-*' \
            -o -name 'oom-*' \) | wc -l)
  if ((status != 0 || crashes != 0)); then
    failed=1
    echo "    $t: FAILED (exit $status), see $log"
    grep -m5 -E 'ERROR:|FUZZ CHECK FAILED|runtime error|Test unit written' "$log" | sed 's/^/    /' || true
  fi
  if [[ "${MERGE:-0}" == 1 ]]; then
    nice -n "$NICE" "$BUILD/tests/fuzz/fuzz_$t" -merge=1 -max_len=8192 "$seeds" "$work" >>"$log" 2>&1 || true
  fi
  results+=("$(printf '%-16s %10s %8s %6s %6s %7s %7s' "$t" "${execs:-?}" "${rate:-?}" \
    "${cov:-?}" "${feat:-?}" "$corp" "$crashes")")
done

echo
printf '%-16s %10s %8s %6s %6s %7s %7s\n' target execs exec/s cov ft corpus crashes
printf '%s\n' "${results[@]}"
exit "$failed"
