// The dialogues, painted as one plain centred panel: a title, the text, and the choices with the
// keys that take them. Message, conflict and errors are what can be open so far.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "format.h"
#include "i18n.h"
#include "logger.h"
#include "settings.h"
#include "strutil.h"

#include <algorithm>
#include <cctype>
#include <cmath>

namespace {

constexpr double kChoiceH = 28;
constexpr double kChoiceGap = 6;
constexpr double kTextTop = 58;  // below the title and its rule

// The first letter of each label that no earlier choice has taken, in upper case; 0 for none.
std::vector<char> accelerators(const std::vector<App::ButtonSpec>& choices) {
    std::vector<char> letters;
    for (const App::ButtonSpec& choice : choices) {
        char found = 0;
        for (const char* c = tr(choice.label); *c && !found; ++c) {
            const auto byte = static_cast<unsigned char>(*c);
            if (byte >= 0x80 || !std::isalpha(byte))
                continue;
            const char letter = static_cast<char>(std::toupper(byte));
            if (std::find(letters.begin(), letters.end(), letter) == letters.end())
                found = letter;
        }
        letters.push_back(found);
    }
    return letters;
}

// The key that is shown beside a choice: the plain one where it has one, else its letter.
std::string key_text(App::Overlay overlay, Action action, char letter) {
    const bool conflict = overlay == App::Overlay::Conflict;
    if (conflict && action == Action::ConflictSkip)
        return "Esc";
    if (!conflict && (action == Action::OverlayCancel || action == Action::DismissErrors))
        return "Return";
    return letter ? std::string("Alt+") + letter : std::string();
}

std::string date_text(int64_t seconds) {
    const std::string text = seconds > 0 ? fmt::date_time(seconds) : std::string();
    return text.empty() ? "—" : text;
}

double choices_height(size_t count, int columns) {
    const int rows = (static_cast<int>(count) + columns - 1) / columns;
    return rows * kChoiceH + (rows - 1) * kChoiceGap;
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

std::vector<std::string> failure_lines(const copy_engine::Progress& copy,
                                       const BgTask::Status& task) {
    std::vector<std::string> lines;
    for (const copy_engine::FailedItem& item : copy.failures)
        lines.push_back(item.path + " — " + item.message);
    lines.insert(lines.end(), task.failures.begin(), task.failures.end());
    return lines;
}

}  // namespace

void App::open_overlay(Overlay overlay, const std::string& title) {
    m_overlay = overlay;
    m_overlay_title = title;
    m_overlay_accels.clear();  // those of the dialogue before must not act on this one
    request_redraw();
}

void App::close_overlay() {
    m_overlay = Overlay::None;
    m_overlay_accels.clear();
    request_redraw();
}

void App::draw_overlay() {
    const double window_w = m_layout.width;
    const double window_h = m_layout.height;
    fill_rect(0, 0, window_w, window_h, "#000000", 0.38);

    double w = 460;
    double h = 240;
    if (m_overlay == Overlay::Message) {
        const size_t choices = m_message_action == Action::None ? 1 : 2;
        w = std::min(w, window_w - 40);
        h = kTextTop + wrapped_text(m_overlay_text, 0, 0, w - 40, 12.5, nullptr) + 18 +
            choices_height(choices, 1) + 20;
    } else if (m_overlay == Overlay::Conflict) {
        w = 620;
        h = kTextTop + kConflictText +
            choices_height(std::size(kConflictChoices), kConflictColumns) + 20;
    } else if (m_overlay == Overlay::Errors) {
        const auto lines = static_cast<double>(failure_lines(m_frame_copy, m_frame_bg).size());
        w = 640;
        h = std::min(524.0, kTextTop + 20 + lines * kFailureRow + 26 + kChoiceH + 36);
    }
    w = std::min(w, window_w - 40);
    h = std::min(h, window_h - 40);
    const double x = std::floor((window_w - w) / 2);
    const double y = std::floor((window_h - h) / 2);
    fill_rounded(x + 3, y + 6, w, h, 8, "#000000", 0.22);
    fill_rounded(x, y, w, h, 8, m_palette.bar, 1);
    stroke_rounded(x, y, w, h, 8, m_palette.menu_border, 1, 1);
    // A conflict has no title of its own: its headline stands there.
    const std::string title =
        m_overlay == Overlay::Conflict ? tr("conflict.headline") : m_overlay_title;
    draw_text_clipped(title, x + 20, y + 26, w - 40, 15, m_palette.text, false, false);
    fill_rect(x + 20, y + 44, w - 40, 1, m_palette.divider, 1);

    m_drawing_overlay = true;
    if (m_overlay == Overlay::Message)
        draw_overlay_message(x, y, w, h);
    else if (m_overlay == Overlay::Conflict)
        draw_overlay_conflict(x, y, w);
    else if (m_overlay == Overlay::Errors)
        draw_overlay_errors(x, y, w, h);
    m_drawing_overlay = false;
}

// The choices stand at the panel's bottom; a text longer than the window is cut above them.
void App::draw_overlay_message(double x, double y, double w, double h) {
    std::vector<ButtonSpec> choices;
    if (m_message_action != Action::None)
        choices.push_back({m_message_action_label, m_message_action});
    choices.push_back({"btn.ok", Action::OverlayCancel, true});
    const double choices_y = y + h - 20 - choices_height(choices.size(), 1);
    const std::string& color = m_overlay_is_error ? m_palette.danger : m_palette.text;
    cairo_save(m_cr);
    cairo_rectangle(m_cr, x, y, w, choices_y - 9 - y);
    cairo_clip(m_cr);
    wrapped_text(m_overlay_text, x + 20, y + kTextTop, w - 40, 12.5, &color);
    cairo_restore(m_cr);
    draw_choices(x, choices_y, w, choices, 1);
}

void App::draw_overlay_conflict(double x, double y, double w) {
    const copy_engine::ConflictRequest& ask = m_frame_copy.conflict;
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
    const double bottom = y + h - kChoiceH - 30;
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
    draw_choices(x, y + h - kChoiceH - 18, w, {{"btn.close", Action::DismissErrors, true}}, 1);
}

void App::draw_choices(double x, double y, double w, const std::vector<ButtonSpec>& choices,
                       int columns, const int* places) {
    m_overlay_accels.clear();
    const std::vector<char> letters = accelerators(choices);
    const double column_w = (w - 40 - (columns - 1) * kChoiceGap) / columns;
    const HitRect* hover = hovered();
    for (size_t i = 0; i < choices.size(); ++i) {
        const ButtonSpec& choice = choices[i];
        if (letters[i])
            m_overlay_accels[letters[i]] = choice.action;
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
        const std::string key = key_text(m_overlay, choice.action, letters[i]);
        const double key_w = text_width(key, 11, false, false);
        draw_text_clipped(shown, bx + 12, by + kChoiceH / 2, bw - key_w - 36, 12.5,
                          choice.danger ? m_palette.danger : m_palette.control_text, false, false);
        draw_text_right(key, bx + bw - 12, by + kChoiceH / 2, 11, m_palette.secondary, false,
                        false);
        add_hit(bx, by, bw, kChoiceH, Hit::Overlay, static_cast<int>(choice.action), false, label);
    }
}
