// The pointer: a click is resolved against the rectangles of the last frame, topmost first, after
// the gates that keep a busy program, and an open dialogue, to themselves. What is held and pulled
// is in app_drag.cpp, what is dragged and dropped in app_dnd.cpp.

#include "app.h"

#include "i18n.h"

#include <algorithm>
#include <utility>

namespace {

constexpr int kWheelRows = 3;
constexpr double kWheelUnits = 60;  // sideways

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

struct CursorRow {
    App::Hit hit;
    const char* name;
};

constexpr CursorRow kCursors[] = {
    {App::Hit::ColumnResize, "col-resize"},
    {App::Hit::OverlayResize, "se-resize"},
    {App::Hit::PaneHScroll, "default"},
};

const char* cursor_for(App::Hit hit) {
    for (const CursorRow& row : kCursors)
        if (row.hit == hit)
            return row.name;
    return nullptr;
}

// The path down to its first so many components; "/" for none of them.
std::string leading_components(const std::string& path, int count) {
    size_t end = 0;
    for (; count > 0; --count) {
        const size_t begin = path.find_first_not_of('/', end);
        if (begin == std::string::npos)
            break;
        end = std::min(path.find('/', begin), path.size());
    }
    return end == 0 ? "/" : path.substr(0, end);
}

// -1, 0 or 1.
double wheel_direction(GdkScrollDirection direction) {
    return direction == GDK_SCROLL_UP ? -1 : direction == GDK_SCROLL_DOWN ? 1 : 0;
}

}  // namespace

// --- Clicks -----------------------------------------------------------------------------------

void App::handle_click(double x, double y, int button, guint state, guint32 clicks) {
    if (m_veiled)
        return;
    end_composition();
    if (conflict_too_new())
        return;
    const HitRect* found = hit_test(x, y);
    if (clicks != 2)
        note_press(found);
    if (found && busy() && belongs_to_panes(found->what))
        return;
    if (click_beside_menu(found))
        return request_redraw();
    if (!found)
        return;
    // A copy: what the click does may paint a frame, which rebuilds the rectangles.
    const HitRect hit = *found;
    if (m_overlay != Overlay::None && !hit.in_overlay)
        return;
    if (hit.what == Hit::PaneRow)
        return click_row(hit, x, y, button, state, clicks);
    // GTK tells of a double click on top of its two presses; only a row makes something of it.
    if (clicks == 2)
        return;
    click_hit(hit, x, y, button, state);
    request_redraw();
}

// Only two presses on the same entry are a double click. The first of them may have closed a menu,
// a list or a dialogue above the row, or the list may have moved in between.
void App::note_press(const HitRect* hit) {
    m_press_before_last = std::exchange(m_last_press, {});
    if (hit && hit->what == Hit::PaneRow && m_overlay == Overlay::None && !menu_open() &&
        m_open_drive_picker < 0)
        m_last_press = {m_painted_order[hit->right ? 1 : 0].visit, hit->label};
}

bool App::click_beside_menu(const HitRect* hit) {
    const Hit what = hit ? hit->what : Hit::None;
    if (m_context_menu && what != Hit::MenuItem) {
        m_context_menu = m_column_menu = false;
    } else if (m_open_drive_picker >= 0 && what != Hit::DriveItem && what != Hit::DrivePicker) {
        m_open_drive_picker = -1;
    } else if (m_open_menu >= 0 && !(hit && hit->in_menu)) {
        m_open_menu = -1;
    } else {
        return false;
    }
    forget_menu_input();
    return true;
}

void App::click_hit(const HitRect& hit, double x, double y, int button, guint state) {
    switch (hit.what) {
    case Hit::MenuTitle:
        return click_menu_title(hit.param);
    case Hit::MenuItem:
        return click_menu_item(static_cast<Action>(hit.param));
    case Hit::BookmarkItem:
        return click_bookmark_item(hit.param);
    case Hit::RecentItem:
        return click_recent_item(hit.param);
    case Hit::PaneBanner:
        commit_rename();
        m_active_right = hit.right;
        return;
    case Hit::PaneHeader:
        return button == 3 ? open_column_menu(x, y, hit.right) : click_header(hit);
    case Hit::PaneHeaderMenu:
        return button == 3 ? open_column_menu(x, y, hit.right) : void();
    case Hit::PaneBackground:
        commit_rename();
        m_active_right = hit.right;
        if (button == 3)
            open_context_menu(x, y, hit.right);
        else if (!(state & (GDK_SHIFT_MASK | GDK_CONTROL_MASK)))
            active_pane().clear_selection();
        return;
    case Hit::DrivePicker:
        return click_drive_picker(hit.right);
    case Hit::DriveItem:
        return click_drive_item(hit.param);
    case Hit::PathSegment:
        return click_path_segment(hit);
    case Hit::PathBar:
    case Hit::PathEdit:
        return click_path_bar(hit, x);
    case Hit::SearchBar:
    case Hit::SearchClear:
        return click_search_bar(hit);
    case Hit::ResultDismiss:
        m_result.valid = false;
        m_progress_hold_until = 0;
        return;
    case Hit::BridgeCopy:
        return commit_rename_before(Action::CopyToOther) ? start_transfer(hit.right, false)
                                                         : void();
    case Hit::BridgeMove:
        return commit_rename_before(Action::MoveToOther) ? start_transfer(hit.right, true) : void();
    case Hit::BridgePack:
        return click_command(Action::PackToOther);
    case Hit::BridgeRefresh:
        return click_command(Action::Refresh);
    case Hit::BridgeNewFolder:
        return click_command(Action::NewFolder);
    case Hit::BridgeDelete:
        return click_command(Action::Delete);
    case Hit::BridgeSearch:
        return click_command(Action::SearchPane);
    case Hit::BridgeHex:
        return click_command(Action::ViewHex);
    case Hit::BridgeTerminal:
        return click_command(Action::OpenTerminal);
    case Hit::BridgeTrash:
        return click_command(Action::GoToTrash);
    case Hit::OverlayResize:
    case Hit::ColumnResize:
    case Hit::PaneHScroll:
    case Hit::ScrollThumb:
    case Hit::LogVThumb:
    case Hit::LogHThumb:
    case Hit::HexThumb:
        return begin_drag(hit, x, y);
    case Hit::HexByte:
        return click_hex_byte(hit);
    case Hit::HexFindField:
        m_hex_find_focus = true;
        m_hex_find_caret = m_hex_find.size();
        return;
    case Hit::Overlay:
        if (!repeats_hex_question(static_cast<Action>(hit.param), 0))
            perform(static_cast<Action>(hit.param), 0);
        return;
    case Hit::ListItem:
        if (m_overlay == Overlay::Bookmarks)
            click_bookmark(hit.param);
        else if (m_overlay == Overlay::LanguagePicker)
            pick_language(hit.param);
        else if (m_overlay == Overlay::FontPicker)
            pick_font(hit.param);
        return;
    case Hit::PackFormat:
        return click_pack_format(hit);
    case Hit::PermBit:
        return click_permission(hit.param);
    case Hit::OwnerField:
        return click_owner_field(hit.param, x);
    case Hit::ProgressCancel:
        return cancel_work();
    case Hit::ErrorBanner:
        return open_overlay(Overlay::Errors, tr("dlg.errors_title"));
    case Hit::None:     // painted for another dialogue
    case Hit::PaneRow:  // click_row()
        return;
    }
}

// --- Panes ------------------------------------------------------------------------------------

void App::activate_side(bool right) {
    if (right != m_active_right)
        commit_rename();
    m_active_right = right;
}

void App::click_row(const HitRect& hit, double x, double y, int button, guint state,
                    guint32 clicks) {
    Pane& pane = pane_for(hit.right);
    const RowOrder painted = m_painted_order[hit.right ? 1 : 0];
    // A commit may change the order of the rows; the entry that was clicked is the one that is
    // meant.
    const int clicked = row_now(hit.right, hit.param, hit.label, painted);
    if (!pane.renaming() || pane.rename_target() != clicked)
        commit_rename();
    m_active_right = hit.right;
    const int row = row_now(hit.right, hit.param, hit.label, painted);
    if (row < 0)
        return request_redraw();
    if (pane.renaming() && click_rename_box(x, y))
        return request_redraw();
    if (button == 3) {
        if (!pane.is_selected(row))
            pane.set_cursor(row, true);
        return open_context_menu(x, y, hit.right);
    }
    if (clicks == 2) {
        const EntryName entry = {painted.visit, hit.label};
        if (m_last_press == entry && m_press_before_last != entry)
            return;
        m_press_pending = m_press_defer_select = false;
        return activate_row(row, hit.right);
    }
    if (button == 1) {
        m_press_pending = true;
        m_press_x = x;
        m_press_y = y;
        m_press_row = row;
        m_press_right = hit.right;
        m_press_name = hit.label;
        m_press_order = {pane.generation(), pane.visit()};
    }
    select_row(row, hit.right, button, state);
    request_redraw();
}

void App::select_row(int row, bool right, int button, guint state) {
    Pane& pane = pane_for(right);
    const bool shift = state & GDK_SHIFT_MASK;
    const bool ctrl = state & GDK_CONTROL_MASK;
    // The press may be the start of a drag of all that is selected.
    m_press_defer_select = button == 1 && !shift && !ctrl && pane.is_selected(row);
    if (m_press_defer_select)
        return;
    if (shift)
        pane.extend_selection_to(row);
    else if (ctrl)
        pane.toggle_selection(row);
    else
        pane.set_cursor(row, true);
    pane.ensure_cursor_visible(rows_in_view(right));
}

// False: the point is beside the box.
bool App::click_rename_box(double x, double y) {
    const Rect& box = m_rename_field.box;
    if (x < box.x || x >= box.x + box.w || y < box.y || y >= box.y + box.h)
        return false;
    Pane& pane = active_pane();
    pane.rename_set_caret(caret_at(pane.rename_buffer(), m_rename_field, x));
    return true;
}

// A rename on this side goes on, and its entry stays in view.
void App::click_header(const HitRect& hit) {
    activate_side(hit.right);
    Pane& pane = active_pane();
    pane.toggle_sort_column(static_cast<dir_lister::SortKey>(hit.param));
    if (pane.renaming())
        pane.ensure_cursor_visible(rows_in_view(hit.right));
}

void App::click_path_segment(const HitRect& hit) {
    if (!commit_rename())
        return;
    m_active_right = hit.right;
    Pane& pane = active_pane();
    pane.navigate_to(leading_components(pane.path(), hit.param), show_hidden());
}

// In a field that is open already the text stays as it is.
void App::click_path_bar(const HitRect& hit, double x) {
    if (!commit_rename())
        return;
    m_active_right = hit.right;
    if (m_path_edit != (hit.right ? 1 : 0))
        begin_path_edit(hit.right);
    else if (hit.what == Hit::PathEdit)
        m_path_caret = caret_at(m_path_buffer, m_path_field, x);
}

void App::click_search_bar(const HitRect& hit) {
    if (!commit_rename())
        return;
    m_active_right = hit.right;
    if (hit.what == Hit::SearchBar)
        return begin_search(hit.right);
    // The cross is the side's own, whichever side's bar has the keys.
    m_search_pane = hit.right ? 1 : 0;
    end_search(true);
}

// The message about a name that was refused is not covered by what the command would show.
void App::click_command(Action action) {
    if (commit_rename_before(action))
        perform(action, 0);
}

int App::row_now(bool right, int row, const std::string& name, const RowOrder& order) const {
    const Pane& pane = pane_for(right);
    if (pane.visit() != order.visit)
        return -1;
    return pane.generation() == order.generation ? row : pane.index_of(name);
}

int App::pressed_row() const {
    return m_press_pending ? row_now(m_press_right, m_press_row, m_press_name, m_press_order) : -1;
}

void App::handle_release() {
    const int row = m_press_defer_select ? pressed_row() : -1;
    if (row >= 0) {
        Pane& pane = pane_for(m_press_right);
        pane.set_cursor(row, true);
        pane.ensure_cursor_visible(rows_in_view(m_press_right));
        request_redraw();
    }
    m_press_pending = m_press_defer_select = false;
    end_drags();
}

// --- Hover ------------------------------------------------------------------------------------

void App::handle_motion(double x, double y, GdkEventMotion* event) {
    m_mouse_x = x;
    m_mouse_y = y;
    if (m_veiled)
        return;
    if (!drag_to(x, y) && !(event && pull_rows(event)))
        hover_over(hit_test(x, y));
}

void App::hover_over(const HitRect* hit) {
    slide_to_menu(hit);
    light(hit);
}

void App::light(const HitRect* hit) {
    show_cursor(hit ? cursor_for(hit->what) : nullptr);
    hover_drive(hit);
    const int hover = hit ? static_cast<int>(hit - m_hits.data()) : -1;
    // A row and the mark in it are one; the mark's number is turned over.
    int list_hover = hit && hit->what == Hit::ListItem ? hit->param : -1;
    if (hit && hit->what == Hit::ListItem && hit->param < 0)
        list_hover = ~hit->param;
    if (!hover_menu(hit) && hover == m_hover && list_hover == m_list_hover)
        return;
    m_hover = hover;
    m_list_hover = list_hover;
    request_redraw();
}

// The rectangles of a new frame have other numbers, and another one may lie below the pointer.
void App::light_again() {
    if (m_hover >= 0 && !dragging())
        light(hit_test(m_mouse_x, m_mouse_y));
}

void App::show_cursor(const char* name) {
    GdkWindow* const window = m_canvas ? gtk_widget_get_window(m_canvas) : nullptr;
    if (name == m_cursor_name || !window)
        return;
    m_cursor_name = name;
    // Null where the theme has none of that name, which is the ordinary cursor again.
    GdkCursor* const cursor =
        name ? gdk_cursor_new_from_name(gdk_window_get_display(window), name) : nullptr;
    gdk_window_set_cursor(window, cursor);
    if (cursor)
        g_object_unref(cursor);
}

void App::handle_leave() {
    hover_drive(nullptr);
    if (!hover_menu(nullptr) && m_hover < 0)
        return;
    m_hover = m_list_hover = -1;
    request_redraw();
}

// --- Wheel ------------------------------------------------------------------------------------

void App::handle_scroll(double x, GdkScrollDirection direction, double delta_y, guint state) {
    if (m_veiled)
        return;
    const bool smooth = direction == GDK_SCROLL_SMOOTH;
    const double turn = smooth ? std::clamp(delta_y, -1e6, 1e6) : wheel_direction(direction);
    if (scroll_menu(kWheelRows * turn))
        return;
    if (m_overlay == Overlay::HexView) {
        const auto step = static_cast<int64_t>(kWheelRows * turn);
        m_hex_line = std::max<int64_t>(0, m_hex_line + step);
        return step == 0 ? void() : request_redraw();
    }
    const bool in_list = m_overlay != Overlay::None && m_overlay_scrolls;
    const bool in_units = in_list && overlay_line() > 1;
    const int rows = static_cast<int>((in_units ? overlay_line() : kWheelRows) * turn);
    const bool sideways = state & GDK_SHIFT_MASK;
    if (in_list && m_overlay == Overlay::LogView && sideways) {
        const int units = static_cast<int>(kWheelUnits * turn);
        m_log_hscroll = std::max(0.0, m_log_hscroll + units);
        return units == 0 ? void() : request_redraw();
    }
    if (turn == 0 || (in_list && rows == 0))
        return;
    request_redraw();
    if (in_list) {
        // Below 0 it is at the end, where the last page is.
        const int from = overlay_scroll() < 0 ? m_log_max_scroll : overlay_scroll();
        overlay_scroll() = std::max(0, from + rows);
        return;
    }
    // A slow touchpad still moves the list.
    const int step = rows != 0 ? rows : turn > 0 ? 1 : -1;
    if (drive_list_at(m_mouse_x, m_mouse_y))
        return scroll_drive_list(step);
    const bool right = x >= m_layout.right_x;
    if (sideways) {
        const int side = right ? 1 : 0;
        const double last = std::max(0.0, m_pane_content_w[side] - m_pane_view_w[side]);
        m_pane_hscroll[side] = std::clamp(m_pane_hscroll[side] + kWheelUnits * turn, 0.0, last);
        return;
    }
    Pane& pane = pane_for(right);
    pane.set_scroll(pane.scroll() + step, rows_in_view(right));
}
