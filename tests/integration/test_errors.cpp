// The error list over the bus: reports, acknowledgements (by code, collective, by the
// acknowledge input) with the readiness they withdraw and restore, the export, and the file
// other tools read.
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <string>
#include <vector>

#include "Harness.h"

using namespace it;

namespace {

// Flag 1 is listed but not required; 3 (no active error) and 5 (a peer's) are required.
const char* A_C_RDY_CFG =
    R"({"flags":[{"nr":1,"state":0,"name":"ToolProc"},{"nr":3,"state":1,"name":"SysSrv"},)"
    R"({"nr":5,"state":1,"name":"Peer"}]})";
constexpr int I_SOLL = (1 << 3) | (1 << 5);
constexpr int I_NOT_READY = 1 << 3;        // RdyIst as announced while the peer's flag is missing
constexpr int I_ERROR_NOT_READY = 1 << 5;  // ... while an error holds flag 3 down
using Ints = std::vector<int>;

// One daemon per suite, the readiness file (and maybe the error store's) written before it
// starts. The cases of a suite run in order and share its state.
template <class Suite_T>
class DaemonSuite : public ::testing::Test {
 protected:
  static void f_Up(const char* z_c_RdyCfg, const char* z_c_ErrCfg = nullptr) {
    z_o_Svc = new Service([=](const Sandbox& o_Box) {
      o_Box.f_Write("/home/tool/config/log/rdystatus.json", z_c_RdyCfg);
      if (z_c_ErrCfg != nullptr) o_Box.f_Write("/home/tool/config/log/syserror.json", z_c_ErrCfg);
    });
  }
  static void TearDownTestSuite() {
    delete z_o_Svc;
    z_o_Svc = nullptr;
  }
  static BusClient& C() { return z_o_Svc->o_Client; }
  static SignalRecorder& R() { return z_o_Svc->o_Rec; }
  static const Sandbox& Box() { return z_o_Svc->o_Box; }
  static void f_Flag(const char* z_c_Method, int i_Nr) {
    C().f_Invoke(z_c_Method, g_variant_new("(i)", i_Nr));
  }
  static void f_Report(const char* z_c_Proc, int i_Coded, const char* z_c_Ack = "") {
    C().f_Invoke("freporterror",
                 g_variant_new("(sss)", z_c_Proc, std::to_string(i_Coded).c_str(), z_c_Ack));
  }
  static Ints f_Answer(const char* z_c_Method) {
    GVariant* o_R = C().f_CallOk(z_c_Method);
    Variant_T o_ROwner(o_R);
    Ints o_Values = o_R != nullptr ? f_Ints(o_R) : Ints{};
    return o_Values;
  }
  static std::string f_Json() {
    GVariant* o_R = C().f_CallOk("fgetunacknsyserrors");
    Variant_T o_ROwner(o_R);
    std::string str_Json = o_R != nullptr ? f_Str(o_R) : "<no answer>";
    return str_Json;
  }
  // The export expected for these "sysfault" argument lists.
  static std::string f_ErrorJson(const std::vector<Ints>& o_Errors) {
    std::string str_Json;
    for (const Ints& o_E : o_Errors)
      str_Json += std::string(str_Json.empty() ? "" : ",") + R"({"code":)" +
                  std::to_string(o_E[0]) + R"(,"class":)" + std::to_string(o_E[1]) + R"(,"date":)" +
                  std::to_string(o_E[2]) + "}";
    return R"({"errors":[)" + str_Json + "]}";
  }
  // Waits for signal z_c_Name whose first argument is i_First; its arguments, empty on time-out.
  static Ints f_Await(const char* z_c_Name, int i_First) {
    const Signal_ST* z_o_S =
        R().f_WaitFor(z_c_Name, 5000, [i_First](GVariant* v) { return f_Int(v) == i_First; });
    return z_o_S != nullptr ? f_Ints(z_o_S->o_Args) : Ints{};
  }
  // Arguments of every signal named z_c_Name recorded so far.
  static std::vector<Ints> f_All(const char* z_c_Name) {
    std::vector<Ints> o_Out;
    for (const Signal_ST* z_o_S : R().f_All(z_c_Name)) o_Out.push_back(f_Ints(z_o_S->o_Args));
    return o_Out;
  }
  // Sets the peer's flag and waits until readiness has been announced; then forgets every
  // signal so far, so that an old announcement cannot be taken for a new one.
  static void f_SettleReady() {
    f_Flag("frdyflagset", 5);
    ASSERT_TRUE(f_WaitUntil([] { return Box().f_BmsOut(17); }, 5000));
    R().f_Sync();
    R().f_Clear();
  }
  // Reports and returns the "sysfault" arguments; the date must be the time of the report.
  static Ints f_Raise(const char* z_c_Proc, int i_Coded) {
    time_t i_Before = time(nullptr);
    f_Report(z_c_Proc, i_Coded);
    Ints o_Fault = f_Await("sysfault", i_Coded >> 3);
    EXPECT_EQ(o_Fault.size(), 3u) << "no sysfault for " << i_Coded;
    if (o_Fault.size() != 3) return {i_Coded >> 3, i_Coded & 7, 0};
    EXPECT_EQ(o_Fault[1], i_Coded & 7);
    EXPECT_GE(o_Fault[2], i_Before);
    EXPECT_LE(o_Fault[2], time(nullptr));
    return o_Fault;
  }
  // Acknowledges by code and returns the "acksysfault" arguments.
  static Ints f_AckByCode(int i_Coded) {
    f_Report("Peer", i_Coded, "Ack");
    return f_Await("acksysfault", i_Coded >> 3);
  }

  static inline Service* z_o_Svc = nullptr;
};

// --- errors and acknowledgement -------------------------------------------------------
// Between the cases the tool is ready: the peer's flag is set and no error stays active.

class ErrorAck : public DaemonSuite<ErrorAck> {
 protected:
  static void SetUpTestSuite() { f_Up(A_C_RDY_CFG); }
  void SetUp() override {
    ASSERT_EQ(f_Json(), R"({"errors":[]})") << "an earlier case left an active error";
    f_SettleReady();
  }
  // Proves that at least two ticks ran from now on: a readiness drop and its return are
  // both announced. A tick samples the acknowledge input before it compares the flags, so
  // whatever it sent about the input has arrived by then. Needs a ready tool.
  static void f_TwoTicks() {
    f_Flag("frdyflagreset", 5);
    ASSERT_FALSE(f_Await("rdychanged", I_NOT_READY).empty());
    f_Flag("frdyflagset", 5);
    ASSERT_FALSE(f_Await("rdychanged", I_SOLL).empty());
  }
};

TEST_F(ErrorAck, ReportPublishesTheErrorAndAckByCodeRestoresReadiness) {
  // A class 0 note: published, but the tool stays ready.
  Ints o_Note = f_Raise("PeerProc", 3216);  // 402, class 0
  EXPECT_EQ(f_Answer("fsyserrorget"), o_Note);
  f_TwoTicks();
  EXPECT_EQ(f_All("rdychanged"), (std::vector<Ints>{{I_NOT_READY, I_SOLL}, {I_SOLL, I_SOLL}}))
      << "only the probe's own changes";
  EXPECT_TRUE(Box().f_BmsOut(18) && Box().f_BmsOut(17));

  // A real error withdraws readiness.
  Ints o_Fault = f_Raise("PeerProc", 3228);  // 403, class 4
  EXPECT_EQ(f_Await("rdychanged", I_ERROR_NOT_READY), (Ints{I_ERROR_NOT_READY, I_SOLL}));
  EXPECT_FALSE(Box().f_BmsOut(18) || Box().f_BmsOut(17));
  EXPECT_EQ(f_Answer("fsyserrorget"), o_Fault);

  // Repeating the code while it is active, with any class, is not news.
  f_Report("PeerProc", 3228);
  f_Report("OtherProc", 3229);
  R().f_Sync();
  EXPECT_EQ(R().f_Count("sysfault"), 2u);
  EXPECT_EQ(f_Json(), f_ErrorJson({o_Note, o_Fault}));

  // Acknowledged: the note on top is the current error again, and a note means ready.
  EXPECT_EQ(f_AckByCode(3228), (Ints{403, 3216}));
  EXPECT_EQ(f_Await("rdychanged", I_SOLL), (Ints{I_SOLL, I_SOLL}));
  EXPECT_TRUE(Box().f_BmsOut(18) && Box().f_BmsOut(17));
  EXPECT_EQ(f_Answer("fsyserrorget"), o_Note);
  EXPECT_EQ(f_Json(), f_ErrorJson({o_Note}));

  EXPECT_EQ(f_AckByCode(3216), (Ints{402, 0}));
  EXPECT_EQ(f_Answer("fsyserrorget"), (Ints{0, 0, 0}));
  EXPECT_EQ(f_Json(), R"({"errors":[]})");

  // Acknowledged once, the same code is a new error again.
  f_Raise("PeerProc", 3228);
  EXPECT_EQ(f_AckByCode(3228), (Ints{403, 0}));
}

TEST_F(ErrorAck, CollectiveAcknowledgementTakesClassesZeroAndThreeOnly) {
  Ints o_Note = f_Raise("Peer", 3216);   // 402, class 0
  Ints o_Warn = f_Raise("Peer", 3243);   // 405, class 3
  Ints o_Fault = f_Raise("Peer", 3252);  // 406, class 4
  EXPECT_EQ(f_Json(), f_ErrorJson({o_Note, o_Warn, o_Fault}));
  ASSERT_FALSE(f_Await("rdychanged", I_ERROR_NOT_READY).empty());

  C().f_Invoke("fackerrlist");
  R().f_Sync();
  // Each acknowledgement names the error that is current afterwards: the class 4 one.
  EXPECT_EQ(f_All("acksysfault"), (std::vector<Ints>{{402, 3252}, {405, 3252}}));
  EXPECT_EQ(f_Json(), f_ErrorJson({o_Fault}));
  EXPECT_FALSE(Box().f_BmsOut(18));
  EXPECT_EQ(f_Answer("fsyserrorget"), o_Fault);

  // Nothing left for it: no signal.
  C().f_Invoke("fackerrlist");
  R().f_Sync();
  EXPECT_EQ(R().f_Count("acksysfault"), 2u);

  EXPECT_EQ(f_AckByCode(3252), (Ints{406, 0}));
  EXPECT_FALSE(f_Await("rdychanged", I_SOLL).empty());
  EXPECT_TRUE(Box().f_BmsOut(18));
}

TEST_F(ErrorAck, AcknowledgeInputActsOnItsRisingEdgeOnly) {
  f_Raise("Peer", 3243);  // 405, class 3
  ASSERT_FALSE(f_Await("rdychanged", I_ERROR_NOT_READY).empty());

  ASSERT_EQ(Box().f_Sim("bms in 17 1"), 0);
  EXPECT_EQ(f_Await("acksysfault", 405), (Ints{405, 0}));
  EXPECT_FALSE(f_Await("rdychanged", I_SOLL).empty());
  EXPECT_TRUE(Box().f_BmsOut(18));

  // Held high: a new note is not taken while the ticks go on.
  Ints o_Note = f_Raise("Peer", 3216);  // 402, class 0
  f_TwoTicks();
  R().f_Sync();
  EXPECT_EQ(R().f_Count("acksysfault"), 1u);
  EXPECT_EQ(f_Json(), f_ErrorJson({o_Note}));

  // Released (and seen released), then pressed again.
  ASSERT_EQ(Box().f_Sim("bms in 17 0"), 0);
  f_TwoTicks();
  R().f_Sync();
  EXPECT_EQ(R().f_Count("acksysfault"), 1u);
  ASSERT_EQ(Box().f_Sim("bms in 17 1"), 0);
  EXPECT_EQ(f_Await("acksysfault", 402), (Ints{402, 0}));
  EXPECT_EQ(f_Json(), R"({"errors":[]})");

  ASSERT_EQ(Box().f_Sim("bms in 17 0"), 0);
  f_TwoTicks();
}

// --- the list file --------------------------------------------------------------------
// Room for two rows only, so reports soon reuse the oldest row.

class ErrorStore : public DaemonSuite<ErrorStore> {
 protected:
  static void SetUpTestSuite() {
    f_Up(R"({"flags":[{"nr":3,"state":1,"name":"SysSrv"}]})",
         R"({"DbFilePath":"/mnt/log/syserrors.sq3","MaxErrors":2})");
  }
};

TEST_F(ErrorStore, ProcessNameIsStoredVerbatimAlsoWhenTheOldestRowIsReused) {
  // The list as a diagnostics tool sees it, read straight from the file: first column of
  // the first row.
  auto f_Query = [](const char* z_c_Sql) {
    std::string str_Out;
    sqlite3* z_o_DB = nullptr;
    sqlite3_stmt* z_o_St = nullptr;
    if (sqlite3_open_v2(Box().f_Path("/mnt/log/syserrors.sq3").c_str(), &z_o_DB,
                        SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK ||
        sqlite3_busy_timeout(z_o_DB, 5000) != SQLITE_OK ||
        sqlite3_prepare_v2(z_o_DB, z_c_Sql, -1, &z_o_St, nullptr) != SQLITE_OK)
      ADD_FAILURE() << sqlite3_errmsg(z_o_DB);  // also when the table is gone
    else if (sqlite3_step(z_o_St) == SQLITE_ROW && sqlite3_column_text(z_o_St, 0) != nullptr)
      str_Out = reinterpret_cast<const char*>(sqlite3_column_text(z_o_St, 0));
    sqlite3_finalize(z_o_St);
    sqlite3_close(z_o_DB);
    return str_Out;
  };
  long long ll_LastId = 0;
  int i_Code = 500;
  // More names than rows: the later ones take the overwrite path.
  for (const char* z_c_Name : {"x'); DROP TABLE syserrors; --", "it's \"quoted\" %s%n \\",
                               "x', proc='forged', ack=1 where id>0; --", "Prüfstand ✓"}) {
    ASSERT_FALSE(f_Raise(z_c_Name, i_Code * 8 + 4).empty()) << z_c_Name;
    EXPECT_EQ(f_Query("select proc||'|'||code||'/'||class||'/'||ack from syserrors "
                      "order by id desc"),
              z_c_Name + ("|" + std::to_string(i_Code) + "/4/0"));
    long long ll_Id = std::atoll(f_Query("select max(id) from syserrors").c_str());
    EXPECT_GT(ll_Id, ll_LastId) << "ids must keep rising";
    ll_LastId = ll_Id;
    EXPECT_LE(std::atoi(f_Query("select count(*) from syserrors").c_str()), 2);
    EXPECT_EQ(f_Query("select count(*) from syserrors where proc='forged'"), "0");
    EXPECT_EQ(f_AckByCode(i_Code * 8 + 4), (Ints{i_Code, 0})) << z_c_Name;
    i_Code++;
  }
}

}  // namespace
