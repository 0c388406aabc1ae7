// The progress band below the header: while something runs a bar with its cancel button, a row of
// numbers and what is being worked on; afterwards the result. It reads the frame's snapshots alone,
// and what moves in it is a function of the time that the work has taken.

#include "app.h"

#include "format.h"
#include "i18n.h"
#include "strutil.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>

namespace {

constexpr double kEdge = 10;    // from the band's ends
constexpr double kBarTop = 10;  // from the band's top
constexpr double kBarH = 18;
constexpr double kBarRadius = 9;
constexpr double kSmallest = 18;    // the fill's width at nothing done
constexpr double kItemGap = 18;     // between two items of a row
constexpr double kResultGap = 16;   // the same of the result line
constexpr double kRowStep = 17;     // from the second row to the third
constexpr double kFileRoom = 210;   // at the end of the current file's row, left for the failures
constexpr double kBandSpeed = 220;  // units per second
constexpr double kBandShare = 0.28;
constexpr double kSheenSpeed = 130;
constexpr double kSheenW = 46;
constexpr char kLeftToRight[] = "\u200e";  // a mark without a width

struct Stop {
    double at;
    const std::string& color;
    double alpha;
};

void set_gradient(cairo_t* cr, double from, double to, std::initializer_list<Stop> stops) {
    cairo_pattern_t* const gradient = cairo_pattern_create_linear(from, 0, to, 0);
    for (const Stop& stop : stops) {
        Rgb rgb{1, 0, 1};
        (void)hex_to_rgb(stop.color, rgb);
        cairo_pattern_add_color_stop_rgba(gradient, stop.at, rgb.r, rgb.g, rgb.b, stop.alpha);
    }
    cairo_set_source(cr, gradient);
    cairo_pattern_destroy(gradient);
}

double share(int64_t done, int64_t total) {
    return std::clamp(static_cast<double>(done) / static_cast<double>(total), 0.0, 1.0);
}

// The part before the point; beyond what an int64 can hold there is no file either.
int64_t whole(double number) {
    return static_cast<int64_t>(std::clamp(number, 0.0, 9e18));
}

std::string time_left(double seconds) {
    const I18n& words = I18n::instance();
    if (seconds < 5)
        return tr("progress.almost_done");
    if (seconds < 60)
        return words.trf("progress.seconds", fmt::saturated(whole(seconds)));
    if (seconds < 3600)
        return words.trf("progress.minutes", fmt::saturated(whole(seconds / 60) + 1));
    return words.trf("progress.hours", fmt::saturated(whole(seconds / 3600) + 1));
}

std::string failures_text(size_t count) {
    return I18n::instance().trf("progress.failures", fmt::saturated(static_cast<int64_t>(count)));
}

}  // namespace

double App::frame_fraction() const {
    const copy_engine::Progress& copy = m_frame_copy;
    if (!frame_shows_transfer())
        return m_frame_bg.total > 0 ? share(m_frame_bg.done, m_frame_bg.total) : -1;
    if (copy.scanning)
        return -1;
    if (copy.bytes_total > 0)
        return share(copy.bytes_done, copy.bytes_total);
    return copy.files_total > 0 ? share(copy.files_done, copy.files_total) : -1;
}

double App::frame_elapsed() const {
    return frame_shows_transfer() ? m_frame_copy.elapsed_seconds : now_seconds();
}

void App::draw_progress(double y, double h) {
    const double w = m_layout.width;
    fill_band(0, y, w, h, m_palette.bar);
    fill_band(0, y, w, 1, m_palette.divider);
    if (!frame_shows_work())
        return draw_result_line(0, y, h);
    const double bar_end = draw_progress_cancel(y) - 10;
    draw_progress_bar(kEdge, y + kBarTop, bar_end - kEdge);

    const bool transfer = frame_shows_transfer();
    const double numbers_y = y + 30 + m_layout.row_h / 2;
    const double detail_y = numbers_y + kRowStep;
    const size_t failed = transfer ? m_frame_copy.failures_total : m_frame_bg.failures.size();
    double room_end = w - kEdge;
    if (failed > 0)
        room_end =
            draw_failures_pill(failures_text(failed), w - kEdge, detail_y, 18, 1, true) - kEdge;
    if (!transfer)
        return draw_task_rows(numbers_y, detail_y, room_end);
    draw_transfer_numbers(numbers_y);
    draw_transfer_detail(detail_y, room_end);
}

double App::draw_progress_cancel(double y) {
    constexpr double kHeight = 22;
    const std::string label = tr("btn.cancel");
    const double label_w = text_width(label, 11, false, false);
    const double w = std::max(70.0, label_w + 24);
    const double x = m_layout.width - kEdge - w;
    const double centre = y + kBarTop + kBarH / 2;
    const HitRect* hover = hovered();
    const bool hot = hover && hover->what == Hit::ProgressCancel;
    fill_rounded(x, centre - kHeight / 2, w, kHeight, 4,
                 hot ? m_palette.danger_bg : m_palette.control, 1);
    stroke_rounded(x, centre - kHeight / 2, w, kHeight, 4, m_palette.danger, hot ? 1 : 0.6, 1);
    draw_text(label, x + (w - label_w) / 2, centre, 11, m_palette.control_text, false, false, 1);
    add_hit(x, centre - kHeight / 2, w, kHeight, Hit::ProgressCancel, 0, false, label);
    return x;
}

void App::draw_progress_bar(double x, double y, double w) {
    if (w < kSmallest)
        return;
    fill_rounded(x, y, w, kBarH, kBarRadius, m_palette.progress_track, 1);
    const double fraction = frame_fraction();
    cairo_save(m_cr);
    rounded_rect(x, y, w, kBarH, kBarRadius);
    cairo_clip(m_cr);
    const double fill_w = std::max(kSmallest, fraction * w);
    if (fraction < 0)
        draw_bar_band(x, y, w);
    else
        draw_bar_fill(x, y, fill_w);
    cairo_restore(m_cr);
    if (fraction < 0)
        return;
    // In binary 0.29 times 100 falls just short of 29.
    const double hundredths = std::nextafter(fraction * 100, HUGE_VAL);
    const std::string percent = std::to_string(static_cast<int>(hundredths)) + " %";
    const double centre = y + kBarH / 2;
    if (fill_w > text_width(percent, 11, false, false) + 20)
        draw_text_right(percent, x + fill_w - 8, centre, 11, "#FFFFFF", false, false);
    else
        draw_text(percent, x + fill_w + 8, centre, 11, m_palette.text, false, false, 1);
}

// How much there is to do is not known: from left to right, over and over.
void App::draw_bar_band(double x, double y, double w) {
    const double band_w = kBandShare * w;
    const double left = x + std::fmod(kBandSpeed * frame_elapsed(), w + band_w) - band_w;
    set_gradient(m_cr, left, left + band_w,
                 {{0, m_palette.progress_fill, 0},
                  {0.5, m_palette.progress_fill_2, 1},
                  {1, m_palette.progress_fill, 0}});
    cairo_rectangle(m_cr, left, y, band_w, kBarH);
    cairo_fill(m_cr);
}

void App::draw_bar_fill(double x, double y, double w) {
    rounded_rect(x, y, w, kBarH, kBarRadius);
    cairo_clip(m_cr);
    set_gradient(m_cr, x, x + w,
                 {{0, m_palette.progress_fill_2, 1}, {1, m_palette.progress_fill, 1}});
    cairo_paint(m_cr);
    if (!frame_shows_transfer() || m_frame_copy.bytes_per_second <= 0)
        return;
    const std::string white = "#FFFFFF";
    const double left = x + std::fmod(kSheenSpeed * frame_elapsed(), w + kSheenW) - kSheenW;
    set_gradient(m_cr, left, left + kSheenW, {{0, white, 0}, {0.5, white, 0.18}, {1, white, 0}});
    cairo_rectangle(m_cr, left, y, kSheenW, kBarH);
    cairo_fill(m_cr);
}

// In a window too narrow for all of them, an item that does not fit is left out: half a number
// would be a wrong one.
void App::draw_transfer_numbers(double centre) {
    const copy_engine::Progress& p = m_frame_copy;
    const I18n& words = I18n::instance();
    const std::string threads = words.trf("progress.threads", p.threads_active);
    const double right = m_layout.width - kEdge;
    draw_text_right(threads, right, centre, 11, m_palette.dim, false, false);
    const double room_end = right - text_width(threads, 11, false, false) - kItemGap;

    double x = kEdge;
    const auto item = [&](const std::string& text, double size, const std::string& color) {
        const double text_w = text_width(text, size, false, false);
        if (x + text_w > room_end)
            return;
        draw_text(text, x, centre, size, color, false, false, 1);
        x += text_w + kItemGap;
    };
    item(fmt::count(p.files_done) + " / " + fmt::count(p.files_total) + " " + tr("label.files"), 13,
         m_palette.text);
    item(fmt::bytes(p.bytes_done) + " / " + fmt::bytes(p.bytes_total), 11, m_palette.secondary);
    if (p.bytes_per_second > 0)
        item(fmt::bytes(whole(p.bytes_per_second)) + "/s", 11, m_palette.ok);
    if (p.seconds_remaining > 0)
        item(time_left(p.seconds_remaining), 11, m_palette.secondary);
    if (p.cloned > 0)
        item(words.trf("progress.cloned", fmt::saturated(p.cloned)), 11, m_palette.dim);
    if (p.retried > 0)
        item(words.trf("progress.retried", fmt::saturated(p.retried)), 11, m_palette.warn);
}

void App::draw_transfer_detail(double centre, double room_end) {
    const copy_engine::Progress& p = m_frame_copy;
    const I18n& words = I18n::instance();
    if (p.scanning) {
        draw_text_clipped(tr("progress.measuring"), kEdge, centre, room_end - kEdge, 11,
                          m_palette.secondary, false, false);
    } else if (!p.stalled_path.empty()) {
        draw_warning_pill(
            words.trf("progress.stalled", fmt::embedded(su::basename_of(p.stalled_path)).c_str()),
            kEdge, centre, room_end - kEdge);
    } else if (p.space_short > 0) {
        draw_warning_pill(words.trf("progress.no_space",
                                    fmt::embedded(fmt::bytes(p.target_free)).c_str(),
                                    fmt::embedded(fmt::bytes(p.bytes_total)).c_str()),
                          kEdge, centre, room_end - kEdge);
    } else {
        draw_transfer_file(centre);
    }
}

void App::draw_transfer_file(double centre) {
    const auto file =
        std::find_if(m_frame_copy.current_files.begin(), m_frame_copy.current_files.end(),
                     [](const std::string& path) { return !path.empty(); });
    if (file == m_frame_copy.current_files.end())
        return;
    const bool move = m_frame_copy.operation == copy_engine::Operation::Move;
    // The path belongs behind the colon, whichever way the verb is written.
    const std::string verb = std::string(I18n::instance().is_rtl() ? kLeftToRight : "") +
                             tr(move ? "progress.moving" : "progress.copying") + ": ";
    draw_text(verb, kEdge, centre, 11, m_palette.secondary, false, false, 1);
    const double x = kEdge + text_width(verb, 11, false, false);
    const double room = m_layout.width - kFileRoom - x;
    const bool fits = text_width(*file, 11, false, false) <= room;
    draw_text_clipped(fits ? *file : "…/" + su::basename_of(*file), x, centre, room, 11,
                      m_palette.secondary, false, false);
}

void App::draw_task_rows(double numbers_y, double detail_y, double room_end) {
    const double w = m_layout.width;
    const std::string count =
        m_frame_bg.total > 0 ? fmt::count(m_frame_bg.done) + " / " + fmt::count(m_frame_bg.total)
                             : "";
    // A long title gives way to the count.
    const double taken = count.empty() ? 0 : kItemGap + text_width(count, 11, false, false);
    const double title_w =
        draw_text_clipped(m_frame_bg.title, kEdge, numbers_y, w - 2 * kEdge - taken, 13,
                          m_palette.text, false, false);
    draw_text(count, kEdge + title_w + kItemGap, numbers_y, 11, m_palette.secondary, false, false,
              1);
    draw_text_clipped(m_frame_bg.detail, kEdge, detail_y, std::min(w - 90, room_end - kEdge), 11,
                      m_palette.secondary, false, false);
}

void App::draw_warning_pill(const std::string& text, double x, double centre, double room) {
    const double text_w = std::min(text_width(text, 11, false, false), room - 12);
    if (text_w <= 0)
        return;
    fill_rounded(x, centre - 9, text_w + 12, 18, 4, m_palette.danger_bg, 1);
    draw_text_clipped(text, x + 6, centre, text_w, 11, m_palette.warn, false, false);
}

double App::draw_failures_pill(const std::string& text, double right, double centre, double h,
                               double alpha, bool listed) {
    const double w = text_width(text, 11, false, false) + 16;
    const double x = right - w;
    fill_rounded(x, centre - h / 2, w, h, 4, m_palette.danger_bg, alpha);
    draw_text(text, x + 8, centre, 11, m_palette.danger, false, false, 1);
    if (listed)
        add_hit(x, centre - h / 2, w, h, Hit::ErrorBanner, 0, false, text);
    return x;
}

// --- The result -------------------------------------------------------------------------------

void App::draw_result_line(double x, double y, double h) {
    if (!m_result.valid)
        return;
    const double right = m_layout.width;
    const double centre = y + h / 2;
    const bool failed = m_result.failures > 0;
    const std::string& tint = failed               ? m_palette.danger
                              : m_result.cancelled ? m_palette.warn
                                                   : m_palette.ok;
    const std::string& back = failed               ? m_palette.danger_bg
                              : m_result.cancelled ? m_palette.header
                                                   : m_palette.ok_bg;
    fill_band(x, y + 1, 4, h - 1, tint);
    fill_band(x + 4, y + 1, right - x - 4, h - 1, back, 0.5);
    draw_result_symbol(x, centre, tint);
    draw_result_dismiss(right, y, h);
    double room_end = right - 34;
    if (failed) {
        std::string text = failures_text(m_result.failures);
        if (m_result.listed)
            text += std::string("  ·  ") + tr("btn.details");
        const HitRect* hover = hovered();
        const bool hot = hover && hover->what == Hit::ErrorBanner;
        room_end = draw_failures_pill(text, room_end, centre, 20, hot ? 1 : 0.8, m_result.listed) -
                   kResultGap;
    }

    const std::string title = m_result.disk_full       ? tr("err.disk_full")
                              : m_result.cancelled     ? tr("progress.cancelled_label")
                              : m_result.title.empty() ? tr("progress.finished")
                                                       : m_result.title;
    double at = x + 28;
    const auto item = [&](const std::string& text, double size, const std::string& color) {
        if (!text.empty())
            at += kResultGap +
                  draw_text_clipped(text, at, centre, room_end - at, size, color, false, false);
    };
    item(title, 13, tint);
    item(m_result.detail, 11, m_palette.text);
    const auto number = [&](const std::string& text, const std::string& color) {
        if (at + text_width(text, 11, false, false) <= room_end)
            item(text, 11, color);
    };
    number(fmt::count(m_result.files) + " " + tr("label.files"), m_palette.text);
    if (m_result.bytes > 0)
        number(fmt::bytes(m_result.bytes), m_palette.secondary);
    if (m_result.seconds > 0.05)
        number(fmt::seconds(m_result.seconds), m_palette.secondary);
}

// A cross, an exclamation mark or a tick.
void App::draw_result_symbol(double x, double centre, const std::string& tint) {
    set_color(tint, 1);
    cairo_set_line_width(m_cr, 2);
    if (m_result.failures > 0) {
        cairo_move_to(m_cr, x + 10, centre - 4);
        cairo_line_to(m_cr, x + 18, centre + 4);
        cairo_move_to(m_cr, x + 18, centre - 4);
        cairo_line_to(m_cr, x + 10, centre + 4);
    } else if (m_result.cancelled) {
        cairo_move_to(m_cr, x + 14, centre - 5);
        cairo_line_to(m_cr, x + 14, centre + 1);
        cairo_move_to(m_cr, x + 14, centre + 3);
        cairo_line_to(m_cr, x + 14, centre + 5);
    } else {
        cairo_move_to(m_cr, x + 10, centre);
        cairo_line_to(m_cr, x + 13.5, centre + 4);
        cairo_line_to(m_cr, x + 19, centre - 4);
    }
    cairo_stroke(m_cr);
}

void App::draw_result_dismiss(double right, double y, double h) {
    constexpr double kHitW = 24;
    constexpr double kHalf = 4;
    const double middle = right - 14;
    const double centre = y + h / 2;
    const HitRect* hover = hovered();
    const bool hot = hover && hover->what == Hit::ResultDismiss;
    set_color(hot ? m_palette.danger : m_palette.secondary, 1);
    cairo_set_line_width(m_cr, 1.8);
    for (const double slope : {-kHalf, kHalf}) {
        cairo_move_to(m_cr, middle - kHalf, centre - slope);
        cairo_line_to(m_cr, middle + kHalf, centre + slope);
    }
    cairo_stroke(m_cr);
    add_hit(right - kHitW, y, kHitW, h, Hit::ResultDismiss);
}
