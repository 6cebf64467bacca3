// "ChanCfg.json" through the shared reader (a rejected file leaves the last good values) and
// the service's start-up, after which the file is valid and holds the service's values.
#include <sstream>
#include <string>

#include "ChanCfg.h"
#include "FuzzSupport.h"
#include "TypschildKiro.h"

namespace {
template <typename... Value_T>
std::string f_Join(const Value_T&... a_Values) {
  std::ostringstream o_Out;
  o_Out << std::hexfloat;  // no rounding hides a change
  ((o_Out << a_Values << '|'), ...);
  return o_Out.str();
}

template <typename Base_T>
class Members_CL : public Base_T {
 public:
  using Base_T::Base_T;
  const std::string& f_Crc() const { return this->str_TypschildCrc; }
  // Every value; the flags that say which sections the last file had are no values.
  std::string f_Snapshot() const {
    const Members_CL& c = *this;
    const auto& g = c.o_Getriebe;
    const auto& a = c.o_Abtrieb;
    const auto& s = c.o_SonderAbtrieb;
    const auto& m = c.o_Motor;
    const auto& w = c.o_Welle;
    return f_Join(
        c.str_Kanalname, c.i_KanalNr, c.str_ZellId, c.fl_MfuFaktor, c.i_MfuDatum, c.ui_MfuZyklus,
        c.d_Wirkungsgrad, c.i_Einheit, c.ui_EinheitDrehmoment, c.str_IdentNr, c.str_Kommentar,
        c.str_SerienNr, c.str_Mnr, c.str_Code, c.str_CmpType, c.str_TypschildCrc, g.str_SerienNr,
        g.str_Mnr, g.fl_Faktor, g.fl_Wirkungsgrad, a.str_SerienNr, a.str_Mnr, a.fl_Faktor,
        a.fl_Wirkungsgrad, s.str_SerienNr, s.str_Mnr, s.fl_Faktor, s.fl_Wirkungsgrad, s.fl_Moment,
        s.b_UmkehrDrehrichtung, s.ul_Zyklus, m.str_SerienNr, m.str_Mnr, m.fl_Moment, m.i_Drehzahl,
        m.i_Winkelsensoren, w.str_SerienNr, w.str_Mnr, w.fl_Moment, c.b_WartungAktiv,
        c.ui_WartungZyklus, c.ll_WartungDatum, c.i_LetzteWartungDatum, c.i_LetzteWartungZyklus);
  }
};
}  // namespace

FUZZ_TARGET(true, true) {
  // Made once from the simulated tool's good file: the "last good" state of a reader.
  static Members_CL<SysChanCfg_CL> o_Reader(false);
  static const std::string str_NameplateCrc = TypschildKiro_CL().f_GetCrcText();
  f_FuzzWrite(SysChanCfg_CL::A_C_CHAN_CFG_PATH, o_In.f_Rest());

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
    FUZZ_CHECK(o_After.f_Snapshot() == o_Service.f_Snapshot());
  }
}
