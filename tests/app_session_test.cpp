// What one run leaves for the next: settings, folders, the window's place, bookmarks and recent
// folders, as the window writes and reads them.

#include "app_fixture.h"

#include "app_display.h"
#include "app_program.h"
#include "bookmarks.h"
#include "fresh_process.h"
#include "i18n.h"
#include "logger.h"
#include "mutate.h"
#include "paths.h"
#include "recent.h"
#include "sanitized.h"
#include "settings.h"
#include "strutil.h"
#include "window_manager.h"

#include <algorithm>
#include <csignal>
#include <memory>
#include <random>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using test_env::exists;
using test_env::lstat_of;
using test_env::make_dirs;
using test_env::Program;
using test_env::read_file;
using test_env::run;
using test_env::write_file;

class AppSession : public AppTest {
  protected:
    static std::string settings_text() { return read_file(config_file("settings.json")); }
    static bool stored(const std::string& line) {
        return exists(config_file("settings.json")) &&
               settings_text().find("  " + line) != std::string::npos;
    }
    // As a restart by the user: no folders are named.
    void start_plain(std::vector<std::string> more = {}) {
        more.insert(more.begin(), {"--left=", "--right="});
        start(more);
    }
    // Lets the window's events and some ticks pass.
    void pass(double seconds = 0.3) {
        pump_until([] { return false; }, seconds);
    }
    bool logged_prefix(const std::string& prefix) const {
        const std::vector<std::string> lines = log_lines();
        return std::any_of(lines.begin(), lines.end(), [&prefix](const std::string& line) {
            return su::starts_with(line, prefix);
        });
    }
};

// --- The start --------------------------------------------------------------------------------

TEST_F(AppSession, the_start_reads_the_file) {
    write_file(left() + "/.hidden", "x");
    write_file(left() + "/b", "22");
    write_file(left() + "/a", "4444");
    write_file(config_file("settings.json"),
               "{\n  \"theme\": \"dark\",\n  \"thread_count\": 3,\n  \"show_hidden\": false,\n"
               "  \"left_path\": \"" +
                   left() + "\",\n  \"right_path\": \"" + right() +
                   "\",\n"
                   "  \"left_sort_key\": \"size\",\n  \"right_sort_key\": \"created\",\n"
                   "  \"right_sort_asc\": false,\n  \"font_family\": \"DejaVu Serif\",\n"
                   "  \"font_scale\": 130\n}\n");
    start_plain();
    EXPECT_TRUE(logged("language en, theme dark"));
    EXPECT_TRUE(app().m_palette.dark);
    EXPECT_TRUE(log_lines().at(1).ends_with("copy streams: 3")) << log_lines().at(1);
    EXPECT_EQ(pane(false).path(), left());
    EXPECT_EQ(pane(true).path(), right());
    EXPECT_EQ(names(false), (std::vector<std::string>{"..", "b", "a"}));  // by size
    EXPECT_EQ(pane(true).sort_order().key, dir_lister::SortKey::Created);
    EXPECT_FALSE(pane(true).sort_order().ascending);
    EXPECT_EQ(I18n::instance().ui_font_family(), "DejaVu Serif");
    EXPECT_DOUBLE_EQ(app().m_ui_scale, 1.3);
    // What the program took over from a caller is told; what it found in its file is not.
    EXPECT_FALSE(logged_prefix("state taken over"));
}

TEST_F(AppSession, folders_of_the_command_line_beat_the_saved_ones) {
    write_file(config_file("settings.json"), "\"left_path\": \"/usr\"\n\"right_path\": \"/usr\"");
    start({"--right="});
    EXPECT_EQ(pane(false).path(), left());
    EXPECT_EQ(pane(true).path(), "/usr");
}

TEST_F(AppSession, a_saved_folder_that_is_gone_is_the_home_instead) {
    write_file(config_file("settings.json"), "\"left_path\": \"" + left() + "/gone\"");
    start_plain();
    EXPECT_EQ(pane(false).path(), test_env::root() + "/home");
}

TEST_F(AppSession, the_start_itself_is_no_change_and_writes_nothing) {
    start();
    pass();
    EXPECT_FALSE(exists(config_file("settings.json")));
    EXPECT_FALSE(exists(config_file("recent.txt")));
}

// --- Saving -----------------------------------------------------------------------------------

TEST_F(AppSession, a_changed_folder_is_on_disk_after_the_next_tick) {
    make_dirs(left() + "/sub");
    start();
    pane(false).navigate_to(left() + "/sub", true);
    app().tick();
    EXPECT_TRUE(stored("\"left_path\": \"" + left() + "/sub\","));
    EXPECT_TRUE(stored("\"right_path\": \"" + right() + "\","));
    EXPECT_EQ(read_file(config_file("recent.txt")), left() + "/sub\n");
    // Without a change nothing is written.
    const ino_t inode = lstat_of(config_file("settings.json")).st_ino;
    app().tick();
    EXPECT_EQ(lstat_of(config_file("settings.json")).st_ino, inode);
}

TEST_F(AppSession, a_changed_order_is_on_disk_after_the_next_tick_and_no_recent_folder) {
    start();
    pane(true).set_sort_order({dir_lister::SortKey::Group, false, true});
    app().tick();
    EXPECT_TRUE(stored("\"right_sort_key\": \"group\","));
    EXPECT_TRUE(stored("\"right_sort_asc\": false,"));
    EXPECT_FALSE(exists(config_file("recent.txt")));
}

TEST_F(AppSession, both_sides_feed_the_recent_folders) {
    REQUIRE_FRESH_PROCESS();
    make_dirs(left() + "/l");
    make_dirs(right() + "/r");
    start();
    pane(false).navigate_to(left() + "/l", true);
    pane(true).navigate_to(right() + "/r", true);
    app().tick();
    EXPECT_EQ(recent::all(), (std::vector<std::string>{right() + "/r", left() + "/l"}));
    // A folder that cannot be listed counts too: the user has gone there.
    pane(false).navigate_to(left() + "/not there", true);
    app().tick();
    EXPECT_EQ(read_file(config_file("recent.txt")),
              left() + "/not there\n" + right() + "/r\n" + left() + "/l\n");
}

TEST_F(AppSession, each_switch_is_on_disk_at_once) {
    start();
    struct Case {
        Action action;
        const char* line;
    };
    constexpr Case kCases[] = {
        {Action::ToggleHidden, "\"show_hidden\": false,"},
        {Action::SettingsToggleHidden, "\"show_hidden\": true,"},
        {Action::ToggleColSize, "\"show_size\": false,"},
        {Action::ToggleColType, "\"show_type\": true,"},
        {Action::ToggleColModified, "\"show_modified\": false,"},
        {Action::ToggleColCreated, "\"show_created\": true,"},
        {Action::ToggleColPermissions, "\"show_permissions\": true,"},
        {Action::ToggleColOwner, "\"show_owner\": true,"},
        {Action::ToggleColGroup, "\"show_group\": true,"},
        {Action::SettingsThreadsPlus, "\"thread_count\": 1,"},
        {Action::SettingsThreadsMinus, "\"thread_count\": 0,"},
        {Action::SettingsTheme, "\"theme\": \"dark\","},
        {Action::SettingsConflict, "\"default_conflict\": \"overwrite\","},
        {Action::SettingsToggleTrash, "\"delete_to_trash\": false,"},
        {Action::SettingsToggleConfirm, "\"confirm_delete\": false,"},
        {Action::SettingsScalePlus, "\"font_scale\": 110,"},
        {Action::SettingsScaleMinus, "\"font_scale\": 100,"},
    };
    for (const Case& row : kCases) {
        app().perform(row.action, 0);
        EXPECT_TRUE(stored(row.line)) << action_name(row.action);
    }
    app().perform(Action::SettingsReset, 0);
    EXPECT_TRUE(stored("\"theme\": \"light\","));
    EXPECT_TRUE(stored("\"show_owner\": false,"));
}

TEST_F(AppSession, the_languages_go_round_in_both_directions) {
    start();
    std::vector<std::string> codes = {"auto"};
    for (const auto& language : I18n::available())
        codes.push_back(language.code);
    const std::string& setting = SettingsStore::instance().get().language;
    for (size_t i = 1; i <= codes.size(); ++i) {
        app().perform(Action::SettingsLanguageNext, 0);
        EXPECT_EQ(setting, codes[i % codes.size()]);
        EXPECT_EQ(I18n::instance().language(), setting);
        EXPECT_TRUE(stored("\"language\": \"" + setting + "\","));
    }
    for (size_t i = codes.size(); i-- > 0;) {
        app().perform(Action::SettingsLanguagePrev, 0);
        EXPECT_EQ(setting, codes[i]);
    }
    // What is not in the list counts as its first.
    SettingsStore::instance().mutable_get().language = "gone";
    app().perform(Action::SettingsLanguageNext, 0);
    EXPECT_EQ(setting, codes[1]);
}

TEST_F(AppSession, another_language_asks_for_a_frame_and_shows_in_it) {
    if (!test_env::use_own_display())
        GTEST_SKIP() << "Xvfb cannot be started";
    write_file(left() + "/big", test_env::pattern(3'000'000));
    start();
    SettingsStore::instance().mutable_get().language = "en";
    I18n::instance().set_language("en");
    // A window with a dialogue does not repaint by the clock.
    app().m_flash_until = 0;
    app().show_message("a", "dialogue");
    pass(0.5);
    frame();
    const auto row = [this] {
        const App::HitRect rect = hit(App::Hit::PaneRow, 1, 0);
        std::string pixels;
        for (int y = static_cast<int>(rect.y); y < static_cast<int>(rect.y + rect.h); ++y)
            for (int x = static_cast<int>(rect.x); x < static_cast<int>(rect.x + rect.w); ++x)
                pixels += pixel(x, y);
        return pixels;
    };
    const std::string english = row();
    frame();
    ASSERT_EQ(row(), english);
    app().m_hits.clear();
    ASSERT_FALSE(pump_until([this] { return !app().m_hits.empty(); }, 0.4));
    app().perform(Action::SettingsLanguageNext, 0);
    EXPECT_TRUE(pump_until([this] { return !app().m_hits.empty(); }, 5));
    frame();
    EXPECT_EQ(I18n::instance().effective_language(), "es");
    EXPECT_NE(row(), english);  // "2.86 MB" has become "2,86 MB"
}

TEST_F(AppSession, closing_the_window_and_the_end_save_the_state) {
    make_dirs(left() + "/sub");
    start();
    pane(false).navigate_to(left() + "/sub", true);
    app().on_delete();
    EXPECT_TRUE(stored("\"left_path\": \"" + left() + "/sub\","));
    pane(false).navigate_to(left(), true);
    finish();
    EXPECT_TRUE(stored("\"left_path\": \"" + left() + "\","));
}

TEST_F(AppSession, all_of_the_self_test_leaves_settings_and_bookmarks_as_they_were) {
    REQUIRE_FRESH_PROCESS();
    // The trash is where the script stands by the time it comes to the bookmarks.
    const std::string marked = "My own name\t" + trash_dir() + "\nother\t/usr\n";
    write_file(config_file("bookmarks.txt"), marked);
    start();
    Settings& s = SettingsStore::instance().mutable_get();
    s.theme = "dark";
    s.show_owner = true;
    s.col_w_size = 99;
    s.language = I18n::available().front().code;
    app().save_state();
    const std::string before = settings_text();
    app().m_arg_actions = "ALL";
    app().run_self_test();
    // From the file, since clearing the log in memory is among the actions.
    EXPECT_NE(read_file(Log::instance().file_path()).find("bookmark removed: " + trash_dir()),
              std::string::npos);
    EXPECT_EQ(settings_text(), before);
    EXPECT_EQ(read_file(config_file("bookmarks.txt")), marked);
    EXPECT_EQ(I18n::instance().language(), s.language);
    finish();
    EXPECT_EQ(settings_text(), before);
}

// --- Bookmarks --------------------------------------------------------------------------------

TEST_F(AppSession, a_bookmark_is_set_and_taken_away_by_the_same_command) {
    REQUIRE_FRESH_PROCESS();
    start();
    key(GDK_KEY_d, GDK_CONTROL_MASK);
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_EQ(app().m_overlay_title, "Bookmarks");
    EXPECT_EQ(app().m_overlay_text, "This folder is now bookmarked.");
    EXPECT_FALSE(app().m_overlay_is_error);
    EXPECT_EQ(read_file(config_file("bookmarks.txt")),
              su::basename_of(left()) + "\t" + left() + "\n");
    app().close_overlay();
    app().perform(Action::BookmarkAdd, 0);
    EXPECT_EQ(app().m_overlay_text, "The bookmark was removed.");
    EXPECT_EQ(read_file(config_file("bookmarks.txt")), "");
}

TEST_F(AppSession, removing_a_bookmark_means_the_pending_one_or_the_active_folder) {
    REQUIRE_FRESH_PROCESS();
    start();
    bookmarks::add(left());
    bookmarks::add("/usr");
    app().m_pending_bookmark = "/usr";
    app().open_overlay(App::Overlay::Message, "");
    app().perform(Action::BookmarkRemove, 0);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);  // the dialogue it came from tells enough
    EXPECT_EQ(app().m_pending_bookmark, "");
    EXPECT_FALSE(bookmarks::contains("/usr"));
    app().perform(Action::BookmarkRemove, 0);
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_EQ(app().m_overlay_text, "The bookmark was removed.");
    EXPECT_FALSE(bookmarks::contains(left()));
    app().perform(Action::BookmarkRemove, 0);
    EXPECT_TRUE(logged("bookmark remove failed: " + left()));
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

TEST_F(AppSession, a_bookmark_opens_on_the_side_chosen) {
    start();
    app().m_pending_bookmark = "/usr";
    app().open_overlay(App::Overlay::BookmarkSide, "usr");
    app().perform(Action::BookmarkOpenRight, 0);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    EXPECT_EQ(pane(true).path(), "/usr");
    EXPECT_TRUE(app().m_active_right);
    EXPECT_TRUE(logged("bookmark → /usr (right pane)"));
    EXPECT_EQ(app().m_pending_bookmark, "");
    app().m_pending_bookmark = "/";
    app().perform(Action::BookmarkOpenLeft, 0);
    EXPECT_EQ(pane(false).path(), "/");
    EXPECT_FALSE(app().m_active_right);
    EXPECT_TRUE(logged("bookmark → / (left pane)"));
    // Without one nothing happens.
    app().perform(Action::BookmarkOpenRight, 0);
    EXPECT_EQ(pane(true).path(), "/usr");
    EXPECT_FALSE(app().m_active_right);
}

TEST_F(AppSession, a_bookmark_that_cannot_be_listed_is_an_error_and_the_side_stays) {
    start();
    app().m_pending_bookmark = left() + "/gone";
    app().perform(Action::BookmarkOpenLeft, 0);
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_TRUE(app().m_overlay_is_error);
    EXPECT_EQ(app().m_overlay_text, left() + "/gone: No such file or directory");
    EXPECT_EQ(pane(false).path(), left());
}

// --- The window's place -----------------------------------------------------------------------

struct Frame {
    int x = 0, y = 0, width = 0, height = 0;
};

Frame frame_of(App& app) {
    Frame f;
    gtk_window_get_position(GTK_WINDOW(app.m_window), &f.x, &f.y);
    gtk_window_get_size(GTK_WINDOW(app.m_window), &f.width, &f.height);
    return f;
}

TEST_F(AppSession, a_saved_place_is_taken_again) {
    WindowManager::instance().save(70, 80, 1234, 777, false);
    start();
    const Frame f = frame_of(app());
    EXPECT_EQ(f.x, 70);
    EXPECT_EQ(f.y, 80);
    EXPECT_EQ(f.width, 1234);
    EXPECT_EQ(f.height, 777);
    EXPECT_FALSE(logged_prefix("centred at"));
    EXPECT_FALSE(logged_prefix("geometry taken over"));
}

TEST_F(AppSession, the_command_line_beats_the_saved_place_and_what_does_not_parse_does_not) {
    WindowManager::instance().save(70, 80, 1234, 777, true);
    start({"--geometry=1111x722+5+6"});
    EXPECT_EQ(frame_of(app()).width, 1111);
    EXPECT_EQ(frame_of(app()).x, 5);
}

TEST_F(AppSession, a_bad_geometry_argument_leaves_the_saved_place) {
    WindowManager::instance().save(70, 80, 1234, 777, false);
    start({"--geometry=1111x722"});
    EXPECT_EQ(frame_of(app()).width, 1234);
    EXPECT_EQ(frame_of(app()).x, 70);
}

TEST_F(AppSession, a_saved_size_below_the_minimum_comes_up_at_1100_by_720) {
    write_file(config_file("geometry.json"), "\"width\": 500, \"height\": 400, \"x\": 9, \"y\": 9");
    start();
    EXPECT_EQ(frame_of(app()).width, 1100);
    EXPECT_EQ(frame_of(app()).height, 720);
    EXPECT_EQ(frame_of(app()).x, 9);
}

TEST_F(AppSession, a_saved_place_off_every_monitor_is_centred) {
    WindowManager::instance().save(5000, 10, 1100, 720, false);
    start();
    EXPECT_TRUE(logged("saved position 5000,10 (1100x720) fits no current monitor — centring"));
    EXPECT_TRUE(logged_prefix("centred at "));
    const Frame f = frame_of(app());
    EXPECT_LT(f.x, 1600);
}

TEST_F(AppSession, a_saved_size_without_a_place_is_centred) {
    write_file(config_file("geometry.json"), "\"width\": 1150, \"height\": 730, \"x\": 10");
    start();
    EXPECT_TRUE(logged("saved position 10,-1000000 (1150x730) fits no current monitor — centring"));
    EXPECT_EQ(frame_of(app()).width, 1150);
}

TEST_F(AppSession, numbers_as_large_as_they_come_start_all_the_same) {
    for (const char* maximized : {"false", "true"}) {
        write_file(config_file("geometry.json"),
                   std::string("\"width\": 2147483647, \"height\": 2147483647, \"x\": 2147483647, "
                               "\"y\": -2147483648, \"maximized\": ") +
                       maximized);
        App second;
        char name[] = "ferrodeck";
        char* argv[] = {name, nullptr};
        second.begin(1, argv);
        EXPECT_TRUE(pump_until([&second] { return !second.m_hits.empty(); }, 10)) << maximized;
        second.finish();
    }
}

// The whole start on damaged files: each opens its window, paints what the files have made of it,
// and ends. The other two files are not read before somebody asks for the lists. Ten thousand files
// in four parts, which run side by side; a quarter of them where a sanitizer makes starts dear.
class MutatedStarts : public AppSession, public ::testing::WithParamInterface<unsigned> {};

TEST_P(MutatedStarts, open_a_window_and_end) {
    Settings full;
    full.left_path = left();
    full.right_path = right();
    full.theme = "dark";
    full.language = "fr";
    full.font_family = "DejaVu Sans";
    full.font_scale = 130;
    full.thread_count = 7;
    SettingsStore::instance().mutable_get() = full;
    SettingsStore::instance().save();
    WindowManager::instance().save(100, 50, 1234, 800, false);
    const std::string settings = settings_text();
    const std::string geometry = read_file(config_file("geometry.json"));
    std::mt19937 random(GetParam());
    std::set<std::string> outcomes;
    constexpr int kStarts = 10'000 / 4 / 2 / (test_env::kSanitized ? 4 : 1);
    for (int start = 0; start < kStarts && !HasFailure(); ++start) {
        write_file(config_file("settings.json"), test_env::mutated(settings, random));
        write_file(config_file("geometry.json"), test_env::mutated(geometry, random));
        SCOPED_TRACE(settings_text() + read_file(config_file("geometry.json")));
        SettingsStore::instance().mutable_get() = Settings{};
        App one;
        char name[] = "ferrodeck";
        char* argv[] = {name, nullptr};
        one.begin(1, argv);
        const Frame f = frame_of(one);
        cairo_surface_t* image = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 1000, 700);
        cairo_t* cr = cairo_create(image);
        one.draw_frame(cr, 1000, 700);
        EXPECT_EQ(cairo_status(cr), CAIRO_STATUS_SUCCESS);
        cairo_destroy(cr);
        cairo_surface_destroy(image);
        EXPECT_FALSE(one.m_hits.empty());
        EXPECT_TRUE(one.m_left.path().starts_with("/") && one.m_right.path().starts_with("/"));
        EXPECT_TRUE(f.width >= 1000 && f.height >= 700) << f.width << "x" << f.height;
        const Settings& s = SettingsStore::instance().get();
        outcomes.insert(std::to_string(f.x) + " " + std::to_string(f.width) + " " + s.theme +
                        I18n::instance().effective_language() + one.m_left.path() + " " +
                        std::to_string(s.font_scale) + " " + std::to_string(s.thread_count));
        one.finish();
    }
    // The changes reach what is started with and do not merely break the files.
    EXPECT_GT(outcomes.size(), 40U);
}

INSTANTIATE_TEST_SUITE_P(AppSession, MutatedStarts, ::testing::Values(5, 6, 7, 8));

TEST_F(AppSession, each_configure_event_of_a_mapped_window_is_written) {
    start({"--geometry=1200x800+30+40"});
    ASSERT_TRUE(pump_until([] { return WindowManager::instance().load().valid; }, 5));
    gtk_window_resize(GTK_WINDOW(app().m_window), 1111, 777);
    EXPECT_TRUE(pump_until([] { return WindowManager::instance().load().width == 1111; }, 5));
    EXPECT_EQ(WindowManager::instance().load().height, 777);
    gtk_window_move(GTK_WINDOW(app().m_window), 55, 66);
    EXPECT_TRUE(pump_until([] { return WindowManager::instance().load().x == 55; }, 5));
    EXPECT_EQ(WindowManager::instance().load().y, 66);
    EXPECT_FALSE(WindowManager::instance().load().maximized);
}

TEST_F(AppSession, before_the_window_is_mapped_nothing_is_written) {
    start();
    pass();
    gtk_widget_hide(app().m_window);
    pass();
    ASSERT_EQ(unlink(config_file("geometry.json").c_str()), 0);
    GdkEventConfigure event = {};
    event.type = GDK_CONFIGURE;
    event.window = gtk_widget_get_window(app().m_window);
    event.width = 1200;
    event.height = 800;
    gboolean handled = TRUE;
    g_signal_emit_by_name(app().m_window, "configure-event", &event, &handled);
    EXPECT_FALSE(exists(config_file("geometry.json")));
    gtk_widget_show(app().m_window);
    g_signal_emit_by_name(app().m_window, "configure-event", &event, &handled);
    EXPECT_TRUE(exists(config_file("geometry.json")));
}

// --- The program, under a window manager ------------------------------------------------------

class SessionRoads : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string ignored;
        if (run("command -v xdotool && command -v openbox", &ignored) != 0)
            GTEST_SKIP() << "xdotool or openbox is not installed";
        m_server = std::make_unique<test_env::XServer>(true);
        if (m_server->display().empty())
            GTEST_SKIP() << "Xvfb cannot be started";
        setenv("DISPLAY", m_server->display().c_str(), 1);
        ASSERT_TRUE(m_server->wait_for_window_manager());
    }
    static std::string output(const std::string& command) {
        std::string out;
        run(command, &out);
        return out;
    }
    static std::string window() {
        std::string id = output("xdotool search --onlyvisible --name '^Ferrodeck$'");
        while (!id.empty() && id.back() == '\n')
            id.pop_back();
        return id;
    }
    void open(const std::vector<std::string>& arguments = {}) {
        m_program.start(arguments);
        ASSERT_TRUE(wait_until([] { return !window().empty(); }));
        settle();
    }
    void close_by_signal() {
        m_program.signal(SIGTERM);
        ASSERT_EQ(m_program.wait(15), 0);
    }
    template <class Condition>
    static bool wait_until(Condition condition) {
        for (int i = 0; i < 1500; ++i) {
            if (condition())
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }
    // Until the window manager is done with the window and its events have arrived.
    static void settle() { std::this_thread::sleep_for(std::chrono::milliseconds(600)); }
    // Place and size of the window's own area, as the server knows them.
    static std::string place() {
        const std::string out = output("xwininfo -id " + window());
        std::string result;
        for (const char* what :
             {"Absolute upper-left X:", "Absolute upper-left Y:", "Width:", "Height:"}) {
            const size_t at = out.find(what);
            if (at == std::string::npos)
                return "no window";
            result += std::to_string(std::atoi(out.c_str() + at + std::string(what).size())) + " ";
        }
        return result;
    }
    std::string geometry() const { return read_file(m_program.config_file("geometry.json")); }

    std::unique_ptr<test_env::XServer> m_server;
    Program m_program;
};

TEST_F(SessionRoads, the_window_comes_back_where_it_was_at_its_size) {
    open();
    ASSERT_EQ(output("xdotool windowsize --sync " + window() + " 1234 790"), "");
    output("xdotool windowmove " + window() + " 210 150");
    settle();
    const std::string left_at = place();
    EXPECT_NE(left_at.find(" 1234 790 "), std::string::npos) << left_at;
    close_by_signal();
    // Again and again, without creeping by the frame's width.
    for (int round = 0; round < 3; ++round) {
        open();
        EXPECT_EQ(place(), left_at) << round << "\n" << geometry();
        close_by_signal();
    }
}

// By which a task bar finds the icon.
TEST_F(SessionRoads, the_window_bears_the_name_of_the_desktop_file) {
    open();
    EXPECT_EQ(output("xprop -id " + window() + " WM_CLASS"),
              "WM_CLASS(STRING) = \"ferrodeck\", \"ferrodeck\"\n");
    close_by_signal();
}

TEST_F(SessionRoads, a_maximised_window_comes_back_maximised) {
    write_file(m_program.config_file("geometry.json"),
               "{\n  \"width\": 1200,\n  \"height\": 800,\n  \"x\": 100,\n  \"y\": 100,\n"
               "  \"maximized\": true\n}\n");
    for (int round = 0; round < 2; ++round) {
        open();
        const std::string state = output("xprop -id " + window() + " _NET_WM_STATE");
        EXPECT_NE(state.find("_NET_WM_STATE_MAXIMIZED_VERT"), std::string::npos) << state;
        EXPECT_NE(geometry().find("\"maximized\": true"), std::string::npos) << geometry();
        close_by_signal();
        EXPECT_NE(geometry().find("\"maximized\": true"), std::string::npos) << geometry();
    }
}

// By the user, in mid-run.
TEST_F(SessionRoads, a_window_that_is_maximised_and_restored_is_remembered_so) {
    open();
    const std::string before = place();
    // A double click on the title bar, which is above the window's own area.
    const auto toggle = [] {
        const std::string id = window();
        const std::string out = output("xwininfo -id " + id);
        const auto number = [&out](const std::string& what) {
            const size_t at = out.find(what);
            return at == std::string::npos ? 0 : std::atoi(out.c_str() + at + what.size());
        };
        output("xdotool mousemove " + std::to_string(number("Absolute upper-left X:") + 300) + " " +
               std::to_string(number("Absolute upper-left Y:") - 8) +
               " click --repeat 2 --delay 60 1");
        settle();
    };
    toggle();
    EXPECT_NE(geometry().find("\"maximized\": true"), std::string::npos) << geometry();
    close_by_signal();
    open();
    const std::string state = output("xprop -id " + window() + " _NET_WM_STATE");
    EXPECT_NE(state.find("_NET_WM_STATE_MAXIMIZED_VERT"), std::string::npos) << state;
    toggle();
    EXPECT_NE(geometry().find("\"maximized\": false"), std::string::npos) << geometry();
    close_by_signal();
}

TEST_F(SessionRoads, a_place_off_every_monitor_is_centred) {
    write_file(m_program.config_file("geometry.json"),
               "{\n  \"width\": 1200,\n  \"height\": 800,\n  \"x\": 3000,\n  \"y\": 100,\n"
               "  \"maximized\": false\n}\n");
    open();
    EXPECT_TRUE(
        m_program.logged("saved position 3000,100 (1200x800) fits no current monitor — centring"));
    EXPECT_TRUE(m_program.logged("centred at 200,200 (1200x800) on monitor 1600x1200+0+0"));
    EXPECT_NE(place().find(" 1200 800 "), std::string::npos) << place();
    close_by_signal();
    EXPECT_EQ(geometry().find("3000"), std::string::npos) << geometry();
}

TEST_F(SessionRoads, folders_orders_and_switches_come_back) {
    const test_env::TempDir folder;
    make_dirs(folder / "sub");
    ASSERT_EQ(m_program.run({"--left=" + folder.path(), "--right=/usr",
                             "--action=ToggleColOwner,ToggleHidden,SettingsScalePlus,"
                             "SettingsTheme,MirrorPane,BookmarkAdd"}),
              0);
    const std::string first = read_file(m_program.settings_path());
    for (const std::string& line :
         {std::string("\"show_owner\": true,"), std::string("\"show_hidden\": false,"),
          std::string("\"font_scale\": 110,"), std::string("\"theme\": \"dark\","),
          "\"left_path\": \"" + folder.path() + "\",",
          "\"right_path\": \"" + folder.path() + "\","})
        EXPECT_NE(first.find("  " + line), std::string::npos) << line << "\n" << first;
    EXPECT_EQ(read_file(m_program.config_file("bookmarks.txt")),
              su::basename_of(folder.path()) + "\t" + folder.path() + "\n");
    // A second run without folders finds all of it, and leaves it.
    ASSERT_EQ(m_program.run({"--action=Refresh"}), 0);
    EXPECT_TRUE(m_program.logged("action: Refresh [" + folder.path() + "]"));
    EXPECT_TRUE(m_program.logged("language en, theme dark"));
    EXPECT_EQ(read_file(m_program.settings_path()), first);
}

TEST_F(SessionRoads, all_of_the_self_test_leaves_the_files_as_they_were) {
    const test_env::TempDir folder;
    ASSERT_EQ(m_program.run({"--left=" + folder.path(), "--right=/usr",
                             "--action=ToggleColGroup,SettingsTheme,BookmarkAdd"}),
              0);
    const std::string before = read_file(m_program.settings_path());
    const std::string marked = read_file(m_program.config_file("bookmarks.txt"));
    ASSERT_EQ(m_program.run({"--action=ALL"}), 0);
    EXPECT_EQ(read_file(m_program.settings_path()), before);
    EXPECT_EQ(read_file(m_program.config_file("bookmarks.txt")), marked);
}

// --- Starting on files that have suffered -----------------------------------------------------

TEST_F(SessionRoads, the_program_starts_on_mutated_files) {
    ASSERT_EQ(m_program.run({"--left=/usr", "--right=/tmp", "--action=BookmarkAdd,MirrorPane"}), 0);
    write_file(m_program.config_file("recent.txt"), "/usr\n/tmp\n/no/such/folder\n/\n");
    constexpr const char* kFiles[] = {"settings.json", "geometry.json", "bookmarks.txt",
                                      "recent.txt"};
    std::string whole[std::size(kFiles)];
    for (size_t i = 0; i < std::size(kFiles); ++i)
        whole[i] = read_file(m_program.config_file(kFiles[i]));
    std::mt19937 random(3);
    for (int round = 0; round < 8; ++round) {
        for (size_t i = 0; i < std::size(kFiles); ++i)
            write_file(m_program.config_file(kFiles[i]), test_env::mutated(whole[i], random));
        unlink(m_program.log_path().c_str());
        ASSERT_EQ(m_program.run({"--action=Refresh,BookmarkAdd,BookmarkAdd"}), 0) << round;
        EXPECT_TRUE(m_program.logged("selftest: done, 3 executed, 0 unknown")) << round;
    }
}

}  // namespace
