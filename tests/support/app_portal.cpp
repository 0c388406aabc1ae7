#include "app_portal.h"

#include "app_display.h"

#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace test_env {

namespace {

// Behind the address to listen at.
constexpr const char* kBusConfig = R"(
  <type>session</type>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

constexpr const char* kService = "org.freedesktop.portal.Desktop";
constexpr const char* kObject = "/org/freedesktop/portal/desktop";
constexpr const char* kInterface = "org.freedesktop.portal.Settings";

constexpr const char* kIntrospection = R"(<node>
  <interface name="org.freedesktop.portal.Settings">
    <method name="Read">
      <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="v" direction="out"/>
    </method>
    <signal name="SettingChanged"><arg type="s"/><arg type="s"/><arg type="v"/></signal>
  </interface>
</node>)";

}  // namespace

PrivateBus::PrivateBus() {
    write_file(m_dir / "bus.conf",
               "<busconfig><listen>unix:tmpdir=" + m_dir.path() + "</listen>" + kBusConfig);
    m_address = spawn_and_read_line(
        {"dbus-daemon", "--nofork", "--config-file=" + (m_dir / "bus.conf"), "--print-address=%fd"},
        m_pid);
}

PrivateBus::~PrivateBus() {
    end();
}

void PrivateBus::end() {
    test_env::end(m_pid);
    m_pid = -1;
}

// The kernel takes the connections, as many as there is room for in the queue.
SilentBus::SilentBus() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (m_dir / "bus").c_str(), sizeof address.sun_path - 1);
    m_listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    if (bind(m_listener, generic, sizeof address) != 0 || listen(m_listener, 16) != 0)
        ADD_FAILURE() << "no socket at " << address.sun_path;
}

SilentBus::~SilentBus() {
    end();
}

void SilentBus::end() {
    if (m_listener >= 0)
        close(m_listener);
    m_listener = -1;
}

Portal::Portal(const PrivateBus& bus) {
    std::promise<void> ready;
    m_context = g_main_context_new();
    m_loop = g_main_loop_new(m_context, FALSE);
    m_thread = std::thread(
        [this, &bus, &ready] { serve(bus.address(), [&ready] { ready.set_value(); }); });
    ready.get_future().wait();
}

Portal::~Portal() {
    // From within the loop, which may not run yet.
    g_main_context_invoke(
        m_context,
        [](gpointer loop) -> gboolean {
            g_main_loop_quit(static_cast<GMainLoop*>(loop));
            return FALSE;
        },
        m_loop);
    m_thread.join();
    if (m_bus)
        g_object_unref(m_bus);
    g_main_loop_unref(m_loop);
    g_main_context_unref(m_context);
}

void Portal::serve(const std::string& address, const std::function<void()>& ready) {
    g_main_context_push_thread_default(m_context);
    const auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    m_bus =
        g_dbus_connection_new_for_address_sync(address.c_str(), flags, nullptr, nullptr, nullptr);
    if (m_bus) {
        GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kIntrospection, nullptr);
        static const GDBusInterfaceVTable table = {on_call_cb, nullptr, nullptr, {}};
        g_dbus_connection_register_object(m_bus, kObject, node->interfaces[0], &table, this,
                                          nullptr, nullptr);
        g_dbus_node_info_unref(node);
        GVariant* owned = g_dbus_connection_call_sync(
            m_bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "RequestName", g_variant_new("(su)", kService, 4U), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
            nullptr, nullptr);
        if (owned)
            g_variant_unref(owned);
    }
    ready();
    g_main_loop_run(m_loop);
    if (m_bus)
        g_dbus_connection_close_sync(m_bus, nullptr, nullptr);
    g_main_context_pop_thread_default(m_context);
}

void Portal::answer(const std::string& value) {
    const std::lock_guard lock(m_mutex);
    m_answer = value;
}

std::string Portal::last_question() const {
    const std::lock_guard lock(m_mutex);
    return m_last_question;
}

GVariant* Portal::reply() {
    const std::lock_guard lock(m_mutex);
    if (m_answer.empty())
        return nullptr;
    GVariant* value = g_variant_parse(nullptr, m_answer.c_str(), nullptr, nullptr, nullptr);
    GVariant* reply = g_variant_new("(v)", value);
    g_variant_unref(value);
    return reply;
}

void Portal::on_call_cb(GDBusConnection*, const char*, const char*, const char*, const char*,
                        GVariant* parameters, GDBusMethodInvocation* invocation, gpointer data) {
    Portal& portal = *static_cast<Portal*>(data);
    const char* space = nullptr;
    const char* key = nullptr;
    g_variant_get(parameters, "(&s&s)", &space, &key);
    {
        const std::lock_guard lock(portal.m_mutex);
        portal.m_last_question = std::string(space) + " " + key;
    }
    ++portal.m_questions;
    g_usleep(static_cast<gulong>(portal.m_delay_ms) * 1000);
    if (GVariant* reply = portal.reply())
        g_dbus_method_invocation_return_value(invocation, reply);
    else
        g_dbus_method_invocation_return_dbus_error(
            invocation, "org.freedesktop.portal.Error.NotFound", "Requested setting not found");
}

void Portal::changed(const std::string& space, const std::string& key, const std::string& value) {
    GVariant* parsed = g_variant_parse(nullptr, value.c_str(), nullptr, nullptr, nullptr);
    signal(kObject, kInterface, "SettingChanged",
           g_variant_new("(ssv)", space.c_str(), key.c_str(), parsed));
    g_variant_unref(parsed);
}

void Portal::signal(const char* object, const char* interface, const char* name,
                    GVariant* parameters) {
    g_dbus_connection_emit_signal(m_bus, nullptr, object, interface, name, parameters, nullptr);
    g_dbus_connection_flush_sync(m_bus, nullptr, nullptr);
}

}  // namespace test_env
