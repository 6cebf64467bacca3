#pragma once
// Shared pieces of syssrvctl: exit codes, the failure type that carries one, the
// command-line helper of every subcommand, strict number parsing and small RAII holders.
#include <cjson/cJSON.h>
#include <glib.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// Exit codes of every subcommand; scripts and the demo rely on them.
constexpr int I_EXIT_OK = 0;
constexpr int I_EXIT_REFUSED = 1;     // the service answered with its error reply
constexpr int I_EXIT_USAGE = 2;       // bad command line
constexpr int I_EXIT_NO_SERVICE = 3;  // no bus, or nobody owns the service's name
constexpr int I_EXIT_BUS = 4;         // no answer in time, call not allowed, odd reply

// Thrown anywhere below a subcommand; main prints the one-line message and exits.
class CtlFailure_CL : public std::runtime_error {
 public:
  CtlFailure_CL(int i_ExitCode, const std::string& str_Msg)
      : std::runtime_error(str_Msg), i_ExitCode(i_ExitCode) {}
  int f_ExitCode() const { return i_ExitCode; }

 private:
  int i_ExitCode;
};

[[noreturn]] void f_UsageError(const std::string& str_Msg);
// printf-style formatting into a std::string, sized to fit.
std::string f_Format(const char* z_c_Fmt, ...) G_GNUC_PRINTF(1, 2);

struct JsonDeleter_ST {
  void operator()(cJSON* z_o_Json) const { cJSON_Delete(z_o_Json); }
};
using Json_T = std::unique_ptr<cJSON, JsonDeleter_ST>;

struct VariantDeleter_ST {
  void operator()(GVariant* o_V) const { g_variant_unref(o_V); }
};
using Variant_T = std::unique_ptr<GVariant, VariantDeleter_ST>;

// Prints a JSON tree on one line of stdout.
void f_PrintJsonLine(const cJSON* z_o_Json);

// One subcommand's command line, parsed with GOption (--help included). Every subcommand
// takes the bus options; what is left are the positional arguments.
class CtlArgs_CL {
 public:
  CtlArgs_CL(const char* z_c_Params, const char* z_c_Summary);
  ~CtlArgs_CL();
  CtlArgs_CL(const CtlArgs_CL&) = delete;
  CtlArgs_CL& operator=(const CtlArgs_CL&) = delete;

  // Extra options; the array ends with a zeroed entry (GOption copies it).
  void f_AddEntries(const GOptionEntry* a_o_Entries);
  // Adds --json.
  void f_AddJson();
  // Text shown behind the option list of --help.
  void f_SetDescription(const char* z_c_Text);
  // Parses argv (argv[0] is the subcommand). --help prints and exits 0; a bad option is a
  // usage error. Arguments that look like negative numbers stay positional.
  void f_Parse(int i_Argc, char** a_z_c_Argv);
  void f_ExpectArgs(size_t ui_Min, size_t ui_Max) const;

  const std::vector<std::string>& f_Args() const { return o_Args; }
  bool f_Json() const { return b_Json != FALSE; }
  // Reply timeout of bus calls in milliseconds.
  int f_TimeoutMs() const { return i_TimeoutSec * 1000; }

 private:
  GOptionContext* z_o_Context;
  gboolean b_System = FALSE;
  gboolean b_Json = FALSE;
  int i_TimeoutSec = 25;
  std::vector<std::string> o_Args;
};

// Text that travels on the bus must be UTF-8; anything else is a usage error here rather
// than a refused message later.
void f_ExpectUtf8(const std::string& str_Text, const char* z_c_What);

// Strict whole-number parsing of a command-line value; z_c_What names it in the message.
long long f_ParseLong(const std::string& str_Text, long long ll_Min, long long ll_Max,
                      const char* z_c_What);

// A coded error number as given on the command line: "3228" (code × 8 + class) or
// "403/4" (code/class).
struct ErrorNr_ST {
  int i_Coded;
  int i_Code;
  int i_Class;
};
ErrorNr_ST f_ParseErrorNr(const std::string& str_Text);
