#pragma once
// The service object, its globals and the emit gate.
#include <gio/gio.h>
#include <semaphore.h>

#include "CheckRules.h"
#include "SysSrvNames.h"

class Bms_CL;
class ChanCfg_CL;
class ErrorHandler_CL;
class BatchCntCfg_CL;

// The name the service reports its own errors with.
constexpr const char* A_C_SERVICE_PROC = "SysSrv.elf";

struct SysObj {
  GObject parent_instance;
  GDBusConnection* connection;
  gint32 i_BattPower;
  gint32 i_BattStatus;
  bool i_ToolEnable;
  sem_t o_SignalEmitSemId;
  sem_t o_SysCheckerCritSectionSemId;
  gint32 i_JobRunningStatus;
  // What the periodic checks remember between ticks (constructed by f_SysObjConstruct).
  CheckerState_ST o_Checker;
};

struct SysObjClass {
  GObjectClass parent_class;
};

GType sys_obj_get_type(void);

// Long-lived subsystem objects; null when start-up stopped early.
extern Bms_CL* z_o_Bms;
extern ChanCfg_CL* z_o_ChanCfg;
extern ErrorHandler_CL* z_o_ErrorHandler;
extern BatchCntCfg_CL* z_o_BatchCntCfg;
extern BatchCntCfg_CL* z_o_JobBatchCntCfg;
extern GDBusNodeInfo* introspection_data;

// Posted by the signal handler, polled by the checker.
extern sem_t o_SigTermSemId;
extern sem_t o_BatOnOffSemId;
extern volatile bool b_BatOff;

// Emit gate: every signal is sent between these two. Both return 0 or -1.
int f_AccessDbus(SysObj* z_o_Obj);
int f_ReleaseDbus(SysObj* z_o_Obj);

// The one way out for every signal: holds z_c_Signal and the type of o_Params (a floating
// "(...)" tuple, or null for none) against the interface description, takes the gate,
// broadcasts the signal from /SysObj, gives the gate back. A signal that disagrees with the
// description is not sent (LOG_CRIT; a debug build aborts). Before the bus connection
// exists nothing is sent and one info line is logged. FALSE with *error set when the bus
// refused the emission.
gboolean f_EmitSignal(SysObj* z_o_Obj, const char* z_c_Signal, GVariant* o_Params,
                      GError** error);

// The usual form: an emission error is fatal and names the emitter's source line.
#define SYS_EMIT_SIGNAL(obj, name, params)            \
  do {                                                \
    GError* local_error = nullptr;                    \
    f_EmitSignal((obj), (name), (params), &local_error); \
    g_assert_no_error(local_error);                   \
  } while (0)

// "cfgfilechanged" with the logical path of a configuration file.
void f_EmitCfgFileChanged(SysObj* z_o_Obj, const char* z_c_Path);

// Builds the service (the instance initialiser's work).
void f_SysObjConstruct(SysObj* z_o_Obj);
// Bus ownership callbacks.
void on_bus_acquired(GDBusConnection* connection, const gchar* name, gpointer user_data);
void on_name_acquired(GDBusConnection* connection, const gchar* name, gpointer user_data);
void on_name_lost(GDBusConnection* connection, const gchar* name, gpointer user_data);
// POSIX signal handler for SIGTERM, SIGUSR1 and SIGUSR2.
void f_SigHandler(int i_Sig);

// Ends the process at the next tick through the termination step, with exit status
// i_Status (a SIGTERM ends with 0).
void f_RequestProcEnd(int i_Status);

// The 250 ms tick (SystemChecker.cpp).
gboolean f_SystemChecker(gpointer z_v_Obj);
gboolean f_CheckProcTerm(gpointer z_v_Obj);
