// 16-bit CRC of the nameplate records (CRC-16/CCITT-FALSE when seeded with 0xFFFF).
#include "sysLib/Crc.h"

unsigned short f_crcGet(unsigned short us_Seed, const char* z_c_Data, long l_Len) {
  unsigned int ui_Crc = us_Seed;
  if (z_c_Data == nullptr) return us_Seed;
  for (long l_Pos = 0; l_Pos < l_Len; ++l_Pos) {
    ui_Crc ^= static_cast<unsigned int>(static_cast<unsigned char>(z_c_Data[l_Pos])) << 8;
    for (int i_Bit = 0; i_Bit < 8; ++i_Bit) {
      ui_Crc = (ui_Crc & 0x8000u) != 0 ? ((ui_Crc << 1) ^ 0x1021u) : (ui_Crc << 1);
    }
    ui_Crc &= 0xFFFFu;
  }
  return static_cast<unsigned short>(ui_Crc);
}
