#include "CtlCommon.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

void f_UsageError(const std::string& str_Msg) { throw CtlFailure_CL(I_EXIT_USAGE, str_Msg); }

std::string f_Format(const char* z_c_Fmt, ...) {
  va_list o_Args;
  va_start(o_Args, z_c_Fmt);
  char* z_c_Text = g_strdup_vprintf(z_c_Fmt, o_Args);
  va_end(o_Args);
  std::string str_Text(z_c_Text);
  g_free(z_c_Text);
  return str_Text;
}

void f_PrintJsonLine(const cJSON* z_o_Json) {
  char* z_c_Text = cJSON_PrintUnformatted(z_o_Json);
  if (z_c_Text == nullptr) throw std::bad_alloc();
  std::printf("%s\n", z_c_Text);
  cJSON_free(z_c_Text);
  // A script reading a pipe must see each object as soon as it is complete.
  std::fflush(stdout);
}

// ---------------------------------------------------------------------------------------
// Command line

CtlArgs_CL::CtlArgs_CL(const char* z_c_Params, const char* z_c_Summary)
    : z_o_Context(g_option_context_new(z_c_Params)) {
  g_option_context_set_summary(z_o_Context, z_c_Summary);
  // Negative numbers ("batch clear -1") would otherwise be refused as unknown options;
  // unknown options are caught after parsing instead.
  g_option_context_set_ignore_unknown_options(z_o_Context, TRUE);
  GOptionEntry a_o_Entries[] = {
      {"system", 0, 0, G_OPTION_ARG_NONE, &b_System,
       "Use the system bus (the default; DBUS_SYSTEM_BUS_ADDRESS is honoured)", nullptr},
      {"timeout", 't', 0, G_OPTION_ARG_INT, &i_TimeoutSec,
       "Seconds to wait for an answer (default 25)", "SEC"},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  g_option_context_add_main_entries(z_o_Context, a_o_Entries, nullptr);
}

CtlArgs_CL::~CtlArgs_CL() { g_option_context_free(z_o_Context); }

void CtlArgs_CL::f_AddEntries(const GOptionEntry* a_o_Entries) {
  g_option_context_add_main_entries(z_o_Context, a_o_Entries, nullptr);
}

void CtlArgs_CL::f_AddJson() {
  GOptionEntry a_o_Entries[] = {
      {"json", 'j', 0, G_OPTION_ARG_NONE, &b_Json, "Print JSON for scripts", nullptr},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  f_AddEntries(a_o_Entries);
}

void CtlArgs_CL::f_SetDescription(const char* z_c_Text) {
  // GOption prints the text without a line end of its own.
  g_option_context_set_description(z_o_Context, (std::string(z_c_Text) + "\n").c_str());
}

namespace {
bool f_LooksNumeric(const char* z_c_Text) {
  char* z_c_End = nullptr;
  std::strtod(z_c_Text, &z_c_End);
  return z_c_End != z_c_Text && *z_c_End == '\0';
}
}  // namespace

void CtlArgs_CL::f_Parse(int i_Argc, char** a_z_c_Argv) {
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
  if (i_TimeoutSec < 1 || i_TimeoutSec > 3600) {
    f_UsageError(f_Format("--timeout must be 1..3600 seconds, got %d", i_TimeoutSec));
  }
}

void CtlArgs_CL::f_ExpectArgs(size_t ui_Min, size_t ui_Max) const {
  if (o_Args.size() < ui_Min) f_UsageError("missing argument");
  if (o_Args.size() > ui_Max)
    f_UsageError(f_Format("unexpected argument '%s'", o_Args[ui_Max].c_str()));
}

void f_ExpectUtf8(const std::string& str_Text, const char* z_c_What) {
  if (!g_utf8_validate(str_Text.data(), static_cast<gssize>(str_Text.size()), nullptr) ||
      str_Text.find('\0') != std::string::npos) {
    f_UsageError(f_Format("%s must be UTF-8 text", z_c_What));
  }
}

// ---------------------------------------------------------------------------------------
// Numbers

long long f_ParseLong(const std::string& str_Text, long long ll_Min, long long ll_Max,
                      const char* z_c_What) {
  const char* z_c_Text = str_Text.c_str();
  char* z_c_End = nullptr;
  errno = 0;
  long long ll_Value = std::strtoll(z_c_Text, &z_c_End, 10);
  bool b_Ok = !str_Text.empty() && z_c_End != z_c_Text && *z_c_End == '\0' && errno == 0;
  if (!b_Ok || ll_Value < ll_Min || ll_Value > ll_Max) {
    f_UsageError(f_Format("%s must be a whole number %lld..%lld, got '%s'", z_c_What, ll_Min,
                          ll_Max, z_c_Text));
  }
  return ll_Value;
}

ErrorNr_ST f_ParseErrorNr(const std::string& str_Text) {
  ErrorNr_ST o_Nr{};
  size_t ui_Slash = str_Text.find('/');
  if (ui_Slash == std::string::npos) {
    // Error 0 would read back as "no error" everywhere, so it cannot be a real report.
    o_Nr.i_Coded = static_cast<int>(f_ParseLong(str_Text, 1, INT_MAX, "CODE"));
    o_Nr.i_Code = o_Nr.i_Coded >> 3;
    o_Nr.i_Class = o_Nr.i_Coded & 7;
  } else {
    o_Nr.i_Code = static_cast<int>(
        f_ParseLong(str_Text.substr(0, ui_Slash), 0, INT_MAX >> 3, "the code of CODE/CLASS"));
    o_Nr.i_Class = static_cast<int>(
        f_ParseLong(str_Text.substr(ui_Slash + 1), 0, 7, "the class of CODE/CLASS"));
    o_Nr.i_Coded = o_Nr.i_Code * 8 + o_Nr.i_Class;
    if (o_Nr.i_Coded == 0) f_UsageError("error 0/0 means \"no error\" and cannot be reported");
  }
  return o_Nr;
}
