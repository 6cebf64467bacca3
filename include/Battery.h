#pragma once
// Battery power and status, the power-off count-down.
#include <gio/gio.h>

struct SysObj;

// Battery status values.
enum en_BattStatus {
  en_BattOff = 0,      // announced off by the power controller
  en_BattEmpty = 1,    // raw 1..9, or six zero readings
  en_BattLow = 2,      // raw 10..19
  en_BattGood = 3,     // raw 30..255
  en_BattOn = 4,       // on, charge not yet known (start value)
  en_BattWeak = 5,     // raw 20..29
};

// One reading per tick: driver files -> charge and status. 0, or -1 when the battery
// value file cannot be opened.
int f_CheckBattPower(SysObj* z_o_Obj);
// Consumes one pending on/off announcement; 1 when it changed the status.
int f_CheckBattOnOff(SysObj* z_o_Obj);

gboolean f_BattPowerGet(SysObj* z_o_Obj, int* i_BattPower, GError** error);
gboolean f_BattStatusGet(SysObj* z_o_Obj, int* i_BattStatus, GError** error);
gboolean f_BattPowerSet(SysObj* z_o_Obj, int i_BattPower, GError** error);
// TRUE when unchanged or one of 0..5; FALSE for any other value (stored all the same).
gboolean f_BattStatusSet(SysObj* z_o_Obj, int i_BattStatus, GError** error);

// Starts the count-down of I_CNT_DOWN_SECONDS unless it runs already.
void f_RunCntDwnTimer(SysObj* z_o_Obj);
void f_StopCntDwnTimer(SysObj* z_o_Obj);
// One second of the count-down (called by the checker on every 4th tick).
void f_CntDwnStep(SysObj* z_o_Obj);
