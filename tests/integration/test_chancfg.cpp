// The channel configuration against the real daemon: the file it builds at start-up and the
// maintenance factor over the bus. A file changed by another process is re-read in the unit
// tests; its announcement is the relay's, tested with the other relays.
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>

#include "Harness.h"

using namespace it;

namespace {
constexpr const char* A_C_CFG = "/home/tool/config/ChanCfg.json";

class ChanCfgBus : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { z_o_Svc = new Service(); }  // the sandbox has no ChanCfg.json
  static void TearDownTestSuite() { delete z_o_Svc; }
  void TearDown() override { EXPECT_TRUE(z_o_Svc->o_Daemon.f_Running()); }
  static inline Service* z_o_Svc = nullptr;
  BusClient& o_Client = z_o_Svc->o_Client;
  SignalRecorder& o_Rec = z_o_Svc->o_Rec;
  const Sandbox& o_Box = z_o_Svc->o_Box;

  std::string f_Get(const std::string& str_Path) {
    return f_JsonAt(o_Box.f_Read(A_C_CFG), str_Path);
  }
  double f_Num(const std::string& str_Path) { return std::atof(f_Get(str_Path).c_str()); }
  // Waits for the announcement of the file; then makes sure no second one follows.
  void f_AnnouncedOnce() {
    EXPECT_NE(
        o_Rec.f_WaitFor("cfgfilechanged", 5000, [](GVariant* v) { return f_Str(v) == A_C_CFG; }),
        nullptr);
    o_Rec.f_Sync();
    EXPECT_EQ(o_Rec.f_Count("cfgfilechanged"), 1u);
  }
};
}  // namespace

// What the file holds is the unit tests' business; here: the daemon builds it at start.
TEST_F(ChanCfgBus, StartBuildsTheFileFromTheNameplates) {
  EXPECT_EQ(f_Get("MNR") + f_Get("Code"), R"("5521730002""AKS30")");
  EXPECT_EQ(f_Num("Grenzen/MomentMax"), 30.039);
  EXPECT_TRUE(o_Box.f_Exists("/dev/shm/sem.ChanCfgValid"));
  // The announcement of the start-up write came before the bus existed and was dropped.
  EXPECT_NE(z_o_Svc->o_Daemon.f_Log().find("cfgfilechanged not sent"), std::string::npos);
  o_Rec.f_Sync();
  EXPECT_EQ(o_Rec.f_Count("cfgfilechanged"), 0u);
}

TEST_F(ChanCfgBus, MfuOverTheBusRescalesTheLimitsOnce) {
  // The nameplate puts its own count into the store at start; this is a later one.
  ASSERT_EQ(o_Box.f_Sim("cycle 4242"), 0);
  const double d_T0 = static_cast<double>(time(nullptr));
  Variant_T o_R = o_Client.f_Reply("fmfuset", g_variant_new("(i)", 800));
  ASSERT_TRUE(o_R);
  EXPECT_STREQ(g_variant_get_type_string(o_R.get()), "()");
  f_AnnouncedOnce();
  // 0.8 × 30039 thousandths = 24031.2 → 24.031 Nm.
  EXPECT_EQ(f_Num("Grenzen/MomentMax"), 24.031);
  EXPECT_FLOAT_EQ(f_Num("Mfu/MfuFaktor"), 0.8f);
  EXPECT_EQ(f_Num("Mfu/Zyklus"), 4242);
  EXPECT_GE(f_Num("Mfu/Datum"), d_T0);
  EXPECT_LE(f_Num("Mfu/Datum"), static_cast<double>(time(nullptr)));

  // The same factor again: success, but nothing written and nothing announced.
  const std::string str_File = o_Box.f_Read(A_C_CFG);
  ASSERT_EQ(o_Box.f_Sim("cycle 5000"), 0);
  EXPECT_TRUE(o_Client.f_Invoke("fmfuset", g_variant_new("(i)", 800)));
  o_Rec.f_Sync();
  EXPECT_EQ(o_Rec.f_Count("cfgfilechanged"), 1u);
  EXPECT_EQ(o_Box.f_Read(A_C_CFG), str_File);

  // Whatever the factor, "fmfuget" reports 100.
  EXPECT_EQ(f_Int(o_Client.f_Reply("fmfuget")), 100);
}
