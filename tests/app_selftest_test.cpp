// The script mode, in process: what is performed, awaited and logged.

#include "app_fixture.h"

#include "logger.h"
#include "settings.h"
#include "strutil.h"

#include <algorithm>
#include <set>

namespace {

using test_env::exists;
using test_env::read_file;
using test_env::write_file;

class AppSelfTest : public AppTest {
  protected:
    void script(const std::string& actions) {
        start();
        app().m_arg_actions = actions;
        app().run_self_test();
    }
    std::vector<std::string> performed() const {
        std::vector<std::string> names;
        for (const std::string& line : log_lines())
            if (su::starts_with(line, "selftest: -> "))
                names.push_back(line.substr(std::string("selftest: -> ").size()));
        return names;
    }
    // The lines from the first that begins so.
    std::vector<std::string> lines_from(const std::string& prefix) const {
        std::vector<std::string> lines = log_lines();
        const auto first = std::find_if(lines.begin(), lines.end(), [&](const std::string& line) {
            return su::starts_with(line, prefix);
        });
        return {first, lines.end()};
    }
};

TEST_F(AppSelfTest, empty_parts_are_dropped) {
    script("Refresh,,About,");
    EXPECT_EQ(performed(), (std::vector<std::string>{"Refresh", "About"}));
    EXPECT_TRUE(logged("selftest: done, 2 executed, 0 unknown"));
}

TEST_F(AppSelfTest, an_unknown_name_is_counted_and_the_run_goes_on) {
    script("Nonsense,Refresh,?,refresh");
    EXPECT_EQ(performed(), (std::vector<std::string>{"Refresh"}));
    EXPECT_TRUE(logged("selftest: unknown action 'Nonsense'"));
    EXPECT_TRUE(logged("selftest: unknown action '?'"));
    EXPECT_TRUE(logged("selftest: unknown action 'refresh'"));
    EXPECT_TRUE(logged("selftest: done, 1 executed, 3 unknown"));
    for (const Log::Entry& entry : Log::instance().recent())
        if (su::starts_with(entry.text, "selftest: unknown")) {
            EXPECT_EQ(entry.level, Log::Level::Error);
        }
}

TEST_F(AppSelfTest, nonsense_alone_executes_nothing) {
    script("Nonsense");
    EXPECT_TRUE(logged("selftest: done, 0 executed, 1 unknown"));
}

TEST_F(AppSelfTest, the_work_of_one_action_is_done_before_the_next) {
    write_file(left() + "/a", "1");
    script("SelectAll,CopyToOther,SelectNone");
    EXPECT_EQ(read_file(right() + "/a"), "1");
    const std::vector<std::string> lines = log_lines();
    const auto at = [&lines](const std::string& prefix) {
        return std::find_if(lines.begin(), lines.end(),
                            [&](const std::string& line) { return su::starts_with(line, prefix); });
    };
    EXPECT_LT(at("transfer start: COPY"), at("transfer done: 1/1 files"));
    EXPECT_LT(at("transfer done: 1/1 files"), at("selftest: -> SelectNone"));
    EXPECT_NE(at("selftest: -> SelectNone"), lines.end());
}

TEST_F(AppSelfTest, the_next_action_finds_the_panes_as_the_work_left_them) {
    write_file(left() + "/a", "1");
    // Only a reload of the right side makes "a" an entry to be marked there.
    script("SelectAll,MoveToOther,SwapPanes,SelectAll,CopyPath,SwapPanes");
    EXPECT_FALSE(exists(left() + "/a"));
    EXPECT_EQ(names(true), (std::vector<std::string>{"..", "a"}));
}

TEST_F(AppSelfTest, a_dialogue_is_painted_listed_and_closed_again) {
    script("CopyToOther,Refresh");
    const std::vector<std::string> lines = lines_from("dialog opened");
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[0], "dialog opened: Message — 1 Auswahl [Nothing found]");
    EXPECT_EQ(lines[1], "  option OverlayCancel                OK");
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(app().m_overlay_title, "");
    frame();
    EXPECT_TRUE(logged("dialog closed: Message"));
}

TEST_F(AppSelfTest, an_action_without_a_dialogue_moves_on_at_once) {
    start();
    app().m_arg_actions = "SelectAll,SelectNone,InvertSelection";
    // Whatever waits lets the events through.
    static bool waited = false;
    g_idle_add(
        [](gpointer) -> gboolean {
            waited = true;
            return FALSE;
        },
        nullptr);
    app().run_self_test();
    EXPECT_EQ(performed().size(), 3U);
    EXPECT_FALSE(waited);
    pump();
    EXPECT_TRUE(waited);
}

TEST_F(AppSelfTest, failures_of_a_transfer_are_shown_and_listed) {
    write_file(left() + "/a", "1");
    test_env::make_dirs(left() + "/folder");
    // A file where a folder is to be made.
    write_file(right() + "/folder", "in the way");
    start();
    SettingsStore::instance().mutable_get().default_conflict =
        copy_engine::ConflictAction::Overwrite;
    app().m_arg_actions = "SelectAll,CopyToOther";
    app().run_self_test();
    const std::vector<std::string> lines = lines_from("dialog opened");
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(lines[0], "dialog opened: Errors — 1 Auswahl [Errors]");
    EXPECT_EQ(lines[1], "  option DismissErrors                Close");
}

TEST_F(AppSelfTest, a_question_without_an_answer_is_reported_after_15_seconds) {
    write_file(left() + "/a", "1");
    write_file(right() + "/a", "2");
    script("SelectAll,CopyToOther");
    EXPECT_TRUE(logged("selftest:    still busy after 15000 ms — result unproven"));
    EXPECT_TRUE(logged("selftest: done, 2 executed, 0 unknown"));
    const std::vector<std::string> lines = lines_from("dialog opened");
    ASSERT_GE(lines.size(), 8U);
    EXPECT_EQ(lines[0], "dialog opened: Conflict — 7 Auswahlen");
    std::set<std::string> options;
    for (size_t i = 1; i < 8; ++i)
        options.insert(lines[i]);
    EXPECT_TRUE(options.contains("  option ConflictSkip                 Skip"));
    EXPECT_TRUE(options.contains("  option ConflictOverwrite            Overwrite"));
    EXPECT_TRUE(
        options.contains("  option ConflictToggleAll            Do this for all remaining files"));
    copy_engine::instance().cancel();
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(right() + "/a"), "2");
}

TEST_F(AppSelfTest, all_leaves_out_what_ends_or_destroys_and_restores_the_settings) {
    write_file(left() + "/a", "1");
    write_file(right() + "/b", "2");
    start();
    Settings& s = SettingsStore::instance().mutable_get();
    s.theme = "dark";
    s.font_scale = 130;
    s.thread_count = 2;
    s.delete_to_trash = false;
    s.confirm_delete = false;
    s.default_conflict = copy_engine::ConflictAction::Skip;
    s.show_owner = true;
    app().apply_theme();
    app().m_arg_actions = "ALL";
    const std::string mark = "here the script begins";
    Log::infof("%s", mark.c_str());
    app().run_self_test();
    // From the file, since clearing the log in memory is among the actions.
    std::string log = read_file(Log::instance().file_path());
    ASSERT_NE(log.rfind(mark), std::string::npos);
    log.erase(0, log.rfind(mark));
    std::vector<std::string> names_done;
    const std::string arrow = "selftest: -> ";
    for (size_t at = log.find(arrow); at != std::string::npos; at = log.find(arrow, at)) {
        at += arrow.size();
        names_done.push_back(log.substr(at, log.find('\n', at) - at));
    }
    EXPECT_EQ(names_done.size(), 102U);  // 107 less None and four
    for (const char* skipped :
         {"None", "Quit", "RestartAsRoot", "DeletePermanent", "SettingsReset"})
        EXPECT_EQ(std::count(names_done.begin(), names_done.end(), skipped), 0) << skipped;
    EXPECT_TRUE(logged("selftest: done, 102 executed, 0 unknown"));
    EXPECT_EQ(s.theme, "dark");
    EXPECT_TRUE(app().m_palette.dark);
    EXPECT_EQ(s.font_scale, 130);
    EXPECT_EQ(s.thread_count, 2);
    EXPECT_FALSE(s.delete_to_trash);
    EXPECT_FALSE(s.confirm_delete);
    EXPECT_TRUE(s.show_owner);
    EXPECT_TRUE(s.show_hidden);
    EXPECT_EQ(s.default_conflict, copy_engine::ConflictAction::Skip);
    EXPECT_TRUE(exists(left() + "/a"));
    EXPECT_TRUE(exists(right() + "/b"));
}

// Many actions change folders or their order, and the end of the run saves what the sides show.
TEST_F(AppSelfTest, all_leaves_the_sides_where_they_were) {
    write_file(left() + "/a", "1");
    write_file(right() + "/b", "2");
    start({"--active=right"});
    const dir_lister::SortOrder by_size{dir_lister::SortKey::Size, false, true};
    pane(false).set_sort_order(by_size);
    app().m_arg_actions = "ALL";
    app().run_self_test();
    EXPECT_EQ(pane(false).path(), left());
    EXPECT_EQ(pane(true).path(), right());
    EXPECT_EQ(pane(false).sort_order(), by_size);
    EXPECT_TRUE(app().m_active_right);
    finish();
    EXPECT_EQ(SettingsStore::instance().get().left_path, left());
    EXPECT_EQ(SettingsStore::instance().get().right_path, right());
    EXPECT_EQ(SettingsStore::instance().get().left_sort, by_size);
}

TEST_F(AppSelfTest, other_scripts_keep_what_they_changed) {
    script("SettingsScalePlus");
    EXPECT_EQ(SettingsStore::instance().get().font_scale, 110);
}

TEST_F(AppSelfTest, a_closed_window_ends_the_script) {
    script("Quit,SelectAll,SelectAll,SelectAll,Refresh");
    // The window goes while events are pumped; from then on nothing is performed.
    EXPECT_LT(performed().size(), 6U);
    ASSERT_TRUE(pump_until([this] { return app().m_window == nullptr; }));
}

// Without a window no frame will ever list the dialogue, so its listing is not waited for.
TEST_F(AppSelfTest, a_window_closed_over_a_dialogue_ends_the_wait_for_its_frame) {
    start();
    gtk_widget_destroy(app().m_window);
    ASSERT_EQ(app().m_window, nullptr);
    static bool pumped = false;
    g_idle_add(
        [](gpointer) -> gboolean {
            pumped = true;
            return FALSE;
        },
        nullptr);
    // Refused with a message, since the folder is empty.
    EXPECT_TRUE(app().self_test_step("CopyToOther"));
    EXPECT_TRUE(logged("action refused: CopyToOther — nichts ausgewaehlt"));
    EXPECT_FALSE(pumped);
}

TEST_F(AppSelfTest, an_empty_script_starts_nothing) {
    start({"--action="});
    pump_until([] { return false; }, 0.7);
    for (const std::string& line : log_lines())
        EXPECT_FALSE(su::starts_with(line, "selftest")) << line;
    EXPECT_NE(app().m_window, nullptr);
}

// --- The record of dialogues, in every run ----------------------------------------------------

TEST_F(AppSelfTest, each_opening_and_closing_is_logged_once) {
    start();
    Log::instance().clear();
    app().show_message("Title", "text", false, Action::Refresh, "btn.details");
    frame();
    frame();
    app().close_overlay();
    frame();
    frame();
    EXPECT_EQ(log_lines(), (std::vector<std::string>{
                               "dialog opened: Message — 2 Auswahlen [Title]",
                               "  option OverlayCancel                OK",
                               "  option Refresh                      Details",
                               "dialog closed: Message",
                           }));
}

TEST_F(AppSelfTest, one_dialogue_after_another_is_an_opening) {
    start();
    app().show_message("a", "b");
    frame();
    Log::instance().clear();
    app().open_overlay(App::Overlay::Errors, "");
    frame();
    ASSERT_GE(log_lines().size(), 1U);
    EXPECT_EQ(log_lines()[0], "dialog opened: Errors — 1 Auswahl");
}

TEST_F(AppSelfTest, options_are_named_by_what_they_are) {
    start();
    Log::instance().clear();
    app().m_overlay = App::Overlay::LanguagePicker;
    app().m_hits.clear();
    app().m_drawing_overlay = true;
    app().add_hit(0, 0, 1, 1, App::Hit::ListItem, 3, false, "Deutsch");
    app().add_hit(0, 0, 1, 1, App::Hit::ListItem, ~4, false, "");
    app().add_hit(0, 0, 1, 1, App::Hit::PackFormat, 2, false, "tar.gz");
    app().add_hit(0, 0, 1, 1, App::Hit::PermBit, 8, false, "r");
    app().add_hit(0, 0, 1, 1, App::Hit::HexFindField, 5);
    app().add_hit(0, 0, 1, 1, App::Hit::Overlay, static_cast<int>(Action::OverlayOk), false, "OK");
    app().m_drawing_overlay = false;
    app().add_hit(0, 0, 1, 1, App::Hit::PaneRow, 1);
    app().log_dialog_options();
    EXPECT_EQ(log_lines(), (std::vector<std::string>{
                               "dialog opened: LanguagePicker — 6 Auswahlen",
                               "  option ListItem#3                   Deutsch",
                               "  option ListItem#4                   (ohne Beschriftung)",
                               "  option PackFormat#2                 tar.gz",
                               "  option PermBit#8                    r",
                               "  option HexFindField                 (ohne Beschriftung)",
                               "  option OverlayOk                    OK",
                           }));
    app().m_overlay = App::Overlay::None;
}

TEST(AppOverlays, each_has_its_name) {
    constexpr const char* kNames[] = {
        "None",          "About",         "Settings",     "Conflict",       "NewFolder",
        "NewFile",       "ConfirmDelete", "Pack",         "Properties",     "Errors",
        "SelectPattern", "GoToPath",      "Message",      "LanguagePicker", "LogView",
        "Bookmarks",     "FontPicker",    "BookmarkSide", "UnpackSide",     "ArchiveView",
        "HexView",       "Sandbox",       "Licenses",
    };
    for (int i = 0; i < 23; ++i)
        EXPECT_STREQ(App::overlay_name(static_cast<App::Overlay>(i)), kNames[i]);
    EXPECT_STREQ(App::overlay_name(static_cast<App::Overlay>(23)), "?");
    EXPECT_STREQ(App::overlay_name(static_cast<App::Overlay>(-1)), "?");
}

}  // namespace
