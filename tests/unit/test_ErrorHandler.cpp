// The error store on a temporary database: duplicates, ring overwrite, restart,
// acknowledgement, export, clearing, configuration and database faults.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <semaphore.h>
#include <sqlite3.h>
#include <string>
#include <thread>
#include <vector>

#include "ErrorHandler.h"
#include "SystemSrv.h"
#include "TestSupport.h"
#include "sysLib/Bms.h"
#include "sysLib/Error.h"
#include "sysLib/SysExcpt.h"

namespace {
constexpr const char* A_C_DB = "/mnt/log/syserrors.sq3";
// All rows in id order as "id:code/class:ack".
constexpr const char* A_C_ROWS =
    "select group_concat(r, ' ') from (select id||':'||code||'/'||class||':'||ack as r from "
    "syserrors order by id)";

// Records each broadcast as "name (args)" instead of sending it.
class RecordingHandler_CL : public ErrorHandler_CL {
 public:
  using ErrorHandler_CL::ErrorHandler_CL;
  std::vector<std::string> f_Sent(const std::string& str_Name) const {
    std::vector<std::string> o_Out;
    for (const auto& str_Sig : o_Sent)
      if (str_Sig.rfind(str_Name + " ", 0) == 0)
        o_Out.push_back(str_Sig.substr(str_Name.size() + 1));
    return o_Out;
  }

 protected:
  void f_Signal(const char* z_c_Name, GVariant* o_Params) override {
    GVariant* z_o_Tuple = g_variant_ref_sink(o_Params);
    gchar* z_c_Text = g_variant_print(z_o_Tuple, FALSE);
    o_Sent.push_back(std::string(z_c_Name) + " " + z_c_Text);
    g_free(z_c_Text);
    g_variant_unref(z_o_Tuple);
  }

 private:
  std::vector<std::string> o_Sent;
};

std::string f_Thrown(const std::function<void()>& f_Run) {
  try {
    f_Run();
  } catch (SysExcpt_CL* z_o_Excpt) {
    std::string str_Text = z_o_Excpt->f_GetText();
    delete z_o_Excpt;
    return str_Text;
  }
  return "";
}

class ErrorStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sem_init(&o_Obj.o_SignalEmitSemId, 0, 1);
    o_Root.f_Write("/home/tool/config/log/rdystatus.json",
                   R"({"flags":[{"nr":3,"state":1,"name":"SysSrv"}]})");
    f_Cfg(A_C_DB, 512);
    std::filesystem::create_directories(o_Root.f_Path("/mnt/log"));
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

  TempRoot o_Root;
  SysObj o_Obj{};
  std::unique_ptr<Bms_CL> o_Bms;
};

TEST_F(ErrorStoreTest, ActiveCodeIsStoredOnceWhateverItsClass) {
  auto o_H = f_Make();
  for (const char* z_c_Code : {"3228", "3228", "3224"})
    EXPECT_EQ(0, o_H->f_Insert("Gui", z_c_Code));
  EXPECT_EQ("1:403/4:0", f_Query(A_C_ROWS));
  EXPECT_EQ(1u, o_H->f_Sent("sysfault").size());
  // Once acknowledged, the same code is a new event.
  o_H->f_Ack(403);
  o_H->f_Insert("Gui", "3224");
  EXPECT_EQ("1:403/4:1 2:403/0:0", f_Query(A_C_ROWS));
  EXPECT_EQ(2u, o_H->f_Sent("sysfault").size());
}

TEST_F(ErrorStoreTest, RingOverwriteKeepsIdsRisingAcrossRestart) {
  f_Cfg(A_C_DB, 3);
  auto o_H = f_Make();
  for (const char* z_c_Code : {"3216", "3228", "3252", "3268"}) o_H->f_Insert("Gui", z_c_Code);
  EXPECT_EQ("2:403/4:0 3:406/4:0 4:408/4:0", f_Query(A_C_ROWS));
  o_H.reset();
  o_H = f_Make();  // the restart acknowledges every class
  EXPECT_EQ("2:403/4:1 3:406/4:1 4:408/4:1", f_Query(A_C_ROWS));
  EXPECT_EQ("0/0 shm 0 diag 0 flag3 out18", f_Current(*o_H));
  o_H->f_Insert("Gui", "3233");
  EXPECT_EQ("3:406/4:1 4:408/4:1 5:404/1:0", f_Query(A_C_ROWS));
}

TEST_F(ErrorStoreTest, InsertPublishesTheErrorAndOnlyClass0KeepsReadiness) {
  struct Case_ST {
    const char* z_c_Code;
    const char* z_c_Expected;
  };
  const Case_ST a_o_Cases[] = {
      {"3216", "402/0 shm 3216 diag 3216 flag3 out18"}, {"3233", "404/1 shm 3233 diag 3233"},
      {"abc", "0/0 shm 0 diag 0 flag3 out18"},  // code texts follow atoi
      {"3252xyz", "406/4 shm 3252 diag 3252"},          {"-5", "-1/3 shm -5 diag -5"},
  };
  auto o_H = f_Make();
  for (const auto& o_C : a_o_Cases) {
    o_H->f_SetRdyFlag(3);
    o_Bms->f_Out(18, true);
    EXPECT_EQ(0, o_H->f_Insert("Gui", o_C.z_c_Code));
    EXPECT_EQ(o_C.z_c_Expected, f_Current(*o_H)) << o_C.z_c_Code;
  }
  EXPECT_EQ(5u, o_H->f_Sent("sysfault").size());
}

TEST_F(ErrorStoreTest, AcknowledgementAndTheRecomputedCurrentError) {
  auto o_H = f_Make();
  for (const char* z_c_Code : {"3233", "3252", "3216"}) o_H->f_Insert("Gui", z_c_Code);
  // A code without an active row only recomputes: the newest active error is a class 0
  // note, so the tool counts as ready despite the older ones.
  EXPECT_EQ(0, o_H->f_Ack(999));
  EXPECT_EQ("402/0 shm 0 diag 3216 flag3 out18", f_Current(*o_H));
  EXPECT_EQ(-1, o_H->f_Ack("3233"));  // class 1 is never acknowledged by code
  EXPECT_EQ(0, o_H->f_Ack("3232"));   // nor through the same code with class bits 0
  EXPECT_TRUE(o_H->f_Sent("acksysfault").empty());
  EXPECT_EQ(0, o_H->f_AckError(3216));
  EXPECT_EQ(0, o_H->f_AckError(3252));
  EXPECT_EQ((std::vector<std::string>{"(402, 3252)", "(406, 3233)"}), o_H->f_Sent("acksysfault"));
  EXPECT_EQ("1:404/1:0 2:406/4:1 3:402/0:1", f_Query(A_C_ROWS));
}

TEST_F(ErrorStoreTest, LastAcknowledgementClearsTheCurrentError) {
  auto o_H = f_Make();
  o_H->f_Insert("Gui", "3228");
  EXPECT_EQ(0, o_H->f_AckError(3228));
  EXPECT_EQ((std::vector<std::string>{"(403, 0)"}), o_H->f_Sent("acksysfault"));
  EXPECT_EQ("0/0 shm 0 diag 0 flag3 out18", f_Current(*o_H));
}

TEST_F(ErrorStoreTest, BusMethodsReportAcknowledgeExportAndClear) {
  auto o_H = f_Make();
  z_o_ErrorHandler = o_H.get();
  char* z_c_Json = nullptr;
  ASSERT_TRUE(f_GetUnAcknSysErrors(&o_Obj, &z_c_Json, nullptr));
  EXPECT_STREQ("{\"errors\":[]}", z_c_Json);
  free(z_c_Json);

  // Only the exact word "Ack" acknowledges; everything else is a report.
  for (const char* z_c_Code : {"3216", "3203", "3228", "3233"})
    EXPECT_TRUE(f_ReportError(&o_Obj, "Gui", z_c_Code, "Ack ", nullptr));
  EXPECT_TRUE(f_ReportError(&o_Obj, "Gui", "3252", "ack", nullptr));
  EXPECT_TRUE(f_ReportError(&o_Obj, "Gui", "3252", "Ack", nullptr));
  // The collective acknowledgement takes classes 0 and 3 only.
  EXPECT_TRUE(f_AckErrList(&o_Obj, nullptr));
  EXPECT_EQ((std::vector<std::string>{"(406, 3233)", "(402, 3233)", "(400, 3233)"}),
            o_H->f_Sent("acksysfault"));
  ASSERT_TRUE(f_GetUnAcknSysErrors(&o_Obj, &z_c_Json, nullptr));
  EXPECT_EQ("{\"errors\":[{\"code\":403,\"class\":4,\"date\":" +
                f_Query("select date from syserrors where id=3") +
                "},{\"code\":404,\"class\":1,\"date\":" +
                f_Query("select date from syserrors where id=4") + "}]}",
            z_c_Json);
  free(z_c_Json);
  int i_Err = 0, i_Class = 0, i_Date = 0;
  EXPECT_TRUE(f_SysErrorGet(&o_Obj, &i_Err, &i_Class, &i_Date, nullptr));
  EXPECT_EQ(404 * 8 + 1, i_Err * 8 + i_Class);

  // Clearing keeps active errors; with none left the file starts over (a table that some
  // other tool added shows which of the two happened).
  f_Query("create table marker(x)");
  EXPECT_TRUE(f_DelErrList(&o_Obj, nullptr));
  EXPECT_EQ("3:403/4:0 4:404/1:0", f_Query(A_C_ROWS));
  EXPECT_EQ("1", f_Query("select count(*) from sqlite_master where name='marker'"));
  o_H->f_Ack(403);
  o_H.reset();
  o_H = f_Make();  // only a restart takes the class 1 error
  z_o_ErrorHandler = o_H.get();
  EXPECT_TRUE(f_DelErrList(&o_Obj, nullptr));
  EXPECT_EQ("", f_Query(A_C_ROWS));
  EXPECT_EQ("0", f_Query("select count(*) from sqlite_master where name='marker'"));
  o_H->f_Insert("Gui", "3268");
  EXPECT_EQ("1:408/4:0", f_Query(A_C_ROWS));
}

TEST(ErrorBusNullObject, HandlersAnswerWithoutAnErrorHandler) {
  char* z_c_Json = nullptr;
  int i_A = 7, i_B = 7, i_C = 7;
  EXPECT_TRUE(f_ReportError(nullptr, "Gui", "3228", "", nullptr));
  EXPECT_FALSE(f_AckErrList(nullptr, nullptr));
  EXPECT_FALSE(f_DelErrList(nullptr, nullptr));
  EXPECT_FALSE(f_GetUnAcknSysErrors(nullptr, &z_c_Json, nullptr));
  EXPECT_TRUE(f_SysErrorGet(nullptr, &i_A, &i_B, &i_C, nullptr));
  EXPECT_EQ(0, i_A | i_B | i_C);
  EXPECT_FALSE(f_RdyGet(nullptr, &i_A, &i_B, nullptr));
  EXPECT_TRUE(f_DumpRdy(nullptr, nullptr) && f_RdyFlagSet(nullptr, 3, nullptr) &&
              f_RdyFlagReset(nullptr, 3, nullptr));
}

TEST_F(ErrorStoreTest, ProcessNamesAreStoredVerbatimOnInsertAndOverwrite) {
  f_Cfg(A_C_DB, 2);
  auto o_H = f_Make();
  const char* a_z_c_Names[] = {"O'Brien", "x'); DROP TABLE syserrors; --", "a;b\"c",
                               "Gui', code=1, ack=1 where id>0; --"};
  int i_Code = 500;
  for (const char* z_c_Name : a_z_c_Names) {
    o_H->f_Insert(z_c_Name, std::to_string(++i_Code * 8 + 2).c_str());
    EXPECT_EQ(z_c_Name, f_Query("select proc from syserrors order by id desc"));
  }
  EXPECT_EQ("3:503/2:0 4:504/2:0", f_Query(A_C_ROWS));
}

TEST_F(ErrorStoreTest, ErrorsRaisedBeforeTheStoreOpensAreStoredAndStayActive) {
  Error_CL* z_o_Error = Error_CL::f_GetErrorObj();
  z_o_Error->f_UseLocalStore();
  z_o_Error->f_Insert(3252);
  auto o_H = f_Make();
  z_o_Error->f_Insert(3268);
  EXPECT_EQ("1:406/4:0 2:408/4:0", f_Query(A_C_ROWS));
  EXPECT_EQ("SysSrv.elf", f_Query("select proc from syserrors where id=1"));
  o_H.reset();
  z_o_Error->f_Insert(3216);  // no store: held, not handed to a dead object
  EXPECT_EQ(1u, z_o_Error->f_GetHeld().size());
  z_o_Error->f_AttachStore([](int) {});
  z_o_Error->f_DetachStore();
}

TEST_F(ErrorStoreTest, ConfigurationDefaultsAndReload) {
  std::filesystem::remove(o_Root.f_Path(ErrorHandler_CL::A_C_CFG_PATH));
  auto o_H = f_Make();
  EXPECT_EQ(A_C_DB, o_H->f_GetDBPath());
  EXPECT_EQ(512, o_H->f_GetMaxErrors());
  const std::pair<const char*, const char*> a_o_Cases[] = {
      {R"({"DbFilePath":"/mnt/log/other.sq3","MaxErrors":7})", "/mnt/log/other.sq3 7"},
      {"{not json", "/mnt/log/syserrors.sq3 512"},
      {R"({"DbFilePath":5,"MaxErrors":"9"})", "/mnt/log/syserrors.sq3 512"},
      {R"({"DbFilePath":"","MaxErrors":0})", "/mnt/log/syserrors.sq3 512"},
      {R"({"DbFilePath":"rel.sq3","MaxErrors":20})", "/mnt/log/syserrors.sq3 20"},
  };
  for (const auto& o_C : a_o_Cases) {
    o_Root.f_Write(ErrorHandler_CL::A_C_CFG_PATH, o_C.first);
    o_H->f_CfgFileChanged(ErrorHandler_CL::A_C_CFG_PATH);
    EXPECT_EQ(o_C.second, o_H->f_GetDBPath() + " " + std::to_string(o_H->f_GetMaxErrors()));
    EXPECT_TRUE(o_Root.f_Exists(o_H->f_GetDBPath()));
  }
  // Only the exact logical path reloads.
  o_Root.f_Write(ErrorHandler_CL::A_C_CFG_PATH, R"({"DbFilePath":"/mnt/log/other.sq3"})");
  o_H->f_CfgFileChanged("/home/tool/config/log/syserror.json ");
  o_H->f_CfgFileChanged("/home/tool/config/ChanCfg.json");
  EXPECT_EQ(A_C_DB, o_H->f_GetDBPath());
}

TEST_F(ErrorStoreTest, UnusableDatabaseStopsConstructionAndNothingCrashes) {
  o_Root.f_Write("/mnt/log/broken.sq3", std::string(4096, 'x'));
  for (const char* z_c_Db : {"/mnt/missing/dir/errors.sq3", "/mnt/log/broken.sq3"}) {
    f_Cfg(z_c_Db, 512);
    EXPECT_EQ("ErrorHandler_CL::f_DBOpen", f_Thrown([&] { f_Make(); })) << z_c_Db;
  }
  // A running store whose reload points at an unusable file keeps answering.
  f_Cfg(A_C_DB, 512);
  auto o_H = f_Make();
  f_Cfg("/mnt/log/broken.sq3", 512);
  o_H->f_CfgFileChanged(ErrorHandler_CL::A_C_CFG_PATH);
  EXPECT_EQ(-2, o_H->f_DBOpen());
  f_Cfg("/mnt/missing/dir/errors.sq3", 512);
  o_H->f_CfgFileChanged(ErrorHandler_CL::A_C_CFG_PATH);
  EXPECT_EQ(-1, o_H->f_DBOpen());
  char* z_c_Json = nullptr;
  EXPECT_EQ(1, o_H->f_CheckForNonAckErrors());
  for (int i_Rc : {o_H->f_Insert("Gui", "3228"), o_H->f_Ack(403), o_H->f_AckErrList(),
                   o_H->f_ActiveErrorsToJson(&z_c_Json), o_H->f_DBRemove()})
    EXPECT_EQ(-1, i_Rc);
}

TEST_F(ErrorStoreTest, DatabaseLockedByAnotherProcess) {
  using o_Clock = std::chrono::steady_clock;
  auto o_H = f_Make();
  sqlite3* z_o_Other = nullptr;
  sqlite3_open(o_Root.f_Path(A_C_DB).c_str(), &z_o_Other);
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(z_o_Other, "BEGIN EXCLUSIVE;", nullptr, nullptr, nullptr));
  // The busy timeout is set only after the pragmas: a held lock fails the open at once.
  auto o_Start = o_Clock::now();
  EXPECT_EQ(-2, o_H->f_DBOpen());
  EXPECT_LT(o_Clock::now() - o_Start, std::chrono::seconds(2));
  sqlite3_exec(z_o_Other, "COMMIT;", nullptr, nullptr, nullptr);
  ASSERT_EQ(0, o_H->f_DBOpen());

  // A short hold is waited out and the error is stored.
  ASSERT_EQ(SQLITE_OK, sqlite3_exec(z_o_Other, "BEGIN EXCLUSIVE;", nullptr, nullptr, nullptr));
  std::thread o_Releaser([z_o_Other] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    sqlite3_exec(z_o_Other, "COMMIT;", nullptr, nullptr, nullptr);
  });
  o_Start = o_Clock::now();
  EXPECT_EQ(0, o_H->f_Insert("Gui", "3228"));
  EXPECT_GE(o_Clock::now() - o_Start, std::chrono::milliseconds(200));
  o_Releaser.join();
  sqlite3_close(z_o_Other);
  EXPECT_EQ("1:403/4:0", f_Query(A_C_ROWS));
}
}  // namespace
