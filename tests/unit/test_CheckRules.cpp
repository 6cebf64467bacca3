// The periodic checks' rules as tables: what a tick read in, the effects the rule asked for.
#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "Battery.h"
#include "CheckRules.h"

namespace {

// Each effect as a short text; log lines go to a list of their own.
class RecordingEffects_CL : public CheckEffects_CL {
 public:
  std::string str_Done;
  std::vector<std::string> o_Logs;

  void f_Log(int, const std::string& str_Text) override { o_Logs.push_back(str_Text); }
  void f_InsertError(int i_Coded) override { f_Add("insert ", i_Coded); }
  void f_AckError(int i_Coded) override { f_Add("ack ", i_Coded); }
  void f_AckAll() override { f_Add("ackall"); }
  void f_SetOutput(int i_Line, bool b_On) override { f_Add("out ", i_Line, "=", b_On); }
  void f_SetBattOutputs(bool b_Off, bool b_Usable) override {
    f_Add("batt off=", b_Off, " usable=", b_Usable);
  }
  void f_SetRdyFlag(int i_Nr, bool b_Set) override { f_Add("flag ", i_Nr, "=", b_Set); }
  void f_SetDiagTemperature(float fl_Temp) override {
    f_Add("temp ", std::fixed, std::setprecision(2), fl_Temp);
  }
  void f_CntDwnSignal(int i_Value) override { f_Add("cntdwn ", i_Value); }
  void f_PowerOff() override { f_Add("poweroff"); }
  void f_SaveDynData() override { f_Add("save"); }

 private:
  template <typename... Part_T>
  void f_Add(const Part_T&... a_Parts) {
    std::ostringstream o_Effect;
    ((o_Effect << a_Parts), ...);
    str_Done += (str_Done.empty() ? "" : ", ") + o_Effect.str();
  }
};

std::string f_Done(const CheckActions_T& o_Actions) {
  RecordingEffects_CL o_Rec;
  f_ApplyActions(o_Actions, o_Rec);
  return o_Rec.str_Done;
}

TEST(CheckRules, SensorBytesToDegreesAndTheLimitFile) {
  // The six low bits are not part of the reading; the division rounds towards zero (0xFFFF).
  const std::tuple<int, int, float> a_o_Rows[] = {
      {0x19, 0x3F, 25.0f}, {0xFF, 0xC0, -0.25f}, {0x80, 0x00, -128.0f}, {0xFF, 0xFF, 0.0f}};
  for (const auto& [i_Msb, i_Lsb, fl_Expected] : a_o_Rows)
    EXPECT_EQ(f_ConvertTemperature(i_Msb, i_Lsb), fl_Expected) << i_Msb << " " << i_Lsb;
  EXPECT_EQ(f_NextTempLimit(false, 0, 0, 60), 75u);   // no file: the default
  EXPECT_EQ(f_NextTempLimit(true, EOF, 0, 60), 75u);  // empty file: the default
  EXPECT_EQ(f_NextTempLimit(true, 0, 0, 60), 60u);    // not a number: kept
  EXPECT_EQ(f_NextTempLimit(true, 1, 40, 60), 40u);
}

TEST(CheckRules, BatteryBandsAndCharge) {
  // {raw, percent, status}; the driver's scale goes past a full battery.
  const int a_a_i_Rows[][3] = {{9, 0, en_BattEmpty},    {10, 0, en_BattLow},
                               {19, 0, en_BattLow},     {20, 11, en_BattWeak},
                               {29, 21, en_BattWeak},   {30, 22, en_BattGood},
                               {100, 100, en_BattGood}, {255, 272, en_BattGood}};
  for (const auto& a_i_R : a_a_i_Rows) {
    EXPECT_EQ(f_BattPercent(a_i_R[0]), a_i_R[1]) << a_i_R[0];
    EXPECT_EQ(f_BattStatusOf(a_i_R[0]), a_i_R[2]) << a_i_R[0];
  }
}

// Feeds readings as f_CheckBattPower does and notes what would be published.
TEST(CheckRules, BatteryReadingsAndTheZeroCount) {
  // {raw, "power/status" published or "" for nothing}
  const std::pair<int, const char*> a_o_Rows[] = {
      {100, "100/3"}, {100, ""},                 // an unchanged reading publishes nothing
      {0, ""},        {0, ""},      {0, ""},     // zeros are glitches at first
      {50, "44/3"},                              // a real reading does not reset the count
      {0, ""},        {0, ""},      {0, "0/1"},  // the sixth zero since the last reset
      {0, ""},                                   // empty: further zeros are the old reading
      {50, "44/3"},   {0, ""},      {0, ""},    {0, ""},
      {0, ""},        {0, ""},      {0, "0/1"},  // counted from zero again: six more
      {15, "0/2"},    {25, "16/5"}, {9, "0/1"}};
  CheckerState_ST o_State;
  int i_Status = en_BattOn, i_Power = -1;
  for (const auto& o_R : a_o_Rows) {
    BattDecision_ST o_D = f_RuleBattReading(o_R.first, i_Status, i_Power, o_State);
    std::string str_Published;
    if (o_D.b_PowerUpdate || o_D.i_Status != i_Status) {
      if (o_D.b_PowerUpdate) i_Power = o_D.i_Power;
      i_Status = o_D.i_Status;
      str_Published = std::to_string(i_Power) + "/" + std::to_string(i_Status);
    }
    EXPECT_EQ(str_Published, o_R.second) << "row " << &o_R - a_o_Rows;
  }
  // A tool just switched on publishes its charge even for the old reading.
  o_State.uc_VBattAlt = 80;
  EXPECT_FALSE(f_RuleBattReading(80, en_BattGood, 77, o_State).b_Changed);
  BattDecision_ST o_D = f_RuleBattReading(80, en_BattOn, 0, o_State);
  EXPECT_EQ(std::tie(o_D.b_PowerUpdate, o_D.i_Power, o_D.i_Status), std::make_tuple(true, 77, 3));
}

TEST(CheckRules, BatteryStatusEffects) {
  // {status, error noted before, store usable, effects, error noted after, count-down after}
  const std::tuple<int, bool, bool, const char*, bool, bool> a_o_Rows[] = {
      {en_BattOff, false, true, "flag 6=0, batt off=1 usable=0, save", false, true},
      {en_BattEmpty, true, true, "flag 6=0, batt off=0 usable=0, save", true, true},
      {en_BattLow, false, true, "insert 3228, flag 6=0, batt off=0 usable=0", true, false},
      {en_BattLow, true, true, "flag 6=0, batt off=0 usable=0", true, false},
      {en_BattLow, false, false, "flag 6=0, batt off=0 usable=0", false, false},
      {en_BattWeak, true, true, "flag 6=1, batt off=0 usable=1, ack 3228", false, false},
      {en_BattGood, false, true, "flag 6=1, batt off=0 usable=1", false, false},
      {en_BattGood, true, false, "flag 6=1, batt off=0 usable=1", true, false},
      {en_BattOn, true, true, "", true, false},
      {7, false, true, "", false, false},
  };
  for (const auto& [i_Status, b_ErrSet, b_Store, z_c_Done, b_ErrSetAfter, b_CntDwn] : a_o_Rows) {
    SCOPED_TRACE(i_Status);
    CheckerState_ST o_State;
    o_State.b_LowBattErrSet = b_ErrSet;
    const bool b_WasRunning = i_Status == 7;  // an unknown status leaves the count-down alone
    o_State.b_CntDwnActive = b_WasRunning;
    EXPECT_EQ(f_Done(f_RuleBattStatus(i_Status, b_Store, o_State)), z_c_Done);
    EXPECT_EQ(o_State.b_LowBattErrSet, b_ErrSetAfter);
    EXPECT_EQ(o_State.b_CntDwnActive, b_CntDwn || b_WasRunning);
  }
}

TEST(CheckRules, CountDownRunsTwentySecondsThenSwitchesOffAndIsNotRestarted) {
  CheckerState_ST o_State;
  f_CntDwnRun(o_State);
  EXPECT_EQ(f_Done(f_RuleCntDwnStep(o_State)), "cntdwn 20");
  for (int i = 0; i < 4; i++) f_RuleCntDwnStep(o_State);
  // A second announcement (empty after off) must not buy time.
  f_RuleBattStatus(en_BattEmpty, true, o_State);
  EXPECT_EQ(o_State.i_CntDown, 15);
  while (o_State.i_CntDown > 1) f_RuleCntDwnStep(o_State);
  EXPECT_EQ(f_Done(f_RuleCntDwnStep(o_State)), "cntdwn 1");
  EXPECT_EQ(f_Done(f_RuleCntDwnStep(o_State)), "poweroff");
  EXPECT_EQ(f_Done(f_RuleCntDwnStep(o_State)), "poweroff");
  // A good battery stops it; the next announcement starts from 20 again.
  f_RuleBattStatus(en_BattGood, true, o_State);
  EXPECT_FALSE(o_State.b_CntDwnActive);
  f_RuleBattStatus(en_BattOff, true, o_State);
  EXPECT_EQ(o_State.i_CntDown, 20);
}

TEST(CheckRules, TemperatureHysteresisAndTheLoweredLimit) {
  const std::tuple<unsigned int, float, const char*> a_o_Rows[] = {
      {60, 60.0f, "temp 60.00"},  // at the limit: not over it
      {60, 60.25f, "temp 60.25, insert 3252"},
      {60, 55.0f, "temp 55.00"},  // exactly limit - 5: the error holds
      {60, 54.75f, "temp 54.75, ack 3252, ack 3268"},
      {60, 0.0f, "temp 0.00, insert 3268"},
      {60, 70.0f, "temp 70.00"},  // one flag for both
      {60, 5.0f, "temp 5.00"},
      {60, 5.25f, "temp 5.25, ack 3252, ack 3268"},  // 5 still holds
      {60, 50.0f, "temp 50.00"},
      // A reading equal to the last one is not compared again, even under a lower limit; the
      // next different one is.
      {40, 50.0f, ""},
      {40, 50.25f, "temp 50.25, insert 3252"},
      {40, 34.75f, "temp 34.75, ack 3252, ack 3268"},
      {3, 4.0f, "temp 4.00, insert 3252"},  // a limit under 5 can never withdraw
      {3, 1.0f, "temp 1.00"},
  };
  CheckerState_ST o_State;
  for (const auto& [ui_Limit, fl_Temp, z_c_Done] : a_o_Rows) {
    o_State.ui_TempLimit = ui_Limit;
    EXPECT_EQ(f_Done(f_RuleTemperature(fl_Temp, o_State)), z_c_Done) << ui_Limit << " " << fl_Temp;
  }
}

TEST(CheckRules, MaintenanceDueByCycleOrDate) {
  // {{active, now, next date, next cycle, cycle read, cycle}, effects}
  const std::pair<MaintInput_ST, const char*> a_o_Rows[] = {
      {{false, 100, 0, 50, true, 100}, ""},  // supervision off: nothing
      {{true, 100, 0, 50, true, 100}, "insert 3216, out 31=1"},
      {{true, 100, 0, 50, true, 100}, ""},  // still due: no repeat
      {{true, 100, 0, 50, true, 10}, "ack 3216, out 31=0"},
      {{true, 100, 0, 50, true, 50}, "insert 3216, out 31=1"},  // the next cycle reached
      {{true, 100, 0, 50, false, 50}, "ack 3216, out 31=0"},    // count unreadable: not due
      {{true, 999, 1000, 500, true, 10}, ""},
      {{true, 1000, 1000, 500, true, 10}, "insert 3216, out 31=1"},  // the date reached
      {{true, 5000, -1, 500, true, 10}, "ack 3216, out 31=0"},       // no date
      {{true, 5000, 1, 500, true, 10}, "insert 3216, out 31=1"},
      {{false, 5000, 1, 500, true, 10}, "out 31=0, ack 3216"},  // switched off
  };
  CheckerState_ST o_State;
  for (const auto& o_R : a_o_Rows)
    EXPECT_EQ(f_Done(f_RuleMaintenance(o_R.first, o_State)), o_R.second) << &o_R - a_o_Rows;
}

// From a low level (the service starts with the opposite of the input): held, falls, rises.
TEST(CheckRules, AcknowledgeInputActsOnRisingEdgesOnly) {
  CheckerState_ST o_State;
  std::string str_Seen;
  for (char c_Level : std::string("0110110"))
    str_Seen += f_Done(f_RuleAckInput(c_Level == '1', o_State)) == "ackall" ? "A" : "-";
  EXPECT_EQ(str_Seen, "-A--A--");
}

TEST(CheckRules, FlashErrorIsReportedOncePerProcess) {
  CheckerState_ST o_State;
  EXPECT_EQ(f_Done(f_RuleFlash("", o_State)), "");
  RecordingEffects_CL o_Rec;
  f_ApplyActions(f_RuleFlash("UBIFS error (ubi0:0)", o_State), o_Rec);
  EXPECT_EQ(o_Rec.str_Done, "insert 3233");
  EXPECT_EQ(o_Rec.o_Logs, std::vector<std::string>{"f_CheckUbifsErrors - UBIFS error (ubi0:0)"});
  EXPECT_EQ(f_Done(f_RuleFlash("UBIFS error (ubi0:0)", o_State)), "");
}

TEST(CheckRules, FirstTickRunsNoDividedStepTheSecondRunsAll) {
  CheckerState_ST o_State;
  for (unsigned int ui_Period : {4u, 20u, 40u}) {
    EXPECT_FALSE(f_IsDue(ui_Period, o_State.ui_Tick)) << ui_Period;
    EXPECT_TRUE(f_IsDue(ui_Period, o_State.ui_Tick + 1)) << ui_Period;
  }
}

}  // namespace
