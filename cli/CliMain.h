#pragma once
// The top level of a program made of subcommands ("PROG COMMAND [OPTION...] [ARG...]"):
// the command table, the overall --help and --version, and turning a failure into its message and exit
// code.
#include <cstddef>

struct CliCommand_ST {
  const char* z_c_Name;
  // Gets argv from the command's name on and returns the exit code; throws CliFailure_CL.
  int (*f_Run)(int, char**);
  const char* z_c_Summary;  // one line of the overall --help
};

struct CliProgram_ST {
  const char* z_c_Name;
  const CliCommand_ST* a_o_Commands;
  size_t ui_Commands;
  // The overall --help: this text, one line per command, then the tail.
  const char* z_c_HelpHead;
  const char* z_c_HelpTail;
  // Exit code when a command runs out of memory.
  int i_OutOfMemoryExit;
  // Options may stand before the command ("PROG --system status"); they are moved behind
  // the command's name. The list (ending with nullptr) names those that take a value.
  bool b_OptionsFirst;
  const char* const* a_z_c_ValueOptions;
  // The command run when none is given ("PROG", "PROG --json"); null: the overall help on
  // stderr and a usage error.
  const char* z_c_DefaultCommand;
};

int f_CliMain(const CliProgram_ST& o_Prog, int i_Argc, char** a_z_c_Argv);
