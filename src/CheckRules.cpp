// The periodic checks' rules: decisions only, no reading and no writing. Each check reports
// on entering a bad state and withdraws on leaving it, never repeatedly.
#include "CheckRules.h"

#include <cstdint>
#include <cstdio>
#include <syslog.h>

#include "Battery.h"

namespace {
CheckAction_ST f_Act(en_CheckAct e_Act, int i_Arg = 0, bool b_Value = false) {
  CheckAction_ST o_A;
  o_A.e_Act = e_Act;
  o_A.i_Arg = i_Arg;
  o_A.b_Value = b_Value;
  return o_A;
}

CheckAction_ST f_Log(const std::string& str_Text) {
  CheckAction_ST o_A;
  o_A.i_Arg = LOG_INFO;
  o_A.str_Text = str_Text;
  return o_A;
}
}  // namespace

void f_ApplyActions(const CheckActions_T& o_Actions, CheckEffects_CL& o_Effects) {
  for (const CheckAction_ST& o_A : o_Actions) {
    switch (o_A.e_Act) {
      case en_ActLog:
        o_Effects.f_Log(o_A.i_Arg, o_A.str_Text);
        break;
      case en_ActInsertError:
        o_Effects.f_InsertError(o_A.i_Arg);
        break;
      case en_ActAckError:
        o_Effects.f_AckError(o_A.i_Arg);
        break;
      case en_ActAckAll:
        o_Effects.f_AckAll();
        break;
      case en_ActOutput:
        o_Effects.f_SetOutput(o_A.i_Arg, o_A.b_Value);
        break;
      case en_ActBattOutputs:
        o_Effects.f_SetBattOutputs(o_A.i_Arg != 0, o_A.b_Value);
        break;
      case en_ActRdyFlag:
        o_Effects.f_SetRdyFlag(o_A.i_Arg, o_A.b_Value);
        break;
      case en_ActDiagTemperature:
        o_Effects.f_SetDiagTemperature(o_A.fl_Value);
        break;
      case en_ActCntDwnSignal:
        o_Effects.f_CntDwnSignal(o_A.i_Arg);
        break;
      case en_ActPowerOff:
        o_Effects.f_PowerOff();
        break;
      case en_ActSaveDynData:
        o_Effects.f_SaveDynData();
        break;
    }
  }
}

CheckActions_T f_RuleMaintenance(const MaintInput_ST& o_In, CheckerState_ST& o_State) {
  CheckActions_T o_Out;
  if (!o_In.b_Active) {
    if (o_State.b_MaintDue) {
      o_State.b_MaintDue = false;
      o_Out.push_back(f_Act(en_ActOutput, I_BMS_OUT_MAINTENANCE_DUE, false));
    }
    if (o_State.b_MaintErrSet) {
      o_Out.push_back(f_Act(en_ActAckError, I_SYSERR_MAINTENANCE_DUE));
      o_State.b_MaintErrSet = false;
    }
    return o_Out;
  }
  bool b_DateDue = o_In.ll_NextDate > 0 && o_In.ll_Now >= o_In.ll_NextDate;
  bool b_CycleDue = o_In.b_CycleRead && o_In.ui_NextCycle <= o_In.ui_Cycle;
  bool b_Due = b_DateDue || b_CycleDue;
  if (b_Due == o_State.b_MaintDue) return o_Out;
  o_State.b_MaintDue = b_Due;
  if (b_Due) {
    if (b_DateDue)
      o_Out.push_back(f_Log("f_CheckWartung - Date: " + std::to_string(o_In.ll_Now) + " - " +
                            std::to_string(o_In.ll_NextDate)));
    if (b_CycleDue)
      o_Out.push_back(f_Log("f_CheckWartung - Cycle: " + std::to_string(o_In.ui_Cycle) + " - " +
                            std::to_string(o_In.ui_NextCycle)));
    if (!o_State.b_MaintErrSet) {
      o_Out.push_back(f_Act(en_ActInsertError, I_SYSERR_MAINTENANCE_DUE));
      o_State.b_MaintErrSet = true;
    }
  } else if (o_State.b_MaintErrSet) {
    o_Out.push_back(f_Act(en_ActAckError, I_SYSERR_MAINTENANCE_DUE));
    o_State.b_MaintErrSet = false;
  }
  o_Out.push_back(f_Act(en_ActOutput, I_BMS_OUT_MAINTENANCE_DUE, b_Due));
  return o_Out;
}

CheckActions_T f_RuleFlash(const std::string& str_Found, CheckerState_ST& o_State) {
  if (str_Found.empty() || o_State.b_FlashErrSet) return {};
  o_State.b_FlashErrSet = true;
  return {f_Log("f_CheckUbifsErrors - " + str_Found), f_Act(en_ActInsertError, I_SYSERR_FLASH)};
}

float f_ConvertTemperature(unsigned char uc_Msb, unsigned char uc_Lsb) {
  // A 10-bit reading, left-aligned in a signed 16-bit big-endian word, in 0.25 °C steps.
  int16_t i_Raw = static_cast<int16_t>(static_cast<uint16_t>((uc_Msb << 8) | uc_Lsb));
  return static_cast<float>(i_Raw / 64) * 0.25f;
}

unsigned int f_NextTempLimit(bool b_Opened, int i_Scanned, unsigned int ui_Read,
                             unsigned int ui_Previous) {
  if (!b_Opened || i_Scanned == EOF) return CheckerState_ST::UI_DEFAULT_TEMP_LIMIT;
  return i_Scanned == 1 ? ui_Read : ui_Previous;
}

CheckActions_T f_RuleTemperature(float fl_Temp, CheckerState_ST& o_State) {
  if (fl_Temp == o_State.fl_LastTemperature) return {};
  CheckAction_ST o_Store;
  o_Store.e_Act = en_ActDiagTemperature;
  o_Store.fl_Value = fl_Temp;
  CheckActions_T o_Out{o_Store};
  o_State.fl_LastTemperature = fl_Temp;

  float fl_Limit = static_cast<float>(o_State.ui_TempLimit);
  if (fl_Temp > fl_Limit) {
    if (!o_State.b_TempErrSet) {
      o_Out.push_back(f_Act(en_ActInsertError, I_SYSERR_OVER_TEMPERATURE));
      o_State.b_TempErrSet = true;
    }
  } else if (fl_Temp <= 0.0f) {
    if (!o_State.b_TempErrSet) {
      o_Out.push_back(f_Act(en_ActInsertError, I_SYSERR_TEMPERATURE_AT_OR_BELOW_ZERO));
      o_State.b_TempErrSet = true;
    }
  } else if (o_State.b_TempErrSet && fl_Temp < fl_Limit - 5.0f && fl_Temp > 5.0f) {
    // Between limit - 5 and the limit (and between 0 and 5) the state holds.
    o_Out.push_back(f_Act(en_ActAckError, I_SYSERR_OVER_TEMPERATURE));
    o_Out.push_back(f_Act(en_ActAckError, I_SYSERR_TEMPERATURE_AT_OR_BELOW_ZERO));
    o_State.b_TempErrSet = false;
  }
  return o_Out;
}

CheckActions_T f_RuleAckInput(bool b_Level, CheckerState_ST& o_State) {
  // Collective acknowledgement on a rising edge only: a held input acknowledges once.
  bool b_Rising = b_Level && !o_State.b_AckInputLevel;
  o_State.b_AckInputLevel = b_Level;
  if (!b_Rising) return {};
  return {f_Act(en_ActAckAll)};
}

int f_BattPercent(int i_Raw) { return i_Raw < 20 ? 0 : (100 * i_Raw - 1000) / 90; }

int f_BattStatusOf(int i_Raw) {
  if (i_Raw < 10) return en_BattEmpty;
  if (i_Raw < 20) return en_BattLow;
  if (i_Raw < 30) return en_BattWeak;
  return en_BattGood;
}

BattDecision_ST f_RuleBattReading(int i_Raw, int i_Status, int i_Power, CheckerState_ST& o_State) {
  BattDecision_ST o_D;
  o_D.i_Status = i_Status;
  // A tool just switched on publishes its charge even when the reading is the old one.
  bool b_JustOn = i_Power == 0 && i_Status == en_BattOn;
  if (i_Raw == o_State.uc_VBattAlt && !b_JustOn) return o_D;
  o_D.b_Changed = true;
  if (i_Raw == 0) {
    // A single zero is a glitch; only six of them (since the last reset of the count)
    // empty the battery.
    if (i_Status != en_BattOff && ++o_State.i_ZeroReadings >= 6) {
      o_D.i_Status = en_BattEmpty;
      o_D.i_Power = 0;
      o_D.b_PowerUpdate = true;
      o_State.i_ZeroReadings = 0;
      o_State.uc_VBattAlt = 0;
    }
    return o_D;
  }
  o_D.i_Status = f_BattStatusOf(i_Raw);
  o_D.i_Power = f_BattPercent(i_Raw);
  o_D.b_PowerUpdate = true;
  o_State.uc_VBattAlt = static_cast<unsigned char>(i_Raw);
  return o_D;
}

void f_CntDwnRun(CheckerState_ST& o_State) {
  if (o_State.b_CntDwnActive) return;
  o_State.i_CntDown = I_CNT_DOWN_SECONDS;
  o_State.b_CntDwnActive = true;
}

CheckActions_T f_RuleBattStatus(int i_Status, bool b_ErrorStore, CheckerState_ST& o_State) {
  auto f_Flag6 = [](bool b_Set) { return f_Act(en_ActRdyFlag, I_RDY_FLAG_BATTERY, b_Set); };
  auto f_Outputs = [](bool b_Off, bool b_Usable) {
    return f_Act(en_ActBattOutputs, b_Off ? 1 : 0, b_Usable);
  };
  CheckActions_T o_Out;
  switch (i_Status) {
    case en_BattOff:
    case en_BattEmpty:
      o_Out = {f_Flag6(false), f_Outputs(i_Status == en_BattOff, false)};
      f_CntDwnRun(o_State);
      // Before the tool is switched off, the changing nameplate data must be on the EEPROM.
      o_Out.push_back(f_Act(en_ActSaveDynData));
      break;
    case en_BattLow:
      // Raised once per low phase; withdrawn when the battery is good again.
      if (!o_State.b_LowBattErrSet && b_ErrorStore) {
        o_Out.push_back(f_Act(en_ActInsertError, I_SYSERR_BATTERY_LOW));
        o_State.b_LowBattErrSet = true;
      }
      o_Out.push_back(f_Flag6(false));
      o_Out.push_back(f_Outputs(false, false));
      break;
    case en_BattGood:
    case en_BattWeak:
      o_State.b_CntDwnActive = false;
      o_Out = {f_Flag6(true), f_Outputs(false, true)};
      if (o_State.b_LowBattErrSet && b_ErrorStore) {
        o_Out.push_back(f_Act(en_ActAckError, I_SYSERR_BATTERY_LOW));
        o_State.b_LowBattErrSet = false;
      }
      break;
    case en_BattOn:
      o_State.b_CntDwnActive = false;
      break;
    default:
      break;
  }
  return o_Out;
}

CheckActions_T f_RuleCntDwnStep(CheckerState_ST& o_State) {
  if (o_State.i_CntDown < 1) return {f_Act(en_ActPowerOff)};
  return {f_Act(en_ActCntDwnSignal, o_State.i_CntDown--)};
}
