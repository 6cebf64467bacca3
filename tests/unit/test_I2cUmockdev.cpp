// The board temperature read on the real tool's path: no sandbox root, /dev/i2c-2 is a
// character device and every ioctl, write and read goes to the kernel, here a umockdev
// testbed whose i2c-dev adapter is answered by a scripted sensor (the test target runs
// this binary under umockdev-wrapper).
#include <gtest/gtest.h>
#include <umockdev.h>

#include <linux/i2c-dev.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
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
// The adapter as the kernel shows it. The node has content only so that the testbed makes
// a plain file instead of a pty; the preload still reports the character device 89:2.
constexpr const char* A_C_ADAPTER =
    "P: /devices/platform/i2c-2/i2c-dev/i2c-2\nN: i2c-2=0000\nE: DEVNAME=/dev/i2c-2\n"
    "E: SUBSYSTEM=i2c-dev\nA: dev=89:2\n";

std::string f_Format(const char* z_c_Fmt, unsigned long ul_Value) {
  char a_c_Buf[64];
  snprintf(a_c_Buf, sizeof(a_c_Buf), z_c_Fmt, ul_Value);
  return a_c_Buf;
}

// How the sensor answers: an errno per step (0: the step succeeds) and what a read returns.
struct SensorScript_ST {
  int i_SlaveErrno;
  int i_WriteErrno;
  int i_ReadErrno;
  std::vector<unsigned char> o_Reply;
};

// The scripted sensor behind the adapter. The testbed calls it from its own worker thread
// while the test thread is blocked in the system call, hence the lock.
class FakeSensor_CL {
 public:
  enum Call_EN { E_IOCTL, E_WRITE, E_READ };

  void f_Reset(const SensorScript_ST& o_NewScript) {
    std::lock_guard<std::mutex> o_Guard(o_Lock);
    o_Script = o_NewScript;
    o_Trace.clear();
  }
  // What the device saw, in order: "slave 0x49", "write 00", "read 2", "ioctl 0x...".
  std::vector<std::string> f_Trace() {
    std::lock_guard<std::mutex> o_Guard(o_Lock);
    return o_Trace;
  }

  template <Call_EN e_Call>
  static gboolean f_On(UMockdevIoctlBase*, UMockdevIoctlClient* z_o_Client, gpointer z_v_Self) {
    auto* z_o_Self = static_cast<FakeSensor_CL*>(z_v_Self);
    std::lock_guard<std::mutex> o_Guard(z_o_Self->o_Lock);
    const SensorScript_ST& o_S = z_o_Self->o_Script;
    std::string str_Entry;
    int i_Errno = ENOTTY;
    glong l_Done = 0;
    if constexpr (e_Call == E_IOCTL) {
      unsigned long ul_Request = umockdev_ioctl_client_get_request(z_o_Client);
      str_Entry = f_Format("ioctl %#lx", ul_Request);
      if (ul_Request == I2C_SLAVE) {
        // I2C_SLAVE passes the address as the argument value itself, not behind a pointer.
        UMockdevIoctlData* z_o_Arg = umockdev_ioctl_client_get_arg(z_o_Client);
        unsigned long ul_Addr = 0;
        memcpy(&ul_Addr, z_o_Arg->data,
               std::min(sizeof(ul_Addr), static_cast<size_t>(z_o_Arg->data_len)));
        str_Entry = f_Format("slave %#lx", ul_Addr);
        i_Errno = o_S.i_SlaveErrno;
      }
    } else {
      UMockdevIoctlData* z_o_Buf = umockdev_ioctl_client_get_arg(z_o_Client);
      l_Done = z_o_Buf->data_len;
      if constexpr (e_Call == E_WRITE) {
        str_Entry = "write";
        for (glong i = 0; i < l_Done; ++i) str_Entry += f_Format(" %02lx", z_o_Buf->data[i]);
        i_Errno = o_S.i_WriteErrno;
      } else {
        str_Entry = f_Format("read %lu", static_cast<unsigned long>(l_Done));
        i_Errno = o_S.i_ReadErrno;
        // The buffer is copied back into the caller's memory on completion.
        l_Done = std::min(static_cast<size_t>(l_Done), o_S.o_Reply.size());
        if (i_Errno == 0) memcpy(z_o_Buf->data, o_S.o_Reply.data(), static_cast<size_t>(l_Done));
      }
    }
    z_o_Self->o_Trace.push_back(str_Entry);
    umockdev_ioctl_client_complete(z_o_Client, i_Errno != 0 ? -1 : l_Done, i_Errno);
    return TRUE;
  }

 private:
  std::mutex o_Lock;
  SensorScript_ST o_Script;
  std::vector<std::string> o_Trace;
};

class I2cUmockdevTest : public ::testing::Test {
 protected:
  void SetUp() override {
    unsetenv("SYSSRV_ROOT");  // the production path: the device path as it stands
    openlog("unit_I2cUmockdev", LOG_PERROR, LOG_USER);  // log lines to stderr for the test
    z_o_Bed = umockdev_testbed_new();
    z_o_Handler = umockdev_ioctl_base_new();
    using S = FakeSensor_CL;
    g_signal_connect(z_o_Handler, "handle-ioctl", G_CALLBACK(S::f_On<S::E_IOCTL>), &o_Sensor);
    g_signal_connect(z_o_Handler, "handle-write", G_CALLBACK(S::f_On<S::E_WRITE>), &o_Sensor);
    g_signal_connect(z_o_Handler, "handle-read", G_CALLBACK(S::f_On<S::E_READ>), &o_Sensor);
    GErrorHolder_CL o_Err;
    ASSERT_TRUE(umockdev_testbed_add_from_string(z_o_Bed, A_C_ADAPTER, o_Err.f_Out()))
        << o_Err.f_Message();
    ASSERT_TRUE(umockdev_testbed_attach_ioctl(z_o_Bed, A_C_DEV, z_o_Handler, o_Err.f_Out()))
        << o_Err.f_Message();
    b_Attached = true;
    // Guards against reaching a real adapter (or none) when the preload is missing.
    struct stat o_St;
    ASSERT_EQ(stat(A_C_DEV, &o_St), 0) << "not running under umockdev-wrapper?";
    ASSERT_TRUE(S_ISCHR(o_St.st_mode));
    ASSERT_EQ(o_St.st_rdev, makedev(89, 2));
  }

  void TearDown() override {
    if (b_Attached) umockdev_testbed_detach_ioctl(z_o_Bed, A_C_DEV, nullptr);
    g_object_unref(z_o_Handler);
    g_object_unref(z_o_Bed);
    closelog();
  }

  // File descriptors of this process still open on the emulated adapter node.
  int f_OpenAdapterFds() {
    std::string str_Node =
        GChars_T(umockdev_testbed_get_root_dir(z_o_Bed)).get() + std::string(A_C_DEV);
    int i_Count = 0;
    std::error_code o_Ec;
    for (const auto& o_Entry : std::filesystem::directory_iterator("/proc/self/fd", o_Ec))
      if (std::filesystem::read_symlink(o_Entry.path(), o_Ec) == str_Node) ++i_Count;
    return i_Count;
  }

  UMockdevTestbed* z_o_Bed = nullptr;
  UMockdevIoctlBase* z_o_Handler = nullptr;
  bool b_Attached = false;
  FakeSensor_CL o_Sensor;
};

TEST_F(I2cUmockdevTest, ReadsTheSensorMsbFirstAndStopsAtAFailingStep) {
  struct Case_ST {
    const char* z_c_Name;
    SensorScript_ST o_Script;
    float fl_Temp;                     // read on success
    std::vector<std::string> o_Trace;  // the exchange up to and including a failing step
    std::string str_Log;               // "" for a reading that logs nothing
  };
  const std::vector<std::string> o_Full = {"slave 0x49", "write 00", "read 2"};
  const std::string str_Check = "f_CheckTemperature - ";
  const Case_ST a_o_Cases[] = {
      // 25.0 would read as 0 °C with the bytes swapped; -0.25 needs the sign of the MSB.
      {"25 degrees", {0, 0, 0, {0x19, 0x00}}, 25.0f, o_Full, ""},
      {"below zero", {0, 0, 0, {0xFF, 0xC0}}, -0.25f, o_Full, ""},
      // The address is claimed by a kernel driver; the sensor does not acknowledge.
      {"slave busy", {EBUSY, 0, 0, {}}, 0, {"slave 0x49"}, str_Check + "ioctl " + strerror(EBUSY)},
      {"write nack",
       {0, EREMOTEIO, 0, {}},
       0,
       {"slave 0x49", "write 00"},
       str_Check + "write " + strerror(EREMOTEIO)},
      {"read error", {0, 0, EIO, {}}, 0, o_Full, str_Check + "read " + strerror(EIO)},
      // Half a register must not pass for a temperature.
      {"short read", {0, 0, 0, {0x19}}, 0, o_Full, str_Check + "read "},
  };
  for (const Case_ST& o_C : a_o_Cases) {
    SCOPED_TRACE(o_C.z_c_Name);
    o_Sensor.f_Reset(o_C.o_Script);
    float fl_Temp = -999.0f;
    testing::internal::CaptureStderr();
    int i_Rc = f_ReadBoardTemperature(&fl_Temp);
    std::string str_Log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(i_Rc, o_C.str_Log.empty() ? 0 : -1) << str_Log;
    EXPECT_EQ(o_Sensor.f_Trace(), o_C.o_Trace);
    if (o_C.str_Log.empty()) {
      EXPECT_FLOAT_EQ(fl_Temp, o_C.fl_Temp);
      EXPECT_EQ(str_Log, "");
    } else {
      EXPECT_NE(str_Log.find(o_C.str_Log), std::string::npos) << str_Log;
    }
    // Read every tick: a descriptor left open per reading would exhaust the daemon.
    EXPECT_EQ(f_OpenAdapterFds(), 0);
  }
}
}  // namespace
