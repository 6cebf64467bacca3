// The error list and readiness over the bus: reports, acknowledgements (by code, collective,
// by the acknowledge input), the export, the file other tools read, and the readiness flags
// with their announcements.
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
constexpr const char* A_C_DB = "/mnt/log/syserrors.sq3";
constexpr const char* A_C_RENICE =
    "dbus-send --system --print-reply --dest=com.torvane.akku.GUIService /GUI "
    "com.torvane.akku.gui.setNice int32:-15";

std::vector<int> f_Ints(GVariant* o_V) {
  std::vector<int> o_Out;
  for (gsize i = 0; i < g_variant_n_children(o_V); i++) o_Out.push_back(f_Int(o_V, i));
  return o_Out;
}

void f_Call(BusClient& o_Client, const char* z_c_Method, GVariant* o_Params = nullptr) {
  GVariant* o_R = o_Client.f_CallOk(z_c_Method, o_Params);
  if (o_R != nullptr) g_variant_unref(o_R);
}

void f_Report(BusClient& o_Client, const char* z_c_Proc, const char* z_c_Code,
              const char* z_c_Ack = "") {
  f_Call(o_Client, "freporterror", g_variant_new("(sss)", z_c_Proc, z_c_Code, z_c_Ack));
}

std::string f_Json(BusClient& o_Client) {
  GVariant* o_R = o_Client.f_CallOk("fgetunacknsyserrors");
  if (o_R == nullptr) return "<no answer>";
  std::string str_Json = f_Str(o_R);
  g_variant_unref(o_R);
  return str_Json;
}

std::vector<int> f_Answer(BusClient& o_Client, const char* z_c_Method) {
  GVariant* o_R = o_Client.f_CallOk(z_c_Method);
  if (o_R == nullptr) return {};
  std::vector<int> o_Values = f_Ints(o_R);
  g_variant_unref(o_R);
  return o_Values;
}

// Waits for signal z_c_Name whose first argument is i_First; its arguments, empty on time-out.
std::vector<int> f_Await(SignalRecorder& o_Rec, const char* z_c_Name, int i_First,
                         int i_TimeoutMs = 5000) {
  const Signal_ST* z_o_S = o_Rec.f_WaitFor(z_c_Name, i_TimeoutMs,
                                           [i_First](GVariant* v) { return f_Int(v) == i_First; });
  return z_o_S != nullptr ? f_Ints(z_o_S->o_Args) : std::vector<int>{};
}

// Arguments of every signal named z_c_Name recorded after the first ui_From of them.
std::vector<std::vector<int>> f_Since(const SignalRecorder& o_Rec, const char* z_c_Name,
                                      size_t ui_From) {
  std::vector<std::vector<int>> o_Out;
  std::vector<const Signal_ST*> o_All = o_Rec.f_All(z_c_Name);
  for (size_t i = ui_From; i < o_All.size(); i++) o_Out.push_back(f_Ints(o_All[i]->o_Args));
  return o_Out;
}

std::string f_ErrorJson(const std::vector<std::vector<int>>& o_Errors) {
  std::string str_Json = R"({"errors":[)";
  for (size_t i = 0; i < o_Errors.size(); i++) {
    if (i > 0) str_Json += ",";
    str_Json += R"({"code":)" + std::to_string(o_Errors[i][0]) + R"(,"class":)" +
                std::to_string(o_Errors[i][1]) + R"(,"date":)" + std::to_string(o_Errors[i][2]) +
                "}";
  }
  return str_Json + "]}";
}

std::string f_DiagValue(const Sandbox& o_Box, const char* z_c_Key) {
  std::string str_V = o_Box.f_Read(std::string("/var/sysdiag/") + z_c_Key);
  while (!str_V.empty() && (str_V.back() == '\n' || str_V.back() == '\r')) str_V.pop_back();
  return str_V;
}

size_t f_CountOf(const std::string& str_Text, const std::string& str_Needle) {
  size_t ui_N = 0;
  for (size_t ui_Pos = str_Text.find(str_Needle); ui_Pos != std::string::npos;
       ui_Pos = str_Text.find(str_Needle, ui_Pos + 1))
    ui_N++;
  return ui_N;
}

// The error list as a diagnostics tool sees it: read straight from the file.
struct Row_ST {
  long long ll_Id;
  std::string str_Proc;
  int i_Code, i_Class, i_Ack;
};

std::vector<Row_ST> f_ReadRows(const std::string& str_File) {
  std::vector<Row_ST> o_Rows;
  sqlite3* z_o_DB = nullptr;
  sqlite3_stmt* z_o_Stmt = nullptr;
  // Fails (and so does the test) when the table is gone.
  if (sqlite3_open_v2(str_File.c_str(), &z_o_DB, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK ||
      sqlite3_busy_timeout(z_o_DB, 5000) != SQLITE_OK ||
      sqlite3_prepare_v2(z_o_DB, "select id, proc, code, class, ack from syserrors order by id", -1,
                         &z_o_Stmt, nullptr) != SQLITE_OK) {
    ADD_FAILURE() << str_File << ": " << sqlite3_errmsg(z_o_DB);
  } else {
    while (sqlite3_step(z_o_Stmt) == SQLITE_ROW) {
      const unsigned char* z_c_Proc = sqlite3_column_text(z_o_Stmt, 1);
      o_Rows.push_back({sqlite3_column_int64(z_o_Stmt, 0),
                        z_c_Proc != nullptr ? reinterpret_cast<const char*>(z_c_Proc) : "",
                        sqlite3_column_int(z_o_Stmt, 2), sqlite3_column_int(z_o_Stmt, 3),
                        sqlite3_column_int(z_o_Stmt, 4)});
    }
  }
  sqlite3_finalize(z_o_Stmt);
  sqlite3_close(z_o_DB);
  return o_Rows;
}

// One daemon per suite on its own bus and sandbox; the configuration files are written
// before it starts. The cases of a suite run in order and share its state.
template <class Suite_T>
class DaemonSuite : public ::testing::Test {
 protected:
  static void f_Up(const char* z_c_RdyCfg, const char* z_c_ErrCfg = nullptr) {
    z_o_Bus = new PrivateBus();
    z_o_Box = new Sandbox();
    z_o_Box->f_Write("/home/tool/config/log/rdystatus.json", z_c_RdyCfg);
    if (z_c_ErrCfg != nullptr) z_o_Box->f_Write("/home/tool/config/log/syserror.json", z_c_ErrCfg);
    z_o_Client = new BusClient(z_o_Bus->f_Address());
    z_o_Rec = new SignalRecorder(*z_o_Client);
    z_o_Daemon = new Daemon(*z_o_Box, *z_o_Bus);
    ASSERT_TRUE(z_o_Daemon->f_Start()) << z_o_Daemon->f_Log();
  }
  static void TearDownTestSuite() {
    if (z_o_Daemon != nullptr) {
      EXPECT_EQ(z_o_Daemon->f_Stop(), 0) << z_o_Daemon->f_Log();
      // In the sanitized build a finding that does not end the process only shows here.
      EXPECT_EQ(z_o_Daemon->f_Log().find("runtime error:"), std::string::npos)
          << z_o_Daemon->f_Log();
    }
    delete z_o_Daemon;
    delete z_o_Rec;
    delete z_o_Client;
    delete z_o_Box;
    delete z_o_Bus;
    z_o_Daemon = nullptr;
  }
  static BusClient& C() { return *z_o_Client; }
  static SignalRecorder& R() { return *z_o_Rec; }
  static const Sandbox& Box() { return *z_o_Box; }
  static void f_Flag(const char* z_c_Method, int i_Nr) {
    f_Call(C(), z_c_Method, g_variant_new("(i)", i_Nr));
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
  static std::vector<int> f_Raise(const char* z_c_Proc, int i_Coded) {
    time_t i_Before = time(nullptr);
    f_Report(C(), z_c_Proc, std::to_string(i_Coded).c_str());
    std::vector<int> o_Fault = f_Await(R(), "sysfault", i_Coded >> 3);
    EXPECT_EQ(o_Fault.size(), 3u) << "no sysfault for " << i_Coded;
    if (o_Fault.size() != 3) return {i_Coded >> 3, i_Coded & 7, 0};
    EXPECT_EQ(o_Fault[1], i_Coded & 7);
    EXPECT_GE(o_Fault[2], i_Before);
    EXPECT_LE(o_Fault[2], time(nullptr));
    return o_Fault;
  }
  // Acknowledges by code and returns the "acksysfault" arguments.
  static std::vector<int> f_AckByCode(int i_Coded) {
    f_Report(C(), "Peer", std::to_string(i_Coded).c_str(), "Ack");
    return f_Await(R(), "acksysfault", i_Coded >> 3);
  }

  static PrivateBus* z_o_Bus;
  static Sandbox* z_o_Box;
  static BusClient* z_o_Client;
  static SignalRecorder* z_o_Rec;
  static Daemon* z_o_Daemon;
};
template <class Suite_T>
PrivateBus* DaemonSuite<Suite_T>::z_o_Bus;
template <class Suite_T>
Sandbox* DaemonSuite<Suite_T>::z_o_Box;
template <class Suite_T>
BusClient* DaemonSuite<Suite_T>::z_o_Client;
template <class Suite_T>
SignalRecorder* DaemonSuite<Suite_T>::z_o_Rec;
template <class Suite_T>
Daemon* DaemonSuite<Suite_T>::z_o_Daemon;

// --- readiness -------------------------------------------------------------------------
// The first case needs the service's first ready moment.

class Readiness : public DaemonSuite<Readiness> {
 protected:
  static void SetUpTestSuite() { f_Up(A_C_RDY_CFG); }
  static std::vector<int> f_RdyGet() { return f_Answer(C(), "frdyget"); }
  static std::string f_Commands() { return Box().f_Read("/sim/commands.log"); }
};

TEST_F(Readiness, AnnouncedOnlyWhenEveryRequiredFlagIsSetAndReniceOnFirstReadyOnly) {
  // The start delay blocks the service's loop; once this call is answered the ticks run
  // every 250 ms, so a second is plenty for any announcement to arrive.
  GVariant* o_R = C().f_Call("fmfuget", nullptr, nullptr, 10000);
  ASSERT_NE(o_R, nullptr);
  g_variant_unref(o_R);
  EXPECT_EQ(R().f_WaitFor("rdychanged", 1000), nullptr);
  EXPECT_EQ(f_RdyGet(), (std::vector<int>{I_NOT_READY, I_SOLL}));
  EXPECT_EQ(Box().f_RdySoll(), static_cast<unsigned>(I_SOLL));
  EXPECT_FALSE(Box().f_BmsOut(17));
  EXPECT_EQ(f_Commands().find("dbus-send"), std::string::npos);

  f_Flag("frdyflagset", 5);
  EXPECT_EQ(f_Await(R(), "rdychanged", I_SOLL), (std::vector<int>{I_SOLL, I_SOLL}));
  EXPECT_EQ(R().f_Count("rdychanged"), 1u);
  EXPECT_TRUE(Box().f_BmsOut(17));
  EXPECT_EQ(f_RdyGet(), (std::vector<int>{I_SOLL, I_SOLL}));
  EXPECT_TRUE(f_WaitUntil([] { return f_Commands().find(A_C_RENICE) != std::string::npos; }, 5000))
      << f_Commands();

  f_Flag("frdyflagreset", 5);
  EXPECT_EQ(f_Await(R(), "rdychanged", I_NOT_READY), (std::vector<int>{I_NOT_READY, I_SOLL}));
  EXPECT_FALSE(Box().f_BmsOut(17));
  EXPECT_EQ(f_RdyGet(), (std::vector<int>{I_NOT_READY, I_SOLL}));

  f_Flag("frdyflagset", 5);
  EXPECT_EQ(f_Await(R(), "rdychanged", I_SOLL), (std::vector<int>{I_SOLL, I_SOLL}));
  EXPECT_TRUE(Box().f_BmsOut(17));
  R().f_Sync();  // the tick that announced it has finished
  EXPECT_EQ(R().f_Count("rdychanged"), 3u);
  EXPECT_EQ(f_CountOf(f_Commands(), "dbus-send"), 1u) << f_Commands();
}

TEST_F(Readiness, FlagsOutsideTheRequiredSetChangeNothing) {
  f_SettleReady();
  struct Case_ST {
    const char* z_c_Method;
    int i_Nr;
    bool b_Flag1;  // raw state of the listed, not required flag 1 afterwards
  };
  // Numbers beyond 0..31 must not wrap onto a real flag (35 and -29 would hit flag 3).
  const Case_ST a_o_Cases[] = {
      {"frdyflagset", 1, true},    {"frdyflagreset", 35, true}, {"frdyflagreset", -29, true},
      {"frdyflagreset", 1, false}, {"frdyflagset", 32, false},
  };
  for (const Case_ST& o_C : a_o_Cases) {
    f_Flag(o_C.z_c_Method, o_C.i_Nr);
    EXPECT_EQ(f_RdyGet(), (std::vector<int>{I_SOLL, I_SOLL})) << o_C.z_c_Method << " " << o_C.i_Nr;
    EXPECT_EQ((Box().f_RdyIst() & 2u) != 0, o_C.b_Flag1) << o_C.z_c_Method << " " << o_C.i_Nr;
  }
  // The next announcement is the drop below and nothing before it.
  f_Flag("frdyflagreset", 5);
  EXPECT_FALSE(f_Await(R(), "rdychanged", I_NOT_READY).empty());
  R().f_Sync();
  EXPECT_EQ(f_Since(R(), "rdychanged", 0), (std::vector<std::vector<int>>{{I_NOT_READY, I_SOLL}}));
}

TEST_F(Readiness, ChangesThatCancelWithinOneTickAreNotAnnounced) {
  f_SettleReady();
  struct Case_ST {
    int i_Settled;         // announced state the case starts from (the previous case ends there)
    const char* z_c_Away;  // leaves it
    const char* z_c_Back;  // returns to it
    int i_Away;
  };
  const Case_ST a_o_Cases[] = {
      {I_SOLL, "frdyflagreset", "frdyflagset", I_NOT_READY},
      {I_NOT_READY, "frdyflagset", "frdyflagreset", I_SOLL},
  };
  for (const Case_ST& o_C : a_o_Cases) {
    // Leave and return, each announced: right after the return's tick the next one is
    // about 250 ms away, time enough for two calls.
    f_Flag(o_C.z_c_Away, 5);
    ASSERT_FALSE(f_Await(R(), "rdychanged", o_C.i_Away).empty());
    f_Flag(o_C.z_c_Back, 5);
    const Signal_ST* z_o_Tick =
        R().f_WaitFor("rdychanged", 5000, [&](GVariant* v) { return f_Int(v) == o_C.i_Settled; });
    ASSERT_NE(z_o_Tick, nullptr);
    gint64 i_TickSeen = z_o_Tick->i_Time;
    size_t ui_Mark = R().f_Count("rdychanged");
    f_Flag(o_C.z_c_Away, 5);
    f_Flag(o_C.z_c_Back, 5);
    gint64 i_PairTook = g_get_monotonic_time() - i_TickSeen;

    // A real change afterwards must be the only announcement since the pair.
    f_Flag(o_C.z_c_Away, 5);
    EXPECT_FALSE(f_Await(R(), "rdychanged", o_C.i_Away).empty());
    R().f_Sync();
    if (i_PairTook > 100 * 1000) {
      GTEST_SKIP() << "too slow to be sure both calls fell between two ticks: " << i_PairTook / 1000
                   << " ms";
    }
    EXPECT_EQ(f_Since(R(), "rdychanged", ui_Mark),
              (std::vector<std::vector<int>>{{o_C.i_Away, I_SOLL}}))
        << o_C.z_c_Away << " then " << o_C.z_c_Back;
  }
}

// --- errors and acknowledgement -------------------------------------------------------
// Between the cases the tool is ready: the peer's flag is set and no error stays active.

class ErrorAck : public DaemonSuite<ErrorAck> {
 protected:
  static void SetUpTestSuite() { f_Up(A_C_RDY_CFG); }
  void SetUp() override {
    ASSERT_EQ(f_Json(C()), R"({"errors":[]})") << "an earlier case left an active error";
    f_SettleReady();
  }
  // Proves that at least two ticks ran from now on: a readiness drop and its return are
  // both announced. A tick samples the acknowledge input before it compares the flags, so
  // whatever it sent about the input has arrived by then. Needs a ready tool.
  static void f_TwoTicks() {
    f_Flag("frdyflagreset", 5);
    ASSERT_FALSE(f_Await(R(), "rdychanged", I_NOT_READY).empty());
    f_Flag("frdyflagset", 5);
    ASSERT_FALSE(f_Await(R(), "rdychanged", I_SOLL).empty());
  }
};

TEST_F(ErrorAck, ReportPublishesTheErrorAndAckByCodeRestoresReadiness) {
  // A class 0 note: published, but the tool stays ready.
  std::vector<int> o_Note = f_Raise("PeerProc", 3216);  // 402, class 0
  EXPECT_EQ(f_DiagValue(Box(), "sysfault"), "3216");
  EXPECT_EQ(Box().f_CurError(), 3216);
  EXPECT_EQ(f_Answer(C(), "fsyserrorget"), o_Note);
  f_TwoTicks();
  EXPECT_EQ(f_Since(R(), "rdychanged", 0),
            (std::vector<std::vector<int>>{{I_NOT_READY, I_SOLL}, {I_SOLL, I_SOLL}}))
      << "only the probe's own changes";
  EXPECT_TRUE(Box().f_BmsOut(18));
  EXPECT_TRUE(Box().f_BmsOut(17));

  // A real error withdraws readiness.
  std::vector<int> o_Fault = f_Raise("PeerProc", 3228);  // 403, class 4
  EXPECT_EQ(f_Await(R(), "rdychanged", I_ERROR_NOT_READY),
            (std::vector<int>{I_ERROR_NOT_READY, I_SOLL}));
  EXPECT_FALSE(Box().f_BmsOut(18));
  EXPECT_FALSE(Box().f_BmsOut(17));
  EXPECT_EQ(f_DiagValue(Box(), "sysfault"), "3228");
  EXPECT_EQ(Box().f_CurError(), 3228);
  EXPECT_EQ(f_Answer(C(), "fsyserrorget"), o_Fault);

  // Repeating the code while it is active, with any class, is not news.
  f_Report(C(), "PeerProc", "3228");
  f_Report(C(), "OtherProc", "3229");
  R().f_Sync();
  EXPECT_EQ(R().f_Count("sysfault"), 2u);
  EXPECT_EQ(f_Json(C()), f_ErrorJson({o_Note, o_Fault}));

  // Acknowledged: the note on top is the current error again, and a note means ready.
  EXPECT_EQ(f_AckByCode(3228), (std::vector<int>{403, 3216}));
  EXPECT_EQ(f_Await(R(), "rdychanged", I_SOLL), (std::vector<int>{I_SOLL, I_SOLL}));
  EXPECT_TRUE(Box().f_BmsOut(18));
  EXPECT_TRUE(Box().f_BmsOut(17));
  EXPECT_EQ(f_Answer(C(), "fsyserrorget"), o_Note);
  EXPECT_EQ(f_DiagValue(Box(), "sysfault"), "3216");
  EXPECT_EQ(Box().f_CurError(), 0);
  EXPECT_EQ(f_Json(C()), f_ErrorJson({o_Note}));

  EXPECT_EQ(f_AckByCode(3216), (std::vector<int>{402, 0}));
  EXPECT_EQ(f_Answer(C(), "fsyserrorget"), (std::vector<int>{0, 0, 0}));
  EXPECT_EQ(f_DiagValue(Box(), "sysfault"), "0");
  EXPECT_EQ(f_Json(C()), R"({"errors":[]})");

  // Acknowledged once, the same code is a new error again.
  f_Raise("PeerProc", 3228);
  EXPECT_EQ(f_AckByCode(3228), (std::vector<int>{403, 0}));
}

TEST_F(ErrorAck, OnlyTheExactWordAcknowledges) {
  int i_Coded = 3236;  // 404, class 4; one code per word
  for (const char* z_c_Word : {"ack", "Ack ", " Ack", "ACK", "Acknowledge"}) {
    size_t ui_AckMark = R().f_Count("acksysfault");
    f_Report(C(), "Peer", std::to_string(i_Coded).c_str(), z_c_Word);
    EXPECT_FALSE(f_Await(R(), "sysfault", i_Coded >> 3).empty())
        << "'" << z_c_Word << "' did not store the error";
    R().f_Sync();
    EXPECT_EQ(R().f_Count("acksysfault"), ui_AckMark) << z_c_Word;
    EXPECT_EQ(f_AckByCode(i_Coded), (std::vector<int>{i_Coded >> 3, 0})) << z_c_Word;
    i_Coded += 8;
  }
}

TEST_F(ErrorAck, CollectiveAcknowledgementTakesClassesZeroAndThreeOnly) {
  std::vector<int> o_Note = f_Raise("Peer", 3216);   // 402, class 0
  std::vector<int> o_Warn = f_Raise("Peer", 3243);   // 405, class 3
  std::vector<int> o_Fault = f_Raise("Peer", 3252);  // 406, class 4
  EXPECT_EQ(f_Json(C()), f_ErrorJson({o_Note, o_Warn, o_Fault}));
  ASSERT_FALSE(f_Await(R(), "rdychanged", I_ERROR_NOT_READY).empty());

  f_Call(C(), "fackerrlist");
  R().f_Sync();
  // Each acknowledgement names the error that is current afterwards: the class 4 one.
  EXPECT_EQ(f_Since(R(), "acksysfault", 0),
            (std::vector<std::vector<int>>{{402, 3252}, {405, 3252}}));
  EXPECT_EQ(f_Json(C()), f_ErrorJson({o_Fault}));
  EXPECT_FALSE(Box().f_BmsOut(18));
  EXPECT_EQ(f_Answer(C(), "fsyserrorget"), o_Fault);

  // Nothing left for it: no signal.
  f_Call(C(), "fackerrlist");
  R().f_Sync();
  EXPECT_EQ(R().f_Count("acksysfault"), 2u);

  EXPECT_EQ(f_AckByCode(3252), (std::vector<int>{406, 0}));
  EXPECT_FALSE(f_Await(R(), "rdychanged", I_SOLL).empty());
  EXPECT_TRUE(Box().f_BmsOut(18));
}

TEST_F(ErrorAck, AcknowledgeInputActsOnItsRisingEdgeOnly) {
  f_Raise("Peer", 3243);  // 405, class 3
  ASSERT_FALSE(f_Await(R(), "rdychanged", I_ERROR_NOT_READY).empty());

  ASSERT_EQ(Box().f_Sim("bms in 17 1"), 0);
  EXPECT_EQ(f_Await(R(), "acksysfault", 405), (std::vector<int>{405, 0}));
  EXPECT_FALSE(f_Await(R(), "rdychanged", I_SOLL).empty());
  EXPECT_TRUE(Box().f_BmsOut(18));

  // Held high: a new note is not taken while the ticks go on.
  std::vector<int> o_Note = f_Raise("Peer", 3216);  // 402, class 0
  f_TwoTicks();
  R().f_Sync();
  EXPECT_EQ(R().f_Count("acksysfault"), 1u);
  EXPECT_EQ(f_Json(C()), f_ErrorJson({o_Note}));

  // Released (and seen released), then pressed again.
  ASSERT_EQ(Box().f_Sim("bms in 17 0"), 0);
  f_TwoTicks();
  R().f_Sync();
  EXPECT_EQ(R().f_Count("acksysfault"), 1u);
  ASSERT_EQ(Box().f_Sim("bms in 17 1"), 0);
  EXPECT_EQ(f_Await(R(), "acksysfault", 402), (std::vector<int>{402, 0}));
  EXPECT_EQ(f_Json(C()), R"({"errors":[]})");

  ASSERT_EQ(Box().f_Sim("bms in 17 0"), 0);
  f_TwoTicks();
}

// --- the list file --------------------------------------------------------------------
// Room for two rows only, so reports soon reuse the oldest row. The last case leaves a
// class 1 error active, which only a restart clears.

class ErrorStore : public DaemonSuite<ErrorStore> {
 protected:
  static void SetUpTestSuite() {
    f_Up(R"({"flags":[{"nr":3,"state":1,"name":"SysSrv"}]})",
         R"({"DbFilePath":"/mnt/log/syserrors.sq3","MaxErrors":2})");
  }
  void SetUp() override {
    R().f_Sync();
    R().f_Clear();
  }
  static std::vector<Row_ST> f_Rows() { return f_ReadRows(Box().f_Path(A_C_DB)); }
};

TEST_F(ErrorStore, ProcessNameIsStoredVerbatimAlsoWhenTheOldestRowIsReused) {
  long long ll_LastId = 0;
  int i_Code = 500;
  // More names than rows: the later ones take the overwrite path.
  for (const char* z_c_Name : {"x'); DROP TABLE syserrors; --", "it's \"quoted\" %s%n \\",
                               "x', proc='forged', ack=1 where id>0; --", "Prüfstand ✓"}) {
    ASSERT_FALSE(f_Raise(z_c_Name, i_Code * 8 + 4).empty()) << z_c_Name;
    std::vector<Row_ST> o_Rows = f_Rows();
    ASSERT_FALSE(o_Rows.empty()) << z_c_Name;
    EXPECT_LE(o_Rows.size(), 2u);
    const Row_ST& o_New = o_Rows.back();
    EXPECT_EQ(o_New.str_Proc, z_c_Name);
    EXPECT_EQ(o_New.i_Code, i_Code);
    EXPECT_EQ(o_New.i_Class, 4);
    EXPECT_EQ(o_New.i_Ack, 0);
    EXPECT_GT(o_New.ll_Id, ll_LastId) << "ids must keep rising";
    ll_LastId = o_New.ll_Id;
    for (const Row_ST& o_Row : o_Rows) EXPECT_NE(o_Row.str_Proc, "forged");
    EXPECT_EQ(f_AckByCode(i_Code * 8 + 4), (std::vector<int>{i_Code, 0})) << z_c_Name;
    i_Code++;
  }
}

TEST_F(ErrorStore, DeletingWithoutActiveErrorEmptiesTheList) {
  f_Raise("Filler", 4100);  // 512, class 4
  ASSERT_EQ(f_AckByCode(4100), (std::vector<int>{512, 0}));
  ASSERT_FALSE(f_Rows().empty());

  f_Call(C(), "fdelerrlist");
  EXPECT_TRUE(f_Rows().empty());
  // The fresh list takes new errors.
  f_Raise("AfterDelete", 4100);
  std::vector<Row_ST> o_Rows = f_Rows();
  ASSERT_EQ(o_Rows.size(), 1u);
  EXPECT_EQ(o_Rows[0].str_Proc, "AfterDelete");
  EXPECT_EQ(f_AckByCode(4100), (std::vector<int>{512, 0}));
}

TEST_F(ErrorStore, ClassOneStaysActiveAndSurvivesDeletion) {
  std::vector<int> o_Guard = f_Raise("Guard", 4009);  // 501, class 1
  EXPECT_FALSE(Box().f_BmsOut(18));

  // By its own coded number, by its code with another class, collectively: none takes it.
  f_Report(C(), "Peer", "4009", "Ack");
  f_Report(C(), "Peer", "4012", "Ack");
  f_Call(C(), "fackerrlist");
  R().f_Sync();
  EXPECT_EQ(R().f_Count("acksysfault"), 0u);
  EXPECT_EQ(f_Json(C()), f_ErrorJson({o_Guard}));
  EXPECT_FALSE(Box().f_BmsOut(18));

  // Another error comes and goes; the class 1 error stays the current one.
  f_Raise("Filler", 4020);  // 502, class 4
  EXPECT_EQ(f_AckByCode(4020), (std::vector<int>{502, 4009}));
  EXPECT_EQ(f_Answer(C(), "fsyserrorget"), o_Guard);

  // With an error active only what was acknowledged goes.
  f_Call(C(), "fdelerrlist");
  std::vector<Row_ST> o_Rows = f_Rows();
  ASSERT_EQ(o_Rows.size(), 1u);
  EXPECT_EQ(o_Rows[0].str_Proc, "Guard");
  EXPECT_EQ(std::vector<int>({o_Rows[0].i_Code, o_Rows[0].i_Class, o_Rows[0].i_Ack}),
            (std::vector<int>{501, 1, 0}));
  EXPECT_EQ(f_Json(C()), f_ErrorJson({o_Guard}));
}

// --- an unusable readiness file -------------------------------------------------------

class BadFlagsFile : public DaemonSuite<BadFlagsFile> {};

TEST_F(BadFlagsFile, ServiceStillAnswersWithoutReadiness) {
  f_Up(R"({"flags":{"nr":3,"state":1,"name":"SysSrv"}})");
  EXPECT_TRUE(C().f_CallFails("frdyget"));
  f_Report(C(), "Peer", "3228");
  EXPECT_EQ(f_Answer(C(), "fsyserrorget"), (std::vector<int>{0, 0, 0}));
  EXPECT_NE(z_o_Daemon->f_Log().find("'flags' type:"), std::string::npos) << z_o_Daemon->f_Log();
  // TearDownTestSuite expects exit status 0 on SIGTERM.
}

}  // namespace
