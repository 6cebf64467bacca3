// The error store on a temporary database and the readiness flags it keeps.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <semaphore.h>
#include <sqlite3.h>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "BusInterface.h"
#include "ErrorHandler.h"
#include "SystemSrv.h"
#include "TestSupport.h"
#include "sysLib/Bms.h"
#include "sysLib/Holders.h"
#include "sysLib/SysExcpt.h"

namespace {
constexpr const char* A_C_DB = "/mnt/log/syserrors.sq3";
// All rows in id order as "id:code/class:ack".
constexpr const char* A_C_ROWS =
    "select group_concat(r, ' ') from (select id||':'||code||'/'||class||':'||ack as r from "
    "syserrors order by id)";
using Texts = std::vector<std::string>;

// Records the arguments of each broadcast, by signal, instead of sending it.
class RecordingHandler_CL : public ErrorHandler_CL {
 public:
  using ErrorHandler_CL::ErrorHandler_CL;
  Texts f_Sent(const std::string& str_Name) { return o_Sent[str_Name]; }
  std::map<std::string, Texts> o_Sent;

 protected:
  void f_Signal(const char* z_c_Name, GVariant* o_Params) override {
    Variant_T o_Tuple(g_variant_ref_sink(o_Params));
    o_Sent[z_c_Name].push_back(GChars_T(g_variant_print(o_Tuple.get(), FALSE)).get());
  }
};

class ErrorStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sem_init(&o_Obj.o_SignalEmitSemId, 0, 1);
    f_Flags(R"({"flags":[{"nr":3,"state":1,"name":"SysSrv"}]})");
    f_Cfg(A_C_DB, 512);
    std::filesystem::create_directories(o_Root.f_Path("/mnt/log"));
    // A dbus-send that only notes its arguments, first on PATH in the sandbox.
    o_Root.f_Write("/bin/dbus-send",
                   "#!/bin/sh\necho \"$*\" >> '" + o_Root.f_Path("/bin/dbus-send.log") + "'\n");
    chmod(o_Root.f_Path("/bin/dbus-send").c_str(), 0755);
    o_Bms = std::make_unique<Bms_CL>();
  }
  void TearDown() override {
    z_o_ErrorHandler = nullptr;
    sem_destroy(&o_Obj.o_SignalEmitSemId);
  }
  void f_Cfg(const std::string& str_Db, int i_Max) {
    o_Root.f_Write(
        ErrorHandler_CL::A_C_CFG_PATH,
        "{\"DbFilePath\":\"" + str_Db + "\",\"MaxErrors\":" + std::to_string(i_Max) + "}");
  }
  void f_Flags(const std::string& str_Flags) {
    o_Root.f_Write(RdyStatus_CL::A_C_RDY_STATUS_SOLL_PATH, str_Flags);
  }
  std::unique_ptr<RecordingHandler_CL> f_Make() {
    return std::make_unique<RecordingHandler_CL>(&o_Obj, 0, o_Bms.get());
  }
  // First column of the first row, read through a connection of its own.
  std::string f_Query(const char* z_c_Sql) const {
    std::string str_Out;
    sqlite3* z_o_Db = nullptr;
    sqlite3_stmt* z_o_St = nullptr;
    if (sqlite3_open(o_Root.f_Path(A_C_DB).c_str(), &z_o_Db) == SQLITE_OK &&
        sqlite3_prepare_v2(z_o_Db, z_c_Sql, -1, &z_o_St, nullptr) == SQLITE_OK &&
        sqlite3_step(z_o_St) == SQLITE_ROW && sqlite3_column_text(z_o_St, 0) != nullptr)
      str_Out = reinterpret_cast<const char*>(sqlite3_column_text(z_o_St, 0));
    sqlite3_finalize(z_o_St);
    sqlite3_close(z_o_Db);
    return str_Out;
  }
  std::string f_Current(ErrorHandler_CL& o_H) const {
    int i_Code = 0, i_Class = 0, i_Date = 0, i_Shm = 0;
    o_H.f_SysErrorGet(&i_Code, &i_Class, &i_Date);
    o_H.f_SysErrorGet(&i_Shm);
    return std::to_string(i_Code) + "/" + std::to_string(i_Class) + " shm " +
           std::to_string(i_Shm) + " diag " + o_Root.f_Read("/var/sysdiag/sysfault") +
           (o_H.f_IsRdyFlagSet(3) ? " flag3" : "") + (o_Bms->f_GetOut(18) ? " out18" : "");
  }
  // (reported RdyIst, RdySoll) as "frdyget" answers them.
  std::string f_RdyGet() {
    int i_Ist = 0, i_Soll = 0;
    if (!::f_RdyGet(&o_Obj, &i_Ist, &i_Soll, nullptr)) return "error";
    return std::to_string(i_Ist) + " " + std::to_string(i_Soll);
  }

  TempRoot o_Root;
  SysObj o_Obj{};
  std::unique_ptr<Bms_CL> o_Bms;
};

TEST_F(ErrorStoreTest, RingOverwriteKeepsIdsRisingAcrossRestartAndVanishedRows) {
  f_Cfg(A_C_DB, 3);
  auto o_H = f_Make();
  for (const char* z_c_Code : {"3216", "3233", "3252", "3268"}) o_H->f_Insert("Gui", z_c_Code);
  EXPECT_EQ("2:404/1:0 3:406/4:0 4:408/4:0", f_Query(A_C_ROWS));
  o_H.reset();
  o_H = f_Make();  // the restart acknowledges every class
  EXPECT_EQ("2:404/1:1 3:406/4:1 4:408/4:1", f_Query(A_C_ROWS));
  EXPECT_EQ("0/0 shm 0 diag 0 flag3 out18", f_Current(*o_H));
  o_H->f_Insert("Gui", "3233");
  EXPECT_EQ("3:406/4:1 4:408/4:1 5:404/1:0", f_Query(A_C_ROWS));
  // Rows taken by another process: the oldest left is reused, an empty table inserted into.
  f_Query("delete from syserrors where id=3");
  o_H->f_Insert("Gui", "3216");
  EXPECT_EQ("5:404/1:0 6:402/0:0", f_Query(A_C_ROWS));
  f_Query("delete from syserrors");
  o_H->f_Insert("Gui", "3268");
  EXPECT_EQ("1:408/4:0", f_Query(A_C_ROWS));
  EXPECT_EQ(3u, o_H->f_Sent("sysfault").size());
}

// Kept statements belong to one open database: after a reload reports go to the new file.
TEST_F(ErrorStoreTest, ReportsFollowTheDatabaseAcrossAReload) {
  auto o_H = f_Make();
  o_H->f_Insert("Gui", "3216");
  f_Cfg("/mnt/log/other.sq3", 512);
  o_H->f_CfgFileChanged(ErrorHandler_CL::A_C_CFG_PATH);
  o_H->f_Insert("Gui", "3216");
  o_H->f_Ack(402);
  f_Cfg(A_C_DB, 512);
  o_H->f_CfgFileChanged(ErrorHandler_CL::A_C_CFG_PATH);
  // Back on the first file, whose open acknowledged its row.
  EXPECT_EQ("1:402/0:1", f_Query(A_C_ROWS));
  o_H->f_Insert("Gui", "3233");
  EXPECT_EQ("1:402/0:1 2:404/1:0", f_Query(A_C_ROWS));
  EXPECT_EQ(1u, o_H->f_Sent("acksysfault").size());  // found the row it stored on the other
}

// Code texts follow atoi.
TEST_F(ErrorStoreTest, InsertPublishesTheErrorAndOnlyClass0KeepsReadiness) {
  const std::pair<const char*, const char*> a_o_Cases[] = {
      {"3216", "402/0 shm 3216 diag 3216 flag3 out18"},
      {"3233", "404/1 shm 3233 diag 3233"},
      {"3252xyz", "406/4 shm 3252 diag 3252"}};
  auto o_H = f_Make();
  for (const auto& [z_c_Code, z_c_Expected] : a_o_Cases) {
    o_H->f_SetRdyFlag(3);
    o_Bms->f_Out(18, true);
    EXPECT_EQ(0, o_H->f_Insert("Gui", z_c_Code));
    EXPECT_EQ(z_c_Expected, f_Current(*o_H)) << z_c_Code;
  }
}

TEST_F(ErrorStoreTest, AcknowledgementAndTheRecomputedCurrentError) {
  auto o_H = f_Make();
  for (const char* z_c_Code : {"3233", "3252", "3216"}) o_H->f_Insert("Gui", z_c_Code);
  // No active row only recomputes: the newest active error is a note, so the tool is ready.
  EXPECT_EQ(0, o_H->f_Ack(999));
  EXPECT_EQ("402/0 shm 0 diag 3216 flag3 out18", f_Current(*o_H));
  EXPECT_EQ(-1, o_H->f_Ack("3233"));  // class 1 is never acknowledged by code
  EXPECT_EQ(0, o_H->f_Ack("3232"));   // nor through the same code with class bits 0
  EXPECT_EQ(0, o_H->f_AckError(3216));
  EXPECT_EQ(0, o_H->f_AckError(3252));
  EXPECT_EQ((Texts{"(402, 3252)", "(406, 3233)"}), o_H->f_Sent("acksysfault"));
  EXPECT_EQ("1:404/1:0 2:406/4:1 3:402/0:1", f_Query(A_C_ROWS));
}

TEST_F(ErrorStoreTest, BusMethodsReportAcknowledgeExportAndClear) {
  auto o_H = f_Make();
  z_o_ErrorHandler = o_H.get();
  // Only the exact word "Ack" acknowledges; everything else is a report.
  // clang-format off
  const std::pair<const char*, const char*> a_o_Reports[] = {
      {"3216", "Ack "}, {"3203", " Ack"}, {"3228", "ack"}, {"3233", "ACK"}, {"3252", "Acknowledge"}};
  // clang-format on
  for (const auto& [z_c_Code, z_c_Word] : a_o_Reports)
    EXPECT_TRUE(f_ReportError(&o_Obj, "Gui", z_c_Code, z_c_Word, nullptr)) << z_c_Word;
  EXPECT_EQ(5u, o_H->f_Sent("sysfault").size());
  EXPECT_TRUE(f_ReportError(&o_Obj, "Gui", "3252", "Ack", nullptr));
  // The collective acknowledgement takes classes 0 and 3 only.
  EXPECT_TRUE(f_AckErrList(&o_Obj, nullptr));
  EXPECT_EQ((Texts{"(406, 3233)", "(402, 3233)", "(400, 3233)"}), o_H->f_Sent("acksysfault"));

  // Clearing keeps active errors; with none left the file starts over (the marker tells).
  f_Query("create table marker(x)");
  EXPECT_TRUE(f_DelErrList(&o_Obj, nullptr));
  EXPECT_EQ("3:403/4:0 4:404/1:0", f_Query(A_C_ROWS));
  EXPECT_EQ("1", f_Query("select count(*) from sqlite_master where name='marker'"));
  o_H->f_Ack(403);
  o_H.reset();
  o_H = f_Make();  // only a restart takes the class 1 error
  z_o_ErrorHandler = o_H.get();
  EXPECT_TRUE(f_DelErrList(&o_Obj, nullptr));
  EXPECT_EQ("0", f_Query("select count(*) from sqlite_master where name='marker'"));
  o_H->f_Insert("Gui", "3268");
  EXPECT_EQ("1:408/4:0", f_Query(A_C_ROWS));
}

// A path that is not absolute or lies among other files falls back to the default.
TEST_F(ErrorStoreTest, ConfigurationDefaultsAndReload) {
  auto o_H = f_Make();
  const std::pair<const char*, const char*> a_o_Cases[] = {
      {R"({"DbFilePath":"/mnt/log/other.sq3","MaxErrors":7})", "/mnt/log/other.sq3 7"},
      {"{not json", "/mnt/log/syserrors.sq3 512"},
      {R"({"DbFilePath":5,"MaxErrors":"9"})", "/mnt/log/syserrors.sq3 512"},
      {R"({"DbFilePath":"rel.sq3","MaxErrors":20})", "/mnt/log/syserrors.sq3 20"},
      {R"({"DbFilePath":"/home/tool/config/ChanCfg.json"})", "/mnt/log/syserrors.sq3 512"},
      {R"({"DbFilePath":"/errors.sq3"})", "/mnt/log/syserrors.sq3 512"},
  };
  for (const auto& [z_c_Cfg, z_c_Expected] : a_o_Cases) {
    o_Root.f_Write(ErrorHandler_CL::A_C_CFG_PATH, z_c_Cfg);
    o_H->f_CfgFileChanged(ErrorHandler_CL::A_C_CFG_PATH);
    EXPECT_EQ(z_c_Expected, o_H->f_GetDBPath() + " " + std::to_string(o_H->f_GetMaxErrors()));
  }
  // The start reads the file the same way.
  f_Cfg("/sys/x.sq3", 512);
  EXPECT_EQ(A_C_DB, f_Make()->f_GetDBPath());
}

// What a power cut, a worn flash or a careless technician leaves where the list should be.
TEST_F(ErrorStoreTest, UnusableDatabaseIsMovedAsideAndTheStoreGoesOn) {
  const std::tuple<const char*, std::string, bool> a_o_Cases[] = {
      {"/mnt/log/garbage.sq3", std::string(4096, 'x'), true},
      {"/mnt/log/empty-dir.sq3", "", true},  // a directory
      // Somebody else's file is never moved: the list goes to memory instead.
      {"/mnt/log/notes.txt", "keep me", false}};
  // Found so by a reload; the start takes the same way, through the daemon in its fault tests.
  auto o_H = f_Make();
  for (const auto& [z_c_Db, str_Content, b_MovedAside] : a_o_Cases) {
    SCOPED_TRACE(z_c_Db);
    if (!str_Content.empty())
      o_Root.f_Write(z_c_Db, str_Content);
    else
      std::filesystem::create_directories(o_Root.f_Path(z_c_Db));
    f_Cfg(z_c_Db, 512);
    o_H->f_CfgFileChanged(ErrorHandler_CL::A_C_CFG_PATH);
    o_H->o_Sent.clear();
    EXPECT_EQ(0, o_H->f_Insert("Gui", "3228"));
    EXPECT_EQ(1u, o_H->f_Sent("sysfault").size());  // stored, not queued
    const std::string str_Aside = o_Root.f_Path(z_c_Db) + ".corrupt-";
    EXPECT_EQ(
        b_MovedAside,
        std::any_of(std::filesystem::directory_iterator(o_Root.f_Path("/mnt/log")), {},
                    [&](const auto& o_E) { return o_E.path().string().rfind(str_Aside, 0) == 0; }));
  }
  EXPECT_EQ("keep me", o_Root.f_Read("/mnt/log/notes.txt"));
}

// The board's long is 32 bits: codes read as 64 bits, names cut at 1024 bytes before a char.
TEST_F(ErrorStoreTest, ReportTextsReadTheSameOnEveryTarget) {
  auto o_H = f_Make();
  std::string str_Euros;
  for (int i = 0; i < 400; ++i) str_Euros += "\xe2\x82\xac";
  const std::tuple<std::string, const char*, const char*> a_o_Cases[] = {
      {"Gui", "4294967297", "0/1 3"},
      {"Gui", "-9", "-2/7 3"},
      {std::string(2000, 'p'), "3228", "403/4 1024"},
      {str_Euros, "3216", "402/0 1023"}};
  for (const auto& [str_Proc, z_c_Code, z_c_Row] : a_o_Cases) {
    o_H->f_Insert(str_Proc.c_str(), z_c_Code);
    EXPECT_EQ(z_c_Row, f_Query("select code||'/'||class||' '||length(cast(proc as blob)) from "
                               "syserrors order by id desc limit 1"))
        << z_c_Code;
  }
}

// The first report waits out the busy time-out (a short hold is over by then), the rest queue.
TEST_F(ErrorStoreTest, ReportsDuringALongHoldWaitAndAreStoredInOrder) {
  auto o_H = f_Make();
  sqlite3* z_o_Other = nullptr;
  sqlite3_open(o_Root.f_Path(A_C_DB).c_str(), &z_o_Other);
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(z_o_Other, "BEGIN EXCLUSIVE;", nullptr, nullptr, nullptr));
  auto o_Start = std::chrono::steady_clock::now();
  o_H->f_Insert("Gui", "3228");
  EXPECT_GE(std::chrono::steady_clock::now() - o_Start, std::chrono::seconds(9));
  o_Start = std::chrono::steady_clock::now();
  o_H->f_Insert("Gui", "3228");
  EXPECT_EQ(1u, o_H->f_PendingCount());  // a repeated code once
  for (int i = 0; i < 70; ++i) o_H->f_Insert("Tool", std::to_string((500 + i) * 8 + 2).c_str());
  EXPECT_LT(std::chrono::steady_clock::now() - o_Start, std::chrono::seconds(5));
  EXPECT_EQ("569/2 shm 4554 diag 4554", f_Current(*o_H));  // shown as it comes
  // Bounded: the oldest go first.
  EXPECT_EQ(ErrorHandler_CL::UI_MAX_PENDING, o_H->f_PendingCount());

  sqlite3_exec(z_o_Other, "COMMIT;", nullptr, nullptr, nullptr);
  sqlite3_close(z_o_Other);
  o_H->f_RetryPending();
  EXPECT_EQ(0u, o_H->f_PendingCount());
  EXPECT_EQ("64 506 569",
            f_Query("select count(*)||' '||min(code)||' '||max(code) from syserrors"));
  Texts o_Sent = o_H->f_Sent("sysfault");
  ASSERT_EQ(64u, o_Sent.size());
  EXPECT_EQ(0u, o_Sent.front().find("(506, 2, "));
  EXPECT_EQ(0u, o_Sent.back().find("(569, 2, "));
}

// --- readiness ---------------------------------------------------------------------------

TEST_F(ErrorStoreTest, ReadingTheRequiredFlags) {
  // A nameless entry requires, numbers outside 0..31 require nothing, entries without a
  // number for "nr" or "state" are skipped ("state" 0 is the next test's).
  const std::tuple<const char*, uint32_t, size_t> a_o_Cases[] = {
      {R"({"flags":[{"nr":6,"state":2}]})", 0x40u, 0},
      {R"({"flags":[{"nr":40,"state":1,"name":"A"},{"nr":-1,"state":1,"name":"B"},)"
       R"({"nr":31,"state":1,"name":"C"}]})",
       0x80000000u, 3},
      {R"({"flags":[{"state":1,"name":"A"},{"nr":2,"name":"B"},7,{"nr":"4","state":1}]})", 0x0u,
       0}};
  for (const auto& [z_c_Text, ui_Soll, ui_Listed] : a_o_Cases) {
    f_Flags(z_c_Text);
    RdyStatus_CL o_Rdy;
    EXPECT_EQ(ui_Soll, o_Rdy.f_GetRdySoll()) << z_c_Text;
    EXPECT_EQ(ui_Listed, o_Rdy.f_GetRdySollStatusList().size()) << z_c_Text;
  }
  // A file that cannot be used stops the error handler.
  for (const char* z_c_Text : {R"({"flags":{"nr":3,"state":1}})", "{\"flags\":["}) {
    f_Flags(z_c_Text);
    try {
      f_Make();
      ADD_FAILURE() << z_c_Text;
    } catch (SysExcpt_CL* z_o_Excpt) {
      EXPECT_EQ("4 RdyStatus_CL::f_ReadRdySoll",
                std::to_string(z_o_Excpt->f_GetCode()) + " " + z_o_Excpt->f_GetText());
      delete z_o_Excpt;
    }
  }
}

TEST_F(ErrorStoreTest, OnlyRequiredFlagsCount) {
  f_Flags(R"({"flags":[{"nr":3,"state":1,"name":"S"},{"nr":5,"state":0,"name":"G"}]})");
  auto o_H = f_Make();
  z_o_ErrorHandler = o_H.get();
  EXPECT_EQ("8 8", f_RdyGet());  // the open database set flag 3
  f_BusRdyFlagSet(5);
  EXPECT_EQ("8 8", f_RdyGet());
  EXPECT_FALSE(o_H->f_SetRdyFlag(3));  // RdyIst 0x28 is not exactly RdySoll
  f_BusRdyFlagReset(5);
  EXPECT_TRUE(o_H->f_IsRdyFlagSet(5) && o_H->f_IsRdyFlagSet(40));
  EXPECT_TRUE(o_H->f_SetRdyFlag(3));
  // Numbers beyond 0..31 must not wrap onto a real flag (35 and -29 would hit flag 3).
  for (int i_Nr : {-1, 32, 35, -29}) f_RdyFlagReset(&o_Obj, i_Nr, nullptr);
  EXPECT_TRUE(o_H->f_IsRdyFlagSet(3));
  f_RdyFlagReset(&o_Obj, 3, nullptr);
  EXPECT_EQ("0 8", f_RdyGet());
}

TEST_F(ErrorStoreTest, ReadyOutputAndSignalOnlyOnChangeAndReniceOnce) {
  f_Flags(R"({"flags":[{"nr":3,"state":1,"name":"S"},{"nr":6,"state":1,"name":"B"}]})");
  auto o_H = f_Make();
  // {flags set, flags reset before the tick, output 17 before and after it, signal or ""}
  const std::tuple<std::vector<int>, std::vector<int>, bool, bool, const char*> a_o_Steps[] = {
      {{}, {}, true, true, ""},  // not ready at start: nothing announced, output 17 left alone
      {{6}, {}, false, true, "(72, 72)"},
      {{}, {}, false, false, ""},  // still ready: the output is not rewritten
      {{6}, {6}, true, true, ""},  // a drop undone within one period is no change
      {{}, {6}, true, false, "(8, 72)"},
      {{6}, {}, false, true, "(72, 72)"}};
  for (const auto& o_Step : a_o_Steps) {
    SCOPED_TRACE(&o_Step - a_o_Steps);
    const auto& [o_Set, o_Reset, b_Out17, b_Out17After, z_c_Signal] = o_Step;
    for (int i_Nr : o_Reset) o_H->f_ResetRdyFlag(i_Nr);
    for (int i_Nr : o_Set) o_H->f_SetRdyFlag(i_Nr);
    o_Bms->f_Out(17, b_Out17);
    o_H->o_Sent.clear();
    o_H->f_RdyChecker(nullptr);
    EXPECT_EQ(b_Out17After, o_Bms->f_GetOut(17));
    EXPECT_EQ(Texts(*z_c_Signal != 0, z_c_Signal), o_H->f_Sent("rdychanged"));
  }
  // Ready twice, but the user interface is reniced only at the first ready moment.
  EXPECT_EQ(
      "--system --print-reply --dest=com.torvane.akku.GUIService /GUI "
      "com.torvane.akku.gui.setNice int32:-15\n",
      o_Root.f_Read("/bin/dbus-send.log"));
}

TEST_F(ErrorStoreTest, UnmappedErrorSegmentIsReportedNotDereferenced) {
  // A directory where the segment should be: it can be neither opened nor mapped.
  std::filesystem::create_directories(o_Root.f_Path("/dev/shm/ErrorShMem"));
  auto o_H = f_Make();
  z_o_ErrorHandler = o_H.get();
  int i_Err = 0;
  EXPECT_EQ("error", f_RdyGet());
  EXPECT_EQ(-1, o_H->f_SysErrorGet(&i_Err));
  EXPECT_FALSE(o_H->f_SetRdyFlag(3) || o_H->f_IsRdyFlagSet(3) || o_H->f_IsSmod());
  o_H->f_RdyChecker();
  EXPECT_TRUE(o_H->f_Sent("rdychanged").empty());
  EXPECT_EQ(0, o_H->f_Insert("Gui", "3228"));  // the store itself still works
}
}  // namespace
