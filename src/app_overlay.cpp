// The frame that every dialogue stands in: its size, the shadow, the panel with title and rule, the
// grip of those that can be resized; and the row of buttons with the letters that take them.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "elevate.h"
#include "file_ops.h"
#include "i18n.h"
#include "settings.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

constexpr double kMessageText = 420;  // the width at which a message's text is wrapped

// As wide as the longest line of the byte view.
constexpr char kHexSample[] =
    "00000000   00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00   0123456789ABCDEF";

bool is_ascii_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool resizable(App::Overlay overlay) {
    return overlay == App::Overlay::ArchiveView || overlay == App::Overlay::HexView;
}

double confirm_delete_height(int entries) {
    const double lines = entries <= 2 ? 17.0 * entries + 104 : entries == 3 ? 155 : 175;
    return lines + 68;
}

double errors_height(size_t failures) {
    if (failures == 0)
        return 188;
    const double list = 18 * static_cast<double>(failures) + 26;
    return list > 380 ? 524 : list + 144;
}

}  // namespace

// --- Opening and closing ----------------------------------------------------------------------

void App::open_overlay(Overlay overlay, const std::string& title) {
    forget_overlay_input();
    // Whatever takes its place ends what it was counting.
    if (m_overlay == Overlay::Properties && overlay != Overlay::Properties)
        file_ops::folder_size::abandon();
    // A menu or a list below would take the first click.
    close_menus();
    m_overlay = overlay;
    m_overlay_title = title;
    m_list_scroll = 0;
    m_overlay_scrolls = false;         // where its list ends is not known before its first frame
    if (overlay == Overlay::Errors) {  // not with each frame: this looks at the disk
        m_can_elevate = elevate::availability() == elevate::Availability::Yes;
        m_why_not_elevate = elevate::unavailable_reason();
    }
    request_redraw();
}

void App::close_overlay() {
    forget_overlay_input();
    if (m_overlay == Overlay::Properties)
        file_ops::folder_size::abandon();
    m_overlay = Overlay::None;
    request_redraw();
}

// Until the next frame there is nothing on the screen but the dialogue before. Its letters and its
// rectangles must not act on the one that is open now.
void App::forget_overlay_input() {
    m_log_drag = 0;  // a question of the engine may come while a thumb is held
    m_hex_drag = false;
    m_overlay_accels.clear();
    for (HitRect& hit : m_hits)
        if (hit.in_overlay)
            hit.what = Hit::None;
}

// --- The frame --------------------------------------------------------------------------------

App::Size App::overlay_size(double window_w, double window_h) {
    const Settings& settings = SettingsStore::instance().get();
    switch (m_overlay) {
    case Overlay::About:
        return {480, 68 + 30 + 20 + about_disclaimer_height(424) +
                         (std::getenv("SNAP_VERSION") ? 350 : 330)};
    case Overlay::Settings:
        return {500, 478};
    case Overlay::Conflict:
        return {620, 318};
    case Overlay::NewFolder:
    case Overlay::NewFile:
    case Overlay::SelectPattern:
    case Overlay::GoToPath:
        return {480, 178};
    case Overlay::ConfirmDelete:
        return {560, confirm_delete_height(active_pane().selected_count())};
    case Overlay::Errors:
        return {640, std::min(errors_height(failure_lines()), window_h - 120)};
    case Overlay::Message: {
        const double text_h = wrapped_text(m_overlay_text, 0, 0, kMessageText, 12.5, nullptr);
        return {460, std::min({text_h + 126, window_h - 90, 560.0})};
    }
    case Overlay::LanguagePicker:
        return {460, std::min(window_h - 90, 560.0)};
    case Overlay::FontPicker:
        return {480, std::min(window_h - 90, 560.0)};
    case Overlay::LogView:
        return {900, std::min(window_h - 70, 600.0)};
    case Overlay::Bookmarks:
        return {520, std::min(window_h - 120, 460.0)};
    case Overlay::BookmarkSide:
    case Overlay::UnpackSide:
        return {520, 246};
    case Overlay::ArchiveView:
        m_overlay_min_w = 820;
        m_overlay_min_h = std::min(window_h - 70, 620.0);
        return {std::max<double>(m_overlay_min_w, settings.archive_view_w),
                std::max<double>(m_overlay_min_h, settings.archive_view_h)};
    case Overlay::HexView:
        m_overlay_min_w = text_width(kHexSample, 11, false, true) + 74;
        m_overlay_min_h = std::min(window_h - 70, 640.0);
        return {std::max<double>(m_overlay_min_w, settings.hex_view_w),
                std::max<double>(m_overlay_min_h, settings.hex_view_h)};
    case Overlay::Sandbox:
        return {std::min(window_w - 60, 860.0), 460};
    case Overlay::Licenses:
        return {640, std::min(window_h - 90, 560.0)};
    case Overlay::Properties:
        return {560, 24.0 * properties_rows() + 52 + (m_properties.is_dir ? 172 : 150)};
    case Overlay::Pack:
        // A narrow window leaves the chips less room than the panel would like.
        return {500, 238 + FormatChip::row_h * pack_format_rows(std::min(460.0, window_w - 80))};
    case Overlay::None:
        break;
    }
    return {460, 240};
}

void App::draw_overlay() {
    m_overlay_accels.clear();
    const double window_w = m_layout.width;
    const double window_h = m_layout.height;
    fill_rect(0, 0, window_w, window_h, "#000000", 0.38);

    m_overlay_min_w = m_overlay_min_h = 0;
    const Size wanted = overlay_size(window_w, window_h);
    const double w = std::min(wanted.w, window_w - 40);
    const double h = std::min(wanted.h, window_h - 40);
    const double x = std::floor((window_w - w) / 2);
    const double y = std::floor((window_h - h) / 2);
    fill_rounded(x + 3, y + 6, w, h, 8, "#000000", 0.22);
    fill_rounded(x, y, w, h, 8, m_palette.bar, 1);
    stroke_rounded(x, y, w, h, 8, m_palette.menu_border, 1, 1);
    if (m_overlay != Overlay::About) {  // which paints its own
        const bool logo = m_overlay == Overlay::Sandbox;
        const double title_x = logo ? 68 : 20;
        if (logo)
            draw_app_logo(x + 20, y + 10, 36);
        draw_text_clipped(m_overlay_title, x + title_x, y + 26, w - title_x - 20, 15,
                          m_palette.text, false, false);
        fill_rect(x + 20, y + (logo ? 54 : 44), w - 40, 1, m_palette.divider, 1);
    }

    m_overlay_scrolls = false;
    m_drawing_overlay = true;
    draw_overlay_inside(x, y, w, h);
    if (resizable(m_overlay))
        draw_resize_grip(x + w, y + h);
    m_drawing_overlay = false;
    m_overlay_panel = {x, y, w, h};
}

void App::draw_overlay_inside(double x, double y, double w, double h) {
    switch (m_overlay) {
    case Overlay::NewFolder:
    case Overlay::NewFile:
    case Overlay::SelectPattern:
    case Overlay::GoToPath:
        return draw_overlay_text_input(x, y, w, h);
    case Overlay::ConfirmDelete:
        return draw_overlay_confirm_delete(x, y, w, h);
    case Overlay::Conflict:
        return draw_overlay_conflict(x, y, w, h);
    case Overlay::Errors:
        return draw_overlay_errors(x, y, w, h);
    case Overlay::Message:
        return draw_overlay_message(x, y, w, h);
    case Overlay::BookmarkSide:
        return draw_overlay_bookmark_side(x, y, w, h);
    case Overlay::UnpackSide:
        return draw_overlay_unpack_side(x, y, w, h);
    case Overlay::LogView:
        return draw_overlay_log(x, y, w, h);
    case Overlay::Bookmarks:
        return draw_overlay_bookmarks(x, y, w, h);
    case Overlay::Settings:
        return draw_overlay_settings(x, y, w, h);
    case Overlay::Properties:
        return draw_overlay_properties(x, y, w, h);
    case Overlay::LanguagePicker:
        return draw_overlay_language(x, y, w, h);
    case Overlay::FontPicker:
        return draw_overlay_font(x, y, w, h);
    case Overlay::Pack:
        return draw_overlay_pack(x, y, w, h);
    case Overlay::ArchiveView:
        return draw_overlay_archive(x, y, w, h);
    case Overlay::HexView:
        return draw_overlay_hex(x, y, w, h);
    case Overlay::About:
        return draw_overlay_about(x, y, w, h);
    case Overlay::Licenses:
        return draw_overlay_licenses(x, y, w, h);
    case Overlay::Sandbox:
        return draw_overlay_sandbox(x, y, w, h);
    case Overlay::None:
        return;
    }
}

// Four diagonal strokes towards the panel's lower right corner, which is given.
void App::draw_resize_grip(double right_x, double bottom_y) {
    set_color(m_palette.secondary, m_overlay_resize != 0 ? 0.9 : 0.5);
    cairo_set_line_width(m_cr, 1.4);
    for (int i = 1; i <= 4; ++i) {
        cairo_move_to(m_cr, right_x - 6 - 5 * i, bottom_y - 6);
        cairo_line_to(m_cr, right_x - 6, bottom_y - 6 - 5 * i);
    }
    cairo_stroke(m_cr);
    add_hit(right_x - 26, bottom_y - 26, 26, 26, Hit::OverlayResize,
            m_overlay == Overlay::ArchiveView ? 0 : 1);
}

void App::draw_scrolled(const Rect& view, double height,
                        const std::function<void(double top)>& paint) {
    const int hidden = std::max(0, static_cast<int>(std::ceil(height - view.h)));
    m_overlay_scrolls = hidden > 0;
    m_overlay_page = std::max(1, static_cast<int>(view.h));
    m_list_scroll = std::clamp(m_list_scroll, 0, hidden);
    const size_t first_hit = m_hits.size();
    cairo_save(m_cr);
    clip_to(view.x, view.y, view.w, view.h);
    paint(view.y - m_list_scroll);
    cairo_restore(m_cr);
    clip_hits(first_hit, view.x, view.y, view.w, view.h);
    if (m_overlay_scrolls)
        draw_list_thumb({view.x, view.y, view.w - 3, view.h}, m_overlay_page + hidden,
                        m_list_scroll);
}

// --- Lists ------------------------------------------------------------------------------------

// Darker, and lighter, than anything in the palette, as the ground of what is read line by line.
void App::fill_list_ground(const Rect& list) {
    fill_rounded(list.x, list.y, list.w, list.h, 4, m_palette.dark ? "#101317" : "#FBFBFC", 1);
}

int& App::overlay_scroll() {
    return m_overlay == Overlay::Settings ? m_settings_scroll : m_list_scroll;
}

int App::overlay_line() const {
    const bool rows = m_overlay != Overlay::Settings && m_overlay != Overlay::About &&
                      m_overlay != Overlay::Sandbox;
    return rows ? 1 : 36;
}

// At the right edge of a list of `total` rows, whose first row in view is `first`.
void App::draw_list_thumb(const Rect& list, int total, int first) {
    m_log_track_y = list.y + 2;
    m_log_track_h = list.h - 4;
    m_log_max_scroll = std::max(0, total - m_overlay_page);
    if (total <= m_overlay_page || m_log_track_h <= 0)
        return;
    const double x = list.x + list.w - 11;
    const double thumb_h = std::min(
        m_log_track_h, std::max(24.0, m_log_track_h * m_overlay_page / static_cast<double>(total)));
    const double share = static_cast<double>(first) / m_log_max_scroll;
    fill_rounded(x, m_log_track_y, 7, m_log_track_h, 4, m_palette.progress_track, 0.45);
    fill_rounded(x, m_log_track_y + share * (m_log_track_h - thumb_h), 7, thumb_h, 4,
                 m_palette.secondary, m_log_drag == 1 ? 0.85 : 0.55);
    add_hit(x - 2, m_log_track_y, 11, m_log_track_h, Hit::LogVThumb);
}

// --- Buttons ----------------------------------------------------------------------------------

// The first button to ask for a letter has it. A label of another script has none to offer, and
// gets a digit instead, so that every language has its keys.
std::vector<App::Accelerator> App::assign_accelerators(const std::vector<ButtonSpec>& buttons) {
    std::vector<Accelerator> result;
    char digit = '1';
    for (const ButtonSpec& button : buttons) {
        const char* const label = tr(button.label);
        Accelerator found;
        bool has_letters = false;
        for (size_t i = 0; label[i] && !found.key; ++i) {
            if (!is_ascii_letter(label[i]))
                continue;
            has_letters = true;
            const char letter = static_cast<char>(label[i] & ~0x20);
            if (m_overlay_accels.emplace(letter, button.action).second)
                found = {letter, i};
        }
        for (; !has_letters && !found.key && digit <= '9'; ++digit)
            if (m_overlay_accels.emplace(digit, button.action).second)
                found = {digit, std::string::npos};
        result.push_back(found);
    }
    return result;
}

double App::draw_buttons(double x, double y, double w, const std::vector<ButtonSpec>& buttons) {
    m_overlay_accels.clear();
    const std::vector<Accelerator> accels = assign_accelerators(buttons);
    double right = x + w - 20;
    for (size_t i = buttons.size(); i-- > 0;) {
        const double bw = std::max(90.0, text_width(tr(buttons[i].label), 12.5, false, false) + 32);
        draw_button(right - bw, y, bw, buttons[i], accels[i]);
        right -= bw + 8;
    }
    return right + 8;
}

void App::draw_button(double x, double y, double w, const ButtonSpec& button,
                      const Accelerator& accel) {
    constexpr double kHeight = 30;
    const int param = static_cast<int>(button.action);
    const HitRect* hover = hovered();
    const bool hot = hover && hover->what == Hit::Overlay && hover->param == param;
    std::string color = m_palette.control_text;
    if (button.primary) {
        fill_rounded(x, y, w, kHeight, 4, m_palette.accent, hot ? 0.88 : 1);
        color = "#FFFFFF";
    } else if (button.danger) {
        fill_rounded(x, y, w, kHeight, 4, m_palette.danger_bg, 1);
        stroke_rounded(x, y, w, kHeight, 4, m_palette.danger, 1, 1);
        color = m_palette.danger;
    } else {
        fill_rounded(x, y, w, kHeight, 4, m_palette.control, 1);
        stroke_rounded(x, y, w, kHeight, 4, m_palette.control_edge, 1, 1);
    }
    draw_button_label(button.label, {x, y, w, kHeight}, y + 15, color, accel);
    add_hit(x, y, w, kHeight, Hit::Overlay, param, false, tr(button.label));
}

// The label in the middle of its button, with what takes it beside Alt.
void App::draw_button_label(const char* key, const Rect& button, double centre,
                            const std::string& color, const Accelerator& accel) {
    constexpr double kSize = 12.5;
    const std::string label = tr(key);
    const double x = button.x + (button.w - text_width(label, kSize, false, false)) / 2;
    draw_text(label, x, centre, kSize, color, false, false, 1);
    if (accel.key && accel.at == std::string::npos) {
        draw_text_right(std::string(1, accel.key), button.x + button.w - 5, button.y + 8, 9, color,
                        false, false);
    } else if (accel.key) {
        const double before = text_width(label.substr(0, accel.at), kSize, false, false);
        const double letter = text_width(label.substr(accel.at, 1), kSize, false, false);
        fill_rect(x + before, centre + 8, letter, 1, color, 1);
    }
}
