// "monitor": every signal of the service, one line each, until SIGINT or SIGTERM.
#include <glib-unix.h>

#include <csignal>
#include <cstdio>

#include "CtlCommands.h"

namespace {

struct Monitor_ST {
  GMainLoop* z_o_Loop = nullptr;
  en_JsonFormat e_Json = en_JsonOff;
  FlagNames_T o_Names;
  int i_Exit = I_EXIT_OK;
};

void f_PrintEvent(const Monitor_ST& o_M, const char* z_c_Event, const char* z_c_Owner,
                  const std::string& str_Text) {
  if (o_M.e_Json != en_JsonOff) {
    Json_T o_Line(cJSON_CreateObject());
    cJSON_AddStringToObject(o_Line.get(), "time", f_NowIso().c_str());
    cJSON_AddStringToObject(o_Line.get(), "event", z_c_Event);
    if (z_c_Owner != nullptr) cJSON_AddStringToObject(o_Line.get(), "owner", z_c_Owner);
    f_PrintJson(o_Line.get(), o_M.e_Json);
  } else {
    std::printf("%s  -- %s\n", f_NowText().c_str(), str_Text.c_str());
    std::fflush(stdout);
  }
}

void f_OnSignal(SysSrvClient*, const gchar* z_c_Name, GVariant* o_Params, gpointer z_v_Monitor) {
  const Monitor_ST& o_M = *static_cast<const Monitor_ST*>(z_v_Monitor);
  SignalView_ST o_View = f_DecodeSignal(z_c_Name, o_Params, o_M.o_Names);
  if (o_M.e_Json != en_JsonOff) {
    Json_T o_Line(cJSON_CreateObject());
    cJSON_AddStringToObject(o_Line.get(), "time", f_NowIso().c_str());
    cJSON_AddStringToObject(o_Line.get(), "signal", z_c_Name);
    cJSON_AddItemToObject(o_Line.get(), "args", o_View.o_Args.release());
    f_PrintJson(o_Line.get(), o_M.e_Json);
  } else {
    std::printf("%s  %-23s %s\n", f_NowText().c_str(), z_c_Name, o_View.str_Text.c_str());
    std::fflush(stdout);
  }
}

// The client follows the service's name; its "service-running" tells when it comes and goes.
void f_OnPresence(SysSrvClient* z_o_Client, GParamSpec*, gpointer z_v_Monitor) {
  Monitor_ST& o_M = *static_cast<Monitor_ST*>(z_v_Monitor);
  gboolean b_Running = FALSE;
  g_object_get(z_o_Client, "service-running", &b_Running, nullptr);
  if (!b_Running) {
    f_PrintEvent(o_M, "service-vanished", nullptr, "SysSrv is not on the bus (waiting for it)");
    return;
  }
  GChars_T o_Owner(sys_srv_client_lookup_owner_sync(z_o_Client, nullptr, nullptr));
  const std::string str_Owner = o_Owner ? o_Owner.get() : "?";
  f_PrintEvent(o_M, "service-appeared", str_Owner.c_str(),
               f_Format("SysSrv is on the bus (%s)", str_Owner.c_str()));
}

void f_OnClosed(GDBusConnection*, gboolean, GError* z_o_Err, gpointer z_v_Monitor) {
  Monitor_ST& o_M = *static_cast<Monitor_ST*>(z_v_Monitor);
  std::fprintf(stderr, "syssrvctl monitor: the system bus closed the connection%s%s\n",
               z_o_Err != nullptr ? ": " : "", z_o_Err != nullptr ? z_o_Err->message : "");
  o_M.i_Exit = I_EXIT_NO_SERVICE;
  g_main_loop_quit(o_M.z_o_Loop);
}

gboolean f_OnStop(gpointer z_v_Monitor) {
  g_main_loop_quit(static_cast<Monitor_ST*>(z_v_Monitor)->z_o_Loop);
  // Kept until the end, where both handlers are removed together.
  return G_SOURCE_CONTINUE;
}

}  // namespace

int f_CmdMonitor(int i_Argc, char** a_z_c_Argv) {
  CtlArgs_CL o_Args("", "Prints every signal of SysSrv, one line each, until interrupted.");
  o_Args.f_AddJson();
  o_Args.f_SetDescription(
      "Each line holds the time, the signal's name and its arguments in words; with --json\n"
      "one object per line (indented with --json=pretty): {\"time\", \"signal\", \"args\"}, or {\"time\", \"event\"} when the\n"
      "service appears on or leaves the bus. SIGINT (Ctrl-C) or SIGTERM ends it with status 0.\n"
      "A line on stderr says when it listens.");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(0, 0);
  CtlBus_CL o_Bus(o_Args.f_TimeoutMs());

  Monitor_ST o_M;
  o_M.e_Json = o_Args.f_JsonFormat();
  // The service reads the flag names once at its start; so do we.
  o_M.o_Names = f_ReadFlagNames();
  o_M.z_o_Loop = g_main_loop_new(nullptr, FALSE);
  SysSrvClient* z_o_Client = o_Bus.f_Client();
  GDBusConnection* z_o_Conn = o_Bus.f_Conn();
  gulong ul_Signal = g_signal_connect(z_o_Client, "bus-signal", G_CALLBACK(f_OnSignal), &o_M);
  gulong ul_Presence =
      g_signal_connect(z_o_Client, "notify::service-running", G_CALLBACK(f_OnPresence), &o_M);
  gulong ul_Closed = g_signal_connect(z_o_Conn, "closed", G_CALLBACK(f_OnClosed), &o_M);
  guint ui_Int = g_unix_signal_add(SIGINT, f_OnStop, &o_M);
  guint ui_Term = g_unix_signal_add(SIGTERM, f_OnStop, &o_M);

  // One round trip to the bus: once it is answered, our match rule is in place, and a
  // caller that waits for the line below misses no signal.
  o_Bus.f_ServiceRunning();
  std::fprintf(stderr, "Listening to SysSrv's signals on %s (Ctrl-C ends).\n",
               o_Bus.f_Address().c_str());
  // The client knew the service's presence before we listened: say it once, as it is now.
  f_OnPresence(z_o_Client, nullptr, &o_M);

  g_main_loop_run(o_M.z_o_Loop);

  g_source_remove(ui_Int);
  g_source_remove(ui_Term);
  g_signal_handler_disconnect(z_o_Conn, ul_Closed);
  g_signal_handler_disconnect(z_o_Client, ul_Presence);
  g_signal_handler_disconnect(z_o_Client, ul_Signal);
  g_main_loop_unref(o_M.z_o_Loop);
  return o_M.i_Exit;
}
