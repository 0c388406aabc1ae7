// Files dragged from a pane and dropped on one: what is carried, where it goes, what is refused.
// The drags are those of a real pointer, on a screen of the test's own.

#include "app_pointer.h"

#include "app_display.h"
#include "app_partner.h"
#include "app_redraw.h"
#include "fresh_process.h"
#include "run_engine.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <fcntl.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using test_env::exists;
using test_env::make_dirs;
using test_env::read_file;
using test_env::write_file;

class AppDnd : public AppPointer {
  protected:
    std::string l(const std::string& name) const { return left() + "/" + name; }
    std::string r(const std::string& name) const { return right() + "/" + name; }
    static std::string uri(const std::string& path) {
        char* const text = g_filename_to_uri(path.c_str(), nullptr, nullptr);
        std::string result = text ? text : "";
        g_free(text);
        return result;
    }
    // A drop from another program, at the middle of a rectangle or at a point.
    bool drop(const Names& paths, const App::HitRect& at) {
        return drop(paths, at.x + at.w / 2, at.y + at.h / 2);
    }
    bool drop(const Names& paths, double x, double y) {
        Names uris;
        for (const std::string& path : paths)
            uris.push_back(path[0] == '/' ? uri(path) : path);
        return app().drop_uris(uris, x, y, false);
    }
    App::HitRect area(bool on_the_right) {
        App::HitRect rect = hit(App::Hit::PaneBackground, -1, on_the_right ? 1 : 0);
        rect.y += rect.h - 4;
        rect.h = 2;
        return rect;
    }
    void over(const App::HitRect& at) { app().drag_over(at.x + at.w / 2, at.y + at.h / 2); }
    // Motion with the first button held, as far from the press as told.
    void pull(double dx, double dy, guint state = GDK_BUTTON1_MASK) {
        GdkEventMotion event = {};
        event.type = GDK_MOTION_NOTIFY;
        event.state = state;
        event.x = app().m_press_x * app().m_ui_scale + dx;
        event.y = app().m_press_y * app().m_ui_scale + dy;
        app().handle_motion(event.x / app().m_ui_scale, event.y / app().m_ui_scale, &event);
    }
    bool logged_prefix(const std::string& prefix) const {
        const Names lines = log_lines();
        return std::any_of(lines.begin(), lines.end(),
                           [&](const std::string& line) { return line.rfind(prefix, 0) == 0; });
    }
    void expect_no_dialogue() {
        EXPECT_EQ(app().m_overlay, App::Overlay::None) << app().m_overlay_text;
    }
    void expect_message(const std::string& title, const std::string& text, bool error = false) {
        EXPECT_EQ(app().m_overlay, App::Overlay::Message);
        EXPECT_EQ(app().m_overlay_title, title);
        EXPECT_EQ(app().m_overlay_text, text);
        EXPECT_EQ(app().m_overlay_is_error, error);
    }
    void expect_busy() {
        expect_message("Still busy", "Wait for the running operation to finish, or cancel it.");
    }
};

// --- Where a drop goes ------------------------------------------------------------------------

TEST_F(AppDnd, a_drop_on_a_folders_row_goes_into_it_and_elsewhere_into_the_panes_folder) {
    make_dirs(r("folder"));
    write_file(r("note"), "x");
    ASSERT_EQ(symlink("folder", r("link").c_str()), 0);
    const test_env::TempDir from;
    for (const char* name : {"1", "2", "3", "4", "5"})
        write_file(from / name, name);
    start();
    over(row("folder", true));
    EXPECT_TRUE(drop({from / "1"}, row("folder", true)));
    EXPECT_FALSE(app().m_drag_active);
    EXPECT_FALSE(app().m_drag_inside);
    EXPECT_EQ(app().m_drag_row, -1);
    EXPECT_TRUE(app().m_transfer_was_running);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(logged("drop: 1 item(s) -> " + r("folder") + " (copy, from outside)"));
    EXPECT_EQ(read_file(r("folder/1")), "1");
    EXPECT_FALSE(exists(r("1")));
    EXPECT_TRUE(app().m_active_right);  // the target becomes the active one
    frame();
    EXPECT_TRUE(drop({from / "2"}, row("link", true)));
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(r("folder/2")), "2");
    EXPECT_TRUE(logged("drop: 1 item(s) -> " + r("link") + " (copy, from outside)"));
    frame();
    EXPECT_TRUE(drop({from / "3"}, row("note", true)));
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(r("3")), "3");
    frame();
    EXPECT_TRUE(drop({from / "4"}, row("..", true)));  // the parent takes nothing
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(r("4")), "4");
    frame();
    EXPECT_TRUE(drop({from / "5"}, area(false)));
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(l("5")), "5");
    EXPECT_FALSE(app().m_active_right);
    for (const char* name : {"1", "2", "3", "4", "5"})
        EXPECT_EQ(read_file(from / name), name);
    expect_no_dialogue();
}

// The right side begins where it is painted; all else belongs to the left one.
TEST_F(AppDnd, the_sides_meet_at_the_right_ones_edge) {
    make_dirs(l("folder"));
    start();
    const App::Layout& layout = app().m_layout;
    app().drag_over(layout.right_x, 300);
    EXPECT_TRUE(app().m_drag_target_right);
    app().drag_over(layout.right_x - 0.5, 300);
    EXPECT_FALSE(app().m_drag_target_right);
    app().drag_over(layout.bridge_x + 1, 300);
    EXPECT_FALSE(app().m_drag_target_right);
    app().drag_over(layout.right_x + 5, 2);  // above the panes
    EXPECT_TRUE(app().m_drag_target_right);
    EXPECT_EQ(app().m_drag_row, -1);
    const test_env::TempDir from;
    for (const char* name : {"a", "b"})
        write_file(from / name, name);
    drop({from / "a"}, layout.right_x, 300);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(exists(r("a")));
    frame();
    drop({from / "b"}, layout.right_x - 0.5, 300);
    ASSERT_TRUE(settle());
    EXPECT_TRUE(exists(l("b")));
}

TEST_F(AppDnd, what_files_hover_over_is_shown) {
    make_dirs(r("folder"));
    write_file(r("note"), "x");
    ASSERT_EQ(symlink("folder", r("link").c_str()), 0);
    ASSERT_EQ(symlink("note", r("file link").c_str()), 0);
    start();
    app().m_flash_until = 0;
    EXPECT_FALSE(app().m_drag_active);
    GtkWidget* const canvas = app().m_canvas;
    const auto changes = [&](const App::HitRect& at) {
        frame();
        pump();
        (void)test_env::redraw_due(canvas);
        over(at);
        return test_env::redraw_due(canvas);
    };
    EXPECT_TRUE(changes(row("folder", true)));
    EXPECT_TRUE(app().m_drag_active);
    EXPECT_TRUE(app().m_drag_inside);
    EXPECT_TRUE(app().m_drag_target_right);
    EXPECT_EQ(app().m_drag_row, pane(true).index_of("folder"));
    EXPECT_FALSE(changes(row("folder", true)));
    frame();
    shot("dnd_over_folder");
    const App::HitRect rect = row("folder", true);
    const std::string ok = app().m_palette.ok;
    EXPECT_EQ(pixel(static_cast<int>(rect.x + 200), static_cast<int>(rect.y + 1)), ok);
    EXPECT_TRUE(changes(row("link", true)));
    EXPECT_EQ(app().m_drag_row, pane(true).index_of("link"));
    EXPECT_TRUE(changes(row("note", true)));
    EXPECT_EQ(app().m_drag_row, -1);
    EXPECT_FALSE(changes(row("file link", true)));
    EXPECT_FALSE(changes(row("..", true)));
    EXPECT_TRUE(changes(area(false)));
    EXPECT_FALSE(app().m_drag_target_right);
    (void)test_env::redraw_due(canvas);
    app().drag_left();
    EXPECT_TRUE(test_env::redraw_due(canvas));
    EXPECT_FALSE(app().m_drag_active);
    EXPECT_FALSE(app().m_drag_inside);
    EXPECT_EQ(app().m_drag_row, -1);
    EXPECT_TRUE(changes(area(false)));  // back again, at the same place
}

// The list may be read anew below what is held still.
TEST_F(AppDnd, rows_that_move_below_the_pointer_are_found_again_after_the_next_frame) {
    make_dirs(l("b"));
    make_dirs(l("c"));
    write_file(l("z"), "x");
    start();
    const App::HitRect second = row("c");
    over(second);
    ASSERT_EQ(app().m_drag_row, pane().index_of("c"));
    make_dirs(l("a"));
    app().refresh_both();
    frame();
    EXPECT_EQ(app().m_drag_row, pane().index_of("b"));  // which is where "c" was
    rmdir(l("a").c_str());
    rmdir(l("b").c_str());
    rmdir(l("c").c_str());
    app().refresh_both();
    frame();
    EXPECT_EQ(app().m_drag_row, -1);
    EXPECT_TRUE(app().m_drag_active);
    app().drag_left();
    frame();
    EXPECT_FALSE(app().m_drag_active);
}

// What the user saw is what is meant, though the list has changed since.
TEST_F(AppDnd, a_drop_means_the_folder_that_was_painted_there) {
    make_dirs(r("b"));
    make_dirs(r("c"));
    const test_env::TempDir from;
    write_file(from / "file", "x");
    start();
    const App::HitRect painted = row("b", true);
    make_dirs(r("a"));
    app().refresh_both();
    EXPECT_TRUE(drop({from / "file"}, painted));
    ASSERT_TRUE(settle());
    EXPECT_TRUE(exists(r("b/file")));
    // One that is gone, or of a folder that was left, takes nothing; nor does what stands there
    // now.
    frame();
    const App::HitRect c = row("c", true);
    rmdir(r("c").c_str());
    app().refresh_both();
    EXPECT_FALSE(drop({from / "file"}, c));
    frame();
    const App::HitRect a = row("a", true);
    pane(true).navigate_to(r("b"), true);
    EXPECT_FALSE(drop({from / "file"}, a));
    EXPECT_FALSE(App::busy());
    EXPECT_FALSE(exists(r("file")));
    expect_no_dialogue();
}

// --- What a drop takes ------------------------------------------------------------------------

TEST_F(AppDnd, a_drop_without_files_is_no_drop) {
    start();
    EXPECT_FALSE(drop({}, area(true)));
    EXPECT_FALSE(app().m_active_right);
    expect_no_dialogue();
}

TEST_F(AppDnd, of_local_and_remote_addresses_the_local_ones_are_taken_without_a_word) {
    const test_env::TempDir from;
    for (const char* name : {"a", "b"})
        write_file(from / name, name);
    make_dirs(from / "folder/inner");
    start();
    const std::string host = g_get_host_name();
    EXPECT_TRUE(
        drop({"sftp://server/home/x", from / "a", "https://example.org/a", "trash:///b",
              "file://" + host + from.path() + "/b", "file://localhost" + from.path() + "/folder/",
              "no address", "file:///a%2Fb", "file:///a%00b", "file:///bad%zz"},
             area(true)));
    EXPECT_TRUE(logged("drop: 3 item(s) -> " + right() + " (copy, from outside)"));
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(r("a")), "a");
    EXPECT_EQ(read_file(r("b")), "b");
    EXPECT_TRUE(exists(r("folder/inner")));
    expect_no_dialogue();
}

TEST_F(AppDnd, remote_addresses_alone_are_an_error) {
    write_file(l("a"), "x");
    start();
    // A file of another machine is not the one of the same path here.
    EXPECT_FALSE(
        drop({"sftp://server/home/x", "file://other-machine.invalid" + l("a")}, area(true)));
    expect_message("Caution", "Only local files can be dropped here.", true);
    EXPECT_FALSE(app().m_active_right);
    EXPECT_FALSE(logged_prefix("drop: "));
    EXPECT_FALSE(exists(r("a")));
}

TEST_F(AppDnd, names_of_any_bytes_arrive) {
    const test_env::TempDir from;
    const Names names = {"two words", "100%41", "%", "line\nend", "\xff\xfe", "a#b?c", "\xc3\xa4"};
    Names paths;
    for (const std::string& name : names) {
        write_file(from / name, name);
        paths.push_back(from / name);
    }
    start();
    EXPECT_TRUE(drop(paths, area(true)));
    ASSERT_TRUE(settle());
    for (const std::string& name : names) {
        ASSERT_TRUE(exists(r(name))) << name;
        EXPECT_EQ(read_file(r(name)), name);
    }
    expect_no_dialogue();
}

TEST_F(AppDnd, what_is_in_the_folder_already_is_left_out_and_alone_is_told) {
    write_file(r("here"), "x");
    const test_env::TempDir from;
    write_file(from / "new", "n");
    start();
    EXPECT_TRUE(drop({r("here")}, area(true)));
    expect_message("Nothing found", "Those files are already in this folder.");
    EXPECT_FALSE(app().m_active_right);
    EXPECT_FALSE(App::busy());
    app().close_overlay();
    frame();
    EXPECT_TRUE(drop({"sftp://x/y", r("here"), uri(right()) + "//here", from / "new"}, area(true)));
    EXPECT_TRUE(logged("drop: 1 item(s) -> " + right() + " (copy, from outside)"));
    ASSERT_TRUE(settle());
    EXPECT_EQ(names(true), (Names{"..", "here", "new"}));
    expect_no_dialogue();
}

// What is meant is the drop's own folder, not that of the pane.
TEST_F(AppDnd, a_file_may_go_from_a_folder_into_one_of_its_folders) {
    make_dirs(l("folder"));
    write_file(l("a"), "x");
    write_file(l("folder/b"), "x");
    start();
    EXPECT_TRUE(drop({l("a"), l("folder/b")}, row("folder")));
    EXPECT_TRUE(logged("drop: 1 item(s) -> " + l("folder") + " (copy, from outside)"));
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(l("folder/a")), "x");
    frame();
    EXPECT_TRUE(drop({l("folder/b")}, row("folder")));
    expect_message("Nothing found", "Those files are already in this folder.");
}

TEST_F(AppDnd, the_settings_of_transfers_hold_for_drops) {
    const test_env::TempDir from;
    write_file(from / "a", "new");
    write_file(r("a"), "old");
    settings().default_conflict = copy_engine::ConflictAction::RenameNew;
    settings().thread_count = 3;
    SettingsStore::instance().save();
    start();
    EXPECT_TRUE(drop({from / "a"}, area(true)));
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(r("a")), "old");
    EXPECT_EQ(read_file(r("a.1")), "new");
    EXPECT_EQ(copy_engine::instance().snapshot().threads_active, 3);
}

// --- What is refused --------------------------------------------------------------------------

TEST_F(AppDnd, a_drop_while_a_dialogue_is_open_is_refused) {
    write_file(l("a"), "x");
    start();
    for (const App::Overlay overlay :
         {App::Overlay::About, App::Overlay::NewFolder, App::Overlay::LogView,
          App::Overlay::HexView, App::Overlay::Message}) {
        app().open_overlay(overlay, "t");
        frame();
        EXPECT_TRUE(drop({l("a")}, area(true)));
        expect_busy();
        EXPECT_TRUE(drop({"sftp://x/y"}, area(true)));
        expect_busy();
        app().close_overlay();
    }
    EXPECT_FALSE(App::busy());
    EXPECT_FALSE(logged_prefix("drop: "));
    EXPECT_FALSE(app().m_active_right);
    frame();
    EXPECT_TRUE(drop({l("a")}, area(true)));
    ASSERT_TRUE(settle());
    EXPECT_TRUE(exists(r("a")));
}

// The worker waits for its answer, so the question stays, and the status bar tells.
TEST_F(AppDnd, a_question_of_the_engine_is_not_taken_away_by_a_drop) {
    write_file(l("a"), "new");
    write_file(r("a"), "old");
    write_file(l("b"), "x");
    start();
    EXPECT_TRUE(drop({l("a")}, area(true)));
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    app().m_conflict_apply_all = true;
    frame();
    EXPECT_TRUE(drop({l("b")}, area(true)));
    EXPECT_EQ(app().m_overlay, App::Overlay::Conflict);
    EXPECT_TRUE(app().m_conflict_apply_all);
    EXPECT_EQ(app().m_flash_text, "Wait for the running operation to finish, or cancel it.");
    EXPECT_GT(app().m_flash_until, App::now_seconds());
    copy_engine::instance().resolve_conflict(copy_engine::ConflictAction::Skip, true);
    ASSERT_TRUE(settle());
    EXPECT_FALSE(exists(r("b")));
}

TEST_F(AppDnd, what_is_not_saved_is_not_lost_to_a_drop) {
    write_file(l("a"), "x");
    start();
    app().open_overlay(App::Overlay::HexView, "t");
    app().m_hex_edits[0] = 1;
    frame();
    EXPECT_TRUE(drop({l("a")}, area(true)));
    EXPECT_EQ(app().m_overlay, App::Overlay::HexView);
    EXPECT_EQ(app().m_hex_edits.size(), 1U);
    EXPECT_EQ(app().m_flash_text, "Wait for the running operation to finish, or cancel it.");
    EXPECT_FALSE(App::busy());
    EXPECT_FALSE(exists(r("a")));
}

TEST_F(AppDnd, a_drop_while_a_transfer_runs_shows_the_busy_message_and_counts_as_finished) {
    make_dirs(l("from"));
    ASSERT_EQ(mkfifo(l("pipe").c_str(), 0600), 0);
    for (int i = 0; i < 4; ++i)
        write_file(l("from/" + std::to_string(i)), test_env::pattern(4'000'000));
    write_file(l("b"), "x");
    start();
    settings().default_conflict = copy_engine::ConflictAction::Ask;
    make_dirs(r("from"));
    EXPECT_TRUE(drop({l("from")}, area(true)));  // waits with its question about the folder
    ASSERT_TRUE(copy_engine::instance().is_running());
    expect_no_dialogue();
    app().m_active_right = false;
    EXPECT_TRUE(drop({l("b")}, area(true)));
    expect_busy();
    app().close_overlay();
    copy_engine::instance().cancel();
    ASSERT_TRUE(settle());
    EXPECT_FALSE(exists(r("b")));
}

// Its failures would be taken away by the next run, unseen.
TEST_F(AppDnd, a_run_that_has_ended_unseen_is_told_first) {
    ASSERT_EQ(mkfifo(l("pipe").c_str(), 0600), 0);
    write_file(l("b"), "x");
    start();
    EXPECT_TRUE(drop({l("pipe")}, area(true)));
    while (copy_engine::instance().is_running())
        g_usleep(1000);
    EXPECT_TRUE(drop({l("b")}, area(true)));
    EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
    EXPECT_FALSE(app().m_transfer_was_running);
    EXPECT_FALSE(exists(r("b")));
    app().close_overlay();
    frame();
    // One without failures does not stand in the way.
    write_file(l("c"), "x");
    EXPECT_TRUE(drop({l("b")}, area(true)));
    while (copy_engine::instance().is_running())
        g_usleep(1000);
    EXPECT_TRUE(drop({l("c")}, area(true)));
    ASSERT_TRUE(settle());
    EXPECT_TRUE(exists(r("b")));
    EXPECT_TRUE(exists(r("c")));
}

TEST_F(AppDnd, a_rename_is_committed_before_a_drop) {
    for (const char* name : {"old.x", "taken.x"})
        write_file(r(name), "x");
    const test_env::TempDir from;
    write_file(from / "file", "x");
    start();
    rename("old.x", "new", true);
    EXPECT_TRUE(drop({from / "file"}, area(false)));
    ASSERT_TRUE(settle());
    EXPECT_TRUE(exists(l("file")));
    EXPECT_FALSE(exists(r("old.x")));
    EXPECT_FALSE(app().m_active_right);
    // A name that is refused stops the drop, so that its message is not covered.
    rename("taken.x", "a", true);
    write_file(r("takena.x"), "x");
    std::remove(l("file").c_str());
    EXPECT_TRUE(drop({from / "file"}, area(false)));
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_TRUE(app().m_overlay_is_error);
    EXPECT_FALSE(exists(l("file")));
    EXPECT_FALSE(App::busy());
}

// --- What is dragged --------------------------------------------------------------------------

TEST_F(AppDnd, what_is_dragged_is_told_as_addresses) {
    start();
    app().m_drag_paths = {"/a b", "relative", "/100%41", "/line\nend", "/\xff", "/a#b?c"};
    EXPECT_EQ(app().dragged_uris(),
              (Names{"file:///a%20b", "file:///100%2541", "file:///line%0Aend", "file:///%FF",
                     "file:///a%23b%3Fc"}));
    app().m_drag_paths.clear();
}

TEST_F(AppDnd, a_press_and_little_motion_are_no_drag) {
    start_with_files(3);
    settings().font_scale = 200;
    frame();
    ASSERT_EQ(app().m_ui_scale, 2);
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    click(row(2));
    ASSERT_TRUE(app().m_press_pending);
    // What is no drag hovers.
    const auto hovers = [this](double by, guint state) {
        app().m_hover = -1;
        pull(by, by, state);  // in surface pixels, however large the interface is
        return app().m_hover >= 0;
    };
    for (const double by : {-8.0, 0.0, 8.0}) {
        EXPECT_TRUE(hovers(by, GDK_BUTTON1_MASK)) << by;
        EXPECT_TRUE(app().m_press_pending) << by;
    }
    EXPECT_TRUE(hovers(30, 0));
    EXPECT_TRUE(hovers(30, GDK_BUTTON2_MASK | GDK_BUTTON3_MASK));
    EXPECT_TRUE(app().m_press_pending);
    EXPECT_FALSE(logged_prefix("drag: "));
    app().handle_release();
    EXPECT_EQ(selected_names(), Names{"file1"});
    EXPECT_TRUE(hovers(30, GDK_BUTTON1_MASK));
    EXPECT_FALSE(app().m_drag_from_pane);
}

// Each time the press is used up, and its release changes nothing.
TEST_F(AppDnd, what_cannot_be_dragged) {
    make_dirs(l("folder"));
    start_with_files(3);
    const auto pulled = [this](const std::function<void()>& meanwhile, const std::string& name) {
        frame();
        key(GDK_KEY_a, GDK_CONTROL_MASK);
        click(row(name));
        EXPECT_TRUE(app().m_press_pending);
        meanwhile();
        const Names before = selected_names();
        app().m_hover = -1;
        pull(20, 0);
        EXPECT_EQ(app().m_hover, -1) << name;  // the motion has had its meaning
        EXPECT_FALSE(app().m_press_pending) << name;
        EXPECT_FALSE(app().m_press_defer_select) << name;
        EXPECT_FALSE(app().m_drag_from_pane) << name;
        EXPECT_TRUE(app().m_drag_paths.empty()) << name;
        app().handle_release();
        EXPECT_EQ(selected_names(), before) << name;
    };
    pulled([] {}, "..");
    pulled([this] { app().open_overlay(App::Overlay::About, "t"); }, "file1");
    app().close_overlay();
    pulled(
        [] {
            ASSERT_TRUE(
                BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
                    while (reporter.keep_going())
                        g_usleep(1000);
                }));
        },
        "file1");
    BgTask::instance().cancel();
    app().m_bgtask_was_running = true;
    ASSERT_TRUE(settle());
    // During work not even the press counts.
    write_file(r("file2"), "x");
    frame();
    drop({l("file2")}, area(true));
    ASSERT_TRUE(copy_engine::instance().is_running());
    click(row("file1"));
    EXPECT_FALSE(app().m_press_pending);
    pull(20, 0);
    EXPECT_FALSE(app().m_drag_from_pane);
    copy_engine::instance().cancel();
    ASSERT_TRUE(settle());
    app().m_active_right = false;
    pulled(
        [this] {
            std::remove(l("file1").c_str());
            app().refresh_both();
        },
        "file1");
    EXPECT_FALSE(logged_prefix("drag: "));
}

// --- The picture that is dragged along --------------------------------------------------------

class DragIcon : public AppDnd {
  protected:
    struct Picture {
        int w = 0;
        int h = 0;
        double scale = 0;
        std::vector<uint32_t> argb;

        uint32_t at(int x, int y) const { return argb.at(static_cast<size_t>(y * w + x)); }
    };
    Picture picture(const Names& paths, const char* name) {
        app().m_drag_paths = paths;
        cairo_surface_t* const surface = app().make_drag_icon();
        EXPECT_EQ(cairo_image_surface_get_format(surface), CAIRO_FORMAT_ARGB32);
        cairo_surface_flush(surface);
        Picture result;
        result.w = cairo_image_surface_get_width(surface);
        result.h = cairo_image_surface_get_height(surface);
        double y_scale = 0;
        cairo_surface_get_device_scale(surface, &result.scale, &y_scale);
        EXPECT_EQ(result.scale, y_scale);
        for (int y = 0; y < result.h; ++y) {
            const auto* const line = reinterpret_cast<const uint32_t*>(
                cairo_image_surface_get_data(surface) +
                static_cast<ptrdiff_t>(y) * cairo_image_surface_get_stride(surface));
            result.argb.insert(result.argb.end(), line, line + result.w);
        }
        if (const char* const folder = std::getenv("FERRODECK_SHOTS"); folder && *folder)
            cairo_surface_write_to_png(surface,
                                       (std::string(folder) + "/" + name + ".png").c_str());
        cairo_surface_destroy(surface);
        EXPECT_EQ(app().m_cr, nullptr);
        app().m_drag_paths.clear();
        return result;
    }
    // In the window's fonts.
    int text_w(const std::string& text) {
        cairo_surface_t* const surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 1, 1);
        cairo_t* const cr = cairo_create(surface);
        double width = 0;
        app().paint_on(cr, [&] { width = app().text_width(text, 13, true, false); });
        cairo_destroy(cr);
        cairo_surface_destroy(surface);
        return static_cast<int>(width);
    }
    // A colour of the palette at full strength.
    static uint32_t opaque(const std::string& color) {
        return 0xff000000U | static_cast<uint32_t>(std::stoul(color.substr(1), nullptr, 16));
    }
};

TEST_F(DragIcon, it_names_the_one_file_or_counts_them) {
    start();
    const Picture one = picture({"/some/where/report.txt"}, "dnd_icon_one");
    EXPECT_EQ(one.w, text_w("report.txt") + 20);
    EXPECT_EQ(one.h, 28);
    EXPECT_EQ(one.scale, 1);
    const Picture many = picture({"/a/b", "/a/c", "/a/d"}, "dnd_icon_many");
    EXPECT_EQ(many.w, text_w("3 selected") + 20);
    EXPECT_NE(one.w, many.w);
    const Picture wide = picture({"/" + std::string(200, 'w') + "x"}, "dnd_icon_wide");
    EXPECT_EQ(wide.w, 320);
    // The text is cut where it would reach into the margin.
    for (int y = 3; y < 25; ++y)
        for (const int x : {4, 8, 311, 315})
            EXPECT_EQ(wide.at(x, y), wide.at(4, 4)) << x << " " << y;
    EXPECT_NO_FATAL_FAILURE(picture({"/a/\xff\xfe\nb"}, "dnd_icon_bytes"));
}

TEST_F(DragIcon, its_colours_are_the_palettes) {
    start();
    for (const bool dark : {false, true}) {
        app().m_palette = dark ? Palette::dark_() : Palette::light();
        const Picture icon = picture({"/a/report"}, dark ? "dnd_icon_dark" : "dnd_icon_light");
        for (const auto& [x, y] : {std::pair{0, 0}, {1, 14}, {icon.w - 1, 27}, {icon.w / 2, 1}})
            EXPECT_EQ(icon.at(x, y), opaque(app().m_palette.accent)) << x << " " << y;
        // The ground is translucent.
        EXPECT_EQ(icon.at(4, 4) >> 24, std::lround(0.94 * 255));
        const uint32_t ground = opaque(app().m_palette.window);
        for (const int shift : {0, 8, 16})
            EXPECT_NEAR(static_cast<double>(icon.at(4, 4) >> shift & 0xff),
                        0.94 * (ground >> shift & 0xff), 1.5);
        EXPECT_NE(std::find(icon.argb.begin(), icon.argb.end(), opaque(app().m_palette.text)),
                  icon.argb.end());
        // As much text above the middle as below it, and as much room at both sides.
        int first = icon.w;
        int last = 0;
        for (int y = 3; y < 25; ++y)
            for (int x = 3; x < icon.w - 3; ++x)
                if (icon.at(x, y) != icon.at(4, 4)) {
                    first = std::min(first, x);
                    last = std::max(last, x);
                }
        EXPECT_NEAR(first, 10, 2);
        EXPECT_NEAR(icon.w - last, 10, 3);
    }
}

TEST_F(DragIcon, it_is_as_fine_as_the_windows_screen) {
    REQUIRE_FRESH_PROCESS();
    setenv("GDK_SCALE", "2", 1);
    start();
    ASSERT_EQ(gtk_widget_get_scale_factor(app().m_canvas), 2);
    const Picture icon = picture({"/a/report"}, "dnd_icon_fine");
    EXPECT_EQ(icon.scale, 2);
    EXPECT_EQ(icon.h, 56);
    EXPECT_EQ(icon.w % 2, 0);
    EXPECT_NEAR(icon.w / 2, text_w("report") + 20, 2);
    EXPECT_EQ(icon.at(3, 28), opaque(app().m_palette.accent));
    EXPECT_NE(icon.at(4, 28), opaque(app().m_palette.accent));
    unsetenv("GDK_SCALE");
}

// --- With a real pointer ----------------------------------------------------------------------

class RealDrag : public AppDnd {
  protected:
    void SetUp() override {
        std::string ignored;
        if (test_env::run("command -v xdotool", &ignored) != 0)
            GTEST_SKIP() << "xdotool is not installed";
        if (!test_env::use_own_display())
            GTEST_SKIP() << "Xvfb cannot be started";
        AppDnd::SetUp();
    }
    void TearDown() override {
        if (m_context)
            g_object_unref(m_context);
        AppDnd::TearDown();
    }
    void start_window() {
        start();
        const auto keep = +[](GtkWidget*, GdkDragContext* context, gpointer data) {
            g_set_object(static_cast<GdkDragContext**>(data), context);
        };
        g_signal_connect(app().m_canvas, "drag-begin", G_CALLBACK(keep), &m_context);
        app().m_flash_until = 0;
    }
    // While the window lives on.
    void xdo(const std::string& text) {
        std::vector<std::string> words = {"xdotool"};
        std::istringstream in(text);
        for (std::string word; in >> word;)
            words.push_back(word);
        const pid_t pid = test_env::spawn(words);
        int status = -1;
        ASSERT_TRUE(pump_until([&] { return waitpid(pid, &status, WNOHANG) == pid; }));
        ASSERT_EQ(status, 0) << text;
    }
    std::string at(double x, double y) {
        int left_x = 0;
        int top = 0;
        gdk_window_get_origin(gtk_widget_get_window(app().m_canvas), &left_x, &top);
        return "mousemove " + std::to_string(left_x + static_cast<int>(x * app().m_ui_scale)) +
               " " + std::to_string(top + static_cast<int>(y * app().m_ui_scale));
    }
    std::string at(const App::HitRect& rect) {
        return at(rect.x + rect.w / 2, rect.y + rect.h / 2);
    }
    // Presses on a row, and pulls it away from where it is.
    void take(const App::HitRect& rect) {
        xdo(at(rect));
        xdo("mousedown 1");
        ASSERT_TRUE(pump_until([this] { return app().m_press_pending; }));
        xdo(at(rect.x + rect.w / 2 + 6, rect.y + rect.h / 2 + 12));
        ASSERT_TRUE(pump_until([this] { return app().m_drag_from_pane; }));
    }
    // Until the window has answered what a drop there would do.
    void carry(const App::HitRect& rect, GdkDragAction action) {
        xdo(at(rect.x + rect.w / 2 - 3, rect.y + rect.h / 2));
        xdo(at(rect));
        ASSERT_TRUE(pump_until([&] {
            return app().m_drag_active &&
                   gdk_drag_context_get_selected_action(m_context) == action &&
                   std::abs(app().m_drag_x - (rect.x + rect.w / 2)) < 2 &&
                   std::abs(app().m_drag_y - (rect.y + rect.h / 2)) < 2;
        }));
    }
    void let_go() {
        xdo("mouseup 1");
        ASSERT_TRUE(pump_until([this] { return !app().m_drag_from_pane; }));
        EXPECT_TRUE(app().m_drag_paths.empty());
        EXPECT_FALSE(app().m_drag_active);
        EXPECT_FALSE(app().m_drag_inside);
        EXPECT_EQ(app().m_drag_row, -1);
        EXPECT_FALSE(app().m_press_pending);
        EXPECT_FALSE(app().m_press_defer_select);
        ASSERT_TRUE(settle());
        frame();
    }

    GdkDragContext* m_context = nullptr;  // of the last drag from here
};

TEST_F(RealDrag, several_rows_are_copied_to_the_other_side_and_stay_marked) {
    for (const char* name : {"a", "b", "c"})
        write_file(l(name), name);
    start_window();
    click_and_release(row("a"));
    click_and_release(row("b"), 1, GDK_CONTROL_MASK);
    take(row("b"));
    EXPECT_EQ(app().m_drag_paths, (Names{l("a"), l("b")}));
    EXPECT_TRUE(logged("drag: 2 item(s) from " + left()));
    EXPECT_FALSE(app().m_press_pending);
    EXPECT_FALSE(app().m_press_defer_select);
    EXPECT_EQ(selected_names(), (Names{"a", "b"}));
    carry(area(true), GDK_ACTION_COPY);
    EXPECT_TRUE(app().m_drag_inside);
    EXPECT_TRUE(app().m_drag_target_right);
    frame();
    shot("dnd_real");
    let_go();
    EXPECT_TRUE(logged("drop: 2 item(s) -> " + right() + " (copy, from pane)"));
    EXPECT_EQ(names(true), (Names{"..", "a", "b"}));
    EXPECT_EQ(names(), (Names{"..", "a", "b", "c"}));
    EXPECT_EQ(selected_names(), (Names{"a", "b"}));
    EXPECT_TRUE(app().m_active_right);
    expect_no_dialogue();
    // The press marks the row, which is then what is dragged. The side is that of the press.
    app().m_active_right = true;
    xdo(at(row("c")));
    xdo("mousedown 1");
    ASSERT_TRUE(pump_until([this] { return app().m_press_pending; }));
    app().m_active_right = true;  // by a key
    xdo(at(row("c").x + 100, row("c").y + 40));
    ASSERT_TRUE(pump_until([this] { return app().m_drag_from_pane; }));
    EXPECT_EQ(app().m_drag_paths, Names{l("c")});
    EXPECT_FALSE(app().m_active_right);
    carry(area(true), GDK_ACTION_COPY);
    let_go();
    EXPECT_EQ(read_file(r("c")), "c");
    EXPECT_TRUE(exists(l("c")));
}

TEST_F(RealDrag, with_shift_they_are_moved_also_onto_a_folders_row) {
    make_dirs(r("folder"));
    for (const char* name : {"a", "b"})
        write_file(l(name), name);
    start_window();
    take(row("a"));
    carry(row("folder", true), GDK_ACTION_COPY);
    xdo("keydown Shift_L");
    carry(row("folder", true), GDK_ACTION_MOVE);
    EXPECT_EQ(app().m_drag_row, pane(true).index_of("folder"));
    let_go();
    xdo("keyup Shift_L");
    EXPECT_TRUE(logged("drop: 1 item(s) -> " + r("folder") + " (move, from pane)"));
    EXPECT_EQ(read_file(r("folder/a")), "a");
    EXPECT_FALSE(exists(l("a")));
    // A folder of the same side, and Shift let go again on the way.
    make_dirs(l("inner"));
    app().refresh_both();
    frame();
    take(row("b"));
    xdo("keydown Shift_L");
    carry(row("inner"), GDK_ACTION_MOVE);
    xdo("keyup Shift_L");
    carry(row("inner"), GDK_ACTION_COPY);
    let_go();
    EXPECT_EQ(read_file(l("inner/b")), "b");
    EXPECT_EQ(read_file(l("b")), "b");
    expect_no_dialogue();
}

TEST_F(RealDrag, a_row_that_was_not_marked_is_dragged_alone) {
    for (const char* name : {"a", "b", "c"})
        write_file(l(name), name);
    start_window();
    click_and_release(row("b"));
    click_and_release(row("c"), 1, GDK_SHIFT_MASK);
    ASSERT_EQ(selected_names(), (Names{"b", "c"}));
    take(row("a"));
    EXPECT_EQ(selected_names(), Names{"a"});
    EXPECT_EQ(app().m_drag_paths, Names{l("a")});
    carry(area(true), GDK_ACTION_COPY);
    let_go();
    EXPECT_TRUE(logged("drop: 1 item(s) -> " + right() + " (copy, from pane)"));
    EXPECT_EQ(names(true), (Names{"..", "a"}));
}

TEST_F(RealDrag, into_the_same_folder_nothing_happens_and_nothing_is_said) {
    for (const char* name : {"a", "b"})
        write_file(l(name), name);
    start_window();
    click_and_release(row("a"));
    click_and_release(row("b"), 1, GDK_SHIFT_MASK);
    take(row("a"));
    carry(area(false), GDK_ACTION_COPY);
    let_go();
    expect_no_dialogue();
    EXPECT_FALSE(logged_prefix("drop: "));
    EXPECT_FALSE(logged_prefix("transfer start: "));
    EXPECT_EQ(selected_names(), (Names{"a", "b"}));
    EXPECT_EQ(names(), (Names{"..", "a", "b"}));
}

TEST_F(RealDrag, one_that_is_broken_off_leaves_nothing_behind) {
    write_file(l("a"), "a");
    start_window();
    take(row("a"));
    carry(area(true), GDK_ACTION_COPY);
    xdo("key Escape");
    let_go();
    EXPECT_FALSE(exists(r("a")));
    expect_no_dialogue();
    // Nor does one that leaves the window. GTK's picture flies back for half a second, and takes
    // the clicks on its way.
    pump_until([] { return false; }, 0.7);
    take(row("a"));
    carry(area(true), GDK_ACTION_COPY);
    xdo("mousemove 1590 1190");
    ASSERT_TRUE(pump_until([this] { return !app().m_drag_active; }));
    let_go();
    EXPECT_FALSE(exists(r("a")));
}

TEST_F(RealDrag, at_another_scale_it_lands_where_it_is_shown) {
    settings().font_scale = 150;
    SettingsStore::instance().save();
    make_dirs(r("f1"));
    make_dirs(r("f2"));
    write_file(l("a"), "a");
    start_window();
    ASSERT_EQ(app().m_ui_scale, 1.5);
    take(row("a"));
    carry(row("f2", true), GDK_ACTION_COPY);
    EXPECT_EQ(app().m_drag_row, pane(true).index_of("f2"));
    let_go();
    EXPECT_EQ(read_file(r("f2/a")), "a");
}

// A name that is no UTF-8 is shown with other bytes, by which its file is not found.
TEST_F(RealDrag, names_of_any_bytes_are_dragged) {
    const Names names = {"100%41", "line\nend", "two words"};
    for (const std::string& name : names)
        write_file(l(name), name);
    write_file(l("\xff\xfe"), "x");
    start_window();
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    take(row("100%41"));
    carry(area(true), GDK_ACTION_COPY);
    let_go();
    for (const std::string& name : names)
        EXPECT_EQ(read_file(r(name)), name);
    EXPECT_TRUE(logged("drop: 4 item(s) -> " + right() + " (copy, from pane)"));
    EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
    EXPECT_EQ(copy_engine::instance().snapshot().failures_total, 1U);
}

// Another program's drag has the pointer.
TEST_F(RealDrag, one_that_cannot_begin_is_told_in_the_log) {
    write_file(l("a"), "a");
    start_window();
    test_env::Partner partner;
    ASSERT_TRUE(partner.start("both", "200x200+1300+900"));
    xdo("mousemove --window " + partner.window() + " 50 50");
    xdo("mousedown 1");
    xdo("mousemove --window " + partner.window() + " 70 70");
    xdo("mousemove --window " + partner.window() + " 90 90");
    ASSERT_TRUE(partner.wait_line("over"));
    click(row("a"));
    GdkEvent* const event = gdk_event_new(GDK_MOTION_NOTIFY);
    event->motion.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(app().m_canvas)));
    event->motion.state = GDK_BUTTON1_MASK;
    event->motion.x = row("a").x + 100;
    event->motion.y = row("a").y + 40;
    gdk_event_set_device(
        event, gdk_seat_get_pointer(gdk_display_get_default_seat(gdk_display_get_default())));
    (void)test_env::redraw_due(app().m_canvas);
    app().handle_motion(event->motion.x, event->motion.y, &event->motion);
    EXPECT_TRUE(test_env::redraw_due(app().m_canvas));
    gdk_event_free(event);
    EXPECT_TRUE(logged("drag: 1 item(s) from " + left()));
    EXPECT_TRUE(logged("drag: gtk_drag_begin returned nothing — no drag started"));
    EXPECT_FALSE(app().m_drag_from_pane);
    EXPECT_TRUE(app().m_drag_paths.empty());
    xdo("mouseup 1");
}

// The program may be told to end at any moment.
TEST_F(RealDrag, the_window_may_go_in_the_middle_of_one) {
    write_file(l("a"), "a");
    start_window();
    take(row("a"));
    carry(area(true), GDK_ACTION_COPY);
    finish();
    EXPECT_EQ(app().m_canvas, nullptr);
    pump();
    xdo("mouseup 1");
    EXPECT_FALSE(exists(r("a")));
}

}  // namespace
