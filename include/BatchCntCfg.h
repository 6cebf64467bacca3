#pragma once
// OK/NOK batch-counter configurations of programs and jobs.
#include <gio/gio.h>
#include <string>

#include "sysLib/SysBatchCntCfg.h"

struct SysObj;

// One counter configuration file that the service changes for the other processes.
// Every change works on the sets in memory; f_SaveCfg puts them into the file.
class BatchCntCfg_CL : public SysBatchCntCfg_CL {
 public:
  explicit BatchCntCfg_CL(std::string str_Path);
  ~BatchCntCfg_CL() override;

  // Applies one counter set given as a JSON object. Without b_Create only an existing set
  // is changed. Keys missing from the text take their defaults (see
  // SysBatchCntCfg_CL::f_CounterSetFromJson). 0 when a set was written, -1 when the text
  // does not parse, has no usable "Id", the id is negative, or the set is missing.
  int f_Set(const char* z_c_Json, bool b_Create);
  // Sets the batch sizes of set i_Id (i_MaxNok -1 keeps the NOK size of an existing set).
  // A set created here gets both directions up and all locks but LockCcwAfterNok on.
  // 0 when a set was changed or made, -1 otherwise.
  int f_Set(int i_Id, int i_MaxOk, int i_MaxNok, bool b_Create);
  // f_Set(id, ...) for every id 0..255; false (nothing done) when there are no sets.
  bool f_SetAll(int i_MaxOk, int i_MaxNok, bool b_Create);
  // 1 when the set existed and was removed, else 0.
  int f_Delete(int i_Id);
  // 1 when there were sets and they were removed, else 0.
  int f_DeleteAll();
  // Puts an existing set back to sizes 0, directions up, all locks off; 0 or -1 (no set).
  int f_Reset(int i_Id);
  void f_ResetAll();
  // Writes the sets 0..255 and BmsSelect to the file (replacing it atomically). 0 or -1.
  int f_WriteFile();
  // f_WriteFile under the file lock: 0, -1 lock not taken within i_TimeoutMs, -2 write
  // failed.
  int f_Write(int i_TimeoutMs);
  // f_Write(-1); 0 or -1.
  int f_SaveCfg();
};

gboolean f_BatchCntrSet(SysObj* z_o_Obj, int i_Dest, const char* str_BatchCfg, GError** error);
gboolean f_BatchCntrClear(SysObj* z_o_Obj, int i_PrgNr, GError** error);
gboolean f_BatchCntrDel(SysObj* z_o_Obj, int i_PrgNr, GError** error);
// "fbatchcntrget": re-reads the program configuration and adds every configured id
// 0..255 to the builder ("ay"). FALSE when the file could not be read.
gboolean f_BatchCntrList(GVariantBuilder* z_o_Builder);
// The same list in a new byte array (*z_o_Array, the caller frees it with
// g_array_unref) that starts with the number of sets (at most 255). FALSE when the file
// could not be read.
gboolean f_BatchCntrGet(SysObj* z_o_Obj, GArray** z_o_Array, GError** error);
