#include "CtlCommon.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <new>

void f_PrintJson(const cJSON* z_o_Json, en_JsonFormat e_Format) {
  CJsonText_T o_Text(e_Format == en_JsonPretty ? cJSON_Print(z_o_Json)
                                               : cJSON_PrintUnformatted(z_o_Json));
  if (!o_Text) throw std::bad_alloc();
  std::printf("%s\n", o_Text.get());
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

gboolean CtlArgs_CL::f_OnJson(const gchar*, const gchar* z_c_Value, gpointer z_o_Self,
                              GError** z_z_o_Err) {
  auto* z_o_Args = static_cast<CtlArgs_CL*>(static_cast<CliArgs_CL*>(z_o_Self));
  if (z_c_Value == nullptr || std::strcmp(z_c_Value, "short") == 0) {
    z_o_Args->e_Json = en_JsonShort;
  } else if (std::strcmp(z_c_Value, "pretty") == 0) {
    z_o_Args->e_Json = en_JsonPretty;
  } else {
    g_set_error(z_z_o_Err, G_OPTION_ERROR, G_OPTION_ERROR_BAD_VALUE,
                "--json takes short or pretty, got '%s'", z_c_Value);
    return FALSE;
  }
  return TRUE;
}

void CtlArgs_CL::f_AddJson() {
  GOptionEntry a_o_Entries[] = {
      // Optional value: "--json" alone is the short form scripts have used all along.
      {"json", 'j', G_OPTION_FLAG_OPTIONAL_ARG, G_OPTION_ARG_CALLBACK,
       reinterpret_cast<gpointer>(&CtlArgs_CL::f_OnJson),
       "Print JSON for scripts: short (one line, the default) or pretty", "short|pretty"},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  f_AddEntries(a_o_Entries);
}

void CtlArgs_CL::f_AddLegend() {
  GOptionEntry a_o_Entries[] = {
      {"no-legend", 0, 0, G_OPTION_ARG_NONE, &b_NoLegend,
       "Print the table's rows only, without header and hints", nullptr},
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
