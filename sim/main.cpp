// syssrv-sim: builds a simulated tool under a sandbox directory and drives its inputs
// while the service runs against it.
#include <glib.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "SimCommands.h"
#include "SimCommon.h"

namespace {

struct SimCommand_ST {
  const char* z_c_Name;
  int (*f_Run)(int, char**);
  const char* z_c_Summary;
};

const SimCommand_ST A_O_COMMANDS[] = {
    {"init", f_CmdInit, "make DIR a complete simulated tool"},
    {"battery", f_CmdBattery, "set the raw battery byte (0..255)"},
    {"sync", f_CmdSync, "set the driver's sync status byte"},
    {"lt", f_CmdLt, "driver marker up or down"},
    {"temp", f_CmdTemp, "set the board temperature sensor"},
    {"templimit", f_CmdTempLimit, "set the temperature limit file"},
    {"bms", f_CmdBms, "set BMS inputs, read BMS outputs"},
    {"dmesg", f_CmdDmesg, "append to or clear the kernel log"},
    {"cycle", f_CmdCycle, "set the tightening-cycle count"},
    {"busy", f_CmdBusy, "set the diagnostic busy mode (srbmod)"},
    {"smod", f_CmdSmod, "set the mode byte of the error segment"},
    {"hwrev", f_CmdHwRev, "set the hardware revision lines"},
    {"nameplate", f_CmdNameplate, "write, show or corrupt the nameplates"},
    {"show", f_CmdShow, "outputs, readiness, error and inputs at a glance"},
    {"log", f_CmdLog, "print the commands the service ran"},
};

void f_PrintHelp(FILE* z_o_Out) {
  std::fprintf(z_o_Out,
               "Usage: syssrv-sim COMMAND [OPTION...] [ARG...]\n\n"
               "Simulated tool for the system service: files under a sandbox root.\n"
               "Commands other than init work on --root DIR (default: $SYSSRV_ROOT).\n\n"
               "Commands:\n");
  for (const SimCommand_ST& o_Cmd : A_O_COMMANDS) {
    std::fprintf(z_o_Out, "  %-10s %s\n", o_Cmd.z_c_Name, o_Cmd.z_c_Summary);
  }
  std::fprintf(z_o_Out,
               "\n'syssrv-sim COMMAND --help' describes a command.\n"
               "Exit status: 0 done, 1 the tool's files could not be used, 2 bad command line.\n");
}

}  // namespace

int main(int i_Argc, char** a_z_c_Argv) {
  if (i_Argc < 2) {
    f_PrintHelp(stderr);
    return I_EXIT_USAGE;
  }
  const char* z_c_Cmd = a_z_c_Argv[1];
  if (std::strcmp(z_c_Cmd, "--help") == 0 || std::strcmp(z_c_Cmd, "-h") == 0 ||
      std::strcmp(z_c_Cmd, "help") == 0) {
    f_PrintHelp(stdout);
    return I_EXIT_OK;
  }
  for (const SimCommand_ST& o_Cmd : A_O_COMMANDS) {
    if (std::strcmp(z_c_Cmd, o_Cmd.z_c_Name) != 0) continue;
    // The usage line of --help and the messages name the subcommand.
    std::string str_Prog = std::string("syssrv-sim ") + o_Cmd.z_c_Name;
    g_set_prgname(str_Prog.c_str());
    try {
      return o_Cmd.f_Run(i_Argc - 1, a_z_c_Argv + 1);
    } catch (const SimFailure_CL& o_Fail) {
      std::fprintf(stderr, "%s: %s%s\n", str_Prog.c_str(), o_Fail.what(),
                   o_Fail.f_ExitCode() == I_EXIT_USAGE ? " (see --help)" : "");
      return o_Fail.f_ExitCode();
    } catch (const std::bad_alloc&) {
      std::fprintf(stderr, "%s: out of memory\n", str_Prog.c_str());
      return I_EXIT_FAILURE;
    }
  }
  std::fprintf(stderr, "syssrv-sim: unknown command '%s' (see syssrv-sim --help)\n", z_c_Cmd);
  return I_EXIT_USAGE;
}
