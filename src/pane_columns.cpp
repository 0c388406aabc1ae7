#include "pane_columns.h"

#include "archive_format.h"
#include "format.h"
#include "strutil.h"

#include <algorithm>
#include <glib.h>
#include <iterator>

namespace {

constexpr double kGap = 16;      // in front of each column
constexpr double kMargins = 20;  // left of the name and behind the last column
constexpr int kNameAtLeast = 130;
constexpr size_t kLongestType = 8;

// In the order of ColumnId.
constexpr int Settings::*kChosenWidths[] = {
    &Settings::col_w_size,    &Settings::col_w_type,        &Settings::col_w_modified,
    &Settings::col_w_created, &Settings::col_w_permissions, &Settings::col_w_owner,
    &Settings::col_w_group,
};

static_assert(std::size(kChosenWidths) == std::size(kColumnSpecs));

int Settings::*chosen_width(ColumnId column) {
    return kChosenWidths[static_cast<size_t>(column)];
}

// The name's extension in upper case, byte by byte, so that no letter beyond ASCII changes.
std::string type_text(const FsEntry& entry) {
    const size_t dot = entry.name.rfind('.');
    if (entry.is_dir_like() || dot == std::string::npos || dot == 0)
        return {};
    std::string type = entry.name.substr(dot + 1);
    if (type.size() > kLongestType)
        return {};
    for (char& c : type)
        c = g_ascii_toupper(c);
    return type;
}

}  // namespace

double column_width(const Settings& settings, const ColumnSpec& spec) {
    const int chosen = settings.*chosen_width(spec.id);
    return chosen > 0 ? chosen : spec.width;
}

void set_column_width(Settings& settings, ColumnId column, int width) {
    settings.*chosen_width(column) = width;
}

Columns compute_columns(double x, double w, const Settings& settings, double scrollbar_w,
                        double hscroll) {
    Columns result;
    result.name_x = x + 10 - hscroll;
    double total = 0;
    for (const ColumnSpec& spec : kColumnSpecs) {
        if (!column_enabled(settings, spec.id))
            continue;
        result.placed.push_back({&spec, 0, column_width(settings, spec)});
        total += kGap + result.placed.back().w;
    }
    const double name_at_least = settings.col_w_name > 0 ? settings.col_w_name : kNameAtLeast;
    result.name_w = std::max(w - scrollbar_w - kMargins - total, name_at_least);
    double cursor = result.name_x + result.name_w;
    for (PlacedColumn& column : result.placed) {
        column.x = cursor + kGap;
        cursor = column.x + column.w;
    }
    result.content_w = total + result.name_w + kMargins;
    return result;
}

std::string column_text(ColumnId column, const FsEntry& entry, const char* date_format) {
    if (entry.kind == FsEntry::Kind::Parent)
        return {};
    switch (column) {
    case ColumnId::Size:
        return entry.is_dir_like() || entry.size < 0 ? "—" : fmt::bytes(entry.size);
    case ColumnId::Type:
        return type_text(entry);
    case ColumnId::Modified:
        return fmt::date_time(entry.mtime, date_format);
    case ColumnId::Created:
        return entry.btime == 0 ? "—" : fmt::date_time(entry.btime, date_format);
    case ColumnId::Permissions:
        return dir_lister::permission_string(entry);
    case ColumnId::Owner:
        return entry.owner;
    case ColumnId::Group:
        return entry.group;
    }
    return {};
}

std::string row_text(const FsEntry& entry) {
    if (!entry.is_symlink())
        return entry.name;
    if (g_str_is_ascii(entry.name.c_str()) && g_str_is_ascii(entry.link_target.c_str()))
        return entry.name + " → " + entry.link_target;
    // The arrow leads from the name to the target, whatever direction either is written in.
    constexpr const char* kLeftToRight = "\xe2\x80\x8e";
    return kLeftToRight + su::isolated(entry.name) + " → " + su::isolated(entry.link_target);
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
    if (archive_ops::reader_for_name(entry.name))
        return palette.archive_text;
    return entry.perm & 0111 ? palette.exec_text : palette.text;
}
