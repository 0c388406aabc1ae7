// The frame: layout, painting primitives, hit rectangles, and that what is painted can be read.

#include "app_fixture.h"
#include "app_texts.h"

#include "i18n.h"
#include "settings.h"
#include "strutil.h"

#include <algorithm>
#include <cstring>

#include <set>
#include <sys/stat.h>

namespace {

using test_env::write_file;

// A frame's painting context without a frame: the primitives act on App::m_cr.
class AppPaint : public AppTest {
  protected:
    static constexpr int kWidth = 400;
    static constexpr int kHeight = 100;

    void SetUp() override {
        m_surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight);
        app().m_cr = cairo_create(m_surface);
        app().fill_rect(0, 0, kWidth, kHeight, "#000000", 1);
    }
    ~AppPaint() override {
        cairo_destroy(app().m_cr);
        app().m_cr = nullptr;
        cairo_surface_destroy(m_surface);
    }
    uint32_t at(int x, int y) {
        cairo_surface_flush(m_surface);
        uint32_t value = 0;
        std::memcpy(&value,
                    cairo_image_surface_get_data(m_surface) +
                        y * cairo_image_surface_get_stride(m_surface) + x * 4,
                    sizeof value);
        return value & 0xffffffU;
    }
    // The bounds of everything that is not black: left, top, right, bottom; -1 for nothing.
    struct Ink {
        int left = -1, top = -1, right = -1, bottom = -1;
    };
    Ink ink() {
        Ink found;
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x)
                if (at(x, y) != 0) {
                    found.left = found.left < 0 ? x : std::min(found.left, x);
                    found.top = found.top < 0 ? y : found.top;
                    found.right = std::max(found.right, x);
                    found.bottom = y;
                }
        return found;
    }
    std::string image() {
        cairo_surface_flush(m_surface);
        return std::string(reinterpret_cast<const char*>(cairo_image_surface_get_data(m_surface)),
                           static_cast<size_t>(cairo_image_surface_get_stride(m_surface)) *
                               kHeight);
    }
    void wipe() { app().fill_rect(0, 0, kWidth, kHeight, "#000000", 1); }

  private:
    cairo_surface_t* m_surface = nullptr;
};

TEST_F(AppPaint, a_colour_that_does_not_parse_is_magenta) {
    app().fill_rect(10, 10, 5, 5, "no colour", 1);
    EXPECT_EQ(at(12, 12), 0xff00ffU);
    app().fill_rect(10, 10, 5, 5, "", 1);
    EXPECT_EQ(at(12, 12), 0xff00ffU);
    app().fill_rect(10, 10, 5, 5, "#102030", 1);
    EXPECT_EQ(at(12, 12), 0x102030U);
}

TEST_F(AppPaint, alpha_is_the_share_of_the_colour) {
    app().fill_rect(10, 10, 5, 5, "#FFFFFF", 0.5);
    EXPECT_NEAR(static_cast<int>(at(12, 12) & 0xffU), 128, 1);
    wipe();
    app().draw_text("text", 10, 50, 12.5, "#FFFFFF", false, false, 0);
    EXPECT_EQ(ink().left, -1);
}

TEST_F(AppPaint, a_text_at_half_alpha_is_half_as_bright) {
    const auto brightest = [this](double alpha) {
        wipe();
        app().draw_text("█", 10, 50, 40, "#FFFFFF", false, false, alpha);
        const Ink found = ink();
        return static_cast<int>(at((found.left + found.right) / 2, (found.top + found.bottom) / 2) &
                                0xffU);
    };
    EXPECT_EQ(brightest(1), 255);
    EXPECT_NEAR(brightest(0.5), 128, 1);
    EXPECT_NEAR(brightest(0.25), 64, 1);
}

TEST_F(AppPaint, a_family_of_its_own_ends_with_its_text) {
    I18n::instance().set_ui_font("DejaVu Sans Mono");
    const double before = app().text_width("iiii", 11, false, false);
    app().wrapped_text("a text", 0, 0, 100, 11, nullptr, "sans-serif");
    EXPECT_EQ(app().text_width("iiii", 11, false, false), before);
    I18n::instance().set_ui_font("");
    EXPECT_LT(app().text_width("iiii", 11, false, false), before);
}

TEST_F(AppPaint, a_rectangle_covers_exactly_its_pixels) {
    app().fill_rect(10, 20, 30, 5, "#FFFFFF", 1);
    const Ink found = ink();
    EXPECT_EQ(found.left, 10);
    EXPECT_EQ(found.top, 20);
    EXPECT_EQ(found.right, 39);
    EXPECT_EQ(found.bottom, 24);
}

TEST_F(AppPaint, the_radius_of_a_rounded_rectangle_is_cut_to_half_its_smaller_side) {
    app().fill_rounded(10, 10, 60, 20, 1000, "#FFFFFF", 1);
    const Ink found = ink();
    EXPECT_EQ(found.left, 10);
    EXPECT_EQ(found.right, 69);
    EXPECT_EQ(found.top, 10);
    EXPECT_EQ(found.bottom, 29);
    EXPECT_EQ(at(11, 11), 0U);         // the corner is round
    EXPECT_EQ(at(40, 12), 0xffffffU);  // the long side is straight
}

TEST_F(AppPaint, an_empty_string_measures_nothing_and_paints_nothing) {
    EXPECT_EQ(app().text_width("", 12.5, false, false), 0);
    app().draw_text("", 10, 50, 12.5, "#FFFFFF", false, false, 1);
    app().draw_text_right("", 90, 50, 12.5, "#FFFFFF", false, false);
    EXPECT_EQ(app().draw_text_clipped("", 10, 50, 100, 12.5, "#FFFFFF", false, false), 0);
    const std::string white = "#FFFFFF";
    EXPECT_EQ(app().wrapped_text("", 10, 50, 100, 12.5, &white), 0);
    EXPECT_EQ(app().wrapped_text("", 10, 50, 100, 12.5, nullptr), 0);
    EXPECT_EQ(ink().left, -1);
}

TEST_F(AppPaint, y_is_the_centre_of_the_line) {
    app().draw_text("xX", 10, 50, 15, "#FFFFFF", false, false, 1);
    const Ink found = ink();
    ASSERT_GE(found.left, 9);
    EXPECT_LT(found.top, 50);
    EXPECT_GT(found.bottom, 50);
    EXPECT_GT(found.top, 50 - 15);
    EXPECT_LT(found.bottom, 50 + 15);
}

TEST_F(AppPaint, text_to_the_right_ends_at_its_edge) {
    app().draw_text_right("HHHH", 300, 50, 15, "#FFFFFF", false, false);
    const Ink found = ink();
    EXPECT_LE(found.right, 300);
    EXPECT_GE(found.right, 296);
}

TEST_F(AppPaint, text_that_fits_exactly_is_painted_whole) {
    const std::string text = "a name that fits.txt";
    const double width = app().text_width(text, 12.5, false, false);
    app().draw_text(text, 10, 50, 12.5, "#FFFFFF", false, false, 1);
    const std::string whole = image();
    wipe();
    EXPECT_EQ(app().draw_text_clipped(text, 10, 50, width, 12.5, "#FFFFFF", false, false), width);
    EXPECT_EQ(image(), whole);
}

TEST_F(AppPaint, text_that_is_too_wide_stays_in_its_room_and_keeps_its_ending) {
    const std::string text = "a very long name whose ending tells what it is.tar.gz";
    const double width = app().text_width(text, 12.5, false, false);
    EXPECT_EQ(app().draw_text_clipped(text, 10, 50, width / 2, 12.5, "#FFFFFF", false, false),
              width / 2);
    EXPECT_LE(ink().right, 10 + width / 2 + 1);
    EXPECT_GT(ink().right, 10 + width / 2 - 12);
    // One less than exact is cut as well, and the layout is whole again afterwards.
    wipe();
    EXPECT_EQ(app().draw_text_clipped(text, 10, 50, width - 1, 12.5, "#FFFFFF", false, false),
              width - 1);
    EXPECT_EQ(app().text_width(text, 12.5, false, false), width);
}

TEST_F(AppPaint, text_is_cut_in_the_middle_on_one_line) {
    const auto painted_as = [this](const std::string& text) {
        wipe();
        app().draw_text_clipped(text, 10, 50, 150, 12.5, "#FFFFFF", false, false);
        EXPECT_GT(ink().top, 50 - 12);
        EXPECT_LT(ink().bottom, 50 + 12);
        return image();
    };
    const std::string middle(60, 'm');
    const std::string whole = painted_as("beginning" + middle + "ending");
    EXPECT_EQ(painted_as("beginning" + middle + "mmm" + middle + "ending"), whole);
    EXPECT_NE(painted_as("beginning" + middle + "endinG"), whole);
    EXPECT_NE(painted_as("Beginning" + middle + "ending"), whole);
}

TEST_F(AppPaint, no_room_paints_nothing) {
    EXPECT_EQ(app().draw_text_clipped("x", 10, 50, 0, 12.5, "#FFFFFF", false, false), 0);
    EXPECT_EQ(app().draw_text_clipped("x", 10, 50, -5, 12.5, "#FFFFFF", false, false), 0);
    EXPECT_EQ(ink().left, -1);
}

TEST_F(AppPaint, a_line_end_in_a_name_does_not_spill_into_the_next_row) {
    app().draw_text_clipped("one\ntwo\nthree\rfour", 10, 50, 380, 12.5, "#FFFFFF", false, false);
    const Ink found = ink();
    ASSERT_GE(found.left, 0);
    EXPECT_GT(found.top, 50 - 12);
    EXPECT_LT(found.bottom, 50 + 12);
}

TEST_F(AppPaint, bytes_that_are_no_text_are_painted_all_the_same) {
    app().draw_text("bad \xff\xfe\xed\xa0\x80 bytes", 10, 50, 12.5, "#FFFFFF", false, false, 1);
    EXPECT_GE(ink().left, 0);
    EXPECT_GT(app().text_width("\xff", 12.5, false, false), 0);
}

TEST_F(AppPaint, wrapped_text_stays_in_its_width_and_tells_its_height) {
    const std::string text = "one two three four five six seven eight nine ten";
    const std::string white = "#FFFFFF";
    const double measured = app().wrapped_text(text, 20, 5, 120, 12.5, nullptr);
    EXPECT_EQ(ink().left, -1);
    EXPECT_GT(measured, 30);
    EXPECT_EQ(app().wrapped_text(text, 20, 5, 120, 12.5, &white), measured);
    EXPECT_LE(ink().right, 140);
    EXPECT_LE(ink().bottom, 5 + measured);
}

TEST_F(AppPaint, wrapped_text_leaves_nothing_behind_for_the_next_text) {
    const std::string white = "#FFFFFF";
    const std::string text = "one line\nand what would be the next";
    app().draw_text(text, 10, 50, 12.5, white, false, false, 1);
    const std::string before = image();
    const double width = app().text_width(text, 12.5, false, false);
    wipe();
    app().wrapped_text("a few words that take several lines", 20, 5, 60, 12.5, nullptr);
    EXPECT_EQ(app().text_width(text, 12.5, false, false), width);
    app().draw_text(text, 10, 50, 12.5, white, false, false, 1);
    EXPECT_EQ(image(), before);
}

TEST_F(AppPaint, wrapped_text_keeps_its_paragraphs) {
    const double one = app().wrapped_text("one", 20, 5, 300, 12.5, nullptr);
    EXPECT_GE(app().wrapped_text("one\ntwo", 20, 5, 300, 12.5, nullptr), 2 * one - 1);
}

TEST_F(AppPaint, fonts_differ_by_weight_and_family) {
    const auto width = [this](const char* text, bool bold, bool mono) {
        return app().text_width(text, 20, bold, mono);
    };
    EXPECT_EQ(width("iiiiii", false, true), width("WWWWWW", false, true));
    EXPECT_LT(width("iiiiii", false, false), width("WWWWWW", false, false));
    EXPECT_GT(width("Ferrodeck", true, false), width("Ferrodeck", false, false));
    Settings& s = SettingsStore::instance().mutable_get();
    s.font_family = "monospace";
    EXPECT_EQ(width("iiiiii", false, false), width("WWWWWW", false, false));
    s.font_family.clear();
    I18n::instance().set_ui_font("monospace");
    EXPECT_EQ(width("iiiiii", false, false), width("WWWWWW", false, false));
    I18n::instance().set_ui_font("");
    EXPECT_LT(width("iiiiii", false, false), width("WWWWWW", false, false));
}

// --- Layout -----------------------------------------------------------------------------------

TEST(AppLayout, the_bands_stand_where_they_belong) {
    const App app;
    const App::Layout l = app.compute_layout(1100, 720);
    EXPECT_EQ(l.width, 1100);
    EXPECT_EQ(l.height, 720);
    EXPECT_EQ(l.menu_h, 30);
    EXPECT_EQ(l.header_y, 30);
    EXPECT_EQ(l.header_h, 64);
    EXPECT_EQ(l.progress_y, 94);
    EXPECT_EQ(l.progress_h, 0);
    EXPECT_EQ(l.pane_y, 94);
    EXPECT_EQ(l.status_y, 696);
    EXPECT_EQ(l.pane_h, 602);
    EXPECT_EQ(l.bridge_w, 84);
    EXPECT_EQ(l.left_x, 0);
    EXPECT_EQ(l.left_w, 508);
    EXPECT_EQ(l.bridge_x, 508);
    EXPECT_EQ(l.right_x, 592);
    EXPECT_EQ(l.right_w, 508);
    EXPECT_EQ(l.row_h, 24);
    EXPECT_EQ(l.visible_rows, 20);  // (602 - 99) / 24 = 20.9
}

TEST(AppLayout, the_right_pane_gets_the_odd_pixel) {
    const App app;
    const App::Layout l = app.compute_layout(1101, 720);
    EXPECT_EQ(l.left_w, 508);
    EXPECT_EQ(l.right_x, 592);
    EXPECT_EQ(l.right_w, 509);
}

TEST(AppLayout, at_least_one_row_is_counted_whatever_the_height) {
    App app;
    app.m_progress_hold_until = App::now_seconds() + 100;
    for (const double height : {0.0, 50.0, 118.0, 194.0, 250.0, 349.0}) {
        EXPECT_GE(app.compute_layout(500, height).visible_rows, 1) << height;
        app.m_layout = app.compute_layout(500, height);
        EXPECT_GE(app.rows_in_view(false), 1) << height;
    }
}

TEST(AppLayout, the_held_band_shrinks_over_the_last_half_second) {
    App app;
    app.m_progress_hold_until = App::now_seconds() + 2;
    EXPECT_EQ(app.compute_layout(1100, 720).progress_h, 76);
    EXPECT_EQ(app.compute_layout(1100, 720).pane_y, 170);
    EXPECT_EQ(app.compute_layout(1100, 720).pane_h, 526);
    app.m_progress_hold_until = App::now_seconds() + 0.25;
    const double half = app.compute_layout(1100, 720).progress_h;
    EXPECT_GT(half, 34);
    EXPECT_LE(half, 34 + 2 * 0.25 * 42);
    app.m_progress_hold_until = App::now_seconds() - 1;
    EXPECT_EQ(app.compute_layout(1100, 720).progress_h, 0);
    app.m_result.valid = true;
    EXPECT_EQ(app.compute_layout(1100, 720).progress_h, 34);
    app.m_progress_hold_until = 0;
    EXPECT_EQ(app.compute_layout(1100, 720).progress_h, 34);
}

TEST(AppLayout, work_opens_the_band_in_the_frame_that_sees_it) {
    App app;
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
        while (reporter.keep_going())
            g_usleep(1000);
    }));
    EXPECT_EQ(app.compute_layout(1100, 720).progress_h, 0);
    app.m_frame_bg = BgTask::instance().snapshot();
    EXPECT_EQ(app.compute_layout(1100, 720).progress_h, 76);
    BgTask::instance().cancel();
    app.m_frame_bg = {};
    app.m_frame_copy.running = true;
    EXPECT_EQ(app.compute_layout(1100, 720).progress_h, 76);
}

// A frame between the end of a run and the tick that makes its result would have no band, and the
// panes would jump up and down again.
TEST(AppLayout, the_band_stays_until_the_tick_has_seen_the_end) {
    for (bool App::*seen_last : {&App::m_transfer_was_running, &App::m_bgtask_was_running}) {
        App app;
        app.*seen_last = true;
        EXPECT_EQ(app.compute_layout(1100, 720).progress_h, 76);
        app.*seen_last = false;
        app.m_result.valid = true;
        EXPECT_EQ(app.compute_layout(1100, 720).progress_h, 34);
    }
}

TEST(AppLayout, rows_in_view_is_what_the_painted_bands_leave) {
    App app;
    app.m_layout = app.compute_layout(1100, 720);
    // 602 less 28, 34, 26, 26 and 18 leaves 470: 19 whole rows, one less than visible_rows says.
    EXPECT_EQ(app.rows_in_view(false), 19);
    EXPECT_EQ(app.rows_in_view(true), 19);
    // The filter bar takes 28 more: 442 hold 18.
    app.m_search_pane = 1;
    EXPECT_EQ(app.rows_in_view(false), 19);
    EXPECT_EQ(app.rows_in_view(true), 18);
    app.m_search_pane = -1;
    app.m_left.set_filter("x", true);
    EXPECT_EQ(app.rows_in_view(false), 18);
    EXPECT_EQ(app.rows_in_view(true), 19);
}

// --- Hit rectangles ---------------------------------------------------------------------------

TEST(AppHits, the_one_painted_later_is_on_top) {
    App app;
    app.add_hit(0, 0, 100, 100, App::Hit::PaneBackground);
    app.add_hit(10, 10, 20, 20, App::Hit::PaneRow, 7, true, "label");
    const App::HitRect* hit = app.hit_test(15, 15);
    ASSERT_NE(hit, nullptr);
    EXPECT_EQ(hit->what, App::Hit::PaneRow);
    EXPECT_EQ(hit->param, 7);
    EXPECT_TRUE(hit->right);
    EXPECT_EQ(hit->label, "label");
    EXPECT_EQ(app.hit_test(50, 50)->what, App::Hit::PaneBackground);
}

TEST(AppHits, left_and_top_edges_belong_to_it_right_and_bottom_do_not) {
    App app;
    app.add_hit(10, 20, 30, 40, App::Hit::PaneRow);
    EXPECT_NE(app.hit_test(10, 20), nullptr);
    EXPECT_NE(app.hit_test(39.99, 59.99), nullptr);
    EXPECT_EQ(app.hit_test(40, 30), nullptr);
    EXPECT_EQ(app.hit_test(20, 60), nullptr);
    EXPECT_EQ(app.hit_test(9.99, 30), nullptr);
    EXPECT_EQ(app.hit_test(20, 19.99), nullptr);
}

TEST(AppHits, at_a_shared_edge_the_rectangle_that_begins_there_is_found) {
    App app;
    app.add_hit(0, 0, 50, 50, App::Hit::PaneRow, 1);
    app.add_hit(50, 0, 50, 50, App::Hit::PaneRow, 2);
    EXPECT_EQ(app.hit_test(50, 10)->param, 2);
    App same;
    same.add_hit(0, 0, 50, 50, App::Hit::PaneRow, 1);
    same.add_hit(0, 0, 50, 50, App::Hit::PaneRow, 2);
    EXPECT_EQ(same.hit_test(0, 0)->param, 2);
}

TEST(AppHits, a_rectangle_knows_whether_a_dialogue_or_a_menu_was_being_painted) {
    App app;
    app.add_hit(0, 0, 1, 1, App::Hit::PaneRow);
    app.m_drawing_overlay = true;
    app.add_hit(0, 0, 1, 1, App::Hit::Overlay);
    app.m_drawing_overlay = false;
    app.m_drawing_menu = true;
    app.add_hit(0, 0, 1, 1, App::Hit::MenuItem);
    EXPECT_FALSE(app.m_hits[0].in_overlay || app.m_hits[0].in_menu);
    EXPECT_TRUE(app.m_hits[1].in_overlay && !app.m_hits[1].in_menu);
    EXPECT_TRUE(!app.m_hits[2].in_overlay && app.m_hits[2].in_menu);
}

TEST(AppHits, each_kind_has_its_own_name_and_an_unknown_one_none) {
    std::set<std::string> names;
    for (int i = 0; i <= static_cast<int>(App::Hit::OwnerField); ++i)
        names.insert(App::hit_name(static_cast<App::Hit>(i)));
    EXPECT_EQ(names.size(), 44U);
    EXPECT_FALSE(names.contains("?"));
    EXPECT_STREQ(App::hit_name(App::Hit::None), "None");
    EXPECT_STREQ(App::hit_name(App::Hit::PaneRow), "PaneRow");
    EXPECT_STREQ(App::hit_name(App::Hit::Overlay), "Overlay");
    EXPECT_STREQ(App::hit_name(App::Hit::PermBit), "PermBit");
    EXPECT_STREQ(App::hit_name(static_cast<App::Hit>(44)), "?");
    EXPECT_STREQ(App::hit_name(static_cast<App::Hit>(-1)), "?");
}

TEST(AppHits, a_click_before_the_first_frame_finds_nothing) {
    App app;
    EXPECT_EQ(app.hit_test(10, 10), nullptr);
    app.handle_click(10, 10, 1, 0, 1);
    EXPECT_EQ(app.m_overlay, App::Overlay::None);
    EXPECT_FALSE(app.m_active_right);
}

TEST(AppHits, a_hover_beyond_the_rectangles_of_the_frame_is_nothing) {
    App app;
    app.m_hover = 3;
    EXPECT_EQ(app.hovered(), nullptr);
    app.add_hit(0, 0, 1, 1, App::Hit::PaneRow);
    EXPECT_EQ(app.hovered(), nullptr);
    app.m_hover = 0;
    EXPECT_EQ(app.hovered(), &app.m_hits[0]);
    app.m_hover = -1;
    EXPECT_EQ(app.hovered(), nullptr);
}

// --- Whole frames -----------------------------------------------------------------------------

TEST_F(AppTest, a_frame_leaves_no_context_behind) {
    start();
    EXPECT_EQ(app().m_cr, nullptr);
    const size_t hits = app().m_hits.size();
    const size_t capacity = app().m_hits.capacity();
    const App::HitRect* storage = app().m_hits.data();
    frame();
    EXPECT_EQ(app().m_hits.size(), hits);  // rebuilt, not added to
    EXPECT_EQ(app().m_hits.capacity(), capacity);
    EXPECT_EQ(app().m_hits.data(), storage);
}

TEST_F(AppTest, texts_that_stay_are_not_laid_out_again) {
    write_file(left() + "/a", "x");
    start();
    for (const bool message : {false, true}) {
        if (message)
            app().show_message("title", "a text that is measured, wrapped and painted");
        frame();
        const size_t before = test_env::texts_laid_out();
        frame();
        EXPECT_EQ(test_env::texts_laid_out(), before) << message;
    }
    app().flash_status("something new");
    const size_t before = test_env::texts_laid_out();
    frame();
    EXPECT_EQ(test_env::texts_laid_out(), before + 1);
}

TEST_F(AppTest, the_scale_follows_the_setting_within_70_and_200) {
    struct Case {
        int setting;
        double scale;
    };
    start();
    for (const Case& c : {Case{100, 1.0}, Case{250, 2.0}, Case{50, 0.7}, Case{70, 0.7},
                          Case{150, 1.5}, Case{0, 0.7}}) {
        SettingsStore::instance().mutable_get().font_scale = c.setting;
        frame();
        EXPECT_DOUBLE_EQ(app().m_ui_scale, c.scale);
        EXPECT_DOUBLE_EQ(app().m_layout.width, 1100 / c.scale);
        EXPECT_DOUBLE_EQ(app().m_layout.height, 720 / c.scale);
    }
}

// A real event, in surface pixels, finds the row that is painted there at any scale.
TEST_F(AppTest, pointer_coordinates_are_divided_by_the_scale) {
    for (int i = 0; i < 9; ++i)
        write_file(left() + "/file" + std::to_string(i), "x");
    start();
    for (const int scale : {70, 100, 200}) {
        SettingsStore::instance().mutable_get().font_scale = scale;
        frame();
        const App::HitRect row = hit(App::Hit::PaneRow, 3, 0);
        GdkEvent* event = gdk_event_new(GDK_BUTTON_PRESS);
        event->button.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(app().m_canvas)));
        event->button.x = (row.x + row.w / 2) * app().m_ui_scale;
        event->button.y = (row.y + row.h / 2) * app().m_ui_scale;
        event->button.button = 1;
        gdk_event_set_device(
            event, gdk_seat_get_pointer(gdk_display_get_default_seat(gdk_display_get_default())));
        pane().set_cursor(0, true);
        gtk_widget_event(app().m_canvas, event);
        gdk_event_free(event);
        EXPECT_EQ(pane().cursor(), 3) << scale;
        app().handle_release();
    }
}

TEST_F(AppTest, the_window_is_filled_with_its_colours) {
    start();
    for (const char* theme : {"light", "dark"}) {
        SettingsStore::instance().mutable_get().theme = theme;
        app().apply_theme();
        frame();
        const Palette& p = app().m_palette;
        EXPECT_EQ(pixel(513, 200), p.window) << theme;       // bridge
        EXPECT_EQ(pixel(400, 10), p.bar) << theme;           // header
        EXPECT_EQ(pixel(300, 600), p.pane_active) << theme;  // active side
        EXPECT_EQ(pixel(900, 600), p.pane) << theme;
        EXPECT_EQ(pixel(300, 705), p.bar) << theme;  // status bar
        key(GDK_KEY_Tab);
        EXPECT_EQ(pixel(300, 600), p.pane) << theme;
        EXPECT_EQ(pixel(900, 600), p.pane_active) << theme;
        key(GDK_KEY_Tab);
    }
}

TEST_F(AppTest, a_marked_row_and_the_cursor_can_be_told_apart) {
    for (int i = 0; i < 4; ++i)
        write_file(left() + "/file" + std::to_string(i), "x");
    start();
    pane().set_cursor(1, true);
    pane().set_cursor(3, false);
    frame();
    const auto middle = [this](int row) {
        const App::HitRect rect = hit(App::Hit::PaneRow, row, 0);
        return std::pair<int, int>(static_cast<int>(rect.x), static_cast<int>(rect.y + 12));
    };
    const auto [x, marked_y] = middle(1);
    EXPECT_EQ(pixel(x + 300, marked_y), app().m_palette.selection);
    EXPECT_NE(pixel(x + 300, middle(2).second), app().m_palette.selection);
    // The bar is 4 wide; the pane's frame covers its first 3.5.
    EXPECT_EQ(pixel(x + 3, middle(3).second), app().m_palette.source_tint);
    EXPECT_NE(pixel(x + 3, marked_y), app().m_palette.source_tint);
    shot("marked");
}

// One side is the source; on the other nothing looks as if it would be copied next.
TEST_F(AppTest, stripes_and_cursor_are_the_active_sides_alone) {
    for (int i = 0; i < 4; ++i)
        write_file(left() + "/file" + std::to_string(i), "x");
    start();
    pane().set_cursor(2, false);
    frame();
    const auto y_of = [this](int row) {
        return static_cast<int>(hit(App::Hit::PaneRow, row, 0).y) + 12;
    };
    const Palette& p = app().m_palette;
    EXPECT_EQ(pixel(200, y_of(1)), p.row_alt);
    EXPECT_EQ(pixel(200, y_of(4)), p.pane_active);
    EXPECT_EQ(pixel(3, y_of(2)), p.source_tint);
    // The parent row has a name and nothing else.
    EXPECT_FALSE(painted(100, y_of(0) - 10, 390, 20));
    EXPECT_TRUE(painted(100, y_of(1) - 10, 390, 20));
    key(GDK_KEY_Tab);
    EXPECT_EQ(pixel(200, y_of(1)), p.pane);
    EXPECT_EQ(pixel(3, y_of(2)), p.pane);
}

TEST_F(AppTest, running_work_veils_both_sides) {
    start();
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
        while (reporter.keep_going())
            g_usleep(1000);
    }));
    app().m_bgtask_was_running = true;
    frame();
    EXPECT_NE(pixel(300, 600), app().m_palette.pane_active);
    EXPECT_NE(pixel(900, 600), app().m_palette.pane);
    EXPECT_EQ(count_hits(App::Hit::BridgeCopy), 0U);
    BgTask::instance().cancel();
    ASSERT_TRUE(settle());
}

// Rows whose edges fall between two lines of pixels would let the background shine through.
TEST_F(AppTest, marked_rows_meet_without_a_seam_at_every_scale) {
    for (int i = 0; i < 30; ++i)
        write_file(left() + "/file" + std::to_string(i), "x");
    start();
    pane().select_all();
    for (const char* theme : {"light", "dark"}) {
        for (const int scale : {70, 80, 100, 110, 130, 200}) {
            for (const bool active : {true, false}) {
                SettingsStore::instance().mutable_get().theme = theme;
                SettingsStore::instance().mutable_get().font_scale = scale;
                app().apply_theme();
                app().m_active_right = !active;
                frame();
                // Right of the texts, left of the scrollbar, which is 11 wide.
                const App::HitRect first = hit(App::Hit::PaneRow, 1, 0);
                const double s = app().m_ui_scale;
                const int x = static_cast<int>((first.x + first.w - 14) * s);
                const int top = static_cast<int>((first.y + 12) * s);
                const std::string color = pixel(x, top);
                const int bottom = top + static_cast<int>(3 * 24 * s);
                for (int y = top; y < bottom; ++y)
                    EXPECT_EQ(pixel(x, y), color) << theme << scale << active << " at " << y;
                if (active) {
                    EXPECT_EQ(color, app().m_palette.selection);
                }
            }
        }
    }
    shot("seams");
}

TEST_F(AppTest, only_rows_in_view_have_rectangles_and_they_end_with_the_row_area) {
    for (int i = 0; i < 100; ++i)
        write_file(left() + "/file" + std::to_string(i), "x");
    start();
    const App::HitRect area = hit(App::Hit::PaneBackground, -1, 0);
    EXPECT_EQ(area.y, 94 + 28 + 34 + 26 + 26);
    EXPECT_EQ(area.y + area.h, 696 - 18);
    size_t rows = 0;
    for (const App::HitRect& rect : app().m_hits)
        if (rect.what == App::Hit::PaneRow && !rect.right) {
            ++rows;
            EXPECT_LE(rect.y + rect.h, area.y + area.h);
        }
    EXPECT_EQ(rows, 20U);  // 19 whole ones and the beginning of another
    shot("many");
}

// The bands are taller than what visible_rows counts; the last entry must not hide below them.
TEST_F(AppTest, the_last_entry_can_always_be_brought_fully_into_view) {
    for (int i = 0; i < 100; ++i)
        write_file(left() + "/file" + std::to_string(i), "x");
    start();
    for (const int scale : {70, 100, 130, 200}) {
        for (const bool result : {false, true}) {
            SettingsStore::instance().mutable_get().font_scale = scale;
            app().m_result.valid = result;
            frame();
            key(GDK_KEY_Home);
            key(GDK_KEY_End);
            const App::HitRect area = hit(App::Hit::PaneBackground, -1, 0);
            const App::HitRect last = hit(App::Hit::PaneRow, 100, 0);
            EXPECT_EQ(last.h, 24) << scale << result;
            EXPECT_GE(last.y, area.y);
            EXPECT_LE(last.y + last.h, area.y + area.h) << scale << result;
            // Nothing is left below it that a row could have used.
            EXPECT_GT(last.y + 2 * last.h, area.y + area.h) << scale << result;
        }
    }
}

// The progress band takes three rows from the lists.
TEST_F(AppTest, a_cursor_in_view_stays_there_when_the_band_opens) {
    for (int i = 0; i < 60; ++i)
        write_file(left() + "/file" + std::to_string(i), "x");
    start();
    pane().set_cursor(app().rows_in_view(false) - 1, true);
    frame();
    EXPECT_EQ(pane().scroll(), 0);
    app().m_progress_hold_until = App::now_seconds() + 100;
    frame();
    const App::HitRect area = hit(App::Hit::PaneBackground, -1, 0);
    const App::HitRect row = hit(App::Hit::PaneRow, pane().cursor(), 0);
    EXPECT_EQ(row.h, 24);
    EXPECT_LE(row.y + row.h, area.y + area.h);
    EXPECT_GT(pane().scroll(), 0);
    // It need not come back when the band closes: the cursor is in view.
    const int scroll = pane().scroll();
    app().m_progress_hold_until = 0;
    frame();
    EXPECT_EQ(pane().scroll(), scroll);
}

TEST_F(AppTest, a_list_scrolled_away_from_the_cursor_stays_where_it_is) {
    for (int i = 0; i < 100; ++i)
        write_file(left() + "/file" + std::to_string(i), "x");
    start();
    pane().set_scroll(40, app().rows_in_view(false));
    ASSERT_EQ(pane().cursor(), 0);
    frame();
    app().m_progress_hold_until = App::now_seconds() + 100;
    frame();
    EXPECT_EQ(pane().scroll(), 40);
}

TEST_F(AppTest, a_list_that_became_shorter_is_scrolled_back) {
    for (int i = 0; i < 60; ++i)
        write_file(left() + "/file" + std::to_string(i), "x");
    start();
    key(GDK_KEY_End);
    EXPECT_GT(pane().scroll(), 30);
    for (int i = 5; i < 60; ++i)
        std::remove((left() + "/file" + std::to_string(i)).c_str());
    app().refresh_both();
    frame();
    EXPECT_EQ(pane().scroll(), 0);
    EXPECT_EQ(hit(App::Hit::PaneRow, 0, 0).param, 0);
}

TEST_F(AppTest, hostile_names_keep_to_their_row) {
    const std::vector<std::string> bad = {
        "line\nend",
        "tab\tname",
        "-rf",
        "quote'\"`$(x)",
        std::string(255, 'w'),
        "bad \xff\xfe utf8",
        "\xd8\xa7\xd9\x84\xd8\xb9\xd8\xb1\xd8\xa8\xd9\x8a\xd8\xa9",
        "\xf0\x9f\x98\x80",
        " ",
        "%s%n%d",
    };
    for (const std::string& name : bad)
        write_file(left() + "/" + name, "x");
    ASSERT_EQ(symlink(std::string(3000, 'y').c_str(), (left() + "/long link").c_str()), 0);
    start();
    EXPECT_EQ(pane().entries().size(), bad.size() + 2);
    frame();
    shot("hostile");
    // The right side is as empty as ever.
    EXPECT_FALSE(painted(620, 300, 400, 300));
}

TEST_F(AppTest, the_toggled_columns_are_painted) {
    write_file(left() + "/program.sh", "x", 0755);
    start();
    for (int a = 23; a <= 29; ++a) {
        const auto column = static_cast<ColumnId>(a - 23);
        const bool before = column_enabled(SettingsStore::instance().get(), column);
        app().perform(static_cast<Action>(a), 0);
        EXPECT_NE(column_enabled(SettingsStore::instance().get(), column), before);
        app().perform(static_cast<Action>(a), 0);
    }
    app().perform(Action::ToggleColSize, 0);
    app().perform(Action::ToggleColModified, 0);
    frame();
    const App::HitRect row = hit(App::Hit::PaneRow, 1, 0);
    // The right half of the row: nothing but its background now.
    EXPECT_FALSE(painted(250, static_cast<int>(row.y) + 2, 240, 20));
    app().perform(Action::ToggleColPermissions, 0);
    frame();
    EXPECT_TRUE(painted(250, static_cast<int>(row.y) + 2, 240, 20));
    shot("permissions");
}

TEST_F(AppTest, hovering_is_painted_and_ends_with_the_pointer) {
    start();
    const App::HitRect button = hit(App::Hit::BridgeRefresh);
    const int x = static_cast<int>(button.x) + 6;
    const int y = static_cast<int>(button.y) + 20;
    EXPECT_EQ(pixel(x, y), app().m_palette.control);
    app().handle_motion(button.x + 10, button.y + 10);
    frame();
    EXPECT_EQ(pixel(x, y), app().m_palette.control_hover);
    app().handle_leave();
    frame();
    EXPECT_EQ(pixel(x, y), app().m_palette.control);
    EXPECT_EQ(app().m_hover, -1);
}

// Every state in both themes and at the extreme scales; the pictures are for the eye, the test is
// that nothing breaks at any of them.
TEST_F(AppTest, every_state_can_be_painted_in_both_themes_at_every_scale) {
    test_env::make_dirs(left() + "/folder");
    for (int i = 0; i < 40; ++i)
        write_file(left() + "/file" + std::to_string(i) + ".txt", std::string(1000, 'x'));
    write_file(left() + "/script.sh", "x", 0755);
    ASSERT_EQ(symlink("folder", (left() + "/link").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (left() + "/broken").c_str()), 0);
    for (int i = 0; i < 3; ++i)
        write_file(right() + "/file" + std::to_string(i) + ".txt", "old");
    start({"--geometry=1000x700+0+0"});
    app().perform(Action::SelectAll, 0);
    app().perform(Action::CopyToOther, 0);
    ASSERT_TRUE(pump_until([this] { return app().m_overlay == App::Overlay::Conflict; }));
    for (const char* theme : {"light", "dark"}) {
        for (const int scale : {70, 100, 200}) {
            SettingsStore::instance().mutable_get().theme = theme;
            SettingsStore::instance().mutable_get().font_scale = scale;
            app().apply_theme();
            const std::string suffix = std::string("-") + theme + "-" + std::to_string(scale);
            frame();
            EXPECT_EQ(count_hits(App::Hit::Overlay), 7U);
            for (const App::HitRect& rect : app().m_hits)
                if (rect.in_overlay) {
                    EXPECT_GE(rect.y, 0) << suffix;
                    EXPECT_LE(rect.y + rect.h, app().m_layout.height - 20) << suffix;
                }
            shot("all-conflict" + suffix);
            app().m_overlay = App::Overlay::None;
            frame();
            shot("all-progress" + suffix);
            app().show_message(tr("dlg.error"),
                               tr("err.link_same_dir") + std::string(" ") + tr("dlg.busy_text"),
                               true);
            frame();
            shot("all-message" + suffix);
            app().m_overlay = App::Overlay::Conflict;
        }
    }
    copy_engine::instance().cancel();
    ASSERT_TRUE(settle());
}

}  // namespace
