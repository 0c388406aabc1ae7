// The log's dialogue: the lines in memory as they arrive, with a thumb for either direction.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "i18n.h"
#include "logger.h"

#include <algorithm>
#include <cmath>
#include <ctime>

namespace {

constexpr double kRow = 17;
constexpr double kSize = 11;
constexpr double kListTop = 84;
constexpr double kBelowList = 56;
constexpr double kThreadX = 94;  // from the panel's left edge, as is the next
constexpr double kTextX = 134;
// Cairo's coordinates end at 32767 pixels; so many letters fit at every scale.
constexpr long kLongestText = 1000;

std::string cut(const std::string& text) {
    if (static_cast<long>(text.size()) <= kLongestText)
        return text;
    char* const valid = g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()));
    std::string result = valid;
    if (g_utf8_strlen(valid, -1) > kLongestText)
        result.replace(static_cast<size_t>(g_utf8_offset_to_pointer(valid, kLongestText) - valid),
                       std::string::npos, "…");
    g_free(valid);
    return result;
}

std::string clock_text(int64_t unix_time) {
    const time_t seconds = unix_time;
    struct tm local = {};
    char text[16] = "";
    if (localtime_r(&seconds, &local))
        std::strftime(text, sizeof text, "%H:%M:%S", &local);
    return text;
}

double fraction_of(double at, double track, double length) {
    return std::clamp((at - track) / length, 0.0, 1.0);
}

}  // namespace

void App::draw_overlay_log(double x, double y, double w, double h) {
    m_overlay_scrolls = true;
    draw_log_tools(x, y + 52);
    const Rect list = {x + 16, y + kListTop, w - 32, h - kListTop - kBelowList};
    fill_list_ground(list);
    m_overlay_page = std::max(1, static_cast<int>((list.h - 10) / kRow));
    // More lines may arrive between the two questions, or the log may be emptied: what is painted
    // is what the second one answers.
    const int total = static_cast<int>(Log::instance().size());
    m_log_max_scroll = std::max(0, total - m_overlay_page);
    m_list_scroll = std::min(m_list_scroll, m_log_max_scroll);
    const int first = m_list_scroll < 0 ? m_log_max_scroll : m_list_scroll;
    const std::vector<Log::Entry> lines =
        Log::instance().recent(static_cast<size_t>(first), static_cast<size_t>(m_overlay_page));
    if (lines.empty())
        draw_text(tr("log.empty"), x + 26, list.y + 2 + kRow / 2, kSize, m_palette.secondary, false,
                  false, 1);
    draw_log_lines(lines, x, list);
    draw_log_hthumb(list);
    draw_list_thumb(list, total, first);
    draw_buttons(x, y + h - 46, w, {{"btn.close", Action::OverlayCancel}});
}

void App::draw_log_tools(double x, double y) {
    constexpr double kHeight = 24;
    double left = x + 16;
    for (const auto& [key, action] : {std::pair{"log.debug", Action::LogToggleDebug},
                                      {"log.clear", Action::LogClear},
                                      {"log.open_file", Action::LogOpenFile}}) {
        const std::string label = tr(key);
        const double text_w = text_width(label, kSize, false, false);
        const bool marked = action == Action::LogToggleDebug && Log::instance().debug();
        const HitRect* hover = hovered();
        const bool hot =
            hover && hover->what == Hit::Overlay && hover->param == static_cast<int>(action);
        fill_rounded(left, y, text_w + 30, kHeight, 4,
                     hot ? m_palette.control_hover : m_palette.control, 1);
        stroke_rounded(left, y, text_w + 30, kHeight, 4,
                       marked ? m_palette.accent : m_palette.control_edge, 1, 1);
        draw_text(label, left + 15, y + kHeight / 2, kSize,
                  marked ? m_palette.accent : m_palette.control_text, false, false, 1);
        if (marked)  // as a lamp that is on
            fill_rounded(left + 5, y + kHeight / 2 - 2.5, 5, 5, 2.5, m_palette.accent, 1);
        add_hit(left, y, text_w + 30, kHeight, Hit::Overlay, static_cast<int>(action), false,
                label);
        left += text_w + 30 + 8;
    }
}

void App::draw_log_lines(const std::vector<Log::Entry>& lines, double x, const Rect& list) {
    const std::string* const colors[] = {&m_palette.dim, &m_palette.text, &m_palette.warn,
                                         &m_palette.danger};
    std::vector<std::string> texts;
    double widest = 0;
    for (const Log::Entry& line : lines) {
        texts.push_back(cut(line.text));
        widest = std::max(widest, text_width(texts.back(), kSize, false, false));
    }
    m_log_content_w = widest + 118 + 20;
    m_log_max_h = std::max(0.0, m_log_content_w - list.w);
    m_log_hscroll = std::clamp(m_log_hscroll, 0.0, m_log_max_h);

    cairo_save(m_cr);
    clip_to(list.x, list.y, list.w, list.h);
    const double left = x - m_log_hscroll;
    for (size_t i = 0; i < lines.size(); ++i) {
        const Log::Entry& line = lines[i];
        const double centre = list.y + kRow * static_cast<double>(i) + 8.5;
        draw_text(clock_text(line.unix_time), left + 26, centre, kSize, m_palette.secondary, false,
                  false, 1);
        draw_text_clipped(line.thread, left + kThreadX, centre, kTextX - kThreadX - 4, kSize,
                          m_palette.secondary, false, false);
        draw_text(texts[i], left + kTextX, centre, kSize,
                  *colors[std::clamp(static_cast<int>(line.level), 0, 3)], false, false, 1);
    }
    cairo_restore(m_cr);
}

void App::draw_log_hthumb(const Rect& list) {
    m_log_track_x = list.x + 4;
    m_log_track_w = list.w - 8 - 11;  // the other thumb stands in the corner
    if (m_log_max_h <= 0 || m_log_track_w <= 0)
        return;
    const double top = list.y + list.h - 8;
    const double thumb_w =
        std::min(m_log_track_w, std::max(30.0, list.w / m_log_content_w * m_log_track_w));
    const double thumb_x = m_log_track_x + m_log_hscroll / m_log_max_h * (m_log_track_w - thumb_w);
    fill_rounded(m_log_track_x, top, m_log_track_w, 6, 3, m_palette.progress_track, 0.45);
    fill_rounded(thumb_x, top, thumb_w, 6, 3, m_palette.secondary, m_log_drag == 2 ? 0.85 : 0.55);
    add_hit(m_log_track_x, top - 3, m_log_track_w, 12, Hit::LogHThumb);
}

void App::drag_log_scroll(double x, double y) {
    if (m_log_drag == 1 && m_log_track_h > 0)
        overlay_scroll() =
            static_cast<int>(m_log_max_scroll * fraction_of(y, m_log_track_y, m_log_track_h) + 0.5);
    else if (m_log_drag == 2 && m_log_track_w > 0)
        m_log_hscroll = m_log_max_h * fraction_of(x, m_log_track_x, m_log_track_w);
}
