// The life of the program: command line, start, window, tick, saved state, end.

#include "app_fixture.h"

#include "app_display.h"
#include "faultfs.h"
#include "fs_ops.h"
#include "i18n.h"
#include "logger.h"
#include "mounts_fixture.h"
#include "settings.h"
#include "strutil.h"

#include <atomic>
#include <filesystem>
#include <gdk/gdkkeysyms.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using copy_engine::ConflictAction;
using test_env::write_file;

// The command line alone; no window is needed for it.
std::unique_ptr<App> parsed(const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {"ferrodeck"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    auto app = std::make_unique<App>();
    app->parse_arguments(static_cast<int>(argv.size()), argv.data());
    return app;
}

std::string real_path(const std::string& path) {
    return std::filesystem::canonical(path).string();
}

TEST(AppArguments, each_known_key_is_stored) {
    const std::unique_ptr<App> app = parsed({"--left=/a", "--right=/b", "--active=right",
                                             "--geometry=1x2+3+4", "--action=Refresh,About"});
    EXPECT_EQ(app->m_arg_left, "/a");
    EXPECT_EQ(app->m_arg_right, "/b");
    EXPECT_EQ(app->m_arg_active, "right");
    EXPECT_EQ(app->m_arg_geometry, "1x2+3+4");
    EXPECT_EQ(app->m_arg_actions, "Refresh,About");
}

TEST(AppArguments, everything_else_is_ignored_without_a_word) {
    const std::unique_ptr<App> app =
        parsed({"/a", "--left", "-left=/a", "left=/a", "--Left=/a", "--left =/a", "--lef=/a",
                "--leftt=/a", "--=/a", "--", "-", ""});
    EXPECT_EQ(app->m_arg_left, "");
    EXPECT_EQ(app->m_arg_right, "");
    EXPECT_TRUE(Log::instance().recent().empty());
}

TEST(AppArguments, the_value_begins_behind_the_first_equals_sign) {
    EXPECT_EQ(parsed({"--left=/a=b=c"})->m_arg_left, "/a=b=c");
    EXPECT_EQ(parsed({"--active==right"})->m_arg_active, "=right");
    EXPECT_EQ(parsed({"--left="})->m_arg_left, "");
}

TEST(AppArguments, a_later_argument_of_the_same_key_wins) {
    EXPECT_EQ(parsed({"--left=/a", "--left=/b"})->m_arg_left, "/b");
    EXPECT_EQ(parsed({"--left=/a", "--left="})->m_arg_left, "");
}

TEST(AppArguments, folders_are_made_absolute) {
    const test_env::TempDir here;
    test_env::make_dirs(here / "sub/deep");
    ASSERT_EQ(chdir((here / "sub").c_str()), 0);
    const std::string sub = real_path(here / "sub");
    EXPECT_EQ(parsed({"--left=deep"})->m_arg_left, sub + "/deep");
    EXPECT_EQ(parsed({"--right=deep/"})->m_arg_right, sub + "/deep");
    EXPECT_EQ(parsed({"--left=."})->m_arg_left, sub);
    EXPECT_EQ(parsed({"--left=.."})->m_arg_left, su::parent_of(sub));
    EXPECT_EQ(parsed({"--left=./deep/.."})->m_arg_left, sub);
    EXPECT_EQ(parsed({"--left=not there"})->m_arg_left, sub + "/not there");
    EXPECT_EQ(parsed({"--left=/"})->m_arg_left, "/");
    EXPECT_EQ(parsed({"--left=/usr/"})->m_arg_left, "/usr");
    EXPECT_EQ(parsed({"--left=/usr/../usr/."})->m_arg_left, real_path("/usr"));
    // Two ways to write one folder are one folder to the comparison of the sides.
    EXPECT_EQ(parsed({"--left=/usr//share"})->m_arg_left, "/usr/share");
    EXPECT_EQ(parsed({"--left=//usr///share//"})->m_arg_left, "/usr/share");
    EXPECT_EQ(parsed({"--left=deep//not there"})->m_arg_left, sub + "/deep/not there");
    // The other values are no folders.
    EXPECT_EQ(parsed({"--active=right"})->m_arg_active, "right");
}

// A folder that was named through a link is shown by the name that the user gave.
TEST(AppArguments, a_link_is_not_resolved) {
    const test_env::TempDir here;
    test_env::make_dirs(here / "real");
    ASSERT_EQ(symlink("real", (here / "link").c_str()), 0);
    EXPECT_EQ(parsed({"--left=" + (here / "link")})->m_arg_left, here / "link");
}

TEST_F(AppTest, a_press_takes_the_focus_to_the_canvas) {
    start();
    gtk_window_set_focus(GTK_WINDOW(app().m_window), nullptr);
    ASSERT_FALSE(gtk_widget_is_focus(app().m_canvas));
    GdkEvent* event = gdk_event_new(GDK_BUTTON_PRESS);
    event->button.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(app().m_canvas)));
    event->button.button = 1;
    gtk_widget_event(app().m_canvas, event);
    gdk_event_free(event);
    EXPECT_TRUE(gtk_widget_is_focus(app().m_canvas));
}

TEST_F(AppTest, the_start_logs_five_lines_and_the_window) {
    start();
    std::vector<std::string> lines = log_lines();
    // Tools are looked for meanwhile.
    std::erase_if(lines, [](const std::string& line) {
        return line.starts_with("archiver") || line.starts_with("terminal: ");
    });
    ASSERT_GE(lines.size(), 5U);
    EXPECT_EQ(lines[0], "Ferrodeck " FERRODECK_VERSION " (build " FERRODECK_BUILD ") starting");
    EXPECT_EQ(lines[1],
              std::to_string(fsops::cpu_cores()) + " CPU cores available, copy streams: automatic");
    EXPECT_EQ(lines[2], std::string("package dev, uid ") + std::to_string(geteuid()) +
                            (geteuid() == 0 ? " (ROOT)" : ""));
    EXPECT_EQ(lines[3], "language en, theme light");
    EXPECT_EQ(lines[4],
              "state taken over from the calling instance: left " + left() + ", right " + right());
    EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(app().m_window)), "Ferrodeck");
}

TEST_F(AppTest, a_chosen_thread_count_is_logged) {
    test_env::make_dirs(test_env::root() + "/config/Ferrodeck");
    write_file(test_env::root() + "/config/Ferrodeck/settings.json", "{\"thread_count\": 3}");
    start();
    EXPECT_TRUE(
        logged(std::to_string(fsops::cpu_cores()) + " CPU cores available, copy streams: 3"));
}

TEST_F(AppTest, the_left_side_is_active_unless_told) {
    start({"--active=middle"});
    EXPECT_FALSE(app().m_active_right);
    EXPECT_EQ(pane(false).path(), left());
    EXPECT_EQ(pane(true).path(), right());
}

TEST_F(AppTest, active_right_makes_the_right_side_active) {
    start({"--active=right"});
    EXPECT_TRUE(app().m_active_right);
    EXPECT_EQ(pane(false).path(), left());
    EXPECT_EQ(pane(true).path(), right());
}

TEST_F(AppTest, active_right_alone_changes_the_active_side_and_nothing_else) {
    start({"--left=", "--right=", "--active=right"});
    EXPECT_TRUE(app().m_active_right);
    for (const bool side : {false, true})
        EXPECT_EQ(pane(side).path(), test_env::root() + "/home");
    EXPECT_EQ(app().m_arg_geometry, "");
    EXPECT_EQ(app().m_arg_actions, "");
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    int width = 0;
    int height = 0;
    gtk_window_get_size(GTK_WINDOW(app().m_window), &width, &height);
    EXPECT_EQ(width, 1100);
    EXPECT_EQ(height, 720);
}

TEST_F(AppTest, active_left_makes_the_left_side_active) {
    app().m_active_right = true;
    start({"--active=left"});
    EXPECT_FALSE(app().m_active_right);
}

TEST_F(AppTest, without_folders_both_sides_show_the_home_and_nothing_is_taken_over) {
    start({"--left=", "--right="});
    EXPECT_EQ(pane(false).path(), test_env::root() + "/home");
    EXPECT_EQ(pane(true).path(), test_env::root() + "/home");
    for (const std::string& line : log_lines())
        EXPECT_FALSE(su::starts_with(line, "state taken over")) << line;
}

TEST_F(AppTest, saved_folders_are_used_unless_the_command_line_names_others) {
    SettingsStore::instance().mutable_get().left_path = "/usr";
    SettingsStore::instance().mutable_get().right_path = "/usr";
    start({"--left=", "--right=" + right()});
    EXPECT_EQ(pane(false).path(), "/usr");
    EXPECT_EQ(pane(true).path(), right());
}

TEST_F(AppTest, a_folder_that_is_gone_shows_its_error_and_the_start_goes_on) {
    start({"--left=" + left() + "/gone"});
    EXPECT_EQ(pane().path(), left() + "/gone");
    EXPECT_EQ(pane().error(), "No such file or directory");
    EXPECT_EQ(count_hits(App::Hit::PaneRow), 1U);  // the right side's parent row
    shot("read-error");
}

TEST_F(AppTest, the_build_is_flashed_for_four_seconds) {
    const double before = App::now_seconds();
    start();
    EXPECT_EQ(app().m_flash_text, "Build " FERRODECK_BUILD);
    EXPECT_GE(app().m_flash_until, before + 4.0);
    EXPECT_LE(app().m_flash_until, App::now_seconds() + 4.0);
}

TEST_F(AppTest, sort_orders_come_from_the_settings_and_the_start_is_no_change) {
    SettingsStore::instance().mutable_get().right_sort = {dir_lister::SortKey::Size, false, true};
    SettingsStore::instance().mutable_get().left_sort = {dir_lister::SortKey::Kind, true, false};
    start();
    EXPECT_EQ(pane(false).sort_order().key, dir_lister::SortKey::Kind);
    EXPECT_FALSE(pane(false).sort_order().dirs_first);
    EXPECT_EQ(pane(true).sort_order().key, dir_lister::SortKey::Size);
    EXPECT_FALSE(pane(true).sort_order().ascending);
    EXPECT_EQ(app().m_saved_right_sort.key, dir_lister::SortKey::Size);
    EXPECT_EQ(app().m_saved_left, left());
    EXPECT_EQ(app().m_saved_right, right());
}

TEST_F(AppTest, a_changed_folder_or_order_is_saved_by_the_next_tick) {
    start();
    pane().navigate_to("/", true);
    app().tick();
    EXPECT_EQ(SettingsStore::instance().get().left_path, "/");
    EXPECT_EQ(app().m_saved_left, "/");
    pane(true).set_sort_order({dir_lister::SortKey::Modified, false, true});
    app().tick();
    EXPECT_EQ(SettingsStore::instance().get().right_sort.key, dir_lister::SortKey::Modified);
}

TEST_F(AppTest, look_and_words_of_the_settings_hold_from_the_first_frame) {
    SettingsStore::instance().mutable_get().theme = "dark";
    SettingsStore::instance().mutable_get().font_family = "monospace";
    SettingsStore::instance().mutable_get().language = "en";
    start();
    EXPECT_EQ(I18n::instance().language(), "en");
    EXPECT_TRUE(app().m_palette.dark);
    EXPECT_EQ(I18n::instance().ui_font_family(), "monospace");
    EXPECT_TRUE(logged("language en, theme dark"));
}

TEST_F(AppTest, each_part_of_the_state_is_saved_when_it_changes) {
    start();
    const Settings& s = SettingsStore::instance().get();
    pane(true).navigate_to("/", true);
    app().tick();
    EXPECT_EQ(s.right_path, "/");
    for (const bool side : {false, true}) {
        using dir_lister::SortKey;
        for (const dir_lister::SortOrder& order :
             {dir_lister::SortOrder{SortKey::Size, true, true},
              dir_lister::SortOrder{SortKey::Size, false, true},
              dir_lister::SortOrder{SortKey::Size, false, false}}) {
            pane(side).set_sort_order(order);
            app().tick();
            EXPECT_EQ(side ? s.right_sort : s.left_sort, order) << side;
        }
    }
}

// --- Window -----------------------------------------------------------------------------------

TEST_F(AppTest, without_a_geometry_the_window_is_centred_at_1100_by_720) {
    start();
    int width = 0;
    int height = 0;
    gtk_window_get_size(GTK_WINDOW(app().m_window), &width, &height);
    EXPECT_EQ(width, 1100);
    EXPECT_EQ(height, 720);
    bool centred = false;
    for (const std::string& line : log_lines())
        centred = centred || su::starts_with(line, "centred at ");
    EXPECT_TRUE(centred);
}

TEST_F(AppTest, a_geometry_of_the_command_line_is_used) {
    start({"--geometry=1210x800+30+40"});
    EXPECT_TRUE(logged("geometry taken over from the calling instance: 1210x800+30+40"));
    int width = 0;
    int height = 0;
    gtk_window_get_size(GTK_WINDOW(app().m_window), &width, &height);
    EXPECT_EQ(width, 1210);
    EXPECT_EQ(height, 800);
    int x = 0;
    int y = 0;
    gtk_window_get_position(GTK_WINDOW(app().m_window), &x, &y);
    EXPECT_EQ(x, 30);
    EXPECT_EQ(y, 40);
}

TEST_F(AppTest, a_geometry_below_the_minimum_comes_up_at_it) {
    start({"--geometry=300x200+10+10"});
    int width = 0;
    int height = 0;
    gtk_window_get_size(GTK_WINDOW(app().m_window), &width, &height);
    EXPECT_EQ(width, 1000);
    EXPECT_EQ(height, 700);
}

TEST_F(AppTest, a_position_that_no_monitor_shows_whole_is_centred) {
    start({"--geometry=1100x720+5000+10"});
    EXPECT_TRUE(logged("saved position 5000,10 (1100x720) fits no current monitor — centring"));
    bool centred = false;
    for (const std::string& line : log_lines())
        centred = centred || su::starts_with(line, "centred at ");
    EXPECT_TRUE(centred);
}

TEST_F(AppTest, a_negative_position_and_huge_numbers_fit_nowhere) {
    start({"--geometry=1100x720+-1+0"});
    EXPECT_TRUE(logged("saved position -1,0 (1100x720) fits no current monitor — centring"));
}

TEST_F(AppTest, a_position_fits_only_with_all_four_edges) {
    start();
    struct Case {
        int x, y;
        bool fits;
    };
    for (const Case& c : {Case{0, 0, true}, Case{10, 20, true}, Case{-1, 0, false},
                          Case{0, -1, false}, Case{5000, 0, false}, Case{0, 5000, false}}) {
        Log::instance().clear();
        app().move_to_fitting_monitor(c.x, c.y, 1000, 700);
        EXPECT_EQ(log_lines().empty(), c.fits) << c.x << " " << c.y;
    }
}

TEST_F(AppTest, a_centred_window_is_cut_to_its_monitor_and_no_smaller_than_the_minimum) {
    start();
    GdkRectangle area = {};
    gdk_monitor_get_geometry(gdk_display_get_monitor(gdk_display_get_default(), 0), &area);
    const auto text = [&area](int width, int height) {
        return "centred at " + std::to_string(area.x + (area.width - width) / 2) + "," +
               std::to_string(area.y + (area.height - height) / 2) + " (" + std::to_string(width) +
               "x" + std::to_string(height) + ") on monitor " + std::to_string(area.width) + "x" +
               std::to_string(area.height) + "+0+0";
    };
    if (area.width < 1000 || area.height < 700 || area.x != 0 || area.y != 0)
        GTEST_SKIP() << "the screen is too small for the smallest window";
    app().center_on_current_monitor(20000, 20000);
    EXPECT_TRUE(logged(text(area.width, area.height)));
    app().center_on_current_monitor(300, 200);
    EXPECT_TRUE(logged(text(1000, 700)));
    app().center_on_current_monitor(1001, 701);
    EXPECT_TRUE(logged(text(1001, 701)));
}

TEST_F(AppTest, the_canvas_has_the_keyboard) {
    start();
    EXPECT_EQ(gtk_window_get_focus(GTK_WINDOW(app().m_window)), app().m_canvas);
    EXPECT_TRUE(gtk_widget_get_can_focus(app().m_canvas));
}

TEST_F(AppTest, a_geometry_that_overflows_is_centred_too) {
    start({"--geometry=2147483647x2147483647+2147483647+2147483647"});
    EXPECT_TRUE(pump_until([this] { return !app().m_hits.empty(); }));
    int width = 0;
    gtk_window_get_size(GTK_WINDOW(app().m_window), &width, nullptr);
    EXPECT_LE(width, 20000);
}

TEST_F(AppTest, a_geometry_that_does_not_parse_is_ignored_in_silence) {
    start({"--geometry=1200x800"});
    int width = 0;
    gtk_window_get_size(GTK_WINDOW(app().m_window), &width, nullptr);
    EXPECT_EQ(width, 1100);
    for (const std::string& line : log_lines())
        EXPECT_FALSE(su::starts_with(line, "geometry taken over")) << line;
}

TEST_F(AppTest, the_window_cannot_be_made_smaller_than_1000_by_700) {
    start();
    gtk_window_resize(GTK_WINDOW(app().m_window), 400, 300);
    pump_until([] { return false; }, 0.3);
    int width = 0;
    int height = 0;
    gtk_window_get_size(GTK_WINDOW(app().m_window), &width, &height);
    EXPECT_GE(width, 1000);
    EXPECT_GE(height, 700);
}

// --- Theme ------------------------------------------------------------------------------------

TEST_F(AppTest, the_theme_setting_chooses_the_palette) {
    Settings& s = SettingsStore::instance().mutable_get();
    s.theme = "dark";
    app().apply_theme();
    EXPECT_TRUE(app().m_palette.dark);
    for (const char* theme : {"light", "auto", "nonsense"}) {
        s.theme = theme;
        app().apply_theme();
        EXPECT_FALSE(app().m_palette.dark) << theme;
    }
}

// --- Tick: frames -----------------------------------------------------------------------------

class AppFrames : public AppTest {
  protected:
    void SetUp() override {
        if (!test_env::use_own_display())
            GTEST_SKIP() << "Xvfb cannot be started";
        AppTest::SetUp();
    }
    // Starts, and waits until nothing asks for frames any more. Without a window manager the server
    // gives the focus to the window under the pointer.
    void start_quiet() {
        start();
        pump_until([] { return false; }, 0.2);
        focus(false);
        app().m_flash_until = 0;
        pump_until([] { return false; }, 0.3);
    }
    // Whether the loop paints a frame within half a second, which is five ticks.
    bool paints() {
        app().m_layout.width = -1;
        return pump_until([this] { return app().m_layout.width > 0; }, 0.5);
    }
    void focus(bool in) {
        GdkEvent* event = gdk_event_new(GDK_FOCUS_CHANGE);
        event->focus_change.window =
            GDK_WINDOW(g_object_ref(gtk_widget_get_window(app().m_window)));
        event->focus_change.in = in ? 1 : 0;
        gtk_widget_event(app().m_window, event);
        gdk_event_free(event);
    }
};

TEST_F(AppFrames, a_window_without_the_focus_and_without_news_is_not_painted) {
    start_quiet();
    EXPECT_FALSE(paints());
}

TEST_F(AppFrames, a_focused_window_is_painted_at_every_second_tick) {
    start_quiet();
    focus(true);
    ASSERT_TRUE(gtk_window_is_active(GTK_WINDOW(app().m_window)));
    EXPECT_TRUE(paints());
    g_source_remove(app().m_tick_id);  // some ticks by hand
    for (int i = 0; i < 6; ++i) {
        pump_until([] { return false; }, 0.1);
        app().m_layout.width = -1;
        app().tick();
        const bool painted_now = pump_until([this] { return app().m_layout.width > 0; }, 0.3);
        EXPECT_EQ(painted_now, app().m_idle_frame % 2 == 0) << i;
    }
    app().m_tick_id = g_timeout_add(
        100,
        [](gpointer data) -> gboolean {
            static_cast<App*>(data)->tick();
            return TRUE;
        },
        &app());
    app().open_overlay(App::Overlay::Message, "t");
    EXPECT_TRUE(paints());  // once, for the dialogue
    EXPECT_FALSE(paints());
    app().close_overlay();
    focus(false);
    pump_until([] { return false; }, 0.3);
    EXPECT_FALSE(paints());
}

TEST_F(AppFrames, flashes_and_the_held_band_are_kept_in_motion) {
    start_quiet();
    for (double App::*until :
         {&App::m_flash_until, &App::m_reload_flash_until, &App::m_progress_hold_until}) {
        app().*until = App::now_seconds() + 100;
        EXPECT_TRUE(paints());
        EXPECT_TRUE(paints());
        app().*until = 0;
        pump_until([] { return false; }, 0.2);
        EXPECT_FALSE(paints());
    }
    // The frame at which a flash is over is painted too, and ends it.
    app().m_flash_until = App::now_seconds() + 0.1;
    ASSERT_TRUE(pump_until([this] { return app().m_flash_until == 0; }, 2));
    app().m_reload_flash_until = App::now_seconds() + 0.1;
    ASSERT_TRUE(pump_until([this] { return app().m_reload_flash_until == 0; }, 2));
}

TEST_F(AppFrames, the_end_of_the_held_band_is_painted) {
    start_quiet();
    app().m_progress_hold_until = App::now_seconds() + 0.25;
    ASSERT_TRUE(pump_until([this] { return app().m_layout.progress_h > 0; }, 2));
    ASSERT_TRUE(pump_until([this] { return app().m_progress_hold_until == 0; }, 2));
    EXPECT_TRUE(pump_until([this] { return app().m_layout.progress_h == 0; }, 1));
}

TEST_F(AppFrames, what_an_input_changes_is_painted) {
    write_file(left() + "/a", "x");
    start_quiet();
    const auto press = [this](guint keyval, guint state) {
        GdkEventKey event = {};
        event.keyval = keyval;
        event.state = state;
        app().handle_key(&event);
        return paints();
    };
    EXPECT_TRUE(press(GDK_KEY_Down, 0));
    EXPECT_TRUE(press(GDK_KEY_space, 0));
    EXPECT_TRUE(press(GDK_KEY_Escape, 0));
    EXPECT_TRUE(press(GDK_KEY_Tab, 0));
    EXPECT_TRUE(press(GDK_KEY_h, GDK_CONTROL_MASK));
    EXPECT_FALSE(press(GDK_KEY_F9, 0));
    app().perform(Action::None, 0);
    EXPECT_TRUE(paints());
    app().perform(Action::SelectAll, 0);
    EXPECT_TRUE(paints());
    const App::HitRect row = hit(App::Hit::PaneRow, 1, 0);
    app().handle_click(row.x + 20, row.y + 5, 1, 0, 1);
    EXPECT_TRUE(paints());
    app().handle_release();
}

TEST_F(AppFrames, running_work_is_painted_all_the_time) {
    start_quiet();
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
        while (reporter.keep_going())
            g_usleep(1000);
    }));
    app().m_bgtask_was_running = true;
    EXPECT_TRUE(paints());
    EXPECT_TRUE(paints());
    BgTask::instance().cancel();
    ASSERT_TRUE(settle());
}

// --- Tick: transfers --------------------------------------------------------------------------

TEST_F(AppTest, the_end_of_a_copy_shows_the_result_and_reloads_both_sides) {
    write_file(left() + "/a.txt", "12345");
    write_file(left() + "/b.txt", "123");
    start();
    app().perform(Action::SelectAll, 0);
    app().perform(Action::CopyToOther, 0);
    EXPECT_TRUE(app().m_transfer_was_running);
    ASSERT_TRUE(settle());
    const App::LastResult& result = app().m_result;
    EXPECT_TRUE(result.valid);
    EXPECT_EQ(result.title, "Copied");
    EXPECT_EQ(result.files, 2);
    EXPECT_EQ(result.bytes, 8);
    EXPECT_GT(result.seconds, 0);
    EXPECT_LE(result.seconds, copy_engine::instance().snapshot().elapsed_seconds);
    EXPECT_EQ(result.failures, 0U);
    EXPECT_FALSE(result.cancelled);
    EXPECT_FALSE(result.disk_full);
    EXPECT_EQ(names(true), (std::vector<std::string>{"..", "a.txt", "b.txt"}));
    EXPECT_GT(app().m_progress_hold_until, App::now_seconds() + 1);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_TRUE(copy_engine::instance().is_reaped());
    frame();
    EXPECT_EQ(app().m_layout.progress_h, 76);
    shot("result");
}

TEST_F(AppTest, a_full_target_is_part_of_the_result) {
    // Before the first thread: the mount lives in a namespace of this process.
    const mounts_fixture::Tmpfs small("size=256k");
    REQUIRE_MOUNT(small);
    write_file(left() + "/large", std::string(2'000'000, 'x'));
    start({"--right=" + small.path()});
    put_cursor_on("large");
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(app().m_result.disk_full);
    EXPECT_EQ(app().m_result.files, 0);
    frame();
    shot("result-full");
}

TEST_F(AppTest, a_move_is_called_moved) {
    write_file(left() + "/a.txt", "12345");
    start();
    put_cursor_on("a.txt");
    app().perform(Action::MoveToOther, 0);
    ASSERT_TRUE(settle());
    EXPECT_EQ(app().m_result.title, "Moved");
    EXPECT_EQ(names(false), (std::vector<std::string>{".."}));
    EXPECT_EQ(names(true), (std::vector<std::string>{"..", "a.txt"}));
}

TEST_F(AppTest, the_held_band_shrinks_to_the_result_line_and_stays_until_dismissed) {
    write_file(left() + "/a.txt", "1");
    start();
    put_cursor_on("a.txt");
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(settle());
    app().m_progress_hold_until = App::now_seconds() + 0.05;
    ASSERT_TRUE(pump_until([this] { return app().m_progress_hold_until == 0; }));
    frame();
    EXPECT_EQ(app().m_layout.progress_h, 34);
    EXPECT_TRUE(app().m_result.valid);
    shot("result-line");
    click(hit(App::Hit::ResultDismiss));
    EXPECT_FALSE(app().m_result.valid);
    EXPECT_EQ(app().m_layout.progress_h, 0);
}

TEST_F(AppTest, root_is_offered_no_retry_as_root) {
    if (geteuid() != 0)
        GTEST_SKIP() << "not root";
    faultfs::FaultFs fs;
    REQUIRE_MOUNT(fs);
    test_env::write_file(fs.backing() + "/a", "x");
    fs.set(faultfs::fail("open", EACCES, 1, -1, "a"));
    start({"--left=" + fs.path()});
    put_cursor_on("a");
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(settle());
    frame();
    ASSERT_EQ(app().m_overlay, App::Overlay::Errors);
    const copy_engine::Progress progress = copy_engine::instance().snapshot();
    ASSERT_EQ(progress.failures.size(), 1U);
    ASSERT_EQ(progress.failures[0].code, EACCES);
    ASSERT_EQ(progress.failures[0].target, right() + "/a");
    std::vector<int> choices;
    for (const App::HitRect& rect : app().m_hits)
        if (rect.what == App::Hit::Overlay)
            choices.push_back(rect.param);
    EXPECT_EQ(choices, std::vector<int>{static_cast<int>(Action::DismissErrors)});
}

TEST_F(AppTest, failures_open_the_errors_dialogue) {
    ASSERT_EQ(mkfifo((left() + "/pipe").c_str(), 0600), 0);
    write_file(left() + "/a.txt", "1");
    start();
    app().perform(Action::SelectAll, 0);
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(settle());
    EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
    EXPECT_EQ(app().m_overlay_title, "Errors");
    EXPECT_EQ(app().m_result.failures, 1U);
    frame();
    shot("errors");
    key(GDK_KEY_Escape);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_TRUE(app().m_result.valid);
    shot("result-failed");
    // The result line leads back to them.
    click(hit(App::Hit::ErrorBanner));
    EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
}

// A quick hand may give the next command before the tick has seen the end of the run.
class AppEnds : public AppTest {
  protected:
    void fail_and_go_on_with(Action next) {
        ASSERT_EQ(mkfifo((left() + "/pipe").c_str(), 0600), 0);
        write_file(left() + "/a.txt", "1");
        start();
        g_source_remove(app().m_tick_id);  // the tick comes by hand here
        app().m_tick_id = 0;
        put_cursor_on("pipe");
        app().perform(Action::CopyToOther, 0);
        while (App::busy())
            g_usleep(1000);
        put_cursor_on("a.txt");
        app().perform(next, 0);
        EXPECT_FALSE(App::busy());
        EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
        EXPECT_EQ(app().m_result.failures, 1U);
        // Seen once, and not again by the tick.
        app().close_overlay();
        app().tick();
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
        // From here on commands are taken again.
        app().perform(next, 0);
        EXPECT_TRUE(app().m_transfer_was_running);
        while (App::busy())
            g_usleep(1000);
        app().tick();
        EXPECT_EQ(app().m_result.files, 1);
        EXPECT_EQ(app().m_result.failures, 0U);
    }
};

TEST_F(AppEnds, failures_are_not_lost_to_a_copy_that_follows_at_once) {
    fail_and_go_on_with(Action::CopyToOther);
    EXPECT_TRUE(test_env::exists(right() + "/a.txt"));
}

TEST_F(AppEnds, failures_are_not_lost_to_a_duplicate_that_follows_at_once) {
    fail_and_go_on_with(Action::Clone);
    EXPECT_TRUE(test_env::exists(left() + "/a.1.txt"));
}

TEST_F(AppTest, failures_do_not_replace_an_open_dialogue) {
    ASSERT_EQ(mkfifo((left() + "/pipe").c_str(), 0600), 0);
    start();
    put_cursor_on("pipe");
    app().perform(Action::CopyToOther, 0);
    app().show_message("open", "already");
    ASSERT_TRUE(settle());
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_EQ(app().m_result.failures, 1U);
}

TEST_F(AppTest, work_makes_an_older_result_disappear) {
    write_file(left() + "/a.txt", "1");
    write_file(right() + "/a.txt", "2");
    start();
    app().m_result.valid = true;
    put_cursor_on("a.txt");
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    EXPECT_FALSE(app().m_result.valid);
    app().perform(Action::ConflictSkip, 0);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(app().m_result.valid);
    EXPECT_EQ(app().m_result.files, 0);
}

TEST_F(AppTest, a_cancelled_run_says_so) {
    write_file(left() + "/a.txt", "1");
    write_file(right() + "/a.txt", "2");
    start();
    put_cursor_on("a.txt");
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    app().perform(Action::ConflictCancel, 0);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(app().m_result.cancelled);
    EXPECT_EQ(test_env::read_file(right() + "/a.txt"), "2");
}

TEST_F(AppTest, a_conflict_replaces_an_open_dialogue_and_leaves_none_behind) {
    write_file(left() + "/a.txt", "1");
    write_file(right() + "/a.txt", "2");
    start();
    put_cursor_on("a.txt");
    app().m_conflict_apply_all = true;
    app().perform(Action::CopyToOther, 0);
    app().show_message("open", "already");
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    EXPECT_EQ(app().m_overlay_title, "");
    EXPECT_FALSE(app().m_conflict_apply_all);
    frame();
    shot("conflict");
    app().perform(Action::ConflictOverwrite, 0);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    ASSERT_TRUE(settle());
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(test_env::read_file(right() + "/a.txt"), "1");
}

// The engine may lose its question, for instance by a cancel.
TEST_F(AppTest, a_question_that_is_gone_closes_the_dialogue) {
    write_file(left() + "/a.txt", "1");
    write_file(right() + "/a.txt", "2");
    start();
    put_cursor_on("a.txt");
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    copy_engine::instance().cancel();
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::None; }));
    ASSERT_TRUE(settle());
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

// A dialogue that is closed without an answer would leave a worker waiting unseen.
TEST_F(AppTest, a_pending_question_comes_back_until_it_is_answered) {
    write_file(left() + "/a.txt", "1");
    write_file(right() + "/a.txt", "2");
    start();
    put_cursor_on("a.txt");
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    app().perform(Action::OverlayCancel, 0);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    app().perform(Action::ConflictSkip, 0);
    ASSERT_TRUE(settle());
}

// A server that is gone must not look like a program that hangs.
TEST_F(AppTest, a_stalled_worker_is_named_while_the_window_goes_on) {
    // Before the first thread: the mount lives in a namespace of this process.
    faultfs::FaultFs fs;
    if (!fs.ok())
        GTEST_SKIP() << fs.reason();
    write_file(fs.backing() + "/slow.bin", std::string(100000, 'x'));
    fs.set(faultfs::stall("read", 1, 1, "slow.bin"));
    start({"--left=" + fs.path()});
    put_cursor_on("slow.bin");
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(fs.wait_stalled(1));
    EXPECT_TRUE(app().m_flash_text.find("slow.bin") == std::string::npos);
    copy_engine::advance_clock_for_tests(16);
    ASSERT_TRUE(pump_until([this] {
        return app().m_flash_text == "Waiting for slow.bin — the drive is not responding";
    }));
    frame();
    shot("stalled");
    EXPECT_EQ(app().m_frame_copy.stalled_path, fs.path() + "/slow.bin");
    fs.release();
    ASSERT_TRUE(settle());
    EXPECT_EQ(app().m_result.failures, 0U);
    EXPECT_EQ(test_env::read_file(right() + "/slow.bin"), std::string(100000, 'x'));
}

// --- Tick: background tasks -------------------------------------------------------------------

TEST_F(AppTest, a_task_fills_the_result_by_its_kind) {
    struct Case {
        BgTask::Kind kind;
        const char* title;
    };
    start();
    for (const Case& c :
         {Case{BgTask::Kind::Pack, "Packed"}, Case{BgTask::Kind::Unpack, "Unpacked"},
          Case{BgTask::Kind::Delete, "Deleted"}, Case{BgTask::Kind::None, "own"}}) {
        ASSERT_TRUE(BgTask::instance().start(c.kind, "own", [](BgTask::Reporter& reporter) {
            reporter.set_total(4);
            reporter.advance(3);
            reporter.set_result("three");
        }));
        app().m_bgtask_was_running = true;
        ASSERT_TRUE(settle());
        EXPECT_TRUE(app().m_result.valid);
        EXPECT_EQ(app().m_result.title, c.title);
        EXPECT_EQ(app().m_result.files, 3);
        EXPECT_EQ(app().m_result.bytes, 0);
        EXPECT_EQ(app().m_result.detail, "three");
        EXPECT_EQ(app().m_result.failures, 0U);
        EXPECT_EQ(app().m_overlay, App::Overlay::None);
        EXPECT_FALSE(BgTask::instance().snapshot().finished);  // the thread has been joined
    }
}

TEST_F(AppTest, failures_of_a_task_open_the_errors_under_its_title) {
    start();
    ASSERT_TRUE(
        BgTask::instance().start(BgTask::Kind::Delete, "Deleting",
                                 [](BgTask::Reporter& reporter) { reporter.fail("x: no"); }));
    app().m_bgtask_was_running = true;
    ASSERT_TRUE(settle());
    EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
    EXPECT_EQ(app().m_overlay_title, "Deleting");
    EXPECT_EQ(app().m_result.failures, 1U);
}

TEST_F(AppTest, of_a_transfer_and_a_task_that_end_together_the_task_is_shown) {
    write_file(left() + "/a.txt", "1");
    start();
    g_source_remove(app().m_tick_id);  // the tick comes by hand here
    app().m_tick_id = 0;
    put_cursor_on("a.txt");
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter&) {}));
    app().m_bgtask_was_running = true;
    while (App::busy())
        g_usleep(1000);
    app().tick();
    EXPECT_EQ(app().m_result.title, "Packed");
    EXPECT_EQ(names(true), (std::vector<std::string>{"..", "a.txt"}));
}

TEST_F(AppTest, a_cancelled_task_that_does_not_look_is_shown_at_work_until_it_ends) {
    start();
    std::atomic<bool> go = false;
    ASSERT_TRUE(
        BgTask::instance().start(BgTask::Kind::Delete, "Deleting", [&go](BgTask::Reporter&) {
            while (!go)
                g_usleep(1000);
        }));
    app().m_bgtask_was_running = true;
    ASSERT_TRUE(pump_until([this] { return app().m_layout.progress_h > 0; }));
    frame();
    click(hit(App::Hit::ProgressCancel));
    EXPECT_TRUE(BgTask::instance().snapshot().cancelled);
    for (int tick = 0; tick < 3; ++tick) {
        app().tick();
        frame();
        EXPECT_TRUE(App::busy());
        EXPECT_GT(app().m_layout.progress_h, 0);
        EXPECT_EQ(count_hits(App::Hit::ProgressCancel), 1U);
        EXPECT_FALSE(app().m_result.valid);
    }
    go = true;
    ASSERT_TRUE(settle());
    EXPECT_TRUE(app().m_result.valid);
}

TEST_F(AppTest, a_task_in_work_is_painted_and_can_be_cancelled_by_its_button) {
    start();
    ASSERT_TRUE(
        BgTask::instance().start(BgTask::Kind::Delete, "Deleting", [](BgTask::Reporter& reporter) {
            reporter.set_total(100);
            reporter.advance(42);
            reporter.set_detail("/some/where");
            while (reporter.keep_going())
                g_usleep(1000);
        }));
    app().m_bgtask_was_running = true;
    ASSERT_TRUE(pump_until([] { return BgTask::instance().snapshot().done == 42; }));
    frame();
    EXPECT_EQ(app().m_layout.progress_h, 76);
    shot("task");
    click(hit(App::Hit::ProgressCancel));
    ASSERT_TRUE(settle());
    EXPECT_TRUE(app().m_result.cancelled);
}

// --- End --------------------------------------------------------------------------------------

TEST_F(AppTest, closing_the_window_cancels_what_runs) {
    write_file(left() + "/a.txt", "1");
    write_file(right() + "/a.txt", "2");
    start();
    put_cursor_on("a.txt");
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    pane(true).navigate_to("/", true);
    gtk_window_close(GTK_WINDOW(app().m_window));
    ASSERT_TRUE(pump_until([this] { return app().m_window == nullptr; }));
    EXPECT_EQ(app().m_canvas, nullptr);
    EXPECT_EQ(SettingsStore::instance().get().right_path, "/");
    ASSERT_TRUE(pump_until([] { return !App::busy(); }));
    EXPECT_TRUE(copy_engine::instance().snapshot().cancelled);
    finish();
    EXPECT_EQ(test_env::read_file(right() + "/a.txt"), "2");
}

TEST_F(AppTest, the_end_of_the_loop_saves_the_state_and_ends_running_work) {
    write_file(left() + "/a.txt", "1");
    write_file(right() + "/a.txt", "2");
    start();
    put_cursor_on("a.txt");
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    finish();
    EXPECT_FALSE(App::busy());
    EXPECT_EQ(app().m_window, nullptr);
    EXPECT_EQ(SettingsStore::instance().get().left_path, left());
}

// A worker that sits in the kernel cannot be joined; waiting for it would keep a dead window.
TEST_F(AppTest, a_stuck_worker_is_left_behind_after_two_seconds) {
    // A fresh process runs the statement, so no thread has to survive a fork.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static std::atomic<bool> never{false};
            start();
            if (!BgTask::instance().start(BgTask::Kind::Delete, "deaf", [](BgTask::Reporter&) {
                    while (!never)
                        g_usleep(1000);
                }))
                _exit(3);
            app().finish();
            _exit(4);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(AppTest, a_redraw_without_a_window_does_nothing) {
    app().request_redraw();
    app().flash_status("x");
    app().flash_panes();
    app().refresh_both();
}

}  // namespace
