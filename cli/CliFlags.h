#pragma once
// Readiness flags by name: the names come from the "flags" array of rdystatus.json, whose
// members carry "nr" and "name".
#include <cjson/cJSON.h>

#include <cstdint>
#include <map>
#include <string>

using FlagNames_T = std::map<int, std::string>;

// Adds the names of a parsed rdystatus.json (null allowed) to o_Names; false when it has
// no "flags" array.
bool f_CollectFlagNames(const cJSON* z_o_Tree, FlagNames_T& o_Names);
// "1 ToolProc, 3 SysSrv" for the set bits of a word, "none" when no bit is set.
std::string f_FlagList(uint32_t ui_Word, const FlagNames_T& o_Names);
