// The motor-unit nameplate: lookups, CRC blocks and the sectors.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "TestSupport.h"
#include "TypschildKiro.h"
#include "sysLib/Crc.h"
#include "sysLib/Error.h"
#include "sysLib/SysDiag.h"

namespace {
using Kiro = TypschildKiro_CL;
const char* const MISS = "-";

std::string f_Block(const std::string& str_Covered) {
  char a_c_Hex[8];
  std::snprintf(a_c_Hex, sizeof(a_c_Hex), "%04X",
                f_crcGet(0xFFFF, str_Covered.data(), static_cast<long>(str_Covered.size())));
  return std::string("###") + a_c_Hex + "***";
}
std::string f_Checked(const std::string& str_Lines) { return str_Lines + f_Block(str_Lines); }

const std::string STR_STATIC = "MNR:5521730002\r\nMotornennmoment:0.775\r\n";
const std::string STR_DYN =
    "TIX:AA3\r\nZyklusNr:0000000100\r\nWartungsintervall:0000000777\r\n"
    "Lastintegral:123456789.000000\r\nStartLastZyklus:0000000000\r\n";
const std::string STR_SUPPLIER = "MNR:4411200117\r\nSeriennummer:B230403117\r\nMAC:00:1A:2B\r\n";
const std::string STR_OLD = "4411200117;0021;2023-04-03;B230403117;EMS1;";
const std::string STR_SUPPLIER_DYN = "TIX:AA1\r\nPwrCtrlVersion:1.04\r\n";

class KiroTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Error_CL::f_GetErrorObj()->f_UseLocalStore();
    Error_CL::f_GetErrorObj()->f_AttachStore([this](int i_Err) { o_Errors.push_back(i_Err); });
  }
  void TearDown() override { Error_CL::f_GetErrorObj()->f_DetachStore(); }

  // A 4096-byte EEPROM with each text at its sector's offset.
  void f_Image(const std::string& str_Stat, const std::string& str_Dyn = STR_DYN,
               const std::string& str_Sup = f_Checked(STR_SUPPLIER),
               const std::string& str_SupDyn = f_Checked(STR_SUPPLIER_DYN)) {
    std::string str_Img(4096, '\0');
    str_Img.replace(0, str_Stat.size(), str_Stat).replace(1792, str_Dyn.size(), str_Dyn);
    str_Img.replace(2048, str_Sup.size(), str_Sup).replace(3328, str_SupDyn.size(), str_SupDyn);
    o_Root.f_Write(Kiro::A_C_DEVICE_PATH, str_Img);
  }
  std::string f_Diag(const std::string& str_Name) const {
    std::string str_Path = "/var/sysdiag/" + str_Name;
    return o_Root.f_Exists(str_Path) ? o_Root.f_Read(str_Path) : MISS;
  }
  std::string f_Value(const Kiro& o_Kiro, const char* z_c_Key) {
    std::string str_Value;
    return o_Kiro.f_GetValue(z_c_Key, str_Value, ':') == 0 ? str_Value : MISS;
  }

  TempRoot o_Root;
  std::vector<int> o_Errors;
};

TEST_F(KiroTest, LookupsFollowTheLineFormat) {
  // {sector, key, text, as int (INT_MIN: refused), as real}
  const std::tuple<std::string, const char*, std::string, int, double> a_o_Cases[] = {
      // The first occurrence wins, even inside a longer key.
      {"AbtriebMNR:8843270A02\r\nMNR:5521730002\r\n", "MNR", "8843270A02", 8843270, 8843270.0},
      {"Nennmoment: 30.5 \r\n", "Nennmoment", " 30.5 ", 30, 30.5},
      // A CR anywhere behind ends the value before an LF does.
      {"ZyklusNr:7\nTIX:AA3\r\n", "ZyklusNr", "7\nTIX:AA3", 7, 7.0},
      {"ZyklusNr:7\nTIX:AA3\n", "ZyklusNr", "7", 7, 7.0},
      {"Code:\r\nMotorkennung:2\r\n", "Code", "", INT_MIN, Kiro::D_REAL_MISSING},
      {"Code:P30\r\n", "Nenndrehzahl", MISS, INT_MIN, Kiro::D_REAL_MISSING},
  };
  Kiro o_Kiro;
  for (const auto& [str_Sector, z_c_Key, str_Text, i_Want, d_Want] : a_o_Cases) {
    SCOPED_TRACE(str_Sector);
    f_Image(str_Sector, "\r\n\r\n");
    ASSERT_EQ(o_Kiro.f_ReadTypschildSector(0, false), 0);
    int i_Int = 0;
    double d_Real = 0.0;
    EXPECT_EQ(f_Value(o_Kiro, z_c_Key), str_Text);
    EXPECT_EQ(o_Kiro.f_GetValue(z_c_Key, i_Int, ':'), i_Want == INT_MIN ? -1 : 0);
    EXPECT_EQ(i_Int, i_Want);
    o_Kiro.f_GetValue(z_c_Key, d_Real, ':');
    EXPECT_DOUBLE_EQ(d_Real, d_Want);
  }
}

TEST_F(KiroTest, CrcBlockDecidesTheCheckedRead) {
  const std::string str_Hex = f_Block(STR_STATIC).substr(3, 4);
  std::string str_Flipped = STR_STATIC;
  str_Flipped[5] ^= 1;
  const std::pair<std::string, int> a_o_Cases[] = {
      {STR_STATIC + "###" + str_Hex + "***R02;", 0},
      {STR_STATIC + "###" + str_Hex + "zz***", 0},  // parsing stops at the first non-hex
      {STR_STATIC + "###" + str_Hex + "0***", -1},
      {str_Flipped + "###" + str_Hex + "***", -1},
      {STR_STATIC + "###" + str_Hex, -1},
  };
  Kiro o_Kiro;
  for (const auto& [str_Sector, i_Ret] : a_o_Cases) {
    SCOPED_TRACE(str_Sector);
    o_Errors.clear();
    f_Image(str_Sector);
    EXPECT_EQ(o_Kiro.f_ReadTypschildSector(0, true), i_Ret);
    EXPECT_EQ(o_Kiro.f_ReadTypschildSector(0, false), 0);  // unchecked reads never fail on it
    EXPECT_EQ(o_Errors, i_Ret == 0 ? std::vector<int>{} : std::vector<int>{3201});
  }
  // A device shorter than a sector is read short; one that ends before the sector fails.
  o_Root.f_Write(Kiro::A_C_DEVICE_PATH, std::string(1792, '\0') + "TIX:AB\r\n");
  EXPECT_EQ(o_Kiro.f_ReadTypschildSector(1792, false), 0);
  EXPECT_EQ(f_Value(o_Kiro, "TIX"), "AB");
  EXPECT_EQ(o_Kiro.f_ReadTypschildSector(2048, false), -1);
}

TEST_F(KiroTest, StaticKeysAreNormalised) {
  // {lines, component type, pulses per turn, output-drive number found}
  const std::tuple<std::string, std::string, int, bool> a_o_Cases[] = {
      {"Komponententyp:1A\r\nImpulseProUmdrehung:36\r\n", "0x1A", 36, false},
      {"Komponententyp:0x1A\r\n", "0x1A", 24, false},
      {"Komponententyp:1X\r\nImpulseProUmdrehung:\r\nAbtriebMNR:\r\n", "1X", 24, true},
  };
  for (const auto& [str_Lines, str_Typ, i_Impulse, b_Abtrieb] : a_o_Cases) {
    f_Image(f_Checked(STR_STATIC + str_Lines));
    Kiro o_Kiro;
    const TypschildKiroStat_ST& o_Stat = o_Kiro.f_GetStatData();
    EXPECT_EQ(o_Stat.str_Komponententyp, str_Typ);
    EXPECT_EQ(o_Stat.i_ImpulseProUmdrehung, i_Impulse);
    EXPECT_EQ(o_Stat.b_AbtriebMnrFound, b_Abtrieb);
    EXPECT_EQ(o_Kiro.f_ReadStatData(), 0);  // a second read does not double the CRC text
    EXPECT_EQ("###" + o_Kiro.f_GetCrcText() + "***", f_Block(STR_STATIC + str_Lines));
  }
}

TEST_F(KiroTest, SupplierFormatFollowsTheHardwareRevision) {
  // {revision, supplier sector, supplier dynamic sector, result, "tix mnr mac revision"}
  const std::tuple<int, std::string, std::string, int, std::string> a_o_Cases[] = {
      {4, f_Checked(STR_SUPPLIER), f_Checked(STR_SUPPLIER_DYN), 0, "AA1 4411200117 00:1A:2B -"},
      {0, f_Checked(STR_OLD) + "R02;", "", 0, "AA0 4411200117 - R02"},
      {0, f_Checked(STR_OLD) + "R02", "", 0, "AA0 4411200117 - -"},
      // Revision 0 with key lines: the old record fails, the new format reads.
      {0, f_Checked(STR_SUPPLIER), f_Checked(STR_SUPPLIER_DYN), 0, "AA1 4411200117 00:1A:2B -"},
      {0, STR_OLD + "###0000***R02;", "", -1, "AA0 - - -"},
      {1, f_Checked(STR_SUPPLIER), STR_SUPPLIER_DYN + "###0000***", -1, "- 4411200117 00:1A:2B -"},
  };
  Kiro o_Kiro;
  for (const auto& [i_HwRev, str_Sup, str_SupDyn, i_Ret, str_Want] : a_o_Cases) {
    SCOPED_TRACE(str_Sup);
    std::filesystem::remove_all(o_Root.f_Path("/var/sysdiag"));
    ASSERT_EQ(o_Root.f_Sim("hwrev " + std::to_string(i_HwRev) + " >/dev/null"), 0);
    f_Image(f_Checked(STR_STATIC), STR_DYN, str_Sup, str_SupDyn);
    EXPECT_EQ(o_Kiro.f_ReadSupplierData(), i_Ret);
    std::string str_Diag;
    for (const char* z_c_Param : {"tix", "mnr", "mac", "revision"})
      str_Diag += " " + f_Diag(std::string("hardware/") + z_c_Param);
    EXPECT_EQ(str_Diag, " " + str_Want);
  }
}

TEST_F(KiroTest, DynamicSectorDefaultsAndRoundTrip) {
  // {dynamic sector, cycle, cycle at the last load start, load integral}
  const std::tuple<std::string, unsigned int, unsigned int, double> a_o_Cases[] = {
      {"ZyklusNr:0000000100\r\nLastintegral:2.5\r\n", 100, 100, 2.5},
      {"ZyklusNr:0000000100\r\nStartLastZyklus:0000000050\r\n", 100, 50, 0.0},
      // A lost count stays visible as INT_MIN instead of restarting at zero.
      {"TIX:AA3\r\n", 2147483648u, 2147483648u, 0.0},
  };
  for (const auto& [str_Dyn, ui_Zyklus, ui_Start, d_Last] : a_o_Cases) {
    f_Image(f_Checked(STR_STATIC), str_Dyn);
    Kiro o_Kiro;
    EXPECT_EQ(o_Kiro.f_GetStartLastZyklus(), ui_Start);
    EXPECT_DOUBLE_EQ(o_Kiro.f_GetLastintegral(), d_Last);
    EXPECT_EQ(f_Diag("cycle"), std::to_string(ui_Zyklus));
    EXPECT_EQ(f_Diag("torqueload"), std::to_string(d_Last));
  }

  // The save writes five lines over the longer old text and leaves that text's tail.
  f_Image(f_Checked(STR_STATIC));
  const std::string str_Before = o_Root.f_Read(Kiro::A_C_DEVICE_PATH);
  Kiro o_Kiro;
  f_SysDiagSetCycle(250);
  f_SysDiagSetTorqueLoad(33.25);
  ASSERT_EQ(o_Kiro.f_Write(), 0);
  const std::string str_Saved = o_Root.f_Read(Kiro::A_C_DEVICE_PATH);
  EXPECT_EQ(str_Saved.substr(1792, 120),
            "TIX:AA3\r\nZyklusNr:0000000250\r\nWartungsintervall:0000000000\r\n"
            "Lastintegral:33.250000\r\nStartLastZyklus:0000000000\r\n" +
                std::string("00000\r\n\0", 8));
  EXPECT_EQ(str_Saved.substr(2048), str_Before.substr(2048));

  // A load integral too long for its line is refused, not spilled into the supplier sector.
  f_SysDiagSetParam("torqueload", "1e200");
  EXPECT_EQ(o_Kiro.f_Write(), -1);
  EXPECT_EQ(o_Root.f_Read(Kiro::A_C_DEVICE_PATH), str_Saved);
  std::filesystem::remove(o_Root.f_Path(Kiro::A_C_DEVICE_PATH));
  EXPECT_EQ(o_Kiro.f_SaveDynData(), -1);
  EXPECT_FALSE(o_Root.f_Exists(Kiro::A_C_DEVICE_PATH));
}

}  // namespace
