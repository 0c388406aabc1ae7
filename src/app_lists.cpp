// The lists from which a language or a font is picked. They take the place of the settings.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "i18n.h"
#include "logger.h"
#include "settings.h"
#include "strutil.h"

#include <algorithm>
#include <cmath>
#include <tuple>

namespace {

constexpr double kRow = 30;
constexpr double kListTop = 56;
constexpr double kBelowList = 56;
constexpr double kTextX = 34;    // from the row's left edge
constexpr double kEndRoom = 20;  // of the row's right end, where the thumb is
constexpr double kSize = 12.5;

std::vector<std::string> installed_families() {
    PangoFontFamily** families = nullptr;
    int count = 0;
    pango_font_map_list_families(pango_cairo_font_map_get_default(), &families, &count);
    std::vector<std::string> names;
    for (int i = 0; i < count; ++i)
        names.emplace_back(pango_font_family_get_name(families[i]));
    g_free(families);
    std::sort(names.begin(), names.end(), [](const std::string& a, const std::string& b) {
        return std::tuple(su::lower_ascii(a), a) < std::tuple(su::lower_ascii(b), b);
    });
    return names;
}

}  // namespace

const std::vector<std::string>& App::font_families() {
    static const std::vector<std::string> families = installed_families();
    return families;
}

std::vector<LanguageInfo> App::language_choices() {
    std::vector<LanguageInfo> choices = I18n::available();
    choices.insert(choices.begin(), {"auto", tr("settings.language_auto"), false});
    return choices;
}

// --- Painting ---------------------------------------------------------------------------------

void App::draw_overlay_language(double x, double y, double w, double h) {
    const std::vector<LanguageInfo> choices = language_choices();
    const auto current =
        std::find_if(choices.begin(), choices.end(), [](const LanguageInfo& choice) {
            return choice.code == SettingsStore::instance().get().language;
        });
    draw_picker({x, y, w, h}, static_cast<int>(choices.size()),
                current == choices.end() ? -1 : static_cast<int>(current - choices.begin()),
                [&](int index, const Rect& row, const std::string& color) {
                    const LanguageInfo& choice = choices[static_cast<size_t>(index)];
                    const double centre = row.y + kRow / 2;
                    const double right = row.x + row.w - kEndRoom;
                    const double code_w = text_width(choice.code, 11, false, false);
                    draw_text(choice.code, right - code_w, centre, 11, color, false, false, 1);
                    draw_text_clipped(choice.native_name, row.x + kTextX, centre,
                                      right - code_w - 10 - (row.x + kTextX), kSize, color, false,
                                      false);
                    return choice.native_name;
                });
}

void App::draw_overlay_font(double x, double y, double w, double h) {
    const std::vector<std::string>& families = font_families();
    const std::string& chosen = SettingsStore::instance().get().font_family;
    int current = 0;
    if (!chosen.empty()) {
        const auto found = std::find(families.begin(), families.end(), chosen);
        current = found == families.end() ? -1 : static_cast<int>(found - families.begin()) + 1;
    }
    draw_picker({x, y, w, h}, static_cast<int>(families.size()) + 1, current,
                [&](int index, const Rect& row, const std::string& color) {
                    if (index > 0) {
                        const std::string& family = families[static_cast<size_t>(index - 1)];
                        draw_in_family(family, row, color);
                        return family;
                    }
                    const std::string text = tr("settings.font_default");
                    draw_text_clipped(text, row.x + kTextX, row.y + kRow / 2,
                                      row.w - kTextX - kEndRoom, kSize, color, false, false);
                    return text;
                });
}

void App::draw_picker(const Rect& panel, int total, int current,
                      const std::function<std::string(int index, const Rect& row,
                                                      const std::string& color)>& draw_row) {
    const Rect list = {panel.x + 16, panel.y + kListTop, panel.w - 32,
                       panel.h - kListTop - kBelowList};
    m_overlay_scrolls = true;
    m_overlay_page = std::max(1, static_cast<int>(list.h / kRow));
    m_list_scroll = std::clamp(m_list_scroll, 0, std::max(0, total - m_overlay_page));
    fill_list_ground(list);

    const size_t first_hit = m_hits.size();
    cairo_save(m_cr);
    clip_to(list.x, list.y, list.w, list.h);
    // One more than the page may be in view in part.
    for (int i = 0; i <= m_overlay_page && m_list_scroll + i < total; ++i) {
        const int index = m_list_scroll + i;
        const Rect row = {list.x, list.y + kRow * i, list.w, kRow};
        if (row.y >= list.y + list.h)
            break;
        if (index == current)
            fill_rounded(row.x, row.y, row.w, row.h, 4, m_palette.selection, 1);
        else if (index == m_list_hover)
            fill_rounded(row.x, row.y, row.w, row.h, 4, m_palette.menu_hover, 1);
        const std::string label =
            draw_row(index, row, index == current ? m_palette.selection_text : m_palette.text);
        add_hit(row.x, row.y, row.w, row.h, Hit::ListItem, index, false, label);
    }
    cairo_restore(m_cr);
    clip_hits(first_hit, list.x, list.y, list.w, list.h);
    draw_list_thumb(list, total, m_list_scroll);
    draw_buttons(panel.x, panel.y + panel.h - 46, panel.w, {{"btn.close", Action::OverlayCancel}});
}

// The name of a family in its own letters. They may be taller than the row.
void App::draw_in_family(const std::string& family, const Rect& row, const std::string& color) {
    PangoLayout* const layout = pango_cairo_create_layout(m_cr);
    PangoFontDescription* const font = pango_font_description_new();
    pango_font_description_set_family(font, family.c_str());
    pango_font_description_set_absolute_size(font, kSize * PANGO_SCALE);
    pango_layout_set_font_description(layout, font);
    pango_font_description_free(font);
    pango_layout_set_single_paragraph_mode(layout, TRUE);
    pango_layout_set_text(layout, family.c_str(), -1);
    pango_layout_set_width(layout, static_cast<int>((row.w - kTextX - kEndRoom) * PANGO_SCALE));
    pango_layout_set_ellipsize(layout, PANGO_ELLIPSIZE_MIDDLE);
    int height = 0;
    pango_layout_get_pixel_size(layout, nullptr, &height);
    cairo_save(m_cr);
    clip_to(row.x, row.y, row.w, row.h);
    set_color(color, 1);
    cairo_move_to(m_cr, row.x + kTextX, row.y + kRow / 2 - height / 2.0);
    pango_cairo_show_layout(m_cr, layout);
    cairo_restore(m_cr);
    g_object_unref(layout);
}

// --- Opening and picking ----------------------------------------------------------------------

// The language in force is in view with some of its neighbours.
void App::open_language_picker() {
    open_overlay(Overlay::LanguagePicker, tr("settings.language"));
    const std::vector<LanguageInfo> languages = I18n::available();
    const std::string& code = SettingsStore::instance().get().language;
    for (size_t i = 0; i < languages.size(); ++i)
        if (languages[i].code == code)
            m_list_scroll = std::max(0, static_cast<int>(i) - 3);
}

void App::open_font_picker() {
    (void)font_families();  // not in a frame
    open_overlay(Overlay::FontPicker, tr("settings.font"));
}

void App::pick_language(int index) {
    const std::vector<LanguageInfo> choices = language_choices();
    close_overlay();
    if (index < 0 || static_cast<size_t>(index) >= choices.size())
        return;
    const std::string& code = choices[static_cast<size_t>(index)].code;
    SettingsStore::instance().mutable_get().language = code;
    I18n::instance().set_language(code);
    SettingsStore::instance().save();
    Log::infof("language set to %s", code.c_str());
}

void App::pick_font(int index) {
    const std::vector<std::string>& families = font_families();
    close_overlay();
    if (index < 0 || static_cast<size_t>(index) > families.size())
        return;
    const std::string family = index == 0 ? "" : families[static_cast<size_t>(index - 1)];
    SettingsStore::instance().mutable_get().font_family = family;
    I18n::instance().set_ui_font(family);
    SettingsStore::instance().save();
    Log::infof("UI font: %s", family.empty() ? "(system default)" : family.c_str());
}
