#include "menu_model.h"

#include "actions.h"
#include "archive_ops.h"
#include "file_ops.h"
#include "paths.h"

namespace menu_model {

namespace {

constexpr Item item(Action action, const char* label_key, const char* shortcut = nullptr) {
    return {static_cast<int>(action), label_key, shortcut, false, false};
}

constexpr Item check(Action action, const char* label_key, const char* shortcut = nullptr) {
    return {static_cast<int>(action), label_key, shortcut, false, true};
}

constexpr Item kSeparator = {0, nullptr, nullptr, true, false};

// --- Items of several menus -------------------------------------------------------------------

constexpr Item kNewFolder = item(Action::NewFolder, "action.new_folder", "F7");
constexpr Item kNewFile = item(Action::NewFile, "action.new_file");
constexpr Item kRename = item(Action::Rename, "action.rename", "F2");
constexpr Item kClone = item(Action::Clone, "action.clone");
constexpr Item kMakeLink = item(Action::MakeLink, "action.make_link");
constexpr Item kPack = item(Action::Pack, "action.pack");
constexpr Item kUnpack = item(Action::Unpack, "action.unpack");
constexpr Item kViewArchive = item(Action::ViewArchive, "action.view_archive");
constexpr Item kViewHex = item(Action::ViewHex, "action.view_hex");
constexpr Item kOpenTerminal = item(Action::OpenTerminal, "action.open_terminal");
constexpr Item kProperties = item(Action::Properties, "action.properties", "Alt+Return");
constexpr Item kDelete = item(Action::Delete, "action.delete", "Del");
constexpr Item kCopyToOther = item(Action::CopyToOther, "action.copy_to_other", "F5");
constexpr Item kMoveToOther = item(Action::MoveToOther, "action.move_to_other", "F6");
constexpr Item kSelectAll = item(Action::SelectAll, "action.select_all", "Ctrl+A");
constexpr Item kSelectNone = item(Action::SelectNone, "action.select_none");
constexpr Item kInvertSelection = item(Action::InvertSelection, "action.invert_selection", "*");
constexpr Item kSearchPane = item(Action::SearchPane, "action.search", "Ctrl+F");
constexpr Item kCopyPath = item(Action::CopyPath, "action.copy_path");
constexpr Item kRefresh = item(Action::Refresh, "action.refresh", "Ctrl+R");

// --- What this machine can do -----------------------------------------------------------------

// By the programs that are installed.
struct Support {
    bool terminal = false;
    bool packing = false;
    bool sandbox = false;

    bool operator==(const Support&) const = default;
};

Support support() {
    // Inside a sandbox the entry stays and its dialogue tells why there is no archiver.
    return {file_ops::terminal_program() != nullptr,
            !archive_ops::available_formats().empty() || running_in_snap(), running_in_snap()};
}

bool action_supported(Action action, const Support& support) {
    if (action == Action::OpenTerminal)
        return support.terminal;
    if (action == Action::Pack || action == Action::PackToOther)
        return support.packing;
    if (action == Action::SandboxInfo)
        return support.sandbox;
    return true;
}

// Separators stay, be they next to each other.
void drop_unsupported(std::vector<Item>& items, const Support& support) {
    std::erase_if(items, [&support](const Item& entry) {
        return !entry.separator && !action_supported(static_cast<Action>(entry.action), support);
    });
}

std::vector<Item> view_items() {
    std::vector<Item> items = {
        check(Action::ToggleHidden, "action.show_hidden", "Ctrl+H"),
        kSeparator,
    };
    items.insert(items.end(), columns().begin(), columns().end());
    items.insert(items.end(),
                 {kSeparator, kRefresh, item(Action::SwapPanes, "action.swap_panes", "Ctrl+U"),
                  item(Action::MirrorPane, "action.mirror_pane")});
    return items;
}

std::vector<Menu> make_bar() {
    return {
        {"menu.file",
         {kNewFolder, kNewFile, kSeparator, kRename, kClone, kMakeLink, kSeparator, kPack, kUnpack,
          kViewArchive, kSeparator, kViewHex, kOpenTerminal, kSeparator, kProperties, kDelete,
          kSeparator, item(Action::Quit, "action.quit", "Ctrl+Q")}},
        {"menu.edit",
         {kCopyToOther, kMoveToOther, kSeparator, kSelectAll, kSelectNone, kInvertSelection,
          item(Action::SelectPattern, "action.select_pattern", "+"), kSeparator, kSearchPane,
          kSeparator, kCopyPath}},
        {"menu.view", view_items()},
        {"menu.go",
         {item(Action::GoUp, "action.go_up", "Backspace"),
          item(Action::GoBack, "action.go_back", "Alt+Left"),
          item(Action::GoForward, "action.go_forward", "Alt+Right"), kSeparator,
          item(Action::GoHome, "action.go_home", "Ctrl+Home"), item(Action::GoToTrash, "nav.trash"),
          item(Action::GoToPath, "action.go_to_path", "Ctrl+L")}},
        {"menu.bookmarks",
         {item(Action::BookmarkAdd, "action.bookmark_add", "Ctrl+D"),
          item(Action::BookmarkManage, "action.bookmark_manage")}},
        {"menu.tools",
         {item(Action::LogWindow, "action.log", "Ctrl+G"), kSeparator,
          item(Action::RestartAsRoot, "action.restart_root"), kSeparator,
          item(Action::SettingsWindow, "action.settings", "Ctrl+,")}},
        {"menu.help",
         {item(Action::SandboxInfo, "action.sandbox_info"),
          item(Action::Licenses, "action.licenses"), kSeparator,
          item(Action::About, "action.about")}},
    };
}

}  // namespace

const std::vector<Menu>& bar() {
    static std::vector<Menu> menus;
    static Support made_for;
    const Support present = support();
    if (menus.empty() || present != made_for) {
        menus = make_bar();
        for (Menu& menu : menus)
            drop_unsupported(menu.items, present);
        made_for = present;
    }
    return menus;
}

const std::vector<Item>& columns() {
    static const std::vector<Item> items = {
        check(Action::ToggleColSize, "col.size"),
        check(Action::ToggleColType, "col.type"),
        check(Action::ToggleColModified, "col.modified"),
        check(Action::ToggleColCreated, "col.created"),
        check(Action::ToggleColPermissions, "col.permissions"),
        check(Action::ToggleColOwner, "col.owner"),
        check(Action::ToggleColGroup, "col.group"),
    };
    return items;
}

std::vector<Item> context_menu(const ContextInfo& info) {
    std::vector<Item> items;
    const auto add = [&items](std::initializer_list<Item> more) {
        items.insert(items.end(), more);
    };
    const bool single = info.selection_count == 1;
    if (info.has_selection) {
        if (single && !info.is_dir)
            add({item(Action::OpenWith, "action.open")});
        add({kCopyToOther, kMoveToOther, kSeparator});
        if (single)
            add({kRename});
        add({kClone, kMakeLink, kSeparator, kPack});
        if (single && info.is_archive)
            add({kUnpack, kViewArchive});
        add({kSeparator});
        if (single && !info.is_dir)
            add({kViewHex});
        add({kCopyPath, kProperties, kSeparator, kSelectAll, kSelectNone, kInvertSelection,
             kSeparator, kDelete, kSeparator});
    }
    add({kSearchPane, kNewFolder, kNewFile, kOpenTerminal, kRefresh});
    if (!info.has_selection)
        add({kSeparator, kSelectAll});
    drop_unsupported(items, support());
    return items;
}

}  // namespace menu_model
