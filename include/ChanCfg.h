#pragma once
// Channel configuration: ChanCfg.json derived from the nameplates and the catalogue.
#include <gio/gio.h>
#include <map>
#include <memory>
#include <string>

#include "CheckRules.h"
#include "sysLib/NamedSem.h"
#include "sysLib/SysChanCfg.h"

struct SysObj;
struct cJSON;
class TypschildKiro_CL;
class TypschildWelle_CL;

// "fmfuset": i_Mfu in thousandths. FALSE (error reply) without a channel configuration.
gboolean f_MfuSet(SysObj* z_o_Obj, int i_Mfu, GError** error);
// "fmfuget": the factor reported on the bus is fixed at 100.
gboolean f_MfuGet(SysObj* z_o_Obj, int* ui_Mfu, GError** error);

// Torque units; the value is the "Id" in the file.
enum en_TorqueUnit {
  en_TorqueUnitNm = 0,
  en_TorqueUnitFtlb = 1,
  en_TorqueUnitInlb = 2,
  en_TorqueUnitKpm = 3,
  en_TorqueUnitKgfm = 4,
  en_TorqueUnitKgm = 5,
};

// One torque in one unit. In the unit table d_Wert is the factor per Nm.
struct Torque_ST {
  std::string str_Einheit;
  double d_Wert = 0.0;
  int i_Genauigkeit = 0;
};

using TorqueTable_T = std::map<en_TorqueUnit, Torque_ST>;

// The tool's limits, speeds in the unit of the motor speed on the nameplate.
struct Spindelgrenzen_ST {
  int i_DrehzahlMax = 0;
  int i_DrehzahlMin = 0;
  int i_DrehzahlMinReduziert = 0;
  TorqueTable_T o_MomentMax;
  TorqueTable_T o_MomentMaxReduziert;
  TorqueTable_T o_MomentMin;
  TorqueTable_T o_Ueberlast;
};

// The values of a drive train the limits are computed from.
struct DriveTrain_ST {
  float fl_Mfu;             // maintenance factor
  double d_MotorMoment;     // Nm
  double d_MotorDrehzahl;   // motor speed
  double d_GetriebeFaktor;  // gearbox ratio
  double d_GetriebeWirkungsgrad;
  // Output side. b_Configured false: the nameplate's output drive (d_AbtriebFaktor,
  // d_AbtriebWirkungsgrad). true: the configured output drive and special output drive
  // (fl_*), whose ratio-times-efficiency products are taken in single precision.
  bool b_Configured;
  double d_AbtriebFaktor;
  double d_AbtriebWirkungsgrad;
  float fl_AbtriebFaktor;
  float fl_AbtriebWirkungsgrad;
  float fl_SonderFaktor;
  float fl_SonderWirkungsgrad;
};

class ChanCfg_CL : public SysChanCfg_CL {
 public:
  // Tool material numbers, plain and with code scanner, by torque class.
  static const std::string str_Mnr6Nm, str_Mnr12Nm, str_Mnr15Nm, str_Mnr30Nm, str_Mnr50Nm;
  static const std::string str_Mnr6NmScanner, str_Mnr12NmScanner, str_Mnr15NmScanner,
      str_Mnr30NmScanner, str_Mnr50NmScanner;
  // Gearboxes by ratio class, output drives, motors.
  static const std::string str_MnrGetriebe_23, str_MnrGetriebe_12, str_MnrGetriebe_16,
      str_MnrGetriebe_36, str_MnrGetriebe_56;
  static const std::string str_MnrAbtrieb_6, str_MnrAbtrieb_5, str_MnrAbtrieb_1;
  static const std::string str_MnrMotorAngle, str_MnrMotorPistol;
  static const std::string str_HostName;  // used when the channel has no valid name
  static constexpr int i_WartungsIntervall = 500000;
  static constexpr const char* A_C_CODES_PATH = "/etc/codes";
  static constexpr const char* A_C_HOSTNAME_PATH = "/etc/hostname";

  // Reads the file, the type list and both nameplates, rebuilds or repairs the file and
  // opens the validity semaphore. z_o_Obj (may be null) carries the bus connection.
  explicit ChanCfg_CL(SysObj* z_o_Obj);
  ~ChanCfg_CL() override;

  // Another process rewrote z_c_Path: when it is this file, re-read it, recompute the
  // limits, stamp a changed MFU and write limits and MFU back. Always 0.
  int f_NewCfg(const char* z_c_Path) override;

  // --- start-up and file ----------------------------------------------------------------
  // true: everything derived from the nameplates afresh, file rewritten (no lock, the
  // maintenance sections reset). false: limits from the configured drive train, MFU
  // stamp, then f_RefreshData(). The result of the write.
  int f_RefreshData(bool b_Full);
  // Under the file lock: limits and "Mfu" into the existing file. 0 or -1.
  int f_RefreshData();
  // The whole file from the members. The writer's result, or -1.
  int f_CreateCfg();
  // "code" into the diagnostic store; the validity semaphore opened.
  void f_SetCfgValid();
  int f_ReadNamePlate();
  int f_SaveDynData();
  // The type list "/etc/codes" into the type-code table. 0, or -1 when it cannot be read.
  int f_ReadKrTypes();

  // --- limits and units -------------------------------------------------------------------
  // Recomputes the limits: true from the nameplate's drive train, false with the
  // configured output drives.
  void f_UpdateToolLimits(bool b_FromNamePlate);
  // "Grenzen" and "Grenzen_V1200" into a tree.
  void f_UpdateToolLimits(cJSON* z_o_Tree);
  // "Einheit" and "EinheitDrehmoment" into a tree.
  void f_SetTorqueUnit(cJSON* z_o_Tree);
  // A JSON array of a table; 0, or -1 when the array could not be created.
  int f_GetTorqueUnitValues(cJSON** z_z_o_Array, const TorqueTable_T& o_Table);

  // --- maintenance factor, cycle counter, host name ---------------------------------------
  // i_Mfu in thousandths. A changed factor rescales the limits, is stamped and announced.
  // Always 0.
  int f_MfuSet(SysObj* z_o_Obj, int i_Mfu);
  void f_ZyklusSet(unsigned int ui_Zyklus);
  int f_ZyklusGet(unsigned int& ui_Zyklus);
  // Saves the nameplate's dynamic data every few cycles; o_Saved: the process's last save,
  // kept in the checker's state.
  void f_ZyklusCheck(SavedCycle_ST& o_Saved);
  // The channel name (or "Kiro") as host name. 0 or -1.
  int f_SetHostname();

  // --- pure rules, open for tests ---------------------------------------------------------
  static TorqueTable_T f_MakeUnitTable();
  // The limits of a drive train for a unit table.
  static Spindelgrenzen_ST f_CalcToolLimits(const DriveTrain_ST& o_Drive,
                                            const TorqueTable_T& o_Units);
  // Gearbox and output-drive material numbers of a catalogued tool; false (both left as
  // they were) for a tool the catalogue does not know.
  static bool f_CatalogueDrive(const std::string& str_ToolMnr, std::string& str_GetriebeMnr,
                               std::string& str_AbtriebMnr);
  static const std::string& f_MotorMnr(const std::string& str_KompTyp);
  // True for a usable host name: 1..63 letters, digits and inner hyphens.
  static bool f_IsValidHostName(const std::string& str_Name);

  // --- state ---------------------------------------------------------------------------------
  // How many times this object announced a rewritten file ("cfgfilechanged"), whether or
  // not a bus connection existed to carry it.
  unsigned int f_GetAnnounceCount() const { return ui_AnnounceCnt; }

 private:
  // Announces the rewritten file on z_o_Obj's connection (null: the one given at start).
  void f_Announce(SysObj* z_o_Obj);
  void f_RepairInPlace();
  // Finds the gearbox, output drive and motor of the tool on the motor-unit nameplate.
  void f_IdentifyTool();
  // Parses the file for a repair once; null (logged) when it does not parse.
  cJSON* f_RepairTree(CJsonTree_T& o_Tree);

  SysObj* z_o_SysObj;
  TorqueTable_T o_Units;
  Spindelgrenzen_ST o_Grenzen;
  std::map<std::string, std::string> o_KrTypes;
  std::string str_GetriebeMnr;
  std::string str_AbtriebMnr;
  // The MFU as last stamped; a difference to the current one is a change to stamp.
  float fl_MfuFaktorAlt;
  int i_MfuDatumAlt;
  unsigned int ui_MfuZyklusAlt;
  std::unique_ptr<NamedSem_CL> o_ValidSem;
  std::unique_ptr<TypschildKiro_CL> z_o_TypschildKiro;
  std::unique_ptr<TypschildWelle_CL> z_o_TypschildWelle;
  unsigned int ui_AnnounceCnt = 0;
};
