#pragma once
// Events of the tool's processes that the service relays as signals.
#include <gio/gio.h>

struct SysObj;

gboolean f_ToolEnableGet(SysObj* z_o_Obj, int* i_ToolEnable, GError** error);
gboolean f_ToolEnableSet(SysObj* z_o_Obj, int i_ToolEnable, GError** error);
gboolean f_PrgChanged(SysObj* z_o_Obj, int i_PrgNr, GError** error);
gboolean f_SetJobRunning(SysObj* z_o_Obj, int i_RunningState, GError** error);
gboolean f_AbortStart(SysObj* z_o_Obj, GError** error);
gboolean f_CycleComplete(SysObj* z_o_Obj, GError** error);
gboolean f_NewIDCode(SysObj* z_o_Obj, int i_Dev, int i_DevActive, const char* z_c_IdCode,
                     GError** error);
gboolean f_NewResult(SysObj* z_o_Obj, const char* z_c_DataBasePath, int i_DataSet, GError** error);
gboolean f_IDCodeSrcSet(SysObj* z_o_Obj, int i_IDCodeSrc, int i_DelAfterStart, GError** error);
gboolean f_CfgFileChanged(SysObj* z_o_Obj, const char* z_c_FilePath, GError** error);
gboolean f_BmsOutputChanged(SysObj* z_o_Obj, GError** error);
gboolean f_BmsInputChanged(SysObj* z_o_Obj, GError** error);
