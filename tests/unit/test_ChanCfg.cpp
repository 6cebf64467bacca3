// The channel configuration: limits, catalogue, start-up rebuild or repair, MFU, host name.
#include <gtest/gtest.h>

#include <cjson/cJSON.h>
#include <climits>
#include <ctime>
#include <functional>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "ChanCfg.h"
#include "TestSupport.h"
#include "TypschildKiro.h"
#include "sysLib/Error.h"
#include "sysLib/Holders.h"

namespace {
constexpr const char* A_C_PATH = "/home/tool/config/ChanCfg.json";
using Cfg = ConfigFileHelper_CL;

// The written file, read by a path such as "Grenzen_V1200/MomentMax/2/Wert".
struct Json_CL {
  explicit Json_CL(const TempRoot& o_Root) : o_Tree(cJSON_Parse(o_Root.f_Read(A_C_PATH).c_str())) {}
  const cJSON* f_At(const std::string& str_Path) const {
    const cJSON* z_o_Item = o_Tree.get();
    std::istringstream o_Parts(str_Path);
    for (std::string str_Part; std::getline(o_Parts, str_Part, '/');)
      z_o_Item = cJSON_IsArray(z_o_Item) ? cJSON_GetArrayItem(z_o_Item, std::stoi(str_Part))
                                         : cJSON_GetObjectItem(z_o_Item, str_Part.c_str());
    return z_o_Item;
  }
  // Not a number: NaN, equal to nothing.
  double f_Num(const std::string& str_Path) const { return cJSON_GetNumberValue(f_At(str_Path)); }
  std::string f_Str(const std::string& str_Path) const {
    const char* z_c_Text = cJSON_GetStringValue(f_At(str_Path));
    return z_c_Text != nullptr ? z_c_Text : "<none>";
  }
  // The keys in order, those of a section in brackets behind it.
  static std::string f_Layout(const cJSON* z_o_Object) {
    std::string str_Out;
    for (const cJSON* z_o_Item = z_o_Object->child; z_o_Item != nullptr; z_o_Item = z_o_Item->next)
      str_Out += std::string(" ") + z_o_Item->string +
                 (cJSON_IsObject(z_o_Item) ? "[" + f_Layout(z_o_Item) + "]" : "");
    return str_Out;
  }
  CJsonTree_T o_Tree;
};

// Edits the file as another process would.
void f_Edit(const TempRoot& o_Root, const std::function<void(cJSON*)>& f_Change) {
  CJsonTree_T o_Tree(cJSON_Parse(o_Root.f_Read(A_C_PATH).c_str()));
  f_Change(o_Tree.get());
  o_Root.f_Write(A_C_PATH, CJsonText_T(cJSON_Print(o_Tree.get())).get());
}

// One start of the channel configuration; the announcements it made.
unsigned int f_Start() { return ChanCfg_CL(nullptr).f_GetAnnounceCount(); }

// A simulated tool (30 Nm pistol tool, no ChanCfg.json); nameplate errors stay local.
class ChanCfgTest : public ::testing::Test {
 protected:
  void SetUp() override {
    o_Root.f_InitSim();
    Error_CL::f_GetErrorObj()->f_UseLocalStore();
  }
  TempRoot o_Root;
};

}  // namespace

TEST(ChanCfgLimits, DriveTrainsComputedByHand) {
  struct Case_ST {
    const char* z_c_Name;
    DriveTrain_ST o_Drive;
    double a_d_Max[4];  // Nm, ft·lb, in·lb, kp·m (= kgf·m = kg·m)
    double a_d_Overload[4];
    int a_i_Speed[3];  // maximum, minimum, reduced minimum
  } a_o_Cases[] = {
      // clang-format off
      // {MFU, motor Nm, rpm, gearbox ratio, efficiency, configured, nameplate output ratio,
      // efficiency, configured output ratio, efficiency, special output ratio, efficiency}
      // 0.775 × 12 × 0.85 × 4 × 0.95 = 30.039 Nm; 24000, 1000 and 450 / 48 = 500, 20.8, 9.4
      {"30 Nm pistol", {1, 0.775, 24000, 12, 0.85, false, 4, 0.95, 0, 0, 0, 0},
       {30.039, 22.156, 265.879, 3.063}, {33.043, 24.371, 292.467, 3.369}, {500, 20, 9}},
      // Exactly 1062.5 thousandths: halves go away from zero.
      {"half", {1, 1.0625, 24000, 1, 1, false, 1, 1, 0, 0, 0, 0},
       {1.063, 0.784, 9.404, 0.108}, {1.169, 0.862, 10.345, 0.119}, {24000, 1000, 450}},
      // 0.85f × 0.9f = 0.76499999 in single precision: 382.49999, not 382.5 thousandths.
      {"bracket below a half", {1, 0.5, 1000, 1, 1, true, 0, 0, 0.85f, 0.9f, 1, 1},
       {0.382, 0.282, 3.386, 0.039}, {0.421, 0.31, 3.724, 0.043}, {1176, 1176, 529}},
      // The special output drive counts in torque and speed: 2 × (3 × 0.5) = 3.
      {"special output drive", {1, 1, 24000, 1, 1, true, 0, 0, 2, 1, 3, 0.5f},
       {3.0, 2.213, 26.553, 0.306}, {3.3, 2.434, 29.209, 0.337}, {4000, 166, 75}},
      // A zero ratio: no torque, speeds at the int limit, 0 / 0 as 0.
      {"zero gearbox and speed", {1, 0.775, 0, 0, 0.85, false, 4, 0.95, 0, 0, 0, 0},
       {0, 0, 0, 0}, {0, 0, 0, 0}, {0, INT_MAX, INT_MAX}},
      // clang-format on
  };
  const TorqueTable_T o_Units = ChanCfg_CL::f_MakeUnitTable();
  for (const Case_ST& o_Case : a_o_Cases) {
    SCOPED_TRACE(o_Case.z_c_Name);
    Spindelgrenzen_ST o_L = ChanCfg_CL::f_CalcToolLimits(o_Case.o_Drive, o_Units);
    EXPECT_EQ(std::vector<int>({o_L.i_DrehzahlMax, o_L.i_DrehzahlMin, o_L.i_DrehzahlMinReduziert}),
              std::vector<int>(o_Case.a_i_Speed, o_Case.a_i_Speed + 3));
    ASSERT_EQ(o_L.o_MomentMax.size(), 6u);
    for (int i_Id = 0; i_Id < 6; ++i_Id) {
      en_TorqueUnit e_Unit = static_cast<en_TorqueUnit>(i_Id);
      int i_Col = i_Id < 3 ? i_Id : 3;
      EXPECT_DOUBLE_EQ(o_L.o_MomentMax[e_Unit].d_Wert, o_Case.a_d_Max[i_Col]) << i_Id;
      EXPECT_DOUBLE_EQ(o_L.o_Ueberlast[e_Unit].d_Wert, o_Case.a_d_Overload[i_Col]) << i_Id;
      // From the rounded maximum, not rounded again.
      EXPECT_DOUBLE_EQ(o_L.o_MomentMaxReduziert[e_Unit].d_Wert, o_Case.a_d_Max[i_Col] * 0.75);
      EXPECT_EQ(o_L.o_MomentMin[e_Unit].d_Wert, 0.0);
    }
  }
}

TEST(ChanCfgLimits, CatalogueMapsBothVariantsOfAToolNumber) {
  // Plain and scanner variant of a tool without and of one with an output drive (the default
  // tool's is read from its file); a number not in the catalogue leaves both as they were.
  const std::pair<const char*, const char*> a_o_Cases[] = {{"5521730002 ", "old/old"},
                                                           {"5521730004", "8843160102/"},
                                                           {"5521730009", "8843160102/"},
                                                           {"5521730001", "8843160101/8843160106"},
                                                           {"5521730006", "8843160101/8843160106"}};
  for (const auto& [z_c_Mnr, z_c_Drive] : a_o_Cases) {
    std::string str_G = "old", str_A = "old";  // an old output drive must not survive
    EXPECT_EQ(ChanCfg_CL::f_CatalogueDrive(z_c_Mnr, str_G, str_A), *z_c_Drive != 'o') << z_c_Mnr;
    EXPECT_EQ(str_G + "/" + str_A, z_c_Drive) << z_c_Mnr;
  }
  EXPECT_EQ(ChanCfg_CL::f_MotorMnr("0x21") + ChanCfg_CL::f_MotorMnr("0x22"),
            "88434801018843480101");
  for (const char* z_c_Type : {"0x11", "0X21", ""})
    EXPECT_EQ(ChanCfg_CL::f_MotorMnr(z_c_Type), "8843480102");
}

TEST_F(ChanCfgTest, WithoutAFileTheWholeFileIsBuiltInLayoutOrder) {
  {
    ChanCfg_CL o_Cfg(nullptr);
    EXPECT_EQ(o_Cfg.f_GetAnnounceCount(), 1u);
    EXPECT_TRUE(o_Root.f_Exists("/dev/shm/sem.ChanCfgValid"));
    EXPECT_EQ(o_Root.f_Read("/var/sysdiag/code"), "AKS30");
  }
  // Gone with the service: nobody may take the file as valid without it.
  EXPECT_FALSE(o_Root.f_Exists("/dev/shm/sem.ChanCfgValid"));
  // The order people and older readers expect in the file.
  Json_CL o_J(o_Root);
  EXPECT_EQ(Json_CL::f_Layout(o_J.o_Tree.get()),
            " Kanalname KanalNr ZellId Mfu[ MfuFaktor Datum Zyklus] Wirkungsgrad Einheit"
            " EinheitDrehmoment[ Aktiv Faktoren] IdentNr Kommentar SerienNr MNR Code CmpType"
            " TypschildCrc Getriebe[ SerienNr MNR Faktor Wirkungsgrad]"
            " Abtrieb[ SerienNr MNR Wirkungsgrad Faktor]"
            " Sonderabtrieb[ SerienNr MNR Wirkungsgrad Faktor Moment UmkehrDrehrichtung Zyklus]"
            " Motor[ SerienNr MNR Moment Drehzahl Winkelsensoren] Welle[ SerienNr MNR Moment]"
            " Grenzen[ DrehzahlMax DrehzahlMin MomentMax MomentMin Ueberlast]"
            " Grenzen_V1200[ DrehzahlMax DrehzahlMin DrehzahlMinReduziert MomentMax"
            " MomentMaxReduziert MomentMin Ueberlast] Wartung[ Aktiv Zyklus Datum]"
            " LetzteWartung[ Datum Zyklus]");
  EXPECT_EQ(o_J.f_Str("SerienNr") + " " + o_J.f_Str("CmpType") + " " + o_J.f_Str("Code"),
            "2023-05-17K30P230517042 0x11 AKS30");
  EXPECT_EQ(
      o_J.f_Str("Getriebe/MNR") + " " + o_J.f_Str("Abtrieb/MNR") + " " + o_J.f_Str("Motor/MNR"),
      "8843160102 8843270A02 8843480102");
  EXPECT_EQ(o_J.f_Str("Welle/SerienNr"), "W230517042");
  // The limits of the 30 Nm drive train computed by hand above, in every unit.
  EXPECT_EQ(o_J.f_Num("Grenzen_V1200/MomentMax/2/Wert"), 265.879);
  EXPECT_EQ(o_J.f_Num("Grenzen_V1200/Ueberlast/5/Wert"), 3.369);
}

TEST_F(ChanCfgTest, IntactFileIsLeftAloneChangedMotorUnitRebuildsOlderFileIsRepaired) {
  ASSERT_EQ(f_Start(), 1u);
  f_Edit(o_Root, [](cJSON* z_o_T) {
    Cfg::f_SetCfgKey(z_o_T, nullptr, "Kanalname", "Line-7");
    Cfg::f_SetCfgKey(z_o_T, "Wartung", "Aktiv", true);
  });
  struct stat o_Before = {}, o_After = {};
  stat(o_Root.f_Path(A_C_PATH).c_str(), &o_Before);
  EXPECT_EQ(f_Start(), 0u);
  stat(o_Root.f_Path(A_C_PATH).c_str(), &o_After);
  // Not even replaced by an equal file (a write renames a new file over it).
  EXPECT_EQ(o_After.st_ino, o_Before.st_ino);

  // Older file: no Grenzen_V1200, no torque units, empty code; the limits come from the
  // file's own output drive: 0.775 × 12 × 0.85 × (2 × 1) = 15.81 Nm, 24000 / (12 × 2).
  f_Edit(o_Root, [](cJSON* z_o_T) {
    cJSON_DeleteItemFromObject(z_o_T, "Grenzen_V1200");
    Cfg::f_SetCfgKey(z_o_T, nullptr, "EinheitDrehmoment", 5);  // wrong type counts as missing
    Cfg::f_SetCfgKey(z_o_T, nullptr, "Code", "");
    Cfg::f_SetCfgKey(z_o_T, "Abtrieb", "Faktor", 2.0);
    Cfg::f_SetCfgKey(z_o_T, "Abtrieb", "Wirkungsgrad", 1.0);
  });
  EXPECT_EQ(f_Start(), 1u);
  const Json_CL o_Old(o_Root);
  EXPECT_EQ(o_Old.f_Num("Grenzen_V1200/MomentMax/0/Wert"), 15.81);
  EXPECT_EQ(o_Old.f_Num("Grenzen/DrehzahlMax"), 1000);
  EXPECT_EQ(cJSON_GetArraySize(o_Old.f_At("EinheitDrehmoment/Faktoren")), 6);
  EXPECT_EQ(o_Old.f_Str("Code"), "AKS30");
  EXPECT_EQ(o_Old.f_Str("Kanalname"), "Line-7");
  EXPECT_EQ(cJSON_GetArraySize(o_Old.o_Tree.get()), 23);  // replaced in place, not added twice
  EXPECT_EQ(f_Start(), 0u);

  // Another motor unit (its CRC differs): rebuilt from the nameplates, the channel name
  // kept, the maintenance history reset; 0.5 × 12 × 0.85 × 4 × 0.95 = 19.38 Nm.
  ASSERT_EQ(o_Root.f_Sim("nameplate example | sed 's/^Motornennmoment:.*/Motornennmoment:0.5/' | " +
                         std::string(SYSSRV_SIM) + " nameplate write --from - >/dev/null"),
            0);
  EXPECT_EQ(f_Start(), 1u);
  Json_CL o_J(o_Root);
  EXPECT_EQ(o_J.f_Num("Grenzen/MomentMax"), 19.38);
  EXPECT_EQ(o_J.f_Num("Abtrieb/Faktor"), 4);
  EXPECT_EQ(o_J.f_Str("Kanalname"), "Line-7");
  EXPECT_TRUE(cJSON_IsFalse(o_J.f_At("Wartung/Aktiv")));
}

// A missing code table or motor-unit nameplate leaves its fields empty, repaired every start.
TEST(ChanCfgStart, MissingSourcesLeaveTheirFieldsEmpty) {
  Error_CL::f_GetErrorObj()->f_UseLocalStore();
  const std::pair<const char*, const char*> a_o_Cases[] = {
      {"/etc/codes", "Code"}, {TypschildKiro_CL::A_C_DEVICE_PATH, "TypschildCrc"}};
  for (const auto& [z_c_Path, z_c_Key] : a_o_Cases) {
    SCOPED_TRACE(z_c_Path);
    TempRoot o_Root;
    o_Root.f_InitSim();
    std::remove(o_Root.f_Path(z_c_Path).c_str());
    EXPECT_EQ(f_Start(), 1u);
    Json_CL o_J(o_Root);
    EXPECT_EQ(cJSON_GetArraySize(o_J.o_Tree.get()), 23);
    EXPECT_EQ(o_J.f_Str(z_c_Key), "");
    EXPECT_EQ(o_J.f_Str("MNR").empty(), z_c_Path == TypschildKiro_CL::A_C_DEVICE_PATH);
    EXPECT_EQ(f_Start(), 1u);
  }
}

// Here another process changes the file; the factor set over the bus is the daemon's test.
TEST_F(ChanCfgTest, ReReadRescalesAndStampsOnlyANewMfu) {
  ChanCfg_CL o_Cfg(nullptr);
  const double d_Zyklus = Json_CL(o_Root).f_Num("Mfu/Zyklus");
  o_Root.f_Write("/var/sysdiag/cycle", "4242");
  f_Edit(o_Root, [](cJSON* z_o_T) { Cfg::f_SetCfgKey(z_o_T, "Abtrieb", "Faktor", 2.0); });
  EXPECT_EQ(o_Cfg.f_NewCfg("/home/tool/config/OkNokCntCfg.json"), 0);
  EXPECT_EQ(Json_CL(o_Root).f_Num("Grenzen/DrehzahlMax"), 500);
  EXPECT_EQ(o_Cfg.f_NewCfg(A_C_PATH), 0);
  EXPECT_EQ(Json_CL(o_Root).f_Num("Grenzen/DrehzahlMax"), 1000);
  EXPECT_EQ(Json_CL(o_Root).f_Num("Mfu/Zyklus"), d_Zyklus);  // no new factor, no new stamp

  // 0.25 × 30039 = 7509.75 → 7.51 Nm, stamped like a factor set over the bus.
  const double d_T0 = static_cast<double>(time(nullptr));
  f_Edit(o_Root, [](cJSON* z_o_T) {
    Cfg::f_SetCfgKey(z_o_T, "Abtrieb", "Faktor", 4.0);
    Cfg::f_SetCfgKey(z_o_T, "Mfu", "MfuFaktor", 0.25);
  });
  EXPECT_EQ(o_Cfg.f_NewCfg(A_C_PATH), 0);
  Json_CL o_J(o_Root);
  EXPECT_EQ(o_J.f_Num("Grenzen/MomentMax"), 7.51);
  EXPECT_EQ(o_J.f_Num("Mfu/Zyklus"), 4242);
  EXPECT_GE(o_J.f_Num("Mfu/Datum"), d_T0);
  EXPECT_LE(o_J.f_Num("Mfu/Datum"), static_cast<double>(time(nullptr)));

  // A file another process broke stays as it is.
  o_Root.f_Write(A_C_PATH, "{ broken");
  EXPECT_EQ(o_Cfg.f_NewCfg(A_C_PATH), 0);
  EXPECT_EQ(o_Root.f_Read(A_C_PATH), "{ broken");
  EXPECT_EQ(o_Cfg.f_GetAnnounceCount(), 1u);  // re-reads are announced by the relay
}

// Not called yet, but it makes nameplate text the host name: only a safe name may get there.
TEST_F(ChanCfgTest, HostNameComesFromTheChannelNameOnlyWhenItIsSafe) {
  EXPECT_TRUE(ChanCfg_CL::f_IsValidHostName(std::string(63, 'a')));
  EXPECT_FALSE(ChanCfg_CL::f_IsValidHostName(std::string(64, 'a')));
  for (const char* z_c_Bad : {"-n", "line-", "a b", "tool.local"})
    EXPECT_FALSE(ChanCfg_CL::f_IsValidHostName(z_c_Bad)) << z_c_Bad;
  ChanCfg_CL o_Cfg(nullptr);
  for (const char* z_c_Name : {"Line-7", "x; touch /tmp/syssrv-hostname-injected"}) {
    f_Edit(o_Root, [&](cJSON* z_o_T) { Cfg::f_SetCfgKey(z_o_T, nullptr, "Kanalname", z_c_Name); });
    ASSERT_EQ(o_Cfg.f_NewCfg(A_C_PATH), 0);
    o_Root.f_Write("/sim/commands.log", "");
    EXPECT_EQ(o_Cfg.f_SetHostname(), 0);
    EXPECT_EQ(o_Root.f_Read("/etc/hostname"), z_c_Name[0] == 'L' ? "Line-7\n" : "Kiro\n");
    EXPECT_EQ(o_Root.f_Read("/sim/commands.log"),
              "hostname -F " + o_Root.f_Path("/etc/hostname") + "\n");
  }
  struct stat o_St {};
  EXPECT_NE(stat("/tmp/syssrv-hostname-injected", &o_St), 0);
}
