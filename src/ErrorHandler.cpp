// The system-error store: configuration, the SQLite list of errors, the current error,
// acknowledgement, the JSON export of the active errors, and readiness: the error segment
// that carries both readiness words, the flag operations and the comparison step behind
// output 17.
#include "ErrorHandler.h"

#include <cerrno>
#include <cinttypes>
#include <cjson/cJSON.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <new>
#include <sqlite3.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>
#include <vector>

#include "SysSrvNames.h"
#include "SystemSrv.h"
#include "sysLib/Bms.h"
#include "sysLib/ConfigFile.h"
#include "sysLib/Error.h"
#include "sysLib/SysCmd.h"
#include "sysLib/SysDiag.h"
#include "sysLib/SysExcpt.h"
#include "sysLib/SysFile.h"
#include "sysLib/SysPath.h"

namespace {
struct SqlFinalize_ST {
  void operator()(sqlite3_stmt* z_o_Stmt) const { sqlite3_finalize(z_o_Stmt); }
};
using SqlStmt_T = std::unique_ptr<sqlite3_stmt, SqlFinalize_ST>;

// A cached statement lent out for one use: given back reset, so that a select stepped to
// its first row does not go on holding the database's read lock, and without bindings.
struct SqlReset_ST {
  void operator()(sqlite3_stmt* z_o_Stmt) const {
    sqlite3_reset(z_o_Stmt);
    sqlite3_clear_bindings(z_o_Stmt);
  }
};
using SqlLease_T = std::unique_ptr<sqlite3_stmt, SqlReset_ST>;

// The cached statements' texts, in the order of ErrorHandler_CL::en_Sql. Numbers are
// bound: the texts stay the same, so each is parsed once.
constexpr const char* A_C_DUP_CMD = "select id from syserrors where code=:code and ack=0;";
// The oldest row becomes the newest in one statement: ids keep rising, so id order stays
// arrival order. No row changed means an empty table (the row count is not redone after a
// partial clear): then the error is inserted.
constexpr const char* A_C_OVERWRITE_CMD =
    "update syserrors set id=(select max(id) from syserrors)+1, date=:date, proc=:proc, "
    "code=:code, class=:class, ack=0 where id=(select min(id) from syserrors);";
constexpr const char* A_C_ACK_FIND_CMD =
    "select id from syserrors where code=:code and ack=0 and class!=1";
constexpr const char* A_C_ACK_UPDATE_CMD =
    "update syserrors set ack=1 where code=:code and ack=0 and class!=1;";

// Raises the user interface's priority once the tool is first ready to work.
constexpr const char* A_C_RENICE_CMD =
    "dbus-send --system --print-reply --dest=com.torvane.akku.GUIService /GUI "
    "com.torvane.akku.gui.setNice int32:-15";

constexpr const char* A_C_CREATE_TABLE_CMD =
    "CREATE TABLE IF NOT EXISTS syserrors (id INTEGER PRIMARY KEY,date INTEGER DEFAULT '',proc "
    "TEXT DEFAULT '',code INTEGER DEFAULT '0',class INTEGER DEFAULT '0',ack INTEGER DEFAULT '0')";
constexpr const char* A_C_COUNT_CMD = "SELECT count(*) from syserrors;";
constexpr const char* A_C_ACK_ALL_CMD = "update syserrors set ack=1 where ack=0;";
constexpr const char* A_C_NEWEST_ACTIVE_CMD =
    "select code, class, date from syserrors where ack=0 order by id DESC;";
constexpr const char* A_C_ACTIVE_CMD = "select code, class, date from syserrors where ack=0;";
constexpr const char* A_C_COLLECTIVE_CMD =
    "select code from syserrors where (class=3 or class=0) and ack=0;";
constexpr const char* A_C_DELETE_ACKED_CMD = "delete from syserrors where ack=1;";
constexpr const char* A_C_CACHED_CMD[] = {A_C_DUP_CMD,
                                          "BEGIN EXCLUSIVE;",
                                          "COMMIT;",
                                          "ROLLBACK;",
                                          A_C_OVERWRITE_CMD,
                                          ErrorHandler_CL::a_c_InsertErrorCmd,
                                          A_C_NEWEST_ACTIVE_CMD,
                                          A_C_ACK_FIND_CMD,
                                          A_C_ACK_UPDATE_CMD};

// A failure log names the statement with the code in it, as the list's readers know it.
std::string f_WithCode(const char* z_c_Fmt, int i_Code) {
  char a_c_Cmd[ErrorHandler_CL::UI_SQL_CMD_SIZE];
  std::snprintf(a_c_Cmd, sizeof(a_c_Cmd), z_c_Fmt, i_Code);
  return a_c_Cmd;
}

// A closed handle reads as a failed prepare, so every caller takes its ordinary failure
// path instead of handing SQLite a null connection.
int f_Prepare(sqlite3* z_o_DB, const char* z_c_Cmd, SqlStmt_T& o_Stmt) {
  o_Stmt.reset();
  if (z_o_DB == nullptr) return SQLITE_MISUSE;
  sqlite3_stmt* z_o_Raw = nullptr;
  int i_Rc = sqlite3_prepare_v2(z_o_DB, z_c_Cmd, -1, &z_o_Raw, nullptr);
  o_Stmt.reset(z_o_Raw);
  if (i_Rc == SQLITE_OK && z_o_Raw == nullptr) i_Rc = SQLITE_MISUSE;
  return i_Rc;
}

// code * 8 + class without a signed overflow for values another process wrote.
int f_CodedNr(int i_Code, int i_Class) {
  return static_cast<int>(static_cast<unsigned int>(i_Code) * 8u |
                          static_cast<unsigned int>(i_Class));
}

// The coded number of a report's text. The board's long has 32 bits and the PC's 64, so
// atoi saturates on the one and wraps on the other: "4294967297" would be two different
// errors. Reading 64 bits and keeping the low 32 makes one report one error everywhere.
int f_CodedFromText(const char* z_c_Text) {
  const long long ll_Value = std::strtoll(z_c_Text != nullptr ? z_c_Text : "", nullptr, 10);
  return static_cast<int>(static_cast<uint32_t>(static_cast<unsigned long long>(ll_Value)));
}

// Trees where other files of the tool or the system live. A list in there could be moved
// aside by the recovery below and take a configuration or a system file with it.
bool f_IsForeignTree(const std::string& str_Path) {
  static const char* const A_Z_C_TREES[] = {"/home/tool/config", "/etc", "/proc", "/sys",
                                            "/dev", "/bin", "/sbin", "/lib", "/usr", "/boot",
                                            "/run", "/var/run", "/var/sysdiag"};
  for (const char* z_c_Tree : A_Z_C_TREES) {
    const size_t ui_Len = std::strlen(z_c_Tree);
    if (str_Path.compare(0, ui_Len, z_c_Tree) == 0 &&
        (str_Path.size() == ui_Len || str_Path[ui_Len] == '/'))
      return true;
  }
  // A list needs a directory of its own below the top level.
  return str_Path.find('/', 1) == std::string::npos;
}

// What the recovery may move aside: only what can be nothing but a (damaged) list - a file
// with SQLite's header or a database name, an empty file, an empty directory. Anything else
// is somebody's file, and the list goes to memory instead.
bool f_IsOurs(const std::string& str_File, const struct stat& o_St) {
  if (S_ISDIR(o_St.st_mode)) {
    std::error_code o_Ec;
    return std::filesystem::is_empty(str_File, o_Ec) && !o_Ec;
  }
  if (!S_ISREG(o_St.st_mode)) return false;
  if (o_St.st_size == 0) return true;
  for (const char* z_c_Ext : {".sq3", ".db", ".sqlite", ".sqlite3"}) {
    const size_t ui_Len = std::strlen(z_c_Ext);
    if (str_File.size() > ui_Len && str_File.compare(str_File.size() - ui_Len, ui_Len, z_c_Ext) == 0)
      return true;
  }
  char a_c_Head[16] = {};
  UniqueFd_CL o_Fd(open(str_File.c_str(), O_RDONLY | O_CLOEXEC));
  return o_Fd.f_IsOpen() && read(o_Fd.f_Get(), a_c_Head, sizeof(a_c_Head)) == 16 &&
         std::memcmp(a_c_Head, "SQLite format 3", 16) == 0;
}

// True when another process holds the file's lock: the file itself may be fine.
bool f_DBIsHeld(const std::string& str_File) {
  sqlite3* z_o_Db = nullptr;
  bool b_Held = false;
  if (sqlite3_open_v2(str_File.c_str(), &z_o_Db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    const int i_Rc = sqlite3_exec(z_o_Db, "PRAGMA schema_version;", nullptr, nullptr, nullptr);
    b_Held = i_Rc == SQLITE_BUSY || i_Rc == SQLITE_LOCKED;
  }
  sqlite3_close(z_o_Db);
  return b_Held;
}

// A path that climbs with ".." could leave the log directory (and a sandbox).
bool f_HasDotDot(const std::string& str_Path) {
  size_t ui_Start = 0;
  while (ui_Start <= str_Path.size()) {
    size_t ui_End = str_Path.find('/', ui_Start);
    if (ui_End == std::string::npos) ui_End = str_Path.size();
    if (str_Path.compare(ui_Start, ui_End - ui_Start, "..") == 0 && ui_End - ui_Start == 2)
      return true;
    ui_Start = ui_End + 1;
  }
  return false;
}

int f_BindInt(sqlite3_stmt* z_o_Stmt, const char* z_c_Name, int i_Value) {
  return sqlite3_bind_int(z_o_Stmt, sqlite3_bind_parameter_index(z_o_Stmt, z_c_Name), i_Value);
}

int f_BindText(sqlite3_stmt* z_o_Stmt, const char* z_c_Name, const char* z_c_Value) {
  return sqlite3_bind_text(z_o_Stmt, sqlite3_bind_parameter_index(z_o_Stmt, z_c_Name), z_c_Value,
                           -1, SQLITE_TRANSIENT);
}
}  // namespace

// --- error segment and store ----------------------------------------------------------

ErrorShMem_CL::ErrorShMem_CL() : ShMem_CL(A_C_ERROR_SHMEM_NAME, UI_ERROR_SHMEM_SIZE) {
  if (f_IsShMemRdy()) z_o_ErrShMem = static_cast<ErrorShMemData_ST*>(f_GetShMem());
}

unsigned char ErrorShMem_CL::f_IsSmod() const {
  return z_o_ErrShMem != nullptr ? z_o_ErrShMem->uc_Smod : 0;
}

ErrorHandler_CL::ErrorHandler_CL(SysObj* z_o_Obj, unsigned long, Bms_CL* z_o_BmsObj)
    : z_o_BmsIo(z_o_BmsObj), z_o_SysObj(z_o_Obj) {
  if (z_o_BmsIo == nullptr) throw new SysExcpt_CL(2, "ErrorHandler_CL::new Bms_CL", true);
  try {
    z_o_RdyStatus.reset(new RdyStatus_CL());
  } catch (const std::bad_alloc&) {
    throw new SysExcpt_CL(2, "ErrorHandler_CL::new RdyStatus_CL", false);
  }
  uint32_t ui_RdySoll = z_o_RdyStatus->f_GetRdySoll();
  if (z_o_ErrShMem != nullptr) z_o_ErrShMem->ui_RdySoll = ui_RdySoll;
  syslog(LOG_INFO, "ErrorHandler_CL::i_RdySoll->%d\n", static_cast<int>(ui_RdySoll));

  f_ReadCfg();
  if (f_DBOpenOrRecover() < 0) {
    // Some failed opens leave the handle open; the destructor will not run for us.
    f_DBClose();
    throw new SysExcpt_CL(2, "ErrorHandler_CL::f_DBOpen", true);
  }
  f_CheckForNonAckErrors();

  // Only now can errors raised during start-up be stored; they are inserted after the
  // restart acknowledgement above, so they stay active.
  Error_CL::f_GetErrorObj()->f_AttachStore([this](int i_Coded) { f_InsertError(i_Coded); });
}

ErrorHandler_CL::~ErrorHandler_CL() {
  syslog(LOG_INFO, "~ErrorHandler_CL->Start");
  Error_CL::f_GetErrorObj()->f_DetachStore();
  f_DBClose();
  str_DBPath.clear();
  z_o_RdyStatus.reset();
  syslog(LOG_INFO, "~ErrorHandler_CL->Ende");
}

void ErrorHandler_CL::f_Signal(const char* z_c_Name, GVariant* o_Params) {
  SYS_EMIT_SIGNAL(z_o_SysObj, z_c_Name, o_Params);
}

const char* ErrorHandler_CL::f_DbErrMsg() const {
  return z_o_DB != nullptr ? sqlite3_errmsg(z_o_DB) : "database not open";
}

// --- configuration ---------------------------------------------------------------------

void ErrorHandler_CL::f_UseDefaultConfig() {
  f_UseDefaultDBPath();
  f_UseDefaultMaxErrors();
}

void ErrorHandler_CL::f_UseDefaultDBPath() { str_DBPath = A_C_DEFAULT_DB_PATH; }

void ErrorHandler_CL::f_UseDefaultMaxErrors() { i_MaxErrors = i_DefaultMaxErrors; }

int ErrorHandler_CL::f_ReadCfg() {
  int i_Ret = 0;
  cJSON* z_o_Raw = nullptr;
  if (f_ReadJsonCfgFile(A_C_CFG_PATH, &z_o_Raw) != 0) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_ReadCfg f_ReadJsonCfgFile error");
    f_UseDefaultConfig();
    i_Ret = -1;
  }
  CJsonTree_T o_Tree(z_o_Raw);

  const cJSON* z_o_Path = cJSON_GetObjectItem(o_Tree.get(), "DbFilePath");
  if (z_o_Path == nullptr) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_ReadCfg key <%s> not found", "DbFilePath");
    f_UseDefaultDBPath();
  } else if (!cJSON_IsString(z_o_Path) || z_o_Path->valuestring == nullptr ||
             z_o_Path->valuestring[0] != '/') {
    // SQLite would take an empty name as a private temporary database and a relative one
    // as relative to wherever the service was started: neither keeps the list.
    syslog(LOG_WARNING, "ErrorHandler_CL::f_ReadCfg key <%s> is not an absolute path",
           "DbFilePath");
    f_UseDefaultDBPath();
  } else {
    if (f_HasDotDot(z_o_Path->valuestring)) {
      syslog(LOG_WARNING, "ErrorHandler_CL::f_ReadCfg key <%s> climbs with '..', not used",
             "DbFilePath");
      f_UseDefaultDBPath();
    } else if (f_IsForeignTree(z_o_Path->valuestring)) {
      syslog(LOG_WARNING, "ErrorHandler_CL::f_ReadCfg key <%s> <%s> is among other files, not used",
             "DbFilePath", z_o_Path->valuestring);
      f_UseDefaultDBPath();
    } else {
      str_DBPath = z_o_Path->valuestring;
    }
  }

  const cJSON* z_o_Max = cJSON_GetObjectItem(o_Tree.get(), "MaxErrors");
  if (z_o_Max == nullptr) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_ReadCfg key <%s> not found", "MaxErrors");
    f_UseDefaultMaxErrors();
  } else if (!cJSON_IsNumber(z_o_Max) || z_o_Max->valueint < 1) {
    // With a bound below one row every report would only overwrite, never keep anything.
    syslog(LOG_WARNING, "ErrorHandler_CL::f_ReadCfg key <%s> is not a positive number",
           "MaxErrors");
    f_UseDefaultMaxErrors();
  } else {
    i_MaxErrors = z_o_Max->valueint;
  }

  syslog(LOG_INFO, "ErrorHandler_CL::f_ReadCfg DBPath: %s, Max Errors: %d\n", str_DBPath.c_str(),
         i_MaxErrors);
  return i_Ret;
}

int ErrorHandler_CL::f_CfgFileChanged(const char* z_c_Path) {
  if (z_c_Path == nullptr || std::strcmp(z_c_Path, A_C_CFG_PATH) != 0) return 0;
  f_DBClose();
  str_DBPath.clear();
  f_ReadCfg();
  f_DBOpenOrRecover();
  return 0;
}

// --- database --------------------------------------------------------------------------

int ErrorHandler_CL::f_DBOpen() { return f_DBOpenFile(f_SysPath(str_DBPath)); }

int ErrorHandler_CL::f_DBOpenFile(const std::string& str_File) {
  if (z_o_DB != nullptr) f_DBClose();

  if (sqlite3_open(str_File.c_str(), &z_o_DB) != SQLITE_OK) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_DBOpen sqlite3_open <%s>", f_DbErrMsg());
    // Even a failed open hands back a handle that owns memory.
    sqlite3_close(z_o_DB);
    z_o_DB = nullptr;
    return -1;
  }

  SqlStmt_T o_Stmt;
  if (f_Prepare(z_o_DB, "PRAGMA synchronous=OFF", o_Stmt) != SQLITE_OK ||
      sqlite3_step(o_Stmt.get()) != SQLITE_DONE) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_DBOpen sqlite3_step <%s>", f_DbErrMsg());
    o_Stmt.reset();
    f_DBClose();
    return -2;
  }
  if (f_Prepare(z_o_DB, "PRAGMA auto_vacuum=FULL", o_Stmt) != SQLITE_OK ||
      sqlite3_step(o_Stmt.get()) != SQLITE_DONE) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_DBOpen sqlite3_step <%s>", f_DbErrMsg());
    return -3;
  }
  o_Stmt.reset();

  // Other processes (diagnostics, export) may hold the file for a moment.
  sqlite3_busy_timeout(z_o_DB, I_BUSY_TIMEOUT_MS);
  syslog(LOG_INFO, "sqlite3_busy_timeout OK");

  if (f_Prepare(z_o_DB, A_C_CREATE_TABLE_CMD, o_Stmt) != SQLITE_OK) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_DBOpen sqlite3_prepare tbl=%s - <%s>",
           A_C_CREATE_TABLE_CMD, f_DbErrMsg());
    return -4;
  }
  if (sqlite3_step(o_Stmt.get()) != SQLITE_DONE) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_DBOpen sqlite3_step tbl=%s - <%s>",
           A_C_CREATE_TABLE_CMD, f_DbErrMsg());
    return -5;
  }
  syslog(LOG_INFO, "%s  - OK", A_C_CREATE_TABLE_CMD);

  if (f_Prepare(z_o_DB, A_C_COUNT_CMD, o_Stmt) != SQLITE_OK) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_DBOpen sqlite3_prepare cmd: <%s> - <%s>", A_C_COUNT_CMD,
           f_DbErrMsg());
    return -6;
  }
  if (sqlite3_step(o_Stmt.get()) != SQLITE_ROW) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_DBOpen->sqlite3_step cmd: <%s> - <%s>", A_C_COUNT_CMD,
           f_DbErrMsg());
    return -7;
  }
  i_NrErrors = sqlite3_column_int(o_Stmt.get(), 0);
  syslog(LOG_INFO, "ErrorHandler_CL::f_DBOpen->i_NrErrors: %d\n", i_NrErrors);

  // A restart clears the active list: whatever was active in the previous run counts as
  // seen, whatever its class.
  if (f_Prepare(z_o_DB, A_C_ACK_ALL_CMD, o_Stmt) != SQLITE_OK) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_DBOpen->sqlite3_prepare cmd: <%s> - <%s>",
           A_C_ACK_ALL_CMD, f_DbErrMsg());
    return -8;
  }
  if (sqlite3_step(o_Stmt.get()) != SQLITE_DONE) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_DBOpen->sqlite3_step cmd: <%s> - <%s>", A_C_ACK_ALL_CMD,
           f_DbErrMsg());
    return -9;
  }
  syslog(LOG_INFO, "%s  - OK", A_C_ACK_ALL_CMD);
  o_Stmt.reset();

  f_SetRdyFlag(I_RDY_FLAG_NO_SYS_ERROR);
  return 0;
}

int ErrorHandler_CL::f_Cached(en_Sql e_Sql, sqlite3_stmt** z_z_o_Stmt) {
  static_assert(sizeof(A_C_CACHED_CMD) / sizeof(A_C_CACHED_CMD[0]) == EN_SQL_COUNT,
                "one text per cached statement");
  *z_z_o_Stmt = nullptr;
  if (z_o_DB == nullptr) return SQLITE_MISUSE;
  sqlite3_stmt*& z_o_Slot = a_z_o_Stmts[e_Sql];
  if (z_o_Slot == nullptr) {
    const int i_Rc = sqlite3_prepare_v3(z_o_DB, A_C_CACHED_CMD[e_Sql], -1,
                                        SQLITE_PREPARE_PERSISTENT, &z_o_Slot, nullptr);
    if (i_Rc != SQLITE_OK) {
      sqlite3_finalize(z_o_Slot);
      z_o_Slot = nullptr;
      return i_Rc;
    }
  }
  *z_z_o_Stmt = z_o_Slot;
  return SQLITE_OK;
}

void ErrorHandler_CL::f_FinalizeCached() {
  for (sqlite3_stmt*& z_o_Stmt : a_z_o_Stmts) {
    sqlite3_finalize(z_o_Stmt);
    z_o_Stmt = nullptr;
  }
}

int ErrorHandler_CL::f_DBClose() {
  // A statement still prepared would keep the connection from closing.
  f_FinalizeCached();
  if (z_o_DB != nullptr) {
    if (sqlite3_close(z_o_DB) != SQLITE_OK)
      syslog(LOG_WARNING, "ErrorHandler_CL::f_DBClose resqlite3_close <%s> ", f_DbErrMsg());
    z_o_DB = nullptr;
  }
  return 0;
}

bool ErrorHandler_CL::f_DBUsable() {
  // SQLite opens a file it may not write read-only without a word, and finds most damage
  // only when a statement reads the page: both would turn every later report into a
  // failed write.
  if (z_o_DB == nullptr || sqlite3_db_readonly(z_o_DB, "main") == 1) return false;
  SqlStmt_T o_Stmt;
  if (f_Prepare(z_o_DB, "PRAGMA quick_check;", o_Stmt) != SQLITE_OK ||
      sqlite3_step(o_Stmt.get()) != SQLITE_ROW)
    return false;
  const unsigned char* z_uc_Result = sqlite3_column_text(o_Stmt.get(), 0);
  return z_uc_Result != nullptr && std::strcmp(reinterpret_cast<const char*>(z_uc_Result), "ok") == 0;
}

int ErrorHandler_CL::f_DBOpenOrRecover() {
  int i_Rc = f_DBOpen();
  if (i_Rc == 0 && f_DBUsable()) return 0;
  if (f_DBIsHeld(f_SysPath(str_DBPath))) {
    // A file another process holds may be perfectly good: it is opened from the tick once
    // it is free, and the reports that come meanwhile wait for it.
    f_DBClose();
    syslog(LOG_CRIT, "ErrorHandler_CL::f_DBOpen <%s> is held by another process, opened when free",
           str_DBPath.c_str());
    return 1;
  }
  syslog(LOG_CRIT, "ErrorHandler_CL::f_DBOpen <%s> is no usable error list (%d)",
         str_DBPath.c_str(), i_Rc);
  return f_DBRecover();
}

int ErrorHandler_CL::f_DBRecover() {
  f_DBClose();
  const std::string str_File = f_SysPath(str_DBPath);
  struct stat o_St {};
  if (lstat(str_File.c_str(), &o_St) == 0 && !f_IsOurs(str_File, o_St)) {
    syslog(LOG_CRIT, "ErrorHandler_CL::f_DBRecover <%s> is not an error list, left as it is",
           str_File.c_str());
  } else if (lstat(str_File.c_str(), &o_St) == 0) {
    // Kept for whoever wants to look at it; a power cut on a battery tool is the usual way
    // there, and the list must go on at once.
    const std::string str_Aside = str_File + ".corrupt-" + std::to_string(std::time(nullptr));
    if (std::rename(str_File.c_str(), str_Aside.c_str()) == 0) {
      syslog(LOG_CRIT, "ErrorHandler_CL::f_DBRecover <%s> moved to <%s>, a new list is made",
             str_File.c_str(), str_Aside.c_str());
      // A journal left beside it belongs to the old file: SQLite would play it into the new.
      std::rename((str_File + "-journal").c_str(), (str_Aside + "-journal").c_str());
    } else {
      syslog(LOG_CRIT, "ErrorHandler_CL::f_DBRecover <%s> cannot be moved to <%s>: %s",
             str_File.c_str(), str_Aside.c_str(), std::strerror(errno));
    }
  } else {
    const size_t ui_Slash = str_File.rfind('/');
    if (ui_Slash != std::string::npos && ui_Slash > 0 &&
        f_MakeDirs(str_File.substr(0, ui_Slash), 0750) != 0)
      syslog(LOG_CRIT, "ErrorHandler_CL::f_DBRecover directory of <%s>: %s", str_File.c_str(),
             std::strerror(errno));
  }
  if (f_DBOpen() == 0 && f_DBUsable()) return 0;

  // Nowhere to keep the list on the medium (a read-only or missing file system): keep it
  // in memory, so that errors are still shown, acknowledged and make the tool not ready.
  syslog(LOG_CRIT,
         "ErrorHandler_CL::f_DBRecover no error list at <%s>, kept in memory until the next "
         "start",
         str_File.c_str());
  return f_DBOpenFile(":memory:");
}

int ErrorHandler_CL::f_DBRemove() {
  if (f_CheckForNonAckErrors() != 0) {
    // Active errors must survive: only what has been seen goes.
    SqlStmt_T o_Stmt;
    if (f_Prepare(z_o_DB, A_C_DELETE_ACKED_CMD, o_Stmt) != SQLITE_OK) {
      syslog(LOG_WARNING, "ErrorHandler_CL::f_DBRemove sqlite3_prepare - <%s>", f_DbErrMsg());
      return -1;
    }
    if (sqlite3_step(o_Stmt.get()) != SQLITE_DONE) {
      syslog(LOG_WARNING, "ErrorHandler_CL::f_DBRemove->sqlite3_step cmd: <%s>",
             A_C_DELETE_ACKED_CMD);
      return -1;
    }
    return 0;
  }

  // Nothing active: start over with a fresh file, which also gives the space back.
  f_DBClose();
  std::string str_File = f_SysPath(str_DBPath);
  if (std::remove(str_File.c_str()) != 0)
    syslog(LOG_WARNING, "ErrorHandler_CL::f_DBRemove remove <%s> ", std::strerror(errno));
  sync();
  return f_DBOpenOrRecover() == 0 ? 0 : -1;
}

// --- transactions ----------------------------------------------------------------------

int ErrorHandler_CL::f_RunTransactionCmd(en_Sql e_Sql, const char* z_c_Func, int i_StepError) {
  const char* z_c_Cmd = A_C_CACHED_CMD[e_Sql];
  sqlite3_stmt* z_o_Raw = nullptr;
  const int i_Rc = f_Cached(e_Sql, &z_o_Raw);
  SqlLease_T o_Stmt(z_o_Raw);
  if (i_Rc != SQLITE_OK) {
    syslog(LOG_WARNING, "%s->error prepare a_c_SqlCmd = %s - %s\n", z_c_Func, z_c_Cmd,
           f_DbErrMsg());
    return -1;
  }
  if (sqlite3_step(o_Stmt.get()) != SQLITE_DONE) {
    syslog(LOG_WARNING, "%s->error step a_c_SqlCmd - %s - %s\n", z_c_Func, z_c_Cmd, f_DbErrMsg());
    return i_StepError;
  }
  return 0;
}

int ErrorHandler_CL::f_BeginSqlTransaction() {
  return f_RunTransactionCmd(EN_SQL_BEGIN, "f_BeginSqlTransaction", -2);
}

int ErrorHandler_CL::f_CommitSqlTransaction() {
  return f_RunTransactionCmd(EN_SQL_COMMIT, "f_CommitSqlTransaction", -1);
}

int ErrorHandler_CL::f_RollbackSqlTransaction() {
  return f_RunTransactionCmd(EN_SQL_ROLLBACK, "f_RollbackSqlTransaction", -1);
}

// --- storing errors --------------------------------------------------------------------

int ErrorHandler_CL::f_InsertError(int i_CodedErr) {
  char a_c_Code[16];
  std::snprintf(a_c_Code, sizeof(a_c_Code), "%d", i_CodedErr);
  return f_Insert(A_C_SERVICE_PROC, a_c_Code);
}

int ErrorHandler_CL::f_Insert(const char* z_c_Proc, const char* z_c_Code) {
  const int i_Coded = f_CodedFromText(z_c_Code);
  Report_ST o_R = f_NewReport(z_c_Proc, i_Coded);

  // Reports are stored in the order they came: while older ones wait for the database, a
  // new one queues behind them and the database is only asked without waiting.
  if (!o_Pending.empty()) f_RetryPending();
  const bool b_Behind = !o_Pending.empty();

  const en_Active e_Dup = f_FindDuplicate(o_R.i_Code, b_Behind);
  if (e_Dup == en_Active::YES) {
    syslog(LOG_INFO, "ErrorHandler_CL::f_Insert error %d already exists", i_Coded);
    return 0;
  }

  // The error is shown at once even when its row must wait: the tool is not ready while it
  // has an error, whatever state the database is in.
  f_ShowNewError(o_R);
  if (e_Dup == en_Active::UNKNOWN || b_Behind) {
    f_QueueReport(std::move(o_R));
    return -1;
  }
  return f_StoreNew(std::move(o_R));
}

ErrorHandler_CL::Report_ST ErrorHandler_CL::f_NewReport(const char* z_c_Proc, int i_Coded) {
  Report_ST o_R{z_c_Proc != nullptr ? z_c_Proc : "", i_Coded >> 3, i_Coded & 7,
                static_cast<int>(std::time(nullptr))};
  if (o_R.str_Proc.size() > UI_MAX_PROC_LEN) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_Insert process name of %zu bytes cut at %zu",
           o_R.str_Proc.size(), UI_MAX_PROC_LEN);
    // Cut before a character, not inside one: the name stays valid UTF-8 for the readers.
    size_t ui_Cut = UI_MAX_PROC_LEN;
    while (ui_Cut > 0 && (static_cast<unsigned char>(o_R.str_Proc[ui_Cut]) & 0xC0) == 0x80)
      --ui_Cut;
    o_R.str_Proc.resize(ui_Cut);
  }
  return o_R;
}

ErrorHandler_CL::en_Active ErrorHandler_CL::f_FindDuplicate(int i_Code, bool b_Behind) {
  // One active row per code: a process that repeats its report while the error is still
  // active must neither grow the list nor alarm the peers again, whatever class it sends.
  // Behind waiting reports, one of them may carry the code before the list does.
  if (b_Behind && f_IsPending(i_Code)) return en_Active::YES;
  return f_FindActive(i_Code, b_Behind);
}

int ErrorHandler_CL::f_StoreNew(Report_ST o_R) {
  f_BeginSqlTransaction();
  bool b_Stored = false;
  const int i_Ret = f_WriteRow(o_R, &b_Stored);
  if (!b_Stored) {
    // The exclusive transaction stays open on purpose; the retry from the tick (or the
    // next successful write) completes it.
    f_QueueReport(std::move(o_R));
    return i_Ret;
  }
  if (f_CommitSqlTransaction() != 0) {
    f_QueueReport(std::move(o_R));
    return i_Ret;
  }
  f_Signal("sysfault", g_variant_new("(iii)", o_R.i_Code, o_R.i_Class, o_R.i_Date));
  return 0;
}

ErrorHandler_CL::en_Active ErrorHandler_CL::f_FindActive(int i_Code, bool b_NoWait) {
  const char* z_c_DupFmt = "select id from syserrors where code=%d and ack=0;";
  sqlite3_stmt* z_o_Raw = nullptr;
  const int i_PrepRc = f_Cached(EN_SQL_DUP, &z_o_Raw);
  SqlLease_T o_Stmt(z_o_Raw);
  if (i_PrepRc != SQLITE_OK) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_Insert->sqlite3_prepare cmd = %s - %s\n",
           f_WithCode(z_c_DupFmt, i_Code).c_str(), f_DbErrMsg());
    return en_Active::UNKNOWN;
  }
  f_BindInt(o_Stmt.get(), ":code", i_Code);
  if (b_NoWait) sqlite3_busy_timeout(z_o_DB, 0);
  const int i_Rc = sqlite3_step(o_Stmt.get());
  if (b_NoWait) sqlite3_busy_timeout(z_o_DB, I_BUSY_TIMEOUT_MS);
  if (i_Rc == SQLITE_ROW) return en_Active::YES;
  if (i_Rc == SQLITE_DONE) return en_Active::NO;
  // "database is locked" says nothing about the list: taken as "no duplicate", the row
  // would be written twice once the database is back.
  if (!b_NoWait)
    syslog(LOG_WARNING, "ErrorHandler_CL::f_Insert->sqlite3_step cmd = %s - %s\n",
           f_WithCode(z_c_DupFmt, i_Code).c_str(), f_DbErrMsg());
  return en_Active::UNKNOWN;
}

bool ErrorHandler_CL::f_IsPending(int i_Code) const {
  for (const Report_ST& o_R : o_Pending)
    if (o_R.i_Code == i_Code) return true;
  return false;
}

void ErrorHandler_CL::f_ShowNewError(const Report_ST& o_R) {
  const int i_Coded = f_CodedNr(o_R.i_Code, o_R.i_Class);
  if (z_o_ErrShMem != nullptr) z_o_ErrShMem->i_CurError = i_Coded;
  char a_c_Coded[16];
  std::snprintf(a_c_Coded, sizeof(a_c_Coded), "%d", i_Coded);
  f_SysDiagSetParam("sysfault", a_c_Coded);

  i_LastErrCode = o_R.i_Code;
  i_LastErrClass = o_R.i_Class;
  i_LastErrDate = o_R.i_Date;
  syslog(LOG_INFO, "f_Insert %d, %d, %d", i_LastErrCode, i_LastErrClass, i_LastErrDate);

  // Class 0 errors are notes: the tool stays ready.
  if (o_R.i_Class != 0) {
    f_ResetRdyFlag(I_RDY_FLAG_NO_SYS_ERROR);
    z_o_BmsIo->f_Out(I_BMS_OUT_NO_ERROR, false);
  }
}

// The report's values, for the overwrite and the insert alike.
void ErrorHandler_CL::f_BindReport(sqlite3_stmt* z_o_Stmt, const Report_ST& o_R) {
  f_BindInt(z_o_Stmt, ":date", o_R.i_Date);
  f_BindText(z_o_Stmt, ":proc", o_R.str_Proc.c_str());
  f_BindInt(z_o_Stmt, ":code", o_R.i_Code);
  f_BindInt(z_o_Stmt, ":class", o_R.i_Class);
}

int ErrorHandler_CL::f_WriteRow(const Report_ST& o_R, bool* z_b_Stored) {
  *z_b_Stored = false;
  sqlite3_stmt* z_o_Raw = nullptr;
  if (i_NrErrors >= i_MaxErrors) {
    const int i_Rc = f_Cached(EN_SQL_OVERWRITE, &z_o_Raw);
    SqlLease_T o_Stmt(z_o_Raw);
    if (i_Rc != SQLITE_OK) {
      syslog(LOG_WARNING, "ErrorHandler_CL::f_Insert->sqlite3_prepare cmd: - %s - %s\n",
             A_C_OVERWRITE_CMD, f_DbErrMsg());
      return -1;
    }
    f_BindReport(o_Stmt.get(), o_R);
    if (sqlite3_step(o_Stmt.get()) != SQLITE_DONE) {
      syslog(LOG_WARNING, "ErrorHandler_CL::f_Insert->sqlite3_step cmd: - %s - %s\n",
             A_C_OVERWRITE_CMD, f_DbErrMsg());
      return 0;
    }
    if (sqlite3_changes(z_o_DB) > 0) {
      *z_b_Stored = true;
      return 0;
    }
  }

  const int i_Rc = f_Cached(EN_SQL_INSERT, &z_o_Raw);
  SqlLease_T o_Stmt(z_o_Raw);
  if (i_Rc != SQLITE_OK) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_Insert->sqlite3_prepare cmd = %s - %s\n",
           a_c_InsertErrorCmd, f_DbErrMsg());
    return -1;
  }
  // ":id" stays unbound: SQLite hands out the next rowid.
  f_BindReport(o_Stmt.get(), o_R);
  f_BindInt(o_Stmt.get(), ":ack", 0);
  if (sqlite3_step(o_Stmt.get()) != SQLITE_DONE) {
    syslog(LOG_WARNING, "ErrorHandler_CL::f_Insert->sqlite3_step cmd: %s - %s\n",
           a_c_InsertErrorCmd, f_DbErrMsg());
    return -2;
  }
  i_NrErrors++;
  *z_b_Stored = true;
  return 0;
}

// --- reports waiting for the database --------------------------------------------------

void ErrorHandler_CL::f_QueueReport(Report_ST o_R) {
  o_Pending.push_back(std::move(o_R));
  if (o_Pending.size() > UI_MAX_PENDING) {
    const Report_ST& o_Old = o_Pending.front();
    syslog(LOG_CRIT, "ErrorHandler_CL::f_Insert %zu reports wait, error %d of <%s> dropped",
           o_Pending.size(), f_CodedNr(o_Old.i_Code, o_Old.i_Class), o_Old.str_Proc.c_str());
    o_Pending.pop_front();
  }
}

int ErrorHandler_CL::f_Exec(const char* z_c_Sql) {
  SqlStmt_T o_Stmt;
  int i_Rc = f_Prepare(z_o_DB, z_c_Sql, o_Stmt);
  if (i_Rc != SQLITE_OK) return i_Rc;
  i_Rc = sqlite3_step(o_Stmt.get());
  return i_Rc == SQLITE_DONE || i_Rc == SQLITE_ROW ? SQLITE_OK : i_Rc;
}

bool ErrorHandler_CL::f_StorePending(const Report_ST& o_R, bool* z_b_Duplicate) {
  *z_b_Duplicate = false;
  // A transaction left open by the failed write is taken over, not begun twice.
  if (sqlite3_get_autocommit(z_o_DB) != 0 && f_Exec("BEGIN EXCLUSIVE;") != SQLITE_OK) return false;
  const en_Active e_Dup = f_FindActive(o_R.i_Code, true);
  bool b_Stored = false;
  if (e_Dup == en_Active::NO) f_WriteRow(o_R, &b_Stored);
  if ((e_Dup == en_Active::YES || b_Stored) && f_Exec("COMMIT;") == SQLITE_OK) {
    *z_b_Duplicate = e_Dup == en_Active::YES;
    return true;
  }
  // Nothing of this try may stay behind holding the database: the report waits on.
  if (sqlite3_get_autocommit(z_o_DB) == 0) f_Exec("ROLLBACK;");
  return false;
}

void ErrorHandler_CL::f_RetryPending() {
  if (z_o_DB == nullptr) {
    // Held by another process at the last open: open it once it is free, as at a start.
    if (f_DBIsHeld(f_SysPath(str_DBPath)) || f_DBOpenOrRecover() != 0) return;
    syslog(LOG_INFO, "ErrorHandler_CL::f_RetryPending <%s> opened", str_DBPath.c_str());
    f_CheckForNonAckErrors();
  }
  if (o_Pending.empty()) return;

  sqlite3_busy_timeout(z_o_DB, 0);
  bool b_Duplicate = false;
  bool b_ListChanged = false;
  while (!o_Pending.empty()) {
    const Report_ST& o_R = o_Pending.front();
    if (!f_StorePending(o_R, &b_Duplicate)) {
      const int i_Err = sqlite3_errcode(z_o_DB);
      if (i_Err == SQLITE_BUSY || i_Err == SQLITE_LOCKED) break;
      if (!b_RetryFailLogged)
        syslog(LOG_WARNING, "ErrorHandler_CL::f_RetryPending %zu reports wait - %s",
               o_Pending.size(), f_DbErrMsg());
      b_RetryFailLogged = true;
      // A file damaged or made read-only under the running service is replaced like one
      // found so at start.
      if (i_Err == SQLITE_CORRUPT || i_Err == SQLITE_NOTADB || i_Err == SQLITE_READONLY) {
        sqlite3_busy_timeout(z_o_DB, I_BUSY_TIMEOUT_MS);
        if (f_DBRecover() != 0) return;
        sqlite3_busy_timeout(z_o_DB, 0);
        continue;
      }
      break;
    }
    b_RetryFailLogged = false;
    if (b_Duplicate) {
      syslog(LOG_INFO, "ErrorHandler_CL::f_Insert error %d already exists",
             f_CodedNr(o_R.i_Code, o_R.i_Class));
      b_ListChanged = true;
    } else {
      syslog(LOG_INFO, "ErrorHandler_CL::f_RetryPending error %d of <%s> stored",
             f_CodedNr(o_R.i_Code, o_R.i_Class), o_R.str_Proc.c_str());
      f_ShowNewError(o_R);
      f_Signal("sysfault", g_variant_new("(iii)", o_R.i_Code, o_R.i_Class, o_R.i_Date));
    }
    o_Pending.pop_front();
  }
  if (z_o_DB != nullptr) sqlite3_busy_timeout(z_o_DB, I_BUSY_TIMEOUT_MS);
  // A report that turned out to repeat an active error was shown all the same: once the
  // queue is empty the current error is taken from the list again.
  if (o_Pending.empty() && b_ListChanged) f_CheckForNonAckErrors();
}

// --- current error and acknowledgement -------------------------------------------------

void ErrorHandler_CL::f_SetNoActiveError() {
  f_SetRdyFlag(I_RDY_FLAG_NO_SYS_ERROR);
  z_o_BmsIo->f_Out(I_BMS_OUT_NO_ERROR, true);
  if (z_o_ErrShMem != nullptr) z_o_ErrShMem->i_CurError = 0;
}

int ErrorHandler_CL::f_CheckForNonAckErrors() {
  sqlite3_stmt* z_o_Raw = nullptr;
  const int i_PrepRc = f_Cached(EN_SQL_NEWEST_ACTIVE, &z_o_Raw);
  SqlLease_T o_Stmt(z_o_Raw);
  if (i_PrepRc != SQLITE_OK) {
    syslog(LOG_WARNING,
           "ErrorHandler_CL::f_CheckForNonAckErrors->error prepare a_c_SqlCmd = %s - %s\n",
           A_C_NEWEST_ACTIVE_CMD, f_DbErrMsg());
    return 1;
  }
  int i_Rc = sqlite3_step(o_Stmt.get());
  if (i_Rc != SQLITE_ROW && i_Rc != SQLITE_DONE) {
    // A query that failed (locked, damaged) says nothing about the list: keep the state.
    syslog(LOG_WARNING,
           "ErrorHandler_CL::f_CheckForNonAckErrors->error step a_c_SqlCmd = %s - %s\n",
           A_C_NEWEST_ACTIVE_CMD, f_DbErrMsg());
    return 1;
  }

  if (i_Rc == SQLITE_DONE) {
    o_Stmt.reset();
    i_LastErrCode = 0;
    i_LastErrClass = 0;
    i_LastErrDate = 0;
    f_SysDiagSetParam("sysfault", "0");
    syslog(LOG_INFO, "f_CheckForNonAckErrors %d, %d, %d", i_LastErrCode, i_LastErrClass,
           i_LastErrDate);
    f_SetNoActiveError();
    return 0;
  }

  syslog(LOG_INFO, "ErrorHandler_CL::f_CheckForNonAckErrors->list has NonAck errors");
  i_LastErrCode = sqlite3_column_int(o_Stmt.get(), 0);
  i_LastErrClass = sqlite3_column_int(o_Stmt.get(), 1);
  i_LastErrDate = sqlite3_column_int(o_Stmt.get(), 2);
  char a_c_Coded[16];
  std::snprintf(a_c_Coded, sizeof(a_c_Coded), "%d", f_CodedNr(i_LastErrCode, i_LastErrClass));
  f_SysDiagSetParam("sysfault", a_c_Coded);
  syslog(LOG_INFO, "f_CheckForNonAckErrors %d, %d, %d", i_LastErrCode, i_LastErrClass,
         i_LastErrDate);
  o_Stmt.reset();
  // Readiness follows the newest active error alone: a class 0 note on top makes the tool
  // ready again even while older errors are still listed.
  if (i_LastErrClass == 0) f_SetNoActiveError();
  return 1;
}

int ErrorHandler_CL::f_Ack(int i_Code) {
  syslog(LOG_INFO, "ErrorHandler_CL::f_Ack->i_ErrNr: %d", i_Code);
  const char* z_c_SelFmt = "select id from syserrors where code=%d and ack=0 and class!=1";
  sqlite3_stmt* z_o_Raw = nullptr;
  {
    const int i_Rc = f_Cached(EN_SQL_ACK_FIND, &z_o_Raw);
    SqlLease_T o_Stmt(z_o_Raw);
    if (i_Rc != SQLITE_OK) {
      syslog(LOG_WARNING, "ErrorHandler_CL::f_Ack->error prepare a_c_SqlCmd = %s - %s\n",
             f_WithCode(z_c_SelFmt, i_Code).c_str(), f_DbErrMsg());
      return -1;
    }
    f_BindInt(o_Stmt.get(), ":code", i_Code);
    if (sqlite3_step(o_Stmt.get()) != SQLITE_ROW) {
      o_Stmt.reset();
      f_CheckForNonAckErrors();
      return 0;
    }
  }

  f_BeginSqlTransaction();
  const char* z_c_UpdFmt = "update syserrors set ack=1 where code=%d and ack=0 and class!=1;";
  {
    const int i_Rc = f_Cached(EN_SQL_ACK_UPDATE, &z_o_Raw);
    SqlLease_T o_Stmt(z_o_Raw);
    if (i_Rc != SQLITE_OK) {
      syslog(LOG_WARNING, "ErrorHandler_CL::f_Ack->error prepare a_c_SqlCmd = %s - %s\n",
             f_WithCode(z_c_UpdFmt, i_Code).c_str(), f_DbErrMsg());
      o_Stmt.reset();
      f_RollbackSqlTransaction();
      return -1;
    }
    f_BindInt(o_Stmt.get(), ":code", i_Code);
    if (sqlite3_step(o_Stmt.get()) != SQLITE_DONE) {
      syslog(LOG_WARNING, "ErrorHandler_CL::f_Ack->error step a_c_SqlCmd - %s - %s\n",
             f_WithCode(z_c_UpdFmt, i_Code).c_str(), f_DbErrMsg());
      o_Stmt.reset();
      f_RollbackSqlTransaction();
      return -1;
    }
  }
  f_CommitSqlTransaction();
  f_CheckForNonAckErrors();
  f_Signal("acksysfault", g_variant_new("(ii)", i_Code, f_CodedNr(i_LastErrCode, i_LastErrClass)));
  return 0;
}

int ErrorHandler_CL::f_Ack(const char* z_c_CodedErr) {
  const int i_Coded = f_CodedFromText(z_c_CodedErr);
  // Class 1 errors need the service's own action (a restart or a cleared list).
  if ((i_Coded & 7) == 1) return -1;
  return f_Ack(i_Coded >> 3);
}

int ErrorHandler_CL::f_AckError(int i_CodedErr) {
  char a_c_Code[16];
  std::snprintf(a_c_Code, sizeof(a_c_Code), "%d", i_CodedErr);
  return f_Ack(a_c_Code);
}

int ErrorHandler_CL::f_AckErrList() {
  std::vector<int> o_Codes;
  {
    SqlStmt_T o_Stmt;
    if (f_Prepare(z_o_DB, A_C_COLLECTIVE_CMD, o_Stmt) != SQLITE_OK) {
      syslog(LOG_WARNING, "ErrorHandler_CL::f_Ack->sqlite3_prepare <%s> - %s\n", A_C_COLLECTIVE_CMD,
             f_DbErrMsg());
      return -1;
    }
    while (sqlite3_step(o_Stmt.get()) == SQLITE_ROW) {
      int i_Code = sqlite3_column_int(o_Stmt.get(), 0);
      syslog(LOG_INFO, "ErrorHandler_CL::f_AckErrList->ErrNr->%d needs to be acknowlegded", i_Code);
      o_Codes.push_back(i_Code);
    }
  }
  // Acknowledging by code also takes rows of other classes (but 1) that share the code.
  for (int i_Code : o_Codes) {
    syslog(LOG_INFO, "ErrorHandler_CL::f_AckErrList->Ack error %d", i_Code);
    f_Ack(i_Code);
  }
  return 0;
}

int ErrorHandler_CL::f_ActiveErrorsToJson(char** z_c_Json) {
  if (z_c_Json == nullptr) return -1;
  *z_c_Json = nullptr;
  CJsonTree_T o_Root(cJSON_CreateObject());
  if (!o_Root) {
    syslog(LOG_CRIT, "cJSON_CreateObject->NULL");
    return -1;
  }
  cJSON* z_o_Errors = cJSON_AddArrayToObject(o_Root.get(), "errors");
  if (z_o_Errors == nullptr) return -1;

  SqlStmt_T o_Stmt;
  if (f_Prepare(z_o_DB, A_C_ACTIVE_CMD, o_Stmt) != SQLITE_OK) {
    syslog(LOG_WARNING,
           "ErrorHandler_CL::f_CheckForNonAckErrors->error prepare a_c_SqlCmd = %s - %s\n",
           A_C_ACTIVE_CMD, f_DbErrMsg());
    return -1;
  }
  while (sqlite3_step(o_Stmt.get()) == SQLITE_ROW) {
    cJSON* z_o_Item = cJSON_CreateObject();
    if (z_o_Item == nullptr) return -1;
    cJSON_AddItemToArray(z_o_Errors, z_o_Item);
    cJSON_AddNumberToObject(z_o_Item, "code", sqlite3_column_int(o_Stmt.get(), 0));
    cJSON_AddNumberToObject(z_o_Item, "class", sqlite3_column_int(o_Stmt.get(), 1));
    cJSON_AddNumberToObject(z_o_Item, "date", sqlite3_column_int(o_Stmt.get(), 2));
  }
  *z_c_Json = cJSON_PrintUnformatted(o_Root.get());
  return *z_c_Json != nullptr ? 0 : -1;
}

int ErrorHandler_CL::f_SysErrorGet(int* i_Code, int* i_Class, int* i_Date) {
  if (i_Code != nullptr) *i_Code = i_LastErrCode;
  if (i_Class != nullptr) *i_Class = i_LastErrClass;
  if (i_Date != nullptr) *i_Date = i_LastErrDate;
  return 0;
}

// --- readiness ---------------------------------------------------------------------------

bool ErrorHandler_CL::f_SetRdyFlag(int i_Nr) {
  if (z_o_ErrShMem == nullptr) return false;
  if (f_RdyFlagNrOk(i_Nr)) z_o_ErrShMem->ui_RdyIst = z_o_ErrShMem->ui_RdyIst | (1u << i_Nr);
  return z_o_ErrShMem->ui_RdyIst == z_o_ErrShMem->ui_RdySoll;
}

bool ErrorHandler_CL::f_ResetRdyFlag(int i_Nr) {
  if (z_o_ErrShMem == nullptr) return false;
  if (f_RdyFlagNrOk(i_Nr)) z_o_ErrShMem->ui_RdyIst = z_o_ErrShMem->ui_RdyIst & ~(1u << i_Nr);
  return z_o_ErrShMem->ui_RdyIst == z_o_ErrShMem->ui_RdySoll;
}

bool ErrorHandler_CL::f_IsRdyFlagSet(int i_Nr) {
  const uint32_t ui_Soll =
      z_o_ErrShMem != nullptr ? z_o_ErrShMem->ui_RdySoll : z_o_RdyStatus->f_GetRdySoll();
  if (!f_RdyFlagNrOk(i_Nr) || (ui_Soll & (1u << i_Nr)) == 0) return true;
  return z_o_ErrShMem != nullptr && (z_o_ErrShMem->ui_RdyIst & (1u << i_Nr)) != 0;
}

int ErrorHandler_CL::f_RdyGet(int* i_RdyIst, int* i_RdySoll) {
  if (z_o_ErrShMem == nullptr) return -1;
  const uint32_t ui_Soll = z_o_ErrShMem->ui_RdySoll;
  if (i_RdyIst != nullptr) *i_RdyIst = static_cast<int>(z_o_ErrShMem->ui_RdyIst & ui_Soll);
  if (i_RdySoll != nullptr) *i_RdySoll = static_cast<int>(ui_Soll);
  return 0;
}

int ErrorHandler_CL::f_SysErrorGet(int* i_CodedErr) {
  if (z_o_ErrShMem == nullptr) return -1;
  if (i_CodedErr != nullptr) *i_CodedErr = z_o_ErrShMem->i_CurError;
  return 0;
}

int ErrorHandler_CL::f_DumpRdy() {
  const int i_Soll = z_o_ErrShMem != nullptr ? static_cast<int>(z_o_ErrShMem->ui_RdySoll) : 0;
  const int i_Ist = z_o_ErrShMem != nullptr ? static_cast<int>(z_o_ErrShMem->ui_RdyIst) : 0;
  syslog(LOG_INFO, "RdySoll: %d, RdyIst: %d\n", i_Soll, i_Ist);
  for (const auto& o_Flag : z_o_RdyStatus->f_GetRdySollStatusList()) {
    syslog(LOG_INFO, "Flag: %d\tName: %s\t\tSoll: %d\tIst: %d\n", o_Flag->f_GetNr(),
           o_Flag->f_GetName(), o_Flag->f_GetStatus() ? 1 : 0,
           f_IsRdyFlagSet(o_Flag->f_GetNr()) ? 1 : 0);
  }
  return 0;
}

void ErrorHandler_CL::f_RdyChecker(void*) { f_RdyChecker(); }

void ErrorHandler_CL::f_RdyChecker() {
  if (z_o_ErrShMem == nullptr) return;
  const uint32_t ui_Soll = z_o_ErrShMem->ui_RdySoll;
  const uint32_t ui_Ist = z_o_ErrShMem->ui_RdyIst;
  const bool b_Ready = (ui_Ist & ui_Soll) == ui_Soll;

  // Output and signal only on a change: the peers react to edges, and a flag that drops
  // and comes back between two ticks is no change for them.
  if (b_Ready == b_RdyAlt) return;
  z_o_BmsIo->f_Out(I_BMS_OUT_READY, b_Ready);
  syslog(LOG_INFO, "f_RdyChecker - Soll: %d, Ist: %d", static_cast<int>(ui_Soll),
         static_cast<int>(ui_Ist));
  f_Signal("rdychanged", g_variant_new("(ii)", static_cast<gint32>(ui_Ist & ui_Soll),
                                       static_cast<gint32>(ui_Soll)));
  b_RdyAlt = b_Ready;
  if (b_Ready && b_Startup) {
    // The user interface starts at normal priority so that booting is not slowed; from
    // the first ready moment on it must stay responsive while the tool works. The call
    // waits for the interface's reply, up to the bus's call time-out: the loop does not.
    if (f_SysCmdAsync(A_C_RENICE_CMD) != 0)
      syslog(LOG_WARNING, "f_RdyChecker - renice of the user interface failed");
    b_Startup = false;
  }
}
