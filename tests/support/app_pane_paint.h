// A window whose panes are looked at pixel by pixel, in logical units at any scale.

#pragma once

#include "app_fixture.h"

#include "settings.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

class PanePaint : public AppTest {
  protected:
    static Settings& settings() { return SettingsStore::instance().mutable_get(); }

    // At the sides of the default window of 1100 by 720: 508 wide, from 94 to 696.
    static constexpr double kTop = 94;
    static constexpr double kRows = kTop + 28 + 34 + 26 + 26;
    static constexpr double kRight = 592;

    // The same lengths in logical units at every scale.
    void frame(int width = 0, int height = 0) {
        const double s = settings().font_scale / 100.0;
        AppTest::frame(width ? width : static_cast<int>(std::lround(1100 * s)),
                       height ? height : static_cast<int>(std::lround(720 * s)));
    }
    void look(const char* theme, int scale) {
        settings().theme = theme;
        settings().font_scale = scale;
        app().apply_theme();
        frame();
    }
    // The pixel that holds a point given in logical units.
    std::string at(double x, double y) {
        const double s = app().m_ui_scale;
        return pixel(static_cast<int>(std::floor(x * s)), static_cast<int>(std::floor(y * s)));
    }
    // Whether a colour occurs in a rectangle given in logical units.
    bool has(const std::string& color, double x, double y, double w, double h) {
        const double s = app().m_ui_scale;
        for (int py = static_cast<int>(y * s); py < static_cast<int>((y + h) * s); ++py)
            for (int px = static_cast<int>(x * s); px < static_cast<int>((x + w) * s); ++px)
                if (pixel(px, py) == color)
                    return true;
        return false;
    }
    // A colour painted with an alpha over another one.
    static std::string over(const std::string& color, double alpha, const std::string& back) {
        return mix_hex(color, back, alpha);
    }
    // Equal but for rounding, and for half a pixel of a gradient.
    static void expect_near(const std::string& color, const std::string& wanted, const char* what) {
        Rgb a;
        Rgb b;
        ASSERT_TRUE(hex_to_rgb(color, a) && hex_to_rgb(wanted, b)) << what << color << wanted;
        const double off =
            std::max({std::abs(a.r - b.r), std::abs(a.g - b.g), std::abs(a.b - b.b)}) * 255;
        EXPECT_LT(off, 3) << what << ": " << color << " is not " << wanted;
    }
    static double difference(const std::string& a, const std::string& b) {
        Rgb first;
        Rgb second;
        EXPECT_TRUE(hex_to_rgb(a, first) && hex_to_rgb(b, second)) << a << b;
        return std::max({std::abs(first.r - second.r), std::abs(first.g - second.g),
                         std::abs(first.b - second.b)}) *
               255;
    }
    // The upper left corner of a rounded rectangle: on the diagonal the arc begins at 0.29 of the
    // radius.
    void expect_corner(double x, double y, double radius, const char* what) {
        const double inside = 0.293 * radius * 2;
        const int first = static_cast<int>(inside);
        const int px = static_cast<int>(2 * x);
        const int py = static_cast<int>(2 * y);
        const std::string ground = pixel(px, py);
        const double contrast = difference(pixel(px + 40, py + 1), ground);
        EXPECT_GT(contrast, 5) << what;
        const auto share = [&](int step) {
            return difference(pixel(px + step, py + step), ground) / contrast;
        };
        EXPECT_LT(share(first - 1), 0.02) << what;
        EXPECT_GT(share(first), 0.01) << what;
        EXPECT_GT(share(first + 1), 0.8) << what;
    }
    std::vector<App::HitRect> all(App::Hit what, int side) const {
        std::vector<App::HitRect> found;
        for (const App::HitRect& rect : const_cast<PanePaint*>(this)->app().m_hits)
            if (rect.what == what && rect.right == (side == 1))
                found.push_back(rect);
        return found;
    }
    void files(int count) {
        for (int i = 0; i < count; ++i)
            test_env::write_file(left() + "/file" + std::to_string(i), "x");
    }
    // Text is measured as in a frame.
    template <class Body>
    void measuring(const Body& body) {
        cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 1, 1);
        app().m_cr = cairo_create(surface);
        cairo_scale(app().m_cr, app().m_ui_scale, app().m_ui_scale);  // hinting goes by it
        body();
        cairo_destroy(app().m_cr);
        cairo_surface_destroy(surface);
        app().m_cr = nullptr;
    }
    double width_of(const std::string& text, double size, bool bold = false, bool mono = false) {
        double found = 0;
        measuring([&] { found = app().text_width(text, size, bold, mono); });
        return found;
    }
    double row_y(int index) { return hit(App::Hit::PaneRow, index, 0).y; }
};

struct Look {
    const char* theme;
    int scale;
};
inline constexpr Look kLooks[] = {{"light", 70}, {"light", 100}, {"light", 200},
                                  {"dark", 70},  {"dark", 100},  {"dark", 200}};
