#!/usr/bin/env bash
# Installs every package the build, the tests and the demo need. Does nothing when all of
# them are present; otherwise installs the missing ones with apt. Given package names, it
# does the same for those instead (scripts/package.sh passes its own list).
set -euo pipefail

PACKAGES=(
  cmake g++ make pkg-config
  libglib2.0-dev libglib2.0-bin   # GLib/GObject/GIO and gdbus
  libsqlite3-dev                  # the error database
  libcjson-dev                    # configuration files
  googletest libgtest-dev         # unit and integration tests
  dbus-daemon dbus-bin            # the private system bus of tests and demo
  umockdev libumockdev-dev        # emulated i2c-dev adapter of the board sensor test
  valgrind procps                 # memcheck of the fault tests; pkill
  gobject-introspection libgirepository1.0-dev  # the client library's .gir and .typelib
  python3-gi gir1.2-glib-2.0      # the client library from Python, and its example's test
  gi-docgen                       # the client library's API reference
  libmosquitto-dev                # syssrv-bridge, the plant feed's MQTT client
  mosquitto mosquitto-clients     # the broker and mosquitto_sub of the bridge's tests
  openssl                         # certificates of the bridge's TLS test
)

if (($# > 0)); then PACKAGES=("$@"); fi

missing=()
for pkg in "${PACKAGES[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$pkg")
done

if ((${#missing[@]} == 0)); then
  exit 0
fi

echo "deps: installing ${missing[*]}"
SUDO=""
if [[ $(id -u) -ne 0 ]]; then SUDO="sudo"; fi
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
