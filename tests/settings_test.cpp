#include "settings.h"

#include "actions.h"
#include "as_user.h"
#include "fresh_process.h"
#include "i18n.h"
#include "mounts_fixture.h"
#include "test_env.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using copy_engine::ConflictAction;
using dir_lister::SortKey;
using test_env::exists;
using test_env::read_file;
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

// The same over values that differ from the defaults.
Settings loaded_over(const Settings& present, const std::string& text) {
    write_file(settings_path(), text);
    SettingsStore::instance().mutable_get() = present;
    SettingsStore::instance().load();
    return SettingsStore::instance().get();
}

// The file that save() makes of these values.
std::string saved(const Settings& settings) {
    settings_path();
    SettingsStore::instance().mutable_get() = settings;
    SettingsStore::instance().save();
    return read_file(settings_path());
}

// The values after a save and a load.
Settings there_and_back(const Settings& settings) {
    return loaded(saved(settings));
}

// Every field off its default.
Settings unusual() {
    Settings s;
    s.language = I18n::available().back().code;
    s.theme = "dark";
    s.thread_count = 7;
    s.show_hidden = false;
    s.default_conflict = ConflictAction::RenameExisting;
    s.confirm_delete = false;
    s.delete_to_trash = false;
    s.left_path = "/usr";
    s.right_path = "/tmp";
    s.left_sort = {SortKey::Created, false, true};
    s.right_sort = {SortKey::Group, false, true};
    s.show_size = false;
    s.show_type = true;
    s.show_modified = false;
    s.show_created = true;
    s.show_permissions = true;
    s.show_owner = true;
    s.show_group = true;
    s.font_family = "Noto Sans";
    s.font_scale = 130;
    s.archive_format = "7z";
    s.archive_view_w = 301;
    s.archive_view_h = 302;
    s.hex_view_w = 303;
    s.hex_view_h = 304;
    s.sandbox_notice_hidden = true;
    s.col_w_name = 41;
    s.col_w_size = 42;
    s.col_w_type = 43;
    s.col_w_modified = 44;
    s.col_w_created = 45;
    s.col_w_permissions = 46;
    s.col_w_owner = 47;
    s.col_w_group = 48;
    return s;
}

TEST(settings, defaults_without_a_file) {
    REQUIRE_FRESH_PROCESS();
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

// --- Writer -----------------------------------------------------------------------------------

TEST(settings, the_file_of_the_defaults_byte_for_byte) {
    EXPECT_EQ(saved(Settings{}), R"({
  "language": "auto",
  "theme": "light",
  "thread_count": 0,
  "show_hidden": true,
  "default_conflict": "ask",
  "confirm_delete": true,
  "delete_to_trash": true,
  "left_path": "",
  "right_path": "",
  "left_sort_key": "name",
  "left_sort_asc": true,
  "right_sort_key": "name",
  "right_sort_asc": true,
  "show_size": true,
  "show_type": false,
  "show_modified": true,
  "show_created": false,
  "show_permissions": false,
  "show_owner": false,
  "show_group": false,
  "font_family": "",
  "font_scale": 100,
  "archive_format": "tar.gz",
  "archive_view_w": 0,
  "archive_view_h": 0,
  "hex_view_w": 0,
  "hex_view_h": 0,
  "sandbox_notice_hidden": false,
  "col_w_name": 0,
  "col_w_size": 0,
  "col_w_type": 0,
  "col_w_modified": 0,
  "col_w_created": 0,
  "col_w_permissions": 0,
  "col_w_owner": 0,
  "col_w_group": 0
}
)");
    EXPECT_FALSE(exists(settings_path() + ".tmp"));
}

TEST(settings, each_field_stands_in_its_own_line_of_the_file) {
    Settings s = unusual();
    s.language = "zz";
    EXPECT_EQ(saved(s), R"({
  "language": "zz",
  "theme": "dark",
  "thread_count": 7,
  "show_hidden": false,
  "default_conflict": "rename_existing",
  "confirm_delete": false,
  "delete_to_trash": false,
  "left_path": "/usr",
  "right_path": "/tmp",
  "left_sort_key": "created",
  "left_sort_asc": false,
  "right_sort_key": "group",
  "right_sort_asc": false,
  "show_size": false,
  "show_type": true,
  "show_modified": false,
  "show_created": true,
  "show_permissions": true,
  "show_owner": true,
  "show_group": true,
  "font_family": "Noto Sans",
  "font_scale": 130,
  "archive_format": "7z",
  "archive_view_w": 301,
  "archive_view_h": 302,
  "hex_view_w": 303,
  "hex_view_h": 304,
  "sandbox_notice_hidden": true,
  "col_w_name": 41,
  "col_w_size": 42,
  "col_w_type": 43,
  "col_w_modified": 44,
  "col_w_created": 45,
  "col_w_permissions": 46,
  "col_w_owner": 47,
  "col_w_group": 48
}
)");
}

TEST(settings, everything_comes_back_as_it_was_saved) {
    const Settings s = unusual();
    const std::string text = saved(s);
    const Settings back = loaded(text);
    // The writer has a line for each field, so equal files are equal values.
    EXPECT_EQ(saved(back), text);
    EXPECT_EQ(back.language, s.language);
    EXPECT_EQ(back.left_path, "/usr");
    EXPECT_EQ(back.right_sort, s.right_sort);
    EXPECT_EQ(back.default_conflict, ConflictAction::RenameExisting);
}

TEST(settings, what_has_no_word_is_written_as_the_default_word) {
    Settings s;
    s.default_conflict = ConflictAction::Cancel;
    s.left_sort.key = static_cast<SortKey>(8);
    s.right_sort.key = static_cast<SortKey>(-1);
    const std::string text = saved(s);
    EXPECT_NE(text.find("\"default_conflict\": \"ask\""), std::string::npos);
    EXPECT_NE(text.find("\"left_sort_key\": \"name\""), std::string::npos);
    EXPECT_NE(text.find("\"right_sort_key\": \"name\""), std::string::npos);
}

TEST(settings, paths_and_the_font_are_escaped) {
    Settings s;
    s.left_path = "/a\"b\\c";
    s.right_path = "/a\nb\tc\x01"
                   "d\x7f";
    s.font_family = "\"\\\r";
    const std::string text = saved(s);
    EXPECT_NE(text.find("  \"left_path\": \"/a\\\"b\\\\c\",\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  \"right_path\": \"/a b c d\x7f\",\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  \"font_family\": \"\\\"\\\\ \",\n"), std::string::npos) << text;
}

TEST(settings, language_theme_and_archive_format_are_written_as_they_are) {
    Settings s;
    s.language = "a\"b";
    s.theme = "c\\d";
    s.archive_format = "e\tf";
    const std::string text = saved(s);
    EXPECT_NE(text.find("\"language\": \"a\"b\",\n"), std::string::npos);
    EXPECT_NE(text.find("\"theme\": \"c\\d\",\n"), std::string::npos);
    EXPECT_NE(text.find("\"archive_format\": \"e\tf\",\n"), std::string::npos);
}

TEST(settings, bytes_from_0x80_up_pass_unchanged) {
    const test_env::TempDir dir;
    Settings s;
    s.left_path = dir / "Fotos \xc3\xa4\xf0\x9f\x93\xb7 \xff\xfe";
    test_env::make_dirs(s.left_path);
    EXPECT_EQ(there_and_back(s).left_path, s.left_path);
}

// --- Writer and reader held against each other ------------------------------------------------

TEST(settings, a_folder_with_a_backslash_or_a_quote_is_not_remembered) {
    const test_env::TempDir dir;
    Settings s;
    s.left_path = dir / "back\\slash";
    s.right_path = dir / "quo\"te";
    test_env::make_dirs(s.left_path);
    test_env::make_dirs(s.right_path);
    const Settings back = there_and_back(s);
    EXPECT_EQ(back.left_path, "");
    EXPECT_EQ(back.right_path, "");
}

// The path comes back cut at the quote with a backslash behind it, which may be a folder too.
TEST(settings, a_path_is_cut_at_its_quote) {
    const test_env::TempDir dir;
    test_env::make_dirs(dir / "quo\\");
    Settings s;
    s.left_path = dir / "quo\"te";
    EXPECT_EQ(there_and_back(s).left_path, dir / "quo\\");
}

TEST(settings, a_backslash_in_the_font_doubles_until_the_name_is_too_long) {
    Settings s;
    s.font_family = "\\";
    size_t length = 1;
    while (length <= 64) {
        EXPECT_EQ(s.font_family, std::string(length, '\\'));
        s = there_and_back(s);
        length *= 2;
    }
    EXPECT_EQ(s.font_family, "");  // 128 are more than 120, and the default stood before the load
}

TEST(settings, a_line_end_in_a_path_becomes_a_blank_and_the_next_line_stays) {
    Settings s;
    s.left_path = "/tmp\n\"right_path\": \"/usr";
    s.right_path = "/tmp";
    EXPECT_EQ(there_and_back(s).right_path, "/tmp");
}

// --- Reader: bounds ---------------------------------------------------------------------------

struct Bound {
    const char* key;
    int Settings::*field;
    int given;
    int expected;
};

TEST(settings, every_number_keeps_to_its_bounds) {
    constexpr Bound kBounds[] = {
        {"thread_count", &Settings::thread_count, -2147483647, 0},
        {"thread_count", &Settings::thread_count, -1, 0},
        {"thread_count", &Settings::thread_count, 0, 0},
        {"thread_count", &Settings::thread_count, 1, 1},
        {"thread_count", &Settings::thread_count, 16, 16},
        {"thread_count", &Settings::thread_count, 17, 16},
        {"thread_count", &Settings::thread_count, 99, 16},
        {"font_scale", &Settings::font_scale, -5, 70},
        {"font_scale", &Settings::font_scale, 10, 70},
        {"font_scale", &Settings::font_scale, 69, 70},
        {"font_scale", &Settings::font_scale, 70, 70},
        {"font_scale", &Settings::font_scale, 71, 71},
        {"font_scale", &Settings::font_scale, 199, 199},
        {"font_scale", &Settings::font_scale, 200, 200},
        {"font_scale", &Settings::font_scale, 201, 200},
        {"font_scale", &Settings::font_scale, 500, 200},
    };
    for (const Bound& row : kBounds) {
        const std::string text =
            std::string("{\"") + row.key + "\": " + std::to_string(row.given) + "}";
        EXPECT_EQ(loaded(text).*row.field, row.expected) << text;
    }
}

TEST(settings, a_dialogue_size_or_column_width_outside_its_range_is_0) {
    struct Range {
        const char* key;
        int Settings::*field;
        int least;
        int most;
    };
    constexpr Range kRanges[] = {
        {"archive_view_w", &Settings::archive_view_w, 201, 19999},
        {"archive_view_h", &Settings::archive_view_h, 201, 19999},
        {"hex_view_w", &Settings::hex_view_w, 201, 19999},
        {"hex_view_h", &Settings::hex_view_h, 201, 19999},
        {"col_w_name", &Settings::col_w_name, 40, 900},
        {"col_w_size", &Settings::col_w_size, 40, 900},
        {"col_w_type", &Settings::col_w_type, 40, 900},
        {"col_w_modified", &Settings::col_w_modified, 40, 900},
        {"col_w_created", &Settings::col_w_created, 40, 900},
        {"col_w_permissions", &Settings::col_w_permissions, 40, 900},
        {"col_w_owner", &Settings::col_w_owner, 40, 900},
        {"col_w_group", &Settings::col_w_group, 40, 900},
    };
    for (const Range& row : kRanges) {
        Settings present;
        present.*row.field = 222;
        const auto reads = [&](const std::string& value) {
            return loaded_over(present, std::string("{\"") + row.key + "\": " + value + "}").*
                   row.field;
        };
        EXPECT_EQ(reads(std::to_string(row.least)), row.least) << row.key;
        EXPECT_EQ(reads(std::to_string(row.most)), row.most) << row.key;
        EXPECT_EQ(reads(std::to_string(row.least - 1)), 0) << row.key;
        EXPECT_EQ(reads(std::to_string(row.most + 1)), 0) << row.key;
        EXPECT_EQ(reads("-300"), 0) << row.key;
        EXPECT_EQ(reads("wide"), 0) << row.key;
        EXPECT_EQ(loaded_over(present, "{}").*row.field, 0) << row.key;
    }
}

TEST(settings, a_theme_is_one_of_three_words) {
    Settings present;
    present.theme = "dark";
    for (const char* theme : {"auto", "light", "dark"})
        EXPECT_EQ(loaded_over(present, std::string("\"theme\": \"") + theme + "\"").theme, theme);
    for (const char* bad : {"\"Dark\"", "\"\"", "\"lightish\"", "\" light\"", "1", "light"})
        EXPECT_EQ(loaded_over(present, std::string("\"theme\": ") + bad).theme, "dark") << bad;
    EXPECT_EQ(loaded_over(present, "{}").theme, "dark");
}

TEST(settings, a_language_is_auto_or_one_that_there_is) {
    Settings present;
    present.language = "en";
    EXPECT_EQ(loaded_over(present, "\"language\": \"auto\"").language, "auto");
    for (const auto& language : I18n::available())
        EXPECT_EQ(loaded("\"language\": \"" + language.code + "\"").language, language.code);
    for (const char* bad : {"xx", "EN", "en_US", "", "Auto"})
        EXPECT_EQ(loaded_over(present, std::string("\"language\": \"") + bad + "\"").language, "en")
            << bad;
    EXPECT_EQ(loaded_over(present, "{}").language, "en");
    EXPECT_EQ(loaded("\"language\": \"gone\"").language, "auto");
}

TEST(settings, a_font_family_is_at_most_120_printable_bytes) {
    Settings present;
    present.font_family = "before";
    const auto reads = [&present](const std::string& name) {
        return loaded_over(present, "{\"font_family\": \"" + name + "\"}").font_family;
    };
    EXPECT_EQ(reads(std::string(120, 'x')), std::string(120, 'x'));
    EXPECT_EQ(reads(std::string(121, 'x')), "before");
    EXPECT_EQ(reads("a b"), "a b");
    EXPECT_EQ(reads("a\x1f"
                    "b"),
              "before");
    EXPECT_EQ(reads("a\tb"), "before");
    EXPECT_EQ(reads("a\nb"), "before");
    EXPECT_EQ(reads(std::string("a\0b", 3)), "before");
    EXPECT_EQ(reads("a\x7f"
                    "b"),
              "before");
    EXPECT_EQ(reads("a\x80\xff"
                    "b"),
              "a\x80\xff"
              "b");
    EXPECT_EQ(reads(""), "");
}

TEST(settings, an_archive_format_must_be_one_of_the_labels) {
    Settings present;
    present.archive_format = "zip";
    const auto reads = [&present](const std::string& label) {
        return loaded_over(present, "{\"archive_format\": \"" + label + "\"}").archive_format;
    };
    for (const char* label :
         {"tar.gz", "tar.xz", "tar.bz2", "tar.zst", "tar.lz4", "tar", "zip", "7z"})
        EXPECT_EQ(reads(label), label);
    // An unknown one would otherwise pass as the first format.
    for (const char* bad : {"rar", "", "TAR.GZ", ".tar.gz", "tar.gz ", "gz", "tar.lz"})
        EXPECT_EQ(reads(bad), "zip") << bad;
    EXPECT_EQ(loaded_over(present, "{}").archive_format, "zip");
}

TEST(settings, a_folder_is_an_absolute_path_of_one_that_is_there) {
    const test_env::TempDir dir;
    write_file(dir / "file", "");
    test_env::make_dirs(dir / "gone");
    ASSERT_EQ(rmdir((dir / "gone").c_str()), 0);
    ASSERT_EQ(symlink(dir.path().c_str(), (dir / "link").c_str()), 0);
    ASSERT_EQ(chdir("/"), 0);
    Settings present;
    present.left_path = "/usr";
    present.right_path = "/usr";
    const auto reads = [&present](const std::string& path) {
        const Settings s = loaded_over(present, "\"left_path\": \"" + path +
                                                    "\"\n\"right_path\": \"" + path + "\"");
        EXPECT_EQ(s.left_path, s.right_path);
        return s.left_path;
    };
    EXPECT_EQ(reads(dir.path()), dir.path());
    EXPECT_EQ(reads(dir / "link"), dir / "link");
    EXPECT_EQ(reads("/"), "/");
    EXPECT_EQ(reads(dir / "file"), "");
    EXPECT_EQ(reads(dir / "gone"), "");
    EXPECT_EQ(reads("usr"), "");  // there, seen from "/"
    EXPECT_EQ(reads(""), "");
    EXPECT_EQ(reads(std::string("/usr\0/share", 11)), "");
    // An absent key forgets the folder as well.
    EXPECT_EQ(loaded_over(present, "{}").left_path, "");
    EXPECT_EQ(loaded_over(present, "{}").right_path, "");
}

// --- Reader: words ----------------------------------------------------------------------------

TEST(settings, each_word_of_the_conflict_action_is_read) {
    const auto reads = [](const char* word) {
        return loaded(std::string("{\"default_conflict\": \"") + word + "\"}").default_conflict;
    };
    EXPECT_EQ(reads("ask"), ConflictAction::Ask);
    EXPECT_EQ(reads("overwrite"), ConflictAction::Overwrite);
    EXPECT_EQ(reads("skip"), ConflictAction::Skip);
    EXPECT_EQ(reads("rename_new"), ConflictAction::RenameNew);
    EXPECT_EQ(reads("rename_existing"), ConflictAction::RenameExisting);
    EXPECT_EQ(reads("overwrite_if_newer"), ConflictAction::OverwriteIfNewer);
}

TEST(settings, an_unknown_conflict_word_is_ask_and_an_absent_key_keeps_the_value) {
    Settings present;
    present.default_conflict = ConflictAction::Skip;
    for (const char* bad : {"cancel", "Overwrite", "7", " skip"})
        EXPECT_EQ(loaded_over(present, std::string("\"default_conflict\": \"") + bad + "\"")
                      .default_conflict,
                  ConflictAction::Ask)
            << bad;
    for (const char* absent : {"{}", "\"default_conflict\": \"\"", "\"default_conflict\": 3"})
        EXPECT_EQ(loaded_over(present, absent).default_conflict, ConflictAction::Skip) << absent;
}

TEST(settings, each_word_of_the_sort_key_is_read_and_all_else_is_name) {
    constexpr const char* kWords[] = {"name",        "size",  "modified", "kind",
                                      "permissions", "owner", "created",  "group"};
    for (int i = 0; i < 8; ++i) {
        const std::string word = kWords[i];
        const Settings s =
            loaded("\"left_sort_key\": \"" + word + "\"\n\"right_sort_key\": \"" + word + "\"");
        EXPECT_EQ(static_cast<int>(s.left_sort.key), i) << word;
        EXPECT_EQ(static_cast<int>(s.right_sort.key), i) << word;
    }
    Settings present;
    present.left_sort = present.right_sort = {SortKey::Size, false, false};
    for (const char* other : {"{}", "\"left_sort_key\": \"\"", "\"left_sort_key\": \"weight\"",
                              "\"left_sort_key\": \"Size\"", "\"left_sort_key\": 1"}) {
        const Settings s = loaded_over(present, other);
        EXPECT_EQ(s.left_sort.key, SortKey::Name) << other;
        EXPECT_EQ(s.right_sort.key, SortKey::Name) << other;
        // Absent, these are true whatever stood before; the last is never in the file.
        EXPECT_TRUE(s.left_sort.ascending) << other;
        EXPECT_TRUE(s.right_sort.ascending) << other;
        EXPECT_TRUE(s.left_sort.dirs_first) << other;
        EXPECT_TRUE(s.right_sort.dirs_first) << other;
    }
    const Settings down = loaded("\"left_sort_asc\": false\n\"right_sort_asc\": false");
    EXPECT_FALSE(down.left_sort.ascending);
    EXPECT_FALSE(down.right_sort.ascending);
}

// --- Reader: its oddities ---------------------------------------------------------------------

TEST(settings, the_first_occurrence_of_a_key_counts_wherever_it_stands) {
    EXPECT_EQ(loaded("{\"thread_count\": 4, \"thread_count\": 9}").thread_count, 4);
    // Inside another value, too: the colon and the number are then the next ones behind it.
    EXPECT_EQ(loaded("{\"note\": \"about \"thread_count\"\",\n \"font_scale\": 12,\n"
                     " \"thread_count\": 9}")
                  .thread_count,
              12);
    // A key that is part of another one is not its first occurrence, since the quotes belong to it.
    EXPECT_EQ(
        loaded("{\"my_thread_count\": 3, \"thread_count_2\": 4, \"thread_count\": 5}").thread_count,
        5);
}

TEST(settings, the_colon_may_be_far_away) {
    EXPECT_EQ(loaded("\"thread_count\" nothing here\n\n whatever , } : 6").thread_count, 6);
    EXPECT_EQ(loaded("\"thread_count\": 3\"theme\" , \"show_type\" ] \"dark\" : x \"auto\"").theme,
              "auto");
}

TEST(settings, escapes_are_not_undone_and_protect_nothing) {
    EXPECT_EQ(loaded("\"font_family\": \"a\\\"b\"").font_family, "a\\");
    EXPECT_EQ(loaded("\"font_family\": \"a\\\\b\\u0041\"").font_family, "a\\\\b\\u0041");
}

TEST(settings, a_text_without_its_second_quote_is_empty) {
    Settings present;
    present.theme = "dark";
    for (const char* text : {"\"theme\"", "\"theme\": ", "\"theme\": \"", "\"theme\": \"light"})
        EXPECT_EQ(loaded_over(present, text).theme, "dark") << text;
    // The value of the next line is taken for the missing one of this.
    EXPECT_EQ(loaded("\"theme\": ,\n\"auto\": 1").theme, "auto");
}

TEST(settings, only_the_beginning_of_true_and_false_counts) {
    struct Case {
        const char* value;
        bool if_true;
        bool if_false;
    };
    constexpr Case kCases[] = {
        {"true", true, true},    {"truest", true, true},      {"true}", true, true},
        {"false", false, false}, {"falsehood", false, false}, {" \t true", true, true},
        {"True", true, false},   {"1", true, false},          {"\"false\"", true, false},
        {"", true, false},       {"\n true", true, false},    {", false", true, false},
        {"tru", true, false},    {"}false", true, false},
    };
    constexpr const char* kKeys[] = {
        "show_hidden", "confirm_delete", "delete_to_trash",       "show_size",
        "show_type",   "show_modified",  "show_created",          "show_permissions",
        "show_owner",  "show_group",     "sandbox_notice_hidden",
    };
    constexpr bool Settings::*kFields[] = {
        &Settings::show_hidden,
        &Settings::confirm_delete,
        &Settings::delete_to_trash,
        &Settings::show_size,
        &Settings::show_type,
        &Settings::show_modified,
        &Settings::show_created,
        &Settings::show_permissions,
        &Settings::show_owner,
        &Settings::show_group,
        &Settings::sandbox_notice_hidden,
    };
    for (size_t i = 0; i < std::size(kKeys); ++i)
        for (const Case& row : kCases)
            for (const bool before : {true, false}) {
                Settings present;
                present.*kFields[i] = before;
                const std::string text = std::string("{\"") + kKeys[i] + "\":" + row.value;
                EXPECT_EQ(loaded_over(present, text).*kFields[i],
                          before ? row.if_true : row.if_false)
                    << text;
            }
}

TEST(settings, a_number_ends_where_its_digits_do) {
    EXPECT_EQ(loaded("{\"thread_count\": 5x}").thread_count, 5);
    EXPECT_EQ(loaded("{\"thread_count\": 5.9}").thread_count, 5);
    EXPECT_EQ(loaded("{\"thread_count\":\t +3\n}").thread_count, 3);
    EXPECT_EQ(loaded("{\"thread_count\": 0x10}").thread_count, 0);
    EXPECT_EQ(loaded("{\"thread_count\": 010}").thread_count, 10);
    // Cut to 32 bits before the bounds: 4294967297 is 1.
    EXPECT_EQ(loaded("{\"thread_count\": 4294967297}").thread_count, 1);
    // The largest number there is, cut, is -1.
    EXPECT_EQ(loaded("{\"font_scale\": 99999999999999999999}").font_scale, 70);
}

TEST(settings, what_is_no_number_keeps_the_present_value_and_keeps_to_the_bounds) {
    Settings present;
    present.thread_count = 6;
    present.font_scale = 150;
    for (const char* value : {"\"4\"", "", "}", "many", "\n 9", ", 9", "null", "-"}) {
        const std::string text =
            std::string("\"thread_count\": ") + value + ",\n\"font_scale\": " + value;
        EXPECT_EQ(loaded_over(present, text).thread_count, 6) << text;
        EXPECT_EQ(loaded_over(present, text).font_scale, 150) << text;
    }
    EXPECT_EQ(loaded_over(present, "{\"thread_count\"").thread_count, 6);
}

TEST(settings, the_file_is_searched_not_parsed) {
    // No braces, no commas, unknown keys, any order, line ends of another system.
    const Settings s =
        loaded("\"x\": 1\r\n\"default_conflict\" : \"skip\"\r\n\"col_w_group\": 77\r\n"
               "\"thread_count\": 4\r\n\"show_type\": true\r\n\"theme\":\"dark\"");
    EXPECT_EQ(s.default_conflict, ConflictAction::Skip);
    EXPECT_EQ(s.thread_count, 4);
    EXPECT_EQ(s.col_w_group, 77);
    EXPECT_TRUE(s.show_type);
    EXPECT_EQ(s.theme, "dark");
}

TEST(settings, a_file_that_is_something_else_leaves_the_defaults) {
    const std::string defaults = saved(Settings{});
    for (const std::string& text :
         {std::string(), std::string("not json at all"), std::string("\0\0\0", 3),
          std::string("[[[["), test_env::pattern(50'000)}) {
        loaded(text);
        SettingsStore::instance().save();
        EXPECT_EQ(read_file(settings_path()), defaults);
    }
}

TEST(settings, an_unreadable_file_changes_nothing) {
    const Settings s = unusual();
    SettingsStore::instance().mutable_get() = s;
    const std::string path = settings_path();
    unlink(path.c_str());
    SettingsStore::instance().load();
    EXPECT_EQ(SettingsStore::instance().get().left_path, "/usr");
    // A folder, a FIFO that nobody writes to.
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    SettingsStore::instance().load();
    EXPECT_EQ(SettingsStore::instance().get().thread_count, 7);
    ASSERT_EQ(rmdir(path.c_str()), 0);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    SettingsStore::instance().load();
    EXPECT_EQ(SettingsStore::instance().get().thread_count, 7);
    ASSERT_EQ(unlink(path.c_str()), 0);
}

// --- Saving where it cannot be done -----------------------------------------------------------

TEST(settings, in_a_folder_that_cannot_be_written_the_old_file_stays) {
    const test_env::TempDir config;
    test_env::make_dirs(config / "Ferrodeck");
    write_file(config / "Ferrodeck/settings.json", "{\"thread_count\": 5}\n");
    as_user::give(config.path());
    as_user::give(config / "Ferrodeck");
    ASSERT_EQ(chmod((config / "Ferrodeck").c_str(), 0555), 0);
    EXPECT_TRUE(as_user::run([&config] {
        setenv("XDG_CONFIG_HOME", config.path().c_str(), 1);
        SettingsStore::instance().load();
        EXPECT_EQ(SettingsStore::instance().get().thread_count, 5);
        SettingsStore::instance().mutable_get().thread_count = 6;
        SettingsStore::instance().save();
    }));
    ASSERT_EQ(chmod((config / "Ferrodeck").c_str(), 0755), 0);
    EXPECT_EQ(read_file(config / "Ferrodeck/settings.json"), "{\"thread_count\": 5}\n");
    EXPECT_FALSE(exists(config / "Ferrodeck/settings.json.tmp"));
}

TEST(settings, on_a_full_disk_the_old_file_stays) {
    REQUIRE_FRESH_PROCESS();
    mounts_fixture::Tmpfs disk("size=16k");
    REQUIRE_MOUNT(disk);
    setenv("XDG_CONFIG_HOME", disk.path().c_str(), 1);
    SettingsStore& store = SettingsStore::instance();
    store.mutable_get().thread_count = 5;
    store.save();
    const std::string old = read_file(disk / "Ferrodeck/settings.json");
    ASSERT_NE(old.find("\"thread_count\": 5"), std::string::npos);
    test_env::run("cat /dev/zero > " + (disk / "filler"));
    store.mutable_get().thread_count = 6;
    store.save();
    EXPECT_EQ(read_file(disk / "Ferrodeck/settings.json"), old);
    // With room again the next save makes up for it.
    ASSERT_EQ(unlink((disk / "filler").c_str()), 0);
    store.save();
    EXPECT_NE(read_file(disk / "Ferrodeck/settings.json").find("\"thread_count\": 6"),
              std::string::npos);
    EXPECT_FALSE(exists(disk / "Ferrodeck/settings.json.tmp"));
}

// --- Columns ----------------------------------------------------------------------------------

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
