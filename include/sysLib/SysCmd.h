#pragma once
// Shell commands and power-off.

// Runs z_c_Cmd with /bin/sh -c. With a reply buffer, stdout is captured into it (at most
// ui_Size - 1 bytes, always terminated). Returns 0 when the exit status is 0, else -1.
// In a sandbox ROOT/sbin:ROOT/bin:ROOT/usr/bin go first on PATH.
int f_SysCmd(const char* z_c_Cmd, char* z_c_Reply = nullptr, unsigned int ui_Size = 0);
// Switches the tool off: writes "1\n" to /proc/pwrctrl/poweroff. 0 or -1.
int f_PowerOff();
// Quotes a text for the shell ('...' with embedded quotes escaped).
#include <string>
std::string f_ShellQuote(const std::string& str_Text);
