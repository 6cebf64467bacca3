#include "FuzzSupport.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "BatchCntCfg.h"
#include "ErrorHandler.h"
#include "SystemSrv.h"
#include "sysLib/Bms.h"
#include "sysLib/Error.h"
#include "sysLib/SysExcpt.h"

namespace fs = std::filesystem;

namespace {
std::string str_Top;   // the directory holding root/ and cwd/
std::string str_Root;  // SYSSRV_ROOT

void f_RemoveTop() {
  std::error_code o_Ec;  // a directory left in /tmp is no reason to fail a run
  if (!str_Top.empty()) fs::remove_all(str_Top, o_Ec);
}

// Names in a directory other than "." and ".."; -1 when it cannot be read.
long f_CountEntries(const std::string& str_Dir) {
  std::error_code o_Ec;
  fs::directory_iterator o_It(str_Dir, o_Ec);
  return o_Ec ? -1 : std::distance(o_It, fs::directory_iterator());
}

std::set<std::string> f_PathsUnderRoot() {
  std::set<std::string> o_Paths;
  std::error_code o_Ec;
  for (fs::recursive_directory_iterator o_It(str_Root, o_Ec), o_End; !o_Ec && o_It != o_End;
       o_It.increment(o_Ec))
    o_Paths.insert(o_It->path().string());
  return o_Paths;
}

void f_MakeRoot(bool b_Tool) {
  // The service fsyncs every file it writes: cheap on a RAM file system, not on a disk.
  const char* z_c_Tmp = std::getenv("TMPDIR");
  std::string str_Tmpl = z_c_Tmp != nullptr && *z_c_Tmp != '\0' ? z_c_Tmp
                         : access("/dev/shm", W_OK) == 0        ? "/dev/shm"
                                                                : "/tmp";
  str_Tmpl += "/syssrv-fuzz-XXXXXX";
  FUZZ_CHECK(mkdtemp(str_Tmpl.data()) != nullptr);
  str_Top = str_Tmpl;
  str_Root = str_Top + "/root";
  fs::create_directories(str_Root);
  fs::create_directories(str_Top + "/cwd");
  std::atexit(f_RemoveTop);
  const std::string str_Init = std::string(SYSSRV_SIM) + " init '" + str_Root + "' >/dev/null 2>&1";
  if (b_Tool) FUZZ_CHECK(std::system(str_Init.c_str()) == 0);
  setenv("SYSSRV_ROOT", str_Root.c_str(), 1);
  // A relative path the code under test opens lands here, where the check below sees it.
  FUZZ_CHECK(chdir((str_Top + "/cwd").c_str()) == 0);
}
}  // namespace

const std::string& f_FuzzRoot(bool b_Tool, bool b_CatchErrors) {
  if (str_Root.empty()) f_MakeRoot(b_Tool);
  if (b_CatchErrors) {  // errors raised through the process's error object stay off the bus
    Error_CL::f_GetErrorObj()->f_UseLocalStore();
    Error_CL::f_GetErrorObj()->f_AttachStore([](int) {});
  }
  return str_Root;
}

void f_FuzzFail(const char* z_c_Cond, const char* z_c_File, int i_Line) {
  std::fprintf(stderr, "FUZZ CHECK FAILED: %s (%s:%d)\n", z_c_Cond, z_c_File, i_Line);
  std::fflush(stderr);
  std::abort();
}

void f_FuzzWrite(const std::string& str_Logical, const std::string& str_Text) {
  fs::path o_Full = str_Root + str_Logical;
  std::error_code o_Ec;
  fs::create_directories(o_Full.parent_path(), o_Ec);
  std::ofstream(o_Full, std::ios::binary | std::ios::trunc) << str_Text;
}

bool f_FuzzRead(const std::string& str_Logical, std::string& str_Text) {
  std::ifstream o_In(str_Root + str_Logical, std::ios::binary);
  if (!o_In) return false;
  str_Text.assign(std::istreambuf_iterator<char>(o_In), std::istreambuf_iterator<char>());
  return true;
}

void f_FuzzRemoveNew() {
  static const std::set<std::string> o_Baseline = f_PathsUnderRoot();
  std::error_code o_Ec;  // the children of a directory removed before them are gone already
  for (const std::string& str_Path : f_PathsUnderRoot())
    if (o_Baseline.count(str_Path) == 0) fs::remove_all(str_Path, o_Ec);
}

bool f_FuzzNothingOutsideRoot() {
  return f_CountEntries(str_Top) == 2 && f_CountEntries(str_Top + "/cwd") == 0;
}

CJsonTree_T f_FuzzParse(const std::string& str_Text) {
  return CJsonTree_T(cJSON_Parse(str_Text.c_str()));
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
  for (char c_Next; ui_Left > 0 && str_Text.size() < ui_Max && (c_Next = f_Byte()) != '\0';)
    str_Text.push_back(c_Next);
  return str_Text;
}

std::string FuzzInput_CL::f_Rest() {
  std::string str_Text(reinterpret_cast<const char*>(z_uc_Pos), ui_Left);
  z_uc_Pos += ui_Left;
  ui_Left = 0;
  return str_Text;
}

ErrorHandler_CL* f_FuzzErrorStore() {
  static ErrorHandler_CL* z_o_Store = [] {
    f_FuzzRoot(true, true);
    try {
      z_o_Bms = new Bms_CL();
      return z_o_ErrorHandler = new ErrorHandler_CL(nullptr, 0, z_o_Bms);
    } catch (SysExcpt_CL* z_o_Excpt) {
      std::fprintf(stderr, "error store: %s\n", z_o_Excpt->f_GetText());
      f_FuzzFail("error store on the simulated tool", __FILE__, __LINE__);
    }
  }();
  return z_o_Store;
}

std::string f_FuzzSetText(const CounterSet_ST& o_Set) {
  std::string str_Text = std::to_string(o_Set.MaxOk) + ',' + std::to_string(o_Set.MaxNok) + ',';
  for (bool b_Flag : {o_Set.DirectionOk, o_Set.DirectionNok, o_Set.LockTool, o_Set.LockCcw,
                      o_Set.LockCcwAfterOk, o_Set.LockCcwAfterNok})
    str_Text += b_Flag ? '1' : '0';
  return str_Text;
}

std::string f_FuzzBatchText(const SysBatchCntCfg_CL& o_Cfg) {
  std::string str_Out = o_Cfg.f_GetBmsSelect() ? "B" : "b";
  CounterSet_ST o_Set;
  for (int i_Id = 0; i_Id <= 255; ++i_Id)
    if (o_Cfg.f_GetCounterSet(i_Id, &o_Set) == 0)
      str_Out += ' ' + std::to_string(i_Id) + ':' + f_FuzzSetText(o_Set);
  return str_Out;
}
