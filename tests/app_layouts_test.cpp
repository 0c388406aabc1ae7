// Ctrl and a letter on keyboards that type another alphabet, with the layouts of a real X server.

#include "app_display.h"
#include "app_fixture.h"

#include "logger.h"

#include <gdk/gdkkeysyms.h>

namespace {

using test_env::write_file;

class AppLayouts : public AppTest {
  protected:
    void SetUp() override {
        AppTest::SetUp();
        if (IsSkipped())
            return;
        // Others must not find another keyboard under their fingers.
        if (!test_env::use_own_display())
            GTEST_SKIP() << "Xvfb cannot be started";
        std::string ignored;
        if (test_env::run("command -v setxkbmap && command -v xkbcomp", &ignored) != 0)
            GTEST_SKIP() << "setxkbmap or xkbcomp is not installed";
    }
    // The layouts of the keyboard from now on, separated by commas; key is one that the first of
    // them types.
    void use_layouts(const std::string& layouts, guint first_key) {
        std::string output;
        ASSERT_EQ(test_env::run("setxkbmap -layout '" + layouts + "'", &output), 0) << output;
        ASSERT_TRUE(pump_until([&] { return keycode(first_key, 0) != 0; })) << layouts;
    }
    static GdkKeymap* keymap() { return gdk_keymap_get_for_display(gdk_display_get_default()); }
    // The hardware key that types this in a layout, without Shift. 0: none.
    static guint16 keycode(guint keyval, int group) {
        GdkKeymapKey* keys = nullptr;
        int count = 0;
        gdk_keymap_get_entries_for_keyval(keymap(), keyval, &keys, &count);
        guint16 found = 0;
        for (int i = 0; i < count && !found; ++i)
            if (keys[i].group == group && keys[i].level == 0)
                found = static_cast<guint16>(keys[i].keycode);
        g_free(keys);
        return found;
    }
    // The event that a hardware key makes while a layout is in use. Returns the key value.
    guint press(guint16 hardware_key, int group, guint state) {
        GdkEventKey event = {};
        event.type = GDK_KEY_PRESS;
        event.window = gtk_widget_get_window(app().m_window);
        event.state = state;
        event.hardware_keycode = hardware_key;
        event.group = static_cast<guint8>(group);
        EXPECT_TRUE(gdk_keymap_translate_keyboard_state(keymap(), hardware_key,
                                                        static_cast<GdkModifierType>(state), group,
                                                        &event.keyval, nullptr, nullptr, nullptr));
        app().handle_key(&event);
        frame();
        return event.keyval;
    }
    std::string action_logged() const {
        for (const std::string& line : log_lines())
            if (line.starts_with("action: "))
                return line.substr(8, line.find(" [") - 8);
        return "";
    }
    void start_anew() {
        app().close_overlay();
        app().end_path_edit();
        app().end_search(false);
        Log::instance().clear();
    }
};

struct Command {
    guint key;
    Action action;
};

constexpr Command kCommands[] = {
    {GDK_KEY_a, Action::SelectAll},
    {GDK_KEY_c, Action::CopyPath},
    {GDK_KEY_d, Action::BookmarkAdd},
    {GDK_KEY_g, Action::LogWindow},
    {GDK_KEY_h, Action::ToggleHidden},
    {GDK_KEY_l, Action::GoToPath},
    {GDK_KEY_r, Action::Refresh},
    {GDK_KEY_u, Action::SwapPanes},
    {GDK_KEY_comma, Action::SettingsWindow},
};

struct Keyboard {
    const char* layouts;
    guint first_key;
    int other;  // the layout in use
    int latin;
};

constexpr Keyboard kKeyboards[] = {
    {"us,ru", GDK_KEY_a, 1, 0},
    {"ru,us", GDK_KEY_Cyrillic_es, 0, 1},
    {"gr,us", GDK_KEY_Greek_alpha, 0, 1},
    {"il,us", GDK_KEY_hebrew_shin, 0, 1},
    {"ara,us", GDK_KEY_Arabic_sheen, 0, 1},
    {"ru,gr,us", GDK_KEY_Cyrillic_es, 1, 2},
};

TEST_F(AppLayouts, control_and_a_letter_work_in_every_alphabet) {
    write_file(left() + "/a", "x");
    start();
    for (const Keyboard& keyboard : kKeyboards) {
        use_layouts(keyboard.layouts, keyboard.first_key);
        for (const Command& command : kCommands) {
            const std::string name =
                std::string(keyboard.layouts) + " " + action_name(command.action);
            start_anew();
            const guint16 hardware_key = keycode(command.key, keyboard.latin);
            ASSERT_NE(hardware_key, 0) << name;
            const guint typed = press(hardware_key, keyboard.other, GDK_CONTROL_MASK);
            EXPECT_FALSE(typed >= GDK_KEY_a && typed <= GDK_KEY_z) << name;
            EXPECT_EQ(action_logged(), action_name(command.action)) << name;
            // With Shift there is no such command, unless the key types it so.
            start_anew();
            const guint shifted =
                press(hardware_key, keyboard.other, GDK_CONTROL_MASK | GDK_SHIFT_MASK);
            EXPECT_EQ(action_logged(), shifted == command.key ? action_name(command.action) : "")
                << name;
            start_anew();
            press(hardware_key, keyboard.other, GDK_MOD1_MASK);
            EXPECT_EQ(action_logged(), "") << name;
        }
        start_anew();
        press(keycode(GDK_KEY_f, keyboard.latin), keyboard.other, GDK_CONTROL_MASK);
        EXPECT_NE(app().m_search_pane, -1) << keyboard.layouts;
    }
}

// Beside the digits no other key means a byte, whatever it types.
TEST_F(AppLayouts, bytes_are_typed_in_every_alphabet) {
    write_file(left() + "/a", std::string(20, '.'));
    start();
    for (const Keyboard& keyboard : kKeyboards) {
        use_layouts(keyboard.layouts, keyboard.first_key);
        put_cursor_on("a");
        app().perform(Action::ViewHex, 0);
        ASSERT_EQ(app().m_overlay, App::Overlay::HexView);
        for (const char digit : {'b', '0', 'e', '9', 'g', 'a', 'f'}) {
            const guint keyval = gdk_unicode_to_keyval(static_cast<guint32>(digit));
            // A key that types the same in several layouts may be listed with the first alone.
            const guint16 listed = keycode(keyval, keyboard.latin);
            press(listed ? listed : keycode(keyval, 0), keyboard.other,
                  digit == 'e' ? guint{GDK_SHIFT_MASK} : 0U);
        }
        EXPECT_EQ(app().m_hex_edits,
                  (std::map<int64_t, unsigned char>{{0, 0xb0}, {1, 0xe9}, {2, 0xaf}}))
            << keyboard.layouts;
        // In the other column a key is what it types, of which only ASCII is one byte.
        press(keycode(GDK_KEY_a, keyboard.latin), keyboard.other, GDK_MOD1_MASK);
        app().m_hex_in_ascii = true;
        press(keycode(GDK_KEY_a, keyboard.latin), keyboard.other, 0);
        EXPECT_EQ(app().m_hex_edits.size(), 3U) << keyboard.layouts;
        app().perform(Action::HexCloseAnyway, 0);
    }
}

TEST_F(AppLayouts, the_fields_copy_and_paste_in_every_alphabet) {
    write_file(left() + "/a", "x");
    start();
    use_layouts("us,ru", GDK_KEY_a);
    const auto control = [this](guint key) { press(keycode(key, 0), 1, GDK_CONTROL_MASK); };
    app().begin_path_edit(false);
    app().m_path_buffer = "/x";
    app().m_path_caret = 1;
    control(GDK_KEY_c);
    control(GDK_KEY_v);
    EXPECT_EQ(app().m_path_buffer, "//xx");
    control(GDK_KEY_a);
    EXPECT_EQ(app().m_path_caret, 4U);
    app().end_path_edit();
    gtk_clipboard_set_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD), "new", -1);
    put_cursor_on("a");
    pane().begin_rename();
    control(GDK_KEY_v);
    EXPECT_EQ(pane().rename_buffer(), "anew");
    pane().cancel_rename();
    app().open_text_input(App::Overlay::NewFile, "dlg.new_file_title", "");
    control(GDK_KEY_v);
    EXPECT_EQ(app().m_input_buffer, "new");
    control(GDK_KEY_c);
    EXPECT_EQ(app().m_input_buffer, "new");
}

// In a layout with Latin letters of its own a key is what it types: the one that is Q elsewhere
// must not end the program.
TEST_F(AppLayouts, another_latin_layout_is_taken_at_its_word) {
    start();
    use_layouts("us,us(dvorak)", GDK_KEY_a);
    EXPECT_EQ(press(keycode(GDK_KEY_q, 0), 1, GDK_CONTROL_MASK), guint{GDK_KEY_apostrophe});
    EXPECT_EQ(action_logged(), "");
    EXPECT_EQ(press(keycode(GDK_KEY_w, 0), 1, GDK_CONTROL_MASK), guint{GDK_KEY_comma});
    EXPECT_EQ(action_logged(), "SettingsWindow");
}

TEST_F(AppLayouts, without_a_latin_layout_there_is_nothing_to_look_up) {
    start();
    use_layouts("ru", GDK_KEY_Cyrillic_es);
    press(keycode(GDK_KEY_Cyrillic_ef, 0), 0, GDK_CONTROL_MASK);
    EXPECT_EQ(action_logged(), "");
}

}  // namespace
