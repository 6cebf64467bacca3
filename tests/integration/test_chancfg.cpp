// The channel configuration against the real daemon: the file it builds at start-up, the
// maintenance factor over the bus and a file changed by another process.
#include <cjson/cJSON.h>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

#include "Harness.h"

using namespace it;

namespace {
constexpr const char* A_C_CFG = "/home/tool/config/ChanCfg.json";
constexpr const char* A_C_SEM = "/dev/shm/sem.ChanCfgValid";

// The parsed file, for reading values by "Section/Key".
class CfgFile_CL {
 public:
  explicit CfgFile_CL(const Sandbox& o_Box)
      : z_o_Tree(cJSON_Parse(o_Box.f_Read(A_C_CFG).c_str())) {}
  ~CfgFile_CL() { cJSON_Delete(z_o_Tree); }
  CfgFile_CL(const CfgFile_CL&) = delete;
  CfgFile_CL& operator=(const CfgFile_CL&) = delete;
  bool f_Ok() const { return cJSON_IsObject(z_o_Tree); }
  const cJSON* f_At(const char* z_c_Section, const char* z_c_Key) const {
    const cJSON* z_o_Parent =
        z_c_Section != nullptr ? cJSON_GetObjectItemCaseSensitive(z_o_Tree, z_c_Section) : z_o_Tree;
    return cJSON_GetObjectItemCaseSensitive(z_o_Parent, z_c_Key);
  }
  double f_Num(const char* z_c_Section, const char* z_c_Key) const {
    const cJSON* z_o_Item = f_At(z_c_Section, z_c_Key);
    EXPECT_TRUE(cJSON_IsNumber(z_o_Item)) << z_c_Key;
    return cJSON_IsNumber(z_o_Item) ? z_o_Item->valuedouble : -999999.0;
  }
  std::string f_Str(const char* z_c_Section, const char* z_c_Key) const {
    const cJSON* z_o_Item = f_At(z_c_Section, z_c_Key);
    return cJSON_IsString(z_o_Item) ? z_o_Item->valuestring : "<none>";
  }
  // "Wert" of unit i_Id in "Grenzen_V1200"/z_c_Table.
  double f_Limit(const char* z_c_Table, int i_Id) const {
    const cJSON* z_o_Entry = nullptr;
    cJSON_ArrayForEach(z_o_Entry, f_At("Grenzen_V1200", z_c_Table)) {
      if (cJSON_GetObjectItem(z_o_Entry, "Id")->valueint == i_Id)
        return cJSON_GetObjectItem(z_o_Entry, "Wert")->valuedouble;
    }
    return -999999.0;
  }

 private:
  cJSON* z_o_Tree;
};

// Changes the file as another process of the tool would.
void f_EditCfg(const Sandbox& o_Box, const std::function<void(cJSON*)>& f_Change) {
  cJSON* z_o_Tree = cJSON_Parse(o_Box.f_Read(A_C_CFG).c_str());
  ASSERT_NE(z_o_Tree, nullptr);
  f_Change(z_o_Tree);
  char* z_c_Text = cJSON_Print(z_o_Tree);
  o_Box.f_Write(A_C_CFG, z_c_Text);
  cJSON_free(z_c_Text);
  cJSON_Delete(z_o_Tree);
}

void f_SetNumber(cJSON* z_o_Tree, const char* z_c_Section, const char* z_c_Key, double d_Value) {
  cJSON* z_o_Section = cJSON_GetObjectItemCaseSensitive(z_o_Tree, z_c_Section);
  cJSON_ReplaceItemInObjectCaseSensitive(z_o_Section, z_c_Key, cJSON_CreateNumber(d_Value));
}

bool f_IsCfgPath(GVariant* o_Args) {
  return g_variant_is_of_type(o_Args, G_VARIANT_TYPE("(s)")) && f_Str(o_Args) == A_C_CFG;
}
}  // namespace

class ChanCfgBus : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    z_o_Bus = new PrivateBus();
    z_o_Box = new Sandbox();  // the simulator writes no ChanCfg.json
    z_o_Client = new BusClient(z_o_Bus->f_Address());
    z_o_Rec = new SignalRecorder(*z_o_Client);
    z_o_Daemon = new Daemon(*z_o_Box, *z_o_Bus);
    ASSERT_TRUE(z_o_Daemon->f_Start()) << z_o_Daemon->f_Log();
  }
  static void TearDownTestSuite() {
    EXPECT_EQ(z_o_Daemon->f_Stop(), 0) << z_o_Daemon->f_Log();
    // Without the service the configuration no longer counts as valid.
    EXPECT_FALSE(z_o_Box->f_Exists(A_C_SEM));
    delete z_o_Daemon;
    delete z_o_Rec;
    delete z_o_Client;
    delete z_o_Box;
    delete z_o_Bus;
  }
  void TearDown() override { EXPECT_TRUE(z_o_Daemon->f_Running()) << z_o_Daemon->f_Log(); }

  static PrivateBus* z_o_Bus;
  static Sandbox* z_o_Box;
  static BusClient* z_o_Client;
  static SignalRecorder* z_o_Rec;
  static Daemon* z_o_Daemon;
};
PrivateBus* ChanCfgBus::z_o_Bus;
Sandbox* ChanCfgBus::z_o_Box;
BusClient* ChanCfgBus::z_o_Client;
SignalRecorder* ChanCfgBus::z_o_Rec;
Daemon* ChanCfgBus::z_o_Daemon;

TEST_F(ChanCfgBus, StartBuildsTheWholeFileFromTheNameplates) {
  CfgFile_CL o_Cfg(*z_o_Box);
  ASSERT_TRUE(o_Cfg.f_Ok()) << z_o_Box->f_Read(A_C_CFG);
  EXPECT_EQ(o_Cfg.f_Str(nullptr, "MNR"), "5521730002");
  EXPECT_EQ(o_Cfg.f_Str(nullptr, "Code"), "AKS30");
  EXPECT_EQ(o_Cfg.f_Str("Getriebe", "MNR"), "8843160102");
  EXPECT_EQ(o_Cfg.f_Str("Abtrieb", "MNR"), "8843270A02");
  EXPECT_EQ(o_Cfg.f_Str("Motor", "MNR"), "8843480102");
  // By hand: 0.775 Nm × 12 × 0.85 × 4 × 0.95 = 30.039 Nm; × 0.73756 = 22.156 ft·lb;
  // overload 30039 × 1.1 = 33042.9 → 33.043; 24000 rpm / (12 × 4) = 500, 1000 / 48 = 20.8,
  // 450 / 48 = 9.4.
  EXPECT_EQ(o_Cfg.f_Num("Grenzen", "MomentMax"), 30.039);
  EXPECT_EQ(o_Cfg.f_Num("Grenzen", "Ueberlast"), 33.043);
  EXPECT_EQ(o_Cfg.f_Num("Grenzen", "MomentMin"), 0);
  EXPECT_EQ(o_Cfg.f_Num("Grenzen", "DrehzahlMax"), 500);
  EXPECT_EQ(o_Cfg.f_Num("Grenzen", "DrehzahlMin"), 20);
  EXPECT_EQ(o_Cfg.f_Num("Grenzen_V1200", "DrehzahlMinReduziert"), 9);
  EXPECT_EQ(o_Cfg.f_Limit("MomentMax", 1), 22.156);
  EXPECT_DOUBLE_EQ(o_Cfg.f_Limit("MomentMaxReduziert", 0), 30.039 * 0.75);
  EXPECT_FALSE(cJSON_IsTrue(o_Cfg.f_At("Wartung", "Aktiv")));

  EXPECT_TRUE(z_o_Box->f_Exists(A_C_SEM));
  EXPECT_EQ(z_o_Box->f_Read("/var/sysdiag/code"), "AKS30");
  // The announcement of the start-up write came before the bus existed and was dropped.
  EXPECT_NE(z_o_Daemon->f_Log().find("cfgfilechanged not sent"), std::string::npos);
  z_o_Rec->f_Sync();
  EXPECT_EQ(z_o_Rec->f_Count("cfgfilechanged"), 0u);
}

TEST_F(ChanCfgBus, MfuOverTheBusRescalesTheLimitsOnce) {
  // The nameplate puts its own count into the store at start; this is a later one.
  ASSERT_EQ(z_o_Box->f_Sim("cycle 4242"), 0);
  z_o_Rec->f_Sync();
  z_o_Rec->f_Clear();
  const double d_T0 = static_cast<double>(time(nullptr));
  GVariant* o_R = z_o_Client->f_CallOk("fmfuset", g_variant_new("(i)", 800));
  ASSERT_NE(o_R, nullptr);
  EXPECT_STREQ(g_variant_get_type_string(o_R), "()");
  g_variant_unref(o_R);
  ASSERT_NE(z_o_Rec->f_WaitFor("cfgfilechanged", 5000, f_IsCfgPath), nullptr);
  const double d_T1 = static_cast<double>(time(nullptr));
  {
    CfgFile_CL o_Cfg(*z_o_Box);
    // 0.8 × 30039 thousandths = 24031.2 → 24.031 Nm; 0.8 × 22155.6 → 17.724 ft·lb.
    EXPECT_EQ(o_Cfg.f_Num("Grenzen", "MomentMax"), 24.031);
    EXPECT_EQ(o_Cfg.f_Limit("MomentMax", 1), 17.724);
    EXPECT_EQ(o_Cfg.f_Num("Grenzen", "DrehzahlMax"), 500);
    EXPECT_FLOAT_EQ(o_Cfg.f_Num("Mfu", "MfuFaktor"), 0.8f);
    EXPECT_EQ(o_Cfg.f_Num("Mfu", "Zyklus"), 4242);
    EXPECT_GE(o_Cfg.f_Num("Mfu", "Datum"), d_T0);
    EXPECT_LE(o_Cfg.f_Num("Mfu", "Datum"), d_T1);
  }
  const std::string str_File = z_o_Box->f_Read(A_C_CFG);

  // The same factor again: success, but nothing written and nothing announced.
  ASSERT_EQ(z_o_Box->f_Sim("cycle 5000"), 0);
  o_R = z_o_Client->f_CallOk("fmfuset", g_variant_new("(i)", 800));
  ASSERT_NE(o_R, nullptr);
  g_variant_unref(o_R);
  z_o_Rec->f_Sync();
  EXPECT_EQ(z_o_Rec->f_Count("cfgfilechanged"), 1u);
  EXPECT_EQ(z_o_Box->f_Read(A_C_CFG), str_File);

  // Whatever the factor, "fmfuget" reports 100.
  GVariant* o_Get = z_o_Client->f_CallOk("fmfuget");
  ASSERT_NE(o_Get, nullptr);
  EXPECT_EQ(f_Int(o_Get), 100);
  g_variant_unref(o_Get);
}

TEST_F(ChanCfgBus, AnnouncedChangeByAnotherProcessIsReRead) {
  const double d_Datum = CfgFile_CL(*z_o_Box).f_Num("Mfu", "Datum");
  f_EditCfg(*z_o_Box, [](cJSON* z_o_Tree) { f_SetNumber(z_o_Tree, "Abtrieb", "Faktor", 2.0); });
  z_o_Rec->f_Sync();
  z_o_Rec->f_Clear();
  GVariant* o_R = z_o_Client->f_CallOk("fcfgfilechanged", g_variant_new("(s)", A_C_CFG));
  ASSERT_NE(o_R, nullptr);
  g_variant_unref(o_R);
  ASSERT_NE(z_o_Rec->f_WaitFor("cfgfilechanged", 5000, f_IsCfgPath), nullptr);
  z_o_Rec->f_Sync();
  EXPECT_EQ(z_o_Rec->f_Count("cfgfilechanged"), 1u);  // the relay's, none of its own
  CfgFile_CL o_Cfg(*z_o_Box);
  // 24000 / (12 × 2) = 1000; with MFU 0.8: 0.8 × 0.775 × 12 × 0.85 × 2 × 0.95 = 12.016.
  EXPECT_EQ(o_Cfg.f_Num("Grenzen", "DrehzahlMax"), 1000);
  EXPECT_EQ(o_Cfg.f_Num("Grenzen", "MomentMax"), 12.016);
  // The factor itself did not change, so neither did its stamp.
  EXPECT_EQ(o_Cfg.f_Num("Mfu", "Datum"), d_Datum);
}
