// Root mapping, CRC, shell commands and watchdog keep-alives of the system library.
#include <gtest/gtest.h>

#include <glib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "TestSupport.h"
#include "sysLib/Crc.h"
#include "sysLib/SysCmd.h"
#include "sysLib/SysNotify.h"
#include "sysLib/SysPath.h"

TEST(SysPath, MapsAbsolutePathsOnlyWithARoot) {
  unsetenv("SYSSRV_ROOT");
  EXPECT_EQ(f_SysPath("/etc/codes"), "/etc/codes");
  setenv("SYSSRV_ROOT", "/tmp/r", 1);
  EXPECT_EQ(f_SysPath("/etc/codes"), "/tmp/r/etc/codes");
  EXPECT_EQ(f_SysPath("relative/file"), "relative/file");
  setenv("SYSSRV_ROOT", "/tmp/r/", 1);  // no "//" in the mapped path
  EXPECT_EQ(f_SysPath("/dev/shm/X"), "/tmp/r/dev/shm/X");
  unsetenv("SYSSRV_ROOT");
}

TEST(Crc, StandardCheckValueAndSeedChaining) {
  const char a_c_Data[] = "123456789";
  EXPECT_EQ(f_crcGet(0xFFFF, a_c_Data, 9), 0x29B1);
  // A record checked in two pieces gives the same CRC as in one.
  EXPECT_EQ(f_crcGet(f_crcGet(0xFFFF, a_c_Data, 4), a_c_Data + 4, 5), 0x29B1);
}

TEST(SysCmd, ExitStatusDecidesTheResultAndTheReplyIsBounded) {
  EXPECT_EQ(f_SysCmd("true", nullptr, 0), 0);
  EXPECT_EQ(f_SysCmd("exit 3", nullptr, 0), -1);
  EXPECT_EQ(f_SysCmd("kill -9 $$", nullptr, 0), -1);
  char a_c_Reply[128];
  // head only succeeds when all its output was read; an early stop would kill it by SIGPIPE.
  EXPECT_EQ(f_SysCmd("yes | head -c 200000", a_c_Reply, 8), 0);
  EXPECT_STREQ(a_c_Reply, "y\ny\ny\ny");
  // The output of a failed command is still handed back (the caller may log it).
  EXPECT_EQ(f_SysCmd("printf x; exit 1", a_c_Reply, 8), -1);
  EXPECT_STREQ(a_c_Reply, "x");
  const std::string str_Quoted = "it's $HOME `id` \"q\" \\ ;|";
  const std::string str_Printf = "printf '%s' " + f_ShellQuote(str_Quoted);
  EXPECT_EQ(f_SysCmd(str_Printf.c_str(), a_c_Reply, sizeof(a_c_Reply)), 0);
  EXPECT_EQ(a_c_Reply, str_Quoted);
}

TEST(SysCmd, AHangingCommandIsKilledWithWhatItStarted) {
  // The pipeline's sleep is a grandchild holding the reply pipe: only a group kill ends it.
  char a_c_Reply[16] = "";
  for (bool b_Reply : {false, true}) {
    gint64 i_Start = g_get_monotonic_time();
    EXPECT_EQ(-1, f_SysCmdTimeout("echo early; sleep 30.25 | cat", b_Reply ? a_c_Reply : nullptr,
                                  b_Reply ? sizeof(a_c_Reply) : 0, 300));
    EXPECT_LT(g_get_monotonic_time() - i_Start, 5 * G_USEC_PER_SEC);
  }
  // Nothing it started is left running on the tool.
  int i_Left = 0;
  for (int i = 0; i < 100 && (i_Left = system("pgrep -f 'sleep 30[.]25' >/dev/null")) == 0; ++i)
    g_usleep(20000);
  EXPECT_NE(0, i_Left) << "an orphaned sleep survived the kill";
  EXPECT_STREQ(a_c_Reply, "early\n");  // what came before the kill, from the second run
  EXPECT_EQ(0, f_SysCmdTimeout("true", nullptr, 0, 300));
}

TEST(SysCmd, AsyncCommandDoesNotHoldTheLoop) {
  TempRoot o_Root;
  static std::string str_Cmd;
  str_Cmd = "sleep 0.3; touch '" + o_Root.f_Path("/done") + "'";
  int i_Rc = -2;
  // Only while the loop dispatches is the command left to run on its own.
  g_idle_add(
      [](gpointer z_v_Rc) -> gboolean {
        *static_cast<int*>(z_v_Rc) = f_SysCmdAsync(str_Cmd.c_str());
        return G_SOURCE_REMOVE;
      },
      &i_Rc);
  const gint64 i_Start = g_get_monotonic_time();
  while (i_Rc == -2) g_main_context_iteration(nullptr, TRUE);
  EXPECT_EQ(0, i_Rc);
  EXPECT_LT(g_get_monotonic_time() - i_Start, 250 * 1000);
  // The command still runs to its end; the loop collects it.
  gint64 i_Deadline = g_get_monotonic_time() + 10 * G_USEC_PER_SEC;
  while (!o_Root.f_Exists("/done") && g_get_monotonic_time() < i_Deadline) {
    g_main_context_iteration(nullptr, FALSE);
    g_usleep(10000);
  }
  EXPECT_TRUE(o_Root.f_Exists("/done"));
}

TEST(SysNotify, KeepAlivesGoToTheManagersSocketAtAQuarterOfThePeriod) {
  TempRoot o_Root;
  const std::string str_Sock = o_Root.f_Path("/notify");
  int i_Fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un o_Addr{AF_UNIX, {}};
  snprintf(o_Addr.sun_path, sizeof(o_Addr.sun_path), "%s", str_Sock.c_str());
  ASSERT_EQ(0, bind(i_Fd, reinterpret_cast<sockaddr*>(&o_Addr), sizeof(o_Addr)));
  setenv("NOTIFY_SOCKET", str_Sock.c_str(), 1);
  setenv("WATCHDOG_USEC", "400000", 1);
  // A second of ticks: about one keep-alive per 100 ms, read as they come so a flood fails.
  int i_Count = 0;
  char a_c_Buf[64];
  for (gint64 i_End = g_get_monotonic_time() + G_USEC_PER_SEC; g_get_monotonic_time() < i_End;
       g_usleep(20000)) {
    f_SysWatchdogKick();
    for (ssize_t i_Len; (i_Len = recv(i_Fd, a_c_Buf, sizeof(a_c_Buf), MSG_DONTWAIT)) > 0; ++i_Count)
      EXPECT_EQ("WATCHDOG=1", std::string(a_c_Buf, static_cast<size_t>(i_Len)));
  }
  EXPECT_GE(i_Count, 5);
  EXPECT_LE(i_Count, 12);
  close(i_Fd);
  unsetenv("NOTIFY_SOCKET");
  unsetenv("WATCHDOG_USEC");
}
