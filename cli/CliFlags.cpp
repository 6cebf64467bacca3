#include "CliFlags.h"

#include "CliArgs.h"

bool f_CollectFlagNames(const cJSON* z_o_Tree, FlagNames_T& o_Names) {
  const cJSON* z_o_Flags = cJSON_GetObjectItemCaseSensitive(z_o_Tree, "flags");
  if (!cJSON_IsArray(z_o_Flags)) return false;
  const cJSON* z_o_Flag = nullptr;
  cJSON_ArrayForEach(z_o_Flag, z_o_Flags) {
    const cJSON* z_o_Nr = cJSON_GetObjectItemCaseSensitive(z_o_Flag, "nr");
    const cJSON* z_o_Name = cJSON_GetObjectItemCaseSensitive(z_o_Flag, "name");
    if (cJSON_IsNumber(z_o_Nr) && cJSON_IsString(z_o_Name)) {
      o_Names[z_o_Nr->valueint] = z_o_Name->valuestring;
    }
  }
  return true;
}

std::string f_FlagList(uint32_t ui_Word, const FlagNames_T& o_Names) {
  std::string str_List;
  for (int i = 0; i < 32; ++i) {
    if ((ui_Word & (1U << i)) == 0) continue;
    if (!str_List.empty()) str_List += ", ";
    auto o_It = o_Names.find(i);
    str_List +=
        o_It != o_Names.end() ? f_Format("%d %s", i, o_It->second.c_str()) : f_Format("%d", i);
  }
  return str_List.empty() ? "none" : str_List;
}
