// "rdystatus.json" through the start-up reader: an unusable table throws the library's
// exception, a table taken requires at least the flags 0..31 it marks.
#include <cstdint>

#include "FuzzSupport.h"
#include "RdyStatus.h"
#include "sysLib/SysExcpt.h"

FUZZ_TARGET(false, false) {
  f_FuzzWrite(RdyStatus_CL::A_C_RDY_STATUS_SOLL_PATH, o_In.f_Rest());
  try {
    RdyStatus_CL o_Status;
    uint32_t ui_Named = 0;
    for (const auto& z_o_Flag : o_Status.f_GetRdySollStatusList()) {
      FUZZ_CHECK(z_o_Flag->f_GetName() != nullptr);
      if (z_o_Flag->f_GetStatus() && z_o_Flag->f_GetNr() >= 0 && z_o_Flag->f_GetNr() < 32)
        ui_Named |= 1u << z_o_Flag->f_GetNr();
    }
    // Entries without a name still require their flag, so the word may hold more.
    FUZZ_CHECK((o_Status.f_GetRdySoll() & ui_Named) == ui_Named);
  } catch (SysExcpt_CL* z_o_Excpt) {
    delete z_o_Excpt;
  }
}
