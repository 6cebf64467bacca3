#pragma once
// The platform's error object: one per process. Flag operations act on RdyIst in
// "/ErrorShMem". f_Insert inside the service goes to its error store (held until the
// store has opened its database); in any other process it is sent as "freporterror".
#include <functional>
#include <string>
#include <vector>

class ShMem_CL;

class Error_CL {
 public:
  static Error_CL* f_GetErrorObj();

  // Set or reset bit i_Nr (0..31) of RdyIst; 0, or -1 when the segment is not mapped or
  // the number is out of range.
  int f_SetRdyFlag(int i_Nr);
  int f_ResetRdyFlag(int i_Nr);
  bool f_IsRdyFlagSet(int i_Nr);

  // Reports a coded error number (code * 8 + class). 0 stored or sent or held, -1 failed.
  int f_Insert(int i_CodedErr);

  // The service calls this once at start: from then on f_Insert never goes to the bus
  // but is held until a store is attached.
  void f_UseLocalStore();
  // Attaches the service's error store; errors held so far are handed over in order.
  void f_AttachStore(std::function<void(int)> o_Sink);
  void f_DetachStore();
  // Errors held while no store is attached (for tests and logs).
  const std::vector<int>& f_GetHeld() const { return o_Held; }
  // Process name sent with "freporterror" from other processes.
  void f_SetProcName(const char* z_c_Name) { str_ProcName = z_c_Name; }

 private:
  Error_CL();
  ShMem_CL* f_ShMem();
  ShMem_CL* z_o_ShMem = nullptr;
  std::string str_ShMemPath;  // file behind z_o_ShMem; a changed root maps anew
  bool b_Local = false;
  std::function<void(int)> o_Sink;
  std::vector<int> o_Held;
  std::string str_ProcName;
};
