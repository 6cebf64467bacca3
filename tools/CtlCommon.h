#pragma once
// Shared pieces of syssrvctl: its exit codes and command line on top of the common ones,
// strict number parsing and small RAII holders.
#include <cjson/cJSON.h>
#include <glib.h>

#include <memory>
#include <string>

#include "CliArgs.h"
#include "sysLib/ConfigFile.h"
#include "sysLib/Holders.h"

// Exit codes of every subcommand besides the shared ones; scripts and the demo rely on them.
constexpr int I_EXIT_REFUSED = 1;     // the service answered with its error reply
constexpr int I_EXIT_NO_SERVICE = 3;  // no bus, or nobody owns the service's name
constexpr int I_EXIT_BUS = 4;         // no answer in time, call not allowed, odd reply

using Json_T = CJsonTree_T;


// How --json prints: not at all, one object per line (plain --json), or indented.
enum en_JsonFormat { en_JsonOff, en_JsonShort, en_JsonPretty };

// Prints a JSON tree on stdout in the given form (never en_JsonOff), ending with a line end.
void f_PrintJson(const cJSON* z_o_Json, en_JsonFormat e_Format);

// One subcommand's command line. Every subcommand takes the bus options.
class CtlArgs_CL : public CliArgs_CL {
 public:
  CtlArgs_CL(const char* z_c_Params, const char* z_c_Summary);

  // Adds --json[=short|pretty].
  void f_AddJson();
  // Adds --no-legend, for commands that print a table.
  void f_AddLegend();
  // Text shown behind the option list of --help; GOption prints it without a line end of
  // its own, so one is added.
  void f_SetDescription(const char* z_c_Text);

  bool f_Json() const { return e_Json != en_JsonOff; }
  en_JsonFormat f_JsonFormat() const { return e_Json; }
  // Header lines and hints around a table; off with --no-legend.
  bool f_Legend() const { return b_NoLegend == FALSE; }
  // Reply timeout of bus calls in milliseconds.
  int f_TimeoutMs() const { return i_TimeoutSec * 1000; }

 protected:
  void f_CheckOptions() override;

 private:
  static gboolean f_OnJson(const gchar* z_c_Name, const gchar* z_c_Value, gpointer z_o_Self,
                           GError** z_z_o_Err);
  gboolean b_System = FALSE;
  en_JsonFormat e_Json = en_JsonOff;
  gboolean b_NoLegend = FALSE;
  int i_TimeoutSec = 25;
};

// Text that travels on the bus must be UTF-8; anything else is a usage error here rather
// than a refused message later.
void f_ExpectUtf8(const std::string& str_Text, const char* z_c_What);

// Strict whole-number parsing of a command-line value, decimal only; z_c_What names it in
// the message.
inline long long f_ParseLong(const std::string& str_Text, long long ll_Min, long long ll_Max,
                             const char* z_c_What) {
  return f_ParseLong(str_Text, ll_Min, ll_Max, z_c_What, 10);
}

// A coded error number as given on the command line: "3228" (code × 8 + class) or
// "403/4" (code/class).
struct ErrorNr_ST {
  int i_Coded;
  int i_Code;
  int i_Class;
};
ErrorNr_ST f_ParseErrorNr(const std::string& str_Text);
