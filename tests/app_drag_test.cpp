// What is held and pulled: column edges, scrollbars, the grip of a dialogue.

#include "app_pointer.h"

#include "app_redraw.h"
#include "logger.h"

#include <cmath>

namespace {

using test_env::exists;
using test_env::read_file;
using test_env::write_file;

class AppDrag : public AppPointer {
  protected:
    static std::string stored() {
        const std::string path = config_file("settings.json");
        return exists(path) ? read_file(path) : "";
    }
    static bool stored(const std::string& line) {
        return stored().find("\"" + line + ",") != std::string::npos;
    }
    void move(double x, double y) {
        app().handle_motion(x, y);
        frame();
    }
    static double centre(const App::HitRect& rect) { return rect.x + rect.w / 2; }
    App::HitRect edge(int column, int side = 0) {
        for (const App::HitRect& rect : app().m_hits)
            if (rect.what == App::Hit::ColumnResize && rect.param == column &&
                rect.right == (side == 1))
                return rect;
        ADD_FAILURE() << "no edge of column " << column;
        return {};
    }
    App::HitRect thumb(int side = 0) { return hit(App::Hit::ScrollThumb, -1, side); }
    void all_columns() {
        for (int i = 0; i < 7; ++i)
            set_column_enabled(settings(), static_cast<ColumnId>(i), true);
        frame();
    }
};

// --- Columns ----------------------------------------------------------------------------------

TEST_F(AppDrag, the_width_of_a_column_is_the_users_or_its_own) {
    start();
    const double own[] = {78, 66, 104, 104, 82, 78, 78};
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(app().column_width_now(i, false), own[i]) << i;
    int Settings::*const fields[] = {
        &Settings::col_w_size,    &Settings::col_w_type,        &Settings::col_w_modified,
        &Settings::col_w_created, &Settings::col_w_permissions, &Settings::col_w_owner,
        &Settings::col_w_group,
    };
    for (int i = 0; i < 7; ++i) {
        app().set_column_width(i, 200.9 + i);
        EXPECT_EQ(settings().*fields[i], 200 + i);
        EXPECT_EQ(app().column_width_now(i, true), 200 + i);
    }
}

TEST_F(AppDrag, a_width_is_cut_to_40_and_900) {
    start();
    for (const int column : {-1, 0, 3, 6}) {
        const auto set_to = [&](double width) {
            app().set_column_width(column, width);
            frame();
            return column == -1 ? settings().col_w_name
                                : static_cast<int>(app().column_width_now(column, false));
        };
        EXPECT_EQ(set_to(-1e9), 40);
        EXPECT_EQ(set_to(39.9), 40);
        EXPECT_EQ(set_to(40.7), 40);
        EXPECT_EQ(set_to(41), 41);
        EXPECT_EQ(set_to(899.9), 899);
        EXPECT_EQ(set_to(1e9), 900);
    }
}

TEST_F(AppDrag, the_name_is_as_wide_as_it_is_painted) {
    start_with_files(1);
    const App::HitRect name = hit(App::Hit::PaneHeader, 0, 0);
    EXPECT_EQ(app().column_width_now(-1, false), name.w);
    app().set_column_width(-1, 150);  // less than the room there is
    frame();
    EXPECT_EQ(app().column_width_now(-1, false), name.w);
    app().set_column_width(-1, 700);
    frame();
    EXPECT_EQ(app().column_width_now(-1, false), 700);
    EXPECT_EQ(app().column_width_now(-1, true), 700);
    frame(2001, 720);  // the sides differ by the odd unit
    EXPECT_EQ(app().column_width_now(-1, false), hit(App::Hit::PaneHeader, 0, 0).w);
    EXPECT_EQ(app().column_width_now(-1, true), hit(App::Hit::PaneHeader, 0, 1).w);
}

TEST_F(AppDrag, an_edge_that_is_pulled_changes_its_column_and_makes_its_side_active) {
    start_with_files(3);
    all_columns();
    for (int column = -1; column < 7; ++column) {
        settings() = Settings{};
        all_columns();
        app().m_active_right = false;
        app().m_pane_hscroll[1] = column < 1 ? 0 : 66.0 * column;  // to where it can be seen
        frame();
        const App::HitRect grip = edge(column, 1);
        const double before = app().column_width_now(column, true);
        click(grip);
        EXPECT_EQ(app().m_col_drag, column);
        EXPECT_TRUE(app().m_active_right);
        EXPECT_EQ(app().column_width_now(column, true), before);
        // The grip is what the pointer holds, wherever on it the press was.
        move(centre(grip) + 25, grip.y);
        EXPECT_EQ(app().column_width_now(column, true), std::trunc(before + 25)) << column;
        app().handle_release();
        EXPECT_EQ(app().m_col_drag, -2);
        move(centre(grip) + 90, grip.y);
        EXPECT_EQ(app().column_width_now(column, true), std::trunc(before + 25)) << column;
    }
}

TEST_F(AppDrag, a_press_off_the_grips_centre_takes_the_edge_to_the_pointer) {
    start_with_files(1);
    const App::HitRect grip = edge(0);
    app().handle_click(grip.x + 1, grip.y + 5, 1, 0, 1);
    EXPECT_EQ(app().column_width_now(0, false), 78);
    app().handle_motion(grip.x + 1, grip.y + 5);
    EXPECT_EQ(app().column_width_now(0, false), 78 - 5);
}

TEST_F(AppDrag, a_width_is_written_to_the_file_only_at_the_release) {
    start_with_files(1);
    SettingsStore::instance().save();
    ASSERT_TRUE(stored("col_w_size\": 0"));
    const App::HitRect grip = edge(0);
    click(grip);
    for (int by = 5; by <= 60; by += 5)
        move(centre(grip) + by, grip.y + 400);
    EXPECT_EQ(settings().col_w_size, 138);
    EXPECT_TRUE(stored("col_w_size\": 0"));
    app().handle_release();
    EXPECT_TRUE(stored("col_w_size\": 138"));
    // Pulled far beyond both ends.
    click(edge(0));
    move(-5000, 0);
    EXPECT_EQ(settings().col_w_size, 40);
    move(9000, 0);
    app().handle_release();
    EXPECT_TRUE(stored("col_w_size\": 900"));
}

TEST_F(AppDrag, a_plain_release_writes_nothing) {
    start_with_files(1);
    ASSERT_EQ(std::remove(config_file("settings.json").c_str()) == 0 ||
                  !exists(config_file("settings.json")),
              true);
    click_and_release(row(1));
    EXPECT_FALSE(exists(config_file("settings.json")));
}

TEST_F(AppDrag, a_press_on_an_edge_does_not_sort) {
    start_with_files(2);
    const dir_lister::SortOrder before = pane().sort_order();
    click_and_release(edge(-1));
    click_and_release(edge(0));
    EXPECT_EQ(pane().sort_order(), before);
}

// --- The horizontal scrollbar -----------------------------------------------------------------

TEST_F(AppDrag, the_horizontal_bar_goes_to_the_share_of_its_track) {
    start_with_files(3);
    all_columns();
    for (const int side : {0, 1}) {
        const App::HitRect bar = hit(App::Hit::PaneHScroll, -1, side);
        const double last = app().m_pane_content_w[side] - app().m_pane_view_w[side];
        ASSERT_GT(last, 100);
        app().handle_click(bar.x + bar.w / 4, bar.y + 9, 1, 0, 1);
        EXPECT_EQ(app().m_pane_hdrag, side);
        EXPECT_NEAR(app().m_pane_hscroll[side], last / 4, 1e-9);
        move(bar.x + bar.w / 2, -100);
        EXPECT_NEAR(app().m_pane_hscroll[side], last / 2, 1e-9);
        move(5000, 0);
        EXPECT_NEAR(app().m_pane_hscroll[side], last, 1e-9);
        move(-5000, 0);
        EXPECT_EQ(app().m_pane_hscroll[side], 0);
        EXPECT_EQ(app().m_pane_hscroll[1 - side], 0);
        app().handle_release();
        EXPECT_EQ(app().m_pane_hdrag, -1);
        move(bar.x + bar.w / 2, bar.y);
        EXPECT_EQ(app().m_pane_hscroll[side], 0);
    }
}

TEST_F(AppDrag, without_a_track_or_a_drag_the_horizontal_bar_stays) {
    start_with_files(3);
    all_columns();
    app().drag_pane_hscroll(400);
    EXPECT_EQ(app().m_pane_hscroll[0], 0);
    app().m_pane_hdrag = 0;
    app().m_pane_htrack_w[0] = 0;
    app().drag_pane_hscroll(400);
    EXPECT_EQ(app().m_pane_hscroll[0], 0);
    app().m_pane_hdrag = -1;
}

// --- The vertical thumb -----------------------------------------------------------------------

TEST_F(AppDrag, a_press_on_the_thumb_moves_nothing) {
    start_with_files(2000);  // the thumb has its least height
    const int last = 2001 - app().rows_in_view(false);
    for (const int scroll : {0, 1, 7, 500, 1000, 1500, last - 1, last}) {
        pane().set_scroll(scroll, app().rows_in_view(false));
        frame();
        const App::HitRect bar = thumb();
        for (const double at : {0.0, 1.0, bar.h / 2, bar.h - 0.5}) {
            app().handle_click(bar.x + 5, bar.y + at, 1, 0, 1);
            EXPECT_TRUE(app().m_dragging_scroll);
            app().handle_motion(bar.x + 5, bar.y + at);
            EXPECT_EQ(pane().scroll(), scroll) << at;
            app().handle_release();
        }
    }
}

TEST_F(AppDrag, the_list_follows_the_thumb) {
    start_with_files(100);
    const App::HitRect bar = thumb();
    const double track = hit(App::Hit::PaneBackground, -1, 0).h;
    ASSERT_EQ(track, 470);
    app().handle_click(bar.x + 5, bar.y + 10, 1, 0, 1);
    for (const double by : {3.0, 20.0, 100.0, 200.0, 300.0}) {
        move(bar.x + 300, bar.y + 10 + by);
        EXPECT_EQ(pane().scroll(), static_cast<int>(by / track * 101 + 0.5)) << by;
        EXPECT_NEAR(thumb().y, bar.y + by, 0.5 * track / 101 + 1e-6);  // under the pointer
    }
    move(0, 5000);
    EXPECT_EQ(pane().scroll(), 101 - app().rows_in_view(false));
    move(0, -5000);
    EXPECT_EQ(pane().scroll(), 0);
    app().handle_release();
    move(bar.x + 5, bar.y + 200);
    EXPECT_EQ(pane().scroll(), 0);
}

TEST_F(AppDrag, the_thumb_at_its_tracks_end_is_the_lists_end) {
    start_with_files(2000);
    const App::HitRect bar = thumb();
    const App::HitRect area = hit(App::Hit::PaneBackground, -1, 0);
    app().handle_click(bar.x + 5, bar.y + 3, 1, 0, 1);
    move(bar.x, area.y + area.h - bar.h + 3);
    EXPECT_EQ(pane().scroll(), 2001 - app().rows_in_view(false));
    app().handle_release();
}

TEST_F(AppDrag, the_track_is_the_painted_one_with_a_filter_bar_and_a_progress_band) {
    start_with_files(100);
    app().m_search_pane = 0;
    app().m_result.valid = true;
    frame();
    pane().set_scroll(40, app().rows_in_view(false));
    frame();
    const App::HitRect bar = thumb();
    const App::HitRect area = hit(App::Hit::PaneBackground, -1, 0);
    ASSERT_EQ(area.h, 470 - 28 - 34);
    app().handle_click(bar.x + 5, bar.y + 10, 1, 0, 1);
    app().handle_motion(bar.x + 5, bar.y + 10);
    EXPECT_EQ(pane().scroll(), 40);
    app().handle_motion(bar.x + 5, bar.y + 10 + area.h / 4);
    EXPECT_NEAR(pane().scroll(), 40 + 101 / 4.0, 0.6);
    app().handle_release();
    app().m_search_pane = -1;
}

TEST_F(AppDrag, each_side_has_its_own_thumb) {
    files(100, true);
    start_with_files(100);
    const App::HitRect bar = thumb(1);
    click(bar);
    EXPECT_FALSE(app().m_active_right);
    move(bar.x, bar.y + bar.h / 2 + 100);
    EXPECT_GT(pane(true).scroll(), 10);
    EXPECT_EQ(pane(false).scroll(), 0);
    app().handle_release();
    EXPECT_FALSE(app().m_dragging_scroll);
}

// A filter bar above one of the tracks moves that one down.
TEST_F(AppDrag, the_tracks_of_the_sides_may_start_at_different_heights) {
    files(100, true);
    start_with_files(100);
    app().m_search_pane = 1;
    frame();
    pane(true).set_scroll(40, app().rows_in_view(true));
    frame();
    const App::HitRect bar = thumb(1);
    ASSERT_NE(app().m_pane_vtrack_y[0], app().m_pane_vtrack_y[1]);
    app().handle_click(bar.x + 5, bar.y + 10, 1, 0, 1);
    app().handle_motion(bar.x + 5, bar.y + 10);
    EXPECT_EQ(pane(true).scroll(), 40);
    app().handle_release();
    app().m_search_pane = -1;
}

TEST_F(AppDrag, what_is_pulled_and_let_go_is_painted) {
    start_with_files(100);
    const App::HitRect bar = thumb();
    click(bar);
    GtkWidget* const canvas = app().m_canvas;
    (void)test_env::redraw_due(canvas);
    app().handle_motion(bar.x, bar.y + bar.h / 2 + 100);
    EXPECT_TRUE(test_env::redraw_due(canvas));
    app().handle_release();
    EXPECT_TRUE(test_env::redraw_due(canvas));
    app().handle_release();
    EXPECT_FALSE(test_env::redraw_due(canvas));
}

// A thumb that is held is darker, so that its release has to be painted, whichever it is.
TEST_F(AppDrag, every_thumb_that_is_let_go_is_painted) {
    start_with_files(100);
    all_columns();
    GtkWidget* const canvas = app().m_canvas;
    const auto release_is_painted = [&](const App::HitRect& rect) {
        click(rect);
        (void)test_env::redraw_due(canvas);
        app().handle_release();
        return test_env::redraw_due(canvas);
    };
    EXPECT_TRUE(release_is_painted(hit(App::Hit::PaneHScroll, -1, 0)));
    for (int i = 0; i < 100; ++i)
        Log::infof("%s", std::string(300, 'm').c_str());
    app().perform(Action::LogWindow, 0);
    frame();
    EXPECT_TRUE(release_is_painted(hit(App::Hit::LogVThumb)));
    EXPECT_TRUE(release_is_painted(hit(App::Hit::LogHThumb)));
    (void)test_env::redraw_due(canvas);
    app().handle_scroll(500, GDK_SCROLL_DOWN, 0, GDK_SHIFT_MASK);
    EXPECT_TRUE(test_env::redraw_due(canvas));
}

// In a low window with work under way the rows have less than a thumb's least height.
TEST_F(AppDrag, a_thumb_that_fills_its_track_moves_nothing) {
    start_with_files(100);
    AppTest::frame(1000, 94 + 24 + 28 + 34 + 26 + 26 + 18 + 25);
    pane().set_scroll(40, app().rows_in_view(false));
    AppTest::frame(1000, 94 + 24 + 28 + 34 + 26 + 26 + 18 + 25);
    const App::HitRect bar = hit(App::Hit::ScrollThumb, -1, 0);
    ASSERT_EQ(bar.h, 25);
    app().handle_click(bar.x + 5, bar.y + 10, 1, 0, 1);
    for (const double down : {10.0, 0.0, 20.0, 200.0}) {
        app().handle_motion(bar.x + 5, bar.y + down);
        EXPECT_EQ(pane().scroll(), 40) << down;
    }
    app().handle_release();
}

TEST_F(AppDrag, a_list_that_has_become_short_ends_the_scrolling) {
    start_with_files(100);
    const App::HitRect bar = thumb();
    click(bar);
    pane().set_filter("file1", true);
    move(bar.x, bar.y + 200);
    EXPECT_EQ(pane().scroll(), 0);
    app().handle_release();
}

// --- The grip of a dialogue -------------------------------------------------------------------

TEST_F(AppDrag, the_grip_says_whose_it_is) {
    start();
    app().open_overlay(App::Overlay::ArchiveView, "t");
    frame();
    EXPECT_EQ(hit(App::Hit::OverlayResize).param, 0);
    click(hit(App::Hit::OverlayResize));
    EXPECT_EQ(app().m_overlay_resize, 1);
    app().handle_release();
    EXPECT_EQ(app().m_overlay_resize, 0);
    app().open_overlay(App::Overlay::HexView, "t");
    frame();
    EXPECT_NE(hit(App::Hit::OverlayResize).param, 0);
    click(hit(App::Hit::OverlayResize));
    EXPECT_EQ(app().m_overlay_resize, 2);
    app().handle_release();
}

TEST_F(AppDrag, a_dialogue_grows_about_its_centre_between_its_least_size_and_the_window) {
    start();
    struct Case {
        App::Overlay overlay;
        int Settings::*w;
        int Settings::*h;
        const char* key;
    };
    for (const Case& c : {Case{App::Overlay::ArchiveView, &Settings::archive_view_w,
                               &Settings::archive_view_h, "archive_view_w\": "},
                          Case{App::Overlay::HexView, &Settings::hex_view_w, &Settings::hex_view_h,
                               "hex_view_w\": "}}) {
        app().open_overlay(c.overlay, "t");
        frame(1600, 1000);
        const App::HitRect grip = hit(App::Hit::OverlayResize);
        app().handle_click(grip.x + 13, grip.y + 13, 1, 0, 1);
        EXPECT_EQ(settings().*c.w, 0);
        app().handle_motion(800 + 500, 500 + 400);
        EXPECT_EQ(settings().*c.w, 1000);
        EXPECT_EQ(settings().*c.h, 800);
        frame(1600, 1000);
        EXPECT_EQ(app().m_overlay_panel.w, 1000);
        EXPECT_EQ(app().m_overlay_panel.x, 300);
        app().handle_motion(5000, 5000);
        EXPECT_EQ(settings().*c.w, 1560);
        EXPECT_EQ(settings().*c.h, 960);
        EXPECT_FALSE(stored(c.key + std::string("1560")));
        app().handle_motion(0, 0);
        EXPECT_EQ(settings().*c.w, static_cast<int>(app().m_overlay_min_w));
        EXPECT_EQ(settings().*c.h, static_cast<int>(app().m_overlay_min_h));
        EXPECT_GT(settings().*c.w, 300);
        app().handle_motion(1300, 900);
        app().handle_release();
        EXPECT_TRUE(stored(c.key + std::string("1000")));
        app().close_overlay();
        frame();
    }
}

// A worker waits for its answer, so its question takes the place of any dialogue.
TEST_F(AppDrag, another_dialogue_is_not_resized) {
    start();
    app().open_overlay(App::Overlay::ArchiveView, "t");
    frame();
    click(hit(App::Hit::OverlayResize));
    app().open_overlay(App::Overlay::Message, "t");
    frame();
    app().handle_motion(900, 600);
    EXPECT_EQ(settings().archive_view_w, 0);
    app().handle_release();
}

// --- All of them ------------------------------------------------------------------------------

TEST_F(AppDrag, while_something_is_pulled_nothing_else_is_hovered) {
    start_with_files(100);
    move(row(1).x + 5, row(1).y + 5);
    const int hover = app().m_hover;
    const App::HitRect other = row(5);
    click(thumb());
    move(other.x + 5, other.y + 5);
    EXPECT_EQ(app().m_hover, hover);
    EXPECT_EQ(app().m_mouse_y, other.y + 5);
    app().handle_release();
}

TEST_F(AppDrag, work_does_not_take_the_thumb_away) {
    start_with_files(100);
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
        while (reporter.keep_going())
            g_usleep(1000);
    }));
    app().m_bgtask_was_running = true;
    frame();
    const App::HitRect bar = thumb();
    click(bar);
    move(bar.x, bar.y + bar.h / 2 + 100);
    EXPECT_GT(pane().scroll(), 10);
    app().handle_release();
    BgTask::instance().cancel();
    ASSERT_TRUE(settle());
}

}  // namespace
