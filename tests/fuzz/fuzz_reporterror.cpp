// "freporterror" into the error store: after each report the ring keeps its bound, the
// list for the bus is a JSON object and the current error has a class of three bits.
#include <cstdlib>
#include <string>

#include "ErrorHandler.h"
#include "FuzzSupport.h"

FUZZ_TARGET(true, false) {
  ErrorHandler_CL* z_o_Store = f_FuzzErrorStore();
  for (int i_Report = 0; i_Report < 4 && o_In.f_Left() > 0; ++i_Report) {
    std::string str_Proc = o_In.f_Text(4096);
    std::string str_Code = o_In.f_Text(256);
    std::string str_Ack = o_In.f_Text(64);
    FUZZ_CHECK(
        f_ReportError(nullptr, str_Proc.c_str(), str_Code.c_str(), str_Ack.c_str(), nullptr));
    FUZZ_CHECK(z_o_Store->f_GetNrErrors() <= z_o_Store->f_GetMaxErrors());
    char* z_c_Json = nullptr;
    FUZZ_CHECK(z_o_Store->f_ActiveErrorsToJson(&z_c_Json) == 0);
    FUZZ_CHECK(f_FuzzIsJsonObject(z_c_Json));
    free(z_c_Json);
    int i_Code = 0, i_Class = 0, i_Date = 0;
    z_o_Store->f_SysErrorGet(&i_Code, &i_Class, &i_Date);
    FUZZ_CHECK(i_Class >= 0 && i_Class <= 7);
  }
  // The ring stays small and the next input starts from a quiet store.
  if (z_o_Store->f_GetNrErrors() > 64) z_o_Store->f_DBRemove();
}
