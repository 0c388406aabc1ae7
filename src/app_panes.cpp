// The two panes, painted anew with each frame. A pane is a stack of bands in logical units, from
// its top: banner, drive bar, path bar, filter bar, column header, rows, and at the bottom the
// horizontal scrollbar; App::Layout has their heights. The rows get what the others leave, which
// may be nothing: then the lower bands are cut off at the pane's bottom edge, and so are their hit
// rectangles.

#include "app.h"

#include "format.h"
#include "i18n.h"
#include "settings.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kRow = 24;
constexpr double kScrollbar = 11;
constexpr double kHeadTextSize = 11;
constexpr double kNameSize = 12.5;
constexpr double kFlashSeconds = 0.45;

// The components of a path, without the empty ones that a doubled slash makes.
std::vector<std::string> components_of(const std::string& path) {
    std::vector<std::string> parts;
    size_t begin = 0;
    while (begin < path.size()) {
        const size_t end = std::min(path.find('/', begin), path.size());
        if (end > begin)
            parts.push_back(path.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

void triangle(cairo_t* cr, double x0, double y0, double x1, double y1, double x2, double y2) {
    cairo_move_to(cr, x0, y0);
    cairo_line_to(cr, x1, y1);
    cairo_line_to(cr, x2, y2);
    cairo_close_path(cr);
    cairo_fill(cr);
}

void line(cairo_t* cr, double x0, double y0, double x1, double y1, double width) {
    cairo_move_to(cr, x0, y0);
    cairo_line_to(cr, x1, y1);
    cairo_set_line_width(cr, width);
    cairo_stroke(cr);
}

// How far its symbol moves a name to the right.
double name_indent(const FsEntry& entry) {
    return entry.is_dir_like() || entry.kind == FsEntry::Kind::Parent ? kFolderSymbol : 0;
}

// A folder, 15 wide, with its tab at the upper left.
void folder_symbol(cairo_t* cr, double x, double y) {
    cairo_move_to(cr, x, y);
    cairo_line_to(cr, x + 5, y);
    cairo_line_to(cr, x + 7, y + 2);
    cairo_line_to(cr, x + 15, y + 2);
    cairo_line_to(cr, x + 15, y + 11);
    cairo_line_to(cr, x, y + 11);
    cairo_close_path(cr);
    cairo_fill(cr);
}

}  // namespace

// --- The whole pane ---------------------------------------------------------------------------

void App::draw_pane(Pane& pane, bool right, double x, double y, double w, double h) {
    keep_cursor_in_view(pane, right);
    const size_t first_hit = m_hits.size();
    cairo_save(m_cr);
    clip_to(x, y, w, h);
    fill_rect(x - 1, y - 1, w + 2, h + 2,
              right == m_active_right ? m_palette.pane_active : m_palette.pane, 1);
    double top = y;
    draw_pane_banner(right, x, top, w);
    top += Layout::banner_h;
    draw_drive_bar(pane, right, x, top, w);
    top += Layout::drive_h;
    draw_path_bar(pane, right, x, top, w);
    top += Layout::path_h;
    const double below_path = top;
    if (filter_bar_shown(right)) {
        draw_search_bar(pane, right, x, top, w);
        top += Layout::search_h;
    }
    const Columns columns = place_pane_columns(pane, right, x, w);
    draw_pane_header(pane, right, columns, x, top, w);
    top += Layout::head_h;
    const double rows_h = std::max(0.0, y + h - Layout::hscroll_h - top);
    draw_pane_rows(pane, right, columns, x, top, w, rows_h);
    draw_reload_flash(x, top, w, rows_h);
    draw_pane_hscroll(right, x, top + rows_h);
    draw_pane_vscroll(pane, right, x, top, w, rows_h);
    if (m_path_edit == (right ? 1 : 0) && !m_path_error.empty())
        draw_path_error(x, below_path, w);
    if (frame_busy())
        fill_rect(x - 1, y - 1, w + 2, h + 2, m_palette.window, 0.45);
    draw_pane_frame(right, x, y, w, h);
    cairo_restore(m_cr);
    clip_hits(first_hit, x, y, w, h);
}

// The progress band takes rows from the lists, and a filter bar does. A cursor that was in view
// stays there; one that the user has scrolled away from does not pull the list back.
void App::keep_cursor_in_view(Pane& pane, bool right) {
    const int rows = rows_in_view(right);
    int& before = m_rows_painted[right ? 1 : 0];
    const bool was_in_view =
        pane.cursor() >= pane.scroll() && pane.cursor() - pane.scroll() < before;
    if (was_in_view && rows != before)
        pane.ensure_cursor_visible(rows);
    before = rows;
    // The list keeps its place over a reload, which may have made it shorter.
    pane.set_scroll(pane.scroll(), rows);
}

Columns App::place_pane_columns(const Pane& pane, bool right, double x, double w) {
    const Settings& settings = SettingsStore::instance().get();
    const int side = right ? 1 : 0;
    const bool scrollbar = static_cast<int>(pane.entries().size()) > rows_in_view(right);
    const double scrollbar_w = scrollbar ? kScrollbar : 0;
    Columns columns = compute_columns(x, w, settings, scrollbar_w, m_pane_hscroll[side]);
    const double view_w = w - scrollbar_w;
    m_pane_content_w[side] = columns.content_w;
    m_pane_name_w[side] = columns.name_w;
    m_pane_view_w[side] = view_w;
    const double clamped =
        std::clamp(m_pane_hscroll[side], 0.0, std::max(0.0, columns.content_w - view_w));
    if (clamped != m_pane_hscroll[side]) {
        m_pane_hscroll[side] = clamped;
        columns = compute_columns(x, w, settings, scrollbar_w, clamped);
    }
    return columns;
}

void App::draw_reload_flash(double x, double y, double w, double h) {
    const double left = m_reload_flash_until > 0 ? m_reload_flash_until - now_seconds() : 0;
    if (left <= 0) {
        m_reload_flash_until = 0;
        return;
    }
    const double share = left / kFlashSeconds;
    fill_rect(x, y, w, h, m_palette.accent, 0.16 * share * share);
}

void App::draw_pane_frame(bool right, double x, double y, double w, double h) {
    const bool active = right == m_active_right;
    const bool drop_target = m_drag_active && m_drag_inside && m_drag_target_right == right;
    const double inset = drop_target ? 2 : 1.5;
    const Rect area = whole_pixels(x, y, w, h);
    if (drop_target)
        set_color(m_palette.ok, 1);
    else
        set_color(active ? m_palette.source_tint : m_palette.target_tint, active ? 1 : 0.45);
    cairo_rectangle(m_cr, area.x + inset, area.y + inset, std::max(0.0, area.w - 2 * inset),
                    std::max(0.0, area.h - 2 * inset));
    cairo_set_line_width(m_cr, drop_target || active ? 4 : 1.5);
    cairo_stroke(m_cr);
}

// --- The bands above the rows -----------------------------------------------------------------

// The word stands at the pane's outer edge, so that the right banner is the mirror of the left one.
// The arrows of both lead from the source to the target.
void App::draw_pane_banner(bool right, double x, double y, double w) {
    const bool active = right == m_active_right;
    const double centre = y + Layout::banner_h / 2;
    fill_band(x - 1, y - 1, w + 2, Layout::banner_h + 1,
              active ? m_palette.source_tint : m_palette.target_tint);
    add_hit(x, y, w, Layout::banner_h, Hit::PaneBanner, 0, right);

    constexpr double kMargin = 14;
    constexpr double kGap = 12;
    constexpr double kArrow = 28;
    const std::string word = tr(active ? "pane.source" : "pane.target");
    const double word_w = std::min(text_width(word, 14, true, false), w - 2 * kMargin);
    const double word_x = right ? x + w - kMargin - word_w : x + kMargin;
    draw_text_clipped(word, word_x, centre, word_w, 14, "#FFFFFF", true, false);
    if (2 * kMargin + word_w + kGap + kArrow > w)
        return;
    const double arrow_x = right ? word_x - kGap - kArrow : word_x + word_w + kGap;
    const double tip = m_active_right ? arrow_x : arrow_x + kArrow;
    const double tail = m_active_right ? arrow_x + kArrow : arrow_x;
    const double neck = m_active_right ? tip + 9 : tip - 9;
    set_color("#FFFFFF", 0.95);
    line(m_cr, tail, centre, neck, centre, 3);
    triangle(m_cr, tip, centre, neck, centre - 7, neck, centre + 7);

    const std::string hint = tr(active ? "pane.source_hint" : "pane.target_hint");
    const double hint_w = text_width(hint, 11, false, false);
    if (word_w + hint_w + 2 * kMargin + 2 * kGap + kArrow > w)
        return;
    const double hint_x = right ? arrow_x - kGap - hint_w : arrow_x + kArrow + kGap;
    draw_text(hint, hint_x, centre, 11, "#FFFFFF", false, false, 0.85);
}

void App::draw_path_bar(const Pane& pane, bool right, double x, double y, double w) {
    const bool active = right == m_active_right;
    fill_band(x, y, w, Layout::path_h, active ? m_palette.header_active : m_palette.header);
    const bool edited = m_path_edit == (right ? 1 : 0);
    add_hit(x, y, w, Layout::path_h, edited ? Hit::PathEdit : Hit::PathBar, 0, right);
    if (edited)
        draw_path_editor(x, y, w);
    else
        draw_breadcrumb(pane.path(), right, x, y, w);
}

// The root, then as many of the last folders as fit, the last one always.
void App::draw_breadcrumb(const std::string& path, bool right, double x, double y, double w) {
    const double centre = y + Layout::path_h / 2;
    const std::vector<std::string> parts = components_of(path);
    const auto segment_hit = [&](double text_x, double text_w, size_t keep) {
        add_hit(text_x - 3, y, text_w + 6, Layout::path_h, Hit::PathSegment, static_cast<int>(keep),
                right);
    };
    double text_x = x + 10;
    const double root_w = text_width("/", kHeadTextSize, false, false);
    draw_text("/", text_x, centre, kHeadTextSize, m_palette.accent, false, false, 1);
    segment_hit(text_x, root_w, 0);
    text_x += root_w + 6;

    const double room_end = x + w - 30;
    std::vector<double> widths;
    double total = 0;
    for (const std::string& part : parts) {
        widths.push_back(text_width(part, kHeadTextSize, false, false));
        total += widths.back() + 14;
    }
    size_t first = 0;
    while (first + 1 < parts.size() && text_x + total > room_end)
        total -= widths[first++] + 14;
    if (first > 0) {
        draw_text("…", text_x, centre, kHeadTextSize, m_palette.dim, false, false, 1);
        text_x += text_width("…", kHeadTextSize, false, false) + 8;
    }
    for (size_t i = first; i < parts.size(); ++i) {
        const bool last = i + 1 == parts.size();
        const double room = last ? x + w - 10 - text_x : widths[i];
        const double text_w =
            draw_text_clipped(parts[i], text_x, centre, room, kHeadTextSize,
                              last ? m_palette.text : m_palette.accent, false, false);
        segment_hit(text_x, text_w, i + 1);
        if (!last)
            draw_text("›", text_x + text_w + 4, centre, kHeadTextSize, m_palette.dim, false, false,
                      1);
        text_x += text_w + 14;
    }
}

void App::draw_path_editor(double x, double y, double w) {
    constexpr double kHeight = Layout::path_h;
    fill_band(x, y, w, kHeight, m_palette.control);
    set_color(m_path_error.empty() ? m_palette.accent : m_palette.danger, 1);
    cairo_rectangle(m_cr, x + 1, y + 1, std::max(0.0, w - 2), 24);
    cairo_set_line_width(m_cr, 2);
    cairo_stroke(m_cr);

    cairo_save(m_cr);
    clip_to(x + 4, y, std::max(0.0, w - 8), kHeight);
    const double text_x =
        draw_field_text(TextField::Path, m_path_buffer, m_path_caret, x + 10, y + kHeight / 2,
                        w - 20 - 12, kHeadTextSize, m_palette.control_text, kHeight / 2 - 4);
    m_path_field = {{x, y, w, kHeight}, text_x, kHeadTextSize};
    cairo_restore(m_cr);
}

void App::draw_path_error(double x, double y, double w) {
    fill_band(x, y, w, 20, m_palette.danger_bg);
    fill_band(x, y, 3, 20, m_palette.danger);
    draw_text_clipped(m_path_error, x + 10, y + 10, w - 20, 11, m_palette.danger, false, false);
}

void App::draw_search_bar(const Pane& pane, bool right, double x, double y, double w) {
    const bool focus = m_search_pane == (right ? 1 : 0);
    fill_band(x, y, w, Layout::search_h, m_palette.header);

    const double bx = x + 10, by = y + 3, bw = w - 20, bh = 22;
    const double centre = by + bh / 2;
    fill_rounded(bx, by, bw, bh, 4, m_palette.control, 1);
    stroke_rounded(bx, by, bw, bh, 4, focus ? m_palette.accent : m_palette.control_edge, 1,
                   focus ? 1.5 : 1);
    add_hit(bx, by, bw, bh, Hit::SearchBar, 0, right);

    set_color(m_palette.secondary, 1);
    cairo_new_sub_path(m_cr);
    cairo_arc(m_cr, bx + 14, centre, 4.2, 0, 2 * G_PI);
    cairo_set_line_width(m_cr, 1.6);
    cairo_stroke(m_cr);
    line(m_cr, bx + 14 + 3.2, centre + 2.7, bx + 14 + 6.5, centre + 5.5, 1.6);

    const double cross_x = bx + bw - 13;
    const HitRect* hover = hovered();
    const bool hot = hover && hover->what == Hit::SearchClear && hover->right == right;
    set_color(hot ? m_palette.danger : m_palette.secondary, 1);
    line(m_cr, cross_x - 3.5, centre - 3.5, cross_x + 3.5, centre + 3.5, 1.6);
    line(m_cr, cross_x - 3.5, centre + 3.5, cross_x + 3.5, centre - 3.5, 1.6);
    add_hit(cross_x - 9, by, 18, bh, Hit::SearchClear, 0, right);

    const std::string count = fmt::count(static_cast<int64_t>(pane.entries().size())) + " / " +
                              fmt::count(pane.unfiltered_count());
    const double count_right = cross_x - 9 - 4;
    const double count_x = count_right - text_width(count, 11, false, false);
    draw_text_right(count, count_right, centre, 11, m_palette.secondary, false, false);

    const double text_x = bx + 26;
    const double room = count_x - 8 - text_x;
    if (room <= 0)
        return;
    cairo_save(m_cr);
    clip_to(text_x - 1, by, room + 1, bh);
    const bool composing = m_composed_field.field == TextField::Search && !m_preedit.empty();
    if (focus ? m_search_buffer.empty() && !composing : pane.filter().empty())
        draw_text(tr("search.hint"), text_x, centre, kNameSize, m_palette.dim, false, false, 1);
    // A bar that has lost the field to the other side shows the filter in force.
    if (!focus)
        draw_text(pane.filter(), text_x, centre, kNameSize, m_palette.text, false, false, 1);
    else
        draw_field_text(TextField::Search, m_search_buffer, m_search_caret, text_x, centre,
                        room - 2, kNameSize, m_palette.text, bh / 2 - 4);
    cairo_restore(m_cr);
}

// --- Column header ----------------------------------------------------------------------------

void App::draw_pane_header(const Pane& pane, bool right, const Columns& columns, double x, double y,
                           double w) {
    constexpr double kHeight = Layout::head_h;
    const bool active = right == m_active_right;
    fill_band(x, y, w, kHeight,
              active ? mix_hex(m_palette.header, m_palette.bar, 0.13) : m_palette.header);
    const double rule_h = active ? 2 : 1;
    fill_band(x, y + kHeight - rule_h, w, rule_h, m_palette.divider);
    add_hit(x, y, w, kHeight, Hit::PaneHeaderMenu, 0, right);

    const double centre = y + kHeight / 2;
    const dir_lister::SortOrder& sort = pane.sort_order();
    const auto arrow = [&](double arrow_x) {
        const double base = sort.ascending ? centre + 1.75 : centre - 1.75;
        const double tip = sort.ascending ? centre - 1.75 : centre + 1.75;
        set_color(m_palette.accent, 1);
        triangle(m_cr, arrow_x, base, arrow_x + 7, base, arrow_x + 3.5, tip);
    };
    // edge is where the text begins on the left, or ends on the right; the cell is what a click
    // on the label means.
    const auto label = [&](const char* key, dir_lister::SortKey sort_key, double edge,
                           bool from_left, double cell_x, double cell_w) {
        const bool current = sort.key == sort_key;
        const std::string text = tr(key);
        const double text_w =
            std::min(text_width(text, kHeadTextSize, false, false), cell_w - (current ? 12 : 0));
        const double text_x = from_left ? edge : edge - (current ? 12 : 0) - text_w;
        draw_text_clipped(text, text_x, centre, text_w, kHeadTextSize,
                          current ? m_palette.accent : m_palette.secondary, false, false);
        if (current)
            arrow(from_left ? edge + text_w + 5 : edge - 9);
        add_hit(cell_x, y, cell_w, kHeight, Hit::PaneHeader, static_cast<int>(sort_key), right);
    };
    label("col.name", dir_lister::SortKey::Name, columns.name_x, true, columns.name_x,
          columns.name_w);
    for (const PlacedColumn& column : columns.placed)
        label(column.spec->label_key, column.spec->sort_key, column.right_x(), false, column.x,
              column.w);

    const auto rule = [&](double rule_x, int column) {
        set_color(m_palette.divider, 0.8);
        line(m_cr, rule_x, y + 5, rule_x, y + kHeight - 5, 1);
        add_hit(rule_x - 6, y, 12, kHeight, Hit::ColumnResize, column, right);
    };
    rule(columns.name_x + columns.name_w, -1);
    for (const PlacedColumn& column : columns.placed)
        rule(column.x + column.w, static_cast<int>(column.spec->id));
}

// --- Rows -------------------------------------------------------------------------------------

void App::draw_pane_rows(const Pane& pane, bool right, const Columns& columns, double x, double y,
                         double w, double h) {
    if (h <= 0)
        return;
    const size_t first_hit = m_hits.size();
    m_painted_order[right ? 1 : 0] = {pane.generation(), pane.visit()};
    add_hit(x, y, w, h, Hit::PaneBackground, 0, right);
    cairo_save(m_cr);
    clip_to(x, y, w, h);
    const dir_lister::Listing& listing = pane.listing();
    if (!listing.error.empty()) {
        draw_text(tr("err.cannot_read"), x + 10, y + 16, kNameSize, m_palette.danger, false, false,
                  1);
        draw_text_clipped(listing.error, x + 10, y + 34, w - 20, 11, m_palette.secondary, false,
                          false);
    } else if (listing.entries.empty()) {
        draw_text(tr("label.empty_folder"), x + 10, y + 16, kNameSize, m_palette.dim, false, false,
                  1);
    } else {
        const int first = std::max(0, pane.scroll());
        const int end = std::min(static_cast<int>(listing.entries.size()),
                                 first + static_cast<int>(std::ceil(h / kRow)));
        const RowList list{pane,
                           right,
                           columns,
                           I18n::instance().date_format(),
                           pane.rename_target(),
                           x,
                           m_pane_view_w[right ? 1 : 0]};
        for (int i = first; i < end; ++i) {
            draw_row_back(list, i, y + kRow * (i - first), w);
            add_hit(x, y + kRow * (i - first), w, kRow, Hit::PaneRow, i, right,
                    listing.entries[static_cast<size_t>(i)].name);
        }
        // No text shows through the vertical scrollbar.
        clip_to(x, y, list.w, h);
        for (int i = first; i < end; ++i)
            draw_row_name(list, i, y + kRow * (i - first));
        // Column by column: neighbours are often equal, and an equal text is not laid out again.
        for (const PlacedColumn& column : columns.placed) {
            if (column.x + column.w <= x || column.x >= x + list.w)
                continue;
            for (int i = first; i < end; ++i)
                draw_row_column(list, column, i, y + kRow * (i - first));
        }
        // Last, since it may cover the columns.
        if (list.renamed >= first && list.renamed < end)
            draw_rename_box(list, y + kRow * (list.renamed - first));
    }
    cairo_restore(m_cr);
    clip_hits(first_hit, x, y, w, h);
}

void App::draw_row_back(const RowList& list, int index, double y, double w) {
    const bool active = list.right == m_active_right;
    const double x = list.x;
    if (list.pane.is_selected(index))
        fill_band(x, y, w, kRow, m_palette.selection, active ? 1 : 0.45);
    else if (active && index % 2 == 1)
        fill_band(x, y, w, kRow, m_palette.row_alt);

    const bool dragged_over = m_drag_active && m_drag_inside && m_drag_target_right == list.right;
    if (dragged_over && m_drag_row == index) {
        fill_band(x, y, w, kRow, m_palette.ok, 0.3);
        set_color(m_palette.ok, 1);
        cairo_rectangle(m_cr, x + 1, y + 1, w - 2, 22);
        cairo_set_line_width(m_cr, 2);
        cairo_stroke(m_cr);
    }
    if (active && index == list.pane.cursor()) {
        fill_band(x, y, 4, kRow, m_palette.source_tint);
        set_color(m_palette.source_tint, 0.55);
        cairo_rectangle(m_cr, x + 0.5, y + 0.5, w - 1, 23);
        cairo_set_line_width(m_cr, 1);
        cairo_stroke(m_cr);
    }
}

void App::draw_row_name(const RowList& list, int index, double y) {
    const FsEntry& entry = list.pane.entries()[static_cast<size_t>(index)];
    const bool marked = list.right == m_active_right && list.pane.is_selected(index);
    const double centre = y + kRow / 2;
    const std::string& color = marked ? m_palette.selection_text : name_color(m_palette, entry);
    const double indent = name_indent(entry);
    const double text_x = list.columns.name_x + indent;
    const double room = list.columns.name_w - indent;
    if (indent > 0) {
        set_color(color, 1);
        // Its edge stands left of the names, so that a gap is left to the folder's own.
        folder_symbol(m_cr, list.columns.name_x - 4, centre - 5.5);
    }
    if (index == list.renamed)
        return;
    // Marks stacked on a letter would reach into the rows above and below.
    cairo_save(m_cr);
    clip_to(text_x - 2, y, room + 2, kRow);
    draw_text_clipped(row_text(entry), text_x, centre, room, kNameSize, color, false, false);
    cairo_restore(m_cr);
}

void App::draw_row_column(const RowList& list, const PlacedColumn& column, int index, double y) {
    const FsEntry& entry = list.pane.entries()[static_cast<size_t>(index)];
    const std::string text = column_text(column.spec->id, entry, list.date_format);
    const double text_w = std::min(text_width(text, 11, false, false), column.w - 6);
    const bool marked = list.right == m_active_right && list.pane.is_selected(index);
    const bool unknown = column.spec->id == ColumnId::Created && entry.btime == 0;
    draw_text_clipped(text, column.right_x() - text_w, y + kRow / 2, text_w, 11,
                      marked    ? m_palette.selection_text
                      : unknown ? m_palette.dim
                                : m_palette.secondary,
                      false, false);
}

void App::draw_rename_box(const RowList& list, double y) {
    const Pane& pane = list.pane;
    const FsEntry& entry = pane.entries()[static_cast<size_t>(list.renamed)];
    // Where the name's text would begin.
    const double x = list.columns.name_x + name_indent(entry);
    const double box_w = std::min(list.x + list.w - 3 - x, 400.0);
    if (box_w <= 0)
        return;
    fill_rect(x - 3, y + 2, box_w, 20, m_palette.control, 1);
    set_color(m_palette.accent, 1);
    cairo_rectangle(m_cr, x - 3, y + 2, box_w, 20);
    cairo_set_line_width(m_cr, 1.5);
    cairo_stroke(m_cr);

    cairo_save(m_cr);
    clip_to(x - 2, y + 3, std::max(0.0, box_w - 2), 18);
    const double text_x =
        draw_field_text(&pane == &active_pane() ? TextField::Rename : TextField::None,
                        pane.rename_buffer(), pane.rename_caret(), x, y + kRow / 2, box_w - 12,
                        kNameSize, m_palette.control_text, kRow / 2 - 5);
    m_rename_field = {{x - 3, y + 2, box_w, 20}, text_x, kNameSize};
    cairo_restore(m_cr);
}

// --- Scrollbars -------------------------------------------------------------------------------

void App::draw_pane_hscroll(bool right, double x, double y) {
    constexpr double kHeight = Layout::hscroll_h;
    const int side = right ? 1 : 0;
    const double view_w = m_pane_view_w[side];
    const double content_w = m_pane_content_w[side];
    const double hidden_w = content_w - view_w;
    // The slack that the name takes makes both widths equal but for rounding.
    const bool scrolls = hidden_w > 0.01;
    m_pane_htrack_x[side] = x;
    m_pane_htrack_w[side] = view_w;
    fill_band(x, y, view_w, kHeight, m_palette.header);
    fill_band(x, y, view_w, 1, m_palette.divider);

    const double thumb_w = std::max(40.0, scrolls ? view_w / content_w * view_w : view_w);
    const double free_w = std::max(0.0, view_w - thumb_w);
    const double thumb_x = x + (scrolls ? m_pane_hscroll[side] / hidden_w * free_w : 0);
    const double alpha = !scrolls ? 0.45 : m_pane_hdrag == side ? 0.9 : 0.65;
    fill_rounded(thumb_x, y + 3, thumb_w, 12, 5, m_palette.secondary, alpha);
    if (scrolls)
        add_hit(x, y, view_w, kHeight, Hit::PaneHScroll, 0, right);
}

void App::draw_pane_vscroll(const Pane& pane, bool right, double x, double y, double w, double h) {
    const int count = static_cast<int>(pane.entries().size());
    const int rows = rows_in_view(right);
    if (h <= 0 || count <= rows)
        return;
    const double track_x = x + w - kScrollbar;
    fill_band(track_x, y, kScrollbar, h, m_palette.progress_track, 0.5);
    const double thumb_h = std::min(h, std::max(28.0, static_cast<double>(rows) / count * h));
    const double share = static_cast<double>(pane.scroll()) / (count - rows);
    const double thumb_y = y + share * (h - thumb_h);
    const int side = right ? 1 : 0;
    m_pane_vtrack_y[side] = y;
    m_pane_vtrack_h[side] = h;
    m_pane_vthumb_h[side] = thumb_h;
    const bool held = m_dragging_scroll && m_drag_scroll_right == right;
    fill_rounded(track_x + 2, thumb_y, 7, thumb_h, 4, m_palette.secondary, held ? 0.85 : 0.55);
    add_hit(track_x, thumb_y, kScrollbar, thumb_h, Hit::ScrollThumb, 0, right);
}
