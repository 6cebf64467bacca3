// The dispatcher, the senders of signals and the embedded interface description must agree.
#include <gio/gio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include "BusInterface.h"

namespace {
GDBusInterfaceInfo* f_Iface() {
  static GDBusNodeInfo* z_o_Node = g_dbus_node_info_new_for_xml(introspection_xml, nullptr);
  return z_o_Node != nullptr ? z_o_Node->interfaces[0] : nullptr;
}
}  // namespace

TEST(BusInterface, DispatcherKnowsEveryDeclaredMethodButBattStatusSet) {
  GDBusInterfaceInfo* z_o_Iface = f_Iface();
  ASSERT_NE(z_o_Iface, nullptr);
  size_t ui_Count = 0;
  const char* const* a_z_c_Order = f_DispatchOrder(&ui_Count);
  std::set<std::string> o_Dispatched(a_z_c_Order, a_z_c_Order + ui_Count);
  for (GDBusMethodInfo** z_z_o_Method = z_o_Iface->methods; *z_z_o_Method; ++z_z_o_Method) {
    const std::string str_Name = (*z_z_o_Method)->name;
    // Callers of "fbattstatusset" get no answer: the dispatcher has no branch for it.
    EXPECT_EQ(o_Dispatched.erase(str_Name) == 1, str_Name != "fbattstatusset") << str_Name;
  }
  EXPECT_TRUE(o_Dispatched.empty()) << *o_Dispatched.begin() << " is dispatched, not declared";
}

// Every sender in the sources names a declared signal with its arguments (a call this test
// cannot read fails), and every declared signal has a sender or is known to have none; a
// wrong type is refused with the declared one named.
TEST(BusInterface, EverySenderAgreesWithTheDescription) {
  auto f_Refused = [](const char* z_c_Signal, const char* z_c_Type) {
    std::string str_Expected = "unset";
    EXPECT_FALSE(f_SignalMatches(z_c_Signal, z_c_Type, &str_Expected)) << z_c_Signal << z_c_Type;
    return str_Expected;
  };
  EXPECT_EQ(f_Refused("sysfault", "(ii)"), "(iii)");     // an argument short
  EXPECT_EQ(f_Refused("newidcode", "(iss)"), "(iis)");   // a type swapped
  EXPECT_EQ(f_Refused("cfgfilechanged", "(i)"), "(s)");  // sent with the path on purpose
  EXPECT_EQ(f_Refused("battpowerchange", "(i)"), "");    // not declared
  const std::regex o_Call(R"re(\b(SYS_EMIT_SIGNAL|f_EmitSignal|f_Signal)\s*\()re");
  // Optional object, the name as a literal, a tuple built in place or none.
  const std::regex o_Site(
      R"re(^\s*(?:[\w>.-]+\s*,\s*)?"(\w+)"\s*,\s*(?:g_variant_new\s*\(\s*"([^"]*)"|nullptr))re");
  // The gate's and the seam's own definitions, and the seam passing its name on.
  const std::regex o_Declaration(R"re(^\s*(const\s+)?\w+\s*\*)re");
  const std::regex o_Forward(R"re(^\s*(?:[\w>.-]+\s*,\s*)?(z_c_Name|z_c_Signal)\s*,)re");
  std::set<std::string> o_SentNames;
  for (const auto& o_Entry : std::filesystem::directory_iterator(SYSSRV_SOURCE_DIR "/src")) {
    if (o_Entry.path().extension() != ".cpp") continue;
    std::ifstream o_In(o_Entry.path());
    const std::string str_Text{std::istreambuf_iterator<char>(o_In),
                               std::istreambuf_iterator<char>()};
    for (auto o_It = std::sregex_iterator(str_Text.begin(), str_Text.end(), o_Call);
         o_It != std::sregex_iterator(); ++o_It) {
      size_t ui_Pos = o_It->position() + o_It->length();
      const std::string str_Rest = str_Text.substr(ui_Pos, 200);
      SCOPED_TRACE(
          o_Entry.path().filename().string() + ":" +
          std::to_string(1 + std::count(str_Text.begin(), str_Text.begin() + ui_Pos, '\n')));
      std::smatch o_M;
      if (std::regex_search(str_Rest, o_M, o_Site)) {
        const std::string str_Type = o_M[2].matched ? o_M[2].str() : "()";
        std::string str_Expected;
        EXPECT_TRUE(f_SignalMatches(o_M[1].str().c_str(), str_Type.c_str(), &str_Expected))
            << o_M[1] << str_Type << ", declared "
            << (str_Expected.empty() ? "nowhere" : str_Expected);
        o_SentNames.insert(o_M[1]);
      } else {
        EXPECT_TRUE(std::regex_search(str_Rest, o_Declaration) ||
                    std::regex_search(str_Rest, o_Forward))
            << "signal sent in a form this test cannot read";
      }
    }
  }
  // Declared for the peers' sake; the I/O board's changes reach them another way.
  const std::set<std::string> o_NeverSent = {"bmsinputchanged", "bmsoutputchanged"};
  ASSERT_NE(f_Iface(), nullptr);
  for (GDBusSignalInfo** z_z_o_Sig = f_Iface()->signals; *z_z_o_Sig != nullptr; ++z_z_o_Sig) {
    const std::string str_Name = (*z_z_o_Sig)->name;
    EXPECT_NE(o_SentNames.count(str_Name), o_NeverSent.count(str_Name))
        << str_Name
        << (o_NeverSent.count(str_Name) ? " is sent now: take it off the list"
                                        : " is declared but nothing sends it");
  }
}
