/* Pieces the client's units share; nothing here is installed. */
#ifndef SYSSRV_PRIVATE_H
#define SYSSRV_PRIVATE_H

#include "SysSrvNames.h"
#include "syssrv-client.h"

G_BEGIN_DECLS

/* A method call whose reply type comes from the interface description (with the wire's
 * exceptions applied) and whose failure is translated into the client's error domain. */
GVariant* f_CallTyped(SysSrvClient* z_o_Self, const gchar* z_c_Method, GVariant* o_Params,
                      GCancellable* z_o_Cancel, GError** error);
void f_CallTypedAsync(SysSrvClient* z_o_Self, const gchar* z_c_Method, GVariant* o_Params,
                      GCancellable* z_o_Cancel, GAsyncReadyCallback f_Done, gpointer z_v_Data,
                      gpointer z_v_Tag);
/* The reply of f_CallTypedAsync; the tag must match the one the call was started with. */
GVariant* f_CallTypedFinish(SysSrvClient* z_o_Self, GAsyncResult* z_o_Res, gpointer z_v_Tag,
                            GError** error);
/* The reply type a method really answers with, as a type string. */
const gchar* f_ReplyTypeOf(const gchar* z_c_Method);

/* Active errors from the service's JSON text; NULL (with error) when it is not such a text. */
GPtrArray* f_ParseActiveErrors(const gchar* z_c_Json, GError** error);
/* The maintenance factor in thousandths from the channel configuration file. */
gboolean f_ReadMfu(gint* z_i_Mfu, GError** error);

G_END_DECLS

#endif
