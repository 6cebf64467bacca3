#pragma once
// The bridge's on-disk queue of events not yet acknowledged by the broker. Every event goes
// through it, connected or not, so the order on the broker is the order of the queue, and
// an event survives a restart of the bridge or of the tool until the broker has taken it.
#include <cstdint>
#include <string>
#include <vector>

struct sqlite3;

struct QueuedEvent_ST {
  int64_t i_Seq;  // the event's sequence number, never reused
  std::string str_Topic;
  std::string str_Payload;
};

class EventQueue_CL {
 public:
  EventQueue_CL(long l_MaxEvents, long l_MaxAgeS);
  ~EventQueue_CL();
  EventQueue_CL(const EventQueue_CL&) = delete;
  EventQueue_CL& operator=(const EventQueue_CL&) = delete;

  // Opens (creates) the database at a file-system path; false with a log line on failure.
  bool f_Open(const std::string& str_Path);
  // Appends an event; the sequence number and time stamp are merged into the JSON object
  // str_Body. Returns the sequence number, 0 when the event could not be stored.
  int64_t f_Push(const std::string& str_Topic, const std::string& str_Body, int64_t i_NowMs);
  // Up to ui_Max events with a sequence number above i_After, oldest first.
  std::vector<QueuedEvent_ST> f_Next(int64_t i_After, size_t ui_Max);
  // The broker has the event: forget it.
  void f_Remove(int64_t i_Seq);
  // Drops what is older than the age limit; returns how many.
  long f_DropExpired(int64_t i_NowMs);
  long f_Count() const { return l_Count; }

 private:
  bool f_Exec(const char* z_c_Sql);
  long f_DropOldest(long l_N);
  sqlite3* z_o_Db = nullptr;
  long l_MaxEvents;
  long l_MaxAgeS;
  long l_Count = 0;
};

// "2026-11-24T15:04:05.123Z": UTC, milliseconds.
std::string f_IsoTime(int64_t i_Ms);
