// Shell commands and power-off.
#include "sysLib/SysCmd.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

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

int f_SysCmd(const char* z_c_Cmd, char* z_c_Reply, unsigned int ui_Size) {
  if (z_c_Cmd == nullptr) return -1;
  if (z_c_Reply != nullptr && ui_Size > 0) z_c_Reply[0] = '\0';

  std::vector<std::string> o_Env = f_ChildEnv();
  std::vector<char*> o_EnvP;
  for (std::string& str_Var : o_Env) o_EnvP.push_back(&str_Var[0]);
  o_EnvP.push_back(nullptr);
  char a_c_Sh[] = "sh";
  char a_c_Opt[] = "-c";
  std::string str_Cmd = z_c_Cmd;
  char* a_z_c_Argv[] = {a_c_Sh, a_c_Opt, &str_Cmd[0], nullptr};

  int a_i_Pipe[2] = {-1, -1};
  if (z_c_Reply != nullptr && pipe2(a_i_Pipe, O_CLOEXEC) != 0) {
    syslog(LOG_WARNING, "f_SysCmd - pipe: %s", strerror(errno));
    return -1;
  }
  UniqueFd_CL o_ReadEnd(a_i_Pipe[0]);
  UniqueFd_CL o_WriteEnd(a_i_Pipe[1]);

  pid_t i_Pid = fork();
  if (i_Pid < 0) {
    syslog(LOG_WARNING, "f_SysCmd - fork: %s", strerror(errno));
    return -1;
  }
  if (i_Pid == 0) {
    // Child: async-signal-safe calls only.
    if (o_WriteEnd.f_IsOpen()) {
      // With stdout closed in the caller the pipe may already sit on descriptor 1; dup2
      // then leaves its close-on-exec flag set, so clear it by hand.
      if (o_WriteEnd.f_Get() == STDOUT_FILENO) {
        if (fcntl(STDOUT_FILENO, F_SETFD, 0) != 0) _exit(127);
      } else if (dup2(o_WriteEnd.f_Get(), STDOUT_FILENO) < 0) {
        _exit(127);
      }
    }
    // The service blocks no signals today, but a command must not inherit a blocked
    // SIGTERM from whoever calls us.
    sigset_t o_None;
    sigemptyset(&o_None);
    sigprocmask(SIG_SETMASK, &o_None, nullptr);
    execve("/bin/sh", a_z_c_Argv, o_EnvP.data());
    _exit(127);
  }

  o_WriteEnd.f_Reset();
  if (o_ReadEnd.f_IsOpen()) {
    // Read to the end even when the buffer is full: a command whose output we stopped
    // reading would die of SIGPIPE and report a failure it did not have.
    size_t ui_Len = 0;
    size_t ui_Cap = ui_Size > 0 ? ui_Size - 1 : 0;
    char a_c_Buf[512];
    for (;;) {
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
  pid_t i_Done;
  do {
    i_Done = waitpid(i_Pid, &i_Status, 0);
  } while (i_Done < 0 && errno == EINTR);
  if (i_Done != i_Pid) {
    syslog(LOG_WARNING, "f_SysCmd - wait: %s", strerror(errno));
    return -1;
  }
  return (WIFEXITED(i_Status) && WEXITSTATUS(i_Status) == 0) ? 0 : -1;
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
  std::string str_Out = "'";
  for (char c_Char : str_Text) {
    if (c_Char == '\'') {
      str_Out += "'\\''";
    } else {
      str_Out += c_Char;
    }
  }
  str_Out += "'";
  return str_Out;
}
