// The list of the free components.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "i18n.h"
#include "licenses_data.h"

#include <algorithm>
#include <cmath>

namespace {

using licenses_data::Component;
using licenses_data::COMPONENTS;

constexpr double kRow = 22;
constexpr double kSize = 11;
constexpr double kTop = 58;
constexpr double kGap = 10;
constexpr double kFoot = 46;
constexpr double kLicenseEnd = 18;  // from the list's right edge

constexpr int kBundled =
    static_cast<int>(std::count_if(std::begin(COMPONENTS), std::end(COMPONENTS),
                                   [](const Component& component) { return component.bundled; }));
// A band stands between what is bundled and what is not.
constexpr int kRows = static_cast<int>(std::size(COMPONENTS)) + 1;

}  // namespace

void App::open_licenses() {
    m_licenses_folder = licenses_data::first_folder(licenses_data::text_folders());
    open_overlay(Overlay::Licenses, tr("action.licenses"));
}

void App::draw_overlay_licenses(double x, double y, double w, double h) {
    const double text_w = w - 40;
    const std::string others = I18n::instance().trf("licenses.others", licenses_data::OTHERS);
    const std::string texts =
        m_licenses_folder.empty()
            ? tr("licenses.texts_online")
            : I18n::instance().trf("licenses.texts_at", m_licenses_folder.c_str());
    const auto height = [&](const std::string& text) {
        return wrapped_text(text, 0, 0, text_w, kSize, nullptr, "sans-serif");
    };
    const double intro_h = wrapped_text(tr("licenses.intro"), x + 20, y + kTop, text_w, kSize,
                                        &m_palette.text, "sans-serif");
    const double texts_y = y + h - kFoot - kGap - height(texts);
    const double others_y = texts_y - 2 - height(others);
    wrapped_text(others, x + 20, others_y, text_w, kSize, &m_palette.secondary, "sans-serif");
    wrapped_text(texts, x + 20, texts_y, text_w, kSize, &m_palette.secondary, "sans-serif");

    const double list_y = y + kTop + intro_h + kGap;
    const double rows = std::max(1.0, std::floor((others_y - 8 - list_y) / kRow));
    draw_components({x + 16, list_y, w - 32, kRow * rows});
    draw_buttons(x, y + h - kFoot, w, {{"btn.close", Action::OverlayCancel}});
}

void App::draw_components(const Rect& list) {
    m_overlay_scrolls = true;
    m_overlay_page = std::max(1, static_cast<int>(list.h / kRow));
    m_list_scroll = std::clamp(m_list_scroll, 0, std::max(0, kRows - m_overlay_page));
    fill_list_ground(list);
    cairo_save(m_cr);
    clip_to(list.x, list.y, list.w, list.h);
    const double left = list.x + 14;
    const double right = list.x + list.w - kLicenseEnd;
    for (int row = m_list_scroll; row < kRows; ++row) {
        const double top = list.y + kRow * (row - m_list_scroll);
        if (top >= list.y + list.h)
            break;
        const double centre = top + kRow / 2;
        if (row == kBundled) {
            fill_rect(list.x, top, list.w, kRow, m_palette.header, 1);
            draw_text_clipped(tr("licenses.invoked"), left, centre, right - left, kSize,
                              m_palette.secondary, false, false);
            continue;
        }
        const Component& component = COMPONENTS[row < kBundled ? row : row - 1];
        const double license_w = text_width(component.license, kSize, false, false);
        draw_text_clipped(component.name, left, centre, right - license_w - 12 - left, kSize,
                          m_palette.text, false, false);
        draw_text_right(component.license, right, centre, kSize, m_palette.secondary, false, false);
    }
    cairo_restore(m_cr);
    draw_list_thumb(list, kRows, m_list_scroll);
}
