// "fbatchcntrset" to the program (0) or job configuration: the file written reads back to
// the sets the service holds, and a set with a usable id ends up as its text says.
#include <string>

#include "BatchCntCfg.h"
#include "FuzzSupport.h"
#include "SystemSrv.h"

FUZZ_TARGET(true, false) {
  static BatchCntCfg_CL* z_o_Prg = z_o_BatchCntCfg = new BatchCntCfg_CL(A_C_FUZZ_PRG_PATH);
  static BatchCntCfg_CL* z_o_Job = z_o_JobBatchCntCfg = new BatchCntCfg_CL(A_C_FUZZ_JOB_PATH);
  static SysObj o_Obj{};  // no bus connection: the announcement is logged and dropped
  int i_Dest = (o_In.f_Byte() & 1) ? 7 : 0;
  std::string str_Text = o_In.f_Rest();
  BatchCntCfg_CL* z_o_Cfg = i_Dest != 0 ? z_o_Job : z_o_Prg;

  FUZZ_CHECK(f_BatchCntrSet(&o_Obj, i_Dest, str_Text.c_str(), nullptr));
  FUZZ_CHECK(f_FuzzBatchText(SysBatchCntCfg_CL(z_o_Cfg->f_GetCfgFilePath())) ==
             f_FuzzBatchText(*z_o_Cfg));
  // The text applied to a fresh set gives the same set: nothing depends on what was held.
  BatchCntCfg_CL o_Fresh("/home/tool/config/FuzzFresh.json");
  CounterSet_ST o_Want, o_Got;
  int i_Id = 0;
  if (o_Fresh.f_Set(str_Text.c_str(), true) == 0) {
    while (i_Id <= 255 && o_Fresh.f_GetCounterSet(i_Id, &o_Want) != 0) ++i_Id;
    if (i_Id <= 255) {
      FUZZ_CHECK(z_o_Cfg->f_GetCounterSet(i_Id, &o_Got) == 0);
      FUZZ_CHECK(f_FuzzSetText(o_Want) == f_FuzzSetText(o_Got));
    }
  }
  // Many ids over a run: start the next input from an empty configuration.
  if (z_o_Cfg->f_GetNrConfiguredCounters() > 32) {
    z_o_Cfg->f_DeleteAll();
    z_o_Cfg->f_SaveCfg();
  }
}
