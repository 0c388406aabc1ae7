#include "text_cache.h"

#include <gtest/gtest.h>
#include <string>

namespace {

using Lines = TextCache::Lines;

class TextCacheTest : public ::testing::Test {
  protected:
    TextCacheTest()
        : m_surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 10, 10)),
          m_cr(cairo_create(m_surface)) {}
    ~TextCacheTest() override {
        cairo_destroy(m_cr);
        cairo_surface_destroy(m_surface);
    }
    PangoLayout* layout(const std::string& text, Lines lines = Lines::Single, int width = 0,
                        double size = 12.5, bool bold = false) {
        return m_texts.layout(m_cr, {text, "sans-serif", size, bold, lines, width});
    }
    static int width_of(PangoLayout* layout) {
        int width = 0;
        pango_layout_get_pixel_size(layout, &width, nullptr);
        return width;
    }

    cairo_surface_t* m_surface;
    cairo_t* m_cr;
    TextCache m_texts;
};

TEST_F(TextCacheTest, a_text_is_kept_while_every_second_frame_shows_it) {
    PangoLayout* const first = layout("name");
    EXPECT_EQ(layout("name"), first);
    m_texts.end_frame();
    EXPECT_EQ(layout("name"), first);
    m_texts.end_frame();
    layout("other");
    m_texts.end_frame();
    EXPECT_EQ(layout("name"), first);
    m_texts.end_frame();
    EXPECT_EQ(m_texts.size(), 2U);
    layout("third");
    m_texts.end_frame();
    EXPECT_EQ(m_texts.size(), 2U) << "the other text was not in the last two frames";
    layout("third");
    m_texts.end_frame();
    EXPECT_EQ(m_texts.size(), 1U);
}

TEST_F(TextCacheTest, what_looks_different_is_laid_out_apart) {
    PangoLayout* const plain = layout("name of a file");
    EXPECT_NE(layout("name of a file", Lines::Single, 0, 11), plain);
    EXPECT_NE(layout("name of a file", Lines::Single, 0, 12.5, true), plain);
    EXPECT_NE(m_texts.layout(m_cr, {"name of a file", "monospace", 12.5}), plain);
    PangoLayout* const narrow = layout("name of a file", Lines::Middle, 40 * PANGO_SCALE);
    EXPECT_NE(narrow, plain);
    EXPECT_NE(layout("name of a file", Lines::Middle, 50 * PANGO_SCALE), narrow);
    EXPECT_NE(layout("name of a file", Lines::Wrapped, 40 * PANGO_SCALE), narrow);
    EXPECT_EQ(layout("name of a file", Lines::Single, 77), plain);
    EXPECT_EQ(m_texts.size(), 7U);
}

// A layout that served a wrapped text serves a plain one as if it were new.
TEST_F(TextCacheTest, an_old_layout_keeps_nothing_of_its_old_text) {
    for (const Lines before : {Lines::Wrapped, Lines::Middle}) {
        PangoLayout* const old = layout("first\nsecond", before, 30 * PANGO_SCALE, 20, true);
        for (int i = 0; i < 3; ++i)
            m_texts.end_frame(), layout("-");
        PangoLayout* const again = layout("a name\nwith a line end");
        ASSERT_EQ(again, old);
        EXPECT_EQ(pango_layout_get_width(again), -1);
        EXPECT_EQ(pango_layout_get_line_count(again), 1);
        EXPECT_EQ(pango_layout_get_ellipsize(again), PANGO_ELLIPSIZE_NONE);
        EXPECT_EQ(pango_layout_get_attributes(again), nullptr);
        const PangoFontDescription* font = pango_layout_get_font_description(again);
        EXPECT_EQ(pango_font_description_get_size(font), 12.5 * PANGO_SCALE);
        EXPECT_EQ(pango_font_description_get_weight(font), PANGO_WEIGHT_NORMAL);
        m_texts.end_frame();
        layout("-");
        m_texts.end_frame();
        layout("-");
        m_texts.end_frame();
    }
}

// Hinted glyphs of double size are not twice as wide, so a kept layout would be off.
TEST_F(TextCacheTest, another_scale_lays_out_anew) {
    const std::string text = "A long name with many small letters.tar.gz";
    PangoLayout* kept = layout(text, Lines::Single, 0, 9.3);
    width_of(kept);
    const guint before = pango_layout_get_serial(kept);
    m_texts.end_frame();
    width_of(layout(text, Lines::Single, 0, 9.3));
    EXPECT_EQ(pango_layout_get_serial(kept), before) << "the same scale keeps it";
    m_texts.end_frame();
    cairo_scale(m_cr, 2, 2);
    PangoLayout* const scaled = layout(text, Lines::Single, 0, 9.3);
    EXPECT_EQ(scaled, kept);
    TextCache fresh;
    EXPECT_EQ(width_of(scaled), width_of(fresh.layout(m_cr, {text, "sans-serif", 9.3})));
    EXPECT_NE(pango_layout_get_serial(kept), before);
}

TEST_F(TextCacheTest, bytes_that_are_no_text_become_signs) {
    EXPECT_STREQ(pango_layout_get_text(layout("a\xff"
                                              "b")),
                 "a\uFFFD"
                 "b");
    EXPECT_EQ(pango_layout_get_line_count(layout("a\nb")), 1);
    EXPECT_EQ(pango_layout_get_line_count(layout("a\nb", Lines::Wrapped, 999 * PANGO_SCALE)), 2);
    EXPECT_TRUE(pango_layout_is_ellipsized(
        layout("a long name that is cut", Lines::Middle, 40 * PANGO_SCALE)));
}

}  // namespace
