// Root mapping of the simulated tool and the process's syslog set-up.
#include "sysLib/SysPath.h"

#include <cstdio>
#include <cstdlib>
#include <syslog.h>

std::string f_SysRoot() {
  // Read on every call: tests and the simulator switch roots inside one process.
  const char* z_c_Root = std::getenv("SYSSRV_ROOT");
  if (z_c_Root == nullptr || *z_c_Root == '\0') return std::string();
  return std::string(z_c_Root);
}

bool f_SysInSandbox() { return !f_SysRoot().empty(); }

std::string f_SysPath(const std::string& str_Path) {
  std::string str_Root = f_SysRoot();
  if (str_Root.empty() || str_Path.empty() || str_Path[0] != '/') return str_Path;
  // "ROOT/" and "ROOT" name the same directory; keep the mapped paths free of "//".
  while (str_Root.size() > 1 && str_Root.back() == '/') str_Root.pop_back();
  if (str_Root == "/") return str_Path;
  return str_Root + str_Path;
}

void f_SysLogOpen(const char* z_c_Ident) {
  // openlog keeps the pointer it is given, so the ident lives in a buffer of our own.
  static char a_c_Ident[64];
  std::snprintf(a_c_Ident, sizeof(a_c_Ident), "%s",
                (z_c_Ident != nullptr && *z_c_Ident != '\0') ? z_c_Ident : "SysSrv");
  // Under systemd stderr already goes to the journal; copying it there would log each
  // line twice. Only a sandboxed run (tests, demo) wants the copy on stderr.
  closelog();
  openlog(a_c_Ident, LOG_PID | (f_SysInSandbox() ? LOG_PERROR : 0), LOG_DAEMON);
}
