// Clicks on rows that have moved since they were painted, releases that come late, double clicks.

#include "app_pointer.h"

namespace {

using test_env::make_dirs;
using test_env::write_file;

class AppPointerRows : public AppPointer {
  protected:
    void remove(const std::string& name) { std::remove((left() + "/" + name).c_str()); }
    // An entry above all others, so that every row moves down by one. Not painted.
    void push_down() {
        write_file(left() + "/a first", "x");
        app().refresh_both();
    }
};

// --- A click ----------------------------------------------------------------------------------

TEST_F(AppPointerRows, a_click_means_the_entry_that_was_painted_there) {
    start_with_files(4);
    const App::HitRect painted = row("file1");
    push_down();
    press(painted);
    EXPECT_EQ(cursor_name(), "file1");
    EXPECT_EQ(selected_names(), Names{"file1"});
}

TEST_F(AppPointerRows, so_does_one_with_a_modifier_or_the_right_button) {
    start_with_files(5);
    click_and_release(row("file0"));
    App::HitRect painted = row("file2");
    push_down();
    press(painted, 1, GDK_CONTROL_MASK);
    EXPECT_EQ(selected_names(), (Names{"file0", "file2"}));
    frame();
    painted = row("file3");
    write_file(left() + "/a before", "x");
    app().refresh_both();
    press(painted, 3);
    EXPECT_EQ(selected_names(), Names{"file3"});
}

TEST_F(AppPointerRows, a_sort_and_a_filter_before_the_next_frame_change_nothing_about_it) {
    start_with_files(4);
    App::HitRect painted = row("file0");
    pane().toggle_sort_column(dir_lister::SortKey::Name);  // now the last row
    press(painted);
    EXPECT_EQ(cursor_name(), "file0");
    frame();
    painted = row("file3");
    pane().set_filter("3", true);
    press(painted);
    EXPECT_EQ(cursor_name(), "file3");
    EXPECT_EQ(selected_names(), Names{"file3"});
}

TEST_F(AppPointerRows, a_row_that_is_filtered_away_is_not_clicked) {
    start_with_files(4);
    const App::HitRect painted = row("file1");
    pane().set_filter("3", true);
    press(painted);
    EXPECT_TRUE(selected_names().empty());
}

// Not even an entry of the same name: it is another one.
TEST_F(AppPointerRows, a_row_of_another_folder_is_not_clicked) {
    make_dirs(left() + "/sub");
    write_file(left() + "/sub/same", "x");
    write_file(left() + "/same", "x");
    start();
    const App::HitRect painted = row("same");
    pane().navigate_to(left() + "/sub", true);
    press(painted);
    press(painted, 3);
    press(painted, 1, 0, 2);
    EXPECT_TRUE(selected_names().empty());
    EXPECT_EQ(cursor_name(), "..");
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

TEST_F(AppPointerRows, a_row_of_panes_that_have_changed_places_is_not_clicked) {
    files(3);
    files(3, true);
    start();
    const App::HitRect painted = row("file1");
    app().perform(Action::SwapPanes, 0);
    press(painted);
    EXPECT_TRUE(selected_names(false).empty());
    EXPECT_TRUE(selected_names(true).empty());
}

// The rectangles are a frame old; the list may have become shorter since.
TEST_F(AppPointerRows, a_row_that_is_gone_is_not_clicked) {
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

// --- A release --------------------------------------------------------------------------------

TEST_F(AppPointerRows, the_release_finds_its_entry_in_a_list_that_was_read_anew) {
    start_with_files(4);
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    click(row("file2"));
    push_down();
    app().handle_release();
    EXPECT_EQ(cursor_name(), "file2");
    EXPECT_EQ(selected_names(), Names{"file2"});
}

TEST_F(AppPointerRows, the_release_of_a_press_whose_entry_is_gone_does_nothing) {
    start_with_files(4);
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    click(row("file2"));
    remove("file2");
    app().refresh_both();
    app().handle_release();
    EXPECT_EQ(selected_names(), (Names{"file0", "file1", "file3"}));
}

TEST_F(AppPointerRows, after_any_navigation_no_press_is_pending) {
    make_dirs(left() + "/sub");
    start_with_files(4);
    const std::vector<std::pair<const char*, std::function<void()>>> roads = {
        {"into a folder", [this] { pane().navigate_to(left() + "/sub", true); }},
        {"up", [this] { app().perform(Action::GoUp, 0); }},
        {"back", [this] { app().perform(Action::GoBack, 0); }},
        {"forward", [this] { app().perform(Action::GoForward, 0); }},
        {"to where it is", [this] { pane().navigate_to(pane().path(), true); }},
        {"to the other side", [this] { app().perform(Action::SwapPanes, 0); }},
    };
    for (const auto& [name, go] : roads) {
        pane().navigate_to(left(), true);
        pane().navigate_to(left() + "/sub", true);
        pane().navigate_to(left(), true);
        if (std::string(name) == "forward")
            pane().go_back(true), pane().go_back(true);
        frame();
        key(GDK_KEY_a, GDK_CONTROL_MASK);
        click(row("file2"));
        EXPECT_GE(app().pressed_row(), 0) << name;
        go();
        EXPECT_EQ(app().pressed_row(), -1) << name;
        pane(false).clear_selection();
        pane(true).clear_selection();
        app().handle_release();
        EXPECT_TRUE(selected_names(false).empty()) << name;
        EXPECT_TRUE(selected_names(true).empty()) << name;
        if (app().m_active_right)
            app().perform(Action::SwapPanes, 0);
    }
}

// --- A double click ---------------------------------------------------------------------------

// The first of its presses has closed the dialogue, the second has marked the row below it.
TEST_F(AppPointerRows, a_double_click_on_a_dialogues_button_opens_nothing_below) {
    for (int i = 0; i < 40; ++i)
        make_dirs(left() + "/folder" + std::to_string(i));
    start({"--right=" + left()});
    app().show_message("t", "x");
    frame();
    const App::HitRect ok = hit(App::Hit::Overlay);
    const double x = ok.x + ok.w / 2;
    const double y = ok.y + ok.h / 2;
    click(x, y);
    ASSERT_EQ(app().m_overlay, App::Overlay::None);
    ASSERT_EQ(app().hit_test(x, y)->what, App::Hit::PaneRow);
    app().handle_release();
    click(x, y);
    click(x, y, 1, 0, 2);
    app().handle_release();
    EXPECT_EQ(pane(true).path(), left());
    EXPECT_EQ(selected_names(true).size(), 1U);
    // The next one is whole.
    double_click(row(1, true));
    EXPECT_EQ(pane(true).path(), left() + "/folder0");
}

// The first press fell on what a dialogue kept to itself.
TEST_F(AppPointerRows, a_press_below_a_dialogue_is_no_half_of_a_double_click) {
    make_dirs(left() + "/sub");
    start();
    const App::HitRect target = row("sub");
    app().show_message("t", "x");
    frame();
    ASSERT_EQ(app().hit_test(target.x + target.w / 2, target.y + target.h / 2)->what,
              App::Hit::PaneRow);
    click_and_release(target);
    key(GDK_KEY_Escape);
    click(target);
    click(target, 1, 0, 2);
    EXPECT_EQ(pane().path(), left());
    app().handle_release();
    double_click(target);
    EXPECT_EQ(pane().path(), left() + "/sub");
}

TEST_F(AppPointerRows, a_double_click_that_closes_a_menu_opens_no_folder) {
    make_dirs(left() + "/sub");
    start();
    const auto double_click_closes = [&](const char* what) {
        double_click(row("sub"));
        EXPECT_FALSE(app().menu_open()) << what;
        EXPECT_EQ(pane().path(), left()) << what;
    };
    app().open_menu(6);
    frame();
    double_click_closes("menu of the bar");
    app().open_context_menu(300, 400, false);
    frame();
    double_click_closes("menu of a pane");
    app().open_column_menu(300, 400, false);
    frame();
    double_click_closes("menu of the columns");
    double_click(row("sub"));
    EXPECT_EQ(pane().path(), left() + "/sub");
}

TEST_F(AppPointerRows, two_clicks_on_two_entries_at_one_place_open_neither) {
    for (const char* name : {"b", "c", "d"})
        make_dirs(left() + "/" + name);
    start();
    const App::HitRect painted = row("c");
    click_and_release(painted);
    make_dirs(left() + "/a");
    app().refresh_both();
    frame();
    ASSERT_EQ(app().hit_test(painted.x + 5, painted.y + 5)->label, "b");
    click(painted);
    click(painted, 1, 0, 2);
    EXPECT_EQ(pane().path(), left());
}

TEST_F(AppPointerRows, a_double_click_finds_its_folder_in_a_list_that_was_read_anew) {
    make_dirs(left() + "/sub");
    start_with_files(2);
    const App::HitRect painted = row("sub");
    click_and_release(painted);
    click(painted);
    make_dirs(left() + "/a");
    app().refresh_both();
    press(painted, 1, 0, 2);
    app().handle_release();
    EXPECT_EQ(pane().path(), left() + "/sub");
    EXPECT_TRUE(selected_names().empty());
}

// --- Other buttons ----------------------------------------------------------------------------

TEST_F(AppPointerRows, only_the_right_button_opens_the_menu_of_the_columns) {
    start_with_files(2);
    const App::HitRect title = hit(App::Hit::PaneHeader, 0, 1);
    const bool ascending = pane(true).sort_order().ascending;
    click(title, 2);
    EXPECT_FALSE(app().menu_open());
    EXPECT_NE(pane(true).sort_order().ascending, ascending);
    const App::HitRect strip = hit(App::Hit::PaneHeaderMenu, -1, 0);
    for (const int button : {1, 2}) {
        click(strip.x + 2, strip.y + 13, button);
        EXPECT_FALSE(app().menu_open()) << button;
        EXPECT_TRUE(app().m_active_right) << button;
    }
}

// A result that is still held at the height of the work goes at once.
TEST_F(AppPointerRows, a_result_line_that_is_dismissed_leaves_no_empty_band) {
    start();
    app().m_result.valid = true;
    app().m_progress_hold_until = App::now_seconds() + 0.2;
    frame();
    if (count_hits(App::Hit::ResultDismiss) == 0) {  // not before the band has shrunk
        ASSERT_TRUE(pump_until([this] {
            frame();
            return count_hits(App::Hit::ResultDismiss) == 1;
        }));
    }
    app().m_progress_hold_until = App::now_seconds() + 30;
    press(hit(App::Hit::ResultDismiss));
    frame();
    EXPECT_EQ(app().m_layout.progress_h, 0);
}

}  // namespace
