#pragma once
// The two batch-counter targets compare configurations set by set.
#include <string>

#include "BatchCntCfg.h"

namespace fuzz {
constexpr const char* A_C_PRG_PATH = "/home/tool/config/OkNokCntCfg.json";
constexpr const char* A_C_JOB_PATH = "/home/tool/config/JobOkNokCntCfg.json";

inline std::string f_SetText(const CounterSet_ST& o_Set) {
  return std::to_string(o_Set.MaxOk) + ',' + std::to_string(o_Set.MaxNok) + ',' +
         char('0' + o_Set.DirectionOk) + char('0' + o_Set.DirectionNok) +
         char('0' + o_Set.LockTool) + char('0' + o_Set.LockCcw) +
         char('0' + o_Set.LockCcwAfterOk) + char('0' + o_Set.LockCcwAfterNok);
}

// Sets 0..255 and the selection flag as one text; two configurations the tool process
// cannot tell apart give the same text.
inline std::string f_BatchText(const SysBatchCntCfg_CL& o_Cfg) {
  std::string str_Out = o_Cfg.f_GetBmsSelect() ? "B" : "b";
  for (int i_Id = 0; i_Id <= 255; ++i_Id) {
    CounterSet_ST o_Set;
    if (o_Cfg.f_GetCounterSet(i_Id, &o_Set) != 0) continue;
    str_Out += ' ' + std::to_string(i_Id) + ':' + f_SetText(o_Set);
  }
  return str_Out;
}

// What a process reading the file now gets.
inline std::string f_BatchFileText(const char* z_c_Path) {
  SysBatchCntCfg_CL o_Reader(z_c_Path);
  return f_BatchText(o_Reader);
}
}  // namespace fuzz
