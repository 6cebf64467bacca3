// The channel configuration as other processes read it, and the semaphore saying it is valid.
#include <gtest/gtest.h>

#include <cerrno>
#include <cjson/cJSON.h>
#include <climits>
#include <fcntl.h>
#include <set>
#include <string>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

#include "TestSupport.h"
#include "sysLib/NamedSem.h"
#include "sysLib/SysChanCfg.h"

namespace {
constexpr const char* A_C_PATH = "/home/tool/config/ChanCfg.json";

class Probe_CL : public SysChanCfg_CL {
 public:
  Probe_CL() : SysChanCfg_CL(true) {}
  using SysChanCfg_CL::b_EinheitValid;
  using SysChanCfg_CL::b_LimitsValid;
  using SysChanCfg_CL::b_TorqueUnitValid;
  using SysChanCfg_CL::f_WriteKey;
  using SysChanCfg_CL::i_KanalNr;
};

// Calls f_Row(row, key) for every row of the key table that has a member.
template <typename F>
void f_EachRow(F f_Row) {
  for (size_t ui_Row = 0; ui_Row < SysChanCfg_CL::ui_NrKeys; ++ui_Row)
    if (SysChanCfg_CL::a_o_Keys[ui_Row].f_Member != nullptr)
      f_Row(static_cast<int>(ui_Row), SysChanCfg_CL::a_o_Keys[ui_Row]);
}

// A value no default has and a lossy conversion would change (type edges, dates after 2038).
void f_Distinct(std::string& str_V, int i_Row) {
  str_V = "v" + std::to_string(i_Row) + " \"\u00fc\\";
}
void f_Distinct(int& i_V, int i_Row) { i_V = i_Row % 2 == 0 ? INT_MIN + i_Row : INT_MAX - i_Row; }
void f_Distinct(unsigned int& ui_V, int i_Row) { ui_V = UINT_MAX - static_cast<unsigned>(i_Row); }
void f_Distinct(unsigned long& ul_V, int i_Row) {
  ul_V = 4000000000ul + static_cast<unsigned>(i_Row);
}
void f_Distinct(long long& ll_V, int i_Row) { ll_V = 4102444800LL + i_Row; }
void f_Distinct(float& fl_V, int i_Row) { fl_V = i_Row % 2 == 0 ? 0.1f * (i_Row + 3) : -3.0e38f; }
void f_Distinct(double& d_V, int i_Row) { d_V = 0.1 * (i_Row + 3); }
void f_Distinct(bool& b_V, int) { b_V = true; }

// Every member of o_Got equals that of o_Want.
void f_ExpectSameMembers(Probe_CL& o_Want, Probe_CL& o_Got) {
  f_EachRow([&](int, const ChanCfgKey_ST& o_Key) {
    SCOPED_TRACE(std::string(o_Key.z_c_Section != nullptr ? o_Key.z_c_Section : "") + "/" +
                 o_Key.z_c_Key);
    std::visit(
        [](auto* z_Want, auto* z_Got) {
          if constexpr (std::is_same_v<decltype(z_Want), decltype(z_Got)>) {
            EXPECT_EQ(*z_Got, *z_Want);
          } else {
            ADD_FAILURE() << "the member changed its type";
          }
        },
        o_Key.f_Member(o_Want), o_Key.f_Member(o_Got));
  });
}
}  // namespace

// Catches a row whose reader and writer disagree on key, section or conversion, and rows
// that share a key or a member.
TEST(SysChanCfg, EveryKeyRoundTripsThroughTheFile) {
  TempRoot o_Root;
  o_Root.f_Write(A_C_PATH, "{}");
  Probe_CL o_Out;
  std::set<const void*> o_Members;
  CJsonTree_T o_Tree(cJSON_CreateObject());
  f_EachRow([&](int i_Row, const ChanCfgKey_ST& o_Key) {
    std::visit(
        [&](auto* z_Member) {
          EXPECT_TRUE(o_Members.insert(z_Member).second) << "row " << i_Row << " shares a member";
          f_Distinct(*z_Member, i_Row);
        },
        o_Key.f_Member(o_Out));
    EXPECT_EQ(o_Out.f_WriteKey(o_Tree.get(), o_Key), 0) << i_Row;
  });
  o_Root.f_Write(A_C_PATH, CJsonText_T(cJSON_Print(o_Tree.get())).get());
  Probe_CL o_In;
  f_ExpectSameMembers(o_Out, o_In);
}

// Older software wrote other JSON types: such keys read as missing; numbers are clamped.
TEST(SysChanCfg, MistypedKeysReadAsAbsentAndNumbersAreClamped) {
  TempRoot o_Root;
  o_Root.f_Write(A_C_PATH, "{}");
  Probe_CL o_Empty;
  CJsonTree_T o_Tree(cJSON_CreateObject());
  f_EachRow([&](int, const ChanCfgKey_ST& o_Key) {
    std::visit(
        [&](auto* z_Member) {
          if constexpr (std::is_same_v<decltype(z_Member), std::string*>)
            ConfigFileHelper_CL::f_SetCfgKey(o_Tree.get(), o_Key.z_c_Section, o_Key.z_c_Key, 7);
          else
            ConfigFileHelper_CL::f_SetCfgKey(o_Tree.get(), o_Key.z_c_Section, o_Key.z_c_Key,
                                             std::string("12"));
        },
        o_Key.f_Member(o_Empty));
  });
  cJSON_ReplaceItemInObject(o_Tree.get(), "Abtrieb", cJSON_Parse("[4,0.95]"));
  o_Root.f_Write(A_C_PATH, CJsonText_T(cJSON_Print(o_Tree.get())).get());
  Probe_CL o_Mistyped;
  f_ExpectSameMembers(o_Empty, o_Mistyped);

  o_Root.f_Write(A_C_PATH, R"({"KanalNr":1e20,"Wartung":{"Zyklus":-5,"Datum":1800000000}})");
  Probe_CL o_Cfg;
  EXPECT_EQ(o_Cfg.i_KanalNr, INT_MAX);
  EXPECT_EQ(o_Cfg.f_GetNextServiceCycle(), 0u);
  EXPECT_EQ(o_Cfg.f_GetNextServiceDate(), 1800000000L);
}

TEST(SysChanCfg, ValidityAndRepairFlagsFollowTheFile) {
  // {file (null: none), valid}. One limits section alone is not enough; members of the wrong
  // type are absent (all of them right is the channel configuration's test, which then leaves
  // the file alone): no row has a section the repair may keep.
  const std::pair<const char*, bool> a_o_Cases[] = {
      {nullptr, false},
      {R"({"MNR":5521730002,"TypschildCrc":"2FE0"})", false},
      {R"({"MNR":"","TypschildCrc":""})", true},
      {R"({"MNR":"1","TypschildCrc":"2","EinheitDrehmoment":[],"Grenzen":{},"Grenzen_V1200":7,
           "Einheit":"0"})",
       true},
  };
  for (const auto& [z_c_Json, b_Valid] : a_o_Cases) {
    SCOPED_TRACE(z_c_Json != nullptr ? z_c_Json : "(no file)");
    TempRoot o_Root;
    if (z_c_Json != nullptr) o_Root.f_Write(A_C_PATH, z_c_Json);
    Probe_CL o_Cfg;
    EXPECT_EQ(o_Cfg.f_IsConfigValid(), b_Valid);
    EXPECT_FALSE(o_Cfg.b_TorqueUnitValid || o_Cfg.b_LimitsValid || o_Cfg.b_EinheitValid);
  }
}

// Other processes take the configuration as valid only while the name exists.
TEST(NamedSem, OpeningNeedsTheNameAndTheCreatorInitialisesIt) {
  TempRoot o_Root;
  errno = 0;
  EXPECT_EQ(f_SemOpen("/ChanCfgValid", O_RDWR), nullptr);
  EXPECT_EQ(errno, ENOENT);
  auto o_Sem = f_SemOpen("/ChanCfgValid", O_CREAT | O_RDWR, 0600, 2);
  ASSERT_NE(o_Sem, nullptr);
  int i_Value = -1;
  EXPECT_EQ(o_Sem->f_GetValue(&i_Value), 0);
  EXPECT_EQ(i_Value, 2);
  for (const char* z_c_Bad : {"", "/a/b", "/.."}) EXPECT_EQ(f_SemOpen(z_c_Bad, O_CREAT), nullptr);
}

// A semaphore initialised again by a second creator would lose the posts made before.
TEST(NamedSem, ConcurrentCreatorsNeverResetAnotherProcessesPosts) {
  TempRoot o_Root;
  constexpr int I_PROCS = 8;
  for (int i_Round = 0; i_Round < 20; ++i_Round) {
    for (int i = 0; i < I_PROCS; ++i) {
      if (fork() != 0) continue;
      auto o_Sem = f_SemOpen("/Race", O_CREAT | O_RDWR, 0600, 0);
      _exit(o_Sem != nullptr && o_Sem->f_Post() == 0 ? 0 : 1);
    }
    for (int i = 0, i_Status = -1; i < I_PROCS; ++i) {
      ASSERT_GT(wait(&i_Status), 0);
      ASSERT_TRUE(WIFEXITED(i_Status) && WEXITSTATUS(i_Status) == 0);
    }
    auto o_Sem = f_SemOpen("/Race", O_RDWR);
    int i_Value = -1;
    ASSERT_TRUE(o_Sem != nullptr && o_Sem->f_GetValue(&i_Value) == 0);
    ASSERT_EQ(i_Value, I_PROCS) << "round " << i_Round;
    ASSERT_EQ(f_SemUnlink("/Race"), 0);
  }
}
