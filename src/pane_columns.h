// The columns of a file list: which there are, where they stand, and what they show of an entry.
// Lengths are logical units. Pure functions of their arguments, but for the texts of times and
// sizes, which follow the language; interface thread.

#pragma once

#include "dir_lister.h"
#include "fs_entry.h"
#include "settings.h"
#include "theme.h"

#include <string>
#include <vector>

// A column beside the name.
struct ColumnSpec {
    ColumnId id;
    const char* label_key;
    dir_lister::SortKey sort_key;
    double width;  // unless the user has chosen one
};

inline constexpr ColumnSpec kColumnSpecs[] = {
    {ColumnId::Size, "col.size", dir_lister::SortKey::Size, 78},
    {ColumnId::Type, "col.type", dir_lister::SortKey::Kind, 66},
    {ColumnId::Modified, "col.modified", dir_lister::SortKey::Modified, 104},
    {ColumnId::Created, "col.created", dir_lister::SortKey::Created, 104},
    {ColumnId::Permissions, "col.permissions", dir_lister::SortKey::Permissions, 82},
    {ColumnId::Owner, "col.owner", dir_lister::SortKey::Owner, 78},
    {ColumnId::Group, "col.group", dir_lister::SortKey::Group, 78},
};

inline constexpr double kFolderSymbol = 15;  // what a name moves right behind its symbol

struct PlacedColumn {
    const ColumnSpec* spec = nullptr;
    double x = 0;
    double w = 0;

    [[nodiscard]] double right_x() const { return x + w - 6; }  // where its text ends
};

struct Columns {
    double name_x = 0;
    double name_w = 0;
    std::vector<PlacedColumn> placed;  // left to right
    double content_w = 0;              // of the whole row, whatever part of it is in view
};

// The user's width if there is one, else the column's own.
[[nodiscard]] double column_width(const Settings& settings, const ColumnSpec& spec);
void set_column_width(Settings& settings, ColumnId column, int width);

// For a list at x, w wide, whose vertical scrollbar takes scrollbar_w of that, scrolled right by
// hscroll. The name takes all the slack; when there is none it keeps its least width and the
// columns run off to the right.
[[nodiscard]] Columns compute_columns(double x, double w, const Settings& settings,
                                      double scrollbar_w, double hscroll);

// What a column shows of an entry; nothing of the parent row. date_format is I18n::date_format(),
// which a painter looks up once and not for each row.
[[nodiscard]] std::string column_text(ColumnId column, const FsEntry& entry,
                                      const char* date_format);

// The name, and where a link leads.
[[nodiscard]] std::string row_text(const FsEntry& entry);

// By the kind of the entry, when it is not marked.
[[nodiscard]] const std::string& name_color(const Palette& palette, const FsEntry& entry);
