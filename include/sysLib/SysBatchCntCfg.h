#pragma once
// Batch OK/NOK counter configuration files ("OkNokCntCfg.json", "JobOkNokCntCfg.json"):
// the counter sets by id and the BMS selection flag, read under the configuration-file
// lock. The tool process reads the same files; the service changes and writes them.
#include <map>
#include <string>

#include "sysLib/ConfigFile.h"

struct cJSON;

// One counter set: batch sizes, count directions and tool locks.
struct CounterSet_ST {
  int MaxOk;             // batch size of OK results
  int MaxNok;            // batch size of NOK results
  bool DirectionOk;      // true: the OK count runs up, false: down
  bool DirectionNok;     // the same for the NOK count
  bool LockTool;         // lock the tool when the batch is complete
  bool LockCcw;          // lock counter-clockwise running
  bool LockCcwAfterOk;   // lock counter-clockwise running after an OK result
  bool LockCcwAfterNok;  // lock counter-clockwise running after a NOK result
};

class SysBatchCntCfg_CL : public AbstractConfigFile_CL {
 public:
  // Reads the file once under the lock (waiting for it). A file that cannot be read
  // leaves the configuration empty and is logged; nothing is thrown for it.
  explicit SysBatchCntCfg_CL(std::string str_Path);
  ~SysBatchCntCfg_CL() override;

  // Re-reads the file when z_c_Path is its logical path; 0 otherwise or on success, -1
  // when the re-read failed (the sets stay as they were).
  int f_CfgFileChanged(const char* z_c_Path) override;
  // Reads the file into o_CntrMap and BmsSelect (call it under the lock, or use f_Read).
  // A missing file is an empty configuration: 0. A file that cannot be read, does not
  // parse, or whose "CntrSets" is not an array: -1, and the sets stay as they were.
  int f_ReadFile() override;

  // Number of sets held, ids outside 0..255 included.
  int f_GetNrConfiguredCounters() const;
  bool f_IsConfigured(unsigned int ui_Id) const;
  // Copies set i_Id into *z_o_Set; 0, or -1 when there is no such set.
  int f_GetCounterSet(int i_Id, CounterSet_ST* z_o_Set) const;
  bool f_GetBmsSelect() const { return BmsSelect; }

  // Integer value of a JSON item: numbers truncated and clamped to the int range, true 1,
  // anything else (false, strings, null, containers) 0.
  static int f_JsonInt(const cJSON* z_o_Item);
  // A counter set from one JSON object with the keys of the file. Missing keys: sizes 0,
  // directions down, LockTool and LockCcw on, the after-result locks off.
  static CounterSet_ST f_CounterSetFromJson(const cJSON* z_o_Object);
  // The "Id" of a counter-set object; false when it is missing or not a number.
  static bool f_JsonId(const cJSON* z_o_Object, int* z_i_Id);

 protected:
  std::map<int, CounterSet_ST> o_CntrMap;  // ordered by id
  bool BmsSelect = false;
};
