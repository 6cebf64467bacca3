// The client library against the real service on a private bus: every typed method and
// signal, the state properties, the wire's exceptions, failures and a service restart.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <string>
#include <vector>

#include "Harness.h"
#include "syssrv-client.h"
#include "sysLib/Holders.h"

using namespace it;

namespace {

// Flag 3 is the service's own, flag 5 a peer's: the tests switch "ready" with flag 5.
const char* A_C_RDY = R"({"flags":[{"nr":3,"state":1,"name":"SysSrv"},)"
                      R"({"nr":5,"state":1,"name":"Peer"}]})";
constexpr guint UI_SOLL = (1u << 3) | (1u << 5);
constexpr const char* A_C_CHAN_CFG = "/home/tool/config/ChanCfg.json";

const char* const A_Z_C_SIGNALS[] = {"config-file-changed",
                                     "error-raised",
                                     "error-acknowledged",
                                     "battery-charge-changed",
                                     "battery-status-changed",
                                     "battery-countdown",
                                     "new-result",
                                     "tool-enable-changed",
                                     "program-changed",
                                     "new-id-code",
                                     "readiness-changed",
                                     "start-aborted",
                                     "job-running-changed",
                                     "operation-mode-changed",
                                     "operation-mode-requested"};

struct Emission_ST {
  std::string str_Name;
  std::vector<std::string> o_Args;  // as GLib prints values: 42, TRUE, "text"
  bool b_Used;
};

// Records the typed signals of every client with their arguments as text.
class TypedRecorder {
 public:
  explicit TypedRecorder(SysSrvClient* z_o_Of) : z_o_Of(z_o_Of) {
    gpointer z_v_Class = g_type_class_ref(SYS_SRV_TYPE_CLIENT);
    for (const char* z_c_Name : A_Z_C_SIGNALS) {
      guint ui_Sig = g_signal_lookup(z_c_Name, SYS_SRV_TYPE_CLIENT);
      EXPECT_NE(ui_Sig, 0u) << z_c_Name;
      o_Hooks.emplace_back(ui_Sig, g_signal_add_emission_hook(ui_Sig, 0, f_Hook, this, nullptr));
    }
    g_type_class_unref(z_v_Class);
  }
  ~TypedRecorder() {
    for (auto& o_H : o_Hooks) g_signal_remove_emission_hook(o_H.first, o_H.second);
  }
  // Waits for an unconsumed emission whose first arguments are o_Prefix; consumes it.
  bool f_WaitFor(const std::string& str_Name, const std::vector<std::string>& o_Prefix,
                 int i_TimeoutMs = 10000) {
    return f_WaitUntil(
        [&] {
          for (Emission_ST& o_E : o_Seen) {
            if (o_E.b_Used || o_E.str_Name != str_Name || o_E.o_Args.size() < o_Prefix.size())
              continue;
            if (!std::equal(o_Prefix.begin(), o_Prefix.end(), o_E.o_Args.begin())) continue;
            o_E.b_Used = true;
            return true;
          }
          return false;
        },
        i_TimeoutMs);
  }
  std::string f_Dump() const {
    std::string str_Out;
    for (const Emission_ST& o_E : o_Seen) {
      str_Out += o_E.str_Name + "(";
      for (const std::string& str_A : o_E.o_Args) str_Out += str_A + " ";
      str_Out += ") ";
    }
    return str_Out;
  }

 private:
  static gboolean f_Hook(GSignalInvocationHint* z_o_Hint, guint ui_N, const GValue* a_o_Values,
                         gpointer z_v_Self) {
    // Hooks see every client of the process; the harness has its own.
    auto* z_o_Self = static_cast<TypedRecorder*>(z_v_Self);
    if (g_value_get_object(&a_o_Values[0]) != z_o_Self->z_o_Of) return TRUE;
    Emission_ST o_E{g_signal_name(z_o_Hint->signal_id), {}, false};
    for (guint i = 1; i < ui_N; i++) {  // value 0 is the instance
      GChars_T o_Text(g_strdup_value_contents(&a_o_Values[i]));
      o_E.o_Args.push_back(o_Text.get());
    }
    z_o_Self->o_Seen.push_back(o_E);
    return TRUE;
  }
  SysSrvClient* z_o_Of;
  std::vector<std::pair<guint, gulong>> o_Hooks;
  std::vector<Emission_ST> o_Seen;
};

class ClientLib : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    z_o_Svc = new Service([](const Sandbox& o_Box) {
      o_Box.f_Write("/home/tool/config/log/rdystatus.json", A_C_RDY);
    });
    GError* z_o_Err = nullptr;
    z_o_Client =
        sys_srv_client_new_for_address_sync(z_o_Svc->o_Bus.f_Address().c_str(), nullptr, &z_o_Err);
    ASSERT_NE(z_o_Client, nullptr) << z_o_Err->message;
    z_o_Typed = new TypedRecorder(z_o_Client);
  }
  static void TearDownTestSuite() {
    delete z_o_Typed;
    g_clear_object(&z_o_Client);
    delete z_o_Svc;
  }
  static bool f_Running() {
    return f_WaitUntil([] { return sys_srv_client_get_service_running(z_o_Client) != FALSE; },
                       20000);
  }
  static inline Service* z_o_Svc = nullptr;
  static inline SysSrvClient* z_o_Client = nullptr;
  static inline TypedRecorder* z_o_Typed = nullptr;
};

// A property's value as the recorder prints signal arguments.
std::string f_Prop(SysSrvClient* z_o_Client, const char* z_c_Name) {
  GValue o_V = G_VALUE_INIT;
  g_object_get_property(G_OBJECT(z_o_Client), z_c_Name, &o_V);
  std::string str_Text = GChars_T(g_strdup_value_contents(&o_V)).get();
  g_value_unset(&o_V);
  return str_Text;
}

std::string f_Msg(GError* z_o_Err) { return z_o_Err != nullptr ? z_o_Err->message : ""; }

}  // namespace

// What the client shows once the service is up: the properties hold what the getters say.
TEST_F(ClientLib, StateIsLoadedWhenTheServiceAppears) {
  ASSERT_TRUE(f_Running());
  gint i_Charge = -1;
  SysSrvBatteryStatus e_Status = SYS_SRV_BATTERY_STATUS_OFF;
  gboolean b_Enabled = FALSE;
  guint ui_Ist = 0, ui_Soll = 0;
  gint i_Code = -1, i_Class = -1;
  gint64 i_Date = -1;
  GError* z_o_Err = nullptr;
  ASSERT_TRUE(sys_srv_client_fetch_battery_charge_sync(z_o_Client, &i_Charge, nullptr, &z_o_Err))
      << f_Msg(z_o_Err);
  ASSERT_TRUE(sys_srv_client_fetch_battery_status_sync(z_o_Client, &e_Status, nullptr, &z_o_Err))
      << f_Msg(z_o_Err);
  ASSERT_TRUE(sys_srv_client_fetch_tool_enable_sync(z_o_Client, &b_Enabled, nullptr, &z_o_Err));
  ASSERT_TRUE(
      sys_srv_client_fetch_readiness_sync(z_o_Client, &ui_Ist, &ui_Soll, nullptr, &z_o_Err));
  ASSERT_TRUE(sys_srv_client_fetch_current_error_sync(z_o_Client, &i_Code, &i_Class, &i_Date,
                                                      nullptr, &z_o_Err));
  EXPECT_EQ(sys_srv_client_get_battery_charge(z_o_Client), i_Charge);
  EXPECT_EQ(sys_srv_client_get_battery_status(z_o_Client), e_Status);
  EXPECT_EQ(sys_srv_client_get_tool_enabled(z_o_Client), b_Enabled);
  EXPECT_EQ(ui_Soll, UI_SOLL);
  guint ui_PIst = 0, ui_PSoll = 0;
  sys_srv_client_get_readiness(z_o_Client, &ui_PIst, &ui_PSoll);
  EXPECT_EQ(ui_PSoll, UI_SOLL);
  EXPECT_FALSE(sys_srv_client_get_ready(z_o_Client));  // the peer's flag 5 is missing
  gint i_PCode = -1;
  sys_srv_client_get_current_error(z_o_Client, &i_PCode, nullptr, nullptr);
  EXPECT_EQ(i_PCode, i_Code);
}

// Every call that changes something, each with the typed signal it makes the service send.
TEST_F(ClientLib, EveryMethodAndItsSignal) {
  ASSERT_TRUE(f_Running());
  SysSrvClient* c = z_o_Client;
  struct Case_ST {
    const char* z_c_What;
    std::function<gboolean(GError**)> f_Call;
    const char* z_c_Signal;  // null: the call has no signal of its own
    std::vector<std::string> o_Args;
  };
  const std::string str_Cfg = std::string("\"") + A_C_CHAN_CFG + "\"";
  const Case_ST a_o_Cases[] = {
      {"report",
       [&](GError** e) { return sys_srv_client_report_error_sync(c, "test", 500, 2, nullptr, e); },
       "error-raised",
       {"500", "2"}},
      {"ack by code",
       [&](GError** e) { return sys_srv_client_ack_error_sync(c, "test", 500, 2, nullptr, e); },
       "error-acknowledged",
       {"500", "0", "0"}},
      {"report class 0",
       [&](GError** e) { return sys_srv_client_report_error_sync(c, "test", 501, 0, nullptr, e); },
       "error-raised",
       {"501", "0"}},
      {"ack list",
       [&](GError** e) { return sys_srv_client_ack_error_list_sync(c, nullptr, e); },
       "error-acknowledged",
       {"501"}},
      {"delete list",
       [&](GError** e) { return sys_srv_client_delete_error_list_sync(c, nullptr, e); },
       nullptr,
       {}},
      {"peer ready",
       [&](GError** e) { return sys_srv_client_set_ready_flag_sync(c, 5, TRUE, nullptr, e); },
       "readiness-changed",
       {"40", "40"}},
      {"peer not ready",
       [&](GError** e) { return sys_srv_client_set_ready_flag_sync(c, 5, FALSE, nullptr, e); },
       "readiness-changed",
       {"8", "40"}},
      {"peer ready again",
       [&](GError** e) { return sys_srv_client_set_ready_flag_sync(c, 5, TRUE, nullptr, e); },
       "readiness-changed",
       {"40", "40"}},
      {"dump readiness",
       [&](GError** e) { return sys_srv_client_dump_readiness_sync(c, nullptr, e); },
       nullptr,
       {}},
      {"charge",
       [&](GError** e) { return sys_srv_client_set_battery_charge_sync(c, 42, nullptr, e); },
       "battery-charge-changed",
       {"42"}},
      {"status (never answered)",
       [&](GError** e) {
         return sys_srv_client_set_battery_status_sync(c, SYS_SRV_BATTERY_STATUS_LOW, nullptr, e);
       },
       nullptr,
       {}},
      {"tool off",
       [&](GError** e) { return sys_srv_client_set_tool_enable_sync(c, FALSE, nullptr, e); },
       "tool-enable-changed",
       {"FALSE"}},
      {"tool on",
       [&](GError** e) { return sys_srv_client_set_tool_enable_sync(c, TRUE, nullptr, e); },
       "tool-enable-changed",
       {"TRUE"}},
      {"mfu",
       [&](GError** e) { return sys_srv_client_set_mfu_sync(c, 1250, nullptr, e); },
       "config-file-changed",
       {str_Cfg}},
      {"file announced",
       [&](GError** e) {
         return sys_srv_client_config_file_changed_sync(c, "/home/tool/config/ResSrv.json", nullptr,
                                                        e);
       },
       nullptr,
       {}},
      {"cycle",
       [&](GError** e) { return sys_srv_client_cycle_complete_sync(c, nullptr, e); },
       nullptr,
       {}},
      {"abort",
       [&](GError** e) { return sys_srv_client_abort_start_sync(c, nullptr, e); },
       "start-aborted",
       {}},
      {"result",
       [&](GError** e) { return sys_srv_client_new_result_sync(c, "/mnt/res.db", 7, nullptr, e); },
       "new-result",
       {"\"/mnt/res.db\"", "7"}},
      {"id code",
       [&](GError** e) { return sys_srv_client_new_id_code_sync(c, 1, 0, "ID-1", nullptr, e); },
       "new-id-code",
       {"1", "0", "\"ID-1\""}},
      {"program",
       [&](GError** e) { return sys_srv_client_program_changed_sync(c, 3, nullptr, e); },
       "program-changed",
       {"3"}},
      {"job",
       [&](GError** e) { return sys_srv_client_set_job_running_sync(c, 1, nullptr, e); },
       "job-running-changed",
       {"1"}},
      {"mode request",
       [&](GError** e) {
         return sys_srv_client_request_operation_mode_sync(c, 2, 3, 4, nullptr, e);
       },
       "operation-mode-requested",
       {"2", "3", "4"}},
      {"mode taken",
       [&](GError** e) { return sys_srv_client_new_operation_mode_sync(c, 5, nullptr, e); },
       "operation-mode-changed",
       {"5"}},
      {"counter set",
       [&](GError** e) {
         return sys_srv_client_set_batch_counter_sync(c, FALSE, R"({"Id":4})", nullptr, e);
       },
       nullptr,
       {}},
      {"counter cleared",
       [&](GError** e) { return sys_srv_client_clear_batch_counter_sync(c, 4, nullptr, e); },
       nullptr,
       {}},
      {"id code source",
       [&](GError** e) { return sys_srv_client_set_id_code_source_sync(c, 1, 0, nullptr, e); },
       nullptr,
       {}},
  };
  for (const Case_ST& o_C : a_o_Cases) {
    GError* z_o_Err = nullptr;
    EXPECT_TRUE(o_C.f_Call(&z_o_Err)) << o_C.z_c_What << ": " << f_Msg(z_o_Err);
    g_clear_error(&z_o_Err);
    if (o_C.z_c_Signal != nullptr) {
      EXPECT_TRUE(z_o_Typed->f_WaitFor(o_C.z_c_Signal, o_C.o_Args))
          << o_C.z_c_What << "; seen: " << z_o_Typed->f_Dump();
    }
  }
}

// The properties follow the signals of the previous case.
TEST_F(ClientLib, PropertiesFollowTheSignals) {
  struct Case_ST {
    const char* z_c_Prop;
    const char* z_c_Value;
  };
  const Case_ST a_o_Cases[] = {
      {"battery-charge", "42"},   {"tool-enabled", "TRUE"},     {"ready", "TRUE"},
      {"readiness-actual", "40"}, {"readiness-required", "40"}, {"error-code", "0"},
  };
  for (const Case_ST& o_C : a_o_Cases)
    EXPECT_EQ(f_Prop(z_o_Client, o_C.z_c_Prop), o_C.z_c_Value) << o_C.z_c_Prop;
  // An error raised now becomes the current one, with its date.
  GError* z_o_Err = nullptr;
  ASSERT_TRUE(sys_srv_client_report_error_sync(z_o_Client, "test", 403, 4, nullptr, &z_o_Err));
  ASSERT_TRUE(z_o_Typed->f_WaitFor("error-raised", {"403", "4"}));
  gint i_Code = 0, i_Class = 0;
  gint64 i_Date = 0;
  sys_srv_client_get_current_error(z_o_Client, &i_Code, &i_Class, &i_Date);
  EXPECT_EQ(i_Code, 403);
  EXPECT_EQ(i_Class, 4);
  EXPECT_GT(i_Date, 1000000000);
  EXPECT_TRUE(z_o_Typed->f_WaitFor("readiness-changed", {"32", "40"}));
  EXPECT_FALSE(sys_srv_client_get_ready(z_o_Client));
}

// The getters, each against what the earlier cases set; the wire's exceptions are hidden.
TEST_F(ClientLib, GettersAndTheWiresExceptions) {
  GError* z_o_Err = nullptr;
  // The factor as set in thousandths, although the service's own getter says 100.
  gint i_Mfu = 0;
  ASSERT_TRUE(sys_srv_client_fetch_mfu_sync(z_o_Client, &i_Mfu, nullptr, &z_o_Err))
      << f_Msg(z_o_Err);
  EXPECT_EQ(i_Mfu, 1250);
  Variant_T o_Raw(sys_srv_client_call_sync(z_o_Client, "fmfuget", nullptr, G_VARIANT_TYPE("(i)"),
                                           G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
  ASSERT_TRUE(o_Raw);
  EXPECT_EQ(f_Int(o_Raw.get()), 100);

  // The status setter came back at once and changed nothing; the getter answers although
  // declared without a result.
  SysSrvBatteryStatus e_Status = SYS_SRV_BATTERY_STATUS_OFF;
  ASSERT_TRUE(sys_srv_client_fetch_battery_status_sync(z_o_Client, &e_Status, nullptr, &z_o_Err))
      << f_Msg(z_o_Err);
  EXPECT_NE(e_Status, SYS_SRV_BATTERY_STATUS_LOW);

  GPtrArray* z_o_Active = sys_srv_client_fetch_active_errors_sync(z_o_Client, nullptr, &z_o_Err);
  ASSERT_NE(z_o_Active, nullptr) << f_Msg(z_o_Err);
  ASSERT_EQ(z_o_Active->len, 1u);
  auto* z_o_E = static_cast<SysSrvErrorEntry*>(g_ptr_array_index(z_o_Active, 0));
  EXPECT_EQ(z_o_E->code, 403);
  EXPECT_EQ(z_o_E->error_class, 4);
  g_ptr_array_unref(z_o_Active);

  GBytes* z_o_Counters = sys_srv_client_fetch_batch_counters_sync(z_o_Client, nullptr, &z_o_Err);
  ASSERT_NE(z_o_Counters, nullptr) << f_Msg(z_o_Err);
  gsize ui_Len = 0;
  auto* z_uc_Ids = static_cast<const guint8*>(g_bytes_get_data(z_o_Counters, &ui_Len));
  EXPECT_NE(std::find(z_uc_Ids, z_uc_Ids + ui_Len, 4), z_uc_Ids + ui_Len);
  g_bytes_unref(z_o_Counters);
  EXPECT_TRUE(sys_srv_client_delete_batch_counter_sync(z_o_Client, 4, nullptr, &z_o_Err))
      << f_Msg(z_o_Err);
}

// The asynchronous forms deliver the same results through the caller's main context.
TEST_F(ClientLib, AsyncCallsReturnThroughTheMainContext) {
  struct Result_ST {
    bool b_Done = false;
    gboolean b_Ok = FALSE;
    gint i_Value = -1;
  };
  using Start_T = std::function<void(GAsyncReadyCallback, gpointer)>;
  using Finish_T = std::function<gboolean(GAsyncResult*, gint*, GError**)>;
  SysSrvClient* c = z_o_Client;
  struct Case_ST {
    const char* z_c_What;
    Start_T f_Start;
    Finish_T f_Finish;
    gint i_Expect;  // -1: any value
  };
  const Case_ST a_o_Cases[] = {
      {"charge",
       [&](GAsyncReadyCallback f, gpointer d) {
         sys_srv_client_fetch_battery_charge(c, nullptr, f, d);
       },
       [&](GAsyncResult* r, gint* v, GError** e) {
         return sys_srv_client_fetch_battery_charge_finish(c, r, v, e);
       },
       42},
      {"mfu",
       [&](GAsyncReadyCallback f, gpointer d) { sys_srv_client_fetch_mfu(c, nullptr, f, d); },
       [&](GAsyncResult* r, gint* v, GError** e) {
         return sys_srv_client_fetch_mfu_finish(c, r, v, e);
       },
       1250},
      {"current error",
       [&](GAsyncReadyCallback f, gpointer d) {
         sys_srv_client_fetch_current_error(c, nullptr, f, d);
       },
       [&](GAsyncResult* r, gint* v, GError** e) {
         return sys_srv_client_fetch_current_error_finish(c, r, v, nullptr, nullptr, e);
       },
       403},
      {"ack",
       [&](GAsyncReadyCallback f, gpointer d) {
         sys_srv_client_ack_error(c, "test", 403, 4, nullptr, f, d);
       },
       [&](GAsyncResult* r, gint* v, GError** e) {
         *v = 0;
         return sys_srv_client_ack_error_finish(c, r, e);
       },
       0},
      {"status setter",
       [&](GAsyncReadyCallback f, gpointer d) {
         sys_srv_client_set_battery_status(c, SYS_SRV_BATTERY_STATUS_LOW, nullptr, f, d);
       },
       [&](GAsyncResult* r, gint* v, GError** e) {
         *v = 0;
         return sys_srv_client_set_battery_status_finish(c, r, e);
       },
       0},
  };
  for (const Case_ST& o_C : a_o_Cases) {
    struct Pending_ST {
      const Case_ST* z_o_Case;
      Result_ST o_R;
    } o_P{&o_C, {}};
    o_C.f_Start(
        [](GObject*, GAsyncResult* z_o_Res, gpointer z_v) {
          auto* z_o_P = static_cast<Pending_ST*>(z_v);
          GError* z_o_Err = nullptr;
          z_o_P->o_R.b_Ok = z_o_P->z_o_Case->f_Finish(z_o_Res, &z_o_P->o_R.i_Value, &z_o_Err);
          if (z_o_Err != nullptr) ADD_FAILURE() << z_o_Err->message;
          g_clear_error(&z_o_Err);
          z_o_P->o_R.b_Done = true;
        },
        &o_P);
    ASSERT_TRUE(f_WaitUntil([&] { return o_P.o_R.b_Done; }, 10000)) << o_C.z_c_What;
    EXPECT_TRUE(o_P.o_R.b_Ok) << o_C.z_c_What;
    if (o_C.i_Expect != -1) {
      EXPECT_EQ(o_P.o_R.i_Value, o_C.i_Expect) << o_C.z_c_What;
    }
  }
}

// The service's error reply and bus failures arrive as codes the caller can act on.
TEST_F(ClientLib, FailuresAreCoded) {
  const std::string str_Res = "/home/tool/config/ResSrv.json";
  std::string str_Saved = z_o_Svc->o_Box.f_Read(str_Res);
  ASSERT_EQ(remove(z_o_Svc->o_Box.f_Path(str_Res).c_str()), 0);
  GError* z_o_Err = nullptr;
  EXPECT_FALSE(sys_srv_client_set_id_code_source_sync(z_o_Client, 1, 0, nullptr, &z_o_Err));
  z_o_Svc->o_Box.f_Write(str_Res, str_Saved);
  EXPECT_TRUE(g_error_matches(z_o_Err, SYS_SRV_CLIENT_ERROR, SYS_SRV_CLIENT_ERROR_REFUSED))
      << f_Msg(z_o_Err);
  g_clear_error(&z_o_Err);

  // The sorting of bus-level errors, one of each kind.
  struct Case_ST {
    GQuark ui_Domain;
    int i_Code;
    SysSrvClientError e_Expect;
  };
  const Case_ST a_o_Cases[] = {
      {G_IO_ERROR, G_IO_ERROR_FAILED_HANDLED, SYS_SRV_CLIENT_ERROR_REFUSED},
      {G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN, SYS_SRV_CLIENT_ERROR_NOT_RUNNING},
      {G_DBUS_ERROR, G_DBUS_ERROR_SPAWN_CHILD_EXITED, SYS_SRV_CLIENT_ERROR_NOT_RUNNING},
      {G_IO_ERROR, G_IO_ERROR_TIMED_OUT, SYS_SRV_CLIENT_ERROR_TIMED_OUT},
      {G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY, SYS_SRV_CLIENT_ERROR_TIMED_OUT},
      {G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED, SYS_SRV_CLIENT_ERROR_ACCESS_DENIED},
      {G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD, SYS_SRV_CLIENT_ERROR_INCOMPATIBLE},
      {G_IO_ERROR, G_IO_ERROR_INVALID_ARGUMENT, SYS_SRV_CLIENT_ERROR_INCOMPATIBLE},
      {G_IO_ERROR, G_IO_ERROR_CLOSED, SYS_SRV_CLIENT_ERROR_DISCONNECTED},
      {G_IO_ERROR, G_IO_ERROR_PERMISSION_DENIED, SYS_SRV_CLIENT_ERROR_FAILED},
  };
  for (const Case_ST& o_C : a_o_Cases) {
    GErrorHolder_CL o_E;
    *o_E.f_Out() = g_error_new_literal(o_C.ui_Domain, o_C.i_Code, "x");
    EXPECT_EQ(sys_srv_client_error_classify(o_E.get()), o_C.e_Expect)
        << g_quark_to_string(o_C.ui_Domain) << " " << o_C.i_Code;
  }
  // systemd's answer when the unit behind the activation file cannot start.
  GErrorHolder_CL o_Sd;
  *o_Sd.f_Out() = g_dbus_error_new_for_dbus_error("org.freedesktop.systemd1.UnitMasked", "x");
  EXPECT_EQ(sys_srv_client_error_classify(o_Sd.get()), SYS_SRV_CLIENT_ERROR_NOT_RUNNING);
  EXPECT_EQ(sys_srv_error_encode(403, 4), 3228);
  EXPECT_EQ(sys_srv_error_code(3233), 404);
  EXPECT_EQ(sys_srv_error_class(3233), 1);
}

// The battery count-down and its end, driven by the power controller's signals.
TEST_F(ClientLib, BatteryOffAndOn) {
  z_o_Svc->o_Daemon.f_Signal(SIGUSR1);
  EXPECT_TRUE(z_o_Typed->f_WaitFor("battery-status-changed",
                                   {"((SysSrvBatteryStatus) SYS_SRV_BATTERY_STATUS_OFF)"}))
      << z_o_Typed->f_Dump();
  EXPECT_TRUE(z_o_Typed->f_WaitFor("battery-countdown", {"20"})) << z_o_Typed->f_Dump();
  EXPECT_EQ(sys_srv_client_get_battery_status(z_o_Client), SYS_SRV_BATTERY_STATUS_OFF);
  z_o_Svc->o_Daemon.f_Signal(SIGUSR2);
  EXPECT_TRUE(z_o_Typed->f_WaitFor("battery-status-changed",
                                   {"((SysSrvBatteryStatus) SYS_SRV_BATTERY_STATUS_UNKNOWN)"}))
      << z_o_Typed->f_Dump();
}

// A client keeps working across a restart of the service: it notices the service going
// and coming back, reloads the state and receives signals of the new process.
TEST_F(ClientLib, ServiceRestartWhileHeld) {
  ASSERT_TRUE(f_Running());
  ASSERT_EQ(z_o_Svc->o_Daemon.f_Stop(), 0) << z_o_Svc->o_Daemon.f_Log();
  EXPECT_TRUE(f_WaitUntil([] { return !sys_srv_client_get_service_running(z_o_Client); }, 10000));
  EXPECT_FALSE(sys_srv_client_get_ready(z_o_Client));
  GError* z_o_Err = nullptr;
  gint i_Charge = 0;
  EXPECT_FALSE(sys_srv_client_fetch_battery_charge_sync(z_o_Client, &i_Charge, nullptr, &z_o_Err));
  EXPECT_TRUE(g_error_matches(z_o_Err, SYS_SRV_CLIENT_ERROR, SYS_SRV_CLIENT_ERROR_NOT_RUNNING))
      << f_Msg(z_o_Err);
  g_clear_error(&z_o_Err);

  Daemon o_Second(z_o_Svc->o_Box, z_o_Svc->o_Bus);
  ASSERT_TRUE(o_Second.f_Start()) << o_Second.f_Log();
  EXPECT_TRUE(f_Running());
  EXPECT_TRUE(sys_srv_client_set_battery_charge_sync(z_o_Client, 77, nullptr, &z_o_Err))
      << f_Msg(z_o_Err);
  EXPECT_TRUE(z_o_Typed->f_WaitFor("battery-charge-changed", {"77"})) << z_o_Typed->f_Dump();
  EXPECT_EQ(o_Second.f_Stop(), 0) << o_Second.f_Log();
}

namespace {

// A stand-in that owns the service's name and speaks other shapes than the service, as
// another version of it might.
const char* A_C_STANDIN_XML =
    "<node><interface name='com.torvane.akku.SysInterface'>"
    "<method name='fbattpowerget'><arg type='s' direction='out'/></method>"
    "</interface></node>";

void f_StandInCall(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                   GVariant*, GDBusMethodInvocation* z_o_Inv, gpointer) {
  g_dbus_method_invocation_return_value(z_o_Inv, g_variant_new("(s)", "full"));
}

}  // namespace

// Replies and signals of an unexpected shape fail cleanly or reach only the untyped signal;
// they are never read with the wrong types.
TEST(ClientWire, OtherShapesAreNotReadWrongly) {
  PrivateBus o_Bus;
  GError* z_o_Err = nullptr;
  GDBusConnection* z_o_Srv = g_dbus_connection_new_for_address_sync(
      o_Bus.f_Address().c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &z_o_Err);
  ASSERT_NE(z_o_Srv, nullptr) << f_Msg(z_o_Err);
  GDBusNodeInfo* z_o_Node = g_dbus_node_info_new_for_xml(A_C_STANDIN_XML, nullptr);
  const GDBusInterfaceVTable o_VTable = {f_StandInCall, nullptr, nullptr, {nullptr}};
  guint ui_Obj = g_dbus_connection_register_object(
      z_o_Srv, SYS_SRV_OBJECT_PATH, z_o_Node->interfaces[0], &o_VTable, nullptr, nullptr, nullptr);
  Variant_T o_Owned(g_dbus_connection_call_sync(
      z_o_Srv, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", SYS_SRV_BUS_NAME, 0u), nullptr, G_DBUS_CALL_FLAGS_NONE,
      5000, nullptr, nullptr));
  ASSERT_TRUE(o_Owned);

  SysSrvClient* z_o_C =
      sys_srv_client_new_for_address_sync(o_Bus.f_Address().c_str(), nullptr, &z_o_Err);
  ASSERT_NE(z_o_C, nullptr) << f_Msg(z_o_Err);
  TypedRecorder o_Typed(z_o_C);
  std::vector<std::string> o_Untyped;
  g_signal_connect(
      z_o_C, "bus-signal",
      G_CALLBACK(+[](SysSrvClient*, const gchar* z_c_Name, GVariant* o_Args, gpointer z_v) {
        static_cast<std::vector<std::string>*>(z_v)->push_back(std::string(z_c_Name) +
                                                               g_variant_get_type_string(o_Args));
      }),
      &o_Untyped);
  ASSERT_TRUE(
      f_WaitUntil([&] { return sys_srv_client_get_service_running(z_o_C) != FALSE; }, 10000));

  // The stand-in answers from this thread's main context, so the call must not block it.
  struct Fetch_ST {
    bool b_Done = false;
    GError* z_o_Err = nullptr;
  } o_F;
  sys_srv_client_fetch_battery_charge(
      z_o_C, nullptr,
      [](GObject* z_o_Src, GAsyncResult* z_o_Res, gpointer z_v) {
        auto* z_o_F = static_cast<Fetch_ST*>(z_v);
        gint i_Charge = 0;
        EXPECT_FALSE(sys_srv_client_fetch_battery_charge_finish(SYS_SRV_CLIENT(z_o_Src), z_o_Res,
                                                                &i_Charge, &z_o_F->z_o_Err));
        z_o_F->b_Done = true;
      },
      &o_F);
  ASSERT_TRUE(f_WaitUntil([&] { return o_F.b_Done; }, 10000));
  EXPECT_TRUE(g_error_matches(o_F.z_o_Err, SYS_SRV_CLIENT_ERROR, SYS_SRV_CLIENT_ERROR_INCOMPATIBLE))
      << f_Msg(o_F.z_o_Err);
  g_clear_error(&o_F.z_o_Err);

  struct Case_ST {
    const char* z_c_Wire;
    GVariant* o_Args;
  };
  const Case_ST a_o_Cases[] = {
      {"cfgfilechanged", g_variant_new("(i)", 5)},  // as declared, not as sent
      {"battpowerchanged", g_variant_new("(s)", "full")},
      {"rdychanged", g_variant_new("(ii)", 8, 8)},  // a fitting one, last
  };
  for (const Case_ST& o_C : a_o_Cases)
    g_dbus_connection_emit_signal(z_o_Srv, nullptr, SYS_SRV_OBJECT_PATH, SYS_SRV_INTERFACE,
                                  o_C.z_c_Wire, o_C.o_Args, nullptr);
  EXPECT_TRUE(o_Typed.f_WaitFor("readiness-changed", {"8", "8"}));
  EXPECT_EQ(o_Untyped, (std::vector<std::string>{"cfgfilechanged(i)", "battpowerchanged(s)",
                                                 "rdychanged(ii)"}));
  EXPECT_FALSE(o_Typed.f_WaitFor("config-file-changed", {}, 0));
  EXPECT_FALSE(o_Typed.f_WaitFor("battery-charge-changed", {}, 0));
  EXPECT_EQ(sys_srv_client_get_battery_charge(z_o_C), 0);
  EXPECT_TRUE(sys_srv_client_get_ready(z_o_C));

  g_object_unref(z_o_C);
  g_dbus_connection_unregister_object(z_o_Srv, ui_Obj);
  g_dbus_node_info_unref(z_o_Node);
  g_dbus_connection_close_sync(z_o_Srv, nullptr, nullptr);
  g_object_unref(z_o_Srv);
}
