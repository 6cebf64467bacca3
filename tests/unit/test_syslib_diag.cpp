// The diagnostic store: value formats, reading back, and the busy mode.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <string>
#include <tuple>

#include "TestSupport.h"
#include "sysLib/SysDiag.h"

// Each value goes to its own file as bare text; the store is made again when /var is cleared.
TEST(SysDiag, ValuesAreStoredAsBareTextAndTheStoreIsMadeAgain) {
  TempRoot o_Root;
  const std::tuple<std::function<int()>, const char*, const char*> a_o_Cases[] = {
      {[] { return f_SysDiagSetParam("sysfault", "3228"); }, "sysfault", "3228"},
      {[] { return f_SysDiagSetCycle(4000000000u); }, "cycle", "4000000000"},
      {[] { return f_SysDiagSetLoadStartCycle(17); }, "loadstartcycle", "17"},
      {[] { return f_SysDiagSetBatteryPower(-1); }, "battery/power", "-1"},
      {[] { return f_SysDiagSetTorqueLoad(1.5); }, "torqueload", "1.500000"},
  };
  for (const auto& [f_Set, z_c_File, z_c_Text] : a_o_Cases) {
    SCOPED_TRACE(z_c_File);
    std::filesystem::remove_all(o_Root.f_Path("/var/sysdiag"));
    EXPECT_EQ(f_Set(), 0);
    EXPECT_EQ(o_Root.f_Read(std::string("/var/sysdiag/") + z_c_File), z_c_Text);
  }
  // Only what was written lies in the store: no temporary is left behind.
  int i_Entries = 0;
  for (const auto& o_Entry :
       std::filesystem::recursive_directory_iterator(o_Root.f_Path("/var/sysdiag")))
    i_Entries += o_Entry.is_regular_file() ? 1 : 0;
  EXPECT_EQ(i_Entries, 1);
  // A value too large for its fixed buffer is refused, not cut.
  EXPECT_EQ(f_SysDiagSetTorqueLoad(1e300), -1);
  EXPECT_EQ(o_Root.f_Read("/var/sysdiag/torqueload"), "1.500000");

  // A replaced file keeps the mode it was given.
  ASSERT_EQ(f_SysDiagSetBatteryPower(50), 0);
  chmod(o_Root.f_Path("/var/sysdiag/battery/power").c_str(), 0640);
  ASSERT_EQ(f_SysDiagSetBatteryPower(51), 0);
  struct stat o_St {};
  ASSERT_EQ(stat(o_Root.f_Path("/var/sysdiag/battery/power").c_str(), &o_St), 0);
  EXPECT_EQ(o_St.st_mode & 07777, 0640u);
}

TEST(SysDiag, NamesStayInsideTheStore) {
  TempRoot o_Root;
  for (const char* z_c_Key : {"../escape", "/abs", "", "hardware/"})
    EXPECT_EQ(f_SysDiagSetParam(z_c_Key, "x"), -1) << z_c_Key;
  EXPECT_FALSE(o_Root.f_Exists("/var/escape"));
  EXPECT_EQ(f_SysDiagSetParam("hardware/mnr", "1"), -1);  // sub-directory not made yet
  EXPECT_EQ(f_SysDiagMakeSubDir("hardware"), 0);
  EXPECT_EQ(f_SysDiagSetParam("hardware/mnr", "1"), 0);
}

TEST(SysDiag, ReadersTrimAndRefuseWhatDoesNotFit) {
  TempRoot o_Root;
  o_Root.f_Write("/var/sysdiag/code", " \tABC-12\r\n");
  char a_c_Buf[8];
  ASSERT_EQ(f_SysDiagGetParam("code", a_c_Buf, sizeof(a_c_Buf)), 0);
  EXPECT_STREQ(a_c_Buf, "ABC-12");
  EXPECT_EQ(f_SysDiagGetParam("code", a_c_Buf, 6), -1);
  EXPECT_EQ(f_SysDiagGetParam("missing", a_c_Buf, sizeof(a_c_Buf)), -1);

  // The cycle counter is a count and nothing else; busy means exactly "1".
  unsigned int ui_Cycle = 99;
  bool b_Busy = true;
  EXPECT_EQ(f_SysDiagGetCycle(&ui_Cycle), -1);  // no file yet
  EXPECT_EQ(f_SysDiagGetSrbMod(&b_Busy), 0);
  EXPECT_FALSE(b_Busy);
  // The text in both files, the count read from it (-1: refused) and the busy mode.
  const std::tuple<const char*, long long, bool> a_o_Cases[] = {
      {"4294967296", -1, false}, {"-1", -1, false}, {"12abc", -1, false},
      {"1\n", 1, true},          {"11", 11, false},
  };
  for (const auto& [z_c_Text, ll_Cycle, b_WantBusy] : a_o_Cases) {
    SCOPED_TRACE(std::string("\"") + z_c_Text + '"');
    o_Root.f_Write("/var/sysdiag/cycle", z_c_Text);
    o_Root.f_Write("/var/sysdiag/srbmod", z_c_Text);
    ui_Cycle = 0;
    int i_Ret = f_SysDiagGetCycle(&ui_Cycle);
    EXPECT_EQ(i_Ret == 0 ? static_cast<long long>(ui_Cycle) : -1, ll_Cycle);
    ASSERT_EQ(f_SysDiagGetSrbMod(&b_Busy), 0);
    EXPECT_EQ(b_Busy, b_WantBusy);
  }
}
