// "nameplate": writes, shows and damages the tool's nameplate memories.
#include <cstdio>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>

#include "Nameplate.h"
#include "SimCommands.h"
#include "SimCommon.h"
#include "SimRoot.h"

namespace {

std::string f_ReadDescription(const char* z_c_From) {
  if (std::string(z_c_From) != "-") return f_ReadFile(z_c_From);
  return std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
}

int f_Write(const SimRoot_CL& o_Root, const char* z_c_From) {
  NameplateDesc_ST o_Desc = f_ParseDescription(f_ReadDescription(z_c_From),
                                               std::string(z_c_From) == "-" ? "stdin" : z_c_From);
  bool b_AnySector = false;
  for (const SectorDesc_ST& o_Sec : o_Desc.a_o_Sectors)
    b_AnySector = b_AnySector || o_Sec.b_Present;
  if (!b_AnySector && !o_Desc.o_Spindle.b_Present) {
    f_RuntimeError(f_Format("%s holds no section", z_c_From));
  }
  // Build everything before writing anything: a bad section leaves both memories alone.
  std::string str_Spindle;
  if (o_Desc.o_Spindle.b_Present) str_Spindle = f_BuildSpindleRecord(o_Desc.o_Spindle);
  if (b_AnySector) {
    EepromImage_CL o_Image;
    o_Image.f_Load(o_Root.f_Path(SimPath::EEPROM));
    for (const std::string& str_Warning : o_Image.f_Apply(o_Desc)) {
      std::fprintf(stderr, "syssrv-sim nameplate: warning: %s\n", str_Warning.c_str());
    }
    o_Image.f_Save(o_Root.f_Path(SimPath::EEPROM));
  }
  if (o_Desc.o_Spindle.b_Present) {
    std::string str_Path = o_Root.f_Path(SimPath::SPINDLE);
    f_MakeDirs(str_Path.substr(0, str_Path.rfind('/')));
    f_WriteFileAtomic(str_Path, str_Spindle);
  }
  return I_EXIT_OK;
}

int f_Show(const SimRoot_CL& o_Root) {
  int i_Rev = o_Root.f_ReadHwRev();
  if (i_Rev < 0) {
    std::printf("# hardware revision: GPIO lines missing\n\n");
  } else {
    std::printf("# hardware revision %d: the tool reads the %s supplier format first\n\n", i_Rev,
                i_Rev == 0 ? "old" : "new");
  }
  std::string str_Eeprom = o_Root.f_Path(SimPath::EEPROM);
  if (f_Exists(str_Eeprom)) {
    EepromImage_CL o_Image;
    o_Image.f_Load(str_Eeprom);
    std::fputs(o_Image.f_Dump().c_str(), stdout);
  } else {
    std::printf("# no motor-unit EEPROM: %s does not exist\n\n", str_Eeprom.c_str());
  }
  bool b_Found = false;
  std::string str_Record = f_ReadFileIfAny(o_Root.f_Path(SimPath::SPINDLE), b_Found);
  std::fputs(f_DumpSpindleRecord(str_Record, b_Found).c_str(), stdout);
  return I_EXIT_OK;
}

int f_Corrupt(const SimRoot_CL& o_Root, const std::string& str_Target) {
  if (str_Target == "spindle") {
    std::string str_Path = o_Root.f_Path(SimPath::SPINDLE);
    std::string str_Record = f_ReadFile(str_Path);
    long l_Offset = f_CorruptSpindleRecord(str_Record);
    f_WriteFileAtomic(str_Path, str_Record);
    std::printf("spindle record: flipped a bit of byte %ld, CRC left as it was\n", l_Offset);
    return I_EXIT_OK;
  }
  int i_Sector = -1;
  for (int i = 0; i < I_SECTOR_COUNT; ++i) {
    if (A_O_SECTOR_INFO[i].b_HasCrc && str_Target == A_O_SECTOR_INFO[i].z_c_Name) i_Sector = i;
  }
  if (i_Sector < 0) {
    f_UsageError("corrupt takes static, supplier, supplier-dynamic or spindle");
  }
  std::string str_Path = o_Root.f_Path(SimPath::EEPROM);
  if (!f_Exists(str_Path)) f_RuntimeError(str_Path + " does not exist");
  EepromImage_CL o_Image;
  o_Image.f_Load(str_Path);
  long l_Offset = o_Image.f_Corrupt(static_cast<en_Sector>(i_Sector));
  o_Image.f_Save(str_Path);
  std::printf("EEPROM [%s]: flipped a bit of byte %ld, CRC left as it was\n",
              A_O_SECTOR_INFO[i_Sector].z_c_Name, l_Offset);
  return I_EXIT_OK;
}

}  // namespace

int f_CmdNameplate(int i_Argc, char** a_z_c_Argv) {
  char* z_c_From = nullptr;
  gboolean b_DriveMnr = FALSE;
  gboolean b_OldSupplier = FALSE;
  GOptionEntry a_o_Entries[] = {
      {"from", 0, 0, G_OPTION_ARG_FILENAME, &z_c_From, "write: the description ('-' reads stdin)",
       "FILE"},
      {"with-drive-mnr", 0, 0, G_OPTION_ARG_NONE, &b_DriveMnr,
       "example: include AbtriebMNR, AbtriebCode and GetriebeMNR", nullptr},
      {"old-supplier", 0, 0, G_OPTION_ARG_NONE, &b_OldSupplier,
       "example: the supplier sector in the old semicolon format", nullptr},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  SimArgs_CL o_Args("write --from FILE | show | corrupt SECTOR | example",
                    "Writes, shows and corrupts the nameplate memories.", true);
  o_Args.f_AddEntries(a_o_Entries);
  o_Args.f_SetDescription(
      "  write --from FILE  write the sections of a description into the EEPROM image and\n"
      "                     the spindle record; sections it lacks stay as they are\n"
      "  show               print both memories as a description, with CRC OK / CRC\n"
      "                     MISMATCH per checked sector\n"
      "  corrupt SECTOR     flip one bit of static, supplier, supplier-dynamic or spindle\n"
      "                     without fixing its CRC (again restores it)\n"
      "  example            print the default description to start an edit from\n"
      "Example: syssrv-sim nameplate example | sed 's/0x11/0x21/' >np.txt\n"
      "         syssrv-sim nameplate write --from np.txt");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  GChars_T o_FromOwner(z_c_From);
  const std::vector<std::string>& o_Pos = o_Args.f_Args();
  if (o_Pos.empty()) f_UsageError("give write, show, corrupt or example");
  const std::string& str_Action = o_Pos[0];
  bool b_ExampleOpts = b_DriveMnr || b_OldSupplier;
  if (str_Action == "example") {
    o_Args.f_ExpectArgs(1, 1);
    if (z_c_From != nullptr) f_UsageError("--from belongs to write");
    std::fputs(f_DefaultDescription(b_DriveMnr, b_OldSupplier).c_str(), stdout);
    return I_EXIT_OK;
  }
  if (b_ExampleOpts) f_UsageError("--with-drive-mnr and --old-supplier belong to example");
  if (str_Action == "write") {
    o_Args.f_ExpectArgs(1, 1);
    if (z_c_From == nullptr) f_UsageError("write needs --from FILE");
    return f_Write(SimRoot_CL(o_Args.f_Root()), z_c_From);
  }
  if (z_c_From != nullptr) f_UsageError("--from belongs to write");
  if (str_Action == "show") {
    o_Args.f_ExpectArgs(1, 1);
    return f_Show(SimRoot_CL(o_Args.f_Root()));
  }
  if (str_Action == "corrupt") {
    o_Args.f_ExpectArgs(2, 2);
    return f_Corrupt(SimRoot_CL(o_Args.f_Root()), o_Pos[1]);
  }
  f_UsageError("unknown action '" + str_Action + "' (write, show, corrupt or example)");
}
