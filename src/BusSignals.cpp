// What the service's signals carry, read from the interface description it publishes.
// GDBus holds incoming method calls against the description, but sends any signal as it
// is given; this is the check on the way out.
#include <cstring>
#include <string>

#include "BusInterface.h"

namespace {

// Signals that go out with other arguments than declared, kept for the peers that read
// them that way.
struct SignalOverride_ST {
  const char* z_c_Name;
  const char* z_c_Type;
};
const SignalOverride_ST A_O_SIGNAL_OVERRIDES[] = {
    // Declared with an int; the peers have always read the changed file's path from it.
    {"cfgfilechanged", "(s)"},
};

GDBusInterfaceInfo* f_Interface() {
  // Parsed once and kept for the life of the process: the text is compiled in, and every
  // signal needs it.
  static GDBusNodeInfo* z_o_Node = g_dbus_node_info_new_for_xml(introspection_xml, nullptr);
  return z_o_Node != nullptr ? z_o_Node->interfaces[0] : nullptr;
}

std::string f_DeclaredType(const char* z_c_Signal) {
  GDBusInterfaceInfo* z_o_Iface = f_Interface();
  GDBusSignalInfo* z_o_Sig =
      z_o_Iface != nullptr ? g_dbus_interface_info_lookup_signal(z_o_Iface, z_c_Signal) : nullptr;
  if (z_o_Sig == nullptr) return std::string();
  for (const SignalOverride_ST& o_O : A_O_SIGNAL_OVERRIDES) {
    if (std::strcmp(o_O.z_c_Name, z_c_Signal) == 0) return o_O.z_c_Type;
  }
  std::string str_Type = "(";
  for (GDBusArgInfo** z_z_o_Arg = z_o_Sig->args; z_z_o_Arg != nullptr && *z_z_o_Arg != nullptr;
       ++z_z_o_Arg) {
    str_Type += (*z_z_o_Arg)->signature;
  }
  return str_Type + ")";
}

}  // namespace

bool f_SignalMatches(const char* z_c_Signal, const char* z_c_TupleType,
                     std::string* z_str_Expected) {
  std::string str_Expected = z_c_Signal != nullptr ? f_DeclaredType(z_c_Signal) : std::string();
  if (z_str_Expected != nullptr) *z_str_Expected = str_Expected;
  return !str_Expected.empty() && z_c_TupleType != nullptr && str_Expected == z_c_TupleType;
}
