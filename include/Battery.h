#pragma once
// Battery power and status, the power-off count-down.
#include <gio/gio.h>

struct SysObj;

gboolean f_BattPowerGet(SysObj* z_o_Obj, int* i_BattPower, GError** error);
gboolean f_BattStatusGet(SysObj* z_o_Obj, int* i_BattStatus, GError** error);
gboolean f_BattPowerSet(SysObj* z_o_Obj, int i_BattPower, GError** error);

void f_RunCntDwnTimer(SysObj* z_o_Obj);
void f_StopCntDwnTimer(SysObj* z_o_Obj);
// One second of the count-down (called by the checker on every 4th tick).
void f_CntDwnStep(SysObj* z_o_Obj);
