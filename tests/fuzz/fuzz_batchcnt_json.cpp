// The batch-counter configuration files (program and job) through the reader the service
// and the tool process share, and back out through the service's writer.
//  - A file the reader rejects leaves the sets as they were.
//  - Sets the service writes read back to the same sets and selection flag.
#include <string>

#include "BatchProbe.h"
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* z_uc_Data, size_t ui_Size) {
  f_FuzzRoot(false);
  static BatchCntCfg_CL o_Prg(fuzz::A_C_PRG_PATH);
  static BatchCntCfg_CL o_Job(fuzz::A_C_JOB_PATH);
  FuzzInput_CL o_In(z_uc_Data, ui_Size);
  BatchCntCfg_CL& o_Cfg = (o_In.f_Byte() & 1) ? o_Job : o_Prg;
  f_FuzzWrite(o_Cfg.f_GetCfgFilePath(), o_In.f_Rest());

  std::string str_Before = fuzz::f_BatchText(o_Cfg);
  if (o_Cfg.f_Read(-1) != 0) {
    FUZZ_CHECK(fuzz::f_BatchText(o_Cfg) == str_Before);
    return 0;
  }
  FUZZ_CHECK(o_Cfg.f_SaveCfg() == 0);
  std::string str_Written;
  FUZZ_CHECK(f_FuzzRead(o_Cfg.f_GetCfgFilePath(), str_Written));
  FUZZ_CHECK(f_FuzzIsJsonObject(str_Written.c_str()));
  FUZZ_CHECK(fuzz::f_BatchFileText(o_Cfg.f_GetCfgFilePath()) == fuzz::f_BatchText(o_Cfg));
  FUZZ_CHECK(f_FuzzNothingOutsideRoot());
  return 0;
}
