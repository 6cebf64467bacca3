// Batch-counter configurations: counter sets from JSON and from sizes, the file as the tool
// process reads it, and what bad input or a damaged file does to the sets held.
#include <gtest/gtest.h>

#include <cjson/cJSON.h>
#include <climits>
#include <string>
#include <regex>
#include <tuple>
#include <unistd.h>
#include <vector>

#include "BatchCntCfg.h"
#include "TestSupport.h"
#include "sysLib/Holders.h"

namespace {
constexpr const char* A_C_PRG = "/home/tool/config/OkNokCntCfg.json";

// MaxOk, MaxNok, DirectionOk, DirectionNok, LockTool, LockCcw, LockCcwAfterOk/Nok.
using Set_T = std::tuple<int, int, bool, bool, bool, bool, bool, bool>;

Set_T f_Get(const SysBatchCntCfg_CL& o_Cfg, int i_Id) {
  CounterSet_ST o{};
  if (o_Cfg.f_GetCounterSet(i_Id, &o) != 0) return Set_T{-7, -7, 0, 0, 0, 0, 0, 0};
  return Set_T{o.MaxOk,    o.MaxNok,  o.DirectionOk,    o.DirectionNok,
               o.LockTool, o.LockCcw, o.LockCcwAfterOk, o.LockCcwAfterNok};
}

std::vector<int> f_Ids(const SysBatchCntCfg_CL& o_Cfg) {
  std::vector<int> o_Ids;
  CounterSet_ST o{};
  for (int i = -10; i <= 400; ++i)
    if (o_Cfg.f_GetCounterSet(i, &o) == 0) o_Ids.push_back(i);
  return o_Ids;
}

class BatchCntCfgTest : public ::testing::Test {
 protected:
  void SetUp() override { o_Root.f_Write("/home/tool/config/.keep", ""); }
  TempRoot o_Root;
};
}  // namespace

// The JSON form and the size form deliberately disagree on their defaults.
TEST_F(BatchCntCfgTest, JsonAndSizeFormsHaveTheirOwnDefaults) {
  BatchCntCfg_CL o_Cfg(A_C_PRG);
  EXPECT_EQ(o_Cfg.f_Set(R"({"Id":5})", true), 0);
  EXPECT_EQ(f_Get(o_Cfg, 5), (Set_T{0, 0, false, false, true, true, false, false}));
  // Numbers and booleans are read alike, fractions truncated, "up" matched exactly.
  EXPECT_EQ(o_Cfg.f_Set(R"({"Id":6.9,"MaxOk":4.5,"MaxNok":2,"DirectionOk":"UP",
      "DirectionNok":"up","LockTool":0,"LockCcw":3,"LockCcwAfterOk":true})",
                        true),
            0);
  EXPECT_EQ(f_Get(o_Cfg, 6), (Set_T{4, 2, false, true, false, true, true, false}));

  EXPECT_EQ(o_Cfg.f_Set(20, 10, -1, true), 0);
  EXPECT_EQ(f_Get(o_Cfg, 20), (Set_T{10, 0, true, true, true, true, true, false}));
  // On an existing set only the sizes move; -1 keeps the NOK size.
  EXPECT_EQ(o_Cfg.f_Set(6, 30, -1, false), 0);
  EXPECT_EQ(f_Get(o_Cfg, 6), (Set_T{30, 2, false, true, false, true, true, false}));
  // Without the create flag nothing new appears, in either form.
  EXPECT_EQ(o_Cfg.f_Set(21, 1, 1, false), -1);
  EXPECT_EQ(o_Cfg.f_Set(R"({"Id":22})", false), -1);
  EXPECT_EQ(f_Ids(o_Cfg), (std::vector<int>{5, 6, 20}));
}

TEST_F(BatchCntCfgTest, BadCounterSetTextChangesNothingAndHugeNumbersClamp) {
  BatchCntCfg_CL o_Cfg(A_C_PRG);
  ASSERT_EQ(o_Cfg.f_Set(R"({"Id":3,"MaxOk":8})", true), 0);
  // One text per way to fail; the fuzz_batchcnt_set corpus holds many more.
  for (const char* z_c_Text : {static_cast<const char*>(nullptr), "not json", "[1,2]",
                               R"({"MaxOk":3})", R"({"Id":-1})", R"({"Id":"4"})"}) {
    SCOPED_TRACE(z_c_Text == nullptr ? "(null)" : std::string(z_c_Text).substr(0, 30));
    EXPECT_EQ(o_Cfg.f_Set(z_c_Text, true), -1);
    EXPECT_EQ(f_Ids(o_Cfg), std::vector<int>{3});
    EXPECT_EQ(std::get<0>(f_Get(o_Cfg, 3)), 8);
  }
  ASSERT_EQ(o_Cfg.f_Set(R"({"Id":4,"MaxOk":1e300,"MaxNok":-1e400})", true), 0);
  EXPECT_EQ(std::get<0>(f_Get(o_Cfg, 4)), INT_MAX);
  EXPECT_EQ(std::get<1>(f_Get(o_Cfg, 4)), INT_MIN);
  ASSERT_EQ(o_Cfg.f_Set(R"({"Id":1e999})", true), 0);
  EXPECT_TRUE(o_Cfg.f_IsConfigured(static_cast<unsigned>(INT_MAX)));
}

// The file as the tool process parses it: formatted, keys in order, ids 0..255 only.
TEST_F(BatchCntCfgTest, FileHoldsOnlyIds0To255WithKeysInOrder) {
  o_Root.f_Write(A_C_PRG, R"({"CntrSets":[],"BmsSelect":true})");
  BatchCntCfg_CL o_Cfg(A_C_PRG);
  for (int i_Id : {300, -5, 255, 0}) ASSERT_EQ(o_Cfg.f_Set(i_Id, i_Id, 2, true), 0);
  ASSERT_EQ(o_Cfg.f_Set(R"({"Id":255,"MaxOk":7,"DirectionNok":"up","LockCcw":false})", false), 0);
  ASSERT_EQ(o_Cfg.f_SaveCfg(), 0);

  std::string str_Text = o_Root.f_Read(A_C_PRG);
  CJsonTree_T o_Tree(cJSON_Parse(str_Text.c_str()));
  ASSERT_TRUE(o_Tree) << str_Text;
  EXPECT_EQ(str_Text, CJsonText_T(cJSON_Print(o_Tree.get())).get());
  // Keys in order: the list, two sets of nine, the selection.
  std::string str_Keys;
  const std::regex o_Key(R"re("(\w+)":)re");
  for (std::sregex_iterator o_It(str_Text.begin(), str_Text.end(), o_Key), o_End; o_It != o_End;
       ++o_It)
    str_Keys += (*o_It)[1].str() + " ";
  const std::string str_Set =
      "Id MaxOk MaxNok DirectionOk DirectionNok LockTool LockCcw LockCcwAfterOk LockCcwAfterNok ";
  EXPECT_EQ(str_Keys, "CntrSets " + str_Set + str_Set + "BmsSelect ");
  EXPECT_TRUE(cJSON_IsTrue(cJSON_GetObjectItem(o_Tree.get(), "BmsSelect")));

  // The out-of-range sets stay in memory only.
  EXPECT_EQ(f_Ids(o_Cfg), (std::vector<int>{-5, 0, 255, 300}));
  SysBatchCntCfg_CL o_Reader(A_C_PRG);
  EXPECT_EQ(f_Ids(o_Reader), (std::vector<int>{0, 255}));
  EXPECT_EQ(f_Get(o_Reader, 255), (Set_T{7, 0, false, true, true, false, false, false}));
  EXPECT_EQ(f_Get(o_Reader, 0), (Set_T{0, 2, true, true, true, true, true, false}));
}

// A bad file keeps the sets last read, a bad entry costs only itself, none means no sets.
TEST_F(BatchCntCfgTest, DamagedFileKeepsTheLastGoodSets) {
  o_Root.f_Write(A_C_PRG, R"({"CntrSets":[{"Id":1},{"Id":4,"MaxOk":5}],"BmsSelect":true})");
  SysBatchCntCfg_CL o_Cfg(A_C_PRG);
  // Too large for a configuration (one unreadable file stands for all; the fuzz inputs, smaller,
  // hold the texts that fail to parse).
  o_Root.f_Write(A_C_PRG, std::string(2 * 1024 * 1024, ' '));
  EXPECT_EQ(o_Cfg.f_CfgFileChanged(A_C_PRG), -1);
  EXPECT_EQ(f_Ids(o_Cfg), (std::vector<int>{1, 4}));
  EXPECT_EQ(std::get<0>(f_Get(o_Cfg, 4)), 5);
  EXPECT_TRUE(o_Cfg.f_GetBmsSelect());
  o_Root.f_Write(A_C_PRG, R"({"CntrSets":[{"Id":2},{"MaxOk":1},7,{"Id":"3"},{"Id":6}]})");
  EXPECT_EQ(o_Cfg.f_Read(100), 0);
  EXPECT_EQ(f_Ids(o_Cfg), (std::vector<int>{2, 6}));
  ASSERT_EQ(unlink(o_Root.f_Path(A_C_PRG).c_str()), 0);
  EXPECT_EQ(o_Cfg.f_Read(100), 0);
  EXPECT_EQ(o_Cfg.f_GetNrConfiguredCounters(), 0);
}
