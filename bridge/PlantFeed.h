#pragma once
// What the bridge publishes: the service's state as retained topics and its announcements
// as numbered events, through the on-disk queue, under "<prefix>/<host name>/".
#include <syssrv-client.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "BridgeConfig.h"
#include "EventQueue.h"
#include "MqttLink.h"

struct cJSON;

class PlantFeed_CL {
 public:
  PlantFeed_CL(const BridgeConfig_ST& o_Cfg, SysSrvClient* z_o_Client, EventQueue_CL& o_Queue);
  ~PlantFeed_CL();
  PlantFeed_CL(const PlantFeed_CL&) = delete;
  PlantFeed_CL& operator=(const PlantFeed_CL&) = delete;

  void f_Start();
  // Publishes the orderly "offline" status and leaves the broker.
  void f_Stop();

  // Events in flight on one connection; bounded so that a long queue goes out in steps
  // and the broker's acknowledgements keep up.
  static constexpr size_t UI_WINDOW = 32;

 private:
  static void f_OnErrorRaised(SysSrvClient*, gint, gint, gint64, gpointer);
  static void f_OnErrorAcked(SysSrvClient*, gint, gint, gint, gpointer);
  static void f_OnReadiness(SysSrvClient*, guint, guint, gpointer);
  static void f_OnCharge(SysSrvClient*, gint, gpointer);
  static void f_OnStatus(SysSrvClient*, SysSrvBatteryStatus, gpointer);
  static void f_OnCountdown(SysSrvClient*, gint, gpointer);
  static void f_OnConfigFile(SysSrvClient*, const gchar*, gpointer);
  static void f_OnRunning(GObject*, GParamSpec*, gpointer);

  void f_Event(const char* z_c_Name, cJSON* z_o_Body);
  void f_Pump();
  void f_OnConnected();
  void f_OnPublished(int i_Mid);
  void f_OnCommand(const std::string& str_Topic, const std::string& str_Payload, bool b_Retained);
  void f_ScheduleRefresh();
  void f_Refresh();
  void f_PublishStatus();
  void f_SetState(const std::string& str_Name, cJSON* z_o_Body);

  BridgeConfig_ST o_Cfg;
  SysSrvClient* z_o_Client;
  EventQueue_CL& o_Queue;
  std::string str_Base;  // "<prefix>/<host name>/"
  std::unique_ptr<MqttLink_CL> o_Link;
  std::map<int, int64_t> o_InFlight;  // message id -> sequence number
  int64_t i_LastSent = 0;
  std::map<std::string, std::string> o_State;      // topic name -> current payload
  std::map<std::string, std::string> o_Published;  // what this connection has on the broker
  std::string str_Since;
  guint ui_RefreshTimer = 0;
  guint ui_AgeTimer = 0;
  int i_Countdown = 0;
};

// Payload pieces shared by the state and event topics.
const char* f_BatteryStatusName(int i_Status);
