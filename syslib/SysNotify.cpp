// Keep-alive datagrams for the service manager's watchdog: a loop that stops ticking stops
// sending them, and the manager restarts the service.
#include "sysLib/SysNotify.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <glib.h>
#include <ctime>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include "sysLib/SysFile.h"

namespace {
struct Watchdog_ST {
  bool b_Read = false;
  bool b_Enabled = false;
  long long ll_PeriodUs = 0;
  long long ll_LastUs = 0;
  sockaddr_un o_Addr{};
  socklen_t ui_AddrLen = 0;
};

long long f_MonoUs() { return g_get_monotonic_time(); }

// The environment is read once: the manager sets it before the start and never again.
void f_ReadEnv(Watchdog_ST& o_Wd) {
  o_Wd.b_Read = true;
  const char* z_c_Sock = getenv("NOTIFY_SOCKET");
  const char* z_c_Usec = getenv("WATCHDOG_USEC");
  const char* z_c_Pid = getenv("WATCHDOG_PID");
  if (z_c_Sock == nullptr || z_c_Usec == nullptr) return;
  if (z_c_Pid != nullptr && strtol(z_c_Pid, nullptr, 10) != static_cast<long>(getpid())) return;
  char* z_c_End = nullptr;
  long long ll_Usec = strtoll(z_c_Usec, &z_c_End, 10);
  size_t ui_Len = strlen(z_c_Sock);
  if (ll_Usec <= 0 || *z_c_End != '\0' || ui_Len < 2 || ui_Len >= sizeof(o_Wd.o_Addr.sun_path) ||
      (z_c_Sock[0] != '/' && z_c_Sock[0] != '@')) {
    syslog(LOG_WARNING, "f_SysWatchdogKick - unusable NOTIFY_SOCKET/WATCHDOG_USEC");
    return;
  }
  o_Wd.o_Addr.sun_family = AF_UNIX;
  memcpy(o_Wd.o_Addr.sun_path, z_c_Sock, ui_Len);
  // A leading '@' names a socket in the abstract namespace.
  if (z_c_Sock[0] == '@') o_Wd.o_Addr.sun_path[0] = '\0';
  o_Wd.ui_AddrLen = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + ui_Len);
  o_Wd.ll_PeriodUs = ll_Usec;
  o_Wd.b_Enabled = true;
  syslog(LOG_INFO, "f_SysWatchdogKick - keep-alive every %lld ms", ll_Usec / 4000);
}
}  // namespace

void f_SysWatchdogKick() {
  static Watchdog_ST o_Wd;
  if (!o_Wd.b_Read) f_ReadEnv(o_Wd);
  if (!o_Wd.b_Enabled) return;
  long long ll_Now = f_MonoUs();
  if (o_Wd.ll_LastUs != 0 && ll_Now - o_Wd.ll_LastUs < o_Wd.ll_PeriodUs / 4) return;
  UniqueFd_CL o_Sock(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  static const char A_C_MSG[] = "WATCHDOG=1";
  if (!o_Sock.f_IsOpen() ||
      sendto(o_Sock.f_Get(), A_C_MSG, sizeof(A_C_MSG) - 1, MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&o_Wd.o_Addr), o_Wd.ui_AddrLen) < 0) {
    syslog(LOG_WARNING, "f_SysWatchdogKick - %s", strerror(errno));
  }
  o_Wd.ll_LastUs = ll_Now;
}
