// The bar that names the drive of a pane's folder, and the list that its button opens, which is
// painted above both panes. Logical units. Both show the drives as they were when the frame began;
// nothing here touches a disk.

#include "app.h"

#include "format.h"
#include "i18n.h"
#include "settings.h"

#include <algorithm>

namespace {

constexpr double kRow = 30;
constexpr double kListMargin = 4;
constexpr double kTextX = 34;
constexpr double kPathButton = 30;
// Numbers that would leave less than this to a drive's name are not shown.
constexpr double kLeastName = 80;

App::Rect drive_button(double x, double y, double w) {
    return {x + 10, y + 4, std::max(0.0, w - 20 - kPathButton - 6), 26};
}

const std::string& dot_color(const Palette& palette, drives::Kind kind) {
    switch (kind) {
    case drives::Kind::Home:
        return palette.accent;
    case drives::Kind::Bookmark:
        return palette.link_text;
    case drives::Kind::Removable:
        return palette.warn;
    case drives::Kind::Network:
        return palette.exec_text;
    case drives::Kind::Local:
    case drives::Kind::Root:
        break;
    }
    return palette.secondary;
}

// A pencil along the x axis with its point to the left; its body is centred on the origin.
void pencil(cairo_t* cr) {
    constexpr double kLength = 8.4;
    constexpr double kHeight = 5.2;
    cairo_rectangle(cr, -kLength / 2, -kHeight / 2, kLength, kHeight);
    cairo_fill(cr);
    cairo_move_to(cr, -kLength / 2, -2.4);
    cairo_line_to(cr, -kLength / 2 - 2.6, 0);
    cairo_line_to(cr, -kLength / 2, 2.4);
    cairo_close_path(cr);
    cairo_fill(cr);
}

}  // namespace

// --- Bar --------------------------------------------------------------------------------------

void App::draw_drive_bar(const Pane& pane, bool right, double x, double y, double w) {
    fill_band(x, y, w, Layout::drive_h, m_palette.bar);
    draw_drive_button(pane, right, drive_button(x, y, w));
    draw_path_button(right, {x + w - 10 - kPathButton, y + 4, kPathButton, 26});
}

void App::draw_drive_button(const Pane& pane, bool right, const Rect& button) {
    const HitRect* hover = hovered();
    const bool hot = hover && hover->what == Hit::DrivePicker && hover->right == right;
    const bool open = m_open_drive_picker == (right ? 1 : 0);
    fill_rounded(button.x, button.y, button.w, button.h, 4,
                 hot || open ? m_palette.control_hover : m_palette.control, 1);
    stroke_rounded(button.x, button.y, button.w, button.h, 4, m_palette.control_edge, 1, 1);

    const double centre = button.y + button.h / 2;
    const double button_end = button.x + button.w;
    const std::string label = drives::label_for_path(pane.path());
    const double label_w = draw_text_clipped(label, button.x + 10, centre, button.w - 30, 12.5,
                                             m_palette.text, false, false);
    const drives::Drive* const drive = drives::holder_of(m_frame_drives, pane.path());
    if (drive && drive->total_bytes > 0) {
        const std::string space =
            fmt::embedded(fmt::bytes(drive->free_bytes)) + " " + tr("label.free");
        const double room = button.w - 10 - label_w - 10 - 22;
        if (text_width(space, 11, false, false) <= room)
            draw_text_right(space, button_end - 22, centre, 11, m_palette.secondary, false, false);
    }
    set_color(m_palette.secondary, 1);
    cairo_move_to(m_cr, button_end - 14 - 4, centre - 2);
    cairo_line_to(m_cr, button_end - 14, centre + 2);
    cairo_line_to(m_cr, button_end - 14 + 4, centre - 2);
    cairo_set_line_width(m_cr, 1.6);
    cairo_stroke(m_cr);
    add_hit(button.x, button.y, button.w, button.h, Hit::DrivePicker, 0, right, label);
}

void App::draw_path_button(bool right, const Rect& button) {
    const HitRect* hover = hovered();
    const bool hot = hover && hover->what == Hit::PathEdit && hover->right == right;
    const bool editing = m_path_edit == (right ? 1 : 0);
    fill_rounded(button.x, button.y, button.w, button.h, 4,
                 editing ? m_palette.accent
                 : hot   ? m_palette.control_hover
                         : m_palette.control,
                 1);
    stroke_rounded(button.x, button.y, button.w, button.h, 4,
                   editing ? m_palette.accent : m_palette.control_edge, 1, 1);

    const std::string& color = editing ? m_palette.selection_text : m_palette.control_text;
    cairo_save(m_cr);
    cairo_translate(m_cr, button.x + button.w / 2, button.y + button.h / 2);
    cairo_rotate(m_cr, -0.785);
    set_color(color, 1);
    pencil(m_cr);
    fill_rect(8.4 / 2 + 0.8, -2.6, 1.4, 5.2, color, 0.55);  // the eraser
    cairo_restore(m_cr);
    add_hit(button.x, button.y, button.w, button.h, Hit::PathEdit, 0, right);
}

// --- List -------------------------------------------------------------------------------------

// x, y and w are those of the bar.
void App::draw_drive_list(double x, double y, double w) {
    const Rect button = drive_button(x, y, w);
    const int count = static_cast<int>(m_frame_drives.size());
    const double room = m_layout.height - (button.y + button.h) - 34 - 20;
    const double h = std::min(kRow * count + 2 * kListMargin, std::max(0.0, room));
    m_drive_list = {button.x, button.y + button.h + 2, button.w, h};
    const Rect& list = m_drive_list;
    fill_rounded(list.x + 2, list.y + 3, list.w, h, 4, "#000000", 0.12);
    fill_rounded(list.x, list.y, list.w, h, 4, m_palette.menu_bg, 1);
    stroke_rounded(list.x, list.y, list.w, h, 4, m_palette.menu_border, 1, 1);

    const double inside_h = h - 2 * kListMargin;
    if (inside_h <= 0)
        return;
    add_hit(list.x, list.y, list.w, h, Hit::None);  // its edges
    const int page = std::max(1, static_cast<int>(inside_h / kRow));
    m_drive_scroll = std::clamp(m_drive_scroll, 0, std::max(0, count - page));
    const double top = list.y + kListMargin;
    const size_t first_hit = m_hits.size();
    cairo_save(m_cr);
    clip_to(list.x, top, list.w, inside_h);
    for (int i = m_drive_scroll; i < count; ++i) {
        const double row_y = top + kRow * (i - m_drive_scroll);
        if (row_y >= top + inside_h)
            break;
        draw_drive_row(i, {list.x, row_y, list.w, kRow});
    }
    cairo_restore(m_cr);
    clip_hits(first_hit, list.x, top, list.w, inside_h);
    if (page < count) {
        const double thumb_h = inside_h * page / count;
        fill_rounded(list.x + list.w - 5,
                     top + (inside_h - thumb_h) * m_drive_scroll / (count - page), 3, thumb_h, 1.5,
                     m_palette.secondary, 0.55);
    }
}

void App::draw_drive_row(int index, const Rect& row) {
    const drives::Drive& drive = m_frame_drives[static_cast<size_t>(index)];
    const bool hot = index == m_drive_hover;
    if (hot)
        fill_rect(row.x + 2, row.y + 2, row.w - 4, row.h - 4, m_palette.menu_hover, 1);
    if (index > 0 && m_frame_drives[static_cast<size_t>(index) - 1].kind != drive.kind)
        fill_rect(row.x + 8, row.y, row.w - 16, 1, m_palette.divider, 1);

    const double centre = row.y + row.h / 2;
    set_color(hot ? "#FFFFFF" : dot_color(m_palette, drive.kind), 1);
    cairo_new_sub_path(m_cr);
    cairo_arc(m_cr, row.x + 14, centre, 4, 0, 2 * G_PI);
    cairo_fill(m_cr);

    double room = row.w - kTextX - 10;
    if (drive.total_bytes > 0) {
        const std::string numbers = fmt::embedded(fmt::bytes(drive.free_bytes)) + " / " +
                                    fmt::embedded(fmt::bytes(drive.total_bytes)) + " " +
                                    tr("label.free");
        const double left = room - 10 - text_width(numbers, 11, false, false);
        if (left >= kLeastName) {
            draw_text_right(numbers, row.x + row.w - 10, centre, 11, m_palette.secondary, false,
                            false);
            room = left;
        }
    }
    draw_text_clipped(drive.label, row.x + kTextX, centre - 7, room, 12.5, m_palette.text, false,
                      false);
    draw_text_clipped(drive.path, row.x + kTextX, centre + 7, room, 11, m_palette.dim, false,
                      false);
    add_hit(row.x, row.y, row.w, row.h, Hit::DriveItem, index, false, drive.label);
}

// --- Pointer ----------------------------------------------------------------------------------

void App::click_drive_picker(bool right) {
    const int side = right ? 1 : 0;
    const bool was_open = m_open_drive_picker == side;
    close_menus();
    if (!was_open)
        m_open_drive_picker = side;
    m_drive_scroll = 0;
    drives::refresh();
}

// The drive that was painted is the one that is meant, wherever it stands in the list by now.
void App::click_drive_item(int index) {
    const bool right = m_open_drive_picker == 1;
    close_menus();
    if (index < 0 || static_cast<size_t>(index) >= m_frame_drives.size())
        return;
    const std::string path = m_frame_drives[static_cast<size_t>(index)].path;
    const std::vector<drives::Drive> now = drives::list();
    if (std::none_of(now.begin(), now.end(),
                     [&](const drives::Drive& drive) { return drive.path == path; }))
        return;
    if (!commit_rename())
        return;
    m_active_right = right;
    active_pane().navigate_to(path, show_hidden());
}

void App::hover_drive(const HitRect* hit) {
    const int index = hit && hit->what == Hit::DriveItem ? hit->param : -1;
    if (index == m_drive_hover)
        return;
    m_drive_hover = index;
    request_redraw();
}

bool App::drive_list_at(double x, double y) const {
    const Rect& list = m_drive_list;
    return m_open_drive_picker >= 0 && x >= list.x && x < list.x + list.w && y >= list.y &&
           y < list.y + list.h;
}

void App::scroll_drive_list(int rows) {
    m_drive_scroll = std::max(0, m_drive_scroll + rows);
    request_redraw();
}
