/* libsyssrv-client: typed access to the tool's system service over the system bus.
 *
 * The whole public interface of the library is this one header. Names follow GObject's
 * conventions (namespace SysSrv, symbol prefix sys_srv_) because the introspection data, and
 * with it every language binding, is derived from them.
 */
#ifndef SYSSRV_CLIENT_H
#define SYSSRV_CLIENT_H

#include <gio/gio.h>

G_BEGIN_DECLS

#if defined(SYSSRV_CLIENT_COMPILATION)
#define SYSSRV_API __attribute__((visibility("default")))
#else
#define SYSSRV_API
#endif

/* The service's place on the bus. The library's build checks these against the names the
 * service itself is built with. */
#define SYS_SRV_BUS_NAME "com.torvane.akku.SysService"
#define SYS_SRV_OBJECT_PATH "/SysObj"
#define SYS_SRV_INTERFACE "com.torvane.akku.SysInterface"

/**
 * SysSrvClientError:
 * @SYS_SRV_CLIENT_ERROR_FAILED: any other failure; the message says what happened.
 * @SYS_SRV_CLIENT_ERROR_REFUSED: the service answered with its error reply (it gives no
 *   reason on the wire; its log has one).
 * @SYS_SRV_CLIENT_ERROR_NOT_RUNNING: nobody owns the service's bus name.
 * @SYS_SRV_CLIENT_ERROR_TIMED_OUT: the service did not answer in time.
 * @SYS_SRV_CLIENT_ERROR_ACCESS_DENIED: the bus policy does not allow the call.
 * @SYS_SRV_CLIENT_ERROR_INCOMPATIBLE: the running service does not know the method, or
 *   answered with other types (another version of the service).
 * @SYS_SRV_CLIENT_ERROR_DISCONNECTED: the bus connection is gone, or there is no bus.
 *
 * Error codes of the %SYS_SRV_CLIENT_ERROR domain: what the caller can act on.
 */
typedef enum {
  SYS_SRV_CLIENT_ERROR_FAILED,
  SYS_SRV_CLIENT_ERROR_REFUSED,
  SYS_SRV_CLIENT_ERROR_NOT_RUNNING,
  SYS_SRV_CLIENT_ERROR_TIMED_OUT,
  SYS_SRV_CLIENT_ERROR_ACCESS_DENIED,
  SYS_SRV_CLIENT_ERROR_INCOMPATIBLE,
  SYS_SRV_CLIENT_ERROR_DISCONNECTED,
} SysSrvClientError;

#define SYS_SRV_CLIENT_ERROR (sys_srv_client_error_quark())
SYSSRV_API GQuark sys_srv_client_error_quark(void);
#define SYS_SRV_TYPE_CLIENT_ERROR (sys_srv_client_error_get_type())
SYSSRV_API GType sys_srv_client_error_get_type(void);

/**
 * sys_srv_client_error_classify:
 * @error: an error from a bus call of the service, as GIO reported it
 *
 * Sorts a bus-level error into the codes above; an error already of the
 * %SYS_SRV_CLIENT_ERROR domain keeps its code.
 *
 * Returns: the code that describes @error
 */
SYSSRV_API SysSrvClientError sys_srv_client_error_classify(const GError* error);

/**
 * SysSrvBatteryStatus:
 * @SYS_SRV_BATTERY_STATUS_OFF: battery off, announced by the power controller
 * @SYS_SRV_BATTERY_STATUS_EMPTY: battery empty: the tool switches off after a count-down
 * @SYS_SRV_BATTERY_STATUS_LOW: battery low
 * @SYS_SRV_BATTERY_STATUS_GOOD: battery good
 * @SYS_SRV_BATTERY_STATUS_UNKNOWN: battery on, charge not known yet
 * @SYS_SRV_BATTERY_STATUS_WEAK: battery weak but usable
 *
 * Battery status as the service publishes it.
 */
typedef enum {
  SYS_SRV_BATTERY_STATUS_OFF = 0,
  SYS_SRV_BATTERY_STATUS_EMPTY = 1,
  SYS_SRV_BATTERY_STATUS_LOW = 2,
  SYS_SRV_BATTERY_STATUS_GOOD = 3,
  SYS_SRV_BATTERY_STATUS_UNKNOWN = 4,
  SYS_SRV_BATTERY_STATUS_WEAK = 5,
} SysSrvBatteryStatus;

#define SYS_SRV_TYPE_BATTERY_STATUS (sys_srv_battery_status_get_type())
SYSSRV_API GType sys_srv_battery_status_get_type(void);

/* --- coded error numbers: code × 8 + class -------------------------------------------- */

/**
 * sys_srv_error_encode:
 * @code: the error code
 * @error_class: the error class, 0 to 7
 *
 * Returns: the coded error number the wire carries
 */
SYSSRV_API gint sys_srv_error_encode(gint code, gint error_class);
/**
 * sys_srv_error_code:
 * @coded: a coded error number
 *
 * Returns: the code part of @coded
 */
SYSSRV_API gint sys_srv_error_code(gint coded);
/**
 * sys_srv_error_class:
 * @coded: a coded error number
 *
 * Returns: the class part of @coded (its low three bits)
 */
SYSSRV_API gint sys_srv_error_class(gint coded);

/**
 * SysSrvErrorEntry:
 * @code: error code
 * @error_class: error class
 * @date: when the error was raised, seconds since the Unix epoch
 *
 * One active (not yet acknowledged) system error.
 */
typedef struct {
  gint code;
  gint error_class;
  gint64 date;
} SysSrvErrorEntry;

#define SYS_SRV_TYPE_ERROR_ENTRY (sys_srv_error_entry_get_type())
SYSSRV_API GType sys_srv_error_entry_get_type(void);
SYSSRV_API SysSrvErrorEntry* sys_srv_error_entry_copy(const SysSrvErrorEntry* entry);
SYSSRV_API void sys_srv_error_entry_free(SysSrvErrorEntry* entry);

/* --- the client object ------------------------------------------------------------------ */

#define SYS_SRV_TYPE_CLIENT (sys_srv_client_get_type())
SYSSRV_API G_DECLARE_FINAL_TYPE(SysSrvClient, sys_srv_client, SYS_SRV, CLIENT, GObject)

/**
 * sys_srv_client_new_sync:
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Connects to the system bus (the one DBUS_SYSTEM_BUS_ADDRESS names, when set) and starts
 * following the service. The service need not run yet: the client notices it appearing.
 * Signals and property changes are delivered in the thread-default main context of the
 * caller.
 *
 * Returns: (transfer full): a new client, or %NULL when there is no bus
 */
SYSSRV_API SysSrvClient* sys_srv_client_new_sync(GCancellable* cancellable, GError** error);

/**
 * sys_srv_client_new_for_address_sync:
 * @address: a D-Bus address, such as "unix:path=/run/dbus/system_bus_socket"
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Like sys_srv_client_new_sync(), on the bus at @address.
 *
 * Returns: (transfer full): a new client, or %NULL when the bus cannot be reached
 */
SYSSRV_API SysSrvClient* sys_srv_client_new_for_address_sync(const gchar* address,
                                                             GCancellable* cancellable,
                                                             GError** error);

/**
 * sys_srv_client_get_address:
 * @self: a #SysSrvClient
 *
 * Returns: the address of the bus the client is connected to
 */
SYSSRV_API const gchar* sys_srv_client_get_address(SysSrvClient* self);
/**
 * sys_srv_client_get_connection:
 * @self: a #SysSrvClient
 *
 * Returns: (transfer none): the client's own bus connection
 */
SYSSRV_API GDBusConnection* sys_srv_client_get_connection(SysSrvClient* self);
/**
 * sys_srv_client_set_timeout:
 * @self: a #SysSrvClient
 * @timeout_ms: reply timeout of the typed calls in milliseconds; -1 for the bus default
 */
SYSSRV_API void sys_srv_client_set_timeout(SysSrvClient* self, gint timeout_ms);

/**
 * sys_srv_client_lookup_owner_sync:
 * @self: a #SysSrvClient
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Asks the bus, now, who owns the service's name; for programs that run no main loop and
 * so cannot follow #SysSrvClient:service-running.
 *
 * Returns: (transfer full) (nullable): the owner's unique bus name; %NULL with @error unset
 *   when nobody owns the name, %NULL with @error set when the bus did not answer
 */
SYSSRV_API gchar* sys_srv_client_lookup_owner_sync(SysSrvClient* self, GCancellable* cancellable,
                                                   GError** error);

/**
 * sys_srv_client_get_service_running:
 * @self: a #SysSrvClient
 *
 * Returns: %TRUE while the service owns its bus name and the client has loaded its state
 */
SYSSRV_API gboolean sys_srv_client_get_service_running(SysSrvClient* self);
/**
 * sys_srv_client_get_battery_charge:
 * @self: a #SysSrvClient
 *
 * Returns: the last published battery charge in percent
 */
SYSSRV_API gint sys_srv_client_get_battery_charge(SysSrvClient* self);
/**
 * sys_srv_client_get_battery_status:
 * @self: a #SysSrvClient
 *
 * Returns: the last published battery status
 */
SYSSRV_API SysSrvBatteryStatus sys_srv_client_get_battery_status(SysSrvClient* self);
/**
 * sys_srv_client_get_ready:
 * @self: a #SysSrvClient
 *
 * Returns: %TRUE when every required readiness flag is set
 */
SYSSRV_API gboolean sys_srv_client_get_ready(SysSrvClient* self);
/**
 * sys_srv_client_get_readiness:
 * @self: a #SysSrvClient
 * @actual: (out) (optional): the actual readiness flags (only those that are required)
 * @required: (out) (optional): the required readiness flags
 *
 * The readiness words as last loaded or announced. The service announces them only when
 * the "ready" state changes, so between changes they may lag behind single flags; the
 * "ready" state itself is always current.
 */
SYSSRV_API void sys_srv_client_get_readiness(SysSrvClient* self, guint* actual, guint* required);
/**
 * sys_srv_client_get_current_error:
 * @self: a #SysSrvClient
 * @code: (out) (optional): code of the current error, 0 when none is active
 * @error_class: (out) (optional): its class
 * @date: (out) (optional): when it was raised, seconds since the epoch
 */
SYSSRV_API void sys_srv_client_get_current_error(SysSrvClient* self, gint* code, gint* error_class,
                                                 gint64* date);
/**
 * sys_srv_client_get_tool_enabled:
 * @self: a #SysSrvClient
 *
 * Returns: whether the tool is enabled
 */
SYSSRV_API gboolean sys_srv_client_get_tool_enabled(SysSrvClient* self);

/* --- wire-level access, for tools that forward method names or inspect the wire -------- */

/**
 * sys_srv_client_call_sync:
 * @self: a #SysSrvClient
 * @method: a method name of the service interface
 * @parameters: (nullable): the arguments; floating references are consumed
 * @reply_type: (nullable): the expected reply type, %NULL for any
 * @flags: call flags
 * @timeout_ms: reply timeout, -1 for the client's timeout
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Calls a method by its wire name. Errors are passed on exactly as GIO reports them; sort
 * them with sys_srv_client_error_classify(). The typed calls below are what applications
 * use.
 *
 * Returns: (transfer full): the reply, or %NULL on failure
 */
SYSSRV_API GVariant* sys_srv_client_call_sync(SysSrvClient* self, const gchar* method,
                                              GVariant* parameters, const GVariantType* reply_type,
                                              GDBusCallFlags flags, gint timeout_ms,
                                              GCancellable* cancellable, GError** error);
/**
 * sys_srv_client_send:
 * @self: a #SysSrvClient
 * @method: a method name of the service interface
 * @parameters: (nullable): the arguments; floating references are consumed
 * @out_serial: (out) (optional): the serial of the message sent
 * @error: return location for an error
 *
 * Sends a method call flagged "no reply expected" and returns at once.
 *
 * Returns: %TRUE when the message was handed to the bus
 */
SYSSRV_API gboolean sys_srv_client_send(SysSrvClient* self, const gchar* method,
                                        GVariant* parameters, guint32* out_serial, GError** error);

/* --- typed methods -------------------------------------------------------------------
 * Every method comes as NAME_sync, and as NAME with NAME_finish for its asynchronous form.
 * Failures are of the SYS_SRV_CLIENT_ERROR domain.
 */

/**
 * sys_srv_client_report_error_sync:
 * @self: a #SysSrvClient
 * @process: name of the reporting process
 * @code: error code
 * @error_class: error class, 0 to 7
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Raises a system error; the service stores it and announces it.
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_report_error_sync(SysSrvClient* self, const gchar* process,
                                                     gint code, gint error_class,
                                                     GCancellable* cancellable, GError** error);
SYSSRV_API void sys_srv_client_report_error(SysSrvClient* self, const gchar* process, gint code,
                                            gint error_class, GCancellable* cancellable,
                                            GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_report_error_finish(SysSrvClient* self, GAsyncResult* result,
                                                       GError** error);

/**
 * sys_srv_client_ack_error_sync:
 * @self: a #SysSrvClient
 * @process: name of the acknowledging process
 * @code: error code
 * @error_class: error class; errors of class 1 are never acknowledged by code, and the
 *   service ignores such a request without failing it
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Acknowledges every active error with @code.
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_ack_error_sync(SysSrvClient* self, const gchar* process,
                                                  gint code, gint error_class,
                                                  GCancellable* cancellable, GError** error);
SYSSRV_API void sys_srv_client_ack_error(SysSrvClient* self, const gchar* process, gint code,
                                         gint error_class, GCancellable* cancellable,
                                         GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_ack_error_finish(SysSrvClient* self, GAsyncResult* result,
                                                    GError** error);

/**
 * sys_srv_client_ack_error_list_sync:
 * @self: a #SysSrvClient
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Acknowledges every active error of class 0 and 3 (the operator's acknowledgement).
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_ack_error_list_sync(SysSrvClient* self,
                                                       GCancellable* cancellable, GError** error);
SYSSRV_API void sys_srv_client_ack_error_list(SysSrvClient* self, GCancellable* cancellable,
                                              GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_ack_error_list_finish(SysSrvClient* self, GAsyncResult* result,
                                                         GError** error);

/**
 * sys_srv_client_delete_error_list_sync:
 * @self: a #SysSrvClient
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Deletes the whole error list.
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_delete_error_list_sync(SysSrvClient* self,
                                                          GCancellable* cancellable,
                                                          GError** error);
SYSSRV_API void sys_srv_client_delete_error_list(SysSrvClient* self, GCancellable* cancellable,
                                                 GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_delete_error_list_finish(SysSrvClient* self,
                                                            GAsyncResult* result, GError** error);

/**
 * sys_srv_client_fetch_current_error_sync:
 * @self: a #SysSrvClient
 * @code: (out) (optional): code of the current error, 0 when none is active
 * @error_class: (out) (optional): its class
 * @date: (out) (optional): when it was raised, seconds since the epoch
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Asks the service for its current error.
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_fetch_current_error_sync(SysSrvClient* self, gint* code,
                                                            gint* error_class, gint64* date,
                                                            GCancellable* cancellable,
                                                            GError** error);
SYSSRV_API void sys_srv_client_fetch_current_error(SysSrvClient* self, GCancellable* cancellable,
                                                   GAsyncReadyCallback callback,
                                                   gpointer user_data);
/**
 * sys_srv_client_fetch_current_error_finish:
 * @self: a #SysSrvClient
 * @result: the #GAsyncResult
 * @code: (out) (optional): code of the current error
 * @error_class: (out) (optional): its class
 * @date: (out) (optional): when it was raised
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_fetch_current_error_finish(SysSrvClient* self,
                                                              GAsyncResult* result, gint* code,
                                                              gint* error_class, gint64* date,
                                                              GError** error);

/**
 * sys_srv_client_fetch_active_errors_sync:
 * @self: a #SysSrvClient
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Lists every active error, oldest first.
 *
 * Returns: (transfer container) (element-type SysSrvErrorEntry): the errors, or %NULL
 */
SYSSRV_API GPtrArray* sys_srv_client_fetch_active_errors_sync(SysSrvClient* self,
                                                              GCancellable* cancellable,
                                                              GError** error);
SYSSRV_API void sys_srv_client_fetch_active_errors(SysSrvClient* self, GCancellable* cancellable,
                                                   GAsyncReadyCallback callback,
                                                   gpointer user_data);
/**
 * sys_srv_client_fetch_active_errors_finish:
 * @self: a #SysSrvClient
 * @result: the #GAsyncResult
 * @error: return location for an error
 *
 * Returns: (transfer container) (element-type SysSrvErrorEntry): the errors, or %NULL
 */
SYSSRV_API GPtrArray* sys_srv_client_fetch_active_errors_finish(SysSrvClient* self,
                                                                GAsyncResult* result,
                                                                GError** error);

/**
 * sys_srv_client_fetch_readiness_sync:
 * @self: a #SysSrvClient
 * @actual: (out) (optional): the actual flags, masked by the required ones
 * @required: (out) (optional): the required flags
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Asks the service for its readiness words. Refused while the service runs without its
 * error list.
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_fetch_readiness_sync(SysSrvClient* self, guint* actual,
                                                        guint* required, GCancellable* cancellable,
                                                        GError** error);
SYSSRV_API void sys_srv_client_fetch_readiness(SysSrvClient* self, GCancellable* cancellable,
                                               GAsyncReadyCallback callback, gpointer user_data);
/**
 * sys_srv_client_fetch_readiness_finish:
 * @self: a #SysSrvClient
 * @result: the #GAsyncResult
 * @actual: (out) (optional): the actual flags
 * @required: (out) (optional): the required flags
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_fetch_readiness_finish(SysSrvClient* self, GAsyncResult* result,
                                                          guint* actual, guint* required,
                                                          GError** error);

/**
 * sys_srv_client_set_ready_flag_sync:
 * @self: a #SysSrvClient
 * @flag: readiness flag number, 0 to 31
 * @set: %TRUE to set the flag, %FALSE to reset it
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_set_ready_flag_sync(SysSrvClient* self, gint flag, gboolean set,
                                                       GCancellable* cancellable, GError** error);
SYSSRV_API void sys_srv_client_set_ready_flag(SysSrvClient* self, gint flag, gboolean set,
                                              GCancellable* cancellable,
                                              GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_set_ready_flag_finish(SysSrvClient* self, GAsyncResult* result,
                                                         GError** error);

/**
 * sys_srv_client_dump_readiness_sync:
 * @self: a #SysSrvClient
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Makes the service write its readiness table to its log.
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_dump_readiness_sync(SysSrvClient* self,
                                                       GCancellable* cancellable, GError** error);
SYSSRV_API void sys_srv_client_dump_readiness(SysSrvClient* self, GCancellable* cancellable,
                                              GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_dump_readiness_finish(SysSrvClient* self, GAsyncResult* result,
                                                         GError** error);

/**
 * sys_srv_client_fetch_battery_charge_sync:
 * @self: a #SysSrvClient
 * @charge: (out): battery charge in percent
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_fetch_battery_charge_sync(SysSrvClient* self, gint* charge,
                                                             GCancellable* cancellable,
                                                             GError** error);
SYSSRV_API void sys_srv_client_fetch_battery_charge(SysSrvClient* self, GCancellable* cancellable,
                                                    GAsyncReadyCallback callback,
                                                    gpointer user_data);
/**
 * sys_srv_client_fetch_battery_charge_finish:
 * @self: a #SysSrvClient
 * @result: the #GAsyncResult
 * @charge: (out): battery charge in percent
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_fetch_battery_charge_finish(SysSrvClient* self,
                                                               GAsyncResult* result, gint* charge,
                                                               GError** error);

/**
 * sys_srv_client_set_battery_charge_sync:
 * @self: a #SysSrvClient
 * @charge: battery charge in percent
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Overrides the published charge until the next change of the reading.
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_set_battery_charge_sync(SysSrvClient* self, gint charge,
                                                           GCancellable* cancellable,
                                                           GError** error);
SYSSRV_API void sys_srv_client_set_battery_charge(SysSrvClient* self, gint charge,
                                                  GCancellable* cancellable,
                                                  GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_set_battery_charge_finish(SysSrvClient* self,
                                                             GAsyncResult* result, GError** error);

/**
 * sys_srv_client_fetch_battery_status_sync:
 * @self: a #SysSrvClient
 * @status: (out): the battery status
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_fetch_battery_status_sync(SysSrvClient* self,
                                                             SysSrvBatteryStatus* status,
                                                             GCancellable* cancellable,
                                                             GError** error);
SYSSRV_API void sys_srv_client_fetch_battery_status(SysSrvClient* self, GCancellable* cancellable,
                                                    GAsyncReadyCallback callback,
                                                    gpointer user_data);
/**
 * sys_srv_client_fetch_battery_status_finish:
 * @self: a #SysSrvClient
 * @result: the #GAsyncResult
 * @status: (out): the battery status
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_fetch_battery_status_finish(SysSrvClient* self,
                                                               GAsyncResult* result,
                                                               SysSrvBatteryStatus* status,
                                                               GError** error);

/**
 * sys_srv_client_set_battery_status_sync:
 * @self: a #SysSrvClient
 * @status: a battery status
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Passes a battery status to the service. The service takes no action on it and never
 * answers, so the call is sent without waiting for an answer; only the battery
 * supervision of the service changes the status.
 *
 * Returns: %TRUE when the call was sent
 */
SYSSRV_API gboolean sys_srv_client_set_battery_status_sync(SysSrvClient* self,
                                                           SysSrvBatteryStatus status,
                                                           GCancellable* cancellable,
                                                           GError** error);
SYSSRV_API void sys_srv_client_set_battery_status(SysSrvClient* self, SysSrvBatteryStatus status,
                                                  GCancellable* cancellable,
                                                  GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_set_battery_status_finish(SysSrvClient* self,
                                                             GAsyncResult* result, GError** error);

/**
 * sys_srv_client_fetch_tool_enable_sync:
 * @self: a #SysSrvClient
 * @enabled: (out): whether the tool is enabled
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_fetch_tool_enable_sync(SysSrvClient* self, gboolean* enabled,
                                                          GCancellable* cancellable,
                                                          GError** error);
SYSSRV_API void sys_srv_client_fetch_tool_enable(SysSrvClient* self, GCancellable* cancellable,
                                                 GAsyncReadyCallback callback, gpointer user_data);
/**
 * sys_srv_client_fetch_tool_enable_finish:
 * @self: a #SysSrvClient
 * @result: the #GAsyncResult
 * @enabled: (out): whether the tool is enabled
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_fetch_tool_enable_finish(SysSrvClient* self,
                                                            GAsyncResult* result, gboolean* enabled,
                                                            GError** error);

/**
 * sys_srv_client_set_tool_enable_sync:
 * @self: a #SysSrvClient
 * @enabled: whether the tool is enabled
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_set_tool_enable_sync(SysSrvClient* self, gboolean enabled,
                                                        GCancellable* cancellable, GError** error);
SYSSRV_API void sys_srv_client_set_tool_enable(SysSrvClient* self, gboolean enabled,
                                               GCancellable* cancellable,
                                               GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_set_tool_enable_finish(SysSrvClient* self, GAsyncResult* result,
                                                          GError** error);

/**
 * sys_srv_client_fetch_mfu_sync:
 * @self: a #SysSrvClient
 * @mfu: (out): the maintenance factor in thousandths (1000 is a factor of 1)
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * The maintenance factor that scales the torque limits, as stored in the channel
 * configuration.
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_fetch_mfu_sync(SysSrvClient* self, gint* mfu,
                                                  GCancellable* cancellable, GError** error);
SYSSRV_API void sys_srv_client_fetch_mfu(SysSrvClient* self, GCancellable* cancellable,
                                         GAsyncReadyCallback callback, gpointer user_data);
/**
 * sys_srv_client_fetch_mfu_finish:
 * @self: a #SysSrvClient
 * @result: the #GAsyncResult
 * @mfu: (out): the maintenance factor in thousandths
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_fetch_mfu_finish(SysSrvClient* self, GAsyncResult* result,
                                                    gint* mfu, GError** error);

/**
 * sys_srv_client_set_mfu_sync:
 * @self: a #SysSrvClient
 * @mfu: the maintenance factor in thousandths
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Sets the maintenance factor; the service rescales the torque limits.
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_set_mfu_sync(SysSrvClient* self, gint mfu,
                                                GCancellable* cancellable, GError** error);
SYSSRV_API void sys_srv_client_set_mfu(SysSrvClient* self, gint mfu, GCancellable* cancellable,
                                       GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_set_mfu_finish(SysSrvClient* self, GAsyncResult* result,
                                                  GError** error);

/**
 * sys_srv_client_config_file_changed_sync:
 * @self: a #SysSrvClient
 * @path: the logical path of the configuration file that changed
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Announces a changed configuration file so that its owner re-reads it.
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_config_file_changed_sync(SysSrvClient* self, const gchar* path,
                                                            GCancellable* cancellable,
                                                            GError** error);
SYSSRV_API void sys_srv_client_config_file_changed(SysSrvClient* self, const gchar* path,
                                                   GCancellable* cancellable,
                                                   GAsyncReadyCallback callback,
                                                   gpointer user_data);
SYSSRV_API gboolean sys_srv_client_config_file_changed_finish(SysSrvClient* self,
                                                              GAsyncResult* result, GError** error);

/**
 * sys_srv_client_cycle_complete_sync:
 * @self: a #SysSrvClient
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Announces a completed tightening cycle.
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_cycle_complete_sync(SysSrvClient* self,
                                                       GCancellable* cancellable, GError** error);
SYSSRV_API void sys_srv_client_cycle_complete(SysSrvClient* self, GCancellable* cancellable,
                                              GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_cycle_complete_finish(SysSrvClient* self, GAsyncResult* result,
                                                         GError** error);

/**
 * sys_srv_client_abort_start_sync:
 * @self: a #SysSrvClient
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Announces an aborted start.
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_abort_start_sync(SysSrvClient* self, GCancellable* cancellable,
                                                    GError** error);
SYSSRV_API void sys_srv_client_abort_start(SysSrvClient* self, GCancellable* cancellable,
                                           GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_abort_start_finish(SysSrvClient* self, GAsyncResult* result,
                                                      GError** error);

/**
 * sys_srv_client_new_result_sync:
 * @self: a #SysSrvClient
 * @database_path: the result database
 * @data_set: the data set number
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Announces a new tightening result.
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_new_result_sync(SysSrvClient* self, const gchar* database_path,
                                                   gint data_set, GCancellable* cancellable,
                                                   GError** error);
SYSSRV_API void sys_srv_client_new_result(SysSrvClient* self, const gchar* database_path,
                                          gint data_set, GCancellable* cancellable,
                                          GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_new_result_finish(SysSrvClient* self, GAsyncResult* result,
                                                     GError** error);

/**
 * sys_srv_client_new_id_code_sync:
 * @self: a #SysSrvClient
 * @device: the reading device
 * @device_active: whether the device is active
 * @id_code: the identification code read
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_new_id_code_sync(SysSrvClient* self, gint device,
                                                    gint device_active, const gchar* id_code,
                                                    GCancellable* cancellable, GError** error);
SYSSRV_API void sys_srv_client_new_id_code(SysSrvClient* self, gint device, gint device_active,
                                           const gchar* id_code, GCancellable* cancellable,
                                           GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_new_id_code_finish(SysSrvClient* self, GAsyncResult* result,
                                                      GError** error);

/**
 * sys_srv_client_program_changed_sync:
 * @self: a #SysSrvClient
 * @program: the program number now selected
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_program_changed_sync(SysSrvClient* self, gint program,
                                                        GCancellable* cancellable, GError** error);
SYSSRV_API void sys_srv_client_program_changed(SysSrvClient* self, gint program,
                                               GCancellable* cancellable,
                                               GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_program_changed_finish(SysSrvClient* self, GAsyncResult* result,
                                                          GError** error);

/**
 * sys_srv_client_set_batch_counter_sync:
 * @self: a #SysSrvClient
 * @job: %TRUE for the job counters, %FALSE for the program counters
 * @config: the counter set as JSON text
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_set_batch_counter_sync(SysSrvClient* self, gboolean job,
                                                          const gchar* config,
                                                          GCancellable* cancellable,
                                                          GError** error);
SYSSRV_API void sys_srv_client_set_batch_counter(SysSrvClient* self, gboolean job,
                                                 const gchar* config, GCancellable* cancellable,
                                                 GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_set_batch_counter_finish(SysSrvClient* self,
                                                            GAsyncResult* result, GError** error);

/**
 * sys_srv_client_clear_batch_counter_sync:
 * @self: a #SysSrvClient
 * @program: the program whose counters restart from zero
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_clear_batch_counter_sync(SysSrvClient* self, gint program,
                                                            GCancellable* cancellable,
                                                            GError** error);
SYSSRV_API void sys_srv_client_clear_batch_counter(SysSrvClient* self, gint program,
                                                   GCancellable* cancellable,
                                                   GAsyncReadyCallback callback,
                                                   gpointer user_data);
SYSSRV_API gboolean sys_srv_client_clear_batch_counter_finish(SysSrvClient* self,
                                                              GAsyncResult* result, GError** error);

/**
 * sys_srv_client_delete_batch_counter_sync:
 * @self: a #SysSrvClient
 * @program: the program whose counter set is removed
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_delete_batch_counter_sync(SysSrvClient* self, gint program,
                                                             GCancellable* cancellable,
                                                             GError** error);
SYSSRV_API void sys_srv_client_delete_batch_counter(SysSrvClient* self, gint program,
                                                    GCancellable* cancellable,
                                                    GAsyncReadyCallback callback,
                                                    gpointer user_data);
SYSSRV_API gboolean sys_srv_client_delete_batch_counter_finish(SysSrvClient* self,
                                                               GAsyncResult* result,
                                                               GError** error);

/**
 * sys_srv_client_fetch_batch_counters_sync:
 * @self: a #SysSrvClient
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Returns: (transfer full): the numbers of the configured program counters, one byte
 *   each, ascending; %NULL on failure
 */
SYSSRV_API GBytes* sys_srv_client_fetch_batch_counters_sync(SysSrvClient* self,
                                                            GCancellable* cancellable,
                                                            GError** error);
SYSSRV_API void sys_srv_client_fetch_batch_counters(SysSrvClient* self, GCancellable* cancellable,
                                                    GAsyncReadyCallback callback,
                                                    gpointer user_data);
/**
 * sys_srv_client_fetch_batch_counters_finish:
 * @self: a #SysSrvClient
 * @result: the #GAsyncResult
 * @error: return location for an error
 *
 * Returns: (transfer full): the numbers of the configured counters; %NULL on failure
 */
SYSSRV_API GBytes* sys_srv_client_fetch_batch_counters_finish(SysSrvClient* self,
                                                              GAsyncResult* result, GError** error);

/**
 * sys_srv_client_set_id_code_source_sync:
 * @self: a #SysSrvClient
 * @source: where identification codes come from
 * @delete_after_start: whether a code is forgotten after a start
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_set_id_code_source_sync(SysSrvClient* self, gint source,
                                                           gint delete_after_start,
                                                           GCancellable* cancellable,
                                                           GError** error);
SYSSRV_API void sys_srv_client_set_id_code_source(SysSrvClient* self, gint source,
                                                  gint delete_after_start,
                                                  GCancellable* cancellable,
                                                  GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_set_id_code_source_finish(SysSrvClient* self,
                                                             GAsyncResult* result, GError** error);

/**
 * sys_srv_client_set_job_running_sync:
 * @self: a #SysSrvClient
 * @state: the job's running state
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_set_job_running_sync(SysSrvClient* self, gint state,
                                                        GCancellable* cancellable, GError** error);
SYSSRV_API void sys_srv_client_set_job_running(SysSrvClient* self, gint state,
                                               GCancellable* cancellable,
                                               GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_set_job_running_finish(SysSrvClient* self, GAsyncResult* result,
                                                          GError** error);

/**
 * sys_srv_client_request_operation_mode_sync:
 * @self: a #SysSrvClient
 * @mode: the requested operation mode
 * @trigger_source: what triggers the change
 * @trigger_value: the trigger's value
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Asks whoever performs operation modes for a new one (the service relays the request).
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_request_operation_mode_sync(SysSrvClient* self, gint mode,
                                                               gint trigger_source,
                                                               gint trigger_value,
                                                               GCancellable* cancellable,
                                                               GError** error);
SYSSRV_API void sys_srv_client_request_operation_mode(SysSrvClient* self, gint mode,
                                                      gint trigger_source, gint trigger_value,
                                                      GCancellable* cancellable,
                                                      GAsyncReadyCallback callback,
                                                      gpointer user_data);
SYSSRV_API gboolean sys_srv_client_request_operation_mode_finish(SysSrvClient* self,
                                                                 GAsyncResult* result,
                                                                 GError** error);

/**
 * sys_srv_client_new_operation_mode_sync:
 * @self: a #SysSrvClient
 * @mode: the operation mode now taken
 * @cancellable: (nullable): a #GCancellable
 * @error: return location for an error
 *
 * Announces the operation mode that was taken.
 *
 * Returns: %TRUE on success
 */
SYSSRV_API gboolean sys_srv_client_new_operation_mode_sync(SysSrvClient* self, gint mode,
                                                           GCancellable* cancellable,
                                                           GError** error);
SYSSRV_API void sys_srv_client_new_operation_mode(SysSrvClient* self, gint mode,
                                                  GCancellable* cancellable,
                                                  GAsyncReadyCallback callback, gpointer user_data);
SYSSRV_API gboolean sys_srv_client_new_operation_mode_finish(SysSrvClient* self,
                                                             GAsyncResult* result, GError** error);

G_END_DECLS

#endif /* SYSSRV_CLIENT_H */
