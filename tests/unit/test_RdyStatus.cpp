// Readiness: reading the required flags, masking, and the comparison step behind
// output 17, "rdychanged" and the one-time renice.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <semaphore.h>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "ErrorHandler.h"
#include "SystemSrv.h"
#include "TestSupport.h"
#include "sysLib/Bms.h"
#include "sysLib/SysExcpt.h"

namespace {
// Keeps the "rdychanged" arguments instead of sending them.
class RecordingHandler_CL : public ErrorHandler_CL {
 public:
  using ErrorHandler_CL::ErrorHandler_CL;
  std::vector<std::string> o_RdyChanged;

 protected:
  void f_Signal(const char* z_c_Name, GVariant* o_Params) override {
    GVariant* z_o_Tuple = g_variant_ref_sink(o_Params);
    gchar* z_c_Text = g_variant_print(z_o_Tuple, FALSE);
    if (std::string(z_c_Name) == "rdychanged") o_RdyChanged.push_back(z_c_Text);
    g_free(z_c_Text);
    g_variant_unref(z_o_Tuple);
  }
};

class RdyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sem_init(&o_Obj.o_SignalEmitSemId, 0, 1);
    o_Root.f_Write(ErrorHandler_CL::A_C_CFG_PATH, R"({"DbFilePath":"/mnt/log/syserrors.sq3"})");
    std::filesystem::create_directories(o_Root.f_Path("/mnt/log"));
    // A dbus-send that only notes its arguments, first on PATH in the sandbox.
    o_Root.f_Write("/bin/dbus-send",
                   "#!/bin/sh\necho \"$*\" >> '" + o_Root.f_Path("/sim/commands.log") + "'\n");
    chmod(o_Root.f_Path("/bin/dbus-send").c_str(), 0755);
    std::filesystem::create_directories(o_Root.f_Path("/sim"));
    o_Bms = std::make_unique<Bms_CL>();
  }
  void TearDown() override {
    z_o_ErrorHandler = nullptr;
    sem_destroy(&o_Obj.o_SignalEmitSemId);
  }
  std::unique_ptr<RecordingHandler_CL> f_Make(const std::string& str_Flags) {
    o_Root.f_Write(RdyStatus_CL::A_C_RDY_STATUS_SOLL_PATH, str_Flags);
    return std::make_unique<RecordingHandler_CL>(&o_Obj, 0, o_Bms.get());
  }
  // (reported RdyIst, RdySoll) as "frdyget" answers them.
  std::string f_RdyGet() {
    int i_Ist = 0, i_Soll = 0;
    if (!::f_RdyGet(&o_Obj, &i_Ist, &i_Soll, nullptr)) return "error";
    return std::to_string(i_Ist) + " " + std::to_string(i_Soll);
  }

  TempRoot o_Root;
  SysObj o_Obj{};
  std::unique_ptr<Bms_CL> o_Bms;
};

TEST_F(RdyTest, ReadingTheRequiredFlags) {
  struct Case_ST {
    const char* z_c_Text;
    uint32_t ui_Soll;
    size_t ui_Listed;
  };
  const Case_ST a_o_Cases[] = {
      // "state": 0 is listed but not required.
      {R"({"flags":[{"nr":3,"state":1,"name":"SysSrv"},{"nr":5,"state":0,"name":"Gui"}]})", 0x8u,
       2},
      // Without a name the requirement stays; only the dump entry is missing.
      {R"({"flags":[{"nr":6,"state":2}]})", 0x40u, 0},
      // Numbers outside 0..31 require nothing.
      {R"({"flags":[{"nr":40,"state":1,"name":"A"},{"nr":-1,"state":1,"name":"B"},)"
       R"({"nr":31,"state":1,"name":"C"}]})",
       0x80000000u, 3},
      // Entries without a number for "nr" or "state" are skipped.
      {R"({"flags":[{"state":1,"name":"A"},{"nr":2,"name":"B"},7,{"nr":"4","state":1,"name":"C"}]})",
       0x0u, 0},
  };
  for (const auto& o_C : a_o_Cases) {
    o_Root.f_Write(RdyStatus_CL::A_C_RDY_STATUS_SOLL_PATH, o_C.z_c_Text);
    RdyStatus_CL o_Rdy;
    EXPECT_EQ(o_C.ui_Soll, o_Rdy.f_GetRdySoll()) << o_C.z_c_Text;
    EXPECT_EQ(o_C.ui_Listed, o_Rdy.f_GetRdySollStatusList().size()) << o_C.z_c_Text;
  }
}

TEST_F(RdyTest, UnusableFlagsFileStopsTheErrorHandler) {
  for (const char* z_c_Text :
       {R"({"flags":{"nr":3,"state":1}})", R"({"flag":[]})", "{\"flags\":["}) {
    std::string str_Thrown;
    try {
      f_Make(z_c_Text);
    } catch (SysExcpt_CL* z_o_Excpt) {
      str_Thrown = std::to_string(z_o_Excpt->f_GetCode()) + " " + z_o_Excpt->f_GetText();
      delete z_o_Excpt;
    }
    EXPECT_EQ("4 RdyStatus_CL::f_ReadRdySoll", str_Thrown) << z_c_Text;
  }
}

TEST_F(RdyTest, OnlyRequiredFlagsCount) {
  auto o_H = f_Make(R"({"flags":[{"nr":3,"state":1,"name":"S"},{"nr":5,"state":0,"name":"G"}]})");
  z_o_ErrorHandler = o_H.get();
  EXPECT_EQ("8 8", f_RdyGet());  // the open database set flag 3
  f_BusRdyFlagSet(5);
  EXPECT_EQ("8 8", f_RdyGet());
  EXPECT_FALSE(o_H->f_SetRdyFlag(3));  // RdyIst 0x28 is not exactly RdySoll
  f_BusRdyFlagReset(5);
  EXPECT_TRUE(o_H->f_IsRdyFlagSet(5));
  EXPECT_TRUE(o_H->f_IsRdyFlagSet(40));
  EXPECT_TRUE(o_H->f_SetRdyFlag(3));
  for (int i_Nr : {-1, 32, 40}) f_RdyFlagReset(&o_Obj, i_Nr, nullptr);
  EXPECT_TRUE(o_H->f_IsRdyFlagSet(3));
  f_RdyFlagReset(&o_Obj, 3, nullptr);
  EXPECT_EQ("0 8", f_RdyGet());
  EXPECT_FALSE(o_H->f_IsRdyFlagSet(3));
}

TEST_F(RdyTest, ReadyOutputAndSignalOnlyOnChangeAndReniceOnce) {
  auto o_H = f_Make(R"({"flags":[{"nr":3,"state":1,"name":"S"},{"nr":6,"state":1,"name":"B"}]})");
  const std::string str_Renice =
      "--system --print-reply --dest=com.torvane.akku.GUIService /GUI "
      "com.torvane.akku.gui.setNice int32:-15\n";

  // Not ready at start: nothing is announced and output 17 is left as it is.
  o_Bms->f_Out(17, true);
  o_H->f_RdyChecker();
  EXPECT_TRUE(o_H->o_RdyChanged.empty());
  EXPECT_TRUE(o_Bms->f_GetOut(17));

  struct Step_ST {
    std::vector<int> o_Set, o_Reset;  // flag changes before the tick
    bool b_Out17;                     // output 17 before the tick
    bool b_Out17After;
    const char* z_c_Signal;  // "" = none
  };
  const Step_ST a_o_Steps[] = {
      {{6}, {}, false, true, "(72, 72)"},
      {{}, {}, false, false, ""},  // still ready: the output is not rewritten
      {{6}, {6}, true, true, ""},  // a drop undone within one period is no change
      {{}, {6}, true, false, "(8, 72)"},
      {{6}, {}, false, true, "(72, 72)"},
  };
  for (const auto& o_S : a_o_Steps) {
    for (int i_Nr : o_S.o_Reset) o_H->f_ResetRdyFlag(i_Nr);
    for (int i_Nr : o_S.o_Set) o_H->f_SetRdyFlag(i_Nr);
    o_Bms->f_Out(17, o_S.b_Out17);
    o_H->o_RdyChanged.clear();
    o_H->f_RdyChecker(nullptr);
    EXPECT_EQ(o_S.b_Out17After, o_Bms->f_GetOut(17));
    EXPECT_EQ(o_S.z_c_Signal, o_H->o_RdyChanged.empty() ? "" : o_H->o_RdyChanged.back());
  }
  // Ready twice, but the user interface is reniced only at the first ready moment.
  EXPECT_EQ(str_Renice, o_Root.f_Read("/sim/commands.log"));
}

TEST_F(RdyTest, UnmappedErrorSegmentIsReportedNotDereferenced) {
  // A directory where the segment should be: it can be neither opened nor mapped.
  std::filesystem::create_directories(o_Root.f_Path("/dev/shm/ErrorShMem"));
  auto o_H = f_Make(R"({"flags":[{"nr":3,"state":1,"name":"S"}]})");
  z_o_ErrorHandler = o_H.get();
  int i_Err = 0;
  EXPECT_EQ("error", f_RdyGet());
  EXPECT_EQ(-1, o_H->f_SysErrorGet(&i_Err));
  EXPECT_FALSE(o_H->f_SetRdyFlag(3) || o_H->f_IsRdyFlagSet(3) || o_H->f_IsSmod());
  o_H->f_RdyChecker();
  EXPECT_TRUE(o_H->o_RdyChanged.empty());
  EXPECT_EQ(0, o_H->f_Insert("Gui", "3228"));  // the store itself still works
}
}  // namespace
