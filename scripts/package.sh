#!/usr/bin/env bash
# Builds the Debian packages (syssrv, syssrv-tools, the client library's three) for the PC
# (amd64) and for the tool's controller (armhf) into dist/, checks them with lintian, then
# tries the amd64 ones as a user would: installs them on this machine, verifies the
# installed unit, rates its confinement, runs the installed service on a private bus
# against a simulated tool made by the installed syssrv-sim, asks the installed syssrvctl
# for the status, and removes the packages again.
#
# Installs what it needs first with scripts/deps.sh (no-op when present). The armhf build
# uses the sysroot of scripts/cross-test.sh (SYSSRV_ARM_SYSROOT, default
# ~/.cache/syssrv/armhf-sysroot), which CI makes just before this script runs.
#
# Environment: JOBS (default 2), PACKAGE_ARCHS (default "amd64 armhf"),
# SYSSRV_ARM_SYSROOT, MAX_EXPOSURE (default 3.5).
set -euo pipefail
cd "$(dirname "$0")/.."
TOP=$PWD

JOBS=${JOBS:-2}
ARCHS=${PACKAGE_ARCHS:-amd64 armhf}
MAX_EXPOSURE=${MAX_EXPOSURE:-3.5}
SYSROOT=${SYSSRV_ARM_SYSROOT:-${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/syssrv/armhf-sysroot}
DIST=$TOP/dist
WORK=$TOP/build-pkg

# The armhf libraries the programs link, whose packages' shlibs and symbols files tell
# dpkg-shlibdeps which versions the board needs.
TARGET_RUNTIME=(libc6 libgcc-s1 libstdc++6 libglib2.0-0 libsqlite3-0 libcjson1 libmosquitto1)

HOST_PACKAGES=(
  debhelper dpkg-dev fakeroot lintian   # building and checking the packages
  cmake make pkg-config scdoc           # the build itself and the man pages
  libglib2.0-dev libsqlite3-dev libcjson-dev libmosquitto-dev
  g++-arm-linux-gnueabihf               # the armhf build
  systemd                               # systemd-analyze, systemd-sysusers, systemd-tmpfiles
  dbus-daemon                           # the private bus of the installed service
)

SUDO=""
if [[ $(id -u) -ne 0 ]]; then SUDO="sudo"; fi
say() { echo "==> package: $*"; }
die() { echo "package: $*" >&2; exit 1; }

# The project's one version lives in CMakeLists.txt; the packages must carry the same.
check_version() {
  local cmake_version deb_version
  cmake_version=$(sed -n 's/^project(SysSrv VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
  deb_version=$(dpkg-parsechangelog -S Version)
  [[ -n "$cmake_version" && "$cmake_version" == "${deb_version%%-*}" ]] ||
    die "CMakeLists.txt says version '$cmake_version', debian/changelog '$deb_version'"
  VERSION=$deb_version
}

# A copy of the source tree per architecture, so that dpkg-buildpackage writes its results
# beside the copy (inside build-pkg/) and never into the tree's parent directory.
copy_tree() {
  local dest=$1
  rm -rf "$dest"
  mkdir -p "$dest"
  git ls-files -z --cached --others --exclude-standard |
    grep -zv '^debian/\(tmp\|syssrv[^/]*\|\.debhelper\|files\)/' |
    tar -c --null -T - | tar -x -C "$dest"
}

# dpkg-shlibdeps finds the package of a library through the dpkg database and reads the
# package's shlibs and symbols files there. The armhf libraries are unpacked into a sysroot
# without a database, so build one beside it from the very packages: status entries, file
# lists (with the sysroot's paths), shlibs and symbols.
make_armhf_admindir() {
  local admin=$WORK/armhf-dpkg state=$SYSROOT.apt debs=$WORK/armhf-debs deb pkg name
  [[ -f "$admin/.done" ]] && return 0
  [[ -d "$state/state/lists" ]] || die "no armhf package lists in $state (run scripts/cross-test.sh)"
  rm -rf "$admin" "$debs"
  mkdir -p "$admin/info" "$admin/updates" "$debs"
  printf 'amd64\narmhf\n' >"$admin/arch"
  # Format 1: info files carry the architecture ("libc6:armhf.list"), as for multiarch.
  echo 1 >"$admin/info/format"
  : >"$admin/status"
  (cd "$debs" && apt-get -q \
    -o APT::Architecture=armhf -o APT::Architectures::=armhf \
    -o Dir::State="$state/state" -o Dir::State::status="$state/state/status" \
    -o Dir::Cache="$state/cache" -o Debug::NoLocking=1 \
    -o APT::Sandbox::User="$(id -un)" download "${TARGET_RUNTIME[@]}" >/dev/null)
  for deb in "$debs"/*.deb; do
    pkg=$(dpkg-deb -f "$deb" Package)
    name=$pkg
    [[ "$(dpkg-deb -f "$deb" Multi-Arch)" == same ]] && name=$pkg:armhf
    {
      dpkg-deb -f "$deb" Package Version Architecture Multi-Arch Source Maintainer Description
      echo "Status: install ok installed"
      echo
    } >>"$admin/status"
    dpkg-deb --fsys-tarfile "$deb" | tar -t | sed -e 's|^\./|/|' -e 's|/$||' |
      grep -v '^/\?$' | sed "s|^|$SYSROOT|" >"$admin/info/$name.list"
    rm -rf "$WORK/control" && dpkg-deb -e "$deb" "$WORK/control"
    for f in shlibs symbols; do
      [[ -f "$WORK/control/$f" ]] && cp "$WORK/control/$f" "$admin/info/$name.$f"
    done
  done
  rm -rf "$WORK/control" "$debs"
  touch "$admin/.done"
}

build_arch() {
  local arch=$1 dir=$WORK/$arch src
  src=$dir/syssrv-$VERSION
  say "building the $arch packages"
  copy_tree "$src"
  rm -f "$dir"/*.deb "$dir"/*.changes "$dir"/*.buildinfo
  local opts=(-b -us -uc -j"$JOBS")
  if [[ $arch != "$(dpkg --print-architecture)" ]]; then
    [[ -f "$SYSROOT/.syssrv-packages" ]] ||
      die "no armhf sysroot in $SYSROOT: run scripts/cross-test.sh first (CI does)"
    make_armhf_admindir
    # -d: the armhf build dependencies are in the sysroot, not in this machine's database.
    opts+=(-a"$arch" -d)
    export SYSSRV_ARM_SYSROOT=$SYSROOT
    export SYSSRV_SHLIBDEPS_OPTIONS="--admindir=$WORK/armhf-dpkg \
-l$SYSROOT/lib/arm-linux-gnueabihf -l$SYSROOT/usr/lib/arm-linux-gnueabihf"
  fi
  # The packages only: no debug-symbol packages beside them in dist/.
  (cd "$src" && DEB_BUILD_OPTIONS="noddebs nocheck ${DEB_BUILD_OPTIONS:-}" dpkg-buildpackage "${opts[@]}" >"$dir/build.log" 2>&1) || {
    tail -40 "$dir/build.log" >&2
    die "dpkg-buildpackage for $arch failed (log: $dir/build.log)"
  }
  unset SYSSRV_ARM_SYSROOT SYSSRV_SHLIBDEPS_OPTIONS
  cp "$dir"/*_"$arch".deb "$DIST/"
  for deb in "$dir"/*_"$arch".deb; do
    echo "    $(basename "$deb"): $(dpkg-deb -f "$deb" Depends)"
  done
}

run_lintian() {
  say "lintian"
  # Errors fail the build; every warning left is either fixed or overridden with its
  # reason in debian/*.lintian-overrides.
  lintian --fail-on error,warning --info --display-level '>=warning' "$DIST"/*.deb
}

# policy-rc.d that forbids starting services while the packages go in: this machine is a
# build machine (or container) without a running systemd, and its own system bus must stay
# as it is. Only a policy-rc.d we made is removed again.
POLICY_RC=/usr/sbin/policy-rc.d
OWN_POLICY_RC=0
cleanup() {
  if [[ -n "${SIM_DIR:-}" ]]; then syssrv-sim down "$SIM_DIR" 2>/dev/null || true; fi
  if ((OWN_POLICY_RC)); then $SUDO rm -f "$POLICY_RC"; fi
  if [[ -n "${SIM_DIR:-}" ]]; then rm -rf "$SIM_DIR"; fi
}
trap cleanup EXIT

remove_packages() {
  local installed
  # dpkg-query fails for a name dpkg has never seen; what it lists is still right.
  installed=$({ dpkg-query -W -f='${Package} ${Status}\n' syssrv syssrv-tools libsyssrv-client0 \
    libsyssrv-client-dev gir1.2-syssrv-1.0 2>/dev/null || true; } |
    awk '$NF != "not-installed" { print $1 }')
  [[ -z "$installed" ]] ||
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get purge -y -qq $installed >/dev/null
}

try_installed() {
  local arch debs unit=/lib/systemd/system/syssrv.service
  arch=$(dpkg --print-architecture)
  debs=("$DIST"/syssrv_"$VERSION"_"$arch".deb "$DIST"/syssrv-tools_"$VERSION"_"$arch".deb
        "$DIST"/libsyssrv-client0_"$VERSION"_"$arch".deb)
  say "installing ${debs[*]##*/}"
  if [[ ! -e $POLICY_RC ]]; then
    printf '#!/bin/sh\nexit 101\n' | $SUDO tee "$POLICY_RC" >/dev/null
    $SUDO chmod 755 "$POLICY_RC"
    OWN_POLICY_RC=1
  fi
  # Packages of the same version left by an earlier run that failed would be kept as they
  # are: start from none.
  remove_packages
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends \
    "${debs[@]}" >/dev/null

  say "checking the installed files"
  getent group syssrv >/dev/null || die "the group syssrv was not created"
  for dir in /mnt/log /var/sysdiag; do
    [[ "$(stat -c '%a %U %G' "$dir")" == "750 root syssrv" ]] ||
      die "$dir is $(stat -c '%a %U %G' "$dir"), not 750 root syssrv"
  done
  for prog in /usr/sbin/SysSrv.elf /usr/bin/syssrvctl /usr/bin/syssrv-sim; do
    [[ "$("$prog" --version)" == "${prog##*/} $VERSION" ]] ||
      die "$prog --version says '$("$prog" --version)', not $VERSION"
  done
  grep -q '^ExecStart=/usr/sbin/SysSrv.elf$' "$unit" || die "$unit does not start /usr/sbin/SysSrv.elf"

  say "systemd-analyze verify $unit"
  local out
  out=$(systemd-analyze verify "$unit" 2>&1) || { echo "$out" >&2; die "the unit does not verify"; }
  # verify also reports on units the check pulls in; only ours counts.
  if grep -F "syssrv.service" <<<"$out"; then die "the unit has warnings"; fi

  say "systemd-analyze security --offline=true"
  out=$(systemd-analyze security --offline=true --no-pager "$unit" 2>&1 || true)
  local exposure
  exposure=$(sed -n 's/.*Overall exposure level for syssrv.service: \([0-9.]*\).*/\1/p' <<<"$out")
  [[ -n "$exposure" ]] || { echo "$out" >&2; die "no exposure figure"; }
  echo "    exposure $exposure (at most $MAX_EXPOSURE)"
  awk -v e="$exposure" -v m="$MAX_EXPOSURE" 'BEGIN { exit !(e <= m) }' ||
    { echo "$out" >&2; die "exposure $exposure is above $MAX_EXPOSURE"; }

  say "running the installed service against a simulated tool"
  SIM_DIR=$(mktemp -d /tmp/syssrv-package-XXXXXX)
  local env_lines
  env_lines=$(/usr/bin/syssrv-sim up "$SIM_DIR/tool") ||
    { cat "$SIM_DIR/tool/sim/syssrv.log" >&2 || true; die "syssrv-sim up failed"; }
  (
    eval "$env_lines"
    /usr/bin/syssrvctl status
    [[ "$(/usr/bin/syssrvctl status --json | grep -o '"running":true')" == '"running":true' ]]
  ) || { cat "$SIM_DIR/tool/sim/syssrv.log" >&2; die "syssrvctl status failed"; }
  grep -q "/usr/sbin/SysSrv.elf" "/proc/$(cat "$SIM_DIR/tool/sim/syssrv.pid")/cmdline" ||
    die "the service that answered is not the installed one"
  /usr/bin/syssrv-sim down "$SIM_DIR/tool"

  say "removing the packages"
  remove_packages
  ! dpkg-query -W -f='${Status}\n' syssrv 2>/dev/null | grep -q "install ok installed" ||
    die "syssrv is still installed"
  [[ ! -e /usr/sbin/SysSrv.elf && ! -e "$unit" ]] || die "files left after purge"
}

t0=$SECONDS
scripts/deps.sh "${HOST_PACKAGES[@]}"
check_version
mkdir -p "$DIST" "$WORK"
rm -f "$DIST"/*.deb
for arch in $ARCHS; do build_arch "$arch"; done
run_lintian
if [[ " $ARCHS " == *" $(dpkg --print-architecture) "* ]]; then
  try_installed
else
  say "no $(dpkg --print-architecture) packages built: nothing to try here"
fi
say "done in $((SECONDS - t0)) s: $(cd "$DIST" && echo *.deb)"
