#pragma once
// The periodic checks' memory and their rules. A rule is a pure function: what the tick read
// and the state go in, the new state and a list of actions come out. SystemChecker.cpp and
// Battery.cpp do the reading and hand the actions to CheckEffects_CL, the one place where a
// check touches the error store, the board's outputs, the diagnostic store or the bus, so
// every rule can be tried as a table without a daemon.
#include <string>
#include <vector>

#include "SysSrvNames.h"

// The cycle count of the nameplate's last save; one for the process.
struct SavedCycle_ST {
  bool b_Set = false;
  unsigned int ui_Cycle = 0;
};

// Everything the checks remember between ticks. One instance, in the service object.
struct CheckerState_ST {
  static constexpr unsigned int UI_DEFAULT_TEMP_LIMIT = 75;

  // Starts with all bits set so that the first tick wraps it to 0: the first tick runs none
  // of the divided steps, the second runs all of them.
  unsigned int ui_Tick = 0xFFFFFFFFu;

  bool b_MaintDue = false;     // maintenance due, as last seen
  bool b_MaintErrSet = false;  // maintenance error reported
  bool b_FlashErrSet = false;  // flash error: reported once per process life

  unsigned int ui_TempLimit = UI_DEFAULT_TEMP_LIMIT;
  float fl_LastTemperature = 0.0f;
  bool b_TempErrSet = false;  // one flag for both temperature errors
  bool b_TempCheckPending = false;

  bool b_AckInputLevel = false;

  bool b_LtReady = false;       // the driver's battery files mean something
  bool b_LtWaitLogged = false;  // "not initialized yet" logged once
  unsigned char uc_VBattAlt = 255;
  int i_ZeroReadings = 0;
  bool b_LowBattErrSet = false;

  int i_CntDown = 0;
  bool b_CntDwnActive = false;

  SavedCycle_ST o_SavedCycle;
};

// What a rule asks for; carried out in list order.
enum en_CheckAct {
  en_ActLog,              // str_Text at syslog priority i_Arg
  en_ActInsertError,      // coded error i_Arg
  en_ActAckError,         // coded error i_Arg
  en_ActAckAll,           // collective acknowledgement
  en_ActOutput,           // board output i_Arg to b_Value
  en_ActBattOutputs,      // outputs "off" (i_Arg != 0) and "usable" (b_Value) in one step
  en_ActRdyFlag,          // readiness flag i_Arg set (b_Value) or reset
  en_ActDiagTemperature,  // fl_Value into the diagnostic store
  en_ActCntDwnSignal,     // "battcntdwn" with i_Arg
  en_ActPowerOff,
  en_ActSaveDynData,  // the nameplate's changing data to the EEPROM, then sync
};

struct CheckAction_ST {
  en_CheckAct e_Act = en_ActLog;
  int i_Arg = 0;
  bool b_Value = false;
  float fl_Value = 0.0f;
  std::string str_Text;
};
using CheckActions_T = std::vector<CheckAction_ST>;

// The seam between the rules and the tool. The service's implementation sits in
// SystemChecker.cpp; a test records the calls instead.
class CheckEffects_CL {
 public:
  virtual ~CheckEffects_CL() = default;
  virtual void f_Log(int i_Prio, const std::string& str_Text) = 0;
  virtual void f_InsertError(int i_Coded) = 0;
  virtual void f_AckError(int i_Coded) = 0;
  virtual void f_AckAll() = 0;
  virtual void f_SetOutput(int i_Line, bool b_On) = 0;
  virtual void f_SetBattOutputs(bool b_Off, bool b_Usable) = 0;
  virtual void f_SetRdyFlag(int i_Nr, bool b_Set) = 0;
  virtual void f_SetDiagTemperature(float fl_Temp) = 0;
  virtual void f_CntDwnSignal(int i_Value) = 0;
  virtual void f_PowerOff() = 0;
  virtual void f_SaveDynData() = 0;
};

void f_ApplyActions(const CheckActions_T& o_Actions, CheckEffects_CL& o_Effects);

// --- the tick's schedule ----------------------------------------------------------------
// A step with period n runs on the ticks whose count is a multiple of n.
inline bool f_IsDue(unsigned int ui_Period, unsigned int ui_Tick) {
  return ui_Tick % ui_Period == 0;
}

// --- maintenance ----------------------------------------------------------------------
struct MaintInput_ST {
  bool b_Active;          // supervision on
  long long ll_Now;       // seconds since the epoch
  long long ll_NextDate;  // 0 or less: no date
  unsigned int ui_NextCycle;
  bool b_CycleRead;  // the cycle count could be read
  unsigned int ui_Cycle;
};
CheckActions_T f_RuleMaintenance(const MaintInput_ST& o_In, CheckerState_ST& o_State);

// --- flash errors -----------------------------------------------------------------------
// str_Found: the kernel log lines found, empty when none or the search failed.
CheckActions_T f_RuleFlash(const std::string& str_Found, CheckerState_ST& o_State);

// --- board temperature ------------------------------------------------------------------
// °C from the sensor's two register bytes.
float f_ConvertTemperature(unsigned char uc_Msb, unsigned char uc_Lsb);
// The limit after reading the limit file: no file gives the default, an empty file the
// default, a file that does not start with a number keeps the previous limit.
// i_Scanned: what fscanf("%u") returned.
unsigned int f_NextTempLimit(bool b_Opened, int i_Scanned, unsigned int ui_Read,
                             unsigned int ui_Previous);
// A reading equal to the last one is not compared again, even when the limit moved.
CheckActions_T f_RuleTemperature(float fl_Temp, CheckerState_ST& o_State);

// --- acknowledge input ------------------------------------------------------------------
CheckActions_T f_RuleAckInput(bool b_Level, CheckerState_ST& o_State);

// --- battery ----------------------------------------------------------------------------
constexpr int I_CNT_DOWN_SECONDS = 20;
// Charge in percent from a raw reading (0 below 20).
int f_BattPercent(int i_Raw);
// Status of a raw reading 1..255 (en_BattStatus values).
int f_BattStatusOf(int i_Raw);

struct BattDecision_ST {
  bool b_Changed = false;      // something to publish (the reading is logged)
  bool b_PowerUpdate = false;  // publish i_Power
  int i_Power = 0;
  int i_Status = 0;  // publish when it differs from the current one
};
// One raw reading against the published status and charge.
BattDecision_ST f_RuleBattReading(int i_Raw, int i_Status, int i_Power, CheckerState_ST& o_State);
// What entering status i_Status does besides publishing it. b_ErrorStore: the error store
// exists (without it the low-battery error is neither raised nor remembered).
CheckActions_T f_RuleBattStatus(int i_Status, bool b_ErrorStore, CheckerState_ST& o_State);

// --- power-off count-down ---------------------------------------------------------------
// Never restarts a running count-down: a second announcement must not buy time.
void f_CntDwnRun(CheckerState_ST& o_State);
// One second of it: the remaining seconds go out, after the last one the tool is switched off.
CheckActions_T f_RuleCntDwnStep(CheckerState_ST& o_State);
