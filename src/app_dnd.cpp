// Drag and drop: the rows of a pane as a list of URIs for whoever takes them, and lists of URIs
// from anywhere for the engine. The engine alone removes what has been moved, so a drag never asks
// its source to delete: "drag-data-delete" is not connected, and no drop is finished with it.

#include "app.h"

#include "copy_engine.h"
#include "format.h"
#include "i18n.h"
#include "logger.h"
#include "paths.h"
#include "settings.h"
#include "strutil.h"

#include <algorithm>
#include <utility>

// What a drop at some place goes to.
struct App::DropPlace {
    bool right = false;
    int row = -1;
    bool gone = false;  // the entry that was painted there is not listed any more
};

namespace {

// Never written to; GTK's calls take it as it is.
GtkTargetEntry g_targets[] = {{const_cast<char*>("text/uri-list"), 0, 0}};

constexpr auto kActions = static_cast<GdkDragAction>(GDK_ACTION_COPY | GDK_ACTION_MOVE);

constexpr double kIconHeight = 28;
constexpr double kIconMaxWidth = 320;
constexpr double kIconMargin = 10;
constexpr double kIconText = 13;

// Empty if it names no file of this machine. Another one's path would lead to a file here that
// nobody meant.
std::string local_path(const std::string& uri) {
    char* host = nullptr;
    char* const name = g_filename_from_uri(uri.c_str(), &host, nullptr);
    const bool here = !host || !*host || g_ascii_strcasecmp(host, "localhost") == 0 ||
                      g_ascii_strcasecmp(host, g_get_host_name()) == 0;
    std::string path = name && here ? tidy_path(name) : "";
    g_free(name);
    g_free(host);
    return path;
}

std::vector<std::string> local_paths(const std::vector<std::string>& uris) {
    std::vector<std::string> paths;
    for (const std::string& uri : uris)
        if (std::string path = local_path(uri); !path.empty())
            paths.push_back(std::move(path));
    return paths;
}

// --- GTK callbacks: translate the event and call one member. ----------------------------------

App& app_of(gpointer data) {
    return *static_cast<App*>(data);
}

void on_drag_begin_cb(GtkWidget*, GdkDragContext* context, gpointer data) {
    app_of(data).show_drag_icon(context);
}

void on_drag_data_get_cb(GtkWidget*, GdkDragContext*, GtkSelectionData* selection, guint, guint,
                         gpointer data) {
    std::vector<std::string> uris = app_of(data).dragged_uris();
    std::vector<char*> list;
    for (std::string& uri : uris)
        list.push_back(uri.data());
    list.push_back(nullptr);
    gtk_selection_data_set_uris(selection, list.data());
}

void on_drag_end_cb(GtkWidget*, GdkDragContext*, gpointer data) {
    app_of(data).end_pane_drag();
}

gboolean on_drag_motion_cb(GtkWidget*, GdkDragContext* context, int x, int y, guint time,
                           gpointer data) {
    App& app = app_of(data);
    app.drag_over(x / app.m_ui_scale, y / app.m_ui_scale);
    // What comes from outside stays where it is, whatever its program suggests.
    const bool move =
        app.m_drag_from_pane && gdk_drag_context_get_suggested_action(context) == GDK_ACTION_MOVE;
    gdk_drag_status(context, move ? GDK_ACTION_MOVE : GDK_ACTION_COPY, time);
    return TRUE;
}

void on_drag_leave_cb(GtkWidget*, GdkDragContext*, guint, gpointer data) {
    app_of(data).drag_left();
}

void on_drag_data_received_cb(GtkWidget*, GdkDragContext* context, int x, int y,
                              GtkSelectionData* selection, guint, guint time, gpointer data) {
    App& app = app_of(data);
    char** const list = gtk_selection_data_get_uris(selection);
    std::vector<std::string> uris;
    for (char** uri = list; uri && *uri; ++uri)
        uris.emplace_back(*uri);
    g_strfreev(list);
    const bool move =
        app.m_drag_from_pane && gdk_drag_context_get_selected_action(context) == GDK_ACTION_MOVE;
    const bool taken = app.drop_uris(uris, x / app.m_ui_scale, y / app.m_ui_scale, move);
    gtk_drag_finish(context, taken, FALSE, time);
}

}  // namespace

void App::accept_drops() {
    gtk_drag_dest_set(m_canvas, GTK_DEST_DEFAULT_ALL, g_targets, G_N_ELEMENTS(g_targets), kActions);
    const auto connect = [this](const char* signal, GCallback callback) {
        g_signal_connect(m_canvas, signal, callback, this);
    };
    connect("drag-begin", G_CALLBACK(on_drag_begin_cb));
    connect("drag-data-get", G_CALLBACK(on_drag_data_get_cb));
    connect("drag-end", G_CALLBACK(on_drag_end_cb));
    connect("drag-motion", G_CALLBACK(on_drag_motion_cb));
    connect("drag-leave", G_CALLBACK(on_drag_leave_cb));
    connect("drag-data-received", G_CALLBACK(on_drag_data_received_cb));
}

// --- Out of a pane ----------------------------------------------------------------------------

bool App::pull_rows(GdkEventMotion* event) {
    if (!m_press_pending || m_drag_from_pane || !(event->state & GDK_BUTTON1_MASK))
        return false;
    const auto pixel = [](double place) { return static_cast<int>(place); };
    if (!gtk_drag_check_threshold(m_canvas, pixel(m_press_x * m_ui_scale),
                                  pixel(m_press_y * m_ui_scale), pixel(event->x), pixel(event->y)))
        return false;
    begin_pane_drag(event);
    return true;
}

// What is selected is dragged, which the press has settled already.
void App::begin_pane_drag(GdkEventMotion* event) {
    const bool listed = pressed_row() >= 0;
    m_press_pending = m_press_defer_select = false;
    if (!listed || busy() || m_overlay != Overlay::None || !commit_rename())
        return;
    const Pane& pane = pane_for(m_press_right);
    m_drag_paths = pane.action_paths();
    if (m_drag_paths.empty())
        return;
    m_drag_from_pane = true;
    m_active_right = m_press_right;
    Log::infof("drag: %zu item(s) from %s", m_drag_paths.size(), pane.path().c_str());
    GtkTargetList* const targets = gtk_target_list_new(g_targets, G_N_ELEMENTS(g_targets));
    GdkDragContext* const context = gtk_drag_begin_with_coordinates(
        m_canvas, targets, kActions, 1, reinterpret_cast<GdkEvent*>(event),
        static_cast<int>(event->x), static_cast<int>(event->y));
    gtk_target_list_unref(targets);
    if (!context) {
        Log::warnf("drag: gtk_drag_begin returned nothing — no drag started");
        m_drag_from_pane = false;
        m_drag_paths.clear();
    }
    request_redraw();
}

void App::show_drag_icon(GdkDragContext* context) {
    if (!m_drag_from_pane)
        return;
    cairo_surface_t* const icon = make_drag_icon();
    gtk_drag_set_icon_surface(context, icon);
    cairo_surface_destroy(icon);
}

cairo_surface_t* App::make_drag_icon() {
    const std::string text =
        m_drag_paths.size() == 1
            ? su::sanitize_utf8(su::basename_of(m_drag_paths.front()))
            : I18n::instance().trf("status.selected",
                                   fmt::saturated(static_cast<int64_t>(m_drag_paths.size())));
    const int scale = m_canvas ? gtk_widget_get_scale_factor(m_canvas) : 1;
    const auto surface_of = [scale](double w, double h) {
        cairo_surface_t* const surface = cairo_image_surface_create(
            CAIRO_FORMAT_ARGB32, static_cast<int>(w) * scale, static_cast<int>(h) * scale);
        cairo_surface_set_device_scale(surface, scale, scale);
        return surface;
    };
    const auto paint = [this](cairo_surface_t* surface, const std::function<void()>& painter) {
        cairo_t* const cr = cairo_create(surface);
        paint_on(cr, painter);
        cairo_destroy(cr);
    };
    double width = 0;
    cairo_surface_t* const scratch = surface_of(1, 1);
    paint(scratch, [&] {
        width = std::min(text_width(text, kIconText, true, false) + 2 * kIconMargin, kIconMaxWidth);
    });
    cairo_surface_destroy(scratch);

    cairo_surface_t* const icon = surface_of(width, kIconHeight);
    paint(icon, [&] {
        fill_rect(0, 0, width, kIconHeight, m_palette.window, 0.94);
        set_color(m_palette.accent, 1);
        cairo_rectangle(m_cr, 1, 1, width - 2, kIconHeight - 2);
        cairo_set_line_width(m_cr, 2);
        cairo_stroke(m_cr);
        draw_text_clipped(text, kIconMargin, kIconHeight / 2, width - 2 * kIconMargin, kIconText,
                          m_palette.text, true, false);
    });
    return icon;
}

std::vector<std::string> App::dragged_uris() const {
    std::vector<std::string> uris;
    for (const std::string& path : m_drag_paths) {
        char* const uri = g_filename_to_uri(path.c_str(), nullptr, nullptr);
        if (uri)
            uris.emplace_back(uri);
        g_free(uri);
    }
    return uris;
}

void App::end_pane_drag() {
    m_drag_from_pane = false;
    m_drag_paths.clear();
    m_press_pending = m_press_defer_select = false;
    drag_left();
}

// --- Onto a pane ------------------------------------------------------------------------------

App::DropPlace App::drop_place(double x, double y) const {
    DropPlace place;
    place.right = x >= m_layout.right_x;
    const HitRect* const hit = hit_test(x, y);
    if (!hit || hit->what != Hit::PaneRow || hit->right != place.right)
        return place;
    const int side = place.right ? 1 : 0;
    const int row = row_now(place.right, hit->param, hit->label, m_painted_order[side]);
    const std::vector<FsEntry>& entries = pane_for(place.right).entries();
    place.gone = row < 0 || static_cast<size_t>(row) >= entries.size();
    if (!place.gone && entries[static_cast<size_t>(row)].is_dir_like())
        place.row = row;
    return place;
}

void App::drag_over(double x, double y) {
    if (m_veiled)
        return;
    m_drag_x = x;
    m_drag_y = y;
    const DropPlace place = drop_place(x, y);
    if (m_drag_active && m_drag_target_right == place.right && m_drag_row == place.row)
        return;
    m_drag_active = m_drag_inside = true;
    m_drag_target_right = place.right;
    m_drag_row = place.row;
    request_redraw();
}

// The rows may have moved below what is held still.
void App::drag_over_again() {
    if (m_drag_active && m_drag_x >= 0)
        drag_over(m_drag_x, m_drag_y);
}

void App::drag_left() {
    m_drag_active = m_drag_inside = false;
    m_drag_row = -1;
    m_drag_x = m_drag_y = -1;
    request_redraw();
}

bool App::drop_uris(const std::vector<std::string>& uris, double x, double y, bool move) {
    drag_left();
    if (uris.empty() || m_veiled)
        return false;
    // The transfer may have a question, which would take the dialogue's place.
    if (m_overlay != Overlay::None) {
        refuse_drop();
        return true;
    }
    if (take_unseen_end() && m_overlay != Overlay::None)
        return true;
    const DropPlace place = drop_place(x, y);
    if (place.gone)
        return false;
    const Pane& pane = pane_for(place.right);
    std::string folder = pane.path();
    if (place.row >= 0)
        folder = su::join_path(folder, pane.entries()[static_cast<size_t>(place.row)].name);
    std::vector<std::string> paths = local_paths(uris);
    if (paths.empty()) {
        show_error(tr("err.drop_not_local"));
        return false;
    }
    std::erase_if(paths,
                  [&folder](const std::string& path) { return su::parent_of(path) == folder; });
    if (paths.empty()) {
        if (!m_drag_from_pane)
            show_message(tr("dlg.nothing_title"), tr("err.drop_same_dir"));
        return true;
    }
    // The message about a name that was refused is not covered by a question of the transfer.
    if (!commit_rename())
        return true;
    m_active_right = place.right;
    Log::infof("drop: %zu item(s) -> %s (%s%s)", paths.size(), folder.c_str(),
               move ? "move" : "copy", m_drag_from_pane ? ", from pane" : ", from outside");
    const Settings& settings = SettingsStore::instance().get();
    const auto operation = move ? copy_engine::Operation::Move : copy_engine::Operation::Copy;
    if (copy_engine::instance().start(std::move(paths), folder, operation, settings.thread_count,
                                      settings.default_conflict))
        m_transfer_was_running = true;
    else
        refuse_drop();
    request_redraw();
    return true;
}

void App::refuse_drop() {
    // A question that a worker waits for stays, and so does what would be lost with its dialogue.
    if (m_overlay == Overlay::Conflict || conflict_waits())
        flash_status(tr("dlg.busy_text"));
    else
        show_busy();
}
