// The BMS segment's lock and mapping (its words: test_ShmLayout), and errors without a bus.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "TestSupport.h"
#include "sysLib/Bms.h"
#include "sysLib/Error.h"
#include "sysLib/PThreadMutex.h"

namespace {
// Runs f_Body in a child process; true when it exited with status 0.
bool f_InChild(int (*f_Body)()) {
  pid_t i_Pid = fork();
  if (i_Pid == 0) _exit(f_Body());
  int i_Status = -1;
  waitpid(i_Pid, &i_Status, 0);
  return WIFEXITED(i_Status) && WEXITSTATUS(i_Status) == 0;
}
}  // namespace

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

TEST(Error, OtherProcessesFailWithoutABus) {
  EXPECT_TRUE(f_InChild([] {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/syssrv-test-bus", 1);
    return Error_CL::f_GetErrorObj()->f_Insert(3201) == -1 ? 0 : 1;
  }));
}
