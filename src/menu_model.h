// What the menus hold: the menu bar, the list of columns and the menu of a pane, as plain tables.
// An item is an action and nothing more; painting, and whether an action is possible just now, are
// for others. Items that this machine has no program for are left out. Interface thread only.

#pragma once

#include <vector>

namespace menu_model {

struct Item {
    int action = 0;                   // an Action; 0 for a separator
    const char* label_key = nullptr;  // of the catalogue
    const char* shortcut = nullptr;   // as it is shown; null: none
    bool separator = false;
    bool checkable = false;  // shows a setting by a tick
};

struct Menu {
    const char* title_key = nullptr;
    std::vector<Item> items;
};

// The two menus of the bar whose lists go on with what the user has visited and marked.
inline constexpr int kGoMenu = 3;
inline constexpr int kBookmarksMenu = 4;

// What the menu of a pane is about.
struct ContextInfo {
    bool has_selection = false;
    int selection_count = 0;
    bool is_dir = false;  // this one and the next two: the first of them
    bool is_archive = false;
    bool is_link = false;
    bool writable = true;
};

// Made once, and anew when the answer comes in which tools there are. Valid until the next call.
[[nodiscard]] const std::vector<Menu>& bar();
// What shows and hides each column.
[[nodiscard]] const std::vector<Item>& columns();
[[nodiscard]] std::vector<Item> context_menu(const ContextInfo& info);

}  // namespace menu_model
