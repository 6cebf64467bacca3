#pragma once
// Shell commands and power-off.

// A command that has not ended after this long is killed: the service runs its commands on
// its one loop, and a hanging tool program must not stop the periodic checks.
constexpr int I_SYS_CMD_TIMEOUT_MS = 10000;

// Runs z_c_Cmd with /bin/sh -c. With a reply buffer, stdout is captured into it (at most
// ui_Size - 1 bytes, always terminated). Returns 0 when the exit status is 0, else -1;
// a command still running after I_SYS_CMD_TIMEOUT_MS is killed with everything it started,
// logged, and counts as failed. In a sandbox ROOT/sbin:ROOT/bin:ROOT/usr/bin go first on
// PATH.
int f_SysCmd(const char* z_c_Cmd, char* z_c_Reply = nullptr, unsigned int ui_Size = 0);
// The same with a time limit of the caller's.
int f_SysCmdTimeout(const char* z_c_Cmd, char* z_c_Reply, unsigned int ui_Size, int i_TimeoutMs);
// Starts z_c_Cmd and returns at once; the default GLib main context collects it, logs a
// failure, and kills it after I_SYS_CMD_TIMEOUT_MS. 0 when it started, else -1. Called
// outside a dispatching main loop it runs like f_SysCmd, to the command's end.
int f_SysCmdAsync(const char* z_c_Cmd);
// Switches the tool off: writes "1\n" to /proc/pwrctrl/poweroff. 0 or -1.
int f_PowerOff();
// Quotes a text for the shell ('...' with embedded quotes escaped).
#include <string>
std::string f_ShellQuote(const std::string& str_Text);
