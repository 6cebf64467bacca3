#pragma once
// The exchangeable spindle's nameplate: a 128-byte binary record in its 1-Wire memory.
//   0   11  material number, ASCII (zero padding kept)
//   11  18  serial number, ASCII (zero padding kept)
//   53   2  rated torque in tenths, unsigned little-endian
//   113  2  CRC of bytes 0..112 (f_crcGet seeded with 0xFFFF), unsigned little-endian
// Read once when the channel configuration is built; the service never writes it.
#include <string>

#include "Typschild.h"

class TypschildWelle_CL : public Typschild_CL {
 public:
  static constexpr const char* A_C_DEVICE_PATH = "/sys/devices/w1 bus master/w1_master_welle";
  static constexpr unsigned int UI_RECORD_SIZE = 128;
  static constexpr unsigned int UI_MNR_OFFSET = 0;
  static constexpr unsigned int UI_MNR_LEN = 11;
  static constexpr unsigned int UI_SERNR_OFFSET = 11;
  static constexpr unsigned int UI_SERNR_LEN = 18;
  static constexpr unsigned int UI_MOMENT_OFFSET = 53;
  static constexpr unsigned int UI_CRC_OFFSET = 113;  // the CRC covers the bytes before it
  static constexpr unsigned short US_CRC_SEED = 0xFFFF;
  static constexpr float FL_MOMENT_MISSING = -2147483648.0f;

  // Reads the record (f_Read); a failed read leaves the texts empty and the torque at
  // FL_MOMENT_MISSING.
  TypschildWelle_CL();

  // Reads and decodes the record; on failure the values keep what they held.
  int f_Read() override;
  // The spindle's memory is never written.
  int f_Write() override { return 0; }
  // 0 when bytes 113..114 hold the CRC of bytes 0..112.
  int f_CheckCrc() override;

  // Material number and serial number at their full widths (11 and 18 characters).
  std::string f_GetMnr() const { return str_Mnr; }
  std::string f_GetSerNr() const { return str_SerNr; }
  // Rated torque in Nm.
  float f_GetMoment() const { return fl_Moment; }

 private:
  unsigned int f_GetU16(unsigned int ui_Offset) const;

  std::string str_Mnr;
  std::string str_SerNr;
  float fl_Moment = FL_MOMENT_MISSING;
};
