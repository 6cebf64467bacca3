#pragma once
// The channel configuration "/home/tool/config/ChanCfg.json" read into typed members. The
// tightening process, the user interface and the system service all read this file; the
// service derives from this class to build and repair it.
#include <cstddef>
#include <string>
#include <variant>

#include "sysLib/ConfigFile.h"

struct cJSON;
class SysChanCfg_CL;

// Conversions of doubles that come from files or from a drive train with a zero ratio:
// NaN gives 0, values beyond the target range (infinities included) give the nearest
// limit, everything else is truncated toward zero. None of them is undefined behaviour.
int f_ToIntChecked(double d_Value);
unsigned int f_ToUIntChecked(double d_Value);
long f_ToLongChecked(double d_Value);
// Dates as seconds since the epoch: 64 bits on every build, so the board (32-bit long)
// keeps a service date after 2038 as the PC does.
long long f_ToLongLongChecked(double d_Value);
unsigned long f_ToULongChecked(double d_Value);
// Narrowing: a finite value beyond the float range becomes an infinity of its sign.
float f_ToFloatChecked(double d_Value);

// Drive-train parts. An absent part must be neutral in the limit computation, so ratios
// and efficiencies start at 1.
struct Getriebe_ST {
  std::string str_SerienNr;
  std::string str_Mnr;
  float fl_Faktor = 1.0f;
  float fl_Wirkungsgrad = 1.0f;
};

struct Abtrieb_ST {
  std::string str_SerienNr;
  std::string str_Mnr;
  float fl_Faktor = 1.0f;
  float fl_Wirkungsgrad = 1.0f;
};

struct SonderAbtrieb_ST {
  std::string str_SerienNr;
  std::string str_Mnr;
  float fl_Faktor = 1.0f;
  float fl_Wirkungsgrad = 1.0f;
  float fl_Moment = 0.0f;
  bool b_UmkehrDrehrichtung = false;
  unsigned long ul_Zyklus = 0;
};

struct Motor_ST {
  std::string str_SerienNr;
  std::string str_Mnr;
  float fl_Moment = 0.0f;
  int i_Drehzahl = 0;
  int i_Winkelsensoren = 0;
};

struct Welle_ST {
  std::string str_SerienNr;
  std::string str_Mnr;
  float fl_Moment = 0.0f;
};

// One key of "ChanCfg.json". The member's type is the key's type in the file: a text, a
// number (converted with the checks above) or a boolean.
using ChanCfgRef_T = std::variant<std::string*, int*, unsigned int*, unsigned long*, long long*,
                                  float*, double*, bool*>;

// Keys that the service writes as a group of its own instead of one value per row.
enum en_ChanCfgHook {
  en_ChanCfgHookNone = 0,
  en_ChanCfgHookTorqueUnit,  // "Einheit" and the "EinheitDrehmoment" section
  en_ChanCfgHookLimits,      // "Grenzen" and "Grenzen_V1200"
};

struct ChanCfgKey_ST {
  const char* z_c_Section;  // null: a key at the top level
  const char* z_c_Key;      // null: the whole section (a hook's)
  double d_Default;         // for numbers and booleans; texts default to empty
  en_ChanCfgHook e_Hook;
  ChanCfgRef_T (*f_Member)(SysChanCfg_CL& o_Cfg);  // null: the file carries it, no member
};

class SysChanCfg_CL : public AbstractConfigFile_CL {
 public:
  static constexpr const char* A_C_CHAN_CFG_PATH = "/home/tool/config/ChanCfg.json";
  // Component types on the nameplates of angle-head tools, without and with scanner.
  static const std::string str_KompTypAngle;
  static const std::string str_KompTypAngleScanner;
  // Exists while the channel configuration is valid; other processes wait for it.
  static const char a_c_ConfigValidSemName[];

  // Reads the file once; with b_Lock under the configuration-file lock (waiting for it).
  // A missing or unreadable file leaves the defaults and an invalid configuration.
  explicit SysChanCfg_CL(bool b_Lock);
  ~SysChanCfg_CL() override;

  // Re-reads the members when z_c_Path is this file's logical path.
  int f_CfgFileChanged(const char* z_c_Path) override;
  // Reads the file into the members (call it under the lock, or use f_Read). A file that
  // cannot be read or is not a JSON object: -1, the members stay as they were and the
  // configuration counts as invalid. Otherwise every member is taken from the file or
  // gets its default, and 0.
  int f_ReadFile() override;

  // Maintenance supervision ("Wartung"): on/off, next service at this tool cycle count,
  // next service at this date (seconds since the epoch; 0 or less: no date).
  bool f_IsServiceActive() const { return b_WartungAktiv; }
  unsigned int f_GetNextServiceCycle() const { return ui_WartungZyklus; }
  long long f_GetNextServiceDate() const { return ll_WartungDatum; }
  bool f_IsConfigValid() const { return b_ConfigValid; }

  // Every key of the file, in the order the service writes them. A new key is one row here
  // (and its member): reading, defaults and writing all walk this table.
  static const ChanCfgKey_ST a_o_Keys[];
  static const size_t ui_NrKeys;

 protected:
  // Every member back to what a file without that key gives.
  void f_SetDefaults();
  // One row's member from the tree; a missing key or one of the wrong type leaves it as it
  // is. Rows without a member read nothing.
  void f_ReadKey(const cJSON* z_o_Root, const ChanCfgKey_ST& o_Key);
  // One row's member into the tree (section created when missing, key replaced). 0 or -1;
  // rows without a member write nothing and give -1.
  int f_WriteKey(cJSON* z_o_Tree, const ChanCfgKey_ST& o_Key);

  std::string str_Kanalname;
  int i_KanalNr = 0;
  std::string str_ZellId;
  float fl_MfuFaktor = 1.0f;      // maintenance factor "Mfu"/"MfuFaktor"
  int i_MfuDatum = 0;             // "Mfu"/"Datum": when it was last changed
  unsigned int ui_MfuZyklus = 0;  // "Mfu"/"Zyklus": tool cycle count at that change
  double d_Wirkungsgrad = 1.0;
  int i_Einheit = 0;
  unsigned int ui_EinheitDrehmoment = 0;  // active torque unit, "EinheitDrehmoment"/"Aktiv"
  std::string str_IdentNr;
  std::string str_Kommentar;
  std::string str_SerienNr;
  std::string str_Mnr;
  std::string str_Code;
  std::string str_CmpType;
  std::string str_TypschildCrc;
  Getriebe_ST o_Getriebe;
  Abtrieb_ST o_Abtrieb;
  SonderAbtrieb_ST o_SonderAbtrieb;
  Motor_ST o_Motor;
  Welle_ST o_Welle;
  bool b_WartungAktiv = false;
  unsigned int ui_WartungZyklus = 0;
  long long ll_WartungDatum = 0;
  int i_LetzteWartungDatum = 0;
  int i_LetzteWartungZyklus = 0;

  // The file parsed to an object with "MNR" and "TypschildCrc" as texts.
  bool b_ConfigValid = false;
  // Sections newer files carry; when one is missing the service adds it.
  bool b_TorqueUnitValid = false;  // "EinheitDrehmoment"
  bool b_LimitsValid = false;      // "Grenzen" and "Grenzen_V1200"
  bool b_EinheitValid = false;     // "Einheit"
};
