#include "FuzzSupport.h"

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <vector>

#include <cjson/cJSON.h>

#include "ErrorHandler.h"
#include "SystemSrv.h"
#include "sysLib/Bms.h"
#include "sysLib/Error.h"
#include "sysLib/SysExcpt.h"

namespace {
std::string str_Top;   // the directory holding root/ and cwd/
std::string str_Root;  // SYSSRV_ROOT

void f_RemoveTop() {
  std::error_code o_Ec;  // a directory left in /tmp is no reason to fail a run
  if (!str_Top.empty()) std::filesystem::remove_all(str_Top, o_Ec);
}

// Names in a directory other than "." and "..".
int f_CountEntries(const std::string& str_Dir) {
  DIR* z_o_Dir = opendir(str_Dir.c_str());
  if (z_o_Dir == nullptr) return -1;
  int i_Count = 0;
  while (const dirent* z_o_Ent = readdir(z_o_Dir)) {
    if (std::strcmp(z_o_Ent->d_name, ".") != 0 && std::strcmp(z_o_Ent->d_name, "..") != 0)
      ++i_Count;
  }
  closedir(z_o_Dir);
  return i_Count;
}
}  // namespace

void f_FuzzFail(const char* z_c_Cond, const char* z_c_File, int i_Line) {
  std::fprintf(stderr, "FUZZ CHECK FAILED: %s (%s:%d)\n", z_c_Cond, z_c_File, i_Line);
  std::fflush(stderr);
  std::abort();
}

const std::string& f_FuzzRoot(bool b_Tool) {
  if (!str_Root.empty()) return str_Root;
  // The service fsyncs every file it writes: on a RAM file system that costs nothing, on
  // a disk it would cost most of the run.
  const char* z_c_Tmp = std::getenv("TMPDIR");
  std::string str_Base = z_c_Tmp != nullptr && *z_c_Tmp != '\0' ? z_c_Tmp
                         : access("/dev/shm", W_OK) == 0 ? "/dev/shm"
                                                        : "/tmp";
  std::string str_Tmpl = str_Base + "/syssrv-fuzz-XXXXXX";
  if (mkdtemp(str_Tmpl.data()) == nullptr) f_FuzzFail("mkdtemp", __FILE__, __LINE__);
  str_Top = str_Tmpl;
  str_Root = str_Top + "/root";
  std::filesystem::create_directories(str_Root);
  std::filesystem::create_directories(str_Top + "/cwd");
  std::atexit(f_RemoveTop);
  if (b_Tool) {
    std::string str_Cmd = std::string(SYSSRV_SIM) + " init '" + str_Root + "' >/dev/null 2>&1";
    if (std::system(str_Cmd.c_str()) != 0) f_FuzzFail("syssrv-sim init", __FILE__, __LINE__);
  }
  setenv("SYSSRV_ROOT", str_Root.c_str(), 1);
  // A relative path the code under test opens lands here, where the check below sees it.
  if (chdir((str_Top + "/cwd").c_str()) != 0) f_FuzzFail("chdir", __FILE__, __LINE__);
  return str_Root;
}

void f_FuzzWrite(const std::string& str_Logical, const void* z_v_Data, size_t ui_Size) {
  std::string str_Full = str_Root + str_Logical;
  std::error_code o_Ec;
  std::filesystem::create_directories(str_Full.substr(0, str_Full.rfind('/')), o_Ec);
  std::ofstream o_Out(str_Full, std::ios::binary | std::ios::trunc);
  o_Out.write(static_cast<const char*>(z_v_Data), static_cast<std::streamsize>(ui_Size));
}

bool f_FuzzRead(const std::string& str_Logical, std::string& str_Text) {
  std::ifstream o_In(str_Root + str_Logical, std::ios::binary);
  if (!o_In) return false;
  std::stringstream o_Buf;
  o_Buf << o_In.rdbuf();
  str_Text = o_Buf.str();
  return true;
}

void f_FuzzRemove(const std::string& str_Logical) { unlink((str_Root + str_Logical).c_str()); }

void f_FuzzRemoveNew() {
  namespace fs = std::filesystem;
  static const std::set<std::string> o_Baseline = [] {
    std::set<std::string> o_Paths;
    std::error_code o_Ec;
    for (fs::recursive_directory_iterator o_It(str_Root, o_Ec), o_End; !o_Ec && o_It != o_End;
         o_It.increment(o_Ec))
      o_Paths.insert(o_It->path().string());
    return o_Paths;
  }();
  std::vector<fs::path> v_New;
  std::error_code o_Ec;
  for (fs::recursive_directory_iterator o_It(str_Root, o_Ec), o_End; !o_Ec && o_It != o_End;
       o_It.increment(o_Ec)) {
    if (o_Baseline.count(o_It->path().string()) != 0) continue;
    v_New.push_back(o_It->path());
    o_It.disable_recursion_pending();  // removed whole below
  }
  for (const fs::path& o_Path : v_New) fs::remove_all(o_Path, o_Ec);
}

bool f_FuzzNothingOutsideRoot() {
  return f_CountEntries(str_Top) == 2 && f_CountEntries(str_Top + "/cwd") == 0;
}

void f_FuzzCatchErrors() {
  Error_CL* z_o_Error = Error_CL::f_GetErrorObj();
  z_o_Error->f_UseLocalStore();
  z_o_Error->f_AttachStore([](int) {});
}

uint8_t FuzzInput_CL::f_Byte() {
  if (ui_Left == 0) return 0;
  --ui_Left;
  return *z_uc_Pos++;
}

int32_t FuzzInput_CL::f_Int() {
  uint32_t ui_Value = 0;
  for (int i = 0; i < 4; ++i) ui_Value = (ui_Value << 8) | f_Byte();
  return static_cast<int32_t>(ui_Value);
}

std::string FuzzInput_CL::f_Text(size_t ui_Max) {
  std::string str_Text;
  while (ui_Left > 0 && str_Text.size() < ui_Max) {
    char c_Next = static_cast<char>(f_Byte());
    if (c_Next == '\0') break;
    str_Text.push_back(c_Next);
  }
  return str_Text;
}

std::string FuzzInput_CL::f_Rest() {
  std::string str_Text(reinterpret_cast<const char*>(z_uc_Pos), ui_Left);
  z_uc_Pos += ui_Left;
  ui_Left = 0;
  return str_Text;
}

ErrorHandler_CL* f_FuzzErrorStore() {
  static ErrorHandler_CL* z_o_Store = nullptr;
  if (z_o_Store != nullptr) return z_o_Store;
  f_FuzzRoot(true);
  f_FuzzCatchErrors();
  try {
    z_o_Bms = new Bms_CL();
    z_o_Store = new ErrorHandler_CL(nullptr, 0, z_o_Bms);
  } catch (SysExcpt_CL* z_o_Excpt) {
    std::fprintf(stderr, "error store: %s\n", z_o_Excpt->f_GetText());
    delete z_o_Excpt;
    f_FuzzFail("error store on the simulated tool", __FILE__, __LINE__);
  }
  z_o_ErrorHandler = z_o_Store;
  return z_o_Store;
}

bool f_FuzzIsJsonObject(const char* z_c_Text) {
  if (z_c_Text == nullptr) return false;
  cJSON* z_o_Tree = cJSON_Parse(z_c_Text);
  CJsonTree_T o_TreeOwner(z_o_Tree);
  bool b_Ok = cJSON_IsObject(z_o_Tree);
  return b_Ok;
}
