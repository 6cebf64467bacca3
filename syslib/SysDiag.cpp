// The diagnostic store: one small text file per parameter under /var/sysdiag, read by the
// controller's diagnostics and by service tools.
#include "sysLib/SysDiag.h"

#include <cerrno>
#include <cstdarg>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <syslog.h>

#include "sysLib/SysFile.h"
#include "sysLib/SysPath.h"

namespace {
constexpr const char* A_C_DIAG_DIR = "/var/sysdiag";
constexpr size_t UI_MAX_VALUE = 4096;  // a parameter is a short text; anything longer is junk
constexpr const char* A_C_SPACE = " \t\r\n\v\f";

// Parameter names are relative paths inside the store; nothing may climb out of it.
bool f_KeyOk(const char* z_c_Key) {
  if (z_c_Key == nullptr || *z_c_Key == '\0' || *z_c_Key == '/') return false;
  std::string str_Key = z_c_Key;
  size_t ui_Start = 0;
  while (ui_Start <= str_Key.size()) {
    size_t ui_End = str_Key.find('/', ui_Start);
    if (ui_End == std::string::npos) ui_End = str_Key.size();
    std::string str_Part = str_Key.substr(ui_Start, ui_End - ui_Start);
    if (str_Part.empty() || str_Part == "." || str_Part == "..") return false;
    ui_Start = ui_End + 1;
  }
  return true;
}

std::string f_DiagPath(const char* z_c_Key) {
  return f_SysPath(std::string(A_C_DIAG_DIR) + "/" + z_c_Key);
}

// The value text without surrounding white space; -1 with errno set when unreadable.
int f_ReadValue(const char* z_c_Key, std::string& str_Value) {
  if (!f_KeyOk(z_c_Key)) {
    errno = EINVAL;
    return -1;
  }
  if (f_ReadWholeFile(f_DiagPath(z_c_Key), str_Value, UI_MAX_VALUE) != 0) return -1;
  size_t ui_First = str_Value.find_first_not_of(A_C_SPACE);
  if (ui_First == std::string::npos) {
    str_Value.clear();
  } else {
    str_Value = str_Value.substr(ui_First, str_Value.find_last_not_of(A_C_SPACE) - ui_First + 1);
  }
  return 0;
}

// An unsigned decimal that fits 32 bits, nothing else ("-1" and "12abc" are refused).
int f_ParseUnsigned(const std::string& str_Text, unsigned int* z_ui_Out) {
  if (str_Text.empty() || str_Text[0] < '0' || str_Text[0] > '9') return -1;
  errno = 0;
  char* z_c_End = nullptr;
  unsigned long ul_Value = std::strtoul(str_Text.c_str(), &z_c_End, 10);
  if (errno != 0 || *z_c_End != '\0' || ul_Value > UINT_MAX) return -1;
  *z_ui_Out = static_cast<unsigned int>(ul_Value);
  return 0;
}

// Temporary file and rename: a reader never sees half a value. No fsync: every value
// here mirrors one whose source of truth lives elsewhere (nameplate, battery reading)
// and is written again at start, while the store is rewritten on every change. Nothing
// is logged here: a failure sends the caller down its slow path, which makes the
// directories, tries again and logs what still fails.
int f_TryWrite(const char* z_c_Key, const char* z_c_Value) {
  return f_ReplaceFile(f_DiagPath(z_c_Key), z_c_Value, false);
}

// A parameter inside a subdirectory of the store, the subdirectory made only when the
// first attempt shows it is missing.
int f_SetInSubDir(const char* z_c_Dir, const char* z_c_Key, int i_Value) {
  char a_c_Value[16];
  std::snprintf(a_c_Value, sizeof(a_c_Value), "%d", i_Value);
  if (f_TryWrite(z_c_Key, a_c_Value) == 0) return 0;
  f_SysDiagMakeSubDir(z_c_Dir);
  return f_SysDiagSetParam(z_c_Key, a_c_Value) == 0 ? 0 : -1;
}

// Formats a number into a bounded buffer and stores it; a value that does not fit is
// refused rather than cut.
int f_SetFormatted(const char* z_c_Key, const char* z_c_Fmt, ...) {
  char a_c_Value[64];
  va_list o_Args;
  va_start(o_Args, z_c_Fmt);
  int i_Len = std::vsnprintf(a_c_Value, sizeof(a_c_Value), z_c_Fmt, o_Args);
  va_end(o_Args);
  if (i_Len < 0 || static_cast<size_t>(i_Len) >= sizeof(a_c_Value)) {
    syslog(LOG_WARNING, "f_SysDiagSetParam - %s: value does not fit", z_c_Key);
    return -1;
  }
  return f_SysDiagSetParam(z_c_Key, a_c_Value);
}
}  // namespace

int f_SysDiagSetParam(const char* z_c_Key, const char* z_c_Value) {
  if (!f_KeyOk(z_c_Key) || z_c_Value == nullptr) {
    syslog(LOG_WARNING, "f_SysDiagSetParam - invalid parameter '%s'",
           z_c_Key != nullptr ? z_c_Key : "(null)");
    return -1;
  }
  if (f_TryWrite(z_c_Key, z_c_Value) == 0) return 0;
  // Only a write that failed (a fresh tool, a cleared /var) pays for the directory walk.
  std::string str_Dir = f_SysPath(A_C_DIAG_DIR);
  if (f_MakeDirs(str_Dir) != 0 || f_TryWrite(z_c_Key, z_c_Value) != 0) {
    syslog(LOG_WARNING, "f_SysDiagSetParam - %s: %s", z_c_Key, strerror(errno));
    return -1;
  }
  return 0;
}

int f_SysDiagGetParam(const char* z_c_Key, char* a_c_Buf, unsigned int ui_Size) {
  if (a_c_Buf == nullptr || ui_Size == 0) return -1;
  a_c_Buf[0] = '\0';
  std::string str_Value;
  if (f_ReadValue(z_c_Key, str_Value) != 0) {
    syslog(LOG_WARNING, "f_SysDiagGetParam - %s: %s", z_c_Key != nullptr ? z_c_Key : "(null)",
           strerror(errno));
    return -1;
  }
  if (str_Value.size() >= ui_Size) {
    syslog(LOG_WARNING, "f_SysDiagGetParam - %s: value of %zu bytes does not fit %u", z_c_Key,
           str_Value.size(), ui_Size);
    return -1;
  }
  std::memcpy(a_c_Buf, str_Value.c_str(), str_Value.size() + 1);
  return 0;
}

int f_SysDiagMakeSubDir(const char* z_c_Dir) {
  if (!f_KeyOk(z_c_Dir) || f_MakeDirs(f_DiagPath(z_c_Dir)) != 0) {
    syslog(LOG_WARNING, "f_SysDiagMakeSubDir - %s: %s", z_c_Dir != nullptr ? z_c_Dir : "(null)",
           strerror(errno));
    return -1;
  }
  return 0;
}

int f_SysDiagSetCycle(unsigned int ui_Cycle) { return f_SetFormatted("cycle", "%u", ui_Cycle); }

int f_SysDiagGetCycle(unsigned int* z_ui_Cycle) {
  std::string str_Value;
  if (z_ui_Cycle == nullptr || f_ReadValue("cycle", str_Value) != 0) return -1;
  if (f_ParseUnsigned(str_Value, z_ui_Cycle) != 0) {
    syslog(LOG_WARNING, "f_SysDiagGetCycle - not a cycle count: '%s'", str_Value.c_str());
    return -1;
  }
  return 0;
}

int f_SysDiagSetTorqueLoad(double d_Load) { return f_SetFormatted("torqueload", "%f", d_Load); }

int f_SysDiagGetTorqueLoad(double* z_d_Load) {
  std::string str_Value;
  if (z_d_Load == nullptr || f_ReadValue("torqueload", str_Value) != 0 || str_Value.empty()) {
    return -1;
  }
  char* z_c_End = nullptr;
  double d_Value = std::strtod(str_Value.c_str(), &z_c_End);
  if (*z_c_End != '\0') {
    syslog(LOG_WARNING, "f_SysDiagGetTorqueLoad - not a number: '%s'", str_Value.c_str());
    return -1;
  }
  *z_d_Load = d_Value;
  return 0;
}

int f_SysDiagSetLoadStartCycle(unsigned int ui_Cycle) {
  return f_SetFormatted("loadstartcycle", "%u", ui_Cycle);
}

int f_SysDiagSetTemperature(float fl_Temperature) {
  return f_SetFormatted("temperature", "%.2f", static_cast<double>(fl_Temperature));
}

int f_SysDiagGetSrbMod(bool* z_b_Busy) {
  if (z_b_Busy == nullptr) return -1;
  *z_b_Busy = false;
  std::string str_Value;
  if (f_ReadValue("srbmod", str_Value) != 0) {
    // No file: nobody has switched the busy mode on.
    return errno == ENOENT ? 0 : -1;
  }
  *z_b_Busy = str_Value == "1";
  return 0;
}

int f_SysDiagSetBatteryStatus(int i_Status) {
  return f_SetInSubDir("battery", "battery/status", i_Status);
}

int f_SysDiagSetBatteryPower(int i_Power) {
  return f_SetInSubDir("battery", "battery/power", i_Power);
}
