// The channel configuration the daemon builds at start from the nameplates (which also feed the
// diagnostic store) and the maintenance factor over the bus; what the file holds is unit_ChanCfg's.
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>

#include "Harness.h"

using namespace it;

namespace {
constexpr const char* A_C_CFG = "/home/tool/config/ChanCfg.json";

using ChanCfgBus = ServiceSuite<>;  // the sandbox has no ChanCfg.json
}  // namespace

TEST_F(ChanCfgBus, StartBuildsTheFileAndTheDiagnosticStoreFromTheNameplates) {
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/hardware/mnr"), "4411200117");
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/hardware/serial"), "B230403117");
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/hardware/pwrctrlversion"), "1.04");
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/cycle"), "100");
  EXPECT_TRUE(f_Holds(o_Box.f_Read(A_C_CFG),
                      {{{"Code"}, R"("AKS30")"}, {{"Grenzen", "MomentMax"}, "30.039"}}));
  EXPECT_TRUE(o_Box.f_Exists("/dev/shm/sem.ChanCfgValid"));
  // The announcement of the start-up write came before the bus existed and was dropped.
  EXPECT_EQ(o_Rec.f_Announced(A_C_CFG), 0u);
}

TEST_F(ChanCfgBus, MfuOverTheBusRescalesTheLimitsOnce) {
  // The nameplate puts its own count into the store at start; this is a later one.
  ASSERT_EQ(o_Box.f_Sim("cycle 4242"), 0);
  const double d_T0 = static_cast<double>(time(nullptr));
  ASSERT_TRUE(o_Client.f_Invoke("fmfuset", g_variant_new("(i)", 800)));
  EXPECT_NE(
      o_Rec.f_WaitFor("cfgfilechanged", 5000, [](GVariant* o_V) { return f_Str(o_V) == A_C_CFG; }),
      nullptr);
  // 0.8 × 30039 thousandths = 24031.2 → 24.031 Nm.
  EXPECT_TRUE(f_Holds(o_Box.f_Read(A_C_CFG), {{{"Grenzen", "MomentMax"}, "24.031"},
                                              {{"Mfu", "MfuFaktor"}, "0.8"},
                                              {{"Mfu", "Zyklus"}, "4242"}}));
  const double d_Date = std::atof(f_JsonAt(o_Box.f_Read(A_C_CFG), {"Mfu", "Datum"}).c_str());
  EXPECT_TRUE(d_Date >= d_T0 && d_Date <= time(nullptr)) << d_Date;

  // The same factor again: success, but nothing written and nothing announced.
  const std::string str_File = o_Box.f_Read(A_C_CFG);
  ASSERT_EQ(o_Box.f_Sim("cycle 5000"), 0);
  EXPECT_TRUE(o_Client.f_Invoke("fmfuset", g_variant_new("(i)", 800)));
  EXPECT_EQ(o_Rec.f_Announced(A_C_CFG), 1u);
  EXPECT_EQ(o_Box.f_Read(A_C_CFG), str_File);

  // Whatever the factor, "fmfuget" reports 100.
  EXPECT_EQ(f_Int(o_Client.f_Reply("fmfuget")), 100);
}
