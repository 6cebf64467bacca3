// Readiness: the required flags from "rdystatus.json", the error segment that carries
// both readiness words, the flag operations and the comparison step behind output 17.
#include "RdyStatus.h"

#include <cjson/cJSON.h>
#include <syslog.h>

#include "ErrorHandler.h"
#include "SysSrvNames.h"
#include "sysLib/Bms.h"
#include "sysLib/ConfigFile.h"
#include "sysLib/SysCmd.h"
#include "sysLib/SysExcpt.h"

namespace {

// Raises the user interface's priority once the tool is first ready to work.
constexpr const char* A_C_RENICE_CMD =
    "dbus-send --system --print-reply --dest=com.torvane.akku.GUIService /GUI "
    "com.torvane.akku.gui.setNice int32:-15";

bool f_FlagNrOk(int i_Nr) { return i_Nr >= 0 && i_Nr < 32; }
}  // namespace

// --- configured flags ------------------------------------------------------------------

RdySollStatus_CL::RdySollStatus_CL(int i_Nr, const char* z_c_Name, bool b_Status)
    : i_Nr(i_Nr), str_Name(z_c_Name != nullptr ? z_c_Name : ""), b_Status(b_Status) {
  syslog(LOG_INFO, "RdySollStatus_CL::RdySollStatus_CL - i_Nr: %d, z_c_Name: %s, b_Status: %d",
         this->i_Nr, str_Name.c_str(), this->b_Status ? 1 : 0);
}

RdyStatus_CL::RdyStatus_CL() {
  if (f_ReadRdySoll() != 0) throw new SysExcpt_CL(4, "RdyStatus_CL::f_ReadRdySoll", false);
}

int RdyStatus_CL::f_ReadRdySoll() {
  cJSON* z_o_Raw = nullptr;
  if (f_ReadJsonCfgFile(A_C_RDY_STATUS_SOLL_PATH, &z_o_Raw) != 0) {
    syslog(LOG_WARNING, "RdyStatus_CL::f_ReadRdySoll f_ReadJsonCfgFile error");
    cJSON_Delete(z_o_Raw);
    return -1;
  }
  CJsonTree_T o_Tree(z_o_Raw);

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
    if (b_Required && f_FlagNrOk(i_Nr)) ui_RdySoll |= 1u << i_Nr;

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

// --- error segment -----------------------------------------------------------------------

ErrorShMem_CL::ErrorShMem_CL() : ShMem_CL(A_C_ERROR_SHMEM_NAME, UI_ERROR_SHMEM_SIZE) {
  if (f_IsShMemRdy()) z_o_ErrShMem = static_cast<ErrorShMemData_ST*>(f_GetShMem());
}

unsigned char ErrorShMem_CL::f_IsSmod() const {
  return z_o_ErrShMem != nullptr ? z_o_ErrShMem->uc_Smod : 0;
}

// --- flags and the comparison step ---------------------------------------------------------

bool ErrorHandler_CL::f_SetRdyFlag(int i_Nr) {
  if (z_o_ErrShMem == nullptr) return false;
  if (f_FlagNrOk(i_Nr)) z_o_ErrShMem->ui_RdyIst = z_o_ErrShMem->ui_RdyIst | (1u << i_Nr);
  return z_o_ErrShMem->ui_RdyIst == z_o_ErrShMem->ui_RdySoll;
}

bool ErrorHandler_CL::f_ResetRdyFlag(int i_Nr) {
  if (z_o_ErrShMem == nullptr) return false;
  if (f_FlagNrOk(i_Nr)) z_o_ErrShMem->ui_RdyIst = z_o_ErrShMem->ui_RdyIst & ~(1u << i_Nr);
  return z_o_ErrShMem->ui_RdyIst == z_o_ErrShMem->ui_RdySoll;
}

bool ErrorHandler_CL::f_IsRdyFlagSet(int i_Nr) {
  const uint32_t ui_Soll =
      z_o_ErrShMem != nullptr ? z_o_ErrShMem->ui_RdySoll : z_o_RdyStatus->f_GetRdySoll();
  if (!f_FlagNrOk(i_Nr) || (ui_Soll & (1u << i_Nr)) == 0) return true;
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
  if (!b_Ready && b_RdyAlt) {
    z_o_Bms->f_Out(I_BMS_OUT_READY, false);
    syslog(LOG_INFO, "f_RdyChecker - Soll: %d, Ist: %d", static_cast<int>(ui_Soll),
           static_cast<int>(ui_Ist));
    f_Signal("rdychanged", g_variant_new("(ii)", static_cast<gint32>(ui_Ist & ui_Soll),
                                         static_cast<gint32>(ui_Soll)));
    b_RdyAlt = false;
  } else if (b_Ready && !b_RdyAlt) {
    z_o_Bms->f_Out(I_BMS_OUT_READY, true);
    syslog(LOG_INFO, "f_RdyChecker - Soll: %d, Ist: %d", static_cast<int>(ui_Soll),
           static_cast<int>(ui_Ist));
    f_Signal("rdychanged", g_variant_new("(ii)", static_cast<gint32>(ui_Ist & ui_Soll),
                                         static_cast<gint32>(ui_Soll)));
    b_RdyAlt = true;
    if (b_Startup) {
      // The user interface starts at normal priority so that booting is not slowed; from
      // the first ready moment on it must stay responsive while the tool works. The call
      // waits for the interface's reply, up to the bus's call time-out: the loop does not.
      if (f_SysCmdAsync(A_C_RENICE_CMD) != 0)
        syslog(LOG_WARNING, "f_RdyChecker - renice of the user interface failed");
      b_Startup = false;
    }
  }
}
