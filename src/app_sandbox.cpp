// The notice that tells what a Snap's sandbox holds back, and which of it one command gives.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "i18n.h"
#include "logger.h"
#include "paths.h"
#include "settings.h"

#include <algorithm>

namespace {

constexpr double kSize = 11;
constexpr double kLeft = 24;
constexpr double kTop = 56;  // below the title's rule
constexpr double kIntro = 12;
constexpr double kRow = 25;
constexpr double kMark = 13;
constexpr double kTextX = 48;  // of a row, from the panel's left edge
constexpr double kBoxH = 30;
constexpr double kFoot = 46;

// From the lower edge of the introduction.
constexpr double kRule = 12;
constexpr double kFixable = 32;
constexpr double kFixableRows = 48;
constexpr double kBox = kFixableRows + 2 * kRow + 6;
constexpr double kOnce = kBox + kBoxH + 16;
constexpr double kNotFixable = kOnce + 38;
constexpr double kNotFixableRows = kNotFixable + 16;
constexpr double kEnd = kNotFixableRows + 3 * kRow;

}  // namespace

void App::offer_sandbox_notice() {
    if (!running_in_snap() || SettingsStore::instance().get().sandbox_notice_hidden)
        return;
    const bool removable = removable_media_available();
    const bool hostfs = hostfs_available();
    if (removable && hostfs)
        return;
    open_sandbox_notice();
    Log::infof("sandbox notice shown (removable=%d hostfs=%d)", removable, hostfs);
}

void App::open_sandbox_notice() {
    // Asked for here, where it may take its time, and not in a frame.
    (void)removable_media_available();
    (void)hostfs_available();
    open_overlay(Overlay::Sandbox, tr("sandbox.title"));
    m_sandbox_copied = false;
}

void App::copy_connect_command() {
    set_clipboards(snap_connect_command());
    m_sandbox_copied = true;
    Log::infof("sandbox: connect command copied");
}

void App::draw_overlay_sandbox(double x, double y, double w, double h) {
    const double room = w - 2 * kLeft;
    const double intro_h =
        wrapped_text(tr("sandbox.intro"), 0, 0, room, kSize, nullptr, "sans-serif");
    const Rect view = {x, y + kTop, w, h - kTop - kFoot - 10};
    // Its letters come first; the button beside the command takes one that is left.
    draw_buttons(
        x, y + h - kFoot, w,
        {{"sandbox.dont_show", Action::SandboxDontShow}, {"btn.close", Action::OverlayCancel}});
    draw_scrolled(view, kIntro + intro_h + kEnd, [&](double top) {
        const double left = x + kLeft;
        wrapped_text(tr("sandbox.intro"), left, top + kIntro, room, kSize, &m_palette.text,
                     "sans-serif");
        const double below = top + kIntro + intro_h;
        fill_rect(left, below + kRule, room, 2, m_palette.divider, 1);
        const auto heading = [&](const char* key, double at) {
            draw_text_clipped(tr(key), left, below + at, room, kSize, m_palette.secondary, false,
                              false);
        };
        const auto state = [](bool granted) {
            return granted ? SandboxMark::Granted : SandboxMark::Missing;
        };
        heading("sandbox.fixable", kFixable);
        double row = below + kFixableRows;
        draw_sandbox_row("sandbox.removable", state(removable_media_available()), x, row, w);
        draw_sandbox_row("sandbox.outside_home", state(hostfs_available()), x, row + kRow, w);
        draw_connect_command(left, below + kBox, room);
        draw_text_clipped(tr(m_sandbox_copied ? "sandbox.copied" : "sandbox.once"), left,
                          below + kOnce, room, kSize,
                          m_sandbox_copied ? m_palette.progress_fill_2 : m_palette.secondary, false,
                          false);
        heading("sandbox.not_fixable", kNotFixable);
        row = below + kNotFixableRows;
        for (const char* key : {"sandbox.archivers", "sandbox.terminal", "sandbox.admin"}) {
            draw_sandbox_row(key, SandboxMark::Impossible, x, row, w);
            row += kRow;
        }
    });
}

void App::draw_sandbox_row(const char* text_key, SandboxMark mark, double x, double y, double w) {
    const double centre = y + kRow / 2;
    const double left = x + kLeft;
    const double top = centre - kMark / 2;
    const std::string& color = mark == SandboxMark::Granted   ? m_palette.ok
                               : mark == SandboxMark::Missing ? m_palette.warn
                                                              : m_palette.dim;
    stroke_rounded(left, top, kMark, kMark, 3, color, 1, 1);
    if (mark == SandboxMark::Granted) {
        draw_tick(left + 3, centre, 7, color);
    } else {
        set_color(color, 1);
        cairo_set_line_width(m_cr, 1.6);
        cairo_move_to(m_cr, left + 4, centre - 2.5);
        cairo_rel_line_to(m_cr, 5, 5);
        cairo_move_to(m_cr, left + 9, centre - 2.5);
        cairo_rel_line_to(m_cr, -5, 5);
        cairo_stroke(m_cr);
    }
    draw_text_clipped(tr(text_key), x + kTextX, centre, w - 72, kSize, m_palette.text, false,
                      false);
}

void App::draw_connect_command(double x, double y, double w) {
    const int param = static_cast<int>(Action::SandboxCopyCommand);
    const ButtonSpec copy = {"sandbox.copy", Action::SandboxCopyCommand};
    const double button_w = text_width(tr(copy.label), 12.5, false, false) + 26;
    const double box_w = w - button_w - 8;
    const Rect button = {x + box_w + 8, y, button_w, kBoxH};
    fill_rounded(x, y, box_w, kBoxH, 4, m_palette.pane, 1);
    stroke_rounded(x, y, box_w, kBoxH, 4, m_palette.control_edge, 1, 1);
    // In the letters of a terminal unless they would cut it.
    const std::string command = snap_connect_command();
    const bool mono = text_width(command, kSize, false, true) <= box_w - 20;
    draw_text_clipped(command, x + 10, y + kBoxH / 2, box_w - 20, kSize, m_palette.text, false,
                      mono);

    const HitRect* const hover = hovered();
    const bool hot = hover && hover->what == Hit::Overlay && hover->param == param;
    fill_rounded(button.x, y, button_w, kBoxH, 4, hot ? m_palette.control_hover : m_palette.control,
                 1);
    stroke_rounded(button.x, y, button_w, kBoxH, 4, m_palette.control_edge, 1, 1);
    draw_button_label(copy.label, button, y + kBoxH / 2, m_palette.control_text,
                      assign_accelerators({copy}).front());
    add_hit(button.x, y, button_w, kBoxH, Hit::Overlay, param, false, tr(copy.label));
}
