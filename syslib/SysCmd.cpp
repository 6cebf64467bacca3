// Shell commands and power-off.
#include "sysLib/SysCmd.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <glib.h>
#include <poll.h>
#include <sys/wait.h>
#include <ctime>
#include <syslog.h>
#include <unistd.h>
#include <vector>

#include "sysLib/Holders.h"
#include "sysLib/SysFile.h"
#include "sysLib/SysPath.h"

extern char** environ;

namespace {
// The child's environment, built before fork: between fork and exec only async-signal-safe
// calls are allowed, and building strings allocates.
std::vector<std::string> f_ChildEnv() {
  std::vector<std::string> o_Env;
  std::string str_Path = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
  for (char** z_z_c_Var = environ; z_z_c_Var != nullptr && *z_z_c_Var != nullptr; ++z_z_c_Var) {
    if (std::strncmp(*z_z_c_Var, "PATH=", 5) == 0) {
      str_Path = *z_z_c_Var + 5;
    } else {
      o_Env.emplace_back(*z_z_c_Var);
    }
  }
  std::string str_Root = f_SysRoot();
  if (!str_Root.empty()) {
    // The simulated tool's commands (hwclock, dmesg, ...) shadow the host's.
    str_Path = f_SysPath("/sbin") + ":" + f_SysPath("/bin") + ":" + f_SysPath("/usr/bin") +
               (str_Path.empty() ? "" : ":" + str_Path);
  }
  o_Env.push_back("PATH=" + str_Path);
  return o_Env;
}
}  // namespace

namespace {
long long f_MonoMs() { return g_get_monotonic_time() / 1000; }

// Forks "sh -c z_c_Cmd" in a process group of its own, stdout on i_OutFd when that is not
// -1. The group lets a command that hangs be killed together with whatever it started
// (a pipeline's other half, say). The child's pid, or -1.
// Not GSubprocess: it signals the shell's pid only, never its group, and the group and the
// cleared signal mask would still need this child setup written by hand.
pid_t f_SpawnShell(const char* z_c_Cmd, int i_OutFd) {
  std::vector<std::string> o_Env = f_ChildEnv();
  std::vector<char*> o_EnvP;
  for (std::string& str_Var : o_Env) o_EnvP.push_back(&str_Var[0]);
  o_EnvP.push_back(nullptr);
  char a_c_Sh[] = "sh";
  char a_c_Opt[] = "-c";
  std::string str_Cmd = z_c_Cmd;
  char* a_z_c_Argv[] = {a_c_Sh, a_c_Opt, &str_Cmd[0], nullptr};

  pid_t i_Pid = fork();
  if (i_Pid < 0) {
    syslog(LOG_WARNING, "f_SysCmd - fork: %s", strerror(errno));
    return -1;
  }
  if (i_Pid == 0) {
    // Child: async-signal-safe calls only.
    setpgid(0, 0);
    if (i_OutFd != -1) {
      // With stdout closed in the caller the pipe may already sit on descriptor 1; dup2
      // then leaves its close-on-exec flag set, so clear it by hand.
      if (i_OutFd == STDOUT_FILENO) {
        if (fcntl(STDOUT_FILENO, F_SETFD, 0) != 0) _exit(127);
      } else if (dup2(i_OutFd, STDOUT_FILENO) < 0) {
        _exit(127);
      }
    }
    // A command must not inherit the signals the service keeps blocked in some threads.
    sigset_t o_None;
    sigemptyset(&o_None);
    sigprocmask(SIG_SETMASK, &o_None, nullptr);
    execve("/bin/sh", a_z_c_Argv, o_EnvP.data());
    _exit(127);
  }
  // Both sides set the group, so a kill right after the fork cannot miss it.
  setpgid(i_Pid, i_Pid);
  return i_Pid;
}

// Kills the command's whole group and collects the shell.
void f_KillShell(pid_t i_Pid, const char* z_c_Cmd, int i_TimeoutMs) {
  syslog(LOG_WARNING, "f_SysCmd - no end after %d ms, killed: %s", i_TimeoutMs, z_c_Cmd);
  kill(-i_Pid, SIGKILL);
  kill(i_Pid, SIGKILL);
  while (waitpid(i_Pid, nullptr, 0) < 0 && errno == EINTR) {
  }
}

// Waits for the shell until the deadline: 1 done (status in *z_i_Status), 0 time-out,
// -1 failure. Polls with growing pauses; the commands are short and rare.
int f_WaitShell(pid_t i_Pid, long long ll_Deadline, int* z_i_Status) {
  long l_PauseUs = 500;
  for (;;) {
    pid_t i_Done = waitpid(i_Pid, z_i_Status, WNOHANG);
    if (i_Done == i_Pid) return 1;
    if (i_Done < 0 && errno != EINTR) return -1;
    if (f_MonoMs() >= ll_Deadline) return 0;
    g_usleep(static_cast<gulong>(l_PauseUs));
    if (l_PauseUs < 20000) l_PauseUs *= 2;
  }
}

struct AsyncCmd_ST {
  pid_t i_Pid;
  guint ui_KillTimer;
  std::string str_Cmd;
};

gboolean f_KillLateShell(gpointer z_v_Cmd) {
  AsyncCmd_ST* z_o_Cmd = static_cast<AsyncCmd_ST*>(z_v_Cmd);
  syslog(LOG_WARNING, "f_SysCmdAsync - no end after %d ms, killed: %s", I_SYS_CMD_TIMEOUT_MS,
         z_o_Cmd->str_Cmd.c_str());
  kill(-z_o_Cmd->i_Pid, SIGKILL);
  z_o_Cmd->ui_KillTimer = 0;
  return G_SOURCE_REMOVE;
}

void f_AsyncShellDone(GPid i_Pid, gint i_Status, gpointer z_v_Cmd) {
  AsyncCmd_ST* z_o_Cmd = static_cast<AsyncCmd_ST*>(z_v_Cmd);
  if (z_o_Cmd->ui_KillTimer != 0) g_source_remove(z_o_Cmd->ui_KillTimer);
  if (!g_spawn_check_wait_status(i_Status, nullptr))
    syslog(LOG_WARNING, "f_SysCmdAsync - failed: %s", z_o_Cmd->str_Cmd.c_str());
  g_spawn_close_pid(i_Pid);
  delete z_o_Cmd;
}
}  // namespace

int f_SysCmdTimeout(const char* z_c_Cmd, char* z_c_Reply, unsigned int ui_Size, int i_TimeoutMs) {
  if (z_c_Cmd == nullptr) return -1;
  if (z_c_Reply != nullptr && ui_Size > 0) z_c_Reply[0] = '\0';
  const long long ll_Deadline = f_MonoMs() + i_TimeoutMs;

  int a_i_Pipe[2] = {-1, -1};
  if (z_c_Reply != nullptr && pipe2(a_i_Pipe, O_CLOEXEC) != 0) {
    syslog(LOG_WARNING, "f_SysCmd - pipe: %s", strerror(errno));
    return -1;
  }
  UniqueFd_CL o_ReadEnd(a_i_Pipe[0]);
  UniqueFd_CL o_WriteEnd(a_i_Pipe[1]);

  pid_t i_Pid = f_SpawnShell(z_c_Cmd, o_WriteEnd.f_Get());
  if (i_Pid < 0) return -1;

  o_WriteEnd.f_Reset();
  if (o_ReadEnd.f_IsOpen()) {
    // Read to the end even when the buffer is full: a command whose output we stopped
    // reading would die of SIGPIPE and report a failure it did not have.
    size_t ui_Len = 0;
    size_t ui_Cap = ui_Size > 0 ? ui_Size - 1 : 0;
    char a_c_Buf[512];
    for (;;) {
      long long ll_Left = ll_Deadline - f_MonoMs();
      struct pollfd o_Poll = {o_ReadEnd.f_Get(), POLLIN, 0};
      int i_Ready = ll_Left > 0 ? poll(&o_Poll, 1, static_cast<int>(ll_Left)) : 0;
      if (i_Ready < 0 && errno == EINTR) continue;
      if (i_Ready == 0) {
        if (ui_Size > 0) z_c_Reply[ui_Len] = '\0';
        f_KillShell(i_Pid, z_c_Cmd, i_TimeoutMs);
        return -1;
      }
      if (i_Ready < 0) break;
      ssize_t i_Got = read(o_ReadEnd.f_Get(), a_c_Buf, sizeof(a_c_Buf));
      if (i_Got < 0 && errno == EINTR) continue;
      if (i_Got <= 0) break;
      size_t ui_Take = std::min(static_cast<size_t>(i_Got), ui_Cap - ui_Len);
      std::memcpy(z_c_Reply + ui_Len, a_c_Buf, ui_Take);
      ui_Len += ui_Take;
    }
    if (ui_Size > 0) z_c_Reply[ui_Len] = '\0';
    o_ReadEnd.f_Reset();
  }

  int i_Status = 0;
  int i_Done = f_WaitShell(i_Pid, ll_Deadline, &i_Status);
  if (i_Done == 0) {
    f_KillShell(i_Pid, z_c_Cmd, i_TimeoutMs);
    return -1;
  }
  if (i_Done < 0) {
    syslog(LOG_WARNING, "f_SysCmd - wait: %s", strerror(errno));
    return -1;
  }
  return (WIFEXITED(i_Status) && WEXITSTATUS(i_Status) == 0) ? 0 : -1;
}

int f_SysCmd(const char* z_c_Cmd, char* z_c_Reply, unsigned int ui_Size) {
  return f_SysCmdTimeout(z_c_Cmd, z_c_Reply, ui_Size, I_SYS_CMD_TIMEOUT_MS);
}

int f_SysCmdAsync(const char* z_c_Cmd) {
  if (z_c_Cmd == nullptr) return -1;
  // Outside a running loop nothing would ever collect the child: run it to its end.
  if (g_main_depth() == 0) return f_SysCmd(z_c_Cmd);
  pid_t i_Pid = f_SpawnShell(z_c_Cmd, -1);
  if (i_Pid < 0) return -1;
  AsyncCmd_ST* z_o_Cmd = new AsyncCmd_ST{i_Pid, 0, z_c_Cmd};
  z_o_Cmd->ui_KillTimer = g_timeout_add(I_SYS_CMD_TIMEOUT_MS, f_KillLateShell, z_o_Cmd);
  g_child_watch_add(i_Pid, f_AsyncShellDone, z_o_Cmd);
  return 0;
}

int f_PowerOff() {
  std::string str_Path = f_SysPath("/proc/pwrctrl/poweroff");
  UniqueFd_CL o_Fd(open(str_Path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
  if (!o_Fd.f_IsOpen() || f_WriteAll(o_Fd.f_Get(), "1\n", 2) != 0) {
    syslog(LOG_CRIT, "f_PowerOff - %s: %s", str_Path.c_str(), strerror(errno));
    return -1;
  }
  return 0;
}

std::string f_ShellQuote(const std::string& str_Text) {
  return GChars_T(g_shell_quote(str_Text.c_str())).get();
}
