// The progress band below the header, painted plainly: while something runs 76 high with a bar, a
// line of numbers and the file at hand; afterwards 34 high with the result. It reads the frame's
// snapshots alone.

#include "app.h"

#include "format.h"
#include "i18n.h"
#include "strutil.h"

#include <algorithm>

namespace {

std::string transfer_numbers(const copy_engine::Progress& p) {
    const bool move = p.operation == copy_engine::Operation::Move;
    std::string text = std::string(tr(move ? "progress.moving" : "progress.copying")) + "  ·  " +
                       fmt::count(p.files_done) + " / " + fmt::count(p.files_total) + " " +
                       tr("label.files") + "  ·  " + fmt::bytes(p.bytes_done) + " / " +
                       fmt::bytes(p.bytes_total);
    if (p.bytes_per_second >= 1)
        text +=
            "  ·  " + fmt::bytes(static_cast<int64_t>(std::min(p.bytes_per_second, 9e18))) + "/s";
    return text;
}

// What is being worked on, or why nothing moves.
std::string transfer_detail(const copy_engine::Progress& p) {
    if (p.scanning)
        return tr("progress.measuring");
    if (!p.stalled_path.empty())
        return I18n::instance().trf("progress.stalled", su::basename_of(p.stalled_path).c_str());
    if (p.space_short > 0)
        return I18n::instance().trf("progress.no_space", fmt::bytes(p.target_free).c_str(),
                                    fmt::bytes(p.bytes_total).c_str());
    for (const std::string& path : p.current_files)
        if (!path.empty())
            return path;
    return {};
}

}  // namespace

double App::frame_fraction() const {
    const auto share = [](int64_t done, int64_t total) {
        return std::clamp(static_cast<double>(done) / static_cast<double>(total), 0.0, 1.0);
    };
    const copy_engine::Progress& copy = m_frame_copy;
    if (copy.running) {
        if (copy.scanning)
            return -1;
        if (copy.bytes_total > 0)
            return share(copy.bytes_done, copy.bytes_total);
        return copy.files_total > 0 ? share(copy.files_done, copy.files_total) : -1;
    }
    return m_frame_bg.total > 0 ? share(m_frame_bg.done, m_frame_bg.total) : -1;
}

void App::draw_progress(double y, double w) {
    const double h = m_layout.progress_h;
    fill_band(0, y, w, h, m_palette.bar);
    fill_band(0, y, w, 1, m_palette.divider);
    const bool copying = m_frame_copy.running || (m_transfer_was_running && !m_frame_bg.running);
    if (!frame_shows_work()) {
        draw_result_line(y, w, h);
        return;
    }

    // The cancel button, 10 in from the right edge, and the bar that fills the rest of its row.
    const std::string cancel = tr("btn.cancel");
    const double label_w = text_width(cancel, 11, false, false);
    const double bw = std::max(70.0, label_w + 24);
    const double bx = w - 10 - bw;
    const HitRect* hover = hovered();
    const bool hot = hover && hover->what == Hit::ProgressCancel;
    fill_rounded(bx, y + 8, bw, 22, 4, hot ? m_palette.danger_bg : m_palette.control, 1);
    stroke_rounded(bx, y + 8, bw, 22, 4, m_palette.danger, hot ? 1 : 0.6, 1);
    draw_text(cancel, bx + (bw - label_w) / 2, y + 19, 11, m_palette.control_text, false, false, 1);
    add_hit(bx, y + 8, bw, 22, Hit::ProgressCancel, 0, false, cancel);

    const double bar_w = std::max(0.0, bx - 20);
    fill_rounded(10, y + 10, bar_w, 18, 9, m_palette.progress_track, 1);
    const double fraction = frame_fraction();
    if (fraction >= 0) {
        const double fill_w = std::clamp(bar_w * fraction, std::min(18.0, bar_w), bar_w);
        fill_rounded(10, y + 10, fill_w, 18, 9, m_palette.progress_fill, 1);
        const std::string percent = std::to_string(static_cast<int>(fraction * 100)) + " %";
        const double percent_w = text_width(percent, 11, false, false);
        if (fill_w > percent_w + 20)
            draw_text_right(percent, 10 + fill_w - 8, y + 19, 11, "#FFFFFF", false, false);
        else
            draw_text(percent, 10 + fill_w + 8, y + 19, 11, m_palette.text, false, false, 1);
    }

    const std::string numbers = copying ? transfer_numbers(m_frame_copy)
                                        : m_frame_bg.title + "  ·  " + fmt::count(m_frame_bg.done) +
                                              " / " + fmt::count(m_frame_bg.total);
    draw_text_clipped(numbers, 10, y + 42, w - 20, 12.5, m_palette.text, false, false);

    double detail_w = w - 20;
    const size_t failed = copying ? m_frame_copy.failures_total : m_frame_bg.failures.size();
    if (failed > 0) {
        const std::string text =
            I18n::instance().trf("progress.failures", fmt::saturated(static_cast<int64_t>(failed)));
        const double pill_w = text_width(text, 11, false, false) + 16;
        fill_rounded(w - 10 - pill_w, y + 52, pill_w, 18, 4, m_palette.danger_bg, 1);
        draw_text(text, w - 2 - pill_w, y + 61, 11, m_palette.danger, false, false, 1);
        add_hit(w - 10 - pill_w, y + 52, pill_w, 18, Hit::ErrorBanner, 0, false, text);
        detail_w -= pill_w + 10;
    }
    draw_text_clipped(copying ? transfer_detail(m_frame_copy) : m_frame_bg.detail, 10, y + 61,
                      detail_w, 11, m_palette.secondary, false, false);
}

void App::draw_result_line(double y, double w, double h) {
    if (!m_result.valid)
        return;
    const bool failed = m_result.failures > 0;
    const std::string& tint = failed               ? m_palette.danger
                              : m_result.cancelled ? m_palette.warn
                                                   : m_palette.ok;
    const std::string& back = failed               ? m_palette.danger_bg
                              : m_result.cancelled ? m_palette.header
                                                   : m_palette.ok_bg;
    fill_rect(0, y + 1, w, h - 1, back, 0.5);
    fill_rect(0, y + 1, 4, h - 1, tint, 1);
    const double centre = y + h / 2;

    // The close cross, in the last 24 of the line.
    const HitRect* hover = hovered();
    const bool hot = hover && hover->what == Hit::ResultDismiss;
    draw_text("×", w - 19, centre, 15, hot ? m_palette.danger : m_palette.secondary, true, false,
              1);
    add_hit(w - 24, y, 24, h, Hit::ResultDismiss);
    double room_end = w - 34;
    if (failed) {
        std::string text = I18n::instance().trf(
            "progress.failures", fmt::saturated(static_cast<int64_t>(m_result.failures)));
        if (m_result.listed)
            text += std::string("  ·  ") + tr("btn.details");
        const double pill_w = text_width(text, 11, false, false) + 16;
        fill_rounded(room_end - pill_w, centre - 10, pill_w, 20, 4, m_palette.danger_bg, 1);
        draw_text(text, room_end - pill_w + 8, centre, 11, m_palette.danger, false, false, 1);
        if (m_result.listed)
            add_hit(room_end - pill_w, centre - 10, pill_w, 20, Hit::ErrorBanner, 0, false, text);
        room_end -= pill_w + 10;
    }

    const std::string title = m_result.disk_full       ? tr("err.disk_full")
                              : m_result.cancelled     ? tr("progress.cancelled_label")
                              : m_result.title.empty() ? tr("progress.finished")
                                                       : m_result.title;
    double x = 28 + draw_text_clipped(title, 28, centre, room_end - 28, 13, tint, true, false);
    const auto item = [&](const std::string& text, const std::string& color) {
        if (!text.empty())
            x += 16 + draw_text_clipped(text, x + 16, centre, room_end - x - 16, 11, color, false,
                                        false);
    };
    item(m_result.detail, m_palette.text);
    item(fmt::count(m_result.files) + " " + tr("label.files"), m_palette.text);
    if (m_result.bytes > 0)
        item(fmt::bytes(m_result.bytes), m_palette.secondary);
    if (m_result.seconds > 0.05)
        item(fmt::seconds(m_result.seconds), m_palette.secondary);
}
