#pragma once
// A process-shared robust pthread mutex that lives in shared memory.
#include <pthread.h>

class PThreadMutex_CL {
 public:
  explicit PThreadMutex_CL(pthread_mutex_t* z_o_Mutex) : z_o_Mutex(z_o_Mutex) {}
  // Sets the mutex up as process-shared and robust; 0 or an errno value.
  static int f_InitShared(pthread_mutex_t* z_o_Mutex);
  // i_TimeoutMs: -1 waits without limit. 0 on success, -1 on failure (errno set).
  // A mutex left locked by a process that died is taken over and made consistent.
  int f_Lock(int i_TimeoutMs);
  int f_Unlock();

 private:
  pthread_mutex_t* z_o_Mutex;
};
