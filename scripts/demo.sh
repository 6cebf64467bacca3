#!/usr/bin/env bash
# A short tour of SysSrv on the simulated tool: installs what is missing, builds, makes a
# sandbox tool, starts a private system bus and the service, shows it answering and
# signalling, and stops it cleanly.  --keep leaves the service running to play with.
set -euo pipefail
cd "$(dirname "$0")/.."
TOP=$(pwd)

KEEP=0
[[ "${1:-}" == "--keep" ]] && KEEP=1

say() { printf '\n\033[1m== %s\033[0m\n' "$*"; }

say "Installing missing packages and building"
scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Debug >/dev/null
cmake --build build -j2 --target SysSrv.elf syssrv-sim >/dev/null
SIM="$TOP/build/syssrv-sim"
SRV="$TOP/build/SysSrv.elf"

ROOT=$(mktemp -d /tmp/syssrv-demo-XXXXXX)
say "Making a simulated tool in $ROOT"
"$SIM" init "$ROOT"
# The tool process owns readiness flag 1; the demo plays that process.
cat >"$ROOT/home/tool/config/log/rdystatus.json" <<'JSON'
{"flags":[{"nr":1,"state":1,"name":"ToolProc"},{"nr":3,"state":1,"name":"SysSrv"}]}
JSON

say "Starting a private system bus"
cat >"$ROOT/sim/bus.conf" <<CONF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=$ROOT/sim/system_bus_socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/> <allow own="*"/>
    <allow send_type="method_call"/> <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/> <allow receive_type="method_return"/>
    <allow receive_type="error"/> <allow receive_type="signal"/>
  </policy>
</busconfig>
CONF
dbus-daemon --config-file="$ROOT/sim/bus.conf" --fork --print-pid=3 3>"$ROOT/sim/bus.pid"
export DBUS_SYSTEM_BUS_ADDRESS="unix:path=$ROOT/sim/system_bus_socket"
export SYSSRV_ROOT="$ROOT"

cleanup() {
  if [[ $KEEP -eq 0 ]]; then
    [[ -n "${SRV_PID:-}" ]] && kill "$SRV_PID" 2>/dev/null || true
    kill "$(cat "$ROOT/sim/bus.pid")" 2>/dev/null || true
  fi
}
trap cleanup EXIT

say "Starting SysSrv.elf (its log goes to $ROOT/sim/syssrv.log)"
"$SRV" >"$ROOT/sim/syssrv.out" 2>"$ROOT/sim/syssrv.log" &
SRV_PID=$!
for _ in $(seq 100); do
  gdbus call --system --dest org.freedesktop.DBus --object-path /org/freedesktop/DBus \
    --method org.freedesktop.DBus.NameHasOwner com.torvane.akku.SysService 2>/dev/null |
    grep -q true && break
  sleep 0.1
done
echo "SysSrv owns com.torvane.akku.SysService (pid $SRV_PID)"

call() {
  echo "\$ gdbus call --system --dest com.torvane.akku.SysService --object-path /SysObj --method com.torvane.akku.SysInterface.$*"
  gdbus call --system --dest com.torvane.akku.SysService --object-path /SysObj \
    --method "com.torvane.akku.SysInterface.$@"
}

say "Listening to the service's signals"
gdbus monitor --system --dest com.torvane.akku.SysService --object-path /SysObj &
MON_PID=$!
sleep 0.5

say "The interface (methods and signals)"
gdbus introspect --system --dest com.torvane.akku.SysService --object-path /SysObj |
  sed -n '/interface com.torvane.akku.SysInterface/,/^    };/p'

say "Asking the service"
call fmfuget
call frdyget || true
call fsyserrorget
call fbattpowerget

show() { echo "\$ syssrv-sim show"; "$SIM" show --root "$ROOT" | sed -n '1p;3,6p'; }

say "The tool process reports ready (flag 1): the controller becomes ready"
call frdyflagset 1
sleep 0.6
show

say "A process reports error 3236 (code 404, class 4): readiness drops"
call freporterror ToolProc 3236 ""
sleep 0.6
call fgetunacknsyserrors
show

say "The error is acknowledged: readiness comes back"
call freporterror ToolProc 3236 Ack
sleep 0.6
show

say "Relaying tool-process events"
call fprgchanged 5
call ftoolenableset 1
call fsetjobrunning 1
sleep 1

kill "$MON_PID" 2>/dev/null || true
wait "$MON_PID" 2>/dev/null || true

if [[ $KEEP -eq 1 ]]; then
  say "The service keeps running"
  cat <<TXT
  export SYSSRV_ROOT=$ROOT
  export DBUS_SYSTEM_BUS_ADDRESS=$DBUS_SYSTEM_BUS_ADDRESS
  gdbus call --system --dest com.torvane.akku.SysService --object-path /SysObj --method com.torvane.akku.SysInterface.fmfuget
  $SIM show --root $ROOT
  kill $SRV_PID; kill \$(cat $ROOT/sim/bus.pid)    # to stop
TXT
  trap - EXIT
  exit 0
fi

say "Stopping SysSrv with SIGTERM (it ends at its next 250 ms tick)"
kill -TERM "$SRV_PID"
set +e
wait "$SRV_PID"
STATUS=$?
set -e
echo "SysSrv exited with status $STATUS"
SRV_PID=""
echo
echo "Last lines of the service log:"
tail -n 8 "$ROOT/sim/syssrv.log"
echo
echo "The sandbox stays in $ROOT (scripts/demo.sh --keep leaves the service running)."
exit "$STATUS"
