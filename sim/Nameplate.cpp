#include "Nameplate.h"

#include "SimCommon.h"
#include "sysLib/Crc.h"

#include <cstdlib>
#include <cstring>

const SectorInfo_ST A_O_SECTOR_INFO[I_SECTOR_COUNT] = {
    {"static", 0, 1792, true},
    {"dynamic", 1792, 256, false},
    {"supplier", 2048, 1280, true},
    {"supplier-dynamic", 3328, 768, true},
};

namespace {

constexpr const char* Z_C_CRC_START = "###";
constexpr const char* Z_C_CRC_END = "***";
constexpr unsigned short US_CRC_SEED = 0xFFFF;

// Old supplier record: these fields in this order, separated by ';', then the CRC block,
// then the revision up to a ';'.
constexpr const char* A_Z_C_OLD_FIELDS[] = {"MNR", "Werkskennung", "Fertigungsdatum",
                                            "Seriennummer", "Lieferantenkennung"};
constexpr int I_OLD_FIELD_COUNT = 5;
constexpr const char* Z_C_OLD_REVISION = "Revision";

// Spindle record layout.
constexpr size_t UI_SPINDLE_MNR_OFF = 0;
constexpr size_t UI_SPINDLE_MNR_LEN = 11;
constexpr size_t UI_SPINDLE_SERIAL_OFF = 11;
constexpr size_t UI_SPINDLE_SERIAL_LEN = 18;
constexpr size_t UI_SPINDLE_TORQUE_OFF = 53;
constexpr size_t UI_SPINDLE_CRC_OFF = 113;  // the CRC covers the bytes before it

unsigned short f_Crc(const char* z_c_Data, size_t ui_Len) {
  return f_crcGet(US_CRC_SEED, z_c_Data, static_cast<long>(ui_Len));
}

std::string f_Trim(const std::string& str_Text) {
  size_t ui_First = str_Text.find_first_not_of(" \t");
  if (ui_First == std::string::npos) return std::string();
  size_t ui_Last = str_Text.find_last_not_of(" \t");
  return str_Text.substr(ui_First, ui_Last - ui_First + 1);
}

// Printable for a dump: control and non-ASCII bytes as \xNN.
std::string f_Escape(const std::string& str_Text) {
  std::string str_Out;
  for (unsigned char uc_Char : str_Text) {
    if ((uc_Char >= 0x20 && uc_Char < 0x7F) || uc_Char == '\t') {
      str_Out += static_cast<char>(uc_Char);
    } else {
      str_Out += f_Format("\\x%02X", uc_Char);
    }
  }
  return str_Out;
}

int f_SectorByName(const std::string& str_Name) {
  for (int i = 0; i < I_SECTOR_COUNT; ++i) {
    if (str_Name == A_O_SECTOR_INFO[i].z_c_Name) return i;
  }
  return -1;
}

std::string f_CrcBlock(const std::string& str_Covered, const std::string& str_Crc) {
  if (str_Crc == "none") return std::string();
  std::string str_Value =
      str_Crc == "auto" ? f_Format("%04X", f_Crc(str_Covered.data(), str_Covered.size())) : str_Crc;
  return std::string(Z_C_CRC_START) + str_Value + Z_C_CRC_END;
}

void f_PutU16Le(std::string& str_Buf, size_t ui_Off, unsigned int ui_Value) {
  str_Buf[ui_Off] = static_cast<char>(ui_Value & 0xFF);
  str_Buf[ui_Off + 1] = static_cast<char>((ui_Value >> 8) & 0xFF);
}

unsigned int f_GetU16Le(const std::string& str_Buf, size_t ui_Off) {
  return static_cast<unsigned char>(str_Buf[ui_Off]) |
         (static_cast<unsigned int>(static_cast<unsigned char>(str_Buf[ui_Off + 1])) << 8);
}

// A fixed-width text field up to its zero padding.
std::string f_FixedField(const std::string& str_Buf, size_t ui_Off, size_t ui_Len) {
  std::string str_Field = str_Buf.substr(ui_Off, ui_Len);
  size_t ui_Zero = str_Field.find('\0');
  return ui_Zero == std::string::npos ? str_Field : str_Field.substr(0, ui_Zero);
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Description

NameplateDesc_ST f_ParseDescription(const std::string& str_Text, const char* z_c_Source) {
  NameplateDesc_ST o_Desc;
  SectorDesc_ST* z_o_Sector = nullptr;
  int i_Sector = -1;
  bool b_Spindle = false;
  size_t ui_LineNr = 0;
  size_t ui_Pos = 0;
  while (ui_Pos < str_Text.size()) {
    size_t ui_End = str_Text.find('\n', ui_Pos);
    if (ui_End == std::string::npos) ui_End = str_Text.size();
    std::string str_Line = str_Text.substr(ui_Pos, ui_End - ui_Pos);
    ui_Pos = ui_End + 1;
    ++ui_LineNr;
    auto f_Fail = [&](const std::string& str_Msg) {
      f_RuntimeError(f_Format("%s line %zu: %s", z_c_Source, ui_LineNr, str_Msg.c_str()));
    };
    if (!str_Line.empty() && str_Line.back() == '\r') str_Line.pop_back();
    for (unsigned char uc_Char : str_Line) {
      // A CR or a zero byte inside a value would end the line or the sector early.
      if (uc_Char < 0x20 && uc_Char != '\t') f_Fail("control character in the line");
    }
    std::string str_Trim = f_Trim(str_Line);
    if (str_Trim.empty() || str_Trim[0] == '#') continue;

    if (str_Trim.front() == '[' && str_Trim.back() == ']') {
      std::string str_Name = str_Trim.substr(1, str_Trim.size() - 2);
      b_Spindle = str_Name == "spindle";
      i_Sector = b_Spindle ? -1 : f_SectorByName(str_Name);
      if (!b_Spindle && i_Sector < 0) f_Fail("unknown section [" + str_Name + "]");
      z_o_Sector = b_Spindle ? nullptr : &o_Desc.a_o_Sectors[i_Sector];
      if (b_Spindle) {
        o_Desc.o_Spindle.b_Present = true;
      } else {
        z_o_Sector->b_Present = true;
      }
      continue;
    }
    if (z_o_Sector == nullptr && !b_Spindle) f_Fail("line outside a section");

    size_t ui_Colon = str_Line.find(':');
    size_t ui_Equal = str_Line.find('=');
    if (ui_Equal != std::string::npos && (ui_Colon == std::string::npos || ui_Equal < ui_Colon)) {
      std::string str_Opt = f_Trim(str_Line.substr(0, ui_Equal));
      std::string str_Val = f_Trim(str_Line.substr(ui_Equal + 1));
      if (str_Opt == "crc") {
        if (str_Val.empty()) f_Fail("crc= needs auto, none or a value");
        if (i_Sector == EN_SECTOR_DYNAMIC) f_Fail("the dynamic sector has no CRC block");
        if (b_Spindle) {
          if (str_Val != "auto" && str_Val != "none") {
            char* z_c_End = nullptr;
            unsigned long ul_Crc = std::strtoul(str_Val.c_str(), &z_c_End, 16);
            if (*z_c_End != '\0' || ul_Crc > 0xFFFF) f_Fail("spindle crc= needs 4 hex digits");
          }
          o_Desc.o_Spindle.str_Crc = str_Val;
        } else {
          z_o_Sector->str_Crc = str_Val;
        }
      } else if (str_Opt == "format" && i_Sector == EN_SECTOR_SUPPLIER) {
        if (str_Val != "old" && str_Val != "new") f_Fail("format= takes old or new");
        z_o_Sector->b_OldFormat = str_Val == "old";
      } else {
        f_Fail("option '" + str_Opt + "' does not belong in this section");
      }
      continue;
    }
    if (ui_Colon == std::string::npos || ui_Colon == 0) f_Fail("expected KEY:VALUE");
    std::string str_Key = str_Line.substr(0, ui_Colon);
    std::string str_Value = str_Line.substr(ui_Colon + 1);
    if (!b_Spindle) {
      z_o_Sector->o_Lines.push_back({str_Key, str_Value});
      continue;
    }
    SpindleDesc_ST& o_Sp = o_Desc.o_Spindle;
    str_Value = f_Trim(str_Value);
    if (str_Key == "mnr") {
      if (str_Value.size() > UI_SPINDLE_MNR_LEN) f_Fail("spindle mnr has at most 11 characters");
      o_Sp.str_Mnr = str_Value;
    } else if (str_Key == "serial") {
      if (str_Value.size() > UI_SPINDLE_SERIAL_LEN) {
        f_Fail("spindle serial has at most 18 characters");
      }
      o_Sp.str_Serial = str_Value;
    } else if (str_Key == "torque") {
      char* z_c_End = nullptr;
      double d_Torque = std::strtod(str_Value.c_str(), &z_c_End);
      if (str_Value.empty() || *z_c_End != '\0' || !(d_Torque >= 0.0 && d_Torque <= 6553.5)) {
        f_Fail("spindle torque must be a number 0..6553.5 (Nm)");
      }
      o_Sp.ui_TorqueTenths = static_cast<unsigned int>(d_Torque * 10.0 + 0.5);
    } else {
      f_Fail("the spindle section takes mnr, serial and torque");
    }
  }
  return o_Desc;
}

std::string f_DefaultDescription(bool b_DriveMnr, bool b_OldSupplier) {
  // A 30 Nm pistol tool: 0.775 Nm x 12 x 0.85 x 4 x 0.95 = 30.04 Nm at the output,
  // 24000 / (12 x 4) = 500 rpm.
  std::string str_Text =
      "# Nameplates of the simulated tool: a 30 Nm pistol-grip tool.\n"
      "# Lines are KEY:VALUE exactly as the tool holds them (blanks after the colon count).\n"
      "# A key must stand before any longer key that contains it (MNR before AbtriebMNR).\n"
      "\n"
      "[static]\n"
      "MNR:5521730002\n"
      "Werkskennung:0021\n"
      "Fertigungsdatum:2023-05-17\n"
      "Seriennummer:K30P230517042\n"
      "Lieferantenkennung:LF17\n"
      "# 0x11 pistol grip, 0x21 angle head, 0x22 angle head with scanner\n"
      "Komponententyp:0x11\n"
      "Gebernennmoment:40.0\n"
      "Motornennmoment:0.775\n"
      "Motornenndrehzahl:24000\n"
      "Getriebeuntersetzung:12.0\n"
      "Getriebewirkungsgrad:0.85\n"
      "Abtriebuntersetzung:4.0\n"
      "Abtriebwirkungsgrad:0.95\n"
      "Nennmoment:30.0\n"
      "DrehzahlAbweichung:10.0\n"
      "MomentLeerlaufMax:0.8\n"
      "Code:P30\n"
      "Motorkennung:2\n"
      "ImpulseProUmdrehung:24\n";
  // Older nameplates lack the drive-train material numbers; the service then takes them
  // from its catalogue.
  str_Text += b_DriveMnr ? "AbtriebMNR:8843270A02\nAbtriebCode:AB5\n"
                         : "#AbtriebMNR:8843270A02\n#AbtriebCode:AB5\n";
  str_Text += "Nenndrehzahl:500\n";
  str_Text += b_DriveMnr ? "GetriebeMNR:8843160102\n" : "#GetriebeMNR:8843160102\n";
  str_Text +=
      "\n"
      "[dynamic]\n"
      "TIX:AA3\n"
      "ZyklusNr:0000000100\n"
      "Wartungsintervall:0000000000\n"
      "Lastintegral:12.500000\n"
      "StartLastZyklus:0000000000\n"
      "\n"
      "# Controller board. format=old is the semicolon record of hardware revision 0; it\n"
      "# uses MNR, Werkskennung, Fertigungsdatum, Seriennummer, Lieferantenkennung, Revision.\n"
      "[supplier]\n";
  str_Text += b_OldSupplier ? "format=old\n" : "format=new\n";
  str_Text +=
      "MNR:4411200117\n"
      "Werkskennung:0021\n"
      "Fertigungsdatum:2023-04-03\n"
      "Seriennummer:B230403117\n"
      "Lieferantenkennung:EMS1\n";
  str_Text += b_OldSupplier ? "Revision:R02\n"
                            : "MAC:00:1A:2B:3C:4D:5E\n"
                              "PCBSeriennummer:P230403117\n";
  str_Text +=
      "\n"
      "[supplier-dynamic]\n"
      "TIX:AA1\n"
      "PwrCtrlVersion:1.04\n"
      "\n"
      "# Exchangeable spindle (1-Wire record); torque in Nm.\n"
      "[spindle]\n"
      "mnr:8843590101\n"
      "serial:W230517042\n"
      "torque:30.0\n";
  return str_Text;
}

// ---------------------------------------------------------------------------------------
// Sector texts

std::string f_BuildSectorText(en_Sector en_Sec, const SectorDesc_ST& o_Desc) {
  const SectorInfo_ST& o_Info = A_O_SECTOR_INFO[en_Sec];
  std::string str_Text;
  if (en_Sec == EN_SECTOR_SUPPLIER && o_Desc.b_OldFormat) {
    std::string a_str_Fields[I_OLD_FIELD_COUNT];
    std::string str_Revision;
    bool b_HasRevision = false;
    for (const NameplateLine_ST& o_Line : o_Desc.o_Lines) {
      if (o_Line.str_Value.find(';') != std::string::npos) {
        f_RuntimeError("[supplier] format=old: a value cannot hold ';' (" + o_Line.str_Key + ")");
      }
      int i_Field = -1;
      for (int i = 0; i < I_OLD_FIELD_COUNT; ++i) {
        if (o_Line.str_Key == A_Z_C_OLD_FIELDS[i]) i_Field = i;
      }
      if (i_Field >= 0) {
        a_str_Fields[i_Field] = o_Line.str_Value;
      } else if (o_Line.str_Key == Z_C_OLD_REVISION) {
        str_Revision = o_Line.str_Value;
        b_HasRevision = true;
      } else {
        f_RuntimeError("[supplier] format=old has no field for key " + o_Line.str_Key);
      }
    }
    for (const std::string& str_Field : a_str_Fields) str_Text += str_Field + ";";
    str_Text += f_CrcBlock(str_Text, o_Desc.str_Crc);
    if (b_HasRevision) str_Text += str_Revision + ";";
  } else {
    for (const NameplateLine_ST& o_Line : o_Desc.o_Lines) {
      str_Text += o_Line.str_Key + ":" + o_Line.str_Value + "\r\n";
    }
    if (o_Info.b_HasCrc) str_Text += f_CrcBlock(str_Text, o_Desc.str_Crc);
  }
  // The tool finds the end of a sector's text by its zero byte, so one must fit.
  if (str_Text.size() + 1 > o_Info.ui_Size) {
    f_RuntimeError(
        f_Format("[%s] text of %zu bytes does not fit the sector (%zu bytes with "
                 "its terminating zero)",
                 o_Info.z_c_Name, str_Text.size(), o_Info.ui_Size));
  }
  return str_Text;
}

std::vector<std::string> f_ShadowedKeys(const std::string& str_Text, const SectorDesc_ST& o_Desc) {
  std::vector<std::string> o_Keys;
  if (o_Desc.b_OldFormat) return o_Keys;
  size_t ui_LineStart = 0;
  for (const NameplateLine_ST& o_Line : o_Desc.o_Lines) {
    if (str_Text.find(o_Line.str_Key) < ui_LineStart) o_Keys.push_back(o_Line.str_Key);
    ui_LineStart += o_Line.str_Key.size() + 1 + o_Line.str_Value.size() + 2;
  }
  return o_Keys;
}

CrcCheck_ST f_CheckCrcBlock(const std::string& str_Text) {
  CrcCheck_ST o_Check;
  size_t ui_Start = str_Text.find(Z_C_CRC_START);
  if (ui_Start == std::string::npos || str_Text.find(Z_C_CRC_END) == std::string::npos) {
    return o_Check;
  }
  o_Check.b_HasBlock = true;
  o_Check.l_Stored = std::strtol(str_Text.c_str() + ui_Start + 3, nullptr, 16);
  o_Check.ui_Computed = f_Crc(str_Text.data(), ui_Start);
  o_Check.b_Ok = o_Check.l_Stored == static_cast<long>(o_Check.ui_Computed);
  return o_Check;
}

// ---------------------------------------------------------------------------------------
// EEPROM image

void EepromImage_CL::f_Load(const std::string& str_Path) {
  bool b_Found = false;
  str_Bytes = f_ReadFileIfAny(str_Path, b_Found);
  if (str_Bytes.size() < UI_EEPROM_SIZE) str_Bytes.resize(UI_EEPROM_SIZE, '\0');
}

void EepromImage_CL::f_Save(const std::string& str_Path) const {
  f_MakeDirs(str_Path.substr(0, str_Path.rfind('/')));
  f_WriteFileAtomic(str_Path, str_Bytes);
}

void EepromImage_CL::f_SetSectorText(en_Sector en_Sec, const std::string& str_Text) {
  const SectorInfo_ST& o_Info = A_O_SECTOR_INFO[en_Sec];
  str_Bytes.replace(static_cast<size_t>(o_Info.l_Offset), o_Info.ui_Size,
                    std::string(o_Info.ui_Size, '\0'));
  str_Bytes.replace(static_cast<size_t>(o_Info.l_Offset), str_Text.size(), str_Text);
}

std::string EepromImage_CL::f_SectorText(en_Sector en_Sec, bool* z_b_Terminated) const {
  const SectorInfo_ST& o_Info = A_O_SECTOR_INFO[en_Sec];
  std::string str_Sector = str_Bytes.substr(static_cast<size_t>(o_Info.l_Offset), o_Info.ui_Size);
  size_t ui_Zero = str_Sector.find('\0');
  if (z_b_Terminated != nullptr) *z_b_Terminated = ui_Zero != std::string::npos;
  return ui_Zero == std::string::npos ? str_Sector : str_Sector.substr(0, ui_Zero);
}

long EepromImage_CL::f_Corrupt(en_Sector en_Sec) {
  const SectorInfo_ST& o_Info = A_O_SECTOR_INFO[en_Sec];
  std::string str_Text = f_SectorText(en_Sec);
  size_t ui_Start = str_Text.find(Z_C_CRC_START);
  if (ui_Start == std::string::npos || ui_Start == 0) {
    f_RuntimeError(f_Format("[%s] has no CRC-covered text to corrupt", o_Info.z_c_Name));
  }
  // The last character of the first value: the sector stays readable as text and the
  // change is easy to spot in a dump.
  size_t ui_LineEnd = str_Text.find_first_of("\r\n;");
  if (ui_LineEnd == std::string::npos || ui_LineEnd > ui_Start) ui_LineEnd = ui_Start;
  size_t ui_Pos = ui_LineEnd > 0 ? ui_LineEnd - 1 : 0;
  if (str_Text[ui_Pos] == ':' || str_Text[ui_Pos] == ';') ui_Pos = 0;
  size_t ui_Abs = static_cast<size_t>(o_Info.l_Offset) + ui_Pos;
  str_Bytes[ui_Abs] = static_cast<char>(str_Bytes[ui_Abs] ^ 0x01);
  return static_cast<long>(ui_Abs);
}

std::vector<std::string> EepromImage_CL::f_Apply(const NameplateDesc_ST& o_Desc) {
  std::vector<std::string> o_Warnings;
  for (int i = 0; i < I_SECTOR_COUNT; ++i) {
    const SectorDesc_ST& o_Sec = o_Desc.a_o_Sectors[i];
    if (!o_Sec.b_Present) continue;
    en_Sector en_Sec = static_cast<en_Sector>(i);
    std::string str_Text = f_BuildSectorText(en_Sec, o_Sec);
    for (const std::string& str_Key : f_ShadowedKeys(str_Text, o_Sec)) {
      o_Warnings.push_back(
          f_Format("[%s] key %s also occurs earlier in the sector; the tool "
                   "reads the value at the earlier place",
                   A_O_SECTOR_INFO[i].z_c_Name, str_Key.c_str()));
    }
    f_SetSectorText(en_Sec, str_Text);
  }
  return o_Warnings;
}

namespace {

void f_DumpKeyLines(const std::string& str_Covered, std::string& str_Out) {
  size_t ui_Pos = 0;
  while (ui_Pos < str_Covered.size()) {
    size_t ui_End = str_Covered.find('\n', ui_Pos);
    if (ui_End == std::string::npos) ui_End = str_Covered.size();
    std::string str_Line = str_Covered.substr(ui_Pos, ui_End - ui_Pos);
    ui_Pos = ui_End + 1;
    if (!str_Line.empty() && str_Line.back() == '\r') str_Line.pop_back();
    if (str_Line.empty()) continue;
    size_t ui_Colon = str_Line.find(':');
    if (ui_Colon == std::string::npos || ui_Colon == 0) {
      str_Out += "# not a KEY:VALUE line: " + f_Escape(str_Line) + "\n";
    } else {
      str_Out += f_Escape(str_Line) + "\n";
    }
  }
}

void f_DumpOldRecord(const std::string& str_Covered, const std::string& str_Behind,
                     std::string& str_Out) {
  str_Out += "format=old\n";
  size_t ui_Pos = 0;
  for (int i = 0; i < I_OLD_FIELD_COUNT; ++i) {
    size_t ui_Semi = str_Covered.find(';', ui_Pos);
    if (ui_Semi == std::string::npos) {
      str_Out += f_Format("# the record ends before field %s\n", A_Z_C_OLD_FIELDS[i]);
      break;
    }
    str_Out += std::string(A_Z_C_OLD_FIELDS[i]) + ":" +
               f_Escape(str_Covered.substr(ui_Pos, ui_Semi - ui_Pos)) + "\n";
    ui_Pos = ui_Semi + 1;
  }
  size_t ui_Semi = str_Behind.find(';');
  if (ui_Semi != std::string::npos) {
    str_Out += std::string(Z_C_OLD_REVISION) + ":" + f_Escape(str_Behind.substr(0, ui_Semi)) + "\n";
  }
}

}  // namespace

std::string EepromImage_CL::f_Dump() const {
  std::string str_Out;
  for (int i = 0; i < I_SECTOR_COUNT; ++i) {
    const SectorInfo_ST& o_Info = A_O_SECTOR_INFO[i];
    bool b_Terminated = true;
    std::string str_Text = f_SectorText(static_cast<en_Sector>(i), &b_Terminated);
    str_Out += f_Format("[%s]\n# offset %ld, %zu bytes of text\n", o_Info.z_c_Name, o_Info.l_Offset,
                        str_Text.size());
    if (!b_Terminated) str_Out += "# no zero byte ends this sector\n";
    size_t ui_Start = str_Text.find(Z_C_CRC_START);
    std::string str_Covered = str_Text.substr(0, ui_Start);
    std::string str_Behind;
    if (o_Info.b_HasCrc) {
      CrcCheck_ST o_Check = f_CheckCrcBlock(str_Text);
      if (!o_Check.b_HasBlock) {
        str_Out += "# CRC MISSING: no ###...*** block\ncrc=none\n";
      } else {
        size_t ui_End = str_Text.find(Z_C_CRC_END, ui_Start + 3);
        std::string str_Stored = str_Text.substr(
            ui_Start + 3, ui_End == std::string::npos ? std::string::npos : ui_End - ui_Start - 3);
        if (o_Check.b_Ok) {
          str_Out += f_Format("# CRC OK (%04X)\n", o_Check.ui_Computed);
        } else {
          str_Out += f_Format("# CRC MISMATCH: stored %s, computed %04X\ncrc=%s\n",
                              f_Escape(str_Stored).c_str(), o_Check.ui_Computed,
                              f_Escape(str_Stored).c_str());
        }
        if (ui_End != std::string::npos) str_Behind = str_Text.substr(ui_End + 3);
      }
    }
    bool b_Old = i == EN_SECTOR_SUPPLIER && str_Covered.find(';') != std::string::npos &&
                 str_Covered.find(':') == std::string::npos;
    if (b_Old) {
      f_DumpOldRecord(str_Covered, str_Behind, str_Out);
    } else {
      if (i == EN_SECTOR_SUPPLIER) str_Out += "format=new\n";
      f_DumpKeyLines(str_Covered, str_Out);
      if (!str_Behind.empty()) str_Out += "# behind the CRC block: " + f_Escape(str_Behind) + "\n";
    }
    str_Out += "\n";
  }
  return str_Out;
}

// ---------------------------------------------------------------------------------------
// Spindle record

std::string f_BuildSpindleRecord(const SpindleDesc_ST& o_Desc) {
  std::string str_Rec(UI_SPINDLE_SIZE, '\0');
  str_Rec.replace(UI_SPINDLE_MNR_OFF, o_Desc.str_Mnr.size(), o_Desc.str_Mnr);
  str_Rec.replace(UI_SPINDLE_SERIAL_OFF, o_Desc.str_Serial.size(), o_Desc.str_Serial);
  f_PutU16Le(str_Rec, UI_SPINDLE_TORQUE_OFF, o_Desc.ui_TorqueTenths);
  if (o_Desc.str_Crc == "auto") {
    f_PutU16Le(str_Rec, UI_SPINDLE_CRC_OFF, f_Crc(str_Rec.data(), UI_SPINDLE_CRC_OFF));
  } else if (o_Desc.str_Crc != "none") {
    f_PutU16Le(str_Rec, UI_SPINDLE_CRC_OFF,
               static_cast<unsigned int>(std::strtoul(o_Desc.str_Crc.c_str(), nullptr, 16)));
  }
  return str_Rec;
}

std::string f_DumpSpindleRecord(const std::string& str_Record, bool b_Found) {
  if (!b_Found) return "# [spindle] no record: the file does not exist\n";
  std::string str_Out = "[spindle]\n";
  std::string str_Rec = str_Record;
  if (str_Rec.size() < UI_SPINDLE_CRC_OFF + 2) {
    str_Out += f_Format("# the record has only %zu bytes; the tool needs %zu\n", str_Rec.size(),
                        UI_SPINDLE_CRC_OFF + 2);
  }
  if (str_Rec.size() < UI_SPINDLE_SIZE) str_Rec.resize(UI_SPINDLE_SIZE, '\0');
  unsigned int ui_Stored = f_GetU16Le(str_Rec, UI_SPINDLE_CRC_OFF);
  unsigned int ui_Computed = f_Crc(str_Rec.data(), UI_SPINDLE_CRC_OFF);
  if (ui_Stored == ui_Computed) {
    str_Out += f_Format("# CRC OK (%04X)\n", ui_Computed);
  } else {
    str_Out += f_Format("# CRC MISMATCH: stored %04X, computed %04X\ncrc=%04X\n", ui_Stored,
                        ui_Computed, ui_Stored);
  }
  str_Out +=
      "mnr:" + f_Escape(f_FixedField(str_Rec, UI_SPINDLE_MNR_OFF, UI_SPINDLE_MNR_LEN)) + "\n";
  str_Out +=
      "serial:" + f_Escape(f_FixedField(str_Rec, UI_SPINDLE_SERIAL_OFF, UI_SPINDLE_SERIAL_LEN)) +
      "\n";
  unsigned int ui_Tenths = f_GetU16Le(str_Rec, UI_SPINDLE_TORQUE_OFF);
  str_Out += f_Format("torque:%u.%u\n", ui_Tenths / 10, ui_Tenths % 10);
  return str_Out;
}

long f_CorruptSpindleRecord(std::string& str_Record) {
  if (str_Record.size() < UI_SPINDLE_CRC_OFF) {
    f_RuntimeError("the spindle record is too short to corrupt");
  }
  str_Record[UI_SPINDLE_MNR_OFF] = static_cast<char>(str_Record[UI_SPINDLE_MNR_OFF] ^ 0x01);
  return static_cast<long>(UI_SPINDLE_MNR_OFF);
}
