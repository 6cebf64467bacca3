// "ChanCfg.json" through the reader every process uses and through the service's start-up,
// which rebuilds or repairs the file from the nameplates of the simulated tool.
//  - A file the reader rejects leaves every member as the last good file set it.
//  - Whatever the file held, after start-up the file is valid for every reader and reads
//    back to exactly the values the service holds in memory.
#include <cstdio>
#include <iomanip>
#include <sstream>
#include <string>

#include "ChanCfg.h"
#include "FuzzSupport.h"
#include "TypschildKiro.h"

namespace {
template <typename Base>
class Members_CL : public Base {
 public:
  using Base::Base;
  const std::string& f_Crc() const { return this->str_TypschildCrc; }
  // Every value as text; floats in hexadecimal so that no rounding hides a change. The
  // flags that say which sections the last file read had are no values of their own.
  std::string f_Snapshot() const {
    std::ostringstream o_Out;
    o_Out << std::hexfloat;
    o_Out << this->str_Kanalname << '|' << this->i_KanalNr << '|' << this->str_ZellId << '|'
          << this->fl_MfuFaktor << '|' << this->i_MfuDatum << '|' << this->ui_MfuZyklus << '|'
          << this->d_Wirkungsgrad << '|' << this->i_Einheit << '|' << this->ui_EinheitDrehmoment
          << '|' << this->str_IdentNr << '|' << this->str_Kommentar << '|' << this->str_SerienNr
          << '|' << this->str_Mnr << '|' << this->str_Code << '|' << this->str_CmpType << '|'
          << this->str_TypschildCrc << '|';
    const auto& g = this->o_Getriebe;
    const auto& a = this->o_Abtrieb;
    const auto& s = this->o_SonderAbtrieb;
    o_Out << g.str_SerienNr << '|' << g.str_Mnr << '|' << g.fl_Faktor << '|' << g.fl_Wirkungsgrad
          << '|' << a.str_SerienNr << '|' << a.str_Mnr << '|' << a.fl_Faktor << '|'
          << a.fl_Wirkungsgrad << '|' << s.str_SerienNr << '|' << s.str_Mnr << '|' << s.fl_Faktor
          << '|' << s.fl_Wirkungsgrad << '|' << s.fl_Moment << '|' << s.b_UmkehrDrehrichtung
          << '|' << s.ul_Zyklus << '|' << this->o_Motor.str_SerienNr << '|'
          << this->o_Motor.str_Mnr << '|' << this->o_Motor.fl_Moment << '|'
          << this->o_Motor.i_Drehzahl << '|' << this->o_Motor.i_Winkelsensoren << '|'
          << this->o_Welle.str_SerienNr << '|' << this->o_Welle.str_Mnr << '|'
          << this->o_Welle.fl_Moment << '|' << this->b_WartungAktiv << '|'
          << this->ui_WartungZyklus << '|' << this->ll_WartungDatum << '|'
          << this->i_LetzteWartungDatum << '|' << this->i_LetzteWartungZyklus;
    return o_Out.str();
  }
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* z_uc_Data, size_t ui_Size) {
  f_FuzzRoot(true);
  f_FuzzCatchErrors();
  // Made once from the simulated tool's good file: the "last good" state of a reader.
  static Members_CL<SysChanCfg_CL> o_Reader(false);
  static const std::string str_NameplateCrc = TypschildKiro_CL().f_GetCrcText();
  f_FuzzWrite(SysChanCfg_CL::A_C_CHAN_CFG_PATH, z_uc_Data, ui_Size);

  std::string str_Before = o_Reader.f_Snapshot();
  if (o_Reader.f_ReadFile() != 0) {
    FUZZ_CHECK(!o_Reader.f_IsConfigValid());
    FUZZ_CHECK(o_Reader.f_Snapshot() == str_Before);
  }

  {
    Members_CL<ChanCfg_CL> o_Service(nullptr);
    Members_CL<SysChanCfg_CL> o_After(false);
    FUZZ_CHECK(o_After.f_IsConfigValid());
    // Kept or rebuilt, the file now belongs to the fitted motor unit.
    FUZZ_CHECK(o_After.f_Crc() == str_NameplateCrc);
    if (o_After.f_Snapshot() != o_Service.f_Snapshot())
      std::fprintf(stderr, "file:    %s\nservice: %s\n", o_After.f_Snapshot().c_str(),
                   o_Service.f_Snapshot().c_str());
    FUZZ_CHECK(o_After.f_Snapshot() == o_Service.f_Snapshot());
  }
  FUZZ_CHECK(f_FuzzNothingOutsideRoot());
  return 0;
}
