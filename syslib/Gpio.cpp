// One GPIO line through the kernel's sysfs value file.
#include "sysLib/Gpio.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include "sysLib/SysFile.h"
#include "sysLib/SysPath.h"

namespace {
std::string f_ValuePath(unsigned short us_Line) {
  char a_c_Path[64];
  std::snprintf(a_c_Path, sizeof(a_c_Path), "/sys/class/gpio/gpio%u/value",
                static_cast<unsigned>(us_Line));
  return f_SysPath(a_c_Path);
}
}  // namespace

Gpio_CL::Gpio_CL(unsigned short us_Line, bool b_Output, bool b_ActiveLow)
    : us_Line(us_Line), b_Output(b_Output), b_ActiveLow(b_ActiveLow) {}

int Gpio_CL::f_Read() {
  std::string str_Path = f_ValuePath(us_Line);
  UniqueFd_CL o_Fd(open(str_Path.c_str(), O_RDONLY | O_CLOEXEC));
  char c_Value = '\0';
  ssize_t i_Got = -1;
  if (o_Fd.f_IsOpen()) {
    do {
      i_Got = read(o_Fd.f_Get(), &c_Value, 1);
    } while (i_Got < 0 && errno == EINTR);
  }
  if (i_Got != 1 || (c_Value != '0' && c_Value != '1')) {
    syslog(LOG_WARNING, "Gpio_CL::f_Read - line %u: %s", static_cast<unsigned>(us_Line),
           i_Got < 0 ? strerror(errno) : "no level");
    return -1;
  }
  // The class inverts an active-low line itself and leaves the kernel's active_low alone.
  int i_Level = c_Value == '1' ? 1 : 0;
  return b_ActiveLow ? 1 - i_Level : i_Level;
}

int Gpio_CL::f_Write(bool b_Value) {
  if (!b_Output) {
    syslog(LOG_WARNING, "Gpio_CL::f_Write - line %u is an input", static_cast<unsigned>(us_Line));
  }
  std::string str_Path = f_ValuePath(us_Line);
  // No O_CREAT: a line that is not exported must fail, not leave a stray file behind.
  UniqueFd_CL o_Fd(open(str_Path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
  bool b_Level = b_ActiveLow ? !b_Value : b_Value;
  if (!o_Fd.f_IsOpen() || f_WriteAll(o_Fd.f_Get(), b_Level ? "1" : "0", 1) != 0) {
    syslog(LOG_WARNING, "Gpio_CL::f_Write - line %u: %s", static_cast<unsigned>(us_Line),
           strerror(errno));
    return -1;
  }
  return 0;
}
