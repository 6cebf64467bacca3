// The board temperature read on the real tool's path: no sandbox root, /dev/i2c-2 is a
// character device and every ioctl, write and read goes to the kernel. Here the kernel is
// a umockdev testbed whose i2c-dev adapter is answered by a scripted sensor, so the binary
// must run under umockdev-wrapper (the test target does that).
#include <gtest/gtest.h>
#include <umockdev.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <linux/i2c-dev.h>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

#include "SystemChecker.h"
#include "sysLib/Holders.h"

namespace {
constexpr const char* A_C_DEV = "/dev/i2c-2";
// The adapter as the kernel shows it: class i2c-dev, character device 89:2. The node has
// content only so that the testbed creates a plain file instead of a pty; the preload
// still reports it as the character device 89:2.
constexpr const char* A_C_ADAPTER =
    "P: /devices/platform/i2c-2/i2c-dev/i2c-2\n"
    "N: i2c-2=0000\n"
    "E: DEVNAME=/dev/i2c-2\n"
    "E: SUBSYSTEM=i2c-dev\n"
    "A: dev=89:2\n";

std::string f_Format(const char* z_c_Fmt, unsigned long ul_Value) {
  char a_c_Buf[64];
  snprintf(a_c_Buf, sizeof(a_c_Buf), z_c_Fmt, ul_Value);
  return a_c_Buf;
}

// How the sensor answers; the defaults are a healthy sensor at 25 °C.
struct SensorScript {
  int i_SlaveErrno = 0;                               // refuse I2C_SLAVE with this errno
  int i_WriteErrno = 0;                               // fail the register write with this errno
  int i_ReadErrno = 0;                                // fail the read with this errno
  std::vector<unsigned char> o_Reply = {0x19, 0x00};  // what a read returns, maybe short
};

// The scripted sensor behind the adapter. The testbed calls the handlers from its own
// worker thread while the test thread is blocked in the system call, hence the lock.
class FakeSensor {
 public:
  void f_Reset(const SensorScript& o_NewScript) {
    std::lock_guard<std::mutex> o_Guard(o_Lock);
    o_Script = o_NewScript;
    o_Trace.clear();
  }
  // What the device saw, in order: "slave 0x49", "write 00", "read 2", "ioctl 0x...".
  std::vector<std::string> f_Trace() {
    std::lock_guard<std::mutex> o_Guard(o_Lock);
    return o_Trace;
  }

  static gboolean f_OnIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* z_o_Client,
                            gpointer z_v_Self) {
    auto* z_o_Self = static_cast<FakeSensor*>(z_v_Self);
    unsigned long ul_Request = umockdev_ioctl_client_get_request(z_o_Client);
    std::lock_guard<std::mutex> o_Guard(z_o_Self->o_Lock);
    if (ul_Request != I2C_SLAVE) {
      z_o_Self->o_Trace.push_back(f_Format("ioctl %#lx", ul_Request));
      umockdev_ioctl_client_complete(z_o_Client, -1, ENOTTY);
      return TRUE;
    }
    // I2C_SLAVE passes the address as the argument value itself, not behind a pointer.
    UMockdevIoctlData* z_o_Arg = umockdev_ioctl_client_get_arg(z_o_Client);
    unsigned long ul_Addr = 0;
    memcpy(&ul_Addr, z_o_Arg->data,
           std::min(sizeof(ul_Addr), static_cast<size_t>(z_o_Arg->data_len)));
    z_o_Self->o_Trace.push_back(f_Format("slave %#lx", ul_Addr));
    int i_Errno = z_o_Self->o_Script.i_SlaveErrno;
    umockdev_ioctl_client_complete(z_o_Client, i_Errno != 0 ? -1 : 0, i_Errno);
    return TRUE;
  }

  static gboolean f_OnWrite(UMockdevIoctlBase*, UMockdevIoctlClient* z_o_Client,
                            gpointer z_v_Self) {
    auto* z_o_Self = static_cast<FakeSensor*>(z_v_Self);
    UMockdevIoctlData* z_o_Buf = umockdev_ioctl_client_get_arg(z_o_Client);
    std::lock_guard<std::mutex> o_Guard(z_o_Self->o_Lock);
    std::string str_Entry = "write";
    for (int i = 0; i < z_o_Buf->data_len; ++i) str_Entry += f_Format(" %02lx", z_o_Buf->data[i]);
    z_o_Self->o_Trace.push_back(str_Entry);
    int i_Errno = z_o_Self->o_Script.i_WriteErrno;
    umockdev_ioctl_client_complete(z_o_Client, i_Errno != 0 ? -1 : z_o_Buf->data_len, i_Errno);
    return TRUE;
  }

  static gboolean f_OnRead(UMockdevIoctlBase*, UMockdevIoctlClient* z_o_Client, gpointer z_v_Self) {
    auto* z_o_Self = static_cast<FakeSensor*>(z_v_Self);
    UMockdevIoctlData* z_o_Buf = umockdev_ioctl_client_get_arg(z_o_Client);
    std::lock_guard<std::mutex> o_Guard(z_o_Self->o_Lock);
    size_t ui_Want = static_cast<size_t>(z_o_Buf->data_len);
    z_o_Self->o_Trace.push_back(f_Format("read %lu", ui_Want));
    const SensorScript& o_S = z_o_Self->o_Script;
    if (o_S.i_ReadErrno != 0) {
      umockdev_ioctl_client_complete(z_o_Client, -1, o_S.i_ReadErrno);
      return TRUE;
    }
    // The buffer is copied back into the caller's memory on completion.
    size_t ui_Count = std::min(ui_Want, o_S.o_Reply.size());
    memcpy(z_o_Buf->data, o_S.o_Reply.data(), ui_Count);
    umockdev_ioctl_client_complete(z_o_Client, static_cast<glong>(ui_Count), 0);
    return TRUE;
  }

 private:
  std::mutex o_Lock;
  SensorScript o_Script;
  std::vector<std::string> o_Trace;
};

const std::vector<std::string> O_FULL_EXCHANGE = {"slave 0x49", "write 00", "read 2"};

class I2cUmockdevTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // The production path: without a sandbox root the device path is used as it stands.
    unsetenv("SYSSRV_ROOT");
    // Copies every log line to stderr, where the test reads it.
    openlog("unit_I2cUmockdev", LOG_PERROR, LOG_USER);
    z_o_Bed = umockdev_testbed_new();
    z_o_Handler = umockdev_ioctl_base_new();
    g_signal_connect(z_o_Handler, "handle-ioctl", G_CALLBACK(FakeSensor::f_OnIoctl), &o_Sensor);
    g_signal_connect(z_o_Handler, "handle-write", G_CALLBACK(FakeSensor::f_OnWrite), &o_Sensor);
    g_signal_connect(z_o_Handler, "handle-read", G_CALLBACK(FakeSensor::f_OnRead), &o_Sensor);
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
    std::string str_Node = GChars_T(umockdev_testbed_get_root_dir(z_o_Bed)).get() + std::string(A_C_DEV);
    int i_Count = 0;
    std::error_code o_Ec;
    for (const auto& o_Entry : std::filesystem::directory_iterator("/proc/self/fd", o_Ec))
      if (std::filesystem::read_symlink(o_Entry.path(), o_Ec) == str_Node) ++i_Count;
    return i_Count;
  }

  // One reading with the log captured: (result, log text).
  std::pair<int, std::string> f_Read(float* z_fl_Temp) {
    testing::internal::CaptureStderr();
    int i_Rc = f_ReadBoardTemperature(z_fl_Temp);
    return {i_Rc, testing::internal::GetCapturedStderr()};
  }

  UMockdevTestbed* z_o_Bed = nullptr;
  UMockdevIoctlBase* z_o_Handler = nullptr;
  bool b_Attached = false;
  FakeSensor o_Sensor;
};

TEST_F(I2cUmockdevTest, ReadsTheSensorMsbFirstAndStopsAtAFailingStep) {
  struct Case {
    const char* z_c_Name;
    SensorScript o_Script;
    float fl_Temp;                     // read on success
    std::vector<std::string> o_Trace;  // the exchange up to and including a failing step
    std::string str_Log;               // "" for a reading that logs nothing
  };
  const std::string str_Check = "f_CheckTemperature - ";
  const Case a_o_Cases[] = {
      // 25.0 would read as 0 °C with the bytes swapped; -0.25 needs the sign of the MSB.
      {"25 degrees", SensorScript{0, 0, 0, {0x19, 0x00}}, 25.0f, O_FULL_EXCHANGE, ""},
      {"below zero", SensorScript{0, 0, 0, {0xFF, 0xC0}}, -0.25f, O_FULL_EXCHANGE, ""},
      // The address is claimed by a kernel driver.
      {"slave busy",
       SensorScript{EBUSY, 0, 0, {0x19, 0x00}},
       0,
       {"slave 0x49"},
       str_Check + "ioctl " + strerror(EBUSY)},
      // The sensor does not acknowledge the register byte.
      {"write nack",
       SensorScript{0, EREMOTEIO, 0, {0x19, 0x00}},
       0,
       {"slave 0x49", "write 00"},
       str_Check + "write " + strerror(EREMOTEIO)},
      {"read error", SensorScript{0, 0, EIO, {0x19, 0x00}}, 0, O_FULL_EXCHANGE,
       str_Check + "read " + strerror(EIO)},
      // Half a register must not pass for a temperature.
      {"short read", SensorScript{0, 0, 0, {0x19}}, 0, O_FULL_EXCHANGE, str_Check + "read "},
  };
  for (const Case& o_C : a_o_Cases) {
    SCOPED_TRACE(o_C.z_c_Name);
    o_Sensor.f_Reset(o_C.o_Script);
    float fl_Temp = -999.0f;
    auto [i_Rc, str_Log] = f_Read(&fl_Temp);
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
