#include "CtlBus.h"

#include <cstring>

namespace {

struct Hint_ST {
  const char* z_c_Method;
  const char* z_c_Hint;
};

// The service gives one error reply without a text; these are the causes a technician
// meets in practice, taken from the owners of each method.
const Hint_ST A_O_HINTS[] = {
    {"frdyget", "readiness is not available: the service started without its error list"},
    {"fackerrlist", "the error list is not available (see the service log)"},
    {"fdelerrlist", "the error list could not be cleared (see the service log)"},
    {"fgetunacknsyserrors", "the error list is not available (see the service log)"},
    {"fmfuset", "the service has no channel configuration (see the service log)"},
    {"fbatchcntrset",
     "the counter file could not be written, or the service has no counter "
     "configuration (see the service log)"},
    {"fbatchcntrclear",
     "the counter file could not be written, or the service has no "
     "counter configuration (see the service log)"},
    {"fbatchcntrdel",
     "the counter file could not be written, or the service has no counter "
     "configuration (see the service log)"},
    {"fbatchcntrget", "/home/tool/config/OkNokCntCfg.json could not be read or is damaged"},
    {"fidcodesrcset", "/home/tool/config/ResSrv.json could not be read"},
};

std::string f_DefaultAddress() {
  GError* z_o_Err = nullptr;
  gchar* z_c_Addr = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &z_o_Err);
  if (z_c_Addr == nullptr) {
    std::string str_Msg = z_o_Err != nullptr ? z_o_Err->message : "no address";
    g_clear_error(&z_o_Err);
    throw CliFailure_CL(I_EXIT_NO_SERVICE, "no system bus: " + str_Msg);
  }
  std::string str_Addr(z_c_Addr);
  g_free(z_c_Addr);
  return str_Addr;
}

// A bus activation that failed: the bus daemon's spawn errors, or systemd's reply when the
// unit behind the activation file cannot start.
bool f_IsActivationFailure(const GError* z_o_Err) {
  if (z_o_Err == nullptr) return false;
  if (z_o_Err->domain == G_DBUS_ERROR && z_o_Err->code >= G_DBUS_ERROR_SPAWN_EXEC_FAILED &&
      z_o_Err->code <= G_DBUS_ERROR_SPAWN_NO_MEMORY)
    return true;
  gchar* z_c_Name = g_dbus_error_get_remote_error(z_o_Err);
  bool b_Systemd = z_c_Name != nullptr && g_str_has_prefix(z_c_Name, "org.freedesktop.systemd1.");
  g_free(z_c_Name);
  return b_Systemd;
}

}  // namespace

const char* f_RefusalHint(const char* z_c_Method) {
  for (const Hint_ST& o_Hint : A_O_HINTS) {
    if (std::strcmp(o_Hint.z_c_Method, z_c_Method) == 0) return o_Hint.z_c_Hint;
  }
  return "see the service log";
}

CtlBus_CL::CtlBus_CL(int i_TimeoutMs) : str_Address(f_DefaultAddress()), i_TimeoutMs(i_TimeoutMs) {
  GError* z_o_Err = nullptr;
  // A connection of our own rather than GLib's shared one: the shared one raises SIGTERM
  // when the bus goes away, which would hide the reason from the user.
  z_o_Conn = g_dbus_connection_new_for_address_sync(
      str_Address.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &z_o_Err);
  if (z_o_Conn == nullptr) {
    std::string str_Msg = z_o_Err != nullptr ? z_o_Err->message : "unknown reason";
    g_clear_error(&z_o_Err);
    throw CliFailure_CL(I_EXIT_NO_SERVICE, f_Format("no system bus at %s (%s); in a sandbox "
                                                    "DBUS_SYSTEM_BUS_ADDRESS names the bus",
                                                    str_Address.c_str(), str_Msg.c_str()));
  }
}

CtlBus_CL::~CtlBus_CL() {
  if (z_o_Conn != nullptr) {
    // Whatever is still queued (a call sent without waiting) must leave before we go.
    g_dbus_connection_flush_sync(z_o_Conn, nullptr, nullptr);
    g_object_unref(z_o_Conn);
  }
}

Variant_T CtlBus_CL::f_Call(const char* z_c_Method, GVariant* o_Params, const char* z_c_ReplyType) {
  return f_DoCall(z_c_Method, o_Params, z_c_ReplyType, false);
}

Variant_T CtlBus_CL::f_CallOrRefused(const char* z_c_Method, GVariant* o_Params,
                                     const char* z_c_ReplyType) {
  return f_DoCall(z_c_Method, o_Params, z_c_ReplyType, true);
}

Variant_T CtlBus_CL::f_DoCall(const char* z_c_Method, GVariant* o_Params, const char* z_c_ReplyType,
                              bool b_RefusedIsNull) {
  GError* z_o_Err = nullptr;
  GVariant* o_Reply = g_dbus_connection_call_sync(
      z_o_Conn, A_C_SRV_NAME, A_C_SRV_PATH, A_C_SRV_IFACE, z_c_Method, o_Params,
      G_VARIANT_TYPE(z_c_ReplyType), G_DBUS_CALL_FLAGS_NONE, i_TimeoutMs, nullptr, &z_o_Err);
  if (o_Reply != nullptr) return Variant_T(o_Reply);

  // The service's one error reply: GIO error 30 without a text.
  if (g_error_matches(z_o_Err, G_IO_ERROR, G_IO_ERROR_FAILED_HANDLED)) {
    g_clear_error(&z_o_Err);
    if (b_RefusedIsNull) return Variant_T();
    throw CliFailure_CL(I_EXIT_REFUSED,
                        f_Format("SysSrv refused %s: %s", z_c_Method, f_RefusalHint(z_c_Method)));
  }
  int i_Exit = I_EXIT_BUS;
  std::string str_Msg;
  if (g_error_matches(z_o_Err, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
      g_error_matches(z_o_Err, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER)) {
    i_Exit = I_EXIT_NO_SERVICE;
    str_Msg = f_Format("SysSrv is not running (nobody owns %s on the system bus %s)", A_C_SRV_NAME,
                       str_Address.c_str());
  } else if (f_IsActivationFailure(z_o_Err)) {
    // The bus tried to start the service for this call and could not: still "not running".
    i_Exit = I_EXIT_NO_SERVICE;
    if (g_dbus_error_is_remote_error(z_o_Err)) g_dbus_error_strip_remote_error(z_o_Err);
    str_Msg = f_Format("SysSrv is not running: the system bus %s could not start it (%s)",
                       str_Address.c_str(), z_o_Err->message);
  } else if (g_error_matches(z_o_Err, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) ||
             g_error_matches(z_o_Err, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) ||
             g_error_matches(z_o_Err, G_DBUS_ERROR, G_DBUS_ERROR_TIMEOUT)) {
    str_Msg = f_Format("SysSrv did not answer %s within %d s (busy, or hanging: see its log)",
                       z_c_Method, i_TimeoutMs / 1000);
  } else if (g_error_matches(z_o_Err, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED)) {
    str_Msg = f_Format(
        "the bus policy does not allow %s for this user "
        "(run as root or as a member of group syssrv)",
        z_c_Method);
  } else if (g_error_matches(z_o_Err, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD)) {
    str_Msg = f_Format("the running service does not know %s (another version?)", z_c_Method);
  } else if (g_error_matches(z_o_Err, G_IO_ERROR, G_IO_ERROR_INVALID_ARGUMENT)) {
    str_Msg = f_Format("unexpected answer to %s (another version of the service?)", z_c_Method);
  } else if (g_error_matches(z_o_Err, G_IO_ERROR, G_IO_ERROR_CLOSED)) {
    i_Exit = I_EXIT_NO_SERVICE;
    str_Msg = f_Format("the system bus %s closed the connection", str_Address.c_str());
  } else {
    if (g_dbus_error_is_remote_error(z_o_Err)) g_dbus_error_strip_remote_error(z_o_Err);
    str_Msg = f_Format("%s failed: %s", z_c_Method, z_o_Err != nullptr ? z_o_Err->message : "?");
  }
  g_clear_error(&z_o_Err);
  throw CliFailure_CL(i_Exit, str_Msg);
}

bool CtlBus_CL::f_ServiceRunning() {
  GError* z_o_Err = nullptr;
  GVariant* o_Reply = g_dbus_connection_call_sync(
      z_o_Conn, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "NameHasOwner", g_variant_new("(s)", A_C_SRV_NAME), G_VARIANT_TYPE("(b)"),
      G_DBUS_CALL_FLAGS_NONE, i_TimeoutMs, nullptr, &z_o_Err);
  if (o_Reply == nullptr) {
    std::string str_Msg = z_o_Err != nullptr ? z_o_Err->message : "?";
    g_clear_error(&z_o_Err);
    throw CliFailure_CL(I_EXIT_NO_SERVICE, f_Format("the system bus %s does not answer: %s",
                                                    str_Address.c_str(), str_Msg.c_str()));
  }
  gboolean b_Owned = FALSE;
  g_variant_get(o_Reply, "(b)", &b_Owned);
  g_variant_unref(o_Reply);
  return b_Owned != FALSE;
}
