// Bus handlers of the batch-counter configurations. Until the configurations are built
// at start-up these methods have nothing to work on and give the error reply.
#include <syslog.h>

#include "BatchCntCfg.h"
#include "SystemSrv.h"

gboolean f_BatchCntrSet(SysObj*, int, const char*, GError**) { return FALSE; }

gboolean f_BatchCntrClear(SysObj*, int i_PrgNr, GError**) {
  syslog(LOG_INFO, "f_BatchCntrClear->i_PrgNr %d", i_PrgNr);
  return FALSE;
}

gboolean f_BatchCntrDel(SysObj*, int i_PrgNr, GError**) {
  syslog(LOG_INFO, "f_BatchCntrDel->i_PrgNr %d", i_PrgNr);
  return FALSE;
}

gboolean f_BatchCntrList(GVariantBuilder*) { return FALSE; }
