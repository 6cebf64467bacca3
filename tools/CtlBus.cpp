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
  GErrorHolder_CL o_Err;
  GChars_T o_Addr(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, o_Err.f_Out()));
  if (!o_Addr) {
    throw CliFailure_CL(I_EXIT_NO_SERVICE, std::string("no system bus: ") +
                                               (o_Err ? o_Err.f_Message() : "no address"));
  }
  return o_Addr.get();
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
  z_o_Client = sys_srv_client_new_for_address_sync(str_Address.c_str(), nullptr, &z_o_Err);
  if (z_o_Client == nullptr) {
    std::string str_Msg = z_o_Err != nullptr ? z_o_Err->message : "unknown reason";
    g_clear_error(&z_o_Err);
    throw CliFailure_CL(I_EXIT_NO_SERVICE, f_Format("no system bus at %s (%s); in a sandbox "
                                                    "DBUS_SYSTEM_BUS_ADDRESS names the bus",
                                                    str_Address.c_str(), str_Msg.c_str()));
  }
  sys_srv_client_set_timeout(z_o_Client, i_TimeoutMs);
}

// The client flushes what is still queued (a call sent without waiting) before it goes.
CtlBus_CL::~CtlBus_CL() { g_clear_object(&z_o_Client); }

GDBusConnection* CtlBus_CL::f_Conn() const { return sys_srv_client_get_connection(z_o_Client); }

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
  // Subcommands name the wire method themselves, so the untyped call of the library is
  // the one that fits; the library sorts its failures.
  GVariant* o_Reply =
      sys_srv_client_call_sync(z_o_Client, z_c_Method, o_Params, G_VARIANT_TYPE(z_c_ReplyType),
                               G_DBUS_CALL_FLAGS_NONE, i_TimeoutMs, nullptr, &z_o_Err);
  if (o_Reply != nullptr) return Variant_T(o_Reply);

  SysSrvClientError e_Kind = sys_srv_client_error_classify(z_o_Err);
  // Nobody owning the name, or an activation that could not start the service.
  bool b_NoOwner = g_error_matches(z_o_Err, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
                   g_error_matches(z_o_Err, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER);
  if (g_dbus_error_is_remote_error(z_o_Err)) g_dbus_error_strip_remote_error(z_o_Err);
  std::string str_Detail = z_o_Err != nullptr ? z_o_Err->message : "?";
  g_clear_error(&z_o_Err);
  int i_Exit = I_EXIT_BUS;
  std::string str_Msg;
  switch (e_Kind) {
    case SYS_SRV_CLIENT_ERROR_REFUSED:
      if (b_RefusedIsNull) return Variant_T();
      throw CliFailure_CL(I_EXIT_REFUSED,
                          f_Format("SysSrv refused %s: %s", z_c_Method, f_RefusalHint(z_c_Method)));
    case SYS_SRV_CLIENT_ERROR_NOT_RUNNING:
      i_Exit = I_EXIT_NO_SERVICE;
      if (b_NoOwner)
        str_Msg = f_Format("SysSrv is not running (nobody owns %s on the system bus %s)",
                           A_C_SRV_NAME, str_Address.c_str());
      else
        str_Msg = f_Format("SysSrv is not running: the system bus %s could not start it (%s)",
                           str_Address.c_str(), str_Detail.c_str());
      break;
    case SYS_SRV_CLIENT_ERROR_TIMED_OUT:
      str_Msg = f_Format("SysSrv did not answer %s within %d s (busy, or hanging: see its log)",
                         z_c_Method, i_TimeoutMs / 1000);
      break;
    case SYS_SRV_CLIENT_ERROR_ACCESS_DENIED:
      str_Msg = f_Format(
          "the bus policy does not allow %s for this user "
          "(run as root or as a member of group syssrv)",
          z_c_Method);
      break;
    case SYS_SRV_CLIENT_ERROR_INCOMPATIBLE:
      str_Msg = f_Format(
          "the running service does not know %s, or answered it unexpectedly "
          "(another version?)",
          z_c_Method);
      break;
    case SYS_SRV_CLIENT_ERROR_DISCONNECTED:
      i_Exit = I_EXIT_NO_SERVICE;
      str_Msg = f_Format("the system bus %s closed the connection", str_Address.c_str());
      break;
    default:
      str_Msg = f_Format("%s failed: %s", z_c_Method, str_Detail.c_str());
      break;
  }
  throw CliFailure_CL(i_Exit, str_Msg);
}

bool CtlBus_CL::f_ServiceRunning() {
  GErrorHolder_CL o_Err;
  GChars_T o_Owner(sys_srv_client_lookup_owner_sync(z_o_Client, nullptr, o_Err.f_Out()));
  if (o_Err) {
    throw CliFailure_CL(I_EXIT_NO_SERVICE, f_Format("the system bus %s does not answer: %s",
                                                    str_Address.c_str(), o_Err.f_Message()));
  }
  return o_Owner != nullptr;
}
