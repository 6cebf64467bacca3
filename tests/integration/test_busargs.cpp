// Every argument of every bus method with hostile values (the edges and undeclared signatures are
// fuzz_dispatch's): the whole daemon, its ticks running on what was stored, keeps answering, its
// files still parse, no shell runs a caller's text and the sanitized build's log stays clean.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "Harness.h"

using namespace it;

namespace {

// Arguments of the signature str_In with ordinary values, the one at ui_Pos replaced.
GVariant* f_Args(const std::string& str_In, size_t ui_Pos, GVariant* z_o_Value) {
  GVariantBuilder o_B;
  g_variant_builder_init(&o_B, G_VARIANT_TYPE_TUPLE);
  for (size_t i = 0; i < str_In.size(); ++i)
    g_variant_builder_add_value(&o_B, i == ui_Pos        ? z_o_Value
                                      : str_In[i] == 'i' ? g_variant_new_int32(1)
                                                         : g_variant_new_string("x"));
  return g_variant_builder_end(&o_B);
}

TEST(BusArgs, EveryMethodSurvivesHostileArguments) {
  Service o_Svc;
  ASSERT_TRUE(o_Svc.f_Started());
  BusClient& o_Client = o_Svc.o_Client;
  std::shared_ptr<GDBusInterfaceInfo> o_If = o_Client.f_Interface();
  ASSERT_TRUE(o_If);

  const std::string str_Marker = o_Svc.o_Box.f_Path("/injected");
  const std::vector<int> a_i_Ints = {INT_MIN, -1, 0, 32, INT_MAX};
  const std::vector<std::string> a_str_Texts = {
      "",
      std::string(1u << 20, 'A'),
      "%s%s%n%x%99999999d'); DROP TABLE syserrors; -- \"../../../../../etc/passwd",
      "$(touch " + str_Marker + ") `touch " + str_Marker + "`; touch " + str_Marker + " |&",
      // The bus carries only valid UTF-8: noncharacters, the last code point, a byte-order mark.
      "\xEF\xBF\xBF\xF4\x8F\xBF\xBF\xEF\xBB\xBF\xC2\x80",
  };
  for (GDBusMethodInfo** z_z_o_M = o_If->methods; *z_z_o_M != nullptr; ++z_z_o_M) {
    const char* z_c_Method = (*z_z_o_M)->name;
    std::string str_In;
    for (GDBusArgInfo** z_z_o_A = (*z_z_o_M)->in_args; *z_z_o_A != nullptr; ++z_z_o_A)
      str_In += (*z_z_o_A)->signature;
    for (size_t ui_Pos = 0; ui_Pos < str_In.size(); ++ui_Pos) {
      const bool b_Int = str_In[ui_Pos] == 'i';
      for (size_t k = 0; k < (b_Int ? a_i_Ints.size() : a_str_Texts.size()); ++k) {
        GVariant* z_o_V =
            b_Int ? g_variant_new_int32(a_i_Ints[k]) : g_variant_new_string(a_str_Texts[k].c_str());
        SCOPED_TRACE(std::string(z_c_Method) + " arg " + std::to_string(ui_Pos) + " = " +
                     GChars_T(g_variant_print(z_o_V, FALSE)).get());
        GVariant* o_Args = f_Args(str_In, ui_Pos, z_o_V);
        // The one method the service never answers: its callers do not wait.
        if (std::string(z_c_Method) == "fbattstatusset") {
          sys_srv_client_send(o_Client.f_Client(), z_c_Method, o_Args, nullptr, nullptr);
        } else {
          GErrorHolder_CL o_Err;
          Variant_T o_Reply(o_Client.f_Call(z_c_Method, o_Args, o_Err.f_Out(), 60000));
          EXPECT_TRUE(o_Reply ||
                      g_error_matches(o_Err.get(), G_IO_ERROR, G_IO_ERROR_FAILED_HANDLED))
              << o_Err.f_Message();
        }
        Variant_T o_Mfu(o_Client.f_Call("fmfuget", nullptr, nullptr, 60000));
        ASSERT_EQ(f_Int(o_Mfu), 100) << "service gone:\n" << o_Svc.o_Daemon.f_Log();
      }
    }
  }
  EXPECT_FALSE(o_Svc.o_Box.f_Exists("/injected")) << "a caller's text reached a shell";
  for (const char* z_c_File :
       {"/home/tool/config/ChanCfg.json", "/home/tool/config/OkNokCntCfg.json",
        "/home/tool/config/JobOkNokCntCfg.json", "/home/tool/config/ResSrv.json"})
    EXPECT_EQ(f_JsonAt(o_Svc.o_Box.f_Read(z_c_File), {})[0], '{') << z_c_File;
}

}  // namespace
