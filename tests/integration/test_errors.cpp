// Reports and acknowledgements (by code, collective, by the input) over the bus, the readiness
// they move, the export and the stored rows; the rules are unit_ErrorHandler's/unit_CheckRules'.
#include <ctime>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "Harness.h"

using namespace it;

namespace {

using Ints = std::vector<int>;
constexpr int I_SOLL = (1 << 3) | (1 << 5);
constexpr int I_NOT_READY = 1 << 3;        // RdyIst while the peer's flag is missing
constexpr int I_ERROR_NOT_READY = 1 << 5;  // ... while an error holds flag 3 down

void f_TwoRowsAndAPeer(const Sandbox& o_Box) {
  // Flag 1 is listed but not required; 3 (no active error) and 5 (a peer's) are required.
  o_Box.f_Write("/home/tool/config/log/rdystatus.json",
                R"({"flags":[{"nr":1,"state":0,"name":"ToolProc"},)"
                R"({"nr":3,"state":1,"name":"SysSrv"},{"nr":5,"state":1,"name":"Peer"}]})");
  // Room for two rows only, so reports soon reuse the oldest row.
  o_Box.f_Write("/home/tool/config/log/syserror.json",
                R"({"DbFilePath":"/mnt/log/syserrors.sq3","MaxErrors":2})");
}

// The first case starts on an empty table; between the cases the tool is ready, no error active.
class ErrorList : public ServiceSuite<f_TwoRowsAndAPeer> {
 protected:
  void SetUp() override {
    ASSERT_EQ(f_Json(), R"({"errors":[]})") << "an earlier case left an active error";
    o_Client.f_Invoke("frdyflagset", g_variant_new("(i)", 5));
    ASSERT_TRUE(f_WaitUntil([&] { return o_Box.f_BmsOut(17); }, 5000));
    // An old announcement must not be taken for a new one.
    o_Rec.f_Sync();
    o_Rec.f_Clear();
  }

  void f_Report(const char* z_c_Proc, int i_Coded, const char* z_c_Ack = "") {
    o_Client.f_Invoke("freporterror",
                      g_variant_new("(sss)", z_c_Proc, std::to_string(i_Coded).c_str(), z_c_Ack));
  }
  std::string f_Json() { return f_Str(o_Client.f_Reply("fgetunacknsyserrors")); }
  // Waits for signal z_c_Name whose first argument is i_First; its arguments, empty on time-out.
  Ints f_Await(const char* z_c_Name, int i_First) {
    const Signal_ST* z_o_S = o_Rec.f_WaitFirst(z_c_Name, i_First);
    return z_o_S != nullptr ? f_Ints(z_o_S->o_Args) : Ints{};
  }
  // Reports and returns the "sysfault" arguments, dated the time of the report.
  Ints f_Raise(const char* z_c_Proc, int i_Coded) {
    const time_t i_Before = time(nullptr);
    f_Report(z_c_Proc, i_Coded);
    Ints o_Fault = f_Await("sysfault", i_Coded >> 3);
    EXPECT_TRUE(o_Fault.size() == 3 && o_Fault[2] >= i_Before && o_Fault[2] <= time(nullptr))
        << i_Coded;
    return o_Fault;
  }
  // Acknowledges by code and returns the "acksysfault" arguments.
  Ints f_AckByCode(int i_Coded) {
    f_Report("Peer", i_Coded, "Ack");
    return f_Await("acksysfault", i_Coded >> 3);
  }
};

TEST_F(ErrorList, ProcessNameIsStoredVerbatimAlsoWhenTheOldestRowIsReused) {
  // The newest row as a diagnostics tool reads it straight from the file.
  auto f_Newest = [&] {
    return f_Sql(o_Box.f_Path("/mnt/log/syserrors.sq3"),
                 "select proc, code||'/'||class||'/'||ack from syserrors order by id desc limit 1");
  };
  int i_Code = 500;
  // More names than rows: the later ones take the overwrite path.
  for (const char* z_c_Name : {"x'); DROP TABLE syserrors; --", "it's \"quoted\" %s%n \\",
                               "x', proc='forged', ack=1 where id>0; --"}) {
    SCOPED_TRACE(z_c_Name);
    ASSERT_FALSE(f_Raise(z_c_Name, i_Code * 8 + 4).empty());
    EXPECT_EQ(f_Newest(), z_c_Name + ("|" + std::to_string(i_Code) + "/4/0"));
    EXPECT_EQ(f_AckByCode(i_Code * 8 + 4), (Ints{i_Code, 0}));
    i_Code++;
  }
}

TEST_F(ErrorList, ReportWithdrawsReadinessUntilAcknowledged) {
  // The peer's flag over the bus: withdrawn, then back.
  o_Client.f_Invoke("frdyflagreset", g_variant_new("(i)", 5));
  EXPECT_EQ(f_Await("rdychanged", I_NOT_READY), (Ints{I_NOT_READY, I_SOLL}));
  o_Client.f_Invoke("frdyflagset", g_variant_new("(i)", 5));
  ASSERT_FALSE(f_Await("rdychanged", I_SOLL).empty());

  Ints o_Fault = f_Raise("PeerProc", 3228);  // 403, class 4
  ASSERT_EQ(o_Fault.size(), 3u);
  EXPECT_EQ(f_Await("rdychanged", I_ERROR_NOT_READY), (Ints{I_ERROR_NOT_READY, I_SOLL}));
  EXPECT_FALSE(o_Box.f_BmsOut(18) || o_Box.f_BmsOut(17));
  EXPECT_EQ(f_Ints(o_Client.f_Reply("fsyserrorget")), o_Fault);
  EXPECT_EQ(f_Json(),
            R"({"errors":[{"code":403,"class":4,"date":)" + std::to_string(o_Fault[2]) + "}]}");

  EXPECT_EQ(f_AckByCode(3228), (Ints{403, 0}));
  EXPECT_EQ(f_Await("rdychanged", I_SOLL), (Ints{I_SOLL, I_SOLL}));
  EXPECT_TRUE(o_Box.f_BmsOut(18) && o_Box.f_BmsOut(17));
  EXPECT_EQ(f_Ints(o_Client.f_Reply("fsyserrorget")), (Ints{0, 0, 0}));
}

TEST_F(ErrorList, AcknowledgeInputAndTheCollectiveAcknowledgement) {
  f_Raise("Peer", 3243);  // 405, class 3
  ASSERT_FALSE(f_Await("rdychanged", I_ERROR_NOT_READY).empty());
  ASSERT_EQ(o_Box.f_Sim("bms in 17 1"), 0);
  EXPECT_EQ(f_Await("acksysfault", 405), (Ints{405, 0}));
  EXPECT_FALSE(f_Await("rdychanged", I_SOLL).empty());
  ASSERT_EQ(o_Box.f_Sim("bms in 17 0"), 0);

  f_Raise("Peer", 3243);
  ASSERT_TRUE(o_Client.f_Invoke("fackerrlist"));
  EXPECT_EQ(f_Await("acksysfault", 405), (Ints{405, 0}));
}

}  // namespace
