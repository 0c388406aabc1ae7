// What the program tells of itself: its logo and the disclaimer.

#include "app.h"

#include "i18n.h"
#include "icon_data.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

namespace {

constexpr double kDisclaimerSize = 11;
constexpr double kLogoCorner = 0.2;  // of its width

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
