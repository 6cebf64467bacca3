// "syserror.json" through the error store's reload on a change announcement: whatever it
// says, the store keeps an absolute path, a bound of at least one row, and keeps working.
#include <unistd.h>

#include <filesystem>
#include <string>

#include "ErrorHandler.h"
#include "FuzzSupport.h"
#include "sysLib/SysPath.h"

FUZZ_TARGET(true, false) {
  ErrorHandler_CL* z_o_Store = f_FuzzErrorStore();
  f_FuzzRemoveNew();
  const std::string str_Text = o_In.f_Rest();
  f_FuzzWrite(ErrorHandler_CL::A_C_CFG_PATH, str_Text);
  z_o_Store->f_CfgFileChanged(ErrorHandler_CL::A_C_CFG_PATH);

  FUZZ_CHECK(z_o_Store->f_GetMaxErrors() >= 1);
  FUZZ_CHECK(!z_o_Store->f_GetDBPath().empty() && z_o_Store->f_GetDBPath()[0] == '/');
  // An unusable path costs the records, not the service.
  z_o_Store->f_InsertError(3201);
  char* z_c_Json = nullptr;
  if (z_o_Store->f_ActiveErrorsToJson(&z_c_Json) == 0) FUZZ_CHECK(f_FuzzIsJsonObject(z_c_Json));
  free(z_c_Json);
  // The recovery of an unusable list never moves another file of the tool away.
  for (const char* z_c_Kept :
       {"/home/tool/config", "/home/tool/config/log/rdystatus.json", "/etc/hostname"})
    FUZZ_CHECK(std::filesystem::exists(f_SysPath(z_c_Kept)));

  // Back to the simulated tool's database; what this input made goes at the next one.
  unlink(f_SysPath(ErrorHandler_CL::A_C_CFG_PATH).c_str());
  z_o_Store->f_CfgFileChanged(ErrorHandler_CL::A_C_CFG_PATH);
}
