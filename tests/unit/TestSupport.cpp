#include "TestSupport.h"

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

TempRoot::TempRoot() {
  char a_c_Tmpl[] = "/tmp/syssrv-unit-XXXXXX";
  if (mkdtemp(a_c_Tmpl) == nullptr) throw std::runtime_error("mkdtemp failed");
  str_Dir = a_c_Tmpl;
  setenv("SYSSRV_ROOT", str_Dir.c_str(), 1);
}

TempRoot::~TempRoot() {
  unsetenv("SYSSRV_ROOT");
  std::error_code o_Ec;  // a directory left behind does not change a test's result
  if (getenv("SYSSRV_KEEP_SANDBOX") == nullptr) std::filesystem::remove_all(str_Dir, o_Ec);
}

void TempRoot::f_Write(const std::string& str_Logical, const std::string& str_Content) const {
  std::filesystem::path o_Full = f_Path(str_Logical);
  std::error_code o_Ec;  // a parent that cannot be made shows when the file is used
  std::filesystem::create_directories(o_Full.parent_path(), o_Ec);
  std::ofstream(o_Full, std::ios::binary | std::ios::trunc) << str_Content;
}

std::string TempRoot::f_Read(const std::string& str_Logical) const {
  std::ifstream o_In(f_Path(str_Logical), std::ios::binary);
  return {std::istreambuf_iterator<char>(o_In), std::istreambuf_iterator<char>()};
}

void TempRoot::f_InitSim() const {
  if (f_Sim("init '" + str_Dir + "' >/dev/null") != 0)
    throw std::runtime_error("syssrv-sim init failed");
}

int TempRoot::f_Sim(const std::string& str_Args) const {
  const int i_Status = std::system((std::string(SYSSRV_SIM) + " " + str_Args).c_str());
  return WIFEXITED(i_Status) ? WEXITSTATUS(i_Status) : -1;
}
