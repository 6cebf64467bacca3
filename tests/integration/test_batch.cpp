// Batch counters over the bus against the real daemon: replies, the counter files and the
// "cfgfilechanged" announcements the tool process reloads on.
#include <algorithm>
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "Harness.h"

using namespace it;

namespace {
constexpr const char* A_C_PRG = "/home/tool/config/OkNokCntCfg.json";
constexpr const char* A_C_JOB = "/home/tool/config/JobOkNokCntCfg.json";
constexpr const char* A_C_PRG2 = "/home/tool/config/OkNokCntCfg2.json";
using Ids = std::vector<int>;
Service* z_o_Svc = nullptr;

class BatchBus : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    // Sets that exist before the service starts must survive its first change.
    z_o_Svc = new Service([](const Sandbox& o_Box) {
      o_Box.f_Write(A_C_PRG, R"({"CntrSets":[{"Id":1,"MaxOk":3},{"Id":2}],"BmsSelect":true})");
      o_Box.f_Write(A_C_JOB, R"({"CntrSets":[{"Id":3}],"BmsSelect":false})");
    });
  }
  static void TearDownTestSuite() { delete z_o_Svc; }
  void TearDown() override { EXPECT_TRUE(z_o_Svc->o_Daemon.f_Running()); }
};

bool f_Ok(const char* z_c_Method, GVariant* o_Args) {
  return z_o_Svc->o_Client.f_Invoke(z_c_Method, o_Args);
}
bool f_Set(int i_Dest, const std::string& str_Json) {
  return f_Ok("fbatchcntrset", g_variant_new("(is)", i_Dest, str_Json.c_str()));
}
bool f_Clear(int i_Nr) { return f_Ok("fbatchcntrclear", g_variant_new("(i)", i_Nr)); }
bool f_Del(int i_Nr) { return f_Ok("fbatchcntrdel", g_variant_new("(i)", i_Nr)); }
// The listed ids, or {-1} for the error reply.
Ids f_List() {
  Variant_T o_R(z_o_Svc->o_Client.f_Call("fbatchcntrget"));
  if (!o_R) return {-1};
  Variant_T o_Bytes(g_variant_get_child_value(o_R.get(), 0));
  gsize ui_Len = 0;
  auto* z_uc_Data =
      static_cast<const guchar*>(g_variant_get_fixed_array(o_Bytes.get(), &ui_Len, 1));
  return Ids(z_uc_Data, z_uc_Data + ui_Len);
}

// The sets of a counter file by id, each printed; {-999, ""} alone when it does not parse.
std::vector<std::pair<int, std::string>> f_Sets(const char* z_c_Path) {
  CJsonTree_T o_Tree(cJSON_Parse(z_o_Svc->o_Box.f_Read(z_c_Path).c_str()));
  if (!o_Tree) return {{-999, ""}};
  std::vector<std::pair<int, std::string>> o_Sets;
  const cJSON* z_o_Set = nullptr;
  cJSON_ArrayForEach(z_o_Set, cJSON_GetObjectItem(o_Tree.get(), "CntrSets"))
      o_Sets.emplace_back(cJSON_GetObjectItem(z_o_Set, "Id")->valueint,
                          CJsonText_T(cJSON_PrintUnformatted(z_o_Set)).get());
  return o_Sets;
}
Ids f_FileIds(const char* z_c_Path) {
  Ids o_Ids;
  for (const auto& o_Set : f_Sets(z_c_Path)) o_Ids.push_back(o_Set.first);
  return o_Ids;
}
// One member of set i_Id, printed; "" when the set or the member is missing.
std::string f_Value(const char* z_c_Path, int i_Id, const char* z_c_Key) {
  for (const auto& o_Set : f_Sets(z_c_Path))
    if (o_Set.first == i_Id) return f_JsonAt(o_Set.second, z_c_Key);
  return "";
}
// Every rewrite renames a new file into place, so a new inode means "rewritten".
ino_t f_Inode(const char* z_c_Path) {
  struct stat o_St {};
  return stat(z_o_Svc->o_Box.f_Path(z_c_Path).c_str(), &o_St) == 0 ? o_St.st_ino : 0;
}
size_t f_Announced(const char* z_c_Path) {
  z_o_Svc->o_Rec.f_Sync();
  auto o_All = z_o_Svc->o_Rec.f_All("cfgfilechanged");
  return std::count_if(o_All.begin(), o_All.end(),
                       [&](const Signal_ST* z_o_S) { return f_Str(z_o_S->o_Args) == z_c_Path; });
}
}  // namespace

// Whatever a client sends, the reply is success, the file is rewritten whole and
// announced, and no set already held is lost.
TEST_F(BatchBus, SetKeepsEverySetHeldWhateverTheText) {
  ASSERT_TRUE(f_Set(0, R"({"Id":5})"));
  EXPECT_EQ(f_FileIds(A_C_PRG), (Ids{1, 2, 5}));
  EXPECT_EQ(f_Value(A_C_PRG, 1, "MaxOk"), "3");

  for (const std::string& str_Text :
       {std::string("not json"), std::string(R"({"Id":-4})"),
        R"({"Id":22,"DirectionOk":")" + std::string(300000, 'x') + "\"}",
        std::string(R"({"Id":300})")}) {
    Ids o_Before = f_FileIds(A_C_PRG);
    ino_t ui_Inode = f_Inode(A_C_PRG);
    size_t ui_Announced = f_Announced(A_C_PRG);
    EXPECT_TRUE(f_Set(0, str_Text)) << str_Text.substr(0, 60);
    EXPECT_EQ(f_Announced(A_C_PRG), ui_Announced + 1) << str_Text.substr(0, 60);
    EXPECT_NE(f_Inode(A_C_PRG), ui_Inode) << str_Text.substr(0, 60);
    Ids o_After = f_FileIds(A_C_PRG);
    EXPECT_TRUE(std::includes(o_After.begin(), o_After.end(), o_Before.begin(), o_Before.end()));
  }
  // Set 300 is held but has no counter in the tool: neither written nor listed.
  EXPECT_EQ(f_FileIds(A_C_PRG), (Ids{1, 2, 5, 22}));
  EXPECT_EQ(f_List(), (Ids{1, 2, 5, 22}));
  EXPECT_NE(z_o_Svc->o_Box.f_Read(A_C_PRG).find("\"BmsSelect\":\ttrue"), std::string::npos);

  // Any destination other than 0 is the job configuration.
  ino_t ui_PrgInode = f_Inode(A_C_PRG);
  size_t ui_Job = f_Announced(A_C_JOB);
  ASSERT_TRUE(f_Set(1, R"({"Id":6})"));
  ASSERT_TRUE(f_Set(-1, R"({"Id":7})"));
  EXPECT_EQ(f_Announced(A_C_JOB), ui_Job + 2);
  EXPECT_EQ(f_FileIds(A_C_JOB), (Ids{3, 6, 7}));
  EXPECT_EQ(f_Inode(A_C_PRG), ui_PrgInode);
}

TEST_F(BatchBus, ClearAndDeleteVariants) {
  ASSERT_TRUE(f_Set(0, R"({"Id":30,"MaxOk":9,"MaxNok":4,"DirectionOk":"up"})"));
  ASSERT_TRUE(f_Set(0, R"({"Id":31,"MaxOk":8})"));
  ino_t ui_Inode = f_Inode(A_C_PRG);
  size_t ui_Prg = f_Announced(A_C_PRG), ui_Prg2 = f_Announced(A_C_PRG2);
  // -2 and -3 only announce; no file is touched or made.
  EXPECT_TRUE(f_Clear(-2));
  EXPECT_TRUE(f_Clear(-3));
  EXPECT_EQ(f_Announced(A_C_PRG), ui_Prg + 1);
  EXPECT_EQ(f_Announced(A_C_PRG2), ui_Prg2 + 1);
  EXPECT_EQ(f_Inode(A_C_PRG), ui_Inode);
  EXPECT_FALSE(z_o_Svc->o_Box.f_Exists(A_C_PRG2));
  // A number zeroes the sizes of that set only; an unknown one creates nothing.
  EXPECT_TRUE(f_Clear(30));
  EXPECT_TRUE(f_Clear(77));
  EXPECT_EQ(f_Announced(A_C_PRG), ui_Prg + 3);
  EXPECT_EQ(f_Value(A_C_PRG, 30, "MaxOk") + f_Value(A_C_PRG, 30, "MaxNok") +
                f_Value(A_C_PRG, 30, "DirectionOk") + f_Value(A_C_PRG, 31, "MaxOk"),
            "00\"up\"8");
  EXPECT_EQ(f_Value(A_C_PRG, 77, "Id"), "");
  // -1 resets every set and rewrites the file, without an announcement.
  ui_Inode = f_Inode(A_C_PRG);
  EXPECT_TRUE(f_Clear(-1));
  EXPECT_EQ(f_Announced(A_C_PRG), ui_Prg + 3);
  EXPECT_NE(f_Inode(A_C_PRG), ui_Inode);
  EXPECT_EQ(f_Value(A_C_PRG, 31, "MaxOk") + f_Value(A_C_PRG, 31, "LockTool"), "0false");

  // Deleting an unknown id succeeds without writing or announcing.
  ui_Inode = f_Inode(A_C_PRG);
  EXPECT_TRUE(f_Del(42));
  EXPECT_EQ(f_Inode(A_C_PRG), ui_Inode);
  EXPECT_TRUE(f_Del(30));
  EXPECT_EQ(f_Announced(A_C_PRG), ui_Prg + 4);
  EXPECT_EQ(f_Value(A_C_PRG, 30, "Id") + f_Value(A_C_PRG, 31, "Id"), "31");
  EXPECT_TRUE(f_Del(-1));
  EXPECT_TRUE(f_Del(-1));  // nothing left: not announced again
  EXPECT_EQ(f_Announced(A_C_PRG), ui_Prg + 5);
  EXPECT_EQ(f_FileIds(A_C_PRG), Ids{});
  EXPECT_EQ(f_List(), Ids{});
}

// A damaged file fails the list but costs no set; an announced change reaches only the
// program configuration, the job configuration writes what it already held.
TEST_F(BatchBus, DamagedFileAndAnnouncedChanges) {
  ASSERT_TRUE(f_Set(0, R"({"Id":50})"));
  z_o_Svc->o_Box.f_Write(A_C_PRG, "{\"CntrSets\":[{\"Id\":50}");
  EXPECT_EQ(f_List(), Ids{-1});
  ASSERT_TRUE(f_Set(0, R"({"Id":52})"));
  EXPECT_EQ(f_FileIds(A_C_PRG), (Ids{50, 52}));

  Ids o_JobHeld = f_FileIds(A_C_JOB);
  z_o_Svc->o_Box.f_Write(A_C_PRG, R"({"CntrSets":[{"Id":61,"MaxOk":6}],"BmsSelect":false})");
  z_o_Svc->o_Box.f_Write(A_C_JOB, R"({"CntrSets":[{"Id":62}],"BmsSelect":false})");
  size_t ui_Job = f_Announced(A_C_JOB);
  EXPECT_TRUE(f_Ok("fcfgfilechanged", g_variant_new("(s)", A_C_PRG)));
  EXPECT_TRUE(f_Ok("fcfgfilechanged", g_variant_new("(s)", A_C_JOB)));
  EXPECT_EQ(f_Announced(A_C_JOB), ui_Job + 1);
  ASSERT_TRUE(f_Set(0, R"({"Id":63})"));
  EXPECT_EQ(f_FileIds(A_C_PRG), (Ids{61, 63}));
  EXPECT_EQ(f_Value(A_C_PRG, 61, "MaxOk"), "6");
  ASSERT_TRUE(f_Set(1, R"({"Id":64})"));
  o_JobHeld.push_back(64);
  EXPECT_EQ(f_FileIds(A_C_JOB), o_JobHeld);
}
