// Subcommands that set the tool's inputs while the service runs: driver bytes, the
// temperature sensor, the diagnostic store, the kernel log, the mode byte and the
// hardware revision lines.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "SimCommands.h"
#include "SimCommon.h"
#include "SimRoot.h"
#include "SimShMem.h"

namespace {

// Writes a file of the tool, creating its directory inside the root when a test removed it.
void f_WriteToolFile(const SimRoot_CL& o_Root, const char* z_c_Logical,
                     const std::string& str_Data) {
  std::string str_Path = o_Root.f_Path(z_c_Logical);
  f_MakeDirs(str_Path.substr(0, str_Path.rfind('/')));
  f_WriteFileAtomic(str_Path, str_Data);
}

// The motor-unit driver's one-byte files: a value, or the file missing or empty to see
// how the service copes with a driver that is not there or has nothing to say.
int f_DriverByteCmd(int i_Argc, char** a_z_c_Argv, const char* z_c_Logical, const char* z_c_Param,
                    const char* z_c_Summary) {
  gboolean b_Remove = FALSE;
  gboolean b_Empty = FALSE;
  GOptionEntry a_o_Entries[] = {
      {"remove", 0, 0, G_OPTION_ARG_NONE, &b_Remove, "Remove the file", nullptr},
      {"empty", 0, 0, G_OPTION_ARG_NONE, &b_Empty, "Leave the file empty (reads hit end of file)",
       nullptr},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  SimArgs_CL o_Args(z_c_Param, z_c_Summary, true);
  o_Args.f_AddEntries(a_o_Entries);
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  int i_Modes = (b_Remove ? 1 : 0) + (b_Empty ? 1 : 0) + (o_Args.f_Args().empty() ? 0 : 1);
  if (i_Modes != 1) f_UsageError(f_Format("give %s, --remove or --empty", z_c_Param));
  o_Args.f_ExpectArgs(0, 1);
  SimRoot_CL o_Root(o_Args.f_Root());
  if (b_Remove) {
    f_RemoveFile(o_Root.f_Path(z_c_Logical));
  } else if (b_Empty) {
    f_WriteToolFile(o_Root, z_c_Logical, "");
  } else {
    int i_Byte = static_cast<int>(f_ParseLong(o_Args.f_Args()[0], 0, 255, z_c_Param));
    f_WriteToolFile(o_Root, z_c_Logical, std::string(1, static_cast<char>(i_Byte)));
  }
  return I_EXIT_OK;
}

// The command line of a subcommand whose one argument is a whole number: the number, and
// the tool root in str_Root.
long long f_OneNumber(int i_Argc, char** a_z_c_Argv, const char* z_c_Param, long long ll_Min,
                      long long ll_Max, const char* z_c_Summary, std::string& str_Root) {
  SimArgs_CL o_Args(z_c_Param, z_c_Summary, true);
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(1, 1);
  long long ll_Value = f_ParseLong(o_Args.f_Args()[0], ll_Min, ll_Max, z_c_Param);
  str_Root = o_Args.f_Root();
  return ll_Value;
}

// A subcommand with one whole-number argument written as text into one file.
int f_NumberFileCmd(int i_Argc, char** a_z_c_Argv, const char* z_c_Logical, const char* z_c_Param,
                    long long ll_Min, long long ll_Max, const char* z_c_Summary) {
  std::string str_Root;
  long long ll_Value =
      f_OneNumber(i_Argc, a_z_c_Argv, z_c_Param, ll_Min, ll_Max, z_c_Summary, str_Root);
  SimRoot_CL o_Root(str_Root);
  f_WriteToolFile(o_Root, z_c_Logical, f_Format("%lld", ll_Value));
  return I_EXIT_OK;
}

}  // namespace

unsigned int f_TempToRaw(double d_Celsius) {
  // 10 bits of 0.25 degC, two's complement: -128.0 .. +127.75.
  if (!(d_Celsius >= -128.0 && d_Celsius <= 127.75)) {
    f_UsageError(f_Format("CELSIUS must be -128..127.75, got %g", d_Celsius));
  }
  long l_Steps = std::lround(d_Celsius * 4.0);
  return static_cast<unsigned int>(l_Steps * 64) & 0xFFFFU;
}

double f_RawToTemp(unsigned int ui_Raw) {
  int i_Signed = static_cast<int16_t>(static_cast<uint16_t>(ui_Raw));
  return (i_Signed / 64) * 0.25;
}

int f_CmdBattery(int i_Argc, char** a_z_c_Argv) {
  return f_DriverByteCmd(i_Argc, a_z_c_Argv, SimPath::BATTERY, "RAW",
                         "Sets the raw battery byte (0..255; 100 = full, below 10 = empty).");
}

int f_CmdSync(int i_Argc, char** a_z_c_Argv) {
  return f_DriverByteCmd(i_Argc, a_z_c_Argv, SimPath::SYNCSTATUS, "BYTE",
                         "Sets the driver's sync status byte (0 synchronised, 3 boot loader, "
                         "anything else: not synchronised).");
}

int f_CmdLt(int i_Argc, char** a_z_c_Argv) {
  SimArgs_CL o_Args("up|down", "Creates (up) or removes (down) the marker of a running driver.",
                    true);
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(1, 1);
  const std::string& str_State = o_Args.f_Args()[0];
  if (str_State != "up" && str_State != "down") f_UsageError("give up or down");
  SimRoot_CL o_Root(o_Args.f_Root());
  if (str_State == "up") {
    f_WriteToolFile(o_Root, SimPath::LT_RUNNING, "");
  } else {
    f_RemoveFile(o_Root.f_Path(SimPath::LT_RUNNING));
  }
  return I_EXIT_OK;
}

int f_CmdTemp(int i_Argc, char** a_z_c_Argv) {
  char* z_c_Raw = nullptr;
  gboolean b_Missing = FALSE;
  gboolean b_Broken = FALSE;
  GOptionEntry a_o_Entries[] = {
      {"raw", 0, 0, G_OPTION_ARG_STRING, &z_c_Raw, "Write this register value (e.g. 0xFFC0)",
       "VALUE"},
      {"missing", 0, 0, G_OPTION_ARG_NONE, &b_Missing, "Remove the sensor device", nullptr},
      {"broken", 0, 0, G_OPTION_ARG_NONE, &b_Broken, "Sensor answers with a single byte", nullptr},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  SimArgs_CL o_Args("CELSIUS", "Sets the board temperature sensor (0.25 degC steps).", true);
  o_Args.f_AddEntries(a_o_Entries);
  o_Args.f_SetDescription("Examples: temp 61, temp -- -5, temp --raw 0xFFC0, temp --missing");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  GChars_T o_RawOwner(z_c_Raw);
  int i_Modes = (z_c_Raw != nullptr ? 1 : 0) + (b_Missing ? 1 : 0) + (b_Broken ? 1 : 0) +
                (o_Args.f_Args().empty() ? 0 : 1);
  if (i_Modes != 1) f_UsageError("give CELSIUS, --raw, --missing or --broken");
  o_Args.f_ExpectArgs(0, 1);
  SimRoot_CL o_Root(o_Args.f_Root());
  if (b_Missing) {
    f_RemoveFile(o_Root.f_Path(SimPath::TEMP_SENSOR));
    return I_EXIT_OK;
  }
  if (b_Broken) {
    f_WriteToolFile(o_Root, SimPath::TEMP_SENSOR, std::string(1, '\0'));
    return I_EXIT_OK;
  }
  unsigned int ui_Raw =
      z_c_Raw != nullptr
          ? static_cast<unsigned int>(f_ParseLong(z_c_Raw, 0, 0xFFFF, "VALUE"))
          : f_TempToRaw(f_ParseDouble(o_Args.f_Args()[0], -1000.0, 1000.0, "CELSIUS"));
  // Register 0 of the sensor, big-endian, as the service reads it at offset 0.
  const char a_c_Reg[2] = {static_cast<char>(ui_Raw >> 8), static_cast<char>(ui_Raw & 0xFF)};
  f_WriteToolFile(o_Root, SimPath::TEMP_SENSOR, std::string(a_c_Reg, 2));
  return I_EXIT_OK;
}

int f_CmdTempLimit(int i_Argc, char** a_z_c_Argv) {
  gboolean b_Remove = FALSE;
  GOptionEntry a_o_Entries[] = {{"remove", 0, 0, G_OPTION_ARG_NONE, &b_Remove,
                                 "Remove the file (the limit falls back to 75)", nullptr},
                                {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  SimArgs_CL o_Args("N", "Sets the board temperature limit in degC (TempLimit).", true);
  o_Args.f_AddEntries(a_o_Entries);
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  if ((b_Remove ? 1 : 0) + (o_Args.f_Args().empty() ? 0 : 1) != 1)
    f_UsageError("give N or --remove");
  o_Args.f_ExpectArgs(0, 1);
  SimRoot_CL o_Root(o_Args.f_Root());
  if (b_Remove) {
    f_RemoveFile(o_Root.f_Path(SimPath::TEMP_LIMIT));
  } else {
    long long ll_Limit = f_ParseLong(o_Args.f_Args()[0], 0, 4294967295LL, "N");
    f_WriteToolFile(o_Root, SimPath::TEMP_LIMIT, f_Format("%lld\n", ll_Limit));
  }
  return I_EXIT_OK;
}

int f_CmdCycle(int i_Argc, char** a_z_c_Argv) {
  return f_NumberFileCmd(i_Argc, a_z_c_Argv, SimPath::SYSDIAG_CYCLE, "N", 0, 4294967295LL,
                         "Sets the tool's tightening-cycle count in the diagnostic store.");
}

int f_CmdBusy(int i_Argc, char** a_z_c_Argv) {
  return f_NumberFileCmd(i_Argc, a_z_c_Argv, SimPath::SYSDIAG_SRBMOD, "0|1", 0, 1,
                         "Sets the diagnostic store's busy mode (srbmod).");
}

int f_CmdSmod(int i_Argc, char** a_z_c_Argv) {
  std::string str_Root;
  long long ll_Smod = f_OneNumber(i_Argc, a_z_c_Argv, "BYTE", 0, 255,
                                  "Sets the mode byte of the error segment (1 skips the "
                                  "temperature check; any other value does not).",
                                  str_Root);
  SimRoot_CL o_Root(str_Root);
  f_WriteSmod(o_Root, static_cast<uint8_t>(ll_Smod));
  return I_EXIT_OK;
}

int f_CmdDmesg(int i_Argc, char** a_z_c_Argv) {
  gboolean b_Clear = FALSE;
  GOptionEntry a_o_Entries[] = {
      {"clear", 0, 0, G_OPTION_ARG_NONE, &b_Clear, "Empty the kernel log", nullptr},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  SimArgs_CL o_Args("TEXT...", "Appends a line to the simulated kernel log.", true);
  o_Args.f_AddEntries(a_o_Entries);
  o_Args.f_SetDescription("Example: dmesg 'UBIFS error (ubi0:0 pid 1): corrupt node'");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  if (b_Clear == !o_Args.f_Args().empty()) f_UsageError("give TEXT or --clear");
  SimRoot_CL o_Root(o_Args.f_Root());
  if (b_Clear) {
    f_WriteToolFile(o_Root, SimPath::DMESG_TEXT, "");
    return I_EXIT_OK;
  }
  std::string str_Line;
  for (const std::string& str_Word : o_Args.f_Args()) {
    if (!str_Line.empty()) str_Line += ' ';
    str_Line += str_Word;
  }
  if (str_Line.find('\n') != std::string::npos) f_UsageError("TEXT is one line");
  f_AppendLine(o_Root.f_Path(SimPath::DMESG_TEXT), str_Line);
  return I_EXIT_OK;
}

int f_CmdHwRev(int i_Argc, char** a_z_c_Argv) {
  std::string str_Root;
  long long ll_Rev = f_OneNumber(i_Argc, a_z_c_Argv, "N", 0, 7,
                                 "Sets the hardware revision lines GPIO 112..114 (0..7). The "
                                 "supplier nameplate is left as it is.",
                                 str_Root);
  SimRoot_CL o_Root(str_Root);
  o_Root.f_WriteHwRev(static_cast<int>(ll_Rev));
  return I_EXIT_OK;
}
