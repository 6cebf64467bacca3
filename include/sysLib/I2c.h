#pragma once
// A thin wrapper over an i2c-dev character device: open, select the slave, write, read.
// In a sandbox, when the (root-mapped) device is a regular file, it stands for one
// device with 16-bit registers: selecting a slave succeeds, a one-byte write selects
// register r, and a read returns the bytes at offset 2*r of the file.
#include <sys/types.h>

class I2cDev_CL {
 public:
  I2cDev_CL() = default;
  ~I2cDev_CL();
  I2cDev_CL(const I2cDev_CL&) = delete;
  I2cDev_CL& operator=(const I2cDev_CL&) = delete;

  // Opens the logical device path read-write. 0, or -1 with errno set.
  int f_Open(const char* z_c_Path);
  // Selects the 7-bit slave address (I2C_SLAVE). 0, or -1 with errno set.
  int f_SelectSlave(int i_Addr);
  // As write(2) / read(2).
  ssize_t f_Write(const void* z_v_Data, size_t ui_Len);
  ssize_t f_Read(void* z_v_Data, size_t ui_Len);
  void f_Close();

 private:
  int i_Fd = -1;
  bool b_FileBacked = false;
  unsigned char uc_Register = 0;
};
