// Menus and lists in every theme and size: nothing that has the room is cut, and nothing leaves the
// box it belongs to.

#include "app_pane_paint.h"

#include "app_texts.h"
#include "bookmarks.h"
#include "drives.h"
#include "logger.h"
#include "recent.h"

#include <functional>
#include <gdk/gdkkeysyms.h>

namespace {

using Hit = App::Hit;
using test_env::PaintedText;

class AppLooks : public PanePaint {
  protected:
    void SetUp() override {
        PanePaint::SetUp();
        bookmarks::restore({});
        test_env::make_dirs(left() + "/folder");
        test_env::make_dirs(right() + "/photos");
        test_env::write_file(left() + "/old.zip", "x");
        test_env::write_file(left() + "/a.txt", "x");
    }
    void TearDown() override {
        bookmarks::restore({});
        PanePaint::TearDown();
    }
    void repaint(const std::string& name) {
        frame();
        test_env::forget_painted();
        frame();
        shot(name);
    }
    void expect_menu(const std::string& name) {
        repaint(name);
        const App::HitRect box = hit(Hit::None);
        const double w = app().m_layout.width, h = app().m_layout.height;
        EXPECT_TRUE(box.x >= 4 && box.y >= 4 && box.x + box.w <= w - 4 && box.y + box.h <= h - 4)
            << name;
        EXPECT_FALSE(app().m_menu_scrolls) << name;
        for (const App::HitRect& item : app().m_hits) {
            if (item.what != Hit::MenuItem && item.what != Hit::BookmarkItem &&
                item.what != Hit::RecentItem)
                continue;
            const PaintedText* const text = test_env::painted_text(item.label);
            ASSERT_NE(text, nullptr) << name << ": " << item.label;
            EXPECT_FALSE(text->cut) << name << ": " << item.label;
            EXPECT_GE(text->x, box.x + 14) << name << ": " << item.label;
            EXPECT_LE(text->x + text->width, box.x + box.w - 10) << name << ": " << item.label;
            EXPECT_NEAR(text->y, item.y + item.h / 2, 1) << name << ": " << item.label;
        }
    }
    void in_every_look(const std::function<void(const std::string&)>& body) {
        for (const Look& one : kLooks) {
            look(one.theme, one.scale);
            body(std::string("-") + one.theme + "-" + std::to_string(one.scale));
        }
    }
};

TEST_F(AppLooks, no_label_of_a_drop_down_is_cut) {
    bookmarks::restore({{"folder", left() + "/folder"}, {"gone", left() + "/gone"}});
    start();
    recent::add(left() + "/folder");
    recent::add(right() + "/photos");
    put_cursor_on("a.txt");
    in_every_look([&](const std::string& suffix) {
        for (int i = 0; i < 7; ++i) {
            app().open_menu(i);
            expect_menu("look-menu" + std::to_string(i) + suffix);
        }
        app().close_menus();
    });
}

TEST_F(AppLooks, no_label_of_a_panes_menu_is_cut) {
    start();
    in_every_look([&](const std::string& suffix) {
        for (const char* name : {"a.txt", "old.zip", "folder"}) {
            put_cursor_on(name);
            app().open_context_menu(150, 120, false);
            expect_menu(std::string("look-context-") + name + suffix);
        }
        key(GDK_KEY_a, GDK_CONTROL_MASK);
        app().open_context_menu(1099, 719, false);
        expect_menu("look-context-several" + suffix);
        pane().clear_selection();
        put_cursor_on("..");
        app().open_context_menu(1, 719, false);
        expect_menu("look-context-nothing" + suffix);
        app().open_column_menu(300, 200, false);
        expect_menu("look-columns" + suffix);
        app().close_menus();
    });
}

TEST_F(AppLooks, lists_keep_to_their_panel) {
    bookmarks::restore({{"folder", left() + "/folder"},
                        {"a name that is rather long for its column", right() + "/photos"}});
    start();
    drives::shutdown_wait(20000);
    in_every_look([&](const std::string& suffix) {
        app().click_drive_picker(false);
        drives::shutdown_wait(20000);
        repaint("look-drives" + suffix);
        for (const App::HitRect& row : all(Hit::DriveItem, 0)) {
            const PaintedText* const label = test_env::painted_text(row.label);
            ASSERT_NE(label, nullptr) << row.label;
            EXPECT_FALSE(label->cut) << row.label << suffix;
            EXPECT_NEAR(label->y, row.y + 8, 1) << row.label << suffix;
            EXPECT_LT(label->x + label->width, row.x + row.w - 10) << row.label << suffix;
        }
        app().perform(Action::BookmarkManage, 0);
        repaint("look-bookmarks" + suffix);
        app().close_overlay();
        Log::instance().clear();
        for (int i = 0; i < 200; ++i)
            Log::infof("line %d", i);
        Log::warnf("a warning");
        Log::errorf("an error, %s", std::string(300, 'm').c_str());
        app().perform(Action::LogWindow, 0);
        repaint("look-log" + suffix);
        EXPECT_EQ(count_hits(Hit::LogVThumb), 1U);
        EXPECT_EQ(count_hits(Hit::LogHThumb), 1U);
        app().close_overlay();
    });
}

// --- Lines of a menu --------------------------------------------------------------------------

TEST_F(AppLooks, a_rule_parts_what_is_listed_from_the_commands) {
    bookmarks::restore({{"folder", left() + "/folder"}, {"gone", left() + "/gone"}});
    start();
    recent::add(left() + "/folder");
    recent::add(right() + "/photos");
    for (const int menu : {3, 4}) {
        app().open_menu(menu);
        frame();
        const App::HitRect box = hit(Hit::None);
        const App::HitRect first = hit(menu == 3 ? Hit::RecentItem : Hit::BookmarkItem, 0);
        const App::HitRect second = hit(menu == 3 ? Hit::RecentItem : Hit::BookmarkItem, 1);
        // A heading of 26 stands between the rule and the visited folders.
        const double y = menu == 3 ? first.y - 26 : first.y;
        const Palette& p = app().m_palette;
        EXPECT_EQ(at(box.x + 10, y), p.divider) << menu;
        EXPECT_EQ(at(box.x + box.w - 11, y), p.divider) << menu;
        EXPECT_EQ(at(box.x + 9, y), p.menu_bg) << menu;
        EXPECT_EQ(at(box.x + 10, y + 1), p.menu_bg) << menu;
        EXPECT_EQ(at(box.x + 10, second.y), p.menu_bg) << menu;
        // Of the listed ones, that under the pointer alone is lit.
        app().handle_motion(second.x + 5, second.y + 5);
        frame();
        EXPECT_EQ(at(second.x + 8, second.y + 13), p.menu_hover) << menu;
        EXPECT_EQ(at(first.x + 8, first.y + 13), p.menu_bg) << menu;
        app().handle_leave();
    }
}

TEST_F(AppLooks, a_disabled_item_has_its_shortcut_dimmed_too) {
    start();
    app().open_menu(0);
    test_env::forget_painted();
    frame();
    const Palette& p = app().m_palette;
    ASSERT_EQ(test_env::painted_text("Delete")->color, p.dim);
    EXPECT_EQ(test_env::painted_text("Del")->color, p.dim);
    EXPECT_EQ(test_env::painted_text("F7")->color, p.secondary);
}

TEST_F(AppLooks, a_menu_that_scrolls_paints_nothing_beside_its_box) {
    start();
    put_cursor_on("a.txt");
    app().open_context_menu(150, 20, false);
    const auto outside = [this] {
        AppTest::frame(1100, 300);
        const App::HitRect box = hit(Hit::None);
        EXPECT_EQ(box.y, 4);
        EXPECT_EQ(box.h, 292);
        std::string pixels;
        for (int y = 0; y < 300; ++y)
            for (int x = static_cast<int>(box.x); x < static_cast<int>(box.x + box.w); ++x)
                if (y < 4 || y >= 296)
                    pixels += pixel(x, y);
        return pixels;
    };
    const std::string before = outside();
    ASSERT_TRUE(app().m_menu_scrolls);
    for (int i = 0; i < 20; ++i) {
        app().handle_scroll(200, GDK_SCROLL_SMOOTH, 0.1);
        EXPECT_EQ(outside(), before) << i;
    }
    EXPECT_GT(app().m_menu_scroll, 100);
}

}  // namespace
