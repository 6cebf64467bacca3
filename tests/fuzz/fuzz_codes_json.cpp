// "/etc/codes" is read exactly when it parses; a refused list keeps the configured tool name.
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

FUZZ_TARGET(true, true) {
  static CodesProbe_CL o_Cfg(nullptr);
  static const std::string str_Code = o_Cfg.f_Code();
  const std::string str_Text = o_In.f_Rest();
  f_FuzzWrite(ChanCfg_CL::A_C_CODES_PATH, str_Text);

  FUZZ_CHECK((o_Cfg.f_ReadKrTypes() == 0) == (f_FuzzParse(str_Text) != nullptr));
  FUZZ_CHECK(o_Cfg.f_Code() == str_Code);
}
