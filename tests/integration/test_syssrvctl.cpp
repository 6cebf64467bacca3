// syssrvctl against the real daemon: every subcommand's effect on the service, JSON that
// scripts can parse, the monitor, and clear failures when the service or the bus is gone.
#include <cjson/cJSON.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "Harness.h"
#include "SysSrvVersion.h"

using namespace it;

namespace {

// Flag 1 stands for the tightening process, so that readiness can be driven from outside.
const char* A_C_RDY =
    R"({"flags":[{"nr":1,"state":1,"name":"ToolProc"},{"nr":3,"state":1,"name":"SysSrv"}]})";

struct CtlRun_ST {
  int i_Exit;
  std::string str_Out;
  std::string str_Err;
};

std::vector<char*> f_Argv(const std::vector<std::string>& o_Args,
                          std::vector<std::string>& o_Store, const char* z_c_Prog = SYSSRV_CTL) {
  o_Store = o_Args;
  o_Store.insert(o_Store.begin(), z_c_Prog);
  std::vector<char*> o_Argv;
  for (std::string& str_A : o_Store) o_Argv.push_back(&str_A[0]);
  o_Argv.push_back(nullptr);
  return o_Argv;
}

gchar** f_Env(const std::string& str_Address) {
  gchar** a_z_c_Env = g_get_environ();
  return g_environ_setenv(a_z_c_Env, "DBUS_SYSTEM_BUS_ADDRESS", str_Address.c_str(), TRUE);
}

// Whatever goes wrong, the user must get our one line, never GLib's diagnostics.
void f_ExpectNoGlibNoise(const std::string& str_Err) {
  for (const char* z_c_Noise : {"GLib", "CRITICAL", "WARNING", "**"})
    EXPECT_EQ(str_Err.find(z_c_Noise), std::string::npos) << str_Err;
}

// Runs one of our programs (the client unless told) with the bus address in its environment.
CtlRun_ST f_Ctl(const std::string& str_Address, const std::vector<std::string>& o_Args,
                const char* z_c_Prog = SYSSRV_CTL) {
  std::vector<std::string> o_Store;
  std::vector<char*> o_Argv = f_Argv(o_Args, o_Store, z_c_Prog);
  gchar** a_z_c_Env = f_Env(str_Address);
  gchar *z_c_Out = nullptr, *z_c_Err = nullptr;
  gint i_Status = -1;
  GErrorHolder_CL o_Err;
  CtlRun_ST o_Run{-1, "", ""};
  bool b_Ran = g_spawn_sync(nullptr, o_Argv.data(), a_z_c_Env, G_SPAWN_DEFAULT, nullptr, nullptr,
                            &z_c_Out, &z_c_Err, &i_Status, o_Err.f_Out());
  GChars_T o_Out(z_c_Out);
  GChars_T o_ErrText(z_c_Err);
  if (b_Ran) {
    o_Run.i_Exit = WIFEXITED(i_Status) ? WEXITSTATUS(i_Status) : -1;
    o_Run.str_Out = o_Out.get();
    o_Run.str_Err = o_ErrText.get();
  } else {
    ADD_FAILURE() << "cannot run " << z_c_Prog << ": " << o_Err.f_Message();
  }
  g_strfreev(a_z_c_Env);
  f_ExpectNoGlibNoise(o_Run.str_Err);
  return o_Run;
}

std::string f_Joined(const std::vector<std::string>& o_Args) {
  std::string str_Text;
  for (const std::string& str_A : o_Args) str_Text += (str_Text.empty() ? "" : " ") + str_A;
  return str_Text;
}

// A running "syssrvctl monitor" whose output is read as it comes.
class MonitorProc {
 public:
  MonitorProc(const std::string& str_Address, const std::vector<std::string>& o_Args) {
    std::vector<std::string> o_Store;
    std::vector<char*> o_Argv = f_Argv(o_Args, o_Store);
    gchar** a_z_c_Env = f_Env(str_Address);
    GErrorHolder_CL o_Err;
    if (!g_spawn_async_with_pipes(nullptr, o_Argv.data(), a_z_c_Env, G_SPAWN_DO_NOT_REAP_CHILD,
                                  nullptr, nullptr, &i_Pid, nullptr, &i_OutFd, &i_ErrFd,
                                  o_Err.f_Out())) {
      ADD_FAILURE() << o_Err.f_Message();
    }
    g_strfreev(a_z_c_Env);
  }
  ~MonitorProc() {
    if (i_Pid > 0 && !b_Reaped) {
      kill(i_Pid, SIGKILL);
      waitpid(i_Pid, nullptr, 0);
    }
    if (i_OutFd >= 0) close(i_OutFd);
    if (i_ErrFd >= 0) close(i_ErrFd);
  }
  // Reads until the text shows up on stdout (or stderr) or the time is up.
  bool f_WaitOut(const std::string& str_Text, int i_TimeoutMs) {
    return f_Wait([&] { return str_Out.find(str_Text) != std::string::npos; }, i_TimeoutMs);
  }
  bool f_WaitErr(const std::string& str_Text, int i_TimeoutMs) {
    return f_Wait([&] { return str_Err.find(str_Text) != std::string::npos; }, i_TimeoutMs);
  }
  // Sends the signal and returns the exit status, -1 when it did not end normally in time.
  int f_Stop(int i_Sig) {
    kill(i_Pid, i_Sig);
    int i_Status = 0;
    bool b_Ended = f_Wait(
        [&] {
          if (waitpid(i_Pid, &i_Status, WNOHANG) != i_Pid) return false;
          b_Reaped = true;
          return true;
        },
        5000);
    f_Drain();
    return b_Ended && WIFEXITED(i_Status) ? WEXITSTATUS(i_Status) : -1;
  }
  const std::string& f_Out() const { return str_Out; }
  const std::string& f_Err() const { return str_Err; }

 private:
  void f_Drain() {
    for (auto o_Pair : {std::make_pair(i_OutFd, &str_Out), std::make_pair(i_ErrFd, &str_Err)}) {
      pollfd o_Poll{o_Pair.first, POLLIN, 0};
      char a_c_Buf[4096];
      while (poll(&o_Poll, 1, 0) > 0 && (o_Poll.revents & POLLIN)) {
        ssize_t i_N = read(o_Pair.first, a_c_Buf, sizeof(a_c_Buf));
        if (i_N <= 0) break;
        o_Pair.second->append(a_c_Buf, static_cast<size_t>(i_N));
      }
    }
  }
  bool f_Wait(const std::function<bool()>& f_Cond, int i_TimeoutMs) {
    return f_WaitUntil(
        [&] {
          f_Drain();
          return f_Cond();
        },
        i_TimeoutMs);
  }
  GPid i_Pid = -1;
  int i_OutFd = -1;
  int i_ErrFd = -1;
  bool b_Reaped = false;
  std::string str_Out;
  std::string str_Err;
};

class Syssrvctl : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    z_o_Bus = new PrivateBus();
    z_o_Box = new Sandbox();
    z_o_Box->f_Write("/home/tool/config/log/rdystatus.json", A_C_RDY);
    z_o_Client = new BusClient(z_o_Bus->f_Address());
    z_o_Rec = new SignalRecorder(*z_o_Client);
    z_o_Daemon = new Daemon(*z_o_Box, *z_o_Bus);
    ASSERT_TRUE(z_o_Daemon->f_Start()) << z_o_Daemon->f_Log();
    // The first ticks read the battery: from then on its status is a settled "good".
    ASSERT_NE(z_o_Rec->f_WaitFor("battstatuschanged", 10000), nullptr) << z_o_Daemon->f_Log();
  }
  static void TearDownTestSuite() {
    EXPECT_EQ(z_o_Daemon->f_Stop(), 0) << z_o_Daemon->f_Log();
    delete z_o_Daemon;
    delete z_o_Rec;
    delete z_o_Client;
    delete z_o_Box;
    delete z_o_Bus;
  }
  static CtlRun_ST f_Run(const std::vector<std::string>& o_Args) {
    return f_Ctl(z_o_Bus->f_Address(), o_Args);
  }
  static int f_Get(const char* z_c_Method, int i_Index = 0) {
    GVariant* o_R = z_o_Client->f_CallOk(z_c_Method);
    Variant_T o_ROwner(o_R);
    if (o_R == nullptr) return -1;
    int i_Value = f_Int(o_R, i_Index);
    return i_Value;
  }
  // A JSON file of the sandbox; null when it does not parse.
  static cJSON* f_File(const char* z_c_Logical) {
    return cJSON_Parse(z_o_Box->f_Read(z_c_Logical).c_str());
  }
  static PrivateBus* z_o_Bus;
  static Sandbox* z_o_Box;
  static BusClient* z_o_Client;
  static SignalRecorder* z_o_Rec;
  static Daemon* z_o_Daemon;
};
PrivateBus* Syssrvctl::z_o_Bus;
Sandbox* Syssrvctl::z_o_Box;
BusClient* Syssrvctl::z_o_Client;
SignalRecorder* Syssrvctl::z_o_Rec;
Daemon* Syssrvctl::z_o_Daemon;

double f_Number(cJSON* z_o_Tree, std::initializer_list<const char*> o_Keys) {
  const cJSON* z_o_Item = z_o_Tree;
  for (const char* z_c_Key : o_Keys) z_o_Item = cJSON_GetObjectItemCaseSensitive(z_o_Item, z_c_Key);
  return cJSON_IsNumber(z_o_Item) ? z_o_Item->valuedouble : cJSON_IsTrue(z_o_Item) ? 1 : -999;
}

// One pass through the subcommands in the order a technician would use them; each step
// names what it must have changed in the service.
TEST_F(Syssrvctl, EverySubcommandChangesWhatItSays) {
  struct Step_ST {
    std::vector<std::string> o_Args;
    const char* z_c_Output;          // part of stdout
    std::function<bool()> f_Effect;  // the change, seen over the bus or in the files
  };
  const std::string str_Set =
      R"({"Id":5,"MaxOk":10,"MaxNok":2,"DirectionOk":"up","LockTool":true})";
  const Step_ST a_o_Steps[] = {
      {{"ready", "set", "1"}, "Flag 1 (ToolProc) set", [] { return f_Get("frdyget") == 0x0A; }},
      {{"status"}, "Readiness            ready", nullptr},
      {{"report", "ToolProc", "610/3"},
       "Reported error 4883 (code 610, class 3) as ToolProc",
       [] { return f_Get("fsyserrorget", 0) == 610 && f_Get("fsyserrorget", 1) == 3; }},
      {{"errors"}, "   610      3    4883", nullptr},
      {{"status"}, "Current error        4883 (code 610, class 3)", nullptr},
      {{"ack", "4883"},
       "Acknowledged code 610 (1 active error)",
       [] { return f_Get("fsyserrorget", 0) == 0; }},
      {{"report", "ToolProc", "3216"},
       "Reported error 3216",
       [] { return f_Get("fsyserrorget", 0) == 402; }},
      {{"ack", "--all"},
       "Acknowledged 1 error(s) of classes 0 and 3; 0 stay active",
       [] { return f_Get("fsyserrorget", 0) == 0; }},
      {{"clear"}, "Deleted the error list", nullptr},
      {{"ready", "reset", "1"},
       "Not ready; missing: 1 ToolProc",
       [] { return f_Get("frdyget") == 0x08; }},
      {{"ready", "dump"},
       "   1  ToolProc             yes       NO",
       [] { return z_o_Daemon->f_WaitLog("RdySoll: 10, RdyIst:", 3000); }},
      {{"battery", "set-power", "42"},
       "Charge 42 % published",
       [] { return f_Get("fbattpowerget") == 42; }},
      {{"tool-enable", "1"}, "Tool enabled.", [] { return f_Get("ftoolenableget") == 1; }},
      {{"mfu", "set", "800"},
       "Maintenance factor 0.800 set",
       [] {
         cJSON* z_o_Cfg = f_File("/home/tool/config/ChanCfg.json");
         CJsonTree_T o_CfgOwner(z_o_Cfg);
         bool b_Ok = f_Number(z_o_Cfg, {"Mfu", "MfuFaktor"}) > 0.799 &&
                     f_Number(z_o_Cfg, {"Mfu", "MfuFaktor"}) < 0.801;
         return b_Ok;
       }},
      {{"batch", "set", str_Set},
       "Program counter set written",
       [] {
         cJSON* z_o_Cfg = f_File("/home/tool/config/OkNokCntCfg.json");
         CJsonTree_T o_CfgOwner(z_o_Cfg);
         cJSON* z_o_Set = cJSON_GetArrayItem(cJSON_GetObjectItem(z_o_Cfg, "CntrSets"), 0);
         bool b_Ok = f_Number(z_o_Set, {"Id"}) == 5 && f_Number(z_o_Set, {"MaxOk"}) == 10;
         return b_Ok;
       }},
      {{"batch", "list"}, "    5      10       2  up    down   yes", nullptr},
      {{"batch", "clear", "5"},
       "Program counter set 5 cleared",
       [] {
         cJSON* z_o_Cfg = f_File("/home/tool/config/OkNokCntCfg.json");
         CJsonTree_T o_CfgOwner(z_o_Cfg);
         cJSON* z_o_Set = cJSON_GetArrayItem(cJSON_GetObjectItem(z_o_Cfg, "CntrSets"), 0);
         bool b_Ok = f_Number(z_o_Set, {"Id"}) == 5 && f_Number(z_o_Set, {"MaxOk"}) == 0;
         return b_Ok;
       }},
      {{"batch", "delete", "5"}, "Program counter set 5 deleted", nullptr},
      {{"batch", "list"}, "No program counter sets configured", nullptr},
      {{"idcode-source", "1", "1"},
       "Identification-code source 1, delete after start on",
       [] {
         cJSON* z_o_Cfg = f_File("/home/tool/config/ResSrv.json");
         CJsonTree_T o_CfgOwner(z_o_Cfg);
         bool b_Ok = f_Number(z_o_Cfg, {"id_code", "active"}) == 1 &&
                     f_Number(z_o_Cfg, {"id_code", "del_after_start"}) == 1;
         return b_Ok;
       }},
      // The sandbox path is turned into the path on the tool, which the service compares.
      {{"config-changed", z_o_Box->f_Path("/home/tool/config/OkNokCntCfg.json")},
       "Announced /home/tool/config/OkNokCntCfg.json",
       [] {
         return z_o_Rec->f_WaitFor("cfgfilechanged", 3000, [](GVariant* o_V) {
           return f_Str(o_V) == "/home/tool/config/OkNokCntCfg.json";
         }) != nullptr;
       }},
  };
  for (const Step_ST& o_Step : a_o_Steps) {
    SCOPED_TRACE(f_Joined(o_Step.o_Args));
    z_o_Rec->f_Clear();
    CtlRun_ST o_Run = f_Run(o_Step.o_Args);
    EXPECT_EQ(o_Run.i_Exit, 0) << o_Run.str_Err;
    EXPECT_NE(o_Run.str_Out.find(o_Step.z_c_Output), std::string::npos) << o_Run.str_Out;
    if (o_Step.f_Effect) {
      EXPECT_TRUE(o_Step.f_Effect());
    }
  }
  EXPECT_TRUE(z_o_Daemon->f_Running()) << z_o_Daemon->f_Log();
}

TEST_F(Syssrvctl, JsonOutputParsesWithTheValuesOfTheService) {
  CtlRun_ST o_Rep = f_Run({"report", "Test", "3252"});
  ASSERT_EQ(o_Rep.i_Exit, 0) << o_Rep.str_Err;
  ASSERT_EQ(f_Run({"batch", "set", R"({"Id":7,"MaxOk":3})"}).i_Exit, 0);

  CtlRun_ST o_Status = f_Run({"status", "--json"});
  ASSERT_EQ(o_Status.i_Exit, 0) << o_Status.str_Err;
  cJSON* z_o_Status = cJSON_Parse(o_Status.str_Out.c_str());
  CJsonTree_T o_StatusOwner(z_o_Status);
  ASSERT_NE(z_o_Status, nullptr) << o_Status.str_Out;
  EXPECT_TRUE(cJSON_IsFalse(cJSON_GetObjectItem(z_o_Status, "ready"))) << o_Status.str_Out;
  EXPECT_EQ(f_Number(z_o_Status, {"current_error", "coded"}), 3252);
  EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(
                   cJSON_GetObjectItem(z_o_Status, "current_error"), "meaning")),
               "board over-temperature");
  EXPECT_EQ(f_Number(z_o_Status, {"active_errors"}), 1);
  EXPECT_EQ(f_Number(z_o_Status, {"battery", "status"}), 3);

  CtlRun_ST o_Errors = f_Run({"errors", "--json"});
  cJSON* z_o_Errors = cJSON_Parse(o_Errors.str_Out.c_str());
  CJsonTree_T o_ErrorsOwner(z_o_Errors);
  ASSERT_NE(z_o_Errors, nullptr) << o_Errors.str_Out;
  cJSON* z_o_First = cJSON_GetArrayItem(cJSON_GetObjectItem(z_o_Errors, "errors"), 0);
  EXPECT_EQ(f_Number(z_o_First, {"code"}), 406);
  EXPECT_EQ(f_Number(z_o_First, {"class"}), 4);
  EXPECT_EQ(f_Number(z_o_First, {"coded"}), 3252);

  CtlRun_ST o_Batch = f_Run({"batch", "list", "--json"});
  cJSON* z_o_Batch = cJSON_Parse(o_Batch.str_Out.c_str());
  CJsonTree_T o_BatchOwner(z_o_Batch);
  ASSERT_NE(z_o_Batch, nullptr) << o_Batch.str_Out;
  cJSON* z_o_Set = cJSON_GetArrayItem(cJSON_GetObjectItem(z_o_Batch, "sets"), 0);
  EXPECT_EQ(f_Number(z_o_Set, {"Id"}), 7);
  EXPECT_EQ(f_Number(z_o_Set, {"MaxOk"}), 3);
  // Defaults as the service applies them, so the object can be sent back with "batch set".
  EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(z_o_Set, "DirectionOk")), "down");
  EXPECT_TRUE(cJSON_IsTrue(cJSON_GetObjectItem(z_o_Set, "LockTool")));

  EXPECT_EQ(f_Run({"ack", "3252"}).i_Exit, 0);
}

TEST_F(Syssrvctl, MonitorPrintsTheSignalsItSawUntilInterrupted) {
  MonitorProc o_Text(z_o_Bus->f_Address(), {"monitor"});
  MonitorProc o_Json(z_o_Bus->f_Address(), {"monitor", "--json"});
  ASSERT_TRUE(o_Text.f_WaitErr("Listening", 5000)) << o_Text.f_Err();
  ASSERT_TRUE(o_Json.f_WaitErr("Listening", 5000)) << o_Json.f_Err();

  GVariant* o_R = z_o_Client->f_CallOk("fprgchanged", g_variant_new("(i)", 42));
  Variant_T o_ROwner(o_R);
  ASSERT_EQ(f_Run({"report", "ToolProc", "3228"}).i_Exit, 0);

  EXPECT_TRUE(o_Text.f_WaitOut("program 42", 5000)) << o_Text.f_Out();
  EXPECT_TRUE(o_Text.f_WaitOut("error 3228 (code 403, class 4) battery low", 5000))
      << o_Text.f_Out();
  ASSERT_TRUE(o_Json.f_WaitOut("\"sysfault\"", 5000)) << o_Json.f_Out();

  // Every line is one object; the signal we caused is among them with named arguments.
  bool b_SeenPrg = false;
  size_t ui_Pos = 0;
  const std::string& str_Out = o_Json.f_Out();
  while (ui_Pos < str_Out.size()) {
    size_t ui_End = str_Out.find('\n', ui_Pos);
    if (ui_End == std::string::npos) break;
    std::string str_Line = str_Out.substr(ui_Pos, ui_End - ui_Pos);
    ui_Pos = ui_End + 1;
    cJSON* z_o_Line = cJSON_Parse(str_Line.c_str());
    CJsonTree_T o_LineOwner(z_o_Line);
    ASSERT_NE(z_o_Line, nullptr) << str_Line;
    EXPECT_TRUE(cJSON_IsString(cJSON_GetObjectItem(z_o_Line, "time"))) << str_Line;
    const char* z_c_Sig = cJSON_GetStringValue(cJSON_GetObjectItem(z_o_Line, "signal"));
    if (z_c_Sig != nullptr && std::string(z_c_Sig) == "prgchanged") {
      b_SeenPrg = f_Number(z_o_Line, {"args", "program"}) == 42;
    }
  }
  EXPECT_TRUE(b_SeenPrg) << str_Out;

  EXPECT_EQ(o_Text.f_Stop(SIGINT), 0) << o_Text.f_Err();
  EXPECT_EQ(o_Json.f_Stop(SIGTERM), 0) << o_Json.f_Err();
  f_ExpectNoGlibNoise(o_Text.f_Err());
  f_ExpectNoGlibNoise(o_Json.f_Err());
  EXPECT_EQ(f_Run({"ack", "3228"}).i_Exit, 0);
}

// What users of the system's other *ctl programs expect of this one.
TEST_F(Syssrvctl, FollowsTheConventionsOfTheSystemsCtlPrograms) {
  // Bare: the status, as "status" prints it.
  CtlRun_ST o_Bare = f_Run({});
  EXPECT_EQ(o_Bare.i_Exit, 0) << o_Bare.str_Err;
  EXPECT_EQ(o_Bare.str_Out.rfind("SysSrv               running on ", 0), 0u) << o_Bare.str_Out;
  EXPECT_NE(o_Bare.str_Out.find("Readiness"), std::string::npos) << o_Bare.str_Out;

  // --json: short (also plain --json) is one line, pretty is indented; both the same object.
  for (const char* z_c_Form : {"--json", "--json=short", "--json=pretty", "-j"}) {
    SCOPED_TRACE(z_c_Form);
    CtlRun_ST o_Run = f_Run({z_c_Form});
    EXPECT_EQ(o_Run.i_Exit, 0) << o_Run.str_Err;
    bool b_Pretty = std::string(z_c_Form) == "--json=pretty";
    size_t ui_Lines = static_cast<size_t>(std::count(o_Run.str_Out.begin(), o_Run.str_Out.end(), '\n'));
    EXPECT_EQ(ui_Lines > 1, b_Pretty) << o_Run.str_Out;
    cJSON* z_o_Tree = cJSON_Parse(o_Run.str_Out.c_str());
    CJsonTree_T o_TreeOwner(z_o_Tree);
    ASSERT_NE(z_o_Tree, nullptr) << o_Run.str_Out;
    EXPECT_TRUE(cJSON_IsTrue(cJSON_GetObjectItem(z_o_Tree, "running"))) << o_Run.str_Out;
    EXPECT_TRUE(cJSON_IsNumber(cJSON_GetObjectItem(cJSON_GetObjectItem(z_o_Tree, "battery"),
                                                   "status")));
  }

  // --no-legend: the rows only, ready for cut and awk.
  ASSERT_EQ(f_Run({"report", "ToolProc", "610/3"}).i_Exit, 0);
  CtlRun_ST o_Rows = f_Run({"errors", "--no-legend"});
  EXPECT_EQ(o_Rows.str_Out.find("CODE"), std::string::npos) << o_Rows.str_Out;
  EXPECT_EQ(o_Rows.str_Out.rfind("   610      3    4883", 0), 0u) << o_Rows.str_Out;
  ASSERT_EQ(f_Run({"ack", "4883"}).i_Exit, 0);
  EXPECT_EQ(f_Run({"errors", "--no-legend"}).str_Out, "");

  // --job lists the job sets, and only those.
  ASSERT_EQ(f_Run({"batch", "set", "--job", R"({"Id":9,"MaxOk":4})"}).i_Exit, 0);
  ASSERT_EQ(f_Run({"batch", "set", R"({"Id":8,"MaxOk":6})"}).i_Exit, 0);
  CtlRun_ST o_Jobs = f_Run({"batch", "list", "--job", "--no-legend"});
  EXPECT_EQ(o_Jobs.i_Exit, 0) << o_Jobs.str_Err;
  EXPECT_EQ(o_Jobs.str_Out.rfind("    9       4       0", 0), 0u) << o_Jobs.str_Out;
  EXPECT_EQ(o_Jobs.str_Out.find("    8 "), std::string::npos) << o_Jobs.str_Out;
  CtlRun_ST o_JobJson = f_Run({"batch", "list", "--job", "--json"});
  EXPECT_NE(o_JobJson.str_Out.find(R"("file":"/home/tool/config/JobOkNokCntCfg.json")"),
            std::string::npos)
      << o_JobJson.str_Out;
  EXPECT_EQ(f_Run({"batch", "delete", "8"}).i_Exit, 0);
}

TEST_F(Syssrvctl, RefusalsAndBadArgumentsEndWithTheirExitCode) {
  struct Case_ST {
    std::vector<std::string> o_Args;
    int i_Exit;
    const char* z_c_Err;
  };
  const Case_ST a_o_Cases[] = {
      {{"frobnicate"}, 2, "unknown command 'frobnicate'"},
      {{"ready", "set", "32"}, 2, "N must be a whole number 0..31, got '32'"},
      {{"ready", "toggle", "1"}, 2, "give set N, reset N or dump"},
      {{"report", "P", "abc"}, 2, "CODE must be a whole number"},
      {{"report", "P", "12/9"}, 2, "the class of CODE/CLASS must be a whole number 0..7"},
      // GLib would refuse such text with a warning of its own.
      {{"report", "\xff", "4883"}, 2, "PROC must be UTF-8 text"},
      {{"tool-enable", "2"}, 2, "the enable value must be a whole number 0..1"},
      // A charge is a percentage; the service would publish 150 % as it stands.
      {{"battery", "set-power", "150"}, 2, "N must be a whole number 0..100, got '150'"},
      {{"battery", "set-power", "-1"}, 2, "N must be a whole number 0..100, got '-1'"},
      {{"mfu", "set", "0"}, 2, "N must be a whole number 1..10000, got '0'"},
      {{"idcode-source", "1", "2"}, 2, "DEL must be a whole number 0..1, got '2'"},
      {{"status", "--json=long"}, 2, "--json takes short or pretty, got 'long'"},
      // The bus clears and deletes program sets only; a job set must not be hit by mistake.
      {{"batch", "clear", "5", "--job"}, 2, "--job goes with list and set only"},
      {{"status", "extra"}, 2, "unexpected argument 'extra'"},
      {{"status", "--bogus"}, 2, "unknown option --bogus"},
      // Options before the command belong to it.
      {{"--timeout", "0", "status"}, 2, "--timeout must be 1..3600 seconds, got 0"},
      {{"config-changed", "ChanCfg.json"}, 2, "PATH must be absolute"},
      // The service would take these silently and write defaults to the tool's file.
      {{"batch", "set", R"({"MaxOk":3})"}, 2, "JSON needs an \"Id\""},
      {{"batch", "set", R"({"Id":5,"MaxOK":3})"}, 2, "unknown key \"MaxOK\""},
      {{"batch", "set", R"({"Id":5,"DirectionOk":"UP"})"}, 2, "\"DirectionOk\" must be"},
      {{"batch", "set", R"({"Id":300})"}, 2, "\"Id\" must be 0..255"},
      // Class 1 is never acknowledged by code: say so instead of pretending.
      {{"ack", "3233"}, 1, "only a restart of the service clears it"},
  };
  for (const Case_ST& o_C : a_o_Cases) {
    SCOPED_TRACE(f_Joined(o_C.o_Args));
    CtlRun_ST o_Run = f_Run(o_C.o_Args);
    EXPECT_EQ(o_Run.i_Exit, o_C.i_Exit);
    EXPECT_NE(o_Run.str_Err.find(o_C.z_c_Err), std::string::npos) << o_Run.str_Err;
  }

  // The service's error reply: the settings file of the identification code is missing.
  std::string str_Saved = z_o_Box->f_Read("/home/tool/config/ResSrv.json");
  ASSERT_EQ(remove(z_o_Box->f_Path("/home/tool/config/ResSrv.json").c_str()), 0);
  CtlRun_ST o_Refused = f_Run({"idcode-source", "2", "0"});
  z_o_Box->f_Write("/home/tool/config/ResSrv.json", str_Saved);
  EXPECT_EQ(o_Refused.i_Exit, 1);
  EXPECT_NE(o_Refused.str_Err.find("SysSrv refused fidcodesrcset: "
                                   "/home/tool/config/ResSrv.json could not be read"),
            std::string::npos)
      << o_Refused.str_Err;
  EXPECT_TRUE(z_o_Daemon->f_Running());
}

TEST(SyssrvctlWithoutService, SaysSoAndExitsThree) {
  PrivateBus o_Bus;
  for (const std::vector<std::string>& o_Args :
       std::vector<std::vector<std::string>>{{"status"}, {"errors", "--json"}, {"ack", "--all"}}) {
    SCOPED_TRACE(f_Joined(o_Args));
    CtlRun_ST o_Run = f_Ctl(o_Bus.f_Address(), o_Args);
    EXPECT_EQ(o_Run.i_Exit, 3);
    EXPECT_NE(o_Run.str_Err.find("SysSrv is not running"), std::string::npos) << o_Run.str_Err;
    EXPECT_EQ(o_Run.str_Out, "");
  }
  // No bus at all.
  std::string str_NoBus = "unix:path=" + o_Bus.f_Dir() + "/no_such_socket";
  CtlRun_ST o_Run = f_Ctl(str_NoBus, {"status"});
  EXPECT_EQ(o_Run.i_Exit, 3);
  EXPECT_NE(o_Run.str_Err.find("no system bus at " + str_NoBus), std::string::npos)
      << o_Run.str_Err;

  // A script asking for the state as JSON gets an object it can parse either way.
  for (const std::string& str_Address : {o_Bus.f_Address(), str_NoBus}) {
    SCOPED_TRACE(str_Address);
    CtlRun_ST o_Json = f_Ctl(str_Address, {"status", "--json"});
    EXPECT_EQ(o_Json.i_Exit, 3);
    cJSON* z_o_Tree = cJSON_Parse(o_Json.str_Out.c_str());
    CJsonTree_T o_TreeOwner(z_o_Tree);
    ASSERT_NE(z_o_Tree, nullptr) << o_Json.str_Out;
    EXPECT_TRUE(cJSON_IsFalse(cJSON_GetObjectItem(z_o_Tree, "running"))) << o_Json.str_Out;
  }

  // The monitor waits for a service that is not there yet, and still ends cleanly.
  MonitorProc o_Mon(o_Bus.f_Address(), {"monitor"});
  EXPECT_TRUE(o_Mon.f_WaitOut("SysSrv is not on the bus", 5000)) << o_Mon.f_Out();
  EXPECT_EQ(o_Mon.f_Stop(SIGINT), 0) << o_Mon.f_Err();
}

// The bus knows how to start the service, but the start fails: for the user that is
// still "not running", not a bus error.
TEST(SyssrvctlWithoutService, FailedActivationIsNotRunning) {
  std::string str_Dir = f_MakeTempDir("syssrv-activation");
  std::ofstream(str_Dir + "/com.torvane.akku.SysService.service")
      << "[D-BUS Service]\nName=com.torvane.akku.SysService\nExec=/bin/false\n";
  PrivateBus o_Bus(PrivateBus::f_Config(
      str_Dir, "  <servicedir>" + str_Dir + "</servicedir>\n" +
                   PrivateBus::f_DefaultPolicy("    <allow own=\"*\"/>\n"
                                               "    <allow send_type=\"method_call\"/>\n")));
  CtlRun_ST o_Run = f_Ctl(o_Bus.f_Address(), {"errors"});
  EXPECT_EQ(o_Run.i_Exit, 3);
  EXPECT_NE(o_Run.str_Err.find("SysSrv is not running: the system bus"), std::string::npos)
      << o_Run.str_Err;
  EXPECT_NE(o_Run.str_Err.find("could not start it"), std::string::npos) << o_Run.str_Err;
}

// One version from the build, told the same way by all three programs.
TEST(SyssrvctlWithoutService, EveryProgramTellsTheBuildVersion) {
  const std::pair<const char*, const char*> a_o_Progs[] = {
      {SYSSRV_CTL, "syssrvctl"}, {SYSSRV_SIM, "syssrv-sim"}, {SYSSRV_DAEMON, "SysSrv.elf"}};
  for (const auto& o_Prog : a_o_Progs) {
    SCOPED_TRACE(o_Prog.second);
    CtlRun_ST o_Run = f_Ctl("unix:path=/nonexistent", {"--version"}, o_Prog.first);
    EXPECT_EQ(o_Run.i_Exit, 0) << o_Run.str_Err;
    EXPECT_EQ(o_Run.str_Out, std::string(o_Prog.second) + " " + SYSSRV_VERSION + "\n");
  }
  // The service takes no other argument: it must not start on a mistyped one.
  CtlRun_ST o_Bad = f_Ctl("unix:path=/nonexistent", {"--debug"}, SYSSRV_DAEMON);
  EXPECT_EQ(o_Bad.i_Exit, 2);
  EXPECT_NE(o_Bad.str_Err.find("Usage: SysSrv.elf"), std::string::npos) << o_Bad.str_Err;
}

// syssrv-sim up DIR: the export lines it prints are all a shell needs to reach the service;
// down DIR stops it again.
TEST(SyssrvSimUpDown, StartsTheServiceOnAPrivateBusAndStopsIt) {
  std::string str_Tool = f_MakeTempDir("syssrv-up") + "/tool";
  CtlRun_ST o_Up = f_Ctl("", {"up", str_Tool, "--daemon", SYSSRV_DAEMON}, SYSSRV_SIM);
  ASSERT_EQ(o_Up.i_Exit, 0) << o_Up.str_Err;
  // Two lines and nothing else on stdout, for eval.
  const std::string str_Prefix = "export DBUS_SYSTEM_BUS_ADDRESS='";
  size_t ui_At = o_Up.str_Out.find(str_Prefix);
  ASSERT_NE(ui_At, std::string::npos) << o_Up.str_Out;
  EXPECT_EQ(o_Up.str_Out.rfind("export SYSSRV_ROOT='" + str_Tool + "'\n", 0), 0u) << o_Up.str_Out;
  std::string str_Address = o_Up.str_Out.substr(ui_At + str_Prefix.size());
  str_Address.erase(str_Address.find('\''));
  EXPECT_EQ(std::count(o_Up.str_Out.begin(), o_Up.str_Out.end(), '\n'), 2) << o_Up.str_Out;

  CtlRun_ST o_Status = f_Ctl(str_Address, {"status"});
  EXPECT_EQ(o_Status.i_Exit, 0) << o_Status.str_Err;
  // A second up on the same tool would start a second service on the same files.
  CtlRun_ST o_Again = f_Ctl("", {"up", str_Tool, "--daemon", SYSSRV_DAEMON}, SYSSRV_SIM);
  EXPECT_EQ(o_Again.i_Exit, 1);
  EXPECT_NE(o_Again.str_Err.find("already up"), std::string::npos) << o_Again.str_Err;

  pid_t i_Srv = static_cast<pid_t>(std::stol(f_ReadFile(str_Tool + "/sim/syssrv.pid")));
  CtlRun_ST o_Down = f_Ctl("", {"down", str_Tool}, SYSSRV_SIM);
  EXPECT_EQ(o_Down.i_Exit, 0) << o_Down.str_Err;
  EXPECT_NE(o_Down.str_Err.find("service and bus stopped"), std::string::npos) << o_Down.str_Err;
  // Gone, or a zombie waiting for init (whose command line is empty).
  EXPECT_EQ(f_ReadFile("/proc/" + std::to_string(i_Srv) + "/cmdline").find("SysSrv.elf"),
            std::string::npos);
  EXPECT_EQ(f_Ctl(str_Address, {"status"}).i_Exit, 3);
  // Nothing left to stop is no failure.
  EXPECT_EQ(f_Ctl("", {"down", str_Tool}, SYSSRV_SIM).i_Exit, 0);
}

// The shell completion reads the words from the programs' own --help: it must offer what
// the programs really take.
TEST(SyssrvctlCompletion, OffersTheRealCommandsActionsAndOptions) {
  struct Case_ST {
    const char* z_c_Prog;
    std::vector<std::string> o_Words;  // after the program; the last is being completed
    std::vector<std::string> o_Want;   // all of these among the offers
    std::vector<std::string> o_Not;    // none of these
  };
  const Case_ST a_o_Cases[] = {
      {SYSSRV_CTL, {""}, {"status", "errors", "batch", "monitor", "config-changed"}, {"--json"}},
      {SYSSRV_CTL, {"ba"}, {"batch", "battery"}, {"status"}},
      {SYSSRV_CTL, {"batch", ""}, {"list", "set", "clear", "delete"}, {"JSON", "N", "--job"}},
      {SYSSRV_CTL, {"battery", ""}, {"set-power"}, {}},
      {SYSSRV_CTL, {"--timeout", "5", "ready", ""}, {"set", "reset", "dump"}, {}},
      {SYSSRV_CTL, {"errors", "--"}, {"--json=", "--no-legend", "--timeout="}, {"--job"}},
      {SYSSRV_CTL, {"-"}, {"--version", "--help"}, {}},
      {SYSSRV_SIM, {""}, {"up", "down", "init", "nameplate", "show"}, {}},
      {SYSSRV_SIM, {"up", "--"}, {"--daemon="}, {}},
  };
  std::string str_Script = std::string(SYSSRV_SOURCE_DIR) + "/packaging/completion/" +
                           "syssrv-sim";  // also brings in the syssrvctl half
  for (const Case_ST& o_C : a_o_Cases) {
    std::string str_Words = "'" + std::string(o_C.z_c_Prog) + "'";
    for (const std::string& str_W : o_C.o_Words) str_Words += " '" + str_W + "'";
    std::string str_Fn = std::string(o_C.z_c_Prog).find("syssrv-sim") != std::string::npos
                             ? "_syssrv_sim"
                             : "_syssrvctl";
    std::string str_Cmd = ". '" + str_Script + "'; COMP_WORDS=(" + str_Words +
                          "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); " + str_Fn +
                          "; printf '%s\\n' \"${COMPREPLY[@]}\"";
    SCOPED_TRACE(str_Words);
    CtlRun_ST o_Run = f_Ctl("", {"-c", str_Cmd}, "/bin/bash");
    EXPECT_EQ(o_Run.i_Exit, 0) << o_Run.str_Err;
    for (const std::string& str_W : o_C.o_Want)
      EXPECT_NE(o_Run.str_Out.find(str_W + "\n"), std::string::npos) << str_W << " in\n" << o_Run.str_Out;
    for (const std::string& str_W : o_C.o_Not)
      EXPECT_EQ(("\n" + o_Run.str_Out).find("\n" + str_W + "\n"), std::string::npos)
          << str_W << " in\n" << o_Run.str_Out;
  }
}

}  // namespace
