#pragma once
// The motor unit's nameplate: an EEPROM of text sectors made of "KEY:VALUE\r\n" lines.
// Sector layout (byte offset, read length 1792 each):
//   0     static data, closed by a "###<hex crc>***" block
//   1792  dynamic data (cycle count, load integral), rewritten by this service, no CRC
//   2048  supplier data of the controller board, key lines or the older ";" record
//   3328  supplier dynamic data
// The CRC is f_crcGet seeded with 0xFFFF over every byte before the first "###".
#include <climits>
#include <string>

#include "CheckRules.h"
#include "Typschild.h"

// Copies ul_Len bytes of z_c_Value into a new zero-terminated string from malloc (the
// caller frees it); 0, or -1 when no memory was left.
int f_PrepareDiagString(const char* z_c_Value, unsigned long ul_Len, char** z_z_c_Out);

// The static sector's values. Numbers that were not read hold the "missing" presets
// (INT_MIN, -2147483648.0), texts stay empty.
struct TypschildKiroStat_ST {
  std::string str_Mnr;                 // "MNR"
  std::string str_Werkskennung;        // "Werkskennung"
  std::string str_Fertigungsdatum;     // "Fertigungsdatum"
  std::string str_Seriennummer;        // "Seriennummer"
  std::string str_Lieferantenkennung;  // "Lieferantenkennung"
  std::string str_Komponententyp;      // "Komponententyp", always with "0x" or "x" once read
  std::string str_Code;                // "Code"
  std::string str_AbtriebMnr;          // "AbtriebMNR"
  std::string str_GetriebeMnr;         // "GetriebeMNR"
  bool b_AbtriebMnrFound = false;      // newer nameplates carry the drive-train numbers
  std::string str_AbtriebCode;         // "AbtriebCode"
  double d_Gebernennmoment = -2147483648.0;
  double d_Motornennmoment = -2147483648.0;
  double d_Motornenndrehzahl = -2147483648.0;
  double d_Getriebeuntersetzung = -2147483648.0;
  double d_Getriebewirkungsgrad = -2147483648.0;
  double d_Abtriebuntersetzung = -2147483648.0;
  double d_Abtriebwirkungsgrad = -2147483648.0;
  double d_Nennmoment = -2147483648.0;
  double d_DrehzahlAbweichung = -2147483648.0;
  double d_MomentLeerlaufMax = -2147483648.0;
  int i_Motorkennung = INT_MIN;
  int i_ImpulseProUmdrehung = INT_MIN;  // 24 when the sector was read without the key
  int i_Nenndrehzahl = INT_MIN;
};

class TypschildKiro_CL : public Typschild_CL {
 public:
  static constexpr const char* A_C_DEVICE_PATH =
      "/sys/devices/platform/i2c_omap.2/i2c-2/2-0050/eeprom";
  static constexpr unsigned int UI_SECTOR_SIZE = 1792;
  static constexpr int I_OFFSET_STAT_DATA = 0;
  static constexpr int I_OFFSET_DYN_DATA = 1792;
  static constexpr int I_OFFSET_SUPPLIER_STAT_DATA = 2048;
  static constexpr int I_OFFSET_SUPPLIER_DYN_DATA = 3328;
  // The dynamic sector ends where the supplier sector begins; a save never crosses it.
  static constexpr unsigned int UI_DYN_DATA_SIZE = 2048 - 1792;
  static constexpr const char* Z_C_CRC_START_ID = "###";
  static constexpr const char* Z_C_CRC_END_ID = "***";
  static constexpr unsigned short US_CRC_SEED = 0xFFFF;
  static constexpr int I_INT_MISSING = INT_MIN;
  static constexpr double D_REAL_MISSING = -2147483648.0;
  static constexpr int I_IMPULSE_DEFAULT = 24;
  static constexpr unsigned int UI_SAVE_CYCLES = 10;  // saved once more than this many passed

  // Reads every sector (f_Read); a failed read leaves the object usable with what was read.
  TypschildKiro_CL();

  // Static, dynamic and supplier data in this order; -1 at the first stage that fails.
  int f_Read() override;
  // Refreshes cycle count and load integral from the diagnostic store and saves them.
  int f_Write() override;
  // Checks the CRC block of the sector in the buffer.
  int f_CheckCrc() override;

  // --- one sector held in the buffer ------------------------------------------------
  // Reads up to UI_SECTOR_SIZE bytes at the offset (a short read is accepted and leaves
  // the rest of the buffer as the previous read left it). With b_CheckCrc a CRC mismatch
  // raises system error 3201 and fails the read.
  int f_ReadTypschildSector(int i_SectionOffset, bool b_CheckCrc);
  // The value of the first occurrence of z_c_Key anywhere in the sector (it also matches
  // inside a longer key), from behind the separator up to the first CR behind it, or the
  // first LF when the rest of the sector holds no CR. Blanks are kept.
  int f_GetValue(const char* z_c_Key, std::string& str_Value, char c_Sep) const;
  // atoi of the value; an empty or missing value is -1 with INT_MIN.
  int f_GetValue(const char* z_c_Key, int& i_Value, char c_Sep) const;
  // atof of the value; an empty or missing value is -1 with -2147483648.0.
  int f_GetValue(const char* z_c_Key, double& d_Value, char c_Sep) const;
  // Overwrites the value field in the buffer without moving its CR LF: a shorter value is
  // padded with blanks, a longer one keeps its right end (the low-order digits).
  int f_SetValue(const char* z_c_Key, std::string str_Value);
  // "%.*u": at least i_Digits digits, zero-filled.
  int f_SetValue(const char* z_c_Key, unsigned int ui_Value, int i_Digits);
  // "%f".
  int f_SetValue(const char* z_c_Key, float fl_Value);

  // --- the stages of f_Read -----------------------------------------------------------
  int f_ReadStatData();
  int f_ReadCrcStatData();  // appends the static sector's CRC text
  int f_ReadDynData();
  int f_ReadSupplierData();     // chooses the format by the hardware revision
  int f_ReadSupplierDataAlt();  // ";" record of hardware revision 0
  int f_ReadSupplierDataNeu();  // key lines

  // Stores one value of ui_Len bytes as "hardware/<z_c_Param>" in the diagnostic store.
  int f_SysDiagSetHWParam(const char* z_c_Param, const char* z_c_Value, unsigned int ui_Len);

  // --- cycle counter --------------------------------------------------------------------
  // Cycle count and load integral from the diagnostic store.
  int f_ReadCycleDiagFiles();
  // Writes the five dynamic lines at I_OFFSET_DYN_DATA.
  int f_SaveDynData();
  // The cycle count from the diagnostic store; -1 when it cannot be read.
  int f_ZyklusGet(unsigned int& ui_Zyklus);
  // Sets the cycle count held in memory (saved by the next f_SaveDynData).
  void f_ZyklusSet(unsigned int ui_NewZyklus) { ui_Zyklus = ui_NewZyklus; }
  // Saves the dynamic data when more than UI_SAVE_CYCLES cycles passed since the last
  // save of this process: the EEPROM wears, so it is not written on every cycle. o_Saved is
  // the process's last save (the checker's state keeps it); the first call takes this
  // object's cycle count as the last save.
  void f_ZyklusCheck(SavedCycle_ST& o_Saved);

  // --- values read ----------------------------------------------------------------------
  const TypschildKiroStat_ST& f_GetStatData() const { return o_Stat; }
  // The static sector's CRC as its text stood between "###" and "***".
  const std::string& f_GetCrcText() const { return str_Crc; }
  const std::string& f_GetTix() const { return str_Tix; }
  unsigned int f_GetZyklus() const { return ui_Zyklus; }
  unsigned int f_GetStartLastZyklus() const { return ui_StartLastZyklus; }
  double f_GetLastintegral() const { return d_Lastintegral; }
  // (line 114 << 2) | (line 113 << 1) | line 112 as last read; -1 before.
  int f_GetHwRev() const { return i_HwRev; }

 private:
  TypschildKiroStat_ST o_Stat;
  std::string str_Tix;
  std::string str_Crc;
  // A key missing from the dynamic sector passes INT_MIN on; the same pattern stands here
  // until the sector has been read.
  unsigned int ui_Zyklus = static_cast<unsigned int>(INT_MIN);
  unsigned int ui_StartLastZyklus = static_cast<unsigned int>(INT_MIN);
  double d_Lastintegral = D_REAL_MISSING;
  int i_HwRev = -1;
};
