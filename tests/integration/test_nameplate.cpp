// The nameplates as the daemon reads them at start: supplier data reach the diagnostic
// store, and a corrupted motor-unit sector leaves error 3201 in the error list.
#include <gtest/gtest.h>
#include <string>

#include "Harness.h"

using namespace it;

namespace {

TEST(Nameplate, SupplierDataReachTheDiagnosticStore) {
  PrivateBus o_Bus;
  Sandbox o_Box;
  Daemon o_Daemon(o_Box, o_Bus);
  ASSERT_TRUE(o_Daemon.f_Start());
  EXPECT_NE(o_Daemon.f_Log().find("TypschildKiro_CL::f_ReadTypschildSector - CRC OK"),
            std::string::npos);
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/hardware/mnr"), "4411200117");
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/hardware/serial"), "B230403117");
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/hardware/pwrctrlversion"), "1.04");
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/cycle"), "100");
  BusClient o_Client(o_Bus.f_Address());
  GVariant* o_R = o_Client.f_CallOk("fsyserrorget");
  ASSERT_NE(o_R, nullptr);
  EXPECT_EQ(f_Int(o_R, 0), 0);
  g_variant_unref(o_R);
  EXPECT_EQ(o_Daemon.f_Stop(), 0);
}

TEST(Nameplate, CorruptedStaticSectorLeavesError3201Active) {
  PrivateBus o_Bus;
  Sandbox o_Box;
  ASSERT_EQ(o_Box.f_Sim("nameplate corrupt static"), 0);
  Daemon o_Daemon(o_Box, o_Bus);
  ASSERT_TRUE(o_Daemon.f_Start());
  // Raised while the service starts, before its error store exists: held, then stored.
  BusClient o_Client(o_Bus.f_Address());
  GVariant* o_R = o_Client.f_CallOk("fsyserrorget");
  ASSERT_NE(o_R, nullptr);
  EXPECT_EQ(f_Int(o_R, 0), 400);
  EXPECT_EQ(f_Int(o_R, 1), 1);
  g_variant_unref(o_R);
  o_R = o_Client.f_CallOk("fgetunacknsyserrors");
  ASSERT_NE(o_R, nullptr);
  EXPECT_NE(f_Str(o_R).find("{\"code\":400,\"class\":1,"), std::string::npos) << f_Str(o_R);
  g_variant_unref(o_R);
  EXPECT_EQ(o_Box.f_CurError(), 3201);
  EXPECT_FALSE(o_Box.f_BmsOut(18));
  EXPECT_EQ(o_Daemon.f_Stop(), 0);
}

}  // namespace
