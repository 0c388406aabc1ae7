// The properties dialogue: the facts of one entry, and its permission bits to be edited. Root edits
// the owner as well.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "file_ops.h"
#include "format.h"
#include "fs_ops.h"
#include "i18n.h"
#include "paths.h"
#include "strutil.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

constexpr double kSize = 12.5;
constexpr double kSmall = 11;
constexpr double kRow = 24;
constexpr double kRowsTop = 88;  // a row's text is in its middle
constexpr double kValueX = 150;
constexpr double kLabelRoom = kValueX - 20 - 8;

// Below the facts: the rule, the head of the grid, the grid; for a folder the box as well. What is
// left of the panel's height are the buttons, and the space above them.
constexpr double kRuleGap = 8;
constexpr double kHeadGap = 12;
constexpr double kGridGap = 10;
constexpr double kBoxGap = 30;
constexpr double kBelowFacts = 114;
constexpr double kBelowFactsOfFolder = 136;

constexpr double kBit = 22;
constexpr double kBitStep = 26;
constexpr double kGroupStep = 90;

}  // namespace

struct App::PropertyRow {
    const char* label = "";  // a catalogue key
    std::string value;
};

// --- The entry --------------------------------------------------------------------------------

void App::open_properties() {
    const std::vector<const FsEntry*> entries = active_pane().action_entries();
    if (entries.empty())
        return show_nothing();
    read_properties(*entries.front(), active_pane().path());
    m_perm_recursive = false;
    m_owner_focus = -1;
    open_overlay(Overlay::Properties, tr("dlg.properties_title"));
}

void App::read_properties(const FsEntry& entry, const std::string& dir) {
    m_properties = file_ops::properties_of(entry, dir);
    m_perm_edit = entry.perm;
    m_perm_editable = true;
    if (entry.is_symlink()) {
        // A change goes through to what it points to.
        const fsops::Stat goal = fsops::stat_path(m_properties.path);
        m_perm_editable = goal.exists;
        if (goal.exists)
            m_perm_edit = goal.perm;
    }
    m_owner_editable = m_perm_editable && running_as_root();
    m_owner_text[0] = m_properties.owner;
    m_owner_text[1] = m_properties.group;
    for (const int which : {0, 1})
        m_owner_caret[which] = m_owner_text[which].size();
}

// A new owner takes the set-user bit away, so the bits come second. What has not been edited, as
// where there are no fields to edit it in, is left as it is.
void App::apply_properties() {
    if (m_overlay != Overlay::Properties || !m_perm_editable)
        return;
    const std::string path = m_properties.path;
    // What the dialogue was opened on was no link. One that stands there now leads to a file that
    // nobody has been shown.
    if (m_properties.link_target.empty() && fsops::lstat_path(path).is_symlink) {
        refresh_both();
        return show_error(fmt::embedded(path) + ": " + std::strerror(ELOOP));
    }
    const bool recursive = m_perm_recursive && m_properties.is_dir;
    const std::string user = m_owner_text[0] == m_properties.owner ? "" : m_owner_text[0];
    const std::string group = m_owner_text[1] == m_properties.group ? "" : m_owner_text[1];
    std::string error = file_ops::set_owner(path, user, group, recursive);
    const std::string perm_error = file_ops::set_permissions(path, m_perm_edit, recursive);
    refresh_both();
    if (error.empty())
        error = perm_error;
    if (!error.empty())
        return show_error(error);
    for (const Pane* pane : {&active_pane(), &other_pane()}) {
        const int index =
            pane->path() == su::parent_of(path) ? pane->index_of(m_properties.name) : -1;
        if (index >= 0)
            return read_properties(pane->entries()[static_cast<size_t>(index)], pane->path());
    }
}

// --- Facts ------------------------------------------------------------------------------------

int App::properties_rows() const {
    return static_cast<int>(property_rows().size());
}

// Size and owner are always told.
std::vector<App::PropertyRow> App::property_rows() const {
    const file_ops::Properties& p = m_properties;
    std::vector<PropertyRow> rows;
    if (const std::string parent = su::parent_of(p.path); !parent.empty())
        rows.push_back({"prop.path", parent});
    rows.push_back({"prop.size", property_size()});
    if (p.is_dir) {
        const file_ops::folder_size::Status size = file_ops::folder_size::snapshot();
        rows.push_back({"prop.contents",
                        I18n::instance().trf("prop.contents_value", fmt::count(size.files).c_str(),
                                             fmt::count(size.dirs).c_str())});
    }
    if (p.mtime > 0)
        rows.push_back({"prop.modified", fmt::date_time_seconds(p.mtime)});
    rows.push_back(
        {m_owner_editable ? "prop.owner_group" : "prop.owner", p.owner + " : " + p.group});
    if (!p.link_target.empty())
        rows.push_back({"prop.link_target", p.link_target});
    if (p.free_space >= 0)
        rows.push_back({"prop.free_space", fmt::bytes(p.free_space)});
    return rows;
}

// What could not be read has a size as well.
std::string App::property_size() const {
    if (!m_properties.is_dir)
        return fmt::bytes(m_properties.size);
    const file_ops::folder_size::Status size = file_ops::folder_size::snapshot();
    const std::string text = fmt::bytes(size.bytes);
    return size.running || size.incomplete ? tr("prop.at_least") + (" " + fmt::embedded(text))
                                           : text;
}

// --- Painting ---------------------------------------------------------------------------------

void App::draw_overlay_properties(double x, double y, double w, double h) {
    draw_text_clipped(m_properties.name, x + 20, y + 70, w - 40, 15, m_palette.text, false, false);
    // In a window that is too low the facts make room: all that can be changed stays in reach.
    const double below = m_properties.is_dir ? kBelowFactsOfFolder : kBelowFacts;
    const Rect facts = {x, y + kRowsTop, w, h - below - kRowsTop};
    draw_property_rows(facts);

    const double rule = facts.y + facts.h + kRuleGap;
    fill_rect(x + 20, rule, w - 40, 1, m_palette.divider, 1);
    const double grid = rule + kHeadGap + kGridGap;
    draw_permissions(x, rule + kHeadGap, w);
    if (m_properties.is_dir)
        draw_recursive_box(x + kValueX, grid + kBoxGap, w - kValueX - 20);
    std::vector<ButtonSpec> buttons = {{"btn.close", Action::OverlayCancel}};
    if (m_perm_editable)
        buttons.push_back({"prop.apply", Action::PermsApply, true});
    draw_buttons(x, y + h - 46, w, buttons);
}

void App::draw_property_rows(const Rect& area) {
    const std::vector<PropertyRow> rows = property_rows();
    const int total = static_cast<int>(rows.size());
    m_overlay_page = std::clamp(static_cast<int>(area.h / kRow), 0, total);
    m_overlay_scrolls = m_overlay_page < total;
    m_list_scroll = std::clamp(m_list_scroll, 0, total - m_overlay_page);
    for (int i = 0; i < m_overlay_page; ++i) {
        const PropertyRow& row = rows[static_cast<size_t>(m_list_scroll + i)];
        const double centre = area.y + kRow * i + kRow / 2;
        draw_text_clipped(tr(row.label), area.x + 20, centre, kLabelRoom, kSmall,
                          m_palette.secondary, false, false);
        const std::string_view label = row.label;
        if (label == "prop.owner_group") {
            draw_owner_fields(area.x + kValueX, centre, area.w - kValueX - 20);
            continue;
        }
        draw_text_clipped(row.value, area.x + kValueX, centre, area.w - 170, kSize, m_palette.text,
                          false, false);
        if (label == "prop.size" && m_properties.is_dir &&
            file_ops::folder_size::snapshot().running)
            draw_counting_dot(area.x + area.w - 20 - 52, centre);
    }
    if (m_overlay_scrolls)  // in the margin
        draw_list_thumb({area.x, area.y, area.w - 3, area.h}, total, m_list_scroll);
}

void App::draw_counting_dot(double x, double y) {
    const double wave = 0.5 + 0.5 * std::sin(5 * now_seconds());
    set_color(m_palette.accent, 0.2 + 0.8 * wave);
    cairo_new_sub_path(m_cr);
    cairo_arc(m_cr, x, y, 2.6, 0, 2 * G_PI);
    cairo_fill(m_cr);
}

void App::draw_owner_fields(double x, double centre, double w) {
    constexpr double kHeight = 20;
    constexpr double kBetween = 16;
    const double field_w = std::min(130.0, (w - kBetween) / 2);
    for (const int which : {0, 1}) {
        const Rect box = {x + which * (field_w + kBetween), centre - kHeight / 2, field_w, kHeight};
        const bool focused = which == m_owner_focus;
        fill_rounded(box.x, box.y, box.w, box.h, 3, m_palette.control, 1);
        stroke_rounded(box.x, box.y, box.w, box.h, 3,
                       focused ? m_palette.accent : m_palette.control_edge, 1, 1);
        m_owner_field[which] = {box, box.x + 6, kSize};
        cairo_save(m_cr);
        clip_to(box.x + 3, box.y, box.w - 6, box.h);
        if (focused)
            m_owner_field[which].text_x =
                draw_field_text(TextField::Owner, m_owner_text[which], m_owner_caret[which],
                                box.x + 6, centre, box.w - 12, kSize, m_palette.control_text, 7);
        else
            draw_text(m_owner_text[which], box.x + 6, centre, kSize, m_palette.control_text, false,
                      false, 1);
        cairo_restore(m_cr);
        add_hit(box.x, box.y, box.w, box.h, Hit::OwnerField, which, false, m_owner_text[which]);
    }
    draw_text(":", x + field_w + kBetween / 2 - text_width(":", kSize, false, false) / 2, centre,
              kSize, m_palette.text, false, false, 1);
}

// y is the line of the heads, above the bits.
void App::draw_permissions(double x, double y, double w) {
    constexpr const char* kGroups[] = {"u", "g", "o"};
    draw_text_clipped(tr("prop.set_permissions"), x + 20, y, kLabelRoom, kSmall,
                      m_palette.secondary, false, false);
    for (int group = 0; group < 3; ++group) {
        const double left = x + kValueX + kGroupStep * group;
        draw_text(kGroups[group], left, y, kSmall, m_palette.dim, false, false, 1);
        for (int i = 0; i < 3; ++i)
            draw_permission_bit(8 - 3 * group - i, left + kBitStep * i, y + kGridGap);
    }
    char octal[8];
    std::snprintf(octal, sizeof octal, "%04o", m_perm_edit & 07777);
    draw_text_right(octal, x + w - 20, y + kGridGap + kBit / 2, kSize, m_palette.text, false,
                    false);
}

void App::draw_permission_bit(int bit, double x, double y) {
    constexpr const char* kLetters[] = {"x", "w", "r"};
    const std::string letter = kLetters[bit % 3];
    const bool set = m_perm_edit >> bit & 1;
    fill_rounded(x, y, kBit, kBit, 3, set ? m_palette.accent : m_palette.control, 1);
    if (!set)
        stroke_rounded(x, y, kBit, kBit, 3, m_palette.control_edge, 1, 1);
    // In the middle of what 6 at either side leave over.
    draw_text(letter, x + 6 + (kBit - 12 - text_width(letter, kSmall, false, false)) / 2,
              y + kBit / 2, kSmall, set ? "#FFFFFF" : m_palette.dim, false, false, 1);
    if (m_perm_editable)
        add_hit(x, y, kBit, kBit, Hit::PermBit, bit, false, letter);
}

void App::draw_recursive_box(double x, double y, double w) {
    constexpr double kSide = 14;
    constexpr double kTextX = kSide + 8;
    const std::string label = tr("prop.recursive");
    fill_rounded(x, y, kSide, kSide, 3, m_perm_recursive ? m_palette.accent : m_palette.control, 1);
    stroke_rounded(x, y, kSide, kSide, 3, m_palette.control_edge, 1, 1);
    if (m_perm_recursive)
        draw_tick(x + 3, y + kSide / 2, kSide - 6, "#FFFFFF");
    const double text_w = draw_text_clipped(label, x + kTextX, y + kSide / 2, w - kTextX, kSize,
                                            m_palette.text, false, false);
    add_hit(x, y - 4, kTextX + text_w, kSide + 8, Hit::Overlay,
            static_cast<int>(Action::PermsToggleBit), false, label);
}

// --- Input ------------------------------------------------------------------------------------

void App::click_permission(int bit) {
    if (bit >= 0 && bit <= 8)
        m_perm_edit ^= 1U << bit;
}

void App::click_owner_field(int which, double x) {
    m_owner_focus = which;
    m_owner_caret[which] = caret_at(m_owner_text[which], m_owner_field[which], x);
}
