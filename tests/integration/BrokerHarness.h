#pragma once
// The plant feed's tests and benchmark: a real mosquitto broker and a dashboard's subscriber.
#include <arpa/inet.h>
#include <mosquitto.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "Harness.h"

namespace it {

inline sockaddr_in f_Loopback(int i_Port) {
  sockaddr_in o_Addr{};
  o_Addr.sin_family = AF_INET;
  o_Addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  o_Addr.sin_port = htons(static_cast<uint16_t>(i_Port));
  return o_Addr;
}

// A port nobody listens on (port 0 lets the kernel choose), or whether one is listened on.
inline int f_FreePort() {
  int i_Fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in o_Addr = f_Loopback(0);
  socklen_t ui_Len = sizeof(o_Addr);
  bind(i_Fd, reinterpret_cast<sockaddr*>(&o_Addr), ui_Len);
  getsockname(i_Fd, reinterpret_cast<sockaddr*>(&o_Addr), &ui_Len);
  close(i_Fd);
  return ntohs(o_Addr.sin_port);
}
inline bool f_PortOpen(int i_Port) {
  int i_Fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in o_Addr = f_Loopback(i_Port);
  bool b_Open = connect(i_Fd, reinterpret_cast<sockaddr*>(&o_Addr), sizeof(o_Addr)) == 0;
  close(i_Fd);
  return b_Open;
}

// A mosquitto broker on a free loopback port. It keeps sessions on disk, so a subscriber's
// queued messages survive the broker's restart the way they do on a plant's broker.
class Broker : TempDir {
 public:
  explicit Broker(const std::string& str_Extra = "")
      : i_Port(f_FreePort()),
        o_Proc({"/usr/sbin/mosquitto", "-c", str_Dir + "/mosquitto.conf"}, str_Dir + "/log") {
    std::string str_Conf = "listener " + std::to_string(i_Port) + " 127.0.0.1\n" +
                           "persistence true\npersistence_location " + str_Dir + "/\n" +
                           "max_queued_messages 0\nlog_dest stderr\n" + str_Extra;
    if (str_Extra.find("password_file") == std::string::npos) str_Conf += "allow_anonymous true\n";
    // Started as root, mosquitto would change to its own user, which may not write the
    // session store in this test's private directory.
    if (geteuid() == 0) str_Conf += "user root\n";
    File_T o_F(fopen((str_Dir + "/mosquitto.conf").c_str(), "w"));
    fputs(str_Conf.c_str(), o_F.get());
  }
  ~Broker() { o_Proc.f_Stop(); }
  bool f_Start() {
    o_Proc.f_Start();
    return f_WaitUntil([&] { return f_PortOpen(i_Port); }, 15000);
  }
  void f_Stop() { o_Proc.f_Stop(SIGTERM); }
  int f_Port() const { return i_Port; }
  std::string f_Log() const { return o_Proc.f_Log(); }

 private:
  int i_Port;
  Process o_Proc;
};

struct Msg_ST {
  std::string str_Topic, str_Payload;
  bool b_Retained;
};

// A subscriber on its own thread (the library's), as a plant dashboard would be: QoS 1 and,
// when persistent, a session the broker keeps while it is away.
class Collector {
 public:
  Collector(int i_Port, const std::string& str_Filter, const std::string& str_Id, bool b_Persistent)
      : str_Filter(str_Filter) {
    mosquitto_lib_init();
    z_o_Mosq = mosquitto_new(str_Id.c_str(), !b_Persistent, this);
    mosquitto_reconnect_delay_set(z_o_Mosq, 1, 1, false);
    mosquitto_connect_callback_set(z_o_Mosq, [](mosquitto* z_o_M, void* z_v_Self, int i_Rc) {
      if (i_Rc == 0)
        mosquitto_subscribe(z_o_M, nullptr, static_cast<Collector*>(z_v_Self)->str_Filter.c_str(),
                            1);
    });
    mosquitto_message_callback_set(
        z_o_Mosq, [](mosquitto*, void* z_v_Self, const mosquitto_message* z_o_Msg) {
          auto* z_o_Self = static_cast<Collector*>(z_v_Self);
          std::lock_guard<std::mutex> o_Lock(z_o_Self->o_Mutex);
          z_o_Self->o_Msgs.push_back({z_o_Msg->topic,
                                      std::string(static_cast<const char*>(z_o_Msg->payload),
                                                  static_cast<size_t>(z_o_Msg->payloadlen)),
                                      z_o_Msg->retain});
        });
    b_Connected = mosquitto_connect(z_o_Mosq, "127.0.0.1", i_Port, 10) == MOSQ_ERR_SUCCESS;
    mosquitto_loop_start(z_o_Mosq);
  }
  ~Collector() {
    mosquitto_disconnect(z_o_Mosq);
    mosquitto_loop_stop(z_o_Mosq, true);
    mosquitto_destroy(z_o_Mosq);
  }
  bool f_Connected() const { return b_Connected; }
  std::vector<Msg_ST> f_Msgs() {
    std::lock_guard<std::mutex> o_Lock(o_Mutex);
    return o_Msgs;
  }
  // A payload on the topic once f_Pred holds for it: the last one (state: what a subscriber
  // holds now) or, with b_Any, any one (events: one of many).
  std::string f_WaitLast(const std::string& str_Topic, int i_TimeoutMs,
                         const std::function<bool(const std::string&)>& f_Pred = {},
                         bool b_Any = false) {
    std::string str_Found;
    f_WaitUntil(
        [&] {
          for (const Msg_ST& o_M : f_Msgs())
            if (o_M.str_Topic == str_Topic && (!b_Any || f_Pred(o_M.str_Payload)))
              str_Found = o_M.str_Payload;
          return !str_Found.empty() && (!f_Pred || f_Pred(str_Found));
        },
        i_TimeoutMs);
    return str_Found;
  }
  // Whether the last payload on the topic comes to contain str_Text (or, with !b_Has, to lack it).
  bool f_LastHas(const std::string& str_Topic, const std::string& str_Text, int i_TimeoutMs,
                 bool b_Has = true) {
    auto f_Holds = [&](const std::string& str_P) {
      return (str_P.find(str_Text) != std::string::npos) == b_Has;
    };
    std::string str_Last = f_WaitLast(str_Topic, i_TimeoutMs, f_Holds);
    return !str_Last.empty() && f_Holds(str_Last);
  }
  void f_Publish(const std::string& str_Topic, const std::string& str_Payload) {
    mosquitto_publish(z_o_Mosq, nullptr, str_Topic.c_str(), static_cast<int>(str_Payload.size()),
                      str_Payload.data(), 1, false);
  }

 private:
  std::string str_Filter;
  mosquitto* z_o_Mosq = nullptr;
  bool b_Connected = false;
  std::mutex o_Mutex;
  std::vector<Msg_ST> o_Msgs;
};

// syssrv-bridge on a running service's sandbox, configured at the default place in it.
class BridgeProc {
 public:
  BridgeProc(Service& o_Svc, const std::string& str_Config)
      : o_Proc({SYSSRV_BRIDGE}, o_Svc.o_Box.f_Path("/sim/bridge.log"),
               {"SYSSRV_ROOT=" + o_Svc.o_Box.f_Dir(),
                "DBUS_SYSTEM_BUS_ADDRESS=" + o_Svc.o_Bus.f_Address()}) {
    o_Svc.o_Box.f_Write("/etc/syssrv/bridge.conf", str_Config);
  }
  Process o_Proc;
};

inline std::string f_HostName(const Sandbox& o_Box) {
  const std::string str_Name = o_Box.f_Read("/etc/hostname");
  return str_Name.substr(0, str_Name.find_last_not_of(" \t\r\n") + 1);
}

}  // namespace it
