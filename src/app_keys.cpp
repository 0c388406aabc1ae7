// The keyboard: one chain of modes, each of which consumes a key or hands it on, with the shortcut
// table of the panes at its end and, for what that leaves over, the search for a name as it is
// typed. The text fields among the modes are in app_fields.cpp.

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
    {GDK_KEY_g, GDK_CONTROL_MASK, Action::LogWindow},
    {GDK_KEY_h, GDK_CONTROL_MASK, Action::ToggleHidden},
    {GDK_KEY_l, GDK_CONTROL_MASK, Action::GoToPath},
    {GDK_KEY_q, GDK_CONTROL_MASK, Action::Quit},
    {GDK_KEY_r, GDK_CONTROL_MASK, Action::Refresh},
    {GDK_KEY_u, GDK_CONTROL_MASK, Action::SwapPanes},
    {GDK_KEY_comma, GDK_CONTROL_MASK, Action::SettingsWindow},
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

// By the letter a. A key that types the same in several layouts is listed with one of them alone,
// so each is asked.
bool is_latin(GdkKeymap* keymap, int layout) {
    GdkKeymapKey* keys = nullptr;
    int count = 0;
    gdk_keymap_get_entries_for_keyval(keymap, GDK_KEY_a, &keys, &count);
    bool found = false;
    for (int i = 0; i < count && !found; ++i) {
        guint typed = 0;
        gdk_keymap_translate_keyboard_state(keymap, keys[i].keycode, GdkModifierType{}, layout,
                                            &typed, nullptr, nullptr, nullptr);
        found = typed == GDK_KEY_a;
    }
    g_free(keys);
    return found;
}

// The first of the keyboard's layouts that types Latin letters. -1: none does, or the one in use is
// such a layout itself, whose keys mean what they type.
int latin_layout(GdkKeymap* keymap, int in_use) {
    constexpr int kLayouts = 4;  // more there are not
    if (is_latin(keymap, in_use))
        return -1;
    for (int layout = 0; layout < kLayouts; ++layout)
        if (is_latin(keymap, layout))
            return layout;
    return -1;
}

}  // namespace

bool App::is_return(guint key) {
    return key == GDK_KEY_Return || key == GDK_KEY_KP_Enter;
}

void App::handle_key(GdkEventKey* event) {
    if (m_veiled)
        return;
    // A rename whose entry is no longer listed is nowhere to be seen, so it must not take keys.
    if (active_pane().renaming() && active_pane().rename_target() < 0)
        active_pane().cancel_rename();
    sync_input_method();
    if (!input_method_takes(event))
        handle_plain_key(event);
    sync_input_method();
}

void App::handle_plain_key(GdkEventKey* event) {
    if (m_overlay != Overlay::None && handle_overlay_key(event))
        return request_redraw();
    if (event->keyval == GDK_KEY_Escape && close_menus())
        return request_redraw();
    if (m_path_edit >= 0 && handle_path_edit_key(event))
        return request_redraw();
    if (active_pane().renaming() && handle_rename_key(event))
        return request_redraw();
    if (m_search_pane >= 0 && handle_search_key(event))
        return request_redraw();
    if (busy()) {
        if (event->keyval == GDK_KEY_Escape)
            escape_work();
        return request_redraw();
    }
    const guint latin = latin_key(*event);
    if (handle_shortcut(event->keyval, event->state) ||
        (latin != event->keyval && handle_shortcut(latin, event->state)))
        return;
    type_ahead(typed_text(*event), now_seconds());
}

// One that was meant for a question, which may have gone or not have come yet, stops nothing; nor
// does a key that is held and has answered one.
void App::escape_work() {
    const double now = now_seconds();
    if (now < m_conflict_deaf_until)
        m_conflict_deaf_until = now + kConflictDeafSeconds;
    else
        cancel_work();
}

guint App::latin_key(const GdkEventKey& event) {
    const guint lower = gdk_keyval_to_lower(event.keyval);
    const bool latin = lower >= GDK_KEY_a && lower <= GDK_KEY_z;
    if (latin || (event.state & (GDK_CONTROL_MASK | GDK_SHIFT_MASK)) != GDK_CONTROL_MASK)
        return event.keyval;
    GdkKeymap* const keymap = gdk_keymap_get_for_display(gdk_display_get_default());
    const int layout = latin_layout(keymap, event.group);
    guint key = 0;
    if (layout < 0 || !gdk_keymap_translate_keyboard_state(
                          keymap, event.hardware_keycode, static_cast<GdkModifierType>(event.state),
                          layout, &key, nullptr, nullptr, nullptr))
        return event.keyval;
    return key;
}

bool App::handle_shortcut(guint key, guint state) {
    Pane& pane = active_pane();
    const bool shift = state & GDK_SHIFT_MASK;
    for (const KeyRow& row : kActionKeys) {
        if (row.key != key || (state & row.needed) != row.needed)
            continue;
        perform(row.action, 0);
        return true;
    }
    for (const MoveRow& row : kMoveKeys) {
        if (row.key != key)
            continue;
        const int rows = rows_in_view(m_active_right);
        pane.move_cursor(row.move, shift, rows);
        pane.ensure_cursor_visible(rows);
        request_redraw();
        return true;
    }
    if (key == GDK_KEY_Tab || key == GDK_KEY_ISO_Left_Tab)
        m_active_right = !m_active_right;
    else if (is_return(key) || key == GDK_KEY_Right)
        activate_row(pane.cursor(), m_active_right);
    else if (key == GDK_KEY_Escape)
        pane.clear_selection();
    else if (key == GDK_KEY_space)
        pane.toggle_selection(pane.cursor());
    else if (key == GDK_KEY_f && state & GDK_CONTROL_MASK)
        begin_search(m_active_right);
    else
        return false;
    request_redraw();
    return true;
}

void App::type_ahead(const std::string& text, double now) {
    if (text.empty())
        return;
    if (now - m_typeahead_time > 1.0)
        m_typeahead.clear();
    m_typeahead_time = now;
    m_typeahead += text;
    const std::string needle = su::lower_ascii(m_typeahead);
    Pane& pane = active_pane();
    const auto found =
        std::find_if(pane.entries().begin(), pane.entries().end(), [&needle](const FsEntry& entry) {
            return su::starts_with(su::lower_ascii(entry.name), needle);
        });
    if (found != pane.entries().end()) {
        pane.set_cursor(static_cast<int>(found - pane.entries().begin()), true);
        pane.ensure_cursor_visible(rows_in_view(m_active_right));
    }
    request_redraw();
}

bool App::handle_overlay_key(GdkEventKey* event) {
    if (conflict_too_new())
        return true;
    if (m_overlay == Overlay::HexView)
        return handle_hex_key(event);
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
    if (perform_accelerator(*event))
        return true;
    const bool tab = event->keyval == GDK_KEY_Tab || event->keyval == GDK_KEY_ISO_Left_Tab;
    if (m_overlay == Overlay::Properties && m_owner_editable && (m_owner_focus >= 0 || tab))
        handle_owner_key(event);
    else if (m_overlay_scrolls)
        scroll_overlay(event->keyval);
    else if (takes_text(m_overlay))
        handle_input_key(event);
    return true;
}

bool App::perform_accelerator(const GdkEventKey& event) {
    if (!(event.state & GDK_MOD1_MASK) || event.keyval >= 128)
        return false;
    const char letter = static_cast<char>(std::toupper(static_cast<int>(event.keyval)));
    const auto found = m_overlay_accels.find(letter);
    if (found == m_overlay_accels.end())
        return false;
    const Action action = found->second;  // performing it rebuilds the map
    if (repeats_hex_question(action, letter))
        return true;
    const bool asked = hex_asks();
    Log::infof("dialog accel: Alt+%c → %s", letter, action_name(action));
    perform(action, 0);
    if (!asked && hex_asks())
        m_hex_asked_by = letter;
    return true;
}

// Any other key leaves a list that follows its end at that.
void App::scroll_overlay(guint key) {
    constexpr int kEnd = 1 << 30;  // the painter cuts it down to the last page
    const int page = std::max(m_overlay_page, 1);
    // Below 0 it is at the end, where the last page is.
    const int from = overlay_scroll() < 0 ? m_log_max_scroll : overlay_scroll();
    int to = 0;
    switch (key) {
    case GDK_KEY_Home:
        break;
    case GDK_KEY_End:
        to = kEnd;
        break;
    case GDK_KEY_Up:
        to = from - overlay_line();
        break;
    case GDK_KEY_Down:
        to = from + overlay_line();
        break;
    case GDK_KEY_Page_Up:
        to = from - page;
        break;
    case GDK_KEY_Page_Down:
        to = from + page;
        break;
    default:
        return;
    }
    overlay_scroll() = std::max(to, 0);
}
