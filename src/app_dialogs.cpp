// What stands inside the panels of the dialogues: message, text input, delete confirmation.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "format.h"
#include "i18n.h"
#include "settings.h"
#include "strutil.h"

#include <algorithm>

namespace {

const char* input_hint(App::Overlay overlay) {
    if (overlay == App::Overlay::NewFolder)
        return "dlg.new_folder_hint";
    if (overlay == App::Overlay::NewFile)
        return "dlg.new_file_hint";
    return overlay == App::Overlay::GoToPath ? "dlg.go_to_path_hint" : "dlg.select_pattern_hint";
}

}  // namespace

// --- Message ----------------------------------------------------------------------------------

// A text longer than the panel is cut above the buttons.
void App::draw_overlay_message(double x, double y, double w, double h) {
    const std::string& color = m_overlay_is_error ? m_palette.danger : m_palette.text;
    const double buttons_y = y + h - 46;
    cairo_save(m_cr);
    cairo_rectangle(m_cr, x, y, w, buttons_y - 8 - y);
    cairo_clip(m_cr);
    wrapped_text(m_overlay_text, x + 20, y + 68, w - 40, 12.5, &color);
    cairo_restore(m_cr);
    std::vector<ButtonSpec> buttons;
    if (m_message_action != Action::None)
        buttons.push_back({m_message_action_label, m_message_action});
    buttons.push_back({"btn.ok", Action::OverlayCancel, true});
    draw_buttons(x, buttons_y, w, buttons);
}

// --- Text input -------------------------------------------------------------------------------

void App::draw_overlay_text_input(double x, double y, double w, double h) {
    draw_text_clipped(tr(input_hint(m_overlay)), x + 20, y + 70, w - 40, 11, m_palette.secondary,
                      false, false);
    draw_input_field(x + 20, y + 92, w - 40);
    draw_buttons(x, y + h - 46, w,
                 {{"btn.cancel", Action::OverlayCancel}, {"btn.ok", Action::OverlayOk, true}});
}

void App::draw_input_field(double x, double y, double w, const std::string& ending, double margin) {
    constexpr double kHeight = 30;
    fill_rounded(x, y, w, kHeight, 4, m_palette.control, 1);
    stroke_rounded(x, y, w, kHeight, 4, m_palette.accent, 1, 1.5);
    cairo_save(m_cr);
    cairo_rectangle(m_cr, x + margin, y, w - 2 * margin, kHeight);
    cairo_clip(m_cr);
    draw_field_text(TextField::Input, m_input_buffer + ending, m_input_caret, x + 10, y + 15,
                    w - 20, 12.5, m_palette.control_text, 9);
    cairo_restore(m_cr);
}

// --- Delete confirmation ----------------------------------------------------------------------

void App::draw_overlay_confirm_delete(double x, double y, double w, double h) {
    constexpr size_t kNames = 3;
    constexpr double kRow = 17;
    const std::vector<const FsEntry*> entries = active_pane().action_entries();
    const int count = static_cast<int>(entries.size());
    const std::string question =
        count == 1 ? tr("dlg.delete_one") : I18n::instance().trf("dlg.delete_count", count);
    draw_text_clipped(question, x + 20, y + 72, w - 40, 12.5, m_palette.text, false, false);

    // The tint goes with the side, left or right, and not with what the side is doing.
    const std::string side = tr(m_active_right ? "status.right_active" : "status.left_active");
    const std::string& tint = m_active_right ? m_palette.target_tint : m_palette.source_tint;
    const double pill_w = text_width(side, 11, false, false) + 14;
    fill_rounded(x + 20, y + 84, pill_w, 17, 4, tint, 0.16);
    draw_text(side, x + 27, y + 92, 11, tint, false, false, 1);
    const double path_x = x + 20 + pill_w + 24;
    const double room = x + w - 20 - path_x;
    draw_text_clipped(path_ending(active_pane().path(), room, 11), path_x, y + 92, room, 11,
                      m_palette.secondary, false, false);

    double row_y = y + 92;
    for (size_t i = 0; i < entries.size() && i < kNames; ++i)
        draw_text_clipped(entries[i]->name, x + 20, row_y += kRow, w - 60, 11, m_palette.text,
                          false, false);
    if (entries.size() > kNames)
        draw_text(I18n::instance().trf("dlg.and_more", count - static_cast<int>(kNames)), x + 20,
                  row_y + kRow, 11, m_palette.dim, false, false, 1);

    const bool to_trash = SettingsStore::instance().get().delete_to_trash;
    draw_buttons(x, y + h - 46, w,
                 {{"btn.cancel", Action::OverlayCancel},
                  {"dlg.delete_permanent", Action::DeletePermanent, false, true},
                  {"dlg.delete_to_trash", Action::DeleteToTrash, to_trash}});
}

// The end of a path tells more than its beginning, so leading folders go until the rest fits.
std::string App::path_ending(const std::string& path, double room, double size) {
    std::string shown = path;
    size_t slash = 0;
    while (text_width(shown, size, false, false) > room) {
        slash = path.find('/', slash + 1);
        if (slash == std::string::npos)
            break;
        shown = "…" + path.substr(slash);
    }
    return shown;
}
