// Commands: what enables them, what they do, and what the user sees of a refusal.

#include "app_fixture.h"

#include "archive_ops.h"
#include "file_ops.h"
#include "i18n.h"
#include "logger.h"
#include "open_files.h"
#include "settings.h"
#include "strutil.h"

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using copy_engine::ConflictAction;
using test_env::exists;
using test_env::make_dirs;
using test_env::read_file;
using test_env::write_file;

Settings& settings() {
    return SettingsStore::instance().mutable_get();
}

// The generic refusal, as every row of the enablement table shows it.
class AppActions : public AppTest {
  protected:
    void expect_refused(Action action, const std::string& reason) {
        app().close_overlay();
        app().perform(action, 0);
        EXPECT_EQ(app().m_overlay, App::Overlay::Message) << action_name(action);
        EXPECT_EQ(app().m_overlay_title, "Nothing found") << action_name(action);
        EXPECT_EQ(app().m_overlay_text, "Select at least one entry first.") << action_name(action);
        EXPECT_FALSE(app().m_overlay_is_error) << action_name(action);
        EXPECT_TRUE(logged(std::string("action refused: ") + action_name(action) + " — " + reason))
            << action_name(action);
        app().close_overlay();
    }
    void expect_message(const std::string& title, const std::string& text, bool is_error) {
        EXPECT_EQ(app().m_overlay, App::Overlay::Message);
        EXPECT_EQ(app().m_overlay_title, title);
        EXPECT_EQ(app().m_overlay_text, text);
        EXPECT_EQ(app().m_overlay_is_error, is_error);
    }
    bool warned(const std::string& text) const {
        for (const Log::Entry& entry : Log::instance().recent())
            if (entry.text == text && entry.level == Log::Level::Warn)
                return true;
        return false;
    }
};

// --- The frame around every command -----------------------------------------------------------

TEST_F(AppActions, every_action_logs_its_name_and_the_active_folder) {
    start();
    app().perform(Action::SelectAll, 0);
    EXPECT_TRUE(logged("action: SelectAll [" + left() + "]"));
    key(GDK_KEY_Tab);
    app().perform(Action::SelectNone, 0);
    EXPECT_TRUE(logged("action: SelectNone [" + right() + "]"));
}

TEST_F(AppActions, none_logs_nothing) {
    start();
    const size_t before = log_lines().size();
    app().perform(Action::None, 0);
    EXPECT_EQ(log_lines().size(), before);
}

TEST_F(AppActions, a_value_that_is_no_action_does_nothing) {
    start();
    app().perform(static_cast<Action>(5000), 0);
    app().perform(static_cast<Action>(-1), 0);
    app().perform(Action::COUNT_, 0);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

TEST_F(AppActions, without_an_entry_the_commands_on_entries_are_refused) {
    start();
    ASSERT_EQ(cursor_name(), "..");
    expect_refused(Action::Rename, "Umbenennen braucht genau einen Eintrag");
    for (const Action action :
         {Action::Clone, Action::Pack, Action::PackToOther, Action::Properties, Action::MakeLink,
          Action::OpenWith, Action::CopyPath, Action::CopyToOther, Action::MoveToOther,
          Action::Delete, Action::DeleteToTrash, Action::DeletePermanent})
        expect_refused(action, "nichts ausgewaehlt");
    for (const Action action : {Action::Unpack, Action::ViewArchive, Action::ViewHex})
        expect_refused(action, "dafuer wird genau ein Eintrag gebraucht");
}

TEST_F(AppActions, the_painters_may_ask_without_a_reason) {
    start();
    EXPECT_FALSE(app().action_enabled(Action::Rename, nullptr));
    EXPECT_FALSE(app().action_enabled(Action::ViewHex, nullptr));
    EXPECT_TRUE(app().action_enabled(Action::Refresh, nullptr));
}

TEST_F(AppActions, delete_needs_a_mark_while_copy_takes_the_cursor_row) {
    write_file(left() + "/a", "x");
    start();
    put_cursor_on("a");
    ASSERT_FALSE(pane().has_selection());
    expect_refused(Action::Delete, "nichts ausgewaehlt");
    EXPECT_TRUE(app().action_enabled(Action::CopyToOther, nullptr));
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(exists(right() + "/a"));
    pane().toggle_selection(1);
    EXPECT_TRUE(app().action_enabled(Action::Delete, nullptr));
    EXPECT_TRUE(app().action_enabled(Action::DeleteToTrash, nullptr));
    EXPECT_TRUE(app().action_enabled(Action::DeletePermanent, nullptr));
}

TEST_F(AppActions, rename_of_two_marked_rows_is_refused) {
    write_file(left() + "/a", "x");
    write_file(left() + "/b", "x");
    start();
    pane().select_all();
    expect_refused(Action::Rename, "Umbenennen braucht genau einen Eintrag");
    EXPECT_FALSE(pane().renaming());
}

TEST_F(AppActions, an_ordinary_file_is_no_archive) {
    write_file(left() + "/a.txt", "x");
    start();
    put_cursor_on("a.txt");
    expect_refused(Action::Unpack, "die Auswahl ist kein Archiv");
    expect_refused(Action::ViewArchive, "die Auswahl ist kein Archiv");
    pane().select_all();
    write_file(left() + "/b.txt", "x");
    app().refresh_both();
    pane().select_all();
    expect_refused(Action::Unpack, "dafuer wird genau ein Eintrag gebraucht");
}

TEST_F(AppActions, a_folder_has_no_bytes_to_show) {
    make_dirs(left() + "/folder");
    ASSERT_EQ(symlink("folder", (left() + "/link").c_str()), 0);
    write_file(left() + "/file", "x");
    start();
    put_cursor_on("folder");
    expect_refused(Action::ViewHex, "ein Ordner hat keine Bytes");
    put_cursor_on("link");
    expect_refused(Action::ViewHex, "ein Ordner hat keine Bytes");
    put_cursor_on("file");
    EXPECT_TRUE(app().action_enabled(Action::ViewHex, nullptr));
}

TEST_F(AppActions, all_others_are_always_enabled) {
    start();
    std::string reason = "untouched";
    for (const Action action :
         {Action::NewFolder, Action::Quit, Action::SelectAll, Action::Refresh, Action::GoUp,
          Action::About, Action::OverlayOk, Action::HexCloseAnyway, Action::ConflictSkip})
        EXPECT_TRUE(app().action_enabled(action, &reason)) << action_name(action);
    EXPECT_EQ(reason, "untouched");
}

// --- Messages ---------------------------------------------------------------------------------

TEST_F(AppActions, a_message_stores_all_it_is_told) {
    start();
    app().show_message("title", "text", true, Action::Refresh, "btn.details");
    expect_message("title", "text", true);
    EXPECT_EQ(app().m_message_action, Action::Refresh);
    EXPECT_STREQ(app().m_message_action_label, "btn.details");
    frame();
    EXPECT_EQ(hit(App::Hit::Overlay, static_cast<int>(Action::Refresh)).label, "Details");
    EXPECT_EQ(hit(App::Hit::Overlay, static_cast<int>(Action::OverlayCancel)).label, "OK");
    app().show_message("other", "text");
    EXPECT_FALSE(app().m_overlay_is_error);
    EXPECT_EQ(app().m_message_action, Action::None);
    frame();
    EXPECT_EQ(count_hits(App::Hit::Overlay), 1U);
}

TEST_F(AppActions, a_very_long_message_stays_in_the_window) {
    start();
    std::string text;
    for (int i = 0; i < 30; ++i)
        text += "word" + std::to_string(i) + " ";
    text += std::string(200, 'x');
    app().show_message("t", text, true);
    for (const int scale : {70, 100, 200}) {
        settings().font_scale = scale;
        frame();
        const App::HitRect ok = hit(App::Hit::Overlay);
        EXPECT_LE(ok.y + ok.h, app().m_layout.height - 20) << scale;
    }
    shot("long-message");
    // Longer than any window: cut, but the way out stays.
    app().show_message("t", text + text + text + text, true);
    frame();
    const App::HitRect ok = hit(App::Hit::Overlay);
    EXPECT_LE(ok.y + ok.h, app().m_layout.height - 20);
    shot("cut-message");
}

// --- Selection, panes, navigation -------------------------------------------------------------

TEST_F(AppActions, select_all_none_and_invert) {
    write_file(left() + "/a", "x");
    write_file(left() + "/b", "x");
    start();
    app().perform(Action::SelectAll, 0);
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"a", "b"}));
    app().perform(Action::SelectNone, 0);
    EXPECT_TRUE(selected_names().empty());
    pane().toggle_selection(1);
    app().perform(Action::InvertSelection, 0);
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"b"}));
}

TEST_F(AppActions, copy_path_fills_both_clipboards) {
    write_file(left() + "/a", "x");
    write_file(left() + "/b c", "x");
    start();
    const auto text_of = [](GdkAtom which) {
        char* text = gtk_clipboard_wait_for_text(gtk_clipboard_get(which));
        const std::string result = text ? text : "(nothing)";
        g_free(text);
        return result;
    };
    app().perform(Action::SelectAll, 0);
    app().perform(Action::CopyPath, 0);
    const std::string both = left() + "/a\n" + left() + "/b c";
    EXPECT_EQ(text_of(GDK_SELECTION_CLIPBOARD), both);
    EXPECT_EQ(text_of(GDK_SELECTION_PRIMARY), both);
    pane().clear_selection();
    put_cursor_on("b c");
    app().perform(Action::CopyPath, 0);
    EXPECT_EQ(text_of(GDK_SELECTION_CLIPBOARD), left() + "/b c");
}

TEST_F(AppActions, refresh_rereads_both_sides_and_says_so) {
    start();
    write_file(left() + "/new", "x");
    make_dirs(left() + "/folder");
    write_file(right() + "/new too", "x");
    app().perform(Action::Refresh, 0);
    EXPECT_EQ(names(false), (std::vector<std::string>{"..", "folder", "new"}));
    EXPECT_EQ(names(true), (std::vector<std::string>{"..", "new too"}));
    EXPECT_EQ(app().m_flash_text, "Reloaded  ·  1 folders, 1 files");
    EXPECT_GT(app().m_flash_until, App::now_seconds() + 2);
    EXPECT_GT(app().m_reload_flash_until, App::now_seconds());
    EXPECT_LE(app().m_reload_flash_until, App::now_seconds() + 0.45);
}

TEST_F(AppActions, swap_keeps_the_active_pane_active_on_its_new_side) {
    write_file(left() + "/a", "x");
    start();
    app().perform(Action::SelectAll, 0);
    app().perform(Action::SwapPanes, 0);
    EXPECT_EQ(pane(false).path(), right());
    EXPECT_EQ(pane(true).path(), left());
    EXPECT_TRUE(app().m_active_right);
    EXPECT_EQ(selected_names(true), (std::vector<std::string>{"a"}));
    EXPECT_EQ(app().active_pane().path(), left());
}

TEST_F(AppActions, mirror_takes_the_other_side_along) {
    make_dirs(left() + "/sub");
    start();
    put_cursor_on("sub");
    key(GDK_KEY_Return);
    app().perform(Action::MirrorPane, 0);
    EXPECT_EQ(pane(true).path(), left() + "/sub");
    EXPECT_FALSE(app().m_active_right);
}

TEST_F(AppActions, up_back_and_forward_walk_the_active_side) {
    make_dirs(left() + "/sub");
    start();
    const std::string parent = su::parent_of(left());
    app().perform(Action::GoUp, 0);
    EXPECT_EQ(pane().path(), parent);
    EXPECT_EQ(cursor_name(), su::basename_of(left()));
    app().perform(Action::GoBack, 0);
    EXPECT_EQ(pane().path(), left());
    app().perform(Action::GoForward, 0);
    EXPECT_EQ(pane().path(), parent);
    app().perform(Action::GoHome, 0);
    EXPECT_EQ(pane().path(), test_env::root() + "/home");
    EXPECT_EQ(pane(true).path(), right());
}

TEST_F(AppActions, the_trash_is_made_when_it_is_missing) {
    start();
    const std::string trash = test_env::root() + "/home/.local/share/Trash/files";
    app().perform(Action::GoToTrash, 0);
    EXPECT_EQ(pane().path(), trash);
    EXPECT_EQ(pane().error(), "");
    EXPECT_TRUE(logged("trash: created " + trash));
    EXPECT_EQ(test_env::lstat_of(trash).st_mode & 07777U, 0700U);
    Log::instance().clear();
    app().perform(Action::GoHome, 0);
    app().perform(Action::GoToTrash, 0);
    EXPECT_EQ(pane().path(), trash);
    EXPECT_FALSE(logged("trash: created " + trash));
}

TEST_F(AppActions, a_trash_that_cannot_be_made_is_an_error) {
    std::filesystem::remove_all(test_env::root() + "/home/.local");  // an earlier test's
    write_file(test_env::root() + "/home/.local", "a file in the way");
    start();
    app().perform(Action::GoToTrash, 0);
    expect_message("Caution", "This location has no trash. Delete permanently instead.", true);
    EXPECT_EQ(pane().path(), left());
}

TEST_F(AppActions, the_archive_format_goes_round_those_that_can_be_packed) {
    start();
    const std::vector<archive_ops::Format>& formats = archive_ops::available_formats();
    ASSERT_GT(formats.size(), 2U);  // tar and gzip are in every Debian
    std::string& present = SettingsStore::instance().mutable_get().archive_format;
    present = archive_ops::label_for(formats[0]);
    for (size_t i = 1; i <= formats.size(); ++i) {
        app().perform(Action::SettingsArchiveFormat, 0);
        EXPECT_EQ(present, archive_ops::label_for(formats[i % formats.size()]));
    }
    // One that none has is followed by the second.
    present = "rar";
    app().perform(Action::SettingsArchiveFormat, 0);
    EXPECT_EQ(present, archive_ops::label_for(formats[1]));
    EXPECT_NE(
        test_env::read_file(config_file("settings.json")).find("\"archive_format\": \"" + present),
        std::string::npos);
}

TEST_F(AppActions, the_sandbox_notice_can_be_told_to_stay_away) {
    start();
    app().open_overlay(App::Overlay::Sandbox, "title");
    app().perform(Action::SandboxDontShow, 0);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_TRUE(SettingsStore::instance().get().sandbox_notice_hidden);
    EXPECT_NE(
        test_env::read_file(config_file("settings.json")).find("\"sandbox_notice_hidden\": true"),
        std::string::npos);
}

TEST_F(AppActions, hidden_files_can_be_toggled) {
    write_file(left() + "/.hidden", "x");
    start();
    EXPECT_EQ(names(), (std::vector<std::string>{"..", ".hidden"}));
    app().perform(Action::ToggleHidden, 0);
    EXPECT_EQ(names(), (std::vector<std::string>{".."}));
    app().perform(Action::SettingsToggleHidden, 0);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", ".hidden"}));
}

TEST_F(AppActions, quit_closes_the_window) {
    start();
    app().perform(Action::Quit, 0);
    EXPECT_TRUE(pump_until([this] { return app().m_window == nullptr; }));
    EXPECT_TRUE(app().m_quitting);
}

// --- Opening rows -----------------------------------------------------------------------------

TEST_F(AppActions, a_row_is_opened_by_its_kind) {
    make_dirs(left() + "/folder/deep");
    ASSERT_EQ(symlink("folder", (left() + "/link").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (left() + "/broken").c_str()), 0);
    start();
    put_cursor_on("folder");
    app().perform(Action::OpenWith, 0);
    EXPECT_EQ(pane().path(), left() + "/folder");
    app().activate_row(0, false);
    EXPECT_EQ(pane().path(), left());
    EXPECT_EQ(cursor_name(), "folder");
    put_cursor_on("link");
    app().perform(Action::OpenWith, 0);
    EXPECT_EQ(pane().path(), left() + "/link");
    app().activate_row(0, false);
    put_cursor_on("broken");
    app().perform(Action::OpenWith, 0);
    expect_message("Caution", "This link points at something that is not there.", true);
    EXPECT_EQ(pane().path(), left());
}

TEST_F(AppActions, an_index_outside_opens_nothing) {
    start();
    app().activate_row(-1, false);
    app().activate_row(1, false);
    app().activate_row(99999, true);
    EXPECT_EQ(pane().path(), left());
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

TEST_F(AppActions, a_file_that_no_program_answers_for_is_an_error) {
    write_file(left() + "/strange.ferrodeck-unknown", std::string("\0\1\2", 3));
    start();
    put_cursor_on("strange.ferrodeck-unknown");
    app().perform(Action::OpenWith, 0);
    expect_message("Caution", "No program answered for this file.", true);
}

TEST_F(AppActions, a_file_is_handed_to_its_default_program) {
    const std::string apps = test_env::root() + "/home/.local/share/applications";
    const std::string mark = test_env::root() + "/opened";
    make_dirs(apps);
    write_file(test_env::root() + "/open.sh",
               "#!/bin/sh\necho \"$1\" > " + mark + ".tmp\nmv " + mark + ".tmp " + mark + "\n",
               0755);
    write_file(apps + "/mark.desktop",
               "[Desktop Entry]\nType=Application\nName=Mark\nExec=" + test_env::root() +
                   "/open.sh %f\nMimeType=text/plain;\n");
    write_file(apps + "/mimeapps.list", "[Default Applications]\ntext/plain=mark.desktop\n");
    write_file(left() + "/a b.txt", "plain text\n");
    start();
    put_cursor_on("a b.txt");
    app().perform(Action::OpenWith, 0);
    if (app().m_overlay == App::Overlay::Message)
        GTEST_SKIP() << "no MIME database here, so the type of a text is not known";
    ASSERT_TRUE(pump_until([&mark] { return exists(mark); }));
    EXPECT_EQ(read_file(mark), left() + "/a b.txt\n");
}

// The cursor may stand elsewhere while one row is marked; the mark is what the command is about.
TEST_F(AppActions, open_goes_to_the_one_marked_entry) {
    make_dirs(left() + "/one");
    make_dirs(left() + "/two");
    start();
    put_cursor_on("two");
    pane().toggle_selection(pane().cursor());
    put_cursor_on("one");
    app().perform(Action::OpenWith, 0);
    EXPECT_EQ(pane().path(), left() + "/two");
}

// --- Transfers --------------------------------------------------------------------------------

TEST_F(AppActions, copy_and_move_go_from_the_active_side_to_the_other) {
    write_file(left() + "/l", "left");
    write_file(right() + "/r", "right");
    start();
    key(GDK_KEY_Tab);
    put_cursor_on("r", true);
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(left() + "/r"), "right");
    EXPECT_EQ(read_file(right() + "/r"), "right");
    key(GDK_KEY_Tab);
    put_cursor_on("l");
    app().perform(Action::MoveToOther, 0);
    ASSERT_TRUE(settle());
    EXPECT_FALSE(exists(left() + "/l"));
    EXPECT_EQ(read_file(right() + "/l"), "left");
}

TEST_F(AppActions, the_direction_need_not_be_the_active_sides) {
    write_file(right() + "/r", "right");
    start();
    put_cursor_on("r", true);
    app().start_transfer(false, false);
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(left() + "/r"), "right");
}

TEST_F(AppActions, a_transfer_from_an_empty_side_finds_nothing) {
    start();
    app().start_transfer(true, false);
    expect_message("Nothing found", "Select at least one entry first.", false);
}

TEST_F(AppActions, the_same_folder_on_both_sides_is_refused) {
    write_file(left() + "/a", "x");
    start();
    app().perform(Action::MirrorPane, 0);
    put_cursor_on("a");
    app().perform(Action::CopyToOther, 0);
    expect_message("Same folder", "Both sides show the same folder. Use Duplicate instead.", false);
    EXPECT_FALSE(App::busy());
}

TEST_F(AppActions, a_second_transfer_is_refused_while_one_runs) {
    write_file(left() + "/a", "1");
    write_file(right() + "/a", "2");
    start();
    put_cursor_on("a");
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    app().perform(Action::CopyToOther, 0);
    expect_message("Still busy", "Wait for the running operation to finish, or cancel it.", false);
    // Busy comes first, whatever else would be wrong.
    app().close_overlay();
    pane(true).set_cursor(0, true);
    app().start_transfer(false, false);
    expect_message("Still busy", "Wait for the running operation to finish, or cancel it.", false);
    app().perform(Action::Clone, 0);
    expect_message("Still busy", "Wait for the running operation to finish, or cancel it.", false);
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    app().perform(Action::ConflictCancel, 0);
    ASSERT_TRUE(settle());
}

TEST_F(AppActions, the_settings_choose_what_happens_to_a_taken_name) {
    write_file(left() + "/a", "1");
    write_file(right() + "/a", "2");
    start();
    settings().default_conflict = ConflictAction::RenameNew;
    put_cursor_on("a");
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(settle());
    EXPECT_EQ(names(true), (std::vector<std::string>{"..", "a", "a.1"}));
    EXPECT_EQ(read_file(right() + "/a"), "2");
    EXPECT_EQ(read_file(right() + "/a.1"), "1");
}

TEST_F(AppActions, clone_duplicates_beside_the_original) {
    write_file(left() + "/a.txt", "1");
    make_dirs(left() + "/folder");
    write_file(left() + "/folder/in", "2");
    start();
    app().perform(Action::SelectAll, 0);
    app().perform(Action::Clone, 0);
    ASSERT_TRUE(settle());
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "folder", "folder.1", "a.1.txt", "a.txt"}));
    EXPECT_EQ(read_file(left() + "/a.1.txt"), "1");
    EXPECT_EQ(read_file(left() + "/folder.1/in"), "2");
    EXPECT_EQ(read_file(left() + "/a.txt"), "1");
}

TEST_F(AppActions, transfers_run_on_the_chosen_number_of_threads) {
    write_file(left() + "/a", "1");
    start();
    put_cursor_on("a");
    settings().thread_count = 3;
    app().perform(Action::CopyToOther, 0);
    EXPECT_EQ(copy_engine::instance().snapshot().threads_active, 3);
    ASSERT_TRUE(settle());
    settings().thread_count = 5;
    app().perform(Action::Clone, 0);
    EXPECT_EQ(copy_engine::instance().snapshot().threads_active, 5);
    ASSERT_TRUE(settle());
}

TEST_F(AppActions, each_answer_reaches_the_engine) {
    struct Case {
        Action action;
        const char* old_file;  // what "a" at the target holds afterwards
        const char* other;     // what "a.1" holds, or null for no such file
    };
    start();
    for (const Case& c :
         {Case{Action::ConflictOverwrite, "new", nullptr},
          Case{Action::ConflictSkip, "old", nullptr}, Case{Action::ConflictRenameNew, "old", "new"},
          Case{Action::ConflictRenameExisting, "new", "old"},
          Case{Action::ConflictOverwriteIfNewer, "old", nullptr},
          Case{Action::ConflictCancel, "old", nullptr}}) {
        write_file(left() + "/a", "new");
        write_file(right() + "/a", "old");
        // The file at the target is the newer one.
        const timespec times[2] = {{1000000000, 0}, {1000000000, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, (left() + "/a").c_str(), times, 0), 0);
        std::remove((right() + "/a.1").c_str());
        app().refresh_both();
        put_cursor_on("a");
        pane().clear_selection();
        app().perform(Action::CopyToOther, 0);
        ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
        app().perform(c.action, 0);
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
        ASSERT_TRUE(settle());
        EXPECT_EQ(read_file(right() + "/a"), c.old_file) << action_name(c.action);
        EXPECT_EQ(exists(right() + "/a.1"), c.other != nullptr) << action_name(c.action);
        if (c.other) {
            EXPECT_EQ(read_file(right() + "/a.1"), c.other) << action_name(c.action);
        }
        app().close_overlay();
    }
}

TEST_F(AppActions, an_answer_for_all_is_asked_for_once) {
    for (const char* name : {"a", "b", "c"}) {
        write_file(left() + "/" + name, "new");
        write_file(right() + "/" + name, "old");
    }
    start();
    app().perform(Action::SelectAll, 0);
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    app().perform(Action::ConflictToggleAll, 0);
    EXPECT_TRUE(app().m_conflict_apply_all);
    EXPECT_EQ(app().m_overlay, App::Overlay::Conflict);
    app().perform(Action::ConflictToggleAll, 0);
    EXPECT_FALSE(app().m_conflict_apply_all);
    app().perform(Action::ConflictToggleAll, 0);
    app().perform(Action::ConflictOverwrite, 0);
    bool asked_again = false;
    ASSERT_TRUE(pump_until([this, &asked_again] {
        asked_again = asked_again || app().m_overlay == App::Overlay::Conflict;
        return idle();
    }));
    EXPECT_FALSE(asked_again);
    for (const char* name : {"a", "b", "c"})
        EXPECT_EQ(read_file(right() + "/" + name), "new");
}

// --- Links ------------------------------------------------------------------------------------

TEST_F(AppActions, links_are_made_on_the_other_side) {
    write_file(left() + "/a", "x");
    make_dirs(left() + "/folder");
    write_file(left() + "/taken", "x");
    write_file(right() + "/taken", "y");
    start();
    app().perform(Action::SelectAll, 0);
    app().perform(Action::MakeLink, 0);
    EXPECT_EQ(std::filesystem::read_symlink(right() + "/a"), left() + "/a");
    EXPECT_EQ(std::filesystem::read_symlink(right() + "/folder"), left() + "/folder");
    EXPECT_EQ(read_file(right() + "/taken"), "y");
    expect_message("Caution", "Something with that name is already there.: taken", true);
    EXPECT_TRUE(logged("symlink " + right() + "/a -> " + left() + "/a"));
    EXPECT_TRUE(app().m_result.valid);
    EXPECT_EQ(app().m_result.title, "Create link on the other side");
    EXPECT_EQ(app().m_result.files, 2);
    EXPECT_EQ(app().m_result.failures, 1U);
    EXPECT_EQ(app().m_result.detail, su::basename_of(right()));
    EXPECT_EQ(names(true), (std::vector<std::string>{"..", "folder", "a", "taken"}));
}

TEST_F(AppActions, links_into_the_same_folder_are_refused) {
    write_file(left() + "/a", "x");
    start();
    app().perform(Action::MirrorPane, 0);
    put_cursor_on("a");
    app().perform(Action::MakeLink, 0);
    expect_message("Caution",
                   "Both sides show the same folder — open a different one on the other side.",
                   true);
    EXPECT_FALSE(app().m_result.valid);
}

TEST_F(AppActions, the_guard_of_links_stands_by_itself) {
    start();
    app().make_links();
    expect_message("Nothing found", "Select at least one entry first.", false);
    EXPECT_FALSE(app().m_result.valid);
}

TEST_F(AppActions, of_several_links_that_fail_the_first_is_told) {
    write_file(left() + "/a", "x");
    write_file(left() + "/b", "x");
    write_file(right() + "/a", "y");
    write_file(right() + "/b", "y");
    start();
    app().perform(Action::SelectAll, 0);
    app().perform(Action::MakeLink, 0);
    expect_message("Caution", "Something with that name is already there.: a", true);
    EXPECT_FALSE(app().m_result.valid);  // nothing was made
}

TEST_F(AppActions, a_link_that_the_system_refuses_is_told_by_its_text) {
    write_file(left() + "/a", "x");
    start();
    ASSERT_EQ(rmdir(right().c_str()), 0);
    put_cursor_on("a");
    app().perform(Action::MakeLink, 0);
    const std::string text = right() + "/a: No such file or directory";
    expect_message("Caution", "a: " + text, true);
    const std::string line = "symlink " + right() + "/a -> " + left() + "/a failed: " + text;
    bool as_error = false;
    for (const Log::Entry& entry : Log::instance().recent())
        as_error = as_error || (entry.text == line && entry.level == Log::Level::Error);
    EXPECT_TRUE(as_error);
    EXPECT_FALSE(app().m_result.valid);
}

// The errors dialogue would list what the last transfer failed at.
TEST_F(AppActions, links_that_failed_do_not_lead_to_the_failures_of_a_transfer) {
    ASSERT_EQ(mkfifo((left() + "/pipe").c_str(), 0600), 0);
    write_file(left() + "/a", "x");
    write_file(left() + "/taken", "x");
    write_file(right() + "/taken", "y");
    start();
    put_cursor_on("pipe");
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(settle());
    app().close_overlay();
    frame();
    EXPECT_EQ(hit(App::Hit::ErrorBanner).label, "1 failed  ·  Details");
    pane().clear_selection();
    app().perform(Action::SelectAll, 0);
    app().perform(Action::MakeLink, 0);
    app().close_overlay();
    ASSERT_TRUE(app().m_result.valid);
    ASSERT_EQ(app().m_result.failures, 1U);
    frame();
    EXPECT_EQ(count_hits(App::Hit::ErrorBanner), 0U);
    shot("links-failed");
}

// --- Rename -----------------------------------------------------------------------------------

TEST_F(AppActions, a_rename_is_committed_and_the_cursor_follows) {
    write_file(left() + "/a.txt", "x");
    write_file(left() + "/z.txt", "x");
    start();
    put_cursor_on("a.txt");
    app().perform(Action::Rename, 0);
    ASSERT_TRUE(pane().renaming());
    EXPECT_EQ(pane().rename_buffer(), "a.txt");
    frame();
    shot("rename");
    pane().rename_set_caret(0);
    pane().rename_insert("zz");
    app().commit_rename();
    EXPECT_FALSE(pane().renaming());
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "z.txt", "zza.txt"}));
    EXPECT_EQ(cursor_name(), "zza.txt");
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

TEST_F(AppActions, an_entry_renamed_to_the_end_of_the_list_is_shown_there) {
    for (int i = 10; i < 90; ++i)
        write_file(left() + "/file" + std::to_string(i), "x");
    start();
    put_cursor_on("file10");
    app().perform(Action::Rename, 0);
    pane().rename_set_caret(0);
    pane().rename_insert("z");
    app().commit_rename();
    EXPECT_EQ(pane().cursor(), 80);
    EXPECT_LT(pane().cursor() - pane().scroll(), app().rows_in_view(false));
}

TEST_F(AppActions, rename_goes_to_the_one_marked_entry) {
    write_file(left() + "/a", "x");
    write_file(left() + "/b", "x");
    start();
    put_cursor_on("b");
    pane().toggle_selection(pane().cursor());
    put_cursor_on("a");
    app().perform(Action::Rename, 0);
    EXPECT_EQ(pane().rename_buffer(), "b");
    EXPECT_EQ(cursor_name(), "b");
}

TEST_F(AppActions, a_rename_to_a_taken_name_is_refused_and_touches_nothing) {
    write_file(left() + "/a", "1");
    write_file(left() + "/ab", "2");
    start();
    put_cursor_on("a");
    app().perform(Action::Rename, 0);
    pane().rename_insert("b");
    app().commit_rename();
    expect_message("Caution", "Something with that name is already there.", true);
    EXPECT_EQ(read_file(left() + "/a"), "1");
    EXPECT_EQ(read_file(left() + "/ab"), "2");
}

TEST_F(AppActions, an_unchanged_or_empty_name_changes_nothing) {
    write_file(left() + "/a", "1");
    start();
    put_cursor_on("a");
    app().perform(Action::Rename, 0);
    app().commit_rename();
    app().perform(Action::Rename, 0);
    pane().rename_backspace();
    app().commit_rename();
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "a"}));
    app().commit_rename();  // with no rename in progress
}

// A reload in mid-rename may move the rows; the entry is meant, not the row.
TEST_F(AppActions, a_rename_finds_its_entry_after_the_rows_have_moved) {
    write_file(left() + "/m", "the one");
    start();
    put_cursor_on("m");
    app().perform(Action::Rename, 0);
    write_file(left() + "/a", "another");
    app().refresh_both();
    pane().rename_insert("2");
    app().commit_rename();
    EXPECT_EQ(read_file(left() + "/m2"), "the one");
    EXPECT_EQ(read_file(left() + "/a"), "another");
}

TEST_F(AppActions, a_rename_whose_entry_is_gone_ends_without_action) {
    write_file(left() + "/a", "1");
    write_file(left() + "/b", "2");
    start();
    put_cursor_on("a");
    app().perform(Action::Rename, 0);
    std::remove((left() + "/a").c_str());
    app().refresh_both();
    pane().rename_insert("x");
    app().commit_rename();
    EXPECT_FALSE(pane().renaming());
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "b"}));
}

// --- Settings ---------------------------------------------------------------------------------

TEST_F(AppActions, thread_count_stays_between_0_and_16) {
    start();
    app().perform(Action::SettingsThreadsMinus, 0);
    EXPECT_EQ(settings().thread_count, 0);
    app().perform(Action::SettingsThreadsPlus, 0);
    EXPECT_EQ(settings().thread_count, 1);
    settings().thread_count = 16;
    app().perform(Action::SettingsThreadsPlus, 0);
    EXPECT_EQ(settings().thread_count, 16);
    app().perform(Action::SettingsThreadsMinus, 0);
    EXPECT_EQ(settings().thread_count, 15);
}

TEST_F(AppActions, the_scale_goes_by_tens_between_70_and_200) {
    start();
    app().perform(Action::SettingsScalePlus, 0);
    EXPECT_EQ(settings().font_scale, 110);
    EXPECT_TRUE(logged("UI scale 110 %"));
    settings().font_scale = 200;
    app().perform(Action::SettingsScalePlus, 0);
    EXPECT_EQ(settings().font_scale, 200);
    settings().font_scale = 70;
    app().perform(Action::SettingsScaleMinus, 0);
    EXPECT_EQ(settings().font_scale, 70);
    EXPECT_TRUE(logged("UI scale 70 %"));
}

TEST_F(AppActions, the_theme_goes_round) {
    start();
    settings().theme = "auto";
    app().perform(Action::SettingsTheme, 0);
    EXPECT_EQ(settings().theme, "light");
    app().perform(Action::SettingsTheme, 0);
    EXPECT_EQ(settings().theme, "dark");
    EXPECT_TRUE(app().m_palette.dark);
    app().perform(Action::SettingsTheme, 0);
    EXPECT_EQ(settings().theme, "auto");
    EXPECT_FALSE(app().m_palette.dark);
    settings().theme = "nonsense";
    app().perform(Action::SettingsTheme, 0);
    EXPECT_EQ(settings().theme, "auto");
}

TEST_F(AppActions, the_default_conflict_action_goes_round_without_rename_existing) {
    start();
    for (const ConflictAction expected :
         {ConflictAction::Overwrite, ConflictAction::Skip, ConflictAction::RenameNew,
          ConflictAction::OverwriteIfNewer, ConflictAction::Ask}) {
        app().perform(Action::SettingsConflict, 0);
        EXPECT_EQ(settings().default_conflict, expected);
    }
    for (const ConflictAction outside : {ConflictAction::RenameExisting, ConflictAction::Cancel}) {
        settings().default_conflict = outside;
        app().perform(Action::SettingsConflict, 0);
        EXPECT_EQ(settings().default_conflict, ConflictAction::Overwrite);
    }
}

TEST_F(AppActions, the_switches_flip) {
    start();
    app().perform(Action::SettingsToggleTrash, 0);
    EXPECT_FALSE(settings().delete_to_trash);
    app().perform(Action::SettingsToggleTrash, 0);
    EXPECT_TRUE(settings().delete_to_trash);
    app().perform(Action::SettingsToggleConfirm, 0);
    EXPECT_FALSE(settings().confirm_delete);
    app().perform(Action::SettingsToggleConfirm, 0);
    EXPECT_TRUE(settings().confirm_delete);
}

TEST_F(AppActions, reset_keeps_folders_and_orders_alone) {
    start();
    settings().theme = "dark";
    settings().font_scale = 150;
    settings().thread_count = 5;
    settings().show_hidden = false;
    write_file(left() + "/.hidden", "x");
    app().refresh_both();
    ASSERT_EQ(names(), (std::vector<std::string>{".."}));
    settings().font_family = "monospace";
    I18n::instance().set_ui_font("monospace");
    settings().left_path = "/usr";
    settings().right_path = "/tmp";
    settings().left_sort = {dir_lister::SortKey::Size, false, true};
    settings().right_sort = {dir_lister::SortKey::Owner, true, true};
    app().apply_theme();
    app().perform(Action::SettingsReset, 0);
    EXPECT_EQ(settings().theme, "light");
    EXPECT_FALSE(app().m_palette.dark);
    EXPECT_EQ(settings().font_scale, 100);
    EXPECT_EQ(settings().thread_count, 0);
    EXPECT_TRUE(settings().show_hidden);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", ".hidden"}));
    EXPECT_EQ(settings().left_path, "/usr");
    EXPECT_EQ(settings().right_path, "/tmp");
    EXPECT_EQ(settings().left_sort.key, dir_lister::SortKey::Size);
    EXPECT_EQ(settings().right_sort.key, dir_lister::SortKey::Owner);
    EXPECT_EQ(I18n::instance().ui_font_family(), "sans-serif");
    EXPECT_EQ(app().m_flash_text, "Settings reset");
    EXPECT_TRUE(logged("settings reset to defaults"));
}

TEST_F(AppActions, the_log_can_be_cleared_and_made_talkative) {
    start();
    app().perform(Action::LogToggleDebug, 0);
    EXPECT_TRUE(Log::instance().debug());
    EXPECT_TRUE(logged("debug logging ON"));
    app().perform(Action::LogToggleDebug, 0);
    EXPECT_FALSE(Log::instance().debug());
    EXPECT_TRUE(logged("debug logging off"));
    app().perform(Action::LogClear, 0);
    EXPECT_EQ(log_lines(), (std::vector<std::string>{"log cleared by the user"}));
}

// --- File operations behind the commands ------------------------------------------------------

TEST(FileOps, a_name_is_refused_for_the_first_reason_that_applies) {
    const test_env::TempDir dir;
    write_file(dir / "taken", "x");
    EXPECT_EQ(file_ops::validate_name(dir.path(), "", ""), "The name must not be empty.");
    EXPECT_EQ(file_ops::validate_name(dir.path(), "a/b", ""), "A name cannot contain a slash.");
    EXPECT_EQ(file_ops::validate_name(dir.path(), ".", ""), "That name is reserved.");
    EXPECT_EQ(file_ops::validate_name(dir.path(), "..", ""), "That name is reserved.");
    EXPECT_EQ(file_ops::validate_name(dir.path(), std::string(256, 'x'), ""),
              "That name is too long.");
    EXPECT_EQ(file_ops::validate_name(dir.path(), std::string(255, 'x'), ""), "");
    EXPECT_EQ(file_ops::validate_name(dir.path(), "taken", ""),
              "Something with that name is already there.");
    EXPECT_EQ(file_ops::validate_name(dir.path(), "taken", "taken"), "");
    EXPECT_EQ(file_ops::validate_name(dir.path(), "free", "taken"), "");
}

TEST(FileOps, a_dangling_link_takes_a_name_too) {
    const test_env::TempDir dir;
    ASSERT_EQ(symlink("nowhere", (dir / "link").c_str()), 0);
    EXPECT_EQ(file_ops::validate_name(dir.path(), "link", ""),
              "Something with that name is already there.");
}

TEST(FileOps, renaming_to_the_present_name_is_a_success_even_where_nothing_may_be_renamed) {
    const test_env::TempDir dir;
    EXPECT_EQ(file_ops::rename_entry(dir / "not there", "not there"), "");
    EXPECT_NE(file_ops::rename_entry(dir / "not there", "other"), "");
}

TEST(FileOps, a_rename_never_replaces) {
    const test_env::TempDir dir;
    write_file(dir / "a", "1");
    write_file(dir / "b", "2");
    EXPECT_EQ(file_ops::rename_entry(dir / "a", "b"), "Something with that name is already there.");
    EXPECT_EQ(read_file(dir / "b"), "2");
    EXPECT_EQ(file_ops::rename_entry(dir / "a", "c"), "");
    EXPECT_EQ(read_file(dir / "c"), "1");
}

TEST(FileOps, folders_and_files_are_made_under_names_that_are_free) {
    const test_env::TempDir dir;
    const mode_t mask = umask(0);
    EXPECT_EQ(file_ops::create_directory(dir.path(), "folder"), "");
    EXPECT_EQ(file_ops::create_empty_file(dir.path(), "file"), "");
    umask(mask);
    EXPECT_EQ(test_env::lstat_of(dir / "folder").st_mode, S_IFDIR | 0755U);
    EXPECT_EQ(test_env::lstat_of(dir / "file").st_mode, S_IFREG | 0644U);
    EXPECT_EQ(test_env::lstat_of(dir / "file").st_size, 0);
    write_file(dir / "file", "kept");
    for (const char* name : {"folder", "file"}) {
        EXPECT_EQ(file_ops::create_directory(dir.path(), name),
                  "Something with that name is already there.");
        EXPECT_EQ(file_ops::create_empty_file(dir.path(), name),
                  "Something with that name is already there.");
    }
    EXPECT_EQ(read_file(dir / "file"), "kept");
    EXPECT_EQ(file_ops::create_directory(dir.path(), ".."), "That name is reserved.");
    EXPECT_EQ(file_ops::create_empty_file(dir.path(), "a/b"), "A name cannot contain a slash.");
}

TEST(FileOps, what_cannot_be_made_names_the_path_and_the_reason) {
    const test_env::TempDir dir;
    const std::string gone = dir / "gone";
    EXPECT_EQ(file_ops::create_directory(gone, "a"), gone + "/a: No such file or directory");
    EXPECT_EQ(file_ops::create_empty_file(gone, "a"), gone + "/a: No such file or directory");
}

// Our own limit is raised; a program that counts on the session's would be misled by it.
TEST(FileOps, a_launched_program_has_the_sessions_limit_of_open_files) {
    const std::string apps = test_env::root() + "/home/.local/share/applications";
    const std::string mark = test_env::root() + "/limits";
    make_dirs(apps);
    write_file(test_env::root() + "/limits.sh",
               "#!/bin/sh\n{ ulimit -Sn; ulimit -Hn; } > " + mark + ".tmp\nmv " + mark + ".tmp " +
                   mark + "\n",
               0755);
    write_file(apps + "/limits.desktop",
               "[Desktop Entry]\nType=Application\nName=Limits\nExec=" + test_env::root() +
                   "/limits.sh %f\nMimeType=text/plain;\n");
    write_file(apps + "/mimeapps.list", "[Default Applications]\ntext/plain=limits.desktop\n");
    const test_env::TempDir dir;
    write_file(dir / "a.txt", "plain text\n");
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    ASSERT_GT(limit.rlim_max, 300U);
    limit.rlim_cur = 300;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    open_files::raise_limit();
    rlimit raised = {};
    getrlimit(RLIMIT_NOFILE, &raised);
    EXPECT_EQ(raised.rlim_cur, limit.rlim_max);
    if (!file_ops::open_with_default_app(dir / "a.txt").empty())
        GTEST_SKIP() << "no MIME database here, so the type of a text is not known";
    for (int i = 0; i < 5000 && !exists(mark); ++i)
        usleep(1000);
    ASSERT_TRUE(exists(mark));
    const std::string most =
        limit.rlim_max == RLIM_INFINITY ? "unlimited" : std::to_string(limit.rlim_max);
    EXPECT_EQ(read_file(mark), "300\n" + most + "\n");
    getrlimit(RLIMIT_NOFILE, &raised);
    EXPECT_EQ(raised.rlim_cur, limit.rlim_max);
}

}  // namespace
