// The service core on a private bus: wire contract, error reply, relays, ticks and the end.
#include <csignal>
#include <cstdio>
#include <memory>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "Harness.h"

using namespace it;

namespace {

constexpr const char* A_C_RES_SRV = "/home/tool/config/ResSrv.json";

// Readiness that needs only the service's own flag, so the first tick announces "ready".
void f_RdyOnlyFlag3(const Sandbox& o_Box) {
  o_Box.f_Write("/home/tool/config/log/rdystatus.json",
                R"({"flags":[{"nr":3,"state":1,"name":"SysSrv"}]})");
}

using CoreBus = ServiceSuite<f_RdyOnlyFlag3>;

// The interface as other processes of the tool rely on it, independent of the .xml file:
// each member as "name(argument:type ...)", a method's out-arguments after "->".
const char* const A_C_METHODS =
    "freporterror(z_c_Proc:s z_c_Code:s z_c_Ack:s) fcfgfilechanged(z_c_FilePath:s) "
    "fackerrlist() fcyclecomplete() fabortstart() fdelerrlist() "
    "fnewresult(z_c_DataBasePath:s i_DataSet:i) "
    "fnewidcode(i_Dev:i i_DevActive:i z_c_IdCode:s) fprgchanged(i_PrgNr:i) "
    "frdyget()->(i_RdyIst:i i_RdySoll:i) fsyserrorget()->(i_Error:i i_Class:i i_Date:i) "
    "fgetunacknsyserrors()->(z_c_JsonFile:s) fbattpowerget()->(i_BattPower:i) "
    "fbattpowerset(i_BattPower:i) fbattstatusget(i_BattStatus:i) "
    "fbattstatusset(i_BattStatus:i) ftoolenableget()->(i_ToolEnable:i) "
    "ftoolenableset(i_ToolEnable:i) fmfuset(ui_Mfu:i) fmfuget()->(ui_Mfu:i) fdumprdy() "
    "frdyflagset(i_FlagNr:i) frdyflagreset(i_FlagNr:i) "
    "fbatchcntrset(i_Dest:i str_BatchCfg:s) fbatchcntrclear(i_PrgNr:i) "
    "fbatchcntrdel(i_PrgNr:i) fbatchcntrget()->(z_c_Data:ay) "
    "fidcodesrcset(i_IDCodeSrc:i i_DelAfterStart:i) fsetjobrunning(i_RunningState:i) "
    "fsetoperationmode(i_Mode:i i_TrgSrc:i i_TrgVal:i) fnewoperationmode(i_OpMode:i) ";
const char* const A_C_SIGNALS =
    "cfgfilechanged(changed_connection:i) sysfault(i_SysFault:i i_Class:i i_Date:i) "
    "acksysfault(i_ErrNr:i i_Sysfault:i) battpowerchanged(i_BattPower:i) "
    "battstatuschanged(i_BattStatus:i) battcntdwn(i_CntDown:i) "
    "newresult(z_c_DataBasePath:s i_DataSet:i) toolenable(i_ToolEnable:i) "
    "prgchanged(i_ToolEnable:i) newidcode(i_Dev:i i_DevActive:i z_c_IdCode:s) "
    "rdychanged(i_RdyIst:i i_RdySoll:i) bmsinputchanged() bmsoutputchanged() abortstart() "
    "jobrunningstatuschanged(i_JobRunningStatus:i) newoperationmode(i_OperationMode:i) "
    "operationmoderequest(i_OperationMode:i i_OpModeTrigger:i i_TriggerEdge:i) ";

std::string f_Args(GDBusArgInfo** a_z_o_Args) {
  std::string str_Out;
  for (int k = 0; a_z_o_Args[k] != nullptr; k++)
    str_Out += std::string(k ? " " : "") + a_z_o_Args[k]->name + ":" + a_z_o_Args[k]->signature;
  return "(" + str_Out + ")";
}

TEST_F(CoreBus, IntrospectionShowsTheWholeContractInOrder) {
  std::shared_ptr<GDBusInterfaceInfo> o_If = o_Client.f_Interface();
  ASSERT_TRUE(o_If);
  std::string str_Methods, str_Signals;
  for (GDBusMethodInfo** z_z_o_M = o_If->methods; *z_z_o_M != nullptr; ++z_z_o_M) {
    const std::string str_Out = f_Args((*z_z_o_M)->out_args);
    str_Methods += (*z_z_o_M)->name + f_Args((*z_z_o_M)->in_args) +
                   (str_Out == "()" ? "" : "->" + str_Out) + " ";
  }
  for (GDBusSignalInfo** z_z_o_S = o_If->signals; *z_z_o_S != nullptr; ++z_z_o_S)
    str_Signals += (*z_z_o_S)->name + f_Args((*z_z_o_S)->args) + " ";
  EXPECT_EQ(str_Methods, A_C_METHODS);
  EXPECT_EQ(str_Signals, A_C_SIGNALS);
  EXPECT_TRUE(o_If->properties == nullptr || o_If->properties[0] == nullptr);
}

TEST_F(CoreBus, CycleCompleteRepeatsOnlyAWeakBatteryStatus) {
  auto f_Status = [&](int i_Status) { return o_Rec.f_WaitFirst("battstatuschanged", i_Status); };
  ASSERT_NE(f_Status(3), nullptr);  // the start's own announcement
  ASSERT_TRUE(o_Client.f_Invoke("fcyclecomplete"));
  o_Rec.f_Sync();
  EXPECT_EQ(o_Rec.f_Count("battstatuschanged"), 1u);

  ASSERT_EQ(o_Box.f_Sim("battery 20"), 0);  // weak but usable
  ASSERT_NE(f_Status(5), nullptr);
  ASSERT_TRUE(o_Client.f_Invoke("fcyclecomplete"));
  EXPECT_NE(f_Status(5), nullptr);
  ASSERT_EQ(o_Box.f_Sim("battery 100"), 0);
  EXPECT_NE(f_Status(3), nullptr);
}

TEST_F(CoreBus, RelaysAnswerAndSignalAsReceived) {
  // Method, signal, and the arguments of both as GVariant text.
  const char* a_z_c_Cases[][3] = {
      {"fprgchanged", "prgchanged", "(17,)"},
      {"fnewidcode", "newidcode", "(2, 1, 'ID-4711')"},
      {"fnewresult", "newresult", "('/mnt/res.sq3', 12)"},
      {"fabortstart", "abortstart", "()"},
      {"fnewoperationmode", "newoperationmode", "(3,)"},
      {"fsetoperationmode", "operationmoderequest", "(1, 2, 3)"},
      {"ftoolenableset", "toolenable", "(7,)"},
      // Nobody owns this file, and still the change is passed on.
      {"fcfgfilechanged", "cfgfilechanged", "('/tmp/nobodys.json',)"},
  };
  o_Rec.f_Sync();
  o_Rec.f_Clear();
  for (const auto& a_z_c_C : a_z_c_Cases) {
    SCOPED_TRACE(a_z_c_C[0]);
    // The bus library turns a reply of another type than "()" into an error.
    ASSERT_TRUE(o_Client.f_Invoke(a_z_c_C[0], g_variant_new_parsed(a_z_c_C[2])));
    const Signal_ST* z_o_S = o_Rec.f_WaitFor(a_z_c_C[1], 5000);
    ASSERT_NE(z_o_S, nullptr);
    EXPECT_STREQ(GChars_T(g_variant_print(z_o_S->o_Args, FALSE)).get(), a_z_c_C[2]);
  }
  // A tool-enable value of 7 is stored as "enabled".
  EXPECT_EQ(f_Int(o_Client.f_Reply("ftoolenableget")), 1);
  // The job's running state is passed on when it changes only.
  for (int i_State : {1, 1, 0, 0})
    o_Client.f_Invoke("fsetjobrunning", g_variant_new("(i)", i_State));
  o_Rec.f_Sync();
  EXPECT_EQ(o_Rec.f_Count("jobrunningstatuschanged"), 2u);
}

// What the file holds under any input is fuzz_ressrv_json's; here the write and its announcement.
TEST_F(CoreBus, IdCodeSourceIsWrittenAndAnnouncedOnlyWhenAValueChanges) {
  // The sandbox starts with source 0, no deletion and one source; 1 adds the second.
  const std::string str_Before = o_Box.f_Read(A_C_RES_SRV);
  ASSERT_TRUE(o_Client.f_Invoke("fidcodesrcset", g_variant_new("(ii)", 0, 0)));
  EXPECT_EQ(o_Rec.f_Announced(A_C_RES_SRV), 0u);
  EXPECT_EQ(o_Box.f_Read(A_C_RES_SRV), str_Before);
  ASSERT_TRUE(o_Client.f_Invoke("fidcodesrcset", g_variant_new("(ii)", 1, 1)));
  EXPECT_EQ(o_Rec.f_Announced(A_C_RES_SRV), 1u);
  EXPECT_EQ(f_JsonAt(o_Box.f_Read(A_C_RES_SRV), {"id_code"}),
            R"({"active":1,"del_after_start":true,"src":[{"id":0,"show":true,"name":"Scanner"},)"
            R"({"id":1,"show":true,"name":"from init.lua"}]})");
}

TEST_F(CoreBus, BurstOfCallsWhileTicksRun) {
  // Many calls in flight at once, interleaved with the 250 ms ticks: every one is answered.
  int i_Answered = 0;
  const char* a_z_c_Methods[] = {"fmfuget", "fsyserrorget", "fbattpowerget"};
  for (int i = 0; i < 300; i++)
    g_dbus_connection_call(
        o_Client.f_Conn(), A_C_BUS_NAME, A_C_PATH, A_C_IFACE, a_z_c_Methods[i % 3], nullptr,
        nullptr, G_DBUS_CALL_FLAGS_NONE, 10000, nullptr,
        [](GObject* z_o_Src, GAsyncResult* z_o_Res, gpointer z_v_Answered) {
          Variant_T o_R(
              g_dbus_connection_call_finish(G_DBUS_CONNECTION(z_o_Src), z_o_Res, nullptr));
          *static_cast<int*>(z_v_Answered) += o_R ? 1 : 1000;  // a failure overshoots
        },
        &i_Answered);
  EXPECT_TRUE(f_WaitUntil([&] { return i_Answered >= 300; }, 20000));
  EXPECT_EQ(i_Answered, 300);
}

TEST(CoreLifecycle, SigTermDuringTheStartDelayEndsAtTheFirstTickWithStatusZero) {
  PrivateBus o_Bus;
  Sandbox o_Box;
  f_RdyOnlyFlag3(o_Box);
  BusClient o_Client(o_Bus.f_Address());
  SignalRecorder o_Rec(o_Client);
  Daemon o_Daemon(o_Box, o_Bus);
  o_Daemon.f_Spawn();
  ASSERT_TRUE(f_WaitUntil(
      [&] {
        return o_Daemon.f_Stdout().find("sys_obj_init->sigaction 15 - OK") != std::string::npos;
      },
      10000));
  const std::string str_Pid = std::to_string(o_Daemon.f_Pid());
  o_Daemon.f_Signal(SIGTERM);
  EXPECT_EQ(o_Daemon.f_WaitExit(15000), 0) << o_Daemon.f_Log();
  EXPECT_GE(g_get_monotonic_time() - o_Daemon.f_StartedAt(), 2 * G_USEC_PER_SEC);
  // The process registered itself with the power controller.
  EXPECT_EQ(o_Box.f_Read("/proc/pwrctrl/batalert"), str_Pid + "\n");
  // The first tick still announced readiness and, ending, withdrew it.
  EXPECT_NE(o_Rec.f_WaitFirst("rdychanged", 8), nullptr);
  EXPECT_NE(o_Rec.f_WaitFirst("rdychanged", 0), nullptr);
  EXPECT_FALSE(o_Box.f_BmsOut(17));
}

TEST(CoreLifecycle, WithoutPowerControllerTheServiceStillAnswers) {
  // The registration cannot be written, so no subsystem is built; the end still comes.
  Service o_Svc([](const Sandbox& o_Box) {
    ASSERT_EQ(remove(o_Box.f_Path("/proc/pwrctrl/batalert").c_str()), 0);
    ASSERT_EQ(mkdir(o_Box.f_Path("/proc/pwrctrl/batalert").c_str(), 0755), 0);
  });
  BusClient& o_Client = o_Svc.o_Client;
  const char* a_z_c_Refused[][2] = {{"frdyget", "()"},
                                    {"fackerrlist", "()"},
                                    {"fgetunacknsyserrors", "()"},
                                    {"fbatchcntrget", "()"},
                                    {"fbatchcntrclear", "(-1,)"},
                                    {"fbatchcntrdel", "(-1,)"},
                                    {"fbatchcntrset", R"((0, '{"Id":1}'))"}};
  for (const auto& a_z_c_C : a_z_c_Refused) {
    SCOPED_TRACE(a_z_c_C[0]);
    GErrorHolder_CL o_Err;
    EXPECT_FALSE(
        Variant_T(o_Client.f_Call(a_z_c_C[0], g_variant_new_parsed(a_z_c_C[1]), o_Err.f_Out())));
    // The service's error reply: GIO's code 30 without a text.
    EXPECT_TRUE(g_error_matches(o_Err.get(), G_IO_ERROR, G_IO_ERROR_FAILED_HANDLED));
    if (o_Err) g_dbus_error_strip_remote_error(o_Err.get());
    EXPECT_STREQ(o_Err.f_Message(), "");
  }
  for (const char* z_c_Method : {"fdelerrlist", "fdumprdy"}) o_Client.f_Invoke(z_c_Method);
  o_Client.f_Invoke("freporterror", g_variant_new("(sss)", "Proc", "3216", ""));
  EXPECT_EQ(f_Ints(o_Client.f_Reply("fsyserrorget")), (std::vector<int>{0, 0, 0}));
}

}  // namespace
