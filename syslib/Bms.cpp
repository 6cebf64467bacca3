// Digital I/O of the BMS board. The I/O board process and the service share the segment
// "/BmsShMem"; output writes are serialised by the robust mutex inside it.
#include "sysLib/Bms.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <sys/file.h>
#include <syslog.h>

#include "sysLib/PThreadMutex.h"
#include "sysLib/SysExcpt.h"

namespace {
// The words are changed by other processes behind our back: read and write them through
// volatile so that every access really goes to the segment.
inline volatile uint32_t& f_Word(uint32_t& ui_Word) { return ui_Word; }

inline bool f_LineOk(int i_Line) { return i_Line >= 0 && i_Line < 32; }

inline uint32_t f_Bit(int i_Line) { return static_cast<uint32_t>(1u) << i_Line; }
}  // namespace

Bms_CL::Bms_CL() : ShMem_CL("/BmsShMem", UI_BMS_SHMEM_SIZE) {
  if (!f_IsShMemRdy()) throw new SysExcpt_CL(2, "Bms_CL::Bms_CL shm", true);
  BmsShMem_ST* z_o_Seg = f_Seg();
  // Two processes may find an uninitialised segment at the same moment; the file lock
  // makes the check-and-initialise one step so the mutex is set up exactly once.
  bool b_Flock = flock(i_Fd, LOCK_EX) == 0;
  if (f_Word(z_o_Seg->ui_InitMarker) != UI_BMS_INIT_MARKER) {
    // A segment made by someone else (a zero-filled file of the simulator, say) already
    // carries meaningful input and output words; only the mutex is new.
    int i_Ret = PThreadMutex_CL::f_InitShared(&z_o_Seg->o_Mutex);
    if (i_Ret != 0) {
      if (b_Flock) flock(i_Fd, LOCK_UN);
      syslog(LOG_CRIT, "Bms_CL::Bms_CL - mutex init: %s", strerror(i_Ret));
      throw new SysExcpt_CL(2, "Bms_CL::Bms_CL mutex", true);
    }
    std::atomic_thread_fence(std::memory_order_release);
    f_Word(z_o_Seg->ui_InitMarker) = UI_BMS_INIT_MARKER;
  }
  if (b_Flock) flock(i_Fd, LOCK_UN);
}

Bms_CL::~Bms_CL() {
  // Unmapping a held robust mutex would leave it locked for good: the kernel can no
  // longer reach it to mark the owner dead. Let go before the base class unmaps.
  if (b_OutLocked) PThreadMutex_CL(&f_Seg()->o_Mutex).f_Unlock();
}

bool Bms_CL::f_In(int i_Line) {
  if (!f_LineOk(i_Line) || !f_IsShMemRdy()) return false;
  return (f_Word(f_Seg()->ui_Inputs) & f_Bit(i_Line)) != 0;
}

bool Bms_CL::f_GetOut(int i_Line) {
  if (!f_LineOk(i_Line) || !f_IsShMemRdy()) return false;
  return (f_Word(f_Seg()->ui_Outputs) & f_Bit(i_Line)) != 0;
}

int Bms_CL::f_Out(int i_Line, bool b_Value) {
  if (!f_LineOk(i_Line)) {
    syslog(LOG_WARNING, "Bms_CL::f_Out - no output line %d", i_Line);
    return -1;
  }
  if (f_LockOutSignals() != 0) return -1;
  f_OutFast(i_Line, b_Value);
  return f_UnlockOutSignals();
}

int Bms_CL::f_OutFast(int i_Line, bool b_Value) {
  if (!f_LineOk(i_Line) || !f_IsShMemRdy()) {
    syslog(LOG_WARNING, "Bms_CL::f_OutFast - no output line %d", i_Line);
    return -1;
  }
  volatile uint32_t& ui_Out = f_Word(f_Seg()->ui_Outputs);
  if (b_Value) {
    ui_Out = ui_Out | f_Bit(i_Line);
  } else {
    ui_Out = ui_Out & ~f_Bit(i_Line);
  }
  return 0;
}

int Bms_CL::f_LockOutSignals() {
  if (!f_IsShMemRdy()) {
    syslog(LOG_WARNING, "f_LockOutSignals - shm not ready");
    return -1;
  }
  PThreadMutex_CL o_Mutex(&f_Seg()->o_Mutex);
  if (o_Mutex.f_Lock(-1) != 0) {
    syslog(LOG_CRIT, "f_LockOutSignals - %s", strerror(errno));
    return -1;
  }
  b_OutLocked = true;
  return 0;
}

int Bms_CL::f_UnlockOutSignals() {
  if (!f_IsShMemRdy()) {
    // Same text as the lock side on purpose: both mean the segment is missing. The unlock
    // of a missing mutex fails, and that failure is the result.
    syslog(LOG_WARNING, "f_LockOutSignals - shm not ready");
    return PThreadMutex_CL(nullptr).f_Unlock();
  }
  // Tell the I/O board process that the output word changed.
  f_Word(f_Seg()->ui_OutputUpdate) = 1;
  PThreadMutex_CL o_Mutex(&f_Seg()->o_Mutex);
  b_OutLocked = false;
  if (o_Mutex.f_Unlock() != 0) {
    syslog(LOG_WARNING, "f_UnlockOutSignals - %s", strerror(errno));
    return -1;
  }
  return 0;
}
