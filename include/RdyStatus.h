#pragma once
// Readiness flags: the required flags (RdySoll) as configured in "rdystatus.json".
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// The readiness words hold 32 flags; a number outside them requires and sets nothing.
inline bool f_RdyFlagNrOk(int i_Nr) { return i_Nr >= 0 && i_Nr < 32; }

// One configured flag, kept for the readiness dump.
class RdySollStatus_CL {
 public:
  RdySollStatus_CL(int i_FlagNr, const char* z_c_Name, bool b_Required);

  int f_GetNr() const { return i_Nr; }
  const char* f_GetName() const { return str_Name.c_str(); }
  bool f_GetStatus() const { return b_Status; }

 private:
  int i_Nr;
  std::string str_Name;
  bool b_Status;
};

// The configured table: the required-flags mask and the named flags in file order.
class RdyStatus_CL {
 public:
  static constexpr const char* A_C_RDY_STATUS_SOLL_PATH = "/home/tool/config/log/rdystatus.json";
  static constexpr const char* A_C_RDY_KEY_FLAG = "flags";
  static constexpr const char* A_C_RDY_KEY_NR = "nr";
  static constexpr const char* A_C_RDY_KEY_STATE = "state";
  static constexpr const char* A_C_RDY_KEY_PROCNAME = "name";

  using RdySollList_T = std::vector<std::unique_ptr<RdySollStatus_CL>>;

  // Reads the file; a file that cannot be used throws
  // SysExcpt_CL*(4, "RdyStatus_CL::f_ReadRdySoll", false).
  RdyStatus_CL();
  RdyStatus_CL(const RdyStatus_CL&) = delete;
  RdyStatus_CL& operator=(const RdyStatus_CL&) = delete;

  // 0, or -1 when the file is missing, does not parse or has no "flags" array.
  int f_ReadRdySoll();
  uint32_t f_GetRdySoll() const { return ui_RdySoll; }
  const RdySollList_T& f_GetRdySollStatusList() const { return o_List; }

 private:
  uint32_t ui_RdySoll = 0;
  RdySollList_T o_List;
};
