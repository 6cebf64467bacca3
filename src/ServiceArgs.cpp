#include "ServiceArgs.h"

#include <cstdio>
#include <cstring>

#include "SysSrvNames.h"
#include "SysSrvVersion.h"

int f_ServiceArgs(int i_Argc, char** a_z_c_Argv) {
  if (i_Argc < 2) return -1;
  const char* z_c_Arg = a_z_c_Argv[1];
  if (i_Argc == 2 && std::strcmp(z_c_Arg, "--version") == 0) {
    std::printf("SysSrv.elf %s\n", SYSSRV_VERSION);
    return 0;
  }
  bool b_Help = i_Argc == 2 && (std::strcmp(z_c_Arg, "--help") == 0 || std::strcmp(z_c_Arg, "-h") == 0);
  std::fprintf(b_Help ? stdout : stderr,
               "Usage: SysSrv.elf [--version | --help]\n\n"
               "The tool's system service on the D-Bus system bus (" SYSSRV_BUS_NAME ").\n"
               "It is started by systemd (syssrv.service) or by bus activation and takes no\n"
               "options. SYSSRV_ROOT=DIR runs it against a simulated tool under DIR, with its\n"
               "log copied to stderr; DBUS_SYSTEM_BUS_ADDRESS names another system bus.\n");
  return b_Help ? 0 : 2;
}
