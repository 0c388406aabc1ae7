// Every dialogue's list scrolls by the wheel and by the keys, to its last row and back.

#include "app_pane_paint.h"

#include "app_texts.h"
#include "bookmarks.h"
#include "i18n.h"

namespace {

using test_env::painted_text;
using Overlay = App::Overlay;

class ListScroll : public PanePaint {
  protected:
    int scroll() { return app().m_list_scroll; }
    void paint() {
        test_env::forget_painted();
        frame();
    }
    void wheel(GdkScrollDirection direction) {
        app().handle_scroll(500, direction, 0);
        paint();
    }
    int after(guint keyval) {
        test_env::forget_painted();
        key(keyval);
        return scroll();
    }
    // Of a list that is open at its top and holds more rows than fit. The texts stand in its first
    // and in its last row; empty: not asked.
    void expect_scrolls(const std::string& first, const std::string& last) {
        paint();
        ASSERT_TRUE(app().m_overlay_scrolls);
        ASSERT_EQ(scroll(), 0);
        const int page = app().m_overlay_page;
        const auto shown = [](const std::string& text) {
            return text.empty() || painted_text(text) != nullptr;
        };
        EXPECT_TRUE(shown(first));
        EXPECT_TRUE(last.empty() || !shown(last));
        wheel(GDK_SCROLL_DOWN);
        EXPECT_EQ(scroll(), 3);
        wheel(GDK_SCROLL_UP);
        EXPECT_EQ(scroll(), 0);
        wheel(GDK_SCROLL_UP);
        EXPECT_EQ(scroll(), 0);
        EXPECT_EQ(after(GDK_KEY_Down), 1);
        EXPECT_EQ(after(GDK_KEY_Down), 2);
        EXPECT_EQ(after(GDK_KEY_Up), 1);
        EXPECT_EQ(after(GDK_KEY_Home), 0);
        const int end = after(GDK_KEY_End);
        EXPECT_GT(end, 3);
        EXPECT_TRUE(shown(last)) << last;
        EXPECT_TRUE(first.empty() || !shown(first)) << first;
        EXPECT_EQ(after(GDK_KEY_Down), end);
        EXPECT_EQ(after(GDK_KEY_Page_Up), std::max(0, end - page));
        EXPECT_EQ(after(GDK_KEY_Home), 0);
        EXPECT_EQ(after(GDK_KEY_Page_Down), std::min(page, end));
        for (int i = 0; i < 200; ++i)
            app().handle_scroll(500, GDK_SCROLL_DOWN, 0);
        paint();
        EXPECT_EQ(scroll(), end);
        EXPECT_TRUE(shown(last)) << last;
        app().close_overlay();
    }
};

TEST_F(ListScroll, of_languages) {
    start();
    app().perform(Action::SettingsLanguageOpen, 0);
    app().m_list_scroll = 0;
    const std::vector<LanguageInfo> choices = App::language_choices();
    expect_scrolls(choices.front().native_name, choices.back().native_name);
}

TEST_F(ListScroll, of_fonts) {
    start();
    if (App::font_families().size() < 30)
        GTEST_SKIP() << "too few fonts are installed for their list to scroll";
    app().perform(Action::SettingsFontOpen, 0);
    expect_scrolls(tr("settings.font_default"), "");
}

TEST_F(ListScroll, of_licences) {
    start();
    app().perform(Action::Licenses, 0);
    expect_scrolls("GTK 3", "Zenity");
}

TEST_F(ListScroll, of_bookmarks) {
    start();
    std::vector<bookmarks::Bookmark> marks;
    for (int i = 0; i < 40; ++i)
        marks.push_back({"place" + std::to_string(i), "/tmp/place" + std::to_string(i)});
    bookmarks::load();
    bookmarks::restore(marks);
    app().perform(Action::BookmarkManage, 0);
    expect_scrolls("/tmp/place0", "/tmp/place39");
}

TEST_F(ListScroll, of_errors) {
    // Each entry is a file where a folder is to be made.
    for (int i = 100; i < 160; ++i) {
        test_env::make_dirs(left() + "/" + std::to_string(i));
        test_env::write_file(right() + "/" + std::to_string(i), "x");
    }
    start();
    settings().default_conflict = copy_engine::ConflictAction::Overwrite;
    pane().select_all();
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(settle());
    ASSERT_EQ(app().m_overlay, Overlay::Errors);
    paint();
    ASSERT_EQ(app().failure_lines(), 60U);
    expect_scrolls(app().failure_line(0), app().failure_line(59));
}

// The line that says that there is more stands where the next page begins.
TEST_F(ListScroll, no_error_is_skipped_between_two_pages) {
    for (int i = 100; i < 160; ++i) {
        test_env::make_dirs(left() + "/" + std::to_string(i));
        test_env::write_file(right() + "/" + std::to_string(i), "x");
    }
    start();
    settings().default_conflict = copy_engine::ConflictAction::Overwrite;
    pane().select_all();
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(settle());
    std::vector<bool> seen(60);
    for (int page = 0; page < 5; ++page) {
        paint();
        EXPECT_EQ(painted_text(tr("dlg.errors_truncated")) != nullptr,
                  painted_text(app().failure_line(59)) == nullptr);
        for (size_t i = 0; i < seen.size(); ++i)
            seen[i] = seen[i] || painted_text(app().failure_line(i));
        key(GDK_KEY_Page_Down);
    }
    for (size_t i = 0; i < seen.size(); ++i)
        EXPECT_TRUE(seen[i]) << i;
}

TEST_F(ListScroll, of_what_an_archive_holds) {
    std::string ignored;
    if (test_env::run("command -v tar && command -v gzip", &ignored) != 0)
        GTEST_SKIP() << "tar or gzip is not installed";
    const test_env::TempDir dir;
    for (int i = 100; i < 180; ++i)
        test_env::write_file(dir / ("entry" + std::to_string(i)), "x");
    ASSERT_EQ(test_env::run("cd '" + dir.path() + "' && tar -czf '" + left() +
                            "/a.tar.gz' --sort=name entry*"),
              0);
    start();
    put_cursor_on("a.tar.gz");
    app().perform(Action::ViewArchive, 0);
    ASSERT_EQ(app().m_overlay, Overlay::ArchiveView);
    ASSERT_TRUE(pump_until([] { return !archive_ops::list_status().running; }));
    expect_scrolls("entry100", "entry179");
}

TEST_F(ListScroll, of_the_logs_lines) {
    start();
    for (int i = 0; i < 100; ++i)
        Log::infof("line %d of many", i);
    app().perform(Action::LogWindow, 0);
    app().m_list_scroll = 0;
    paint();
    const int page = app().m_overlay_page;
    EXPECT_EQ(after(GDK_KEY_Down), 1);
    EXPECT_EQ(after(GDK_KEY_Page_Down), 1 + page);
    EXPECT_EQ(after(GDK_KEY_Home), 0);
    wheel(GDK_SCROLL_DOWN);
    EXPECT_EQ(scroll(), 3);
    after(GDK_KEY_End);
    EXPECT_NE(painted_text("line 99 of many"), nullptr);
}

}  // namespace
