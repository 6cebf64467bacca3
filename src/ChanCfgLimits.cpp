// The catalogue of tool types and the tool limits: which gearbox and output drive a tool
// carries, and what torque and speed its drive train allows, in every torque unit.
#include <cjson/cJSON.h>
#include <cmath>
#include <syslog.h>

#include "ChanCfg.h"
#include "TypschildKiro.h"

// --- catalogue ---------------------------------------------------------------------------

const std::string ChanCfg_CL::str_Mnr6Nm = "5521730004";
const std::string ChanCfg_CL::str_Mnr12Nm = "5521730005";
const std::string ChanCfg_CL::str_Mnr15Nm = "5521730001";
const std::string ChanCfg_CL::str_Mnr30Nm = "5521730002";
const std::string ChanCfg_CL::str_Mnr50Nm = "5521730003";
const std::string ChanCfg_CL::str_Mnr6NmScanner = "5521730009";
const std::string ChanCfg_CL::str_Mnr12NmScanner = "5521730010";
const std::string ChanCfg_CL::str_Mnr15NmScanner = "5521730006";
const std::string ChanCfg_CL::str_Mnr30NmScanner = "5521730007";
const std::string ChanCfg_CL::str_Mnr50NmScanner = "5521730008";
const std::string ChanCfg_CL::str_MnrGetriebe_23 = "8843160101";
const std::string ChanCfg_CL::str_MnrGetriebe_12 = "8843160102";
const std::string ChanCfg_CL::str_MnrGetriebe_16 = "8843160103";
const std::string ChanCfg_CL::str_MnrGetriebe_36 = "8843160104";
const std::string ChanCfg_CL::str_MnrGetriebe_56 = "8843160105";
const std::string ChanCfg_CL::str_MnrAbtrieb_6 = "8843270A01";
const std::string ChanCfg_CL::str_MnrAbtrieb_5 = "8843270A02";
const std::string ChanCfg_CL::str_MnrAbtrieb_1 = "8843160106";
const std::string ChanCfg_CL::str_MnrMotorAngle = "8843480101";
const std::string ChanCfg_CL::str_MnrMotorPistol = "8843480102";
const std::string ChanCfg_CL::str_HostName = "Kiro";

bool ChanCfg_CL::f_CatalogueDrive(const std::string& str_ToolMnr, std::string& str_GetriebeMnr,
                                  std::string& str_AbtriebMnr) {
  struct Rule_ST {
    const std::string& str_Plain;
    const std::string& str_Scanner;
    const std::string* z_str_Getriebe;
    const std::string* z_str_Abtrieb;  // null: the tool has no separate output drive
  };
  // The 6 Nm class takes the ratio-12 gearbox and the 12 Nm class the ratio-23 one: that
  // is how these tools are built, not a slip.
  static const Rule_ST a_o_Rules[] = {
      {str_Mnr6Nm, str_Mnr6NmScanner, &str_MnrGetriebe_12, nullptr},
      {str_Mnr12Nm, str_Mnr12NmScanner, &str_MnrGetriebe_23, nullptr},
      {str_Mnr15Nm, str_Mnr15NmScanner, &str_MnrGetriebe_23, &str_MnrAbtrieb_1},
      {str_Mnr30Nm, str_Mnr30NmScanner, &str_MnrGetriebe_12, &str_MnrAbtrieb_5},
      {str_Mnr50Nm, str_Mnr50NmScanner, &str_MnrGetriebe_16, &str_MnrAbtrieb_6},
  };
  for (const Rule_ST& o_Rule : a_o_Rules) {
    if (str_ToolMnr != o_Rule.str_Plain && str_ToolMnr != o_Rule.str_Scanner) continue;
    str_GetriebeMnr = *o_Rule.z_str_Getriebe;
    if (o_Rule.z_str_Abtrieb != nullptr) {
      str_AbtriebMnr = *o_Rule.z_str_Abtrieb;
    } else {
      str_AbtriebMnr.clear();
    }
    return true;
  }
  return false;
}

const std::string& ChanCfg_CL::f_MotorMnr(const std::string& str_KompTyp) {
  return str_KompTyp == str_KompTypAngle || str_KompTyp == str_KompTypAngleScanner
             ? str_MnrMotorAngle
             : str_MnrMotorPistol;
}

int ChanCfg_CL::f_ReadKrTypes() {
  cJSON* z_o_Read = nullptr;
  if (ConfigFileHelper_CL::f_ReadCfgFile(&z_o_Read, A_C_CODES_PATH) != 0) return -1;
  CJsonTree_T o_Tree(z_o_Read);
  const cJSON* z_o_Types = cJSON_GetObjectItemCaseSensitive(o_Tree.get(), "types");
  if (cJSON_IsArray(z_o_Types)) {
    const cJSON* z_o_Type = nullptr;
    cJSON_ArrayForEach(z_o_Type, z_o_Types) {
      const cJSON* z_o_Mnr = cJSON_GetObjectItemCaseSensitive(z_o_Type, "MNR");
      const cJSON* z_o_Code = cJSON_GetObjectItemCaseSensitive(z_o_Type, "Type");
      // An entry that lacks either text is of no use to anybody; later entries win.
      if (cJSON_IsString(z_o_Mnr) && cJSON_IsString(z_o_Code))
        o_KrTypes[z_o_Mnr->valuestring] = z_o_Code->valuestring;
    }
  }
  return 0;
}

void ChanCfg_CL::f_IdentifyTool() {
  const TypschildKiroStat_ST& o_Stat = z_o_TypschildKiro->f_GetStatData();
  str_Mnr = o_Stat.str_Mnr;
  auto o_Code = o_KrTypes.find(str_Mnr);
  if (o_Code != o_KrTypes.end()) str_Code = o_Code->second;
  if (o_Stat.b_AbtriebMnrFound) {
    // Newer nameplates name their drive train themselves; they know better than we do.
    str_GetriebeMnr = o_Stat.str_GetriebeMnr;
    str_AbtriebMnr = o_Stat.str_AbtriebMnr;
  } else if (!f_CatalogueDrive(str_Mnr, str_GetriebeMnr, str_AbtriebMnr)) {
    syslog(LOG_INFO, "ChanCfg_CL::f_RefreshData Mnr %s not supported", str_Mnr.c_str());
  }
  o_Motor.str_Mnr = f_MotorMnr(o_Stat.str_Komponententyp);
}

// --- torque units and limits -------------------------------------------------------------------

TorqueTable_T ChanCfg_CL::f_MakeUnitTable() {
  TorqueTable_T o_Table;
  o_Table[en_TorqueUnitNm] = {"Nm", 1.0, 3};
  o_Table[en_TorqueUnitFtlb] = {"Ftlb", 0.73756, 3};
  o_Table[en_TorqueUnitInlb] = {"Inlb", 8.85112, 3};
  o_Table[en_TorqueUnitKpm] = {"Kpm", 0.10197, 3};
  o_Table[en_TorqueUnitKgfm] = {"Kgfm", 0.10197, 3};
  o_Table[en_TorqueUnitKgm] = {"Kgm", 0.10197, 3};
  return o_Table;
}

Spindelgrenzen_ST ChanCfg_CL::f_CalcToolLimits(const DriveTrain_ST& o_Drive,
                                               const TorqueTable_T& o_Units) {
  // The factors are multiplied in this order on purpose: the tightening process computes
  // the same products, and a different order may round a limit the other way.
  double d_Base = static_cast<double>(o_Drive.fl_Mfu) * o_Drive.d_MotorMoment *
                  o_Drive.d_GetriebeFaktor * o_Drive.d_GetriebeWirkungsgrad;
  double d_Divisor = o_Drive.d_GetriebeFaktor;
  if (o_Drive.b_Configured) {
    // The configured parts are single-precision values and their products are taken in
    // single precision, as every reader of the file does.
    float fl_Abtrieb = o_Drive.fl_AbtriebFaktor * o_Drive.fl_AbtriebWirkungsgrad;
    float fl_Sonder = o_Drive.fl_SonderFaktor * o_Drive.fl_SonderWirkungsgrad;
    d_Base = d_Base * static_cast<double>(fl_Abtrieb) * static_cast<double>(fl_Sonder) * 1000.0;
    d_Divisor = d_Divisor * static_cast<double>(o_Drive.fl_AbtriebFaktor) *
                static_cast<double>(o_Drive.fl_SonderFaktor);
  } else {
    d_Base = d_Base * o_Drive.d_AbtriebFaktor * o_Drive.d_AbtriebWirkungsgrad * 1000.0;
    d_Divisor = d_Divisor * o_Drive.d_AbtriebFaktor;
  }

  Spindelgrenzen_ST o_Limits;
  for (const auto& o_Unit : o_Units) {
    const double d_Factor = o_Unit.second.d_Wert;
    Torque_ST o_Torque = o_Unit.second;
    // d_Base is in thousandths: round() gives three decimals, halves away from zero.
    const double d_Max = std::round(d_Factor * d_Base);
    o_Torque.d_Wert = d_Max / 1000.0;
    o_Limits.o_MomentMax[o_Unit.first] = o_Torque;
    // Taken from the rounded maximum, so the two never disagree in the third decimal.
    o_Torque.d_Wert = d_Max / 1000.0 * 0.75;
    o_Limits.o_MomentMaxReduziert[o_Unit.first] = o_Torque;
    o_Torque.d_Wert = std::round(d_Factor * d_Base * 1.1) / 1000.0;
    o_Limits.o_Ueberlast[o_Unit.first] = o_Torque;
    o_Torque.d_Wert = 0.0;
    o_Limits.o_MomentMin[o_Unit.first] = o_Torque;
  }
  // A zero ratio (an unreadable nameplate, a hand-edited file) divides by zero: the
  // checked conversion turns the infinity into INT_MAX and 0/0 into 0.
  o_Limits.i_DrehzahlMax = f_ToIntChecked(o_Drive.d_MotorDrehzahl / d_Divisor);
  o_Limits.i_DrehzahlMin = f_ToIntChecked(1000.0 / d_Divisor);
  o_Limits.i_DrehzahlMinReduziert = f_ToIntChecked(450.0 / d_Divisor);
  return o_Limits;
}

void ChanCfg_CL::f_UpdateToolLimits(bool b_FromNamePlate) {
  const TypschildKiroStat_ST& o_Stat = z_o_TypschildKiro->f_GetStatData();
  DriveTrain_ST o_Drive{};
  o_Drive.fl_Mfu = fl_MfuFaktor;
  o_Drive.d_MotorMoment = o_Stat.d_Motornennmoment;
  o_Drive.d_MotorDrehzahl = o_Stat.d_Motornenndrehzahl;
  o_Drive.d_GetriebeFaktor = o_Stat.d_Getriebeuntersetzung;
  o_Drive.d_GetriebeWirkungsgrad = o_Stat.d_Getriebewirkungsgrad;
  o_Drive.b_Configured = !b_FromNamePlate;
  o_Drive.d_AbtriebFaktor = o_Stat.d_Abtriebuntersetzung;
  o_Drive.d_AbtriebWirkungsgrad = o_Stat.d_Abtriebwirkungsgrad;
  o_Drive.fl_AbtriebFaktor = o_Abtrieb.fl_Faktor;
  o_Drive.fl_AbtriebWirkungsgrad = o_Abtrieb.fl_Wirkungsgrad;
  o_Drive.fl_SonderFaktor = o_SonderAbtrieb.fl_Faktor;
  o_Drive.fl_SonderWirkungsgrad = o_SonderAbtrieb.fl_Wirkungsgrad;
  o_Grenzen = f_CalcToolLimits(o_Drive, o_Units);
}

int ChanCfg_CL::f_GetTorqueUnitValues(cJSON** z_z_o_Array, const TorqueTable_T& o_Table) {
  *z_z_o_Array = cJSON_CreateArray();
  if (*z_z_o_Array == nullptr) return -1;
  for (const auto& o_Entry : o_Table) {
    cJSON* z_o_Item = cJSON_CreateObject();
    if (z_o_Item == nullptr) continue;
    cJSON_AddNumberToObject(z_o_Item, "Id", static_cast<double>(o_Entry.first));
    cJSON_AddStringToObject(z_o_Item, "Einheit", o_Entry.second.str_Einheit.c_str());
    cJSON_AddNumberToObject(z_o_Item, "Wert", o_Entry.second.d_Wert);
    cJSON_AddNumberToObject(z_o_Item, "Genauigkeit", o_Entry.second.i_Genauigkeit);
    cJSON_AddItemToArray(*z_z_o_Array, z_o_Item);
  }
  return 0;
}

void ChanCfg_CL::f_UpdateToolLimits(cJSON* z_o_Tree) {
  // "Grenzen" is read by older readers that know Nm only.
  const char* z_c_Sect = "Grenzen";
  ConfigFileHelper_CL::f_SetCfgKey(z_o_Tree, z_c_Sect, "DrehzahlMax", o_Grenzen.i_DrehzahlMax);
  ConfigFileHelper_CL::f_SetCfgKey(z_o_Tree, z_c_Sect, "DrehzahlMin", o_Grenzen.i_DrehzahlMin);
  ConfigFileHelper_CL::f_SetCfgKey(z_o_Tree, z_c_Sect, "MomentMax",
                                   o_Grenzen.o_MomentMax[en_TorqueUnitNm].d_Wert);
  ConfigFileHelper_CL::f_SetCfgKey(z_o_Tree, z_c_Sect, "MomentMin",
                                   o_Grenzen.o_MomentMin[en_TorqueUnitNm].d_Wert);
  ConfigFileHelper_CL::f_SetCfgKey(z_o_Tree, z_c_Sect, "Ueberlast",
                                   o_Grenzen.o_Ueberlast[en_TorqueUnitNm].d_Wert);

  z_c_Sect = "Grenzen_V1200";
  ConfigFileHelper_CL::f_SetCfgKey(z_o_Tree, z_c_Sect, "DrehzahlMax", o_Grenzen.i_DrehzahlMax);
  ConfigFileHelper_CL::f_SetCfgKey(z_o_Tree, z_c_Sect, "DrehzahlMin", o_Grenzen.i_DrehzahlMin);
  ConfigFileHelper_CL::f_SetCfgKey(z_o_Tree, z_c_Sect, "DrehzahlMinReduziert",
                                   o_Grenzen.i_DrehzahlMinReduziert);
  cJSON* z_o_Section = cJSON_GetObjectItemCaseSensitive(z_o_Tree, z_c_Sect);
  if (!cJSON_IsObject(z_o_Section)) return;  // only when the tree itself is unusable
  const std::pair<const char*, const TorqueTable_T*> a_o_Tables[] = {
      {"MomentMax", &o_Grenzen.o_MomentMax},
      {"MomentMaxReduziert", &o_Grenzen.o_MomentMaxReduziert},
      {"MomentMin", &o_Grenzen.o_MomentMin},
      {"Ueberlast", &o_Grenzen.o_Ueberlast},
  };
  for (const auto& o_Table : a_o_Tables) {
    cJSON* z_o_Array = nullptr;
    if (f_GetTorqueUnitValues(&z_o_Array, *o_Table.second) == 0)
      ConfigFileHelper_CL::f_PutCfgItem(z_o_Section, o_Table.first, CJsonTree_T(z_o_Array));
  }
}

void ChanCfg_CL::f_SetTorqueUnit(cJSON* z_o_Tree) {
  ConfigFileHelper_CL::f_SetCfgKey(z_o_Tree, nullptr, "Einheit", 0);
  i_Einheit = 0;
  CJsonTree_T o_Section(cJSON_CreateObject());
  if (!o_Section) return;
  cJSON_AddNumberToObject(o_Section.get(), "Aktiv", ui_EinheitDrehmoment);
  cJSON* z_o_Array = nullptr;
  if (f_GetTorqueUnitValues(&z_o_Array, o_Units) == 0)
    ConfigFileHelper_CL::f_PutCfgItem(o_Section.get(), "Faktoren", CJsonTree_T(z_o_Array));
  // Normally the section is new; a member of that name of the wrong type is replaced.
  ConfigFileHelper_CL::f_PutCfgItem(z_o_Tree, "EinheitDrehmoment", std::move(o_Section));
}
