#include "desktop_theme.h"

#include "strutil.h"

#include <gtk/gtk.h>
#include <optional>
#include <string>
#include <utility>

namespace desktop_theme {

namespace {

constexpr const char* kService = "org.freedesktop.portal.Desktop";
constexpr const char* kObject = "/org/freedesktop/portal/desktop";
constexpr const char* kInterface = "org.freedesktop.portal.Settings";
constexpr const char* kNamespace = "org.freedesktop.appearance";
constexpr const char* kKey = "color-scheme";
constexpr int kTimeoutMs = 500;

struct Watch {
    GDBusConnection* bus = nullptr;  // held, since a connection that nobody holds is closed
    guint subscription = 0;
    std::function<void()> callback;

    ~Watch() {
        g_dbus_connection_signal_unsubscribe(bus, subscription);
        g_object_unref(bus);
    }
};

Watch* g_watch = nullptr;  // at most one

// A reference to the user's message bus, or null.
GDBusConnection* user_bus() {
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    // A bus that goes away must not take a running copy with it, as it would by default.
    if (bus)
        g_dbus_connection_set_exit_on_close(bus, FALSE);
    return bus;
}

// What the portal says: 1 dark, 2 light, all else no preference.
std::optional<bool> portal_preference() {
    GDBusConnection* bus = user_bus();
    if (!bus)
        return std::nullopt;
    GVariant* reply = g_dbus_connection_call_sync(
        bus, kService, kObject, kInterface, "Read", g_variant_new("(ss)", kNamespace, kKey),
        G_VARIANT_TYPE("(v)"), G_DBUS_CALL_FLAGS_NONE, kTimeoutMs, nullptr, nullptr);
    g_object_unref(bus);
    if (!reply)
        return std::nullopt;
    GVariant* value = g_variant_get_child_value(reply, 0);
    g_variant_unref(reply);
    // Portals differ in how often they wrap the value.
    while (g_variant_is_of_type(value, G_VARIANT_TYPE_VARIANT)) {
        GVariant* inner = g_variant_get_variant(value);
        g_variant_unref(value);
        value = inner;
    }
    std::optional<bool> dark;
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_UINT32)) {
        const guint32 scheme = g_variant_get_uint32(value);
        if (scheme == 1 || scheme == 2)
            dark = scheme == 1;
    }
    g_variant_unref(value);
    return dark;
}

bool gtk_prefers_dark() {
    GtkSettings* settings = gtk_settings_get_default();
    if (!settings)
        return false;
    gboolean dark = FALSE;
    char* theme = nullptr;
    g_object_get(settings, "gtk-application-prefer-dark-theme", &dark, "gtk-theme-name", &theme,
                 nullptr);
    const std::string name = theme ? su::lower_ascii(theme) : "";
    g_free(theme);
    return dark || name.find("dark") != std::string::npos;
}

void on_setting_changed_cb(GDBusConnection*, const char*, const char*, const char*, const char*,
                           GVariant* parameters, gpointer) {
    if (!g_variant_is_of_type(parameters, G_VARIANT_TYPE("(ssv)")))
        return;
    const char* space = nullptr;
    const char* key = nullptr;
    GVariant* value = nullptr;
    g_variant_get(parameters, "(&s&sv)", &space, &key, &value);
    const bool ours = g_str_equal(space, kNamespace) && g_str_equal(key, kKey);
    g_variant_unref(value);
    if (!ours || !g_watch)
        return;
    // A copy: the callback may replace itself.
    const std::function<void()> callback = g_watch->callback;
    callback();
}

}  // namespace

bool prefers_dark() {
    if (const std::optional<bool> dark = portal_preference())
        return *dark;
    return gtk_prefers_dark();
}

void watch(std::function<void()> callback) {
    if (!callback) {
        delete std::exchange(g_watch, nullptr);
        return;
    }
    GDBusConnection* bus = user_bus();
    if (!bus)
        return;
    delete g_watch;
    g_watch = new Watch;
    g_watch->bus = bus;
    g_watch->callback = std::move(callback);
    g_watch->subscription = g_dbus_connection_signal_subscribe(
        bus, kService, kInterface, "SettingChanged", kObject, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        on_setting_changed_cb, nullptr, nullptr);
}

}  // namespace desktop_theme
