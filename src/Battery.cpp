// Battery supervision: the driver's raw battery byte becomes a charge and a status, which
// are published on the bus and in the diagnostic store and drive the battery outputs,
// readiness flag 6, the low-battery error and the power-off count-down.
#include "Battery.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <syslog.h>
#include <unistd.h>

#include "ChanCfg.h"
#include "ErrorHandler.h"
#include "SystemSrv.h"
#include "sysLib/Bms.h"
#include "sysLib/Holders.h"
#include "sysLib/SysCmd.h"
#include "sysLib/SysDiag.h"
#include "sysLib/SysPath.h"

namespace {
constexpr const char* A_C_LT_RUNNING = "/var/run/mod_lt_running";
constexpr const char* A_C_SYNC_STATUS = "/proc/kiroctrl/syncstatus";
constexpr const char* A_C_BATTERY = "/proc/kiroctrl/adcvalues/battery";
constexpr int I_LOW_BATT_ERROR = 3228;
// Stands for a usable battery while the driver gives no real reading.
constexpr unsigned char UC_NO_READING = 42;
constexpr int I_ZERO_READINGS_FOR_EMPTY = 6;

File_T f_OpenLogical(const char* z_c_Path) { return File_T(fopen(f_SysPath(z_c_Path).c_str(), "r")); }

// The two battery outputs change together under the board's output lock, because the
// readiness output is driven on the same board.
void f_SetBattOutputs(bool b_Off, bool b_Usable) {
  if (z_o_Bms == nullptr) return;
  z_o_Bms->f_LockOutSignals();
  z_o_Bms->f_OutFast(30, b_Off);
  z_o_Bms->f_OutFast(29, b_Usable);
  z_o_Bms->f_UnlockOutSignals();
}

void f_SetFlag6(bool b_Set) {
  if (z_o_ErrorHandler == nullptr) return;
  if (b_Set)
    z_o_ErrorHandler->f_SetRdyFlag(6);
  else
    z_o_ErrorHandler->f_ResetRdyFlag(6);
}

// Before the tool is switched off, the changing nameplate data must be on the EEPROM.
void f_SaveBeforePowerOff() {
  if (z_o_ChanCfg != nullptr) z_o_ChanCfg->f_SaveDynData();
  sync();
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

int f_BattPercent(int i_Raw) { return i_Raw < 20 ? 0 : (100 * i_Raw - 1000) / 90; }

int f_CheckBattPower(SysObj* z_o_Obj) {
  static bool b_LtRdy = false;
  static bool b_Log = true;
  static unsigned char uc_VBattAlt = 255;

  f_CheckBattOnOff(z_o_Obj);
  if (z_o_Obj->i_BattStatus == en_BattOff) {
    uc_VBattAlt = 0;
    return 0;
  }
  if (!b_LtRdy) {
    // The driver's battery files mean nothing until it has started.
    if (!f_OpenLogical(A_C_LT_RUNNING)) {
      if (b_Log) syslog(LOG_INFO, "f_CheckBattPower - Lt not initialized yet");
      b_Log = false;
      return 0;
    }
    syslog(LOG_INFO, "f_CheckBattPower - Lt initialized");
    b_LtRdy = true;
  }

  int i_V = f_ReadRawBattery(uc_VBattAlt);
  if (i_V < 0) return -1;
  // A tool just switched on publishes its charge even when the reading is the old one.
  bool b_JustOn = z_o_Obj->i_BattPower == 0 && z_o_Obj->i_BattStatus == en_BattOn;
  if (i_V == uc_VBattAlt && !b_JustOn) return 0;

  syslog(LOG_INFO, "f_CheckBattPower Neu: %d, Alt: %d, Status: %d, Power: %d, i_WaitForBattOffCnt: %d",
         i_V, uc_VBattAlt, z_o_Obj->i_BattStatus, z_o_Obj->i_BattPower,
         z_o_Obj->i_WaitForBattOffCnt);

  int i_Status = z_o_Obj->i_BattStatus;
  int i_Power = 0;
  bool b_PowerUpdate = true;
  if (i_V == 0) {
    // A single zero is a glitch; only six of them (since the last reset of the count)
    // empty the battery.
    b_PowerUpdate = false;
    if (z_o_Obj->i_BattStatus != en_BattOff &&
        ++z_o_Obj->i_WaitForBattOffCnt >= I_ZERO_READINGS_FOR_EMPTY) {
      i_Status = en_BattEmpty;
      i_Power = 0;
      z_o_Obj->i_WaitForBattOffCnt = 0;
      uc_VBattAlt = 0;
      b_PowerUpdate = true;
    }
  } else {
    if (i_V < 10)
      i_Status = en_BattEmpty;
    else if (i_V < 20)
      i_Status = en_BattLow;
    else if (i_V < 30)
      i_Status = en_BattWeak;
    else
      i_Status = en_BattGood;
    i_Power = f_BattPercent(i_V);
    uc_VBattAlt = static_cast<unsigned char>(i_V);
  }

  if (b_PowerUpdate) f_BattPowerSet(z_o_Obj, i_Power, nullptr);
  if (i_Status != z_o_Obj->i_BattStatus) f_BattStatusSet(z_o_Obj, i_Status, nullptr);
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
  syslog(LOG_INFO, "f_BattPowerSet new: %d, old: %d, status: %d", i_BattPower,
         z_o_Obj->i_BattPower, z_o_Obj->i_BattStatus);
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

  gboolean b_Known = TRUE;
  switch (i_BattStatus) {
    case en_BattOff:
      z_o_Obj->i_BattPower = 0;
      f_SysDiagSetBatteryPower(0);
      SYS_EMIT_SIGNAL(z_o_Obj, "battpowerchanged", g_variant_new("(i)", 0));
      f_SetFlag6(false);
      f_SetBattOutputs(true, false);
      f_RunCntDwnTimer(z_o_Obj);
      f_SaveBeforePowerOff();
      break;
    case en_BattEmpty:
      f_SetFlag6(false);
      f_SetBattOutputs(false, false);
      f_RunCntDwnTimer(z_o_Obj);
      f_SaveBeforePowerOff();
      break;
    case en_BattLow:
      // Raised once per low phase; withdrawn when the battery is good again.
      if (!z_o_Obj->b_LowBattErrActive && z_o_ErrorHandler != nullptr) {
        z_o_ErrorHandler->f_InsertError(I_LOW_BATT_ERROR);
        z_o_Obj->b_LowBattErrActive = true;
      }
      f_SetFlag6(false);
      f_SetBattOutputs(false, false);
      break;
    case en_BattGood:
    case en_BattWeak:
      f_StopCntDwnTimer(z_o_Obj);
      f_SetFlag6(true);
      f_SetBattOutputs(false, true);
      if (z_o_Obj->b_LowBattErrActive && z_o_ErrorHandler != nullptr) {
        z_o_ErrorHandler->f_AckError(I_LOW_BATT_ERROR);
        z_o_Obj->b_LowBattErrActive = false;
      }
      break;
    case en_BattOn:
      f_StopCntDwnTimer(z_o_Obj);
      z_o_Obj->i_BattPower = 0;
      break;
    default:
      b_Known = FALSE;
      break;
  }
  z_o_Obj->i_BattStatus = i_BattStatus;
  return b_Known;
}

void f_RunCntDwnTimer(SysObj* z_o_Obj) {
  // A running count-down is never restarted: a second announcement must not buy time.
  if (z_o_Obj->b_CntDwnActive) return;
  z_o_Obj->i_CntDown = 20;
  z_o_Obj->b_CntDwnActive = true;
}

void f_StopCntDwnTimer(SysObj* z_o_Obj) { z_o_Obj->b_CntDwnActive = false; }

void f_CntDwnStep(SysObj* z_o_Obj) {
  if (z_o_Obj->i_CntDown >= 1) {
    int i_Value = z_o_Obj->i_CntDown--;
    // The count-down goes on even if one second's signal could not be sent.
    f_EmitSignal(z_o_Obj, "battcntdwn", g_variant_new("(i)", i_Value), nullptr);
  } else {
    f_PowerOff();
  }
}
