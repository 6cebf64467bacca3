// The plant feed end to end: the real service on the simulated tool, syssrv-bridge, and a
// real mosquitto broker on the loopback that the tests stop and start by pid.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "BrokerHarness.h"
#include "Harness.h"

using namespace it;

namespace {

CJsonTree_T f_Parse(const std::string& str_Text) {
  return CJsonTree_T(cJSON_Parse(str_Text.c_str()));
}
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
    CJsonTree_T o_J = f_Parse(o_M.str_Payload);
    long l_Seq = static_cast<long>(f_Num(o_J.get(), "seq"));
    const char* z_c_Name =
        cJSON_GetStringValue(cJSON_GetObjectItemCaseSensitive(o_J.get(), "event"));
    if (o_Seen.insert(l_Seq).second)
      o_Out.push_back(
          {l_Seq, z_c_Name != nullptr ? z_c_Name : "", static_cast<int>(f_Num(o_J.get(), "code"))});
  }
  return o_Out;
}

// Every sequence number from the first on, once, ascending: nothing lost, nothing reordered.
void f_ExpectGapless(const std::vector<Event_ST>& o_Events) {
  for (size_t i = 1; i < o_Events.size(); i++)
    if (o_Events[i].l_Seq != o_Events[i - 1].l_Seq + 1) {
      ADD_FAILURE() << "event " << o_Events[i - 1].l_Seq << " followed by " << o_Events[i].l_Seq;
      return;
    }
}

// "NAME CODE" of the events about the test's own errors (from 5000 on; the service raises and
// withdraws lower ones by itself) with a sequence number above l_After, in order.
std::vector<std::string> f_Faults(const std::vector<Event_ST>& o_Events, long l_After) {
  std::vector<std::string> o_Out;
  for (const Event_ST& o_E : o_Events)
    if (o_E.l_Seq > l_After && o_E.i_Code >= 5000)
      o_Out.push_back(o_E.str_Name + " " + std::to_string(o_E.i_Code));
  return o_Out;
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

  static std::unique_ptr<Service> o_Svc;
  static std::unique_ptr<Broker> o_Broker;
  static std::unique_ptr<Collector> o_Col;
  static std::unique_ptr<BridgeProc> o_Bridge;
  static std::string str_Base;
};
std::unique_ptr<Service> Plant::o_Svc;
std::unique_ptr<Broker> Plant::o_Broker;
std::unique_ptr<Collector> Plant::o_Col;
std::unique_ptr<BridgeProc> Plant::o_Bridge;
std::string Plant::str_Base;

// --- the plain broker: topics, outages, a killed bridge -------------------------------------

class Feed : public Plant {
 protected:
  static void SetUpTestSuite() {
    o_Svc = std::make_unique<Service>();
    o_Broker = std::make_unique<Broker>();
    ASSERT_TRUE(o_Broker->f_Start()) << "mosquitto did not start";
    // The persistent subscriber is there before the bridge: it sees every event.
    o_Col = std::make_unique<Collector>(o_Broker->f_Port(), "syssrv/#", "it-dashboard", true);
    ASSERT_TRUE(o_Col->f_Connected());
    f_StartBridge("host = 127.0.0.1\nreconnect_max = 2\n");
    // Online and following the service: from here on no announcement passes it by.
    ASSERT_TRUE(o_Col->f_LastHas(str_Base + "status", R"("service_running":true)", 30000))
        << f_Log();
    ASSERT_TRUE(o_Col->f_LastHas(str_Base + "status", R"("status":"online")", 0)) << f_Log();
  }
  static void f_Ack(int i_Code, int i_Class) {
    ASSERT_TRUE(sys_srv_client_ack_error_sync(C(), "it", i_Code, i_Class, nullptr, nullptr));
  }
  // Waits for the events of reports of codes i_From.. (with b_Acked each followed by its
  // acknowledgement) after sequence number l_Before: those and no others, gapless.
  static void f_ExpectFaults(long l_Before, int i_From, int i_N, bool b_Acked) {
    std::vector<std::string> o_Want;
    for (int i_Code = i_From; i_Code < i_From + i_N; i_Code++) {
      o_Want.push_back("sysfault " + std::to_string(i_Code));
      if (b_Acked) o_Want.push_back("acksysfault " + std::to_string(i_Code));
    }
    auto f_Got = [&] { return f_Faults(f_Events(*o_Col), l_Before); };
    ASSERT_TRUE(f_WaitUntil([&] { return f_Got().size() >= o_Want.size(); }, 120000))
        << f_Got().size() << " of " << o_Want.size() << " arrived\n"
        << f_Log();
    EXPECT_EQ(f_Got(), o_Want);
    f_ExpectGapless(f_Events(*o_Col));
  }
  static long f_LastSeq() {
    std::vector<Event_ST> o_E = f_Events(*o_Col);
    return o_E.empty() ? 0 : o_E.back().l_Seq;
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
    CJsonTree_T o_J = f_Parse(str_P);
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
    auto f_Match = [&](const std::string& s) { return f_Holds(s, o_X.second); };
    EXPECT_NE(o_Col->f_WaitLast(str_Base + "event/" + o_X.first, 15000, f_Match, true), "")
        << o_X.first << " never came";
  }
  // Numbered, and stamped to the millisecond: 2026-11-24T15:04:05.123Z.
  CJsonTree_T o_Event = f_Parse(o_Col->f_WaitLast(str_Base + "event/acksysfault", 0));
  EXPECT_GT(f_Num(o_Event.get(), "seq"), 0);
  const char* z_c_Ts = cJSON_GetStringValue(cJSON_GetObjectItem(o_Event.get(), "ts"));
  EXPECT_EQ(std::string(z_c_Ts != nullptr ? z_c_Ts : "").size(), 24u);
  // The state topics followed.
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "errors", "4711", 5000, false));
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "battery", "\"low\"", 5000));
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "ready", "\"ready\":false", 5000));
  // Events never retained, state always retained: a late dashboard gets the state only.
  Collector o_Late(o_Broker->f_Port(), str_Base + "#", "it-late", false);
  EXPECT_NE(o_Late.f_WaitLast(str_Base + "maintenance", 10000), "");
  for (const Msg_ST& o_M : o_Late.f_Msgs()) {
    EXPECT_EQ(o_M.str_Topic.find("/event/"), std::string::npos) << o_M.str_Topic;
    EXPECT_TRUE(o_M.b_Retained) << o_M.str_Topic;
  }
  ASSERT_EQ(o_Svc->o_Box.f_Sim("battery 100"), 0);
  f_ExpectGapless(f_Events(*o_Col));
}

// The maintenance error travels as code 402, class 0; the feed must match it in that form.
TEST_F(Feed, MaintenanceIsDueWhileItsErrorIsActive) {
  f_Report(402, 0);
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "maintenance", R"("due":true)", 10000)) << f_Log();
  f_Ack(402, 0);
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "maintenance", R"("due":false)", 10000)) << f_Log();
}

TEST_F(Feed, BrokerOutageLosesNothingAndKeepsTheOrder) {
  ASSERT_TRUE(o_Svc->f_Started());
  ASSERT_TRUE(f_WaitUntil([] { return f_Events(*o_Col).size() > 0; }, 10000));
  long l_Before = f_LastSeq();
  o_Broker->f_Stop();
  gint64 i_Down = g_get_monotonic_time();
  ASSERT_TRUE(o_Bridge->o_Proc.f_WaitLog("connection to the broker", 20000)) << f_Log();
  for (int i_Code = 5000; i_Code < 5500; i_Code++) {
    f_Report(i_Code, 4);
    f_Ack(i_Code, 4);
  }
  // The broker stays away for 30 s in all.
  f_Pump(static_cast<int>(std::max<gint64>(0, 30000 - (g_get_monotonic_time() - i_Down) / 1000)));
  ASSERT_TRUE(o_Broker->f_Start());

  // Each report came before its acknowledgement, and that before the next report.
  f_ExpectFaults(l_Before, 5000, 500, true);

  // The retained state is the state after the outage, for anyone who asks now.
  Collector o_Late(o_Broker->f_Port(), str_Base + "#", "it-after-outage", false);
  EXPECT_TRUE(o_Late.f_LastHas(str_Base + "errors", "\"count\":0", 10000));
  EXPECT_TRUE(o_Late.f_LastHas(str_Base + "error", "\"code\":0", 10000));
  EXPECT_TRUE(o_Late.f_LastHas(str_Base + "status", "\"online\"", 10000));
}

TEST_F(Feed, BridgeKilledMidQueueLosesNothing) {
  ASSERT_TRUE(o_Svc->f_Started());
  // Enough that sending them takes the bridge a good part of a second.
  constexpr int I_N = 1000;
  long l_Before = f_LastSeq();
  o_Broker->f_Stop();
  for (int i_Code = 7000; i_Code < 7000 + I_N; i_Code++) f_Report(i_Code, 4);
  // The reports still in the bridge's queue, read from its file as the bridge writes it.
  std::string str_Queue = o_Svc->o_Box.f_Path("/mnt/log/syssrv-bridge/queue.sq3");
  auto f_Queued = [&] {
    sqlite3* z_o_Db = nullptr;
    sqlite3_open_v2(str_Queue.c_str(), &z_o_Db, SQLITE_OPEN_READONLY, nullptr);
    sqlite3_stmt* z_o_St = nullptr;
    long l_N = -1;
    if (sqlite3_prepare_v2(z_o_Db, "SELECT COUNT(*) FROM events WHERE topic LIKE '%/sysfault'", -1,
                           &z_o_St, nullptr) == SQLITE_OK &&
        sqlite3_step(z_o_St) == SQLITE_ROW)
      l_N = sqlite3_column_int64(z_o_St, 0);
    sqlite3_finalize(z_o_St);
    sqlite3_close(z_o_Db);
    return l_N;
  };
  // All of them are on disk before the broker comes back.
  ASSERT_TRUE(f_WaitUntil([&] { return f_Queued() >= I_N; }, 60000));
  ASSERT_TRUE(o_Broker->f_Start());
  // Killed while sending: the broker has taken some, not all.
  long l_Left = 0;
  ASSERT_TRUE(f_WaitUntil([&] { return (l_Left = f_Queued()) < I_N; }, 60000));
  o_Bridge->o_Proc.f_Stop(SIGKILL);
  EXPECT_GT(l_Left, 0) << "the bridge was not killed mid-queue";
  std::printf("killed with %ld of %d events still queued\n", l_Left, I_N);
  // The broker says so for the vanished bridge.
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "status", R"("reason":"lost")", 15000));
  o_Bridge->o_Proc.f_Start();
  f_ExpectFaults(l_Before, 7000, I_N, false);
  EXPECT_TRUE(o_Col->f_LastHas(str_Base + "status", "\"online\"", 15000));
  ASSERT_TRUE(sys_srv_client_delete_error_list_sync(C(), nullptr, nullptr));
}

// --- a broker with TLS, passwords and an access list; the command topic -------------------

// Users: the bridge "tool", the maintenance user "maint" that may acknowledge, and "mallory".
// The access list lets each user write commands only under its own name.
class Secured : public Plant {
 protected:
  static void SetUpTestSuite() {
    o_Svc = std::make_unique<Service>();
    str_Certs = f_MakeTempDir("it-certs");
    const std::string& d = str_Certs;
    std::string str_Out;
    // Short-lived test certificates: a CA and the broker's, valid for localhost.
    int i_Rc = f_Shell(
        "(cd " + d + " && printf 'subjectAltName=DNS:localhost,IP:127.0.0.1\\n' > san.ext && " +
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes "
            "-keyout ca.key -out ca.crt -days 2 -subj /CN=it-plant-ca && "
            "openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes "
            "-keyout broker.key -out broker.csr -subj /CN=localhost && "
            "openssl x509 -req -in broker.csr -CA ca.crt -CAkey ca.key -CAcreateserial "
            "-out broker.crt -days 2 -extfile san.ext && "
            "mosquitto_passwd -c -b pw tool tool-secret && mosquitto_passwd -b pw maint maint-pw "
            "&& mosquitto_passwd -b pw mallory mallory-pw && chmod 0644 pw *.key) 2>&1",
        &str_Out);
    ASSERT_EQ(i_Rc, 0) << str_Out;
    std::ofstream(d + "/acl") << "user tool\ntopic readwrite syssrv/#\n"
                                 "user maint\ntopic read syssrv/#\n"
                                 "user mallory\ntopic read syssrv/#\n"
                                 "pattern write syssrv/+/command/%u/ack\n";
    o_Broker = std::make_unique<Broker>(
        "cafile " + d + "/ca.crt\ncertfile " + d + "/broker.crt\nkeyfile " + d +
        "/broker.key\npassword_file " + d + "/pw\nacl_file " + d + "/acl\n");
    ASSERT_TRUE(o_Broker->f_Start()) << o_Broker->f_Log();
    // The bridge's files live on the tool; a wrong password first.
    o_Svc->o_Box.f_Write("/etc/syssrv/plant-ca.crt", f_ReadFile(d + "/ca.crt"));
    o_Svc->o_Box.f_Write("/etc/syssrv/bridge.password", "not-the-password\n");
    f_StartBridge(
        "host = localhost\nuser = tool\npassword_file = /etc/syssrv/bridge.password\n"
        "tls_ca_file = /etc/syssrv/plant-ca.crt\nreconnect_max = 1\n"
        "command_enabled = true\ncommand_user = maint\n");
  }
  static void TearDownTestSuite() {
    Plant::TearDownTestSuite();
    f_RemoveTree(str_Certs);
  }
  static std::unique_ptr<Collector> f_User(const char* z_c_User, const char* z_c_Password) {
    Tls_ST o_Tls{str_Certs + "/ca.crt", z_c_User, z_c_Password};
    return std::make_unique<Collector>(o_Broker->f_Port(), str_Base + "#",
                                       std::string("it-") + z_c_User, false, &o_Tls);
  }
  static bool f_Active(int i_Code) {
    GPtrArray* z_o_List = sys_srv_client_fetch_active_errors_sync(C(), nullptr, nullptr);
    bool b_Found = false;
    for (guint i = 0; z_o_List != nullptr && i < z_o_List->len; i++)
      b_Found |= static_cast<SysSrvErrorEntry*>(g_ptr_array_index(z_o_List, i))->code == i_Code;
    if (z_o_List != nullptr) g_ptr_array_unref(z_o_List);
    return b_Found;
  }
  static std::string str_Certs;
};
std::string Secured::str_Certs;

TEST_F(Secured, WrongPasswordIsRefusedWithAClearLineThenTheRightOneConnects) {
  ASSERT_TRUE(o_Svc->f_Started());
  EXPECT_TRUE(o_Bridge->o_Proc.f_WaitLog(
      "refused the connection as user 'tool': Connection Refused: not authorised", 30000))
      << f_Log();
  // The operator fixes the password file; the next attempt reads it.
  o_Svc->o_Box.f_Write("/etc/syssrv/bridge.password", "tool-secret\n");
  EXPECT_TRUE(o_Bridge->o_Proc.f_WaitLog("(TLS)", 30000)) << f_Log();
  std::unique_ptr<Collector> o_Maint = f_User("maint", "maint-pw");
  EXPECT_TRUE(o_Maint->f_LastHas(str_Base + "status", R"("service_running":true)", 20000))
      << f_Log();
  EXPECT_TRUE(o_Maint->f_LastHas(str_Base + "status", R"("status":"online")", 0)) << f_Log();
}

TEST_F(Secured, OnlyTheNamedUserAcknowledgesAndOnlyAnAcknowledgement) {
  ASSERT_TRUE(o_Svc->f_Started());
  ASSERT_TRUE(o_Bridge->o_Proc.f_WaitLog("(TLS)", 60000)) << f_Log();
  f_Report(6001, 4);
  f_Report(6002, 4);
  std::unique_ptr<Collector> o_Mallory = f_User("mallory", "mallory-pw");
  std::unique_ptr<Collector> o_Maint = f_User("maint", "maint-pw");
  ASSERT_NE(o_Maint->f_WaitLast(str_Base + "status", 20000), "");

  // Another user, under its own name: the broker lets it through, the bridge does not.
  o_Mallory->f_Publish(str_Base + "command/mallory/ack", R"({"code":6001})");
  EXPECT_TRUE(o_Bridge->o_Proc.f_WaitLog(
      "command from broker user 'mallory' ignored: only 'maint' may send commands", 20000))
      << f_Log();
  // Anything but an acknowledgement, even from the named user.
  o_Maint->f_Publish(str_Base + "command/maint/ack", R"({"code":6001,"delete":true})");
  EXPECT_TRUE(o_Bridge->o_Proc.f_WaitLog("command of 'maint' refused", 20000)) << f_Log();
  // The named user's acknowledgement goes to the service.
  o_Maint->f_Publish(str_Base + "command/maint/ack", R"({"code":6002})");
  EXPECT_TRUE(
      o_Bridge->o_Proc.f_WaitLog("error 6002 (class 4) acknowledged by broker user 'maint'", 20000))
      << f_Log();
  EXPECT_TRUE(f_WaitUntil([] { return !f_Active(6002); }, 10000));
  EXPECT_TRUE(f_Active(6001));
}

}  // namespace
