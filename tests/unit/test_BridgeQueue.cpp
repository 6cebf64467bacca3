// The plant feed's configuration parser and its on-disk queue (bounds, order, numbering).
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "BridgeConfig.h"
#include "EventQueue.h"
#include "TestSupport.h"

namespace {

TEST(BridgeConfig, AcceptsTheSampleAndRefusesWhatWouldMisbehave) {
  BridgeConfig_ST o_Cfg;
  std::string str_Err;
  ASSERT_TRUE(
      f_ParseBridgeConfig("# plant\nhost = broker.plant \nport=8883\n"
                          "tls_ca_file = /etc/ca.crt # trailing comment\n"
                          "queue_max_events = 10\ncommand_enabled = yes\n"
                          "command_user = maint\nprefix = plant/line3\n",
                          &o_Cfg, &str_Err))
      << str_Err;
  EXPECT_EQ(o_Cfg.str_Host, "broker.plant");
  EXPECT_EQ(o_Cfg.f_Port(), 8883);
  EXPECT_EQ(o_Cfg.str_TlsCaFile, "/etc/ca.crt");
  EXPECT_EQ(o_Cfg.l_QueueMaxEvents, 10);
  EXPECT_TRUE(o_Cfg.b_CommandEnabled);
  EXPECT_EQ(o_Cfg.str_Prefix, "plant/line3");
  EXPECT_EQ(BridgeConfig_ST().f_Port(), 1883);

  const std::pair<const char*, const char*> a_o_Bad[] = {
      {"hots = x\n", "unknown key"},
      {"port = 70000\n", "not a number in range"},
      {"port = 18x3\n", "not a number in range"},
      {"queue_max_events = 0\n", "not a number in range"},
      {"host\n", "expected key = value"},
      {"prefix = a/#\n", "not usable in a topic"},
      {"host_name = /x\n", "not usable in a topic"},
      {"command_enabled = true\n", "command_enabled needs command_user"},
      {"command_enabled = maybe\n", "expected true or false"},
      {"command_user = a/b\n", "must not contain"},
      {"tls_cert_file = /c\n", "go together"},
      {"tls_cert_file = /c\ntls_key_file = /k\n", "needs tls_ca_file"},
      {"reconnect_min = 10\nreconnect_max = 5\n", "below reconnect_min"},
  };
  for (const auto& [z_c_Text, z_c_Why] : a_o_Bad) {
    BridgeConfig_ST o_C;
    std::string str_E;
    EXPECT_FALSE(f_ParseBridgeConfig(z_c_Text, &o_C, &str_E)) << z_c_Text;
    EXPECT_NE(str_E.find(z_c_Why), std::string::npos) << z_c_Text << ": " << str_E;
  }
}

class BridgeQueue : public ::testing::Test {
 protected:
  TempRoot o_Root;
  std::string f_Db() const { return o_Root.f_Path("/mnt/log/syssrv-bridge/queue.sq3"); }
  static std::vector<int64_t> f_Seqs(EventQueue_CL& o_Q) {
    std::vector<int64_t> o_S;
    for (const QueuedEvent_ST& o_E : o_Q.f_Next(0, 1000)) o_S.push_back(o_E.i_Seq);
    return o_S;
  }
};

TEST_F(BridgeQueue, NumbersSurviveRestartsAndAreNeverReused) {
  const int64_t i_T = 1795532913123;
  {
    EventQueue_CL o_Q(100, 3600);
    ASSERT_TRUE(o_Q.f_Open(f_Db()));  // makes its directory
    EXPECT_EQ(o_Q.f_Push("t/event/a", R"({"event":"a","code":1})", i_T), 1);
    EXPECT_EQ(o_Q.f_Push("t/event/b", "{}", i_T), 2);
    std::vector<QueuedEvent_ST> o_E = o_Q.f_Next(0, 10);
    ASSERT_EQ(o_E.size(), 2u);
    EXPECT_EQ(o_E[0].str_Payload,
              R"({"seq":1,"ts":"2026-11-24T15:08:33.123Z","event":"a","code":1})");
    EXPECT_EQ(o_E[1].str_Payload, R"({"seq":2,"ts":"2026-11-24T15:08:33.123Z"})");
    o_Q.f_Remove(1);
    o_Q.f_Remove(2);
    EXPECT_EQ(o_Q.f_Count(), 0);
  }
  // Reopened empty: the next number follows the last one ever given, not the rows left.
  EventQueue_CL o_Q(100, 3600);
  ASSERT_TRUE(o_Q.f_Open(f_Db()));
  EXPECT_EQ(o_Q.f_Push("t/event/c", "{}", i_T), 3);
  EXPECT_EQ(o_Q.f_Push("t/event/d", "{}", i_T), 4);
  EXPECT_EQ(o_Q.f_Next(3, 10).size(), 1u);  // after the last one sent
  EXPECT_EQ(o_Q.f_Count(), 2);
}

TEST_F(BridgeQueue, LimitsDropTheOldestFirst) {
  EventQueue_CL o_Q(3, 60);
  ASSERT_TRUE(o_Q.f_Open(f_Db()));
  const int64_t i_T = 1795532913000;
  for (int i = 0; i < 5; i++) o_Q.f_Push("t/event/x", "{}", i_T + i * 20000);
  EXPECT_EQ(f_Seqs(o_Q), (std::vector<int64_t>{3, 4, 5}));
  EXPECT_EQ(o_Q.f_Count(), 3);
  // 60 s after the fourth: it and the third are too old, the fifth is not.
  EXPECT_EQ(o_Q.f_DropExpired(i_T + 3 * 20000 + 60001), 2);
  EXPECT_EQ(f_Seqs(o_Q), (std::vector<int64_t>{5}));
  EXPECT_EQ(o_Q.f_Count(), 1);
}

}  // namespace
