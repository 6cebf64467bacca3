// Shared-memory segments as files under /dev/shm, which is what shm_open does on Linux;
// going through the file lets the root mapping give a sandbox its own segments.
#include "sysLib/ShMem.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "sysLib/SysFile.h"
#include "sysLib/SysPath.h"

std::string f_ShMemPath(const char* z_c_Name) {
  std::string str_Name = z_c_Name != nullptr ? z_c_Name : "";
  while (!str_Name.empty() && str_Name[0] == '/') str_Name.erase(0, 1);
  return f_SysPath("/dev/shm/" + str_Name);
}

ShMem_CL::ShMem_CL(const char* z_c_Name, size_t ui_Size)
    : ui_Size(ui_Size), str_Name(z_c_Name != nullptr ? z_c_Name : "") {
  // Like shm_open: one leading slash, no further one (no way out of /dev/shm).
  std::string str_Bare = str_Name;
  while (!str_Bare.empty() && str_Bare[0] == '/') str_Bare.erase(0, 1);
  if (str_Bare.empty() || str_Bare.find('/') != std::string::npos || str_Bare == "." ||
      str_Bare == ".." || ui_Size == 0) {
    syslog(LOG_WARNING, "ShMem_CL::ShMem_CL - invalid segment '%s' size %zu", str_Name.c_str(),
           ui_Size);
    return;
  }
  std::string str_Path = f_ShMemPath(str_Name.c_str());
  if (f_SysInSandbox()) {
    // A fresh sandbox root may not have its /dev/shm yet; the real one always exists.
    // Only the two levels inside the root are made, never the root or anything above it.
    mkdir(f_SysPath("/dev").c_str(), 0755);
    mkdir(f_SysPath("/dev/shm").c_str(), 01777);
  }

  UniqueFd_CL o_Fd(open(str_Path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (o_Fd.f_IsOpen()) {
    b_Created = true;
    // The tool's processes of the service's group write their words here too; the umask
    // of the service takes the group's write permission away.
    fchmod(o_Fd.f_Get(), 0660);
  } else if (errno == EEXIST) {
    o_Fd.f_Reset(open(str_Path.c_str(), O_RDWR | O_CLOEXEC));
  }
  if (!o_Fd.f_IsOpen()) {
    syslog(LOG_WARNING, "ShMem_CL::ShMem_CL - open %s: %s", str_Path.c_str(), strerror(errno));
    return;
  }

  // A segment another process made smaller (or just created, empty) is grown; a larger
  // one is left as it is, its owner may use the rest.
  struct stat o_St {};
  if (fstat(o_Fd.f_Get(), &o_St) != 0 ||
      (static_cast<size_t>(o_St.st_size) < ui_Size &&
       ftruncate(o_Fd.f_Get(), static_cast<off_t>(ui_Size)) != 0)) {
    syslog(LOG_WARNING, "ShMem_CL::ShMem_CL - size %s: %s", str_Path.c_str(), strerror(errno));
    return;
  }

  void* z_v_Map = mmap(nullptr, ui_Size, PROT_READ | PROT_WRITE, MAP_SHARED, o_Fd.f_Get(), 0);
  if (z_v_Map == MAP_FAILED) {
    syslog(LOG_WARNING, "ShMem_CL::ShMem_CL - mmap %s: %s", str_Path.c_str(), strerror(errno));
    return;
  }
  z_v_ShMem = z_v_Map;
  i_Fd = o_Fd.f_Release();
}

ShMem_CL::~ShMem_CL() {
  if (z_v_ShMem != nullptr) munmap(z_v_ShMem, ui_Size);
  if (i_Fd != -1) close(i_Fd);
}
