#pragma once
// The bus side of syssrvctl: a client of the service on the system bus, and method calls
// whose failures become one clear message and an exit code.
#include <gio/gio.h>
#include <syssrv-client.h>

#include <string>

#include "CtlCommon.h"

constexpr const char* A_C_SRV_NAME = SYS_SRV_BUS_NAME;
constexpr const char* A_C_SRV_PATH = SYS_SRV_OBJECT_PATH;
constexpr const char* A_C_SRV_IFACE = SYS_SRV_INTERFACE;

class CtlBus_CL {
 public:
  // Connects to the system bus (DBUS_SYSTEM_BUS_ADDRESS when set); throws
  // I_EXIT_NO_SERVICE when there is no bus to talk to.
  explicit CtlBus_CL(int i_TimeoutMs);
  ~CtlBus_CL();
  CtlBus_CL(const CtlBus_CL&) = delete;
  CtlBus_CL& operator=(const CtlBus_CL&) = delete;

  GDBusConnection* f_Conn() const;
  // The client itself, for subcommands that follow the service's signals and presence.
  SysSrvClient* f_Client() const { return z_o_Client; }
  const std::string& f_Address() const { return str_Address; }

  // Calls a method of the service interface (o_Params floating or null) and checks the
  // reply's type. Every failure throws with its exit code.
  Variant_T f_Call(const char* z_c_Method, GVariant* o_Params = nullptr,
                   const char* z_c_ReplyType = "()");
  // The same, but the service's error reply gives null instead of a failure: for the
  // parts of an overview that a degraded service cannot give.
  Variant_T f_CallOrRefused(const char* z_c_Method, GVariant* o_Params = nullptr,
                            const char* z_c_ReplyType = "()");
  // True when somebody owns the service's name.
  bool f_ServiceRunning();

 private:
  Variant_T f_DoCall(const char* z_c_Method, GVariant* o_Params, const char* z_c_ReplyType,
                     bool b_RefusedIsNull);
  SysSrvClient* z_o_Client = nullptr;
  std::string str_Address;
  int i_TimeoutMs;
};

// What a refusal of this method usually means, for the failure message.
const char* f_RefusalHint(const char* z_c_Method);
