// "up" and "down": a simulated tool with its own system bus and the service running on it,
// so that syssrvctl, gdbus and the tool's other programs can be tried from a shell.
//
// up DIR writes DIR/sim/bus.conf, starts dbus-daemon and SysSrv.elf, records their pids in
// DIR/sim/bus.pid and DIR/sim/syssrv.pid and prints the two export lines for a shell
// (only those go to stdout, for eval). down DIR stops both by the recorded pids.
#include <fcntl.h>
#include <gio/gio.h>
#include <limits.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "SimCommands.h"
#include "SysSrvNames.h"
#include "SimCommon.h"
#include "SimRoot.h"
#include "sysLib/Holders.h"

namespace {

constexpr const char* A_C_BUS_PID = "/sim/bus.pid";
constexpr const char* A_C_SRV_PID = "/sim/syssrv.pid";
// Start-up takes a few seconds on a PC, far longer under an emulator on a loaded machine.
constexpr int I_START_DEADLINE_S = 120;
// SIGTERM is acted on at the service's next 250 ms tick; the bus ends at once.
constexpr int I_STOP_DEADLINE_S = 20;

std::string f_Absolute(const std::string& str_Dir) {
  char a_c_Real[PATH_MAX];
  if (realpath(str_Dir.c_str(), a_c_Real) == nullptr)
    f_RuntimeError(f_Format("cannot resolve %s: %s", str_Dir.c_str(), g_strerror(errno)));
  return a_c_Real;
}

// The open policy of a developer's bus: whoever runs the sandbox may own the service's name
// and call it, as the tests and the demo do. The tool's own policy is tried in test_policy.
std::string f_BusConfig(const std::string& str_Socket) {
  return "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
         " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
         "<busconfig>\n"
         "  <type>system</type>\n"
         "  <listen>unix:path=" + str_Socket + "</listen>\n"
         "  <auth>EXTERNAL</auth>\n"
         "  <policy context=\"default\">\n"
         "    <allow user=\"*\"/> <allow own=\"*\"/>\n"
         "    <allow send_type=\"method_call\"/> <allow send_type=\"signal\"/>\n"
         "    <allow send_requested_reply=\"true\" send_type=\"method_return\"/>\n"
         "    <allow send_requested_reply=\"true\" send_type=\"error\"/>\n"
         "    <allow receive_type=\"method_call\"/> <allow receive_type=\"method_return\"/>\n"
         "    <allow receive_type=\"error\"/> <allow receive_type=\"signal\"/>\n"
         "  </policy>\n"
         "</busconfig>\n";
}

// A recorded pid, or 0 when there is none.
pid_t f_ReadPid(const std::string& str_File) {
  bool b_Found = false;
  std::string str_Text = f_ReadFileIfAny(str_File, b_Found);
  if (!b_Found) return 0;
  char* z_c_End = nullptr;
  long l_Pid = std::strtol(str_Text.c_str(), &z_c_End, 10);
  return l_Pid > 1 && (*z_c_End == '\n' || *z_c_End == '\0') ? static_cast<pid_t>(l_Pid) : 0;
}

// True while pid runs a program whose command line names z_c_Program: a recorded pid that
// the system has since given to another program is never signalled.
bool f_Runs(pid_t i_Pid, const char* z_c_Program) {
  bool b_Found = false;
  std::string str_Stat =
      f_ReadFileIfAny(f_Format("/proc/%ld/stat", static_cast<long>(i_Pid)), b_Found);
  size_t ui_Paren = str_Stat.rfind(')');
  // A zombie has ended; it only waits for a parent that is not us to collect it.
  if (!b_Found || ui_Paren == std::string::npos || str_Stat.compare(ui_Paren, 3, ") Z") == 0)
    return false;
  std::string str_Cmd =
      f_ReadFileIfAny(f_Format("/proc/%ld/cmdline", static_cast<long>(i_Pid)), b_Found);
  std::replace(str_Cmd.begin(), str_Cmd.end(), '\0', ' ');
  return str_Cmd.find(z_c_Program) != std::string::npos;
}

// SIGTERM, then SIGKILL if it is still there at the deadline. False when it was not running.
bool f_Stop(pid_t i_Pid, const char* z_c_Program) {
  if (i_Pid == 0 || !f_Runs(i_Pid, z_c_Program)) return false;
  kill(i_Pid, SIGTERM);
  gint64 i_Deadline = g_get_monotonic_time() + I_STOP_DEADLINE_S * G_USEC_PER_SEC;
  while (f_Runs(i_Pid, z_c_Program)) {
    if (g_get_monotonic_time() > i_Deadline) {
      std::fprintf(stderr, "syssrv-sim down: %s (pid %ld) ignored SIGTERM, killing it\n",
                   z_c_Program, static_cast<long>(i_Pid));
      kill(i_Pid, SIGKILL);
      break;
    }
    g_usleep(50 * 1000);
  }
  return true;
}

// The service to start: --daemon, else the one installed beside this program (a build
// tree, or /usr/bin beside /usr/sbin), else /usr/sbin, else the first on PATH.
std::string f_FindDaemon(const char* z_c_Given) {
  if (z_c_Given != nullptr) return z_c_Given;
  char a_c_Self[PATH_MAX] = {};
  ssize_t i_Len = readlink("/proc/self/exe", a_c_Self, sizeof(a_c_Self) - 1);
  std::vector<std::string> o_Candidates;
  if (i_Len > 0) {
    std::string str_Dir(a_c_Self, static_cast<size_t>(i_Len));
    str_Dir.erase(str_Dir.rfind('/'));
    o_Candidates.push_back(str_Dir + "/SysSrv.elf");
    o_Candidates.push_back(str_Dir + "/../sbin/SysSrv.elf");
  }
  o_Candidates.push_back("/usr/sbin/SysSrv.elf");
  for (const std::string& str_Path : o_Candidates) {
    char a_c_Real[PATH_MAX];
    // The plain path ("/usr/sbin", not "/usr/bin/../sbin") is what ps and the log show.
    if (access(str_Path.c_str(), X_OK) == 0 && realpath(str_Path.c_str(), a_c_Real) != nullptr)
      return a_c_Real;
  }
  GChars_T o_OnPath(g_find_program_in_path("SysSrv.elf"));
  if (!o_OnPath)
    f_RuntimeError("SysSrv.elf not found beside syssrv-sim, in /usr/sbin or on PATH (--daemon)");
  return o_OnPath.get();
}

// Starts dbus-daemon on the tool's own config; returns its address and records its pid.
std::string f_StartBus(const SimRoot_CL& o_Root) {
  std::string str_Conf = o_Root.f_Path("/sim/bus.conf");
  f_WriteFileAtomic(str_Conf, f_BusConfig(o_Root.f_Path("/sim/system_bus_socket")));
  std::string str_ConfArg = "--config-file=" + str_Conf;
  const char* a_z_c_Argv[] = {"dbus-daemon",       str_ConfArg.c_str(), "--fork",
                              "--print-address=1", "--print-pid=1",     nullptr};
  gchar* z_c_Out = nullptr;
  gchar* z_c_Err = nullptr;
  gint i_Status = 0;
  GErrorHolder_CL o_Err;
  bool b_Ok = g_spawn_sync(nullptr, const_cast<gchar**>(a_z_c_Argv), nullptr, G_SPAWN_SEARCH_PATH,
                           nullptr, nullptr, &z_c_Out, &z_c_Err, &i_Status, o_Err.f_Out()) &&
              g_spawn_check_wait_status(i_Status, o_Err.f_Out());
  GChars_T o_Out(z_c_Out);
  GChars_T o_ErrText(z_c_Err);
  std::string str_Out = o_Out ? o_Out.get() : "";
  std::string str_Why = o_Err.f_Message();
  if (o_ErrText && o_ErrText.get()[0] != '\0') str_Why += std::string(": ") + o_ErrText.get();
  // Two lines: the address, then the pid.
  size_t ui_Nl = str_Out.find('\n');
  if (!b_Ok || ui_Nl == std::string::npos)
    f_RuntimeError("dbus-daemon did not start (package dbus-daemon): " + str_Why);
  f_WriteFileAtomic(o_Root.f_Path(A_C_BUS_PID), str_Out.substr(ui_Nl + 1));
  // The socket alone, without the bus's guid: a shell that keeps the exports across a
  // down and an up must still reach the new bus.
  return "unix:path=" + o_Root.f_Path("/sim/system_bus_socket");
}

// Starts the service in a session of its own, its log (stderr in a sandbox) in sim/syssrv.log.
pid_t f_StartService(const SimRoot_CL& o_Root, const std::string& str_Daemon,
                     const std::string& str_Address) {
  std::string str_Log = o_Root.f_Path("/sim/syssrv.log");
  pid_t i_Pid = fork();
  if (i_Pid < 0) f_RuntimeError(f_Format("fork: %s", g_strerror(errno)));
  if (i_Pid == 0) {
    setsid();
    int i_Null = open("/dev/null", O_RDONLY);
    int i_Log = open(str_Log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (i_Null < 0 || i_Log < 0) _exit(127);
    dup2(i_Null, 0);
    dup2(i_Log, 1);
    dup2(i_Log, 2);
    setenv("SYSSRV_ROOT", o_Root.f_Dir().c_str(), 1);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", str_Address.c_str(), 1);
    execl(str_Daemon.c_str(), str_Daemon.c_str(), static_cast<char*>(nullptr));
    std::fprintf(stderr, "syssrv-sim up: cannot run %s: %s\n", str_Daemon.c_str(),
                 g_strerror(errno));
    _exit(127);
  }
  f_WriteFileAtomic(o_Root.f_Path(A_C_SRV_PID), f_Format("%ld\n", static_cast<long>(i_Pid)));
  return i_Pid;
}

// Waits until the service owns its name; fails when it ends first or takes too long.
void f_WaitForName(const std::string& str_Address, pid_t i_Pid, const std::string& str_Log) {
  GError* z_o_Err = nullptr;
  GDBusConnection* z_o_Conn = g_dbus_connection_new_for_address_sync(
      str_Address.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &z_o_Err);
  if (z_o_Conn == nullptr) {
    std::string str_Msg = z_o_Err != nullptr ? z_o_Err->message : "?";
    g_clear_error(&z_o_Err);
    f_RuntimeError("cannot reach the new bus: " + str_Msg);
  }
  gint64 i_Deadline = g_get_monotonic_time() + I_START_DEADLINE_S * G_USEC_PER_SEC;
  bool b_Owned = false;
  std::string str_Failure;
  while (!b_Owned) {
    int i_Status = 0;
    if (waitpid(i_Pid, &i_Status, WNOHANG) == i_Pid) {
      str_Failure = "SysSrv.elf ended during its start (its log: " + str_Log + ")";
      break;
    }
    if (g_get_monotonic_time() > i_Deadline) {
      str_Failure = f_Format("SysSrv.elf did not take its bus name within %d s (its log: %s)",
                             I_START_DEADLINE_S, str_Log.c_str());
      break;
    }
    Variant_T o_Reply(g_dbus_connection_call_sync(
        z_o_Conn, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "NameHasOwner", g_variant_new("(s)", SYSSRV_BUS_NAME), G_VARIANT_TYPE("(b)"),
        G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr));
    if (o_Reply) {
      gboolean b_Has = FALSE;
      g_variant_get(o_Reply.get(), "(b)", &b_Has);
      b_Owned = b_Has != FALSE;
    }
    if (!b_Owned) g_usleep(100 * 1000);
  }
  g_object_unref(z_o_Conn);
  if (!str_Failure.empty()) f_RuntimeError(str_Failure);
}

std::string f_ToolDir(SimArgs_CL& o_Args, int i_Argc, char** a_z_c_Argv) {
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(1, 1);
  return o_Args.f_Args()[0];
}

}  // namespace

int f_CmdUp(int i_Argc, char** a_z_c_Argv) {
  char* z_c_Daemon = nullptr;
  GOptionEntry a_o_Entries[] = {
      {"daemon", 0, 0, G_OPTION_ARG_FILENAME, &z_c_Daemon,
       "The service to start (default: beside syssrv-sim, /usr/sbin, PATH)", "PATH"},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  SimArgs_CL o_Args("DIR", "Starts a private system bus and the service on the tool in DIR.",
                    false);
  o_Args.f_AddEntries(a_o_Entries);
  o_Args.f_SetDescription(
      "Makes DIR a simulated tool first when it is not one. Prints the two export lines that\n"
      "point a shell at the tool and the bus: eval \"$(syssrv-sim up DIR)\". The service's\n"
      "log is DIR/sim/syssrv.log; 'syssrv-sim down DIR' stops both again.\n");
  GChars_T o_DaemonOwner;
  std::string str_Dir = f_ToolDir(o_Args, i_Argc, a_z_c_Argv);
  o_DaemonOwner.reset(z_c_Daemon);
  std::string str_Daemon = f_FindDaemon(z_c_Daemon);

  if (!f_Exists(str_Dir + SimPath::COMMANDS_LOG)) {
    // Only the export lines go to stdout, so init reports on stderr.
    std::fflush(stdout);
    int i_Stdout = dup(1);
    dup2(2, 1);
    std::string str_InitDir = str_Dir;
    char a_c_Init[] = "init";
    char* a_z_c_InitArgv[] = {a_c_Init, str_InitDir.data(), nullptr};
    int i_Init = 0;
    try {
      i_Init = f_CmdInit(2, a_z_c_InitArgv);
    } catch (...) {
      std::fflush(stdout);
      dup2(i_Stdout, 1);
      close(i_Stdout);
      throw;
    }
    std::fflush(stdout);
    dup2(i_Stdout, 1);
    close(i_Stdout);
    if (i_Init != I_EXIT_OK) return i_Init;
  }
  SimRoot_CL o_Root(f_Absolute(str_Dir));
  if (f_Runs(f_ReadPid(o_Root.f_Path(A_C_SRV_PID)), "SysSrv.elf") ||
      f_Runs(f_ReadPid(o_Root.f_Path(A_C_BUS_PID)), "dbus-daemon")) {
    f_RuntimeError("the tool in " + o_Root.f_Dir() + " is already up ('syssrv-sim down " +
                   o_Root.f_Dir() + "' first)");
  }
  std::string str_Address = f_StartBus(o_Root);
  std::string str_Log = o_Root.f_Path("/sim/syssrv.log");
  pid_t i_Srv = f_StartService(o_Root, str_Daemon, str_Address);
  try {
    f_WaitForName(str_Address, i_Srv, str_Log);
  } catch (const CliFailure_CL&) {
    // Nothing half-started is left behind.
    f_Stop(i_Srv, "SysSrv.elf");
    f_Stop(f_ReadPid(o_Root.f_Path(A_C_BUS_PID)), "dbus-daemon");
    throw;
  }
  GChars_T o_QuotedRoot(g_shell_quote(o_Root.f_Dir().c_str()));
  GChars_T o_QuotedAddr(g_shell_quote(str_Address.c_str()));
  std::printf("export SYSSRV_ROOT=%s\nexport DBUS_SYSTEM_BUS_ADDRESS=%s\n", o_QuotedRoot.get(),
              o_QuotedAddr.get());
  std::fprintf(stderr, "syssrv-sim up: SysSrv.elf (pid %ld) runs on %s; its log: %s\n",
               static_cast<long>(i_Srv), str_Address.c_str(), str_Log.c_str());
  return I_EXIT_OK;
}

int f_CmdDown(int i_Argc, char** a_z_c_Argv) {
  SimArgs_CL o_Args("DIR", "Stops the service and the bus that 'syssrv-sim up DIR' started.",
                    false);
  std::string str_Dir = f_ToolDir(o_Args, i_Argc, a_z_c_Argv);
  if (!f_IsDir(str_Dir)) f_RuntimeError(str_Dir + " is not a directory");
  SimRoot_CL o_Root(f_Absolute(str_Dir));
  // The service first: it says goodbye on the bus.
  bool b_Srv = f_Stop(f_ReadPid(o_Root.f_Path(A_C_SRV_PID)), "SysSrv.elf");
  bool b_Bus = f_Stop(f_ReadPid(o_Root.f_Path(A_C_BUS_PID)), "dbus-daemon");
  for (const char* z_c_File : {A_C_SRV_PID, A_C_BUS_PID}) {
    if (f_Exists(o_Root.f_Path(z_c_File))) f_RemoveFile(o_Root.f_Path(z_c_File));
  }
  std::fprintf(stderr, "syssrv-sim down: %s\n",
               b_Srv || b_Bus ? "service and bus stopped" : "nothing was running");
  return I_EXIT_OK;
}
