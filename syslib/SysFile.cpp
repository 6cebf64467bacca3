// File helpers shared by the configuration files, the diagnostic store and the shared
// memory: descriptor ownership, directory creation, whole-file read, atomic replace.
#include "sysLib/SysFile.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "sysLib/SysPath.h"

UniqueFd_CL& UniqueFd_CL::operator=(UniqueFd_CL&& o_Other) noexcept {
  if (this != &o_Other) f_Reset(o_Other.f_Release());
  return *this;
}

int UniqueFd_CL::f_Release() {
  int i_Old = i_Fd;
  i_Fd = -1;
  return i_Old;
}

int UniqueFd_CL::f_Reset(int i_NewFd) {
  int i_Ret = 0;
  if (i_Fd != -1 && i_Fd != i_NewFd) i_Ret = close(i_Fd);
  i_Fd = i_NewFd;
  return i_Ret;
}

int f_MakeDirs(const std::string& str_Dir, mode_t ui_Mode) {
  if (str_Dir.empty()) {
    errno = ENOENT;
    return -1;
  }
  std::string str_Root = f_SysRoot();
  while (str_Root.size() > 1 && str_Root.back() == '/') str_Root.pop_back();
  size_t ui_Pos = 0;
  while (ui_Pos != std::string::npos) {
    ui_Pos = str_Dir.find('/', ui_Pos + 1);
    std::string str_Part = str_Dir.substr(0, ui_Pos);
    if (str_Part.empty() || str_Part.back() == '/') continue;
    // A missing sandbox root is a broken set-up, not something to paper over.
    if (!str_Root.empty() &&
        (str_Root == str_Part || str_Root.compare(0, str_Part.size() + 1, str_Part + "/") == 0)) {
      continue;
    }
    if (mkdir(str_Part.c_str(), ui_Mode) != 0 && errno != EEXIST) return -1;
  }
  struct stat o_St {};
  if (stat(str_Dir.c_str(), &o_St) != 0) return -1;
  if (!S_ISDIR(o_St.st_mode)) {
    errno = ENOTDIR;
    return -1;
  }
  return 0;
}

int f_ReadWholeFile(const std::string& str_File, std::string& str_Out, size_t ui_MaxSize) {
  str_Out.clear();
  UniqueFd_CL o_Fd(open(str_File.c_str(), O_RDONLY | O_CLOEXEC));
  if (!o_Fd.f_IsOpen()) return -1;
  char a_c_Buf[4096];
  for (;;) {
    ssize_t i_Got = read(o_Fd.f_Get(), a_c_Buf, sizeof(a_c_Buf));
    if (i_Got < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (i_Got == 0) break;
    if (str_Out.size() + static_cast<size_t>(i_Got) > ui_MaxSize) {
      // A device file or a runaway writer must not make us swallow memory without end.
      errno = EFBIG;
      return -1;
    }
    str_Out.append(a_c_Buf, static_cast<size_t>(i_Got));
  }
  return 0;
}

int f_WriteAll(int i_Fd, const char* z_c_Data, size_t ui_Len) {
  while (ui_Len > 0) {
    ssize_t i_Put = write(i_Fd, z_c_Data, ui_Len);
    if (i_Put < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    z_c_Data += i_Put;
    ui_Len -= static_cast<size_t>(i_Put);
  }
  return 0;
}

int f_ReplaceFile(const std::string& str_File, const std::string& str_Text, bool b_Sync) {
  std::string str_Tmpl = str_File + ".tmp.XXXXXX";
  std::vector<char> a_c_Tmp(str_Tmpl.begin(), str_Tmpl.end());
  a_c_Tmp.push_back('\0');
  UniqueFd_CL o_Fd(mkostemp(a_c_Tmp.data(), O_CLOEXEC));
  if (!o_Fd.f_IsOpen()) return -1;

  // mkstemp makes the file private (0600); other processes of the tool read these files,
  // so the replacement keeps the mode of the file it replaces, or gets 0644.
  struct stat o_St {};
  mode_t ui_Mode = (stat(str_File.c_str(), &o_St) == 0) ? (o_St.st_mode & 07777) : 0644;

  bool b_Ok = fchmod(o_Fd.f_Get(), ui_Mode) == 0 &&
              f_WriteAll(o_Fd.f_Get(), str_Text.data(), str_Text.size()) == 0 &&
              (!b_Sync || fsync(o_Fd.f_Get()) == 0);
  // close reports delayed write errors on some file systems; it counts like a failed write.
  if (o_Fd.f_Reset() != 0) b_Ok = false;
  if (b_Ok && rename(a_c_Tmp.data(), str_File.c_str()) == 0) {
    if (b_Sync) {
      // The rename itself is durable only once the directory is on the medium too.
      size_t ui_Slash = str_File.rfind('/');
      std::string str_Dir = ui_Slash == std::string::npos ? "." : str_File.substr(0, ui_Slash);
      if (str_Dir.empty()) str_Dir = "/";
      UniqueFd_CL o_Dir(open(str_Dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      if (o_Dir.f_IsOpen()) fsync(o_Dir.f_Get());
    }
    return 0;
  }
  int i_Err = errno;
  unlink(a_c_Tmp.data());
  errno = i_Err;
  return -1;
}
