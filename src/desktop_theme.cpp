#include "desktop_theme.h"

#include "strutil.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <gtk/gtk.h>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

namespace desktop_theme {

namespace {

constexpr const char* kService = "org.freedesktop.portal.Desktop";
constexpr const char* kObject = "/org/freedesktop/portal/desktop";
constexpr const char* kInterface = "org.freedesktop.portal.Settings";
constexpr const char* kNamespace = "org.freedesktop.appearance";
constexpr const char* kKey = "color-scheme";
constexpr std::chrono::milliseconds kTimeout{500};

using Clock = std::chrono::steady_clock;
using Bus = std::shared_ptr<GDBusConnection>;  // empty: there is none

struct Watch {
    Bus bus;  // held, since a connection that nobody holds is closed
    guint subscription = 0;
    std::function<void()> callback;

    ~Watch() { g_dbus_connection_signal_unsubscribe(bus.get(), subscription); }
};

Watch* g_watch = nullptr;  // at most one

// May take for ever: GLib waits for the first words of a bus without a limit, and cannot be told to
// stop at each step.
Bus connect() {
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    if (!bus)
        return {};
    // A bus that goes away must not take a running copy with it, as it would by default.
    g_dbus_connection_set_exit_on_close(bus, FALSE);
    return {bus, g_object_unref};
}

// The user's message bus, or none when there is none within half a second. A thread of its own asks
// for it, and stays behind where the bus is silent; there is no second one until it has its answer,
// and the time that it was given is not given again.
Bus user_bus() {
    static std::future<Bus> answer;
    static Clock::time_point until;
    if (!answer.valid()) {
        std::packaged_task<Bus()> ask(connect);
        answer = ask.get_future();
        until = Clock::now() + kTimeout;
        try {
            std::thread(std::move(ask)).detach();
        } catch (const std::system_error&) {
            answer = {};
            return {};  // no thread, no bus
        }
    }
    if (answer.wait_until(until) != std::future_status::ready)
        return {};
    return answer.get();
}

// What the portal says: 1 dark, 2 light, all else no preference.
std::optional<bool> portal_preference() {
    const Clock::time_point until = Clock::now() + kTimeout;
    const Bus bus = user_bus();
    if (!bus)
        return std::nullopt;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
    GVariant* reply = g_dbus_connection_call_sync(
        bus.get(), kService, kObject, kInterface, "Read", g_variant_new("(ss)", kNamespace, kKey),
        G_VARIANT_TYPE("(v)"), G_DBUS_CALL_FLAGS_NONE,
        static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 1)), nullptr,
        nullptr);
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
    const Bus bus = user_bus();
    if (!bus)
        return;
    delete g_watch;
    g_watch = new Watch;
    g_watch->bus = bus;
    g_watch->callback = std::move(callback);
    g_watch->subscription = g_dbus_connection_signal_subscribe(
        bus.get(), kService, kInterface, "SettingChanged", kObject, nullptr,
        G_DBUS_SIGNAL_FLAGS_NONE, on_setting_changed_cb, nullptr, nullptr);
}

}  // namespace desktop_theme
