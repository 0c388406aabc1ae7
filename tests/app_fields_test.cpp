// The text fields that stand in the panes: path bar, filter bar and rename.

#include "app_fixture.h"

#include "as_user.h"
#include "fresh_process.h"
#include "settings.h"
#include "strutil.h"

#include <gdk/gdkkeysyms.h>
#include <set>

namespace {

using test_env::exists;
using test_env::make_dirs;
using test_env::write_file;

class AppFields : public AppTest {
  protected:
    void keys(std::initializer_list<guint> keyvals) {
        for (const guint keyval : keyvals)
            key(keyval);
    }
    // ASCII alone.
    void type(const std::string& text) {
        for (const char c : text)
            key(static_cast<guint>(c));
    }
    static std::string clipboard(GdkAtom which) {
        char* const text = gtk_clipboard_wait_for_text(gtk_clipboard_get(which));
        std::string result = text ? text : "(none)";
        g_free(text);
        return result;
    }
    static void set_clipboard(const char* text) {
        gtk_clipboard_set_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD), text, -1);
    }
    void edit_path(const std::string& text) {
        app().begin_path_edit(false);
        app().m_path_buffer = text;
        app().m_path_caret = text.size();
    }
};

// --- Path bar ---------------------------------------------------------------------------------

TEST_F(AppFields, the_path_bar_opens_with_the_path_and_the_caret_behind_it) {
    start();
    key(GDK_KEY_l, GDK_CONTROL_MASK);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(app().m_path_edit, 0);
    EXPECT_EQ(app().m_path_buffer, left());
    EXPECT_EQ(app().m_path_caret, left().size());
    shot("fields-path");
    key(GDK_KEY_Escape);
    EXPECT_EQ(app().m_path_edit, -1);
    EXPECT_EQ(pane().path(), left());
    app().m_active_right = true;
    app().m_path_error = "old";
    app().perform(Action::GoToPath, 0);
    EXPECT_EQ(app().m_path_edit, 1);
    EXPECT_EQ(app().m_path_buffer, right());
    EXPECT_EQ(app().m_path_error, "");
}

TEST_F(AppFields, the_path_bar_takes_every_form_in_which_people_have_paths) {
    const std::string sub = left() + "/a sub";
    make_dirs(sub);
    make_dirs(left() + "/'quoted'");
    make_dirs(test_env::root() + "/home/docs");
    start();
    const std::string home = test_env::root() + "/home";
    struct Case {
        std::string typed;
        std::string path;
    };
    for (const Case& c :
         {Case{sub, sub}, Case{"'" + sub + "'", sub}, Case{'"' + sub + '"', sub},
          Case{"file://" + left() + "/a%20sub", sub}, Case{"~", home},
          Case{"~/docs", home + "/docs"}, Case{"a sub", sub},
          // One pair of each kind goes, the single ones first.
          Case{"'\"" + sub + "\"'", sub}, Case{"\"'quoted'\"", left() + "/'quoted'"},
          Case{"'file://" + left() + "/a%20sub'", sub}, Case{" \t" + sub + " \t\n", sub},
          // As the panes hold it.
          Case{sub + "/", sub}, Case{left() + "//a sub/../a sub/.", sub}, Case{"/", "/"}}) {
        pane().navigate_to(left(), true);
        edit_path(c.typed);
        key(GDK_KEY_Return);
        EXPECT_EQ(pane().path(), c.path) << c.typed;
        EXPECT_EQ(app().m_path_edit, -1) << c.typed;
        EXPECT_EQ(app().m_path_error, "") << c.typed;
    }
    EXPECT_TRUE(logged("path bar → " + sub));
    EXPECT_TRUE(logged("path bar → " + home + "/docs"));
}

TEST_F(AppFields, what_leads_nowhere_stays_open_with_its_reason) {
    write_file(left() + "/file", "x");
    make_dirs(left() + "/sub");
    start();
    struct Case {
        std::string typed;
        std::string error;
    };
    for (const Case& c : {Case{left() + "/none", left() + "/none: No such file or directory"},
                          Case{"file", left() + "/file: Not a directory"},
                          Case{"'", left() + "/': No such file or directory"},
                          // Not one pair but the halves of two.
                          Case{"'sub\"", left() + "/'sub\": No such file or directory"},
                          Case{"file://%zz", left() + "/file://%zz: No such file or directory"}}) {
        edit_path(c.typed);
        key(GDK_KEY_KP_Enter);
        EXPECT_EQ(app().m_path_error, c.error);
        EXPECT_TRUE(logged("path rejected: " + c.error)) << c.typed;
        EXPECT_EQ(app().m_path_edit, 0);
        EXPECT_EQ(app().m_path_buffer, c.typed);
        EXPECT_EQ(pane().path(), left());
    }
    shot("fields-path-error");
    key(GDK_KEY_Left);
    EXPECT_NE(app().m_path_error, "");
    key(GDK_KEY_BackSpace);
    EXPECT_EQ(app().m_path_error, "");
    edit_path(left() + "/none");
    key(GDK_KEY_Return);
    key(GDK_KEY_Delete);
    EXPECT_EQ(app().m_path_error, "");
    key(GDK_KEY_Return);
    key(GDK_KEY_x);
    EXPECT_EQ(app().m_path_error, "");
    key(GDK_KEY_Return);
    EXPECT_NE(app().m_path_error, "");
    set_clipboard("");
    key(GDK_KEY_v, GDK_CONTROL_MASK);
    EXPECT_EQ(app().m_path_error, "");
    key(GDK_KEY_Return);
    key(GDK_KEY_Escape);
    EXPECT_EQ(app().m_path_error, "");
    EXPECT_EQ(app().m_path_edit, -1);
}

TEST_F(AppFields, a_folder_without_access_is_rejected_with_its_reason) {
    REQUIRE_FRESH_PROCESS();
    make_dirs(left() + "/closed");
    ASSERT_EQ(chmod((left() + "/closed").c_str(), 0), 0);
    as_user::give(left());
    EXPECT_TRUE(as_user::run([this] {
        start();
        edit_path("closed");
        key(GDK_KEY_Return);
        EXPECT_EQ(app().m_path_error, left() + "/closed: Permission denied");
        EXPECT_EQ(app().m_path_edit, 0);
    }));
}

TEST_F(AppFields, a_path_turns_no_word_of_its_reason) {
    const std::string name = "turned\u202e";
    start();
    edit_path(name);
    key(GDK_KEY_Return);
    EXPECT_EQ(app().m_path_error,
              su::isolated(left() + "/" + name) + ": No such file or directory");
}

TEST_F(AppFields, an_empty_path_field_closes_and_goes_nowhere) {
    start();
    for (const char* text : {"", " \t ", "''", "\"\"", "'\"\"'", " \n"}) {
        edit_path(text);
        key(GDK_KEY_Return);
        EXPECT_EQ(app().m_path_edit, -1) << text;
        EXPECT_EQ(pane().path(), left());
    }
    app().commit_path_edit();  // of no field
    EXPECT_EQ(pane().path(), left());
    EXPECT_FALSE(logged("path bar → " + left()));
}

TEST_F(AppFields, the_path_is_committed_on_the_side_that_is_edited) {
    make_dirs(right() + "/sub");
    start();
    app().begin_path_edit(true);
    type("/sub");
    key(GDK_KEY_Return);
    EXPECT_EQ(pane(true).path(), right() + "/sub");
    EXPECT_EQ(pane().path(), left());
    EXPECT_FALSE(app().m_active_right);
    app().begin_path_edit(true);
    app().perform(Action::SwapPanes, 0);
    EXPECT_EQ(app().m_path_edit, 0);
}

TEST_F(AppFields, keys_of_the_path_bar) {
    start();
    edit_path("aäb");
    keys({GDK_KEY_Left, GDK_KEY_Left});
    EXPECT_EQ(app().m_path_caret, 1U);
    key(GDK_KEY_Right);
    EXPECT_EQ(app().m_path_caret, 3U);
    key(GDK_KEY_BackSpace);
    EXPECT_EQ(app().m_path_buffer, "ab");
    EXPECT_EQ(app().m_path_caret, 1U);
    key(GDK_KEY_Home);
    key(GDK_KEY_Left);
    key(GDK_KEY_BackSpace);
    EXPECT_EQ(app().m_path_caret, 0U);
    key(GDK_KEY_odiaeresis);
    EXPECT_EQ(app().m_path_buffer, "öab");
    EXPECT_EQ(app().m_path_caret, 2U);
    keys({GDK_KEY_Home, GDK_KEY_Delete});
    EXPECT_EQ(app().m_path_buffer, "ab");
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    EXPECT_EQ(app().m_path_caret, 2U);
    EXPECT_EQ(app().m_path_buffer, "ab");
    keys({GDK_KEY_Delete, GDK_KEY_Right, GDK_KEY_space});
    EXPECT_EQ(app().m_path_buffer, "ab ");
    keys({GDK_KEY_Home, GDK_KEY_End, GDK_KEY_c});
    EXPECT_EQ(app().m_path_buffer, "ab c");
    // Keys that would be commands elsewhere.
    keys({GDK_KEY_Tab, GDK_KEY_F2, GDK_KEY_F5, GDK_KEY_Down, GDK_KEY_Page_Up});
    key(GDK_KEY_q, GDK_CONTROL_MASK);
    key(GDK_KEY_Home, GDK_CONTROL_MASK);
    key(GDK_KEY_x, GDK_CONTROL_MASK);
    key(GDK_KEY_x, GDK_MOD1_MASK);
    key(GDK_KEY_A, GDK_CONTROL_MASK | GDK_SHIFT_MASK);
    EXPECT_EQ(app().m_path_buffer, "ab c");
    EXPECT_EQ(app().m_path_caret, 4U);
    EXPECT_EQ(app().m_path_edit, 0);
    EXPECT_FALSE(app().m_active_right);
    EXPECT_FALSE(pane().renaming());
}

TEST_F(AppFields, the_path_is_copied_and_the_first_line_pasted) {
    start();
    edit_path("/x");
    key(GDK_KEY_c, GDK_CONTROL_MASK);
    EXPECT_EQ(clipboard(GDK_SELECTION_CLIPBOARD), "/x");
    EXPECT_EQ(clipboard(GDK_SELECTION_PRIMARY), "/x");
    EXPECT_EQ(app().m_path_buffer, "/x");
    key(GDK_KEY_Left);
    for (const char* text : {"ä1\nsecond", "ä1\rsecond", "ä1\r\nsecond", "ä1"}) {
        edit_path("/x");
        key(GDK_KEY_Left);
        set_clipboard(text);
        key(GDK_KEY_v, GDK_CONTROL_MASK);
        EXPECT_EQ(app().m_path_buffer, "/ä1x");
        EXPECT_EQ(app().m_path_caret, 4U);
    }
}

// --- Filter bar -------------------------------------------------------------------------------

TEST_F(AppFields, the_list_narrows_as_one_types) {
    for (const char* name : {"alpha", "beta", "gamma", "älter"})
        write_file(left() + "/" + name, "x");
    start();
    key(GDK_KEY_f, GDK_CONTROL_MASK);
    EXPECT_EQ(app().m_search_pane, 0);
    EXPECT_FALSE(logged("action: SearchPane [" + left() + "]"));
    key(GDK_KEY_a);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "alpha", "beta", "gamma"}));
    key(GDK_KEY_m);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "gamma"}));
    shot("fields-filter");
    keys({GDK_KEY_BackSpace, GDK_KEY_Left, GDK_KEY_t});
    EXPECT_EQ(app().m_search_buffer, "ta");
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "beta"}));
    keys({GDK_KEY_Home, GDK_KEY_Delete, GDK_KEY_End, GDK_KEY_BackSpace, GDK_KEY_adiaeresis});
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "älter"}));
    keys({GDK_KEY_Left, GDK_KEY_Right, GDK_KEY_BackSpace});
    EXPECT_EQ(app().m_search_buffer, "");
    EXPECT_EQ(names().size(), 5U);
    EXPECT_EQ(app().m_search_pane, 0);
}

TEST_F(AppFields, return_keeps_the_filter_and_the_next_bar_continues_it) {
    write_file(left() + "/alpha", "x");
    write_file(left() + "/beta", "x");
    start();
    app().perform(Action::SearchPane, 0);
    type("alp");
    key(GDK_KEY_Return);
    EXPECT_EQ(app().m_search_pane, -1);
    EXPECT_EQ(pane().filter(), "alp");
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "alpha"}));
    key(GDK_KEY_f, GDK_CONTROL_MASK);
    EXPECT_EQ(app().m_search_pane, 0);
    EXPECT_EQ(app().m_search_buffer, "alp");
    EXPECT_EQ(app().m_search_caret, 3U);
    key(GDK_KEY_KP_Enter);
    EXPECT_EQ(pane().filter(), "alp");
    // With no bar open it is the active side's filter that goes.
    app().end_search(true);
    EXPECT_EQ(names().size(), 3U);
}

TEST_F(AppFields, escape_clears_the_filter_and_stays_on_the_row) {
    for (int i = 10; i < 90; ++i)
        write_file(left() + "/file" + std::to_string(i), "x");
    start();
    key(GDK_KEY_f, GDK_CONTROL_MASK);
    type("7");
    for (int i = 0; i < 11; ++i)
        key(GDK_KEY_Down);
    EXPECT_EQ(cursor_name(), "file74");
    key(GDK_KEY_Escape);
    EXPECT_EQ(app().m_search_pane, -1);
    EXPECT_EQ(app().m_search_buffer, "");
    EXPECT_EQ(app().m_search_caret, 0U);
    EXPECT_EQ(pane().filter(), "");
    EXPECT_EQ(names().size(), 81U);
    EXPECT_EQ(cursor_name(), "file74");
    EXPECT_GE(pane().cursor(), pane().scroll());
    EXPECT_LT(pane().cursor(), pane().scroll() + app().rows_in_view(false));
}

TEST_F(AppFields, the_first_marked_row_gets_the_cursor_as_the_filter_goes) {
    for (const char* name : {"a1", "a2", "a3", "b"})
        write_file(left() + "/" + name, "x");
    start();
    key(GDK_KEY_f, GDK_CONTROL_MASK);
    key(GDK_KEY_a);
    pane().toggle_selection(2);
    pane().toggle_selection(3);
    key(GDK_KEY_Escape);
    EXPECT_EQ(cursor_name(), "a2");
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"a2", "a3"}));
}

// The row is noted by name only where the list is read again; else the name would wait for another
// folder and take the cursor there.
TEST_F(AppFields, closing_an_empty_filter_leaves_no_wish_behind) {
    make_dirs(left() + "/sub");
    write_file(left() + "/b", "x");
    for (const char* name : {"a", "b"})
        write_file(left() + "/sub/" + name, "x");
    start();
    put_cursor_on("b");
    key(GDK_KEY_f, GDK_CONTROL_MASK);
    key(GDK_KEY_Escape);
    pane().navigate_to(left() + "/sub", true);
    EXPECT_EQ(cursor_name(), "..");
}

TEST_F(AppFields, the_filter_bar_hands_on_what_moves_in_the_list) {
    for (const char* name : {"a1", "a2", "b1"})
        write_file(left() + "/" + name, "x");
    start();
    key(GDK_KEY_f, GDK_CONTROL_MASK);
    key(GDK_KEY_a);
    keys({GDK_KEY_Down, GDK_KEY_Down});
    EXPECT_EQ(cursor_name(), "a2");
    key(GDK_KEY_Up);
    EXPECT_EQ(cursor_name(), "a1");
    key(GDK_KEY_Page_Down);
    EXPECT_EQ(cursor_name(), "a2");
    key(GDK_KEY_Page_Up);
    EXPECT_EQ(cursor_name(), "..");
    key(GDK_KEY_Tab);
    EXPECT_TRUE(app().m_active_right);
    key(GDK_KEY_ISO_Left_Tab, GDK_SHIFT_MASK);
    EXPECT_FALSE(app().m_active_right);
    EXPECT_EQ(app().m_search_pane, 0);
    EXPECT_EQ(app().m_search_buffer, "a");
    // Ctrl is a command's, whatever the key.
    key(GDK_KEY_v, GDK_CONTROL_MASK);
    key(GDK_KEY_Down, GDK_CONTROL_MASK);
    EXPECT_EQ(app().m_search_buffer, "a");
    EXPECT_EQ(cursor_name(), "a1");
    // The rest has no effect, and none on the list either.
    keys({GDK_KEY_Insert, GDK_KEY_Menu, GDK_KEY_Shift_L});
    key(GDK_KEY_b, GDK_MOD1_MASK);
    key(GDK_KEY_Return, GDK_MOD1_MASK);
    EXPECT_EQ(cursor_name(), "a1");
    EXPECT_EQ(pane().filter(), "a");
}

TEST_F(AppFields, characters_that_are_commands_of_the_list_are_text_in_the_filter_bar) {
    for (const char* name : {"a+b", "c d"})
        write_file(left() + "/" + name, "x");
    start();
    key(GDK_KEY_f, GDK_CONTROL_MASK);
    key(GDK_KEY_plus);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "a+b"}));
    keys({GDK_KEY_BackSpace, GDK_KEY_space});
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "c d"}));
    keys({GDK_KEY_BackSpace, GDK_KEY_asterisk, GDK_KEY_b});
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "a+b"}));
    EXPECT_TRUE(selected_names().empty());
}

TEST_F(AppFields, f2_closes_the_bar_clears_the_filter_and_renames) {
    write_file(left() + "/alpha", "x");
    write_file(left() + "/beta", "x");
    start();
    key(GDK_KEY_f, GDK_CONTROL_MASK);
    key(GDK_KEY_b);
    put_cursor_on("beta");
    key(GDK_KEY_F2);
    EXPECT_TRUE(logged("search closed: Rename wurde ausgeloest"));
    EXPECT_EQ(app().m_search_pane, -1);
    EXPECT_EQ(pane().filter(), "");
    EXPECT_EQ(names().size(), 3U);
    ASSERT_TRUE(pane().renaming());
    EXPECT_EQ(pane().rename_buffer(), "beta");
    EXPECT_EQ(pane().rename_target(), 2);
}

// The list is read again as the bar closes.
TEST_F(AppFields, a_command_takes_no_other_entry_for_one_that_is_gone_as_the_bar_closes) {
    const Action actions[] = {Action::Rename,     Action::CopyToOther, Action::MoveToOther,
                              Action::MakeLink,   Action::Clone,       Action::CopyPath,
                              Action::Properties, Action::OpenWith,    Action::Delete};
    for (const char* name : {"aa", "bb", "cc"})
        write_file(left() + "/" + name, name);
    start();
    for (const Action action : actions) {
        for (const bool marked : {false, true}) {
            if (action == Action::Delete && !marked)
                continue;  // which needs a mark
            write_file(left() + "/gone", "x");
            pane().reload(true);
            app().begin_search(false);
            type("gone");
            pane().set_cursor(pane().index_of("gone"), marked);
            if (!marked)
                pane().clear_selection();
            std::remove((left() + "/gone").c_str());
            app().perform(action, 0);
            EXPECT_EQ(app().m_search_pane, -1);
            EXPECT_FALSE(pane().renaming()) << action_name(action);
            EXPECT_FALSE(app().busy()) << action_name(action);
            EXPECT_EQ(app().m_overlay, App::Overlay::Message) << action_name(action);
            EXPECT_EQ(app().m_overlay_title, tr("dlg.nothing_title")) << action_name(action);
            app().close_overlay();
            frame();
        }
    }
    for (const char* name : {"aa", "bb", "cc"}) {
        EXPECT_TRUE(exists(left() + "/" + name)) << name;
        EXPECT_FALSE(exists(right() + "/" + name)) << name;
    }
}

TEST_F(AppFields, what_is_left_of_a_selection_is_worked_on_as_the_bar_closes) {
    for (const char* name : {"ba", "bb", "bc"})
        write_file(left() + "/" + name, name);
    start();
    app().begin_search(false);
    type("b");
    pane().select_all();
    std::remove((left() + "/ba").c_str());
    app().perform(Action::CopyPath, 0);
    EXPECT_EQ(clipboard(GDK_SELECTION_CLIPBOARD), left() + "/bb\n" + left() + "/bc");
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

TEST_F(AppFields, hidden_files_are_toggled_with_the_bar_open) {
    write_file(left() + "/.hidden", "x");
    start();
    key(GDK_KEY_f, GDK_CONTROL_MASK);
    type("hid");
    EXPECT_EQ(names().size(), 2U);
    key(GDK_KEY_h, GDK_CONTROL_MASK);
    EXPECT_EQ(names().size(), 1U);
    EXPECT_EQ(app().m_search_pane, 0);
    EXPECT_EQ(app().m_search_buffer, "hid");
    app().perform(Action::SearchPane, 0);
    EXPECT_EQ(app().m_search_pane, 0);
    EXPECT_EQ(pane().filter(), "hid");
    // The same switch in the settings is a command like all others.
    app().perform(Action::SettingsToggleHidden, 0);
    EXPECT_TRUE(logged("search closed: SettingsToggleHidden wurde ausgeloest"));
    EXPECT_EQ(app().m_search_pane, -1);
    EXPECT_EQ(pane().filter(), "");
}

TEST_F(AppFields, of_all_commands_two_leave_an_open_bar_alone) {
    REQUIRE_FRESH_PROCESS();  // whatever they leave behind
    write_file(left() + "/alpha", "x");
    start();
    // These would hand something to other programs, or end this one.
    const std::set<Action> not_here = {
        Action::None,         Action::Quit,         Action::RestartAsRoot, Action::RetryAsAdmin,
        Action::OpenTerminal, Action::OpenWith,     Action::LogOpenFile,   Action::AboutWebsite,
        Action::AboutContact, Action::AboutBugMail, Action::AboutDownloads};
    const auto stays_open = [this](Action action, const char* row) {
        app().m_active_right = false;
        pane().navigate_to(left(), true);
        app().close_overlay();
        app().begin_search(false);
        put_cursor_on(row);
        app().perform(action, 0);
        EXPECT_TRUE(!App::busy() || settle());  // without a frame for each
        return app().m_search_pane == 0;
    };
    std::string open;
    for (int i = 0; i < static_cast<int>(Action::COUNT_); ++i) {
        const Action action = static_cast<Action>(i);
        if (!not_here.contains(action) && app().action_enabled(action, nullptr) &&
            stays_open(action, ".."))
            open += std::string(action_name(action)) + " ";
    }
    EXPECT_EQ(open, "SearchPane ToggleHidden ");
    // Of those that need an entry, too.
    for (const Action action : {Action::Clone, Action::MakeLink, Action::Properties,
                                Action::CopyPath, Action::CopyToOther})
        EXPECT_FALSE(stays_open(action, "alpha")) << action_name(action);
}

TEST_F(AppFields, a_command_without_a_bar_leaves_the_filter) {
    write_file(left() + "/alpha", "x");
    write_file(left() + "/beta", "x");
    start();
    key(GDK_KEY_f, GDK_CONTROL_MASK);
    type("alp");
    key(GDK_KEY_Return);
    key(GDK_KEY_r, GDK_CONTROL_MASK);
    EXPECT_EQ(pane().filter(), "alp");
    // A refused command has not been carried out, and ends nothing.
    key(GDK_KEY_f, GDK_CONTROL_MASK);
    pane().set_cursor(0, false);
    app().perform(Action::Rename, 0);
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_EQ(pane().filter(), "alp");
    EXPECT_EQ(app().m_search_pane, 0);
}

TEST_F(AppFields, the_field_opened_last_has_the_keys) {
    write_file(left() + "/alpha", "x");
    start();
    app().begin_path_edit(false);
    app().begin_search(false);
    key(GDK_KEY_a);
    EXPECT_EQ(app().m_path_edit, -1);
    EXPECT_EQ(app().m_search_buffer, "a");
    put_cursor_on("alpha");
    app().begin_path_edit(false);
    app().perform(Action::Rename, 0);
    key(GDK_KEY_x);
    EXPECT_EQ(pane().rename_buffer(), "alphax");
    EXPECT_EQ(app().m_path_edit, -1);
}

// --- Rename -----------------------------------------------------------------------------------

TEST_F(AppFields, the_caret_of_a_rename_steps_over_whole_characters) {
    write_file(left() + "/a€ö.tar.gz", "x");
    start();
    put_cursor_on("a€ö.tar.gz");
    key(GDK_KEY_F2);
    EXPECT_EQ(pane().rename_caret(), 10U);  // in front of the last extension
    key(GDK_KEY_Home);
    std::vector<size_t> carets;
    for (int i = 0; i < 3; ++i) {
        key(GDK_KEY_Right);
        carets.push_back(pane().rename_caret());
    }
    EXPECT_EQ(carets, (std::vector<size_t>{1, 4, 6}));
    keys({GDK_KEY_Left, GDK_KEY_BackSpace});
    EXPECT_EQ(pane().rename_buffer(), "aö.tar.gz");
    key(GDK_KEY_Delete);
    EXPECT_EQ(pane().rename_buffer(), "a.tar.gz");
    EXPECT_EQ(pane().rename_caret(), 1U);
    keys({GDK_KEY_End, GDK_KEY_Right, GDK_KEY_Delete});
    EXPECT_EQ(pane().rename_caret(), 8U);
    keys({GDK_KEY_Home, GDK_KEY_Left, GDK_KEY_BackSpace});
    EXPECT_EQ(pane().rename_caret(), 0U);
    EXPECT_EQ(pane().rename_buffer(), "a.tar.gz");
}

TEST_F(AppFields, ctrl_and_alt_type_nothing_into_a_name) {
    write_file(left() + "/a", "x");
    start();
    put_cursor_on("a");
    key(GDK_KEY_F2);
    for (const guint state : std::initializer_list<guint>{GDK_CONTROL_MASK, GDK_MOD1_MASK}) {
        key(GDK_KEY_b, state);
        key(GDK_KEY_odiaeresis, state);
        key(GDK_KEY_Cyrillic_es, state);
    }
    EXPECT_EQ(pane().rename_buffer(), "a");
    set_clipboard("new\nsecond");
    key(GDK_KEY_v, GDK_CONTROL_MASK);
    EXPECT_EQ(pane().rename_buffer(), "anew");
    set_clipboard("with/slash");
    key(GDK_KEY_v, GDK_CONTROL_MASK);
    EXPECT_EQ(pane().rename_buffer(), "anew");
}

}  // namespace
