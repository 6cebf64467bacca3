// Battery supervision on the real daemon: the simulated driver's battery byte drives
// charge, status, outputs, readiness flag 6, error 3228 and the power-off count-down.
#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <functional>
#include <string>
#include <vector>

#include "Harness.h"

using namespace it;

namespace {

// One daemon per case; the end expects exit status 0.
class Battery : public ::testing::Test {
 protected:
  explicit Battery(const std::function<void(const Sandbox&)>& f_Prepare = {}) : o_Svc(f_Prepare) {}
  // Waits for "battstatuschanged" (or "battpowerchanged") with the given value.
  bool f_Status(int i_Value, int i_TimeoutMs = 5000, const char* z_c_Signal = "battstatuschanged") {
    return o_Rec.f_WaitFor(z_c_Signal, i_TimeoutMs,
                           [=](GVariant* v) { return f_Int(v) == i_Value; }) != nullptr;
  }
  bool f_Power(int i_Power, int i_TimeoutMs = 5000) {
    return f_Status(i_Power, i_TimeoutMs, "battpowerchanged");
  }
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

  // Full battery at start: charge first, then status; flag 6 completes readiness.
  ASSERT_TRUE(f_Power(100, 8000));
  ASSERT_TRUE(f_Status(3));
  ASSERT_NE(o_Rec.f_WaitFor("rdychanged", 5000, [](GVariant* v) { return f_Int(v) == 72; }),
            nullptr);
  EXPECT_TRUE(o_Box.f_BmsOut(29));
  EXPECT_FALSE(o_Box.f_BmsOut(30));
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/battery/status"), "3");
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/battery/power"), "100");

  // 19 -> 0 % low (the bands themselves are a table in unit_CheckRules).
  ASSERT_EQ(o_Box.f_Sim("battery 19"), 0);
  EXPECT_TRUE(f_Power(0));
  EXPECT_EQ(f_Get("fbattpowerget"), 0);
  EXPECT_TRUE(f_Status(2));
  // Low: error 3228 once, flag 6 and output 29 drop.
  const Signal_ST* z_o_Fault = o_Rec.f_WaitFor("sysfault", 5000);
  ASSERT_NE(z_o_Fault, nullptr);
  EXPECT_EQ(f_Int(z_o_Fault->o_Args, 0), 403);
  EXPECT_EQ(f_Int(z_o_Fault->o_Args, 1), 4);
  EXPECT_NE(o_Rec.f_WaitFor("rdychanged", 5000, [](GVariant* v) { return f_Int(v) == 0; }),
            nullptr);
  EXPECT_FALSE(o_Box.f_BmsOut(29));
  EXPECT_EQ(f_Get("fbattstatusget", g_variant_new("(i)", 0)), 2);

  // Empty: the count-down runs 20..1 once a second, then the tool is switched off.
  ASSERT_EQ(o_Box.f_Sim("battery 9"), 0);
  ASSERT_TRUE(f_Status(1));
  for (int i = 20; i >= 1; i--)
    ASSERT_NE(o_Rec.f_WaitFor("battcntdwn", 3000, [=](GVariant* v) { return f_Int(v) == i; }),
              nullptr)
        << i;
  EXPECT_TRUE(f_WaitUntil([&] { return o_Box.f_Read("/proc/pwrctrl/poweroff") == "1\n"; }, 3000));
  auto o_Downs = o_Rec.f_All("battcntdwn");
  ASSERT_EQ(o_Downs.size(), 20u);
  // One second apart, give or take a tick.
  gint64 i_Span = o_Downs.back()->i_Time - o_Downs.front()->i_Time;
  EXPECT_GT(i_Span, 18 * G_USEC_PER_SEC);
  EXPECT_LT(i_Span, 21 * G_USEC_PER_SEC);
  EXPECT_EQ(o_Rec.f_Count("sysfault"), 1u);

  // A good battery again stops it and withdraws 3228.
  ASSERT_EQ(o_Box.f_Sim("battery 100"), 0);
  ASSERT_TRUE(f_Status(3));
  const Signal_ST* z_o_Ack = o_Rec.f_WaitFor("acksysfault", 5000);
  ASSERT_NE(z_o_Ack, nullptr);
  EXPECT_EQ(f_Int(z_o_Ack->o_Args, 0), 403);
  EXPECT_TRUE(o_Box.f_BmsOut(29));
}

TEST_F(Battery, OffOnAnnouncementsWork) {
  ASSERT_TRUE(o_Svc.f_Started());
  ASSERT_TRUE(f_Status(3, 8000));

  // Off (SIGUSR1): status 0, output 30, count-down, the clock saved to the RTC.
  o_Rec.f_Clear();
  o_Daemon.f_Signal(SIGUSR1);
  ASSERT_TRUE(f_Status(0));
  EXPECT_TRUE(f_Power(0));
  EXPECT_NE(o_Rec.f_WaitFor("battcntdwn", 3000, [](GVariant* v) { return f_Int(v) == 20; }),
            nullptr);
  EXPECT_TRUE(o_Box.f_BmsOut(30));
  EXPECT_TRUE(f_WaitUntil(
      [&] { return o_Box.f_Read("/sim/commands.log").find("hwclock -wu") != std::string::npos; },
      3000));
  // While off, a client's charge is accepted and ignored.
  EXPECT_TRUE(o_Svc.o_Client.f_Invoke("fbattpowerset", g_variant_new("(i)", 55)));
  EXPECT_EQ(f_Get("fbattpowerget"), 0);

  // On (SIGUSR2): status 4, the count-down stops and the next reading publishes the charge.
  o_Daemon.f_Signal(SIGUSR2);
  ASSERT_TRUE(f_Status(4));
  ASSERT_TRUE(f_Power(100));
  ASSERT_TRUE(f_Status(3));
  o_Rec.f_Sync();
  size_t ui_Downs = o_Rec.f_Count("battcntdwn");
  f_Pump(1500);
  EXPECT_EQ(o_Rec.f_Count("battcntdwn"), ui_Downs) << "count-down kept running";

  // Both announcements before one tick: each of the next two ticks consumes one, and
  // both see the battery on (then the reading publishes the charge again). A tick may
  // fall between the two signals sent from here; that pair is two separate
  // announcements (off, then on), so the case is tried again.
  std::vector<int> o_Seen;
  for (int i_Try = 0; i_Try < 5; i_Try++) {
    o_Rec.f_Clear();
    o_Daemon.f_Signal(SIGUSR1);
    o_Daemon.f_Signal(SIGUSR2);
    auto f_Statuses = [&] {
      o_Seen.clear();
      for (const Signal_ST* z_o_S : o_Rec.f_All("battstatuschanged"))
        o_Seen.push_back(f_Int(z_o_S->o_Args));
      return o_Seen;
    };
    ASSERT_TRUE(f_WaitUntil(
        [&] {
          std::vector<int> o_S = f_Statuses();
          return std::count(o_S.begin(), o_S.end(), 3) == 2 ||
                 (std::count(o_S.begin(), o_S.end(), 0) > 0 && !o_S.empty() && o_S.back() == 3);
        },
        8000));
    if (std::count(o_Seen.begin(), o_Seen.end(), 0) == 0) break;
    f_Pump(600);  // let the split pair settle before the next try
  }
  EXPECT_EQ(o_Seen, (std::vector<int>{4, 3, 4, 3}));
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
  EXPECT_TRUE(f_Power(35));
  EXPECT_TRUE(f_Status(3));

  // A missing battery file ends the reading; nothing changes.
  ASSERT_EQ(o_Box.f_Sim("sync 0"), 0);
  ASSERT_EQ(o_Box.f_Sim("battery --remove"), 0);
  EXPECT_TRUE(o_Daemon.f_WaitLog("f_CheckBattPower fopen", 3000));
  EXPECT_EQ(f_Get("fbattpowerget"), 35);
}

}  // namespace
