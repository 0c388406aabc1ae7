// The progress band, painted alone: 76 high from 94 on while work runs, and the result behind it.

#include "app_paint_alone.h"

#include "format.h"
#include "i18n.h"

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using test_env::painted_text;
using test_env::painted_texts;
using test_env::PaintedText;

constexpr double kTop = 94;
constexpr double kWidth = 1100;
constexpr double kNumbers = kTop + 42;
constexpr double kDetail = kNumbers + 17;
constexpr double kWhole = 76;
constexpr double kLine = 34;

class Band : public PaintAlone {
  protected:
    Band() { copying(); }
    ~Band() override { I18n::instance().set_language("en"); }

    void copying() {
        copy() = {};
        copy().running = true;
    }
    void draw(double w = kWidth, double h = kWhole) {
        paint(w, kTop + kWhole + 20, [&] { app().draw_progress(kTop, h); });
    }
    // So much of a thousand bytes, so many seconds after the start.
    void draw_at(int64_t done, double elapsed = 0, double rate = 0, double w = kWidth) {
        copy().bytes_done = done;
        copy().bytes_total = 1000;
        copy().elapsed_seconds = elapsed;
        copy().bytes_per_second = rate;
        draw(w);
    }
    double width(const std::string& text, double size) {
        double found = 0;
        paint(10, 10, [&] { found = app().text_width(text, size, false, false); });
        return found;
    }
    // Where the bar ends in a band of that width.
    double bar_end(double w = kWidth) { return w - 10 - cancel_w() - 10; }
    double cancel_w() { return std::max(70.0, width(tr("btn.cancel"), 11) + 24); }
    double bar_w(double w = kWidth) { return bar_end(w) - 10; }
    static std::vector<std::string> texts() {
        std::vector<std::string> found;
        for (const PaintedText& text : painted_texts())
            found.push_back(text.text);
        return found;
    }
    static bool shows(const std::string& text) { return painted_text(text) != nullptr; }
    // Of the fill, where no sheen is and no text: its lower edge.
    Rgb in_bar(double x) const { return at(x, kTop + 10 + 15); }
    bool is_track(double x) const { return near(in_bar(x), rgb(palette().progress_track)); }
};

// --- Band and cancel button -------------------------------------------------------------------

TEST_F(Band, is_a_strip_with_a_rule_on_top) {
    for (const Palette& look : {Palette::light(), Palette::dark_()}) {
        app().m_palette = look;
        draw();
        expect_color(3, kTop - 1, "#808080", "above");
        expect_color(3, kTop, look.divider, "rule");
        expect_color(3, kTop + 1, look.bar, "band");
        expect_color(3, kTop + 75, look.bar, "band");
        expect_color(kWidth - 1, kTop + 40, look.bar, "band");
        expect_color(3, kTop + 76, "#808080", "below");
    }
}

TEST_F(Band, the_cancel_button_ends_ten_from_the_right) {
    draw();
    const double w = cancel_w();
    EXPECT_EQ(w, 70);
    const double x = kWidth - 10 - w;
    for (const bool hot : {false, true}) {
        for (const Palette& look : {Palette::light(), Palette::dark_()}) {
            app().m_palette = look;
            hover(hot ? App::Hit::ProgressCancel : App::Hit::ResultDismiss);
            draw();
            expect_hit(App::Hit::ProgressCancel, x, kTop + 8, w, 22);
            EXPECT_EQ(hit(App::Hit::ProgressCancel)->label, "Cancel");
            const std::string ground = hot ? look.danger_bg : look.control;
            expect_color(x + 4, kTop + 19, ground, "ground");
            expect_color(x + w / 2, kTop + 8, hot ? look.danger : mix_hex(look.danger, ground, 0.6),
                         "edge");
            expect_color(x + w / 2, kTop + 29,
                         hot ? look.danger : mix_hex(look.danger, ground, 0.6), "edge");
            expect_color(x + w / 2, kTop + 7, look.bar, "above");
            expect_color(x, kTop + 8, look.bar, "rounded corner");
            const PaintedText* const label = painted_text("Cancel");
            ASSERT_TRUE(label);
            expect_text("Cancel", x + (w - label->width) / 2, kTop + 19, 11, look.control_text);
        }
    }
}

TEST_F(Band, a_longer_word_makes_the_button_wider_and_the_bar_shorter) {
    I18n::instance().set_language("de");
    const std::string word = tr("btn.cancel");
    const double label_w = width(word, 11);
    ASSERT_GT(label_w, 46) << word;
    draw_at(1000);
    expect_hit(App::Hit::ProgressCancel, kWidth - 10 - label_w - 24, kTop + 8, label_w + 24, 22);
    const double end = kWidth - 10 - label_w - 24 - 10;
    EXPECT_FALSE(near(in_bar(end - 5), rgb(palette().bar)));
    expect_color(end + 2, kTop + 19, palette().bar, "between bar and button");
}

// --- The bar ----------------------------------------------------------------------------------

TEST_F(Band, the_track_is_rounded_and_fills_the_row) {
    draw_at(0);
    const double end = bar_end();
    draw_at(0);
    for (const double y : {kTop + 10, kTop + 27})
        expect_color(500, y, palette().progress_track, "track");
    expect_color(500, kTop + 9, palette().bar, "above");
    expect_color(500, kTop + 28, palette().bar, "below");
    expect_color(end - 1, kTop + 19, palette().progress_track, "right end");
    expect_color(end + 1, kTop + 19, palette().bar, "behind");
    expect_color(9, kTop + 19, palette().bar, "before");
    for (const double x : {11.0, end - 2})
        for (const double y : {kTop + 11, kTop + 26})
            expect_color(x, y, palette().bar, "round corner");
}

TEST_F(Band, the_fill_runs_from_one_green_to_the_other) {
    for (const Palette& look : {Palette::light(), Palette::dark_()}) {
        app().m_palette = look;
        draw_at(500);
        const double fill_w = bar_w() / 2;
        draw_at(500);
        expect_color(10 + 4, kTop + 19, look.progress_fill_2, "left end");
        expect_color(10 + fill_w - 3, kTop + 19, look.progress_fill, "right end");
        expect_color(10 + fill_w / 2, kTop + 25,
                     mix_hex(look.progress_fill, look.progress_fill_2, 0.5), "middle");
        expect_color(10 + fill_w + 2, kTop + 25, look.progress_track, "not done yet");
        expect_color(10 + fill_w - 1, kTop + 11, look.progress_track, "its end is round too");
    }
}

TEST_F(Band, the_fill_is_as_wide_as_the_share_and_eighteen_at_least) {
    const auto fill_end = [this] {
        double x = 12;
        while (x < kWidth && !near(at(x, kTop + 19), rgb(palette().progress_track)) &&
               !near(at(x, kTop + 19), rgb(palette().bar)))
            ++x;
        return x;
    };
    const double w = bar_w();
    draw_at(0);
    EXPECT_NEAR(fill_end(), 10 + 18, 1);
    draw_at(250);
    EXPECT_NEAR(fill_end(), 10 + w / 4, 1);
    draw_at(1000);
    EXPECT_NEAR(fill_end(), 10 + w, 1);
    draw_at(3000);  // more than was measured
    EXPECT_NEAR(fill_end(), 10 + w, 1);
    EXPECT_TRUE(shows("100 %"));
    // Without bytes the files count, and a task's own numbers.
    copying();
    copy().files_total = 4;
    copy().files_done = 3;
    draw();
    EXPECT_NEAR(fill_end(), 10 + w * 3 / 4, 1);
    EXPECT_TRUE(shows("75 %"));
    copy() = {};
    task().running = true;
    task().total = 10;
    task().done = 4;
    draw();
    EXPECT_NEAR(fill_end(), 10 + w * 2 / 5, 1);
    EXPECT_TRUE(shows("40 %"));
}

TEST_F(Band, the_percentage_stands_behind_a_short_fill_and_inside_a_long_one) {
    const double narrow = bar_w(1000);
    const double w = bar_w();
    draw_at(40, 0, 0, 1000);
    EXPECT_LT(0.04 * narrow, painted_text("4 %")->width + 20);
    expect_text("4 %", 10 + 0.04 * narrow + 8, kTop + 19, 11, palette().text);
    draw_at(500);
    expect_text("50 %", 10 + 0.5 * w - 8 - painted_text("50 %")->width, kTop + 19, 11, "#FFFFFF");
    draw_at(0);
    expect_text("0 %", 10 + 18 + 8, kTop + 19, 11, palette().text);
    draw_at(999);  // rounded down
    EXPECT_TRUE(shows("99 %"));
    draw_at(1000);
    expect_text("100 %", 10 + w - 8 - painted_text("100 %")->width, kTop + 19, 11, "#FFFFFF");
    for (const int64_t percent : {29, 57, 58}) {  // which are less in binary, times a hundred
        draw_at(10 * percent);
        EXPECT_TRUE(shows(std::to_string(percent) + " %"));
    }
    copy().bytes_total = 1'000'000'000'000;
    copy().bytes_done = copy().bytes_total - 1;
    draw();
    EXPECT_TRUE(shows("99 %")) << "not all is done";
    // The border between the two: one byte in a thousand is about one unit here.
    for (int64_t done = 30; done < 60; ++done) {
        draw_at(done);
        const std::string text = std::to_string(done / 10) + " %";
        const PaintedText* const found = painted_text(text);
        ASSERT_TRUE(found) << text;
        const double fill = static_cast<double>(done) / 1000 * w;
        EXPECT_EQ(found->color == "#FFFFFF", fill > found->width + 20) << done;
    }
}

// --- What moves -------------------------------------------------------------------------------

TEST_F(Band, without_a_share_a_band_slides_over_the_bar_and_no_percentage_shows) {
    const double w = bar_w();
    const double band = 0.28 * w;
    const auto expect_band = [&](double left) {
        const std::string where = "band at " + std::to_string(left);
        const auto inside = [&](double x) { return x > 20 && x < 10 + w - 10; };
        if (inside(left + band / 2))
            expect_color(left + band / 2, kTop + 19, palette().progress_fill_2, where);
        for (const double edge : {left - 2, left + 1, left + band - 1, left + band + 2})
            if (inside(edge))
                expect_color(edge, kTop + 19, palette().progress_track, where);
        // Half way up: half of a colour that is itself half way.
        if (inside(left + band / 4))
            expect_color(left + band / 4, kTop + 19,
                         mix_hex(mix_hex(palette().progress_fill_2, palette().progress_fill, 0.5),
                                 palette().progress_track, 0.5),
                         where);
        expect_color(11, kTop + 11, palette().bar, "clipped to the track");
    };
    for (const double elapsed : {0.0, 0.5, 1.0, 2.0, 3.3, 4.4, 5.0, 5.9, 6.0, 7.5, 1000.0}) {
        copying();
        copy().scanning = true;
        copy().bytes_total = 100;  // measured so far
        copy().bytes_done = 50;
        copy().elapsed_seconds = elapsed;
        draw();
        expect_band(10 + std::fmod(220 * elapsed, w + band) - band);
        for (const std::string& text : texts())
            EXPECT_EQ(text.find('%'), std::string::npos) << text;
    }
    // Nor is there a share of nothing at all.
    copying();
    copy().elapsed_seconds = 3;
    draw();
    expect_band(10 + 220 * 3 - band);
    EXPECT_EQ(painted_text("0 %"), nullptr);
}

TEST_F(Band, a_task_of_unknown_length_moves_by_a_clock_of_its_own) {
    copy() = {};
    task().running = true;
    copy().elapsed_seconds = 3;  // of a transfer long gone
    const auto brightest = [this] {
        double best = 0;
        double where = 0;
        for (double x = 20; x < 1000; ++x)
            if (const Rgb c = in_bar(x); c.g - c.r > best) {
                best = c.g - c.r;
                where = x;
            }
        return where;
    };
    const double w = bar_w();
    for (int i = 0; i < 3; ++i) {
        const double before = App::now_seconds();
        draw();
        const double after = App::now_seconds();
        const double left = std::fmod(220 * before, 1.28 * w) - 0.28 * w + 10;
        const double centre = left + 0.14 * w;
        // Not while the band is at an end, where it is cut.
        if (centre > 40 && centre < 900) {
            EXPECT_NEAR(brightest(), centre, 3 + 220 * (after - before));
        }
        usleep(30'000);
    }
    EXPECT_NEAR(app().frame_elapsed(), App::now_seconds(), 1);
}

TEST_F(Band, a_sheen_runs_over_the_fill_while_bytes_flow) {
    const double fill = bar_w() / 2;
    draw_at(500);
    std::vector<Rgb> plain;
    for (double x = 0; x < kWidth; ++x)
        plain.push_back(in_bar(x));
    for (const double elapsed : {0.5, 1.0, 2.0, 3.0, 4.2, 4.6, 10.0}) {
        draw_at(500, elapsed, 1);
        const double left = 10 + std::fmod(130 * elapsed, fill + 46) - 46;
        for (double x = 20; x < 10 + fill - 10; ++x) {
            const auto i = static_cast<size_t>(x);
            const double from = std::abs(x + 0.5 - (left + 23)) / 23;
            const double alpha = from < 1 ? 0.18 * (1 - from) : 0;
            const Rgb wanted = mix({1, 1, 1}, plain[i], alpha);
            EXPECT_TRUE(near(in_bar(x), wanted))
                << elapsed << " s, " << x << ": " << rgb_to_hex(in_bar(x)) << " is not "
                << rgb_to_hex(wanted);
        }
        EXPECT_TRUE(is_track(10 + fill + 3)) << "past the fill";
    }
    // Nothing flows, nothing runs.
    draw_at(500, 1.0, 0);
    const auto i = static_cast<size_t>(10 + 130 - 23);
    EXPECT_TRUE(near(in_bar(static_cast<double>(i)), plain[i]));
    // A task has no bytes; a rate left over from a transfer is not its own.
    copy() = {};
    copy().bytes_per_second = 1;
    task().running = true;
    task().total = 2;
    task().done = 1;
    draw();
    for (double x = 20; x < 10 + fill - 10; x += 5)
        EXPECT_TRUE(near(in_bar(x), plain[static_cast<size_t>(x)])) << x;
}

// --- Second row -------------------------------------------------------------------------------

TEST_F(Band, the_numbers_of_a_transfer_stand_in_a_row) {
    copy().files_done = 1234;
    copy().files_total = 56789;
    copy().bytes_done = 3 * 1024 * 1024;
    copy().bytes_total = 2048LL * 1024 * 1024;
    copy().bytes_per_second = 1536 * 1024 + 0.9;
    copy().seconds_remaining = 42;
    copy().cloned = 7;
    copy().retried = 3;
    copy().threads_active = 8;
    for (const Palette& look : {Palette::light(), Palette::dark_()}) {
        app().m_palette = look;
        draw();
        const std::string files = fmt::count(1234) + " / " + fmt::count(56789) + " files";
        const std::string bytes =
            fmt::bytes(3 * 1024 * 1024) + " / " + fmt::bytes(2048LL * 1024 * 1024);
        const std::string rate = fmt::bytes(1536 * 1024) + "/s";
        EXPECT_EQ(files, "1,234 / 56,789 files");
        expect_text(files, 10, kNumbers, 13, look.text);
        expect_text(bytes, end_of(files) + 18, kNumbers, 11, look.secondary);
        expect_text(rate, end_of(bytes) + 18, kNumbers, 11, look.ok);
        expect_text("42 s left", end_of(rate) + 18, kNumbers, 11, look.secondary);
        expect_text("7 instant (reflink)", end_of("42 s left") + 18, kNumbers, 11, look.dim);
        expect_text("3 retried", end_of("7 instant (reflink)") + 18, kNumbers, 11, look.warn);
        expect_text("8 threads", kWidth - 10 - painted_text("8 threads")->width, kNumbers, 11,
                    look.dim);
    }
    // What is not there leaves no gap.
    copy().bytes_per_second = 0;
    copy().seconds_remaining = 0;
    copy().cloned = 0;
    draw();
    const std::string bytes =
        fmt::bytes(copy().bytes_done) + " / " + fmt::bytes(copy().bytes_total);
    expect_text("3 retried", end_of(bytes) + 18, kNumbers, 11, palette().warn);
    copy().retried = copy().cloned = 1;
    draw();
    EXPECT_TRUE(shows("1 retried"));
    EXPECT_TRUE(shows("1 instant (reflink)"));
    copy().retried = copy().cloned = 0;
    copy().seconds_remaining = -1;
    draw();
    EXPECT_EQ(texts(), (std::vector<std::string>{"Cancel", "0 %", "8 threads",
                                                 "1,234 / 56,789 files", bytes}));
    // The integer part of less than a byte a second.
    copy().bytes_per_second = 0.5;
    draw();
    EXPECT_TRUE(shows(fmt::bytes(0) + "/s"));
}

TEST_F(Band, the_time_left_is_told_in_ever_coarser_words) {
    struct Case {
        double seconds;
        const char* text;
    };
    for (const Case& c : {Case{0.1, "almost done"},
                          {4.9, "almost done"},
                          {5, "5 s left"},
                          {59.9, "59 s left"},
                          {60, "2 min left"},
                          {119.9, "2 min left"},
                          {120, "3 min left"},
                          {3599, "60 min left"},
                          {3600, "2 h left"},
                          {7199, "2 h left"},
                          {7200, "3 h left"},
                          {1e300, "2147483647 h left"}}) {
        copy().seconds_remaining = c.seconds;
        draw();
        EXPECT_TRUE(shows(c.text)) << c.seconds;
    }
    for (const double none : {0.0, -1.0}) {
        copy().seconds_remaining = none;
        draw();
        for (const std::string& text : texts()) {
            EXPECT_EQ(text.find("left"), std::string::npos) << none;
            EXPECT_NE(text, "almost done") << none;
        }
    }
}

TEST_F(Band, in_a_narrow_window_whole_items_are_left_out) {
    copy().files_done = copy().files_total = 1'000'000'000;
    copy().bytes_done = copy().bytes_total = 5'000'000'000'000;
    copy().bytes_per_second = 900e6;
    copy().seconds_remaining = 3000;
    copy().cloned = copy().retried = 1'000'000;
    copy().threads_active = 32;
    for (double w = 500; w < 1100; w += 7) {
        draw(w);
        const PaintedText* const threads = painted_text("32 threads");
        ASSERT_TRUE(threads);
        double last = 0;
        for (const PaintedText& text : painted_texts())
            if (text.y == kNumbers && &text != threads) {
                EXPECT_GE(text.x, last) << w << " " << text.text;
                last = text.x + text.width + 18;
                EXPECT_LE(text.x + text.width + 18, threads->x + 0.02) << w << " " << text.text;
                EXPECT_EQ(text.text.find("…"), std::string::npos) << text.text;
            }
    }
    EXPECT_TRUE(shows("1000000 retried"));
    draw(500);
    EXPECT_TRUE(shows("1,000,000,000 / 1,000,000,000 files"));
    EXPECT_FALSE(shows("1000000 instant (reflink)"));
}

// --- Third row --------------------------------------------------------------------------------

TEST_F(Band, the_row_below_tells_what_is_being_done_or_why_nothing_is) {
    copy().current_files = {"", "", "/home/me/photos/one.jpg", "/home/me/other"};
    draw();
    expect_text("Copying: ", 10, kDetail, 11, palette().secondary);
    expect_text("/home/me/photos/one.jpg", end_of("Copying: "), kDetail, 11, palette().secondary);
    EXPECT_FALSE(shows("/home/me/other"));
    copy().operation = copy_engine::Operation::Move;
    draw();
    expect_text("Moving: ", 10, kDetail, 11, palette().secondary);
    copy().current_files = {"", ""};
    draw();
    EXPECT_FALSE(shows("Moving: "));

    // Too little space comes before the file, a stall before both, the measuring before all.
    copy().current_files = {"/a"};
    copy().bytes_total = 5000;
    copy().space_short = 1;
    copy().target_free = 4999;
    draw();
    const std::string space =
        "Not enough space: " + fmt::bytes(4999) + " free, " + fmt::bytes(5000) + " needed";
    expect_text(space, 16, kDetail, 11, palette().warn);
    EXPECT_FALSE(shows("/a"));
    copy().stalled_path = "/media/slow drive/some file.bin";
    draw();
    const std::string stall = "Waiting for some file.bin — the drive is not responding";
    expect_text(stall, 16, kDetail, 11, palette().warn);
    EXPECT_FALSE(shows(space));
    EXPECT_TRUE(shows("0 / 0 files")) << "the counters stay";
    copy().space_short = 0;
    draw();
    expect_text(stall, 16, kDetail, 11, palette().warn);
    EXPECT_FALSE(shows("Moving: "));
    EXPECT_FALSE(shows("/a"));
    EXPECT_TRUE(shows("0 / 0 files"));
    copy().space_short = 1;
    copy().scanning = true;
    draw();
    expect_text("Measuring what has to be copied …", 10, kDetail, 11, palette().secondary);
    EXPECT_FALSE(shows(stall));
}

TEST_F(Band, the_file_stands_behind_the_colon_in_every_direction) {
    copy().current_files = {"/a/b"};
    for (const char* language : {"de", "ar", "he"}) {
        I18n::instance().set_language(language);
        draw();
        const std::string verb =
            std::string(I18n::instance().is_rtl() ? "\u200e" : "") + tr("progress.copying") + ": ";
        expect_text("/a/b", end_of(verb), kDetail, 11, palette().secondary);
        // The colon, and not the first letter, is next to it.
        EXPECT_FALSE(has(palette().secondary, end_of(verb) - 3, kDetail - 6, 3, 12)) << language;
    }
}

TEST_F(Band, what_keeps_a_transfer_waiting_stands_on_a_pill) {
    copy().stalled_path = "/x/y";
    for (const Palette& look : {Palette::light(), Palette::dark_()}) {
        app().m_palette = look;
        draw();
        const double w = painted_text("Waiting for y — the drive is not responding")->width + 12;
        expect_color(12, kDetail, look.danger_bg, "left");
        expect_color(10 + w - 3, kDetail, look.danger_bg, "right");
        expect_color(10 + w + 2, kDetail, look.bar, "behind");
        expect_color(50, kDetail - 9, look.danger_bg, "top");
        expect_color(50, kDetail - 10, look.bar, "above");
        expect_color(50, kDetail + 8, look.danger_bg, "bottom");
        expect_color(50, kDetail + 9, look.bar, "below");
        expect_color(10, kDetail - 9, look.bar, "rounded corner");
    }
    // It ends before the failures do begin, whatever the name.
    copy().stalled_path = "/x/" + std::string(250, 'm');
    copy().failures_total = 3;
    draw();
    const App::HitRect* const failures = hit(App::Hit::ErrorBanner);
    ASSERT_TRUE(failures);
    expect_color(failures->x - 5, kDetail, palette().bar, "between the pills");
    expect_color(failures->x - 14, kDetail, palette().danger_bg, "the end of the name's pill");
}

TEST_F(Band, a_path_too_long_keeps_its_name) {
    const double from = 10 + width("Copying: ", 11);
    const double room = kWidth - 210 - from;
    std::string path = "/folder/name";
    while (width("/x" + path, 11) <= room)
        path = "/x" + path;
    copy().current_files = {path};
    draw();
    EXPECT_TRUE(shows(path));
    copy().current_files = {"/x" + path};
    draw();
    EXPECT_FALSE(shows("/x" + path));
    expect_text("…/name", end_of("Copying: "), kDetail, 11, palette().secondary);
    // A name that is itself too long is cut in its middle.
    copy().current_files = {"/" + std::string(300, 'w')};
    draw();
    EXPECT_TRUE(has(palette().secondary, kWidth - 215, kDetail - 6, 5, 12));
    EXPECT_FALSE(has(palette().secondary, kWidth - 209, kDetail - 8, 200, 16));
}

TEST_F(Band, failures_are_offered_while_it_runs) {
    draw();
    EXPECT_EQ(hit(App::Hit::ErrorBanner), nullptr);
    copy().failures_total = 12;  // of which the list holds but some
    for (const Palette& look : {Palette::light(), Palette::dark_()}) {
        app().m_palette = look;
        draw();
        const PaintedText text = *painted_text("12 failed");
        const double w = text.width + 16;
        const double x = kWidth - 10 - w;
        expect_hit(App::Hit::ErrorBanner, x, kDetail - 9, w, 18);
        expect_text("12 failed", x + 8, kDetail, 11, look.danger);
        expect_color(x + 3, kDetail, look.danger_bg, "ground");
        expect_color(x + 20, kDetail - 9, look.danger_bg, "top");
        expect_color(x + 20, kDetail + 8, look.danger_bg, "bottom");
        expect_color(x, kDetail - 9, look.bar, "rounded corner");
        expect_color(x - 2, kDetail, look.bar, "before");
    }
}

// --- A task -----------------------------------------------------------------------------------

TEST_F(Band, a_task_shows_its_title_its_count_and_what_it_is_at) {
    copy() = {};
    task().running = true;
    task().title = "Deleting";
    task().detail = "/home/me/old";
    task().done = 1234;
    task().total = 5000;
    draw();
    expect_text("Deleting", 10, kNumbers, 13, palette().text);
    expect_text("1,234 / 5,000", end_of("Deleting") + 18, kNumbers, 11, palette().secondary);
    expect_text("/home/me/old", 10, kDetail, 11, palette().secondary);
    EXPECT_EQ(texts(), (std::vector<std::string>{"Cancel", "24 %", "Deleting", "1,234 / 5,000",
                                                 "/home/me/old"}));
    task().total = 0;
    draw();
    EXPECT_EQ(texts(), (std::vector<std::string>{"Cancel", "Deleting", "/home/me/old"}));
    task().detail = "/" + std::string(400, 'w');
    draw();
    EXPECT_TRUE(has(palette().secondary, kWidth - 90, kDetail - 6, 10, 12));
    EXPECT_FALSE(has(palette().secondary, kWidth - 79, kDetail - 8, 79, 16));
    // Its failures are a task's as much as a transfer's.
    task().failures = {"a", "b"};
    draw();
    EXPECT_TRUE(shows("2 failed"));
    const App::HitRect* const failures = hit(App::Hit::ErrorBanner);
    ASSERT_TRUE(failures);
    // Where they need more room than that, the detail gives way.
    task().failures.assign(500, "x");
    I18n::instance().set_language("de");
    draw();
    const double pill_x = hit(App::Hit::ErrorBanner)->x;
    ASSERT_LT(pill_x, kWidth - 90);
    EXPECT_FALSE(has(palette().secondary, pill_x - 9, kDetail - 8, 9, 16));
}

TEST_F(Band, a_tasks_count_has_room_beside_a_long_title) {
    copy() = {};
    task().running = true;
    task().done = 1'234'567;
    task().total = 5'000'000;
    const std::string count = "1,234,567 / 5,000,000";
    for (size_t length = 30; length < 120; length += 3) {
        task().title = std::string(length, 'n');
        draw(500);
        const PaintedText* const found = painted_text(count);
        ASSERT_TRUE(found) << length;
        EXPECT_LE(found->x + width(count, 11), 490.02) << length;
    }
}

// --- Between the end and the tick -------------------------------------------------------------

TEST_F(Band, what_has_ended_unseen_stays_as_it_was) {
    copy() = {};
    copy().bytes_done = copy().bytes_total = 10;
    copy().files_done = copy().files_total = 2;
    app().m_result.valid = true;
    app().m_result.title = "older";
    app().m_transfer_was_running = true;
    task().total = 10;  // of an earlier task
    task().done = 1;
    draw();
    EXPECT_TRUE(shows("100 %"));
    EXPECT_TRUE(shows("2 / 2 files"));
    EXPECT_FALSE(shows("older"));
    app().m_transfer_was_running = false;
    app().m_bgtask_was_running = true;
    draw();
    EXPECT_TRUE(shows("10 %"));
    // A task that runs is shown before a transfer whose end is still to be seen.
    app().m_transfer_was_running = true;
    task().running = true;
    draw();
    EXPECT_TRUE(shows("10 %"));
    app().m_transfer_was_running = app().m_bgtask_was_running = false;
    task().running = false;
    draw();
    EXPECT_TRUE(shows("older"));
    EXPECT_FALSE(shows("100 %"));
    EXPECT_EQ(hit(App::Hit::ProgressCancel), nullptr);
}

// --- The result -------------------------------------------------------------------------------

class Result : public Band {
  protected:
    Result() {
        copy() = {};
        result().valid = true;
        result().title = "Copied";
        result().files = 1234;
    }
    App::LastResult& result() { return app().m_result; }
    static constexpr double kCentre = kTop + kLine / 2;
};

TEST_F(Result, done_is_green_cancelled_is_a_warning_and_failed_is_red) {
    for (const Palette& look : {Palette::light(), Palette::dark_()}) {
        app().m_palette = look;
        for (const bool failed : {false, true}) {
            for (const bool cancelled : {false, true}) {
                result().failures = failed ? 3 : 0;
                result().cancelled = cancelled;
                draw(kWidth, kLine);
                const std::string tint = failed ? look.danger : cancelled ? look.warn : look.ok;
                const std::string back = failed      ? look.danger_bg
                                         : cancelled ? look.header
                                                     : look.ok_bg;
                expect_color(1, kCentre, tint, "bar");
                expect_color(3, kTop + kLine - 1, tint, "bar");
                expect_color(4, kCentre, mix_hex(back, look.bar, 0.5), "ground");
                expect_color(kWidth - 1, kTop + kLine - 1, mix_hex(back, look.bar, 0.5), "ground");
                expect_color(600, kTop, look.divider, "rule");
                expect_text(cancelled ? "Cancelled" : "Copied", 28, kCentre, 13, tint);
            }
        }
    }
}

TEST_F(Result, its_symbol_tells_the_three_apart) {
    const std::string ground = mix_hex(palette().ok_bg, palette().bar, 0.5);
    // A tick from 10 through 13.5 to 19, upwards to the right.
    draw(kWidth, kLine);
    expect_color(13, kCentre + 3, palette().ok, "the tick's lower end");
    EXPECT_TRUE(has(palette().ok, 16, kCentre - 2, 3, 3));
    EXPECT_FALSE(near(at(10, kCentre), rgb(ground)));
    expect_color(10, kCentre - 4, ground, "above the tick's beginning");
    expect_color(21, kCentre, ground, "behind");
    // An exclamation mark at 14.
    result().cancelled = true;
    draw(kWidth, kLine);
    const std::string header = mix_hex(palette().header, palette().bar, 0.5);
    for (const double y : {-4.0, 0.0, 4.0})
        expect_color(13, kCentre + y, palette().warn, "the mark");
    expect_color(14, kCentre + 4, palette().warn, "the mark is two wide");
    expect_color(13, kCentre + 1.5, header, "its gap");
    expect_color(13, kCentre - 6, header, "above it");
    expect_color(13, kCentre + 5.5, header, "below it");
    expect_color(11, kCentre, header, "left of it");
    expect_color(16, kCentre, header, "right of it");
    // A cross from 10 to 18, whether cancelled or not.
    for (const bool cancelled : {false, true}) {
        result().cancelled = cancelled;
        result().failures = 1;
        draw(kWidth, kLine);
        expect_color(13.5, kCentre, palette().danger, "the middle of the cross");
        for (const double x : {11.0, 16.5})
            for (const double y : {-3.0, 2.5})
                EXPECT_FALSE(near(at(x, kCentre + y), at(8, kCentre))) << x << " " << y;
        EXPECT_TRUE(near(at(10, kCentre), at(8, kCentre)));
        EXPECT_TRUE(near(at(19.5, kCentre - 4), at(8, kCentre)));
    }
}

TEST_F(Result, the_line_says_what_when_and_how_much) {
    result().bytes = 5 * 1024 * 1024;
    result().seconds = 2.34;
    result().detail = "to backup";
    draw(kWidth, kLine);
    const std::string bytes = fmt::bytes(5 * 1024 * 1024);
    expect_text("Copied", 28, kCentre, 13, palette().ok);
    expect_text("to backup", end_of("Copied") + 16, kCentre, 11, palette().text);
    expect_text("1,234 files", end_of("to backup") + 16, kCentre, 11, palette().text);
    expect_text(bytes, end_of("1,234 files") + 16, kCentre, 11, palette().secondary);
    expect_text(fmt::seconds(2.34), end_of(bytes) + 16, kCentre, 11, palette().secondary);
    result().detail.clear();
    result().bytes = 0;
    draw(kWidth, kLine);
    expect_text("1,234 files", end_of("Copied") + 16, kCentre, 11, palette().text);
    expect_text(fmt::seconds(2.34), end_of("1,234 files") + 16, kCentre, 11, palette().secondary);
    result().seconds = 0.05;
    draw(kWidth, kLine);
    EXPECT_EQ(texts(), (std::vector<std::string>{"Copied", "1,234 files"}));
    result().seconds = 0.051;
    draw(kWidth, kLine);
    EXPECT_EQ(texts().size(), 3U);
}

TEST_F(Result, its_title_is_what_matters_most) {
    result().title.clear();
    draw(kWidth, kLine);
    EXPECT_TRUE(shows("Done"));
    result().cancelled = true;
    draw(kWidth, kLine);
    EXPECT_TRUE(shows("Cancelled"));
    result().disk_full = true;
    result().failures = 1;
    draw(kWidth, kLine);
    expect_text("Stopped — the target is full", 28, kCentre, 13, palette().danger);
    EXPECT_FALSE(shows("Cancelled"));
    EXPECT_FALSE(shows("Done"));
}

TEST_F(Result, its_cross_dismisses_it) {
    for (const bool hot : {false, true}) {
        hover(hot ? App::Hit::ResultDismiss : App::Hit::ErrorBanner);
        draw(kWidth, kLine);
        expect_hit(App::Hit::ResultDismiss, kWidth - 24, kTop, 24, kLine);
        const std::string color = hot ? palette().danger : palette().secondary;
        expect_color(kWidth - 14, kCentre, color, "the middle of the cross");
        const std::string ground = mix_hex(palette().ok_bg, palette().bar, 0.5);
        for (const double x : {kWidth - 18.0, kWidth - 11.0})
            for (const double y : {-4.0, 3.0})
                EXPECT_FALSE(near(at(x, kCentre + y), rgb(ground))) << x << " " << y;
        expect_color(kWidth - 18, kCentre, ground, "between its arms");
        expect_color(kWidth - 21, kCentre - 4, ground, "left of it");
        expect_color(kWidth - 8, kCentre - 4, ground, "right of it");
    }
}

TEST_F(Result, failures_lead_to_their_list) {
    app().m_palette.danger_bg = "#00C000";  // far from the band's own
    result().failures = 1234567;
    const std::string text = "1234567 failed  ·  Details";
    for (const bool hot : {false, true}) {
        hover(hot ? App::Hit::ErrorBanner : App::Hit::ResultDismiss);
        draw(kWidth, kLine);
        const double w = painted_text(text)->width + 16;
        const double x = kWidth - 34 - w;
        expect_hit(App::Hit::ErrorBanner, x, kCentre - 10, w, 20);
        expect_text(text, x + 8, kCentre, 11, palette().danger);
        const std::string ground = mix_hex(palette().danger_bg, palette().bar, 0.5);
        expect_color(x + 3, kCentre,
                     hot ? palette().danger_bg : mix_hex(palette().danger_bg, ground, 0.8), "pill");
        expect_color(x - 2, kCentre, ground, "before");
    }
    // What no dialogue lists leads nowhere.
    result().listed = false;
    draw(kWidth, kLine);
    EXPECT_TRUE(shows("1234567 failed"));
    EXPECT_EQ(hit(App::Hit::ErrorBanner), nullptr);
    result().failures = 0;
    result().listed = true;
    draw(kWidth, kLine);
    EXPECT_EQ(hit(App::Hit::ErrorBanner), nullptr);
}

TEST_F(Result, a_long_one_ends_before_its_failures) {
    result().failures = 2;
    result().detail = std::string(400, 'm');
    draw(600, kLine);
    const double pill_x = hit(App::Hit::ErrorBanner)->x;
    EXPECT_FALSE(has(palette().text, pill_x - 14, kTop + 2, 13, kLine - 4));
    EXPECT_TRUE(has(palette().text, pill_x - 30, kTop + 2, 14, kLine - 4));
}

// Half a number would be a wrong one.
TEST_F(Result, a_number_that_has_no_room_is_left_out_whole) {
    result().files = 1'234'567;
    result().bytes = 5'000'000'000;
    result().seconds = 75;
    result().failures = 12;
    const std::vector<std::string> whole = {"1,234,567 files", fmt::bytes(5'000'000'000),
                                            fmt::seconds(75)};
    size_t most = 0;
    size_t least = 3;
    for (size_t length = 0; length < 60; ++length) {
        result().detail = std::string(length, 'm');
        draw(500, kLine);
        const double room_end = hit(App::Hit::ErrorBanner)->x - 16;
        size_t shown = 0;
        for (const PaintedText& text : painted_texts())
            if (std::find(whole.begin(), whole.end(), text.text) != whole.end()) {
                ++shown;
                EXPECT_LE(text.x + width(text.text, 11), room_end + 0.02) << length << text.text;
            }
        most = std::max(most, shown);
        least = std::min(least, shown);
    }
    EXPECT_EQ(most, 3U);
    EXPECT_EQ(least, 0U);
}

TEST_F(Result, it_stands_in_the_middle_of_the_band_whatever_its_height) {
    for (const double h : {76.0, 55.0, 34.0}) {
        draw(kWidth, h);
        expect_text("Copied", 28, kTop + h / 2, 13, palette().ok);
        expect_hit(App::Hit::ResultDismiss, kWidth - 24, kTop, 24, h);
        expect_color(1, kTop + h - 1, palette().ok, "bar");
        expect_color(1, kTop + h, "#808080", "below");
    }
    // Without a result there is nothing but the band.
    result().valid = false;
    draw(kWidth, 60);
    EXPECT_TRUE(texts().empty());
    EXPECT_TRUE(app().m_hits.empty());
    expect_color(600, kTop + 30, palette().bar, "band");
}

TEST_F(Result, the_band_goes_from_76_to_34_in_the_last_half_second_of_the_hold) {
    const auto height = [this](double left) {
        app().m_progress_hold_until = App::now_seconds() + left;
        return app().compute_layout(1100, 720).progress_h;
    };
    for (const double left : {2.5, 1.0, 0.6})
        EXPECT_EQ(height(left), 76) << left;
    for (const double left : {0.45, 0.3, 0.2, 0.1, 0.05}) {
        const double before = App::now_seconds();
        const double found = height(left);
        const double passed = App::now_seconds() - before;
        EXPECT_LE(found, 34 + 84 * left + 1e-6) << left;
        EXPECT_GE(found, 34 + 84 * (left - passed) - 1e-6) << left;
    }
    EXPECT_EQ(height(-0.001), 34);
    EXPECT_EQ(height(-1000), 34) << "a result has no end of its own";
}

// --- For the eye ------------------------------------------------------------------------------

// Every state in both themes, at the extreme scales and in scripts of every kind. Whatever the
// language, what stands in one row does not overlap and stays in the window.
TEST_F(Band, every_state_holds_together_in_every_language) {
    struct State {
        const char* name;
        std::function<void(App&)> set;
    };
    const auto transfer = [](App& a) -> copy_engine::Progress& {
        a.m_frame_copy = {};
        a.m_frame_copy.running = true;
        a.m_frame_copy.files_done = 1234;
        a.m_frame_copy.files_total = 20000;
        a.m_frame_copy.bytes_done = 4'200'000'000;
        a.m_frame_copy.bytes_total = 9'700'000'000;
        a.m_frame_copy.bytes_per_second = 123e6;
        a.m_frame_copy.seconds_remaining = 45;
        a.m_frame_copy.elapsed_seconds = 2;
        a.m_frame_copy.threads_active = 8;
        a.m_frame_copy.current_files = {"/home/me/photos/2024/holiday.jpg"};
        return a.m_frame_copy;
    };
    const auto result = [](App& a) -> App::LastResult& {
        a.m_frame_copy = {};
        a.m_result = {};
        a.m_result.valid = true;
        a.m_result.title = tr("progress.moved");
        a.m_result.files = 20000;
        a.m_result.bytes = 9'700'000'000;
        a.m_result.seconds = 81.2;
        return a.m_result;
    };
    const State states[] = {
        {"scanning", [&](App& a) { transfer(a).scanning = true; }},
        {"bytes",
         [&](App& a) {
             copy_engine::Progress& p = transfer(a);
             p.cloned = p.retried = 12;
         }},
        {"files", [&](App& a) { transfer(a).bytes_total = 0; }},
        {"stall", [&](App& a) { transfer(a).stalled_path = "/media/usb/video.mkv"; }},
        {"space",
         [&](App& a) {
             copy_engine::Progress& p = transfer(a);
             p.space_short = p.target_free = 4711;
         }},
        {"failing", [&](App& a) { transfer(a).failures_total = 17; }},
        {"task",
         [&](App& a) {
             transfer(a).running = false;
             a.m_frame_bg.running = true;
             a.m_frame_bg.title = tr("task.deleted");
             a.m_frame_bg.detail = "/home/me/photos/2024/holiday.jpg";
             a.m_frame_bg.done = 300;
             a.m_frame_bg.total = 1000;
         }},
        {"done", [&](App& a) { result(a); }},
        {"cancelled", [&](App& a) { result(a).cancelled = true; }},
        {"failed", [&](App& a) { result(a).failures = 17; }},
        {"full",
         [&](App& a) {
             App::LastResult& r = result(a);
             r.disk_full = true;
             r.failures = 1;
         }},
    };
    for (const LanguageInfo& language : I18n::available()) {
        I18n::instance().set_language(language.code);
        const bool pictures = wants_pictures(language.code);
        for (const int scale : {70, 100, 200}) {
            if (scale != 200 && !pictures)
                continue;
            app().m_ui_scale = scale / 100.0;
            for (const bool dark : {false, true}) {
                if (dark && !pictures)
                    continue;
                app().m_palette = dark ? Palette::dark_() : Palette::light();
                for (const State& state : states) {
                    task() = {};
                    state.set(app());
                    const bool running = app().frame_busy();
                    const double w = (scale == 200 ? 1000 : 1100) / app().m_ui_scale;
                    draw(w, running ? kWhole : kLine);
                    const std::string name = std::string("band-") + state.name + "-" +
                                             language.code + (dark ? "-dark-" : "-light-") +
                                             std::to_string(scale);
                    std::map<double, std::vector<PaintedText>> rows;
                    for (const PaintedText& text : painted_texts())
                        rows[text.y].push_back(text);
                    for (auto& [y, row] : rows) {
                        std::sort(row.begin(), row.end(),
                                  [](const auto& a, const auto& b) { return a.x < b.x; });
                        double last = 0;
                        for (const PaintedText& text : row) {
                            EXPECT_GE(text.x, last - 0.02) << name << " " << text.text;
                            last = text.x + text.width;
                        }
                        EXPECT_LE(last, w) << name;
                    }
                    if (pictures)
                        shot(name);
                }
            }
        }
    }
    app().m_ui_scale = 1;
}

}  // namespace
