// "init": builds a complete simulated tool under a directory.
#include <cjson/cJSON.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "Nameplate.h"
#include "SimCommands.h"
#include "SimCommon.h"
#include "SimRoot.h"
#include "SysSrvNames.h"
#include "sysLib/BmsShMem.h"
#include "sysLib/ConfigFile.h"
#include "sysLib/ErrorShMem.h"
#include "sysLib/SysCmd.h"

namespace {

// Configuration files, written formatted the way the tool's own writers leave them.
constexpr const char* Z_C_SYSERROR_JSON =
    R"({"DbFilePath":"/mnt/log/syserrors.sq3","MaxErrors":512})";
// The service's own flags (no active system error, battery) are required; the tool
// process's flag is listed to show a known but not required flag.
std::string f_RdyStatusJson() {
  return f_Format(R"({"flags":[{"nr":1,"state":0,"name":"ToolProc"},)"
                  R"({"nr":%d,"state":1,"name":"SysSrv"},{"nr":%d,"state":1,"name":"Battery"}]})",
                  I_RDY_FLAG_NO_SYS_ERROR, I_RDY_FLAG_BATTERY);
}
constexpr const char* Z_C_COUNTERS_JSON = R"({"CntrSets":[],"BmsSelect":false})";
constexpr const char* Z_C_RESSRV_JSON = R"({"id_code":{"active":0,"del_after_start":false,)"
                                        R"("src":[{"id":0,"show":true,"name":"Scanner"}]}})";
// Every tool material number the service knows, plain and scanner variant.
constexpr const char* Z_C_CODES_JSON =
    R"({"types":[)"
    R"({"MNR":"5521730004","Type":"AKS6"},{"MNR":"5521730005","Type":"AKS12"},)"
    R"({"MNR":"5521730001","Type":"AKS15"},{"MNR":"5521730002","Type":"AKS30"},)"
    R"({"MNR":"5521730003","Type":"AKS50"},{"MNR":"5521730009","Type":"AKS6S"},)"
    R"({"MNR":"5521730010","Type":"AKS12S"},{"MNR":"5521730006","Type":"AKS15S"},)"
    R"({"MNR":"5521730007","Type":"AKS30S"},{"MNR":"5521730008","Type":"AKS50S"}]})";

constexpr unsigned char UC_DEFAULT_BATTERY = 100;     // a full battery
constexpr unsigned int UI_DEFAULT_TEMP_RAW = 0x1900;  // 25 degC

std::string f_PrettyJson(const char* z_c_Compact) {
  CJsonTree_T o_Tree(cJSON_Parse(z_c_Compact));
  CJsonText_T o_Text(o_Tree ? cJSON_Print(o_Tree.get()) : nullptr);
  if (!o_Text) f_RuntimeError("cannot format a configuration file");
  return std::string(o_Text.get()) + "\n";
}

// A fake system command: records its call in sim/commands.log and succeeds, so that the
// service's shell commands (clock, host name, renice over the bus, power-off) leave a
// trace for tests without touching the machine.
std::string f_LoggingScript(const std::string& str_Root, const char* z_c_Name) {
  std::string str_Log = f_ShellQuote(str_Root + SimPath::COMMANDS_LOG);
  return f_Format(
      "#!/bin/sh\n"
      "# Simulated %s of the sandbox tool: logs the call instead of running it.\n"
      "if [ \"$#\" -eq 0 ]; then line='%s'; else line=\"%s $*\"; fi\n"
      "printf '%%s\\n' \"$line\" >> %s\n"
      "exit 0\n",
      z_c_Name, z_c_Name, z_c_Name, str_Log.c_str());
}

// The fake dmesg prints the simulated kernel log. It does not log its calls: the service
// runs it every ten seconds, which would bury the interesting lines of commands.log.
std::string f_DmesgScript(const std::string& str_Root) {
  return f_Format(
      "#!/bin/sh\n"
      "# Simulated dmesg of the sandbox tool: the kernel log is sim/dmesg.txt.\n"
      "cat %s 2>/dev/null\n"
      "exit 0\n",
      f_ShellQuote(str_Root + SimPath::DMESG_TEXT).c_str());
}

// A shared-memory file of the given size, all zero. Rewritten in place so that a mapping
// somebody still holds stays attached to the file.
void f_ZeroSegment(const std::string& str_Path, size_t ui_Size) {
  int i_Fd = open(str_Path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (i_Fd < 0 || ftruncate(i_Fd, static_cast<off_t>(ui_Size)) != 0) {
    int i_Err = errno;
    if (i_Fd >= 0) close(i_Fd);
    f_RuntimeError(f_Format("cannot create %s: %s", str_Path.c_str(), g_strerror(i_Err)));
  }
  close(i_Fd);
  std::string str_Zero(ui_Size, '\0');
  f_WriteInPlace(str_Path, 0, str_Zero.data(), str_Zero.size());
}

}  // namespace

int f_CmdInit(int i_Argc, char** a_z_c_Argv) {
  int i_HwRev = 1;
  gboolean b_DriveMnr = FALSE;
  char* z_c_Nameplate = nullptr;
  GOptionEntry a_o_Entries[] = {
      {"hw-rev", 0, 0, G_OPTION_ARG_INT, &i_HwRev,
       "Hardware revision on GPIO 112..114 (default 1; 0 writes the old supplier format)", "N"},
      {"with-drive-mnr", 0, 0, G_OPTION_ARG_NONE, &b_DriveMnr,
       "Newer nameplate: carries AbtriebMNR, AbtriebCode and GetriebeMNR", nullptr},
      {"nameplate", 0, 0, G_OPTION_ARG_FILENAME, &z_c_Nameplate,
       "Nameplate description whose sections replace the defaults", "FILE"},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  SimArgs_CL o_Args("[DIR]", "Makes DIR a complete simulated tool (created when missing).", true);
  o_Args.f_AddEntries(a_o_Entries);
  o_Args.f_SetDescription(
      "DIR may also come from --root or SYSSRV_ROOT. Running init again on a used tool\n"
      "regenerates every file it makes; the error database and ChanCfg.json stay.");
  GChars_T o_NameplateOwner;
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_NameplateOwner.reset(z_c_Nameplate);
  o_Args.f_ExpectArgs(0, 1);
  if (i_HwRev < 0 || i_HwRev > 7) f_UsageError("--hw-rev must be 0..7");

  std::string str_Dir = o_Args.f_Args().empty() ? o_Args.f_Root(false) : o_Args.f_Args()[0];
  if (str_Dir.empty()) f_UsageError("missing DIR");
  f_MakeDirs(str_Dir);
  char a_c_Real[PATH_MAX];
  if (realpath(str_Dir.c_str(), a_c_Real) == nullptr) {
    f_RuntimeError(f_Format("cannot resolve %s: %s", str_Dir.c_str(), g_strerror(errno)));
  }
  // A tool under / would overwrite the machine's own /etc, /proc and /dev files.
  if (std::string(a_c_Real) == "/") f_UsageError("refusing to make a tool in /");
  SimRoot_CL o_Root(a_c_Real);

  // The nameplate first: a bad description must fail before anything is written.
  NameplateDesc_ST o_Desc =
      f_ParseDescription(f_DefaultDescription(b_DriveMnr, i_HwRev == 0), "default nameplate");
  EepromImage_CL o_Image;
  std::vector<std::string> o_Warnings = o_Image.f_Apply(o_Desc);
  std::string str_Spindle = f_BuildSpindleRecord(o_Desc.o_Spindle);
  if (z_c_Nameplate != nullptr) {
    NameplateDesc_ST o_User = f_ParseDescription(f_ReadFile(z_c_Nameplate), z_c_Nameplate);
    std::vector<std::string> o_More = o_Image.f_Apply(o_User);
    o_Warnings.insert(o_Warnings.end(), o_More.begin(), o_More.end());
    if (o_User.o_Spindle.b_Present) str_Spindle = f_BuildSpindleRecord(o_User.o_Spindle);
  }

  const char* a_z_c_Dirs[] = {"/home/tool/config/log",
                              SimPath::ERROR_DB_DIR,
                              "/etc",
                              "/proc/pwrctrl",
                              "/proc/kiroctrl/adcvalues",
                              "/var/run",
                              "/sys/devices/platform/i2c_omap.2/i2c-2/2-0050",
                              "/sys/devices/w1 bus master",
                              "/dev/shm",
                              SimPath::SYSDIAG_DIR,
                              "/sim",
                              "/sbin",
                              "/bin",
                              "/usr/bin"};
  for (const char* z_c_Dir : a_z_c_Dirs) f_MakeDirs(o_Root.f_Path(z_c_Dir));

  f_WriteFileAtomic(o_Root.f_Path(SimPath::SYSERROR_CFG), f_PrettyJson(Z_C_SYSERROR_JSON));
  f_WriteFileAtomic(o_Root.f_Path(SimPath::RDYSTATUS_CFG), f_PrettyJson(f_RdyStatusJson().c_str()));
  f_WriteFileAtomic(o_Root.f_Path(SimPath::TEMP_LIMIT), "75\n");
  f_WriteFileAtomic(o_Root.f_Path(SimPath::OKNOK_CFG), f_PrettyJson(Z_C_COUNTERS_JSON));
  f_WriteFileAtomic(o_Root.f_Path(SimPath::JOB_OKNOK_CFG), f_PrettyJson(Z_C_COUNTERS_JSON));
  f_WriteFileAtomic(o_Root.f_Path(SimPath::RESSRV_CFG), f_PrettyJson(Z_C_RESSRV_JSON));
  f_WriteFileAtomic(o_Root.f_Path(SimPath::CODES), f_PrettyJson(Z_C_CODES_JSON));
  f_WriteFileAtomic(o_Root.f_Path(SimPath::HOSTNAME), "Kiro\n");

  f_WriteFileAtomic(o_Root.f_Path(SimPath::BATALERT), "");
  f_WriteFileAtomic(o_Root.f_Path(SimPath::POWEROFF), "");
  f_WriteFileAtomic(o_Root.f_Path(SimPath::SYNCSTATUS), std::string(1, '\0'));
  f_WriteFileAtomic(o_Root.f_Path(SimPath::BATTERY),
                    std::string(1, static_cast<char>(UC_DEFAULT_BATTERY)));
  f_WriteFileAtomic(o_Root.f_Path(SimPath::LT_RUNNING), "");

  o_Image.f_Save(o_Root.f_Path(SimPath::EEPROM));
  f_WriteFileAtomic(o_Root.f_Path(SimPath::SPINDLE), str_Spindle);
  o_Root.f_WriteHwRev(i_HwRev);
  const char a_c_Temp[2] = {static_cast<char>(UI_DEFAULT_TEMP_RAW >> 8),
                            static_cast<char>(UI_DEFAULT_TEMP_RAW & 0xFF)};
  f_WriteFileAtomic(o_Root.f_Path(SimPath::TEMP_SENSOR), std::string(a_c_Temp, 2));

  // The service sets both segments up itself (the BMS mutex, RdySoll); zeros are what a
  // freshly booted tool holds.
  f_ZeroSegment(o_Root.f_Path(SimPath::ERROR_SHMEM), UI_ERROR_SHMEM_SIZE);
  f_ZeroSegment(o_Root.f_Path(SimPath::BMS_SHMEM), UI_BMS_SHMEM_SIZE);

  f_WriteFileAtomic(o_Root.f_Path(SimPath::SYSDIAG_CYCLE), "100");
  f_WriteFileAtomic(o_Root.f_Path(SimPath::SYSDIAG_SRBMOD), "0");
  f_WriteFileAtomic(o_Root.f_Path(SimPath::COMMANDS_LOG), "");
  f_WriteFileAtomic(o_Root.f_Path(SimPath::DMESG_TEXT), "");

  for (const char* z_c_Bin : {"/sbin/", "/bin/"}) {
    std::string str_BinDir = o_Root.f_Dir() + z_c_Bin;
    f_WriteFileAtomic(str_BinDir + "dmesg", f_DmesgScript(o_Root.f_Dir()), 0755);
    for (const char* z_c_Name : {"hwclock", "hostname", "dbus-send", "poweroff"}) {
      f_WriteFileAtomic(str_BinDir + z_c_Name, f_LoggingScript(o_Root.f_Dir(), z_c_Name), 0755);
    }
  }

  for (const std::string& str_Warning : o_Warnings) {
    std::fprintf(stderr, "syssrv-sim init: warning: %s\n", str_Warning.c_str());
  }
  std::printf("simulated tool ready in %s\n", o_Root.f_Dir().c_str());
  return I_EXIT_OK;
}
