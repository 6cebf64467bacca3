// The method dispatcher: unpacks each call, calls one handler and builds the reply.
#include "BusInterface.h"

#include <cstring>
#include <syslog.h>

#include "Battery.h"
#include "BatchCntCfg.h"
#include "ChanCfg.h"
#include "ErrorHandler.h"
#include "SystemSrv.h"
#include "ToolEvents.h"
#include "sysLib/Holders.h"

namespace {

// The one error reply of the service: GIO domain, code 30, no message.
void f_ReplyError(GDBusMethodInvocation* invocation) {
  g_dbus_method_invocation_return_error_literal(invocation, G_IO_ERROR,
                                                G_IO_ERROR_FAILED_HANDLED, "");
}

void f_ReplyEmpty(GDBusMethodInvocation* invocation) {
  g_dbus_method_invocation_return_value(invocation, nullptr);
}

void f_ReplyResult(GDBusMethodInvocation* invocation, gboolean b_Ok) {
  if (b_Ok)
    f_ReplyEmpty(invocation);
  else
    f_ReplyError(invocation);
}

// Drops the call without an answer; the caller times out.
void f_NoReply(GDBusMethodInvocation* invocation) { g_object_unref(invocation); }

int f_Int(GVariant* parameters) {
  gint32 i_Value = 0;
  g_variant_get(parameters, "(i)", &i_Value);
  return i_Value;
}

using Handler_T = void (*)(SysObj*, GVariant*, GDBusMethodInvocation*, bool);

struct Dispatch_ST {
  const char* z_c_Name;
  Handler_T f_Handle;
};

void f_HReportError(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool) {
  const char *z_c_Proc, *z_c_Code, *z_c_Ack;
  g_variant_get(p, "(&s&s&s)", &z_c_Proc, &z_c_Code, &z_c_Ack);
  f_ReportError(o, z_c_Proc, z_c_Code, z_c_Ack, nullptr);
  f_ReplyEmpty(inv);
}

void f_HToolEnableSet(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool b_Reply) {
  f_ToolEnableSet(o, f_Int(p), nullptr);
  if (b_Reply)
    f_ReplyEmpty(inv);
  else
    f_NoReply(inv);
}

void f_HCfgFileChanged(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool) {
  const char* z_c_Path;
  g_variant_get(p, "(&s)", &z_c_Path);
  f_CfgFileChanged(o, z_c_Path, nullptr);
  f_ReplyEmpty(inv);
}

void f_HCycleComplete(SysObj* o, GVariant*, GDBusMethodInvocation* inv, bool) {
  f_CycleComplete(o, nullptr);
  f_ReplyEmpty(inv);
}

void f_HAckErrList(SysObj* o, GVariant*, GDBusMethodInvocation* inv, bool) {
  f_ReplyResult(inv, f_AckErrList(o, nullptr));
}

void f_HAbortStart(SysObj* o, GVariant*, GDBusMethodInvocation* inv, bool) {
  f_AbortStart(o, nullptr);
  f_ReplyEmpty(inv);
}

void f_HDelErrList(SysObj* o, GVariant*, GDBusMethodInvocation* inv, bool) {
  f_DelErrList(o, nullptr);
  f_ReplyEmpty(inv);
}

void f_HNewResult(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool) {
  const char* z_c_Path;
  gint32 i_DataSet;
  g_variant_get(p, "(&si)", &z_c_Path, &i_DataSet);
  f_NewResult(o, z_c_Path, i_DataSet, nullptr);
  f_ReplyEmpty(inv);
}

void f_HNewIdCode(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool) {
  gint32 i_Dev, i_DevActive;
  const char* z_c_Code;
  g_variant_get(p, "(ii&s)", &i_Dev, &i_DevActive, &z_c_Code);
  f_NewIDCode(o, i_Dev, i_DevActive, z_c_Code, nullptr);
  f_ReplyEmpty(inv);
}

void f_HPrgChanged(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool) {
  f_PrgChanged(o, f_Int(p), nullptr);
  f_ReplyEmpty(inv);
}

void f_HRdyGet(SysObj* o, GVariant*, GDBusMethodInvocation* inv, bool) {
  int i_Ist = 0, i_Soll = 0;
  if (f_RdyGet(o, &i_Ist, &i_Soll, nullptr))
    g_dbus_method_invocation_return_value(inv, g_variant_new("(ii)", i_Ist, i_Soll));
  else
    f_ReplyError(inv);
}

void f_HSysErrorGet(SysObj* o, GVariant*, GDBusMethodInvocation* inv, bool) {
  int i_Error = 0, i_Class = 0, i_Date = 0;
  f_SysErrorGet(o, &i_Error, &i_Class, &i_Date, nullptr);
  g_dbus_method_invocation_return_value(inv, g_variant_new("(iii)", i_Error, i_Class, i_Date));
}

void f_HGetUnAcknSysErrors(SysObj* o, GVariant*, GDBusMethodInvocation* inv, bool) {
  char* z_c_Json = nullptr;
  if (!f_GetUnAcknSysErrors(o, &z_c_Json, nullptr) || z_c_Json == nullptr) {
    f_ReplyError(inv);
  } else if (!g_utf8_validate(z_c_Json, -1, nullptr)) {
    g_print("fgetunacknsyserrors INVALID UTF-8 String <%s>\n", z_c_Json);
    f_ReplyError(inv);
  } else {
    g_dbus_method_invocation_return_value(inv, g_variant_new("(s)", z_c_Json));
  }
  // The text is ours once handed over; freeing it keeps a long-running service small.
  free(z_c_Json);
}

void f_HBattPowerGet(SysObj* o, GVariant*, GDBusMethodInvocation* inv, bool) {
  int i_Power = 0;
  f_BattPowerGet(o, &i_Power, nullptr);
  g_dbus_method_invocation_return_value(inv, g_variant_new("(i)", i_Power));
}

void f_HBattStatusGet(SysObj* o, GVariant*, GDBusMethodInvocation* inv, bool) {
  // Declared with an "in" argument and no "out" argument, yet answered "(i)". The
  // invocation API refuses a reply that disagrees with the declaration, so the reply is
  // sent as a plain method-return message.
  int i_Status = 0;
  f_BattStatusGet(o, &i_Status, nullptr);
  GDBusMessage* z_o_Call = g_dbus_method_invocation_get_message(inv);
  if (!(g_dbus_message_get_flags(z_o_Call) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED)) {
    GDBusMessage* z_o_Reply = g_dbus_message_new_method_reply(z_o_Call);
    g_dbus_message_set_body(z_o_Reply, g_variant_new("(i)", i_Status));
    GErrorHolder_CL o_Err;
    if (!g_dbus_connection_send_message(g_dbus_method_invocation_get_connection(inv), z_o_Reply,
                                        G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, o_Err.f_Out())) {
      syslog(LOG_WARNING, "fbattstatusget - reply not sent - %s", o_Err.f_Message());
    }
    g_object_unref(z_o_Reply);
  }
  g_object_unref(inv);
}

void f_HToolEnableGet(SysObj* o, GVariant*, GDBusMethodInvocation* inv, bool) {
  int i_Enable = 0;
  f_ToolEnableGet(o, &i_Enable, nullptr);
  g_dbus_method_invocation_return_value(inv, g_variant_new("(i)", i_Enable));
}

void f_HMfuSet(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool) {
  f_ReplyResult(inv, f_MfuSet(o, f_Int(p), nullptr));
}

void f_HMfuGet(SysObj* o, GVariant*, GDBusMethodInvocation* inv, bool) {
  int i_Mfu = 0;
  f_MfuGet(o, &i_Mfu, nullptr);
  g_dbus_method_invocation_return_value(inv, g_variant_new("(i)", i_Mfu));
}

void f_HDumpRdy(SysObj* o, GVariant*, GDBusMethodInvocation* inv, bool) {
  f_DumpRdy(o, nullptr);
  f_ReplyEmpty(inv);
}

void f_HRdyFlagSet(SysObj*, GVariant* p, GDBusMethodInvocation* inv, bool) {
  f_BusRdyFlagSet(f_Int(p));
  f_ReplyEmpty(inv);
}

void f_HRdyFlagReset(SysObj*, GVariant* p, GDBusMethodInvocation* inv, bool) {
  f_BusRdyFlagReset(f_Int(p));
  f_ReplyEmpty(inv);
}

void f_HBatchCntrSet(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool) {
  gint32 i_Dest;
  const char* z_c_Cfg;
  g_variant_get(p, "(i&s)", &i_Dest, &z_c_Cfg);
  f_ReplyResult(inv, f_BatchCntrSet(o, i_Dest, z_c_Cfg, nullptr));
}

void f_HBatchCntrClear(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool) {
  f_ReplyResult(inv, f_BatchCntrClear(o, f_Int(p), nullptr));
}

void f_HBatchCntrDel(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool) {
  f_ReplyResult(inv, f_BatchCntrDel(o, f_Int(p), nullptr));
}

void f_HBatchCntrGet(SysObj*, GVariant*, GDBusMethodInvocation* inv, bool) {
  GVariantBuilder o_Builder;
  g_variant_builder_init(&o_Builder, G_VARIANT_TYPE("ay"));
  if (!f_BatchCntrList(&o_Builder)) {
    g_variant_builder_clear(&o_Builder);
    f_ReplyError(inv);
    return;
  }
  g_dbus_method_invocation_return_value(inv, g_variant_new("(ay)", &o_Builder));
}

void f_HIdCodeSrcSet(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool) {
  gint32 i_Src, i_Del;
  g_variant_get(p, "(ii)", &i_Src, &i_Del);
  f_ReplyResult(inv, f_IDCodeSrcSet(o, i_Src, i_Del, nullptr));
}

void f_HSetJobRunning(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool) {
  f_SetJobRunning(o, f_Int(p), nullptr);
  f_ReplyEmpty(inv);
}

void f_HBattPowerSet(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool) {
  f_BattPowerSet(o, f_Int(p), nullptr);
  f_ReplyEmpty(inv);
}

// The service keeps no operation mode of its own: it relays the request to whoever
// performs it, and relays the new mode once it is taken.
void f_HSetOperationMode(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool b_Reply) {
  gint32 i_Mode, i_TrgSrc, i_TrgVal;
  g_variant_get(p, "(iii)", &i_Mode, &i_TrgSrc, &i_TrgVal);
  SYS_EMIT_SIGNAL(o, "operationmoderequest", g_variant_new("(iii)", i_Mode, i_TrgSrc, i_TrgVal));
  if (b_Reply)
    f_ReplyEmpty(inv);
  else
    f_NoReply(inv);
}

void f_HNewOperationMode(SysObj* o, GVariant* p, GDBusMethodInvocation* inv, bool) {
  SYS_EMIT_SIGNAL(o, "newoperationmode", g_variant_new("(i)", f_Int(p)));
  f_ReplyEmpty(inv);
}

// Compared in this order; "fbattstatusset" has no entry on purpose: its callers get no
// answer and nothing changes.
const Dispatch_ST a_o_Dispatch[] = {
    {"freporterror", f_HReportError},
    {"ftoolenableset", f_HToolEnableSet},
    {"fcfgfilechanged", f_HCfgFileChanged},
    {"fcyclecomplete", f_HCycleComplete},
    {"fackerrlist", f_HAckErrList},
    {"fabortstart", f_HAbortStart},
    {"fdelerrlist", f_HDelErrList},
    {"fnewresult", f_HNewResult},
    {"fnewidcode", f_HNewIdCode},
    {"fprgchanged", f_HPrgChanged},
    {"frdyget", f_HRdyGet},
    {"fsyserrorget", f_HSysErrorGet},
    {"fgetunacknsyserrors", f_HGetUnAcknSysErrors},
    {"fbattpowerget", f_HBattPowerGet},
    {"fbattstatusget", f_HBattStatusGet},
    {"ftoolenableget", f_HToolEnableGet},
    {"fmfuset", f_HMfuSet},
    {"fmfuget", f_HMfuGet},
    {"fdumprdy", f_HDumpRdy},
    {"frdyflagset", f_HRdyFlagSet},
    {"frdyflagreset", f_HRdyFlagReset},
    {"fbatchcntrset", f_HBatchCntrSet},
    {"fbatchcntrclear", f_HBatchCntrClear},
    {"fbatchcntrdel", f_HBatchCntrDel},
    {"fbatchcntrget", f_HBatchCntrGet},
    {"fidcodesrcset", f_HIdCodeSrcSet},
    {"fsetjobrunning", f_HSetJobRunning},
    {"fbattpowerset", f_HBattPowerSet},
    {"fsetoperationmode", f_HSetOperationMode},
    {"fnewoperationmode", f_HNewOperationMode},
};

}  // namespace

const char* const* f_DispatchOrder(size_t* z_ui_Count) {
  static const char* a_z_c_Names[G_N_ELEMENTS(a_o_Dispatch)];
  for (size_t i = 0; i < G_N_ELEMENTS(a_o_Dispatch); i++) a_z_c_Names[i] = a_o_Dispatch[i].z_c_Name;
  *z_ui_Count = G_N_ELEMENTS(a_o_Dispatch);
  return a_z_c_Names;
}

void handle_method_call(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                        const gchar* method_name, GVariant* parameters,
                        GDBusMethodInvocation* invocation, gpointer user_data) {
  SysObj* z_o_Obj = static_cast<SysObj*>(user_data);
  GDBusMessage* z_o_Msg = g_dbus_method_invocation_get_message(invocation);
  bool b_ReplyExpected =
      !(g_dbus_message_get_flags(z_o_Msg) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
  for (const Dispatch_ST& o_Entry : a_o_Dispatch) {
    if (strcmp(method_name, o_Entry.z_c_Name) == 0) {
      o_Entry.f_Handle(z_o_Obj, parameters, invocation, b_ReplyExpected);
      return;
    }
  }
  f_NoReply(invocation);
}

GVariant* handle_get_property(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                              const gchar*, GError**, gpointer) {
  syslog(LOG_INFO, "handle_get_property");
  return nullptr;
}

gboolean handle_set_property(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                             const gchar*, GVariant*, GError**, gpointer) {
  syslog(LOG_INFO, "handle_set_property");
  return TRUE;
}

const GDBusInterfaceVTable interface_vtable = {handle_method_call, handle_get_property,
                                               handle_set_property, {nullptr}};
