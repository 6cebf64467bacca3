#include "SimCommon.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

void f_RuntimeError(const std::string& str_Msg) { throw CliFailure_CL(I_EXIT_FAILURE, str_Msg); }

// ---------------------------------------------------------------------------------------
// Command line

SimArgs_CL::SimArgs_CL(const char* z_c_Params, const char* z_c_Summary, bool b_WithRoot)
    : CliArgs_CL(z_c_Params, z_c_Summary) {
  if (b_WithRoot) {
    GOptionEntry a_o_Entries[] = {
        {"root", 'r', 0, G_OPTION_ARG_FILENAME, &z_c_Root,
         "Root directory of the simulated tool (default: $SYSSRV_ROOT)", "DIR"},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    f_AddEntries(a_o_Entries);
  }
}

SimArgs_CL::~SimArgs_CL() { g_free(z_c_Root); }

std::string SimArgs_CL::f_Root(bool b_MustExist) const {
  std::string str_Root;
  if (z_c_Root != nullptr && z_c_Root[0] != '\0') {
    str_Root = z_c_Root;
  } else {
    const char* z_c_Env = std::getenv("SYSSRV_ROOT");
    if (z_c_Env == nullptr || z_c_Env[0] == '\0') {
      f_UsageError("no tool root: pass --root DIR or set SYSSRV_ROOT");
    }
    str_Root = z_c_Env;
  }
  while (str_Root.size() > 1 && str_Root.back() == '/') str_Root.pop_back();
  if (b_MustExist && !f_IsDir(str_Root)) {
    f_RuntimeError(f_Format("%s is not a directory (make the tool with 'syssrv-sim init %s')",
                            str_Root.c_str(), str_Root.c_str()));
  }
  return str_Root;
}

// ---------------------------------------------------------------------------------------
// Numbers

double f_ParseDouble(const std::string& str_Text, double d_Min, double d_Max,
                     const char* z_c_What) {
  const char* z_c_Text = str_Text.c_str();
  char* z_c_End = nullptr;
  errno = 0;
  double d_Value = std::strtod(z_c_Text, &z_c_End);
  bool b_Ok = !str_Text.empty() && z_c_End != z_c_Text && *z_c_End == '\0' && errno == 0 &&
              std::isfinite(d_Value);
  if (!b_Ok || d_Value < d_Min || d_Value > d_Max) {
    f_UsageError(
        f_Format("%s must be a number %g..%g, got '%s'", z_c_What, d_Min, d_Max, z_c_Text));
  }
  return d_Value;
}

// ---------------------------------------------------------------------------------------
// Files

void f_MakeDirs(const std::string& str_Dir) {
  if (g_mkdir_with_parents(str_Dir.c_str(), 0755) != 0) {
    f_RuntimeError(f_Format("cannot create directory %s: %s", str_Dir.c_str(), g_strerror(errno)));
  }
}

bool f_Exists(const std::string& str_Path) {
  struct stat o_St {};
  return lstat(str_Path.c_str(), &o_St) == 0;
}

bool f_IsDir(const std::string& str_Path) {
  struct stat o_St {};
  return stat(str_Path.c_str(), &o_St) == 0 && S_ISDIR(o_St.st_mode);
}

std::string f_ReadFileIfAny(const std::string& str_Path, bool& b_Found) {
  b_Found = false;
  gchar* z_c_Data = nullptr;
  gsize ui_Len = 0;
  GErrorHolder_CL o_Error;
  if (!g_file_get_contents(str_Path.c_str(), &z_c_Data, &ui_Len, o_Error.f_Out())) {
    if (g_error_matches(o_Error.get(), G_FILE_ERROR, G_FILE_ERROR_NOENT)) return std::string();
    f_RuntimeError(o_Error.f_Message());
  }
  GChars_T o_Data(z_c_Data);
  b_Found = true;
  return std::string(o_Data.get(), ui_Len);
}

std::string f_ReadFile(const std::string& str_Path) {
  bool b_Found = false;
  std::string str_Data = f_ReadFileIfAny(str_Path, b_Found);
  if (!b_Found) f_RuntimeError(f_Format("%s does not exist", str_Path.c_str()));
  return str_Data;
}

namespace {
void f_WriteAll(int i_Fd, const char* z_c_Data, size_t ui_Len, const std::string& str_Path) {
  while (ui_Len > 0) {
    ssize_t i_Done = write(i_Fd, z_c_Data, ui_Len);
    if (i_Done < 0 && errno == EINTR) continue;
    if (i_Done <= 0) {
      int i_Err = errno;
      close(i_Fd);
      f_RuntimeError(f_Format("cannot write %s: %s", str_Path.c_str(), g_strerror(i_Err)));
    }
    z_c_Data += i_Done;
    ui_Len -= static_cast<size_t>(i_Done);
  }
}
}  // namespace

void f_WriteFileAtomic(const std::string& str_Path, const std::string& str_Data,
                       unsigned int ui_Mode) {
  std::string str_Tmp = str_Path + f_Format(".sim%ld.tmp", static_cast<long>(getpid()));
  int i_Fd = open(str_Tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, ui_Mode);
  if (i_Fd < 0) {
    f_RuntimeError(f_Format("cannot create %s: %s", str_Path.c_str(), g_strerror(errno)));
  }
  try {
    f_WriteAll(i_Fd, str_Data.data(), str_Data.size(), str_Path);
  } catch (const CliFailure_CL&) {
    unlink(str_Tmp.c_str());
    throw;
  }
  // The umask must not strip the execute bits of the fake commands.
  fchmod(i_Fd, ui_Mode);
  close(i_Fd);
  if (rename(str_Tmp.c_str(), str_Path.c_str()) != 0) {
    int i_Err = errno;
    unlink(str_Tmp.c_str());
    f_RuntimeError(f_Format("cannot replace %s: %s", str_Path.c_str(), g_strerror(i_Err)));
  }
}

void f_WriteInPlace(const std::string& str_Path, long l_Offset, const void* z_v_Data,
                    size_t ui_Len) {
  int i_Fd = open(str_Path.c_str(), O_WRONLY | O_CLOEXEC);
  if (i_Fd < 0) {
    f_RuntimeError(f_Format("cannot open %s: %s", str_Path.c_str(), g_strerror(errno)));
  }
  if (lseek(i_Fd, l_Offset, SEEK_SET) != l_Offset) {
    int i_Err = errno;
    close(i_Fd);
    f_RuntimeError(f_Format("cannot seek in %s: %s", str_Path.c_str(), g_strerror(i_Err)));
  }
  f_WriteAll(i_Fd, static_cast<const char*>(z_v_Data), ui_Len, str_Path);
  close(i_Fd);
}

void f_AppendLine(const std::string& str_Path, const std::string& str_Line) {
  int i_Fd = open(str_Path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (i_Fd < 0) {
    f_RuntimeError(f_Format("cannot open %s: %s", str_Path.c_str(), g_strerror(errno)));
  }
  std::string str_Text = str_Line + "\n";
  f_WriteAll(i_Fd, str_Text.data(), str_Text.size(), str_Path);
  close(i_Fd);
}

void f_RemoveFile(const std::string& str_Path) {
  if (unlink(str_Path.c_str()) != 0 && errno != ENOENT) {
    f_RuntimeError(f_Format("cannot remove %s: %s", str_Path.c_str(), g_strerror(errno)));
  }
}
