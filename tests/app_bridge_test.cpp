// The bridge between the panes and the status bar: what they paint and which rectangles they make.
// Which tools are installed is asked once per process; fake ones stand in front of the machine's.

#include "app_pane_paint.h"

#include "app_texts.h"
#include "archive_ops.h"
#include "busy_task.h"
#include "file_ops.h"
#include "format.h"
#include "fresh_process.h"
#include "i18n.h"
#include "strutil.h"

#include <cstdlib>

namespace {

using test_env::painted_text;
using test_env::write_file;

class Bridge : public PanePaint {
  protected:
    static constexpr App::Hit kAll[] = {
        App::Hit::BridgeCopy,    App::Hit::BridgeMove,      App::Hit::BridgePack,
        App::Hit::BridgeSearch,  App::Hit::BridgeHex,       App::Hit::BridgeTerminal,
        App::Hit::BridgeRefresh, App::Hit::BridgeNewFolder, App::Hit::BridgeDelete,
        App::Hit::BridgeTrash,
    };

    // These are all the tools that the program finds.
    void install(const std::vector<std::string>& tools) {
        unsetenv("TERMINAL");
        for (const std::string& tool : tools)
            write_file(m_bin / tool, "#!/bin/sh\nexit 0\n", 0755);
        setenv("PATH", m_bin.path().c_str(), 1);
    }
    // With a selected file, so that no button is disabled.
    void start_with_all_enabled() {
        files(3);
        start();
        pane().set_cursor(1, true);
        frame();
    }
    std::vector<App::HitRect> buttons() {
        std::vector<App::HitRect> found;
        for (const App::HitRect& rect : app().m_hits)
            if (std::ranges::find(kAll, rect.what) != std::end(kAll))
                found.push_back(rect);
        return found;
    }

  private:
    test_env::TempDir m_bin;
};

TEST_F(Bridge, the_arrow_leads_from_the_source_to_the_target) {
    start();
    for (const Look& look_of : kLooks) {
        for (const bool active_right : {false, true}) {
            app().m_active_right = active_right;
            look(look_of.theme, look_of.scale);
            const Palette& p = app().m_palette;
            // 64 long from 10 inside the bridge; the head is the last 0.3 of it.
            const double tail = active_right ? 508 + 74 : 508 + 10;
            const double step = active_right ? -1 : 1;
            const double y = kTop + 26;
            const auto along = [&](double share) { return tail + step * 64 * share; };
            expect_near(at(along(0.5), y - 0.5), over(p.target_tint, 0.5, p.source_tint), "shaft");
            EXPECT_EQ(at(along(0.5), y - 4), p.window);
            EXPECT_NE(at(along(0.74), y - 6), p.window);
            EXPECT_NE(at(along(0.74), y + 5), p.window);
            EXPECT_EQ(at(along(0.74), y - 11), p.window);
            EXPECT_EQ(at(along(-0.04), y), p.window);
            EXPECT_EQ(at(along(1.04), y), p.window);
        }
    }
}

TEST_F(Bridge, ten_buttons_stand_in_their_order_with_their_labels) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "foot"});
    start_with_all_enabled();
    const std::pair<App::Hit, const char*> rows[] = {
        {App::Hit::BridgeCopy, "Copy"},       {App::Hit::BridgeMove, "Move"},
        {App::Hit::BridgePack, "Pack"},       {App::Hit::BridgeSearch, "Search"},
        {App::Hit::BridgeHex, "Bytes"},       {App::Hit::BridgeTerminal, "Terminal"},
        {App::Hit::BridgeRefresh, "Refresh"}, {App::Hit::BridgeNewFolder, "Folder"},
        {App::Hit::BridgeDelete, "Delete"},   {App::Hit::BridgeTrash, "Trash"},
    };
    for (const Look& look_of : kLooks) {
        look(look_of.theme, look_of.scale);
        test_env::forget_painted();
        frame();
        const std::vector<App::HitRect> found = buttons();
        ASSERT_EQ(found.size(), std::size(rows));
        // 10 of 40 and 9 gaps of 10 are 490, in the middle of the 552 from 44 below the top to 6
        // above the bottom.
        double y = kTop + 44 + 31;
        for (size_t i = 0; i < found.size(); ++i) {
            EXPECT_EQ(found[i].what, rows[i].first);
            EXPECT_EQ(found[i].label, rows[i].second);
            EXPECT_DOUBLE_EQ(found[i].y, y) << rows[i].second;
            EXPECT_DOUBLE_EQ(found[i].h, 40) << rows[i].second;
            EXPECT_EQ(found[i].x, 508 + 10);
            EXPECT_EQ(found[i].w, 84 - 20);
            const test_env::PaintedText* label = painted_text(rows[i].second);
            ASSERT_NE(label, nullptr) << rows[i].second;
            EXPECT_NEAR(label->x + label->width / 2, 508 + 42, 1) << rows[i].second;
            EXPECT_GT(label->y, y + 26) << rows[i].second;
            EXPECT_LT(label->y, y + 36) << rows[i].second;
            EXPECT_LT(label->size, 11) << rows[i].second;
            EXPECT_EQ(label->color, app().m_palette.control_text) << rows[i].second;
            y += 50;
        }
    }
    shot("bridge");
}

TEST_F(Bridge, each_symbol_has_its_colour) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "foot"});
    start_with_all_enabled();
    for (const char* theme : {"light", "dark"}) {
        look(theme, 200);  // strokes wide enough to cover whole pixels
        const Palette& p = app().m_palette;
        const std::pair<App::Hit, std::string> rows[] = {
            {App::Hit::BridgeCopy, p.accent},       {App::Hit::BridgeMove, p.warn},
            {App::Hit::BridgePack, p.archive_text}, {App::Hit::BridgeSearch, p.secondary},
            {App::Hit::BridgeHex, p.accent},        {App::Hit::BridgeTerminal, p.secondary},
            {App::Hit::BridgeRefresh, p.secondary}, {App::Hit::BridgeNewFolder, p.exec_text},
            {App::Hit::BridgeDelete, p.danger},     {App::Hit::BridgeTrash, p.secondary},
        };
        for (const auto& [what, color] : rows) {
            const App::HitRect rect = hit(what);
            // In the middle 26 of the width and the upper 26 of the height.
            EXPECT_TRUE(has(color, rect.x + 19, rect.y + 2, 26, 24)) << App::hit_name(what);
            EXPECT_FALSE(has(color, rect.x + 3, rect.y + 3, 16, 23)) << App::hit_name(what);
            EXPECT_FALSE(has(color, rect.x + 45, rect.y + 3, 16, 23)) << App::hit_name(what);
            EXPECT_TRUE(has(p.control_text, rect.x + 5, rect.y + 26, 54, 12))
                << App::hit_name(what);
        }
        // Copy and move stand out from the eight others.
        const auto back = [&](App::Hit what) { return at(hit(what).x + 6, hit(what).y + 8); };
        EXPECT_EQ(back(App::Hit::BridgePack), p.control);
        EXPECT_EQ(back(App::Hit::BridgeTrash), p.control);
        EXPECT_NE(back(App::Hit::BridgeCopy), p.control);
        EXPECT_EQ(back(App::Hit::BridgeMove), back(App::Hit::BridgeCopy));
        EXPECT_EQ(at(hit(App::Hit::BridgeCopy).x + 32, hit(App::Hit::BridgeCopy).y + 0.5),
                  p.accent);
        EXPECT_EQ(at(hit(App::Hit::BridgePack).x + 32, hit(App::Hit::BridgePack).y + 0.5),
                  p.control_edge);
    }
}

// A point of each, in the square of 26 that they are drawn in.
TEST_F(Bridge, no_stroke_of_a_symbol_is_missing) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "foot"});
    start_with_all_enabled();
    look("light", 200);
    const Palette& p = app().m_palette;
    struct Strokes {
        App::Hit what;
        std::string color;
        std::vector<std::pair<double, double>> points;
    };
    const std::vector<Strokes> all = {
        {App::Hit::BridgeCopy,
         p.accent,
         {{15.5, 9}, {21, 15}, {15.5, 22}, {10, 20}, {6, 17}, {5, 10}, {10, 4}, {16, 5}}},
        {App::Hit::BridgeMove, p.warn, {{10, 13}, {18, 10}, {18, 16}}},
        {App::Hit::BridgePack,
         p.archive_text,
         {{13, 5}, {4, 7.5}, {22, 7.5}, {13, 10}, {6, 16}, {13, 22}, {20, 16}, {13, 14}}},
        {App::Hit::BridgeRefresh, p.secondary, {{5, 13}, {13, 21}, {11, 3.25}, {11, 6.75}}},
        {App::Hit::BridgeNewFolder,
         p.exec_text,
         {{4, 14}, {7, 6}, {11, 7.5}, {18, 9}, {22, 15}, {13, 21}, {13, 13}, {11, 15}}},
        {App::Hit::BridgeDelete, p.danger, {{9, 9}, {17, 17}, {17, 9}, {9, 17}}},
        {App::Hit::BridgeHex,
         p.accent,
         {{8, 6.5}, {4.5, 13}, {11.5, 13}, {8, 20.5}, {17, 7.5}, {18.5, 14}, {20.5, 20.5}}},
        {App::Hit::BridgeTerminal,
         p.secondary,
         {{13, 5}, {3, 13}, {23, 13}, {13, 21}, {9, 11.25}, {9, 14.75}, {15.5, 17}}},
        {App::Hit::BridgeSearch, p.secondary, {{4.5, 11.5}, {11.5, 4.5}, {11.5, 18.5}, {19, 19}}},
        {App::Hit::BridgeTrash,
         p.secondary,
         {{5, 7}, {21, 7}, {13, 4}, {6.75, 14.5}, {13, 22}, {19.25, 14.5}, {11, 14.5}, {15, 14.5}}},
    };
    for (const Strokes& symbol : all) {
        const App::HitRect rect = hit(symbol.what);
        const auto covered = [&](double x, double y) {
            return has(symbol.color, rect.x + 19 + x - 1, rect.y + y - 1, 2, 2);
        };
        for (const auto& [x, y] : symbol.points)
            EXPECT_TRUE(covered(x, y)) << App::hit_name(symbol.what) << " " << x << " " << y;
        EXPECT_FALSE(covered(0.5, 13)) << App::hit_name(symbol.what);
    }
}

TEST_F(Bridge, the_move_points_where_the_arrow_above_does) {
    start_with_all_enabled();
    write_file(right() + "/there", "x");
    app().refresh_both();
    pane(true).set_cursor(1, true);
    look("light", 200);
    // The head's strokes are right of the middle, away from the shaft's height.
    const auto head = [this](double from) {
        const App::HitRect rect = hit(App::Hit::BridgeMove);
        return has(app().m_palette.warn, rect.x + 19 + from, rect.y + 7, 8, 4);
    };
    EXPECT_TRUE(head(14));
    EXPECT_FALSE(head(4));
    app().m_active_right = true;
    frame();
    EXPECT_FALSE(head(14));
    EXPECT_TRUE(head(4));
}

TEST_F(Bridge, no_other_symbol_is_turned_around) {
    start_with_all_enabled();
    write_file(right() + "/there", "x");
    app().refresh_both();
    pane(true).set_cursor(1, true);
    look("light", 200);
    const auto image = [this](App::Hit what) {
        const App::HitRect rect = hit(what);
        std::string pixels;
        for (double y = rect.y + 2; y < rect.y + 27; y += 0.5)
            for (double x = rect.x + 2; x < rect.x + rect.w - 2; x += 0.5)
                pixels += at(x, y);
        return pixels;
    };
    for (const App::Hit what : {App::Hit::BridgeCopy, App::Hit::BridgeHex, App::Hit::BridgeRefresh,
                                App::Hit::BridgeSearch}) {
        app().m_active_right = false;
        frame();
        const std::string before = image(what);
        app().m_active_right = true;
        frame();
        EXPECT_EQ(image(what), before) << App::hit_name(what);
    }
}

TEST_F(Bridge, a_label_that_is_too_wide_is_cut_within_its_button) {
    start_with_all_enabled();
    test_env::stretch_texts(4);
    test_env::forget_painted();
    frame();
    int cut = 0;
    for (const App::HitRect& button : buttons()) {
        const test_env::PaintedText* found = nullptr;
        for (const test_env::PaintedText& text : test_env::painted_texts())
            if (text.x >= button.x - 100 && text.x < button.x + button.w &&
                text.y > button.y + 20 && text.y < button.y + button.h)
                found = &text;
        ASSERT_NE(found, nullptr) << button.label;
        EXPECT_GE(found->x, button.x + 2.9) << button.label;
        EXPECT_LE(found->x + found->width, button.x + button.w - 2.9) << button.label;
        cut += found->cut;
    }
    test_env::stretch_texts(1);
    EXPECT_GT(cut, 0);
}

TEST_F(Bridge, on_a_low_window_the_buttons_shrink_to_30_with_gaps_of_4) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "foot"});
    start_with_all_enabled();
    struct Row {
        int height;  // of the window; 168 of it are no room for buttons
        double gap;
        double button;
        double top;
    };
    const Row rows[] = {
        {1000, 10, 40, 94 + 44 + (832 - 490) / 2.0},
        {720, 10, 40, 169},
        {660, 10, 40, 139},  // 2 more than needed
        {600, 10 * 432 / 490.0, (432 - 9 * (10 * 432 / 490.0)) / 10, 138},
        {520, 10 * 352 / 490.0, 30, 138},
        {400, 10 * 232 / 490.0, 30, 138},
        {360, 4, 30, 138},
        {300, 4, 30, 138},
    };
    for (const double scale : {70, 100, 200}) {
        settings().font_scale = static_cast<int>(scale);
        for (const Row& row : rows) {
            frame(static_cast<int>(1100 * scale / 100), static_cast<int>(row.height * scale / 100));
            const std::vector<App::HitRect> found = buttons();
            ASSERT_FALSE(found.empty());
            double y = row.top;
            for (size_t i = 0; i < 10; ++i, y += row.button + row.gap) {
                const double bottom = row.height - 24;
                // What lies below the column is cut off there, and is no button any more.
                if (y >= bottom) {
                    EXPECT_LE(found.size(), i) << row.height;
                    break;
                }
                ASSERT_GT(found.size(), i) << row.height;
                EXPECT_NEAR(found[i].y, y, 1e-6) << row.height;
                EXPECT_NEAR(found[i].h, std::min(row.button, bottom - y), 1e-6) << row.height;
            }
            EXPECT_EQ(at(300, row.height - 12), app().m_palette.bar) << row.height;
        }
    }
}

TEST_F(Bridge, without_an_archiver_there_is_no_pack_button) {
    REQUIRE_FRESH_PROCESS();
    install({"gzip", "foot"});
    start_with_all_enabled();
    EXPECT_EQ(count_hits(App::Hit::BridgePack), 0U);
    const std::vector<App::HitRect> found = buttons();
    ASSERT_EQ(found.size(), 9U);
    // The nine are 440 high, and centred like ten.
    EXPECT_EQ(found.front().y, kTop + 44 + (552 - 440) / 2.0);
    EXPECT_EQ(found[2].what, App::Hit::BridgeSearch);
    EXPECT_EQ(found[2].y, found[1].y + 50);
}

TEST_F(Bridge, without_a_terminal_there_is_no_button_for_it) {
    REQUIRE_FRESH_PROCESS();
    install({"zip"});
    start_with_all_enabled();
    EXPECT_EQ(count_hits(App::Hit::BridgePack), 1U);
    EXPECT_EQ(count_hits(App::Hit::BridgeTerminal), 0U);
    EXPECT_EQ(buttons().size(), 9U);
}

TEST_F(Bridge, a_frame_asks_for_no_tool) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "foot"});
    start_with_all_enabled();
    const size_t before = buttons().size();
    setenv("PATH", "/nonexistent", 1);
    const size_t lines = log_lines().size();
    frame();
    EXPECT_EQ(buttons().size(), before);
    EXPECT_EQ(log_lines().size(), lines);
}

TEST_F(Bridge, a_button_whose_action_is_disabled_is_dimmed_and_has_no_rectangle) {
    REQUIRE_FRESH_PROCESS();
    install({"tar", "foot"});
    test_env::make_dirs(left() + "/folder");
    write_file(left() + "/plain", "x");
    start();
    const auto expect_missing = [this](std::vector<App::Hit> missing) {
        for (const App::Hit what : kAll)
            EXPECT_EQ(count_hits(what), std::ranges::count(missing, what) ? 0U : 1U)
                << App::hit_name(what);
    };
    for (const Look& look_of : kLooks) {
        pane().clear_selection();
        pane().set_cursor(0, false);  // the parent row
        look(look_of.theme, look_of.scale);
        expect_missing({App::Hit::BridgeCopy, App::Hit::BridgeMove, App::Hit::BridgePack,
                        App::Hit::BridgeHex, App::Hit::BridgeDelete});
        const Palette& p = app().m_palette;
        const double dimmed_y = kTop + 44 + 31 + 100 + 4;  // the third button
        expect_near(at(508 + 10 + 6, dimmed_y), over(p.control, 0.4, p.window), "dimmed");
        pane().set_cursor(1, false);
        frame();
        expect_missing({App::Hit::BridgeHex, App::Hit::BridgeDelete});
        EXPECT_EQ(at(508 + 10 + 6, dimmed_y), p.control);
        pane().set_cursor(2, true);
        frame();
        expect_missing({});
    }
}

TEST_F(Bridge, all_buttons_are_disabled_while_the_frame_shows_work) {
    start_with_all_enabled();
    EXPECT_FALSE(buttons().empty());
    const App::HitRect refresh = hit(App::Hit::BridgeRefresh);
    ASSERT_TRUE(test_env::start_busy_task());
    app().m_bgtask_was_running = true;
    frame();
    EXPECT_TRUE(buttons().empty());
    const Palette& p = app().m_palette;
    EXPECT_NE(at(refresh.x + 6, refresh.y + 30), p.control);
    BgTask::instance().cancel();
    ASSERT_TRUE(settle());
}

TEST_F(Bridge, copy_and_move_lead_to_the_other_side) {
    start_with_all_enabled();
    EXPECT_TRUE(hit(App::Hit::BridgeCopy).right);
    EXPECT_TRUE(hit(App::Hit::BridgeMove).right);
    write_file(right() + "/there", "x");
    app().refresh_both();
    pane(true).set_cursor(1, true);
    app().m_active_right = true;
    frame();
    EXPECT_FALSE(hit(App::Hit::BridgeCopy).right);
    EXPECT_FALSE(hit(App::Hit::BridgeMove).right);
}

// --- Status bar -------------------------------------------------------------------------------

class StatusBar : public PanePaint {
  protected:
    static constexpr double kBar = 696;

    void end_flash() {
        app().m_flash_until = 0;
        frame();
    }
    // The pill around a text is 8 wider on either side, 18 high and 3 below the bar's top.
    void expect_pill(const std::string& text, const std::string& color, const std::string& back) {
        const test_env::PaintedText* painted = painted_text(text);
        ASSERT_NE(painted, nullptr) << text;
        EXPECT_EQ(painted->size, 11) << text;
        EXPECT_EQ(painted->color, color) << text;
        EXPECT_EQ(painted->y, kBar + 12) << text;
        const double left = painted->x - 8;
        const double right = painted->x + painted->width + 8;
        for (const double y : {kBar + 6, kBar + 12, kBar + 18}) {
            expect_near(at(left + 3, y), back, "pill");
            expect_near(at(right - 3.5, y), back, "pill");
            EXPECT_EQ(at(left - 3, y), app().m_palette.bar) << text;
            EXPECT_EQ(at(right + 2.5, y), app().m_palette.bar) << text;
        }
        EXPECT_EQ(at((left + right) / 2, kBar + 22.6), app().m_palette.bar) << text;
    }
};

TEST_F(StatusBar, is_24_high_with_a_rule_on_top) {
    start();
    for (const Look& look_of : kLooks) {
        look(look_of.theme, look_of.scale);
        const Palette& p = app().m_palette;
        EXPECT_EQ(app().m_layout.status_y, app().m_layout.height - 24);
        EXPECT_EQ(at(400, kBar + 0.8), p.divider);
        for (const double y : {kBar + 2.2, kBar + 12, kBar + 23.9})
            EXPECT_EQ(at(400, y), p.bar) << y;
    }
}

TEST_F(StatusBar, sums_up_the_active_pane) {
    test_env::make_dirs(left() + "/folder");
    write_file(left() + "/a1", std::string(2048, 'x'));
    write_file(left() + "/b1", std::string(1024, 'x'));
    write_file(left() + "/b2", std::string(1024, 'x'));
    write_file(right() + "/c", "x");
    start();
    for (const Look& look_of : kLooks) {
        app().m_active_right = false;
        pane().set_filter("", true);
        test_env::forget_painted();
        look(look_of.theme, look_of.scale);
        const std::string all_of_it = "1 folders, 3 files  ·  " + fmt::bytes(4096);
        // The drive bar has the same text; the status bar is painted last.
        const test_env::PaintedText* summary = painted_text(all_of_it);
        ASSERT_NE(summary, nullptr);
        EXPECT_EQ(summary->x, 10);
        EXPECT_EQ(summary->y, kBar + 12);
        EXPECT_EQ(summary->size, 11);
        EXPECT_EQ(summary->color, app().m_palette.secondary);
        // Of a filtered list what is kept.
        pane().set_filter("b", true);
        test_env::forget_painted();
        frame();
        ASSERT_EQ(painted_text(all_of_it), nullptr);
        EXPECT_NE(painted_text("0 folders, 2 files  ·  " + fmt::bytes(2048)), nullptr);
        app().m_active_right = true;
        test_env::forget_painted();
        frame();
        summary = painted_text("0 folders, 1 files  ·  " + fmt::bytes(1));
        ASSERT_NE(summary, nullptr);
        EXPECT_EQ(summary->y, kBar + 12);
    }
}

TEST_F(StatusBar, tells_the_active_side_in_a_pill) {
    start();
    for (const Look& look_of : kLooks) {
        look(look_of.theme, look_of.scale);
        const Palette& p = app().m_palette;
        const double top = 696;
        // Ends 10 before the edge; 18 high, 3 below the top.
        EXPECT_EQ(at(1100 - 14, top + 12), p.source_bg);
        EXPECT_EQ(at(1100 - 8, top + 12), p.bar);
        EXPECT_EQ(at(1100 - 30, top + 5), p.source_bg);
        EXPECT_EQ(at(1100 - 30, top + 19), p.source_bg);
        EXPECT_EQ(at(1100 - 30, top + 22.5), p.bar);
    }
}

TEST_F(StatusBar, the_pill_names_the_side) {
    start();
    for (const Look& look_of : kLooks) {
        for (const bool active_right : {false, true}) {
            app().m_active_right = active_right;
            test_env::forget_painted();
            look(look_of.theme, look_of.scale);
            const Palette& p = app().m_palette;
            const char* text = active_right ? "Right side active" : "Left side active";
            expect_pill(text, p.source_tint, p.source_bg);
            EXPECT_NEAR(painted_text(text)->x + painted_text(text)->width + 8, 1100 - 10, 0.01);
            EXPECT_EQ(painted_text(active_right ? "Left side active" : "Right side active"),
                      nullptr);
        }
    }
}

TEST_F(StatusBar, a_flash_stands_in_the_middle_and_fades_in_its_last_half_second) {
    start();
    for (const Look& look_of : kLooks) {
        test_env::forget_painted();
        app().flash_status("Something has happened");
        EXPECT_NEAR(app().m_flash_until, App::now_seconds() + 3, 0.05);
        look(look_of.theme, look_of.scale);
        const Palette& p = app().m_palette;
        expect_pill("Something has happened", p.ok, over(p.ok_bg, 0.9, p.bar));
        const test_env::PaintedText text = *painted_text("Something has happened");
        EXPECT_NEAR(text.x + text.width / 2, 550, 0.5);
        const double x = text.x - 5;
        app().m_flash_until = App::now_seconds() + 0.6;
        frame();
        expect_near(at(x, kBar + 12), over(p.ok_bg, 0.9, p.bar), "still whole");
        // Twice the time left, whenever the frame comes: 0.4 at 0.2.
        double until = 0;
        double latest = 0;
        for (int tries = 0; latest >= until && tries < 20; ++tries) {
            until = App::now_seconds() + 0.2;
            app().m_flash_until = until;
            frame();
            latest = App::now_seconds();
        }
        Rgb faded;
        Rgb whole;
        Rgb bar;
        ASSERT_TRUE(hex_to_rgb(at(x, kBar + 12), faded) && hex_to_rgb(p.ok_bg, whole) &&
                    hex_to_rgb(p.bar, bar));
        // By the channel that tells the most.
        const bool by_red = std::abs(whole.r - bar.r) > std::abs(whole.g - bar.g);
        const double share =
            by_red ? (faded.r - bar.r) / (whole.r - bar.r) : (faded.g - bar.g) / (whole.g - bar.g);
        ASSERT_LT(latest, until) << "each frame took 200 ms";
        EXPECT_LT(share, 0.9 * 0.4 + 0.1);
        EXPECT_GT(share, 0.9 * 2 * (until - latest) - 0.1);
        app().m_flash_until = App::now_seconds() - 0.01;
        test_env::forget_painted();
        frame();
        EXPECT_EQ(app().m_flash_until, 0);
        EXPECT_EQ(painted_text("Something has happened"), nullptr);
        EXPECT_EQ(at(x, kBar + 12), p.bar);
    }
}

TEST_F(StatusBar, a_size_keeps_its_direction_in_a_language_from_right_to_left) {
    write_file(left() + "/a", std::string(2048, 'x'));
    start();
    app().m_flash_until = 0;
    I18n::instance().set_language("ar");
    for (const bool selected : {false, true}) {
        if (selected)
            pane().select_all();
        test_env::forget_painted();
        frame();
        const std::string first = selected ? I18n::instance().trf("status.selected", 1)
                                           : I18n::instance().trf("status.folder_summary", 0, 1);
        EXPECT_NE(painted_text(first + "  ·  " + su::isolated(fmt::bytes(2048))), nullptr) << first;
    }
}

TEST_F(StatusBar, a_new_flash_takes_the_place_of_the_old_one_for_3_seconds) {
    start();
    app().flash_status("first");
    app().m_flash_until -= 2.9;
    app().flash_status("second");
    EXPECT_NEAR(app().m_flash_until, App::now_seconds() + 3, 0.05);
    test_env::forget_painted();
    frame();
    EXPECT_EQ(painted_text("first"), nullptr);
    EXPECT_NE(painted_text("second"), nullptr);
    app().flash_panes();
    EXPECT_NEAR(app().m_reload_flash_until, App::now_seconds() + 0.45, 0.05);
}

TEST_F(StatusBar, the_selection_shows_when_nothing_flashes) {
    for (const char* name : {"a", "b", "c"})
        write_file(left() + "/" + name, std::string(1024, 'x'));
    start();
    pane().toggle_selection(1);
    pane().toggle_selection(2);
    const std::string text = "2 selected  ·  " + fmt::bytes(2048);
    for (const Look& look_of : kLooks) {
        app().flash_status("Something has happened");
        test_env::forget_painted();
        look(look_of.theme, look_of.scale);
        EXPECT_EQ(painted_text(text), nullptr);
        EXPECT_NE(painted_text("Something has happened"), nullptr);
        end_flash();
        const Palette& p = app().m_palette;
        expect_pill(text, p.ok, over(p.ok_bg, 0.5, p.bar));
        EXPECT_NEAR(painted_text(text)->x + painted_text(text)->width / 2, 550, 0.5);
        // That of the other side is not told of.
        app().m_active_right = true;
        test_env::forget_painted();
        frame();
        EXPECT_EQ(painted_text(text), nullptr);
        app().m_active_right = false;
    }
}

TEST_F(StatusBar, its_texts_do_not_run_into_each_other_in_a_narrow_window) {
    files(3);
    start();
    app().flash_status(std::string(100, 'M'));
    settings().font_scale = 200;
    for (const int width : {1000, 800, 600, 300}) {
        test_env::forget_painted();
        frame(width, 800);
        double end = 0;
        std::vector<std::pair<double, double>> spans;
        for (const test_env::PaintedText& text : test_env::painted_texts())
            if (text.y == app().m_layout.status_y + 12)
                spans.emplace_back(text.x, text.x + text.width);
        std::ranges::sort(spans);
        for (const auto& [from, to] : spans) {
            EXPECT_GE(from, end) << width;
            end = to;
        }
        ASSERT_FALSE(spans.empty());
        EXPECT_LE(end, app().m_layout.width);
    }
}

}  // namespace
