#pragma once
// File helpers the library's units share. Every path here is a host path, already
// root-mapped by the caller with f_SysPath.
#include <cstddef>
#include <string>
#include <sys/types.h>

// Owns one file descriptor and closes it when it goes out of scope.
class UniqueFd_CL {
 public:
  UniqueFd_CL() = default;
  explicit UniqueFd_CL(int i_Fd) : i_Fd(i_Fd) {}
  ~UniqueFd_CL() { f_Reset(); }
  UniqueFd_CL(const UniqueFd_CL&) = delete;
  UniqueFd_CL& operator=(const UniqueFd_CL&) = delete;
  UniqueFd_CL(UniqueFd_CL&& o_Other) noexcept : i_Fd(o_Other.f_Release()) {}
  UniqueFd_CL& operator=(UniqueFd_CL&& o_Other) noexcept;

  int f_Get() const { return i_Fd; }
  bool f_IsOpen() const { return i_Fd != -1; }
  int f_Release();
  // Closes the descriptor held so far and takes i_NewFd; 0, or -1 when close failed.
  int f_Reset(int i_NewFd = -1);

 private:
  int i_Fd = -1;
};

// mkdir -p with the given mode for the directories it creates. In a sandbox the root and
// the directories above it are never created: they must exist. 0 or -1 (errno set).
int f_MakeDirs(const std::string& str_Dir, mode_t ui_Mode = 0755);
// Reads a whole file, refusing one larger than ui_MaxSize. 0 or -1 (errno set).
int f_ReadWholeFile(const std::string& str_File, std::string& str_Out,
                    size_t ui_MaxSize = 16u * 1024u * 1024u);
// Writes all of str_Text to the descriptor, retrying short writes. 0 or -1 (errno set).
int f_WriteAll(int i_Fd, const char* z_c_Data, size_t ui_Len);
// Replaces a file through a temporary file beside it and a rename, so that a reader sees
// the old or the new content, never a mix. With b_Sync the data (and the directory entry)
// reach the medium before the call returns. On failure the old file is left untouched and
// the temporary removed. 0 or -1 (errno set).
int f_ReplaceFile(const std::string& str_File, const std::string& str_Text, bool b_Sync);
