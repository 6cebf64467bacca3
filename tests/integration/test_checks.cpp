// The periodic checks' wiring and timing: temperature and Smod, flash errors in the kernel log,
// maintenance. Thresholds and hysteresis are unit_CheckRules' tables.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include "Harness.h"

using namespace it;

namespace {

constexpr const char* A_C_CHAN_CFG = "/home/tool/config/ChanCfg.json";

// The temperature check runs every 5 s; a changed reading is seen within one period.
constexpr int I_TEMP_PERIOD_MS = 5000 + 1500;

void f_HotLimitAndAFlashError(const Sandbox& o_Box) {
  ASSERT_EQ(o_Box.f_Sim("templimit 60"), 0);
  ASSERT_EQ(o_Box.f_Sim("dmesg 'UBIFS error (ubi0:0 pid 412): bad node at LEB 17'"), 0);
}

class Checks : public ServiceSuite<f_HotLimitAndAFlashError> {
 protected:
  // Rewrites the maintenance section as a technician's tool would, and announces the change.
  void f_SetMaintenance(const char* z_c_Section) {
    CJsonTree_T o_Cfg(cJSON_Parse(o_Box.f_Read(A_C_CHAN_CFG).c_str()));
    ASSERT_TRUE(o_Cfg);
    cJSON_ReplaceItemInObject(o_Cfg.get(), "Wartung", cJSON_Parse(z_c_Section));
    o_Box.f_Write(A_C_CHAN_CFG, CJsonText_T(cJSON_Print(o_Cfg.get())).get());
    o_Client.f_Invoke("fcfgfilechanged", g_variant_new("(s)", A_C_CHAN_CFG));
  }
};

TEST_F(Checks, FlashErrorInTheKernelLogIsReported) {
  EXPECT_NE(o_Rec.f_WaitFirst("sysfault", 404, 12000), nullptr);
}

TEST_F(Checks, SmodPostponesTheTemperatureCheck) {
  ASSERT_EQ(o_Box.f_Sim("temp 30"), 0);
  ASSERT_TRUE(f_WaitUntil([&] { return o_Box.f_Read("/var/sysdiag/temperature") == "30.00"; },
                          I_TEMP_PERIOD_MS));
  ASSERT_EQ(o_Box.f_Sim("smod 1"), 0);
  ASSERT_EQ(o_Box.f_Sim("temp 70"), 0);
  // A whole period passes without a check.
  f_Pump(I_TEMP_PERIOD_MS);
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/temperature"), "30.00");
  // The first tick after Smod is left runs the postponed check.
  gint64 i_Left = g_get_monotonic_time();
  ASSERT_EQ(o_Box.f_Sim("smod 0"), 0);
  const Signal_ST* z_o_S = o_Rec.f_WaitFirst("sysfault", 406, 2000);
  ASSERT_NE(z_o_S, nullptr);
  EXPECT_LT(z_o_S->i_Time - i_Left, G_USEC_PER_SEC);
  ASSERT_EQ(o_Box.f_Sim("temp 25"), 0);
  EXPECT_NE(o_Rec.f_WaitFirst("acksysfault", 406, I_TEMP_PERIOD_MS), nullptr);
}

TEST_F(Checks, MaintenanceDueIsReportedAndWithdrawn) {
  // The simulated tool has done 100 cycles.
  f_SetMaintenance(R"({"Aktiv":true,"Zyklus":50,"Datum":0})");
  ASSERT_NE(o_Rec.f_WaitFirst("sysfault", 402, 2000), nullptr);
  EXPECT_TRUE(o_Box.f_BmsOut(31));

  // Switching supervision off withdraws it.
  f_SetMaintenance(R"({"Aktiv":false,"Zyklus":1000000,"Datum":1})");
  EXPECT_NE(o_Rec.f_WaitFirst("acksysfault", 402, 2000), nullptr);
  EXPECT_TRUE(f_WaitUntil([&] { return !o_Box.f_BmsOut(31); }, 1000));
}

}  // namespace
