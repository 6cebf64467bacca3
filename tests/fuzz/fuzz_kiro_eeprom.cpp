// The motor unit's EEPROM image through the nameplate reader. Input: one byte of hardware
// revision lines (they choose the supplier data's format), then the image.
#include <string>

#include "FuzzSupport.h"
#include "TypschildKiro.h"

namespace {
class KiroProbe_CL : public TypschildKiro_CL {
 public:
  bool f_BufferTerminated() const { return !a_c_Buffer || a_c_Buffer[ui_BufSize] == '\0'; }
};

// A value is the text between the separator and the line end: it can hold neither.
bool f_IsLineValue(const std::string& str_Value) {
  return str_Value.find('\r') == std::string::npos &&
         str_Value.size() < TypschildKiro_CL::UI_SECTOR_SIZE;
}
}  // namespace

FUZZ_TARGET(false, true) {
  uint8_t uc_Rev = o_In.f_Byte();
  for (int i = 0; i < 3; ++i)
    f_FuzzWrite("/sys/class/gpio/gpio" + std::to_string(112 + i) + "/value",
                (uc_Rev >> i) & 1 ? "1" : "0");
  std::string str_Image = o_In.f_Rest().substr(0, 8192);
  f_FuzzWrite(TypschildKiro_CL::A_C_DEVICE_PATH, str_Image);

  KiroProbe_CL o_Kiro;
  FUZZ_CHECK(o_Kiro.f_BufferTerminated());
  const TypschildKiroStat_ST& o_Stat = o_Kiro.f_GetStatData();
  for (const std::string* z_str_Value :
       {&o_Stat.str_Mnr, &o_Stat.str_Werkskennung, &o_Stat.str_Fertigungsdatum,
        &o_Stat.str_Seriennummer, &o_Stat.str_Lieferantenkennung, &o_Stat.str_Komponententyp,
        &o_Stat.str_Code, &o_Stat.str_AbtriebMnr, &o_Stat.str_GetriebeMnr, &o_Stat.str_AbtriebCode,
        &o_Kiro.f_GetTix()})
    FUZZ_CHECK(f_IsLineValue(*z_str_Value));
  // The CRC text is whatever stood between the markers, line ends included.
  FUZZ_CHECK(o_Kiro.f_GetCrcText().size() < TypschildKiro_CL::UI_SECTOR_SIZE);
  FUZZ_CHECK(o_Stat.str_Komponententyp.empty() ||
             o_Stat.str_Komponententyp.find_first_of("xX") != std::string::npos);
  FUZZ_CHECK(o_Kiro.f_GetHwRev() == -1 || o_Kiro.f_GetHwRev() == (uc_Rev & 7));

  // The cycle count written back into the dynamic sector is what the next start reads,
  // unless the identifier text itself carries the count's key (the first match wins).
  const unsigned int ui_Cycle = 0x1234567u ^ uc_Rev;
  o_Kiro.f_ZyklusSet(ui_Cycle);
  const std::string str_Tix = o_Kiro.f_GetTix();
  if (o_Kiro.f_SaveDynData() == 0 && str_Image.size() >= TypschildKiro_CL::I_OFFSET_DYN_DATA &&
      str_Tix.find("ZyklusNr") == std::string::npos && str_Tix.find('\n') == std::string::npos) {
    // Read on its own: the start-up read stops at a static sector that fails its CRC.
    KiroProbe_CL o_Again;
    FUZZ_CHECK(o_Again.f_ReadDynData() == 0);
    FUZZ_CHECK(o_Again.f_GetZyklus() == ui_Cycle);
    FUZZ_CHECK(o_Again.f_GetTix() == str_Tix);
  }
}
