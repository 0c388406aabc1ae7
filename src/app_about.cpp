// What the program tells of itself: its logo, its name and version, the disclaimer, and where its
// makers are found.
//
// Coordinates are logical units from the window's upper left corner; (x, y) is the panel's.

#include "app.h"

#include "file_ops.h"
#include "i18n.h"
#include "icon_data.h"
#include "maker.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <gdk-pixbuf/gdk-pixbuf.h>

namespace {

constexpr double kDisclaimerSize = 11;
constexpr double kLogoCorner = 0.2;  // of its width
constexpr double kLogo = 72;
constexpr double kPanelTop = 204;  // from the dialogue's, as are all that follow
constexpr double kDisclaimerTop = 232;
constexpr double kPanelFoot = 10;  // below the disclaimer
constexpr double kLinksGap = 14;
constexpr double kLinkH = 18;
constexpr double kLinksH = 108;
constexpr double kFoot = 46;
constexpr double kFootGap = 10;

// Null when it cannot be decoded. Kept for the life of the process.
GdkPixbuf* decoded_logo() {
    static GdkPixbuf* const logo = [] {
        // Named, since the guess goes by a table of the desktop's that may be missing.
        GdkPixbufLoader* loader = gdk_pixbuf_loader_new_with_type("png", nullptr);
        const bool fed =
            gdk_pixbuf_loader_write(loader, icon_data::PNG, icon_data::PNG_BYTES, nullptr);
        GdkPixbuf* pixbuf = nullptr;
        // A loader wants to be closed even after it has failed.
        if (gdk_pixbuf_loader_close(loader, nullptr) && fed)
            pixbuf = gdk_pixbuf_loader_get_pixbuf(loader);
        if (pixbuf)
            g_object_ref(pixbuf);
        g_object_unref(loader);
        return pixbuf;
    }();
    return logo;
}

// Percent-encoded.
std::string bug_subject() {
    char* const encoded = g_uri_escape_string(
        "Ferrodeck " FERRODECK_VERSION " (Build " FERRODECK_BUILD ")", nullptr, FALSE);
    std::string subject = encoded;
    g_free(encoded);
    return subject;
}

// Whatever the locale: these words are the same everywhere.
std::string version_text() {
    const char* const version = std::getenv("SNAP_VERSION");
    if (!version || !*version)
        return "Version " FERRODECK_VERSION " (Build " FERRODECK_BUILD ")";
    const char* const revision = std::getenv("SNAP_REVISION");
    return std::string("Snap ") + version + " (Revision " + (revision ? revision : "?") + ")";
}

}  // namespace

void App::draw_app_logo(double x, double y, double size) {
    GdkPixbuf* const logo = decoded_logo();
    if (!logo)
        return;
    const double scale = size / gdk_pixbuf_get_width(logo);
    cairo_save(m_cr);
    rounded_rect(x, y, size, size, kLogoCorner * size);
    cairo_clip(m_cr);
    cairo_translate(m_cr, x, y);
    cairo_scale(m_cr, scale, scale);
    gdk_cairo_set_source_pixbuf(m_cr, logo, 0, 0);
    cairo_paint(m_cr);
    cairo_restore(m_cr);
}

double App::about_disclaimer_height(double width) {
    return wrapped_text(tr("about.disclaimer"), 0, 0, width, kDisclaimerSize, nullptr,
                        "sans-serif");
}

// --- About ------------------------------------------------------------------------------------

void App::draw_overlay_about(double x, double y, double w, double h) {
    const double needed =
        kDisclaimerTop + about_disclaimer_height(w - 56) + kPanelFoot + kLinksGap + kLinksH;
    const Rect view = {x, y, w, h - kFoot - kFootGap};
    // What the panel is higher than this takes goes to both sides of the links.
    const double spare = std::max(0.0, view.h - needed);
    draw_scrolled(view, needed, [&](double top) { draw_about(x, top, w, spare / 2); });
    draw_buttons(x, y + h - kFoot, w, {{"btn.close", Action::OverlayCancel}});
}

void App::draw_about(double x, double y, double w, double links_lower) {
    draw_app_logo(x + (w - kLogo) / 2, y + 26, kLogo);
    draw_centred("Ferrodeck", x, y + 26 + kLogo + 24, w, 15, m_palette.text);
    draw_centred(version_text(), x, y + 144, w, 11, m_palette.secondary);
    // A long one is set smaller rather than cut.
    const std::string tagline = tr("about.tagline");
    const double tagline_w = text_width(tagline, 12.5, false, false);
    const double share = std::min(1.0, (w - 40) / std::max(1.0, tagline_w));
    draw_centred(tagline, x, y + 167, w, std::floor(2 * 12.5 * (share < 1 ? share - 0.02 : 1)) / 2,
                 m_palette.text);
    draw_centred(maker::kName, x, y + 187, w, 11, m_palette.secondary);

    const double inner_w = w - 56;
    const double text_h = about_disclaimer_height(inner_w);
    const double panel_bottom = y + kDisclaimerTop + text_h + kPanelFoot;
    fill_rounded(x + 20, y + kPanelTop, w - 40, panel_bottom - (y + kPanelTop), 4, m_palette.pane,
                 1);
    draw_text_clipped(tr("about.disclaimer_title"), x + 28, y + kPanelTop + 15, inner_w, 11,
                      m_palette.text, false, false);
    wrapped_text(tr("about.disclaimer"), x + 28, y + kDisclaimerTop, inner_w, kDisclaimerSize,
                 &m_palette.secondary, "sans-serif");

    double line = panel_bottom + kLinksGap + links_lower;
    draw_link({}, maker::kWebsite, x, line, w, 12.5, Action::AboutWebsite);
    draw_link({}, maker::kContact, x, line += kLinkH, w, 11, Action::AboutContact);
    draw_link(tr("about.report_bug"), maker::kBugAddress, x, line += kLinkH + 8, w, 11,
              Action::AboutBugMail);
    line += kLinkH + 8;
    draw_centred(tr("about.packages"), x, line + kLinkH / 2, w, 11, m_palette.secondary);
    draw_link({}, maker::kDownloads, x, line + kLinkH, w, 11, Action::AboutDownloads);
}

void App::draw_centred(const std::string& text, double x, double y, double w, double size,
                       const std::string& color) {
    const double room = w - 40;
    const double text_w = std::min(room, text_width(text, size, false, false));
    draw_text_clipped(text, x + (w - text_w) / 2, y, room, size, color, false, false);
}

void App::draw_link(const std::string& before, const std::string& text, double x, double y,
                    double w, double size, Action action) {
    const double room = w - 40;
    const double gap = before.empty() ? 0 : 6;
    const double link_w = std::min(room, text_width(text, size, false, false));
    const double before_w =
        std::clamp(text_width(before, size, false, false), 0.0, room - link_w - gap);
    const double left = x + (w - before_w - gap - link_w) / 2;
    const double link_x = left + before_w + gap;
    const double centre = y + kLinkH / 2;
    const int param = static_cast<int>(action);
    draw_text_clipped(before, left, centre, before_w, size, m_palette.secondary, false, false);
    draw_text_clipped(text, link_x, centre, link_w, size, m_palette.accent, false, false);
    const HitRect* const hover = hovered();
    if (hover && hover->what == Hit::Overlay && hover->param == param)
        fill_rect(link_x, centre + std::ceil(size / 2), link_w, 1, m_palette.accent, 1);
    add_hit(left, y, before_w + gap + link_w, kLinkH, Hit::Overlay, param, false,
            before.empty() ? text : before + " " + text);
}

void App::open_link(Action action) {
    std::string address = maker::kDownloads;
    if (action == Action::AboutWebsite)
        address = maker::kWebsite;
    else if (action == Action::AboutContact)
        address = std::string("mailto:") + maker::kContact;
    else if (action == Action::AboutBugMail)
        address = std::string("mailto:") + maker::kBugAddress + "?subject=" + bug_subject();
    const std::string error = file_ops::open_address(address);
    if (!error.empty())
        show_error(error);
}
