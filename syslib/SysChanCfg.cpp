// Reading the channel configuration. Several processes and several generations of
// software write this file, so the reader takes what it can: a member of the wrong JSON
// type is treated as absent and gets its default, never a crash or a garbage value.
#include "sysLib/SysChanCfg.h"

#include <cfloat>
#include <climits>
#include <cjson/cJSON.h>
#include <cmath>
#include <syslog.h>

const std::string SysChanCfg_CL::str_KompTypAngle = "0x21";
const std::string SysChanCfg_CL::str_KompTypAngleScanner = "0x22";
const char SysChanCfg_CL::a_c_ConfigValidSemName[] = "/ChanCfgValid";

// --- checked conversions ------------------------------------------------------------

namespace {
// Truncates toward zero into [d_Min, d_Max] given as the exact doubles of the target's
// limits; the comparisons are done before the cast, which is what keeps it defined.
template <typename T>
T f_Clamp(double d_Value, T t_Min, T t_Max) {
  if (std::isnan(d_Value)) return 0;
  double d_Trunc = std::trunc(d_Value);
  if (d_Trunc <= static_cast<double>(t_Min)) return t_Min;
  // t_Max may not be exact as a double (LONG_MAX on 64 bits rounds up to 2^63): anything
  // at or above that double is out of range.
  if (d_Trunc >= static_cast<double>(t_Max)) return t_Max;
  return static_cast<T>(d_Trunc);
}
}  // namespace

int f_ToIntChecked(double d_Value) { return f_Clamp<int>(d_Value, INT_MIN, INT_MAX); }

unsigned int f_ToUIntChecked(double d_Value) {
  return f_Clamp<unsigned int>(d_Value, 0u, UINT_MAX);
}

long f_ToLongChecked(double d_Value) { return f_Clamp<long>(d_Value, LONG_MIN, LONG_MAX); }

long long f_ToLongLongChecked(double d_Value) {
  return f_Clamp<long long>(d_Value, LLONG_MIN, LLONG_MAX);
}

unsigned long f_ToULongChecked(double d_Value) {
  return f_Clamp<unsigned long>(d_Value, 0ul, ULONG_MAX);
}

float f_ToFloatChecked(double d_Value) {
  if (std::isfinite(d_Value) && std::fabs(d_Value) > static_cast<double>(FLT_MAX))
    return d_Value > 0 ? HUGE_VALF : -HUGE_VALF;
  return static_cast<float>(d_Value);
}

// --- typed access to the tree -----------------------------------------------------------

namespace {
const cJSON* f_Item(const cJSON* z_o_Parent, const char* z_c_Key) {
  return cJSON_IsObject(z_o_Parent) ? cJSON_GetObjectItemCaseSensitive(z_o_Parent, z_c_Key)
                                    : nullptr;
}

bool f_Text(const cJSON* z_o_Parent, const char* z_c_Key, std::string& str_Out) {
  const cJSON* z_o_Item = f_Item(z_o_Parent, z_c_Key);
  if (!cJSON_IsString(z_o_Item) || z_o_Item->valuestring == nullptr) return false;
  str_Out = z_o_Item->valuestring;
  return true;
}

bool f_Number(const cJSON* z_o_Parent, const char* z_c_Key, double& d_Out) {
  const cJSON* z_o_Item = f_Item(z_o_Parent, z_c_Key);
  // A number too large for a double parses as an infinity, which the file cannot carry
  // back (it is written as null): the service would hold one value and every reader of
  // the file it writes another. It counts as absent, like a member of the wrong type.
  if (!cJSON_IsNumber(z_o_Item) || !std::isfinite(z_o_Item->valuedouble)) return false;
  d_Out = z_o_Item->valuedouble;
  return true;
}

void f_Int(const cJSON* z_o_Parent, const char* z_c_Key, int& i_Out) {
  double d_Value = 0.0;
  if (f_Number(z_o_Parent, z_c_Key, d_Value)) i_Out = f_ToIntChecked(d_Value);
}

void f_UInt(const cJSON* z_o_Parent, const char* z_c_Key, unsigned int& ui_Out) {
  double d_Value = 0.0;
  if (f_Number(z_o_Parent, z_c_Key, d_Value)) ui_Out = f_ToUIntChecked(d_Value);
}

void f_Float(const cJSON* z_o_Parent, const char* z_c_Key, float& fl_Out) {
  double d_Value = 0.0;
  if (!f_Number(z_o_Parent, z_c_Key, d_Value)) return;
  // A double beyond the float range would become an infinity: absent as well.
  float fl_Value = f_ToFloatChecked(d_Value);
  if (std::isfinite(fl_Value)) fl_Out = fl_Value;
}

void f_Bool(const cJSON* z_o_Parent, const char* z_c_Key, bool& b_Out) {
  const cJSON* z_o_Item = f_Item(z_o_Parent, z_c_Key);
  if (cJSON_IsBool(z_o_Item)) b_Out = cJSON_IsTrue(z_o_Item) != 0;
}

void f_Part(const cJSON* z_o_Section, std::string& str_SerienNr, std::string& str_Mnr) {
  f_Text(z_o_Section, "SerienNr", str_SerienNr);
  f_Text(z_o_Section, "MNR", str_Mnr);
}
}  // namespace

// --- SysChanCfg_CL ----------------------------------------------------------------------

SysChanCfg_CL::SysChanCfg_CL(bool b_Lock) : AbstractConfigFile_CL(A_C_CHAN_CFG_PATH) {
  int i_Ret = b_Lock ? f_Read(-1) : f_ReadFile();
  syslog(LOG_INFO, "SysChanCfg_CL::SysChanCfg_CL - read: %d, valid: %d", i_Ret, b_ConfigValid);
}

SysChanCfg_CL::~SysChanCfg_CL() = default;

int SysChanCfg_CL::f_CfgFileChanged(const char* z_c_Path) {
  return AbstractConfigFile_CL::f_CfgFileChanged(z_c_Path);
}

void SysChanCfg_CL::f_SetDefaults() {
  str_Kanalname.clear();
  i_KanalNr = 0;
  str_ZellId.clear();
  fl_MfuFaktor = 1.0f;
  i_MfuDatum = 0;
  ui_MfuZyklus = 0;
  d_Wirkungsgrad = 1.0;
  i_Einheit = 0;
  ui_EinheitDrehmoment = 0;
  str_IdentNr.clear();
  str_Kommentar.clear();
  str_SerienNr.clear();
  str_Mnr.clear();
  str_Code.clear();
  str_CmpType.clear();
  str_TypschildCrc.clear();
  o_Getriebe = Getriebe_ST();
  o_Abtrieb = Abtrieb_ST();
  o_SonderAbtrieb = SonderAbtrieb_ST();
  o_Motor = Motor_ST();
  o_Welle = Welle_ST();
  b_WartungAktiv = false;
  ui_WartungZyklus = 0;
  ll_WartungDatum = 0;
  i_LetzteWartungDatum = 0;
  i_LetzteWartungZyklus = 0;
}

int SysChanCfg_CL::f_ReadFile() {
  cJSON* z_o_Tree = nullptr;
  if (ConfigFileHelper_CL::f_ReadCfgFile(&z_o_Tree, str_Path.c_str()) != 0 ||
      !cJSON_IsObject(z_o_Tree)) {
    cJSON_Delete(z_o_Tree);
    b_ConfigValid = false;
    b_TorqueUnitValid = false;
    b_LimitsValid = false;
    b_EinheitValid = false;
    syslog(LOG_WARNING, "SysChanCfg_CL::f_ReadFile - %s is no valid configuration",
           str_Path.c_str());
    return -1;
  }
  f_SetDefaults();
  const cJSON* z_o_Root = z_o_Tree;

  f_Text(z_o_Root, "Kanalname", str_Kanalname);
  f_Int(z_o_Root, "KanalNr", i_KanalNr);
  f_Text(z_o_Root, "ZellId", str_ZellId);
  const cJSON* z_o_Mfu = f_Item(z_o_Root, "Mfu");
  f_Float(z_o_Mfu, "MfuFaktor", fl_MfuFaktor);
  f_Int(z_o_Mfu, "Datum", i_MfuDatum);
  f_UInt(z_o_Mfu, "Zyklus", ui_MfuZyklus);
  f_Number(z_o_Root, "Wirkungsgrad", d_Wirkungsgrad);
  f_Int(z_o_Root, "Einheit", i_Einheit);
  f_UInt(f_Item(z_o_Root, "EinheitDrehmoment"), "Aktiv", ui_EinheitDrehmoment);
  f_Text(z_o_Root, "IdentNr", str_IdentNr);
  f_Text(z_o_Root, "Kommentar", str_Kommentar);
  f_Text(z_o_Root, "SerienNr", str_SerienNr);
  bool b_HasMnr = f_Text(z_o_Root, "MNR", str_Mnr);
  f_Text(z_o_Root, "Code", str_Code);
  f_Text(z_o_Root, "CmpType", str_CmpType);
  bool b_HasCrc = f_Text(z_o_Root, "TypschildCrc", str_TypschildCrc);

  const cJSON* z_o_Section = f_Item(z_o_Root, "Getriebe");
  f_Part(z_o_Section, o_Getriebe.str_SerienNr, o_Getriebe.str_Mnr);
  f_Float(z_o_Section, "Faktor", o_Getriebe.fl_Faktor);
  f_Float(z_o_Section, "Wirkungsgrad", o_Getriebe.fl_Wirkungsgrad);

  z_o_Section = f_Item(z_o_Root, "Abtrieb");
  f_Part(z_o_Section, o_Abtrieb.str_SerienNr, o_Abtrieb.str_Mnr);
  f_Float(z_o_Section, "Faktor", o_Abtrieb.fl_Faktor);
  f_Float(z_o_Section, "Wirkungsgrad", o_Abtrieb.fl_Wirkungsgrad);

  z_o_Section = f_Item(z_o_Root, "Sonderabtrieb");
  f_Part(z_o_Section, o_SonderAbtrieb.str_SerienNr, o_SonderAbtrieb.str_Mnr);
  f_Float(z_o_Section, "Faktor", o_SonderAbtrieb.fl_Faktor);
  f_Float(z_o_Section, "Wirkungsgrad", o_SonderAbtrieb.fl_Wirkungsgrad);
  f_Float(z_o_Section, "Moment", o_SonderAbtrieb.fl_Moment);
  f_Bool(z_o_Section, "UmkehrDrehrichtung", o_SonderAbtrieb.b_UmkehrDrehrichtung);
  double d_Value = 0.0;
  if (f_Number(z_o_Section, "Zyklus", d_Value))
    o_SonderAbtrieb.ul_Zyklus = f_ToULongChecked(d_Value);

  z_o_Section = f_Item(z_o_Root, "Motor");
  f_Part(z_o_Section, o_Motor.str_SerienNr, o_Motor.str_Mnr);
  f_Float(z_o_Section, "Moment", o_Motor.fl_Moment);
  f_Int(z_o_Section, "Drehzahl", o_Motor.i_Drehzahl);
  f_Int(z_o_Section, "Winkelsensoren", o_Motor.i_Winkelsensoren);

  z_o_Section = f_Item(z_o_Root, "Welle");
  f_Part(z_o_Section, o_Welle.str_SerienNr, o_Welle.str_Mnr);
  f_Float(z_o_Section, "Moment", o_Welle.fl_Moment);

  z_o_Section = f_Item(z_o_Root, "Wartung");
  f_Bool(z_o_Section, "Aktiv", b_WartungAktiv);
  f_UInt(z_o_Section, "Zyklus", ui_WartungZyklus);
  if (f_Number(z_o_Section, "Datum", d_Value)) ll_WartungDatum = f_ToLongLongChecked(d_Value);

  z_o_Section = f_Item(z_o_Root, "LetzteWartung");
  f_Int(z_o_Section, "Datum", i_LetzteWartungDatum);
  f_Int(z_o_Section, "Zyklus", i_LetzteWartungZyklus);

  b_ConfigValid = b_HasMnr && b_HasCrc;
  b_TorqueUnitValid = cJSON_IsObject(f_Item(z_o_Root, "EinheitDrehmoment"));
  b_LimitsValid = cJSON_IsObject(f_Item(z_o_Root, "Grenzen")) &&
                  cJSON_IsObject(f_Item(z_o_Root, "Grenzen_V1200"));
  b_EinheitValid = cJSON_IsNumber(f_Item(z_o_Root, "Einheit"));
  cJSON_Delete(z_o_Tree);
  return 0;
}
