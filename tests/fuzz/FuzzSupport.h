#pragma once
// What the fuzz targets share: the sandbox, an input reader, and rules that fail as crashes.
#include <cstddef>
#include <cstdint>
#include <string>

#include "sysLib/Holders.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* z_uc_Data, size_t ui_Size);

// Aborts with the rule and its place: libFuzzer keeps the input, the replay names its file.
#define FUZZ_CHECK(cond) ((cond) ? (void)0 : f_FuzzFail(#cond, __FILE__, __LINE__))
[[noreturn]] void f_FuzzFail(const char* z_c_Cond, const char* z_c_File, int i_Line);

// A target's entry: the sandbox, the body (input o_In), then nothing written outside the root.
#define FUZZ_TARGET(b_Tool, b_CatchErrors)                                          \
  static void f_FuzzOne(FuzzInput_CL& o_In);                                        \
  extern "C" int LLVMFuzzerTestOneInput(const uint8_t* z_uc_Data, size_t ui_Size) { \
    f_FuzzRoot(b_Tool, b_CatchErrors);                                              \
    FuzzInput_CL o_In(z_uc_Data, ui_Size);                                          \
    f_FuzzOne(o_In);                                                                \
    FUZZ_CHECK(f_FuzzNothingOutsideRoot());                                         \
    return 0;                                                                       \
  }                                                                                 \
  static void f_FuzzOne(FuzzInput_CL& o_In)

// The sandbox root (b_Tool: a simulated tool) and an empty cwd, made once, removed at exit.
const std::string& f_FuzzRoot(bool b_Tool, bool b_CatchErrors = false);
// Writes bytes to a logical path under the root, making its directories.
void f_FuzzWrite(const std::string& str_Logical, const std::string& str_Text);
// The file at a logical path; false when it cannot be read.
bool f_FuzzRead(const std::string& str_Logical, std::string& str_Text);
// Removes what is new under the root since the first call, so that inputs do not pile up.
void f_FuzzRemoveNew();
// True while whatever an input made the service write landed inside the root.
bool f_FuzzNothingOutsideRoot();
CJsonTree_T f_FuzzParse(const std::string& str_Text);
inline bool f_FuzzIsJsonObject(const char* z_c_Text) {
  return z_c_Text != nullptr && cJSON_IsObject(f_FuzzParse(z_c_Text).get());
}

// Cuts an input into numbers and texts; reads past the end give zeros and empty texts.
class FuzzInput_CL {
 public:
  FuzzInput_CL(const uint8_t* z_uc_Data, size_t ui_Size) : z_uc_Pos(z_uc_Data), ui_Left(ui_Size) {}
  uint8_t f_Byte();
  int32_t f_Int();  // four bytes, the first the highest
  // Up to ui_Max bytes, ended early by a zero byte (which is consumed).
  std::string f_Text(size_t ui_Max);
  std::string f_Rest();
  size_t f_Left() const { return ui_Left; }

 private:
  const uint8_t* z_uc_Pos;
  size_t ui_Left;
};

class ErrorHandler_CL;
// The service's global error store on the simulated tool's database, made once.
ErrorHandler_CL* f_FuzzErrorStore();

struct CounterSet_ST;
class SysBatchCntCfg_CL;
constexpr const char* A_C_FUZZ_PRG_PATH = "/home/tool/config/OkNokCntCfg.json";
constexpr const char* A_C_FUZZ_JOB_PATH = "/home/tool/config/JobOkNokCntCfg.json";
std::string f_FuzzSetText(const CounterSet_ST& o_Set);
// Sets 0..255 and the selection flag: one text for configurations the tool cannot tell apart.
std::string f_FuzzBatchText(const SysBatchCntCfg_CL& o_Cfg);
