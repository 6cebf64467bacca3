// Root mapping, CRC, shell commands and GPIO of the system library.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <sys/stat.h>

#include "TestSupport.h"
#include "sysLib/Crc.h"
#include "sysLib/Gpio.h"
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

TEST(SysCmd, SandboxCommandsShadowTheHostOnes) {
  TempRoot o_Root;
  o_Root.f_Write("/bin/uname", "#!/bin/sh\necho simulated \"$@\"\n");
  chmod(o_Root.f_Path("/bin/uname").c_str(), 0755);
  char a_c_Reply[64];
  ASSERT_EQ(f_SysCmd("uname -r", a_c_Reply, sizeof(a_c_Reply)), 0);
  EXPECT_STREQ(a_c_Reply, "simulated -r\n");

  o_Root.f_Write("/proc/pwrctrl/poweroff", "");
  EXPECT_EQ(f_PowerOff(), 0);
  EXPECT_EQ(o_Root.f_Read("/proc/pwrctrl/poweroff"), "1\n");
}

TEST(Gpio, ReadsLevelsAndRefusesGarbage) {
  TempRoot o_Root;
  const std::pair<const char*, int> a_o_Cases[] = {{"1\n", 1}, {"0", 0}, {"x", -1}, {"", -1}};
  unsigned short us_Line = 100;
  for (const auto& o_Case : a_o_Cases) {
    o_Root.f_Write("/sys/class/gpio/gpio" + std::to_string(us_Line) + "/value", o_Case.first);
    EXPECT_EQ(Gpio_CL(us_Line++, false, false).f_Read(), o_Case.second) << o_Case.first;
  }
  EXPECT_EQ(Gpio_CL(us_Line, false, false).f_Read(), -1);  // line not exported
  EXPECT_EQ(Gpio_CL(us_Line, true, false).f_Write(true), -1);
  EXPECT_FALSE(o_Root.f_Exists("/sys/class/gpio/gpio" + std::to_string(us_Line) + "/value"));
  Gpio_CL o_Out(101, true, false);
  EXPECT_EQ(o_Out.f_Write(true), 0);
  EXPECT_EQ(o_Out.f_Read(), 1);
}
