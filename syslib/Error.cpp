// The process's error object: readiness flags in "/ErrorShMem" and the route of a
// reported error (the service's own store, or the bus to the service).
#include "sysLib/Error.h"

#include <cstdio>
#include <gio/gio.h>
#include <sys/prctl.h>
#include <syslog.h>

#include "SysSrvNames.h"
#include "sysLib/ErrorShMem.h"
#include "sysLib/Holders.h"
#include "sysLib/ShMem.h"

namespace {
constexpr int I_CALL_TIMEOUT_MS = 2000;

bool f_FlagOk(int i_Nr) { return i_Nr >= 0 && i_Nr < 32; }
}  // namespace

Error_CL* Error_CL::f_GetErrorObj() {
  // Never destroyed: code running during exit (a sink, a late flag reset) may still call it.
  static Error_CL* z_o_Obj = new Error_CL();
  return z_o_Obj;
}

Error_CL::Error_CL() = default;

ShMem_CL* Error_CL::f_ShMem() {
  // Mapped on first use, and again when the root has changed since (tests run several
  // sandboxes in one process); a failed attempt is retried on the next call.
  std::string str_Path = f_ShMemPath(A_C_ERROR_SHMEM_NAME);
  if (z_o_ShMem != nullptr && str_Path == str_ShMemPath) return z_o_ShMem;
  delete z_o_ShMem;
  z_o_ShMem = new ShMem_CL(A_C_ERROR_SHMEM_NAME, UI_ERROR_SHMEM_SIZE);
  str_ShMemPath = str_Path;
  if (!z_o_ShMem->f_IsShMemRdy()) {
    syslog(LOG_WARNING, "Error_CL::f_ShMem - %s not mapped", str_Path.c_str());
    delete z_o_ShMem;
    z_o_ShMem = nullptr;
  }
  return z_o_ShMem;
}

int Error_CL::f_SetRdyFlag(int i_Nr) {
  ShMem_CL* z_o_Seg = f_FlagOk(i_Nr) ? f_ShMem() : nullptr;
  if (z_o_Seg == nullptr) return -1;
  volatile uint32_t& ui_Ist = static_cast<ErrorShMemData_ST*>(z_o_Seg->f_GetShMem())->ui_RdyIst;
  ui_Ist = ui_Ist | (1u << i_Nr);
  return 0;
}

int Error_CL::f_ResetRdyFlag(int i_Nr) {
  ShMem_CL* z_o_Seg = f_FlagOk(i_Nr) ? f_ShMem() : nullptr;
  if (z_o_Seg == nullptr) return -1;
  volatile uint32_t& ui_Ist = static_cast<ErrorShMemData_ST*>(z_o_Seg->f_GetShMem())->ui_RdyIst;
  ui_Ist = ui_Ist & ~(1u << i_Nr);
  return 0;
}

bool Error_CL::f_IsRdyFlagSet(int i_Nr) {
  ShMem_CL* z_o_Seg = f_FlagOk(i_Nr) ? f_ShMem() : nullptr;
  if (z_o_Seg == nullptr) return false;
  volatile uint32_t& ui_Ist = static_cast<ErrorShMemData_ST*>(z_o_Seg->f_GetShMem())->ui_RdyIst;
  return (ui_Ist & (1u << i_Nr)) != 0;
}

void Error_CL::f_UseLocalStore() { b_Local = true; }

void Error_CL::f_AttachStore(std::function<void(int)> o_NewSink) {
  o_Sink = std::move(o_NewSink);
  if (!o_Sink) return;
  // Swap first: the sink may report errors of its own, which then go straight to it.
  std::vector<int> o_Pending;
  o_Pending.swap(o_Held);
  for (int i_Coded : o_Pending) o_Sink(i_Coded);
}

void Error_CL::f_DetachStore() { o_Sink = nullptr; }

int Error_CL::f_Insert(int i_CodedErr) {
  if (b_Local) {
    if (o_Sink) {
      o_Sink(i_CodedErr);
    } else {
      // The service raises errors while it starts, before its database is open.
      syslog(LOG_INFO, "Error_CL::f_Insert - error %d held until the error store opens",
             i_CodedErr);
      o_Held.push_back(i_CodedErr);
    }
    return 0;
  }

  std::string str_Proc = str_ProcName;
  if (str_Proc.empty()) {
    char a_c_Comm[17] = {0};
    if (prctl(PR_GET_NAME, a_c_Comm, 0, 0, 0) == 0) str_Proc = a_c_Comm;
  }
  char a_c_Code[16];
  std::snprintf(a_c_Code, sizeof(a_c_Code), "%d", i_CodedErr);

  // A process name is not guaranteed to be UTF-8; the bus only carries valid strings.
  GChars_T o_Proc(g_utf8_make_valid(str_Proc.c_str(), -1));

  GErrorHolder_CL o_Err;
  GDBusConnection* z_o_Conn = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, o_Err.f_Out());
  Variant_T o_Reply;
  if (z_o_Conn != nullptr) {
    o_Reply.reset(g_dbus_connection_call_sync(
        z_o_Conn, SYSSRV_BUS_NAME, SYSSRV_OBJECT_PATH, SYSSRV_INTERFACE, "freporterror",
        g_variant_new("(sss)", o_Proc.get(), a_c_Code, ""), nullptr, G_DBUS_CALL_FLAGS_NONE,
        I_CALL_TIMEOUT_MS, nullptr, o_Err.f_Out()));
    g_object_unref(z_o_Conn);
  }
  if (!o_Reply) {
    syslog(LOG_WARNING, "Error_CL::f_Insert - error %d not reported: %s", i_CodedErr,
           o_Err ? o_Err.f_Message() : "no bus");
    return -1;
  }
  return 0;
}
