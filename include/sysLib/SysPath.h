#pragma once
// Root mapping of the simulated tool. With SYSSRV_ROOT set and not empty, every absolute
// path the service or the library touches is resolved under that directory; unset, paths
// stand as they are. This is the one place that prefixes paths.
#include <string>

// The mapped form of an absolute path ("/etc/codes" -> "$SYSSRV_ROOT/etc/codes").
std::string f_SysPath(const std::string& str_Path);
// The sandbox root, or an empty string on the real tool.
std::string f_SysRoot();
// True when running in a sandbox.
bool f_SysInSandbox();
// Opens syslog with ident "SysSrv" (or the given one), facility daemon; in a sandbox
// every line is copied to stderr as well.
void f_SysLogOpen(const char* z_c_Ident = "SysSrv");
