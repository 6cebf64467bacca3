// syssrv-sim: builds a simulated tool under a sandbox directory and drives its inputs
// while the service runs against it.
#include <iterator>

#include "CliMain.h"
#include "SimCommands.h"
#include "SimCommon.h"

namespace {

const CliCommand_ST A_O_COMMANDS[] = {
    {"up", f_CmdUp, "make DIR a tool if needed, start a private bus and the service on it"},
    {"down", f_CmdDown, "stop the service and the bus that up started"},
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

const CliProgram_ST O_PROGRAM = {
    "syssrv-sim",
    A_O_COMMANDS,
    std::size(A_O_COMMANDS),
    "Usage: syssrv-sim COMMAND [OPTION...] [ARG...]\n"
    "       syssrv-sim --version\n\n"
    "Simulated tool for the system service: files under a sandbox root.\n"
    "Commands other than up, down and init work on --root DIR (default: $SYSSRV_ROOT).\n\n"
    "Commands:\n",
    "\n'syssrv-sim COMMAND --help' describes a command.\n"
    "Exit status: 0 done, 1 the tool's files could not be used, 2 bad command line.\n",
    I_EXIT_FAILURE,
    // --root belongs behind the command.
    false,
    nullptr,
    nullptr,
};

}  // namespace

int main(int i_Argc, char** a_z_c_Argv) { return f_CliMain(O_PROGRAM, i_Argc, a_z_c_Argv); }
