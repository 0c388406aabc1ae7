#include "theme.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

Palette Palette::light() {
    Palette p;
    p.dark = false;
    p.window = "#EDEEF0";
    p.bar = "#F7F8FA";
    p.divider = "#D6D8DC";
    p.pane = "#DDE0E5";
    p.pane_active = "#FFFFFF";
    p.row_alt = "#F5F6F8";
    p.header = "#E2E4E8";
    p.header_active = "#EDF2FC";
    p.text = "#1C1E21";
    p.secondary = "#6B7078";
    p.dim = "#9AA0A8";
    p.accent = "#2F6FE4";
    p.source_tint = "#B4531A";
    p.source_bg = "#FDF1E7";
    p.target_tint = "#1F7A45";
    p.target_bg = "#E8F6EE";
    p.selection = "#2F6FE4";
    p.selection_text = "#FFFFFF";
    p.cursor = "#123E8C";
    p.control = "#FFFFFF";
    p.control_hover = "#F0F4FD";
    p.control_edge = "#C9CCD2";
    p.control_text = "#1C1E21";
    p.progress_track = "#DCDFE4";
    p.progress_fill = "#1F9D55";
    p.progress_fill_2 = "#37C275";
    p.progress_text = "#0F2A1B";
    p.danger = "#C0392B";
    p.danger_bg = "#FBE9E7";
    p.warn = "#B26A00";
    p.warn_bg = "#FDF3E3";
    p.ok = "#1F7A45";
    p.ok_bg = "#E8F6EE";
    p.dir_text = "#1B4F9C";
    p.link_text = "#0F7C8C";
    p.exec_text = "#1F7A45";
    p.broken_text = "#C0392B";
    p.archive_text = "#8A4B1F";
    p.menu_bg = "#FFFFFF";
    p.menu_hover = "#E8F0FE";
    p.menu_border = "#C9CCD2";
    return p;
}

Palette Palette::dark_() {
    Palette p;
    p.dark = true;
    p.window = "#16181C";
    p.bar = "#1E2126";
    p.divider = "#31353C";
    p.pane = "#15181C";
    p.pane_active = "#262B33";
    p.row_alt = "#282D35";
    p.header = "#22262C";
    p.header_active = "#2B3542";
    p.text = "#E6E8EB";
    p.secondary = "#9BA1AA";
    p.dim = "#6C737C";
    p.accent = "#5B9CFF";
    p.source_tint = "#E08A4F";
    p.source_bg = "#33241A";
    p.target_tint = "#5BD48D";
    p.target_bg = "#18301F";
    p.selection = "#2C5FA8";
    p.selection_text = "#FFFFFF";
    p.cursor = "#8FBCFF";
    p.control = "#2A2F36";
    p.control_hover = "#333A43";
    p.control_edge = "#3C424B";
    p.control_text = "#E6E8EB";
    p.progress_track = "#2A2F36";
    p.progress_fill = "#2FA35C";
    p.progress_fill_2 = "#4FD187";
    p.progress_text = "#DFF5E8";
    p.danger = "#F06A5D";
    p.danger_bg = "#3A1F1C";
    p.warn = "#E0A040";
    p.warn_bg = "#3A2E1A";
    p.ok = "#5BD48D";
    p.ok_bg = "#18301F";
    p.dir_text = "#7FB0FF";
    p.link_text = "#5FD0DE";
    p.exec_text = "#6FDCA0";
    p.broken_text = "#F06A5D";
    p.archive_text = "#E0A56B";
    p.menu_bg = "#23272E";
    p.menu_hover = "#2F3742";
    p.menu_border = "#3C424B";
    return p;
}

Palette Palette::for_theme(const std::string& theme, bool desktop_prefers_dark) {
    return theme == "dark" || (theme == "auto" && desktop_prefers_dark) ? dark_() : light();
}

bool hex_to_rgb(const std::string& hex, Rgb& out) {
    const std::string digits = !hex.empty() && hex[0] == '#' ? hex.substr(1) : hex;
    if (digits.size() != 6)
        return false;
    for (const char c : digits)
        if (!std::isxdigit(static_cast<unsigned char>(c)))
            return false;
    const unsigned long value = std::strtoul(digits.c_str(), nullptr, 16);
    out.r = static_cast<double>((value >> 16) & 0xff) / 255.0;
    out.g = static_cast<double>((value >> 8) & 0xff) / 255.0;
    out.b = static_cast<double>(value & 0xff) / 255.0;
    return true;
}

std::string rgb_to_hex(const Rgb& color) {
    const auto byte_of = [](double channel) {
        // A channel that is no number counts as 0: std::clamp would hand it on to the cast.
        const double value = channel * 255.0 + 0.5;
        return value >= 0 ? static_cast<int>(std::min(value, 255.0)) : 0;
    };
    char text[8];
    std::snprintf(text, sizeof text, "#%02X%02X%02X", byte_of(color.r) & 0xff,
                  byte_of(color.g) & 0xff, byte_of(color.b) & 0xff);
    return text;
}

Rgb mix(const Rgb& a, const Rgb& b, double t) {
    return {a.r * t + b.r * (1 - t), a.g * t + b.g * (1 - t), a.b * t + b.b * (1 - t)};
}

std::string mix_hex(const std::string& a, const std::string& b, double t) {
    Rgb first;
    Rgb second;
    if (!hex_to_rgb(a, first) || !hex_to_rgb(b, second))
        return a;
    return rgb_to_hex(mix(first, second, t));
}
