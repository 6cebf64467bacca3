#pragma once
// The checks the 250 ms tick runs: each reads what its rule (CheckRules.h) needs and carries
// the rule's actions out through the service's effects.
#include <gio/gio.h>

#include "CheckRules.h"

struct SysObj;

// The effects of the checks on the running service: the error store, the board's outputs,
// readiness, the diagnostic store, the bus. A missing subsystem makes its effects nothing.
class ServiceEffects_CL : public CheckEffects_CL {
 public:
  explicit ServiceEffects_CL(SysObj* z_o_Obj);
  void f_Log(int i_Prio, const std::string& str_Text) override;
  void f_InsertError(int i_Coded) override;
  void f_AckError(int i_Coded) override;
  void f_AckAll() override;
  void f_SetOutput(int i_Line, bool b_On) override;
  void f_SetBattOutputs(bool b_Off, bool b_Usable) override;
  void f_SetRdyFlag(int i_Nr, bool b_Set) override;
  void f_SetDiagTemperature(float fl_Temp) override;
  void f_CntDwnSignal(int i_Value) override;
  void f_PowerOff() override;
  void f_SaveDynData() override;

 private:
  SysObj* z_o_Obj;
};

// Maintenance due by date or by cycle count: its error and its output.
void f_CheckWartung(SysObj* z_o_Obj);
// "UBIFS error" in the kernel log: the flash error, once per process life.
void f_CheckUbifsErrors(SysObj* z_o_Obj);
// Board temperature over I2C: over-temperature / at-or-below-zero with hysteresis. 0, or -1 when
// the sensor could not be read.
int f_CheckTemperature(SysObj* z_o_Obj);
// Reads the board sensor (address 0x49 on /dev/i2c-2): 0 with the temperature in °C, or
// -1 (logged) when the device cannot be opened, selected, written or read.
int f_ReadBoardTemperature(float* z_fl_Temp);
