// The 250 ms tick: every supervision step of the service runs from here, in a fixed order
// and at fixed multiples of the period. The decisions are in CheckRules.cpp; this file reads
// the hardware and files for them and carries their actions out.
#include "SystemChecker.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <syslog.h>
#include <unistd.h>

#include "Battery.h"
#include "ChanCfg.h"
#include "ErrorHandler.h"
#include "SystemSrv.h"
#include "sysLib/Bms.h"
#include "sysLib/Holders.h"
#include "sysLib/I2c.h"
#include "sysLib/SysCmd.h"
#include "sysLib/SysNotify.h"
#include "sysLib/SysDiag.h"
#include "sysLib/SysPath.h"

namespace {
constexpr const char* A_C_TEMP_LIMIT = "/home/tool/config/TempLimit";
constexpr const char* A_C_I2C_DEV = "/dev/i2c-2";
constexpr int I_TEMP_SENSOR_ADDR = 0x49;

// Reads the limit file into the state; a file that does not parse keeps the previous limit.
void f_ReadTemperatureLimit(CheckerState_ST& o_State) {
  File_T o_File(fopen(f_SysPath(A_C_TEMP_LIMIT).c_str(), "r"));
  unsigned int ui_Limit = 0;
  int i_Read = 0;
  if (o_File) {
    i_Read = fscanf(o_File.get(), "%u", &ui_Limit);
    if (i_Read == EOF) syslog(LOG_INFO, "f_CheckTemperature - fscanf - %s", strerror(errno));
  }
  o_State.ui_TempLimit =
      f_NextTempLimit(static_cast<bool>(o_File), i_Read, ui_Limit, o_State.ui_TempLimit);
}

// --- the tick's steps, in the order they run ---------------------------------------------
// b_Due: the step's period has come round on this tick.
void f_StepBattery(SysObj* z_o_Obj, bool) { f_CheckBattPower(z_o_Obj); }

void f_StepMaintenance(SysObj* z_o_Obj, bool) { f_CheckWartung(z_o_Obj); }

void f_StepFlash(SysObj* z_o_Obj, bool b_Due) {
  if (b_Due) f_CheckUbifsErrors(z_o_Obj);
}

void f_StepTemperature(SysObj* z_o_Obj, bool b_Due) {
  CheckerState_ST& o_State = z_o_Obj->o_Checker;
  if (!b_Due && !o_State.b_TempCheckPending) return;
  // While another process holds the Smod byte at 1 the check waits and runs on the first
  // tick after.
  bool b_Smod = z_o_ErrorHandler != nullptr && z_o_ErrorHandler->f_IsSmod() == 1;
  if (!b_Smod) {
    f_CheckTemperature(z_o_Obj);
    o_State.b_TempCheckPending = false;
  } else {
    o_State.b_TempCheckPending = true;
  }
}

void f_StepAckInput(SysObj* z_o_Obj, bool) {
  if (z_o_Bms == nullptr) return;
  ServiceEffects_CL o_Effects(z_o_Obj);
  f_ApplyActions(f_RuleAckInput(z_o_Bms->f_In(I_BMS_IN_ACK), z_o_Obj->o_Checker), o_Effects);
}

void f_StepReadiness(SysObj*, bool) {
  if (z_o_ErrorHandler == nullptr) return;
  z_o_ErrorHandler->f_RetryPending();
  z_o_ErrorHandler->f_RdyChecker();
}

void f_StepCntDwn(SysObj* z_o_Obj, bool b_Due) {
  if (b_Due && z_o_Obj->o_Checker.b_CntDwnActive) f_CntDwnStep(z_o_Obj);
}

struct TickStep_ST {
  unsigned int ui_Period;  // in ticks of 250 ms
  void (*f_Run)(SysObj* z_o_Obj, bool b_Due);
};
// clang-format off
constexpr TickStep_ST A_O_SCHEDULE[] = {
    {1, f_StepBattery},
    {1, f_StepMaintenance},
    {40, f_StepFlash},        // 10 s
    {20, f_StepTemperature},  // 5 s, or the first tick after a postponement
    {1, f_StepAckInput},
    {1, f_StepReadiness},
    {4, f_StepCntDwn},        // one second of the count-down
};
// clang-format on
}  // namespace

ServiceEffects_CL::ServiceEffects_CL(SysObj* z_o_Obj) : z_o_Obj(z_o_Obj) {}

void ServiceEffects_CL::f_Log(int i_Prio, const std::string& str_Text) {
  syslog(i_Prio, "%s", str_Text.c_str());
}

void ServiceEffects_CL::f_InsertError(int i_Coded) {
  if (z_o_ErrorHandler != nullptr) z_o_ErrorHandler->f_InsertError(i_Coded);
}

void ServiceEffects_CL::f_AckError(int i_Coded) {
  if (z_o_ErrorHandler != nullptr) z_o_ErrorHandler->f_AckError(i_Coded);
}

void ServiceEffects_CL::f_AckAll() {
  if (z_o_ErrorHandler != nullptr) z_o_ErrorHandler->f_AckErrList();
}

void ServiceEffects_CL::f_SetOutput(int i_Line, bool b_On) {
  if (z_o_Bms != nullptr) z_o_Bms->f_Out(i_Line, b_On);
}

void ServiceEffects_CL::f_SetBattOutputs(bool b_Off, bool b_Usable) {
  // The two battery outputs change together under the board's output lock, because the
  // readiness output is driven on the same board.
  if (z_o_Bms == nullptr) return;
  z_o_Bms->f_LockOutSignals();
  z_o_Bms->f_OutFast(I_BMS_OUT_BATT_OFF, b_Off);
  z_o_Bms->f_OutFast(I_BMS_OUT_BATT_USABLE, b_Usable);
  z_o_Bms->f_UnlockOutSignals();
}

void ServiceEffects_CL::f_SetRdyFlag(int i_Nr, bool b_Set) {
  if (z_o_ErrorHandler == nullptr) return;
  if (b_Set)
    z_o_ErrorHandler->f_SetRdyFlag(i_Nr);
  else
    z_o_ErrorHandler->f_ResetRdyFlag(i_Nr);
}

void ServiceEffects_CL::f_SetDiagTemperature(float fl_Temp) { f_SysDiagSetTemperature(fl_Temp); }

void ServiceEffects_CL::f_CntDwnSignal(int i_Value) {
  // The count-down goes on even if one second's signal could not be sent.
  f_EmitSignal(z_o_Obj, "battcntdwn", g_variant_new("(i)", i_Value), nullptr);
}

void ServiceEffects_CL::f_PowerOff() { ::f_PowerOff(); }

void ServiceEffects_CL::f_SaveDynData() {
  if (z_o_ChanCfg != nullptr) z_o_ChanCfg->f_SaveDynData();
  sync();
}

void f_CheckWartung(SysObj* z_o_Obj) {
  if (z_o_ChanCfg == nullptr) return;
  MaintInput_ST o_In{};
  o_In.b_Active = z_o_ChanCfg->f_IsServiceActive();
  if (o_In.b_Active) {
    o_In.ll_Now = static_cast<long long>(time(nullptr));
    o_In.ll_NextDate = z_o_ChanCfg->f_GetNextServiceDate();
    o_In.ui_NextCycle = z_o_ChanCfg->f_GetNextServiceCycle();
    o_In.b_CycleRead = f_SysDiagGetCycle(&o_In.ui_Cycle) == 0;
  }
  ServiceEffects_CL o_Effects(z_o_Obj);
  f_ApplyActions(f_RuleMaintenance(o_In, z_o_Obj->o_Checker), o_Effects);
}

void f_CheckUbifsErrors(SysObj* z_o_Obj) {
  char a_c_Reply[256];
  memset(a_c_Reply, 0, sizeof(a_c_Reply));
  if (f_SysCmd("dmesg | grep 'UBIFS error'", a_c_Reply, sizeof(a_c_Reply)) != 0) return;
  ServiceEffects_CL o_Effects(z_o_Obj);
  f_ApplyActions(f_RuleFlash(a_c_Reply, z_o_Obj->o_Checker), o_Effects);
}

int f_ReadBoardTemperature(float* z_fl_Temp) {
  I2cDev_CL o_Dev;
  if (o_Dev.f_Open(A_C_I2C_DEV) != 0) {
    syslog(LOG_WARNING, "f_CheckTemperature - open %s - %s", A_C_I2C_DEV, strerror(errno));
    return -1;
  }
  if (o_Dev.f_SelectSlave(I_TEMP_SENSOR_ADDR) != 0) {
    syslog(LOG_WARNING, "f_CheckTemperature - ioctl %s", strerror(errno));
    return -1;
  }
  unsigned char uc_Register = 0x00;
  if (o_Dev.f_Write(&uc_Register, 1) != 1) {
    syslog(LOG_WARNING, "f_CheckTemperature - write %s", strerror(errno));
    return -1;
  }
  unsigned char a_uc_Data[2] = {0, 0};
  if (o_Dev.f_Read(a_uc_Data, 2) != 2) {
    syslog(LOG_WARNING, "f_CheckTemperature - read %s", strerror(errno));
    return -1;
  }
  *z_fl_Temp = f_ConvertTemperature(a_uc_Data[0], a_uc_Data[1]);
  return 0;
}

int f_CheckTemperature(SysObj* z_o_Obj) {
  f_ReadTemperatureLimit(z_o_Obj->o_Checker);
  float fl_Temp = 0.0f;
  if (f_ReadBoardTemperature(&fl_Temp) != 0) return -1;
  ServiceEffects_CL o_Effects(z_o_Obj);
  f_ApplyActions(f_RuleTemperature(fl_Temp, z_o_Obj->o_Checker), o_Effects);
  return 0;
}

gboolean f_SystemChecker(gpointer z_v_Obj) {
  SysObj* z_o_Obj = static_cast<SysObj*>(z_v_Obj);
  // The loop is alive as long as it ticks; a stuck loop stops the keep-alive and the
  // service manager restarts the service.
  f_SysWatchdogKick();
  if (sem_trywait(&z_o_Obj->o_SysCheckerCritSectionSemId) != 0) {
    syslog(LOG_INFO, "f_SystemChecker sem_trywait -  %s", strerror(errno));
    return f_CheckProcTerm(z_v_Obj);
  }
  unsigned int ui_Tick = z_o_Obj->o_Checker.ui_Tick;
  for (const TickStep_ST& o_Step : A_O_SCHEDULE)
    o_Step.f_Run(z_o_Obj, f_IsDue(o_Step.ui_Period, ui_Tick));
  z_o_Obj->o_Checker.ui_Tick++;
  sem_post(&z_o_Obj->o_SysCheckerCritSectionSemId);
  return f_CheckProcTerm(z_v_Obj);
}
