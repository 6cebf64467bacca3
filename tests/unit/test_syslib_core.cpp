// Root mapping, CRC and shell commands of the system library.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "TestSupport.h"
#include "sysLib/Crc.h"
#include "sysLib/SysCmd.h"
#include "sysLib/SysPath.h"

TEST(SysPath, MapsAbsolutePathsOnlyWithARoot) {
  struct Case_ST {
    const char* z_c_Root;  // nullptr: variable unset
    const char* z_c_In;
    const char* z_c_Out;
  };
  const Case_ST a_o_Cases[] = {
      {nullptr, "/etc/codes", "/etc/codes"},        {"", "/etc/codes", "/etc/codes"},
      {"/tmp/r", "/etc/codes", "/tmp/r/etc/codes"}, {"/tmp/r/", "/dev/shm/X", "/tmp/r/dev/shm/X"},
      {"/tmp/r", "relative/file", "relative/file"},
  };
  for (const Case_ST& o_Case : a_o_Cases) {
    if (o_Case.z_c_Root == nullptr) {
      unsetenv("SYSSRV_ROOT");
    } else {
      setenv("SYSSRV_ROOT", o_Case.z_c_Root, 1);
    }
    EXPECT_EQ(f_SysPath(o_Case.z_c_In), o_Case.z_c_Out)
        << (o_Case.z_c_Root ? o_Case.z_c_Root : "(unset)");
  }
  unsetenv("SYSSRV_ROOT");
}

TEST(Crc, StandardCheckValueAndSeedChaining) {
  const char a_c_Data[] = "123456789";
  EXPECT_EQ(f_crcGet(0xFFFF, a_c_Data, 9), 0x29B1);
  // A record checked in two pieces gives the same CRC as in one.
  EXPECT_EQ(f_crcGet(f_crcGet(0xFFFF, a_c_Data, 4), a_c_Data + 4, 5), 0x29B1);
}

TEST(SysCmd, ExitStatusDecidesTheResult) {
  EXPECT_EQ(f_SysCmd("true"), 0);
  EXPECT_EQ(f_SysCmd("exit 3"), -1);
  EXPECT_EQ(f_SysCmd("kill -9 $$"), -1);
}

TEST(SysCmd, ReplyIsBoundedAndTheCommandRunsToItsEnd) {
  char a_c_Reply[8];
  // head only succeeds when all its output was read; an early stop would kill it by SIGPIPE.
  EXPECT_EQ(f_SysCmd("yes | head -c 200000", a_c_Reply, sizeof(a_c_Reply)), 0);
  EXPECT_STREQ(a_c_Reply, "y\ny\ny\ny");
  // The output of a failed command is still handed back (the caller may log it).
  EXPECT_EQ(f_SysCmd("printf x; exit 1", a_c_Reply, sizeof(a_c_Reply)), -1);
  EXPECT_STREQ(a_c_Reply, "x");
}

TEST(SysCmd, QuotedTextReachesTheCommandUnchanged) {
  const std::string str_Text = "it's $HOME `id` \"q\" \\ ;|";
  char a_c_Reply[128];
  std::string str_Cmd = "printf '%s' " + f_ShellQuote(str_Text);
  ASSERT_EQ(f_SysCmd(str_Cmd.c_str(), a_c_Reply, sizeof(a_c_Reply)), 0);
  EXPECT_EQ(std::string(a_c_Reply), str_Text);
}
