// syssrvctl against the real daemon: every subcommand's effect on the service, JSON that
// scripts can parse, the monitor, and clear failures when the service or the bus is gone.
#include <cjson/cJSON.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "Harness.h"

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
                          std::vector<std::string>& o_Store) {
  o_Store = o_Args;
  o_Store.insert(o_Store.begin(), SYSSRV_CTL);
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

CtlRun_ST f_Ctl(const std::string& str_Address, const std::vector<std::string>& o_Args) {
  std::vector<std::string> o_Store;
  std::vector<char*> o_Argv = f_Argv(o_Args, o_Store);
  gchar** a_z_c_Env = f_Env(str_Address);
  gchar *z_c_Out = nullptr, *z_c_Err = nullptr;
  gint i_Status = -1;
  GError* z_o_Err = nullptr;
  CtlRun_ST o_Run{-1, "", ""};
  if (g_spawn_sync(nullptr, o_Argv.data(), a_z_c_Env, G_SPAWN_DEFAULT, nullptr, nullptr, &z_c_Out,
                   &z_c_Err, &i_Status, &z_o_Err)) {
    o_Run.i_Exit = WIFEXITED(i_Status) ? WEXITSTATUS(i_Status) : -1;
    o_Run.str_Out = z_c_Out;
    o_Run.str_Err = z_c_Err;
  } else {
    ADD_FAILURE() << "cannot run " << SYSSRV_CTL << ": " << z_o_Err->message;
    g_clear_error(&z_o_Err);
  }
  g_free(z_c_Out);
  g_free(z_c_Err);
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
    GError* z_o_Err = nullptr;
    if (!g_spawn_async_with_pipes(nullptr, o_Argv.data(), a_z_c_Env, G_SPAWN_DO_NOT_REAP_CHILD,
                                  nullptr, nullptr, &i_Pid, nullptr, &i_OutFd, &i_ErrFd,
                                  &z_o_Err)) {
      ADD_FAILURE() << z_o_Err->message;
      g_clear_error(&z_o_Err);
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
    if (o_R == nullptr) return -1;
    int i_Value = f_Int(o_R, i_Index);
    g_variant_unref(o_R);
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
         bool b_Ok = f_Number(z_o_Cfg, {"Mfu", "MfuFaktor"}) > 0.799 &&
                     f_Number(z_o_Cfg, {"Mfu", "MfuFaktor"}) < 0.801;
         cJSON_Delete(z_o_Cfg);
         return b_Ok;
       }},
      {{"batch", "set", str_Set},
       "Program counter set written",
       [] {
         cJSON* z_o_Cfg = f_File("/home/tool/config/OkNokCntCfg.json");
         cJSON* z_o_Set = cJSON_GetArrayItem(cJSON_GetObjectItem(z_o_Cfg, "CntrSets"), 0);
         bool b_Ok = f_Number(z_o_Set, {"Id"}) == 5 && f_Number(z_o_Set, {"MaxOk"}) == 10;
         cJSON_Delete(z_o_Cfg);
         return b_Ok;
       }},
      {{"batch", "list"}, "    5      10       2  up    down   yes", nullptr},
      {{"batch", "clear", "5"},
       "Program counter set 5 cleared",
       [] {
         cJSON* z_o_Cfg = f_File("/home/tool/config/OkNokCntCfg.json");
         cJSON* z_o_Set = cJSON_GetArrayItem(cJSON_GetObjectItem(z_o_Cfg, "CntrSets"), 0);
         bool b_Ok = f_Number(z_o_Set, {"Id"}) == 5 && f_Number(z_o_Set, {"MaxOk"}) == 0;
         cJSON_Delete(z_o_Cfg);
         return b_Ok;
       }},
      {{"batch", "delete", "5"}, "Program counter set 5 deleted", nullptr},
      {{"batch", "list"}, "No program counter sets configured", nullptr},
      {{"idcode-source", "1", "1"},
       "Identification-code source 1, delete after start on",
       [] {
         cJSON* z_o_Cfg = f_File("/home/tool/config/ResSrv.json");
         bool b_Ok = f_Number(z_o_Cfg, {"id_code", "active"}) == 1 &&
                     f_Number(z_o_Cfg, {"id_code", "del_after_start"}) == 1;
         cJSON_Delete(z_o_Cfg);
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
  ASSERT_NE(z_o_Status, nullptr) << o_Status.str_Out;
  EXPECT_TRUE(cJSON_IsFalse(cJSON_GetObjectItem(z_o_Status, "ready"))) << o_Status.str_Out;
  EXPECT_EQ(f_Number(z_o_Status, {"current_error", "coded"}), 3252);
  EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(
                   cJSON_GetObjectItem(z_o_Status, "current_error"), "meaning")),
               "board over-temperature");
  EXPECT_EQ(f_Number(z_o_Status, {"active_errors"}), 1);
  EXPECT_EQ(f_Number(z_o_Status, {"battery", "status"}), 3);
  cJSON_Delete(z_o_Status);

  CtlRun_ST o_Errors = f_Run({"errors", "--json"});
  cJSON* z_o_Errors = cJSON_Parse(o_Errors.str_Out.c_str());
  ASSERT_NE(z_o_Errors, nullptr) << o_Errors.str_Out;
  cJSON* z_o_First = cJSON_GetArrayItem(cJSON_GetObjectItem(z_o_Errors, "errors"), 0);
  EXPECT_EQ(f_Number(z_o_First, {"code"}), 406);
  EXPECT_EQ(f_Number(z_o_First, {"class"}), 4);
  EXPECT_EQ(f_Number(z_o_First, {"coded"}), 3252);
  cJSON_Delete(z_o_Errors);

  CtlRun_ST o_Batch = f_Run({"batch", "list", "--json"});
  cJSON* z_o_Batch = cJSON_Parse(o_Batch.str_Out.c_str());
  ASSERT_NE(z_o_Batch, nullptr) << o_Batch.str_Out;
  cJSON* z_o_Set = cJSON_GetArrayItem(cJSON_GetObjectItem(z_o_Batch, "sets"), 0);
  EXPECT_EQ(f_Number(z_o_Set, {"Id"}), 7);
  EXPECT_EQ(f_Number(z_o_Set, {"MaxOk"}), 3);
  // Defaults as the service applies them, so the object can be sent back with "batch set".
  EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(z_o_Set, "DirectionOk")), "down");
  EXPECT_TRUE(cJSON_IsTrue(cJSON_GetObjectItem(z_o_Set, "LockTool")));
  cJSON_Delete(z_o_Batch);

  EXPECT_EQ(f_Run({"ack", "3252"}).i_Exit, 0);
}

TEST_F(Syssrvctl, MonitorPrintsTheSignalsItSawUntilInterrupted) {
  MonitorProc o_Text(z_o_Bus->f_Address(), {"monitor"});
  MonitorProc o_Json(z_o_Bus->f_Address(), {"monitor", "--json"});
  ASSERT_TRUE(o_Text.f_WaitErr("Listening", 5000)) << o_Text.f_Err();
  ASSERT_TRUE(o_Json.f_WaitErr("Listening", 5000)) << o_Json.f_Err();

  GVariant* o_R = z_o_Client->f_CallOk("fprgchanged", g_variant_new("(i)", 42));
  if (o_R != nullptr) g_variant_unref(o_R);
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
    ASSERT_NE(z_o_Line, nullptr) << str_Line;
    EXPECT_TRUE(cJSON_IsString(cJSON_GetObjectItem(z_o_Line, "time"))) << str_Line;
    const char* z_c_Sig = cJSON_GetStringValue(cJSON_GetObjectItem(z_o_Line, "signal"));
    if (z_c_Sig != nullptr && std::string(z_c_Sig) == "prgchanged") {
      b_SeenPrg = f_Number(z_o_Line, {"args", "program"}) == 42;
    }
    cJSON_Delete(z_o_Line);
  }
  EXPECT_TRUE(b_SeenPrg) << str_Out;

  EXPECT_EQ(o_Text.f_Stop(SIGINT), 0) << o_Text.f_Err();
  EXPECT_EQ(o_Json.f_Stop(SIGTERM), 0) << o_Json.f_Err();
  f_ExpectNoGlibNoise(o_Text.f_Err());
  f_ExpectNoGlibNoise(o_Json.f_Err());
  EXPECT_EQ(f_Run({"ack", "3228"}).i_Exit, 0);
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

  // The monitor waits for a service that is not there yet, and still ends cleanly.
  MonitorProc o_Mon(o_Bus.f_Address(), {"monitor"});
  EXPECT_TRUE(o_Mon.f_WaitOut("SysSrv is not on the bus", 5000)) << o_Mon.f_Out();
  EXPECT_EQ(o_Mon.f_Stop(SIGINT), 0) << o_Mon.f_Err();
}

}  // namespace
