// App is the program: one object, made in main(), that owns the window, both panes, the open
// dialogue and all state of the input. The interface is painted by hand on one drawing surface, and
// every frame records which rectangle means what; input is resolved against those rectangles and
// ends in perform().
//
// Interface thread only, without a lock. Workers never call in here: they change their own state,
// and the tick (every 100 ms) or the next frame reads it through snapshots.
//
// All members are public, since the app_* modules, GTK's callbacks and the window tests share this
// one object; no other module knows it. The banners name the file that implements what follows.
// Unless told otherwise a field that ends in _until is a deadline on now_seconds() with 0 for none,
// an index is -1 for nothing, lengths are logical units (surface pixels divided by m_ui_scale), and
// a side is a bool that is true for the right one.

#pragma once

#include "actions.h"
#include "app_types.h"
#include "archive_ops.h"
#include "bg_task.h"
#include "copy_engine.h"
#include "dir_lister.h"
#include "drives.h"
#include "file_ops.h"
#include "i18n.h"
#include "logger.h"
#include "pane.h"
#include "pane_columns.h"
#include "text_cache.h"
#include "theme.h"

#include <cstdint>
#include <functional>
#include <gtk/gtk.h>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

class App : public AppTypes {
  public:
    // --- Life cycle, window, tick, saved state (app.cpp) --------------------------------------

    int run(int argc, char** argv);     // the whole life; 0
    void begin(int argc, char** argv);  // everything before the main loop
    void finish();                      // everything behind it; may end the process

    void parse_arguments(int argc, char** argv);
    void log_start() const;
    void load_state();
    void save_state();
    void save_state_if_changed();
    void apply_theme();
    void refresh_both();

    void build_window();
    void place_window();
    void maximize_window(int width, int height);
    void move_to_fitting_monitor(int x, int y, int width, int height);
    void center_instead_of(int x, int y, int width, int height);
    void center_on_current_monitor(int w, int h);
    void store_geometry() const;  // where the window is now, for the next start
    void watch_desktop_theme();
    void watch_signals();
    void on_delete();   // the window's close button
    void on_destroy();  // the window is gone
    void end_workers();

    void tick();
    void poll_transfer_end(bool copying);
    void poll_task_end(bool tasking);
    void poll_conflict(bool pending);
    void poll_progress_hold();
    void poll_held_message();
    bool poll_hex();     // true: there is something new to see
    bool poll_sizing();  // true: there is something new to see

    [[nodiscard]] static double now_seconds();  // the steady clock
    void request_redraw() const;                // queues a frame; never paints
    // A transfer or a task is under way: the panes are not to be touched.
    [[nodiscard]] static bool busy();
    static void cancel_work();

    Pane& pane_for(bool right) { return right ? m_right : m_left; }
    [[nodiscard]] const Pane& pane_for(bool right) const { return right ? m_right : m_left; }
    Pane& active_pane() { return pane_for(m_active_right); }
    [[nodiscard]] const Pane& active_pane() const { return pane_for(m_active_right); }
    Pane& other_pane() { return pane_for(!m_active_right); }

    void flash_status(const std::string& text);  // 3 s in the status bar
    void flash_panes();

    // --- The frame, painting primitives, hit rectangles (app_render.cpp) ----------------------

    // Paints one frame of a surface of so many pixels.
    void draw_frame(cairo_t* cr, double pixel_w, double pixel_h);
    void draw_all();
    [[nodiscard]] Layout compute_layout(double w, double h) const;
    // The whole rows that fit into a side's row area as it is painted, at least 1. Everything that
    // scrolls, pages or keeps the cursor in view goes by this.
    [[nodiscard]] int rows_in_view(bool right) const;
    [[nodiscard]] bool filter_bar_shown(bool right) const;
    // Whether work is under way as this frame shows it.
    [[nodiscard]] bool frame_busy() const { return m_frame_copy.running || m_frame_bg.running; }
    // The same, or it has ended and no tick has seen that yet: the progress band stays as it is
    // until there is a result to show in its place.
    [[nodiscard]] bool frame_shows_work() const {
        return frame_busy() || m_transfer_was_running || m_bgtask_was_running;
    }

    // The nearest edge between two pixels on each side, and at least so many pixels in either
    // direction: areas that meet join without a seam at every scale.
    [[nodiscard]] Rect whole_pixels(double x, double y, double w, double h,
                                    double at_least = 0) const;
    // The caller saves and restores the context.
    void clip_to(double x, double y, double w, double h);
    void set_color(const std::string& color, double alpha);
    void fill_rect(double x, double y, double w, double h, const std::string& color, double alpha);
    // Whole pixels, at least one in either direction.
    void fill_band(double x, double y, double w, double h, const std::string& color,
                   double alpha = 1);
    void rounded_rect(double x, double y, double w, double h, double r);  // the path alone
    void fill_rounded(double x, double y, double w, double h, double r, const std::string& color,
                      double alpha);
    void stroke_rounded(double x, double y, double w, double h, double r, const std::string& color,
                        double alpha, double line_width);
    double text_width(const std::string& text, double size, bool bold, bool mono);
    // y is the vertical centre of the line, here and below.
    void show_layout(PangoLayout* layout, double x, double y, const std::string& color,
                     double alpha);
    void draw_text(const std::string& text, double x, double y, double size,
                   const std::string& color, bool bold, bool mono, double alpha);
    void draw_text_right(const std::string& text, double right_x, double y, double size,
                         const std::string& color, bool bold, bool mono);
    // Cuts in the middle, so that a name's ending stays readable. The width painted.
    double draw_text_clipped(const std::string& text, double x, double y, double max_w, double size,
                             const std::string& color, bool bold, bool mono, double alpha = 1);
    // Several lines, wrapped; y is the top. The height they take. Measures alone without a colour.
    // In the interface's font unless another family is named.
    double wrapped_text(const std::string& text, double x, double y, double max_w, double size,
                        const std::string* color, const char* family = nullptr);
    void add_hit(double x, double y, double w, double h, Hit what, int param = 0,
                 bool right = false, const std::string& label = {});
    // Cuts the rectangles from the given one on to an area, and drops what lies outside.
    void clip_hits(size_t first, double x, double y, double w, double h);
    // The place in a text of a field, in bytes, that is nearest to x. Outside a frame.
    [[nodiscard]] size_t caret_at(const std::string& text, const PaintedField& field, double x);
    // Paints outside a frame, or beside it, on another context. The caller's scale holds there.
    void paint_on(cairo_t* cr, const std::function<void()>& paint);
    // The topmost rectangle, or null. Valid until the next frame.
    [[nodiscard]] const HitRect* hit_test(double x, double y) const;
    // The rectangle under the pointer, or null. Painters get the one of the frame before, since
    // this frame's are only being made.
    [[nodiscard]] const HitRect* hovered() const;
    [[nodiscard]] static const char* hit_name(Hit hit);

    // --- Bridge and status bar (app_bridge.cpp) -----------------------------------------------

    void draw_bridge(double x, double y, double w, double h);
    void draw_direction(double left, double right, double y);
    void draw_status_bar(double y, double w);
    double draw_status_note(double y, double w, double right_end);

    // --- Menus (app_menus.cpp) ----------------------------------------------------------------

    // One line of a menu, and how a kind of menu is laid out.
    struct MenuLine;
    struct MenuKind;
    static const MenuKind kDropDown;
    static const MenuKind kContextMenu;
    static const MenuKind kColumnMenu;

    void open_menu(int index);  // of the bar
    // The bar's menu, a pane's menu and the list of drives. False: none was open.
    bool close_menus();
    [[nodiscard]] bool menu_open() const { return m_open_menu >= 0 || m_context_menu; }
    void forget_menu_input();
    // What the active pane has selected is what it is about. The point is where its corner goes.
    void open_context_menu(double x, double y, bool right);
    void open_column_menu(double x, double y, bool right);
    void click_menu_title(int index);
    void click_menu_item(Action action);
    void click_bookmark_item(int index);
    void click_recent_item(int index);
    // With a menu open, the pointer's way along the bar opens the others.
    void slide_to_menu(const HitRect* hit);
    bool hover_menu(const HitRect* hit);  // true: something has to be painted
    bool scroll_menu(double lines);       // false: no menu is open that scrolls

    void draw_menu_bar();
    double menu_title_width(size_t index);
    void draw_open_menu();
    void add_recent_lines(std::vector<MenuLine>& lines) const;
    static void add_bookmark_lines(std::vector<MenuLine>& lines);
    void draw_context_menu();
    void draw_column_menu();
    Size menu_size(const std::vector<MenuLine>& lines, const MenuKind& kind);
    void draw_menu(const std::vector<MenuLine>& lines, const MenuKind& kind, double x, double y);
    void draw_menu_line(const MenuLine& line, const MenuKind& kind, const Rect& box, double y);
    void draw_tick(double x, double centre, double size, const std::string& color);
    void draw_check_box(double x, double y, bool checked);

    // --- Header (app_header.cpp) --------------------------------------------------------------

    void draw_header(double y, double w);
    // elapsed is in seconds, of whatever clock: the phase of what moves.
    void draw_header_progress(double y, double w, double elapsed);
    double draw_header_name(double centre);  // where it ends
    void draw_header_lanes(double x, double y, double w, double elapsed);
    void draw_header_badge(double name_end, double centre, double w);

    // --- Drive bar and list of drives (app_drives.cpp) ----------------------------------------

    void draw_drive_bar(const Pane& pane, bool right, double x, double y, double w);
    void draw_drive_button(const Pane& pane, bool right, const Rect& button);
    void draw_path_button(bool right, const Rect& button);
    void draw_drive_list(double x, double y, double w);  // of the bar at that place
    void draw_drive_row(int index, const Rect& row);
    void click_drive_picker(bool right);
    void click_drive_item(int index);
    void hover_drive(const HitRect* hit);  // null: nothing is under the pointer
    [[nodiscard]] bool drive_list_at(double x, double y) const;
    void scroll_drive_list(int rows);

    // --- Panes (app_panes.cpp) ----------------------------------------------------------------

    void draw_pane(Pane& pane, bool right, double x, double y, double w, double h);
    void keep_cursor_in_view(Pane& pane, bool right);
    // Clamps m_pane_hscroll and notes the widths of content and view.
    Columns place_pane_columns(const Pane& pane, bool right, double x, double w);
    void draw_pane_banner(bool right, double x, double y, double w);
    void draw_path_bar(const Pane& pane, bool right, double x, double y, double w);
    void draw_breadcrumb(const std::string& path, bool right, double x, double y, double w);
    void draw_path_editor(double x, double y, double w);
    void draw_path_error(double x, double y, double w);
    void draw_search_bar(const Pane& pane, bool right, double x, double y, double w);
    void draw_pane_header(const Pane& pane, bool right, const Columns& columns, double x, double y,
                          double w);
    void draw_pane_rows(const Pane& pane, bool right, const Columns& columns, double x, double y,
                        double w, double h);
    void draw_row_name(const RowList& list, int index, double y);
    void draw_row_column(const RowList& list, const PlacedColumn& column, int index, double y);
    void draw_row_back(const RowList& list, int index, double y, double w);
    void draw_rename_box(const RowList& list, double y);
    void draw_reload_flash(double x, double y, double w, double h);
    void draw_pane_hscroll(bool right, double x, double y);
    void draw_pane_vscroll(const Pane& pane, bool right, double x, double y, double w, double h);
    void draw_pane_frame(bool right, double x, double y, double w, double h);

    // --- Progress band (app_progress.cpp) -----------------------------------------------------

    void draw_progress(double y, double h);
    // Of a transfer rather than a task; to be asked while frame_shows_work().
    [[nodiscard]] bool frame_shows_transfer() const {
        return m_frame_copy.running || (m_transfer_was_running && !m_frame_bg.running);
    }
    // The done share of the work that this frame shows, or -1 while there is none to tell.
    [[nodiscard]] double frame_fraction() const;
    // Seconds, the phase of what moves: the engine's own clock, or for a task, which has none, any.
    [[nodiscard]] double frame_elapsed() const;
    double draw_progress_cancel(double y);  // where it begins
    void draw_progress_bar(double x, double y, double w);
    void draw_bar_band(double x, double y, double w);
    void draw_bar_fill(double x, double y, double w);
    void draw_transfer_numbers(double centre);
    void draw_transfer_detail(double centre, double room_end);
    void draw_transfer_file(double centre);
    void draw_task_rows(double numbers_y, double detail_y, double room_end);
    void draw_warning_pill(const std::string& text, double x, double centre, double room);
    // Ends at `right`. Where it begins.
    double draw_failures_pill(const std::string& text, double right, double centre, double h,
                              double alpha, bool listed);
    void draw_result_line(double x, double y, double h);
    void draw_result_symbol(double x, double centre, const std::string& tint);
    void draw_result_dismiss(double right, double y, double h);

    // --- Frame of the dialogues, buttons (app_overlay.cpp) ------------------------------------

    void open_overlay(Overlay overlay, const std::string& title);
    void close_overlay();
    void forget_overlay_input();
    void draw_overlay();
    void draw_overlay_inside(double x, double y, double w, double h);
    // The size that the open dialogue would like in a window of this size. Only in a frame.
    Size overlay_size(double window_w, double window_h);
    void draw_resize_grip(double right_x, double bottom_y);
    // What is as high as that and may be higher than the view, in which case it scrolls. The
    // painter gets its upper edge.
    void draw_scrolled(const Rect& view, double height,
                       const std::function<void(double top)>& paint);
    void fill_list_ground(const Rect& list);
    void draw_list_thumb(const Rect& list, int total, int first);
    // What wheel and keys move: the first row of a list, or how far down something is that has no
    // rows, in units. A line is what one press of a key moves it by.
    int& overlay_scroll();
    [[nodiscard]] int overlay_line() const;
    // One row from the right, the last button rightmost; y is its top, w the panel's width. The
    // order is that in which the buttons pick their letters, which replace those of an earlier row.
    // Where the row begins.
    double draw_buttons(double x, double y, double w, const std::vector<ButtonSpec>& buttons);
    void draw_button(double x, double y, double w, const ButtonSpec& button,
                     const Accelerator& accel);
    void draw_button_label(const char* key, const Rect& button, double centre,
                           const std::string& color, const Accelerator& accel);
    // Adds to m_overlay_accels. One element for each button.
    std::vector<Accelerator> assign_accelerators(const std::vector<ButtonSpec>& buttons);

    // --- About (app_about.cpp) ----------------------------------------------------------------

    void draw_app_logo(double x, double y, double size);
    double about_disclaimer_height(double width);  // only in a frame
    void draw_overlay_about(double x, double y, double w, double h);
    void draw_about(double x, double y, double w, double links_lower);
    // Lines in the middle of a panel, from its x and w; y is their centre.
    void draw_centred(const std::string& text, double x, double y, double w, double size,
                      const std::string& color);
    // What stands before it says what it is for.
    void draw_link(const std::string& before, const std::string& text, double x, double y, double w,
                   double size, Action action);
    void open_link(Action action);

    // --- Licences (app_licenses.cpp) ----------------------------------------------------------

    void open_licenses();
    void draw_overlay_licenses(double x, double y, double w, double h);
    void draw_components(const Rect& list);

    // --- Sandbox notice (app_sandbox.cpp) -----------------------------------------------------

    // By itself, at the start: if there is something to tell and the user wants to hear it.
    void offer_sandbox_notice();
    void open_sandbox_notice();
    void copy_connect_command();
    void draw_overlay_sandbox(double x, double y, double w, double h);
    enum class SandboxMark { Granted, Missing, Impossible };
    void draw_sandbox_row(const char* text_key, SandboxMark mark, double x, double y, double w);
    void draw_connect_command(double x, double y, double w);

    // --- Pack (app_pack.cpp) ------------------------------------------------------------------

    // For the selection. The archive goes to the active side, or to the other one.
    void open_pack(bool to_other);
    void start_pack(const std::string& name);  // without the format's extension
    // The formats whose tools are installed, from left to right in rows of that width. These two
    // only in a frame.
    std::vector<FormatChip> pack_format_layout(double width);
    int pack_format_rows(double width);
    void draw_overlay_pack(double x, double y, double w, double h);
    void draw_format_chip(const FormatChip& chip, int index, double x, double y);
    void draw_pack_side(const Rect& tile, bool right, const ButtonSpec& side,
                        const Accelerator& accel);
    void click_pack_format(const HitRect& chip);
    void show_tools_missing();

    // --- Unpack, archive view (app_archive.cpp) -----------------------------------------------

    // The full path of the selected archive that can be read here. Empty: there is none, and a
    // message says why. `what` is how the log calls the command.
    std::string readable_archive(const char* what);
    void open_unpack();
    void unpack_to(bool right);
    void open_archive_view();
    // Ends a listing that nobody looks at. True: there is something new to see.
    bool poll_listing();
    void draw_overlay_archive(double x, double y, double w, double h);
    void draw_archive_head(double x, double y, double w, const archive_ops::ListStatus& status);
    void draw_archive_rows(const Rect& list, int total);

    // --- Hex view: the file and its changes, keys (app_hex.cpp) ---------------------------------

    // Offsets are bytes from the file's beginning. A regular file however large, of which nothing
    // is read before it is asked for. False: it cannot be opened, or is something else, on which
    // this does not wait; the log says why.
    bool open_hex_view(const std::string& path);
    void close_hex_view();  // with the changes that are not saved
    // As shown, that is with the changes. False: outside the file, or it cannot be read.
    bool hex_byte_at(int64_t offset, unsigned char* out) const;
    // Beyond the file's ends nothing happens. What the file holds already is no change.
    void hex_set_byte(int64_t offset, unsigned char value);
    void hex_scroll_to_cursor();
    // For what the find field holds; each tick does a slice of it.
    void hex_start_search(int64_t from);
    bool hex_search_step();  // true while it goes on
    // Writes the changed bytes in place, and nothing else. Empty, or why it failed: then all
    // changes are kept.
    std::string hex_save();

    void view_hex();  // the selected file
    void hex_command(Action action);
    void confirm_hex_save();
    void ask_hex_close();  // in the view: what about the changes?
    // What asked may now have an answer in its place or by its letter. Pressed twice or held it is
    // none. letter: the one pressed with Alt, 0: it is a click.
    bool repeats_hex_question(Action action, char letter);
    [[nodiscard]] bool hex_asks() const { return m_hex_confirm_save || m_hex_confirm_close; }
    void set_hex_status(const std::string& text, bool is_error = false);
    // How the bytes of some rows are shown, -1 for one that cannot be read. Reads no page again
    // that could not be read before.
    std::vector<int> hex_bytes_in_view(int64_t first, int count);

    bool handle_hex_key(GdkEventKey* event);
    void handle_hex_find_key(GdkEventKey* event);  // app_fields.cpp, as is the next
    void hex_find_insert(const std::string& text);
    void find_hex_text();
    void escape_hex();
    bool move_hex_cursor(guint key, bool ctrl);  // false: no such key
    void put_hex_cursor(int64_t offset);
    void type_hex(const std::string& text);
    [[nodiscard]] static std::string typed_hex(const GdkEventKey& event);
    void take_hex_byte_back();
    void click_hex_byte(const HitRect& hit);

    // --- Hex view: painting (app_hex_paint.cpp) -------------------------------------------------

    struct HexGrid;
    void draw_overlay_hex(double x, double y, double w, double h);
    HexGrid place_hex_grid(const Rect& list);
    void draw_hex_head(const HexGrid& grid);
    void draw_hex_rows(const HexGrid& grid);
    void draw_hex_byte(const HexGrid& grid, int64_t offset, int value, double y);
    void draw_hex_cursor(const HexGrid& grid, int column, double y);
    void draw_hex_thumb(const Rect& list);
    void draw_hex_question(double x, double y, double w, double h);
    void draw_hex_tools(double x, double y, double w, double h);
    void draw_hex_find_field(const Rect& box);
    void draw_hex_status(double x, double y, double room);
    void drag_hex_scroll(double y);

    // --- Settings (app_settings.cpp) ----------------------------------------------------------

    struct SettingRow;
    void draw_overlay_settings(double x, double y, double w, double h);
    // The height of the rows that is beyond the view.
    void scroll_settings(const Rect& view, double hidden);
    // Where the control begins.
    double draw_setting(const SettingRow& row, const Rect& line, double max_w);
    void draw_setting_box(const Rect& box);
    double draw_value_button(const std::string& text, double right, double y, double max_w,
                             Action action);
    double draw_language_button(const std::string& text, double right, double y);
    double draw_stepper(const std::string& text, double max_w, double right, double y,
                        const SettingRow& row);
    double draw_switch(const SettingRow& row, bool on, double right, double y);
    void draw_reset_button(double x, double y);

    // --- Language and font pickers (app_lists.cpp) --------------------------------------------

    void draw_overlay_language(double x, double y, double w, double h);
    void draw_overlay_font(double x, double y, double w, double h);
    // The rows in view of a list that something is picked from; `current` is marked, -1 for none.
    // What draw_row paints in the colour given is the row's label.
    void draw_picker(const Rect& panel, int total, int current,
                     const std::function<std::string(int index, const Rect& row,
                                                     const std::string& color)>& draw_row);
    void draw_in_family(const std::string& family, const Rect& row, const std::string& color);
    void open_language_picker();
    void open_font_picker();
    // The row of the list; one that there is none for changes nothing. Both close the dialogue.
    void pick_language(int index);
    void pick_font(int index);
    // "auto", and then every language.
    [[nodiscard]] static std::vector<LanguageInfo> language_choices();
    // Every family that is installed, in the order of its name. Read once.
    [[nodiscard]] static const std::vector<std::string>& font_families();

    // --- Properties (app_properties.cpp) ------------------------------------------------------

    // A fact that m_properties has to show.
    struct PropertyRow;
    [[nodiscard]] int properties_rows() const;  // how many
    void open_properties();
    void read_properties(const FsEntry& entry, const std::string& dir);
    void apply_properties();  // without the dialogue: nothing
    [[nodiscard]] std::vector<PropertyRow> property_rows() const;
    [[nodiscard]] std::string property_size() const;
    void draw_overlay_properties(double x, double y, double w, double h);
    void draw_property_rows(const Rect& area);
    void draw_counting_dot(double x, double y);
    void draw_owner_fields(double x, double centre, double w);
    void draw_permissions(double x, double y, double w);
    void draw_permission_bit(int bit, double x, double y);
    void draw_recursive_box(double x, double y, double w);
    void click_permission(int bit);
    void click_owner_field(int which, double x);
    void handle_owner_key(GdkEventKey* event);
    void owner_insert(const std::string& text);

    // --- Which side (app_side_choice.cpp) -----------------------------------------------------

    // The actions belong to the tiles of the left and the right side.
    void draw_side_choice(double x, double y, double w, double h, const std::string& path,
                          const char* question_key, Action left_action, Action right_action);
    void draw_side_tile(const Rect& tile, bool right, const ButtonSpec& side,
                        const Accelerator& accel);
    void draw_overlay_bookmark_side(double x, double y, double w, double h);
    void draw_overlay_unpack_side(double x, double y, double w, double h);

    // --- Log (app_log.cpp), bookmarks (app_bookmarks.cpp) -------------------------------------

    void draw_overlay_log(double x, double y, double w, double h);
    void draw_log_tools(double x, double y);
    void draw_log_lines(const std::vector<Log::Entry>& lines, double x, const Rect& list);
    void draw_log_hthumb(const Rect& list);
    void drag_log_scroll(double x, double y);  // to the pointer, by m_log_drag
    void draw_overlay_bookmarks(double x, double y, double w, double h);
    void draw_bookmark(int index, const std::string& name, const std::string& path,
                       const Rect& row);
    // An index goes to that folder; turned over (~index) it forgets it.
    void click_bookmark(int param);

    // --- Dialogues (app_dialogs.cpp) ----------------------------------------------------------

    void draw_overlay_message(double x, double y, double w, double h);
    void draw_overlay_text_input(double x, double y, double w, double h);
    // The ending stands behind the text and cannot be edited.
    void draw_input_field(double x, double y, double w, const std::string& ending = {},
                          double margin = 6);
    void draw_overlay_confirm_delete(double x, double y, double w, double h);
    // The path without as many of its leading folders as it takes to fit, behind "…/".
    std::string path_ending(const std::string& path, double room, double size);

    // --- The transfer's dialogues (app_dialogs_transfer.cpp) ----------------------------------

    void draw_overlay_conflict(double x, double y, double w, double h);
    void draw_conflict_card(const Rect& card, const char* title_key, const std::string& tint,
                            const std::string& size, int64_t mtime);
    void draw_conflict_verdict(double x, double y, const copy_engine::ConflictRequest& ask);
    void draw_apply_to_all(double x, double centre, double w);
    // Of the transfer's failures, how many may succeed with root's rights.
    [[nodiscard]] int elevatable_failures() const;
    // What the errors dialogue has to list in this frame.
    [[nodiscard]] size_t failure_lines() const {
        return m_frame_copy.failures.size() + m_frame_bg.failures.size();
    }
    [[nodiscard]] std::string failure_line(size_t index) const;
    void draw_overlay_errors(double x, double y, double w, double h);
    // Room at the list's bottom that is not the rows'.
    void draw_failures(const Rect& list, double left_free);
    // What the user has not saved comes before any question and any message.
    [[nodiscard]] bool conflict_waits() const {
        return m_overlay == Overlay::HexView && !m_hex_edits.empty();
    }
    // The question came too short a time ago for this key or click to be meant for it.
    [[nodiscard]] bool conflict_too_new() const {
        return m_overlay == Overlay::Conflict && now_seconds() < m_conflict_deaf_until;
    }

    // --- Actions (app_actions.cpp) ------------------------------------------------------------

    void perform(Action action, int param);
    void dispatch(Action action);
    // reason may be null; it is for the log.
    bool action_enabled(Action action, std::string* reason) const;
    void show_message(const std::string& title, const std::string& text, bool is_error = false,
                      Action action = Action::None, const char* action_label = nullptr);
    void show_error(const std::string& text);
    void show_busy();
    void show_nothing();
    void activate_row(int index, bool right);
    void go_up(bool right);
    void start_transfer(bool to_right, bool move);
    bool take_unseen_end();
    void delete_selection(bool to_trash);
    // A folder of the selection that one of the panes shows has been refused, with a message.
    bool refuse_shown_folder();
    void open_terminal();
    // Commits the rename of whichever pane has one. False: the name was refused, and a message
    // says why.
    bool commit_rename();
    // The same ahead of a command. False also if the entry is not listed under its new name: the
    // command would take another one, and a message has told that there is nothing for it.
    bool commit_rename_before(Action action);
    // Whether what the command was meant for, an entry of that name on the active side, is what it
    // would work on no more, now that the side has been read again.
    [[nodiscard]] bool has_lost(Action action, const std::string& name) const;
    static void set_clipboards(const std::string& text);
    [[nodiscard]] static bool show_hidden();  // as the settings say

    void begin_rename();
    void open_text_input(Overlay overlay, const char* title_key, const std::string& text);
    void accept_overlay();
    void cancel_overlay();
    void create_entry(Overlay kind, const std::string& name);
    void select_by_pattern(const std::string& pattern);
    void go_to_path(const std::string& path);
    void ask_delete();
    // A folder that one of the panes shows and that is selected or stands below one that is; null
    // for none. Valid until the pane shows another.
    [[nodiscard]] const std::string* pane_path_inside_selection() const;
    void clone_selection();
    void make_links();
    void copy_paths();
    void refresh();
    void swap_panes();
    void go_to_trash();
    void toggle_hidden();
    void toggle_column(Action action);
    void change_settings(Action action);
    void reset_settings();
    void step_language(int step);
    void toggle_bookmark();
    void remove_bookmark();
    void open_bookmark(bool right);
    void answer_conflict(copy_engine::ConflictAction answer);
    void move_cursor_to_single_selection();

    // --- Root's rights (app_root.cpp) ---------------------------------------------------------

    // Has the helper copy what the transfer was refused. Returns when it has answered; meanwhile
    // the main loop runs, the window is veiled and takes no input.
    void retry_as_admin();
    [[nodiscard]] static bool may_succeed_as_root(const copy_engine::FailedItem& item);
    void show_retried(size_t done, size_t failed);
    void draw_veil();
    // reason may be null. It is empty where there is nothing to tell.
    [[nodiscard]] static bool can_restart_as_root(std::string* reason);
    // Asks for root's rights for a second instance with the same panes; once it is up, this one
    // closes. Returns at once.
    void restart_as_root();
    [[nodiscard]] std::vector<std::string> root_command(const std::string& program,
                                                        const std::string& cookie) const;
    struct RootRestart;
    void watch_root_start(std::shared_ptr<RootRestart> start);
    void poll_root_start();
    void end_root_start(int status);  // of the child, as waitpid() tells it
    void forget_root_start();
    // The processes of root's with a program's name.
    [[nodiscard]] static std::vector<pid_t> root_instances(const std::string& program);
    // The message about a folder that may not be read, if the side shows one.
    void warn_if_unreadable(bool right);
    void warn_no_access(const std::string& path, const std::string& error);

    // --- Keyboard (app_keys.cpp) --------------------------------------------------------------

    void handle_key(GdkEventKey* event);
    void handle_plain_key(GdkEventKey* event);  // one that the input method has left over
    void escape_work();
    bool handle_overlay_key(GdkEventKey* event);
    // False: not with Alt, or no button of the dialogue has that letter.
    bool perform_accelerator(const GdkEventKey& event);
    void scroll_overlay(guint key);
    [[nodiscard]] static bool is_return(guint key);
    // Whether the key is one of the table.
    bool handle_shortcut(guint key, guint state);
    // With Ctrl alone on a keyboard that types another alphabet, what the key is in the first of
    // its layouts that types Latin letters; else the key's own value.
    [[nodiscard]] static guint latin_key(const GdkEventKey& event);
    // The text grows while one keystroke follows the other within a second. The parent row counts
    // as an entry, and the search always begins at the top.
    void type_ahead(const std::string& text, double now);

    // --- Text fields (app_fields.cpp) ---------------------------------------------------------

    // The field's keys: true when one is consumed.
    bool handle_path_edit_key(GdkEventKey* event);
    bool handle_rename_key(GdkEventKey* event);
    bool handle_search_key(GdkEventKey* event);
    void handle_input_key(GdkEventKey* event);
    // What a key types; empty with Ctrl or Alt.
    [[nodiscard]] static std::string typed_text(const GdkEventKey& event);

    void begin_path_edit(bool right);
    void end_path_edit();
    // Goes where the text leads: a path in quotes or without, a file URI, one that begins with a
    // tilde or a name in the folder shown. The field stays open if that cannot be read.
    void commit_path_edit();
    void begin_search(bool right);  // continues the filter in force
    // Clears the filter of the open bar's side, or of the active one.
    void end_search(bool clear);
    void apply_search();

    // The field that has the keyboard.
    [[nodiscard]] FieldFocus focused_field() const;
    [[nodiscard]] static bool takes_text(Overlay overlay);
    void insert_text(TextField field, const std::string& text);
    void path_insert(const std::string& text);
    void search_insert(const std::string& text);
    void input_insert(const std::string& text);
    // The text of a field with its caret, and with what is being composed there underlined. It
    // begins at x and moves left as far as the caret needs to stay within room; where it begins
    // then is returned. The caret reaches half its height up and down from centre. Clips nothing.
    double draw_field_text(TextField field, const std::string& text, size_t caret, double x,
                           double centre, double room, double size, const std::string& color,
                           double half);

    // --- Input methods (app_input_method.cpp) -------------------------------------------------

    // Takes over the reference.
    void use_input_method(GtkIMContext* input_method);
    void release_input_method();
    // Tells the input method which field has the keyboard, if that has changed. What was being
    // composed in the one before is dropped.
    void sync_input_method();
    void place_input_method();  // where its window belongs, by the caret of the last frame
    void set_window_focus(bool focused);
    // True: the key was the input method's.
    bool input_method_takes(GdkEventKey* event);
    void handle_key_release(GdkEventKey* event);
    void end_composition();
    void input_method_commits(const std::string& text);
    void input_method_composes();
    void tell_surrounding();
    bool delete_surrounding(int offset, int count);  // characters, from the caret

    // --- Pointer (app_pointer.cpp) ------------------------------------------------------------

    void handle_click(double x, double y, int button, guint state, guint32 clicks);
    void note_press(const HitRect* hit);
    // Closes an open menu or list of drives that the click is beside. False: there is none.
    bool click_beside_menu(const HitRect* hit);
    void click_hit(const HitRect& hit, double x, double y, int button, guint state);
    void click_row(const HitRect& hit, double x, double y, int button, guint state, guint32 clicks);
    void select_row(int row, bool right, int button, guint state);
    bool click_rename_box(double x, double y);
    void click_header(const HitRect& hit);
    void click_path_segment(const HitRect& hit);
    void click_path_bar(const HitRect& hit, double x);
    void click_search_bar(const HitRect& hit);
    void click_command(Action action);
    // Makes a side the active one. A rename on the other one ends.
    void activate_side(bool right);
    // The row that a number, counted in an order that may be gone, stands for now, or -1.
    [[nodiscard]] int row_now(bool right, int row, const std::string& name,
                              const RowOrder& order) const;
    // The row of the press that is pending, or -1 for none.
    [[nodiscard]] int pressed_row() const;
    void handle_release();
    void handle_motion(double x, double y, GdkEventMotion* event = nullptr);
    void hover_over(const HitRect* hit);
    void light(const HitRect* hit);      // null: nothing is under the pointer
    void light_again();                  // after a frame
    void show_cursor(const char* name);  // by its name in CSS; null: the ordinary one
    void handle_leave();
    void handle_scroll(double x, GdkScrollDirection direction, double delta_y, guint state = 0);

    // --- Drags of thumbs, column edges and the grip of a dialogue (app_drag.cpp) --------------

    void begin_drag(const HitRect& hit, double x, double y);
    [[nodiscard]] bool dragging() const;
    bool drag_to(double x, double y);  // false: nothing is being dragged
    void end_drags();
    // The widths of a column, -1 being the name's, as they are painted.
    [[nodiscard]] double column_width_now(int column, bool right) const;
    void set_column_width(int column, double width);  // in the settings, which are not saved
    void drag_pane_hscroll(double x);
    void drag_pane_vscroll(double y);
    void drag_overlay_grip(double x, double y);

    // --- Files dragged from a pane and dropped on one (app_dnd.cpp) ----------------------------

    void accept_drops();  // once the canvas is there
    // False: no row is being pulled from its place. The event's place is in surface pixels.
    bool pull_rows(GdkEventMotion* event);
    void begin_pane_drag(GdkEventMotion* event);
    void show_drag_icon(GdkDragContext* context);
    // Owned by the caller; its device scale is the window's.
    cairo_surface_t* make_drag_icon();
    [[nodiscard]] std::vector<std::string> dragged_uris() const;
    void end_pane_drag();
    // What lies below a point, as a drop there means it. The row is that of a folder, or -1.
    struct DropPlace;
    [[nodiscard]] DropPlace drop_place(double x, double y) const;
    void drag_over(double x, double y);
    void drag_over_again();  // after a frame
    void drag_left();
    // False: nothing that could be taken. True does not mean that a transfer runs.
    bool drop_uris(const std::vector<std::string>& uris, double x, double y, bool move);
    void refuse_drop();

    // --- Self-test (app_selftest.cpp) ---------------------------------------------------------

    void run_self_test();
    bool self_test_step(const std::string& name);  // false: no such action
    void selftest_settle();
    void log_dialog_options();
    [[nodiscard]] static const char* overlay_name(Overlay overlay);

    // --- Fields: command line, constant after parse_arguments() (app.cpp) ---------------------

    std::string m_arg_left;      // absolute, or empty
    std::string m_arg_right;     // absolute, or empty
    std::string m_arg_active;    // "left" or "right"; other values change nothing
    std::string m_arg_geometry;  // "%dx%d+%d+%d"
    std::string m_arg_actions;   // the self-test's script

    // --- Fields: window (app.cpp). Null before build_window() and once the window is gone. -----

    GtkWidget* m_window = nullptr;
    GtkWidget* m_canvas = nullptr;  // the drawing area, owned by the window
    guint m_tick_id = 0;
    std::string m_invoking_user;  // who called sudo or pkexec; empty: nobody did
    bool m_quitting = false;      // a signal or the close button has asked for the end

    // --- Fields: root's rights (app_root.cpp) -------------------------------------------------

    bool m_veiled = false;                        // the helper is waited for
    std::shared_ptr<RootRestart> m_root_restart;  // null: none is under way

    // --- Fields: panes (app.cpp) --------------------------------------------------------------

    Pane m_left;
    Pane m_right;
    bool m_active_right = false;
    std::string m_saved_left;  // the state as it was last saved, to notice a change
    std::string m_saved_right;
    dir_lister::SortOrder m_saved_left_sort;
    dir_lister::SortOrder m_saved_right_sort;

    // --- Fields: what the previous tick saw (app.cpp). Set as well where work is started. -------

    bool m_transfer_was_running = false;
    bool m_bgtask_was_running = false;
    bool m_sizing_was_running = false;   // of a folder
    bool m_listing_was_running = false;  // of an archive that is looked at
    unsigned m_idle_frame = 0;           // counts ticks, for the idle redraw

    // --- Fields: progress, result, flashes (app.cpp, painted elsewhere) -----------------------

    double m_progress_hold_until = 0;
    LastResult m_result;
    std::string m_flash_text;
    double m_flash_until = 0;
    double m_reload_flash_until = 0;

    // --- Fields: look (app_render.cpp) --------------------------------------------------------

    Palette m_palette = Palette::light();
    double m_ui_scale = 1.0;  // 0.7 to 2.0, from the settings at the head of each frame

    // --- Fields: one frame (app_render.cpp). Produced by draw_frame(), read until the next. ----

    cairo_t* m_cr = nullptr;  // null outside a frame
    TextCache m_texts;
    std::vector<HitRect> m_hits;  // in painting order: later is on top
    HitRect m_frame_hover;  // a copy of what was hovered as the frame began; kind None: nothing
    Layout m_layout;
    copy_engine::Progress m_frame_copy;
    BgTask::Status m_frame_bg;
    std::vector<drives::Drive> m_frame_drives;
    bool m_drawing_overlay = false;
    bool m_drawing_menu = false;

    // --- Fields: panes, by side (app_panes.cpp) -----------------------------------------------

    int m_rows_painted[2] = {0, 0};       // rows_in_view() of the last frame; 0: none yet
    double m_pane_hscroll[2] = {0, 0};    // how far the columns are scrolled to the right
    double m_pane_content_w[2] = {0, 0};  // these four are written by each frame
    double m_pane_view_w[2] = {0, 0};
    double m_pane_htrack_x[2] = {0, 0};
    double m_pane_htrack_w[2] = {0, 0};
    double m_pane_name_w[2] = {0, 0};    // as painted, like all below
    double m_pane_vtrack_y[2] = {0, 0};  // these three only with a vertical scrollbar
    double m_pane_vtrack_h[2] = {0, 0};
    double m_pane_vthumb_h[2] = {0, 0};
    RowOrder m_painted_order[2];  // what the numbers of the rows' rectangles count on
    PaintedField m_rename_field;  // of the last rename that was painted
    PaintedField m_path_field;    // of the path editor

    // --- Fields: dialogue (app_overlay.cpp, app_actions.cpp). Live while one is open. -----------

    Overlay m_overlay = Overlay::None;
    Overlay m_logged_overlay = Overlay::None;  // the one last written to the log
    std::string m_overlay_title;
    std::string m_overlay_text;
    bool m_overlay_is_error = false;
    Action m_message_action = Action::None;        // a message's second button
    const char* m_message_action_label = nullptr;  // its catalogue key
    std::map<char, Action> m_overlay_accels;  // by upper-case letter or digit; the last frame's
    Rect m_overlay_panel;                     // of the last frame that painted one
    double m_overlay_min_w = 0;               // 0: the panel cannot be resized
    double m_overlay_min_h = 0;
    int m_overlay_resize = 0;        // whose grip is held: 1 archive view, 2 hex view; 0: none
    bool m_overlay_scrolls = false;  // set by a dialogue that scrolls as it is painted
    int m_overlay_page = 0;          // its rows in view
    int m_list_scroll = 0;           // its first row; 0 whenever a dialogue opens; -1: the end
    // The thumbs of a list, written as it is painted.
    double m_log_track_x = 0;
    double m_log_track_w = 0;
    double m_log_track_y = 0;
    double m_log_track_h = 0;
    double m_log_content_w = 0;  // of the rows in view
    double m_log_max_h = 0;      // how far they can be scrolled to the side
    double m_log_hscroll = 0;
    int m_log_max_scroll = 0;    // the first row of the last page
    int m_log_drag = 0;          // 1: the vertical thumb is held, 2: the horizontal one
    std::string m_input_buffer;  // UTF-8
    size_t m_input_caret = 0;    // bytes; on a character boundary
    bool m_conflict_apply_all = false;
    static constexpr double kConflictDeafSeconds = 0.25;
    double m_conflict_deaf_until = 0;  // keys and clicks are for what was there before
    bool m_can_elevate = false;        // these two as the errors dialogue was opened
    std::string m_why_not_elevate;     // empty: nothing to tell
    int m_settings_scroll = 0;         // logical units
    int m_settings_max_scroll = 0;
    std::string m_pending_bookmark;  // the path that a bookmark's dialogue is about; empty: none
    std::string m_pending_unpack;    // the archive that is to be unpacked; empty: none
    archive_ops::Format m_pack_format = archive_ops::Format::TarGz;  // the archive to be packed
    bool m_pack_to_other = false;      // by which of the two commands the dialogue was opened
    bool m_pack_target_right = false;  // the side it goes to
    std::string m_archive_path;        // the archive that is looked at
    std::string m_licenses_folder;     // where the texts of the licences are; empty: not here
    bool m_sandbox_copied = false;     // the command of the sandbox notice has been copied
    std::vector<HeldMessage> m_held_messages;  // until they throw nothing away

    // --- Fields: hex view (app_hex.cpp). Live while one is open; close_hex_view() resets all. ----

    int m_hex_fd = -1;  // read-only; -1: closed
    std::string m_hex_path;
    int64_t m_hex_size = 0;  // bytes, at opening
    int64_t m_hex_line = 0;  // the first row in view; a row is 16 bytes
    bool m_hex_drag = false;
    double m_hex_track_y = 0;  // these four written by each frame
    double m_hex_track_h = 0;
    int64_t m_hex_max_line = 0;                    // the largest value of m_hex_line
    int m_hex_rows = 1;                            // in view
    std::map<int64_t, unsigned char> m_hex_edits;  // by offset; changed bytes alone
    int64_t m_hex_cursor = 0;                      // an offset
    bool m_hex_in_ascii = false;                   // the cursor is in the text column
    bool m_hex_low_nibble = false;                 // which the next hex digit is
    bool m_hex_writable = false;
    bool m_hex_confirm_save = false;  // a question stands in place of the tools
    bool m_hex_confirm_close = false;
    double m_hex_asked_at = 0;    // monotonic seconds
    char m_hex_asked_by = 0;      // the letter, if it was one with Alt
    std::string m_hex_find;       // UTF-8
    size_t m_hex_find_caret = 0;  // bytes
    bool m_hex_find_focus = false;
    bool m_hex_find_as_hex = false;
    std::vector<unsigned char> m_hex_needle;
    int64_t m_hex_search_pos = 0;
    bool m_hex_searching = false;
    std::string m_hex_status;
    bool m_hex_status_is_error = false;
    std::string m_hex_found_text;  // what was last searched for, and how it was meant
    bool m_hex_found_as_hex = false;
    std::set<int64_t> m_hex_bad_pages;  // offsets of those that could not be read

    // --- Fields: properties (app_properties.cpp). Live while the dialogue is open. --------------

    file_ops::Properties m_properties;
    uint32_t m_perm_edit = 0;       // the low twelve mode bits, as edited
    bool m_perm_recursive = false;  // everything inside as well
    bool m_perm_editable = false;   // false for a link that leads nowhere
    bool m_owner_editable = false;  // root's alone
    std::string m_owner_text[2];    // user and group, as are the next three; UTF-8
    size_t m_owner_caret[2] = {0, 0};
    PaintedField m_owner_field[2];
    int m_owner_focus = -1;  // 0 or 1: the one that has the keyboard

    // --- Fields: keyboard (app_keys.cpp) ------------------------------------------------------

    std::string m_typeahead;      // UTF-8
    double m_typeahead_time = 0;  // of its last keystroke, on now_seconds()

    // --- Fields: text fields (app_fields.cpp) -------------------------------------------------

    int m_search_pane = -1;  // 0 or 1: whose filter bar is open
    std::string m_search_buffer;
    size_t m_search_caret = 0;  // bytes, as is the next caret
    int m_path_edit = -1;       // 0 or 1: whose path is being edited
    std::string m_path_buffer;
    size_t m_path_caret = 0;
    std::string m_path_error;  // shown below the path bar; empty: none

    // --- Fields: input method (app_input_method.cpp). Null without a window. -------------------

    GtkIMContext* m_input_method = nullptr;
    FieldFocus m_composed_field;  // the one that the input method was last told of
    bool m_window_focused = false;
    bool m_input_method_focused = false;
    std::string m_preedit;       // what is being composed in that field; UTF-8
    size_t m_preedit_caret = 0;  // bytes
    Rect m_caret_rect;           // of this frame; no width: none
    Rect m_told_caret_rect;      // surface pixels

    // --- Fields: menus (app_menus.cpp). close_menus() resets the first four. -------------------

    int m_open_menu = -1;          // an index of the menu bar
    bool m_context_menu = false;   // the menu of a pane
    bool m_column_menu = false;    // which is that of its columns
    int m_open_drive_picker = -1;  // 0 or 1: whose list of drives is open
    int m_menu_hover_item = -1;    // the Action of the item under the pointer
    double m_menu_scroll = 0;      // how far down a menu that is taller than the window is
    bool m_menu_scrolls = false;   // whether the last one painted is
    std::vector<std::string> m_menu_recent;  // as they were when their menu was opened
    double m_context_x = 0;                  // where it was asked for
    double m_context_y = 0;
    bool m_context_right = false;  // the pane it is about

    // --- Fields: list of drives (app_drives.cpp). Live while it is open. ------------------------

    Rect m_drive_list;       // of the last frame that painted it
    int m_drive_scroll = 0;  // its first row
    int m_drive_hover = -1;  // the row under the pointer

    // --- Fields: pointer (app_pointer.cpp) ----------------------------------------------------

    int m_list_hover = -1;  // the row of a dialogue's list under the pointer
    int m_hover = -1;  // an index into m_hits, set by motion and leave; hovered() checks its bounds
    double m_mouse_x = 0;
    double m_mouse_y = 0;
    const char* m_cursor_name = nullptr;  // null: the ordinary cursor; has static lifetime
    bool m_press_pending = false;         // a press on a row, until the release
    bool m_press_defer_select = false;    // the release reduces the selection to that row
    double m_press_x = 0;
    double m_press_y = 0;
    int m_press_row = -1;  // pressed_row() knows whether it still counts
    bool m_press_right = false;
    std::string m_press_name;
    RowOrder m_press_order;
    EntryName m_last_press;         // on which row; none: elsewhere
    EntryName m_press_before_last;  // a double click is two presses on one entry

    // --- Fields: drags (app_drag.cpp). Until the release of any button. -------------------------

    int m_col_drag = kNoColumn;      // the column whose edge is held
    double m_col_drag_x = 0;         // where its left edge was
    int m_pane_hdrag = -1;           // 0 or 1: whose horizontal scrollbar is held
    bool m_dragging_scroll = false;  // a vertical thumb
    bool m_drag_scroll_right = false;
    double m_drag_scroll_offset = 0;  // from the thumb's way down its track to the pointer

    // --- Fields: drag and drop of files (app_dnd.cpp) -----------------------------------------

    bool m_drag_active = false;  // files are dragged over the window
    bool m_drag_inside = false;  // over a pane of it
    bool m_drag_target_right = false;
    int m_drag_row = -1;   // the folder's row under them
    double m_drag_x = -1;  // where they are; below 0: unknown
    double m_drag_y = -1;
    bool m_drag_from_pane = false;          // the drag began here; until its end
    std::vector<std::string> m_drag_paths;  // what it carries
};
