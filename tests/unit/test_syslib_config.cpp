// Configuration files: the cross-process lock, atomic writes and key editing.
#include <glib.h>
#include <gtest/gtest.h>

#include <cjson/cJSON.h>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "TestSupport.h"
#include "sysLib/ConfigFile.h"

namespace {
constexpr const char* A_C_CFG = "/home/tool/config/Test.json";
using Cfg = ConfigFileHelper_CL;

class CountingCfg_CL : public AbstractConfigFile_CL {
 public:
  CountingCfg_CL() : AbstractConfigFile_CL(A_C_CFG) {}
  int f_ReadFile() override {
    ++i_Reads;
    return i_Result;
  }
  int i_Reads = 0;
  int i_Result = 0;
};

// The lock as another process sees it: free when a new open file description gets it.
bool f_LockIsFree(const std::string& str_Lock) {
  int i_Fd = open(str_Lock.c_str(), O_RDWR);
  bool b_Free = i_Fd >= 0 && flock(i_Fd, LOCK_EX | LOCK_NB) == 0;
  if (i_Fd >= 0) close(i_Fd);
  return b_Free;
}

gint64 f_MsSince(gint64 i_StartUs) { return (g_get_monotonic_time() - i_StartUs) / 1000; }
}  // namespace

TEST(ConfigFile, LockHeldElsewhereTimesOutThenIsTakenAndNestsWithReads) {
  TempRoot o_Root;
  o_Root.f_Write(A_C_CFG, "{}");
  const std::string str_Lock = o_Root.f_Path(std::string(A_C_CFG) + ".lock");
  // An open file description of its own holds the lock as another process would.
  int i_Fd = open(str_Lock.c_str(), O_RDWR | O_CREAT, 0666);
  ASSERT_EQ(flock(i_Fd, LOCK_EX), 0);
  fchmod(i_Fd, 0666);  // left open to all by an older version
  CountingCfg_CL o_Cfg;
  gint64 i_Start = g_get_monotonic_time();
  EXPECT_EQ(o_Cfg.f_Read(200), -1);
  EXPECT_GE(f_MsSince(i_Start), 190);
  EXPECT_LT(f_MsSince(i_Start), 1000);
  EXPECT_EQ(o_Cfg.i_Reads, 0);
  // Anyone who may open a lock file may take the lock and stall the service's writers.
  struct stat o_St {};
  ASSERT_EQ(stat(str_Lock.c_str(), &o_St), 0);
  EXPECT_EQ(o_St.st_mode & 07777u, 0660u);
  std::thread o_Holder([i_Fd] {
    g_usleep(150 * 1000);  // until the wait is under way
    close(i_Fd);
  });
  i_Start = g_get_monotonic_time();
  EXPECT_EQ(o_Cfg.f_LockFile(-1), 0);
  EXPECT_GE(f_MsSince(i_Start), 50);
  o_Holder.join();
  // A read inside the caller's own lock keeps it, and a failed read still unlocks.
  o_Cfg.i_Result = -1;
  EXPECT_EQ(o_Cfg.f_Read(100), -1);
  EXPECT_FALSE(f_LockIsFree(str_Lock));
  EXPECT_EQ(o_Cfg.f_UnlockFile(), 0);
  EXPECT_TRUE(f_LockIsFree(str_Lock));
  EXPECT_EQ(o_Cfg.f_NewCfg(A_C_CFG), -1);
  EXPECT_EQ(o_Cfg.i_Reads, 2);
  EXPECT_TRUE(f_LockIsFree(str_Lock));
}

TEST(ConfigFile, SetKeyEditsInPlaceAndTheWriteIsAtomic) {
  TempRoot o_Root;
  o_Root.f_Write(A_C_CFG, R"({"old":1})");
  CJsonTree_T o_Tree(cJSON_Parse(R"({"A":1,"S":{"x":1,"y":2},"B":"t"})"));
  EXPECT_EQ(Cfg::f_SetCfgKey(o_Tree.get(), "S", "x", 5), 0);
  EXPECT_EQ(Cfg::f_SetCfgKey(o_Tree.get(), nullptr, "A", std::string("s")), 0);
  EXPECT_EQ(Cfg::f_SetCfgKey(o_Tree.get(), "", "C", 2.5), 0);
  EXPECT_EQ(Cfg::f_SetCfgKey(o_Tree.get(), "New", "k", true), 0);
  EXPECT_EQ(Cfg::f_SetCfgKey(o_Tree.get(), "B", "n", 7UL), 0);  // "B" was a string
  EXPECT_EQ(Cfg::f_SetCfgKey(o_Tree.get(), "S", "z", -3L), 0);
  ASSERT_EQ(Cfg::f_WriteCfgFile(o_Tree.get(), A_C_CFG), 0);
  CJsonTree_T o_Back(cJSON_Parse(o_Root.f_Read(A_C_CFG).c_str()));
  EXPECT_STREQ(CJsonText_T(cJSON_PrintUnformatted(o_Back.get())).get(),
               R"({"A":"s","S":{"x":5,"y":2,"z":-3},"B":{"n":7},"C":2.5,"New":{"k":true}})");

  // Make the write fail half-way (file size limit): the old file must survive whole.
  std::string str_Before = o_Root.f_Read(A_C_CFG);
  struct rlimit o_Old {};
  getrlimit(RLIMIT_FSIZE, &o_Old);
  const struct rlimit o_Small = {8, o_Old.rlim_max};
  signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &o_Small);
  int i_Ret = Cfg::f_WriteCfgFile(o_Back.get(), A_C_CFG);
  setrlimit(RLIMIT_FSIZE, &o_Old);
  signal(SIGXFSZ, SIG_DFL);
  EXPECT_EQ(i_Ret, -1);
  EXPECT_EQ(o_Root.f_Read(A_C_CFG), str_Before);
  // Only the file itself: no temporary left behind.
  std::filesystem::directory_iterator o_Dir(o_Root.f_Path("/home/tool/config"));
  EXPECT_EQ(std::distance(o_Dir, std::filesystem::directory_iterator()), 1);
}
