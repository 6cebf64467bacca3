#pragma once
// The bus interface: the embedded description and the method dispatcher.
#include <cstddef>
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
