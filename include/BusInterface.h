#pragma once
// The bus interface: the embedded description and the method dispatcher.
#include <cstddef>
#include <string>
#include <gio/gio.h>

extern const char introspection_xml[];
extern const GDBusInterfaceVTable interface_vtable;

// Method names in the order the dispatcher compares them.
const char* const* f_DispatchOrder(size_t* z_ui_Count);

void handle_method_call(GDBusConnection* connection, const gchar* sender,
                        const gchar* object_path, const gchar* interface_name,
                        const gchar* method_name, GVariant* parameters,
                        GDBusMethodInvocation* invocation, gpointer user_data);
GVariant* handle_get_property(GDBusConnection* connection, const gchar* sender,
                              const gchar* object_path, const gchar* interface_name,
                              const gchar* property_name, GError** error, gpointer user_data);
gboolean handle_set_property(GDBusConnection* connection, const gchar* sender,
                             const gchar* object_path, const gchar* interface_name,
                             const gchar* property_name, GVariant* value, GError** error,
                             gpointer user_data);

// True when signal z_c_Signal is declared in the interface description and
// z_c_TupleType ("(ii)", "()" for none) is the type it is sent with. The expected type
// goes to *z_str_Expected when it is not null (empty for an unknown signal).
bool f_SignalMatches(const char* z_c_Signal, const char* z_c_TupleType,
                     std::string* z_str_Expected = nullptr);
