#include "SimCommon.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

void f_UsageError(const std::string& str_Msg) { throw SimFailure_CL(I_EXIT_USAGE, str_Msg); }

void f_RuntimeError(const std::string& str_Msg) { throw SimFailure_CL(I_EXIT_FAILURE, str_Msg); }

std::string f_Format(const char* z_c_Fmt, ...) {
  va_list o_Args;
  va_start(o_Args, z_c_Fmt);
  char* z_c_Text = g_strdup_vprintf(z_c_Fmt, o_Args);
  va_end(o_Args);
  std::string str_Text(z_c_Text);
  g_free(z_c_Text);
  return str_Text;
}

// ---------------------------------------------------------------------------------------
// Command line

SimArgs_CL::SimArgs_CL(const char* z_c_Params, const char* z_c_Summary, bool b_WithRoot)
    : z_o_Context(g_option_context_new(z_c_Params)) {
  g_option_context_set_summary(z_o_Context, z_c_Summary);
  // Negative numbers ("temp -5") would otherwise be refused as unknown options; unknown
  // options are caught after parsing instead.
  g_option_context_set_ignore_unknown_options(z_o_Context, TRUE);
  if (b_WithRoot) {
    // GOption copies the entries, so a local array will do.
    GOptionEntry a_o_Entries[] = {
        {"root", 'r', 0, G_OPTION_ARG_FILENAME, &z_c_Root,
         "Root directory of the simulated tool (default: $SYSSRV_ROOT)", "DIR"},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    g_option_context_add_main_entries(z_o_Context, a_o_Entries, nullptr);
  }
}

SimArgs_CL::~SimArgs_CL() {
  g_option_context_free(z_o_Context);
  g_free(z_c_Root);
}

void SimArgs_CL::f_AddEntries(const GOptionEntry* a_o_Entries) {
  g_option_context_add_main_entries(z_o_Context, a_o_Entries, nullptr);
}

void SimArgs_CL::f_SetDescription(const char* z_c_Text) {
  g_option_context_set_description(z_o_Context, z_c_Text);
}

namespace {
bool f_LooksNumeric(const char* z_c_Text) {
  char* z_c_End = nullptr;
  errno = 0;
  std::strtod(z_c_Text, &z_c_End);
  return z_c_End != z_c_Text && *z_c_End == '\0';
}
}  // namespace

void SimArgs_CL::f_Parse(int i_Argc, char** a_z_c_Argv) {
  // GOption rearranges the vector it is given; hand it a copy of the pointers.
  std::vector<char*> o_Argv(a_z_c_Argv, a_z_c_Argv + i_Argc);
  o_Argv.push_back(nullptr);
  int i_Count = i_Argc;
  char** a_z_c_Vec = o_Argv.data();
  GError* z_o_Error = nullptr;
  if (!g_option_context_parse(z_o_Context, &i_Count, &a_z_c_Vec, &z_o_Error)) {
    std::string str_Msg = z_o_Error != nullptr ? z_o_Error->message : "bad command line";
    g_clear_error(&z_o_Error);
    f_UsageError(str_Msg);
  }
  bool b_OnlyArgs = false;
  for (int i = 1; i < i_Count; ++i) {
    const char* z_c_Arg = a_z_c_Vec[i];
    if (!b_OnlyArgs && std::strcmp(z_c_Arg, "--") == 0) {
      b_OnlyArgs = true;
      continue;
    }
    if (!b_OnlyArgs && z_c_Arg[0] == '-' && z_c_Arg[1] != '\0' && !f_LooksNumeric(z_c_Arg)) {
      f_UsageError(f_Format("unknown option %s", z_c_Arg));
    }
    o_Args.emplace_back(z_c_Arg);
  }
}

void SimArgs_CL::f_ExpectArgs(size_t ui_Min, size_t ui_Max) const {
  if (o_Args.size() < ui_Min) f_UsageError("missing argument");
  if (o_Args.size() > ui_Max)
    f_UsageError(f_Format("unexpected argument '%s'", o_Args[ui_Max].c_str()));
}

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

long long f_ParseLong(const std::string& str_Text, long long ll_Min, long long ll_Max,
                      const char* z_c_What) {
  const char* z_c_Text = str_Text.c_str();
  char* z_c_End = nullptr;
  errno = 0;
  // Base 0: decimal, or hexadecimal with 0x, as people write register values.
  long long ll_Value = std::strtoll(z_c_Text, &z_c_End, 0);
  bool b_Ok = !str_Text.empty() && z_c_End != z_c_Text && *z_c_End == '\0' && errno == 0;
  if (!b_Ok || ll_Value < ll_Min || ll_Value > ll_Max) {
    f_UsageError(f_Format("%s must be a whole number %lld..%lld, got '%s'", z_c_What, ll_Min,
                          ll_Max, z_c_Text));
  }
  return ll_Value;
}

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
  GError* z_o_Error = nullptr;
  if (!g_file_get_contents(str_Path.c_str(), &z_c_Data, &ui_Len, &z_o_Error)) {
    bool b_Missing = g_error_matches(z_o_Error, G_FILE_ERROR, G_FILE_ERROR_NOENT);
    std::string str_Msg = z_o_Error->message;
    g_clear_error(&z_o_Error);
    if (b_Missing) return std::string();
    f_RuntimeError(str_Msg);
  }
  b_Found = true;
  std::string str_Data(z_c_Data, ui_Len);
  g_free(z_c_Data);
  return str_Data;
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
  } catch (const SimFailure_CL&) {
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
