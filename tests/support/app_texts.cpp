#include "app_texts.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <dlfcn.h>
#include <pango/pangocairo.h>

namespace {

std::vector<test_env::PaintedText> g_painted;
double g_stretch = 1;
size_t g_texts_set = 0;

// A layout's text as it was given, since the program keeps layouts, and the stretch it has.
struct Given {
    std::string text;
    double stretch = 1;
};

const char kGiven[] = "given-text";

std::string source_color(cairo_t* cr, double& alpha) {
    double r = 0, g = 0, b = 0;
    cairo_pattern_get_rgba(cairo_get_source(cr), &r, &g, &b, &alpha);
    char text[8];
    std::snprintf(text, sizeof text, "#%02X%02X%02X", static_cast<unsigned>(std::lround(r * 255)),
                  static_cast<unsigned>(std::lround(g * 255)),
                  static_cast<unsigned>(std::lround(b * 255)));
    return text;
}

// The text and then its own beginning again, so that the letters are as wide as they were.
std::string stretched(const std::string& text) {
    const long characters = g_utf8_strlen(text.c_str(), -1);
    const auto more = std::lround(static_cast<double>(characters) * (g_stretch - 1) + 0.49);
    const char* const end = g_utf8_offset_to_pointer(text.c_str(), std::min(more, characters));
    return text + std::string(text.c_str(), end);
}

}  // namespace

// These stand in front of the libraries' own, which do the work.
extern "C" void pango_layout_set_text(PangoLayout* layout, const char* text, int length) {
    using Set = void (*)(PangoLayout*, const char*, int);
    static const auto set = reinterpret_cast<Set>(dlsym(RTLD_NEXT, "pango_layout_set_text"));
    ++g_texts_set;
    auto* const given = new Given{
        length < 0 ? std::string(text) : std::string(text, static_cast<size_t>(length)), g_stretch};
    g_object_set_data_full(G_OBJECT(layout), kGiven, given,
                           [](gpointer old) { delete static_cast<Given*>(old); });
    set(layout, g_stretch == 1 ? given->text.c_str() : stretched(given->text).c_str(), -1);
}

// Whoever paints a text measures it first.
extern "C" void pango_layout_get_pixel_size(PangoLayout* layout, int* width, int* height) {
    using Size = void (*)(PangoLayout*, int*, int*);
    static const auto size =
        reinterpret_cast<Size>(dlsym(RTLD_NEXT, "pango_layout_get_pixel_size"));
    const auto* given = static_cast<const Given*>(g_object_get_data(G_OBJECT(layout), kGiven));
    if (given && given->stretch != g_stretch)
        pango_layout_set_text(layout, std::string(given->text).c_str(), -1);
    size(layout, width, height);
}

extern "C" void pango_cairo_show_layout(cairo_t* cr, PangoLayout* layout) {
    using Show = void (*)(cairo_t*, PangoLayout*);
    static const auto show = reinterpret_cast<Show>(dlsym(RTLD_NEXT, "pango_cairo_show_layout"));
    test_env::PaintedText painted;
    painted.text = pango_layout_get_text(layout);
    int width = 0, height = 0;
    pango_layout_get_pixel_size(layout, &width, &height);
    cairo_get_current_point(cr, &painted.x, &painted.y);
    // Cairo keeps points in parts of a pixel, which differ from what was asked for by less.
    painted.x = std::round(painted.x * 100) / 100;
    painted.y = std::round((painted.y + height / 2.0) * 100) / 100;
    painted.width = width;
    const PangoFontDescription* font = pango_layout_get_font_description(layout);
    painted.size = pango_font_description_get_size(font) / static_cast<double>(PANGO_SCALE);
    painted.color = source_color(cr, painted.alpha);
    if (const char* family = pango_font_description_get_family(font))
        painted.family = family;
    painted.cut = pango_layout_is_ellipsized(layout);
    g_painted.push_back(painted);
    show(cr, layout);
}

namespace test_env {

const std::vector<PaintedText>& painted_texts() {
    return g_painted;
}

void forget_painted() {
    g_painted.clear();
}

size_t texts_laid_out() {
    return g_texts_set;
}

void stretch_texts(double factor) {
    g_stretch = factor;
}

const PaintedText* painted_text(const std::string& text) {
    for (auto found = g_painted.rbegin(); found != g_painted.rend(); ++found)
        if (found->text == text)
            return &*found;
    return nullptr;
}

}  // namespace test_env
