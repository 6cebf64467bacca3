// Parsing of the bridge's configuration file.
#include "BridgeConfig.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

std::string f_Trim(const std::string& str_In) {
  size_t ui_B = str_In.find_first_not_of(" \t\r");
  if (ui_B == std::string::npos) return std::string();
  size_t ui_E = str_In.find_last_not_of(" \t\r");
  return str_In.substr(ui_B, ui_E - ui_B + 1);
}

bool f_ToLong(const std::string& str_V, long l_Min, long l_Max, long* z_l_Out) {
  if (str_V.empty()) return false;
  errno = 0;
  char* z_c_End = nullptr;
  long l_V = std::strtol(str_V.c_str(), &z_c_End, 10);
  if (errno != 0 || *z_c_End != '\0' || l_V < l_Min || l_V > l_Max) return false;
  *z_l_Out = l_V;
  return true;
}

bool f_ToBool(const std::string& str_V, bool* z_b_Out) {
  if (str_V == "true" || str_V == "yes" || str_V == "1") {
    *z_b_Out = true;
    return true;
  }
  if (str_V == "false" || str_V == "no" || str_V == "0") {
    *z_b_Out = false;
    return true;
  }
  return false;
}

// A prefix or host name becomes one or more topic levels: wildcards would make the bridge
// publish to a filter, which the broker refuses, and empty levels confuse dashboards.
bool f_ValidTopicPart(const std::string& str_V) {
  if (str_V.empty() || str_V.front() == '/' || str_V.back() == '/') return false;
  return str_V.find_first_of("#+") == std::string::npos && str_V.find("//") == std::string::npos;
}

}  // namespace

bool f_ParseBridgeConfig(const std::string& str_Text, BridgeConfig_ST* z_o_Cfg,
                         std::string* z_str_Error) {
  std::istringstream o_In(str_Text);
  std::string str_Line;
  int i_LineNr = 0;
  while (std::getline(o_In, str_Line)) {
    i_LineNr++;
    size_t ui_Hash = str_Line.find('#');
    if (ui_Hash != std::string::npos) str_Line.erase(ui_Hash);
    str_Line = f_Trim(str_Line);
    if (str_Line.empty()) continue;
    size_t ui_Eq = str_Line.find('=');
    std::string str_Key = f_Trim(str_Line.substr(0, ui_Eq));
    std::string str_Val = ui_Eq == std::string::npos ? "" : f_Trim(str_Line.substr(ui_Eq + 1));
    auto f_Fail = [&](const char* z_c_Why) {
      *z_str_Error = "line " + std::to_string(i_LineNr) + " (" + str_Key + "): " + z_c_Why;
      return false;
    };
    if (ui_Eq == std::string::npos) return f_Fail("expected key = value");
    long l_V = 0;
    struct Num_ST {
      const char* z_c_Key;
      long l_Min, l_Max;
      long* z_l_Long;
      int* z_i_Int;
    };
    const Num_ST a_o_Nums[] = {
        {"port", 1, 65535, nullptr, &z_o_Cfg->i_Port},
        {"keepalive", 5, 65535, nullptr, &z_o_Cfg->i_KeepAlive},
        {"queue_max_events", 1, LONG_MAX, &z_o_Cfg->l_QueueMaxEvents, nullptr},
        {"queue_max_age", 1, LONG_MAX, &z_o_Cfg->l_QueueMaxAgeS, nullptr},
        {"reconnect_min", 1, 3600, nullptr, &z_o_Cfg->i_ReconnectMinS},
        {"reconnect_max", 1, 3600, nullptr, &z_o_Cfg->i_ReconnectMaxS},
    };
    const std::pair<const char*, std::string*> a_o_Texts[] = {
        {"host", &z_o_Cfg->str_Host},
        {"client_id", &z_o_Cfg->str_ClientId},
        {"prefix", &z_o_Cfg->str_Prefix},
        {"host_name", &z_o_Cfg->str_HostName},
        {"user", &z_o_Cfg->str_User},
        {"password_file", &z_o_Cfg->str_PasswordFile},
        {"tls_ca_file", &z_o_Cfg->str_TlsCaFile},
        {"tls_cert_file", &z_o_Cfg->str_TlsCertFile},
        {"tls_key_file", &z_o_Cfg->str_TlsKeyFile},
        {"queue_file", &z_o_Cfg->str_QueueFile},
        {"command_user", &z_o_Cfg->str_CommandUser},
    };
    bool b_Known = false;
    for (const Num_ST& o_N : a_o_Nums) {
      if (str_Key != o_N.z_c_Key) continue;
      if (!f_ToLong(str_Val, o_N.l_Min, o_N.l_Max, &l_V)) return f_Fail("not a number in range");
      if (o_N.z_l_Long != nullptr) *o_N.z_l_Long = l_V;
      if (o_N.z_i_Int != nullptr) *o_N.z_i_Int = static_cast<int>(l_V);
      b_Known = true;
    }
    for (const auto& o_T : a_o_Texts) {
      if (str_Key != o_T.first) continue;
      *o_T.second = str_Val;
      b_Known = true;
    }
    if (str_Key == "command_enabled") {
      if (!f_ToBool(str_Val, &z_o_Cfg->b_CommandEnabled)) return f_Fail("expected true or false");
      b_Known = true;
    }
    if (!b_Known) return f_Fail("unknown key");
    if ((str_Key == "prefix" || str_Key == "host_name") && !f_ValidTopicPart(str_Val))
      return f_Fail("not usable in a topic (empty level, '+' or '#')");
  }
  if (z_o_Cfg->i_ReconnectMaxS < z_o_Cfg->i_ReconnectMinS) {
    *z_str_Error = "reconnect_max is below reconnect_min";
    return false;
  }
  if (z_o_Cfg->str_TlsCertFile.empty() != z_o_Cfg->str_TlsKeyFile.empty()) {
    *z_str_Error = "tls_cert_file and tls_key_file go together";
    return false;
  }
  if (!z_o_Cfg->str_TlsCertFile.empty() && z_o_Cfg->str_TlsCaFile.empty()) {
    *z_str_Error = "a client certificate needs tls_ca_file";
    return false;
  }
  // A command topic everybody may write to would let any broker user acknowledge errors.
  if (z_o_Cfg->b_CommandEnabled && z_o_Cfg->str_CommandUser.empty()) {
    *z_str_Error = "command_enabled needs command_user";
    return false;
  }
  if (z_o_Cfg->str_CommandUser.find_first_of("/#+") != std::string::npos) {
    *z_str_Error = "command_user must not contain '/', '+' or '#'";
    return false;
  }
  return true;
}

bool f_LoadBridgeConfig(const std::string& str_Path, bool b_MayBeMissing, BridgeConfig_ST* z_o_Cfg,
                        std::string* z_str_Error) {
  std::ifstream o_File(str_Path);
  if (!o_File) {
    if (b_MayBeMissing && errno == ENOENT) return true;
    *z_str_Error = "cannot read " + str_Path;
    return false;
  }
  std::stringstream o_Text;
  o_Text << o_File.rdbuf();
  if (!f_ParseBridgeConfig(o_Text.str(), z_o_Cfg, z_str_Error)) {
    *z_str_Error = str_Path + ": " + *z_str_Error;
    return false;
  }
  return true;
}

bool f_ReadPasswordFile(const std::string& str_Path, std::string* z_str_Password) {
  std::ifstream o_File(str_Path);
  if (!o_File) return false;
  std::string str_Line;
  std::getline(o_File, str_Line);
  while (!str_Line.empty() && (str_Line.back() == '\r' || str_Line.back() == '\n'))
    str_Line.pop_back();
  *z_str_Password = str_Line;
  return true;
}
