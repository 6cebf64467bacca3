// The driver's battery byte through the real daemon to charge, status, outputs, flag 6, error 3228
// and the power-off count-down, one value each; the bands are unit_CheckRules' tables.
#include <csignal>
#include <gtest/gtest.h>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "Harness.h"

using namespace it;

namespace {

// One daemon per case; the end expects exit status 0.
class Battery : public ::testing::Test {
 protected:
  explicit Battery(const std::function<void(const Sandbox&)>& f_Prepare = {}) : o_Svc(f_Prepare) {}
  int f_Get(const char* z_c_Method, GVariant* o_Args = nullptr) {
    return f_Int(o_Svc.o_Client.f_Reply(z_c_Method, o_Args));
  }
  Service o_Svc;
  const Sandbox& o_Box = o_Svc.o_Box;
  SignalRecorder& o_Rec = o_Svc.o_Rec;
  Daemon& o_Daemon = o_Svc.o_Daemon;
};

TEST_F(Battery, FallingChargeDrivesStatusOutputsErrorAndCountDown) {
  ASSERT_TRUE(o_Svc.f_Started());
  // Full battery at start: charge, status, and flag 6 completes readiness.
  ASSERT_TRUE(o_Rec.f_WaitFirst("battpowerchanged", 100, 8000));
  ASSERT_TRUE(o_Rec.f_WaitFirst("battstatuschanged", 3));
  ASSERT_TRUE(o_Rec.f_WaitFirst("rdychanged", 72));
  EXPECT_TRUE(o_Box.f_BmsOut(29));
  EXPECT_FALSE(o_Box.f_BmsOut(30));
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/battery/status"), "3");
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/battery/power"), "100");

  // Low: 0 %, error 3228 (403) once, flag 6 and output 29 drop.
  ASSERT_EQ(o_Box.f_Sim("battery 19"), 0);
  EXPECT_TRUE(o_Rec.f_WaitFirst("battpowerchanged", 0));
  EXPECT_TRUE(o_Rec.f_WaitFirst("battstatuschanged", 2));
  EXPECT_TRUE(o_Rec.f_WaitFirst("sysfault", 403));
  EXPECT_TRUE(o_Rec.f_WaitFirst("rdychanged", 0));
  EXPECT_FALSE(o_Box.f_BmsOut(29));
  EXPECT_EQ(f_Get("fbattstatusget", g_variant_new("(i)", 0)), 2);

  // Empty: the count-down runs 20..1 once a second, then the tool is switched off.
  ASSERT_EQ(o_Box.f_Sim("battery 9"), 0);
  ASSERT_TRUE(o_Rec.f_WaitFirst("battstatuschanged", 1));
  EXPECT_TRUE(f_WaitUntil([&] { return o_Box.f_Read("/proc/pwrctrl/poweroff") == "1\n"; }, 25000));
  std::vector<int> o_Downs, o_Want(20);
  std::iota(o_Want.rbegin(), o_Want.rend(), 1);
  for (const Signal_ST* z_o_S : o_Rec.f_All("battcntdwn")) o_Downs.push_back(f_Int(z_o_S->o_Args));
  ASSERT_EQ(o_Downs, o_Want);
  // One second apart, give or take a tick.
  gint64 i_Span = o_Rec.f_All("battcntdwn").back()->i_Time - o_Rec.f_All("battcntdwn")[0]->i_Time;
  EXPECT_GT(i_Span, 18 * G_USEC_PER_SEC);
  EXPECT_LT(i_Span, 21 * G_USEC_PER_SEC);
  EXPECT_EQ(o_Rec.f_Count("sysfault"), 1u);

  // A good battery again stops it and withdraws 3228.
  ASSERT_EQ(o_Box.f_Sim("battery 100"), 0);
  ASSERT_TRUE(o_Rec.f_WaitFirst("battstatuschanged", 3));
  EXPECT_TRUE(o_Rec.f_WaitFirst("acksysfault", 403));
  EXPECT_TRUE(o_Box.f_BmsOut(29));
}

TEST_F(Battery, OffOnAnnouncementsWork) {
  ASSERT_TRUE(o_Svc.f_Started());
  ASSERT_TRUE(o_Rec.f_WaitFirst("battstatuschanged", 3, 8000));

  // Off (SIGUSR1): status 0, output 30, count-down, the clock saved to the RTC.
  o_Rec.f_Clear();
  o_Daemon.f_Signal(SIGUSR1);
  ASSERT_TRUE(o_Rec.f_WaitFirst("battstatuschanged", 0));
  EXPECT_TRUE(o_Rec.f_WaitFirst("battpowerchanged", 0));
  EXPECT_TRUE(o_Rec.f_WaitFirst("battcntdwn", 20, 3000));
  EXPECT_TRUE(o_Box.f_BmsOut(30));
  EXPECT_TRUE(f_WaitUntil(
      [&] { return o_Box.f_Read("/sim/commands.log").find("hwclock -wu") != std::string::npos; },
      3000));
  // While off, a client's charge is accepted and ignored.
  EXPECT_TRUE(o_Svc.o_Client.f_Invoke("fbattpowerset", g_variant_new("(i)", 55)));
  EXPECT_EQ(f_Get("fbattpowerget"), 0);

  // On (SIGUSR2): status 4, the count-down stops and the next reading publishes the charge.
  o_Daemon.f_Signal(SIGUSR2);
  ASSERT_TRUE(o_Rec.f_WaitFirst("battstatuschanged", 4));
  ASSERT_TRUE(o_Rec.f_WaitFirst("battpowerchanged", 100));
  ASSERT_TRUE(o_Rec.f_WaitFirst("battstatuschanged", 3));
  o_Rec.f_Sync();
  size_t ui_Downs = o_Rec.f_Count("battcntdwn");
  f_Pump(1500);
  EXPECT_EQ(o_Rec.f_Count("battcntdwn"), ui_Downs) << "count-down kept running";

  // Off and on back to back, a tick perhaps between them: the tool ends on.
  o_Rec.f_Clear();
  o_Daemon.f_Signal(SIGUSR1);
  o_Daemon.f_Signal(SIGUSR2);
  EXPECT_TRUE(o_Rec.f_WaitFirst("battstatuschanged", 4));
  EXPECT_TRUE(o_Rec.f_WaitFirst("battstatuschanged", 3));
}

// Starts on a reading of 255, which equals the value remembered at start.
class BatteryUnread : public Battery {
 protected:
  BatteryUnread()
      : Battery([](const Sandbox& o_Box) { ASSERT_EQ(o_Box.f_Sim("battery 255"), 0); }) {}
};

TEST_F(BatteryUnread, ReadingsWithoutARealValue) {
  // Nothing is published.
  ASSERT_TRUE(o_Svc.f_Started());
  ASSERT_TRUE(o_Daemon.f_WaitLog("f_CheckBattPower - Lt initialized", 5000));
  f_Pump(600);
  EXPECT_EQ(f_Get("fbattpowerget"), -1);
  EXPECT_EQ(o_Rec.f_Count("battstatuschanged"), 0u);

  // The driver in its boot loader stands for a usable battery (35 %).
  ASSERT_EQ(o_Box.f_Sim("sync 3"), 0);
  EXPECT_TRUE(o_Rec.f_WaitFirst("battpowerchanged", 35));
  EXPECT_TRUE(o_Rec.f_WaitFirst("battstatuschanged", 3));

  // A missing battery file ends the reading; nothing changes.
  ASSERT_EQ(o_Box.f_Sim("sync 0"), 0);
  ASSERT_EQ(o_Box.f_Sim("battery --remove"), 0);
  EXPECT_TRUE(o_Daemon.f_WaitLog("f_CheckBattPower fopen", 3000));
  EXPECT_EQ(f_Get("fbattpowerget"), 35);
}

}  // namespace
