// The batch-counter files through the shared reader and the service's writer: a rejected
// file leaves the sets as they were; sets the service writes read back the same.
#include <string>

#include "BatchCntCfg.h"
#include "FuzzSupport.h"

FUZZ_TARGET(false, false) {
  static BatchCntCfg_CL o_Prg(A_C_FUZZ_PRG_PATH);
  static BatchCntCfg_CL o_Job(A_C_FUZZ_JOB_PATH);
  BatchCntCfg_CL& o_Cfg = (o_In.f_Byte() & 1) ? o_Job : o_Prg;
  f_FuzzWrite(o_Cfg.f_GetCfgFilePath(), o_In.f_Rest());

  std::string str_Before = f_FuzzBatchText(o_Cfg);
  if (o_Cfg.f_Read(-1) != 0) {
    FUZZ_CHECK(f_FuzzBatchText(o_Cfg) == str_Before);
    return;
  }
  FUZZ_CHECK(o_Cfg.f_SaveCfg() == 0);
  std::string str_Written;
  FUZZ_CHECK(f_FuzzRead(o_Cfg.f_GetCfgFilePath(), str_Written));
  FUZZ_CHECK(f_FuzzIsJsonObject(str_Written.c_str()));
  FUZZ_CHECK(f_FuzzBatchText(SysBatchCntCfg_CL(o_Cfg.f_GetCfgFilePath())) ==
             f_FuzzBatchText(o_Cfg));
}
