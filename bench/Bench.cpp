// syssrv-bench: runs each phase against the bare reference service and against SysSrv,
// each on a private bus of its own, alternating, and prints one markdown table of calls/s,
// latency percentiles, the service's CPU per call and the ratios to the reference; then
// the memory, descriptors and database size around a long mixed soak, and the idle CPU.
#include <glib.h>
#include <sys/statfs.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "BenchTarget.h"

namespace {
// Above the service's default bound of 512 rows: after the fill every new error
// overwrites the oldest row.
constexpr int I_RING_FILL = 520;
constexpr int I_PIPELINE_DEPTH = 16;
constexpr int I_SOAK_WARMUP = 5000;
constexpr const char* A_C_PROC = "BenchProc";
// code 1000, class 3: revokes readiness, acknowledged by the collective acknowledgement.
constexpr const char* A_C_SAME_CODE = "8003";

struct Options_ST {
  gchar* z_c_Root = nullptr;
  gchar* z_c_Service = nullptr;
  gchar* z_c_Reference = nullptr;
  gchar* z_c_DbusDaemon = nullptr;
  gchar* z_c_BusConf = nullptr;
  gchar* z_c_ServicePrefix = nullptr;
  gchar* z_c_Launcher = nullptr;
  gint i_Reps = 3;
  gint i_Calls = 2000;
  gint i_Soak = 100000;
  gint i_IdleS = 60;
  gboolean b_MemoryOnly = FALSE;
  gchar* z_c_Only = nullptr;
};

struct Phase_ST {
  const char* z_c_Name;
  // Makes the phase's calls for one target; b_Pipelined runs them 16 in flight.
  std::function<MakeCall_T(Target_CL&)> f_Calls;
  bool b_Pipelined;
  // Signal each call must cause, counted after the run (null: none checked).
  const char* z_c_Signal;
};

struct PhaseResult_ST {
  const char* z_c_Name;
  Sample_ST o_Ref, o_Srv;
  std::string str_Note;
};

struct Footprint_ST {
  long l_DirtyKb = -1;
  int i_Fds = -1;
  long long ll_DbBytes = -1;
};

Footprint_ST f_Footprint(Target_CL& o_T) {
  Footprint_ST o_F;
  o_F.l_DirtyKb = f_ProcPrivateDirtyKb(o_T.f_Pid());
  o_F.i_Fds = f_ProcOpenFds(o_T.f_Pid());
  o_F.ll_DbBytes = o_T.f_DbFile().empty() ? -1 : f_FileSize(o_T.f_DbFile());
  return o_F;
}

Call_ST f_Report(const std::string& str_Code, const char* z_c_Ack = "") {
  return {"freporterror", g_variant_new("(sss)", A_C_PROC, str_Code.c_str(), z_c_Ack)};
}

Call_ST f_BatchSet(int i_Index) {
  char a_c_Cfg[160];
  std::snprintf(a_c_Cfg, sizeof(a_c_Cfg),
                "{\"Id\":7,\"MaxOk\":%d,\"MaxNok\":2,\"DirectionOk\":\"up\",\"DirectionNok\":"
                "\"down\",\"LockTool\":1,\"LockCcw\":1}",
                1 + i_Index % 50);
  return {"fbatchcntrset", g_variant_new("(is)", 0, a_c_Cfg)};
}

// Every call of a phase changes the charge, so each one is published.
Call_ST f_PowerSet(int i_Index) { return {"fbattpowerset", g_variant_new("(i)", 60 + i_Index % 2)}; }

// Fills the error list to its bound once, untimed, so that the storm and the soak run
// with the ring overwrite.
void f_FillRing(Target_CL& o_T) {
  if (o_T.b_RingFull) return;
  for (int i_N = 0; i_N < I_RING_FILL; ++i_N)
    if (!o_T.f_Call(f_Report(std::to_string(o_T.f_NextCoded(4))))) std::exit(1);
  o_T.b_RingFull = true;
}

// The mixed soak: what the tool's processes ask in a working day, in one cycle of ten.
MakeCall_T f_SoakCalls(Target_CL& o_T) {
  auto z_i_Last = std::make_shared<int>(0);
  return [&o_T, z_i_Last](int i_Index) -> Call_ST {
    switch (i_Index % 10) {
      case 0: return {"fmfuget", nullptr};
      case 1: return {"frdyget", nullptr};
      case 2: return {"fsyserrorget", nullptr};
      case 3: return {"fbattpowerget", nullptr};
      case 4: return f_PowerSet(i_Index / 10);
      case 5:
        *z_i_Last = o_T.f_NextCoded(3);
        return f_Report(std::to_string(*z_i_Last));
      case 6: return f_Report(std::to_string(*z_i_Last), "Ack");
      case 7: return {"fgetunacknsyserrors", nullptr};
      case 8: return f_BatchSet(i_Index / 10);
      default: return {"fackerrlist", nullptr};
    }
  };
}

std::vector<Phase_ST> f_Phases() {
  auto f_Plain = [](const char* z_c_Method) {
    return [z_c_Method](Target_CL&) -> MakeCall_T {
      return [z_c_Method](int) -> Call_ST { return {z_c_Method, nullptr}; };
    };
  };
  return {
      {"fmfuget", f_Plain("fmfuget"), false, nullptr},
      {"frdyget", f_Plain("frdyget"), false, nullptr},
      {"freporterror same code",
       [](Target_CL&) -> MakeCall_T { return [](int) { return f_Report(A_C_SAME_CODE); }; },
       false, nullptr},
      {"freporterror distinct codes",
       [](Target_CL& o_T) -> MakeCall_T {
         f_FillRing(o_T);
         return [&o_T](int) { return f_Report(std::to_string(o_T.f_NextCoded(4))); };
       },
       false, "sysfault"},
      {"fbattpowerset + signal", [](Target_CL&) -> MakeCall_T { return f_PowerSet; }, false,
       "battpowerchanged"},
      {"fbatchcntrset", [](Target_CL&) -> MakeCall_T { return f_BatchSet; }, false,
       "cfgfilechanged"},
      {"fmfuget pipelined 16", f_Plain("fmfuget"), true, nullptr},
  };
}

// Runs one phase i_Reps times on both, alternating which goes first.
PhaseResult_ST f_RunPhase(const Phase_ST& o_Phase, Target_CL& o_Ref, Target_CL& o_Srv,
                          int i_Reps, int i_Calls) {
  std::vector<Sample_ST> a_o_Ref, a_o_Srv;
  std::string str_Note;
  for (int i_Rep = 0; i_Rep < i_Reps; ++i_Rep) {
    Target_CL* a_z_o_Order[2] = {&o_Ref, &o_Srv};
    if (i_Rep % 2 == 1) std::swap(a_z_o_Order[0], a_z_o_Order[1]);
    for (Target_CL* z_o_T : a_z_o_Order) {
      MakeCall_T f_Make = o_Phase.f_Calls(*z_o_T);
      z_o_T->f_ResetSignals();
      Sample_ST o_S = o_Phase.b_Pipelined ? z_o_T->f_RunPipelined(i_Calls, I_PIPELINE_DEPTH, f_Make)
                                          : z_o_T->f_RunSync(i_Calls, f_Make);
      (z_o_T == &o_Ref ? a_o_Ref : a_o_Srv).push_back(o_S);
      int i_Got = z_o_T->f_WaitSignals(o_Phase.z_c_Signal != nullptr ? o_Phase.z_c_Signal : "",
                                       o_Phase.z_c_Signal != nullptr ? i_Calls : 0, 10000);
      if (o_Phase.z_c_Signal != nullptr && i_Got != i_Calls && str_Note.empty())
        str_Note = z_o_T->f_Label() + ": " + std::to_string(i_Got) + " of " +
                   std::to_string(i_Calls) + " " + o_Phase.z_c_Signal + " signals";
    }
  }
  return {o_Phase.z_c_Name, f_Median(a_o_Ref), f_Median(a_o_Srv), str_Note};
}

std::string f_Ratio(double d_Srv, double d_Ref) {
  if (d_Ref <= 0) return "–";
  char a_c_Buf[32];
  std::snprintf(a_c_Buf, sizeof(a_c_Buf), "%.2f", d_Srv / d_Ref);
  return a_c_Buf;
}

void f_PrintPhases(const std::vector<PhaseResult_ST>& a_o_Results) {
  std::printf("| Phase | Service | calls/s | p50 µs | p90 µs | p99 µs | CPU µs/call |\n");
  std::printf("|---|---|---:|---:|---:|---:|---:|\n");
  for (const PhaseResult_ST& o_R : a_o_Results) {
    for (const Sample_ST* z_o_S : {&o_R.o_Ref, &o_R.o_Srv}) {
      std::printf("| %s | %s | %.0f | %.0f | %.0f | %.0f | %.1f |\n",
                  z_o_S == &o_R.o_Ref ? o_R.z_c_Name : "", z_o_S == &o_R.o_Ref ? "reference" : "SysSrv",
                  z_o_S->d_CallsPerS, z_o_S->d_P50Us, z_o_S->d_P90Us, z_o_S->d_P99Us,
                  z_o_S->d_CpuUsPerCall);
    }
    std::printf("| | ratio | %s | %s | %s | %s | %s |\n",
                f_Ratio(o_R.o_Srv.d_CallsPerS, o_R.o_Ref.d_CallsPerS).c_str(),
                f_Ratio(o_R.o_Srv.d_P50Us, o_R.o_Ref.d_P50Us).c_str(),
                f_Ratio(o_R.o_Srv.d_P90Us, o_R.o_Ref.d_P90Us).c_str(),
                f_Ratio(o_R.o_Srv.d_P99Us, o_R.o_Ref.d_P99Us).c_str(),
                f_Ratio(o_R.o_Srv.d_CpuUsPerCall, o_R.o_Ref.d_CpuUsPerCall).c_str());
  }
  for (const PhaseResult_ST& o_R : a_o_Results)
    if (!o_R.str_Note.empty()) std::printf("\nNote, %s: %s\n", o_R.z_c_Name, o_R.str_Note.c_str());
}

const PhaseResult_ST* f_Find(const std::vector<PhaseResult_ST>& a_o_Results,
                             const char* z_c_Name) {
  for (const PhaseResult_ST& o_R : a_o_Results)
    if (std::string(o_R.z_c_Name) == z_c_Name) return &o_R;
  return nullptr;
}

void f_Goal(const char* z_c_Goal, const char* z_c_Target, double d_Value, bool b_Met,
            const char* z_c_Fmt) {
  char a_c_Value[64];
  std::snprintf(a_c_Value, sizeof(a_c_Value), z_c_Fmt, d_Value);
  std::printf("| %s | %s | %s | %s |\n", z_c_Goal, z_c_Target, a_c_Value, b_Met ? "yes" : "**no**");
}

std::string f_Kb(long long ll_Bytes) {
  if (ll_Bytes < 0) return "–";
  return std::to_string((ll_Bytes + 512) / 1024) + " KiB";
}

// The sandbox's file system: the diagnostic store and the database are written there, and
// a file replaced on ext4 costs several times what it costs on tmpfs.
const char* f_FsName(const char* z_c_Dir) {
  struct statfs o_Fs {};
  if (statfs(z_c_Dir, &o_Fs) != 0) return "unknown";
  switch (static_cast<unsigned long>(o_Fs.f_type)) {
    case 0xEF53: return "ext4";
    case 0x01021994: return "tmpfs";
    case 0x794C7630: return "overlayfs";
    case 0x24051905: return "ubifs";
    case 0x58465342: return "xfs";
    case 0x9123683E: return "btrfs";
    default: return "other";
  }
}

void f_Header(const Options_ST& o_Opt) {
  utsname o_Uts{};
  uname(&o_Uts);
  double a_d_Load[3] = {0, 0, 0};
  getloadavg(a_d_Load, 3);
  char a_c_Date[64];
  std::time_t i_Now = std::time(nullptr);
  std::strftime(a_c_Date, sizeof(a_c_Date), "%Y-%m-%d %H:%M UTC", std::gmtime(&i_Now));
  std::printf("# SysSrv against the bare reference service, %s\n\n", a_c_Date);
  std::printf("Machine: %s %s, %ld CPUs, load %.2f %.2f %.2f at start. ", o_Uts.machine,
              o_Uts.release, sysconf(_SC_NPROCESSORS_ONLN), a_d_Load[0], a_d_Load[1],
              a_d_Load[2]);
  std::printf("Sandbox on %s. ", f_FsName(o_Opt.z_c_Root));
  if (o_Opt.b_MemoryOnly) {
    std::printf("Memory and descriptors only (soak of %d calls).\n\n", o_Opt.i_Soak);
  } else {
    std::printf("Medians of %d repetitions of %d calls per phase, alternating reference and "
                "SysSrv; soak %d calls, idle %d s.\n\n",
                o_Opt.i_Reps, o_Opt.i_Calls, o_Opt.i_Soak, o_Opt.i_IdleS);
  }
  std::fflush(stdout);
}

bool f_ParseOptions(int argc, char** argv, Options_ST& o_Opt) {
  GOptionEntry a_o_Entries[] = {
      {"root", 0, 0, G_OPTION_ARG_FILENAME, &o_Opt.z_c_Root,
       "sandbox made by 'syssrv-sim init' (required)", "DIR"},
      {"service", 0, 0, G_OPTION_ARG_FILENAME, &o_Opt.z_c_Service, "SysSrv.elf (required)", "PATH"},
      {"reference", 0, 0, G_OPTION_ARG_FILENAME, &o_Opt.z_c_Reference,
       "syssrv-bench-ref (required)", "PATH"},
      {"dbus-daemon", 0, 0, G_OPTION_ARG_FILENAME, &o_Opt.z_c_DbusDaemon,
       "bus daemon to start (default dbus-daemon)", "PATH"},
      {"bus-config", 0, 0, G_OPTION_ARG_FILENAME, &o_Opt.z_c_BusConf,
       "bus configuration template with @LISTEN@ (default: the project's)", "PATH"},
      {"service-prefix", 0, 0, G_OPTION_ARG_STRING, &o_Opt.z_c_ServicePrefix,
       "words run before SysSrv.elf (a profiler)", "WORDS"},
      {"launcher", 0, 0, G_OPTION_ARG_STRING, &o_Opt.z_c_Launcher,
       "words run before both services (an emulator)", "WORDS"},
      {"reps", 0, 0, G_OPTION_ARG_INT, &o_Opt.i_Reps, "repetitions per phase (default 3)", "N"},
      {"calls", 0, 0, G_OPTION_ARG_INT, &o_Opt.i_Calls, "calls per phase (default 2000)", "N"},
      {"soak", 0, 0, G_OPTION_ARG_INT, &o_Opt.i_Soak, "calls of the soak (default 100000)", "N"},
      {"idle", 0, 0, G_OPTION_ARG_INT, &o_Opt.i_IdleS, "seconds of the idle phase (default 60)",
       "S"},
      {"memory-only", 0, 0, G_OPTION_ARG_NONE, &o_Opt.b_MemoryOnly,
       "only the soak's memory and descriptors (for runs under an emulator)", nullptr},
      {"only", 0, 0, G_OPTION_ARG_STRING, &o_Opt.z_c_Only,
       "run only the phases whose name contains TEXT, no soak or idle", "TEXT"},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  GOptionContext* z_o_Ctx = g_option_context_new("- SysSrv against a bare reference service");
  g_option_context_add_main_entries(z_o_Ctx, a_o_Entries, nullptr);
  GError* o_Error = nullptr;
  bool b_Ok = g_option_context_parse(z_o_Ctx, &argc, &argv, &o_Error);
  g_option_context_free(z_o_Ctx);
  if (!b_Ok) {
    std::fprintf(stderr, "syssrv-bench: %s\n", o_Error->message);
    g_error_free(o_Error);
    return false;
  }
  if (o_Opt.z_c_Root == nullptr || o_Opt.z_c_Service == nullptr || o_Opt.z_c_Reference == nullptr ||
      o_Opt.i_Reps < 1 || o_Opt.i_Calls < 1 || o_Opt.i_Soak < 0 || o_Opt.i_IdleS < 0) {
    std::fprintf(stderr, "syssrv-bench: --root, --service and --reference are required, "
                         "counts must be positive (see --help)\n");
    return false;
  }
  return true;
}

// A command prefix given as one option: the words between single spaces.
std::vector<std::string> f_Words(const gchar* z_c_Text) {
  std::vector<std::string> a_str_Words;
  if (z_c_Text == nullptr) return a_str_Words;
  gchar** a_z_c_Words = g_strsplit(z_c_Text, " ", -1);
  for (gchar** z_z_c_W = a_z_c_Words; *z_z_c_W != nullptr; ++z_z_c_W)
    if (**z_z_c_W != '\0') a_str_Words.emplace_back(*z_z_c_W);
  g_strfreev(a_z_c_Words);
  return a_str_Words;
}

void f_PrintFootprints(Target_CL& o_Ref, Target_CL& o_Srv, const Footprint_ST a_o_Before[2],
                       const Footprint_ST a_o_After[2], int i_Soak,
                       const Sample_ST a_o_Soak[2], bool b_Times) {
  std::printf("\n## Footprint around the mixed soak of %d calls\n\n", i_Soak);
  std::printf("| Service | dirty after start | dirty before | dirty after | growth | fds before "
              "| fds after | database before | database after |%s\n",
              b_Times ? " soak calls/s |" : "");
  std::printf("|---|---:|---:|---:|---:|---:|---:|---:|---:|%s\n", b_Times ? "---:|" : "");
  Target_CL* a_z_o_T[2] = {&o_Ref, &o_Srv};
  for (int i_T = 0; i_T < 2; ++i_T) {
    const Footprint_ST& o_B = a_o_Before[i_T];
    const Footprint_ST& o_A = a_o_After[i_T];
    std::printf("| %s | %ld KiB | %ld KiB | %ld KiB | %+ld KiB | %d | %d | %s | %s |",
                a_z_o_T[i_T]->f_Label().c_str(), a_z_o_T[i_T]->l_DirtyAfterStartKb, o_B.l_DirtyKb,
                o_A.l_DirtyKb, o_A.l_DirtyKb - o_B.l_DirtyKb, o_B.i_Fds, o_A.i_Fds,
                f_Kb(o_B.ll_DbBytes).c_str(), f_Kb(o_A.ll_DbBytes).c_str());
    if (b_Times) std::printf(" %.0f |", a_o_Soak[i_T].d_CallsPerS);
    std::printf("\n");
  }
}
}  // namespace

int main(int argc, char** argv) {
  Options_ST o_Opt;
  if (!f_ParseOptions(argc, argv, o_Opt)) return 2;
  const std::string str_Root = o_Opt.z_c_Root;
  const std::string str_Dbus = o_Opt.z_c_DbusDaemon != nullptr ? o_Opt.z_c_DbusDaemon : "dbus-daemon";

  f_Header(o_Opt);
  Target_CL o_Ref("reference", "ref", "");
  Target_CL o_Srv("SysSrv", "syssrv", str_Root + "/mnt/log/syserrors.sq3");
  std::vector<std::string> a_str_RefArgv = f_Words(o_Opt.z_c_Launcher);
  a_str_RefArgv.emplace_back(o_Opt.z_c_Reference);
  std::vector<std::string> a_str_SrvArgv = f_Words(o_Opt.z_c_ServicePrefix);
  for (const std::string& str_W : f_Words(o_Opt.z_c_Launcher)) a_str_SrvArgv.push_back(str_W);
  a_str_SrvArgv.emplace_back(o_Opt.z_c_Service);
  const std::string str_BusConf = o_Opt.z_c_BusConf != nullptr ? o_Opt.z_c_BusConf : BENCH_BUS_CONF;
  if (!o_Ref.f_Start(str_Root, str_Dbus, str_BusConf, a_str_RefArgv) ||
      !o_Srv.f_Start(str_Root, str_Dbus, str_BusConf, a_str_SrvArgv))
    return 1;
  // SysSrv's checker starts ticking 2 s after the bus came up; its first ticks read the
  // battery and publish readiness. The footprint "after start" is taken once that is over.
  g_usleep(3 * G_USEC_PER_SEC);
  o_Ref.l_DirtyAfterStartKb = f_ProcPrivateDirtyKb(o_Ref.f_Pid());
  o_Srv.l_DirtyAfterStartKb = f_ProcPrivateDirtyKb(o_Srv.f_Pid());

  std::vector<PhaseResult_ST> a_o_Results;
  if (!o_Opt.b_MemoryOnly) {
    for (const Phase_ST& o_Phase : f_Phases()) {
      if (o_Opt.z_c_Only != nullptr && std::string(o_Phase.z_c_Name).find(o_Opt.z_c_Only) == std::string::npos)
        continue;
      a_o_Results.push_back(f_RunPhase(o_Phase, o_Ref, o_Srv, o_Opt.i_Reps, o_Opt.i_Calls));
      std::fprintf(stderr, "bench: %s done\n", o_Phase.z_c_Name);
    }
    std::printf("## Phases\n\n");
    f_PrintPhases(a_o_Results);
  }
  if (o_Opt.z_c_Only != nullptr) return 0;

  Footprint_ST a_o_Before[2], a_o_After[2];
  Sample_ST a_o_Soak[2];
  Target_CL* a_z_o_T[2] = {&o_Ref, &o_Srv};
  for (int i_T = 0; i_T < 2; ++i_T) {
    Target_CL& o_T = *a_z_o_T[i_T];
    f_FillRing(o_T);
    // The first calls of a kind grow the heap of any GLib service (caches, the bus
    // worker's buffers); the soak's growth is what stays after that warm-up.
    o_T.f_RunPipelined(std::min(o_Opt.i_Soak / 10, I_SOAK_WARMUP), I_PIPELINE_DEPTH, f_SoakCalls(o_T));
    o_T.f_ResetSignals();
    a_o_Before[i_T] = f_Footprint(o_T);
    a_o_Soak[i_T] = o_T.f_RunPipelined(o_Opt.i_Soak, I_PIPELINE_DEPTH, f_SoakCalls(o_T));
    o_T.f_ResetSignals();
    a_o_After[i_T] = f_Footprint(o_T);
    std::fprintf(stderr, "bench: soak of %s done\n", o_T.f_Label().c_str());
  }
  f_PrintFootprints(o_Ref, o_Srv, a_o_Before, a_o_After, o_Opt.i_Soak, a_o_Soak,
                    !o_Opt.b_MemoryOnly);

  double a_d_IdlePct[2] = {0, 0};
  if (!o_Opt.b_MemoryOnly && o_Opt.i_IdleS > 0) {
    // Both idle at once: the phase is wall time, not work. The process's lifetime figure,
    // because an idle service's worker threads end inside the window and their time would
    // drop out of a sum over the threads still alive (which then comes out negative).
    long long a_ll_Cpu0[2], a_ll_Cpu1[2];
    for (int i_T = 0; i_T < 2; ++i_T) a_ll_Cpu0[i_T] = f_ProcLifeCpuNs(a_z_o_T[i_T]->f_Pid());
    g_usleep(static_cast<gulong>(o_Opt.i_IdleS) * G_USEC_PER_SEC);
    for (int i_T = 0; i_T < 2; ++i_T) {
      a_ll_Cpu1[i_T] = f_ProcLifeCpuNs(a_z_o_T[i_T]->f_Pid());
      a_d_IdlePct[i_T] = static_cast<double>(a_ll_Cpu1[i_T] - a_ll_Cpu0[i_T]) /
                         (o_Opt.i_IdleS * 1e9) * 100.0;
    }
    std::printf("\n## Idle over %d s\n\n| Service | CPU, %% of a core |\n|---|---:|\n", o_Opt.i_IdleS);
    std::printf("| reference | %.4f |\n| SysSrv | %.4f |\n", a_d_IdlePct[0], a_d_IdlePct[1]);
  }

  const long l_Growth = a_o_After[1].l_DirtyKb - a_o_Before[1].l_DirtyKb;
  std::printf("\n## Goals\n\n| Goal | Target | Measured | Met |\n|---|---|---:|---|\n");
  if (!o_Opt.b_MemoryOnly) {
    auto f_Phase = [&a_o_Results](const char* z_c_Name) { return f_Find(a_o_Results, z_c_Name); };
    for (const char* z_c_Getter : {"fmfuget", "frdyget"}) {
      if (const PhaseResult_ST* z_o_R = f_Phase(z_c_Getter)) {
        double d_R = z_o_R->o_Srv.d_P50Us / z_o_R->o_Ref.d_P50Us;
        f_Goal((std::string(z_c_Getter) + " p50 ratio").c_str(), "≤ 1.10", d_R, d_R <= 1.10, "%.2f");
      }
    }
    if (const PhaseResult_ST* z_o_R = f_Phase("freporterror same code")) {
      double d_R = z_o_R->o_Srv.d_P50Us / z_o_R->o_Ref.d_P50Us;
      f_Goal("freporterror same code p50 ratio", "≤ 1.15", d_R, d_R <= 1.15, "%.2f");
    }
    if (const PhaseResult_ST* z_o_R = f_Phase("freporterror distinct codes")) {
      double d_R = 100.0 * z_o_R->o_Srv.d_CallsPerS / z_o_R->o_Ref.d_CallsPerS;
      f_Goal("distinct-code storm, calls/s of the reference", "≥ 60 %", d_R, d_R >= 60.0, "%.0f %%");
    }
    if (const PhaseResult_ST* z_o_R = f_Phase("fbattpowerset + signal")) {
      double d_R = z_o_R->o_Srv.d_CpuUsPerCall / z_o_R->o_Ref.d_CpuUsPerCall;
      f_Goal("fbattpowerset service CPU per call ratio", "≤ 1.5", d_R, d_R <= 1.5, "%.2f");
    }
    if (o_Opt.i_IdleS > 0)
      f_Goal("idle CPU, % of a core", "≤ 0.1", a_d_IdlePct[1], a_d_IdlePct[1] <= 0.1, "%.4f");
  }
  // Under an emulator the footprint is the emulator's as much as the service's; only
  // what changes over the soak says something about the service.
  if (!o_Opt.b_MemoryOnly)
    f_Goal("private dirty memory after start", "≤ 1024 KiB",
           static_cast<double>(o_Srv.l_DirtyAfterStartKb), o_Srv.l_DirtyAfterStartKb <= 1024,
           "%.0f KiB");
  f_Goal(o_Opt.b_MemoryOnly ? "dirty memory growth over the soak (emulator included)"
                            : "dirty memory growth over the soak",
         "< 64 KiB", static_cast<double>(l_Growth), l_Growth < 64, "%+.0f KiB");
  f_Goal("descriptor growth over the soak", "0",
         static_cast<double>(a_o_After[1].i_Fds - a_o_Before[1].i_Fds),
         a_o_After[1].i_Fds <= a_o_Before[1].i_Fds, "%+.0f");
  // The ring was full before the soak: every later row replaces one, so the file may
  // only move by a page or so of free-list bookkeeping.
  const long long ll_DbGrowth = a_o_After[1].ll_DbBytes - a_o_Before[1].ll_DbBytes;
  f_Goal("database growth over the soak (ring full)", "≤ 8 KiB",
         static_cast<double>(ll_DbGrowth) / 1024.0, ll_DbGrowth <= 8192, "%+.1f KiB");

  if (!o_Srv.f_Alive()) {
    std::fprintf(stderr, "bench: SysSrv is no longer running\n");
    return 1;
  }
  return 0;
}
