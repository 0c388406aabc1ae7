// A test with the program's real window: App runs in this process, keys and clicks go through its
// real handlers, frames can be painted to an image and looked at pixel by pixel.
//
//     TEST_F(AppTest, tab_changes_the_side) {
//         start();
//         key(GDK_KEY_Tab);
//         EXPECT_TRUE(app().m_active_right);
//     }

#pragma once

#include "app.h"
#include "test_env.h"

#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

class AppTest : public ::testing::Test {
  protected:
    AppTest();
    ~AppTest() override;

    void SetUp() override;
    void TearDown() override;

    // Opens the window on the folders left() and right(), or as the arguments say. The frame has
    // been painted once when this returns.
    void start(const std::vector<std::string>& arguments = {});
    // A file of the configuration folder, which is made if it is missing.
    static std::string config_file(const std::string& name);
    // Ends the program as its main loop's end would.
    void finish();
    App& app() { return *m_app; }
    const std::string& left() const { return m_left.path(); }
    const std::string& right() const { return m_right.path(); }
    Pane& pane(bool on_the_right = false) { return m_app->pane_for(on_the_right); }

    // Runs the main loop: what is pending, or until the condition holds (false: it never did).
    void pump();
    bool pump_until(const std::function<bool()>& condition, double seconds = 20);
    // Waits until no work runs and the tick has seen it.
    bool settle() {
        return pump_until([this] { return idle(); });
    }
    bool idle() const;

    void key(guint keyval, guint state = 0);
    void click(double x, double y, int button = 1, guint state = 0, guint32 clicks = 1);
    void click(const App::HitRect& hit, int button = 1, guint state = 0, guint32 clicks = 1);
    void double_click(const App::HitRect& hit);  // the events that GTK delivers for one

    // Paints a frame of the window's size, or of the size given, to an image.
    void frame(int width = 0, int height = 0);
    // "#RRGGBB" of the last frame() at surface pixels.
    std::string pixel(int x, int y);
    // Whether any pixel of the rectangle (surface pixels) differs from its upper left one.
    bool painted(int x, int y, int w, int h);
    // Saves the last frame as $FERRODECK_SHOTS/name.png, for human eyes.
    void shot(const std::string& name);

    // The topmost painted rectangle of a kind, copied; fails the test when there is none.
    App::HitRect hit(App::Hit what, int param = -1, int side = -1);
    size_t count_hits(App::Hit what) const;

    void put_cursor_on(const std::string& name, bool on_the_right = false);
    std::vector<std::string> names(bool on_the_right = false);
    std::string cursor_name(bool on_the_right = false);
    std::vector<std::string> selected_names(bool on_the_right = false);

    std::vector<std::string> log_lines() const;
    bool logged(const std::string& text) const;

  private:
    test_env::TempDir m_left;
    test_env::TempDir m_right;
    std::unique_ptr<App> m_app;
    bool m_started = false;
    cairo_surface_t* m_surface = nullptr;
};
