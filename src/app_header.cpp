// The dark band across the top, in logical units from the window's upper left corner: the name, and
// while work runs its progress as a tint, with marks that drift to the right. Nothing here keeps
// state: every phase comes from the time that the work has taken.

#include "app.h"

#include "i18n.h"
#include "paths.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr const char* kWhite = "#FFFFFF";
constexpr double kLogoX = 25;
constexpr double kLogoScale = 1.28;
constexpr double kNameX = 77.9392;
constexpr double kNameSize = 34.56;
constexpr double kMargin = 10;
constexpr double kLeastLaneRoom = 40;

struct Lane {
    double position;  // of the band's height
    double offset;
    double speed;  // units a second
    double height;
    double alpha;
};

constexpr Lane kLanes[] = {
    {0.30, 120, 6.0, 7, 0.20},
    {0.52, 190, 14.0, 9, 0.30},
    {0.74, 150, 9.5, 6, 0.16},
};

struct Stop {
    double at;
    Rgb color;
};

constexpr Stop kIdle[] = {
    {0, {0.055, 0.075, 0.11}}, {0.6, {0.075, 0.11, 0.165}}, {1, {0.055, 0.09, 0.13}}};
constexpr Stop kWorking[] = {
    {0, {0.086, 0.129, 0.216}}, {0.6, {0.118, 0.196, 0.318}}, {1, {0.086, 0.149, 0.251}}};

// 36 by 28 at the origin, with the line around it: the back with its tab, or the front before it.
void folder_shape(cairo_t* cr, bool front) {
    if (front) {
        cairo_move_to(cr, 1.5, 10);
        cairo_line_to(cr, 34.5, 10);
    } else {
        cairo_move_to(cr, 3, 1.5);
        cairo_line_to(cr, 13, 1.5);
        cairo_line_to(cr, 17, 5);
        cairo_line_to(cr, 33, 5);
    }
    cairo_line_to(cr, front ? 33 : 31, 26.5);
    cairo_line_to(cr, front ? 3 : 5, 26.5);
    cairo_close_path(cr);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    cairo_set_line_width(cr, 3);
    cairo_stroke_preserve(cr);
    cairo_fill(cr);
}

}  // namespace

void App::draw_header(double y, double w) {
    const double h = m_layout.header_h;
    cairo_save(m_cr);
    clip_to(0, y, w, h);
    cairo_pattern_t* const gradient = cairo_pattern_create_linear(0, y, 0, y + h);
    for (const Stop& stop : frame_busy() ? kWorking : kIdle)
        cairo_pattern_add_color_stop_rgb(gradient, stop.at, stop.color.r, stop.color.g,
                                         stop.color.b);
    cairo_set_source(m_cr, gradient);
    cairo_pattern_destroy(gradient);
    cairo_paint(m_cr);

    const double elapsed = frame_elapsed();
    if (frame_busy())
        draw_header_progress(y, w, elapsed);
    const double name_end = draw_header_name(y + h / 2);
    if (frame_busy())
        draw_header_lanes(name_end, y, w - name_end, elapsed);
    draw_header_badge(name_end, y + h / 2, w);
    cairo_restore(m_cr);
}

void App::draw_header_progress(double y, double w, double elapsed) {
    const double h = m_layout.header_h;
    const double fraction = frame_fraction();
    if (fraction < 0) {
        const double brightness = 0.5 + 0.5 * std::sin(4.7 * elapsed);
        fill_rect(0, y, w, h, m_palette.progress_fill_2, 0.16 * brightness);
        return;
    }
    const double done_w = fraction * w;
    if (done_w <= 0)
        return;
    fill_rect(0, y, done_w, h, m_palette.progress_fill_2, 0.35);
    fill_rect(0, y + h - 3, done_w, 3, m_palette.progress_fill_2, 0.55);

    // What leaves at one end enters at the other.
    constexpr double kHalf = 60;
    const double middle = std::fmod(260 * elapsed, done_w);
    for (const double x : {middle - done_w, middle, middle + done_w}) {
        cairo_pattern_t* const sheen = cairo_pattern_create_linear(x - kHalf, 0, x + kHalf, 0);
        cairo_pattern_add_color_stop_rgba(sheen, 0, 1, 1, 1, 0);
        cairo_pattern_add_color_stop_rgba(sheen, 0.5, 1, 1, 1, 0.22);
        cairo_pattern_add_color_stop_rgba(sheen, 1, 1, 1, 1, 0);
        cairo_set_source(m_cr, sheen);
        cairo_pattern_destroy(sheen);
        cairo_rectangle(m_cr, 0, y, done_w, h);
        cairo_fill(m_cr);
    }
}

double App::draw_header_name(double centre) {
    cairo_save(m_cr);
    cairo_translate(m_cr, kLogoX, centre);
    cairo_scale(m_cr, kLogoScale, kLogoScale);
    cairo_translate(m_cr, 0, -14);
    set_color(kWhite, 0.5);
    folder_shape(m_cr, false);
    set_color(kWhite, 1);
    folder_shape(m_cr, true);
    cairo_restore(m_cr);

    const double second_x = kNameX + text_width("Ferro", kNameSize, true, false);
    draw_text("Ferro", kNameX, centre, kNameSize, kWhite, true, false, 0.72);
    draw_text("deck", second_x, centre, kNameSize, kWhite, true, false, 1);
    return second_x + text_width("deck", kNameSize, true, false);
}

void App::draw_header_lanes(double x, double y, double w, double elapsed) {
    if (w < kLeastLaneRoom)
        return;
    const double h = m_layout.header_h;
    cairo_save(m_cr);
    clip_to(x, y, w, h);
    for (const Lane& lane : kLanes) {
        const double spacing = 5 * lane.height;
        const double mark_w = 1.7 * lane.height;
        const double shift = std::fmod(lane.offset + lane.speed * elapsed, spacing);
        for (double mark_x = x + shift - spacing; mark_x < x + w; mark_x += spacing) {
            const double middle = mark_x + mark_w / 2;
            const double fade = std::min({1.0, (middle - x) / 55, (x + w + 20 - middle) / 55});
            if (fade > 0)
                fill_rounded(mark_x, y + lane.position * h - lane.height / 2, mark_w, lane.height,
                             2, kWhite, lane.alpha * fade);
        }
    }
    cairo_restore(m_cr);
}

void App::draw_header_badge(double name_end, double centre, double w) {
    if (!running_as_root()) {
        draw_text_right("v" FERRODECK_VERSION, w - kMargin, centre, 11, kWhite, false, false);
        return;
    }
    std::string text = tr("header.root_mode");
    if (!m_invoking_user.empty())
        text += "  (" + m_invoking_user + " → root)";
    const double text_w =
        std::min(text_width(text, 11, false, false), w - 2 * kMargin - 14 - name_end);
    if (text_w <= 0)
        return;
    const double badge_w = text_w + 14;
    const double badge_x = w - kMargin - badge_w;
    fill_rounded(badge_x, centre - 9, badge_w, 18, 4, m_palette.danger, 0.92);
    draw_text_clipped(text, badge_x + 7, centre, text_w, 11, kWhite, false, false);
}
