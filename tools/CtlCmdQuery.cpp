// "status" and "errors": what the service knows, in words or as JSON.
#include <cstdio>

#include "CtlCommands.h"

std::vector<ActiveError_ST> f_ActiveErrors(CtlBus_CL& o_Bus, bool b_OrUnknown, bool* z_b_Known) {
  Variant_T o_Reply = b_OrUnknown ? o_Bus.f_CallOrRefused("fgetunacknsyserrors", nullptr, "(s)")
                                  : o_Bus.f_Call("fgetunacknsyserrors", nullptr, "(s)");
  if (z_b_Known != nullptr) *z_b_Known = o_Reply != nullptr;
  if (!o_Reply) return {};
  const char* z_c_Json = nullptr;
  g_variant_get(o_Reply.get(), "(&s)", &z_c_Json);
  return f_ParseActiveErrors(z_c_Json);
}

namespace {

int f_Int1(const Variant_T& o_V) {
  gint32 i_Value = 0;
  g_variant_get(o_V.get(), "(i)", &i_Value);
  return i_Value;
}

void f_Line(const char* z_c_Label, const std::string& str_Text) {
  std::printf("%-20s %s\n", z_c_Label, str_Text.c_str());
}

// Everything "status" gathers before it prints.
struct Status_ST {
  int i_Charge = 0;
  int i_BattStatus = 0;
  bool b_RdyKnown = false;
  uint32_t ui_RdyIst = 0;
  uint32_t ui_RdySoll = 0;
  int i_ErrCode = 0, i_ErrClass = 0, i_ErrDate = 0;
  bool b_ListKnown = false;
  size_t ui_Active = 0;
  bool b_ToolEnabled = false;
};

Status_ST f_GatherStatus(CtlBus_CL& o_Bus) {
  Status_ST o_S;
  // The first call tells whether the service is there at all.
  o_S.i_Charge = f_Int1(o_Bus.f_Call("fbattpowerget", nullptr, "(i)"));
  // Declared without a result, yet it answers one int to a caller that passes one.
  o_S.i_BattStatus = f_Int1(o_Bus.f_Call("fbattstatusget", g_variant_new("(i)", 0), "(i)"));
  Variant_T o_Rdy = o_Bus.f_CallOrRefused("frdyget", nullptr, "(ii)");
  if (o_Rdy) {
    gint32 i_Ist = 0, i_Soll = 0;
    g_variant_get(o_Rdy.get(), "(ii)", &i_Ist, &i_Soll);
    o_S.b_RdyKnown = true;
    o_S.ui_RdyIst = static_cast<uint32_t>(i_Ist);
    o_S.ui_RdySoll = static_cast<uint32_t>(i_Soll);
  }
  Variant_T o_Err = o_Bus.f_Call("fsyserrorget", nullptr, "(iii)");
  g_variant_get(o_Err.get(), "(iii)", &o_S.i_ErrCode, &o_S.i_ErrClass, &o_S.i_ErrDate);
  o_S.ui_Active = f_ActiveErrors(o_Bus, true, &o_S.b_ListKnown).size();
  o_S.b_ToolEnabled = f_Int1(o_Bus.f_Call("ftoolenableget", nullptr, "(i)")) != 0;
  return o_S;
}

// The service starts the count-down when the battery goes off or empty and stops it only
// when a usable battery is back; its remaining seconds travel only as "battcntdwn".
bool f_CountDownRuns(int i_BattStatus) { return i_BattStatus == 0 || i_BattStatus == 1; }

const char* A_C_JOB_NOTE =
    "not queryable over the bus; 'syssrvctl monitor' shows jobrunningstatuschanged";

void f_PrintStatusJson(const Status_ST& o_S, const CtlBus_CL& o_Bus, const FlagNames_T& o_Names,
                       en_JsonFormat e_Format) {
  Json_T o_Root(cJSON_CreateObject());
  cJSON* z_o = o_Root.get();
  cJSON_AddBoolToObject(z_o, "running", true);
  cJSON_AddStringToObject(z_o, "bus", o_Bus.f_Address().c_str());
  cJSON* z_o_Batt = cJSON_AddObjectToObject(z_o, "battery");
  if (o_S.i_Charge >= 0)
    cJSON_AddNumberToObject(z_o_Batt, "charge", o_S.i_Charge);
  else
    cJSON_AddNullToObject(z_o_Batt, "charge");
  cJSON_AddNumberToObject(z_o_Batt, "status", o_S.i_BattStatus);
  cJSON_AddStringToObject(z_o_Batt, "status_text", f_BattStatusText(o_S.i_BattStatus));
  cJSON* z_o_Cnt = cJSON_AddObjectToObject(z_o, "countdown");
  cJSON_AddBoolToObject(z_o_Cnt, "running", f_CountDownRuns(o_S.i_BattStatus));
  cJSON_AddNullToObject(z_o_Cnt, "seconds");  // not queryable
  if (o_S.b_RdyKnown) {
    cJSON_AddBoolToObject(z_o, "ready", (o_S.ui_RdyIst & o_S.ui_RdySoll) == o_S.ui_RdySoll);
    cJSON_AddNumberToObject(z_o, "rdy_ist", o_S.ui_RdyIst);
    cJSON_AddNumberToObject(z_o, "rdy_soll", o_S.ui_RdySoll);
    cJSON_AddItemToObject(z_o, "required", f_FlagArray(o_S.ui_RdySoll, o_Names));
    cJSON_AddItemToObject(z_o, "missing", f_FlagArray(o_S.ui_RdySoll & ~o_S.ui_RdyIst, o_Names));
  } else {
    cJSON_AddNullToObject(z_o, "ready");
  }
  if (o_S.i_ErrCode == 0 && o_S.i_ErrClass == 0) {
    cJSON_AddNullToObject(z_o, "current_error");
  } else {
    cJSON* z_o_Err = cJSON_AddObjectToObject(z_o, "current_error");
    int i_Coded = o_S.i_ErrCode * 8 + o_S.i_ErrClass;
    cJSON_AddNumberToObject(z_o_Err, "coded", i_Coded);
    cJSON_AddNumberToObject(z_o_Err, "code", o_S.i_ErrCode);
    cJSON_AddNumberToObject(z_o_Err, "class", o_S.i_ErrClass);
    cJSON_AddNumberToObject(z_o_Err, "date", o_S.i_ErrDate);
    const char* z_c_Meaning = f_ErrorMeaning(i_Coded);
    if (z_c_Meaning != nullptr)
      cJSON_AddStringToObject(z_o_Err, "meaning", z_c_Meaning);
    else
      cJSON_AddNullToObject(z_o_Err, "meaning");
  }
  if (o_S.b_ListKnown)
    cJSON_AddNumberToObject(z_o, "active_errors", static_cast<double>(o_S.ui_Active));
  else
    cJSON_AddNullToObject(z_o, "active_errors");
  cJSON_AddBoolToObject(z_o, "tool_enabled", o_S.b_ToolEnabled);
  cJSON_AddNullToObject(z_o, "job_running");
  f_PrintJson(z_o, e_Format);
}

void f_PrintStatusText(const Status_ST& o_S, const CtlBus_CL& o_Bus, const FlagNames_T& o_Names,
                       bool b_NamesFound) {
  f_Line("SysSrv", "running on " + o_Bus.f_Address());
  std::string str_Charge =
      o_S.i_Charge >= 0 ? f_Format("%d %%", o_S.i_Charge) : std::string("not known yet");
  f_Line("Battery", str_Charge + f_Format(", status %d (%s)", o_S.i_BattStatus,
                                          f_BattStatusText(o_S.i_BattStatus)));
  f_Line("Power-off count-down",
         f_CountDownRuns(o_S.i_BattStatus)
             ? "running (the seconds left travel only as battcntdwn signals: "
               "see 'syssrvctl monitor')"
             : "not running");
  if (o_S.b_RdyKnown) {
    bool b_Ready = (o_S.ui_RdyIst & o_S.ui_RdySoll) == o_S.ui_RdySoll;
    f_Line("Readiness", b_Ready ? "ready" : "NOT ready");
    f_Line("  required (RdySoll)",
           f_Format("0x%08X  ", o_S.ui_RdySoll) + f_FlagList(o_S.ui_RdySoll, o_Names));
    f_Line("  set (RdyIst)",
           f_Format("0x%08X  ", o_S.ui_RdyIst) + f_FlagList(o_S.ui_RdyIst, o_Names));
    if (!b_Ready) f_Line("  missing", f_FlagList(o_S.ui_RdySoll & ~o_S.ui_RdyIst, o_Names));
    if (!b_NamesFound) f_Line("  flag names", std::string("not readable from ") + A_C_RDY_CFG);
  } else {
    f_Line("Readiness", std::string("unavailable: ") + f_RefusalHint("frdyget"));
  }
  if (o_S.i_ErrCode == 0 && o_S.i_ErrClass == 0) {
    f_Line("Current error", "none");
  } else {
    int i_Coded = o_S.i_ErrCode * 8 + o_S.i_ErrClass;
    const char* z_c_Meaning = f_ErrorMeaning(i_Coded);
    f_Line("Current error", f_ErrorNrText(o_S.i_ErrCode, o_S.i_ErrClass) +
                                (z_c_Meaning != nullptr ? std::string(" ") + z_c_Meaning : "") +
                                ", since " + f_DateText(o_S.i_ErrDate));
  }
  f_Line("Active errors",
         o_S.b_ListKnown ? f_Format("%zu%s", o_S.ui_Active,
                                    o_S.ui_Active > 0 ? " ('syssrvctl errors' lists them)" : "")
                         : std::string("unavailable: ") + f_RefusalHint("fgetunacknsyserrors"));
  f_Line("Tool", o_S.b_ToolEnabled ? "enabled" : "disabled");
  f_Line("Job running", A_C_JOB_NOTE);
}

}  // namespace

int f_CmdStatus(int i_Argc, char** a_z_c_Argv) {
  CtlArgs_CL o_Args("",
                    "Shows battery, count-down, readiness, the current error and the tool enable.");
  o_Args.f_AddJson();
  o_Args.f_SetDescription(
      "Readiness flags are named after /home/tool/config/log/rdystatus.json.\n"
      "Exit status 1 when the service refused a part of the overview (it is shown as\n"
      "unavailable), 3 when it is not running.");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(0, 0);
  try {
    CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
    Status_ST o_S = f_GatherStatus(o_Bus);
    bool b_NamesFound = false;
    FlagNames_T o_Names = f_ReadFlagNames(&b_NamesFound);
    if (o_Args.f_Json())
      f_PrintStatusJson(o_S, o_Bus, o_Names, o_Args.f_JsonFormat());
    else
      f_PrintStatusText(o_S, o_Bus, o_Names, b_NamesFound);
    return (o_S.b_RdyKnown && o_S.b_ListKnown) ? I_EXIT_OK : I_EXIT_REFUSED;
  } catch (const CliFailure_CL& o_Fail) {
    // A script asking for the state must get an answer it can parse, "down" included; the
    // reason still goes to stderr and the exit status still says 3.
    if (o_Fail.f_ExitCode() != I_EXIT_NO_SERVICE || !o_Args.f_Json()) throw;
    Json_T o_Root(cJSON_CreateObject());
    cJSON_AddBoolToObject(o_Root.get(), "running", false);
    cJSON_AddStringToObject(o_Root.get(), "reason", o_Fail.what());
    f_PrintJson(o_Root.get(), o_Args.f_JsonFormat());
    throw;
  }
}

int f_CmdErrors(int i_Argc, char** a_z_c_Argv) {
  CtlArgs_CL o_Args("", "Lists the active (unacknowledged) system errors.");
  o_Args.f_AddJson();
  o_Args.f_AddLegend();
  o_Args.f_SetDescription(
      "The coded number is code x 8 + class. Class 0 is a note, class 1 is cleared only by a\n"
      "restart of the service, every other class revokes readiness until acknowledged.");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(0, 0);
  CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
  std::vector<ActiveError_ST> o_Errors = f_ActiveErrors(o_Bus);

  if (o_Args.f_Json()) {
    Json_T o_Root(cJSON_CreateObject());
    cJSON* z_o_List = cJSON_AddArrayToObject(o_Root.get(), "errors");
    for (const ActiveError_ST& o_E : o_Errors) {
      cJSON* z_o_E = cJSON_CreateObject();
      int i_Coded = o_E.i_Code * 8 + o_E.i_Class;
      cJSON_AddNumberToObject(z_o_E, "code", o_E.i_Code);
      cJSON_AddNumberToObject(z_o_E, "class", o_E.i_Class);
      cJSON_AddNumberToObject(z_o_E, "coded", i_Coded);
      cJSON_AddNumberToObject(z_o_E, "date", static_cast<double>(o_E.i_Date));
      const char* z_c_Meaning = f_ErrorMeaning(i_Coded);
      if (z_c_Meaning != nullptr)
        cJSON_AddStringToObject(z_o_E, "meaning", z_c_Meaning);
      else
        cJSON_AddNullToObject(z_o_E, "meaning");
      cJSON_AddItemToArray(z_o_List, z_o_E);
    }
    f_PrintJson(o_Root.get(), o_Args.f_JsonFormat());
    return I_EXIT_OK;
  }
  if (o_Errors.empty()) {
    if (o_Args.f_Legend()) std::printf("No active errors.\n");
    return I_EXIT_OK;
  }
  if (o_Args.f_Legend())
    std::printf("%6s %6s %7s  %-19s  %s\n", "CODE", "CLASS", "CODED", "DATE", "MEANING");
  for (const ActiveError_ST& o_E : o_Errors) {
    int i_Coded = o_E.i_Code * 8 + o_E.i_Class;
    std::printf("%6d %6d %7d  %-19s  %s\n", o_E.i_Code, o_E.i_Class, i_Coded,
                f_DateText(o_E.i_Date).c_str(), f_ErrorMeaningText(i_Coded).c_str());
  }
  return I_EXIT_OK;
}
