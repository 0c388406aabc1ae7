// The program on Wayland, where no window knows or chooses its place.

#include "app_display.h"
#include "app_program.h"
#include "test_env.h"

#include "theme.h"

#include <algorithm>
#include <cairo.h>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
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
                                        "--width=1600", "--height=1200", "--idle-time=0",
                                        // For the pictures.
                                        "--use-pixman", "--debug"},
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

    // How many pixels of the screen have a colour, but for rounding.
    int on_screen(const std::string& color) {
        Rgb wanted;
        EXPECT_TRUE(hex_to_rgb(color, wanted)) << color;
        int found = 0;
        for (const uint32_t pixel : m_picture) {
            const Rgb c{((pixel >> 16) & 0xff) / 255.0, ((pixel >> 8) & 0xff) / 255.0,
                        (pixel & 0xff) / 255.0};
            found += std::max({std::abs(c.r - wanted.r), std::abs(c.g - wanted.g),
                               std::abs(c.b - wanted.b)}) < 0.01
                         ? 1
                         : 0;
        }
        return found;
    }
    // Looks at the screen until it shows so much of a colour. False: it never does.
    bool see(const std::string& color, int pixels) {
        for (int i = 0; i < 40; ++i, usleep(50'000))
            if (take_picture() && on_screen(color) >= pixels)
                return true;
        return false;
    }
    bool take_picture() {
        const TempDir folder;
        std::string out;
        if (test_env::run("XDG_RUNTIME_DIR=" + m_run.path() + " WAYLAND_DISPLAY=ferrodeck " +
                              "XDG_PICTURES_DIR=" + folder.path() + " weston-screenshooter && mv " +
                              folder.path() + "/*.png " + m_shot,
                          &out) != 0) {
            ADD_FAILURE() << out;
            return false;
        }
        cairo_surface_t* const image = cairo_image_surface_create_from_png(m_shot.c_str());
        EXPECT_EQ(cairo_surface_status(image), CAIRO_STATUS_SUCCESS);
        m_picture.clear();
        for (int y = 0; y < cairo_image_surface_get_height(image); ++y)
            for (int x = 0; x < cairo_image_surface_get_width(image); ++x) {
                uint32_t pixel = 0;
                std::memcpy(&pixel,
                            cairo_image_surface_get_data(image) +
                                static_cast<ptrdiff_t>(y) * cairo_image_surface_get_stride(image) +
                                static_cast<ptrdiff_t>(x) * 4,
                            sizeof pixel);
                m_picture.push_back(pixel);
            }
        cairo_surface_destroy(image);
        return !m_picture.empty();
    }
    // For human eyes.
    void keep_picture(const std::string& name) const {
        const char* const folder = std::getenv("FERRODECK_SHOTS");
        if (folder && *folder)
            write_file(std::string(folder) + "/" + name + ".png", read_file(m_shot));
    }

    TempDir m_run;
    TempDir m_left;
    TempDir m_right;
    pid_t m_compositor = -1;
    Program m_program;
    std::string m_shot = m_run / "screen.png";
    std::vector<uint32_t> m_picture;
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

// A copy stays where it is while it asks, for long enough to be looked at.
TEST_F(WaylandRoads, a_copy_and_its_question_are_seen) {
    for (int i = 0; i < 20; ++i)
        write_file(m_left / ("file" + std::to_string(i)), "new");
    write_file(m_right / "notes.txt", "older words");
    m_program.write_settings("{\n  \"theme\": \"light\"\n}\n");
    m_program.start(copying());
    ASSERT_TRUE(m_program.wait_logged("dialog opened: Conflict — 7 Auswahlen"));
    const Palette look = Palette::light();
    ASSERT_TRUE(see(look.accent, 90 * 30 * 3 / 4)) << "the button Skip";
    EXPECT_GT(on_screen(look.danger_bg), 2 * 90 * 30 * 3 / 4) << "the two that lose something";
    EXPECT_GT(on_screen(look.pane), 2 * 280 * 74 * 3 / 4) << "the two cards";
    EXPECT_GT(on_screen(mix_hex("#000000", look.bar, 0.38)), 1100 * 76 / 2) << "the band behind";
    keep_picture("wayland-question");
    m_program.signal(SIGTERM);
    EXPECT_EQ(m_program.wait(), 0);
    EXPECT_EQ(read_file(m_right / "notes.txt"), "older words");
    EXPECT_EQ(read_file(m_right / "file19"), "new");
}

class NightlyWayland : public WaylandRoads {};

TEST_F(NightlyWayland, twenty_thousand_files_are_seen_on_their_way) {
    constexpr int kFiles = 20000;
    for (int i = 0; i < kFiles; ++i)
        write_file(m_left / ("file" + std::to_string(i)), "x");
    m_program.write_settings("{\n  \"theme\": \"light\",\n  \"thread_count\": 1\n}\n");
    m_program.start(copying());
    // The track is there as long as work runs and no longer.
    ASSERT_TRUE(see(Palette::light().progress_track, 1000));
    keep_picture("wayland-copy");
    EXPECT_EQ(m_program.wait(300), 0);
    for (int i = 0; i < kFiles; i += 999)
        EXPECT_EQ(read_file(m_right / ("file" + std::to_string(i))), "x") << i;
    EXPECT_TRUE(test_env::exists(m_right / "file19999"));
}

}  // namespace
