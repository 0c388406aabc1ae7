// Clicks on rows, the gates before them, and the wheel.

#include "app_fixture.h"

#include "settings.h"

#include <gdk/gdkkeysyms.h>

namespace {

using test_env::make_dirs;
using test_env::read_file;
using test_env::write_file;

class AppPointer : public AppTest {
  protected:
    void start_with_files(int count) {
        for (int i = 0; i < count; ++i)
            write_file(left() + "/file" + std::to_string(i), "x");
        start();
    }
    App::HitRect row(int index, bool on_the_right = false) {
        return hit(App::Hit::PaneRow, index, on_the_right ? 1 : 0);
    }
};

TEST_F(AppPointer, a_click_takes_cursor_and_mark_to_the_row_and_its_side) {
    start_with_files(3);
    key(GDK_KEY_Tab);
    click(row(2));
    app().handle_release();
    EXPECT_FALSE(app().m_active_right);
    EXPECT_EQ(cursor_name(), "file1");
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"file1"}));
}

TEST_F(AppPointer, control_and_shift_add_to_the_marks_at_the_press) {
    start_with_files(5);
    click(row(1));
    app().handle_release();
    click(row(3), 1, GDK_CONTROL_MASK);
    app().handle_release();
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"file0", "file2"}));
    click(row(3), 1, GDK_CONTROL_MASK);
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"file0"}));
    app().handle_release();
    click(row(5), 1, GDK_SHIFT_MASK);
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"file2", "file3", "file4"}));
}

TEST_F(AppPointer, a_click_on_one_of_several_marked_rows_reduces_them_at_the_release) {
    start_with_files(4);
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    click(row(2));
    EXPECT_EQ(selected_names().size(), 4U);
    app().handle_release();
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"file1"}));
}

TEST_F(AppPointer, a_right_click_keeps_the_marks_it_falls_on) {
    start_with_files(4);
    click(row(1));
    click(row(2), 1, GDK_CONTROL_MASK);
    click(row(2), 3);
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"file0", "file1"}));
    click(row(4), 3);
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"file3"}));
}

TEST_F(AppPointer, a_double_click_opens) {
    make_dirs(left() + "/sub");
    write_file(left() + "/sub/one", "x");
    write_file(left() + "/sub/two", "x");
    start_with_files(2);
    double_click(row(1));
    EXPECT_EQ(pane().path(), left() + "/sub");
    // The release of the second press must not mark anything in the new folder.
    EXPECT_TRUE(selected_names().empty());
    EXPECT_EQ(pane().cursor(), 0);
}

// GTK tells of a double click on top of its two presses.
TEST_F(AppPointer, a_double_click_elsewhere_is_two_clicks_and_no_third) {
    start();
    app().m_result.valid = true;
    app().show_message("t", "x");
    frame();
    const App::HitRect ok = hit(App::Hit::Overlay);
    app().handle_click(ok.x + 5, ok.y + 5, 1, 0, 2);
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    app().handle_click(ok.x + 5, ok.y + 5, 1, 0, 1);
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

TEST_F(AppPointer, a_click_beside_a_dialogue_does_nothing) {
    start_with_files(3);
    const App::HitRect under = row(2);
    app().show_message("t", "x");
    frame();
    click(under);
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_EQ(cursor_name(), "..");
    click(hit(App::Hit::Overlay));
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

TEST_F(AppPointer, the_choices_of_a_conflict_can_be_clicked) {
    write_file(left() + "/a", "new");
    write_file(right() + "/a", "old");
    start();
    put_cursor_on("a");
    click(hit(App::Hit::BridgeCopy));
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    frame();
    click(hit(App::Hit::Overlay, static_cast<int>(Action::ConflictToggleAll)));
    EXPECT_TRUE(app().m_conflict_apply_all);
    click(hit(App::Hit::Overlay, static_cast<int>(Action::ConflictOverwrite)));
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(right() + "/a"), "new");
}

TEST_F(AppPointer, while_work_runs_the_panes_do_not_answer) {
    start_with_files(3);
    const App::HitRect target = row(2);
    const App::HitRect background = hit(App::Hit::PaneBackground, -1, 1);
    const App::HitRect banner = hit(App::Hit::PaneBanner, -1, 1);
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
        while (reporter.keep_going())
            g_usleep(1000);
    }));
    app().m_bgtask_was_running = true;
    app().handle_click(target.x + 5, target.y + 5, 1, 0, 1);
    app().handle_click(background.x + 50, background.y + 200, 1, 0, 1);
    app().handle_click(banner.x + 50, banner.y + 5, 1, 0, 1);
    EXPECT_EQ(cursor_name(), "..");
    EXPECT_FALSE(app().m_active_right);
    BgTask::instance().cancel();
    ASSERT_TRUE(settle());
}

TEST_F(AppPointer, the_bridge_copies_moves_and_reloads) {
    write_file(left() + "/a", "1");
    write_file(left() + "/b", "2");
    start();
    put_cursor_on("a");
    click(hit(App::Hit::BridgeCopy));
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(right() + "/a"), "1");
    put_cursor_on("b");
    frame();
    click(hit(App::Hit::BridgeMove));
    ASSERT_TRUE(settle());
    EXPECT_EQ(names(false), (std::vector<std::string>{"..", "a"}));
    write_file(right() + "/c", "3");
    frame();
    click(hit(App::Hit::BridgeRefresh));
    EXPECT_EQ(names(true), (std::vector<std::string>{"..", "a", "b", "c"}));
    // With the right side active the buttons go the other way.
    key(GDK_KEY_Tab);
    put_cursor_on("c", true);
    frame();
    click(hit(App::Hit::BridgeCopy));
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(left() + "/c"), "3");
}

TEST_F(AppPointer, the_background_and_the_banner_activate_their_side) {
    start_with_files(2);
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    click(hit(App::Hit::PaneBanner, -1, 1));
    EXPECT_TRUE(app().m_active_right);
    EXPECT_EQ(selected_names(false).size(), 2U);
    const App::HitRect background = hit(App::Hit::PaneBackground, -1, 0);
    click(background.x + 50, background.y + background.h - 10, 1, GDK_CONTROL_MASK);
    EXPECT_FALSE(app().m_active_right);
    EXPECT_EQ(selected_names(false).size(), 2U);
    click(background.x + 50, background.y + background.h - 10, 3);
    EXPECT_EQ(selected_names(false).size(), 2U);
    click(background.x + 50, background.y + background.h - 10);
    EXPECT_TRUE(selected_names(false).empty());
}

TEST_F(AppPointer, a_click_elsewhere_commits_a_rename) {
    start_with_files(2);
    put_cursor_on("file0");
    key(GDK_KEY_F2);
    key(GDK_KEY_x);
    click(row(1));  // on the row itself nothing is committed
    EXPECT_TRUE(pane().renaming());
    click(row(2));
    EXPECT_FALSE(pane().renaming());
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "file0x", "file1"}));
    put_cursor_on("file1");
    key(GDK_KEY_F2);
    key(GDK_KEY_y);
    click(hit(App::Hit::PaneBackground, -1, 1).x + 50, 600);
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "file0x", "file1y"}));
}

TEST_F(AppPointer, the_other_sides_banner_commits_a_rename) {
    start_with_files(1);
    put_cursor_on("file0");
    key(GDK_KEY_F2);
    key(GDK_KEY_x);
    click(hit(App::Hit::PaneBanner, -1, 1));
    EXPECT_TRUE(app().m_active_right);
    EXPECT_FALSE(pane(false).renaming());
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "file0x"}));
}

TEST_F(AppPointer, a_row_that_is_cut_is_brought_into_view_by_a_click) {
    start_with_files(60);
    const App::HitRect cut = row(app().rows_in_view(false));
    ASSERT_LT(cut.h, 24);
    click(cut);
    EXPECT_EQ(pane().scroll(), 1);
    EXPECT_EQ(row(cut.param).h, 24);
    app().handle_release();
    // The same for a press that waits for its release.
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    const App::HitRect next = row(cut.param + 1);
    ASSERT_LT(next.h, 24);
    click(next);
    app().handle_release();
    EXPECT_EQ(pane().scroll(), 2);
}

// The commit sorts the renamed entry away from above the row that was clicked.
TEST_F(AppPointer, the_row_that_was_clicked_is_meant_even_if_the_commit_moves_it) {
    start_with_files(4);
    put_cursor_on("file0");
    key(GDK_KEY_F2);
    key(GDK_KEY_Home);
    key(GDK_KEY_z);
    click(row(2));
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "file1", "file2", "file3", "zfile0"}));
    EXPECT_EQ(cursor_name(), "file1");
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"file1"}));
}

// The rectangles are a frame old; the list may have become shorter since.
TEST_F(AppPointer, a_row_that_is_gone_is_not_clicked) {
    start_with_files(4);
    const App::HitRect last = row(4);
    for (int i = 1; i < 4; ++i)
        std::remove((left() + "/file" + std::to_string(i)).c_str());
    app().refresh_both();
    app().handle_click(last.x + 5, last.y + 5, 1, 0, 1);
    app().handle_click(last.x + 5, last.y + 5, 1, 0, 2);
    EXPECT_EQ(pane().cursor(), 0);
    EXPECT_TRUE(selected_names().empty());
    EXPECT_EQ(pane().path(), left());
}

TEST_F(AppPointer, the_wheel_scrolls_the_side_under_the_pointer) {
    for (int i = 0; i < 100; ++i)
        write_file(right() + "/file" + std::to_string(i), "x");
    start();
    const double x = app().m_layout.right_x + 20;
    app().handle_scroll(x, GDK_SCROLL_DOWN, 0);
    EXPECT_EQ(pane(true).scroll(), 3);
    app().handle_scroll(x, GDK_SCROLL_UP, 0);
    EXPECT_EQ(pane(true).scroll(), 0);
    app().handle_scroll(x, GDK_SCROLL_SMOOTH, 2);
    EXPECT_EQ(pane(true).scroll(), 6);
    app().handle_scroll(x, GDK_SCROLL_SMOOTH, 0.1);
    EXPECT_EQ(pane(true).scroll(), 7);
    app().handle_scroll(x, GDK_SCROLL_SMOOTH, -0.1);
    EXPECT_EQ(pane(true).scroll(), 6);
    app().handle_scroll(x, GDK_SCROLL_SMOOTH, 0);
    app().handle_scroll(x, GDK_SCROLL_LEFT, 0);
    EXPECT_EQ(pane(true).scroll(), 6);
    app().handle_scroll(x, GDK_SCROLL_SMOOTH, 1e9);
    EXPECT_EQ(pane(true).scroll(), 101 - app().rows_in_view(true));
    EXPECT_EQ(pane(false).scroll(), 0);
    app().handle_scroll(20, GDK_SCROLL_DOWN, 0);
    EXPECT_EQ(pane(false).scroll(), 0);  // nothing to scroll there
}

// Real events in surface pixels, through GTK's own delivery.
TEST_F(AppPointer, motion_wheel_and_leaving_reach_the_handlers_at_any_scale) {
    for (int i = 0; i < 100; ++i)
        write_file(right() + "/file" + std::to_string(i), "x");
    start();
    const auto deliver = [this](GdkEventType type, const std::function<void(GdkEvent*)>& fill) {
        GdkEvent* event = gdk_event_new(type);
        event->any.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(app().m_canvas)));
        gdk_event_set_device(
            event, gdk_seat_get_pointer(gdk_display_get_default_seat(gdk_display_get_default())));
        fill(event);
        const bool taken = gtk_widget_event(app().m_canvas, event);
        gdk_event_free(event);
        return taken;
    };
    for (const int scale : {70, 200}) {
        SettingsStore::instance().mutable_get().font_scale = scale;
        pane(true).set_scroll(0, 1);
        frame();
        const App::HitRect target = row(1, true);
        const double x = (target.x + 30) * app().m_ui_scale;
        const double y = (target.y + 12) * app().m_ui_scale;
        EXPECT_TRUE(deliver(GDK_MOTION_NOTIFY, [&](GdkEvent* event) {
            event->motion.x = x;
            event->motion.y = y;
        }));
        EXPECT_NEAR(app().m_mouse_x, target.x + 30, 1e-6) << scale;
        ASSERT_NE(app().hovered(), nullptr);
        EXPECT_EQ(app().hovered()->param, 1) << scale;
        EXPECT_TRUE(deliver(GDK_SCROLL, [&](GdkEvent* event) {
            event->scroll.x = x;
            event->scroll.y = y;
            event->scroll.direction = GDK_SCROLL_DOWN;
        }));
        EXPECT_EQ(pane(true).scroll(), 3) << scale;
        EXPECT_FALSE(deliver(GDK_LEAVE_NOTIFY, [](GdkEvent*) {}));
        EXPECT_EQ(app().m_hover, -1) << scale;
    }
}

TEST_F(AppPointer, a_third_click_counts_for_nothing) {
    make_dirs(left() + "/sub/deeper");
    start();
    const App::HitRect target = row(1);
    for (const GdkEventType type :
         {GDK_BUTTON_PRESS, GDK_BUTTON_RELEASE, GDK_BUTTON_PRESS, GDK_2BUTTON_PRESS,
          GDK_BUTTON_RELEASE, GDK_BUTTON_PRESS, GDK_3BUTTON_PRESS, GDK_BUTTON_RELEASE}) {
        GdkEvent* event = gdk_event_new(type);
        event->button.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(app().m_canvas)));
        event->button.x = target.x + 30;
        event->button.y = target.y + 12;
        event->button.button = 1;
        event->button.state = GDK_CONTROL_MASK;
        gdk_event_set_device(
            event, gdk_seat_get_pointer(gdk_display_get_default_seat(gdk_display_get_default())));
        EXPECT_TRUE(gtk_widget_event(app().m_canvas, event));
        gdk_event_free(event);
        frame();
    }
    EXPECT_EQ(pane().path(), left() + "/sub");
    // The press that came with it has marked; a fourth one would take the mark away.
    EXPECT_EQ(selected_names(), (std::vector<std::string>{"deeper"}));
}

TEST_F(AppPointer, motion_without_a_change_paints_nothing) {
    start_with_files(3);
    const App::HitRect first = row(1);
    app().handle_motion(first.x + 10, first.y + 5);
    EXPECT_EQ(app().m_mouse_x, first.x + 10);
    const int hover = app().m_hover;
    ASSERT_GE(hover, 0);
    app().handle_motion(first.x + 20, first.y + 6);
    EXPECT_EQ(app().m_hover, hover);
    app().handle_motion(-5, -5);
    EXPECT_EQ(app().m_hover, -1);
}

}  // namespace
