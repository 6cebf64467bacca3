// Events of the tightening, result and user-interface processes, relayed as signals so
// that none of them has to know the others.
#include "ToolEvents.h"

#include <syslog.h>
#include <unistd.h>

#include "BatchCntCfg.h"
#include "ChanCfg.h"
#include "ErrorHandler.h"
#include "SystemSrv.h"
#include "sysLib/ConfigFile.h"
#include "sysLib/SysDiag.h"

#include <cjson/cJSON.h>

gboolean f_ToolEnableGet(SysObj* z_o_Obj, int* i_ToolEnable, GError**) {
  *i_ToolEnable = z_o_Obj->i_ToolEnable ? 1 : 0;
  return TRUE;
}

gboolean f_ToolEnableSet(SysObj* z_o_Obj, int i_ToolEnable, GError**) {
  z_o_Obj->i_ToolEnable = (i_ToolEnable != 0);
  // The only emitter that survives a failed emission: the tool-enable state is kept
  // and the next change is announced again.
  GError* local_error = nullptr;
  if (!f_EmitSignal(z_o_Obj, "toolenable", g_variant_new("(i)", i_ToolEnable), &local_error) &&
      local_error != nullptr) {
    syslog(LOG_WARNING, "f_ToolEnableSet->local_error %s", local_error->message);
    g_clear_error(&local_error);
  }
  return TRUE;
}

gboolean f_PrgChanged(SysObj* z_o_Obj, int i_PrgNr, GError**) {
  SYS_EMIT_SIGNAL(z_o_Obj, "prgchanged", g_variant_new("(i)", i_PrgNr));
  return TRUE;
}

gboolean f_SetJobRunning(SysObj* z_o_Obj, int i_RunningState, GError**) {
  if (i_RunningState == z_o_Obj->i_JobRunningStatus) return TRUE;
  SYS_EMIT_SIGNAL(z_o_Obj, "jobrunningstatuschanged", g_variant_new("(i)", i_RunningState));
  z_o_Obj->i_JobRunningStatus = i_RunningState;
  return TRUE;
}

gboolean f_AbortStart(SysObj* z_o_Obj, GError**) {
  SYS_EMIT_SIGNAL(z_o_Obj, "abortstart", nullptr);
  return TRUE;
}

gboolean f_CycleComplete(SysObj* z_o_Obj, GError**) {
  // A weak battery is announced again after every cycle so the user is reminded.
  if (z_o_Obj->i_BattStatus == 5)
    SYS_EMIT_SIGNAL(z_o_Obj, "battstatuschanged", g_variant_new("(i)", 5));
  return TRUE;
}

gboolean f_NewIDCode(SysObj* z_o_Obj, int i_Dev, int i_DevActive, const char* z_c_IdCode,
                     GError**) {
  SYS_EMIT_SIGNAL(z_o_Obj, "newidcode", g_variant_new("(iis)", i_Dev, i_DevActive, z_c_IdCode));
  return TRUE;
}

gboolean f_NewResult(SysObj* z_o_Obj, const char* z_c_DataBasePath, int i_DataSet, GError**) {
  SYS_EMIT_SIGNAL(z_o_Obj, "newresult", g_variant_new("(si)", z_c_DataBasePath, i_DataSet));
  return TRUE;
}

namespace {
constexpr const char* A_C_RES_SRV_PATH = "/home/tool/config/ResSrv.json";

// Integer value of a number or boolean member (true counts as 1).
int f_IntOf(const cJSON* z_o_Item) {
  if (cJSON_IsBool(z_o_Item)) return cJSON_IsTrue(z_o_Item) ? 1 : 0;
  return z_o_Item->valueint;
}
}  // namespace

gboolean f_IDCodeSrcSet(SysObj* z_o_Obj, int i_IDCodeSrc, int i_DelAfterStart, GError**) {
  cJSON* z_o_Read = nullptr;
  if (f_ReadJsonCfgFile(A_C_RES_SRV_PATH, &z_o_Read) != 0) return FALSE;
  CJsonTree_T o_Tree(z_o_Read);
  cJSON* z_o_Tree = o_Tree.get();
  cJSON* z_o_IdCode = cJSON_GetObjectItem(z_o_Tree, "id_code");
  if (z_o_IdCode == nullptr) {
    syslog(LOG_WARNING, "f_IDCodeSrcSet - key '%s' not found", "id_code");
    return TRUE;
  }
  // The file belongs to the result server: it is written only when a value really changes.
  const cJSON* z_o_Active = cJSON_GetObjectItem(z_o_IdCode, "active");
  const cJSON* z_o_Del = cJSON_GetObjectItem(z_o_IdCode, "del_after_start");
  bool b_Change = (z_o_Active != nullptr && f_IntOf(z_o_Active) != i_IDCodeSrc) ||
                  (z_o_Del != nullptr && f_IntOf(z_o_Del) != i_DelAfterStart);
  if (b_Change) {
    ConfigFileHelper_CL::f_SetCfgKey(z_o_Tree, "id_code", "active", i_IDCodeSrc);
    cJSON* z_o_Src = cJSON_GetObjectItem(z_o_IdCode, "src");
    if (cJSON_IsArray(z_o_Src) && cJSON_GetArrayItem(z_o_Src, i_IDCodeSrc) == nullptr) {
      cJSON* z_o_Entry = cJSON_CreateObject();
      cJSON_AddItemToObject(z_o_Entry, "id", cJSON_CreateNumber(i_IDCodeSrc));
      cJSON_AddItemToObject(z_o_Entry, "show", cJSON_CreateTrue());
      cJSON_AddItemToObject(z_o_Entry, "name", cJSON_CreateString("from init.lua"));
      cJSON_AddItemToArray(z_o_Src, z_o_Entry);
    }
    ConfigFileHelper_CL::f_SetCfgKey(z_o_Tree, "id_code", "del_after_start",
                                     i_DelAfterStart != 0);
    ConfigFileHelper_CL::f_WriteCfgFile(z_o_Tree, A_C_RES_SRV_PATH);
    f_EmitCfgFileChanged(z_o_Obj, A_C_RES_SRV_PATH);
  }
  return TRUE;
}

gboolean f_CfgFileChanged(SysObj* z_o_Obj, const char* z_c_FilePath, GError**) {
  // No configuration is re-read while the diagnostic store is busy; blocking the loop
  // here is intended.
  bool b_Busy = false;
  while (f_SysDiagGetSrbMod(&b_Busy) == 0 && b_Busy) g_usleep(250000);
  syslog(LOG_INFO, "f_CfgFileChanged->%s", z_c_FilePath);
  sync();
  if (z_o_ErrorHandler != nullptr) z_o_ErrorHandler->f_CfgFileChanged(z_c_FilePath);
  if (z_o_ChanCfg != nullptr) z_o_ChanCfg->f_NewCfg(z_c_FilePath);
  if (z_o_BatchCntCfg != nullptr) z_o_BatchCntCfg->f_CfgFileChanged(z_c_FilePath);
  f_EmitCfgFileChanged(z_o_Obj, z_c_FilePath);
  return TRUE;
}

gboolean f_BmsOutputChanged(SysObj* z_o_Obj, GError**) {
  f_AccessDbus(z_o_Obj);
  f_ReleaseDbus(z_o_Obj);
  return TRUE;
}

gboolean f_BmsInputChanged(SysObj* z_o_Obj, GError**) {
  f_AccessDbus(z_o_Obj);
  f_ReleaseDbus(z_o_Obj);
  return TRUE;
}
