// The text of a rename: buffer, caret, and which entry it is for.

#include "pane_fixture.h"

#include <sys/stat.h>
#include <unistd.h>

using dir_lister::SortKey;

namespace {

class PaneRename : public PaneTest {
  protected:
    // Begins the rename of a file of this name.
    void begin(const std::string& name) {
        show({name}, true);
        cursor_on(name);
        pane.begin_rename();
    }
    // The buffer with a bar where the caret is.
    std::string text() const {
        std::string shown = pane.rename_buffer();
        return shown.insert(pane.rename_caret(), "|");
    }
};

}  // namespace

// --- Beginning and end --------------------------------------------------------------------------

TEST_F(PaneRename, begins_on_the_cursor_row_before_the_extension) {
    show({"a", "report.txt"});
    pane.set_cursor(2, false);
    pane.begin_rename();
    EXPECT_TRUE(pane.renaming());
    EXPECT_EQ(pane.rename_index(), 2);
    EXPECT_EQ(text(), "report|.txt");
    EXPECT_EQ(pane.rename_target(), 2);
}

TEST_F(PaneRename, the_caret_stands_at_the_end_of_the_stem) {
    const std::pair<const char*, const char*> rows[] = {
        {"a.txt", "a|.txt"},
        {"a.tar.gz", "a.tar|.gz"},
        {"plain", "plain|"},
        {".bashrc", ".bashrc|"},
        {".a.b", ".a|.b"},
        {"end.", "end|."},
        {"..x", ".|.x"},
        {"...", "..|."},
        {"\xC3\xA4.\xC3\xA4", "\xC3\xA4|.\xC3\xA4"},
    };
    for (const auto& [name, shown] : rows) {
        begin(name);
        EXPECT_EQ(text(), shown);
    }
}

TEST_F(PaneRename, folders_have_stems_like_files) {
    show({"folder.d/", "dotted./", ".config/"}, true);
    const std::pair<const char*, const char*> rows[] = {
        {"folder.d", "folder|.d"}, {"dotted.", "dotted|."}, {".config", ".config|"}};
    for (const auto& [name, shown] : rows) {
        cursor_on(name);
        pane.begin_rename();
        EXPECT_EQ(text(), shown);
    }
}

TEST_F(PaneRename, does_not_begin_on_the_parent_row_or_in_an_empty_list) {
    show({"a"});
    pane.begin_rename();
    EXPECT_FALSE(pane.renaming());
    pane.navigate_to(folder / "missing", false);
    pane.begin_rename();
    EXPECT_FALSE(pane.renaming());
    EXPECT_EQ(pane.rename_buffer(), "");
}

TEST_F(PaneRename, cancelling_resets_it) {
    begin("a.txt");
    pane.cancel_rename();
    EXPECT_FALSE(pane.renaming());
    EXPECT_EQ(pane.rename_index(), -1);
    EXPECT_EQ(pane.rename_target(), -1);
    EXPECT_EQ(pane.rename_buffer(), "");
    EXPECT_EQ(pane.rename_caret(), 0U);
}

TEST_F(PaneRename, without_a_rename_no_key_is_taken) {
    show({"a"});
    EXPECT_FALSE(pane.rename_insert("x"));
    EXPECT_FALSE(pane.rename_insert("/"));
    EXPECT_FALSE(pane.rename_insert(""));
    EXPECT_FALSE(pane.rename_backspace());
    EXPECT_FALSE(pane.rename_delete());
    EXPECT_FALSE(pane.rename_move_caret(1));
    EXPECT_FALSE(pane.rename_move_caret(-1));
    EXPECT_FALSE(pane.rename_move_caret(0));
    pane.rename_set_caret(5);
    EXPECT_EQ(pane.rename_buffer(), "");
    EXPECT_EQ(pane.rename_caret(), 0U);
}

// --- Editing ------------------------------------------------------------------------------------

TEST_F(PaneRename, inserts_at_the_caret) {
    begin("a.txt");
    EXPECT_TRUE(pane.rename_insert("b"));
    EXPECT_EQ(text(), "ab|.txt");
    EXPECT_TRUE(pane.rename_insert("\xC3\xA4 c"));
    EXPECT_EQ(text(), "ab\xC3\xA4 c|.txt");
    EXPECT_FALSE(pane.rename_insert(""));
    EXPECT_EQ(text(), "ab\xC3\xA4 c|.txt");
}

TEST_F(PaneRename, swallows_text_with_a_slash) {
    begin("a.txt");
    EXPECT_TRUE(pane.rename_insert("/"));
    EXPECT_TRUE(pane.rename_insert("x/y"));
    EXPECT_EQ(text(), "a|.txt");
}

TEST_F(PaneRename, backspace_takes_a_whole_character) {
    begin("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80.x");
    EXPECT_TRUE(pane.rename_backspace());
    EXPECT_EQ(text(), "a\xC3\xA4\xE2\x82\xAC|.x");
    EXPECT_TRUE(pane.rename_backspace());
    EXPECT_EQ(text(), "a\xC3\xA4|.x");
    EXPECT_TRUE(pane.rename_backspace());
    EXPECT_EQ(text(), "a|.x");
    EXPECT_TRUE(pane.rename_backspace());
    EXPECT_EQ(text(), "|.x");
    EXPECT_TRUE(pane.rename_backspace());
    EXPECT_EQ(text(), "|.x");
}

TEST_F(PaneRename, delete_takes_a_whole_character) {
    begin("a.\xC3\xA4\xF0\x9F\x98\x80z");
    EXPECT_TRUE(pane.rename_delete());
    EXPECT_EQ(text(), "a|\xC3\xA4\xF0\x9F\x98\x80z");
    EXPECT_TRUE(pane.rename_delete());
    EXPECT_EQ(text(), "a|\xF0\x9F\x98\x80z");
    EXPECT_TRUE(pane.rename_delete());
    EXPECT_EQ(text(), "a|z");
    EXPECT_TRUE(pane.rename_delete());
    EXPECT_EQ(text(), "a|");
    EXPECT_TRUE(pane.rename_delete());
    EXPECT_EQ(text(), "a|");
}

TEST_F(PaneRename, the_caret_moves_by_characters) {
    begin("\xC3\xA4\xE2\x82\xAC.x");
    EXPECT_TRUE(pane.rename_move_caret(-1));
    EXPECT_EQ(text(), "\xC3\xA4|\xE2\x82\xAC.x");
    EXPECT_TRUE(pane.rename_move_caret(-100));  // the sign alone counts
    EXPECT_EQ(text(), "|\xC3\xA4\xE2\x82\xAC.x");
    EXPECT_TRUE(pane.rename_move_caret(-1));
    EXPECT_EQ(text(), "|\xC3\xA4\xE2\x82\xAC.x");
    EXPECT_TRUE(pane.rename_move_caret(0));
    EXPECT_EQ(text(), "|\xC3\xA4\xE2\x82\xAC.x");
    EXPECT_TRUE(pane.rename_move_caret(7));
    EXPECT_EQ(text(), "\xC3\xA4|\xE2\x82\xAC.x");
    EXPECT_TRUE(pane.rename_move_caret(1));
    EXPECT_EQ(text(), "\xC3\xA4\xE2\x82\xAC|.x");
    EXPECT_TRUE(pane.rename_move_caret(1));
    EXPECT_TRUE(pane.rename_move_caret(1));
    EXPECT_TRUE(pane.rename_move_caret(1));
    EXPECT_EQ(text(), "\xC3\xA4\xE2\x82\xAC.x|");
}

TEST_F(PaneRename, the_caret_can_be_set_within_the_buffer) {
    begin("abc.txt");
    pane.rename_set_caret(0);
    EXPECT_EQ(text(), "|abc.txt");
    pane.rename_set_caret(5);
    EXPECT_EQ(text(), "abc.t|xt");
    pane.rename_set_caret(99);
    EXPECT_EQ(text(), "abc.txt|");
}

TEST_F(PaneRename, select_stem_follows_the_present_buffer) {
    begin("a.txt");
    pane.rename_set_caret(99);
    pane.rename_insert(".gz");
    pane.rename_select_stem();
    EXPECT_EQ(text(), "a.txt|.gz");
    while (!pane.rename_buffer().empty()) {
        pane.rename_set_caret(99);
        pane.rename_backspace();
    }
    pane.rename_select_stem();
    EXPECT_EQ(text(), "|");
}

// --- Which entry --------------------------------------------------------------------------------

TEST_F(PaneRename, a_reload_keeps_the_index_and_the_target_follows_the_name) {
    show({"b", "c"});
    cursor_on("b");
    pane.begin_rename();
    pane.rename_insert("X");
    add({"a"});
    pane.reload(false);
    EXPECT_TRUE(pane.renaming());
    EXPECT_EQ(pane.rename_index(), 1);
    EXPECT_EQ(pane.rename_buffer(), "bX");
    EXPECT_EQ(pane.rename_target(), row("b"));
    EXPECT_EQ(pane.rename_target(), 2);
}

TEST_F(PaneRename, an_entry_that_went_away_has_no_target) {
    show({"a", "b"});
    cursor_on("a");
    pane.begin_rename();
    unlink((folder / "a").c_str());
    pane.reload(false);
    EXPECT_TRUE(pane.renaming());
    EXPECT_EQ(pane.rename_index(), 1);  // b's row by now, which must not be renamed
    EXPECT_EQ(pane.rename_target(), -1);
    add({"a"});
    pane.reload(false);
    EXPECT_EQ(pane.rename_target(), 1);
}

TEST_F(PaneRename, a_sort_and_a_filter_leave_the_target_on_its_name) {
    show({"a", "b", "c"});
    cursor_on("a");
    pane.begin_rename();
    pane.toggle_sort_column(SortKey::Name);
    EXPECT_EQ(pane.rename_index(), 1);
    EXPECT_EQ(pane.rename_target(), 3);
    pane.set_filter("c", false);
    EXPECT_EQ(pane.rename_target(), -1);
    EXPECT_TRUE(pane.renaming());
}

TEST_F(PaneRename, going_back_does_not_end_it_but_leaves_it_without_a_target) {
    add({"sub/", "same", "sub/same"});
    pane.navigate_to(folder.path(), false);
    pane.navigate_to(folder / "sub", false);
    cursor_on("same");
    pane.begin_rename();
    pane.rename_insert("2");
    pane.go_back(false);
    EXPECT_TRUE(pane.renaming());
    EXPECT_EQ(pane.rename_index(), 1);
    EXPECT_EQ(pane.rename_buffer(), "same2");
    EXPECT_EQ(pane.rename_target(), -1);  // the other folder's "same" is another entry
    pane.go_forward(false);
    EXPECT_TRUE(pane.renaming());
    EXPECT_EQ(pane.rename_target(), row("same"));
}

TEST_F(PaneRename, going_up_ends_it) {
    add({"sub/", "sub/x"});
    pane.navigate_to(folder / "sub", false);
    cursor_on("x");
    pane.begin_rename();
    pane.go_up(false);
    EXPECT_FALSE(pane.renaming());
    EXPECT_EQ(pane.rename_target(), -1);
}

TEST_F(PaneRename, beginning_again_takes_the_new_cursor_row) {
    show({"a", "b"});
    cursor_on("a");
    pane.begin_rename();
    pane.rename_insert("zzz");
    cursor_on("b");
    pane.begin_rename();
    EXPECT_EQ(pane.rename_index(), 2);
    EXPECT_EQ(pane.rename_target(), 2);
    EXPECT_EQ(text(), "b|");
}

TEST_F(PaneRename, a_caret_that_is_moved_by_nothing_stays) {
    begin("abc");
    pane.rename_set_caret(2);
    EXPECT_TRUE(pane.rename_move_caret(0));
    EXPECT_EQ(text(), "ab|c");
}
