#pragma once
// The simulated tool's file layout: the logical paths the service uses, resolved under a
// sandbox directory, and the building of a complete tool ("init").
#include <string>

namespace SimPath {
constexpr const char* CONFIG_DIR = "/home/tool/config";
constexpr const char* CHANCFG = "/home/tool/config/ChanCfg.json";
constexpr const char* SYSERROR_CFG = "/home/tool/config/log/syserror.json";
constexpr const char* RDYSTATUS_CFG = "/home/tool/config/log/rdystatus.json";
constexpr const char* TEMP_LIMIT = "/home/tool/config/TempLimit";
constexpr const char* OKNOK_CFG = "/home/tool/config/OkNokCntCfg.json";
constexpr const char* JOB_OKNOK_CFG = "/home/tool/config/JobOkNokCntCfg.json";
constexpr const char* RESSRV_CFG = "/home/tool/config/ResSrv.json";
constexpr const char* ERROR_DB_DIR = "/mnt/log";
constexpr const char* CODES = "/etc/codes";
constexpr const char* HOSTNAME = "/etc/hostname";
constexpr const char* BATALERT = "/proc/pwrctrl/batalert";
constexpr const char* POWEROFF = "/proc/pwrctrl/poweroff";
constexpr const char* SYNCSTATUS = "/proc/kiroctrl/syncstatus";
constexpr const char* BATTERY = "/proc/kiroctrl/adcvalues/battery";
constexpr const char* LT_RUNNING = "/var/run/mod_lt_running";
constexpr const char* EEPROM = "/sys/devices/platform/i2c_omap.2/i2c-2/2-0050/eeprom";
constexpr const char* SPINDLE = "/sys/devices/w1 bus master/w1_master_welle";
constexpr const char* GPIO_FMT = "/sys/class/gpio/gpio%d/value";
constexpr const char* TEMP_SENSOR = "/dev/i2c-2";
constexpr const char* ERROR_SHMEM = "/dev/shm/ErrorShMem";
constexpr const char* BMS_SHMEM = "/dev/shm/BmsShMem";
constexpr const char* SYSDIAG_DIR = "/var/sysdiag";
constexpr const char* SYSDIAG_CYCLE = "/var/sysdiag/cycle";
constexpr const char* SYSDIAG_SRBMOD = "/var/sysdiag/srbmod";
constexpr const char* COMMANDS_LOG = "/sim/commands.log";
constexpr const char* DMESG_TEXT = "/sim/dmesg.txt";
}  // namespace SimPath

// The hardware revision is read from three GPIO lines, line 112 the lowest bit.
constexpr int I_GPIO_HWREV_FIRST = 112;
constexpr int I_GPIO_HWREV_COUNT = 3;

class SimRoot_CL {
 public:
  explicit SimRoot_CL(std::string str_Dir) : str_Dir(std::move(str_Dir)) {}
  const std::string& f_Dir() const { return str_Dir; }
  // Host path of a logical path of the tool.
  std::string f_Path(const char* z_c_Logical) const { return str_Dir + z_c_Logical; }
  std::string f_GpioPath(int i_Line) const;

  // Hardware revision from the GPIO lines; -1 when a line cannot be read.
  int f_ReadHwRev() const;
  void f_WriteHwRev(int i_Rev) const;

 private:
  std::string str_Dir;
};
