// Batch counters over the bus: replies, files and the announcements the tool process reloads on.
// What a text does to the sets is unit_BatchCntCfg's and fuzz_batchcnt_set's.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

#include "Harness.h"

using namespace it;

namespace {
constexpr const char* A_C_PRG = "/home/tool/config/OkNokCntCfg.json";
constexpr const char* A_C_JOB = "/home/tool/config/JobOkNokCntCfg.json";
constexpr const char* A_C_PRG2 = "/home/tool/config/OkNokCntCfg2.json";

// Sets that exist before the service starts must survive its first change.
void f_TwoFiles(const Sandbox& o_Box) {
  o_Box.f_Write(A_C_PRG, R"({"CntrSets":[{"Id":1,"MaxOk":3},{"Id":2}],"BmsSelect":true})");
  o_Box.f_Write(A_C_JOB, R"({"CntrSets":[{"Id":3}],"BmsSelect":false})");
}

class BatchBus : public ServiceSuite<f_TwoFiles> {
 protected:
  // The reply of "fbatchcntrget" as GVariant text.
  std::string f_List() {
    Variant_T o_R(o_Client.f_Call("fbatchcntrget"));
    return o_R ? GChars_T(g_variant_print(o_R.get(), FALSE)).get() : "error reply";
  }
  // The sets of a counter file as "Id:MaxOk/MaxNok ...".
  std::string f_Sets(const char* z_c_Path) {
    CJsonTree_T o_Tree(cJSON_Parse(o_Box.f_Read(z_c_Path).c_str()));
    std::string str_Out;
    const cJSON* z_o_Set = nullptr;
    cJSON_ArrayForEach(z_o_Set, cJSON_GetObjectItem(o_Tree.get(), "CntrSets")) {
      auto f_Num = [&](const char* z_c_Key) {
        const cJSON* z_o_Num = cJSON_GetObjectItem(z_o_Set, z_c_Key);
        return cJSON_IsNumber(z_o_Num) ? std::to_string(z_o_Num->valueint) : std::string("-");
      };
      str_Out +=
          (str_Out.empty() ? "" : " ") + f_Num("Id") + ":" + f_Num("MaxOk") + "/" + f_Num("MaxNok");
    }
    return str_Out;
  }
  // What a call (arguments as GVariant text) did to a file: "announced", "written", both or
  // "". Every rewrite renames a new file into place, so a new inode means "written".
  std::string f_Effect(const char* z_c_Path, const char* z_c_Method, const char* z_c_Args) {
    auto f_Inode = [&] {
      struct stat o_St {};
      return stat(o_Box.f_Path(z_c_Path).c_str(), &o_St) == 0 ? o_St.st_ino : 0;
    };
    const ino_t ui_Inode = f_Inode();
    const size_t ui_Announced = o_Rec.f_Announced(z_c_Path);
    EXPECT_TRUE(o_Client.f_Invoke(z_c_Method, g_variant_new_parsed(z_c_Args)));
    const bool b_Written = f_Inode() != ui_Inode;
    return std::string(o_Rec.f_Announced(z_c_Path) > ui_Announced ? "announced" : "") +
           (b_Written ? " written" : "");
  }
};
}  // namespace

// Whatever text a client sends, the reply is success and the file is rewritten and announced.
TEST_F(BatchBus, SetClearAndDeleteEachTakeTheirBranch) {
  // Method, arguments, the file, what the call did to it and the file's sets afterwards.
  const char* a_z_c_Steps[][5] = {
      // Any destination other than 0 is the job configuration.
      {"fbatchcntrset", R"((1, '{"Id":6}'))", A_C_JOB, "announced written", "3:0/0 6:0/0"},
      {"fbatchcntrset", R"((-1, '{"Id":7}'))", A_C_JOB, "announced written", "3:0/0 6:0/0 7:0/0"},
      {"fbatchcntrset", R"((0, '{"Id":5}'))", A_C_PRG, "announced written", "1:3/0 2:0/0 5:0/0"},
      {"fbatchcntrset", "(0, 'not json')", A_C_PRG, "announced written", "1:3/0 2:0/0 5:0/0"},
      {"fbatchcntrdel", "(-1,)", A_C_PRG, "announced written", ""},
      {"fbatchcntrset", R"((0, '{"Id":30,"MaxOk":9,"MaxNok":4}'))", A_C_PRG, "announced written",
       "30:9/4"},
      {"fbatchcntrset", R"((0, '{"Id":31,"MaxOk":8}'))", A_C_PRG, "announced written",
       "30:9/4 31:8/0"},
      // -2 and -3 only announce; no file is touched or made.
      {"fbatchcntrclear", "(-2,)", A_C_PRG, "announced", "30:9/4 31:8/0"},
      {"fbatchcntrclear", "(-3,)", A_C_PRG2, "announced", ""},
      // A number zeroes the sizes of that set only.
      {"fbatchcntrclear", "(30,)", A_C_PRG, "announced written", "30:0/0 31:8/0"},
      // -1 resets every set, without an announcement.
      {"fbatchcntrclear", "(-1,)", A_C_PRG, " written", "30:0/0 31:0/0"},
      // Deleting an unknown id neither writes nor announces.
      {"fbatchcntrdel", "(42,)", A_C_PRG, "", "30:0/0 31:0/0"},
      {"fbatchcntrdel", "(30,)", A_C_PRG, "announced written", "31:0/0"},
  };
  for (const auto& a_z_c_S : a_z_c_Steps) {
    SCOPED_TRACE(std::string(a_z_c_S[0]) + a_z_c_S[1]);
    EXPECT_EQ(f_Effect(a_z_c_S[2], a_z_c_S[0], a_z_c_S[1]), a_z_c_S[3]);
    EXPECT_EQ(f_Sets(a_z_c_S[2]), a_z_c_S[4]);
  }
  EXPECT_NE(o_Box.f_Read(A_C_PRG).find("\"BmsSelect\":\ttrue"), std::string::npos);
  EXPECT_EQ(f_List(), "([0x1f],)");
}

// A damaged file fails the list; an announced change reloads the program sets, not the job's.
TEST_F(BatchBus, DamagedFileAndAnnouncedChanges) {
  o_Box.f_Write(A_C_PRG, "{\"CntrSets\":[{\"Id\":50}");
  EXPECT_EQ(f_List(), "error reply");

  o_Box.f_Write(A_C_PRG, R"({"CntrSets":[{"Id":61,"MaxOk":6}],"BmsSelect":false})");
  o_Box.f_Write(A_C_JOB, R"({"CntrSets":[{"Id":62}],"BmsSelect":false})");
  EXPECT_EQ(f_Effect(A_C_PRG, "fcfgfilechanged", R"(('/home/tool/config/OkNokCntCfg.json',))"),
            "announced");
  EXPECT_EQ(f_Effect(A_C_JOB, "fcfgfilechanged", R"(('/home/tool/config/JobOkNokCntCfg.json',))"),
            "announced");
  ASSERT_EQ(f_Effect(A_C_PRG, "fbatchcntrset", R"((0, '{"Id":63}'))"), "announced written");
  EXPECT_EQ(f_Sets(A_C_PRG), "61:6/0 63:0/0");
  ASSERT_EQ(f_Effect(A_C_JOB, "fbatchcntrset", R"((1, '{"Id":64}'))"), "announced written");
  EXPECT_EQ(f_Sets(A_C_JOB), "3:0/0 6:0/0 7:0/0 64:0/0");
}
