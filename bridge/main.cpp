// syssrv-bridge: publishes the tool's system state to the plant's MQTT broker.
#include <glib-unix.h>
#include <syslog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "BridgeConfig.h"
#include "EventQueue.h"
#include "PlantFeed.h"
#include "sysLib/SysPath.h"

namespace {

constexpr const char* A_C_DEFAULT_CONFIG = "/etc/syssrv/bridge.conf";

// The tool's name on the plant network: the host name file the service maintains.
std::string f_ToolHostName() {
  std::ifstream o_File(f_SysPath("/etc/hostname"));
  std::string str_Name;
  if (o_File) std::getline(o_File, str_Name);
  while (!str_Name.empty() && std::strchr(" \t\r\n", str_Name.back()) != nullptr)
    str_Name.pop_back();
  if (str_Name.empty()) str_Name = g_get_host_name();
  // One topic level: nothing that would split it or make it a filter.
  for (char& c_Ch : str_Name)
    if (c_Ch == '/' || c_Ch == '+' || c_Ch == '#') c_Ch = '_';
  return str_Name;
}

// Paths of the configuration name the tool's files; a sandboxed run maps them.
void f_MapPath(std::string* z_str_Path) {
  if (!z_str_Path->empty()) *z_str_Path = f_SysPath(*z_str_Path);
}

int f_Usage(FILE* z_o_Out, int i_Rc) {
  std::fprintf(z_o_Out,
               "usage: syssrv-bridge [-c FILE] | --version | --help\n"
               "  -c, --config FILE  configuration file (default %s)\n",
               A_C_DEFAULT_CONFIG);
  return i_Rc;
}

}  // namespace

int main(int argc, char** argv) {
  std::string str_ConfigPath = A_C_DEFAULT_CONFIG;
  bool b_Explicit = false;
  for (int i = 1; i < argc; i++) {
    if ((std::strcmp(argv[i], "-c") == 0 || std::strcmp(argv[i], "--config") == 0) &&
        i + 1 < argc) {
      str_ConfigPath = argv[++i];
      b_Explicit = true;
    } else if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0) {
      return f_Usage(stdout, 0);
    } else if (std::strcmp(argv[i], "--version") == 0) {
      std::printf("syssrv-bridge %s\n", SYSSRV_BRIDGE_VERSION);
      return 0;
    } else {
      return f_Usage(stderr, 2);
    }
  }
  umask(027);
  f_SysLogOpen("syssrv-bridge");

  BridgeConfig_ST o_Cfg;
  std::string str_Error;
  // Without a file of its own the bridge talks to a broker on the tool itself.
  if (!f_LoadBridgeConfig(f_SysPath(str_ConfigPath), !b_Explicit, &o_Cfg, &str_Error)) {
    syslog(LOG_ERR, "bridge: configuration: %s", str_Error.c_str());
    return 2;
  }
  if (o_Cfg.str_HostName.empty()) o_Cfg.str_HostName = f_ToolHostName();
  if (o_Cfg.str_ClientId.empty()) o_Cfg.str_ClientId = "syssrv-bridge-" + o_Cfg.str_HostName;
  for (std::string* z_str_P : {&o_Cfg.str_QueueFile, &o_Cfg.str_PasswordFile, &o_Cfg.str_TlsCaFile,
                               &o_Cfg.str_TlsCertFile, &o_Cfg.str_TlsKeyFile})
    f_MapPath(z_str_P);

  EventQueue_CL o_Queue(o_Cfg.l_QueueMaxEvents, o_Cfg.l_QueueMaxAgeS);
  if (!o_Queue.f_Open(o_Cfg.str_QueueFile)) return 1;

  GError* z_o_Err = nullptr;
  SysSrvClient* z_o_Client = sys_srv_client_new_sync(nullptr, &z_o_Err);
  if (z_o_Client == nullptr) {
    syslog(LOG_ERR, "bridge: no system bus: %s", z_o_Err->message);
    g_error_free(z_o_Err);
    return 1;
  }
  // A hanging service must not hold up the feed for the bus's default 25 s.
  sys_srv_client_set_timeout(z_o_Client, 5000);

  GMainLoop* z_o_Loop = g_main_loop_new(nullptr, FALSE);
  {
    PlantFeed_CL o_Feed(o_Cfg, z_o_Client, o_Queue);
    syslog(LOG_INFO, "bridge: publishing under %s/%s/ to %s:%d", o_Cfg.str_Prefix.c_str(),
           o_Cfg.str_HostName.c_str(), o_Cfg.str_Host.c_str(), o_Cfg.f_Port());
    o_Feed.f_Start();
    auto f_Quit = [](gpointer z_v_Loop) -> gboolean {
      g_main_loop_quit(static_cast<GMainLoop*>(z_v_Loop));
      return G_SOURCE_CONTINUE;  // removed below, with the other one
    };
    guint ui_Term = g_unix_signal_add(SIGTERM, f_Quit, z_o_Loop);
    guint ui_Int = g_unix_signal_add(SIGINT, f_Quit, z_o_Loop);
    g_main_loop_run(z_o_Loop);
    g_source_remove(ui_Term);
    g_source_remove(ui_Int);
    syslog(LOG_INFO, "bridge: stopping, %ld events queued", o_Queue.f_Count());
    o_Feed.f_Stop();
  }
  g_main_loop_unref(z_o_Loop);
  g_object_unref(z_o_Client);
  return 0;
}
