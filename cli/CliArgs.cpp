#include "CliArgs.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

void f_UsageError(const std::string& str_Msg) { throw CliFailure_CL(I_EXIT_USAGE, str_Msg); }

std::string f_Format(const char* z_c_Fmt, ...) {
  va_list o_Args;
  va_start(o_Args, z_c_Fmt);
  char* z_c_Text = g_strdup_vprintf(z_c_Fmt, o_Args);
  va_end(o_Args);
  std::string str_Text(z_c_Text);
  g_free(z_c_Text);
  return str_Text;
}

// ---------------------------------------------------------------------------------------
// Command line

CliArgs_CL::CliArgs_CL(const char* z_c_Params, const char* z_c_Summary)
    : z_o_Context(g_option_context_new(z_c_Params)) {
  g_option_context_set_summary(z_o_Context, z_c_Summary);
  // An option callback of ours gets this object as its data.
  g_option_context_set_main_group(z_o_Context,
                                  g_option_group_new(nullptr, nullptr, nullptr, this, nullptr));
  // Negative numbers ("temp -5", "batch clear -1") would otherwise be refused as unknown
  // options; unknown options are caught after parsing instead.
  g_option_context_set_ignore_unknown_options(z_o_Context, TRUE);
}

CliArgs_CL::~CliArgs_CL() { g_option_context_free(z_o_Context); }

void CliArgs_CL::f_AddEntries(const GOptionEntry* a_o_Entries) {
  g_option_group_add_entries(g_option_context_get_main_group(z_o_Context), a_o_Entries);
}

void CliArgs_CL::f_SetDescription(const char* z_c_Text) {
  g_option_context_set_description(z_o_Context, z_c_Text);
}

namespace {
bool f_LooksNumeric(const char* z_c_Text) {
  char* z_c_End = nullptr;
  std::strtod(z_c_Text, &z_c_End);
  return z_c_End != z_c_Text && *z_c_End == '\0';
}
}  // namespace

void CliArgs_CL::f_Parse(int i_Argc, char** a_z_c_Argv) {
  // GOption rearranges the vector it is given; hand it a copy of the pointers.
  std::vector<char*> o_Argv(a_z_c_Argv, a_z_c_Argv + i_Argc);
  o_Argv.push_back(nullptr);
  int i_Count = i_Argc;
  char** a_z_c_Vec = o_Argv.data();
  GError* z_o_Error = nullptr;
  if (!g_option_context_parse(z_o_Context, &i_Count, &a_z_c_Vec, &z_o_Error)) {
    std::string str_Msg = z_o_Error != nullptr ? z_o_Error->message : "bad command line";
    g_clear_error(&z_o_Error);
    f_UsageError(str_Msg);
  }
  bool b_OnlyArgs = false;
  for (int i = 1; i < i_Count; ++i) {
    const char* z_c_Arg = a_z_c_Vec[i];
    if (!b_OnlyArgs && std::strcmp(z_c_Arg, "--") == 0) {
      b_OnlyArgs = true;
      continue;
    }
    if (!b_OnlyArgs && z_c_Arg[0] == '-' && z_c_Arg[1] != '\0' && !f_LooksNumeric(z_c_Arg)) {
      f_UsageError(f_Format("unknown option %s", z_c_Arg));
    }
    o_Args.emplace_back(z_c_Arg);
  }
  f_CheckOptions();
}

void CliArgs_CL::f_ExpectArgs(size_t ui_Min, size_t ui_Max) const {
  if (o_Args.size() < ui_Min) f_UsageError("missing argument");
  if (o_Args.size() > ui_Max)
    f_UsageError(f_Format("unexpected argument '%s'", o_Args[ui_Max].c_str()));
}

// ---------------------------------------------------------------------------------------
// Numbers

long long f_ParseLong(const std::string& str_Text, long long ll_Min, long long ll_Max,
                      const char* z_c_What, int i_Base) {
  const char* z_c_Text = str_Text.c_str();
  char* z_c_End = nullptr;
  errno = 0;
  long long ll_Value = std::strtoll(z_c_Text, &z_c_End, i_Base);
  bool b_Ok = !str_Text.empty() && z_c_End != z_c_Text && *z_c_End == '\0' && errno == 0;
  if (!b_Ok || ll_Value < ll_Min || ll_Value > ll_Max) {
    f_UsageError(f_Format("%s must be a whole number %lld..%lld, got '%s'", z_c_What, ll_Min,
                          ll_Max, z_c_Text));
  }
  return ll_Value;
}
