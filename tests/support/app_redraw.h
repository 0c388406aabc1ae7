// Whether a window waits to be painted, without painting it.

#pragma once

#include <gtk/gtk.h>

namespace test_env {

// Asking takes it away, so that a second question answers for what came in between.
inline bool redraw_due(GtkWidget* widget) {
    cairo_region_t* const region = gdk_window_get_update_area(gtk_widget_get_window(widget));
    const bool due = region && !cairo_region_is_empty(region);
    if (region)
        cairo_region_destroy(region);
    return due;
}

}  // namespace test_env
