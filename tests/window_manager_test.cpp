#include "window_manager.h"

#include "fresh_process.h"
#include "mounts_fixture.h"
#include "test_env.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using test_env::exists;
using test_env::read_file;
using test_env::write_file;

std::string geometry_path() {
    test_env::make_dirs(test_env::root() + "/config/Ferrodeck");
    return test_env::root() + "/config/Ferrodeck/geometry.json";
}

WindowGeometry loaded(const std::string& text) {
    write_file(geometry_path(), text);
    return WindowManager::instance().load();
}

TEST(WindowManager, without_a_file_nothing_is_valid) {
    unlink(geometry_path().c_str());
    const WindowGeometry geometry = WindowManager::instance().load();
    EXPECT_FALSE(geometry.valid);
    EXPECT_FALSE(geometry.has_position);
    EXPECT_FALSE(geometry.maximized);
}

TEST(WindowManager, the_file_byte_for_byte) {
    unlink(geometry_path().c_str());
    WindowManager::instance().save(-10, 20, 1234, 777, false);
    EXPECT_EQ(read_file(geometry_path()), "{\n"
                                          "  \"width\": 1234,\n"
                                          "  \"height\": 777,\n"
                                          "  \"x\": -10,\n"
                                          "  \"y\": 20,\n"
                                          "  \"maximized\": false\n"
                                          "}\n");
    EXPECT_FALSE(exists(geometry_path() + ".tmp"));
    WindowManager::instance().save(1, 2, 1600, 1200, true);
    EXPECT_EQ(read_file(geometry_path()), "{\n"
                                          "  \"width\": 1600,\n"
                                          "  \"height\": 1200,\n"
                                          "  \"x\": 1,\n"
                                          "  \"y\": 2,\n"
                                          "  \"maximized\": true\n"
                                          "}\n");
}

TEST(WindowManager, what_was_saved_comes_back) {
    unlink(geometry_path().c_str());
    for (const bool maximized : {false, true}) {
        WindowManager::instance().save(-1500, 0, 1300, 800, maximized);
        const WindowGeometry geometry = WindowManager::instance().load();
        EXPECT_TRUE(geometry.valid);
        EXPECT_TRUE(geometry.has_position);
        EXPECT_EQ(geometry.x, -1500);
        EXPECT_EQ(geometry.y, 0);
        EXPECT_EQ(geometry.width, 1300);
        EXPECT_EQ(geometry.height, 800);
        EXPECT_EQ(geometry.maximized, maximized);
    }
}

TEST(WindowManager, a_window_below_the_minimum_is_not_saved) {
    write_file(geometry_path(), "untouched");
    WindowManager::instance().save(0, 0, 999, 800, false);
    WindowManager::instance().save(0, 0, 1100, 699, false);
    WindowManager::instance().save(0, 0, -1, -1, false);
    EXPECT_EQ(read_file(geometry_path()), "untouched");
    WindowManager::instance().save(0, 0, 1000, 700, false);
    EXPECT_NE(read_file(geometry_path()), "untouched");
    EXPECT_EQ(WindowManager::instance().load().width, 1000);
    EXPECT_EQ(WindowManager::instance().load().height, 700);
}

TEST(WindowManager, a_maximised_window_is_saved_at_any_size_and_comes_back_at_the_default) {
    WindowManager::instance().save(0, 0, 10, 10, true);
    EXPECT_NE(read_file(geometry_path()).find("\"width\": 10,"), std::string::npos);
    const WindowGeometry geometry = WindowManager::instance().load();
    EXPECT_EQ(geometry.width, 1100);
    EXPECT_EQ(geometry.height, 720);
    EXPECT_TRUE(geometry.maximized);
    EXPECT_TRUE(geometry.valid);
}

TEST(WindowManager, each_dimension_below_the_minimum_is_the_default_for_itself) {
    EXPECT_EQ(loaded("\"width\": 999, \"height\": 1000").width, 1100);
    EXPECT_EQ(loaded("\"width\": 999, \"height\": 1000").height, 1000);
    EXPECT_EQ(loaded("\"width\": 1000, \"height\": 699").width, 1000);
    EXPECT_EQ(loaded("\"width\": 1000, \"height\": 699").height, 720);
    EXPECT_EQ(loaded("\"height\": 700").height, 700);
    EXPECT_EQ(loaded("\"width\": -2000").width, 1100);
}

TEST(WindowManager, both_coordinates_make_a_position) {
    EXPECT_TRUE(loaded("\"x\": 1, \"y\": 2").has_position);
    EXPECT_FALSE(loaded("\"x\": 1").has_position);
    EXPECT_FALSE(loaded("\"y\": 1").has_position);
    EXPECT_FALSE(loaded("{}").has_position);
    EXPECT_FALSE(loaded("\"x\": 1, \"y\": here").has_position);
    EXPECT_FALSE(loaded("\"x\": -1000000, \"y\": 2").has_position);
    EXPECT_FALSE(loaded("\"x\": 1, \"y\": -1000000").has_position);
    EXPECT_TRUE(loaded("\"x\": -999999, \"y\": -1000001").has_position);
    // A file without a position is still valid.
    EXPECT_TRUE(loaded("\"x\": 1").valid);
}

TEST(WindowManager, a_garbled_file_is_valid_and_reads_as_the_defaults) {
    for (const char* text : {"", "garbage", "{\"width\": wide, \"height\": \"800\"}",
                             "\"width\" \"height\"", "\"width\":", "{\"width\": , \"height\": }"}) {
        const WindowGeometry geometry = loaded(text);
        EXPECT_TRUE(geometry.valid) << text;
        EXPECT_EQ(geometry.width, 1100) << text;
        EXPECT_EQ(geometry.height, 720) << text;
        EXPECT_FALSE(geometry.has_position) << text;
        EXPECT_FALSE(geometry.maximized) << text;
    }
}

TEST(WindowManager, numbers_are_read_with_any_space_in_front_and_until_they_end) {
    EXPECT_EQ(loaded("\"width\":1200").width, 1200);
    EXPECT_EQ(loaded("\"width\" \n : \t\r\n 1200px").width, 1200);
    EXPECT_EQ(loaded("\"width\": +1200.9").width, 1200);
    EXPECT_EQ(loaded("\"x\": -7, \"y\": -0").x, -7);
    // The first occurrence counts.
    EXPECT_EQ(loaded("\"width\": 1200, \"width\": 1300").width, 1200);
}

TEST(WindowManager, a_number_beyond_32_bits_is_the_default) {
    EXPECT_EQ(loaded("\"width\": 2147483647").width, 2147483647);
    EXPECT_EQ(loaded("\"width\": 2147483648").width, 1100);
    EXPECT_EQ(loaded("\"width\": 99999999999999999999").width, 1100);
    EXPECT_EQ(loaded("\"x\": -2147483648, \"y\": 0").x, -2147483647 - 1);
    EXPECT_FALSE(loaded("\"x\": -2147483649, \"y\": 0").has_position);
}

TEST(WindowManager, maximised_needs_exactly_one_blank) {
    EXPECT_TRUE(loaded("\"maximized\": true").maximized);
    EXPECT_TRUE(loaded("garbage \"maximized\": trueish").maximized);
    for (const char* text :
         {"\"maximized\":true", "\"maximized\":  true", "\"maximized\" : true",
          "\"maximized\": True", "\"maximized\": false", "\"maximized\": 1", "maximized: true"})
        EXPECT_FALSE(loaded(text).maximized) << text;
}

TEST(WindowManager, an_unreadable_file_is_not_valid) {
    unlink(geometry_path().c_str());
    ASSERT_EQ(mkdir(geometry_path().c_str(), 0700), 0);
    EXPECT_FALSE(WindowManager::instance().load().valid);
    // Nor can it be replaced; nothing stays behind.
    WindowManager::instance().save(0, 0, 1100, 800, false);
    EXPECT_FALSE(exists(geometry_path() + ".tmp"));
    ASSERT_EQ(rmdir(geometry_path().c_str()), 0);
}

TEST(WindowManager, a_failed_save_leaves_the_old_file) {
    REQUIRE_FRESH_PROCESS();
    mounts_fixture::Tmpfs disk("size=16k");
    REQUIRE_MOUNT(disk);
    setenv("XDG_CONFIG_HOME", disk.path().c_str(), 1);
    WindowManager::instance().save(1, 2, 1111, 777, false);
    test_env::run("cat /dev/zero > " + (disk / "filler"));
    WindowManager::instance().save(3, 4, 1222, 888, false);
    EXPECT_EQ(WindowManager::instance().load().width, 1111);
    EXPECT_EQ(WindowManager::instance().load().y, 2);
}

}  // namespace
