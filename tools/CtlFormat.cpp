#include "CtlFormat.h"

#include <unistd.h>

#include <cstring>
#include <functional>

#include "SysSrvNames.h"
#include "sysLib/ConfigFile.h"
#include "sysLib/SysPath.h"

// ---------------------------------------------------------------------------------------
// Errors and battery

namespace {
struct Meaning_ST {
  int i_Coded;
  const char* z_c_Text;
};
// The errors the service raises itself; other processes report their own numbers.
const Meaning_ST A_O_MEANINGS[] = {
    {I_SYSERR_NAMEPLATE_CRC, "nameplate CRC mismatch"},
    {I_SYSERR_MAINTENANCE_DUE, "maintenance due"},
    {I_SYSERR_BATTERY_LOW, "battery low"},
    {I_SYSERR_FLASH, "flash file-system error in the kernel log"},
    {I_SYSERR_OVER_TEMPERATURE, "board over-temperature"},
    {I_SYSERR_TEMPERATURE_AT_OR_BELOW_ZERO, "board temperature reading at or below 0 °C"},
};
}  // namespace

const char* f_ErrorMeaning(int i_Coded) {
  for (const Meaning_ST& o_M : A_O_MEANINGS) {
    if (o_M.i_Coded == i_Coded) return o_M.z_c_Text;
  }
  return nullptr;
}

std::string f_ErrorMeaningText(int i_Coded) {
  const char* z_c_Text = f_ErrorMeaning(i_Coded);
  return z_c_Text != nullptr ? z_c_Text : "-";
}

std::string f_ErrorNrText(int i_Code, int i_Class) {
  return f_Format("%d (code %d, class %d)", i_Code * 8 + i_Class, i_Code, i_Class);
}

const char* f_BattStatusText(int i_Status) {
  switch (i_Status) {
    case 0:
      return "off";
    case 1:
      return "empty";
    case 2:
      return "low";
    case 3:
      return "good";
    case 4:
      return "on, charge not known yet";
    case 5:
      return "weak but usable";
    default:
      return "unknown";
  }
}

// ---------------------------------------------------------------------------------------
// Readiness flags

FlagNames_T f_ReadFlagNames(bool* z_b_Found) {
  FlagNames_T o_Names;
  if (z_b_Found != nullptr) *z_b_Found = false;
  // Asked first so that a tool without the file does not get a warning in its log from us.
  if (access(f_SysPath(A_C_RDY_CFG).c_str(), R_OK) != 0) return o_Names;
  cJSON* z_o_Raw = nullptr;
  if (f_ReadJsonCfgFile(A_C_RDY_CFG, &z_o_Raw) != 0) return o_Names;
  Json_T o_Tree(z_o_Raw);
  if (!f_CollectFlagNames(o_Tree.get(), o_Names)) return o_Names;
  if (z_b_Found != nullptr) *z_b_Found = true;
  return o_Names;
}

cJSON* f_FlagArray(uint32_t ui_Word, const FlagNames_T& o_Names) {
  cJSON* z_o_Array = cJSON_CreateArray();
  for (int i = 0; i < 32; ++i) {
    if ((ui_Word & (1U << i)) == 0) continue;
    cJSON* z_o_Flag = cJSON_CreateObject();
    cJSON_AddNumberToObject(z_o_Flag, "nr", i);
    auto o_It = o_Names.find(i);
    if (o_It != o_Names.end())
      cJSON_AddStringToObject(z_o_Flag, "name", o_It->second.c_str());
    else
      cJSON_AddNullToObject(z_o_Flag, "name");
    cJSON_AddItemToArray(z_o_Array, z_o_Flag);
  }
  return z_o_Array;
}

// ---------------------------------------------------------------------------------------
// Times

namespace {
std::string f_FormatTime(GDateTime* z_o_Time, const char* z_c_Fmt) {
  if (z_o_Time == nullptr) return "?";
  GChars_T o_Text(g_date_time_format(z_o_Time, z_c_Fmt));
  std::string str_Text = o_Text ? o_Text.get() : "?";
  g_date_time_unref(z_o_Time);
  return str_Text;
}

std::string f_NowFormatted(bool b_Iso) {
  GDateTime* z_o_Now = g_date_time_new_now_local();
  int i_Ms = g_date_time_get_microsecond(z_o_Now) / 1000;
  std::string str_Base =
      f_FormatTime(g_date_time_ref(z_o_Now), b_Iso ? "%Y-%m-%dT%H:%M:%S" : "%H:%M:%S");
  std::string str_Zone = b_Iso ? f_FormatTime(g_date_time_ref(z_o_Now), "%:z") : "";
  g_date_time_unref(z_o_Now);
  return str_Base + f_Format(".%03d", i_Ms) + str_Zone;
}
}  // namespace

std::string f_DateText(gint64 i_Seconds) {
  return f_FormatTime(g_date_time_new_from_unix_local(i_Seconds), "%Y-%m-%d %H:%M:%S");
}

std::string f_NowText() { return f_NowFormatted(false); }
std::string f_NowIso() { return f_NowFormatted(true); }

// ---------------------------------------------------------------------------------------
// The active-error list

std::vector<ActiveError_ST> f_ParseActiveErrors(const char* z_c_Json) {
  Json_T o_Tree(cJSON_Parse(z_c_Json));
  const cJSON* z_o_List = cJSON_GetObjectItemCaseSensitive(o_Tree.get(), "errors");
  if (!cJSON_IsArray(z_o_List)) {
    throw CliFailure_CL(I_EXIT_BUS, "the service sent an error list that is not readable");
  }
  std::vector<ActiveError_ST> o_Errors;
  const cJSON* z_o_Item = nullptr;
  cJSON_ArrayForEach(z_o_Item, z_o_List) {
    const cJSON* z_o_Code = cJSON_GetObjectItemCaseSensitive(z_o_Item, "code");
    const cJSON* z_o_Class = cJSON_GetObjectItemCaseSensitive(z_o_Item, "class");
    const cJSON* z_o_Date = cJSON_GetObjectItemCaseSensitive(z_o_Item, "date");
    if (!cJSON_IsNumber(z_o_Code) || !cJSON_IsNumber(z_o_Class)) continue;
    o_Errors.push_back({z_o_Code->valueint, z_o_Class->valueint,
                        cJSON_IsNumber(z_o_Date) ? static_cast<gint64>(z_o_Date->valuedouble) : 0});
  }
  return o_Errors;
}

// ---------------------------------------------------------------------------------------
// Signals

namespace {

struct Decoder_ST {
  const char* z_c_Name;
  const char* z_c_Type;  // the type the service sends
  std::function<std::string(GVariant*, cJSON*, const FlagNames_T&)> f_Decode;
};

int f_I(GVariant* o_Args, gsize ui_Index) {
  return g_variant_get_int32(Variant_T(g_variant_get_child_value(o_Args, ui_Index)).get());
}

std::string f_S(GVariant* o_Args, gsize ui_Index) {
  return g_variant_get_string(Variant_T(g_variant_get_child_value(o_Args, ui_Index)).get(),
                              nullptr);
}

void f_AddMeaning(cJSON* z_o_Args, int i_Coded) {
  const char* z_c_Meaning = f_ErrorMeaning(i_Coded);
  if (z_c_Meaning != nullptr)
    cJSON_AddStringToObject(z_o_Args, "meaning", z_c_Meaning);
  else
    cJSON_AddNullToObject(z_o_Args, "meaning");
}

const std::vector<Decoder_ST>& f_Decoders() {
  static const std::vector<Decoder_ST> o_Decoders = {
      {"cfgfilechanged", "(s)",
       [](GVariant* a, cJSON* j, const FlagNames_T&) {
         cJSON_AddStringToObject(j, "path", f_S(a, 0).c_str());
         return f_S(a, 0);
       }},
      {"sysfault", "(iii)",
       [](GVariant* a, cJSON* j, const FlagNames_T&) {
         int i_Code = f_I(a, 0), i_Class = f_I(a, 1), i_Coded = i_Code * 8 + i_Class;
         cJSON_AddNumberToObject(j, "code", i_Code);
         cJSON_AddNumberToObject(j, "class", i_Class);
         cJSON_AddNumberToObject(j, "date", f_I(a, 2));
         cJSON_AddNumberToObject(j, "coded", i_Coded);
         f_AddMeaning(j, i_Coded);
         const char* z_c_Meaning = f_ErrorMeaning(i_Coded);
         return "error " + f_ErrorNrText(i_Code, i_Class) +
                (z_c_Meaning != nullptr ? std::string(" ") + z_c_Meaning : std::string());
       }},
      {"acksysfault", "(ii)",
       [](GVariant* a, cJSON* j, const FlagNames_T&) {
         int i_Code = f_I(a, 0), i_Current = f_I(a, 1);
         cJSON_AddNumberToObject(j, "code", i_Code);
         cJSON_AddNumberToObject(j, "current", i_Current);
         std::string str_Now =
             i_Current == 0 ? "no active error left"
                            : "current error " + f_ErrorNrText(i_Current >> 3, i_Current & 7);
         return f_Format("code %d acknowledged; ", i_Code) + str_Now;
       }},
      {"battpowerchanged", "(i)",
       [](GVariant* a, cJSON* j, const FlagNames_T&) {
         cJSON_AddNumberToObject(j, "charge", f_I(a, 0));
         return f_Format("charge %d %%", f_I(a, 0));
       }},
      {"battstatuschanged", "(i)",
       [](GVariant* a, cJSON* j, const FlagNames_T&) {
         cJSON_AddNumberToObject(j, "status", f_I(a, 0));
         cJSON_AddStringToObject(j, "text", f_BattStatusText(f_I(a, 0)));
         return f_Format("status %d (%s)", f_I(a, 0), f_BattStatusText(f_I(a, 0)));
       }},
      {"battcntdwn", "(i)",
       [](GVariant* a, cJSON* j, const FlagNames_T&) {
         cJSON_AddNumberToObject(j, "seconds", f_I(a, 0));
         return f_Format("power-off in %d s", f_I(a, 0));
       }},
      {"newresult", "(si)",
       [](GVariant* a, cJSON* j, const FlagNames_T&) {
         cJSON_AddStringToObject(j, "database", f_S(a, 0).c_str());
         cJSON_AddNumberToObject(j, "dataset", f_I(a, 1));
         return f_Format("database %s, data set %d", f_S(a, 0).c_str(), f_I(a, 1));
       }},
      {"toolenable", "(i)",
       [](GVariant* a, cJSON* j, const FlagNames_T&) {
         int i_V = f_I(a, 0);
         cJSON_AddNumberToObject(j, "enable", i_V);
         std::string str_Text = i_V != 0 ? "tool enabled" : "tool disabled";
         if (i_V != 0 && i_V != 1) str_Text += f_Format(" (value %d)", i_V);
         return str_Text;
       }},
      {"prgchanged", "(i)",
       [](GVariant* a, cJSON* j, const FlagNames_T&) {
         cJSON_AddNumberToObject(j, "program", f_I(a, 0));
         return f_Format("program %d", f_I(a, 0));
       }},
      {"newidcode", "(iis)",
       [](GVariant* a, cJSON* j, const FlagNames_T&) {
         cJSON_AddNumberToObject(j, "device", f_I(a, 0));
         cJSON_AddNumberToObject(j, "active", f_I(a, 1));
         cJSON_AddStringToObject(j, "idcode", f_S(a, 2).c_str());
         return f_Format("device %d, active %d, code '%s'", f_I(a, 0), f_I(a, 1),
                         f_S(a, 2).c_str());
       }},
      {"rdychanged", "(ii)",
       [](GVariant* a, cJSON* j, const FlagNames_T& o_Names) {
         uint32_t ui_Ist = static_cast<uint32_t>(f_I(a, 0));
         uint32_t ui_Soll = static_cast<uint32_t>(f_I(a, 1));
         bool b_Ready = (ui_Ist & ui_Soll) == ui_Soll;
         cJSON_AddNumberToObject(j, "rdy_ist", ui_Ist);
         cJSON_AddNumberToObject(j, "rdy_soll", ui_Soll);
         cJSON_AddBoolToObject(j, "ready", b_Ready);
         cJSON_AddItemToObject(j, "missing", f_FlagArray(ui_Soll & ~ui_Ist, o_Names));
         std::string str_Words = f_Format("(RdyIst 0x%08X, RdySoll 0x%08X)", ui_Ist, ui_Soll);
         if (b_Ready) return "ready " + str_Words;
         return "not ready, missing " + f_FlagList(ui_Soll & ~ui_Ist, o_Names) + " " + str_Words;
       }},
      {"jobrunningstatuschanged", "(i)",
       [](GVariant* a, cJSON* j, const FlagNames_T&) {
         int i_V = f_I(a, 0);
         cJSON_AddNumberToObject(j, "state", i_V);
         if (i_V == 0) return std::string("no job running");
         if (i_V == 1) return std::string("job running");
         return f_Format("job state %d", i_V);
       }},
      {"newoperationmode", "(i)",
       [](GVariant* a, cJSON* j, const FlagNames_T&) {
         cJSON_AddNumberToObject(j, "mode", f_I(a, 0));
         return f_Format("operation mode %d", f_I(a, 0));
       }},
      {"operationmoderequest", "(iii)",
       [](GVariant* a, cJSON* j, const FlagNames_T&) {
         cJSON_AddNumberToObject(j, "mode", f_I(a, 0));
         cJSON_AddNumberToObject(j, "trigger_source", f_I(a, 1));
         cJSON_AddNumberToObject(j, "trigger_value", f_I(a, 2));
         return f_Format("mode %d requested, trigger source %d, trigger value %d", f_I(a, 0),
                         f_I(a, 1), f_I(a, 2));
       }},
  };
  return o_Decoders;
}

}  // namespace

SignalView_ST f_DecodeSignal(const char* z_c_Name, GVariant* o_Args, const FlagNames_T& o_Names) {
  SignalView_ST o_View{std::string(), Json_T(cJSON_CreateObject())};
  if (o_Args == nullptr || g_variant_n_children(o_Args) == 0) return o_View;
  for (const Decoder_ST& o_D : f_Decoders()) {
    if (std::strcmp(o_D.z_c_Name, z_c_Name) != 0) continue;
    if (std::strcmp(g_variant_get_type_string(o_Args), o_D.z_c_Type) != 0) break;
    o_View.str_Text = o_D.f_Decode(o_Args, o_View.o_Args.get(), o_Names);
    return o_View;
  }
  // A signal or a type this tool does not know: shown as it came, never dropped.
  GChars_T o_Text(g_variant_print(o_Args, FALSE));
  o_View.str_Text = o_Text.get();
  cJSON_AddStringToObject(o_View.o_Args.get(), "raw", o_Text.get());
  return o_View;
}
