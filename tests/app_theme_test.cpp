// The desktop's preference for a dark look: a portal on a bus of the test's own, GTK's settings,
// and a running window that follows.

#include "app_display.h"
#include "app_fixture.h"
#include "app_portal.h"
#include "desktop_theme.h"
#include "settings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

namespace {

using desktop_theme::prefers_dark;
using test_env::Portal;
using test_env::PrivateBus;
using test_env::SilentBus;

constexpr const char* kSpace = "org.freedesktop.appearance";
constexpr const char* kKey = "color-scheme";
constexpr const char* kObject = "/org/freedesktop/portal/desktop";
constexpr const char* kInterface = "org.freedesktop.portal.Settings";

void set_gtk(bool prefer_dark, const char* theme) {
    g_object_set(gtk_settings_get_default(), "gtk-application-prefer-dark-theme",
                 static_cast<gboolean>(prefer_dark), "gtk-theme-name", theme, nullptr);
}

// GTK's settings set up so that they give this answer.
void gtk_answers(bool dark) {
    set_gtk(false, dark ? "Adwaita-dark" : "Adwaita");
}

GVariant* contents(const char* text) {
    GVariant* parsed = g_variant_parse(nullptr, text, nullptr, nullptr, nullptr);
    GVariant* floating = g_variant_ref(g_variant_new_tuple(&parsed, 1));
    g_variant_unref(parsed);
    return floating;
}

class DesktopTheme : public AppTest {
  protected:
    void SetUp() override {
        AppTest::SetUp();
        if (IsSkipped())
            return;
        gtk_init(nullptr, nullptr);
        set_gtk(false, "Adwaita");
    }
    ~DesktopTheme() override { desktop_theme::watch({}); }

    // A bus, and on it a portal if there is to be one.
    void set_up_bus(bool with_portal = true) {
        m_bus = std::make_unique<PrivateBus>();
        if (m_bus->address().empty())
            GTEST_SKIP() << "dbus-daemon is not installed";
        setenv("DBUS_SESSION_BUS_ADDRESS", m_bus->address().c_str(), 1);
        if (!with_portal)
            return;
        m_portal = std::make_unique<Portal>(*m_bus);
        ASSERT_TRUE(m_portal->ok());
    }
    PrivateBus& bus() { return *m_bus; }
    Portal& portal() { return *m_portal; }

  private:
    std::unique_ptr<PrivateBus> m_bus;
    std::unique_ptr<Portal> m_portal;
};

#define SET_UP_BUS(...)                                                                            \
    set_up_bus(__VA_ARGS__);                                                                       \
    if (IsSkipped() || HasFatalFailure())                                                          \
    return

// --- The question -----------------------------------------------------------------------------

TEST_F(DesktopTheme, without_a_bus_gtk_decides) {
    struct Case {
        bool prefer;
        const char* theme;
        bool dark;
    };
    for (const Case& row : {Case{false, "Adwaita", false}, Case{true, "Adwaita", true},
                            Case{false, "Adwaita-dark", true}, Case{false, "NORDARKER", true},
                            Case{false, "MyDaRkTheme", true}, Case{false, "", false},
                            Case{true, "", true}, Case{false, "da rk", false}}) {
        set_gtk(row.prefer, row.theme);
        EXPECT_EQ(prefers_dark(), row.dark) << row.prefer << " " << row.theme;
    }
}

TEST_F(DesktopTheme, without_a_portal_gtk_decides) {
    SET_UP_BUS(false);
    for (const bool dark : {true, false}) {
        gtk_answers(dark);
        EXPECT_EQ(prefers_dark(), dark);
    }
}

TEST_F(DesktopTheme, the_portal_is_asked_for_the_colour_scheme) {
    SET_UP_BUS();
    portal().answer("uint32 1");
    EXPECT_TRUE(prefers_dark());
    EXPECT_EQ(portal().questions(), 1);
    EXPECT_EQ(portal().last_question(), "org.freedesktop.appearance color-scheme");
}

TEST_F(DesktopTheme, the_portals_1_and_2_decide_over_gtk) {
    SET_UP_BUS();
    for (const bool gtk_dark : {true, false}) {
        gtk_answers(gtk_dark);
        for (const char* dark : {"uint32 1", "<uint32 1>", "<<<uint32 1>>>"}) {
            portal().answer(dark);
            EXPECT_TRUE(prefers_dark()) << dark;
        }
        for (const char* light : {"uint32 2", "<uint32 2>", "<<<uint32 2>>>"}) {
            portal().answer(light);
            EXPECT_FALSE(prefers_dark()) << light;
        }
    }
}

TEST_F(DesktopTheme, any_other_answer_of_the_portal_leaves_it_to_gtk) {
    SET_UP_BUS();
    for (const bool gtk_dark : {true, false}) {
        gtk_answers(gtk_dark);
        for (const char* other :
             {"uint32 0", "uint32 3", "uint32 4294967295", "<uint32 0>", "int32 1", "byte 0x01",
              "uint64 1", "true", "'1'", "[uint32 1]", "(uint32 1,)", "@au []"}) {
            portal().answer(other);
            EXPECT_EQ(prefers_dark(), gtk_dark) << other;
        }
        portal().answer("");  // an error
        EXPECT_EQ(prefers_dark(), gtk_dark);
    }
    // No preference, and a theme whose name tells it in some case.
    portal().answer("uint32 0");
    set_gtk(false, "SomeDARKtheme");
    EXPECT_TRUE(prefers_dark());
}

TEST_F(DesktopTheme, an_answer_after_half_a_second_is_not_waited_for) {
    SET_UP_BUS();
    portal().answer("uint32 1");
    portal().delay_ms(1500);
    const double began = App::now_seconds();
    EXPECT_FALSE(prefers_dark());
    const double took = App::now_seconds() - began;
    EXPECT_GE(took, 0.45);
    EXPECT_LT(took, 1.4);
    gtk_answers(true);
    EXPECT_TRUE(prefers_dark());
    // The late answers do harm to nothing that comes after them.
    portal().delay_ms(0);
    portal().answer("uint32 2");
    EXPECT_TRUE(pump_until([] { return !prefers_dark(); }));
}

TEST_F(DesktopTheme, a_bus_that_never_answers_is_waited_for_half_a_second_and_only_once) {
    SilentBus silent;
    setenv("DBUS_SESSION_BUS_ADDRESS", silent.address().c_str(), 1);
    gtk_answers(true);
    const double began = App::now_seconds();
    EXPECT_TRUE(prefers_dark());
    const double took = App::now_seconds() - began;
    EXPECT_GE(took, 0.45);
    EXPECT_LT(took, 1.4);
    // What is known to be silent is not waited for again.
    const double again = App::now_seconds();
    gtk_answers(false);
    EXPECT_FALSE(prefers_dark());
    desktop_theme::watch([] {});
    EXPECT_LT(App::now_seconds() - again, 0.5);
}

TEST_F(DesktopTheme, after_a_silent_bus_a_sound_one_is_asked) {
    SilentBus silent;
    setenv("DBUS_SESSION_BUS_ADDRESS", silent.address().c_str(), 1);
    EXPECT_FALSE(prefers_dark());
    SET_UP_BUS();
    portal().answer("uint32 1");
    silent.end();
    EXPECT_TRUE(pump_until([] { return prefers_dark(); }, 10));
}

TEST_F(DesktopTheme, a_bus_that_goes_away_leaves_gtk_and_the_process) {
    SET_UP_BUS();
    portal().answer("uint32 1");
    int calls = 0;
    desktop_theme::watch([&calls] { ++calls; });
    EXPECT_TRUE(prefers_dark());
    bus().end();
    // A connection that ends the process with its bus would do so here.
    pump_until([] { return false; }, 0.3);
    EXPECT_FALSE(prefers_dark());
    EXPECT_EQ(calls, 0);
}

// --- The watch --------------------------------------------------------------------------------

TEST_F(DesktopTheme, each_change_of_the_colour_scheme_calls_back) {
    SET_UP_BUS();
    int calls = 0;
    desktop_theme::watch([&calls] { ++calls; });
    pump_until([] { return false; }, 0.2);
    portal().changed(kSpace, kKey);
    EXPECT_TRUE(pump_until([&calls] { return calls == 1; }, 5));
    // Whatever the value is said to be.
    portal().changed(kSpace, kKey, "'nonsense'");
    EXPECT_TRUE(pump_until([&calls] { return calls == 2; }, 5));
    EXPECT_EQ(portal().questions(), 0);
}

TEST_F(DesktopTheme, nothing_else_calls_back) {
    SET_UP_BUS();
    int calls = 0;
    desktop_theme::watch([&calls] { ++calls; });
    pump_until([] { return false; }, 0.2);
    portal().changed("org.gnome.desktop.interface", kKey);
    portal().changed(kSpace, "accent-color");
    portal().changed("", "");
    const auto good = [] { return g_variant_new("(ssv)", kSpace, kKey, g_variant_new_uint32(1)); };
    portal().signal("/org/freedesktop/portal/other", kInterface, "SettingChanged", good());
    portal().signal(kObject, "org.freedesktop.portal.Other", "SettingChanged", good());
    portal().signal(kObject, kInterface, "SettingsChanged", good());
    // Contents of another shape.
    portal().signal(kObject, kInterface, "SettingChanged", contents("'x'"));
    portal().signal(kObject, kInterface, "SettingChanged",
                    g_variant_new("(sss)", kSpace, kKey, "1"));
    // From somebody who is not the portal.
    GDBusConnection* stranger = g_dbus_connection_new_for_address_sync(
        bus().address().c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    ASSERT_NE(stranger, nullptr);
    g_dbus_connection_emit_signal(stranger, nullptr, kObject, kInterface, "SettingChanged", good(),
                                  nullptr);
    g_dbus_connection_flush_sync(stranger, nullptr, nullptr);
    g_object_unref(stranger);
    pump_until([] { return false; }, 0.3);
    EXPECT_EQ(calls, 0);
    // All of these have been passed by when this one arrives.
    portal().changed(kSpace, kKey);
    EXPECT_TRUE(pump_until([&calls] { return calls > 0; }, 5));
    EXPECT_EQ(calls, 1);
}

TEST_F(DesktopTheme, a_second_watch_replaces_the_first_and_an_empty_one_ends_it) {
    SET_UP_BUS();
    int first = 0;
    int second = 0;
    desktop_theme::watch([&first] { ++first; });
    desktop_theme::watch([&second] { ++second; });
    pump_until([] { return false; }, 0.2);
    portal().changed(kSpace, kKey);
    EXPECT_TRUE(pump_until([&second] { return second == 1; }, 5));
    pump_until([] { return false; }, 0.2);
    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, 1);
    desktop_theme::watch({});
    portal().changed(kSpace, kKey);
    pump_until([] { return false; }, 0.3);
    EXPECT_EQ(second, 1);
}

TEST_F(DesktopTheme, a_watch_without_a_bus_does_nothing) {
    int calls = 0;
    desktop_theme::watch([&calls] { ++calls; });
    pump_until([] { return false; }, 0.1);
    EXPECT_EQ(calls, 0);
}

// The portal may come after the program, as it does where it is started on demand.
TEST_F(DesktopTheme, a_portal_that_comes_later_is_heard) {
    SET_UP_BUS(false);
    int calls = 0;
    desktop_theme::watch([&calls] { ++calls; });
    pump_until([] { return false; }, 0.1);
    Portal late(bus());
    ASSERT_TRUE(late.ok());
    pump_until([] { return false; }, 0.2);
    late.changed(kSpace, kKey);
    EXPECT_TRUE(pump_until([&calls] { return calls == 1; }, 5));
}

// --- The running window -----------------------------------------------------------------------

class ThemeWindow : public DesktopTheme {
  protected:
    void SetUp() override {
        if (!test_env::use_own_display())
            GTEST_SKIP() << "Xvfb cannot be started";
        DesktopTheme::SetUp();
    }
    void start_with(const char* theme) {
        test_env::write_file(config_file("settings.json"),
                             std::string("{\"theme\": \"") + theme + "\"}");
        start();
        // What the start has flashed goes on painting for seconds.
        app().m_flash_until = 0;
        pump_until([] { return false; }, 0.5);
    }
    // A pixel of the inactive list's empty space.
    std::string ground() {
        frame();
        const App::Layout& l = app().m_layout;
        return pixel(static_cast<int>(l.right_x + l.right_w / 2),
                     static_cast<int>(l.status_y - 40));
    }
};

TEST_F(ThemeWindow, an_auto_theme_asks_at_the_start) {
    SET_UP_BUS();
    portal().answer("uint32 1");
    start_with("auto");
    EXPECT_TRUE(app().m_palette.dark);
    EXPECT_EQ(ground(), Palette::dark_().pane);
    EXPECT_EQ(portal().questions(), 1);
    EXPECT_TRUE(logged("language en, theme auto"));
}

TEST_F(ThemeWindow, a_signal_switches_the_window_there_and_back) {
    SET_UP_BUS();
    portal().answer("uint32 2");
    start_with("auto");
    EXPECT_EQ(ground(), Palette::light().pane);
    portal().answer("uint32 1");
    portal().changed(kSpace, kKey);
    EXPECT_TRUE(pump_until([this] { return app().m_palette.dark; }, 5));
    EXPECT_EQ(ground(), Palette::dark_().pane);
    shot("theme-dark");
    portal().answer("uint32 0");
    portal().changed(kSpace, kKey);
    EXPECT_TRUE(pump_until([this] { return !app().m_palette.dark; }, 5));
    EXPECT_EQ(ground(), Palette::light().pane);
}

// Nobody moves the pointer or the cursor: the window repaints of itself.
TEST_F(ThemeWindow, the_switch_asks_for_a_frame_and_an_ignored_one_does_not) {
    SET_UP_BUS();
    portal().answer("uint32 2");
    start_with("auto");
    // A window with a dialogue does not repaint by the clock.
    app().show_message("a", "dialogue");
    pump_until([] { return false; }, 0.4);
    const auto repaints = [this](double seconds) {
        app().m_hits.clear();
        return pump_until([this] { return !app().m_hits.empty(); }, seconds);
    };
    // A frame of what was before may still be on its way.
    const auto falls_quiet = [&repaints] {
        int tries = 20;
        while (tries > 0 && repaints(0.5))
            --tries;
        return tries > 0;
    };
    ASSERT_TRUE(falls_quiet());
    portal().answer("uint32 1");
    portal().changed(kSpace, kKey);
    EXPECT_TRUE(repaints(5));
    EXPECT_TRUE(app().m_palette.dark);
    ASSERT_TRUE(falls_quiet());
    SettingsStore::instance().mutable_get().theme = "light";
    portal().changed(kSpace, kKey);
    EXPECT_FALSE(repaints(0.5));
}

TEST_F(ThemeWindow, other_settings_of_the_desktop_switch_nothing) {
    SET_UP_BUS();
    portal().answer("uint32 2");
    start_with("auto");
    const int asked = portal().questions();
    portal().answer("uint32 1");
    portal().changed("org.gnome.desktop.interface", kKey);
    portal().changed(kSpace, "contrast");
    pump_until([] { return false; }, 0.4);
    EXPECT_FALSE(app().m_palette.dark);
    EXPECT_EQ(portal().questions(), asked);
}

TEST_F(ThemeWindow, a_light_or_dark_theme_ignores_the_desktop) {
    SET_UP_BUS();
    portal().answer("uint32 1");
    start_with("light");
    portal().changed(kSpace, kKey);
    pump_until([] { return false; }, 0.4);
    EXPECT_FALSE(app().m_palette.dark);
    SettingsStore::instance().mutable_get().theme = "dark";
    app().apply_theme();
    portal().answer("uint32 2");
    portal().changed(kSpace, kKey);
    pump_until([] { return false; }, 0.4);
    EXPECT_TRUE(app().m_palette.dark);
    EXPECT_EQ(portal().questions(), 0);
}

TEST_F(ThemeWindow, choosing_auto_asks_at_once) {
    SET_UP_BUS();
    portal().answer("uint32 2");
    start_with("dark");
    EXPECT_EQ(portal().questions(), 0);
    app().perform(Action::SettingsTheme, 0);
    EXPECT_EQ(SettingsStore::instance().get().theme, "auto");
    EXPECT_EQ(portal().questions(), 1);
    EXPECT_FALSE(app().m_palette.dark);
    // And from here on the signal counts.
    portal().answer("uint32 1");
    portal().changed(kSpace, kKey);
    EXPECT_TRUE(pump_until([this] { return app().m_palette.dark; }, 5));
}

TEST_F(ThemeWindow, a_late_portal_delays_the_start_by_half_a_second_at_most) {
    SET_UP_BUS();
    portal().answer("uint32 1");
    portal().delay_ms(3000);
    start_with("auto");
    EXPECT_FALSE(app().m_palette.dark);
    EXPECT_EQ(portal().questions(), 1);
}

TEST_F(ThemeWindow, a_silent_bus_does_not_keep_the_window_away) {
    const SilentBus silent;
    setenv("DBUS_SESSION_BUS_ADDRESS", silent.address().c_str(), 1);
    gtk_answers(true);
    start_with("auto");
    EXPECT_TRUE(app().m_palette.dark);
    app().perform(Action::SettingsTheme, 0);
    EXPECT_FALSE(app().m_palette.dark);
}

TEST_F(ThemeWindow, a_start_without_a_bus_goes_by_gtk) {
    gtk_answers(true);
    start_with("auto");
    EXPECT_TRUE(app().m_palette.dark);
}

// A bus that ends takes neither the window nor a copy with it.
TEST_F(ThemeWindow, the_window_outlives_the_bus) {
    SET_UP_BUS();
    portal().answer("uint32 1");
    start_with("auto");
    bus().end();
    pump_until([] { return false; }, 0.5);
    EXPECT_NE(app().m_window, nullptr);
    EXPECT_FALSE(app().m_quitting);
    app().perform(Action::SettingsTheme, 0);
    EXPECT_FALSE(app().m_palette.dark);
}

}  // namespace
