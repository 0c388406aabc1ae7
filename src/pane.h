// The state of one file list: its folder, entries, sort, cursor, selection, filter, history and the
// rename in progress. It paints nothing and knows no settings: whether hidden files are listed
// comes with each call that rereads the folder.
//
// Interface thread alone; rereading is synchronous. Background work gets paths by value, through
// action_paths(). No call throws for what the file system says: a folder that cannot be read is an
// empty list with an error() text.

#pragma once

#include "dir_lister.h"

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

class Pane {
  public:
    enum class Move { Up, Down, PageUp, PageDown, First, Last };

    // The user's width of the name column; 0: none chosen. Kept here for the painter and the
    // header drag, of no meaning to the pane.
    float name_width = 0;

    // --- Navigation. Each call reads the folder. ------------------------------------------------

    // Adds to the history, unless it is the folder already current, and drops what lay ahead. The
    // filter and a name from remember_cursor_name() live on. An empty path does nothing.
    void navigate_to(std::string path, bool show_hidden);
    // Keeps the cursor and the selection by name, and the scroll position and a rename by index.
    void reload(bool show_hidden);
    // Puts the cursor on the folder just left.
    void go_up(bool show_hidden);
    // These two leave the history as it is and start on the first row. A rename goes on, but has no
    // target outside its folder.
    void go_back(bool show_hidden);
    void go_forward(bool show_hidden);
    [[nodiscard]] bool can_go_back() const;
    [[nodiscard]] bool can_go_forward() const;
    // The entry that gets the cursor at the next reload, once.
    void remember_cursor_name(std::string name);

    // --- State ----------------------------------------------------------------------------------

    [[nodiscard]] const std::string& path() const { return m_path; }
    [[nodiscard]] const std::string& error() const { return m_listing.error; }
    [[nodiscard]] const std::vector<FsEntry>& entries() const { return m_listing.entries; }
    [[nodiscard]] const dir_lister::Listing& listing() const { return m_listing; }
    [[nodiscard]] int index_of(const std::string& name) const;  // -1: not listed
    // A number of this order of these entries, which no other one of any pane has: a row counted
    // under another generation may hold another entry.
    [[nodiscard]] uint64_t generation() const { return m_generation; }
    // The same of a stay in a folder. It goes on over reloading, sorting and filtering.
    [[nodiscard]] uint64_t visit() const { return m_visit; }
    [[nodiscard]] int cursor() const { return m_cursor; }
    [[nodiscard]] int scroll() const { return m_scroll; }
    [[nodiscard]] const std::string& filter() const { return m_filter; }
    [[nodiscard]] int unfiltered_count() const { return m_unfiltered_count; }
    [[nodiscard]] const dir_lister::SortOrder& sort_order() const { return m_sort; }
    [[nodiscard]] bool renaming() const { return m_rename_index >= 0; }
    [[nodiscard]] int rename_index() const { return m_rename_index; }
    [[nodiscard]] const std::string& rename_buffer() const { return m_rename_buffer; }
    [[nodiscard]] size_t rename_caret() const { return m_rename_caret; }
    [[nodiscard]] bool is_selected(int index) const { return m_selected.contains(index); }
    [[nodiscard]] bool has_selection() const { return !m_selected.empty(); }

    // --- Cursor and selection. The parent row can hold the cursor but is never selected. --------

    void set_cursor(int index, bool select_only_this);
    // Without extend the row arrived at becomes the selection.
    void move_cursor(Move move, bool extend, int page_rows);
    void toggle_selection(int index);
    // Selects from the anchor to index. The anchor stays, so that going on turns about it.
    void extend_selection_to(int index);
    void select_all();
    void clear_selection();
    void invert_selection();
    // Adds the names that match (fnmatch, with regard to case) or takes them away. Returns how many
    // matched, changed or not.
    int select_pattern(const std::string& pattern, bool deselect);

    // --- What an action works on: the selection, or without one the cursor row. -----------------

    // Valid until the next call that reads, sorts or filters.
    [[nodiscard]] std::vector<const FsEntry*> action_entries() const;
    [[nodiscard]] std::vector<std::string> action_paths() const;
    [[nodiscard]] std::vector<std::string> selected_paths() const;  // the selection alone
    [[nodiscard]] int selected_count() const;                       // of all these
    [[nodiscard]] int64_t selected_bytes() const;                   // folders add nothing

    // --- Scrolling, in rows. visible_rows is how many whole rows are in view. -------------------

    void set_scroll(int rows, int visible_rows);
    void scroll_by(int rows, int visible_rows);
    void ensure_cursor_visible(int visible_rows);

    // --- Filter and sort ------------------------------------------------------------------------

    // A pattern when it holds * or ?, else a part of the name; either without regard to ASCII case.
    void set_filter(const std::string& text, bool show_hidden);
    void set_sort_order(const dir_lister::SortOrder& order);  // does not read the disk
    void toggle_sort_column(dir_lister::SortKey key);

    // --- Rename. The text being edited; the commit is the application's. ------------------------

    void begin_rename();
    void cancel_rename();
    // The row that now holds the entry being renamed, which a reload or a sort may have moved away
    // from rename_index(). -1: it is not listed, or the pane shows another folder.
    [[nodiscard]] int rename_target() const;
    void rename_select_stem();  // the caret goes in front of the extension
    // These four return whether there is a rename, that is whether the key was theirs; an empty
    // text is nobody's. Text with a slash is swallowed.
    bool rename_insert(const std::string& text);
    bool rename_backspace();
    bool rename_delete();
    bool rename_move_caret(int delta);  // one character, by the sign of delta
    void rename_set_caret(size_t position);

  private:
    // Puts the cursor on m_wanted_name, if it is listed, and forgets the name.
    void apply_sort_and_restore_cursor();
    void apply_filter();
    void clamp_cursor();

    void show_history_entry(int position, bool show_hidden);
    [[nodiscard]] int row_count() const { return static_cast<int>(m_listing.entries.size()); }
    [[nodiscard]] bool in_range(int index) const { return index >= 0 && index < row_count(); }
    [[nodiscard]] bool is_ordinary(int index) const;  // in range, and not the parent row
    [[nodiscard]] int clamped(int64_t index) const;   // to the rows; the list is not empty
    void select_only(int index);

    std::vector<std::string> selected_names() const;
    void select_names(const std::vector<std::string>& names);

    std::string m_path;
    dir_lister::Listing m_listing;  // sorted and filtered; totals are those of the kept rows
    dir_lister::SortOrder m_sort;

    uint64_t m_generation = 0;  // these two are 0 before the first navigation
    uint64_t m_visit = 0;

    // Rows, as indices into m_listing.entries. Whatever replaces or reorders the entries takes them
    // over by name.
    int m_cursor = 0;
    int m_anchor = 0;          // where a range selection starts
    std::set<int> m_selected;  // never the parent row
    int m_scroll = 0;          // the first visible row

    // Rename. begin_rename() sets all of it, cancel_rename() resets it.
    int m_rename_index = -1;  // -1: no rename
    std::string m_rename_buffer;
    size_t m_rename_caret = 0;  // bytes; on a character boundary
    std::string m_rename_name;  // what the entry was called at the start
    std::string m_rename_path;  // the folder it was in

    std::vector<std::string> m_history;
    int m_history_pos = -1;      // -1: before the first navigation
    std::string m_wanted_name;   // gets the cursor at the next reload; empty: none
    std::string m_filter;        // empty: none
    int m_unfiltered_count = 0;  // entries before the filter, parent row included
};
