// The spindle's 1-Wire record through its reader. A record is taken only with a matching
// CRC, and then exactly as its fields stand; anything else leaves the "missing" values.
#include <string>

#include "FuzzSupport.h"
#include "TypschildWelle.h"
#include "sysLib/Crc.h"

FUZZ_TARGET(false, false) {
  using Welle = TypschildWelle_CL;
  // Byte 1 can ask for a right CRC: the fuzzer reaches fields behind checksums it cannot guess.
  bool b_FixCrc = (o_In.f_Byte() & 1) != 0;
  std::string str_Record = o_In.f_Rest().substr(0, 512);
  if (b_FixCrc && str_Record.size() >= Welle::UI_CRC_OFFSET + 2) {
    unsigned short us_Crc = f_crcGet(Welle::US_CRC_SEED, str_Record.data(), Welle::UI_CRC_OFFSET);
    str_Record[Welle::UI_CRC_OFFSET] = static_cast<char>(us_Crc & 0xFF);
    str_Record[Welle::UI_CRC_OFFSET + 1] = static_cast<char>(us_Crc >> 8);
  }
  f_FuzzWrite(Welle::A_C_DEVICE_PATH, str_Record);

  Welle o_Welle;
  bool b_Accepted = o_Welle.f_GetMnr().size() != 0;
  FUZZ_CHECK(b_Accepted ==
             (str_Record.size() >= Welle::UI_CRC_OFFSET + 2 && o_Welle.f_CheckCrc() == 0));
  if (b_Accepted) {
    const unsigned char* z_uc_Rec = reinterpret_cast<const unsigned char*>(str_Record.data());
    FUZZ_CHECK(o_Welle.f_GetMnr() == str_Record.substr(Welle::UI_MNR_OFFSET, Welle::UI_MNR_LEN));
    FUZZ_CHECK(o_Welle.f_GetSerNr() ==
               str_Record.substr(Welle::UI_SERNR_OFFSET, Welle::UI_SERNR_LEN));
    unsigned int ui_Tenths =
        z_uc_Rec[Welle::UI_MOMENT_OFFSET] | (z_uc_Rec[Welle::UI_MOMENT_OFFSET + 1] << 8);
    FUZZ_CHECK(o_Welle.f_GetMoment() == static_cast<float>(ui_Tenths / 10.0));
  } else {
    FUZZ_CHECK(o_Welle.f_GetSerNr().empty());
    FUZZ_CHECK(o_Welle.f_GetMoment() == Welle::FL_MOMENT_MISSING);
  }
}
