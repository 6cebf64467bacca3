// The shipped bus policy on a deny-by-default system bus: only root owns the name, root
// may call, an ordinary user may only look.
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "Harness.h"

using namespace it;

namespace {

// Runs gdbus as user "nobody" on the service; returns its output.
std::string f_AsNobody(const PrivateBus& o_Bus, const std::string& str_Args) {
  std::string str_Out;
  f_Shell("DBUS_SYSTEM_BUS_ADDRESS='" + o_Bus.f_Address() +
              "' setpriv --reuid=65534 --regid=65534 --clear-groups gdbus " + str_Args +
              " --system --dest com.torvane.akku.SysService --object-path /SysObj 2>&1",
          &str_Out);
  return str_Out;
}

TEST(BusPolicy, ShippedPolicyLetsRootOwnAndCallAndOthersOnlyLook) {
  const TempDir o_Tmp;
  const std::string& str_Dir = o_Tmp.str_Dir;
  PrivateBus o_Bus(PrivateBus::f_Config(
      str_Dir, PrivateBus::f_DefaultPolicy(
                   "    <deny own=\"*\"/>\n"
                   "    <deny send_type=\"method_call\"/>\n"
                   "    <allow send_destination=\"org.freedesktop.DBus\"\n"
                   "           send_interface=\"org.freedesktop.DBus\"/>\n"
                   "    <allow send_destination=\"org.freedesktop.DBus\"\n"
                   "           send_interface=\"org.freedesktop.DBus.Introspectable\"/>\n") +
                   "  <include>" SYSSRV_SOURCE_DIR
                   "/packaging/com.torvane.akku.SysService.conf</include>\n"));
  chmod(str_Dir.c_str(), 0755);
  Sandbox o_Box;
  Daemon o_Daemon(o_Box, o_Bus);
  ASSERT_TRUE(o_Daemon.f_Start()) << o_Daemon.f_Log();
  EXPECT_EQ(f_Int(BusClient(o_Bus.f_Address()).f_Reply("fmfuget")), 100);
  if (geteuid() == 0) {
    std::string str_Call = f_AsNobody(o_Bus, "call --method com.torvane.akku.SysInterface.fmfuget");
    EXPECT_NE(str_Call.find("AccessDenied"), std::string::npos) << str_Call;
    std::string str_Look = f_AsNobody(o_Bus, "introspect");
    EXPECT_NE(str_Look.find("com.torvane.akku.SysInterface"), std::string::npos) << str_Look;
  }
  EXPECT_EQ(o_Daemon.f_Stop(), 0);
}

}  // namespace
