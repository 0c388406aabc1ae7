// The log's dialogue and that of the bookmarks.

#include "app_pane_paint.h"

#include "app_redraw.h"
#include "app_texts.h"
#include "bookmarks.h"
#include "faultfs.h"
#include "i18n.h"
#include "logger.h"
#include "settings.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <thread>

namespace {

using Overlay = App::Overlay;
using test_env::forget_painted;
using test_env::make_dirs;
using test_env::painted_text;
using test_env::painted_texts;
using test_env::PaintedText;

class AppLog : public PanePaint {
  protected:
    // Of 900 by 600 in a window that has the room: 460 for the list, which are 26 rows.
    static constexpr int kPage = 26;

    // What is logged of the opening stands in the log once it has been painted.
    App::Rect open() {
        app().perform(Action::LogWindow, 0);
        paint();
        return paint();
    }
    App::Rect paint() {
        forget_painted();
        frame();
        return app().m_overlay_panel;
    }
    // Until nothing but work that runs asks for a frame.
    void rest() {
        app().m_flash_until = app().m_reload_flash_until = 0;
        ASSERT_TRUE(pump_until([this] { return !test_env::redraw_due(app().m_canvas); }));
        forget_painted();
    }
    static void write_lines(int count) {
        Log::instance().clear();
        for (int i = 0; i < count; ++i)
            Log::infof("line %d", i);
    }
    // The numbers of the lines in view.
    static std::pair<int, int> in_view() {
        int first = -1, last = -1;
        for (const PaintedText& text : painted_texts()) {
            int number = 0;
            if (std::sscanf(text.text.c_str(), "line %d", &number) != 1)
                continue;
            first = first < 0 ? number : first;
            last = number;
        }
        return {first, last};
    }
    const Palette& palette() { return app().m_palette; }
};

TEST_F(AppLog, it_opens_at_its_end_and_stays_there) {
    start();
    write_lines(100);
    open();
    EXPECT_EQ(app().m_overlay_title, "Log");
    EXPECT_EQ(app().m_list_scroll, -1);
    // What was logged by opening it stands behind the lines.
    const int more = static_cast<int>(Log::instance().size()) - 100;
    EXPECT_EQ(in_view().first, 100 + more - kPage);
    Log::infof("line %d", 4711);
    paint();
    EXPECT_EQ(in_view().second, 4711);
    EXPECT_EQ(app().m_list_scroll, -1);
}

TEST_F(AppLog, a_row_has_time_thread_and_text) {
    start();
    Log::instance().clear();
    app().open_overlay(Overlay::LogView, "Log");
    std::thread([] {
        Log::name_this_thread("w7");
        Log::infof("the text");
    }).join();
    const App::Rect panel = paint();
    const PaintedText* text = painted_text("the text");
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text->x, panel.x + 134);
    EXPECT_EQ(text->size, 11);
    EXPECT_NEAR(text->y, panel.y + 84 + 8.5, 0.6);
    EXPECT_EQ(text->color, palette().text);
    const PaintedText* thread = painted_text("w7");
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(thread->x, panel.x + 94);
    EXPECT_EQ(thread->color, palette().secondary);
    const auto clock =
        std::find_if(painted_texts().begin(), painted_texts().end(), [&](const PaintedText& one) {
            return one.x == panel.x + 26 &&
                   std::regex_match(one.text, std::regex("\\d\\d:\\d\\d:\\d\\d"));
        });
    EXPECT_NE(clock, painted_texts().end());
}

TEST_F(AppLog, each_level_has_its_colour) {
    start();
    app().open_overlay(Overlay::LogView, "Log");
    Log::instance().clear();
    Log::instance().set_debug(true);
    Log::debugf("level 0");
    Log::infof("level 1");
    Log::warnf("level 2");
    Log::errorf("level 3");
    Log::instance().set_debug(false);
    paint();
    EXPECT_EQ(painted_text("level 0")->color, palette().dim);
    EXPECT_EQ(painted_text("level 1")->color, palette().text);
    EXPECT_EQ(painted_text("level 2")->color, palette().warn);
    EXPECT_EQ(painted_text("level 3")->color, palette().danger);
}

TEST_F(AppLog, the_ground_has_two_colours_of_its_own) {
    start();
    Log::instance().clear();
    app().open_overlay(Overlay::LogView, "Log");
    for (const auto& [theme, color] : {std::pair{"light", "#FBFBFC"}, {"dark", "#101317"}}) {
        SettingsStore::instance().mutable_get().theme = theme;
        app().apply_theme();
        const App::Rect panel = paint();
        const int x = static_cast<int>(panel.x), y = static_cast<int>(panel.y);
        EXPECT_EQ(pixel(x + 16, y + 200), color);
        EXPECT_EQ(pixel(x + 16 + 900 - 32 - 1, y + 200), color);
        EXPECT_NE(pixel(x + 15, y + 200), color);
        EXPECT_EQ(pixel(x + 100, y + 84 + 1), color);
        EXPECT_NE(pixel(x + 100, y + 83), color);
        EXPECT_EQ(pixel(x + 100, y + 600 - 56 - 1), color);
        EXPECT_NE(pixel(x + 100, y + 600 - 56), color);
    }
}

TEST_F(AppLog, an_empty_log_says_so) {
    start();
    app().open_overlay(Overlay::LogView, "Log");
    paint();
    Log::instance().clear();
    const App::Rect panel = paint();
    const PaintedText* const text = painted_text("Nothing logged yet.");
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text->x, panel.x + 26);
    EXPECT_EQ(text->size, 11);
    EXPECT_EQ(text->color, app().m_palette.secondary);
    EXPECT_EQ(text->alpha, 1);
    EXPECT_NE(text->family, "monospace");
    Log::infof("something");
    paint();
    EXPECT_EQ(painted_text("Nothing logged yet."), nullptr);
}

TEST_F(AppLog, three_tools_stand_above_the_list) {
    start();
    const App::Rect panel = open();
    double left = 0;
    for (const auto& [action, label] : {std::pair{Action::LogToggleDebug, "Every file"},
                                        {Action::LogClear, "Clear"},
                                        {Action::LogOpenFile, "Open the file"}}) {
        const App::HitRect tool = hit(App::Hit::Overlay, static_cast<int>(action));
        EXPECT_EQ(tool.label, label);
        EXPECT_EQ(tool.y, panel.y + 52);
        EXPECT_EQ(tool.h, 24);
        EXPECT_NEAR(tool.w, painted_text(label)->width + 30, 1);
        EXPECT_EQ(painted_text(label)->size, 11);
        EXPECT_GT(tool.x, left);
        left = tool.x + tool.w;
    }
    // What stands beside the list is painted too.
    const App::HitRect close = hit(App::Hit::Overlay, static_cast<int>(Action::OverlayCancel));
    EXPECT_EQ(close.y, panel.y + panel.h - 46);
    EXPECT_TRUE(painted(static_cast<int>(close.x), static_cast<int>(close.y),
                        static_cast<int>(close.w), static_cast<int>(close.h)));
}

TEST_F(AppLog, the_first_tool_is_marked_while_every_file_is_logged) {
    start();
    open();
    const std::string plain = painted_text("Every file")->color;
    click(hit(App::Hit::Overlay, static_cast<int>(Action::LogToggleDebug)));
    EXPECT_TRUE(Log::instance().debug());
    EXPECT_TRUE(logged("debug logging ON"));
    paint();
    EXPECT_NE(painted_text("Every file")->color, plain);
    // As a lamp that is on.
    const App::HitRect tool = hit(App::Hit::Overlay, static_cast<int>(Action::LogToggleDebug));
    EXPECT_EQ(at(tool.x + 7, tool.y + 12), app().m_palette.accent);
    EXPECT_NE(at(tool.x + 7, tool.y + 16), app().m_palette.accent);
    EXPECT_NE(at(tool.x + 7, tool.y + 8), app().m_palette.accent);
    click(hit(App::Hit::Overlay, static_cast<int>(Action::LogToggleDebug)));
    EXPECT_FALSE(Log::instance().debug());
    EXPECT_TRUE(logged("debug logging off"));
}

TEST_F(AppLog, clearing_goes_back_to_the_end) {
    start();
    write_lines(100);
    open();
    app().m_list_scroll = 3;
    click(hit(App::Hit::Overlay, static_cast<int>(Action::LogClear)));
    EXPECT_EQ(app().m_list_scroll, -1);
    EXPECT_EQ(Log::instance().recent().at(0).text, "log cleared by the user");
    EXPECT_EQ(app().m_overlay, Overlay::LogView);
}

TEST_F(AppLog, a_place_beyond_the_end_is_cut_to_the_last_page) {
    start();
    write_lines(100);
    open();
    const int total = static_cast<int>(Log::instance().size());
    app().m_list_scroll = 1073741824;
    paint();
    EXPECT_EQ(app().m_list_scroll, total - kPage);
    EXPECT_EQ(app().m_overlay_page, kPage);
    // It does not follow from there.
    Log::infof("line %d", 4711);
    paint();
    EXPECT_NE(in_view().second, 4711);
}

TEST_F(AppLog, the_wheel_leaves_the_end_by_its_step) {
    start();
    write_lines(100);
    open();
    const int last = static_cast<int>(Log::instance().size()) - kPage;
    app().handle_scroll(500, GDK_SCROLL_UP, 0, 0);
    EXPECT_EQ(app().m_list_scroll, last - 3);
    paint();
    app().handle_scroll(500, GDK_SCROLL_DOWN, 0, 0);
    paint();
    EXPECT_EQ(app().m_list_scroll, last);
}

TEST_F(AppLog, the_wheel_with_shift_moves_it_sideways) {
    start();
    Log::instance().clear();
    app().open_overlay(Overlay::LogView, "Log");
    Log::infof("%s", std::string(300, 'm').c_str());
    paint();
    const int before = app().m_list_scroll;
    app().handle_scroll(500, GDK_SCROLL_DOWN, 0, GDK_SHIFT_MASK);
    EXPECT_EQ(app().m_log_hscroll, 60);
    app().handle_scroll(500, GDK_SCROLL_SMOOTH, 0.5, GDK_SHIFT_MASK);
    EXPECT_EQ(app().m_log_hscroll, 90);
    app().handle_scroll(500, GDK_SCROLL_SMOOTH, 0.01, GDK_SHIFT_MASK);
    EXPECT_EQ(app().m_log_hscroll, 90);
    app().handle_scroll(500, GDK_SCROLL_UP, 0, GDK_SHIFT_MASK);
    app().handle_scroll(500, GDK_SCROLL_UP, 0, GDK_SHIFT_MASK);
    EXPECT_EQ(app().m_log_hscroll, 0);
    EXPECT_EQ(app().m_list_scroll, before);
}

TEST_F(AppLog, a_tiny_turn_of_the_wheel_does_nothing_here) {
    start();
    write_lines(100);
    open();
    app().handle_scroll(500, GDK_SCROLL_SMOOTH, 0.1, 0);
    EXPECT_EQ(app().m_list_scroll, -1);
}

TEST_F(AppLog, the_keys_move_it_from_where_it_is) {
    start();
    write_lines(100);
    open();
    const int last = static_cast<int>(Log::instance().size()) - kPage;
    key(GDK_KEY_Up);
    EXPECT_EQ(app().m_list_scroll, last - 1);
    key(GDK_KEY_Page_Up);
    EXPECT_EQ(app().m_list_scroll, last - 1 - kPage);
    key(GDK_KEY_Home);
    EXPECT_EQ(app().m_list_scroll, 0);
    key(GDK_KEY_End);
    paint();
    EXPECT_EQ(app().m_list_scroll, last);
}

// Alt comes before its letter, and must not end the following.
TEST_F(AppLog, a_key_that_does_not_scroll_goes_on_following) {
    start();
    write_lines(100);
    open();
    for (const guint keyval : std::initializer_list<guint>{
             GDK_KEY_Alt_L, GDK_KEY_Shift_L, GDK_KEY_x, GDK_KEY_Left, GDK_KEY_F5, GDK_KEY_Tab})
        key(keyval);
    EXPECT_EQ(app().m_list_scroll, -1);
    Log::infof("line %d", 4711);
    paint();
    EXPECT_EQ(in_view().second, 4711);
}

// A question may take the dialogue's place, and another list stand there after it.
TEST_F(AppLog, a_thumb_still_held_scrolls_no_other_list) {
    start();
    write_lines(526);
    open();
    const App::HitRect track = hit(App::Hit::LogVThumb);
    click(track.x + 5, track.y + track.h / 2);
    app().open_overlay(Overlay::Bookmarks, "t");
    app().handle_motion(track.x + 5, track.y + track.h);
    EXPECT_EQ(app().m_list_scroll, 0);
    app().handle_release();
}

// What is turned before its first frame is meant for what was there before.
TEST_F(AppLog, the_list_before_it_does_not_tell_where_its_end_is) {
    start();
    write_lines(300);
    open();
    app().close_overlay();
    write_lines(1000);
    app().perform(Action::LogWindow, 0);
    app().handle_scroll(500, GDK_SCROLL_UP, 0, 0);
    EXPECT_EQ(app().m_list_scroll, -1);
    paint();
    const int last = static_cast<int>(Log::instance().size()) - kPage;
    app().handle_scroll(500, GDK_SCROLL_UP, 0, 0);
    EXPECT_EQ(app().m_list_scroll, last - 3);
}

TEST_F(AppLog, the_vertical_thumb_goes_where_it_is_pulled) {
    start();
    write_lines(526);
    const App::Rect panel = open();
    const App::HitRect track = hit(App::Hit::LogVThumb);
    EXPECT_EQ(track.w, 11);
    EXPECT_EQ(track.y, panel.y + 84 + 2);
    EXPECT_EQ(track.h, 600 - 84 - 56 - 4);
    EXPECT_NEAR(track.x + 2, panel.x + 900 - 27, 0.01);
    const int last = static_cast<int>(Log::instance().size()) - kPage;
    click(track.x + 5, track.y + track.h / 2);
    EXPECT_EQ(app().m_log_drag, 1);
    EXPECT_EQ(app().m_list_scroll, static_cast<int>(last * 0.5 + 0.5));
    app().handle_motion(track.x + 5, track.y + track.h + 50);
    EXPECT_EQ(app().m_list_scroll, last);
    app().handle_motion(track.x + 300, track.y - 50);
    EXPECT_EQ(app().m_list_scroll, 0);
    app().handle_release();
    EXPECT_EQ(app().m_log_drag, 0);
    app().handle_motion(track.x + 5, track.y + track.h);
    EXPECT_EQ(app().m_list_scroll, 0);
}

TEST_F(AppLog, a_page_needs_no_thumb) {
    start();
    write_lines(3);
    open();
    EXPECT_EQ(count_hits(App::Hit::LogVThumb), 0U);
    EXPECT_EQ(count_hits(App::Hit::LogHThumb), 0U);
}

TEST_F(AppLog, long_lines_can_be_scrolled_to_the_side) {
    start();
    Log::instance().clear();
    app().open_overlay(Overlay::LogView, "Log");
    const std::string text = "begin " + std::string(300, 'm') + " end";
    Log::infof("%s", text.c_str());
    const App::Rect panel = paint();
    const double text_w = painted_text(text)->width;
    EXPECT_NEAR(app().m_log_content_w, text_w + 118 + 20, 1);
    EXPECT_NEAR(app().m_log_max_h, text_w + 118 + 20 - (900 - 32), 1);
    const App::HitRect track = hit(App::Hit::LogHThumb);
    EXPECT_EQ(track.h, 12);
    EXPECT_NEAR(track.y + 12, panel.y + 600 - 56 + 1, 0.01);
    click(track.x + 100, track.y + 6);
    EXPECT_EQ(app().m_log_drag, 2);
    EXPECT_NEAR(app().m_log_hscroll, 100 / track.w * app().m_log_max_h, 0.01);
    app().handle_motion(track.x + track.w + 30, track.y + 200);
    EXPECT_EQ(app().m_log_hscroll, app().m_log_max_h);
    app().handle_release();
    paint();
    EXPECT_NEAR(painted_text(text)->x, panel.x + 134 - app().m_log_max_h, 0.01);
    // The end of the text lies in view now.
    EXPECT_LE(painted_text(text)->x + text_w, panel.x + 900 - 16);
    // A position that no line in view reaches is cut.
    Log::instance().clear();
    Log::infof("short");
    paint();
    EXPECT_EQ(app().m_log_hscroll, 0);
}

TEST_F(AppLog, all_columns_of_a_row_move_sideways_and_stay_in_the_list) {
    start();
    Log::instance().clear();
    app().open_overlay(Overlay::LogView, "Log");
    std::thread([] {
        Log::name_this_thread("w7");
        Log::infof("%s", std::string(300, 'm').c_str());
    }).join();
    paint();
    app().m_log_hscroll = 40;
    const App::Rect panel = paint();
    EXPECT_EQ(painted_text("w7")->x, panel.x + 94 - 40);
    EXPECT_TRUE(
        std::any_of(painted_texts().begin(), painted_texts().end(), [&](const PaintedText& one) {
            return one.x == panel.x + 26 - 40 &&
                   std::regex_match(one.text, std::regex("\\d\\d:\\d\\d:\\d\\d"));
        }));
    app().m_log_hscroll = 300;
    paint();
    const int x = static_cast<int>(panel.x), y = static_cast<int>(panel.y);
    EXPECT_FALSE(painted(x + 2, y + 84, 13, 17)) << "beside the list";
    EXPECT_FALSE(painted(x + 900 - 15, y + 84, 13, 17));
    EXPECT_TRUE(painted(x + 18, y + 84, 60, 17));
}

TEST_F(AppLog, the_time_is_the_local_one) {
    start();
    Log::instance().clear();
    app().open_overlay(Overlay::LogView, "Log");
    setenv("TZ", "IST-5:30", 1);
    tzset();
    Log::infof("now");
    const App::Rect panel = paint();
    const auto seconds = static_cast<time_t>(Log::instance().recent().at(0).unix_time);
    char wanted[16];
    std::strftime(wanted, sizeof wanted, "%H:%M:%S", std::localtime(&seconds));
    unsetenv("TZ");
    tzset();
    const PaintedText* clock = painted_text(wanted);
    ASSERT_NE(clock, nullptr);
    EXPECT_EQ(clock->x, panel.x + 26);
}

TEST_F(AppLog, both_thumbs_show_where_the_list_is) {
    start();
    write_lines(50000);
    Log::infof("%s", std::string(300, 'm').c_str());
    for (int i = 0; i < 5; ++i)  // it does not lie behind what is looked at
        Log::infof("short");
    app().open_overlay(Overlay::LogView, "Log");
    app().m_list_scroll = -1;
    for (const char* theme : {"light", "dark"}) {
        settings().theme = theme;
        app().apply_theme();
        const App::Rect panel = paint();
        const Palette& p = palette();
        const std::string ground = p.dark ? "#101317" : "#FBFBFC";
        const std::string track = over(p.progress_track, 0.45, ground);
        const std::string thumb = over(p.secondary, 0.55, track);
        const std::string held = over(p.secondary, 0.85, track);
        // Upright, at its end, 24 high at the least.
        const App::HitRect v = hit(App::Hit::LogVThumb);
        const double x = v.x + 5, v_end = v.y + v.h;
        expect_near(at(x, v.y + 10), track, "track");
        expect_near(at(x, v_end - 26), track, "above the thumb");
        expect_near(at(x, v_end - 22), thumb, "thumb");
        expect_near(at(v.x + 2, v_end - 12), thumb, "its left edge");
        expect_near(at(v.x + 8, v_end - 12), thumb, "its right edge");
        expect_near(at(v.x + 2, v.y + 100), track, "left edge");
        expect_near(at(v.x + 8, v.y + 100), track, "right edge");
        EXPECT_EQ(at(v.x + 1, v.y + 100), ground);
        EXPECT_EQ(at(v.x + 9, v.y + 100), ground);
        // Lying, at its beginning.
        const App::HitRect h = hit(App::Hit::LogHThumb);
        const double top = panel.y + 600 - 56 - 8;
        expect_near(at(h.x + 10, top + 3), thumb, "lying thumb");
        expect_near(at(h.x + h.w - 10, top + 3), track, "lying track");
        expect_near(at(h.x + h.w - 10, top), track, "its upper edge");
        expect_near(at(h.x + h.w - 10, top + 5), track, "its lower edge");
        EXPECT_EQ(at(h.x + h.w - 10, top - 1), ground);
        EXPECT_EQ(at(h.x + h.w - 10, top + 6), ground);
        EXPECT_EQ(at(h.x + 10, top - 1), ground);
        EXPECT_EQ(at(h.x + 10, top + 6), ground);
        // The one that is held is darker, and at the place of the pointer's.
        click(x, v.y);
        paint();
        expect_near(at(x, v.y + 12), held, "held");
        expect_near(at(x, v_end - 10), track, "where it was");
        app().handle_release();
        app().m_list_scroll = -1;
        paint();
        click(h.x + h.w - 1, h.y + 6);
        paint();
        expect_near(at(h.x + h.w - 10, top + 3), held, "held lying");
        expect_near(at(h.x + 10, top + 3), track, "where that was");
        app().handle_release();
        app().m_log_hscroll = 0;
    }
}

TEST_F(AppLog, the_lying_thumb_is_30_long_at_the_least) {
    start();
    Log::instance().clear();
    app().open_overlay(Overlay::LogView, "Log");
    Log::infof("%s", std::string(2000, 'W').c_str());
    AppTest::frame(420, 600);
    const App::HitRect h = hit(App::Hit::LogHThumb);
    const double middle = h.y + 6;
    ASSERT_LT((h.w + 19) / app().m_log_content_w * h.w, 20);
    EXPECT_EQ(at(h.x + 27, middle), at(h.x + 10, middle));
    EXPECT_NE(at(h.x + 31, middle), at(h.x + 10, middle));
}

TEST_F(AppLog, a_tool_under_the_pointer_is_lit) {
    start();
    open();
    const App::HitRect tool = hit(App::Hit::Overlay, static_cast<int>(Action::LogClear));
    EXPECT_EQ(at(tool.x + 5, tool.y + 12), palette().control);
    app().handle_motion(tool.x + 5, tool.y + 5);
    paint();
    EXPECT_EQ(at(tool.x + 5, tool.y + 12), palette().control_hover);
}

TEST_F(AppLog, a_text_beyond_all_bounds_is_cut) {
    start();
    Log::instance().clear();
    app().open_overlay(Overlay::LogView, "Log");
    std::string text;
    for (int i = 0; i < 5000; ++i)
        text += "ä";
    Log::infof("%s", text.c_str());
    paint();
    const PaintedText* painted = nullptr;
    for (const PaintedText& one : painted_texts())
        if (one.text.rfind("ääää", 0) == 0)
            painted = &one;
    ASSERT_NE(painted, nullptr);
    EXPECT_LT(painted->text.size(), 2100U);
    EXPECT_TRUE(painted->text.ends_with("ä…"));
    EXPECT_TRUE(g_utf8_validate(painted->text.c_str(), -1, nullptr));
}

TEST_F(AppLog, lines_of_a_transfers_workers_arrive_while_it_runs) {
    // Before the first thread: the mount lives in a namespace of this process.
    faultfs::FaultFs fs;
    if (!fs.ok())
        GTEST_SKIP() << fs.reason();
    test_env::write_file(fs.backing() + "/1", "x");
    test_env::write_file(fs.backing() + "/2", "x");
    fs.set(faultfs::stall("read", 1, 1, "1"));
    fs.set(faultfs::stall("read", 1, 1, "2"));
    start({"--left=" + fs.path()});
    settings().thread_count = 1;
    Log::instance().set_debug(true);
    pane().select_all();
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(fs.wait_stalled(1));
    app().perform(Action::LogWindow, 0);
    paint();
    const std::string line = "copied " + fs.path() + "/1 -> " + right() + "/1 (1 B)";
    EXPECT_EQ(painted_text(line), nullptr);
    rest();
    fs.release();
    // No frame is asked for here: the tick does. The second file keeps the transfer running, and
    // its stall is told, with a frame, after 15 seconds.
    EXPECT_TRUE(pump_until([&] { return painted_text(line) != nullptr; }, 10));
    ASSERT_TRUE(fs.wait_stalled(1));
    EXPECT_TRUE(App::busy());
    fs.release();
    EXPECT_TRUE(settle());
    Log::instance().set_debug(false);
}

TEST_F(AppLog, lines_of_other_threads_arrive_while_work_runs) {
    start();
    Log::instance().clear();
    app().perform(Action::LogWindow, 0);
    std::atomic<bool> said = false;
    std::atomic<bool> go = false;
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [&](BgTask::Reporter&) {
        while (!said)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        Log::infof("line %d", 815);
        while (!go)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }));
    app().m_bgtask_was_running = true;
    rest();
    said = true;
    // No frame is asked for here: the tick does.
    EXPECT_TRUE(pump_until([] { return painted_text("line 815") != nullptr; }));
    go = true;
    EXPECT_TRUE(settle());
}

TEST_F(AppLog, the_middle_of_forty_thousand_lines_is_shown_in_order) {
    start();
    write_lines(50000);
    open();
    EXPECT_EQ(Log::instance().size(), Log::kRingSize);
    app().m_list_scroll = 20000;
    paint();
    const std::vector<Log::Entry> all = Log::instance().recent();
    int number = 0;
    ASSERT_EQ(std::sscanf(all.at(20000).text.c_str(), "line %d", &number), 1);
    EXPECT_EQ(in_view(), std::pair(number, number + kPage - 1));
}

// --- Bookmarks --------------------------------------------------------------------------------

class AppBookmarks : public PanePaint {
  protected:
    // The cross of a row, whose number is turned over.
    App::HitRect cross_of(int index) {
        for (const App::HitRect& rect : app().m_hits)
            if (rect.what == App::Hit::ListItem && rect.param == ~index)
                return rect;
        ADD_FAILURE() << "no cross for " << index;
        return {};
    }
    void add(int count) {
        bookmarks::load();
        bookmarks::restore({});
        for (int i = 0; i < count; ++i)
            ASSERT_TRUE(bookmarks::add("/somewhere/mark" + std::to_string(i)));
    }
    App::Rect open() {
        app().perform(Action::BookmarkManage, 0);
        forget_painted();
        frame();
        return app().m_overlay_panel;
    }
};

TEST_F(AppBookmarks, none_is_told) {
    start();
    add(0);
    open();
    EXPECT_EQ(app().m_overlay_title, "Bookmarks");
    EXPECT_NE(painted_text(tr("bookmark.empty")), nullptr);
    EXPECT_EQ(count_hits(App::Hit::ListItem), 0U);
}

TEST_F(AppBookmarks, a_row_has_name_path_and_a_cross) {
    start();
    add(2);
    const App::Rect panel = open();
    for (int i = 0; i < 2; ++i) {
        const double top = panel.y + 56 + 30 * i;
        const App::HitRect row = hit(App::Hit::ListItem, i);
        EXPECT_EQ(row.x, panel.x + 16);
        EXPECT_EQ(row.y, top);
        EXPECT_EQ(row.w, 520 - 32 - 70);
        EXPECT_EQ(row.h, 30);
        const App::HitRect cross = cross_of(i);
        EXPECT_EQ(cross.w, 24);
        EXPECT_EQ(cross.h, 24);
        EXPECT_EQ(cross.x + 12, panel.x + 520 - 16 - 44);
        EXPECT_EQ(cross.y + 12, top + 15);
        const PaintedText* name = painted_text("mark" + std::to_string(i));
        ASSERT_NE(name, nullptr);
        EXPECT_EQ(name->x, panel.x + 16 + 34);
        EXPECT_NEAR(name->y, top + 15, 0.6);
        EXPECT_EQ(name->size, 12.5);
        const PaintedText* path = painted_text("/somewhere/mark" + std::to_string(i));
        ASSERT_NE(path, nullptr);
        EXPECT_EQ(path->size, 11);
        EXPECT_EQ(path->color, app().m_palette.secondary);
        EXPECT_EQ(path->x, panel.x + 16 + 34 + 130);
        EXPECT_NEAR(path->y, top + 15, 0.6);
        // Arms of 5 from the middle, a line of 1.6.
        const double x = cross.x + 12, y = cross.y + 12;
        const Palette& p = app().m_palette;
        const std::string ink = over(p.secondary, 0.45, p.bar);
        for (const double arm : {-5.0, 0.0, 4.0}) {
            expect_near(at(x + arm, y + arm), ink, "falling arm");
            expect_near(at(x + arm, y - 1 - arm), ink, "rising arm");
        }
        EXPECT_EQ(at(x + 6, y + 6), p.bar);
        EXPECT_EQ(at(x - 8, y - 8), p.bar);
        EXPECT_NE(at(x + 2, y + 1), at(x, y)) << "the line is no wider";
    }
    EXPECT_EQ(hit(App::Hit::Overlay, static_cast<int>(Action::OverlayCancel)).y,
              panel.y + panel.h - 46);
}

TEST_F(AppBookmarks, long_names_and_paths_keep_to_their_columns) {
    start();
    const std::string name(300, 'N'), path = "/" + std::string(300, 'p');
    bookmarks::restore({{name, path}});
    const App::Rect panel = open();
    const PaintedText* painted_name = painted_text(name);
    const PaintedText* painted_path = painted_text(path);
    ASSERT_TRUE(painted_name && painted_path);
    EXPECT_LE(painted_name->x + painted_name->width, panel.x + 16 + 34 + 130);
    EXPECT_LE(painted_path->x + painted_path->width, panel.x + 520 - 16 - 70);
}

TEST_F(AppBookmarks, a_click_goes_there_in_the_active_side) {
    make_dirs(left() + "/sub");
    start({"--active=right"});
    bookmarks::load();
    bookmarks::restore({});
    ASSERT_TRUE(bookmarks::add(left() + "/sub"));
    open();
    click(hit(App::Hit::ListItem, 0));
    EXPECT_EQ(pane(app().m_active_right).path(), left() + "/sub");
    EXPECT_EQ(app().m_overlay, App::Overlay::None);
}

TEST_F(AppBookmarks, the_cross_forgets_that_one_and_the_dialogue_stays) {
    start();
    add(3);
    open();
    click(cross_of(1));
    EXPECT_EQ(app().m_overlay, App::Overlay::Bookmarks);
    ASSERT_EQ(bookmarks::all().size(), 2U);
    EXPECT_EQ(bookmarks::all()[0].path, "/somewhere/mark0");
    EXPECT_EQ(bookmarks::all()[1].path, "/somewhere/mark2");
}

TEST_F(AppBookmarks, a_row_that_has_gone_since_it_was_painted_does_nothing) {
    start();
    add(1);
    open();
    const App::HitRect cross = cross_of(0);
    bookmarks::restore({});
    const std::string before = pane().path();
    click(hit(App::Hit::ListItem, 0));
    EXPECT_EQ(pane().path(), before);
    EXPECT_EQ(app().m_overlay, App::Overlay::Bookmarks);
    click(cross);
    EXPECT_EQ(app().m_overlay, App::Overlay::Bookmarks);
}

TEST_F(AppBookmarks, more_than_fit_are_scrolled) {
    start();
    add(30);
    open();
    const int page = (460 - 56 - 56) / 30;
    EXPECT_EQ(app().m_overlay_page, page);
    key(GDK_KEY_End);
    forget_painted();
    frame();
    EXPECT_EQ(app().m_list_scroll, 30 - page);
    EXPECT_NE(painted_text("mark29"), nullptr);
    EXPECT_EQ(painted_text("mark0"), nullptr);
    app().handle_scroll(500, GDK_SCROLL_UP, 0, 0);
    EXPECT_EQ(app().m_list_scroll, 30 - page - 3);
    frame();
    const App::HitRect thumb = hit(App::Hit::LogVThumb);
    click(thumb.x + 5, thumb.y);
    EXPECT_EQ(app().m_list_scroll, 0);
    app().handle_release();
    // With shift, too: there is nothing to the side.
    app().handle_scroll(500, GDK_SCROLL_DOWN, 0, GDK_SHIFT_MASK);
    EXPECT_EQ(app().m_list_scroll, 3);
    // The last row in view is cut at the list's end.
    frame();
    const App::HitRect last = hit(App::Hit::ListItem, 3 + page);
    EXPECT_LT(last.h, 30);
    app().handle_motion(last.x + 200, last.y + 2);
    frame();
    const double end = app().m_overlay_panel.y + 460 - 56;
    EXPECT_EQ(at(last.x + 140, end - 2), app().m_palette.control_hover);
    EXPECT_EQ(at(last.x + 140, end + 2), app().m_palette.bar);
    // No row reaches out of the list.
    for (const App::HitRect& rect : app().m_hits)
        EXPECT_TRUE(rect.what != App::Hit::ListItem ||
                    rect.y + rect.h <= app().m_overlay_panel.y + 460 - 56);
}

TEST_F(AppBookmarks, the_row_under_the_pointer_is_lit) {
    start();
    add(3);
    open();
    const App::HitRect row = hit(App::Hit::ListItem, 1);
    const int x = static_cast<int>(row.x) + 200, y = static_cast<int>(row.y) + 3;
    const std::string before = pixel(x, y);
    app().handle_motion(row.x + 50, row.y + 15);
    EXPECT_EQ(app().m_list_hover, 1);
    frame();
    EXPECT_EQ(pixel(x, y), app().m_palette.control_hover);
    EXPECT_NE(pixel(x, y), before);
    EXPECT_EQ(pixel(x, y - 30), before);
    // Its ribbon has a notch below. What stands beside the list is painted too.
    const double centre = row.y + 15;
    for (const double dx : {15.0, 18.5, 22.0})
        EXPECT_EQ(at(row.x + dx, centre - 5), app().m_palette.accent) << dx;
    EXPECT_NE(at(row.x + 13, centre - 5), app().m_palette.accent);
    EXPECT_NE(at(row.x + 18, centre + 6), app().m_palette.accent);
    EXPECT_EQ(at(row.x + 14, centre + 4), app().m_palette.accent);
    const App::HitRect close = hit(App::Hit::Overlay, static_cast<int>(Action::OverlayCancel));
    EXPECT_TRUE(painted(static_cast<int>(close.x), static_cast<int>(close.y),
                        static_cast<int>(close.w), static_cast<int>(close.h)));
    // The first row is number 0.
    const App::HitRect first = hit(App::Hit::ListItem, 0);
    app().handle_motion(first.x + 50, first.y + 15);
    EXPECT_EQ(app().m_list_hover, 0);
    // The cross belongs to its row.
    const App::HitRect cross = cross_of(2);
    app().handle_motion(cross.x + 5, cross.y + 5);
    EXPECT_EQ(app().m_list_hover, 2);
    app().handle_motion(5, 5);
    EXPECT_EQ(app().m_list_hover, -1);
}

TEST_F(AppBookmarks, the_lit_row_is_the_one_under_the_pointer_when_the_list_moves) {
    start();
    add(30);
    open();
    const App::HitRect row = hit(App::Hit::ListItem, 1);
    app().handle_motion(row.x + 50, row.y + 15);
    app().handle_scroll(500, GDK_SCROLL_DOWN, 0, 0);
    frame();
    EXPECT_EQ(app().m_list_hover, 4);
    key(GDK_KEY_End);
    frame();
    EXPECT_EQ(app().m_list_hover, app().m_list_scroll + 1);
    // Once more at the end, where nothing moves.
    app().handle_scroll(500, GDK_SCROLL_DOWN, 0, 0);
    frame();
    EXPECT_EQ(app().m_list_hover, app().m_list_scroll + 1);
    // Nothing is lit below a pointer that has left the window.
    app().handle_leave();
    key(GDK_KEY_Home);
    frame();
    EXPECT_EQ(app().m_list_hover, -1);
}

}  // namespace
