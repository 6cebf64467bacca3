#!/usr/bin/env bash
# Builds the service, syssrv-sim, syssrvctl and the tests for the tool's controller
# (32-bit ARM, arm-linux-gnueabihf) in build-arm/ and runs them under qemu's user-mode
# emulator: the unit tests, then the integration tests with the ARM daemon on a dbus-daemon
# of this machine. No binfmt_misc is needed: where a test starts an ARM program, the build
# points it at a launcher that runs the program under qemu.
#
# Installs what is missing first and does nothing for a part that is already there:
#   - on the build machine: Debian's cross compiler and qemu-user;
#   - the armhf libraries (GLib, SQLite 3, cJSON, GoogleTest) as Debian's armhf packages,
#     fetched by apt with a state of its own and unpacked into a sysroot
#     (SYSSRV_ARM_SYSROOT, default ~/.cache/syssrv/armhf-sysroot). Installing them with
#     "dpkg --add-architecture armhf" instead would tie every armhf library to the exact
#     version of its amd64 twin on this machine, and one stale armhf index on the mirror
#     is then enough to make both the install and every later "apt-get update" fail.
#
# Environment: JOBS (default 2), BUILD_DIR (default build-arm), SYSSRV_ARM_SYSROOT,
# CROSS_BUILD_TYPE (default RelWithDebInfo: the optimiser is where aliasing and
# alignment faults show).
set -euo pipefail
cd "$(dirname "$0")/.."

JOBS=${JOBS:-2}
BUILD=${BUILD_DIR:-build-arm}
BUILD_TYPE=${CROSS_BUILD_TYPE:-RelWithDebInfo}
SYSROOT=${SYSSRV_ARM_SYSROOT:-${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/syssrv/armhf-sysroot}

# gdbus-codegen (libglib2.0-dev-bin) runs on the build machine for the client library.
HOST_PACKAGES=(cmake make pkg-config file g++-arm-linux-gnueabihf qemu-user dbus-daemon
               libglib2.0-dev-bin)
TARGET_PACKAGES=(libglib2.0-dev libsqlite3-dev libcjson-dev libgtest-dev libstdc++6 libmosquitto-dev)

SUDO=""
if [[ $(id -u) -ne 0 ]]; then SUDO="sudo"; fi

install_host_packages() {
  local missing=() pkg status
  for pkg in "${HOST_PACKAGES[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$pkg")
  done
  ((${#missing[@]} == 0)) && return 0
  echo "cross: installing ${missing[*]}"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# apt for armhf alone, with lists, cache and package status of its own beside the sysroot;
# the machine's sources and proxy settings apply.
target_apt() {
  local state=$SYSROOT.apt
  apt-get -q \
    -o APT::Architecture=armhf -o APT::Architectures::=armhf \
    -o Dir::State="$state/state" -o Dir::State::status="$state/state/status" \
    -o Dir::Cache="$state/cache" -o Debug::NoLocking=1 \
    -o APT::Sandbox::User="$(id -un)" "$@"
}

make_sysroot() {
  local stamp="$SYSROOT/.syssrv-packages" want
  want=$(printf '%s\n' "${TARGET_PACKAGES[@]}")
  if [[ -f "$stamp" && "$(cat "$stamp")" == "$want" ]]; then
    return 0
  fi
  echo "cross: fetching armhf packages into $SYSROOT"
  local state=$SYSROOT.apt
  rm -rf "$state"
  mkdir -p "$state/state/lists/partial" "$state/cache/archives/partial"
  : >"$state/state/status"
  # An index that fails to download (a mirror in the middle of a sync) leaves the others
  # usable; the install below fails loudly if what it needs is not among them.
  if ! target_apt update >"$state/update.log" 2>&1; then
    echo "cross: warning: some armhf package indexes could not be fetched:"
    grep -E '^(E|W):' "$state/update.log" | head -5 || true
  fi
  if ! compgen -G "$state/state/lists/*binary-armhf_Packages*" >/dev/null; then
    echo "cross: no armhf package index could be fetched" >&2
    cat "$state/update.log" >&2
    exit 1
  fi
  target_apt install -y -qq -d --no-install-recommends "${TARGET_PACKAGES[@]}" >/dev/null

  local tmp="$SYSROOT.new" deb link target
  rm -rf "$tmp"
  mkdir -p "$tmp"
  for deb in "$state"/cache/archives/*.deb; do
    dpkg-deb -x "$deb" "$tmp"
  done
  # Absolute links (libc.so -> /lib/...) would point into the build machine; make them
  # relative so they resolve inside the sysroot, for the linker and for qemu alike.
  while IFS= read -r -d '' link; do
    target=$(readlink "$link")
    ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$tmp$target")" "$link"
  done < <(find "$tmp" -type l -lname '/*' -print0)
  printf '%s\n' "$want" >"$tmp/.syssrv-packages"
  rm -rf "$SYSROOT"
  mv "$tmp" "$SYSROOT"
  rm -rf "$state/cache/archives"
}

elapsed() { echo "$((SECONDS - $1)) s"; }

t0=$SECONDS
install_host_packages
make_sysroot
echo "==> cross: tools and armhf sysroot ready ($(elapsed "$t0"))"

t1=$SECONDS
echo "==> cross: configuring $BUILD ($BUILD_TYPE)"
cmake -S . -B "$BUILD" -DCMAKE_BUILD_TYPE="$BUILD_TYPE" \
  -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/arm-linux-gnueabihf.cmake" \
  -DSYSSRV_ARM_SYSROOT="$SYSROOT" >/dev/null
echo "==> cross: building $BUILD"
cmake --build "$BUILD" -j"$JOBS"
echo "==> cross: built in $(elapsed "$t1")"

# What goes onto the board must be 32-bit ARM, hard-float EABI5.
for bin in SysSrv.elf syssrv-sim syssrvctl bridge/syssrv-bridge; do
  desc=$(file -b "$BUILD/$bin" 2>&1 || true)
  echo "    $bin: $desc"
  if [[ "$desc" != *"ELF 32-bit LSB"*"ARM, EABI5"* ]]; then
    echo "cross: $bin is not a 32-bit ARM EABI5 executable" >&2
    exit 1
  fi
done

# Two things the board's kernel does that user-mode emulation cannot: qemu does not hand
# the kernel a process's robust-futex list, so a lock held by a process that dies is not
# given back; and qemu answers a program's reads of its own /proc/PID/stat itself, with the
# CPU counters at zero (the benchmark prints no times under emulation for that reason).
# Those tests run on the PC build and on the board only.
EMULATION_LIMITS='^(unit_syslib_bms\.Bms\.LockLeftByADeadProcessIsTakenOver|unit_BenchProc\.BenchProc\.LifetimeCpuKeepsEndedThreads)$'

t2=$SECONDS
echo "==> cross: unit tests under $(command -v qemu-arm)"
echo "    not run under emulation (robust mutexes): Bms.LockLeftByADeadProcessIsTakenOver"
echo "    not run under emulation (own /proc/PID/stat): BenchProc.LifetimeCpuKeepsEndedThreads"
(cd "$BUILD" && ctest -L unit -E "$EMULATION_LIMITS" --output-on-failure -j"$JOBS" --timeout 600)
echo "==> cross: unit tests took $(elapsed "$t2")"

t3=$SECONDS
echo "==> cross: integration tests (ARM daemon, simulator and client on a dbus-daemon of this machine)"
echo "    not run under emulation (minutes of broker outages): the plant feed tests, label bridge"
(cd "$BUILD" && ctest -L integration -LE bridge --output-on-failure -j"$JOBS" --timeout 600)
echo "==> cross: integration tests took $(elapsed "$t3")"
echo "==> cross: done in $(elapsed "$t0")"
