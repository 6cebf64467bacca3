/* The typed methods: each packs its arguments, names the wire method and unpacks the
 * reply. Replies and failures go through the client's common call path. */
#include "SysSrvPrivate.h"

static gboolean f_Void(SysSrvClient* z_o_Self, const gchar* z_c_Method, GVariant* o_Params,
                       GCancellable* z_o_Cancel, GError** error) {
  GVariant* o_Reply = f_CallTyped(z_o_Self, z_c_Method, o_Params, z_o_Cancel, error);
  if (o_Reply == NULL) return FALSE;
  g_variant_unref(o_Reply);
  return TRUE;
}

static gboolean f_VoidFinish(SysSrvClient* z_o_Self, GAsyncResult* z_o_Res, gpointer z_v_Tag,
                             GError** error) {
  GVariant* o_Reply = f_CallTypedFinish(z_o_Self, z_o_Res, z_v_Tag, error);
  if (o_Reply == NULL) return FALSE;
  g_variant_unref(o_Reply);
  return TRUE;
}

/* The three forms of a method without a result: NAME_sync, NAME and NAME_finish. The
 * trailing arguments are the method's own parameters; WIRE and ARGS may use them. */
#define F_VOID_METHOD(NAME, WIRE, ARGS, ...)                                                      \
  gboolean sys_srv_client_##NAME##_sync(                                                          \
      SysSrvClient* self, F_PARAMS(__VA_ARGS__) GCancellable* cancellable, GError** error) {      \
    return f_Void(self, WIRE, ARGS, cancellable, error);                                          \
  }                                                                                               \
  void sys_srv_client_##NAME(SysSrvClient* self, F_PARAMS(__VA_ARGS__) GCancellable* cancellable, \
                             GAsyncReadyCallback callback, gpointer user_data) {                  \
    f_CallTypedAsync(self, WIRE, ARGS, cancellable, callback, user_data, sys_srv_client_##NAME);  \
  }                                                                                               \
  gboolean sys_srv_client_##NAME##_finish(SysSrvClient* self, GAsyncResult* result,               \
                                          GError** error) {                                       \
    return f_VoidFinish(self, result, sys_srv_client_##NAME, error);                              \
  }
/* The parameters followed by a comma, or nothing. */
#define F_PARAMS(...) __VA_OPT__(__VA_ARGS__, )

/* One int out of a "(i)" reply, consuming the reply. */
static gboolean f_TakeInt(GVariant* o_Reply, gint* z_i_Out) {
  if (o_Reply == NULL) return FALSE;
  gint i_Value = 0;
  g_variant_get(o_Reply, "(i)", &i_Value);
  if (z_i_Out) *z_i_Out = i_Value;
  g_variant_unref(o_Reply);
  return TRUE;
}

/* The wire carries an error as its coded number in decimal text. */
static GVariant* f_ErrorArgs(const gchar* z_c_Proc, gint i_Code, gint i_Class,
                             const gchar* z_c_Ack) {
  gchar a_c_Coded[16];
  g_snprintf(a_c_Coded, sizeof a_c_Coded, "%d", sys_srv_error_encode(i_Code, i_Class));
  return g_variant_new("(sss)", z_c_Proc, a_c_Coded, z_c_Ack);
}

/* Any third text but "Ack" stores the error. */
#define A_C_REPORT ""
#define A_C_ACK "Ack"

F_VOID_METHOD(report_error, "freporterror", f_ErrorArgs(process, code, error_class, A_C_REPORT),
              const gchar* process, gint code, gint error_class)

F_VOID_METHOD(ack_error, "freporterror", f_ErrorArgs(process, code, error_class, A_C_ACK),
              const gchar* process, gint code, gint error_class)

F_VOID_METHOD(ack_error_list, "fackerrlist", NULL)

F_VOID_METHOD(delete_error_list, "fdelerrlist", NULL)

static gboolean f_TakeCurrentError(GVariant* o_Reply, gint* code, gint* error_class, gint64* date) {
  if (o_Reply == NULL) return FALSE;
  gint i_Code = 0, i_Class = 0, i_Date = 0;
  g_variant_get(o_Reply, "(iii)", &i_Code, &i_Class, &i_Date);
  if (code) *code = i_Code;
  if (error_class) *error_class = i_Class;
  if (date) *date = i_Date;
  g_variant_unref(o_Reply);
  return TRUE;
}

gboolean sys_srv_client_fetch_current_error_sync(SysSrvClient* self, gint* code, gint* error_class,
                                                 gint64* date, GCancellable* cancellable,
                                                 GError** error) {
  return f_TakeCurrentError(f_CallTyped(self, "fsyserrorget", NULL, cancellable, error), code,
                            error_class, date);
}
void sys_srv_client_fetch_current_error(SysSrvClient* self, GCancellable* cancellable,
                                        GAsyncReadyCallback callback, gpointer user_data) {
  f_CallTypedAsync(self, "fsyserrorget", NULL, cancellable, callback, user_data,
                   sys_srv_client_fetch_current_error);
}
gboolean sys_srv_client_fetch_current_error_finish(SysSrvClient* self, GAsyncResult* result,
                                                   gint* code, gint* error_class, gint64* date,
                                                   GError** error) {
  return f_TakeCurrentError(
      f_CallTypedFinish(self, result, sys_srv_client_fetch_current_error, error), code, error_class,
      date);
}

static GPtrArray* f_TakeActiveErrors(GVariant* o_Reply, GError** error) {
  if (o_Reply == NULL) return NULL;
  const gchar* z_c_Json = NULL;
  g_variant_get(o_Reply, "(&s)", &z_c_Json);
  GPtrArray* z_o_List = f_ParseActiveErrors(z_c_Json, error);
  g_variant_unref(o_Reply);
  return z_o_List;
}

GPtrArray* sys_srv_client_fetch_active_errors_sync(SysSrvClient* self, GCancellable* cancellable,
                                                   GError** error) {
  return f_TakeActiveErrors(f_CallTyped(self, "fgetunacknsyserrors", NULL, cancellable, error),
                            error);
}
void sys_srv_client_fetch_active_errors(SysSrvClient* self, GCancellable* cancellable,
                                        GAsyncReadyCallback callback, gpointer user_data) {
  f_CallTypedAsync(self, "fgetunacknsyserrors", NULL, cancellable, callback, user_data,
                   sys_srv_client_fetch_active_errors);
}
GPtrArray* sys_srv_client_fetch_active_errors_finish(SysSrvClient* self, GAsyncResult* result,
                                                     GError** error) {
  return f_TakeActiveErrors(
      f_CallTypedFinish(self, result, sys_srv_client_fetch_active_errors, error), error);
}

static gboolean f_TakeReadiness(GVariant* o_Reply, guint* actual, guint* required) {
  if (o_Reply == NULL) return FALSE;
  gint i_Ist = 0, i_Soll = 0;
  g_variant_get(o_Reply, "(ii)", &i_Ist, &i_Soll);
  if (actual) *actual = (guint)i_Ist;
  if (required) *required = (guint)i_Soll;
  g_variant_unref(o_Reply);
  return TRUE;
}

gboolean sys_srv_client_fetch_readiness_sync(SysSrvClient* self, guint* actual, guint* required,
                                             GCancellable* cancellable, GError** error) {
  return f_TakeReadiness(f_CallTyped(self, "frdyget", NULL, cancellable, error), actual, required);
}
void sys_srv_client_fetch_readiness(SysSrvClient* self, GCancellable* cancellable,
                                    GAsyncReadyCallback callback, gpointer user_data) {
  f_CallTypedAsync(self, "frdyget", NULL, cancellable, callback, user_data,
                   sys_srv_client_fetch_readiness);
}
gboolean sys_srv_client_fetch_readiness_finish(SysSrvClient* self, GAsyncResult* result,
                                               guint* actual, guint* required, GError** error) {
  return f_TakeReadiness(f_CallTypedFinish(self, result, sys_srv_client_fetch_readiness, error),
                         actual, required);
}

F_VOID_METHOD(set_ready_flag, set ? "frdyflagset" : "frdyflagreset", g_variant_new("(i)", flag),
              gint flag, gboolean set)

F_VOID_METHOD(dump_readiness, "fdumprdy", NULL)

gboolean sys_srv_client_fetch_battery_charge_sync(SysSrvClient* self, gint* charge,
                                                  GCancellable* cancellable, GError** error) {
  return f_TakeInt(f_CallTyped(self, "fbattpowerget", NULL, cancellable, error), charge);
}
void sys_srv_client_fetch_battery_charge(SysSrvClient* self, GCancellable* cancellable,
                                         GAsyncReadyCallback callback, gpointer user_data) {
  f_CallTypedAsync(self, "fbattpowerget", NULL, cancellable, callback, user_data,
                   sys_srv_client_fetch_battery_charge);
}
gboolean sys_srv_client_fetch_battery_charge_finish(SysSrvClient* self, GAsyncResult* result,
                                                    gint* charge, GError** error) {
  return f_TakeInt(f_CallTypedFinish(self, result, sys_srv_client_fetch_battery_charge, error),
                   charge);
}

F_VOID_METHOD(set_battery_charge, "fbattpowerset", g_variant_new("(i)", charge), gint charge)

/* The status getter takes one int on the wire, whose value the service ignores. */
#define O_BATT_STATUS_GET_ARGS g_variant_new("(i)", 0)

gboolean sys_srv_client_fetch_battery_status_sync(SysSrvClient* self, SysSrvBatteryStatus* status,
                                                  GCancellable* cancellable, GError** error) {
  return f_TakeInt(f_CallTyped(self, "fbattstatusget", O_BATT_STATUS_GET_ARGS, cancellable, error),
                   (gint*)status);
}
void sys_srv_client_fetch_battery_status(SysSrvClient* self, GCancellable* cancellable,
                                         GAsyncReadyCallback callback, gpointer user_data) {
  f_CallTypedAsync(self, "fbattstatusget", O_BATT_STATUS_GET_ARGS, cancellable, callback, user_data,
                   sys_srv_client_fetch_battery_status);
}
gboolean sys_srv_client_fetch_battery_status_finish(SysSrvClient* self, GAsyncResult* result,
                                                    SysSrvBatteryStatus* status, GError** error) {
  return f_TakeInt(f_CallTypedFinish(self, result, sys_srv_client_fetch_battery_status, error),
                   (gint*)status);
}

/* The service has no handler for the status setter and never answers it: waiting for an
 * answer would only cost the caller the whole timeout. */
gboolean sys_srv_client_set_battery_status_sync(SysSrvClient* self, SysSrvBatteryStatus status,
                                                GCancellable* cancellable, GError** error) {
  (void)cancellable;
  gboolean b_Ok =
      sys_srv_client_send(self, "fbattstatusset", g_variant_new("(i)", (gint)status), NULL, error);
  if (!b_Ok) {
    GError* z_o_Err = error ? *error : NULL;
    if (z_o_Err && z_o_Err->domain != SYS_SRV_CLIENT_ERROR) {
      SysSrvClientError e_Code = sys_srv_client_error_classify(z_o_Err);
      GError* z_o_New =
          g_error_new(SYS_SRV_CLIENT_ERROR, e_Code, "fbattstatusset: %s", z_o_Err->message);
      g_error_free(z_o_Err);
      *error = z_o_New;
    }
  }
  return b_Ok;
}
void sys_srv_client_set_battery_status(SysSrvClient* self, SysSrvBatteryStatus status,
                                       GCancellable* cancellable, GAsyncReadyCallback callback,
                                       gpointer user_data) {
  GTask* z_o_Task = g_task_new(self, cancellable, callback, user_data);
  g_task_set_source_tag(z_o_Task, sys_srv_client_set_battery_status);
  GError* z_o_Err = NULL;
  if (sys_srv_client_set_battery_status_sync(self, status, cancellable, &z_o_Err))
    g_task_return_boolean(z_o_Task, TRUE);
  else
    g_task_return_error(z_o_Task, z_o_Err);
  g_object_unref(z_o_Task);
}
gboolean sys_srv_client_set_battery_status_finish(SysSrvClient* self, GAsyncResult* result,
                                                  GError** error) {
  g_return_val_if_fail(g_task_is_valid(result, self), FALSE);
  return g_task_propagate_boolean(G_TASK(result), error);
}

static gboolean f_TakeBool(GVariant* o_Reply, gboolean* z_b_Out) {
  gint i_Value = 0;
  if (!f_TakeInt(o_Reply, &i_Value)) return FALSE;
  if (z_b_Out) *z_b_Out = i_Value != 0;
  return TRUE;
}

gboolean sys_srv_client_fetch_tool_enable_sync(SysSrvClient* self, gboolean* enabled,
                                               GCancellable* cancellable, GError** error) {
  return f_TakeBool(f_CallTyped(self, "ftoolenableget", NULL, cancellable, error), enabled);
}
void sys_srv_client_fetch_tool_enable(SysSrvClient* self, GCancellable* cancellable,
                                      GAsyncReadyCallback callback, gpointer user_data) {
  f_CallTypedAsync(self, "ftoolenableget", NULL, cancellable, callback, user_data,
                   sys_srv_client_fetch_tool_enable);
}
gboolean sys_srv_client_fetch_tool_enable_finish(SysSrvClient* self, GAsyncResult* result,
                                                 gboolean* enabled, GError** error) {
  return f_TakeBool(f_CallTypedFinish(self, result, sys_srv_client_fetch_tool_enable, error),
                    enabled);
}

F_VOID_METHOD(set_tool_enable, "ftoolenableset", g_variant_new("(i)", enabled ? 1 : 0),
              gboolean enabled)

/* The service's own getter answers a fixed 100 and never looks at the stored factor, so
 * the factor is read where the service keeps it. */
gboolean sys_srv_client_fetch_mfu_sync(SysSrvClient* self, gint* mfu, GCancellable* cancellable,
                                       GError** error) {
  g_return_val_if_fail(SYS_SRV_IS_CLIENT(self), FALSE);
  if (g_cancellable_set_error_if_cancelled(cancellable, error)) return FALSE;
  return f_ReadMfu(mfu, error);
}
static void f_ReadMfuInThread(GTask* z_o_Task, gpointer z_v_Src, gpointer z_v_Data,
                              GCancellable* z_o_Cancel) {
  (void)z_v_Src;
  (void)z_v_Data;
  (void)z_o_Cancel;
  gint i_Mfu = 0;
  GError* z_o_Err = NULL;
  if (f_ReadMfu(&i_Mfu, &z_o_Err))
    g_task_return_int(z_o_Task, i_Mfu);
  else
    g_task_return_error(z_o_Task, z_o_Err);
}
void sys_srv_client_fetch_mfu(SysSrvClient* self, GCancellable* cancellable,
                              GAsyncReadyCallback callback, gpointer user_data) {
  GTask* z_o_Task = g_task_new(self, cancellable, callback, user_data);
  g_task_set_source_tag(z_o_Task, sys_srv_client_fetch_mfu);
  g_task_run_in_thread(z_o_Task, f_ReadMfuInThread);
  g_object_unref(z_o_Task);
}
gboolean sys_srv_client_fetch_mfu_finish(SysSrvClient* self, GAsyncResult* result, gint* mfu,
                                         GError** error) {
  g_return_val_if_fail(g_task_is_valid(result, self), FALSE);
  GError* z_o_Err = NULL;
  gssize i_Mfu = g_task_propagate_int(G_TASK(result), &z_o_Err);
  if (z_o_Err != NULL) {
    g_propagate_error(error, z_o_Err);
    return FALSE;
  }
  if (mfu) *mfu = (gint)i_Mfu;
  return TRUE;
}

F_VOID_METHOD(set_mfu, "fmfuset", g_variant_new("(i)", mfu), gint mfu)

F_VOID_METHOD(config_file_changed, "fcfgfilechanged", g_variant_new("(s)", path), const gchar* path)

F_VOID_METHOD(cycle_complete, "fcyclecomplete", NULL)

F_VOID_METHOD(abort_start, "fabortstart", NULL)

F_VOID_METHOD(new_result, "fnewresult", g_variant_new("(si)", database_path, data_set),
              const gchar* database_path, gint data_set)

F_VOID_METHOD(new_id_code, "fnewidcode", g_variant_new("(iis)", device, device_active, id_code),
              gint device, gint device_active, const gchar* id_code)

F_VOID_METHOD(program_changed, "fprgchanged", g_variant_new("(i)", program), gint program)

F_VOID_METHOD(set_batch_counter, "fbatchcntrset", g_variant_new("(is)", job ? 1 : 0, config),
              gboolean job, const gchar* config)

F_VOID_METHOD(clear_batch_counter, "fbatchcntrclear", g_variant_new("(i)", program), gint program)

F_VOID_METHOD(delete_batch_counter, "fbatchcntrdel", g_variant_new("(i)", program), gint program)

static GBytes* f_TakeBytes(GVariant* o_Reply) {
  if (o_Reply == NULL) return NULL;
  GVariant* o_Array = g_variant_get_child_value(o_Reply, 0);
  GBytes* z_o_Bytes = g_variant_get_data_as_bytes(o_Array);
  g_variant_unref(o_Array);
  g_variant_unref(o_Reply);
  return z_o_Bytes;
}

GBytes* sys_srv_client_fetch_batch_counters_sync(SysSrvClient* self, GCancellable* cancellable,
                                                 GError** error) {
  return f_TakeBytes(f_CallTyped(self, "fbatchcntrget", NULL, cancellable, error));
}
void sys_srv_client_fetch_batch_counters(SysSrvClient* self, GCancellable* cancellable,
                                         GAsyncReadyCallback callback, gpointer user_data) {
  f_CallTypedAsync(self, "fbatchcntrget", NULL, cancellable, callback, user_data,
                   sys_srv_client_fetch_batch_counters);
}
GBytes* sys_srv_client_fetch_batch_counters_finish(SysSrvClient* self, GAsyncResult* result,
                                                   GError** error) {
  return f_TakeBytes(f_CallTypedFinish(self, result, sys_srv_client_fetch_batch_counters, error));
}

F_VOID_METHOD(set_id_code_source, "fidcodesrcset",
              g_variant_new("(ii)", source, delete_after_start), gint source,
              gint delete_after_start)

F_VOID_METHOD(set_job_running, "fsetjobrunning", g_variant_new("(i)", state), gint state)

F_VOID_METHOD(request_operation_mode, "fsetoperationmode",
              g_variant_new("(iii)", mode, trigger_source, trigger_value), gint mode,
              gint trigger_source, gint trigger_value)

F_VOID_METHOD(new_operation_mode, "fnewoperationmode", g_variant_new("(i)", mode), gint mode)
