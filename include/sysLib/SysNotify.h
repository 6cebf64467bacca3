#pragma once
// Keep-alive for the service manager's watchdog.

// Sends "WATCHDOG=1" to $NOTIFY_SOCKET when the service manager asked for keep-alives
// ($WATCHDOG_USEC set, $WATCHDOG_PID absent or this process) and a quarter of the period
// has passed since the last one. Cheap to call often: does nothing otherwise. The plain
// datagram keeps the board free of a library for one message.
void f_SysWatchdogKick();
