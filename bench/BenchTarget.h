#pragma once
// One benchmarked service on a private bus of its own, and the ways the client calls it.
#include <gio/gio.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "BenchProc.h"

// One call of a phase: the method and its floating parameter tuple (null for none).
struct Call_ST {
  const char* z_c_Method;
  GVariant* o_Params;
};
// The i-th call of a phase.
using MakeCall_T = std::function<Call_ST(int i_Index)>;

// What one run of a phase measured.
struct Sample_ST {
  double d_CallsPerS = 0;
  double d_P50Us = 0, d_P90Us = 0, d_P99Us = 0;
  double d_CpuUsPerCall = 0;
};

class Target_CL {
 public:
  // str_Tag names the bus socket and log files under ROOT/sim; str_DbFile is the error
  // database the service keeps ("" for none).
  Target_CL(std::string str_Label, std::string str_Tag, std::string str_DbFile)
      : str_Label(std::move(str_Label)), str_Tag(std::move(str_Tag)),
        str_DbFile(std::move(str_DbFile)) {}
  ~Target_CL();
  Target_CL(const Target_CL&) = delete;
  Target_CL& operator=(const Target_CL&) = delete;

  // Starts a dbus-daemon of its own under str_Root (configuration: the template with
  // "@LISTEN@" replaced by its address), then a_str_Argv on it, and waits until the
  // service owns its name. false (with a message on stderr) when that fails.
  bool f_Start(const std::string& str_Root, const std::string& str_DbusDaemon,
               const std::string& str_BusConfTemplate, const std::vector<std::string>& a_str_Argv);
  void f_Stop();

  // i_Calls sync calls, one after the other.
  Sample_ST f_RunSync(int i_Calls, const MakeCall_T& f_Make);
  // i_Calls calls with up to i_Depth of them in flight.
  Sample_ST f_RunPipelined(int i_Calls, int i_Depth, const MakeCall_T& f_Make);
  // One untimed sync call; false when it failed.
  bool f_Call(const Call_ST& o_Call);

  // Delivers the signals received so far; waits up to i_TimeoutMs until i_Expected of
  // z_c_Signal have arrived since the last f_ResetSignals. Returns the number arrived.
  int f_WaitSignals(const char* z_c_Signal, int i_Expected, int i_TimeoutMs);
  // Delivers what is still queued (signals of untimed calls), then counts from zero.
  void f_ResetSignals();

  // A new coded error number (class i_Class) no earlier call of this run has used.
  int f_NextCoded(int i_Class) { return (i_NextCode++ << 3) | i_Class; }

  const std::string& f_Label() const { return str_Label; }
  const std::string& f_DbFile() const { return str_DbFile; }
  pid_t f_Pid() const { return o_Service.f_Pid(); }
  bool f_Alive() { return o_Service.f_Running(); }

  // Figures taken once, filled by the client.
  long l_DirtyAfterStartKb = -1;
  bool b_RingFull = false;

 private:
  static void f_OnSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                         const gchar* z_c_Signal, GVariant*, gpointer z_v_Self);
  void f_Fail(const char* z_c_What, GError* o_Error);

  std::string str_Label, str_Tag, str_DbFile;
  Child_CL o_Bus, o_Service;
  GDBusConnection* z_o_Conn = nullptr;
  guint ui_Subscription = 0;
  std::map<std::string, int> o_SignalCount;
  int i_NextCode = 10000;
};

// Median of each figure over the runs.
Sample_ST f_Median(const std::vector<Sample_ST>& a_o_Runs);
