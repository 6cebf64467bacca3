#include "CliMain.h"

#include <glib.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "CliArgs.h"
#include "SysSrvVersion.h"

namespace {

void f_PrintHelp(const CliProgram_ST& o_Prog, FILE* z_o_Out) {
  // One column for the names, as wide as the longest needs.
  int i_Width = 0;
  for (size_t i = 0; i < o_Prog.ui_Commands; ++i) {
    int i_Len = static_cast<int>(std::strlen(o_Prog.a_o_Commands[i].z_c_Name));
    if (i_Len > i_Width) i_Width = i_Len;
  }
  std::fputs(o_Prog.z_c_HelpHead, z_o_Out);
  for (size_t i = 0; i < o_Prog.ui_Commands; ++i) {
    const CliCommand_ST& o_Cmd = o_Prog.a_o_Commands[i];
    std::fprintf(z_o_Out, "  %-*s %s\n", i_Width + 1, o_Cmd.z_c_Name, o_Cmd.z_c_Summary);
  }
  std::fputs(o_Prog.z_c_HelpTail, z_o_Out);
}

bool f_IsHelp(const char* z_c_Arg) {
  return std::strcmp(z_c_Arg, "--help") == 0 || std::strcmp(z_c_Arg, "-h") == 0 ||
         std::strcmp(z_c_Arg, "help") == 0;
}

bool f_IsProgramOption(const char* z_c_Arg) {
  return f_IsHelp(z_c_Arg) || std::strcmp(z_c_Arg, "--version") == 0;
}

bool f_TakesValue(const CliProgram_ST& o_Prog, const char* z_c_Arg) {
  for (const char* const* z_z_c_Opt = o_Prog.a_z_c_ValueOptions;
       z_z_c_Opt != nullptr && *z_z_c_Opt != nullptr; ++z_z_c_Opt) {
    if (std::strcmp(z_c_Arg, *z_z_c_Opt) == 0) return true;
  }
  return false;
}

}  // namespace

int f_CliMain(const CliProgram_ST& o_Prog, int i_Argc, char** a_z_c_Argv) {
  std::vector<char*> o_Front;
  int i_Cmd = 1;
  while (o_Prog.b_OptionsFirst && i_Cmd < i_Argc && a_z_c_Argv[i_Cmd][0] == '-' &&
         !f_IsProgramOption(a_z_c_Argv[i_Cmd])) {
    bool b_TakesValue = f_TakesValue(o_Prog, a_z_c_Argv[i_Cmd]);
    o_Front.push_back(a_z_c_Argv[i_Cmd++]);
    if (b_TakesValue && i_Cmd < i_Argc) o_Front.push_back(a_z_c_Argv[i_Cmd++]);
  }
  const char* z_c_Cmd = i_Cmd < i_Argc ? a_z_c_Argv[i_Cmd] : o_Prog.z_c_DefaultCommand;
  if (z_c_Cmd == nullptr) {
    f_PrintHelp(o_Prog, stderr);
    return I_EXIT_USAGE;
  }
  if (f_IsHelp(z_c_Cmd)) {
    f_PrintHelp(o_Prog, stdout);
    return I_EXIT_OK;
  }
  if (std::strcmp(z_c_Cmd, "--version") == 0) {
    std::printf("%s %s\n", o_Prog.z_c_Name, SYSSRV_VERSION);
    return I_EXIT_OK;
  }
  for (size_t i = 0; i < o_Prog.ui_Commands; ++i) {
    const CliCommand_ST& o_Cmd = o_Prog.a_o_Commands[i];
    if (std::strcmp(z_c_Cmd, o_Cmd.z_c_Name) != 0) continue;
    std::vector<char*> o_Argv;
    o_Argv.push_back(const_cast<char*>(o_Cmd.z_c_Name));
    o_Argv.insert(o_Argv.end(), o_Front.begin(), o_Front.end());
    if (i_Cmd < i_Argc) o_Argv.insert(o_Argv.end(), a_z_c_Argv + i_Cmd + 1, a_z_c_Argv + i_Argc);
    // Ends with a null pointer, as the argv of main does.
    int i_CmdArgc = static_cast<int>(o_Argv.size());
    o_Argv.push_back(nullptr);
    // The usage line of --help and the messages name the subcommand.
    std::string str_Prog = std::string(o_Prog.z_c_Name) + " " + o_Cmd.z_c_Name;
    g_set_prgname(str_Prog.c_str());
    try {
      return o_Cmd.f_Run(i_CmdArgc, o_Argv.data());
    } catch (const CliFailure_CL& o_Fail) {
      // What the command printed before it failed comes first on a shared terminal.
      std::fflush(stdout);
      std::fprintf(stderr, "%s: %s%s\n", str_Prog.c_str(), o_Fail.what(),
                   o_Fail.f_ExitCode() == I_EXIT_USAGE ? " (see --help)" : "");
      return o_Fail.f_ExitCode();
    } catch (const std::bad_alloc&) {
      std::fprintf(stderr, "%s: out of memory\n", str_Prog.c_str());
      return o_Prog.i_OutOfMemoryExit;
    }
  }
  std::fprintf(stderr, "%s: unknown command '%s' (see %s --help)\n", o_Prog.z_c_Name, z_c_Cmd,
               o_Prog.z_c_Name);
  return I_EXIT_USAGE;
}
