// The 250 ms tick: every supervision step of the service runs from here, in a fixed order
// and at fixed multiples of the period. Each check reports on entering a bad state and
// withdraws on leaving it, never repeatedly.
#include "SystemChecker.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <syslog.h>

#include "Battery.h"
#include "ChanCfg.h"
#include "ErrorHandler.h"
#include "SystemSrv.h"
#include "sysLib/Bms.h"
#include "sysLib/I2c.h"
#include "sysLib/SysCmd.h"
#include "sysLib/SysNotify.h"
#include "sysLib/SysDiag.h"
#include "sysLib/SysPath.h"

namespace {
constexpr int I_MAINTENANCE_DUE = 3216;
constexpr int I_FLASH_ERROR = 3233;
constexpr int I_OVER_TEMPERATURE = 3252;
constexpr int I_TEMPERATURE_AT_OR_BELOW_ZERO = 3268;
constexpr unsigned int UI_DEFAULT_TEMP_LIMIT = 75;
constexpr const char* A_C_TEMP_LIMIT = "/home/tool/config/TempLimit";
constexpr const char* A_C_I2C_DEV = "/dev/i2c-2";
constexpr int I_TEMP_SENSOR_ADDR = 0x49;

// Starts with all bits set so that the first tick wraps it to 0: the first tick runs none
// of the divided steps, the second runs all of them.
unsigned int ui_LastCheck = 0xFFFFFFFFu;
unsigned int ui_TemperatureLimit = UI_DEFAULT_TEMP_LIMIT;
bool b_IsErrorSet = false;     // temperature: one flag for both errors
bool b_UbiFSErrorSet = false;  // flash: reported once per process life
bool b_HasError = false;       // maintenance error reported
bool b_ToolCheckAlt = false;   // maintenance due, as last seen

void f_InsertError(int i_Coded) {
  if (z_o_ErrorHandler != nullptr) z_o_ErrorHandler->f_InsertError(i_Coded);
}

void f_AckError(int i_Coded) {
  if (z_o_ErrorHandler != nullptr) z_o_ErrorHandler->f_AckError(i_Coded);
}

void f_SetMaintenanceOutput(bool b_Due) {
  if (z_o_Bms != nullptr) z_o_Bms->f_Out(31, b_Due);
}

// Collective acknowledgement on a rising edge of the external acknowledge input.
void f_CheckAckInput(SysObj* z_o_Obj) {
  if (z_o_Bms == nullptr) return;
  bool b_Level = z_o_Bms->f_In(17);
  if (b_Level != z_o_Obj->b_AckInputLevel && b_Level && z_o_ErrorHandler != nullptr)
    z_o_ErrorHandler->f_AckErrList();
  z_o_Obj->b_AckInputLevel = b_Level;
}

// Reads the limit file; a file that does not parse keeps the previous limit.
void f_ReadTemperatureLimit() {
  FILE* z_o_File = fopen(f_SysPath(A_C_TEMP_LIMIT).c_str(), "r");
  if (z_o_File == nullptr) {
    ui_TemperatureLimit = UI_DEFAULT_TEMP_LIMIT;
    return;
  }
  unsigned int ui_Limit = 0;
  int i_Read = fscanf(z_o_File, "%u", &ui_Limit);
  if (i_Read == EOF) {
    syslog(LOG_INFO, "f_CheckTemperature - fscanf - %s", strerror(errno));
    ui_TemperatureLimit = UI_DEFAULT_TEMP_LIMIT;
  } else if (i_Read == 1) {
    ui_TemperatureLimit = ui_Limit;
  }
  fclose(z_o_File);
}
}  // namespace

float f_ConvertTemperature(unsigned char uc_Msb, unsigned char uc_Lsb) {
  // A 10-bit reading, left-aligned in a signed 16-bit big-endian word, in 0.25 °C steps.
  int16_t i_Raw = static_cast<int16_t>(static_cast<uint16_t>((uc_Msb << 8) | uc_Lsb));
  return static_cast<float>(i_Raw / 64) * 0.25f;
}

void f_CheckWartung() {
  if (z_o_ChanCfg == nullptr) return;
  if (z_o_ChanCfg->f_IsServiceActive()) {
    long long ll_Now = static_cast<long long>(time(nullptr));
    long long ll_NextDate = z_o_ChanCfg->f_GetNextServiceDate();
    unsigned int ui_NextCycle = z_o_ChanCfg->f_GetNextServiceCycle();
    unsigned int ui_Cycle = 0;
    // A date of 0 or less switches the date test off.
    bool b_DateDue = ll_NextDate > 0 && ll_Now >= ll_NextDate;
    bool b_CycleDue = f_SysDiagGetCycle(&ui_Cycle) == 0 && ui_NextCycle <= ui_Cycle;
    bool b_Due = b_DateDue || b_CycleDue;
    if (b_Due == b_ToolCheckAlt) return;
    b_ToolCheckAlt = b_Due;
    if (b_Due) {
      if (b_DateDue) syslog(LOG_INFO, "f_CheckWartung - Date: %lld - %lld", ll_Now, ll_NextDate);
      if (b_CycleDue) syslog(LOG_INFO, "f_CheckWartung - Cycle: %u - %u", ui_Cycle, ui_NextCycle);
      if (!b_HasError) {
        f_InsertError(I_MAINTENANCE_DUE);
        b_HasError = true;
      }
    } else if (b_HasError) {
      f_AckError(I_MAINTENANCE_DUE);
      b_HasError = false;
    }
    f_SetMaintenanceOutput(b_Due);
    return;
  }
  if (b_ToolCheckAlt) {
    b_ToolCheckAlt = false;
    f_SetMaintenanceOutput(false);
  }
  if (b_HasError) {
    f_AckError(I_MAINTENANCE_DUE);
    b_HasError = false;
  }
}

void f_CheckUbifsErrors() {
  char a_c_Reply[256];
  memset(a_c_Reply, 0, sizeof(a_c_Reply));
  if (f_SysCmd("dmesg | grep 'UBIFS error'", a_c_Reply, sizeof(a_c_Reply)) != 0) return;
  if (a_c_Reply[0] == '\0' || b_UbiFSErrorSet) return;
  syslog(LOG_INFO, "f_CheckUbifsErrors - %s", a_c_Reply);
  f_InsertError(I_FLASH_ERROR);
  b_UbiFSErrorSet = true;
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
  f_ReadTemperatureLimit();
  float fl_Temp = 0.0f;
  if (f_ReadBoardTemperature(&fl_Temp) != 0) return -1;
  if (fl_Temp == z_o_Obj->fl_LastTemperature) return 0;
  f_SysDiagSetTemperature(fl_Temp);
  z_o_Obj->fl_LastTemperature = fl_Temp;

  float fl_Limit = static_cast<float>(ui_TemperatureLimit);
  if (fl_Temp > fl_Limit) {
    if (!b_IsErrorSet) {
      f_InsertError(I_OVER_TEMPERATURE);
      b_IsErrorSet = true;
    }
  } else if (fl_Temp <= 0.0f) {
    if (!b_IsErrorSet) {
      f_InsertError(I_TEMPERATURE_AT_OR_BELOW_ZERO);
      b_IsErrorSet = true;
    }
  } else if (b_IsErrorSet && fl_Temp < fl_Limit - 5.0f && fl_Temp > 5.0f) {
    // Between limit - 5 and the limit (and between 0 and 5) the state holds.
    f_AckError(I_OVER_TEMPERATURE);
    f_AckError(I_TEMPERATURE_AT_OR_BELOW_ZERO);
    b_IsErrorSet = false;
  }
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

  f_CheckBattPower(z_o_Obj);
  f_CheckWartung();
  if (ui_LastCheck % 40 == 0) f_CheckUbifsErrors();
  if (ui_LastCheck % 20 == 0 || z_o_Obj->b_TempCheckPending) {
    // While another process holds the Smod byte at 1 the check waits and runs on the
    // first tick after.
    bool b_Smod = z_o_ErrorHandler != nullptr && z_o_ErrorHandler->f_IsSmod() == 1;
    if (!b_Smod) {
      f_CheckTemperature(z_o_Obj);
      z_o_Obj->b_TempCheckPending = false;
    } else {
      z_o_Obj->b_TempCheckPending = true;
    }
  }
  f_CheckAckInput(z_o_Obj);
  if (z_o_ErrorHandler != nullptr) {
    z_o_ErrorHandler->f_RetryPending();
    z_o_ErrorHandler->f_RdyChecker();
  }
  if (z_o_Obj->b_CntDwnActive && ui_LastCheck % 4 == 0) f_CntDwnStep(z_o_Obj);

  ui_LastCheck++;
  sem_post(&z_o_Obj->o_SysCheckerCritSectionSemId);
  return f_CheckProcTerm(z_v_Obj);
}
