#!/usr/bin/env python3
"""What a user interface does with the system service, through the client library:
wait until the controller is ready, report an error and acknowledge it, then follow the
battery.

    syssrv-example.py [--timeout S] [--battery-changes N]
"""
import argparse
import sys

import gi

gi.require_version("SysSrv", "1.0")
from gi.repository import GLib, SysSrv  # noqa: E402


def wait_for(condition, timeout_s):
    """Runs the main loop until condition() holds or the time is up; True when it held."""
    context = GLib.MainContext.default()
    deadline = GLib.get_monotonic_time() + int(timeout_s * 1e6)
    while not condition():
        if GLib.get_monotonic_time() >= deadline:
            return False
        context.iteration(False) or GLib.usleep(10000)
    return True


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--timeout", type=float, default=30.0)
    parser.add_argument("--battery-changes", type=int, default=1)
    args = parser.parse_args()

    client = SysSrv.Client.new_sync(None)

    # Wait for ready: the property follows the service's announcements.
    if not wait_for(lambda: client.props.ready, args.timeout):
        print("the controller did not become ready", file=sys.stderr)
        return 1
    required = client.props.readiness_required
    print(f"ready (required flags 0x{required:08x})", flush=True)

    # Report an error, see it become the current one, and acknowledge it.
    raised = []
    client.connect("error-raised", lambda _c, code, cls, date: raised.append((code, cls)))
    client.report_error_sync("example", 777, 0, None)
    if not wait_for(lambda: (777, 0) in raised, args.timeout):
        print("the error was not announced", file=sys.stderr)
        return 1
    print(f"current error {client.props.error_code}/{client.props.error_class}", flush=True)
    client.ack_error_sync("example", 777, 0, None)
    try:
        client.fetch_readiness_sync(None)
    except GLib.Error as error:
        # The service's refusals carry no reason on the wire; the code tells what happened.
        if error.matches(SysSrv.client_error_quark(), SysSrv.ClientError.REFUSED):
            print("readiness is not available:", error.message, file=sys.stderr)
        else:
            raise

    # Follow the battery until enough changes were seen.
    changes = []

    def on_charge(_client, charge):
        changes.append(charge)
        print(f"battery {charge} % ({client.props.battery_status.value_nick})", flush=True)

    client.connect("battery-charge-changed", on_charge)
    client.connect("battery-status-changed",
                   lambda _c, status: print(f"battery status {status.value_nick}", flush=True))
    print(f"following the battery: {client.props.battery_charge} % "
          f"({client.props.battery_status.value_nick})", flush=True)
    if not wait_for(lambda: len(changes) >= args.battery_changes, args.timeout):
        print("no battery change seen", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
