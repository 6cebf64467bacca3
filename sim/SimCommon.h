#pragma once
// Shared pieces of syssrv-sim: the failure type that carries an exit code, the command-line
// helper every subcommand uses, number parsing and small file operations on host paths.
#include <glib.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

// Exit codes of every subcommand.
constexpr int I_EXIT_OK = 0;
constexpr int I_EXIT_FAILURE = 1;  // the tool's files could not be read or written
constexpr int I_EXIT_USAGE = 2;    // bad command line

// Thrown anywhere below a subcommand; main prints the one-line message and exits.
class SimFailure_CL : public std::runtime_error {
 public:
  SimFailure_CL(int i_ExitCode, const std::string& str_Msg)
      : std::runtime_error(str_Msg), i_ExitCode(i_ExitCode) {}
  int f_ExitCode() const { return i_ExitCode; }

 private:
  int i_ExitCode;
};

[[noreturn]] void f_UsageError(const std::string& str_Msg);
[[noreturn]] void f_RuntimeError(const std::string& str_Msg);
// printf-style formatting into a std::string (sized to fit, never truncated or overrun).
std::string f_Format(const char* z_c_Fmt, ...) G_GNUC_PRINTF(1, 2);

// One subcommand's command line. The options are parsed with GOption (--help included);
// what is left are the positional arguments. Every subcommand that works on an existing
// tool gets --root, defaulting to SYSSRV_ROOT.
class SimArgs_CL {
 public:
  SimArgs_CL(const char* z_c_Params, const char* z_c_Summary, bool b_WithRoot);
  ~SimArgs_CL();
  SimArgs_CL(const SimArgs_CL&) = delete;
  SimArgs_CL& operator=(const SimArgs_CL&) = delete;

  // Extra options; the array ends with a zeroed entry and must outlive f_Parse.
  void f_AddEntries(const GOptionEntry* a_o_Entries);
  // Text shown behind the option list of --help.
  void f_SetDescription(const char* z_c_Text);
  // Parses argv (argv[0] is the subcommand). --help prints and exits 0; a bad option
  // throws a usage error. Arguments that look like negative numbers stay positional.
  void f_Parse(int i_Argc, char** a_z_c_Argv);
  void f_ExpectArgs(size_t ui_Min, size_t ui_Max) const;

  const std::vector<std::string>& f_Args() const { return o_Args; }
  // The sandbox root: --root, else SYSSRV_ROOT; with b_MustExist it must be an existing
  // directory.
  std::string f_Root(bool b_MustExist = true) const;

 private:
  GOptionContext* z_o_Context;
  char* z_c_Root = nullptr;
  std::vector<std::string> o_Args;
};

// Strict number parsing for command-line and description values; z_c_What names the
// value in the message of the usage error.
// 64-bit so that the full unsigned 32-bit range fits on the 32-bit target as well.
long long f_ParseLong(const std::string& str_Text, long long ll_Min, long long ll_Max,
                      const char* z_c_What);
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
