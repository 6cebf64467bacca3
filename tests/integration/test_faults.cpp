// Faults a tool meets in the field, injected around the real daemon: a damaged or missing
// error database, another process holding it, full file systems, hanging tool programs,
// a lost bus, kill -9 and power cuts in a storm of reports. What must hold each time: the
// service stays up (or, without a bus, ends so that it is restarted), every report it
// replied to ends up as a row, and the tool is not left "not ready" for good.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Harness.h"

using namespace it;
namespace fs = std::filesystem;

namespace {

constexpr const char* A_C_DB = "/mnt/log/syserrors.sq3";
// Only flag 3 is required: ready means "no active error".
constexpr const char* A_C_RDY_CFG = R"({"flags":[{"nr":3,"state":1,"name":"SysSrv"}]})";

// A small tmpfs of the test's own, linked into the sandbox where a directory of the tool
// should be: full and read-only file systems without touching the machine's.
class TmpfsMount {
 public:
  explicit TmpfsMount(const char* z_c_Size) {
    str_Dir = f_MakeTempDir("syssrv-mnt");
    std::string str_Opts = std::string("size=") + z_c_Size + ",mode=0755";
    b_Ok = mount("tmpfs", str_Dir.c_str(), "tmpfs", 0, str_Opts.c_str()) == 0;
  }
  ~TmpfsMount() {
    if (b_Ok) umount2(str_Dir.c_str(), MNT_DETACH);
    rmdir(str_Dir.c_str());
  }
  bool f_Ok() const { return b_Ok; }
  const std::string& f_Dir() const { return str_Dir; }
  bool f_ReadOnly() const {
    return mount(nullptr, str_Dir.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
  }
  // Fills the file system to the last byte; f_Free gives the space back.
  void f_Fill() const {
    int i_Fd = open((str_Dir + "/filler").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::string str_Block(4096, 'f');
    while (write(i_Fd, str_Block.data(), str_Block.size()) > 0) {
    }
    while (write(i_Fd, str_Block.data(), 1) > 0) {
    }
    close(i_Fd);
  }
  void f_Free() const { unlink((str_Dir + "/filler").c_str()); }

 private:
  std::string str_Dir;
  bool b_Ok = false;
};

// Moves what the simulator made in a tool directory onto the mount and links it there.
void f_MoveOnto(const Sandbox& o_Box, const std::string& str_Logical, const TmpfsMount& o_Mnt) {
  const fs::path o_Dir = o_Box.f_Path(str_Logical);
  std::error_code o_Ec;
  if (fs::exists(o_Dir, o_Ec))
    fs::copy(o_Dir, o_Mnt.f_Dir(), fs::copy_options::recursive | fs::copy_options::overwrite_existing, o_Ec);
  fs::remove_all(o_Dir, o_Ec);
  fs::create_directories(o_Dir.parent_path(), o_Ec);
  fs::create_symlink(o_Mnt.f_Dir(), o_Dir, o_Ec);
}

// Receives the daemon's watchdog keep-alives: with a period of 0.8 s the service sends one
// every tick, so the longest pause between two is the longest stall of its loop.
class KeepAlives {
 public:
  explicit KeepAlives(const std::string& str_Path) : str_Path(str_Path) {
    i_Fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un o_Addr{};
    o_Addr.sun_family = AF_UNIX;
    std::snprintf(o_Addr.sun_path, sizeof(o_Addr.sun_path), "%s", str_Path.c_str());
    if (bind(i_Fd, reinterpret_cast<sockaddr*>(&o_Addr), sizeof(o_Addr)) != 0)
      ADD_FAILURE() << "bind " << str_Path;
    timeval o_Tv{0, 100000};
    setsockopt(i_Fd, SOL_SOCKET, SO_RCVTIMEO, &o_Tv, sizeof(o_Tv));
    o_Thread = std::thread([this] {
      char a_c_Buf[32];
      while (!b_Stop) {
        if (recv(i_Fd, a_c_Buf, sizeof(a_c_Buf), 0) <= 0) continue;
        std::lock_guard<std::mutex> o_G(o_Lock);
        o_Times.push_back(g_get_monotonic_time());
      }
    });
  }
  ~KeepAlives() {
    b_Stop = true;
    o_Thread.join();
    close(i_Fd);
  }
  std::vector<std::string> f_Env() const {
    return {"NOTIFY_SOCKET=" + str_Path, "WATCHDOG_USEC=800000"};
  }
  size_t f_Count() {
    std::lock_guard<std::mutex> o_G(o_Lock);
    return o_Times.size();
  }
  // Longest pause (ms) between keep-alives since i_From (monotonic µs), until now.
  long f_MaxGapMs(gint64 i_From) {
    std::lock_guard<std::mutex> o_G(o_Lock);
    gint64 i_Prev = i_From, i_Max = 0;
    for (gint64 i_T : o_Times) {
      if (i_T < i_From) continue;
      i_Max = std::max(i_Max, i_T - i_Prev);
      i_Prev = i_T;
    }
    i_Max = std::max(i_Max, g_get_monotonic_time() - i_Prev);
    return static_cast<long>(i_Max / 1000);
  }

 private:
  std::string str_Path;
  int i_Fd = -1;
  std::atomic<bool> b_Stop{false};
  std::mutex o_Lock;
  std::vector<gint64> o_Times;
  std::thread o_Thread;
};

// A bus, a tool and the daemon (with extra environment), without the usual suite's
// expectation of a clean stop: some faults end the daemon on purpose.
struct Rig {
  explicit Rig(const std::function<void(const Sandbox&)>& f_Prepare = {},
               std::vector<std::string> o_Env = {})
      : o_Daemon(o_Box, o_Bus, std::move(o_Env)) {
    o_Box.f_Write("/home/tool/config/log/rdystatus.json", A_C_RDY_CFG);
    if (f_Prepare) f_Prepare(o_Box);
  }
  bool f_Start() {
    bool b_Up = o_Daemon.f_Start(60000);
    if (!b_Up) ADD_FAILURE() << "daemon did not start:\n" << o_Daemon.f_Log();
    return b_Up;
  }
  PrivateBus o_Bus;
  Sandbox o_Box;
  BusClient o_Client{o_Bus.f_Address()};
  Daemon o_Daemon;
};

std::string f_Answer(BusClient& o_C, const char* z_c_Method) {
  GVariant* o_R = o_C.f_Call(z_c_Method, nullptr, nullptr, 60000);
  Variant_T o_ROwner(o_R);
  if (o_R == nullptr) return "<no answer>";
  gchar* z_c_Text = g_variant_print(o_R, FALSE);
  GChars_T o_TextOwner(z_c_Text);
  std::string str_Out = z_c_Text;
  return str_Out;
}

bool f_Report(BusClient& o_C, int i_Coded) {
  GVariant* o_R = o_C.f_Call("freporterror",
                             g_variant_new("(sss)", "Faults", std::to_string(i_Coded).c_str(), ""),
                             nullptr, 60000);
  Variant_T o_ROwner(o_R);
  return o_R != nullptr;
}

// Reports sent without waiting, replies collected as they come: what "replied" means.
class Storm {
 public:
  explicit Storm(BusClient& o_C) : o_C(o_C) {}
  void f_Send(int i_Coded) {
    auto* z_o_Ctx = new std::pair<Storm*, int>(this, i_Coded);
    g_dbus_connection_call(o_C.f_Conn(), A_C_BUS_NAME, A_C_PATH, A_C_IFACE, "freporterror",
                           g_variant_new("(sss)", "Storm", std::to_string(i_Coded).c_str(), ""),
                           nullptr, G_DBUS_CALL_FLAGS_NONE, 120000, nullptr, f_Done, z_o_Ctx);
    ++ui_Sent;
  }
  std::set<int> o_Replied;
  size_t ui_Sent = 0;
  size_t ui_Answered = 0;

 private:
  static void f_Done(GObject* z_o_Src, GAsyncResult* z_o_Res, gpointer z_v) {
    auto* z_o_Ctx = static_cast<std::pair<Storm*, int>*>(z_v);
    GVariant* o_R = g_dbus_connection_call_finish(G_DBUS_CONNECTION(z_o_Src), z_o_Res, nullptr);
    Variant_T o_ROwner(o_R);
    z_o_Ctx->first->ui_Answered++;
    if (o_R != nullptr) {
      z_o_Ctx->first->o_Replied.insert(z_o_Ctx->second);
    }
    delete z_o_Ctx;
  }
  BusClient& o_C;
};

// Codes of the rows of a database file, read by a connection of the test's own. Read-write:
// after a kill the file may have a hot journal, which only a writer may roll back.
std::set<int> f_StoredCodes(const std::string& str_File, std::string* z_str_Err = nullptr) {
  std::set<int> o_Codes;
  sqlite3* z_o_Db = nullptr;
  sqlite3_stmt* z_o_St = nullptr;
  if (sqlite3_open_v2(str_File.c_str(), &z_o_Db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
      sqlite3_busy_timeout(z_o_Db, 5000) == SQLITE_OK &&
      sqlite3_prepare_v2(z_o_Db, "select code*8+class from syserrors", -1, &z_o_St, nullptr) ==
          SQLITE_OK) {
    while (sqlite3_step(z_o_St) == SQLITE_ROW) o_Codes.insert(sqlite3_column_int(z_o_St, 0));
  } else if (z_str_Err != nullptr) {
    *z_str_Err = sqlite3_errmsg(z_o_Db);
  }
  sqlite3_finalize(z_o_St);
  sqlite3_close(z_o_Db);
  return o_Codes;
}

// Distinct coded numbers of class 3 (acknowledged together by "fackerrlist").
int f_Code(int i_N) { return (1000 + i_N) * 8 + 3; }

// The store works after whatever happened: a report is signalled and listed, the
// collective acknowledgement clears it, and the tool is ready again.
void f_ExpectWorkingStore(Rig& o_Rig, const std::string& str_Case) {
  SignalRecorder o_Rec(o_Rig.o_Client);
  EXPECT_TRUE(f_Report(o_Rig.o_Client, 3228)) << str_Case;
  EXPECT_NE(nullptr, o_Rec.f_WaitFor("sysfault", 10000)) << str_Case << o_Rig.o_Daemon.f_Log();
  EXPECT_NE(f_Answer(o_Rig.o_Client, "fgetunacknsyserrors").find("\"code\":403"), std::string::npos)
      << str_Case;
  EXPECT_EQ("(403, 4, ", f_Answer(o_Rig.o_Client, "fsyserrorget").substr(0, 9)) << str_Case;
  GVariant* o_R = o_Rig.o_Client.f_Call("freporterror", g_variant_new("(sss)", "Faults", "3228", "Ack"));
  Variant_T o_ROwner(o_R);
  EXPECT_TRUE(f_WaitUntil([&] { return f_Answer(o_Rig.o_Client, "frdyget") == "(8, 8)"; }, 10000))
      << str_Case << ": " << f_Answer(o_Rig.o_Client, "frdyget");
  EXPECT_TRUE(o_Rig.o_Daemon.f_Running()) << str_Case;
}

std::string f_ValidDatabase() {
  std::string str_Dir = f_MakeTempDir("syssrv-db");
  std::string str_File = str_Dir + "/valid.sq3";
  sqlite3* z_o_Db = nullptr;
  sqlite3_open(str_File.c_str(), &z_o_Db);
  sqlite3_exec(z_o_Db,
               "PRAGMA auto_vacuum=FULL; CREATE TABLE syserrors (id INTEGER PRIMARY KEY,date "
               "INTEGER DEFAULT '',proc TEXT DEFAULT '',code INTEGER DEFAULT '0',class INTEGER "
               "DEFAULT '0',ack INTEGER DEFAULT '0');",
               nullptr, nullptr, nullptr);
  for (int i = 0; i < 400; ++i) {
    std::string str_Sql = "INSERT INTO syserrors(date,proc,code,class,ack) VALUES(1," +
                          std::string("'some process with a long name'") + "," +
                          std::to_string(i) + ",4,0);";
    sqlite3_exec(z_o_Db, str_Sql.c_str(), nullptr, nullptr, nullptr);
  }
  sqlite3_close(z_o_Db);
  std::string str_Bytes = f_ReadFile(str_File);
  f_RemoveTree(str_Dir);
  return str_Bytes;
}

}  // namespace

// --- start-up on whatever the last run (or a technician) left ----------------------------

TEST(Faults, StartsWithAWorkingStoreWhateverTheDatabase) {
  const std::string str_Valid = f_ValidDatabase();
  ASSERT_GT(str_Valid.size(), 8192u);
  // A table page in the middle of the file overwritten, as a torn write leaves it.
  std::string str_PageDamaged = str_Valid;
  const size_t ui_Page = (str_Valid.size() / 2) & ~static_cast<size_t>(4095);
  for (size_t i = ui_Page; i < ui_Page + 4096; i += 7) str_PageDamaged[i] = static_cast<char>(0xA5);
  struct Case_ST {
    const char* z_c_Name;
    // Prepares the sandbox; returns false when the machine cannot stage the fault.
    std::function<bool(const Sandbox&, std::unique_ptr<TmpfsMount>&)> f_Stage;
  };
  const Case_ST a_o_Cases[] = {
      {"garbage", [](const Sandbox& o_B, auto&) {
         o_B.f_Write(A_C_DB, std::string(20000, 'g'));
         return true;
       }},
      {"truncated", [&](const Sandbox& o_B, auto&) {
         o_B.f_Write(A_C_DB, str_Valid.substr(0, str_Valid.size() / 3 + 100));
         return true;
       }},
      {"page-damaged", [&](const Sandbox& o_B, auto&) {
         o_B.f_Write(A_C_DB, str_PageDamaged);
         return true;
       }},
      {"path is a directory", [](const Sandbox& o_B, auto&) {
         fs::create_directories(o_B.f_Path(A_C_DB));
         return true;
       }},
      {"log directory missing", [](const Sandbox& o_B, auto&) {
         fs::remove_all(o_B.f_Path("/mnt/log"));
         return true;
       }},
      {"log directory read-only", [](const Sandbox& o_B, std::unique_ptr<TmpfsMount>& o_M) {
         o_M = std::make_unique<TmpfsMount>("1m");
         if (!o_M->f_Ok()) return false;
         f_MoveOnto(o_B, "/mnt/log", *o_M);
         return o_M->f_ReadOnly();
       }},
      {"database read-only", [&](const Sandbox& o_B, std::unique_ptr<TmpfsMount>& o_M) {
         o_M = std::make_unique<TmpfsMount>("1m");
         if (!o_M->f_Ok()) return false;
         o_B.f_Write(A_C_DB, str_Valid);
         f_MoveOnto(o_B, "/mnt/log", *o_M);
         return o_M->f_ReadOnly();
       }},
  };
  for (const auto& o_C : a_o_Cases) {
    std::unique_ptr<TmpfsMount> o_Mnt;
    bool b_Staged = true;
    Rig o_Rig([&](const Sandbox& o_B) { b_Staged = o_C.f_Stage(o_B, o_Mnt); });
    if (!b_Staged) {
      std::cout << "[ note ] " << o_C.z_c_Name << ": this machine cannot mount, case not run\n";
      continue;
    }
    ASSERT_TRUE(o_Rig.f_Start()) << o_C.z_c_Name;
    f_ExpectWorkingStore(o_Rig, o_C.z_c_Name);
    EXPECT_NE(o_Rig.o_Daemon.f_Log().find("is no usable error list"), std::string::npos)
        << o_C.z_c_Name;
    EXPECT_EQ(0, o_Rig.o_Daemon.f_Stop()) << o_C.z_c_Name << o_Rig.o_Daemon.f_Log();
    EXPECT_EQ(std::string::npos, o_Rig.o_Daemon.f_Log().find("runtime error:"));
  }
}

TEST(Faults, ADatabaseHeldAtStartIsKeptAndOpenedWhenFree) {
  // Held is not damaged: the file stays where it is, and the list opens once it is free.
  Rig o_Rig;
  const std::string str_File = o_Rig.o_Box.f_Path(A_C_DB);
  sqlite3* z_o_Db = nullptr;
  sqlite3_open(str_File.c_str(), &z_o_Db);
  sqlite3_exec(z_o_Db, "CREATE TABLE IF NOT EXISTS keep(x); BEGIN EXCLUSIVE; INSERT INTO keep VALUES(1);",
               nullptr, nullptr, nullptr);
  ASSERT_TRUE(o_Rig.f_Start());
  EXPECT_TRUE(o_Rig.o_Daemon.f_WaitLog("is held by another process", 5000)) << o_Rig.o_Daemon.f_Log();
  EXPECT_TRUE(f_Report(o_Rig.o_Client, f_Code(7)));
  sqlite3_exec(z_o_Db, "COMMIT;", nullptr, nullptr, nullptr);
  sqlite3_close(z_o_Db);
  EXPECT_TRUE(f_WaitUntil([&] { return f_StoredCodes(str_File).count(f_Code(7)) == 1; }, 10000))
      << o_Rig.o_Daemon.f_Log();
  EXPECT_EQ(std::string::npos, o_Rig.o_Daemon.f_Log().find(".corrupt-"));
  EXPECT_TRUE(o_Rig.o_Client.f_Invoke("fackerrlist"));
  f_ExpectWorkingStore(o_Rig, "held at start");
  EXPECT_EQ(0, o_Rig.o_Daemon.f_Stop()) << o_Rig.o_Daemon.f_Log();
}

// --- another process holds the database -------------------------------------------------

TEST(Faults, ReportsWhileAnotherProcessHoldsTheDatabaseAreAllStored) {
  std::unique_ptr<KeepAlives> o_Alive;
  Rig o_Rig({}, {});
  o_Alive = std::make_unique<KeepAlives>(o_Rig.o_Box.f_Path("/sim/notify"));
  Daemon o_Daemon(o_Rig.o_Box, o_Rig.o_Bus, o_Alive->f_Env());
  ASSERT_TRUE(o_Daemon.f_Start(60000)) << o_Daemon.f_Log();
  BusClient& o_C = o_Rig.o_Client;
  const std::string str_File = o_Rig.o_Box.f_Path(A_C_DB);
  int i_Next = 0;
  for (int i_HoldS : {0, 12, 45}) {
    const gint64 i_From = g_get_monotonic_time();
    std::atomic<bool> b_Held{false};
    std::thread o_Holder([&] {
      sqlite3* z_o_Db = nullptr;
      sqlite3_open(str_File.c_str(), &z_o_Db);
      if (i_HoldS > 0 && sqlite3_exec(z_o_Db, "BEGIN EXCLUSIVE;", nullptr, nullptr, nullptr) == SQLITE_OK) {
        b_Held = true;
        g_usleep(static_cast<gulong>(i_HoldS) * G_USEC_PER_SEC);
        sqlite3_exec(z_o_Db, "COMMIT;", nullptr, nullptr, nullptr);
      }
      b_Held = true;
      sqlite3_close(z_o_Db);
    });
    ASSERT_TRUE(f_WaitUntil([&] { return b_Held.load(); }, 5000));
    // Reports keep coming during the hold: a few at its start, more in its middle.
    Storm o_Storm(o_C);
    std::vector<int> o_Codes;
    for (int i = 0; i < 3; ++i) o_Codes.push_back(f_Code(i_Next++));
    for (int i_Coded : o_Codes) o_Storm.f_Send(i_Coded);
    f_Pump(i_HoldS * 1000 / 2);
    for (int i = 0; i < 3; ++i) {
      o_Codes.push_back(f_Code(i_Next++));
      o_Storm.f_Send(o_Codes.back());
    }
    o_Holder.join();
    ASSERT_TRUE(f_WaitUntil([&] { return o_Storm.ui_Answered == o_Storm.ui_Sent; }, 90000));
    // Every replied report becomes a row soon after the hold ends.
    EXPECT_TRUE(f_WaitUntil(
        [&] {
          std::set<int> o_Rows = f_StoredCodes(str_File);
          return std::all_of(o_Storm.o_Replied.begin(), o_Storm.o_Replied.end(),
                             [&](int c) { return o_Rows.count(c) == 1; });
        },
        10000))
        << "hold " << i_HoldS << " s";
    EXPECT_EQ(o_Codes.size(), o_Storm.o_Replied.size());
    // No phantom: the current error is a row, and acknowledging clears it for good.
    const std::string str_Cur = f_Answer(o_C, "fsyserrorget");
    EXPECT_EQ("(" + std::to_string(o_Codes.back() >> 3) + ", 3, ", str_Cur.substr(0, 10)) << str_Cur;
    EXPECT_TRUE(o_C.f_Invoke("fackerrlist"));
    EXPECT_TRUE(f_WaitUntil([&] { return f_Answer(o_C, "frdyget") == "(8, 8)"; }, 10000))
        << "hold " << i_HoldS << " s: " << f_Answer(o_C, "frdyget");
    EXPECT_EQ("(0, 0, 0)", f_Answer(o_C, "fsyserrorget"));
    f_Pump(1000);  // a few ordinary ticks after the fault belong to its window
    std::cout << "[ figure ] hold " << i_HoldS << " s: " << o_Storm.ui_Sent << " reports, "
              << o_Storm.o_Replied.size() << " replied, " << f_StoredCodes(str_File).size()
              << " rows in all; longest tick gap " << o_Alive->f_MaxGapMs(i_From) << " ms\n";
  }
  EXPECT_EQ(0, o_Daemon.f_Stop()) << o_Daemon.f_Log();
  EXPECT_EQ(std::string::npos, o_Daemon.f_Log().find("runtime error:"));
}

// --- full file systems -------------------------------------------------------------------

TEST(Faults, FullFileSystemsLoseNothingAndHalfWriteNothing) {
  TmpfsMount o_LogFs("256k"), o_CfgFs("1m");
  if (!o_LogFs.f_Ok() || !o_CfgFs.f_Ok()) GTEST_SKIP() << "this machine cannot mount a tmpfs";
  Rig o_Rig([&](const Sandbox& o_B) {
    f_MoveOnto(o_B, "/mnt/log", o_LogFs);
    f_MoveOnto(o_B, "/home/tool/config", o_CfgFs);
  });
  ASSERT_TRUE(o_Rig.f_Start());
  BusClient& o_C = o_Rig.o_Client;
  const std::string str_File = o_Rig.o_Box.f_Path(A_C_DB);
  const std::string str_Counters = "/home/tool/config/OkNokCntCfg.json";
  ASSERT_TRUE(o_C.f_Invoke("fbatchcntrset", g_variant_new("(is)", 0, R"({"Id":7,"MaxOk":3})")));
  const std::string str_Before = o_Rig.o_Box.f_Read(str_Counters);

  o_LogFs.f_Fill();
  o_CfgFs.f_Fill();
  std::vector<int> o_Codes;
  for (int i = 0; i < 20; ++i) {
    o_Codes.push_back(f_Code(500 + i));
    EXPECT_TRUE(f_Report(o_C, o_Codes.back()));
  }
  // The counter file is the old one or the new one, never a mix, and no temporary is left.
  GVariant* o_R = o_C.f_Call("fbatchcntrset", g_variant_new("(is)", 0, R"({"Id":8,"MaxOk":9})"));
  Variant_T o_ROwner(o_R);
  EXPECT_EQ(str_Before, o_Rig.o_Box.f_Read(str_Counters));
  for (const auto& o_E : fs::directory_iterator(o_CfgFs.f_Dir()))
    EXPECT_EQ(std::string::npos, o_E.path().filename().string().find(".tmp")) << o_E.path();
  EXPECT_TRUE(o_Rig.o_Daemon.f_Running());

  o_LogFs.f_Free();
  o_CfgFs.f_Free();
  EXPECT_TRUE(f_WaitUntil(
      [&] {
        std::set<int> o_Rows = f_StoredCodes(str_File);
        return std::all_of(o_Codes.begin(), o_Codes.end(), [&](int c) { return o_Rows.count(c) == 1; });
      },
      10000))
      << o_Rig.o_Daemon.f_Log();
  // The disk really was full for the list: the rows came from the retry.
  EXPECT_NE(std::string::npos, o_Rig.o_Daemon.f_Log().find("f_RetryPending error")) << o_Rig.o_Daemon.f_Log();
  ASSERT_TRUE(o_C.f_Invoke("fbatchcntrset", g_variant_new("(is)", 0, R"({"Id":9})")));
  const std::string str_After = o_Rig.o_Box.f_Read(str_Counters);
  for (const char* z_c_Id : {"\"Id\":\t7", "\"Id\":\t8", "\"Id\":\t9"})
    EXPECT_NE(std::string::npos, str_After.find(z_c_Id)) << str_After;
  EXPECT_EQ(0, o_Rig.o_Daemon.f_Stop()) << o_Rig.o_Daemon.f_Log();
}

// --- other users, hanging programs -------------------------------------------------------

TEST(Faults, NoOtherUserCanTakeTheServicesLocks) {
  Rig o_Rig;
  ASSERT_TRUE(o_Rig.f_Start());
  // Every configuration the service locks, once.
  ASSERT_TRUE(o_Rig.o_Client.f_Invoke("fbatchcntrset", g_variant_new("(is)", 1, R"({"Id":3})")));
  ASSERT_TRUE(o_Rig.o_Client.f_Invoke("fmfuset", g_variant_new("(i)", 90)));
  // The way in is open to everybody, so only the files' own modes keep "nobody" out.
  chmod(o_Rig.o_Box.f_Dir().c_str(), 0755);
  std::vector<std::string> o_Locks;
  for (const auto& o_E : fs::recursive_directory_iterator(o_Rig.o_Box.f_Dir())) {
    if (o_E.path().extension() != ".lock") continue;
    o_Locks.push_back(o_E.path());
    for (fs::path o_P = o_E.path().parent_path(); o_P.string().size() > o_Rig.o_Box.f_Dir().size();
         o_P = o_P.parent_path())
      chmod(o_P.c_str(), 0755);
  }
  ASSERT_GE(o_Locks.size(), 3u);
  for (const std::string& str_Lock : o_Locks) {
    struct stat o_St {};
    ASSERT_EQ(0, stat(str_Lock.c_str(), &o_St));
    EXPECT_EQ(0660u, o_St.st_mode & 07777u) << str_Lock;
    pid_t i_Pid = fork();
    if (i_Pid == 0) {
      if (setgid(65534) != 0 || setuid(65534) != 0) _exit(2);
      int i_Fd = open(str_Lock.c_str(), O_RDONLY);
      _exit(i_Fd >= 0 && flock(i_Fd, LOCK_SH | LOCK_NB) == 0 ? 0 : 1);
    }
    int i_Status = 0;
    waitpid(i_Pid, &i_Status, 0);
    EXPECT_EQ(1, WEXITSTATUS(i_Status)) << "user nobody took " << str_Lock;
  }
  EXPECT_EQ(0, o_Rig.o_Daemon.f_Stop()) << o_Rig.o_Daemon.f_Log();
}

TEST(Faults, HangingToolProgramsDoNotStopTheTicks) {
  std::unique_ptr<KeepAlives> o_Alive;
  Rig o_Rig([](const Sandbox& o_B) {
    for (const char* z_c_Cmd : {"/sbin/dmesg", "/bin/dmesg", "/sbin/hwclock", "/bin/hwclock",
                                "/bin/dbus-send", "/usr/bin/dbus-send"}) {
      if (!o_B.f_Exists(z_c_Cmd)) continue;
      o_B.f_Write(z_c_Cmd, "#!/bin/sh\nexec sleep 3600\n");
      chmod(o_B.f_Path(z_c_Cmd).c_str(), 0755);
    }
  });
  o_Alive = std::make_unique<KeepAlives>(o_Rig.o_Box.f_Path("/sim/notify"));
  Daemon o_Daemon(o_Rig.o_Box, o_Rig.o_Bus, o_Alive->f_Env());
  ASSERT_TRUE(o_Daemon.f_Start(60000)) << o_Daemon.f_Log();
  const gint64 i_From = g_get_monotonic_time();
  // dmesg runs on the first tick and hangs; the renice call (first ready moment) hangs
  // without holding the loop; SIGUSR1 runs hwclock, which hangs too.
  ASSERT_TRUE(o_Daemon.f_WaitLog("killed", 30000)) << o_Daemon.f_Log();
  size_t ui_Alive = o_Alive->f_Count();
  o_Daemon.f_Signal(SIGUSR1);
  o_Daemon.f_Signal(SIGUSR2);
  EXPECT_TRUE(f_WaitUntil([&] { return o_Alive->f_Count() > ui_Alive + 20; }, 40000));
  EXPECT_EQ("(100,)", f_Answer(o_Rig.o_Client, "fmfuget"));
  const long l_Gap = o_Alive->f_MaxGapMs(i_From);
  std::cout << "[ figure ] hanging dmesg/hwclock/dbus-send: longest tick gap " << l_Gap << " ms\n";
  // Each hanging command holds the loop for its 10 s; the flash check's dmesg and the clock
  // write of SIGUSR1 can come back to back, never more.
  EXPECT_LT(l_Gap, 25000);
  EXPECT_EQ(0, o_Daemon.f_Stop(30000)) << o_Daemon.f_Log();
}

// --- the bus goes away -------------------------------------------------------------------

TEST(Faults, LostBusEndsTheServiceWithAFailureStatus) {
  Rig o_Rig;
  ASSERT_TRUE(o_Rig.f_Start());
  // Something to say on the way out: an active error and readiness to withdraw.
  EXPECT_TRUE(f_Report(o_Rig.o_Client, 3228));
  f_Shell("pkill -KILL -f -- '--config-file=" + o_Rig.o_Bus.f_Dir() + "/'");
  const int i_Status = o_Rig.o_Daemon.f_WaitExit(60000);
  EXPECT_EQ(1, i_Status) << o_Rig.o_Daemon.f_Log();
  const std::string str_Log = o_Rig.o_Daemon.f_Log();
  EXPECT_NE(std::string::npos, str_Log.find("the bus connection is lost")) << str_Log;
  for (const char* z_c_Bad : {"runtime error:", "AddressSanitizer", "Invalid read", "CRITICAL"})
    EXPECT_EQ(std::string::npos, str_Log.find(z_c_Bad)) << str_Log;
}

// --- kill -9 and power cuts in a storm ---------------------------------------------------

TEST(Faults, EveryRepliedReportSurvivesKillAndPowerCut) {
  Rig o_Rig;
  ASSERT_TRUE(o_Rig.f_Start());
  const std::string str_File = o_Rig.o_Box.f_Path(A_C_DB);
  const std::string str_Cuts = f_MakeTempDir("syssrv-cuts");
  // Below the ring's bound, so that every stored report keeps its row.
  Storm o_Storm(o_Rig.o_Client);
  for (int i = 0; i < 400; ++i) o_Storm.f_Send(f_Code(2000 + i));
  // Copies of the file and its journal at random moments are what a power cut leaves.
  std::mt19937 o_Rand(12345);
  int i_Cuts = 0;
  ASSERT_TRUE(f_WaitUntil([&] { return o_Storm.ui_Answered >= 40; }, 60000));
  for (; i_Cuts < 5 && o_Storm.ui_Answered < o_Storm.ui_Sent; ++i_Cuts) {
    std::string str_Dir = str_Cuts + "/" + std::to_string(i_Cuts);
    fs::create_directories(str_Dir);
    std::error_code o_Ec;
    fs::copy_file(str_File + "-journal", str_Dir + "/syserrors.sq3-journal", o_Ec);
    fs::copy_file(str_File, str_Dir + "/syserrors.sq3", o_Ec);
    f_Pump(static_cast<int>(5 + o_Rand() % 30));
  }
  kill(o_Rig.o_Daemon.f_Pid(), SIGKILL);
  o_Rig.o_Daemon.f_WaitExit(10000);
  f_Pump(300);  // replies already on their way still arrive
  const std::set<int> o_Replied = o_Storm.o_Replied;
  std::set<int> o_Rows = f_StoredCodes(str_File);
  size_t ui_Lost = 0;
  for (int i_Coded : o_Replied) ui_Lost += o_Rows.count(i_Coded) == 0;
  EXPECT_EQ(0u, ui_Lost) << "of " << o_Replied.size() << " replied";
  std::cout << "[ figure ] kill -9 in a storm: " << o_Storm.ui_Sent << " sent, " << o_Replied.size()
            << " replied, " << o_Rows.size() << " rows, " << ui_Lost << " replied but lost\n";
  // The service comes back on what kill -9 left.
  {
    Daemon o_Again(o_Rig.o_Box, o_Rig.o_Bus);
    ASSERT_TRUE(o_Again.f_Start(60000)) << o_Again.f_Log();
    EXPECT_EQ(0, o_Again.f_Stop()) << o_Again.f_Log();
  }
  // ... and on every power-cut copy.
  for (int i = 0; i < i_Cuts; ++i) {
    Rig o_Cut([&](const Sandbox& o_B) {
      std::error_code o_Ec;
      for (const char* z_c_Name : {"/syserrors.sq3", "/syserrors.sq3-journal"})
        fs::copy_file(str_Cuts + "/" + std::to_string(i) + z_c_Name, o_B.f_Path("/mnt/log") + z_c_Name,
                      fs::copy_options::overwrite_existing, o_Ec);
    });
    ASSERT_TRUE(o_Cut.f_Start()) << "cut " << i;
    f_ExpectWorkingStore(o_Cut, "power cut " + std::to_string(i));
    std::string str_Err;
    f_StoredCodes(o_Cut.o_Box.f_Path(A_C_DB), &str_Err);
    EXPECT_EQ("", str_Err) << "cut " << i;
    EXPECT_EQ(0, o_Cut.o_Daemon.f_Stop()) << o_Cut.o_Daemon.f_Log();
  }
  std::cout << "[ figure ] power cuts: " << i_Cuts << " copies, each started with a working store\n";
  f_RemoveTree(str_Cuts);
}
