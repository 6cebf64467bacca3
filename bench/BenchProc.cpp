#include "BenchProc.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {
// Adjacent tick counters of a stat file (i_Count fields from i_Field on, counted from 1 as
// in proc(5)), summed, in nanoseconds; -1 when unreadable. One read, so the counters are
// of one moment.
long long f_StatTicksNs(const std::string& str_StatFile, int i_Field, int i_Count = 2) {
  std::ifstream o_Stat(str_StatFile);
  std::string str_Line;
  if (!std::getline(o_Stat, str_Line)) return -1;
  // The command name may hold spaces: field 3 starts after its ')'.
  size_t ui_Close = str_Line.rfind(')');
  if (ui_Close == std::string::npos) return -1;
  std::istringstream o_Fields(str_Line.substr(ui_Close + 2));
  std::string str_Skip;
  for (int i_Skip = 3; i_Skip < i_Field; ++i_Skip) o_Fields >> str_Skip;
  long long ll_Sum = 0;
  for (int i = 0; i < i_Count; ++i) {
    long long ll_Ticks = 0;
    if (!(o_Fields >> ll_Ticks)) return -1;
    ll_Sum += ll_Ticks;
  }
  return ll_Sum * (1000000000LL / sysconf(_SC_CLK_TCK));
}

// schedstat holds the run time in ns; stat only in clock ticks of 10 ms, too coarse for
// a phase of a second. The tick count is the fallback for kernels without schedstat.
long long f_TaskCpuNs(pid_t i_Pid, const char* z_c_Task) {
  std::string str_Dir = "/proc/" + std::to_string(i_Pid) + "/task/" + z_c_Task;
  std::ifstream o_Sched(str_Dir + "/schedstat");
  long long ll_Ns = -1;
  if (o_Sched >> ll_Ns) return ll_Ns;
  return f_StatTicksNs(str_Dir + "/stat", 14);  // utime, stime
}
}  // namespace

long long f_ProcCpuNs(pid_t i_Pid) {
  std::string str_Dir = "/proc/" + std::to_string(i_Pid) + "/task";
  DIR* z_o_Dir = opendir(str_Dir.c_str());
  if (z_o_Dir == nullptr) return -1;
  long long ll_Sum = 0;
  while (dirent* z_o_Ent = readdir(z_o_Dir)) {
    if (z_o_Ent->d_name[0] == '.') continue;
    long long ll_Ns = f_TaskCpuNs(i_Pid, z_o_Ent->d_name);
    if (ll_Ns > 0) ll_Sum += ll_Ns;
  }
  closedir(z_o_Dir);
  return ll_Sum;
}

long long f_ProcLifeCpuNs(pid_t i_Pid) {
  // utime, stime, cutime, cstime
  return f_StatTicksNs("/proc/" + std::to_string(i_Pid) + "/stat", 14, 4);
}

long f_ProcPrivateDirtyKb(pid_t i_Pid) {
  // smaps_rollup sums every mapping in the kernel; plain smaps is the older fallback.
  std::string str_Base = "/proc/" + std::to_string(i_Pid);
  for (const char* z_c_File : {"/smaps_rollup", "/smaps"}) {
    std::ifstream o_In(str_Base + z_c_File);
    if (!o_In) continue;
    long l_Sum = 0;
    bool b_Seen = false;
    std::string str_Key;
    long l_Kb = 0;
    std::string str_Line;
    while (std::getline(o_In, str_Line)) {
      if (str_Line.compare(0, 14, "Private_Dirty:") != 0) continue;
      std::istringstream o_Line(str_Line);
      if (o_Line >> str_Key >> l_Kb) {
        l_Sum += l_Kb;
        b_Seen = true;
      }
    }
    if (b_Seen) return l_Sum;
  }
  return -1;
}

int f_ProcOpenFds(pid_t i_Pid) {
  std::string str_Dir = "/proc/" + std::to_string(i_Pid) + "/fd";
  DIR* z_o_Dir = opendir(str_Dir.c_str());
  if (z_o_Dir == nullptr) return -1;
  int i_Count = 0;
  while (dirent* z_o_Ent = readdir(z_o_Dir))
    if (z_o_Ent->d_name[0] != '.') ++i_Count;
  closedir(z_o_Dir);
  return i_Count;
}

long long f_FileSize(const std::string& str_Path) {
  struct stat o_St {};
  return stat(str_Path.c_str(), &o_St) == 0 ? static_cast<long long>(o_St.st_size) : -1;
}

bool Child_CL::f_Start(const std::vector<std::string>& a_str_Argv,
                       const std::vector<std::string>& a_str_Env,
                       const std::string& str_LogFile) {
  if (a_str_Argv.empty()) return false;
  int i_Log = open(str_LogFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (i_Log < 0) return false;
  std::vector<char*> a_z_Argv;
  for (const std::string& str_Arg : a_str_Argv) a_z_Argv.push_back(const_cast<char*>(str_Arg.c_str()));
  a_z_Argv.push_back(nullptr);
  pid_t i_Child = fork();
  if (i_Child == 0) {
    for (const std::string& str_Env : a_str_Env) putenv(const_cast<char*>(str_Env.c_str()));
    dup2(i_Log, STDOUT_FILENO);
    dup2(i_Log, STDERR_FILENO);
    int i_Null = open("/dev/null", O_RDONLY);
    if (i_Null >= 0) dup2(i_Null, STDIN_FILENO);
    execvp(a_z_Argv[0], a_z_Argv.data());
    std::fprintf(stderr, "exec %s: %s\n", a_z_Argv[0], std::strerror(errno));
    _exit(127);
  }
  close(i_Log);
  if (i_Child < 0) return false;
  i_Pid = i_Child;
  return true;
}

bool Child_CL::f_Running() {
  if (i_Pid <= 0) return false;
  int i_Status = 0;
  if (waitpid(i_Pid, &i_Status, WNOHANG) == 0) return true;
  i_Pid = -1;
  return false;
}

void Child_CL::f_Stop(int i_GraceMs) {
  if (!f_Running()) return;
  kill(i_Pid, SIGTERM);
  // SysSrv ends at its next 250 ms tick; give it a few of them.
  for (int i_Waited = 0; i_Waited < i_GraceMs; i_Waited += 20) {
    if (waitpid(i_Pid, nullptr, WNOHANG) == i_Pid) {
      i_Pid = -1;
      return;
    }
    usleep(20000);
  }
  kill(i_Pid, SIGKILL);
  waitpid(i_Pid, nullptr, 0);
  i_Pid = -1;
}
