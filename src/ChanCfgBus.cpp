// Bus handlers of the channel configuration. Until the channel configuration is built at
// start-up there is no factor to scale, so "fmfuset" gives the error reply.
#include <syslog.h>

#include "ChanCfg.h"
#include "SystemSrv.h"

gboolean f_MfuSet(SysObj*, int i_Mfu, GError**) {
  syslog(LOG_INFO, "f_MfuSet->%d", i_Mfu);
  return FALSE;
}

gboolean f_MfuGet(SysObj*, int* ui_Mfu, GError**) {
  // Reported as a fixed 100 whatever the stored factor: clients rely on this value.
  *ui_Mfu = 100;
  return TRUE;
}
