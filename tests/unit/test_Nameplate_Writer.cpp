// The simulated tool as the service will meet it: nameplate images that pass (or, once
// corrupted, fail) the service's CRC rules, key lines its lookup finds, sensor and
// shared-memory bytes in the layout the service reads, and the simulator's exit codes.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "TestSupport.h"
#include "sysLib/Bms.h"
#include "sysLib/Crc.h"

namespace {

const char* const EEPROM = "/sys/devices/platform/i2c_omap.2/i2c-2/2-0050/eeprom";
const char* const SPINDLE = "/sys/devices/w1 bus master/w1_master_welle";

// Runs syssrv-sim on the root (TempRoot exports it as SYSSRV_ROOT); returns the exit
// status, stdout in *z_str_Out.
int f_Sim(const TempRoot& o_Root, const std::string& str_Args, std::string* z_str_Out = nullptr) {
  EXPECT_EQ(std::getenv("SYSSRV_ROOT"), o_Root.f_Dir());
  std::string str_Cmd = std::string(SYSSRV_SIM) + " " + str_Args + " 2>/dev/null";
  FILE* z_o_Pipe = popen(str_Cmd.c_str(), "r");
  if (z_o_Pipe == nullptr) return -1;
  std::string str_Out;
  char a_c_Buf[512];
  size_t ui_Len = 0;
  while ((ui_Len = fread(a_c_Buf, 1, sizeof(a_c_Buf), z_o_Pipe)) > 0)
    str_Out.append(a_c_Buf, ui_Len);
  int i_Status = pclose(z_o_Pipe);
  if (z_str_Out != nullptr) *z_str_Out = str_Out;
  return WIFEXITED(i_Status) ? WEXITSTATUS(i_Status) : -1;
}

// A sector as the service reads it: the bytes from its offset up to the first zero.
std::string f_Sector(const std::string& str_Image, size_t ui_Offset) {
  std::string str_Rest = str_Image.substr(ui_Offset);
  return str_Rest.substr(0, str_Rest.find('\0'));
}

// The service's lookup: first occurrence of the key anywhere, value up to the next CR.
std::string f_Value(const std::string& str_Sector, const std::string& str_Key) {
  size_t ui_Key = str_Sector.find(str_Key);
  if (ui_Key == std::string::npos) return "<missing>";
  size_t ui_Colon = str_Sector.find(':', ui_Key);
  size_t ui_Cr = str_Sector.find('\r', ui_Colon);
  return str_Sector.substr(ui_Colon + 1, ui_Cr - ui_Colon - 1);
}

// The service's CRC rule for a text sector.
bool f_CrcOk(const std::string& str_Sector) {
  size_t ui_Start = str_Sector.find("###");
  if (ui_Start == std::string::npos || str_Sector.find("***") == std::string::npos) return false;
  long l_Stored = std::strtol(str_Sector.c_str() + ui_Start + 3, nullptr, 16);
  return l_Stored == f_crcGet(0xFFFF, str_Sector.data(), static_cast<long>(ui_Start));
}

bool f_SpindleCrcOk(const std::string& str_Rec) {
  unsigned int ui_Stored =
      static_cast<unsigned char>(str_Rec[113]) | static_cast<unsigned char>(str_Rec[114]) << 8;
  return ui_Stored == f_crcGet(0xFFFF, str_Rec.data(), 113);
}

class SimTool : public ::testing::Test {
 protected:
  void SetUp() override { o_Root.f_InitSim(); }
  std::string f_Eeprom() const { return o_Root.f_Read(EEPROM); }
  TempRoot o_Root;
};

TEST_F(SimTool, DefaultNameplatesReadAsA30NmPistolTool) {
  std::string str_Image = f_Eeprom();
  ASSERT_EQ(str_Image.size(), 4096u);
  struct {
    size_t ui_Offset;
    const char* z_c_Key;
    const char* z_c_Value;
  } a_o_Cases[] = {
      {0, "MNR", "5521730002"},
      {0, "Komponententyp", "0x11"},
      {0, "ImpulseProUmdrehung", "24"},
      {0, "Code", "P30"},
      {0, "AbtriebMNR", "<missing>"},  // an older nameplate: the catalogue decides
      {1792, "ZyklusNr", "0000000100"},
      {1792, "Wartungsintervall", "0000000000"},
      {2048, "Seriennummer", "B230403117"},  // not the PCB serial behind it
      {2048, "MAC", "00:1A:2B:3C:4D:5E"},
      {3328, "PwrCtrlVersion", "1.04"},
  };
  for (const auto& o_Case : a_o_Cases) {
    EXPECT_EQ(f_Value(f_Sector(str_Image, o_Case.ui_Offset), o_Case.z_c_Key), o_Case.z_c_Value)
        << o_Case.z_c_Key << " @" << o_Case.ui_Offset;
  }
  for (size_t ui_Offset : {0u, 2048u, 3328u}) {
    EXPECT_TRUE(f_CrcOk(f_Sector(str_Image, ui_Offset))) << "sector @" << ui_Offset;
  }
  // Each sector's text ends inside its own sector, so no lookup runs into the next one.
  EXPECT_LT(f_Sector(str_Image, 0).size(), 1792u);
  EXPECT_LT(f_Sector(str_Image, 1792).size(), 256u);
  EXPECT_LT(f_Sector(str_Image, 2048).size(), 1280u);

  // The drive train gives the tool's class: motor x gearbox x output drive ~ 30 Nm.
  std::string str_Static = f_Sector(str_Image, 0);
  double d_Torque = 1.0;
  for (const char* z_c_Key : {"Motornennmoment", "Getriebeuntersetzung", "Getriebewirkungsgrad",
                              "Abtriebuntersetzung", "Abtriebwirkungsgrad"}) {
    d_Torque *= std::atof(f_Value(str_Static, z_c_Key).c_str());
  }
  EXPECT_NEAR(d_Torque, 30.0, 0.5);

  std::string str_Spindle = o_Root.f_Read(SPINDLE);
  ASSERT_EQ(str_Spindle.size(), 128u);
  EXPECT_TRUE(f_SpindleCrcOk(str_Spindle));
  EXPECT_EQ(static_cast<unsigned char>(str_Spindle[53]) |
                static_cast<unsigned char>(str_Spindle[54]) << 8,
            300);
}

TEST_F(SimTool, CorruptBreaksTheCheckedAreaAndASecondCorruptRestoresIt) {
  struct {
    const char* z_c_Target;
    long l_Offset;  // -1: the spindle record
  } a_o_Cases[] = {{"static", 0}, {"supplier", 2048}, {"supplier-dynamic", 3328}, {"spindle", -1}};
  for (const auto& o_Case : a_o_Cases) {
    auto f_Ok = [&] {
      if (o_Case.l_Offset < 0) return f_SpindleCrcOk(o_Root.f_Read(SPINDLE));
      return f_CrcOk(f_Sector(f_Eeprom(), static_cast<size_t>(o_Case.l_Offset)));
    };
    std::string str_Args = std::string("nameplate corrupt ") + o_Case.z_c_Target;
    ASSERT_EQ(f_Sim(o_Root, str_Args), 0) << o_Case.z_c_Target;
    EXPECT_FALSE(f_Ok()) << o_Case.z_c_Target;
    std::string str_Show;
    f_Sim(o_Root, "nameplate show", &str_Show);
    EXPECT_NE(str_Show.find("CRC MISMATCH"), std::string::npos) << o_Case.z_c_Target;
    ASSERT_EQ(f_Sim(o_Root, str_Args), 0);
    EXPECT_TRUE(f_Ok()) << o_Case.z_c_Target;
  }
}

TEST_F(SimTool, ShowOutputWritesBackToTheSameImage) {
  // Edit the description as a user would (an angle-head tool), write it, dump it and
  // write the dump again: the image must not change on the second trip.
  std::string str_Example;
  ASSERT_EQ(f_Sim(o_Root, "nameplate example --with-drive-mnr", &str_Example), 0);
  size_t ui_Pos = str_Example.find("Komponententyp:0x11");
  ASSERT_NE(ui_Pos, std::string::npos);
  str_Example.replace(ui_Pos, 19, "Komponententyp:0x21");
  o_Root.f_Write("/np.txt", str_Example);
  ASSERT_EQ(f_Sim(o_Root, "nameplate write --from '" + o_Root.f_Path("/np.txt") + "'"), 0);
  std::string str_Image = f_Eeprom();
  EXPECT_EQ(f_Value(f_Sector(str_Image, 0), "Komponententyp"), "0x21");
  EXPECT_EQ(f_Value(f_Sector(str_Image, 0), "AbtriebMNR"), "8843270A02");
  EXPECT_TRUE(f_CrcOk(f_Sector(str_Image, 0)));

  std::string str_Dump;
  ASSERT_EQ(f_Sim(o_Root, "nameplate show", &str_Dump), 0);
  o_Root.f_Write("/dump.txt", str_Dump);
  ASSERT_EQ(f_Sim(o_Root, "nameplate write --from '" + o_Root.f_Path("/dump.txt") + "'"), 0);
  EXPECT_EQ(f_Eeprom(), str_Image);
}

TEST(SimToolOld, RevisionZeroGetsTheSemicolonSupplierRecord) {
  TempRoot o_Root;
  ASSERT_EQ(f_Sim(o_Root, "init --hw-rev 0"), 0);
  for (int i_Line : {112, 113, 114}) {
    EXPECT_EQ(o_Root.f_Read("/sys/class/gpio/gpio" + std::to_string(i_Line) + "/value")[0], '0');
  }
  std::string str_Sector = f_Sector(o_Root.f_Read(EEPROM), 2048);
  EXPECT_TRUE(f_CrcOk(str_Sector));
  // Five fields, each closed by ';', then the CRC block, then the revision up to ';'.
  EXPECT_EQ(str_Sector.substr(0, str_Sector.find("###")),
            "4411200117;0021;2023-04-03;B230403117;EMS1;");
  EXPECT_EQ(str_Sector.substr(str_Sector.find("***") + 3), "R02;");
}

TEST_F(SimTool, TemperatureRegisterBytes) {
  struct {
    const char* z_c_Args;
    unsigned int ui_Raw;
  } a_o_Cases[] = {{"temp 61", 0x3D00},      {"temp 25", 0x1900},
                   {"temp -0.25", 0xFFC0},   {"temp 127.75", 0x7FC0},
                   {"temp -- -128", 0x8000}, {"temp --raw 0x1234", 0x1234}};
  for (const auto& o_Case : a_o_Cases) {
    ASSERT_EQ(f_Sim(o_Root, o_Case.z_c_Args), 0) << o_Case.z_c_Args;
    std::string str_Reg = o_Root.f_Read("/dev/i2c-2");
    ASSERT_EQ(str_Reg.size(), 2u) << o_Case.z_c_Args;
    EXPECT_EQ(static_cast<unsigned char>(str_Reg[0]) << 8 | static_cast<unsigned char>(str_Reg[1]),
              o_Case.ui_Raw)
        << o_Case.z_c_Args;
  }
  ASSERT_EQ(f_Sim(o_Root, "temp --broken"), 0);
  EXPECT_EQ(o_Root.f_Read("/dev/i2c-2").size(), 1u);
  ASSERT_EQ(f_Sim(o_Root, "temp --missing"), 0);
  EXPECT_FALSE(o_Root.f_Exists("/dev/i2c-2"));
}

TEST_F(SimTool, BadCommandLinesAreUsageErrorsAndLeaveFilesAlone) {
  std::string str_Battery = o_Root.f_Read("/proc/kiroctrl/adcvalues/battery");
  for (const char* z_c_Args : {"battery 256", "battery x", "battery", "temp 128", "temp --bogus",
                               "bms in 32 1", "bms in 17 2", "nameplate corrupt dynamic",
                               "nameplate write", "lt sideways", "smod 1 2", "frobnicate"}) {
    EXPECT_EQ(f_Sim(o_Root, z_c_Args), 2) << z_c_Args;
  }
  EXPECT_EQ(o_Root.f_Read("/proc/kiroctrl/adcvalues/battery"), str_Battery);
  // A description that cannot be used is a failure of the run, not of the command line.
  o_Root.f_Write("/bad.txt", "[static]\nMNR:1\n[nosuchsection]\n");
  EXPECT_EQ(f_Sim(o_Root, "nameplate write --from '" + o_Root.f_Path("/bad.txt") + "'"), 1);
}

TEST_F(SimTool, BmsInputReachesTheServiceLibraryBeforeAndAfterItsMutexExists) {
  // Before the service: the fresh segment has no mutex yet and the bit is written plainly.
  ASSERT_EQ(f_Sim(o_Root, "bms in 17 1"), 0);
  Bms_CL o_Bms;  // sets the mutex up and must keep the input word
  EXPECT_TRUE(o_Bms.f_In(17));
  // With the mutex in place the simulator takes it.
  ASSERT_EQ(f_Sim(o_Root, "bms in 17 0"), 0);
  EXPECT_FALSE(o_Bms.f_In(17));
  ASSERT_EQ(o_Bms.f_Out(18, true), 0);
  std::string str_Out;
  ASSERT_EQ(f_Sim(o_Root, "bms out 18", &str_Out), 0);
  EXPECT_EQ(str_Out, "1\n");
}

TEST_F(SimTool, FakeCommandsLogTheirCalls) {
  std::string str_Cmd =
      "PATH='" + o_Root.f_Path("/sbin") + "':\"$PATH\" sh -c 'hwclock -wu; poweroff'";
  ASSERT_EQ(std::system(str_Cmd.c_str()), 0);
  std::string str_Log;
  ASSERT_EQ(f_Sim(o_Root, "log", &str_Log), 0);
  EXPECT_EQ(str_Log, "hwclock -wu\npoweroff\n");
}

TEST_F(SimTool, UnusableDescriptionsChangeNeitherMemory) {
  std::string str_Image = f_Eeprom();
  std::string str_Spindle = o_Root.f_Read(SPINDLE);
  const char* a_z_c_Descriptions[] = {
      "[static]\nMNR:1\n[nosuchsection]\n",
      "MNR:1\n",  // no section
      "[static]\nno colon here\n",
      "[dynamic]\ncrc=none\n",                // the dynamic sector has no CRC block
      "[supplier]\nformat=old\nMAC:00:11\n",  // no such field in the old record
      "[spindle]\ntorque:7000\n",             // beyond 16 bits of tenths
      "[spindle]\nmnr:123456789012\n",        // wider than its 11 bytes
      "[static]\nMNR:5521730002\n[spindle]\nserial:1234567890123456789\n",
  };
  for (const char* z_c_Desc : a_z_c_Descriptions) {
    o_Root.f_Write("/bad.txt", z_c_Desc);
    EXPECT_EQ(f_Sim(o_Root, "nameplate write --from '" + o_Root.f_Path("/bad.txt") + "'"), 1)
        << z_c_Desc;
  }
  // A sector too long for its space (the dynamic one holds 256 bytes).
  o_Root.f_Write("/bad.txt", "[dynamic]\nTIX:" + std::string(300, 'A') + "\n");
  EXPECT_EQ(f_Sim(o_Root, "nameplate write --from '" + o_Root.f_Path("/bad.txt") + "'"), 1);
  EXPECT_EQ(f_Eeprom(), str_Image);
  EXPECT_EQ(o_Root.f_Read(SPINDLE), str_Spindle);
}

TEST_F(SimTool, InputCommandsWriteWhatTheServiceReads) {
  struct {
    const char* z_c_Args;
    const char* z_c_Path;
    std::string str_Content;  // "<missing>" for a removed file
  } a_o_Cases[] = {
      {"battery 42", "/proc/kiroctrl/adcvalues/battery", std::string(1, 42)},
      {"battery --empty", "/proc/kiroctrl/adcvalues/battery", ""},
      {"battery --remove", "/proc/kiroctrl/adcvalues/battery", "<missing>"},
      {"sync 3", "/proc/kiroctrl/syncstatus", std::string(1, 3)},
      {"sync 0", "/proc/kiroctrl/syncstatus", std::string(1, 0)},
      {"lt down", "/var/run/mod_lt_running", "<missing>"},
      {"lt up", "/var/run/mod_lt_running", ""},
      {"cycle 123456", "/var/sysdiag/cycle", "123456"},
      {"busy 1", "/var/sysdiag/srbmod", "1"},
      {"templimit 60", "/home/tool/config/TempLimit", "60\n"},
      {"hwrev 5", "/sys/class/gpio/gpio113/value", "0\n"},
      {"hwrev 5", "/sys/class/gpio/gpio114/value", "1\n"},
      {"dmesg 'UBIFS error' '(ubi0:0)'", "/sim/dmesg.txt", "UBIFS error (ubi0:0)\n"},
  };
  for (const auto& o_Case : a_o_Cases) {
    ASSERT_EQ(f_Sim(o_Root, o_Case.z_c_Args), 0) << o_Case.z_c_Args;
    std::string str_Actual =
        o_Root.f_Exists(o_Case.z_c_Path) ? o_Root.f_Read(o_Case.z_c_Path) : "<missing>";
    EXPECT_EQ(str_Actual, o_Case.str_Content) << o_Case.z_c_Args;
  }
  // The mode byte sits at offset 12 of the error segment, which keeps its size.
  ASSERT_EQ(f_Sim(o_Root, "smod 1"), 0);
  std::string str_Seg = o_Root.f_Read("/dev/shm/ErrorShMem");
  ASSERT_EQ(str_Seg.size(), 16u);
  EXPECT_EQ(str_Seg[12], 1);
  EXPECT_EQ(str_Seg.substr(0, 12), std::string(12, '\0'));
}

}  // namespace
