#!/usr/bin/env bash
# Measures SysSrv against a bare reference service that answers the same calls at once:
# builds both (RelWithDebInfo, in build-bench/), makes a sandbox tool with syssrv-sim,
# and runs syssrv-bench, which starts a private dbus-daemon per service and prints one
# table. The table is written to bench/results/<date>.md as well.
#   scripts/bench.sh                 the full run (a few minutes)
#   scripts/bench.sh --quick         fewer calls, a short soak and idle phase (BENCH_QUICK=1)
#   scripts/bench.sh --arm           memory and descriptors of the ARM build under qemu
#                                    (needs build-arm/ from scripts/cross-test.sh)
#   scripts/bench.sh --profile TEXT  SysSrv under valgrind's callgrind, for the phases whose
#                                    name contains TEXT; prints the costliest functions
# Environment: BENCH_REPS, BENCH_CALLS, BENCH_SOAK, BENCH_IDLE override the counts;
# BENCH_OUT the result file; BENCH_BUILD_DIR the build directory; BENCH_TMPDIR where the
# sandbox tool is made (default /tmp; the file system under it is part of what is measured).
set -euo pipefail
cd "$(dirname "$0")/.."
TOP=$(pwd)

MODE=full
PROFILE_PHASE=""
case "${1:-}" in
  "") [[ "${BENCH_QUICK:-0}" == 1 ]] && MODE=quick ;;
  --quick) MODE=quick ;;
  --arm) MODE=arm ;;
  --profile)
    MODE=profile
    PROFILE_PHASE=${2:?"--profile needs a phase name (or part of one)"}
    ;;
  -h | --help)
    sed -n '2,16s/^# \{0,1\}//p' "$0"
    exit 0
    ;;
  *)
    echo "bench.sh: unknown argument '$1' (see --help)" >&2
    exit 2
    ;;
esac

case $MODE in
  full) REPS=3 CALLS=2000 SOAK=100000 IDLE=60 ;;
  quick) REPS=3 CALLS=300 SOAK=10000 IDLE=10 ;;
  arm) REPS=1 CALLS=1 SOAK=20000 IDLE=0 ;;
  profile) REPS=1 CALLS=1000 SOAK=0 IDLE=0 ;;
esac
REPS=${BENCH_REPS:-$REPS} CALLS=${BENCH_CALLS:-$CALLS} SOAK=${BENCH_SOAK:-$SOAK}
IDLE=${BENCH_IDLE:-$IDLE}

# Installs a Debian package when it is missing, like scripts/deps.sh.
need_package() {
  local status
  status=$(dpkg-query -W -f='${Status}' "$1" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] && return 0
  echo "bench: installing $1"
  local sudo=""
  [[ $(id -u) -ne 0 ]] && sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "$1"
}

scripts/deps.sh
[[ $MODE == profile ]] && need_package valgrind

BUILD=${BENCH_BUILD_DIR:-build-bench}
cmake -S . -B "$BUILD" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF >/dev/null
cmake --build "$BUILD" -j2 --target SysSrv.elf syssrv-sim syssrv-bench syssrv-bench-ref \
  >"$BUILD/bench-build.log" 2>&1 || {
  tail -n 30 "$BUILD/bench-build.log"
  echo "bench.sh: the build failed (whole log: $BUILD/bench-build.log)" >&2
  exit 1
}

SERVICE=$TOP/$BUILD/SysSrv.elf
REFERENCE=$TOP/$BUILD/bench/syssrv-bench-ref
EXTRA=()
if [[ $MODE == arm ]]; then
  ARM=${BENCH_ARM_BUILD_DIR:-build-arm}
  SYSROOT=${SYSSRV_ARM_SYSROOT:-${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/syssrv/armhf-sysroot}
  if [[ ! -x $ARM/SysSrv.elf || ! -x $ARM/bench/syssrv-bench-ref ]]; then
    echo "bench.sh: no ARM build in $ARM; run scripts/cross-test.sh first" >&2
    exit 1
  fi
  QEMU=$(command -v qemu-arm || command -v qemu-arm-static || true)
  [[ -n "$QEMU" ]] || { echo "bench.sh: qemu-arm is missing; run scripts/cross-test.sh first" >&2; exit 1; }
  SERVICE=$TOP/$ARM/SysSrv.elf
  REFERENCE=$TOP/$ARM/bench/syssrv-bench-ref
  EXTRA+=(--memory-only --launcher "$QEMU -L $SYSROOT")
fi

# Pages of a program written moments ago are still dirty in the page cache, and the
# kernel counts them as the process's private dirty memory until they are written back:
# a fresh link would add a few hundred KiB to the footprint after start.
sync "$SERVICE" "$REFERENCE"

ROOT=$(mktemp -d "${BENCH_TMPDIR:-/tmp}/syssrv-bench-XXXXXX")
trap 'rm -rf "$ROOT"' EXIT
"$BUILD/syssrv-sim" init "$ROOT" >/dev/null

if [[ $MODE == profile ]]; then
  OUTDIR=$TOP/$BUILD/profile
  mkdir -p "$OUTDIR"
  rm -f "$OUTDIR"/callgrind.out.*
  "$BUILD/bench/syssrv-bench" --root "$ROOT" --service "$SERVICE" --reference "$REFERENCE" \
    --reps "$REPS" --calls "$CALLS" --only "$PROFILE_PHASE" \
    --service-prefix "valgrind --tool=callgrind --callgrind-out-file=$OUTDIR/callgrind.out.%p"
  for out in "$OUTDIR"/callgrind.out.*; do
    echo "== $out"
    callgrind_annotate --inclusive=yes "$out" 2>/dev/null | head -n 45
  done
  exit 0
fi

mkdir -p bench/results
SUFFIX=""
[[ $MODE != full ]] && SUFFIX=-$MODE
OUT=${BENCH_OUT:-bench/results/$(date -u +%F)$SUFFIX.md}
"$BUILD/bench/syssrv-bench" --root "$ROOT" --service "$SERVICE" --reference "$REFERENCE" \
  --reps "$REPS" --calls "$CALLS" --soak "$SOAK" --idle "$IDLE" "${EXTRA[@]}" | tee "$OUT"
echo "bench: table written to $OUT"
