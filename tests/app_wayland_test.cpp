// The program on Wayland, where no window knows or chooses its place.

#include "app_display.h"
#include "app_program.h"
#include "test_env.h"

#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using test_env::Program;
using test_env::read_file;
using test_env::TempDir;
using test_env::write_file;

class WaylandRoads : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string ignored;
        if (test_env::run("command -v weston", &ignored) != 0)
            GTEST_SKIP() << "weston is not installed";
        m_compositor = test_env::spawn({"env", "XDG_RUNTIME_DIR=" + m_run.path(), "weston",
                                        "--backend=headless-backend.so", "--socket=ferrodeck",
                                        "--width=1600", "--height=1200", "--idle-time=0"},
                                       -1);
        const std::string socket = m_run / "ferrodeck";
        for (int i = 0; i < 1000 && access(socket.c_str(), F_OK) != 0; ++i)
            usleep(10'000);
        ASSERT_EQ(access(socket.c_str(), F_OK), 0) << "weston has no socket";
        m_program.use_wayland(socket);
        write_file(m_left / "notes.txt", "some words");
    }
    ~WaylandRoads() override { test_env::end(m_compositor); }

    std::vector<std::string> copying() const {
        return {"--left=" + m_left.path(), "--right=" + m_right.path(),
                "--action=SelectAll,CopyToOther"};
    }
    std::string geometry() const { return read_file(m_program.config_file("geometry.json")); }
    bool geometry_has(const std::string& line) const {
        return geometry().find(line) != std::string::npos;
    }

    TempDir m_run;
    TempDir m_left;
    TempDir m_right;
    pid_t m_compositor = -1;
    Program m_program;
};

TEST_F(WaylandRoads, files_are_copied_and_the_position_stays_at_the_origin) {
    ASSERT_EQ(m_program.run(copying()), 0);
    EXPECT_EQ(read_file(m_right / "notes.txt"), "some words");
    EXPECT_TRUE(geometry_has("\"width\": 1100,")) << geometry();
    EXPECT_TRUE(geometry_has("\"height\": 720,")) << geometry();
    EXPECT_TRUE(geometry_has("\"x\": 0,")) << geometry();
    EXPECT_TRUE(geometry_has("\"y\": 0,")) << geometry();
}

TEST_F(WaylandRoads, a_saved_place_gives_its_size_and_nothing_else_suffers) {
    write_file(m_program.config_file("geometry.json"),
               "{\n  \"width\": 1230,\n  \"height\": 810,\n  \"x\": 100,\n  \"y\": 90,\n"
               "  \"maximized\": false\n}\n");
    ASSERT_EQ(m_program.run(copying()), 0);
    EXPECT_EQ(read_file(m_right / "notes.txt"), "some words");
    EXPECT_TRUE(geometry_has("\"width\": 1230,")) << geometry();
    EXPECT_TRUE(geometry_has("\"height\": 810,")) << geometry();
    EXPECT_TRUE(geometry_has("\"x\": 0,")) << geometry();
    EXPECT_TRUE(geometry_has("\"y\": 0,")) << geometry();
}

}  // namespace
