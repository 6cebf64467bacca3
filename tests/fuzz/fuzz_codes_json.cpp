// The tool-type list "/etc/codes" through the reader the channel configuration uses to
// name the tool. Any text is read or refused as a whole (0 exactly when it parses), and a
// refused list leaves the service's channel configuration as it was.
#include <cjson/cJSON.h>

#include <string>

#include "ChanCfg.h"
#include "FuzzSupport.h"

namespace {
class CodesProbe_CL : public ChanCfg_CL {
 public:
  using ChanCfg_CL::ChanCfg_CL;
  std::string f_Code() const { return str_Code; }
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* z_uc_Data, size_t ui_Size) {
  f_FuzzRoot(true);
  f_FuzzCatchErrors();
  static CodesProbe_CL o_Cfg(nullptr);
  static const std::string str_Code = o_Cfg.f_Code();
  std::string str_Text(reinterpret_cast<const char*>(z_uc_Data), ui_Size);
  f_FuzzWrite(ChanCfg_CL::A_C_CODES_PATH, str_Text);

  cJSON* z_o_Tree = cJSON_Parse(str_Text.c_str());
  CJsonTree_T o_TreeOwner(z_o_Tree);
  bool b_Parses = z_o_Tree != nullptr;
  FUZZ_CHECK((o_Cfg.f_ReadKrTypes() == 0) == b_Parses);
  FUZZ_CHECK(o_Cfg.f_Code() == str_Code);
  return 0;
}
