// The dispatcher and the embedded interface description must agree.
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <algorithm>
#include <string>
#include <vector>

#include "BusInterface.h"

TEST(BusInterface, DispatcherKnowsEveryDeclaredMethodButBattStatusSet) {
  GDBusNodeInfo* z_o_Node = g_dbus_node_info_new_for_xml(introspection_xml, nullptr);
  ASSERT_NE(z_o_Node, nullptr);
  ASSERT_NE(z_o_Node->interfaces[0], nullptr);
  EXPECT_STREQ(z_o_Node->interfaces[0]->name, "com.torvane.akku.SysInterface");

  size_t ui_Count = 0;
  const char* const* a_z_c_Order = f_DispatchOrder(&ui_Count);
  std::vector<std::string> o_Dispatched(a_z_c_Order, a_z_c_Order + ui_Count);

  std::vector<std::string> o_Declared;
  for (int i = 0; z_o_Node->interfaces[0]->methods[i]; i++)
    o_Declared.push_back(z_o_Node->interfaces[0]->methods[i]->name);

  for (const std::string& str_Name : o_Declared) {
    bool b_Dispatched =
        std::find(o_Dispatched.begin(), o_Dispatched.end(), str_Name) != o_Dispatched.end();
    // Callers of "fbattstatusset" get no answer: the dispatcher has no branch for it.
    EXPECT_EQ(b_Dispatched, str_Name != "fbattstatusset") << str_Name;
  }
  for (const std::string& str_Name : o_Dispatched)
    EXPECT_NE(std::find(o_Declared.begin(), o_Declared.end(), str_Name), o_Declared.end())
        << str_Name << " is dispatched but not declared";
  g_dbus_node_info_unref(z_o_Node);
}
