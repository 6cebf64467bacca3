// Process-shared robust mutex: the lock that guards the BMS outputs across processes.
#include "sysLib/PThreadMutex.h"

#include <cerrno>
#include <ctime>

int PThreadMutex_CL::f_InitShared(pthread_mutex_t* z_o_Mutex) {
  if (z_o_Mutex == nullptr) return EINVAL;
  pthread_mutexattr_t o_Attr;
  int i_Ret = pthread_mutexattr_init(&o_Attr);
  if (i_Ret != 0) return i_Ret;
  i_Ret = pthread_mutexattr_setpshared(&o_Attr, PTHREAD_PROCESS_SHARED);
  // Robust: a process that dies holding the lock must not freeze the outputs for everyone.
  if (i_Ret == 0) i_Ret = pthread_mutexattr_setrobust(&o_Attr, PTHREAD_MUTEX_ROBUST);
  if (i_Ret == 0) i_Ret = pthread_mutex_init(z_o_Mutex, &o_Attr);
  pthread_mutexattr_destroy(&o_Attr);
  return i_Ret;
}

int PThreadMutex_CL::f_Lock(int i_TimeoutMs) {
  if (z_o_Mutex == nullptr) {
    errno = EINVAL;
    return -1;
  }
  int i_Ret;
  if (i_TimeoutMs < 0) {
    i_Ret = pthread_mutex_lock(z_o_Mutex);
  } else {
    // timedlock only knows CLOCK_REALTIME deadlines.
    struct timespec o_Deadline {};
    clock_gettime(CLOCK_REALTIME, &o_Deadline);
    o_Deadline.tv_sec += i_TimeoutMs / 1000;
    o_Deadline.tv_nsec += static_cast<long>(i_TimeoutMs % 1000) * 1000000L;
    if (o_Deadline.tv_nsec >= 1000000000L) {
      o_Deadline.tv_sec += 1;
      o_Deadline.tv_nsec -= 1000000000L;
    }
    i_Ret = pthread_mutex_timedlock(z_o_Mutex, &o_Deadline);
  }
  if (i_Ret == EOWNERDEAD) {
    // The previous owner died mid-update. The guarded words are single bit writes, so
    // what it left is usable; mark the mutex consistent and carry on as the owner.
    i_Ret = pthread_mutex_consistent(z_o_Mutex);
    if (i_Ret != 0) pthread_mutex_unlock(z_o_Mutex);
  }
  if (i_Ret != 0) {
    errno = i_Ret;
    return -1;
  }
  return 0;
}

int PThreadMutex_CL::f_Unlock() {
  if (z_o_Mutex == nullptr) {
    errno = EINVAL;
    return -1;
  }
  int i_Ret = pthread_mutex_unlock(z_o_Mutex);
  if (i_Ret != 0) {
    errno = i_Ret;
    return -1;
  }
  return 0;
}
