// The pointer: a click is resolved against the rectangles of the last frame, topmost first, after
// the gates that keep a busy program, and an open dialogue, to themselves.

#include "app.h"

#include "i18n.h"

#include <algorithm>

namespace {

// What must not be touched while a transfer or a task runs.
bool belongs_to_panes(App::Hit hit) {
    switch (hit) {
    case App::Hit::PaneRow:
    case App::Hit::PaneBanner:
    case App::Hit::PaneHeader:
    case App::Hit::PaneHeaderMenu:
    case App::Hit::PaneBackground:
    case App::Hit::DrivePicker:
    case App::Hit::DriveItem:
    case App::Hit::PathSegment:
    case App::Hit::PathBar:
    case App::Hit::PathEdit:
    case App::Hit::SearchBar:
    case App::Hit::SearchClear:
        return true;
    default:
        return false;
    }
}

}  // namespace

void App::handle_click(double x, double y, int button, guint state, guint32 clicks) {
    const HitRect* found = hit_test(x, y);
    if (!found)
        return;
    // A copy: what the click does may paint a frame, which rebuilds the rectangles.
    const HitRect hit = *found;
    if (busy() && belongs_to_panes(hit.what))
        return;
    if (m_overlay != Overlay::None && !hit.in_overlay)
        return;
    // GTK tells of a double click on top of its two presses; only a row makes something of it.
    if (clicks == 2 && hit.what != Hit::PaneRow)
        return;
    switch (hit.what) {
    case Hit::PaneRow:
        return click_row(hit, button, state, clicks);
    case Hit::PaneBanner:
        commit_rename();
        m_active_right = hit.right;
        break;
    case Hit::PaneBackground:
        commit_rename();
        m_active_right = hit.right;
        if (button != 3 && !(state & (GDK_SHIFT_MASK | GDK_CONTROL_MASK)))
            active_pane().clear_selection();
        break;
    case Hit::BridgeCopy:
        return start_transfer(hit.right, false);
    case Hit::BridgeMove:
        return start_transfer(hit.right, true);
    case Hit::BridgeRefresh:
        return perform(Action::Refresh, 0);
    case Hit::ResultDismiss:
        m_result.valid = false;
        break;
    case Hit::ProgressCancel:
        cancel_work();
        break;
    case Hit::ErrorBanner:
        open_overlay(Overlay::Errors, tr("dlg.errors_title"));
        break;
    case Hit::Overlay:
        return perform(static_cast<Action>(hit.param), 0);
    default:
        return;  // no painter makes the other kinds yet
    }
    request_redraw();
}

void App::click_row(const HitRect& hit, int button, guint state, guint32 clicks) {
    Pane& pane = pane_for(hit.right);
    const bool listed = hit.param >= 0 && static_cast<size_t>(hit.param) < pane.entries().size();
    int row = listed ? hit.param : -1;
    // A rename is committed on the side that it is on, which is the active one until now. It may
    // change the order of the rows; the entry that was clicked is the one that is meant.
    if (active_pane().renaming() &&
        (m_active_right != hit.right || active_pane().rename_target() != hit.param)) {
        const std::string name = listed ? pane.entries()[static_cast<size_t>(row)].name : "";
        commit_rename();
        row = listed ? pane.index_of(name) : -1;
    }
    m_active_right = hit.right;
    if (row < 0)
        return request_redraw();
    if (button == 3) {
        if (!pane.is_selected(row))
            pane.set_cursor(row, true);
        return request_redraw();
    }
    if (clicks == 2) {
        // The release that follows must not select in the folder that has just been entered.
        m_press_pending = m_press_defer_select = false;
        return activate_row(row, hit.right);
    }
    const bool shift = state & GDK_SHIFT_MASK;
    const bool ctrl = state & GDK_CONTROL_MASK;
    if (button == 1) {
        m_press_pending = true;
        m_press_row = row;
        m_press_right = hit.right;
        m_press_defer_select = !shift && !ctrl && pane.is_selected(row);
        if (m_press_defer_select)
            return request_redraw();
    }
    if (shift)
        pane.extend_selection_to(row);
    else if (ctrl)
        pane.toggle_selection(row);
    else
        pane.set_cursor(row, true);
    pane.ensure_cursor_visible(rows_in_view(hit.right));
    request_redraw();
}

void App::handle_release() {
    if (m_press_pending && m_press_defer_select) {
        Pane& pane = pane_for(m_press_right);
        pane.set_cursor(m_press_row, true);
        pane.ensure_cursor_visible(rows_in_view(m_press_right));
        request_redraw();
    }
    m_press_pending = m_press_defer_select = false;
}

void App::handle_motion(double x, double y) {
    m_mouse_x = x;
    m_mouse_y = y;
    const HitRect* hit = hit_test(x, y);
    const int hover = hit ? static_cast<int>(hit - m_hits.data()) : -1;
    if (hover == m_hover)
        return;
    m_hover = hover;
    request_redraw();
}

void App::handle_leave() {
    if (m_hover < 0)
        return;
    m_hover = -1;
    request_redraw();
}

void App::handle_scroll(double x, GdkScrollDirection direction, double delta_y) {
    int step = 0;
    if (direction == GDK_SCROLL_UP)
        step = -3;
    else if (direction == GDK_SCROLL_DOWN)
        step = 3;
    else if (direction == GDK_SCROLL_SMOOTH)
        step = static_cast<int>(std::clamp(3 * delta_y, -1e6, 1e6));
    else
        return;
    // A slow touchpad still moves the list.
    if (direction == GDK_SCROLL_SMOOTH && step == 0 && delta_y != 0)
        step = delta_y > 0 ? 1 : -1;
    if (step == 0)
        return;
    const bool right = x >= m_layout.right_x;
    Pane& pane = pane_for(right);
    pane.set_scroll(pane.scroll() + step, rows_in_view(right));
    request_redraw();
}
