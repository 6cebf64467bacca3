#pragma once
// Shared pieces of syssrv-sim: its exit code and command line on top of the common ones,
// number parsing and small file operations on host paths.
#include <glib.h>

#include <cstdint>
#include <string>

#include "CliArgs.h"
#include "sysLib/Holders.h"

// Exit code of every subcommand besides the shared ones.
constexpr int I_EXIT_FAILURE = 1;  // the tool's files could not be read or written

[[noreturn]] void f_RuntimeError(const std::string& str_Msg);

// One subcommand's command line. Every subcommand that works on an existing tool gets
// --root, defaulting to SYSSRV_ROOT.
class SimArgs_CL : public CliArgs_CL {
 public:
  SimArgs_CL(const char* z_c_Params, const char* z_c_Summary, bool b_WithRoot);
  ~SimArgs_CL() override;

  // The sandbox root: --root, else SYSSRV_ROOT; with b_MustExist it must be an existing
  // directory.
  std::string f_Root(bool b_MustExist = true) const;

 private:
  char* z_c_Root = nullptr;
};

// Strict number parsing for command-line and description values; z_c_What names the
// value in the message of the usage error. Whole numbers are decimal, or hexadecimal with
// 0x, as people write register values.
inline long long f_ParseLong(const std::string& str_Text, long long ll_Min, long long ll_Max,
                             const char* z_c_What) {
  return f_ParseLong(str_Text, ll_Min, ll_Max, z_c_What, 0);
}
double f_ParseDouble(const std::string& str_Text, double d_Min, double d_Max, const char* z_c_What);

// Host-path file helpers. Failures throw a runtime failure naming the path.
void f_MakeDirs(const std::string& str_Dir);
bool f_Exists(const std::string& str_Path);
bool f_IsDir(const std::string& str_Path);
// Whole file; throws when it cannot be read.
std::string f_ReadFile(const std::string& str_Path);
// Whole file, or b_Found false (and an empty text) when it does not exist.
std::string f_ReadFileIfAny(const std::string& str_Path, bool& b_Found);
// Writes a temporary file beside the target and renames it over, so that a reader of the
// running service sees the old or the new content, never a half-written file.
void f_WriteFileAtomic(const std::string& str_Path, const std::string& str_Data,
                       unsigned int ui_Mode = 0644);
// Writes bytes at an offset of an existing file without replacing it: shared-memory
// files keep their inode, so mappings held by the service see the change.
void f_WriteInPlace(const std::string& str_Path, long l_Offset, const void* z_v_Data,
                    size_t ui_Len);
void f_AppendLine(const std::string& str_Path, const std::string& str_Line);
void f_RemoveFile(const std::string& str_Path);
