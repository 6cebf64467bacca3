#pragma once
// What every fuzz target shares: the libFuzzer entry points, a sandbox root that lives for
// the whole process, a reader that cuts an input into typed pieces, and the check that
// turns a broken rule into a crash the fuzzer keeps.
#include <cstddef>
#include <cstdint>
#include <string>

#include "sysLib/Holders.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* z_uc_Data, size_t ui_Size);

// Aborts with the rule and its place when z_b_Holds is false: libFuzzer saves the input
// that did it, the replay driver names the corpus file.
#define FUZZ_CHECK(cond) \
  ((cond) ? (void)0 : f_FuzzFail(#cond, __FILE__, __LINE__))
[[noreturn]] void f_FuzzFail(const char* z_c_Cond, const char* z_c_File, int i_Line);

// The sandbox of this process: a fresh directory with the root inside it and an empty
// working directory beside it, SYSSRV_ROOT pointing at the root. With b_Tool the root is
// a complete simulated tool (syssrv-sim init). Made on the first call, removed at exit.
const std::string& f_FuzzRoot(bool b_Tool);
// Writes bytes to a logical path under the root, making its directories.
void f_FuzzWrite(const std::string& str_Logical, const void* z_v_Data, size_t ui_Size);
inline void f_FuzzWrite(const std::string& str_Logical, const std::string& str_Text) {
  f_FuzzWrite(str_Logical, str_Text.data(), str_Text.size());
}
// The file at a logical path; false when it cannot be read.
bool f_FuzzRead(const std::string& str_Logical, std::string& str_Text);
void f_FuzzRemove(const std::string& str_Logical);
// Removes every file and directory under the root that was not there on the first call
// (which only notes what is there): what one input made, such as the directories of a
// database path or a list moved aside, stays out of the next input's way, and the sandbox
// does not grow over millions of runs.
void f_FuzzRemoveNew();
// True while nothing has appeared beside the root or in the working directory: whatever
// an input makes the service write must land inside the root.
bool f_FuzzNothingOutsideRoot();
// Errors the code under test raises through the process's error object are kept here
// instead of going to a bus; the list is cleared on every call.
void f_FuzzCatchErrors();

// Cuts an input into numbers and texts; reads past the end give zeros and empty texts.
class FuzzInput_CL {
 public:
  FuzzInput_CL(const uint8_t* z_uc_Data, size_t ui_Size) : z_uc_Pos(z_uc_Data), ui_Left(ui_Size) {}
  uint8_t f_Byte();
  int32_t f_Int();
  // Up to ui_Max bytes, ended early by a zero byte (which is consumed).
  std::string f_Text(size_t ui_Max);
  // Everything left.
  std::string f_Rest();
  size_t f_Left() const { return ui_Left; }

 private:
  const uint8_t* z_uc_Pos;
  size_t ui_Left;
};

class ErrorHandler_CL;
// The service's error store on the simulated tool's database (made on the first call,
// with the root), also installed as the service's global store for the bus handlers.
ErrorHandler_CL* f_FuzzErrorStore();
// The JSON text parses and is an object; for the texts the service hands out.
bool f_FuzzIsJsonObject(const char* z_c_Text);
