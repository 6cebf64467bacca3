// SysSrv: the tool's system service on the D-Bus system bus.
#include <gio/gio.h>

#include "BusInterface.h"
#include "SystemSrv.h"
#include "sysLib/SysPath.h"

int main() {
  f_SysLogOpen();
  sem_init(&o_SigTermSemId, 0, 0);
  sem_init(&o_BatOnOffSemId, 0, 0);

  introspection_data = g_dbus_node_info_new_for_xml(introspection_xml, nullptr);
  g_assert(introspection_data != NULL);

  SysObj* z_o_Obj = static_cast<SysObj*>(g_object_new(sys_obj_get_type(), nullptr));
  guint ui_OwnerId = g_bus_own_name(G_BUS_TYPE_SYSTEM, A_C_BUS_NAME, G_BUS_NAME_OWNER_FLAGS_NONE,
                                    on_bus_acquired, on_name_acquired, on_name_lost, z_o_Obj,
                                    nullptr);

  GMainLoop* z_o_Loop = g_main_loop_new(nullptr, FALSE);
  g_main_loop_run(z_o_Loop);

  // Not reached: the process ends through the checker's termination step.
  g_bus_unown_name(ui_OwnerId);
  g_main_loop_unref(z_o_Loop);
  g_object_unref(z_o_Obj);
  g_dbus_node_info_unref(introspection_data);
  return 0;
}
