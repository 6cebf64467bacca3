// Bus handlers of the error list and readiness. The service keeps answering when its
// error handler could not be built: methods with an error reply fail, the others give
// their empty or zero answer.
#include <cstring>
#include <syslog.h>

#include "ErrorHandler.h"
#include "SystemSrv.h"

gboolean f_ReportError(SysObj*, const char* z_c_Proc, const char* z_c_Code, const char* z_c_Ack,
                       GError**) {
  if (z_c_Proc == nullptr) z_c_Proc = "";
  if (z_c_Code == nullptr) z_c_Code = "";
  if (z_c_Ack == nullptr) z_c_Ack = "";
  syslog(LOG_INFO, "f_ReportError->Proc: %s, Code: %s, Ack: %s\n", z_c_Proc, z_c_Code, z_c_Ack);
  if (z_o_ErrorHandler == nullptr) {
    syslog(LOG_WARNING, "f_ReportError - no error store, error %s of %s not kept", z_c_Code,
           z_c_Proc);
    return TRUE;
  }
  // Only the exact word acknowledges; anything else is a report to store.
  if (std::strcmp(z_c_Ack, "Ack") == 0)
    z_o_ErrorHandler->f_Ack(z_c_Code);
  else
    z_o_ErrorHandler->f_Insert(z_c_Proc, z_c_Code);
  return TRUE;
}

gboolean f_AckErrList(SysObj*, GError**) {
  if (z_o_ErrorHandler == nullptr) return FALSE;
  return z_o_ErrorHandler->f_AckErrList() == 0;
}

gboolean f_DelErrList(SysObj*, GError**) {
  if (z_o_ErrorHandler == nullptr) return FALSE;
  if (z_o_ErrorHandler->f_DBRemove() == 0) return TRUE;
  syslog(LOG_CRIT, "f_DelErrList->f_DBRemove - error\n");
  return FALSE;
}

gboolean f_GetUnAcknSysErrors(SysObj*, char** z_c_Json, GError**) {
  if (z_c_Json == nullptr) return FALSE;
  *z_c_Json = nullptr;
  if (z_o_ErrorHandler == nullptr) return FALSE;
  // The text (from cJSON's default allocator, malloc) goes to the dispatcher, which
  // frees it after the reply.
  return z_o_ErrorHandler->f_ActiveErrorsToJson(z_c_Json) == 0;
}

gboolean f_SysErrorGet(SysObj*, int* i_Error, int* i_Class, int* i_Date, GError**) {
  int i_E = 0, i_C = 0, i_D = 0;
  if (z_o_ErrorHandler != nullptr) z_o_ErrorHandler->f_SysErrorGet(&i_E, &i_C, &i_D);
  if (i_Error != nullptr) *i_Error = i_E;
  if (i_Class != nullptr) *i_Class = i_C;
  if (i_Date != nullptr) *i_Date = i_D;
  return TRUE;
}

gboolean f_RdyGet(SysObj*, int* i_RdyIst, int* i_RdySoll, GError**) {
  if (z_o_ErrorHandler == nullptr) return FALSE;
  return z_o_ErrorHandler->f_RdyGet(i_RdyIst, i_RdySoll) == 0;
}

gboolean f_DumpRdy(SysObj*, GError**) {
  if (z_o_ErrorHandler != nullptr) z_o_ErrorHandler->f_DumpRdy();
  return TRUE;
}

void f_BusRdyFlagSet(int i_FlagNr) {
  if (z_o_ErrorHandler != nullptr) z_o_ErrorHandler->f_SetRdyFlag(i_FlagNr);
}

void f_BusRdyFlagReset(int i_FlagNr) {
  if (z_o_ErrorHandler != nullptr) z_o_ErrorHandler->f_ResetRdyFlag(i_FlagNr);
}

gboolean f_RdyFlagSet(SysObj*, int i_FlagNr, GError**) {
  syslog(LOG_INFO, "f_RdyFlagSet - Flag: %d", i_FlagNr);
  f_BusRdyFlagSet(i_FlagNr);
  return TRUE;
}

gboolean f_RdyFlagReset(SysObj*, int i_FlagNr, GError**) {
  syslog(LOG_INFO, "f_RdyFlagReset - Flag: %d", i_FlagNr);
  f_BusRdyFlagReset(i_FlagNr);
  return TRUE;
}
