// "show" and "log": what the service made of the tool, at a glance. Every part is read on
// its own, so a missing file shows as missing instead of hiding the rest.
#include <cjson/cJSON.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "CliFlags.h"
#include "SimCommands.h"
#include "SimCommon.h"
#include "SimRoot.h"
#include "SimShMem.h"
#include "sysLib/Holders.h"

namespace {

constexpr size_t UI_SHOW_LOG_LINES = 8;

// Runs one part of the report; a failure becomes its line instead of ending the report.
void f_Part(const char* z_c_Label, const std::function<std::string()>& f_Text) {
  std::string str_Text;
  try {
    str_Text = f_Text();
  } catch (const CliFailure_CL& o_Fail) {
    str_Text = std::string("unreadable: ") + o_Fail.what();
  }
  std::printf("%-18s %s\n", z_c_Label, str_Text.c_str());
}

std::string f_Trimmed(const std::string& str_Text) {
  size_t ui_First = str_Text.find_first_not_of(" \t\r\n");
  if (ui_First == std::string::npos) return std::string();
  return str_Text.substr(ui_First, str_Text.find_last_not_of(" \t\r\n") - ui_First + 1);
}

// Flag number -> name, from the readiness configuration.
FlagNames_T f_FlagNames(const SimRoot_CL& o_Root) {
  FlagNames_T o_Names;
  bool b_Found = false;
  std::string str_Json = f_ReadFileIfAny(o_Root.f_Path(SimPath::RDYSTATUS_CFG), b_Found);
  CJsonTree_T z_o_Tree(cJSON_Parse(str_Json.c_str()));
  f_CollectFlagNames(z_o_Tree.get(), o_Names);
  return o_Names;
}

std::string f_DriverByte(const SimRoot_CL& o_Root, const char* z_c_Logical) {
  bool b_Found = false;
  std::string str_Data = f_ReadFileIfAny(o_Root.f_Path(z_c_Logical), b_Found);
  if (!b_Found) return "missing";
  if (str_Data.empty()) return "empty";
  return f_Format("%u", static_cast<unsigned char>(str_Data[0]));
}

std::string f_TextFile(const SimRoot_CL& o_Root, const char* z_c_Logical) {
  bool b_Found = false;
  std::string str_Data = f_ReadFileIfAny(o_Root.f_Path(z_c_Logical), b_Found);
  if (!b_Found) return "missing";
  str_Data = f_Trimmed(str_Data);
  return str_Data.empty() ? "empty" : str_Data;
}

std::vector<std::string> f_LastLines(const std::string& str_Text, size_t ui_Count) {
  std::vector<std::string> o_Lines;
  size_t ui_Pos = 0;
  while (ui_Pos < str_Text.size()) {
    size_t ui_End = str_Text.find('\n', ui_Pos);
    if (ui_End == std::string::npos) ui_End = str_Text.size();
    o_Lines.push_back(str_Text.substr(ui_Pos, ui_End - ui_Pos));
    ui_Pos = ui_End + 1;
  }
  if (o_Lines.size() > ui_Count) o_Lines.erase(o_Lines.begin(), o_Lines.end() - ui_Count);
  return o_Lines;
}

}  // namespace

int f_CmdShow(int i_Argc, char** a_z_c_Argv) {
  SimArgs_CL o_Args("", "Shows the tool's outputs, readiness, error and inputs.", true);
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(0, 0);
  SimRoot_CL o_Root(o_Args.f_Root());

  f_Part("BMS outputs", [&] {
    SimBms_CL o_Bms(o_Root);
    std::string str_Text = f_Format("0x%08X", o_Bms.f_Outputs());
    for (size_t i = 0; i < UI_BMS_LINES; ++i) {
      const BmsLine_ST& o_L = A_O_BMS_LINES[i];
      if (!o_L.b_Output) continue;
      str_Text += f_Format("  %s(%d)=%u", o_L.z_c_Name, o_L.i_Line,
                           (o_Bms.f_Outputs() >> o_L.i_Line) & 1U);
    }
    return str_Text;
  });
  f_Part("BMS inputs", [&] {
    SimBms_CL o_Bms(o_Root);
    return f_Format("0x%08X  acknowledge(%d)=%u", o_Bms.f_Inputs(), I_BMS_IN_ACK,
                    (o_Bms.f_Inputs() >> I_BMS_IN_ACK) & 1U);
  });

  FlagNames_T o_Names;
  try {
    o_Names = f_FlagNames(o_Root);
  } catch (const CliFailure_CL&) {
    // Without names the flags are listed by number.
  }
  bool b_ShmOk = true;
  ErrorShMemData_ST o_Err{};
  try {
    o_Err = f_ReadErrorShMem(o_Root);
  } catch (const CliFailure_CL& o_Fail) {
    b_ShmOk = false;
    std::printf("%-18s unreadable: %s\n", "Error segment", o_Fail.what());
  }
  if (b_ShmOk) {
    f_Part("RdySoll", [&] {
      return f_Format("0x%08X  %s", o_Err.ui_RdySoll,
                      f_FlagList(o_Err.ui_RdySoll, o_Names).c_str());
    });
    f_Part("RdyIst", [&] {
      return f_Format("0x%08X  %s", o_Err.ui_RdyIst, f_FlagList(o_Err.ui_RdyIst, o_Names).c_str());
    });
    f_Part("Required, not set",
           [&] { return f_FlagList(o_Err.ui_RdySoll & ~o_Err.ui_RdyIst, o_Names); });
    f_Part("Current error", [&] {
      if (o_Err.i_CurError == 0) return std::string("none");
      return f_Format("%d (code %d, class %d)", o_Err.i_CurError, o_Err.i_CurError >> 3,
                      o_Err.i_CurError & 7);
    });
    f_Part("Smod", [&] { return f_Format("%u", static_cast<unsigned int>(o_Err.uc_Smod)); });
  }

  f_Part("Battery byte", [&] { return f_DriverByte(o_Root, SimPath::BATTERY); });
  f_Part("Sync status", [&] {
    std::string str_Byte = f_DriverByte(o_Root, SimPath::SYNCSTATUS);
    if (str_Byte == "0") return str_Byte + " (synchronised)";
    if (str_Byte == "3") return str_Byte + " (boot loader)";
    return str_Byte;
  });
  f_Part("Driver marker",
         [&] { return std::string(f_Exists(o_Root.f_Path(SimPath::LT_RUNNING)) ? "up" : "down"); });
  f_Part("Temperature", [&] {
    bool b_Found = false;
    std::string str_Reg = f_ReadFileIfAny(o_Root.f_Path(SimPath::TEMP_SENSOR), b_Found);
    if (!b_Found) return std::string("sensor missing");
    if (str_Reg.size() < 2) return std::string("sensor broken (short read)");
    unsigned int ui_Raw =
        (static_cast<unsigned char>(str_Reg[0]) << 8) | static_cast<unsigned char>(str_Reg[1]);
    return f_Format("%.2f C (raw 0x%04X)", f_RawToTemp(ui_Raw), ui_Raw);
  });
  f_Part("TempLimit", [&] { return f_TextFile(o_Root, SimPath::TEMP_LIMIT); });
  f_Part("Cycle", [&] { return f_TextFile(o_Root, SimPath::SYSDIAG_CYCLE); });
  f_Part("Busy (srbmod)", [&] { return f_TextFile(o_Root, SimPath::SYSDIAG_SRBMOD); });
  f_Part("Hardware revision", [&] {
    int i_Rev = o_Root.f_ReadHwRev();
    return i_Rev < 0 ? std::string("GPIO lines missing") : f_Format("%d", i_Rev);
  });
  f_Part("Power-off request", [&] {
    std::string str_Text = f_TextFile(o_Root, SimPath::POWEROFF);
    return str_Text == "empty" ? std::string("none") : "requested (" + str_Text + ")";
  });

  bool b_Found = false;
  std::string str_Log = f_ReadFileIfAny(o_Root.f_Path(SimPath::COMMANDS_LOG), b_Found);
  std::printf("Last commands:%s\n", b_Found ? (str_Log.empty() ? " none" : "") : " log missing");
  for (const std::string& str_Line : f_LastLines(str_Log, UI_SHOW_LOG_LINES)) {
    std::printf("  %s\n", str_Line.c_str());
  }
  return I_EXIT_OK;
}

int f_CmdLog(int i_Argc, char** a_z_c_Argv) {
  SimArgs_CL o_Args("", "Prints the commands the service ran (sim/commands.log).", true);
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(0, 0);
  SimRoot_CL o_Root(o_Args.f_Root());
  std::string str_Log = f_ReadFile(o_Root.f_Path(SimPath::COMMANDS_LOG));
  std::fwrite(str_Log.data(), 1, str_Log.size(), stdout);
  return I_EXIT_OK;
}
