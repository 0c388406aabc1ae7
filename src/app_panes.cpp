// The two lists, painted plainly.
//
// A pane is a stack of bands in logical units, from its top: banner 28, summary 34, path 26, column
// header 26, rows of 24 each, and 18 kept free at the bottom. App::rows_in_view() knows the sum.

#include "app.h"

#include "format.h"
#include "i18n.h"
#include "settings.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace {

constexpr double kBanner = 28;
constexpr double kSummary = 34;
constexpr double kPath = 26;
constexpr double kHeader = 26;
constexpr double kBottom = 18;
constexpr double kRow = 24;

std::string size_text(const FsEntry& entry) {
    return entry.is_dir_like() || entry.size < 0 ? "—" : fmt::bytes(entry.size);
}

std::string type_text(const FsEntry& entry) {
    if (entry.is_dir_like())
        return {};
    const size_t dot = entry.name.rfind('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == entry.name.size() ||
        entry.name.size() - dot - 1 > 8)
        return {};
    std::string type = entry.name.substr(dot + 1);
    for (char& c : type)
        c = g_ascii_toupper(c);
    return type;
}

std::string modified_text(const FsEntry& entry) {
    return fmt::date_time(entry.mtime);
}

std::string created_text(const FsEntry& entry) {
    return entry.btime == 0 ? "—" : fmt::date_time(entry.btime);
}

std::string owner_text(const FsEntry& entry) {
    return entry.owner;
}

std::string group_text(const FsEntry& entry) {
    return entry.group;
}

struct Column {
    ColumnId id;
    const char* label;
    double width;
    std::string (*text)(const FsEntry& entry);
};

constexpr Column kColumns[] = {
    {ColumnId::Size, "col.size", 78, size_text},
    {ColumnId::Type, "col.type", 66, type_text},
    {ColumnId::Modified, "col.modified", 104, modified_text},
    {ColumnId::Created, "col.created", 104, created_text},
    {ColumnId::Permissions, "col.permissions", 82, dir_lister::permission_string},
    {ColumnId::Owner, "col.owner", 78, owner_text},
    {ColumnId::Group, "col.group", 78, group_text},
};

constexpr double kGap = 16;  // in front of each column
constexpr double kNameAtLeast = 130;

struct Placed {
    const Column* column;
    double right_x;
};

struct Columns {
    double name_x = 0;
    double name_w = 0;
    std::vector<Placed> placed;  // left to right
};

// The columns that are switched on, as many as leave room for the name, from the left in their own
// order. The name takes what they leave.
Columns place_columns(double x, double w, const Settings& settings) {
    Columns result;
    result.name_x = x + 10;
    double room = w - 20 - kNameAtLeast;
    double total = 0;
    for (const Column& column : kColumns) {
        const double width = column.width + kGap;
        if (!column_enabled(settings, column.id) || width > room)
            continue;
        room -= width;
        total += width;
        result.placed.push_back({&column, 0});
    }
    result.name_w = std::max(0.0, w - 20 - total);
    double right_x = result.name_x + result.name_w;
    for (Placed& placed : result.placed) {
        right_x += kGap + placed.column->width;
        placed.right_x = right_x;
    }
    return result;
}

const std::string& name_color(const Palette& palette, const FsEntry& entry) {
    switch (entry.kind) {
    case FsEntry::Kind::Parent:
    case FsEntry::Kind::Special:
        return palette.secondary;
    case FsEntry::Kind::Dir:
        return palette.dir_text;
    case FsEntry::Kind::Symlink:
    case FsEntry::Kind::SymlinkDir:
        return palette.link_text;
    case FsEntry::Kind::BrokenSymlink:
        return palette.broken_text;
    case FsEntry::Kind::File:
        break;
    }
    return entry.perm & 0111 ? palette.exec_text : palette.text;
}

std::string display_name(const FsEntry& entry) {
    return entry.link_target.empty() ? entry.name : entry.name + " → " + entry.link_target;
}

}  // namespace

void App::draw_pane(Pane& pane, bool right, double x, double y, double w, double h) {
    const bool active = right == m_active_right;
    keep_cursor_in_view(pane, right);
    fill_rect(x, y, w, h, active ? m_palette.pane_active : m_palette.pane, 1);
    draw_pane_bands(pane, right, x, y, w);
    const double top = y + kBanner + kSummary + kPath + kHeader;
    draw_pane_rows(pane, right, x, top, w, std::max(0.0, y + h - kBottom - top));

    const double flash_left = m_reload_flash_until > 0 ? m_reload_flash_until - now_seconds() : 0;
    if (flash_left > 0) {
        const double share = flash_left / 0.45;
        fill_rect(x, top, w, std::max(0.0, y + h - kBottom - top), m_palette.accent,
                  0.16 * share * share);
    } else {
        m_reload_flash_until = 0;
    }
    if (busy())
        fill_rect(x, y, w, h, m_palette.window, 0.45);
    set_color(active ? m_palette.source_tint : m_palette.target_tint, active ? 1 : 0.45);
    cairo_rectangle(m_cr, x + 1.5, y + 1.5, w - 3, h - 3);
    cairo_set_line_width(m_cr, active ? 4 : 1.5);
    cairo_stroke(m_cr);
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

void App::draw_pane_bands(const Pane& pane, bool right, double x, double y, double w) {
    const bool active = right == m_active_right;
    const std::string& role = active ? m_palette.source_tint : m_palette.target_tint;
    fill_rect(x, y, w, kBanner, role, 1);
    draw_text(tr(active ? "pane.source" : "pane.target"), x + 14, y + kBanner / 2, 13,
              m_palette.dark ? m_palette.window : "#FFFFFF", true, false, 1);
    add_hit(x, y, w, kBanner, Hit::PaneBanner, 0, right);
    y += kBanner;

    fill_rect(x, y, w, kSummary, m_palette.bar, 1);
    const dir_lister::Listing& listing = pane.listing();
    draw_text_clipped(
        I18n::instance().trf("status.folder_summary", listing.dir_count, listing.file_count) +
            "  ·  " + fmt::bytes(listing.total_bytes),
        x + 10, y + kSummary / 2, w - 20, 11, m_palette.secondary, false, false);
    y += kSummary;

    fill_rect(x, y, w, kPath, active ? m_palette.header_active : m_palette.header, 1);
    draw_text_clipped(pane.path(), x + 10, y + kPath / 2, w - 20, 11, m_palette.text, false, false);
    y += kPath;

    fill_rect(x, y, w, kHeader, m_palette.header, 1);
    fill_rect(x, y + kHeader - 1, w, 1, m_palette.divider, 1);
    const Columns columns = place_columns(x, w, SettingsStore::instance().get());
    draw_text(tr("col.name"), columns.name_x, y + kHeader / 2, 11, m_palette.secondary, false,
              false, 1);
    for (const Placed& placed : columns.placed)
        draw_text_right(tr(placed.column->label), placed.right_x, y + kHeader / 2, 11,
                        m_palette.secondary, false, false);
}

void App::draw_pane_rows(const Pane& pane, bool right, double x, double y, double w, double h) {
    add_hit(x, y, w, h, Hit::PaneBackground, 0, right);
    const dir_lister::Listing& listing = pane.listing();
    if (!listing.error.empty()) {
        draw_text(tr("err.cannot_read"), x + 10, y + 16, 12.5, m_palette.danger, false, false, 1);
        draw_text_clipped(listing.error, x + 10, y + 34, w - 20, 11, m_palette.secondary, false,
                          false);
        return;
    }
    if (listing.entries.empty()) {
        draw_text(tr("label.empty_folder"), x + 10, y + 16, 12.5, m_palette.dim, false, false, 1);
        return;
    }
    cairo_save(m_cr);
    const double clip_top = pixel_edge(y);
    cairo_rectangle(m_cr, x, clip_top, w, pixel_edge(y + h) - clip_top);
    cairo_clip(m_cr);
    const int count = static_cast<int>(listing.entries.size());
    double row_y = y;
    for (int i = std::max(0, pane.scroll()); i < count && row_y < y + h; ++i, row_y += kRow) {
        draw_row(pane, right, i, x, row_y, w);
        add_hit(x, row_y, w, std::min(kRow, y + h - row_y), Hit::PaneRow, i, right);
    }
    cairo_restore(m_cr);
}

void App::draw_row(const Pane& pane, bool right, int index, double x, double y, double w) {
    const FsEntry& entry = pane.entries()[static_cast<size_t>(index)];
    const bool active = right == m_active_right;
    const bool selected = pane.is_selected(index);
    const double top = pixel_edge(y);
    const double height = pixel_edge(y + kRow) - top;
    if (selected)
        fill_rect(x, top, w, height, m_palette.selection, active ? 1 : 0.45);
    else if (active && index % 2 == 1)
        fill_rect(x, top, w, height, m_palette.row_alt, 1);
    if (active && index == pane.cursor()) {
        fill_rect(x, top, 6, height, m_palette.source_tint, 1);
        set_color(m_palette.source_tint, 0.55);
        cairo_rectangle(m_cr, x + 0.5, y + 0.5, w - 1, kRow - 1);
        cairo_set_line_width(m_cr, 1);
        cairo_stroke(m_cr);
    }

    const Columns columns = place_columns(x, w, SettingsStore::instance().get());
    const bool marked = selected && active;
    const std::string& color = marked ? m_palette.selection_text : name_color(m_palette, entry);
    const double centre = y + kRow / 2;
    if (pane.renaming() && pane.rename_target() == index) {
        draw_rename_box(pane, columns.name_x, y, columns.name_w);
    } else {
        const bool folder = entry.is_dir_like() || entry.kind == FsEntry::Kind::Parent;
        draw_text_clipped(folder ? display_name(entry) + "/" : display_name(entry), columns.name_x,
                          centre, columns.name_w, 12.5, color, false, false);
    }
    if (entry.kind == FsEntry::Kind::Parent)
        return;
    for (const Placed& placed : columns.placed)
        draw_text_right(placed.column->text(entry), placed.right_x, centre, 11,
                        marked ? m_palette.selection_text : m_palette.secondary, false, false);
}

void App::draw_rename_box(const Pane& pane, double x, double y, double w) {
    const double box_w = std::clamp(w, 40.0, 400.0);
    fill_rounded(x - 3, y + 2, box_w, 20, 2, m_palette.control, 1);
    stroke_rounded(x - 3, y + 2, box_w, 20, 2, m_palette.accent, 1, 1.5);
    const std::string& text = pane.rename_buffer();
    const double caret_w =
        text_width(text.substr(0, std::min(pane.rename_caret(), text.size())), 12.5, false, false);
    // The text moves left as soon as the caret would leave the box.
    const double shift = std::max(0.0, caret_w - (box_w - 12));
    cairo_save(m_cr);
    cairo_rectangle(m_cr, x - 1, y + 2, box_w - 4, 20);
    cairo_clip(m_cr);
    draw_text(text, x - shift, y + kRow / 2, 12.5, m_palette.control_text, false, false, 1);
    fill_rect(x - shift + caret_w, y + 5, 1.4, kRow - 10, m_palette.accent, 1);
    cairo_restore(m_cr);
}
