// The nameplates as the daemon reads them at start: supplier data reach the diagnostic
// store, and a corrupted motor-unit sector leaves error 3201 in the error list.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "Harness.h"

using namespace it;

namespace {

TEST(Nameplate, SupplierDataReachTheDiagnosticStore) {
  Service o_Svc;
  const Sandbox& o_Box = o_Svc.o_Box;
  EXPECT_NE(o_Svc.o_Daemon.f_Log().find("TypschildKiro_CL::f_ReadTypschildSector - CRC OK"),
            std::string::npos);
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/hardware/mnr"), "4411200117");
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/hardware/serial"), "B230403117");
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/hardware/pwrctrlversion"), "1.04");
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/cycle"), "100");
  GVariant* o_R = o_Svc.o_Client.f_CallOk("fsyserrorget");
  Variant_T o_ROwner(o_R);
  ASSERT_NE(o_R, nullptr);
  EXPECT_EQ(f_Int(o_R, 0), 0);
}

TEST(Nameplate, CorruptedStaticSectorLeavesError3201Active) {
  Service o_Svc(
      [](const Sandbox& o_Box) { ASSERT_EQ(o_Box.f_Sim("nameplate corrupt static"), 0); });
  // Raised while the service starts, before its error store exists: held, then stored.
  GVariant* o_R = o_Svc.o_Client.f_CallOk("fsyserrorget");
  Variant_T o_ROwner(o_R);
  ASSERT_NE(o_R, nullptr);
  EXPECT_EQ(f_Ints(o_R), (std::vector<int>{400, 1, f_Int(o_R, 2)}));
  o_ROwner.reset(o_Svc.o_Client.f_CallOk("fgetunacknsyserrors"));
  o_R = o_ROwner.get();
  ASSERT_NE(o_R, nullptr);
  EXPECT_NE(f_Str(o_R).find("{\"code\":400,\"class\":1,"), std::string::npos) << f_Str(o_R);
  EXPECT_EQ(o_Svc.o_Box.f_CurError(), 3201);
  EXPECT_FALSE(o_Svc.o_Box.f_BmsOut(18));
}

}  // namespace
