// JSON configuration files shared between the tool's processes: an flock on "<path>.lock"
// serialises readers and writers, and writes replace the file atomically.
#include "sysLib/ConfigFile.h"

#include <cerrno>
#include <cjson/cJSON.h>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "sysLib/SysFile.h"
#include "sysLib/SysPath.h"

namespace {
constexpr long L_LOCK_POLL_NS = 5L * 1000000L;  // retry period of a lock with a timeout

// Anyone who can open a lock file can take its lock and stall every writer of the file:
// only the service's group may, whatever the umask of whoever made it.
constexpr mode_t I_LOCK_FILE_MODE = 0660;

void f_KeepGroupOnly(int i_Fd) {
  struct stat o_St {};
  if (fstat(i_Fd, &o_St) == 0 && o_St.st_uid == geteuid() &&
      (o_St.st_mode & 07777) != I_LOCK_FILE_MODE)
    fchmod(i_Fd, I_LOCK_FILE_MODE);
}
}  // namespace

// --- AbstractConfigFile_CL ----------------------------------------------------

AbstractConfigFile_CL::AbstractConfigFile_CL(const std::string& str_Path) : str_Path(str_Path) {}

AbstractConfigFile_CL::~AbstractConfigFile_CL() {
  if (i_LockFd != -1) close(i_LockFd);  // closing the descriptor releases the lock
}

int AbstractConfigFile_CL::f_CfgFileChanged(const char* z_c_Path) {
  if (z_c_Path == nullptr || str_Path != z_c_Path) return 0;
  return f_Read(-1);
}

int AbstractConfigFile_CL::f_NewCfg(const char* z_c_Path) { return f_CfgFileChanged(z_c_Path); }

int AbstractConfigFile_CL::f_Read(int i_TimeoutMs) {
  FileLockGuard_CL<AbstractConfigFile_CL> o_Lock(*this, i_TimeoutMs);
  if (!o_Lock.f_Locked()) return -1;
  return f_ReadFile();  // a reader that throws still leaves the lock free
}

int AbstractConfigFile_CL::f_LockFile(int i_TimeoutMs) {
  // flock belongs to the open file description: a second descriptor of this process
  // would wait for the first, so a nested call only counts.
  if (i_LockFd != -1) {
    ++i_LockDepth;
    return 0;
  }
  std::string str_LockPath = f_SysPath(str_Path) + ".lock";
  UniqueFd_CL o_Fd(open(str_LockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, I_LOCK_FILE_MODE));
  if (o_Fd.f_IsOpen()) f_KeepGroupOnly(o_Fd.f_Get());
  if (!o_Fd.f_IsOpen()) {
    syslog(LOG_CRIT, "AbstractConfigFile_CL::f_LockFile - open %s: %s", str_LockPath.c_str(),
           strerror(errno));
    return -1;
  }
  int i_Ret;
  if (i_TimeoutMs < 0) {
    do {
      i_Ret = flock(o_Fd.f_Get(), LOCK_EX);
    } while (i_Ret != 0 && errno == EINTR);
  } else {
    // flock has no timeout of its own: poll without blocking until the deadline.
    long long ll_Deadline = g_get_monotonic_time() / 1000 + i_TimeoutMs;
    for (;;) {
      i_Ret = flock(o_Fd.f_Get(), LOCK_EX | LOCK_NB);
      if (i_Ret == 0 || (errno != EWOULDBLOCK && errno != EINTR)) break;
      long long ll_Left = ll_Deadline - g_get_monotonic_time() / 1000;
      if (ll_Left <= 0) {
        errno = ETIMEDOUT;
        break;
      }
      struct timespec o_Pause {
        0, ll_Left * 1000000L < L_LOCK_POLL_NS ? static_cast<long>(ll_Left * 1000000L)
                                               : L_LOCK_POLL_NS
      };
      nanosleep(&o_Pause, nullptr);
    }
  }
  if (i_Ret != 0) {
    syslog(LOG_CRIT, "AbstractConfigFile_CL::f_LockFile - %s (%d ms): %s", str_LockPath.c_str(),
           i_TimeoutMs, strerror(errno));
    return -1;
  }
  i_LockFd = o_Fd.f_Release();
  i_LockDepth = 1;
  return 0;
}

int AbstractConfigFile_CL::f_UnlockFile() {
  if (i_LockFd == -1) {
    syslog(LOG_WARNING, "AbstractConfigFile_CL::f_UnlockFile - %s is not locked", str_Path.c_str());
    return -1;
  }
  if (--i_LockDepth > 0) return 0;
  int i_Ret = flock(i_LockFd, LOCK_UN);
  int i_Err = errno;
  close(i_LockFd);
  i_LockFd = -1;
  if (i_Ret != 0) {
    syslog(LOG_CRIT, "AbstractConfigFile_CL::f_UnlockFile - %s: %s", str_Path.c_str(),
           strerror(i_Err));
    return -1;
  }
  return 0;
}

// --- reading and writing --------------------------------------------------------

int ConfigFileHelper_CL::f_ReadCfgFile(cJSON** z_o_Tree, const char* z_c_Path) {
  if (z_o_Tree == nullptr || z_c_Path == nullptr) return -1;
  *z_o_Tree = nullptr;
  std::string str_File = f_SysPath(z_c_Path);
  std::string str_Text;
  if (f_ReadWholeFile(str_File, str_Text) != 0) {
    syslog(LOG_WARNING, "ConfigFileHelper_CL::f_ReadCfgFile - %s: %s", z_c_Path, strerror(errno));
    return -1;
  }
  *z_o_Tree = cJSON_Parse(str_Text.c_str());
  if (*z_o_Tree == nullptr) {
    syslog(LOG_WARNING, "ConfigFileHelper_CL::f_ReadCfgFile - %s: not valid JSON", z_c_Path);
    return -1;
  }
  return 0;
}

int f_ReadJsonCfgFile(const char* z_c_Path, cJSON** z_o_Tree) {
  return ConfigFileHelper_CL::f_ReadCfgFile(z_o_Tree, z_c_Path);
}

int f_WriteFileAtomic(const char* z_c_Path, const std::string& str_Text) {
  if (z_c_Path == nullptr) return -1;
  // fsync before the rename: after a power cut the tool finds the old file or the new
  // one, never an empty or half-written one.
  if (f_ReplaceFile(f_SysPath(z_c_Path), str_Text, true) != 0) {
    syslog(LOG_WARNING, "f_WriteFileAtomic - %s: %s", z_c_Path, strerror(errno));
    return -1;
  }
  return 0;
}

namespace {
// cJSON prints a number with 15 digits whenever that text reads back within a relative
// DBL_EPSILON of it, which can be one step of the last bit off: a cycle count of
// 7677230164176710656 came back 1024 lower from a rewritten file. Such a number goes out
// with 17 digits, which always read back unchanged; every other number prints as before.
bool f_PrintsLossy(const cJSON* z_o_Item) {
  if (!cJSON_IsNumber(z_o_Item) || !std::isfinite(z_o_Item->valuedouble)) return false;
  char a_c_Text[32];
  std::snprintf(a_c_Text, sizeof a_c_Text, "%1.15g", z_o_Item->valuedouble);
  return std::strtod(a_c_Text, nullptr) != z_o_Item->valuedouble;
}

bool f_HasLossyNumber(const cJSON* z_o_Node) {
  if (f_PrintsLossy(z_o_Node)) return true;
  for (const cJSON* z_o_Child = z_o_Node->child; z_o_Child != nullptr; z_o_Child = z_o_Child->next)
    if (f_HasLossyNumber(z_o_Child)) return true;
  return false;
}

// Turns every lossy number of the tree into raw text with all 17 digits, in place.
bool f_MakeNumbersExact(cJSON* z_o_Node) {
  if (f_PrintsLossy(z_o_Node)) {
    char a_c_Text[32];
    int i_Len = std::snprintf(a_c_Text, sizeof a_c_Text, "%1.17g", z_o_Node->valuedouble);
    auto* z_c_Raw = static_cast<char*>(cJSON_malloc(static_cast<size_t>(i_Len) + 1));
    if (z_c_Raw == nullptr) return false;
    std::memcpy(z_c_Raw, a_c_Text, static_cast<size_t>(i_Len) + 1);
    z_o_Node->valuestring = z_c_Raw;  // a number has none; freed with the item
    z_o_Node->type = cJSON_Raw | (z_o_Node->type & cJSON_StringIsConst);
    return true;
  }
  for (cJSON* z_o_Child = z_o_Node->child; z_o_Child != nullptr; z_o_Child = z_o_Child->next)
    if (!f_MakeNumbersExact(z_o_Child)) return false;
  return true;
}

// The file's text: cJSON's formatted print, of an exact copy when a number needs it.
char* f_PrintCfg(const cJSON* z_o_Tree) {
  if (!f_HasLossyNumber(z_o_Tree)) return cJSON_Print(z_o_Tree);
  CJsonTree_T o_Exact(cJSON_Duplicate(z_o_Tree, 1));
  if (!o_Exact || !f_MakeNumbersExact(o_Exact.get())) return nullptr;
  return cJSON_Print(o_Exact.get());
}
}  // namespace

int ConfigFileHelper_CL::f_WriteCfgFile(const cJSON* o_Tree, const char* z_c_Path) {
  if (o_Tree == nullptr) return -1;
  CJsonText_T o_Text(z_c_Path != nullptr ? f_PrintCfg(o_Tree) : nullptr);
  if (!o_Text) {
    syslog(LOG_WARNING, "ConfigFileHelper_CL::f_WriteCfgFile - %s: cannot format",
           z_c_Path != nullptr ? z_c_Path : "(null)");
    return -1;
  }
  return f_WriteFileAtomic(z_c_Path, o_Text.get());
}

int ConfigFileHelper_CL::f_WriteCfgFile(cJSON* o_Tree, const char* z_c_Path, bool b_Delete) {
  // The tree was handed over: it goes whether the write worked or not.
  CJsonTree_T o_Owned(b_Delete ? o_Tree : nullptr);
  return f_WriteCfgFile(static_cast<const cJSON*>(o_Tree), z_c_Path);
}

int ConfigFileHelper_CL::f_PutCfgItem(cJSON* o_Parent, const char* z_c_Key, CJsonTree_T o_Item) {
  if (!o_Item || !cJSON_IsObject(o_Parent) || z_c_Key == nullptr) return -1;
  // Replace in place so the key keeps its position: people read and diff these files.
  bool b_Ok = cJSON_GetObjectItemCaseSensitive(o_Parent, z_c_Key) != nullptr
                  ? cJSON_ReplaceItemInObjectCaseSensitive(o_Parent, z_c_Key, o_Item.get())
                  : cJSON_AddItemToObject(o_Parent, z_c_Key, o_Item.get());
  if (!b_Ok) return -1;
  o_Item.release();  // now part of the parent
  return 0;
}

// --- editing ----------------------------------------------------------------------

namespace {
// Puts o_Item at tree[section][key] and takes it over in every case.
int f_SetItem(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key, cJSON* o_Item) {
  CJsonTree_T o_Owned(o_Item);
  if (!o_Owned || !cJSON_IsObject(o_Tree) || z_c_Key == nullptr) return -1;
  cJSON* o_Parent = o_Tree;
  if (z_c_Section != nullptr && *z_c_Section != '\0') {
    o_Parent = cJSON_GetObjectItemCaseSensitive(o_Tree, z_c_Section);
    if (!cJSON_IsObject(o_Parent)) {
      // Missing, or something else under that name (a damaged file): it becomes a section.
      cJSON* o_Section = cJSON_CreateObject();
      if (ConfigFileHelper_CL::f_PutCfgItem(o_Tree, z_c_Section, CJsonTree_T(o_Section)) != 0)
        return -1;
      o_Parent = o_Section;
    }
  }
  return ConfigFileHelper_CL::f_PutCfgItem(o_Parent, z_c_Key, std::move(o_Owned));
}
}  // namespace

int ConfigFileHelper_CL::f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                                     const char* z_c_Value) {
  if (z_c_Value == nullptr) return -1;
  return f_SetItem(o_Tree, z_c_Section, z_c_Key, cJSON_CreateString(z_c_Value));
}

int ConfigFileHelper_CL::f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                                     const std::string& str_Value) {
  return f_SetCfgKey(o_Tree, z_c_Section, z_c_Key, str_Value.c_str());
}

int ConfigFileHelper_CL::f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                                     int i_Value) {
  return f_SetItem(o_Tree, z_c_Section, z_c_Key, cJSON_CreateNumber(i_Value));
}

int ConfigFileHelper_CL::f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                                     unsigned int ui_Value) {
  return f_SetItem(o_Tree, z_c_Section, z_c_Key, cJSON_CreateNumber(ui_Value));
}

int ConfigFileHelper_CL::f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                                     long l_Value) {
  return f_SetItem(o_Tree, z_c_Section, z_c_Key, cJSON_CreateNumber(static_cast<double>(l_Value)));
}

int ConfigFileHelper_CL::f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                                     long long ll_Value) {
  return f_SetItem(o_Tree, z_c_Section, z_c_Key, cJSON_CreateNumber(static_cast<double>(ll_Value)));
}

int ConfigFileHelper_CL::f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                                     unsigned long ul_Value) {
  return f_SetItem(o_Tree, z_c_Section, z_c_Key, cJSON_CreateNumber(static_cast<double>(ul_Value)));
}

int ConfigFileHelper_CL::f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                                     double d_Value) {
  return f_SetItem(o_Tree, z_c_Section, z_c_Key, cJSON_CreateNumber(d_Value));
}

int ConfigFileHelper_CL::f_SetCfgKey(cJSON* o_Tree, const char* z_c_Section, const char* z_c_Key,
                                     bool b_Value) {
  return f_SetItem(o_Tree, z_c_Section, z_c_Key, cJSON_CreateBool(b_Value ? 1 : 0));
}
