// "bms": the I/O board's digital lines. Inputs are what the board would report (the
// acknowledge button); outputs are what the service drives.
#include <cstdio>

#include "SimCommands.h"
#include "SimCommon.h"
#include "SimRoot.h"
#include "SimShMem.h"

int f_CmdBms(int i_Argc, char** a_z_c_Argv) {
  SimArgs_CL o_Args("in N 0|1 | out N | show", "Reads and sets the BMS digital lines.", true);
  const std::string str_Description = f_Format(
      "  in N 0|1   set input line N (0..%d), e.g. 'bms in %d 1' presses acknowledge\n"
      "  out N      print the level of output line N (0 or 1)\n"
      "  show       input and output words with their set lines\n"
      "Known lines: %s",
      I_BMS_LINE_COUNT - 1, I_BMS_IN_ACK, f_BmsKnownLines().c_str());
  o_Args.f_SetDescription(str_Description.c_str());
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  const std::vector<std::string>& o_Pos = o_Args.f_Args();
  if (o_Pos.empty()) f_UsageError("give in, out or show");
  const std::string& str_Action = o_Pos[0];
  if (str_Action == "in") {
    o_Args.f_ExpectArgs(3, 3);
    int i_Line = static_cast<int>(f_ParseLong(o_Pos[1], 0, I_BMS_LINE_COUNT - 1, "N"));
    int i_Level = static_cast<int>(f_ParseLong(o_Pos[2], 0, 1, "level"));
    SimRoot_CL o_Root(o_Args.f_Root());
    SimBms_CL o_Bms(o_Root);
    o_Bms.f_SetInput(i_Line, i_Level != 0);
  } else if (str_Action == "out") {
    o_Args.f_ExpectArgs(2, 2);
    int i_Line = static_cast<int>(f_ParseLong(o_Pos[1], 0, I_BMS_LINE_COUNT - 1, "N"));
    SimRoot_CL o_Root(o_Args.f_Root());
    SimBms_CL o_Bms(o_Root);
    std::printf("%d\n", (o_Bms.f_Outputs() >> i_Line) & 1U ? 1 : 0);
  } else if (str_Action == "show") {
    o_Args.f_ExpectArgs(1, 1);
    SimRoot_CL o_Root(o_Args.f_Root());
    SimBms_CL o_Bms(o_Root);
    std::printf("inputs  0x%08X: %s\n", o_Bms.f_Inputs(),
                f_BmsBitList(o_Bms.f_Inputs(), false).c_str());
    std::printf("outputs 0x%08X: %s\n", o_Bms.f_Outputs(),
                f_BmsBitList(o_Bms.f_Outputs(), true).c_str());
    std::printf("mutex   %s\n", o_Bms.f_HasMutex() ? "set up" : "not yet set up by the service");
  } else {
    f_UsageError("unknown action '" + str_Action + "' (in, out or show)");
  }
  return I_EXIT_OK;
}
