// The spindle nameplate: field widths, the rated torque, the record CRC, and records that
// are damaged, short or missing (random records are left to the fuzz_welle_record corpus).
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "TypschildWelle.h"
#include "sysLib/Crc.h"

namespace {
using Welle = TypschildWelle_CL;

std::string f_Record(const std::string& str_Mnr, const std::string& str_SerNr,
                     unsigned int ui_Tenths) {
  std::string str_Rec(128, '\0');
  str_Rec.replace(0, str_Mnr.size(), str_Mnr).replace(11, str_SerNr.size(), str_SerNr);
  auto f_PutU16 = [&](size_t ui_Off, unsigned int ui_Value) {
    str_Rec[ui_Off] = static_cast<char>(ui_Value & 0xFF);
    str_Rec[ui_Off + 1] = static_cast<char>(ui_Value >> 8);
  };
  f_PutU16(53, ui_Tenths);
  f_PutU16(113, f_crcGet(0xFFFF, str_Rec.data(), 113));
  return str_Rec;
}

TEST(TypschildWelle, FieldsAreTakenAtTheirFullWidths) {
  TempRoot o_Root;
  o_Root.f_Write(Welle::A_C_DEVICE_PATH,
                 f_Record("12345678901", "ABCDEFGHIJKLMNOPQR", 125) + "tail");
  Welle o_Full;
  EXPECT_EQ(o_Full.f_GetMnr(), "12345678901");
  EXPECT_EQ(o_Full.f_GetSerNr(), "ABCDEFGHIJKLMNOPQR");
  EXPECT_FLOAT_EQ(o_Full.f_GetMoment(), 12.5f);

  o_Root.f_Write(Welle::A_C_DEVICE_PATH, f_Record(" 8843590101", "W23", 0));
  Welle o_Padded;  // zero padding belongs to the field
  EXPECT_EQ(o_Padded.f_GetMnr(), " 8843590101");
  EXPECT_EQ(o_Padded.f_GetSerNr(), "W23" + std::string(15, '\0'));
  EXPECT_FLOAT_EQ(o_Padded.f_GetMoment(), 0.0f);
}

TEST(TypschildWelle, BadRecordsKeepTheValuesRead) {
  TempRoot o_Root;
  const std::string str_Good = f_Record("8843590101", "W230517042", 65535);
  o_Root.f_Write(Welle::A_C_DEVICE_PATH, str_Good);
  Welle o_Welle;
  ASSERT_FLOAT_EQ(o_Welle.f_GetMoment(), 6553.5f);
  std::string str_Flipped = str_Good, str_BadCrc = str_Good;
  str_Flipped[3] ^= 1;
  str_BadCrc[114] ^= 1;
  for (const std::string& str_Bad :
       {str_Flipped, str_BadCrc, str_Good.substr(0, 114), std::string()}) {
    SCOPED_TRACE(str_Bad.size());
    o_Root.f_Write(Welle::A_C_DEVICE_PATH, str_Bad);
    EXPECT_EQ(o_Welle.f_Read(), -1);
    EXPECT_EQ(o_Welle.f_GetMnr().substr(0, 10), "8843590101");
    EXPECT_FLOAT_EQ(o_Welle.f_GetMoment(), 6553.5f);
    Welle o_Fresh;
    EXPECT_EQ(o_Fresh.f_GetSerNr() + o_Fresh.f_GetMnr(), "");
    EXPECT_EQ(o_Fresh.f_GetMoment(), Welle::FL_MOMENT_MISSING);
  }
}
}  // namespace
