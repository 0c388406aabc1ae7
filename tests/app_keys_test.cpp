// The keyboard: the chain of modes, the shortcut table, type-ahead, the busy gate, and the keys of
// dialogues and of a rename.

#include "app_fixture.h"

#include "app_redraw.h"

#include "faultfs.h"
#include "logger.h"
#include "settings.h"

#include <gdk/gdkkeysyms.h>

namespace {

using test_env::exists;
using test_env::make_dirs;
using test_env::read_file;
using test_env::write_file;

class AppKeys : public AppTest {
  protected:
    void make_files(int count) {
        for (int i = 0; i < count; ++i)
            write_file(left() + "/file" + std::to_string(i), "x");
    }
    void open_conflict() {
        write_file(left() + "/taken", "new");
        write_file(right() + "/taken", "old");
        app().refresh_both();
        pane().clear_selection();
        put_cursor_on("taken");
        key(GDK_KEY_F5);
        ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
        app().m_conflict_deaf_until = 0;  // as after a quarter of a second
        frame();
    }
};

TEST_F(AppKeys, tab_changes_the_side_with_any_modifier) {
    start();
    key(GDK_KEY_Tab);
    EXPECT_TRUE(app().m_active_right);
    key(GDK_KEY_ISO_Left_Tab, GDK_SHIFT_MASK);
    EXPECT_FALSE(app().m_active_right);
    key(GDK_KEY_Tab, GDK_CONTROL_MASK);
    EXPECT_TRUE(app().m_active_right);
}

TEST_F(AppKeys, the_cursor_moves_and_takes_the_mark_along) {
    make_files(5);
    start();
    key(GDK_KEY_Down);
    EXPECT_EQ(cursor_name(), "file0");
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"file0"}));
    key(GDK_KEY_Down);
    key(GDK_KEY_Up);
    EXPECT_EQ(cursor_name(), "file0");
    key(GDK_KEY_End);
    EXPECT_EQ(cursor_name(), "file4");
    key(GDK_KEY_Home);
    EXPECT_EQ(cursor_name(), "..");
    EXPECT_TRUE(selected_names().empty());
    // The table looks at a modifier only where it names one.
    key(GDK_KEY_Down, GDK_CONTROL_MASK);
    EXPECT_EQ(cursor_name(), "file0");
    key(GDK_KEY_Down, GDK_CONTROL_MASK);
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"file1"}));
}

TEST_F(AppKeys, shift_extends_the_marks) {
    make_files(5);
    start();
    key(GDK_KEY_Down);
    key(GDK_KEY_Down, GDK_SHIFT_MASK);
    key(GDK_KEY_Down, GDK_SHIFT_MASK);
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"file0", "file1", "file2"}));
    key(GDK_KEY_Up, GDK_SHIFT_MASK);
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"file0", "file1"}));
    key(GDK_KEY_End, GDK_SHIFT_MASK);
    EXPECT_EQ(selected_names().size(), 5U);
}

TEST_F(AppKeys, a_page_is_the_rows_in_view_and_the_cursor_stays_visible) {
    make_files(100);
    start();
    const int page = app().rows_in_view(false);
    ASSERT_EQ(page, 19);
    key(GDK_KEY_Page_Down);
    EXPECT_EQ(pane().cursor(), page);
    EXPECT_EQ(pane().scroll(), 1);
    key(GDK_KEY_Page_Down);
    EXPECT_EQ(pane().cursor(), 2 * page);
    key(GDK_KEY_Page_Up);
    EXPECT_EQ(pane().cursor(), page);
    key(GDK_KEY_End);
    EXPECT_EQ(pane().cursor(), 100);
    EXPECT_EQ(pane().scroll(), 101 - page);
    key(GDK_KEY_Home);
    EXPECT_EQ(pane().scroll(), 0);
}

TEST_F(AppKeys, return_opens_and_backspace_goes_up) {
    make_dirs(left() + "/sub");
    start();
    key(GDK_KEY_Down);
    key(GDK_KEY_Return);
    EXPECT_EQ(pane().path(), left() + "/sub");
    key(GDK_KEY_BackSpace);
    EXPECT_EQ(pane().path(), left());
    EXPECT_EQ(cursor_name(), "sub");
    key(GDK_KEY_KP_Enter);
    EXPECT_EQ(pane().path(), left() + "/sub");
    key(GDK_KEY_Return);  // the parent row
    EXPECT_EQ(pane().path(), left());
    key(GDK_KEY_Right);
    EXPECT_EQ(pane().path(), left() + "/sub");
    key(GDK_KEY_Left);
    EXPECT_EQ(pane().path(), left());
    key(GDK_KEY_Left, GDK_MOD1_MASK);
    EXPECT_EQ(pane().path(), left() + "/sub");
    key(GDK_KEY_Right, GDK_MOD1_MASK);
    EXPECT_EQ(pane().path(), left());
    key(GDK_KEY_Home, GDK_CONTROL_MASK);
    EXPECT_EQ(pane().path(), test_env::root() + "/home");
}

TEST_F(AppKeys, return_with_alt_asks_for_the_properties_and_opens_nothing) {
    make_dirs(left() + "/sub");
    start();
    key(GDK_KEY_Down);
    for (const guint keyval : std::initializer_list<guint>{GDK_KEY_Return, GDK_KEY_KP_Enter}) {
        Log::instance().clear();
        key(keyval, GDK_MOD1_MASK);
        EXPECT_TRUE(logged("action: Properties [" + left() + "]"));
        EXPECT_EQ(pane().path(), left());
        app().close_overlay();
    }
}

// The folder just left may stand far down in the list.
TEST_F(AppKeys, going_up_shows_the_folder_just_left) {
    for (int i = 10; i < 90; ++i)
        make_dirs(left() + "/sub" + std::to_string(i));
    start({"--left=" + left() + "/sub77"});
    const auto in_view = [this] {
        const int row = pane().cursor() - pane().scroll();
        return row >= 0 && row < app().rows_in_view(false);
    };
    key(GDK_KEY_BackSpace);
    EXPECT_EQ(cursor_name(), "sub77");
    EXPECT_TRUE(in_view());
    key(GDK_KEY_Return);
    key(GDK_KEY_Return);  // the parent row
    EXPECT_EQ(cursor_name(), "sub77");
    EXPECT_TRUE(in_view());
}

TEST_F(AppKeys, space_marks_and_leaves_the_cursor) {
    make_files(3);
    start();
    pane().set_cursor(2, false);
    key(GDK_KEY_space);
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"file1"}));
    EXPECT_EQ(pane().cursor(), 2);
    key(GDK_KEY_space);
    EXPECT_TRUE(selected_names().empty());
    EXPECT_EQ(pane().cursor(), 2);
    pane().set_cursor(0, false);
    key(GDK_KEY_space);
    EXPECT_TRUE(selected_names().empty());
}

TEST_F(AppKeys, escape_clears_the_marks_of_the_active_side) {
    make_files(3);
    start();
    write_file(right() + "/other", "x");
    app().refresh_both();
    pane(true).select_all();
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    EXPECT_EQ(selected_names().size(), 3U);
    key(GDK_KEY_Escape);
    EXPECT_TRUE(selected_names().empty());
    EXPECT_EQ(selected_names(true).size(), 1U);
}

TEST_F(AppKeys, control_letters_are_taken_in_lower_case_alone) {
    make_files(2);
    start();
    key(GDK_KEY_A, GDK_CONTROL_MASK | GDK_SHIFT_MASK);
    EXPECT_TRUE(selected_names().empty());
    key(GDK_KEY_a);
    EXPECT_TRUE(selected_names().empty());
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    EXPECT_EQ(selected_names().size(), 2U);
    key(GDK_KEY_asterisk, GDK_SHIFT_MASK);
    EXPECT_TRUE(selected_names().empty());
    key(GDK_KEY_KP_Multiply);
    EXPECT_EQ(selected_names().size(), 2U);
}

TEST_F(AppKeys, the_control_commands) {
    write_file(left() + "/.hidden", "x");
    start();
    key(GDK_KEY_h, GDK_CONTROL_MASK);
    EXPECT_EQ(names(), (std::vector<std::string>{".."}));
    write_file(left() + "/new", "x");
    key(GDK_KEY_r, GDK_CONTROL_MASK);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "new"}));
    key(GDK_KEY_u, GDK_CONTROL_MASK);
    EXPECT_EQ(pane(true).path(), left());
    key(GDK_KEY_q, GDK_CONTROL_MASK);
    EXPECT_TRUE(pump_until([this] { return app().m_window == nullptr; }));
}

TEST_F(AppKeys, f5_copies_and_f6_moves) {
    write_file(left() + "/a", "1");
    write_file(left() + "/b", "2");
    start();
    put_cursor_on("a");
    key(GDK_KEY_F5);
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(right() + "/a"), "1");
    EXPECT_TRUE(exists(left() + "/a"));
    put_cursor_on("b");
    key(GDK_KEY_F6);
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(right() + "/b"), "2");
    EXPECT_FALSE(exists(left() + "/b"));
}

TEST_F(AppKeys, a_key_without_meaning_does_and_says_nothing) {
    write_file(left() + "/file", "x");
    start();
    key(GDK_KEY_End);
    const size_t lines = log_lines().size();
    for (const guint keyval : std::initializer_list<guint>{
             GDK_KEY_F9, GDK_KEY_Insert, GDK_KEY_Shift_L, GDK_KEY_Super_L, GDK_KEY_VoidSymbol, 0})
        key(keyval);
    EXPECT_EQ(log_lines().size(), lines);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(cursor_name(), "file");
}

TEST_F(AppKeys, where_the_cursor_goes_is_painted) {
    write_file(left() + "/file", "x");
    start();
    GdkEventKey event = {};
    event.type = GDK_KEY_PRESS;
    event.window = gtk_widget_get_window(app().m_window);
    for (const guint keyval : std::initializer_list<guint>{GDK_KEY_Down, GDK_KEY_Up}) {
        event.keyval = keyval;
        (void)test_env::redraw_due(app().m_canvas);
        app().handle_key(&event);
        EXPECT_TRUE(test_env::redraw_due(app().m_canvas)) << keyval;
    }
}

TEST_F(AppKeys, gtk_never_sees_a_key) {
    start();
    for (const guint keyval :
         std::initializer_list<guint>{GDK_KEY_Tab, GDK_KEY_F10, GDK_KEY_VoidSymbol}) {
        GdkEvent* event = gdk_event_new(GDK_KEY_PRESS);
        event->key.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(app().m_window)));
        event->key.keyval = keyval;
        EXPECT_TRUE(gtk_widget_event(app().m_window, event));
        gdk_event_free(event);
    }
    EXPECT_TRUE(app().m_active_right);
}

// Every key of the table that is an action and nothing more.
TEST_F(AppKeys, the_table_of_actions) {
    write_file(left() + "/file", "x");
    start();
    struct Row {
        guint keyval;
        guint state;
        Action action;
    };
    for (const Row& row : {
             Row{GDK_KEY_Home, GDK_CONTROL_MASK, Action::GoHome},
             Row{GDK_KEY_Left, 0, Action::GoUp},
             Row{GDK_KEY_Left, GDK_MOD1_MASK, Action::GoBack},
             Row{GDK_KEY_Right, GDK_MOD1_MASK, Action::GoForward},
             Row{GDK_KEY_Return, GDK_MOD1_MASK, Action::Properties},
             Row{GDK_KEY_KP_Enter, GDK_MOD1_MASK, Action::Properties},
             Row{GDK_KEY_BackSpace, 0, Action::GoUp},
             Row{GDK_KEY_Delete, 0, Action::Delete},
             Row{GDK_KEY_F2, 0, Action::Rename},
             Row{GDK_KEY_F5, 0, Action::CopyToOther},
             Row{GDK_KEY_F6, 0, Action::MoveToOther},
             Row{GDK_KEY_F7, 0, Action::NewFolder},
             Row{GDK_KEY_plus, 0, Action::SelectPattern},
             Row{GDK_KEY_plus, GDK_SHIFT_MASK, Action::SelectPattern},
             Row{GDK_KEY_KP_Add, 0, Action::SelectPattern},
             Row{GDK_KEY_asterisk, GDK_SHIFT_MASK, Action::InvertSelection},
             Row{GDK_KEY_KP_Multiply, 0, Action::InvertSelection},
             Row{GDK_KEY_a, GDK_CONTROL_MASK, Action::SelectAll},
             Row{GDK_KEY_c, GDK_CONTROL_MASK, Action::CopyPath},
             Row{GDK_KEY_d, GDK_CONTROL_MASK, Action::BookmarkAdd},
             Row{GDK_KEY_g, GDK_CONTROL_MASK, Action::LogWindow},
             Row{GDK_KEY_h, GDK_CONTROL_MASK, Action::ToggleHidden},
             Row{GDK_KEY_l, GDK_CONTROL_MASK, Action::GoToPath},
             Row{GDK_KEY_r, GDK_CONTROL_MASK, Action::Refresh},
             Row{GDK_KEY_u, GDK_CONTROL_MASK, Action::SwapPanes},
             Row{GDK_KEY_comma, GDK_CONTROL_MASK, Action::SettingsWindow},
             Row{GDK_KEY_q, GDK_CONTROL_MASK, Action::Quit},
         }) {
        app().close_overlay();
        app().end_path_edit();
        app().m_active_right = false;
        pane().cancel_rename();
        pane().navigate_to(left(), false);
        pane(true).navigate_to(left(), false);  // nothing is copied within one folder
        put_cursor_on("file");
        Log::instance().clear();
        key(row.keyval, row.state);
        const std::string name = action_name(row.action);
        EXPECT_TRUE(logged("action: " + name + " [" + left() + "]")) << name;
        size_t actions = 0;
        for (const std::string& line : log_lines())
            actions += line.starts_with("action: ") ? 1 : 0;
        EXPECT_EQ(actions, 1U) << name;
    }
}

TEST_F(AppKeys, a_letter_without_control_is_no_command) {
    make_files(2);
    start();
    for (const char c : std::string("acdfghlqru,"))
        for (const guint state : std::initializer_list<guint>{0, GDK_MOD1_MASK, GDK_SHIFT_MASK})
            key(static_cast<guint>(c), state);
    for (const char c : std::string("ACDFGHLQRU<"))
        key(static_cast<guint>(c), GDK_CONTROL_MASK | GDK_SHIFT_MASK);
    for (const std::string& line : log_lines())
        EXPECT_FALSE(line.starts_with("action: ")) << line;
    EXPECT_EQ(app().m_search_pane, -1);
    EXPECT_TRUE(app().m_window);
}

// --- Type-ahead -------------------------------------------------------------------------------

TEST_F(AppKeys, a_typed_name_gets_the_cursor) {
    for (const char* name : {"Alpha", "alpine", "beta", "ärger", "Ärmel"})
        write_file(left() + "/" + name, "x");
    start();
    key(GDK_KEY_b);
    EXPECT_EQ(cursor_name(), "beta");
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"beta"}));
    app().m_typeahead_time = 0;
    key(GDK_KEY_A, GDK_SHIFT_MASK);
    EXPECT_EQ(cursor_name(), "Alpha");
    key(GDK_KEY_l);
    key(GDK_KEY_p);
    key(GDK_KEY_i);
    EXPECT_EQ(cursor_name(), "alpine");
    // No match: cursor and text stay.
    key(GDK_KEY_x);
    EXPECT_EQ(cursor_name(), "alpine");
    EXPECT_EQ(app().m_typeahead, "Alpix");
    // There is no cycling: the search is from the top each time.
    for (int i = 0; i < 2; ++i) {
        app().m_typeahead_time = 0;
        key(GDK_KEY_a);
        EXPECT_EQ(cursor_name(), "Alpha");
    }
    // The parent row is an entry.
    app().m_typeahead_time = 0;
    key(GDK_KEY_period);
    EXPECT_EQ(cursor_name(), "..");
    EXPECT_TRUE(selected_names().empty());
}

TEST_F(AppKeys, typed_letters_are_folded_in_ascii_alone) {
    for (const char* name : {"arm", "ÄRGER", "ärmel"})
        write_file(left() + "/" + name, "x");
    start();
    key(GDK_KEY_adiaeresis);
    EXPECT_EQ(cursor_name(), "ärmel");
    app().m_typeahead_time = 0;
    key(GDK_KEY_Adiaeresis, GDK_SHIFT_MASK);
    key(GDK_KEY_r);
    EXPECT_EQ(cursor_name(), "ÄRGER");
}

TEST_F(AppKeys, a_second_keeps_typed_letters_together_and_more_does_not) {
    for (const char* name : {"ab", "b"})
        write_file(left() + "/" + name, "x");
    start();
    app().type_ahead("a", 100);
    app().type_ahead("b", 101);
    EXPECT_EQ(app().m_typeahead, "ab");
    EXPECT_EQ(cursor_name(), "ab");
    app().type_ahead("a", 200);
    app().type_ahead("b", 201.1);
    EXPECT_EQ(app().m_typeahead, "b");
    EXPECT_EQ(cursor_name(), "b");
    // The pause counts from the last keystroke, whether it found anything or not.
    app().type_ahead("x", 202);
    app().type_ahead("y", 203);
    EXPECT_EQ(app().m_typeahead, "bxy");
    const double now = App::now_seconds();
    key(GDK_KEY_a);
    EXPECT_EQ(app().m_typeahead, "a");
    EXPECT_GE(app().m_typeahead_time, now);
}

TEST_F(AppKeys, commands_never_reach_the_typed_name) {
    for (const char* name : {"+", " a", "*", "x"})
        write_file(left() + "/" + name, "x");
    start();
    for (const guint keyval :
         std::initializer_list<guint>{GDK_KEY_plus, GDK_KEY_asterisk, GDK_KEY_space, GDK_KEY_Delete,
                                      GDK_KEY_F9, GDK_KEY_Shift_L, GDK_KEY_Tab}) {
        key(keyval);
        key(GDK_KEY_Escape);
    }
    key(GDK_KEY_x, GDK_CONTROL_MASK);
    key(GDK_KEY_x, GDK_MOD1_MASK);
    EXPECT_EQ(app().m_typeahead, "");
}

TEST_F(AppKeys, a_name_found_far_down_comes_into_view) {
    make_files(100);
    write_file(left() + "/zoo", "x");
    start();
    key(GDK_KEY_z);
    EXPECT_EQ(cursor_name(), "zoo");
    EXPECT_EQ(pane().scroll(), 102 - app().rows_in_view(false));
}

// --- The chain --------------------------------------------------------------------------------

// Everything that takes Escape is open at once; it goes from the top of the chain to its end.
TEST_F(AppKeys, escape_goes_down_the_chain_one_mode_at_a_time) {
    make_files(3);
    start();
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
        while (reporter.keep_going())
            g_usleep(1000);
    }));
    app().m_bgtask_was_running = true;
    app().begin_search(false);
    key(GDK_KEY_f);
    pane().set_cursor(1, true);
    pane().begin_rename();
    app().begin_path_edit(false);
    app().show_message("t", "x");
    app().m_open_menu = 2;
    app().m_context_menu = app().m_column_menu = true;
    app().m_open_drive_picker = 1;
    const auto state = [this] {
        std::string open;
        open += app().m_overlay != App::Overlay::None ? "dialogue " : "";
        open += app().m_open_menu >= 0 ? "menu " : "";
        open += app().m_context_menu || app().m_column_menu ? "context " : "";
        open += app().m_open_drive_picker >= 0 ? "drives " : "";
        open += app().m_path_edit >= 0 ? "path " : "";
        open += pane().renaming() ? "rename " : "";
        open += app().m_search_pane >= 0 ? "filter " : "";
        open += !BgTask::instance().snapshot().cancelled ? "work " : "";
        open += pane().has_selection() ? "marks" : "";
        return open;
    };
    EXPECT_EQ(state(), "dialogue menu context drives path rename filter work marks");
    key(GDK_KEY_Escape);
    // Leaving a dialogue is a command, and so ends the filter.
    EXPECT_EQ(state(), "menu context drives path rename work marks");
    app().m_search_pane = 0;
    for (const char* rest : {"path rename filter work marks", "rename filter work marks",
                             "filter work marks", "work marks", "marks"}) {
        key(GDK_KEY_Escape);
        EXPECT_EQ(state(), rest);
    }
    ASSERT_TRUE(settle());
    app().close_overlay();
    EXPECT_TRUE(pane().has_selection());
    key(GDK_KEY_Escape);
    EXPECT_EQ(state(), "");
}

TEST_F(AppKeys, a_typed_letter_goes_to_the_uppermost_field) {
    write_file(left() + "/fx", "x");
    start();
    app().begin_search(false);
    key(GDK_KEY_f);
    pane().set_cursor(1, true);
    pane().begin_rename();
    app().begin_path_edit(false);
    app().perform(Action::None, 0);
    app().open_text_input(App::Overlay::NewFile, "dlg.new_file_title", "");
    const auto texts = [this] {
        return app().m_input_buffer + "|" + app().m_path_buffer.substr(left().size()) + "|" +
               pane().rename_buffer() + "|" + app().m_search_buffer + "|" + app().m_typeahead;
    };
    key(GDK_KEY_x);
    EXPECT_EQ(texts(), "x||fx|f|");
    app().close_overlay();
    app().m_input_buffer.clear();
    key(GDK_KEY_l, GDK_CONTROL_MASK);  // no command in the field
    key(GDK_KEY_x);
    EXPECT_EQ(texts(), "|x|fx|f|");
    app().m_path_buffer = left();
    key(GDK_KEY_Escape);
    key(GDK_KEY_x);
    EXPECT_EQ(texts(), "||fxx|f|");
    key(GDK_KEY_Escape);
    key(GDK_KEY_x);
    EXPECT_EQ(texts(), "|||fx|");
    key(GDK_KEY_Return);
    key(GDK_KEY_x);
    EXPECT_EQ(app().m_typeahead, "x");
}

TEST_F(AppKeys, a_menu_takes_escape_alone) {
    make_files(3);
    start();
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    for (int i = 0; i < 3; ++i) {
        app().m_open_menu = i == 0 ? 0 : -1;
        app().m_context_menu = i == 1;
        app().m_open_drive_picker = i == 2 ? 0 : -1;
        key(GDK_KEY_Tab);
        EXPECT_EQ(app().m_active_right, i % 2 == 0);
        key(GDK_KEY_Escape);
        EXPECT_FALSE(app().close_menus()) << i;
        EXPECT_EQ(selected_names().size(), 3U);
    }
    app().m_active_right = false;
    key(GDK_KEY_Escape);
    EXPECT_TRUE(selected_names().empty());
}

// --- The busy gate ----------------------------------------------------------------------------

TEST_F(AppKeys, while_a_task_runs_only_escape_acts_and_it_cancels) {
    make_files(3);
    start();
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
        while (reporter.keep_going())
            g_usleep(1000);
    }));
    app().m_bgtask_was_running = true;
    const size_t lines = log_lines().size();
    for (const guint keyval : std::initializer_list<guint>{
             GDK_KEY_F5, GDK_KEY_F6, GDK_KEY_Tab, GDK_KEY_Down, GDK_KEY_BackSpace, GDK_KEY_space})
        key(keyval);
    key(GDK_KEY_q, GDK_CONTROL_MASK);
    EXPECT_FALSE(app().m_active_right);
    EXPECT_EQ(pane().cursor(), 0);
    EXPECT_EQ(pane().path(), left());
    EXPECT_EQ(selected_names().size(), 3U);
    EXPECT_EQ(log_lines().size(), lines);
    EXPECT_TRUE(BgTask::instance().is_running());
    key(GDK_KEY_Escape);
    EXPECT_TRUE(BgTask::instance().snapshot().cancelled);
    // The marks are still there: Escape was for the task.
    EXPECT_EQ(selected_names().size(), 3U);
    ASSERT_TRUE(settle());
}

TEST_F(AppKeys, escape_cancels_a_transfer_and_keeps_the_marks) {
    // Before the first thread: the mount lives in a namespace of this process.
    faultfs::FaultFs fs;
    if (!fs.ok())
        GTEST_SKIP() << fs.reason();
    write_file(fs.backing() + "/a", std::string(100000, 'x'));
    fs.set(faultfs::stall("read", 1, -1, "a"));
    start({"--left=" + fs.path()});
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    key(GDK_KEY_F5);
    ASSERT_TRUE(fs.wait_stalled(1));
    key(GDK_KEY_F5);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    key(GDK_KEY_Escape);
    EXPECT_TRUE(logged("cancel requested, woke 1 worker(s)"));
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"a"}));
    ASSERT_TRUE(settle());
    EXPECT_TRUE(app().m_result.cancelled);
    EXPECT_FALSE(exists(right() + "/a"));
}

// The tick alone opens the dialogue. Until then Escape is what it always is during work.
TEST_F(AppKeys, escape_on_a_question_not_yet_shown_cancels) {
    start();
    open_conflict();
    app().m_overlay = App::Overlay::None;
    key(GDK_KEY_Escape);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_TRUE(copy_engine::instance().snapshot().cancelled);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(app().m_result.cancelled);
    EXPECT_EQ(read_file(right() + "/taken"), "old");
}

// --- Dialogues --------------------------------------------------------------------------------

TEST_F(AppKeys, escape_in_a_conflict_skips_one_file_and_return_does_nothing) {
    start();
    open_conflict();
    key(GDK_KEY_Return);
    key(GDK_KEY_KP_Enter);
    EXPECT_EQ(app().m_overlay, App::Overlay::Conflict);
    EXPECT_TRUE(copy_engine::instance().snapshot().conflict.pending);
    key(GDK_KEY_Escape);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(logged("action: ConflictSkip [" + left() + "]"));
    EXPECT_EQ(read_file(right() + "/taken"), "old");
    EXPECT_FALSE(app().m_result.cancelled);
}

TEST_F(AppKeys, alt_and_a_letter_answer_a_conflict) {
    struct Case {
        guint keyval;
        const char* action;
        const char* target;
    };
    start();
    for (const Case& c : {Case{GDK_KEY_o, "Alt+O → ConflictOverwrite", "new"},
                          Case{GDK_KEY_k, "Alt+K → ConflictSkip", "old"},
                          Case{GDK_KEY_S, "Alt+S → ConflictCancel", "old"}}) {
        open_conflict();
        key(c.keyval, GDK_MOD1_MASK);
        ASSERT_TRUE(settle());
        EXPECT_TRUE(logged(std::string("dialog accel: ") + c.action)) << c.action;
        EXPECT_EQ(read_file(right() + "/taken"), c.target) << c.action;
        app().close_overlay();
    }
}

TEST_F(AppKeys, a_letter_without_alt_or_without_a_choice_is_swallowed) {
    start();
    open_conflict();
    key(GDK_KEY_o);
    key(GDK_KEY_o, GDK_CONTROL_MASK);
    key(GDK_KEY_z, GDK_MOD1_MASK);
    key(0x100 + 'O', GDK_MOD1_MASK);  // another alphabet's letter, whose last byte is an O
    key(GDK_KEY_F6);
    key(GDK_KEY_Tab);
    EXPECT_EQ(app().m_overlay, App::Overlay::Conflict);
    EXPECT_FALSE(app().m_active_right);
    EXPECT_TRUE(copy_engine::instance().snapshot().conflict.pending);
    key(GDK_KEY_Escape);
    ASSERT_TRUE(settle());
}

TEST_F(AppKeys, a_message_closes_on_escape_return_and_its_letter) {
    start();
    for (const std::pair<guint, guint>& press : {std::pair<guint, guint>{GDK_KEY_Escape, 0},
                                                 {GDK_KEY_Return, 0},
                                                 {GDK_KEY_KP_Enter, 0},
                                                 {GDK_KEY_o, GDK_MOD1_MASK}}) {
        app().show_message("t", "x");
        frame();
        key(press.first, press.second);
        EXPECT_EQ(app().m_overlay, App::Overlay::None) << press.first;
    }
}

// The letters belong to the dialogue that is painted; the ones of the dialogue before are gone.
TEST_F(AppKeys, the_letters_of_a_closed_dialogue_do_not_act_on_the_next) {
    start();
    open_conflict();
    app().show_message("t", "x");
    GdkEventKey event = {};
    event.keyval = GDK_KEY_s;
    event.state = GDK_MOD1_MASK;
    app().handle_key(&event);  // before any frame
    EXPECT_FALSE(copy_engine::instance().snapshot().cancelled);
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    app().m_conflict_deaf_until = 0;
    key(GDK_KEY_Escape);
    ASSERT_TRUE(settle());
}

TEST_F(AppKeys, the_second_choice_with_the_same_letter_takes_its_next_free_one) {
    start();
    app().show_message("t", "x", false, Action::Refresh, "btn.ok");
    frame();
    // "OK" and "OK": the first takes O, the second K.
    ASSERT_EQ(app().m_overlay_accels.size(), 2U);
    EXPECT_EQ(app().m_overlay_accels.at('O'), Action::Refresh);
    EXPECT_EQ(app().m_overlay_accels.at('K'), Action::OverlayCancel);
}

TEST_F(AppKeys, a_dialogue_that_scrolls_pages_by_its_rows) {
    start();
    app().show_message("t", "x");
    struct Step {
        guint keyval;
        int from;
        int to;
    };
    for (const Step& step :
         {Step{GDK_KEY_Down, 0, 1}, Step{GDK_KEY_Up, 5, 4}, Step{GDK_KEY_Up, 0, 0},
          Step{GDK_KEY_Page_Down, 3, 10}, Step{GDK_KEY_Page_Up, 10, 3}, Step{GDK_KEY_Page_Up, 3, 0},
          Step{GDK_KEY_Home, 9, 0}, Step{GDK_KEY_End, 9, 1073741824}, Step{GDK_KEY_x, 4, 4},
          Step{GDK_KEY_Left, 4, 4}, Step{GDK_KEY_F5, 4, 4}, Step{GDK_KEY_Tab, 4, 4}}) {
        app().m_overlay_scrolls = true;  // as its painter would say
        app().m_overlay_page = 7;
        app().m_list_scroll = step.from;
        key(step.keyval);
        EXPECT_EQ(app().m_list_scroll, step.to) << step.keyval;
    }
    for (const int page : {0, -3, 1}) {
        app().m_overlay_scrolls = true;
        app().m_overlay_page = page;
        app().m_list_scroll = 4;
        key(GDK_KEY_Page_Down);
        EXPECT_EQ(app().m_list_scroll, 5) << page;
    }
    // Without a list there is nothing to scroll.
    key(GDK_KEY_Down);
    EXPECT_EQ(app().m_list_scroll, 5);
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    app().m_overlay_scrolls = true;
    key(GDK_KEY_o, GDK_MOD1_MASK);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

// --- Rename -----------------------------------------------------------------------------------

TEST_F(AppKeys, a_name_is_edited_and_committed_by_keys) {
    write_file(left() + "/ab.txt", "x");
    start();
    put_cursor_on("ab.txt");
    key(GDK_KEY_F2);
    key(GDK_KEY_BackSpace);
    key(GDK_KEY_Home);
    key(GDK_KEY_Delete);
    key(GDK_KEY_x);
    key(GDK_KEY_Right);
    key(GDK_KEY_Left);
    key(GDK_KEY_odiaeresis);
    EXPECT_EQ(pane().rename_buffer(), "xö.txt");
    key(GDK_KEY_End);
    key(GDK_KEY_1);
    key(GDK_KEY_slash);
    // Keys that would be commands elsewhere.
    key(GDK_KEY_Tab);
    key(GDK_KEY_F5);
    EXPECT_FALSE(app().m_active_right);
    EXPECT_FALSE(App::busy());
    key(GDK_KEY_Return);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "xö.txt1"}));
}

TEST_F(AppKeys, escape_ends_a_rename_without_action) {
    write_file(left() + "/a", "x");
    start();
    put_cursor_on("a");
    key(GDK_KEY_F2);
    key(GDK_KEY_b);
    key(GDK_KEY_Escape);
    EXPECT_FALSE(pane().renaming());
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "a"}));
}

// Nothing shows a rename whose entry is gone, so keys must not vanish into it.
TEST_F(AppKeys, keys_are_not_lost_in_a_rename_that_nobody_sees) {
    write_file(left() + "/a", "x");
    write_file(left() + "/b", "x");
    start();
    put_cursor_on("a");
    key(GDK_KEY_F2);
    std::remove((left() + "/a").c_str());
    app().refresh_both();
    key(GDK_KEY_Tab);
    EXPECT_TRUE(app().m_active_right);
    EXPECT_FALSE(pane(false).renaming());
}

}  // namespace
