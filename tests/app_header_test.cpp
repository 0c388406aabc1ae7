// The band across the top: 64 high from 30 on, in fixed colours. Where no window is needed, the
// header is painted alone, with the state of the work as a frame would have taken it.

#include "app_fixture.h"

#include "app_texts.h"
#include "bg_task.h"
#include "fresh_process.h"
#include "i18n.h"
#include "paths.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace {

constexpr double kTop = 30;
constexpr int kWidth = 1100;
// Nothing but the background is painted so far left.
constexpr int kClear = 5;

class Header : public ::testing::Test {
  protected:
    Header() : m_surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, 124)) {}
    ~Header() override { cairo_surface_destroy(m_surface); }

    App& app() { return m_app; }
    copy_engine::Progress& copy() { return m_app.m_frame_copy; }
    BgTask::Status& task() { return m_app.m_frame_bg; }

    void paint(double w = kWidth) {
        test_env::forget_painted();
        cairo_t* const cr = cairo_create(m_surface);
        m_app.m_cr = cr;
        m_app.fill_rect(0, 0, kWidth, 124, "#808080", 1);
        m_app.draw_header(kTop, w);
        m_app.m_cr = nullptr;
        EXPECT_EQ(cairo_status(cr), CAIRO_STATUS_SUCCESS);
        cairo_destroy(cr);
        cairo_surface_flush(m_surface);
    }
    // A transfer of which so much is done, seen so many seconds after its start.
    void paint_transfer(int64_t done, int64_t total, double elapsed, double w = kWidth) {
        copy() = {};
        copy().running = true;
        copy().bytes_done = done;
        copy().bytes_total = total;
        copy().elapsed_seconds = elapsed;
        paint(w);
    }
    Rgb at(double x, double y) {
        const unsigned char* const bytes =
            cairo_image_surface_get_data(m_surface) +
            static_cast<ptrdiff_t>(y) * cairo_image_surface_get_stride(m_surface) +
            static_cast<ptrdiff_t>(x) * 4;
        uint32_t value = 0;
        std::memcpy(&value, bytes, sizeof value);
        return {((value >> 16) & 0xff) / 255.0, ((value >> 8) & 0xff) / 255.0,
                (value & 0xff) / 255.0};
    }
    double brightest(double x, double y, double w, double h) {
        double found = 0;
        for (double py = y; py < y + h; ++py)
            for (double px = x; px < x + w; ++px)
                found = std::max(found, at(px, py).r);
        return found;
    }
    static void expect_near(const Rgb& color, const Rgb& wanted, const std::string& what) {
        const auto text = [](const Rgb& c) {
            char buffer[64];
            std::snprintf(buffer, sizeof buffer, "%.3f %.3f %.3f", c.r, c.g, c.b);
            return std::string(buffer);
        };
        EXPECT_TRUE(std::abs(color.r - wanted.r) < 0.012 && std::abs(color.g - wanted.g) < 0.012 &&
                    std::abs(color.b - wanted.b) < 0.012)
            << what << ": " << text(color) << " is not " << text(wanted);
    }
    static Rgb rgb(const std::string& hex) {
        Rgb color;
        EXPECT_TRUE(hex_to_rgb(hex, color)) << hex;
        return color;
    }
    static Rgb over(const Rgb& color, double alpha, const Rgb& back) {
        return mix(color, back, alpha);
    }
    double name_end() {
        const test_env::PaintedText* const second = test_env::painted_text("deck");
        return second ? second->x + second->width : 0;
    }
    std::string image() {
        return std::string(reinterpret_cast<const char*>(cairo_image_surface_get_data(m_surface)),
                           static_cast<size_t>(cairo_image_surface_get_stride(m_surface)) * 124);
    }

  private:
    App m_app;
    cairo_surface_t* m_surface;
};

// --- Background -------------------------------------------------------------------------------

struct GradientRow {
    double y;
    Rgb idle;
    Rgb working;
};

constexpr GradientRow kGradient[] = {
    {kTop, {0.055, 0.075, 0.11}, {0.086, 0.129, 0.216}},
    {kTop + 0.6 * 64, {0.075, 0.11, 0.165}, {0.118, 0.196, 0.318}},
    {kTop + 63, {0.055, 0.09, 0.13}, {0.086, 0.149, 0.251}},
};

TEST_F(Header, its_colours_do_not_follow_the_theme) {
    for (const Palette& palette : {Palette::light(), Palette::dark_()}) {
        app().m_palette = palette;
        copy() = {};
        paint();
        for (const GradientRow& row : kGradient)
            expect_near(at(kClear, row.y), row.idle, "idle " + std::to_string(row.y));
        expect_near(at(kClear, kTop - 1), rgb("#808080"), "above");
        expect_near(at(kClear, kTop + 64), rgb("#808080"), "below");
    }
}

TEST_F(Header, it_brightens_while_work_runs) {
    paint_transfer(0, 100, 0);
    for (const GradientRow& row : kGradient)
        expect_near(at(kClear, row.y), row.working, "transfer " + std::to_string(row.y));
    copy() = {};
    task().running = true;
    task().total = 10;
    paint();
    for (const GradientRow& row : kGradient)
        expect_near(at(kClear, row.y), row.working, "task " + std::to_string(row.y));
}

// --- Progress ---------------------------------------------------------------------------------

TEST_F(Header, the_fraction_is_of_bytes_then_files_then_the_tasks_own) {
    copy().running = true;
    EXPECT_EQ(app().frame_fraction(), -1);
    copy().files_total = 4;
    copy().files_done = 1;
    EXPECT_EQ(app().frame_fraction(), 0.25);
    copy().bytes_total = 200;
    copy().bytes_done = 150;
    EXPECT_EQ(app().frame_fraction(), 0.75);
    copy().bytes_done = 300;
    EXPECT_EQ(app().frame_fraction(), 1);
    copy().scanning = true;
    EXPECT_EQ(app().frame_fraction(), -1);
    copy() = {};
    task().running = true;
    EXPECT_EQ(app().frame_fraction(), -1);
    task().total = 5;
    task().done = 2;
    EXPECT_EQ(app().frame_fraction(), 0.4);
}

TEST_F(Header, what_is_done_is_tinted_with_a_strip_along_the_bottom) {
    for (const Palette& palette : {Palette::light(), Palette::dark_()}) {
        app().m_palette = palette;
        // The sheen is in the middle of what is done.
        paint_transfer(1, 2, 275 / 260.0);
        const Rgb fill = rgb(palette.progress_fill_2);
        const Rgb tinted = over(fill, 0.35, kGradient[1].working);
        expect_near(at(kClear, kGradient[1].y), tinted, "tint");
        expect_near(at(kClear, kTop + 63), over(fill, 0.55, over(fill, 0.35, kGradient[2].working)),
                    "strip");
        const Rgb above = at(kClear, kTop + 60);
        EXPECT_LT(above.g, at(kClear, kTop + 61).g - 0.1) << "the strip is 3 high";
        EXPECT_GT(at(549, kTop + 1).g, at(551, kTop + 1).g + 0.05) << "up to the fraction";
    }
}

TEST_F(Header, a_sheen_sweeps_what_is_done_and_wraps_at_its_width) {
    const Rgb tinted = over(rgb(app().m_palette.progress_fill_2), 0.35, kGradient[1].working);
    const double y = kGradient[1].y;
    const auto sheen_at = [&](double elapsed, double x) {
        paint_transfer(1, 2, elapsed);
        expect_near(at(x, y), over({1, 1, 1}, 0.22, tinted),
                    "at " + std::to_string(x) + " after " + std::to_string(elapsed));
    };
    // Beside the name, and where no mark is.
    sheen_at(12 / 260.0, 12);
    sheen_at((12 + 550) / 260.0, 12);
    paint_transfer(1, 2, (12 + 275) / 260.0);
    expect_near(at(12, y), tinted, "gone");
    paint_transfer(1, 2, (12 + 30) / 260.0);
    expect_near(at(12, y), over({1, 1, 1}, 0.11, tinted), "half way to its end");
    paint_transfer(0, 2, 12 / 260.0);
    expect_near(at(12, y), kGradient[1].working, "nothing is done yet");
}

TEST_F(Header, strip_and_sheen_end_with_what_is_done) {
    // The sheen is just before the end of the tinted half, and reaches 60 beyond its middle.
    paint_transfer(1, 2, (550 - 5) / 260.0);
    for (const double y : {kTop + 1, kTop + 62}) {
        const Rgb bare = kGradient[y < kTop + 32 ? 0 : 2].working;
        EXPECT_GT(at(545, y).r, bare.r + 0.05) << y;
        expect_near(at(552, y), bare, "behind the end at " + std::to_string(y));
        expect_near(at(900, y), bare, "far behind it at " + std::to_string(y));
    }
}

TEST_F(Header, it_pulses_while_there_is_nothing_to_tell) {
    const double y = kGradient[1].y;
    const Rgb fill = rgb(app().m_palette.progress_fill_2);
    struct Row {
        double phase;
        double alpha;
    };
    for (const Row& row : {Row{0, 0.08}, Row{G_PI / 2, 0.16}, Row{-G_PI / 2 + 2 * G_PI, 0}}) {
        copy() = {};
        copy().running = copy().scanning = true;
        copy().bytes_total = 100;
        copy().bytes_done = 50;
        copy().elapsed_seconds = row.phase / 4.7;
        paint();
        expect_near(at(kClear, y), over(fill, row.alpha, kGradient[1].working),
                    "phase " + std::to_string(row.phase));
        expect_near(at(kClear, kTop + 63), over(fill, row.alpha, kGradient[2].working), "bottom");
        expect_near(at(kClear, kTop + 64), rgb("#808080"), "the band alone");
    }
}

// --- Name -------------------------------------------------------------------------------------

TEST_F(Header, the_name_stands_in_two_runs_of_which_the_second_is_brighter) {
    paint();
    const test_env::PaintedText* const first = test_env::painted_text("Ferro");
    const test_env::PaintedText* const second = test_env::painted_text("deck");
    ASSERT_TRUE(first && second);
    EXPECT_NEAR(first->x, 77.9392, 0.01);
    EXPECT_NEAR(second->x, first->x + first->width, 0.01);
    for (const test_env::PaintedText* text : {first, second}) {
        EXPECT_NEAR(text->size, 34.56, 0.01);
        EXPECT_EQ(text->color, "#FFFFFF");
        EXPECT_NEAR(text->y, kTop + 32, 0.5);
    }
    EXPECT_NEAR(brightest(first->x, kTop, first->width - 2, 64), 0.72 + 0.28 * 0.075, 0.02);
    EXPECT_NEAR(brightest(second->x + 2, kTop, second->width, 64), 1, 0.01);
}

TEST_F(Header, a_folder_stands_in_front_of_the_name) {
    paint();
    EXPECT_NEAR(brightest(25, kTop, 47, 64), 1, 0.01);
    EXPECT_LT(brightest(0, kTop, 25, 64), 0.1) << "not left of 25";
    EXPECT_LT(brightest(72, kTop, 5, 64), 0.1) << "nor up to the name";
    // Upright in the band.
    EXPECT_LT(brightest(25, kTop, 47, 10), 0.1);
    EXPECT_LT(brightest(25, kTop + 54, 47, 10), 0.1);
}

// --- Marks ------------------------------------------------------------------------------------

struct Lane {
    double position, offset, speed, height, alpha;
};

constexpr Lane kLanes[] = {
    {0.3, 120, 6, 7, 0.2}, {0.52, 190, 14, 9, 0.3}, {0.74, 150, 9.5, 6, 0.16}};

TEST_F(Header, marks_drift_at_the_speed_of_their_lane) {
    for (const Lane& lane : kLanes) {
        for (const double elapsed : {0.0, 0.5, 3.25, 100.0}) {
            paint_transfer(0, 100, elapsed);
            const double spacing = 5 * lane.height;
            const double shift = std::fmod(lane.offset + lane.speed * elapsed, spacing);
            // In the middle of the room, where nothing fades.
            const double x = name_end() + shift + spacing * std::floor(300 / spacing);
            const double y = kTop + lane.position * 64;
            const Rgb back = at(kClear, y);
            const std::string what =
                "lane of " + std::to_string(lane.height) + " at " + std::to_string(elapsed);
            const double middle = x + 0.85 * lane.height;
            expect_near(at(middle, y), over({1, 1, 1}, lane.alpha, back), what);
            expect_near(at(middle + spacing, y), over({1, 1, 1}, lane.alpha, back), what + " next");
            expect_near(at(x - 3, y), back, what + " before");
            expect_near(at(x + 1.7 * lane.height + 3, y), back, what + " behind");
            expect_near(at(middle, y - lane.height / 2 + 1.5),
                        over({1, 1, 1}, lane.alpha, at(kClear, y - lane.height / 2 + 1.5)),
                        what + " upper part");
        }
    }
}

TEST_F(Header, marks_fade_at_both_ends_of_their_room) {
    // The middle of a mark of the upper lane, whose spacing is 35, at so much from the left end.
    const auto alpha_at = [&](double from_left) {
        const double elapsed = std::fmod(from_left - 5.95 - 120 + 35000, 35) / 6;
        paint_transfer(0, 100, elapsed);
        const double y = kTop + 0.3 * 64;
        const double back = at(kClear, y).r;
        return (at(name_end() + from_left, y).r - back) / (1 - back) / 0.2;
    };
    paint();
    const double room = kWidth - name_end();
    EXPECT_NEAR(alpha_at(1), 0, 0.06);
    EXPECT_NEAR(alpha_at(27.5), 0.5, 0.06);
    EXPECT_NEAR(alpha_at(56), 1, 0.06);
    EXPECT_NEAR(alpha_at(room - 36), 1, 0.06);
    EXPECT_NEAR(alpha_at(room - 7.5), 0.5, 0.06) << "the fade ends 20 beyond the room";
}

TEST_F(Header, there_are_no_marks_without_work_or_room) {
    // In the upper lane, which passes above what stands on the right side.
    const auto marked = [&](double w) {
        return brightest(name_end() + 1, kTop + 0.3 * 64 - 3, w - 2, 6) > 0.125;
    };
    paint();
    const double end = name_end();
    paint_transfer(0, 100, 1, end + 41);
    EXPECT_TRUE(marked(41));
    paint_transfer(0, 100, 1, end + 40);
    EXPECT_TRUE(marked(40)) << "40 is enough";
    paint_transfer(0, 100, 1, end + 39);
    EXPECT_FALSE(marked(39));
    copy() = {};
    paint();
    EXPECT_FALSE(marked(300));
}

// --- Right side -------------------------------------------------------------------------------

TEST_F(Header, an_ordinary_user_sees_the_version) {
    REQUIRE_FRESH_PROCESS();
    if (geteuid() == 0) {
        ASSERT_TRUE(test_env::become_ordinary_user());
    }
    app().m_invoking_user = "al";
    paint();
    const test_env::PaintedText* const version = test_env::painted_text("v" FERRODECK_VERSION);
    ASSERT_TRUE(version);
    EXPECT_EQ(version->x + version->width, kWidth - 10);
    EXPECT_EQ(version->size, 11);
    EXPECT_EQ(version->color, "#FFFFFF");
    EXPECT_NEAR(version->y, kTop + 32, 0.5);
    for (const test_env::PaintedText& text : test_env::painted_texts())
        EXPECT_EQ(text.text.find("root"), std::string::npos) << text.text;
}

TEST_F(Header, root_gets_a_badge_instead_that_names_who_called) {
    if (!running_as_root())
        GTEST_SKIP() << "needs root";
    for (const std::string& user : {std::string(), std::string("al")}) {
        app().m_invoking_user = user;
        paint();
        EXPECT_FALSE(test_env::painted_text("v" FERRODECK_VERSION));
        const std::string wanted =
            tr("header.root_mode") + (user.empty() ? "" : "  (" + user + " → root)");
        const test_env::PaintedText* const text = test_env::painted_text(wanted);
        ASSERT_TRUE(text) << wanted;
        EXPECT_EQ(text->size, 11);
        EXPECT_EQ(text->color, "#FFFFFF");
        EXPECT_EQ(text->x + text->width, kWidth - 10 - 7);
        const double left = kWidth - 10 - text->width - 14;
        const Rgb danger = rgb(app().m_palette.danger);
        const double y = kTop + 32 - 9 + 1;
        expect_near(at(left + 5, y), over(danger, 0.92, at(kClear, y)), "upper edge");
        expect_near(at(left + 1, kTop + 32), over(danger, 0.92, at(kClear, kTop + 32)), "left");
        expect_near(at(left - 2, kTop + 32), at(kClear, kTop + 32), "outside");
        expect_near(at(left + 20, y - 2), at(kClear, y - 2), "18 high");
        expect_near(at(left + 20, y + 18), at(kClear, y + 18), "18 high");
        EXPECT_LT(at(left, kTop + 32 - 9).r, 0.5) << "its corners are round";
    }
}

TEST_F(Header, the_badge_of_a_long_name_does_not_run_over_the_products) {
    if (!running_as_root())
        GTEST_SKIP() << "needs root";
    app().m_invoking_user = std::string(300, 'w');
    for (const double w : {1100.0, 500.0}) {
        paint(w);
        const test_env::PaintedText& text = test_env::painted_texts().back();
        EXPECT_TRUE(text.cut);
        EXPECT_GE(text.x - 7, name_end() + 9) << w;
        EXPECT_LE(text.x + text.width, w - 16) << w;
    }
    // Without any room there is none.
    paint(name_end() + 30);
    EXPECT_EQ(test_env::painted_texts().back().text, "deck");
    expect_near(at(name_end() + 10, kTop + 32), kGradient[1].idle, "no badge");
}

// --- In the window ----------------------------------------------------------------------------

class HeaderWindow : public AppTest {
  protected:
    // The band's pixels, each as its text.
    std::string band() {
        frame();
        std::string pixels;
        for (int y = static_cast<int>(kTop); y < kTop + 64; ++y)
            for (int x = 0; x < kWidth; ++x)
                pixels += pixel(x, y);
        return pixels;
    }
    void wait(double seconds) {
        const double until = App::now_seconds() + seconds;
        pump_until([&] { return App::now_seconds() > until; });
    }
};

TEST_F(HeaderWindow, idle_no_pixel_of_it_changes) {
    start();
    const std::string before = band();
    for (int i = 0; i < 10; ++i) {
        wait(0.21);
        EXPECT_EQ(band(), before) << i;
    }
}

TEST_F(HeaderWindow, at_work_it_moves_and_it_rests_again) {
    start();
    const std::string idle = band();
    ASSERT_TRUE(BgTask::instance().start(BgTask::Kind::Pack, "x", [](BgTask::Reporter& reporter) {
        reporter.set_total(10);
        reporter.advance(5);
        while (reporter.keep_going())
            g_usleep(1000);
    }));
    ASSERT_TRUE(pump_until([this] { return app().m_bgtask_was_running; }));
    const std::string first = band();
    shot("header_working");
    wait(0.2);
    const std::string second = band();
    EXPECT_NE(first, idle);
    EXPECT_NE(first, second);
    BgTask::instance().cancel();
    ASSERT_TRUE(settle());
    EXPECT_EQ(band(), idle);
}

TEST_F(HeaderWindow, who_called_is_asked_at_the_start_and_not_by_a_frame) {
    if (!running_as_root())
        GTEST_SKIP() << "needs root";
    setenv("SUDO_USER", "alice", 1);
    start();
    setenv("SUDO_USER", "bob", 1);
    test_env::forget_painted();
    frame();
    unsetenv("SUDO_USER");
    EXPECT_TRUE(test_env::painted_text(std::string(tr("header.root_mode")) + "  (alice → root)"));
}

}  // namespace
