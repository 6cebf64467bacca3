#pragma once
// Exception type of the platform's constructors; thrown by pointer, the catcher deletes it.
#include <string>

class SysExcpt_CL {
 public:
  // i_Code: library-defined code; z_c_Text: what failed; b_Log: also write it to syslog.
  SysExcpt_CL(int i_Code, const char* z_c_Text, bool b_Log);
  virtual ~SysExcpt_CL();
  int f_GetCode() const { return i_Code; }
  const char* f_GetText() const { return str_Text.c_str(); }

 private:
  int i_Code;
  std::string str_Text;
};
