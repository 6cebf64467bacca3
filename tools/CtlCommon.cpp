#include "CtlCommon.h"

#include <climits>
#include <cstdio>
#include <new>

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
    : CliArgs_CL(z_c_Params, z_c_Summary) {
  GOptionEntry a_o_Entries[] = {
      {"system", 0, 0, G_OPTION_ARG_NONE, &b_System,
       "Use the system bus (the default; DBUS_SYSTEM_BUS_ADDRESS is honoured)", nullptr},
      {"timeout", 't', 0, G_OPTION_ARG_INT, &i_TimeoutSec,
       "Seconds to wait for an answer (default 25)", "SEC"},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  f_AddEntries(a_o_Entries);
}

void CtlArgs_CL::f_AddJson() {
  GOptionEntry a_o_Entries[] = {
      {"json", 'j', 0, G_OPTION_ARG_NONE, &b_Json, "Print JSON for scripts", nullptr},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  f_AddEntries(a_o_Entries);
}

void CtlArgs_CL::f_SetDescription(const char* z_c_Text) {
  CliArgs_CL::f_SetDescription((std::string(z_c_Text) + "\n").c_str());
}

void CtlArgs_CL::f_CheckOptions() {
  if (i_TimeoutSec < 1 || i_TimeoutSec > 3600) {
    f_UsageError(f_Format("--timeout must be 1..3600 seconds, got %d", i_TimeoutSec));
  }
}

void f_ExpectUtf8(const std::string& str_Text, const char* z_c_What) {
  if (!g_utf8_validate(str_Text.data(), static_cast<gssize>(str_Text.size()), nullptr) ||
      str_Text.find('\0') != std::string::npos) {
    f_UsageError(f_Format("%s must be UTF-8 text", z_c_What));
  }
}

// ---------------------------------------------------------------------------------------
// Numbers

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
