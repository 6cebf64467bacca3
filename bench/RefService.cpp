// The bare reference of the benchmark: the service's bus name, object and interface,
// answering every benchmarked method at once from memory. It emits a signal exactly
// where SysSrv does, so that what it costs per call is what the bus alone costs: the
// yardstick SysSrv's figures are divided by.
#include <gio/gio.h>
#include <glib-unix.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <string>
#include <unordered_set>

#include "SysSrvNames.h"

extern const char introspection_xml[];

namespace {
constexpr const char* A_C_PRG_CFG_PATH = "/home/tool/config/OkNokCntCfg.json";
constexpr const char* A_C_JOB_CFG_PATH = "/home/tool/config/JobOkNokCntCfg.json";
// The same bound as the service's default list, so both keep the same number of codes.
constexpr size_t UI_MAX_ACTIVE = 512;

struct RefState_ST {
  GDBusConnection* z_o_Conn = nullptr;
  int i_BattPower = -1;
  int i_LastCode = 0, i_LastClass = 0, i_LastDate = 0;
  // Active codes: a repeated report of one is neither kept twice nor signalled again.
  std::unordered_set<int> o_Active;
  std::deque<int> o_Order;
};
RefState_ST o_State;

void f_Emit(const char* z_c_Signal, GVariant* o_Params) {
  g_dbus_connection_emit_signal(o_State.z_o_Conn, nullptr, SYSSRV_OBJECT_PATH, SYSSRV_INTERFACE,
                                z_c_Signal, o_Params, nullptr);
}

void f_Report(const char* z_c_Code, const char* z_c_Ack) {
  const int i_Coded = std::atoi(z_c_Code);
  const int i_Code = i_Coded >> 3;
  if (std::strcmp(z_c_Ack, "Ack") == 0) {
    if (o_State.o_Active.erase(i_Code) != 0) f_Emit("acksysfault", g_variant_new("(ii)", i_Code, 0));
    return;
  }
  if (!o_State.o_Active.insert(i_Code).second) return;
  o_State.o_Order.push_back(i_Code);
  if (o_State.o_Order.size() > UI_MAX_ACTIVE) {
    o_State.o_Active.erase(o_State.o_Order.front());
    o_State.o_Order.pop_front();
  }
  o_State.i_LastCode = i_Code;
  o_State.i_LastClass = i_Coded & 7;
  o_State.i_LastDate = static_cast<int>(std::time(nullptr));
  f_Emit("sysfault",
         g_variant_new("(iii)", o_State.i_LastCode, o_State.i_LastClass, o_State.i_LastDate));
}

void f_HandleCall(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                  const gchar* z_c_Method, GVariant* o_Params, GDBusMethodInvocation* o_Inv,
                  gpointer) {
  GVariant* o_Reply = nullptr;
  if (std::strcmp(z_c_Method, "fmfuget") == 0) {
    o_Reply = g_variant_new("(i)", 100);
  } else if (std::strcmp(z_c_Method, "frdyget") == 0) {
    o_Reply = g_variant_new("(ii)", 0x48, 0x48);
  } else if (std::strcmp(z_c_Method, "fsyserrorget") == 0) {
    o_Reply = g_variant_new("(iii)", o_State.i_LastCode, o_State.i_LastClass, o_State.i_LastDate);
  } else if (std::strcmp(z_c_Method, "fbattpowerget") == 0) {
    o_Reply = g_variant_new("(i)", o_State.i_BattPower);
  } else if (std::strcmp(z_c_Method, "fgetunacknsyserrors") == 0) {
    o_Reply = g_variant_new("(s)", "{\"errors\":[]}");
  } else if (std::strcmp(z_c_Method, "freporterror") == 0) {
    const char *z_c_Proc, *z_c_Code, *z_c_Ack;
    g_variant_get(o_Params, "(&s&s&s)", &z_c_Proc, &z_c_Code, &z_c_Ack);
    f_Report(z_c_Code, z_c_Ack);
  } else if (std::strcmp(z_c_Method, "fbattpowerset") == 0) {
    gint32 i_Power = 0;
    g_variant_get(o_Params, "(i)", &i_Power);
    if (i_Power != o_State.i_BattPower) {
      o_State.i_BattPower = i_Power;
      f_Emit("battpowerchanged", g_variant_new("(i)", i_Power));
    }
  } else if (std::strcmp(z_c_Method, "fbatchcntrset") == 0) {
    gint32 i_Dest = 0;
    const char* z_c_Cfg = nullptr;
    g_variant_get(o_Params, "(i&s)", &i_Dest, &z_c_Cfg);
    f_Emit("cfgfilechanged",
           g_variant_new("(s)", i_Dest != 0 ? A_C_JOB_CFG_PATH : A_C_PRG_CFG_PATH));
  }
  // Every other method of the interface gets the empty reply.
  g_dbus_method_invocation_return_value(o_Inv, o_Reply);
}

const GDBusInterfaceVTable o_VTable = {f_HandleCall, nullptr, nullptr, {nullptr}};

void f_OnBusAcquired(GDBusConnection* z_o_Conn, const gchar*, gpointer z_v_Node) {
  auto* z_o_Node = static_cast<GDBusNodeInfo*>(z_v_Node);
  o_State.z_o_Conn = z_o_Conn;
  if (g_dbus_connection_register_object(z_o_Conn, SYSSRV_OBJECT_PATH, z_o_Node->interfaces[0],
                                        &o_VTable, nullptr, nullptr, nullptr) == 0) {
    g_printerr("syssrv-bench-ref: cannot register %s\n", SYSSRV_OBJECT_PATH);
    std::exit(1);
  }
}

void f_OnNameLost(GDBusConnection*, const gchar* z_c_Name, gpointer) {
  g_printerr("syssrv-bench-ref: lost or could not own %s\n", z_c_Name);
  std::exit(1);
}

gboolean f_OnTerm(gpointer z_v_Loop) {
  g_main_loop_quit(static_cast<GMainLoop*>(z_v_Loop));
  return G_SOURCE_REMOVE;
}
}  // namespace

int main() {
  GDBusNodeInfo* z_o_Node = g_dbus_node_info_new_for_xml(introspection_xml, nullptr);
  if (z_o_Node == nullptr) return 1;
  GMainLoop* z_o_Loop = g_main_loop_new(nullptr, FALSE);
  g_unix_signal_add(SIGTERM, f_OnTerm, z_o_Loop);
  guint ui_Owner = g_bus_own_name(G_BUS_TYPE_SYSTEM, SYSSRV_BUS_NAME, G_BUS_NAME_OWNER_FLAGS_NONE,
                                  f_OnBusAcquired, nullptr, f_OnNameLost, z_o_Node, nullptr);
  g_main_loop_run(z_o_Loop);
  g_bus_unown_name(ui_Owner);
  g_main_loop_unref(z_o_Loop);
  g_dbus_node_info_unref(z_o_Node);
  return 0;
}
