// The spindle's 1-Wire nameplate: one binary record with material number, serial number,
// rated torque and a CRC.
#include "TypschildWelle.h"

#include <cerrno>
#include <cstring>
#include <syslog.h>

#include "sysLib/Crc.h"

TypschildWelle_CL::TypschildWelle_CL() : Typschild_CL(A_C_DEVICE_PATH, UI_RECORD_SIZE) { f_Read(); }

unsigned int TypschildWelle_CL::f_GetU16(unsigned int ui_Offset) const {
  const unsigned char* z_uc_Buf = reinterpret_cast<const unsigned char*>(a_c_Buffer.get());
  return static_cast<unsigned int>(z_uc_Buf[ui_Offset]) |
         (static_cast<unsigned int>(z_uc_Buf[ui_Offset + 1]) << 8);
}

int TypschildWelle_CL::f_Read() {
  if (!a_c_Buffer) return -1;
  size_t ui_Got = 0;
  {
    File_T o_File = f_OpenDevice("r");
    if (!o_File) {
      syslog(LOG_CRIT, "TypschildWelle_CL::f_Read - fopen %s - %s", f_SysPath(str_Path).c_str(),
             strerror(errno));
      return -1;
    }
    clearerr(o_File.get());
    errno = 0;
    ui_Got = std::fread(a_c_Buffer.get(), 1, ui_BufSize, o_File.get());
    if (ui_Got == 0) {
      syslog(LOG_CRIT, "TypschildWelle_CL::f_Read - fread %d - %s", static_cast<int>(ui_BufSize),
             strerror(errno));
      return -1;
    }
    syslog(LOG_INFO, "TypschildWelle_CL::f_Read - %d Bytes read", static_cast<int>(ui_Got));
  }
  // A record that ends before its CRC would be checked against bytes of an earlier read.
  if (ui_Got < UI_CRC_OFFSET + 2) {
    syslog(LOG_CRIT, "TypschildWelle_CL::f_Read - %d Bytes hold no CRC", static_cast<int>(ui_Got));
    return -1;
  }
  if (f_CheckCrc() != 0) return -1;

  const char* z_c_Buf = a_c_Buffer.get();
  str_Mnr.assign(z_c_Buf + UI_MNR_OFFSET, UI_MNR_LEN);
  syslog(LOG_INFO, "TypschildWelle_CL::f_Read - Mnr: %s", str_Mnr.c_str());
  fl_Moment = static_cast<float>(f_GetU16(UI_MOMENT_OFFSET) / 10.0);
  syslog(LOG_INFO, "TypschildWelle_CL::f_Read - Moment: %f", static_cast<double>(fl_Moment));
  str_SerNr.assign(z_c_Buf + UI_SERNR_OFFSET, UI_SERNR_LEN);
  syslog(LOG_INFO, "TypschildWelle_CL::f_Read - SerNr: %s", str_SerNr.c_str());
  return 0;
}

int TypschildWelle_CL::f_CheckCrc() {
  if (!a_c_Buffer) return -1;
  unsigned int ui_Computed = f_crcGet(US_CRC_SEED, a_c_Buffer.get(), UI_CRC_OFFSET) & 0xFFFFu;
  unsigned int ui_Stored = f_GetU16(UI_CRC_OFFSET);
  if (ui_Computed != ui_Stored) {
    syslog(LOG_CRIT, "TypschildWelle_CL::f_CheckCrc - Crc: %x, %x\n", ui_Computed, ui_Stored);
    return -1;
  }
  return 0;
}
