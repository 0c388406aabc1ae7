// Another program for drag and drop: a window that gives and takes files.
//
//   dnd_partner LIST ACTIONS GEOMETRY LOG
//
// Gives the bytes of the file LIST as text/uri-list; ACTIONS is what it offers: "copy", "move" or
// "both". The list may be absent: then nothing is given, which a drop finds out only when it asks.
// What happens is added to the file LOG, a line each.

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtk/gtk.h>
#include <iterator>
#include <string>

namespace {

GtkTargetEntry g_target_table[] = {{const_cast<char*>("text/uri-list"), 0, 0}};
std::string g_list_path;
std::string g_log_path;

void note(const std::string& line) {
    std::ofstream(g_log_path, std::ios::app) << line << '\n';
}

const char* action_word(GdkDragContext* context) {
    switch (gdk_drag_context_get_selected_action(context)) {
    case GDK_ACTION_COPY:
        return "copy";
    case GDK_ACTION_MOVE:
        return "move";
    default:
        return "none";
    }
}

// --- As the source ----------------------------------------------------------------------------

void on_data_get_cb(GtkWidget*, GdkDragContext*, GtkSelectionData* data, guint, guint, gpointer) {
    std::ifstream in(g_list_path, std::ios::binary);
    if (!in)
        return;
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    gtk_selection_data_set(data, gtk_selection_data_get_target(data), 8,
                           reinterpret_cast<const guchar*>(text.data()),
                           static_cast<int>(text.size()));
}

void on_data_delete_cb(GtkWidget*, GdkDragContext*, gpointer) {
    note("asked to delete");
}

void on_end_cb(GtkWidget*, GdkDragContext* context, gpointer) {
    note(std::string("end ") + action_word(context));
}

// --- As the target ----------------------------------------------------------------------------

gboolean on_motion_cb(GtkWidget*, GdkDragContext*, int, int, guint, gpointer) {
    note("over");
    return TRUE;
}

void on_received_cb(GtkWidget*, GdkDragContext* context, int, int, GtkSelectionData* data, guint,
                    guint, gpointer) {
    char** const uris = gtk_selection_data_get_uris(data);
    for (char** uri = uris; uri && *uri; ++uri)
        note(std::string("got ") + *uri);
    g_strfreev(uris);
    note(std::string("drop ") + action_word(context));
}

}  // namespace

int main(int argc, char** argv) {
    gtk_init(&argc, &argv);
    if (argc != 5)
        return EXIT_FAILURE;
    g_list_path = argv[1];
    g_log_path = argv[4];
    const std::string offered = argv[2];
    const int actions =
        (offered == "copy" ? 0 : GDK_ACTION_MOVE) | (offered == "move" ? 0 : GDK_ACTION_COPY);
    int x = 0;
    int y = 0;
    int w = 0;
    int h = 0;
    if (std::sscanf(argv[3], "%dx%d+%d+%d", &w, &h, &x, &y) != 4)
        return EXIT_FAILURE;
    GtkWidget* const window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    gtk_window_set_title(GTK_WINDOW(window), "Partner");
    gtk_window_set_default_size(GTK_WINDOW(window), w, h);
    gtk_window_set_focus_on_map(GTK_WINDOW(window), FALSE);
    gtk_window_move(GTK_WINDOW(window), x, y);
    GtkWidget* const area = gtk_event_box_new();
    gtk_container_add(GTK_CONTAINER(window), area);
    gtk_drag_source_set(area, GDK_BUTTON1_MASK, g_target_table, 1,
                        static_cast<GdkDragAction>(actions));
    gtk_drag_dest_set(area, GTK_DEST_DEFAULT_ALL, g_target_table, 1,
                      static_cast<GdkDragAction>(GDK_ACTION_COPY | GDK_ACTION_MOVE));
    const auto connect = [area](const char* signal, GCallback callback) {
        g_signal_connect(area, signal, callback, nullptr);
    };
    connect("drag-data-get", G_CALLBACK(on_data_get_cb));
    connect("drag-data-delete", G_CALLBACK(on_data_delete_cb));
    connect("drag-end", G_CALLBACK(on_end_cb));
    connect("drag-motion", G_CALLBACK(on_motion_cb));
    connect("drag-data-received", G_CALLBACK(on_received_cb));
    gtk_widget_show_all(window);
    gtk_main();
    return EXIT_SUCCESS;
}
