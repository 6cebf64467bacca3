// Plant feed benchmark: how many events per second go from the service's signal to a
// subscriber of the broker, how long one takes, and what the bridge costs in CPU and memory
// at idle, in a storm, and while it sends a queue built up during an outage.
//
//   cmake --build build --target bench_bridge && build/bench/bridge/bench_bridge [N]
#include <cjson/cJSON.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "BenchProc.h"
#include "BrokerHarness.h"
#include "Harness.h"

using namespace it;

namespace {

struct Usage_ST {
  double d_CpuS;   // every thread of the process
  long l_DirtyKb;  // private dirty memory: what the bridge alone keeps in RAM
};

Usage_ST f_Usage(pid_t i_Pid) { return {f_ProcCpuNs(i_Pid) / 1e9, f_ProcPrivateDirtyKb(i_Pid)}; }

// Arrivals of "sysfault" events with codes from i_First on, by code: monotonic µs.
size_t f_Arrived(Collector& o_Col, int i_First, int i_N) {
  std::set<int> o_Codes;
  for (const Msg_ST& o_M : o_Col.f_Msgs()) {
    if (o_M.str_Topic.find("/event/sysfault") == std::string::npos) continue;
    cJSON* z_o_J = cJSON_Parse(o_M.str_Payload.c_str());
    const cJSON* z_o_C = cJSON_GetObjectItemCaseSensitive(z_o_J, "code");
    if (cJSON_IsNumber(z_o_C) && z_o_C->valueint >= i_First && z_o_C->valueint < i_First + i_N)
      o_Codes.insert(z_o_C->valueint);
    cJSON_Delete(z_o_J);
  }
  return o_Codes.size();
}

void f_Report(Service& o_Svc, int i_First, int i_N) {
  // Asynchronous calls, 64 at a time (the bus limits a connection's pending replies), so
  // that the service, not this program's round trips, sets the pace.
  int i_Pending = 0;
  auto f_Done = [](GObject*, GAsyncResult*, gpointer z_v_Pending) {
    (*static_cast<int*>(z_v_Pending))--;
  };
  for (int i = 0; i < i_N; i++) {
    while (i_Pending >= 64) g_main_context_iteration(nullptr, TRUE);
    i_Pending++;
    sys_srv_client_report_error(o_Svc.o_Client.f_Client(), "bench", i_First + i, 4, nullptr, f_Done,
                                &i_Pending);
  }
  while (i_Pending > 0) g_main_context_iteration(nullptr, TRUE);
}

}  // namespace

int main(int argc, char** argv) {
  const int i_N = argc > 1 ? std::atoi(argv[1]) : 2000;
  Service o_Svc;
  if (!o_Svc.f_Started()) return 1;
  Broker o_Broker;
  if (!o_Broker.f_Start()) return 1;
  std::string str_Base = "syssrv/" + f_HostName(o_Svc.o_Box) + "/";
  Collector o_Col(o_Broker.f_Port(), str_Base + "#", "bench-dashboard", true);
  BridgeProc o_Bridge(o_Svc, "host = 127.0.0.1\nport = " + std::to_string(o_Broker.f_Port()) +
                                 "\nreconnect_max = 1\n");
  o_Bridge.o_Proc.f_Start();
  if (!o_Bridge.o_Proc.f_WaitLog("connected to the broker", 30000)) return 1;
  pid_t i_Pid = o_Bridge.o_Proc.f_Pid();
  f_Pump(3000);  // start-up settles

  // Idle: 10 s with nothing to send.
  Usage_ST o_U0 = f_Usage(i_Pid);
  f_Pump(10000);
  Usage_ST o_U1 = f_Usage(i_Pid);
  std::printf("idle:   CPU %.2f %% over 10 s, private dirty %ld kB\n",
              (o_U1.d_CpuS - o_U0.d_CpuS) * 10, o_U1.l_DirtyKb);

  // One event at a time: latency from the signal (as a bus client sees it) to the broker.
  std::vector<double> o_Lat;
  for (int i = 0; i < 50; i++) {
    o_Svc.o_Rec.f_Clear();
    sys_srv_client_report_error_sync(o_Svc.o_Client.f_Client(), "bench", 20000 + i, 4, nullptr,
                                     nullptr);
    const Signal_ST* z_o_S = o_Svc.o_Rec.f_WaitFor("sysfault", 5000);
    gint64 i_Signal = z_o_S != nullptr ? z_o_S->i_Time : g_get_monotonic_time();
    f_WaitUntil([&] { return f_Arrived(o_Col, 20000 + i, 1) == 1; }, 10000);
    o_Lat.push_back((g_get_monotonic_time() - i_Signal) / 1000.0);
  }
  std::sort(o_Lat.begin(), o_Lat.end());
  std::printf(
      "single: signal to subscriber median %.1f ms, 95th %.1f ms (50 events, upper "
      "bounds: polled every few ms)\n",
      o_Lat[o_Lat.size() / 2], o_Lat[o_Lat.size() * 95 / 100]);
  sys_srv_client_delete_error_list_sync(o_Svc.o_Client.f_Client(), nullptr, nullptr);

  // Storm: i_N reports as fast as the service takes them.
  o_U0 = f_Usage(i_Pid);
  gint64 i_T0 = g_get_monotonic_time();
  f_Report(o_Svc, 30000, i_N);
  gint64 i_Reported = g_get_monotonic_time();
  f_WaitUntil([&] { return f_Arrived(o_Col, 30000, i_N) == static_cast<size_t>(i_N); }, 600000);
  gint64 i_T1 = g_get_monotonic_time();
  o_U1 = f_Usage(i_Pid);
  double d_S = (i_T1 - i_T0) / 1e6;
  std::printf(
      "storm:  %d events in %.2f s (service took the reports in %.2f s): %.0f events/s "
      "end to end; bridge CPU %.0f %%, private dirty %ld kB\n",
      i_N, d_S, (i_Reported - i_T0) / 1e6, i_N / d_S, 100 * (o_U1.d_CpuS - o_U0.d_CpuS) / d_S,
      o_U1.l_DirtyKb);
  sys_srv_client_delete_error_list_sync(o_Svc.o_Client.f_Client(), nullptr, nullptr);

  // Outage: the reports queue on disk, then the queue goes out in one go.
  o_Broker.f_Stop();
  o_Bridge.o_Proc.f_WaitLog("connection to the broker", 30000);
  f_Report(o_Svc, 40000, i_N);
  f_Pump(2000);
  o_U0 = f_Usage(i_Pid);
  i_T0 = g_get_monotonic_time();
  o_Broker.f_Start();
  f_WaitUntil([&] { return f_Arrived(o_Col, 40000, i_N) == static_cast<size_t>(i_N); }, 600000);
  i_T1 = g_get_monotonic_time();
  o_U1 = f_Usage(i_Pid);
  d_S = (i_T1 - i_T0) / 1e6;
  std::printf(
      "drain:  %d queued events delivered %.2f s after the broker started: %.0f events/s; "
      "bridge CPU %.0f %%, private dirty %ld kB\n",
      i_N, d_S, i_N / d_S, 100 * (o_U1.d_CpuS - o_U0.d_CpuS) / d_S, o_U1.l_DirtyKb);
  sys_srv_client_delete_error_list_sync(o_Svc.o_Client.f_Client(), nullptr, nullptr);
  o_Bridge.o_Proc.f_Stop();
  return 0;
}
