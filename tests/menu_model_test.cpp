// The lists of the menus, item by item, on machines with and without the tools.

#include "menu_model.h"

#include "actions.h"
#include "fresh_process.h"
#include "i18n.h"
#include "test_env.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using menu_model::ContextInfo;
using menu_model::Item;

// "Action=label key" and, behind "|", the shortcut; "+" for what has a tick; "---".
std::string text_of(const Item& item) {
    if (item.separator)
        return item.action == 0 && !item.label_key && !item.shortcut ? "---" : "bad separator";
    return std::string(item.checkable ? "+" : "") + action_name(static_cast<Action>(item.action)) +
           "=" + item.label_key + (item.shortcut ? std::string("|") + item.shortcut : "");
}

std::string text_of(const std::vector<Item>& items) {
    std::string text;
    for (const Item& item : items)
        text += text_of(item) + "\n";
    return text;
}

std::string names_of(const std::vector<Item>& items) {
    std::string text;
    for (const Item& item : items)
        text += (text.empty() ? "" : " ") +
                std::string(item.separator ? "-" : action_name(static_cast<Action>(item.action)));
    return text;
}

bool holds(const std::vector<Item>& items, Action action) {
    for (const Item& item : items)
        if (item.action == static_cast<int>(action))
            return true;
    return false;
}

// What body answers on a machine that has these programs and no others. The tools are asked once in
// a process, so this one never asks.
std::string with_programs(const std::vector<std::string>& programs,
                          const std::function<std::string()>& body, bool snap = false) {
    const test_env::TempDir bin;
    for (const std::string& name : programs)
        test_env::write_file(bin / name, "#!/bin/sh\n", 0755);
    return test_env::answer_of_child([&] {
        setenv("PATH", bin.path().c_str(), 1);
        unsetenv("TERMINAL");
        for (const char* name : {"SNAP", "SNAP_NAME"})
            (void)(snap ? setenv(name, "x", 1) : unsetenv(name));
        return body();
    });
}

const std::vector<std::string> kAll = {"tar", "xterm"};

// Of a menu of the bar.
std::string menu_text(size_t index, bool snap = false) {
    return with_programs(
        kAll, [index] { return text_of(menu_model::bar()[index].items); }, snap);
}

ContextInfo one(bool is_dir, bool is_archive) {
    ContextInfo info;
    info.has_selection = true;
    info.selection_count = 1;
    info.is_dir = is_dir;
    info.is_archive = is_archive;
    return info;
}

// --- The bar ----------------------------------------------------------------------------------

TEST(MenuModel, the_bar_has_seven_menus_in_their_order) {
    EXPECT_EQ(with_programs(kAll,
                            [] {
                                I18n::instance().set_language("en");
                                std::string text;
                                for (const menu_model::Menu& menu : menu_model::bar())
                                    text += std::string(menu.title_key) + "=" + tr(menu.title_key) +
                                            " ";
                                return text;
                            }),
              "menu.file=File menu.edit=Edit menu.view=View menu.go=Go menu.bookmarks=Bookmarks "
              "menu.tools=Tools menu.help=Help ");
    EXPECT_EQ(with_programs(kAll,
                            [] {
                                return std::string(
                                           menu_model::bar()[menu_model::kGoMenu].title_key) +
                                       menu_model::bar()[menu_model::kBookmarksMenu].title_key;
                            }),
              "menu.gomenu.bookmarks");
}

TEST(MenuModel, each_menu_holds_what_it_should) {
    EXPECT_EQ(menu_text(0), "NewFolder=action.new_folder|F7\n"
                            "NewFile=action.new_file\n"
                            "---\n"
                            "Rename=action.rename|F2\n"
                            "Clone=action.clone\n"
                            "MakeLink=action.make_link\n"
                            "---\n"
                            "Pack=action.pack\n"
                            "Unpack=action.unpack\n"
                            "ViewArchive=action.view_archive\n"
                            "---\n"
                            "ViewHex=action.view_hex\n"
                            "OpenTerminal=action.open_terminal\n"
                            "---\n"
                            "Properties=action.properties|Alt+Return\n"
                            "Delete=action.delete|Del\n"
                            "---\n"
                            "Quit=action.quit|Ctrl+Q\n");
    EXPECT_EQ(menu_text(1), "CopyToOther=action.copy_to_other|F5\n"
                            "MoveToOther=action.move_to_other|F6\n"
                            "---\n"
                            "SelectAll=action.select_all|Ctrl+A\n"
                            "SelectNone=action.select_none\n"
                            "InvertSelection=action.invert_selection|*\n"
                            "SelectPattern=action.select_pattern|+\n"
                            "---\n"
                            "SearchPane=action.search|Ctrl+F\n"
                            "---\n"
                            "CopyPath=action.copy_path\n");
    EXPECT_EQ(menu_text(2), "+ToggleHidden=action.show_hidden|Ctrl+H\n"
                            "---\n"
                            "+ToggleColSize=col.size\n"
                            "+ToggleColType=col.type\n"
                            "+ToggleColModified=col.modified\n"
                            "+ToggleColCreated=col.created\n"
                            "+ToggleColPermissions=col.permissions\n"
                            "+ToggleColOwner=col.owner\n"
                            "+ToggleColGroup=col.group\n"
                            "---\n"
                            "Refresh=action.refresh|Ctrl+R\n"
                            "SwapPanes=action.swap_panes|Ctrl+U\n"
                            "MirrorPane=action.mirror_pane\n");
    EXPECT_EQ(menu_text(3), "GoUp=action.go_up|Backspace\n"
                            "GoBack=action.go_back|Alt+Left\n"
                            "GoForward=action.go_forward|Alt+Right\n"
                            "---\n"
                            "GoHome=action.go_home|Ctrl+Home\n"
                            "GoToTrash=nav.trash\n"
                            "GoToPath=action.go_to_path|Ctrl+L\n");
    EXPECT_EQ(menu_text(4), "BookmarkAdd=action.bookmark_add|Ctrl+D\n"
                            "BookmarkManage=action.bookmark_manage\n");
    EXPECT_EQ(menu_text(5), "LogWindow=action.log|Ctrl+G\n"
                            "---\n"
                            "RestartAsRoot=action.restart_root\n"
                            "---\n"
                            "SettingsWindow=action.settings|Ctrl+,\n");
    EXPECT_EQ(menu_text(6, true), "SandboxInfo=action.sandbox_info\n"
                                  "Licenses=action.licenses\n"
                                  "---\n"
                                  "About=action.about\n");
}

TEST(MenuModel, help_outside_a_snap_has_no_notice_about_it) {
    EXPECT_EQ(menu_text(6), "Licenses=action.licenses\n"
                            "---\n"
                            "About=action.about\n");
}

TEST(MenuModel, the_columns_are_those_of_the_view_menu) {
    EXPECT_EQ(text_of(menu_model::columns()), "+ToggleColSize=col.size\n"
                                              "+ToggleColType=col.type\n"
                                              "+ToggleColModified=col.modified\n"
                                              "+ToggleColCreated=col.created\n"
                                              "+ToggleColPermissions=col.permissions\n"
                                              "+ToggleColOwner=col.owner\n"
                                              "+ToggleColGroup=col.group\n");
}

TEST(MenuModel, every_label_is_a_text_of_the_catalogue) {
    EXPECT_EQ(with_programs(
                  kAll,
                  [] {
                      I18n::instance().set_language("en");
                      std::vector<Item> items = menu_model::context_menu(one(false, true));
                      for (const menu_model::Menu& menu : menu_model::bar())
                          items.insert(items.end(), menu.items.begin(), menu.items.end());
                      std::string missing;
                      for (const Item& item : items)
                          if (!item.separator &&
                              std::strcmp(tr(item.label_key), item.label_key) == 0)
                              missing += item.label_key;
                      return missing;
                  },
                  true),
              "");
}

TEST(MenuModel, bar_and_columns_are_made_once) {
    EXPECT_EQ(with_programs(kAll,
                            [] {
                                const std::vector<menu_model::Menu>* bar = &menu_model::bar();
                                const Item* first = bar->front().items.data();
                                const bool same = &menu_model::bar() == bar &&
                                                  menu_model::bar().front().items.data() == first &&
                                                  &menu_model::columns() == &menu_model::columns();
                                return std::string(same ? "once" : "again");
                            }),
              "once");
}

// --- The menu of a pane -----------------------------------------------------------------------

TEST(MenuModel, with_nothing_selected_a_pane_has_only_what_needs_no_entry) {
    EXPECT_EQ(with_programs(kAll, [] { return text_of(menu_model::context_menu(ContextInfo{})); }),
              "SearchPane=action.search|Ctrl+F\n"
              "NewFolder=action.new_folder|F7\n"
              "NewFile=action.new_file\n"
              "OpenTerminal=action.open_terminal\n"
              "Refresh=action.refresh|Ctrl+R\n"
              "---\n"
              "SelectAll=action.select_all|Ctrl+A\n");
}

constexpr char kOneArchive[] = "OpenWith=action.open\n"
                               "CopyToOther=action.copy_to_other|F5\n"
                               "MoveToOther=action.move_to_other|F6\n"
                               "---\n"
                               "Rename=action.rename|F2\n"
                               "Clone=action.clone\n"
                               "MakeLink=action.make_link\n"
                               "---\n"
                               "Pack=action.pack\n"
                               "Unpack=action.unpack\n"
                               "ViewArchive=action.view_archive\n"
                               "---\n"
                               "ViewHex=action.view_hex\n"
                               "CopyPath=action.copy_path\n"
                               "Properties=action.properties|Alt+Return\n"
                               "---\n"
                               "SelectAll=action.select_all|Ctrl+A\n"
                               "SelectNone=action.select_none\n"
                               "InvertSelection=action.invert_selection|*\n"
                               "---\n"
                               "Delete=action.delete|Del\n"
                               "---\n"
                               "SearchPane=action.search|Ctrl+F\n"
                               "NewFolder=action.new_folder|F7\n"
                               "NewFile=action.new_file\n"
                               "OpenTerminal=action.open_terminal\n"
                               "Refresh=action.refresh|Ctrl+R\n";

TEST(MenuModel, an_archive_has_all_there_is) {
    EXPECT_EQ(
        with_programs(kAll, [] { return text_of(menu_model::context_menu(one(false, true))); }),
        kOneArchive);
}

TEST(MenuModel, a_file_has_no_more_than_can_be_done_with_it) {
    EXPECT_EQ(
        with_programs(kAll, [] { return names_of(menu_model::context_menu(one(false, false))); }),
        "OpenWith CopyToOther MoveToOther - Rename Clone MakeLink - Pack - ViewHex CopyPath "
        "Properties - SelectAll SelectNone InvertSelection - Delete - SearchPane NewFolder "
        "NewFile OpenTerminal Refresh");
}

TEST(MenuModel, a_folder_is_neither_opened_with_a_program_nor_shown_in_bytes) {
    EXPECT_EQ(
        with_programs(kAll, [] { return names_of(menu_model::context_menu(one(true, false))); }),
        "CopyToOther MoveToOther - Rename Clone MakeLink - Pack - CopyPath "
        "Properties - SelectAll SelectNone InvertSelection - Delete - SearchPane NewFolder "
        "NewFile OpenTerminal Refresh");
}

// Even if the first of them is an archive.
TEST(MenuModel, several_entries_have_nothing_that_is_for_one) {
    EXPECT_EQ(with_programs(kAll,
                            [] {
                                ContextInfo info = one(false, true);
                                info.selection_count = 2;
                                return names_of(menu_model::context_menu(info));
                            }),
              "CopyToOther MoveToOther - Clone MakeLink - Pack - CopyPath "
              "Properties - SelectAll SelectNone InvertSelection - Delete - SearchPane NewFolder "
              "NewFile OpenTerminal Refresh");
}

TEST(MenuModel, links_and_rights_decide_nothing) {
    EXPECT_EQ(with_programs(kAll,
                            [] {
                                ContextInfo info = one(false, false);
                                const std::string plain = names_of(menu_model::context_menu(info));
                                info.is_link = true;
                                info.writable = false;
                                return std::to_string(plain ==
                                                      names_of(menu_model::context_menu(info)));
                            }),
              "1");
}

// --- Tools ------------------------------------------------------------------------------------

// Of "File" and of an archive's menu.
std::string which(Action action) {
    return std::string(holds(menu_model::bar()[0].items, action) ? "bar " : "") +
           (holds(menu_model::context_menu(one(false, true)), action) ? "context" : "");
}

TEST(MenuModel, without_an_archiver_packing_is_gone_unless_a_snap_is_to_explain_it) {
    const auto packing = [] { return which(Action::Pack); };
    EXPECT_EQ(with_programs({"tar"}, packing), "bar context");
    EXPECT_EQ(with_programs({"xterm"}, packing), "");
    EXPECT_EQ(with_programs({"xterm"}, packing, true), "bar context");
    // Nothing else goes with it.
    EXPECT_EQ(with_programs({"xterm"}, [] { return which(Action::Unpack); }), "bar context");
}

TEST(MenuModel, without_a_terminal_its_entry_is_gone) {
    const auto terminal = [] { return which(Action::OpenTerminal); };
    EXPECT_EQ(with_programs({"xterm"}, terminal), "bar context");
    EXPECT_EQ(with_programs({"tar"}, terminal), "");
    EXPECT_EQ(with_programs({"tar"}, terminal, true), "");
}

TEST(MenuModel, separators_stay_where_items_go) {
    EXPECT_EQ(with_programs({}, [] { return names_of(menu_model::bar()[0].items); }),
              "NewFolder NewFile - Rename Clone MakeLink - Unpack ViewArchive - ViewHex - "
              "Properties Delete - Quit");
    EXPECT_EQ(
        with_programs({}, [] { return names_of(menu_model::context_menu(one(true, false))); }),
        "CopyToOther MoveToOther - Rename Clone MakeLink - - CopyPath "
        "Properties - SelectAll SelectNone InvertSelection - Delete - SearchPane NewFolder "
        "NewFile Refresh");
}

}  // namespace
