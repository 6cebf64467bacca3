// BMS digital I/O over the shared segment, and the process's error object.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "TestSupport.h"
#include "sysLib/Bms.h"
#include "sysLib/Error.h"
#include "sysLib/ErrorShMem.h"
#include "sysLib/PThreadMutex.h"

namespace {
// A segment as another process sees it: the raw file under the root.
template <typename T>
T f_ReadSeg(const TempRoot& o_Root, const char* z_c_File) {
  std::string str_Raw = o_Root.f_Read(z_c_File);
  T o_Seg{};
  EXPECT_GE(str_Raw.size(), sizeof(T));
  std::memcpy(&o_Seg, str_Raw.data(), std::min(str_Raw.size(), sizeof(T)));
  return o_Seg;
}

// Runs f_Body in a child process; true when it exited with status 0.
bool f_InChild(int (*f_Body)()) {
  pid_t i_Pid = fork();
  if (i_Pid == 0) _exit(f_Body());
  int i_Status = -1;
  waitpid(i_Pid, &i_Status, 0);
  return WIFEXITED(i_Status) && WEXITSTATUS(i_Status) == 0;
}
}  // namespace

TEST(Bms, ZeroFilledSegmentGetsMutexAndKeepsItsWords) {
  TempRoot o_Root;
  // What a simulator writes before the service starts: words set, no marker, no mutex.
  std::string str_Raw(UI_BMS_SHMEM_SIZE, '\0');
  uint32_t a_ui_Words[2] = {(1u << 17) | 1u, (1u << 5)};
  std::memcpy(&str_Raw[0], a_ui_Words, sizeof(a_ui_Words));
  o_Root.f_Write("/dev/shm/BmsShMem", str_Raw);

  Bms_CL o_Bms;
  EXPECT_TRUE(o_Bms.f_In(17) && o_Bms.f_In(0) && o_Bms.f_GetOut(5));
  EXPECT_FALSE(o_Bms.f_In(1) || o_Bms.f_In(32) || o_Bms.f_In(-1));
  auto o_Seg = f_ReadSeg<BmsShMem_ST>(o_Root, "/dev/shm/BmsShMem");
  EXPECT_EQ(o_Seg.ui_InitMarker, UI_BMS_INIT_MARKER);
  EXPECT_EQ(o_Seg.ui_Inputs, a_ui_Words[0]);
  EXPECT_EQ(o_Seg.ui_Outputs, a_ui_Words[1]);
}

TEST(Bms, OutputsChangeUnderTheLockAndFlagTheUpdate) {
  TempRoot o_Root;
  Bms_CL o_Bms;
  EXPECT_EQ(o_Bms.f_Out(18, true), 0);
  EXPECT_EQ(o_Bms.f_Out(31, true), 0);
  auto o_Seg = f_ReadSeg<BmsShMem_ST>(o_Root, "/dev/shm/BmsShMem");
  EXPECT_EQ(o_Seg.ui_Outputs, (1u << 18) | (1u << 31));
  EXPECT_EQ(o_Seg.ui_OutputUpdate, 1u);

  // The I/O board process consumes the update flag; a fast pair sets it again at unlock.
  static_cast<BmsShMem_ST*>(o_Bms.f_GetShMem())->ui_OutputUpdate = 0;
  ASSERT_EQ(o_Bms.f_LockOutSignals(), 0);
  EXPECT_EQ(o_Bms.f_OutFast(29, true), 0);
  EXPECT_EQ(o_Bms.f_OutFast(18, false), 0);
  EXPECT_EQ(f_ReadSeg<BmsShMem_ST>(o_Root, "/dev/shm/BmsShMem").ui_OutputUpdate, 0u);
  ASSERT_EQ(o_Bms.f_UnlockOutSignals(), 0);
  o_Seg = f_ReadSeg<BmsShMem_ST>(o_Root, "/dev/shm/BmsShMem");
  EXPECT_EQ(o_Seg.ui_Outputs, (1u << 29) | (1u << 31));
  EXPECT_EQ(o_Seg.ui_OutputUpdate, 1u);
  EXPECT_EQ(o_Bms.f_Out(32, true), -1);

  // A second user maps the same words and does not initialise the mutex again.
  Bms_CL o_Other;
  EXPECT_TRUE(o_Other.f_GetOut(29));
}

TEST(Bms, LockLeftByADeadProcessIsTakenOver) {
  TempRoot o_Root;
  Bms_CL o_Bms;
  ASSERT_TRUE(f_InChild([]() -> int {
    Bms_CL o_Child;
    _exit(o_Child.f_LockOutSignals());  // dies holding the lock, the segment still mapped
  }));
  // Timed first, so that a lock that stayed held fails the test instead of hanging it.
  PThreadMutex_CL o_Mutex(&static_cast<BmsShMem_ST*>(o_Bms.f_GetShMem())->o_Mutex);
  ASSERT_EQ(o_Mutex.f_Lock(2000), 0);
  ASSERT_EQ(o_Mutex.f_Unlock(), 0);
  EXPECT_EQ(o_Bms.f_Out(17, true), 0);

  // An object destroyed while it holds the lock hands it back.
  ASSERT_TRUE(f_InChild([] { return Bms_CL().f_LockOutSignals(); }));
  ASSERT_EQ(o_Mutex.f_Lock(2000), 0);
  ASSERT_EQ(o_Mutex.f_Unlock(), 0);
}

TEST(Bms, UnmappableSegmentThrows) {
  TempRoot o_Root;
  o_Root.f_Write("/dev/shm/BmsShMem/x", "");  // a directory where the segment belongs
  try {
    Bms_CL o_Bms;
    ADD_FAILURE() << "no exception";
  } catch (SysExcpt_CL* z_o_Ex) {
    EXPECT_EQ(z_o_Ex->f_GetCode(), 2);
    delete z_o_Ex;
  }
}

TEST(Error, ReadinessFlagsLiveInTheSegmentOfTheCurrentRoot) {
  Error_CL* z_o_Err = Error_CL::f_GetErrorObj();
  {
    TempRoot o_Root;
    EXPECT_EQ(z_o_Err->f_SetRdyFlag(3), 0);
    EXPECT_EQ(z_o_Err->f_SetRdyFlag(6), 0);
    EXPECT_EQ(z_o_Err->f_ResetRdyFlag(6), 0);
    EXPECT_EQ(z_o_Err->f_SetRdyFlag(32), -1);
    EXPECT_TRUE(z_o_Err->f_IsRdyFlagSet(3));
    EXPECT_EQ(f_ReadSeg<ErrorShMemData_ST>(o_Root, "/dev/shm/ErrorShMem").ui_RdyIst, 1u << 3);
  }
  TempRoot o_Fresh;
  EXPECT_FALSE(z_o_Err->f_IsRdyFlagSet(3));
}

TEST(Error, OtherProcessesFailWithoutABus) {
  EXPECT_TRUE(f_InChild([] {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/syssrv-test-bus", 1);
    return Error_CL::f_GetErrorObj()->f_Insert(3201) == -1 ? 0 : 1;
  }));
}

TEST(Error, ServiceHoldsErrorsUntilItsStoreIsAttached) {
  Error_CL* z_o_Err = Error_CL::f_GetErrorObj();
  z_o_Err->f_UseLocalStore();
  EXPECT_EQ(z_o_Err->f_Insert(3201), 0);
  EXPECT_EQ(z_o_Err->f_Insert(3228), 0);
  EXPECT_EQ(z_o_Err->f_GetHeld(), (std::vector<int>{3201, 3228}));

  std::vector<int> o_Stored;
  z_o_Err->f_AttachStore([&o_Stored](int i_Coded) { o_Stored.push_back(i_Coded); });
  EXPECT_TRUE(z_o_Err->f_GetHeld().empty());
  EXPECT_EQ(z_o_Err->f_Insert(3252), 0);
  EXPECT_EQ(o_Stored, (std::vector<int>{3201, 3228, 3252}));
  z_o_Err->f_DetachStore();
}
