// Input methods: dead keys, Compose, numbers behind Ctrl+Shift+U, and the languages whose
// characters are composed from several keys. While a text field has the keyboard each key is
// offered to the input method first. One that is not composing leaves alone what types no
// character, so that the keys of the fields keep their meaning.

#include "app.h"

#include "pane.h"
#include "strutil.h"

#include <algorithm>
#include <cmath>

namespace {

App& app_of(gpointer data) {
    return *static_cast<App*>(data);
}

void on_commit_cb(GtkIMContext*, const char* text, gpointer data) {
    app_of(data).input_method_commits(text);
}

void on_preedit_changed_cb(GtkIMContext*, gpointer data) {
    app_of(data).input_method_composes();
}

gboolean on_retrieve_surrounding_cb(GtkIMContext*, gpointer data) {
    app_of(data).tell_surrounding();
    return TRUE;
}

gboolean on_delete_surrounding_cb(GtkIMContext*, int offset, int count, gpointer data) {
    return app_of(data).delete_surrounding(offset, count);
}

// So many characters on, or back if negative; no further than the text goes.
size_t step(const std::string& text, size_t at, int characters) {
    for (; characters < 0 && at > 0; ++characters)
        at = su::previous_character(text, at);
    for (; characters > 0 && at < text.size(); --characters)
        at = su::next_character(text, at);
    return at;
}

}  // namespace

void App::use_input_method(GtkIMContext* input_method) {
    release_input_method();
    m_input_method = input_method;
    const auto connect = [this](const char* signal, GCallback callback) {
        g_signal_connect(m_input_method, signal, callback, this);
    };
    connect("commit", G_CALLBACK(on_commit_cb));
    connect("preedit-changed", G_CALLBACK(on_preedit_changed_cb));
    connect("retrieve-surrounding", G_CALLBACK(on_retrieve_surrounding_cb));
    connect("delete-surrounding", G_CALLBACK(on_delete_surrounding_cb));
    gtk_im_context_set_client_window(m_input_method, gtk_widget_get_window(m_canvas));
}

void App::release_input_method() {
    if (!m_input_method)
        return;
    g_signal_handlers_disconnect_by_data(m_input_method, this);
    if (m_input_method_focused)
        gtk_im_context_focus_out(m_input_method);
    gtk_im_context_set_client_window(m_input_method, nullptr);
    g_clear_object(&m_input_method);
    m_input_method_focused = false;
    m_composed_field = {};
    m_preedit.clear();
}

void App::sync_input_method() {
    if (!m_input_method)
        return;
    const FieldFocus now = focused_field();
    if (now != m_composed_field) {
        m_composed_field = {};  // what a reset commits belongs to a field that has gone
        end_composition();
        m_composed_field = now;
        m_told_caret_rect = {};
    }
    const bool focused = m_window_focused && now.field != TextField::None;
    if (focused == m_input_method_focused)
        return;
    m_input_method_focused = focused;
    if (focused)
        gtk_im_context_focus_in(m_input_method);
    else
        gtk_im_context_focus_out(m_input_method);
}

void App::place_input_method() {
    if (!m_input_method || m_caret_rect.w <= 0)
        return;
    const Rect pixels = {
        std::floor(m_caret_rect.x * m_ui_scale), std::floor(m_caret_rect.y * m_ui_scale),
        std::ceil(m_caret_rect.w * m_ui_scale), std::ceil(m_caret_rect.h * m_ui_scale)};
    if (pixels == m_told_caret_rect)
        return;
    m_told_caret_rect = pixels;
    const GdkRectangle area = {static_cast<int>(pixels.x), static_cast<int>(pixels.y),
                               static_cast<int>(pixels.w), static_cast<int>(pixels.h)};
    gtk_im_context_set_cursor_location(m_input_method, &area);
}

void App::set_window_focus(bool focused) {
    m_window_focused = focused;
    sync_input_method();
}

bool App::input_method_takes(GdkEventKey* event) {
    if (!m_input_method || m_composed_field.field == TextField::None ||
        !gtk_im_context_filter_keypress(m_input_method, event))
        return false;
    request_redraw();
    return true;
}

// Ctrl+Shift+U ends as they are let go.
void App::handle_key_release(GdkEventKey* event) {
    if (m_veiled)
        return;
    sync_input_method();
    input_method_takes(event);
}

void App::end_composition() {
    if (!m_input_method)
        return;
    gtk_im_context_reset(m_input_method);
    m_preedit.clear();
    m_preedit_caret = 0;
}

void App::input_method_commits(const std::string& text) {
    // It may come late, from another process.
    if (focused_field() != m_composed_field)
        return;
    insert_text(m_composed_field.field, text);
    request_redraw();
}

void App::input_method_composes() {
    char* text = nullptr;
    int caret = 0;
    gtk_im_context_get_preedit_string(m_input_method, &text, nullptr, &caret);
    m_preedit = m_composed_field.field == TextField::None ? "" : text;
    m_preedit_caret = step(m_preedit, 0, caret);
    g_free(text);
    request_redraw();
}

void App::tell_surrounding() {
    const auto tell = [this](const std::string& text, size_t caret) {
        gtk_im_context_set_surrounding(m_input_method, text.c_str(), static_cast<int>(text.size()),
                                       static_cast<int>(caret));
    };
    switch (m_composed_field.field) {
    case TextField::None:
        return;
    case TextField::Path:
        return tell(m_path_buffer, m_path_caret);
    case TextField::Rename:
        return tell(active_pane().rename_buffer(), active_pane().rename_caret());
    case TextField::Search:
        return tell(m_search_buffer, m_search_caret);
    case TextField::Input:
        return tell(m_input_buffer, m_input_caret);
    case TextField::Owner:
        return tell(m_owner_text[m_composed_field.which], m_owner_caret[m_composed_field.which]);
    case TextField::HexFind:
        return tell(m_hex_find, m_hex_find_caret);
    }
}

bool App::delete_surrounding(int offset, int count) {
    if (focused_field() != m_composed_field)
        return false;
    const auto erase = [offset, count](std::string& text, size_t& caret) {
        const size_t start = step(text, caret, offset);
        const size_t end = step(text, start, std::max(count, 0));
        text.erase(start, end - start);
        caret = caret >= end ? caret - (end - start) : std::min(caret, start);
    };
    switch (m_composed_field.field) {
    case TextField::None:
        return false;
    case TextField::Path:
        erase(m_path_buffer, m_path_caret);
        m_path_error.clear();
        break;
    case TextField::Rename: {
        Pane& pane = active_pane();
        size_t caret = pane.rename_caret();
        const size_t start = step(pane.rename_buffer(), caret, offset);
        std::string left = pane.rename_buffer();
        erase(left, caret);
        pane.rename_set_caret(start);
        while (pane.rename_buffer().size() > left.size())
            pane.rename_delete();
        pane.rename_set_caret(caret);
        break;
    }
    case TextField::Search:
        erase(m_search_buffer, m_search_caret);
        apply_search();
        break;
    case TextField::Input:
        erase(m_input_buffer, m_input_caret);
        break;
    case TextField::Owner:
        erase(m_owner_text[m_composed_field.which], m_owner_caret[m_composed_field.which]);
        break;
    case TextField::HexFind:
        erase(m_hex_find, m_hex_find_caret);
        break;
    }
    request_redraw();
    return true;
}
