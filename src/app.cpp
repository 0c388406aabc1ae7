// The life of the program: command line, start, window, tick, saved state, end. Paints nothing.
//
// Work that runs on other threads is seen here alone, as edges between two ticks: running and then
// not running means reap, reload both panes, show the result, exactly once.

#include "app.h"

#include "archive_ops.h"
#include "desktop_theme.h"
#include "drives.h"
#include "elevate.h"
#include "file_ops.h"
#include "format.h"
#include "fs_ops.h"
#include "i18n.h"
#include "logger.h"
#include "paths.h"
#include "recent.h"
#include "settings.h"
#include "strutil.h"
#include "window_manager.h"

#include <algorithm>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <gdk/gdkwayland.h>
#include <glib-unix.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kMinWidth = 1000;
constexpr int kMinHeight = 700;
constexpr int kDefaultWidth = 1100;
constexpr int kDefaultHeight = 720;
constexpr guint kTickMs = 100;
constexpr double kProgressHoldSeconds = 2.5;
constexpr double kEndWaitSeconds = 2.0;
constexpr int kDrivesWaitMs = 500;

bool same_order(const dir_lister::SortOrder& a, const dir_lister::SortOrder& b) {
    return a.key == b.key && a.ascending == b.ascending && a.dirs_first == b.dirs_first;
}

// The monitor's area without panels, or all of it where the desktop does not tell.
GdkRectangle usable_area(GdkMonitor* monitor) {
    GdkRectangle area = {};
    gdk_monitor_get_workarea(monitor, &area);
    if (area.width < 1 || area.height < 1)
        gdk_monitor_get_geometry(monitor, &area);
    return area;
}

GdkMonitor* monitor_under_pointer(GdkDisplay* display) {
    if (GdkSeat* seat = gdk_display_get_default_seat(display)) {
        if (GdkDevice* pointer = gdk_seat_get_pointer(seat)) {
            int x = 0;
            int y = 0;
            gdk_device_get_position(pointer, nullptr, &x, &y);
            if (GdkMonitor* monitor = gdk_display_get_monitor_at_point(display, x, y))
                return monitor;
        }
    }
    if (GdkMonitor* primary = gdk_display_get_primary_monitor(display))
        return primary;
    return gdk_display_get_monitor(display, 0);
}

// --- GTK callbacks: translate the event and call one member. ----------------------------------

App& app_of(gpointer data) {
    return *static_cast<App*>(data);
}

gboolean on_tick_cb(gpointer data) {
    app_of(data).tick();
    return TRUE;
}

gboolean on_self_test_cb(gpointer data) {
    app_of(data).run_self_test();
    return FALSE;
}

gboolean on_signal_cb(gpointer data) {
    Log::infof("signal received, shutting down");
    app_of(data).m_quitting = true;
    elevate::abandon();
    if (gtk_main_level() > 0)
        gtk_main_quit();
    return FALSE;  // a second signal of the kind ends the process at once
}

gboolean on_draw_cb(GtkWidget* widget, cairo_t* cr, gpointer data) {
    app_of(data).draw_frame(cr, gtk_widget_get_allocated_width(widget),
                            gtk_widget_get_allocated_height(widget));
    return TRUE;
}

gboolean on_button_press_cb(GtkWidget* widget, GdkEventButton* event, gpointer data) {
    App& app = app_of(data);
    gtk_widget_grab_focus(widget);
    if (event->type == GDK_3BUTTON_PRESS)
        return TRUE;
    app.handle_click(event->x / app.m_ui_scale, event->y / app.m_ui_scale,
                     static_cast<int>(event->button), event->state,
                     event->type == GDK_2BUTTON_PRESS ? 2 : 1);
    return TRUE;
}

gboolean on_button_release_cb(GtkWidget*, GdkEventButton*, gpointer data) {
    app_of(data).handle_release();
    return TRUE;
}

gboolean on_motion_cb(GtkWidget*, GdkEventMotion* event, gpointer data) {
    App& app = app_of(data);
    app.handle_motion(event->x / app.m_ui_scale, event->y / app.m_ui_scale, event);
    return TRUE;
}

gboolean on_scroll_cb(GtkWidget*, GdkEventScroll* event, gpointer data) {
    App& app = app_of(data);
    app.handle_scroll(event->x / app.m_ui_scale, event->direction, event->delta_y, event->state);
    return TRUE;
}

gboolean on_leave_cb(GtkWidget*, GdkEventCrossing*, gpointer data) {
    app_of(data).handle_leave();
    return FALSE;
}

gboolean on_key_press_cb(GtkWidget*, GdkEventKey* event, gpointer data) {
    app_of(data).handle_key(event);
    return TRUE;  // GTK never sees a key
}

gboolean on_key_release_cb(GtkWidget*, GdkEventKey* event, gpointer data) {
    app_of(data).handle_key_release(event);
    return TRUE;
}

gboolean on_focus_cb(GtkWidget*, GdkEventFocus* event, gpointer data) {
    app_of(data).set_window_focus(event->in != 0);
    return FALSE;  // GTK keeps its own account
}

void on_canvas_gone_cb(GtkWidget*, gpointer data) {
    app_of(data).release_input_method();
}

gboolean on_configure_cb(GtkWidget*, GdkEventConfigure*, gpointer data) {
    app_of(data).store_geometry();
    return FALSE;  // GTK places its widgets by this event
}

gboolean on_delete_cb(GtkWidget*, GdkEvent*, gpointer data) {
    app_of(data).on_delete();
    return FALSE;  // the window closes
}

void on_destroy_cb(GtkWidget*, gpointer data) {
    app_of(data).on_destroy();
}

}  // namespace

// --- Life -------------------------------------------------------------------------------------

int App::run(int argc, char** argv) {
    begin(argc, argv);
    gtk_main();
    finish();
    return 0;
}

void App::begin(int argc, char** argv) {
    // What a desktop knows the window by: the name of the desktop file, on Wayland and on X11.
    g_set_prgname("ferrodeck");
    gtk_init(&argc, &argv);
    gdk_set_program_class("ferrodeck");
    parse_arguments(argc, argv);
    std::setlocale(LC_NUMERIC, "C");  // GTK's start has set the locale
    SettingsStore::instance().load();
    const Settings& settings = SettingsStore::instance().get();
    I18n::instance().set_language(settings.language);
    I18n::instance().set_ui_font(settings.font_family);
    m_invoking_user = invoking_user();
    log_start();
    drives::init();
    archive_ops::probe_in_background([] { (void)file_ops::terminal_program(); });
    load_state();
    build_window();
    watch_desktop_theme();
    watch_signals();
    flash_status("Build " FERRODECK_BUILD);
    m_flash_until = now_seconds() + 4.0;
    offer_sandbox_notice();
    if (!m_arg_actions.empty()) {
        Log::infof("selftest: %s", m_arg_actions.c_str());
        g_timeout_add(400, on_self_test_cb, this);
    }
}

void App::finish() {
    m_quitting = true;
    if (m_tick_id)
        g_source_remove(m_tick_id);
    m_tick_id = 0;
    desktop_theme::watch({});
    forget_root_start();
    save_state();
    // The user sees the window go before any waiting begins.
    GdkDisplay* display = gdk_display_get_default();
    if (m_window)
        gtk_widget_destroy(m_window);
    if (display)
        gdk_display_flush(display);
    end_workers();
    archive_ops::cancel_list();
    close_hex_view();
    file_ops::folder_size::cancel();
    drives::shutdown_wait(kDrivesWaitMs);
}

// A worker may be stuck in the kernel, on a mount whose server is gone, where no signal reaches it
// and a join would wait for ever.
void App::end_workers() {
    copy_engine::Engine& engine = copy_engine::instance();
    BgTask& task = BgTask::instance();
    cancel_work();
    const double until = now_seconds() + kEndWaitSeconds;
    while (busy() && now_seconds() < until) {
        engine.watchdog_tick();  // wakes those whom the cancel missed
        g_usleep(10000);
    }
    if (busy()) {
        Log::warnf("a worker did not end within %.0f s, leaving without it", kEndWaitSeconds);
        _exit(EXIT_SUCCESS);
    }
    engine.reap();
    task.reap();
}

void App::parse_arguments(int argc, char** argv) {
    struct Known {
        const char* key;
        std::string App::*field;
    };
    static constexpr Known kKnown[] = {
        {"left", &App::m_arg_left},      {"right", &App::m_arg_right},
        {"active", &App::m_arg_active},  {"geometry", &App::m_arg_geometry},
        {"action", &App::m_arg_actions},
    };
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const size_t equals = argument.find('=');
        if (!su::starts_with(argument, "--") || equals == std::string::npos)
            continue;
        for (const Known& known : kKnown)
            if (argument.substr(2, equals - 2) == known.key)
                this->*known.field = argument.substr(equals + 1);
    }
    // A folder named here is relative to where the program was started.
    char* const cwd = g_get_current_dir();
    for (std::string* path : {&m_arg_left, &m_arg_right})
        if (!path->empty())
            *path = tidy_path((*path)[0] == '/' ? *path : su::join_path(cwd, *path));
    g_free(cwd);
}

void App::log_start() const {
    const Settings& settings = SettingsStore::instance().get();
    const int threads = settings.thread_count;
    Log::infof("%s %s (build %s) starting", "Ferrodeck", FERRODECK_VERSION, FERRODECK_BUILD);
    Log::infof("%d CPU cores available, copy streams: %s", fsops::cpu_cores(),
               threads == 0 ? "automatic" : std::to_string(threads).c_str());
    Log::infof("package %s, uid %d%s%s", package_kind(), static_cast<int>(geteuid()),
               running_as_root() ? " (ROOT)" : "",
               m_invoking_user.empty() ? "" : (" via " + m_invoking_user).c_str());
    Log::infof("language %s, theme %s", I18n::instance().effective_language().c_str(),
               settings.theme.c_str());
}

// --- Saved state ------------------------------------------------------------------------------

void App::load_state() {
    const Settings& s = SettingsStore::instance().get();
    m_left.set_sort_order(s.left_sort);
    m_right.set_sort_order(s.right_sort);
    const auto first_of = [](const std::string& argument, const std::string& saved) {
        if (!argument.empty())
            return argument;
        return saved.empty() ? real_home() : saved;
    };
    const std::string left = first_of(m_arg_left, s.left_path);
    const std::string right = first_of(m_arg_right, s.right_path);
    if (!left.empty())
        m_left.navigate_to(left, s.show_hidden);
    if (!right.empty())
        m_right.navigate_to(right, s.show_hidden);
    if (!m_arg_left.empty() || !m_arg_right.empty())
        Log::infof("state taken over from the calling instance: left %s, right %s", left.c_str(),
                   right.c_str());
    if (m_arg_active == "right")
        m_active_right = true;
    else if (m_arg_active == "left")
        m_active_right = false;
    // The start itself is no change.
    m_saved_left = m_left.path();
    m_saved_right = m_right.path();
    m_saved_left_sort = m_left.sort_order();
    m_saved_right_sort = m_right.sort_order();
    apply_theme();
}

void App::save_state() {
    Settings& s = SettingsStore::instance().mutable_get();
    s.left_path = m_left.path();
    s.right_path = m_right.path();
    s.left_sort = m_left.sort_order();
    s.right_sort = m_right.sort_order();
    SettingsStore::instance().save();
    m_saved_left = s.left_path;
    m_saved_right = s.right_path;
    m_saved_left_sort = s.left_sort;
    m_saved_right_sort = s.right_sort;
}

void App::save_state_if_changed() {
    for (const bool right : {false, true})
        if (const Pane& pane = pane_for(right);
            pane.path() != (right ? m_saved_right : m_saved_left)) {
            recent::add(pane.path());
            warn_if_unreadable(right);
        }
    if (m_left.path() != m_saved_left || m_right.path() != m_saved_right ||
        !same_order(m_left.sort_order(), m_saved_left_sort) ||
        !same_order(m_right.sort_order(), m_saved_right_sort))
        save_state();
}

// The desktop is asked only where its answer counts: that may take half a second.
void App::apply_theme() {
    const std::string& theme = SettingsStore::instance().get().theme;
    m_palette = Palette::for_theme(theme, theme == "auto" && desktop_theme::prefers_dark());
}

void App::watch_desktop_theme() {
    desktop_theme::watch([this] {
        if (SettingsStore::instance().get().theme != "auto")
            return;
        apply_theme();
        request_redraw();
    });
}

void App::refresh_both() {
    const bool show_hidden = SettingsStore::instance().get().show_hidden;
    m_left.reload(show_hidden);
    m_right.reload(show_hidden);
    drives::refresh();
    request_redraw();
}

// --- Window -----------------------------------------------------------------------------------

void App::build_window() {
    m_window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_title(GTK_WINDOW(m_window), "Ferrodeck");
    place_window();
    GdkGeometry hints = {};
    hints.min_width = kMinWidth;
    hints.min_height = kMinHeight;
    gtk_window_set_geometry_hints(GTK_WINDOW(m_window), nullptr, &hints, GDK_HINT_MIN_SIZE);

    m_canvas = gtk_drawing_area_new();
    gtk_container_add(GTK_CONTAINER(m_window), m_canvas);
    gtk_widget_add_events(m_canvas, GDK_POINTER_MOTION_MASK | GDK_BUTTON_PRESS_MASK |
                                        GDK_BUTTON_RELEASE_MASK | GDK_KEY_PRESS_MASK |
                                        GDK_LEAVE_NOTIFY_MASK | GDK_SCROLL_MASK |
                                        GDK_SMOOTH_SCROLL_MASK);
    gtk_widget_set_can_focus(m_canvas, TRUE);
    gtk_widget_grab_focus(m_canvas);

    const auto connect = [this](GtkWidget* widget, const char* signal, GCallback callback) {
        g_signal_connect(widget, signal, callback, this);
    };
    connect(m_canvas, "draw", G_CALLBACK(on_draw_cb));
    connect(m_canvas, "button-press-event", G_CALLBACK(on_button_press_cb));
    connect(m_canvas, "button-release-event", G_CALLBACK(on_button_release_cb));
    connect(m_canvas, "motion-notify-event", G_CALLBACK(on_motion_cb));
    connect(m_canvas, "scroll-event", G_CALLBACK(on_scroll_cb));
    connect(m_canvas, "leave-notify-event", G_CALLBACK(on_leave_cb));
    connect(m_window, "key-press-event", G_CALLBACK(on_key_press_cb));
    connect(m_window, "key-release-event", G_CALLBACK(on_key_release_cb));
    connect(m_window, "focus-in-event", G_CALLBACK(on_focus_cb));
    connect(m_window, "focus-out-event", G_CALLBACK(on_focus_cb));
    connect(m_canvas, "unrealize", G_CALLBACK(on_canvas_gone_cb));
    connect(m_window, "configure-event", G_CALLBACK(on_configure_cb));
    connect(m_window, "delete-event", G_CALLBACK(on_delete_cb));
    connect(m_window, "destroy", G_CALLBACK(on_destroy_cb));
    accept_drops();
    m_tick_id = g_timeout_add(kTickMs, on_tick_cb, this);
    gtk_widget_show_all(m_window);
    use_input_method(gtk_im_multicontext_new());
}

// The geometry of the command line, the one of the last run, or the default size on the pointer's
// monitor. A geometry that does not parse is ignored in silence.
void App::place_window() {
    int width = 0;
    int height = 0;
    int x = 0;
    int y = 0;
    const int fields = std::sscanf(m_arg_geometry.c_str(), "%dx%d+%d+%d", &width, &height, &x, &y);
    if (fields == 4 && width > 0 && height > 0) {
        Log::infof("geometry taken over from the calling instance: %dx%d+%d+%d", width, height, x,
                   y);
        width = std::max(width, kMinWidth);
        height = std::max(height, kMinHeight);
        gtk_window_set_default_size(GTK_WINDOW(m_window), width, height);
        return move_to_fitting_monitor(x, y, width, height);
    }
    const WindowGeometry saved = WindowManager::instance().load();
    if (!saved.valid)
        return center_on_current_monitor(kDefaultWidth, kDefaultHeight);
    width = std::max(saved.width, kMinWidth);
    height = std::max(saved.height, kMinHeight);
    if (saved.maximized)
        return maximize_window(width, height);
    gtk_window_set_default_size(GTK_WINDOW(m_window), width, height);
    if (!saved.has_position)
        return center_instead_of(saved.x, saved.y, width, height);
    move_to_fitting_monitor(saved.x, saved.y, width, height);
}

// Where no window manager maximises it, the window has the size that it would be restored to: more
// than the monitor shows would be more than a window can have, if the file is damaged.
void App::maximize_window(int width, int height) {
    GdkDisplay* display = gdk_display_get_default();
    if (GdkMonitor* monitor = display ? monitor_under_pointer(display) : nullptr) {
        const GdkRectangle area = usable_area(monitor);
        width = std::max(std::min(width, area.width), kMinWidth);
        height = std::max(std::min(height, area.height), kMinHeight);
    }
    gtk_window_set_default_size(GTK_WINDOW(m_window), width, height);
    gtk_window_maximize(GTK_WINDOW(m_window));
}

// Moves the window there if one monitor shows all of it; a position that none does is never used.
void App::move_to_fitting_monitor(int x, int y, int width, int height) {
    GdkDisplay* display = gdk_display_get_default();
    if (!display)
        return gtk_window_move(GTK_WINDOW(m_window), x, y);
    for (int i = 0; i < gdk_display_get_n_monitors(display); ++i) {
        const GdkRectangle area = usable_area(gdk_display_get_monitor(display, i));
        // Wide enough for any four ints.
        const int64_t right = int64_t{x} + width;
        const int64_t bottom = int64_t{y} + height;
        if (x >= area.x && y >= area.y && right <= int64_t{area.x} + area.width &&
            bottom <= int64_t{area.y} + area.height)
            return gtk_window_move(GTK_WINDOW(m_window), x, y);
    }
    center_instead_of(x, y, width, height);
}

void App::center_instead_of(int x, int y, int width, int height) {
    Log::infof("saved position %d,%d (%dx%d) fits no current monitor — centring", x, y, width,
               height);
    center_on_current_monitor(width, height);
}

// Before it is mapped the window is where the toolkit has put it, not where the user has.
void App::store_geometry() const {
    if (!m_window || !gtk_widget_get_mapped(m_window))
        return;
    GtkWindow* const window = GTK_WINDOW(m_window);
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    // On Wayland no window knows its place; what GTK calls so is the width of its shadow.
    if (!GDK_IS_WAYLAND_DISPLAY(gtk_widget_get_display(m_window)))
        gtk_window_get_position(window, &x, &y);
    gtk_window_get_size(window, &width, &height);
    WindowManager::instance().save(x, y, width, height, gtk_window_is_maximized(window) != FALSE);
}

void App::center_on_current_monitor(int w, int h) {
    GdkDisplay* display = gdk_display_get_default();
    GdkMonitor* monitor = display ? monitor_under_pointer(display) : nullptr;
    if (!monitor) {
        gtk_window_set_default_size(GTK_WINDOW(m_window), w, h);
        gtk_window_set_position(GTK_WINDOW(m_window), GTK_WIN_POS_CENTER);
        return;
    }
    const GdkRectangle area = usable_area(monitor);
    const int width = std::max(std::min(w, area.width), kMinWidth);
    const int height = std::max(std::min(h, area.height), kMinHeight);
    gtk_window_set_default_size(GTK_WINDOW(m_window), width, height);
    const auto half_of = [](int leftover) { return leftover < 2 ? 0 : leftover >> 1; };
    const int x = area.x + half_of(area.width - width);
    const int y = area.y + half_of(area.height - height);
    gtk_window_move(GTK_WINDOW(m_window), x, y);
    Log::infof("centred at %d,%d (%dx%d) on monitor %dx%d+%d+%d", x, y, width, height, area.width,
               area.height, area.x, area.y);
}

void App::watch_signals() {
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        g_unix_signal_add(number, on_signal_cb, this);
}

// Closing the window abandons running work; it does not ask.
void App::on_delete() {
    cancel_work();
    save_state();
}

void App::on_destroy() {
    m_window = nullptr;
    m_canvas = nullptr;
    m_quitting = true;
    elevate::abandon();
    if (gtk_main_level() > 0)
        gtk_main_quit();
}

// --- Tick -------------------------------------------------------------------------------------

void App::tick() {
    copy_engine::Engine& engine = copy_engine::instance();
    const bool copying = engine.is_running();
    const bool tasking = BgTask::instance().is_running();
    const bool conflict = engine.snapshot().conflict.pending;
    poll_transfer_end(copying);
    poll_task_end(tasking);
    poll_conflict(conflict);
    poll_held_message();
    if (copying || tasking)
        m_result.valid = false;
    m_transfer_was_running = copying;
    m_bgtask_was_running = tasking;
    save_state_if_changed();
    const bool sizing = poll_sizing();
    const bool listing = poll_listing();
    const bool searching = poll_hex();
    if (copying) {
        const std::string stalled = engine.watchdog_tick();
        if (!stalled.empty())
            flash_status(I18n::instance().trf("progress.stalled",
                                              fmt::embedded(su::basename_of(stalled)).c_str()));
    }
    const bool flashing = m_flash_until > 0 || m_reload_flash_until > 0;
    poll_progress_hold();
    ++m_idle_frame;
    const bool idle_redraw = m_overlay == Overlay::None && m_window &&
                             gtk_window_is_active(GTK_WINDOW(m_window)) && m_idle_frame % 2 == 0;
    if (copying || tasking || conflict || sizing || listing || searching || flashing ||
        idle_redraw || m_progress_hold_until > 0)
        request_redraw();
}

void App::poll_transfer_end(bool copying) {
    if (!m_transfer_was_running || copying)
        return;
    m_progress_hold_until = now_seconds() + kProgressHoldSeconds;
    copy_engine::Engine& engine = copy_engine::instance();
    engine.reap();
    const copy_engine::Progress p = engine.snapshot();
    refresh_both();
    const bool move = p.operation == copy_engine::Operation::Move;
    m_result = {};
    m_result.valid = true;
    m_result.title = tr(move ? "progress.moved" : "progress.copied");
    m_result.files = std::max<int64_t>(p.files_copied, 0);
    m_result.bytes = p.bytes_done;
    m_result.seconds = p.elapsed_seconds;
    m_result.failures = p.failures_total;
    m_result.disk_full = p.disk_full;
    m_result.cancelled = p.cancelled;
    if (!p.failures.empty() && m_overlay == Overlay::None)
        open_overlay(Overlay::Errors, tr("dlg.errors_title"));
}

void App::poll_task_end(bool tasking) {
    if (!m_bgtask_was_running || tasking)
        return;
    const BgTask::Status status = BgTask::instance().snapshot();
    BgTask::instance().reap();
    refresh_both();
    m_result = {};
    m_result.valid = true;
    switch (status.kind) {
    case BgTask::Kind::Pack:
        m_result.title = tr("task.packed");
        break;
    case BgTask::Kind::Unpack:
        m_result.title = tr("task.unpacked");
        break;
    case BgTask::Kind::Delete:
        m_result.title = tr("task.deleted");
        break;
    case BgTask::Kind::None:
        m_result.title = status.title;
        break;
    }
    m_result.files = status.done;
    m_result.detail = status.result;
    m_result.failures = status.failures.size();
    m_result.cancelled = status.cancelled;
    if (!status.failures.empty() && m_overlay == Overlay::None)
        open_overlay(Overlay::Errors, status.title);
}

// A question of the engine replaces whatever dialogue is open, since a worker waits for it; but
// never one with changes that would be lost.
void App::poll_conflict(bool pending) {
    if (pending && conflict_waits())
        return;
    if (pending && m_overlay != Overlay::Conflict) {
        open_overlay(Overlay::Conflict, "");
        m_conflict_apply_all = false;
        m_conflict_deaf_until = now_seconds() + kConflictDeafSeconds;
    } else if (!pending && m_overlay == Overlay::Conflict) {
        close_overlay();
    }
}

bool App::poll_sizing() {
    const bool sizing = file_ops::folder_size::snapshot().running;
    return std::exchange(m_sizing_was_running, sizing) || sizing;
}

// One at a time, and behind the engine's question.
void App::poll_held_message() {
    if (m_held_messages.empty() || conflict_waits() || m_overlay == Overlay::Message ||
        m_overlay == Overlay::Conflict)
        return;
    const HeldMessage message = m_held_messages.front();
    m_held_messages.erase(m_held_messages.begin());
    show_message(message.title, message.text, message.is_error, message.action,
                 message.action_label);
}

void App::poll_progress_hold() {
    if (m_progress_hold_until > 0 && now_seconds() >= m_progress_hold_until) {
        m_progress_hold_until = 0;
        request_redraw();
    }
}

// --- Small things that all modules use --------------------------------------------------------

double App::now_seconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count();
}

void App::request_redraw() const {
    if (m_canvas)
        gtk_widget_queue_draw(m_canvas);
}

bool App::busy() {
    return copy_engine::instance().is_running() || BgTask::instance().is_running();
}

void App::cancel_work() {
    if (copy_engine::instance().is_running())
        copy_engine::instance().cancel();
    if (BgTask::instance().is_running())
        BgTask::instance().cancel();
}

void App::flash_status(const std::string& text) {
    m_flash_text = text;
    m_flash_until = now_seconds() + 3.0;
    request_redraw();
}

void App::flash_panes() {
    m_reload_flash_until = now_seconds() + 0.45;
    request_redraw();
}
