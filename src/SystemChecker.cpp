// The 250 ms tick: every supervision step of the service runs from here, in a fixed order
// and at fixed multiples of the period.
#include <cerrno>
#include <cstring>
#include <syslog.h>

#include "Battery.h"
#include "ErrorHandler.h"
#include "SystemSrv.h"
#include "sysLib/Bms.h"

namespace {
// Starts with all bits set so that the first tick wraps it to 0: the first tick runs none
// of the divided steps, the second runs all of them.
unsigned int ui_LastCheck = 0xFFFFFFFFu;

// Collective acknowledgement on a rising edge of the external acknowledge input.
void f_CheckAckInput(SysObj* z_o_Obj) {
  if (z_o_Bms == nullptr) return;
  bool b_Level = z_o_Bms->f_In(17);
  if (b_Level != z_o_Obj->b_AckInputLevel && b_Level && z_o_ErrorHandler != nullptr)
    z_o_ErrorHandler->f_AckErrList();
  z_o_Obj->b_AckInputLevel = b_Level;
}
}  // namespace

gboolean f_SystemChecker(gpointer z_v_Obj) {
  SysObj* z_o_Obj = static_cast<SysObj*>(z_v_Obj);
  if (sem_trywait(&z_o_Obj->o_SysCheckerCritSectionSemId) != 0) {
    syslog(LOG_INFO, "f_SystemChecker sem_trywait -  %s", strerror(errno));
    return f_CheckProcTerm(z_v_Obj);
  }

  f_CheckAckInput(z_o_Obj);
  if (z_o_ErrorHandler != nullptr) z_o_ErrorHandler->f_RdyChecker();
  if (z_o_Obj->b_CntDwnActive && ui_LastCheck % 4 == 0) f_CntDwnStep(z_o_Obj);

  ui_LastCheck++;
  sem_post(&z_o_Obj->o_SysCheckerCritSectionSemId);
  return f_CheckProcTerm(z_v_Obj);
}
