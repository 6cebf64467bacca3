#pragma once
// Nameplate images of the simulated tool: the motor-unit EEPROM (four text sectors, three
// of them closed by a "###<crc>***" block) and the spindle's 128-byte 1-Wire record, built
// from a readable description and dumped back into one.
//
// Description format (also what "nameplate show" prints):
//   # comment
//   [static]              section: static, dynamic, supplier, supplier-dynamic, spindle
//   MNR:5521730002        KEY:VALUE, one nameplate line; the value is everything behind the
//                         first colon, blanks included, exactly as the tool reads it
//   crc=none              option: crc=auto (default), crc=none (no CRC block) or crc=HEX
//                         (that text is written behind "###" as it is)
//   format=old            [supplier] only: the semicolon record of hardware revision 0
// The spindle section takes mnr:, serial: and torque: (Nm, one decimal).
#include <cstddef>
#include <string>
#include <vector>

enum en_Sector {
  EN_SECTOR_STATIC = 0,
  EN_SECTOR_DYNAMIC,
  EN_SECTOR_SUPPLIER,
  EN_SECTOR_SUPPLIER_DYN
};
constexpr int I_SECTOR_COUNT = 4;

struct SectorInfo_ST {
  const char* z_c_Name;  // section name in a description
  long l_Offset;         // byte offset in the EEPROM
  size_t ui_Size;        // bytes up to the next sector (or the end)
  bool b_HasCrc;         // read with a CRC check by the service
};
extern const SectorInfo_ST A_O_SECTOR_INFO[I_SECTOR_COUNT];

constexpr size_t UI_EEPROM_SIZE = 4096;
constexpr size_t UI_SPINDLE_SIZE = 128;

struct NameplateLine_ST {
  std::string str_Key;
  std::string str_Value;
};

struct SectorDesc_ST {
  bool b_Present = false;
  std::vector<NameplateLine_ST> o_Lines;
  std::string str_Crc = "auto";  // "auto", "none" or the literal text behind "###"
  bool b_OldFormat = false;      // supplier sector only
};

struct SpindleDesc_ST {
  bool b_Present = false;
  std::string str_Mnr;
  std::string str_Serial;
  unsigned int ui_TorqueTenths = 0;
  std::string str_Crc = "auto";
};

struct NameplateDesc_ST {
  SectorDesc_ST a_o_Sectors[I_SECTOR_COUNT];
  SpindleDesc_ST o_Spindle;
};

// Parses a description; a malformed one throws a runtime failure naming z_c_Source and
// the line.
NameplateDesc_ST f_ParseDescription(const std::string& str_Text, const char* z_c_Source);

// The description of the default tool: a 30 Nm pistol tool. b_DriveMnr adds the gearbox
// and output-drive material numbers of newer nameplates; b_OldSupplier writes the supplier
// sector in the format of hardware revision 0.
std::string f_DefaultDescription(bool b_DriveMnr, bool b_OldSupplier);

// Text of one sector (CRC block included), without the terminating zero. Throws when it
// does not fit the sector with its terminator.
std::string f_BuildSectorText(en_Sector en_Sec, const SectorDesc_ST& o_Desc);

// Keys whose text first occurs somewhere other than at their own line (inside an earlier,
// longer key or a value): the service's lookup would find the wrong place.
std::vector<std::string> f_ShadowedKeys(const std::string& str_Text, const SectorDesc_ST& o_Desc);

// What the service's CRC check of a sector text finds.
struct CrcCheck_ST {
  bool b_HasBlock = false;       // both "###" and "***" present
  long l_Stored = 0;             // hex behind "###", parsed as the tool does (strtol)
  unsigned int ui_Computed = 0;  // f_crcGet(0xFFFF) over the bytes before "###"
  bool b_Ok = false;
};
CrcCheck_ST f_CheckCrcBlock(const std::string& str_Text);

// The motor-unit EEPROM image held in memory.
class EepromImage_CL {
 public:
  // A missing file gives an empty (zero-filled) image; a short one is padded.
  void f_Load(const std::string& str_Path);
  void f_Save(const std::string& str_Path) const;
  // Zero-fills the sector and writes the text at its start.
  void f_SetSectorText(en_Sector en_Sec, const std::string& str_Text);
  // The sector's text up to its first zero byte; b_Terminated false when the sector holds
  // no zero at all.
  std::string f_SectorText(en_Sector en_Sec, bool* z_b_Terminated = nullptr) const;
  // Flips one bit inside the CRC-covered bytes (the last character of the first value),
  // leaving the CRC as it was; flipping twice restores the image. Returns the offset.
  long f_Corrupt(en_Sector en_Sec);
  // Writes every present section of the description; returns warnings for the user.
  std::vector<std::string> f_Apply(const NameplateDesc_ST& o_Desc);
  // The image as a description, with the CRC state of each sector in comments.
  std::string f_Dump() const;

 private:
  std::string str_Bytes = std::string(UI_EEPROM_SIZE, '\0');
};

// The spindle record.
std::string f_BuildSpindleRecord(const SpindleDesc_ST& o_Desc);
// Dump as a description section; b_Found false when there is no record file.
std::string f_DumpSpindleRecord(const std::string& str_Record, bool b_Found);
// Flips a bit of the material number, leaving the CRC; returns the offset.
long f_CorruptSpindleRecord(std::string& str_Record);
