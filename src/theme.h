// The colours of the interface: one named colour for each role, in a light and a dark set. Painting
// code names a role, never a colour. Colours stay text ("#rrggbb") until the moment of painting.
// Pure functions and values; any thread.

#pragma once

#include <string>

struct Rgb {
    double r = 0;  // 0.0 to 1.0
    double g = 0;
    double b = 0;
};

struct Palette {
    bool dark = false;
    std::string window;  // behind everything
    std::string bar;     // menu and command strips
    std::string divider;
    std::string pane;           // the inactive list's background
    std::string pane_active;    // the active list's background
    std::string row_alt;        // every other row
    std::string header;         // column header of the inactive pane
    std::string header_active;  // column header of the active pane
    std::string text;           // the strongest of three weights of text
    std::string secondary;
    std::string dim;          // the weakest
    std::string accent;       // the highlight
    std::string source_tint;  // marks the pane that files come from
    std::string source_bg;
    std::string target_tint;  // marks the pane that files go to
    std::string target_bg;
    std::string selection;  // selected rows
    std::string selection_text;
    std::string cursor;   // the row cursor
    std::string control;  // buttons and fields
    std::string control_hover;
    std::string control_edge;
    std::string control_text;
    std::string progress_track;
    std::string progress_fill;  // the bar runs between the two fills
    std::string progress_fill_2;
    std::string progress_text;
    std::string danger;  // messages; each with its background
    std::string danger_bg;
    std::string warn;
    std::string warn_bg;
    std::string ok;
    std::string ok_bg;
    std::string dir_text;  // names by kind of entry
    std::string link_text;
    std::string exec_text;
    std::string broken_text;
    std::string archive_text;
    std::string menu_bg;
    std::string menu_hover;
    std::string menu_border;

    [[nodiscard]] static Palette light();
    [[nodiscard]] static Palette dark_();
    // By the theme setting; "auto" goes by what the desktop prefers.
    [[nodiscard]] static Palette for_theme(const std::string& theme, bool desktop_prefers_dark);
};

// Six hex digits with or without a leading "#". False leaves `out` alone.
[[nodiscard]] bool hex_to_rgb(const std::string& hex, Rgb& out);
// "#RRGGBB" in upper case; channels outside 0 to 1 are clamped.
[[nodiscard]] std::string rgb_to_hex(const Rgb& color);

// t is the weight of the first colour, and is not clamped.
[[nodiscard]] Rgb mix(const Rgb& a, const Rgb& b, double t);
// The same on texts; `a` unchanged when either cannot be read.
[[nodiscard]] std::string mix_hex(const std::string& a, const std::string& b, double t);
