#!/usr/bin/env bash
# A tour of SysSrv on the simulated tool: installs what is missing, builds, makes a sandbox
# tool, starts a private system bus and the service, and plays a short scenario with
# syssrvctl and syssrv-sim while "syssrvctl monitor" records every signal the service sends.
#   scripts/demo.sh          the tour, then a clean stop (about half a minute once built)
#   scripts/demo.sh --keep   the tour, then the service keeps running to play with
set -euo pipefail
cd "$(dirname "$0")/.."
TOP=$(pwd)

KEEP=0
case "${1:-}" in
  "") ;;
  --keep) KEEP=1 ;;
  -h | --help)
    sed -n '2,6s/^# \{0,1\}//p' "$0"
    exit 0
    ;;
  *)
    echo "demo.sh: unknown argument '$1' (use --keep or --help)" >&2
    exit 2
    ;;
esac

if [[ -t 1 ]]; then B=$'\033[1m' D=$'\033[2m' N=$'\033[0m'; else B="" D="" N=""; fi
say() { printf '\n%s== %s%s\n' "$B" "$*" "$N"; }
note() { printf '%s\n' "$*"; }
# Shows a command as a user would type it (quoted where the shell needs it), runs it and
# indents what it prints.
run() {
  local arg line=""
  for arg in "$@"; do
    if [[ "$arg" =~ ^[A-Za-z0-9_./:=%+-]+$ ]]; then line+=" $arg"; else line+=" '$arg'"; fi
  done
  printf '%s$%s%s\n' "$D" "$line" "$N"
  "$@" 2>&1 | sed 's/^/    /'
}

cat <<TXT
${B}A tour of SysSrv${N}, the system service of a battery-powered tightening tool. It keeps
the tool's error list, readiness, battery state, channel configuration and batch counters,
and tells the tool's other processes about every change with a bus signal. The tour runs it
on a simulated tool and drives it with syssrvctl (the service's command-line client) and
syssrv-sim (the simulated tool's inputs).
TXT

# --- build -------------------------------------------------------------------------------
say "Installing missing packages and building (first run: a few minutes)"
scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Debug >/dev/null
if ! cmake --build build -j2 --target SysSrv.elf syssrv-sim syssrvctl >build/demo-build.log 2>&1; then
  tail -n 30 build/demo-build.log
  echo "demo.sh: the build failed (whole log: build/demo-build.log)" >&2
  exit 1
fi
export PATH="$TOP/build:$PATH"
note "Built SysSrv.elf, syssrv-sim and syssrvctl in build/."

# --- sandbox, bus, service ---------------------------------------------------------------
ROOT=$(mktemp -d /tmp/syssrv-demo-XXXXXX)
export SYSSRV_ROOT="$ROOT"
say "Making a simulated tool in $ROOT"
syssrv-sim init "$ROOT"
# The controller is ready when the tightening process (flag 1), SysSrv (flag 3: no active
# error) and the battery (flag 6) say so. The demo plays the tightening process.
cat >"$ROOT/home/tool/config/log/rdystatus.json" <<'JSON'
{"flags":[{"nr":1,"state":1,"name":"ToolProc"},{"nr":3,"state":1,"name":"SysSrv"},{"nr":6,"state":1,"name":"Battery"}]}
JSON
note "A 30 Nm tool, battery full, board at 25 °C; readiness needs flags 1 ToolProc, 3 SysSrv, 6 Battery."

say "Starting a private system bus, so nothing touches this machine's own bus"
# An open private system bus (the same configuration as the benchmark's buses).
sed "s|@LISTEN@|unix:path=$ROOT/sim/system_bus_socket|" scripts/private-bus.conf.in >"$ROOT/sim/bus.conf"
dbus-daemon --config-file="$ROOT/sim/bus.conf" --fork --print-pid=3 3>"$ROOT/sim/bus.pid" 2>/dev/null
export DBUS_SYSTEM_BUS_ADDRESS="unix:path=$ROOT/sim/system_bus_socket"
note "DBUS_SYSTEM_BUS_ADDRESS=$DBUS_SYSTEM_BUS_ADDRESS"

MONLOG="$ROOT/sim/monitor.log"
MON_PID=""
SRV_PID=""
cleanup() {
  [[ -n "$MON_PID" ]] && kill -INT "$MON_PID" 2>/dev/null || true
  if [[ $KEEP -eq 0 ]]; then
    [[ -n "$SRV_PID" ]] && kill "$SRV_PID" 2>/dev/null || true
    kill "$(cat "$ROOT/sim/bus.pid")" 2>/dev/null || true
  fi
}
trap cleanup EXIT
trap 'echo "demo.sh: a step failed; the service log is $ROOT/sim/syssrv.log" >&2' ERR

# The monitor writes to a file; after each step the demo shows the lines it added.
syssrvctl monitor >"$MONLOG" 2>"$ROOT/sim/monitor.err" &
MON_PID=$!
MARK=0
signals() {
  local size
  size=$(wc -c <"$MONLOG")
  tail -c +$((MARK + 1)) "$MONLOG" | head -c $((size - MARK)) | sed "s/^/  ${D}[monitor]${N} /"
  MARK=$size
}
# True when a line the demo has not shown yet matches the pattern.
seen() { tail -c +$((MARK + 1)) "$MONLOG" | grep -Eq -- "$1"; }
# wait_for SECONDS WHAT COMMAND...: polls COMMAND every 0.1 s until it succeeds.
wait_for() {
  local tries=$(($1 * 10)) what=$2
  shift 2
  until "$@"; do
    if ((--tries <= 0)); then
      echo "demo.sh: gave up waiting for $what" >&2
      signals
      exit 1
    fi
    sleep 0.1
  done
}

say "Starting SysSrv.elf (its log: $ROOT/sim/syssrv.log)"
note "'syssrvctl monitor' already listens and prints every signal; its lines are marked [monitor]."
SysSrv.elf >"$ROOT/sim/syssrv.out" 2>"$ROOT/sim/syssrv.log" &
SRV_PID=$!
wait_for 20 "SysSrv on the bus" seen "SysSrv is on the bus"
note "SysSrv owns com.torvane.akku.SysService (pid $SRV_PID). Two seconds after start it begins"
note "its 250 ms checks; the first one reads the battery."
wait_for 10 "the first battery reading" seen "battstatuschanged"
signals
run syssrvctl status

# --- readiness -----------------------------------------------------------------------------
say "The tightening process reports ready (flag 1): the controller is ready"
run syssrvctl ready set 1
wait_for 5 "readiness" seen "rdychanged +ready"
signals

# --- a reported error ----------------------------------------------------------------------
say "A process reports error 4883 (code 610, class 3): readiness drops until it is acknowledged"
run syssrvctl report ToolProc 4883
wait_for 5 "the readiness drop" seen "rdychanged +not ready"
signals
run syssrvctl errors
run syssrvctl ack 4883
wait_for 5 "readiness back" seen "rdychanged +ready"
signals

# --- battery -------------------------------------------------------------------------------
say "The battery runs low (raw reading 15): error 3228, flag 6 drops"
run syssrv-sim battery 15
wait_for 5 "error 3228" seen "sysfault +error 3228"
wait_for 5 "the readiness drop" seen "rdychanged +not ready"
signals
run syssrvctl status
say "A charged battery goes in (reading 100): the error is withdrawn, the tool is ready again"
run syssrv-sim battery 100
wait_for 5 "readiness back" seen "rdychanged +ready"
signals

# --- temperature ---------------------------------------------------------------------------
say "The board overheats (80 °C, limit 75 °C): error 3252 at the next 5 s temperature check"
run syssrv-sim temp 80
wait_for 12 "error 3252" seen "sysfault +error 3252"
wait_for 5 "the readiness drop" seen "rdychanged +not ready"
signals
run syssrvctl errors
say "It cools down to 40 °C (below limit - 5 °C): the error is withdrawn"
run syssrv-sim temp 40
wait_for 12 "readiness back" seen "rdychanged +ready"
signals

# --- maintenance factor ----------------------------------------------------------------------
# The torque limits ("Grenzen", Nm) of the channel configuration the tool process reads.
limits() {
  awk '/^\t"Grenzen":/ { on = 1; next }
       on && /}/ { exit }
       on { gsub(/[\t",]/, ""); split($0, kv, ":");
            if (kv[1] ~ /^Moment|^Ueberlast/) { text = text sep kv[1] " " kv[2] " Nm"; sep = ", " } }
       END { print text }' "$ROOT/home/tool/config/ChanCfg.json"
}
say "A technician sets the maintenance factor to 0.8: every torque limit is rescaled"
printf '  Grenzen before: %s\n' "$(limits)"
run syssrvctl mfu set 800
wait_for 5 "the announcement" seen "cfgfilechanged +/home/tool/config/ChanCfg.json"
signals
printf '  Grenzen after:  %s\n' "$(limits)"

# --- batch counters --------------------------------------------------------------------------
say "Program 5 gets a batch of 10 OK / 2 NOK tightenings that locks the tool when complete"
run syssrvctl batch set '{"Id":5,"MaxOk":10,"MaxNok":2,"DirectionOk":"up","LockTool":true}'
wait_for 5 "the announcement" seen "cfgfilechanged +/home/tool/config/OkNokCntCfg.json"
signals
run syssrvctl batch list

# --- the end -------------------------------------------------------------------------------
if [[ $KEEP -eq 1 ]]; then
  kill -INT "$MON_PID" 2>/dev/null || true
  wait "$MON_PID" 2>/dev/null || true
  MON_PID=""
  say "SysSrv keeps running (pid $SRV_PID) on its sandbox"
  cat <<TXT
In another shell:
  export PATH=$TOP/build:\$PATH
  export SYSSRV_ROOT=$ROOT
  export DBUS_SYSTEM_BUS_ADDRESS=$DBUS_SYSTEM_BUS_ADDRESS
  syssrvctl monitor &                 # watch the signals
  syssrvctl status                    # battery, readiness, current error
  syssrv-sim battery 15               # drain the battery; 100 charges it again
  syssrv-sim temp 80                  # overheat the board; 40 cools it
  syssrvctl report MyProc 4883        # report an error; 'syssrvctl ack 4883' takes it back
  syssrv-sim show                     # outputs, readiness and error as the tool sees them
  syssrvctl --help, syssrv-sim --help # everything else
To stop:
  kill $SRV_PID; kill \$(cat $ROOT/sim/bus.pid)
TXT
  trap - EXIT
  exit 0
fi

say "Stopping SysSrv with SIGTERM: it withdraws readiness at its next tick and exits"
kill -TERM "$SRV_PID"
set +e
wait "$SRV_PID"
STATUS=$?
set -e
SRV_PID=""
wait_for 5 "the service leaving the bus" seen "SysSrv is not on the bus"
signals
note "SysSrv exited with status $STATUS."
kill -INT "$MON_PID" 2>/dev/null || true
wait "$MON_PID" 2>/dev/null || true
MON_PID=""

say "Done"
cat <<TXT
The sandbox stays in $ROOT:
  the tool's files (home/, proc/, sys/, dev/, var/), the service's log sim/syssrv.log,
  every signal of this run in sim/monitor.log.
To keep playing, 'scripts/demo.sh --keep' leaves the service running and prints the
commands; docs/simulated-tool.md shows how to develop another process against it.
TXT
exit "$STATUS"
