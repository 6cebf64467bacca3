// "fidcodesrcset" on the result server's file (input: source and delete flag, then the
// file): an unusable file stays as it was, a changed one reads back with the new values.
#include <string>

#include "FuzzSupport.h"
#include "SystemSrv.h"
#include "ToolEvents.h"

namespace {
constexpr const char* A_C_PATH = "/home/tool/config/ResSrv.json";

int f_IntAt(const cJSON* z_o_Parent, const char* z_c_Key) {
  const cJSON* z_o_Item = cJSON_GetObjectItemCaseSensitive(z_o_Parent, z_c_Key);
  if (cJSON_IsBool(z_o_Item)) return cJSON_IsTrue(z_o_Item) ? 1 : 0;
  return cJSON_IsNumber(z_o_Item) ? z_o_Item->valueint : -1;
}
}  // namespace

FUZZ_TARGET(false, false) {
  // Small sources most of the time, any int now and then.
  uint8_t uc_Mode = o_In.f_Byte();
  int i_Src = (uc_Mode & 0x80) ? o_In.f_Int() : (uc_Mode & 0x0F) - 2;
  int i_Del = (uc_Mode >> 4) & 1;
  std::string str_File = o_In.f_Rest();
  f_FuzzWrite(A_C_PATH, str_File);

  static SysObj o_Obj{};
  gboolean b_Ok = f_IDCodeSrcSet(&o_Obj, i_Src, i_Del, nullptr);
  std::string str_After;
  FUZZ_CHECK(f_FuzzRead(A_C_PATH, str_After));
  if (!b_Ok || str_After == str_File) {
    FUZZ_CHECK(str_After == str_File);
  } else {
    CJsonTree_T o_Tree = f_FuzzParse(str_After);
    FUZZ_CHECK(cJSON_IsObject(o_Tree.get()));
    const cJSON* z_o_IdCode = cJSON_GetObjectItemCaseSensitive(o_Tree.get(), "id_code");
    FUZZ_CHECK(f_IntAt(z_o_IdCode, "active") == i_Src);
    FUZZ_CHECK(f_IntAt(z_o_IdCode, "del_after_start") == i_Del);
  }
}
