// Readiness: the required flags from "rdystatus.json". The error handler keeps the
// readiness words in the error segment and compares them (src/ErrorHandler.cpp).
#include "RdyStatus.h"

#include <cjson/cJSON.h>
#include <syslog.h>

#include "sysLib/ConfigFile.h"
#include "sysLib/SysExcpt.h"

// --- configured flags ------------------------------------------------------------------

RdySollStatus_CL::RdySollStatus_CL(int i_FlagNr, const char* z_c_Name, bool b_Required)
    : i_Nr(i_FlagNr), str_Name(z_c_Name != nullptr ? z_c_Name : ""), b_Status(b_Required) {
  syslog(LOG_INFO, "RdySollStatus_CL::RdySollStatus_CL - i_Nr: %d, z_c_Name: %s, b_Status: %d",
         i_Nr, str_Name.c_str(), b_Status ? 1 : 0);
}

RdyStatus_CL::RdyStatus_CL() {
  if (f_ReadRdySoll() != 0) throw new SysExcpt_CL(4, "RdyStatus_CL::f_ReadRdySoll", false);
}

int RdyStatus_CL::f_ReadRdySoll() {
  cJSON* z_o_Raw = nullptr;
  const int i_ReadRc = f_ReadJsonCfgFile(A_C_RDY_STATUS_SOLL_PATH, &z_o_Raw);
  CJsonTree_T o_Tree(z_o_Raw);
  if (i_ReadRc != 0) {
    syslog(LOG_WARNING, "RdyStatus_CL::f_ReadRdySoll f_ReadJsonCfgFile error");
    return -1;
  }

  const cJSON* z_o_Flags = cJSON_GetObjectItem(o_Tree.get(), A_C_RDY_KEY_FLAG);
  if (z_o_Flags == nullptr) {
    syslog(LOG_CRIT, "RdyStatus_CL::f_ReadRdySoll key: '%s' not found", A_C_RDY_KEY_FLAG);
    return -1;
  }
  if (!cJSON_IsArray(z_o_Flags)) {
    syslog(LOG_CRIT, "RdyStatus_CL::f_ReadRdySoll key: '%s' type: '%d' is not an array",
           A_C_RDY_KEY_FLAG, z_o_Flags->type);
    return -1;
  }

  const int i_NrFlags = cJSON_GetArraySize(z_o_Flags);
  syslog(LOG_INFO, "RdyStatus_CL::f_ReadRdySoll - i_NrFlags %d", i_NrFlags);
  int i_Idx = 0;
  for (const cJSON* z_o_Item = z_o_Flags->child; i_Idx < i_NrFlags;
       ++i_Idx, z_o_Item = z_o_Item != nullptr ? z_o_Item->next : nullptr) {
    if (!cJSON_IsObject(z_o_Item)) {
      syslog(LOG_WARNING, "RdyStatus_CL::f_ReadRdySoll - error reading array item nr %d", i_Idx);
      continue;
    }
    // A number is required for both: text or true in their place would otherwise read
    // as flag 0 or as "not required" without a word in the log.
    const cJSON* z_o_Nr = cJSON_GetObjectItem(z_o_Item, A_C_RDY_KEY_NR);
    if (!cJSON_IsNumber(z_o_Nr)) {
      syslog(LOG_WARNING, "RdyStatus_CL item %d - key: '%s' not found", i_Idx, A_C_RDY_KEY_NR);
      continue;
    }
    const cJSON* z_o_State = cJSON_GetObjectItem(z_o_Item, A_C_RDY_KEY_STATE);
    if (!cJSON_IsNumber(z_o_State)) {
      syslog(LOG_WARNING, "RdyStatus_CL item %d - key: '%s' not found", i_Idx, A_C_RDY_KEY_STATE);
      continue;
    }
    const int i_Nr = z_o_Nr->valueint;
    const bool b_Required = z_o_State->valueint != 0;
    // Numbers outside the 32 flags of the word require nothing.
    if (b_Required && f_RdyFlagNrOk(i_Nr)) ui_RdySoll |= 1u << i_Nr;

    // The bit above stays even for an entry without a name: the requirement is what
    // matters to readiness, the name only to the dump.
    const cJSON* z_o_Name = cJSON_GetObjectItem(z_o_Item, A_C_RDY_KEY_PROCNAME);
    if (!cJSON_IsString(z_o_Name) || z_o_Name->valuestring == nullptr) {
      syslog(LOG_WARNING, "RdyStatus_CL::f_ReadRdySoll - Item: %d - key: '%s' not found", i_Idx,
             A_C_RDY_KEY_PROCNAME);
      continue;
    }
    o_List.push_back(std::make_unique<RdySollStatus_CL>(i_Nr, z_o_Name->valuestring, b_Required));
  }
  return 0;
}
