// syssrvctl: looks at and drives SysSrv over its bus interface, for the people who build
// the tool's other processes and for service technicians.
#include <iterator>

#include "CliMain.h"
#include "CtlCommands.h"
#include "SysSrvNames.h"

namespace {

const CliCommand_ST A_O_COMMANDS[] = {
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

// The bus options that take a value, so that their value is not taken for the command.
const char* const A_Z_C_VALUE_OPTIONS[] = {"--timeout", "-t", nullptr};

const CliProgram_ST O_PROGRAM = {
    "syssrvctl",
    A_O_COMMANDS,
    std::size(A_O_COMMANDS),
    "Usage: syssrvctl [--system] [COMMAND] [OPTION...] [ARG...]\n"
    "       syssrvctl --version\n\n"
    "Looks at and drives SysSrv (" SYSSRV_BUS_NAME ") on the system bus;\n"
    "DBUS_SYSTEM_BUS_ADDRESS points it at another bus (a sandbox, say).\n\n"
    "Commands:\n",
    "\nWithout a command: status. 'syssrvctl COMMAND --help' describes a command;\n"
    "status, errors, batch list and monitor print JSON with --json[=short|pretty].\n\n"
    "Exit status: 0 done, 1 SysSrv refused the call, 2 bad command line,\n"
    "3 SysSrv not running (or no bus), 4 no answer in time or call not allowed.\n",
    I_EXIT_BUS,
    // "syssrvctl --system status": the bus options may come first.
    true,
    A_Z_C_VALUE_OPTIONS,
    // Called bare it shows the overview, as the system's other *ctl programs do.
    "status",
};

}  // namespace

int main(int i_Argc, char** a_z_c_Argv) { return f_CliMain(O_PROGRAM, i_Argc, a_z_c_Argv); }
