/* The client object: one bus connection of its own, the service's name followed as it
 * comes and goes, its signals turned into typed GObject signals, and its state mirrored
 * in properties. */
#include <string.h>

#include "SysSrvInterface.h"
#include "SysSrvPrivate.h"

struct _SysSrvClient {
  GObject parent_instance;

  gchar* z_c_Address;
  GDBusConnection* z_o_Conn;
  guint ui_Watch;
  guint ui_Sub;
  gint i_TimeoutMs;
  /* Cancels the state loads still under way when the client goes. */
  GCancellable* z_o_Cancel;

  /* Bumped whenever the service appears or vanishes: answers of an older generation
   * describe a service that is gone and are dropped. */
  guint ui_Generation;
  guint ui_Pending;
  gboolean b_Running;

  gint i_Charge;
  SysSrvBatteryStatus e_BattStatus;
  guint ui_RdyIst;
  guint ui_RdySoll;
  gboolean b_Ready;
  gint i_ErrCode;
  gint i_ErrClass;
  gint64 i_ErrDate;
  gboolean b_ToolEnabled;
};

G_DEFINE_TYPE(SysSrvClient, sys_srv_client, G_TYPE_OBJECT)

enum {
  PROP_0,
  PROP_ADDRESS,
  PROP_SERVICE_RUNNING,
  PROP_BATTERY_CHARGE,
  PROP_BATTERY_STATUS,
  PROP_READINESS_ACTUAL,
  PROP_READINESS_REQUIRED,
  PROP_READY,
  PROP_ERROR_CODE,
  PROP_ERROR_CLASS,
  PROP_ERROR_DATE,
  PROP_TOOL_ENABLED,
  N_PROPS
};
static GParamSpec* a_z_o_Props[N_PROPS];

enum {
  SIG_BUS_SIGNAL,
  SIG_CONFIG_FILE_CHANGED,
  SIG_ERROR_RAISED,
  SIG_ERROR_ACKNOWLEDGED,
  SIG_BATTERY_CHARGE_CHANGED,
  SIG_BATTERY_STATUS_CHANGED,
  SIG_BATTERY_COUNTDOWN,
  SIG_NEW_RESULT,
  SIG_TOOL_ENABLE_CHANGED,
  SIG_PROGRAM_CHANGED,
  SIG_NEW_ID_CODE,
  SIG_READINESS_CHANGED,
  SIG_BMS_INPUT_CHANGED,
  SIG_BMS_OUTPUT_CHANGED,
  SIG_START_ABORTED,
  SIG_JOB_RUNNING_CHANGED,
  SIG_OPERATION_MODE_CHANGED,
  SIG_OPERATION_MODE_REQUESTED,
  N_SIGNALS
};
static guint a_ui_Signals[N_SIGNALS];

/* --- errors, coded numbers, entries ---------------------------------------------------- */

G_DEFINE_QUARK(sys - srv - client - error - quark, sys_srv_client_error)

G_DEFINE_ENUM_TYPE(SysSrvClientError, sys_srv_client_error,
                   G_DEFINE_ENUM_VALUE(SYS_SRV_CLIENT_ERROR_FAILED, "failed"),
                   G_DEFINE_ENUM_VALUE(SYS_SRV_CLIENT_ERROR_REFUSED, "refused"),
                   G_DEFINE_ENUM_VALUE(SYS_SRV_CLIENT_ERROR_NOT_RUNNING, "not-running"),
                   G_DEFINE_ENUM_VALUE(SYS_SRV_CLIENT_ERROR_TIMED_OUT, "timed-out"),
                   G_DEFINE_ENUM_VALUE(SYS_SRV_CLIENT_ERROR_ACCESS_DENIED, "access-denied"),
                   G_DEFINE_ENUM_VALUE(SYS_SRV_CLIENT_ERROR_INCOMPATIBLE, "incompatible"),
                   G_DEFINE_ENUM_VALUE(SYS_SRV_CLIENT_ERROR_DISCONNECTED, "disconnected"))

G_DEFINE_ENUM_TYPE(SysSrvBatteryStatus, sys_srv_battery_status,
                   G_DEFINE_ENUM_VALUE(SYS_SRV_BATTERY_STATUS_OFF, "off"),
                   G_DEFINE_ENUM_VALUE(SYS_SRV_BATTERY_STATUS_EMPTY, "empty"),
                   G_DEFINE_ENUM_VALUE(SYS_SRV_BATTERY_STATUS_LOW, "low"),
                   G_DEFINE_ENUM_VALUE(SYS_SRV_BATTERY_STATUS_GOOD, "good"),
                   G_DEFINE_ENUM_VALUE(SYS_SRV_BATTERY_STATUS_UNKNOWN, "unknown"),
                   G_DEFINE_ENUM_VALUE(SYS_SRV_BATTERY_STATUS_WEAK, "weak"))

G_DEFINE_BOXED_TYPE(SysSrvErrorEntry, sys_srv_error_entry, sys_srv_error_entry_copy,
                    sys_srv_error_entry_free)

SysSrvErrorEntry* sys_srv_error_entry_copy(const SysSrvErrorEntry* entry) {
  return g_memdup2(entry, sizeof(*entry));
}

void sys_srv_error_entry_free(SysSrvErrorEntry* entry) { g_free(entry); }

gint sys_srv_error_encode(gint code, gint error_class) { return code * 8 + (error_class & 7); }
gint sys_srv_error_code(gint coded) { return coded >> 3; }
gint sys_srv_error_class(gint coded) { return coded & 7; }

SysSrvClientError sys_srv_client_error_classify(const GError* error) {
  if (error == NULL) return SYS_SRV_CLIENT_ERROR_FAILED;
  if (error->domain == SYS_SRV_CLIENT_ERROR) return (SysSrvClientError)error->code;
  /* The service's only error reply: GIO's code 30 with an empty text. */
  if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_FAILED_HANDLED))
    return SYS_SRV_CLIENT_ERROR_REFUSED;
  /* An activation that could not start the service is, for the caller, a service that does
   * not run: the bus daemon's spawn errors, or systemd's reply when the unit behind the
   * activation file cannot start. */
  gchar* z_c_Remote = g_dbus_error_get_remote_error(error);
  gboolean b_Systemd =
      z_c_Remote != NULL && g_str_has_prefix(z_c_Remote, "org.freedesktop.systemd1.");
  g_free(z_c_Remote);
  if (b_Systemd ||
      (error->domain == G_DBUS_ERROR && error->code >= G_DBUS_ERROR_SPAWN_EXEC_FAILED &&
       error->code <= G_DBUS_ERROR_SPAWN_NO_MEMORY))
    return SYS_SRV_CLIENT_ERROR_NOT_RUNNING;
  if (error->domain == G_DBUS_ERROR) {
    switch (error->code) {
      case G_DBUS_ERROR_SERVICE_UNKNOWN:
      case G_DBUS_ERROR_NAME_HAS_NO_OWNER:
        return SYS_SRV_CLIENT_ERROR_NOT_RUNNING;
      case G_DBUS_ERROR_NO_REPLY:
      case G_DBUS_ERROR_TIMEOUT:
      case G_DBUS_ERROR_TIMED_OUT:
        return SYS_SRV_CLIENT_ERROR_TIMED_OUT;
      case G_DBUS_ERROR_ACCESS_DENIED:
      case G_DBUS_ERROR_AUTH_FAILED:
        return SYS_SRV_CLIENT_ERROR_ACCESS_DENIED;
      case G_DBUS_ERROR_UNKNOWN_METHOD:
      case G_DBUS_ERROR_UNKNOWN_INTERFACE:
      case G_DBUS_ERROR_UNKNOWN_OBJECT:
      case G_DBUS_ERROR_INVALID_ARGS:
      case G_DBUS_ERROR_INVALID_SIGNATURE:
        return SYS_SRV_CLIENT_ERROR_INCOMPATIBLE;
      case G_DBUS_ERROR_DISCONNECTED:
      case G_DBUS_ERROR_NO_SERVER:
      case G_DBUS_ERROR_BAD_ADDRESS:
      case G_DBUS_ERROR_NO_NETWORK:
        return SYS_SRV_CLIENT_ERROR_DISCONNECTED;
      default:
        return SYS_SRV_CLIENT_ERROR_FAILED;
    }
  }
  if (error->domain == G_IO_ERROR) {
    switch (error->code) {
      case G_IO_ERROR_TIMED_OUT:
        return SYS_SRV_CLIENT_ERROR_TIMED_OUT;
      /* GIO's verdict on a reply whose type differs from the one asked for. */
      case G_IO_ERROR_INVALID_ARGUMENT:
        return SYS_SRV_CLIENT_ERROR_INCOMPATIBLE;
      case G_IO_ERROR_CLOSED:
      case G_IO_ERROR_CONNECTION_CLOSED:
      case G_IO_ERROR_NOT_FOUND:
      case G_IO_ERROR_CONNECTION_REFUSED:
        return SYS_SRV_CLIENT_ERROR_DISCONNECTED;
      default:
        return SYS_SRV_CLIENT_ERROR_FAILED;
    }
  }
  return SYS_SRV_CLIENT_ERROR_FAILED;
}

/* Replaces a bus-level error by one of the client's domain; cancellation stays GIO's, as
 * every GIO caller expects. */
static void f_Translate(const gchar* z_c_Method, GError** error) {
  if (error == NULL || *error == NULL) return;
  GError* z_o_Err = *error;
  if (z_o_Err->domain == SYS_SRV_CLIENT_ERROR ||
      g_error_matches(z_o_Err, G_IO_ERROR, G_IO_ERROR_CANCELLED))
    return;
  SysSrvClientError e_Code = sys_srv_client_error_classify(z_o_Err);
  if (g_dbus_error_is_remote_error(z_o_Err)) g_dbus_error_strip_remote_error(z_o_Err);
  GError* z_o_New;
  if (e_Code == SYS_SRV_CLIENT_ERROR_REFUSED)
    z_o_New = g_error_new(SYS_SRV_CLIENT_ERROR, e_Code, "the service refused %s", z_c_Method);
  else
    z_o_New = g_error_new(SYS_SRV_CLIENT_ERROR, e_Code, "%s: %s", z_c_Method, z_o_Err->message);
  g_error_free(z_o_Err);
  *error = z_o_New;
}

/* --- calls --------------------------------------------------------------------------- */

typedef struct {
  const gchar* z_c_Method;
  const gchar* z_c_ReplyType;
} ReplyOverride_ST;

/* Where the wire differs from the interface description. */
static const ReplyOverride_ST A_O_REPLY_OVERRIDES[] = {
    /* Declared with one "in" argument and no "out" argument, but the service answers with
     * the battery status; taking the declaration at its word would reject every answer. */
    {"fbattstatusget", "(i)"},
};

/* The type string of the declared out-arguments of a method, built once per method. */
const gchar* f_ReplyTypeOf(const gchar* z_c_Method) {
  static GHashTable* z_o_Cache;
  static GMutex o_Lock;
  for (gsize i = 0; i < G_N_ELEMENTS(A_O_REPLY_OVERRIDES); i++)
    if (strcmp(A_O_REPLY_OVERRIDES[i].z_c_Method, z_c_Method) == 0)
      return A_O_REPLY_OVERRIDES[i].z_c_ReplyType;
  g_mutex_lock(&o_Lock);
  if (z_o_Cache == NULL) {
    z_o_Cache = g_hash_table_new(g_str_hash, g_str_equal);
    for (GDBusMethodInfo** z_z_o_M = sys_srv_wire_sys_interface_interface.methods; *z_z_o_M;
         z_z_o_M++) {
      GString* z_o_Type = g_string_new("(");
      for (GDBusArgInfo** z_z_o_A = (*z_z_o_M)->out_args; z_z_o_A && *z_z_o_A; z_z_o_A++)
        g_string_append(z_o_Type, (*z_z_o_A)->signature);
      g_string_append_c(z_o_Type, ')');
      g_hash_table_insert(z_o_Cache, (*z_z_o_M)->name, g_string_free(z_o_Type, FALSE));
    }
  }
  const gchar* z_c_Type = g_hash_table_lookup(z_o_Cache, z_c_Method);
  g_mutex_unlock(&o_Lock);
  return z_c_Type;
}

GVariant* sys_srv_client_call_sync(SysSrvClient* self, const gchar* method, GVariant* parameters,
                                   const GVariantType* reply_type, GDBusCallFlags flags,
                                   gint timeout_ms, GCancellable* cancellable, GError** error) {
  g_return_val_if_fail(SYS_SRV_IS_CLIENT(self), NULL);
  return g_dbus_connection_call_sync(
      self->z_o_Conn, SYSSRV_BUS_NAME, SYSSRV_OBJECT_PATH, SYSSRV_INTERFACE, method, parameters,
      reply_type, flags, timeout_ms < 0 ? self->i_TimeoutMs : timeout_ms, cancellable, error);
}

gboolean sys_srv_client_send(SysSrvClient* self, const gchar* method, GVariant* parameters,
                             guint32* out_serial, GError** error) {
  g_return_val_if_fail(SYS_SRV_IS_CLIENT(self), FALSE);
  GDBusMessage* z_o_Msg = g_dbus_message_new_method_call(SYSSRV_BUS_NAME, SYSSRV_OBJECT_PATH,
                                                         SYSSRV_INTERFACE, method);
  g_dbus_message_set_body(z_o_Msg, parameters);
  g_dbus_message_set_flags(z_o_Msg, G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
  gboolean b_Ok = g_dbus_connection_send_message(self->z_o_Conn, z_o_Msg,
                                                 G_DBUS_SEND_MESSAGE_FLAGS_NONE, out_serial, error);
  g_object_unref(z_o_Msg);
  return b_Ok;
}

GVariant* f_CallTyped(SysSrvClient* z_o_Self, const gchar* z_c_Method, GVariant* o_Params,
                      GCancellable* z_o_Cancel, GError** error) {
  g_return_val_if_fail(SYS_SRV_IS_CLIENT(z_o_Self), NULL);
  GVariant* o_Reply = sys_srv_client_call_sync(z_o_Self, z_c_Method, o_Params,
                                               G_VARIANT_TYPE(f_ReplyTypeOf(z_c_Method)),
                                               G_DBUS_CALL_FLAGS_NONE, -1, z_o_Cancel, error);
  if (o_Reply == NULL) f_Translate(z_c_Method, error);
  return o_Reply;
}

static void f_OnTypedReply(GObject* z_o_Src, GAsyncResult* z_o_Res, gpointer z_v_Task) {
  GTask* z_o_Task = z_v_Task;
  GError* z_o_Err = NULL;
  GVariant* o_Reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(z_o_Src), z_o_Res, &z_o_Err);
  if (o_Reply == NULL) {
    f_Translate(g_task_get_task_data(z_o_Task), &z_o_Err);
    g_task_return_error(z_o_Task, z_o_Err);
  } else {
    g_task_return_pointer(z_o_Task, o_Reply, (GDestroyNotify)g_variant_unref);
  }
  g_object_unref(z_o_Task);
}

void f_CallTypedAsync(SysSrvClient* z_o_Self, const gchar* z_c_Method, GVariant* o_Params,
                      GCancellable* z_o_Cancel, GAsyncReadyCallback f_Done, gpointer z_v_Data,
                      gpointer z_v_Tag) {
  g_return_if_fail(SYS_SRV_IS_CLIENT(z_o_Self));
  GTask* z_o_Task = g_task_new(z_o_Self, z_o_Cancel, f_Done, z_v_Data);
  g_task_set_source_tag(z_o_Task, z_v_Tag);
  g_task_set_task_data(z_o_Task, g_strdup(z_c_Method), g_free);
  g_dbus_connection_call(z_o_Self->z_o_Conn, SYSSRV_BUS_NAME, SYSSRV_OBJECT_PATH,
                         SYSSRV_INTERFACE, z_c_Method, o_Params,
                         G_VARIANT_TYPE(f_ReplyTypeOf(z_c_Method)), G_DBUS_CALL_FLAGS_NONE,
                         z_o_Self->i_TimeoutMs, z_o_Cancel, f_OnTypedReply, z_o_Task);
}

GVariant* f_CallTypedFinish(SysSrvClient* z_o_Self, GAsyncResult* z_o_Res, gpointer z_v_Tag,
                            GError** error) {
  g_return_val_if_fail(g_task_is_valid(z_o_Res, z_o_Self), NULL);
  g_return_val_if_fail(g_task_get_source_tag(G_TASK(z_o_Res)) == z_v_Tag, NULL);
  return g_task_propagate_pointer(G_TASK(z_o_Res), error);
}

/* --- state ---------------------------------------------------------------------------- */

static void f_SetInt(SysSrvClient* z_o_Self, gint* z_i_Field, gint i_Value, guint ui_Prop) {
  if (*z_i_Field == i_Value) return;
  *z_i_Field = i_Value;
  g_object_notify_by_pspec(G_OBJECT(z_o_Self), a_z_o_Props[ui_Prop]);
}

static void f_SetUInt(SysSrvClient* z_o_Self, guint* z_ui_Field, guint ui_Value, guint ui_Prop) {
  if (*z_ui_Field == ui_Value) return;
  *z_ui_Field = ui_Value;
  g_object_notify_by_pspec(G_OBJECT(z_o_Self), a_z_o_Props[ui_Prop]);
}

static void f_SetBool(SysSrvClient* z_o_Self, gboolean* z_b_Field, gboolean b_Value,
                      guint ui_Prop) {
  f_SetInt(z_o_Self, z_b_Field, b_Value ? TRUE : FALSE, ui_Prop);
}

static void f_SetReadiness(SysSrvClient* z_o_Self, guint ui_Ist, guint ui_Soll) {
  f_SetUInt(z_o_Self, &z_o_Self->ui_RdyIst, ui_Ist, PROP_READINESS_ACTUAL);
  f_SetUInt(z_o_Self, &z_o_Self->ui_RdySoll, ui_Soll, PROP_READINESS_REQUIRED);
  f_SetBool(z_o_Self, &z_o_Self->b_Ready, (ui_Ist & ui_Soll) == ui_Soll, PROP_READY);
}

static void f_SetError(SysSrvClient* z_o_Self, gint i_Code, gint i_Class, gint64 i_Date) {
  f_SetInt(z_o_Self, &z_o_Self->i_ErrCode, i_Code, PROP_ERROR_CODE);
  f_SetInt(z_o_Self, &z_o_Self->i_ErrClass, i_Class, PROP_ERROR_CLASS);
  if (z_o_Self->i_ErrDate != i_Date) {
    z_o_Self->i_ErrDate = i_Date;
    g_object_notify_by_pspec(G_OBJECT(z_o_Self), a_z_o_Props[PROP_ERROR_DATE]);
  }
}

typedef enum { en_LoadCharge, en_LoadStatus, en_LoadReadiness, en_LoadError, en_LoadTool } en_Load;

typedef struct {
  SysSrvClient* z_o_Self;
  guint ui_Generation;
  en_Load e_What;
} Load_ST;

static const gchar* const A_Z_C_LOAD_METHODS[] = {"fbattpowerget", "fbattstatusget", "frdyget",
                                                  "fsyserrorget", "ftoolenableget"};

static void f_OnLoaded(GObject* z_o_Src, GAsyncResult* z_o_Res, gpointer z_v_Load) {
  Load_ST* z_o_Load = z_v_Load;
  SysSrvClient* z_o_Self = z_o_Load->z_o_Self;
  GVariant* o_Reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(z_o_Src), z_o_Res, NULL);
  if (z_o_Load->ui_Generation == z_o_Self->ui_Generation) {
    g_object_freeze_notify(G_OBJECT(z_o_Self));
    gint i_A = 0, i_B = 0, i_C = 0;
    switch (z_o_Load->e_What) {
      case en_LoadCharge:
        if (o_Reply) g_variant_get(o_Reply, "(i)", &i_A);
        f_SetInt(z_o_Self, &z_o_Self->i_Charge, i_A, PROP_BATTERY_CHARGE);
        break;
      case en_LoadStatus:
        i_A = SYS_SRV_BATTERY_STATUS_UNKNOWN;
        if (o_Reply) g_variant_get(o_Reply, "(i)", &i_A);
        f_SetInt(z_o_Self, (gint*)&z_o_Self->e_BattStatus, i_A, PROP_BATTERY_STATUS);
        break;
      case en_LoadReadiness:
        if (o_Reply) {
          g_variant_get(o_Reply, "(ii)", &i_A, &i_B);
          f_SetReadiness(z_o_Self, (guint)i_A, (guint)i_B);
        } else {
          /* Refused while the service has no error list: then it is not ready either. */
          f_SetReadiness(z_o_Self, 0, 0);
          f_SetBool(z_o_Self, &z_o_Self->b_Ready, FALSE, PROP_READY);
        }
        break;
      case en_LoadError:
        if (o_Reply) g_variant_get(o_Reply, "(iii)", &i_A, &i_B, &i_C);
        f_SetError(z_o_Self, i_A, i_B, i_C);
        break;
      case en_LoadTool:
        if (o_Reply) g_variant_get(o_Reply, "(i)", &i_A);
        f_SetBool(z_o_Self, &z_o_Self->b_ToolEnabled, i_A != 0, PROP_TOOL_ENABLED);
        break;
    }
    if (--z_o_Self->ui_Pending == 0)
      f_SetBool(z_o_Self, &z_o_Self->b_Running, TRUE, PROP_SERVICE_RUNNING);
    g_object_thaw_notify(G_OBJECT(z_o_Self));
  }
  if (o_Reply) g_variant_unref(o_Reply);
  g_object_unref(z_o_Self);
  g_free(z_o_Load);
}

static void f_Load(SysSrvClient* z_o_Self, en_Load e_What) {
  Load_ST* z_o_Load = g_new0(Load_ST, 1);
  z_o_Load->z_o_Self = g_object_ref(z_o_Self);
  z_o_Load->ui_Generation = z_o_Self->ui_Generation;
  z_o_Load->e_What = e_What;
  const gchar* z_c_Method = A_Z_C_LOAD_METHODS[e_What];
  z_o_Self->ui_Pending++;
  g_dbus_connection_call(z_o_Self->z_o_Conn, SYSSRV_BUS_NAME, SYSSRV_OBJECT_PATH,
                         SYSSRV_INTERFACE, z_c_Method,
                         e_What == en_LoadStatus ? g_variant_new("(i)", 0) : NULL,
                         G_VARIANT_TYPE(f_ReplyTypeOf(z_c_Method)), G_DBUS_CALL_FLAGS_NO_AUTO_START,
                         z_o_Self->i_TimeoutMs, z_o_Self->z_o_Cancel, f_OnLoaded, z_o_Load);
}

static void f_OnAppeared(GDBusConnection* z_o_Conn, const gchar* z_c_Name, const gchar* z_c_Owner,
                         gpointer z_v_Self) {
  (void)z_o_Conn;
  (void)z_c_Name;
  (void)z_c_Owner;
  SysSrvClient* z_o_Self = z_v_Self;
  z_o_Self->ui_Generation++;
  z_o_Self->ui_Pending = 0;
  for (int i = en_LoadCharge; i <= en_LoadTool; i++) f_Load(z_o_Self, (en_Load)i);
}

static void f_OnVanished(GDBusConnection* z_o_Conn, const gchar* z_c_Name, gpointer z_v_Self) {
  (void)z_o_Conn;
  (void)z_c_Name;
  SysSrvClient* z_o_Self = z_v_Self;
  z_o_Self->ui_Generation++;
  z_o_Self->ui_Pending = 0;
  g_object_freeze_notify(G_OBJECT(z_o_Self));
  f_SetBool(z_o_Self, &z_o_Self->b_Running, FALSE, PROP_SERVICE_RUNNING);
  /* Without the service nobody drives the ready output. */
  f_SetBool(z_o_Self, &z_o_Self->b_Ready, FALSE, PROP_READY);
  g_object_thaw_notify(G_OBJECT(z_o_Self));
}

/* --- signals ------------------------------------------------------------------------- */

typedef struct {
  const gchar* z_c_Wire;
  const gchar* z_c_Type;  // NULL: as the interface description declares it
  guint ui_Signal;
} SignalMap_ST;

static const SignalMap_ST A_O_SIGNAL_MAP[] = {
    /* Declared with one int, but every emitter sends the path of the changed file. */
    {"cfgfilechanged", "(s)", SIG_CONFIG_FILE_CHANGED},
    {"sysfault", NULL, SIG_ERROR_RAISED},
    {"acksysfault", NULL, SIG_ERROR_ACKNOWLEDGED},
    {"battpowerchanged", NULL, SIG_BATTERY_CHARGE_CHANGED},
    {"battstatuschanged", NULL, SIG_BATTERY_STATUS_CHANGED},
    {"battcntdwn", NULL, SIG_BATTERY_COUNTDOWN},
    {"newresult", NULL, SIG_NEW_RESULT},
    {"toolenable", NULL, SIG_TOOL_ENABLE_CHANGED},
    /* The declared argument name says tool enable; the value is the program number. */
    {"prgchanged", NULL, SIG_PROGRAM_CHANGED},
    {"newidcode", NULL, SIG_NEW_ID_CODE},
    {"rdychanged", NULL, SIG_READINESS_CHANGED},
    {"bmsinputchanged", NULL, SIG_BMS_INPUT_CHANGED},
    {"bmsoutputchanged", NULL, SIG_BMS_OUTPUT_CHANGED},
    {"abortstart", NULL, SIG_START_ABORTED},
    {"jobrunningstatuschanged", NULL, SIG_JOB_RUNNING_CHANGED},
    {"newoperationmode", NULL, SIG_OPERATION_MODE_CHANGED},
    {"operationmoderequest", NULL, SIG_OPERATION_MODE_REQUESTED},
};

/* The payload type a signal really travels with. */
static gboolean f_PayloadFits(const SignalMap_ST* z_o_Map, GVariant* o_Args) {
  if (z_o_Map->z_c_Type != NULL)
    return g_variant_is_of_type(o_Args, G_VARIANT_TYPE(z_o_Map->z_c_Type));
  GDBusSignalInfo* z_o_Info = g_dbus_interface_info_lookup_signal(
      (GDBusInterfaceInfo*)&sys_srv_wire_sys_interface_interface, z_o_Map->z_c_Wire);
  GString* z_o_Type = g_string_new("(");
  for (GDBusArgInfo** z_z_o_A = z_o_Info->args; z_z_o_A && *z_z_o_A; z_z_o_A++)
    g_string_append(z_o_Type, (*z_z_o_A)->signature);
  g_string_append_c(z_o_Type, ')');
  gboolean b_Fits = g_variant_is_of_type(o_Args, G_VARIANT_TYPE(z_o_Type->str));
  g_string_free(z_o_Type, TRUE);
  return b_Fits;
}

static void f_EmitTyped(SysSrvClient* z_o_Self, guint ui_Signal, GVariant* o_Args) {
  gint i_A = 0, i_B = 0, i_C = 0;
  const gchar* z_c_S = NULL;
  guint ui_Id = a_ui_Signals[ui_Signal];
  switch (ui_Signal) {
    case SIG_CONFIG_FILE_CHANGED:
      g_variant_get(o_Args, "(&s)", &z_c_S);
      g_signal_emit(z_o_Self, ui_Id, 0, z_c_S);
      break;
    case SIG_ERROR_RAISED:
      g_variant_get(o_Args, "(iii)", &i_A, &i_B, &i_C);
      f_SetError(z_o_Self, i_A, i_B, i_C);
      g_signal_emit(z_o_Self, ui_Id, 0, i_A, i_B, (gint64)i_C);
      break;
    case SIG_ERROR_ACKNOWLEDGED:
      /* The second value is the error now current, coded; its date is not sent, so it is
       * asked for. */
      g_variant_get(o_Args, "(ii)", &i_A, &i_B);
      f_SetError(z_o_Self, sys_srv_error_code(i_B), sys_srv_error_class(i_B),
                 i_B == 0 ? 0 : z_o_Self->i_ErrDate);
      if (i_B != 0) f_Load(z_o_Self, en_LoadError);
      g_signal_emit(z_o_Self, ui_Id, 0, i_A, sys_srv_error_code(i_B), sys_srv_error_class(i_B));
      break;
    case SIG_BATTERY_CHARGE_CHANGED:
      g_variant_get(o_Args, "(i)", &i_A);
      f_SetInt(z_o_Self, &z_o_Self->i_Charge, i_A, PROP_BATTERY_CHARGE);
      g_signal_emit(z_o_Self, ui_Id, 0, i_A);
      break;
    case SIG_BATTERY_STATUS_CHANGED:
      g_variant_get(o_Args, "(i)", &i_A);
      f_SetInt(z_o_Self, (gint*)&z_o_Self->e_BattStatus, i_A, PROP_BATTERY_STATUS);
      g_signal_emit(z_o_Self, ui_Id, 0, i_A);
      break;
    case SIG_TOOL_ENABLE_CHANGED:
      g_variant_get(o_Args, "(i)", &i_A);
      f_SetBool(z_o_Self, &z_o_Self->b_ToolEnabled, i_A != 0, PROP_TOOL_ENABLED);
      g_signal_emit(z_o_Self, ui_Id, 0, i_A != 0);
      break;
    case SIG_BATTERY_COUNTDOWN:
    case SIG_PROGRAM_CHANGED:
    case SIG_JOB_RUNNING_CHANGED:
    case SIG_OPERATION_MODE_CHANGED:
      g_variant_get(o_Args, "(i)", &i_A);
      g_signal_emit(z_o_Self, ui_Id, 0, i_A);
      break;
    case SIG_NEW_RESULT:
      g_variant_get(o_Args, "(&si)", &z_c_S, &i_A);
      g_signal_emit(z_o_Self, ui_Id, 0, z_c_S, i_A);
      break;
    case SIG_NEW_ID_CODE:
      g_variant_get(o_Args, "(ii&s)", &i_A, &i_B, &z_c_S);
      g_signal_emit(z_o_Self, ui_Id, 0, i_A, i_B, z_c_S);
      break;
    case SIG_READINESS_CHANGED:
      g_variant_get(o_Args, "(ii)", &i_A, &i_B);
      f_SetReadiness(z_o_Self, (guint)i_A, (guint)i_B);
      g_signal_emit(z_o_Self, ui_Id, 0, (guint)i_A, (guint)i_B);
      break;
    case SIG_OPERATION_MODE_REQUESTED:
      g_variant_get(o_Args, "(iii)", &i_A, &i_B, &i_C);
      g_signal_emit(z_o_Self, ui_Id, 0, i_A, i_B, i_C);
      break;
    default:
      g_signal_emit(z_o_Self, ui_Id, 0);
      break;
  }
}

static void f_OnSignal(GDBusConnection* z_o_Conn, const gchar* z_c_Sender, const gchar* z_c_Path,
                       const gchar* z_c_Iface, const gchar* z_c_Name, GVariant* o_Args,
                       gpointer z_v_Self) {
  (void)z_o_Conn;
  (void)z_c_Sender;
  (void)z_c_Path;
  (void)z_c_Iface;
  SysSrvClient* z_o_Self = z_v_Self;
  g_object_ref(z_o_Self);
  g_signal_emit(z_o_Self, a_ui_Signals[SIG_BUS_SIGNAL], g_quark_from_string(z_c_Name), z_c_Name,
                o_Args);
  for (gsize i = 0; i < G_N_ELEMENTS(A_O_SIGNAL_MAP); i++) {
    if (strcmp(A_O_SIGNAL_MAP[i].z_c_Wire, z_c_Name) != 0) continue;
    /* A payload of another shape would come from another version of the service; it is
     * passed on untyped only, rather than read wrongly. */
    if (f_PayloadFits(&A_O_SIGNAL_MAP[i], o_Args)) {
      g_object_freeze_notify(G_OBJECT(z_o_Self));
      f_EmitTyped(z_o_Self, A_O_SIGNAL_MAP[i].ui_Signal, o_Args);
      g_object_thaw_notify(G_OBJECT(z_o_Self));
    } else {
      g_debug("signal %s with unexpected payload %s ignored", z_c_Name,
              g_variant_get_type_string(o_Args));
    }
    break;
  }
  g_object_unref(z_o_Self);
}

/* --- object ---------------------------------------------------------------------------- */

static void sys_srv_client_get_property(GObject* object, guint prop_id, GValue* value,
                                        GParamSpec* pspec) {
  SysSrvClient* z_o_Self = SYS_SRV_CLIENT(object);
  switch (prop_id) {
    case PROP_ADDRESS:
      g_value_set_string(value, z_o_Self->z_c_Address);
      break;
    case PROP_SERVICE_RUNNING:
      g_value_set_boolean(value, z_o_Self->b_Running);
      break;
    case PROP_BATTERY_CHARGE:
      g_value_set_int(value, z_o_Self->i_Charge);
      break;
    case PROP_BATTERY_STATUS:
      g_value_set_enum(value, z_o_Self->e_BattStatus);
      break;
    case PROP_READINESS_ACTUAL:
      g_value_set_uint(value, z_o_Self->ui_RdyIst);
      break;
    case PROP_READINESS_REQUIRED:
      g_value_set_uint(value, z_o_Self->ui_RdySoll);
      break;
    case PROP_READY:
      g_value_set_boolean(value, z_o_Self->b_Ready);
      break;
    case PROP_ERROR_CODE:
      g_value_set_int(value, z_o_Self->i_ErrCode);
      break;
    case PROP_ERROR_CLASS:
      g_value_set_int(value, z_o_Self->i_ErrClass);
      break;
    case PROP_ERROR_DATE:
      g_value_set_int64(value, z_o_Self->i_ErrDate);
      break;
    case PROP_TOOL_ENABLED:
      g_value_set_boolean(value, z_o_Self->b_ToolEnabled);
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, prop_id, pspec);
  }
}

static void sys_srv_client_dispose(GObject* object) {
  SysSrvClient* z_o_Self = SYS_SRV_CLIENT(object);
  g_cancellable_cancel(z_o_Self->z_o_Cancel);
  if (z_o_Self->ui_Watch != 0) g_bus_unwatch_name(z_o_Self->ui_Watch);
  z_o_Self->ui_Watch = 0;
  if (z_o_Self->ui_Sub != 0)
    g_dbus_connection_signal_unsubscribe(z_o_Self->z_o_Conn, z_o_Self->ui_Sub);
  z_o_Self->ui_Sub = 0;
  if (z_o_Self->z_o_Conn != NULL) {
    /* A call sent without waiting must still leave before the connection goes. */
    g_dbus_connection_flush_sync(z_o_Self->z_o_Conn, NULL, NULL);
    g_dbus_connection_close_sync(z_o_Self->z_o_Conn, NULL, NULL);
  }
  g_clear_object(&z_o_Self->z_o_Conn);
  g_clear_object(&z_o_Self->z_o_Cancel);
  G_OBJECT_CLASS(sys_srv_client_parent_class)->dispose(object);
}

static void sys_srv_client_finalize(GObject* object) {
  g_free(SYS_SRV_CLIENT(object)->z_c_Address);
  G_OBJECT_CLASS(sys_srv_client_parent_class)->finalize(object);
}

static void sys_srv_client_init(SysSrvClient* self) {
  self->i_TimeoutMs = 25000;
  self->e_BattStatus = SYS_SRV_BATTERY_STATUS_UNKNOWN;
  self->z_o_Cancel = g_cancellable_new();
}

static GParamSpec* f_IntProp(const gchar* z_c_Name, const gchar* z_c_Blurb) {
  return g_param_spec_int(z_c_Name, NULL, z_c_Blurb, G_MININT, G_MAXINT, 0,
                          G_PARAM_READABLE | G_PARAM_STATIC_STRINGS | G_PARAM_EXPLICIT_NOTIFY);
}

static GParamSpec* f_BoolProp(const gchar* z_c_Name, const gchar* z_c_Blurb) {
  return g_param_spec_boolean(z_c_Name, NULL, z_c_Blurb, FALSE,
                              G_PARAM_READABLE | G_PARAM_STATIC_STRINGS | G_PARAM_EXPLICIT_NOTIFY);
}

static GParamSpec* f_UIntProp(const gchar* z_c_Name, const gchar* z_c_Blurb) {
  return g_param_spec_uint(z_c_Name, NULL, z_c_Blurb, 0, G_MAXUINT, 0,
                           G_PARAM_READABLE | G_PARAM_STATIC_STRINGS | G_PARAM_EXPLICIT_NOTIFY);
}

static guint f_NewSignal(GObjectClass* z_o_Class, const gchar* z_c_Name, guint ui_N, ...) {
  GType a_Types[4];
  va_list o_Ap;
  va_start(o_Ap, ui_N);
  for (guint i = 0; i < ui_N; i++) a_Types[i] = va_arg(o_Ap, GType);
  va_end(o_Ap);
  return g_signal_newv(z_c_Name, G_TYPE_FROM_CLASS(z_o_Class), G_SIGNAL_RUN_LAST, NULL, NULL, NULL,
                       NULL, G_TYPE_NONE, ui_N, a_Types);
}

static void sys_srv_client_class_init(SysSrvClientClass* klass) {
  GObjectClass* z_o_Class = G_OBJECT_CLASS(klass);
  z_o_Class->get_property = sys_srv_client_get_property;
  z_o_Class->dispose = sys_srv_client_dispose;
  z_o_Class->finalize = sys_srv_client_finalize;

  /**
   * SysSrvClient:address:
   *
   * The address of the bus.
   */
  a_z_o_Props[PROP_ADDRESS] = g_param_spec_string("address", NULL, "bus address", NULL,
                                                  G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
  /**
   * SysSrvClient:service-running:
   *
   * %TRUE while the service owns its name and its state has been loaded.
   */
  a_z_o_Props[PROP_SERVICE_RUNNING] = f_BoolProp("service-running", "the service runs");
  /**
   * SysSrvClient:battery-charge:
   *
   * Battery charge in percent.
   */
  a_z_o_Props[PROP_BATTERY_CHARGE] = f_IntProp("battery-charge", "battery charge in percent");
  /**
   * SysSrvClient:battery-status:
   *
   * Battery status.
   */
  a_z_o_Props[PROP_BATTERY_STATUS] =
      g_param_spec_enum("battery-status", NULL, "battery status", SYS_SRV_TYPE_BATTERY_STATUS,
                        SYS_SRV_BATTERY_STATUS_UNKNOWN,
                        G_PARAM_READABLE | G_PARAM_STATIC_STRINGS | G_PARAM_EXPLICIT_NOTIFY);
  /**
   * SysSrvClient:readiness-actual:
   *
   * The actual readiness flags that are required, as last announced.
   */
  a_z_o_Props[PROP_READINESS_ACTUAL] = f_UIntProp("readiness-actual", "actual readiness flags");
  /**
   * SysSrvClient:readiness-required:
   *
   * The required readiness flags.
   */
  a_z_o_Props[PROP_READINESS_REQUIRED] =
      f_UIntProp("readiness-required", "required readiness flags");
  /**
   * SysSrvClient:ready:
   *
   * %TRUE when every required readiness flag is set.
   */
  a_z_o_Props[PROP_READY] = f_BoolProp("ready", "the controller is ready");
  /**
   * SysSrvClient:error-code:
   *
   * Code of the current error, 0 when none is active.
   */
  a_z_o_Props[PROP_ERROR_CODE] = f_IntProp("error-code", "current error code");
  /**
   * SysSrvClient:error-class:
   *
   * Class of the current error.
   */
  a_z_o_Props[PROP_ERROR_CLASS] = f_IntProp("error-class", "current error class");
  /**
   * SysSrvClient:error-date:
   *
   * When the current error was raised, seconds since the epoch.
   */
  a_z_o_Props[PROP_ERROR_DATE] =
      g_param_spec_int64("error-date", NULL, "current error date", G_MININT64, G_MAXINT64, 0,
                         G_PARAM_READABLE | G_PARAM_STATIC_STRINGS | G_PARAM_EXPLICIT_NOTIFY);
  /**
   * SysSrvClient:tool-enabled:
   *
   * Whether the tool is enabled.
   */
  a_z_o_Props[PROP_TOOL_ENABLED] = f_BoolProp("tool-enabled", "the tool is enabled");
  g_object_class_install_properties(z_o_Class, N_PROPS, a_z_o_Props);

  /**
   * SysSrvClient::bus-signal:
   * @self: the client
   * @name: the signal's name on the wire
   * @args: its arguments exactly as they came
   *
   * Every signal of the service untyped, for monitors; the detail is the wire name.
   */
  a_ui_Signals[SIG_BUS_SIGNAL] =
      g_signal_new("bus-signal", G_TYPE_FROM_CLASS(klass), G_SIGNAL_RUN_LAST | G_SIGNAL_DETAILED, 0,
                   NULL, NULL, NULL, G_TYPE_NONE, 2, G_TYPE_STRING, G_TYPE_VARIANT);
  /**
   * SysSrvClient::config-file-changed:
   * @self: the client
   * @path: the logical path of the configuration file that changed
   */
  a_ui_Signals[SIG_CONFIG_FILE_CHANGED] =
      f_NewSignal(z_o_Class, "config-file-changed", 1, G_TYPE_STRING);
  /**
   * SysSrvClient::error-raised:
   * @self: the client
   * @code: error code
   * @error_class: error class
   * @date: when it was raised, seconds since the epoch
   */
  a_ui_Signals[SIG_ERROR_RAISED] =
      f_NewSignal(z_o_Class, "error-raised", 3, G_TYPE_INT, G_TYPE_INT, G_TYPE_INT64);
  /**
   * SysSrvClient::error-acknowledged:
   * @self: the client
   * @code: the acknowledged code
   * @current_code: code of the error current afterwards, 0 when none remains
   * @current_class: its class
   */
  a_ui_Signals[SIG_ERROR_ACKNOWLEDGED] =
      f_NewSignal(z_o_Class, "error-acknowledged", 3, G_TYPE_INT, G_TYPE_INT, G_TYPE_INT);
  /**
   * SysSrvClient::battery-charge-changed:
   * @self: the client
   * @charge: battery charge in percent
   */
  a_ui_Signals[SIG_BATTERY_CHARGE_CHANGED] =
      f_NewSignal(z_o_Class, "battery-charge-changed", 1, G_TYPE_INT);
  /**
   * SysSrvClient::battery-status-changed:
   * @self: the client
   * @status: the battery status
   *
   * Also repeated with a weak battery after each completed cycle, as a reminder.
   */
  a_ui_Signals[SIG_BATTERY_STATUS_CHANGED] =
      f_NewSignal(z_o_Class, "battery-status-changed", 1, SYS_SRV_TYPE_BATTERY_STATUS);
  /**
   * SysSrvClient::battery-countdown:
   * @self: the client
   * @seconds: seconds left before the tool switches itself off
   */
  a_ui_Signals[SIG_BATTERY_COUNTDOWN] = f_NewSignal(z_o_Class, "battery-countdown", 1, G_TYPE_INT);
  /**
   * SysSrvClient::new-result:
   * @self: the client
   * @database_path: the result database
   * @data_set: the data set number
   */
  a_ui_Signals[SIG_NEW_RESULT] = f_NewSignal(z_o_Class, "new-result", 2, G_TYPE_STRING, G_TYPE_INT);
  /**
   * SysSrvClient::tool-enable-changed:
   * @self: the client
   * @enabled: whether the tool is enabled
   */
  a_ui_Signals[SIG_TOOL_ENABLE_CHANGED] =
      f_NewSignal(z_o_Class, "tool-enable-changed", 1, G_TYPE_BOOLEAN);
  /**
   * SysSrvClient::program-changed:
   * @self: the client
   * @program: the program number now selected
   */
  a_ui_Signals[SIG_PROGRAM_CHANGED] = f_NewSignal(z_o_Class, "program-changed", 1, G_TYPE_INT);
  /**
   * SysSrvClient::new-id-code:
   * @self: the client
   * @device: the reading device
   * @device_active: whether it is active
   * @id_code: the code read
   */
  a_ui_Signals[SIG_NEW_ID_CODE] =
      f_NewSignal(z_o_Class, "new-id-code", 3, G_TYPE_INT, G_TYPE_INT, G_TYPE_STRING);
  /**
   * SysSrvClient::readiness-changed:
   * @self: the client
   * @actual: the actual flags that are required
   * @required: the required flags
   *
   * Sent when the ready state changes.
   */
  a_ui_Signals[SIG_READINESS_CHANGED] =
      f_NewSignal(z_o_Class, "readiness-changed", 2, G_TYPE_UINT, G_TYPE_UINT);
  /**
   * SysSrvClient::bms-input-changed:
   * @self: the client
   *
   * Part of the interface; the current service never sends it.
   */
  a_ui_Signals[SIG_BMS_INPUT_CHANGED] = f_NewSignal(z_o_Class, "bms-input-changed", 0);
  /**
   * SysSrvClient::bms-output-changed:
   * @self: the client
   *
   * Part of the interface; the current service never sends it.
   */
  a_ui_Signals[SIG_BMS_OUTPUT_CHANGED] = f_NewSignal(z_o_Class, "bms-output-changed", 0);
  /**
   * SysSrvClient::start-aborted:
   * @self: the client
   */
  a_ui_Signals[SIG_START_ABORTED] = f_NewSignal(z_o_Class, "start-aborted", 0);
  /**
   * SysSrvClient::job-running-changed:
   * @self: the client
   * @state: the job's running state
   */
  a_ui_Signals[SIG_JOB_RUNNING_CHANGED] =
      f_NewSignal(z_o_Class, "job-running-changed", 1, G_TYPE_INT);
  /**
   * SysSrvClient::operation-mode-changed:
   * @self: the client
   * @mode: the operation mode now taken
   */
  a_ui_Signals[SIG_OPERATION_MODE_CHANGED] =
      f_NewSignal(z_o_Class, "operation-mode-changed", 1, G_TYPE_INT);
  /**
   * SysSrvClient::operation-mode-requested:
   * @self: the client
   * @mode: the requested mode
   * @trigger_source: what triggers it
   * @trigger_value: the trigger's value
   */
  a_ui_Signals[SIG_OPERATION_MODE_REQUESTED] =
      f_NewSignal(z_o_Class, "operation-mode-requested", 3, G_TYPE_INT, G_TYPE_INT, G_TYPE_INT);
}

SysSrvClient* sys_srv_client_new_for_address_sync(const gchar* address, GCancellable* cancellable,
                                                  GError** error) {
  g_return_val_if_fail(address != NULL, NULL);
  /* A connection of our own rather than GLib's shared one: the shared one ends the
   * process when the bus goes away, which is not a library's decision to make. */
  GDBusConnection* z_o_Conn =
      g_dbus_connection_new_for_address_sync(address,
                                             G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                 G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION,
                                             NULL, cancellable, error);
  if (z_o_Conn == NULL) {
    f_Translate("connect", error);
    return NULL;
  }
  SysSrvClient* z_o_Self = g_object_new(SYS_SRV_TYPE_CLIENT, NULL);
  z_o_Self->z_c_Address = g_strdup(address);
  z_o_Self->z_o_Conn = z_o_Conn;
  z_o_Self->ui_Sub = g_dbus_connection_signal_subscribe(
      z_o_Conn, SYSSRV_BUS_NAME, SYSSRV_INTERFACE, NULL, SYSSRV_OBJECT_PATH, NULL,
      G_DBUS_SIGNAL_FLAGS_NONE, f_OnSignal, z_o_Self, NULL);
  z_o_Self->ui_Watch =
      g_bus_watch_name_on_connection(z_o_Conn, SYSSRV_BUS_NAME, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                     f_OnAppeared, f_OnVanished, z_o_Self, NULL);
  return z_o_Self;
}

SysSrvClient* sys_srv_client_new_sync(GCancellable* cancellable, GError** error) {
  gchar* z_c_Addr = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, cancellable, error);
  if (z_c_Addr == NULL) {
    f_Translate("connect", error);
    return NULL;
  }
  SysSrvClient* z_o_Self = sys_srv_client_new_for_address_sync(z_c_Addr, cancellable, error);
  g_free(z_c_Addr);
  return z_o_Self;
}

const gchar* sys_srv_client_get_address(SysSrvClient* self) {
  g_return_val_if_fail(SYS_SRV_IS_CLIENT(self), NULL);
  return self->z_c_Address;
}

GDBusConnection* sys_srv_client_get_connection(SysSrvClient* self) {
  g_return_val_if_fail(SYS_SRV_IS_CLIENT(self), NULL);
  return self->z_o_Conn;
}

void sys_srv_client_set_timeout(SysSrvClient* self, gint timeout_ms) {
  g_return_if_fail(SYS_SRV_IS_CLIENT(self));
  self->i_TimeoutMs = timeout_ms;
}

gchar* sys_srv_client_lookup_owner_sync(SysSrvClient* self, GCancellable* cancellable,
                                        GError** error) {
  g_return_val_if_fail(SYS_SRV_IS_CLIENT(self), NULL);
  GError* z_o_Err = NULL;
  GVariant* o_Reply = g_dbus_connection_call_sync(
      self->z_o_Conn, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "GetNameOwner", g_variant_new("(s)", SYSSRV_BUS_NAME), G_VARIANT_TYPE("(s)"),
      G_DBUS_CALL_FLAGS_NONE, self->i_TimeoutMs, cancellable, &z_o_Err);
  if (o_Reply == NULL) {
    /* Nobody owning the name is an answer, not a failure. */
    if (g_error_matches(z_o_Err, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER)) {
      g_error_free(z_o_Err);
      return NULL;
    }
    f_Translate("GetNameOwner", &z_o_Err);
    g_propagate_error(error, z_o_Err);
    return NULL;
  }
  gchar* z_c_Owner = NULL;
  g_variant_get(o_Reply, "(s)", &z_c_Owner);
  g_variant_unref(o_Reply);
  return z_c_Owner;
}

gboolean sys_srv_client_get_service_running(SysSrvClient* self) {
  g_return_val_if_fail(SYS_SRV_IS_CLIENT(self), FALSE);
  return self->b_Running;
}

gint sys_srv_client_get_battery_charge(SysSrvClient* self) {
  g_return_val_if_fail(SYS_SRV_IS_CLIENT(self), 0);
  return self->i_Charge;
}

SysSrvBatteryStatus sys_srv_client_get_battery_status(SysSrvClient* self) {
  g_return_val_if_fail(SYS_SRV_IS_CLIENT(self), SYS_SRV_BATTERY_STATUS_UNKNOWN);
  return self->e_BattStatus;
}

gboolean sys_srv_client_get_ready(SysSrvClient* self) {
  g_return_val_if_fail(SYS_SRV_IS_CLIENT(self), FALSE);
  return self->b_Ready;
}

void sys_srv_client_get_readiness(SysSrvClient* self, guint* actual, guint* required) {
  g_return_if_fail(SYS_SRV_IS_CLIENT(self));
  if (actual) *actual = self->ui_RdyIst;
  if (required) *required = self->ui_RdySoll;
}

void sys_srv_client_get_current_error(SysSrvClient* self, gint* code, gint* error_class,
                                      gint64* date) {
  g_return_if_fail(SYS_SRV_IS_CLIENT(self));
  if (code) *code = self->i_ErrCode;
  if (error_class) *error_class = self->i_ErrClass;
  if (date) *date = self->i_ErrDate;
}

gboolean sys_srv_client_get_tool_enabled(SysSrvClient* self) {
  g_return_val_if_fail(SYS_SRV_IS_CLIENT(self), FALSE);
  return self->b_ToolEnabled;
}
