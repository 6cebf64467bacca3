// Bus handlers of the channel configuration.
#include <syslog.h>

#include "ChanCfg.h"
#include "SystemSrv.h"

gboolean f_MfuSet(SysObj* z_o_Obj, int i_Mfu, GError**) {
  syslog(LOG_INFO, "f_MfuSet->%d", i_Mfu);
  // Without a channel configuration (start-up stopped early) there is no factor to scale.
  if (z_o_ChanCfg == nullptr) return FALSE;
  return z_o_ChanCfg->f_MfuSet(z_o_Obj, i_Mfu) == 0 ? TRUE : FALSE;
}

gboolean f_MfuGet(SysObj*, int* ui_Mfu, GError**) {
  // Reported as a fixed 100 whatever the stored factor: clients rely on this value.
  *ui_Mfu = 100;
  return TRUE;
}
