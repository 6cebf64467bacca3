// Reading the channel configuration. Several processes and several generations of
// software write this file, so the reader takes what it can: a member of the wrong JSON
// type is treated as absent and gets its default, never a crash or a garbage value.
#include "sysLib/SysChanCfg.h"

#include <cfloat>
#include <climits>
#include <cjson/cJSON.h>
#include <cmath>
#include <variant>
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

bool f_IsText(const cJSON* z_o_Item) {
  return cJSON_IsString(z_o_Item) && z_o_Item->valuestring != nullptr;
}

bool f_Number(const cJSON* z_o_Item, double& d_Out) {
  // A number too large for a double parses as an infinity, which the file cannot carry
  // back (it is written as null): the service would hold one value and every reader of
  // the file it writes another. It counts as absent, like a member of the wrong type.
  if (!cJSON_IsNumber(z_o_Item) || !std::isfinite(z_o_Item->valuedouble)) return false;
  d_Out = z_o_Item->valuedouble;
  return true;
}

// One overload per member type: each takes the item when it has the right JSON type and
// leaves the member alone otherwise.
void f_Take(const cJSON* z_o_Item, std::string& str_Out) {
  if (f_IsText(z_o_Item)) str_Out = z_o_Item->valuestring;
}

void f_Take(const cJSON* z_o_Item, double& d_Out) { f_Number(z_o_Item, d_Out); }

void f_Take(const cJSON* z_o_Item, float& fl_Out) {
  double d_Value = 0.0;
  if (!f_Number(z_o_Item, d_Value)) return;
  // A double beyond the float range would become an infinity: absent as well.
  float fl_Value = f_ToFloatChecked(d_Value);
  if (std::isfinite(fl_Value)) fl_Out = fl_Value;
}

void f_Take(const cJSON* z_o_Item, bool& b_Out) {
  if (cJSON_IsBool(z_o_Item)) b_Out = cJSON_IsTrue(z_o_Item) != 0;
}

template <typename T>
void f_TakeChecked(const cJSON* z_o_Item, T& t_Out, T (*f_Convert)(double)) {
  double d_Value = 0.0;
  if (f_Number(z_o_Item, d_Value)) t_Out = f_Convert(d_Value);
}
void f_Take(const cJSON* z_o_Item, int& i_Out) { f_TakeChecked(z_o_Item, i_Out, f_ToIntChecked); }
void f_Take(const cJSON* z_o_Item, unsigned int& ui_Out) {
  f_TakeChecked(z_o_Item, ui_Out, f_ToUIntChecked);
}
void f_Take(const cJSON* z_o_Item, unsigned long& ul_Out) {
  f_TakeChecked(z_o_Item, ul_Out, f_ToULongChecked);
}
void f_Take(const cJSON* z_o_Item, long long& ll_Out) {
  f_TakeChecked(z_o_Item, ll_Out, f_ToLongLongChecked);
}

void f_Default(std::string& str_Member, double) { str_Member.clear(); }
void f_Default(bool& b_Member, double d_Default) { b_Member = d_Default != 0.0; }
template <typename T>
void f_Default(T& t_Member, double d_Default) {
  t_Member = static_cast<T>(d_Default);
}

// Floats are written as the double they are, as every writer of the file has done.
double f_FileValue(float fl_Value) { return static_cast<double>(fl_Value); }
template <typename T>
const T& f_FileValue(const T& t_Value) {
  return t_Value;
}

constexpr en_ChanCfgHook HOOK_NONE = en_ChanCfgHookNone;
constexpr en_ChanCfgHook HOOK_UNIT = en_ChanCfgHookTorqueUnit;
constexpr en_ChanCfgHook HOOK_LIMITS = en_ChanCfgHookLimits;
}  // namespace

// The member of a row, reached through the object the row is applied to.
#define CHANCFG_MEMBER(member) [](SysChanCfg_CL& o_Cfg) -> ChanCfgRef_T { return &o_Cfg.member; }

// Every "Faktor" and "Wirkungsgrad" and the maintenance factor default to 1: an absent
// drive-train part must be neutral in the limit computation.
// clang-format off
const ChanCfgKey_ST SysChanCfg_CL::a_o_Keys[] = {
    {nullptr, "Kanalname", 0, HOOK_NONE, CHANCFG_MEMBER(str_Kanalname)},
    {nullptr, "KanalNr", 0, HOOK_NONE, CHANCFG_MEMBER(i_KanalNr)},
    {nullptr, "ZellId", 0, HOOK_NONE, CHANCFG_MEMBER(str_ZellId)},
    {"Mfu", "MfuFaktor", 1, HOOK_NONE, CHANCFG_MEMBER(fl_MfuFaktor)},
    {"Mfu", "Datum", 0, HOOK_NONE, CHANCFG_MEMBER(i_MfuDatum)},
    {"Mfu", "Zyklus", 0, HOOK_NONE, CHANCFG_MEMBER(ui_MfuZyklus)},
    {nullptr, "Wirkungsgrad", 1, HOOK_NONE, CHANCFG_MEMBER(d_Wirkungsgrad)},
    {nullptr, "Einheit", 0, HOOK_UNIT, CHANCFG_MEMBER(i_Einheit)},
    {"EinheitDrehmoment", "Aktiv", 0, HOOK_UNIT, CHANCFG_MEMBER(ui_EinheitDrehmoment)},
    {nullptr, "IdentNr", 0, HOOK_NONE, CHANCFG_MEMBER(str_IdentNr)},
    {nullptr, "Kommentar", 0, HOOK_NONE, CHANCFG_MEMBER(str_Kommentar)},
    {nullptr, "SerienNr", 0, HOOK_NONE, CHANCFG_MEMBER(str_SerienNr)},
    {nullptr, "MNR", 0, HOOK_NONE, CHANCFG_MEMBER(str_Mnr)},
    {nullptr, "Code", 0, HOOK_NONE, CHANCFG_MEMBER(str_Code)},
    {nullptr, "CmpType", 0, HOOK_NONE, CHANCFG_MEMBER(str_CmpType)},
    {nullptr, "TypschildCrc", 0, HOOK_NONE, CHANCFG_MEMBER(str_TypschildCrc)},
    {"Getriebe", "SerienNr", 0, HOOK_NONE, CHANCFG_MEMBER(o_Getriebe.str_SerienNr)},
    {"Getriebe", "MNR", 0, HOOK_NONE, CHANCFG_MEMBER(o_Getriebe.str_Mnr)},
    {"Getriebe", "Faktor", 1, HOOK_NONE, CHANCFG_MEMBER(o_Getriebe.fl_Faktor)},
    {"Getriebe", "Wirkungsgrad", 1, HOOK_NONE, CHANCFG_MEMBER(o_Getriebe.fl_Wirkungsgrad)},
    {"Abtrieb", "SerienNr", 0, HOOK_NONE, CHANCFG_MEMBER(o_Abtrieb.str_SerienNr)},
    {"Abtrieb", "MNR", 0, HOOK_NONE, CHANCFG_MEMBER(o_Abtrieb.str_Mnr)},
    {"Abtrieb", "Wirkungsgrad", 1, HOOK_NONE, CHANCFG_MEMBER(o_Abtrieb.fl_Wirkungsgrad)},
    {"Abtrieb", "Faktor", 1, HOOK_NONE, CHANCFG_MEMBER(o_Abtrieb.fl_Faktor)},
    {"Sonderabtrieb", "SerienNr", 0, HOOK_NONE, CHANCFG_MEMBER(o_SonderAbtrieb.str_SerienNr)},
    {"Sonderabtrieb", "MNR", 0, HOOK_NONE, CHANCFG_MEMBER(o_SonderAbtrieb.str_Mnr)},
    {"Sonderabtrieb", "Wirkungsgrad", 1, HOOK_NONE,
     CHANCFG_MEMBER(o_SonderAbtrieb.fl_Wirkungsgrad)},
    {"Sonderabtrieb", "Faktor", 1, HOOK_NONE, CHANCFG_MEMBER(o_SonderAbtrieb.fl_Faktor)},
    {"Sonderabtrieb", "Moment", 0, HOOK_NONE, CHANCFG_MEMBER(o_SonderAbtrieb.fl_Moment)},
    {"Sonderabtrieb", "UmkehrDrehrichtung", 0, HOOK_NONE,
     CHANCFG_MEMBER(o_SonderAbtrieb.b_UmkehrDrehrichtung)},
    {"Sonderabtrieb", "Zyklus", 0, HOOK_NONE, CHANCFG_MEMBER(o_SonderAbtrieb.ul_Zyklus)},
    {"Motor", "SerienNr", 0, HOOK_NONE, CHANCFG_MEMBER(o_Motor.str_SerienNr)},
    {"Motor", "MNR", 0, HOOK_NONE, CHANCFG_MEMBER(o_Motor.str_Mnr)},
    {"Motor", "Moment", 0, HOOK_NONE, CHANCFG_MEMBER(o_Motor.fl_Moment)},
    {"Motor", "Drehzahl", 0, HOOK_NONE, CHANCFG_MEMBER(o_Motor.i_Drehzahl)},
    {"Motor", "Winkelsensoren", 0, HOOK_NONE, CHANCFG_MEMBER(o_Motor.i_Winkelsensoren)},
    {"Welle", "SerienNr", 0, HOOK_NONE, CHANCFG_MEMBER(o_Welle.str_SerienNr)},
    {"Welle", "MNR", 0, HOOK_NONE, CHANCFG_MEMBER(o_Welle.str_Mnr)},
    {"Welle", "Moment", 0, HOOK_NONE, CHANCFG_MEMBER(o_Welle.fl_Moment)},
    {"Grenzen", nullptr, 0, HOOK_LIMITS, nullptr},
    {"Grenzen_V1200", nullptr, 0, HOOK_LIMITS, nullptr},
    {"Wartung", "Aktiv", 0, HOOK_NONE, CHANCFG_MEMBER(b_WartungAktiv)},
    {"Wartung", "Zyklus", 0, HOOK_NONE, CHANCFG_MEMBER(ui_WartungZyklus)},
    {"Wartung", "Datum", 0, HOOK_NONE, CHANCFG_MEMBER(ll_WartungDatum)},
    {"LetzteWartung", "Datum", 0, HOOK_NONE, CHANCFG_MEMBER(i_LetzteWartungDatum)},
    {"LetzteWartung", "Zyklus", 0, HOOK_NONE, CHANCFG_MEMBER(i_LetzteWartungZyklus)},
};
// clang-format on
#undef CHANCFG_MEMBER
const size_t SysChanCfg_CL::ui_NrKeys = sizeof(a_o_Keys) / sizeof(a_o_Keys[0]);

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
  for (size_t ui_Idx = 0; ui_Idx < ui_NrKeys; ++ui_Idx) {
    const ChanCfgKey_ST& o_Key = a_o_Keys[ui_Idx];
    if (o_Key.f_Member == nullptr) continue;
    std::visit([&o_Key](auto* z_Member) { f_Default(*z_Member, o_Key.d_Default); },
               o_Key.f_Member(*this));
  }
}

void SysChanCfg_CL::f_ReadKey(const cJSON* z_o_Root, const ChanCfgKey_ST& o_Key) {
  if (o_Key.f_Member == nullptr || o_Key.z_c_Key == nullptr) return;
  const cJSON* z_o_Parent =
      o_Key.z_c_Section != nullptr ? f_Item(z_o_Root, o_Key.z_c_Section) : z_o_Root;
  const cJSON* z_o_Item = f_Item(z_o_Parent, o_Key.z_c_Key);
  std::visit([z_o_Item](auto* z_Member) { f_Take(z_o_Item, *z_Member); }, o_Key.f_Member(*this));
}

int SysChanCfg_CL::f_WriteKey(cJSON* z_o_Tree, const ChanCfgKey_ST& o_Key) {
  if (o_Key.f_Member == nullptr || o_Key.z_c_Key == nullptr) return -1;
  return std::visit(
      [z_o_Tree, &o_Key](auto* z_Member) {
        return ConfigFileHelper_CL::f_SetCfgKey(z_o_Tree, o_Key.z_c_Section, o_Key.z_c_Key,
                                                f_FileValue(*z_Member));
      },
      o_Key.f_Member(*this));
}

int SysChanCfg_CL::f_ReadFile() {
  cJSON* z_o_Raw = nullptr;
  const int i_ReadRc = ConfigFileHelper_CL::f_ReadCfgFile(&z_o_Raw, str_Path.c_str());
  CJsonTree_T o_Tree(z_o_Raw);
  if (i_ReadRc != 0 || !cJSON_IsObject(o_Tree.get())) {
    b_ConfigValid = false;
    b_TorqueUnitValid = false;
    b_LimitsValid = false;
    b_EinheitValid = false;
    syslog(LOG_WARNING, "SysChanCfg_CL::f_ReadFile - %s is no valid configuration",
           str_Path.c_str());
    return -1;
  }
  f_SetDefaults();
  const cJSON* z_o_Root = o_Tree.get();
  for (size_t ui_Idx = 0; ui_Idx < ui_NrKeys; ++ui_Idx) f_ReadKey(z_o_Root, a_o_Keys[ui_Idx]);

  b_ConfigValid = f_IsText(f_Item(z_o_Root, "MNR")) && f_IsText(f_Item(z_o_Root, "TypschildCrc"));
  b_TorqueUnitValid = cJSON_IsObject(f_Item(z_o_Root, "EinheitDrehmoment"));
  b_LimitsValid = cJSON_IsObject(f_Item(z_o_Root, "Grenzen")) &&
                  cJSON_IsObject(f_Item(z_o_Root, "Grenzen_V1200"));
  b_EinheitValid = cJSON_IsNumber(f_Item(z_o_Root, "Einheit"));
  return 0;
}
