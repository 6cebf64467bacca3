#pragma once
// Channel configuration: ChanCfg.json derived from the nameplates and the catalogue.
#include <gio/gio.h>

struct SysObj;

// "fmfuset": i_Mfu in thousandths. FALSE (error reply) without a channel configuration.
gboolean f_MfuSet(SysObj* z_o_Obj, int i_Mfu, GError** error);
// "fmfuget": the factor reported on the bus is fixed at 100.
gboolean f_MfuGet(SysObj* z_o_Obj, int* ui_Mfu, GError** error);
