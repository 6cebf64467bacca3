// Battery supervision: the driver's raw battery byte becomes a charge and a status, which
// are published on the bus and in the diagnostic store and drive the battery outputs,
// readiness flag 6, the low-battery error and the power-off count-down.
#include "Battery.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <syslog.h>

#include "ErrorHandler.h"
#include "SystemChecker.h"
#include "SystemSrv.h"
#include "sysLib/Holders.h"
#include "sysLib/SysCmd.h"
#include "sysLib/SysDiag.h"
#include "sysLib/SysPath.h"

namespace {
constexpr const char* A_C_LT_RUNNING = "/var/run/mod_lt_running";
constexpr const char* A_C_SYNC_STATUS = "/proc/kiroctrl/syncstatus";
constexpr const char* A_C_BATTERY = "/proc/kiroctrl/adcvalues/battery";
// Stands for a usable battery while the driver gives no real reading.
constexpr unsigned char UC_NO_READING = 42;

File_T f_OpenLogical(const char* z_c_Path) {
  return File_T(fopen(f_SysPath(z_c_Path).c_str(), "r"));
}

// The raw battery byte as the driver gives it this tick, or -1 when the battery file
// cannot be opened.
int f_ReadRawBattery(unsigned char uc_VBattAlt) {
  File_T o_Sync = f_OpenLogical(A_C_SYNC_STATUS);
  if (!o_Sync) {
    syslog(LOG_INFO, "f_CheckSyncStatus - fopen <%s> - %s", A_C_SYNC_STATUS, strerror(errno));
    return 0;
  }
  int i_Sync = fgetc(o_Sync.get());
  if (i_Sync == EOF) {
    syslog(LOG_INFO, "f_CheckBattPower - fscanf <%s> - %s", A_C_SYNC_STATUS, strerror(errno));
    return 0;
  }
  if (i_Sync == 3) {
    syslog(LOG_WARNING, "f_CheckBattPower: ***** KrLt im Bootlader ***** ");
    return UC_NO_READING;
  }
  if (i_Sync != 0) return uc_VBattAlt == 255 ? UC_NO_READING : uc_VBattAlt;

  File_T o_Batt = f_OpenLogical(A_C_BATTERY);
  if (!o_Batt) {
    syslog(LOG_WARNING, "f_CheckBattPower fopen <%s> - %s", A_C_BATTERY, strerror(errno));
    return -1;
  }
  int i_Raw = fgetc(o_Batt.get());
  if (i_Raw == EOF) {
    syslog(LOG_WARNING, "f_CheckBattPower fscanf <%s> - %s", A_C_BATTERY, strerror(errno));
    return uc_VBattAlt;
  }
  return i_Raw;  // fgetc yields the byte as 0..255 whatever the signedness of char
}
}  // namespace

int f_CheckBattPower(SysObj* z_o_Obj) {
  CheckerState_ST& o_State = z_o_Obj->o_Checker;
  f_CheckBattOnOff(z_o_Obj);
  if (z_o_Obj->i_BattStatus == en_BattOff) {
    o_State.uc_VBattAlt = 0;
    return 0;
  }
  if (!o_State.b_LtReady) {
    // The driver's battery files mean nothing until it has started.
    if (!f_OpenLogical(A_C_LT_RUNNING)) {
      if (!o_State.b_LtWaitLogged) syslog(LOG_INFO, "f_CheckBattPower - Lt not initialized yet");
      o_State.b_LtWaitLogged = true;
      return 0;
    }
    syslog(LOG_INFO, "f_CheckBattPower - Lt initialized");
    o_State.b_LtReady = true;
  }

  int i_V = f_ReadRawBattery(o_State.uc_VBattAlt);
  if (i_V < 0) return -1;
  // The log line shows the state the reading was compared with.
  int i_VAlt = o_State.uc_VBattAlt;
  int i_Zeros = o_State.i_ZeroReadings;
  BattDecision_ST o_D =
      f_RuleBattReading(i_V, z_o_Obj->i_BattStatus, z_o_Obj->i_BattPower, o_State);
  if (!o_D.b_Changed) return 0;
  syslog(LOG_INFO,
         "f_CheckBattPower Neu: %d, Alt: %d, Status: %d, Power: %d, i_WaitForBattOffCnt: %d", i_V,
         i_VAlt, z_o_Obj->i_BattStatus, z_o_Obj->i_BattPower, i_Zeros);
  if (o_D.b_PowerUpdate) f_BattPowerSet(z_o_Obj, o_D.i_Power, nullptr);
  if (o_D.i_Status != z_o_Obj->i_BattStatus) f_BattStatusSet(z_o_Obj, o_D.i_Status, nullptr);
  return 0;
}

int f_CheckBattOnOff(SysObj* z_o_Obj) {
  if (sem_trywait(&o_BatOnOffSemId) != 0) {
    if (errno != EAGAIN) syslog(LOG_INFO, "f_CheckBattOnOff - sem_trywait - %s", strerror(errno));
    return 0;
  }
  bool b_Off = b_BatOff;
  syslog(LOG_INFO, "f_CheckBattOnOff - b_BatOff: %d", b_Off);
  return f_BattStatusSet(z_o_Obj, b_Off ? en_BattOff : en_BattOn, nullptr) ? 1 : 0;
}

gboolean f_BattPowerGet(SysObj* z_o_Obj, int* i_BattPower, GError**) {
  *i_BattPower = z_o_Obj->i_BattPower;
  return TRUE;
}

gboolean f_BattStatusGet(SysObj* z_o_Obj, int* i_BattStatus, GError**) {
  *i_BattStatus = z_o_Obj->i_BattStatus;
  return TRUE;
}

gboolean f_BattPowerSet(SysObj* z_o_Obj, int i_BattPower, GError**) {
  // While the battery is announced off the charge is meaningless; keep the 0 published.
  if (i_BattPower == z_o_Obj->i_BattPower || z_o_Obj->i_BattStatus == en_BattOff) return TRUE;
  syslog(LOG_INFO, "f_BattPowerSet new: %d, old: %d, status: %d", i_BattPower, z_o_Obj->i_BattPower,
         z_o_Obj->i_BattStatus);
  f_SysDiagSetBatteryPower(i_BattPower);
  z_o_Obj->i_BattPower = i_BattPower;
  SYS_EMIT_SIGNAL(z_o_Obj, "battpowerchanged", g_variant_new("(i)", i_BattPower));
  return TRUE;
}

gboolean f_BattStatusSet(SysObj* z_o_Obj, int i_BattStatus, GError**) {
  if (i_BattStatus == z_o_Obj->i_BattStatus) return TRUE;
  syslog(LOG_INFO, "f_BattStatusSet - Neu: %d, Alt: %d", i_BattStatus, z_o_Obj->i_BattStatus);
  f_SysDiagSetBatteryStatus(i_BattStatus);
  SYS_EMIT_SIGNAL(z_o_Obj, "battstatuschanged", g_variant_new("(i)", i_BattStatus));

  if (i_BattStatus == en_BattOff) {
    z_o_Obj->i_BattPower = 0;
    f_SysDiagSetBatteryPower(0);
    SYS_EMIT_SIGNAL(z_o_Obj, "battpowerchanged", g_variant_new("(i)", 0));
  } else if (i_BattStatus == en_BattOn) {
    z_o_Obj->i_BattPower = 0;
  }
  ServiceEffects_CL o_Effects(z_o_Obj);
  f_ApplyActions(f_RuleBattStatus(i_BattStatus, z_o_ErrorHandler != nullptr, z_o_Obj->o_Checker),
                 o_Effects);
  z_o_Obj->i_BattStatus = i_BattStatus;
  return i_BattStatus >= en_BattOff && i_BattStatus <= en_BattWeak;
}

void f_RunCntDwnTimer(SysObj* z_o_Obj) { f_CntDwnRun(z_o_Obj->o_Checker); }

void f_StopCntDwnTimer(SysObj* z_o_Obj) { z_o_Obj->o_Checker.b_CntDwnActive = false; }

void f_CntDwnStep(SysObj* z_o_Obj) {
  ServiceEffects_CL o_Effects(z_o_Obj);
  f_ApplyActions(f_RuleCntDwnStep(z_o_Obj->o_Checker), o_Effects);
}
