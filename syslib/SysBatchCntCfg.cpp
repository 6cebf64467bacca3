// Reader of the batch-counter configuration files. Another process may rewrite a file
// at any time, and a person may edit one by hand; a damaged file must never cost the
// tool the counter sets it already has, so a new map only replaces the old one once the
// whole file has been understood.
#include "sysLib/SysBatchCntCfg.h"

#include <cerrno>
#include <climits>
#include <cjson/cJSON.h>
#include <cmath>
#include <cstring>
#include <memory>
#include <syslog.h>
#include <utility>

#include "sysLib/SysFile.h"
#include "sysLib/SysPath.h"

namespace {
// A full file of 256 sets is some 60 KiB; anything far beyond that is not ours.
constexpr size_t UI_MAX_FILE_SIZE = 1024u * 1024u;

}  // namespace

SysBatchCntCfg_CL::SysBatchCntCfg_CL(std::string str_Path)
    : AbstractConfigFile_CL(std::move(str_Path)) {
  // Without the sets from the file the first change over the bus would write a file
  // holding only that change, so the start-up read must happen here.
  if (f_Read(-1) != 0)
    syslog(LOG_CRIT, "SysBatchCntCfg_CL - %s not read, starting without counter sets",
           this->str_Path.c_str());
}

SysBatchCntCfg_CL::~SysBatchCntCfg_CL() = default;

int SysBatchCntCfg_CL::f_CfgFileChanged(const char* z_c_Path) {
  if (z_c_Path == nullptr || str_Path != z_c_Path) return 0;
  syslog(LOG_INFO, "SysBatchCntCfg_CL::f_CfgFileChanged->%s", z_c_Path);
  return f_Read(-1);
}

int SysBatchCntCfg_CL::f_JsonInt(const cJSON* z_o_Item) {
  if (cJSON_IsTrue(z_o_Item)) return 1;
  if (!cJSON_IsNumber(z_o_Item)) return 0;
  // valuedouble, not a cast of anything larger: 1e300 or -1e300 from a client must give
  // a defined result, and the comparisons below keep the conversion inside int.
  double d_Value = z_o_Item->valuedouble;
  if (std::isnan(d_Value)) return 0;
  if (d_Value >= static_cast<double>(INT_MAX)) return INT_MAX;
  if (d_Value <= static_cast<double>(INT_MIN)) return INT_MIN;
  return static_cast<int>(d_Value);
}

bool SysBatchCntCfg_CL::f_JsonId(const cJSON* z_o_Object, int* z_i_Id) {
  const cJSON* z_o_Id = cJSON_GetObjectItem(z_o_Object, "Id");
  // A text or a boolean as id would land on set 0 or 1; such an entry names no set.
  if (!cJSON_IsNumber(z_o_Id)) return false;
  *z_i_Id = f_JsonInt(z_o_Id);
  return true;
}

CounterSet_ST SysBatchCntCfg_CL::f_CounterSetFromJson(const cJSON* z_o_Object) {
  auto f_Up = [z_o_Object](const char* z_c_Key) {
    const cJSON* z_o_Item = cJSON_GetObjectItem(z_o_Object, z_c_Key);
    return cJSON_IsString(z_o_Item) && z_o_Item->valuestring != nullptr &&
           strcmp(z_o_Item->valuestring, "up") == 0;
  };
  // The locks that protect the operator default to on, the stricter after-result locks
  // to off: a half-filled set must not leave the tool unlocked by accident.
  auto f_Flag = [z_o_Object](const char* z_c_Key, bool b_Default) {
    const cJSON* z_o_Item = cJSON_GetObjectItem(z_o_Object, z_c_Key);
    return z_o_Item == nullptr ? b_Default : f_JsonInt(z_o_Item) != 0;
  };
  CounterSet_ST o_Set{};
  o_Set.MaxOk = f_JsonInt(cJSON_GetObjectItem(z_o_Object, "MaxOk"));
  o_Set.MaxNok = f_JsonInt(cJSON_GetObjectItem(z_o_Object, "MaxNok"));
  o_Set.DirectionOk = f_Up("DirectionOk");
  o_Set.DirectionNok = f_Up("DirectionNok");
  o_Set.LockTool = f_Flag("LockTool", true);
  o_Set.LockCcw = f_Flag("LockCcw", true);
  o_Set.LockCcwAfterOk = f_Flag("LockCcwAfterOk", false);
  o_Set.LockCcwAfterNok = f_Flag("LockCcwAfterNok", false);
  return o_Set;
}

int SysBatchCntCfg_CL::f_ReadFile() {
  std::string str_Text;
  if (f_ReadWholeFile(f_SysPath(str_Path), str_Text, UI_MAX_FILE_SIZE) != 0) {
    if (errno == ENOENT) {
      // Nobody has configured a counter yet: that is an empty configuration.
      o_CntrMap.clear();
      BmsSelect = false;
      return 0;
    }
    syslog(LOG_CRIT, "SysBatchCntCfg_CL::f_ReadFile - %s: %s", str_Path.c_str(), strerror(errno));
    return -1;
  }
  CJsonTree_T o_Tree(cJSON_Parse(str_Text.c_str()));
  if (!o_Tree) {
    syslog(LOG_CRIT, "SysBatchCntCfg_CL::f_ReadFile - %s is not valid JSON, sets kept",
           str_Path.c_str());
    return -1;
  }
  const cJSON* z_o_Sets = cJSON_GetObjectItem(o_Tree.get(), "CntrSets");
  if (!cJSON_IsArray(z_o_Sets)) {
    syslog(LOG_CRIT, "SysBatchCntCfg_CL::f_ReadFile - %s has no \"CntrSets\" array, sets kept",
           str_Path.c_str());
    return -1;
  }

  std::map<int, CounterSet_ST> o_NewMap;
  int i_Index = 0;
  const cJSON* z_o_Entry = nullptr;
  cJSON_ArrayForEach(z_o_Entry, z_o_Sets) {
    int i_Id = -1;
    // One unusable entry is skipped, not the whole file: the other programs keep
    // their batches.
    if (!cJSON_IsObject(z_o_Entry) || !f_JsonId(z_o_Entry, &i_Id)) {
      syslog(LOG_WARNING, "SysBatchCntCfg_CL::f_ReadFile - %s: entry %d has no \"Id\", skipped",
             str_Path.c_str(), i_Index);
    } else {
      // A repeated id: the later entry wins, as it would for a reader going top down.
      o_NewMap[i_Id] = f_CounterSetFromJson(z_o_Entry);
    }
    ++i_Index;
  }
  o_CntrMap.swap(o_NewMap);
  BmsSelect = f_JsonInt(cJSON_GetObjectItem(o_Tree.get(), "BmsSelect")) != 0;
  return 0;
}

int SysBatchCntCfg_CL::f_GetNrConfiguredCounters() const {
  return static_cast<int>(o_CntrMap.size());
}

bool SysBatchCntCfg_CL::f_IsConfigured(unsigned int ui_Id) const {
  if (ui_Id > static_cast<unsigned int>(INT_MAX)) return false;
  return o_CntrMap.count(static_cast<int>(ui_Id)) != 0;
}

int SysBatchCntCfg_CL::f_GetCounterSet(int i_Id, CounterSet_ST* z_o_Set) const {
  auto o_It = o_CntrMap.find(i_Id);
  if (o_It == o_CntrMap.end() || z_o_Set == nullptr) return -1;
  *z_o_Set = o_It->second;
  return 0;
}
