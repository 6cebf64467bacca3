// The board temperature on the real tool's path (no sandbox root): /dev/i2c-2 is answered by a
// scripted sensor in a umockdev testbed. The conversion itself is held by CheckRules.
#include <gtest/gtest.h>
#include <umockdev.h>

#include <linux/i2c-dev.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "SystemChecker.h"
#include "sysLib/Holders.h"

namespace {
constexpr const char* A_C_DEV = "/dev/i2c-2";
// Content makes the testbed create a plain file, not a pty; the preload still reports 89:2.
constexpr const char* A_C_ADAPTER =
    "P: /devices/platform/i2c-2/i2c-dev/i2c-2\nN: i2c-2=0000\nE: DEVNAME=/dev/i2c-2\n"
    "E: SUBSYSTEM=i2c-dev\nA: dev=89:2\n";

enum Step_EN { E_NONE, E_IOCTL, E_WRITE, E_READ };

// The step that fails with i_Errno, what a read returns, the log line left ("": success).
struct SensorScript_ST {
  Step_EN e_FailAt;
  int i_Errno;
  std::vector<unsigned char> o_Reply;
  std::string str_Log;
};

// The sensor, at 0x49 and register 0 only, called from the testbed's own worker thread.
class I2cUmockdevTest : public ::testing::Test {
 protected:
  template <Step_EN e_Step>
  static gboolean f_On(UMockdevIoctlBase*, UMockdevIoctlClient* z_o_Client, gpointer z_v_Self) {
    auto* z_o_Self = static_cast<I2cUmockdevTest*>(z_v_Self);
    std::lock_guard<std::mutex> o_Guard(z_o_Self->o_Lock);
    const SensorScript_ST& o_S = z_o_Self->o_Script;
    UMockdevIoctlData* z_o_Arg = umockdev_ioctl_client_get_arg(z_o_Client);
    glong l_Done = z_o_Arg->data_len;
    int i_Errno = o_S.e_FailAt == e_Step ? o_S.i_Errno : 0;
    if constexpr (e_Step == E_IOCTL) {
      // I2C_SLAVE passes the address as the argument value itself, not behind a pointer.
      unsigned long ul_Addr = 0;
      memcpy(&ul_Addr, z_o_Arg->data, std::min(sizeof(ul_Addr), static_cast<size_t>(l_Done)));
      if (umockdev_ioctl_client_get_request(z_o_Client) != I2C_SLAVE || ul_Addr != 0x49)
        i_Errno = ENXIO;
      l_Done = 0;
    } else if constexpr (e_Step == E_WRITE) {
      z_o_Self->str_Register.assign(reinterpret_cast<const char*>(z_o_Arg->data), l_Done);
    } else {
      if (z_o_Self->str_Register != std::string(1, '\0')) i_Errno = EIO;
      // The buffer is copied back into the caller's memory on completion.
      l_Done = std::min(l_Done, static_cast<glong>(o_S.o_Reply.size()));
      if (i_Errno == 0) memcpy(z_o_Arg->data, o_S.o_Reply.data(), static_cast<size_t>(l_Done));
    }
    umockdev_ioctl_client_complete(z_o_Client, i_Errno != 0 ? -1 : l_Done, i_Errno);
    return TRUE;
  }

  void SetUp() override {
    unsetenv("SYSSRV_ROOT");  // the production path: the device path as it stands
    openlog("unit_I2cUmockdev", LOG_PERROR, LOG_USER);  // log lines to stderr for the test
    z_o_Bed = umockdev_testbed_new();
    z_o_Handler = umockdev_ioctl_base_new();
    g_signal_connect(z_o_Handler, "handle-ioctl", G_CALLBACK(f_On<E_IOCTL>), this);
    g_signal_connect(z_o_Handler, "handle-write", G_CALLBACK(f_On<E_WRITE>), this);
    g_signal_connect(z_o_Handler, "handle-read", G_CALLBACK(f_On<E_READ>), this);
    GErrorHolder_CL o_Err;
    ASSERT_TRUE(umockdev_testbed_add_from_string(z_o_Bed, A_C_ADAPTER, o_Err.f_Out()))
        << o_Err.f_Message();
    ASSERT_TRUE(umockdev_testbed_attach_ioctl(z_o_Bed, A_C_DEV, z_o_Handler, o_Err.f_Out()))
        << o_Err.f_Message();
    // Guards against reaching a real adapter (or none) when the preload is missing.
    struct stat o_St;
    ASSERT_EQ(stat(A_C_DEV, &o_St), 0) << "not running under umockdev-wrapper?";
    ASSERT_EQ(o_St.st_rdev, makedev(89, 2));
  }

  void TearDown() override {
    umockdev_testbed_detach_ioctl(z_o_Bed, A_C_DEV, nullptr);
    g_object_unref(z_o_Handler);
    g_object_unref(z_o_Bed);
    closelog();
  }

  // File descriptors of this process still open on the emulated adapter node.
  int f_OpenAdapterFds() {
    std::string str_Node =
        GChars_T(umockdev_testbed_get_root_dir(z_o_Bed)).get() + std::string(A_C_DEV);
    namespace fs = std::filesystem;
    std::error_code o_Ec;
    return std::count_if(
        fs::directory_iterator("/proc/self/fd", o_Ec), fs::directory_iterator(),
        [&](const auto& o_Fd) { return fs::read_symlink(o_Fd, o_Ec) == str_Node; });
  }

  UMockdevTestbed* z_o_Bed = nullptr;
  UMockdevIoctlBase* z_o_Handler = nullptr;
  std::mutex o_Lock;
  SensorScript_ST o_Script;
  std::string str_Register;  // the bytes last written: the register pointer
};

TEST_F(I2cUmockdevTest, ReadsTheSensorMsbFirstAndStopsAtAFailingStep) {
  const std::string str_Check = "f_CheckTemperature - ";
  const SensorScript_ST a_o_Cases[] = {
      // 25.25 °C; with the bytes swapped it would read as 64.1 °C.
      {E_NONE, 0, {0x19, 0x40}, ""},
      // The address is claimed by a kernel driver; the sensor does not acknowledge.
      {E_IOCTL, EBUSY, {}, str_Check + "ioctl " + strerror(EBUSY)},
      {E_WRITE, EREMOTEIO, {}, str_Check + "write " + strerror(EREMOTEIO)},
      // Half a register must not pass for a temperature.
      {E_NONE, 0, {0x19}, str_Check + "read "},
  };
  for (const SensorScript_ST& o_C : a_o_Cases) {
    SCOPED_TRACE(o_C.str_Log);
    {
      std::lock_guard<std::mutex> o_Guard(o_Lock);
      o_Script = o_C;
      str_Register.clear();
    }
    float fl_Temp = -999.0f;
    testing::internal::CaptureStderr();
    int i_Rc = f_ReadBoardTemperature(&fl_Temp);
    std::string str_Log = testing::internal::GetCapturedStderr();
    const bool b_Ok = o_C.str_Log.empty();
    EXPECT_EQ(i_Rc, b_Ok ? 0 : -1) << str_Log;
    EXPECT_FLOAT_EQ(fl_Temp, b_Ok ? 25.25f : -999.0f);  // a failed reading leaves it alone
    EXPECT_TRUE(b_Ok ? str_Log.empty() : str_Log.find(o_C.str_Log) != std::string::npos) << str_Log;
    // Read every tick: a descriptor left open per reading would exhaust the daemon.
    EXPECT_EQ(f_OpenAdapterFds(), 0);
  }
}
}  // namespace
