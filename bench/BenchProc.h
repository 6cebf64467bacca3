#pragma once
// What the benchmark reads about a running service from /proc, and the private bus and
// service processes it starts and stops.
#include <sys/types.h>

#include <string>
#include <vector>

// CPU time of every thread of the process (the bus library does its I/O in a thread of
// its own), in nanoseconds; -1 when the process is gone.
long long f_ProcCpuNs(pid_t i_Pid);
// CPU time of the whole process over its life: every thread, also those that have ended
// (a thread pool's idle workers do), and the children it has waited for (the shell
// commands of the service's periodic checks), in nanoseconds at clock-tick resolution;
// -1 when the process is gone. For long windows, where f_ProcCpuNs would drop the time of
// a thread that ended inside the window.
long long f_ProcLifeCpuNs(pid_t i_Pid);
// Private dirty memory in kB (what the process alone keeps in RAM); -1 when unreadable.
long f_ProcPrivateDirtyKb(pid_t i_Pid);
// Number of open descriptors; -1 when unreadable.
int f_ProcOpenFds(pid_t i_Pid);
// Size of a file in bytes, -1 when it does not exist.
long long f_FileSize(const std::string& str_Path);

// A child process that is sent SIGTERM (and reaped) when the object goes.
class Child_CL {
 public:
  Child_CL() = default;
  ~Child_CL() { f_Stop(); }
  Child_CL(const Child_CL&) = delete;
  Child_CL& operator=(const Child_CL&) = delete;

  // Starts a_str_Argv with the extra environment entries ("NAME=value"), standard output
  // and error into str_LogFile. false when the program could not be started.
  bool f_Start(const std::vector<std::string>& a_str_Argv,
               const std::vector<std::string>& a_str_Env, const std::string& str_LogFile);
  // SIGTERM, then SIGKILL after i_GraceMs; waits for the process.
  void f_Stop(int i_GraceMs = 5000);
  bool f_Running();
  pid_t f_Pid() const { return i_Pid; }

 private:
  pid_t i_Pid = -1;
};
