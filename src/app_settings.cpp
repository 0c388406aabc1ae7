// The dialogue of the preferences. A row is a label and a control; what a control does takes effect
// and is saved at once, so that there is nothing to confirm.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "archive_format.h"
#include "i18n.h"
#include "settings.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace {

using copy_engine::ConflictAction;

constexpr double kSize = 12.5;
constexpr double kRowsTop = 62;
constexpr double kRow = 36;
constexpr double kControl = 30;
constexpr double kHint = 26;   // what it adds to its row
constexpr double kHintY = 42;  // its centre, from the row's top
constexpr double kSwitchW = 44;
constexpr double kSwitchH = 22;
constexpr double kEndW = 30;    // of a stepper
constexpr double kLeast = 110;  // the width of a button
constexpr double kLabelGap = 12;

// Between the rule below the title and the buttons.
constexpr double kViewTop = 46;
constexpr double kFoot = 46;
constexpr double kFootGap = 4;
// The panel has a little less room than the rows take, which is what the space above them gives up
// before anything has to scroll.
constexpr double kLift = 10;

// Texts in place of the words of the settings file.
const char* conflict_key(ConflictAction action) {
    switch (action) {
    case ConflictAction::Overwrite:
        return "conflict.overwrite";
    case ConflictAction::Skip:
        return "conflict.skip";
    case ConflictAction::RenameNew:
        return "conflict.rename_new";
    case ConflictAction::RenameExisting:  // the file may say so, though nothing here sets it
        return "conflict.rename_existing";
    case ConflictAction::OverwriteIfNewer:
        return "conflict.if_newer";
    case ConflictAction::Ask:
    case ConflictAction::Cancel:
        break;
    }
    return "conflict.ask";
}

std::string language_text(const Settings& s) {
    if (s.language == "auto" || s.language.empty())
        return tr("settings.language_auto");
    for (const LanguageInfo& language : I18n::available())
        if (language.code == s.language)
            return language.native_name;
    return s.language;
}

std::string theme_text(const Settings& s) {
    if (s.theme == "light")
        return tr("settings.theme_light");
    return tr(s.theme == "dark" ? "settings.theme_dark" : "settings.theme_auto");
}

std::string threads_text(const Settings& s) {
    return s.thread_count == 0 ? tr("settings.threads_auto") : std::to_string(s.thread_count);
}

std::string conflict_text(const Settings& s) {
    return tr(conflict_key(s.default_conflict));
}

std::string format_text(const Settings& s) {
    return archive_ops::label_for(archive_ops::format_from_label(s.archive_format));
}

std::string font_text(const Settings& s) {
    return s.font_family.empty() ? tr("settings.font_default") : s.font_family;
}

std::string scale_text(const Settings& s) {
    return std::to_string(s.font_scale) + " %";
}

enum class Control { Language, Value, Stepper, Switch };

}  // namespace

struct App::SettingRow {
    const char* label = "";  // a catalogue key
    Control control = Control::Value;
    Action action = Action::None;  // of a stepper: its minus
    std::string (*text)(const Settings& settings) = nullptr;
    bool Settings::*on = nullptr;
    Action plus = Action::None;
    const char* hint = nullptr;
};

namespace {

constexpr App::SettingRow kRows[] = {
    {.label = "settings.language",
     .control = Control::Language,
     .action = Action::SettingsLanguageOpen,
     .text = language_text},
    {.label = "settings.theme", .action = Action::SettingsTheme, .text = theme_text},
    {.label = "settings.threads",
     .control = Control::Stepper,
     .action = Action::SettingsThreadsMinus,
     .text = threads_text,
     .plus = Action::SettingsThreadsPlus,
     .hint = "settings.threads_hint"},
    {.label = "settings.default_conflict",
     .action = Action::SettingsConflict,
     .text = conflict_text},
    {.label = "settings.archive_format",
     .action = Action::SettingsArchiveFormat,
     .text = format_text},
    {.label = "settings.font", .action = Action::SettingsFontOpen, .text = font_text},
    {.label = "settings.font_scale",
     .control = Control::Stepper,
     .action = Action::SettingsScaleMinus,
     .text = scale_text,
     .plus = Action::SettingsScalePlus},
    {.label = "settings.show_hidden",
     .control = Control::Switch,
     .action = Action::SettingsToggleHidden,
     .on = &Settings::show_hidden},
    {.label = "settings.delete_to_trash",
     .control = Control::Switch,
     .action = Action::SettingsToggleTrash,
     .on = &Settings::delete_to_trash},
    {.label = "settings.confirm_delete",
     .control = Control::Switch,
     .action = Action::SettingsToggleConfirm,
     .on = &Settings::confirm_delete},
};

// To the lower edge of the last control, which is a switch.
constexpr double kRowsH = kRow * (std::size(kRows) - 1) + kHint + (kControl + kSwitchH) / 2;

}  // namespace

void App::draw_overlay_settings(double x, double y, double w, double h) {
    const Rect view = {x, y + kViewTop, w, h - kViewTop - kFoot - kFootGap};
    const double missing = kRowsTop + kRowsH - (h - kFoot - kFootGap);
    const double lift = std::clamp(missing, 0.0, kLift);
    scroll_settings(view, missing - lift);

    const size_t first_hit = m_hits.size();
    cairo_save(m_cr);
    clip_to(view.x, view.y, view.w, view.h);
    const double right = x + w - 20;
    double top = y + kRowsTop - lift - m_settings_scroll;
    for (const SettingRow& row : kRows) {
        const double control_x = draw_setting(row, {x + 20, top, w - 40, kControl}, 0.55 * w);
        draw_text_clipped(tr(row.label), x + 20, top + kControl / 2,
                          control_x - kLabelGap - (x + 20), kSize, m_palette.text, false, false);
        top += kRow;
        if (!row.hint)
            continue;
        draw_text_clipped(tr(row.hint), x + 20, top - kRow + kHintY, right - (x + 20), 11,
                          m_palette.secondary, false, false);
        top += kHint;
    }
    cairo_restore(m_cr);
    clip_hits(first_hit, view.x, view.y, view.w, view.h);
    // In the margin, beside the controls.
    if (m_overlay_scrolls)
        draw_list_thumb({view.x, view.y, view.w - 3, view.h},
                        m_overlay_page + m_settings_max_scroll, m_settings_scroll);
    draw_buttons(x, y + h - kFoot, w, {{"btn.close", Action::OverlayCancel}});
    draw_reset_button(x + 20, y + h - kFoot);
}

void App::scroll_settings(const Rect& view, double hidden) {
    m_settings_max_scroll = std::max(0, static_cast<int>(std::ceil(hidden)));
    m_settings_scroll = std::clamp(m_settings_scroll, 0, m_settings_max_scroll);
    m_overlay_scrolls = m_settings_max_scroll > 0;
    m_overlay_page = std::max(1, static_cast<int>(view.h));
}

// --- Controls ---------------------------------------------------------------------------------

double App::draw_setting(const SettingRow& row, const Rect& line, double max_w) {
    const Settings& settings = SettingsStore::instance().get();
    const double right = line.x + line.w;
    switch (row.control) {
    case Control::Language:
        return draw_language_button(row.text(settings), right, line.y);
    case Control::Value:
        return draw_value_button(row.text(settings), right, line.y, max_w, row.action);
    case Control::Stepper:
        return draw_stepper(row.text(settings), max_w, right, line.y, row);
    case Control::Switch:
        return draw_switch(row, settings.*row.on, right, line.y);
    }
    return right;
}

void App::draw_setting_box(const Rect& box) {
    fill_rounded(box.x, box.y, box.w, box.h, 4, m_palette.control, 1);
    stroke_rounded(box.x, box.y, box.w, box.h, 4, m_palette.control_edge, 1, 1);
}

double App::draw_value_button(const std::string& text, double right, double y, double max_w,
                              Action action) {
    const double text_w = text_width(text, kSize, false, false);
    const double w = std::min(max_w, std::max(kLeast, text_w + 28));
    const double shown_w = std::min(text_w, w - 28);
    const Rect box = {right - w, y, w, kControl};
    draw_setting_box(box);
    draw_text_clipped(text, box.x + (w - shown_w) / 2, y + kControl / 2, w - 28, kSize,
                      m_palette.control_text, false, false);
    add_hit(box.x, box.y, box.w, box.h, Hit::Overlay, static_cast<int>(action), false, text);
    return box.x;
}

// The name of the language, and an arrowhead for the list that opens.
double App::draw_language_button(const std::string& text, double right, double y) {
    constexpr double kWidth = 190;
    const Rect box = {right - kWidth, y, kWidth, kControl};
    draw_setting_box(box);
    draw_text_clipped(text, box.x + 12, y + kControl / 2, 156, kSize, m_palette.control_text, false,
                      false);
    set_color(m_palette.secondary, 1);
    cairo_set_line_width(m_cr, 1.5);
    cairo_move_to(m_cr, right - 18, y + 13);
    cairo_rel_line_to(m_cr, 4, 4);
    cairo_rel_line_to(m_cr, 4, -4);
    cairo_stroke(m_cr);
    add_hit(box.x, box.y, box.w, box.h, Hit::Overlay,
            static_cast<int>(Action::SettingsLanguageOpen), false, text);
    return box.x;
}

double App::draw_stepper(const std::string& text, double max_w, double right, double y,
                         const SettingRow& row) {
    const double text_w = text_width(text, kSize, false, false);
    const double w = std::min(max_w, std::max(kLeast, text_w + 64));
    const Rect box = {right - w, y, w, kControl};
    draw_setting_box(box);
    const double shown_w = std::min(text_w, w - 64);
    draw_text_clipped(text, box.x + (w - shown_w) / 2, y + kControl / 2, w - 64, kSize,
                      m_palette.control_text, false, false);
    for (const bool plus : {false, true}) {
        const std::string sign = plus ? "+" : "−";
        const double left = plus ? right - kEndW : box.x;
        fill_rect(plus ? left : left + kEndW - 1, y + 1, 1, kControl - 2, m_palette.control_edge,
                  1);
        draw_text(sign, left + (kEndW - text_width(sign, kSize, false, false)) / 2,
                  y + kControl / 2, kSize, m_palette.control_text, false, false, 1);
        add_hit(left, y, kEndW, kControl, Hit::Overlay,
                static_cast<int>(plus ? row.plus : row.action), false, sign);
    }
    return box.x;
}

double App::draw_switch(const SettingRow& row, bool on, double right, double y) {
    constexpr double kRadius = kSwitchH / 2;
    const Rect box = {right - kSwitchW, y + (kControl - kSwitchH) / 2, kSwitchW, kSwitchH};
    fill_rounded(box.x, box.y, box.w, box.h, kRadius,
                 on ? m_palette.accent : m_palette.control_edge, 1);
    set_color("#FFFFFF", 1);
    cairo_new_sub_path(m_cr);
    cairo_arc(m_cr, on ? right - kRadius : box.x + kRadius, box.y + kRadius, 8, 0, 2 * G_PI);
    cairo_fill(m_cr);
    add_hit(box.x, box.y, box.w, box.h, Hit::Overlay, static_cast<int>(row.action), false,
            tr(row.label));
    return box.x;
}

// Fainter than the button that closes, and without a key: nobody resets by a slip.
void App::draw_reset_button(double x, double y) {
    const ButtonSpec reset = {"btn.reset", Action::SettingsReset};
    const double w = std::max(kLeast, text_width(tr(reset.label), kSize, false, false) + 32);
    cairo_save(m_cr);
    clip_to(x, y, w, kControl);
    cairo_push_group(m_cr);
    draw_button(x, y, w, reset, {});
    cairo_pop_group_to_source(m_cr);
    cairo_paint_with_alpha(m_cr, 0.88);
    cairo_restore(m_cr);
}
