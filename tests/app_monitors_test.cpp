// The window's place on several monitors. Xvfb has one alone, so these are made up: GDK answers
// with them as soon as there are any, and with its own until then.

#include "app_display.h"
#include "app_fixture.h"

#include "window_manager.h"

#include <dlfcn.h>
#include <vector>

namespace {

struct MadeUp {
    GdkMonitor* monitor = nullptr;
    GdkRectangle geometry = {};
    GdkRectangle work_area = {};
};

std::vector<MadeUp> g_monitors;

const MadeUp* made_up(GdkMonitor* monitor) {
    for (const MadeUp& one : g_monitors)
        if (one.monitor == monitor)
            return &one;
    return nullptr;
}

template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

int gdk_display_get_n_monitors(GdkDisplay* display) {
    if (g_monitors.empty())
        return real<int(GdkDisplay*)>(__func__)(display);
    return static_cast<int>(g_monitors.size());
}

GdkMonitor* gdk_display_get_monitor(GdkDisplay* display, int number) {
    if (g_monitors.empty())
        return real<GdkMonitor*(GdkDisplay*, int)>(__func__)(display, number);
    return g_monitors.at(static_cast<size_t>(number)).monitor;
}

GdkMonitor* gdk_display_get_monitor_at_point(GdkDisplay* display, int x, int y) {
    for (const MadeUp& one : g_monitors) {
        const GdkRectangle& g = one.geometry;
        if (x >= g.x && y >= g.y && x < g.x + g.width && y < g.y + g.height)
            return one.monitor;
    }
    return real<GdkMonitor*(GdkDisplay*, int, int)>(__func__)(display, x, y);
}

void gdk_monitor_get_geometry(GdkMonitor* monitor, GdkRectangle* geometry) {
    if (const MadeUp* one = made_up(monitor))
        *geometry = one->geometry;
    else
        real<void(GdkMonitor*, GdkRectangle*)>(__func__)(monitor, geometry);
}

void gdk_monitor_get_workarea(GdkMonitor* monitor, GdkRectangle* area) {
    if (const MadeUp* one = made_up(monitor))
        *area = one->work_area;
    else
        real<void(GdkMonitor*, GdkRectangle*)>(__func__)(monitor, area);
}

}  // extern "C"

namespace {

// Side by side on a screen of 1600 by 1200: one of 1050 by 900, of which a bar takes the upper 20
// lines, and one of 550 by 1200. The third lies beyond the screen, as one that mirrors nothing.
class Monitors : public AppTest {
  protected:
    void SetUp() override {
        // Other tests move the pointer of a shared one.
        if (!test_env::use_own_display())
            GTEST_SKIP() << "no Xvfb of its own to be had";
        AppTest::SetUp();
        if (IsSkipped())
            return;
        GdkDisplay* const display = gdk_display_get_default()
                                        ? gdk_display_get_default()
                                        : (gtk_init(nullptr, nullptr), gdk_display_get_default());
        ASSERT_NE(display, nullptr);
        add(display, {0, 0, 1050, 900}, {0, 20, 1050, 880});
        add(display, {1050, 0, 550, 1200}, {1050, 0, 550, 1200});
        add(display, {1600, 0, 1200, 1000}, {1600, 0, 1200, 1000});
    }
    ~Monitors() override {
        for (const MadeUp& one : g_monitors)
            g_object_unref(one.monitor);
        g_monitors.clear();
    }
    static void point_at(int x, int y) {
        ASSERT_EQ(test_env::run("xdotool mousemove " + std::to_string(x) + " " + std::to_string(y)),
                  0);
    }
    bool was_moved_to(int x, int y) {
        return pump_until(
            [&] {
                int now_x = 0, now_y = 0;
                gtk_window_get_position(GTK_WINDOW(app().m_window), &now_x, &now_y);
                return now_x == x && now_y == y;
            },
            5);
    }

  private:
    static void add(GdkDisplay* display, GdkRectangle geometry, GdkRectangle work_area) {
        auto* monitor =
            static_cast<GdkMonitor*>(g_object_new(GDK_TYPE_MONITOR, "display", display, nullptr));
        g_monitors.push_back({monitor, geometry, work_area});
    }
};

TEST_F(Monitors, a_place_on_a_later_one_is_taken_again) {
    WindowManager::instance().save(1650, 60, 1100, 720, false);
    start();
    EXPECT_TRUE(was_moved_to(1650, 60));
    EXPECT_FALSE(logged("saved position 1650,60 (1100x720) fits no current monitor — centring"));
}

TEST_F(Monitors, a_place_across_two_fits_neither_and_goes_to_the_pointers) {
    point_at(20, 500);
    WindowManager::instance().save(700, 60, 1040, 720, false);
    start();
    EXPECT_TRUE(logged("saved position 700,60 (1040x720) fits no current monitor — centring"));
    EXPECT_TRUE(logged("centred at 5,100 (1040x720) on monitor 1050x880+0+20"));
    EXPECT_TRUE(was_moved_to(5, 100));
}

TEST_F(Monitors, the_edges_themselves_still_fit) {
    WindowManager::instance().save(0, 20, 1050, 880, false);
    start();
    EXPECT_TRUE(was_moved_to(0, 20));
    EXPECT_FALSE(logged("saved position 0,20 (1050x880) fits no current monitor — centring"));
}

TEST_F(Monitors, a_line_beyond_an_edge_does_not) {
    point_at(20, 500);
    WindowManager::instance().save(0, 19, 1050, 880, false);
    start();
    EXPECT_TRUE(logged("saved position 0,19 (1050x880) fits no current monitor — centring"));
    EXPECT_TRUE(logged("centred at 0,20 (1050x880) on monitor 1050x880+0+20"));
}

TEST_F(Monitors, a_window_larger_than_the_monitor_stands_at_its_origin) {
    point_at(1300, 100);
    start();
    EXPECT_TRUE(logged("centred at 1050,240 (1000x720) on monitor 550x1200+1050+0"));
}

TEST_F(Monitors, an_area_without_width_counts_as_the_whole_monitor) {
    point_at(20, 500);
    g_monitors[0].work_area.width = 0;
    start();
    EXPECT_TRUE(logged("centred at 0,90 (1050x720) on monitor 1050x900+0+0"));
}

TEST_F(Monitors, an_area_without_height_counts_as_the_whole_monitor) {
    g_monitors[0].work_area.height = 0;
    WindowManager::instance().save(0, 0, 1050, 900, false);
    start();
    EXPECT_TRUE(was_moved_to(0, 0));
    EXPECT_FALSE(logged("saved position 0,0 (1050x900) fits no current monitor — centring"));
}

}  // namespace
