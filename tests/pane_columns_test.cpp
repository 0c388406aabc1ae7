#include "pane_columns.h"

#include "format.h"
#include "i18n.h"

#include <gtest/gtest.h>

#include <iterator>

namespace {

FsEntry file(const std::string& name) {
    FsEntry entry;
    entry.name = name;
    entry.kind = FsEntry::Kind::File;
    entry.size = 1;
    return entry;
}

std::string text(ColumnId column, const FsEntry& entry) {
    return column_text(column, entry, "%m/%d/%y");
}

TEST(PaneColumns, each_has_its_label_sort_key_and_width) {
    using dir_lister::SortKey;
    constexpr ColumnSpec kRows[] = {
        {ColumnId::Size, "col.size", SortKey::Size, 78},
        {ColumnId::Type, "col.type", SortKey::Kind, 66},
        {ColumnId::Modified, "col.modified", SortKey::Modified, 104},
        {ColumnId::Created, "col.created", SortKey::Created, 104},
        {ColumnId::Permissions, "col.permissions", SortKey::Permissions, 82},
        {ColumnId::Owner, "col.owner", SortKey::Owner, 78},
        {ColumnId::Group, "col.group", SortKey::Group, 78},
    };
    ASSERT_EQ(std::size(kColumnSpecs), std::size(kRows));
    for (size_t i = 0; i < std::size(kRows); ++i) {
        EXPECT_EQ(static_cast<size_t>(kColumnSpecs[i].id), i);
        EXPECT_EQ(kColumnSpecs[i].id, kRows[i].id);
        EXPECT_STREQ(kColumnSpecs[i].label_key, kRows[i].label_key);
        EXPECT_EQ(kColumnSpecs[i].sort_key, kRows[i].sort_key);
        EXPECT_EQ(kColumnSpecs[i].width, kRows[i].width);
    }
}

TEST(PaneColumns, the_name_takes_the_slack) {
    const Settings settings;  // size and modified
    const Columns columns = compute_columns(100, 508, settings, 0, 0);
    EXPECT_EQ(columns.name_x, 110);
    EXPECT_EQ(columns.name_w, 508 - 20 - 94 - 120);
    ASSERT_EQ(columns.placed.size(), 2U);
    EXPECT_EQ(columns.placed[0].spec->id, ColumnId::Size);
    EXPECT_EQ(columns.placed[0].x, 110 + 274 + 16);
    EXPECT_EQ(columns.placed[0].w, 78);
    EXPECT_EQ(columns.placed[0].right_x(), 110 + 274 + 16 + 78 - 6);
    EXPECT_EQ(columns.placed[1].x, 110 + 274 + 94 + 16);
    EXPECT_EQ(columns.content_w, 508);
}

TEST(PaneColumns, the_scrollbar_takes_its_width_from_the_name) {
    const Settings settings;
    EXPECT_EQ(compute_columns(0, 508, settings, 11, 0).name_w, 263);
    EXPECT_EQ(compute_columns(0, 508, settings, 11, 0).content_w, 497);
}

TEST(PaneColumns, without_slack_the_name_keeps_130_and_the_columns_run_off) {
    const Settings settings;
    const Columns columns = compute_columns(0, 200, settings, 0, 0);
    EXPECT_EQ(columns.name_w, 130);
    EXPECT_EQ(columns.placed[1].x, 10 + 130 + 94 + 16);
    EXPECT_EQ(columns.content_w, 130 + 214 + 20);
}

TEST(PaneColumns, the_users_width_of_the_name_is_its_least_width) {
    Settings settings;
    settings.col_w_name = 60;
    EXPECT_EQ(compute_columns(0, 200, settings, 0, 0).name_w, 60);
    EXPECT_EQ(compute_columns(0, 508, settings, 0, 0).name_w, 274);
    settings.col_w_name = 300;
    EXPECT_EQ(compute_columns(0, 508, settings, 0, 0).name_w, 300);
}

TEST(PaneColumns, scrolling_moves_all_of_them_to_the_left) {
    const Settings settings;
    const Columns columns = compute_columns(0, 200, settings, 0, 50);
    EXPECT_EQ(columns.name_x, -40);
    EXPECT_EQ(columns.placed[0].x, -40 + 130 + 16);
    EXPECT_EQ(columns.content_w, 364);
}

TEST(PaneColumns, a_width_of_the_user_counts_when_it_is_positive) {
    Settings settings;
    int Settings::*const fields[] = {&Settings::col_w_size,        &Settings::col_w_type,
                                     &Settings::col_w_modified,    &Settings::col_w_created,
                                     &Settings::col_w_permissions, &Settings::col_w_owner,
                                     &Settings::col_w_group};
    for (size_t i = 0; i < std::size(fields); ++i) {
        const ColumnSpec& spec = kColumnSpecs[i];
        EXPECT_EQ(column_width(settings, spec), spec.width);
        settings.*fields[i] = -5;
        EXPECT_EQ(column_width(settings, spec), spec.width);
        settings.*fields[i] = 300 + static_cast<int>(i);
        EXPECT_EQ(column_width(settings, spec), 300 + static_cast<double>(i));
    }
}

TEST(PaneColumns, every_column_that_is_on_is_placed_in_order) {
    Settings settings;
    for (int i = 0; i < 7; ++i)
        set_column_enabled(settings, static_cast<ColumnId>(i), true);
    const Columns columns = compute_columns(0, 2000, settings, 0, 0);
    ASSERT_EQ(columns.placed.size(), 7U);
    for (size_t i = 0; i < 7; ++i)
        EXPECT_EQ(columns.placed[i].spec, &kColumnSpecs[i]);
    EXPECT_EQ(columns.name_w, 2000 - 20 - (78 + 66 + 104 + 104 + 82 + 78 + 78 + 7 * 16));
    for (int i = 0; i < 7; ++i)
        set_column_enabled(settings, static_cast<ColumnId>(i), false);
    EXPECT_TRUE(compute_columns(0, 2000, settings, 0, 0).placed.empty());
    EXPECT_EQ(compute_columns(0, 2000, settings, 0, 0).name_w, 1980);
}

TEST(PaneColumns, the_size_of_a_folder_and_of_the_unknown_is_a_dash) {
    FsEntry entry = file("a");
    entry.size = 3 * 1024 * 1024 / 2;
    EXPECT_EQ(text(ColumnId::Size, entry), fmt::bytes(entry.size));
    entry.size = 0;
    EXPECT_EQ(text(ColumnId::Size, entry), fmt::bytes(0));
    entry.size = -1;
    EXPECT_EQ(text(ColumnId::Size, entry), "—");
    entry.size = 4096;
    for (const FsEntry::Kind kind : {FsEntry::Kind::Dir, FsEntry::Kind::SymlinkDir}) {
        entry.kind = kind;
        EXPECT_EQ(text(ColumnId::Size, entry), "—");
    }
}

TEST(PaneColumns, the_type_is_the_last_extension_of_at_most_8_bytes) {
    struct Case {
        const char* name;
        const char* type;
    };
    for (const Case& c : {Case{"a.txt", "TXT"},
                          {"a.tar.gz", "GZ"},
                          {"a.Abcdefgh", "ABCDEFGH"},
                          {"a.abcdefghi", ""},  // nine letters
                          {".profile", ""},
                          {"a.", ""},
                          {"a", ""},
                          {"a..b", "B"},
                          {"a.\xc3\xa4\xc3\xb6", "\xc3\xa4\xc3\xb6"}}) {
        EXPECT_EQ(text(ColumnId::Type, file(c.name)), c.type) << c.name;
        FsEntry folder = file(c.name);
        folder.kind = FsEntry::Kind::Dir;
        EXPECT_EQ(text(ColumnId::Type, folder), "") << c.name;
    }
}

TEST(PaneColumns, an_unknown_time_of_birth_is_a_dash_and_no_date) {
    FsEntry entry = file("a");
    EXPECT_EQ(text(ColumnId::Created, entry), "—");
    entry.btime = 86400 * 365;
    EXPECT_EQ(text(ColumnId::Created, entry), fmt::date_time(entry.btime, "%m/%d/%y"));
    EXPECT_NE(text(ColumnId::Created, entry), "—");
    entry.mtime = 0;
    EXPECT_EQ(text(ColumnId::Modified, entry), fmt::date_time(0, "%m/%d/%y"));
    EXPECT_NE(text(ColumnId::Modified, entry), "");
    EXPECT_EQ(column_text(ColumnId::Modified, entry, "%Y").substr(4, 1), " ");
}

TEST(PaneColumns, a_time_beyond_the_calendar_is_empty) {
    FsEntry entry = file("a");
    entry.mtime = INT64_MAX;
    EXPECT_EQ(text(ColumnId::Modified, entry), "");
}

TEST(PaneColumns, rights_and_owners_are_shown_as_they_are) {
    FsEntry entry = file("a");
    entry.perm = 0640;
    entry.owner = "someone";
    entry.group = "some people";
    EXPECT_EQ(text(ColumnId::Permissions, entry), "-rw-r-----");
    EXPECT_EQ(text(ColumnId::Owner, entry), "someone");
    EXPECT_EQ(text(ColumnId::Group, entry), "some people");
}

TEST(PaneColumns, the_parent_row_shows_nothing) {
    FsEntry entry = file("..");
    entry.kind = FsEntry::Kind::Parent;
    entry.owner = "someone";
    for (const ColumnSpec& spec : kColumnSpecs)
        EXPECT_EQ(text(spec.id, entry), "");
}

TEST(PaneColumns, only_links_tell_where_they_lead) {
    FsEntry entry = file("a");
    entry.link_target = "b";
    EXPECT_EQ(row_text(entry), "a");
    for (const FsEntry::Kind kind :
         {FsEntry::Kind::Symlink, FsEntry::Kind::SymlinkDir, FsEntry::Kind::BrokenSymlink}) {
        entry.kind = kind;
        entry.link_target = "b";
        EXPECT_EQ(row_text(entry), "a → b");
        // Letters that are written from right to left on one side of the arrow do not turn it.
        entry.link_target = "\xd7\x90";
        EXPECT_EQ(row_text(entry).rfind("\xe2\x80\x8e", 0), 0U);
        std::swap(entry.name, entry.link_target);
        EXPECT_EQ(row_text(entry).rfind("\xe2\x80\x8e", 0), 0U);
        std::swap(entry.name, entry.link_target);
    }
}

TEST(PaneColumns, a_name_has_the_colour_of_its_kind) {
    for (const Palette& p : {Palette::light(), Palette::dark_()}) {
        const auto color = [&p](FsEntry::Kind kind, const char* name, uint32_t perm) {
            FsEntry entry = file(name);
            entry.kind = kind;
            entry.perm = perm;
            return name_color(p, entry);
        };
        using Kind = FsEntry::Kind;
        EXPECT_EQ(color(Kind::Parent, "..", 0755), p.secondary);
        EXPECT_EQ(color(Kind::Dir, "a.zip", 0755), p.dir_text);
        EXPECT_EQ(color(Kind::SymlinkDir, "a", 0777), p.link_text);
        EXPECT_EQ(color(Kind::Symlink, "a.zip", 0777), p.link_text);
        EXPECT_EQ(color(Kind::BrokenSymlink, "a", 0777), p.broken_text);
        EXPECT_EQ(color(Kind::Special, "a", 0777), p.secondary);
        EXPECT_EQ(color(Kind::File, "a.zip", 0755), p.archive_text);
        EXPECT_EQ(color(Kind::File, "a.TAR.GZ", 0644), p.archive_text);
        EXPECT_EQ(color(Kind::File, "a", 0644), p.text);
        for (const uint32_t bit : {0100U, 0010U, 0001U})
            EXPECT_EQ(color(Kind::File, "a", 0600 | bit), p.exec_text);
    }
}

}  // namespace
