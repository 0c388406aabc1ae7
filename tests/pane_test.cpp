// Where a pane is: navigation, history, reload, filter and sort. Cursor and selection:
// pane_selection_test.cpp; rename: pane_rename_test.cpp.

#include "pane_fixture.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

using dir_lister::SortKey;
using test_env::TempDir;
using test_env::write_file;

namespace {

void set_mtime(const std::string& path, time_t seconds) {
    const struct timespec times[2] = {{.tv_sec = seconds, .tv_nsec = 0},
                                      {.tv_sec = seconds, .tv_nsec = 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

}  // namespace

// --- The beginning ------------------------------------------------------------------------------

TEST_F(PaneTest, starts_empty) {
    EXPECT_EQ(pane.name_width, 0.0F);
    EXPECT_EQ(pane.path(), "");
    EXPECT_EQ(pane.error(), "");
    EXPECT_TRUE(pane.entries().empty());
    EXPECT_EQ(pane.cursor(), 0);
    EXPECT_EQ(pane.scroll(), 0);
    EXPECT_EQ(pane.filter(), "");
    EXPECT_EQ(pane.unfiltered_count(), 0);
    EXPECT_EQ(pane.sort_order(), dir_lister::SortOrder{});
    EXPECT_FALSE(pane.renaming());
    EXPECT_EQ(pane.rename_index(), -1);
    EXPECT_EQ(pane.rename_target(), -1);
    EXPECT_EQ(pane.rename_buffer(), "");
    EXPECT_EQ(pane.rename_caret(), 0U);
    EXPECT_FALSE(pane.has_selection());
    EXPECT_FALSE(pane.can_go_back());
    EXPECT_FALSE(pane.can_go_forward());
    EXPECT_TRUE(pane.action_entries().empty());
    EXPECT_EQ(pane.selected_count(), 0);
    EXPECT_EQ(pane.selected_bytes(), 0);
}

TEST_F(PaneTest, moves_have_their_numbers) {
    using Move = Pane::Move;
    const Move moves[] = {Move::Up,       Move::Down,  Move::PageUp,
                          Move::PageDown, Move::First, Move::Last};
    for (size_t i = 0; i < std::size(moves); ++i)
        EXPECT_EQ(static_cast<size_t>(moves[i]), i);
}

TEST_F(PaneTest, without_a_folder_every_call_is_harmless) {
    pane.navigate_to("", true);
    EXPECT_EQ(pane.path(), "");
    EXPECT_EQ(pane.error(), "");
    EXPECT_FALSE(pane.can_go_back());
    pane.go_up(true);
    pane.go_back(true);
    pane.go_forward(true);
    EXPECT_EQ(pane.path(), "");
    EXPECT_EQ(pane.error(), "");
    pane.set_cursor(5, true);
    pane.move_cursor(Pane::Move::Down, true, 10);
    pane.toggle_selection(0);
    pane.extend_selection_to(3);
    pane.select_all();
    pane.invert_selection();
    EXPECT_EQ(pane.select_pattern("*", false), 0);
    pane.set_sort_order({.key = SortKey::Size, .ascending = false, .dirs_first = true});
    pane.set_scroll(5, 5);
    pane.scroll_by(5, 5);
    pane.ensure_cursor_visible(5);
    pane.begin_rename();
    EXPECT_EQ(pane.cursor(), 0);
    EXPECT_EQ(pane.scroll(), 0);
    EXPECT_FALSE(pane.has_selection());
    EXPECT_FALSE(pane.renaming());
}

// --- navigate_to --------------------------------------------------------------------------------

TEST_F(PaneTest, navigate_shows_the_folder_sorted_from_its_first_row) {
    show({"b", "a", "z/", ".hidden"});
    EXPECT_EQ(pane.path(), folder.path());
    EXPECT_EQ(names(), (Names{"..", "z", "a", "b"}));
    EXPECT_EQ(pane.cursor(), 0);
    EXPECT_EQ(pane.error(), "");
    EXPECT_EQ(pane.listing().file_count, 2);
    EXPECT_EQ(pane.listing().dir_count, 1);
    EXPECT_EQ(pane.unfiltered_count(), 4);
    pane.navigate_to(folder.path(), true);
    EXPECT_EQ(names(), (Names{"..", "z", ".hidden", "a", "b"}));
}

TEST_F(PaneTest, navigate_to_an_empty_path_does_nothing_at_all) {
    show({"a", "b"});
    pane.set_cursor(2, true);
    add({"c"});
    pane.navigate_to("", false);
    EXPECT_EQ(pane.path(), folder.path());
    EXPECT_EQ(names(), (Names{"..", "a", "b"}));
    EXPECT_EQ(selection(), Names{"b"});
    EXPECT_FALSE(pane.can_go_back());
}

TEST_F(PaneTest, navigate_starts_anew) {
    show({"a", "b", "c", "sub/"});
    add({"sub/a", "sub/b", "sub/c"});
    select({"b", "c"});
    pane.set_scroll(2, 1);
    cursor_on("c");
    pane.begin_rename();
    pane.navigate_to(folder / "sub", false);
    EXPECT_FALSE(pane.has_selection());
    EXPECT_EQ(pane.scroll(), 0);
    EXPECT_FALSE(pane.renaming());
    EXPECT_EQ(pane.rename_buffer(), "");
    EXPECT_EQ(pane.rename_caret(), 0U);
    // An entry of the same name in the new folder does not get the cursor.
    EXPECT_EQ(pane.cursor(), 0);
    pane.extend_selection_to(1);
    EXPECT_EQ(selection(), Names{"a"});  // the anchor is on the first row
}

// "/" has no parent row: its first row has a name, which must not be looked for in the new folder.
TEST_F(PaneTest, navigate_from_the_root_does_not_look_for_the_roots_first_entry) {
    pane.navigate_to("/", false);
    ASSERT_FALSE(pane.entries().empty());
    const std::string first = pane.entries()[0].name;
    add({"0/", first + "/"});
    pane.navigate_to(folder.path(), false);
    EXPECT_EQ(pane.cursor(), 0);
}

TEST_F(PaneTest, navigate_keeps_a_name_that_the_caller_wants) {
    add({"a", "b", "c"});
    pane.remember_cursor_name("b");
    pane.navigate_to(folder.path(), false);
    EXPECT_EQ(at_cursor(), "b");
}

TEST_F(PaneTest, navigate_keeps_the_filter) {
    show({"a.txt", "b.c", "sub/"});
    add({"sub/x.txt", "sub/y.c"});
    pane.set_filter("txt", false);
    pane.navigate_to(folder / "sub", false);
    EXPECT_EQ(pane.filter(), "txt");
    EXPECT_EQ(names(), (Names{"..", "x.txt"}));
    EXPECT_EQ(pane.unfiltered_count(), 3);
}

TEST_F(PaneTest, navigating_to_the_current_folder_rereads_it_without_history) {
    show({"a", "b"});
    pane.navigate_to(folder.path(), false);
    EXPECT_FALSE(pane.can_go_back());
    select({"a", "b"});
    add({"c"});
    pane.navigate_to(std::string(pane.path()), false);
    EXPECT_EQ(names(), (Names{"..", "a", "b", "c"}));
    EXPECT_FALSE(pane.has_selection());
    EXPECT_EQ(pane.cursor(), 0);
    EXPECT_FALSE(pane.can_go_back());
    EXPECT_FALSE(pane.can_go_forward());
}

TEST_F(PaneTest, navigate_takes_a_reference_to_its_own_path) {
    show({"a"});
    pane.navigate_to(pane.path(), false);
    EXPECT_EQ(pane.path(), folder.path());
    EXPECT_EQ(names(), (Names{"..", "a"}));
}

TEST_F(PaneTest, navigating_to_the_current_folder_after_going_back_drops_what_lay_ahead) {
    show({"a", "sub/"});
    pane.navigate_to(folder / "sub", false);
    pane.go_back(false);
    ASSERT_TRUE(pane.can_go_forward());
    pane.navigate_to(folder.path(), false);
    EXPECT_FALSE(pane.can_go_forward());
    EXPECT_FALSE(pane.can_go_back());
}

TEST_F(PaneTest, a_folder_that_cannot_be_read_is_an_empty_list_to_go_back_from) {
    show({"a", "b"});
    pane.set_cursor(2, true);
    pane.navigate_to(folder / "missing", false);
    EXPECT_EQ(pane.path(), folder / "missing");
    EXPECT_EQ(pane.error(), std::strerror(ENOENT));
    EXPECT_EQ(pane.listing().error_code, ENOENT);
    EXPECT_TRUE(pane.entries().empty());
    EXPECT_EQ(pane.unfiltered_count(), 0);
    EXPECT_FALSE(pane.has_selection());
    EXPECT_EQ(pane.cursor(), 0);
    ASSERT_TRUE(pane.can_go_back());
    pane.go_back(false);
    EXPECT_EQ(pane.error(), "");
    EXPECT_EQ(names(), (Names{"..", "a", "b"}));
}

// --- History ------------------------------------------------------------------------------------

TEST_F(PaneTest, back_and_forward_walk_the_history) {
    add({"1/", "2/", "3/"});
    for (const char* name : {"1", "2", "3"})
        pane.navigate_to(folder / name, false);
    EXPECT_TRUE(pane.can_go_back());
    EXPECT_FALSE(pane.can_go_forward());
    pane.go_forward(false);
    EXPECT_EQ(pane.path(), folder / "3");
    pane.go_back(false);
    EXPECT_EQ(pane.path(), folder / "2");
    pane.go_back(false);
    EXPECT_EQ(pane.path(), folder / "1");
    EXPECT_FALSE(pane.can_go_back());
    pane.go_back(false);
    EXPECT_EQ(pane.path(), folder / "1");
    pane.go_forward(false);
    pane.go_forward(false);
    EXPECT_EQ(pane.path(), folder / "3");
    EXPECT_FALSE(pane.can_go_forward());
}

TEST_F(PaneTest, a_new_folder_after_going_back_removes_the_forward_entries) {
    add({"1/", "2/", "3/", "4/"});
    for (const char* name : {"1", "2", "3"})
        pane.navigate_to(folder / name, false);
    pane.go_back(false);
    pane.go_back(false);
    pane.navigate_to(folder / "4", false);
    EXPECT_FALSE(pane.can_go_forward());
    pane.go_back(false);
    EXPECT_EQ(pane.path(), folder / "1");
    EXPECT_FALSE(pane.can_go_back());
    pane.go_forward(false);
    EXPECT_EQ(pane.path(), folder / "4");
    EXPECT_FALSE(pane.can_go_forward());
}

TEST_F(PaneTest, back_and_forward_start_on_the_first_row) {
    add({"sub/", "a", "b", "sub/a", "sub/b"});
    pane.navigate_to(folder.path(), false);
    pane.navigate_to(folder / "sub", false);
    pane.set_cursor(2, true);
    pane.set_scroll(1, 1);
    pane.go_back(false);
    EXPECT_EQ(pane.cursor(), 0);
    EXPECT_EQ(pane.scroll(), 0);
    EXPECT_FALSE(pane.has_selection());
    cursor_on("b");
    pane.toggle_selection(row("a"));
    pane.set_scroll(1, 1);
    pane.go_forward(false);
    EXPECT_EQ(pane.cursor(), 0);
    EXPECT_EQ(pane.scroll(), 0);
    EXPECT_FALSE(pane.has_selection());
}

// The same slip as in navigate_to(): "/" has no parent row, so its first row has a name to look
// for.
TEST_F(PaneTest, back_from_the_root_starts_on_the_first_row) {
    pane.navigate_to("/", false);
    ASSERT_FALSE(pane.entries().empty());
    add({"0/", pane.entries()[0].name + "/"});
    pane.navigate_to(folder.path(), false);
    pane.navigate_to("/", false);
    pane.go_back(false);
    EXPECT_EQ(pane.path(), folder.path());
    EXPECT_EQ(pane.cursor(), 0);
    pane.go_back(false);
    EXPECT_EQ(pane.path(), "/");
    pane.go_forward(false);
    EXPECT_EQ(pane.path(), folder.path());
    EXPECT_EQ(pane.cursor(), 0);
}

TEST_F(PaneTest, going_back_rereads) {
    add({"sub/", "a"});
    pane.navigate_to(folder.path(), false);
    pane.navigate_to(folder / "sub", false);
    add({"b", ".hidden"});
    pane.go_back(false);
    EXPECT_EQ(names(), (Names{"..", "sub", "a", "b"}));
    pane.go_forward(false);
    pane.go_back(true);
    EXPECT_EQ(names(), (Names{"..", "sub", ".hidden", "a", "b"}));
}

TEST_F(PaneTest, the_history_has_no_limit) {
    add({"a/", "b/"});
    for (int i = 0; i < 300; ++i)
        pane.navigate_to(folder / (i % 2 ? "a" : "b"), false);
    int steps = 0;
    for (; pane.can_go_back(); ++steps)
        pane.go_back(false);
    EXPECT_EQ(steps, 299);
}

// --- go_up --------------------------------------------------------------------------------------

TEST_F(PaneTest, up_lands_on_the_folder_just_left) {
    pane.navigate_to("/usr/lib", false);
    pane.go_up(false);
    EXPECT_EQ(pane.path(), "/usr");
    EXPECT_EQ(at_cursor(), "lib");
    pane.go_up(false);
    EXPECT_EQ(pane.path(), "/");
    EXPECT_EQ(at_cursor(), "usr");
    pane.go_up(false);
    EXPECT_EQ(pane.path(), "/");
    EXPECT_EQ(at_cursor(), "usr");
}

TEST_F(PaneTest, up_is_a_step_of_the_history) {
    add({"sub/"});
    pane.navigate_to(folder / "sub", false);
    pane.go_up(false);
    ASSERT_TRUE(pane.can_go_back());
    EXPECT_FALSE(pane.can_go_forward());
    pane.go_back(false);
    EXPECT_EQ(pane.path(), folder / "sub");
}

TEST_F(PaneTest, up_ignores_a_slash_at_the_end) {
    add({"sub/", "another/"});
    pane.navigate_to(folder / "sub/", false);
    pane.go_up(false);
    EXPECT_EQ(pane.path(), folder.path());
    EXPECT_EQ(at_cursor(), "sub");
}

TEST_F(PaneTest, up_from_a_relative_name_goes_to_the_root) {
    pane.navigate_to("no-such-folder", false);
    pane.go_up(false);
    EXPECT_EQ(pane.path(), "/");
    EXPECT_EQ(pane.cursor(), 0);
}

TEST_F(PaneTest, up_to_a_folder_that_hides_the_one_left_stays_on_the_first_row) {
    add({".dot/", "a", "b"});
    pane.navigate_to(folder / ".dot", false);
    pane.go_up(false);
    EXPECT_EQ(pane.path(), folder.path());
    EXPECT_EQ(pane.cursor(), 0);
}

// --- reload -------------------------------------------------------------------------------------

TEST_F(PaneTest, reload_keeps_the_cursor_on_its_name) {
    show({"b", "c", "d"});
    cursor_on("c");
    add({"a", "a2"});
    pane.reload(false);
    EXPECT_EQ(at_cursor(), "c");
    EXPECT_EQ(pane.cursor(), 4);
    // The anchor has come along.
    pane.extend_selection_to(pane.cursor());
    EXPECT_EQ(selection(), Names{"c"});
}

TEST_F(PaneTest, reload_after_the_cursor_row_went_keeps_the_index) {
    show({"a", "b", "c"});
    cursor_on("b");
    unlink((folder / "b").c_str());
    pane.reload(false);
    EXPECT_EQ(pane.cursor(), 2);
    EXPECT_EQ(at_cursor(), "c");
    unlink((folder / "c").c_str());
    pane.reload(false);
    EXPECT_EQ(pane.cursor(), 1);  // the end of the list
    EXPECT_EQ(at_cursor(), "a");
}

TEST_F(PaneTest, reload_puts_the_cursor_on_a_remembered_name_once) {
    show({"b", "c"});
    cursor_on("c");
    add({"a"});
    pane.remember_cursor_name("a");
    pane.reload(false);
    EXPECT_EQ(at_cursor(), "a");
    cursor_on("c");
    pane.reload(false);
    EXPECT_EQ(at_cursor(), "c");
}

TEST_F(PaneTest, a_remembered_name_that_does_not_come_is_forgotten) {
    show({"b", "c"});
    cursor_on("c");
    pane.remember_cursor_name("a");
    pane.reload(false);
    EXPECT_EQ(pane.cursor(), 2);  // the index is kept, the old name is not looked for
    add({"a"});
    pane.reload(false);
    EXPECT_EQ(at_cursor(), "c");
}

TEST_F(PaneTest, reload_keeps_the_selection_by_name) {
    show({"b", "c", "d", "e"});
    select({"b", "d", "e"});
    add({"a"});
    unlink((folder / "d").c_str());
    pane.reload(false);
    EXPECT_EQ(selection(), (Names{"b", "e"}));
    // What came back is a new file.
    add({"d"});
    pane.reload(false);
    EXPECT_EQ(selection(), (Names{"b", "e"}));
}

TEST_F(PaneTest, reload_drops_hidden_entries_from_the_selection) {
    show({".a", "b"}, true);
    pane.select_all();
    pane.reload(false);
    EXPECT_EQ(names(), (Names{"..", "b"}));
    EXPECT_EQ(selection(), Names{"b"});
    pane.reload(true);
    EXPECT_EQ(selection(), Names{"b"});
}

TEST_F(PaneTest, reload_leaves_the_scroll_position_alone) {
    show({"a", "b", "c", "d"});
    pane.set_scroll(3, 1);
    for (const char* name : {"a", "b", "c"})
        unlink((folder / name).c_str());
    pane.reload(false);
    EXPECT_EQ(pane.scroll(), 3);
}

TEST_F(PaneTest, reload_of_a_folder_that_went_away_empties_the_list) {
    add({"sub/", "sub/a", "sub/b"});
    pane.navigate_to(folder / "sub", false);
    pane.set_cursor(2, true);
    for (const char* name : {"sub/a", "sub/b"})
        unlink((folder / name).c_str());
    ASSERT_EQ(rmdir((folder / "sub").c_str()), 0);
    pane.reload(false);
    EXPECT_TRUE(pane.entries().empty());
    EXPECT_EQ(pane.error(), std::strerror(ENOENT));
    EXPECT_EQ(pane.listing().error_code, ENOENT);
    EXPECT_EQ(pane.cursor(), 0);
    EXPECT_FALSE(pane.has_selection());
    add({"sub/", "sub/b"});
    pane.reload(false);
    EXPECT_EQ(pane.error(), "");
    EXPECT_EQ(names(), (Names{"..", "b"}));
}

TEST_F(PaneTest, reload_with_everything_selected_in_a_big_folder) {
    constexpr int kFiles = 2000;
    Names files;
    for (int i = 0; i < kFiles; ++i)
        files.push_back("f" + std::to_string(i));
    show(files);
    pane.select_all();
    pane.reload(false);
    EXPECT_EQ(pane.selected_count(), kFiles);
    pane.toggle_sort_column(SortKey::Name);
    EXPECT_EQ(pane.selected_count(), kFiles);
    EXPECT_FALSE(pane.is_selected(0));
}

// --- Filter -------------------------------------------------------------------------------------

TEST_F(PaneTest, a_filter_is_a_part_of_the_name_without_case) {
    show({"Alpha", "beta", "GAMMA", "delta.TXT", "x/"});
    pane.set_filter("A", false);
    EXPECT_EQ(names(), (Names{"..", "Alpha", "beta", "delta.TXT", "GAMMA"}));
    pane.set_filter("ta", false);
    EXPECT_EQ(names(), (Names{"..", "beta", "delta.TXT"}));
    pane.set_filter("[a]", false);  // a bracket alone makes no pattern
    EXPECT_EQ(names(), (Names{".."}));
    pane.set_filter("", false);
    EXPECT_EQ(pane.entries().size(), 6U);
}

TEST_F(PaneTest, a_filter_with_a_star_or_a_question_mark_matches_whole_names) {
    show({"a", "ab", "ba", "A2", "a.txt", "b.TXT"});
    pane.set_filter("a*", false);
    EXPECT_EQ(names(), (Names{"..", "a", "a.txt", "A2", "ab"}));
    pane.set_filter("a?", false);
    EXPECT_EQ(names(), (Names{"..", "A2", "ab"}));
    pane.set_filter("*.txt", false);
    EXPECT_EQ(names(), (Names{"..", "a.txt", "b.TXT"}));
    pane.set_filter("[AB]?", false);  // within a pattern brackets have their meaning
    EXPECT_EQ(names(), (Names{"..", "A2", "ab", "ba"}));
}

TEST_F(PaneTest, an_upper_case_filter_pattern_keeps_lower_case_names) {
    show({"a.txt", "b.c"});
    pane.set_filter("*.TXT", false);
    EXPECT_EQ(names(), (Names{"..", "a.txt"}));
    EXPECT_EQ(pane.select_pattern("*.TXT", false), 0);
    EXPECT_FALSE(pane.has_selection());
}

TEST_F(PaneTest, a_pattern_needs_no_special_regard_for_dots_in_front) {
    show({".abc", "abc"}, true);
    pane.set_filter("*bc", true);
    EXPECT_EQ(names(), (Names{"..", ".abc", "abc"}));
}

TEST_F(PaneTest, only_ascii_letters_are_folded_by_a_filter) {
    show({"\xC3\x84pfel", "\xC3\xA4pfel"});
    pane.set_filter("\xC3\x84PF", false);
    EXPECT_EQ(names(), (Names{"..", "\xC3\x84pfel"}));
}

TEST_F(PaneTest, the_parent_row_survives_every_filter) {
    show({"a", "b"});
    pane.set_filter("nothing has this", false);
    EXPECT_EQ(names(), Names{".."});
    EXPECT_EQ(pane.unfiltered_count(), 3);
    EXPECT_EQ(pane.cursor(), 0);
    pane.set_filter("?", false);
    EXPECT_EQ(names(), (Names{"..", "a", "b"}));
    pane.set_filter("???", false);
    EXPECT_EQ(names(), Names{".."});
    EXPECT_EQ(pane.unfiltered_count(), 3);
}

TEST_F(PaneTest, a_filter_counts_what_it_keeps) {
    write_file(folder / "keep1", "12345");
    write_file(folder / "keep2", "123");
    write_file(folder / "drop", "1");
    add({"keepdir/", "dropdir/"});
    ASSERT_EQ(symlink("keep1", (folder / "keeplink").c_str()), 0);
    ASSERT_EQ(symlink("keepdir", (folder / "keeplinkdir").c_str()), 0);
    ASSERT_EQ(mkfifo((folder / "keepfifo").c_str(), 0600), 0);
    pane.navigate_to(folder.path(), false);
    EXPECT_EQ(pane.listing().file_count, 3);
    EXPECT_EQ(pane.listing().dir_count, 2);
    EXPECT_EQ(pane.listing().total_bytes, 9);
    pane.set_filter("KEEP", false);
    EXPECT_EQ(pane.listing().file_count, 2);
    EXPECT_EQ(pane.listing().dir_count, 1);
    EXPECT_EQ(pane.listing().total_bytes, 8);
    EXPECT_EQ(pane.entries().size(), 7U);
    EXPECT_EQ(pane.unfiltered_count(), 9);
    pane.set_filter("", false);
    EXPECT_EQ(pane.listing().file_count, 3);
    EXPECT_EQ(pane.listing().total_bytes, 9);
}

TEST_F(PaneTest, a_filter_keeps_the_order_and_drops_what_it_hides_from_the_selection) {
    show({"f10.txt", "f2.txt", "g.c", "z.txt/"});
    select({"f10.txt", "g.c"});
    pane.set_filter(".txt", false);
    EXPECT_EQ(names(), (Names{"..", "z.txt", "f2.txt", "f10.txt"}));
    EXPECT_EQ(selection(), Names{"f10.txt"});
    pane.set_filter("", false);
    EXPECT_EQ(selection(), Names{"f10.txt"});
}

TEST_F(PaneTest, setting_a_filter_scrolls_to_the_top_and_keeps_the_cursor_in_the_list) {
    show({"a", "b", "c", "d"});
    pane.set_scroll(2, 1);
    cursor_on("d");
    pane.set_filter("d", false);
    EXPECT_EQ(pane.scroll(), 0);
    EXPECT_EQ(at_cursor(), "d");
    pane.set_filter("", false);
    EXPECT_EQ(at_cursor(), "d");
    pane.set_filter("a", false);
    EXPECT_EQ(pane.cursor(), 1);  // the name is gone: the last row
}

TEST_F(PaneTest, setting_the_same_filter_does_nothing) {
    show({"a", "b"});
    pane.set_filter("a", false);
    pane.set_scroll(1, 1);
    add({"a2"});
    pane.set_filter("a", false);
    EXPECT_EQ(names(), (Names{"..", "a"}));
    EXPECT_EQ(pane.scroll(), 1);
    pane.set_filter("A", false);  // another text, though it matches the same
    EXPECT_EQ(names(), (Names{"..", "a", "a2"}));
    EXPECT_EQ(pane.scroll(), 0);
}

TEST_F(PaneTest, a_filter_in_a_folder_that_cannot_be_read_leaves_the_cursor_at_zero) {
    pane.navigate_to(folder / "missing", false);
    pane.set_filter("x", false);
    EXPECT_EQ(pane.cursor(), 0);
    EXPECT_EQ(pane.unfiltered_count(), 0);
    EXPECT_EQ(pane.error(), std::strerror(ENOENT));
}

// --- Sort ---------------------------------------------------------------------------------------

TEST_F(PaneTest, sorting_keeps_selection_and_cursor_by_name_and_the_scroll_by_number) {
    show({"a", "b", "c", "d"});
    select({"a", "c"});
    cursor_on("b");
    pane.set_scroll(2, 1);
    pane.set_sort_order({.key = SortKey::Name, .ascending = false, .dirs_first = true});
    EXPECT_EQ(names(), (Names{"..", "d", "c", "b", "a"}));
    EXPECT_EQ(selection(), (Names{"c", "a"}));
    EXPECT_EQ(at_cursor(), "b");
    EXPECT_EQ(pane.cursor(), 3);
    EXPECT_EQ(pane.scroll(), 2);
    pane.extend_selection_to(4);  // the anchor went with the cursor
    EXPECT_EQ(selection(), (Names{"b", "a"}));
}

TEST_F(PaneTest, sorting_does_not_touch_the_disk) {
    show({"a", "b"});
    add({"c"});
    unlink((folder / "a").c_str());
    pane.set_sort_order({.key = SortKey::Name, .ascending = false, .dirs_first = true});
    EXPECT_EQ(names(), (Names{"..", "b", "a"}));
}

TEST_F(PaneTest, the_sort_order_is_that_of_later_reloads_too) {
    show({"a", "b"});
    pane.set_sort_order({.key = SortKey::Name, .ascending = false, .dirs_first = false});
    add({"c/"});
    pane.reload(false);
    EXPECT_EQ(names(), (Names{"..", "c", "b", "a"}));
}

TEST_F(PaneTest, toggling_a_column_starts_with_the_direction_that_fits_it) {
    const std::pair<SortKey, bool> rows[] = {
        {SortKey::Size, false}, {SortKey::Modified, false},   {SortKey::Created, true},
        {SortKey::Kind, true},  {SortKey::Permissions, true}, {SortKey::Owner, true},
        {SortKey::Group, true}, {SortKey::Name, true},
    };
    show({"a"});
    for (const auto& [key, ascending] : rows) {
        pane.toggle_sort_column(key);
        EXPECT_EQ(pane.sort_order().key, key);
        EXPECT_EQ(pane.sort_order().ascending, ascending) << static_cast<int>(key);
        pane.toggle_sort_column(key);
        EXPECT_EQ(pane.sort_order().key, key);
        EXPECT_EQ(pane.sort_order().ascending, !ascending) << static_cast<int>(key);
        EXPECT_TRUE(pane.sort_order().dirs_first);
    }
}

TEST_F(PaneTest, toggling_a_column_keeps_dirs_first_as_it_is) {
    show({"a", "b/"});
    pane.set_sort_order({.key = SortKey::Name, .ascending = true, .dirs_first = false});
    pane.toggle_sort_column(SortKey::Size);
    EXPECT_FALSE(pane.sort_order().dirs_first);
    EXPECT_EQ(names(), (Names{"..", "a", "b"}));
}

TEST_F(PaneTest, toggling_the_date_shows_the_newest_first) {
    add({"old", "new", "middle"});
    set_mtime(folder / "old", 1000);
    set_mtime(folder / "middle", 2000);
    set_mtime(folder / "new", 3000);
    pane.navigate_to(folder.path(), false);
    pane.toggle_sort_column(SortKey::Modified);
    EXPECT_EQ(names(), (Names{"..", "new", "middle", "old"}));
    pane.toggle_sort_column(SortKey::Modified);
    EXPECT_EQ(names(), (Names{"..", "old", "middle", "new"}));
}

TEST_F(PaneTest, toggling_the_size_shows_the_largest_first) {
    write_file(folder / "small", "1");
    write_file(folder / "large", "12345");
    pane.navigate_to(folder.path(), false);
    pane.toggle_sort_column(SortKey::Size);
    EXPECT_EQ(names(), (Names{"..", "large", "small"}));
}

// --- Which rows, and of which stay in a folder --------------------------------------------------

TEST_F(PaneTest, whatever_can_move_rows_begins_a_new_generation) {
    EXPECT_EQ(pane.generation(), 0U);
    show({"a", "b/", "c"});
    const std::vector<std::pair<const char*, std::function<void()>>> steps = {
        {"reload", [this] { pane.reload(false); }},
        {"sort", [this] { pane.toggle_sort_column(SortKey::Size); }},
        {"filter", [this] { pane.set_filter("a", false); }},
        {"filter off", [this] { pane.set_filter("", false); }},
        {"enter", [this] { pane.navigate_to(folder / "b", false); }},
        {"up", [this] { pane.go_up(false); }},
        {"back", [this] { pane.go_back(false); }},
        {"forward", [this] { pane.go_forward(false); }},
    };
    for (const auto& [name, step] : steps) {
        const uint64_t before = pane.generation();
        step();
        EXPECT_NE(pane.generation(), before) << name;
    }
    const uint64_t settled = pane.generation();
    pane.set_cursor(1, true);
    pane.select_all();
    pane.set_scroll(1, 1);
    pane.begin_rename();
    EXPECT_EQ(pane.generation(), settled);
}

TEST_F(PaneTest, only_going_somewhere_begins_a_new_visit) {
    EXPECT_EQ(pane.visit(), 0U);
    show({"a", "b/"});
    const uint64_t first = pane.visit();
    pane.reload(false);
    pane.toggle_sort_column(SortKey::Size);
    pane.set_filter("a", false);
    EXPECT_EQ(pane.visit(), first);
    const std::vector<std::pair<const char*, std::function<void()>>> steps = {
        {"the same folder", [this] { pane.navigate_to(folder.path(), false); }},
        {"enter", [this] { pane.navigate_to(folder / "b", false); }},
        {"up", [this] { pane.go_up(false); }},
        {"back", [this] { pane.go_back(false); }},
        {"forward", [this] { pane.go_forward(false); }},
    };
    for (const auto& [name, step] : steps) {
        const uint64_t before = pane.visit();
        step();
        EXPECT_NE(pane.visit(), before) << name;
    }
}

// Two panes may change places.
TEST_F(PaneTest, no_two_panes_share_a_number) {
    show({"a"});
    Pane other;
    other.navigate_to(folder.path(), false);
    EXPECT_NE(pane.generation(), other.generation());
    EXPECT_NE(pane.visit(), other.visit());
}
