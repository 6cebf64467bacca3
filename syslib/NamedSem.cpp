// Named semaphores as files under /dev/shm. A new semaphore is set up in a temporary file
// and then linked to its name, so no other process can ever map a half-initialised one:
// whoever wins the link is the creator, everybody else opens what the creator made.
#include "sysLib/NamedSem.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "sysLib/ShMem.h"
#include "sysLib/SysFile.h"
#include "sysLib/SysPath.h"

static_assert(sizeof(sem_t) <= NamedSem_CL::UI_FILE_SIZE, "sem_t does not fit its file");

namespace {
// The bare name: one or more leading slashes, then a name without a further slash.
bool f_BareName(const char* z_c_Name, std::string& str_Bare) {
  if (z_c_Name == nullptr) return false;
  str_Bare = z_c_Name;
  while (!str_Bare.empty() && str_Bare[0] == '/') str_Bare.erase(0, 1);
  return !str_Bare.empty() && str_Bare.find('/') == std::string::npos && str_Bare != "." &&
         str_Bare != ".." && str_Bare.size() <= 250;
}

void* f_Map(int i_Fd) {
  void* z_v_Map =
      mmap(nullptr, NamedSem_CL::UI_FILE_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, i_Fd, 0);
  return z_v_Map == MAP_FAILED ? nullptr : z_v_Map;
}

// Maps an existing semaphore file; null with errno set.
void* f_OpenExisting(const std::string& str_Path) {
  UniqueFd_CL o_Fd(open(str_Path.c_str(), O_RDWR | O_CLOEXEC));
  if (!o_Fd.f_IsOpen()) return nullptr;
  struct stat o_St {};
  if (fstat(o_Fd.f_Get(), &o_St) != 0) return nullptr;
  if (static_cast<size_t>(o_St.st_size) < sizeof(sem_t)) {
    // Not a semaphore (or one whose creator died half-way with some other tool).
    errno = EINVAL;
    return nullptr;
  }
  return f_Map(o_Fd.f_Get());
}

// Creates an initialised semaphore under str_Path. 1 created (mapping in *z_z_v_Map),
// 0 the name exists already, -1 failure (errno set).
int f_Create(const std::string& str_Path, mode_t ui_Mode, unsigned int ui_Value, void** z_z_v_Map) {
  std::string str_Dir = str_Path.substr(0, str_Path.rfind('/'));
  std::string str_Tmp = str_Dir + "/sem.XXXXXX";
  UniqueFd_CL o_Fd(mkostemp(&str_Tmp[0], O_CLOEXEC));
  if (!o_Fd.f_IsOpen()) return -1;
  int i_Ret = -1;
  void* z_v_Map = nullptr;
  if (fchmod(o_Fd.f_Get(), ui_Mode) == 0 &&
      ftruncate(o_Fd.f_Get(), static_cast<off_t>(NamedSem_CL::UI_FILE_SIZE)) == 0 &&
      (z_v_Map = f_Map(o_Fd.f_Get())) != nullptr) {
    if (sem_init(static_cast<sem_t*>(z_v_Map), 1, ui_Value) != 0) {
      // EINVAL: a value above SEM_VALUE_MAX.
    } else if (link(str_Tmp.c_str(), str_Path.c_str()) == 0) {
      i_Ret = 1;
    } else if (errno == EEXIST) {
      i_Ret = 0;
    }
  }
  int i_Err = errno;
  unlink(str_Tmp.c_str());
  if (i_Ret == 1) {
    *z_z_v_Map = z_v_Map;
  } else if (z_v_Map != nullptr) {
    munmap(z_v_Map, NamedSem_CL::UI_FILE_SIZE);
  }
  errno = i_Err;
  return i_Ret;
}
}  // namespace

std::string f_SemPath(const char* z_c_Name) {
  std::string str_Bare;
  if (!f_BareName(z_c_Name, str_Bare)) return "";
  return f_ShMemPath(("sem." + str_Bare).c_str());
}

NamedSem_CL::NamedSem_CL(void* z_v_Map, bool b_Creator)
    : z_o_Sem(static_cast<sem_t*>(z_v_Map)), b_Creator(b_Creator) {}

NamedSem_CL::~NamedSem_CL() { munmap(z_o_Sem, UI_FILE_SIZE); }

int NamedSem_CL::f_Post() { return sem_post(z_o_Sem); }

int NamedSem_CL::f_TryWait() { return sem_trywait(z_o_Sem); }

int NamedSem_CL::f_GetValue(int* z_i_Value) { return sem_getvalue(z_o_Sem, z_i_Value); }

std::unique_ptr<NamedSem_CL> f_SemOpen(const char* z_c_Name, int i_Flags, mode_t ui_Mode,
                                       unsigned int ui_Value) {
  std::string str_Path = f_SemPath(z_c_Name);
  if (str_Path.empty()) {
    errno = EINVAL;
    return nullptr;
  }
  if ((i_Flags & O_CREAT) != 0 && f_SysInSandbox()) {
    // A fresh sandbox root may lack its /dev/shm; only the two levels inside it are made.
    mkdir(f_SysPath("/dev").c_str(), 0755);
    mkdir(f_SysPath("/dev/shm").c_str(), 01777);
  }
  // Two rounds: the semaphore may vanish between a failed link and our open of it.
  for (int i_Try = 0; i_Try < 2; ++i_Try) {
    if ((i_Flags & O_CREAT) != 0) {
      void* z_v_Map = nullptr;
      int i_Created = f_Create(str_Path, ui_Mode, ui_Value, &z_v_Map);
      if (i_Created < 0) return nullptr;
      if (i_Created == 1) return std::unique_ptr<NamedSem_CL>(new NamedSem_CL(z_v_Map, true));
      if ((i_Flags & O_EXCL) != 0) {
        errno = EEXIST;
        return nullptr;
      }
    }
    void* z_v_Map = f_OpenExisting(str_Path);
    if (z_v_Map != nullptr) return std::unique_ptr<NamedSem_CL>(new NamedSem_CL(z_v_Map, false));
    if (errno != ENOENT || (i_Flags & O_CREAT) == 0) return nullptr;
  }
  return nullptr;
}

int f_SemUnlink(const char* z_c_Name) {
  std::string str_Path = f_SemPath(z_c_Name);
  if (str_Path.empty()) {
    errno = EINVAL;
    return -1;
  }
  return unlink(str_Path.c_str());
}
