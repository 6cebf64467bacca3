/* The two places where the library reads JSON: the service's list of active errors, and
 * the channel configuration that holds the maintenance factor. */
#include <cjson/cJSON.h>
#include <math.h>

#include "SysSrvPrivate.h"

/* Where the service keeps the channel configuration; on a simulated tool (SYSSRV_ROOT set)
 * every absolute path of the tool lies under that root, as for the service itself. */
#define A_C_CHAN_CFG "/home/tool/config/ChanCfg.json"

static gint f_IntMember(const cJSON* z_o_Obj, const gchar* z_c_Key) {
  const cJSON* z_o_Item = cJSON_GetObjectItemCaseSensitive(z_o_Obj, z_c_Key);
  return cJSON_IsNumber(z_o_Item) ? (gint)z_o_Item->valuedouble : 0;
}

GPtrArray* f_ParseActiveErrors(const gchar* z_c_Json, GError** error) {
  cJSON* z_o_Root = cJSON_Parse(z_c_Json);
  const cJSON* z_o_List = cJSON_GetObjectItemCaseSensitive(z_o_Root, "errors");
  if (!cJSON_IsArray(z_o_List)) {
    cJSON_Delete(z_o_Root);
    g_set_error(error, SYS_SRV_CLIENT_ERROR, SYS_SRV_CLIENT_ERROR_INCOMPATIBLE,
                "fgetunacknsyserrors: not an error list: %.60s", z_c_Json);
    return NULL;
  }
  GPtrArray* z_o_Out = g_ptr_array_new_with_free_func((GDestroyNotify)sys_srv_error_entry_free);
  const cJSON* z_o_Item;
  cJSON_ArrayForEach(z_o_Item, z_o_List) {
    SysSrvErrorEntry* z_o_Entry = g_new0(SysSrvErrorEntry, 1);
    z_o_Entry->code = f_IntMember(z_o_Item, "code");
    z_o_Entry->error_class = f_IntMember(z_o_Item, "class");
    const cJSON* z_o_Date = cJSON_GetObjectItemCaseSensitive(z_o_Item, "date");
    z_o_Entry->date = cJSON_IsNumber(z_o_Date) ? (gint64)z_o_Date->valuedouble : 0;
    g_ptr_array_add(z_o_Out, z_o_Entry);
  }
  cJSON_Delete(z_o_Root);
  return z_o_Out;
}

gboolean f_ReadMfu(gint* z_i_Mfu, GError** error) {
  const gchar* z_c_Root = g_getenv("SYSSRV_ROOT");
  gchar* z_c_Path = g_strconcat(z_c_Root ? z_c_Root : "", A_C_CHAN_CFG, NULL);
  gchar* z_c_Text = NULL;
  GError* z_o_Err = NULL;
  gboolean b_Read = g_file_get_contents(z_c_Path, &z_c_Text, NULL, &z_o_Err);
  g_free(z_c_Path);
  if (!b_Read) {
    g_set_error(error, SYS_SRV_CLIENT_ERROR, SYS_SRV_CLIENT_ERROR_FAILED,
                "the channel configuration cannot be read: %s", z_o_Err->message);
    g_error_free(z_o_Err);
    return FALSE;
  }
  cJSON* z_o_Root = cJSON_Parse(z_c_Text);
  g_free(z_c_Text);
  if (!cJSON_IsObject(z_o_Root)) {
    cJSON_Delete(z_o_Root);
    g_set_error_literal(error, SYS_SRV_CLIENT_ERROR, SYS_SRV_CLIENT_ERROR_FAILED,
                        "the channel configuration is damaged");
    return FALSE;
  }
  /* Without a stored factor the service works with 1, as with a missing drive part. */
  const cJSON* z_o_Factor = cJSON_GetObjectItemCaseSensitive(
      cJSON_GetObjectItemCaseSensitive(z_o_Root, "Mfu"), "MfuFaktor");
  double d_Factor = cJSON_IsNumber(z_o_Factor) ? z_o_Factor->valuedouble : 1.0;
  cJSON_Delete(z_o_Root);
  /* The factor is stored in single precision; rounding gives back the thousandths that
   * were set. */
  if (z_i_Mfu) *z_i_Mfu = (gint)lround(d_Factor * 1000.0);
  return TRUE;
}
