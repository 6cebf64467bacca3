#pragma once
// OK/NOK batch-counter configurations of programs and jobs.
#include <gio/gio.h>

struct SysObj;

gboolean f_BatchCntrSet(SysObj* z_o_Obj, int i_Dest, const char* str_BatchCfg, GError** error);
gboolean f_BatchCntrClear(SysObj* z_o_Obj, int i_PrgNr, GError** error);
gboolean f_BatchCntrDel(SysObj* z_o_Obj, int i_PrgNr, GError** error);
// "fbatchcntrget": re-reads the program configuration and adds every configured id
// 0..255 to the builder ("ay"). FALSE when the file could not be read.
gboolean f_BatchCntrList(GVariantBuilder* z_o_Builder);
