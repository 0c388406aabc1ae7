// A rename and the pointer: what ends it, what it goes on through, and that it never takes another
// entry than the one it began with.

#include "app_pointer.h"

#include "app_texts.h"
#include "bookmarks.h"

#include <set>

namespace {

using test_env::exists;
using test_env::make_dirs;
using test_env::painted_text;
using test_env::read_file;
using test_env::write_file;

class AppPointerRename : public AppPointer {
  protected:
    // left(): a, b and c, each holding its own name; a folder "sub" with another "b" in it.
    void start_with_three() {
        for (const char* name : {"a", "b", "c"})
            write_file(left() + "/" + name, name);
        make_dirs(left() + "/sub");
        write_file(left() + "/sub/b", "another");
        write_file(right() + "/r", "r");
        start();
    }
    // Of the first bytes of a name, as a row shows it.
    double width_of(const std::string& name, size_t bytes) {
        cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 1, 1);
        app().m_cr = cairo_create(surface);
        cairo_scale(app().m_cr, app().m_ui_scale, app().m_ui_scale);
        const double width = app().text_width(name.substr(0, bytes), 12.5, false, false);
        cairo_destroy(app().m_cr);
        app().m_cr = nullptr;
        cairo_surface_destroy(surface);
        return width;
    }
    // Where no segment is.
    void click_path_bar(int side) {
        const App::HitRect bar = hit(App::Hit::PathBar, -1, side);
        click(bar.x + bar.w - 3, bar.y + 13);
    }
    bool renaming() { return pane(false).renaming() || pane(true).renaming(); }
    // b has become bx, and nothing else has changed its name.
    void expect_b_renamed(const std::string& what = {}) {
        EXPECT_FALSE(exists(left() + "/b")) << what;
        EXPECT_EQ(read_file(left() + "/bx"), "b") << what;
        EXPECT_EQ(read_file(left() + "/a"), "a") << what;
        EXPECT_EQ(read_file(left() + "/c"), "c") << what;
        EXPECT_EQ(read_file(left() + "/sub/b"), "another") << what;
    }
    void undo() {
        std::rename((left() + "/bx").c_str(), (left() + "/b").c_str());
        app().close_overlay();
        app().end_path_edit();
        app().end_search(true);
        app().m_active_right = false;
        pane(false).navigate_to(left(), true);
        pane(true).navigate_to(right(), true);
        frame();
    }
};

// --- What ends it -----------------------------------------------------------------------------

TEST_F(AppPointerRename, a_click_elsewhere_commits_a_rename) {
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

TEST_F(AppPointerRename, the_other_sides_banner_commits_a_rename) {
    start_with_files(1);
    put_cursor_on("file0");
    key(GDK_KEY_F2);
    key(GDK_KEY_x);
    click(hit(App::Hit::PaneBanner, -1, 1));
    EXPECT_TRUE(app().m_active_right);
    EXPECT_FALSE(pane(false).renaming());
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "file0x"}));
}

// The commit sorts the renamed entry away from above the row that was clicked.
TEST_F(AppPointerRename, the_row_that_was_clicked_is_meant_even_if_the_commit_moves_it) {
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

TEST_F(AppPointerRename, whatever_turns_to_something_else_commits_it) {
    start_with_three();
    struct Case {
        const char* what;
        bool right;  // the active side behind it
        std::function<void()> click;
    };
    const std::vector<Case> cases = {
        {"another row", false, [this] { click(row("c")); }},
        {"a right click on another row", false, [this] { click(row("c"), 3); }},
        {"a row of the other side", true, [this] { click(row("r", true)); }},
        {"the background", false, [this] { click_below_rows(); }},
        {"the other background", true, [this] { click_below_rows(true); }},
        {"its banner", false, [this] { click(hit(App::Hit::PaneBanner, -1, 0)); }},
        {"the other banner", true, [this] { click(hit(App::Hit::PaneBanner, -1, 1)); }},
        {"the other header", true, [this] { click(hit(App::Hit::PaneHeader, 0, 1)); }},
        {"an edge in it", true, [this] { click_and_release(hit(App::Hit::ColumnResize, -1, 1)); }},
        {"a segment", false, [this] { click(hit(App::Hit::PathSegment, 1, 0)); }},
        {"the other segment", true, [this] { click(hit(App::Hit::PathSegment, 1, 1)); }},
        {"the path bar", false, [this] { click_path_bar(0); }},
        {"the other path bar", true, [this] { click_path_bar(1); }},
        {"the filter bar", false, [this] { click(hit(App::Hit::SearchBar, -1, 0)); }},
        {"the other filter's cross", true, [this] { click(hit(App::Hit::SearchClear, -1, 1)); }},
        {"the bridge", false, [this] { click(hit(App::Hit::BridgeRefresh)); }},
    };
    for (const Case& c : cases) {
        pane(false).set_filter("*", true);  // for the bars to be there
        pane(true).set_filter("*", true);
        rename("b", "x");
        pane(false).set_filter("*", true);
        frame();
        c.click();
        EXPECT_FALSE(renaming()) << c.what;
        EXPECT_EQ(app().m_active_right, c.right) << c.what;
        expect_b_renamed(c.what);
        undo();
        app().close_menus();
    }
}

TEST_F(AppPointerRename, the_one_helper_commits_whichever_side_is_renaming) {
    start_with_three();
    rename("r", "x", true);
    app().m_active_right = false;
    EXPECT_TRUE(app().commit_rename());
    EXPECT_FALSE(renaming());
    EXPECT_TRUE(exists(right() + "/rx"));
    rename("b", "x");
    app().m_active_right = true;
    EXPECT_TRUE(app().commit_rename());
    expect_b_renamed();
    EXPECT_EQ(cursor_name(false), "bx");
    EXPECT_EQ(cursor_name(true), "rx");
}

TEST_F(AppPointerRename, a_bookmark_opened_on_the_other_side_commits_it) {
    start_with_three();
    rename("b", "x");
    app().m_pending_bookmark = right();
    app().perform(Action::BookmarkOpenRight, 0);
    EXPECT_TRUE(app().m_active_right);
    EXPECT_FALSE(renaming());
    expect_b_renamed();
}

TEST_F(AppPointerRename, a_copy_by_the_bridge_copies_what_it_has_become) {
    start_with_three();
    rename("b", "x");
    click(hit(App::Hit::BridgeCopy));
    ASSERT_TRUE(settle());
    EXPECT_EQ(read_file(right() + "/bx"), "b");
    EXPECT_FALSE(exists(right() + "/b"));
}

// --- A name that is refused -------------------------------------------------------------------

TEST_F(AppPointerRename, a_refused_name_is_told_and_no_command_covers_it) {
    start_with_three();
    pane().set_filter("*", true);
    for (const App::Hit what :
         {App::Hit::SearchBar, App::Hit::SearchClear, App::Hit::PathBar, App::Hit::BridgeNewFolder,
          App::Hit::BridgeCopy, App::Hit::BridgeMove, App::Hit::BridgeRefresh,
          App::Hit::PathSegment}) {
        put_cursor_on("b");
        rename("b", "");
        key(GDK_KEY_BackSpace);
        type("c");  // which there is already
        pane().set_filter("*", true);
        frame();
        if (what == App::Hit::PathBar)
            click_path_bar(0);
        else
            press(hit(what));
        EXPECT_EQ(app().m_overlay, App::Overlay::Message) << App::hit_name(what);
        EXPECT_EQ(app().m_path_edit, -1);
        EXPECT_EQ(app().m_search_pane, -1);
        EXPECT_TRUE(app().m_overlay_is_error);
        EXPECT_EQ(pane().path(), left());
        EXPECT_FALSE(App::busy());
        EXPECT_FALSE(renaming());
        app().close_overlay();
        frame();
    }
    EXPECT_EQ(read_file(left() + "/b"), "b");
    EXPECT_EQ(read_file(left() + "/c"), "c");
    EXPECT_TRUE(names(true) == (Names{"..", "r"}));
}

TEST_F(AppPointerRename, a_refused_name_does_not_hinder_a_row_from_being_marked) {
    start_with_three();
    rename("b", "");
    key(GDK_KEY_BackSpace);
    type("c");
    click(row("a"));
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_EQ(selected_names(), Names{"a"});
}

TEST_F(AppPointerRename, a_refused_name_is_covered_by_no_menu_and_no_drive) {
    start_with_three();
    const auto refuse = [&] {
        rename("b", "");
        key(GDK_KEY_BackSpace);
        type("c");
    };
    refuse();
    click(row("a"), 3);
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_FALSE(app().menu_open());
    app().close_overlay();
    frame();
    refuse();
    click_below_rows(false, 3);
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_FALSE(app().menu_open());
    app().close_overlay();
    frame();
    refuse();
    click(hit(App::Hit::DrivePicker, -1, 0));
    click(hit(App::Hit::DriveItem, 0));
    EXPECT_EQ(app().m_overlay, App::Overlay::Message);
    EXPECT_EQ(pane().path(), left());
}

// --- What it goes on through ------------------------------------------------------------------

TEST_F(AppPointerRename, sorting_by_its_own_header_goes_on_with_the_same_entry) {
    start_with_three();
    rename("b", "x");
    click(hit(App::Hit::PaneHeader, 0, 0));
    EXPECT_EQ(names(), (Names{"..", "sub", "c", "b", "a"}));
    EXPECT_TRUE(renaming());
    EXPECT_EQ(pane().rename_target(), 3);
    key(GDK_KEY_Return);
    expect_b_renamed();
}

TEST_F(AppPointerRename, the_entry_stays_in_view_when_its_list_is_sorted) {
    start_with_files(60);
    rename("file0", "x");
    click(hit(App::Hit::PaneHeader, 0, 0));
    EXPECT_TRUE(renaming());
    EXPECT_EQ(pane().rename_target(), 60);
    EXPECT_EQ(row("file0").h, 24);
}

TEST_F(AppPointerRename, pulling_and_turning_go_on_with_it) {
    start_with_files(60);
    rename("file5", "x");
    const App::HitRect thumb = hit(App::Hit::ScrollThumb, -1, 0);
    click(thumb);
    app().handle_motion(thumb.x + 5, thumb.y + thumb.h / 2 + 50);
    app().handle_release();
    frame();
    click_and_release(hit(App::Hit::ColumnResize, -1, 0));
    app().handle_scroll(20, GDK_SCROLL_DOWN, 0);
    EXPECT_TRUE(renaming());
    key(GDK_KEY_Return);
    EXPECT_TRUE(exists(left() + "/file5x"));
}

TEST_F(AppPointerRename, reading_the_list_anew_never_takes_it_to_another_entry) {
    start_with_three();
    for (const bool by_click : {false, true}) {
        rename("b", "x");
        const int before = pane().rename_target();
        write_file(left() + "/0 above", "x");
        app().perform(Action::Refresh, 0);
        EXPECT_EQ(pane().rename_target(), before + 1);
        frame();
        if (by_click)
            click(row("a"));
        else
            key(GDK_KEY_Return);
        expect_b_renamed();
        EXPECT_EQ(read_file(left() + "/0 above"), "x");
        std::remove((left() + "/0 above").c_str());
        undo();
    }
}

TEST_F(AppPointerRename, the_end_of_a_job_never_takes_it_to_another_entry) {
    start_with_three();
    for (const bool by_click : {false, true}) {
        rename("b", "x");
        const std::string above = left() + "/0 above";
        ASSERT_TRUE(BgTask::instance().start(
            BgTask::Kind::Pack, "t", [above](BgTask::Reporter&) { write_file(above, "x"); }));
        app().m_bgtask_was_running = true;
        ASSERT_TRUE(settle());
        EXPECT_EQ(names(), (Names{"..", "sub", "0 above", "a", "b", "c"}));
        EXPECT_TRUE(renaming());
        frame();
        if (by_click)
            click_below_rows();
        else
            key(GDK_KEY_Return);
        expect_b_renamed();
        EXPECT_EQ(read_file(above), "x");
        std::remove(above.c_str());
        undo();
    }
}

// The folder shown then has an entry of that name and, at that row, one of another.
TEST_F(AppPointerRename, the_history_never_takes_it_to_another_entry) {
    start_with_three();
    for (const bool by_click : {false, true}) {
        pane().navigate_to(left() + "/sub", true);
        pane().navigate_to(left(), true);
        rename("b", "x");
        app().perform(Action::GoBack, 0);
        ASSERT_EQ(pane().path(), left() + "/sub");
        frame();
        if (by_click)
            click(row("b"));
        else
            app().commit_rename();
        EXPECT_FALSE(renaming());
        EXPECT_EQ(names(), (Names{"..", "b"}));
        EXPECT_EQ(read_file(left() + "/b"), "b");
        EXPECT_EQ(read_file(left() + "/sub/b"), "another");
        undo();
    }
}

// --- The box ----------------------------------------------------------------------------------

TEST_F(AppPointerRename, a_click_into_the_box_sets_the_caret_and_nothing_else) {
    start_with_three();
    make_dirs(left() + "/äöü folder");
    app().refresh_both();
    frame();
    click_and_release(row("a"));
    put_cursor_on("äöü folder");
    pane().begin_rename();
    for (const int scale : {70, 100, 200}) {
        settings().font_scale = scale;
        frame();
        const test_env::PaintedText* text = painted_text("äöü folder");
        ASSERT_TRUE(text);
        const double y = row("äöü folder").y + 12;
        const auto caret_after_click = [&](double x, guint clicks = 1, guint state = 0) {
            app().handle_click(x, y, 1, state, clicks);
            return pane().rename_caret();
        };
        EXPECT_EQ(caret_after_click(text->x), 0U) << scale;
        EXPECT_EQ(caret_after_click(text->x + text->width + 20), pane().rename_buffer().size());
        // Each edge between two characters takes what is nearest to it.
        size_t at = 0;
        for (const size_t bytes : {2U, 2U, 2U, 1U, 1U, 1U, 1U, 1U, 1U, 1U}) {
            at += bytes;
            const double edge = text->x + width_of("äöü folder", at);
            EXPECT_EQ(caret_after_click(edge + 0.6), at) << scale;
            EXPECT_EQ(caret_after_click(edge - 0.6), at) << scale;
        }
        EXPECT_EQ(caret_after_click(text->x, 2), 0U);
        EXPECT_EQ(caret_after_click(text->x, 1, GDK_CONTROL_MASK), 0U);
        app().handle_click(text->x + 2, y, 3, 0, 1);
        EXPECT_EQ(pane().path(), left());
        EXPECT_TRUE(pane().renaming());
        EXPECT_FALSE(app().m_press_pending);
        EXPECT_EQ(selected_names(), Names{"a"});
    }
}

TEST_F(AppPointerRename, a_click_beside_the_box_is_one_on_the_row) {
    start_with_three();
    rename("b", "x");
    const App::HitRect target = row("b");
    click(target.x + target.w - 2, target.y + 12);
    EXPECT_EQ(selected_names(), Names{"b"});
    EXPECT_TRUE(renaming());
    key(GDK_KEY_Return);
    expect_b_renamed();
}

TEST_F(AppPointerRename, the_box_ends_at_its_edges) {
    start_with_three();
    rename("b", "x");
    const App::Rect box = app().m_rename_field.box;
    const App::HitRect target = row("b");
    struct Case {
        double x;
        double y;
        bool inside;
    };
    const double middle = box.y + box.h / 2;
    for (const Case& c :
         {Case{box.x, middle, true}, Case{box.x - 0.5, middle, false},
          Case{box.x + box.w - 0.5, middle, true}, Case{box.x + box.w, middle, false},
          Case{box.x + 2, box.y, true}, Case{box.x + 2, box.y + box.h - 0.5, true}}) {
        pane().clear_selection();
        app().handle_click(c.x, c.y, 1, 0, 1);
        app().handle_release();
        EXPECT_EQ(pane().has_selection(), !c.inside) << c.x << " " << c.y;
    }
    ASSERT_LT(box.y + box.h, target.y + target.h);
    pane().clear_selection();
    app().handle_click(box.x + 2, box.y + box.h, 1, 0, 1);
    EXPECT_TRUE(pane().has_selection());
    app().handle_release();
    ASSERT_GT(box.y, target.y);
    pane().clear_selection();
    app().handle_click(box.x + 2, box.y - 0.5, 1, 0, 1);
    EXPECT_TRUE(pane().has_selection());
    EXPECT_TRUE(renaming());
}

// What stands left of the box is part of the name all the same.
TEST_F(AppPointerRename, a_long_name_that_has_moved_left_is_hit_where_it_is_painted) {
    const std::string name(120, 'm');
    write_file(left() + "/" + name, "x");
    start();
    put_cursor_on(name);
    pane().begin_rename();
    frame();
    const App::Rect box = app().m_rename_field.box;
    ASSERT_LT(app().m_rename_field.text_x, box.x - 500);
    app().handle_click(box.x + 5, box.y + 10, 1, 0, 1);
    const double letter = painted_text(name)->width / 120;
    EXPECT_NEAR(static_cast<double>(pane().rename_caret()),
                (box.x + 5 - app().m_rename_field.text_x) / letter, 1);
}

// --- A command that ends it --------------------------------------------------------------------

TEST_F(AppPointerRename, a_command_takes_no_other_entry_for_one_that_its_new_name_hides) {
    start_with_three();
    settings().show_hidden = false;
    settings().confirm_delete = false;
    for (const App::Hit button : {App::Hit::BridgeCopy, App::Hit::BridgeMove}) {
        write_file(left() + "/b", "b");
        pane(false).reload(false);
        rename("b", "");
        key(GDK_KEY_Home);
        key(GDK_KEY_period);
        click(hit(button));
        EXPECT_TRUE(exists(left() + "/.b")) << static_cast<int>(button);
        EXPECT_FALSE(app().busy());
        EXPECT_EQ(app().m_overlay, App::Overlay::Message);
        EXPECT_EQ(app().m_overlay_title, tr("dlg.nothing_title"));
        app().close_overlay();
        frame();
        std::remove((left() + "/.b").c_str());
    }
    for (const char* name : {"a", "c"}) {
        EXPECT_TRUE(exists(left() + "/" + name)) << name;
        EXPECT_FALSE(exists(right() + "/" + name)) << name;
    }
}

// --- Names of other bytes ---------------------------------------------------------------------

// Each of such bytes is painted as a character of three.
TEST_F(AppPointerRename, a_click_behind_a_path_that_is_no_utf8_puts_the_caret_at_its_end) {
    const std::string path = left() + "/\xff\xfe\xfd";
    make_dirs(path);
    start();
    pane().navigate_to(path, true);
    app().begin_path_edit(false);
    app().m_path_caret = 0;
    frame();
    const App::PaintedField field = app().m_path_field;
    click(field.box.x + field.box.w - 40, field.box.y + 13);
    ASSERT_EQ(app().m_path_caret, path.size());
    std::set<size_t> carets;
    for (double x = field.text_x; x < field.box.x + field.box.w - 40; x += 3) {
        click(x, field.box.y + 13);
        carets.insert(app().m_path_caret);
    }
    for (size_t bytes = 0; bytes <= path.size(); ++bytes)
        EXPECT_EQ(carets.count(bytes), 1U) << bytes;
    key(GDK_KEY_BackSpace);
    frame();
    EXPECT_EQ(app().m_path_buffer, left() + "/\xff\xfe");
}

// A byte that goes on where nothing began is a part of the character before it, as for the keys.
TEST_F(AppPointerRename, a_click_leaves_the_caret_where_the_keys_can_put_it) {
    const std::string path = left() + "/a\x80\x80";
    make_dirs(path);
    start();
    pane().navigate_to(path, true);
    app().begin_path_edit(false);
    frame();
    const App::PaintedField field = app().m_path_field;
    for (double x = field.text_x; x < field.text_x + 500; x += 3) {
        click(x, field.box.y + 13);
        EXPECT_NE(app().m_path_caret, path.size() - 1);
        EXPECT_NE(app().m_path_caret, path.size() - 2);
        ASSERT_LE(app().m_path_caret, path.size());
    }
}

}  // namespace
