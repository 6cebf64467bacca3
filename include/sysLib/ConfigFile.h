#pragma once
// JSON configuration files shared with other processes: read under an flock on
// "<path>.lock", written atomically (temporary file beside it, fsync, rename).
#include <memory>
#include <string>

#include "sysLib/Holders.h"

class AbstractConfigFile_CL {
 public:
  explicit AbstractConfigFile_CL(const std::string& str_Path);
  virtual ~AbstractConfigFile_CL();
  AbstractConfigFile_CL(const AbstractConfigFile_CL&) = delete;
  AbstractConfigFile_CL& operator=(const AbstractConfigFile_CL&) = delete;

  // Re-reads the file when z_c_Path names it (logical path). 0, or the reader's result.
  virtual int f_CfgFileChanged(const char* z_c_Path);
  // Reads the file into the members; 0 or -1.
  virtual int f_ReadFile() = 0;
  // Re-reads the members from the file (another process rewrote it). 0 or -1.
  virtual int f_NewCfg(const char* z_c_Path);

  // Locks, calls f_ReadFile, unlocks. 0, -1 lock failed, or the reader's result.
  int f_Read(int i_TimeoutMs);
  // Takes the file lock within i_TimeoutMs (-1: without limit). 0 or -1.
  int f_LockFile(int i_TimeoutMs);
  int f_UnlockFile();
  // The logical path ("/home/tool/config/...").
  const char* f_GetCfgFilePath() const { return str_Path.c_str(); }

 protected:
  std::string str_Path;

 private:
  int i_LockFd = -1;
  int i_LockDepth = 0;  // nested f_LockFile calls of this object share one lock
};

class ConfigFileHelper_CL {
 public:
  // Parses the file at the logical path into *z_o_Tree; 0 or -1.
  static int f_ReadCfgFile(cJSON** z_o_Tree, const char* z_c_Path);
  // Writes the tree formatted to the logical path atomically; the caller keeps the tree
  // (in a CJsonTree_T). 0 or -1.
  static int f_WriteCfgFile(const cJSON* o_Tree, const char* z_c_Path);
  // The library's older form for callers that hand a raw tree over: with b_Delete the
  // tree is freed whether the write worked or not.
  static int f_WriteCfgFile(cJSON* o_Tree, const char* z_c_Path, bool b_Delete);
  // Puts o_Item at parent[key]: an existing member of that name (of whatever type a
  // damaged file gave it) is replaced in its place, otherwise the item is appended. The
  // item is taken over in every case, freed when it cannot be put. 0 or -1.
  static int f_PutCfgItem(cJSON* o_Parent, const char* z_c_Key, CJsonTree_T o_Item);
  // Sets tree[section][key] (section null or empty: tree[key]), creating a missing
  // section and replacing an existing key. 0 or -1.
  static int f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                         const char* z_c_Value);
  static int f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                         const std::string& str_Value);
  static int f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key, int i_Value);
  static int f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                         unsigned int ui_Value);
  static int f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key, long l_Value);
  static int f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                         long long ll_Value);
  static int f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                         unsigned long ul_Value);
  static int f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                         double d_Value);
  static int f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key, bool b_Value);
};

// Parses a JSON file (logical path); 0 on success, non-zero on failure.
int f_ReadJsonCfgFile(const char* z_c_Path, cJSON** z_o_Tree);
// Writes text to a logical path atomically (temporary beside it, fsync, rename). 0 or -1.
int f_WriteFileAtomic(const char* z_c_Path, const std::string& str_Text);
