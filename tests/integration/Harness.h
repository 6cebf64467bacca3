#pragma once
// Integration harness: a private system bus, a sandbox tool made by the simulator, the real
// daemon with its log captured, a bus client and a signal recorder with deadlines.
#include <csignal>
#include <functional>
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <syssrv-client.h>
#include <sys/types.h>
#include <vector>

#include "TestSupport.h"
#include "sysLib/Holders.h"

namespace it {

constexpr const char* A_C_BUS_NAME = SYS_SRV_BUS_NAME;
constexpr const char* A_C_PATH = SYS_SRV_OBJECT_PATH;
constexpr const char* A_C_IFACE = SYS_SRV_INTERFACE;

std::string f_MakeTempDir(const char* z_c_Prefix);
void f_RemoveTree(const std::string& str_Dir);
std::string f_ReadFile(const std::string& str_Path);
// A temporary directory that goes with the object.
struct TempDir {
  const std::string str_Dir = f_MakeTempDir("syssrv-tmp");
  ~TempDir() { f_RemoveTree(str_Dir); }
};
// The rows of a query on a database file through a connection of the test's own, columns
// joined by '|', rows by '\n'; "" when unreadable. Read-write: only a writer may roll back the
// hot journal a kill leaves.
std::string f_Sql(const std::string& str_File, const char* z_c_Sql);
// Runs a shell command: its exit status (-1 if it did not exit), its stdout into *z_str_Out.
int f_Shell(const std::string& str_Cmd, std::string* z_str_Out = nullptr);
// Runs the default main context for about i_Ms milliseconds.
void f_Pump(int i_Ms);
// Polls f_Cond (pumping the main context) until it is true or i_TimeoutMs passed.
bool f_WaitUntil(const std::function<bool()>& f_Cond, int i_TimeoutMs);

// A child program, killed with the test; its stderr, and its stdout unless given a file, logged.
class Process {
 public:
  Process(std::vector<std::string> o_Argv, std::string str_LogPath,
          std::vector<std::string> o_Env = {}, std::string str_OutPath = "")
      : o_Argv(std::move(o_Argv)),
        str_LogPath(std::move(str_LogPath)),
        o_Env(std::move(o_Env)),
        str_OutPath(std::move(str_OutPath)) {}
  ~Process() { f_Stop(SIGKILL); }
  void f_Start();
  void f_Signal(int i_Sig) const {
    if (i_Pid > 0) kill(i_Pid, i_Sig);
  }
  // False once it ended; its exit status (128 + signal when killed) is kept.
  bool f_Running();
  // The exit status, or -1 when it still runs after i_TimeoutMs.
  int f_WaitExit(int i_TimeoutMs);
  // Signals it (with 0 it ends by itself), waits, kills it after i_TimeoutMs; as f_WaitExit.
  int f_Stop(int i_Sig = SIGTERM, int i_TimeoutMs = 15000);
  pid_t f_Pid() const { return i_Pid; }
  std::string f_Log() const { return f_ReadFile(str_LogPath); }
  bool f_WaitLog(const std::string& str_Text, int i_TimeoutMs) const {
    return f_WaitUntil([&] { return f_Log().find(str_Text) != std::string::npos; }, i_TimeoutMs);
  }

 private:
  std::vector<std::string> o_Argv;
  std::string str_LogPath;
  std::vector<std::string> o_Env;
  std::string str_OutPath;
  pid_t i_Pid = -1;
  int i_Exit = -1;
};

// A dbus-daemon of its own. Without a configuration text, everything is allowed.
class PrivateBus {
 public:
  explicit PrivateBus(const std::string& str_ConfigXml = "");
  ~PrivateBus() {
    o_Proc.f_Stop();
    f_RemoveTree(str_Dir);
  }
  const std::string& f_Address() const { return str_Address; }
  const std::string& f_Dir() const { return str_Dir; }
  // A configuration listening in str_Dir; str_Policy goes inside <busconfig>.
  static std::string f_Config(const std::string& str_Dir, const std::string& str_Policy);
  // Everybody may connect, signal, receive and answer; str_Rules: who may own and call.
  static std::string f_DefaultPolicy(const std::string& str_Rules);

 private:
  std::string str_Dir = f_MakeTempDir("syssrv-bus");
  std::string str_Address;
  Process o_Proc;
};

// A simulated tool in a unit test's sandbox root, which SYSSRV_ROOT points at meanwhile.
class Sandbox : public TempRoot {
 public:
  Sandbox();
  // Runs syssrv-sim with --root; returns its exit status, output into *z_str_Out.
  int f_Sim(const std::string& str_Args, std::string* z_str_Out = nullptr) const;
  // Output line n of the BMS board.
  bool f_BmsOut(int i_Line) const;
};

// The real SysSrv.elf in a sandbox on a private bus, its log in /sim/daemon.stderr.
class Daemon {
 public:
  Daemon(const Sandbox& o_Box, const PrivateBus& o_Bus, std::vector<std::string> o_ExtraEnv = {});
  // Starts the process and waits until it owns the bus name.
  bool f_Start(int i_TimeoutMs = 20000);
  // Starts the process without waiting for the bus name.
  void f_Spawn();
  void f_Signal(int i_Sig) const { o_Proc.f_Signal(i_Sig); }
  // SIGTERM, then the exit status (or -1 on time-out / abnormal end).
  int f_Stop(int i_TimeoutMs = 10000) { return o_Proc.f_Stop(SIGTERM, i_TimeoutMs); }
  int f_WaitExit(int i_TimeoutMs) { return o_Proc.f_WaitExit(i_TimeoutMs); }
  bool f_Running() { return o_Proc.f_Running(); }
  pid_t f_Pid() const { return o_Proc.f_Pid(); }
  std::string f_Log() const { return o_Proc.f_Log(); }
  std::string f_Stdout() const { return f_ReadFile(o_Box.f_Path("/sim/daemon.stdout")); }
  bool f_WaitLog(const std::string& str_Text, int i_TimeoutMs) const {
    return o_Proc.f_WaitLog(str_Text, i_TimeoutMs);
  }
  // Monotonic time (µs) of the start.
  gint64 f_StartedAt() const { return i_StartedAt; }

 private:
  const Sandbox& o_Box;
  const PrivateBus& o_Bus;
  Process o_Proc;
  gint64 i_StartedAt = 0;
};

// A client of the service through the client library, with wire-level probes besides.
class BusClient {
 public:
  explicit BusClient(const std::string& str_Address);
  ~BusClient() { g_clear_object(&z_o_Client); }
  GDBusConnection* f_Conn() const { return z_o_Conn; }
  SysSrvClient* f_Client() const { return z_o_Client; }
  // A method call of the service interface; null with *error set on failure.
  GVariant* f_Call(const char* z_c_Method, GVariant* o_Params = nullptr, GError** error = nullptr,
                   int i_TimeoutMs = 5000, GDBusCallFlags e_Flags = G_DBUS_CALL_FLAGS_NONE);
  // Calls and expects success; the reply is returned (caller unrefs) or the test fails.
  GVariant* f_CallOk(const char* z_c_Method, GVariant* o_Params = nullptr);
  // Calls and expects success; the reply owned (null when the test failed).
  Variant_T f_Reply(const char* z_c_Method, GVariant* o_Params = nullptr) {
    return Variant_T(f_CallOk(z_c_Method, o_Params));
  }
  // Calls, expects success and drops the reply; true on success.
  bool f_Invoke(const char* z_c_Method, GVariant* o_Params = nullptr) {
    return f_Reply(z_c_Method, o_Params) != nullptr;
  }
  // The service interface as the running service describes it; null when there is none.
  std::shared_ptr<GDBusInterfaceInfo> f_Interface();

 private:
  SysSrvClient* z_o_Client = nullptr;
  GDBusConnection* z_o_Conn = nullptr;  // the client's
};

struct Signal_ST {
  std::string str_Name;
  GVariant* o_Args;     // owned by the recorder
  gint64 i_Time;        // monotonic µs
  bool b_Used = false;  // taken by f_WaitFor
};

// Records every signal of the service interface.
class SignalRecorder {
 public:
  explicit SignalRecorder(BusClient& o_Client);
  ~SignalRecorder();
  // Waits for the first recorded signal (from the current read position on) named
  // z_c_Name that satisfies f_Pred; null on time-out. Found signals are consumed.
  const Signal_ST* f_WaitFor(const char* z_c_Name, int i_TimeoutMs,
                             const std::function<bool(GVariant*)>& f_Pred = {});
  // The same for the first z_c_Name whose first argument is the integer i_First.
  const Signal_ST* f_WaitFirst(const char* z_c_Name, int i_First, int i_TimeoutMs = 5000);
  // All signals named z_c_Name recorded so far (consumed or not).
  std::vector<const Signal_ST*> f_All(const char* z_c_Name) const;
  size_t f_Count(const char* z_c_Name) const { return f_All(z_c_Name).size(); }
  // After a round trip, how many "cfgfilechanged" named str_Path were recorded.
  size_t f_Announced(const std::string& str_Path);
  // Forgets everything recorded so far.
  void f_Clear();
  // Makes sure every signal the service sent before now has arrived (a round trip).
  void f_Sync();

 private:
  static void f_OnSignal(SysSrvClient*, const gchar*, GVariant*, gpointer);
  BusClient& o_Client;
  gulong ui_Sub = 0;
  std::vector<Signal_ST> o_Signals;
};

// A suite's set-up: bus, sandbox (edited by f_Prepare), client, recorder and the started
// daemon. The end expects exit status 0 and a log free of sanitizer findings.
class Service {
 public:
  explicit Service(const std::function<void(const Sandbox&)>& f_Prepare = {});
  ~Service();
  bool f_Started() const { return b_Started; }

  PrivateBus o_Bus;
  Sandbox o_Box;
  BusClient o_Client{o_Bus.f_Address()};
  SignalRecorder o_Rec{o_Client};
  Daemon o_Daemon{o_Box, o_Bus};

 private:
  bool b_Started = false;
};

// Cases sharing one service (its sandbox edited by F_PREPARE): each leaves what the next expects.
template <void (*F_PREPARE)(const Sandbox&) = nullptr>
class ServiceSuite : public ::testing::Test {
 public:
  static void SetUpTestSuite() { z_o_Svc = new Service(F_PREPARE); }
  static void TearDownTestSuite() { delete z_o_Svc; }
  static inline Service* z_o_Svc = nullptr;
  BusClient& o_Client = z_o_Svc->o_Client;
  SignalRecorder& o_Rec = z_o_Svc->o_Rec;
  const Sandbox& o_Box = z_o_Svc->o_Box;
};

// Convenience: an int from a tuple, all its ints, a string from "(s)"; -999, {} and "" for a
// failed call's null reply (whose failure the test has).
int f_Int(GVariant* o_V, int i_Index = 0);
std::vector<int> f_Ints(GVariant* o_V);
std::string f_Str(GVariant* o_V, int i_Index = 0);
inline int f_Int(const Variant_T& o_V, int i_Index = 0) { return f_Int(o_V.get(), i_Index); }
inline std::vector<int> f_Ints(const Variant_T& o_V) { return f_Ints(o_V.get()); }
inline std::string f_Str(const Variant_T& o_V, int i_Index = 0) {
  return f_Str(o_V.get(), i_Index);
}
// The member of a JSON text at a path of keys (a key of digits picks an array element),
// printed unformatted; "" when the text does not parse or it is missing.
std::string f_JsonAt(const std::string& str_Json, const std::vector<const char*>& o_Path);
// Paths of keys with the JSON text each must hold.
using Want_T = std::vector<std::pair<std::vector<const char*>, std::string>>;
// Whether str_Json holds each value; numbers within a millionth (the tool keeps floats).
bool f_Holds(const std::string& str_Json, const Want_T& o_Want);

}  // namespace it
