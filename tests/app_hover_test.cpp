// The pointer over every rectangle that there is: what is lit, and which shape the pointer has.

#include "app_pane_paint.h"

#include "bookmarks.h"
#include "drives.h"
#include "logger.h"

#include <functional>
#include <set>

namespace {

using Hit = App::Hit;
using Overlay = App::Overlay;

class AppHover : public PanePaint {
  protected:
    void SetUp() override {
        PanePaint::SetUp();
        bookmarks::restore({});
    }
    void TearDown() override {
        bookmarks::restore({});
        PanePaint::TearDown();
    }
    // Goes to the middle of each rectangle, of which another may lie on top there.
    void over_each(const char* what) {
        frame();
        const std::vector<App::HitRect> rects = app().m_hits;
        ASSERT_FALSE(rects.empty());
        std::set<Hit> painted;
        for (const App::HitRect& rect : rects) {
            const double x = rect.x + rect.w / 2, y = rect.y + rect.h / 2;
            const App::HitRect* const top = app().hit_test(x, y);
            ASSERT_NE(top, nullptr);
            m_seen.insert(top->what);
            const App::HitRect on = *top;
            app().handle_motion(x, y);
            expect_lit(on, std::string(what) + ", " + App::hit_name(on.what));
            // A frame changes nothing about it.
            if (!painted.insert(on.what).second)
                continue;
            frame();
            expect_lit(on, std::string(what) + ", painted, " + App::hit_name(on.what));
        }
        app().handle_motion(-5, -5);
        expect_lit({}, std::string(what) + ", beside the window");
        EXPECT_EQ(app().hovered(), nullptr) << what;
    }
    std::set<Hit> m_seen;

  private:
    void expect_lit(const App::HitRect& on, const std::string& what) {
        if (on.what != Hit::None) {
            ASSERT_NE(app().hovered(), nullptr) << what;
            EXPECT_EQ(app().hovered()->what, on.what) << what;
            EXPECT_EQ(app().hovered()->param, on.param) << what;
            EXPECT_EQ(app().hovered()->right, on.right) << what;
        }
        const std::string cursor = on.what == Hit::ColumnResize    ? "col-resize"
                                   : on.what == Hit::OverlayResize ? "se-resize"
                                   : on.what == Hit::PaneHScroll   ? "default"
                                                                   : "";
        EXPECT_EQ(app().m_cursor_name ? app().m_cursor_name : "", cursor) << what;
        EXPECT_EQ(app().m_menu_hover_item, on.what == Hit::MenuItem ? on.param : -1) << what;
        EXPECT_EQ(app().m_drive_hover, on.what == Hit::DriveItem ? on.param : -1) << what;
        const int row = on.what != Hit::ListItem ? -1 : on.param < 0 ? ~on.param : on.param;
        EXPECT_EQ(app().m_list_hover, row) << what;
    }
};

TEST_F(AppHover, each_rectangle_is_lit_and_has_its_cursor) {
    bookmarks::restore({{"one", left()}, {"two", right()}});
    files(40);
    start({"--right=/usr"});  // a short path, with an empty part of its bar behind it
    for (int i = 0; i < 7; ++i)
        set_column_enabled(settings(), static_cast<ColumnId>(i), true);
    app().m_result.valid = true;
    app().begin_search(true);
    for (int i = 0; i < 5; ++i)
        key(GDK_KEY_z);  // nothing is called so: its rows leave room
    app().begin_path_edit(false);
    over_each("panes");
    app().end_path_edit();
    app().open_context_menu(300, 200, false);
    over_each("menu of a pane");
    app().open_column_menu(300, 150, false);
    over_each("menu of the columns");
    app().click_drive_picker(false);
    over_each("drives");
    app().perform(Action::BookmarkManage, 0);
    over_each("bookmarks");
    for (int i = 0; i < 60; ++i)
        Log::infof("%s", std::string(300, 'm').c_str());
    app().perform(Action::LogWindow, 0);
    over_each("log");
    app().open_overlay(Overlay::ArchiveView, "t");
    over_each("archive");
    app().close_overlay();
    for (const Hit what :
         {Hit::MenuTitle,    Hit::MenuItem,       Hit::PaneRow,      Hit::PaneBanner,
          Hit::PaneHeader,   Hit::PaneBackground, Hit::DrivePicker,  Hit::DriveItem,
          Hit::PathSegment,  Hit::PathBar,        Hit::PathEdit,     Hit::ResultDismiss,
          Hit::LogVThumb,    Hit::LogHThumb,      Hit::SearchBar,    Hit::SearchClear,
          Hit::BridgeSearch, Hit::OverlayResize,  Hit::ColumnResize, Hit::PaneHScroll,
          Hit::ScrollThumb,  Hit::Overlay,        Hit::ListItem})
        EXPECT_TRUE(m_seen.contains(what)) << App::hit_name(what);
}

// With a menu of the bar open the titles switch menus, so that each is gone over by itself.
TEST_F(AppHover, each_item_of_each_menu_is_lit) {
    bookmarks::restore({{"one", left()}, {"two", right()}});
    files(2);
    start();
    for (int menu = 0; menu < 7; ++menu) {
        app().open_menu(menu);
        frame();
        const std::vector<App::HitRect> rects = app().m_hits;
        for (const App::HitRect& rect : rects) {
            if (!rect.in_menu || rect.what == Hit::None)
                continue;
            app().handle_motion(rect.x + rect.w / 2, rect.y + rect.h / 2);
            frame();
            ASSERT_NE(app().hovered(), nullptr);
            EXPECT_EQ(app().hovered()->label, rect.label);
            EXPECT_EQ(app().m_open_menu, menu);
            // A disabled one stays as it is.
            const bool enabled = rect.what != Hit::MenuItem || rect.param != 0;
            EXPECT_EQ(at(rect.x + 8, rect.y + 13) == app().m_palette.menu_hover, enabled)
                << rect.label;
        }
    }
}

// The next menu may have an item of the same command elsewhere.
TEST_F(AppHover, a_menu_that_closes_leaves_nothing_lit) {
    files(2);
    start();
    put_cursor_on("file0");
    app().open_menu(0);
    frame();
    const App::HitRect item = hit(Hit::MenuItem, static_cast<int>(Action::Rename));
    app().handle_motion(item.x + 5, item.y + 5);
    ASSERT_EQ(app().m_menu_hover_item, static_cast<int>(Action::Rename));
    app().open_context_menu(600, 300, true);
    EXPECT_EQ(app().m_menu_hover_item, -1);
    app().click_drive_picker(false);
    frame();
    const App::HitRect drive = hit(Hit::DriveItem, 0);
    app().handle_motion(drive.x + 5, drive.y + 5);
    ASSERT_EQ(app().m_drive_hover, 0);
    app().close_menus();
    EXPECT_EQ(app().m_drive_hover, -1);
}

}  // namespace
