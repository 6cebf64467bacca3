// The service core on a private bus: wire contract, reply rules, relays, ticks and the end.
#include <cjson/cJSON.h>
#include <csignal>
#include <cstdio>
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

class CoreBus : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { z_o_Svc = new Service(f_RdyOnlyFlag3); }
  static void TearDownTestSuite() { delete z_o_Svc; }
  static inline Service* z_o_Svc = nullptr;
  BusClient& o_Client = z_o_Svc->o_Client;
  SignalRecorder& o_Rec = z_o_Svc->o_Rec;
  const Sandbox& o_Box = z_o_Svc->o_Box;
};

// The interface as other processes of the tool rely on it, independent of the .xml file.
const std::vector<std::string> o_ExpectedMethods = {
    "freporterror(z_c_Proc s in, z_c_Code s in, z_c_Ack s in)",
    "fcfgfilechanged(z_c_FilePath s in)",
    "fackerrlist()",
    "fcyclecomplete()",
    "fabortstart()",
    "fdelerrlist()",
    "fnewresult(z_c_DataBasePath s in, i_DataSet i in)",
    "fnewidcode(i_Dev i in, i_DevActive i in, z_c_IdCode s in)",
    "fprgchanged(i_PrgNr i in)",
    "frdyget(i_RdyIst i out, i_RdySoll i out)",
    "fsyserrorget(i_Error i out, i_Class i out, i_Date i out)",
    "fgetunacknsyserrors(z_c_JsonFile s out)",
    "fbattpowerget(i_BattPower i out)",
    "fbattpowerset(i_BattPower i in)",
    "fbattstatusget(i_BattStatus i in)",
    "fbattstatusset(i_BattStatus i in)",
    "ftoolenableget(i_ToolEnable i out)",
    "ftoolenableset(i_ToolEnable i in)",
    "fmfuset(ui_Mfu i in)",
    "fmfuget(ui_Mfu i out)",
    "fdumprdy()",
    "frdyflagset(i_FlagNr i in)",
    "frdyflagreset(i_FlagNr i in)",
    "fbatchcntrset(i_Dest i in, str_BatchCfg s in)",
    "fbatchcntrclear(i_PrgNr i in)",
    "fbatchcntrdel(i_PrgNr i in)",
    "fbatchcntrget(z_c_Data ay out)",
    "fidcodesrcset(i_IDCodeSrc i in, i_DelAfterStart i in)",
    "fsetjobrunning(i_RunningState i in)",
    "fsetoperationmode(i_Mode i in, i_TrgSrc i in, i_TrgVal i in)",
    "fnewoperationmode(i_OpMode i in)"};

const std::vector<std::string> o_ExpectedSignals = {
    "cfgfilechanged(changed_connection i)",
    "sysfault(i_SysFault i, i_Class i, i_Date i)",
    "acksysfault(i_ErrNr i, i_Sysfault i)",
    "battpowerchanged(i_BattPower i)",
    "battstatuschanged(i_BattStatus i)",
    "battcntdwn(i_CntDown i)",
    "newresult(z_c_DataBasePath s, i_DataSet i)",
    "toolenable(i_ToolEnable i)",
    "prgchanged(i_ToolEnable i)",
    "newidcode(i_Dev i, i_DevActive i, z_c_IdCode s)",
    "rdychanged(i_RdyIst i, i_RdySoll i)",
    "bmsinputchanged()",
    "bmsoutputchanged()",
    "abortstart()",
    "jobrunningstatuschanged(i_JobRunningStatus i)",
    "newoperationmode(i_OperationMode i)",
    "operationmoderequest(i_OperationMode i, i_OpModeTrigger i, i_TriggerEdge i)"};

// "name(arg type direction, ...)"; signals have no direction.
std::string f_Render(const char* z_c_Name, GDBusArgInfo** a_z_o_In, GDBusArgInfo** a_z_o_Out,
                     const char* z_c_InDir) {
  std::string str_Out = std::string(z_c_Name) + "(";
  for (auto [a_z_o_Args, z_c_Dir] :
       {std::make_pair(a_z_o_In, z_c_InDir), std::make_pair(a_z_o_Out, " out")})
    for (int k = 0; a_z_o_Args && a_z_o_Args[k]; k++)
      str_Out += std::string(str_Out.back() == '(' ? "" : ", ") + a_z_o_Args[k]->name + " " +
                 a_z_o_Args[k]->signature + z_c_Dir;
  return str_Out + ")";
}

TEST_F(CoreBus, IntrospectionShowsTheWholeContractInOrder) {
  Variant_T o_Reply(g_dbus_connection_call_sync(o_Client.f_Conn(), A_C_BUS_NAME, A_C_PATH,
                                                "org.freedesktop.DBus.Introspectable", "Introspect",
                                                nullptr, G_VARIANT_TYPE("(s)"),
                                                G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr));
  ASSERT_TRUE(o_Reply);
  GDBusNodeInfo* z_o_Node = g_dbus_node_info_new_for_xml(f_Str(o_Reply.get()).c_str(), nullptr);
  ASSERT_NE(z_o_Node, nullptr);
  GDBusInterfaceInfo* z_o_If = g_dbus_node_info_lookup_interface(z_o_Node, A_C_IFACE);
  ASSERT_NE(z_o_If, nullptr);
  std::vector<std::string> o_Methods, o_Signals;
  for (int i = 0; z_o_If->methods && z_o_If->methods[i]; i++)
    o_Methods.push_back(f_Render(z_o_If->methods[i]->name, z_o_If->methods[i]->in_args,
                                 z_o_If->methods[i]->out_args, " in"));
  for (int i = 0; z_o_If->signals && z_o_If->signals[i]; i++)
    o_Signals.push_back(f_Render(z_o_If->signals[i]->name, z_o_If->signals[i]->args, nullptr, ""));
  EXPECT_EQ(o_Methods, o_ExpectedMethods);
  EXPECT_EQ(o_Signals, o_ExpectedSignals);
  EXPECT_TRUE(z_o_If->properties == nullptr || z_o_If->properties[0] == nullptr);
  g_dbus_node_info_unref(z_o_Node);
}

TEST_F(CoreBus, FirstTickComesTwoSecondsAfterStart) {
  const Signal_ST* z_o_Rdy = o_Rec.f_WaitFor("rdychanged", 10000);
  ASSERT_NE(z_o_Rdy, nullptr);
  EXPECT_EQ(f_Ints(z_o_Rdy->o_Args), (std::vector<int>{8, 8}));
  EXPECT_GE(z_o_Rdy->i_Time - z_o_Svc->o_Daemon.f_StartedAt(), 2 * G_USEC_PER_SEC);
  // The process registered itself with the power controller.
  EXPECT_EQ(o_Box.f_Read("/proc/pwrctrl/batalert"),
            std::to_string(z_o_Svc->o_Daemon.f_Pid()) + "\n");
}

TEST_F(CoreBus, CycleCompleteRepeatsOnlyAWeakBatteryStatus) {
  auto f_Status = [&](int i_Status) {
    return o_Rec.f_WaitFor("battstatuschanged", 5000,
                           [=](GVariant* v) { return f_Int(v) == i_Status; });
  };
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

TEST_F(CoreBus, BattStatusSetGetsNoAnswer) {
  GErrorHolder_CL o_Err;
  Variant_T o_R(o_Client.f_Call("fbattstatusset", g_variant_new("(i)", 1), o_Err.f_Out(), 700));
  EXPECT_FALSE(o_R);
  EXPECT_TRUE(g_error_matches(o_Err.get(), G_IO_ERROR, G_IO_ERROR_TIMED_OUT)) << o_Err.f_Message();
  // Its sibling answers one int although the description declares none.
  Variant_T o_Status(o_Client.f_CallOk("fbattstatusget", g_variant_new("(i)", 0)));
  ASSERT_TRUE(o_Status);
  EXPECT_STREQ(g_variant_get_type_string(o_Status.get()), "(i)");
  EXPECT_NE(f_Int(o_Status.get()), 1);
}

TEST_F(CoreBus, ErrorReplyIsGioCode30WithoutMessage) {
  std::string str_Saved = o_Box.f_Read(A_C_RES_SRV);
  ASSERT_EQ(remove(o_Box.f_Path(A_C_RES_SRV).c_str()), 0);
  GErrorHolder_CL o_Err;
  Variant_T o_R(o_Client.f_Call("fidcodesrcset", g_variant_new("(ii)", 1, 0), o_Err.f_Out()));
  o_Box.f_Write(A_C_RES_SRV, str_Saved);
  ASSERT_FALSE(o_R);
  ASSERT_TRUE(g_error_matches(o_Err.get(), G_IO_ERROR, G_IO_ERROR_FAILED_HANDLED));
  g_dbus_error_strip_remote_error(o_Err.get());
  EXPECT_STREQ(o_Err.f_Message(), "");
}

TEST_F(CoreBus, RelaysAnswerAndSignalAsReceived) {
  struct Case_ST {
    const char* z_c_Method;
    GVariant* (*f_Args)();
    const char* z_c_Signal;
    const char* z_c_Expected;  // printed form of the signal's arguments
    bool b_NoReplyHonoured;    // flagged "no reply expected", it acts without answering
  };
  const Case_ST a_o_Cases[] = {
      {"fprgchanged", [] { return g_variant_new("(i)", 17); }, "prgchanged", "(17,)", false},
      {"fnewidcode", [] { return g_variant_new("(iis)", 2, 1, "ID-4711"); }, "newidcode",
       "(2, 1, 'ID-4711')", false},
      {"fnewresult", [] { return g_variant_new("(si)", "/mnt/res.sq3", 12); }, "newresult",
       "('/mnt/res.sq3', 12)", false},
      {"fabortstart", [] { return static_cast<GVariant*>(nullptr); }, "abortstart", "()", false},
      {"fnewoperationmode", [] { return g_variant_new("(i)", 3); }, "newoperationmode", "(3,)",
       false},
      {"fsetoperationmode", [] { return g_variant_new("(iii)", 1, 2, 3); }, "operationmoderequest",
       "(1, 2, 3)", true},
      {"ftoolenableset", [] { return g_variant_new("(i)", 7); }, "toolenable", "(7,)", true},
      // Nobody owns this file, and still the change is passed on.
      {"fcfgfilechanged", [] { return g_variant_new("(s)", "/tmp/nobodys.json"); },
       "cfgfilechanged", "('/tmp/nobodys.json',)", false},
  };
  o_Rec.f_Sync();
  o_Rec.f_Clear();
  for (const Case_ST& o_C : a_o_Cases) {
    SCOPED_TRACE(o_C.z_c_Method);
    Variant_T o_R(o_Client.f_CallOk(o_C.z_c_Method, o_C.f_Args()));
    ASSERT_TRUE(o_R);
    EXPECT_STREQ(g_variant_get_type_string(o_R.get()), "()");
    const Signal_ST* z_o_S = o_Rec.f_WaitFor(o_C.z_c_Signal, 5000);
    ASSERT_NE(z_o_S, nullptr);
    EXPECT_STREQ(GChars_T(g_variant_print(z_o_S->o_Args, FALSE)).get(), o_C.z_c_Expected);
    if (!o_C.b_NoReplyHonoured) continue;
    guint32 ui_Serial = o_Client.f_SendNoReply(o_C.z_c_Method, o_C.f_Args());
    EXPECT_NE(o_Rec.f_WaitFor(o_C.z_c_Signal, 5000), nullptr);
    o_Rec.f_Sync();
    EXPECT_FALSE(o_Client.f_GotReplyTo(ui_Serial));
  }
  // A tool-enable value of 7 is stored as "enabled".
  Variant_T o_En(o_Client.f_CallOk("ftoolenableget"));
  ASSERT_TRUE(o_En);
  EXPECT_EQ(f_Int(o_En.get()), 1);
}

TEST_F(CoreBus, JobRunningIsAnnouncedOnChangeOnly) {
  o_Rec.f_Sync();
  size_t ui_Before = o_Rec.f_Count("jobrunningstatuschanged");
  for (int i_State : {1, 1, 0, 0})
    o_Client.f_Invoke("fsetjobrunning", g_variant_new("(i)", i_State));
  o_Rec.f_Sync();
  EXPECT_EQ(o_Rec.f_Count("jobrunningstatuschanged") - ui_Before, 2u);
}

TEST_F(CoreBus, IdCodeSourceIsWrittenOnlyWhenAValueChanges) {
  auto f_Announced = [&] {
    o_Rec.f_Sync();
    size_t ui_N = 0;
    for (const Signal_ST* z_o_S : o_Rec.f_All("cfgfilechanged"))
      ui_N += f_Str(z_o_S->o_Args) == A_C_RES_SRV;
    return ui_N;
  };
  struct Case_ST {
    int i_Src, i_Del;
    const char* z_c_IdCode;  // "id_code" afterwards; the sandbox starts with 0, false, one source
  } a_o_Cases[] = {
      {0, 0, nullptr},  // unchanged: neither written nor announced
      {0, 1,
       R"({"active":0,"del_after_start":true,"src":[{"id":0,"show":true,"name":"Scanner"}]})"},
      {1, 1,
       R"({"active":1,"del_after_start":true,"src":[{"id":0,"show":true,"name":"Scanner"},)"
       R"({"id":1,"show":true,"name":"from init.lua"}]})"},
  };
  for (const Case_ST& o_C : a_o_Cases) {
    SCOPED_TRACE(o_C.i_Src * 10 + o_C.i_Del);
    const std::string str_Before = o_Box.f_Read(A_C_RES_SRV);
    size_t ui_Announced = f_Announced();
    ASSERT_TRUE(o_Client.f_Invoke("fidcodesrcset", g_variant_new("(ii)", o_C.i_Src, o_C.i_Del)));
    EXPECT_EQ(f_Announced(), ui_Announced + (o_C.z_c_IdCode != nullptr));
    if (o_C.z_c_IdCode == nullptr) {
      EXPECT_EQ(o_Box.f_Read(A_C_RES_SRV), str_Before);
      continue;
    }
    CJsonTree_T o_Tree(cJSON_Parse(o_Box.f_Read(A_C_RES_SRV).c_str()));
    CJsonText_T o_Text(cJSON_PrintUnformatted(cJSON_GetObjectItem(o_Tree.get(), "id_code")));
    EXPECT_STREQ(o_Text.get(), o_C.z_c_IdCode);
  }
}

TEST_F(CoreBus, BurstOfCallsWhileTicksRun) {
  // Many calls in flight at once, interleaved with the 250 ms ticks: every one is answered.
  std::pair<int, int> o_Counts{0, 0};  // answered, failed
  const char* a_z_c_Methods[] = {"fmfuget", "fsyserrorget", "fbattpowerget"};
  for (int i = 0; i < 300; i++)
    g_dbus_connection_call(
        o_Client.f_Conn(), A_C_BUS_NAME, A_C_PATH, A_C_IFACE, a_z_c_Methods[i % 3], nullptr,
        nullptr, G_DBUS_CALL_FLAGS_NONE, 10000, nullptr,
        [](GObject* z_o_Src, GAsyncResult* z_o_Res, gpointer z_v_Counts) {
          auto* z_o_Counts = static_cast<std::pair<int, int>*>(z_v_Counts);
          Variant_T o_R(
              g_dbus_connection_call_finish(G_DBUS_CONNECTION(z_o_Src), z_o_Res, nullptr));
          z_o_Counts->first++;
          z_o_Counts->second += o_R ? 0 : 1;
        },
        &o_Counts);
  EXPECT_TRUE(f_WaitUntil([&] { return o_Counts.first == 300; }, 20000));
  EXPECT_EQ(o_Counts.second, 0);
  EXPECT_TRUE(z_o_Svc->o_Daemon.f_Running());
}

// --- life cycle: one daemon per case ---------------------------------------------

TEST(CoreLifecycle, SigTermEndsAtTheNextTickWithStatusZero) {
  PrivateBus o_Bus;
  Sandbox o_Box;
  f_RdyOnlyFlag3(o_Box);
  BusClient o_Client(o_Bus.f_Address());
  SignalRecorder o_Rec(o_Client);
  Daemon o_Daemon(o_Box, o_Bus);
  auto f_Rdy = [&](int i_Ist, int i_Ms) {
    return o_Rec.f_WaitFor("rdychanged", i_Ms, [=](GVariant* v) { return f_Int(v) == i_Ist; });
  };

  // A SIGTERM during the start delay is held until the first tick.
  o_Daemon.f_Spawn();
  ASSERT_TRUE(f_WaitUntil(
      [&] {
        return o_Daemon.f_Stdout().find("sys_obj_init->sigaction 15 - OK") != std::string::npos;
      },
      10000));
  o_Daemon.f_Signal(SIGTERM);
  EXPECT_EQ(o_Daemon.f_WaitExit(15000), 0) << o_Daemon.f_Log();
  EXPECT_GE(g_get_monotonic_time() - o_Daemon.f_StartedAt(), 2 * G_USEC_PER_SEC);
  EXPECT_NE(o_Daemon.f_Log().find("f_SystemChecker - Proc End is near"), std::string::npos);
  EXPECT_NE(o_Daemon.f_Stdout().find("main->sigaction 10 - OK"), std::string::npos);
  EXPECT_NE(o_Daemon.f_Stdout().find("main->sigaction 12 - OK"), std::string::npos);
  // Its first tick still announced readiness and, ending, withdrew it.
  EXPECT_NE(f_Rdy(0, 5000), nullptr);
  o_Rec.f_Clear();

  // Once ready, the end withdraws readiness before the process goes.
  Daemon o_Second(o_Box, o_Bus);
  ASSERT_TRUE(o_Second.f_Start());
  ASSERT_NE(f_Rdy(8, 10000), nullptr);
  o_Second.f_Signal(SIGTERM);
  ASSERT_NE(f_Rdy(0, 5000), nullptr) << o_Second.f_Log();
  EXPECT_EQ(o_Second.f_WaitExit(5000), 0);
  EXPECT_FALSE(o_Box.f_BmsOut(17));
}

TEST(CoreLifecycle, WithoutPowerControllerTheServiceStillAnswers) {
  // The registration cannot be written, so no subsystem is built; the checker still runs
  // and the end still comes at a tick with status 0.
  Service o_Svc([](const Sandbox& o_Box) {
    ASSERT_EQ(remove(o_Box.f_Path("/proc/pwrctrl/batalert").c_str()), 0);
    ASSERT_EQ(mkdir(o_Box.f_Path("/proc/pwrctrl/batalert").c_str(), 0755), 0);
  });
  BusClient& o_Client = o_Svc.o_Client;
  for (const char* z_c_Method : {"frdyget", "fackerrlist", "fgetunacknsyserrors", "fbatchcntrget"})
    EXPECT_TRUE(o_Client.f_CallFails(z_c_Method)) << z_c_Method;
  EXPECT_TRUE(o_Client.f_CallFails("fbatchcntrset", g_variant_new("(is)", 0, R"({"Id":1})")));
  for (const char* z_c_Method : {"fbatchcntrclear", "fbatchcntrdel"})
    EXPECT_TRUE(o_Client.f_CallFails(z_c_Method, g_variant_new("(i)", -1))) << z_c_Method;
  for (const char* z_c_Method : {"fdelerrlist", "fdumprdy"}) o_Client.f_Invoke(z_c_Method);
  o_Client.f_Invoke("freporterror", g_variant_new("(sss)", "Proc", "3216", ""));
  Variant_T o_Err(o_Client.f_CallOk("fsyserrorget"));
  ASSERT_TRUE(o_Err);
  EXPECT_EQ(f_Ints(o_Err.get()), (std::vector<int>{0, 0, 0}));
}

}  // namespace
