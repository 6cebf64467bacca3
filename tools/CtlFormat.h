#pragma once
// Turning the service's numbers into words: error meanings, battery states, readiness
// flags by name, times, and one readable line (or JSON object) per bus signal.
#include <glib.h>

#include <cstdint>
#include <string>
#include <vector>

#include "CliFlags.h"
#include "CtlCommon.h"

// What the service's own coded error numbers mean; null for any other number.
const char* f_ErrorMeaning(int i_Coded);
// "battery low" for the service's own errors, "-" for the rest.
std::string f_ErrorMeaningText(int i_Coded);
// "3228 (code 403, class 4)".
std::string f_ErrorNrText(int i_Code, int i_Class);

// Battery status 0..5 in words.
const char* f_BattStatusText(int i_Status);

// Readiness flag names from "rdystatus.json" (the logical path, root-mapped in a sandbox).
constexpr const char* A_C_RDY_CFG = "/home/tool/config/log/rdystatus.json";
// Empty when the file is missing or unusable; *z_b_Found tells which.
FlagNames_T f_ReadFlagNames(bool* z_b_Found = nullptr);
// A JSON array of {"nr", "name"} for the set bits of a word.
cJSON* f_FlagArray(uint32_t ui_Word, const FlagNames_T& o_Names);

// Local date and time of seconds since 1970: "2025-11-21 14:03:07".
std::string f_DateText(gint64 i_Seconds);
// Now, for monitor lines: "14:03:07.512" and ISO 8601 with the zone for JSON.
std::string f_NowText();
std::string f_NowIso();

// One active error of "fgetunacknsyserrors".
struct ActiveError_ST {
  int i_Code;
  int i_Class;
  gint64 i_Date;
};
// Parses the service's list; an unreadable text throws I_EXIT_BUS.
std::vector<ActiveError_ST> f_ParseActiveErrors(const char* z_c_Json);

// One signal of the interface made readable.
struct SignalView_ST {
  std::string str_Text;  // decoded arguments in words, may be empty
  Json_T o_Args;         // the same as a JSON object with named members
};
SignalView_ST f_DecodeSignal(const char* z_c_Name, GVariant* o_Args, const FlagNames_T& o_Names);
