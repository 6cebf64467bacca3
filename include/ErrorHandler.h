#pragma once
// System errors and readiness: the persistent error list, acknowledgement, readiness.
#include <gio/gio.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "RdyStatus.h"
#include "sysLib/ErrorShMem.h"
#include "sysLib/ShMem.h"

struct SysObj;
struct sqlite3;
struct sqlite3_stmt;
class Bms_CL;

// The error segment "/ErrorShMem": current coded error, RdySoll, RdyIst, Smod byte.
class ErrorShMem_CL : public ShMem_CL {
 public:
  ErrorShMem_CL();

  // The Smod byte: another process sets it to 1 to make the periodic checker skip the
  // temperature check. 0 while the segment is not mapped.
  unsigned char f_IsSmod() const;

 protected:
  // Null when the segment could not be mapped. Volatile: other processes change it.
  volatile ErrorShMemData_ST* z_o_ErrShMem = nullptr;
};

// The service's error store and readiness: one instance, reached through z_o_ErrorHandler.
class ErrorHandler_CL : public ErrorShMem_CL {
 public:
  static constexpr const char* A_C_CFG_PATH = "/home/tool/config/log/syserror.json";
  static constexpr const char* A_C_DEFAULT_DB_PATH = "/mnt/log/syserrors.sq3";
  static constexpr int i_DefaultMaxErrors = 512;
  static constexpr int I_BUSY_TIMEOUT_MS = 10000;
  // Every SQL text is formatted into a buffer of this size.
  static constexpr size_t UI_SQL_CMD_SIZE = 128;
  // Reports whose row could not be written wait in memory, at most this many.
  static constexpr size_t UI_MAX_PENDING = 64;
  // Longest process name stored with a report, in bytes: the bus sets no limit, the
  // flash the database lives on does.
  static constexpr size_t UI_MAX_PROC_LEN = 1024;
  static constexpr const char* a_c_InsertErrorCmd =
      "INSERT INTO "
      "syserrors(id,date,proc,code,class,ack)VALUES(:id,:date,:proc,:code,:class,:ack);";

  // Reads "rdystatus.json" and "syserror.json", opens the database and attaches itself to
  // the process's error object. Throws SysExcpt_CL* when Bms_CL is null, when the readiness
  // table cannot be read, or when the database cannot be opened. The middle argument is
  // not used.
  ErrorHandler_CL(SysObj* z_o_Obj, unsigned long ul_Unused, Bms_CL* z_o_BmsObj);
  virtual ~ErrorHandler_CL();
  ErrorHandler_CL(const ErrorHandler_CL&) = delete;
  ErrorHandler_CL& operator=(const ErrorHandler_CL&) = delete;

  // --- configuration and database -------------------------------------------------
  int f_ReadCfg();
  void f_UseDefaultConfig();
  void f_UseDefaultDBPath();
  void f_UseDefaultMaxErrors();
  // 0, or -1..-9 naming the step of the open that failed.
  int f_DBOpen();
  int f_DBClose();
  // Deletes the acknowledged rows while errors are active, otherwise recreates the file.
  int f_DBRemove();
  // f_DBOpen, and when the file cannot serve as the list (not a database, damaged, read-only,
  // a directory, its directory missing): moved aside as "<path>.corrupt-<unix time>" and a new
  // one made; as a last resort the list is kept in memory. 0 once a store works, 1 when
  // another process holds the file (it is opened from the tick once free), -1 otherwise.
  int f_DBOpenOrRecover();
  // Reloads the configuration and reopens the database when z_c_Path is the
  // configuration file's logical path. Always 0.
  int f_CfgFileChanged(const char* z_c_Path);

  // --- storing errors -----------------------------------------------------------------
  // z_c_Code: coded error number (code * 8 + class) as decimal text.
  // 0 stored, duplicate, or overwrite step failure; -1 prepare failure; -2 insert failure.
  int f_Insert(const char* z_c_Proc, const char* z_c_Code);
  // The service's own errors, reported as "SysSrv.elf".
  int f_InsertError(int i_CodedErr);
  // Writes the reports whose row could not be written, oldest first, without waiting for
  // a database another process holds; called from every tick. Each stored report takes the
  // path of a new report (current error, readiness, "sysfault").
  void f_RetryPending();
  size_t f_PendingCount() const { return o_Pending.size(); }
  int f_BeginSqlTransaction();
  int f_CommitSqlTransaction();
  int f_RollbackSqlTransaction();

  // --- acknowledgement and reporting --------------------------------------------------
  // Recomputes the current error; 0 when none is active, 1 otherwise (or on a failed query).
  int f_CheckForNonAckErrors();
  // Acknowledges the active rows of i_Code whose class is not 1. 0 or -1.
  int f_Ack(int i_Code);
  // Coded number as text; class 1 is refused with -1.
  int f_Ack(const char* z_c_CodedErr);
  int f_AckError(int i_CodedErr);
  // Collective acknowledgement of classes 0 and 3. 0 or -1.
  int f_AckErrList();
  // {"errors":[{"code":..,"class":..,"date":..},...]} into a new malloc'd text that the
  // caller releases with free(). 0 or -1.
  int f_ActiveErrorsToJson(char** z_c_Json);
  // The current error (code, class, date); (0, 0, 0) when none is active.
  int f_SysErrorGet(int* i_Code, int* i_Class, int* i_Date);

  // --- readiness ----------------------------------------------------------------------
  // Set or clear RdyIst bit i_Nr (0..31); true when RdyIst now equals RdySoll exactly.
  bool f_SetRdyFlag(int i_Nr);
  bool f_ResetRdyFlag(int i_Nr);
  // True when flag i_Nr is not required, otherwise its RdyIst bit.
  bool f_IsRdyFlagSet(int i_Nr);
  // (RdyIst AND RdySoll, RdySoll); -1 while the segment is not mapped.
  int f_RdyGet(int* i_RdyIst, int* i_RdySoll);
  int f_DumpRdy();
  // The comparison step of the periodic checker: output 17, "rdychanged", renice.
  void f_RdyChecker();
  void f_RdyChecker(void* z_v_Unused);
  // The current-error word of the segment; -1 while the segment is not mapped.
  int f_SysErrorGet(int* i_CodedErr);

  const std::string& f_GetDBPath() const { return str_DBPath; }
  int f_GetMaxErrors() const { return i_MaxErrors; }
  int f_GetNrErrors() const { return i_NrErrors; }

 protected:
  // Broadcasts one signal through the service's emit gate; o_Params is a floating tuple.
  virtual void f_Signal(const char* z_c_Name, GVariant* o_Params);

 private:
  // Statements of the paths every report and acknowledgement takes: prepared once per open
  // database, reset after each use, finalized before the database is closed.
  enum en_Sql {
    EN_SQL_DUP,
    EN_SQL_BEGIN,
    EN_SQL_COMMIT,
    EN_SQL_ROLLBACK,
    EN_SQL_OVERWRITE,
    EN_SQL_INSERT,
    EN_SQL_NEWEST_ACTIVE,
    EN_SQL_ACK_FIND,
    EN_SQL_ACK_UPDATE,
    EN_SQL_COUNT
  };
  // The statement of e_Sql, prepared on first use; an SQLite result code.
  int f_Cached(en_Sql e_Sql, sqlite3_stmt** z_z_o_Stmt);
  void f_FinalizeCached();
  int f_RunTransactionCmd(en_Sql e_Sql, const char* z_c_Func, int i_StepError);
  const char* f_DbErrMsg() const;
  void f_SetNoActiveError();

  // One reported error on its way into the list.
  struct Report_ST {
    std::string str_Proc;
    int i_Code;
    int i_Class;
    int i_Date;
  };
  enum class en_Active { NO, YES, UNKNOWN };

  // The steps of f_Insert: the report from the caller's text (an overlong process name
  // cut), the duplicate test, and the write of a report that nothing waits before.
  Report_ST f_NewReport(const char* z_c_Proc, int i_Coded);
  en_Active f_FindDuplicate(int i_Code, bool b_Behind);
  // 0 stored; otherwise the report waits and the write's return code.
  int f_StoreNew(Report_ST o_R);

  int f_DBOpenFile(const std::string& str_File);
  bool f_DBUsable();
  int f_DBRecover();
  // The duplicate test: is an error with this code active? b_NoWait: do not wait for a
  // database held by another process.
  en_Active f_FindActive(int i_Code, bool b_NoWait);
  bool f_IsPending(int i_Code) const;
  // The new error becomes the current one; a class other than 0 withdraws readiness.
  void f_ShowNewError(const Report_ST& o_R);
  // Overwrites the oldest row or inserts one, in the transaction that is open. *z_b_Stored
  // tells whether the statement wrote the row; the result is the insert's return code.
  int f_WriteRow(const Report_ST& o_R, bool* z_b_Stored);
  static void f_BindReport(sqlite3_stmt* z_o_Stmt, const Report_ST& o_R);
  void f_QueueReport(Report_ST o_R);
  // One try at the oldest pending report: true when it left the queue (stored or found a
  // duplicate of an active row).
  bool f_StorePending(const Report_ST& o_R, bool* z_b_Duplicate);
  int f_Exec(const char* z_c_Sql);

  std::unique_ptr<RdyStatus_CL> z_o_RdyStatus;
  // The tool's digital outputs (ready, error); the service's Bms_CL, not owned.
  Bms_CL* z_o_BmsIo;
  SysObj* z_o_SysObj;
  std::string str_DBPath;
  int i_MaxErrors = i_DefaultMaxErrors;
  int i_NrErrors = 0;
  sqlite3* z_o_DB = nullptr;
  sqlite3_stmt* a_z_o_Stmts[EN_SQL_COUNT] = {};
  int i_LastErrCode = 0;
  int i_LastErrClass = 0;
  int i_LastErrDate = 0;
  // Checker memory: the ready state last announced, and whether the first ready moment
  // (and with it the renice of the user interface) is still to come.
  bool b_RdyAlt = false;
  bool b_Startup = true;
  std::deque<Report_ST> o_Pending;
  // A retry that fails for another reason than a busy database is logged once per outage.
  bool b_RetryFailLogged = false;
};

// Bus handlers of the error list and readiness (the dispatcher calls these). Each copes
// with a missing error handler: methods that have an error reply fail, the others answer
// their default.
gboolean f_ReportError(SysObj* z_o_Obj, const char* z_c_Proc, const char* z_c_Code,
                       const char* z_c_Ack, GError** error);
gboolean f_AckErrList(SysObj* z_o_Obj, GError** error);
gboolean f_DelErrList(SysObj* z_o_Obj, GError** error);
// On success *z_c_Json is a malloc'd text the caller releases with free().
gboolean f_GetUnAcknSysErrors(SysObj* z_o_Obj, char** z_c_Json, GError** error);
gboolean f_SysErrorGet(SysObj* z_o_Obj, int* i_Error, int* i_Class, int* i_Date, GError** error);
gboolean f_RdyGet(SysObj* z_o_Obj, int* i_RdyIst, int* i_RdySoll, GError** error);
gboolean f_DumpRdy(SysObj* z_o_Obj, GError** error);
// "frdyflagset" / "frdyflagreset": straight to the error handler, no log line.
void f_BusRdyFlagSet(int i_FlagNr);
void f_BusRdyFlagReset(int i_FlagNr);
// Service-internal callers log first.
gboolean f_RdyFlagSet(SysObj* z_o_Obj, int i_FlagNr, GError** error);
gboolean f_RdyFlagReset(SysObj* z_o_Obj, int i_FlagNr, GError** error);
