#include "TestSupport.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace {
void f_MakeDirs(const std::string& str_Dir) {
  std::string str_Cur;
  std::stringstream o_In(str_Dir);
  std::string str_Part;
  while (std::getline(o_In, str_Part, '/')) {
    if (str_Part.empty()) continue;
    str_Cur += "/" + str_Part;
    mkdir(str_Cur.c_str(), 0755);
  }
}
}  // namespace

TempRoot::TempRoot() {
  char a_c_Tmpl[] = "/tmp/syssrv-unit-XXXXXX";
  if (mkdtemp(a_c_Tmpl) == nullptr) throw std::runtime_error("mkdtemp failed");
  str_Dir = a_c_Tmpl;
  setenv("SYSSRV_ROOT", str_Dir.c_str(), 1);
}

TempRoot::~TempRoot() {
  unsetenv("SYSSRV_ROOT");
  std::string str_Cmd = "rm -rf '" + str_Dir + "'";
  if (std::system(str_Cmd.c_str()) != 0) {
    // Leaving a temporary directory behind is harmless for the test result.
  }
}

void TempRoot::f_Write(const std::string& str_Logical, const std::string& str_Content) const {
  std::string str_Full = f_Path(str_Logical);
  f_MakeDirs(str_Full.substr(0, str_Full.rfind('/')));
  std::ofstream o_Out(str_Full, std::ios::binary | std::ios::trunc);
  o_Out << str_Content;
}

std::string TempRoot::f_Read(const std::string& str_Logical) const {
  std::ifstream o_In(f_Path(str_Logical), std::ios::binary);
  std::stringstream o_Buf;
  o_Buf << o_In.rdbuf();
  return o_Buf.str();
}

bool TempRoot::f_Exists(const std::string& str_Logical) const {
  return access(f_Path(str_Logical).c_str(), F_OK) == 0;
}

void TempRoot::f_InitSim() const {
  std::string str_Cmd = std::string(SYSSRV_SIM) + " init '" + str_Dir + "' >/dev/null";
  if (std::system(str_Cmd.c_str()) != 0) throw std::runtime_error("syssrv-sim init failed");
}
