// The real service object behind a private connection pair: any method, called any way,
// with edge arguments; afterwards "fmfuget" still answers 100 and GLib has not warned.
#include <gio/gio.h>
#include <sys/socket.h>

#include <climits>
#include <set>
#include <string>
#include <thread>

#include "BusInterface.h"
#include "ChanCfg.h"
#include "ErrorHandler.h"
#include "FuzzSupport.h"
#include "SystemSrv.h"

namespace {
GDBusConnection* f_Connect(int i_Fd, const char* z_c_Guid, GDBusConnectionFlags e_Flags) {
  GError* z_o_Err = nullptr;
  GSocket* z_o_Sock = g_socket_new_from_fd(i_Fd, &z_o_Err);
  FUZZ_CHECK(z_o_Sock != nullptr);
  GSocketConnection* z_o_Stream = g_socket_connection_factory_create_connection(z_o_Sock);
  GDBusConnection* z_o_Conn = g_dbus_connection_new_sync(G_IO_STREAM(z_o_Stream), z_c_Guid, e_Flags,
                                                         nullptr, nullptr, &z_o_Err);
  if (z_o_Conn == nullptr) std::fprintf(stderr, "peer connection: %s\n", z_o_Err->message);
  FUZZ_CHECK(z_o_Conn != nullptr);
  g_object_unref(z_o_Stream);
  g_object_unref(z_o_Sock);
  return z_o_Conn;
}

// The client end of a connection pair whose other end serves the service object.
GDBusConnection* f_Client() {
  static GDBusConnection* z_o_Client = [] {
    f_FuzzRoot(true);
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL));
    introspection_data = g_dbus_node_info_new_for_xml(introspection_xml, nullptr);
    FUZZ_CHECK(introspection_data != nullptr);
    SysObj* z_o_Obj = static_cast<SysObj*>(g_object_new(sys_obj_get_type(), nullptr));
    FUZZ_CHECK(z_o_ErrorHandler != nullptr && z_o_ChanCfg != nullptr &&
               z_o_JobBatchCntCfg != nullptr);
    int a_i_Fd[2];
    FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, a_i_Fd) == 0);
    GChars_T o_Guid(g_dbus_generate_guid());
    // Both ends authenticate against each other, so one of them needs a thread of its own.
    std::thread o_Server([&] {
      z_o_Obj->connection =
          f_Connect(a_i_Fd[0], o_Guid.get(), G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER);
    });
    GDBusConnection* z_o_New =
        f_Connect(a_i_Fd[1], nullptr, G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT);
    o_Server.join();
    FUZZ_CHECK(g_dbus_connection_register_object(z_o_Obj->connection, SYSSRV_OBJECT_PATH,
                                                 introspection_data->interfaces[0],
                                                 &interface_vtable, z_o_Obj, nullptr, nullptr) > 0);
    return z_o_New;
  }();
  return z_o_Client;
}

struct Reply_ST {
  bool b_Done = false;
  bool b_Answered = false;  // a return or an error reply, not a time-out or a lost connection
  Variant_T o_Body;         // a return's arguments
};

void f_OnReply(GObject* z_o_Src, GAsyncResult* z_o_Res, gpointer z_v_Reply) {
  Reply_ST* z_o_Reply = static_cast<Reply_ST*>(z_v_Reply);
  GErrorHolder_CL o_Err;
  z_o_Reply->o_Body.reset(
      g_dbus_connection_call_finish(G_DBUS_CONNECTION(z_o_Src), z_o_Res, o_Err.f_Out()));
  z_o_Reply->b_Answered = z_o_Reply->o_Body || g_dbus_error_is_remote_error(o_Err.get());
  z_o_Reply->b_Done = true;
}

// Sends one call; without z_o_Reply it goes out flagged as expecting no reply.
void f_Send(const char* z_c_Method, GVariant* z_o_Body, Reply_ST* z_o_Reply) {
  g_dbus_connection_call(f_Client(), nullptr, SYSSRV_OBJECT_PATH, SYSSRV_INTERFACE, z_c_Method,
                         z_o_Body, nullptr, G_DBUS_CALL_FLAGS_NONE, 60000, nullptr,
                         z_o_Reply != nullptr ? f_OnReply : nullptr, z_o_Reply);
}

int32_t f_EdgeInt(FuzzInput_CL& o_In) {
  static const int32_t a_i_Edges[] = {INT_MIN, -3, -2, -1, 0, 1, 2, 17, 31, 32, 255, 256, INT_MAX};
  uint8_t uc_Pick = o_In.f_Byte();
  if (uc_Pick < 2 * G_N_ELEMENTS(a_i_Edges)) return a_i_Edges[uc_Pick % G_N_ELEMENTS(a_i_Edges)];
  if (uc_Pick < 200) return static_cast<int8_t>(o_In.f_Byte());
  return o_In.f_Int();
}

std::string f_EdgeText(FuzzInput_CL& o_In) {
  uint8_t uc_Pick = o_In.f_Byte();
  std::string str_Text = o_In.f_Text(4096);
  // Now and then one very long text, built from the fuzzer's own bytes.
  if (uc_Pick == 0xFF) {
    std::string str_Seed = str_Text.empty() ? "%s%n'\";|" : str_Text;
    while (str_Text.size() < (1u << 20)) str_Text += str_Seed;
  }
  // The bus carries only valid UTF-8 texts; the library refuses the rest before us.
  return GChars_T(g_utf8_make_valid(str_Text.data(), static_cast<gssize>(str_Text.size()))).get();
}

// The declared in-arguments, without the parentheses.
std::string f_InSig(const GDBusMethodInfo* z_o_Method) {
  std::string str_Sig;
  for (GDBusArgInfo** z_z_o_Arg = z_o_Method->in_args; z_z_o_Arg && *z_z_o_Arg; ++z_z_o_Arg)
    str_Sig += (*z_z_o_Arg)->signature;
  return str_Sig;
}

// A body of the declared in-arguments, or (b_Wrong) of some other signature.
GVariant* f_Body(const GDBusMethodInfo* z_o_Method, bool b_Wrong, FuzzInput_CL& o_In) {
  static const char* const a_z_c_Wrong[] = {"",    "i",   "s", "ii", "si", "is",
                                            "sss", "iii", "u", "x",  "ay", "ss"};
  const std::string str_Sig =
      b_Wrong ? a_z_c_Wrong[o_In.f_Byte() % G_N_ELEMENTS(a_z_c_Wrong)] : f_InSig(z_o_Method);
  GVariantBuilder o_Builder;
  g_variant_builder_init(&o_Builder, G_VARIANT_TYPE_TUPLE);
  for (size_t i = 0; i < str_Sig.size(); ++i) {
    const char c_Type = str_Sig[i];
    if (c_Type == 'i') g_variant_builder_add(&o_Builder, "i", f_EdgeInt(o_In));
    if (c_Type == 'u') g_variant_builder_add(&o_Builder, "u", static_cast<guint32>(o_In.f_Int()));
    if (c_Type == 'x') g_variant_builder_add(&o_Builder, "x", static_cast<gint64>(o_In.f_Int()));
    if (c_Type == 's') g_variant_builder_add(&o_Builder, "s", f_EdgeText(o_In).c_str());
    if (c_Type == 'a') {  // "ay"
      std::string str_Bytes = o_In.f_Text(64);
      g_variant_builder_add_value(
          &o_Builder,
          g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, str_Bytes.data(), str_Bytes.size(), 1));
      ++i;
    }
  }
  return g_variant_builder_end(&o_Builder);
}
}  // namespace

FUZZ_TARGET(true, false) {
  f_Client();  // made on the first input, with the interface description
  static const std::set<std::string> o_Dispatched = [] {
    size_t ui_Count = 0;
    const char* const* a_z_c_Names = f_DispatchOrder(&ui_Count);
    return std::set<std::string>(a_z_c_Names, a_z_c_Names + ui_Count);
  }();
  GDBusInterfaceInfo* z_o_Iface = introspection_data->interfaces[0];
  guint ui_NrMethods = 0;
  while (z_o_Iface->methods[ui_NrMethods] != nullptr) ++ui_NrMethods;

  // Up to three calls per input: some faults need a set followed by a get.
  for (int i_Call = 0; i_Call < 3 && o_In.f_Left() > 0; ++i_Call) {
    guint ui_Pick = o_In.f_Byte() % (ui_NrMethods + 1);
    uint8_t uc_How = o_In.f_Byte();
    const GDBusMethodInfo* z_o_Method =
        ui_Pick < ui_NrMethods ? z_o_Iface->methods[ui_Pick] : z_o_Iface->methods[0];
    const char* z_c_Name = ui_Pick < ui_NrMethods ? z_o_Method->name : "fnosuchmethod";
    GVariant* z_o_Body = f_Body(z_o_Method, (uc_How & 2) != 0, o_In);
    // The library answers bad signatures and unknown names; unanswered methods get no wait.
    bool b_Declared = ui_Pick < ui_NrMethods &&
                      "(" + f_InSig(z_o_Method) + ")" == g_variant_get_type_string(z_o_Body);
    bool b_WantReply = (uc_How & 1) == 0 && (!b_Declared || o_Dispatched.count(z_c_Name) > 0);
    Reply_ST o_Reply;
    f_Send(z_c_Name, z_o_Body, b_WantReply ? &o_Reply : nullptr);

    // Messages are handled in order: once "fmfuget" is answered, the call before it is too.
    Reply_ST o_Probe;
    f_Send("fmfuget", nullptr, &o_Probe);
    while (!o_Probe.b_Done) g_main_context_iteration(nullptr, TRUE);
    gint32 i_Mfu = 0;
    if (o_Probe.o_Body) g_variant_get(o_Probe.o_Body.get(), "(i)", &i_Mfu);
    FUZZ_CHECK(i_Mfu == 100);
    if (b_WantReply) FUZZ_CHECK(o_Reply.b_Done && o_Reply.b_Answered);
  }
  // Signals the service sent on the way are for nobody here; let them go.
  while (g_main_context_iteration(nullptr, FALSE)) continue;
}
