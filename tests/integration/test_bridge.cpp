// The plant feed end to end: the real service on the simulated tool, syssrv-bridge, and a
// real mosquitto broker on the loopback that the tests stop and start by pid.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "BrokerHarness.h"
#include "Harness.h"

using namespace it;

namespace {

double f_Num(const cJSON* z_o_J, const char* z_c_Key) {
  const cJSON* z_o_V = cJSON_GetObjectItemCaseSensitive(z_o_J, z_c_Key);
  return cJSON_IsNumber(z_o_V) ? z_o_V->valuedouble : -1;
}

// An event as a dashboard keeps it.
struct Event_ST {
  long l_Seq;
  std::string str_Name;
  int i_Code;  // -1 without one
};

// The events received, copies of the same sequence number removed (QoS 1 may deliver one
// twice), in the order of their first arrival.
std::vector<Event_ST> f_Events(Collector& o_Col) {
  std::vector<Event_ST> o_Out;
  std::set<long> o_Seen;
  for (const Msg_ST& o_M : o_Col.f_Msgs()) {
    if (o_M.str_Topic.find("/event/") == std::string::npos) continue;
    CJsonTree_T o_J(cJSON_Parse(o_M.str_Payload.c_str()));
    const char* z_c_Name = cJSON_GetStringValue(cJSON_GetObjectItem(o_J.get(), "event"));
    long l_Seq = static_cast<long>(f_Num(o_J.get(), "seq"));
    if (o_Seen.insert(l_Seq).second)
      o_Out.push_back(
          {l_Seq, z_c_Name != nullptr ? z_c_Name : "", static_cast<int>(f_Num(o_J.get(), "code"))});
  }
  return o_Out;
}

// Every sequence number from the first on, once, ascending: nothing lost, nothing reordered.
void f_ExpectGapless(const std::vector<Event_ST>& o_Events) {
  for (size_t i = 1; i < o_Events.size(); i++)
    if (o_Events[i].l_Seq != o_Events[i - 1].l_Seq + 1)
      return ADD_FAILURE() << "event " << o_Events[i - 1].l_Seq << " followed by "
                           << o_Events[i].l_Seq;
}

// The service, a broker and the bridge between them, shared by the cases of a suite.
class Plant : public ::testing::Test {
 protected:
  static void TearDownTestSuite() {
    if (o_Bridge) {
      EXPECT_EQ(o_Bridge->o_Proc.f_Stop(), 0) << f_Log();
      // No GLib criticals or warnings, no sanitizer findings, in the bridge's whole life.
      for (const char* z_c_Bad : {"CRITICAL", "GLib-WARNING", "GLib-GIO-WARNING", "runtime error:",
                                  "ERROR: AddressSanitizer", "ERROR: LeakSanitizer"})
        EXPECT_EQ(f_Log().find(z_c_Bad), std::string::npos) << z_c_Bad << " in\n" << f_Log();
    }
    o_Bridge.reset();
    o_Col.reset();
    o_Broker.reset();
    o_Svc.reset();
  }
  static std::string f_Log() { return o_Bridge->o_Proc.f_Log(); }
  static void f_StartBridge(const std::string& str_Config) {
    str_Base = "syssrv/" + f_HostName(o_Svc->o_Box) + "/";
    o_Bridge = std::make_unique<BridgeProc>(
        *o_Svc, str_Config + "port = " + std::to_string(o_Broker->f_Port()) + "\n");
    o_Bridge->o_Proc.f_Start();
  }
  static SysSrvClient* C() { return o_Svc->o_Client.f_Client(); }
  static void f_Report(int i_Code, int i_Class) {
    ASSERT_TRUE(sys_srv_client_report_error_sync(C(), "it", i_Code, i_Class, nullptr, nullptr));
  }

  static inline std::unique_ptr<Service> o_Svc;
  static inline std::unique_ptr<Broker> o_Broker;
  static inline std::unique_ptr<Collector> o_Col;
  static inline std::unique_ptr<BridgeProc> o_Bridge;
  static inline std::string str_Base;
};

// --- the plain broker: topics, commands, outages, a killed bridge ---------------------------

class Feed : public Plant {
 protected:
  static void SetUpTestSuite() {
    o_Svc = std::make_unique<Service>();
    o_Broker = std::make_unique<Broker>();
    ASSERT_TRUE(o_Broker->f_Start()) << "mosquitto did not start";
    // The persistent subscriber is there before the bridge: it sees every event.
    o_Col = std::make_unique<Collector>(o_Broker->f_Port(), "syssrv/#", "it-dashboard", true);
    ASSERT_TRUE(o_Col->f_Connected());
    f_StartBridge(
        "host = 127.0.0.1\nreconnect_max = 2\ncommand_enabled = true\n"
        "command_user = maint\n");
    // Online and following the service: from here on no announcement passes it by.
    ASSERT_TRUE(o_Col->f_LastHas(str_Base + "status", R"("service_running":true)", 30000))
        << f_Log();
    ASSERT_TRUE(o_Col->f_LastHas(str_Base + "status", R"("status":"online")", 0)) << f_Log();
  }
  static void f_Ack(int i_Code, int i_Class) {
    ASSERT_TRUE(sys_srv_client_ack_error_sync(C(), "it", i_Code, i_Class, nullptr, nullptr));
  }
};

TEST_F(Feed, EveryTopicCarriesItsDocumentedPayload) {
  ASSERT_TRUE(o_Svc->f_Started());
  // The retained state, at start.
  const std::pair<const char*, std::vector<const char*>> a_o_StateKeys[] = {
      {"status", {"status", "service_running", "since", "queued"}},
      {"ready", {"ready", "RdyIst", "RdySoll", "missing"}},
      {"battery", {"charge", "status", "status_code", "countdown", "countdown_s"}},
      {"error", {"coded", "code", "class", "date"}},
      {"errors", {"count", "errors"}},
      {"maintenance", {"due", "supervised", "next_cycle", "next_date", "last_cycle", "last_date"}},
  };
  for (const auto& o_S : a_o_StateKeys) {
    std::string str_P = o_Col->f_WaitLast(str_Base + o_S.first, 20000);
    CJsonTree_T o_J(cJSON_Parse(str_P.c_str()));
    ASSERT_NE(o_J, nullptr) << o_S.first << ": " << str_P;
    for (const char* z_c_Key : o_S.second)
      EXPECT_NE(cJSON_GetObjectItemCaseSensitive(o_J.get(), z_c_Key), nullptr)
          << o_S.first << " lacks " << z_c_Key << ": " << str_P;
  }
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "battery", "\"good\"", 10000));
  EXPECT_TRUE(f_Holds(o_Col->f_WaitLast(str_Base + "battery", 0), {{{"charge"}, "100"}}));

  // Each announcement of the service as its event, numbered, with the values it carried.
  f_Report(4711, 4);
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "errors",
                               R"({"coded":37692,"code":4711,"class":4,"date":)", 10000));
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "error", R"("code":4711,"class":4)", 5000));
  f_Ack(4711, 4);
  // A low battery: its charge, its status, and readiness lost with it.
  ASSERT_EQ(o_Svc->o_Box.f_Sim("battery 19"), 0);
  ASSERT_TRUE(sys_srv_client_set_mfu_sync(C(), 950, nullptr, nullptr));
  const std::pair<const char*, Want_T> a_o_Expect[] = {
      {"sysfault", {{{"code"}, "4711"}, {{"class"}, "4"}, {{"coded"}, "37692"}}},
      {"acksysfault", {{{"code"}, "4711"}}},
      {"battpowerchanged", {{{"charge"}, "0"}}},
      {"battstatuschanged", {{{"status"}, "\"low\""}}},
      {"rdychanged", {{{"ready"}, "false"}}},
      {"cfgfilechanged", {{{"path"}, "\"/home/tool/config/ChanCfg.json\""}}},
  };
  for (const auto& o_X : a_o_Expect) {
    auto f_Match = [&](const std::string& str_P) { return f_Holds(str_P, o_X.second); };
    EXPECT_NE(o_Col->f_WaitLast(str_Base + "event/" + o_X.first, 15000, f_Match, true), "")
        << o_X.first << " never came";
  }
  // Numbered, and stamped to the millisecond: 2026-11-24T15:04:05.123Z.
  CJsonTree_T o_Event(cJSON_Parse(o_Col->f_WaitLast(str_Base + "event/acksysfault", 0).c_str()));
  EXPECT_GT(f_Num(o_Event.get(), "seq"), 0);
  const char* z_c_Ts = cJSON_GetStringValue(cJSON_GetObjectItem(o_Event.get(), "ts"));
  EXPECT_EQ(std::string(z_c_Ts != nullptr ? z_c_Ts : "").size(), 24u);
  // The state topics followed.
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "errors", "4711", 5000, false));
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "battery", "\"low\"", 5000));
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "ready", "\"ready\":false", 5000));
  ASSERT_EQ(o_Svc->o_Box.f_Sim("battery 100"), 0);
  // The maintenance error travels as code 402, class 0; the feed must match it in that form.
  f_Report(402, 0);
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "maintenance", R"("due":true)", 10000)) << f_Log();
  f_Ack(402, 0);
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "maintenance", R"("due":false)", 10000)) << f_Log();
  f_ExpectGapless(f_Events(*o_Col));
}

// The plant's access list lets each broker user write commands only under its own name; the
// bridge takes them from the named user only, and only an acknowledgement.
TEST_F(Feed, OnlyTheNamedUserAcknowledgesAndOnlyAnAcknowledgement) {
  f_Report(6001, 4);
  f_Report(6002, 4);
  o_Col->f_Publish(str_Base + "command/mallory/ack", R"({"code":6001})");
  EXPECT_TRUE(o_Bridge->o_Proc.f_WaitLog(
      "command from broker user 'mallory' ignored: only 'maint' may send commands", 20000))
      << f_Log();
  o_Col->f_Publish(str_Base + "command/maint/ack", R"({"code":6001,"delete":true})");
  EXPECT_TRUE(o_Bridge->o_Proc.f_WaitLog("command of 'maint' refused", 20000)) << f_Log();
  o_Col->f_Publish(str_Base + "command/maint/ack", R"({"code":6002})");
  EXPECT_TRUE(
      o_Bridge->o_Proc.f_WaitLog("error 6002 (class 4) acknowledged by broker user 'maint'", 20000))
      << f_Log();
  auto f_Active = [] { return f_Str(o_Svc->o_Client.f_Reply("fgetunacknsyserrors")); };
  EXPECT_TRUE(
      f_WaitUntil([&] { return f_Active().find("\"code\":6002") == std::string::npos; }, 10000));
  EXPECT_NE(f_Active().find("\"code\":6001"), std::string::npos);
  // The next case counts events from here: all of these must have arrived.
  f_Ack(6001, 4);
  auto f_Is6001 = [](const std::string& str_P) { return f_Holds(str_P, {{{"code"}, "6001"}}); };
  EXPECT_NE(o_Col->f_WaitLast(str_Base + "event/acksysfault", 10000, f_Is6001, true), "");
}

// The broker away for 30 s during reports and acknowledgements, then the bridge killed while
// it sends its disk queue: none lost, each in the order it happened.
TEST_F(Feed, BrokerOutageAndAKilledBridgeLoseNothingAndKeepTheOrder) {
  ASSERT_TRUE(o_Svc->f_Started());
  ASSERT_TRUE(f_WaitUntil([] { return f_Events(*o_Col).size() > 0; }, 10000));
  const long l_Before = f_Events(*o_Col).back().l_Seq;
  constexpr int I_N = 500;  // enough that sending their 1000 events takes a good part of a second
  o_Broker->f_Stop();
  gint64 i_Down = g_get_monotonic_time();
  ASSERT_TRUE(o_Bridge->o_Proc.f_WaitLog("connection to the broker", 20000)) << f_Log();
  for (int i_Code = 5000; i_Code < 5000 + I_N; i_Code++) {
    f_Report(i_Code, 4);
    f_Ack(i_Code, 4);
  }
  // The events still in the bridge's queue, read from its file as the bridge writes it.
  const std::string str_Queue = o_Svc->o_Box.f_Path("/mnt/log/syssrv-bridge/queue.sq3");
  auto f_Queued = [&] {
    const std::string str_N =
        f_Sql(str_Queue, "SELECT COUNT(*) FROM events WHERE topic LIKE '%sysfault'");
    return str_N.empty() ? -1L : std::atol(str_N.c_str());
  };
  ASSERT_TRUE(f_WaitUntil([&] { return f_Queued() >= 2 * I_N; }, 60000));
  f_Pump(static_cast<int>(std::max<gint64>(0, 30000 - (g_get_monotonic_time() - i_Down) / 1000)));
  ASSERT_TRUE(o_Broker->f_Start());
  // Killed while sending: the broker has taken some, not all.
  long l_Left = 0;
  ASSERT_TRUE(f_WaitUntil([&] { return (l_Left = f_Queued()) < 2 * I_N; }, 60000));
  o_Bridge->o_Proc.f_Stop(SIGKILL);
  EXPECT_GT(l_Left, 0) << "the bridge was not killed mid-queue";
  // The broker says so for the vanished bridge.
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "status", R"("reason":"lost")", 15000));
  o_Bridge->o_Proc.f_Start();
  // Those events and no others (the service raises and withdraws codes below 5000 by itself).
  std::vector<std::string> o_Want;
  for (int i_Code = 5000; i_Code < 5000 + I_N; i_Code++)
    for (const char* z_c_Event : {"sysfault ", "acksysfault "})
      o_Want.push_back(z_c_Event + std::to_string(i_Code));
  auto f_Got = [&] {
    std::vector<std::string> o_Got;
    for (const Event_ST& o_E : f_Events(*o_Col))
      if (o_E.l_Seq > l_Before && o_E.i_Code >= 5000)
        o_Got.push_back(o_E.str_Name + " " + std::to_string(o_E.i_Code));
    return o_Got;
  };
  ASSERT_TRUE(f_WaitUntil([&] { return f_Got().size() >= o_Want.size(); }, 120000))
      << f_Got().size() << " of " << o_Want.size() << " arrived\n"
      << f_Log();
  EXPECT_EQ(f_Got(), o_Want);
  f_ExpectGapless(f_Events(*o_Col));
  // The retained state is the state after the outage, for anyone who asks now; events are
  // never retained, state always: a late dashboard gets the state only.
  Collector o_Late(o_Broker->f_Port(), str_Base + "#", "it-after-outage", false);
  EXPECT_TRUE(o_Late.f_LastHas(str_Base + "errors", "\"count\":0", 10000));
  EXPECT_TRUE(o_Late.f_LastHas(str_Base + "error", "\"code\":0", 10000));
  EXPECT_TRUE(o_Late.f_LastHas(str_Base + "status", "\"online\"", 10000));
  for (const Msg_ST& o_M : o_Late.f_Msgs()) {
    EXPECT_EQ(o_M.str_Topic.find("/event/"), std::string::npos) << o_M.str_Topic;
    EXPECT_TRUE(o_M.b_Retained) << o_M.str_Topic;
  }
}

// --- TLS and a password file: one case for their wiring ------------------------------------

TEST_F(Plant, WrongPasswordIsRefusedWithAClearLineThenTheRightOneConnects) {
  o_Svc = std::make_unique<Service>();
  ASSERT_TRUE(o_Svc->f_Started());
  // A wrong password first; the broker's files live beside the bridge's, on the tool.
  o_Svc->o_Box.f_Write("/etc/syssrv/bridge.password", "not-the-password\n");
  const std::string str_Etc = o_Svc->o_Box.f_Path("/etc/syssrv");
  std::string str_Out;
  // A short-lived certificate for localhost that the bridge trusts as its own CA.
  ASSERT_EQ(
      f_Shell("cd " + str_Etc + " && openssl req -x509 -newkey ec -pkeyopt " +
                  "ec_paramgen_curve:prime256v1 -nodes -keyout broker.key -out plant-ca.crt " +
                  "-days 2 -subj /CN=localhost -addext subjectAltName=DNS:localhost 2>&1 && " +
                  "mosquitto_passwd -c -b pw tool tool-secret && chmod 0644 pw broker.key",
              &str_Out),
      0)
      << str_Out;
  o_Broker = std::make_unique<Broker>("certfile " + str_Etc + "/plant-ca.crt\nkeyfile " + str_Etc +
                                      "/broker.key\npassword_file " + str_Etc + "/pw\n");
  ASSERT_TRUE(o_Broker->f_Start()) << o_Broker->f_Log();
  f_StartBridge(
      "host = localhost\nuser = tool\npassword_file = /etc/syssrv/bridge.password\n"
      "tls_ca_file = /etc/syssrv/plant-ca.crt\nreconnect_max = 1\n");
  EXPECT_TRUE(o_Bridge->o_Proc.f_WaitLog(
      "refused the connection as user 'tool': Connection Refused: not authorised", 30000))
      << f_Log();
  // The operator fixes the password file; the next attempt reads it.
  o_Svc->o_Box.f_Write("/etc/syssrv/bridge.password", "tool-secret\n");
  EXPECT_TRUE(o_Bridge->o_Proc.f_WaitLog(
      "connected to the broker localhost:" + std::to_string(o_Broker->f_Port()) + " (TLS)", 30000))
      << f_Log();
}

}  // namespace
