// The text fields: path bar, filter bar, rename and the input line of dialogues. Each keeps a UTF-8
// text and a caret in bytes, which steps over whole characters.

#include "app.h"

#include "dir_lister.h"
#include "format.h"
#include "logger.h"
#include "paths.h"
#include "strutil.h"

#include <algorithm>
#include <cerrno>
#include <gdk/gdkkeysyms.h>

namespace {

// The first line of the clipboard; a field holds no more.
std::string clipboard_line() {
    char* const text = gtk_clipboard_wait_for_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD));
    std::string line = text ? text : "";
    g_free(text);
    return line.substr(0, line.find_first_of("\r\n"));
}

enum class Edit { None, Moved, Changed };

void insert(std::string& text, size_t& caret, const std::string& inserted) {
    text.insert(caret, inserted);
    caret += inserted.size();
}

Edit move_caret(guint key, const std::string& text, size_t& caret) {
    if (key == GDK_KEY_Left)
        caret = su::previous_character(text, caret);
    else if (key == GDK_KEY_Right)
        caret = su::next_character(text, caret);
    else
        return Edit::None;
    return Edit::Moved;
}

Edit erase_before(std::string& text, size_t& caret) {
    const size_t start = su::previous_character(text, caret);
    text.erase(start, caret - start);
    caret = start;
    return Edit::Changed;
}

// The keys that the path bar and the filter bar have in common.
Edit edit_line(guint key, std::string& text, size_t& caret) {
    if (key == GDK_KEY_BackSpace)
        return erase_before(text, caret);
    if (key == GDK_KEY_Delete) {
        text.erase(caret, su::next_character(text, caret) - caret);
        return Edit::Changed;
    }
    if (key == GDK_KEY_Home || key == GDK_KEY_End) {
        caret = key == GDK_KEY_Home ? 0 : text.size();
        return Edit::Moved;
    }
    return move_caret(key, text, caret);
}

std::string trimmed(const std::string& text) {
    const size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos)
        return {};
    // What is left begins with something else than a blank, but maybe with a line feed.
    const size_t end = text.find_last_not_of(" \t\n");
    return end == std::string::npos ? std::string() : text.substr(begin, end + 1 - begin);
}

std::string without_quotes(const std::string& text, char quote) {
    const bool quoted = text.size() >= 2 && text.front() == quote && text.back() == quote;
    return quoted ? text.substr(1, text.size() - 2) : text;
}

std::string without_scheme(const std::string& text) {
    if (!su::starts_with(text, "file://"))
        return text;
    char* const name = g_filename_from_uri(text.c_str(), nullptr, nullptr);
    std::string path = name ? name : text;
    g_free(name);
    return path;
}

// The folder that a person means who types or pastes this while another one is shown. Empty if
// there is nothing in it.
std::string meant_path(const std::string& typed, const std::string& shown) {
    const std::string text =
        without_scheme(without_quotes(without_quotes(trimmed(typed), '\''), '"'));
    if (text.empty() || text[0] == '/')
        return text;
    return text[0] == '~' ? real_home() + text.substr(1) : su::join_path(shown, text);
}

}  // namespace

// --- All fields -------------------------------------------------------------------------------

App::FieldFocus App::focused_field() const {
    if (m_overlay == Overlay::HexView)
        return m_hex_find_focus && !hex_asks() ? FieldFocus{TextField::HexFind, 0} : FieldFocus{};
    if (m_overlay != Overlay::None)
        return m_overlay == Overlay::Properties && m_owner_editable && m_owner_focus >= 0
                   ? FieldFocus{TextField::Owner, m_owner_focus}
               : takes_text(m_overlay) ? FieldFocus{TextField::Input, static_cast<int>(m_overlay)}
                                       : FieldFocus{};
    if (m_path_edit >= 0)
        return {TextField::Path, m_path_edit};
    if (active_pane().renaming())
        return {TextField::Rename, m_active_right ? 1 : 0};
    if (m_search_pane >= 0)
        return {TextField::Search, m_search_pane};
    return {};
}

bool App::takes_text(Overlay overlay) {
    switch (overlay) {
    case Overlay::NewFolder:
    case Overlay::NewFile:
    case Overlay::Pack:
    case Overlay::SelectPattern:
    case Overlay::GoToPath:
        return true;
    default:
        return false;
    }
}

void App::insert_text(TextField field, const std::string& text) {
    switch (field) {
    case TextField::None:
        return;
    case TextField::Path:
        return path_insert(text);
    case TextField::Rename:
        active_pane().rename_insert(text);
        return;
    case TextField::Search:
        return search_insert(text);
    case TextField::Input:
        return input_insert(text);
    case TextField::Owner:
        return owner_insert(text);
    case TextField::HexFind:
        return hex_find_insert(text);
    }
}

double App::draw_field_text(TextField field, const std::string& text, size_t caret, double x,
                            double centre, double room, double size, const std::string& color,
                            double half) {
    constexpr double kCaretWidth = 1.4;
    const bool focused = field != TextField::None && field == m_composed_field.field;
    const std::string composed = focused ? m_preedit : std::string();
    const std::string shown = text.substr(0, caret) + composed + text.substr(caret);
    const auto width_to = [&](size_t end) {
        return text_width(shown.substr(0, end), size, false, false);
    };
    const double caret_x = width_to(composed.empty() ? caret : caret + m_preedit_caret);
    const double left = x - std::max(0.0, caret_x - room);
    draw_text(shown, left, centre, size, color, false, false, 1);
    if (!composed.empty()) {
        const double from = width_to(caret);
        fill_rect(left + from, centre + half - 1, width_to(caret + composed.size()) - from, 1,
                  color, 1);
    }
    set_color(m_palette.accent, 1);
    cairo_set_line_width(m_cr, kCaretWidth);
    cairo_move_to(m_cr, left + caret_x, centre - half);
    cairo_line_to(m_cr, left + caret_x, centre + half);
    cairo_stroke(m_cr);
    if (focused)
        m_caret_rect = {left + caret_x, centre - half, kCaretWidth, 2 * half};
    return left;
}

std::string App::typed_text(const GdkEventKey& event) {
    const guint32 unicode = gdk_keyval_to_unicode(event.keyval);
    if (unicode < 32 || event.state & (GDK_CONTROL_MASK | GDK_MOD1_MASK))
        return {};
    char utf8[6];
    const int length = g_unichar_to_utf8(unicode, utf8);
    return std::string(utf8, static_cast<size_t>(length));
}

// --- Path bar ---------------------------------------------------------------------------------

void App::begin_path_edit(bool right) {
    m_path_edit = right ? 1 : 0;
    m_path_buffer = pane_for(right).path();
    m_path_caret = m_path_buffer.size();
    m_path_error.clear();
    request_redraw();
}

void App::end_path_edit() {
    m_path_edit = -1;
    m_path_error.clear();
    request_redraw();
}

void App::path_insert(const std::string& text) {
    insert(m_path_buffer, m_path_caret, text);
    m_path_error.clear();
}

bool App::handle_path_edit_key(GdkEventKey* event) {
    const guint key = event->keyval;
    if (key == GDK_KEY_Escape) {
        end_path_edit();
    } else if (is_return(key)) {
        commit_path_edit();
    } else if (event->state & GDK_CONTROL_MASK) {
        const guint letter = latin_key(*event);
        if (letter == GDK_KEY_c) {
            set_clipboards(m_path_buffer);
        } else if (letter == GDK_KEY_a) {
            m_path_caret = m_path_buffer.size();
        } else if (letter == GDK_KEY_v) {
            const std::string line = clipboard_line();  // runs the main loop meanwhile
            if (m_path_edit >= 0)
                path_insert(line);
        }
    } else if (const Edit done = edit_line(key, m_path_buffer, m_path_caret); done != Edit::None) {
        if (done == Edit::Changed)
            m_path_error.clear();
    } else if (const std::string text = typed_text(*event); !text.empty()) {
        path_insert(text);
    }
    return true;
}

void App::commit_path_edit() {
    if (m_path_edit < 0)
        return;
    Pane& pane = pane_for(m_path_edit == 1);
    const std::string path = meant_path(m_path_buffer, pane.path());
    if (path.empty())
        return end_path_edit();
    const dir_lister::Listing probe = dir_lister::read(path, show_hidden());
    if (!probe.error.empty()) {
        m_path_error = fmt::embedded(path) + ": " + probe.error;
        Log::warnf("path rejected: %s", m_path_error.c_str());
        if (probe.error_code == EACCES || probe.error_code == EPERM)
            warn_no_access(path, probe.error);
        return request_redraw();
    }
    Log::infof("path bar → %s", path.c_str());
    end_path_edit();
    pane.navigate_to(tidy_path(path), show_hidden());
}

// --- Filter bar -------------------------------------------------------------------------------

void App::begin_search(bool right) {
    end_path_edit();
    m_search_pane = right ? 1 : 0;
    m_search_buffer = pane_for(right).filter();
    m_search_caret = m_search_buffer.size();
    request_redraw();
}

void App::end_search(bool clear) {
    const bool right = m_search_pane < 0 ? m_active_right : m_search_pane == 1;
    m_search_pane = -1;
    m_search_buffer.clear();
    m_search_caret = 0;
    request_redraw();
    Pane& pane = pane_for(right);
    // Without a filter nothing is read again, and a name noted here would wait for another folder.
    if (!clear || pane.filter().empty())
        return;
    if (const auto entries = pane.action_entries(); !entries.empty())
        pane.remember_cursor_name(entries.front()->name);
    pane.set_filter("", show_hidden());
    pane.ensure_cursor_visible(rows_in_view(right));
}

void App::apply_search() {
    const bool right = m_search_pane == 1;
    pane_for(right).set_filter(m_search_buffer, show_hidden());
    pane_for(right).ensure_cursor_visible(rows_in_view(right));
}

void App::search_insert(const std::string& text) {
    insert(m_search_buffer, m_search_caret, text);
    apply_search();
}

bool App::handle_search_key(GdkEventKey* event) {
    const guint key = event->keyval;
    // These move in the list below, or are commands: a command closes the bar.
    switch (key) {
    case GDK_KEY_Tab:
    case GDK_KEY_ISO_Left_Tab:
    case GDK_KEY_Up:
    case GDK_KEY_Down:
    case GDK_KEY_Page_Up:
    case GDK_KEY_Page_Down:
        return false;
    default:
        if (event->state & GDK_CONTROL_MASK || (key >= GDK_KEY_F1 && key <= GDK_KEY_F35))
            return false;
    }
    if (is_return(key))
        m_search_pane = -1;
    else if (key == GDK_KEY_Escape)
        end_search(true);
    else if (const Edit done = edit_line(key, m_search_buffer, m_search_caret); done != Edit::None)
        apply_search();
    else if (const std::string text = typed_text(*event); !text.empty())
        search_insert(text);
    return true;
}

// --- Rename -----------------------------------------------------------------------------------

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
    else if (event->state & GDK_CONTROL_MASK && latin_key(*event) == GDK_KEY_v)
        pane.rename_insert(clipboard_line());
    else
        pane.rename_insert(typed_text(*event));
    return true;
}

// --- Input line of the dialogues --------------------------------------------------------------

// No Home, End or Delete here. What the Delete key types, 127, is a character like any other.
void App::handle_input_key(GdkEventKey* event) {
    const guint key = event->keyval;
    if (move_caret(key, m_input_buffer, m_input_caret) != Edit::None)
        return;
    if (key == GDK_KEY_BackSpace)
        erase_before(m_input_buffer, m_input_caret);
    else if (event->state & GDK_CONTROL_MASK && latin_key(*event) == GDK_KEY_v)
        input_insert(clipboard_line());
    else
        input_insert(typed_text(*event));
}

void App::input_insert(const std::string& text) {
    insert(m_input_buffer, m_input_caret, text);
}

// --- Owner and group in the properties ----------------------------------------------------------

void App::handle_owner_key(GdkEventKey* event) {
    if (event->keyval == GDK_KEY_Tab || event->keyval == GDK_KEY_ISO_Left_Tab) {
        m_owner_focus = m_owner_focus == 0 ? 1 : 0;
        return;
    }
    std::string& text = m_owner_text[m_owner_focus];
    if (edit_line(event->keyval, text, m_owner_caret[m_owner_focus]) != Edit::None)
        return;
    if (event->state & GDK_CONTROL_MASK && latin_key(*event) == GDK_KEY_v)
        owner_insert(clipboard_line());
    else
        owner_insert(typed_text(*event));
}

void App::owner_insert(const std::string& text) {
    if (m_owner_focus >= 0)  // the clipboard is asked in a main loop of its own
        insert(m_owner_text[m_owner_focus], m_owner_caret[m_owner_focus], text);
}

// --- Find field of the byte view ----------------------------------------------------------------

void App::handle_hex_find_key(GdkEventKey* event) {
    const guint key = event->keyval;
    if (is_return(key))
        find_hex_text();
    else if (key == GDK_KEY_Tab || key == GDK_KEY_ISO_Left_Tab)
        m_hex_find_focus = false;
    else if (edit_line(key, m_hex_find, m_hex_find_caret) != Edit::None)
        return;
    else if (event->state & GDK_CONTROL_MASK && latin_key(*event) == GDK_KEY_v)
        hex_find_insert(clipboard_line());
    else
        hex_find_insert(typed_text(*event));
}

void App::hex_find_insert(const std::string& text) {
    if (m_hex_find_focus)  // the clipboard is asked in a main loop of its own
        insert(m_hex_find, m_hex_find_caret, text);
}
