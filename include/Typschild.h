#pragma once
// Base of the tool's two nameplates ("Typschild"): the motor unit's EEPROM and the
// spindle's 1-Wire memory. It owns the buffer every read of the device fills and the
// device's logical path (root-mapped only when the device is opened).
#include <cstdio>
#include <memory>
#include <new>
#include <string>
#include <syslog.h>
#include <utility>

#include "sysLib/Holders.h"
#include "sysLib/SysPath.h"

class Typschild_CL {
 public:
  Typschild_CL(std::string str_DevPath, unsigned int ui_Size)
      : ui_BufSize(ui_Size), str_Path(std::move(str_DevPath)) {
    syslog(LOG_INFO, "Typschild_CL::Typschild_CL %s, %d", str_Path.c_str(),
           static_cast<int>(ui_Size));
    // One byte more than any read asks for, zero from the start and never overwritten:
    // whatever the device holds, a text search in the buffer ends inside it. Zeroed so
    // that a short first read leaves defined bytes behind it. A failed allocation leaves
    // the nameplate without a buffer (every read then fails) rather than throwing out of
    // the service's start-up.
    a_c_Buffer.reset(new (std::nothrow) char[static_cast<size_t>(ui_Size) + 1]());
    if (!a_c_Buffer) {
      syslog(LOG_CRIT, "Typschild_CL::Typschild_CL - no memory for %u bytes", ui_Size);
    }
  }
  virtual ~Typschild_CL() = default;
  Typschild_CL(const Typschild_CL&) = delete;
  Typschild_CL& operator=(const Typschild_CL&) = delete;

  // 0 for success, -1 for failure.
  virtual int f_Read() = 0;
  virtual int f_Write() = 0;
  virtual int f_CheckCrc() = 0;

  const std::string& f_GetPath() const { return str_Path; }

 protected:
  // The device opened with fopen's z_c_Mode; empty (errno set) when it did not open.
  File_T f_OpenDevice(const char* z_c_Mode) const {
    return File_T(std::fopen(f_SysPath(str_Path).c_str(), z_c_Mode));
  }

  std::unique_ptr<char[]> a_c_Buffer;  // ui_BufSize + 1 bytes, the last one always zero
  unsigned int ui_BufSize;             // bytes every read asks for
  std::string str_Path;                // logical device path
};
