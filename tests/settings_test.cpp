#include "settings.h"

#include "actions.h"
#include "test_env.h"

#include <gtest/gtest.h>

namespace {

using copy_engine::ConflictAction;
using test_env::write_file;

std::string settings_path() {
    test_env::make_dirs(test_env::root() + "/config/Ferrodeck");
    return test_env::root() + "/config/Ferrodeck/settings.json";
}

// What load() makes of a file, on top of the defaults.
Settings loaded(const std::string& text) {
    write_file(settings_path(), text);
    SettingsStore::instance().mutable_get() = Settings{};
    SettingsStore::instance().load();
    return SettingsStore::instance().get();
}

TEST(settings, defaults_without_a_file) {
    SettingsStore::instance().load();
    const Settings& s = SettingsStore::instance().get();
    EXPECT_EQ(s.language, "auto");
    EXPECT_EQ(s.theme, "light");
    EXPECT_EQ(s.thread_count, 0);
    EXPECT_TRUE(s.show_hidden);
    EXPECT_EQ(s.default_conflict, ConflictAction::Ask);
    EXPECT_TRUE(s.confirm_delete);
    EXPECT_TRUE(s.delete_to_trash);
    EXPECT_EQ(s.left_path, "");
    EXPECT_EQ(s.right_path, "");
    EXPECT_EQ(s.left_sort.key, dir_lister::SortKey::Name);
    EXPECT_TRUE(s.left_sort.ascending);
    EXPECT_TRUE(s.left_sort.dirs_first);
    EXPECT_EQ(s.right_sort.key, dir_lister::SortKey::Name);
    EXPECT_TRUE(s.right_sort.ascending);
    EXPECT_TRUE(s.right_sort.dirs_first);
    EXPECT_TRUE(s.show_size);
    EXPECT_FALSE(s.show_type);
    EXPECT_TRUE(s.show_modified);
    EXPECT_FALSE(s.show_created);
    EXPECT_FALSE(s.show_permissions);
    EXPECT_FALSE(s.show_owner);
    EXPECT_FALSE(s.show_group);
    EXPECT_EQ(s.font_family, "");
    EXPECT_EQ(s.font_scale, 100);
    EXPECT_EQ(s.archive_format, "tar.gz");
    EXPECT_EQ(s.archive_view_w + s.archive_view_h + s.hex_view_w + s.hex_view_h, 0);
    EXPECT_FALSE(s.sandbox_notice_hidden);
    EXPECT_EQ(s.col_w_name + s.col_w_size + s.col_w_type + s.col_w_modified + s.col_w_created +
                  s.col_w_permissions + s.col_w_owner + s.col_w_group,
              0);
}

TEST(settings, thread_count_is_clamped) {
    EXPECT_EQ(loaded("{\"thread_count\": 7}").thread_count, 7);
    EXPECT_EQ(loaded("{\"thread_count\": 99}").thread_count, 16);
    EXPECT_EQ(loaded("{\"thread_count\": -1}").thread_count, 0);
    EXPECT_EQ(loaded("{\"thread_count\":\t 3\n}").thread_count, 3);
    // Cut to 32 bits before the clamp: 4294967297 is 1.
    EXPECT_EQ(loaded("{\"thread_count\": 4294967297}").thread_count, 1);
}

TEST(settings, a_thread_count_that_is_no_number_keeps_the_default) {
    EXPECT_EQ(loaded("{\"thread_count\": \"4\"}").thread_count, 0);
    EXPECT_EQ(loaded("{\"thread_count\": }").thread_count, 0);
    EXPECT_EQ(loaded("{\"thread_count\"").thread_count, 0);
    EXPECT_EQ(loaded("not json at all").thread_count, 0);
    EXPECT_EQ(loaded("").thread_count, 0);
    EXPECT_EQ(loaded("{\"thread_count\": 5x}").thread_count, 5);
}

TEST(settings, each_word_of_the_conflict_action_is_read) {
    EXPECT_EQ(loaded("{\"default_conflict\": \"ask\"}").default_conflict, ConflictAction::Ask);
    EXPECT_EQ(loaded("{\"default_conflict\": \"overwrite\"}").default_conflict,
              ConflictAction::Overwrite);
    EXPECT_EQ(loaded("{\"default_conflict\": \"skip\"}").default_conflict, ConflictAction::Skip);
    EXPECT_EQ(loaded("{\"default_conflict\": \"rename_new\"}").default_conflict,
              ConflictAction::RenameNew);
    EXPECT_EQ(loaded("{\"default_conflict\": \"rename_existing\"}").default_conflict,
              ConflictAction::RenameExisting);
    EXPECT_EQ(loaded("{\"default_conflict\": \"overwrite_if_newer\"}").default_conflict,
              ConflictAction::OverwriteIfNewer);
}

TEST(settings, an_unknown_conflict_word_is_ask_and_an_absent_key_keeps_the_value) {
    Settings& s = SettingsStore::instance().mutable_get();
    s.default_conflict = ConflictAction::Skip;
    write_file(settings_path(), "{\"default_conflict\": \"cancel\"}");
    SettingsStore::instance().load();
    EXPECT_EQ(s.default_conflict, ConflictAction::Ask);

    s.default_conflict = ConflictAction::Skip;
    write_file(settings_path(), "{\"thread_count\": 2}");
    SettingsStore::instance().load();
    EXPECT_EQ(s.default_conflict, ConflictAction::Skip);
    EXPECT_EQ(s.thread_count, 2);
}

TEST(settings, the_file_is_searched_not_parsed) {
    // No braces, no commas, unknown keys, the first occurrence of a key counts.
    const Settings s = loaded("\"x\": 1\n\"default_conflict\" : \"skip\"\n\"thread_count\": 4\n"
                              "\"thread_count\": 9\n");
    EXPECT_EQ(s.default_conflict, ConflictAction::Skip);
    EXPECT_EQ(s.thread_count, 4);
}

TEST(settings, save_leaves_the_file_alone_for_now) {
    loaded("{\"thread_count\": 6}");
    SettingsStore::instance().mutable_get().thread_count = 1;
    SettingsStore::instance().save();
    EXPECT_EQ(test_env::read_file(settings_path()), "{\"thread_count\": 6}");
    EXPECT_FALSE(test_env::exists(settings_path() + ".tmp"));
}

TEST(settings, each_column_has_its_switch) {
    constexpr bool Settings::*kFields[] = {
        &Settings::show_size,    &Settings::show_type,        &Settings::show_modified,
        &Settings::show_created, &Settings::show_permissions, &Settings::show_owner,
        &Settings::show_group,
    };
    for (int i = 0; i < 7; ++i) {
        Settings s;
        const auto column = static_cast<ColumnId>(i);
        for (const bool on : {true, false}) {
            set_column_enabled(s, column, on);
            EXPECT_EQ(s.*kFields[i], on) << i;
            EXPECT_EQ(column_enabled(s, column), on) << i;
        }
    }
}

TEST(settings, a_column_outside_is_off_and_cannot_be_set) {
    Settings s;
    for (const int outside : {-1, 7, 1000}) {
        set_column_enabled(s, static_cast<ColumnId>(outside), true);
        EXPECT_FALSE(column_enabled(s, static_cast<ColumnId>(outside)));
    }
}

TEST(settings, the_column_actions_map_in_order) {
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(column_for_action(23 + i), static_cast<ColumnId>(i));
    EXPECT_EQ(column_for_action(22), std::nullopt);
    EXPECT_EQ(column_for_action(30), std::nullopt);
    EXPECT_EQ(column_for_action(-1), std::nullopt);
}

}  // namespace
