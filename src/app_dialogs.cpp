// What stands inside the panels of the dialogues: message, text input, delete confirmation, and for
// conflict and errors a plain list of choices with the keys that take them.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "format.h"
#include "i18n.h"
#include "settings.h"
#include "strutil.h"

#include <algorithm>

namespace {

constexpr double kChoiceH = 28;
constexpr double kChoiceGap = 6;
constexpr double kTextTop = 58;  // below the title and its rule

// The key that is shown beside a choice: the plain one where it has one, else its letter.
std::string key_text(Action action, char letter) {
    if (action == Action::ConflictSkip)
        return "Esc";
    return letter ? std::string("Alt+") + letter : std::string();
}

std::string date_text(int64_t seconds) {
    const std::string text = seconds > 0 ? fmt::date_time(seconds) : std::string();
    return text.empty() ? "—" : text;
}

// The order in which the choices pick their letters: the three that a user needs most have the
// first pick. They are shown in another order, the harmless ones on top.
constexpr App::ButtonSpec kConflictChoices[] = {
    {"conflict.cancel_all", Action::ConflictCancel, false, true},
    {"conflict.overwrite", Action::ConflictOverwrite, false, true},
    {"conflict.skip", Action::ConflictSkip, true, false},
    {"conflict.rename_new", Action::ConflictRenameNew},
    {"conflict.rename_existing", Action::ConflictRenameExisting},
    {"conflict.if_newer", Action::ConflictOverwriteIfNewer},
    {"conflict.apply_to_all", Action::ConflictToggleAll},
};

constexpr int kConflictPlaces[] = {5, 1, 0, 2, 3, 4, 6};
static_assert(std::size(kConflictPlaces) == std::size(kConflictChoices));

constexpr int kConflictColumns = 2;
constexpr double kConflictText = 68;  // name, incoming, existing
constexpr double kFailureRow = 18;

const char* input_hint(App::Overlay overlay) {
    if (overlay == App::Overlay::NewFolder)
        return "dlg.new_folder_hint";
    if (overlay == App::Overlay::NewFile)
        return "dlg.new_file_hint";
    return overlay == App::Overlay::GoToPath ? "dlg.go_to_path_hint" : "dlg.select_pattern_hint";
}

std::vector<std::string> failure_lines(const copy_engine::Progress& copy,
                                       const BgTask::Status& task) {
    std::vector<std::string> lines;
    for (const copy_engine::FailedItem& item : copy.failures)
        lines.push_back(item.path + " — " + item.message);
    lines.insert(lines.end(), task.failures.begin(), task.failures.end());
    return lines;
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

void App::draw_input_field(double x, double y, double w) {
    constexpr double kHeight = 30;
    fill_rounded(x, y, w, kHeight, 4, m_palette.control, 1);
    stroke_rounded(x, y, w, kHeight, 4, m_palette.accent, 1, 1.5);
    cairo_save(m_cr);
    cairo_rectangle(m_cr, x + 6, y, w - 12, kHeight);
    cairo_clip(m_cr);
    draw_field_text(TextField::Input, m_input_buffer, m_input_caret, x + 10, y + 15, w - 20, 12.5,
                    m_palette.control_text, 9);
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

// --- Conflict and errors ----------------------------------------------------------------------

void App::draw_overlay_conflict(double x, double y, double w) {
    const copy_engine::ConflictRequest& ask = m_frame_copy.conflict;
    // A conflict has no title of its own: its headline stands there.
    draw_text_clipped(tr("conflict.headline"), x + 20, y + 26, w - 40, 15, m_palette.text, false,
                      false);
    draw_text_clipped(su::basename_of(ask.target_path), x + 20, y + kTextTop + 6, w - 40, 12.5,
                      m_palette.warn, true, false);
    const auto side = [&](const char* label, int64_t size, int64_t mtime, bool newer, double ty) {
        std::string text = std::string(tr(label)) + ":  ";
        if (!ask.is_dir)
            text += fmt::bytes(size) + "  ·  ";
        text += date_text(mtime);
        draw_text_clipped(text, x + 20, ty, w - 40, 11, newer ? m_palette.ok : m_palette.secondary,
                          false, false);
    };
    const bool known = ask.source_mtime > 0 && ask.target_mtime > 0;
    side("conflict.incoming", ask.source_size, ask.source_mtime,
         known && ask.source_mtime > ask.target_mtime, y + kTextTop + 28);
    side("conflict.existing", ask.target_size, ask.target_mtime,
         known && ask.target_mtime > ask.source_mtime, y + kTextTop + 46);
    draw_choices(x, y + kTextTop + kConflictText, w,
                 {std::begin(kConflictChoices), std::end(kConflictChoices)}, kConflictColumns,
                 kConflictPlaces);
}

void App::draw_overlay_errors(double x, double y, double w, double h) {
    const std::vector<std::string> lines = failure_lines(m_frame_copy, m_frame_bg);
    draw_text(I18n::instance().trf("dlg.errors_count",
                                   fmt::saturated(static_cast<int64_t>(lines.size()))),
              x + 20, y + kTextTop + 6, 12.5, m_palette.danger, false, false, 1);
    const double bottom = y + h - 52;
    double row_y = y + kTextTop + 34;
    for (size_t i = 0; i < lines.size(); ++i, row_y += kFailureRow) {
        const bool last_that_fits = row_y + kFailureRow > bottom;
        if (last_that_fits && i + 1 < lines.size()) {
            draw_text(tr("dlg.errors_truncated"), x + 20, row_y, 11, m_palette.secondary, false,
                      false, 1);
            break;
        }
        draw_text_clipped(lines[i], x + 20, row_y, w - 40, 11, m_palette.text, false, false);
    }
    draw_buttons(x, y + h - 46, w, {{"btn.close", Action::DismissErrors, true}});
}

void App::draw_choices(double x, double y, double w, const std::vector<ButtonSpec>& choices,
                       int columns, const int* places) {
    m_overlay_accels.clear();
    const std::vector<Accelerator> accels = assign_accelerators(choices);
    const double column_w = (w - 40 - (columns - 1) * kChoiceGap) / columns;
    const HitRect* hover = hovered();
    for (size_t i = 0; i < choices.size(); ++i) {
        const ButtonSpec& choice = choices[i];
        const int place = places ? places[i] : static_cast<int>(i);
        const int column = place % columns;
        const int row = place / columns;
        // A last one that stands alone in its row takes all of it.
        const bool alone = column == 0 && place + 1 == static_cast<int>(choices.size());
        const double bw = alone ? w - 40 : column_w;
        const double bx = x + 20 + column * (column_w + kChoiceGap);
        const double by = y + row * (kChoiceH + kChoiceGap);
        const bool hot =
            hover && hover->what == Hit::Overlay && hover->param == static_cast<int>(choice.action);
        fill_rounded(bx, by, bw, kChoiceH, 4, hot ? m_palette.control_hover : m_palette.control, 1);
        stroke_rounded(bx, by, bw, kChoiceH, 4,
                       choice.primary  ? m_palette.accent
                       : choice.danger ? m_palette.danger
                                       : m_palette.control_edge,
                       1, choice.primary ? 2 : 1);
        const std::string label = tr(choice.label);
        std::string shown = label;
        if (choice.action == Action::ConflictToggleAll)
            shown = (m_conflict_apply_all ? "☑ " : "☐ ") + label;
        const std::string key = key_text(choice.action, accels[i].key);
        const double key_w = text_width(key, 11, false, false);
        draw_text_clipped(shown, bx + 12, by + kChoiceH / 2, bw - key_w - 36, 12.5,
                          choice.danger ? m_palette.danger : m_palette.control_text, false, false);
        draw_text_right(key, bx + bw - 12, by + kChoiceH / 2, 11, m_palette.secondary, false,
                        false);
        add_hit(bx, by, bw, kChoiceH, Hit::Overlay, static_cast<int>(choice.action), false, label);
    }
}
