#pragma once
// The bridge's configuration file: one "key = value" per line, "#" starts a comment.
#include <string>

struct BridgeConfig_ST {
  std::string str_Host = "localhost";
  int i_Port = 0;  // 0: 1883, or 8883 with TLS
  int i_KeepAlive = 30;
  std::string str_ClientId;  // empty: "syssrv-bridge-<host name>"
  std::string str_Prefix = "syssrv";
  std::string str_HostName;  // empty: the tool's own host name
  std::string str_User;
  std::string str_PasswordFile;
  std::string str_TlsCaFile;
  std::string str_TlsCertFile;
  std::string str_TlsKeyFile;
  // Its own directory in the tool log directory: the bridge runs as its own user.
  std::string str_QueueFile = "/mnt/log/syssrv-bridge/queue.sq3";
  long l_QueueMaxEvents = 100000;
  long l_QueueMaxAgeS = 7L * 24 * 3600;
  int i_ReconnectMinS = 1;
  int i_ReconnectMaxS = 30;
  bool b_CommandEnabled = false;
  std::string str_CommandUser;

  bool f_Tls() const { return !str_TlsCaFile.empty(); }
  int f_Port() const { return i_Port != 0 ? i_Port : (f_Tls() ? 8883 : 1883); }
};

// Applies the text of a configuration file to *z_o_Cfg. False with *z_str_Error naming the
// line when a key is unknown, a value is not of its kind, or the settings contradict.
bool f_ParseBridgeConfig(const std::string& str_Text, BridgeConfig_ST* z_o_Cfg,
                         std::string* z_str_Error);
// Reads the file at str_Path; a missing file leaves the defaults when b_MayBeMissing.
bool f_LoadBridgeConfig(const std::string& str_Path, bool b_MayBeMissing, BridgeConfig_ST* z_o_Cfg,
                        std::string* z_str_Error);
// The first line of a password file, without its line end; false when it cannot be read.
bool f_ReadPasswordFile(const std::string& str_Path, std::string* z_str_Password);
