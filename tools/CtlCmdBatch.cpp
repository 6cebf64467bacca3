// "batch": the OK/NOK counter sets of programs (and, for set, of jobs).
#include <cstdio>
#include <cstring>

#include "CtlCommands.h"
#include "sysLib/ConfigFile.h"
#include "sysLib/SysBatchCntCfg.h"

namespace {

constexpr const char* A_C_PRG_FILE = "/home/tool/config/OkNokCntCfg.json";
constexpr const char* A_C_JOB_FILE = "/home/tool/config/JobOkNokCntCfg.json";
constexpr int I_ALL = -1;
constexpr int I_LAST_ID = 255;

// The keys of a counter set and the JSON types the service reads them as.
struct Key_ST {
  const char* z_c_Name;
  enum { NUMBER, DIRECTION, FLAG } e_Kind;
};
const Key_ST A_O_KEYS[] = {
    {"Id", Key_ST::NUMBER},
    {"MaxOk", Key_ST::NUMBER},
    {"MaxNok", Key_ST::NUMBER},
    {"DirectionOk", Key_ST::DIRECTION},
    {"DirectionNok", Key_ST::DIRECTION},
    {"LockTool", Key_ST::FLAG},
    {"LockCcw", Key_ST::FLAG},
    {"LockCcwAfterOk", Key_ST::FLAG},
    {"LockCcwAfterNok", Key_ST::FLAG},
};

// The service takes any text and silently keeps what it cannot read as defaults (a
// misspelt key becomes 0 or "down"); catch such mistakes before they reach the tool.
void f_CheckCounterSet(const std::string& str_Json) {
  f_ExpectUtf8(str_Json, "JSON");
  Json_T o_Set(cJSON_Parse(str_Json.c_str()));
  if (!o_Set) f_UsageError("JSON is not valid JSON: " + str_Json);
  if (!cJSON_IsObject(o_Set.get()))
    f_UsageError("JSON must be one object, e.g. {\"Id\":5,\"MaxOk\":10}");
  const cJSON* z_o_Item = nullptr;
  cJSON_ArrayForEach(z_o_Item, o_Set.get()) {
    const Key_ST* z_o_Key = nullptr;
    for (const Key_ST& o_K : A_O_KEYS) {
      if (std::strcmp(o_K.z_c_Name, z_o_Item->string) == 0) z_o_Key = &o_K;
    }
    if (z_o_Key == nullptr) {
      f_UsageError(
          f_Format("unknown key \"%s\" (keys: Id, MaxOk, MaxNok, DirectionOk, "
                   "DirectionNok, LockTool, LockCcw, LockCcwAfterOk, LockCcwAfterNok)",
                   z_o_Item->string));
    }
    bool b_Ok = true;
    switch (z_o_Key->e_Kind) {
      case Key_ST::NUMBER:
        b_Ok = cJSON_IsNumber(z_o_Item) && z_o_Item->valuedouble >= 0 &&
               z_o_Item->valuedouble == static_cast<double>(z_o_Item->valueint);
        break;
      case Key_ST::DIRECTION:
        b_Ok = cJSON_IsString(z_o_Item) && (std::strcmp(z_o_Item->valuestring, "up") == 0 ||
                                            std::strcmp(z_o_Item->valuestring, "down") == 0);
        break;
      case Key_ST::FLAG:
        b_Ok = cJSON_IsBool(z_o_Item) ||
               (cJSON_IsNumber(z_o_Item) && (z_o_Item->valueint == 0 || z_o_Item->valueint == 1));
        break;
    }
    if (!b_Ok) {
      const char* z_c_Want = z_o_Key->e_Kind == Key_ST::NUMBER      ? "a whole number >= 0"
                             : z_o_Key->e_Kind == Key_ST::DIRECTION ? "\"up\" or \"down\""
                                                                    : "true or false";
      f_UsageError(f_Format("\"%s\" must be %s", z_o_Item->string, z_c_Want));
    }
  }
  int i_Id = -1;
  if (!SysBatchCntCfg_CL::f_JsonId(o_Set.get(), &i_Id)) f_UsageError("JSON needs an \"Id\"");
  // Sets beyond 255 are kept by the service but never written nor listed.
  if (i_Id < 0 || i_Id > I_LAST_ID) f_UsageError(f_Format("\"Id\" must be 0..255, got %d", i_Id));
}

// The sets of a counter file by id, as the service reads them; empty when unreadable.
std::map<int, CounterSet_ST> f_ReadSets(const char* z_c_File) {
  std::map<int, CounterSet_ST> o_Sets;
  cJSON* z_o_Raw = nullptr;
  if (f_ReadJsonCfgFile(z_c_File, &z_o_Raw) != 0) return o_Sets;
  Json_T o_Tree(z_o_Raw);
  const cJSON* z_o_Item = nullptr;
  cJSON_ArrayForEach(z_o_Item, cJSON_GetObjectItemCaseSensitive(o_Tree.get(), "CntrSets")) {
    int i_Id = -1;
    if (cJSON_IsObject(z_o_Item) && SysBatchCntCfg_CL::f_JsonId(z_o_Item, &i_Id))
      o_Sets[i_Id] = SysBatchCntCfg_CL::f_CounterSetFromJson(z_o_Item);
  }
  return o_Sets;
}

struct ListOptions_ST {
  bool b_Job;
  en_JsonFormat e_Json;
  bool b_Legend;
};

int f_BatchList(CtlBus_CL& o_Bus, const ListOptions_ST& o_Opt) {
  const char* z_c_File = o_Opt.b_Job ? A_C_JOB_FILE : A_C_PRG_FILE;
  const char* z_c_Kind = o_Opt.b_Job ? "job" : "program";
  std::vector<int> o_IdList;
  std::map<int, CounterSet_ST> o_Sets;
  if (o_Opt.b_Job) {
    // The bus lists the program sets only; the job file is the one source of the job sets.
    o_Sets = f_ReadSets(z_c_File);
    for (const auto& o_Set : o_Sets) o_IdList.push_back(o_Set.first);
  } else {
    // The service re-reads the file for this answer, so the file holds what it lists.
    Variant_T o_Reply = o_Bus.f_Call("fbatchcntrget", nullptr, "(ay)");
    Variant_T o_Ids(g_variant_get_child_value(o_Reply.get(), 0));
    gsize ui_Count = 0;
    const guchar* a_uc_Ids =
        static_cast<const guchar*>(g_variant_get_fixed_array(o_Ids.get(), &ui_Count, 1));
    o_IdList.assign(a_uc_Ids, a_uc_Ids + ui_Count);
    o_Sets = f_ReadSets(z_c_File);
  }

  if (o_Opt.e_Json != en_JsonOff) {
    Json_T o_Root(cJSON_CreateObject());
    cJSON_AddStringToObject(o_Root.get(), "file", z_c_File);
    cJSON* z_o_List = cJSON_AddArrayToObject(o_Root.get(), "sets");
    for (int i_Id : o_IdList) {
      cJSON* z_o_Set = cJSON_CreateObject();
      cJSON_AddNumberToObject(z_o_Set, "Id", i_Id);
      auto o_It = o_Sets.find(i_Id);
      if (o_It != o_Sets.end()) {
        const CounterSet_ST& o_S = o_It->second;
        cJSON_AddNumberToObject(z_o_Set, "MaxOk", o_S.MaxOk);
        cJSON_AddNumberToObject(z_o_Set, "MaxNok", o_S.MaxNok);
        cJSON_AddStringToObject(z_o_Set, "DirectionOk", o_S.DirectionOk ? "up" : "down");
        cJSON_AddStringToObject(z_o_Set, "DirectionNok", o_S.DirectionNok ? "up" : "down");
        cJSON_AddBoolToObject(z_o_Set, "LockTool", o_S.LockTool);
        cJSON_AddBoolToObject(z_o_Set, "LockCcw", o_S.LockCcw);
        cJSON_AddBoolToObject(z_o_Set, "LockCcwAfterOk", o_S.LockCcwAfterOk);
        cJSON_AddBoolToObject(z_o_Set, "LockCcwAfterNok", o_S.LockCcwAfterNok);
      }
      cJSON_AddItemToArray(z_o_List, z_o_Set);
    }
    f_PrintJson(o_Root.get(), o_Opt.e_Json);
    return I_EXIT_OK;
  }
  if (o_IdList.empty()) {
    if (o_Opt.b_Legend) std::printf("No %s counter sets configured (%s).\n", z_c_Kind, z_c_File);
    return I_EXIT_OK;
  }
  if (o_Opt.b_Legend) {
    std::printf("%c%s counter sets (%s):\n", g_ascii_toupper(z_c_Kind[0]), z_c_Kind + 1, z_c_File);
    std::printf("%5s %7s %7s  %-5s %-5s  %-9s %-8s %-12s %s\n", "ID", "MAX OK", "MAX NOK", "OK",
                "NOK", "LOCK TOOL", "LOCK CCW", "CCW AFTER OK", "CCW AFTER NOK");
  }
  auto f_YesNo = [](bool b) { return b ? "yes" : "no"; };
  for (int i_Id : o_IdList) {
    auto o_It = o_Sets.find(i_Id);
    if (o_It == o_Sets.end()) {
      std::printf("%5d  (changed in the file since the service listed it)\n", i_Id);
      continue;
    }
    const CounterSet_ST& o_S = o_It->second;
    std::printf("%5d %7d %7d  %-5s %-5s  %-9s %-8s %-12s %s\n", i_Id, o_S.MaxOk, o_S.MaxNok,
                o_S.DirectionOk ? "up" : "down", o_S.DirectionNok ? "up" : "down",
                f_YesNo(o_S.LockTool), f_YesNo(o_S.LockCcw), f_YesNo(o_S.LockCcwAfterOk),
                f_YesNo(o_S.LockCcwAfterNok));
  }
  return I_EXIT_OK;
}

int f_ParseProgram(const std::string& str_Text) {
  if (str_Text == "all") return I_ALL;
  return static_cast<int>(f_ParseLong(str_Text, I_ALL, I_LAST_ID, "N (or 'all')"));
}

}  // namespace

int f_CmdBatch(int i_Argc, char** a_z_c_Argv) {
  gboolean b_Job = FALSE;
  GOptionEntry a_o_Entries[] = {
      {"job", 0, 0, G_OPTION_ARG_NONE, &b_Job,
       "list, set: the job counter sets (JobOkNokCntCfg.json) instead of the program ones",
       nullptr},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  CtlArgs_CL o_Args("list | set JSON | clear N | delete N",
                    "Lists or changes the batch OK/NOK counter sets of the programs.");
  o_Args.f_AddEntries(a_o_Entries);
  o_Args.f_AddJson();
  o_Args.f_AddLegend();
  o_Args.f_SetDescription(
      "list           the configured program sets (ids from SysSrv, details from the file);\n"
      "               with --job the job sets (from the file: the bus does not list them)\n"
      "set JSON       create or replace a set, e.g.\n"
      "               "
      "'{\"Id\":5,\"MaxOk\":10,\"MaxNok\":2,\"DirectionOk\":\"up\",\"LockTool\":true}'\n"
      "               missing keys: sizes 0, directions down, LockTool and LockCcw on\n"
      "clear N        put the sizes of program set N to 0 ('all' or -1: every set)\n"
      "delete N       remove program set N ('all' or -1: every set)\n"
      "N is 0..255. clear and delete act on program sets only: the bus offers nothing else.");
  o_Args.f_Parse(i_Argc, a_z_c_Argv);
  o_Args.f_ExpectArgs(1, 2);
  const std::string& str_Action = o_Args.f_Args()[0];
  if (str_Action == "list") {
    o_Args.f_ExpectArgs(1, 1);
    CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
    return f_BatchList(o_Bus, {b_Job != FALSE, o_Args.f_JsonFormat(), o_Args.f_Legend()});
  }
  if (str_Action != "set" && str_Action != "clear" && str_Action != "delete")
    f_UsageError("give list, set JSON, clear N or delete N, got '" + str_Action + "'");
  o_Args.f_ExpectArgs(2, 2);
  const std::string& str_Arg = o_Args.f_Args()[1];
  if (str_Action == "set") {
    f_CheckCounterSet(str_Arg);
    CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
    o_Bus.f_Call("fbatchcntrset", g_variant_new("(is)", b_Job ? 1 : 0, str_Arg.c_str()));
    std::printf("%s counter set written.\n", b_Job ? "Job" : "Program");
    return I_EXIT_OK;
  }
  // Silently acting on the program sets would surprise whoever asked for a job set.
  if (b_Job) f_UsageError("--job goes with list and set only: clear and delete act on program sets");
  int i_Prg = f_ParseProgram(str_Arg);
  CtlBus_CL o_Bus(o_Args.f_TimeoutMs());
  if (str_Action == "clear") {
    o_Bus.f_Call("fbatchcntrclear", g_variant_new("(i)", i_Prg));
    if (i_Prg == I_ALL) {
      // Clearing every set is written without an announcement; -2 asks the readers to
      // reload, as the tool's own clients do.
      o_Bus.f_Call("fbatchcntrclear", g_variant_new("(i)", -2));
      std::printf("Every program counter set cleared.\n");
    } else {
      std::printf("Program counter set %d cleared (sizes 0, if it exists).\n", i_Prg);
    }
  } else {
    o_Bus.f_Call("fbatchcntrdel", g_variant_new("(i)", i_Prg));
    if (i_Prg == I_ALL)
      std::printf("Every program counter set deleted.\n");
    else
      std::printf("Program counter set %d deleted (if it existed).\n", i_Prg);
  }
  return I_EXIT_OK;
}
