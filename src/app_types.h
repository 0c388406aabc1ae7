// The types that App's modules and its tests name as its own (App::Hit, App::Overlay and so on):
// what a frame records, which dialogues there are, what a painter hands to the next. They lie apart
// from the class for their length alone; app.h tells of threads and units.

#pragma once

#include "actions.h"
#include "archive_ops.h"
#include "pane.h"
#include "pane_columns.h"

#include <cstdint>
#include <string>

struct AppTypes {
    // What a rectangle of the last frame means. hit_name() has a row for each.
    enum class Hit {
        None,
        MenuTitle,
        MenuItem,
        PaneRow,
        PaneBanner,
        PaneHeader,
        PaneHeaderMenu,
        PaneBackground,
        DrivePicker,
        DriveItem,
        PathSegment,
        PathBar,
        PathEdit,
        ResultDismiss,
        LogVThumb,
        LogHThumb,
        SearchBar,
        SearchClear,
        BridgeCopy,
        BridgeMove,
        BridgePack,
        BridgeRefresh,
        BridgeNewFolder,
        BridgeDelete,
        BridgeSearch,
        BridgeHex,
        BridgeTerminal,
        BridgeTrash,
        HexThumb,
        HexByte,
        HexFindField,
        OverlayResize,
        ColumnResize,
        PaneHScroll,
        ScrollThumb,
        Overlay,
        PackFormat,
        ProgressCancel,
        ErrorBanner,
        ListItem,
        BookmarkItem,
        RecentItem,
        PermBit,
        OwnerField,
    };

    struct HitRect {
        double x = 0;
        double y = 0;
        double w = 0;
        double h = 0;
        Hit what = Hit::None;
        int param = 0;  // by kind: an index, or an Action
        bool right = false;
        std::string label;  // the visible text, for the self-test's log; of a row its entry's name
        bool in_overlay = false;
        bool in_menu = false;
    };

    // Where the bands of the window lie. Recomputed for each frame.
    struct Layout {
        double width = 0;
        double height = 0;
        double menu_h = 30;
        double header_y = 30;
        double header_h = 64;
        double progress_y = 94;
        double progress_h = 0;
        double pane_y = 94;
        double status_y = 0;
        double pane_h = 0;
        double bridge_w = 84;
        double left_x = 0;
        double left_w = 0;
        double bridge_x = 0;
        double right_x = 0;
        double right_w = 0;
        double row_h = 24;
        int visible_rows = 1;

        // The bands of a pane around its rows: from the top, and the last one at the bottom. The
        // filter bar is there only while it is open or a filter is in force.
        static constexpr double banner_h = 28;
        static constexpr double drive_h = 34;
        static constexpr double path_h = 26;
        static constexpr double search_h = 28;
        static constexpr double head_h = 26;
        static constexpr double hscroll_h = 18;
        static constexpr double status_h = 24;
    };

    // The dialogues, of which at most one is open.
    enum class Overlay {
        None,
        About,
        Settings,
        Conflict,
        NewFolder,
        NewFile,
        ConfirmDelete,
        Pack,
        Properties,
        Errors,
        SelectPattern,
        GoToPath,
        Message,
        LanguagePicker,
        LogView,
        Bookmarks,
        FontPicker,
        BookmarkSide,
        UnpackSide,
        ArchiveView,
        HexView,
        Sandbox,
        Licenses,
    };

    // The outcome of the last transfer or task, as the result line shows it.
    struct LastResult {
        bool valid = false;
        std::string title;
        int64_t files = 0;
        int64_t bytes = 0;
        double seconds = 0;
        size_t failures = 0;
        bool cancelled = false;
        std::string detail;
        bool disk_full = false;
        bool listed = true;  // the errors dialogue tells of each failure
    };

    // One choice of a dialogue.
    struct ButtonSpec {
        const char* label = "";  // a catalogue key
        Action action = Action::None;
        bool primary = false;
        bool danger = false;
    };

    // What takes a button together with Alt: a letter of its label, or a digit.
    struct Accelerator {
        char key = 0;                   // upper case; 0: none
        size_t at = std::string::npos;  // the letter's place in the label, in bytes
    };

    // A format of the pack dialogue, from the upper left corner of them all.
    struct FormatChip {
        static constexpr double row_h = 32;

        archive_ops::Format format;
        std::string label;
        double x = 0;
        double y = 0;
        double w = 0;
    };

    // What all rows of a list share while it is painted.
    struct RowList {
        const Pane& pane;
        bool right;
        const Columns& columns;
        const char* date_format;  // looked up once, like the rename's row
        int renamed;              // -1: none
        double x;
        double w;  // without the vertical scrollbar
    };

    // What the number of a row counts on: one order of the entries, during one stay in a folder.
    // See Pane::generation() and Pane::visit().
    struct RowOrder {
        uint64_t generation = 0;
        uint64_t visit = 0;
    };

    // An entry by its name, for as long as its pane stays in the folder. Empty: no entry.
    struct EntryName {
        uint64_t visit = 0;
        std::string name;

        bool operator==(const EntryName&) const = default;
    };

    // Where typed text goes.
    enum class TextField { None, Path, Rename, Search, Input, Owner, HexFind };

    // One field among those of its kind: of a side, or of a dialogue.
    struct FieldFocus {
        TextField field = TextField::None;
        int which = 0;

        bool operator==(const FieldFocus&) const = default;
    };

    struct Size {
        double w = 0;
        double h = 0;
    };

    struct Rect {
        double x = 0;
        double y = 0;
        double w = 0;
        double h = 0;

        bool operator==(const Rect&) const = default;
    };

    // What show_message() is to show.
    struct HeldMessage {
        std::string title;
        std::string text;
        bool is_error = false;
        Action action = Action::None;
        const char* action_label = nullptr;  // has static lifetime
    };

    // Where a text field was painted, for a click to find its place in the text.
    struct PaintedField {
        Rect box;
        double text_x = 0;  // where its text begins, which may be left of the box
        double text_size = 0;
    };

    static constexpr int kNameColumn = -1;  // beside the numbers of ColumnId
    static constexpr int kNoColumn = -2;
};
