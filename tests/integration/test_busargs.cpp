// Every bus method of one daemon with arguments from the edges: wrong signatures, integer
// limits, 1 MiB texts, format specifiers, SQL and shell metacharacters, unusual UTF-8.
// After each call the service must still answer "fmfuget"; at the end its files still
// parse, no shell ran a caller's text, and (in the sanitized build) the daemon's log holds
// no finding. The counter-set text in every JSON class is the fuzz_batchcnt_set corpus's.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "Harness.h"

using namespace it;

namespace {
struct Method_ST {
  std::string str_Name;
  std::string str_In;  // in-argument types, e.g. "iis"
};

class BusArgs : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { z_o_Svc = new Service(); }
  static void TearDownTestSuite() { delete z_o_Svc; }
  static inline Service* z_o_Svc = nullptr;
  BusClient& o_Client = z_o_Svc->o_Client;
  const Sandbox& o_Box = z_o_Svc->o_Box;

  // The interface as the running service describes it.
  std::vector<Method_ST> f_Methods() {
    Variant_T o_Xml(g_dbus_connection_call_sync(o_Client.f_Conn(), A_C_BUS_NAME, A_C_PATH,
                                                "org.freedesktop.DBus.Introspectable", "Introspect",
                                                nullptr, G_VARIANT_TYPE("(s)"),
                                                G_DBUS_CALL_FLAGS_NONE, 10000, nullptr, nullptr));
    std::vector<Method_ST> o_Out;
    if (!o_Xml) return o_Out;
    GDBusNodeInfo* z_o_Node = g_dbus_node_info_new_for_xml(f_Str(o_Xml).c_str(), nullptr);
    GDBusInterfaceInfo* z_o_If =
        z_o_Node ? g_dbus_node_info_lookup_interface(z_o_Node, A_C_IFACE) : nullptr;
    for (GDBusMethodInfo** z_z_o_M = z_o_If ? z_o_If->methods : nullptr; z_z_o_M && *z_z_o_M;
         ++z_z_o_M) {
      Method_ST o_M{(*z_z_o_M)->name, ""};
      for (GDBusArgInfo** z_z_o_A = (*z_z_o_M)->in_args; z_z_o_A && *z_z_o_A; ++z_z_o_A)
        o_M.str_In += (*z_z_o_A)->signature;
      o_Out.push_back(o_M);
    }
    if (z_o_Node) g_dbus_node_info_unref(z_o_Node);
    return o_Out;
  }

  // One call; the answer must be a reply, the service's error reply or (str_Expect
  // "invalid") the library's refusal of the arguments. The service must then be alive.
  void f_Try(const Method_ST& o_M, GVariant* o_Args, const std::string& str_What,
             bool b_WrongSignature = false) {
    SCOPED_TRACE(o_M.str_Name + " " + str_What);
    Variant_T o_Owned(g_variant_ref_sink(o_Args));
    // The one method the service never answers: its callers do not wait.
    if (o_M.str_Name == "fbattstatusset" && !b_WrongSignature) {
      o_Client.f_SendNoReply(o_M.str_Name.c_str(), o_Args);
    } else {
      GErrorHolder_CL o_Err;
      Variant_T o_Reply(o_Client.f_Call(o_M.str_Name.c_str(), o_Args, o_Err.f_Out(), 60000));
      if (b_WrongSignature) {
        EXPECT_TRUE(g_error_matches(o_Err.get(), G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS))
            << (o_Err ? o_Err.f_Message() : "answered");
      } else if (!o_Reply) {
        EXPECT_TRUE(g_error_matches(o_Err.get(), G_IO_ERROR, G_IO_ERROR_FAILED_HANDLED))
            << o_Err.f_Message();
      }
    }
    GErrorHolder_CL o_Err;
    Variant_T o_Mfu(o_Client.f_Call("fmfuget", nullptr, o_Err.f_Out(), 60000));
    ASSERT_TRUE(o_Mfu) << "service gone: " << o_Err.f_Message() << "\n"
                       << z_o_Svc->o_Daemon.f_Log();
    EXPECT_EQ(f_Int(o_Mfu), 100);
  }

  // Arguments of o_M with ordinary values, one position p replaced by z_o_Value.
  static GVariant* f_Args(const Method_ST& o_M, size_t ui_Pos, GVariant* z_o_Value) {
    GVariantBuilder o_B;
    g_variant_builder_init(&o_B, G_VARIANT_TYPE_TUPLE);
    for (size_t i = 0; i < o_M.str_In.size(); ++i) {
      if (i == ui_Pos)
        g_variant_builder_add_value(&o_B, z_o_Value);
      else if (o_M.str_In[i] == 'i')
        g_variant_builder_add(&o_B, "i", 1);
      else
        g_variant_builder_add(&o_B, "s", "x");
    }
    return g_variant_builder_end(&o_B);
  }

  bool f_FileParses(const char* z_c_Path) {
    return cJSON_IsObject(CJsonTree_T(cJSON_Parse(o_Box.f_Read(z_c_Path).c_str())).get());
  }
};

TEST_F(BusArgs, EveryMethodSurvivesEdgeArguments) {
  ASSERT_TRUE(z_o_Svc->f_Started());
  std::vector<Method_ST> o_Methods = f_Methods();
  ASSERT_GE(o_Methods.size(), 30u);

  const std::string str_Marker = o_Box.f_Path("/injected");
  const std::vector<int> a_i_Ints = {INT_MIN, -1, 0, 32, INT_MAX};
  const std::vector<std::string> a_str_Texts = {
      "",
      std::string(1u << 20, 'A'),
      "%s%s%s%n%n%x%p%99999999d",
      "'); DROP TABLE syserrors; --",
      "\"; DELETE FROM syserrors WHERE 1=1; SELECT \"",
      "$(touch " + str_Marker + ") `touch " + str_Marker + "`; touch " + str_Marker + " |&",
      "../../../../../etc/passwd",
      // The bus carries only valid UTF-8 (the library and the daemon refuse the rest), so
      // the odd corners of valid UTF-8 stand in: noncharacters, the last code point, and a
      // byte-order mark.
      "\xEF\xBF\xBF\xF4\x8F\xBF\xBF\xEF\xBB\xBF\xC2\x80",
  };

  for (const Method_ST& o_M : o_Methods) {
    for (size_t ui_Pos = 0; ui_Pos < o_M.str_In.size(); ++ui_Pos) {
      if (o_M.str_In[ui_Pos] == 'i') {
        for (int i_V : a_i_Ints)
          f_Try(o_M, f_Args(o_M, ui_Pos, g_variant_new_int32(i_V)),
                "arg " + std::to_string(ui_Pos) + " = " + std::to_string(i_V));
      } else {
        for (const std::string& str_V : a_str_Texts)
          f_Try(o_M, f_Args(o_M, ui_Pos, g_variant_new_string(str_V.c_str())),
                "arg " + std::to_string(ui_Pos) + " = " + str_V.substr(0, 40));
      }
    }
    // A signature the method does not declare: the library refuses it for the service.
    GVariant* o_Wrong = o_M.str_In == "s" ? g_variant_new("(i)", 1) : g_variant_new("(s)", "x");
    f_Try(o_M, o_Wrong, "wrong signature", true);
    if (!o_M.str_In.empty()) f_Try(o_M, g_variant_new("()"), "no arguments", true);
  }

  EXPECT_FALSE(o_Box.f_Exists("/injected")) << "a caller's text reached a shell";
  for (const char* z_c_File :
       {"/home/tool/config/ChanCfg.json", "/home/tool/config/OkNokCntCfg.json",
        "/home/tool/config/JobOkNokCntCfg.json", "/home/tool/config/ResSrv.json"})
    EXPECT_TRUE(f_FileParses(z_c_File)) << z_c_File;
}

}  // namespace
