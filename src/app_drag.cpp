// What is held and pulled with the pointer: column edges, the scrollbars of the panes, the grip of
// a dialogue. Each is a mode that begins with the press, takes every motion, and ends with the
// release of any button.

#include "app.h"

#include "settings.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kNarrowest = 40;
constexpr double kWidest = 900;
constexpr double kOverlayMargin = 40;  // of both sides together

}  // namespace

void App::begin_drag(const HitRect& hit, double x, double y) {
    const int side = hit.right ? 1 : 0;
    switch (hit.what) {
    case Hit::ColumnResize:
        activate_side(hit.right);
        m_col_drag = hit.param;
        // The edge jumps to the pointer by no more than half a grip.
        m_col_drag_x = hit.x + hit.w / 2 - column_width_now(hit.param, hit.right);
        break;
    case Hit::PaneHScroll:
        m_pane_hdrag = side;
        drag_pane_hscroll(x);
        break;
    case Hit::ScrollThumb:
        m_dragging_scroll = true;
        m_drag_scroll_right = hit.right;
        m_drag_scroll_offset = y - hit.y + m_pane_vtrack_y[side];
        break;
    case Hit::LogVThumb:
    case Hit::LogHThumb:
        m_log_drag = hit.what == Hit::LogVThumb ? 1 : 2;
        drag_log_scroll(x, y);
        break;
    case Hit::HexThumb:
        m_hex_drag = true;
        drag_hex_scroll(y);
        break;
    case Hit::OverlayResize:
        m_overlay_resize = hit.param == 0 ? 1 : 2;
        break;
    default:
        break;  // nothing else can be pulled
    }
}

bool App::dragging() const {
    return m_log_drag != 0 || m_hex_drag || m_col_drag != kNoColumn || m_pane_hdrag >= 0 ||
           m_overlay_resize != 0 || m_dragging_scroll;
}

bool App::drag_to(double x, double y) {
    if (m_log_drag != 0)
        drag_log_scroll(x, y);
    else if (m_hex_drag)
        drag_hex_scroll(y);
    else if (m_col_drag != kNoColumn)
        set_column_width(m_col_drag, x - m_col_drag_x);
    else if (m_pane_hdrag >= 0)
        drag_pane_hscroll(x);
    else if (m_overlay_resize != 0)
        drag_overlay_grip(x, y);
    else if (m_dragging_scroll)
        drag_pane_vscroll(y);
    else
        return false;
    request_redraw();
    return true;
}

// What has been changed by pulling is written once, at the end.
void App::end_drags() {
    const bool sizes = m_col_drag != kNoColumn || m_overlay_resize != 0;
    const bool scrolling = m_log_drag != 0 || m_hex_drag || m_pane_hdrag >= 0 || m_dragging_scroll;
    m_log_drag = 0;
    m_hex_drag = false;
    m_col_drag = kNoColumn;
    m_pane_hdrag = -1;
    m_overlay_resize = 0;
    m_dragging_scroll = false;
    if (sizes)
        SettingsStore::instance().save();
    if (sizes || scrolling)
        request_redraw();
}

// --- Columns ----------------------------------------------------------------------------------

double App::column_width_now(int column, bool right) const {
    if (column == kNameColumn)
        return m_pane_name_w[right ? 1 : 0];
    return column_width(SettingsStore::instance().get(), kColumnSpecs[column]);
}

void App::set_column_width(int column, double width) {
    Settings& settings = SettingsStore::instance().mutable_get();
    const int chosen = static_cast<int>(std::clamp(width, kNarrowest, kWidest));
    if (column == kNameColumn)
        settings.col_w_name = chosen;
    else
        ::set_column_width(settings, static_cast<ColumnId>(column), chosen);
}

// --- Scrollbars -------------------------------------------------------------------------------

void App::drag_pane_hscroll(double x) {
    if (m_pane_hdrag < 0 || m_pane_htrack_w[m_pane_hdrag] <= 0)
        return;
    const int side = m_pane_hdrag;
    const double share = std::clamp((x - m_pane_htrack_x[side]) / m_pane_htrack_w[side], 0.0, 1.0);
    m_pane_hscroll[side] = share * std::max(0.0, m_pane_content_w[side] - m_pane_view_w[side]);
}

// The reverse of how the thumb is placed, so that it stays under the pointer.
void App::drag_pane_vscroll(double y) {
    const int side = m_drag_scroll_right ? 1 : 0;
    Pane& pane = pane_for(m_drag_scroll_right);
    const int rows = rows_in_view(m_drag_scroll_right);
    const int hidden = static_cast<int>(pane.entries().size()) - rows;
    const double room = m_pane_vtrack_h[side] - m_pane_vthumb_h[side];
    if (hidden <= 0 || room <= 0)
        return;
    const double share = std::clamp((y - m_drag_scroll_offset) / room, 0.0, 1.0);
    pane.set_scroll(static_cast<int>(std::lround(share * hidden)), rows);
}

// --- Dialogues --------------------------------------------------------------------------------

// The panel stays centred, so it grows at both sides by what the pointer moves.
void App::drag_overlay_grip(double x, double y) {
    // A question of the engine may have taken the dialogue's place.
    const Overlay held = m_overlay_resize == 1 ? Overlay::ArchiveView : Overlay::HexView;
    if (m_overlay != held)
        return;
    const auto cut = [](double wanted, double least, double window) {
        return static_cast<int>(std::max(least, std::min(wanted, window - kOverlayMargin)));
    };
    const int w = cut((x - m_layout.width / 2) * 2, m_overlay_min_w, m_layout.width);
    const int h = cut((y - m_layout.height / 2) * 2, m_overlay_min_h, m_layout.height);
    Settings& settings = SettingsStore::instance().mutable_get();
    (m_overlay_resize == 1 ? settings.archive_view_w : settings.hex_view_w) = w;
    (m_overlay_resize == 1 ? settings.archive_view_h : settings.hex_view_h) = h;
}
