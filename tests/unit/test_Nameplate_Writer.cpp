// The simulated tool as the service meets it: nameplates its readers accept (or, corrupted,
// reject, keeping what they read), the input bits, the simulator's exit codes.
#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"
#include "TypschildKiro.h"
#include "TypschildWelle.h"
#include "sysLib/Bms.h"
#include "sysLib/Error.h"

namespace {
using Kiro = TypschildKiro_CL;
using Welle = TypschildWelle_CL;

class SimTool : public ::testing::Test {
 protected:
  void SetUp() override {
    o_Root.f_InitSim();
    Error_CL::f_GetErrorObj()->f_UseLocalStore();  // a CRC error stays in the test
  }
  TempRoot o_Root;
};

// The static sector's corruption is the daemon's test; the others are only read here.
TEST_F(SimTool, CorruptBreaksTheCheckedAreaAndASecondCorruptRestoresIt) {
  const std::pair<const char*, int> a_o_Cases[] = {
      {"supplier", Kiro::I_OFFSET_SUPPLIER_STAT_DATA},
      {"supplier-dynamic", Kiro::I_OFFSET_SUPPLIER_DYN_DATA},
      {"spindle", -1}};
  for (const auto& [z_c_Target, i_Offset] : a_o_Cases) {
    SCOPED_TRACE(z_c_Target);
    auto f_Ok = [i_Offset = i_Offset] {
      return i_Offset < 0 ? Welle().f_Read() == 0
                          : Kiro().f_ReadTypschildSector(i_Offset, true) == 0;
    };
    EXPECT_TRUE(f_Ok());
    for (bool b_Ok : {false, true}) {
      ASSERT_EQ(o_Root.f_Sim(std::string("nameplate corrupt ") + z_c_Target), 0);
      EXPECT_EQ(f_Ok(), b_Ok);
    }
  }
  // A spindle record gone bad or short keeps the values read before.
  Welle o_Welle;
  const std::string str_Mnr = o_Welle.f_GetMnr(), str_Good = o_Root.f_Read(Welle::A_C_DEVICE_PATH);
  ASSERT_EQ(o_Root.f_Sim("nameplate corrupt spindle"), 0);
  EXPECT_EQ(o_Welle.f_Read(), -1);
  o_Root.f_Write(Welle::A_C_DEVICE_PATH, str_Good.substr(0, 114));
  EXPECT_EQ(o_Welle.f_Read(), -1);
  EXPECT_EQ(o_Welle.f_GetMnr(), str_Mnr);
}

TEST_F(SimTool, BadInputIsRefusedAndLeavesFilesAlone) {
  const std::string str_Battery = o_Root.f_Read("/proc/kiroctrl/adcvalues/battery");
  const std::string str_Image = o_Root.f_Read(Kiro::A_C_DEVICE_PATH);
  const std::string str_Spindle = o_Root.f_Read(Welle::A_C_DEVICE_PATH);
  // One of each kind: out of range, no number, missing, unknown option, target or command.
  for (const char* z_c_Args : {"battery 256", "battery x", "battery", "temp --bogus",
                               "nameplate corrupt dynamic", "smod 1 2", "frobnicate"})
    EXPECT_EQ(o_Root.f_Sim(std::string(z_c_Args) + " 2>/dev/null"), 2) << z_c_Args;
  // A description that cannot be used fails the run, not the command line.
  for (const std::string& str_Desc : {
           std::string("[static]\nMNR:1\n[nosuchsection]\n"),
           std::string("[static]\nno colon here\n"),
           std::string("[dynamic]\ncrc=none\n"),              // the dynamic sector has no CRC block
           std::string("[spindle]\ntorque:7000\n"),           // beyond 16 bits of tenths
           "[dynamic]\nTIX:" + std::string(300, 'A') + "\n",  // longer than the sector's 256 bytes
       }) {
    o_Root.f_Write("/desc.txt", str_Desc);
    EXPECT_EQ(
        o_Root.f_Sim("nameplate write --from '" + o_Root.f_Path("/desc.txt") + "' 2>/dev/null"), 1)
        << str_Desc;
  }
  EXPECT_EQ(o_Root.f_Read("/proc/kiroctrl/adcvalues/battery"), str_Battery);
  EXPECT_EQ(o_Root.f_Read(Kiro::A_C_DEVICE_PATH), str_Image);
  EXPECT_EQ(o_Root.f_Read(Welle::A_C_DEVICE_PATH), str_Spindle);
}

TEST_F(SimTool, BmsInputReachesTheServiceLibraryBeforeAndAfterItsMutexExists) {
  // Before the service: the fresh segment has no mutex yet and the bit is written plainly
  // (with the mutex, the daemon's acknowledge-input test).
  ASSERT_EQ(o_Root.f_Sim("bms in 17 1"), 0);
  Bms_CL o_Bms;  // sets the mutex up and must keep the input word
  EXPECT_TRUE(o_Bms.f_In(17));
  ASSERT_EQ(o_Bms.f_Out(18, true), 0);
  ASSERT_EQ(o_Root.f_Sim("bms out 18 >'" + o_Root.f_Path("/out") + "'"), 0);
  EXPECT_EQ(o_Root.f_Read("/out"), "1\n");
}

}  // namespace
