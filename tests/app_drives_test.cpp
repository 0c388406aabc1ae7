// The drive bar of each pane and the list that its button opens. In the window of 1100 by 720 a
// pane is 508 wide and begins at 94; the bar stands 28 below that, its controls another 4.

#include "app_pane_paint.h"

#include "app_texts.h"
#include "bg_task.h"
#include "drives.h"
#include "faultfs.h"
#include "format.h"
#include "fresh_process.h"
#include "i18n.h"
#include "mounts_fixture.h"
#include "strutil.h"

#include <chrono>
#include <cstdlib>
#include <gdk/gdkkeysyms.h>
#include <memory>
#include <string>
#include <sys/statvfs.h>
#include <vector>

namespace {

using drives::Drive;
using drives::Kind;
using test_env::painted_text;
using test_env::PaintedText;

constexpr double kBarTop = 94 + 28;
constexpr double kButtonBottom = kBarTop + 4 + 26;
constexpr double kListTop = kButtonBottom + 2;

class AppDrives : public PanePaint {
  protected:
    // The frame shows the sizes that a refresh has found.
    void start_measured() {
        start();
        drives::shutdown_wait(20000);
        frame();
    }
    void repaint() {
        test_env::forget_painted();
        frame();
    }
    const std::vector<Drive>& shown() { return app().m_frame_drives; }
    int index_of(const std::string& path) {
        for (size_t i = 0; i < shown().size(); ++i)
            if (shown()[i].path == path)
                return static_cast<int>(i);
        return -1;
    }
    App::HitRect button(int side) { return hit(App::Hit::DrivePicker, -1, side); }
    App::HitRect item(int index) { return hit(App::Hit::DriveItem, index); }
    void open_list(int side) {
        click(button(side));
        ASSERT_EQ(app().m_open_drive_picker, side);
    }
    static int64_t free_of(const std::string& path) {
        struct statvfs vfs = {};
        return statvfs(path.c_str(), &vfs) == 0 ? static_cast<int64_t>(vfs.f_bavail * vfs.f_frsize)
                                                : -1;
    }
    static std::string root_label() { return std::string(tr("drive.system")) + " (/)"; }
    // The text whose right edge is there, in that line.
    static const PaintedText* text_ending_at(double right, double y) {
        for (const PaintedText& text : test_env::painted_texts())
            if (std::abs(text.x + text.width - right) < 0.6 && std::abs(text.y - y) < 0.6)
                return &text;
        return nullptr;
    }
    static const PaintedText* text_at(double x, double y) {
        for (const PaintedText& text : test_env::painted_texts())
            if (std::abs(text.x - x) < 0.01 && std::abs(text.y - y) < 0.6)
                return &text;
        return nullptr;
    }
    // Work that lasts until it is cancelled.
    void begin_task() {
        ASSERT_TRUE(
            BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
                while (reporter.keep_going())
                    g_usleep(1000);
            }));
    }
};

// Drives beside those of the machine: one that can fail, shown at as many places as are wanted.
class ManyDrives : public AppDrives {
  protected:
    bool mount_many(int count) {
        m_disk = std::make_unique<faultfs::FaultFs>();
        if (!m_disk->ok())
            return false;
        for (int i = 0; i < count; ++i) {
            const std::string point = m_points / ("disk" + std::to_string(100 + i));
            test_env::make_dirs(point);
            m_binds.push_back(std::make_unique<mounts_fixture::Bind>(m_disk->path(), point));
            if (!m_binds.back()->ok())
                return false;
        }
        return true;
    }
    std::string point(int i) const { return m_binds[static_cast<size_t>(i)]->path(); }
    faultfs::FaultFs& disk() { return *m_disk; }
    void unplug(int i) { m_binds[static_cast<size_t>(i)]->unmount(); }

  private:
    test_env::TempDir m_points;
    std::unique_ptr<faultfs::FaultFs> m_disk;
    std::vector<std::unique_ptr<mounts_fixture::Bind>> m_binds;
};

#define REQUIRE_DRIVES(count)                                                                      \
    do {                                                                                           \
        if (!mount_many(count))                                                                    \
            GTEST_SKIP() << "mounts need root and FUSE";                                           \
    } while (false)

// --- Bar --------------------------------------------------------------------------------------

TEST_F(AppDrives, the_button_and_the_pencil_share_the_bar) {
    start();
    for (const int side : {0, 1}) {
        const double x = side ? kRight : 0;
        const App::HitRect drive = button(side);
        EXPECT_EQ(drive.x, x + 10);
        EXPECT_EQ(drive.y, kBarTop + 4);
        EXPECT_EQ(drive.w, 508 - 20 - 30 - 6);
        EXPECT_EQ(drive.h, 26);
        const App::HitRect path = hit(App::Hit::PathEdit, -1, side);
        EXPECT_EQ(path.x, drive.x + drive.w + 6);
        EXPECT_EQ(path.x + path.w, x + 508 - 10);
        EXPECT_EQ(path.y, drive.y);
        EXPECT_EQ(path.w, 30);
        EXPECT_EQ(path.h, 26);
        const Palette& p = app().m_palette;
        EXPECT_EQ(at(drive.x + 4, drive.y + 13), p.control);
        EXPECT_EQ(at(drive.x + 200, drive.y), p.control_edge);
        EXPECT_EQ(at(path.x + 3, path.y + 13), p.control);
        EXPECT_EQ(at(x + 250, kBarTop + 2), p.bar);
        EXPECT_EQ(at(x + 250, kBarTop + 32), p.bar);
    }
}

TEST_F(AppDrives, a_path_on_no_known_drive_falls_to_the_root_with_its_free_space) {
    start_measured();
    if (drives::holder_of(shown(), left())->path != "/")
        GTEST_SKIP() << "the tests' folder is a mount of its own";
    repaint();
    const double centre = kBarTop + 17;
    const PaintedText* const label = text_at(20, centre);
    ASSERT_TRUE(label);
    EXPECT_EQ(label->text, root_label());
    EXPECT_EQ(label->size, 12.5);
    EXPECT_EQ(label->color, app().m_palette.text);
    const PaintedText* const space = text_ending_at(462 - 22, centre);
    ASSERT_TRUE(space);
    EXPECT_EQ(space->text, fmt::bytes(shown()[static_cast<size_t>(index_of("/"))].free_bytes) +
                               " " + tr("label.free"));
    EXPECT_NEAR(static_cast<double>(shown()[static_cast<size_t>(index_of("/"))].free_bytes),
                static_cast<double>(free_of("/")), 512.0 * (1 << 20));
    EXPECT_EQ(space->size, 11);
    EXPECT_EQ(space->color, app().m_palette.secondary);
}

TEST_F(AppDrives, a_chevron_points_down_at_the_right_edge) {
    start();
    const App::HitRect drive = button(0);
    const double tip = drive.x + drive.w - 14;
    const double centre = drive.y + 13;
    const Palette& p = app().m_palette;
    const auto dark = [&](double x, double y) { return at(x, y) != p.control; };
    EXPECT_TRUE(dark(tip - 1, centre + 1) || dark(tip, centre + 1));
    EXPECT_TRUE(dark(tip - 4, centre - 2));
    EXPECT_TRUE(dark(tip + 3, centre - 2));
    EXPECT_FALSE(dark(tip, centre - 2)) << "open at the top";
    EXPECT_FALSE(dark(tip - 7, centre));
    EXPECT_FALSE(dark(tip + 6, centre));
}

TEST_F(ManyDrives, the_free_space_gives_way_to_a_label_that_needs_the_room) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_DRIVES(1);
    start_measured();
    pane().navigate_to(point(0), false);
    repaint();
    const std::string space =
        fmt::bytes(shown()[static_cast<size_t>(index_of(point(0)))].free_bytes) + " " +
        tr("label.free");
    ASSERT_GT(shown()[static_cast<size_t>(index_of(point(0)))].free_bytes, 0);
    EXPECT_TRUE(painted_text(space));
    EXPECT_TRUE(painted_text("disk100"));
    // Pane by pane narrower, until one of both has to go.
    bool gone = false;
    for (int w = 1100; w >= 300; w -= 20) {
        test_env::forget_painted();
        frame(w, 720);
        const App::HitRect drive = button(0);
        const PaintedText* const label = text_at(drive.x + 10, drive.y + 13);
        const PaintedText* const number = text_ending_at(drive.x + drive.w - 22, drive.y + 13);
        if (number)
            EXPECT_LE(label->x + label->width, number->x) << w;
        else
            gone = true;
        EXPECT_FALSE(gone && number) << w;
    }
    EXPECT_TRUE(gone);
}

TEST_F(ManyDrives, a_free_space_that_is_not_known_is_not_shown) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_DRIVES(1);
    disk().set(faultfs::fail("statfs", EIO));
    start_measured();
    pane().navigate_to(point(0), false);
    repaint();
    const App::HitRect drive = button(0);
    EXPECT_TRUE(painted_text("disk100"));
    EXPECT_FALSE(text_ending_at(drive.x + drive.w - 22, drive.y + 13));
    open_list(0);
    repaint();
    const App::HitRect row = item(index_of(point(0)));
    EXPECT_TRUE(text_at(row.x + 34, row.y + 8));
    EXPECT_FALSE(text_ending_at(row.x + row.w - 10, row.y + 15));
}

TEST_F(AppDrives, both_buttons_are_hovered_on_their_side_alone) {
    start();
    for (const App::Hit what : {App::Hit::DrivePicker, App::Hit::PathEdit}) {
        for (const int side : {0, 1}) {
            const App::HitRect rect = hit(what, -1, side);
            const App::HitRect other = hit(what, -1, 1 - side);
            app().handle_motion(rect.x + 3, rect.y + 13);
            frame();
            EXPECT_EQ(at(rect.x + 4, rect.y + 13), app().m_palette.control_hover);
            EXPECT_EQ(at(other.x + 4, other.y + 13), app().m_palette.control);
        }
    }
}

TEST_F(AppDrives, the_pencil_opens_the_path_field_of_its_side) {
    start();
    const App::HitRect pencil = hit(App::Hit::PathEdit, -1, 1);
    EXPECT_TRUE(painted(static_cast<int>(pencil.x) + 8, static_cast<int>(pencil.y) + 6, 14, 14));
    click(pencil);
    EXPECT_EQ(app().m_path_edit, 1);
    EXPECT_TRUE(app().m_active_right);
    const Palette& p = app().m_palette;
    EXPECT_EQ(at(pencil.x + 3, pencil.y + 13), p.accent);
    EXPECT_EQ(at(pencil.x + 15, pencil.y), p.accent);
    const App::HitRect other = hit(App::Hit::PathEdit, -1, 0);
    EXPECT_EQ(at(other.x + 3, other.y + 13), p.control);
}

TEST_F(AppDrives, the_pencil_ends_a_rename) {
    test_env::write_file(left() + "/old", "x");
    start();
    put_cursor_on("old");
    key(GDK_KEY_F2);
    key(GDK_KEY_Home);
    key('n');
    click(hit(App::Hit::PathEdit, -1, 0));
    EXPECT_FALSE(pane().renaming());
    EXPECT_TRUE(test_env::exists(left() + "/nold"));
    EXPECT_EQ(app().m_path_edit, 0);
}

// --- Opening and closing ----------------------------------------------------------------------

TEST_F(AppDrives, the_button_opens_and_closes_its_list) {
    start();
    EXPECT_EQ(count_hits(App::Hit::DriveItem), 0U);
    for (const int side : {0, 1}) {
        open_list(side);
        EXPECT_EQ(count_hits(App::Hit::DriveItem), shown().size());
        EXPECT_EQ(at(button(side).x + 4, button(side).y + 13), app().m_palette.control_hover);
        click(button(side));
        EXPECT_EQ(app().m_open_drive_picker, -1);
        EXPECT_EQ(count_hits(App::Hit::DriveItem), 0U);
    }
    EXPECT_FALSE(app().m_active_right) << "opening it makes no side active";
}

TEST_F(AppDrives, the_other_sides_button_switches_to_that_list) {
    start();
    open_list(0);
    EXPECT_LT(item(0).x, kRight);
    click(button(1));
    EXPECT_EQ(app().m_open_drive_picker, 1);
    EXPECT_EQ(item(0).x, kRight + 10);
    click(button(0));
    EXPECT_EQ(app().m_open_drive_picker, 0);
    EXPECT_EQ(item(0).x, 10);
}

TEST_F(AppDrives, a_click_elsewhere_closes_the_list_and_acts_on_nothing_else) {
    for (const std::string& side : {left(), right()})
        for (int i = 0; i < 12; ++i)
            test_env::write_file(side + "/file" + std::to_string(i), "x");
    start();
    open_list(0);
    click(hit(App::Hit::PaneRow, 2, 1));
    EXPECT_EQ(app().m_open_drive_picker, -1);
    EXPECT_FALSE(app().m_active_right);
    EXPECT_TRUE(selected_names(true).empty());
    // On nothing at all, too: the dark band has no meaning.
    open_list(0);
    ASSERT_EQ(app().hit_test(400, 60), nullptr);
    click(400, 60);
    EXPECT_EQ(app().m_open_drive_picker, -1);
    // And with any button.
    open_list(1);
    click(hit(App::Hit::PaneRow, 1, 0), 3);
    EXPECT_EQ(app().m_open_drive_picker, -1);
    EXPECT_TRUE(selected_names().empty());
}

// The press that closes the list is none of the two that make a double click.
TEST_F(AppDrives, a_double_click_that_closes_the_list_opens_no_folder) {
    test_env::make_dirs(right() + "/folder");
    start();
    open_list(0);
    const App::HitRect row = hit(App::Hit::PaneRow, 1, 1);
    double_click(row);
    EXPECT_EQ(pane(true).path(), right());
    double_click(row);
    EXPECT_EQ(pane(true).path(), right() + "/folder");
}

TEST_F(AppDrives, escape_closes_the_list_and_other_keys_go_on) {
    for (int i = 0; i < 3; ++i)
        test_env::write_file(left() + "/file" + std::to_string(i), "x");
    start();
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    ASSERT_FALSE(selected_names().empty());
    open_list(0);
    key(GDK_KEY_Down);
    EXPECT_EQ(app().m_open_drive_picker, 0);
    EXPECT_EQ(pane().cursor(), 1);
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    key(GDK_KEY_Escape);
    EXPECT_EQ(app().m_open_drive_picker, -1);
    EXPECT_FALSE(selected_names().empty()) << "Escape means one thing at a time";
}

TEST_F(AppDrives, running_work_leaves_button_pencil_and_list_alone) {
    start();
    open_list(0);
    const int home = index_of(test_env::root() + "/home");
    ASSERT_GE(home, 0);
    begin_task();
    frame();
    const App::HitRect drive = item(home);  // the progress has moved it
    click(drive);
    EXPECT_EQ(app().m_open_drive_picker, 0) << "nothing closes";
    EXPECT_EQ(pane().path(), left());
    click(button(1));
    EXPECT_EQ(app().m_open_drive_picker, 0);
    click(hit(App::Hit::PathEdit, -1, 1));
    EXPECT_EQ(app().m_path_edit, -1);
    EXPECT_EQ(app().m_open_drive_picker, 0);
    key(GDK_KEY_Escape);
    EXPECT_EQ(app().m_open_drive_picker, -1) << "Escape closes it before it cancels the work";
    EXPECT_TRUE(App::busy());
    click(button(1));
    EXPECT_EQ(app().m_open_drive_picker, -1);
    BgTask::instance().cancel();
    settle();
}

// --- The list ---------------------------------------------------------------------------------

TEST_F(AppDrives, the_list_stands_below_its_button_and_lies_over_the_panes) {
    for (int i = 0; i < 20; ++i)
        test_env::write_file(left() + "/file" + std::to_string(i), "x");
    start();
    for (const int side : {0, 1}) {
        open_list(side);
        const double x = button(side).x;
        const double w = button(side).w;
        const int count = static_cast<int>(shown().size());
        for (int i = 0; i < count; ++i) {
            const App::HitRect row = item(i);
            EXPECT_EQ(row.x, x);
            EXPECT_EQ(row.y, kListTop + 4 + 30 * i);
            EXPECT_EQ(row.w, w);
            EXPECT_EQ(row.h, 30);
            EXPECT_EQ(app().hit_test(row.x + 5, row.y + 5)->what, App::Hit::DriveItem);
        }
        const Palette& p = app().m_palette;
        const double bottom = kListTop + 30 * count + 8;
        EXPECT_EQ(at(x + 200, kListTop), p.menu_border);
        EXPECT_EQ(at(x + 200, bottom - 1), p.menu_border);
        EXPECT_EQ(at(x, kListTop + 20), p.menu_border);
        EXPECT_EQ(at(x + w - 1, kListTop + 20), p.menu_border);
        EXPECT_EQ(at(x + 200, kListTop + 2), p.menu_bg);
        click(button(side));
        const std::string bare = at(x + 200, bottom + 1);
        open_list(side);
        expect_near(at(x + 200, bottom + 1), over("#000000", 0.12, bare), "shadow below");
        EXPECT_EQ(at(x + 200, bottom + 3), bare) << "offset by 3";
        click(button(side));
    }
}

TEST_F(AppDrives, a_dialogue_closes_the_list_below_it) {
    start();
    open_list(0);
    key(GDK_KEY_F7);
    EXPECT_EQ(app().m_overlay, App::Overlay::NewFolder);
    EXPECT_EQ(app().m_open_drive_picker, -1);
    frame();
    EXPECT_EQ(count_hits(App::Hit::DriveItem), 0U);
    // So the first click on the dialogue is the dialogue's.
    click(hit(App::Hit::Overlay, static_cast<int>(Action::OverlayCancel)));
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

// The second press of a double click comes before the next frame when the first one took its time.
TEST_F(AppDrives, a_list_that_has_gone_takes_no_click) {
    start();
    const int home = index_of(test_env::root() + "/home");
    ASSERT_GE(home, 0);
    open_list(1);
    const App::HitRect drive = item(home);
    app().handle_click(drive.x + 50, drive.y + 15, 1, 0, 1);
    EXPECT_EQ(pane(true).path(), test_env::root() + "/home");
    EXPECT_EQ(app().m_open_drive_picker, -1);
    app().handle_click(drive.x + 50, drive.y + 15, 1, 0, 1);
    EXPECT_EQ(pane(false).path(), left());
    EXPECT_TRUE(app().m_active_right);
    // Whatever has closed it.
    frame();
    open_list(1);
    app().handle_click(400, 60, 1, 0, 1);
    app().handle_click(drive.x + 50, drive.y + 15, 1, 0, 1);
    EXPECT_EQ(pane(false).path(), left());
}

TEST_F(AppDrives, a_row_shows_label_path_and_numbers) {
    start_measured();
    open_list(0);
    repaint();
    for (size_t i = 0; i < shown().size(); ++i) {
        const Drive& drive = shown()[i];
        const App::HitRect row = item(static_cast<int>(i));
        const double centre = row.y + 15;
        const PaintedText* const label = text_at(row.x + 34, centre - 7);
        ASSERT_TRUE(label) << drive.path;
        EXPECT_EQ(label->text, drive.label);
        EXPECT_EQ(label->size, 12.5);
        EXPECT_EQ(label->color, app().m_palette.text);
        const PaintedText* const path = text_at(row.x + 34, centre + 7);
        ASSERT_TRUE(path) << drive.path;
        EXPECT_EQ(path->text, drive.path);
        EXPECT_EQ(path->size, 11);
        EXPECT_EQ(path->color, app().m_palette.dim);
        const PaintedText* const numbers = text_ending_at(row.x + row.w - 10, centre);
        ASSERT_EQ(numbers != nullptr, drive.total_bytes > 0) << drive.path;
        if (!numbers)
            continue;
        EXPECT_EQ(numbers->text, fmt::bytes(drive.free_bytes) + " / " +
                                     fmt::bytes(drive.total_bytes) + " " + tr("label.free"));
        EXPECT_EQ(numbers->size, 11);
        EXPECT_EQ(numbers->color, app().m_palette.secondary);
    }
    EXPECT_GT(shown().front().total_bytes, 0);
}

TEST_F(AppDrives, label_and_path_leave_the_numbers_their_room) {
    start_measured();
    open_list(0);
    const int home = index_of(test_env::root() + "/home");
    ASSERT_GE(home, 0);
    for (const int width : {800, 420}) {
        test_env::forget_painted();
        AppTest::frame(width, 600);
        const App::HitRect row = item(home);
        const PaintedText* const path = text_at(row.x + 34, row.y + 22);
        const PaintedText* const numbers = text_ending_at(row.x + row.w - 10, row.y + 15);
        ASSERT_TRUE(path) << width;
        EXPECT_TRUE(path->cut) << width;
        // Where hardly anything would be left to the names, there are no numbers.
        EXPECT_EQ(numbers != nullptr, width == 800);
        EXPECT_LE(path->x + path->width, numbers ? numbers->x - 9 : row.x + row.w - 9) << width;
    }
}

TEST_F(ManyDrives, a_rule_stands_between_two_kinds_and_nowhere_else) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_DRIVES(2);
    start_measured();
    open_list(0);
    const Palette& p = app().m_palette;
    int rules = 0;
    for (size_t i = 0; i < shown().size(); ++i) {
        const App::HitRect row = item(static_cast<int>(i));
        const bool wanted = i > 0 && shown()[i - 1].kind != shown()[i].kind;
        rules += wanted ? 1 : 0;
        EXPECT_EQ(at(row.x + 8, row.y), wanted ? p.divider : p.menu_bg) << i;
        EXPECT_EQ(at(row.x + row.w - 9, row.y), wanted ? p.divider : p.menu_bg) << i;
        EXPECT_EQ(at(row.x + 7, row.y), p.menu_bg) << "8 in";
        EXPECT_EQ(at(row.x + row.w - 8, row.y), p.menu_bg) << "8 in";
        EXPECT_EQ(at(row.x + 8, row.y + 1), p.menu_bg) << "1 high";
    }
    EXPECT_GE(rules, 2);
}

TEST_F(ManyDrives, the_dot_tells_the_kind_and_is_white_under_the_pointer) {
    REQUIRE_FRESH_PROCESS();
    test_env::make_dirs(test_env::root() + "/home/Music");
    test_env::write_file(test_env::root() + "/config/user-dirs.dirs",
                         "XDG_MUSIC_DIR=\"$HOME/Music\"\n");
    REQUIRE_DRIVES(1);
    ASSERT_TRUE(test_env::mount_tmpfs("/mnt"));
    test_env::make_dirs("/mnt/stick");
    ASSERT_TRUE(test_env::mount_bind(disk().path(), "/mnt/stick"));
    ASSERT_TRUE(test_env::mount_tmpfs("/run/user"));
    test_env::make_dirs("/run/user/" + std::to_string(getuid()) + "/gvfs/smb-share:server=nas");
    start_measured();
    for (const Palette& p : {Palette::light(), Palette::dark_()}) {
        app().m_palette = p;
        open_list(0);
        bool seen[6] = {};
        for (size_t i = 0; i < shown().size(); ++i) {
            const Kind kind = shown()[i].kind;
            seen[static_cast<size_t>(kind)] = true;
            const std::string wanted = kind == Kind::Home        ? p.accent
                                       : kind == Kind::Bookmark  ? p.link_text
                                       : kind == Kind::Removable ? p.warn
                                       : kind == Kind::Network   ? p.exec_text
                                                                 : p.secondary;
            const App::HitRect row = item(static_cast<int>(i));
            EXPECT_EQ(at(row.x + 14, row.y + 15), wanted) << shown()[i].path;
            EXPECT_EQ(at(row.x + 14, row.y + 12), wanted) << "radius 4";
            EXPECT_EQ(at(row.x + 14, row.y + 20), p.menu_bg) << "radius 4";
            app().handle_motion(row.x + 100, row.y + 15);
            frame();
            EXPECT_EQ(app().m_drive_hover, static_cast<int>(i));
            EXPECT_EQ(at(row.x + 14, row.y + 15), "#FFFFFF");
            EXPECT_EQ(at(row.x + 3, row.y + 15), p.menu_hover) << "inset by 2";
            EXPECT_EQ(at(row.x + 1, row.y + 15), p.menu_bg) << "inset by 2";
            EXPECT_EQ(at(row.x + 25, row.y + 1), p.menu_bg) << "inset by 2";
            app().handle_leave();
            frame();
            EXPECT_EQ(app().m_drive_hover, -1);
            EXPECT_EQ(at(row.x + 3, row.y + 15), p.menu_bg);
        }
        for (const bool kind : seen)
            EXPECT_TRUE(kind);
        click(button(0));
    }
}

TEST_F(AppDrives, hovering_follows_from_row_to_row_and_ends_beside_the_list) {
    start();
    ASSERT_GE(shown().size(), 2U);
    open_list(0);
    const App::HitRect first = item(0);
    const App::HitRect second = item(1);
    app().handle_motion(first.x + 5, first.y + 29);
    EXPECT_EQ(app().m_drive_hover, 0);
    app().handle_motion(second.x + 5, second.y);
    EXPECT_EQ(app().m_drive_hover, 1);
    app().handle_motion(700, 60);
    EXPECT_EQ(app().m_drive_hover, -1);
    app().handle_motion(second.x + 5, second.y);
    app().handle_leave();
    EXPECT_EQ(app().m_drive_hover, -1);
    EXPECT_EQ(app().hovered(), nullptr);
}

// The list covers what lies below it with its edges, too.
TEST_F(AppDrives, nothing_shines_through_the_edges_of_the_list) {
    start();
    for (const int side : {0, 1}) {
        open_list(side);
        const App::Rect list = app().m_drive_list;
        int lit = 0;
        for (const double y : {list.y + 1, list.y + list.h - 2})
            for (double x = list.x + 1; x < list.x + list.w; x += 3) {
                app().handle_motion(x, y);
                lit += app().hovered() && app().hovered()->what != App::Hit::None;
                EXPECT_EQ(app().m_cursor_name, nullptr) << x << " " << y;
            }
        EXPECT_EQ(lit, 0);
        click(list.x + 30, list.y + 1);
        EXPECT_EQ(app().m_open_drive_picker, -1);
        EXPECT_EQ(app().m_path_edit, -1);
    }
}

// --- Choosing ---------------------------------------------------------------------------------

TEST_F(AppDrives, a_choice_leads_the_lists_pane_there_makes_it_active_and_closes) {
    start();
    const std::string home = test_env::root() + "/home";
    open_list(1);
    click(item(index_of(home)));
    EXPECT_EQ(pane(true).path(), home);
    EXPECT_EQ(pane().path(), left());
    EXPECT_TRUE(app().m_active_right);
    EXPECT_EQ(app().m_open_drive_picker, -1);
    open_list(0);
    click(item(index_of("/")));
    EXPECT_EQ(pane().path(), "/");
    EXPECT_FALSE(app().m_active_right);
    repaint();
    EXPECT_TRUE(text_at(20, kBarTop + 17));
    EXPECT_EQ(text_at(20, kBarTop + 17)->text, root_label());
    EXPECT_EQ(text_at(kRight + 20, kBarTop + 17)->text, tr("drive.home"));
}

TEST_F(ManyDrives, a_disk_plugged_in_appears_when_the_list_opens) {
    REQUIRE_FRESH_PROCESS();
    ASSERT_EQ(mounts_fixture::enter_namespace(), "");
    start_measured();
    REQUIRE_DRIVES(1);
    frame();
    EXPECT_LT(index_of(point(0)), 0);
    click(button(0));
    EXPECT_TRUE(pump_until([&] {
        frame();
        return index_of(point(0)) >= 0;
    }));
}

TEST_F(ManyDrives, a_disk_plugged_in_appears_when_the_panes_are_reread) {
    REQUIRE_FRESH_PROCESS();
    ASSERT_EQ(mounts_fixture::enter_namespace(), "");
    start_measured();
    REQUIRE_DRIVES(1);
    key(GDK_KEY_r, GDK_CONTROL_MASK);
    EXPECT_TRUE(pump_until([&] {
        frame();
        return index_of(point(0)) >= 0;
    }));
}

TEST_F(ManyDrives, the_drive_that_was_painted_is_the_one_that_is_chosen) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_DRIVES(3);
    start_measured();
    open_list(0);
    drives::shutdown_wait(20000);
    const App::HitRect second = item(index_of(point(1)));
    const App::HitRect third = item(index_of(point(2)));
    // Between frame and click the first of them goes, so that all others move up.
    unplug(0);
    drives::refresh();
    drives::shutdown_wait(20000);
    app().handle_click(second.x + 5, second.y + 5, 1, 0, 1);
    EXPECT_EQ(pane().path(), point(1));
    // And one that has gone itself leads nowhere.
    frame();
    open_list(0);
    drives::shutdown_wait(20000);
    const App::HitRect row = item(index_of(point(2)));
    EXPECT_EQ(row.y, third.y - 30);
    unplug(2);
    drives::refresh();
    drives::shutdown_wait(20000);
    app().handle_click(row.x + 5, row.y + 5, 1, 0, 1);
    EXPECT_EQ(pane().path(), point(1));
    EXPECT_EQ(app().m_open_drive_picker, -1);
}

TEST_F(AppDrives, an_index_beyond_the_list_is_ignored) {
    start();
    open_list(0);
    app().click_drive_item(static_cast<int>(shown().size()));
    EXPECT_EQ(pane().path(), left());
    EXPECT_EQ(app().m_open_drive_picker, -1);
    open_list(0);
    app().click_drive_item(-1);
    EXPECT_EQ(pane().path(), left());
}

// --- A list that is taller than its room ------------------------------------------------------

TEST_F(ManyDrives, a_tall_list_ends_in_the_window_and_scrolls_with_the_wheel) {
    REQUIRE_FRESH_PROCESS();
    for (int i = 0; i < 60; ++i)
        test_env::write_file(left() + "/file" + std::to_string(i), "x");
    REQUIRE_DRIVES(25);
    start_measured();
    open_list(0);
    const int count = static_cast<int>(shown().size());
    // 34 and 20 less than what is below the button.
    const double bottom = kListTop + (720 - kButtonBottom - 34 - 20);
    EXPECT_EQ(at(210, bottom - 1), app().m_palette.menu_border);
    const int page = static_cast<int>((bottom - kListTop - 8) / 30);
    ASSERT_GT(count, page);
    const auto below = [&] {
        for (const App::HitRect& rect : all(App::Hit::DriveItem, 0))
            if (rect.y < kListTop + 4 || rect.y + rect.h > bottom - 4)
                return false;
        return true;
    };
    EXPECT_TRUE(below());
    app().handle_motion(100, kListTop + 4 + 45);
    EXPECT_EQ(app().m_drive_hover, 1);
    app().handle_scroll(100, GDK_SCROLL_DOWN, 0);
    frame();
    EXPECT_EQ(item(3).y, kListTop + 4);
    EXPECT_EQ(app().m_drive_hover, 4) << "the row that is now under the pointer";
    EXPECT_EQ(pane().scroll(), 0) << "what lies below stays";
    for (int i = 0; i < 20; ++i)
        app().handle_scroll(100, GDK_SCROLL_DOWN, 0);
    frame();
    EXPECT_EQ(item(count - 1).h, 30) << "the last one is whole";
    EXPECT_EQ(item(count - page).y, kListTop + 4) << "and the page is full";
    EXPECT_TRUE(below());
    app().handle_scroll(100, GDK_SCROLL_UP, 0);
    frame();
    EXPECT_EQ(item(count - page - 3).y, kListTop + 4) << "no turn is lost at the end";
    app().handle_scroll(100, GDK_SCROLL_SMOOTH, -0.1);
    frame();
    EXPECT_EQ(item(count - page - 4).y, kListTop + 4) << "a slow touchpad moves it too";
    // Beside the list the wheel is the pane's.
    app().handle_motion(480, 500);
    app().handle_scroll(480, GDK_SCROLL_DOWN, 0);
    frame();
    EXPECT_EQ(pane().scroll(), 3);
    EXPECT_EQ(item(count - page - 4).y, kListTop + 4);
    // A new opening begins at the top.
    click(button(0));
    open_list(0);
    EXPECT_EQ(item(0).y, kListTop + 4);
    for (int i = 0; i < 9; ++i)
        app().handle_scroll(480, GDK_SCROLL_UP, 0);
    app().handle_motion(100, kListTop + 4 + 45);
    for (int i = 0; i < 9; ++i)
        app().handle_scroll(100, GDK_SCROLL_UP, 0);
    app().handle_scroll(100, GDK_SCROLL_DOWN, 0);
    frame();
    EXPECT_EQ(item(3).y, kListTop + 4) << "nor at the beginning";
    shot("drives_tall");
    // A thumb tells where it is.
    const Palette& p = app().m_palette;
    const double thumb_x = button(0).x + button(0).w - 4;
    EXPECT_EQ(at(thumb_x, kListTop + 6), p.menu_bg);
    EXPECT_NE(at(thumb_x, kListTop + 200), p.menu_bg);
    app().handle_scroll(100, GDK_SCROLL_UP, 0);
    frame();
    EXPECT_NE(at(thumb_x, kListTop + 6), p.menu_bg);
    // A row that the list's end cuts does not run over its edge.
    const auto below_list = [&] {
        AppTest::frame(1100, 712);
        const App::Rect list = app().m_drive_list;
        EXPECT_LT(kListTop + 4 + 30 * page + 5, list.y + list.h - 4);
        std::string pixels;
        for (int y = static_cast<int>(list.y + list.h); y < 690; ++y)
            for (int x = 10; x < 400; ++x)
                pixels += pixel(x, y);
        return pixels;
    };
    const std::string before = below_list();
    for (int i = 0; i < 3; ++i) {
        app().handle_scroll(100, GDK_SCROLL_SMOOTH, 0.1);
        EXPECT_EQ(below_list(), before) << i;
    }
}

TEST_F(AppDrives, a_list_that_fits_does_not_scroll_and_keeps_the_wheel) {
    for (int i = 0; i < 60; ++i)
        test_env::write_file(left() + "/file" + std::to_string(i), "x");
    start();
    open_list(0);
    const App::HitRect first = item(0);
    app().handle_motion(first.x + 5, first.y + 5);
    app().handle_scroll(first.x + 5, GDK_SCROLL_DOWN, 0);
    frame();
    EXPECT_EQ(item(0).y, first.y);
    EXPECT_EQ(app().m_drive_hover, 0) << "the row under the pointer is still the first one";
    EXPECT_EQ(pane().scroll(), 0);
    // Above and below it the wheel is the pane's.
    for (const double y : {app().m_drive_list.y - 1, app().m_drive_list.y + app().m_drive_list.h}) {
        app().handle_motion(first.x + 5, y);
        app().handle_scroll(first.x + 5, GDK_SCROLL_DOWN, 0);
        EXPECT_EQ(pane().scroll(), 3) << y;
        app().handle_scroll(first.x + 5, GDK_SCROLL_UP, 0);
    }
    key(GDK_KEY_Escape);
    app().handle_scroll(first.x + 5, GDK_SCROLL_DOWN, 0);
    EXPECT_EQ(pane().scroll(), 3);
}

// --- A disk that hangs ------------------------------------------------------------------------

TEST_F(ManyDrives, a_disk_that_hangs_delays_no_start_no_frame_and_the_end_by_half_a_second) {
    REQUIRE_FRESH_PROCESS();
    REQUIRE_DRIVES(1);
    disk().set(faultfs::stall("statfs", 1, -1));
    double began = App::now_seconds();
    start();
    EXPECT_LT(App::now_seconds() - began, 5);
    ASSERT_TRUE(disk().wait_stalled(1));
    began = App::now_seconds();
    click(button(0));
    frame();
    EXPECT_LT(App::now_seconds() - began, 1);
    EXPECT_GE(index_of(point(0)), 0) << "its name is there";
    click(button(0));
    drives::shutdown_wait(20000);
    disk().clear();
    ASSERT_TRUE(pump_until([this] { return disk().stalled() == 0; }));
    disk().set(faultfs::stall("statfs", 1, -1));
    drives::shutdown_wait(20000);
    g_usleep(50000);
    drives::refresh();
    ASSERT_TRUE(disk().wait_stalled(1));
    began = App::now_seconds();
    finish();
    EXPECT_GT(App::now_seconds() - began, 0.4);
    EXPECT_LT(App::now_seconds() - began, 0.9);
    disk().release();
}

}  // namespace
