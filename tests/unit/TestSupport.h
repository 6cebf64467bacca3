#pragma once
// A sandbox root for the unit tests: a fresh directory SYSSRV_ROOT points at while it lives.
#include <unistd.h>

#include <string>

class TempRoot {
 public:
  TempRoot();
  ~TempRoot();
  TempRoot(const TempRoot&) = delete;
  TempRoot& operator=(const TempRoot&) = delete;

  const std::string& f_Dir() const { return str_Dir; }
  // Absolute host path of a logical path inside the root.
  std::string f_Path(const std::string& str_Logical) const { return str_Dir + str_Logical; }
  // Writes a file (creating its directories) at a logical path.
  void f_Write(const std::string& str_Logical, const std::string& str_Content) const;
  // Reads a file at a logical path; empty when missing.
  std::string f_Read(const std::string& str_Logical) const;
  bool f_Exists(const std::string& str_Logical) const {
    return access(f_Path(str_Logical).c_str(), F_OK) == 0;
  }
  // Runs "syssrv-sim init" on the root (the complete simulated tool).
  void f_InitSim() const;
  // Runs a shell command line behind the simulator's path on the root; its exit status.
  int f_Sim(const std::string& str_Args) const;

 private:
  std::string str_Dir;
};
