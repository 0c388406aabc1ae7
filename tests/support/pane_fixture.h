// A pane and a folder of the test's own, with what most tests of panes ask.

#pragma once

#include "pane.h"
#include "test_env.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using Names = std::vector<std::string>;

class PaneTest : public testing::Test {
  protected:
    // Shows folder with these empty files in it. A name with a slash at its end is a folder.
    void show(const Names& files, bool show_hidden = false) {
        add(files);
        pane.navigate_to(folder.path(), show_hidden);
    }
    void add(const Names& files) {
        for (const std::string& name : files) {
            if (name.back() == '/')
                test_env::make_dirs(folder / name);
            else
                test_env::write_file(folder / name, "");
        }
    }

    Names names() const {
        Names result;
        for (const FsEntry& entry : pane.entries())
            result.push_back(entry.name);
        return result;
    }
    // The row of a name, -1 when it is not listed.
    int row(const std::string& name) const {
        for (size_t i = 0; i < pane.entries().size(); ++i) {
            if (pane.entries()[i].name == name)
                return static_cast<int>(i);
        }
        return -1;
    }
    // The name under the cursor, empty when there is none.
    std::string at_cursor() const {
        const auto index = static_cast<size_t>(pane.cursor());
        return index < pane.entries().size() ? pane.entries()[index].name : "";
    }
    Names selection() const {
        Names result;
        for (size_t i = 0; i < pane.entries().size(); ++i) {
            if (pane.is_selected(static_cast<int>(i)))
                result.push_back(pane.entries()[i].name);
        }
        return result;
    }
    Names action_names() const {
        Names result;
        for (const FsEntry* entry : pane.action_entries())
            result.push_back(entry->name);
        return result;
    }
    void select(const Names& wanted) {
        pane.clear_selection();
        for (const std::string& name : wanted)
            pane.toggle_selection(row(name));
    }
    void cursor_on(const std::string& name) { pane.set_cursor(row(name), false); }

    test_env::TempDir folder;
    Pane pane;
};
