// Topics and payloads of the plant feed, the ordered sending of the queue, the command topic.
#include "PlantFeed.h"

#include <cjson/cJSON.h>
#include <syslog.h>

#include "SysSrvNames.h"
#include "sysLib/ConfigFile.h"

namespace {

constexpr const char* A_C_CHANCFG = "/home/tool/config/ChanCfg.json";
constexpr const char* A_C_PROCESS = "syssrv-bridge";

std::string f_Print(cJSON* z_o_Body) {
  CJsonTree_T o_Tree(z_o_Body);
  CJsonText_T o_Text(cJSON_PrintUnformatted(o_Tree.get()));
  return o_Text ? std::string(o_Text.get()) : std::string("{}");
}

int64_t f_NowMs() { return g_get_real_time() / 1000; }

cJSON* f_ErrorJson(int i_Code, int i_Class, int64_t i_Date) {
  cJSON* z_o_E = cJSON_CreateObject();
  cJSON_AddNumberToObject(z_o_E, "coded", sys_srv_error_encode(i_Code, i_Class));
  cJSON_AddNumberToObject(z_o_E, "code", i_Code);
  cJSON_AddNumberToObject(z_o_E, "class", i_Class);
  cJSON_AddNumberToObject(z_o_E, "date", static_cast<double>(i_Date));
  return z_o_E;
}

int f_JsonInt(const cJSON* z_o_Obj, const char* z_c_Section, const char* z_c_Key) {
  const cJSON* z_o_Sec = cJSON_GetObjectItemCaseSensitive(z_o_Obj, z_c_Section);
  const cJSON* z_o_V = cJSON_GetObjectItemCaseSensitive(z_o_Sec, z_c_Key);
  if (cJSON_IsBool(z_o_V)) return cJSON_IsTrue(z_o_V) ? 1 : 0;
  return cJSON_IsNumber(z_o_V) ? z_o_V->valueint : 0;
}

}  // namespace

const char* f_BatteryStatusName(int i_Status) {
  static const char* const A_C_NAMES[] = {"off", "empty", "low", "good", "unknown", "weak"};
  return i_Status >= 0 && i_Status < 6 ? A_C_NAMES[i_Status] : "unknown";
}

PlantFeed_CL::PlantFeed_CL(const BridgeConfig_ST& o_Cfg, SysSrvClient* z_o_Client,
                           EventQueue_CL& o_Queue)
    : o_Cfg(o_Cfg),
      z_o_Client(z_o_Client),
      o_Queue(o_Queue),
      str_Base(o_Cfg.str_Prefix + "/" + o_Cfg.str_HostName + "/") {
  MqttHandlers_ST o_Handlers;
  o_Handlers.f_Connected = [this] { f_OnConnected(); };
  o_Handlers.f_Disconnected = [this] {
    o_InFlight.clear();
    o_Published.clear();
  };
  o_Handlers.f_Published = [this](int i_Mid) { f_OnPublished(i_Mid); };
  o_Handlers.f_Message = [this](const std::string& str_T, const std::string& str_P, bool b_R) {
    f_OnCommand(str_T, str_P, b_R);
  };
  // The broker publishes the will when the tool vanishes without saying goodbye.
  o_Link = std::make_unique<MqttLink_CL>(o_Cfg, str_Base + "status",
                                         R"({"status":"offline","reason":"lost"})", o_Handlers);
}

PlantFeed_CL::~PlantFeed_CL() {
  g_signal_handlers_disconnect_by_data(z_o_Client, this);
  if (ui_RefreshTimer != 0) g_source_remove(ui_RefreshTimer);
  if (ui_AgeTimer != 0) g_source_remove(ui_AgeTimer);
}

void PlantFeed_CL::f_Start() {
  str_Since = f_IsoTime(f_NowMs());
  g_signal_connect(z_o_Client, "error-raised", G_CALLBACK(f_OnErrorRaised), this);
  g_signal_connect(z_o_Client, "error-acknowledged", G_CALLBACK(f_OnErrorAcked), this);
  g_signal_connect(z_o_Client, "readiness-changed", G_CALLBACK(f_OnReadiness), this);
  g_signal_connect(z_o_Client, "battery-charge-changed", G_CALLBACK(f_OnCharge), this);
  g_signal_connect(z_o_Client, "battery-status-changed", G_CALLBACK(f_OnStatus), this);
  g_signal_connect(z_o_Client, "battery-countdown", G_CALLBACK(f_OnCountdown), this);
  g_signal_connect(z_o_Client, "config-file-changed", G_CALLBACK(f_OnConfigFile), this);
  g_signal_connect(z_o_Client, "notify::service-running", G_CALLBACK(f_OnRunning), this);
  o_Queue.f_DropExpired(f_NowMs());
  ui_AgeTimer = g_timeout_add_seconds(
      60,
      [](gpointer z_v_Self) -> gboolean {
        static_cast<PlantFeed_CL*>(z_v_Self)->o_Queue.f_DropExpired(f_NowMs());
        return G_SOURCE_CONTINUE;
      },
      this);
  f_Refresh();
  o_Link->f_Start();
}

void PlantFeed_CL::f_Stop() {
  if (o_Link->f_Connected()) {
    o_Link->f_Publish(str_Base + "status", R"({"status":"offline","reason":"stopped"})", true);
    o_Link->f_Disconnect(2000);
  }
}

// --- events ------------------------------------------------------------------------------

void PlantFeed_CL::f_Event(const char* z_c_Name, cJSON* z_o_Body) {
  // The name first, then what the service announced: readable in mosquitto_sub's output.
  cJSON* z_o_Event = cJSON_CreateObject();
  cJSON_AddStringToObject(z_o_Event, "event", z_c_Name);
  while (z_o_Body->child != nullptr) {
    const char* z_c_Key = z_o_Body->child->string;
    std::string str_Key = z_c_Key != nullptr ? z_c_Key : "";
    cJSON_AddItemToObject(z_o_Event, str_Key.c_str(),
                          cJSON_DetachItemViaPointer(z_o_Body, z_o_Body->child));
  }
  cJSON_Delete(z_o_Body);
  // Every event is stored before it is sent: the queue decides the order on the broker.
  if (o_Queue.f_Push(str_Base + "event/" + z_c_Name, f_Print(z_o_Event), f_NowMs()) == 0)
    syslog(LOG_ERR, "bridge: event %s could not be queued", z_c_Name);
  f_Pump();
  f_ScheduleRefresh();
}

void PlantFeed_CL::f_Pump() {
  if (!o_Link->f_Connected() || o_InFlight.size() >= UI_WINDOW) return;
  for (const QueuedEvent_ST& o_E : o_Queue.f_Next(i_LastSent, UI_WINDOW - o_InFlight.size())) {
    int i_Mid = 0;
    if (!o_Link->f_Publish(o_E.str_Topic, o_E.str_Payload, false, &i_Mid)) return;
    o_InFlight[i_Mid] = o_E.i_Seq;
    i_LastSent = o_E.i_Seq;
  }
}

void PlantFeed_CL::f_OnPublished(int i_Mid) {
  auto o_It = o_InFlight.find(i_Mid);
  if (o_It == o_InFlight.end()) return;  // a state topic
  o_Queue.f_Remove(o_It->second);
  o_InFlight.erase(o_It);
  f_Pump();
}

void PlantFeed_CL::f_OnConnected() {
  // What was in flight on the last connection was never acknowledged: the queue still has
  // it, and it goes again from the oldest on. A subscriber may see an event twice, never
  // out of order; the sequence number tells the copies apart.
  o_InFlight.clear();
  i_LastSent = 0;
  o_Published.clear();
  f_PublishStatus();
  for (const auto& o_S : o_State) {
    if (o_Published.count(o_S.first) == 0 &&
        o_Link->f_Publish(str_Base + o_S.first, o_S.second, true))
      o_Published[o_S.first] = o_S.second;
  }
  if (o_Cfg.b_CommandEnabled) o_Link->f_Subscribe(str_Base + "command/+/ack");
  if (o_Queue.f_Count() > 0)
    syslog(LOG_INFO, "bridge: sending %ld queued events", o_Queue.f_Count());
  f_Pump();
}

void PlantFeed_CL::f_OnErrorRaised(SysSrvClient*, gint i_Code, gint i_Class, gint64 i_Date,
                                   gpointer z_v_Self) {
  static_cast<PlantFeed_CL*>(z_v_Self)->f_Event("sysfault", f_ErrorJson(i_Code, i_Class, i_Date));
}

void PlantFeed_CL::f_OnErrorAcked(SysSrvClient*, gint i_Code, gint i_CurCode, gint i_CurClass,
                                  gpointer z_v_Self) {
  cJSON* z_o_B = cJSON_CreateObject();
  cJSON_AddNumberToObject(z_o_B, "code", i_Code);
  cJSON_AddNumberToObject(z_o_B, "current_code", i_CurCode);
  cJSON_AddNumberToObject(z_o_B, "current_class", i_CurClass);
  static_cast<PlantFeed_CL*>(z_v_Self)->f_Event("acksysfault", z_o_B);
}

void PlantFeed_CL::f_OnReadiness(SysSrvClient*, guint ui_Ist, guint ui_Soll, gpointer z_v_Self) {
  cJSON* z_o_B = cJSON_CreateObject();
  cJSON_AddBoolToObject(z_o_B, "ready", (ui_Ist & ui_Soll) == ui_Soll);
  cJSON_AddNumberToObject(z_o_B, "RdyIst", ui_Ist);
  cJSON_AddNumberToObject(z_o_B, "RdySoll", ui_Soll);
  static_cast<PlantFeed_CL*>(z_v_Self)->f_Event("rdychanged", z_o_B);
}

void PlantFeed_CL::f_OnCharge(SysSrvClient*, gint i_Charge, gpointer z_v_Self) {
  cJSON* z_o_B = cJSON_CreateObject();
  cJSON_AddNumberToObject(z_o_B, "charge", i_Charge);
  static_cast<PlantFeed_CL*>(z_v_Self)->f_Event("battpowerchanged", z_o_B);
}

void PlantFeed_CL::f_OnStatus(SysSrvClient*, SysSrvBatteryStatus e_Status, gpointer z_v_Self) {
  auto* z_o_Self = static_cast<PlantFeed_CL*>(z_v_Self);
  // The count-down only runs with an empty battery; any other status has ended it.
  if (e_Status != SYS_SRV_BATTERY_STATUS_EMPTY) z_o_Self->i_Countdown = 0;
  cJSON* z_o_B = cJSON_CreateObject();
  cJSON_AddStringToObject(z_o_B, "status", f_BatteryStatusName(e_Status));
  cJSON_AddNumberToObject(z_o_B, "status_code", e_Status);
  z_o_Self->f_Event("battstatuschanged", z_o_B);
}

void PlantFeed_CL::f_OnCountdown(SysSrvClient*, gint i_Seconds, gpointer z_v_Self) {
  auto* z_o_Self = static_cast<PlantFeed_CL*>(z_v_Self);
  z_o_Self->i_Countdown = i_Seconds;
  z_o_Self->f_ScheduleRefresh();
}

void PlantFeed_CL::f_OnConfigFile(SysSrvClient*, const gchar* z_c_Path, gpointer z_v_Self) {
  cJSON* z_o_B = cJSON_CreateObject();
  cJSON_AddStringToObject(z_o_B, "path", z_c_Path != nullptr ? z_c_Path : "");
  static_cast<PlantFeed_CL*>(z_v_Self)->f_Event("cfgfilechanged", z_o_B);
}

void PlantFeed_CL::f_OnRunning(GObject*, GParamSpec*, gpointer z_v_Self) {
  auto* z_o_Self = static_cast<PlantFeed_CL*>(z_v_Self);
  syslog(LOG_INFO, "bridge: the service %s",
         sys_srv_client_get_service_running(z_o_Self->z_o_Client) ? "is running" : "has stopped");
  z_o_Self->f_PublishStatus();
  z_o_Self->f_ScheduleRefresh();
}

// --- retained state ----------------------------------------------------------------------

void PlantFeed_CL::f_PublishStatus() {
  cJSON* z_o_B = cJSON_CreateObject();
  cJSON_AddStringToObject(z_o_B, "status", "online");
  cJSON_AddBoolToObject(z_o_B, "service_running", sys_srv_client_get_service_running(z_o_Client));
  cJSON_AddStringToObject(z_o_B, "since", str_Since.c_str());
  cJSON_AddNumberToObject(z_o_B, "queued", static_cast<double>(o_Queue.f_Count()));
  f_SetState("status", z_o_B);
}

void PlantFeed_CL::f_SetState(const std::string& str_Name, cJSON* z_o_Body) {
  std::string str_Text = f_Print(z_o_Body);
  o_State[str_Name] = str_Text;
  auto o_It = o_Published.find(str_Name);
  if (!o_Link->f_Connected() || (o_It != o_Published.end() && o_It->second == str_Text)) return;
  if (o_Link->f_Publish(str_Base + str_Name, str_Text, true)) o_Published[str_Name] = str_Text;
}

void PlantFeed_CL::f_ScheduleRefresh() {
  // A storm of announcements becomes one refresh of the state topics per 100 ms.
  if (ui_RefreshTimer != 0) return;
  ui_RefreshTimer = g_timeout_add(
      100,
      [](gpointer z_v_Self) -> gboolean {
        auto* z_o_Self = static_cast<PlantFeed_CL*>(z_v_Self);
        z_o_Self->ui_RefreshTimer = 0;
        z_o_Self->f_Refresh();
        return G_SOURCE_REMOVE;
      },
      this);
}

void PlantFeed_CL::f_Refresh() {
  bool b_Running = sys_srv_client_get_service_running(z_o_Client);
  if (!b_Running) {
    f_PublishStatus();
    return;  // the last known state stays on the broker; "status" says it is not current
  }
  guint ui_Ist = 0, ui_Soll = 0;
  // The announced words may lag behind single flags; the service's answer does not.
  if (!sys_srv_client_fetch_readiness_sync(z_o_Client, &ui_Ist, &ui_Soll, nullptr, nullptr))
    sys_srv_client_get_readiness(z_o_Client, &ui_Ist, &ui_Soll);
  cJSON* z_o_Ready = cJSON_CreateObject();
  cJSON_AddBoolToObject(z_o_Ready, "ready", (ui_Ist & ui_Soll) == ui_Soll);
  cJSON_AddNumberToObject(z_o_Ready, "RdyIst", ui_Ist);
  cJSON_AddNumberToObject(z_o_Ready, "RdySoll", ui_Soll);
  cJSON* z_o_Missing = cJSON_AddArrayToObject(z_o_Ready, "missing");
  for (int i = 0; i < 32; i++)
    if ((ui_Soll & ~ui_Ist) & (1u << i)) cJSON_AddItemToArray(z_o_Missing, cJSON_CreateNumber(i));
  f_SetState("ready", z_o_Ready);

  SysSrvBatteryStatus e_Status = sys_srv_client_get_battery_status(z_o_Client);
  cJSON* z_o_Batt = cJSON_CreateObject();
  cJSON_AddNumberToObject(z_o_Batt, "charge", sys_srv_client_get_battery_charge(z_o_Client));
  cJSON_AddStringToObject(z_o_Batt, "status", f_BatteryStatusName(e_Status));
  cJSON_AddNumberToObject(z_o_Batt, "status_code", e_Status);
  cJSON_AddBoolToObject(z_o_Batt, "countdown", i_Countdown > 0);
  cJSON_AddNumberToObject(z_o_Batt, "countdown_s", i_Countdown);
  f_SetState("battery", z_o_Batt);

  gint i_Code = 0, i_Class = 0;
  gint64 i_Date = 0;
  sys_srv_client_get_current_error(z_o_Client, &i_Code, &i_Class, &i_Date);
  f_SetState("error", f_ErrorJson(i_Code, i_Class, i_Code != 0 ? i_Date : 0));

  bool b_Due = false;
  GError* z_o_Err = nullptr;
  GPtrArray* z_o_List = sys_srv_client_fetch_active_errors_sync(z_o_Client, nullptr, &z_o_Err);
  if (z_o_List != nullptr) {
    cJSON* z_o_Errors = cJSON_CreateObject();
    cJSON_AddNumberToObject(z_o_Errors, "count", z_o_List->len);
    cJSON* z_o_Arr = cJSON_AddArrayToObject(z_o_Errors, "errors");
    for (guint i = 0; i < z_o_List->len; i++) {
      auto* z_o_E = static_cast<SysSrvErrorEntry*>(g_ptr_array_index(z_o_List, i));
      cJSON_AddItemToArray(z_o_Arr, f_ErrorJson(z_o_E->code, z_o_E->error_class, z_o_E->date));
      b_Due = b_Due || sys_srv_error_encode(z_o_E->code, z_o_E->error_class) == I_SYSERR_MAINTENANCE_DUE;
    }
    g_ptr_array_unref(z_o_List);
    f_SetState("errors", z_o_Errors);
  } else {
    syslog(LOG_WARNING, "bridge: cannot read the active errors: %s", z_o_Err->message);
    g_error_free(z_o_Err);
    b_Due = sys_srv_error_encode(i_Code, i_Class) == I_SYSERR_MAINTENANCE_DUE;
  }

  cJSON* z_o_Raw = nullptr;
  CJsonTree_T o_ChanCfg(f_ReadJsonCfgFile(A_C_CHANCFG, &z_o_Raw) == 0 ? z_o_Raw : nullptr);
  cJSON* z_o_Maint = cJSON_CreateObject();
  cJSON_AddBoolToObject(z_o_Maint, "due", b_Due);
  cJSON_AddBoolToObject(z_o_Maint, "supervised", f_JsonInt(o_ChanCfg.get(), "Wartung", "Aktiv"));
  cJSON_AddNumberToObject(z_o_Maint, "next_cycle", f_JsonInt(o_ChanCfg.get(), "Wartung", "Zyklus"));
  cJSON_AddNumberToObject(z_o_Maint, "next_date", f_JsonInt(o_ChanCfg.get(), "Wartung", "Datum"));
  cJSON_AddNumberToObject(z_o_Maint, "last_cycle",
                          f_JsonInt(o_ChanCfg.get(), "LetzteWartung", "Zyklus"));
  cJSON_AddNumberToObject(z_o_Maint, "last_date",
                          f_JsonInt(o_ChanCfg.get(), "LetzteWartung", "Datum"));
  f_SetState("maintenance", z_o_Maint);
  f_PublishStatus();
}

// --- command topic -----------------------------------------------------------------------

void PlantFeed_CL::f_OnCommand(const std::string& str_Topic, const std::string& str_Payload,
                               bool b_Retained) {
  // "<base>command/<user>/ack"; the broker's access list lets each user write only below
  // its own name, so the level names who sent it.
  std::string str_Prefix = str_Base + "command/";
  const std::string str_Suffix = "/ack";
  if (str_Topic.compare(0, str_Prefix.size(), str_Prefix) != 0 ||
      str_Topic.size() <= str_Prefix.size() + str_Suffix.size() ||
      str_Topic.compare(str_Topic.size() - str_Suffix.size(), str_Suffix.size(), str_Suffix) != 0)
    return;
  std::string str_User =
      str_Topic.substr(str_Prefix.size(), str_Topic.size() - str_Prefix.size() - str_Suffix.size());
  if (str_User != o_Cfg.str_CommandUser) {
    syslog(LOG_WARNING,
           "bridge: command from broker user '%s' ignored: only '%s' may send commands",
           str_User.c_str(), o_Cfg.str_CommandUser.c_str());
    return;
  }
  // A retained command would acknowledge again after every reconnect.
  if (b_Retained) {
    syslog(LOG_WARNING, "bridge: retained command on %s ignored", str_Topic.c_str());
    return;
  }
  CJsonTree_T o_Cmd(cJSON_ParseWithLength(str_Payload.data(), str_Payload.size()));
  const cJSON* z_o_Code = cJSON_GetObjectItemCaseSensitive(o_Cmd.get(), "code");
  const cJSON* z_o_Class = cJSON_GetObjectItemCaseSensitive(o_Cmd.get(), "class");
  bool b_Valid = cJSON_IsObject(o_Cmd.get()) && cJSON_IsNumber(z_o_Code) &&
                 z_o_Code->valuedouble == z_o_Code->valueint && z_o_Code->valueint > 0 &&
                 (z_o_Class == nullptr || (cJSON_IsNumber(z_o_Class) && z_o_Class->valueint >= 0 &&
                                           z_o_Class->valueint <= 7)) &&
                 cJSON_GetArraySize(o_Cmd.get()) == (z_o_Class != nullptr ? 2 : 1);
  if (!b_Valid) {
    syslog(LOG_WARNING,
           "bridge: command of '%s' refused: expected {\"code\":N} or "
           "{\"code\":N,\"class\":K}",
           str_User.c_str());
    return;
  }
  int i_Code = z_o_Code->valueint;
  int i_Class = z_o_Class != nullptr ? z_o_Class->valueint : -1;
  if (i_Class < 0) {
    // Without a class, the class of the active error with that code.
    i_Class = 0;
    GPtrArray* z_o_List = sys_srv_client_fetch_active_errors_sync(z_o_Client, nullptr, nullptr);
    for (guint i = 0; z_o_List != nullptr && i < z_o_List->len; i++) {
      auto* z_o_E = static_cast<SysSrvErrorEntry*>(g_ptr_array_index(z_o_List, i));
      if (z_o_E->code == i_Code) i_Class = z_o_E->error_class;
    }
    if (z_o_List != nullptr) g_ptr_array_unref(z_o_List);
  }
  GError* z_o_Err = nullptr;
  if (sys_srv_client_ack_error_sync(z_o_Client, A_C_PROCESS, i_Code, i_Class, nullptr, &z_o_Err)) {
    syslog(LOG_INFO, "bridge: error %d (class %d) acknowledged by broker user '%s'", i_Code,
           i_Class, str_User.c_str());
  } else {
    syslog(LOG_WARNING, "bridge: acknowledging error %d for '%s' failed: %s", i_Code,
           str_User.c_str(), z_o_Err->message);
    g_error_free(z_o_Err);
  }
}
