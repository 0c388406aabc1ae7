// The frame: layout, painting primitives, hit rectangles, and the order of the bands.
//
// All lengths are logical units with the origin at the window's upper left corner; the one scaling
// by m_ui_scale happens in draw_frame(). GTK's own device scale is already in the Cairo context.

#include "app.h"

#include "format.h"
#include "i18n.h"
#include "settings.h"
#include "strutil.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

namespace {

std::string font_family(bool mono) {
    if (mono)
        return "monospace";
    const std::string& chosen = SettingsStore::instance().get().font_family;
    return chosen.empty() ? I18n::instance().ui_font_family() : chosen;
}

struct HitName {
    App::Hit hit;
    const char* name;
};

constexpr HitName kHitNames[] = {
    {App::Hit::None, "None"},
    {App::Hit::MenuTitle, "MenuTitle"},
    {App::Hit::MenuItem, "MenuItem"},
    {App::Hit::PaneRow, "PaneRow"},
    {App::Hit::PaneBanner, "PaneBanner"},
    {App::Hit::PaneHeader, "PaneHeader"},
    {App::Hit::PaneHeaderMenu, "PaneHeaderMenu"},
    {App::Hit::PaneBackground, "PaneBackground"},
    {App::Hit::DrivePicker, "DrivePicker"},
    {App::Hit::DriveItem, "DriveItem"},
    {App::Hit::PathSegment, "PathSegment"},
    {App::Hit::PathBar, "PathBar"},
    {App::Hit::PathEdit, "PathEdit"},
    {App::Hit::ResultDismiss, "ResultDismiss"},
    {App::Hit::LogVThumb, "LogVThumb"},
    {App::Hit::LogHThumb, "LogHThumb"},
    {App::Hit::SearchBar, "SearchBar"},
    {App::Hit::SearchClear, "SearchClear"},
    {App::Hit::BridgeCopy, "BridgeCopy"},
    {App::Hit::BridgeMove, "BridgeMove"},
    {App::Hit::BridgePack, "BridgePack"},
    {App::Hit::BridgeRefresh, "BridgeRefresh"},
    {App::Hit::BridgeNewFolder, "BridgeNewFolder"},
    {App::Hit::BridgeDelete, "BridgeDelete"},
    {App::Hit::BridgeSearch, "BridgeSearch"},
    {App::Hit::BridgeHex, "BridgeHex"},
    {App::Hit::BridgeTerminal, "BridgeTerminal"},
    {App::Hit::BridgeTrash, "BridgeTrash"},
    {App::Hit::HexThumb, "HexThumb"},
    {App::Hit::HexByte, "HexByte"},
    {App::Hit::HexFindField, "HexFindField"},
    {App::Hit::OverlayResize, "OverlayResize"},
    {App::Hit::ColumnResize, "ColumnResize"},
    {App::Hit::PaneHScroll, "PaneHScroll"},
    {App::Hit::ScrollThumb, "ScrollThumb"},
    {App::Hit::Overlay, "Overlay"},
    {App::Hit::PackFormat, "PackFormat"},
    {App::Hit::ProgressCancel, "ProgressCancel"},
    {App::Hit::ErrorBanner, "ErrorBanner"},
    {App::Hit::ListItem, "ListItem"},
    {App::Hit::BookmarkItem, "BookmarkItem"},
    {App::Hit::RecentItem, "RecentItem"},
    {App::Hit::PermBit, "PermBit"},
    {App::Hit::OwnerField, "OwnerField"},
};

static_assert(std::size(kHitNames) == static_cast<size_t>(App::Hit::OwnerField) + 1);

// Where a byte of a text as it is laid out stands in the text itself: there each byte that is no
// UTF-8 has been replaced by a character of three.
size_t own_byte(const std::string& text, size_t laid_out) {
    constexpr gunichar kLargest = 0x10ffff;
    constexpr size_t kReplacement = 3;
    size_t at = 0;
    size_t shown = 0;
    while (shown < laid_out && at < text.size()) {
        const gunichar c =
            g_utf8_get_char_validated(text.data() + at, static_cast<gssize>(text.size() - at));
        const size_t length =
            c <= kLargest ? static_cast<size_t>(g_unichar_to_utf8(c, nullptr)) : 1;
        at += length;
        shown += c <= kLargest ? length : kReplacement;
    }
    // A caret stands in front of no byte that goes on with a character.
    return at == 0 ? 0 : su::next_character(text, su::previous_character(text, at));
}

}  // namespace

// --- The frame --------------------------------------------------------------------------------

void App::draw_frame(cairo_t* cr, double pixel_w, double pixel_h) {
    m_ui_scale = std::clamp(SettingsStore::instance().get().font_scale / 100.0, 0.7, 2.0);
    cairo_save(cr);
    cairo_scale(cr, m_ui_scale, m_ui_scale);
    m_frame_copy = copy_engine::instance().snapshot();
    m_frame_bg = BgTask::instance().snapshot();
    m_frame_drives = drives::list();
    const HitRect* hover = hovered();
    m_frame_hover = hover ? *hover : HitRect{};
    sync_input_method();
    m_caret_rect = {};
    m_cr = cr;
    m_hits.clear();
    m_layout = compute_layout(pixel_w / m_ui_scale, pixel_h / m_ui_scale);
    draw_all();
    m_texts.end_frame();
    cairo_restore(cr);
    m_cr = nullptr;
    place_input_method();
    light_again();
    drag_over_again();
    if (!m_veiled)  // which leaves nothing to choose
        log_dialog_options();
}

void App::draw_all() {
    const Layout& l = m_layout;
    fill_rect(0, 0, l.width, l.height, m_palette.window, 1);
    draw_header(l.header_y, l.width);
    draw_pane(m_left, false, l.left_x, l.pane_y, l.left_w, l.pane_h);
    draw_pane(m_right, true, l.right_x, l.pane_y, l.right_w, l.pane_h);
    draw_bridge(l.bridge_x, l.pane_y, l.bridge_w, l.pane_h);
    draw_status_bar(l.status_y, l.width);
    if (l.progress_h > 0)
        draw_progress(l.progress_y, l.progress_h);
    draw_menu_bar();
    if (m_open_menu >= 0)
        draw_open_menu();
    if (m_open_drive_picker == 1)
        draw_drive_list(l.right_x, l.pane_y + Layout::banner_h, l.right_w);
    else if (m_open_drive_picker == 0)
        draw_drive_list(l.left_x, l.pane_y + Layout::banner_h, l.left_w);
    if (m_context_menu)
        draw_context_menu();
    if (m_overlay != Overlay::None)
        draw_overlay();
    if (m_veiled)
        draw_veil();
}

App::Layout App::compute_layout(double w, double h) const {
    Layout l;
    l.width = w;
    l.height = h;
    if (frame_shows_work()) {
        l.progress_h = 76;
    } else {
        const double left = m_progress_hold_until > 0 ? m_progress_hold_until - now_seconds() : 0;
        if (left > 0.5)
            l.progress_h = 76;
        else if (left > 0)
            l.progress_h = 34 + 2 * left * 42;
        else
            l.progress_h = m_result.valid ? 34 : 0;
    }
    l.pane_y = l.progress_y + l.progress_h;
    l.status_y = h - Layout::status_h;
    l.pane_h = l.status_y - l.pane_y;
    l.left_w = std::floor((w - l.bridge_w) / 2);
    l.bridge_x = l.left_w;
    l.right_x = l.left_w + l.bridge_w;
    l.right_w = w - l.right_x;
    l.visible_rows = std::max(1, static_cast<int>((l.pane_h - 34 - 26 - 26 - 13) / l.row_h));
    return l;
}

bool App::filter_bar_shown(bool right) const {
    return m_search_pane == (right ? 1 : 0) || !pane_for(right).filter().empty();
}

int App::rows_in_view(bool right) const {
    constexpr double kBands =
        Layout::banner_h + Layout::drive_h + Layout::path_h + Layout::head_h + Layout::hscroll_h;
    const double rows_h =
        m_layout.pane_h - kBands - (filter_bar_shown(right) ? Layout::search_h : 0);
    return std::max(1, static_cast<int>(rows_h / m_layout.row_h));
}

// --- Painting primitives ----------------------------------------------------------------------

App::Rect App::whole_pixels(double x, double y, double w, double h, double at_least) const {
    double right = x + w;
    double bottom = y + h;
    cairo_user_to_device(m_cr, &x, &y);
    cairo_user_to_device(m_cr, &right, &bottom);
    x = std::round(x);
    y = std::round(y);
    right = std::max(std::round(right), x + at_least);
    bottom = std::max(std::round(bottom), y + at_least);
    cairo_device_to_user(m_cr, &x, &y);
    cairo_device_to_user(m_cr, &right, &bottom);
    return {x, y, right - x, bottom - y};
}

void App::clip_to(double x, double y, double w, double h) {
    const Rect area = whole_pixels(x, y, w, h);
    cairo_rectangle(m_cr, area.x, area.y, area.w, area.h);
    cairo_clip(m_cr);
}

void App::set_color(const std::string& color, double alpha) {
    // Magenta belongs to no palette, so a wrong entry shows at once.
    Rgb rgb{1, 0, 1};
    (void)hex_to_rgb(color, rgb);
    cairo_set_source_rgba(m_cr, rgb.r, rgb.g, rgb.b, alpha);
}

void App::fill_rect(double x, double y, double w, double h, const std::string& color,
                    double alpha) {
    set_color(color, alpha);
    cairo_rectangle(m_cr, x, y, w, h);
    cairo_fill(m_cr);
}

void App::fill_band(double x, double y, double w, double h, const std::string& color,
                    double alpha) {
    if (w <= 0 || h <= 0)
        return;
    const Rect area = whole_pixels(x, y, w, h, 1);
    fill_rect(area.x, area.y, area.w, area.h, color, alpha);
}

void App::rounded_rect(double x, double y, double w, double h, double r) {
    const double radius = std::min(r, std::min(w, h) / 2);
    constexpr double kQuarter = G_PI / 2;
    cairo_new_sub_path(m_cr);
    cairo_arc(m_cr, x + w - radius, y + radius, radius, -kQuarter, 0);
    cairo_arc(m_cr, x + w - radius, y + h - radius, radius, 0, kQuarter);
    cairo_arc(m_cr, x + radius, y + h - radius, radius, kQuarter, 2 * kQuarter);
    cairo_arc(m_cr, x + radius, y + radius, radius, 2 * kQuarter, 3 * kQuarter);
    cairo_close_path(m_cr);
}

void App::fill_rounded(double x, double y, double w, double h, double r, const std::string& color,
                       double alpha) {
    set_color(color, alpha);
    rounded_rect(x, y, w, h, r);
    cairo_fill(m_cr);
}

void App::stroke_rounded(double x, double y, double w, double h, double r, const std::string& color,
                         double alpha, double line_width) {
    set_color(color, alpha);
    // Half a unit inside, so that a line of width 1 covers whole pixels.
    rounded_rect(x + 0.5, y + 0.5, w - 1, h - 1, r);
    cairo_set_line_width(m_cr, line_width);
    cairo_stroke(m_cr);
}

double App::text_width(const std::string& text, double size, bool bold, bool mono) {
    if (text.empty())
        return 0;
    int width = 0;
    pango_layout_get_pixel_size(m_texts.layout(m_cr, {text, font_family(mono), size, bold}), &width,
                                nullptr);
    return width;
}

void App::show_layout(PangoLayout* layout, double x, double y, const std::string& color,
                      double alpha) {
    int height = 0;
    pango_layout_get_pixel_size(layout, nullptr, &height);
    set_color(color, alpha);
    cairo_move_to(m_cr, x, y - height / 2.0);
    pango_cairo_show_layout(m_cr, layout);
}

void App::draw_text(const std::string& text, double x, double y, double size,
                    const std::string& color, bool bold, bool mono, double alpha) {
    if (text.empty())
        return;
    show_layout(m_texts.layout(m_cr, {text, font_family(mono), size, bold}), x, y, color, alpha);
}

void App::draw_text_right(const std::string& text, double right_x, double y, double size,
                          const std::string& color, bool bold, bool mono) {
    draw_text(text, right_x - text_width(text, size, bold, mono), y, size, color, bold, mono, 1);
}

double App::draw_text_clipped(const std::string& text, double x, double y, double max_w,
                              double size, const std::string& color, bool bold, bool mono,
                              double alpha) {
    if (text.empty() || max_w <= 0)
        return 0;
    const double width = text_width(text, size, bold, mono);
    if (width <= max_w) {
        draw_text(text, x, y, size, color, bold, mono, alpha);
        return width;
    }
    show_layout(m_texts.layout(m_cr, {text, font_family(mono), size, bold, TextCache::Lines::Middle,
                                      static_cast<int>(max_w * PANGO_SCALE)}),
                x, y, color, alpha);
    return max_w;
}

double App::wrapped_text(const std::string& text, double x, double y, double max_w, double size,
                         const std::string* color, const char* family) {
    if (text.empty() || max_w <= 0)
        return 0;
    PangoLayout* layout =
        m_texts.layout(m_cr, {text, family ? family : font_family(false), size, false,
                              TextCache::Lines::Wrapped, static_cast<int>(max_w * PANGO_SCALE)});
    int height = 0;
    pango_layout_get_pixel_size(layout, nullptr, &height);
    if (color) {
        set_color(*color, 1);
        cairo_move_to(m_cr, x, y);
        pango_cairo_show_layout(m_cr, layout);
    }
    return height;
}

// --- Hit rectangles ---------------------------------------------------------------------------

void App::add_hit(double x, double y, double w, double h, Hit what, int param, bool right,
                  const std::string& label) {
    m_hits.push_back({x, y, w, h, what, param, right, label, m_drawing_overlay, m_drawing_menu});
}

void App::clip_hits(size_t first, double x, double y, double w, double h) {
    for (size_t i = first; i < m_hits.size(); ++i) {
        HitRect& hit = m_hits[i];
        const double left = std::max(hit.x, x);
        const double top = std::max(hit.y, y);
        hit.w = std::min(hit.x + hit.w, x + w) - left;
        hit.h = std::min(hit.y + hit.h, y + h) - top;
        hit.x = left;
        hit.y = top;
    }
    const auto outside = [](const HitRect& hit) { return hit.w <= 0 || hit.h <= 0; };
    m_hits.erase(
        std::remove_if(m_hits.begin() + static_cast<ptrdiff_t>(first), m_hits.end(), outside),
        m_hits.end());
}

size_t App::caret_at(const std::string& text, const PaintedField& field, double x) {
    // No surface of the window is at hand; the scale is that of the frames, since hinting goes by
    // it.
    cairo_surface_t* const surface = cairo_image_surface_create(CAIRO_FORMAT_A8, 1, 1);
    cairo_t* const cr = cairo_create(surface);
    cairo_scale(cr, m_ui_scale, m_ui_scale);
    TextCache texts;
    PangoLayout* const layout = texts.layout(cr, {text, font_family(false), field.text_size});
    int at = 0;
    int after = 0;  // characters from there to the nearest edge
    pango_layout_xy_to_index(layout, static_cast<int>((x - field.text_x) * PANGO_SCALE), 0, &at,
                             &after);
    const char* const shown = pango_layout_get_text(layout);
    const char* const edge = g_utf8_offset_to_pointer(shown + at, after);
    const size_t caret = own_byte(text, static_cast<size_t>(edge - shown));
    cairo_destroy(cr);
    cairo_surface_destroy(surface);
    return caret;
}

void App::paint_on(cairo_t* cr, const std::function<void()>& paint) {
    cairo_t* const before = std::exchange(m_cr, cr);
    paint();
    m_texts.end_frame();
    m_cr = before;
}

const App::HitRect* App::hit_test(double x, double y) const {
    for (auto hit = m_hits.rbegin(); hit != m_hits.rend(); ++hit)
        if (x >= hit->x && x < hit->x + hit->w && y >= hit->y && y < hit->y + hit->h)
            return &*hit;
    return nullptr;
}

const App::HitRect* App::hovered() const {
    if (m_cr)
        return m_frame_hover.what == Hit::None ? nullptr : &m_frame_hover;
    if (m_hover < 0 || static_cast<size_t>(m_hover) >= m_hits.size())
        return nullptr;
    return &m_hits[static_cast<size_t>(m_hover)];
}

const char* App::hit_name(Hit hit) {
    for (const HitName& row : kHitNames)
        if (row.hit == hit)
            return row.name;
    return "?";
}
