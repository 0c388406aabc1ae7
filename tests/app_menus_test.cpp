// The menus in the window: where they are painted, what a click on them does, and the gates that
// an open menu puts before everything else.

#include "app_pane_paint.h"

#include "app_texts.h"
#include "bookmarks.h"
#include "fresh_process.h"
#include "i18n.h"
#include "menu_model.h"
#include "recent.h"

#include <filesystem>
#include <gdk/gdkkeysyms.h>
#include <unistd.h>

namespace {

using Hit = App::Hit;
using Overlay = App::Overlay;
using test_env::make_dirs;
using test_env::painted_text;
using test_env::write_file;

enum Title { File, Edit, View, Go, Bookmarks, Tools, Help };

class AppMenus : public PanePaint {
  protected:
    void SetUp() override {
        PanePaint::SetUp();
        bookmarks::restore({});
    }
    App::HitRect title(int index) { return hit(Hit::MenuTitle, index); }
    App::HitRect item(Action action) { return hit(Hit::MenuItem, static_cast<int>(action)); }
    App::HitRect row(int index, bool on_the_right = false) {
        return hit(Hit::PaneRow, index, on_the_right ? 1 : 0);
    }
    void open(int index) {
        app().close_menus();
        frame();
        click(title(index));
        ASSERT_EQ(app().m_open_menu, index);
    }
    void move(const App::HitRect& to) {
        app().handle_motion(to.x + to.w / 2, to.y + to.h / 2);
        frame();
    }
    // A point of the left list below its rows.
    void background(int button) { click(200, 650, button); }
    // What the open menu's box has, top down: the labels, "-" for a gap between two of them.
    std::vector<App::HitRect> items() const {
        std::vector<App::HitRect> found;
        for (const App::HitRect& rect : const_cast<AppMenus*>(this)->app().m_hits)
            if (rect.what == Hit::MenuItem || rect.what == Hit::RecentItem ||
                rect.what == Hit::BookmarkItem)
                found.push_back(rect);
        return found;
    }
    // The box of the open menu, which is the one rectangle without a meaning.
    App::HitRect box() { return hit(Hit::None); }
    std::string labels() const {
        std::string text;
        for (const App::HitRect& rect : items())
            text += (text.empty() ? "" : ", ") + rect.label;
        return text;
    }
    void mark(const std::vector<std::string>& names) {
        std::vector<bookmarks::Bookmark> list;
        for (const std::string& name : names)
            list.push_back({name, left() + "/" + name});
        bookmarks::restore(list);
    }
};

// --- The bar ----------------------------------------------------------------------------------

TEST_F(AppMenus, the_bar_has_a_title_for_each_menu_side_by_side) {
    start();
    double x = 10;
    for (int i = File; i <= Help; ++i) {
        const App::HitRect rect = title(i);
        EXPECT_EQ(rect.x, x) << i;
        EXPECT_EQ(rect.y, 0);
        EXPECT_EQ(rect.h, 30);
        EXPECT_FALSE(rect.in_menu);
        const test_env::PaintedText* text =
            painted_text(tr(menu_model::bar()[static_cast<size_t>(i)].title_key));
        ASSERT_NE(text, nullptr);
        EXPECT_EQ(text->x, x + 10);
        EXPECT_NEAR(text->y, 15, 0.5);
        EXPECT_EQ(text->size, 12.5);
        EXPECT_EQ(rect.w, text->width + 20);
        x += rect.w;
    }
    EXPECT_EQ(count_hits(Hit::MenuTitle), 7U);
}

TEST_F(AppMenus, the_bar_is_a_band_with_a_line_below) {
    start();
    for (const Look& look_at : kLooks) {
        look(look_at.theme, look_at.scale);
        const Palette& p = app().m_palette;
        for (const double x : {1.0, 700.0, 1098.0}) {
            EXPECT_EQ(at(x, 1), p.bar) << look_at.scale;
            EXPECT_EQ(at(x, 27), p.bar);
            EXPECT_EQ(at(x, 29.4), p.divider) << look_at.scale;
        }
    }
}

TEST_F(AppMenus, a_hovered_title_and_an_open_one_are_marked) {
    start();
    for (const char* theme : {"light", "dark"}) {
        look(theme, 100);
        const Palette& p = app().m_palette;
        const App::HitRect edit = title(Edit);
        const auto inside = [&](double y) { return at(edit.x + 5, y); };
        app().handle_motion(500, 600);
        frame();
        EXPECT_EQ(inside(15), p.bar);
        move(edit);
        frame();
        EXPECT_EQ(inside(15), p.control_hover);
        EXPECT_EQ(inside(2), p.bar);
        EXPECT_EQ(inside(3), p.control_hover);
        EXPECT_EQ(inside(25), p.control_hover);
        EXPECT_EQ(inside(26), p.bar);
        EXPECT_NE(at(edit.x, 3), p.control_hover);  // round corners
        open(Edit);
        EXPECT_EQ(inside(15), p.menu_hover);
        EXPECT_EQ(inside(26), p.bar);
        app().close_menus();
    }
}

TEST_F(AppMenus, a_click_on_a_title_opens_and_closes_its_menu) {
    start();
    click(title(View));
    EXPECT_EQ(app().m_open_menu, View);
    click(title(View));
    EXPECT_EQ(app().m_open_menu, -1);
    EXPECT_EQ(count_hits(Hit::MenuItem), 0U);
    click(title(View));
    click(title(Go));  // a click beside a menu only closes it
    EXPECT_EQ(app().m_open_menu, -1);
}

TEST_F(AppMenus, moving_along_the_bar_switches_menus_once_one_is_open) {
    start();
    move(title(Edit));
    EXPECT_EQ(app().m_open_menu, -1);
    open(File);
    move(title(Edit));
    EXPECT_EQ(app().m_open_menu, Edit);
    EXPECT_EQ(items().front().label, tr("action.copy_to_other"));
    move(item(Action::SelectAll));
    EXPECT_EQ(app().m_open_menu, Edit);
    // The same with a button held.
    GdkEvent* event = gdk_event_new(GDK_MOTION_NOTIFY);
    const App::HitRect help = title(Help);
    event->motion.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(app().m_canvas)));
    event->motion.x = help.x + 3;
    event->motion.y = 10;
    event->motion.state = GDK_BUTTON1_MASK;
    gdk_event_set_device(
        event, gdk_seat_get_pointer(gdk_display_get_default_seat(gdk_display_get_default())));
    EXPECT_TRUE(gtk_widget_event(app().m_canvas, event));
    gdk_event_free(event);
    EXPECT_EQ(app().m_open_menu, Help);
}

// --- Drop-downs -------------------------------------------------------------------------------

TEST_F(AppMenus, each_drop_down_shows_its_list_below_its_title) {
    start();
    for (int i = File; i <= Help; ++i) {
        open(i);
        const App::HitRect body = box();
        EXPECT_EQ(body.x, title(i).x);
        EXPECT_EQ(body.y, 30);
        EXPECT_GE(body.w, 160);
        double y = 30 + 6;
        for (const menu_model::Item& entry : menu_model::bar()[static_cast<size_t>(i)].items) {
            if (entry.separator) {
                EXPECT_EQ(at(body.x + 10, y + 3), app().m_palette.divider) << y;
                EXPECT_EQ(at(body.x + body.w - 11, y + 3), app().m_palette.divider);
                EXPECT_EQ(at(body.x + 9, y + 3), app().m_palette.menu_bg);
                EXPECT_EQ(at(body.x + body.w - 10, y + 3), app().m_palette.menu_bg);
                EXPECT_EQ(at(body.x + 20, y + 4), app().m_palette.menu_bg);
                y += 7;
                continue;
            }
            const App::HitRect* rect = app().hit_test(body.x + 30, y + 13);
            ASSERT_NE(rect, nullptr);
            EXPECT_EQ(rect->what, Hit::MenuItem);
            EXPECT_EQ(rect->label, tr(entry.label_key));
            EXPECT_EQ(rect->y, y);
            EXPECT_EQ(rect->h, 26);
            EXPECT_EQ(rect->x, body.x);
            EXPECT_EQ(rect->w, body.w);
            EXPECT_TRUE(rect->in_menu);
            EXPECT_FALSE(rect->in_overlay);
            y += 26;
        }
        EXPECT_TRUE(i == Go || i == Bookmarks || body.y + body.h == y + 6) << i;
        EXPECT_TRUE(body.in_menu);
    }
    app().close_menus();
    frame();
    EXPECT_TRUE(items().empty());
}

TEST_F(AppMenus, a_box_is_as_wide_as_its_widest_line) {
    start();
    open(Help);
    // 160 unless something is wider.
    double widest = 160;
    for (const App::HitRect& rect : items())
        widest = std::max(widest, painted_text(rect.label)->width + 50);
    EXPECT_EQ(box().w, widest);
    test_env::forget_painted();
    open(File);
    widest = 160;
    for (const menu_model::Item& entry : menu_model::bar()[File].items) {
        if (entry.separator)
            continue;
        const test_env::PaintedText* label = painted_text(tr(entry.label_key));
        ASSERT_NE(label, nullptr) << entry.label_key;
        EXPECT_EQ(label->size, 12.5);
        double w = label->width + 50;
        if (entry.shortcut) {
            const test_env::PaintedText* keys = painted_text(entry.shortcut);
            ASSERT_NE(keys, nullptr);
            EXPECT_EQ(keys->size, 11);
            EXPECT_EQ(keys->x + keys->width, box().x + box().w - 14);
            w += keys->width + 20;
        }
        widest = std::max(widest, w);
    }
    EXPECT_EQ(box().w, widest);
    EXPECT_GT(widest, 160);
}

TEST_F(AppMenus, an_index_outside_the_bar_paints_nothing) {
    start();
    for (const int index : {7, 1000}) {
        app().m_open_menu = index;
        frame();
        EXPECT_TRUE(items().empty());
        EXPECT_FALSE(app().m_drawing_menu);
    }
}

TEST_F(AppMenus, the_body_has_an_outline_and_a_soft_shadow) {
    start();
    for (const char* theme : {"light", "dark"}) {
        look(theme, 100);
        const Palette p = app().m_palette;
        app().close_menus();
        frame();
        open(Edit);
        const App::HitRect b = box();
        EXPECT_EQ(at(b.x + 50, b.y + b.h - 1), p.menu_border);
        EXPECT_EQ(at(b.x, b.y + 60), p.menu_border);
        EXPECT_EQ(at(b.x + b.w - 1, b.y + 60), p.menu_border);
        EXPECT_EQ(at(b.x + 50, b.y + b.h - 3), p.menu_bg);
        const double below = b.y + b.h;
        const std::string with = at(b.x + 60, below), deeper = at(b.x + 60, below + 2);
        app().close_menus();
        frame();
        const std::string without = at(b.x + 60, below), plain = at(b.x + 60, below + 2);
        expect_near(with, over("#000000", 0.08, over("#000000", 0.1, without)), "two shadows");
        expect_near(deeper, over("#000000", 0.08, plain), "one shadow");
    }
}

// One shadow, where a drop-down has two.
TEST_F(AppMenus, the_menu_of_a_pane_has_an_outline_and_one_shadow) {
    start();
    const Palette p = app().m_palette;
    for (const bool columns : {false, true}) {
        if (columns)
            app().open_column_menu(300, 200, false);
        else
            app().open_context_menu(300, 200, false);
        frame();
        const App::HitRect b = box();
        EXPECT_EQ(at(b.x + 50, b.y + b.h - 1), p.menu_border);
        EXPECT_EQ(at(b.x, b.y + 60), p.menu_border);
        EXPECT_EQ(at(b.x + b.w - 1, b.y + 60), p.menu_border);
        const double below = b.y + b.h;
        const std::string with = at(b.x + 60, below), deeper = at(b.x + 60, below + 2);
        app().close_menus();
        frame();
        expect_near(with, over("#000000", 0.1, at(b.x + 60, below)), "shadow");
        EXPECT_EQ(deeper, at(b.x + 60, below + 2));
    }
}

TEST_F(AppMenus, the_item_under_the_pointer_is_marked) {
    start();
    open(View);
    const App::HitRect refresh = item(Action::Refresh);
    const auto mark = [&] { return at(refresh.x + 8, refresh.y + 13); };
    EXPECT_EQ(mark(), app().m_palette.menu_bg);
    move(refresh);
    EXPECT_EQ(app().m_menu_hover_item, static_cast<int>(Action::Refresh));
    EXPECT_EQ(mark(), app().m_palette.menu_hover);
    EXPECT_EQ(at(refresh.x + 8, refresh.y - 2), app().m_palette.menu_bg);
    EXPECT_EQ(at(refresh.x + 8, refresh.y + 27), app().m_palette.menu_bg);
    move(title(View));
    EXPECT_EQ(app().m_menu_hover_item, -1);
    EXPECT_EQ(mark(), app().m_palette.menu_bg);
    move(refresh);
    app().handle_leave();
    EXPECT_EQ(app().m_menu_hover_item, -1);
    EXPECT_EQ(app().m_hover, -1);
    move(refresh);
    app().handle_motion(-5, -5);
    EXPECT_EQ(app().m_menu_hover_item, -1);
}

TEST_F(AppMenus, a_tick_shows_what_is_switched_on) {
    start();
    Settings& s = settings();
    const struct {
        Action action;
        bool& setting;
    } kChecks[] = {
        {Action::ToggleHidden, s.show_hidden},
        {Action::ToggleColSize, s.show_size},
        {Action::ToggleColType, s.show_type},
        {Action::ToggleColModified, s.show_modified},
        {Action::ToggleColCreated, s.show_created},
        {Action::ToggleColPermissions, s.show_permissions},
        {Action::ToggleColOwner, s.show_owner},
        {Action::ToggleColGroup, s.show_group},
    };
    for (const auto& checked : kChecks) {
        for (const auto& entry : kChecks)
            entry.setting = &entry == &checked;
        open(View);
        for (const auto& entry : kChecks) {
            const App::HitRect rect = item(entry.action);
            EXPECT_EQ(painted(static_cast<int>(rect.x) + 4, static_cast<int>(rect.y) + 2, 22, 22),
                      &entry == &checked)
                << action_name(entry.action);
        }
        EXPECT_FALSE(painted(static_cast<int>(box().x) + 4,
                             static_cast<int>(item(Action::Refresh).y) + 2, 22, 22));
    }
}

TEST_F(AppMenus, an_item_does_its_action_and_all_menus_close) {
    start();
    write_file(left() + "/new", "x");
    open(View);
    click(item(Action::Refresh));
    EXPECT_FALSE(app().menu_open());
    EXPECT_EQ(names(), (std::vector<std::string>{"..", "new"}));
    EXPECT_TRUE(logged("action: Refresh [" + left() + "]"));
    open(View);
    click(item(Action::ToggleColOwner));
    EXPECT_TRUE(settings().show_owner);
    open(File);
    click(item(Action::NewFolder));
    EXPECT_EQ(app().m_overlay, Overlay::NewFolder);
    EXPECT_FALSE(app().menu_open());
}

TEST_F(AppMenus, a_disabled_item_only_closes_the_menu) {
    start();  // with an empty folder
    open(Edit);
    const App::HitRect move_item = items()[1];
    EXPECT_EQ(move_item.label, tr("action.move_to_other"));
    EXPECT_EQ(move_item.param, 0);
    EXPECT_EQ(painted_text(tr("action.move_to_other"))->color, app().m_palette.dim);
    EXPECT_EQ(painted_text(tr("action.select_all"))->color, app().m_palette.text);
    move(move_item);
    EXPECT_EQ(at(move_item.x + 8, move_item.y + 13), app().m_palette.menu_bg);
    const size_t lines = log_lines().size();
    click(move_item);
    EXPECT_EQ(app().m_open_menu, -1);
    EXPECT_EQ(app().m_overlay, Overlay::None);
    EXPECT_EQ(log_lines().size(), lines);
    // With something under the cursor it is to be had.
    write_file(left() + "/a", "x");
    key(GDK_KEY_r, GDK_CONTROL_MASK);
    put_cursor_on("a");
    open(Edit);
    EXPECT_EQ(items()[1].param, static_cast<int>(Action::MoveToOther));
    EXPECT_EQ(painted_text(tr("action.move_to_other"))->color, app().m_palette.text);
}

TEST_F(AppMenus, the_rest_of_the_box_keeps_the_menu_open) {
    start();
    open(File);
    const App::HitRect first_separator = item(Action::NewFile);
    click(first_separator.x + 40, first_separator.y + 26 + 3);
    EXPECT_EQ(app().m_open_menu, File);
    click(box().x + 40, box().y + 2);
    EXPECT_EQ(app().m_open_menu, File);
}

// --- Gates ------------------------------------------------------------------------------------

TEST_F(AppMenus, a_click_beside_a_menu_only_closes_it) {
    files(5);
    start();
    const App::HitRect dismissed = row(5);
    for (const int kind : {0, 1, 2}) {
        if (kind == 0)
            open(Edit);
        else if (kind == 1)
            background(3);
        else
            app().open_column_menu(900, 400, false);
        frame();
        ASSERT_TRUE(app().menu_open());
        const int cursor = pane().cursor();
        const std::vector<std::string> selected = selected_names();
        click(dismissed.x + 400, dismissed.y + 5);
        app().handle_release();
        EXPECT_FALSE(app().menu_open()) << kind;
        EXPECT_EQ(pane().cursor(), cursor);
        EXPECT_EQ(selected_names(), selected);
    }
    // Nowhere at all is beside it too.
    open(Edit);
    click(-10, -10);
    EXPECT_FALSE(app().menu_open());
}

TEST_F(AppMenus, during_work_a_click_on_a_row_does_not_even_close_a_menu) {
    files(3);
    start();
    const App::HitRect target = row(3);
    open(Help);
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
        while (reporter.keep_going())
            g_usleep(1000);
    }));
    app().m_bgtask_was_running = true;
    app().handle_click(target.x + 5, target.y + 5, 1, 0, 1);
    EXPECT_EQ(app().m_open_menu, Help);
    app().handle_click(5, 60, 1, 0, 1);  // the header is not of the panes
    EXPECT_EQ(app().m_open_menu, -1);
    // The bar stays usable.
    click(title(File));
    EXPECT_EQ(app().m_open_menu, File);
    click(item(Action::NewFolder));
    EXPECT_EQ(app().m_overlay, Overlay::NewFolder);
    app().close_overlay();
    app().m_context_menu = true;
    app().handle_click(target.x + 5, target.y + 5, 1, 0, 1);
    EXPECT_TRUE(app().m_context_menu);
    app().close_menus();
    BgTask::instance().cancel();
    ASSERT_TRUE(settle());
}

TEST_F(AppMenus, what_a_menu_that_has_gone_has_painted_takes_no_click) {
    start();
    open(File);
    const App::HitRect folder = item(Action::NewFolder);
    app().handle_click(folder.x + 5, folder.y + 5, 1, 0, 1);
    app().close_overlay();
    app().handle_click(folder.x + 5, folder.y + 5, 1, 0, 1);  // no frame in between
    EXPECT_EQ(app().m_overlay, Overlay::None);
    // Whatever has closed it.
    app().open_context_menu(300, 300, false);
    frame();
    const App::HitRect in_context = item(Action::NewFolder);
    app().handle_click(in_context.x - 100, in_context.y, 1, 0, 1);
    EXPECT_FALSE(app().menu_open());
    app().handle_click(in_context.x + 5, in_context.y + 5, 1, 0, 1);
    EXPECT_EQ(app().m_overlay, Overlay::None);
    // Nor what the menu before has painted.
    open(File);
    const App::HitRect edit = title(Edit);
    app().handle_motion(edit.x + 5, edit.y + 5);
    app().handle_click(folder.x + 5, folder.y + 5, 1, 0, 1);
    EXPECT_EQ(app().m_overlay, Overlay::None);
}

TEST_F(AppMenus, a_dialogue_closes_the_menus_below_it) {
    start();
    open(File);
    key(GDK_KEY_F7);
    EXPECT_EQ(app().m_overlay, Overlay::NewFolder);
    EXPECT_FALSE(app().menu_open());
}

TEST_F(AppMenus, escape_closes_every_menu_and_other_keys_go_on) {
    files(3);
    start();
    open(File);
    key(GDK_KEY_Down);
    EXPECT_EQ(pane().cursor(), 1);
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    EXPECT_EQ(app().m_open_menu, File);
    key(GDK_KEY_Escape);
    EXPECT_FALSE(app().menu_open());
    EXPECT_EQ(selected_names().size(), 3U);  // which the next Escape gives up
    app().open_context_menu(300, 300, false);
    key(GDK_KEY_Escape);
    EXPECT_FALSE(app().menu_open());
    app().open_column_menu(300, 300, false);
    key(GDK_KEY_Escape);
    EXPECT_FALSE(app().menu_open());
    EXPECT_EQ(selected_names().size(), 3U);
    key(GDK_KEY_Escape);
    EXPECT_TRUE(selected_names().empty());
}

// --- Visited folders --------------------------------------------------------------------------

TEST_F(AppMenus, the_go_menu_ends_with_the_visited_folders) {
    make_dirs(left() + "/one");
    make_dirs(left() + "/two");
    start();
    for (const char* name : {"/one", "/gone", "/two"})
        recent::add(left() + name);
    open(Go);
    const std::vector<std::string> present = recent::all();
    ASSERT_GE(present.size(), 2U);
    EXPECT_EQ(present[0], left() + "/two");
    EXPECT_EQ(present[1], left() + "/one");
    ASSERT_EQ(count_hits(Hit::RecentItem), present.size());
    const App::HitRect last_action = item(Action::GoToPath);
    for (size_t i = 0; i < present.size(); ++i) {
        const App::HitRect rect = hit(Hit::RecentItem, static_cast<int>(i));
        EXPECT_EQ(rect.label, present[i]);
        EXPECT_EQ(rect.y, last_action.y + 26 + 26 + 26 * static_cast<double>(i));
        EXPECT_EQ(rect.h, 26);
        EXPECT_TRUE(rect.in_menu);
    }
    const test_env::PaintedText* heading = painted_text("Recently visited");
    ASSERT_NE(heading, nullptr);
    EXPECT_EQ(heading->size, 11);
    EXPECT_NEAR(heading->y, last_action.y + 26 + 13, 0.5);
    const App::HitRect first = hit(Hit::RecentItem, 0);
    move(first);
    frame();
    EXPECT_EQ(at(first.x + 8, first.y + 13), app().m_palette.menu_hover);
    // A path has 50 more than its text.
    const std::string wide = left() + "/" + std::string(60, 'w');
    make_dirs(wide);
    recent::add(wide);
    test_env::forget_painted();
    open(Go);
    EXPECT_EQ(box().w, painted_text(wide)->width + 50);
    // No other menu has them.
    open(Edit);
    EXPECT_EQ(count_hits(Hit::RecentItem), 0U);
}

TEST_F(AppMenus, without_visited_folders_there_is_no_heading) {
    start();
    app().open_menu(Go);
    app().m_menu_recent.clear();
    test_env::forget_painted();
    frame();
    EXPECT_EQ(painted_text("Recently visited"), nullptr);
    EXPECT_EQ(box().h, 6 * 26 + 7 + 12);
}

TEST_F(AppMenus, a_visited_folder_asks_for_the_side) {
    make_dirs(left() + "/one");
    start();
    recent::add(left() + "/one");
    open(Go);
    click(hit(Hit::RecentItem, 0));
    EXPECT_EQ(app().m_open_menu, -1);
    EXPECT_EQ(app().m_overlay, Overlay::BookmarkSide);
    EXPECT_EQ(app().m_overlay_title, "one");
    EXPECT_EQ(app().m_pending_bookmark, left() + "/one");
    click(hit(Hit::Overlay, static_cast<int>(Action::BookmarkOpenRight)));
    EXPECT_EQ(pane(true).path(), left() + "/one");
}

// The disk is looked at when the menu opens, not for each frame, and the rows keep their meaning.
TEST_F(AppMenus, the_visited_folders_are_taken_once_when_the_menu_opens) {
    make_dirs(left() + "/one");
    make_dirs(left() + "/two");
    start();
    recent::add(left() + "/one");
    open(Go);
    const std::string before = labels();
    recent::add(left() + "/two");
    std::filesystem::remove(left() + "/one");
    frame();
    EXPECT_EQ(labels(), before);
    click(hit(Hit::RecentItem, 0));
    EXPECT_EQ(app().m_pending_bookmark, left() + "/one");
    app().close_overlay();
    open(Go);
    EXPECT_EQ(hit(Hit::RecentItem, 0).label, left() + "/two");
    // Sliding to it opens it as well.
    make_dirs(left() + "/three");
    recent::add(left() + "/three");
    open(View);
    move(title(Go));
    EXPECT_EQ(hit(Hit::RecentItem, 0).label, left() + "/three");
}

TEST_F(AppMenus, an_index_that_no_list_has_does_nothing) {
    start();
    app().open_menu(Go);
    app().click_recent_item(-1);
    app().click_recent_item(100);
    app().click_bookmark_item(-1);
    app().click_bookmark_item(100);
    EXPECT_EQ(app().m_open_menu, Go);
    EXPECT_EQ(app().m_overlay, Overlay::None);
}

// --- Bookmarks --------------------------------------------------------------------------------

TEST_F(AppMenus, the_bookmarks_menu_lists_them) {
    make_dirs(left() + "/here");
    mark({"here", "gone"});
    start();
    open(Bookmarks);
    ASSERT_EQ(count_hits(Hit::BookmarkItem), 2U);
    const App::HitRect last_action = item(Action::BookmarkManage);
    for (int i = 0; i < 2; ++i) {
        const App::HitRect rect = hit(Hit::BookmarkItem, i);
        EXPECT_EQ(rect.label, i == 0 ? "here" : "gone");
        EXPECT_EQ(rect.y, last_action.y + 26 * (i + 1));
        EXPECT_TRUE(rect.in_menu);
    }
    EXPECT_EQ(painted_text("no bookmarks yet"), nullptr);
    click(hit(Hit::BookmarkItem, 0));
    EXPECT_EQ(app().m_open_menu, -1);
    EXPECT_EQ(app().m_overlay, Overlay::BookmarkSide);
    EXPECT_EQ(app().m_overlay_title, "here");
    EXPECT_EQ(app().m_pending_bookmark, left() + "/here");
}

TEST_F(AppMenus, a_bookmark_has_40_more_than_its_name) {
    mark({"here", std::string(60, 'w')});
    start();
    test_env::forget_painted();
    open(Bookmarks);
    EXPECT_EQ(box().w, painted_text(std::string(60, 'w'))->width + 40);
    EXPECT_EQ(painted_text("here")->size, 12.5);
}

TEST_F(AppMenus, a_bookmark_that_is_a_link_to_a_folder_is_one) {
    make_dirs(left() + "/folder");
    ASSERT_EQ(symlink("folder", (left() + "/link").c_str()), 0);
    mark({"link"});
    start();
    open(Bookmarks);
    click(hit(Hit::BookmarkItem, 0));
    EXPECT_EQ(app().m_overlay, Overlay::BookmarkSide);
}

TEST_F(AppMenus, without_bookmarks_a_line_says_so) {
    start();
    test_env::forget_painted();
    open(Bookmarks);
    const test_env::PaintedText* note = painted_text("no bookmarks yet");
    ASSERT_NE(note, nullptr);
    EXPECT_EQ(note->color, app().m_palette.dim);
    const double y = item(Action::BookmarkManage).y + 26;
    EXPECT_NEAR(note->y, y + 13, 0.5);
    EXPECT_EQ(box().y + box().h, y + 26 + 6);
    click(box().x + 40, y + 13);
    EXPECT_EQ(app().m_open_menu, Bookmarks);
}

TEST_F(AppMenus, a_bookmark_whose_folder_has_gone_can_be_removed) {
    write_file(left() + "/a-file", "x");
    mark({"gone", "a-file"});
    start();
    for (const char* name : {"gone", "a-file"}) {
        open(Bookmarks);
        click(hit(Hit::BookmarkItem, 0));
        EXPECT_EQ(app().m_open_menu, -1);
        EXPECT_EQ(app().m_overlay, Overlay::Message);
        EXPECT_EQ(app().m_overlay_title, "Bookmarks");
        EXPECT_EQ(app().m_overlay_text, "This folder no longer exists.");
        EXPECT_TRUE(app().m_overlay_is_error);
        EXPECT_TRUE(logged("bookmark gone: " + left() + "/" + name));
        const App::HitRect remove = hit(Hit::Overlay, static_cast<int>(Action::BookmarkRemove));
        EXPECT_EQ(remove.label, "Remove bookmark");
        click(remove);
        EXPECT_FALSE(bookmarks::contains(left() + "/" + name));
    }
    EXPECT_TRUE(bookmarks::all().empty());
}

TEST_F(AppMenus, more_bookmarks_than_fit_scroll_with_the_wheel) {
    std::vector<std::string> marked;
    for (int i = 0; i < 60; ++i)
        marked.push_back("mark" + std::to_string(i));
    mark(marked);
    files(60);
    start();
    open(Bookmarks);
    EXPECT_EQ(box().y, 4);
    EXPECT_EQ(box().y + box().h, app().m_layout.height - 4);
    const double content = 12 + 26 * 62;
    const double first_y = hit(Hit::BookmarkItem, 0).y;
    app().handle_scroll(300, GDK_SCROLL_DOWN, 0);
    frame();
    EXPECT_EQ(app().m_menu_scroll, 3 * 26);
    EXPECT_EQ(hit(Hit::BookmarkItem, 3).y, first_y);
    EXPECT_EQ(pane().scroll(), 0);
    app().handle_scroll(300, GDK_SCROLL_SMOOTH, 0.1);
    frame();
    EXPECT_NEAR(app().m_menu_scroll, 3.3 * 26, 1e-9);
    app().handle_scroll(300, GDK_SCROLL_SMOOTH, 1e9);
    frame();
    EXPECT_EQ(app().m_menu_scroll, content - box().h);
    const App::HitRect last = hit(Hit::BookmarkItem, 59);
    EXPECT_EQ(last.y + last.h, box().y + box().h - 6);
    for (const App::HitRect& rect : items()) {
        EXPECT_GE(rect.y, box().y);
        EXPECT_LE(rect.y + rect.h, box().y + box().h);
    }
    app().handle_scroll(300, GDK_SCROLL_UP, 0);
    frame();
    EXPECT_EQ(app().m_menu_scroll, content - box().h - 78);
    click(hit(Hit::BookmarkItem, 50));
    EXPECT_EQ(app().m_pending_bookmark, left() + "/mark50");
    app().close_overlay();
    // The next time it begins at its top again, and the wheel is the list's when no menu scrolls.
    open(Bookmarks);
    EXPECT_EQ(app().m_menu_scroll, 0);
    app().close_menus();
    app().handle_scroll(300, GDK_SCROLL_DOWN, 0);
    EXPECT_EQ(pane().scroll(), 3);
    open(Help);
    app().handle_scroll(300, GDK_SCROLL_DOWN, 0);
    EXPECT_EQ(pane().scroll(), 6);
}

TEST_F(AppMenus, a_name_wider_than_the_window_is_cut) {
    make_dirs(left() + "/x");
    bookmarks::restore({{std::string(400, 'W'), left() + "/x"}, {"short", left() + "/y"}});
    start();
    open(Bookmarks);
    EXPECT_EQ(box().x, 4);
    EXPECT_EQ(box().w, app().m_layout.width - 8);
    EXPECT_EQ(hit(Hit::BookmarkItem, 0).label.size(), 400U);
}

// --- The menu of a pane -----------------------------------------------------------------------

std::string context_labels(const menu_model::ContextInfo& info) {
    std::string text;
    for (const menu_model::Item& entry : menu_model::context_menu(info))
        if (!entry.separator)
            text += (text.empty() ? "" : ", ") + std::string(tr(entry.label_key));
    return text;
}

TEST_F(AppMenus, a_right_click_opens_the_menu_for_what_it_falls_on) {
    make_dirs(left() + "/folder");
    write_file(left() + "/file.txt", "x");
    write_file(left() + "/old.ZIP", "x");
    ASSERT_EQ(symlink("folder", (left() + "/to-folder").c_str()), 0);
    start();
    menu_model::ContextInfo info;
    info.has_selection = true;
    info.selection_count = 1;
    const auto expect_menu_of = [&](const std::string& name, bool is_dir, bool is_archive) {
        const App::HitRect target = row(pane().index_of(name));
        click(target.x + 20, target.y + 10, 3);
        EXPECT_TRUE(app().m_context_menu);
        EXPECT_EQ(selected_names(), (std::vector<std::string>{name}));
        info.is_dir = is_dir;
        info.is_archive = is_archive;
        EXPECT_EQ(labels(), context_labels(info)) << name;
        EXPECT_EQ(box().x, target.x + 20);
        EXPECT_EQ(box().y, std::min(target.y + 10, app().m_layout.height - 4 - box().h));
        app().close_menus();
        frame();
    };
    expect_menu_of("file.txt", false, false);
    expect_menu_of("folder", true, false);
    expect_menu_of("to-folder", true, false);
    expect_menu_of("old.ZIP", false, true);
}

TEST_F(AppMenus, a_right_click_on_one_of_several_is_for_all_of_them) {
    files(4);
    start();
    click(row(1));
    app().handle_release();
    click(row(2), 1, GDK_CONTROL_MASK);
    app().handle_release();
    click(row(2), 3);
    EXPECT_EQ(selected_names().size(), 2U);
    menu_model::ContextInfo info;
    info.has_selection = true;
    info.selection_count = 2;
    EXPECT_EQ(labels(), context_labels(info));
    // The release must not reduce the selection.
    app().handle_release();
    EXPECT_EQ(selected_names().size(), 2U);
}

TEST_F(AppMenus, below_the_rows_the_menu_is_for_what_is_selected_or_for_nothing) {
    files(2);
    start();  // with the cursor on ".."
    background(3);
    EXPECT_TRUE(app().m_context_menu);
    EXPECT_EQ(labels(), context_labels({}));
    app().close_menus();
    frame();
    key(GDK_KEY_a, GDK_CONTROL_MASK);
    background(3);
    EXPECT_EQ(selected_names().size(), 2U);
    menu_model::ContextInfo info;
    info.has_selection = true;
    info.selection_count = 2;
    EXPECT_EQ(labels(), context_labels(info));
}

TEST_F(AppMenus, the_menu_of_the_other_side_makes_that_active) {
    write_file(right() + "/there", "x");
    files(1);
    start();
    click(row(1, true), 3);
    EXPECT_TRUE(app().m_active_right);
    EXPECT_TRUE(app().m_context_right);
    EXPECT_EQ(selected_names(true), (std::vector<std::string>{"there"}));
    app().close_menus();
    frame();
    background(3);
    EXPECT_FALSE(app().m_active_right);
    EXPECT_FALSE(app().m_context_right);
}

// Whatever the keys have done to the active side in between.
TEST_F(AppMenus, its_items_act_on_the_pane_that_it_was_opened_on) {
    files(2);
    write_file(right() + "/there", "x");
    start();
    put_cursor_on("there", true);
    click(row(1), 3);
    key(GDK_KEY_Tab);
    EXPECT_TRUE(app().m_context_menu);
    EXPECT_TRUE(app().m_active_right);
    click(item(Action::Clone));
    ASSERT_TRUE(settle());
    EXPECT_EQ(names(true), (std::vector<std::string>{"..", "there"}));
    EXPECT_EQ(names(false).size(), 4U);
    EXPECT_FALSE(app().menu_open());
}

TEST_F(AppMenus, a_menu_of_a_pane_has_its_measures) {
    files(1);
    start();
    test_env::forget_painted();
    click(row(1), 3);
    menu_model::ContextInfo info;
    info.has_selection = true;
    info.selection_count = 1;
    double wide = 180, high = 12;
    for (const menu_model::Item& entry : menu_model::context_menu(info)) {
        high += entry.separator ? 7 : 26;
        if (entry.separator)
            continue;
        double w = painted_text(tr(entry.label_key))->width + 40;
        if (entry.shortcut)
            w += painted_text(entry.shortcut)->width + 10;
        EXPECT_TRUE(!entry.shortcut || painted_text(entry.shortcut)->size == 11);
        wide = std::max(wide, w);
    }
    const App::HitRect b = box();
    EXPECT_EQ(b.w, wide);
    EXPECT_EQ(b.h, high);
    const App::HitRect move_item = item(Action::MoveToOther);
    const double y = move_item.y + 26 + 3;
    EXPECT_EQ(at(b.x + 10, y), app().m_palette.divider);
    EXPECT_EQ(at(b.x + 9, y), app().m_palette.menu_bg);
    EXPECT_EQ(at(b.x + b.w - 11, y), app().m_palette.divider);
    EXPECT_EQ(at(b.x + b.w - 10, y), app().m_palette.menu_bg);
}

TEST_F(AppMenus, a_menu_opens_back_into_the_window_at_its_edges) {
    files(3);
    start();
    put_cursor_on("file1");
    const App::Layout& l = app().m_layout;
    for (const bool columns : {false, true}) {
        const auto at_point = [&](double x, double y) {
            if (columns)
                app().open_column_menu(x, y, false);
            else
                app().open_context_menu(x, y, false);
            frame();
            const App::HitRect b = box();
            app().close_menus();
            return b;
        };
        const App::HitRect free = at_point(300, 100);
        EXPECT_EQ(free.x, 300);
        EXPECT_EQ(free.y, 100);
        const App::HitRect top_left = at_point(0, 1);
        EXPECT_EQ(top_left.x, 4);
        EXPECT_EQ(top_left.y, 4);
        const App::HitRect top_right = at_point(l.width - 1, 0);
        EXPECT_EQ(top_right.x + top_right.w, l.width - 4);
        EXPECT_EQ(top_right.y, 4);
        const App::HitRect bottom_left = at_point(2, l.height - 1);
        EXPECT_EQ(bottom_left.x, 4);
        EXPECT_EQ(bottom_left.y + bottom_left.h, l.height - 4);
        const App::HitRect bottom_right = at_point(l.width - 1, l.height - 1);
        EXPECT_EQ(bottom_right.x + bottom_right.w, l.width - 4);
        EXPECT_EQ(bottom_right.y + bottom_right.h, l.height - 4);
    }
}

TEST_F(AppMenus, a_drop_down_stays_in_a_narrow_window) {
    start();
    app().open_menu(Help);
    AppTest::frame(420, 300);
    const App::HitRect help = title(Help);
    ASSERT_GT(help.x + 160, 416);
    EXPECT_EQ(box().x + box().w, 416);
    app().open_menu(File);
    AppTest::frame(420, 300);
    EXPECT_EQ(box().y, 4);
    EXPECT_EQ(box().h, 292);
    EXPECT_TRUE(app().m_menu_scrolls);
}

// In twice the size a window has half the room.
TEST_F(AppMenus, at_every_scale_a_menu_stays_in_the_window) {
    files(3);
    start();
    put_cursor_on("file1");
    for (const int scale : {70, 150, 200}) {
        settings().font_scale = scale;
        app().open_context_menu(500, 340, false);
        AppTest::frame(1100, 720);
        const App::HitRect b = box();
        EXPECT_GE(b.x, 4);
        EXPECT_GE(b.y, 4);
        EXPECT_LE(b.x + b.w, app().m_layout.width - 4);
        EXPECT_LE(b.y + b.h, app().m_layout.height - 4);
    }
}

// --- The menu of the columns ------------------------------------------------------------------

TEST_F(AppMenus, a_right_click_on_a_header_opens_the_columns) {
    start();
    const App::HitRect header = hit(Hit::PaneHeader, -1, 1);
    const dir_lister::SortOrder order = pane(true).sort_order();
    click(header, 3);
    EXPECT_TRUE(app().m_context_menu);
    EXPECT_TRUE(app().m_column_menu);
    EXPECT_TRUE(app().m_active_right);
    EXPECT_TRUE(app().m_context_right);
    EXPECT_EQ(pane(true).sort_order().ascending, order.ascending);
    EXPECT_EQ(labels(), "Size, Type, Modified, Created, Permissions, Owner, Group");
    app().close_menus();
    frame();
    const App::HitRect strip = hit(Hit::PaneHeaderMenu, -1, 0);
    click(strip.x + 2, strip.y + 13, 1);
    EXPECT_FALSE(app().menu_open());
    click(strip.x + 2, strip.y + 13, 3);
    EXPECT_TRUE(app().m_column_menu);
    EXPECT_FALSE(app().m_active_right);
}

TEST_F(AppMenus, the_columns_have_boxes_to_tick) {
    start();
    settings().show_size = true;
    settings().show_type = false;
    test_env::forget_painted();
    app().open_column_menu(200, 300, false);
    frame();
    const App::HitRect b = box();
    EXPECT_EQ(b.w, 190);
    EXPECT_EQ(b.h, 12 + 26 + 7 * 26);
    const test_env::PaintedText* heading = painted_text("Columns");
    ASSERT_NE(heading, nullptr);
    EXPECT_NEAR(heading->y, b.y + 6 + 13, 0.5);
    EXPECT_EQ(at(b.x + 30, b.y + 6 + 25), app().m_palette.divider);
    for (int i = 0; i < 7; ++i) {
        const App::HitRect rect = items()[static_cast<size_t>(i)];
        EXPECT_EQ(rect.y, b.y + 6 + 26 + 26 * i);
        EXPECT_EQ(rect.h, 26);
    }
    const App::HitRect size = item(Action::ToggleColSize);
    const App::HitRect type = item(Action::ToggleColType);
    const auto inside = [&](const App::HitRect& rect) {
        return painted(static_cast<int>(rect.x) + 16, static_cast<int>(rect.y) + 9, 9, 8);
    };
    EXPECT_TRUE(inside(size));
    EXPECT_FALSE(inside(type));
    // Its line is wide enough to fill a pixel.
    EXPECT_TRUE(has(app().m_palette.accent, size.x + 16, size.y + 8, 9, 9));
    // The box is 13 square, and the label begins 22 beside its left edge.
    EXPECT_EQ(at(type.x + 14 + 6, type.y + 6), app().m_palette.control_edge);
    EXPECT_EQ(at(type.x + 14 + 6, type.y + 18), app().m_palette.control_edge);
    EXPECT_EQ(painted_text("Type")->x, type.x + 14 + 22);
    EXPECT_EQ(painted_text("Type")->size, 12.5);
    click(type);
    EXPECT_TRUE(settings().show_type);
    EXPECT_FALSE(app().menu_open());
}

// --- Tools ------------------------------------------------------------------------------------

// The first frame does not wait for a tool that takes its time, and neither does the end.
TEST_F(AppMenus, a_slow_tool_keeps_no_frame_waiting) {
    REQUIRE_FRESH_PROCESS();
    const test_env::TempDir bin;
    const std::string flag = bin / "flag";
    write_file(bin / "zip",
               "#!/bin/sh\n: > " + flag + ".asked\nwhile [ ! -e " + flag +
                   " ]; do /bin/sleep 0.02; done\nexit 127\n",
               0755);
    setenv("PATH", bin.path().c_str(), 1);
    write_file(left() + "/a", "x");
    start();
    put_cursor_on("a");
    ASSERT_TRUE(pump_until([&] { return test_env::exists(flag + ".asked"); }));
    open(File);
    EXPECT_EQ(count_hits(Hit::MenuItem), 12U);
    EXPECT_NE(labels().find(tr("action.pack")), std::string::npos);
    EXPECT_EQ(count_hits(Hit::BridgePack), 1U);
    write_file(flag, "");
    // The answer may come between two bands of one frame.
    EXPECT_TRUE(pump_until([&] {
        frame();
        return labels().find(tr("action.pack")) == std::string::npos &&
               count_hits(Hit::BridgePack) == 0;
    }));
    EXPECT_EQ(app().m_open_menu, File);
    EXPECT_EQ(count_hits(Hit::MenuItem), 11U);
}

// --- For human eyes ---------------------------------------------------------------------------

TEST_F(AppMenus, every_menu_is_painted_in_both_themes) {
    make_dirs(left() + "/folder");
    make_dirs(right() + "/photos");
    write_file(left() + "/old.zip", "x");
    write_file(left() + "/a.txt", "x");
    mark({"folder", "gone"});
    start();
    recent::add(left() + "/folder");
    recent::add(right() + "/photos");
    put_cursor_on("a.txt");
    for (const char* theme : {"light", "dark"}) {
        const std::string name = std::string("menu-") + theme + "-";
        look(theme, 100);
        for (int i = File; i <= Help; ++i) {
            open(i);
            move(items()[1]);
            frame();
            shot(name + std::to_string(i));
            EXPECT_TRUE(painted(static_cast<int>(box().x), 30, static_cast<int>(box().w), 60));
        }
        put_cursor_on("old.zip");
        app().open_context_menu(150, 120, false);
        frame();
        move(item(Action::Unpack));
        shot(name + "context");
        app().open_column_menu(300, 200, false);
        frame();
        move(item(Action::ToggleColModified));
        shot(name + "columns");
        app().close_menus();
    }
}

TEST_F(AppMenus, menus_of_a_language_from_right_to_left_and_of_twice_the_size) {
    write_file(left() + "/a.txt", "x");
    start();
    put_cursor_on("a.txt");
    I18n::instance().set_language("ar");
    open(File);
    shot("menu-ar");
    EXPECT_EQ(items().front().label, tr("action.new_folder"));
    app().open_context_menu(300, 120, false);
    frame();
    shot("menu-ar-context");
    I18n::instance().set_language("en");
    look("light", 200);
    open(File);
    shot("menu-200");
    EXPECT_EQ(items().front().h, 26);
}

}  // namespace
