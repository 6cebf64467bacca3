// The simulated tool as the service meets it: nameplate images the service's readers accept
// (or, once corrupted, reject), the input bits, and the simulator's exit codes.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "TestSupport.h"
#include "TypschildKiro.h"
#include "TypschildWelle.h"
#include "sysLib/Bms.h"
#include "sysLib/Error.h"

namespace {
using Kiro = TypschildKiro_CL;
using Welle = TypschildWelle_CL;

// Runs syssrv-sim on the root (TempRoot exports it as SYSSRV_ROOT); its exit status.
int f_Sim(const std::string& str_Args) {
  int i_Status = std::system((std::string(SYSSRV_SIM) + " " + str_Args + " 2>/dev/null").c_str());
  return WIFEXITED(i_Status) ? WEXITSTATUS(i_Status) : -1;
}

class SimTool : public ::testing::Test {
 protected:
  void SetUp() override {
    o_Root.f_InitSim();
    Error_CL::f_GetErrorObj()->f_UseLocalStore();  // a CRC error stays in the test
  }
  TempRoot o_Root;
};

TEST_F(SimTool, CorruptBreaksTheCheckedAreaAndASecondCorruptRestoresIt) {
  struct {
    const char* z_c_Target;
    int i_Offset;  // -1: the spindle record
  } a_o_Cases[] = {{"static", Kiro::I_OFFSET_STAT_DATA},
                   {"supplier", Kiro::I_OFFSET_SUPPLIER_STAT_DATA},
                   {"supplier-dynamic", Kiro::I_OFFSET_SUPPLIER_DYN_DATA},
                   {"spindle", -1}};
  for (const auto& o_Case : a_o_Cases) {
    SCOPED_TRACE(o_Case.z_c_Target);
    auto f_Ok = [&] {
      return o_Case.i_Offset < 0 ? Welle().f_Read() == 0
                                 : Kiro().f_ReadTypschildSector(o_Case.i_Offset, true) == 0;
    };
    EXPECT_TRUE(f_Ok());
    ASSERT_EQ(f_Sim(std::string("nameplate corrupt ") + o_Case.z_c_Target), 0);
    EXPECT_FALSE(f_Ok());
    ASSERT_EQ(f_Sim(std::string("nameplate corrupt ") + o_Case.z_c_Target), 0);
    EXPECT_TRUE(f_Ok());
  }
}

TEST_F(SimTool, BadInputIsRefusedAndLeavesFilesAlone) {
  const std::string str_Battery = o_Root.f_Read("/proc/kiroctrl/adcvalues/battery");
  const std::string str_Image = o_Root.f_Read(Kiro::A_C_DEVICE_PATH);
  const std::string str_Spindle = o_Root.f_Read(Welle::A_C_DEVICE_PATH);
  for (const char* z_c_Args : {"battery 256", "battery x", "battery", "temp 128", "temp --bogus",
                               "bms in 32 1", "bms in 17 2", "nameplate corrupt dynamic",
                               "nameplate write", "lt sideways", "smod 1 2", "frobnicate"})
    EXPECT_EQ(f_Sim(z_c_Args), 2) << z_c_Args;
  // A description that cannot be used fails the run, not the command line.
  for (const std::string& str_Desc : {
           std::string("[static]\nMNR:1\n[nosuchsection]\n"),
           std::string("MNR:1\n"),  // no section
           std::string("[static]\nno colon here\n"),
           std::string("[dynamic]\ncrc=none\n"),  // the dynamic sector has no CRC block
           std::string("[supplier]\nformat=old\nMAC:00:11\n"),  // no such field in the old record
           std::string("[spindle]\ntorque:7000\n"),             // beyond 16 bits of tenths
           std::string("[spindle]\nmnr:123456789012\n"),        // wider than its 11 bytes
           std::string("[static]\nMNR:5521730002\n[spindle]\nserial:1234567890123456789\n"),
           "[dynamic]\nTIX:" + std::string(300, 'A') + "\n",  // longer than the sector's 256 bytes
       }) {
    o_Root.f_Write("/desc.txt", str_Desc);
    EXPECT_EQ(f_Sim("nameplate write --from '" + o_Root.f_Path("/desc.txt") + "'"), 1) << str_Desc;
  }
  EXPECT_EQ(o_Root.f_Read("/proc/kiroctrl/adcvalues/battery"), str_Battery);
  EXPECT_EQ(o_Root.f_Read(Kiro::A_C_DEVICE_PATH), str_Image);
  EXPECT_EQ(o_Root.f_Read(Welle::A_C_DEVICE_PATH), str_Spindle);
}

TEST_F(SimTool, BmsInputReachesTheServiceLibraryBeforeAndAfterItsMutexExists) {
  // Before the service: the fresh segment has no mutex yet and the bit is written plainly.
  ASSERT_EQ(f_Sim("bms in 17 1"), 0);
  Bms_CL o_Bms;  // sets the mutex up and must keep the input word
  EXPECT_TRUE(o_Bms.f_In(17));
  // With the mutex in place the simulator takes it.
  ASSERT_EQ(f_Sim("bms in 17 0"), 0);
  EXPECT_FALSE(o_Bms.f_In(17));
  ASSERT_EQ(o_Bms.f_Out(18, true), 0);
  ASSERT_EQ(f_Sim("bms out 18 >'" + o_Root.f_Path("/out") + "'"), 0);
  EXPECT_EQ(o_Root.f_Read("/out"), "1\n");
}

}  // namespace
