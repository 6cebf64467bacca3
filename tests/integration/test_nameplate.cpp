// A corrupted motor-unit nameplate leaves error 3201 in the error list. Reading the sectors
// is unit_TypschildKiro's; what a good one feeds is test_chancfg's.
#include <gtest/gtest.h>
#include <vector>

#include "Harness.h"

using namespace it;

namespace {

TEST(Nameplate, CorruptedStaticSectorLeavesError3201Active) {
  Service o_Svc(
      [](const Sandbox& o_Box) { ASSERT_EQ(o_Box.f_Sim("nameplate corrupt static"), 0); });
  // Raised while the service starts, before its error store exists: held, then stored.
  Variant_T o_R = o_Svc.o_Client.f_Reply("fsyserrorget");
  EXPECT_EQ(f_Ints(o_R), (std::vector<int>{400, 1, f_Int(o_R, 2)}));
  EXPECT_FALSE(o_Svc.o_Box.f_BmsOut(18));
}

}  // namespace
