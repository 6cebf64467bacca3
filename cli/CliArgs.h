#pragma once
// What syssrv-sim and syssrvctl share on the command line: the exit codes both use, the
// failure type that carries one, the parser of one subcommand's options and arguments, and
// strict number parsing. Each program adds its own options and exit codes on top.
#include <glib.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

// Exit codes every program of ours gives the same meaning; scripts rely on them.
constexpr int I_EXIT_OK = 0;
constexpr int I_EXIT_USAGE = 2;  // bad command line

// Thrown anywhere below a subcommand; main prints the one-line message and exits with
// the code.
class CliFailure_CL : public std::runtime_error {
 public:
  CliFailure_CL(int i_ExitCode, const std::string& str_Msg)
      : std::runtime_error(str_Msg), i_ExitCode(i_ExitCode) {}
  int f_ExitCode() const { return i_ExitCode; }

 private:
  int i_ExitCode;
};

[[noreturn]] void f_UsageError(const std::string& str_Msg);
// printf-style formatting into a std::string (sized to fit, never truncated or overrun).
std::string f_Format(const char* z_c_Fmt, ...) G_GNUC_PRINTF(1, 2);

// One subcommand's command line. The options are parsed with GOption (--help included);
// what is left are the positional arguments.
class CliArgs_CL {
 public:
  CliArgs_CL(const char* z_c_Params, const char* z_c_Summary);
  virtual ~CliArgs_CL();
  CliArgs_CL(const CliArgs_CL&) = delete;
  CliArgs_CL& operator=(const CliArgs_CL&) = delete;

  // Extra options; the array ends with a zeroed entry. GOption copies the entries, but
  // the variables they point at must outlive f_Parse. A G_OPTION_ARG_CALLBACK entry gets
  // this object as its data.
  void f_AddEntries(const GOptionEntry* a_o_Entries);
  // Text shown behind the option list of --help, as given.
  void f_SetDescription(const char* z_c_Text);
  // Parses argv (argv[0] is the subcommand). --help prints and exits 0; a bad option
  // throws a usage error. Arguments that look like negative numbers stay positional.
  void f_Parse(int i_Argc, char** a_z_c_Argv);
  void f_ExpectArgs(size_t ui_Min, size_t ui_Max) const;

  const std::vector<std::string>& f_Args() const { return o_Args; }

 protected:
  // Called at the end of f_Parse: checks of option values a program adds.
  virtual void f_CheckOptions() {}

 private:
  GOptionContext* z_o_Context;
  std::vector<std::string> o_Args;
};

// Strict whole-number parsing of a command-line value; z_c_What names it in the message
// of the usage error. i_Base as strtoll takes it (0: decimal, 0x hexadecimal, 0 octal).
// 64-bit so that the full unsigned 32-bit range fits on the 32-bit target as well.
long long f_ParseLong(const std::string& str_Text, long long ll_Min, long long ll_Max,
                      const char* z_c_What, int i_Base);
