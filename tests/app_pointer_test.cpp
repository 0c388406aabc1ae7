// Clicks on rows, the gates before them, and the wheel.

#include "app_pointer.h"

#include "app_redraw.h"
#include "app_texts.h"
#include "logger.h"

#include <unistd.h>

namespace {

using test_env::make_dirs;
using test_env::read_file;
using test_env::write_file;

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
    key(GDK_KEY_Escape);
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
    app().m_conflict_deaf_until = 0;  // as after a quarter of a second
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
    key(GDK_KEY_Escape);
    EXPECT_EQ(selected_names(false).size(), 2U);
    click(background.x + 50, background.y + background.h - 10);
    EXPECT_TRUE(selected_names(false).empty());
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

// --- Headers and path bars --------------------------------------------------------------------

TEST_F(AppPointer, a_click_on_a_column_title_sorts_by_it_on_its_side) {
    write_file(right() + "/small", "1");
    write_file(right() + "/large", "12345");
    start();
    settings().show_size = true;
    frame();
    const auto size = static_cast<int>(dir_lister::SortKey::Size);
    click(hit(App::Hit::PaneHeader, size, 1));
    EXPECT_TRUE(app().m_active_right);
    EXPECT_EQ(names(true), (Names{"..", "large", "small"}));
    click(hit(App::Hit::PaneHeader, size, 1));
    EXPECT_EQ(names(true), (Names{"..", "small", "large"}));
    EXPECT_EQ(pane(false).sort_order().key, dir_lister::SortKey::Name);
    // A double click is two clicks.
    double_click(hit(App::Hit::PaneHeader, size, 1));
    EXPECT_EQ(names(true), (Names{"..", "small", "large"}));
}

TEST_F(AppPointer, the_right_button_on_a_column_title_sorts_nothing) {
    start_with_files(2);
    const dir_lister::SortOrder before = pane(true).sort_order();
    click(hit(App::Hit::PaneHeader, 0, 1), 3);
    EXPECT_TRUE(app().m_active_right);
    EXPECT_EQ(pane(true).sort_order(), before);
}

TEST_F(AppPointer, a_segment_of_the_path_leads_to_its_folder) {
    make_dirs(left() + "/one/two/three");
    start({"--left=" + left() + "/one/two/three", "--active=right"});
    const int deep = hit(App::Hit::PathSegment, -1, 0).param;
    click(hit(App::Hit::PathSegment, deep - 1, 0));
    EXPECT_EQ(pane().path(), left() + "/one/two");
    EXPECT_FALSE(app().m_active_right);
    click(hit(App::Hit::PathSegment, deep - 2, 0));
    EXPECT_EQ(pane().path(), left() + "/one");
    click(hit(App::Hit::PathSegment, 1, 0));
    EXPECT_EQ(pane().path(), left().substr(0, left().find('/', 1)));
    click(hit(App::Hit::PathSegment, 0, 0));
    EXPECT_EQ(pane().path(), "/");
    click(hit(App::Hit::PathSegment, 0, 0));
    EXPECT_EQ(pane().path(), "/");
    EXPECT_EQ(pane(true).path(), right());
}

TEST_F(AppPointer, the_components_of_a_path_are_counted_without_empty_ones) {
    make_dirs(left() + "/one/two");
    start();
    pane().navigate_to("/" + left() + "//one///two", true);
    frame();
    const int deep = hit(App::Hit::PathSegment, -1, 0).param;
    click(hit(App::Hit::PathSegment, deep - 1, 0));
    EXPECT_EQ(pane().path(), "/" + left() + "//one");
}

TEST_F(AppPointer, a_click_into_the_path_bar_edits_the_path_of_its_side) {
    start_with_files(2);
    const auto click_bar = [this](int side) {
        const App::HitRect bar = hit(App::Hit::PathBar, -1, side);
        click(bar.x + bar.w - 3, bar.y + 13);
    };
    click_bar(1);
    EXPECT_TRUE(app().m_active_right);
    EXPECT_EQ(app().m_path_edit, 1);
    EXPECT_EQ(app().m_path_buffer, right());
    EXPECT_EQ(app().m_path_caret, right().size());
    EXPECT_EQ(count_hits(App::Hit::PathEdit), 3U) << "the field, and the pencil of each side";
    type("x");
    click_bar(0);
    EXPECT_FALSE(app().m_active_right);
    EXPECT_EQ(app().m_path_edit, 0);
    EXPECT_EQ(app().m_path_buffer, left());
}

TEST_F(AppPointer, a_click_into_an_open_path_editor_sets_the_caret_and_keeps_the_text) {
    start();
    app().begin_path_edit(false);
    app().m_path_buffer = "/häuser/n";
    app().m_path_caret = app().m_path_buffer.size();
    app().m_path_error = "why";
    for (const int scale : {70, 100, 200}) {
        settings().font_scale = scale;
        app().m_active_right = true;
        frame();
        const test_env::PaintedText* found = test_env::painted_text("/häuser/n");
        ASSERT_TRUE(found);
        const test_env::PaintedText text = *found;  // the next frame moves what it points to
        const double y = hit(App::Hit::PathEdit, -1, 0).y + 13;
        click(text.x, y);
        EXPECT_EQ(app().m_path_caret, 0U);
        click(text.x + text.width / 2, y);
        EXPECT_NEAR(static_cast<double>(app().m_path_caret), 5, 1.5) << scale;
        click(text.x + text.width + 100, y);
        EXPECT_EQ(app().m_path_caret, 10U);
        click(1, y);
        EXPECT_EQ(app().m_path_caret, 0U);
        EXPECT_EQ(app().m_path_buffer, "/häuser/n");
        EXPECT_EQ(app().m_path_error, "why");
        EXPECT_FALSE(app().m_active_right);
    }
}

// Opened again by a second click that came before the frame with the editor.
TEST_F(AppPointer, the_two_presses_of_a_double_click_open_one_editor) {
    start();
    const App::HitRect bar = hit(App::Hit::PathBar, -1, 0);
    app().handle_click(bar.x + bar.w - 3, bar.y + 13, 1, 0, 1);
    app().path_insert("typed");
    app().handle_click(bar.x + bar.w - 3, bar.y + 13, 1, 0, 1);
    app().handle_click(bar.x + bar.w - 3, bar.y + 13, 1, 0, 2);
    EXPECT_EQ(app().m_path_buffer, left() + "typed");
    EXPECT_EQ(app().m_path_caret, app().m_path_buffer.size());
}

TEST_F(AppPointer, a_click_into_a_filter_bar_goes_on_with_its_filter) {
    start_with_files(12);
    files(12, true);
    app().refresh_both();
    pane(false).set_filter("file1", true);
    pane(true).set_filter("2", true);
    frame();
    const App::HitRect bar = hit(App::Hit::SearchBar, -1, 1);
    click(bar.x + 40, bar.y + 11);
    EXPECT_TRUE(app().m_active_right);
    EXPECT_EQ(app().m_search_pane, 1);
    EXPECT_EQ(app().m_search_buffer, "2");
    EXPECT_EQ(app().m_search_caret, 1U);
    // The cross of the other side is the other side's.
    click(hit(App::Hit::SearchClear, -1, 0));
    EXPECT_FALSE(app().m_active_right);
    EXPECT_EQ(pane(false).filter(), "");
    EXPECT_EQ(pane(true).filter(), "2");
    EXPECT_EQ(app().m_search_pane, -1);
    click(hit(App::Hit::SearchClear, -1, 1));
    EXPECT_EQ(pane(true).filter(), "");
    EXPECT_TRUE(app().m_active_right);
    EXPECT_EQ(count_hits(App::Hit::SearchBar), 0U);
}

// --- The bridge -------------------------------------------------------------------------------

TEST_F(AppPointer, each_button_of_the_bridge_has_its_command) {
    start_with_files(3);
    struct Case {
        App::Hit hit;
        const char* action;
    };
    for (const Case& c : {Case{App::Hit::BridgePack, "PackToOther"},
                          {App::Hit::BridgeRefresh, "Refresh"},
                          {App::Hit::BridgeNewFolder, "NewFolder"},
                          {App::Hit::BridgeDelete, "Delete"},
                          {App::Hit::BridgeSearch, "SearchPane"},
                          {App::Hit::BridgeHex, "ViewHex"},
                          {App::Hit::BridgeTerminal, "OpenTerminal"},
                          {App::Hit::BridgeTrash, "GoToTrash"}}) {
        pane().navigate_to(left(), true);
        pane().set_cursor(pane().index_of("file1"), true);
        app().close_overlay();
        app().end_search(true);
        frame();
        Log::instance().clear();
        App::HitRect button = hit(App::Hit::BridgeRefresh);
        if (count_hits(c.hit) == 0) {  // nothing to do it with here, such as a terminal
            button.what = c.hit;
            app().m_hits.push_back(button);
        }
        press(hit(c.hit));
        EXPECT_TRUE(logged(std::string("action: ") + c.action + " [" + left() + "]")) << c.action;
    }
}

// The button copies the way its arrow points, from the active side to the other.
TEST_F(AppPointer, copy_and_move_carry_the_side_they_go_to) {
    files(1, true);
    start_with_files(1);
    put_cursor_on("file0", false);
    put_cursor_on("file0", true);
    for (const bool active_right : {false, true}) {
        app().m_active_right = active_right;
        frame();
        EXPECT_EQ(hit(App::Hit::BridgeCopy).right, !active_right);
        EXPECT_EQ(hit(App::Hit::BridgeMove).right, !active_right);
    }
}

// Also when the sides have changed since it was painted: what the user saw is what is done.
TEST_F(AppPointer, a_button_painted_for_one_way_goes_that_way) {
    write_file(left() + "/copied", "l");
    write_file(left() + "/moved", "l");
    write_file(right() + "/stays", "r");
    start();
    put_cursor_on("stays", true);
    for (const App::Hit what : {App::Hit::BridgeCopy, App::Hit::BridgeMove}) {
        app().m_active_right = false;
        put_cursor_on(what == App::Hit::BridgeCopy ? "copied" : "moved");
        const App::HitRect button = hit(what);
        app().m_active_right = true;
        press(button);
        ASSERT_TRUE(settle());
    }
    EXPECT_EQ(names(true), (Names{"..", "copied", "moved", "stays"}));
    EXPECT_EQ(names(false), (Names{"..", "copied"}));
}

// --- The bands around the panes ---------------------------------------------------------------

TEST_F(AppPointer, the_cross_of_the_result_line_takes_it_away) {
    start();
    app().m_result.valid = true;
    frame();
    click(hit(App::Hit::ResultDismiss));
    EXPECT_FALSE(app().m_result.valid);
    EXPECT_EQ(count_hits(App::Hit::ResultDismiss), 0U);
}

TEST_F(AppPointer, the_line_of_failures_opens_their_list_under_its_title) {
    start();
    app().m_result.valid = true;
    app().m_result.failures = 2;
    app().m_overlay_title = "of another dialogue";
    frame();
    click(hit(App::Hit::ErrorBanner));
    EXPECT_EQ(app().m_overlay, App::Overlay::Errors);
    EXPECT_EQ(app().m_overlay_title, "Errors");
}

TEST_F(AppPointer, the_cancel_button_of_the_band_cancels_the_task) {
    start();
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
        while (reporter.keep_going())
            g_usleep(1000);
    }));
    app().m_bgtask_was_running = true;
    frame();
    click(hit(App::Hit::ProgressCancel));
    ASSERT_TRUE(settle());
    EXPECT_TRUE(app().m_result.cancelled);
}

TEST_F(AppPointer, the_cancel_button_of_the_band_cancels_the_transfer) {
    write_file(left() + "/a", "new");
    write_file(right() + "/a", "old");
    start();
    put_cursor_on("a");
    click(hit(App::Hit::BridgeCopy));
    frame();
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    // Below the question, which is answered first.
    app().m_conflict_deaf_until = 0;
    frame();
    click(hit(App::Hit::ProgressCancel));
    EXPECT_TRUE(App::busy());
    app().m_overlay = App::Overlay::None;
    click(hit(App::Hit::ProgressCancel));
    ASSERT_TRUE(settle());
    EXPECT_TRUE(app().m_result.cancelled);
    EXPECT_EQ(read_file(right() + "/a"), "old");
}

// --- Gates ------------------------------------------------------------------------------------

TEST_F(AppPointer, while_work_runs_no_part_of_a_pane_answers) {
    make_dirs(left() + "/sub");
    start_with_files(3);
    key(GDK_KEY_Tab);
    std::vector<App::HitRect> painted;
    for (const App::Hit what :
         {App::Hit::PaneRow, App::Hit::PaneBanner, App::Hit::PaneHeader, App::Hit::PaneHeaderMenu,
          App::Hit::PaneBackground, App::Hit::PathSegment, App::Hit::PathBar})
        painted.push_back(hit(what, -1, 0));
    const dir_lister::SortOrder order = pane().sort_order();
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
        while (reporter.keep_going())
            g_usleep(1000);
    }));
    app().m_bgtask_was_running = true;
    for (const App::HitRect& rect : painted)
        for (const int button : {1, 3})
            for (const guint32 clicks : {1U, 2U}) {
                app().handle_click(rect.x + 2, rect.y + 2, button, 0, clicks);
                EXPECT_TRUE(app().m_active_right) << App::hit_name(rect.what);
                EXPECT_EQ(pane().path(), left());
                EXPECT_EQ(pane().sort_order(), order);
                EXPECT_EQ(app().m_path_edit, -1);
                EXPECT_FALSE(app().m_press_pending);
                EXPECT_TRUE(selected_names().empty());
            }
    BgTask::instance().cancel();
    ASSERT_TRUE(settle());
}

// The button has gone from the next frame, but the click may come before it.
TEST_F(AppPointer, a_click_on_the_bridge_is_refused_as_busy) {
    start_with_files(3);
    put_cursor_on("file0");
    const App::HitRect copy = hit(App::Hit::BridgeCopy);
    write_file(right() + "/file1", "old");
    put_cursor_on("file1");
    const App::HitRect target = row("file2");
    press(copy);
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    app().m_overlay = App::Overlay::None;
    app().m_hits = {target, copy};
    app().m_open_menu = 1;
    press(target);
    EXPECT_EQ(app().m_open_menu, 1);
    EXPECT_EQ(cursor_name(), "file1");
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
    app().m_open_menu = -1;
    press(copy);
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_EQ(app().m_overlay_title, "Still busy");
    copy_engine::instance().cancel();
    ASSERT_TRUE(settle());
}

TEST_F(AppPointer, a_click_beside_an_open_menu_closes_it_and_does_nothing_else) {
    start_with_files(3);
    const App::HitRect target = row(2);
    const auto nothing_else = [this](const char* what) {
        EXPECT_TRUE(selected_names().empty()) << what;
        EXPECT_EQ(pane().cursor(), 0) << what;
        EXPECT_FALSE(app().m_press_pending) << what;
    };
    app().m_context_menu = app().m_column_menu = true;
    press(target);
    EXPECT_FALSE(app().m_context_menu);
    EXPECT_FALSE(app().m_column_menu);
    nothing_else("context menu");
    app().m_open_drive_picker = 1;
    press(target);
    EXPECT_EQ(app().m_open_drive_picker, -1);
    nothing_else("drives");
    app().m_open_menu = 2;
    press(target);
    EXPECT_EQ(app().m_open_menu, -1);
    nothing_else("menu");
    // Where nothing at all is as well.
    app().m_open_menu = 0;
    app().handle_click(-5, -5, 1, 0, 1);
    EXPECT_EQ(app().m_open_menu, -1);
    press(target);
    EXPECT_EQ(selected_names(), Names{"file1"});
}

TEST_F(AppPointer, while_work_runs_a_filter_is_left_alone) {
    start_with_files(3);
    app().begin_search(false);
    key(GDK_KEY_f);
    app().m_search_pane = -1;  // as another mode's begin leaves it
    frame();
    ASSERT_EQ(pane().filter(), "f");
    const App::HitRect bar = hit(App::Hit::SearchBar, -1, 0);
    const App::HitRect cross = hit(App::Hit::SearchClear, -1, 0);
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
        while (reporter.keep_going())
            g_usleep(1000);
    }));
    app().m_bgtask_was_running = true;
    app().handle_click(bar.x + 3, bar.y + 3, 1, 0, 1);
    EXPECT_EQ(app().m_search_pane, -1);
    app().handle_click(cross.x + 3, cross.y + 3, 1, 0, 1);
    EXPECT_EQ(pane().filter(), "f");
    BgTask::instance().cancel();
    ASSERT_TRUE(settle());
}

TEST_F(AppPointer, while_work_runs_a_click_on_a_row_does_not_even_close_a_menu) {
    start_with_files(3);
    const App::HitRect target = row(2);
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
        while (reporter.keep_going())
            g_usleep(1000);
    }));
    app().m_bgtask_was_running = true;
    app().m_open_menu = 1;
    app().m_context_menu = true;
    app().m_open_drive_picker = 0;
    press(target);
    EXPECT_EQ(app().m_open_menu, 1);
    EXPECT_TRUE(app().m_context_menu);
    EXPECT_EQ(app().m_open_drive_picker, 0);
    BgTask::instance().cancel();
    ASSERT_TRUE(settle());
}

TEST_F(AppPointer, a_click_on_what_was_painted_for_another_dialogue_does_nothing) {
    start_with_files(3);
    app().show_message("t", "x");
    frame();
    const App::HitRect ok = hit(App::Hit::Overlay);
    // Of the same kind, but nobody has seen it yet.
    app().show_message("t", "y");
    press(ok);
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    frame();
    app().open_text_input(App::Overlay::NewFolder, "dlg.new_folder_title", "made");
    press(ok);
    EXPECT_EQ(app().m_overlay, App::Overlay::NewFolder);
    EXPECT_FALSE(test_env::exists(left() + "/made"));
    // Closed, and not yet painted without.
    frame();
    const App::HitRect cancel = hit(App::Hit::Overlay, static_cast<int>(Action::OverlayCancel));
    app().close_overlay();
    press(cancel);
    EXPECT_FALSE(logged("action: OverlayCancel [" + left() + "]"));
}

TEST_F(AppPointer, a_click_before_the_first_frame_finds_nothing) {
    start_with_files(3);
    app().m_hits.clear();
    app().handle_click(300, 300, 1, 0, 1);
    app().handle_click(300, 300, 1, 0, 2);
    app().handle_release();
    app().handle_motion(300, 300);
    EXPECT_EQ(app().m_hover, -1);
    EXPECT_TRUE(selected_names().empty());
}

// --- Presses ----------------------------------------------------------------------------------

TEST_F(AppPointer, shift_and_control_on_a_marked_row_act_at_the_press) {
    start_with_files(5);
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    click(row("file2"), 1, GDK_CONTROL_MASK);
    EXPECT_FALSE(app().m_press_defer_select);
    EXPECT_EQ(selected_names(), (Names{"file0", "file1", "file3", "file4"}));
    app().handle_release();
    EXPECT_EQ(selected_names(), (Names{"file0", "file1", "file3", "file4"}));
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    click(row("file4"), 1, GDK_SHIFT_MASK);
    EXPECT_FALSE(app().m_press_defer_select);
    EXPECT_EQ(selected_names(), (Names{"file2", "file3", "file4"}));
    app().handle_release();
    EXPECT_EQ(selected_names(), (Names{"file2", "file3", "file4"}));
}

TEST_F(AppPointer, a_press_with_the_first_button_is_kept_until_the_release) {
    start_with_files(3);
    const App::HitRect target = row(2);
    app().handle_click(target.x + 17, target.y + 3, 1, 0, 1);
    EXPECT_TRUE(app().m_press_pending);
    EXPECT_EQ(app().m_press_x, target.x + 17);
    EXPECT_EQ(app().m_press_y, target.y + 3);
    EXPECT_EQ(app().m_press_row, 2);
    EXPECT_FALSE(app().m_press_right);
    EXPECT_FALSE(app().m_press_defer_select);
    app().handle_release();
    EXPECT_FALSE(app().m_press_pending);
    click(target, 2);
    EXPECT_FALSE(app().m_press_pending);
    EXPECT_EQ(selected_names(), Names{"file1"});
    click(target, 3);
    EXPECT_FALSE(app().m_press_pending);
}

// The second button pulls nothing, so it has nothing to wait for.
TEST_F(AppPointer, the_middle_button_reduces_the_marks_at_the_press) {
    start_with_files(4);
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    click(row("file1"), 2);
    EXPECT_FALSE(app().m_press_defer_select);
    EXPECT_EQ(selected_names(), Names{"file1"});
}

TEST_F(AppPointer, shift_goes_before_control) {
    start_with_files(5);
    click_and_release(row("file1"));
    click_and_release(row("file3"), 1, GDK_SHIFT_MASK | GDK_CONTROL_MASK);
    EXPECT_EQ(selected_names(), (Names{"file1", "file2", "file3"}));
    EXPECT_EQ(cursor_name(), "file3");
}

TEST_F(AppPointer, after_a_double_click_that_goes_nowhere_no_press_is_pending) {
    ASSERT_EQ(symlink("nowhere", (left() + "/broken").c_str()), 0);
    start_with_files(2);
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    const App::HitRect target = row("broken");
    click_and_release(target);
    click(target);
    EXPECT_TRUE(app().m_press_pending);
    click(target, 1, 0, 2);
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_FALSE(app().m_press_pending);
    EXPECT_FALSE(app().m_press_defer_select);
}

// --- Hover ------------------------------------------------------------------------------------

TEST_F(AppPointer, the_cursor_tells_what_can_be_pulled) {
    start_with_files(3);
    for (int i = 0; i < 7; ++i)
        set_column_enabled(settings(), static_cast<ColumnId>(i), true);
    frame();
    const auto over = [this](const App::HitRect& rect) {
        app().handle_motion(rect.x + rect.w / 2, rect.y + rect.h / 2);
        const char* const name = app().m_cursor_name;
        GdkCursor* const cursor = gdk_window_get_cursor(gtk_widget_get_window(app().m_canvas));
        EXPECT_EQ(cursor != nullptr, name != nullptr);
        return std::string(name ? name : "");
    };
    EXPECT_EQ(over(row(1)), "");
    EXPECT_EQ(over(hit(App::Hit::ColumnResize, -1, 0)), "col-resize");
    EXPECT_EQ(over(hit(App::Hit::PaneHScroll, -1, 0)), "default");
    EXPECT_EQ(over(row(1)), "");
    EXPECT_EQ(over(hit(App::Hit::ColumnResize, -1, 0)), "col-resize");
    app().handle_motion(-5, -5);
    EXPECT_EQ(app().m_cursor_name, nullptr);
    EXPECT_EQ(gdk_window_get_cursor(gtk_widget_get_window(app().m_canvas)), nullptr);
    app().open_overlay(App::Overlay::ArchiveView, "t");
    frame();
    EXPECT_EQ(over(hit(App::Hit::OverlayResize)), "se-resize");
}

// What is held keeps the pointer's shape, wherever the pointer has got to.
TEST_F(AppPointer, a_frame_in_the_middle_of_a_pull_changes_no_cursor) {
    start_with_files(3);
    const App::HitRect grip = hit(App::Hit::ColumnResize);
    app().handle_motion(grip.x + 2, grip.y + 5);
    ASSERT_STREQ(app().m_cursor_name, "col-resize");
    click(grip.x + 2, grip.y + 5);
    app().handle_motion(grip.x + 25, grip.y + 300);
    app().m_mouse_x = grip.x + 2;
    app().m_mouse_y = grip.y + 300;
    frame();
    EXPECT_STREQ(app().m_cursor_name, "col-resize");
    app().handle_release();
    frame();
    EXPECT_EQ(app().m_cursor_name, nullptr);
}

TEST_F(AppPointer, motion_without_a_change_paints_nothing) {
    start_with_files(3);
    const App::HitRect first = row(1);
    app().handle_motion(first.x + 10, first.y + 5);
    EXPECT_EQ(app().m_mouse_x, first.x + 10);
    const int hover = app().m_hover;
    ASSERT_GE(hover, 0);
    EXPECT_EQ(app().m_list_hover, -1);
    frame();
    GtkWidget* const canvas = app().m_canvas;
    (void)test_env::redraw_due(canvas);  // no event of the display comes in between
    app().handle_motion(first.x + 20, first.y + 6);
    EXPECT_EQ(app().m_hover, hover);
    EXPECT_FALSE(test_env::redraw_due(canvas));
    app().handle_motion(-5, -5);
    EXPECT_EQ(app().m_hover, -1);
    EXPECT_TRUE(test_env::redraw_due(canvas));
    app().handle_motion(-6, -6);
    app().handle_leave();
    EXPECT_FALSE(test_env::redraw_due(canvas));
}

TEST_F(AppPointer, what_a_click_does_is_painted) {
    start_with_files(3);
    GtkWidget* const canvas = app().m_canvas;
    const auto painted = [&](const App::HitRect& rect) {
        (void)test_env::redraw_due(canvas);  // no event of the display comes in between
        press(rect);
        return test_env::redraw_due(canvas);
    };
    EXPECT_TRUE(painted(hit(App::Hit::PaneBanner, -1, 1)));
    EXPECT_TRUE(painted(hit(App::Hit::PaneBackground, -1, 0)));
    EXPECT_TRUE(painted(hit(App::Hit::ColumnResize, 0, 0)));
}

TEST_F(AppPointer, the_uppermost_row_is_clicked_like_any_other) {
    start_with_files(3);
    click_and_release(row(2));
    click_and_release(row(0));
    EXPECT_EQ(pane().cursor(), 0);
    EXPECT_TRUE(selected_names().empty());
}

TEST_F(AppPointer, leaving_ends_the_hover) {
    start_with_files(3);
    app().handle_motion(row(1).x + 5, row(1).y + 5);
    ASSERT_GE(app().m_hover, 0);
    app().m_list_hover = 2;
    app().handle_leave();
    EXPECT_EQ(app().m_hover, -1);
    EXPECT_EQ(app().m_list_hover, -1);
    EXPECT_EQ(app().hovered(), nullptr);
}

// Frames number their rectangles anew; what is lit is what lies under the pointer.
TEST_F(AppPointer, a_dialogue_lights_no_button_that_the_pointer_is_not_on) {
    start();
    frame();
    const App::HitRect file = hit(App::Hit::MenuTitle, 0);
    click(file);
    const App::HitRect folder = hit(App::Hit::MenuItem, static_cast<int>(Action::NewFolder));
    for (const double down : {13.0, 39.0, 72.0}) {
        app().handle_motion(folder.x + 20, folder.y + down);
        app().perform(Action::NewFolder, 0);
        frame();
        frame();
        const App::HitRect* const lit = app().hovered();
        EXPECT_TRUE(!lit || lit->what != App::Hit::Overlay) << down;
        app().close_overlay();
        click(file);
    }
    // The pointer rests where a button appears: it is lit without a motion.
    app().close_menus();
    frame();
    app().perform(Action::NewFolder, 0);
    frame();
    const App::HitRect cancel = hit(App::Hit::Overlay, static_cast<int>(Action::OverlayCancel));
    app().close_overlay();
    frame();
    app().handle_motion(cancel.x + 10, cancel.y + 10);
    ASSERT_NE(app().hovered(), nullptr);
    app().perform(Action::NewFolder, 0);
    frame();
    ASSERT_NE(app().hovered(), nullptr);
    EXPECT_EQ(app().hovered()->param, static_cast<int>(Action::OverlayCancel));
}

// --- Wheel ------------------------------------------------------------------------------------

TEST_F(AppPointer, the_wheel_scrolls_the_side_under_it_whichever_is_active) {
    files(100, true);
    start_with_files(100);
    ASSERT_FALSE(app().m_active_right);
    const double border = app().m_layout.right_x;
    app().handle_scroll(border, GDK_SCROLL_DOWN, 0);
    EXPECT_EQ(pane(true).scroll(), 3);
    EXPECT_EQ(pane(false).scroll(), 0);
    app().handle_scroll(border - 0.5, GDK_SCROLL_DOWN, 0);
    EXPECT_EQ(pane(true).scroll(), 3);
    EXPECT_EQ(pane(false).scroll(), 3);
    EXPECT_FALSE(app().m_active_right);
    EXPECT_EQ(pane(true).cursor(), 0);
    // Cut to whole rows.
    app().handle_scroll(border, GDK_SCROLL_SMOOTH, 0.9);
    EXPECT_EQ(pane(true).scroll(), 5);
    app().handle_scroll(border, GDK_SCROLL_SMOOTH, -0.9);
    EXPECT_EQ(pane(true).scroll(), 3);
    app().handle_scroll(border, GDK_SCROLL_RIGHT, 1);
    EXPECT_EQ(pane(true).scroll(), 3);
}

TEST_F(AppPointer, with_shift_the_wheel_scrolls_sideways) {
    start_with_files(3);
    for (int i = 0; i < 7; ++i)
        set_column_enabled(settings(), static_cast<ColumnId>(i), true);
    frame();
    const double last = app().m_pane_content_w[1] - app().m_pane_view_w[1];
    ASSERT_GT(last, 150);
    const double x = app().m_layout.right_x + 5;
    const auto turn = [&](GdkScrollDirection direction, double delta) {
        app().handle_scroll(x, direction, delta, GDK_SHIFT_MASK);
        return app().m_pane_hscroll[1];
    };
    EXPECT_EQ(turn(GDK_SCROLL_DOWN, 0), 60);
    EXPECT_EQ(turn(GDK_SCROLL_SMOOTH, 0.5), 90);
    EXPECT_EQ(turn(GDK_SCROLL_SMOOTH, 0), 90);
    EXPECT_EQ(turn(GDK_SCROLL_SMOOTH, 0.01), 90.6);
    EXPECT_EQ(turn(GDK_SCROLL_RIGHT, 1), 90.6);
    EXPECT_NEAR(turn(GDK_SCROLL_UP, 0), 30.6, 1e-9);
    EXPECT_EQ(turn(GDK_SCROLL_UP, 0), 0);
    for (int i = 0; i < 50; ++i)
        turn(GDK_SCROLL_DOWN, 0);
    EXPECT_EQ(app().m_pane_hscroll[1], last);
    EXPECT_EQ(app().m_pane_hscroll[0], 0);
    EXPECT_EQ(pane(true).scroll(), 0);
}

TEST_F(AppPointer, the_wheel_over_a_dialogue_scrolls_its_list) {
    start_with_files(100);
    app().open_overlay(App::Overlay::Licenses, "t");
    frame();
    app().m_overlay_scrolls = true;
    app().m_log_max_scroll = 0;
    const auto turn = [this](GdkScrollDirection direction, double delta) {
        app().handle_scroll(20, direction, delta);
        return app().m_list_scroll;
    };
    EXPECT_EQ(turn(GDK_SCROLL_DOWN, 0), 3);
    EXPECT_EQ(turn(GDK_SCROLL_SMOOTH, 2), 9);
    EXPECT_EQ(turn(GDK_SCROLL_SMOOTH, 0.1), 9);
    EXPECT_EQ(turn(GDK_SCROLL_SMOOTH, -0.1), 9);
    EXPECT_EQ(turn(GDK_SCROLL_UP, 0), 6);
    EXPECT_EQ(turn(GDK_SCROLL_SMOOTH, -100), 0);
    // Following the end is left by a turn, and by nothing less.
    app().m_list_scroll = -1;
    EXPECT_EQ(turn(GDK_SCROLL_SMOOTH, 0.1), -1);
    EXPECT_EQ(turn(GDK_SCROLL_DOWN, 0), 3);
    app().m_list_scroll = -1;
    EXPECT_EQ(turn(GDK_SCROLL_UP, 0), 0);
    EXPECT_EQ(pane().scroll(), 0);
    // Closed, it scrolls no more.
    app().close_overlay();
    app().m_overlay_scrolls = true;
    turn(GDK_SCROLL_DOWN, 0);
    EXPECT_EQ(app().m_list_scroll, 0);
    EXPECT_EQ(pane().scroll(), 3);
}

TEST_F(AppPointer, under_a_dialogue_without_a_list_the_pane_scrolls) {
    start_with_files(100);
    app().show_message("t", "x");
    frame();
    app().handle_scroll(20, GDK_SCROLL_DOWN, 0);
    EXPECT_EQ(pane().scroll(), 3);
}

}  // namespace
