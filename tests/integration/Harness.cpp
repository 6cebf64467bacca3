#include "Harness.h"

#include <algorithm>
#include <cjson/cJSON.h>
#include <cctype>
#include <climits>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sqlite3.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sysLib/BmsShMem.h"

namespace it {

namespace {
// In a child, before exec: it dies with the test, also by a crash, so that nothing outlives a
// failed run holding ctest's output pipe open. i_TestPid is the test's, taken before the fork.
void f_DieWithTest(pid_t i_TestPid) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // The test may have ended between the fork and the prctl.
  if (getppid() != i_TestPid) _exit(127);
}
// The daemon's command line: a checker may wrap it, SYSSRV_DAEMON_WRAPPER="valgrind ...".
std::vector<std::string> f_DaemonArgv() {
  const char* z_c_Wrapper = getenv("SYSSRV_DAEMON_WRAPPER");
  if (z_c_Wrapper == nullptr || *z_c_Wrapper == '\0') return {SYSSRV_DAEMON};
  return {"/bin/sh", "-c", "exec $SYSSRV_DAEMON_WRAPPER \"$0\"", SYSSRV_DAEMON};
}
std::vector<std::string> f_DaemonEnv(const Sandbox& o_Box, const PrivateBus& o_Bus,
                                     const std::vector<std::string>& o_Extra) {
  std::vector<std::string> o_Env = {"SYSSRV_ROOT=" + o_Box.f_Dir(),
                                    "DBUS_SYSTEM_BUS_ADDRESS=" + o_Bus.f_Address()};
  // The service's own exit path leaves its long-lived objects to the OS on purpose.
  if (getenv("ASAN_OPTIONS") == nullptr) o_Env.push_back("ASAN_OPTIONS=detect_leaks=0");
  o_Env.insert(o_Env.end(), o_Extra.begin(), o_Extra.end());
  return o_Env;
}
}  // namespace

std::string f_MakeTempDir(const char* z_c_Prefix) {
  std::string str_Dir = std::string("/tmp/") + z_c_Prefix + "-XXXXXX";
  if (mkdtemp(str_Dir.data()) == nullptr) ADD_FAILURE() << "mkdtemp: " << strerror(errno);
  return str_Dir;
}

void f_RemoveTree(const std::string& str_Dir) {
  std::error_code o_Ec;  // a left-over temporary directory does not change a test's result
  if (!str_Dir.empty() && str_Dir != "/") std::filesystem::remove_all(str_Dir, o_Ec);
}

std::string f_ReadFile(const std::string& str_Path) {
  std::ifstream o_In(str_Path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(o_In), std::istreambuf_iterator<char>());
}

std::string f_Sql(const std::string& str_File, const char* z_c_Sql) {
  std::string str_Rows;
  sqlite3* z_o_Db = nullptr;
  if (sqlite3_open_v2(str_File.c_str(), &z_o_Db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
      sqlite3_busy_timeout(z_o_Db, 5000) == SQLITE_OK) {
    auto f_Row = [](void* z_v_Rows, int i_N, char** a_z_c_Val, char**) {
      std::string& str_Out = *static_cast<std::string*>(z_v_Rows);
      for (int i = 0; i < i_N; ++i)
        str_Out += (i > 0             ? "|"
                    : str_Out.empty() ? ""
                                      : "\n") +
                   std::string(a_z_c_Val[i] != nullptr ? a_z_c_Val[i] : "");
      return 0;
    };
    sqlite3_exec(z_o_Db, z_c_Sql, f_Row, &str_Rows, nullptr);
  }
  sqlite3_close(z_o_Db);
  return str_Rows;
}

int f_Shell(const std::string& str_Cmd, std::string* z_str_Out) {
  FILE* z_o_Pipe = popen(str_Cmd.c_str(), "r");
  if (z_o_Pipe == nullptr) return -1;
  std::string str_Out;
  char a_c_Buf[4096];
  for (size_t ui_N; (ui_N = fread(a_c_Buf, 1, sizeof(a_c_Buf), z_o_Pipe)) > 0;)
    str_Out.append(a_c_Buf, ui_N);
  int i_Status = pclose(z_o_Pipe);
  if (z_str_Out != nullptr) *z_str_Out = str_Out;
  return WIFEXITED(i_Status) ? WEXITSTATUS(i_Status) : -1;
}

void f_Pump(int i_Ms) {
  gint64 i_End = g_get_monotonic_time() + i_Ms * 1000;
  f_WaitUntil([=] { return g_get_monotonic_time() >= i_End; }, i_Ms + 1000);
}

bool f_WaitUntil(const std::function<bool()>& f_Cond, int i_TimeoutMs) {
  gint64 i_End = g_get_monotonic_time() + static_cast<gint64>(i_TimeoutMs) * 1000;
  for (;;) {
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    if (f_Cond()) return true;
    if (g_get_monotonic_time() >= i_End) return false;
    g_usleep(5000);
  }
}

std::string PrivateBus::f_Config(const std::string& str_Dir, const std::string& str_Policy) {
  return "<busconfig>\n  <listen>unix:path=" + str_Dir +
         "/system_bus_socket</listen>\n  <auth>EXTERNAL</auth>\n"
         "  <limit name=\"max_replies_per_connection\">1024</limit>\n" +
         str_Policy + "</busconfig>\n";
}

std::string PrivateBus::f_DefaultPolicy(const std::string& str_Rules) {
  return "  <policy context=\"default\">\n"
         "    <allow user=\"*\"/>\n"
         "    <allow send_type=\"signal\"/>\n"
         "    <allow send_requested_reply=\"true\" send_type=\"method_return\"/>\n"
         "    <allow send_requested_reply=\"true\" send_type=\"error\"/>\n"
         "    <allow receive_type=\"method_call\"/>\n"
         "    <allow receive_type=\"method_return\"/>\n"
         "    <allow receive_type=\"error\"/>\n"
         "    <allow receive_type=\"signal\"/>\n" +
         str_Rules + "  </policy>\n";
}

PrivateBus::PrivateBus(const std::string& str_ConfigXml)
    : o_Proc({"/bin/sh", "-c", "exec dbus-daemon --config-file=\"$0\" --nofork --print-address=1",
              str_Dir + "/bus.conf"},
             str_Dir + "/bus.log", {}, str_Dir + "/address") {
  const std::string str_Rules = "    <allow own=\"*\"/>\n    <allow send_type=\"method_call\"/>\n";
  std::ofstream(str_Dir + "/bus.conf")
      << (str_ConfigXml.empty() ? f_Config(str_Dir, f_DefaultPolicy(str_Rules)) : str_ConfigXml);
  o_Proc.f_Start();
  f_WaitUntil([&] { return f_ReadFile(str_Dir + "/address").find('\n') != std::string::npos; },
              30000);
  std::getline(std::ifstream(str_Dir + "/address"), str_Address);
  if (str_Address.empty()) ADD_FAILURE() << "dbus-daemon printed no address: " << o_Proc.f_Log();
}

Sandbox::Sandbox() {
  std::string str_Out;
  if (f_Shell(std::string(SYSSRV_SIM) + " init '" + f_Dir() + "' 2>&1", &str_Out) != 0)
    ADD_FAILURE() << "syssrv-sim init failed: " << str_Out;
}

int Sandbox::f_Sim(const std::string& str_Args, std::string* z_str_Out) const {
  // The subcommand comes first, then the root.
  const size_t ui_Sp = std::min(str_Args.find(' '), str_Args.size());
  return f_Shell(std::string(SYSSRV_SIM) + " " + str_Args.substr(0, ui_Sp) + " --root '" + f_Dir() +
                     "'" + str_Args.substr(ui_Sp) + " 2>&1",
                 z_str_Out);
}

bool Sandbox::f_BmsOut(int i_Line) const {
  BmsShMem_ST o_Seg{};
  std::ifstream(f_Path("/dev/shm/BmsShMem"), std::ios::binary)
      .read(reinterpret_cast<char*>(&o_Seg), sizeof(o_Seg));
  return (o_Seg.ui_Outputs >> i_Line) & 1u;
}

Daemon::Daemon(const Sandbox& o_Box, const PrivateBus& o_Bus, std::vector<std::string> o_ExtraEnv)
    : o_Box(o_Box),
      o_Bus(o_Bus),
      o_Proc(f_DaemonArgv(), o_Box.f_Path("/sim/daemon.stderr"),
             f_DaemonEnv(o_Box, o_Bus, o_ExtraEnv), o_Box.f_Path("/sim/daemon.stdout")) {}

bool Daemon::f_Start(int i_TimeoutMs) {
  f_Spawn();
  BusClient o_Probe(o_Bus.f_Address());
  auto f_Owned = [&] {
    return GChars_T(sys_srv_client_lookup_owner_sync(o_Probe.f_Client(), nullptr, nullptr)) ||
           !f_Running();
  };
  return f_WaitUntil(f_Owned, i_TimeoutMs) && f_Running();
}

void Daemon::f_Spawn() {
  // Each start has a log of its own.
  o_Box.f_Write("/sim/daemon.stderr", "");
  o_Box.f_Write("/sim/daemon.stdout", "");
  i_StartedAt = g_get_monotonic_time();
  o_Proc.f_Start();
}

BusClient::BusClient(const std::string& str_Address) {
  GErrorHolder_CL o_Err;
  z_o_Client = sys_srv_client_new_for_address_sync(str_Address.c_str(), nullptr, o_Err.f_Out());
  if (z_o_Client == nullptr) ADD_FAILURE() << "bus connection: " << o_Err.f_Message();
  z_o_Conn = z_o_Client ? sys_srv_client_get_connection(z_o_Client) : nullptr;
}

// Errors come back untranslated: the tests hold the service's replies to the letter.
GVariant* BusClient::f_Call(const char* z_c_Method, GVariant* o_Params, GError** error,
                            int i_TimeoutMs, GDBusCallFlags e_Flags) {
  return sys_srv_client_call_sync(z_o_Client, z_c_Method, o_Params, nullptr, e_Flags, i_TimeoutMs,
                                  nullptr, error);
}

GVariant* BusClient::f_CallOk(const char* z_c_Method, GVariant* o_Params) {
  GErrorHolder_CL o_Err;
  GVariant* o_Reply = f_Call(z_c_Method, o_Params, o_Err.f_Out());
  if (o_Reply == nullptr) ADD_FAILURE() << z_c_Method << " failed: " << o_Err.f_Message();
  return o_Reply;
}

std::shared_ptr<GDBusInterfaceInfo> BusClient::f_Interface() {
  Variant_T o_Xml(g_dbus_connection_call_sync(
      z_o_Conn, A_C_BUS_NAME, A_C_PATH, "org.freedesktop.DBus.Introspectable", "Introspect",
      nullptr, G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, nullptr));
  GDBusNodeInfo* z_o_Node =
      o_Xml ? g_dbus_node_info_new_for_xml(f_Str(o_Xml.get()).c_str(), nullptr) : nullptr;
  if (z_o_Node == nullptr) return nullptr;
  // The interface lives inside the node: the pointer shares the node's ownership.
  std::shared_ptr<GDBusNodeInfo> o_Node(z_o_Node, g_dbus_node_info_unref);
  GDBusInterfaceInfo* z_o_If = g_dbus_node_info_lookup_interface(z_o_Node, A_C_IFACE);
  return z_o_If ? std::shared_ptr<GDBusInterfaceInfo>(o_Node, z_o_If) : nullptr;
}

SignalRecorder::SignalRecorder(BusClient& o_Client) : o_Client(o_Client) {
  ui_Sub = g_signal_connect(o_Client.f_Client(), "bus-signal", G_CALLBACK(f_OnSignal), this);
  f_Sync();
}

SignalRecorder::~SignalRecorder() {
  g_signal_handler_disconnect(o_Client.f_Client(), ui_Sub);
  f_Clear();
}

void SignalRecorder::f_OnSignal(SysSrvClient*, const gchar* z_c_Name, GVariant* o_Args,
                                gpointer z_v_Self) {
  auto* z_o_Self = static_cast<SignalRecorder*>(z_v_Self);
  z_o_Self->o_Signals.push_back({z_c_Name, g_variant_ref(o_Args), g_get_monotonic_time()});
}

const Signal_ST* SignalRecorder::f_WaitFor(const char* z_c_Name, int i_TimeoutMs,
                                           const std::function<bool(GVariant*)>& f_Pred) {
  auto f_Next = [&] {
    return std::find_if(o_Signals.begin(), o_Signals.end(), [&](const Signal_ST& o_S) {
      return !o_S.b_Used && o_S.str_Name == z_c_Name && (!f_Pred || f_Pred(o_S.o_Args));
    });
  };
  if (!f_WaitUntil([&] { return f_Next() != o_Signals.end(); }, i_TimeoutMs)) return nullptr;
  auto o_It = f_Next();
  o_It->b_Used = true;
  return &*o_It;
}

const Signal_ST* SignalRecorder::f_WaitFirst(const char* z_c_Name, int i_First, int i_TimeoutMs) {
  return f_WaitFor(z_c_Name, i_TimeoutMs, [=](GVariant* o_V) { return f_Int(o_V) == i_First; });
}

size_t SignalRecorder::f_Announced(const std::string& str_Path) {
  f_Sync();
  const auto o_All = f_All("cfgfilechanged");
  return std::count_if(o_All.begin(), o_All.end(),
                       [&](const Signal_ST* z_o_S) { return f_Str(z_o_S->o_Args) == str_Path; });
}

std::vector<const Signal_ST*> SignalRecorder::f_All(const char* z_c_Name) const {
  std::vector<const Signal_ST*> o_Out;
  for (const Signal_ST& o_S : o_Signals)
    if (o_S.str_Name == z_c_Name) o_Out.push_back(&o_S);
  return o_Out;
}

void SignalRecorder::f_Clear() {
  for (Signal_ST& o_S : o_Signals) g_variant_unref(o_S.o_Args);
  o_Signals.clear();
}

void SignalRecorder::f_Sync() {
  // Messages of one sender arrive in order: once the service's reply is here, every signal
  // it sent before answering has arrived too.
  Variant_T o_R(o_Client.f_Call("fmfuget", nullptr, nullptr, 2000));
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

Service::Service(const std::function<void(const Sandbox&)>& f_Prepare) {
  if (f_Prepare) f_Prepare(o_Box);
  b_Started = o_Daemon.f_Start();
  if (!b_Started) ADD_FAILURE() << "the daemon did not start:\n" << o_Daemon.f_Log();
}

Service::~Service() {
  if (!b_Started) return;
  EXPECT_EQ(o_Daemon.f_Stop(), 0) << o_Daemon.f_Log();
  EXPECT_EQ(o_Daemon.f_Log().find("runtime error:"), std::string::npos) << o_Daemon.f_Log();
}

int f_Int(GVariant* o_V, int i_Index) {
  return o_V ? g_variant_get_int32(Variant_T(g_variant_get_child_value(o_V, i_Index)).get()) : -999;
}

std::vector<int> f_Ints(GVariant* o_V) {
  std::vector<int> o_Out;
  for (gsize i = 0; o_V != nullptr && i < g_variant_n_children(o_V); i++)
    o_Out.push_back(f_Int(o_V, i));
  return o_Out;
}

std::string f_Str(GVariant* o_V, int i_Index) {
  return o_V ? g_variant_get_string(Variant_T(g_variant_get_child_value(o_V, i_Index)).get(),
                                    nullptr)
             : "";
}

std::string f_JsonAt(const std::string& str_Json, const std::vector<const char*>& o_Path) {
  CJsonTree_T o_Tree(cJSON_Parse(str_Json.c_str()));
  const cJSON* z_o_Item = o_Tree.get();
  for (const char* z_c_Key : o_Path)
    z_o_Item = cJSON_IsArray(z_o_Item) ? cJSON_GetArrayItem(z_o_Item, std::atoi(z_c_Key))
                                       : cJSON_GetObjectItemCaseSensitive(z_o_Item, z_c_Key);
  CJsonText_T o_Text(z_o_Item != nullptr ? cJSON_PrintUnformatted(z_o_Item) : nullptr);
  return o_Text ? o_Text.get() : "";
}

bool f_Holds(const std::string& str_Json, const Want_T& o_Want) {
  for (const auto& o_W : o_Want) {
    const std::string str_Got = f_JsonAt(str_Json, o_W.first);
    bool b_Near = std::isdigit(o_W.second[0]) && (std::isdigit(str_Got[0]) || str_Got[0] == '-') &&
                  std::fabs(std::atof(str_Got.c_str()) - std::atof(o_W.second.c_str())) < 1e-6;
    if (!b_Near && str_Got != o_W.second) return false;
  }
  return CJsonTree_T(cJSON_Parse(str_Json.c_str())) != nullptr;
}

void Process::f_Start() {
  const pid_t i_TestPid = getpid();
  i_Exit = -1;
  i_Pid = fork();
  if (i_Pid == 0) {
    f_DieWithTest(i_TestPid);
    int i_Fd = open(str_LogPath.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(i_Fd, 2);
    dup2(str_OutPath.empty() ? i_Fd : open(str_OutPath.c_str(), O_WRONLY | O_CREAT, 0644), 1);
    for (const std::string& str_E : o_Env) putenv(strdup(str_E.c_str()));
    std::vector<char*> a_z_c_Args;
    for (std::string& str_A : o_Argv) a_z_c_Args.push_back(str_A.data());
    a_z_c_Args.push_back(nullptr);
    execv(a_z_c_Args[0], a_z_c_Args.data());
    _exit(127);
  }
}

bool Process::f_Running() {
  int i_Status = 0;
  if (i_Pid <= 0 || waitpid(i_Pid, &i_Status, WNOHANG) == 0) return i_Pid > 0;
  i_Exit = WIFEXITED(i_Status) ? WEXITSTATUS(i_Status) : 128 + WTERMSIG(i_Status);
  i_Pid = -1;  // reaped: its number may go to another process
  return false;
}

int Process::f_WaitExit(int i_TimeoutMs) {
  return f_WaitUntil([&] { return !f_Running(); }, i_TimeoutMs) ? i_Exit : -1;
}

int Process::f_Stop(int i_Sig, int i_TimeoutMs) {
  if (!f_Running()) return i_Exit;
  f_Signal(i_Sig);
  // Ending by itself, it gets all the time it needs.
  int i_Result = f_WaitExit(i_Sig == 0 ? INT_MAX : i_TimeoutMs);
  if (i_Result == -1) {
    kill(i_Pid, SIGKILL);
    f_WaitExit(INT_MAX);
  }
  return i_Result;
}

}  // namespace it
