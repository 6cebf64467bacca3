// The spindle nameplate: a damaged or short record keeps the values read before (how fields
// are taken and what a fresh reader of a bad record holds is the fuzz_welle_record corpus's).
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "TypschildWelle.h"

namespace {
using Welle = TypschildWelle_CL;

TEST(TypschildWelle, BadRecordsKeepTheValuesRead) {
  TempRoot o_Root;
  o_Root.f_InitSim();
  const std::string str_Good = o_Root.f_Read(Welle::A_C_DEVICE_PATH);
  Welle o_Welle;
  const std::string str_Mnr = o_Welle.f_GetMnr();
  const float fl_Moment = o_Welle.f_GetMoment();
  ASSERT_NE(str_Mnr, "");
  std::string str_Flipped = str_Good;
  str_Flipped[3] ^= 1;
  for (const std::string& str_Bad : {str_Flipped, str_Good.substr(0, 114)}) {
    SCOPED_TRACE(str_Bad.size());
    o_Root.f_Write(Welle::A_C_DEVICE_PATH, str_Bad);
    EXPECT_EQ(o_Welle.f_Read(), -1);
    EXPECT_EQ(o_Welle.f_GetMnr(), str_Mnr);
    EXPECT_EQ(o_Welle.f_GetMoment(), fl_Moment);
  }
}
}  // namespace
