#pragma once
// Named POSIX semaphores "/NAME", kept as the file /dev/shm/sem.NAME (root-mapped) just
// like the C library keeps them, so that a sandbox gets its own semaphores and a process
// on the real tool using sem_open sees the same object.
#include <memory>
#include <semaphore.h>
#include <string>
#include <sys/types.h>

class NamedSem_CL {
 public:
  // The semaphore file is this long whatever sizeof(sem_t) is on the target.
  static constexpr size_t UI_FILE_SIZE = 32;

  ~NamedSem_CL();  // unmaps; the semaphore itself stays (f_SemUnlink removes the name)
  NamedSem_CL(const NamedSem_CL&) = delete;
  NamedSem_CL& operator=(const NamedSem_CL&) = delete;

  sem_t* f_Get() const { return z_o_Sem; }
  // True when this open created the semaphore (and so set its initial value).
  bool f_IsCreator() const { return b_Creator; }
  int f_Post();
  int f_TryWait();
  int f_GetValue(int* z_i_Value);

 private:
  friend std::unique_ptr<NamedSem_CL> f_SemOpen(const char*, int, mode_t, unsigned int);
  NamedSem_CL(void* z_v_Map, bool b_Creator);
  sem_t* z_o_Sem;
  bool b_Creator;
};

// Opens "/NAME" like sem_open: i_Flags may hold O_CREAT (create when missing, with mode and
// initial value) and O_EXCL (fail with EEXIST when it exists). Only the process that
// creates the semaphore initialises it; the file appears under its name fully set up.
// Null with errno set on failure (EINVAL for a bad name, ENOENT without O_CREAT, ...).
std::unique_ptr<NamedSem_CL> f_SemOpen(const char* z_c_Name, int i_Flags, mode_t ui_Mode = 0600,
                                       unsigned int ui_Value = 0);
// Removes the name; processes that have it open keep using it. 0, or -1 with errno set.
int f_SemUnlink(const char* z_c_Name);
// The file behind a semaphore name: "/NAME" -> /dev/shm/sem.NAME (root-mapped); empty for
// a name that is not one leading slash followed by a plain file name.
std::string f_SemPath(const char* z_c_Name);
