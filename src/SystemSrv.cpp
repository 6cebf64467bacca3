// The service object: construction of the long-lived subsystems, POSIX signals, bus
// ownership callbacks and the emit gate through which every bus signal leaves.
#include "SystemSrv.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <glib-unix.h>
#include <new>
#include <string>
#include <syslog.h>
#include <unistd.h>

#include "Battery.h"
#include "BatchCntCfg.h"
#include "BusInterface.h"
#include "ChanCfg.h"
#include "ErrorHandler.h"
#include "sysLib/Bms.h"
#include "sysLib/Error.h"
#include "sysLib/Holders.h"
#include "sysLib/SysCmd.h"
#include "sysLib/SysDiag.h"
#include "sysLib/SysExcpt.h"
#include "sysLib/SysPath.h"
#include "sysLib/Holders.h"

Bms_CL* z_o_Bms = nullptr;
ChanCfg_CL* z_o_ChanCfg = nullptr;
ErrorHandler_CL* z_o_ErrorHandler = nullptr;
BatchCntCfg_CL* z_o_BatchCntCfg = nullptr;
BatchCntCfg_CL* z_o_JobBatchCntCfg = nullptr;
GDBusNodeInfo* introspection_data = nullptr;

sem_t o_SigTermSemId;
sem_t o_BatOnOffSemId;
volatile bool b_BatOff = false;

namespace {
struct sigaction o_SigObj;

// The handler itself only does what is safe inside a signal handler (flag, semaphore,
// one byte into a pipe). Logging and the hardware-clock command run on the main loop as
// soon as it sees the byte: syslog or a fork from inside the handler could deadlock when
// the signal interrupts the main thread in the middle of the same call.
int a_i_SigPipe[2] = {-1, -1};

gboolean f_SigPipeReady(gint i_Fd, GIOCondition, gpointer) {
  unsigned char uc_Sig = 0;
  while (read(i_Fd, &uc_Sig, 1) == 1) {
    syslog(LOG_INFO, "Sig <%d>", uc_Sig);
    if (uc_Sig == SIGUSR1) {
      std::string str_Cmd = f_SysPath("/sbin/hwclock") + " -wu";
      if (f_SysCmd(str_Cmd.c_str()) != 0) syslog(LOG_ERR, "Systemcall hwclock fails");
    }
  }
  return G_SOURCE_CONTINUE;
}

void f_SetupSigPipe() {
  if (pipe(a_i_SigPipe) != 0) {
    syslog(LOG_WARNING, "f_SetupSigPipe - pipe - %s", strerror(errno));
    return;
  }
  for (int i_Fd : a_i_SigPipe) {
    fcntl(i_Fd, F_SETFL, fcntl(i_Fd, F_GETFL) | O_NONBLOCK);
    fcntl(i_Fd, F_SETFD, FD_CLOEXEC);
  }
  g_unix_fd_add(a_i_SigPipe[0], G_IO_IN, f_SigPipeReady, nullptr);
}

// Steps 6, 8 and 9 of the construction: a library exception or an allocation failure
// ends the construction quietly, leaving the remaining subsystems null.
template <typename T, typename F>
bool f_Build(T*& z_o_Target, F f_Make) {
  try {
    z_o_Target = f_Make();
    return true;
  } catch (SysExcpt_CL* z_o_Excpt) {
    syslog(LOG_CRIT, "sys_obj_init - %s", z_o_Excpt->f_GetText());
    delete z_o_Excpt;
  } catch (const std::bad_alloc&) {
    syslog(LOG_CRIT, "sys_obj_init - out of memory");
  }
  z_o_Target = nullptr;
  return false;
}
}  // namespace

G_DEFINE_TYPE(SysObj, sys_obj, G_TYPE_OBJECT)

static void sys_obj_class_init(SysObjClass*) {}

static void sys_obj_init(SysObj* z_o_Obj) { f_SysObjConstruct(z_o_Obj); }

void f_SysObjConstruct(SysObj* z_o_Obj) {
  Error_CL* z_o_Error = Error_CL::f_GetErrorObj();
  // Errors raised while starting (a nameplate CRC, say) wait for the error store.
  z_o_Error->f_UseLocalStore();
  z_o_Error->f_SetProcName(A_C_SERVICE_PROC);
  z_o_Error->f_ResetRdyFlag(I_RDY_FLAG_NO_SYS_ERROR);

  z_o_Obj->connection = nullptr;
  z_o_Obj->i_BattPower = -1;
  z_o_Obj->i_BattStatus = 4;
  z_o_Obj->i_ToolEnable = false;
  // GObject hands over zeroed memory and runs no C++ constructor.
  new (&z_o_Obj->o_Checker) CheckerState_ST();
  z_o_Obj->i_JobRunningStatus = -1;

  if (sem_init(&z_o_Obj->o_SignalEmitSemId, 0, 1) != 0)
    syslog(LOG_INFO, "sem_init (o_SignalEmitSemId) - %s", strerror(errno));
  if (sem_init(&z_o_Obj->o_SysCheckerCritSectionSemId, 0, 1) != 0)
    syslog(LOG_INFO, "sem_init (o_SysCheckerCritSectionSemId) - %s", strerror(errno));

  memset(&o_SigObj, 0, sizeof(o_SigObj));
  o_SigObj.sa_handler = f_SigHandler;
  // The three signals are held back while one is handled: otherwise the kernel stacks a
  // second pending signal's handler on top of the first, and a battery-off announcement
  // followed by battery-on would end with the battery off.
  sigemptyset(&o_SigObj.sa_mask);
  sigaddset(&o_SigObj.sa_mask, SIGTERM);
  sigaddset(&o_SigObj.sa_mask, SIGUSR1);
  sigaddset(&o_SigObj.sa_mask, SIGUSR2);
  o_SigObj.sa_flags = 0;
  f_SetupSigPipe();
  for (int i_Sig : {SIGTERM, SIGUSR1, SIGUSR2}) {
    if (sigaction(i_Sig, &o_SigObj, nullptr) != 0) {
      printf("sys_obj_init->sigaction ERROR %s\n", strerror(errno));
      return;
    }
    printf(i_Sig == SIGTERM ? "sys_obj_init->sigaction %d - OK\n" : "main->sigaction %d - OK\n",
           i_Sig);
  }
  fflush(stdout);

  // The power controller signals battery on/off to the process registered here.
  char a_c_Cmd[256];
  int i_Len = snprintf(a_c_Cmd, sizeof(a_c_Cmd), "echo %d > %s", static_cast<int>(getpid()),
                       f_SysPath("/proc/pwrctrl/batalert").c_str());
  if (i_Len < 0 || static_cast<size_t>(i_Len) >= sizeof(a_c_Cmd)) {
    syslog(LOG_WARNING, "sys_obj_init - batalert command does not fit");
    return;
  }
  if (f_SysCmd(a_c_Cmd, nullptr, 0) != 0) return;

  if (!f_Build(z_o_Bms, [] { return new Bms_CL(); })) return;
  z_o_Obj->o_Checker.b_AckInputLevel = !z_o_Bms->f_In(I_BMS_IN_ACK);
  if (!f_Build(z_o_ChanCfg, [z_o_Obj] { return new ChanCfg_CL(z_o_Obj); })) return;

  if (!f_Build(z_o_ErrorHandler, [z_o_Obj] {
        return new ErrorHandler_CL(z_o_Obj, sys_obj_get_type(), z_o_Bms);
      }))
    return;
  z_o_Bms->f_Out(I_BMS_OUT_READY, false);
  z_o_BatchCntCfg = new BatchCntCfg_CL("/home/tool/config/OkNokCntCfg.json");
  z_o_JobBatchCntCfg = new BatchCntCfg_CL("/home/tool/config/JobOkNokCntCfg.json");

  f_SysDiagSetBatteryStatus(4);
  f_SysDiagSetBatteryPower(0);
  z_o_ErrorHandler->f_SetRdyFlag(I_RDY_FLAG_NO_SYS_ERROR);
}

namespace {
// Exit status of the termination step: 0 for a SIGTERM, not 0 when the service cannot go on
// (its bus is gone), so that the service manager starts it again.
int i_ProcEndStatus = 0;

// The bus went away (the daemon stopped or the connection broke). Nothing the service
// does is seen any more; ending with a failure lets the service manager restart it onto a
// new bus, through the ordinary termination step at the next tick.
void f_OnBusClosed(GDBusConnection* connection, gboolean, GError* error, gpointer user_data) {
  SysObj* z_o_Obj = static_cast<SysObj*>(user_data);
  syslog(LOG_CRIT, "on_bus_closed - the bus connection is lost (%s), ending with status 1",
         error != nullptr ? error->message : "closed");
  if (z_o_Obj->connection == connection) {
    z_o_Obj->connection = nullptr;
    g_object_unref(connection);
  }
  f_RequestProcEnd(1);
}
}  // namespace

void f_RequestProcEnd(int i_Status) {
  i_ProcEndStatus = i_Status;
  sem_post(&o_SigTermSemId);
}

void on_bus_acquired(GDBusConnection* connection, const gchar*, gpointer user_data) {
  SysObj* z_o_Obj = static_cast<SysObj*>(user_data);
  guint registration_id = g_dbus_connection_register_object(
      connection, SYSSRV_OBJECT_PATH, introspection_data->interfaces[0], &interface_vtable,
      z_o_Obj, nullptr, nullptr);
  g_assert(registration_id > 0);
  // The service keeps its own reference: the bus library drops its own when the connection
  // closes, and every emitter still reaches the connection through this field. The library
  // would also raise SIGTERM on a closed connection, which ends with status 0 and keeps the
  // service manager from restarting the service.
  g_dbus_connection_set_exit_on_close(connection, FALSE);
  z_o_Obj->connection = G_DBUS_CONNECTION(g_object_ref(connection));
  g_signal_connect(connection, "closed", G_CALLBACK(f_OnBusClosed), z_o_Obj);
  // Blocks the loop on purpose: the peers come up before the first check runs.
  g_usleep(2 * G_USEC_PER_SEC);
  g_timeout_add(250, f_SystemChecker, z_o_Obj);
}

void on_name_acquired(GDBusConnection*, const gchar* name, gpointer) {
  syslog(LOG_INFO, "on_name_acquired  %s", name);
}

void on_name_lost(GDBusConnection*, const gchar* name, gpointer) {
  syslog(LOG_WARNING, "on_name_lost %s", name);
}

void f_SigHandler(int i_Sig) {
  int i_SavedErrno = errno;
  switch (i_Sig) {
    case SIGUSR2:
      b_BatOff = false;
      sem_post(&o_BatOnOffSemId);
      break;
    case SIGTERM:
      sem_post(&o_SigTermSemId);
      break;
    case SIGUSR1:
      b_BatOff = true;
      sem_post(&o_BatOnOffSemId);
      break;
    default:
      break;
  }
  if (a_i_SigPipe[1] != -1) {
    unsigned char uc_Sig = static_cast<unsigned char>(i_Sig);
    ssize_t i_Written = write(a_i_SigPipe[1], &uc_Sig, 1);
    (void)i_Written;  // a full pipe only loses a log line
  }
  errno = i_SavedErrno;
}

int f_AccessDbus(SysObj* z_o_Obj) {
  if (sem_trywait(&z_o_Obj->o_SignalEmitSemId) == 0) return 0;
  syslog(LOG_INFO, "f_AccessDbus::sem_wait - %s", strerror(errno));
  if (sem_wait(&z_o_Obj->o_SignalEmitSemId) == 0) return 0;
  syslog(LOG_INFO, "f_AccessDbus::sem_wait - %s", strerror(errno));
  return -1;
}

int f_ReleaseDbus(SysObj* z_o_Obj) {
  if (sem_post(&z_o_Obj->o_SignalEmitSemId) == 0) return 0;
  syslog(LOG_INFO, "f_AccessDbus::sem_post - %s", strerror(errno));
  return -1;
}

gboolean f_EmitSignal(SysObj* z_o_Obj, const char* z_c_Signal, GVariant* o_Params,
                      GError** error) {
  const char* z_c_Type = o_Params != nullptr ? g_variant_get_type_string(o_Params) : "()";
  std::string str_Expected;
  if (!f_SignalMatches(z_c_Signal, z_c_Type, &str_Expected)) {
    // No input can get here, only a sender that disagrees with the interface description.
    // Peers would misread such a signal, so it never leaves: the log says which one. A
    // debug build stops at once, so that the test that reached the sender fails with it
    // instead of passing because nobody watched that signal; a release build keeps the
    // tool running without it.
    syslog(LOG_CRIT, "f_EmitSignal - %s%s does not match the interface (%s), not sent",
           z_c_Signal != nullptr ? z_c_Signal : "(null)", z_c_Type,
           str_Expected.empty() ? "not declared" : str_Expected.c_str());
    Variant_T o_Dropped(o_Params != nullptr ? g_variant_ref_sink(o_Params) : nullptr);
#ifndef NDEBUG
    g_error("f_EmitSignal - signal %s sent as %s, declared %s", z_c_Signal, z_c_Type,
            str_Expected.c_str());
#endif
    return FALSE;
  }
  if (z_o_Obj == nullptr || z_o_Obj->connection == nullptr) {
    // Before the bus connection exists there is nobody to tell; the state itself is kept.
    syslog(LOG_INFO, "f_EmitSignal - no bus connection yet, %s not sent", z_c_Signal);
    // A floating argument is ours to drop when it is not sent.
    Variant_T o_Drop(o_Params != nullptr ? g_variant_ref_sink(o_Params) : nullptr);
    return TRUE;
  }
  f_AccessDbus(z_o_Obj);
  GErrorHolder_CL o_Err;
  gboolean b_Ok = g_dbus_connection_emit_signal(z_o_Obj->connection, nullptr, SYSSRV_OBJECT_PATH,
                                                SYSSRV_INTERFACE, z_c_Signal, o_Params,
                                                o_Err.f_Out());
  f_ReleaseDbus(z_o_Obj);
  if (!b_Ok && g_error_matches(o_Err.get(), G_IO_ERROR, G_IO_ERROR_CLOSED)) {
    // The bus went away between two ticks; the "closed" handler ends the service. Nobody is
    // left to hear the signal, and aborting here would turn a restart into a crash.
    syslog(LOG_INFO, "f_EmitSignal - bus connection closed, %s not sent", z_c_Signal);
    return TRUE;
  }
  if (o_Err) g_propagate_error(error, o_Err.f_Release());
  return b_Ok;
}

void f_EmitCfgFileChanged(SysObj* z_o_Obj, const char* z_c_Path) {
  SYS_EMIT_SIGNAL(z_o_Obj, "cfgfilechanged", g_variant_new("(s)", z_c_Path));
}

gboolean f_CheckProcTerm(gpointer z_v_Obj) {
  if (sem_trywait(&o_SigTermSemId) != 0) return TRUE;
  SysObj* z_o_Obj = static_cast<SysObj*>(z_v_Obj);
  syslog(LOG_INFO, "f_SystemChecker - Proc End is near");
  if (z_o_ErrorHandler != nullptr) {
    // Tell the peers we are no longer ready before we go.
    z_o_ErrorHandler->f_ResetRdyFlag(I_RDY_FLAG_NO_SYS_ERROR);
    z_o_ErrorHandler->f_RdyChecker();
  }
  delete z_o_ChanCfg;
  z_o_ChanCfg = nullptr;
  delete z_o_ErrorHandler;
  z_o_ErrorHandler = nullptr;
  delete z_o_Bms;
  z_o_Bms = nullptr;
  f_StopCntDwnTimer(z_o_Obj);
  // Signals leave through the bus library's writer thread: without a flush the last
  // readiness change could die with the process.
  GDBusConnection* z_o_Conn = z_o_Obj->connection;
  if (z_o_Conn != nullptr) {
    g_dbus_connection_flush_sync(z_o_Conn, nullptr, nullptr);
    g_signal_handlers_disconnect_by_data(z_o_Conn, z_o_Obj);
    z_o_Obj->connection = nullptr;
    g_object_unref(z_o_Conn);
  }
  g_object_unref(z_o_Obj);
  sem_destroy(&o_SigTermSemId);
  sem_destroy(&o_BatOnOffSemId);
  exit(i_ProcEndStatus);
}
