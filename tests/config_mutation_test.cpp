// Ten thousand mutated files of each kind through their readers. Whatever a file holds, what comes
// of it is within its bounds. Under the sanitizers, a reader that leaves its text shows here.

#include "archive_format.h"
#include "bookmarks.h"
#include "i18n.h"
#include "mutate.h"
#include "recent.h"
#include "settings.h"
#include "test_env.h"
#include "window_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <sys/stat.h>

namespace {

using test_env::mutated;
using test_env::read_file;
using test_env::write_file;

constexpr int kFiles = 10'000;

std::string config_file(const std::string& name) {
    test_env::make_dirs(test_env::root() + "/config/Ferrodeck");
    return test_env::root() + "/config/Ferrodeck/" + name;
}

bool is_size(int value, int least, int most) {
    return value == 0 || (value >= least && value <= most);
}

bool is_folder_or_empty(const std::string& path) {
    struct stat st = {};
    return path.empty() || (path[0] == '/' && stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode));
}

void expect_within_bounds(const Settings& s) {
    const auto languages = I18n::available();
    EXPECT_TRUE(s.language == "auto" ||
                std::any_of(languages.begin(), languages.end(),
                            [&s](const auto& row) { return row.code == s.language; }));
    EXPECT_TRUE(s.theme == "auto" || s.theme == "light" || s.theme == "dark");
    EXPECT_TRUE(s.thread_count >= 0 && s.thread_count <= 16);
    EXPECT_TRUE(s.font_scale >= 70 && s.font_scale <= 200);
    EXPECT_LE(s.font_family.size(), 120U);
    EXPECT_NE(s.default_conflict, copy_engine::ConflictAction::Cancel);
    EXPECT_EQ(archive_ops::label_for(archive_ops::format_from_label(s.archive_format)),
              s.archive_format);
    EXPECT_TRUE(is_folder_or_empty(s.left_path));
    EXPECT_TRUE(is_folder_or_empty(s.right_path));
    EXPECT_TRUE(s.left_sort.dirs_first && s.right_sort.dirs_first);
    for (const int size : {s.archive_view_w, s.archive_view_h, s.hex_view_w, s.hex_view_h})
        EXPECT_TRUE(is_size(size, 201, 19999)) << size;
    for (const int width : {s.col_w_name, s.col_w_size, s.col_w_type, s.col_w_modified,
                            s.col_w_created, s.col_w_permissions, s.col_w_owner, s.col_w_group})
        EXPECT_TRUE(is_size(width, 40, 900)) << width;
}

TEST(ConfigMutations, settings_stay_within_their_bounds) {
    SettingsStore& store = SettingsStore::instance();
    Settings full;
    full.left_path = "/usr/share";
    full.right_path = "/tmp";
    full.font_family = "DejaVu Sans";
    full.archive_view_w = full.hex_view_h = 640;
    full.col_w_name = full.col_w_group = 300;
    store.mutable_get() = full;
    const std::string path = config_file("settings.json");
    store.save();
    const std::string whole = read_file(path);
    std::mt19937 random(1);
    std::set<std::string> outcomes;
    const auto note = [&outcomes](const Settings& s) {
        std::string values = s.language + s.theme + s.left_path + s.right_path + s.font_family;
        for (const int value : {s.thread_count, s.font_scale, s.archive_view_w, s.hex_view_h,
                                s.col_w_name, s.col_w_group, static_cast<int>(s.show_hidden)})
            values += " " + std::to_string(value);
        outcomes.insert(values);
    };
    for (int i = 0; i < kFiles; ++i) {
        const std::string text = mutated(whole, random);
        write_file(path, text);
        store.mutable_get() = Settings{};
        store.load();
        expect_within_bounds(store.get());
        if (HasFailure()) {
            std::printf("file %d:\n%s\n", i, text.c_str());
            return;
        }
        note(store.get());
    }
    // The changes reach the values and do not merely break the file.
    EXPECT_GT(outcomes.size(), 100U);
}

TEST(ConfigMutations, geometry_is_never_too_small) {
    const std::string path = config_file("geometry.json");
    WindowManager::instance().save(100, 50, 1234, 800, false);
    const std::string whole = read_file(path);
    std::mt19937 random(2);
    int placed = 0;
    for (int i = 0; i < kFiles; ++i) {
        const std::string text = mutated(whole, random);
        write_file(path, text);
        const WindowGeometry geometry = WindowManager::instance().load();
        ASSERT_TRUE(geometry.valid) << text;
        ASSERT_GE(geometry.width, 1000) << text;
        ASSERT_GE(geometry.height, 700) << text;
        ASSERT_EQ(geometry.has_position, geometry.x != -1'000'000 && geometry.y != -1'000'000)
            << text;
        placed += geometry.has_position;
    }
    EXPECT_GT(placed, kFiles / 10);
    EXPECT_LT(placed, kFiles);
}

TEST(ConfigMutations, bookmarks_come_back_from_what_they_are_written_as) {
    std::string whole;
    for (int i = 0; i < 12; ++i)
        whole += "Name " + std::to_string(i) + "\t/some/folder/" + std::to_string(i) + "\n";
    std::mt19937 random(3);
    for (int i = 0; i < kFiles; ++i) {
        const std::string text = mutated(whole, random);
        std::string written;
        for (const bookmarks::Bookmark& bookmark : bookmarks::parse(text)) {
            ASSERT_EQ(bookmark.name.find_first_of("\t\n"), std::string::npos) << text;
            ASSERT_EQ(bookmark.path.find('\n'), std::string::npos) << text;
            written += bookmark.name + "\t" + bookmark.path + "\n";
        }
        std::string again;
        for (const bookmarks::Bookmark& bookmark : bookmarks::parse(written))
            again += bookmark.name + "\t" + bookmark.path + "\n";
        ASSERT_EQ(again, written) << text;
    }
}

TEST(ConfigMutations, recent_folders_are_ten_different_absolute_paths_at_most) {
    std::string whole;
    for (int i = 0; i < 14; ++i)
        whole += "/some/folder/" + std::to_string(i) + "\n";
    std::mt19937 random(4);
    for (int i = 0; i < kFiles; ++i) {
        const std::string text = mutated(whole, random);
        const std::vector<std::string> list = recent::parse(text);
        ASSERT_LE(list.size(), 10U) << text;
        ASSERT_EQ(std::set<std::string>(list.begin(), list.end()).size(), list.size()) << text;
        for (const std::string& path : list) {
            ASSERT_EQ(path[0], '/') << text;
            ASSERT_EQ(path.find('\n'), std::string::npos) << text;
        }
    }
}

}  // namespace
