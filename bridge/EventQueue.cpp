// The bounded SQLite queue of the bridge.
#include "EventQueue.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <sqlite3.h>
#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <memory>

namespace {

struct StmtDelete_ST {
  void operator()(sqlite3_stmt* z_o_Stmt) const { sqlite3_finalize(z_o_Stmt); }
};
using Stmt_T = std::unique_ptr<sqlite3_stmt, StmtDelete_ST>;

Stmt_T f_Prepare(sqlite3* z_o_Db, const char* z_c_Sql) {
  sqlite3_stmt* z_o_Stmt = nullptr;
  if (sqlite3_prepare_v2(z_o_Db, z_c_Sql, -1, &z_o_Stmt, nullptr) != SQLITE_OK) {
    syslog(LOG_ERR, "bridge queue: cannot prepare statement: %s", sqlite3_errmsg(z_o_Db));
    return Stmt_T();
  }
  return Stmt_T(z_o_Stmt);
}

}  // namespace

std::string f_IsoTime(int64_t i_Ms) {
  time_t i_S = static_cast<time_t>(i_Ms / 1000);
  struct tm o_Tm;
  gmtime_r(&i_S, &o_Tm);
  char a_c_Buf[96];
  std::snprintf(a_c_Buf, sizeof(a_c_Buf), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ",
                o_Tm.tm_year + 1900, o_Tm.tm_mon + 1, o_Tm.tm_mday, o_Tm.tm_hour, o_Tm.tm_min,
                o_Tm.tm_sec, static_cast<int>(i_Ms % 1000));
  return a_c_Buf;
}

EventQueue_CL::EventQueue_CL(long l_MaxEvents, long l_MaxAgeS)
    : l_MaxEvents(l_MaxEvents), l_MaxAgeS(l_MaxAgeS) {}

EventQueue_CL::~EventQueue_CL() {
  if (z_o_Db != nullptr) sqlite3_close(z_o_Db);
}

bool EventQueue_CL::f_Exec(const char* z_c_Sql) {
  char* z_c_Err = nullptr;
  if (sqlite3_exec(z_o_Db, z_c_Sql, nullptr, nullptr, &z_c_Err) == SQLITE_OK) return true;
  syslog(LOG_ERR, "bridge queue: %s", z_c_Err != nullptr ? z_c_Err : "error");
  sqlite3_free(z_c_Err);
  return false;
}

bool EventQueue_CL::f_Open(const std::string& str_Path) {
  // The package makes the directory; a tool image without it still gets a queue.
  gchar* z_c_Dir = g_path_get_dirname(str_Path.c_str());
  if (g_mkdir_with_parents(z_c_Dir, 0750) != 0)
    syslog(LOG_WARNING, "bridge queue: cannot make %s: %s", z_c_Dir, g_strerror(errno));
  g_free(z_c_Dir);
  if (sqlite3_open(str_Path.c_str(), &z_o_Db) != SQLITE_OK) {
    syslog(LOG_ERR, "bridge queue: cannot open %s: %s", str_Path.c_str(),
           z_o_Db != nullptr ? sqlite3_errmsg(z_o_Db) : "out of memory");
    return false;
  }
  sqlite3_busy_timeout(z_o_Db, 2000);
  // WAL with full sync: a committed event survives the process being killed and the tool
  // losing power; AUTOINCREMENT keeps sequence numbers from being reused after the queue
  // has run empty, so a dashboard never mistakes a new event for a duplicate.
  if (!f_Exec("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
              "CREATE TABLE IF NOT EXISTS events (seq INTEGER PRIMARY KEY AUTOINCREMENT,"
              " ts INTEGER NOT NULL, topic TEXT NOT NULL, payload TEXT NOT NULL);"))
    return false;
  Stmt_T o_Count = f_Prepare(z_o_Db, "SELECT COUNT(*) FROM events");
  if (!o_Count || sqlite3_step(o_Count.get()) != SQLITE_ROW) return false;
  l_Count = static_cast<long>(sqlite3_column_int64(o_Count.get(), 0));
  if (l_Count > 0) syslog(LOG_INFO, "bridge queue: %ld events kept from before", l_Count);
  return true;
}

int64_t EventQueue_CL::f_Push(const std::string& str_Topic, const std::string& str_Body,
                              int64_t i_NowMs) {
  if (z_o_Db == nullptr) return 0;
  if (l_Count >= l_MaxEvents) {
    long l_Dropped = f_DropOldest(l_Count - l_MaxEvents + 1);
    syslog(LOG_WARNING, "bridge queue: full (%ld events), dropped the %ld oldest", l_MaxEvents,
           l_Dropped);
  }
  // The sequence number is the row id, known only after the insert; the payload is finished
  // in the same transaction so that no reader ever sees it without its number.
  if (!f_Exec("BEGIN IMMEDIATE")) return 0;
  Stmt_T o_Ins = f_Prepare(z_o_Db, "INSERT INTO events (ts, topic, payload) VALUES (?, ?, '')");
  if (!o_Ins) {
    f_Exec("ROLLBACK");
    return 0;
  }
  sqlite3_bind_int64(o_Ins.get(), 1, i_NowMs);
  sqlite3_bind_text(o_Ins.get(), 2, str_Topic.c_str(), -1, SQLITE_TRANSIENT);
  if (sqlite3_step(o_Ins.get()) != SQLITE_DONE) {
    syslog(LOG_ERR, "bridge queue: cannot store an event: %s", sqlite3_errmsg(z_o_Db));
    f_Exec("ROLLBACK");
    return 0;
  }
  int64_t i_Seq = sqlite3_last_insert_rowid(z_o_Db);
  std::string str_Payload = "{\"seq\":" + std::to_string(i_Seq) + ",\"ts\":\"" +
                            f_IsoTime(i_NowMs) + "\"" +
                            (str_Body.size() > 2 ? "," + str_Body.substr(1) : "}");
  Stmt_T o_Upd = f_Prepare(z_o_Db, "UPDATE events SET payload = ? WHERE seq = ?");
  if (!o_Upd) {
    f_Exec("ROLLBACK");
    return 0;
  }
  sqlite3_bind_text(o_Upd.get(), 1, str_Payload.c_str(), -1, SQLITE_TRANSIENT);
  sqlite3_bind_int64(o_Upd.get(), 2, i_Seq);
  if (sqlite3_step(o_Upd.get()) != SQLITE_DONE || !f_Exec("COMMIT")) {
    syslog(LOG_ERR, "bridge queue: cannot store an event: %s", sqlite3_errmsg(z_o_Db));
    f_Exec("ROLLBACK");
    return 0;
  }
  l_Count++;
  return i_Seq;
}

std::vector<QueuedEvent_ST> EventQueue_CL::f_Next(int64_t i_After, size_t ui_Max) {
  std::vector<QueuedEvent_ST> o_Out;
  if (z_o_Db == nullptr) return o_Out;
  Stmt_T o_Sel = f_Prepare(
      z_o_Db, "SELECT seq, topic, payload FROM events WHERE seq > ? ORDER BY seq LIMIT ?");
  if (!o_Sel) return o_Out;
  sqlite3_bind_int64(o_Sel.get(), 1, i_After);
  sqlite3_bind_int64(o_Sel.get(), 2, static_cast<sqlite3_int64>(ui_Max));
  while (sqlite3_step(o_Sel.get()) == SQLITE_ROW) {
    o_Out.push_back({sqlite3_column_int64(o_Sel.get(), 0),
                     reinterpret_cast<const char*>(sqlite3_column_text(o_Sel.get(), 1)),
                     reinterpret_cast<const char*>(sqlite3_column_text(o_Sel.get(), 2))});
  }
  return o_Out;
}

void EventQueue_CL::f_Remove(int64_t i_Seq) {
  if (z_o_Db == nullptr) return;
  Stmt_T o_Del = f_Prepare(z_o_Db, "DELETE FROM events WHERE seq = ?");
  if (!o_Del) return;
  sqlite3_bind_int64(o_Del.get(), 1, i_Seq);
  if (sqlite3_step(o_Del.get()) != SQLITE_DONE)
    syslog(LOG_ERR, "bridge queue: cannot remove event %lld: %s", static_cast<long long>(i_Seq),
           sqlite3_errmsg(z_o_Db));
  else if (sqlite3_changes(z_o_Db) > 0)
    l_Count--;
}

long EventQueue_CL::f_DropOldest(long l_N) {
  Stmt_T o_Del = f_Prepare(
      z_o_Db, "DELETE FROM events WHERE seq IN (SELECT seq FROM events ORDER BY seq LIMIT ?)");
  if (!o_Del) return 0;
  sqlite3_bind_int64(o_Del.get(), 1, l_N);
  if (sqlite3_step(o_Del.get()) != SQLITE_DONE) return 0;
  long l_Dropped = sqlite3_changes(z_o_Db);
  l_Count -= l_Dropped;
  return l_Dropped;
}

long EventQueue_CL::f_DropExpired(int64_t i_NowMs) {
  if (z_o_Db == nullptr) return 0;
  Stmt_T o_Del = f_Prepare(z_o_Db, "DELETE FROM events WHERE ts < ?");
  if (!o_Del) return 0;
  sqlite3_bind_int64(o_Del.get(), 1, i_NowMs - static_cast<int64_t>(l_MaxAgeS) * 1000);
  if (sqlite3_step(o_Del.get()) != SQLITE_DONE) return 0;
  long l_Dropped = sqlite3_changes(z_o_Db);
  l_Count -= l_Dropped;
  if (l_Dropped > 0)
    syslog(LOG_WARNING, "bridge queue: dropped %ld events older than %ld s", l_Dropped, l_MaxAgeS);
  return l_Dropped;
}
