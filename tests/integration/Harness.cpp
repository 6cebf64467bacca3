#include "Harness.h"

#include <algorithm>
#include <cjson/cJSON.h>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sysLib/BmsShMem.h"
#include "sysLib/ErrorShMem.h"

namespace it {

namespace {
// For a child of the test, between fork and exec: it is killed when the test process ends,
// also by a crash, so that no bus, daemon or broker outlives a failed run and holds ctest's
// output pipe open. i_TestPid is getpid() of the test, taken before the fork.
void f_DieWithTest(pid_t i_TestPid) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // The test may have ended between the fork and the prctl.
  if (getppid() != i_TestPid) _exit(127);
}
}  // namespace

std::string f_MakeTempDir(const char* z_c_Prefix) {
  std::string str_Tmpl = std::string("/tmp/") + z_c_Prefix + "-XXXXXX";
  std::vector<char> a_c_Buf(str_Tmpl.begin(), str_Tmpl.end());
  a_c_Buf.push_back('\0');
  if (mkdtemp(a_c_Buf.data()) == nullptr) ADD_FAILURE() << "mkdtemp: " << strerror(errno);
  return a_c_Buf.data();
}

void f_RemoveTree(const std::string& str_Dir) {
  std::error_code o_Ec;  // a left-over temporary directory does not change a test's result
  if (!str_Dir.empty() && str_Dir != "/") std::filesystem::remove_all(str_Dir, o_Ec);
}

std::string f_ReadFile(const std::string& str_Path) {
  std::ifstream o_In(str_Path, std::ios::binary);
  std::stringstream o_Buf;
  o_Buf << o_In.rdbuf();
  return o_Buf.str();
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

// --- PrivateBus ----------------------------------------------------------------

std::string PrivateBus::f_Config(const std::string& str_Dir, const std::string& str_Policy) {
  return "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
         " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
         "<busconfig>\n"
         "  <listen>unix:path=" +
         str_Dir + "/system_bus_socket</listen>\n  <auth>EXTERNAL</auth>\n" +
         "  <limit name=\"max_replies_per_connection\">1024</limit>\n" + str_Policy +
         "</busconfig>\n";
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

PrivateBus::PrivateBus(const std::string& str_ConfigXml) {
  str_Dir = f_MakeTempDir("syssrv-bus");
  std::string str_Config = str_ConfigXml;
  if (str_Config.empty())
    str_Config = f_Config(str_Dir, f_DefaultPolicy("    <allow own=\"*\"/>\n"
                                                   "    <allow send_type=\"method_call\"/>\n"));
  std::string str_CfgPath = str_Dir + "/bus.conf";
  std::ofstream(str_CfgPath) << str_Config;

  int a_i_Pipe[2];
  if (pipe(a_i_Pipe) != 0) {
    ADD_FAILURE() << "pipe";
    return;
  }
  const pid_t i_TestPid = getpid();
  i_Pid = fork();
  if (i_Pid == 0) {
    f_DieWithTest(i_TestPid);
    dup2(a_i_Pipe[1], 1);
    close(a_i_Pipe[0]);
    std::string str_Arg = "--config-file=" + str_CfgPath;
    execlp("dbus-daemon", "dbus-daemon", str_Arg.c_str(), "--nofork", "--print-address=1",
           static_cast<char*>(nullptr));
    _exit(127);
  }
  close(a_i_Pipe[1]);
  char a_c_Line[512] = "";
  File_T o_In(fdopen(a_i_Pipe[0], "r"));
  if (fgets(a_c_Line, sizeof(a_c_Line), o_In.get()) == nullptr) a_c_Line[0] = '\0';
  o_In.reset();
  str_Address = std::string(a_c_Line).substr(0, std::strcspn(a_c_Line, "\n"));
  if (str_Address.empty()) ADD_FAILURE() << "dbus-daemon printed no address";
}

PrivateBus::~PrivateBus() {
  if (i_Pid > 0) {
    kill(i_Pid, SIGTERM);
    waitpid(i_Pid, nullptr, 0);
  }
  f_RemoveTree(str_Dir);
}

// --- Sandbox -------------------------------------------------------------------

Sandbox::Sandbox() {
  str_Dir = f_MakeTempDir("syssrv-it");
  setenv("SYSSRV_ROOT", str_Dir.c_str(), 1);
  std::string str_Out;
  int i_Rc = f_Sim("init", &str_Out);
  if (i_Rc != 0) ADD_FAILURE() << "syssrv-sim init failed: " << str_Out;
}

Sandbox::~Sandbox() {
  unsetenv("SYSSRV_ROOT");
  if (getenv("SYSSRV_KEEP_SANDBOX") == nullptr) f_RemoveTree(str_Dir);
}

void Sandbox::f_Write(const std::string& str_Logical, const std::string& str_Content) const {
  std::string str_Full = f_Path(str_Logical);
  std::filesystem::create_directories(str_Full.substr(0, str_Full.rfind('/')));
  std::ofstream(str_Full, std::ios::binary | std::ios::trunc) << str_Content;
}

std::string Sandbox::f_Read(const std::string& str_Logical) const {
  return f_ReadFile(f_Path(str_Logical));
}

bool Sandbox::f_Exists(const std::string& str_Logical) const {
  return access(f_Path(str_Logical).c_str(), F_OK) == 0;
}

int Sandbox::f_Sim(const std::string& str_Args, std::string* z_str_Out) const {
  // The subcommand comes first; "init" takes the root as its argument, the others --root.
  const size_t ui_Sp = std::min(str_Args.find(' '), str_Args.size());
  const std::string str_Sub = str_Args.substr(0, ui_Sp);
  return f_Shell(std::string(SYSSRV_SIM) + " " + str_Sub +
                     (str_Sub == "init" ? " '" : " --root '") + str_Dir + "'" +
                     str_Args.substr(ui_Sp) + " 2>&1",
                 z_str_Out);
}

namespace {
template <typename T>
T f_ReadSeg(const std::string& str_File) {
  T o_Seg{};
  std::ifstream o_In(str_File, std::ios::binary);
  o_In.read(reinterpret_cast<char*>(&o_Seg), sizeof(T));
  return o_Seg;
}
}  // namespace

bool Sandbox::f_BmsOut(int i_Line) const {
  return (f_ReadSeg<BmsShMem_ST>(f_Path("/dev/shm/BmsShMem")).ui_Outputs >> i_Line) & 1u;
}

int Sandbox::f_CurError() const {
  return f_ReadSeg<ErrorShMemData_ST>(f_Path("/dev/shm/ErrorShMem")).i_CurError;
}

// --- Daemon --------------------------------------------------------------------

Daemon::Daemon(const Sandbox& o_Box, const PrivateBus& o_Bus, std::vector<std::string> o_ExtraEnv)
    : o_Box(o_Box), o_Bus(o_Bus), o_ExtraEnv(std::move(o_ExtraEnv)) {}

Daemon::~Daemon() {
  if (i_Pid > 0 && i_ExitStatus == -1) {
    kill(i_Pid, SIGKILL);
    waitpid(i_Pid, nullptr, 0);
  }
}

bool Daemon::f_Start(int i_TimeoutMs) {
  f_Spawn();
  BusClient o_Probe(o_Bus.f_Address());
  return f_WaitUntil([&] { return o_Probe.f_ServiceUp() || !f_Running(); }, i_TimeoutMs) &&
         f_Running();
}

void Daemon::f_Spawn() {
  std::string str_Err = o_Box.f_Path("/sim/daemon.stderr");
  std::string str_Out = o_Box.f_Path("/sim/daemon.stdout");
  i_StartedAt = g_get_monotonic_time();
  const pid_t i_TestPid = getpid();
  i_Pid = fork();
  if (i_Pid == 0) {
    f_DieWithTest(i_TestPid);
    int i_ErrFd = open(str_Err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int i_OutFd = open(str_Out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(i_ErrFd, 2);
    dup2(i_OutFd, 1);
    setenv("SYSSRV_ROOT", o_Box.f_Dir().c_str(), 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", o_Bus.f_Address().c_str(), 1);
    // The service's own exit path leaves its long-lived objects to the OS on purpose.
    setenv("ASAN_OPTIONS", "detect_leaks=0", 0);
    for (const std::string& str_Env : o_ExtraEnv) putenv(strdup(str_Env.c_str()));
    // A checker may run the daemon: SYSSRV_DAEMON_WRAPPER="valgrind --error-exitcode=99 ...".
    const char* z_c_Wrapper = getenv("SYSSRV_DAEMON_WRAPPER");
    if (z_c_Wrapper != nullptr && *z_c_Wrapper != '\0')
      execl("/bin/sh", "sh", "-c", "exec $SYSSRV_DAEMON_WRAPPER \"$0\"", SYSSRV_DAEMON,
            static_cast<char*>(nullptr));
    execl(SYSSRV_DAEMON, "SysSrv.elf", static_cast<char*>(nullptr));
    _exit(127);
  }
}

void Daemon::f_Signal(int i_Sig) const {
  if (i_Pid > 0) kill(i_Pid, i_Sig);
}

bool Daemon::f_Running() {
  if (i_Pid <= 0 || i_ExitStatus != -1) return false;
  int i_Status = 0;
  pid_t i_R = waitpid(i_Pid, &i_Status, WNOHANG);
  if (i_R == 0) return true;
  i_ExitStatus = WIFEXITED(i_Status) ? WEXITSTATUS(i_Status) : 128 + WTERMSIG(i_Status);
  return false;
}

int Daemon::f_WaitExit(int i_TimeoutMs) {
  if (!f_WaitUntil([&] { return !f_Running(); }, i_TimeoutMs)) return -1;
  return i_ExitStatus;
}

int Daemon::f_Stop(int i_TimeoutMs) {
  if (!f_Running()) return i_ExitStatus;
  f_Signal(SIGTERM);
  return f_WaitExit(i_TimeoutMs);
}

std::string Daemon::f_Log() const { return f_ReadFile(o_Box.f_Path("/sim/daemon.stderr")); }
std::string Daemon::f_Stdout() const { return f_ReadFile(o_Box.f_Path("/sim/daemon.stdout")); }

bool Daemon::f_WaitLog(const std::string& str_Text, int i_TimeoutMs) const {
  return f_WaitUntil([&] { return f_Log().find(str_Text) != std::string::npos; }, i_TimeoutMs);
}

// --- BusClient -----------------------------------------------------------------

BusClient::BusClient(const std::string& str_Address) {
  g_mutex_init(&o_Lock);
  GErrorHolder_CL o_Err;
  z_o_Client = sys_srv_client_new_for_address_sync(str_Address.c_str(), nullptr, o_Err.f_Out());
  if (z_o_Client == nullptr) {
    ADD_FAILURE() << "bus connection: " << o_Err.f_Message();
    return;
  }
  z_o_Conn = sys_srv_client_get_connection(z_o_Client);
  ui_Filter = g_dbus_connection_add_filter(z_o_Conn, f_Filter, this, [](gpointer z_v_Self) {
    g_atomic_int_set(&static_cast<BusClient*>(z_v_Self)->i_FilterGone, 1);
  });
}

GDBusMessage* BusClient::f_Filter(GDBusConnection*, GDBusMessage* z_o_Msg, gboolean b_Incoming,
                                  gpointer z_v_Self) {
  auto* z_o_Self = static_cast<BusClient*>(z_v_Self);
  GDBusMessageType e_Type = g_dbus_message_get_message_type(z_o_Msg);
  if (b_Incoming &&
      (e_Type == G_DBUS_MESSAGE_TYPE_METHOD_RETURN || e_Type == G_DBUS_MESSAGE_TYPE_ERROR)) {
    g_mutex_lock(&z_o_Self->o_Lock);
    z_o_Self->o_ReplySerials.push_back(g_dbus_message_get_reply_serial(z_o_Msg));
    g_mutex_unlock(&z_o_Self->o_Lock);
  }
  return z_o_Msg;
}

bool BusClient::f_GotReplyTo(guint32 ui_Serial) {
  g_mutex_lock(&o_Lock);
  bool b_Got =
      std::find(o_ReplySerials.begin(), o_ReplySerials.end(), ui_Serial) != o_ReplySerials.end();
  g_mutex_unlock(&o_Lock);
  return b_Got;
}

BusClient::~BusClient() {
  if (z_o_Client != nullptr) {
    // The filter runs in the bus thread and may be inside it (holding the lock) after the
    // removal returns; its destroy notify, dispatched from this thread's main context,
    // says when it is done. A slow machine (qemu) hit that window.
    g_dbus_connection_remove_filter(z_o_Conn, ui_Filter);
    if (!f_WaitUntil([this] { return g_atomic_int_get(&i_FilterGone) != 0; }, 10000))
      ADD_FAILURE() << "the bus connection's filter was not released";
    g_object_unref(z_o_Client);
  }
  g_mutex_clear(&o_Lock);
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

bool BusClient::f_Invoke(const char* z_c_Method, GVariant* o_Params) {
  return Variant_T(f_CallOk(z_c_Method, o_Params)) != nullptr;
}

bool BusClient::f_CallFails(const char* z_c_Method, GVariant* o_Params) {
  GErrorHolder_CL o_Err;
  if (Variant_T(f_Call(z_c_Method, o_Params, o_Err.f_Out()))) return false;
  return g_error_matches(o_Err.get(), G_IO_ERROR, G_IO_ERROR_FAILED_HANDLED);
}

guint32 BusClient::f_SendNoReply(const char* z_c_Method, GVariant* o_Params) {
  guint32 ui_Serial = 0;
  sys_srv_client_send(z_o_Client, z_c_Method, o_Params, &ui_Serial, nullptr);
  return ui_Serial;
}

bool BusClient::f_ServiceUp() {
  return GChars_T(sys_srv_client_lookup_owner_sync(z_o_Client, nullptr, nullptr)) != nullptr;
}

// --- SignalRecorder ------------------------------------------------------------

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
  z_o_Self->o_Used.push_back(false);
}

const Signal_ST* SignalRecorder::f_WaitFor(const char* z_c_Name, int i_TimeoutMs,
                                           const std::function<bool(GVariant*)>& f_Pred) {
  const Signal_ST* z_o_Found = nullptr;
  f_WaitUntil(
      [&] {
        for (size_t i = 0; i < o_Signals.size(); i++) {
          if (o_Used[i] || o_Signals[i].str_Name != z_c_Name) continue;
          if (f_Pred && !f_Pred(o_Signals[i].o_Args)) continue;
          o_Used[i] = true;
          z_o_Found = &o_Signals[i];
          return true;
        }
        return false;
      },
      i_TimeoutMs);
  return z_o_Found;
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
  o_Used.clear();
}

void SignalRecorder::f_Sync() {
  // Messages of one sender arrive in order: once the service's reply is here, every signal
  // it sent before answering has arrived too.
  Variant_T o_R(o_Client.f_Call("fmfuget", nullptr, nullptr, 2000));
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

// --- Service -------------------------------------------------------------------

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
  return g_variant_get_int32(Variant_T(g_variant_get_child_value(o_V, i_Index)).get());
}

std::vector<int> f_Ints(GVariant* o_V) {
  std::vector<int> o_Out;
  for (gsize i = 0; i < g_variant_n_children(o_V); i++) o_Out.push_back(f_Int(o_V, i));
  return o_Out;
}

std::string f_Str(GVariant* o_V, int i_Index) {
  return g_variant_get_string(Variant_T(g_variant_get_child_value(o_V, i_Index)).get(), nullptr);
}

namespace {
const cJSON* f_JsonItem(const cJSON* z_o_Item, const std::vector<std::string>& o_Path) {
  for (const std::string& str_Key : o_Path)
    z_o_Item = cJSON_IsArray(z_o_Item)
                   ? cJSON_GetArrayItem(z_o_Item, std::atoi(str_Key.c_str()))
                   : cJSON_GetObjectItemCaseSensitive(z_o_Item, str_Key.c_str());
  return z_o_Item;
}
std::string f_Printed(const cJSON* z_o_Item) {
  CJsonText_T o_Text(z_o_Item != nullptr ? cJSON_PrintUnformatted(z_o_Item) : nullptr);
  return o_Text ? o_Text.get() : "";
}
}  // namespace

std::string f_JsonAt(const std::string& str_Json, const std::string& str_Path) {
  std::vector<std::string> o_Path;
  for (size_t ui_From = 0; ui_From <= str_Path.size();) {
    size_t ui_Slash = std::min(str_Path.find('/', ui_From), str_Path.size());
    o_Path.push_back(str_Path.substr(ui_From, ui_Slash - ui_From));
    ui_From = ui_Slash + 1;
  }
  CJsonTree_T o_Tree(cJSON_Parse(str_Json.c_str()));
  return o_Tree ? f_Printed(f_JsonItem(o_Tree.get(), o_Path)) : "";
}

bool f_Holds(const std::string& str_Json, const Want_T& o_Want) {
  CJsonTree_T o_Tree(cJSON_Parse(str_Json.c_str()));
  for (const auto& o_W : o_Want) {
    const cJSON* z_o_Item =
        f_JsonItem(o_Tree.get(), std::vector<std::string>(o_W.first.begin(), o_W.first.end()));
    bool b_Near = cJSON_IsNumber(z_o_Item) && std::isdigit(o_W.second[0]) &&
                  std::fabs(z_o_Item->valuedouble - std::atof(o_W.second.c_str())) < 1e-6;
    if (!b_Near && o_W.second != f_Printed(z_o_Item)) return false;
  }
  return o_Tree != nullptr;
}

// --- Process -------------------------------------------------------------------

void Process::f_Start() {
  const pid_t i_TestPid = getpid();
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

int Process::f_Stop(int i_Sig) {
  if (i_Pid <= 0) return -1;
  if (i_Sig != 0) kill(i_Pid, i_Sig);
  int i_Status = 0;
  bool b_Ended =
      i_Sig == 0 ? waitpid(i_Pid, &i_Status, 0) == i_Pid
                 : f_WaitUntil([&] { return waitpid(i_Pid, &i_Status, WNOHANG) == i_Pid; }, 15000);
  if (!b_Ended) {
    kill(i_Pid, SIGKILL);
    waitpid(i_Pid, &i_Status, 0);
  }
  i_Pid = -1;
  return b_Ended && WIFEXITED(i_Status) ? WEXITSTATUS(i_Status) : -1;
}

}  // namespace it
