// The bands of a pane and its scrollbars: what they paint and which rectangles they make. The
// heights from the top: banner 28, drive bar 34, path bar 26, filter bar 28 when it is open, column
// header 26, rows of 24, and 18 for the horizontal scrollbar at the bottom. Columns and rows:
// app_rows_test.cpp.

#include "app_pane_paint.h"

#include "app_texts.h"
#include "i18n.h"

namespace {

using test_env::painted_text;
using test_env::write_file;

// --- Bands ------------------------------------------------------------------------------------

TEST_F(PanePaint, the_bands_follow_each_other_from_the_top) {
    files(3);
    start();
    for (const Look& look_of : kLooks) {
        look(look_of.theme, look_of.scale);
        const App::Layout& l = app().m_layout;
        for (const int side : {0, 1}) {
            const double x = side ? l.right_x : l.left_x;
            const double w = side ? l.right_w : l.left_w;
            const auto expect_band = [&](App::Hit what, double y, double h) {
                const App::HitRect rect = hit(what, -1, side);
                EXPECT_EQ(rect.x, x) << App::hit_name(what);
                EXPECT_EQ(rect.w, w) << App::hit_name(what);
                EXPECT_EQ(rect.y, l.pane_y + y) << App::hit_name(what);
                EXPECT_EQ(rect.h, h) << App::hit_name(what);
            };
            expect_band(App::Hit::PaneBanner, 0, 28);
            expect_band(App::Hit::PathBar, 28 + 34, 26);
            expect_band(App::Hit::PaneHeaderMenu, 28 + 34 + 26, 26);
            expect_band(App::Hit::PaneBackground, 28 + 34 + 26 + 26,
                        l.pane_h - 28 - 34 - 26 - 26 - 18);
            const bool active = side == 0;
            const Palette& p = app().m_palette;
            EXPECT_EQ(at(x + 6, l.pane_y + 14), active ? p.source_tint : p.target_tint);
            EXPECT_EQ(at(x + 6, l.pane_y + 28 + 17), p.bar);
            EXPECT_EQ(at(x + 6, l.pane_y + 62 + 13), active ? p.header_active : p.header);
            EXPECT_EQ(at(x + 6, l.pane_y + 88 + 13),
                      active ? mix_hex(p.header, p.bar, 0.13) : p.header);
            EXPECT_EQ(at(x + w - 20, l.status_y - 18 - 30), active ? p.pane_active : p.pane);
        }
    }
}

TEST_F(PanePaint, the_filter_bar_takes_28_from_the_rows_of_its_side_alone) {
    files(3);
    start();
    for (const Look& look_of : kLooks) {
        app().m_search_pane = -1;
        look(look_of.theme, look_of.scale);
        const double without = hit(App::Hit::PaneBackground, -1, 1).y;
        EXPECT_EQ(count_hits(App::Hit::SearchBar), 0U);
        app().m_search_pane = 1;
        frame();
        EXPECT_EQ(hit(App::Hit::PaneBackground, -1, 1).y, without + 28);
        EXPECT_EQ(hit(App::Hit::PaneHeaderMenu, -1, 1).y, without + 28 - 26);
        EXPECT_EQ(hit(App::Hit::PaneBackground, -1, 0).y, without);
    }
    // A filter keeps the bar open when the field is no longer in use.
    app().m_search_pane = -1;
    pane().set_filter("1", true);
    frame();
    EXPECT_EQ(all(App::Hit::SearchBar, 0).size(), 1U);
    EXPECT_EQ(all(App::Hit::SearchBar, 1).size(), 0U);
}

TEST_F(PanePaint, the_header_rule_is_two_high_on_the_active_side_and_one_on_the_other) {
    start();
    const Palette& p = app().m_palette;
    const int bottom = static_cast<int>(kRows);
    EXPECT_EQ(pixel(100, bottom - 1), p.divider);
    EXPECT_EQ(pixel(100, bottom - 2), p.divider);
    EXPECT_EQ(pixel(100, bottom - 3), mix_hex(p.header, p.bar, 0.13));
    EXPECT_EQ(pixel(static_cast<int>(kRight) + 100, bottom - 1), p.divider);
    EXPECT_EQ(pixel(static_cast<int>(kRight) + 100, bottom - 2), p.header);
}

TEST_F(PanePaint, the_frame_is_wide_on_the_active_side_and_thin_on_the_other) {
    start();
    for (const char* theme : {"light", "dark"}) {
        look(theme, 100);
        const Palette& p = app().m_palette;
        // Width 4 about a line 1.5 inside: 0 to 3.5. Width 1.5: 0.75 to 2.25, at alpha 0.45.
        for (const int x : {0, 1, 2})
            EXPECT_EQ(pixel(x, 500), p.source_tint) << x;
        EXPECT_EQ(pixel(4, 500), p.pane_active);
        expect_near(pixel(static_cast<int>(kRight) + 1, 500), over(p.target_tint, 0.45, p.pane),
                    "thin frame");
        EXPECT_EQ(pixel(static_cast<int>(kRight) + 3, 500), p.pane);
        // Nothing of it lies outside the pane.
        EXPECT_EQ(pixel(static_cast<int>(kRight) - 1, 500), p.window);
        EXPECT_EQ(pixel(508, 500), p.window);
        const std::string header = pixel(550, 93);
        EXPECT_EQ(pixel(300, 93), header);
        EXPECT_EQ(pixel(900, 93), header);
    }
}

TEST_F(PanePaint, the_lines_of_the_frame_are_4_and_15_wide) {
    start();
    for (const char* theme : {"light", "dark"}) {
        look(theme, 200);
        const Palette& p = app().m_palette;
        for (const double x : {0.0, 1.5, 3.0})
            EXPECT_EQ(at(x, 500), p.source_tint) << x;
        EXPECT_EQ(at(3.6, 500), p.pane_active);
        const std::string thin = over(p.target_tint, 0.45, p.pane);
        const std::string half = over(p.target_tint, 0.225, p.pane);
        EXPECT_EQ(at(kRight + 0.2, 500), p.pane);
        expect_near(at(kRight + 0.7, 500), half, "outer half of a pixel");
        expect_near(at(kRight + 1.2, 500), thin, "thin frame");
        expect_near(at(kRight + 1.7, 500), thin, "thin frame");
        expect_near(at(kRight + 2.2, 500), half, "inner half of a pixel");
        EXPECT_EQ(at(kRight + 2.7, 500), p.pane);
    }
}

TEST_F(PanePaint, a_side_that_files_are_dragged_over_is_framed_in_green) {
    start();
    app().m_drag_active = true;
    app().m_drag_target_right = true;
    frame();
    EXPECT_NE(pixel(static_cast<int>(kRight) + 2, 500), app().m_palette.ok);
    app().m_drag_inside = true;
    frame();
    for (const int x : {0, 1, 2, 3})
        EXPECT_EQ(pixel(static_cast<int>(kRight) + x, 500), app().m_palette.ok) << x;
    EXPECT_EQ(pixel(static_cast<int>(kRight) + 4, 500), app().m_palette.pane);
    EXPECT_EQ(pixel(1, 500), app().m_palette.source_tint);
}

// Bands whose edges fall between two lines of pixels would let what is below shine through.
TEST_F(PanePaint, bands_meet_without_a_seam_at_every_scale) {
    files(60);
    start();
    app().m_search_pane = 0;
    // Between the texts, and right of them all.
    for (const char* theme : {"light", "dark"}) {
        for (int scale = 70; scale <= 200; scale += 5) {
            app().m_active_right = true;
            look(theme, scale);
            const Palette& p = app().m_palette;
            const App::Layout& l = app().m_layout;
            const double s = app().m_ui_scale;
            const auto expect_only = [&](double x, double from, double to,
                                         const std::vector<std::string>& colors) {
                const int px = static_cast<int>(x * s);
                for (int y = static_cast<int>(from * s); y < static_cast<int>(to * s); ++y)
                    EXPECT_TRUE(std::ranges::count(colors, pixel(px, y)))
                        << theme << scale << " at " << px << ", " << y << ": " << pixel(px, y);
            };
            const double top = l.pane_y;
            const double x = l.left_w - 5;
            expect_only(x, top + 4, top + 28 + 34 - 2, {p.target_tint, p.bar});
            expect_only(x, top + 28 + 4, top + 28 + 34 + 26 - 2, {p.bar, p.header});
            expect_only(x, top + 28 + 34 + 4, top + 28 + 34 + 26 + 28 + 26 - 4, {p.header});
            // The header's rule, the rows and the scrollbar's rule, left of all texts.
            expect_only(l.left_x + 5, top + 28 + 34 + 26 + 28 + 4, top + 28 + 34 + 26 + 28 + 26 + 4,
                        {p.header, p.divider, p.pane});
            expect_only(l.left_x + 5, l.status_y - 18 - 2, l.status_y - 18 + 2.4,
                        {p.pane, p.header, p.divider});
            // The right side is the active one: its frame is solid at the edge.
            expect_only(l.right_x + 100, l.status_y - 1.5, l.height - 0.1,
                        {p.source_tint, p.divider, p.bar});
            const int line = static_cast<int>((l.status_y - 40) * s);
            for (int px = static_cast<int>((l.right_x - 3) * s);
                 px < static_cast<int>((l.right_x + 2) * s); ++px)
                EXPECT_TRUE(pixel(px, line) == p.window || pixel(px, line) == p.source_tint)
                    << theme << scale << " at " << px << ": " << pixel(px, line);
        }
    }
}

TEST_F(PanePaint, running_work_veils_both_panes_at_045) {
    start();
    app().m_progress_hold_until = App::now_seconds() + 100;  // the same bands before and after
    for (const Look& look_of : kLooks) {
        look(look_of.theme, look_of.scale);
        const App::Layout& l = app().m_layout;
        const Palette& p = app().m_palette;
        const std::pair<double, double> points[] = {{l.left_w - 20, l.status_y - 60},
                                                    {l.right_x + l.right_w - 20, l.status_y - 60},
                                                    {l.left_w - 20, l.pane_y + 28 + 17},
                                                    {l.right_x + l.right_w - 20, l.pane_y + 75}};
        std::vector<std::string> before;
        for (const auto& [x, y] : points)
            before.push_back(at(x, y));
        ASSERT_TRUE(
            BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
                while (reporter.keep_going())
                    g_usleep(1000);
            }));
        app().m_bgtask_was_running = true;
        frame();
        for (size_t i = 0; i < std::size(points); ++i)
            expect_near(at(points[i].first, points[i].second), over(p.window, 0.45, before[i]),
                        "veil");
        BgTask::instance().cancel();
        ASSERT_TRUE(settle());
        app().m_result.valid = false;
    }
}

// --- Banner -----------------------------------------------------------------------------------

TEST_F(PanePaint, the_words_stand_at_the_outer_edges) {
    start();
    for (const Look& look_of : kLooks) {
        look(look_of.theme, look_of.scale);
        const App::Layout& l = app().m_layout;
        const double y = l.pane_y + 6;
        // 14 from the edge; the inner part of the band is plain.
        EXPECT_FALSE(has("#FFFFFF", l.left_x + 5, y, 8, 16));
        EXPECT_TRUE(has("#FFFFFF", l.left_x + 14, y, 60, 16));
        const double right_edge = l.right_x + l.right_w;
        EXPECT_FALSE(has("#FFFFFF", right_edge - 13, y, 8, 16));
        EXPECT_TRUE(has("#FFFFFF", right_edge - 74, y, 60, 16));
        EXPECT_FALSE(has("#FFFFFF", l.left_x + l.left_w - 100, y, 95, 16));
        EXPECT_FALSE(has("#FFFFFF", l.right_x + 5, y, 95, 16));
    }
}

TEST_F(PanePaint, the_arrows_lead_from_the_source_to_the_target) {
    start();
    // Above the shaft only the head is painted: half of its height next to its base.
    const auto head_at = [this](double from, double to) {
        const double y = kTop + 14 - 5;
        int sum = 0;
        int found = 0;
        for (int x = static_cast<int>(from); x < static_cast<int>(to); ++x)
            if (pixel(x, static_cast<int>(y)) != pixel(static_cast<int>(from), 100)) {
                sum += x;
                ++found;
            }
        EXPECT_GT(found, 0);
        return found ? (static_cast<double>(sum) / found - from) / (to - from) : 0;
    };
    for (const bool active_right : {false, true}) {
        app().m_active_right = active_right;
        frame();
        for (const int side : {0, 1}) {
            // Between the word and the hint, 12 from either: 28 for the arrow.
            const bool source = (side == 1) == active_right;
            const double word = width_of(tr(source ? "pane.source" : "pane.target"), 14, true);
            const double from = side ? kRight + 508 - 14 - word - 12 - 28 : 14 + word + 12;
            const double share = head_at(from, from + 28);
            if (active_right)
                EXPECT_LT(share, 0.5) << side;
            else
                EXPECT_GT(share, 0.5) << side;
        }
    }
}

TEST_F(PanePaint, the_hint_is_painted_only_where_it_fits_with_80_to_spare) {
    start();
    frame();
    // The source's banner on the left: something stands behind the arrow.
    EXPECT_TRUE(painted(150, static_cast<int>(kTop) + 8, 100, 12));
    // 183 wide at 200 %: the word, 12, the arrow of 28 and 12 leave less than the hint takes.
    settings().font_scale = 200;
    frame(900, 1000);
    ASSERT_EQ(app().m_layout.left_w, 183);
    EXPECT_FALSE(painted(2 * 135, 2 * static_cast<int>(kTop + 6), 2 * 40, 2 * 16));
    EXPECT_TRUE(has("#FFFFFF", 14, kTop + 6, 60, 16));
}

TEST_F(PanePaint, the_arrow_is_white_at_095) {
    start();
    for (const char* theme : {"light", "dark"}) {
        look(theme, 200);
        const Palette& p = app().m_palette;
        // Behind the word and 12; the shaft is 3 wide about the middle of the band.
        frame();
        const double x = 14 + painted_text("SOURCE")->width + 12 + 6;
        for (const double off : {-1.0, 0.9})
            expect_near(at(x, kTop + 14 + off), over("#FFFFFF", 0.95, p.source_tint), "shaft");
        for (const double off : {-2.1, 1.9})
            EXPECT_EQ(at(x, kTop + 14 + off), p.source_tint);
    }
}

TEST_F(PanePaint, the_head_of_the_arrow_is_7_high_on_either_side) {
    start();
    for (const bool active_right : {false, true}) {
        app().m_active_right = active_right;
        for (const char* theme : {"light", "dark"}) {
            look(theme, 200);
            const Palette& p = app().m_palette;
            const std::string& band = active_right ? p.target_tint : p.source_tint;
            const double begin = 14 + width_of(active_right ? "TARGET" : "SOURCE", 14, true) + 12;
            // The head is widest where it meets the shaft, and ends in a point.
            const double neck = active_right ? begin + 9 - 0.3 : begin + 19 + 0.3;
            const double centre = kTop + 14;
            for (const double off : {-6.2, 6.0})
                expect_near(at(neck, centre + off), over("#FFFFFF", 0.95, band), "head");
            for (const double off : {-7.6, 7.3})
                EXPECT_EQ(at(neck, centre + off), band) << off;
            const double tip = active_right ? begin + 1 : begin + 27;
            for (const double off : {-2.2, 2.0})
                EXPECT_EQ(at(tip, centre + off), band) << off;
        }
    }
}

// --- Path bar ---------------------------------------------------------------------------------

TEST_F(PanePaint, a_segment_knows_how_many_components_it_keeps) {
    test_env::make_dirs(left() + "/a/b");
    start({"--left=" + left() + "/a//b/"});
    for (const Look& look_of : kLooks) {
        look(look_of.theme, look_of.scale);
        const std::vector<App::HitRect> segments = all(App::Hit::PathSegment, 0);
        const auto depth = std::ranges::count(left(), '/') + 2;
        ASSERT_GE(segments.size(), 2U);
        EXPECT_EQ(segments.front().param, 0);
        EXPECT_EQ(segments.front().x, 10 - 3);
        EXPECT_EQ(segments.back().param, depth);
        for (size_t i = 2; i < segments.size(); ++i) {
            EXPECT_EQ(segments[i].param, segments[i - 1].param + 1);
            // 14 from the end of a text to the next; each rectangle has 3 on either side.
            EXPECT_DOUBLE_EQ(segments[i].x, segments[i - 1].x + segments[i - 1].w + 14 - 6);
        }
        for (const App::HitRect& segment : segments) {
            EXPECT_EQ(segment.y, app().m_layout.pane_y + 62);
            EXPECT_EQ(segment.h, 26);
        }
        EXPECT_EQ(app().hit_test(app().m_layout.left_w - 8, segments[0].y + 13)->what,
                  App::Hit::PathBar);
    }
}

TEST_F(PanePaint, a_path_that_is_too_long_drops_its_first_segments) {
    std::string deep = left();
    for (int i = 0; i < 20; ++i)
        deep += "/folder number " + std::to_string(i);
    test_env::make_dirs(deep);
    start({"--left=" + deep});
    for (const Look& look_of : kLooks) {
        look(look_of.theme, look_of.scale);
        const std::vector<App::HitRect> segments = all(App::Hit::PathSegment, 0);
        ASSERT_GE(segments.size(), 2U);
        EXPECT_EQ(segments[0].param, 0);
        EXPECT_GT(segments[1].param, 1);
        EXPECT_EQ(segments.back().param, std::ranges::count(deep, '/'));
        const double w = app().m_layout.left_w;
        EXPECT_LE(segments.back().x + segments.back().w, w);
        // One more would have run into the last 30.
        EXPECT_GT(segments.back().x + segments.back().w + segments[1].w + 8, w - 30);
        // "…" stands between the root and the first of them.
        const double gap = segments[1].x - (segments[0].x + segments[0].w);
        EXPECT_GT(gap, 8);
        EXPECT_LT(gap, 30);
    }
    shot("panes-long-path");
}

TEST_F(PanePaint, a_single_segment_wider_than_the_bar_is_cut) {
    const std::string deep = left() + "/" + std::string(200, 'w');
    test_env::make_dirs(deep);
    start({"--left=" + deep});
    for (const Look& look_of : kLooks) {
        look(look_of.theme, look_of.scale);
        const std::vector<App::HitRect> segments = all(App::Hit::PathSegment, 0);
        ASSERT_EQ(segments.size(), 2U);
        EXPECT_LE(segments[1].x + segments[1].w, app().m_layout.left_w - 6);
    }
}

TEST_F(PanePaint, the_editor_stands_in_place_of_the_segments) {
    start();
    for (const Look& look_of : kLooks) {
        app().m_path_edit = 0;
        app().m_path_buffer = "/some/where";
        app().m_path_caret = app().m_path_buffer.size();
        app().m_path_error.clear();
        look(look_of.theme, look_of.scale);
        const Palette& p = app().m_palette;
        const double y = app().m_layout.pane_y + 62;
        const double w = app().m_layout.left_w;
        EXPECT_TRUE(all(App::Hit::PathSegment, 0).empty());
        EXPECT_FALSE(all(App::Hit::PathSegment, 1).empty());
        EXPECT_EQ(at(w - 20, y + 13), p.control);
        // Width 2 about a line 1 inside: the outermost 2.
        const bool whole = look_of.scale >= 100;  // whole pixels
        if (whole) {
            EXPECT_EQ(at(w - 20, y + 1), p.accent);
            EXPECT_EQ(at(w - 20, y + 25), p.accent);
        }
        EXPECT_FALSE(has(p.danger, 1, y, 10, 26));
        app().m_path_error = "no such folder";
        frame();
        if (whole) {
            EXPECT_EQ(at(w - 20, y + 1), p.danger);
        }
        // The band of the error is 20 high, under the bar.
        EXPECT_EQ(at(w - 20, y + 26 + 10), p.danger_bg);
        EXPECT_EQ(at(w - 20, y + 26 + 18), p.danger_bg);
        EXPECT_EQ(at(8, y + 26 + 10), p.danger_bg);
        EXPECT_NE(at(w - 20, y + 26 + 22), p.danger_bg);
        EXPECT_FALSE(has(p.danger_bg, app().m_layout.right_x, y + 26, 100, 20));
    }
}

TEST_F(PanePaint, a_long_path_is_shifted_so_that_the_caret_is_seen) {
    start();
    app().m_path_edit = 0;
    app().m_path_buffer = "/" + std::string(300, 'i');
    app().m_path_caret = app().m_path_buffer.size();
    for (const Look& look_of : kLooks) {
        if (look_of.scale == 70)
            continue;  // a line of 1.4 covers no whole pixel
        look(look_of.theme, look_of.scale);
        const double y = app().m_layout.pane_y + 62;
        const double w = app().m_layout.left_w;
        const std::string control = app().m_palette.control;
        // The caret has 12 of the room, which ends 10 before the edge, behind it.
        const double caret = w - 10 - 12;
        EXPECT_TRUE(has(control, caret - 3, y + 5, 3, 4));
        bool seen = false;
        for (double x = caret - 2; x <= caret + 2; x += 0.5)
            seen |= at(x, y + 5) != control && at(x, y + 20) != control;
        EXPECT_TRUE(seen) << look_of.scale;
        EXPECT_EQ(at(caret + 5, y + 13), control);
        // Nothing is painted over the box's own lines.
        EXPECT_EQ(at(w / 2, y + 1), app().m_palette.accent);
    }
    // Its beginning is not shifted.
    app().m_path_caret = 0;
    look("light", 100);
    EXPECT_TRUE(painted(9, static_cast<int>(kTop) + 62 + 5, 4, 4));
}

// --- Filter bar -------------------------------------------------------------------------------

TEST_F(PanePaint, the_filter_bar_has_a_box_a_cross_and_a_count) {
    files(30);
    start();
    pane().set_filter("1", true);
    for (const Look& look_of : kLooks) {
        for (const bool focus : {false, true}) {
            app().m_search_pane = focus ? 0 : -1;
            app().m_search_buffer = "1";
            app().m_search_caret = 1;
            look(look_of.theme, look_of.scale);
            const Palette& p = app().m_palette;
            const double w = app().m_layout.left_w;
            const double y = app().m_layout.pane_y + 88;
            const App::HitRect box = hit(App::Hit::SearchBar, -1, 0);
            EXPECT_EQ(box.x, 10);
            EXPECT_EQ(box.y, y + 3);
            EXPECT_EQ(box.w, w - 20);
            EXPECT_EQ(box.h, 22);
            const App::HitRect cross = hit(App::Hit::SearchClear, -1, 0);
            EXPECT_EQ(cross.w, 18);
            EXPECT_EQ(cross.x + 9, box.x + box.w - 13);
            EXPECT_EQ(at(6, y + 14), p.header);
            EXPECT_EQ(at(box.x + box.w - 2.5, box.y + 5), p.control);
            if (look_of.scale == 100 && !focus) {
                EXPECT_EQ(at(60, box.y), p.control_edge);
            }
            if (look_of.scale >= 100) {
                // The cross, and left of it the count.
                EXPECT_TRUE(has(p.secondary, cross.x + 4, box.y + 5, 10, 12));
                EXPECT_TRUE(painted(static_cast<int>((cross.x - 40) * app().m_ui_scale),
                                    static_cast<int>((box.y + 5) * app().m_ui_scale), 30, 24));
            }
        }
    }
    EXPECT_EQ(app().hit_test(508 - 23, kTop + 88 + 14)->what, App::Hit::SearchClear);
}

TEST_F(PanePaint, the_count_tells_what_remains_of_all) {
    files(30);
    start();
    const auto count_image = [this] {
        frame();
        std::string image;
        for (int y = static_cast<int>(kTop) + 88 + 5; y < static_cast<int>(kTop) + 88 + 23; ++y)
            for (int x = 380; x < 470; ++x)
                image += pixel(x, y);
        return image;
    };
    app().m_search_pane = 0;
    const std::string all_of_them = count_image();
    pane().set_filter("file1", true);
    const std::string eleven = count_image();
    EXPECT_NE(eleven, all_of_them);
    pane().set_filter("file2", true);  // 11 as well
    EXPECT_EQ(count_image(), eleven);
}

TEST_F(PanePaint, the_cross_is_red_under_the_pointer) {
    start();
    app().m_search_pane = 0;
    frame();
    const App::HitRect cross = hit(App::Hit::SearchClear, -1, 0);
    EXPECT_FALSE(has(app().m_palette.danger, cross.x, cross.y, cross.w, cross.h));
    app().handle_motion(cross.x + 9, cross.y + 11);
    frame();
    EXPECT_TRUE(has(app().m_palette.danger, cross.x, cross.y, cross.w, cross.h));
}

TEST_F(PanePaint, the_cross_of_the_other_side_stays_as_it_is) {
    files(2);
    write_file(right() + "/file0", "x");
    start();
    pane(false).set_filter("f", true);
    pane(true).set_filter("f", true);
    frame();
    for (const int side : {0, 1}) {
        const App::HitRect cross = hit(App::Hit::SearchClear, -1, side);
        app().handle_motion(cross.x + 9, cross.y + 11);
        frame();
        for (const int each : {0, 1}) {
            const App::HitRect one = hit(App::Hit::SearchClear, -1, each);
            EXPECT_EQ(has(app().m_palette.danger, one.x, one.y, one.w, one.h), each == side);
        }
    }
}

TEST_F(PanePaint, the_filter_box_has_a_magnifier_and_an_edge_by_its_focus) {
    start();
    pane().set_filter("x", true);
    for (const char* theme : {"light", "dark"}) {
        for (const bool focus : {false, true}) {
            app().m_search_pane = focus ? 0 : -1;
            look(theme, 200);
            const Palette& p = app().m_palette;
            const App::HitRect box = hit(App::Hit::SearchBar, -1, 0);
            const double x = box.x + 14;
            const double y = box.y + 11;
            // A ring of radius 4.2, hollow, with a handle to 6.5 across and 5.5 down.
            for (const double side : {-1, 1}) {
                EXPECT_EQ(at(x + side * 4.2, y), p.secondary);
                EXPECT_EQ(at(x, y + side * 4.2), p.secondary);
            }
            EXPECT_EQ(at(x, y), p.control);
            EXPECT_EQ(at(x - 6.5, y), p.control);
            EXPECT_EQ(at(x + 5.5, y + 4.6), p.secondary);
            EXPECT_EQ(at(x + 8, y + 6.8), p.control);
            // A line of 1 covers the outermost unit, one of 1.5 a quarter on either side more.
            EXPECT_EQ(at(box.x + 100, box.y + 0.4), focus ? p.accent : p.control_edge);
            if (focus)
                EXPECT_NE(at(box.x + 100, box.y + 1.1), p.control);
            else
                EXPECT_EQ(at(box.x + 100, box.y + 1.1), p.control);
        }
    }
}

TEST_F(PanePaint, a_long_filter_text_stays_in_its_box) {
    start();
    app().m_search_pane = 0;
    app().m_search_buffer = std::string(300, 'W');
    app().m_search_caret = 300;
    look("light", 100);
    const App::HitRect box = hit(App::Hit::SearchBar, -1, 0);
    // Between the text's end and the count 8 are free; the magnifier's place is untouched.
    EXPECT_FALSE(has(app().m_palette.text, box.x + 1, box.y + 3, 8, 16));
    EXPECT_FALSE(has(app().m_palette.text, box.x + box.w - 26, box.y + 3, 24, 16));
    EXPECT_FALSE(has(app().m_palette.text, 508, box.y, 84, box.h));
}

// --- The cursor and a list that gets another height --------------------------------------------

// The row behind the last one in view has not been in view.
TEST_F(PanePaint, a_cursor_below_the_view_does_not_pull_the_list) {
    files(100);
    start();
    const int rows = app().rows_in_view(false);
    for (const int below : {0, 1}) {
        app().m_search_pane = -1;
        pane().set_cursor(20 + rows - 1 + below, true);
        pane().set_scroll(20, rows);
        frame();
        ASSERT_EQ(pane().scroll(), 20);
        app().m_search_pane = 0;  // its bar takes a row
        frame();
        ASSERT_LT(app().rows_in_view(false), rows);
        EXPECT_EQ(pane().scroll() > 20, below == 0);
    }
}

// --- Scrollbars -------------------------------------------------------------------------------

TEST_F(PanePaint, the_horizontal_bar_is_always_there_and_live_only_with_something_to_scroll) {
    files(3);
    start();
    for (const char* theme : {"light", "dark"}) {
        settings().show_owner = settings().show_group = settings().show_created = false;
        settings().col_w_name = 0;
        app().m_pane_hscroll[0] = 0;
        look(theme, 100);
        const Palette& p = app().m_palette;
        const int top = 696 - 18;
        EXPECT_EQ(pixel(100, top), p.divider);
        EXPECT_EQ(pixel(100, top + 1), p.header);
        EXPECT_EQ(pixel(100, top + 2), p.header);
        EXPECT_EQ(count_hits(App::Hit::PaneHScroll), 0U);
        for (const int x : {10, 250, 498})
            expect_near(pixel(x, top + 9), over(p.secondary, 0.45, p.header), "idle thumb");
        settings().col_w_name = 700;  // 700 + 214 + 20 = 934, 426 more than there is room for
        frame();
        EXPECT_EQ(app().m_pane_content_w[0], 934);
        const App::HitRect bar = hit(App::Hit::PaneHScroll, -1, 0);
        EXPECT_EQ(bar.y, top);
        EXPECT_EQ(bar.h, 18);
        EXPECT_EQ(app().m_pane_htrack_x[0], 0);
        EXPECT_EQ(app().m_pane_htrack_w[0], 508);
        const double thumb = 508.0 / 934 * 508;  // 276.3
        expect_near(pixel(20, top + 9), over(p.secondary, 0.65, p.header), "thumb");
        expect_near(pixel(static_cast<int>(thumb) - 6, top + 9), over(p.secondary, 0.65, p.header),
                    "thumb");
        EXPECT_EQ(pixel(static_cast<int>(thumb) + 2, top + 9), p.header);
        app().m_pane_hdrag = 0;
        app().m_pane_hscroll[0] = 426;
        frame();
        expect_near(pixel(508 - 20, top + 9), over(p.secondary, 0.9, p.header), "held thumb");
        EXPECT_EQ(pixel(508 - static_cast<int>(thumb) - 4, top + 9), p.header);
        app().m_pane_hdrag = -1;
    }
}

TEST_F(PanePaint, a_wider_window_takes_the_scrolling_back_in_the_same_frame) {
    settings().col_w_name = 700;
    start();
    app().m_pane_hscroll[0] = 426;
    frame();
    EXPECT_EQ(app().m_pane_hscroll[0], 426);
    frame(1500, 720);  // 708 wide: 226 are out of view
    EXPECT_EQ(app().m_pane_hscroll[0], 226);
    EXPECT_EQ(hit(App::Hit::ColumnResize, 2, 0).x + 6, 708 - 10);
    frame(2200, 720);
    EXPECT_EQ(app().m_pane_hscroll[0], 0);
}

TEST_F(PanePaint, the_vertical_bar_stands_with_more_entries_than_fit) {
    files(99);
    start();
    for (const Look& look_of : kLooks) {
        pane().set_scroll(0, 1);
        look(look_of.theme, look_of.scale);
        const Palette& p = app().m_palette;
        const App::HitRect area = hit(App::Hit::PaneBackground, -1, 0);
        const double edge = app().m_layout.left_w;
        const int rows = static_cast<int>(area.h / 24);
        const double thumb_h = std::max(28.0, rows / 100.0 * area.h);
        App::HitRect thumb = hit(App::Hit::ScrollThumb, -1, 0);
        EXPECT_EQ(thumb.x, edge - 11);
        EXPECT_EQ(thumb.w, 11);
        EXPECT_EQ(thumb.y, area.y);
        EXPECT_DOUBLE_EQ(thumb.h, thumb_h);
        EXPECT_EQ(app().m_pane_view_w[0], edge - 11);
        EXPECT_EQ(app().m_pane_view_w[1], app().m_layout.right_w);
        pane().set_scroll(1000, rows);
        frame();
        thumb = hit(App::Hit::ScrollThumb, -1, 0);
        EXPECT_NEAR(thumb.y + thumb.h, area.y + area.h, 1e-6);
        // 7 wide, 2 from the track's edge: seen between the frame and the rest of the track.
        const double x = edge - 6;
        app().m_dragging_scroll = false;
        pane().set_scroll(0, 1);
        frame();
        EXPECT_NE(at(x, area.y + thumb_h / 2), at(x, area.y + area.h - 5));
        const std::string idle = at(x, area.y + thumb_h / 2);
        app().m_dragging_scroll = true;
        app().m_drag_scroll_right = true;
        frame();
        EXPECT_EQ(at(x, area.y + thumb_h / 2), idle);
        app().m_drag_scroll_right = false;
        frame();
        EXPECT_NE(at(x, area.y + thumb_h / 2), idle);
        app().m_dragging_scroll = false;
        EXPECT_EQ(p.dark, std::string(look_of.theme) == "dark");
    }
}

TEST_F(PanePaint, the_thumb_of_a_long_list_keeps_28_and_ends_with_the_track) {
    files(900);
    start();
    for (const Look& look_of : kLooks) {
        pane().set_scroll(0, 1);
        look(look_of.theme, look_of.scale);
        const App::HitRect area = hit(App::Hit::PaneBackground, -1, 0);
        EXPECT_EQ(hit(App::Hit::ScrollThumb, -1, 0).h, 28);
        pane().set_scroll(450, app().rows_in_view(false));
        frame();
        const double share = 450.0 / (901 - app().rows_in_view(false));
        EXPECT_NEAR(hit(App::Hit::ScrollThumb, -1, 0).y, area.y + share * (area.h - 28), 1e-6);
        pane().set_scroll(10000, app().rows_in_view(false));
        frame();
        const App::HitRect thumb = hit(App::Hit::ScrollThumb, -1, 0);
        EXPECT_NEAR(thumb.y + 28, area.y + area.h, 1e-6);
    }
}

TEST_F(PanePaint, the_vertical_thumb_is_7_wide_in_a_track_of_11) {
    files(99);
    start();
    app().m_active_right = true;  // a thin frame, and no stripes
    for (const char* theme : {"light", "dark"}) {
        look(theme, 200);
        const Palette& p = app().m_palette;
        const App::HitRect thumb = hit(App::Hit::ScrollThumb, -1, 0);
        const double middle = thumb.y + thumb.h / 2;
        const double below = thumb.y + thumb.h + 60;
        const std::string track = over(p.progress_track, 0.5, p.pane);
        EXPECT_EQ(at(508 - 11.4, below), p.pane);
        expect_near(at(508 - 10.6, below), track, "track");
        expect_near(at(508 - 5, below), track, "track");
        expect_near(at(508 - 9.4, middle), track, "left of the thumb");
        expect_near(at(508 - 8.6, middle), over(p.secondary, 0.55, track), "thumb");
        expect_near(at(508 - 2.6, middle), over(p.secondary, 0.55, track), "thumb");
        app().m_dragging_scroll = true;
        app().m_drag_scroll_right = false;
        frame();
        expect_near(at(508 - 5, middle), over(p.secondary, 0.85, track), "held");
        app().m_dragging_scroll = false;
    }
}

TEST_F(PanePaint, the_last_of_any_number_of_entries_can_be_seen_whole) {
    start();
    for (int n = 1; n <= 60; ++n) {
        write_file(left() + "/file" + std::to_string(n), "x");
        for (const bool filter : {false, true}) {
            for (const bool band : {false, true}) {
                pane().set_filter(filter ? "file" : "", true);
                app().m_progress_hold_until = band ? App::now_seconds() + 100 : 0;
                app().refresh_both();
                frame();
                key(GDK_KEY_Home);
                key(GDK_KEY_End);
                const App::HitRect area = hit(App::Hit::PaneBackground, -1, 0);
                const App::HitRect last = hit(App::Hit::PaneRow, n, 0);
                ASSERT_EQ(last.h, 24) << n << filter << band;
                ASSERT_GE(last.y, area.y);
                ASSERT_LE(last.y + 24, area.y + area.h);
                // The bar is there exactly when something is out of view.
                const bool scrolls = n + 1 > static_cast<int>(area.h / 24);
                ASSERT_EQ(all(App::Hit::ScrollThumb, 0).size(), scrolls ? 1U : 0U) << n;
                key(GDK_KEY_Home);
                ASSERT_EQ(hit(App::Hit::PaneRow, 0, 0).h, 24);
                ASSERT_EQ(pane().scroll(), 0);
                // By the wheel as well, which moves no cursor.
                app().handle_scroll(100, GDK_SCROLL_SMOOTH, 1000);
                frame();
                ASSERT_EQ(hit(App::Hit::PaneRow, n, 0).h, 24) << n << filter << band;
            }
        }
    }
}

}  // namespace
