#include "theme.h"

#include <gtest/gtest.h>

#include <cmath>
#include <iterator>
#include <limits>

namespace {

struct Row {
    const char* name;
    std::string Palette::*field;
    const char* light;
    const char* dark;
};

constexpr Row kRows[] = {
    {"window", &Palette::window, "#EDEEF0", "#16181C"},
    {"bar", &Palette::bar, "#F7F8FA", "#1E2126"},
    {"divider", &Palette::divider, "#D6D8DC", "#31353C"},
    {"pane", &Palette::pane, "#DDE0E5", "#15181C"},
    {"pane_active", &Palette::pane_active, "#FFFFFF", "#262B33"},
    {"row_alt", &Palette::row_alt, "#F5F6F8", "#282D35"},
    {"header", &Palette::header, "#E2E4E8", "#22262C"},
    {"header_active", &Palette::header_active, "#EDF2FC", "#2B3542"},
    {"text", &Palette::text, "#1C1E21", "#E6E8EB"},
    {"secondary", &Palette::secondary, "#6B7078", "#9BA1AA"},
    {"dim", &Palette::dim, "#9AA0A8", "#6C737C"},
    {"accent", &Palette::accent, "#2F6FE4", "#5B9CFF"},
    {"source_tint", &Palette::source_tint, "#B4531A", "#E08A4F"},
    {"source_bg", &Palette::source_bg, "#FDF1E7", "#33241A"},
    {"target_tint", &Palette::target_tint, "#1F7A45", "#5BD48D"},
    {"target_bg", &Palette::target_bg, "#E8F6EE", "#18301F"},
    {"selection", &Palette::selection, "#2F6FE4", "#2C5FA8"},
    {"selection_text", &Palette::selection_text, "#FFFFFF", "#FFFFFF"},
    {"cursor", &Palette::cursor, "#123E8C", "#8FBCFF"},
    {"control", &Palette::control, "#FFFFFF", "#2A2F36"},
    {"control_hover", &Palette::control_hover, "#F0F4FD", "#333A43"},
    {"control_edge", &Palette::control_edge, "#C9CCD2", "#3C424B"},
    {"control_text", &Palette::control_text, "#1C1E21", "#E6E8EB"},
    {"progress_track", &Palette::progress_track, "#DCDFE4", "#2A2F36"},
    {"progress_fill", &Palette::progress_fill, "#1F9D55", "#2FA35C"},
    {"progress_fill_2", &Palette::progress_fill_2, "#37C275", "#4FD187"},
    {"progress_text", &Palette::progress_text, "#0F2A1B", "#DFF5E8"},
    {"danger", &Palette::danger, "#C0392B", "#F06A5D"},
    {"danger_bg", &Palette::danger_bg, "#FBE9E7", "#3A1F1C"},
    {"warn", &Palette::warn, "#B26A00", "#E0A040"},
    {"warn_bg", &Palette::warn_bg, "#FDF3E3", "#3A2E1A"},
    {"ok", &Palette::ok, "#1F7A45", "#5BD48D"},
    {"ok_bg", &Palette::ok_bg, "#E8F6EE", "#18301F"},
    {"dir_text", &Palette::dir_text, "#1B4F9C", "#7FB0FF"},
    {"link_text", &Palette::link_text, "#0F7C8C", "#5FD0DE"},
    {"exec_text", &Palette::exec_text, "#1F7A45", "#6FDCA0"},
    {"broken_text", &Palette::broken_text, "#C0392B", "#F06A5D"},
    {"archive_text", &Palette::archive_text, "#8A4B1F", "#E0A56B"},
    {"menu_bg", &Palette::menu_bg, "#FFFFFF", "#23272E"},
    {"menu_hover", &Palette::menu_hover, "#E8F0FE", "#2F3742"},
    {"menu_border", &Palette::menu_border, "#C9CCD2", "#3C424B"},
};

TEST(theme, both_palettes_hold_the_41_colours) {
    ASSERT_EQ(std::size(kRows), 41U);
    const Palette light = Palette::light();
    const Palette dark = Palette::dark_();
    EXPECT_FALSE(light.dark);
    EXPECT_TRUE(dark.dark);
    for (const Row& row : kRows) {
        EXPECT_EQ(light.*row.field, row.light) << row.name;
        EXPECT_EQ(dark.*row.field, row.dark) << row.name;
    }
}

TEST(theme, hex_needs_exactly_six_hex_digits) {
    for (const char* bad : {"", "#", "#fff", "#1234567", "12345", "gggggg", "##1234", "#12 456",
                            "0x1234", "-12345", "#12345\n"}) {
        Rgb color{0.25, 0.5, 0.75};
        EXPECT_FALSE(hex_to_rgb(bad, color)) << bad;
        EXPECT_EQ(color.r, 0.25) << bad;
        EXPECT_EQ(color.g, 0.5) << bad;
        EXPECT_EQ(color.b, 0.75) << bad;
    }
}

TEST(theme, hex_takes_either_case_with_or_without_the_sign) {
    Rgb color;
    ASSERT_TRUE(hex_to_rgb("FFFFFF", color));
    EXPECT_EQ(color.r, 1.0);
    EXPECT_EQ(color.g, 1.0);
    EXPECT_EQ(color.b, 1.0);
    ASSERT_TRUE(hex_to_rgb("#0a80Ff", color));
    EXPECT_DOUBLE_EQ(color.r, 10 / 255.0);
    EXPECT_DOUBLE_EQ(color.g, 128 / 255.0);
    EXPECT_DOUBLE_EQ(color.b, 1.0);
}

TEST(theme, rgb_is_rounded_clamped_and_upper_case) {
    EXPECT_EQ(rgb_to_hex({1.5, -0.5, 0.5}), "#FF0080");
    EXPECT_EQ(rgb_to_hex({171 / 255.0, 205 / 255.0, 239 / 255.0}), "#ABCDEF");
    const double inf = std::numeric_limits<double>::infinity();
    EXPECT_EQ(rgb_to_hex({inf, -inf, std::nan("")}), "#FF0000");
}

TEST(theme, every_byte_survives_the_way_there_and_back) {
    for (int i = 0; i < 256; ++i) {
        char text[8];
        std::snprintf(text, sizeof text, "#%02X%02X%02X", i & 0xff, (255 - i) & 0xff,
                      (i ^ 85) & 0xff);
        Rgb color;
        ASSERT_TRUE(hex_to_rgb(text, color));
        EXPECT_EQ(rgb_to_hex(color), text);
    }
}

TEST(theme, mix_weighs_the_first_colour) {
    // A quarter of black and three quarters of white.
    EXPECT_EQ(mix_hex("#000000", "#FFFFFF", 0.25), "#BFBFBF");
    EXPECT_EQ(mix_hex("#102030", "#FFFFFF", 1), "#102030");
    EXPECT_EQ(mix_hex("#102030", "#FFFFFF", 0), "#FFFFFF");
    // The weight is not clamped.
    EXPECT_DOUBLE_EQ(mix({1, 0, 0}, {0, 1, 0}, 2).r, 2.0);
    EXPECT_DOUBLE_EQ(mix({1, 0, 0}, {0, 1, 0}, 2).g, -1.0);
}

TEST(theme, mix_of_an_unreadable_colour_is_the_first_text) {
    EXPECT_EQ(mix_hex("nonsense", "#FFFFFF", 0.5), "nonsense");
    EXPECT_EQ(mix_hex("#abcdef", "", 0.5), "#abcdef");
}

}  // namespace
