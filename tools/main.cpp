// syssrvctl: looks at and drives SysSrv over its bus interface, for the people who build
// the tool's other processes and for service technicians.
#include <glib.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "CtlCommands.h"

namespace {

struct CtlCommand_ST {
  const char* z_c_Name;
  int (*f_Run)(int, char**);
  const char* z_c_Summary;
};

const CtlCommand_ST A_O_COMMANDS[] = {
    {"status", f_CmdStatus, "battery, count-down, readiness, current error, tool enable"},
    {"errors", f_CmdErrors, "the active system errors as a table"},
    {"report", f_CmdReport, "report error CODE as process PROC"},
    {"ack", f_CmdAck, "acknowledge error CODE, or --all of classes 0 and 3"},
    {"clear", f_CmdClear, "delete the acknowledged errors from the list"},
    {"ready", f_CmdReady, "set or reset readiness flag N, or dump the table"},
    {"battery", f_CmdBattery, "set-power N: publish a battery charge"},
    {"mfu", f_CmdMfu, "set N: maintenance factor in thousandths"},
    {"batch", f_CmdBatch, "list, set, clear or delete batch counter sets"},
    {"idcode-source", f_CmdIdCodeSource, "select the identification-code source"},
    {"tool-enable", f_CmdToolEnable, "disable (0) or enable (1) the tool"},
    {"config-changed", f_CmdConfigChanged, "announce a changed configuration file"},
    {"monitor", f_CmdMonitor, "print every signal until interrupted"},
};

void f_PrintHelp(FILE* z_o_Out) {
  std::fprintf(z_o_Out,
               "Usage: syssrvctl [--system] COMMAND [OPTION...] [ARG...]\n\n"
               "Looks at and drives SysSrv (com.torvane.akku.SysService) on the system bus;\n"
               "DBUS_SYSTEM_BUS_ADDRESS points it at another bus (a sandbox, say).\n\n"
               "Commands:\n");
  for (const CtlCommand_ST& o_Cmd : A_O_COMMANDS) {
    std::fprintf(z_o_Out, "  %-15s %s\n", o_Cmd.z_c_Name, o_Cmd.z_c_Summary);
  }
  std::fprintf(z_o_Out,
               "\n'syssrvctl COMMAND --help' describes a command; status, errors, batch list and\n"
               "monitor print JSON with --json.\n\n"
               "Exit status: 0 done, 1 SysSrv refused the call, 2 bad command line,\n"
               "3 SysSrv not running (or no bus), 4 no answer in time or call not allowed.\n");
}

bool f_IsHelp(const char* z_c_Arg) {
  return std::strcmp(z_c_Arg, "--help") == 0 || std::strcmp(z_c_Arg, "-h") == 0 ||
         std::strcmp(z_c_Arg, "help") == 0;
}

}  // namespace

int main(int i_Argc, char** a_z_c_Argv) {
  // Options given before the command ("syssrvctl --system status") belong to it as well:
  // move them behind the command's name.
  std::vector<char*> o_Front;
  int i_Cmd = 1;
  while (i_Cmd < i_Argc && a_z_c_Argv[i_Cmd][0] == '-' && !f_IsHelp(a_z_c_Argv[i_Cmd])) {
    bool b_TakesValue = std::strcmp(a_z_c_Argv[i_Cmd], "--timeout") == 0 ||
                        std::strcmp(a_z_c_Argv[i_Cmd], "-t") == 0;
    o_Front.push_back(a_z_c_Argv[i_Cmd++]);
    if (b_TakesValue && i_Cmd < i_Argc) o_Front.push_back(a_z_c_Argv[i_Cmd++]);
  }
  if (i_Cmd >= i_Argc) {
    f_PrintHelp(stderr);
    return I_EXIT_USAGE;
  }
  const char* z_c_Cmd = a_z_c_Argv[i_Cmd];
  if (f_IsHelp(z_c_Cmd)) {
    f_PrintHelp(stdout);
    return I_EXIT_OK;
  }
  for (const CtlCommand_ST& o_Cmd : A_O_COMMANDS) {
    if (std::strcmp(z_c_Cmd, o_Cmd.z_c_Name) != 0) continue;
    std::vector<char*> o_Argv;
    o_Argv.push_back(a_z_c_Argv[i_Cmd]);
    o_Argv.insert(o_Argv.end(), o_Front.begin(), o_Front.end());
    o_Argv.insert(o_Argv.end(), a_z_c_Argv + i_Cmd + 1, a_z_c_Argv + i_Argc);
    // The usage line of --help and the messages name the subcommand.
    std::string str_Prog = std::string("syssrvctl ") + o_Cmd.z_c_Name;
    g_set_prgname(str_Prog.c_str());
    try {
      return o_Cmd.f_Run(static_cast<int>(o_Argv.size()), o_Argv.data());
    } catch (const CtlFailure_CL& o_Fail) {
      std::fflush(stdout);
      std::fprintf(stderr, "%s: %s%s\n", str_Prog.c_str(), o_Fail.what(),
                   o_Fail.f_ExitCode() == I_EXIT_USAGE ? " (see --help)" : "");
      return o_Fail.f_ExitCode();
    } catch (const std::bad_alloc&) {
      std::fprintf(stderr, "%s: out of memory\n", str_Prog.c_str());
      return I_EXIT_BUS;
    }
  }
  std::fprintf(stderr, "syssrvctl: unknown command '%s' (see syssrvctl --help)\n", z_c_Cmd);
  return I_EXIT_USAGE;
}
