// syssrvctl against the real daemon: every subcommand's effect on the service, JSON that
// scripts can parse, the monitor, and clear failures when the service or the bus is gone.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "Harness.h"

using namespace it;

namespace {

struct CtlRun_ST {
  int i_Exit;
  std::string str_Out, str_Err;
};

// One of our programs on the bus, its stdout and stderr in files: a monitor is read as it runs.
class Prog_CL : TempDir, public Process {
 public:
  Prog_CL(const std::string& str_Address, const std::vector<std::string>& o_Argv)
      : Process(o_Argv, str_Dir + "/err", {"DBUS_SYSTEM_BUS_ADDRESS=" + str_Address},
                str_Dir + "/out") {
    f_Start();
  }
  std::string f_Out() const { return f_ReadFile(str_Dir + "/out"); }
  bool f_WaitOut(const std::string& str_Text, int i_TimeoutMs) const {
    return f_WaitUntil([&] { return f_Out().find(str_Text) != std::string::npos; }, i_TimeoutMs);
  }
  // Like f_Stop; whatever went wrong, the user got our one line, never GLib's diagnostics.
  int f_End(int i_Sig) {
    int i_Exit = f_Stop(i_Sig);
    for (const char* z_c_Noise : {"GLib", "CRITICAL", "WARNING", "**"})
      EXPECT_EQ(f_Log().find(z_c_Noise), std::string::npos) << f_Log();
    return i_Exit;
  }
};

CtlRun_ST f_Ctl(const std::string& str_Address, std::vector<std::string> o_Args,
                const char* z_c_Prog = SYSSRV_CTL) {
  o_Args.insert(o_Args.begin(), z_c_Prog);
  Prog_CL o_Prog(str_Address, o_Args);
  int i_Exit = o_Prog.f_End(0);
  return {i_Exit, o_Prog.f_Out(), o_Prog.f_Log()};
}

using Check_T = std::function<bool(const CtlRun_ST&)>;
Check_T f_OutHolds(const Want_T& o_Want) {
  return [=](const CtlRun_ST& o_Run) { return f_Holds(o_Run.str_Out, o_Want); };
}

// One run and what it must show: a text on stdout (on stderr when it fails), f_Check of the
// run (more of its output, or the change it made) and its exit status.
struct Step_ST {
  std::vector<std::string> o_Args;
  std::string str_Text;
  Check_T f_Check = nullptr;
  int i_Exit = 0;
};

void f_Steps(const std::string& str_Address, const std::vector<Step_ST>& o_Steps,
             const char* z_c_Prog = SYSSRV_CTL) {
  for (const Step_ST& o_S : o_Steps) {
    SCOPED_TRACE(::testing::PrintToString(o_S.o_Args));
    CtlRun_ST o_Run = f_Ctl(str_Address, o_S.o_Args, z_c_Prog);
    EXPECT_EQ(o_Run.i_Exit, o_S.i_Exit) << o_Run.str_Err;
    EXPECT_NE((o_S.i_Exit == 0 ? o_Run.str_Out : o_Run.str_Err).find(o_S.str_Text),
              std::string::npos)
        << o_Run.str_Out << o_Run.str_Err;
    EXPECT_TRUE(!o_S.f_Check || o_S.f_Check(o_Run)) << o_Run.str_Out;
  }
}

const char* A_C_CHAN_CFG = "/home/tool/config/ChanCfg.json";
const char* A_C_CNT_CFG = "/home/tool/config/OkNokCntCfg.json";
const char* A_C_RES_CFG = "/home/tool/config/ResSrv.json";

// Flag 1 stands for the tightening process, so that readiness can be driven from outside.
void f_ToolProcFlag(const Sandbox& o_Box) {
  o_Box.f_Write("/home/tool/config/log/rdystatus.json",
                R"({"flags":[{"nr":1,"state":1,"name":"ToolProc"},)"
                R"({"nr":3,"state":1,"name":"SysSrv"}]})");
}

class Syssrvctl : public ServiceSuite<f_ToolProcFlag> {
 protected:
  static const std::string& f_Address() { return z_o_Svc->o_Bus.f_Address(); }
  static Check_T f_FileHolds(const char* z_c_Logical, const Want_T& o_Want) {
    return [=](const CtlRun_ST&) { return f_Holds(z_o_Svc->o_Box.f_Read(z_c_Logical), o_Want); };
  }
};

// One pass through the subcommands in the order a technician would use them; each step
// names what it must have changed in the service. JSON output is what scripts parse.
TEST_F(Syssrvctl, EverySubcommandChangesWhatItSays) {
  // The first ticks read the battery: from then on its status is a settled "good".
  ASSERT_NE(o_Rec.f_WaitFor("battstatuschanged", 10000), nullptr) << z_o_Svc->o_Daemon.f_Log();
  const std::string str_Set =
      R"({"Id":5,"MaxOk":10,"MaxNok":2,"DirectionOk":"up","LockTool":true})";
  // Short JSON is one line, pretty is indented; both the same object.
  auto f_Status = [](bool b_Pretty) {
    return [=](const CtlRun_ST& o_R) {
      return (std::count(o_R.str_Out.begin(), o_R.str_Out.end(), '\n') > 1) == b_Pretty &&
             f_Holds(o_R.str_Out, {{{"running"}, "true"}, {{"battery", "status"}, "3"}});
    };
  };
  f_Steps(
      f_Address(),
      {
          {{"ready", "set", "1"}, "Flag 1 (ToolProc) set"},
          // Bare: the status, as "status" prints it.
          {{}, "Readiness            ready"},
          {{"report", "ToolProc", "610/3"}, "Reported error 4883 (code 610, class 3) as ToolProc"},
          {{"errors"}, "   610      3    4883"},
          // --no-legend: the rows only, ready for cut and awk.
          {{"errors", "--no-legend"},
           "",
           [](const CtlRun_ST& o_R) { return o_R.str_Out.rfind("   610      3    4883", 0) == 0; }},
          {{"status"}, "Current error        4883 (code 610, class 3)"},
          {{"ack", "4883"}, "Acknowledged code 610 (1 active error)"},
          {{"report", "ToolProc", "3216"}, "Reported error 3216"},
          {{"ack", "--all"}, "Acknowledged 1 error(s) of classes 0 and 3; 0 stay active"},
          {{"clear"}, "Deleted the error list"},
          {{"ready", "reset", "1"}, "Not ready; missing: 1 ToolProc"},
          {{"ready", "dump"}, "   1  ToolProc             yes       NO"},
          {{"battery", "set-power", "42"},
           "Charge 42 % published",
           [](const CtlRun_ST&) {
             return f_Int(z_o_Svc->o_Client.f_Reply("fbattpowerget")) == 42;
           }},
          {{"tool-enable", "1"}, "Tool enabled."},
          {{"mfu", "set", "800"},
           "Maintenance factor 0.800 set",
           f_FileHolds(A_C_CHAN_CFG, {{{"Mfu", "MfuFaktor"}, "0.8"}})},
          // The list shows what the service stored.
          {{"batch", "set", str_Set}, "Program counter set written"},
          {{"batch", "list"}, "    5      10       2  up    down   yes"},
          {{"batch", "clear", "5"},
           "Program counter set 5 cleared",
           f_FileHolds(A_C_CNT_CFG, {{{"CntrSets", "0", "MaxOk"}, "0"}})},
          {{"batch", "delete", "5"}, "Program counter set 5 deleted"},
          {{"batch", "list"}, "No program counter sets configured"},
          {{"idcode-source", "1", "1"},
           "Identification-code source 1, delete after start on",
           f_FileHolds(A_C_RES_CFG,
                       {{{"id_code", "active"}, "1"}, {{"id_code", "del_after_start"}, "true"}})},
          {{"report", "Test", "3252"}, "Reported error 3252"},
          {{"batch", "set", R"({"Id":7,"MaxOk":3})"}, "Program counter set written"},
          {{"status", "--json"},
           "",
           f_OutHolds({{{"ready"}, "false"},
                       {{"current_error", "coded"}, "3252"},
                       {{"current_error", "meaning"}, "\"board over-temperature\""},
                       {{"active_errors"}, "1"},
                       {{"tool_enabled"}, "true"}})},
          {{"errors", "--json"},
           "",
           f_OutHolds({{{"errors", "0", "code"}, "406"},
                       {{"errors", "0", "class"}, "4"},
                       {{"errors", "0", "coded"}, "3252"}})},
          // Defaults as the service applies them, so the object can be sent back with "batch set".
          {{"batch", "list", "--json"},
           "",
           f_OutHolds({{{"sets", "0", "Id"}, "7"},
                       {{"sets", "0", "MaxOk"}, "3"},
                       {{"sets", "0", "DirectionOk"}, "\"down\""},
                       {{"sets", "0", "LockTool"}, "true"}})},
          {{"ack", "3252"}, ""},
          {{"--json=short"}, "", f_Status(false)},
          {{"-j"}, "", f_Status(false)},
          {{"--json=pretty"}, "", f_Status(true)},
          // --job lists the job sets, and only those.
          {{"batch", "set", "--job", R"({"Id":9,"MaxOk":4})"}, ""},
          {{"batch", "list", "--job", "--no-legend"},
           "",
           [](const CtlRun_ST& o_R) {
             return o_R.str_Out.rfind("    9       4       0", 0) == 0 &&
                    o_R.str_Out.find("    7 ") == std::string::npos;
           }},
          {{"batch", "list", "--job", "--json"},
           R"("file":"/home/tool/config/JobOkNokCntCfg.json")"},
          {{"batch", "delete", "7"}, "Program counter set 7 deleted"},
      });
  // The sandbox path is turned into the path on the tool, which the service compares.
  o_Rec.f_Clear();
  f_Steps(f_Address(), {{{"config-changed", o_Box.f_Path(A_C_CNT_CFG)},
                         "Announced /home/tool/config/OkNokCntCfg.json"}});
  auto f_Named = [](GVariant* o_V) { return f_Str(o_V) == A_C_CNT_CFG; };
  EXPECT_NE(o_Rec.f_WaitFor("cfgfilechanged", 3000, f_Named), nullptr);
}

TEST_F(Syssrvctl, MonitorPrintsTheSignalsItSawUntilInterrupted) {
  Prog_CL o_Text(f_Address(), {SYSSRV_CTL, "monitor"});
  Prog_CL o_Json(f_Address(), {SYSSRV_CTL, "monitor", "--json"});
  ASSERT_TRUE(o_Text.f_WaitLog("Listening", 5000)) << o_Text.f_Log();
  ASSERT_TRUE(o_Json.f_WaitLog("Listening", 5000)) << o_Json.f_Log();

  Variant_T o_R(z_o_Svc->o_Client.f_CallOk("fprgchanged", g_variant_new("(i)", 42)));
  ASSERT_EQ(f_Ctl(f_Address(), {"report", "ToolProc", "3228"}).i_Exit, 0);

  EXPECT_TRUE(o_Text.f_WaitOut("program 42", 5000)) << o_Text.f_Out();
  EXPECT_TRUE(o_Text.f_WaitOut("error 3228 (code 403, class 4) battery low", 5000))
      << o_Text.f_Out();
  ASSERT_TRUE(o_Json.f_WaitOut("\"sysfault\"", 5000)) << o_Json.f_Out();

  // Every whole line is one object; the signal we caused is among them with named arguments.
  bool b_SeenPrg = false;
  std::istringstream o_Lines(o_Json.f_Out());
  for (std::string str_Line; std::getline(o_Lines, str_Line) && !o_Lines.eof();) {
    CJsonTree_T o_Line(cJSON_Parse(str_Line.c_str()));
    EXPECT_TRUE(cJSON_IsString(cJSON_GetObjectItem(o_Line.get(), "time"))) << str_Line;
    if (f_Holds(str_Line, {{{"signal"}, "\"prgchanged\""}}))
      b_SeenPrg = f_Holds(str_Line, {{{"args", "program"}, "42"}});
  }
  EXPECT_TRUE(b_SeenPrg) << o_Json.f_Out();

  EXPECT_EQ(o_Text.f_End(SIGINT), 0) << o_Text.f_Log();
  EXPECT_EQ(o_Json.f_End(SIGTERM), 0) << o_Json.f_Log();
  EXPECT_EQ(f_Ctl(f_Address(), {"ack", "3228"}).i_Exit, 0);
}

// One row per parser branch (a range, not a number, a negative number, CODE/CLASS, options)
// and every check that only syssrvctl makes before the service would take the value.
TEST_F(Syssrvctl, RefusalsAndBadArgumentsEndWithTheirExitCode) {
  const std::pair<std::vector<std::string>, const char*> a_o_Bad[] = {
      {{"frobnicate"}, "unknown command 'frobnicate'"},
      {{"ready", "set", "32"}, "N must be a whole number 0..31, got '32'"},
      {{"ready", "toggle", "1"}, "give set N, reset N or dump"},
      {{"report", "P", "abc"}, "CODE must be a whole number"},
      {{"report", "P", "12/9"}, "the class of CODE/CLASS must be a whole number 0..7"},
      // GLib would refuse such text with a warning of its own.
      {{"report", "\xff", "4883"}, "PROC must be UTF-8 text"},
      // The service would publish these as they stand.
      {{"tool-enable", "2"}, "the enable value must be a whole number 0..1"},
      {{"battery", "set-power", "150"}, "N must be a whole number 0..100, got '150'"},
      // A negative number is an argument, not an option.
      {{"battery", "set-power", "-1"}, "N must be a whole number 0..100, got '-1'"},
      {{"status", "--json=long"}, "--json takes short or pretty, got 'long'"},
      // The bus clears and deletes program sets only; a job set must not be hit by mistake.
      {{"batch", "clear", "5", "--job"}, "--job goes with list and set only"},
      {{"status", "extra"}, "unexpected argument 'extra'"},
      {{"status", "--bogus"}, "unknown option --bogus"},
      // Options before the command belong to it.
      {{"--timeout", "0", "status"}, "--timeout must be 1..3600 seconds, got 0"},
      {{"config-changed", "ChanCfg.json"}, "PATH must be absolute"},
      // The service would take these silently and write defaults to the tool's file.
      {{"batch", "set", R"({"MaxOk":3})"}, "JSON needs an \"Id\""},
      {{"batch", "set", R"({"Id":5,"MaxOK":3})"}, "unknown key \"MaxOK\""},
      {{"batch", "set", R"({"Id":5,"DirectionOk":"UP"})"}, "\"DirectionOk\" must be"},
      {{"batch", "set", R"({"Id":300})"}, "\"Id\" must be 0..255"},
  };
  std::vector<Step_ST> o_Steps;
  for (const auto& o_B : a_o_Bad) o_Steps.push_back({o_B.first, o_B.second, nullptr, 2});
  // Class 1 is never acknowledged by code: say so instead of pretending.
  o_Steps.push_back({{"ack", "3233"}, "only a restart of the service clears it", nullptr, 1});
  f_Steps(f_Address(), o_Steps);
  // The service's error reply: the settings file of the identification code is missing.
  std::string str_Saved = z_o_Svc->o_Box.f_Read(A_C_RES_CFG);
  ASSERT_EQ(remove(z_o_Svc->o_Box.f_Path(A_C_RES_CFG).c_str()), 0);
  f_Steps(f_Address(),
          {{{"idcode-source", "2", "0"},
            "SysSrv refused fidcodesrcset: /home/tool/config/ResSrv.json could not be read",
            nullptr,
            1}});
  z_o_Svc->o_Box.f_Write(A_C_RES_CFG, str_Saved);
  EXPECT_TRUE(z_o_Svc->o_Daemon.f_Running());
}

TEST(SyssrvctlWithoutService, SaysSoAndExitsThree) {
  PrivateBus o_Bus;
  auto f_NoOutput = [](const CtlRun_ST& o_R) { return o_R.str_Out.empty(); };
  // A script asking for the state as JSON gets an object it can parse either way.
  const Step_ST o_Json{{"status", "--json"}, "", f_OutHolds({{{"running"}, "false"}}), 3};
  f_Steps(o_Bus.f_Address(), {{{"status"}, "SysSrv is not running", f_NoOutput, 3},
                              {{"errors", "--json"}, "SysSrv is not running", f_NoOutput, 3},
                              o_Json});
  std::string str_NoBus = "unix:path=" + o_Bus.f_Dir() + "/no_such_socket";
  f_Steps(str_NoBus, {{{"status"}, "no system bus at " + str_NoBus, f_NoOutput, 3}, o_Json});

  // The monitor waits for a service that is not there yet, and still ends cleanly.
  Prog_CL o_Mon(o_Bus.f_Address(), {SYSSRV_CTL, "monitor"});
  EXPECT_TRUE(o_Mon.f_WaitOut("SysSrv is not on the bus", 5000)) << o_Mon.f_Out();
  EXPECT_EQ(o_Mon.f_End(SIGINT), 0) << o_Mon.f_Log();
}

// A bus activation of the service that fails is "not running" for the user, not a bus error.
TEST(SyssrvctlWithoutService, FailedActivationIsNotRunning) {
  const TempDir o_Tmp;
  const std::string& str_Dir = o_Tmp.str_Dir;
  std::ofstream(str_Dir + "/com.torvane.akku.SysService.service")
      << "[D-BUS Service]\nName=com.torvane.akku.SysService\nExec=/bin/false\n";
  PrivateBus o_Bus(PrivateBus::f_Config(
      str_Dir, "  <servicedir>" + str_Dir + "</servicedir>\n" +
                   PrivateBus::f_DefaultPolicy("    <allow own=\"*\"/>\n"
                                               "    <allow send_type=\"method_call\"/>\n")));
  const std::string str_Want =
      "SysSrv is not running: the system bus " + o_Bus.f_Address() + " could not start it";
  f_Steps(o_Bus.f_Address(), {{{"errors"}, str_Want, nullptr, 3}});
}

// The service takes --version (the packaging check holds its text) and --help only: it must
// not start on a mistyped argument.
TEST(SyssrvctlWithoutService, TheServiceRefusesAnUnknownArgument) {
  f_Steps("", {{{"--debug"}, "Usage: SysSrv.elf", nullptr, 2}}, SYSSRV_DAEMON);
}

// syssrv-sim up prints the exports a shell needs to reach the service; down stops it again.
TEST(SyssrvSimUpDown, StartsTheServiceOnAPrivateBusAndStopsIt) {
  const TempDir o_Tmp;
  const std::string str_Tool = o_Tmp.str_Dir + "/tool";
  CtlRun_ST o_Up = f_Ctl("", {"up", str_Tool, "--daemon", SYSSRV_DAEMON}, SYSSRV_SIM);
  ASSERT_EQ(o_Up.i_Exit, 0) << o_Up.str_Err;
  // Two lines and nothing else on stdout, for eval.
  std::smatch o_Match;
  ASSERT_TRUE(std::regex_match(o_Up.str_Out, o_Match,
                               std::regex("export SYSSRV_ROOT='" + str_Tool +
                                          "'\nexport DBUS_SYSTEM_BUS_ADDRESS='([^']+)'\n")))
      << o_Up.str_Out;
  const std::string str_Address = o_Match[1];

  f_Steps(str_Address, {{{"status"}, "SysSrv               running on "}});
  // A second up on the same tool would start a second service on the same files.
  f_Steps("", {{{"up", str_Tool, "--daemon", SYSSRV_DAEMON}, "already up", nullptr, 1}},
          SYSSRV_SIM);
  pid_t i_Srv = static_cast<pid_t>(std::stol(f_ReadFile(str_Tool + "/sim/syssrv.pid")));
  CtlRun_ST o_Down = f_Ctl("", {"down", str_Tool}, SYSSRV_SIM);
  EXPECT_EQ(o_Down.i_Exit, 0) << o_Down.str_Err;
  EXPECT_NE(o_Down.str_Err.find("service and bus stopped"), std::string::npos) << o_Down.str_Err;
  // Gone, or a zombie waiting for init (whose command line is empty).
  EXPECT_EQ(f_ReadFile("/proc/" + std::to_string(i_Srv) + "/cmdline").find("SysSrv.elf"),
            std::string::npos);
  f_Steps(str_Address, {{{"status"}, "", nullptr, 3}});
  // Nothing left to stop is no failure.
  EXPECT_EQ(f_Ctl("", {"down", str_Tool}, SYSSRV_SIM).i_Exit, 0);
}

// The completion takes its words from the programs' --help: it offers what they really take.
TEST(SyssrvctlCompletion, OffersTheRealCommandsActionsAndOptions) {
  struct Case_ST {
    bool b_Sim;                        // syssrv-sim, else syssrvctl
    std::vector<std::string> o_Words;  // the last is being completed
    std::vector<std::string> o_Want;   // all of these among the offers
    std::vector<std::string> o_Not;    // none of these
  };
  const Case_ST a_o_Cases[] = {
      {false, {""}, {"status", "errors", "batch", "monitor", "config-changed"}, {"--json"}},
      {false, {"batch", ""}, {"list", "set", "clear", "delete"}, {"JSON", "N", "--job"}},
      {false, {"--timeout", "5", "ready", ""}, {"set", "reset", "dump"}, {}},
      {false, {"errors", "--"}, {"--json=", "--no-legend", "--timeout="}, {"--job"}},
      {false, {"-"}, {"--version", "--help"}, {}},
      {true, {""}, {"up", "down", "init", "nameplate", "show"}, {}},
      {true, {"up", "--"}, {"--daemon="}, {}},
  };
  for (const Case_ST& o_C : a_o_Cases) {
    std::string str_Words = std::string("'") + (o_C.b_Sim ? SYSSRV_SIM : SYSSRV_CTL) + "'";
    for (const std::string& str_W : o_C.o_Words) str_Words += " '" + str_W + "'";
    SCOPED_TRACE(str_Words);
    // The syssrv-sim script also brings in the syssrvctl half.
    CtlRun_ST o_Run =
        f_Ctl("",
              {"-c", ". '" SYSSRV_SOURCE_DIR "/packaging/completion/syssrv-sim'; COMP_WORDS=(" +
                         str_Words + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); " +
                         (o_C.b_Sim ? "_syssrv_sim" : "_syssrvctl") +
                         "; printf '%s\\n' \"${COMPREPLY[@]}\""},
              "/bin/bash");
    EXPECT_EQ(o_Run.i_Exit, 0) << o_Run.str_Err;
    for (const std::string& str_W : o_C.o_Want)
      EXPECT_NE(o_Run.str_Out.find(str_W + "\n"), std::string::npos) << str_W;
    for (const std::string& str_W : o_C.o_Not)
      EXPECT_EQ(("\n" + o_Run.str_Out).find("\n" + str_W + "\n"), std::string::npos) << str_W;
  }
}

}  // namespace
