#pragma once
// POSIX-style shared memory "/NAME", kept as the file /dev/shm/NAME (root-mapped), so that
// a sandbox gets its own segments. Opened (created when missing), sized and mapped.
#include <cstddef>
#include <string>

class ShMem_CL {
 public:
  ShMem_CL(const char* z_c_Name, size_t ui_Size);
  virtual ~ShMem_CL();
  ShMem_CL(const ShMem_CL&) = delete;
  ShMem_CL& operator=(const ShMem_CL&) = delete;

  // True when the descriptor is open and the mapping exists.
  bool f_IsShMemRdy() const { return i_Fd != -1 && z_v_ShMem != nullptr; }
  void* f_GetShMem() const { return z_v_ShMem; }
  size_t f_GetSize() const { return ui_Size; }
  // True when this object created the segment (it did not exist before).
  bool f_IsNew() const { return b_Created; }

 protected:
  int i_Fd = -1;
  void* z_v_ShMem = nullptr;
  size_t ui_Size = 0;
  bool b_Created = false;
  std::string str_Name;
};

// The file behind a shared-memory or semaphore name, root-mapped: "/X" -> /dev/shm/X.
std::string f_ShMemPath(const char* z_c_Name);
