// The dialogue of the bookmarks: a list of the folders, each with a mark that forgets it.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "bookmarks.h"
#include "i18n.h"
#include "settings.h"

#include <algorithm>

namespace {

constexpr double kRow = 30;
constexpr double kListTop = 56;
constexpr double kBelowList = 56;
constexpr double kNameX = 34;  // from the row's left edge
constexpr double kNameRoom = 130;
constexpr double kForgetRoom = 70;  // of the row's right end
constexpr double kForgetX = 44;     // the cross, from the row's right edge

}  // namespace

void App::draw_overlay_bookmarks(double x, double y, double w, double h) {
    bookmarks::load();
    const std::vector<bookmarks::Bookmark>& marks = bookmarks::all();
    const Rect list = {x + 16, y + kListTop, w - 32, h - kListTop - kBelowList};
    const int total = static_cast<int>(marks.size());
    m_overlay_scrolls = true;
    m_overlay_page = std::max(1, static_cast<int>(list.h / kRow));
    m_list_scroll = std::clamp(m_list_scroll, 0, std::max(0, total - m_overlay_page));
    if (marks.empty())
        wrapped_text(tr("bookmark.empty"), list.x + 8, list.y + 8, list.w - 16, 12.5,
                     &m_palette.secondary);

    const size_t first_hit = m_hits.size();
    cairo_save(m_cr);
    clip_to(list.x, list.y, list.w, list.h);
    for (int i = 0; i <= m_overlay_page && m_list_scroll + i < total; ++i) {
        const int index = m_list_scroll + i;
        draw_bookmark(index, marks[static_cast<size_t>(index)].name,
                      marks[static_cast<size_t>(index)].path,
                      {list.x, list.y + kRow * i, list.w, kRow});
    }
    cairo_restore(m_cr);
    clip_hits(first_hit, list.x, list.y, list.w, list.h);
    draw_list_thumb(list, total, m_list_scroll);
    draw_buttons(x, y + h - 46, w, {{"btn.close", Action::OverlayCancel}});
}

void App::draw_bookmark(int index, const std::string& name, const std::string& path,
                        const Rect& row) {
    const double centre = row.y + kRow / 2;
    if (m_list_hover == index)
        fill_rounded(row.x, row.y, row.w, row.h, 4, m_palette.control_hover, 1);
    // A ribbon, so that the names stand where those of folders do.
    set_color(m_palette.accent, 1);
    cairo_move_to(m_cr, row.x + 14, centre - 7);
    cairo_rel_line_to(m_cr, 9, 0);
    cairo_rel_line_to(m_cr, 0, 14);
    cairo_rel_line_to(m_cr, -4.5, -4);
    cairo_rel_line_to(m_cr, -4.5, 4);
    cairo_close_path(m_cr);
    cairo_fill(m_cr);
    draw_text_clipped(name, row.x + kNameX, centre, kNameRoom - 8, 12.5, m_palette.text, false,
                      false);
    draw_text_clipped(path, row.x + kNameX + kNameRoom, centre,
                      row.w - kNameX - kNameRoom - kForgetRoom, 11, m_palette.secondary, false,
                      false);
    add_hit(row.x, row.y, row.w - kForgetRoom, row.h, Hit::ListItem, index, false, name);

    const double cross = row.x + row.w - kForgetX;
    set_color(m_palette.secondary, 0.45);
    cairo_set_line_width(m_cr, 1.6);
    cairo_move_to(m_cr, cross - 5, centre - 5);
    cairo_line_to(m_cr, cross + 5, centre + 5);
    cairo_move_to(m_cr, cross - 5, centre + 5);
    cairo_line_to(m_cr, cross + 5, centre - 5);
    cairo_stroke(m_cr);
    // A row of its own kind: the number is turned over.
    add_hit(cross - 12, centre - 12, 24, 24, Hit::ListItem, ~index, false, tr("bookmark.forget"));
}

// The list may have become another one since it was painted.
void App::click_bookmark(int param) {
    const std::vector<bookmarks::Bookmark>& marks = bookmarks::all();
    const int index = param < 0 ? ~param : param;
    if (index < 0 || static_cast<size_t>(index) >= marks.size())
        return;
    const std::string path = marks[static_cast<size_t>(index)].path;
    if (param < 0) {
        bookmarks::remove(path);
        return request_redraw();
    }
    close_overlay();
    active_pane().navigate_to(path, SettingsStore::instance().get().show_hidden);
}
