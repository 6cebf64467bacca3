#include "sysLib/I2c.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sysLib/SysPath.h"

I2cDev_CL::~I2cDev_CL() { f_Close(); }

int I2cDev_CL::f_Open(const char* z_c_Path) {
  f_Close();
  std::string str_Path = f_SysPath(z_c_Path);
  i_Fd = open(str_Path.c_str(), O_RDWR | O_CLOEXEC);
  if (i_Fd < 0) return -1;
  struct stat o_St;
  // Only a sandbox may stand a plain file in for the bus device.
  b_FileBacked = f_SysInSandbox() && fstat(i_Fd, &o_St) == 0 && S_ISREG(o_St.st_mode);
  uc_Register = 0;
  return 0;
}

int I2cDev_CL::f_SelectSlave(int i_Addr) {
  if (i_Fd < 0) {
    errno = EBADF;
    return -1;
  }
  if (b_FileBacked) return 0;
  return ioctl(i_Fd, I2C_SLAVE, i_Addr) < 0 ? -1 : 0;
}

ssize_t I2cDev_CL::f_Write(const void* z_v_Data, size_t ui_Len) {
  if (!b_FileBacked) return write(i_Fd, z_v_Data, ui_Len);
  if (ui_Len >= 1) uc_Register = *static_cast<const unsigned char*>(z_v_Data);
  return static_cast<ssize_t>(ui_Len);
}

ssize_t I2cDev_CL::f_Read(void* z_v_Data, size_t ui_Len) {
  if (!b_FileBacked) return read(i_Fd, z_v_Data, ui_Len);
  return pread(i_Fd, z_v_Data, ui_Len, 2 * static_cast<off_t>(uc_Register));
}

void I2cDev_CL::f_Close() {
  if (i_Fd >= 0) close(i_Fd);
  i_Fd = -1;
  b_FileBacked = false;
}
