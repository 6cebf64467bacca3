#pragma once
// The connection to the plant's broker, driven from the GLib main loop: one thread does
// the bus, the queue and the broker, so none of them needs a lock.
#include <glib.h>

#include <functional>
#include <string>

#include "BridgeConfig.h"

struct mosquitto;
struct mosquitto_message;

struct MqttHandlers_ST {
  std::function<void()> f_Connected;
  std::function<void()> f_Disconnected;
  std::function<void(int i_Mid)> f_Published;  // the broker acknowledged message i_Mid
  std::function<void(const std::string& str_Topic, const std::string& str_Payload, bool b_Retained)>
      f_Message;
};

class MqttLink_CL {
 public:
  MqttLink_CL(const BridgeConfig_ST& o_Cfg, std::string str_WillTopic, std::string str_WillPayload,
              MqttHandlers_ST o_Handlers);
  ~MqttLink_CL();
  MqttLink_CL(const MqttLink_CL&) = delete;
  MqttLink_CL& operator=(const MqttLink_CL&) = delete;

  // Starts connecting; from then on the link reconnects by itself with growing pauses.
  void f_Start();
  // Publishes while connected; the message id into *z_i_Mid. False when not connected or
  // the library refused.
  bool f_Publish(const std::string& str_Topic, const std::string& str_Payload, bool b_Retain,
                 int* z_i_Mid = nullptr);
  bool f_Subscribe(const std::string& str_Filter);
  bool f_Connected() const { return b_Connected; }
  // Sends what is pending and a clean DISCONNECT (the broker then does not send the will).
  void f_Disconnect(int i_TimeoutMs);

 private:
  static gboolean f_Prepare(GSource* z_o_Source, gint* z_i_Timeout);
  static gboolean f_Check(GSource* z_o_Source);
  static gboolean f_Dispatch(GSource* z_o_Source, GSourceFunc, gpointer);
  static void f_OnConnect(mosquitto*, void* z_v_Self, int i_Rc);
  static void f_OnDisconnect(mosquitto*, void* z_v_Self, int i_Rc);
  static void f_OnPublish(mosquitto*, void* z_v_Self, int i_Mid);
  static void f_OnMessage(mosquitto*, void* z_v_Self, const mosquitto_message* z_o_Msg);
  static void f_OnLog(mosquitto*, void* z_v_Self, int i_Level, const char* z_c_Text);
  void f_TryConnect();
  void f_ScheduleRetry();
  // Drops the connection after a failure; tells the owner if it was up.
  void f_Drop(const char* z_c_Why);
  void f_Service(bool b_Read, bool b_Write);

  BridgeConfig_ST o_Cfg;
  std::string str_WillTopic, str_WillPayload, str_Password;
  MqttHandlers_ST o_Handlers;
  mosquitto* z_o_Mosq = nullptr;
  GSource* z_o_Source = nullptr;
  gpointer z_v_FdTag = nullptr;
  GIOCondition e_Watched = G_IO_IN;
  guint ui_RetryTimer = 0;
  guint ui_MiscTimer = 0;
  int i_RetryS = 0;
  gint64 i_AttemptAt = 0;
  bool b_Connected = false;
  bool b_Failed = false;  // set inside the library's callbacks, acted on after them
  std::string str_FailReason;
};
