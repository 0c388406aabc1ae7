// A part of the window that is painted alone, on a grey ground and without a window, from the state
// that a frame would have taken.

#pragma once

#include "app.h"
#include "app_texts.h"

#include <cmath>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>

class PaintAlone : public ::testing::Test {
  protected:
    PaintAlone() = default;
    ~PaintAlone() override {
        if (m_surface)
            cairo_surface_destroy(m_surface);
    }

    App& app() { return m_app; }
    copy_engine::Progress& copy() { return m_app.m_frame_copy; }
    BgTask::Status& task() { return m_app.m_frame_bg; }
    const Palette& palette() const { return m_app.m_palette; }

    // Logical units, at the scale in force.
    void paint(double w, double h, const std::function<void()>& body) {
        test_env::forget_painted();
        if (m_surface)
            cairo_surface_destroy(m_surface);
        const double scale = m_app.m_ui_scale;
        m_surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(w * scale),
                                               static_cast<int>(h * scale));
        cairo_t* const cr = cairo_create(m_surface);
        cairo_scale(cr, scale, scale);
        m_app.m_cr = cr;
        m_app.m_hits.clear();
        m_app.m_layout = {};
        m_app.m_layout.width = w;
        m_app.m_layout.height = h;
        m_app.fill_rect(0, 0, w, h, "#808080", 1);
        body();
        m_app.m_cr = nullptr;
        EXPECT_EQ(cairo_status(cr), CAIRO_STATUS_SUCCESS);
        cairo_destroy(cr);
        cairo_surface_flush(m_surface);
    }
    Rgb at(double x, double y) const {
        const double scale = m_app.m_ui_scale;
        const auto px = static_cast<ptrdiff_t>(std::floor(x * scale));
        const auto py = static_cast<ptrdiff_t>(std::floor(y * scale));
        if (px < 0 || py < 0 || px >= cairo_image_surface_get_width(m_surface) ||
            py >= cairo_image_surface_get_height(m_surface))
            return {-1, -1, -1};
        uint32_t value = 0;
        std::memcpy(&value,
                    cairo_image_surface_get_data(m_surface) +
                        py * cairo_image_surface_get_stride(m_surface) + px * 4,
                    sizeof value);
        return {((value >> 16) & 0xff) / 255.0, ((value >> 8) & 0xff) / 255.0,
                (value & 0xff) / 255.0};
    }
    static Rgb rgb(const std::string& color) {
        Rgb found;
        EXPECT_TRUE(hex_to_rgb(color, found)) << color;
        return found;
    }
    static bool near(const Rgb& a, const Rgb& b) {
        constexpr double kOff = 0.02;
        return std::abs(a.r - b.r) < kOff && std::abs(a.g - b.g) < kOff &&
               std::abs(a.b - b.b) < kOff;
    }
    void expect_color(double x, double y, const std::string& color, const std::string& what) const {
        EXPECT_TRUE(near(at(x, y), rgb(color))) << what << " at " << x << ", " << y << ": "
                                                << rgb_to_hex(at(x, y)) << " is not " << color;
    }
    // Whether a colour occurs in a rectangle.
    bool has(const std::string& color, double x, double y, double w, double h) const {
        const Rgb wanted = rgb(color);
        for (double py = y; py < y + h; ++py)
            for (double px = x; px < x + w; ++px)
                if (near(at(px, py), wanted))
                    return true;
        return false;
    }
    static void expect_text(const std::string& text, double x, double y, double size,
                            const std::string& color) {
        const test_env::PaintedText* const found = test_env::painted_text(text);
        ASSERT_TRUE(found) << text;
        EXPECT_NEAR(found->x, x, 0.02) << text;
        EXPECT_NEAR(found->y, y, 0.02) << text;
        EXPECT_NEAR(found->size, size, 0.01) << text;
        EXPECT_EQ(found->color, color) << text;
        EXPECT_EQ(found->alpha, 1) << text;
    }
    static double end_of(const std::string& text) {
        const test_env::PaintedText* const found = test_env::painted_text(text);
        EXPECT_TRUE(found) << text;
        return found ? found->x + found->width : 0;
    }
    // The topmost rectangle of a kind, or null.
    const App::HitRect* hit(App::Hit what, int param = -1) const {
        for (auto rect = m_app.m_hits.rbegin(); rect != m_app.m_hits.rend(); ++rect)
            if (rect->what == what && (param == -1 || rect->param == param))
                return &*rect;
        return nullptr;
    }
    void expect_hit(App::Hit what, double x, double y, double w, double h) const {
        const App::HitRect* const found = hit(what);
        ASSERT_TRUE(found) << App::hit_name(what);
        EXPECT_NEAR(found->x, x, 0.02) << App::hit_name(what);
        EXPECT_NEAR(found->y, y, 0.02) << App::hit_name(what);
        EXPECT_NEAR(found->w, w, 0.02) << App::hit_name(what);
        EXPECT_NEAR(found->h, h, 0.02) << App::hit_name(what);
    }
    // The pointer rests on a rectangle of that kind from the next paint() on; None: on nothing.
    void hover(App::Hit what, int param = 0) {
        m_app.m_frame_hover = {};
        m_app.m_frame_hover.what = what;
        m_app.m_frame_hover.param = param;
    }
    // Whether somebody looks, and then at which languages: one of each kind of script.
    static bool wants_pictures(const std::string& language) {
        return std::getenv("FERRODECK_SHOTS") &&
               (language == "en" || language == "de" || language == "ar" || language == "ja");
    }
    // For human eyes, as AppTest::shot().
    void shot(const std::string& name) const {
        const char* folder = std::getenv("FERRODECK_SHOTS");
        if (folder && *folder)
            cairo_surface_write_to_png(m_surface,
                                       (std::string(folder) + "/" + name + ".png").c_str());
    }

  private:
    App m_app;
    cairo_surface_t* m_surface = nullptr;
};
