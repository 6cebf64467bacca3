// Changing and writing the batch-counter configurations. The tool process reloads a file
// whenever we announce it, so a file must always be complete: it is replaced through a
// temporary file and a rename, never rewritten in place.
#include "BatchCntCfg.h"

#include <cerrno>
#include <cjson/cJSON.h>
#include <cstring>
#include <memory>
#include <syslog.h>
#include <utility>

namespace {
// Only these ids reach the file: the tool process keeps 256 counters per configuration.
constexpr int I_FIRST_ID = 0;
constexpr int I_LAST_ID = 255;

cJSON* f_Bool(bool b_Value) { return b_Value ? cJSON_CreateTrue() : cJSON_CreateFalse(); }

// One counter-set object with its keys in the order the readers of the file expect;
// null when memory ran out (a set with missing keys would be read back with defaults).
cJSON* f_MakeSetObject(int i_Id, const CounterSet_ST& o_Set) {
  CJsonTree_T o_Obj(cJSON_CreateObject());
  if (!o_Obj) return nullptr;
  const std::pair<const char*, cJSON*> a_o_Keys[] = {
      {"Id", cJSON_CreateNumber(i_Id)},
      {"MaxOk", cJSON_CreateNumber(o_Set.MaxOk)},
      {"MaxNok", cJSON_CreateNumber(o_Set.MaxNok)},
      {"DirectionOk", cJSON_CreateString(o_Set.DirectionOk ? "up" : "down")},
      {"DirectionNok", cJSON_CreateString(o_Set.DirectionNok ? "up" : "down")},
      {"LockTool", f_Bool(o_Set.LockTool)},
      {"LockCcw", f_Bool(o_Set.LockCcw)},
      {"LockCcwAfterOk", f_Bool(o_Set.LockCcwAfterOk)},
      {"LockCcwAfterNok", f_Bool(o_Set.LockCcwAfterNok)},
  };
  bool b_Ok = true;
  for (const auto& o_Key : a_o_Keys) {
    CJsonTree_T o_Item(o_Key.second);  // freed here when the object does not take it
    if (!b_Ok || ConfigFileHelper_CL::f_PutCfgItem(o_Obj.get(), o_Key.first, std::move(o_Item)) != 0)
      b_Ok = false;
  }
  return b_Ok ? o_Obj.release() : nullptr;
}
}  // namespace

BatchCntCfg_CL::BatchCntCfg_CL(std::string str_Path) : SysBatchCntCfg_CL(std::move(str_Path)) {}

BatchCntCfg_CL::~BatchCntCfg_CL() = default;

int BatchCntCfg_CL::f_Set(const char* z_c_Json, bool b_Create) {
  if (z_c_Json == nullptr) return -1;
  CJsonTree_T o_Tree(cJSON_Parse(z_c_Json));
  if (!o_Tree) {
    syslog(LOG_WARNING, "BatchCntCfg_CL::f_Set - counter set is not valid JSON");
    return -1;
  }
  int i_Id = -1;
  if (!cJSON_IsObject(o_Tree.get()) || !f_JsonId(o_Tree.get(), &i_Id) || i_Id < 0) {
    syslog(LOG_WARNING, "BatchCntCfg_CL::f_Set - counter set without a valid \"Id\"");
    return -1;
  }
  auto o_It = o_CntrMap.find(i_Id);
  if (o_It == o_CntrMap.end() && !b_Create) return -1;
  o_CntrMap[i_Id] = f_CounterSetFromJson(o_Tree.get());
  return 0;
}

int BatchCntCfg_CL::f_Set(int i_Id, int i_MaxOk, int i_MaxNok, bool b_Create) {
  auto o_It = o_CntrMap.find(i_Id);
  if (o_It != o_CntrMap.end()) {
    o_It->second.MaxOk = i_MaxOk;
    if (i_MaxNok != -1) o_It->second.MaxNok = i_MaxNok;
    return 0;
  }
  if (!b_Create) return -1;
  // A set made from sizes alone counts up and locks like a fully configured one; only
  // the NOK after-result lock stays off.
  CounterSet_ST o_Set{};
  o_Set.MaxOk = i_MaxOk;
  o_Set.MaxNok = i_MaxNok == -1 ? 0 : i_MaxNok;
  o_Set.DirectionOk = true;
  o_Set.DirectionNok = true;
  o_Set.LockTool = true;
  o_Set.LockCcw = true;
  o_Set.LockCcwAfterOk = true;
  o_Set.LockCcwAfterNok = false;
  o_CntrMap[i_Id] = o_Set;
  return 0;
}

bool BatchCntCfg_CL::f_SetAll(int i_MaxOk, int i_MaxNok, bool b_Create) {
  if (o_CntrMap.empty()) {
    syslog(LOG_INFO, "BatchCntCfg_CL::f_SetAll - o_CntrMap is empty");
    return false;
  }
  for (int i_Id = I_FIRST_ID; i_Id <= I_LAST_ID; ++i_Id) f_Set(i_Id, i_MaxOk, i_MaxNok, b_Create);
  return true;
}

int BatchCntCfg_CL::f_Delete(int i_Id) { return o_CntrMap.erase(i_Id) != 0 ? 1 : 0; }

int BatchCntCfg_CL::f_DeleteAll() {
  if (o_CntrMap.empty()) return 0;
  o_CntrMap.clear();
  return 1;
}

int BatchCntCfg_CL::f_Reset(int i_Id) {
  auto o_It = o_CntrMap.find(i_Id);
  if (o_It == o_CntrMap.end()) return -1;
  CounterSet_ST& o_Set = o_It->second;
  o_Set.MaxOk = 0;
  o_Set.MaxNok = 0;
  o_Set.DirectionOk = true;
  o_Set.DirectionNok = true;
  o_Set.LockTool = false;
  o_Set.LockCcw = false;
  o_Set.LockCcwAfterOk = false;
  o_Set.LockCcwAfterNok = false;
  return 0;
}

void BatchCntCfg_CL::f_ResetAll() {
  for (auto& o_Entry : o_CntrMap) f_Reset(o_Entry.first);
}

int BatchCntCfg_CL::f_WriteFile() {
  CJsonTree_T o_Root(cJSON_CreateObject());
  if (!o_Root) {
    syslog(LOG_CRIT, "cJSON_CreateObject->NULL");
    return -1;
  }
  cJSON* z_o_Sets = cJSON_CreateArray();
  if (ConfigFileHelper_CL::f_PutCfgItem(o_Root.get(), "CntrSets", CJsonTree_T(z_o_Sets)) != 0) {
    syslog(LOG_CRIT, "BatchCntCfg_CL::f_WriteFile - cannot build \"CntrSets\"");
    return -1;
  }
  // Sets outside 0..255 stay in memory but have no counter in the tool process.
  for (auto o_It = o_CntrMap.lower_bound(I_FIRST_ID);
       o_It != o_CntrMap.end() && o_It->first <= I_LAST_ID; ++o_It) {
    cJSON* z_o_Set = f_MakeSetObject(o_It->first, o_It->second);
    if (z_o_Set == nullptr) {
      syslog(LOG_CRIT, "BatchCntCfg_CL::f_WriteFile->Conterset %d cJSON_CreateObject()== NULL",
             o_It->first);
      continue;
    }
    cJSON_AddItemToArray(z_o_Sets, z_o_Set);
  }
  if (ConfigFileHelper_CL::f_PutCfgItem(o_Root.get(), "BmsSelect", CJsonTree_T(f_Bool(BmsSelect))) !=
      0) {
    syslog(LOG_CRIT, "BatchCntCfg_CL::f_WriteFile - cannot build \"BmsSelect\"");
    return -1;
  }

  CJsonText_T o_Text(cJSON_Print(o_Root.get()));
  o_Root.reset();
  if (!o_Text) {
    syslog(LOG_CRIT, "BatchCntCfg_CL::f_WriteFile - cannot format %s", str_Path.c_str());
    return -1;
  }
  // Temporary file beside the old one, fsync, rename: a power cut or a full disk leaves
  // the old file or the new one, never a truncated one the tool process would reload.
  std::string str_Text(o_Text.get());
  if (f_WriteFileAtomic(str_Path.c_str(), str_Text) != 0) {
    syslog(LOG_CRIT, "BatchCntCfg_CL::f_WriteFile open %s", strerror(errno));
    return -1;
  }
  syslog(LOG_INFO, "BatchCntCfg_CL::f_GenerateCfgFile->i_BytesWritten: %d\n",
         static_cast<int>(str_Text.size()));
  return 0;
}

int BatchCntCfg_CL::f_Write(int i_TimeoutMs) {
  FileLockGuard_CL<BatchCntCfg_CL> o_Lock(*this, i_TimeoutMs);
  if (!o_Lock.f_Locked()) {
    syslog(LOG_ERR, "BatchCntCfg_CL::f_Write(): f_LockFile(timeout=%d ms) returned -1", i_TimeoutMs);
    return -1;
  }
  int i_Ret = f_WriteFile();
  if (i_Ret != 0) {
    syslog(LOG_ERR, "BatchCntCfg_CL::f_Write(): f_WriteFile() returned %d", i_Ret);
    return -2;
  }
  return 0;
}

int BatchCntCfg_CL::f_SaveCfg() {
  if (f_Write(-1) != 0) {
    syslog(LOG_CRIT, "BatchCntCfg_CL::f_Set->f_Write!=0");
    return -1;
  }
  return 0;
}
