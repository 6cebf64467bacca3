#include "SimRoot.h"

#include "SimCommon.h"

std::string SimRoot_CL::f_GpioPath(int i_Line) const {
  return str_Dir + f_Format(SimPath::GPIO_FMT, i_Line);
}

int SimRoot_CL::f_ReadHwRev() const {
  int i_Rev = 0;
  for (int i = 0; i < I_GPIO_HWREV_COUNT; ++i) {
    bool b_Found = false;
    std::string str_Level = f_ReadFileIfAny(f_GpioPath(I_GPIO_HWREV_FIRST + i), b_Found);
    if (!b_Found || str_Level.empty()) return -1;
    if (str_Level[0] == '1') i_Rev |= 1 << i;
  }
  return i_Rev;
}

void SimRoot_CL::f_WriteHwRev(int i_Rev) const {
  for (int i = 0; i < I_GPIO_HWREV_COUNT; ++i) {
    std::string str_Path = f_GpioPath(I_GPIO_HWREV_FIRST + i);
    f_MakeDirs(str_Path.substr(0, str_Path.rfind('/')));
    f_WriteFileAtomic(str_Path, ((i_Rev >> i) & 1) != 0 ? "1\n" : "0\n");
  }
}
