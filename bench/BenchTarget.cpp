#include "BenchTarget.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "SysSrvNames.h"

namespace {
constexpr int I_CALL_TIMEOUT_MS = 30000;

double f_Percentile(const std::vector<double>& a_d_Sorted, double d_Fraction) {
  if (a_d_Sorted.empty()) return 0;
  size_t ui_Index = static_cast<size_t>(d_Fraction * static_cast<double>(a_d_Sorted.size()));
  return a_d_Sorted[std::min(ui_Index, a_d_Sorted.size() - 1)];
}

Sample_ST f_Summarise(std::vector<double>& a_d_LatUs, gint64 i_WallUs, long long ll_CpuNs) {
  Sample_ST o_S;
  std::sort(a_d_LatUs.begin(), a_d_LatUs.end());
  const double d_Calls = static_cast<double>(a_d_LatUs.size());
  o_S.d_CallsPerS = i_WallUs > 0 ? d_Calls * 1e6 / static_cast<double>(i_WallUs) : 0;
  o_S.d_P50Us = f_Percentile(a_d_LatUs, 0.50);
  o_S.d_P90Us = f_Percentile(a_d_LatUs, 0.90);
  o_S.d_P99Us = f_Percentile(a_d_LatUs, 0.99);
  o_S.d_CpuUsPerCall = d_Calls > 0 ? static_cast<double>(ll_CpuNs) / 1000.0 / d_Calls : 0;
  return o_S;
}

struct Pipeline_ST {
  Target_CL* z_o_Target;
  std::vector<gint64> a_i_SentUs;
  std::vector<double> a_d_LatUs;
  int i_Done = 0;
  bool b_Failed = false;
};
struct PendingCall_ST {
  Pipeline_ST* z_o_Pipe;
  int i_Index;
};
}  // namespace

Target_CL::~Target_CL() { f_Stop(); }

void Target_CL::f_Fail(const char* z_c_What, GError* o_Error) {
  std::fprintf(stderr, "bench: %s: %s: %s\n", str_Label.c_str(), z_c_What,
               o_Error != nullptr ? o_Error->message : "failed");
  if (o_Error != nullptr) g_error_free(o_Error);
}

bool Target_CL::f_Start(const std::string& str_Root, const std::string& str_DbusDaemon,
                        const std::string& str_BusConfTemplate,
                        const std::vector<std::string>& a_str_Argv) {
  const std::string str_Sim = str_Root + "/sim/";
  const std::string str_Socket = str_Sim + "bench-" + str_Tag + ".sock";
  const std::string str_Conf = str_Sim + "bench-" + str_Tag + "-bus.conf";
  unlink(str_Socket.c_str());
  {
    // The shared configuration of the private buses, with this bus's socket in it.
    std::ifstream o_In(str_BusConfTemplate);
    std::string str_Text((std::istreambuf_iterator<char>(o_In)), std::istreambuf_iterator<char>());
    const size_t ui_At = str_Text.find("@LISTEN@");
    if (ui_At == std::string::npos) {
      std::fprintf(stderr, "bench: no @LISTEN@ in %s\n", str_BusConfTemplate.c_str());
      return false;
    }
    str_Text.replace(ui_At, 8, "unix:path=" + str_Socket);
    std::ofstream o_Conf(str_Conf);
    o_Conf << str_Text;
    if (!o_Conf) {
      std::fprintf(stderr, "bench: cannot write %s\n", str_Conf.c_str());
      return false;
    }
  }
  if (!o_Bus.f_Start({str_DbusDaemon, "--config-file=" + str_Conf, "--nofork"}, {},
                     str_Sim + "bench-" + str_Tag + "-bus.log")) {
    std::fprintf(stderr, "bench: cannot start %s\n", str_DbusDaemon.c_str());
    return false;
  }

  const std::string str_Address = "unix:path=" + str_Socket;
  const gint64 i_BusDeadline = g_get_monotonic_time() + 20 * G_USEC_PER_SEC;
  while (z_o_Conn == nullptr) {
    GError* o_Error = nullptr;
    z_o_Conn = g_dbus_connection_new_for_address_sync(
        str_Address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &o_Error);
    if (z_o_Conn != nullptr) break;
    if (g_get_monotonic_time() > i_BusDeadline || !o_Bus.f_Running()) {
      f_Fail("private bus did not come up", o_Error);
      return false;
    }
    g_error_free(o_Error);
    g_usleep(20000);
  }
  ui_Subscription = g_dbus_connection_signal_subscribe(
      z_o_Conn, nullptr, SYSSRV_INTERFACE, nullptr, SYSSRV_OBJECT_PATH, nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE, f_OnSignal, this, nullptr);

  if (!o_Service.f_Start(a_str_Argv,
                         {"SYSSRV_ROOT=" + str_Root, "DBUS_SYSTEM_BUS_ADDRESS=" + str_Address},
                         str_Sim + "bench-" + str_Tag + ".log")) {
    std::fprintf(stderr, "bench: cannot start %s\n", a_str_Argv[0].c_str());
    return false;
  }
  // Generous: under valgrind or an emulator the start takes many seconds.
  const gint64 i_NameDeadline = g_get_monotonic_time() + 180 * G_USEC_PER_SEC;
  for (;;) {
    GVariant* o_Reply = g_dbus_connection_call_sync(
        z_o_Conn, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "NameHasOwner", g_variant_new("(s)", SYSSRV_BUS_NAME), G_VARIANT_TYPE("(b)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    gboolean b_Owned = FALSE;
    if (o_Reply != nullptr) {
      g_variant_get(o_Reply, "(b)", &b_Owned);
      g_variant_unref(o_Reply);
    }
    if (b_Owned) break;
    if (g_get_monotonic_time() > i_NameDeadline || !o_Service.f_Running()) {
      std::fprintf(stderr, "bench: %s did not take its bus name (log: %sbench-%s.log)\n",
                   str_Label.c_str(), str_Sim.c_str(), str_Tag.c_str());
      return false;
    }
    g_usleep(50000);
  }
  return true;
}

void Target_CL::f_Stop() {
  o_Service.f_Stop();
  if (z_o_Conn != nullptr) {
    if (ui_Subscription != 0) g_dbus_connection_signal_unsubscribe(z_o_Conn, ui_Subscription);
    g_dbus_connection_close_sync(z_o_Conn, nullptr, nullptr);
    g_object_unref(z_o_Conn);
    z_o_Conn = nullptr;
  }
  o_Bus.f_Stop();
}

void Target_CL::f_OnSignal(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                           const gchar* z_c_Signal, GVariant*, gpointer z_v_Self) {
  static_cast<Target_CL*>(z_v_Self)->o_SignalCount[z_c_Signal]++;
}

int Target_CL::f_WaitSignals(const char* z_c_Signal, int i_Expected, int i_TimeoutMs) {
  const gint64 i_Deadline = g_get_monotonic_time() + i_TimeoutMs * 1000LL;
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  while (o_SignalCount[z_c_Signal] < i_Expected && g_get_monotonic_time() < i_Deadline) {
    if (!g_main_context_iteration(nullptr, FALSE)) g_usleep(1000);
  }
  return o_SignalCount[z_c_Signal];
}

void Target_CL::f_ResetSignals() {
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  o_SignalCount.clear();
}

bool Target_CL::f_Call(const Call_ST& o_Call) {
  GError* o_Error = nullptr;
  GVariant* o_Reply = g_dbus_connection_call_sync(
      z_o_Conn, SYSSRV_BUS_NAME, SYSSRV_OBJECT_PATH, SYSSRV_INTERFACE, o_Call.z_c_Method, o_Call.o_Params,
      nullptr, G_DBUS_CALL_FLAGS_NONE, I_CALL_TIMEOUT_MS, nullptr, &o_Error);
  if (o_Reply == nullptr) {
    f_Fail(o_Call.z_c_Method, o_Error);
    return false;
  }
  g_variant_unref(o_Reply);
  return true;
}

Sample_ST Target_CL::f_RunSync(int i_Calls, const MakeCall_T& f_Make) {
  std::vector<double> a_d_LatUs;
  a_d_LatUs.reserve(static_cast<size_t>(i_Calls));
  const long long ll_Cpu0 = f_ProcCpuNs(f_Pid());
  const gint64 i_Start = g_get_monotonic_time();
  for (int i_Index = 0; i_Index < i_Calls; ++i_Index) {
    Call_ST o_Call = f_Make(i_Index);
    const gint64 i_T0 = g_get_monotonic_time();
    if (!f_Call(o_Call)) std::exit(1);
    a_d_LatUs.push_back(static_cast<double>(g_get_monotonic_time() - i_T0));
  }
  const gint64 i_WallUs = g_get_monotonic_time() - i_Start;
  const long long ll_Cpu1 = f_ProcCpuNs(f_Pid());
  return f_Summarise(a_d_LatUs, i_WallUs, ll_Cpu1 - ll_Cpu0);
}

Sample_ST Target_CL::f_RunPipelined(int i_Calls, int i_Depth, const MakeCall_T& f_Make) {
  Pipeline_ST o_Pipe{this, std::vector<gint64>(static_cast<size_t>(i_Calls), 0), {}, 0, false};
  o_Pipe.a_d_LatUs.reserve(static_cast<size_t>(i_Calls));
  int i_Sent = 0;
  auto f_Done = [](GObject* z_o_Source, GAsyncResult* o_Result, gpointer z_v_Pending) {
    auto* z_o_Pending = static_cast<PendingCall_ST*>(z_v_Pending);
    Pipeline_ST* z_o_P = z_o_Pending->z_o_Pipe;
    GError* o_Error = nullptr;
    GVariant* o_Reply =
        g_dbus_connection_call_finish(G_DBUS_CONNECTION(z_o_Source), o_Result, &o_Error);
    if (o_Reply == nullptr) {
      z_o_P->z_o_Target->f_Fail("pipelined call", o_Error);
      z_o_P->b_Failed = true;
    } else {
      g_variant_unref(o_Reply);
    }
    z_o_P->a_d_LatUs.push_back(static_cast<double>(
        g_get_monotonic_time() - z_o_P->a_i_SentUs[static_cast<size_t>(z_o_Pending->i_Index)]));
    z_o_P->i_Done++;
    delete z_o_Pending;
  };

  const long long ll_Cpu0 = f_ProcCpuNs(f_Pid());
  const gint64 i_Start = g_get_monotonic_time();
  while (o_Pipe.i_Done < i_Calls && !o_Pipe.b_Failed) {
    while (i_Sent < i_Calls && i_Sent - o_Pipe.i_Done < i_Depth) {
      Call_ST o_Call = f_Make(i_Sent);
      o_Pipe.a_i_SentUs[static_cast<size_t>(i_Sent)] = g_get_monotonic_time();
      g_dbus_connection_call(z_o_Conn, SYSSRV_BUS_NAME, SYSSRV_OBJECT_PATH, SYSSRV_INTERFACE,
                             o_Call.z_c_Method, o_Call.o_Params, nullptr,
                             G_DBUS_CALL_FLAGS_NONE, I_CALL_TIMEOUT_MS, nullptr, f_Done,
                             new PendingCall_ST{&o_Pipe, i_Sent});
      ++i_Sent;
    }
    g_main_context_iteration(nullptr, TRUE);
  }
  if (o_Pipe.b_Failed) std::exit(1);
  const gint64 i_WallUs = g_get_monotonic_time() - i_Start;
  const long long ll_Cpu1 = f_ProcCpuNs(f_Pid());
  return f_Summarise(o_Pipe.a_d_LatUs, i_WallUs, ll_Cpu1 - ll_Cpu0);
}

Sample_ST f_Median(const std::vector<Sample_ST>& a_o_Runs) {
  auto f_Med = [&a_o_Runs](double Sample_ST::*z_d_Field) {
    std::vector<double> a_d_Values;
    for (const Sample_ST& o_Run : a_o_Runs) a_d_Values.push_back(o_Run.*z_d_Field);
    std::sort(a_d_Values.begin(), a_d_Values.end());
    if (a_d_Values.empty()) return 0.0;
    size_t ui_Mid = a_d_Values.size() / 2;
    return a_d_Values.size() % 2 == 1 ? a_d_Values[ui_Mid]
                                       : (a_d_Values[ui_Mid - 1] + a_d_Values[ui_Mid]) / 2;
  };
  Sample_ST o_M;
  o_M.d_CallsPerS = f_Med(&Sample_ST::d_CallsPerS);
  o_M.d_P50Us = f_Med(&Sample_ST::d_P50Us);
  o_M.d_P90Us = f_Med(&Sample_ST::d_P90Us);
  o_M.d_P99Us = f_Med(&Sample_ST::d_P99Us);
  o_M.d_CpuUsPerCall = f_Med(&Sample_ST::d_CpuUsPerCall);
  return o_M;
}
