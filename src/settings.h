// The user's preferences and the small state that survives a run: one plain structure, read once at
// the start from "settings.json" and written whole whenever it has changed. Interface thread only;
// no lock. No failure is ever reported: a missing or unreadable file means the defaults, a failed
// save leaves the old file.
//
// The file has the form of JSON, but neither side is a JSON implementation: the writer prints a
// fixed list of lines, and the reader searches the text for each key. The reader does not undo what
// the writer escapes, so that a folder whose name holds a quote or a backslash is not remembered.

#pragma once

#include "copy_engine.h"
#include "dir_lister.h"

#include <cstdint>
#include <optional>
#include <string>

// The columns beside the name, which is always shown.
enum class ColumnId : int32_t {
    Size = 0,
    Type = 1,
    Modified = 2,
    Created = 3,
    Permissions = 4,
    Owner = 5,
    Group = 6,
};

struct Settings {
    std::string language = "auto";  // or a language code
    std::string theme = "light";    // "auto", "light" or "dark"
    int thread_count = 0;           // 0 to 16; 0: automatic
    bool show_hidden = true;
    copy_engine::ConflictAction default_conflict = copy_engine::ConflictAction::Ask;
    bool confirm_delete = true;
    bool delete_to_trash = true;

    std::string left_path;  // empty: none remembered
    std::string right_path;
    dir_lister::SortOrder left_sort;
    dir_lister::SortOrder right_sort;

    bool show_size = true;
    bool show_type = false;
    bool show_modified = true;
    bool show_created = false;
    bool show_permissions = false;
    bool show_owner = false;
    bool show_group = false;

    std::string font_family;                // at most 120 bytes; empty: the system's
    int font_scale = 100;                   // per cent, 70 to 200; scales the whole interface
    std::string archive_format = "tar.gz";  // archive_ops::label_for() of a format

    int archive_view_w = 0;  // logical units, 201 to 19999; 0: the dialogue's own size
    int archive_view_h = 0;
    int hex_view_w = 0;
    int hex_view_h = 0;
    bool sandbox_notice_hidden = false;

    int col_w_name = 0;  // logical units, 40 to 900; 0: the column's own width
    int col_w_size = 0;
    int col_w_type = 0;
    int col_w_modified = 0;
    int col_w_created = 0;
    int col_w_permissions = 0;
    int col_w_owner = 0;
    int col_w_group = 0;
};

class SettingsStore {
  public:
    static SettingsStore& instance();

    [[nodiscard]] const Settings& get() const { return m_settings; }
    [[nodiscard]] Settings& mutable_get() { return m_settings; }

    // Reads the file over the current values. A missing key keeps the present value of most
    // fields; folders, sort orders and sizes go back to their defaults.
    void load();
    void save() const;

  private:
    SettingsStore() = default;
    [[nodiscard]] std::string path() const;

    Settings m_settings;
};

[[nodiscard]] bool column_enabled(const Settings& settings, ColumnId column);
void set_column_enabled(Settings& settings, ColumnId column, bool enabled);
// The column that an Action value toggles.
[[nodiscard]] std::optional<ColumnId> column_for_action(int action);
