// SysSrv: the tool's system service on the D-Bus system bus.
#include <gio/gio.h>
#include <pthread.h>

#include <csignal>
#include <sys/stat.h>

#include "BusInterface.h"
#include "ServiceArgs.h"
#include "SystemSrv.h"
#include "sysLib/SysPath.h"

int main(int i_Argc, char** a_z_c_Argv) {
  int i_ArgsExit = f_ServiceArgs(i_Argc, a_z_c_Argv);
  if (i_ArgsExit >= 0) return i_ArgsExit;
  // What the service creates is for its own group at most; the files it shares on purpose
  // (lock files, shared memory) are opened to the group where they are made.
  umask(027);
  f_SysLogOpen();
  sem_init(&o_SigTermSemId, 0, 0);
  sem_init(&o_BatOnOffSemId, 0, 0);

  // SIGTERM and the power controller's off and on announcements (SIGUSR1, SIGUSR2) are for
  // this thread alone. The kernel hands a signal sent to the process to any thread that does
  // not block it: an off/on pair could then run its handlers in two threads at once and end
  // in either order. New threads inherit the mask in force, so the signals stay blocked
  // until the bus has started its threads, and only this thread takes them afterwards.
  sigset_t o_MainThreadSignals;
  sigemptyset(&o_MainThreadSignals);
  for (int i_Sig : {SIGTERM, SIGUSR1, SIGUSR2}) sigaddset(&o_MainThreadSignals, i_Sig);
  pthread_sigmask(SIG_BLOCK, &o_MainThreadSignals, nullptr);

  introspection_data = g_dbus_node_info_new_for_xml(introspection_xml, nullptr);
  g_assert(introspection_data != NULL);

  SysObj* z_o_Obj = static_cast<SysObj*>(g_object_new(sys_obj_get_type(), nullptr));
  guint ui_OwnerId = g_bus_own_name(G_BUS_TYPE_SYSTEM, SYSSRV_BUS_NAME, G_BUS_NAME_OWNER_FLAGS_NONE,
                                    on_bus_acquired, on_name_acquired, on_name_lost, z_o_Obj,
                                    nullptr);
  pthread_sigmask(SIG_UNBLOCK, &o_MainThreadSignals, nullptr);

  GMainLoop* z_o_Loop = g_main_loop_new(nullptr, FALSE);
  g_main_loop_run(z_o_Loop);

  // Not reached: the process ends through the checker's termination step.
  g_bus_unown_name(ui_OwnerId);
  g_main_loop_unref(z_o_Loop);
  g_object_unref(z_o_Obj);
  g_dbus_node_info_unref(introspection_data);
  return 0;
}
