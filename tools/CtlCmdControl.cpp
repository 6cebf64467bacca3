// Subcommands that change the service's state: errors, readiness flags, battery charge,
// maintenance factor, identification-code source, tool enable and configuration changes.
#include <climits>
#include <cstdio>
#include <cstring>

#include "CtlCommands.h"
#include "SysSrvNames.h"
#include "sysLib/SysPath.h"

namespace {

// Flags whose state the service itself keeps: a change from outside lasts only until its
// next own update.
std::string f_OwnFlagNote(int i_Flag) {
  const char* z_c_What = i_Flag == I_RDY_FLAG_NO_SYS_ERROR ? "no active system error"
                         : i_Flag == I_RDY_FLAG_BATTERY    ? "battery"
                                                           : nullptr;
  return z_c_What != nullptr ? f_Format("flag %d (%s) is kept by SysSrv itself", i_Flag, z_c_What)
                             : std::string();
}

std::string f_FlagName(int i_Flag, const FlagNames_T& o_Names) {
  auto o_It = o_Names.find(i_Flag);
  return o_It != o_Names.end() ? f_Format("%d (%s)", i_Flag, o_It->second.c_str())
                               : f_Format("%d", i_Flag);
}

size_t f_CountCode(const std::vector<ActiveError_ST>& o_Errors, int i_Code, bool b_AckableOnly) {
  size_t ui_N = 0;
  for (const ActiveError_ST& o_E : o_Errors) {
    if (o_E.i_Code == i_Code && (!b_AckableOnly || o_E.i_Class != 1)) ++ui_N;
  }
  return ui_N;
}

void f_ReadyWords(CtlBus_CL& o_Bus, uint32_t* z_ui_Ist, uint32_t* z_ui_Soll) {
  Variant_T o_Rdy = o_Bus.f_Call("frdyget", nullptr, "(ii)");
  gint32 i_Ist = 0, i_Soll = 0;
  g_variant_get(o_Rdy.get(), "(ii)", &i_Ist, &i_Soll);
  *z_ui_Ist = static_cast<uint32_t>(i_Ist);
  *z_ui_Soll = static_cast<uint32_t>(i_Soll);
}

int f_ReadyDump(CtlBus_CL& o_Bus) {
  o_Bus.f_Call("fdumprdy");
  uint32_t ui_Ist = 0, ui_Soll = 0;
  f_ReadyWords(o_Bus, &ui_Ist, &ui_Soll);
  bool b_Found = false;
  FlagNames_T o_Names = f_ReadFlagNames(&b_Found);
  std::printf("RdySoll 0x%08X, RdyIst 0x%08X: %s\n", ui_Soll, ui_Ist,
              (ui_Ist & ui_Soll) == ui_Soll ? "ready" : "NOT ready");
  std::printf("%4s  %-20s %-9s %s\n", "FLAG", "NAME", "REQUIRED", "SET");
  for (int i = 0; i < 32; ++i) {
    bool b_Required = (ui_Soll >> i) & 1U;
    auto o_It = o_Names.find(i);
    if (!b_Required && o_It == o_Names.end()) continue;
    // The service reports only required flags; the others never matter.
    std::printf("%4d  %-20s %-9s %s\n", i, o_It != o_Names.end() ? o_It->second.c_str() : "-",
                b_Required ? "yes" : "no",
                b_Required ? (((ui_Ist >> i) & 1U) ? "yes" : "NO") : "-");
  }
  if (!b_Found) std::printf("(flag names not readable from %s)\n", A_C_RDY_CFG);
  std::printf("SysSrv wrote the same table to its log.\n");
  return I_EXIT_OK;
}

}  // namespace

int f_CmdReport(int i_Argc, char** a_z_c_Argv) {
  CtlArgs_CL o_Args("PROC CODE", "Reports a system error as process PROC.");
  o_Args.f_SetDescription(
      "CODE is the coded number (code x 8 + class, e.g. 4883) or CODE/CLASS (e.g. 610/3).\n"
      "While an error with the same code is active, the service keeps the first report.");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(2, 2);
  const std::string& str_Proc = o_Args.f_Args()[0];
  if (str_Proc.empty()) f_UsageError("PROC must not be empty");
  f_ExpectUtf8(str_Proc, "PROC");
  ErrorNr_ST o_Nr = f_ParseErrorNr(o_Args.f_Args()[1]);
  CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
  bool b_Known = false;
  std::vector<ActiveError_ST> o_Before = f_ActiveErrors(o_Bus, true, &b_Known);
  o_Bus.f_Call("freporterror",
               g_variant_new("(sss)", str_Proc.c_str(), std::to_string(o_Nr.i_Coded).c_str(), ""));
  std::string str_Nr = f_ErrorNrText(o_Nr.i_Code, o_Nr.i_Class);
  if (b_Known && f_CountCode(o_Before, o_Nr.i_Code, false) > 0) {
    std::printf("Code %d is already active: SysSrv keeps the first report and sends nothing.\n",
                o_Nr.i_Code);
    return I_EXIT_OK;
  }
  std::printf("Reported error %s as %s.\n", str_Nr.c_str(), str_Proc.c_str());
  if (o_Nr.i_Class == 1)
    std::printf("Class 1: readiness stays revoked until the service is restarted.\n");
  else if (o_Nr.i_Class != 0)
    std::printf("Readiness is revoked until it is acknowledged ('syssrvctl ack %d').\n",
                o_Nr.i_Coded);
  return I_EXIT_OK;
}

int f_CmdAck(int i_Argc, char** a_z_c_Argv) {
  gboolean b_All = FALSE;
  GOptionEntry a_o_Entries[] = {
      {"all", 'a', 0, G_OPTION_ARG_NONE, &b_All,
       "Acknowledge every active error of classes 0 and 3 (as the acknowledge input does)",
       nullptr},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  CtlArgs_CL o_Args("CODE | --all", "Acknowledges active system errors.");
  o_Args.f_AddEntries(a_o_Entries);
  o_Args.f_SetDescription(
      "CODE (coded number, or CODE/CLASS) acknowledges every active error with that code\n"
      "except those of class 1, which only a restart of the service clears.");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  if (b_All) {
    o_Args.f_ExpectArgs(0, 0);
    CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
    size_t ui_Before = f_ActiveErrors(o_Bus).size();
    o_Bus.f_Call("fackerrlist");
    size_t ui_After = f_ActiveErrors(o_Bus).size();
    std::printf("Acknowledged %zu error(s) of classes 0 and 3; %zu stay active.\n",
                ui_Before - (ui_After < ui_Before ? ui_After : ui_Before), ui_After);
    if (ui_After > 0)
      std::printf("Other classes need 'syssrvctl ack CODE'; class 1 needs a restart.\n");
    return I_EXIT_OK;
  }
  o_Args.f_ExpectArgs(1, 1);
  ErrorNr_ST o_Nr = f_ParseErrorNr(o_Args.f_Args()[0]);
  if (o_Nr.i_Class == 1) {
    throw CliFailure_CL(
        I_EXIT_REFUSED,
        f_Format("%s has class 1: SysSrv never acknowledges class 1 by code; only a restart "
                 "of the service clears it",
                 f_ErrorNrText(o_Nr.i_Code, o_Nr.i_Class).c_str()));
  }
  CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
  bool b_Known = false;
  std::vector<ActiveError_ST> o_Before = f_ActiveErrors(o_Bus, true, &b_Known);
  // The service takes the acknowledgement by code; the process name is only logged.
  o_Bus.f_Call("freporterror",
               g_variant_new("(sss)", "syssrvctl", std::to_string(o_Nr.i_Coded).c_str(), "Ack"));
  if (!b_Known) {
    std::printf("Acknowledgement of code %d sent.\n", o_Nr.i_Code);
  } else if (size_t ui_N = f_CountCode(o_Before, o_Nr.i_Code, true); ui_N > 0) {
    std::printf("Acknowledged code %d (%zu active error%s).\n", o_Nr.i_Code, ui_N,
                ui_N == 1 ? "" : "s");
  } else if (f_CountCode(o_Before, o_Nr.i_Code, false) > 0) {
    std::printf("Code %d is active with class 1 only: only a restart of the service clears it.\n",
                o_Nr.i_Code);
  } else {
    std::printf("Nothing to acknowledge: no active error with code %d.\n", o_Nr.i_Code);
  }
  return I_EXIT_OK;
}

int f_CmdClear(int i_Argc, char** a_z_c_Argv) {
  CtlArgs_CL o_Args("", "Deletes the acknowledged errors from the error list.");
  o_Args.f_SetDescription(
      "With no active error the whole database is deleted and started afresh; active errors\n"
      "are never deleted.");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(0, 0);
  CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
  size_t ui_Active = f_ActiveErrors(o_Bus).size();
  o_Bus.f_Call("fdelerrlist");
  if (ui_Active > 0)
    std::printf("Deleted the acknowledged errors; the %zu active one(s) stay.\n", ui_Active);
  else
    std::printf("Deleted the error list; SysSrv started a fresh database.\n");
  return I_EXIT_OK;
}

int f_CmdReady(int i_Argc, char** a_z_c_Argv) {
  CtlArgs_CL o_Args("set N | reset N | dump",
                    "Sets or resets readiness flag N (0..31), or shows the readiness table.");
  o_Args.f_SetDescription(
      "Each process of the tool owns its flags; the controller is ready when every flag that\n"
      "/home/tool/config/log/rdystatus.json requires is set. 'dump' also writes the table to\n"
      "the service's log.");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(1, 2);
  const std::string& str_Action = o_Args.f_Args()[0];
  if (str_Action == "dump") {
    o_Args.f_ExpectArgs(1, 1);
    CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
    return f_ReadyDump(o_Bus);
  }
  if (str_Action != "set" && str_Action != "reset")
    f_UsageError("give set N, reset N or dump, got '" + str_Action + "'");
  o_Args.f_ExpectArgs(2, 2);
  int i_Flag = static_cast<int>(f_ParseLong(o_Args.f_Args()[1], 0, 31, "N"));
  bool b_Set = str_Action == "set";
  CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
  o_Bus.f_Call(b_Set ? "frdyflagset" : "frdyflagreset", g_variant_new("(i)", i_Flag));
  FlagNames_T o_Names = f_ReadFlagNames();
  std::printf("Flag %s %s.\n", f_FlagName(i_Flag, o_Names).c_str(), b_Set ? "set" : "reset");
  std::string str_Note = f_OwnFlagNote(i_Flag);
  if (!str_Note.empty()) std::printf("Note: %s.\n", str_Note.c_str());
  Variant_T o_Rdy = o_Bus.f_CallOrRefused("frdyget", nullptr, "(ii)");
  if (o_Rdy) {
    gint32 i_Ist = 0, i_Soll = 0;
    g_variant_get(o_Rdy.get(), "(ii)", &i_Ist, &i_Soll);
    uint32_t ui_Ist = static_cast<uint32_t>(i_Ist), ui_Soll = static_cast<uint32_t>(i_Soll);
    if (((ui_Soll >> i_Flag) & 1U) == 0) {
      std::printf("Flag %d is not required, so it does not change readiness.\n", i_Flag);
    } else if ((ui_Ist & ui_Soll) == ui_Soll) {
      std::printf("Every required flag is set: the controller is ready.\n");
    } else {
      std::printf("Not ready; missing: %s.\n", f_FlagList(ui_Soll & ~ui_Ist, o_Names).c_str());
    }
  }
  return I_EXIT_OK;
}

int f_CmdBattery(int i_Argc, char** a_z_c_Argv) {
  CtlArgs_CL o_Args("set-power N",
                    "Publishes battery charge N % (0..100) in place of the driver's reading.");
  o_Args.f_SetDescription(
      "The value holds until the driver's reading changes; it is ignored while the battery\n"
      "is off. The battery status follows the reading only (syssrv-sim battery in a sandbox).");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(1, 2);
  if (o_Args.f_Args()[0] != "set-power")
    f_UsageError("give set-power N, got '" + o_Args.f_Args()[0] + "'");
  o_Args.f_ExpectArgs(2, 2);
  int i_Charge = static_cast<int>(f_ParseLong(o_Args.f_Args()[1], 0, 100, "N"));
  CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
  Variant_T o_Status = o_Bus.f_Call("fbattstatusget", g_variant_new("(i)", 0), "(i)");
  gint32 i_Status = 0;
  g_variant_get(o_Status.get(), "(i)", &i_Status);
  o_Bus.f_Call("fbattpowerset", g_variant_new("(i)", i_Charge));
  if (i_Status == 0)
    std::printf("The battery is off: SysSrv ignores the charge until it is on again.\n");
  else
    std::printf("Charge %d %% published; the driver's next new reading replaces it.\n", i_Charge);
  return I_EXIT_OK;
}

int f_CmdMfu(int i_Argc, char** a_z_c_Argv) {
  CtlArgs_CL o_Args("set N", "Sets the maintenance factor to N thousandths (800 = 0.8).");
  o_Args.f_SetDescription(
      "Every torque limit in /home/tool/config/ChanCfg.json is rescaled and the change is\n"
      "stamped with date and cycle count. (The bus has no getter of the factor: the file\n"
      "holds it under \"Mfu\".)");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(1, 2);
  if (o_Args.f_Args()[0] != "set") f_UsageError("give set N, got '" + o_Args.f_Args()[0] + "'");
  o_Args.f_ExpectArgs(2, 2);
  int i_Mfu = static_cast<int>(f_ParseLong(o_Args.f_Args()[1], 1, 10000, "N"));
  CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
  o_Bus.f_Call("fmfuset", g_variant_new("(i)", i_Mfu));
  std::printf("Maintenance factor %d.%03d set; the limits in ChanCfg.json follow it.\n",
              i_Mfu / 1000, i_Mfu % 1000);
  return I_EXIT_OK;
}

int f_CmdIdCodeSource(int i_Argc, char** a_z_c_Argv) {
  CtlArgs_CL o_Args(
      "SRC DEL", "Selects identification-code source SRC; DEL 1 deletes the code after a start.");
  o_Args.f_SetDescription("Both go to \"id_code\" in /home/tool/config/ResSrv.json.");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(2, 2);
  int i_Src = static_cast<int>(f_ParseLong(o_Args.f_Args()[0], 0, INT_MAX, "SRC"));
  int i_Del = static_cast<int>(f_ParseLong(o_Args.f_Args()[1], 0, 1, "DEL"));
  CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
  o_Bus.f_Call("fidcodesrcset", g_variant_new("(ii)", i_Src, i_Del));
  std::printf("Identification-code source %d, delete after start %s.\n", i_Src,
              i_Del ? "on" : "off");
  return I_EXIT_OK;
}

int f_CmdToolEnable(int i_Argc, char** a_z_c_Argv) {
  CtlArgs_CL o_Args("0|1", "Disables (0) or enables (1) the tool.");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(1, 1);
  int i_Enable = static_cast<int>(f_ParseLong(o_Args.f_Args()[0], 0, 1, "the enable value"));
  CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
  o_Bus.f_Call("ftoolenableset", g_variant_new("(i)", i_Enable));
  std::printf("Tool %s.\n", i_Enable ? "enabled" : "disabled");
  return I_EXIT_OK;
}

int f_CmdConfigChanged(int i_Argc, char** a_z_c_Argv) {
  CtlArgs_CL o_Args("PATH", "Tells SysSrv and every listener that a configuration file changed.");
  o_Args.f_SetDescription(
      "PATH is the path on the tool, e.g. /home/tool/config/ChanCfg.json. SysSrv re-reads\n"
      "the files it owns and announces the path with cfgfilechanged.");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(1, 1);
  std::string str_Path = o_Args.f_Args()[0];
  f_ExpectUtf8(str_Path, "PATH");
  if (str_Path.empty() || str_Path[0] != '/')
    f_UsageError("PATH must be absolute, e.g. /home/tool/config/ChanCfg.json");
  // The service compares the path on the tool; a sandbox path would match nothing.
  std::string str_Root = f_SysRoot();
  if (!str_Root.empty() && str_Path.compare(0, str_Root.size() + 1, str_Root + "/") == 0) {
    str_Path.erase(0, str_Root.size());
    std::printf("(sandbox path given: announcing %s)\n", str_Path.c_str());
  }
  CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
  o_Bus.f_Call("fcfgfilechanged", g_variant_new("(s)", str_Path.c_str()));
  std::printf("Announced %s.\n", str_Path.c_str());
  return I_EXIT_OK;
}
