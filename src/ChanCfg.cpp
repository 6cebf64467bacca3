// The channel configuration: ChanCfg.json checked against the nameplates at start-up,
// rebuilt when the motor unit changed, repaired when an older file lacks newer sections,
// and kept up to date when the maintenance factor or the file changes.
#include "ChanCfg.h"

#include <cerrno>
#include <cjson/cJSON.h>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <syslog.h>

#include "SystemSrv.h"
#include "TypschildKiro.h"
#include "TypschildWelle.h"
#include "sysLib/SysCmd.h"
#include "sysLib/SysDiag.h"
#include "sysLib/SysPath.h"

using Cfg = ConfigFileHelper_CL;

ChanCfg_CL::ChanCfg_CL(SysObj* z_o_Obj) : SysChanCfg_CL(false), z_o_SysObj(z_o_Obj) {
  // The stamp compares against the MFU the file already carries: a re-read or a refresh
  // that does not change the factor must keep the old date and cycle.
  fl_MfuFaktorAlt = fl_MfuFaktor;
  i_MfuDatumAlt = i_MfuDatum;
  ui_MfuZyklusAlt = ui_MfuZyklus;
  o_Units = f_MakeUnitTable();
  f_ReadKrTypes();
  z_o_TypschildKiro.reset(new TypschildKiro_CL());
  z_o_TypschildWelle.reset(new TypschildWelle_CL());

  bool b_CrcEqual = z_o_TypschildKiro->f_GetCrcText() == str_TypschildCrc;
  syslog(LOG_INFO, "ChanCfg_CL::ChanCfg_CL - b_ConfigValid: %d, Crc: %d", b_ConfigValid,
         b_CrcEqual);
  if (!b_ConfigValid || !b_CrcEqual) {
    // No usable file, or another motor unit was fitted: nothing in the file can be trusted.
    f_RefreshData(true);
    f_Announce(nullptr);
  } else {
    f_RepairInPlace();
  }
  f_SetCfgValid();
}

ChanCfg_CL::~ChanCfg_CL() {
  z_o_TypschildWelle.reset();
  z_o_TypschildKiro.reset();
  o_ValidSem.reset();
  // Once the service is gone, other processes must no longer take the file as valid.
  f_SemUnlink(a_c_ConfigValidSemName);
}

void ChanCfg_CL::f_Announce(SysObj* z_o_Obj) {
  ++ui_AnnounceCnt;
  f_EmitCfgFileChanged(z_o_Obj != nullptr ? z_o_Obj : z_o_SysObj, str_Path.c_str());
}

cJSON* ChanCfg_CL::f_RepairTree(CJsonTree_T& o_Tree) {
  if (o_Tree != nullptr) return o_Tree.get();
  cJSON* z_o_Raw = nullptr;
  const int i_ReadRc = Cfg::f_ReadCfgFile(&z_o_Raw, str_Path.c_str());
  o_Tree.reset(z_o_Raw);
  if (i_ReadRc != 0 || !cJSON_IsObject(o_Tree.get())) {
    o_Tree.reset();
    syslog(LOG_INFO, "ChanCfg_CL::ChanCfg_CL - Unable to read file - '%s'", str_Path.c_str());
  }
  return o_Tree.get();
}

void ChanCfg_CL::f_RepairInPlace() {
  // Each repair fixes the member even when the file cannot be parsed now, so that this
  // process works with a complete configuration; the file then stays as it is.
  CJsonTree_T o_Tree;
  if (str_CmpType.empty()) {
    str_CmpType = z_o_TypschildKiro->f_GetStatData().str_Komponententyp;
    if (f_RepairTree(o_Tree) != nullptr)
      Cfg::f_SetCfgKey(o_Tree.get(), nullptr, "CmpType", str_CmpType);
  }
  if (!b_TorqueUnitValid || !b_LimitsValid) {
    if (!b_TorqueUnitValid) {
      i_Einheit = 0;
      if (f_RepairTree(o_Tree) != nullptr) f_SetTorqueUnit(o_Tree.get());
    }
    if (!b_LimitsValid) {
      f_UpdateToolLimits(false);
      if (f_RepairTree(o_Tree) != nullptr) f_UpdateToolLimits(o_Tree.get());
    }
  }
  if (str_Code.empty()) {
    auto o_Code = o_KrTypes.find(str_Mnr);
    if (o_Code != o_KrTypes.end()) str_Code = o_Code->second;
    if (f_RepairTree(o_Tree) != nullptr) Cfg::f_SetCfgKey(o_Tree.get(), nullptr, "Code", str_Code);
  }
  if (!b_EinheitValid) {
    i_Einheit = 0;
    if (f_RepairTree(o_Tree) != nullptr) Cfg::f_SetCfgKey(o_Tree.get(), nullptr, "Einheit", 0);
  }
  if (o_Tree != nullptr) {
    Cfg::f_WriteCfgFile(o_Tree.get(), str_Path.c_str());
    f_Announce(nullptr);
  }
}

int ChanCfg_CL::f_RefreshData(bool b_Full) {
  if (!b_Full) {
    f_UpdateToolLimits(false);
    if (fl_MfuFaktorAlt != fl_MfuFaktor) {
      time_t l_Now = time(nullptr);
      unsigned int ui_Cycle = 0;
      if (f_SysDiagGetCycle(&ui_Cycle) != 0) {
        syslog(LOG_WARNING, "ChanCfg_CL::f_RefreshData - no cycle count, stamped with 0");
        ui_Cycle = 0;
      }
      syslog(LOG_INFO, "f_RefreshData - Mfu Changed from %f -> %f, Date: %ld, Cycle: %d",
             static_cast<double>(fl_MfuFaktorAlt), static_cast<double>(fl_MfuFaktor),
             static_cast<long>(l_Now), static_cast<int>(ui_Cycle));
      i_MfuDatum = f_ToIntChecked(static_cast<double>(l_Now));
      ui_MfuZyklus = ui_Cycle;
      fl_MfuFaktorAlt = fl_MfuFaktor;
      i_MfuDatumAlt = i_MfuDatum;
      ui_MfuZyklusAlt = ui_MfuZyklus;
    }
    return f_RefreshData();
  }

  const TypschildKiroStat_ST& o_Stat = z_o_TypschildKiro->f_GetStatData();
  f_IdentifyTool();
  str_TypschildCrc = z_o_TypschildKiro->f_GetCrcText();
  str_CmpType = o_Stat.str_Komponententyp;
  str_SerienNr = o_Stat.str_Fertigungsdatum + o_Stat.str_Seriennummer;
  o_Abtrieb.str_Mnr = str_AbtriebMnr;
  o_Abtrieb.fl_Faktor = f_ToFloatChecked(o_Stat.d_Abtriebuntersetzung);
  o_Abtrieb.fl_Wirkungsgrad = f_ToFloatChecked(o_Stat.d_Abtriebwirkungsgrad);
  o_Getriebe.str_Mnr = str_GetriebeMnr;
  o_Getriebe.fl_Faktor = f_ToFloatChecked(o_Stat.d_Getriebeuntersetzung);
  o_Getriebe.fl_Wirkungsgrad = f_ToFloatChecked(o_Stat.d_Getriebewirkungsgrad);
  o_Motor.i_Drehzahl = f_ToIntChecked(o_Stat.d_Motornenndrehzahl);
  o_Motor.fl_Moment = f_ToFloatChecked(o_Stat.d_Motornennmoment);
  o_Motor.i_Winkelsensoren = o_Stat.i_ImpulseProUmdrehung;
  f_UpdateToolLimits(true);
  // The record pads its texts with zero bytes; the file cannot carry them, so the service
  // keeps the texts as every reader of the file will see them.
  o_Welle.str_SerienNr = z_o_TypschildWelle->f_GetSerNr().c_str();
  o_Welle.str_Mnr = z_o_TypschildWelle->f_GetMnr().c_str();
  o_Welle.fl_Moment = z_o_TypschildWelle->f_GetMoment();
  // A new motor unit starts a new maintenance history.
  b_WartungAktiv = false;
  ui_WartungZyklus = 0;
  ll_WartungDatum = 0;
  i_LetzteWartungDatum = 0;
  i_LetzteWartungZyklus = 0;
  int i_Ret = f_CreateCfg();
  fl_MfuFaktorAlt = fl_MfuFaktor;
  i_MfuDatumAlt = i_MfuDatum;
  ui_MfuZyklusAlt = ui_MfuZyklus;
  return i_Ret;
}

int ChanCfg_CL::f_RefreshData() {
  FileLockGuard_CL<AbstractConfigFile_CL> o_Lock(*this, -1);
  if (!o_Lock.f_Locked()) return -1;
  cJSON* z_o_Raw = nullptr;
  const int i_ReadRc = f_ReadJsonCfgFile(str_Path.c_str(), &z_o_Raw);
  CJsonTree_T o_Tree(z_o_Raw);
  if (i_ReadRc != 0 || !cJSON_IsObject(o_Tree.get())) return -1;
  f_UpdateToolLimits(o_Tree.get());
  // Written into the file another process may have changed: only these keys, in place.
  Cfg::f_SetCfgKey(o_Tree.get(), "Mfu", "Datum", static_cast<long>(i_MfuDatum));
  Cfg::f_SetCfgKey(o_Tree.get(), "Mfu", "Zyklus", ui_MfuZyklus);
  Cfg::f_SetCfgKey(o_Tree.get(), "Mfu", "MfuFaktor", static_cast<double>(fl_MfuFaktor));
  return Cfg::f_WriteCfgFile(o_Tree.get(), str_Path.c_str()) == 0 ? 0 : -1;
}

int ChanCfg_CL::f_CreateCfg() {
  syslog(LOG_DEBUG, "ChanCfg_CL::f_CreateCfg");
  CJsonTree_T o_Tree(cJSON_CreateObject());
  if (o_Tree == nullptr) {
    syslog(LOG_CRIT, "ChanCfg_CL::f_CreateCfg - cJSON_CreateObject==NULL");
    return -1;
  }
  // The table's order is the order people and older readers expect in the file. A group
  // the service builds itself (units, limits) is written once, at its first row.
  en_ChanCfgHook e_Previous = en_ChanCfgHookNone;
  for (size_t ui_Idx = 0; ui_Idx < ui_NrKeys; ++ui_Idx) {
    const ChanCfgKey_ST& o_Key = a_o_Keys[ui_Idx];
    const bool b_GroupWritten = o_Key.e_Hook == e_Previous;
    e_Previous = o_Key.e_Hook;
    if (o_Key.e_Hook == en_ChanCfgHookNone) {
      f_WriteKey(o_Tree.get(), o_Key);
    } else if (!b_GroupWritten) {
      if (o_Key.e_Hook == en_ChanCfgHookTorqueUnit) f_SetTorqueUnit(o_Tree.get());
      if (o_Key.e_Hook == en_ChanCfgHookLimits) f_UpdateToolLimits(o_Tree.get());
    }
  }
  return Cfg::f_WriteCfgFile(o_Tree.get(), A_C_CHAN_CFG_PATH);
}

int ChanCfg_CL::f_NewCfg(const char* z_c_Path) {
  if (z_c_Path == nullptr || str_Path != z_c_Path) return 0;
  AbstractConfigFile_CL::f_NewCfg(z_c_Path);
  f_RefreshData(false);
  return 0;
}

void ChanCfg_CL::f_SetCfgValid() {
  f_SysDiagSetParam("code", str_Code.c_str());
  o_ValidSem = f_SemOpen(a_c_ConfigValidSemName, O_CREAT | O_RDWR, 0600, 0);
  if (o_ValidSem == nullptr)
    syslog(LOG_WARNING, "ChanCfg_CL::f_SetCfgValid - sem_open %s - %s", a_c_ConfigValidSemName,
           strerror(errno));
  // This line has always read "Success"; log watchers look for it as the sign of a
  // configuration that became valid, so it stays as it is.
  errno = 0;
  syslog(LOG_CRIT, "ChanCfg_CL::f_SetCfgValid - %s", strerror(errno));
}

int ChanCfg_CL::f_ReadNamePlate() { return z_o_TypschildKiro->f_Read(); }

int ChanCfg_CL::f_SaveDynData() { return z_o_TypschildKiro->f_Write(); }

// --- maintenance factor, cycle counter, host name ---------------------------------------------

int ChanCfg_CL::f_MfuSet(SysObj* z_o_Obj, int i_Mfu) {
  float fl_New = static_cast<float>(i_Mfu) / 1000.0f;
  if (fl_New == fl_MfuFaktor) return 0;
  fl_MfuFaktor = fl_New;
  // A failed file update leaves the file as it was; the new factor holds in memory and
  // is written with the next refresh.
  f_RefreshData(false);
  f_Announce(z_o_Obj);
  return 0;
}

void ChanCfg_CL::f_ZyklusSet(unsigned int ui_Zyklus) { z_o_TypschildKiro->f_ZyklusSet(ui_Zyklus); }

int ChanCfg_CL::f_ZyklusGet(unsigned int& ui_Zyklus) {
  return z_o_TypschildKiro->f_ZyklusGet(ui_Zyklus);
}

void ChanCfg_CL::f_ZyklusCheck(SavedCycle_ST& o_Saved) {
  z_o_TypschildKiro->f_ZyklusCheck(o_Saved);
}

bool ChanCfg_CL::f_IsValidHostName(const std::string& str_Name) {
  if (str_Name.empty() || str_Name.size() > 63) return false;
  // A leading hyphen would also be taken as an option by echo and hostname.
  if (str_Name.front() == '-' || str_Name.back() == '-') return false;
  for (char c_Char : str_Name) {
    bool b_Ok = (c_Char >= 'a' && c_Char <= 'z') || (c_Char >= 'A' && c_Char <= 'Z') ||
                (c_Char >= '0' && c_Char <= '9') || c_Char == '-';
    if (!b_Ok) return false;
  }
  return true;
}

int ChanCfg_CL::f_SetHostname() {
  std::string str_Name = str_Kanalname.empty() ? str_HostName : str_Kanalname;
  // The channel name is typed in by users and goes into a shell command.
  if (!f_IsValidHostName(str_Name)) {
    syslog(LOG_WARNING, "ChanCfg_CL::f_SetHostname - '%.80s' is no valid host name, using %s",
           str_Name.c_str(), str_HostName.c_str());
    str_Name = str_HostName;
  }
  const std::string str_File = f_ShellQuote(f_SysPath(A_C_HOSTNAME_PATH));
  char a_c_Cmd[256] = {};
  auto f_Run = [&a_c_Cmd](int i_Len) {
    if (i_Len < 0 || static_cast<size_t>(i_Len) >= sizeof(a_c_Cmd)) {
      syslog(LOG_WARNING, "ChanCfg_CL::f_SetHostname - command does not fit");
      return false;
    }
    if (f_SysCmd(a_c_Cmd, nullptr, 0) != 0) {
      syslog(LOG_WARNING, "ChanCfg_CL::f_SetHostname - Cmd %s failed", a_c_Cmd);
      return false;
    }
    return true;
  };
  if (!f_Run(
          snprintf(a_c_Cmd, sizeof(a_c_Cmd), "echo %s > %s", str_Name.c_str(), str_File.c_str())) ||
      !f_Run(snprintf(a_c_Cmd, sizeof(a_c_Cmd), "hostname -F %s", str_File.c_str())))
    return -1;
  syslog(LOG_INFO, "ChanCfg_CL::f_SetHostname - succeed");
  return 0;
}
