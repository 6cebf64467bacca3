// The nameplates as the daemon reads them at start: supplier data reach the diagnostic
// store, and a corrupted motor-unit sector leaves error 3201 in the error list. Reading
// the sectors is unit_TypschildKiro's.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "Harness.h"

using namespace it;

namespace {

TEST(Nameplate, SupplierDataReachTheDiagnosticStore) {
  Service o_Svc;
  const Sandbox& o_Box = o_Svc.o_Box;
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/hardware/mnr"), "4411200117");
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/hardware/serial"), "B230403117");
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/hardware/pwrctrlversion"), "1.04");
  EXPECT_EQ(o_Box.f_Read("/var/sysdiag/cycle"), "100");
}

TEST(Nameplate, CorruptedStaticSectorLeavesError3201Active) {
  Service o_Svc(
      [](const Sandbox& o_Box) { ASSERT_EQ(o_Box.f_Sim("nameplate corrupt static"), 0); });
  // Raised while the service starts, before its error store exists: held, then stored.
  Variant_T o_R = o_Svc.o_Client.f_Reply("fsyserrorget");
  EXPECT_EQ(f_Ints(o_R), (std::vector<int>{400, 1, f_Int(o_R, 2)}));
  EXPECT_FALSE(o_Svc.o_Box.f_BmsOut(18));
}

}  // namespace
