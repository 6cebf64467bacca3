// Bus handlers of the batch-counter configurations. The set, clear and delete methods
// work on the sets as last read or changed; only the list re-reads the file first. A
// service that started without its configurations answers each of them with the error
// reply.
#include <syslog.h>

#include "BatchCntCfg.h"
#include "SystemSrv.h"

namespace {
// The program file name announced by "fbatchcntrclear"; -3 names a second program file
// that the service does not keep but whose readers are told to reload it.
constexpr const char* A_C_PRG_CFG_PATH = "/home/tool/config/OkNokCntCfg.json";
constexpr const char* A_C_PRG_CFG2_PATH = "/home/tool/config/OkNokCntCfg2.json";

constexpr int I_CLEAR_ALL = -1;
constexpr int I_ANNOUNCE_PRG = -2;
constexpr int I_ANNOUNCE_PRG2 = -3;
constexpr int I_DELETE_ALL = -1;
constexpr unsigned int UI_LAST_ID = 255;

// Re-reads the program configuration and hands each configured id 0..255 to f_Add.
template <typename F>
bool f_ListConfigured(F f_Add) {
  if (z_o_BatchCntCfg == nullptr || z_o_BatchCntCfg->f_Read(-1) != 0) return false;
  if (z_o_BatchCntCfg->f_GetNrConfiguredCounters() <= 0) return true;
  for (unsigned int ui_Id = 0; ui_Id <= UI_LAST_ID; ++ui_Id) {
    if (!z_o_BatchCntCfg->f_IsConfigured(ui_Id)) continue;
    syslog(LOG_INFO, "f_BatchCntrGet->Counter %d configured", static_cast<int>(ui_Id));
    f_Add(static_cast<guchar>(ui_Id));
  }
  return true;
}
}  // namespace

gboolean f_BatchCntrSet(SysObj* z_o_Obj, int i_Dest, const char* str_BatchCfg, GError**) {
  BatchCntCfg_CL* z_o_Cfg = i_Dest != 0 ? z_o_JobBatchCntCfg : z_o_BatchCntCfg;
  if (z_o_Obj == nullptr || z_o_Cfg == nullptr) return FALSE;
  // The outcome is deliberately not checked: whatever the text held, the file is
  // written and announced, so the readers always end up with what the service holds.
  z_o_Cfg->f_Set(str_BatchCfg, true);
  if (z_o_Cfg->f_SaveCfg() != 0) return FALSE;
  f_EmitCfgFileChanged(z_o_Obj, z_o_Cfg->f_GetCfgFilePath());
  return TRUE;
}

gboolean f_BatchCntrClear(SysObj* z_o_Obj, int i_PrgNr, GError**) {
  syslog(LOG_INFO, "f_BatchCntrClear->i_PrgNr %d", i_PrgNr);
  if (z_o_Obj == nullptr || z_o_BatchCntCfg == nullptr) return FALSE;
  switch (i_PrgNr) {
    case I_ANNOUNCE_PRG:
      // Only asks the readers to reload the program file; nothing is written.
      f_EmitCfgFileChanged(z_o_Obj, A_C_PRG_CFG_PATH);
      return TRUE;
    case I_ANNOUNCE_PRG2:
      f_EmitCfgFileChanged(z_o_Obj, A_C_PRG_CFG2_PATH);
      return TRUE;
    case I_CLEAR_ALL:
      // Deliberately written without an announcement; a caller that wants the readers
      // to reload follows up with -2.
      z_o_BatchCntCfg->f_ResetAll();
      return z_o_BatchCntCfg->f_SaveCfg() == 0 ? TRUE : FALSE;
    default:
      z_o_BatchCntCfg->f_Set(i_PrgNr, 0, 0, false);
      if (z_o_BatchCntCfg->f_SaveCfg() != 0) return FALSE;
      f_EmitCfgFileChanged(z_o_Obj, A_C_PRG_CFG_PATH);
      return TRUE;
  }
}

gboolean f_BatchCntrDel(SysObj* z_o_Obj, int i_PrgNr, GError**) {
  syslog(LOG_INFO, "f_BatchCntrDel->i_PrgNr %d", i_PrgNr);
  if (z_o_Obj == nullptr || z_o_BatchCntCfg == nullptr) return FALSE;
  int i_Removed =
      i_PrgNr == I_DELETE_ALL ? z_o_BatchCntCfg->f_DeleteAll() : z_o_BatchCntCfg->f_Delete(i_PrgNr);
  // Nothing went: the file already says so, and the readers need not reload.
  if (i_Removed == 0) return TRUE;
  if (z_o_BatchCntCfg->f_SaveCfg() != 0) return FALSE;
  f_EmitCfgFileChanged(z_o_Obj, z_o_BatchCntCfg->f_GetCfgFilePath());
  return TRUE;
}

gboolean f_BatchCntrList(GVariantBuilder* z_o_Builder) {
  if (z_o_Builder == nullptr) return FALSE;
  return f_ListConfigured(
             [z_o_Builder](guchar uc_Id) { g_variant_builder_add(z_o_Builder, "y", uc_Id); })
             ? TRUE
             : FALSE;
}

gboolean f_BatchCntrGet(SysObj*, GArray** z_o_Array, GError**) {
  if (z_o_Array == nullptr) return FALSE;
  *z_o_Array = nullptr;
  GArray* z_o_Ids = g_array_new(FALSE, FALSE, sizeof(guchar));
  if (!f_ListConfigured([z_o_Ids](guchar uc_Id) { g_array_append_val(z_o_Ids, uc_Id); })) {
    g_array_unref(z_o_Ids);
    return FALSE;
  }
  // The count travels in one byte; 256 sets must not read as none.
  int i_NrCounters = z_o_BatchCntCfg->f_GetNrConfiguredCounters();
  syslog(LOG_INFO, "f_BatchCntrGet->i_NrCounters %d", i_NrCounters);
  guchar uc_Count = static_cast<guchar>(i_NrCounters > 255 ? 255 : i_NrCounters);
  g_array_prepend_val(z_o_Ids, uc_Count);
  syslog(LOG_INFO, "f_BatchCntrGet->len: %d", static_cast<int>(z_o_Ids->len));
  *z_o_Array = z_o_Ids;
  return TRUE;
}
