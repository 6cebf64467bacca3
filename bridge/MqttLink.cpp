// The broker connection on libmosquitto, without the library's own thread.
#include "MqttLink.h"

#include <mosquitto.h>
#include <syslog.h>

#include <utility>

namespace {

struct LinkSource_ST {
  GSource o_Base;
  MqttLink_CL* z_o_Link;
};

// One library initialisation per process, whatever the number of links.
void f_InitLib() {
  static bool b_Done = false;
  if (!b_Done) {
    mosquitto_lib_init();
    b_Done = true;
  }
}

}  // namespace

MqttLink_CL::MqttLink_CL(const BridgeConfig_ST& o_Cfg, std::string str_WillTopic,
                         std::string str_WillPayload, MqttHandlers_ST o_Handlers)
    : o_Cfg(o_Cfg),
      str_WillTopic(std::move(str_WillTopic)),
      str_WillPayload(std::move(str_WillPayload)),
      o_Handlers(std::move(o_Handlers)) {
  f_InitLib();
}

MqttLink_CL::~MqttLink_CL() {
  if (ui_RetryTimer != 0) g_source_remove(ui_RetryTimer);
  b_Connected = false;  // the owner is going away: no more calls into it
  o_Handlers = MqttHandlers_ST();
  f_Drop(nullptr);
}

void MqttLink_CL::f_Start() { f_TryConnect(); }

void MqttLink_CL::f_TryConnect() {
  ui_RetryTimer = 0;
  z_o_Mosq = mosquitto_new(o_Cfg.str_ClientId.c_str(), true, this);
  if (z_o_Mosq == nullptr) {
    syslog(LOG_ERR, "bridge: cannot create the broker client");
    f_ScheduleRetry();
    return;
  }
  mosquitto_int_option(z_o_Mosq, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V311);
  mosquitto_connect_callback_set(z_o_Mosq, f_OnConnect);
  mosquitto_disconnect_callback_set(z_o_Mosq, f_OnDisconnect);
  mosquitto_publish_callback_set(z_o_Mosq, f_OnPublish);
  mosquitto_message_callback_set(z_o_Mosq, f_OnMessage);
  mosquitto_log_callback_set(z_o_Mosq, f_OnLog);
  mosquitto_will_set(z_o_Mosq, str_WillTopic.c_str(), static_cast<int>(str_WillPayload.size()),
                     str_WillPayload.data(), 1, true);
  if (!o_Cfg.str_User.empty()) {
    // Read on every attempt: an operator who fixes the file need not restart the bridge.
    str_Password.clear();
    if (!o_Cfg.str_PasswordFile.empty() &&
        !f_ReadPasswordFile(o_Cfg.str_PasswordFile, &str_Password))
      syslog(LOG_ERR, "bridge: cannot read the password file %s", o_Cfg.str_PasswordFile.c_str());
    mosquitto_username_pw_set(z_o_Mosq, o_Cfg.str_User.c_str(),
                              o_Cfg.str_PasswordFile.empty() ? nullptr : str_Password.c_str());
  }
  if (o_Cfg.f_Tls()) {
    int i_Rc = mosquitto_tls_set(
        z_o_Mosq, o_Cfg.str_TlsCaFile.c_str(), nullptr,
        o_Cfg.str_TlsCertFile.empty() ? nullptr : o_Cfg.str_TlsCertFile.c_str(),
        o_Cfg.str_TlsKeyFile.empty() ? nullptr : o_Cfg.str_TlsKeyFile.c_str(), nullptr);
    if (i_Rc != MOSQ_ERR_SUCCESS) {
      syslog(LOG_ERR, "bridge: TLS set-up failed (CA %s, certificate %s): %s",
             o_Cfg.str_TlsCaFile.c_str(), o_Cfg.str_TlsCertFile.c_str(), mosquitto_strerror(i_Rc));
      f_Drop(nullptr);
      f_ScheduleRetry();
      return;
    }
  }
  int i_Rc =
      mosquitto_connect_async(z_o_Mosq, o_Cfg.str_Host.c_str(), o_Cfg.f_Port(), o_Cfg.i_KeepAlive);
  if (i_Rc != MOSQ_ERR_SUCCESS) {
    str_FailReason = i_Rc == MOSQ_ERR_ERRNO ? g_strerror(errno) : mosquitto_strerror(i_Rc);
    syslog(LOG_WARNING, "bridge: cannot reach the broker %s:%d: %s", o_Cfg.str_Host.c_str(),
           o_Cfg.f_Port(), str_FailReason.c_str());
    f_Drop(nullptr);
    f_ScheduleRetry();
    return;
  }
  static GSourceFuncs o_Funcs = {f_Prepare, f_Check, f_Dispatch, nullptr, nullptr, nullptr};
  z_o_Source = g_source_new(&o_Funcs, sizeof(LinkSource_ST));
  reinterpret_cast<LinkSource_ST*>(z_o_Source)->z_o_Link = this;
  z_v_FdTag = g_source_add_unix_fd(z_o_Source, mosquitto_socket(z_o_Mosq), G_IO_IN);
  e_Watched = G_IO_IN;
  g_source_attach(z_o_Source, nullptr);
  // Keep-alive pings, and a limit on a connection attempt that gets no answer (a broker
  // behind a dropped route answers nothing at all).
  i_AttemptAt = g_get_monotonic_time();
  ui_MiscTimer = g_timeout_add_seconds(
      1,
      [](gpointer z_v_Self) -> gboolean {
        auto* z_o_Self = static_cast<MqttLink_CL*>(z_v_Self);
        int i_Rc = mosquitto_loop_misc(z_o_Self->z_o_Mosq);
        if (i_Rc != MOSQ_ERR_SUCCESS && !z_o_Self->b_Failed) {
          z_o_Self->b_Failed = true;
          z_o_Self->str_FailReason = mosquitto_strerror(i_Rc);
        }
        if (!z_o_Self->b_Connected && !z_o_Self->b_Failed &&
            g_get_monotonic_time() - z_o_Self->i_AttemptAt >
                static_cast<gint64>(z_o_Self->o_Cfg.i_KeepAlive) * G_USEC_PER_SEC) {
          z_o_Self->b_Failed = true;
          z_o_Self->str_FailReason = "no answer";
        }
        guint ui_Me = z_o_Self->ui_MiscTimer;
        z_o_Self->f_Service(false, false);
        // f_Service may have dropped the connection, and this timer with it.
        return z_o_Self->ui_MiscTimer == ui_Me ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
      },
      this);
}

void MqttLink_CL::f_ScheduleRetry() {
  i_RetryS = i_RetryS == 0 ? o_Cfg.i_ReconnectMinS : std::min(i_RetryS * 2, o_Cfg.i_ReconnectMaxS);
  ui_RetryTimer = g_timeout_add_seconds(
      static_cast<guint>(i_RetryS),
      [](gpointer z_v_Self) -> gboolean {
        static_cast<MqttLink_CL*>(z_v_Self)->f_TryConnect();
        return G_SOURCE_REMOVE;
      },
      this);
}

void MqttLink_CL::f_Drop(const char* z_c_Why) {
  bool b_WasUp = b_Connected;
  b_Connected = false;
  b_Failed = false;
  if (ui_MiscTimer != 0) {
    g_source_remove(ui_MiscTimer);
    ui_MiscTimer = 0;
  }
  if (z_o_Source != nullptr) {
    g_source_destroy(z_o_Source);
    g_source_unref(z_o_Source);
    z_o_Source = nullptr;
  }
  // A fresh client per connection: what the old one had in flight is still in the queue
  // and is sent again from there, in order, rather than by the library in its own order.
  if (z_o_Mosq != nullptr) {
    mosquitto_destroy(z_o_Mosq);
    z_o_Mosq = nullptr;
  }
  if (z_c_Why != nullptr) {
    if (b_WasUp)
      syslog(LOG_WARNING, "bridge: connection to the broker %s:%d lost: %s", o_Cfg.str_Host.c_str(),
             o_Cfg.f_Port(), z_c_Why);
    else
      syslog(LOG_WARNING, "bridge: cannot connect to the broker %s:%d: %s", o_Cfg.str_Host.c_str(),
             o_Cfg.f_Port(), z_c_Why);
  }
  if (b_WasUp && o_Handlers.f_Disconnected) o_Handlers.f_Disconnected();
}

void MqttLink_CL::f_Service(bool b_Read, bool b_Write) {
  if (z_o_Mosq == nullptr) return;
  int i_Rc = MOSQ_ERR_SUCCESS;
  if (b_Read) i_Rc = mosquitto_loop_read(z_o_Mosq, 1);
  if (i_Rc == MOSQ_ERR_SUCCESS && (b_Write || mosquitto_want_write(z_o_Mosq)))
    i_Rc = mosquitto_loop_write(z_o_Mosq, 1);
  if (i_Rc != MOSQ_ERR_SUCCESS && !b_Failed) {
    b_Failed = true;
    str_FailReason = i_Rc == MOSQ_ERR_ERRNO ? g_strerror(errno) : mosquitto_strerror(i_Rc);
  }
  if (b_Failed) {
    f_Drop(str_FailReason.c_str());
    f_ScheduleRetry();
  }
}

gboolean MqttLink_CL::f_Prepare(GSource* z_o_Source, gint* z_i_Timeout) {
  MqttLink_CL* z_o_Self = reinterpret_cast<LinkSource_ST*>(z_o_Source)->z_o_Link;
  *z_i_Timeout = -1;
  bool b_Write = z_o_Self->z_o_Mosq != nullptr && mosquitto_want_write(z_o_Self->z_o_Mosq);
  auto e_Want = static_cast<GIOCondition>(G_IO_IN | (b_Write ? G_IO_OUT : 0));
  // Changing the watched events wakes the main loop; doing it on every pass would spin.
  if (e_Want != z_o_Self->e_Watched) {
    g_source_modify_unix_fd(z_o_Source, z_o_Self->z_v_FdTag, e_Want);
    z_o_Self->e_Watched = e_Want;
  }
  return FALSE;
}

gboolean MqttLink_CL::f_Check(GSource* z_o_Source) {
  MqttLink_CL* z_o_Self = reinterpret_cast<LinkSource_ST*>(z_o_Source)->z_o_Link;
  return g_source_query_unix_fd(z_o_Source, z_o_Self->z_v_FdTag) != 0;
}

gboolean MqttLink_CL::f_Dispatch(GSource* z_o_Source, GSourceFunc, gpointer) {
  MqttLink_CL* z_o_Self = reinterpret_cast<LinkSource_ST*>(z_o_Source)->z_o_Link;
  GIOCondition e_Ready = g_source_query_unix_fd(z_o_Source, z_o_Self->z_v_FdTag);
  // The source may be destroyed inside f_Service; keep it alive until we return.
  g_source_ref(z_o_Source);
  z_o_Self->f_Service((e_Ready & (G_IO_IN | G_IO_HUP | G_IO_ERR)) != 0, (e_Ready & G_IO_OUT) != 0);
  g_source_unref(z_o_Source);
  return G_SOURCE_CONTINUE;
}

void MqttLink_CL::f_OnConnect(mosquitto*, void* z_v_Self, int i_Rc) {
  auto* z_o_Self = static_cast<MqttLink_CL*>(z_v_Self);
  if (i_Rc != 0) {
    // The broker's refusal is what an operator must see: a wrong password, an unknown user.
    syslog(LOG_ERR, "bridge: the broker %s:%d refused the connection as user '%s': %s",
           z_o_Self->o_Cfg.str_Host.c_str(), z_o_Self->o_Cfg.f_Port(),
           z_o_Self->o_Cfg.str_User.c_str(), mosquitto_connack_string(i_Rc));
    z_o_Self->b_Failed = true;
    z_o_Self->str_FailReason = mosquitto_connack_string(i_Rc);
    return;
  }
  syslog(LOG_INFO, "bridge: connected to the broker %s:%d%s", z_o_Self->o_Cfg.str_Host.c_str(),
         z_o_Self->o_Cfg.f_Port(), z_o_Self->o_Cfg.f_Tls() ? " (TLS)" : "");
  z_o_Self->b_Connected = true;
  z_o_Self->i_RetryS = 0;
  if (z_o_Self->o_Handlers.f_Connected) z_o_Self->o_Handlers.f_Connected();
}

void MqttLink_CL::f_OnDisconnect(mosquitto*, void* z_v_Self, int i_Rc) {
  auto* z_o_Self = static_cast<MqttLink_CL*>(z_v_Self);
  if (i_Rc == 0) return;  // our own DISCONNECT
  z_o_Self->b_Failed = true;
  z_o_Self->str_FailReason = mosquitto_strerror(i_Rc);
}

void MqttLink_CL::f_OnPublish(mosquitto*, void* z_v_Self, int i_Mid) {
  auto* z_o_Self = static_cast<MqttLink_CL*>(z_v_Self);
  if (z_o_Self->o_Handlers.f_Published) z_o_Self->o_Handlers.f_Published(i_Mid);
}

void MqttLink_CL::f_OnMessage(mosquitto*, void* z_v_Self, const mosquitto_message* z_o_Msg) {
  auto* z_o_Self = static_cast<MqttLink_CL*>(z_v_Self);
  if (!z_o_Self->o_Handlers.f_Message) return;
  std::string str_Payload(static_cast<const char*>(z_o_Msg->payload),
                          static_cast<size_t>(z_o_Msg->payloadlen));
  z_o_Self->o_Handlers.f_Message(z_o_Msg->topic, str_Payload, z_o_Msg->retain);
}

void MqttLink_CL::f_OnLog(mosquitto*, void*, int i_Level, const char* z_c_Text) {
  // TLS failures (an unknown CA, a host name that does not match) only show here.
  if ((i_Level & (MOSQ_LOG_ERR | MOSQ_LOG_WARNING)) != 0)
    syslog(LOG_WARNING, "bridge: broker client: %s", z_c_Text);
}

bool MqttLink_CL::f_Publish(const std::string& str_Topic, const std::string& str_Payload,
                            bool b_Retain, int* z_i_Mid) {
  if (!b_Connected || z_o_Mosq == nullptr) return false;
  int i_Rc =
      mosquitto_publish(z_o_Mosq, z_i_Mid, str_Topic.c_str(), static_cast<int>(str_Payload.size()),
                        str_Payload.data(), 1, b_Retain);
  if (i_Rc != MOSQ_ERR_SUCCESS) {
    syslog(LOG_WARNING, "bridge: cannot publish %s: %s", str_Topic.c_str(),
           mosquitto_strerror(i_Rc));
    return false;
  }
  return true;
}

bool MqttLink_CL::f_Subscribe(const std::string& str_Filter) {
  if (!b_Connected || z_o_Mosq == nullptr) return false;
  return mosquitto_subscribe(z_o_Mosq, nullptr, str_Filter.c_str(), 1) == MOSQ_ERR_SUCCESS;
}

void MqttLink_CL::f_Disconnect(int i_TimeoutMs) {
  if (!b_Connected || z_o_Mosq == nullptr) return;
  // The offline status was just queued: give it a moment to leave before the goodbye.
  gint64 i_End = g_get_monotonic_time() + static_cast<gint64>(i_TimeoutMs) * 1000;
  while (mosquitto_want_write(z_o_Mosq) && g_get_monotonic_time() < i_End)
    if (mosquitto_loop(z_o_Mosq, 50, 1) != MOSQ_ERR_SUCCESS) break;
  mosquitto_disconnect(z_o_Mosq);
  mosquitto_loop_write(z_o_Mosq, 1);
  b_Connected = false;
}
