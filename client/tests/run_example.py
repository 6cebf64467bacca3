#!/usr/bin/env python3
"""Runs the Python example against the simulated tool: a private bus, a sandbox made by
syssrv-sim, the service, and the example; the battery is lowered once the example
follows it. Exit status 0 when the example did everything it shows."""
import argparse
import os
import subprocess
import sys
import tempfile

# Only the service's own flag: the controller becomes ready on the first tick.
RDY = '{"flags":[{"nr":3,"state":1,"name":"SysSrv"}]}'


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--daemon", required=True)
    parser.add_argument("--sim", required=True)
    parser.add_argument("--example", required=True)
    args = parser.parse_args()

    with tempfile.TemporaryDirectory(prefix="syssrv-pyex-") as top:
        root = os.path.join(top, "tool")
        os.mkdir(root)
        subprocess.run([args.sim, "init", root], check=True, stdout=subprocess.DEVNULL)
        with open(os.path.join(root, "home/tool/config/log/rdystatus.json"), "w") as f:
            f.write(RDY)
        # dbus-daemon's session configuration lets the one user do everything, which is
        # all this bus needs; it stands in for the system bus through the address.
        bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address=1",
                                "--address=unix:path=" + os.path.join(top, "bus")],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        env = dict(os.environ, SYSSRV_ROOT=root,
                   DBUS_SYSTEM_BUS_ADDRESS=bus.stdout.readline().strip())
        log = open(os.path.join(top, "daemon.log"), "w")
        daemon = subprocess.Popen([args.daemon], env=env, stdout=log, stderr=log)
        example = subprocess.Popen([sys.executable, args.example, "--timeout", "60"], env=env,
                                   stdout=subprocess.PIPE, text=True)
        status = 1
        try:
            for line in example.stdout:
                print("example:", line, end="", flush=True)
                if line.startswith("following the battery"):
                    subprocess.run([args.sim, "battery", "--root", root, "20"], check=True)
            status = example.wait(timeout=90)
        finally:
            for proc in (example, daemon, bus):
                if proc.poll() is None:
                    proc.terminate()
                    proc.wait(timeout=20)
            log.close()
            if status != 0:
                print(open(os.path.join(top, "daemon.log")).read()[-4000:], file=sys.stderr)
        return status


if __name__ == "__main__":
    sys.exit(main())
