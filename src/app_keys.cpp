// The keyboard: one chain of modes, each of which consumes a key or hands it on, with the shortcut
// table of the panes at its end.

#include "app.h"

#include "logger.h"
#include "settings.h"
#include "strutil.h"

#include <algorithm>
#include <cctype>
#include <gdk/gdkkeysyms.h>
#include <iterator>

namespace {

// A key that is an action and nothing more. The first row that fits counts. Letters are as they
// arrive without Shift, so that Ctrl+Shift+A means nothing.
struct KeyRow {
    guint key;
    guint needed;  // modifiers that have to be held; others do not matter
    Action action;
};

constexpr KeyRow kActionKeys[] = {
    {GDK_KEY_Home, GDK_CONTROL_MASK, Action::GoHome},
    {GDK_KEY_Left, GDK_MOD1_MASK, Action::GoBack},
    {GDK_KEY_Right, GDK_MOD1_MASK, Action::GoForward},
    {GDK_KEY_Left, 0, Action::GoUp},
    {GDK_KEY_Return, GDK_MOD1_MASK, Action::Properties},
    {GDK_KEY_KP_Enter, GDK_MOD1_MASK, Action::Properties},
    {GDK_KEY_BackSpace, 0, Action::GoUp},
    {GDK_KEY_F2, 0, Action::Rename},
    {GDK_KEY_F5, 0, Action::CopyToOther},
    {GDK_KEY_F6, 0, Action::MoveToOther},
    {GDK_KEY_F7, 0, Action::NewFolder},
    {GDK_KEY_Delete, 0, Action::Delete},
    {GDK_KEY_plus, 0, Action::SelectPattern},
    {GDK_KEY_KP_Add, 0, Action::SelectPattern},
    {GDK_KEY_asterisk, 0, Action::InvertSelection},
    {GDK_KEY_KP_Multiply, 0, Action::InvertSelection},
    {GDK_KEY_a, GDK_CONTROL_MASK, Action::SelectAll},
    {GDK_KEY_c, GDK_CONTROL_MASK, Action::CopyPath},
    {GDK_KEY_d, GDK_CONTROL_MASK, Action::BookmarkAdd},
    {GDK_KEY_h, GDK_CONTROL_MASK, Action::ToggleHidden},
    {GDK_KEY_l, GDK_CONTROL_MASK, Action::GoToPath},
    {GDK_KEY_q, GDK_CONTROL_MASK, Action::Quit},
    {GDK_KEY_r, GDK_CONTROL_MASK, Action::Refresh},
    {GDK_KEY_u, GDK_CONTROL_MASK, Action::SwapPanes},
};

struct MoveRow {
    guint key;
    Pane::Move move;
};

constexpr MoveRow kMoveKeys[] = {
    {GDK_KEY_Up, Pane::Move::Up},          {GDK_KEY_Down, Pane::Move::Down},
    {GDK_KEY_Page_Up, Pane::Move::PageUp}, {GDK_KEY_Page_Down, Pane::Move::PageDown},
    {GDK_KEY_Home, Pane::Move::First},     {GDK_KEY_End, Pane::Move::Last},
};

bool is_return(guint key) {
    return key == GDK_KEY_Return || key == GDK_KEY_KP_Enter;
}

// The text that a key types, or empty.
std::string typed_text(guint key) {
    const guint32 unicode = gdk_keyval_to_unicode(key);
    if (unicode < 32)
        return {};
    char utf8[6];
    const int length = g_unichar_to_utf8(unicode, utf8);
    return std::string(utf8, static_cast<size_t>(length));
}

// The first line of the clipboard; a field holds no more.
std::string clipboard_line() {
    char* const text = gtk_clipboard_wait_for_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD));
    std::string line = text ? text : "";
    g_free(text);
    return line.substr(0, line.find_first_of("\r\n"));
}

bool takes_text(App::Overlay overlay) {
    switch (overlay) {
    case App::Overlay::NewFolder:
    case App::Overlay::NewFile:
    case App::Overlay::Pack:
    case App::Overlay::SelectPattern:
    case App::Overlay::GoToPath:
        return true;
    default:
        return false;
    }
}

}  // namespace

void App::handle_key(GdkEventKey* event) {
    if (m_overlay != Overlay::None && handle_overlay_key(event))
        return request_redraw();
    // A rename whose entry is no longer listed is nowhere to be seen, so it must not take keys.
    if (active_pane().renaming() && active_pane().rename_target() < 0)
        active_pane().cancel_rename();
    if (active_pane().renaming() && handle_rename_key(event))
        return request_redraw();
    if (busy()) {
        if (event->keyval == GDK_KEY_Escape)
            cancel_work();
        return request_redraw();
    }
    handle_shortcut(event);
}

void App::handle_shortcut(GdkEventKey* event) {
    Pane& pane = active_pane();
    const guint key = event->keyval;
    const bool shift = event->state & GDK_SHIFT_MASK;
    for (const KeyRow& row : kActionKeys)
        if (row.key == key && (event->state & row.needed) == row.needed)
            return perform(row.action, 0);
    for (const MoveRow& row : kMoveKeys) {
        if (row.key != key)
            continue;
        const int rows = rows_in_view(m_active_right);
        pane.move_cursor(row.move, shift, rows);
        pane.ensure_cursor_visible(rows);
        return request_redraw();
    }
    if (key == GDK_KEY_Tab || key == GDK_KEY_ISO_Left_Tab)
        m_active_right = !m_active_right;
    else if (is_return(key) || key == GDK_KEY_Right)
        return activate_row(pane.cursor(), m_active_right);
    else if (key == GDK_KEY_Escape)
        pane.clear_selection();
    else if (key == GDK_KEY_space)
        pane.toggle_selection(pane.cursor());
    else
        return;
    request_redraw();
}

bool App::handle_overlay_key(GdkEventKey* event) {
    const bool conflict = m_overlay == Overlay::Conflict;
    if (event->keyval == GDK_KEY_Escape) {
        perform(conflict ? Action::ConflictSkip : Action::OverlayCancel, 0);
        return true;
    }
    if (is_return(event->keyval)) {
        // Return never answers a conflict, so that it cannot overwrite by accident.
        if (m_overlay == Overlay::ConfirmDelete)
            perform(SettingsStore::instance().get().delete_to_trash ? Action::DeleteToTrash
                                                                    : Action::DeletePermanent,
                    0);
        else if (!conflict)
            perform(Action::OverlayOk, 0);
        return true;
    }
    if (event->state & GDK_MOD1_MASK && event->keyval < 128) {
        const char letter = static_cast<char>(std::toupper(static_cast<int>(event->keyval)));
        const auto found = m_overlay_accels.find(letter);
        if (found != m_overlay_accels.end()) {
            const Action action = found->second;  // performing it rebuilds the map
            Log::infof("dialog accel: Alt+%c → %s", letter, action_name(action));
            perform(action, 0);
            return true;
        }
    }
    if (takes_text(m_overlay))
        handle_input_key(event);
    return true;
}

// No Home, End or Delete here. What the Delete key types, 127, is a character like any other.
void App::handle_input_key(GdkEventKey* event) {
    const guint key = event->keyval;
    const bool ctrl = event->state & GDK_CONTROL_MASK;
    if (key == GDK_KEY_Left) {
        m_input_caret = su::previous_character(m_input_buffer, m_input_caret);
    } else if (key == GDK_KEY_Right) {
        m_input_caret = su::next_character(m_input_buffer, m_input_caret);
    } else if (key == GDK_KEY_BackSpace) {
        const size_t start = su::previous_character(m_input_buffer, m_input_caret);
        m_input_buffer.erase(start, m_input_caret - start);
        m_input_caret = start;
    } else if (ctrl && key == GDK_KEY_v) {
        input_insert(clipboard_line());
    } else if (!ctrl && !(event->state & GDK_MOD1_MASK)) {
        input_insert(typed_text(key));
    }
}

void App::input_insert(const std::string& text) {
    m_input_buffer.insert(m_input_caret, text);
    m_input_caret += text.size();
}

bool App::handle_rename_key(GdkEventKey* event) {
    Pane& pane = active_pane();
    const guint key = event->keyval;
    if (is_return(key))
        commit_rename();
    else if (key == GDK_KEY_Escape)
        pane.cancel_rename();
    else if (key == GDK_KEY_Left)
        pane.rename_move_caret(-1);
    else if (key == GDK_KEY_Right)
        pane.rename_move_caret(1);
    else if (key == GDK_KEY_Home)
        pane.rename_set_caret(0);
    else if (key == GDK_KEY_End)
        pane.rename_set_caret(pane.rename_buffer().size());
    else if (key == GDK_KEY_BackSpace)
        pane.rename_backspace();
    else if (key == GDK_KEY_Delete)
        pane.rename_delete();
    else
        pane.rename_insert(typed_text(key));
    return true;
}
