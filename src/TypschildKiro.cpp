// The motor unit's EEPROM nameplate: sector reads with their CRC check, key lookups and
// in-place rewrites of "KEY:VALUE\r\n" lines, the static, dynamic and supplier data, their
// export to the diagnostic store and the save of the cycle counter.
#include "TypschildKiro.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <syslog.h>

#include "SysSrvNames.h"
#include "sysLib/Crc.h"
#include "sysLib/Error.h"
#include "sysLib/Gpio.h"
#include "sysLib/SysDiag.h"

namespace {

enum en_StatKind { EN_STAT_TEXT, EN_STAT_INT, EN_STAT_REAL };

// One key of the static sector and the field it fills; exactly one member pointer is set.
struct StatKey_ST {
  const char* z_c_Key;
  en_StatKind en_Kind;
  std::string TypschildKiroStat_ST::*z_o_Text;
  int TypschildKiroStat_ST::*z_o_Int;
  double TypschildKiroStat_ST::*z_o_Real;
};

constexpr StatKey_ST f_Text(const char* z_c_Key, std::string TypschildKiroStat_ST::*z_o_Field) {
  return {z_c_Key, EN_STAT_TEXT, z_o_Field, nullptr, nullptr};
}
constexpr StatKey_ST f_Int(const char* z_c_Key, int TypschildKiroStat_ST::*z_o_Field) {
  return {z_c_Key, EN_STAT_INT, nullptr, z_o_Field, nullptr};
}
constexpr StatKey_ST f_Real(const char* z_c_Key, double TypschildKiroStat_ST::*z_o_Field) {
  return {z_c_Key, EN_STAT_REAL, nullptr, nullptr, z_o_Field};
}

using Stat_ST = TypschildKiroStat_ST;
const StatKey_ST A_O_STAT_KEY_LIST[] = {
    f_Text("MNR", &Stat_ST::str_Mnr),
    f_Text("Werkskennung", &Stat_ST::str_Werkskennung),
    f_Text("Fertigungsdatum", &Stat_ST::str_Fertigungsdatum),
    f_Text("Seriennummer", &Stat_ST::str_Seriennummer),
    f_Text("Lieferantenkennung", &Stat_ST::str_Lieferantenkennung),
    f_Text("Komponententyp", &Stat_ST::str_Komponententyp),
    f_Real("Gebernennmoment", &Stat_ST::d_Gebernennmoment),
    f_Real("Motornennmoment", &Stat_ST::d_Motornennmoment),
    f_Real("Motornenndrehzahl", &Stat_ST::d_Motornenndrehzahl),
    f_Real("Getriebeuntersetzung", &Stat_ST::d_Getriebeuntersetzung),
    f_Real("Getriebewirkungsgrad", &Stat_ST::d_Getriebewirkungsgrad),
    f_Real("Abtriebuntersetzung", &Stat_ST::d_Abtriebuntersetzung),
    f_Real("Abtriebwirkungsgrad", &Stat_ST::d_Abtriebwirkungsgrad),
    f_Real("Nennmoment", &Stat_ST::d_Nennmoment),
    f_Real("DrehzahlAbweichung", &Stat_ST::d_DrehzahlAbweichung),
    f_Real("MomentLeerlaufMax", &Stat_ST::d_MomentLeerlaufMax),
    f_Text("Code", &Stat_ST::str_Code),
    f_Int("Motorkennung", &Stat_ST::i_Motorkennung),
    f_Int("ImpulseProUmdrehung", &Stat_ST::i_ImpulseProUmdrehung),
    f_Text("AbtriebMNR", &Stat_ST::str_AbtriebMnr),
    f_Text("AbtriebCode", &Stat_ST::str_AbtriebCode),
    f_Int("Nenndrehzahl", &Stat_ST::i_Nenndrehzahl),
    f_Text("GetriebeMNR", &Stat_ST::str_GetriebeMnr),
};

constexpr const char* Z_C_KEY_TIX = "TIX";
constexpr const char* Z_C_KEY_ZYKLUS = "ZyklusNr";
constexpr const char* Z_C_KEY_WARTUNG = "Wartungsintervall";
constexpr const char* Z_C_KEY_LAST = "Lastintegral";
constexpr const char* Z_C_KEY_START_LAST = "StartLastZyklus";

// Supplier keys and the diagnostic parameter ("hardware/<name>") each is exported as.
struct SupplierKey_ST {
  const char* z_c_Key;
  const char* z_c_Param;
};
const SupplierKey_ST A_O_SUPPLIER_STAT_KEY_LIST[] = {
    {"MNR", "mnr"},
    {"Werkskennung", "plant"},
    {"Fertigungsdatum", "date"},
    {"Seriennummer", "serial"},
    {"Lieferantenkennung", "supplier"},
    {"MAC", "mac"},
    {"PCBSeriennummer", "pcbserial"},
};
const SupplierKey_ST A_O_SUPPLIER_DYN_KEY_LIST[] = {
    {"TIX", "tix"},
    {"PwrCtrlVersion", "pwrctrlversion"},
};

// The fields of the older ";" record in their order, with the text each is logged as.
struct OldField_ST {
  const char* z_c_Label;
  const char* z_c_Param;
};
const OldField_ST A_O_OLD_FIELDS[] = {
    {"Supplier->MNr", "mnr"},
    {"Supplier->Werk", "plant"},
    {"Supplier->Fertigungsdatum", "date"},
    {"Supplier->Serienummer", "serial"},
    {"Supplier->Hersteller", "supplier"},
};
// Boards of hardware revision 0 carry no TIX in their supplier data.
constexpr const char* Z_C_OLD_TIX = "AA0";

constexpr const char* Z_C_HW_DIAG_DIR = "hardware";
constexpr unsigned short A_US_HWREV_LINES[] = {112, 113, 114};

constexpr unsigned int UI_LINE_SIZE = 64;  // scratch buffer of one dynamic line

struct FreeDelete_ST {
  void operator()(char* z_c_Text) const { std::free(z_c_Text); }
};

}  // namespace

int f_PrepareDiagString(const char* z_c_Value, unsigned long ul_Len, char** z_z_c_Out) {
  char* z_c_Copy = static_cast<char*>(std::malloc(ul_Len + 1));
  if (z_c_Copy == nullptr) return -1;
  std::memset(z_c_Copy, 0, ul_Len + 1);
  if (ul_Len > 0) std::memcpy(z_c_Copy, z_c_Value, ul_Len);
  *z_z_c_Out = z_c_Copy;
  return 0;
}

TypschildKiro_CL::TypschildKiro_CL() : Typschild_CL(A_C_DEVICE_PATH, UI_SECTOR_SIZE) { f_Read(); }

int TypschildKiro_CL::f_Read() {
  if (f_ReadStatData() != 0) return -1;
  if (f_ReadDynData() != 0) return -1;
  if (f_ReadSupplierData() != 0) return -1;
  return 0;
}

int TypschildKiro_CL::f_Write() {
  if (f_ReadCycleDiagFiles() != 0) return -1;
  return f_SaveDynData();
}

// --- one sector ------------------------------------------------------------------------

int TypschildKiro_CL::f_ReadTypschildSector(int i_SectionOffset, bool b_CheckCrc) {
  syslog(LOG_INFO, "TypschildKiro_CL::f_ReadTypschildSector - i_SectionOffset: %d, b_CheckCrc: %d",
         i_SectionOffset, b_CheckCrc ? 1 : 0);
  if (!a_c_Buffer) return -1;
  {
    File_T o_File = f_OpenDevice("r");
    if (!o_File) {
      syslog(LOG_CRIT, "TypschildKiro_CL::f_ReadTypschildSector - fopen %s - %s",
             f_SysPath(str_Path).c_str(), strerror(errno));
      return -1;
    }
    clearerr(o_File.get());
    if (std::fseek(o_File.get(), i_SectionOffset, SEEK_SET) != 0) {
      syslog(LOG_CRIT, "TypschildKiro_CL::f_ReadTypschildSector - fseek %d - %s", i_SectionOffset,
             strerror(errno));
      return -1;
    }
    // Byte ui_BufSize stays zero: the read never reaches it.
    errno = 0;
    size_t ui_Got = std::fread(a_c_Buffer.get(), 1, ui_BufSize, o_File.get());
    if (ui_Got == 0) {
      syslog(LOG_CRIT, "TypschildKiro_CL::f_ReadTypschildSector - fread %d - %s",
             static_cast<int>(ui_BufSize), strerror(errno));
      return -1;
    }
  }
  if (!b_CheckCrc) return 0;
  if (f_CheckCrc() != 0) {
    // A nameplate that does not match its CRC describes some other tool, or none.
    Error_CL::f_GetErrorObj()->f_Insert(I_SYSERR_NAMEPLATE_CRC);
    return -1;
  }
  syslog(LOG_INFO, "TypschildKiro_CL::f_ReadTypschildSector - CRC OK");
  return 0;
}

int TypschildKiro_CL::f_CheckCrc() {
  if (!a_c_Buffer) return -1;
  const char* z_c_Buf = a_c_Buffer.get();
  const char* z_c_Start = std::strstr(z_c_Buf, Z_C_CRC_START_ID);
  if (z_c_Start == nullptr) {
    syslog(LOG_CRIT, "TypschildKiro_CL::f_CheckCrc - key %s not found", Z_C_CRC_START_ID);
    return -1;
  }
  syslog(LOG_INFO, "TypschildKiro_CL::f_CheckCrc - key %s found", Z_C_CRC_START_ID);
  if (std::strstr(z_c_Buf, Z_C_CRC_END_ID) == nullptr) {
    syslog(LOG_CRIT, "TypschildKiro_CL::f_CheckCrc - key %s not found", Z_C_CRC_END_ID);
    return -1;
  }
  // The hex digits end at the first other character, normally the '*' of the end marker.
  long l_Stored = std::strtol(z_c_Start + std::strlen(Z_C_CRC_START_ID), nullptr, 16);
  long l_Len = z_c_Start - z_c_Buf;
  unsigned short us_Computed = f_crcGet(US_CRC_SEED, z_c_Buf, l_Len);
  syslog(LOG_INFO, "TypschildKiro_CL::f_CheckCrc CRC: %x, %x, %d",
         static_cast<unsigned int>(l_Stored), static_cast<unsigned int>(us_Computed),
         static_cast<int>(l_Len));
  return l_Stored == static_cast<long>(us_Computed) ? 0 : -1;
}

int TypschildKiro_CL::f_ReadCrcStatData() {
  if (!a_c_Buffer) return -1;
  const char* z_c_Start = std::strstr(a_c_Buffer.get(), Z_C_CRC_START_ID);
  if (z_c_Start == nullptr) {
    syslog(LOG_CRIT, "TypschildKiro_CL::f_ReadCrcStatData - key %s not found", Z_C_CRC_START_ID);
    return -1;
  }
  syslog(LOG_INFO, "TypschildKiro_CL::f_ReadCrcStatData - key %s found", Z_C_CRC_START_ID);
  z_c_Start += std::strlen(Z_C_CRC_START_ID);
  // Searched behind "###" so that a "***" earlier in the sector cannot give a negative span.
  const char* z_c_End = std::strstr(z_c_Start, Z_C_CRC_END_ID);
  if (z_c_End == nullptr) {
    syslog(LOG_CRIT, "TypschildKiro_CL::f_ReadCrcStatData - key %s not found", Z_C_CRC_END_ID);
    return -1;
  }
  str_Crc.append(z_c_Start, static_cast<size_t>(z_c_End - z_c_Start));
  syslog(LOG_INFO, "crc: %s", str_Crc.c_str());
  return 0;
}

int TypschildKiro_CL::f_GetValue(const char* z_c_Key, std::string& str_Value, char c_Sep) const {
  str_Value.clear();
  if (!a_c_Buffer || z_c_Key == nullptr) return -1;
  const char* z_c_Found = std::strstr(a_c_Buffer.get(), z_c_Key);
  if (z_c_Found == nullptr) {
    syslog(LOG_CRIT, "TypschildKiro_CL::f_GetValue - key %s not found", z_c_Key);
    return -1;
  }
  // strchr would find the terminator itself for a zero separator.
  const char* z_c_Sep = c_Sep != '\0' ? std::strchr(z_c_Found, c_Sep) : nullptr;
  if (z_c_Sep == nullptr) {
    syslog(LOG_CRIT, "TypschildKiro_CL::f_GetValue - key %c not found", c_Sep);
    return -1;
  }
  const char* z_c_Val = z_c_Sep + 1;
  const char* z_c_End = std::strchr(z_c_Val, '\r');
  if (z_c_End == nullptr) {
    syslog(LOG_CRIT, "TypschildKiro_CL::f_GetValue - key '\\r' not found");
    z_c_End = std::strchr(z_c_Val, '\n');
    if (z_c_End == nullptr) {
      syslog(LOG_CRIT, "TypschildKiro_CL::f_GetValue - key '\\n' not found");
      return -1;
    }
  }
  str_Value.assign(z_c_Val, static_cast<size_t>(z_c_End - z_c_Val));
  syslog(LOG_INFO, "TypschildKiro_CL::f_GetValue - Key: %s, Val: %s", z_c_Key, str_Value.c_str());
  return 0;
}

int TypschildKiro_CL::f_GetValue(const char* z_c_Key, int& i_Value, char c_Sep) const {
  i_Value = I_INT_MISSING;
  std::string str_Value;
  if (f_GetValue(z_c_Key, str_Value, c_Sep) != 0 || str_Value.empty()) return -1;
  i_Value = std::atoi(str_Value.c_str());
  return 0;
}

int TypschildKiro_CL::f_GetValue(const char* z_c_Key, double& d_Value, char c_Sep) const {
  d_Value = D_REAL_MISSING;
  std::string str_Value;
  if (f_GetValue(z_c_Key, str_Value, c_Sep) != 0 || str_Value.empty()) return -1;
  d_Value = std::atof(str_Value.c_str());
  return 0;
}

int TypschildKiro_CL::f_SetValue(const char* z_c_Key, std::string str_Value) {
  syslog(LOG_INFO, "TypschildKiro_CL::f_SetValue %s - %s", z_c_Key != nullptr ? z_c_Key : "",
         str_Value.c_str());
  if (!a_c_Buffer || z_c_Key == nullptr) return -1;
  char* z_c_Found = std::strstr(a_c_Buffer.get(), z_c_Key);
  if (z_c_Found == nullptr) {
    syslog(LOG_WARNING, "TypschildKiro_CL::f_SetValue - key %s not found", z_c_Key);
    return -1;
  }
  syslog(LOG_INFO, "Key %s found", z_c_Key);
  char* z_c_Colon = std::strchr(z_c_Found, ':');
  if (z_c_Colon == nullptr) {
    syslog(LOG_WARNING, "TypschildKiro_CL::f_SetValue - %c not found", ':');
    return -1;
  }
  char* z_c_Field = z_c_Colon + 1;
  syslog(LOG_INFO, "Val found - %.*s", 10, z_c_Field);
  char* z_c_Cr = std::strchr(z_c_Field, '\r');
  if (z_c_Cr == nullptr) {
    syslog(LOG_WARNING, "->TypschildKiro_CL::f_SetValue - %c not found", 13);
    return -1;
  }
  // The field keeps its width: the CR LF and everything behind it stay where they are.
  size_t ui_Space = static_cast<size_t>(z_c_Cr - z_c_Field);
  syslog(LOG_INFO, "Space: %d, Val Len: %d", static_cast<int>(ui_Space),
         static_cast<int>(str_Value.size()));
  if (str_Value.size() < ui_Space) {
    std::memcpy(z_c_Field, str_Value.data(), str_Value.size());
    std::memset(z_c_Field + str_Value.size(), ' ', ui_Space - str_Value.size());
  } else {
    // The right end survives: of a number, its low-order digits.
    size_t ui_Pos = str_Value.size() - ui_Space;
    std::string str_Kept = str_Value.substr(ui_Pos);
    syslog(LOG_INFO, "Substring at pos: %d %s - %d", static_cast<int>(ui_Pos), str_Kept.c_str(),
           static_cast<int>(str_Kept.size()));
    std::memcpy(z_c_Field, str_Kept.data(), ui_Space);
  }
  return 0;
}

int TypschildKiro_CL::f_SetValue(const char* z_c_Key, unsigned int ui_Value, int i_Digits) {
  char a_c_Value[UI_LINE_SIZE];
  int i_Len = std::snprintf(a_c_Value, sizeof(a_c_Value), "%.*u", i_Digits, ui_Value);
  if (i_Len < 0 || static_cast<size_t>(i_Len) >= sizeof(a_c_Value)) {
    syslog(LOG_WARNING, "TypschildKiro_CL::f_SetValue - %u with %d digits does not fit", ui_Value,
           i_Digits);
    return -1;
  }
  return f_SetValue(z_c_Key, std::string(a_c_Value));
}

int TypschildKiro_CL::f_SetValue(const char* z_c_Key, float fl_Value) {
  // Even FLT_MAX takes 46 characters with "%f".
  char a_c_Value[UI_LINE_SIZE];
  int i_Len = std::snprintf(a_c_Value, sizeof(a_c_Value), "%f", static_cast<double>(fl_Value));
  if (i_Len < 0 || static_cast<size_t>(i_Len) >= sizeof(a_c_Value)) {
    syslog(LOG_WARNING, "TypschildKiro_CL::f_SetValue - %f does not fit",
           static_cast<double>(fl_Value));
    return -1;
  }
  return f_SetValue(z_c_Key, std::string(a_c_Value));
}

// --- static data -----------------------------------------------------------------------

int TypschildKiro_CL::f_ReadStatData() {
  syslog(LOG_INFO, "TypschildKiro_CL::f_ReadStatData - %s", str_Path.c_str());
  if (f_ReadTypschildSector(I_OFFSET_STAT_DATA, true) != 0) return -1;
  // A second read (the channel configuration may read the nameplate again) must not give
  // the CRC text twice: that would look like a different motor unit.
  str_Crc.clear();
  f_ReadCrcStatData();

  for (const StatKey_ST& o_Key : A_O_STAT_KEY_LIST) {
    int i_Ret = -1;
    switch (o_Key.en_Kind) {
      case EN_STAT_TEXT:
        i_Ret = f_GetValue(o_Key.z_c_Key, o_Stat.*o_Key.z_o_Text, ':');
        break;
      case EN_STAT_INT:
        i_Ret = f_GetValue(o_Key.z_c_Key, o_Stat.*o_Key.z_o_Int, ':');
        break;
      case EN_STAT_REAL:
        i_Ret = f_GetValue(o_Key.z_c_Key, o_Stat.*o_Key.z_o_Real, ':');
        break;
    }
    // Older motors carry no pulse count: they all have 24 per revolution.
    if (o_Key.z_o_Int == &Stat_ST::i_ImpulseProUmdrehung && i_Ret != 0) {
      o_Stat.i_ImpulseProUmdrehung = I_IMPULSE_DEFAULT;
    }
    if (o_Key.z_o_Text == &Stat_ST::str_AbtriebMnr) o_Stat.b_AbtriebMnrFound = i_Ret == 0;
  }

  // The channel configuration compares component types as hex texts ("0x21").
  if (o_Stat.str_Komponententyp.find_first_of("xX") == std::string::npos) {
    o_Stat.str_Komponententyp.insert(0, "0x");
  }
  return 0;
}

// --- dynamic data ----------------------------------------------------------------------

int TypschildKiro_CL::f_ReadDynData() {
  syslog(LOG_INFO, "TypschildKiro_CL::f_ReadDynData - %s", str_Path.c_str());
  if (f_ReadTypschildSector(I_OFFSET_DYN_DATA, false) != 0) return -1;

  f_GetValue(Z_C_KEY_TIX, str_Tix, ':');

  // A missing count passes the INT_MIN preset on unchanged, so a lost sector is visible
  // in the diagnostic store instead of restarting the count at zero.
  int i_Zyklus = I_INT_MISSING;
  f_GetValue(Z_C_KEY_ZYKLUS, i_Zyklus, ':');
  ui_Zyklus = static_cast<unsigned int>(i_Zyklus);
  if (f_SysDiagSetCycle(ui_Zyklus) != 0) {
    syslog(LOG_CRIT, "TypschildKiro_CL::f_SysDiagSetCycle - error");
  }

  // The maintenance interval is kept elsewhere; its line is not read here.
  if (f_GetValue(Z_C_KEY_LAST, d_Lastintegral, ':') != 0) d_Lastintegral = 0.0;
  f_SysDiagSetTorqueLoad(d_Lastintegral);

  int i_Start = I_INT_MISSING;
  ui_StartLastZyklus = f_GetValue(Z_C_KEY_START_LAST, i_Start, ':') == 0
                           ? static_cast<unsigned int>(i_Start)
                           : ui_Zyklus;
  f_SysDiagSetLoadStartCycle(ui_StartLastZyklus);
  return 0;
}

int TypschildKiro_CL::f_ReadCycleDiagFiles() {
  if (f_SysDiagGetCycle(&ui_Zyklus) != 0) return -1;
  if (f_SysDiagGetTorqueLoad(&d_Lastintegral) != 0) return -1;
  return 0;
}

int TypschildKiro_CL::f_ZyklusGet(unsigned int& ui_ZyklusOut) {
  if (f_ReadCycleDiagFiles() != 0) return -1;
  ui_ZyklusOut = ui_Zyklus;
  return 0;
}

void TypschildKiro_CL::f_ZyklusCheck(SavedCycle_ST& o_Saved) {
  if (!o_Saved.b_Set) {
    o_Saved.ui_Cycle = ui_Zyklus;
    o_Saved.b_Set = true;
  }
  if (f_ReadCycleDiagFiles() != 0) return;
  syslog(LOG_INFO, "f_ZyklusCheck alt %u, neu: %u", o_Saved.ui_Cycle, ui_Zyklus);
  if (o_Saved.ui_Cycle + UI_SAVE_CYCLES < ui_Zyklus) {
    o_Saved.ui_Cycle = ui_Zyklus;
    f_SaveDynData();
  }
}

int TypschildKiro_CL::f_SaveDynData() {
  // Counts go out as "%010d": a count read as INT_MIN is written back as it was read.
  std::string str_Text;
  char a_c_Line[UI_LINE_SIZE];
  auto f_AddLine = [&](int i_Len) {
    if (i_Len < 0 || static_cast<unsigned int>(i_Len) >= UI_LINE_SIZE) return false;
    str_Text.append(a_c_Line, static_cast<size_t>(i_Len));
    return true;
  };
  bool b_Fits =
      f_AddLine(
          std::snprintf(a_c_Line, sizeof(a_c_Line), "%s:%s\r\n", Z_C_KEY_TIX, str_Tix.c_str())) &&
      f_AddLine(std::snprintf(a_c_Line, sizeof(a_c_Line), "%s:%010d\r\n", Z_C_KEY_ZYKLUS,
                              static_cast<int>(ui_Zyklus))) &&
      // Always zero: the maintenance interval is not kept on the nameplate any more.
      f_AddLine(std::snprintf(a_c_Line, sizeof(a_c_Line), "%s:%010d\r\n", Z_C_KEY_WARTUNG, 0)) &&
      f_AddLine(
          std::snprintf(a_c_Line, sizeof(a_c_Line), "%s:%f\r\n", Z_C_KEY_LAST, d_Lastintegral)) &&
      f_AddLine(std::snprintf(a_c_Line, sizeof(a_c_Line), "%s:%010d\r\n", Z_C_KEY_START_LAST,
                              static_cast<int>(ui_StartLastZyklus)));
  // A line cut short would lose its CR LF, and a text longer than the sector would
  // overwrite the supplier data behind it: neither is written.
  if (!b_Fits || str_Text.size() > UI_DYN_DATA_SIZE) {
    syslog(LOG_CRIT, "TypschildKiro_CL::f_SaveDynData - data do not fit the sector, not saved");
    return -1;
  }

  int i_RetVal = 0;
  {
    File_T o_File = f_OpenDevice("r+");
    if (!o_File) {
      syslog(LOG_CRIT, "TypschildKiro_CL::f_Write - fopen %s - %s", f_SysPath(str_Path).c_str(),
             strerror(errno));
      return -1;
    }
    size_t ui_Written = 0;
    if (std::fseek(o_File.get(), I_OFFSET_DYN_DATA, SEEK_SET) == 0) {
      ui_Written = std::fwrite(str_Text.data(), 1, str_Text.size(), o_File.get());
    }
    if (ui_Written < str_Text.size()) {
      syslog(LOG_CRIT, "TypschildKiro_CL::f_Write - fwrite %d, %s", static_cast<int>(ui_Written),
             strerror(errno));
      i_RetVal = -1;
    } else if (std::fflush(o_File.get()) != 0) {
      // The stream buffers the whole text: a device that refuses it says so only here.
      syslog(LOG_CRIT, "TypschildKiro_CL::f_Write - fflush %s", strerror(errno));
      i_RetVal = -1;
    }
  }
  syslog(LOG_INFO, "TypschildKiro_CL::f_SaveDynData - i_RetVal: %d", i_RetVal);
  return i_RetVal;
}

// --- supplier data ---------------------------------------------------------------------

int TypschildKiro_CL::f_ReadSupplierData() {
  int a_i_Level[3] = {0, 0, 0};
  for (int i = 0; i < 3; ++i) {
    Gpio_CL o_Line(A_US_HWREV_LINES[i], false, false);
    int i_Level = o_Line.f_Read();
    // An unreadable line counts as low; revision 0 then still falls back to the new format.
    a_i_Level[i] = i_Level == 1 ? 1 : 0;
  }
  i_HwRev = (a_i_Level[2] << 2) | (a_i_Level[1] << 1) | a_i_Level[0];
  syslog(LOG_INFO, "TypschildKiro_CL::f_ReadSupplierData - i_HWRev: %d", i_HwRev);
  if (i_HwRev != 0) return f_ReadSupplierDataNeu();
  if (f_ReadSupplierDataAlt() == 0) return 0;
  syslog(LOG_CRIT, "f_ReadSupplierData - could not read data - trying new format");
  return f_ReadSupplierDataNeu();
}

int TypschildKiro_CL::f_ReadSupplierDataAlt() {
  f_SysDiagSetHWParam("tix", Z_C_OLD_TIX, static_cast<unsigned int>(std::strlen(Z_C_OLD_TIX)));
  if (f_ReadTypschildSector(I_OFFSET_SUPPLIER_STAT_DATA, true) != 0) return -1;

  const char* z_c_Field = a_c_Buffer.get();
  for (const OldField_ST& o_Field : A_O_OLD_FIELDS) {
    const char* z_c_Semi = std::strchr(z_c_Field, ';');
    if (z_c_Semi == nullptr) {
      syslog(LOG_CRIT, "%s: strchr->NULL", o_Field.z_c_Label);
      return -1;
    }
    int i_Len = static_cast<int>(z_c_Semi - z_c_Field);
    syslog(LOG_INFO, "%s: %.*s", o_Field.z_c_Label, i_Len, z_c_Field);
    f_SysDiagSetHWParam(o_Field.z_c_Param, z_c_Field, static_cast<unsigned int>(i_Len));
    z_c_Field = z_c_Semi + 1;
  }

  const char* z_c_End = std::strstr(a_c_Buffer.get(), Z_C_CRC_END_ID);
  if (z_c_End == nullptr) {
    syslog(LOG_CRIT, "Supplier->Revision: strchr->NULL");
    return -1;
  }
  const char* z_c_Rev = z_c_End + std::strlen(Z_C_CRC_END_ID);
  const char* z_c_Semi = std::strchr(z_c_Rev, ';');
  if (z_c_Semi != nullptr) {
    int i_Len = static_cast<int>(z_c_Semi - z_c_Rev);
    syslog(LOG_INFO, "Supplier->Revision: %.*s", i_Len, z_c_Rev);
    f_SysDiagSetHWParam("revision", z_c_Rev, static_cast<unsigned int>(i_Len));
  }
  return 0;
}

int TypschildKiro_CL::f_ReadSupplierDataNeu() {
  std::string str_Value;
  if (f_ReadTypschildSector(I_OFFSET_SUPPLIER_STAT_DATA, true) != 0) return -1;
  // A key the board does not carry is exported empty, so no stale value stays behind.
  for (const SupplierKey_ST& o_Key : A_O_SUPPLIER_STAT_KEY_LIST) {
    f_GetValue(o_Key.z_c_Key, str_Value, ':');
    f_SysDiagSetHWParam(o_Key.z_c_Param, str_Value.c_str(),
                        static_cast<unsigned int>(str_Value.size()));
  }
  if (f_ReadTypschildSector(I_OFFSET_SUPPLIER_DYN_DATA, true) != 0) return -1;
  for (const SupplierKey_ST& o_Key : A_O_SUPPLIER_DYN_KEY_LIST) {
    f_GetValue(o_Key.z_c_Key, str_Value, ':');
    f_SysDiagSetHWParam(o_Key.z_c_Param, str_Value.c_str(),
                        static_cast<unsigned int>(str_Value.size()));
  }
  return 0;
}

int TypschildKiro_CL::f_SysDiagSetHWParam(const char* z_c_Param, const char* z_c_Value,
                                          unsigned int ui_Len) {
  syslog(LOG_INFO, "f_SysDiagSetHWParam - Param: %s, Val: %.*s, len: %d", z_c_Param,
         static_cast<int>(ui_Len), z_c_Value, static_cast<int>(ui_Len));
  char* z_c_Raw = nullptr;
  if (f_PrepareDiagString(z_c_Value, ui_Len, &z_c_Raw) != 0) return -1;
  std::unique_ptr<char, FreeDelete_ST> o_Copy(z_c_Raw);

  char a_c_Name[64] = {0};
  int i_Len = std::snprintf(a_c_Name, sizeof(a_c_Name), "%s/%s", Z_C_HW_DIAG_DIR, z_c_Param);
  if (i_Len < 0 || static_cast<size_t>(i_Len) >= sizeof(a_c_Name)) {
    syslog(LOG_WARNING, "f_SysDiagSetHWParam - name %s too long", z_c_Param);
    return -1;
  }
  f_SysDiagMakeSubDir(Z_C_HW_DIAG_DIR);
  return f_SysDiagSetParam(a_c_Name, o_Copy.get()) == 0 ? 0 : -1;
}
