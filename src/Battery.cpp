// Battery power and status as published on the bus, and the power-off count-down.
#include "Battery.h"

#include <syslog.h>

#include "SystemSrv.h"
#include "sysLib/SysCmd.h"
#include "sysLib/SysDiag.h"

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
  if (i_BattPower == z_o_Obj->i_BattPower || z_o_Obj->i_BattStatus == 0) return TRUE;
  syslog(LOG_INFO, "f_BattPowerSet new: %d, old: %d, status: %d", i_BattPower,
         z_o_Obj->i_BattPower, z_o_Obj->i_BattStatus);
  f_SysDiagSetBatteryPower(i_BattPower);
  z_o_Obj->i_BattPower = i_BattPower;
  SYS_EMIT_SIGNAL(z_o_Obj, "battpowerchanged", g_variant_new("(i)", i_BattPower));
  return TRUE;
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
